// The daily operations of a key session against the software token, driven
// the way a signature application drives them: through the library's entry
// points and by method name. PIN counters, files, containers and PINs are
// read back from the token's own store.
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <memory>

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

    void userPinRetries();
    void resetUserPinWithBuiltInAdminPin();
    void resetUserPinWithPackageAdminPin();
    void filesPutListGetReplaceDelete();
    void containersAndCertificates();
    void formatKeyKeepsContainersAndMovesAdminPin();
    void pulledTokenClosesTheSession();

private:
    // A token in the store (one application, the default PINs, container
    // "c1") behind a package whose `ap` is `adminPinInPackage` (none when
    // empty); the host started and key 0 open, logged in when asked.
    bool start(const QString &tokenAdminPin = str(kAdminPin), const QString &adminPinInPackage = str(kAdminPin),
               bool login = true);
    template <typename R, typename... A>
    R call(const char *method, A &&...args)
    {
        return m_host->call<R>(m_key, method, std::forward<A>(args)...);
    }
    SoftTokenEngine::PinState pinState(bool admin) const;
    QList<SoftTokenEngine::FileInfo> files() const;

    TwDeviceGuard m_guard;
    QTemporaryDir m_store;
    KdpFixture m_kdp;
    std::unique_ptr<TestHost> m_host;
    QObject *m_key = nullptr;
};

void TestSessionSoftToken::initTestCase()
{
    QVERIFY2(QFileInfo(QStringLiteral(SOFTTOKEN_SKF)).isFile(), "the software token library is not built");
    QVERIFY(m_store.isValid() && m_kdp.isValid());
    qputenv("SOFTTOKEN_STORE", QFile::encodeName(m_store.path()));
}

bool TestSessionSoftToken::start(const QString &tokenAdminPin, const QString &adminPinInPackage, bool login)
{
    SoftTokenEngine engine(m_store.path());
    SoftTokenEngine::DeviceOptions options;
    options.name = str(kDevice);
    options.adminPin = tokenAdminPin;
    options.userPin = str(kUserPin);
    options.userRetries = kUserRetries;
    options.containers << SoftTokenEngine::ContainerSetup{str("c1"), SoftTokenEngine::ContainerSetup::Sm2};
    if (!engine.createDevice(options)) {
        QTest::qFail(qPrintable(engine.lastError()), __FILE__, __LINE__);
        return false;
    }
    KdpConfig config;
    config.name = QStringLiteral("softtoken");
    config.argument = QStringLiteral("libsofttoken-skf.so");
    if (!adminPinInPackage.isEmpty())
        config.ap = KdpFixture::encodeAdminPin(adminPinInPackage);
    if (m_kdp.addPackage(QStringLiteral("softtoken"), config, QStringLiteral(SOFTTOKEN_SKF)).isEmpty()) {
        QTest::qFail("package not written", __FILE__, __LINE__);
        return false;
    }
    m_host = std::make_unique<TestHost>(m_kdp.root());
    if (!m_host->start() || m_host->count() != 1 || !(m_key = m_host->open(0))) {
        QTest::qFail(qPrintable(QStringLiteral("the software token does not open: ") + m_host->errorString()),
                     __FILE__, __LINE__);
        return false;
    }
    if (login && !call<bool>("verifyPin", str(kUserPin), false)) {
        QTest::qFail("verifyPin failed", __FILE__, __LINE__);
        return false;
    }
    return true;
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

void TestSessionSoftToken::userPinRetries()
{
    QVERIFY(start(str(kAdminPin), str(kAdminPin), false));

    // A user PIN of the wrong length spends no retry.
    for (const QString &pin : {QStringLiteral("12345"), QStringLiteral("12345678901234567")}) {
        m_host->core().setLastError(0);
        QVERIFY(!call<bool>("verifyPin", pin, false));
        QCOMPARE(m_host->lastError(), uint(TW_ERR_OLD_PIN_LEN));
        QCOMPARE(pinState(false).remaining, kUserRetries);
    }
    // The administrator PIN has no length rule: the token judges it.
    QVERIFY(!call<bool>("verifyPin", QStringLiteral("12"), true));
    QCOMPARE(pinState(true).remaining, pinState(true).maxRetries - 1);

    // A wrong one spends one.
    QVERIFY(!call<bool>("verifyPin", QStringLiteral("87654321"), false));
    QCOMPARE(m_host->lastError(), uint(SAR_PIN_INCORRECT));
    QCOMPARE(pinState(false).remaining, kUserRetries - 1);
    QCOMPARE(call<quint64>("GetPINInfo", quint64(1), quint64(0)), quint64(kUserRetries));
    QCOMPARE(call<quint64>("GetPINInfo", quint64(1), quint64(1)), quint64(kUserRetries - 1));

    QVERIFY(call<bool>("verifyPin", str(kUserPin), false));
    QCOMPARE(call<quint64>("GetPINInfo", quint64(1), quint64(1)), quint64(kUserRetries));
    QVERIFY(call<bool>("changePIN", false, str(kUserPin), QStringLiteral("24681357")));
    QVERIFY(call<bool>("verifyPin", QStringLiteral("24681357"), false));
}

void TestSessionSoftToken::resetUserPinWithBuiltInAdminPin()
{
    // No `ap` in the package: only the first try exists.
    QVERIFY(start(str(kBuiltInAdminPin), QString(), false));

    for (int i = 0; i < kUserRetries; ++i)
        QVERIFY(!call<bool>("verifyPin", QStringLiteral("00000000"), false));
    QCOMPARE(m_host->lastError(), uint(SAR_PIN_LOCKED));
    m_host->core().setLastError(0);
    QCOMPARE(call<quint64>("GetPINInfo", quint64(1), quint64(1)), quint64(0));
    QCOMPARE(m_host->lastError(), 0u);

    QVERIFY(call<bool>("resetUserPin"));
    QCOMPARE(pinState(false).remaining, kUserRetries);
    QVERIFY(call<bool>("verifyPin", str(kDefaultUserPin), false));
    // The administrator PIN is already the built-in one.
    QVERIFY(call<bool>("resetAdminPin"));
}

void TestSessionSoftToken::resetUserPinWithPackageAdminPin()
{
    QVERIFY(start(str(kAdminPin), str(kAdminPin), false));

    for (int i = 0; i < kUserRetries; ++i)
        QVERIFY(!call<bool>("verifyPin", QStringLiteral("00000000"), false));
    QCOMPARE(pinState(false).remaining, 0);

    // The built-in PIN fails first, then the package's PIN unblocks.
    QVERIFY(call<bool>("resetUserPin"));
    QVERIFY(m_host->logHas(QRegularExpression(QStringLiteral("^\\[resetUserPin:\\d+\\] SKF_UnblockPIN first failed"))));
    QVERIFY(call<bool>("verifyPin", str(kDefaultUserPin), false));

    // resetAdminPin moves the token over to the built-in PIN, after which
    // the first try alone does it.
    QVERIFY(call<bool>("resetAdminPin"));
    QVERIFY(call<bool>("verifyPin", str(kBuiltInAdminPin), true));
    m_host->clearLog();
    QVERIFY(call<bool>("resetUserPin"));
    QVERIFY(!m_host->logHas(QRegularExpression(QStringLiteral("first failed"))));
}

void TestSessionSoftToken::filesPutListGetReplaceDelete()
{
    QVERIFY(start());

    QByteArray hundred(100, '\0');
    for (int i = 0; i < hundred.size(); ++i)
        hundred[i] = char('a' + i % 26);
    QVERIFY(call<bool>("createFile", QStringLiteral("notes"), quint64(100)));
    QVERIFY(call<bool>("writeFile", QStringLiteral("notes"), quint64(0), hundred));
    QCOMPARE(call<QStringList>("enumFiles"), QStringList{QStringLiteral("notes")});
    // The whole file, whatever size is asked.
    QCOMPARE(call<QByteArray>("readFile", QStringLiteral("notes"), quint64(0), quint64(10)), hundred);
    QCOMPARE(call<QByteArray>("readFile", QStringLiteral("notes")), hundred);

    // Empty data is refused and leaves the file as it was.
    QVERIFY(!call<bool>("writeFileV1", QStringLiteral("notes"), QByteArray()));
    QCOMPARE(m_host->lastError(), uint(SAR_INDATALENERR));
    QVERIFY(!call<bool>("writeFile", QStringLiteral("notes"), quint64(0), QByteArray()));
    QCOMPARE(m_host->lastError(), uint(SAR_INDATALENERR));
    QCOMPARE(call<QByteArray>("readFile", QStringLiteral("notes")), hundred);

    // Replaced: the new length and full rights.
    QVERIFY(call<bool>("writeFileV1", QStringLiteral("notes"), QByteArray("short")));
    QCOMPARE(call<QByteArray>("readFile", QStringLiteral("notes")), QByteArray("short"));
    const QList<SoftTokenEngine::FileInfo> stored = files();
    QCOMPARE(stored.size(), 1);
    QCOMPARE(stored.first().size, 5);
    QCOMPARE(stored.first().readRights, 0xFFu);
    QCOMPARE(stored.first().writeRights, 0xFFu);

    QVERIFY(call<bool>("writeFileV1", QStringLiteral("second"), QByteArray("2")));
    QCOMPARE(call<QStringList>("enumFiles").size(), 2);
    QVERIFY(call<bool>("deleteFile", QStringLiteral("notes")));
    QCOMPARE(call<QStringList>("enumFiles"), QStringList{QStringLiteral("second")});
    QVERIFY(!call<bool>("deleteFile", QString()));
    QCOMPARE(m_host->lastError(), uint(SAR_NAMELENERR));
}

void TestSessionSoftToken::containersAndCertificates()
{
    QVERIFY(start());

    Qt::HANDLE a = call<Qt::HANDLE>("createContainer", QStringLiteral("A"));
    QVERIFY(a);
    QVERIFY(call<Qt::HANDLE>("createContainer", QStringLiteral("B")));
    QCOMPARE(call<QStringList>("enumContainer"),
             (QStringList{QStringLiteral("c1"), QStringLiteral("A"), QStringLiteral("B")}));
    QCOMPARE(call<Qt::HANDLE>("createContainer", QStringLiteral("A")), nullptr);
    QCOMPARE(m_host->lastError(), uint(TW_ERR_CONTAINER_EXISTS));
    QVERIFY(!call<bool>("deleteContainer", QStringLiteral("missing")));
    QCOMPARE(m_host->lastError(), uint(TW_ERR_CONTAINER_NOT_EXIST));

    // One signature certificate, in the second of the new containers.
    const QByteArray der = QByteArray::fromHex("308201223081c9a003020102020101300a06082a811ccf55018375");
    Qt::HANDLE b = call<Qt::HANDLE>("openContainer", QStringLiteral("B"));
    QVERIFY(call<bool>("ImportCertificate", b, true, der));
    QCOMPARE(call<QByteArray>("exportCertificate", b, true), der);
    QCOMPARE(call<QStringList>("exportAllCertificate", true), QStringList{QString::fromLatin1(der.toBase64())});
    QCOMPARE(call<int>("getContainerType", a), 0);
    QCOMPARE(call<int>("getContainerType", call<Qt::HANDLE>("openContainer", str("c1"))),
             int(CONTAINER_TYPE_ECC));

    QVERIFY(call<bool>("deleteContainer", QStringLiteral("A")));
    QCOMPARE(call<QStringList>("enumContainer"), (QStringList{QStringLiteral("c1"), QStringLiteral("B")}));
}

void TestSessionSoftToken::formatKeyKeepsContainersAndMovesAdminPin()
{
    QVERIFY(start());
    const QByteArray der("a certificate, as the token keeps it");
    Qt::HANDLE c1 = call<Qt::HANDLE>("openContainer", str("c1"));
    QVERIFY(call<bool>("ImportCertificate", c1, true, der));
    QVERIFY(call<bool>("writeFileV1", QStringLiteral("f1"), QByteArray("one")));
    QVERIFY(call<bool>("writeFileV1", QStringLiteral("f2"), QByteArray("two")));

    QVERIFY(call<bool>("formatKey"));
    QCOMPARE(call<QStringList>("enumFiles"), QStringList());
    QVERIFY(files().isEmpty());
    QCOMPARE(call<QStringList>("enumContainer"), QStringList{str("c1")});
    QCOMPARE(call<QStringList>("exportAllCertificate", true), QStringList{QString::fromLatin1(der.toBase64())});
    // The package's `ap` was the token's: now the built-in PIN is.
    QVERIFY(!call<bool>("verifyPin", str(kAdminPin), true));
    QVERIFY(call<bool>("verifyPin", str(kBuiltInAdminPin), true));
    // The user PIN is kept.
    QVERIFY(call<bool>("verifyPin", str(kUserPin), false));
}

void TestSessionSoftToken::pulledTokenClosesTheSession()
{
    QVERIFY(start());
    QVERIFY(call<bool>("writeFileV1", QStringLiteral("f"), QByteArray("data")));

    SoftTokenEngine engine(m_store.path());
    struct Case
    {
        const char *function;
        std::function<bool()> failed;
    };
    const QList<Case> cases = {
        {"SKF_VerifyPIN", [&] { return !call<bool>("verifyPin", str(kUserPin), false); }},
        {"SKF_ChangePIN", [&] { return !call<bool>("changePIN", false, str(kUserPin), str(kUserPin)); }},
        {"SKF_GetPINInfo", [&] { return call<quint64>("GetPINInfo", quint64(1), quint64(0)) == 0; }},
        {"SKF_ReadFile", [&] { return call<QByteArray>("readFile", QStringLiteral("f")).isEmpty(); }},
        {"SKF_WriteFile", [&] { return !call<bool>("writeFileV1", QStringLiteral("f"), QByteArray("x")); }},
        {"SKF_DeleteFile", [&] { return !call<bool>("deleteFile", QStringLiteral("f")); }},
        {"SKF_CreateContainer", [&] { return !call<Qt::HANDLE>("createContainer", QStringLiteral("n")); }},
        {"SKF_OpenContainer", [&] { return !call<Qt::HANDLE>("openContainer", str("c1")); }},
    };
    for (const Case &c : cases) {
        QVERIFY2(engine.setFault(str(kDevice), QString::fromLatin1(c.function), SAR_DEVICE_REMOVED, 1),
                 qPrintable(engine.lastError()));
        QVERIFY2(c.failed(), c.function);
        QCOMPARE(m_host->lastError(), uint(SAR_DEVICE_REMOVED));
        // Closed: the next operation finds no application.
        QVERIFY(call<QStringList>("enumFiles").isEmpty());
        QCOMPARE(m_host->lastError(), uint(SAR_USER_NOT_LOGGED_IN));
        // Opened again by the host: the same object, connected anew.
        QCOMPARE(m_host->open(0), m_key);
        QVERIFY(call<bool>("verifyPin", str(kUserPin), false));
        if (!call<QStringList>("enumFiles").contains(QStringLiteral("f")))
            QVERIFY(call<bool>("writeFileV1", QStringLiteral("f"), QByteArray("data")));
    }
}

TW_TEST_MAIN_ISOLATED(TestSessionSoftToken)
#include "tst_sessionsofttoken.moc"
