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
    QByteArray arg, seen, pub, encPub, rsaPub, e, sig, wrapped, ct;
    DEVHANDLE dev = nullptr, dev2 = nullptr;
    HCONTAINER sm2 = nullptr, rsa = nullptr, fresh = nullptr;
    HANDLE hash = nullptr, key = nullptr, key2 = nullptr, mac = nullptr;
};

struct Row {
    const char *function; // the export the row drives
    std::function<ULONG(Ctx &)> call; // set-up and call; leaves what it saw in Ctx::seen
    ULONG expect;
    QByteArray seen; // null: not compared
};

#define DO [](Ctx & c) -> ULONG

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
QByteArray n(ULONG value) { return QByteArray::number(value); }

SoftTokenEngine::DeviceOptions device(const char *name, const char *serial = "", const char *profile = "standard")
{
    SoftTokenEngine::DeviceOptions o;
    o.name = name;
    o.serial = serial;
    o.profile = profile;
    return o;
}

// Size query, then fill; what was filled becomes Ctx::seen.
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
    const ULONG rv = f(b(*out), &len);
    c.seen = n(len);
    return rv;
}

ULONG cipherParam(Ctx &c, HANDLE key, ULONG len, decltype(&::TWF_EncryptInit) init)
{
    BLOCKCIPHERPARAM param = {};
    return init(c.dev, key, &param, len);
}

const QByteArray kBlock("0123456789abcdef");
const QByteArray kFile = QByteArray(64, '\x01') + "body"; // a public object: 64-byte header, content

const std::vector<Row> &rows()
{
    static const std::vector<Row> table{
        {"TWF_Init_SDK", DO { // a path naming a folder is the store; the callback also runs on another thread
             SoftTokenEngine(c.far.path()).createDevice(device("far"));
             c.arg = QFile::encodeName(c.far.path());
             const ULONG rv = c.t.TWF_Init_SDK(s("SOFTTOKEN-TWF"), c.arg.data(), logLine, 0);
             c.seen = n(std::set<std::thread::id>(g_logThreads.begin(), g_logThreads.end()).size());
             return rv; }, SAR_OK, "2"},
        {"TWF_EnumDev", DO { return fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_EnumDev(t(o), l); }); },
         SAR_OK, QByteArray("far\0\0", 5)},
        {"TWF_Init_SDK", DO { // a package's folder ("/" at the end): the usual store, SOFTTOKEN_STORE here
             c.arg = QFile::encodeName(c.fx->store() + "/pkg/");
             return c.t.TWF_Init_SDK(s("SOFTTOKEN-TWF"), c.arg.data(), logLine, 0); }, SAR_OK, {}},
        {"TWF_EnumDev", DO { return fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_EnumDev(t(o), l); }); },
         SAR_OK, QByteArray("tok\0tok2\0wgtok\0\0", 16)},
        {"TWF_GetSerialNumberByDevName", DO { return fill(c, [&](BYTE *o, ULONG *l) {
             return c.t.TWF_GetSerialNumberByDevName(s("tok"), t(o), l); }); },
         SAR_OK, QByteArray("SNTOK\0", 6)},
        {"TWF_GetSerialNumberByDevName", DO { ULONG l = 8; char o[8];
             return c.t.TWF_GetSerialNumberByDevName(s("nosuch"), o, &l); }, SAR_INVALIDPARAMERR, {}},
        {"TWF_ConnectDev", DO { return c.t.TWF_ConnectDev(s("tok2"), &c.dev2); }, SAR_OK, {}},
        {"TWF_ConnectDev", DO { return c.t.TWF_ConnectDev(s("tok"), &c.dev); }, SAR_OK, {}},
        {"TWF_IsConnectDev", DO { return c.t.TWF_IsConnectDev(c.dev); }, SAR_OK, {}},
        {"TWF_GetLabelName", DO { return fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_GetLabelName(c.dev, t(o), l); }); },
         SAR_OK, QByteArray("tok\0", 4)},
        {"TWF_GetSerialNumber", DO { return fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_GetSerialNumber(c.dev, t(o), l); }); },
         SAR_OK, QByteArray("SNTOK\0", 6)},
        {"TWF_GetTotalSpace", DO { ULONG v = 0; const ULONG rv = c.t.TWF_GetTotalSpace(c.dev, &v); c.seen = n(v); return rv; },
         SAR_OK, "262144"},
        {"TWF_GetFreeSpace", DO { ULONG v = 0; const ULONG rv = c.t.TWF_GetFreeSpace(c.dev, &v); c.seen = n(v); return rv; },
         SAR_OK, "260096"}, // four key pairs of 512 bytes
        {"TWF_VerifyPIN", DO { ULONG r = 0; const ULONG rv = c.t.TWF_VerifyPIN(c.dev, USER_TYPE, s("00000000"), &r); c.seen = n(r); return rv; },
         SAR_PIN_INCORRECT, "5"},
        {"TWF_ChangePIN", DO { ULONG r = 0; return c.t.TWF_ChangePIN(c.dev, USER_TYPE, s("12345678"), s("11112222"), &r); }, SAR_OK, {}},
        {"TWF_UnblockPIN", DO { ULONG r = 0; return c.t.TWF_UnblockPIN(c.dev, s("88888888"), s("12345678"), &r); }, SAR_OK, {}},
        {"TWF_GetPINInfo", DO { ULONG m = 0, r = 0; BOOL d = TRUE; const ULONG rv = c.t.TWF_GetPINInfo(c.dev, USER_TYPE, &m, &r, &d);
             c.seen = n(m) + " " + n(r) + " " + n(ULONG(d)); return rv; }, SAR_OK, "6 6 0"},
        {"TWF_VerifyPIN", DO { ULONG r = 0; return c.t.TWF_VerifyPIN(c.dev, USER_TYPE, s("12345678"), &r); }, SAR_OK, {}},
        {"TWF_CreateFile", DO { return c.t.TWF_CreateFile(c.dev, s("PUBOBJ1"), ULONG(kFile.size()), 0xFF, 0xFF); }, SAR_OK, {}},
        {"TWF_WriteFile", DO { QByteArray d = kFile; return c.t.TWF_WriteFile(c.dev, s("PUBOBJ1"), 0, b(d), ULONG(d.size())); }, SAR_OK, {}},
        {"TWF_IsFileExist", DO { return c.t.TWF_IsFileExist(c.dev, s("PUBOBJ1")); }, SAR_OK, {}},
        {"TWF_IsFileExist", DO { return c.t.TWF_IsFileExist(c.dev, s("nosuch")); }, SAR_FILE_NOT_EXIST, {}},
        {"TWF_ReadFile", DO { return fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_ReadFile(c.dev, s("PUBOBJ1"), 0, 1000, o, l); }); },
         SAR_OK, kFile},
        {"softtoken file-write", DO { // the admin program writes a file's bytes, the native face reads them
             QTemporaryFile f; f.open(); f.write(kFile); f.close();
             QProcess p; p.start(SOFTTOKEN_ADMIN, {"--store", c.fx->store(), "file-write", "tok", "PUBOBJ2", "--from", f.fileName()});
             p.waitForFinished(60000);
             return p.exitCode() == 0 ? fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_ReadFile(c.dev, s("PUBOBJ2"), 0, 100, o, l); }) : SAR_FAIL; },
         SAR_OK, kFile},
        {"TWF_DeleteFile", DO { return c.t.TWF_DeleteFile(c.dev, s("PUBOBJ2")); }, SAR_OK, {}},
        {"TWF_EnumFiles", DO { return fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_EnumFiles(c.dev, t(o), l); }); },
         SAR_OK, QByteArray("PUBOBJ1\0\0", 9)},
        {"TWF_CreateContainer", DO { return c.t.TWF_CreateContainer(c.dev, s("fresh"), &c.fresh); }, SAR_OK, {}},
        {"SKF_EnumContainer", DO { // one token, two faces: the SKF face sees what the native face made
             DEVHANDLE d = c.fx->connect("tok");
             HAPPLICATION a = d ? c.fx->openApp(d) : nullptr;
             const ULONG rv = fill(c, [&](BYTE *o, ULONG *l) { return SKF_EnumContainer(a, t(o), l); });
             SKF_DisConnectDev(d);
             return rv; }, SAR_OK, QByteArray("s\0r\0fresh\0\0", 11)},
        {"TWF_EnumContainer", DO { return fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_EnumContainer(c.dev, t(o), l); }); },
         SAR_OK, QByteArray("s\0r\0fresh\0\0", 11)},
        {"TWF_GenRSAKeyPair", DO { return fixed(c, &c.rsaPub, 268, [&](BYTE *o, ULONG *l) {
             return c.t.TWF_GenRSAKeyPair(c.dev, c.fresh, 1024, reinterpret_cast<RSAPUBLICKEYBLOB *>(o), l); }); }, SAR_OK, "268"},
        {"TWF_GenECCKeyPair", DO { ULONG l = 0; // a size query leaves the container as it is
             const ULONG rv = c.t.TWF_GenECCKeyPair(c.dev, c.fresh, SGD_SM2_1, nullptr, &l); c.seen = n(l); return rv; }, SAR_OK, "132"},
        {"TWF_GetContainerType", DO { ULONG v = 0; const ULONG rv = c.t.TWF_GetContainerType(c.dev, c.fresh, &v); c.seen = n(v); return rv; },
         SAR_OK, "1"},
        {"TWF_GenECCKeyPair", DO { return fixed(c, &c.seen, 132, [&](BYTE *o, ULONG *l) {
             return c.t.TWF_GenECCKeyPair(c.dev, c.fresh, SGD_SM2_1, reinterpret_cast<ECCPUBLICKEYBLOB *>(o), l); }); }, SAR_OK, "132"},
        {"TWF_CloseContainer", DO { return c.t.TWF_CloseContainer(c.dev, c.fresh); }, SAR_OK, {}},
        {"TWF_DeleteContainer", DO { return c.t.TWF_DeleteContainer(c.dev, s("fresh")); }, SAR_OK, {}},
        {"TWF_OpenContainer", DO { return c.t.TWF_OpenContainer(c.dev, s("r"), &c.rsa); }, SAR_OK, {}},
        {"TWF_OpenContainer", DO { return c.t.TWF_OpenContainer(c.dev, s("s"), &c.sm2); }, SAR_OK, {}},
        {"TWF_GetContainerType", DO { ULONG v = 0; return c.t.TWF_GetContainerType(c.dev2, c.sm2, &v); }, SAR_INVALIDHANDLEERR, {}},
        {"TWF_ImportCertificate", DO { QByteArray d("cert"); return c.t.TWF_ImportCertificate(c.dev, c.sm2, TRUE, b(d), 4); }, SAR_OK, {}},
        {"TWF_ExportCertificate", DO { return fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_ExportCertificate(c.dev, c.sm2, TRUE, o, l); }); },
         SAR_OK, "cert"},
        {"TWF_ExportPublicKey", DO { const ULONG rv = fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_ExportPublicKey(c.dev, c.rsa, TRUE, o, l); });
             c.rsaPub = c.seen; c.seen = n(c.seen.size()); return rv; }, SAR_OK, "268"},
        {"TWF_RSASignData", DO { QByteArray d = kBlock; const ULONG rv = fill(c, [&](BYTE *o, ULONG *l) {
             return c.t.TWF_RSASignData(c.dev, c.rsa, b(d), 16, o, l); }); c.sig = c.seen; c.seen = n(c.seen.size()); return rv; }, SAR_OK, "128"},
        {"TWF_RSAVerify", DO { QByteArray d = kBlock; return c.t.TWF_RSAVerify(c.dev, as<RSAPUBLICKEYBLOB>(c.rsaPub), 268,
             b(d), 16, b(c.sig), ULONG(c.sig.size())); }, SAR_OK, {}},
        {"TWF_RSAVerify", DO { QByteArray d = kBlock; return c.t.TWF_RSAVerify(c.dev, as<RSAPUBLICKEYBLOB>(c.rsaPub), 132,
             b(d), 16, b(c.sig), ULONG(c.sig.size())); }, SAR_INVALIDPARAMERR, {}},
        {"TWF_ImportRSAKeyPair", DO { QByteArray w(128, 'w'), d(16, 'd');
             return c.t.TWF_ImportRSAKeyPair(c.dev, c.rsa, SGD_SM1_ECB, b(w), 128, b(d), 16); }, SAR_NOTSUPPORTYETERR, {}},
        {"TWF_ExportPublicKey", DO { const ULONG rv = fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_ExportPublicKey(c.dev, c.sm2, FALSE, o, l); });
             c.encPub = c.seen; const ULONG rv2 = fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_ExportPublicKey(c.dev, c.sm2, TRUE, o, l); });
             c.pub = c.seen; c.seen = n(c.pub.size()) + " " + n(c.encPub.size()); return rv | rv2; }, SAR_OK, "132 132"},
        {"TWF_DigestInit", DO {
             return c.t.TWF_DigestInit(c.dev, SGD_SM3, as<ECCPUBLICKEYBLOB>(c.pub), 132, nullptr, 0, &c.hash); }, SAR_OK, {}},
        {"TWF_Digest", DO { QByteArray d("abc"); const ULONG rv = fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_Digest(c.dev, c.hash, b(d), 3, o, l); });
             c.e = c.seen; c.seen = n(c.e.size()); return rv; }, SAR_OK, "32"},
        {"TWF_ECCSignData", DO { return fixed(c, &c.sig, 128, [&](BYTE *o, ULONG *l) {
             return c.t.TWF_ECCSignData(c.dev, c.sm2, b(c.e), 32, reinterpret_cast<ECCSIGNATUREBLOB *>(o), l); }); }, SAR_OK, "128"},
        {"TWF_ECCVerify", DO { return c.t.TWF_ECCVerify(c.dev, as<ECCPUBLICKEYBLOB>(c.pub), 132, b(c.e), 32,
             as<ECCSIGNATUREBLOB>(c.sig), 128); }, SAR_OK, {}},
        {"TWF_ECCVerify", DO { QByteArray other = c.e; other[0] = char(other[0] ^ 1);
             return c.t.TWF_ECCVerify(c.dev, as<ECCPUBLICKEYBLOB>(c.pub), 132, b(other), 32, as<ECCSIGNATUREBLOB>(c.sig), 128); },
         SAR_FAIL, {}},
        {"TWF_ImportECCKeyPair", DO { ENVELOPEDKEYBLOB env = {}; return c.t.TWF_ImportECCKeyPair(c.dev, c.sm2, &env, 100); },
         SAR_INDATALENERR, {}}, // shorter than the blob with its cipher
        {"TWF_ImportECCKeyPair", DO { ENVELOPEDKEYBLOB env = {};
             return c.t.TWF_ImportECCKeyPair(c.dev, c.sm2, &env, sizeof env - 1); }, SAR_NOTSUPPORTYETERR, {}},
        {"TWF_DigestUpdate", DO { QByteArray d("ab"); return c.t.TWF_DigestUpdate(c.dev, c.hash, b(d), 2); }, SAR_OK, {}},
        {"TWF_DigestFinal", DO { QByteArray more("c"); c.t.TWF_DigestUpdate(c.dev, c.hash, b(more), 1); // as the one-shot value
             const ULONG rv = fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_DigestFinal(c.dev, c.hash, o, l); });
             return c.seen == c.e ? rv : SAR_HASHNOTEQUALERR; }, SAR_OK, {}},
        {"TWF_CloseHandle", DO { return c.t.TWF_CloseHandle(c.dev, c.hash); }, SAR_OK, {}},
        {"TWF_CloseHandle", DO { return c.t.TWF_CloseHandle(c.dev, c.hash); }, SAR_INVALIDHANDLEERR, {}},
        {"TWF_ECCExportSessionKey", DO { return fixed(c, &c.wrapped, 197, [&](BYTE *o, ULONG *l) {
             return c.t.TWF_ECCExportSessionKey(c.dev, c.sm2, SGD_SM4_ECB, as<ECCPUBLICKEYBLOB>(c.encPub), 132,
                                                reinterpret_cast<ECCCIPHERBLOB *>(o), l, &c.key); }); }, SAR_OK, "180"},
        {"TWF_ImportSessionKey", DO { return c.t.TWF_ImportSessionKey(c.dev, c.sm2, SGD_SM4_ECB, b(c.wrapped), 180, &c.key2); }, SAR_OK, {}},
        {"TWF_EncryptInit", DO { return cipherParam(c, c.key, 40, c.t.TWF_EncryptInit); }, SAR_INVALIDPARAMERR, {}},
        {"TWF_EncryptInit", DO { return cipherParam(c, c.key, 44, c.t.TWF_EncryptInit); }, SAR_OK, {}},
        {"TWF_Encrypt", DO { QByteArray d = kBlock; const ULONG rv = fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_Encrypt(c.dev, c.key, b(d), 16, o, l); });
             c.ct = c.seen; return rv; }, SAR_OK, {}},
        {"TWF_DecryptInit", DO { return cipherParam(c, c.key2, 44, c.t.TWF_DecryptInit); }, SAR_OK, {}},
        {"TWF_Decrypt", DO { return fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_Decrypt(c.dev, c.key2, b(c.ct), 16, o, l); }); }, SAR_OK, kBlock},
        {"TWF_EncryptUpdate", DO { cipherParam(c, c.key, 44, c.t.TWF_EncryptInit); QByteArray d = kBlock;
             const ULONG rv = fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_EncryptUpdate(c.dev, c.key, b(d), 16, o, l); });
             c.ct = c.seen; return rv; }, SAR_OK, {}},
        {"TWF_EncryptFinal", DO { return fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_EncryptFinal(c.dev, c.key, o, l); }); },
         SAR_OK, ""},
        {"TWF_DecryptUpdate", DO { cipherParam(c, c.key2, 44, c.t.TWF_DecryptInit);
             return fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_DecryptUpdate(c.dev, c.key2, b(c.ct), 16, o, l); }); }, SAR_OK, kBlock},
        {"TWF_DecryptFinal", DO { return fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_DecryptFinal(c.dev, c.key2, o, l); }); }, SAR_OK, ""},
        {"TWF_MacInit", DO { BLOCKCIPHERPARAM p = {}; return c.t.TWF_MacInit(c.dev, c.key, &p, 44, &c.mac); }, SAR_OK, {}},
        {"TWF_Mac", DO { QByteArray d = kBlock; const ULONG rv = fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_Mac(c.dev, c.mac, b(d), 16, o, l); });
             c.ct = c.seen; return rv; }, SAR_OK, {}},
        {"TWF_MacUpdate", DO { QByteArray d = kBlock; return c.t.TWF_MacUpdate(c.dev, c.mac, b(d), 16); }, SAR_OK, {}},
        {"TWF_MacFinal", DO { const ULONG rv = fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_MacFinal(c.dev, c.mac, o, l); });
             return c.seen == c.ct ? rv : SAR_FAIL; }, SAR_OK, {}},
        {"TWEPS_ImportSymmKey", DO { return c.t.TWEPS_ImportSymmKey(c.dev, c.sm2, 7, b(c.wrapped), 180, 0); }, SAR_OK, {}},
        {"TWEPS_WriteESealData", DO { QByteArray d("seal"); return c.t.TWEPS_WriteESealData(c.dev, b(d), 4, 0); }, SAR_OK, {}},
        {"TWEPS_ReadESealData", DO { return fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWEPS_ReadESealData(c.dev, 7, SGD_SM4_ECB, o, l, 0); }); },
         SAR_OK, "seal"},
        // A plan entry under a TWF name is kept under the SKF name and hits either face.
        {"TWF_ECCSignData", DO { c.fx->engine().setFault("tok", "TWF_ECCSignData", SAR_HASHERR, 1); ULONG l = 128;
             return c.t.TWF_ECCSignData(c.dev, c.sm2, b(c.e), 32, as<ECCSIGNATUREBLOB>(c.sig), &l); }, SAR_HASHERR, {}},
        {"TWF_ECCSignData", DO { c.fx->engine().setSizeLie("tok", "SKF_ECCSignData", 4, 1); return fixed(c, &c.sig, 128, [&](BYTE *o, ULONG *l) {
             return c.t.TWF_ECCSignData(c.dev, c.sm2, b(c.e), 32, reinterpret_cast<ECCSIGNATUREBLOB *>(o), l); }); }, SAR_OK, "132"},
        {"TWF_IsFileExist", DO { c.fx->engine().setFault("tok", "TWF_IsFileExist", SAR_FILEERR, 1);
             const QByteArray shown = c.fx->engine().showJson("tok"); c.seen = n(shown.contains("SKF_GetFileInfo"));
             return c.t.TWF_IsFileExist(c.dev, s("PUBOBJ1")); }, SAR_FILEERR, "1"},
        {"TWF_GetLabelName", DO { c.fx->engine().setFault("tok", "TWF_GetLabelName", SAR_FAIL, 1); ULONG l = 0;
             return c.t.TWF_GetLabelName(c.dev, nullptr, &l); }, SAR_FAIL, {}},
        {"TWF_FormatKey", DO { return c.t.TWF_FormatKey(c.dev, s("QmVR2kdLZTTHpXsa"), s("T0RnNE9EZzRPRGc9")); }, SAR_OK, {}},
        {"TWF_FormatKey", DO { ULONG r = 0; // files gone, the administrator PIN is the first one, containers kept
             const ULONG rv = c.t.TWF_VerifyPIN(c.dev, ADMIN_TYPE, s("QmVR2kdLZTTHpXsa"), &r);
             return rv | fill(c, [&](BYTE *o, ULONG *l) { return c.t.TWF_EnumFiles(c.dev, t(o), l); }); },
         SAR_OK, QByteArray(1, '\0')},
        {"SKF_EnumApplication", DO { // profile wg: names blank-separated in one C string
             DEVHANDLE d = c.fx->connect("wgtok");
             const ULONG rv = fill(c, [&](BYTE *o, ULONG *l) { return SKF_EnumApplication(d, t(o), l); });
             SKF_DisConnectDev(d);
             return rv; }, SAR_OK, QByteArray("TW_APP \0", 8)},
        {"TWF_IsConnectDev", DO { c.fx->engine().removeDevice("tok2"); return c.t.TWF_IsConnectDev(c.dev2); }, SAR_DEVICE_REMOVED, {}},
        {"TWF_GetSerialNumber", DO { ULONG l = 0; return c.t.TWF_GetSerialNumber(c.dev2, nullptr, &l); }, SAR_DEVICE_REMOVED, {}},
        {"TWF_DisConnectDev", DO { return c.t.TWF_DisConnectDev(c.dev2); }, SAR_DEVICE_REMOVED, {}},
        {"TWF_DisConnectDev", DO { return c.t.TWF_DisConnectDev(c.dev); }, SAR_OK, {}},
        {"TWF_IsConnectDev", DO { return c.t.TWF_IsConnectDev(c.dev); }, SAR_INVALIDHANDLEERR, {}},
        {"TWF_Uinit_SDK", DO { g_logThreads.clear(); const ULONG rv = c.t.TWF_Uinit_SDK(); c.seen = n(ULONG(g_logThreads.size())); return rv; },
         SAR_OK, "1"},
    };
    return table;
}

} // namespace

class SoftTokenNativeTest : public QObject
{
    Q_OBJECT

private slots:
    void rows();
};

void SoftTokenNativeTest::rows()
{
    void *lib = dlopen(SOFTTOKEN_NATIVE, RTLD_NOW | RTLD_LOCAL);
    QVERIFY2(lib, dlerror());
    Ctx c;
    std::set<QByteArray> driven;
    for (const Row &row : ::rows())
        driven.insert(row.function);
#define TWF_RESOLVE(name, required)                                                  \
    c.t.name = reinterpret_cast<decltype(c.t.name)>(dlsym(lib, #name));              \
    QVERIFY2(c.t.name, #name " is not exported");                                    \
    QVERIFY2(driven.count(#name), #name " has no row");
    TWF_FUNCTION_ROWS(TWF_RESOLVE)
#undef TWF_RESOLVE
    QVERIFY(!dlsym(lib, "SKF_ConnectDev")); // the SKF names stay inside

    TokenFixture fx;
    c.fx = &fx;
    SoftTokenEngine::DeviceOptions tok = device("tok", "SNTOK");
    for (const char *text : {"s:sm2", "r:rsa:1024"}) {
        SoftTokenEngine::ContainerSetup setup;
        QVERIFY(SoftTokenEngine::ContainerSetup::parse(text, &setup, nullptr));
        tok.containers.append(setup);
    }
    QVERIFY(fx.engine().createDevice(tok) && fx.engine().createDevice(device("wgtok", "", "wg")) && fx.addDevice("tok2"));

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

QTEST_GUILESS_MAIN(SoftTokenNativeTest)
#include "tst_softtoken_native.moc"
