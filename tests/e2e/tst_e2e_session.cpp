// Sessions over the test token library, driven by name through a host,
// with the library's call log as the witness of what reached the token.
#include "isolatedtest.h"
#include "kdpfixture.h"
#include "mockcontrol.h"
#include "testhost.h"
#include "twdeviceguard.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTest>
#include <QThread>

namespace {

const int kQuietMs = 800; // an open() this soon after a connect asks the token nothing

QRegularExpression logLine(const QString &message)
{
    return QRegularExpression(QStringLiteral("^\\[\\w+:\\d+\\]%1$").arg(message));
}

} // namespace

class TestE2eSession : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void openThrottlesProbesAndReconnects();
    void applicationWithoutContainerIsDropped();
    void firstApplicationFailingOpensTheSecond();
    void removedTokenClosesTheSession();

private:
    QObject *startAndOpenFirst(TestHost &host, int expectedCount);

    TwDeviceGuard m_guard;
    KdpFixture m_kdp;
    MockControl m_mock;
};

void TestE2eSession::init()
{
    QVERIFY2(m_mock.isLoaded(), qPrintable(m_mock.errorString()));
    m_mock.reset();
    QVERIFY(!m_kdp.addPackage(QStringLiteral("mock"), KdpConfig(), QStringLiteral(MOCKSKF_PATH)).isEmpty());
}

QObject *TestE2eSession::startAndOpenFirst(TestHost &host, int expectedCount)
{
    if (!host.start()) {
        QTest::qFail(qPrintable(host.errorString()), __FILE__, __LINE__);
        return nullptr;
    }
    const int count = host.count();
    if (count != expectedCount) {
        QTest::qFail(qPrintable(QStringLiteral("count() is %1, not %2").arg(count).arg(expectedCount)), __FILE__,
                     __LINE__);
        return nullptr;
    }
    return host.open(0);
}

void TestE2eSession::openThrottlesProbesAndReconnects()
{
    m_mock.add_device("dev1", "SN-0001");
    m_mock.add_app("dev1", "APP");
    m_mock.add_container("dev1", "APP", "C1", CONTAINER_TYPE_ECC);
    TestHost host(m_kdp.root());
    QObject *key = startAndOpenFirst(host, 1);
    QVERIFY(key);
    // The connect was made by count(); from here on at least this much time has passed since.
    QElapsedTimer sinceConnect;
    sinceConnect.start();
    QCOMPARE(m_mock.count("SKF_ConnectDev"), 1);

    // Within 800 ms: taken as good without a word to the token.
    m_mock.clearCalls();
    QVERIFY(host.call<bool>(key, "open"));
    QVERIFY(host.call<bool>(key, "open"));
    QCOMPARE(m_mock.calls(), QStringList());
    QVERIFY(sinceConnect.elapsed() <= kQuietMs);

    // Past it: one probe and one look at the serial number, no connect.
    while (sinceConnect.elapsed() <= kQuietMs + 1)
        QThread::msleep(kQuietMs + 2 - int(sinceConnect.elapsed()));
    m_mock.clearCalls();
    QVERIFY(host.call<bool>(key, "open"));
    QCOMPARE(m_mock.calls(), QStringList({QStringLiteral("SKF_GenRandom dev=dev1 len=6"),
                                          QStringLiteral("SKF_GetDevInfo dev=dev1")}));
    QVERIFY(!host.call<bool>(key, "isNeedEnumFile"));

    // A probe that fails: reconnect, and the host is told to enumerate its files again, once.
    m_mock.fail("SKF_GenRandom", SAR_FAIL, 1);
    m_mock.clearCalls();
    QVERIFY(host.call<bool>(key, "open"));
    QCOMPARE(m_mock.count("SKF_GenRandom"), 1);
    QCOMPARE(m_mock.count("SKF_ConnectDev"), 1);
    QCOMPARE(m_mock.count("SKF_OpenApplication"), 1);
    QVERIFY(host.logHas(logLine(QStringLiteral(" SblEnumDev = true"))));
    QVERIFY(host.call<bool>(key, "isNeedEnumFile"));
    QVERIFY(!host.call<bool>(key, "isNeedEnumFile"));

    // The reconnect restarted the quiet time.
    m_mock.clearCalls();
    QVERIFY(host.call<bool>(key, "open"));
    QCOMPARE(m_mock.calls(), QStringList());
}

void TestE2eSession::applicationWithoutContainerIsDropped()
{
    m_mock.add_device("blank", "SN-BLANK");
    m_mock.add_app("blank", "APP");
    TestHost host(m_kdp.root());
    QVERIFY2(host.start(), qPrintable(host.errorString()));

    QCOMPARE(host.count(), 0);
    // It got as far as the empty application, then the driver deleted the
    // session, whose destructor let the device go.
    QCOMPARE(m_mock.count("SKF_ConnectDev"), 1);
    QVERIFY(m_mock.calls().contains(QStringLiteral("SKF_OpenApplication dev=blank name=APP")));
    QCOMPARE(m_mock.count("SKF_OpenContainer"), 0);
    QCOMPARE(m_mock.calls().last(), QStringLiteral("SKF_DisConnectDev dev=blank"));
    QVERIFY(!host.openEx(0, false));

    // Not kept: a second count finds no session of that name and makes a new one.
    QCOMPARE(host.logCount(logLine(QStringLiteral(" pKeyObj == 0"))), 1);
    QCOMPARE(host.count(), 0);
    QCOMPARE(host.logCount(logLine(QStringLiteral(" pKeyObj == 0"))), 2);
    QCOMPARE(m_mock.count("SKF_ConnectDev"), 2);
}

void TestE2eSession::firstApplicationFailingOpensTheSecond()
{
    m_mock.add_device("dev1", "SN-0001");
    for (const char *app : {"APP1", "APP2"})
        m_mock.add_app("dev1", app);
    m_mock.add_container("dev1", "APP1", "C-OF-APP1", CONTAINER_TYPE_ECC);
    m_mock.add_container("dev1", "APP2", "C-OF-APP2", CONTAINER_TYPE_ECC);
    m_mock.fail("SKF_OpenApplication", SAR_APPLICATION_NOT_EXISTS, 1);
    TestHost host(m_kdp.root());
    QObject *key = startAndOpenFirst(host, 1);
    QVERIFY(key);

    const QStringList opens = m_mock.calls().filter(QStringLiteral("SKF_OpenApplication"));
    QCOMPARE(opens, QStringList({QStringLiteral("SKF_OpenApplication dev=dev1 name=APP1"),
                                 QStringLiteral("SKF_OpenApplication dev=dev1 name=APP2")}));
    QVERIFY(host.logHas(QRegularExpression(
        QStringLiteral("^\\[open:\\d+\\] SKF_OpenApplication failed,ret= %1$").arg(SAR_APPLICATION_NOT_EXISTS))));
    // The session works on the second application.
    QCOMPARE(host.call<QStringList>(key, "enumContainer"), QStringList({QStringLiteral("C-OF-APP2")}));
    QVERIFY(host.call<bool>(key, "verifyPin", QStringLiteral("12345678"), false));
    QVERIFY(m_mock.logged_in("dev1", "APP2", USER_TYPE));
    QVERIFY(!m_mock.logged_in("dev1", "APP1", USER_TYPE));
}

void TestE2eSession::removedTokenClosesTheSession()
{
    m_mock.add_device("dev1", "SN-0001");
    m_mock.add_app("dev1", "APP");
    m_mock.add_container("dev1", "APP", "C1", CONTAINER_TYPE_ECC);
    TestHost host(m_kdp.root());
    QObject *key = startAndOpenFirst(host, 1);
    QVERIFY(key);

    m_mock.set_present("dev1", 0);
    m_mock.clearCalls();
    QVERIFY(!host.call<bool>(key, "verifyPin", QStringLiteral("12345678"), false));
    QCOMPARE(host.lastError(), uint(SAR_DEVICE_REMOVED));
    // closeV1 gave back the application and the device.
    QCOMPARE(m_mock.calls(), QStringList({QStringLiteral("SKF_VerifyPIN type=1 pin=12345678"),
                                          QStringLiteral("SKF_CloseApplication app=APP"),
                                          QStringLiteral("SKF_DisConnectDev dev=dev1")}));
    QVERIFY(host.call<QStringList>(key, "enumFiles").isEmpty());
    QCOMPARE(host.lastError(), uint(SAR_USER_NOT_LOGGED_IN));
    QCOMPARE(m_mock.calls().size(), 3);

    // Back in: the same object, connected anew.
    m_mock.set_present("dev1", 1);
    QCOMPARE(host.open(0), key);
    QVERIFY(host.call<bool>(key, "verifyPin", QStringLiteral("12345678"), false));
    QCOMPARE(m_mock.count("SKF_ConnectDev"), 1);
}

TW_TEST_MAIN_ISOLATED(TestE2eSession)
#include "tst_e2e_session.moc"
