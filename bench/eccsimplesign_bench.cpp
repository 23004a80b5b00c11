// What the library adds to a compact SM2 signature: eccSimpleSign called by
// name from a host, against the same token calls made directly on the
// software token (SKF_ExportPublicKey size and fill, SKF_DigestInit,
// SKF_Digest size and fill, SKF_ECCSignData), in one run, the repetitions
// of the two interleaved. The host's log sink discards lines, so the figure
// is the library's own cost. Prints the medians and their ratios, and exits
// non-zero when the CPU-time ratio is above 1.25: the process's own time,
// which the load of other processes on the machine does not blur (the wall
// time adds the token store's disk waits to both sides alike).
#include "componenthost.h"
#include "skf/skfapi.h"
#include "softtokenengine.h"
#include "twcall.h"
#include "twcore.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

const double kLimit = 1.25;
const char kDevice[] = "bench";
const char kContainer[] = "sign";
const char kUserPin[] = "12345678";
const QByteArray kMessage("The message that every round signs: a page of a contract, more or less.");

struct Direct
{
    decltype(&SKF_ExportPublicKey) exportPublicKey = nullptr;
    decltype(&SKF_DigestInit) digestInit = nullptr;
    decltype(&SKF_Digest) digest = nullptr;
    decltype(&SKF_ECCSignData) eccSignData = nullptr;
    DEVHANDLE dev = nullptr;
    HCONTAINER container = nullptr;
};

TWCore *g_core;
QObject *g_key;
Qt::HANDLE g_container;
Direct g_direct;

// The machine-wide device-state file that opening a key rewrites: kept
// as it was before the run.
class DeviceStateFile
{
public:
    DeviceStateFile() : m_file(QStringLiteral("/tmp/tw_device")), m_existed(m_file.exists())
    {
        if (m_existed && m_file.open(QIODevice::ReadOnly)) {
            m_saved = m_file.readAll();
            m_file.close();
        }
    }
    ~DeviceStateFile()
    {
        if (!m_existed) {
            m_file.remove();
        } else if (m_file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            m_file.write(m_saved);
            m_file.close();
        }
    }

private:
    QFile m_file;
    bool m_existed;
    QByteArray m_saved;
};

bool fail(const char *what)
{
    std::fprintf(stderr, "set-up failed: %s\n", what);
    return false;
}

// The library side: the key opened and logged in through the manager, by name.
bool openThroughLibrary(ComponentHost &host)
{
    const QString binDir = QStringLiteral(TWKEY_BIN_DIR);
    g_core->setBinPath(binDir);
    g_core->setDiscard(true);
    if (!host.load(binDir + QStringLiteral("/libTWKey.so")))
        return fail(qPrintable(host.errorString()));
    QObject *manager = host.start(g_core);
    if (!manager)
        return fail("no key manager");
    int count = 0;
    twCall(manager, "count", count);
    TWPtr key{"KeyObject*"};
    if (count < 1 || !twCall(manager, "open", key, 0) || !key.value)
        return fail("the token does not open through the library");
    g_key = key.object();
    bool loggedIn = false;
    twCall(g_key, "verifyPin", loggedIn, QString::fromLatin1(kUserPin), false);
    twCall(g_key, "openContainer", g_container, QString::fromLatin1(kContainer));
    return loggedIn && g_container ? true : fail("login or container through the library");
}

// The direct side: the same token library, its own connection and login.
bool openDirectly()
{
    const QByteArray path = QFile::encodeName(QStringLiteral(TWKEY_BIN_DIR) +
                                              QStringLiteral("/kdp/softtoken/libsofttoken-skf.so"));
    void *lib = dlopen(path.constData(), RTLD_NOW);
    if (!lib)
        return fail(dlerror());
    auto connect = reinterpret_cast<decltype(&SKF_ConnectDev)>(dlsym(lib, "SKF_ConnectDev"));
    auto openApp = reinterpret_cast<decltype(&SKF_OpenApplication)>(dlsym(lib, "SKF_OpenApplication"));
    auto verifyPin = reinterpret_cast<decltype(&SKF_VerifyPIN)>(dlsym(lib, "SKF_VerifyPIN"));
    auto openContainer = reinterpret_cast<decltype(&SKF_OpenContainer)>(dlsym(lib, "SKF_OpenContainer"));
    g_direct.exportPublicKey = reinterpret_cast<decltype(&SKF_ExportPublicKey)>(dlsym(lib, "SKF_ExportPublicKey"));
    g_direct.digestInit = reinterpret_cast<decltype(&SKF_DigestInit)>(dlsym(lib, "SKF_DigestInit"));
    g_direct.digest = reinterpret_cast<decltype(&SKF_Digest)>(dlsym(lib, "SKF_Digest"));
    g_direct.eccSignData = reinterpret_cast<decltype(&SKF_ECCSignData)>(dlsym(lib, "SKF_ECCSignData"));
    if (!connect || !openApp || !verifyPin || !openContainer || !g_direct.exportPublicKey || !g_direct.digestInit ||
        !g_direct.digest || !g_direct.eccSignData)
        return fail("a token function is missing");
    char name[sizeof kDevice], app[] = "TW_APP", pin[sizeof kUserPin], container[sizeof kContainer];
    std::memcpy(name, kDevice, sizeof name);
    std::memcpy(pin, kUserPin, sizeof pin);
    std::memcpy(container, kContainer, sizeof container);
    HAPPLICATION hApp = nullptr;
    ULONG retry = 0;
    if (connect(name, &g_direct.dev) != SAR_OK || openApp(g_direct.dev, app, &hApp) != SAR_OK ||
        verifyPin(hApp, USER_TYPE, pin, &retry) != SAR_OK || openContainer(hApp, container, &g_direct.container) != SAR_OK)
        return fail("the token does not open directly");
    return true;
}

void BM_LibraryEccSimpleSign(benchmark::State &state)
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

// What eccSimpleSign asks of the token, with nothing around it.
void BM_DirectTokenCalls(benchmark::State &state)
{
    unsigned char id[] = "1234567812345678";
    QByteArray message = kMessage;
    for (auto _ : state) {
        ULONG pubLen = 0;
        ULONG rv = g_direct.exportPublicKey(g_direct.container, TRUE, nullptr, &pubLen);
        QByteArray pub(int(pubLen) + 1, '\0');
        rv |= g_direct.exportPublicKey(g_direct.container, TRUE, reinterpret_cast<BYTE *>(pub.data()), &pubLen);
        HANDLE hash = nullptr;
        rv |= g_direct.digestInit(g_direct.dev, SGD_SM3, reinterpret_cast<ECCPUBLICKEYBLOB *>(pub.data()), id, 16,
                                  &hash);
        ULONG hashLen = 0;
        BYTE *data = reinterpret_cast<BYTE *>(message.data());
        rv |= g_direct.digest(hash, data, ULONG(message.size()), nullptr, &hashLen);
        BYTE value[33] = {0};
        hashLen = 32;
        rv |= g_direct.digest(hash, data, ULONG(message.size()), value, &hashLen);
        ECCSIGNATUREBLOB blob;
        rv |= g_direct.eccSignData(g_direct.container, value, 32, &blob);
        if (rv != SAR_OK) {
            state.SkipWithError("a token call failed");
            break;
        }
        benchmark::DoNotOptimize(blob);
    }
}

BENCHMARK(BM_LibraryEccSimpleSign)->MinTime(1.0)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_DirectTokenCalls)->MinTime(1.0)->Repetitions(5)->ReportAggregatesOnly(true);

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

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    // Interleaved repetitions, unless asked otherwise: drifts of the
    // machine fall on both sides.
    std::vector<char *> args(argv, argv + argc);
    char interleave[] = "--benchmark_enable_random_interleaving=true";
    args.insert(args.begin() + 1, interleave);
    int benchArgc = int(args.size());
    benchmark::Initialize(&benchArgc, args.data());
    DeviceStateFile deviceState;
    QTemporaryDir store;
    if (!store.isValid()) {
        fail("no temporary store");
        return 2;
    }
    qputenv("SOFTTOKEN_STORE", QFile::encodeName(store.path()));
    SoftTokenEngine engine(store.path());
    SoftTokenEngine::DeviceOptions options;
    options.name = QString::fromLatin1(kDevice);
    options.containers << SoftTokenEngine::ContainerSetup{QString::fromLatin1(kContainer),
                                                          SoftTokenEngine::ContainerSetup::Sm2, 0};
    if (!engine.createDevice(options)) {
        fail(qPrintable(engine.lastError()));
        return 2;
    }

    TWCore core;
    g_core = &core;
    ComponentHost host;
    if (!openThroughLibrary(host) || !openDirectly())
        return 2;

    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const Median library = reporter.medians["BM_LibraryEccSimpleSign"];
    const Median direct = reporter.medians["BM_DirectTokenCalls"];
    if (library.cpu <= 0 || direct.cpu <= 0 || library.real <= 0 || direct.real <= 0)
        return 2;
    const double ratio = library.cpu / direct.cpu;
    std::printf("\nmedians per signature          CPU          wall\n");
    std::printf("eccSimpleSign by name  %10.1f us %10.1f us\n", library.cpu / 1000.0, library.real / 1000.0);
    std::printf("direct token calls     %10.1f us %10.1f us\n", direct.cpu / 1000.0, direct.real / 1000.0);
    std::printf("ratio                  %10.3f    %10.3f\n", ratio, library.real / direct.real);
    std::printf("CPU ratio %.3f, limit %.2f: %s\n", ratio, kLimit, ratio <= kLimit ? "within" : "OVER");
    host.shutdown(true);
    return ratio <= kLimit ? 0 : 1;
}
