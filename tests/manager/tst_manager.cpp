// The key manager: which entries of the package folder become drivers, in
// which order; counting distinct keys across drivers and mapping an index
// back; the handle road on one package; the teardown.
#include <QPointer>
#include <QtTest>

#include "frame/keydriverinfoagent.h"
#include "frame/rtc.h"
#include "kdpfixture.h"
#include "logcheck.h"
#include "manager/twkey.h"
#include "package/keydriverinfo.h"
#include "package/keydriverpackage.h"
#include "session/keyobject.h"
#include "softtokenengine.h"

namespace {
QStringList g_debug; // Qt's debug stream
void captureDebug(QtMsgType, const QMessageLogContext &, const QString &text) { g_debug << text; }
} // namespace

class TstManager : public QObject
{
    Q_OBJECT

    TWCore core;
    std::unique_ptr<KdpFixture> kdp;
    QMap<QString, QString> packages, stores; // name: folder of a traced token of its own, its store

    std::unique_ptr<TWKey> scan()
    {
        core.setBinPath(kdp->root());
        core.setConfigPath(kdp->root() + "/config");
        core.clear();
        return std::make_unique<TWKey>();
    }
    QString pkg(const QString &name) const { return kdp->kdpPath() + QLatin1Char('/') + name; }
    // A packed package that names the test library outside itself: small to pack.
    bool packed(const QString &file)
    {
        QTemporaryDir scratch;
        KdpConfig config;
        config.argument = "../../lib/libtoken.so";
        return (QDir(kdp->root()).mkpath("lib") && (QFile::exists(kdp->root() + "/lib/libtoken.so") ||
                                                    QFile::link(SKFTRACE_PATH, kdp->root() + "/lib/libtoken.so"))) &&
               KdpFixture::writePackage(scratch.path() + "/p", config, QString()) &&
               KdpFixture::pack(scratch.path() + "/p", pkg(file));
    }
    // A token in the package's store; the package (<kdp>/<name>, else the
    // folder given) has a traced token of its own.
    void addToken(const QString &package, const QString &dev, const QString &serial, bool opens = true,
                  const QString &folder = QString())
    {
        if (!packages.contains(package)) {
            packages[package] = folder.isEmpty() ? kdp->kdpPath() + "/" + package : folder;
            stores[package] = kdp->root() + "/stores/" + package;
            QVERIFY(KdpFixture::writeTracedToken(packages[package], stores[package]));
        }
        SoftTokenEngine::DeviceOptions o;
        o.name = dev;
        o.serial = serial;
        if (opens)
            o.containers << SoftTokenEngine::ContainerSetup{"C1", SoftTokenEngine::ContainerSetup::Sm2};
        QVERIFY(SoftTokenEngine(stores[package]).createDevice(o));
    }
    int calls(const QString &package, const QString &function)
    {
        return KdpFixture::traced(packages.value(package), function);
    }

private slots:
    void initTestCase() { qInstallMessageHandler(captureDebug); }
    void init()
    {
        kdp = std::make_unique<KdpFixture>();
        ComponentInit(&core);
    }
    void cleanup()
    {
        ComponentDestroy();
        while (!KeyObject::s_vecKeyObj.isEmpty())
            delete KeyObject::s_vecKeyObj.last();
        packages.clear();
        stores.clear();
        kdp.reset();
    }

    // Entries "kind:name": dir (a good package), copy (one with a library
    // of its own), kdp (packed), empty (no config.xml), nodriver (a protocol
    // no driver takes), badlib (no shared object); the packages tried in
    // order, how many loaded, log lines.
    void scanRules_data()
    {
        QTest::addColumn<QStringList>("entries");
        QTest::addColumn<QStringList>("attempts");
        QTest::addColumn<int>("loads");
        QTest::addColumn<QStringList>("log");
        QTest::newRow("directories first, then files, by name ignoring case")
            << QStringList{"dir:b", "dir:A", "kdp:c.kdp", "kdp:B2.kdp", "kdp:d.txt"} << QStringList{"A", "b", "B2.kdp", "c.kdp"}
            << 4 << QStringList{"loadKDPs| fileList:*|6", "loadKDP| end. \".\"|2"};
        QTest::newRow("directory beats the file of its name")
            << QStringList{"dir:x", "kdp:x.kdp"} << QStringList{"x"} << 1 << QStringList{"loadKDP| end. contained.|1"};
        QTest::newRow("broken directory lets the file through")
            << QStringList{"empty:x", "kdp:x.kdp"} << QStringList{"x", "x.kdp"} << 1
            << QStringList{"loadKDP|end. open kdp failed|1", "loadKDP| end. contained.|0"};
        QTest::newRow("unbound driver lets the file through")
            << QStringList{"nodriver:x", "kdp:x.kdp"} << QStringList{"x", "x.kdp"} << 1
            << QStringList{"loadKDP|end. open kdi failed|1"};
        // The scan's suffix test ignores case, the package's does not.
        QTest::newRow("suffix case") << QStringList{"kdp:a.KDP", "kdp:b.zip"} << QStringList{"a.KDP"} << 0
                                     << QStringList{"open| end. unknow format|1", "loadKDP|end. open kdp failed|1"};
        QTest::newRow("directory named like an archive") << QStringList{"dir:a.zip"} << QStringList{"a.zip"} << 1
                                                         << QStringList{"loadKDP| KeyDriverPackage|1"};
        // The block is on the whole name: the packed file of that name loads.
        QTest::newRow("hidden and blocked directories")
            << QStringList{"dir:.hidden", "copy:tarnwick_vkey_skf_mac_v1.0.0.0", "kdp:tarnwick_vkey_skf_mac_v1.0.0.0.kdp"}
            << QStringList{"tarnwick_vkey_skf_mac_v1.0.0.0.kdp"} << 1 << QStringList{"loadKDP| end. \".\"|2"}; // hidden ones are not even listed
        QTest::newRow("bad package costs only itself") << QStringList{"dir:a", "badlib:b", "dir:c"}
                                                       << QStringList{"a", "b", "c"} << 2
                                                       << QStringList{"!open| kdp load fail|1"};
    }
    void scanRules()
    {
        QFETCH(QStringList, entries);
        for (const QString &entry : entries) {
            const QString kind = entry.section(':', 0, 0), name = entry.section(':', 1);
            KdpConfig config;
            if (kind == "kdp") {
                QVERIFY(packed(name));
            } else if (kind == "empty") {
                QVERIFY(QDir().mkpath(pkg(name)));
            } else {
                config.protocol = kind == "nodriver" ? "p11" : "skf";
                QVERIFY(!kdp->addPackage(name, config, kind == "badlib" ? NOTALIB_PATH : kind == "nodriver" ? "" : SKFTRACE_PATH,
                                         kind == "copy" ? KdpFixture::Link::Copy : KdpFixture::Link::Symlink).isEmpty());
            }
        }
        auto manager = scan();
        QFETCH(QStringList, attempts);
        QFETCH(int, loads);
        QStringList expected{"load| configPath:" + kdp->root() + "/config", "load| kdpPath:" + kdp->root() + "/kdp/",
                        "loadKDPs| path:" + kdp->root() + "/kdp/"};
        for (const QString &a : attempts)
            expected << ">KeyDriverPackage| filePath:" + pkg(a);
        expected << QString("KeyDriverPackage| filePath:*|%1").arg(attempts.size()) << ">loadKDPs| end." << ">load| end" << "loadKDP| end|" + QString::number(loads);
        QFETCH(QStringList, log);
        TW_VERIFY_LOG(core, expected + log);
        QCOMPARE(manager->children().size(), 2 * loads); // a package and a driver info each
    }

    void packedPackageIsUnpackedOnceThenServedFromItsFolder()
    {
        QVERIFY(packed("x.kdp"));
        scan().reset();
        QFile marked(pkg("x/config.xml")); // a mark that a second unpacking would undo
        QVERIFY(marked.open(QIODevice::Append) && marked.write("<!-- kept -->\n") > 0);
        marked.close();
        auto second = scan();
        TW_VERIFY_LOG(core, {"KeyDriverPackage| filePath:*|1", "KeyDriverPackage| filePath:" + pkg("x"),
                             "loadKDP| end. contained.|1"});
        QVERIFY(marked.open(QIODevice::ReadOnly) && marked.readAll().endsWith("<!-- kept -->\n"));
    }

    // Tokens "package:device=serial[:bare]" (bare: never opens), each package
    // with a token library of its own; steps "call=expected": count,
    // open I, openEx I B (the key's serial, "same" as the key before, or
    // "null"), type (the last key's driver type), n PKG FN (calls of FN
    // since the last clear), clear PKG, qdebug (Qt's debug lines since the last).
    void mapping_data()
    {
        QTest::addColumn<QStringList>("tokens");
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QStringList>("log");
        QTest::newRow("a token two drivers see counts once, for the first")
            << QStringList{"a:a-dev=SAME", "b:b-dev=SAME"}
            << QStringList{"count=1", "clear b=", "qdebug=TWKEY::COUNT|devList: (\"a-dev\")|devList: (\"b-dev\")", "open 0=SAME", "n b SKF_EnumDev=0", "open 1=null", "n b SKF_EnumDev=0"}
            << QStringList{"count| serialNumber: SAME|2", "count| end. keySN exist|1", "count| total Count:1|1",
                           "count| start", ">count| end."};
        QTest::newRow("three tokens across two drivers, one enumeration each")
            << QStringList{"a:a1=SN-A1", "b:b1=SN-B1", "b:b2=SN-B2"}
            << QStringList{"count=3", "n a SKF_EnumDev=2", "n b SKF_EnumDev=2", "clear a=", "clear b=", "open 2=SN-B2",
                           "type=1", "n a SKF_EnumDev=0", "n b SKF_EnumDev=2", "open 0=SN-A1", "open 3=null"}
            << QStringList{"open| openKey|2", "open| end.|1", "count| total Count:3"};
        QTest::newRow("a repeat drops the driver, its new token stays counted")
            << QStringList{"a:a1=SN1", "b:b1=SN2", "b:b2=SN1"} << QStringList{"count=2", "open 1=null", "open 0=SN1"}
            << QStringList();
        QTest::newRow("negative index reaches the driver") << QStringList{"a:a1=SN1"}
            << QStringList{"count=1", "open -1=null"}
            << QStringList{"open| openKey", ">!openKey| devList count:1", ">open| openKey failed.", ">open| end."};
        QTest::newRow("openEx without enumeration") << QStringList{"a:a1=SN1", "a:a2=SN2"}
            << QStringList{"count=2", "clear a=", "openEx 1 0=SN2", "n a SKF_EnumDev=0", "openEx 1 1=same",
                           "n a SKF_EnumDev=2", "openEx 2 0=null"}
            << QStringList{"openEx| start", ">openEx| openKey", ">openEx| start", ">openEx| openKey", ">openEx| end."};
        // Local numbering is kept: index 1 is the blank token again, the third is out of reach.
        QTest::newRow("a device that won't open shortens the range") << QStringList{"a:a1=SN1", "a:a2=SN2:bare", "a:a3=SN3"}
            << QStringList{"count=2", "open 1=null", "open 2=null", "open 0=SN1"} << QStringList();
        QTest::newRow("open before count") << QStringList{"a:a1=SN1"}
            << QStringList{"open 0=null", "openEx 0 1=null", "count=1", "open 0=SN1"} << QStringList();
        QTest::newRow("no packages") << QStringList() << QStringList{"count=0", "qdebug=TWKEY::COUNT", "open 0=null"}
                                     << QStringList{"count| total Count:0"};
    }
    void mapping()
    {
        QFETCH(QStringList, tokens);
        QFETCH(QStringList, steps);
        for (const QString &t : tokens) {
            const QString token = t.section(':', 1);
            addToken(t.section(':', 0, 0), token.section('=', 0, 0), token.section('=', 1).section(':', 0, 0),
                     !token.endsWith(":bare"));
        }
        auto manager = scan();
        KeyObject *last = nullptr;
        g_debug.clear();
        for (const QString &step : steps) {
            const QStringList call = step.section('=', 0, 0).split(' ');
            const QString verb = call.at(0), want = step.section('=', 1);
            QString got;
            if (verb == "count") {
                got = QString::number(manager->count());
            } else if (verb == "open" || verb == "openEx") {
                KeyObject *key = verb == "open" ? manager->open(call.at(1).toInt())
                                                : manager->openEx(call.at(1).toInt(), call.at(2).toInt());
                got = !key ? "null" : key == last && want == "same" ? "same" : key->serialNumber();
                if (key && !key->getKDI())
                    got += " (no driver set)";
                last = key ? key : last;
            } else if (verb == "type") {
                got = QString::number(last->getDriverType());
            } else if (verb == "n") {
                got = QString::number(calls(call.at(1), call.at(2)));
            } else if (verb == "clear") {
                KdpFixture::traced(packages.value(call.at(1)));
            } else if (verb == "qdebug") {
                got = g_debug.join('|');
                g_debug.clear();
            }
            QVERIFY2(got == want, qPrintable(QStringLiteral("%1: %2").arg(step, got)));
        }
        QFETCH(QStringList, log);
        TW_VERIFY_LOG(core, log);
    }

    void handleRoad()
    {
        QTemporaryDir other; // a package outside the scanned folder, with a token library of its own
        const QString dir = other.path() + "/single";
        addToken("single", "d1", "SN1", true, dir);
        addToken("single", "d2", "SN2", true, dir);
        addToken("scanned", "s1", "SN-S");
        auto manager = scan();
        QCOMPARE(manager->createKDI(kdp->root() + "/nothing"), nullptr);
        QCOMPARE(manager->children().size(), 2); // the scan's pair only
        KeyDriverInfo *info = manager->createKDI(dir);
        QVERIFY(info);
        QCOMPARE(manager->children().size(), 4);
        QCOMPARE(manager->count(), 1); // the scan's road doesn't see it
        KeyDriverInfoAgent proxy(info);
        auto *bare = reinterpret_cast<KeyDriverInfoAgent *>(info);
        QCOMPARE(manager->openByKDI(bare, 0), nullptr); // not counted yet
        for (KeyDriverInfoAgent *h : {bare, &proxy}) {
            QCOMPARE(manager->countByKDI(h), 2);
            QVERIFY(info->isActive() && info->firstIndex() == 0 && info->keyCount() == 2);
        }
        QCOMPARE(calls("single", "SKF_EnumDev"), 2 * 2 * 3); // each step enumerates anew
        KeyObject *first = manager->openByKDI(bare, 0);
        KeyObject *second = manager->openByKDI(&proxy, 1);
        QVERIFY(first && second && first->getKDI() == info && second->getKDI() == info);
        QCOMPARE(manager->openByKDI(&proxy, 2), nullptr);
        QVERIFY(SoftTokenEngine(stores["single"]).removeDevice("d2"));
        QCOMPARE(manager->openByKDI(&proxy, 1), nullptr); // a device gone: the driver opens nothing
        KeyObject *newest = manager->open(0); // newer, and bound to the scan's driver
        QVERIFY(newest);
        // Only the newest key of the handle goes; the pair goes later.
        QPointer<KeyDriverInfo> watchInfo(info);
        QPointer<QObject> watchPackage(info->getKDP());
        manager->destroyKDI(&proxy);
        QVERIFY(KeyObject::s_vecKeyObj.contains(first) && KeyObject::s_vecKeyObj.contains(newest));
        QVERIFY(!KeyObject::s_vecKeyObj.contains(second));
        QVERIFY(watchInfo && watchPackage);
        delete first; // it calls through its driver's table: it goes first
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(!watchInfo && !watchPackage);
        QCOMPARE(manager->children().size(), 2);
        KeyDriverInfoAgent empty(nullptr); // a proxy of nothing
        QCOMPARE(manager->countByKDI(&empty), 0);
        manager->destroyKDI(&empty);
        QCOMPARE(manager->openByKDI(&empty, 0), nullptr);
        TW_VERIFY_LOG(core, {"createKDI| start", ">createKDI| KeyDriverPackage", ">createKDI|end. open kdp failed",
                             ">createKDI| end", "countByKDI| start|3", "countByKDI| total Count:2|2", "countByKDI| end.|3",
                             "openByKDI| end.|3", "openByKDI| openKey|3", "openByKDI| openKey failed.|1",
                             "destroyKDI| find destroyKDI|1", "destroyKDI| start|2", "destroyKDI| end|2", "countByKDI| total Count:0|1"});
    }

    void teardownDeletesSessionsPackagesAndDrivers()
    {
        addToken("a", "dev1", "SN1");
        auto manager = scan();
        QCOMPARE(manager->count(), 1);
        QCOMPARE(KeyObject::s_vecKeyObj.size(), 1);
        QList<QPointer<QObject>> children;
        for (QObject *child : manager->children())
            children << child;
        core.clear();
        manager.reset();
        QVERIFY(KeyObject::s_vecKeyObj.isEmpty());
        for (const QPointer<QObject> &child : children)
            QVERIFY(child.isNull());
        // Sessions, then packages, then the driver infos with their drivers.
        TW_VERIFY_LOG(core, {"~TWKey| start", ">unload| start", ">unload| end", ">unloadKDPs| start", ">unloadKDPs| end",
                             ">~TWKey| end", ">~KeyDriverInfo| start", ">close| start", ">close| end", ">~KeyDriverInfo| end"});
        QCOMPARE(calls("a", "SKF_DisConnectDev"), 1);
    }
};

QTEST_GUILESS_MAIN(TstManager)
#include "tst_manager.moc"
