// Signing a batch in one twkey process: 1,000 messages signed by
// `twkey sign --list` (one start, one login, eccSimpleSign by name and one
// signature file per message) against the same messages signed by the
// token's own calls made directly (digest with Z, then sign: DirectToken),
// the rounds of the two interleaved. The batch's files lie on a memory file
// system where there is one, so the figures are twkey's and the token's, not
// the disk's. Prints the medians (and the best rounds, the least disturbed
// by other load), checks every signature of the last batch with the openssl
// program, and exits non-zero when the ratio of the median CPU times is
// above 1.10, a signature does not verify or a side did not run. CPU time:
// the processes' own; wall time is printed too.
#include "devicestatefile.h"
#include "directtoken.h"
#include "processrun.h"
#include "softtokenengine.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <time.h>

namespace {

const int kMessages = 1000;
const int kRounds = 9;
const double kLimit = 1.10;
const char kDevice[] = "bench";
const char kContainer[] = "sign";
const char kPin[] = "12345678";
const QString kBin = QStringLiteral(TWKEY_BIN_DIR);

double nowMs(clockid_t clock)
{
    struct timespec t;
    clock_gettime(clock, &t);
    return double(t.tv_sec) * 1e3 + double(t.tv_nsec) / 1e6;
}

bool fail(const char *what)
{
    std::fprintf(stderr, "bulk signing: %s\n", what);
    return false;
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

// A store with one token, the messages in files and their list.
bool prepare(const QString &work, QList<QByteArray> *messages)
{
    const QString store = work + QStringLiteral("/store");
    qputenv("SOFTTOKEN_STORE", QFile::encodeName(store));
    SoftTokenEngine engine(store);
    SoftTokenEngine::DeviceOptions options;
    options.name = QLatin1String(kDevice);
    options.containers << SoftTokenEngine::ContainerSetup{QLatin1String(kContainer),
                                                          SoftTokenEngine::ContainerSetup::Sm2, 0};
    if (!engine.createDevice(options))
        return fail(qPrintable(engine.lastError()));
    if (!QDir(work).mkpath(QStringLiteral("msg")) || !QDir(work).mkpath(QStringLiteral("sig")))
        return fail("cannot make the folders");
    QByteArray list;
    for (int i = 0; i < kMessages; ++i) {
        const QByteArray message = QByteArray("Invoice ") + QByteArray::number(i) + ": "
                                   + QByteArray(100 + i % 400, char('a' + i % 26)) + '\n';
        const QString path = QStringLiteral("%1/msg/m%2.txt").arg(work).arg(i, 4, 10, QLatin1Char('0'));
        if (!writeFile(path, message))
            return fail("cannot write a message");
        messages->append(message);
        list += QFile::encodeName(path) + '\n';
    }
    return writeFile(work + QStringLiteral("/list.txt"), list) || fail("cannot write the list");
}

// The signatures of the last batch, each checked by openssl; the number
// that verify.
int opensslVerified(const QString &work)
{
    ProcessRun run;
    const QString pem = work + QStringLiteral("/pub.pem");
    if (!run.run(kBin + QStringLiteral("/twkey"), {"pubkey", "--container", kContainer, "--pem", "--out", pem})
        || run.exitCode != 0)
        return 0;
    int verified = 0;
    for (int i = 0; i < kMessages; ++i) {
        const QString name = QStringLiteral("m%1.txt").arg(i, 4, 10, QLatin1Char('0'));
        if (run.run(QStringLiteral("/usr/bin/openssl"),
                    {"dgst", "-sm3", "-sigopt", "distid:1234567812345678", "-verify", pem, "-signature",
                     work + QStringLiteral("/sig/") + name + QStringLiteral(".sig"), work + QStringLiteral("/msg/") + name})
            && run.exitCode == 0 && run.output.contains("Verified OK"))
            ++verified;
    }
    return verified;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    DeviceStateFile deviceState;
    QTemporaryDir dir(QFileInfo(QStringLiteral("/dev/shm")).isWritable() ? QStringLiteral("/dev/shm/bulksign-XXXXXX")
                                                                          : QString());
    const QString work = dir.path();
    QList<QByteArray> messages;
    DirectToken direct;
    if (!dir.isValid() || !prepare(work, &messages))
        return 2;
    if (!direct.open(kBin + QStringLiteral("/kdp/softtoken/libsofttoken-skf.so"), kDevice, kPin, kContainer)) {
        fail(direct.error());
        return 2;
    }
    const QStringList batch{"sign", "--container", kContainer, "--pin", kPin, "--format", "der",
                            "--out-dir", work + QStringLiteral("/sig"), "--list", work + QStringLiteral("/list.txt")};
    std::vector<double> directCpu, directWall, twkeyCpu, twkeyWall;
    for (int round = 0; round < kRounds; ++round) {
        const double cpu = nowMs(CLOCK_PROCESS_CPUTIME_ID), wall = nowMs(CLOCK_MONOTONIC);
        for (const QByteArray &message : messages) {
            ECCSIGNATUREBLOB blob;
            if (!direct.sign(message, &blob)) {
                fail("a direct token call failed");
                return 2;
            }
        }
        directCpu.push_back(nowMs(CLOCK_PROCESS_CPUTIME_ID) - cpu);
        directWall.push_back(nowMs(CLOCK_MONOTONIC) - wall);
        ProcessRun run;
        if (!run.run(kBin + QStringLiteral("/twkey"), batch) || run.exitCode != 0 || run.output.count("signed ") != kMessages) {
            fail("twkey did not sign the batch");
            return 2;
        }
        twkeyCpu.push_back(run.cpuMs);
        twkeyWall.push_back(run.wallMs);
    }
    const double dc = ProcessRun::median(directCpu), dw = ProcessRun::median(directWall);
    const double tc = ProcessRun::median(twkeyCpu), tw = ProcessRun::median(twkeyWall);
    const double dBest = *std::min_element(directCpu.begin(), directCpu.end());
    const double tBest = *std::min_element(twkeyCpu.begin(), twkeyCpu.end());
    const double ratio = tc / dc;
    std::printf("%d messages, %d rounds         median CPU   median wall    best CPU   CPU per signature\n", kMessages,
                kRounds);
    std::printf("twkey sign --list, one process %9.1f ms  %9.1f ms  %9.1f ms  %9.1f us\n", tc, tw, tBest,
                tc * 1e3 / kMessages);
    std::printf("direct token calls             %9.1f ms  %9.1f ms  %9.1f ms  %9.1f us\n", dc, dw, dBest,
                dc * 1e3 / kMessages);
    std::printf("ratio                          %9.3f     %9.3f     %9.3f\n", ratio, tw / dw, tBest / dBest);
    const int verified = opensslVerified(work);
    std::printf("openssl: %d of %d signatures of the last batch verify\n", verified, kMessages);
    std::printf("CPU ratio %.3f, limit %.2f: %s\n", ratio, kLimit, ratio <= kLimit ? "within" : "OVER");
    return ratio <= kLimit && verified == kMessages ? 0 : 1;
}
