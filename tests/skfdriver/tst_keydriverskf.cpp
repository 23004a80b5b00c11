// The SKF driver over the test token library: binding the eighty rows,
// enumerating devices, and mapping an index to a session.
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

#include "../frame/logcheck.h"
#include "frame/rtc.h"
#include "mockcontrol.h"
#include "package/keydriverinfo.h"
#include "package/keydriverpackage.h"
#include "session/keyobject.h"
#include "skf/checkthreadskf.h"
#include "skf/keydriverskf.h"
#include "twcore.h"
#include "twdeviceguard.h"

namespace {

// Qt's debug stream, where the binding reports missing names.
QStringList g_messages;

void captureMessage(QtMsgType, const QMessageLogContext &, const QString &text)
{
    g_messages << text;
}

struct MessageCapture
{
    QtMessageHandler previous;
    MessageCapture()
    {
        g_messages.clear();
        previous = qInstallMessageHandler(captureMessage);
    }
    ~MessageCapture() { qInstallMessageHandler(previous); }
};

QStringList bindingLines()
{
    return g_messages.filter(QRegularExpression(QStringLiteral("^(Error|Warning): load dll function")));
}

} // namespace

class TstKeyDriverSKF : public QObject
{
    Q_OBJECT

    TWCore core;
    TwDeviceGuard deviceFile;
    MockControl mock;

    // Sessions call through their driver's table, so the driver of a case
    // lives until its sessions are gone (see cleanup()).
    std::unique_ptr<KeyDriverSKF> driver;

    KeyDriverSKF *loadedDriver(const QString &path = QStringLiteral(MOCKSKF_PATH))
    {
        driver = std::make_unique<KeyDriverSKF>(nullptr, path);
        if (!driver->load())
            qFatal("the test token library did not bind");
        return driver.get();
    }

    // A token that opens: one application with one container.
    void addToken(const char *dev, const char *serial)
    {
        mock.add_device(dev, serial);
        mock.add_app(dev, "APP");
        mock.add_container(dev, "APP", "C1", CONTAINER_TYPE_ECC);
    }

    static void deleteAllSessions()
    {
        while (!KeyObject::s_vecKeyObj.isEmpty())
            delete KeyObject::s_vecKeyObj.last();
    }

private slots:
    void initTestCase() { QVERIFY2(mock.isLoaded(), qPrintable(mock.errorString())); }

    void init()
    {
        mock.reset();
        core.clear();
        core.setLastError(0);
        ComponentInit(&core);
    }

    void cleanup()
    {
        deleteAllSessions();
        driver.reset();
        ComponentDestroy();
    }

    // ---- binding ----

    void bindsEveryRow()
    {
        MessageCapture capture;
        KeyDriverSKF skf(nullptr, QStringLiteral(MOCKSKF_PATH));
        QVERIFY(logcheck::debug(core, QStringLiteral("KeyDriverSKF"), QStringLiteral("path :") + MOCKSKF_PATH));
        QVERIFY(skf.load());
        QCOMPARE(bindingLines(), QStringList());
        QVERIFY(skf.pEPS_Decrypt && skf.pSKF_WaitForDevEvent && skf.pSKF_EnumDev && skf.pSKF_CloseContainer
                && skf.pSKF_MacFinal && skf.pSKF_ExtECCEncrypt);
        // The cancel call has a slot but no row.
        QCOMPARE(reinterpret_cast<void *>(skf.pSKF_CancelWaitForDevEvent), nullptr);
        QVERIFY(logcheck::debug(core, QStringLiteral("load"), QStringLiteral("FileName: ") + MOCKSKF_PATH));
        QVERIFY(logcheck::debug(core, QStringLiteral("load"), QStringLiteral(" end")));
    }

    void optionalNamesMayBeMissing()
    {
        MessageCapture capture;
        KeyDriverSKF skf(nullptr, QStringLiteral(MOCKSKF_NOEPS_PATH));
        QVERIFY(skf.load());
        QCOMPARE(bindingLines(), (QStringList{QStringLiteral("Warning: load dll function [EPS_Decrypt] failed"),
                                              QStringLiteral("Warning: load dll function [EPS_Encrypt] failed"),
                                              QStringLiteral("Warning: load dll function [EPS_ImportSymmKey] failed"),
                                              QStringLiteral("Warning: load dll function [EPS_Mac] failed"),
                                              QStringLiteral("Warning: load dll function [EPS_ReadESealData] failed"),
                                              QStringLiteral("Warning: load dll function [EPS_WriteESealData] failed")}));
        QVERIFY(!skf.pEPS_ImportSymmKey && !skf.pEPS_WriteESealData);
        QVERIFY(skf.pSKF_EnumDev && skf.pSKF_ExtECCEncrypt);
        QCOMPARE(core.lines(TWCore::Level::Error), QStringList());
    }

    void requiredNameMissingStopsTheBinding()
    {
        MessageCapture capture;
        KeyDriverSKF skf(nullptr, QStringLiteral(MOCKSKF_NOWAIT_PATH));
        QVERIFY(!skf.load());
        // One line, and no later row was tried.
        QCOMPARE(bindingLines(), QStringList{QStringLiteral("Error: load dll function [SKF_WaitForDevEvent] failed")});
        QVERIFY(skf.pEPS_Decrypt);
        QVERIFY(!skf.pSKF_EnumDev);
        QVERIFY(logcheck::error(core, QStringLiteral("load"), QStringLiteral("end. init failed")));
        QCOMPARE(core.lastError(), 0u);
    }

    void warningThenError()
    {
        MessageCapture capture;
        KeyDriverSKF skf(nullptr, QStringLiteral(MOCKSKF_NOEPSDECRYPT_NODISCONNECT_PATH));
        QVERIFY(!skf.load());
        QCOMPARE(bindingLines(), (QStringList{QStringLiteral("Warning: load dll function [EPS_Decrypt] failed"),
                                              QStringLiteral("Error: load dll function [SKF_DisConnectDev] failed")}));
        QVERIFY(skf.pSKF_ConnectDev);
        QVERIFY(!skf.pSKF_GetDevState);
    }

    void fileThatIsNotALibrary()
    {
        MessageCapture capture;
        KeyDriverSKF skf(nullptr, QStringLiteral(NOTALIB_PATH));
        QVERIFY(!skf.load());
        QCOMPARE(bindingLines(), QStringList());
        const QStringList errors = core.lines(TWCore::Level::Error);
        QCOMPARE(errors.size(), 1);
        QVERIFY(errors.first().contains(QRegularExpression(QStringLiteral("^\\[load:\\d+\\]end\\. error msg .+"))));
    }

    void unloadNullsTheTableAndKeepsTheLibrary()
    {
        // A library of its own, so that nothing else holds it mapped.
        QTemporaryDir tmp;
        const QString copy = tmp.path() + QStringLiteral("/libcopy.so");
        QVERIFY(QFile::copy(QStringLiteral(MOCKSKF_PATH), copy));
        {
            KeyDriverSKF skf(nullptr, copy);
            QVERIFY(skf.load());
            skf.unload();
            QVERIFY(!skf.pEPS_Decrypt && !skf.pSKF_EnumDev && !skf.pSKF_ExtECCEncrypt);
            skf.unload(); // null over null
            QVERIFY(!skf.pSKF_WaitForDevEvent);
            QCOMPARE(skf.count(), 0);
        }
        QFile maps(QStringLiteral("/proc/self/maps"));
        QVERIFY(maps.open(QIODevice::ReadOnly));
        QVERIFY(maps.readAll().contains(QFile::encodeName(copy)));
    }

    void infoBindsByProtocolIgnoringCase()
    {
        for (const char *protocol : {"SKF", "Skf", "skf"}) {
            QTemporaryDir tmp;
            QFile config(tmp.path() + QStringLiteral("/config.xml"));
            QVERIFY(config.open(QIODevice::WriteOnly));
            config.write(QByteArray("<driver version=\"2.0\"><protocol>") + protocol
                         + "</protocol><argument>libmock.so</argument></driver>");
            config.close();
            QVERIFY(QFile::link(QStringLiteral(MOCKSKF_PATH), tmp.path() + QStringLiteral("/libmock.so")));
            KeyDriverPackage kdp(tmp.path());
            QVERIFY(kdp.open());
            KeyDriverInfo info(&kdp);
            QVERIFY2(info.open(), protocol);
            QCOMPARE(info.getDriverType(), 1);
            QVERIFY(qobject_cast<KeyDriverSKF *>(info.getKeyDriver()));
            QCOMPARE(info.getKeyDriver()->parent(), &info);
        }
    }

    // ---- enumeration ----

    void enumeratesWithDoubledSize()
    {
        mock.add_device("dev1", "SN1");
        mock.add_device("dev22", "SN2");
        KeyDriverSKF *driver = loadedDriver();
        QVERIFY(driver);
        core.clear();
        QCOMPARE(driver->enumDev(), (QStringList{QStringLiteral("dev1"), QStringLiteral("dev22")}));
        // "dev1\0dev22\0\0" is 12 bytes; the fill call is offered 24.
        QCOMPARE(mock.calls(), (QStringList{QStringLiteral("SKF_EnumDev present=1 buf=null size=0"),
                                            QStringLiteral("SKF_EnumDev present=1 buf=set size=24")}));
        QCOMPARE(logcheck::count(core, TWCore::Level::Debug, QStringLiteral("enumDev"),
                                 QStringLiteral("SKF_EnumDev: ret: 0,size: 12")),
                 2);
        QVERIFY(logcheck::debug(core, QStringLiteral("enumDev"), QStringLiteral("pszDevNameList:  dev1")));
        QVERIFY(logcheck::debug(core, QStringLiteral("enumDev"), QStringLiteral("DevNameList:dev1;dev22;")));
    }

    void sizeReportedTooLargeStillSplits()
    {
        mock.add_device("a", "SN1");
        mock.size_delta("SKF_EnumDev", 7);
        KeyDriverSKF *driver = loadedDriver();
        QCOMPARE(driver->enumDev(), QStringList{QStringLiteral("a")});
        QVERIFY(mock.calls().contains(QStringLiteral("SKF_EnumDev present=1 buf=set size=20")));
    }

    void noDevice()
    {
        KeyDriverSKF *driver = loadedDriver();
        QCOMPARE(driver->count(), 0);
        QVERIFY(mock.calls().contains(QStringLiteral("SKF_EnumDev present=1 buf=set size=0")));
        QVERIFY(logcheck::debug(core, QStringLiteral("count"), QStringLiteral(" devList count: 0 ")));
        core.clear();
        QCOMPARE(driver->openKey(0), nullptr);
        QVERIFY(logcheck::error(core, QStringLiteral("openKey"), QStringLiteral(" devList count:0")));
    }

    void sizeQueryFails()
    {
        mock.add_device("dev1", "SN1");
        mock.fail("SKF_EnumDev", SAR_FAIL, 1);
        KeyDriverSKF *driver = loadedDriver();
        QCOMPARE(driver->enumDev(), QStringList());
        QCOMPARE(mock.count("SKF_EnumDev"), 1);
        QVERIFY(logcheck::error(core, QStringLiteral("enumDev"), QStringLiteral("SKF_EnumDev: ret: %1").arg(SAR_FAIL)));
        QCOMPARE(core.lastError(), 0u);
    }

    void fillCallFails()
    {
        // The size query answers too little for even the doubled buffer.
        mock.add_device("device-one", "SN1");
        mock.size_delta("SKF_EnumDev", -10);
        KeyDriverSKF *driver = loadedDriver();
        QCOMPARE(driver->enumDev(), QStringList());
        QVERIFY(logcheck::error(core, QStringLiteral("enumDev"),
                                QStringLiteral("SKF_EnumDev: ret: %1,size: 12").arg(SAR_BUFFER_TOO_SMALL)));
        QCOMPARE(core.lastError(), uint(SAR_BUFFER_TOO_SMALL));
        // The list of the last good enumeration does not survive a failed one.
        mock.clear_faults();
        QCOMPARE(driver->enumDev().size(), 1);
        mock.fail("SKF_EnumDev", SAR_FAIL, 1);
        QCOMPARE(driver->enumDev(), QStringList());
    }

    void indexOutOfRange()
    {
        addToken("dev1", "SN1");
        KeyDriverSKF *driver = loadedDriver();
        // Before any enumeration the cached list is empty.
        QCOMPARE(driver->openKeyWithoutEnumDev(0), nullptr);
        QVERIFY(logcheck::error(core, QStringLiteral("openKeyWithoutEnumDev"), QStringLiteral(" devList count:0")));
        QCOMPARE(driver->count(), 1);
        core.clear();
        QCOMPARE(driver->openKeyWithoutEnumDev(1), nullptr);
        QCOMPARE(driver->openKey(-1), nullptr);
        QVERIFY(logcheck::error(core, QStringLiteral("openKeyWithoutEnumDev"), QStringLiteral(" devList count:1")));
        QVERIFY(logcheck::error(core, QStringLiteral("openKey"), QStringLiteral(" devList count:1")));
        QVERIFY(KeyObject::s_vecKeyObj.isEmpty());
    }

    // ---- opening ----

    void openKeyReusesTheSession()
    {
        addToken("dev1", "SN1");
        KeyDriverSKF *driver = loadedDriver();
        KeyObject *first = driver->openKey(0);
        QVERIFY(first);
        QVERIFY(first->isOpen());
        QCOMPARE(first->parent(), nullptr);
        QCOMPARE(KeyObject::findDev(QStringLiteral("dev1")), first);
        QVERIFY(logcheck::debug(core, QStringLiteral("open"), QStringLiteral(" pKeyObj == 0")));
        QVERIFY(logcheck::debug(core, QStringLiteral("openKey"), QStringLiteral(" dev name:dev1")));
        core.clear();
        KeyObject *second = driver->openKey(0);
        QCOMPARE(second, first);
        QCOMPARE(KeyObject::s_vecKeyObj.size(), 1);
        QCOMPARE(mock.count("SKF_ConnectDev"), 1);
        QVERIFY(logcheck::debug(core, QStringLiteral("open"),
                                QStringLiteral("  2 KeyDriverSKF end. noload  = 0, bRet = 0")));
    }

    void openWithoutEnumerationOnALiveSession()
    {
        addToken("dev1", "SN1");
        KeyDriverSKF *driver = loadedDriver();
        QCOMPARE(driver->count(), 1);
        KeyObject *key = driver->openKeyWithoutEnumDev(0);
        QVERIFY(key);
        mock.clearCalls();
        core.clear();
        QCOMPARE(driver->openKeyWithoutEnumDev(0), key);
        // Only the liveness probe reaches the token.
        QCOMPARE(mock.count("SKF_EnumDev"), 0);
        QCOMPARE(mock.count("SKF_ConnectDev"), 0);
        QCOMPARE(mock.calls(), QStringList{QStringLiteral("SKF_GenRandom dev=dev1 len=6")});
        QVERIFY(logcheck::debug(core, QStringLiteral("open"),
                                QStringLiteral("  1 KeyDriverSKF end. noload  = 1, bRet = 0")));
    }

    void deviceGoneAfterCount()
    {
        addToken("dev1", "SN1");
        KeyDriverSKF *driver = loadedDriver();
        QCOMPARE(driver->count(), 1);
        mock.set_present("dev1", 0);
        // The name is still cached: a new session is tried, fails and goes.
        QCOMPARE(driver->openKeyWithoutEnumDev(0), nullptr);
        QVERIFY(KeyObject::s_vecKeyObj.isEmpty());
        QCOMPARE(mock.count("SKF_ConnectDev"), 1);
    }

    void tokenWithoutContainerDoesNotOpen()
    {
        mock.add_device("blank", "SN9");
        mock.add_app("blank", "APP");
        KeyDriverSKF *driver = loadedDriver();
        QCOMPARE(driver->openKey(0), nullptr);
        QVERIFY(KeyObject::s_vecKeyObj.isEmpty());
    }

    // ---- device events ----

    void waitForDevEvent()
    {
        addToken("dev1", "SN1");
        KeyDriverSKF *driver = loadedDriver();
        QString name;
        unsigned int event = 0;
        mock.set_wait_timeout(0);
        QVERIFY(!driver->waitForDevEvent(name, event));
        QVERIFY(logcheck::error(core, QStringLiteral("waitForDevEvent"),
                                QStringLiteral(" SKF_WaitForDevEvent failed.ret = %1").arg(SAR_NOT_EVENTERR)));
        QVERIFY(logcheck::debug(core, QStringLiteral("waitForDevEvent"), QStringLiteral(" end. false")));
        QCOMPARE(core.lastError(), uint(SAR_NOT_EVENTERR));

        mock.set_present("dev1", 0);
        QVERIFY(driver->waitForDevEvent(name, event));
        QCOMPARE(name, QStringLiteral("dev1"));
        QCOMPARE(event, 2u);
        driver->cancelWaitForDevEvent();
        QCOMPARE(mock.count("SKF_CancelWaitForDevEvent"), 0);
    }

    void removalEventClosesTheSession()
    {
        addToken("dev1", "SN1");
        KeyDriverSKF *driver = loadedDriver();
        KeyObject *key = driver->openKey(0);
        QVERIFY(key);
        bool openAtSignal = true;
        connect(driver, &KeyDriverSKF::keyEvent, this, [&](QString, bool) { openAtSignal = key->isOpen(); });
        QSignalSpy spy(driver, &KeyDriverSKF::keyEvent);

        driver->on_keyEvent(QStringLiteral("dev1"), true);
        QVERIFY(key->isOpen());
        QVERIFY(openAtSignal);

        driver->on_keyEvent(QStringLiteral("dev1"), false);
        QVERIFY(!key->isOpen());
        QVERIFY(!openAtSignal);
        QCOMPARE(KeyObject::findDev(QStringLiteral("dev1")), key);

        driver->on_keyEvent(QStringLiteral("unknown"), false);
        QCOMPARE(spy.count(), 3);
        QCOMPARE(spy.at(1).at(0).toString(), QStringLiteral("dev1"));
        QCOMPARE(spy.at(1).at(1).toBool(), false);
        QVERIFY(logcheck::debug(core, QStringLiteral("on_keyEvent"), QStringLiteral("devName :dev1 ,insert 0")));
    }

    void checkThreadEnumeratesOnce()
    {
        mock.add_device("dev1", "SN1");
        KeyDriverSKF *driver = loadedDriver();
        CheckThreadSKF thread(driver);
        QVERIFY(!thread.needQuit());
        thread.start();
        QVERIFY(thread.wait(5000));
        QCOMPARE(mock.calls(), QStringList{QStringLiteral("SKF_EnumDev present=1 buf=null size=0")});
        QVERIFY(logcheck::debug(core, QStringLiteral("run"), QStringLiteral("pSKF_EnumDev success!")));
        thread.setQuit(true);
        QVERIFY(thread.needQuit());
    }
};

QTEST_GUILESS_MAIN(TstKeyDriverSKF)
#include "tst_keydriverskf.moc"
