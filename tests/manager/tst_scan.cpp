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

    void scanLinesAndEmptyFolder()
    {
        auto manager = scan();
        const QString kdpPath = kdp->root() + QStringLiteral("/kdp/");
        QCOMPARE(logged(QStringLiteral("load"), QStringLiteral(" kdpPath:") + kdpPath), 1);
        QCOMPARE(logged(QStringLiteral("loadKDPs"), QStringLiteral(" path:") + kdpPath), 1);
        QCOMPARE(logged(QStringLiteral("loadKDPs"), QStringLiteral(" end.")), 1);
        QCOMPARE(logged(QStringLiteral("load"), QStringLiteral(" end")), 1);
        // Only "." and "..", both dropped by name.
        QCOMPARE(logged(QStringLiteral("loadKDP"), QStringLiteral(" end. \".\"")), 2);
        int n = -1;
        QVERIFY(twCall(manager.get(), "count", n));
        QCOMPARE(n, 0);
        TWPtr key{"KeyObject*"};
        QVERIFY(twCall(manager.get(), "open", key, 0));
        QCOMPARE(key.value, nullptr);
    }

    void missingFolder()
    {
        QVERIFY(QDir(kdp->kdpPath()).removeRecursively());
        auto manager = scan();
        QCOMPARE(logged(QStringLiteral("loadKDPs"), QStringLiteral(" end.")), 1);
        QVERIFY(core.lines(TWCore::Level::Debug).filter(QStringLiteral(" fileList:")).isEmpty());
        int n = -1;
        QVERIFY(twCall(manager.get(), "count", n));
        QCOMPARE(n, 0);
    }

    void directoriesFirstThenFilesByNameIgnoringCase()
    {
        good(QStringLiteral("b"));
        good(QStringLiteral("A"));
        QVERIFY(!packed(QStringLiteral("c.kdp")).isEmpty());
        QVERIFY(!packed(QStringLiteral("B2.kdp")).isEmpty());
        auto manager = scan();
        const QStringList files = core.lines(TWCore::Level::Debug).filter(QStringLiteral("] fileList:"));
        QStringList names;
        for (const QString &line : files)
            names << line.section(QLatin1Char('/'), -1);
        QCOMPARE(names, (QStringList{QStringLiteral("."), QStringLiteral(".."), QStringLiteral("A"), QStringLiteral("b"),
                                     QStringLiteral("B2.kdp"), QStringLiteral("c.kdp")}));
        QCOMPARE(loaded(), 4);
    }

    void directoryBeatsFileOfTheSameName()
    {
        good(QStringLiteral("x"));
        QVERIFY(!packed(QStringLiteral("x.kdp")).isEmpty());
        auto manager = scan();
        QCOMPARE(attempted(), QStringList{pkg(QStringLiteral("x"))});
        QCOMPARE(logged(QStringLiteral("loadKDP"), QStringLiteral(" end. contained.")), 1);
        QCOMPARE(loaded(), 1);
    }

    void brokenDirectoryLetsTheFileThrough()
    {
        QVERIFY(QDir().mkpath(pkg(QStringLiteral("x"))));
        QVERIFY(!packed(QStringLiteral("x.kdp")).isEmpty());
        auto manager = scan();
        QCOMPARE(attempted(), (QStringList{pkg(QStringLiteral("x")), pkg(QStringLiteral("x.kdp"))}));
        QCOMPARE(logged(QStringLiteral("loadKDP"), QStringLiteral("end. open kdp failed")), 1);
        QCOMPARE(logged(QStringLiteral("loadKDP"), QStringLiteral(" end. contained.")), 0);
        QCOMPARE(loaded(), 1);
    }

    void unboundDriverLetsTheFileThrough()
    {
        KdpConfig noDriver;
        noDriver.protocol = QStringLiteral("p11");
        kdp->addPackage(QStringLiteral("x"), noDriver, QString());
        QVERIFY(!packed(QStringLiteral("x.kdp")).isEmpty());
        auto manager = scan();
        QCOMPARE(logged(QStringLiteral("loadKDP"), QStringLiteral("end. open kdi failed")), 1);
        QCOMPARE(attempted().size(), 2);
        QCOMPARE(loaded(), 1);
    }

    void suffixTestIgnoresCaseThePackageDoesNot()
    {
        QVERIFY(!packed(QStringLiteral("a.KDP")).isEmpty());
        QVERIFY(!packed(QStringLiteral("b.zip")).isEmpty());
        auto manager = scan();
        QCOMPARE(attempted(), QStringList{pkg(QStringLiteral("a.KDP"))});
        QCOMPARE(logged(QStringLiteral("open"), QStringLiteral(" end. unknow format")), 1);
        QCOMPARE(logged(QStringLiteral("loadKDP"), QStringLiteral("end. open kdp failed")), 1);
        QCOMPARE(loaded(), 0);
    }

    void directoryNamedLikeAnArchiveIsAPackage()
    {
        good(QStringLiteral("a.zip"));
        auto manager = scan();
        QCOMPARE(attempted(), QStringList{pkg(QStringLiteral("a.zip"))});
        QCOMPARE(loaded(), 1);
    }

    void hiddenAndBlockedDirectories()
    {
        good(QStringLiteral(".hidden"));
        // A copy: the packed file of the same name unpacks into this folder.
        kdp->addPackage(QStringLiteral("tarnwick_vkey_skf_mac_v1.0.0.0"), KdpConfig(), QStringLiteral(MOCKSKF_PATH),
                        KdpFixture::Link::Copy);
        // The block is on the whole name: the packed file of that name loads.
        QVERIFY(!packed(QStringLiteral("tarnwick_vkey_skf_mac_v1.0.0.0.kdp")).isEmpty());
        auto manager = scan();
        QCOMPARE(attempted(), QStringList{pkg(QStringLiteral("tarnwick_vkey_skf_mac_v1.0.0.0.kdp"))});
        QCOMPARE(loaded(), 1);
    }

    void badPackageCostsOnlyItself()
    {
        good(QStringLiteral("a"));
        kdp->addPackage(QStringLiteral("b"), KdpConfig(), QStringLiteral(NOTALIB_PATH));
        good(QStringLiteral("c"));
        auto manager = scan();
        QCOMPARE(attempted().size(), 3);
        QCOMPARE(logcheck::count(core, TWCore::Level::Error, QStringLiteral("open"), QStringLiteral(" kdp load fail")), 1);
        QCOMPARE(loaded(), 2);
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
