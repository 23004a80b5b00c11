// The software token's native face, driven through the exports of
// libTWKeyDriver.so (dlopen): one table of rows run in order over one
// token, which the SKF face and the admin program reach as well.
#include "tokenfixture.h"
#include "twfapi.h"

#include <QtTest>

#include <dlfcn.h>
#include <set>
#include <thread>

namespace {

struct Twf {
#define TWF_FIELD(name, required) decltype(&::name) name = nullptr;
    TWF_FUNCTION_ROWS(TWF_FIELD)
#undef TWF_FIELD
};

struct Ctx {
    Twf t;
    TokenFixture *fx = nullptr;
    QTemporaryDir far;
    QByteArray arg, seen, pub, encPub, sig, wrapped, e = QByteArray(32, 'e');
    DEVHANDLE dev = nullptr, dev2 = nullptr;
    HCONTAINER sm2 = nullptr, fresh = nullptr;
    HANDLE key = nullptr, mac = nullptr;
};

struct Row {
    const char *function; // the export the row drives
    ULONG expect;
    QByteArray seen; // null: not compared
    std::function<ULONG(Ctx &)> call; // set-up and call; leaves what it saw in Ctx::seen
};

#define DO [](Ctx & c) -> ULONG
#define FILL(call) fill(c, [&](BYTE *o, ULONG *l) { return call; })
#define FIXED(out, size, call) fixed(c, out, size, [&](BYTE *o, ULONG *l) { return call; })
#define SIGN FIXED(&c.sig, 128, c.t.TWF_ECCSignData(c.dev, c.sm2, b(c.e), 32, as<ECCSIGNATUREBLOB>(o), l))

std::vector<std::thread::id> g_logThreads;

int logLine(unsigned int, char *text)
{
    if (text && *text)
        g_logThreads.push_back(std::this_thread::get_id());
    return 0;
}

char *s(const char *text) { return const_cast<char *>(text); }
BYTE *b(QByteArray &bytes) { return reinterpret_cast<BYTE *>(bytes.data()); }
char *t(BYTE *out) { return reinterpret_cast<char *>(out); }
template <class T> T *as(QByteArray &bytes) { return reinterpret_cast<T *>(bytes.data()); }
template <class T> T *as(BYTE *out) { return reinterpret_cast<T *>(out); }

// A number the call gave back becomes seen.
ULONG saw(Ctx &c, ULONG rv, const ULONG &value)
{
    c.seen = QByteArray::number(value);
    return rv;
}

// Size query, then fill; what was filled becomes seen.
ULONG fill(Ctx &c, const std::function<ULONG(BYTE *, ULONG *)> &f)
{
    ULONG len = 0;
    ULONG rv = f(nullptr, &len);
    c.seen = QByteArray(int(len), '\0');
    if (rv == SAR_OK)
        rv = f(b(c.seen), &len);
    c.seen.truncate(int(len));
    return rv;
}

// A fixed-size output with its length in and out; the length becomes seen.
ULONG fixed(Ctx &c, QByteArray *out, ULONG size, const std::function<ULONG(BYTE *, ULONG *)> &f)
{
    ULONG len = size;
    *out = QByteArray(int(size), '\0');
    return saw(c, f(b(*out), &len), len);
}

const QByteArray kFile = QByteArray(64, '\x01') + "body"; // a public object: 64-byte header, content

// What the library drives through its native session (tests/native) is left to it: here the store a path
// names, the calls it never makes, parameters it never gets wrong, and the fault plan under native names.
const std::vector<Row> &rows()
{
    static const std::vector<Row> table{
        // A path naming a folder is the store; the callback also runs on a thread of the library's.
        {"TWF_Init_SDK", SAR_OK, "2", DO {
             SoftTokenEngine::DeviceOptions far;
             far.name = "far";
             SoftTokenEngine(c.far.path()).createDevice(far);
             c.arg = QFile::encodeName(c.far.path());
             const ULONG rv = c.t.TWF_Init_SDK(s("SOFTTOKEN-TWF"), c.arg.data(), logLine, 0);
             return saw(c, rv, std::set<std::thread::id>(g_logThreads.begin(), g_logThreads.end()).size()); }},
        {"TWF_EnumDev", SAR_OK, QByteArray("far\0\0", 5), DO { return FILL(c.t.TWF_EnumDev(t(o), l)); }},
        // A package's folder ("/" at the end) leaves the usual store, SOFTTOKEN_STORE here.
        {"TWF_Init_SDK", SAR_OK, {}, DO {
             c.arg = QFile::encodeName(c.fx->store() + "/pkg/");
             return c.t.TWF_Init_SDK(s("SOFTTOKEN-TWF"), c.arg.data(), logLine, 0); }},
        {"TWF_EnumDev", SAR_OK, QByteArray("tok\0tok2\0\0", 10), DO { return FILL(c.t.TWF_EnumDev(t(o), l)); }},
        {"TWF_GetSerialNumberByDevName", SAR_OK, QByteArray("SNTOK\0", 6),
         DO { return FILL(c.t.TWF_GetSerialNumberByDevName(s("tok"), t(o), l)); }},
        {"TWF_GetSerialNumberByDevName", SAR_INVALIDPARAMERR, {},
         DO { return FILL(c.t.TWF_GetSerialNumberByDevName(s("nosuch"), t(o), l)); }},
        {"TWF_ConnectDev", SAR_OK, {}, DO { return c.t.TWF_ConnectDev(s("tok2"), &c.dev2); }},
        {"TWF_ConnectDev", SAR_OK, {}, DO { return c.t.TWF_ConnectDev(s("tok"), &c.dev); }},
        {"TWF_GetFreeSpace", SAR_OK, "260096", // less four key pairs of 512 bytes
         DO { ULONG v = 0; return saw(c, c.t.TWF_GetFreeSpace(c.dev, &v), v); }},
        {"TWF_VerifyPIN", SAR_OK, {}, DO { ULONG r = 0; return c.t.TWF_VerifyPIN(c.dev, USER_TYPE, s("12345678"), &r); }},
        // The admin program writes a file's bytes, the native face reads them.
        {"softtoken file-write", SAR_OK, kFile, DO {
             QTemporaryFile f;
             if (!f.open() || f.write(kFile) != kFile.size() || !f.flush())
                 return SAR_FAIL;
             QProcess p;
             p.start(SOFTTOKEN_ADMIN, {"--store", c.fx->store(), "file-write", "tok", "PUBOBJ1", "--from", f.fileName()});
             if (!p.waitForFinished(60000) || p.exitCode() != 0)
                 return SAR_FAIL;
             return FILL(c.t.TWF_ReadFile(c.dev, s("PUBOBJ1"), 0, 100, o, l)); }},
        {"TWF_CreateContainer", SAR_OK, {}, DO { return c.t.TWF_CreateContainer(c.dev, s("fresh"), &c.fresh); }},
        // One token, two faces: the SKF face sees what the native face made.
        {"SKF_EnumContainer", SAR_OK, QByteArray("s\0r\0fresh\0\0", 11), DO {
             DEVHANDLE dev = c.fx->connect("tok");
             const ULONG rv = FILL(SKF_EnumContainer(c.fx->openApp(dev), t(o), l));
             return rv | SKF_DisConnectDev(dev); }},
        {"TWF_GenECCKeyPair", SAR_OK, "132", // a size query leaves the container as it is
         DO { ULONG l = 0; return saw(c, c.t.TWF_GenECCKeyPair(c.dev, c.fresh, SGD_SM2_1, nullptr, &l), l); }},
        {"TWF_GenECCKeyPair", SAR_OK, "132",
         DO { return FIXED(&c.pub, 132, c.t.TWF_GenECCKeyPair(c.dev, c.fresh, SGD_SM2_1, as<ECCPUBLICKEYBLOB>(o), l)); }},
        {"TWF_RSAVerify", SAR_INVALIDPARAMERR, {}, DO { // a blob's length must be its size
             return c.t.TWF_RSAVerify(c.dev, as<RSAPUBLICKEYBLOB>(c.pub), 132, b(c.e), 16, b(c.e), 32); }},
        {"TWF_OpenContainer", SAR_OK, {}, DO { return c.t.TWF_OpenContainer(c.dev, s("s"), &c.sm2); }},
        {"TWF_ExportPublicKey", SAR_OK, "132", DO {
             const ULONG rv = FILL(c.t.TWF_ExportPublicKey(c.dev, c.sm2, FALSE, o, l));
             c.encPub = c.seen;
             return saw(c, rv, ULONG(c.seen.size())); }},
        {"TWF_ECCExportSessionKey", SAR_OK, "180", DO {
             return FIXED(&c.wrapped, 197, c.t.TWF_ECCExportSessionKey(c.dev, c.sm2, SGD_SM4_ECB, as<ECCPUBLICKEYBLOB>(c.encPub),
                                                                       132, as<ECCCIPHERBLOB>(o), l, &c.key)); }},
        {"TWF_EncryptInit", SAR_INVALIDPARAMERR, {},
         DO { BLOCKCIPHERPARAM p = {}; return c.t.TWF_EncryptInit(c.dev, c.key, &p, 40); }},
        {"TWF_MacInit", SAR_OK, {}, DO { BLOCKCIPHERPARAM p = {}; return c.t.TWF_MacInit(c.dev, c.key, &p, 44, &c.mac); }},
        {"TWEPS_ImportSymmKey", SAR_OK, {}, DO { return c.t.TWEPS_ImportSymmKey(c.dev, c.sm2, 7, b(c.wrapped), 180, 0); }},
        // A plan entry under a TWF name is kept under the SKF name and hits either face; a size lie
        // reaches the native face's fixed sizes; TWF functions of their own are planned by their names.
        {"TWF_ECCSignData", SAR_HASHERR, {},
         DO { c.fx->engine().setFault("tok", "TWF_ECCSignData", SAR_HASHERR, 1); return SIGN; }},
        {"TWF_ECCSignData", SAR_OK, "132", DO { c.fx->engine().setSizeLie("tok", "SKF_ECCSignData", 4, 1); return SIGN; }},
        {"TWF_IsFileExist", SAR_FILEERR, "1", DO {
             c.fx->engine().setFault("tok", "TWF_IsFileExist", SAR_FILEERR, 1);
             c.seen = QByteArray::number(c.fx->engine().showJson("tok").contains("\"SKF_GetFileInfo\""));
             return c.t.TWF_IsFileExist(c.dev, s("PUBOBJ1")); }},
        {"TWF_GetLabelName", SAR_FAIL, {}, DO {
             c.fx->engine().setFault("tok", "TWF_GetLabelName", SAR_FAIL, 1);
             return FILL(c.t.TWF_GetLabelName(c.dev, t(o), l)); }},
        {"TWF_DisConnectDev", SAR_DEVICE_REMOVED, {},
         DO { c.fx->engine().removeDevice("tok2"); return c.t.TWF_DisConnectDev(c.dev2); }},
        {"TWF_DisConnectDev", SAR_OK, {}, DO { return c.t.TWF_DisConnectDev(c.dev); }},
        {"TWF_IsConnectDev", SAR_INVALIDHANDLEERR, {}, DO { return c.t.TWF_IsConnectDev(c.dev); }},
        {"TWF_Uinit_SDK", SAR_OK, "1", DO {
             g_logThreads.clear();
             const ULONG rv = c.t.TWF_Uinit_SDK();
             return saw(c, rv, ULONG(g_logThreads.size())); }},
    };
    return table;
}

} // namespace

class SoftTokenNativeTest : public QObject
{
    Q_OBJECT

private slots:
    void rows()
    {
        void *lib = dlopen(SOFTTOKEN_NATIVE, RTLD_NOW | RTLD_LOCAL);
        QVERIFY2(lib, dlerror());
        Ctx c;
#define TWF_RESOLVE(name, required)                                                  \
        c.t.name = reinterpret_cast<decltype(c.t.name)>(dlsym(lib, #name));          \
        QVERIFY2(c.t.name, #name " is not exported");
        TWF_FUNCTION_ROWS(TWF_RESOLVE)
#undef TWF_RESOLVE
        QVERIFY(!dlsym(lib, "SKF_ConnectDev")); // the SKF names stay inside

        TokenFixture fx;
        c.fx = &fx;
        SoftTokenEngine::DeviceOptions tok;
        tok.name = "tok";
        tok.serial = "SNTOK";
        tok.containers << SoftTokenEngine::ContainerSetup{"s", SoftTokenEngine::ContainerSetup::Sm2}
                       << SoftTokenEngine::ContainerSetup{"r", SoftTokenEngine::ContainerSetup::Rsa, 1024};
        QVERIFY(fx.engine().createDevice(tok) && fx.addDevice("tok2"));

        int i = 0;
        for (const Row &row : ::rows()) {
            c.seen = QByteArray();
            const ULONG rv = row.call(c);
            const QByteArray where = QByteArray::number(++i) + " " + row.function;
            QVERIFY2(rv == row.expect, where + QByteArray(": 0x") + QByteArray::number(rv, 16));
            QVERIFY2(row.seen.isNull() || c.seen == row.seen, where + ": saw " + c.seen.toHex());
        }
        dlclose(lib);
    }
};

QTEST_GUILESS_MAIN(SoftTokenNativeTest)
#include "tst_softtoken_native.moc"
