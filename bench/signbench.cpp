#include "signbench.h"

#include "softtokenengine.h"
#include "twcall.h"

#include <QFile>

#include <unistd.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

const QByteArray SignBench::kMessage("The message that every round signs: a page of a contract, more or less.");

namespace {

SignBench *g_bench;
QObject *g_key;
Qt::HANDLE g_container;
TWCore *g_core;

struct Median
{
    double real = 0;
    double cpu = 0;
};

// Keeps the median times of each benchmark for the verdict.
class MedianReporter : public benchmark::ConsoleReporter
{
public:
    MedianReporter() : ConsoleReporter(isatty(fileno(stdout)) ? OO_ColorTabular : OO_Tabular) {}

    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.aggregate_name == "median")
                medians[run.run_name.function_name] = Median{run.GetAdjustedRealTime(), run.GetAdjustedCPUTime()};
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, Median> medians;
};

} // namespace

SignBench::SignBench(int argc, char **argv)
{
    g_bench = this;
    g_core = &m_core;
    // Interleaved repetitions, unless asked otherwise: drifts of the
    // machine fall on both sides.
    std::vector<char *> args(argv, argv + argc);
    char interleave[] = "--benchmark_enable_random_interleaving=true";
    args.insert(args.begin() + 1, interleave);
    int benchArgc = int(args.size());
    benchmark::Initialize(&benchArgc, args.data());

    const QString store = m_work.path() + QStringLiteral("/store");
    qputenv("SOFTTOKEN_STORE", QFile::encodeName(store));
    SoftTokenEngine engine(store);
    SoftTokenEngine::DeviceOptions options;
    options.name = QString::fromLatin1(kDevice);
    options.containers << SoftTokenEngine::ContainerSetup{QString::fromLatin1(kContainer),
                                                          SoftTokenEngine::ContainerSetup::Sm2, 0};
    m_ready = m_work.isValid() && (engine.createDevice(options) || fail(qPrintable(engine.lastError())));
}

bool SignBench::fail(const char *what)
{
    std::fprintf(stderr, "set-up failed: %s\n", what);
    return false;
}

bool SignBench::openThroughLibrary(const QString &binPath)
{
    m_core.setBinPath(binPath);
    m_core.setDiscard(true);
    if (!m_host.load(QStringLiteral(TWKEY_BIN_DIR) + QStringLiteral("/libTWKey.so")))
        return fail(qPrintable(m_host.errorString()));
    QObject *manager = m_host.start(&m_core);
    int count = 0;
    TWPtr key{"KeyObject*"};
    if (!manager || !twCall(manager, "count", count) || count < 1 || !twCall(manager, "open", key, 0) || !key.value)
        return fail("the token does not open through the library");
    g_key = m_key = key.object();
    bool loggedIn = false;
    twCall(m_key, "verifyPin", loggedIn, QString::fromLatin1(kUserPin), false);
    twCall(m_key, "openContainer", m_container, QString::fromLatin1(kContainer));
    g_container = m_container;
    return loggedIn && m_container ? true : fail("login or container through the library");
}

void SignBench::library(benchmark::State &state)
{
    const int linesBefore = g_core->lineCount();
    for (auto _ : state) {
        QByteArray signature;
        twCall(g_key, "eccSimpleSign", signature, g_container, kMessage, true);
        if (signature.size() != 64) {
            state.SkipWithError("eccSimpleSign failed");
            break;
        }
        benchmark::DoNotOptimize(signature.constData());
    }
    state.counters["log_lines"] =
        benchmark::Counter(double(g_core->lineCount() - linesBefore), benchmark::Counter::kAvgIterations);
}

void SignBench::repeat(benchmark::internal::Benchmark *b)
{
    b->MinTime(0.5)->Repetitions(9)->ReportAggregatesOnly(true);
}

int SignBench::run(const char *directName, double limit)
{
    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const Median lib = reporter.medians["SignBench::library"];
    const Median direct = reporter.medians[directName];
    m_host.shutdown(true);
    if (lib.cpu <= 0 || direct.cpu <= 0 || lib.real <= 0 || direct.real <= 0)
        return 2;
    const double ratio = lib.cpu / direct.cpu;
    std::printf("\nmedians per signature          CPU          wall\n");
    std::printf("eccSimpleSign by name  %10.1f us %10.1f us\n", lib.cpu / 1000.0, lib.real / 1000.0);
    std::printf("direct token calls     %10.1f us %10.1f us\n", direct.cpu / 1000.0, direct.real / 1000.0);
    std::printf("ratio                  %10.3f    %10.3f\n", ratio, lib.real / direct.real);
    std::printf("CPU ratio %.3f, limit %.2f: %s\n", ratio, limit, ratio <= limit ? "within" : "OVER");
    return ratio <= limit ? 0 : 1;
}
