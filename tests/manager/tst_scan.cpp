// The manager's package scan: which entries of the package folder become
// drivers, in which order, and how the manager is torn down.
#include <QDir>
#include <QPointer>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

#include "../frame/logcheck.h"
#include "frame/rtc.h"
#include "kdpfixture.h"
#include "manager/twkey.h"
#include "mockcontrol.h"
#include "session/keyobject.h"
#include "twcall.h"
#include "twcore.h"
#include "twdeviceguard.h"

class TstScan : public QObject
{
    Q_OBJECT

    TWCore core;
    TwDeviceGuard deviceFile;
    MockControl mock;
    std::unique_ptr<KdpFixture> kdp;

    std::unique_ptr<TWKey> scan()
    {
        core.setBinPath(kdp->root());
        core.clear();
        return std::make_unique<TWKey>();
    }

    QString pkg(const QString &name) const { return kdp->kdpPath() + QLatin1Char('/') + name; }

    QString good(const QString &name) const { return kdp->addPackage(name, KdpConfig(), QStringLiteral(MOCKSKF_PATH)); }

    // A packed package beside the folder, built from a scratch copy.
    QString packed(const QString &name, const KdpConfig &config = KdpConfig())
    {
        QTemporaryDir scratch;
        KdpFixture::writePackage(scratch.path() + QStringLiteral("/p"), config, QStringLiteral(MOCKSKF_PATH),
                                 KdpFixture::Link::Copy);
        const QString file = pkg(name);
        return KdpFixture::pack(scratch.path() + QStringLiteral("/p"), file) ? file : QString();
    }

    // Packages the scan tried to open, in order.
    QStringList attempted() const
    {
        QStringList paths;
        const QRegularExpression re(QStringLiteral("^\\[KeyDriverPackage:\\d+\\] filePath:(.*)$"));
        for (const QString &line : core.lines(TWCore::Level::Debug)) {
            const QRegularExpressionMatch m = re.match(line);
            if (m.hasMatch())
                paths << m.captured(1);
        }
        return paths;
    }

    int loaded() const { return logcheck::count(core, TWCore::Level::Debug, QStringLiteral("loadKDP"), QStringLiteral(" end")); }
    int logged(const QString &function, const QString &message) const
    {
        return logcheck::count(core, TWCore::Level::Debug, function, message);
    }

private slots:
    void initTestCase() { QVERIFY2(mock.isLoaded(), qPrintable(mock.errorString())); }

    void init()
    {
        mock.reset();
        kdp = std::make_unique<KdpFixture>();
        QVERIFY(kdp->isValid());
        ComponentInit(&core);
    }

    void cleanup()
    {
        ComponentDestroy();
        kdp.reset();
    }

    // Entries of the package folder as "kind:name": dir (a good package),
    // copy (a good package with its own library), kdp (a packed package),
    // empty (a folder without config.xml), nodriver (a protocol no driver
    // takes), badlib (a library that is no shared object). Log checks are
    // "D|function|message|times" or with E for the error level.
    void packageRules_data()
    {
        QTest::addColumn<QStringList>("entries");
        QTest::addColumn<QStringList>("attempts");
        QTest::addColumn<int>("loads");
        QTest::addColumn<QStringList>("logChecks");
        QTest::newRow("directories first, then files, by name ignoring case")
            << QStringList{"dir:b", "dir:A", "kdp:c.kdp", "kdp:B2.kdp"} << QStringList{"A", "b", "B2.kdp", "c.kdp"}
            << 4 << QStringList();
        QTest::newRow("directory beats the file of its name")
            << QStringList{"dir:x", "kdp:x.kdp"} << QStringList{"x"} << 1
            << QStringList{"D|loadKDP| end. contained.|1"};
        QTest::newRow("broken directory lets the file through")
            << QStringList{"empty:x", "kdp:x.kdp"} << QStringList{"x", "x.kdp"} << 1
            << QStringList{"D|loadKDP|end. open kdp failed|1", "D|loadKDP| end. contained.|0"};
        QTest::newRow("unbound driver lets the file through")
            << QStringList{"nodriver:x", "kdp:x.kdp"} << QStringList{"x", "x.kdp"} << 1
            << QStringList{"D|loadKDP|end. open kdi failed|1"};
        // The scan's suffix test ignores case, the package's does not.
        QTest::newRow("suffix case") << QStringList{"kdp:a.KDP", "kdp:b.zip"} << QStringList{"a.KDP"} << 0
                                     << QStringList{"D|open| end. unknow format|1", "D|loadKDP|end. open kdp failed|1"};
        QTest::newRow("directory named like an archive") << QStringList{"dir:a.zip"} << QStringList{"a.zip"} << 1
                                                         << QStringList();
        // The block is on the whole name: the packed file of that name loads
        // (into a copy, as it unpacks into the blocked folder).
        QTest::newRow("hidden and blocked directories")
            << QStringList{"dir:.hidden", "copy:tarnwick_vkey_skf_mac_v1.0.0.0", "kdp:tarnwick_vkey_skf_mac_v1.0.0.0.kdp"}
            << QStringList{"tarnwick_vkey_skf_mac_v1.0.0.0.kdp"} << 1 << QStringList();
        QTest::newRow("bad package costs only itself") << QStringList{"dir:a", "badlib:b", "dir:c"}
                                                       << QStringList{"a", "b", "c"} << 2
                                                       << QStringList{"E|open| kdp load fail|1"};
    }

    void packageRules()
    {
        QFETCH(QStringList, entries);
        QFETCH(QStringList, attempts);
        QFETCH(int, loads);
        QFETCH(QStringList, logChecks);
        for (const QString &entry : entries) {
            const QString kind = entry.section(QLatin1Char(':'), 0, 0);
            const QString name = entry.section(QLatin1Char(':'), 1);
            KdpConfig config;
            QString library = QStringLiteral(MOCKSKF_PATH);
            KdpFixture::Link link = KdpFixture::Link::Symlink;
            if (kind == QLatin1String("kdp")) {
                QVERIFY(!packed(name).isEmpty());
                continue;
            }
            if (kind == QLatin1String("empty")) {
                QVERIFY(QDir().mkpath(pkg(name)));
                continue;
            }
            if (kind == QLatin1String("copy"))
                link = KdpFixture::Link::Copy;
            else if (kind == QLatin1String("nodriver")) {
                config.protocol = QStringLiteral("p11");
                library.clear();
            } else if (kind == QLatin1String("badlib"))
                library = QStringLiteral(NOTALIB_PATH);
            QVERIFY(!kdp->addPackage(name, config, library, link).isEmpty());
        }
        auto manager = scan();
        QStringList expected;
        for (const QString &name : attempts)
            expected << pkg(name);
        QCOMPARE(attempted(), expected);
        QCOMPARE(loaded(), loads);
        for (const QString &check : logChecks) {
            const QStringList f = check.split(QLatin1Char('|'));
            const TWCore::Level level = f.at(0) == QLatin1String("E") ? TWCore::Level::Error : TWCore::Level::Debug;
            QVERIFY2(logcheck::count(core, level, f.at(1), f.at(2)) == f.at(3).toInt(), qPrintable(check));
        }
    }

    void packedPackageIsUnpackedOnceThenServedFromItsFolder()
    {
        const QString file = packed(QStringLiteral("x.kdp"));
        {
            auto first = scan();
            QCOMPARE(attempted(), QStringList{file});
            QCOMPARE(loaded(), 1);
        }
        const QString config = pkg(QStringLiteral("x/config.xml"));
        QVERIFY(QFileInfo::exists(config));
        // A mark in the unpacked folder that a second unpacking would undo.
        QFile marked(config);
        QVERIFY(marked.open(QIODevice::Append));
        marked.write("<!-- kept -->\n");
        marked.close();

        auto second = scan();
        QCOMPARE(attempted(), QStringList{pkg(QStringLiteral("x"))});
        QCOMPARE(logged(QStringLiteral("loadKDP"), QStringLiteral(" end. contained.")), 1);
        QVERIFY(marked.open(QIODevice::ReadOnly));
        QVERIFY(marked.readAll().endsWith("<!-- kept -->\n"));
    }

    void teardownDeletesSessionsPackagesAndDrivers()
    {
        good(QStringLiteral("a"));
        mock.add_device("dev1", "SN1");
        mock.add_app("dev1", "APP");
        mock.add_container("dev1", "APP", "C1", CONTAINER_TYPE_ECC);
        auto manager = scan();
        int n = 0;
        QVERIFY(twCall(manager.get(), "count", n));
        QCOMPARE(n, 1);
        QCOMPARE(KeyObject::s_vecKeyObj.size(), 1);
        QList<QPointer<QObject>> children;
        for (QObject *child : manager->children())
            children << child;
        QCOMPARE(children.size(), 2); // the package and its driver info

        core.clear();
        manager.reset();
        QVERIFY(KeyObject::s_vecKeyObj.isEmpty());
        for (const QPointer<QObject> &child : children)
            QVERIFY(child.isNull());
        // Sessions, then packages, then the driver infos with their drivers.
        const QStringList lines = core.lines(TWCore::Level::Debug);
        const int unloadEnd = lines.indexOf(QRegularExpression(QStringLiteral("^\\[unload:\\d+\\] end$")));
        const int packagesEnd = lines.indexOf(QRegularExpression(QStringLiteral("^\\[unloadKDPs:\\d+\\] end$")));
        const int managerEnd = lines.indexOf(QRegularExpression(QStringLiteral("^\\[~TWKey:\\d+\\] end$")));
        const int infoGone = lines.indexOf(QRegularExpression(QStringLiteral("^\\[~KeyDriverInfo:\\d+\\] end$")));
        QVERIFY(unloadEnd >= 0);
        QVERIFY(unloadEnd < packagesEnd);
        QVERIFY(packagesEnd < managerEnd);
        QVERIFY(managerEnd < infoGone);
        QCOMPARE(mock.count("SKF_DisConnectDev"), 1);
    }
};

QTEST_GUILESS_MAIN(TstScan)
#include "tst_scan.moc"
