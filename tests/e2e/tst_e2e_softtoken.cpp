// The library end to end through a host that calls only by name: an empty
// host, and a packed software-token package over a token that is pulled and
// put back.
#include "isolatedtest.h"
#include "kdpfixture.h"
#include "logcheck.h"
#include "testhost.h"
#include "twdeviceguard.h"

#include <QProcess>
#include <QTest>

class TestE2eSoftToken : public QObject
{
    Q_OBJECT

    bool admin(const QString &store, const QString &args)
    {
        QProcess p;
        p.setProcessChannelMode(QProcess::MergedChannels);
        p.start(QStringLiteral(SOFTTOKEN_ADMIN), QStringList{"--store", store} + args.split(' '));
        const bool ok = p.waitForFinished(30000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
        if (!ok)
            qWarning("softtoken %s: %s", qPrintable(args), p.readAll().constData());
        return ok;
    }

private slots:
    void emptyHostCountsNothing()
    {
        TestHost host; // a bin path of its own, without kdp/
        QVERIFY2(host.start(), qPrintable(host.errorString()));
        QCOMPARE(host.count(), 0);
        QVERIFY(!host.open(0));
        QCOMPARE(host.lastError(), 0u);
        for (const QString &l : host.log()) // every line of the library in one pattern
            QVERIFY2(QRegularExpression(QStringLiteral("^\\[(rtc:)?~?\\w+:\\d+\\]")).match(l).hasMatch(), qPrintable(l));
        const QString kdp = host.kdpPath() + "/";
        TW_VERIFY_LOG(host.core(), {"TWKey| start", ">load| kdpPath:" + kdp, ">loadKDPs| path:" + kdp, ">loadKDPs| end.",
                                    ">count| start", ">count| total Count:0", ">count| end.", "loadKDPs| fileList:*|0"});
        QVERIFY(!QDir(host.kdpPath()).exists());
    }

    void packedSoftTokenPulledAndPutBack()
    {
        QTemporaryDir store;
        QVERIFY(admin(store.path(), "init tok1 --serial ABCDEFGHIJKL --container c1:sm2"));
        qputenv("SOFTTOKEN_STORE", QFile::encodeName(store.path()));
        KdpFixture kdp;
        KdpConfig config; // the library named outside the package: small to pack
        config.argument = "../../lib/libsofttoken-skf.so";
        config.limitSerialNum = "1";
        config.limitSize = "6";
        QVERIFY(QDir(kdp.root()).mkpath("lib") && QFile::link(SOFTTOKEN_SKF, kdp.root() + "/lib/libsofttoken-skf.so"));
        QVERIFY(KdpFixture::writePackage(kdp.root() + "/src", config, QString()));
        QVERIFY(KdpFixture::pack(kdp.root() + "/src", kdp.kdpPath() + "/soft.kdp"));
        QVERIFY(TwDeviceGuard::set("another token"));
        TestHost host(kdp.root());
        QVERIFY2(host.start(), qPrintable(host.errorString()));

        QCOMPARE(host.count(), 1);
        QCOMPARE(TwDeviceGuard::current(), QByteArray("ABCDEF")); // the limited serial number
        QObject *key = host.open(0);
        QVERIFY(key);
        QCOMPARE(host.call<QString>(key, "serialNumber"), QStringLiteral("ABCDEF"));
        QCOMPARE(host.call<QString>(key, "serialNumberEx"), QStringLiteral("ABCDEFGHIJKL"));
        QCOMPARE(host.call<QString>(key, "getDriverPath"), kdp.kdpPath() + "/soft"); // unpacked beside the file
        QVERIFY(host.call<bool>(key, "verifyPin", QStringLiteral("12345678"), false));

        QVERIFY(admin(store.path(), "remove tok1"));
        QVERIFY(!host.call<bool>(key, "verifyPin", QStringLiteral("12345678"), false));
        QCOMPARE(host.lastError(), 0x0A000023u); // removed: the session closes itself
        host.clearLog();
        QVERIFY(host.call<QStringList>(key, "enumContainer").isEmpty());
        QCOMPARE(host.lastError(), 0x0A00002Du);
        TW_VERIFY_LOG(host.core(), {"enumContainer| end . app is null"});
        QVERIFY(!host.open(0));

        QVERIFY(admin(store.path(), "insert tok1"));
        QCOMPARE(host.open(0), key); // the same object, reconnected
        QCOMPARE(host.call<QStringList>(key, "enumContainer"), QStringList{"c1"});
        QVERIFY(host.call<bool>(key, "verifyPin", QStringLiteral("12345678"), false));
        Qt::HANDLE container = host.call<Qt::HANDLE>(key, "openContainer", QStringLiteral("c1"));
        QVERIFY(container);
        QCOMPARE(host.call<QByteArray>(key, "eccSignData", container, QByteArray(32, 'x')).size(), 128);
    }
};

TW_TEST_MAIN_ISOLATED(TestE2eSoftToken)
#include "tst_e2e_softtoken.moc"
