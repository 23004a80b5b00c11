// twkey list over many software tokens in one store, as a user runs it:
// 1, 16, 64 and 256 tokens, each with an SM2 container, seen through both
// shipped packages. Prints the median wall and CPU time of the runs at each
// size and the cost per token added, and exits non-zero when 64 tokens take
// more than 100 ms of wall time, or when the cost does not grow linearly:
// the CPU time per token added from 64 to 256 may be at most 1.5 times that
// from 16 to 64. Also prints what the machine's disk charges for the
// library's rewrite of the device-state file at each connect, which the
// wall time holds and no token can spare.
#include "devicestatefile.h"
#include "processrun.h"
#include "softtokenengine.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>

namespace {

const int kSizes[] = {1, 16, 64, 256};
const int kRuns = 7;
const double kWallLimitMs = 100;
const double kGrowthLimit = 1.5;

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    DeviceStateFile deviceState;
    QTemporaryDir dir;
    const QString store = dir.path() + QStringLiteral("/store");
    qputenv("SOFTTOKEN_STORE", QFile::encodeName(store));
    SoftTokenEngine engine(store);
    int made = 0;
    double wall[4] = {0}, cpu[4] = {0};
    std::printf("tokens   wall ms    CPU ms   (medians of %d runs of twkey list)\n", kRuns);
    for (int s = 0; s < 4; ++s) {
        for (; made < kSizes[s]; ++made) {
            SoftTokenEngine::DeviceOptions options;
            options.name = QStringLiteral("tok%1").arg(made, 3, 10, QLatin1Char('0'));
            options.containers << SoftTokenEngine::ContainerSetup{QStringLiteral("sign"),
                                                                  SoftTokenEngine::ContainerSetup::Sm2, 0};
            if (!engine.createDevice(options)) {
                std::fprintf(stderr, "set-up failed: %s\n", qPrintable(engine.lastError()));
                return 2;
            }
        }
        std::vector<double> walls, cpus;
        const QByteArray head = "keys: " + QByteArray::number(made) + '\n';
        for (int r = 0; r < kRuns; ++r) {
            ProcessRun run;
            if (!run.run(QStringLiteral(TWKEY_BIN_DIR "/twkey"), {"list"}) || run.exitCode != 0
                || !run.output.startsWith(head)) {
                std::fprintf(stderr, "twkey list did not list %d keys\n", made);
                return 2;
            }
            walls.push_back(run.wallMs);
            cpus.push_back(run.cpuMs);
        }
        wall[s] = ProcessRun::median(walls);
        cpu[s] = ProcessRun::median(cpus);
        std::printf("%6d %9.1f %9.1f\n", made, wall[s], cpu[s]);
    }
    // As the library does it at each connect: fopen "w+", the serial, fclose.
    QElapsedTimer rewrites;
    rewrites.start();
    for (int i = 0; i < kSizes[2]; ++i) {
        if (FILE *f = std::fopen("/tmp/tw_device", "w+")) {
            std::fputs("TWBENCH000000000", f);
            std::fclose(f);
        }
    }
    std::printf("%d rewrites of /tmp/tw_device, one per connect of 64 tokens: %.1f ms of wall time\n", kSizes[2],
                double(rewrites.nsecsElapsed()) / 1e6);
    const double early = (cpu[2] - cpu[1]) / (kSizes[2] - kSizes[1]);
    const double late = (cpu[3] - cpu[2]) / (kSizes[3] - kSizes[2]);
    const double growth = late / early;
    std::printf("CPU per token added: %.2f ms from 16 to 64, %.2f ms from 64 to 256 (growth %.2f, limit %.1f): %s\n",
                early, late, growth, kGrowthLimit, growth <= kGrowthLimit ? "linear" : "OVER");
    std::printf("64 tokens: %.1f ms of wall time, limit %.0f ms: %s\n", wall[2], kWallLimitMs,
                wall[2] <= kWallLimitMs ? "within" : "OVER");
    return growth <= kGrowthLimit && wall[2] <= kWallLimitMs ? 0 : 1;
}
