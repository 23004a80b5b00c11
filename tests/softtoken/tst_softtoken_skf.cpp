// The software token's SKF face for devices, applications, PINs, files and
// containers, driven through the exported C functions only.
#include "tokenfixture.h"
#include "tokencrypto.h"

#include <QtTest>

#include <dlfcn.h>

namespace {

QByteArray enumDev(BOOL present, ULONG *rvOut = nullptr)
{
    ULONG size = 0;
    ULONG rv = SKF_EnumDev(present, nullptr, &size);
    QByteArray buf(int(size), '\x7f');
    if (rv == SAR_OK)
        rv = SKF_EnumDev(present, buf.data(), &size);
    if (rvOut)
        *rvOut = rv;
    return buf.left(int(size));
}

QByteArray devAuthAnswer(DEVHANDLE dev, const QByteArray &key = "1234567812345678")
{
    QByteArray rnd(8, '\0');
    if (SKF_GenRandom(dev, reinterpret_cast<BYTE *>(rnd.data()), 8) != SAR_OK)
        return QByteArray();
    QByteArray answer;
    TokenCrypto::sm4(true, TokenCrypto::Sm4Ecb, key, QByteArray(), false, rnd + QByteArray(8, '\0'), &answer);
    return answer;
}

} // namespace

class SoftTokenSkfTest : public QObject
{
    Q_OBJECT

private slots:
    void exportsEveryName();
    void enumeratesPresentDevicesSizeThenFill();
    void connectRefusesUnknownDevices();
    void deviceInfoAndLabel();
    void applicationsNeedDeviceAuthentication();
    void wrongPinsLockAndAdminUnblocks();
    void changePinAndLoginEndsWithDisconnect();
    void filesHonourRightsSizeAndOffsets();
    void containersAndCertificates();
    void randomNumbers();
    void badInputGivesCodesNotCrashes();
    void closedAndForeignHandlesAreRefused();
};

void SoftTokenSkfTest::exportsEveryName()
{
    Dl_info info;
    QVERIFY(dladdr(reinterpret_cast<void *>(&SKF_EnumDev), &info) && info.dli_fname);
    void *lib = dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD);
    QVERIFY(lib);
#define CHECK_ROW(name, required) QVERIFY2(dlsym(lib, #name), #name " is not exported");
    SKF_FUNCTION_ROWS(CHECK_ROW)
#undef CHECK_ROW
    QVERIFY(!dlsym(lib, "_ZN13SoftTokenEngine12createDeviceERKNS_13DeviceOptionsE"));
    dlclose(lib);
}

void SoftTokenSkfTest::enumeratesPresentDevicesSizeThenFill()
{
    TokenFixture fx;
    ULONG rv = 0;
    QCOMPARE(enumDev(TRUE, &rv), QByteArray(1, '\0')); // an empty list is its end mark alone
    QCOMPARE(rv, ULONG(SAR_OK));

    QVERIFY(fx.addDevice("beta"));
    QVERIFY(fx.addDevice("alpha"));
    QVERIFY(fx.addDevice("gamma"));
    QVERIFY(fx.engine().removeDevice("beta"));
    QCOMPARE(enumDev(TRUE), QByteArray("alpha\0gamma\0\0", 13));
    QCOMPARE(TokenFixture::names(enumDev(FALSE)), (QStringList{"alpha", "beta", "gamma"}));

    ULONG size = 5;
    char small[5];
    QCOMPARE(SKF_EnumDev(TRUE, small, &size), ULONG(SAR_BUFFER_TOO_SMALL));
    QCOMPARE(size, ULONG(13));
    QCOMPARE(SKF_EnumDev(TRUE, nullptr, nullptr), ULONG(SAR_INVALIDPARAMERR));

    ULONG state = 99;
    QCOMPARE(SKF_GetDevState(const_cast<char *>("alpha"), &state), ULONG(SAR_OK));
    QCOMPARE(state, ULONG(DEV_PRESENT_STATE));
    QCOMPARE(SKF_GetDevState(const_cast<char *>("beta"), &state), ULONG(SAR_OK));
    QCOMPARE(state, ULONG(DEV_ABSENT_STATE));
    QCOMPARE(SKF_GetDevState(const_cast<char *>("nosuch"), &state), ULONG(SAR_OK));
    QCOMPARE(state, ULONG(DEV_ABSENT_STATE));
}

void SoftTokenSkfTest::connectRefusesUnknownDevices()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("tok"));
    DEVHANDLE dev = reinterpret_cast<DEVHANDLE>(0x1);
    QCOMPARE(SKF_ConnectDev(const_cast<char *>("nosuch"), &dev), ULONG(SAR_INVALIDPARAMERR));
    QVERIFY(!dev);
    QCOMPARE(SKF_ConnectDev(const_cast<char *>("../tok"), &dev), ULONG(SAR_INVALIDPARAMERR));
}

void SoftTokenSkfTest::deviceInfoAndLabel()
{
    TokenFixture fx;
    SoftTokenEngine::DeviceOptions opt;
    opt.name = "tok";
    opt.serial = "SN0123456789ABCDEFGH";
    opt.label = "My Token";
    opt.manufacturer = "Maker";
    opt.issuer = "Issuer";
    opt.totalSpace = 8192;
    QVERIFY2(fx.engine().createDevice(opt), qPrintable(fx.engine().lastError()));
    DEVHANDLE dev = fx.connect("tok");
    QVERIFY(dev);
    DEVINFO info;
    memset(&info, 0xAB, sizeof info);
    QCOMPARE(SKF_GetDevInfo(dev, &info), ULONG(SAR_OK));
    QCOMPARE(QByteArray(info.SerialNumber), QByteArray("SN0123456789ABCDEFGH"));
    QCOMPARE(QByteArray(info.Label), QByteArray("My Token"));
    QCOMPARE(QByteArray(info.Manufacturer), QByteArray("Maker"));
    QCOMPARE(QByteArray(info.Issuer), QByteArray("Issuer"));
    QCOMPARE(int(info.Version.major), 1);
    QCOMPARE(info.TotalSpace, ULONG(8192));
    QCOMPARE(info.FreeSpace, ULONG(8192));
    QVERIFY(info.AlgAsymCap & SGD_SM2_1);
    QVERIFY(info.AlgHashCap & SGD_SM3);

    QCOMPARE(SKF_SetLabel(dev, const_cast<char *>("Renamed")), ULONG(SAR_OK));
    QCOMPARE(SKF_SetLabel(dev, const_cast<char *>("a label far longer than thirty-one bytes")),
             ULONG(SAR_INDATALENERR));
    HAPPLICATION app = fx.openApp(dev);
    QVERIFY(app);
    QCOMPARE(SKF_CreateFile(app, const_cast<char *>("f"), 1000, SECURE_ANYONE_ACCOUNT, SECURE_ANYONE_ACCOUNT),
             ULONG(SAR_OK));
    QCOMPARE(SKF_GetDevInfo(dev, &info), ULONG(SAR_OK));
    QCOMPARE(QByteArray(info.Label), QByteArray("Renamed"));
    QCOMPARE(info.FreeSpace, ULONG(8192 - 1000));
    SKF_DisConnectDev(dev);
}

void SoftTokenSkfTest::applicationsNeedDeviceAuthentication()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("tok"));
    DEVHANDLE dev = fx.connect("tok");
    QVERIFY(dev);
    char list[64];
    ULONG size = sizeof list;
    QCOMPARE(SKF_EnumApplication(dev, list, &size), ULONG(SAR_OK));
    QCOMPARE(QByteArray(list, int(size)), QByteArray("TW_APP\0\0", 8));

    HAPPLICATION app = nullptr;
    char name[] = "SECOND", admin[] = "adminpin1", user[] = "userpin1";
    QCOMPARE(SKF_OpenApplication(dev, name, &app), ULONG(SAR_APPLICATION_NOT_EXISTS));
    QCOMPARE(SKF_CreateApplication(dev, name, admin, 5, user, 5, SECURE_USER_ACCOUNT, &app),
             ULONG(TW_ERR_SECURITY_STATE));
    QByteArray wrong = devAuthAnswer(dev, "0000000000000000");
    QCOMPARE(SKF_DevAuth(dev, reinterpret_cast<BYTE *>(wrong.data()), ULONG(wrong.size())), ULONG(SAR_FAIL));
    QByteArray answer = devAuthAnswer(dev);
    QCOMPARE(SKF_DevAuth(dev, reinterpret_cast<BYTE *>(answer.data()), ULONG(answer.size())), ULONG(SAR_OK));
    QCOMPARE(SKF_CreateApplication(dev, name, admin, 5, user, 5, SECURE_USER_ACCOUNT, &app), ULONG(SAR_OK));
    QVERIFY(app);
    HAPPLICATION again = nullptr;
    QCOMPARE(SKF_CreateApplication(dev, name, admin, 5, user, 5, SECURE_USER_ACCOUNT, &again),
             ULONG(SAR_APPLICATION_EXISTS));
    QCOMPARE(fx.engine().applications("tok"), (QStringList{"TW_APP", "SECOND"}));

    // The new application's own rights: files only after its user PIN.
    QCOMPARE(SKF_CreateFile(app, const_cast<char *>("f"), 4, 0xFF, 0xFF), ULONG(SAR_USER_NOT_LOGGED_IN));
    QVERIFY(fx.login(app, user));
    QCOMPARE(SKF_CreateFile(app, const_cast<char *>("f"), 4, 0xFF, 0xFF), ULONG(SAR_OK));

    QByteArray newKey = "abcdefghijklmnop";
    QCOMPARE(SKF_ChangeDevAuthKey(dev, reinterpret_cast<BYTE *>(newKey.data()), 16), ULONG(SAR_OK));
    QCOMPARE(SKF_DeleteApplication(dev, name), ULONG(SAR_OK));
    QCOMPARE(SKF_DeleteApplication(dev, name), ULONG(SAR_APPLICATION_NOT_EXISTS));
    QCOMPARE(SKF_CreateFile(app, const_cast<char *>("g"), 4, 0xFF, 0xFF), ULONG(SAR_APPLICATION_NOT_EXISTS));
    SKF_DisConnectDev(dev);

    dev = fx.connect("tok");
    answer = devAuthAnswer(dev);
    QCOMPARE(SKF_DevAuth(dev, reinterpret_cast<BYTE *>(answer.data()), 16), ULONG(SAR_FAIL));
    answer = devAuthAnswer(dev, newKey);
    QCOMPARE(SKF_DevAuth(dev, reinterpret_cast<BYTE *>(answer.data()), 16), ULONG(SAR_OK));
    SKF_DisConnectDev(dev);
}

void SoftTokenSkfTest::wrongPinsLockAndAdminUnblocks()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("tok"));
    DEVHANDLE dev = fx.connect("tok");
    HAPPLICATION app = fx.openApp(dev);
    QVERIFY(app);
    ULONG maxRetry = 0, remain = 0, retry = 99;
    BOOL isDefault = FALSE;
    QCOMPARE(SKF_GetPINInfo(app, USER_TYPE, &maxRetry, &remain, &isDefault), ULONG(SAR_OK));
    QCOMPARE(maxRetry, ULONG(6));
    QCOMPARE(remain, ULONG(6));
    QCOMPARE(isDefault, BOOL(TRUE));

    char bad[] = "00000000";
    for (ULONG left = 5; left >= 1; --left) {
        QCOMPARE(SKF_VerifyPIN(app, USER_TYPE, bad, &retry), ULONG(SAR_PIN_INCORRECT));
        QCOMPARE(retry, left);
    }
    QCOMPARE(SKF_VerifyPIN(app, USER_TYPE, bad, &retry), ULONG(SAR_PIN_LOCKED));
    QCOMPARE(retry, ULONG(0));
    char good[] = "12345678";
    QCOMPARE(SKF_VerifyPIN(app, USER_TYPE, good, &retry), ULONG(SAR_PIN_LOCKED));
    SoftTokenEngine::PinState st;
    QVERIFY(fx.engine().pinState("tok", false, &st));
    QCOMPARE(st.remaining, 0);

    char wrongAdmin[] = "11111111", admin[] = "88888888", fresh[] = "87654321";
    QCOMPARE(SKF_UnblockPIN(app, wrongAdmin, fresh, &retry), ULONG(SAR_PIN_INCORRECT));
    QCOMPARE(retry, ULONG(9));
    QCOMPARE(SKF_UnblockPIN(app, admin, const_cast<char *>("123"), &retry), ULONG(SAR_PIN_LEN_RANGE));
    QCOMPARE(SKF_UnblockPIN(app, admin, fresh, &retry), ULONG(SAR_OK));
    QVERIFY(fx.engine().pinState("tok", false, &st));
    QCOMPARE(st.remaining, 6);
    QVERIFY(!st.isDefault);
    QVERIFY(fx.engine().pinState("tok", true, &st));
    QCOMPARE(st.remaining, 10); // a right admin PIN restores its counter
    QCOMPARE(SKF_VerifyPIN(app, USER_TYPE, good, &retry), ULONG(SAR_PIN_INCORRECT));
    QCOMPARE(SKF_VerifyPIN(app, USER_TYPE, fresh, &retry), ULONG(SAR_OK));
    QCOMPARE(SKF_VerifyPIN(app, 7, fresh, &retry), ULONG(SAR_USER_TYPE_INVALID));
    SKF_DisConnectDev(dev);

    // The PINs are kept as salted hashes only.
    QFile file(fx.store() + "/tok/device.json");
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray json = file.readAll();
    QVERIFY(!json.contains("87654321"));
    QVERIFY(!json.contains("88888888"));
    QVERIFY(!json.contains(QByteArray("87654321").toBase64()));
}

void SoftTokenSkfTest::changePinAndLoginEndsWithDisconnect()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("tok", {"c1:sm2"}));
    DEVHANDLE dev = fx.connect("tok");
    HAPPLICATION app = fx.openApp(dev);
    ULONG retry = 0;
    char oldPin[] = "12345678", newPin[] = "abcdef12", shortPin[] = "abc";
    QCOMPARE(SKF_ChangePIN(app, USER_TYPE, oldPin, shortPin, &retry), ULONG(SAR_PIN_LEN_RANGE));
    QCOMPARE(SKF_ChangePIN(app, USER_TYPE, newPin, newPin, &retry), ULONG(SAR_PIN_INCORRECT));
    QCOMPARE(retry, ULONG(5));
    QCOMPARE(SKF_ChangePIN(app, USER_TYPE, oldPin, newPin, &retry), ULONG(SAR_OK));
    HCONTAINER c = nullptr;
    char cname[] = "c2";
    QCOMPARE(SKF_CreateContainer(app, cname, &c), ULONG(SAR_USER_NOT_LOGGED_IN));
    QVERIFY(fx.login(app, newPin));
    QCOMPARE(SKF_CreateContainer(app, cname, &c), ULONG(SAR_OK));
    QCOMPARE(SKF_ClearSecureState(app), ULONG(SAR_OK));
    QCOMPARE(SKF_DeleteContainer(app, cname), ULONG(SAR_USER_NOT_LOGGED_IN));
    QVERIFY(fx.login(app, newPin));
    QCOMPARE(SKF_DisConnectDev(dev), ULONG(SAR_OK));

    dev = fx.connect("tok");
    app = fx.openApp(dev);
    QCOMPARE(SKF_DeleteContainer(app, cname), ULONG(SAR_USER_NOT_LOGGED_IN));
    QVERIFY(fx.login(app, newPin));
    QCOMPARE(SKF_DeleteContainer(app, cname), ULONG(SAR_OK));
    SKF_DisConnectDev(dev);
}

void SoftTokenSkfTest::filesHonourRightsSizeAndOffsets()
{
    TokenFixture fx;
    SoftTokenEngine::DeviceOptions opt;
    opt.name = "tok";
    opt.totalSpace = 4096;
    QVERIFY(fx.engine().createDevice(opt));
    DEVHANDLE dev = fx.connect("tok");
    HAPPLICATION app = fx.openApp(dev);
    char pub[] = "public", priv[] = "private";
    QCOMPARE(SKF_CreateFile(app, pub, 10, SECURE_ANYONE_ACCOUNT, SECURE_ANYONE_ACCOUNT), ULONG(SAR_OK));
    QCOMPARE(SKF_CreateFile(app, pub, 10, SECURE_ANYONE_ACCOUNT, SECURE_ANYONE_ACCOUNT),
             ULONG(SAR_FILE_ALREADY_EXIST));
    QCOMPARE(SKF_CreateFile(app, priv, 4, SECURE_USER_ACCOUNT, SECURE_USER_ACCOUNT), ULONG(SAR_OK));
    QCOMPARE(SKF_CreateFile(app, const_cast<char *>("huge"), 5000, 0xFF, 0xFF), ULONG(SAR_NO_ROOM));
    QCOMPARE(SKF_CreateFile(app, const_cast<char *>("a-name-of-thirty-three-bytes-long"), 1, 0xFF, 0xFF),
             ULONG(SAR_NAMELENERR));

    QByteArray data = "0123456789";
    QCOMPARE(SKF_WriteFile(app, pub, 0, reinterpret_cast<BYTE *>(data.data()), 10), ULONG(SAR_OK));
    QCOMPARE(SKF_WriteFile(app, pub, 8, reinterpret_cast<BYTE *>(data.data()), 3), ULONG(SAR_INDATALENERR));
    QCOMPARE(SKF_WriteFile(app, pub, 11, reinterpret_cast<BYTE *>(data.data()), 1), ULONG(TW_ERR_OFFSET_BEYOND_FILE));
    QCOMPARE(SKF_WriteFile(app, priv, 0, reinterpret_cast<BYTE *>(data.data()), 4), ULONG(SAR_USER_NOT_LOGGED_IN));

    // Size-then-fill, and a read past the end is cut at the end.
    ULONG len = 0;
    QCOMPARE(SKF_ReadFile(app, pub, 6, 10, nullptr, &len), ULONG(SAR_OK));
    QCOMPARE(len, ULONG(4));
    char out[16];
    len = 2;
    QCOMPARE(SKF_ReadFile(app, pub, 6, 10, reinterpret_cast<BYTE *>(out), &len), ULONG(SAR_BUFFER_TOO_SMALL));
    QCOMPARE(len, ULONG(4));
    len = sizeof out;
    QCOMPARE(SKF_ReadFile(app, pub, 6, 10, reinterpret_cast<BYTE *>(out), &len), ULONG(SAR_OK));
    QCOMPARE(QByteArray(out, int(len)), QByteArray("6789"));
    QCOMPARE(SKF_ReadFile(app, pub, 11, 1, reinterpret_cast<BYTE *>(out), &len), ULONG(TW_ERR_OFFSET_BEYOND_FILE));
    len = sizeof out;
    QCOMPARE(SKF_ReadFile(app, priv, 0, 4, reinterpret_cast<BYTE *>(out), &len), ULONG(SAR_USER_NOT_LOGGED_IN));
    QVERIFY(fx.login(app));
    QCOMPARE(SKF_WriteFile(app, priv, 0, reinterpret_cast<BYTE *>(data.data()), 4), ULONG(SAR_OK));
    len = sizeof out;
    QCOMPARE(SKF_ReadFile(app, priv, 0, 4, reinterpret_cast<BYTE *>(out), &len), ULONG(SAR_OK));
    QCOMPARE(QByteArray(out, int(len)), QByteArray("0123"));

    FILEATTRIBUTE attr;
    QCOMPARE(SKF_GetFileInfo(app, priv, &attr), ULONG(SAR_OK));
    QCOMPARE(QByteArray(attr.FileName), QByteArray("private"));
    QCOMPARE(attr.FileSize, ULONG(4));
    QCOMPARE(attr.ReadRights, ULONG(SECURE_USER_ACCOUNT));

    char list[64];
    len = sizeof list;
    QCOMPARE(SKF_EnumFiles(app, list, &len), ULONG(SAR_OK));
    QCOMPARE(TokenFixture::names(QByteArray(list, int(len))), (QStringList{"public", "private"}));
    QCOMPARE(SKF_DeleteFile(app, pub), ULONG(SAR_OK));
    QCOMPARE(SKF_DeleteFile(app, pub), ULONG(SAR_FILE_NOT_EXIST));
    QCOMPARE(SKF_GetFileInfo(app, pub, &attr), ULONG(SAR_FILE_NOT_EXIST));
    QCOMPARE(fx.engine().files("tok").size(), 1);
    SKF_DisConnectDev(dev);
}

void SoftTokenSkfTest::containersAndCertificates()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("tok", {"sm2c:sm2", "rsac:rsa:1024", "empty"}));
    DEVHANDLE dev = nullptr;
    HAPPLICATION app = nullptr;
    HCONTAINER sm2 = fx.ready("tok", "sm2c", &dev, &app);
    QVERIFY(sm2);
    char list[128];
    ULONG len = sizeof list;
    QCOMPARE(SKF_EnumContainer(app, list, &len), ULONG(SAR_OK));
    QCOMPARE(TokenFixture::names(QByteArray(list, int(len))), (QStringList{"sm2c", "rsac", "empty"}));
    ULONG type = 99;
    QCOMPARE(SKF_GetContainerType(sm2, &type), ULONG(SAR_OK));
    QCOMPARE(type, ULONG(CONTAINER_TYPE_ECC));
    HCONTAINER rsa = fx.openContainer(app, "rsac");
    QCOMPARE(SKF_GetContainerType(rsa, &type), ULONG(SAR_OK));
    QCOMPARE(type, ULONG(CONTAINER_TYPE_RSA));
    HCONTAINER empty = fx.openContainer(app, "empty");
    QCOMPARE(SKF_GetContainerType(empty, &type), ULONG(SAR_OK));
    QCOMPARE(type, ULONG(CONTAINER_TYPE_EMPTY));
    HCONTAINER h = nullptr;
    QCOMPARE(SKF_OpenContainer(app, const_cast<char *>("missing"), &h), ULONG(TW_ERR_CONTAINER_NOT_EXIST));
    QCOMPARE(SKF_CreateContainer(app, const_cast<char *>("sm2c"), &h), ULONG(TW_ERR_CONTAINER_EXISTS));

    QByteArray cert(700, 'C');
    ULONG certLen = 0;
    QCOMPARE(SKF_ExportCertificate(sm2, TRUE, nullptr, &certLen), ULONG(SAR_CERTNOTFOUNTERR));
    QCOMPARE(SKF_ImportCertificate(sm2, TRUE, reinterpret_cast<BYTE *>(cert.data()), ULONG(cert.size())),
             ULONG(SAR_OK));
    QCOMPARE(SKF_ExportCertificate(sm2, TRUE, nullptr, &certLen), ULONG(SAR_OK));
    QCOMPARE(certLen, ULONG(700));
    QByteArray back(int(certLen), '\0');
    QCOMPARE(SKF_ExportCertificate(sm2, TRUE, reinterpret_cast<BYTE *>(back.data()), &certLen), ULONG(SAR_OK));
    QCOMPARE(back, cert);
    QCOMPARE(SKF_ExportCertificate(sm2, FALSE, nullptr, &certLen), ULONG(SAR_CERTNOTFOUNTERR));
    const QList<SoftTokenEngine::ContainerInfo> infos = fx.engine().containers("tok");
    QCOMPARE(infos.size(), 3);
    QVERIFY(infos.at(0).hasSignCert && !infos.at(0).hasEncCert && infos.at(0).hasEncKey);

    ULONG blobLen = 0;
    QCOMPARE(SKF_ExportPublicKey(sm2, TRUE, nullptr, &blobLen), ULONG(SAR_OK));
    QCOMPARE(blobLen, ULONG(SKF_ECCPUBLICKEYBLOB_SIZE));
    QCOMPARE(SKF_ExportPublicKey(rsa, FALSE, nullptr, &blobLen), ULONG(SAR_OK));
    QCOMPARE(blobLen, ULONG(SKF_RSAPUBLICKEYBLOB_SIZE));
    QCOMPARE(SKF_ExportPublicKey(empty, TRUE, nullptr, &blobLen), ULONG(SAR_KEYNOTFOUNTERR));

    QCOMPARE(SKF_DeleteContainer(app, const_cast<char *>("sm2c")), ULONG(SAR_OK));
    QCOMPARE(SKF_GetContainerType(sm2, &type), ULONG(TW_ERR_CONTAINER_NOT_EXIST));
    QCOMPARE(SKF_CloseContainer(sm2), ULONG(SAR_OK));
    QCOMPARE(SKF_CloseContainer(sm2), ULONG(SAR_INVALIDHANDLEERR));
    SKF_DisConnectDev(dev);
}

void SoftTokenSkfTest::randomNumbers()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("tok"));
    DEVHANDLE dev = fx.connect("tok");
    QByteArray a(32, '\0'), b(32, '\0');
    QCOMPARE(SKF_GenRandom(dev, reinterpret_cast<BYTE *>(a.data()), 32), ULONG(SAR_OK));
    QCOMPARE(SKF_GenRandom(dev, reinterpret_cast<BYTE *>(b.data()), 32), ULONG(SAR_OK));
    QVERIFY(a != b);
    QVERIFY(a != QByteArray(32, '\0'));
    QCOMPARE(SKF_GenRandom(dev, nullptr, 0), ULONG(SAR_OK));
    QCOMPARE(SKF_GenRandom(dev, nullptr, 6), ULONG(SAR_INVALIDPARAMERR));
    SKF_DisConnectDev(dev);
}

void SoftTokenSkfTest::badInputGivesCodesNotCrashes()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("tok", {"c:sm2"}));
    DEVHANDLE dev = nullptr;
    HAPPLICATION app = nullptr;
    HCONTAINER c = fx.ready("tok", "c", &dev, &app);
    QVERIFY(c);

    QCOMPARE(SKF_ConnectDev(nullptr, &dev), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(SKF_ConnectDev(const_cast<char *>("tok"), nullptr), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(SKF_GetDevInfo(dev, nullptr), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(SKF_EnumApplication(dev, nullptr, nullptr), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(SKF_OpenApplication(dev, nullptr, &app), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(SKF_VerifyPIN(app, USER_TYPE, nullptr, nullptr), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(SKF_GetPINInfo(app, USER_TYPE, nullptr, nullptr, nullptr), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(SKF_CreateFile(app, nullptr, 1, 0xFF, 0xFF), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(SKF_ReadFile(app, const_cast<char *>("x"), 0, 1, nullptr, nullptr), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(SKF_WriteFile(app, const_cast<char *>("x"), 0, nullptr, 4), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(SKF_EnumContainer(app, nullptr, nullptr), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(SKF_ImportCertificate(c, TRUE, nullptr, 10), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(SKF_ExportPublicKey(c, TRUE, nullptr, nullptr), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(SKF_ECCSignData(c, nullptr, 32, nullptr), ULONG(SAR_INVALIDPARAMERR));
    BYTE e[32] = {1};
    ECCSIGNATUREBLOB sig;
    QCOMPARE(SKF_ECCSignData(c, e, 31, &sig), ULONG(SAR_INDATALENERR));
    QCOMPARE(SKF_ECCVerify(dev, nullptr, e, 32, &sig), ULONG(SAR_INVALIDPARAMERR));
    ECCPUBLICKEYBLOB junk;
    memset(&junk, 0x5A, sizeof junk);
    junk.BitLen = 256;
    QCOMPARE(SKF_ECCVerify(dev, &junk, e, 32, &sig), ULONG(SAR_INVALIDPARAMERR)); // not a point on the curve
    QCOMPARE(SKF_DigestInit(dev, SGD_SM3, nullptr, nullptr, 0, nullptr), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(SKF_Digest(nullptr, e, 32, nullptr, nullptr), ULONG(SAR_INVALIDHANDLEERR));
    QCOMPARE(SKF_ImportECCKeyPair(c, nullptr), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(SKF_ImportSessionKey(c, SGD_SM4_ECB, nullptr, 0, nullptr), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(SKF_WaitForDevEvent(nullptr, nullptr, nullptr), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(EPS_ReadESealData(app, 0, 0, nullptr, nullptr, 0), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(EPS_WriteESealData(app, nullptr, 3, 0), ULONG(SAR_INVALIDPARAMERR));

    // A name without its end within bounds is refused, not read past.
    QByteArray longName(4096, 'n');
    QCOMPARE(SKF_CreateFile(app, longName.data(), 1, 0xFF, 0xFF), ULONG(SAR_NAMELENERR));
    SKF_DisConnectDev(dev);
}

void SoftTokenSkfTest::closedAndForeignHandlesAreRefused()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("one", {"c:sm2"}));
    QVERIFY(fx.addDevice("two", {"c:sm2"}));
    DEVHANDLE dev1 = nullptr, dev2 = nullptr;
    HAPPLICATION app1 = nullptr, app2 = nullptr;
    HCONTAINER c1 = fx.ready("one", "c", &dev1, &app1);
    HCONTAINER c2 = fx.ready("two", "c", &dev2, &app2);
    QVERIFY(c1 && c2);

    // Never handed out, or of the wrong kind.
    int local = 0;
    void *unknown = &local;
    DEVINFO info;
    ULONG type = 0, len = 0;
    QCOMPARE(SKF_GetDevInfo(unknown, &info), ULONG(SAR_INVALIDHANDLEERR));
    QCOMPARE(SKF_GetDevInfo(nullptr, &info), ULONG(SAR_INVALIDHANDLEERR));
    QCOMPARE(SKF_GetDevInfo(app1, &info), ULONG(SAR_INVALIDHANDLEERR));
    QCOMPARE(SKF_GetContainerType(app1, &type), ULONG(SAR_INVALIDHANDLEERR));
    QCOMPARE(SKF_EnumFiles(c1, nullptr, &len), ULONG(SAR_INVALIDHANDLEERR));
    QCOMPARE(SKF_CloseHandle(c1), ULONG(SAR_INVALIDHANDLEERR));
    QCOMPARE(SKF_DisConnectDev(app1), ULONG(SAR_INVALIDHANDLEERR));

    HANDLE hash = nullptr;
    QCOMPARE(SKF_DigestInit(dev1, SGD_SM3, nullptr, nullptr, 0, &hash), ULONG(SAR_OK));
    QCOMPARE(SKF_DisConnectDev(dev1), ULONG(SAR_OK));
    // Everything of the closed connection is gone; the other device is not.
    QCOMPARE(SKF_GetDevInfo(dev1, &info), ULONG(SAR_INVALIDHANDLEERR));
    QCOMPARE(SKF_EnumFiles(app1, nullptr, &len), ULONG(SAR_INVALIDHANDLEERR));
    QCOMPARE(SKF_GetContainerType(c1, &type), ULONG(SAR_INVALIDHANDLEERR));
    QCOMPARE(SKF_Digest(hash, reinterpret_cast<BYTE *>(&local), 1, nullptr, &len), ULONG(SAR_INVALIDHANDLEERR));
    QCOMPARE(SKF_DisConnectDev(dev1), ULONG(SAR_INVALIDHANDLEERR));
    QCOMPARE(SKF_GetContainerType(c2, &type), ULONG(SAR_OK));
    QCOMPARE(type, ULONG(CONTAINER_TYPE_ECC));

    QCOMPARE(SKF_CloseApplication(app2), ULONG(SAR_OK));
    QCOMPARE(SKF_GetContainerType(c2, &type), ULONG(SAR_INVALIDHANDLEERR));
    QCOMPARE(SKF_CloseApplication(app2), ULONG(SAR_INVALIDHANDLEERR));
    QCOMPARE(SKF_GetDevInfo(dev2, &info), ULONG(SAR_OK));
    SKF_DisConnectDev(dev2);
}

QTEST_GUILESS_MAIN(SoftTokenSkfTest)
#include "tst_softtoken_skf.moc"
