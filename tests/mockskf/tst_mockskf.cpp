// The test token library as the other tests rely on it: the standard's
// calling forms, handles, PIN rules, fake crypto, faults, the call log and
// the build variants that lack some names.
#include "mockcontrol.h"

#include <QLibrary>
#include <QTest>

#include <cstring>

#include <dlfcn.h>

namespace {

// One function of the library under test, by its own name and type.
#define MOCK_FN(name) reinterpret_cast<decltype(&::name)>(m_lib.resolve(#name))

const char *const kAllNames[] = {
#define MOCK_ROW_NAME(name, required) #name,
    SKF_FUNCTION_ROWS(MOCK_ROW_NAME)
#undef MOCK_ROW_NAME
};

bool exports(const char *path, const char *name)
{
    void *h = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    return h && dlsym(h, name);
}

QByteArray bytes(const BYTE *p, ULONG n)
{
    return QByteArray(reinterpret_cast<const char *>(p), int(n));
}

} // namespace

class TestMockSkf : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void exportsEveryBoundName();
    void variantsLackTheirNames();
    void enumDevIsSizeThenFillWithoutAbsentDevices();
    void handlesAreCheckedAndDieWithTheDevice();
    void pinRetriesLockAndUnblock();
    void filesKeepDataAndRights();
    void eccSignatureVerifiesOnlyForItsData();
    void digestLengthsFollowTheAlgorithmAndSizeLies();
    void publicKeySizeFollowsContainerType();
    void sessionKeyRoundTrip();
    void sealIsSizeThenFill();
    void faultsAnswerAfterLoggingForTheirCount();

private:
    DEVHANDLE connect(const char *dev);
    HAPPLICATION openApp(DEVHANDLE dev, const char *app);

    MockControl m_mock;
    QLibrary m_lib{QStringLiteral(MOCKSKF_PATH)};
};

void TestMockSkf::initTestCase()
{
    QVERIFY2(m_mock.isLoaded(), qPrintable(m_mock.errorString()));
    QVERIFY2(m_lib.load(), qPrintable(m_lib.errorString()));
}

void TestMockSkf::init()
{
    m_mock.reset();
    m_mock.add_device("dev1", "SERIAL-0001");
    m_mock.add_app("dev1", "APP");
    m_mock.add_container("dev1", "APP", "ECC1", CONTAINER_TYPE_ECC);
    m_mock.add_container("dev1", "APP", "RSA1", CONTAINER_TYPE_RSA);
}

DEVHANDLE TestMockSkf::connect(const char *dev)
{
    DEVHANDLE h = nullptr;
    const ULONG r = MOCK_FN(SKF_ConnectDev)(const_cast<LPSTR>(dev), &h);
    return r == SAR_OK ? h : nullptr;
}

HAPPLICATION TestMockSkf::openApp(DEVHANDLE dev, const char *app)
{
    HAPPLICATION h = nullptr;
    const ULONG r = MOCK_FN(SKF_OpenApplication)(dev, const_cast<LPSTR>(app), &h);
    return r == SAR_OK ? h : nullptr;
}

void TestMockSkf::exportsEveryBoundName()
{
    QCOMPARE(int(sizeof kAllNames / sizeof kAllNames[0]), 80);
    for (const char *name : kAllNames)
        QVERIFY2(exports(MOCKSKF_PATH, name), name);
}

void TestMockSkf::variantsLackTheirNames()
{
    for (const char *name : {"EPS_Decrypt", "EPS_Encrypt", "EPS_ImportSymmKey", "EPS_Mac", "EPS_ReadESealData",
                             "EPS_WriteESealData"})
        QVERIFY2(!exports(MOCKSKF_NOEPS_PATH, name), name);
    QVERIFY(exports(MOCKSKF_NOEPS_PATH, "SKF_WaitForDevEvent"));

    QVERIFY(!exports(MOCKSKF_NOWAIT_PATH, "SKF_WaitForDevEvent"));
    QVERIFY(exports(MOCKSKF_NOWAIT_PATH, "EPS_Decrypt"));

    QVERIFY(!exports(MOCKSKF_NOEPSDECRYPT_NODISCONNECT_PATH, "EPS_Decrypt"));
    QVERIFY(!exports(MOCKSKF_NOEPSDECRYPT_NODISCONNECT_PATH, "SKF_DisConnectDev"));
    QVERIFY(exports(MOCKSKF_NOEPSDECRYPT_NODISCONNECT_PATH, "EPS_Encrypt"));
    QVERIFY(exports(MOCKSKF_NOEPSDECRYPT_NODISCONNECT_PATH, "SKF_ConnectDev"));

    QVERIFY(!QLibrary(QStringLiteral(NOTALIB_PATH)).load());
}

void TestMockSkf::enumDevIsSizeThenFillWithoutAbsentDevices()
{
    m_mock.add_device("dev2", "SERIAL-0002");
    m_mock.add_device("gone", "SERIAL-0003");
    m_mock.set_present("gone", 0);
    m_mock.clearCalls();
    auto enumDev = MOCK_FN(SKF_EnumDev);

    ULONG size = 0;
    QCOMPARE(enumDev(TRUE, nullptr, &size), ULONG(SAR_OK));
    QCOMPARE(size, ULONG(11)); // "dev1\0dev2\0\0"
    char small[4];
    ULONG smallSize = sizeof small;
    QCOMPARE(enumDev(TRUE, small, &smallSize), ULONG(SAR_BUFFER_TOO_SMALL));
    QCOMPARE(smallSize, size);
    QByteArray buf(int(size), 'x');
    QCOMPARE(enumDev(TRUE, buf.data(), &size), ULONG(SAR_OK));
    QCOMPARE(buf, QByteArray("dev1\0dev2\0\0", 11));

    ULONG all = 0;
    QCOMPARE(enumDev(FALSE, nullptr, &all), ULONG(SAR_OK));
    QCOMPARE(all, ULONG(16));

    const QStringList calls = m_mock.calls();
    QCOMPARE(calls.value(0), QStringLiteral("SKF_EnumDev present=1 buf=null size=0"));
    QCOMPARE(calls.value(2), QStringLiteral("SKF_EnumDev present=1 buf=set size=11"));
    QCOMPARE(m_mock.count("SKF_EnumDev"), 4);

    // No device at all: an empty list of 0 bytes, and a size query can lie.
    m_mock.reset();
    size = 99;
    QCOMPARE(enumDev(TRUE, nullptr, &size), ULONG(SAR_OK));
    QCOMPARE(size, ULONG(0));
    m_mock.size_delta("SKF_EnumDev", 3);
    QCOMPARE(enumDev(TRUE, nullptr, &size), ULONG(SAR_OK));
    QCOMPARE(size, ULONG(3));
}

void TestMockSkf::handlesAreCheckedAndDieWithTheDevice()
{
    DEVHANDLE dev = connect("dev1");
    QVERIFY(dev);
    DEVINFO info;
    QCOMPARE(MOCK_FN(SKF_GetDevInfo)(dev, &info), ULONG(SAR_OK));
    QCOMPARE(QByteArray(info.SerialNumber), QByteArray("SERIAL-0001"));
    QCOMPARE(QByteArray(info.Label), QByteArray("dev1"));

    int bogus = 0;
    QCOMPARE(MOCK_FN(SKF_GetDevInfo)(&bogus, &info), ULONG(SAR_INVALIDHANDLEERR));
    HAPPLICATION app = openApp(dev, "APP");
    QVERIFY(app);
    // An application handle is no device handle.
    QCOMPARE(MOCK_FN(SKF_GetDevInfo)(app, &info), ULONG(SAR_INVALIDHANDLEERR));

    BYTE random[6];
    m_mock.set_present("dev1", 0);
    QCOMPARE(MOCK_FN(SKF_GenRandom)(dev, random, 6), ULONG(SAR_DEVICE_REMOVED));
    QVERIFY(!connect("dev1"));
    m_mock.set_present("dev1", 1);
    // Back again, the old handles stay dead; a new connect works.
    QCOMPARE(MOCK_FN(SKF_GenRandom)(dev, random, 6), ULONG(SAR_DEVICE_REMOVED));
    ULONG size = 0;
    QCOMPARE(MOCK_FN(SKF_EnumFiles)(app, nullptr, &size), ULONG(SAR_DEVICE_REMOVED));
    DEVHANDLE again = connect("dev1");
    QVERIFY(again);
    QCOMPARE(MOCK_FN(SKF_GenRandom)(again, random, 6), ULONG(SAR_OK));
    QVERIFY(m_mock.calls().contains(QStringLiteral("SKF_GenRandom dev=dev1 len=6")));

    QCOMPARE(MOCK_FN(SKF_DisConnectDev)(again), ULONG(SAR_OK));
    QCOMPARE(MOCK_FN(SKF_GenRandom)(again, random, 6), ULONG(SAR_INVALIDHANDLEERR));
    QVERIFY(m_mock.calls().contains(QStringLiteral("SKF_DisConnectDev dev=dev1")));
    QVERIFY(!connect("nosuchdev"));
}

void TestMockSkf::pinRetriesLockAndUnblock()
{
    m_mock.set_pin("dev1", "APP", USER_TYPE, "123456", 3);
    HAPPLICATION app = openApp(connect("dev1"), "APP");
    QVERIFY(app);
    auto verify = MOCK_FN(SKF_VerifyPIN);
    ULONG retry = 99;

    QCOMPARE(verify(app, USER_TYPE, const_cast<LPSTR>("000000"), &retry), ULONG(SAR_PIN_INCORRECT));
    QCOMPARE(retry, ULONG(2));
    QCOMPARE(verify(app, USER_TYPE, const_cast<LPSTR>("123456"), &retry), ULONG(SAR_OK));
    QCOMPARE(m_mock.pin_retries("dev1", "APP", USER_TYPE), 3u);
    QVERIFY(m_mock.logged_in("dev1", "APP", USER_TYPE));
    QVERIFY(m_mock.calls().contains(QStringLiteral("SKF_VerifyPIN type=1 pin=123456")));

    for (int i = 0; i < 2; ++i)
        QCOMPARE(verify(app, USER_TYPE, const_cast<LPSTR>("000000"), &retry), ULONG(SAR_PIN_INCORRECT));
    QCOMPARE(verify(app, USER_TYPE, const_cast<LPSTR>("000000"), &retry), ULONG(SAR_PIN_LOCKED));
    QCOMPARE(verify(app, USER_TYPE, const_cast<LPSTR>("123456"), &retry), ULONG(SAR_PIN_LOCKED));
    QVERIFY(!m_mock.logged_in("dev1", "APP", USER_TYPE));

    ULONG maxRetry = 0, remain = 9;
    BOOL isDefault = TRUE;
    QCOMPARE(MOCK_FN(SKF_GetPINInfo)(app, USER_TYPE, &maxRetry, &remain, &isDefault), ULONG(SAR_OK));
    QCOMPARE(maxRetry, ULONG(3));
    QCOMPARE(remain, ULONG(0));

    auto unblock = MOCK_FN(SKF_UnblockPIN);
    QCOMPARE(unblock(app, const_cast<LPSTR>("wrong"), const_cast<LPSTR>("654321"), &retry), ULONG(SAR_PIN_INCORRECT));
    QCOMPARE(unblock(app, const_cast<LPSTR>("88888888"), const_cast<LPSTR>("654321"), &retry), ULONG(SAR_OK));
    QVERIFY(m_mock.pin_is("dev1", "APP", USER_TYPE, "654321"));
    QCOMPARE(verify(app, USER_TYPE, const_cast<LPSTR>("654321"), &retry), ULONG(SAR_OK));

    QCOMPARE(MOCK_FN(SKF_ChangePIN)(app, ADMIN_TYPE, const_cast<LPSTR>("88888888"), const_cast<LPSTR>("newadmin"),
                                    &retry),
             ULONG(SAR_OK));
    QVERIFY(m_mock.pin_is("dev1", "APP", ADMIN_TYPE, "newadmin"));
}

void TestMockSkf::filesKeepDataAndRights()
{
    HAPPLICATION app = openApp(connect("dev1"), "APP");
    QVERIFY(app);
    QCOMPARE(MOCK_FN(SKF_CreateFile)(app, const_cast<LPSTR>("a"), 10, 0xFF, 0xFF), ULONG(SAR_OK));
    QCOMPARE(MOCK_FN(SKF_CreateFile)(app, const_cast<LPSTR>("a"), 10, 0xFF, 0xFF), ULONG(SAR_FILE_ALREADY_EXIST));
    BYTE data[] = {1, 2, 3};
    QCOMPARE(MOCK_FN(SKF_WriteFile)(app, const_cast<LPSTR>("a"), 8, data, 3), ULONG(SAR_FILEERR));
    QCOMPARE(MOCK_FN(SKF_WriteFile)(app, const_cast<LPSTR>("a"), 7, data, 3), ULONG(SAR_OK));
    QCOMPARE(m_mock.fileData("dev1", "APP", "a"), QByteArray("\0\0\0\0\0\0\0\1\2\3", 10));

    // A read from an offset is clipped at the end of the file.
    BYTE out[16];
    ULONG outLen = sizeof out;
    QCOMPARE(MOCK_FN(SKF_ReadFile)(app, const_cast<LPSTR>("a"), 6, 10, out, &outLen), ULONG(SAR_OK));
    QCOMPARE(bytes(out, outLen), QByteArray("\0\1\2\3", 4));
    QVERIFY(m_mock.calls().contains(QStringLiteral("SKF_ReadFile name=a off=6 size=10")));

    m_mock.addFile("dev1", "APP", "secret", QByteArray("xyz"));
    m_mock.set_file_rights("dev1", "APP", "secret", SECURE_USER_ACCOUNT, SECURE_USER_ACCOUNT);
    outLen = sizeof out;
    QCOMPARE(MOCK_FN(SKF_ReadFile)(app, const_cast<LPSTR>("secret"), 0, 3, out, &outLen),
             ULONG(SAR_USER_NOT_LOGGED_IN));
    ULONG retry;
    QCOMPARE(MOCK_FN(SKF_VerifyPIN)(app, USER_TYPE, const_cast<LPSTR>("12345678"), &retry), ULONG(SAR_OK));
    outLen = sizeof out;
    QCOMPARE(MOCK_FN(SKF_ReadFile)(app, const_cast<LPSTR>("secret"), 0, 3, out, &outLen), ULONG(SAR_OK));
    QCOMPARE(bytes(out, outLen), QByteArray("xyz"));

    char list[32];
    ULONG size = sizeof list;
    QCOMPARE(MOCK_FN(SKF_EnumFiles)(app, list, &size), ULONG(SAR_OK));
    QCOMPARE(QByteArray(list, int(size)), QByteArray("a\0secret\0\0", 10));
    QCOMPARE(MOCK_FN(SKF_DeleteFile)(app, const_cast<LPSTR>("a")), ULONG(SAR_OK));
    QVERIFY(!m_mock.file_exists("dev1", "APP", "a"));
    QCOMPARE(MOCK_FN(SKF_DeleteFile)(app, const_cast<LPSTR>("a")), ULONG(SAR_FILE_NOT_EXIST));

    m_mock.set_space("dev1", 100);
    QCOMPARE(MOCK_FN(SKF_CreateFile)(app, const_cast<LPSTR>("big"), 98, 0xFF, 0xFF), ULONG(SAR_NO_ROOM));
}

void TestMockSkf::eccSignatureVerifiesOnlyForItsData()
{
    DEVHANDLE dev = connect("dev1");
    HAPPLICATION app = openApp(dev, "APP");
    HCONTAINER c = nullptr;
    QCOMPARE(MOCK_FN(SKF_OpenContainer)(app, const_cast<LPSTR>("ECC1"), &c), ULONG(SAR_OK));
    BYTE data[32];
    memset(data, 0x42, sizeof data);
    ECCSIGNATUREBLOB sig;
    QCOMPARE(MOCK_FN(SKF_ECCSignData)(c, data, sizeof data, &sig), ULONG(SAR_USER_NOT_LOGGED_IN));
    ULONG retry;
    QCOMPARE(MOCK_FN(SKF_VerifyPIN)(app, USER_TYPE, const_cast<LPSTR>("12345678"), &retry), ULONG(SAR_OK));
    QCOMPARE(MOCK_FN(SKF_ECCSignData)(c, data, sizeof data, &sig), ULONG(SAR_OK));
    const QByteArray blob = bytes(reinterpret_cast<BYTE *>(&sig), sizeof sig);
    QCOMPARE(blob.size(), 128);
    QCOMPARE(blob.left(32), QByteArray(32, '\0'));
    QCOMPARE(blob.mid(32, 8), QByteArray("mock-r::"));
    QCOMPARE(blob.mid(64, 32), QByteArray(32, '\0'));
    QCOMPARE(blob.mid(96, 8), QByteArray("mock-s::"));

    ECCPUBLICKEYBLOB pub;
    ULONG len = sizeof pub;
    QCOMPARE(MOCK_FN(SKF_ExportPublicKey)(c, TRUE, reinterpret_cast<BYTE *>(&pub), &len), ULONG(SAR_OK));
    auto verify = MOCK_FN(SKF_ECCVerify);
    QCOMPARE(verify(dev, &pub, data, sizeof data, &sig), ULONG(SAR_OK));
    data[0] ^= 1;
    QVERIFY(verify(dev, &pub, data, sizeof data, &sig) != SAR_OK);
    data[0] ^= 1;
    ECCPUBLICKEYBLOB encPub;
    len = sizeof encPub;
    QCOMPARE(MOCK_FN(SKF_ExportPublicKey)(c, FALSE, reinterpret_cast<BYTE *>(&encPub), &len), ULONG(SAR_OK));
    QVERIFY(verify(dev, &encPub, data, sizeof data, &sig) != SAR_OK);
}

void TestMockSkf::digestLengthsFollowTheAlgorithmAndSizeLies()
{
    DEVHANDLE dev = connect("dev1");
    auto init = MOCK_FN(SKF_DigestInit);
    auto digest = MOCK_FN(SKF_Digest);
    BYTE data[] = {'a', 'b', 'c'};
    BYTE out[64];
    const struct
    {
        ULONG alg;
        ULONG len;
    } cases[] = {{SGD_SM3, 32}, {SGD_SHA1, 20}, {SGD_SHA256, 32}};
    for (const auto &c : cases) {
        HANDLE h = nullptr;
        QCOMPARE(init(dev, c.alg, nullptr, nullptr, 0, &h), ULONG(SAR_OK));
        ULONG len = 0;
        QCOMPARE(digest(h, data, 3, nullptr, &len), ULONG(SAR_OK));
        QCOMPARE(len, c.len);
        QCOMPARE(digest(h, data, 3, out, &len), ULONG(SAR_OK));
        QCOMPARE(len, c.len);
    }
    HANDLE h = nullptr;
    QCOMPARE(init(dev, 3, nullptr, nullptr, 0, &h), ULONG(SAR_NOTSUPPORTYETERR));

    // The public key and id enter an SM3 hash: another key, another value.
    ECCPUBLICKEYBLOB k1, k2;
    memset(&k1, 1, sizeof k1);
    memset(&k2, 2, sizeof k2);
    unsigned char id[] = "1234567812345678";
    QByteArray values[2];
    ECCPUBLICKEYBLOB *keys[] = {&k1, &k2};
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(init(dev, SGD_SM3, keys[i], id, 16, &h), ULONG(SAR_OK));
        ULONG len = 32;
        QCOMPARE(digest(h, data, 3, out, &len), ULONG(SAR_OK));
        values[i] = bytes(out, len);
    }
    QVERIFY(values[0] != values[1]);
    QVERIFY(m_mock.calls().contains(QStringLiteral("SKF_DigestInit alg=1 pubkey=set idlen=16 id=1234567812345678")));

    m_mock.size_delta("SKF_Digest", -12);
    QCOMPARE(init(dev, SGD_SM3, nullptr, nullptr, 0, &h), ULONG(SAR_OK));
    ULONG len = 0;
    QCOMPARE(digest(h, data, 3, nullptr, &len), ULONG(SAR_OK));
    QCOMPARE(len, ULONG(20));
    len = 32;
    memset(out, 0, sizeof out);
    QCOMPARE(digest(h, data, 3, out, &len), ULONG(SAR_OK));
    QVERIFY(bytes(out + 20, 12) != QByteArray(12, '\0'));
}

void TestMockSkf::publicKeySizeFollowsContainerType()
{
    HAPPLICATION app = openApp(connect("dev1"), "APP");
    m_mock.add_container("dev1", "APP", "EMPTY", CONTAINER_TYPE_EMPTY);
    const struct
    {
        const char *name;
        ULONG result;
        ULONG size;
    } cases[] = {{"ECC1", SAR_OK, 132}, {"RSA1", SAR_OK, 268}, {"EMPTY", SAR_KEYNOTFOUNTERR, 0}};
    for (const auto &c : cases) {
        HCONTAINER h = nullptr;
        QCOMPARE(MOCK_FN(SKF_OpenContainer)(app, const_cast<LPSTR>(c.name), &h), ULONG(SAR_OK));
        ULONG size = 0;
        QCOMPARE(MOCK_FN(SKF_ExportPublicKey)(h, TRUE, nullptr, &size), c.result);
        QCOMPARE(size, c.size);
        ULONG type = 99;
        QCOMPARE(MOCK_FN(SKF_GetContainerType)(h, &type), ULONG(SAR_OK));
        QCOMPARE(type, ULONG(m_mock.container_type("dev1", "APP", c.name)));
    }
    HCONTAINER h = nullptr;
    QCOMPARE(MOCK_FN(SKF_OpenContainer)(app, const_cast<LPSTR>("nosuch"), &h), ULONG(TW_ERR_CONTAINER_NOT_EXIST));
}

void TestMockSkf::sessionKeyRoundTrip()
{
    HAPPLICATION app = openApp(connect("dev1"), "APP");
    ULONG retry;
    QCOMPARE(MOCK_FN(SKF_VerifyPIN)(app, USER_TYPE, const_cast<LPSTR>("12345678"), &retry), ULONG(SAR_OK));
    HCONTAINER c = nullptr;
    QCOMPARE(MOCK_FN(SKF_OpenContainer)(app, const_cast<LPSTR>("ECC1"), &c), ULONG(SAR_OK));
    BYTE wrapped[16];
    memset(wrapped, 0x5A, sizeof wrapped);
    HANDLE key = nullptr;
    QCOMPARE(MOCK_FN(SKF_ImportSessionKey)(c, SGD_SM4_ECB, wrapped, 16, &key), ULONG(SAR_OK));
    QVERIFY(m_mock.calls().contains(QStringLiteral("SKF_ImportSessionKey len=16 alg=1025")));

    BYTE plain[] = "hello token";
    BYTE cipher[32], back[32];
    ULONG len = 0;
    QCOMPARE(MOCK_FN(SKF_Encrypt)(key, plain, 11, nullptr, &len), ULONG(SAR_NOTINITIALIZEERR));
    BLOCKCIPHERPARAM param = {};
    QCOMPARE(MOCK_FN(SKF_EncryptInit)(key, param), ULONG(SAR_OK));
    QCOMPARE(MOCK_FN(SKF_Encrypt)(key, plain, 11, nullptr, &len), ULONG(SAR_OK));
    QCOMPARE(len, ULONG(11));
    QCOMPARE(MOCK_FN(SKF_Encrypt)(key, plain, 11, cipher, &len), ULONG(SAR_OK));
    QVERIFY(bytes(cipher, 11) != bytes(plain, 11));
    QCOMPARE(MOCK_FN(SKF_DecryptInit)(key, param), ULONG(SAR_OK));
    len = sizeof back;
    QCOMPARE(MOCK_FN(SKF_Decrypt)(key, cipher, 11, back, &len), ULONG(SAR_OK));
    QCOMPARE(bytes(back, len), bytes(plain, 11));

    QCOMPARE(MOCK_FN(SKF_CloseHandle)(key), ULONG(SAR_OK));
    QCOMPARE(MOCK_FN(SKF_CloseHandle)(key), ULONG(SAR_INVALIDHANDLEERR));
}

void TestMockSkf::sealIsSizeThenFill()
{
    HAPPLICATION app = openApp(connect("dev1"), "APP");
    auto read = MOCK_FN(EPS_ReadESealData);
    ULONG size = 7;
    QCOMPARE(read(app, 1, 0, nullptr, &size, 0), ULONG(SAR_OK));
    QCOMPARE(size, ULONG(0));
    BYTE seal[] = "SEAL-DATA";
    QCOMPARE(MOCK_FN(EPS_WriteESealData)(app, seal, 9, 0), ULONG(SAR_OK));
    QCOMPARE(m_mock.sealData("dev1", "APP"), QByteArray("SEAL-DATA"));
    QCOMPARE(read(app, 1, 0, nullptr, &size, 0), ULONG(SAR_OK));
    QCOMPARE(size, ULONG(9));
    BYTE out[16];
    size = 4;
    QCOMPARE(read(app, 1, 0, out, &size, 0), ULONG(SAR_BUFFER_TOO_SMALL));
    size = sizeof out;
    QCOMPARE(read(app, 1, 0, out, &size, 0), ULONG(SAR_OK));
    QCOMPARE(bytes(out, size), QByteArray("SEAL-DATA"));
    QVERIFY(m_mock.calls().contains(QStringLiteral("EPS_ReadESealData index=1 alg=0 buf=null size=7 flags=0")));
}

void TestMockSkf::faultsAnswerAfterLoggingForTheirCount()
{
    DEVHANDLE dev = connect("dev1");
    BYTE random[6];
    m_mock.fail("SKF_GenRandom", SAR_GENRANDERR, 2);
    m_mock.clearCalls();
    QCOMPARE(MOCK_FN(SKF_GenRandom)(dev, random, 6), ULONG(SAR_GENRANDERR));
    QCOMPARE(MOCK_FN(SKF_GenRandom)(dev, random, 6), ULONG(SAR_GENRANDERR));
    QCOMPARE(MOCK_FN(SKF_GenRandom)(dev, random, 6), ULONG(SAR_OK));
    QCOMPARE(m_mock.count("SKF_GenRandom"), 3);
    QCOMPARE(m_mock.count("SKF_Gen"), 0);

    // A fault does nothing else: the connect it stands for makes no handle.
    m_mock.fail("SKF_ConnectDev", SAR_FAIL, -1);
    for (int i = 0; i < 3; ++i)
        QVERIFY(!connect("dev1"));
    m_mock.clear_faults();
    QVERIFY(connect("dev1"));
    QCOMPARE(m_mock.count("SKF_ConnectDev"), 4);
}

QTEST_GUILESS_MAIN(TestMockSkf)
#include "tst_mockskf.moc"
