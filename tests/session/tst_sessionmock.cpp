// KeyObjectSKF against the test token library: what reaches the library
// (its call log), in which order the guards refuse, which codes and words
// come out, and how a pulled token closes the session.
#include <QtTest>

#include <cstdio>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

#include "frame/rtc.h"
#include "host/twcall.h"
#include "host/twcore.h"
#include "kdpfixture.h"
#include "mockcontrol.h"
#include "package/keydriverpackage.h"
#include "session/keyobjectskf.h"
#include "skf/keydriverskf.h"
#include "skf/skfapi.h"
#include "stdoutcapture.h"
#include "twdeviceguard.h"

namespace {

const char kDev[] = "dev1";
const char kApp[] = "APP1";
// Twenty characters: the session's identity keeps the first sixteen.
const char kSerial[] = "SN20CHARSERIAL000001";
const char kSerial16[] = "SN20CHARSERIAL00";
const char kAdminPin[] = "88888888";
const char kUserPin[] = "12345678";
const char kBuiltInAdminPin[] = "QmVR2kdLZTTHpXsa";
const char kDefaultUserPin[] = "482915";
// A last error no operation sets, to see that one was left alone.
const uint kPreset = 0x12345678;

// The session with two test hooks: its clock can be put back, and whether
// it holds an application can be seen.
class Session : public KeyObjectSKF
{
public:
    using KeyObjectSKF::KeyObjectSKF;
    void age(int msecs) { m_time = m_time.addMSecs(-msecs); }
    bool hasApp() const { return app != nullptr; }
};

// A core that keeps log lines, last errors and what reached standard
// output in one sequence, to see the order of a failure's steps. Lines
// read "log open: end" (the source line left out); "stdout" marks that
// something was printed since the event before.
class OrderCore : public QObject
{
    Q_OBJECT
public:
    explicit OrderCore(const QString &stdoutPath) : m_stdoutPath(stdoutPath) {}

    Q_INVOKABLE void logDebug(QString text) { add(QStringLiteral("log "), text); }
    Q_INVOKABLE void logError(QString text) { add(QStringLiteral("error "), text); }
    Q_INVOKABLE void setLastError(uint code)
    {
        m_lastError = code;
        add(QStringLiteral("lastError "), QString::number(code, 16));
    }
    Q_INVOKABLE uint getLastError() { return m_lastError; }

    // The events so far; closeV1's own start and end lines are left out.
    QStringList events()
    {
        notePrinted();
        QStringList out = m_events;
        out.removeAll(QStringLiteral("log closeV1: start"));
        out.removeAll(QStringLiteral("log closeV1: end"));
        return out;
    }

private:
    void notePrinted()
    {
        std::fflush(stdout);
        const qint64 size = QFileInfo(m_stdoutPath).size();
        if (size > m_printed) {
            m_printed = size;
            m_events << QStringLiteral("stdout");
        }
    }
    void add(const QString &kind, QString text)
    {
        notePrinted();
        static const QRegularExpression location(QStringLiteral("^\\[(\\w+):\\d+\\]"));
        m_events << kind + text.replace(location, QStringLiteral("\\1:"));
    }

    QString m_stdoutPath;
    qint64 m_printed = 0;
    uint m_lastError = 0;
    QStringList m_events;
};

// Puts a core in place of the test's own for one scope.
class CoreSwap
{
public:
    CoreSwap(QObject *core, QObject *restore) : m_restore(restore)
    {
        ComponentDestroy();
        ComponentInit(core);
    }
    ~CoreSwap()
    {
        ComponentDestroy();
        ComponentInit(m_restore);
    }

private:
    QObject *m_restore;
};

// The events behind the first one equal to `from`.
QStringList after(const QStringList &events, const QString &from)
{
    const int at = events.indexOf(from);
    return at < 0 ? QStringList() : events.mid(at + 1);
}

} // namespace

class TestSessionMock : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    // Opening and closing.
    void newSessionConnectsAndSavesSerial();
    void openProbesOnlyAfter800ms();
    void failingProbeReconnects();
    void replacedTokenReconnects();
    void pulledTokenFailsToReopen();
    void applicationWithoutContainerDoesNotOpen();
    void firstApplicationFailingSecondOpens();
    void unchangedStateFileKeepsConnectedSession();
    void closeOnlyLogsCloseV1Ends();
    void connectFailureOnNewSession();
    void destructorDisconnects();
    void isKeyDisConnectProbes();
    void openApplicationForms();
    void findDevbySNAsksEachSession();

    // Device-state file and identity.
    void keyStatusReadsTheStateFile();
    void savedSerialFollowsPackageLimit();
    void identityFromDeviceInfo();
    void labelAndSpace();

    // PINs.
    void userPinLengthRule_data();
    void userPinLengthRule();
    void changePinChecksInOrder();
    void resetUserPinTwoTries();
    void resetUserPinV1();
    void resetAdminPin();
    void pinInfo();

    // Files.
    void fileGuards();
    void filesRoundTrip();
    void readFileNameEncodings();
    void writeFileV1Replaces();
    void writeFileV1CfcaReading_data();
    void writeFileV1CfcaReading();
    void enumFilesSizeQueryFailureKeepsSession();
    void oversizedListsAreRefused_data();
    void oversizedListsAreRefused();

    // Containers and certificates.
    void createAndDeleteContainers();
    void openContainerAndType();
    void certificates();

    // A pulled token.
    void pulledTokenDuringOperation_data();
    void pulledTokenDuringOperation();
    void failureStepsKeepTheirOrder();

    // Formatting.
    void formatKeyMovesAdminPinOver();
    void formatKeyFailsWithoutAnyAdminPin();
    void formatKeyIgnoresFailedDeletions();

private:
    // The token of init() without its container, or also without its application.
    void bareToken(bool withApp);
    Session *session(KeyDriverPackage *package = nullptr, const char *dev = kDev);
    Session *openSession(KeyDriverPackage *package = nullptr, const char *dev = kDev);
    KeyDriverPackage *package(const KdpConfig &config);
    int calls(const char *function) const { return m_mock.count(function); }
    bool logged(const char *function, const QString &message, TWCore::Level level = TWCore::Level::Debug) const;
    QString outputPath() const { return m_tmp.filePath(QStringLiteral("stdout.txt")); }
    // Runs an operation that must fail under a core that records the order
    // of its steps; the recorded events, for comparing after the run.
    QStringList ordered(const std::function<bool()> &failingOperation);

    TwDeviceGuard m_savedState;
    QTemporaryDir m_tmp;
    TWCore m_core;
    MockControl m_mock;
    KeyDriverPackage *m_package = nullptr;
    std::vector<std::unique_ptr<KeyDriverPackage>> m_packages;
    KeyDriverSKF *m_driver = nullptr;
    QList<Session *> m_sessions;
};

void TestSessionMock::initTestCase()
{
    QVERIFY(m_tmp.isValid());
    QVERIFY2(m_mock.isLoaded(), qPrintable(m_mock.errorString()));
    ComponentInit(&m_core);
    m_package = package(KdpConfig());
    QVERIFY(m_package);
    m_driver = new KeyDriverSKF(m_package, QStringLiteral(MOCKSKF_PATH), nullptr);
    QVERIFY(m_driver->load());
}

void TestSessionMock::cleanupTestCase()
{
    delete m_driver;
    ComponentDestroy();
}

void TestSessionMock::init()
{
    m_mock.reset();
    m_mock.set_login_required(0);
    m_mock.add_device(kDev, kSerial);
    m_mock.add_app(kDev, kApp);
    m_mock.add_container(kDev, kApp, "c1", CONTAINER_TYPE_ECC);
    TwDeviceGuard::set("previous");
    m_core.clear();
    m_core.setLastError(0);
}

void TestSessionMock::cleanup()
{
    qDeleteAll(m_sessions);
    m_sessions.clear();
    // The first package serves the whole run.
    m_packages.resize(1);
}

void TestSessionMock::bareToken(bool withApp)
{
    m_mock.reset();
    m_mock.add_device(kDev, kSerial);
    if (withApp)
        m_mock.add_app(kDev, kApp);
}

Session *TestSessionMock::session(KeyDriverPackage *package, const char *dev)
{
    auto *s = new Session(package ? package : m_package, QString::fromLatin1(dev), m_driver);
    m_sessions << s;
    return s;
}

Session *TestSessionMock::openSession(KeyDriverPackage *package, const char *dev)
{
    Session *s = session(package, dev);
    if (!s->open())
        return nullptr;
    m_mock.clearCalls();
    m_core.clear();
    m_core.setLastError(0);
    return s;
}

KeyDriverPackage *TestSessionMock::package(const KdpConfig &config)
{
    const QString dir = m_tmp.filePath(QStringLiteral("pkg%1").arg(m_packages.size()));
    if (!KdpFixture::writePackage(dir, config, QString()))
        return nullptr;
    std::unique_ptr<KeyDriverPackage> opened(new KeyDriverPackage(dir));
    if (!opened->open())
        return nullptr;
    m_packages.push_back(std::move(opened));
    return m_packages.back().get();
}

bool TestSessionMock::logged(const char *function, const QString &message, TWCore::Level level) const
{
    const QString head = QStringLiteral("[%1:").arg(QLatin1String(function));
    const QString tail = QStringLiteral("]") + message;
    for (const QString &line : m_core.lines(level)) {
        if (line.startsWith(head) && line.endsWith(tail))
            return true;
    }
    return false;
}

// ---------------------------------------------------------------------------

void TestSessionMock::newSessionConnectsAndSavesSerial()
{
    Session *s = session();
    QVERIFY(s->open());
    QVERIFY(s->isOpen());
    QCOMPARE(calls("SKF_ConnectDev"), 1);
    QCOMPARE(calls("SKF_GetDevInfo"), 1);
    QCOMPARE(calls("SKF_EnumApplication"), 1);
    QCOMPARE(calls("SKF_OpenApplication"), 1);
    // The container found to open is not kept.
    QCOMPARE(calls("SKF_OpenContainer"), 1);
    QCOMPARE(calls("SKF_CloseContainer"), 0);
    QCOMPARE(TwDeviceGuard::current(), QByteArray(kSerial16));
    QCOMPARE(s->serialNumber(), QString::fromLatin1(kSerial16));
    QCOMPARE(s->serialNumberEx(), QString::fromLatin1(kSerial));
    QVERIFY(logged("open", QStringLiteral(" SKF_OpenApplication success containerName= c1")));
    QVERIFY(!s->isNeedEnumFile());
}

void TestSessionMock::openProbesOnlyAfter800ms()
{
    Session *s = openSession();
    QVERIFY(s);
    QVERIFY(s->open());
    QCOMPARE(m_mock.calls(), QStringList());
    // The real clock, once: the rule is about wall time.
    QTest::qSleep(850);
    QVERIFY(s->open());
    QCOMPARE(calls("SKF_GenRandom"), 1);
    QCOMPARE(calls("SKF_GetDevInfo"), 1);
    QCOMPARE(m_mock.calls().size(), 2);
    QVERIFY(m_mock.calls().contains(QStringLiteral("SKF_GenRandom dev=dev1 len=6")));
    QVERIFY(!s->isNeedEnumFile());
    // A good probe leaves the clock alone, so the next open probes again.
    QVERIFY(s->open());
    QCOMPARE(calls("SKF_GenRandom"), 2);
    QCOMPARE(calls("SKF_ConnectDev"), 0);
}

void TestSessionMock::failingProbeReconnects()
{
    Session *s = openSession();
    QVERIFY(s);
    s->age(900);
    m_mock.fail("SKF_GenRandom", SAR_GENRANDERR, 1);
    QVERIFY(s->open());
    QVERIFY(logged("open", QStringLiteral(" SblEnumDev = true")));
    QCOMPARE(calls("SKF_ConnectDev"), 1);
    QVERIFY(s->isOpen());
    QVERIFY(s->isNeedEnumFile());
    QVERIFY(!s->isNeedEnumFile());
    // The reconnect restarted the clock.
    m_mock.clearCalls();
    QVERIFY(s->open());
    QCOMPARE(m_mock.calls(), QStringList());
}

void TestSessionMock::replacedTokenReconnects()
{
    Session *s = openSession();
    QVERIFY(s);
    s->age(900);
    m_mock.set_serial(kDev, "ANOTHERTOKEN0002");
    QVERIFY(s->open());
    QCOMPARE(calls("SKF_ConnectDev"), 1);
    QVERIFY(s->isNeedEnumFile());
    QCOMPARE(s->serialNumberEx(), QStringLiteral("ANOTHERTOKEN0002"));
    QCOMPARE(TwDeviceGuard::current(), QByteArray("ANOTHERTOKEN0002"));
    QVERIFY(logged("open", QStringLiteral("devtemp.SerialNumber = ANOTHERTOKEN0002, strSerialNumber = ") +
                               QLatin1String(kSerial)));
}

void TestSessionMock::pulledTokenFailsToReopen()
{
    Session *s = openSession();
    QVERIFY(s);
    s->age(900);
    m_mock.set_present(kDev, 0);
    QVERIFY(!s->open());
    QVERIFY(!s->isOpen());
    QVERIFY(logged("open", QStringLiteral(" SKF_ConnectDev failed,ret = %1 ").arg(SAR_DEVICE_REMOVED),
                   TWCore::Level::Error));
    // The old handles were let go.
    QCOMPARE(calls("SKF_CloseApplication"), 1);
    QCOMPARE(calls("SKF_DisConnectDev"), 1);
    QCOMPARE(m_core.lastError(), uint(SAR_DEVICE_REMOVED));
}

void TestSessionMock::applicationWithoutContainerDoesNotOpen()
{
    bareToken(true);
    Session *s = session();
    QVERIFY(!s->open());
    QVERIFY(!s->isOpen());
    QCOMPARE(calls("SKF_ConnectDev"), 1);
    QCOMPARE(calls("SKF_OpenApplication"), 1);
    QCOMPARE(calls("SKF_OpenContainer"), 0);
    QVERIFY(logged("open", QStringLiteral(" end")));
}

void TestSessionMock::firstApplicationFailingSecondOpens()
{
    bareToken(false);
    m_mock.add_app(kDev, "APP0");
    m_mock.add_container(kDev, "APP0", "c0", CONTAINER_TYPE_ECC);
    m_mock.add_app(kDev, kApp);
    m_mock.add_container(kDev, kApp, "c1", CONTAINER_TYPE_ECC);
    m_mock.fail("SKF_OpenApplication", SAR_APPLICATION_NOT_EXISTS, 1);

    Session *s = session();
    StdoutCapture capture(outputPath());
    QVERIFY(s->open());
    QVERIFY(capture.finish().contains("[TWKeyObjectSkf::PrintError] Error:应用不存在 \n"));
    QCOMPARE(m_core.lastError(), uint(SAR_APPLICATION_NOT_EXISTS));
    QVERIFY(logged("open", QStringLiteral(" SKF_OpenApplication failed,ret= %1").arg(SAR_APPLICATION_NOT_EXISTS),
                   TWCore::Level::Error));
    // The session works on the second application.
    QCOMPARE(s->enumContainer(), QStringList{QStringLiteral("c1")});

    // An application without containers is passed over the same way.
    m_mock.reset();
    m_mock.add_device("dev2", "SERIAL2");
    m_mock.add_app("dev2", "EMPTY");
    m_mock.add_app("dev2", kApp);
    m_mock.add_container("dev2", kApp, "c9", CONTAINER_TYPE_RSA);
    Session *second = session(nullptr, "dev2");
    QVERIFY(second->open());
    QCOMPARE(second->enumContainer(), QStringList{QStringLiteral("c9")});
}

void TestSessionMock::unchangedStateFileKeepsConnectedSession()
{
    bareToken(true);
    Session *s = session();
    // Connects, finds no container, and writes its serial number.
    QVERIFY(!s->open());
    QCOMPARE(TwDeviceGuard::current(), QByteArray(kSerial16));
    // The file differs from what the session saw first: it connects again.
    QVERIFY(!s->open());
    QCOMPARE(calls("SKF_ConnectDev"), 2);
    // Now the file is as last seen: the session stands, though not ready.
    m_core.clear();
    QVERIFY(s->open());
    QCOMPARE(calls("SKF_ConnectDev"), 2);
    QVERIFY(!s->isOpen());
    QVERIFY(logged("open", QStringLiteral("key statue is not change")));
    QVERIFY(logged("GetKeyStatus", QStringLiteral("key statue is not change "), TWCore::Level::Error));
}

void TestSessionMock::closeOnlyLogsCloseV1Ends()
{
    Session *s = openSession();
    QVERIFY(s);
    s->close();
    QVERIFY(s->isOpen());
    QCOMPARE(m_mock.calls(), QStringList());

    QCOMPARE(s->closeV1(), false);
    QVERIFY(!s->isOpen());
    QCOMPARE(calls("SKF_CloseApplication"), 1);
    QCOMPARE(calls("SKF_DisConnectDev"), 1);
    QCOMPARE(m_core.lastError(), 0u);
    QVERIFY(!s->verifyPin(QString::fromLatin1(kUserPin), false));
    QCOMPARE(m_core.lastError(), uint(SAR_USER_NOT_LOGGED_IN));

    // A second closeV1 does no harm, but says that nothing was open.
    m_mock.clearCalls();
    m_core.setLastError(0);
    QCOMPARE(s->closeV1(), false);
    QCOMPARE(m_mock.calls(), QStringList());
    QCOMPARE(m_core.lastError(), uint(SAR_USER_NOT_LOGGED_IN));

    // The next open connects again.
    QVERIFY(s->open());
    QCOMPARE(calls("SKF_ConnectDev"), 1);
}

void TestSessionMock::connectFailureOnNewSession()
{
    m_mock.fail("SKF_ConnectDev", SAR_FAIL, 1);
    Session *s = session();
    StdoutCapture capture(outputPath());
    QVERIFY(!s->open());
    QCOMPARE(capture.finish(), QByteArray("previous\n[TWKeyObjectSkf::PrintError] Error:fail \n"));
    QVERIFY(logged("open", QStringLiteral(" SKF_ConnectDev failed,ret = %1 ").arg(SAR_FAIL), TWCore::Level::Error));
    // closeV1 ran on a session that held nothing.
    QCOMPARE(calls("SKF_DisConnectDev"), 0);
    QCOMPARE(m_core.lastError(), uint(SAR_USER_NOT_LOGGED_IN));
    QVERIFY(!s->isOpen());
}

void TestSessionMock::destructorDisconnects()
{
    Session *s = openSession();
    QVERIFY(s);
    m_sessions.removeOne(s);
    const int before = KeyObject::s_vecKeyObj.size();
    delete s;
    QCOMPARE(KeyObject::s_vecKeyObj.size(), before - 1);
    QCOMPARE(calls("SKF_CloseApplication"), 1);
    QCOMPARE(calls("SKF_DisConnectDev"), 1);
}

void TestSessionMock::isKeyDisConnectProbes()
{
    Session *s = openSession();
    QVERIFY(s);
    QVERIFY(!s->isKeyDisConnect());
    QCOMPARE(calls("SKF_GenRandom"), 1);
    m_mock.set_present(kDev, 0);
    QVERIFY(s->isKeyDisConnect());
    QVERIFY(logged("isKeyDisConnect", QStringLiteral(" keyDriver->pSKF_GenRandom failed")));
    // Asking does not close.
    QVERIFY(s->isOpen());
}

void TestSessionMock::openApplicationForms()
{
    bareToken(false);
    Session *s = session();
    QVERIFY(!s->open());
    QVERIFY(!s->hasApp());
    QVERIFY(logged("open", QStringLiteral(" end. appNameList.count = 0")));
    QCOMPARE(calls("SKF_OpenApplication"), 0);

    // Connected, no application on the token.
    QVERIFY(!s->openApplication());
    QVERIFY(logged("openApplication", QStringLiteral(" end. appNameList.count = 0")));

    m_mock.add_app(kDev, kApp);
    QVERIFY(s->openApplication());
    QVERIFY(s->hasApp());
    m_core.clear();
    // Already held: true, with the old words.
    QVERIFY(s->openApplication());
    QVERIFY(logged("openApplication", QStringLiteral(" end. app = null")));

    QVERIFY(s->openApplication(QString::fromLatin1(kApp)) != nullptr);
    m_mock.clearCalls();
    QCOMPARE(s->openApplication(QString()), nullptr);
    QCOMPARE(m_mock.calls(), QStringList());
    QVERIFY(logged("openApplication",
                   QStringLiteral(" end. keyDriver = null or dev = null or appName is empty.")));
    QCOMPARE(s->openApplication(QStringLiteral("NOPE")), nullptr);
    QCOMPARE(m_core.lastError(), uint(SAR_APPLICATION_NOT_EXISTS));
    QVERIFY(logged("openApplication", QStringLiteral(" SKF_OpenApplication failed,ret= %1").arg(SAR_APPLICATION_NOT_EXISTS),
                   TWCore::Level::Error));
}

void TestSessionMock::findDevbySNAsksEachSession()
{
    m_mock.add_device("dev2", "SECONDSERIAL");
    m_mock.add_app("dev2", kApp);
    m_mock.add_container("dev2", kApp, "c1", CONTAINER_TYPE_ECC);
    Session *first = openSession();
    Session *second = openSession(nullptr, "dev2");
    QVERIFY(first && second);
    QCOMPARE(KeyObject::findDevbySN(QStringLiteral("SECONDSERIAL")), second);
    // Found by the limited serial number, not the whole field.
    QCOMPARE(KeyObject::findDevbySN(QString::fromLatin1(kSerial16)), first);
    QCOMPARE(KeyObject::findDevbySN(QString::fromLatin1(kSerial)), nullptr);
}

// ---------------------------------------------------------------------------

void TestSessionMock::keyStatusReadsTheStateFile()
{
    Session *s = session();
    TwDeviceGuard::set(QByteArray());
    QVERIFY(s->GetKeyStatus());
    TwDeviceGuard::set("");
    QVERIFY(s->GetKeyStatus());

    TwDeviceGuard::set("ABC");
    {
        StdoutCapture capture(outputPath());
        QVERIFY(s->GetKeyStatus());
        QCOMPARE(capture.finish(), QByteArray("ABC\n"));
    }
    QVERIFY(logged("GetKeyStatus", QStringLiteral(" tw_device,value = ABC "), TWCore::Level::Error));
    QVERIFY(!s->GetKeyStatus());
    // The value ends at the first NUL.
    TwDeviceGuard::set(QByteArray("ABC\0tail", 8));
    QVERIFY(!s->GetKeyStatus());
    TwDeviceGuard::set("ABD");
    QVERIFY(s->GetKeyStatus());
}

void TestSessionMock::savedSerialFollowsPackageLimit()
{
    KdpConfig config;
    config.limitSerialNum = QStringLiteral("1");
    config.limitSize = QStringLiteral("8");
    KeyDriverPackage *limited = package(config);
    QVERIFY(limited);
    Session *s = session(limited);
    QVERIFY(s->SaveKeySn());
    // Nothing read yet: an empty serial number empties the file.
    QCOMPARE(TwDeviceGuard::current(), QByteArray());
    QVERIFY(s->open());
    QCOMPARE(TwDeviceGuard::current(), QByteArray("SN20CHAR"));
    QCOMPARE(s->serialNumber(), QStringLiteral("SN20CHAR"));
    QCOMPARE(s->serialNumberEx(), QString::fromLatin1(kSerial));
}

void TestSessionMock::identityFromDeviceInfo()
{
    m_mock.set_versions(kDev, 2, 10, 3, 0);
    m_mock.set_manufacturer(kDev, "Maker Ltd");
    m_mock.set_label(kDev, "my key");
    Session *s = openSession();
    QVERIFY(s);
    // Read from what the connect brought: no token traffic.
    QCOMPARE(s->GetHWVersion(), QStringLiteral("2.10"));
    QCOMPARE(s->GetFirmwareVersion(), QStringLiteral("3.0"));
    QCOMPARE(s->GetManufacturer(), QStringLiteral("Maker Ltd"));
    QCOMPARE(s->labelName(), QStringLiteral("my key"));
    QCOMPARE(m_mock.calls(), QStringList());
    QVERIFY(logged("GetHWVersion", QStringLiteral(" strMinor is:10")));
}

void TestSessionMock::labelAndSpace()
{
    Session *s = openSession();
    QVERIFY(s);
    QVERIFY(s->SetlabelName(QStringLiteral("renamed")));
    QVERIFY(logged("SetlabelName", QStringLiteral(" SetLabel is successfully")));
    QCOMPARE(s->labelName(), QString::fromLatin1(kDev));
    const quint64 total = s->totalSpace();
    QCOMPARE(total, quint64(65536));
    QCOMPARE(s->labelName(), QStringLiteral("renamed"));

    QVERIFY(s->createFile(QStringLiteral("f"), 1000));
    QCOMPARE(s->freeSpace(), total - 1000);

    // A refused label says nothing and keeps the session.
    m_core.setLastError(kPreset);
    QVERIFY(!s->SetlabelName(QString(40, QLatin1Char('x'))));
    m_mock.fail("SKF_SetLabel", SAR_DEVICE_REMOVED, 1);
    QVERIFY(!s->SetlabelName(QStringLiteral("x")));
    QCOMPARE(m_core.lastError(), kPreset);
    QVERIFY(s->isOpen());

    // A failed read leaves the identity empty until the next connect.
    m_mock.fail("SKF_GetDevInfo", SAR_FAIL, 1);
    QCOMPARE(s->totalSpace(), quint64(0));
    QCOMPARE(s->serialNumber(), QString());
    QCOMPARE(m_core.lastError(), kPreset);

    // Without a connection nothing is read.
    s->closeV1();
    m_mock.clearCalls();
    QCOMPARE(s->totalSpace(), quint64(0));
    QCOMPARE(m_mock.calls(), QStringList());
}

// ---------------------------------------------------------------------------

void TestSessionMock::userPinLengthRule_data()
{
    QTest::addColumn<QString>("pin");
    QTest::addColumn<bool>("isAdmin");
    QTest::addColumn<bool>("reachesToken");
    QTest::newRow("user 5") << "12345" << false << false;
    QTest::newRow("user 17") << "12345678901234567" << false << false;
    QTest::newRow("user 0") << "" << false << false;
    QTest::newRow("user 6") << "123456" << false << true;
    QTest::newRow("user 16") << "1234567890123456" << false << true;
    QTest::newRow("admin 2") << "12" << true << true;
    QTest::newRow("admin 17") << "12345678901234567" << true << true;
}

void TestSessionMock::userPinLengthRule()
{
    QFETCH(QString, pin);
    QFETCH(bool, isAdmin);
    QFETCH(bool, reachesToken);
    Session *s = openSession();
    QVERIFY(s);
    const unsigned type = isAdmin ? 0 : 1;
    const unsigned before = m_mock.pin_retries(kDev, kApp, type);

    StdoutCapture capture(outputPath());
    QVERIFY(!s->verifyPin(pin, isAdmin));
    const QByteArray printed = capture.finish();
    if (reachesToken) {
        QCOMPARE(calls("SKF_VerifyPIN"), 1);
        QCOMPARE(m_mock.pin_retries(kDev, kApp, type), before - 1);
        QCOMPARE(m_core.lastError(), uint(SAR_PIN_INCORRECT));
        QCOMPARE(printed, QByteArray("[TWKeyObjectSkf::PrintError] Error:密码错误 \n"));
        QVERIFY(logged("verifyPinEx", QStringLiteral(" SKF_VerifyPIN failed,ret = %1").arg(SAR_PIN_INCORRECT),
                       TWCore::Level::Error));
    } else {
        QCOMPARE(calls("SKF_VerifyPIN"), 0);
        QCOMPARE(m_mock.pin_retries(kDev, kApp, type), before);
        QCOMPARE(m_core.lastError(), uint(TW_ERR_OLD_PIN_LEN));
        QCOMPARE(printed, QByteArray());
        QVERIFY(logged("verifyPinEx", QStringLiteral(" pinCode length: %1").arg(pin.length())));
        QVERIFY(logged("verifyPinEx", QStringLiteral(" end . oldPin len error")));
    }
    // A wrong PIN is a failure of the operation, not of the session.
    QVERIFY(s->isOpen());
}

void TestSessionMock::changePinChecksInOrder()
{
    Session *s = openSession();
    QVERIFY(s);
    QVERIFY(!s->changePIN(false, QStringLiteral("123"), QStringLiteral("45")));
    QCOMPARE(m_core.lastError(), uint(TW_ERR_OLD_PIN_LEN));
    QVERIFY(!s->changePIN(false, QString::fromLatin1(kUserPin), QStringLiteral("45")));
    QCOMPARE(m_core.lastError(), uint(TW_ERR_NEW_PIN_LEN));
    QVERIFY(logged("changePIN", QStringLiteral(" end . newPin len error")));
    QCOMPARE(calls("SKF_ChangePIN"), 0);

    // No length rule for the administrator PIN.
    QVERIFY(s->changePIN(true, QString::fromLatin1(kAdminPin), QStringLiteral("abc")));
    QVERIFY(m_mock.pin_is(kDev, kApp, 0, "abc"));
    QVERIFY(s->changePIN(false, QString::fromLatin1(kUserPin), QStringLiteral("87654321")));
    QVERIFY(m_mock.pin_is(kDev, kApp, 1, "87654321"));

    // A wrong old PIN: the code and words, but no PrintError line.
    StdoutCapture capture(outputPath());
    QVERIFY(!s->changePIN(false, QString::fromLatin1(kUserPin), QStringLiteral("11112222")));
    QCOMPARE(capture.finish(), QByteArray());
    QCOMPARE(m_core.lastError(), uint(SAR_PIN_INCORRECT));
    QVERIFY(logged("changePIN", QStringLiteral(" SKF_ChangePIN failed,ret = %1").arg(SAR_PIN_INCORRECT),
                   TWCore::Level::Error));
    QVERIFY(logged("changePIN", QStringLiteral(" end.")));
}

void TestSessionMock::resetUserPinTwoTries()
{
    // First try: the built-in administrator PIN.
    m_mock.set_pin(kDev, kApp, 0, kBuiltInAdminPin, 10);
    Session *s = openSession();
    QVERIFY(s);
    QVERIFY(s->resetUserPin());
    QCOMPARE(calls("SKF_UnblockPIN"), 1);
    QVERIFY(m_mock.pin_is(kDev, kApp, 1, kDefaultUserPin));
    QVERIFY(logged("resetUserPin", QStringLiteral(" SKF_UnblockPIN first")));
    QVERIFY(!logged("resetUserPin", QStringLiteral(" SKF_UnblockPIN second")));

    // Neither try possible: the first result stays.
    m_mock.set_pin(kDev, kApp, 0, kAdminPin, 10);
    m_mock.clearCalls();
    QVERIFY(!s->resetUserPin());
    QCOMPARE(calls("SKF_UnblockPIN"), 1);
    QCOMPARE(m_core.lastError(), uint(SAR_PIN_INCORRECT));
    QVERIFY(logged("resetUserPin", QStringLiteral(" SKF_UnblockPIN first failed,ret = %1").arg(SAR_PIN_INCORRECT),
                   TWCore::Level::Error));

    // Second try: the package's PIN, kept under two layers of base64.
    KdpConfig config;
    config.ap = KdpFixture::encodeAdminPin(QString::fromLatin1(kAdminPin));
    Session *withAp = openSession(package(config));
    QVERIFY(withAp);
    m_mock.set_pin(kDev, kApp, 1, "99999999", 3);
    QVERIFY(withAp->resetUserPin());
    QCOMPARE(calls("SKF_UnblockPIN"), 2);
    QVERIFY(m_mock.calls().contains(QStringLiteral("SKF_UnblockPIN admin=%1 user=%2").arg(kAdminPin, kDefaultUserPin)));
    QVERIFY(m_mock.pin_is(kDev, kApp, 1, kDefaultUserPin));
    QVERIFY(logged("resetUserPin", QStringLiteral(" strDefaultAdminPin: ") + *config.ap));
    QVERIFY(logged("resetUserPin", QStringLiteral(" SKF_UnblockPIN second")));

    // Both fail: the second result, recorded but not logged. Two tries
    // left, so the first answers "incorrect" and the second "locked".
    m_mock.set_pin(kDev, kApp, 0, "00000000", 2);
    m_core.clear();
    QVERIFY(!withAp->resetUserPin());
    QCOMPARE(m_mock.pin_retries(kDev, kApp, 0), 0u);
    QCOMPARE(m_core.lastError(), uint(SAR_PIN_LOCKED));
    QCOMPARE(m_core.lines(TWCore::Level::Error).filter(QStringLiteral("second")), QStringList());
    // A removed token doesn't close the session in the resets.
    QVERIFY(withAp->isOpen());
}

void TestSessionMock::resetUserPinV1()
{
    Session *s = openSession();
    QVERIFY(s);
    // No administrator PIN: the built-in rescue runs and its failure is
    // not passed on.
    QVERIFY(s->resetUserPinV1(QString(), QStringLiteral("ignored1")));
    QCOMPARE(calls("SKF_UnblockPIN"), 1);
    QVERIFY(m_mock.pin_is(kDev, kApp, 1, kUserPin));

    // No new user PIN: the default one.
    QVERIFY(s->resetUserPinV1(QString::fromLatin1(kAdminPin), QString()));
    QVERIFY(m_mock.pin_is(kDev, kApp, 1, kDefaultUserPin));
    QVERIFY(s->resetUserPinV1(QString::fromLatin1(kAdminPin), QStringLiteral("13572468")));
    QVERIFY(m_mock.pin_is(kDev, kApp, 1, "13572468"));

    m_core.clear();
    QVERIFY(!s->resetUserPinV1(QStringLiteral("wrongpin"), QStringLiteral("13572468")));
    QCOMPARE(m_core.lastError(), uint(SAR_PIN_INCORRECT));
    const QStringList errors = m_core.lines(TWCore::Level::Error);
    QCOMPARE(errors.size(), 2);
    QVERIFY(errors.at(0).endsWith(QStringLiteral(" SKF_UnblockPIN failed,pulRetryCount = 9")));
    QVERIFY(errors.at(1).endsWith(QStringLiteral(" SKF_UnblockPIN failed,ret = %1").arg(SAR_PIN_INCORRECT)));
}

void TestSessionMock::resetAdminPin()
{
    // The built-in PIN is already the token's.
    m_mock.set_pin(kDev, kApp, 0, kBuiltInAdminPin, 10);
    Session *s = openSession();
    QVERIFY(s);
    QVERIFY(s->resetAdminPin());
    QCOMPARE(calls("SKF_ChangePIN"), 0);

    // Neither PIN, and no `ap`: a success on paper.
    m_mock.set_pin(kDev, kApp, 0, kAdminPin, 10);
    QVERIFY(s->resetAdminPin());
    QVERIFY(m_mock.pin_is(kDev, kApp, 0, kAdminPin));

    // The package's PIN is the token's: moved over to the built-in one.
    KdpConfig config;
    config.ap = KdpFixture::encodeAdminPin(QString::fromLatin1(kAdminPin));
    Session *withAp = openSession(package(config));
    QVERIFY(withAp);
    QVERIFY(withAp->resetAdminPin());
    QVERIFY(m_mock.pin_is(kDev, kApp, 0, kBuiltInAdminPin));
    QVERIFY(s->resetUserPin());

    // Both fail.
    m_mock.set_pin(kDev, kApp, 0, "00000000", 10);
    m_core.clear();
    QVERIFY(!withAp->resetAdminPin());
    QVERIFY(logged("resetAdminPin", QStringLiteral(" end. DefaultAdminPin fail")));
    QCOMPARE(m_core.lastError(), uint(SAR_PIN_INCORRECT));
}

void TestSessionMock::pinInfo()
{
    m_mock.set_pin(kDev, kApp, 1, kUserPin, 6);
    Session *s = openSession();
    QVERIFY(s);
    QVERIFY(!s->verifyPin(QStringLiteral("00000000"), false));
    QCOMPARE(s->GetPINInfo(1, 0), quint64(6));
    QCOMPARE(s->GetPINInfo(1, 1), quint64(5));
    QCOMPARE(s->GetPINInfo(0, 0), quint64(10));
    m_core.setLastError(kPreset);
    QCOMPARE(s->GetPINInfo(1, 2), quint64(0));
    QCOMPARE(m_core.lastError(), kPreset);

    // A locked PIN: 0 left, and the last error tells it from a failure.
    m_mock.set_pin(kDev, kApp, 1, kUserPin, 1);
    QVERIFY(!s->verifyPin(QStringLiteral("00000000"), false));
    m_core.setLastError(kPreset);
    QCOMPARE(s->GetPINInfo(1, 1), quint64(0));
    QCOMPARE(m_core.lastError(), kPreset);

    QCOMPARE(s->GetPINInfo(7, 0), quint64(0));
    QCOMPARE(m_core.lastError(), uint(SAR_USER_TYPE_INVALID));
    QVERIFY(logged("GetPINInfo", QStringLiteral(" SKF_GetPINInfo failed,ret = %1").arg(SAR_USER_TYPE_INVALID),
                   TWCore::Level::Error));
}

// ---------------------------------------------------------------------------

void TestSessionMock::fileGuards()
{
    const QByteArray old("old content");
    m_mock.addFile(kDev, kApp, "f", old);
    Session *s = openSession();
    QVERIFY(s);

    const std::vector<std::pair<const char *, std::function<bool()>>> emptyName = {
        {"createFile", [&] { return s->createFile(QString(), 10); }},
        {"readFile", [&] { return !s->readFile(QString()).isEmpty(); }},
        {"writeFile", [&] { return s->writeFile(QString(), 0, QByteArray("x")); }},
        {"deleteFile", [&] { return s->deleteFile(QString()); }},
        {"writeFileV1", [&] { return s->writeFileV1(QString(), QByteArray()); }},
    };
    for (const auto &op : emptyName) {
        m_core.clear();
        QVERIFY2(!op.second(), op.first);
        QCOMPARE(m_core.lastError(), uint(SAR_NAMELENERR));
        QVERIFY2(logged(op.first, QStringLiteral(" end,parameter invalid ")), op.first);
    }

    // Empty data touches nothing, the old file stays as it was.
    QVERIFY(!s->writeFile(QStringLiteral("f"), 0, QByteArray()));
    QCOMPARE(m_core.lastError(), uint(SAR_INDATALENERR));
    QVERIFY(!s->writeFileV1(QStringLiteral("f"), QByteArray()));
    QCOMPARE(m_core.lastError(), uint(SAR_INDATALENERR));
    QVERIFY(logged("writeFileV1", QStringLiteral(" end. parameter invalid")));
    QCOMPARE(m_mock.calls(), QStringList());
    QCOMPARE(m_mock.fileData(kDev, kApp, "f"), old);
}

void TestSessionMock::filesRoundTrip()
{
    Session *s = openSession();
    QVERIFY(s);
    m_core.setLastError(kPreset);
    QCOMPARE(s->enumFiles(), QStringList());
    QCOMPARE(m_core.lastError(), kPreset);

    QByteArray hundred(100, '\0');
    for (int i = 0; i < hundred.size(); ++i)
        hundred[i] = char(i);
    QVERIFY(s->createFile(QStringLiteral("data"), 100));
    QVERIFY(m_mock.calls().contains(QStringLiteral("SKF_CreateFile name=data size=100 read=255 write=255")));
    QVERIFY(s->createFile(QStringLiteral("rights"), 1, 0x10, 0x11));
    QVERIFY(m_mock.calls().contains(QStringLiteral("SKF_CreateFile name=rights size=1 read=16 write=17")));
    QVERIFY(s->deleteFile(QStringLiteral("rights")) == false);
    QCOMPARE(m_core.lastError(), uint(SAR_USER_NOT_LOGGED_IN));
    QVERIFY(s->writeFile(QStringLiteral("data"), 0, hundred));
    QVERIFY(s->createFile(QStringLiteral("empty"), 0));
    const QStringList names{QStringLiteral("data"), QStringLiteral("rights"), QStringLiteral("empty")};
    QCOMPARE(s->enumFiles(), names);
    QCOMPARE(s->enumFiles(), names);

    // The whole file, whatever size is asked.
    m_mock.clearCalls();
    QCOMPARE(s->readFile(QStringLiteral("data"), 0, 10), hundred);
    QVERIFY(m_mock.calls().contains(QStringLiteral("SKF_ReadFile name=data off=0 size=100")));
    // By name with only the file name: offset 0, size 0.
    QByteArray viaName;
    QVERIFY(twCall(s, "readFile", viaName, QStringLiteral("data")));
    QCOMPARE(viaName, hundred);
    // From an offset the token clips the answer.
    QCOMPARE(s->readFile(QStringLiteral("data"), 60, 0), hundred.mid(60));

    // An empty file: empty, without a read and without a last error.
    m_mock.clearCalls();
    m_core.setLastError(kPreset);
    QCOMPARE(s->readFile(QStringLiteral("empty")), QByteArray());
    QCOMPARE(calls("SKF_ReadFile"), 0);
    QCOMPARE(m_core.lastError(), kPreset);

    // The short forms of createFile give full rights.
    bool created = false;
    QVERIFY(twCall(s, "createFile", created, QStringLiteral("short"), quint64(4)));
    QVERIFY(created);
    QVERIFY(m_mock.calls().contains(QStringLiteral("SKF_CreateFile name=short size=4 read=255 write=255")));

    QVERIFY(s->deleteFile(QStringLiteral("data")));
    QVERIFY(!m_mock.file_exists(kDev, kApp, "data"));
    QVERIFY(!s->deleteFile(QStringLiteral("data")));
    QCOMPARE(m_core.lastError(), uint(SAR_FILE_NOT_EXIST));
    QVERIFY(logged("deleteFile", QStringLiteral(" SKF_DeleteFile failed,ret = %1").arg(SAR_FILE_NOT_EXIST),
                   TWCore::Level::Error));
    QVERIFY(!s->readFile(QStringLiteral("data")).size());
    QCOMPARE(m_core.lastError(), uint(SAR_FILE_NOT_EXIST));
    QVERIFY(s->isOpen());
}

void TestSessionMock::readFileNameEncodings()
{
    Session *s = openSession();
    QVERIFY(s);
    // Attributes are asked under Latin-1, the read under UTF-8: a name
    // outside Latin-1 is two different byte strings.
    const QString name = QStringLiteral("\u6587\u4ef6");
    m_mock.addFile(kDev, kApp, "??", QByteArray("x"));
    m_mock.addFile(kDev, kApp, name.toUtf8().constData(), QByteArray("yz"));
    QCOMPARE(s->readFile(name), QByteArray("y"));
    QCOMPARE(m_mock.calls(), (QStringList{QStringLiteral("SKF_GetFileInfo name=??"),
                                         QStringLiteral("SKF_ReadFile name=") + name + QStringLiteral(" off=0 size=1")}));
}

void TestSessionMock::writeFileV1Replaces()
{
    const QByteArray old(100, 'o');
    m_mock.addFile(kDev, kApp, "f", old);
    m_mock.set_file_rights(kDev, kApp, "f", 0x10, 0x10);
    Session *s = openSession();
    QVERIFY(s);
    // The old file may be deleted only after a login.
    QVERIFY(s->verifyPin(QString::fromLatin1(kUserPin), false));
    m_mock.clearCalls();
    QVERIFY(s->writeFileV1(QStringLiteral("f"), QByteArray("fresh")));
    unsigned readRights = 0, writeRights = 0;
    QCOMPARE(m_mock.file_info(kDev, kApp, "f", nullptr, 0u, &readRights, &writeRights), 5);
    QCOMPARE(m_mock.fileData(kDev, kApp, "f"), QByteArray("fresh"));
    QCOMPARE(readRights, 0xFFu);
    QCOMPARE(writeRights, 0xFFu);
    QCOMPARE(m_mock.calls(), (QStringList{QStringLiteral("SKF_GetFileInfo name=f"), QStringLiteral("SKF_DeleteFile name=f"),
                                         QStringLiteral("SKF_CreateFile name=f size=5 read=255 write=255"),
                                         QStringLiteral("SKF_WriteFile name=f off=0 size=5")}));

    // A new name is simply created.
    QVERIFY(s->writeFileV1(QStringLiteral("g"), QByteArray("new")));
    QCOMPARE(m_mock.fileData(kDev, kApp, "g"), QByteArray("new"));

    // A failed write leaves the new, empty file: there is no rollback.
    m_mock.fail("SKF_WriteFile", SAR_WRITEFILEERR, 1);
    QVERIFY(!s->writeFileV1(QStringLiteral("f"), QByteArray("xy")));
    QCOMPARE(m_mock.fileData(kDev, kApp, "f"), QByteArray(2, '\0'));
    QCOMPARE(m_core.lastError(), uint(SAR_WRITEFILEERR));

    // A failing attribute query is taken as "no such file".
    m_mock.clearCalls();
    m_mock.fail("SKF_GetFileInfo", SAR_FAIL, 1);
    m_core.clear();
    QVERIFY(!s->writeFileV1(QStringLiteral("g"), QByteArray("xy")));
    QCOMPARE(calls("SKF_DeleteFile"), 0);
    QCOMPARE(m_core.lastError(), uint(SAR_FILE_ALREADY_EXIST));
    // Only the creation speaks; the failed query is not an error.
    const QStringList errors = m_core.lines(TWCore::Level::Error);
    QCOMPARE(errors.size(), 1);
    QVERIFY(errors.first().endsWith(QStringLiteral("] SKF_CreateFile failed,ret = %1").arg(SAR_FILE_ALREADY_EXIST)));
}

void TestSessionMock::writeFileV1CfcaReading_data()
{
    QTest::addColumn<QString>("packageName");
    QTest::addColumn<uint>("failure");
    QTest::addColumn<uint>("expected");
    QTest::newRow("CFCA") << "CFCA" << uint(SAR_FAIL) << uint(SAR_NO_ROOM);
    QTest::newRow("cfca") << "cfca" << uint(SAR_FAIL) << uint(SAR_NO_ROOM);
    QTest::newRow("CfCa") << "CfCa" << uint(SAR_FAIL) << uint(SAR_NO_ROOM);
    QTest::newRow("other name") << "CFCA2" << uint(SAR_FAIL) << uint(SAR_FAIL);
    QTest::newRow("other code") << "CFCA" << uint(SAR_FILEERR) << uint(SAR_FILEERR);
}

void TestSessionMock::writeFileV1CfcaReading()
{
    QFETCH(QString, packageName);
    QFETCH(uint, failure);
    QFETCH(uint, expected);
    KdpConfig config;
    config.name = packageName;
    Session *s = openSession(package(config));
    QVERIFY(s);
    m_mock.fail("SKF_CreateFile", failure, 1);
    QVERIFY(!s->writeFileV1(QStringLiteral("f"), QByteArray("data")));
    QCOMPARE(m_core.lastError(), expected);
    const QString words = expected == uint(SAR_NO_ROOM) ? QStringLiteral(" SKF_CreateFile failed (CFCA),ret = %1")
                                                        : QStringLiteral(" SKF_CreateFile failed,ret = %1");
    QVERIFY(logged("writeFileV1", words.arg(expected), TWCore::Level::Error));
    QCOMPARE(calls("SKF_WriteFile"), 0);
    QVERIFY(s->isOpen());
}

void TestSessionMock::enumFilesSizeQueryFailureKeepsSession()
{
    const QByteArray one("1");
    m_mock.addFile(kDev, kApp, "a", one);
    Session *s = openSession();
    QVERIFY(s);
    QCOMPARE(s->enumFiles(), QStringList{QStringLiteral("a")});
    // Even a removed device: the size query neither closes nor sets.
    m_mock.fail("SKF_EnumFiles", SAR_DEVICE_REMOVED, 1);
    m_core.setLastError(kPreset);
    QCOMPARE(s->enumFiles(), QStringList());
    QCOMPARE(m_core.lastError(), kPreset);
    QVERIFY(s->isOpen());
    QVERIFY(logged("enumFiles", QStringLiteral(" SKF_EnumFiles failed,ret = %1").arg(SAR_DEVICE_REMOVED),
                   TWCore::Level::Error));
}

void TestSessionMock::oversizedListsAreRefused_data()
{
    QTest::addColumn<QString>("function");
    QTest::addColumn<bool>("keepsSession");
    // As a failed fill call: that of the file list closes the session.
    QTest::newRow("files") << "SKF_EnumFiles" << false;
    QTest::newRow("containers") << "SKF_EnumContainer" << true;
    QTest::newRow("certificate") << "SKF_ExportCertificate" << true;
}

void TestSessionMock::oversizedListsAreRefused()
{
    QFETCH(QString, function);
    QFETCH(bool, keepsSession);
    m_mock.addFile(kDev, kApp, "a", QByteArray("1"));
    const QByteArray der("certificate");
    m_mock.setCert(kDev, kApp, "c1", true, der);
    Session *s = openSession();
    QVERIFY(s);
    Qt::HANDLE container = s->openContainer(QStringLiteral("c1"));
    QVERIFY(container);

    // A size past 2 GiB: the session must not hand the library a buffer
    // shorter than the size it passes along.
    const QByteArray name = function.toLatin1();
    m_mock.size_delta(name.constData(), std::numeric_limits<int>::max());
    m_mock.clearCalls();
    if (function == QLatin1String("SKF_EnumFiles"))
        QCOMPARE(s->enumFiles(), QStringList());
    else if (function == QLatin1String("SKF_EnumContainer"))
        QCOMPARE(s->enumContainer(), QStringList());
    else
        QCOMPARE(s->exportCertificate(container, true), QByteArray());
    QCOMPARE(calls(name.constData()), 1);
    QCOMPARE(m_core.lastError(), uint(SAR_MEMORYERR));
    QCOMPARE(s->isOpen(), keepsSession);
}

// ---------------------------------------------------------------------------

void TestSessionMock::createAndDeleteContainers()
{
    Session *s = openSession();
    QVERIFY(s);
    QVERIFY(s->createContainer(QStringLiteral("c2")) != nullptr);
    QCOMPARE(s->enumContainer(), (QStringList{QStringLiteral("c1"), QStringLiteral("c2")}));

    m_mock.clearCalls();
    QCOMPARE(s->createContainer(QStringLiteral("c2")), nullptr);
    QCOMPARE(m_core.lastError(), uint(TW_ERR_CONTAINER_EXISTS));
    QCOMPARE(calls("SKF_CreateContainer"), 0);
    QVERIFY(logged("createContainer", QStringLiteral(" end. containerName is exist.")));
    // Names compare case-sensitively.
    QVERIFY(s->createContainer(QStringLiteral("C2")) != nullptr);

    m_mock.clearCalls();
    QCOMPARE(s->createContainer(QString()), nullptr);
    QCOMPARE(m_core.lastError(), uint(SAR_USER_NOT_LOGGED_IN));
    QVERIFY(!s->deleteContainer(QString()));
    QCOMPARE(m_core.lastError(), uint(SAR_USER_NOT_LOGGED_IN));
    QVERIFY(logged("deleteContainer", QStringLiteral(" end. containerName is empty.")));
    QCOMPARE(m_mock.calls(), QStringList());

    QVERIFY(!s->deleteContainer(QStringLiteral("c3")));
    QCOMPARE(m_core.lastError(), uint(TW_ERR_CONTAINER_NOT_EXIST));
    QCOMPARE(calls("SKF_DeleteContainer"), 0);
    QVERIFY(logged("deleteContainer", QStringLiteral(" end. containerName is not exist.")));

    QVERIFY(s->deleteContainer(QStringLiteral("c2")));
    QVERIFY(logged("deleteContainer", QStringLiteral(" containerName is exist.")));
    QCOMPARE(s->enumContainer(), (QStringList{QStringLiteral("c1"), QStringLiteral("C2")}));

    // The token's own refusal passes through PrintError.
    m_mock.set_login_required(1);
    StdoutCapture capture(outputPath());
    QCOMPARE(s->createContainer(QStringLiteral("c4")), nullptr);
    QCOMPARE(capture.finish(), QByteArray("[TWKeyObjectSkf::PrintError] Error:用户没有登录 \n"));
    QVERIFY(logged("createContainer", QStringLiteral(" SKF_CreateContainer failed.ret = %1").arg(SAR_USER_NOT_LOGGED_IN),
                   TWCore::Level::Error));
}

void TestSessionMock::openContainerAndType()
{
    m_mock.add_container(kDev, kApp, "empty", CONTAINER_TYPE_EMPTY);
    Session *s = openSession();
    QVERIFY(s);
    QCOMPARE(s->openContainer(QString()), nullptr);
    QCOMPARE(m_core.lastError(), uint(SAR_USER_NOT_LOGGED_IN));
    QCOMPARE(m_mock.calls(), QStringList());

    QCOMPARE(s->openContainer(QStringLiteral("missing")), nullptr);
    QCOMPARE(m_core.lastError(), uint(TW_ERR_CONTAINER_NOT_EXIST));

    QCOMPARE(s->getContainerType(nullptr), 0);
    QCOMPARE(m_core.lastError(), uint(SAR_INVALIDHANDLEERR));
    QVERIFY(logged("getContainerType", QStringLiteral(" end. container = null")));

    Qt::HANDLE ecc = s->openContainer(QStringLiteral("c1"));
    QVERIFY(ecc);
    QCOMPARE(s->getContainerType(ecc), CONTAINER_TYPE_ECC);
    m_core.setLastError(kPreset);
    QCOMPARE(s->getContainerType(s->openContainer(QStringLiteral("empty"))), 0);
    QCOMPARE(m_core.lastError(), kPreset);

    // closeContainer does nothing on this class, whatever the handle.
    m_mock.clearCalls();
    s->closeContainer(ecc);
    s->closeContainer(nullptr);
    QCOMPARE(m_mock.calls(), QStringList());
    QCOMPARE(s->getContainerType(ecc), CONTAINER_TYPE_ECC);
}

void TestSessionMock::certificates()
{
    m_mock.add_container(kDev, kApp, "c2", CONTAINER_TYPE_ECC);
    const QByteArray der = QByteArray::fromHex("3082010a0282010100c0ffee");
    m_mock.setCert(kDev, kApp, "c2", true, der);
    Session *s = openSession();
    QVERIFY(s);

    // Only the second container has a signature certificate.
    QCOMPARE(s->exportAllCertificate(true), QStringList{QString::fromLatin1(der.toBase64())});
    QCOMPARE(s->exportCertificate(s->openContainer(QStringLiteral("c2")), true), der);

    // No encryption certificates: an empty list with the last failure.
    QCOMPARE(s->exportAllCertificate(false), QStringList());
    QCOMPARE(m_core.lastError(), uint(SAR_CERTNOTFOUNTERR));

    QVERIFY(!s->ImportCertificate(nullptr, true, der));
    QCOMPARE(m_core.lastError(), uint(SAR_INVALIDHANDLEERR));
    QCOMPARE(s->exportCertificate(nullptr, true), QByteArray());
    QCOMPARE(m_core.lastError(), uint(SAR_INVALIDHANDLEERR));

    Qt::HANDLE c1 = s->openContainer(QStringLiteral("c1"));
    QVERIFY(s->ImportCertificate(c1, false, der + "enc"));
    QCOMPARE(s->exportCertificate(c1, false), der + "enc");
    // An empty certificate is the library's to refuse.
    m_mock.clearCalls();
    QVERIFY(!s->ImportCertificate(c1, true, QByteArray()));
    QCOMPARE(calls("SKF_ImportCertificate"), 1);
    QCOMPARE(m_core.lastError(), uint(SAR_INDATALENERR));

    // An application without containers: empty, last error untouched.
    m_mock.reset();
    m_mock.set_login_required(0);
    m_mock.add_device("dev2", "S2");
    m_mock.add_app("dev2", kApp);
    m_mock.add_container("dev2", kApp, "only", CONTAINER_TYPE_EMPTY);
    Session *bare = openSession(nullptr, "dev2");
    QVERIFY(bare);
    QVERIFY(bare->deleteContainer(QStringLiteral("only")));
    m_core.setLastError(kPreset);
    QCOMPARE(bare->exportAllCertificate(true), QStringList());
    QCOMPARE(bare->enumContainer(), QStringList());
    QCOMPARE(m_core.lastError(), kPreset);
}

// ---------------------------------------------------------------------------

namespace {

struct PulledCase
{
    const char *function;            // the library call that finds the token gone
    std::function<bool(Session *)> run; // true when the operation reported failure
    bool closes;
    bool setsLastError;
};

Qt::HANDLE containerOf(Session *s)
{
    return s->openContainer(QStringLiteral("c1"));
}

const QList<PulledCase> &pulledCases()
{
    static const QList<PulledCase> cases = {
        {"SKF_VerifyPIN", [](Session *s) { return !s->verifyPin(QStringLiteral("12345678"), false); }, true, true},
        {"SKF_ChangePIN", [](Session *s) { return !s->changePIN(true, QStringLiteral("1"), QStringLiteral("2")); },
         true, true},
        {"SKF_GetPINInfo", [](Session *s) { return s->GetPINInfo(1, 0) == 0; }, true, true},
        {"SKF_CreateFile", [](Session *s) { return !s->createFile(QStringLiteral("n"), 1); }, true, true},
        {"SKF_GetFileInfo", [](Session *s) { return s->readFile(QStringLiteral("f")).isEmpty(); }, true, true},
        {"SKF_ReadFile", [](Session *s) { return s->readFile(QStringLiteral("f")).isEmpty(); }, true, true},
        {"SKF_WriteFile", [](Session *s) { return !s->writeFile(QStringLiteral("f"), 0, "x"); }, true, true},
        {"SKF_DeleteFile", [](Session *s) { return !s->deleteFile(QStringLiteral("f")); }, true, true},
        {"SKF_DeleteFile", [](Session *s) { return !s->writeFileV1(QStringLiteral("f"), "x"); }, true, true},
        {"SKF_CreateFile", [](Session *s) { return !s->writeFileV1(QStringLiteral("f"), "x"); }, true, true},
        {"SKF_WriteFile", [](Session *s) { return !s->writeFileV1(QStringLiteral("f"), "x"); }, true, true},
        {"SKF_CreateContainer", [](Session *s) { return !s->createContainer(QStringLiteral("n")); }, true, true},
        {"SKF_DeleteContainer", [](Session *s) { return !s->deleteContainer(QStringLiteral("c1")); }, true, true},
        {"SKF_OpenContainer", [](Session *s) { return !containerOf(s); }, true, true},
        {"SKF_GetContainerType", [](Session *s) { return s->getContainerType(containerOf(s)) == 0; }, true, true},
        {"SKF_ImportCertificate", [](Session *s) { return !s->ImportCertificate(containerOf(s), true, "x"); },
         true, true},
        {"SKF_ExportCertificate", [](Session *s) { return s->exportCertificate(containerOf(s), true).isEmpty(); },
         true, true},
        {"SKF_EnumApplication", [](Session *s) { return s->enumApplication().isEmpty(); }, true, false},
        // These leave the session open.
        {"SKF_EnumContainer", [](Session *s) { return s->enumContainer().isEmpty(); }, false, true},
        {"SKF_EnumFiles", [](Session *s) { return s->enumFiles().isEmpty(); }, false, false},
        {"SKF_UnblockPIN", [](Session *s) { return !s->resetUserPin(); }, false, true},
        {"SKF_UnblockPIN", [](Session *s) { return !s->resetUserPinV1(QStringLiteral("88888888"), QString()); },
         false, true},
        {"SKF_SetLabel", [](Session *s) { return !s->SetlabelName(QStringLiteral("x")); }, false, false},
    };
    return cases;
}

} // namespace

void TestSessionMock::pulledTokenDuringOperation_data()
{
    QTest::addColumn<int>("index");
    const QList<PulledCase> &cases = pulledCases();
    for (int i = 0; i < cases.size(); ++i)
        QTest::addRow("%d %s", i, cases.at(i).function) << i;
}

void TestSessionMock::pulledTokenDuringOperation()
{
    QFETCH(int, index);
    const PulledCase &c = pulledCases().at(index);
    const QByteArray data("some data");
    m_mock.addFile(kDev, kApp, "f", data);
    m_mock.setCert(kDev, kApp, "c1", true, data);
    Session *s = openSession();
    QVERIFY(s);
    m_core.setLastError(kPreset);
    m_mock.fail(c.function, SAR_DEVICE_REMOVED, 1);

    QVERIFY(c.run(s));
    QCOMPARE(m_core.lastError(), c.setsLastError ? uint(SAR_DEVICE_REMOVED) : kPreset);
    QCOMPARE(s->isOpen(), !c.closes);
    QCOMPARE(calls("SKF_DisConnectDev"), c.closes ? 1 : 0);
    QCOMPARE(calls("SKF_CloseApplication"), c.closes ? 1 : 0);
}

QStringList TestSessionMock::ordered(const std::function<bool()> &failingOperation)
{
    StdoutCapture capture(outputPath());
    OrderCore core(outputPath());
    bool failed = false;
    {
        CoreSwap swap(&core, &m_core);
        failed = failingOperation();
    }
    QStringList events = core.events();
    // Standard output back before anything is reported.
    capture.finish();
    return failed ? events : QStringList{QStringLiteral("operation did not fail")};
}

void TestSessionMock::failureStepsKeepTheirOrder()
{
    const QString removed = QString::number(SAR_DEVICE_REMOVED);
    Session *s = openSession();
    QVERIFY(s);

    // verifyPinEx: PrintError and words, then the close, the closing
    // words, and the code last.
    m_mock.fail("SKF_VerifyPIN", SAR_DEVICE_REMOVED, 1);
    QStringList events = ordered([&] { return !s->verifyPin(QString::fromLatin1(kUserPin), false); });
    QCOMPARE(after(events, QStringLiteral("log verifyPinEx: SKF_VerifyPIN")),
             (QStringList{QStringLiteral("stdout"),
                          QStringLiteral("error verifyPinEx: SKF_VerifyPIN failed,ret = ") + removed,
                          QStringLiteral("log closeV1: CloseApplication"), QStringLiteral("log closeV1: DisConnectDev"),
                          QStringLiteral("log verifyPinEx: end."), QStringLiteral("lastError a000023")}));

    // changePIN: the same without PrintError.
    QVERIFY(s->open());
    m_mock.fail("SKF_ChangePIN", SAR_DEVICE_REMOVED, 1);
    events = ordered([&] { return !s->changePIN(false, QString::fromLatin1(kUserPin), QStringLiteral("87654321")); });
    QCOMPARE(after(events, QStringLiteral("log changePIN: SKF_ChangePIN")),
             (QStringList{QStringLiteral("error changePIN: SKF_ChangePIN failed,ret = ") + removed,
                          QStringLiteral("log closeV1: CloseApplication"), QStringLiteral("log closeV1: DisConnectDev"),
                          QStringLiteral("log changePIN: end."), QStringLiteral("lastError a000023")}));

    // A failed connect: words and code, then PrintError, then closeV1 on
    // a session that holds nothing.
    m_mock.fail("SKF_ConnectDev", SAR_FAIL, 1);
    events = ordered([&] { return !session()->open(); });
    QCOMPARE(after(events, QStringLiteral("log open:linux SKF_ConnectDev")),
             (QStringList{QStringLiteral("error open: SKF_ConnectDev failed,ret = %1 ").arg(SAR_FAIL),
                          QStringLiteral("lastError a000001"), QStringLiteral("stdout"),
                          QStringLiteral("lastError a00002d"), QStringLiteral("lastError a00002d")}));

    // An application that doesn't open: words and code, then PrintError,
    // and the next application is tried.
    m_mock.add_app(kDev, "APP2");
    m_mock.add_container(kDev, "APP2", "c2", CONTAINER_TYPE_ECC);
    m_mock.fail("SKF_OpenApplication", SAR_APPLICATION_NOT_EXISTS, 1);
    events = ordered([&] { return session()->open(); });
    const QString failed = QStringLiteral("error open: SKF_OpenApplication failed,ret= %1").arg(SAR_APPLICATION_NOT_EXISTS);
    const int at = events.indexOf(failed);
    QVERIFY2(at > 0, qPrintable(events.join(QLatin1Char('\n'))));
    QVERIFY(events.at(at - 1) != QLatin1String("stdout"));
    QCOMPARE(events.mid(at, 3), (QStringList{failed, QStringLiteral("lastError a00002e"), QStringLiteral("stdout")}));
}

// ---------------------------------------------------------------------------

void TestSessionMock::formatKeyMovesAdminPinOver()
{
    for (const char *name : {"f1", "f2"})
        m_mock.addFile(kDev, kApp, name, QByteArray("x"));
    const QByteArray der("certificate");
    m_mock.setCert(kDev, kApp, "c1", true, der);
    KdpConfig config;
    config.ap = KdpFixture::encodeAdminPin(QString::fromLatin1(kAdminPin));
    Session *s = openSession(package(config));
    QVERIFY(s);

    bool formatted = false;
    QVERIFY(twCall(s, "formatKey", formatted));
    QVERIFY(formatted);
    QCOMPARE(s->enumFiles(), QStringList());
    QVERIFY(logged("formatKey", QStringLiteral(" delete file succeed. FileName: f1")));
    QVERIFY(logged("formatKey", QStringLiteral(" strDefaultAdminPin: ") + *config.ap));
    QVERIFY(m_mock.pin_is(kDev, kApp, 0, kBuiltInAdminPin));
    // Containers, certificates and the user PIN are kept.
    QCOMPARE(s->exportAllCertificate(true), QStringList{QString::fromLatin1(der.toBase64())});
    QVERIFY(m_mock.pin_is(kDev, kApp, 1, kUserPin));

    // Formatted again: the built-in PIN verifies at once.
    m_mock.clearCalls();
    QVERIFY(s->formatKey());
    QCOMPARE(calls("SKF_VerifyPIN"), 1);
    QCOMPARE(calls("SKF_ChangePIN"), 0);
    QCOMPARE(calls("SKF_DeleteFile"), 0);
}

void TestSessionMock::formatKeyFailsWithoutAnyAdminPin()
{
    m_mock.addFile(kDev, kApp, "f1", QByteArray("x"));
    Session *s = openSession();
    QVERIFY(s);
    QVERIFY(!s->formatKey());
    // The files are gone all the same.
    QVERIFY(!m_mock.file_exists(kDev, kApp, "f1"));
    QVERIFY(logged("formatKey", QStringLiteral(" end. DefaultAdminPin fail")));
    // The empty PIN went to the token as an administrator PIN.
    QVERIFY(m_mock.calls().contains(QStringLiteral("SKF_VerifyPIN type=0 pin=")));
    QCOMPARE(m_core.lastError(), uint(SAR_PIN_INCORRECT));
    QVERIFY(m_mock.pin_is(kDev, kApp, 0, kAdminPin));
}

void TestSessionMock::formatKeyIgnoresFailedDeletions()
{
    m_mock.set_pin(kDev, kApp, 0, kBuiltInAdminPin, 10);
    for (const char *name : {"f1", "f2"})
        m_mock.addFile(kDev, kApp, name, QByteArray("x"));
    Session *s = openSession();
    QVERIFY(s);
    m_mock.fail("SKF_DeleteFile", SAR_FILEERR, -1);
    QVERIFY(s->formatKey());
    QCOMPARE(calls("SKF_DeleteFile"), 2);
    QVERIFY(logged("formatKey", QStringLiteral(" delete file fail. FileName: f1")));
    QVERIFY(logged("formatKey", QStringLiteral(" delete file fail. FileName: f2")));
    QCOMPARE(m_core.lastError(), uint(SAR_FILEERR));
    m_mock.clear_faults();
}

QTEST_GUILESS_MAIN(TestSessionMock)
#include "tst_sessionmock.moc"
