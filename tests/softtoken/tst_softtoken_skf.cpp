// The software token through its exported C functions only: devices,
// applications, PINs, files, containers and handles; then its cryptography
// against known answers (its digests and signatures are checked against
// openssl through the library by the CLI table). Each table runs in order on
// one store.
#include "tokenfixture.h"
#include "tokencrypto.h"

#include <QtTest>

#include <dlfcn.h>

namespace {

const QByteArray kSm4Key = QByteArray::fromHex("0123456789abcdeffedcba9876543210");
const QByteArray kSm4Cipher = QByteArray::fromHex("681edf34d206965e86b3e94f536e4246");
const QString OK = QStringLiteral("0");

QString devAuth(DEVHANDLE dev, const QByteArray &key = "1234567812345678")
{
    QByteArray rnd(8, '\0'), answer;
    SKF_GenRandom(dev, bytes(rnd), 8);
    TokenCrypto::sm4(true, TokenCrypto::Sm4Ecb, key, QByteArray(), false, rnd + QByteArray(8, '\0'), &answer);
    return rv(SKF_DevAuth(dev, bytes(answer), 16));
}

QByteArray publicKey(HCONTAINER c, BOOL sign)
{
    ULONG len = 0;
    QByteArray blob(SKF_ExportPublicKey(c, sign, nullptr, &len) ? 0 : int(len), '\0');
    return SKF_ExportPublicKey(c, sign, bytes(blob), &len) ? QByteArray() : blob;
}

// A two-call operation: the length, then the data; the code and the data's hex.
QString twoCalls(const std::function<ULONG(BYTE *, ULONG *)> &call, QByteArray *out = nullptr)
{
    ULONG len = 0;
    ULONG r = call(nullptr, &len);
    QByteArray buf(int(len), '\0');
    r = r ? r : call(bytes(buf), &len);
    if (out)
        *out = buf.left(int(len));
    return r ? rv(r) : "0 " + buf.left(int(len)).toHex();
}

QString digest(DEVHANDLE dev, ULONG alg, ECCPUBLICKEYBLOB *pub, QByteArray id, QByteArray data)
{
    HANDLE h = nullptr;
    const ULONG r = SKF_DigestInit(dev, alg, pub, reinterpret_cast<unsigned char *>(id.data()), ULONG(id.size()), &h);
    const QString out = r ? rv(r) : twoCalls([&](BYTE *o, ULONG *l) { return SKF_Digest(h, bytes(data), ULONG(data.size()), o, l); });
    SKF_CloseHandle(h);
    return out;
}

BLOCKCIPHERPARAM param(const QByteArray &iv, ULONG padding)
{
    BLOCKCIPHERPARAM p{};
    memcpy(p.IV, iv.constData(), size_t(iv.size()));
    p.IVLen = ULONG(iv.size());
    p.PaddingType = padding;
    return p;
}

QString crypt(bool enc, HANDLE key, const BLOCKCIPHERPARAM &p, QByteArray in, QByteArray *out = nullptr)
{
    const ULONG r = enc ? SKF_EncryptInit(key, p) : SKF_DecryptInit(key, p);
    return r ? rv(r) : twoCalls([&](BYTE *o, ULONG *l) {
        return enc ? SKF_Encrypt(key, bytes(in), ULONG(in.size()), o, l) : SKF_Decrypt(key, bytes(in), ULONG(in.size()), o, l);
    }, out);
}

} // namespace

class SoftTokenSkfTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TokenSteps> steps;

private slots:
    void exportsEveryName()
    {
        Dl_info info;
        QVERIFY(dladdr(reinterpret_cast<void *>(&SKF_EnumDev), &info) && info.dli_fname);
        void *lib = dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD);
#define CHECK_ROW(name, required) QVERIFY2(dlsym(lib, #name), #name);
        SKF_FUNCTION_ROWS(CHECK_ROW)
#undef CHECK_ROW
        QVERIFY(!dlsym(lib, "_ZN13SoftTokenEngine12createDeviceERKNS_13DeviceOptionsE"));
        dlclose(lib);
    }

    void face_data()
    {
        newSteps(&steps);
        const QString bad = rv(SAR_INVALIDPARAMERR), handle = rv(SAR_INVALIDHANDLEERR), nologin = rv(SAR_USER_NOT_LOGGED_IN);
        STEP("1", return QString::number(s.fx.addDevice("beta") && s.fx.addDevice("alpha") && s.fx.addDevice("gamma") && s.fx.engine().removeDevice("beta")));
        STEP("0 alpha|beta|gamma||", QByteArray b(64, '\x7f'); s.n = 64; // removed ones too, NULs shown as '|'
             return Out() << rv(SKF_EnumDev(FALSE, b.data(), &s.n)) << ' ' << b.left(int(s.n)).replace('\0', '|'));
        STEP(rv(SAR_BUFFER_TOO_SMALL) + " 13", char b[5]; s.n = 5; return Out() << rv(SKF_EnumDev(TRUE, b, &s.n)) << ' ' << QString::number(s.n));
        STEP(bad, return rv(SKF_EnumDev(TRUE, nullptr, nullptr)));
        STEP("0:1 0:0 0:0 ", QString o; for (const char *d : {"alpha", "beta", "nosuch"}) o += Out() << rv(SKF_GetDevState(const_cast<char *>(d), &s.n)) << ':' << QString::number(s.n) << ' '; return o);
        STEP(bad + " null", s.dev = &s; return Out() << rv(SKF_ConnectDev(const_cast<char *>("nosuch"), &s.dev)) << (s.dev ? " set" : " null"));
        STEP(bad, return rv(SKF_ConnectDev(const_cast<char *>("../alpha"), &s.dev)));
        STEP("1", SoftTokenEngine::DeviceOptions o; o.name = "tok"; o.serial = "SN0123456789ABCDEFGH"; o.label = "My Token"; o.manufacturer = "Maker";
             o.issuer = "Issuer"; o.totalSpace = 8192; return QString::number(s.fx.engine().createDevice(o) && (s.dev = s.fx.connect("tok")) && (s.app = s.fx.openApp(s.dev))));
        STEP("0 SN0123456789ABCDEFGH My Token Maker Issuer 1 8192 8192 1 1", DEVINFO i{}; memset(&i, 0xAB, sizeof i); return Out() << rv(SKF_GetDevInfo(s.dev, &i)) << ' '
             << QStringList{i.SerialNumber, i.Label, i.Manufacturer, i.Issuer}.join(' ') << QString(" %1 %2 %3 %4 %5").arg(i.Version.major).arg(i.TotalSpace)
             .arg(i.FreeSpace).arg(bool(i.AlgAsymCap & SGD_SM2_1)).arg(bool(i.AlgHashCap & SGD_SM3)));
        STEP(rv(SAR_INDATALENERR), return rv(SKF_SetLabel(s.dev, const_cast<char *>("a label far longer than thirty-one bytes"))));
        STEP(rv(SAR_APPLICATION_NOT_EXISTS), return rv(SKF_OpenApplication(s.dev, const_cast<char *>("SECOND"), &s.app2)));
        STEP(rv(TW_ERR_SECURITY_STATE), return rv(SKF_CreateApplication(s.dev, const_cast<char *>("SECOND"), const_cast<char *>("adminpin1"), 5, const_cast<char *>("userpin1"), 5, SECURE_USER_ACCOUNT, &s.app2)));
        STEP(rv(SAR_FAIL), return devAuth(s.dev, "0000000000000000"));
        STEP(OK, return devAuth(s.dev));
        STEP(OK, return rv(SKF_CreateApplication(s.dev, const_cast<char *>("SECOND"), const_cast<char *>("adminpin1"), 5, const_cast<char *>("userpin1"), 5, SECURE_USER_ACCOUNT, &s.app2)));
        STEP(rv(SAR_APPLICATION_EXISTS), HAPPLICATION a; return rv(SKF_CreateApplication(s.dev, const_cast<char *>("SECOND"), const_cast<char *>("adminpin1"), 5, const_cast<char *>("userpin1"), 5, SECURE_USER_ACCOUNT, &a)));
        STEP("TW_APP SECOND", return s.fx.engine().applications("tok").join(' '));
        STEP(nologin, return rv(SKF_CreateFile(s.app2, const_cast<char *>("f"), 4, 0xFF, 0xFF))); // the new application's own rights
        STEP(OK, return rv(s.fx.login(s.app2, "userpin1") ? SKF_CreateFile(s.app2, const_cast<char *>("f"), 4, 0xFF, 0xFF) : 1));
        STEP(OK, s.a = "abcdefghijklmnop"; return rv(SKF_ChangeDevAuthKey(s.dev, bytes(s.a), 16)));
        STEP(OK, return rv(SKF_DeleteApplication(s.dev, const_cast<char *>("SECOND"))));
        STEP(rv(SAR_APPLICATION_NOT_EXISTS), return rv(SKF_DeleteApplication(s.dev, const_cast<char *>("SECOND"))));
        STEP(rv(SAR_APPLICATION_NOT_EXISTS), return rv(SKF_CreateFile(s.app2, const_cast<char *>("g"), 4, 0xFF, 0xFF)));
        STEP("0 a000001 0", SKF_DisConnectDev(s.dev); s.dev = s.fx.connect("tok"); s.app = s.fx.openApp(s.dev); return Out() << rv(!s.app) << ' ' << devAuth(s.dev) << ' ' << devAuth(s.dev, s.a));
        // PINs
        STEP(QString("%1:5 %1:4 %1:3 %1:2 %1:1 ").arg(rv(SAR_PIN_INCORRECT)), QString o;
             for (int i = 0; i < 5; ++i) o += Out() << rv(SKF_VerifyPIN(s.app, USER_TYPE, const_cast<char *>("00000000"), &s.n)) << ':' << QString::number(s.n) << ' '; return o);
        STEP(rv(SAR_PIN_LOCKED) + " 0", return Out() << rv(SKF_VerifyPIN(s.app, USER_TYPE, const_cast<char *>("00000000"), &s.n)) << ' ' << QString::number(s.n));
        STEP(rv(SAR_PIN_LOCKED), return rv(SKF_VerifyPIN(s.app, USER_TYPE, const_cast<char *>("12345678"), &s.n)));
        STEP(rv(SAR_PIN_INCORRECT) + " 9", return Out() << rv(SKF_UnblockPIN(s.app, const_cast<char *>("11111111"), const_cast<char *>("87654321"), &s.n)) << ' ' << QString::number(s.n));
        STEP(rv(SAR_PIN_LEN_RANGE), return rv(SKF_UnblockPIN(s.app, const_cast<char *>("88888888"), const_cast<char *>("123"), &s.n)));
        STEP(OK, return rv(SKF_UnblockPIN(s.app, const_cast<char *>("88888888"), const_cast<char *>("87654321"), &s.n)));
        STEP("6 0 10", SoftTokenEngine::PinState u, a; s.fx.engine().pinState("tok", false, &u); s.fx.engine().pinState("tok", true, &a);
             return QString("%1 %2 %3").arg(u.remaining).arg(u.isDefault).arg(a.remaining)); // a right admin PIN restores its counter
        STEP(OK, return rv(SKF_VerifyPIN(s.app, USER_TYPE, const_cast<char *>("87654321"), &s.n)));
        STEP(rv(SAR_USER_TYPE_INVALID), return rv(SKF_VerifyPIN(s.app, 7, const_cast<char *>("87654321"), &s.n)));
        STEP("000", QFile f(s.fx.store() + "/tok/device.json"); f.open(QIODevice::ReadOnly); s.a = f.readAll(); // PINs only as salted hashes
             return QString("%1%2%3").arg(s.a.contains("87654321")).arg(s.a.contains("88888888")).arg(s.a.contains(QByteArray("87654321").toBase64())));
        STEP(rv(SAR_PIN_INCORRECT) + " 5", return Out() << rv(SKF_ChangePIN(s.app, USER_TYPE, const_cast<char *>("abcdef12"), const_cast<char *>("abcdef12"), &s.n)) << ' ' << QString::number(s.n));
        STEP(OK, return rv(SKF_ChangePIN(s.app, USER_TYPE, const_cast<char *>("87654321"), const_cast<char *>("12345678"), &s.n)));
        // Files: rights, sizes, offsets; the login ends with the secure state, a disconnect or a wrong PIN.
        STEP(OK, SKF_DisConnectDev(s.dev); s.dev = s.fx.connect("tok"); s.app = s.fx.openApp(s.dev); return rv(SKF_CreateFile(s.app, const_cast<char *>("private"), 4, SECURE_USER_ACCOUNT, SECURE_USER_ACCOUNT)));
        STEP(OK, return rv(SKF_CreateFile(s.app, const_cast<char *>("public"), 10, SECURE_ANYONE_ACCOUNT, SECURE_ANYONE_ACCOUNT)));
        STEP(rv(SAR_NO_ROOM), return rv(SKF_CreateFile(s.app, const_cast<char *>("huge"), 9000, 0xFF, 0xFF)));
        STEP(rv(SAR_NAMELENERR), return rv(SKF_CreateFile(s.app, const_cast<char *>("a-name-of-thirty-three-bytes-long"), 1, 0xFF, 0xFF)));
        STEP(rv(SAR_NAMELENERR), QByteArray n(4096, 'n'); return rv(SKF_CreateFile(s.app, n.data(), 1, 0xFF, 0xFF))); // not read past
        STEP(OK, s.a = "0123456789"; return rv(SKF_WriteFile(s.app, const_cast<char *>("public"), 0, bytes(s.a), 10)));
        STEP(rv(SAR_INDATALENERR), return rv(SKF_WriteFile(s.app, const_cast<char *>("public"), 8, bytes(s.a), 3)));
        STEP(rv(TW_ERR_OFFSET_BEYOND_FILE), return rv(SKF_WriteFile(s.app, const_cast<char *>("public"), 11, bytes(s.a), 1)));
        STEP("0 36373839", return twoCalls([&](BYTE *o, ULONG *l) { return SKF_ReadFile(s.app, const_cast<char *>("public"), 6, 10, o, l); })); // cut at the end
        STEP(rv(SAR_BUFFER_TOO_SMALL) + " 4", s.n = 2; return Out() << SKF_ReadFile(s.app, const_cast<char *>("public"), 6, 10, bytes(s.a), &s.n) << ' ' << QString::number(s.n));
        STEP(rv(TW_ERR_OFFSET_BEYOND_FILE), s.n = 10; return rv(SKF_ReadFile(s.app, const_cast<char *>("public"), 11, 1, bytes(s.a), &s.n)));
        STEP(nologin, return rv(SKF_WriteFile(s.app, const_cast<char *>("private"), 0, bytes(s.a), 4)));
        STEP(OK, return rv(s.fx.login(s.app) ? SKF_WriteFile(s.app, const_cast<char *>("private"), 0, bytes(s.a), 4) : 1));
        STEP(nologin, SKF_ClearSecureState(s.app); s.n = 4; return rv(SKF_ReadFile(s.app, const_cast<char *>("private"), 0, 4, bytes(s.b.fill(0, 4)), &s.n)));
        STEP("0 30313233", s.fx.login(s.app); return twoCalls([&](BYTE *o, ULONG *l) { return SKF_ReadFile(s.app, const_cast<char *>("private"), 0, 4, o, l); }));
        STEP(nologin, SKF_VerifyPIN(s.app, USER_TYPE, const_cast<char *>("00000000"), &s.n); return rv(SKF_WriteFile(s.app, const_cast<char *>("private"), 0, bytes(s.a), 4)));
        STEP(OK, return rv(SKF_DeleteFile(s.app, const_cast<char *>("public"))));
        STEP(rv(SAR_FILE_NOT_EXIST) + rv(SAR_FILE_NOT_EXIST) + " 1", FILEATTRIBUTE a; return Out() << rv(SKF_DeleteFile(s.app, const_cast<char *>("public"))) << rv(SKF_GetFileInfo(s.app, const_cast<char *>("public"), &a)) << ' ' << QString::number(s.fx.engine().files("tok").size()));
        STEP(OK, return rv(SKF_GenRandom(s.dev, nullptr, 0)));
        STEP(bad, return rv(SKF_GenRandom(s.dev, nullptr, 6)));
        STEP("11", s.a.fill(0, 32); s.b.fill(0, 32); SKF_GenRandom(s.dev, bytes(s.a), 32); SKF_GenRandom(s.dev, bytes(s.b), 32); return QString("%1%2").arg(s.a != s.b).arg(s.a != QByteArray(32, 0)));
        // Containers and certificates
        STEP("1", return QString::number(s.fx.addDevice("ctr", {"sm2c:sm2", "rsac:rsa:1024", "empty"}) && (s.c = s.fx.ready("ctr", "sm2c", &s.dev2, &s.app2))
                                         && (s.c2 = s.fx.openContainer(s.app2, "rsac")) && (s.c3 = s.fx.openContainer(s.app2, "empty"))));
        STEP(QString("0 %1 %2 %3").arg(CONTAINER_TYPE_ECC).arg(CONTAINER_TYPE_RSA).arg(CONTAINER_TYPE_EMPTY), ULONG a, b, c;
             return Out() << rv(SKF_GetContainerType(s.c, &a) | SKF_GetContainerType(s.c2, &b) | SKF_GetContainerType(s.c3, &c)) << QString(" %1 %2 %3").arg(a).arg(b).arg(c));
        STEP(rv(TW_ERR_CONTAINER_NOT_EXIST), HCONTAINER h; return rv(SKF_OpenContainer(s.app2, const_cast<char *>("missing"), &h)));
        STEP(rv(TW_ERR_CONTAINER_EXISTS), HCONTAINER h; return rv(SKF_CreateContainer(s.app2, const_cast<char *>("sm2c"), &h)));
        STEP(rv(SAR_CERTNOTFOUNTERR), return rv(SKF_ExportCertificate(s.c, TRUE, nullptr, &s.n)));
        STEP(OK, s.a = QByteArray(700, 'C'); return rv(SKF_ImportCertificate(s.c, TRUE, bytes(s.a), 700)));
        STEP("3 1 0 1", auto i = s.fx.engine().containers("ctr"); return QString("%1 %2 %3 %4").arg(i.size()).arg(i.at(0).hasSignCert).arg(i.at(0).hasEncCert).arg(i.at(0).hasEncKey));
        STEP("132 268 " + rv(SAR_KEYNOTFOUNTERR), return Out() << QString("%1 %2 ").arg(publicKey(s.c, TRUE).size()).arg(publicKey(s.c2, FALSE).size()) << rv(SKF_ExportPublicKey(s.c3, TRUE, nullptr, &s.n)));
        STEP(nologin, SKF_ClearSecureState(s.app2); HCONTAINER h; return rv(SKF_CreateContainer(s.app2, const_cast<char *>("c2"), &h)));
        STEP(OK, s.fx.login(s.app2); return rv(SKF_DeleteContainer(s.app2, const_cast<char *>("empty"))));
        STEP(rv(TW_ERR_CONTAINER_NOT_EXIST), return rv(SKF_GetContainerType(s.c3, &s.n)));
        STEP(OK + handle, return Out() << rv(SKF_CloseContainer(s.c3)) << rv(SKF_CloseContainer(s.c3)));
        // Bad input gives codes, not crashes.
        STEP(QString(bad).repeated(4), return Out() << rv(SKF_ConnectDev(nullptr, &s.dev)) << rv(SKF_ConnectDev(const_cast<char *>("tok"), nullptr)) << rv(SKF_GetDevInfo(s.dev, nullptr)) << rv(SKF_EnumApplication(s.dev, nullptr, nullptr)));
        STEP(QString(bad).repeated(4), return Out() << rv(SKF_OpenApplication(s.dev, nullptr, &s.app)) << rv(SKF_VerifyPIN(s.app, USER_TYPE, nullptr, nullptr)) << rv(SKF_GetPINInfo(s.app, USER_TYPE, nullptr, nullptr, nullptr)) << rv(SKF_CreateFile(s.app, nullptr, 1, 0xFF, 0xFF)));
        STEP(QString(bad).repeated(5), return Out() << rv(SKF_ReadFile(s.app, const_cast<char *>("x"), 0, 1, nullptr, nullptr)) << rv(SKF_WriteFile(s.app, const_cast<char *>("x"), 0, nullptr, 4)) << rv(SKF_EnumContainer(s.app, nullptr, nullptr)) << rv(SKF_ImportCertificate(s.c, TRUE, nullptr, 10)) << rv(SKF_ExportPublicKey(s.c, TRUE, nullptr, nullptr)));
        STEP(bad + rv(SAR_INDATALENERR) + bad + bad, BYTE e[32] = {1}; ECCSIGNATUREBLOB g; ECCPUBLICKEYBLOB junk; memset(&junk, 0x5A, sizeof junk); junk.BitLen = 256; s.fx.login(s.app2);
             return Out() << rv(SKF_ECCSignData(s.c, nullptr, 32, nullptr)) << rv(SKF_ECCSignData(s.c, e, 31, &g)) << rv(SKF_ECCVerify(s.dev, nullptr, e, 32, &g)) << rv(SKF_ECCVerify(s.dev, &junk, e, 32, &g)));
        STEP(bad + handle + bad + bad + bad + bad + bad, BYTE e[32] = {1}; s.fx.login(s.app);
             return Out() << rv(SKF_DigestInit(s.dev, SGD_SM3, nullptr, nullptr, 0, nullptr)) << rv(SKF_Digest(nullptr, e, 32, nullptr, nullptr)) << rv(SKF_ImportECCKeyPair(s.c, nullptr)) << rv(SKF_ImportSessionKey(s.c, SGD_SM4_ECB, nullptr, 0, nullptr))
                    << rv(SKF_WaitForDevEvent(nullptr, nullptr, nullptr)) << rv(EPS_ReadESealData(s.app, 0, 0, nullptr, nullptr, 0)) << rv(EPS_WriteESealData(s.app, nullptr, 3, 0)));
        // Handles never handed out, of the wrong kind, or closed with their connection.
        STEP(QString(handle).repeated(7), DEVINFO i{}; int local; ULONG t;
             return Out() << rv(SKF_GetDevInfo(&local, &i)) << rv(SKF_GetDevInfo(nullptr, &i)) << rv(SKF_GetDevInfo(s.app2, &i)) << rv(SKF_GetContainerType(s.app2, &t))
                    << rv(SKF_EnumFiles(s.c, nullptr, &t)) << rv(SKF_CloseHandle(s.c)) << rv(SKF_DisConnectDev(s.app2)));
        STEP(OK + OK + QString(handle).repeated(5) + OK, DEVINFO i{}; ULONG t;
             return Out() << rv(SKF_DigestInit(s.dev2, SGD_SM3, nullptr, nullptr, 0, &s.h)) << rv(SKF_DisConnectDev(s.dev2)) << rv(SKF_GetDevInfo(s.dev2, &i)) << rv(SKF_EnumFiles(s.app2, nullptr, &t))
                    << rv(SKF_GetContainerType(s.c, &t)) << rv(SKF_Digest(s.h, bytes(s.a), 1, nullptr, &t)) << rv(SKF_DisConnectDev(s.dev2)) << rv(SKF_GetDevInfo(s.dev, &i)));
        STEP(OK + handle + handle + OK, DEVINFO i{}; ULONG t; HCONTAINER c = s.fx.ready("ctr", "sm2c", &s.dev2, &s.app2);
             return Out() << rv(SKF_CloseApplication(s.app2)) << rv(SKF_GetContainerType(c, &t)) << rv(SKF_CloseApplication(s.app2)) << rv(SKF_GetDevInfo(s.dev2, &i)));
    }
    void face() { TOKEN_STEPS_RUN(steps); }

    void crypto_data()
    {
        newSteps(&steps);
        STEP("1", return QString::number(s.fx.addDevice("tok", {"sm2c:sm2", "rsac:rsa:1024", "spare"}) && (s.c = s.fx.ready("tok", "sm2c", &s.dev, &s.app))
                                         && (s.c2 = s.fx.openContainer(s.app, "rsac"))));
        STEP("132 256 1", s.a = publicKey(s.c, TRUE); auto *p = reinterpret_cast<ECCPUBLICKEYBLOB *>(s.a.data());
             return QString("%1 %2 %3").arg(s.a.size()).arg(p->BitLen).arg(s.a.mid(4, 32) == QByteArray(32, 0))); // right-aligned
        STEP("0 11", s.b = TokenCrypto::random(32); ECCSIGNATUREBLOB g; ULONG r = SKF_ECCSignData(s.c, bytes(s.b), 32, &g); s.d = QByteArray(reinterpret_cast<char *>(&g), sizeof g);
             return Out() << rv(r) << QString(" %1%2").arg(s.d.left(32) == QByteArray(32, 0)).arg(s.d.mid(64, 32) == QByteArray(32, 0)));
        STEP(OK + rv(SAR_FAIL), auto *p = reinterpret_cast<ECCPUBLICKEYBLOB *>(s.a.data()); auto *g = reinterpret_cast<ECCSIGNATUREBLOB *>(s.d.data());
             QByteArray e = s.b; e[0] = char(e.at(0) ^ 1); return Out() << rv(SKF_ECCVerify(s.dev, p, bytes(s.b), 32, g)) << rv(SKF_ECCVerify(s.dev, p, bytes(e), 32, g)));
        STEP("1" + rv(SAR_FAIL), QByteArray enc = publicKey(s.c, FALSE); // the encryption pair is another key
             return Out() << QString::number(!enc.isEmpty() && enc != s.a) << rv(SKF_ECCVerify(s.dev, reinterpret_cast<ECCPUBLICKEYBLOB *>(enc.data()), bytes(s.b), 32, reinterpret_cast<ECCSIGNATUREBLOB *>(s.d.data()))));
        STEP(rv(SAR_USER_NOT_LOGGED_IN) + OK, DEVHANDLE o = s.fx.connect("tok"); HCONTAINER c = s.fx.openContainer(s.fx.openApp(o), "sm2c"); ECCSIGNATUREBLOB g; // signing needs this connection's login
             QString r = Out() << rv(SKF_ECCSignData(c, bytes(s.b), 32, &g)) << rv(SKF_ECCVerify(o, reinterpret_cast<ECCPUBLICKEYBLOB *>(s.a.data()), bytes(s.b), 32, reinterpret_cast<ECCSIGNATUREBLOB *>(s.d.data()))); SKF_DisConnectDev(o); return r);
        STEP(rv(SAR_NOTSUPPORTYETERR), return digest(s.dev, 3, nullptr, QByteArray(), "abc"));
        STEP("1 1 1", auto *p = reinterpret_cast<ECCPUBLICKEYBLOB *>(s.a.data()); const QString z = digest(s.dev, SGD_SM3, p, "1234567812345678", "first part, second part");
             return QString("%1 %2 %3").arg(z != digest(s.dev, SGD_SM3, nullptr, QByteArray(), "first part, second part")).arg(z == digest(s.dev, SGD_SM3, p, QByteArray(), "first part, second part"))
                    .arg(z == digest(s.dev, SGD_SM3, p, "1234567812345678", "first part, second part"))); // Z ahead; an empty id is the default one
        STEP(OK + OK + OK + rv(SAR_BUFFER_TOO_SMALL) + " 32" + OK + "1" + OK + rv(SAR_INVALIDHANDLEERR),
             QByteArray id = "1234567812345678", x = "first part,", y = " second part", out(32, 0); auto *p = reinterpret_cast<ECCPUBLICKEYBLOB *>(s.a.data());
             QString r = Out() << rv(SKF_DigestInit(s.dev, SGD_SM3, p, reinterpret_cast<unsigned char *>(id.data()), 16, &s.h)) << rv(SKF_DigestUpdate(s.h, bytes(x), ULONG(x.size()))) << rv(SKF_DigestUpdate(s.h, bytes(y), ULONG(y.size())));
             s.n = 16; r += Out() << rv(SKF_DigestFinal(s.h, bytes(out), &s.n)) << ' ' << QString::number(s.n) << rv(SKF_DigestFinal(s.h, bytes(out), &s.n));
             return Out() << r << QString::number("0 " + out.toHex() == digest(s.dev, SGD_SM3, p, id, x + y)) << rv(SKF_CloseHandle(s.h)) << rv(SKF_CloseHandle(s.h)));
        STEP("268 1024 " + rv(SGD_RSA), s.a = publicKey(s.c2, TRUE); auto *p = reinterpret_cast<RSAPUBLICKEYBLOB *>(s.a.data()); return Out() << QString("%1 %2 ").arg(s.a.size()).arg(p->BitLen) << rv(p->AlgID));
        STEP("0 128" + rv(SAR_BUFFER_TOO_SMALL) + OK + OK + rv(SAR_FAIL), // over a DigestInfo made by the caller: the token adds nothing
             s.b = QByteArray::fromHex("3021300906052b0e03021a05000414") + TokenCrypto::digest("SHA1", "hello"); s.n = 0; auto *p = reinterpret_cast<RSAPUBLICKEYBLOB *>(s.a.data());
             QString r = Out() << rv(SKF_RSASignData(s.c2, bytes(s.b), ULONG(s.b.size()), nullptr, &s.n)) << ' ' << QString::number(s.n); s.d.fill(0, int(s.n)); ULONG shortLen = 64;
             r += Out() << rv(SKF_RSASignData(s.c2, bytes(s.b), ULONG(s.b.size()), bytes(s.d), &shortLen)) << rv(SKF_RSASignData(s.c2, bytes(s.b), ULONG(s.b.size()), bytes(s.d), &s.n));
             QByteArray o = s.b; o[o.size() - 1] = char(o.at(o.size() - 1) ^ 1);
             return Out() << r << rv(SKF_RSAVerify(s.dev, p, bytes(s.b), ULONG(s.b.size()), bytes(s.d), s.n)) << rv(SKF_RSAVerify(s.dev, p, bytes(o), ULONG(o.size()), bytes(s.d), s.n)));
        STEP(rv(SAR_INDATALENERR), QByteArray t(118, 'x'); return rv(SKF_RSASignData(s.c2, bytes(t), 118, bytes(s.d), &s.n)));
        STEP(rv(SAR_RSAMODULUSLENERR) + OK + OK + "1" + OK + OK + rv(SAR_FAIL), RSAPUBLICKEYBLOB f; s.c3 = s.fx.openContainer(s.app, "spare"); // a key made on the token signs too
             QString r = Out() << rv(SKF_GenRSAKeyPair(s.c3, 1000, &f)) << rv(SKF_GenRSAKeyPair(s.c3, 1024, &f)) << rv(SKF_GetContainerType(s.c3, &s.m)) << QString::number(s.m); s.n = ULONG(s.d.size());
             r += Out() << rv(SKF_RSASignData(s.c3, bytes(s.b), ULONG(s.b.size()), bytes(s.d), &s.n)) << rv(SKF_RSAVerify(s.dev, &f, bytes(s.b), ULONG(s.b.size()), bytes(s.d), s.n));
             return Out() << r << rv(SKF_RSAVerify(s.dev, reinterpret_cast<RSAPUBLICKEYBLOB *>(s.a.data()), bytes(s.b), ULONG(s.b.size()), bytes(s.d), s.n)));
        STEP("0 0 2 1", ECCPUBLICKEYBLOB e; ULONG r = SKF_GenECCKeyPair(s.c3, SGD_SM2_2, &e); SKF_GetContainerType(s.c3, &s.m); // an SM2 key makes it an ECC container
             return Out() << rv(r) << ' ' << rv(SKF_GenECCKeyPair(s.c3, SGD_SM2_1, &e)) << ' ' << QString::number(s.m) << ' ' << QString::number(publicKey(s.c3, TRUE) == QByteArray(reinterpret_cast<char *>(&e), sizeof e)));
        STEP(rv(SAR_NOTINITIALIZEERR), s.a = kSm4Key; SKF_SetSymmKey(s.dev, bytes(s.a), SGD_SM4_ECB, &s.h); SKF_SetSymmKey(s.dev, bytes(s.a), SGD_SM4_CBC, &s.k); QByteArray o(64, 0); s.n = 64;
             return rv(SKF_Encrypt(s.k, bytes(s.a), 16, bytes(o), &s.n)));
        STEP("0 " + kSm4Cipher.toHex(), return crypt(true, s.h, param(QByteArray(), SKF_NO_PADDING), kSm4Key));
        STEP("0 " + kSm4Key.toHex(), return crypt(false, s.h, param(QByteArray(), SKF_NO_PADDING), kSm4Cipher));
        STEP("48 1 48 1", QString r; for (HANDLE k : {s.h, s.k}) { QByteArray c; crypt(true, k, param(QByteArray(16, 7), SKF_PKCS5_PADDING), "thirty-seven bytes of plain text here", &c);
             r += QString(" %1 %2").arg(c.size()).arg(crypt(false, k, param(QByteArray(16, 7), SKF_PKCS5_PADDING), c) == "0 " + QByteArray("thirty-seven bytes of plain text here").toHex()); } return r.mid(1));
        STEP("1", QByteArray x = kSm4Key, c, e; for (int i = 0; i < 16; ++i) x[i] = char(x.at(i) ^ 7); // CBC chains from the IV
             crypt(true, s.k, param(QByteArray(16, 7), SKF_NO_PADDING), kSm4Key, &c); crypt(true, s.h, param(QByteArray(), SKF_NO_PADDING), x, &e); return QString::number(c == e));
        STEP("1", QByteArray whole, in(20, 'a'), out(64, 0), streamed; crypt(true, s.k, param(QByteArray(16, 1), SKF_PKCS5_PADDING), in + in, &whole); // in parts, size queries consume nothing
             SKF_EncryptInit(s.k, param(QByteArray(16, 1), SKF_PKCS5_PADDING));
             for (int i = 0; i < 2; ++i) { s.n = 0; SKF_EncryptUpdate(s.k, bytes(in), 20, nullptr, &s.n); s.n = 64; SKF_EncryptUpdate(s.k, bytes(in), 20, bytes(out), &s.n); streamed += out.left(int(s.n)); }
             s.n = 64; SKF_EncryptFinal(s.k, bytes(out), &s.n); return QString::number(streamed + out.left(int(s.n)) == whole));
        STEP(rv(SAR_INDATALENERR), return crypt(true, s.k, param(QByteArray(16, 1), SKF_NO_PADDING), QByteArray(20, 'a')));
        STEP(rv(SAR_DECRYPTPADERR), QByteArray c; crypt(true, s.k, param(QByteArray(16, 1), SKF_PKCS5_PADDING), "text", &c); c[15] = char(c.at(15) ^ 0x55);
             return crypt(false, s.k, param(QByteArray(16, 1), SKF_PKCS5_PADDING), c));
        STEP(rv(SAR_INVALIDPARAMERR) + rv(SAR_INVALIDPARAMERR) + rv(SAR_NOTSUPPORTYETERR) + rv(SAR_NOTSUPPORTYETERR) + OK, HANDLE k; BLOCKCIPHERPARAM p = param(QByteArray(16, 1), 0); p.FeedBitLen = 8;
             QString r = Out() << rv(SKF_EncryptInit(s.k, param(QByteArray(5, 'x'), SKF_NO_PADDING))) << rv(SKF_EncryptInit(s.k, param(QByteArray(16, 1), 7))) << rv(SKF_SetSymmKey(s.dev, bytes(s.a), SGD_SM1_ECB, &k));
             r += rv(SKF_EncryptInit(s.k, p)); p.FeedBitLen = 128; return Out() << r << rv(SKF_EncryptInit(s.k, p)));
        STEP("0 16 1 1", QByteArray enc = publicKey(s.c, FALSE); s.a = QByteArray(SKF_ECCCIPHERBLOB_BUFFER_SIZE, 0); auto *b = reinterpret_cast<ECCCIPHERBLOB *>(s.a.data());
             ULONG r = SKF_ECCExportSessionKey(s.c, SGD_SM4_CBC, reinterpret_cast<ECCPUBLICKEYBLOB *>(enc.data()), b, &s.k2); crypt(true, s.k2, param(QByteArray(16, 0x42), SKF_PKCS5_PADDING), "only for the key holder", &s.d);
             return Out() << rv(r) << QString(" %1 %2 %3").arg(b->CipherLen).arg(QByteArray(reinterpret_cast<char *>(b->XCoordinate), 32) == QByteArray(32, 0)).arg(!s.d.isEmpty()));
        STEP(rv(SAR_INDATALENERR) + rv(SAR_INDATAERR), HANDLE k; QByteArray w = s.a; w[170] = char(w.at(170) ^ 1); // a damaged cipher fails its hash
             return Out() << rv(SKF_ImportSessionKey(s.c, SGD_SM4_CBC, bytes(s.a), 100, &k)) << rv(SKF_ImportSessionKey(s.c, SGD_SM4_CBC, bytes(w), 181, &k)));
        STEP("0 128 0 1 0 " + QByteArray(64, 'r').toHex(), QByteArray enc = publicKey(s.c2, FALSE); auto *p = reinterpret_cast<RSAPUBLICKEYBLOB *>(enc.data()); HANDLE sent = nullptr, got = nullptr; s.n = 0;
             QString r = Out() << rv(SKF_RSAExportSessionKey(s.c2, SGD_SM4_ECB, p, nullptr, &s.n, &sent)) << ' ' << QString::number(s.n); QByteArray w(int(s.n), 0), c;
             r += Out() << ' ' << rv(SKF_RSAExportSessionKey(s.c2, SGD_SM4_ECB, p, bytes(w), &s.n, &sent)) << ' ' << QString::number(sent != nullptr); crypt(true, sent, param(QByteArray(), SKF_NO_PADDING), QByteArray(64, 'r'), &c);
             return Out() << r << ' ' << rv(SKF_ImportSessionKey(s.c2, SGD_SM4_ECB, bytes(w), s.n, &got)) << ' ' << crypt(false, got, param(QByteArray(), SKF_NO_PADDING), c).mid(2));
        STEP(rv(SAR_KEYNOTFOUNTERR) + OK + "11" + OK + "1" + rv(SAR_INDATAERR), // an envelope: an SM4 key under the signing key, the new private key under it
             QByteArray priv = TokenCrypto::sm2Generate(), x, y, sym = TokenCrypto::random(16), encPriv, signPub = publicKey(s.c, TRUE); EVP_PKEY *key = TokenCrypto::sm2KeyPair(priv);
             TokenCrypto::sm2PublicPoint(key, &x, &y); TokenCrypto::freeKey(key); TokenCrypto::sm4(true, TokenCrypto::Sm4Ecb, sym, QByteArray(), false, priv, &encPriv);
             QByteArray env(sizeof(ENVELOPEDKEYBLOB) + 32, 0); auto *e = reinterpret_cast<ENVELOPEDKEYBLOB *>(env.data()); e->Version = 1; e->ulSymmAlgID = SGD_SM4_ECB; e->ulBits = 256;
             memcpy(e->cbEncryptedPriKey + 32, encPriv.constData(), 32); e->PubKey.BitLen = 256; memcpy(e->PubKey.XCoordinate + 32, x.constData(), 32); memcpy(e->PubKey.YCoordinate + 32, y.constData(), 32);
             SKF_ExtECCEncrypt(s.dev, reinterpret_cast<ECCPUBLICKEYBLOB *>(signPub.data()), bytes(sym), 16, &e->ECCCipherBlob); HCONTAINER c;
             SKF_CreateContainer(s.app, const_cast<char *>("imported"), &c); QString r = Out() << rv(SKF_ImportECCKeyPair(c, e)) << rv(SKF_ImportECCKeyPair(s.c, e)); // no signing key in the new one
             QByteArray enc = publicKey(s.c, FALSE); r += QString("%1%2").arg(enc.mid(36, 32) == x).arg(enc.mid(100, 32) == y);
             QByteArray plain = "for the imported key", cb(165 + plain.size(), 0), back(64, 0); s.n = 64; // it decrypts what its public key enciphered
             SKF_ExtECCEncrypt(s.dev, reinterpret_cast<ECCPUBLICKEYBLOB *>(enc.data()), bytes(plain), ULONG(plain.size()), reinterpret_cast<ECCCIPHERBLOB *>(cb.data()));
             r += Out() << rv(SKF_ECCPrvKeyDecryptEx(s.c, FALSE, reinterpret_cast<ECCCIPHERBLOB *>(cb.data()), bytes(back), &s.n)) << QString::number(back.left(int(s.n)) == plain);
             e->PubKey.XCoordinate[63] ^= 1; return Out() << r << rv(SKF_ImportECCKeyPair(s.c, e))); // a public key not of the private key
        STEP(rv(SAR_NOTSUPPORTYETERR) + OK + "1", QByteArray pub = publicKey(s.c2, TRUE); auto *p = reinterpret_cast<RSAPUBLICKEYBLOB *>(pub.data());
             EVP_PKEY *w = TokenCrypto::rsaPublicKey(QByteArray(reinterpret_cast<char *>(p->Modulus) + 128, 128), QByteArray(reinterpret_cast<char *>(p->PublicExponent), 4));
             QByteArray sym = TokenCrypto::random(16), wrapped, enc, dr = TokenCrypto::rsaGenerate(1024), n, e; TokenCrypto::rsaEncrypt(w, sym, &wrapped); TokenCrypto::freeKey(w);
             TokenCrypto::sm4(true, TokenCrypto::Sm4Ecb, sym, QByteArray(), true, dr, &enc);
             QString r = Out() << rv(SKF_ImportRSAKeyPair(s.c2, SGD_SM1_ECB, bytes(wrapped), ULONG(wrapped.size()), bytes(enc), ULONG(enc.size()))) << rv(SKF_ImportRSAKeyPair(s.c2, SGD_SM4_ECB, bytes(wrapped), ULONG(wrapped.size()), bytes(enc), ULONG(enc.size())));
             EVP_PKEY *im = TokenCrypto::rsaKeyPair(dr); TokenCrypto::rsaPublicParts(im, &n, &e); TokenCrypto::freeKey(im); return Out() << r << QString::number(publicKey(s.c2, FALSE).mid(136, 128) == n));
        STEP("0 " + kSm4Cipher.toHex() + OK + rv(SAR_INDATALENERR) + OK + "1" + rv(SAR_KEYUSAGEERR), HANDLE mac; QByteArray out(16, 0), blk = kSm4Key; s.a = kSm4Key; // one block under a zero IV: the cipher's answer
             SKF_SetSymmKey(s.dev, bytes(s.a), SGD_SM4_MAC, &s.h); BLOCKCIPHERPARAM p = param(QByteArray(16, 0), SKF_NO_PADDING); SKF_MacInit(s.h, &p, &mac); s.n = 16;
             QString r = Out() << rv(SKF_Mac(mac, bytes(blk), 16, bytes(out), &s.n)) << ' ' << out.toHex() << rv(SKF_MacUpdate(mac, bytes(blk), 8)); s.n = 16; r += rv(SKF_MacFinal(mac, bytes(out), &s.n));
             SKF_MacUpdate(mac, bytes(blk) + 8, 8); r += Out() << rv(SKF_MacFinal(mac, bytes(out), &s.n)) << QString::number(out == kSm4Cipher); return Out() << r << rv(SKF_EncryptInit(s.h, param(QByteArray(), SKF_NO_PADDING))));
        STEP(OK + "0 3000" + rv(SAR_BUFFER_TOO_SMALL) + "1", s.a = QByteArray(3000, 's'); QString r = rv(EPS_WriteESealData(s.app, bytes(s.a), 3000, 0)); QByteArray back(3000, 0); ULONG shortLen = 10;
             r += Out() << rv(EPS_ReadESealData(s.app, 1, SGD_SM4_ECB, nullptr, &s.n, 0)) << ' ' << QString::number(s.n) << rv(EPS_ReadESealData(s.app, 1, SGD_SM4_ECB, bytes(back), &shortLen, 0));
             EPS_ReadESealData(s.app, 1, SGD_SM4_ECB, bytes(back), &s.n, 0); return Out() << r << QString::number(back == s.a));
        STEP(OK + OK + kSm4Cipher.toHex() + OK + kSm4Key.toHex() + OK + kSm4Cipher.toHex() + rv(SAR_KEYNOTFOUNTERR), // a key by index, wrapped under the encryption key
             QByteArray enc = publicKey(s.c, FALSE), key = kSm4Key, w(181, 0), in = kSm4Key, out(32, 0);
             SKF_ExtECCEncrypt(s.dev, reinterpret_cast<ECCPUBLICKEYBLOB *>(enc.data()), bytes(key), 16, reinterpret_cast<ECCCIPHERBLOB *>(w.data())); QString r = rv(EPS_ImportSymmKey(s.c, 3, bytes(w), 181, 0)); s.n = 32;
             r += Out() << rv(EPS_Encrypt(s.c, 3, SGD_SM4_ECB, nullptr, 0, bytes(in), 16, bytes(out), &s.n, 0)) << out.left(int(s.n)).toHex(); QByteArray c = out.left(16); s.n = 32;
             r += Out() << rv(EPS_Decrypt(s.c, 3, SGD_SM4_ECB, nullptr, 0, bytes(c), 16, bytes(out), &s.n, 0)) << out.left(int(s.n)).toHex(); s.n = 32;
             r += Out() << rv(EPS_Mac(s.c, 3, SGD_SM4_MAC, nullptr, 0, bytes(in), 16, bytes(out), &s.n, 0)) << out.left(int(s.n)).toHex();
             return Out() << r << rv(EPS_Encrypt(s.c, 4, SGD_SM4_ECB, nullptr, 0, bytes(in), 16, bytes(out), &s.n, 0)));
        STEP(rv(SAR_USER_NOT_LOGGED_IN) + "0 3000", DEVHANDLE o = s.fx.connect("tok"); HAPPLICATION a = s.fx.openApp(o); s.n = 0; // the seal write takes the user PIN
             QString r = Out() << rv(EPS_WriteESealData(a, bytes(s.a), 10, 0)) << rv(EPS_ReadESealData(a, 0, 0, nullptr, &s.n, 0)) << ' ' << QString::number(s.n); SKF_DisConnectDev(o); return r);
    }
    void crypto() { TOKEN_STEPS_RUN(steps); }
};

QTEST_GUILESS_MAIN(SoftTokenSkfTest)
#include "tst_softtoken_skf.moc"
