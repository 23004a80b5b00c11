// The library end to end over the software token, through a host that
// calls only by name: counting and folding tokens across packages, the
// index mapping, the device-state file, and a token pulled and put back.
#include "isolatedtest.h"
#include "kdpfixture.h"
#include "mockcontrol.h"
#include "testhost.h"
#include "twdeviceguard.h"

#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#ifdef TWTEST_HAVE_SOFTTOKEN_ENGINE
#include "softtokenengine.h"
#endif

namespace {

const char *const kSoftLib = "libsofttoken-skf.so";
// A second file of the same library: the loader takes it for another one.
const char *const kSoftLibCopy = "libsofttoken-skf-second.so";

KdpConfig softConfig(const char *argument = kSoftLib)
{
    KdpConfig c;
    c.name = QStringLiteral("softtoken");
    c.argument = QString::fromLatin1(argument);
    c.ap = KdpFixture::encodeAdminPin(QStringLiteral("88888888"));
    return c;
}

} // namespace

class TestE2eSoftToken : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void openBeforeCountIsNull();
    void twoPackagesOverOneStoreCountEachTokenOnce();
    void threeTokensAcrossTwoDrivers();
    void deviceStateFileHoldsTheLimitedSerial();
    void removeThenInsertKeepsTheSession();

private:
    bool createToken(const QString &name, const QString &serial);
    // `softtoken <args>` on the store; false (and a failed test) when it fails.
    bool admin(const QStringList &args);
    QString addSoftPackage(const QString &dir, const KdpConfig &config,
                           KdpFixture::Link link = KdpFixture::Link::Symlink);

    TwDeviceGuard m_guard;
    QTemporaryDir m_store;
    KdpFixture m_kdp;
};

void TestE2eSoftToken::initTestCase()
{
    QVERIFY2(QFileInfo(QStringLiteral(SOFTTOKEN_SKF)).isFile(), "the software token library is not built");
    QVERIFY2(QFileInfo(QStringLiteral(SOFTTOKEN_ADMIN)).isExecutable(), "the softtoken program is not built");
#ifndef TWTEST_HAVE_SOFTTOKEN_ENGINE
    QFAIL("built without the software token engine");
#endif
    QVERIFY(m_store.isValid() && m_kdp.isValid());
    // The token library finds its store here, in this process and in the admin program.
    qputenv("SOFTTOKEN_STORE", QFile::encodeName(m_store.path()));
}

bool TestE2eSoftToken::createToken(const QString &name, const QString &serial)
{
#ifdef TWTEST_HAVE_SOFTTOKEN_ENGINE
    SoftTokenEngine engine(m_store.path());
    SoftTokenEngine::DeviceOptions opt;
    opt.name = name;
    opt.serial = serial;
    opt.containers << SoftTokenEngine::ContainerSetup{QStringLiteral("c1"), SoftTokenEngine::ContainerSetup::Sm2};
    if (engine.createDevice(opt))
        return true;
    QTest::qFail(qPrintable(engine.lastError()), __FILE__, __LINE__);
#else
    Q_UNUSED(name)
    Q_UNUSED(serial)
    QTest::qFail("built without the software token engine", __FILE__, __LINE__);
#endif
    return false;
}

bool TestE2eSoftToken::admin(const QStringList &args)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(QStringLiteral(SOFTTOKEN_ADMIN), args);
    const bool ok = p.waitForFinished(30000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
    if (!ok)
        QTest::qFail(qPrintable(QStringLiteral("softtoken %1: %2")
                                    .arg(args.join(QLatin1Char(' ')), QString::fromLocal8Bit(p.readAll()))),
                     __FILE__, __LINE__);
    return ok;
}

QString TestE2eSoftToken::addSoftPackage(const QString &dir, const KdpConfig &config, KdpFixture::Link link)
{
    return m_kdp.addPackage(dir, config, QStringLiteral(SOFTTOKEN_SKF), link);
}

void TestE2eSoftToken::openBeforeCountIsNull()
{
    QVERIFY(createToken(QStringLiteral("tok1"), QStringLiteral("ST-0001")));
    QVERIFY(!addSoftPackage(QStringLiteral("a_soft"), softConfig()).isEmpty());
    TestHost host(m_kdp.root());
    QVERIFY2(host.start(), qPrintable(host.errorString()));

    // No mapping yet: the index reaches no driver, present token or not.
    QVERIFY(!host.open(0));
    QVERIFY(!host.openEx(0, true));
    QCOMPARE(host.count(), 1);
    QVERIFY(host.open(0));
}

void TestE2eSoftToken::twoPackagesOverOneStoreCountEachTokenOnce()
{
    QVERIFY(createToken(QStringLiteral("tok1"), QStringLiteral("ST-FOLD-0001")));
    QVERIFY(createToken(QStringLiteral("tok2"), QStringLiteral("ST-FOLD-0002")));
    const QString first = addSoftPackage(QStringLiteral("a_soft"), softConfig());
    const QString second = addSoftPackage(QStringLiteral("b_soft"), softConfig(kSoftLibCopy), KdpFixture::Link::Copy);
    QVERIFY(!first.isEmpty() && !second.isEmpty());
    TestHost host(m_kdp.root());
    QVERIFY2(host.start(), qPrintable(host.errorString()));

    QCOMPARE(host.count(), 2);
    // The second package met a serial number already counted and dropped out.
    QCOMPARE(host.logCount(QRegularExpression(QStringLiteral("^\\[count:\\d+\\] end\\. keySN exist$"))), 1);
    QCOMPARE(host.logCount(QRegularExpression(QStringLiteral("^\\[count:\\d+\\] total Count:2$"))), 1);

    QStringList serials;
    for (int i = 0; i < 2; ++i) {
        QObject *key = host.open(i);
        QVERIFY(key);
        QCOMPARE(host.call<QString>(key, "getDriverPath"), first);
        serials << host.call<QString>(key, "serialNumber");
    }
    QCOMPARE(serials, QStringList({QStringLiteral("ST-FOLD-0001"), QStringLiteral("ST-FOLD-0002")}));
    QVERIFY(!host.open(2));
}

void TestE2eSoftToken::threeTokensAcrossTwoDrivers()
{
    QVERIFY(createToken(QStringLiteral("tok1"), QStringLiteral("ST-A-0001")));
    const QString soft = addSoftPackage(QStringLiteral("a_soft"), softConfig());
    const QString mockDir = m_kdp.addPackage(QStringLiteral("b_mock"), KdpConfig(), QStringLiteral(MOCKSKF_PATH));
    QVERIFY(!soft.isEmpty() && !mockDir.isEmpty());
    MockControl mock;
    QVERIFY2(mock.isLoaded(), qPrintable(mock.errorString()));
    mock.reset();
    for (const char *dev : {"m1", "m2"}) {
        mock.add_device(dev, dev == QByteArray("m1") ? "MOCK-B-0001" : "MOCK-B-0002");
        mock.add_app(dev, "APP");
        mock.add_container(dev, "APP", "C1", CONTAINER_TYPE_ECC);
    }
    TestHost host(m_kdp.root());
    QVERIFY2(host.start(), qPrintable(host.errorString()));

    QCOMPARE(host.count(), 3);
    QObject *third = host.open(2);
    QVERIFY(third);
    QCOMPARE(host.call<QString>(third, "getDriverPath"), mockDir);
    QCOMPARE(host.call<QString>(third, "serialNumber"), QStringLiteral("MOCK-B-0002"));
    // The second driver was asked for its local index 1, not 0.
    QVERIFY(mock.calls().contains(QStringLiteral("SKF_GenRandom dev=m2 len=6")));
    QVERIFY(!mock.calls().contains(QStringLiteral("SKF_GenRandom dev=m1 len=6")));

    QObject *first = host.open(0);
    QVERIFY(first);
    QCOMPARE(host.call<QString>(first, "getDriverPath"), soft);
    QCOMPARE(host.call<QString>(first, "serialNumber"), QStringLiteral("ST-A-0001"));
}

void TestE2eSoftToken::deviceStateFileHoldsTheLimitedSerial()
{
    QVERIFY(createToken(QStringLiteral("tok1"), QStringLiteral("ABCDEFGHIJKL")));
    KdpConfig config = softConfig();
    config.limitSerialNum = QStringLiteral("1");
    config.limitSize = QStringLiteral("6");
    QVERIFY(!addSoftPackage(QStringLiteral("a_soft"), config).isEmpty());
    QVERIFY(TwDeviceGuard::set("another token"));
    TestHost host(m_kdp.root());
    QVERIFY2(host.start(), qPrintable(host.errorString()));

    QCOMPARE(host.count(), 1);
    QCOMPARE(TwDeviceGuard::current(), QByteArray("ABCDEF"));
    QObject *key = host.open(0);
    QVERIFY(key);
    QCOMPARE(host.call<QString>(key, "serialNumber"), QStringLiteral("ABCDEF"));
    QCOMPARE(host.call<QString>(key, "serialNumberEx"), QStringLiteral("ABCDEFGHIJKL"));
}

void TestE2eSoftToken::removeThenInsertKeepsTheSession()
{
    QVERIFY(createToken(QStringLiteral("tok1"), QStringLiteral("ST-PULL-0001")));
    QVERIFY(!addSoftPackage(QStringLiteral("a_soft"), softConfig()).isEmpty());
    TestHost host(m_kdp.root());
    QVERIFY2(host.start(), qPrintable(host.errorString()));
    QCOMPARE(host.count(), 1);
    QObject *key = host.open(0);
    QVERIFY(key);
    QVERIFY(host.call<bool>(key, "verifyPin", QStringLiteral("12345678"), false));

    QVERIFY(admin({QStringLiteral("remove"), QStringLiteral("tok1")}));
    QVERIFY(!host.call<bool>(key, "verifyPin", QStringLiteral("12345678"), false));
    QCOMPARE(host.lastError(), uint(SAR_DEVICE_REMOVED));
    // The session closed itself: now it fails before reaching the token.
    host.clearLog();
    QVERIFY(host.call<QStringList>(key, "enumContainer").isEmpty());
    QCOMPARE(host.lastError(), uint(SAR_USER_NOT_LOGGED_IN));
    QVERIFY(host.logHas(QRegularExpression(QStringLiteral("^\\[enumContainer:\\d+\\] end \\. app is null$"))));
    QVERIFY(!host.open(0));

    QVERIFY(admin({QStringLiteral("insert"), QStringLiteral("tok1")}));
    QCOMPARE(host.open(0), key);
    QCOMPARE(host.call<QStringList>(key, "enumContainer"), QStringList({QStringLiteral("c1")}));
    QVERIFY(host.call<bool>(key, "verifyPin", QStringLiteral("12345678"), false));
    Qt::HANDLE container = host.call<Qt::HANDLE>(key, "openContainer", QStringLiteral("c1"));
    QVERIFY(container);
    QCOMPARE(host.call<QByteArray>(key, "eccSignData", container, QByteArray(32, 'x')).size(), 128);
}

TW_TEST_MAIN_ISOLATED(TestE2eSoftToken)
#include "tst_e2e_softtoken.moc"
