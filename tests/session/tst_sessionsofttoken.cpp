// The daily operations of a key session against the software token, driven
// the way a signature application drives them: through the library's entry
// points and by method name. PIN counters, files, containers and PINs are
// read back from the token's own store.
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

#include "isolatedtest.h"
#include "kdpfixture.h"
#include "skf/skfapi.h"
#include "softtokenengine.h"
#include "testhost.h"
#include "twdeviceguard.h"

namespace {

const char kDevice[] = "token1";
const char kAdminPin[] = "88888888";
const char kUserPin[] = "12345678";
const char kBuiltInAdminPin[] = "QmVR2kdLZTTHpXsa";
const char kDefaultUserPin[] = "482915";
const int kUserRetries = 6;

QString str(const char *text)
{
    return QString::fromLatin1(text);
}

} // namespace

class TestSessionSoftToken : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void userPinLengthSpendsNoRetry();
    void wrongPinSpendsOneRetry();
    void resetUserPinWithBuiltInAdminPin();
    void resetUserPinWithPackageAdminPin();
    void filesPutListGetReplaceDelete();
    void containersAndCertificates();
    void formatKeyKeepsContainersAndMovesAdminPin();
    void pulledTokenClosesTheSession();

private:
    // A token in the store: one application, the default PINs, and the
    // given containers.
    bool createToken(const QString &adminPin = str(kAdminPin), const QStringList &containers = {str("c1")});
    // A package over the software token, with the `ap` of the token's
    // default administrator PIN unless told otherwise.
    QString packageRoot(const QString &adminPinInPackage = str(kAdminPin));
    // Starts the host, counts and opens key 0; null on failure.
    QObject *openKey(TestHost &host);
    SoftTokenEngine::PinState pinState(bool admin) const;
    QList<SoftTokenEngine::FileInfo> files() const;

    TwDeviceGuard m_guard;
    QTemporaryDir m_store;
    KdpFixture m_kdp;
};

void TestSessionSoftToken::initTestCase()
{
    QVERIFY2(QFileInfo(QStringLiteral(SOFTTOKEN_SKF)).isFile(), "the software token library is not built");
    QVERIFY(m_store.isValid() && m_kdp.isValid());
    qputenv("SOFTTOKEN_STORE", QFile::encodeName(m_store.path()));
}

bool TestSessionSoftToken::createToken(const QString &adminPin, const QStringList &containers)
{
    SoftTokenEngine engine(m_store.path());
    SoftTokenEngine::DeviceOptions options;
    options.name = str(kDevice);
    options.adminPin = adminPin;
    options.userPin = str(kUserPin);
    options.userRetries = kUserRetries;
    for (const QString &name : containers)
        options.containers << SoftTokenEngine::ContainerSetup{name, SoftTokenEngine::ContainerSetup::Sm2};
    if (engine.createDevice(options))
        return true;
    QTest::qFail(qPrintable(engine.lastError()), __FILE__, __LINE__);
    return false;
}

QString TestSessionSoftToken::packageRoot(const QString &adminPinInPackage)
{
    KdpConfig config;
    config.name = QStringLiteral("softtoken");
    config.argument = QStringLiteral("libsofttoken-skf.so");
    if (!adminPinInPackage.isEmpty())
        config.ap = KdpFixture::encodeAdminPin(adminPinInPackage);
    if (m_kdp.addPackage(QStringLiteral("softtoken"), config, QStringLiteral(SOFTTOKEN_SKF)).isEmpty())
        return QString();
    return m_kdp.root();
}

QObject *TestSessionSoftToken::openKey(TestHost &host)
{
    if (!host.start()) {
        QTest::qFail(qPrintable(host.errorString()), __FILE__, __LINE__);
        return nullptr;
    }
    if (host.count() != 1) {
        QTest::qFail("the software token is not counted", __FILE__, __LINE__);
        return nullptr;
    }
    return host.open(0);
}

SoftTokenEngine::PinState TestSessionSoftToken::pinState(bool admin) const
{
    SoftTokenEngine::PinState state;
    SoftTokenEngine(m_store.path()).pinState(str(kDevice), admin, &state);
    return state;
}

QList<SoftTokenEngine::FileInfo> TestSessionSoftToken::files() const
{
    return SoftTokenEngine(m_store.path()).files(str(kDevice));
}

// ---------------------------------------------------------------------------

void TestSessionSoftToken::userPinLengthSpendsNoRetry()
{
    QVERIFY(createToken());
    TestHost host(packageRoot());
    QObject *key = openKey(host);
    QVERIFY(key);

    for (const QString &pin : {QStringLiteral("12345"), QStringLiteral("12345678901234567")}) {
        host.core().setLastError(0);
        QVERIFY(!host.call<bool>(key, "verifyPin", pin, false));
        QCOMPARE(host.lastError(), uint(TW_ERR_OLD_PIN_LEN));
        QCOMPARE(pinState(false).remaining, kUserRetries);
    }
    // The administrator PIN has no length rule: the token judges it.
    QVERIFY(!host.call<bool>(key, "verifyPin", QStringLiteral("12"), true));
    QCOMPARE(pinState(true).remaining, pinState(true).maxRetries - 1);
}

void TestSessionSoftToken::wrongPinSpendsOneRetry()
{
    QVERIFY(createToken());
    TestHost host(packageRoot());
    QObject *key = openKey(host);
    QVERIFY(key);

    QVERIFY(!host.call<bool>(key, "verifyPin", QStringLiteral("87654321"), false));
    QCOMPARE(host.lastError(), uint(SAR_PIN_INCORRECT));
    QCOMPARE(pinState(false).remaining, kUserRetries - 1);
    QCOMPARE(host.call<quint64>(key, "GetPINInfo", quint64(1), quint64(0)), quint64(kUserRetries));
    QCOMPARE(host.call<quint64>(key, "GetPINInfo", quint64(1), quint64(1)), quint64(kUserRetries - 1));

    QVERIFY(host.call<bool>(key, "verifyPin", str(kUserPin), false));
    QCOMPARE(host.call<quint64>(key, "GetPINInfo", quint64(1), quint64(1)), quint64(kUserRetries));
    QVERIFY(host.call<bool>(key, "changePIN", false, str(kUserPin), QStringLiteral("24681357")));
    QVERIFY(host.call<bool>(key, "verifyPin", QStringLiteral("24681357"), false));
}

void TestSessionSoftToken::resetUserPinWithBuiltInAdminPin()
{
    QVERIFY(createToken(str(kBuiltInAdminPin)));
    // No `ap` in the package: only the first try exists.
    TestHost host(packageRoot(QString()));
    QObject *key = openKey(host);
    QVERIFY(key);

    for (int i = 0; i < kUserRetries; ++i)
        QVERIFY(!host.call<bool>(key, "verifyPin", QStringLiteral("00000000"), false));
    QCOMPARE(host.lastError(), uint(SAR_PIN_LOCKED));
    host.core().setLastError(0);
    QCOMPARE(host.call<quint64>(key, "GetPINInfo", quint64(1), quint64(1)), quint64(0));
    QCOMPARE(host.lastError(), 0u);

    QVERIFY(host.call<bool>(key, "resetUserPin"));
    QCOMPARE(pinState(false).remaining, kUserRetries);
    QVERIFY(host.call<bool>(key, "verifyPin", str(kDefaultUserPin), false));
    // The administrator PIN is already the built-in one.
    QVERIFY(host.call<bool>(key, "resetAdminPin"));
}

void TestSessionSoftToken::resetUserPinWithPackageAdminPin()
{
    QVERIFY(createToken());
    TestHost host(packageRoot());
    QObject *key = openKey(host);
    QVERIFY(key);

    for (int i = 0; i < kUserRetries; ++i)
        QVERIFY(!host.call<bool>(key, "verifyPin", QStringLiteral("00000000"), false));
    QCOMPARE(pinState(false).remaining, 0);

    // The built-in PIN fails first, then the package's PIN unblocks.
    QVERIFY(host.call<bool>(key, "resetUserPin"));
    QVERIFY(host.logHas(QRegularExpression(QStringLiteral("^\\[resetUserPin:\\d+\\] SKF_UnblockPIN first failed"))));
    QVERIFY(host.call<bool>(key, "verifyPin", str(kDefaultUserPin), false));

    // resetAdminPin moves the token over to the built-in PIN, after which
    // the first try alone does it.
    QVERIFY(host.call<bool>(key, "resetAdminPin"));
    QVERIFY(host.call<bool>(key, "verifyPin", str(kBuiltInAdminPin), true));
    host.clearLog();
    QVERIFY(host.call<bool>(key, "resetUserPin"));
    QVERIFY(!host.logHas(QRegularExpression(QStringLiteral("first failed"))));
}

void TestSessionSoftToken::filesPutListGetReplaceDelete()
{
    QVERIFY(createToken());
    TestHost host(packageRoot());
    QObject *key = openKey(host);
    QVERIFY(key);
    QVERIFY(host.call<bool>(key, "verifyPin", str(kUserPin), false));

    QByteArray hundred(100, '\0');
    for (int i = 0; i < hundred.size(); ++i)
        hundred[i] = char('a' + i % 26);
    QVERIFY(host.call<bool>(key, "createFile", QStringLiteral("notes"), quint64(100)));
    QVERIFY(host.call<bool>(key, "writeFile", QStringLiteral("notes"), quint64(0), hundred));
    QCOMPARE(host.call<QStringList>(key, "enumFiles"), QStringList{QStringLiteral("notes")});
    // The whole file, whatever size is asked.
    QCOMPARE(host.call<QByteArray>(key, "readFile", QStringLiteral("notes"), quint64(0), quint64(10)), hundred);
    QCOMPARE(host.call<QByteArray>(key, "readFile", QStringLiteral("notes")), hundred);

    // Empty data is refused and leaves the file as it was.
    QVERIFY(!host.call<bool>(key, "writeFileV1", QStringLiteral("notes"), QByteArray()));
    QCOMPARE(host.lastError(), uint(SAR_INDATALENERR));
    QVERIFY(!host.call<bool>(key, "writeFile", QStringLiteral("notes"), quint64(0), QByteArray()));
    QCOMPARE(host.lastError(), uint(SAR_INDATALENERR));
    QCOMPARE(host.call<QByteArray>(key, "readFile", QStringLiteral("notes")), hundred);

    // Replaced: the new length and full rights.
    QVERIFY(host.call<bool>(key, "writeFileV1", QStringLiteral("notes"), QByteArray("short")));
    QCOMPARE(host.call<QByteArray>(key, "readFile", QStringLiteral("notes")), QByteArray("short"));
    const QList<SoftTokenEngine::FileInfo> stored = files();
    QCOMPARE(stored.size(), 1);
    QCOMPARE(stored.first().size, 5);
    QCOMPARE(stored.first().readRights, 0xFFu);
    QCOMPARE(stored.first().writeRights, 0xFFu);

    QVERIFY(host.call<bool>(key, "writeFileV1", QStringLiteral("second"), QByteArray("2")));
    QCOMPARE(host.call<QStringList>(key, "enumFiles").size(), 2);
    QVERIFY(host.call<bool>(key, "deleteFile", QStringLiteral("notes")));
    QCOMPARE(host.call<QStringList>(key, "enumFiles"), QStringList{QStringLiteral("second")});
    QVERIFY(!host.call<bool>(key, "deleteFile", QString()));
    QCOMPARE(host.lastError(), uint(SAR_NAMELENERR));
}

void TestSessionSoftToken::containersAndCertificates()
{
    QVERIFY(createToken());
    TestHost host(packageRoot());
    QObject *key = openKey(host);
    QVERIFY(key);
    QVERIFY(host.call<bool>(key, "verifyPin", str(kUserPin), false));

    Qt::HANDLE a = host.call<Qt::HANDLE>(key, "createContainer", QStringLiteral("A"));
    QVERIFY(a);
    QVERIFY(host.call<Qt::HANDLE>(key, "createContainer", QStringLiteral("B")));
    QCOMPARE(host.call<QStringList>(key, "enumContainer"),
             (QStringList{QStringLiteral("c1"), QStringLiteral("A"), QStringLiteral("B")}));
    QCOMPARE(host.call<Qt::HANDLE>(key, "createContainer", QStringLiteral("A")), nullptr);
    QCOMPARE(host.lastError(), uint(TW_ERR_CONTAINER_EXISTS));
    QVERIFY(!host.call<bool>(key, "deleteContainer", QStringLiteral("missing")));
    QCOMPARE(host.lastError(), uint(TW_ERR_CONTAINER_NOT_EXIST));

    // One signature certificate, in the second of the new containers.
    const QByteArray der = QByteArray::fromHex("308201223081c9a003020102020101300a06082a811ccf55018375");
    Qt::HANDLE b = host.call<Qt::HANDLE>(key, "openContainer", QStringLiteral("B"));
    QVERIFY(host.call<bool>(key, "ImportCertificate", b, true, der));
    QCOMPARE(host.call<QByteArray>(key, "exportCertificate", b, true), der);
    QCOMPARE(host.call<QStringList>(key, "exportAllCertificate", true), QStringList{QString::fromLatin1(der.toBase64())});
    QCOMPARE(host.call<int>(key, "getContainerType", a), 0);
    QCOMPARE(host.call<int>(key, "getContainerType", host.call<Qt::HANDLE>(key, "openContainer", str("c1"))),
             int(CONTAINER_TYPE_ECC));

    QVERIFY(host.call<bool>(key, "deleteContainer", QStringLiteral("A")));
    QCOMPARE(host.call<QStringList>(key, "enumContainer"), (QStringList{QStringLiteral("c1"), QStringLiteral("B")}));
}

void TestSessionSoftToken::formatKeyKeepsContainersAndMovesAdminPin()
{
    QVERIFY(createToken());
    TestHost host(packageRoot());
    QObject *key = openKey(host);
    QVERIFY(key);
    QVERIFY(host.call<bool>(key, "verifyPin", str(kUserPin), false));
    const QByteArray der("a certificate, as the token keeps it");
    Qt::HANDLE c1 = host.call<Qt::HANDLE>(key, "openContainer", str("c1"));
    QVERIFY(host.call<bool>(key, "ImportCertificate", c1, true, der));
    QVERIFY(host.call<bool>(key, "writeFileV1", QStringLiteral("f1"), QByteArray("one")));
    QVERIFY(host.call<bool>(key, "writeFileV1", QStringLiteral("f2"), QByteArray("two")));

    QVERIFY(host.call<bool>(key, "formatKey"));
    QCOMPARE(host.call<QStringList>(key, "enumFiles"), QStringList());
    QVERIFY(files().isEmpty());
    QCOMPARE(host.call<QStringList>(key, "enumContainer"), QStringList{str("c1")});
    QCOMPARE(host.call<QStringList>(key, "exportAllCertificate", true), QStringList{QString::fromLatin1(der.toBase64())});
    // The package's `ap` was the token's: now the built-in PIN is.
    QVERIFY(!host.call<bool>(key, "verifyPin", str(kAdminPin), true));
    QVERIFY(host.call<bool>(key, "verifyPin", str(kBuiltInAdminPin), true));
    // The user PIN is kept.
    QVERIFY(host.call<bool>(key, "verifyPin", str(kUserPin), false));
}

void TestSessionSoftToken::pulledTokenClosesTheSession()
{
    QVERIFY(createToken());
    TestHost host(packageRoot());
    QObject *key = openKey(host);
    QVERIFY(key);
    QVERIFY(host.call<bool>(key, "verifyPin", str(kUserPin), false));
    QVERIFY(host.call<bool>(key, "writeFileV1", QStringLiteral("f"), QByteArray("data")));

    SoftTokenEngine engine(m_store.path());
    struct Case
    {
        const char *function;
        std::function<bool()> failed;
    };
    const QList<Case> cases = {
        {"SKF_VerifyPIN", [&] { return !host.call<bool>(key, "verifyPin", str(kUserPin), false); }},
        {"SKF_ChangePIN", [&] { return !host.call<bool>(key, "changePIN", false, str(kUserPin), str(kUserPin)); }},
        {"SKF_GetPINInfo", [&] { return host.call<quint64>(key, "GetPINInfo", quint64(1), quint64(0)) == 0; }},
        {"SKF_ReadFile", [&] { return host.call<QByteArray>(key, "readFile", QStringLiteral("f")).isEmpty(); }},
        {"SKF_WriteFile", [&] { return !host.call<bool>(key, "writeFileV1", QStringLiteral("f"), QByteArray("x")); }},
        {"SKF_DeleteFile", [&] { return !host.call<bool>(key, "deleteFile", QStringLiteral("f")); }},
        {"SKF_CreateContainer", [&] { return !host.call<Qt::HANDLE>(key, "createContainer", QStringLiteral("n")); }},
        {"SKF_OpenContainer", [&] { return !host.call<Qt::HANDLE>(key, "openContainer", str("c1")); }},
    };
    for (const Case &c : cases) {
        QVERIFY2(engine.setFault(str(kDevice), QString::fromLatin1(c.function), SAR_DEVICE_REMOVED, 1),
                 qPrintable(engine.lastError()));
        QVERIFY2(c.failed(), c.function);
        QCOMPARE(host.lastError(), uint(SAR_DEVICE_REMOVED));
        // Closed: the next operation finds no application.
        QVERIFY(host.call<QStringList>(key, "enumFiles").isEmpty());
        QCOMPARE(host.lastError(), uint(SAR_USER_NOT_LOGGED_IN));
        // Opened again by the host: the same object, connected anew.
        QCOMPARE(host.open(0), key);
        QVERIFY(host.call<bool>(key, "verifyPin", str(kUserPin), false));
        if (!host.call<QStringList>(key, "enumFiles").contains(QStringLiteral("f")))
            QVERIFY(host.call<bool>(key, "writeFileV1", QStringLiteral("f"), QByteArray("data")));
    }
}

TW_TEST_MAIN_ISOLATED(TestSessionSoftToken)
#include "tst_sessionsofttoken.moc"
