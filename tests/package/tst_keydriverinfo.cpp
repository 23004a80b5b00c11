// Pairing a package with its driver: which class the version and protocol
// select, and how each refusal reads.
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

#include "../frame/logcheck.h"
#include "frame/rtc.h"
#include "package/keydriverinfo.h"
#include "package/keydriverpackage.h"
#include "twcore.h"

class TstKeyDriverInfo : public QObject
{
    Q_OBJECT

    TWCore core;
    QTemporaryDir *tmp = nullptr;

    // An opened package over a directory with this config.xml.
    KeyDriverPackage *package(const QByteArray &config, const QByteArray &libraryFile = QByteArray(),
                              const QByteArray &libraryBytes = QByteArray())
    {
        static int n = 0;
        const QString dir = tmp->path() + QStringLiteral("/p%1").arg(++n);
        QDir().mkpath(dir);
        QFile file(dir + QStringLiteral("/config.xml"));
        file.open(QIODevice::WriteOnly);
        file.write(config);
        file.close();
        if (!libraryFile.isEmpty()) {
            QFile lib(dir + QLatin1Char('/') + QString::fromLatin1(libraryFile));
            lib.open(QIODevice::WriteOnly);
            lib.write(libraryBytes);
        }
        auto *kdp = new KeyDriverPackage(dir);
        if (!kdp->open()) {
            delete kdp;
            return nullptr;
        }
        return kdp;
    }

    bool openLogged(const QString &message, TWCore::Level level = TWCore::Level::Debug) const
    {
        return logcheck::count(core, level, QStringLiteral("open"), message) == 1;
    }

    // Unbound: no driver, type as before, and the forwarders answer empty.
    static void checkUnbound(KeyDriverInfo &info)
    {
        QCOMPARE(info.getKeyDriver(), nullptr);
        QCOMPARE(info.getDriverType(), 1);
        QCOMPARE(info.count(), 0);
        QCOMPARE(info.openKey(0), nullptr);
        QCOMPARE(info.openKeyWithoutEnumDev(0), nullptr);
        QCOMPARE(info.lastError(), qint64(0));
    }

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

    void startValues()
    {
        KeyDriverInfo info(nullptr);
        QVERIFY(info.isActive());
        QCOMPARE(info.firstIndex(), 0);
        QCOMPARE(info.keyCount(), 0);
        QCOMPARE(info.getKDP(), nullptr);
        checkUnbound(info);
    }

    // Packages no driver is made for, and the words of each refusal.
    void refusedWithoutDriver_data()
    {
        QTest::addColumn<QByteArray>("config");
        QTest::addColumn<QString>("debugLine");
        QTest::addColumn<QString>("errorLine");
        QTest::newRow("version 1.0") << QByteArray("<driver><library>keydriver_twhard.dll</library></driver>")
                                     << QStringLiteral(" protocol twhard by kdp1.0, not support run by not win32 os")
                                     << QString();
        // The protocol must match exactly, but for case.
        QTest::newRow("trailing blank") << QByteArray("<driver version=\"1.1\"><protocol>skf </protocol></driver>")
                                        << QString() << QStringLiteral(" no keydriver");
        QTest::newRow("absent") << QByteArray("<driver version=\"2.0\"><argument>x.so</argument></driver>") << QString()
                                << QStringLiteral(" no keydriver");
        QTest::newRow("other") << QByteArray("<driver version=\"2.0\"><protocol>p11</protocol></driver>") << QString()
                               << QStringLiteral(" no keydriver");
        // A native package without its library.
        QTest::newRow("native") << QByteArray("<driver version=\"2.0\"><protocol>TWF</protocol></driver>")
                                << QStringLiteral(" protocol twf") << QStringLiteral(" kdp load fail");
    }

    void refusedWithoutDriver()
    {
        QFETCH(QByteArray, config);
        QFETCH(QString, debugLine);
        QFETCH(QString, errorLine);
        std::unique_ptr<KeyDriverPackage> kdp(package(config));
        QVERIFY(kdp);
        KeyDriverInfo info(kdp.get());
        QVERIFY(!info.open());
        if (!debugLine.isEmpty())
            QVERIFY(openLogged(debugLine));
        if (!errorLine.isEmpty())
            QVERIFY(openLogged(errorLine, TWCore::Level::Error));
        checkUnbound(info);
    }

    void skfLibraryThatWontLoad_data()
    {
        QTest::addColumn<QByteArray>("config");
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QByteArray>("bytes");
        // An empty argument makes a path ending in "/".
        QTest::newRow("empty argument") << QByteArray("<driver version=\"1.1\"><protocol>skf</protocol></driver>")
                                        << QByteArray() << QByteArray();
        QTest::newRow("missing file") << QByteArray("<driver version=\"2.0\"><protocol>Skf</protocol><argument>none.so</argument></driver>")
                                      << QByteArray() << QByteArray();
        QTest::newRow("not a shared object")
            << QByteArray("<driver version=\"2.0\"><protocol>SKF</protocol><argument>libtext.so</argument></driver>")
            << QByteArray("libtext.so") << QByteArray("\x7f" "ELF but not really, just text\n");
    }

    void skfLibraryThatWontLoad()
    {
        QFETCH(QByteArray, config);
        QFETCH(QByteArray, file);
        QFETCH(QByteArray, bytes);
        std::unique_ptr<KeyDriverPackage> kdp(package(config, file, bytes));
        QVERIFY(kdp);
        core.clear(); // only the binding's lines from here
        KeyDriverInfo info(kdp.get());
        QVERIFY(!info.open());
        QVERIFY(openLogged(QStringLiteral(" protocol skf")));
        QVERIFY(openLogged(QStringLiteral(" kdp load fail"), TWCore::Level::Error));
        // The package is read in a fixed order before the driver is built:
        // version, protocol, then the work path ahead of the file name.
        QStringList reads;
        for (const QString &word : logcheck::messages(core)) {
            if (word.startsWith(QLatin1String(" _")) || word == QLatin1String(" protocol skf")
                || word.startsWith(QLatin1String("path :")))
                reads << word.section(QLatin1Char(':'), 0, 0);
        }
        QCOMPARE(reads, (QStringList{QStringLiteral(" _version"), QStringLiteral(" _protocol"),
                                     QStringLiteral(" protocol skf"), QStringLiteral(" _workPath"),
                                     QStringLiteral(" _argument"), QStringLiteral("path ")}));
        // The driver's own reason comes first, through the error log.
        const QStringList errors = core.lines(TWCore::Level::Error);
        QCOMPARE(errors.size(), 2);
        QVERIFY(QRegularExpression(QStringLiteral("^\\[load:\\d+\\]end\\. error msg .+")).match(errors.at(0)).hasMatch());
        checkUnbound(info);
    }

    void closeDropsEverything()
    {
        std::unique_ptr<KeyDriverPackage> kdp(package("<driver version=\"2.0\"/>"));
        KeyDriverInfo info(kdp.get());
        info.close();
        QCOMPARE(info.getDriverType(), 0);
        QCOMPARE(info.getKDP(), nullptr);
        QCOMPARE(info.getKeyDriver(), nullptr);
    }
};

QTEST_GUILESS_MAIN(TstKeyDriverInfo)
#include "tst_keydriverinfo.moc"
