// What the library adds to a compact SM2 signature: eccSimpleSign called by
// name from a host, against the same token calls made directly on the
// software token (SKF_ExportPublicKey size and fill, SKF_DigestInit,
// SKF_Digest size and fill, SKF_ECCSignData), in one run, the repetitions
// of the two interleaved. The host's log sink discards lines, so the figure
// is the library's own cost. Prints the medians and their ratios, and exits
// non-zero when the CPU-time ratio is above 1.25: the process's own time,
// which the load of other processes on the machine does not blur (the wall
// time adds the token store's disk waits to both sides alike).
#include "devicestatefile.h"
#include "directtoken.h"
#include "signbench.h"

#include <QCoreApplication>

namespace {

const double kLimit = 1.25;

DirectToken g_direct;

// What eccSimpleSign asks of the token, with nothing around it.
void BM_DirectTokenCalls(benchmark::State &state)
{
    for (auto _ : state) {
        ECCSIGNATUREBLOB blob;
        if (!g_direct.sign(SignBench::kMessage, &blob)) {
            state.SkipWithError("a token call failed");
            break;
        }
        benchmark::DoNotOptimize(blob);
    }
}

BENCHMARK(SignBench::library)->Apply(SignBench::repeat);
BENCHMARK(BM_DirectTokenCalls)->Apply(SignBench::repeat);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    DeviceStateFile deviceState;
    SignBench bench(argc, argv);
    if (!bench.ready() || !bench.openThroughLibrary(QStringLiteral(TWKEY_BIN_DIR)))
        return 2;
    if (!g_direct.open(QStringLiteral(TWKEY_BIN_DIR "/kdp/softtoken/libsofttoken-skf.so"), SignBench::kDevice,
                       SignBench::kUserPin, SignBench::kContainer)) {
        SignBench::fail(g_direct.error());
        return 2;
    }
    return bench.run("BM_DirectTokenCalls", kLimit);
}
