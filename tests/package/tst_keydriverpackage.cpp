// Key driver packages: both forms, the three config.xml versions, every
// refusal with its words, and archives that must not be trusted.
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <quazip/quazip.h>
#include <quazip/quazipfile.h>
#include <quazip/quazipnewinfo.h>

#include "../frame/logcheck.h"
#include "frame/rtc.h"
#include "package/keydriverpackage.h"
#include "twcore.h"

namespace {

struct ZipEntry
{
    QString name;
    QByteArray data;
    bool symlink = false; // data is then the link target
};

bool writeZip(const QString &path, const QList<ZipEntry> &entries)
{
    QuaZip zip(path);
    if (!zip.open(QuaZip::mdCreate))
        return false;
    for (const ZipEntry &entry : entries) {
        QuaZipNewInfo info(entry.name);
        info.externalAttr = (entry.symlink ? 0120777u : 0100644u) << 16;
        QuaZipFile file(&zip);
        if (!file.open(QIODevice::WriteOnly, info))
            return false;
        file.write(entry.data);
        file.close();
    }
    zip.close();
    return zip.getZipError() == 0;
}

bool writeFile(const QString &path, const QByteArray &data)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(data) == data.size();
}

const QByteArray kConfig20 = "<driver version=\"2.0\"><name>Fam</name><protocol>skf</protocol>"
                             "<argument>libtoken.so</argument></driver>";

} // namespace

class TstKeyDriverPackage : public QObject
{
    Q_OBJECT

    TWCore core;
    QTemporaryDir *tmp = nullptr;

    QString path(const QString &rel) const { return tmp->path() + QLatin1Char('/') + rel; }

    // A directory package with this config.xml; its path.
    QString dirPackage(const QString &name, const QByteArray &config)
    {
        writeFile(path(name + QStringLiteral("/config.xml")), config);
        return path(name);
    }

    bool openedWith(const QString &message) const { return logcheck::debug(core, QStringLiteral("open"), message); }
    bool loadedWith(const QString &message) const { return logcheck::debug(core, QStringLiteral("load"), message); }

private slots:
    void init()
    {
        tmp = new QTemporaryDir;
        QVERIFY(tmp->isValid());
        core.clear();
        ComponentInit(&core);
    }
    void cleanup()
    {
        ComponentDestroy();
        delete tmp;
    }

    void directoryVersion20()
    {
        // The root's name is not looked at.
        const QString dir = dirPackage(QStringLiteral("p"),
                                       "<settings version=\"2.0\">"
                                       "<name>CFCA</name><protocol>SKF</protocol><argument>lib.so</argument>"
                                       "<modelid>M1</modelid><ap>YWRtaW4=</ap>"
                                       "<createfilebyverifypin> true</createfilebyverifypin>"
                                       "<library>keydriver_twhard.dll</library><unknown>x</unknown>"
                                       "<name>second</name></settings>");
        KeyDriverPackage kdp(dir);
        QVERIFY(logcheck::debug(core, QStringLiteral("KeyDriverPackage"), QStringLiteral(" filePath:") + dir));
        QVERIFY(kdp.open());
        QVERIFY(!kdp.isKDPFile());
        QCOMPARE(kdp.workPath(), dir);
        QCOMPARE(kdp.version(), QStringLiteral("2.0"));
        QCOMPARE(kdp.name(), QStringLiteral("CFCA")); // the first element of a name
        QCOMPARE(kdp.protocol(), QStringLiteral("SKF"));
        QCOMPARE(kdp.argument(), QStringLiteral("lib.so"));
        QCOMPARE(kdp.modelId(), QStringLiteral("M1"));
        QCOMPARE(kdp.defaultAdminPin(), QStringLiteral("YWRtaW4="));
        // Texts stay as they stand, blanks included.
        QCOMPARE(kdp.createFileByVerifyPin(), QStringLiteral(" true"));
        QCOMPARE(kdp.cspname(), QString());
        QCOMPARE(kdp.skfPath(), QString());
        QVERIFY(loadedWith(QStringLiteral(" _version = 1.1 or 2.0")));
        QVERIFY(openedWith(QStringLiteral(" end")));
        QVERIFY(logcheck::debug(core, QStringLiteral("version"), QStringLiteral(" _version: 2.0")));
        QVERIFY(logcheck::debug(core, QStringLiteral("workPath"), QStringLiteral(" _workPath: ") + dir));
        QVERIFY(logcheck::debug(core, QStringLiteral("isKDPFile"), QStringLiteral(" isKDPFile: 0")));
    }

    void version11WithoutProtocolLoads()
    {
        KeyDriverPackage kdp(dirPackage(QStringLiteral("p"), "<driver version=\"1.1\"><argument/></driver>"));
        QVERIFY(kdp.open());
        QCOMPARE(kdp.version(), QStringLiteral("1.1"));
        QCOMPARE(kdp.protocol(), QString());
        QCOMPARE(kdp.argument(), QString());
    }

    void version10()
    {
        // No version attribute means 1.0; it needs the one library name,
        // in any case, and ignores a protocol.
        KeyDriverPackage good(dirPackage(QStringLiteral("good"),
                                         "<driver><library>KeyDriver_TWHARD.dll</library><protocol>skf</protocol>"
                                         "<cspname>CSP</cspname></driver>"));
        writeFile(path(QStringLiteral("good/TW_KeyCode.ini")), "[KeyType]\nSKFKEYCODE=libskf.so\n");
        QVERIFY(good.open());
        QCOMPARE(good.version(), QStringLiteral("1.0"));
        QCOMPARE(good.protocol(), QString());
        QCOMPARE(good.cspname(), QStringLiteral("CSP"));
        // The key code never reaches skfPath().
        QCOMPARE(good.skfPath(), QString());
        QVERIFY(loadedWith(QStringLiteral(" end. _version = 1.0")));

        core.clear();
        KeyDriverPackage bare(dirPackage(QStringLiteral("bare"), "<driver><name>n</name></driver>"));
        QVERIFY(!bare.open());
        // Refused after the version line with no word of its own.
        const QStringList words = logcheck::messages(core);
        QCOMPARE(words.last(), QStringLiteral(" end. _version = 1.0"));

        KeyDriverPackage other(dirPackage(QStringLiteral("other"), "<driver version=\"1.0\"><library>x.dll</library></driver>"));
        QVERIFY(!other.open());
    }

    void unknownVersions()
    {
        for (const char *version : {"1.10", "3.0", "2.0 "}) {
            core.clear();
            KeyDriverPackage kdp(dirPackage(QStringLiteral("v"),
                                            QByteArray("<driver version=\"") + version + "\"><protocol>skf</protocol></driver>"));
            QVERIFY2(!kdp.open(), version);
            QVERIFY(loadedWith(QStringLiteral("end. unkown _version")));
        }
    }

    void limitSerialNumber_data()
    {
        QTest::addColumn<QByteArray>("element");
        QTest::addColumn<int>("limit");
        QTest::newRow("limited") << QByteArray("<limitSerialNum limitSize=\"12\">1</limitSerialNum>") << 12;
        QTest::newRow("no size") << QByteArray("<limitSerialNum>1</limitSerialNum>") << 0;
        QTest::newRow("zero") << QByteArray("<limitSerialNum limitSize=\"12\">0</limitSerialNum>") << 16;
        QTest::newRow("text") << QByteArray("<limitSerialNum limitSize=\"12\">abc</limitSerialNum>") << 16;
        QTest::newRow("negative") << QByteArray("<limitSerialNum limitSize=\"12\">-1</limitSerialNum>") << 16;
        QTest::newRow("absent") << QByteArray() << 16;
    }

    void limitSerialNumber()
    {
        QFETCH(QByteArray, element);
        QFETCH(int, limit);
        KeyDriverPackage kdp(dirPackage(QStringLiteral("l"), "<driver version=\"2.0\">" + element + "</driver>"));
        QVERIFY(kdp.open());
        QCOMPARE(kdp.GetLimitSize(16), limit);
    }

    void limitSerialNumberIsLogged()
    {
        KeyDriverPackage kdp(dirPackage(QStringLiteral("l"),
                                        "<driver version=\"2.0\"><limitSerialNum limitSize=\"12\">1</limitSerialNum></driver>"));
        QVERIFY(kdp.open());
        QVERIFY(loadedWith(QStringLiteral(" _limitSerialNum is:1")));
        QVERIFY(loadedWith(QStringLiteral(" _limitSize is:12")));
    }

    void keyCodeFile()
    {
        KeyDriverPackage kdp(QStringLiteral("unused"));
        QString out = QStringLiteral("preset");
        QVERIFY(!kdp.getSKFPath(path(QStringLiteral("missing.ini")), out));
        QCOMPARE(out, QString());
        QVERIFY(!QFileInfo::exists(path(QStringLiteral("missing.ini"))));

        writeFile(path(QStringLiteral("p11.ini")), "[KeyType]\nP11KEYCODE=libp11.so\n");
        QVERIFY(!kdp.getSKFPath(path(QStringLiteral("p11.ini")), out));
        QCOMPARE(out, QStringLiteral("libp11.so"));

        writeFile(path(QStringLiteral("skf.ini")), "[KeyType]\nSKFKEYCODE=libskf.so\nP11KEYCODE=libp11.so\n");
        QVERIFY(kdp.getSKFPath(path(QStringLiteral("skf.ini")), out));
        QCOMPARE(out, QStringLiteral("libskf.so"));
    }

    void pathRefusals()
    {
        KeyDriverPackage empty{QString()};
        QVERIFY(!empty.open());
        QVERIFY(openedWith(QStringLiteral(" end. kdpPath is empty")));

        const QString missing = path(QStringLiteral("nothing.kdp"));
        KeyDriverPackage gone(missing);
        QVERIFY(!gone.open());
        QVERIFY(openedWith(QStringLiteral(" end. kdpPath %1 is invalidate").arg(missing)));

        // The packed form needs the suffix exactly in lower case.
        for (const char *name : {"x.KDP", "x.zip"}) {
            core.clear();
            writeFile(path(QLatin1String(name)), "whatever");
            KeyDriverPackage kdp(path(QLatin1String(name)));
            QVERIFY(!kdp.open());
            QVERIFY(openedWith(QStringLiteral(" end. unknow format")));
        }

        core.clear();
        QDir().mkpath(path(QStringLiteral("noconfig")));
        KeyDriverPackage noConfig(path(QStringLiteral("noconfig")));
        QVERIFY(!noConfig.open());
        QVERIFY(openedWith(QStringLiteral(" end. configPath invalidate")));
    }

    void unreadableAndBrokenConfig()
    {
        // A config.xml that exists but can't be read as a file.
        QDir().mkpath(path(QStringLiteral("dirconfig/config.xml")));
        KeyDriverPackage unreadable(path(QStringLiteral("dirconfig")));
        QVERIFY(!unreadable.open());
        QVERIFY(loadedWith(QStringLiteral(" open failed.")));

        for (const QByteArray &text : {QByteArray("not xml at all"), QByteArray(), QByteArray("<driver><name>x</driver>"),
                                       QByteArray("\x00\xff\xfe<", 4)}) {
            core.clear();
            KeyDriverPackage broken(dirPackage(QStringLiteral("broken"), text));
            QVERIFY(!broken.open());
            QVERIFY(loadedWith(QStringLiteral("end. xml parser failed.")));
            const QStringList words = logcheck::messages(core);
            const int at = words.indexOf(QStringLiteral("end. xml parser failed."));
            QVERIFY(at > 0);
            QVERIFY(words.at(at - 1).startsWith(QStringLiteral(" errorStr: ")));
            QVERIFY(words.at(at - 1).contains(QStringLiteral(" ; errorLine: ")));
        }
    }

    void packedPackageUnpacksBesideItself()
    {
        const QString archive = path(QStringLiteral("pk/fam.v2.kdp"));
        QDir().mkpath(path(QStringLiteral("pk")));
        QVERIFY(writeZip(archive, {{QStringLiteral("config.xml"), kConfig20},
                                   {QStringLiteral("sub/data.bin"), QByteArray("payload")}}));
        KeyDriverPackage kdp(archive);
        QVERIFY(kdp.open());
        QVERIFY(kdp.isKDPFile());
        const QString work = QFileInfo(archive).canonicalPath() + QStringLiteral("/fam.v2");
        QCOMPARE(kdp.workPath(), work);
        QCOMPARE(kdp.name(), QStringLiteral("Fam"));
        QVERIFY(QFileInfo::exists(work + QStringLiteral("/sub/data.bin")));

        // Every open of the file unpacks again, over what lies there.
        writeFile(work + QStringLiteral("/config.xml"), "<driver version=\"9\"/>");
        KeyDriverPackage again(archive);
        QVERIFY(again.open());
        QCOMPARE(again.version(), QStringLiteral("2.0"));

        // close() leaves the folder behind.
        again.close();
        QVERIFY(QFileInfo::exists(work + QStringLiteral("/config.xml")));
    }

    void packedPackageOneLevelDown()
    {
        const QString archive = path(QStringLiteral("nested.kdp"));
        QVERIFY(writeZip(archive, {{QStringLiteral("inner/config.xml"), kConfig20}}));
        KeyDriverPackage kdp(archive);
        QVERIFY(!kdp.open());
        QVERIFY(openedWith(QStringLiteral(" end. configPath invalidate")));
        QVERIFY(QFileInfo::exists(path(QStringLiteral("nested/inner/config.xml"))));
    }

    void fileThatIsNotAZip()
    {
        writeFile(path(QStringLiteral("fake.kdp")), "PK\x03\x04 but nothing else");
        KeyDriverPackage kdp(path(QStringLiteral("fake.kdp")));
        QVERIFY(!kdp.open());
        QVERIFY(openedWith(QStringLiteral(" end. configPath invalidate")));
        QVERIFY(!QFileInfo::exists(path(QStringLiteral("fake/config.xml"))));
    }

    void archiveEscapingByName()
    {
        // pkgs/slip.kdp unpacks into pkgs/slip; its entries aim at the
        // test folder above.
        QDir().mkpath(path(QStringLiteral("pkgs")));
        const QString archive = path(QStringLiteral("pkgs/slip.kdp"));
        QVERIFY(writeZip(archive, {{QStringLiteral("config.xml"), kConfig20},
                                   {QStringLiteral("../../escaped.txt"), QByteArray("out")},
                                   {QStringLiteral("ok/../../escaped2.txt"), QByteArray("out")}}));
        KeyDriverPackage kdp(archive);
        QVERIFY(!kdp.open());
        QVERIFY(openedWith(QStringLiteral(" end. configPath invalidate")));
        QVERIFY(!QFileInfo::exists(path(QStringLiteral("escaped.txt"))));
        QVERIFY(!QFileInfo::exists(path(QStringLiteral("escaped2.txt"))));
        QVERIFY(!QFileInfo::exists(path(QStringLiteral("pkgs/slip/config.xml"))));
    }

    void archiveEscapingThroughALink()
    {
        // A link entry pointing out of the work folder, then a file written
        // through it: the unpacker would follow the link.
        QDir().mkpath(path(QStringLiteral("pkgs")));
        QDir().mkpath(path(QStringLiteral("outside")));
        const QString archive = path(QStringLiteral("pkgs/link.kdp"));
        QVERIFY(writeZip(archive, {{QStringLiteral("config.xml"), kConfig20},
                                   {QStringLiteral("door"), QByteArray("../../outside"), true},
                                   {QStringLiteral("door/planted.txt"), QByteArray("out")}}));
        KeyDriverPackage kdp(archive);
        QVERIFY(!kdp.open());
        QVERIFY(!QFileInfo::exists(path(QStringLiteral("outside/planted.txt"))));
        QVERIFY(!QFileInfo(path(QStringLiteral("pkgs/link/door"))).isSymLink());
    }

    void workFolderWithALinkOut()
    {
        // The folder beside the archive already holds a link to a file
        // elsewhere, under a name the archive carries.
        const QString victim = path(QStringLiteral("elsewhere/lib.so"));
        QVERIFY(writeFile(victim, "original"));
        QDir().mkpath(path(QStringLiteral("pk/fam")));
        QVERIFY(QFile::link(victim, path(QStringLiteral("pk/fam/libtoken.so"))));
        const QString archive = path(QStringLiteral("pk/fam.kdp"));
        QVERIFY(writeZip(archive, {{QStringLiteral("config.xml"), kConfig20},
                                   {QStringLiteral("libtoken.so"), QByteArray("replaced")}}));
        KeyDriverPackage kdp(archive);
        QVERIFY(!kdp.open());
        QFile file(victim);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), QByteArray("original"));
    }

    void archiveWithInnerLinkIsFine()
    {
        const QString archive = path(QStringLiteral("inner.kdp"));
        QVERIFY(writeZip(archive, {{QStringLiteral("config.xml"), kConfig20},
                                   {QStringLiteral("lib/libtoken.so.1"), QByteArray("bytes")},
                                   {QStringLiteral("libtoken.so"), QByteArray("lib/libtoken.so.1"), true}}));
        KeyDriverPackage kdp(archive);
        QVERIFY(kdp.open());
    }

    void withoutCoreAgent()
    {
        ComponentDestroy();
        KeyDriverPackage kdp(dirPackage(QStringLiteral("quiet"), kConfig20));
        QVERIFY(kdp.open());
        QCOMPARE(kdp.argument(), QStringLiteral("libtoken.so"));
        QCOMPARE(core.lineCount(), 0);
    }
};

QTEST_GUILESS_MAIN(TstKeyDriverPackage)
#include "tst_keydriverpackage.moc"
