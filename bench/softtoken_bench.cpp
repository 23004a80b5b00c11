// The software token's costs: an SM2 signature through SKF_ECCSignData
// against a bare OpenSSL SM2 signature of the same value, and SKF_EnumDev
// over 64 devices. Prints the figures and the ratio, and exits non-zero when
// a limit is missed (sign at most 1.5 times OpenSSL, EnumDev under 5 ms).
#include "skfapi.h"
#include "softtokenengine.h"
#include "tokencrypto.h"

#include <benchmark/benchmark.h>

#include <QFile>
#include <QTemporaryDir>

#include <openssl/evp.h>

#include <cstdio>
#include <map>
#include <string>

namespace {

QTemporaryDir *g_signStore;
QTemporaryDir *g_enumStore;
HCONTAINER g_container;
BYTE g_value[32];

void useStore(const QTemporaryDir *dir)
{
    qputenv("SOFTTOKEN_STORE", QFile::encodeName(dir->path()));
}

bool setUp()
{
    g_signStore = new QTemporaryDir;
    g_enumStore = new QTemporaryDir;
    SoftTokenEngine signer(g_signStore->path());
    SoftTokenEngine::DeviceOptions opt;
    opt.name = "signer";
    opt.containers << SoftTokenEngine::ContainerSetup{"c", SoftTokenEngine::ContainerSetup::Sm2, 0};
    if (!signer.createDevice(opt))
        return false;
    SoftTokenEngine many(g_enumStore->path());
    for (int i = 0; i < 64; ++i) {
        SoftTokenEngine::DeviceOptions o;
        o.name = QStringLiteral("dev%1").arg(i);
        if (!many.createDevice(o))
            return false;
    }
    useStore(g_signStore);
    DEVHANDLE dev = nullptr;
    HAPPLICATION app = nullptr;
    ULONG retry = 0;
    char name[] = "signer", appName[] = "TW_APP", pin[] = "12345678", container[] = "c";
    const QByteArray value = TokenCrypto::digest("SM3", "the value signed in every round");
    memcpy(g_value, value.constData(), sizeof g_value);
    return SKF_ConnectDev(name, &dev) == SAR_OK && SKF_OpenApplication(dev, appName, &app) == SAR_OK
           && SKF_VerifyPIN(app, USER_TYPE, pin, &retry) == SAR_OK
           && SKF_OpenContainer(app, container, &g_container) == SAR_OK;
}

void BM_OpensslSm2Sign(benchmark::State &state)
{
    EVP_PKEY *key = TokenCrypto::sm2KeyPair(TokenCrypto::sm2Generate());
    unsigned char sig[80];
    for (auto _ : state) {
        EVP_PKEY_CTX *ctx = EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr);
        size_t len = sizeof sig;
        if (EVP_PKEY_sign_init(ctx) <= 0 || EVP_PKEY_sign(ctx, sig, &len, g_value, sizeof g_value) <= 0)
            state.SkipWithError("OpenSSL sign failed");
        EVP_PKEY_CTX_free(ctx);
        benchmark::DoNotOptimize(sig);
    }
    TokenCrypto::freeKey(key);
}
BENCHMARK(BM_OpensslSm2Sign)->MinTime(1.0);

void BM_SkfEccSignData(benchmark::State &state)
{
    ECCSIGNATUREBLOB sig;
    for (auto _ : state) {
        if (SKF_ECCSignData(g_container, g_value, sizeof g_value, &sig) != SAR_OK)
            state.SkipWithError("SKF_ECCSignData failed");
        benchmark::DoNotOptimize(sig);
    }
}
BENCHMARK(BM_SkfEccSignData)->MinTime(1.0);

void BM_SkfEnumDev64(benchmark::State &state)
{
    useStore(g_enumStore);
    char list[2048];
    for (auto _ : state) {
        ULONG size = 0;
        if (SKF_EnumDev(TRUE, nullptr, &size) != SAR_OK || size > sizeof list
            || SKF_EnumDev(TRUE, list, &size) != SAR_OK)
            state.SkipWithError("SKF_EnumDev failed");
    }
    useStore(g_signStore);
}
BENCHMARK(BM_SkfEnumDev64)->Unit(benchmark::kMicrosecond);

// Keeps each benchmark's mean real and CPU time per iteration, in ns.
class Capture : public benchmark::ConsoleReporter
{
public:
    struct Times {
        double real = 0;
        double cpu = 0;
    };
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &r : runs)
            if (r.run_type == Run::RT_Iteration && r.iterations > 0)
                times[r.benchmark_name()] = Times{r.real_accumulated_time / double(r.iterations) * 1e9,
                                                  r.cpu_accumulated_time / double(r.iterations) * 1e9};
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, Times> times;
};

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (!setUp()) {
        std::fprintf(stderr, "bench_softtoken: could not prepare the token store\n");
        return 2;
    }
    Capture reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    // Limits are judged on CPU time, which other load on the machine
    // disturbs far less than wall time; both are shown.
    const Capture::Times bare = reporter.times["BM_OpensslSm2Sign/min_time:1.000"];
    const Capture::Times token = reporter.times["BM_SkfEccSignData/min_time:1.000"];
    const Capture::Times enumDev = reporter.times["BM_SkfEnumDev64"];
    int rc = 0;
    if (bare.cpu > 0 && token.cpu > 0) {
        const double ratio = token.cpu / bare.cpu;
        std::printf("SM2 sign, CPU: OpenSSL %.1f us, SKF_ECCSignData %.1f us, ratio %.2f (limit 1.50) %s\n",
                    bare.cpu / 1e3, token.cpu / 1e3, ratio, ratio <= 1.5 ? "ok" : "OVER");
        std::printf("SM2 sign, wall: OpenSSL %.1f us, SKF_ECCSignData %.1f us, ratio %.2f\n", bare.real / 1e3,
                    token.real / 1e3, token.real / bare.real);
        rc |= ratio <= 1.5 ? 0 : 1;
    }
    if (enumDev.cpu > 0) {
        std::printf("SKF_EnumDev over 64 devices (size and fill): CPU %.3f ms, wall %.3f ms (limit 5 ms) %s\n",
                    enumDev.cpu / 1e6, enumDev.real / 1e6, enumDev.cpu < 5e6 ? "ok" : "OVER");
        rc |= enumDev.cpu < 5e6 ? 0 : 1;
    }
    delete g_signStore;
    delete g_enumStore;
    return rc;
}
