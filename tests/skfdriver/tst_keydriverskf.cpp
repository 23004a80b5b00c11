// The SKF driver over the software token behind the SKF call tracer:
// binding the eighty rows, enumerating devices, mapping an index to a
// session, device events.
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <thread>

#include "frame/rtc.h"
#include "kdpfixture.h"
#include "logcheck.h"
#include "session/keyobject.h"
#include "skf/checkthreadskf.h"
#include "skf/keydriverskf.h"
#include "softtokenengine.h"

namespace {

QStringList g_messages; // Qt's debug stream, where the binding reports missing names

void capture(QtMsgType, const QMessageLogContext &, const QString &text) { g_messages << text; }

} // namespace

class TstKeyDriverSKF : public QObject
{
    Q_OBJECT

    TWCore core;
    KdpFixture kdp;
    QTemporaryDir storeDir;
    std::unique_ptr<SoftTokenEngine> engine;
    QString package; // the traced token's package folder, its library first
    QString library() const { return package + "/libskftrace.so"; }
    std::unique_ptr<KeyDriverSKF> driver; // outlives its sessions: see cleanup()
    int rows = 0;

    // "dev:serial" opens; "dev:serial:app" has an application, no container.
    void tokens(const QStringList &list)
    {
        const QString store = storeDir.path() + QStringLiteral("/s%1").arg(++rows);
        engine = std::make_unique<SoftTokenEngine>(store);
        package = kdp.kdpPath() + QStringLiteral("/t%1").arg(rows);
        QVERIFY(KdpFixture::writeTracedToken(package, store));
        for (const QString &t : list) {
            SoftTokenEngine::DeviceOptions o;
            o.name = t.section(':', 0, 0);
            o.serial = t.section(':', 1, 1);
            if (t.section(':', 2).isEmpty())
                o.containers << SoftTokenEngine::ContainerSetup{"C1", SoftTokenEngine::ContainerSetup::Sm2};
            QVERIFY2(engine->createDevice(o), qPrintable(engine->lastError()));
        }
    }

private slots:
    void initTestCase() { qInstallMessageHandler(capture); }
    void init()
    {
        core.clear();
        core.setLastError(0);
        g_messages.clear();
        ComponentInit(&core);
    }
    void cleanup()
    {
        while (!KeyObject::s_vecKeyObj.isEmpty())
            delete KeyObject::s_vecKeyObj.last();
        driver.reset();
        ComponentDestroy();
    }

    // The library, whether it binds, the lines on Qt's debug stream (W:
    // Warning, E: Error, then the name), rows set (+) and not set (-).
    void binding_data()
    {
        QTest::addColumn<QString>("library");
        QTest::addColumn<bool>("binds");
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<QString>("rows");
        QTest::addColumn<QStringList>("log");
        QTest::newRow("all") << SKFTRACE_PATH << true << QStringList()
                             << "+EPS_Decrypt +SKF_WaitForDevEvent +SKF_EnumDev +SKF_CloseContainer +SKF_MacFinal +SKF_ExtECCEncrypt"
                             << QStringList{"KeyDriverSKF|path :" SKFTRACE_PATH, "load|FileName: " SKFTRACE_PATH, ">load| end"};
        QTest::newRow("optional names missing")
            << SKFTRACE_NOEPS_PATH << true
            << QStringList{"W EPS_Decrypt", "W EPS_Encrypt", "W EPS_ImportSymmKey", "W EPS_Mac", "W EPS_ReadESealData",
                           "W EPS_WriteESealData"}
            << "-EPS_ImportSymmKey -EPS_WriteESealData +SKF_EnumDev +SKF_ExtECCEncrypt" << QStringList{"!load|*|0"};
        QTest::newRow("required name missing") << SKFTRACE_NOWAIT_PATH << false << QStringList{"E SKF_WaitForDevEvent"}
                                               << "+EPS_Decrypt -SKF_EnumDev" << QStringList{"!load|end. init failed"};
        QTest::newRow("warning, then error") << SKFTRACE_NOEPSDECRYPT_NODISCONNECT_PATH << false
                                             << QStringList{"W EPS_Decrypt", "E SKF_DisConnectDev"}
                                             << "+SKF_ConnectDev -SKF_GetDevState" << QStringList{"!load|end. init failed"};
        QTest::newRow("not a library") << NOTALIB_PATH << false << QStringList() << "-EPS_Decrypt -SKF_EnumDev"
                                       << QStringList{"!load|end. error msg *|1", "!load|*|1"};
    }
    void binding()
    {
        QFETCH(QString, library);
        QFETCH(QStringList, lines);
        QFETCH(QString, rows);
        KeyDriverSKF skf(nullptr, library);
        QTEST(skf.load(), "binds");
        for (QString &l : lines)
            l = QStringLiteral("%1: load dll function [%2] failed").arg(l.startsWith('W') ? "Warning" : "Error", l.mid(2));
        QCOMPARE(g_messages.filter("load dll function"), lines);
        QMap<QString, const void *> table;
#define TW_TABLE_ROW(name, required) table[QStringLiteral(#name)] = reinterpret_cast<const void *>(skf.p##name);
        SKF_FUNCTION_ROWS(TW_TABLE_ROW)
#undef TW_TABLE_ROW
        for (const QString &r : rows.split(' '))
            QVERIFY2((table.value(r.mid(1)) != nullptr) == (r.at(0) == '+'), qPrintable(r));
        QCOMPARE(reinterpret_cast<void *>(skf.pSKF_CancelWaitForDevEvent), nullptr); // a slot, no row
        QFETCH(QStringList, log);
        TW_VERIFY_LOG(core, log);
        QCOMPARE(core.lastError(), 0u);
    }

    void unloadNullsTheTableAndKeepsTheLibrary()
    {
        QTemporaryDir tmp; // a library of its own, which nothing else maps
        const QString copy = tmp.path() + QStringLiteral("/libcopy.so");
        QVERIFY(QFile::copy(QStringLiteral(SKFTRACE_PATH), copy));
        {
            KeyDriverSKF skf(nullptr, copy);
            QVERIFY(skf.load());
            skf.unload();
            QVERIFY(!skf.pEPS_Decrypt && !skf.pSKF_EnumDev && !skf.pSKF_ExtECCEncrypt && !skf.pSKF_WaitForDevEvent);
            skf.unload(); // null over null
            QCOMPARE(skf.count(), 0);
            TW_VERIFY_LOG(core, (QStringList{"unload| end|2", "!enumDev|SKF_EnumDev: ret: 167772162"}));
        }
        QFile maps(QStringLiteral("/proc/self/maps"));
        QVERIFY(maps.open(QIODevice::ReadOnly));
        QVERIFY(maps.readAll().contains(QFile::encodeName(copy)));
    }

    // Tokens ("dev:serial" opens, "dev:serial:app" has no container) and
    // steps "call [args]=expected": enum, count, openKey I, noEnum I (a device
    // name, "same" as the last key, or "null"), calls (the traced calls since
    // the last, ';'-joined, '*' any text), n FN (calls of FN), present DEV
    // 0|1, fail FN CODE TIMES, size FN DELTA (the next size report), clear,
    // sessions, last (the last error), wait MS, qdebug (Qt's debug lines).
    void devices_data()
    {
        QTest::addColumn<QStringList>("tokens");
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QStringList>("log");
        QTest::newRow("names, doubled size") << QStringList{"dev1:SN1:app", "dev22:SN2:app"}
            << QStringList{"enum=dev1,dev22", "calls=SKF_EnumDev(1, null, 0->12) = 0x00000000;"
                                              "SKF_EnumDev(1, ->{\"dev1\",\"dev22\"}, 24->12) = 0x00000000"}
            << QStringList{"enumDev|SKF_EnumDev: ret: 0,size: 12|2", "enumDev|pszDevNameList:  dev1",
                           "enumDev|DevNameList:dev1;dev22;"};
        QTest::newRow("size reported too large") << QStringList{"a:SN1:app"}
            << QStringList{"size SKF_EnumDev 7=", "enum=a", "calls=SKF_EnumDev(1, null, 0->10) = 0x00000000;"
                                                               "SKF_EnumDev(1, ->{\"a\"}, 20->3) = 0x00000000"}
            << QStringList();
        QTest::newRow("no device") << QStringList()
            << QStringList{"qdebug=", "count=0", "qdebug=devList: ()", "calls=*;SKF_EnumDev(1, ->{}, 2->1) = 0x00000000", "openKey 0=null"}
            << QStringList{"count| devList count: 0 ", "!openKey| devList count:0"};
        QTest::newRow("size query fails") << QStringList{"dev1:SN1"}
            << QStringList{"fail SKF_EnumDev 0x0A000001 1=", "enum=", "n SKF_EnumDev=1", "last=0"}
            << QStringList{"!enumDev|SKF_EnumDev: ret: 167772161"};
        QTest::newRow("fill call fails, and a good list does not survive a failed one") << QStringList{"device-one:SN1:app"}
            << QStringList{"size SKF_EnumDev -10=", "enum=", "last=a000020", "enum=device-one",
                           "fail SKF_EnumDev 0x0A000001 1=", "enum="}
            << QStringList{"!enumDev|SKF_EnumDev: ret: 167772192,size: 12"};
        QTest::newRow("index out of range") << QStringList{"dev1:SN1"}
            << QStringList{"noEnum 0=null", "count=1", "noEnum 1=null", "openKey -1=null", "openKey 1=null", "sessions=0"}
            << QStringList{"!openKeyWithoutEnumDev| devList count:0", "!openKeyWithoutEnumDev| devList count:1",
                           "!openKey| devList count:1|2"};
        QTest::newRow("openKey reuses its session, reopening it") << QStringList{"dev1:SN1"}
            << QStringList{"openKey 0=dev1", "openKey 0=same", "sessions=1", "n SKF_ConnectDev=1"}
            << QStringList{"open| KeyDriverSKF start", ">open|devName: dev1", "open| pKeyObj == 0|1",
                           ">open| KeyDriverSKF end", "openKey| dev name:dev1|2",
                           "open|  2 KeyDriverSKF end. noload  = 0, bRet = 0|1"};
        QTest::newRow("live session without enumeration") << QStringList{"dev1:SN1"}
            << QStringList{"qdebug=", "count=1", "qdebug=devList: (\"dev1\")", "noEnum 0=dev1", "calls=*", "noEnum 0=same",
                           "calls=SKF_GenRandom(h*, *, 6) = 0x00000000"}
            << QStringList{"open|  1 KeyDriverSKF end. noload  = 1, bRet = 0", "noEnum|*|0"};
        // A session younger than 800 ms takes itself as good: the one wait here.
        QTest::newRow("a removed session is reopened, and dropped when that fails") << QStringList{"dev1:SN1"}
            << QStringList{"count=1", "noEnum 0=dev1", "present dev1 0=", "wait 801=", "noEnum 0=null", "sessions=0",
                           "present dev1 1=", "noEnum 0=dev1", "sessions=1"}
            << QStringList{"isKeyDisConnect| keyDriver->pSKF_GenRandom failed", "open|  2 KeyDriverSKF end. noload  = 1, bRet = 1"};
        QTest::newRow("gone after count") << QStringList{"dev1:SN1"}
            << QStringList{"count=1", "present dev1 0=", "noEnum 0=null", "sessions=0", "n SKF_ConnectDev=1"}
            << QStringList();
        QTest::newRow("token without container") << QStringList{"blank:SN9:app"}
            << QStringList{"openKey 0=null", "sessions=0"} << QStringList();
    }
    void devices()
    {
        QFETCH(QStringList, tokens);
        QFETCH(QStringList, steps);
        this->tokens(tokens);
        const QString any = tokens.value(0).section(':', 0, 0);
        driver = std::make_unique<KeyDriverSKF>(nullptr, library());
        QVERIFY(driver->load());
        KdpFixture::traced(package);
        KeyObject *last = nullptr;
        for (const QString &step : steps) {
            const QStringList call = step.section('=', 0, 0).split(' ');
            const QString verb = call.at(0), want = step.section('=', 1);
            QString got;
            if (verb == "enum") {
                got = driver->enumDev().join(',');
            } else if (verb == "count") {
                got = QString::number(driver->count());
            } else if (verb == "openKey" || verb == "noEnum") {
                KeyObject *key = verb == "openKey" ? driver->openKey(call.at(1).toInt())
                                                   : driver->openKeyWithoutEnumDev(call.at(1).toInt());
                got = !key ? "null" : key == last && want == "same" ? "same" : key->devName();
                if (key && (key->parent() || !key->isOpen() || KeyObject::findDev(key->devName()) != key))
                    got += " (not a live, unparented, listed session)";
                last = key ? key : last;
            } else if (verb == "calls") {
                got = KdpFixture::traced(package).join(';');
                got = LogCheck::glob(want, got) ? want : got;
            } else if (verb == "n") {
                got = QString::number(KdpFixture::traced(package, call.at(1)));
            } else if (verb == "present") {
                QVERIFY(call.at(2) == "1" ? engine->insertDevice(call.at(1)) : engine->removeDevice(call.at(1)));
            } else if (verb == "fail") {
                QVERIFY(engine->setFault(any, call.at(1), call.at(2).toUInt(nullptr, 16), call.at(3).toInt()));
            } else if (verb == "size") {
                QVERIFY(engine->setSizeLie(any, call.at(1), call.at(2).toInt(), 1));
            } else if (verb == "qdebug") {
                got = g_messages.join('|');
                g_messages.clear();
            } else if (verb == "wait") {
                QThread::msleep(call.at(1).toULong());
            } else if (verb == "sessions") {
                got = QString::number(KeyObject::s_vecKeyObj.size());
            } else if (verb == "last") {
                got = QString::number(core.lastError(), 16);
            }
            QVERIFY2(got == want, qPrintable(QStringLiteral("%1: %2").arg(step, got)));
        }
        QFETCH(QStringList, log);
        TW_VERIFY_LOG(core, log);
    }

    void events()
    {
        tokens({"dev1:SN1"});
        driver = std::make_unique<KeyDriverSKF>(nullptr, library());
        QVERIFY(driver->load());
        QString name = QStringLiteral("before");
        unsigned int event = 9;
        QVERIFY(engine->setFault("dev1", "SKF_WaitForDevEvent", SAR_NOT_EVENTERR, 1));
        QVERIFY(!driver->waitForDevEvent(name, event));
        QCOMPARE(core.lastError(), uint(SAR_NOT_EVENTERR));
        QVERIFY(name == "before" && event == 9);
        KeyObject *key = driver->openKey(0);
        QVERIFY(key);
        std::thread remover([this] { QThread::msleep(100); engine->removeDevice("dev1"); });
        const bool woke = driver->waitForDevEvent(name, event);
        remover.join();
        QVERIFY(woke && name == "dev1" && event == 2);
        driver->cancelWaitForDevEvent();
        QCOMPARE(KdpFixture::traced(package, "SKF_CancelWaitForDevEvent"), 0);
        TW_VERIFY_LOG(core, (QStringList{"waitForDevEvent| SKF_WaitForDevEvent", ">!waitForDevEvent| SKF_WaitForDevEvent failed.ret = 167772194",
                                         ">waitForDevEvent| end. false", ">waitForDevEvent| end", "cancelWaitForDevEvent| start",
                                         ">cancelWaitForDevEvent| end"}));

        // A removal closes the session and keeps it; the signal comes after.
        bool openAtSignal = true;
        connect(driver.get(), &KeyDriverSKF::keyEvent, this, [&](QString, bool) { openAtSignal = key->isOpen(); });
        QSignalSpy spy(driver.get(), &KeyDriverSKF::keyEvent);
        g_messages.clear();
        driver->on_keyEvent(QStringLiteral("dev1"), true);
        QVERIFY(key->isOpen() && openAtSignal);
        driver->on_keyEvent(QStringLiteral("dev1"), false);
        QVERIFY(!key->isOpen() && !openAtSignal);
        QCOMPARE(KeyObject::findDev(QStringLiteral("dev1")), key);
        driver->on_keyEvent(QStringLiteral("unknown"), false);
        QCOMPARE(spy.count(), 3);
        QCOMPARE(g_messages, (QStringList{"on_keyEvent... \"dev1\"", "on_keyEvent... \"dev1\"", "on_keyEvent... \"unknown\""}));
        QCOMPARE(spy.at(1), (QList<QVariant>{QStringLiteral("dev1"), false}));
        TW_VERIFY_LOG(core, QStringList{"on_keyEvent|devName :dev1 ,insert 0", ">on_keyEvent| end"});

        // The monitor thread: one enumeration, no loop; nothing without a table.
        KdpFixture::traced(package);
        core.clear();
        for (KeyDriverSKF *d : {driver.get(), static_cast<KeyDriverSKF *>(nullptr)}) {
            CheckThreadSKF thread(d);
            QVERIFY(!thread.needQuit());
            thread.start();
            QVERIFY(thread.wait(5000));
            thread.setQuit(true);
            QVERIFY(thread.needQuit());
        }
        driver->unload();
        CheckThreadSKF unbound(driver.get());
        unbound.start();
        QVERIFY(unbound.wait(5000));
        QCOMPARE(KdpFixture::traced(package), QStringList{QStringLiteral("SKF_EnumDev(1, null, 0->1) = 0x00000000")});
        TW_VERIFY_LOG(core, (QStringList{"run| start|3", "run|pSKF_EnumDev success!|1", "run| end|3", "~CheckThreadSKF| end|2"}));
    }
};

QTEST_GUILESS_MAIN(TstKeyDriverSKF)
#include "tst_keydriverskf.moc"
