// What the library adds to a compact SM2 signature on the native face:
// eccSimpleSign called by name from a host whose package folder holds the
// native package alone, against the same native token calls made directly
// (TWF_ExportPublicKey size and fill, TWF_DigestInit with Z, TWF_Digest size
// and fill, TWF_ECCSignData), in one run, the repetitions of the two
// interleaved. The host's log sink discards lines, so the figure is the
// library's own cost. Prints the medians and their ratio; exits non-zero
// when the CPU-time ratio is above 1.10.
#include "signbench.h"
#include "native/twfapi.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <dlfcn.h>

#include <cstring>

namespace {

const double kLimit = 1.10;
const QString kNativePackage = QStringLiteral(TWKEY_BIN_DIR) + QStringLiteral("/kdp/softtoken-native");

// The native library's functions, on a connection of its own.
struct Native
{
#define TW_NATIVE_FUNCTIONS(X)                                                                                         \
    X(ConnectDev) X(VerifyPIN) X(OpenContainer) X(ExportPublicKey) X(DigestInit) X(Digest) X(ECCSignData)
#define TW_POINTER(name) decltype(&TWF_##name) name = nullptr;
    TW_NATIVE_FUNCTIONS(TW_POINTER)
    DEVHANDLE dev = nullptr;
    HCONTAINER container = nullptr;
} g_native;

// Copies, since the library takes its texts by non-const pointer.
template <size_t N>
void copy(char (&to)[N], const char (&from)[N])
{
    std::memcpy(to, from, N);
}

bool openDirectly()
{
    void *lib = dlopen(QFile::encodeName(kNativePackage + QStringLiteral("/libTWKeyDriver.so")).constData(), RTLD_NOW);
    if (!lib)
        return SignBench::fail(dlerror());
#define TW_RESOLVE(name)                                                                                               \
    if (!(g_native.name = reinterpret_cast<decltype(g_native.name)>(dlsym(lib, "TWF_" #name))))                       \
        return SignBench::fail("TWF_" #name);
    TW_NATIVE_FUNCTIONS(TW_RESOLVE)
    char device[sizeof SignBench::kDevice], pin[sizeof SignBench::kUserPin], container[sizeof SignBench::kContainer];
    copy(device, SignBench::kDevice);
    copy(pin, SignBench::kUserPin);
    copy(container, SignBench::kContainer);
    ULONG retry = 0;
    if (g_native.ConnectDev(device, &g_native.dev) != SAR_OK
        || g_native.VerifyPIN(g_native.dev, USER_TYPE, pin, &retry) != SAR_OK
        || g_native.OpenContainer(g_native.dev, container, &g_native.container) != SAR_OK)
        return SignBench::fail("the token does not open directly");
    return true;
}

// What eccSimpleSign asks of the token, with nothing around it.
void BM_DirectNativeCalls(benchmark::State &state)
{
    const Native &n = g_native;
    QByteArray message = SignBench::kMessage;
    BYTE *data = reinterpret_cast<BYTE *>(message.data());
    BYTE id[sizeof SignBench::kUserId];
    std::memcpy(id, SignBench::kUserId, sizeof id);
    for (auto _ : state) {
        ULONG pubLen = 0;
        ULONG rv = n.ExportPublicKey(n.dev, n.container, TRUE, nullptr, &pubLen);
        QByteArray pub(int(pubLen) + 1, '\0');
        rv |= n.ExportPublicKey(n.dev, n.container, TRUE, reinterpret_cast<BYTE *>(pub.data()), &pubLen);
        HANDLE hash = nullptr;
        auto *key = reinterpret_cast<ECCPUBLICKEYBLOB *>(pub.data());
        rv |= n.DigestInit(n.dev, SGD_SM3, key, SKF_ECCPUBLICKEYBLOB_SIZE, id, 16, &hash);
        ULONG hashLen = 0;
        rv |= n.Digest(n.dev, hash, data, ULONG(message.size()), nullptr, &hashLen);
        BYTE value[33] = {0};
        hashLen = 32;
        rv |= n.Digest(n.dev, hash, data, ULONG(message.size()), value, &hashLen);
        ECCSIGNATUREBLOB blob;
        ULONG blobLen = SKF_ECCSIGNATUREBLOB_SIZE;
        rv |= n.ECCSignData(n.dev, n.container, value, 32, &blob, &blobLen);
        if (rv != SAR_OK) {
            state.SkipWithError("a token call failed");
            break;
        }
        benchmark::DoNotOptimize(blob);
    }
}

BENCHMARK(SignBench::library)->Apply(SignBench::repeat);
BENCHMARK(BM_DirectNativeCalls)->Apply(SignBench::repeat);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    SignBench bench(argc, argv);
    // A package folder with the native package alone.
    const QString binPath = bench.workPath() + QStringLiteral("/bin");
    if (!bench.ready() || !QDir().mkpath(binPath + QStringLiteral("/kdp"))
        || !QFile::link(kNativePackage, binPath + QStringLiteral("/kdp/softtoken-native")))
        return 2;
    if (!bench.openThroughLibrary(binPath) || !openDirectly())
        return 2;
    return bench.run("BM_DirectNativeCalls", kLimit);
}
