// Key driver packages (both forms, the three versions, every refusal, and
// archives that must not be trusted) and their pairing with a driver.
#include <QTemporaryDir>
#include <QtTest>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <quazip/quazip.h>
#include <quazip/quazipfile.h>
#include <quazip/quazipnewinfo.h>

#include "diskfull.h"
#include "frame/rtc.h"
#include "logcheck.h"
#include "package/keydriver.h"
#include "package/keydriverinfo.h"
#include "package/keydriverpackage.h"

namespace {

const QString kConfig = QStringLiteral("<driver version=\"2.0\"><name>Fam</name><protocol>skf</protocol>"
                                       "<argument>libtoken.so</argument></driver>");

// A socket's file: it stands in the folder, yet nothing can open it.
bool socketFile(const QString &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, QFile::encodeName(path).constData(), sizeof(address.sun_path));
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    const bool bound = fd >= 0 && ::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0;
    ::close(fd);
    return bound;
}

// Files under root, "path=content", "path->link target", and zip entries
// "archive.kdp!entry=content" or "archive.kdp!entry->target"; "archive.kdp~"
// breaks the archive's second central-directory entry.
bool make(const QString &root, const QStringList &files)
{
    QMap<QString, QList<QStringList>> zips;
    QStringList broken;
    for (QString f : files) {
        if (f.endsWith(QLatin1Char('~'))) {
            broken << root + QLatin1Char('/') + f.chopped(1);
            continue;
        }
        f.replace(QStringLiteral("{CFG}"), kConfig).replace(QStringLiteral("{ROOT}"), root)
            .replace(QStringLiteral("{1MB}"), QString(1 << 20, QLatin1Char('0')));
        const int arrow = f.indexOf(QStringLiteral("->")), eq = f.indexOf(QLatin1Char('='));
        const bool link = arrow > 0 && (eq < 0 || arrow < eq);
        const int cut = link ? arrow : eq;
        const QStringList kv = cut < 0 ? QStringList{f} : QStringList{f.left(cut), f.mid(cut + (link ? 2 : 1))};
        if (kv.at(0).contains(QLatin1Char('!'))) {
            zips[kv.at(0).section(QLatin1Char('!'), 0, 0)] << QStringList{kv.at(0).section(QLatin1Char('!'), 1), kv.value(1),
                                                                          link ? "l" : "f"};
            continue;
        }
        const QString path = root + QLatin1Char('/') + kv.at(0);
        QDir().mkpath(QFileInfo(path).path());
        QFile file(path);
        if (kv.value(1) == QLatin1String("{FIFO}") ? ::mkfifo(QFile::encodeName(path).constData(), 0600) != 0
            : kv.value(1) == QLatin1String("{SOCKET}") ? !socketFile(path)
            : link ? !QFile::link(kv.at(1), path)
                 : kv.size() < 2 ? !QDir().mkpath(path)
                                 : !file.open(QIODevice::WriteOnly) || file.write(kv.at(1).toLatin1()) < 0)
            return false;
    }
    for (auto z = zips.cbegin(); z != zips.cend(); ++z) {
        QuaZip zip(root + QLatin1Char('/') + z.key());
        QDir().mkpath(QFileInfo(zip.getZipName()).path());
        if (!zip.open(QuaZip::mdCreate))
            return false;
        for (const QStringList &e : z.value()) {
            QuaZipNewInfo info(e.at(0));
            info.externalAttr = (e.at(2) == "l" ? 0120777u : 0100644u) << 16;
            QuaZipFile entry(&zip);
            if (!entry.open(QIODevice::WriteOnly, info))
                return false;
            entry.write(e.at(1).toLatin1());
        }
    }
    for (const QString &path : broken) { // "~~": the first entry's compressed data instead
        QFile zip(path.endsWith(QLatin1Char('~')) ? path.chopped(1) : path);
        QByteArray bytes = zip.open(QIODevice::ReadWrite) ? zip.readAll() : QByteArray();
        const auto u16 = [&bytes](int i) { return quint8(bytes.at(i)) | quint8(bytes.at(i + 1)) << 8; };
        const int first = bytes.indexOf("PK\x01\x02"), at = path.endsWith(QLatin1Char('~')) ? 30 + u16(26) + u16(28) : bytes.indexOf("PK\x01\x02", first + 1) + 3;
        if (first < 0 || at < 3 || !zip.seek(at) || !zip.putChar('\x09'))
            return false;
    }
    return true;
}

QString field(KeyDriverPackage &p, const QString &name)
{
    const QMap<QString, std::function<QString()>> get{
        {"version", [&] { return p.version(); }}, {"name", [&] { return p.name(); }},
        {"protocol", [&] { return p.protocol(); }}, {"argument", [&] { return p.argument(); }},
        {"modelId", [&] { return p.modelId(); }}, {"ap", [&] { return p.defaultAdminPin(); }},
        {"cfbvp", [&] { return p.createFileByVerifyPin(); }}, {"csp", [&] { return p.cspname(); }},
        {"skfPath", [&] { return p.skfPath(); }}, {"kdpFile", [&] { return QString::number(p.isKDPFile()); }},
        {"limit", [&] { return QString::number(p.GetLimitSize(16)); }}, {"work", [&] { return p.workPath(); }}};
    return get.value(name, [] { return QStringLiteral("?"); })();
}

} // namespace

class TstPackage : public QObject
{
    Q_OBJECT

    TWCore core;
    std::unique_ptr<QTemporaryDir> tmp;
    QString root;

    QStringList expand(QStringList list) const { return list.replaceInStrings(QStringLiteral("{ROOT}"), root); }

private slots:
    void init()
    {
        tmp = std::make_unique<QTemporaryDir>();
        root = QFileInfo(tmp->path()).canonicalFilePath();
        core.clear();
        ComponentInit(&core);
    }
    void cleanup() { ComponentDestroy(); }

    // Files to make, the path to open, whether it opens, "field=value;..."
    // to read after, log lines, and what lies on disk after close():
    // "path" exists, "!path" does not, "path=content", "~path" is no link.
    void package_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("opens");
        QTest::addColumn<QString>("fields");
        QTest::addColumn<QStringList>("log");
        QTest::addColumn<QStringList>("after");
        const QString v20 = "p/config.xml=<driver version=\"2.0\">%1</driver>";
        QTest::newRow("root name not looked at, texts as they stand")
            << QStringList{"p/config.xml=<settings version=\"2.0\"><name>CFCA</name><protocol>SKF</protocol>"
                           "<argument>lib.so</argument><modelid>M1</modelid><ap>YWRtaW4=</ap><createfilebyverifypin> "
                           "true</createfilebyverifypin><library>keydriver_twhard.dll</library><cspname>C</cspname>"
                           "<unknown>x</unknown><name>second</name></settings>"}
            << "p" << true
            << "version=2.0;name=CFCA;protocol=SKF;argument=lib.so;modelId=M1;ap=YWRtaW4=;cfbvp= true;csp=;skfPath=;"
               "kdpFile=0;limit=16;work={ROOT}/p"
            << QStringList{"KeyDriverPackage| filePath:{ROOT}/p", "load| _workPath:{ROOT}/p", ">load| end",
                           "load| _version = 1.1 or 2.0", "open| end", "version| _version: 2.0",
                           "workPath| _workPath: {ROOT}/p", "isKDPFile| isKDPFile: 0", "close| start", ">close| end"}
            << QStringList{"p/config.xml"};
        QTest::newRow("1.1 without protocol") << QStringList{"p/config.xml=<driver version=\"1.1\"><argument/></driver>"}
                                              << "p" << true << "version=1.1;protocol=;argument=" << QStringList()
                                              << QStringList();
        QTest::newRow("1.0: library in any case, protocol ignored, key code dropped")
            << QStringList{"p/config.xml=<driver><library>KeyDriver_TWHARD.dll</library><protocol>skf</protocol>"
                           "<cspname>CSP</cspname></driver>",
                           "p/TW_KeyCode.ini=[KeyType]\nSKFKEYCODE=libskf.so\n"}
            << "p" << true << "version=1.0;protocol=;csp=CSP;skfPath=" << QStringList{"load| end. _version = 1.0"}
            << QStringList();
        QTest::newRow("1.0 without library")
            << QStringList{"p/config.xml=<driver><name>n</name></driver>"} << "p" << false << "version=1.0"
            << QStringList{"load| end. _version = 1.0", "load| end|0", "open| end|0"} << QStringList();
        QTest::newRow("1.0 other library") << QStringList{"p/config.xml=<driver version=\"1.0\"><library>x.dll</library></driver>"}
                                           << "p" << false << "" << QStringList{"load| end|0"} << QStringList();
        for (const char *v : {"1.10", "3.0", "2.0 "})
            QTest::newRow(v) << QStringList{QStringLiteral("p/config.xml=<driver version=\"%1\"/>").arg(v)} << "p" << false
                             << "" << QStringList{"load|end. unkown _version"} << QStringList();
        QTest::newRow("limited") << QStringList{v20.arg("<limitSerialNum limitSize=\"12\">1</limitSerialNum>")} << "p"
                                 << true << "limit=12"
                                 << QStringList{"load| _limitSerialNum is:1", "load| _limitSize is:12"} << QStringList();
        QTest::newRow("limit without size") << QStringList{v20.arg("<limitSerialNum>1</limitSerialNum>")} << "p" << true
                                            << "limit=0" << QStringList{"load| _limitSize is:*|0"} << QStringList();
        for (const char *n : {"0", "abc", "-1"}) // a size is read for any number but 0, used only above 0
            QTest::newRow(qPrintable(QStringLiteral("limit %1").arg(n)))
                << QStringList{v20.arg(QStringLiteral("<limitSerialNum limitSize=\"12\">%1</limitSerialNum>").arg(n))}
                << "p" << true << "limit=16" << QStringList{QStringLiteral("load| _limitSize is:12|%1").arg(n[0] == '-')}
                << QStringList();
        QTest::newRow("no limit") << QStringList{v20.arg("")} << "p" << true << "limit=16"
                                  << QStringList{"load| _limitSerialNum is:*|0"} << QStringList();
        QTest::newRow("empty path") << QStringList() << "" << false << "" << QStringList{"open| end. kdpPath is empty"}
                                    << QStringList();
        QTest::newRow("missing") << QStringList() << "nothing.kdp" << false << ""
                                 << QStringList{"open| end. kdpPath {ROOT}/nothing.kdp is invalidate"} << QStringList();
        for (const char *name : {"x.KDP", "x.zip"})
            QTest::newRow(name) << QStringList{QStringLiteral("%1=whatever").arg(name)} << name << false << ""
                                << QStringList{"open| end. unknow format"} << QStringList();
        QTest::newRow("no config") << QStringList{"p"} << "p" << false << ""
                                   << QStringList{"open| end. configPath invalidate"} << QStringList();
        QTest::newRow("config unreadable") << QStringList{"p/config.xml={SOCKET}"} << "p" << false << ""
                                           << QStringList{"load| config.xml cannot be opened", ">load| open failed."} << QStringList();
        for (const char *xml : {"not xml", "", "<driver><name>x</driver>", "\xff\xfe<"})
            QTest::newRow(qPrintable(QStringLiteral("xml '%1'").arg(xml)))
                << QStringList{QStringLiteral("p/config.xml=") + QLatin1String(xml)} << "p" << false << ""
                << QStringList{"load| errorStr: * ; errorLine: *", ">load|end. xml parser failed."} << QStringList();
        // Hostile config.xml: refused before the parser, without a wait.
        const QString deep = QString("<a>").repeated(2000) + QString("</a>").repeated(2000);
        const QString big = " config.xml is larger than 16384 bytes", special = " config.xml is not a regular file";
        for (const QStringList &c : {QStringList{"50000 levels", "p/config.xml=" + QString("<a>").repeated(50000), big},
                                     {"40000 attributes", "p/config.xml=<d" + QString(" a%1=''").repeated(40000) + "/>", big},
                                     {"/dev/zero", "p/config.xml->/dev/zero", special}, {"FIFO", "p/config.xml={FIFO}", special}})
            QTest::newRow(qPrintable(c[0])) << QStringList{c[1]} << "p" << false << "" << QStringList{"load|" + c[2], ">load| open failed."} << QStringList();
        for (const QString &ahead : {QString(), QStringLiteral("<?xml version=\"1.0\"?><!-- a > b --><![CDATA[ < ]]>")})
            QTest::newRow(qPrintable("nested deeper than 32" + ahead)) << QStringList{"p/config.xml=" + ahead + deep} << "p" << false << ""
                << QStringList{"load| config.xml nests deeper than 32 levels", ">load|end. xml parser failed."} << QStringList();
        QTest::newRow("33 levels, past a closed one") << QStringList{"p/config.xml=<a><b></b>" + QString("<a>").repeated(32) + QString("</a>").repeated(33)} << "p" << false << ""
                << QStringList{"load| config.xml nests deeper than 32 levels", ">load|end. xml parser failed."} << QStringList();
        const QString markup = QString("<a>").repeated(40);
        QTest::newRow("markup in a comment, a CDATA section or an instruction, or closed at once, does not nest")
            << QStringList{v20.arg("<name>Fam</name><!-- " + markup + " --><![CDATA[" + markup + "]]><?pi " + markup + "?>"
                                   + QString("<e a='/>'/>").repeated(40))} << "p"
            << true << "name=Fam" << QStringList() << QStringList();
        QTest::newRow("entities declared") << QStringList{"p/config.xml=<!DOCTYPE d [<!ENTITY e \"<a>\">]><d>&e;</d>"} << "p" << false << ""
            << QStringList{"load| config.xml declares entities"} << QStringList();
        QTest::newRow("where the xml breaks") << QStringList{"p/config.xml=<driver>\n\n<name>x</driver>"} << "p" << false << ""
                                              << QStringList{"load| errorStr: tag mismatch ; errorLine: 3 ; errorCol: 16"} << QStringList();
        QTest::newRow("packed, unpacked beside, again over what lies there")
            << QStringList{"pk/fam.v2.kdp!config.xml={CFG}", "pk/fam.v2.kdp!sub/data.bin=payload",
                           "pk/fam.v2/config.xml=<driver version=\"9\"/>"}
            << "pk/fam.v2.kdp" << true << "version=2.0;name=Fam;kdpFile=1;work={ROOT}/pk/fam.v2"
            << QStringList{"isKDPFile| isKDPFile: 1"} << QStringList{"pk/fam.v2/sub/data.bin", "pk/fam.v2/config.xml"};
        QTest::newRow("packed one level down") << QStringList{"nested.kdp!inner/config.xml={CFG}"} << "nested.kdp" << false
                                               << "" << QStringList{"open| unpack refused*|0", "open| end. configPath invalidate"}
                                               << QStringList{"nested/inner/config.xml"};
        QTest::newRow("not a zip") << QStringList{"fake.kdp=PK\x03\x04 but nothing else"} << "fake.kdp" << false << ""
                                   << QStringList{"open| unpack refused: not a zip archive", "open| end. configPath invalidate"}
                                   << QStringList{"!fake"};
        QTest::newRow("entries escaping by name")
            << QStringList{"pkgs/slip.kdp!config.xml={CFG}", "pkgs/slip.kdp!../../escaped.txt=out",
                           "pkgs/slip.kdp!ok/../../escaped2.txt=out"}
            << "pkgs/slip.kdp" << false << "" << QStringList{"open| end. configPath invalidate"}
            << QStringList{"!escaped.txt", "!escaped2.txt", "!pkgs/slip/config.xml"};
        QTest::newRow("entry with an absolute name") << QStringList{"abs.kdp!config.xml={CFG}", "abs.kdp!{ROOT}/absolute.txt=out"}
            << "abs.kdp" << false << "" << QStringList() << QStringList{"!absolute.txt", "!abs/config.xml"};
        QTest::newRow("entry escaping through a link")
            << QStringList{"outside", "pkgs/link.kdp!config.xml={CFG}", "pkgs/link.kdp!door->../../outside",
                           "pkgs/link.kdp!door/planted.txt=out"}
            << "pkgs/link.kdp" << false << "" << QStringList() << QStringList{"!outside/planted.txt", "~pkgs/link/door"};
        QTest::newRow("work folder holding a link out")
            << QStringList{"elsewhere/lib.so=original", "pk/fam/libtoken.so->{ROOT}/elsewhere/lib.so",
                           "pk/fam.kdp!config.xml={CFG}", "pk/fam.kdp!libtoken.so=replaced"}
            << "pk/fam.kdp" << true << "" << QStringList() << QStringList{"elsewhere/lib.so=original", "pk/fam/libtoken.so=replaced"};
        QTest::newRow("a link to . and ../.. under it")
            << QStringList{"pk/sib/config.xml=mine", "pk/dot.kdp!config.xml={CFG}", "pk/dot.kdp!a->.", "pk/dot.kdp!a/a/b->../..",
                           "pk/dot.kdp!a/a/b/pk/sib/config.xml=planted", "pk/dot.kdp!a/a/b/above.txt=planted"}
            << "pk/dot.kdp" << false << "" << QStringList{"open| unpack refused: entry \"a/a/b\" goes through a link or a file"}
            << QStringList{"pk/sib/config.xml=mine", "!above.txt", "!pk/dot"};
        QTest::newRow("unpacks to 100 times its size") << QStringList{"big.kdp!config.xml={CFG}", "big.kdp!zeros={1MB}"} << "big.kdp" << false << ""
            << QStringList{"open| unpack refused: unpacks to more than its limit"} << QStringList{"!big"};
        QTest::newRow("a file where the work folder has a folder")
            << QStringList{"pk/x/lib/keep", "pk/x.kdp!config.xml={CFG}", "pk/x.kdp!lib=file"} << "pk/x.kdp" << false << ""
            << QStringList{"open| unpack refused: a file of the archive stands where the work folder has a folder"}
            << QStringList{"pk/x/lib/keep", "!pk/x/config.xml"};
        // Link texts of up to 1024 bytes.
        const QString longest = QString("./").repeated(503) + "lib//libtoken.so.1";
        QTest::newRow("link inside the archive")
            << QStringList{"inner.kdp!config.xml={CFG}", "inner.kdp!lib/libtoken.so.1=bytes", "inner.kdp!libtoken.so->" + longest}
            << "inner.kdp" << true << "" << QStringList() << QStringList{"inner/libtoken.so=bytes"};
        QTest::newRow("a link text too long") << QStringList{"lt.kdp!config.xml={CFG}", "lt.kdp!l->" + QString(longest).replace("//", "///")} << "lt.kdp" << false
            << "" << QStringList{"open| unpack refused: link \"l\" refused"} << QStringList{"!lt"};
        QTest::newRow("a file where the work folder goes") << QStringList{"pk/w=plain", "pk/w.kdp!config.xml={CFG}"} << "pk/w.kdp"
            << false << "" << QStringList{"open| unpack refused: the work folder is a link or a file"} << QStringList{"pk/w=plain"};
        QTest::newRow("an entry made twice") << QStringList{"tw.kdp!config.xml={CFG}", "tw.kdp!f=1", "tw.kdp!f=2"} << "tw.kdp"
            << false << "" << QStringList{"open| unpack refused: entry \"f\" made twice"} << QStringList{"!tw"};
        QTest::newRow("a folder entry on a file") << QStringList{"fo.kdp!config.xml={CFG}", "fo.kdp!d=1", "fo.kdp!d/="} << "fo.kdp"
            << false << "" << QStringList{"open| unpack refused: folder \"d/\" stands on a link or a file"} << QStringList{"!fo"};
        QTest::newRow("a folder entry naming the top") << QStringList{"td.kdp!config.xml={CFG}", "td.kdp!./="} << "td.kdp" << false
            << "" << QStringList{"open| unpack refused: entry \"./\" leads out"} << QStringList{"!td"};
        QTest::newRow("a damaged central directory") << QStringList{"dz.kdp!config.xml={CFG}", "dz.kdp!f=1", "dz.kdp~"} << "dz.kdp"
            << false << "" << QStringList{"open| unpack refused: damaged archive"} << QStringList{"!dz"};
        QTest::newRow("an entry's data damaged") << QStringList{"dc.kdp!config.xml={CFG}", "dc.kdp~~"} << "dc.kdp" << false << ""
            << QStringList{"open| unpack refused: damaged archive"} << QStringList{"!dc"};
        QTest::newRow("a full disk") << QStringList{"{FULL}", "fd.kdp!config.xml={CFG}"} << "fd.kdp" << false
            << "" << QStringList{"open| unpack refused: cannot write \"config.xml\""} << QStringList{"!fd"};
        QStringList many{"me.kdp!config.xml={CFG}"};
        for (int i = 0; i < 4096; ++i)
            many << QStringLiteral("me.kdp!f%1=").arg(i);
        QTest::newRow("4097 entries") << many << "me.kdp" << false << "" << QStringList{"open| unpack refused: more than 4096 entries"}
                                      << QStringList{"!me"};
        QTest::newRow("link to an absolute path") << QStringList{"al.kdp!config.xml={CFG}", "al.kdp!l->/etc"} << "al.kdp" << false
            << "" << QStringList{"open| unpack refused: link \"l\" refused"} << QStringList{"!al"};
        QTest::newRow("link leading out after all") << QStringList{"out.kdp!config.xml={CFG}", "out.kdp!a->.", "out.kdp!b->a/.."}
            << "out.kdp" << false << "" << QStringList{"open| unpack refused: link \"b\" leads out"} << QStringList{"!out"};
    }
    void package()
    {
        QFETCH(QStringList, files);
        QFETCH(QString, path);
        QFETCH(QString, fields);
        QFETCH(QStringList, after);
        const bool full = files.removeAll(QStringLiteral("{FULL}")) > 0; // while the package opens
        QVERIFY(make(root, files));
        KeyDriverPackage kdp(path.isEmpty() ? QString() : root + QLatin1Char('/') + path);
        QVERIFY(!full || diskFull(true));
        const bool opened = kdp.open();
        QVERIFY(!full || diskFull(false));
        QTEST(opened, "opens");
        for (const QString &f : fields.split(QLatin1Char(';'), Qt::SkipEmptyParts))
            QCOMPARE(f.section('=', 0, 0) + '=' + field(kdp, f.section('=', 0, 0)), QString(f).replace("{ROOT}", root));
        kdp.close();
        QVERIFY(!QDirIterator(root, {"*.unpack.*"}, QDir::AllEntries | QDir::Hidden, QDirIterator::Subdirectories).hasNext());
        QFETCH(QStringList, log);
        TW_VERIFY_LOG(core, expand(log));
        for (QString a : after) {
            const QChar mark = a.at(0);
            const QFileInfo info(root + QLatin1Char('/') + a.section('=', 0, 0).remove(QRegularExpression("^[!~]")));
            QFile file(info.filePath());
            QVERIFY2(mark == '!' ? !info.exists() : mark == '~' ? !info.isSymLink()
                     : a.contains('=') ? file.open(QIODevice::ReadOnly) && file.readAll() == a.section('=', 1).toLatin1()
                                       : info.exists(),
                     qPrintable(a));
        }
    }

    void keyCodeFile()
    {
        QVERIFY(make(root, {"p11.ini=[KeyType]\nP11KEYCODE=libp11.so\n",
                            "skf.ini=[KeyType]\nSKFKEYCODE=libskf.so\nP11KEYCODE=libp11.so\n"}));
        KeyDriverPackage kdp(QStringLiteral("unused"));
        QString out = QStringLiteral("preset");
        QVERIFY(!kdp.getSKFPath(root + QStringLiteral("/missing.ini"), out));
        QCOMPARE(out, QString());
        QVERIFY(!QFileInfo::exists(root + QStringLiteral("/missing.ini")));
        QVERIFY(!kdp.getSKFPath(root + QStringLiteral("/p11.ini"), out));
        QCOMPARE(out, QStringLiteral("libp11.so"));
        QVERIFY(kdp.getSKFPath(root + QStringLiteral("/skf.ini"), out));
        QCOMPARE(out, QStringLiteral("libskf.so"));
        QFile big(root + QStringLiteral("/big.ini")); // past 16 KiB: as if missing
        QVERIFY(big.open(QIODevice::WriteOnly) && big.write("[KeyType]\nSKFKEYCODE=libskf.so\n" + QByteArray(16 * 1024, '#')) > 0);
        big.close();
        QVERIFY(!kdp.getSKFPath(big.fileName(), out));
        QCOMPARE(out, QString());
        ComponentDestroy(); // quiet without a core agent, and works all the same
        QVERIFY(make(root, {"q/config.xml={CFG}"}));
        core.clear();
        KeyDriverPackage quiet(root + QStringLiteral("/q"));
        QVERIFY(quiet.open());
        QCOMPARE(quiet.argument(), QStringLiteral("libtoken.so"));
        QCOMPARE(core.lineCount(), 0);
    }

    // config.xml, the library file (mock: the test token library, text: not
    // a shared object), whether a driver binds, its type after, log lines.
    void driverInfo_data()
    {
        QTest::addColumn<QString>("config");
        QTest::addColumn<QString>("library");
        QTest::addColumn<bool>("binds");
        QTest::addColumn<int>("type");
        QTest::addColumn<QStringList>("log");
        const QString v = "<driver version=\"%1\">%2</driver>";
        for (const char *p : {"SKF", "Skf", "skf"})
            QTest::newRow(p) << v.arg("2.0", QStringLiteral("<protocol>%1</protocol><argument>lib.so</argument>").arg(p))
                             << "mock" << true << 1
                             << QStringList{"open| start", "version| _version: 2.0", QStringLiteral(">protocol| _protocol: %1").arg(p),
                                            ">open| protocol skf", ">workPath| _workPath: {ROOT}/p", ">argument| _argument: lib.so",
                                            ">KeyDriverSKF|path :{ROOT}/p/lib.so", ">open| end"};
        QTest::newRow("1.0 even with a key code")
            << "<driver><library>keydriver_twhard.dll</library></driver>" << "ini" << false << 1
            << QStringList{"open| protocol twhard by kdp1.0, not support run by not win32 os"};
        QTest::newRow("trailing blank") << v.arg("1.1", "<protocol>skf </protocol>") << "" << false << 1
                                        << QStringList{"!open| no keydriver"};
        QTest::newRow("no protocol") << v.arg("2.0", "<argument>x.so</argument>") << "" << false << 1
                                     << QStringList{"!open| no keydriver"};
        QTest::newRow("other protocol") << v.arg("2.0", "<protocol>p11</protocol>") << "" << false << 1
                                        << QStringList{"!open| no keydriver"};
        QTest::newRow("native without its library") << v.arg("2.0", "<protocol>TWF</protocol>") << "" << false << 1
                                                     << QStringList{"open| protocol twf", "?*|*{ROOT}/p/libTWKeyDriver*", "!open| kdp load fail"};
        QTest::newRow("package that did not open") << v.arg("3.0", "") << "" << false << 1
                                                   << QStringList{"!open| unknown version, not support"};
        QTest::newRow("empty argument") << v.arg("1.1", "<protocol>skf</protocol>") << "" << false << 1
                                        << QStringList{"open| protocol skf", "!open| kdp load fail"};
        QTest::newRow("missing library") << v.arg("2.0", "<protocol>Skf</protocol><argument>none.so</argument>") << ""
                                         << false << 1
                                         << QStringList{"!load|end. error msg Cannot load library *No such file or directory)",
                                                        ">!open| kdp load fail"};
        // The loader must not map or wait on these: cut into the header, the table, the code; a FIFO.
        const QList<QPair<QString, QString>> refused{{"cut:20", "ELF header cut short"},
                                                     {"cut:64", "program headers beyond the end of the file"},
                                                     {"cut:65536", "a segment beyond the end of the file"},
                                                     {"fifo", "not a regular file"}};
        for (const auto &r : refused)
            QTest::newRow(qPrintable(r.first)) << v.arg("2.0", "<protocol>SKF</protocol><argument>lib.so</argument>") << r.first
                                               << false << 1 << QStringList{"!load|end. error msg {ROOT}/p/lib.so: " + r.second};
        QTest::newRow("named without its prefix") << v.arg("2.0", "<protocol>SKF</protocol><argument>.so</argument>") << "cut:20"
                                                 << false << 1 << QStringList{"!load|end. error msg {ROOT}/p/lib.so: ELF header cut short"};
        QTest::newRow("named without its suffix") << v.arg("2.0", "<protocol>SKF</protocol><argument>lib</argument>") << "cut:20"
                                                 << false << 1 << QStringList{"!load|end. error msg {ROOT}/p/lib.so: ELF header cut short"};
        QTest::newRow("not a shared object") << v.arg("2.0", "<protocol>SKF</protocol><argument>lib.so</argument>")
                                             << "text" << false << 1
                                             << QStringList{"!load|end. error msg {ROOT}/p/lib.so: ELF header cut short", ">!open| kdp load fail"};
    }
    void driverInfo()
    {
        QFETCH(QString, config);
        QFETCH(QString, library);
        QVERIFY(make(root, {"p/config.xml=" + config, "p/TW_KeyCode.ini=[KeyType]\nSKFKEYCODE=libskf.so\n"}));
        if (library == "mock")
            QVERIFY(QFile::link(QStringLiteral(SKFTRACE_PATH), root + QStringLiteral("/p/lib.so")));
        QFile cut(QStringLiteral(SKFTRACE_PATH)), to(root + QStringLiteral("/p/lib.so"));
        if (library.startsWith("cut:"))
            QVERIFY(cut.open(QIODevice::ReadOnly) && to.open(QIODevice::WriteOnly) && to.write(cut.read(library.mid(4).toInt())) > 0 && to.flush());
        if (library == "fifo")
            QVERIFY(make(root, {"p/lib.so={FIFO}"}));
        if (library == "text")
            QVERIFY(make(root, {"p/lib.so=\x7f" "ELF but not really"}));
        KeyDriverPackage kdp(root + QStringLiteral("/p"));
        kdp.open();
        core.clear();
        {
            KeyDriverInfo info(&kdp);
            QVERIFY(info.isActive() && info.firstIndex() == 0 && info.keyCount() == 0 && info.getKDP() == &kdp);
            TW_VERIFY_LOG(core, {"KeyDriverInfo| start", ">KeyDriverInfo| end"});
            QTEST(info.open(), "binds");
            QTEST(info.getDriverType(), "type");
            QFETCH(bool, binds);
            QCOMPARE(info.getKeyDriver() && info.getKeyDriver()->parent() == &info, binds);
            if (!binds) { // the forwarders answer empty
                QCOMPARE(info.count(), 0);
                QCOMPARE(info.openKey(0), nullptr);
                QCOMPARE(info.openKeyWithoutEnumDev(0), nullptr);
                QCOMPARE(info.lastError(), qint64(0));
            }
            QFETCH(QStringList, log);
            TW_VERIFY_LOG(core, expand(log));
            info.close();
            QVERIFY(info.getDriverType() == 0 && !info.getKDP() && !info.getKeyDriver());
        }
    }
};

QTEST_GUILESS_MAIN(TstPackage)
#include "tst_package.moc"
