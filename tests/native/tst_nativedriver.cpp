// The native driver through a host by name over the software token's
// native face, and the two things a host can't see: the function table
// after unload, and callback lines from the library's own thread.
#include <QDir>
#include <QTest>

#include <thread>

#include "frame/rtc.h"
#include "isolatedtest.h"
#include "kdpfixture.h"
#include "logcheck.h"
#include "native/keydrivertwf.h"
#include "native/keyobjecttwf.h"
#include "package/keydriverpackage.h"
#include "session/keyobject.h"
#include "softtokenengine.h"
#include "testhost.h"

namespace {

QStringList g_debug;

void keepDebug(QtMsgType, const QMessageLogContext &, const QString &text) { g_debug << text; }

KdpConfig native()
{
    KdpConfig config;
    config.protocol = QStringLiteral("twf");
    config.argument = QStringLiteral("libTWKeyDriver.so");
    config.extra << qMakePair(QStringLiteral("modelid"), QStringLiteral("MODEL-T"));
    return config;
}

// A store of its own with tokens by name (serial "S-" and the name).
struct Store
{
    QTemporaryDir dir;
    SoftTokenEngine engine{dir.path()};
    explicit Store(const QStringList &tokens)
    {
        qputenv("SOFTTOKEN_STORE", QFile::encodeName(dir.path()));
        for (const QString &name : tokens) {
            SoftTokenEngine::DeviceOptions o;
            o.name = name;
            o.serial = QStringLiteral("S-") + name;
            o.containers << SoftTokenEngine::ContainerSetup{QStringLiteral("c1"), SoftTokenEngine::ContainerSetup::Sm2};
            if (!engine.createDevice(o))
                qWarning() << engine.lastError();
        }
    }
};

} // namespace

class TestNativeDriver : public QObject
{
    Q_OBJECT

private slots:
    // Missing the optional name loads, with a warning; missing a required one
    // doesn't, and the scan goes on; one token behind two packages counts once.
    void binding()
    {
        Store store({QStringLiteral("tok")});
        KdpFixture kdp;
        kdp.addPackage(QStringLiteral("a_optional"), native(), QStringLiteral(WITHOUT_OPTIONAL));
        kdp.addPackage(QStringLiteral("b_required"), native(), QStringLiteral(WITHOUT_REQUIRED));
        kdp.addPackage(QStringLiteral("c_full"), native(), QStringLiteral(SOFTTOKEN_NATIVE));
        TestHost host(kdp.root());
        qInstallMessageHandler(keepDebug);
        QVERIFY2(host.start(), qPrintable(host.errorString()));
        qInstallMessageHandler(nullptr);
        QCOMPARE(g_debug.filter(QStringLiteral("load dll function")),
                 (QStringList{QStringLiteral("Warning: load dll function [TWF_ECCExportSessionKey] failed"),
                              QStringLiteral("Error: load dll function [TWEPS_ReadESealData] failed")}));
        QCOMPARE(host.errorLog().filter(QStringLiteral("]end. init failed")).size(), 1);
        QCOMPARE(host.errorLog().filter(QStringLiteral("] kdp load fail")).size(), 1);
        QCOMPARE(host.count(), 1);
        QVERIFY(host.logHas(QRegularExpression(QStringLiteral("^\\[count:\\d+\\] devList count: 1 $"))));

        QObject *key = host.open(0);
        QVERIFY(key);
        QVERIFY(host.call<QString>(key, "getDriverPath").endsWith(QLatin1String("/a_optional")));
        QCOMPARE(host.call<int>(key, "getDriverType"), 3);
        QVERIFY(host.call<bool>(key, "verifyPin", QString("12345678"), false));
        Qt::HANDLE c = host.call<Qt::HANDLE>(key, "openContainer", QString("c1"));
        const QByteArray pub = host.call<QByteArray>(key, "exportPublicKey", c, false);
        Qt::HANDLE sessionKey = nullptr;
        TWPtr out{"Qt::HANDLE*", &sessionKey};
        QCOMPARE(host.call<QByteArray>(key, "eccExportSessionKey", c, quint64(SGD_SM4_ECB), pub, out), QByteArray());
        QCOMPARE(host.lastError(), 0x0A000003u);
    }

    // After unload two functions stay bound, all others are null.
    void unloadKeepsTwo()
    {
        Store store({QStringLiteral("tok")});
        KdpFixture kdp;
        const QString dir = kdp.addPackage(QStringLiteral("n"), native(), QStringLiteral(SOFTTOKEN_NATIVE));
        KeyDriverPackage package(dir);
        QVERIFY(package.open());
        TWCore core;
        ComponentInit(&core);
        auto owned = std::make_unique<KeyDriverTWF>(&package, dir + QStringLiteral("/libTWKeyDriver"));
        KeyDriverTWF &driver = *owned;
        QVERIFY(!driver.openKeyWithoutEnumDev(0));
        QVERIFY(driver.load());
        TW_VERIFY_LOG(core, {"load| end|1"});
        QCOMPARE(driver.enumDev(), QStringList{QStringLiteral("tok")});
        {
            // A session made apart, whose token won't connect: its open says so.
            QVERIFY(store.engine.setFault(QStringLiteral("tok"), QStringLiteral("TWF_ConnectDev"), 0x0A000023, 1));
            KeyObjectTWF refused(&package, QStringLiteral("tok"), &driver);
            QVERIFY(!refused.open() && !refused.isOpen());
        }
        auto *kept = new KeyObjectTWF(&package, QStringLiteral("tok"), &driver);
        QVERIFY(kept->open());
        driver.unload();
        // Its session stays, with no table to call through.
        QVERIFY(!kept->verifyPin(QStringLiteral("12345678"), false));
        QStringList set;
#define TW_SET_ROW(name, required)                                                                                     \
        if (driver.p##name)                                                                                                \
            set << QStringLiteral(#name);
        TWF_FUNCTION_ROWS(TW_SET_ROW)
        QCOMPARE(set, (QStringList{QStringLiteral("TWF_IsConnectDev"), QStringLiteral("TWF_GetSerialNumberByDevName")}));
        core.clear();
        owned.reset(); // and so once more
        TW_VERIFY_LOG(core, (QStringList{"~KeyDriverTWF| start", ">unload| end", ">~KeyDriverTWF| end"}));
        ComponentDestroy();
    }

    // Whatever thread the library logs from, its lines reach the core's debug
    // log, while the host's thread logs too.
    void logFromTheLibrarysThread()
    {
        Store store({QStringLiteral("tok")});
        KdpFixture kdp;
        kdp.addPackage(QStringLiteral("n"), native(), QStringLiteral(SOFTTOKEN_NATIVE));
        TestHost host(kdp.root());
        QVERIFY(host.start());
        // TWF_Init_SDK says one of these two from a thread of its own.
        QVERIFY(host.logHas(QRegularExpression(QStringLiteral("^TWF_Init_SDK model MODEL-T, store .*"))));
        QVERIFY(host.logHas(QRegularExpression(QStringLiteral("^TWF_Init_SDK 1 device\\(s\\) in the store$"))));

        host.clearLog();
        char text[] = "from a library thread";
        std::thread library([&text] {
            for (int i = 0; i < 500; ++i)
                TWF_LogCallBack(2, text);
        });
        for (int i = 0; i < 100; ++i)
            host.count();
        library.join();
        QCOMPARE(host.logCount(QRegularExpression(QStringLiteral("^from a library thread$"))), 500);
        QCOMPARE(host.logCount(QRegularExpression(QStringLiteral("^\\[count:\\d+\\] devList count: 1 $"))), 100);
        ComponentDestroy();
        TWF_LogCallBack(0, text);
        QCOMPARE(host.logCount(QRegularExpression(QStringLiteral("^from a library thread$"))), 500);
    }

    // A pulled token's session stays open and fails call by call; back under
    // another device name, it is found by its serial number.
    void reinsertedUnderAnotherName()
    {
        Store store({QStringLiteral("tokA")});
        KdpFixture kdp;
        kdp.addPackage(QStringLiteral("n"), native(), QStringLiteral(SOFTTOKEN_NATIVE));
        TestHost host(kdp.root());
        QVERIFY(host.start());
        QCOMPARE(host.count(), 1);
        QCOMPARE(host.logCount(QRegularExpression(QStringLiteral("^\\[findDevbySN:\\d+\\] (start|end)$"))), 2); // not found
        QObject *key = host.open(0);
        QVERIFY(key && host.call<bool>(key, "verifyPin", QString("12345678"), false));

        QVERIFY(store.engine.removeDevice(QStringLiteral("tokA")));
        for (const char *method : {"enumFiles", "enumContainer"}) {
            QCOMPARE(host.call<QStringList>(key, method), QStringList());
            QCOMPARE(host.lastError(), 0x0A000023u);
        }
        QVERIFY(qobject_cast<KeyObject *>(key)->isOpen());
        QCOMPARE(host.count(), 0);

        QVERIFY(QDir(store.dir.path()).rename(QStringLiteral("tokA"), QStringLiteral("tokB")));
        QVERIFY(store.engine.insertDevice(QStringLiteral("tokB")));
        QCOMPARE(host.count(), 1);
        QCOMPARE(host.open(0), key);
        QCOMPARE(qobject_cast<KeyObject *>(key)->devName(), QStringLiteral("tokA"));
        QVERIFY(host.call<bool>(key, "verifyPin", QString("12345678"), false));
    }

    // Both faces of one store: each token once, index 0 to the first package.
    void bothFacesOverOneStore()
    {
        Store store({QStringLiteral("t1"), QStringLiteral("t2")});
        KdpFixture kdp;
        KdpConfig skf;
        skf.argument = QStringLiteral("libsofttoken-skf.so");
        kdp.addPackage(QStringLiteral("softtoken"), skf, QStringLiteral(SOFTTOKEN_SKF));
        kdp.addPackage(QStringLiteral("softtoken-native"), native(), QStringLiteral(SOFTTOKEN_NATIVE));
        TestHost host(kdp.root());
        QVERIFY(host.start());
        QCOMPARE(host.count(), 2);
        QObject *key = host.open(0);
        QVERIFY(key);
        QCOMPARE(host.call<int>(key, "getDriverType"), 1);
    }
};

TW_TEST_MAIN_ISOLATED(TestNativeDriver)
#include "tst_nativedriver.moc"
