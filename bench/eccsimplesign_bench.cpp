// What the library adds to a compact SM2 signature: eccSimpleSign called by
// name from a host, against the same token calls made directly on the
// software token (SKF_ExportPublicKey size and fill, SKF_DigestInit,
// SKF_Digest size and fill, SKF_ECCSignData), in one run, the repetitions
// of the two interleaved. The host's log sink discards lines, so the figure
// is the library's own cost. Prints the medians and their ratios, and exits
// non-zero when the CPU-time ratio is above 1.25: the process's own time,
// which the load of other processes on the machine does not blur (the wall
// time adds the token store's disk waits to both sides alike).
#include "signbench.h"
#include "skf/skfapi.h"

#include <QCoreApplication>
#include <QFile>

#include <dlfcn.h>

#include <cstring>

namespace {

const double kLimit = 1.25;

struct Direct
{
    decltype(&SKF_ExportPublicKey) exportPublicKey = nullptr;
    decltype(&SKF_DigestInit) digestInit = nullptr;
    decltype(&SKF_Digest) digest = nullptr;
    decltype(&SKF_ECCSignData) eccSignData = nullptr;
    DEVHANDLE dev = nullptr;
    HCONTAINER container = nullptr;
};

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

// The direct side: the same token library, its own connection and login.
bool openDirectly()
{
    const QByteArray path = QFile::encodeName(QStringLiteral(TWKEY_BIN_DIR) +
                                              QStringLiteral("/kdp/softtoken/libsofttoken-skf.so"));
    void *lib = dlopen(path.constData(), RTLD_NOW);
    if (!lib)
        return SignBench::fail(dlerror());
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
        return SignBench::fail("a token function is missing");
    char name[sizeof SignBench::kDevice], app[] = "TW_APP", pin[sizeof SignBench::kUserPin],
        container[sizeof SignBench::kContainer];
    std::memcpy(name, SignBench::kDevice, sizeof name);
    std::memcpy(pin, SignBench::kUserPin, sizeof pin);
    std::memcpy(container, SignBench::kContainer, sizeof container);
    HAPPLICATION hApp = nullptr;
    ULONG retry = 0;
    if (connect(name, &g_direct.dev) != SAR_OK || openApp(g_direct.dev, app, &hApp) != SAR_OK ||
        verifyPin(hApp, USER_TYPE, pin, &retry) != SAR_OK || openContainer(hApp, container, &g_direct.container) != SAR_OK)
        return SignBench::fail("the token does not open directly");
    return true;
}

// What eccSimpleSign asks of the token, with nothing around it.
void BM_DirectTokenCalls(benchmark::State &state)
{
    unsigned char id[sizeof SignBench::kUserId];
    std::memcpy(id, SignBench::kUserId, sizeof id);
    QByteArray message = SignBench::kMessage;
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

BENCHMARK(SignBench::library)->Apply(SignBench::repeat);
BENCHMARK(BM_DirectTokenCalls)->Apply(SignBench::repeat);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    DeviceStateFile deviceState;
    SignBench bench(argc, argv);
    if (!bench.ready() || !bench.openThroughLibrary(QStringLiteral(TWKEY_BIN_DIR)) || !openDirectly())
        return 2;
    return bench.run("BM_DirectTokenCalls", kLimit);
}
