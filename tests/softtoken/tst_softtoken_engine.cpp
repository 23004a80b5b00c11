// The store engine's C++ interface and the softtoken admin program.
#include "tokenfixture.h"

#include <QtTest>

namespace {

struct Run {
    int code = -1;
    QByteArray out;
    QByteArray err;
};

Run admin(const QStringList &args, const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment())
{
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(QStringLiteral(SOFTTOKEN_ADMIN), args);
    Run r;
    if (!p.waitForFinished(60000))
        return r;
    r.code = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    return r;
}

QJsonObject showJson(const QString &store, const QString &device)
{
    const Run r = admin({"--store", store, "show", device});
    return r.code == 0 ? QJsonDocument::fromJson(r.out).object() : QJsonObject();
}

} // namespace

class SoftTokenEngineTest : public QObject
{
    Q_OBJECT

private slots:
    void createsDevicesWithDefaults();
    void refusesBadDeviceOptions();
    void storeLocationFollowsTheEnvironment();
    void damagedDeviceFileIsRefusedCleanly();
    void adminInitListAndShow();
    void adminPresenceFaultsAndDelete();
    void adminRejectsBadInput();
};

void SoftTokenEngineTest::createsDevicesWithDefaults()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("one", {"sig:sm2", "r:rsa:1024", "blank"}));
    QVERIFY(fx.addDevice("two"));
    const QList<SoftTokenEngine::DeviceSummary> list = fx.engine().listDevices();
    QCOMPARE(list.size(), 2);
    QCOMPARE(list.at(0).name, QString("one"));
    QVERIFY(list.at(0).present);
    QVERIFY(list.at(0).serial.size() >= 20);
    QVERIFY(list.at(0).serial != list.at(1).serial);

    SoftTokenEngine::PinState admin, user;
    QVERIFY(fx.engine().pinState("one", true, &admin));
    QVERIFY(fx.engine().pinState("one", false, &user));
    QCOMPARE(admin.maxRetries, 10);
    QCOMPARE(user.maxRetries, 6);
    QCOMPARE(user.remaining, 6);
    QVERIFY(user.isDefault);
    QCOMPARE(fx.engine().applications("one"), QStringList{"TW_APP"});

    const QList<SoftTokenEngine::ContainerInfo> cs = fx.engine().containers("one");
    QCOMPARE(cs.size(), 3);
    QCOMPARE(cs.at(0).type, int(CONTAINER_TYPE_ECC));
    QVERIFY(cs.at(0).hasSignKey && cs.at(0).hasEncKey && !cs.at(0).hasSignCert);
    QCOMPARE(cs.at(1).type, int(CONTAINER_TYPE_RSA));
    QCOMPARE(cs.at(2).type, int(CONTAINER_TYPE_EMPTY));
    QVERIFY(!cs.at(2).hasSignKey);

    // The default PINs work through the token (kept hashed: see the SKF test).
    DEVHANDLE dev = fx.connect("one");
    HAPPLICATION app = fx.openApp(dev);
    QVERIFY(fx.login(app));
    ULONG retry = 0;
    QCOMPARE(SKF_VerifyPIN(app, ADMIN_TYPE, const_cast<char *>(TokenFixture::AdminPin), &retry), ULONG(SAR_OK));
    SKF_DisConnectDev(dev);
}

void SoftTokenEngineTest::refusesBadDeviceOptions()
{
    TokenFixture fx;
    SoftTokenEngine::DeviceOptions o;
    o.name = "../escape";
    QVERIFY(!fx.engine().createDevice(o));
    QVERIFY(fx.engine().lastError().contains("invalid device name"));
    o.name = "ok";
    o.userPin = "123";
    QVERIFY(!fx.engine().createDevice(o));
    QVERIFY(fx.engine().lastError().contains("PIN"));
    o.userPin = "12345678";
    o.serial = "SAME-SERIAL";
    QVERIFY(fx.engine().createDevice(o));
    o.name = "ok2";
    QVERIFY(!fx.engine().createDevice(o));
    QVERIFY(fx.engine().lastError().contains("already used"));
    o.name = "ok";
    o.serial.clear();
    QVERIFY(!fx.engine().createDevice(o));
    QVERIFY(fx.engine().lastError().contains("already exists"));
    // A folder left without its device file by an interrupted create is reused.
    QVERIFY(QDir().mkdir(fx.store() + "/half"));
    o.name = "half";
    QVERIFY2(fx.engine().createDevice(o), qPrintable(fx.engine().lastError()));
    QVERIFY(fx.engine().isPresent("half"));
    SoftTokenEngine::ContainerSetup setup;
    QString error;
    QVERIFY(!SoftTokenEngine::ContainerSetup::parse("c:rsa:512", &setup, &error));
    QVERIFY(!SoftTokenEngine::ContainerSetup::parse("c:dsa", &setup, &error));
    QVERIFY(!SoftTokenEngine::ContainerSetup::parse(":sm2", &setup, &error));
    QVERIFY(SoftTokenEngine::ContainerSetup::parse("c:rsa:2048", &setup, &error));
    QCOMPARE(setup.rsaBits, 2048);
    QVERIFY(!fx.engine().removeDevice("nosuch"));
    SoftTokenEngine::PinState st;
    QVERIFY(!fx.engine().pinState("nosuch", false, &st));
}

void SoftTokenEngineTest::storeLocationFollowsTheEnvironment()
{
    const QByteArray store = qgetenv("SOFTTOKEN_STORE"), xdg = qgetenv("XDG_DATA_HOME"), home = qgetenv("HOME");
    const bool hadStore = qEnvironmentVariableIsSet("SOFTTOKEN_STORE"), hadXdg = qEnvironmentVariableIsSet("XDG_DATA_HOME");
    qputenv("SOFTTOKEN_STORE", "/some/store");
    QCOMPARE(SoftTokenEngine::defaultStoreDir(), QString("/some/store"));
    qunsetenv("SOFTTOKEN_STORE");
    qputenv("XDG_DATA_HOME", "/xdg");
    QCOMPARE(SoftTokenEngine::defaultStoreDir(), QString("/xdg/twkey/softtoken"));
    qunsetenv("XDG_DATA_HOME");
    QCOMPARE(SoftTokenEngine::defaultStoreDir(), QDir::homePath() + "/.local/share/twkey/softtoken");
    hadStore ? qputenv("SOFTTOKEN_STORE", store) : qunsetenv("SOFTTOKEN_STORE");
    hadXdg ? qputenv("XDG_DATA_HOME", xdg) : qunsetenv("XDG_DATA_HOME");
    QCOMPARE(qgetenv("HOME"), home);

    // The admin program takes the same variable when no --store is given.
    QTemporaryDir dir;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("SOFTTOKEN_STORE", dir.path());
    QCOMPARE(admin({"init", "viaenv"}, env).code, 0);
    QVERIFY(QFileInfo::exists(dir.path() + "/viaenv/device.json"));
}

void SoftTokenEngineTest::damagedDeviceFileIsRefusedCleanly()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("good"));
    QVERIFY(fx.addDevice("bad"));
    QFile f(fx.store() + "/bad/device.json");
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write("{ not json");
    f.close();
    QCOMPARE(fx.engine().listDevices().size(), 1);
    DEVHANDLE dev = nullptr;
    QCOMPARE(SKF_ConnectDev(const_cast<char *>("bad"), &dev), ULONG(SAR_READFILEERR));
    QVERIFY(fx.engine().showJson("bad").isEmpty());
    QVERIFY(fx.engine().lastError().contains("JSON"));
}

void SoftTokenEngineTest::adminInitListAndShow()
{
    QTemporaryDir dir;
    const QString s = dir.path();
    Run r = admin({"--store", s, "init", "tok", "--serial", "SN-0001", "--label", "Lab", "--manufacturer", "M",
                   "--issuer", "I", "--admin-pin", "adminpin", "--user-pin", "userpin1", "--admin-retries", "4",
                   "--user-retries", "3", "--app", "APP2", "--container", "a:sm2", "--container", "b:rsa:1024",
                   "--container", "c"});
    QVERIFY2(r.code == 0, r.err.constData());
    r = admin({"--store", s, "list"});
    QCOMPARE(r.code, 0);
    QCOMPARE(r.out, QByteArray("tok\tSN-0001\tpresent\n"));

    const QJsonObject show = showJson(s, "tok");
    QCOMPARE(show.value("info").toObject().value("serial").toString(), QString("SN-0001"));
    QCOMPARE(show.value("info").toObject().value("label").toString(), QString("Lab"));
    const QJsonObject app = show.value("apps").toArray().at(0).toObject();
    QCOMPARE(app.value("name").toString(), QString("APP2"));
    QCOMPARE(app.value("adminPin").toObject().value("maxRetries").toInt(), 4);
    QCOMPARE(app.value("userPin").toObject().value("remaining").toInt(), 3);
    const QJsonArray cs = app.value("containers").toArray();
    QCOMPARE(cs.size(), 3);
    QCOMPARE(cs.at(0).toObject().value("type").toString(), QString("sm2"));
    QCOMPARE(cs.at(1).toObject().value("type").toString(), QString("rsa"));
    QCOMPARE(cs.at(2).toObject().value("type").toString(), QString("empty"));
    QCOMPARE(cs.at(0).toObject().value("signCert").toBool(), false);

    // The token takes the PINs given.
    TokenFixture fx;
    fx.useStore(s);
    DEVHANDLE dev = nullptr;
    HAPPLICATION h = nullptr;
    QCOMPARE(SKF_ConnectDev(const_cast<char *>("tok"), &dev), ULONG(SAR_OK));
    QCOMPARE(SKF_OpenApplication(dev, const_cast<char *>("APP2"), &h), ULONG(SAR_OK));
    ULONG retry = 0;
    QCOMPARE(SKF_VerifyPIN(h, USER_TYPE, const_cast<char *>("userpin1"), &retry), ULONG(SAR_OK));
    SKF_DisConnectDev(dev);
}

void SoftTokenEngineTest::adminPresenceFaultsAndDelete()
{
    QTemporaryDir dir;
    const QString s = dir.path();
    QCOMPARE(admin({"--store", s, "init", "tok"}).code, 0);
    QCOMPARE(admin({"--store", s, "remove", "tok"}).code, 0);
    QCOMPARE(admin({"--store", s, "list"}).out.trimmed().split('\t').value(2), QByteArray("removed"));
    QCOMPARE(showJson(s, "tok").value("present").toBool(), false);
    QCOMPARE(admin({"--store", s, "insert", "tok"}).code, 0);
    QCOMPARE(showJson(s, "tok").value("present").toBool(), true);

    QCOMPARE(admin({"--store", s, "fault", "tok", "SKF_GenRandom", "0x0A000023", "--times", "2"}).code, 0);
    QCOMPARE(admin({"fault", "tok", "SKF_EnumDev", "--size-lie", "-4", "--store", s}).code, 0);
    QJsonArray faults = showJson(s, "tok").value("faults").toArray();
    QCOMPARE(faults.size(), 2);
    QCOMPARE(faults.at(0).toObject().value("code").toString(), QString("0x0A000023"));
    QCOMPARE(faults.at(0).toObject().value("remaining").toInt(), 2);
    QCOMPARE(faults.at(1).toObject().value("sizeDelta").toInt(), -4);
    QCOMPARE(faults.at(1).toObject().value("remaining").toInt(), -1);

    // The plan set by the program reaches the library in this process.
    TokenFixture fx;
    fx.useStore(s);
    DEVHANDLE dev = nullptr;
    QCOMPARE(SKF_ConnectDev(const_cast<char *>("tok"), &dev), ULONG(SAR_OK));
    BYTE rnd[4];
    QCOMPARE(SKF_GenRandom(dev, rnd, 4), ULONG(SAR_DEVICE_REMOVED));
    QCOMPARE(admin({"--store", s, "clear-faults", "tok"}).code, 0);
    QCOMPARE(SKF_GenRandom(dev, rnd, 4), ULONG(SAR_OK));
    QVERIFY(showJson(s, "tok").value("faults").toArray().isEmpty());

    QCOMPARE(admin({"--store", s, "remove", "tok"}).code, 0);
    QCOMPARE(SKF_GenRandom(dev, rnd, 4), ULONG(SAR_DEVICE_REMOVED));
    QCOMPARE(admin({"--store", s, "delete", "tok"}).code, 0);
    QVERIFY(admin({"--store", s, "list"}).out.isEmpty());
    const Run r = admin({"--store", s, "show", "tok"});
    QVERIFY(r.code != 0);
    QVERIFY(r.err.contains("no device tok"));
    SKF_DisConnectDev(dev);
}

void SoftTokenEngineTest::adminRejectsBadInput()
{
    QTemporaryDir dir;
    const QString s = dir.path();
    QCOMPARE(admin({"--store", s, "init", "tok"}).code, 0);
    const QList<QPair<QStringList, QByteArray>> cases{
        {{}, "no command"},
        {{"frobnicate"}, "unknown command"},
        {{"init"}, "one device name"},
        {{"init", "tok"}, "already exists"},
        {{"init", "x", "--container", "c:ec"}, "bad container"},
        {{"init", "x", "--user-pin", "12"}, "6 to 16"},
        {{"init", "x", "--admin-retries", "many"}, "needs a number"},
        {{"init", "x", "--colour", "red"}, "unknown option"},
        {{"init", "x", "--serial"}, "needs a value"},
        {{"fault", "tok", "SKF_GenRandom", "zz"}, "bad code"},
        {{"fault", "tok", "SKF_Bogus", "0x1"}, "unknown function"},
        {{"fault", "tok", "SKF_GenRandom", "0x1", "--times", "0"}, "positive"},
        {{"fault", "nosuch", "SKF_GenRandom", "0x1"}, "no device"},
        {{"remove", "nosuch"}, "no device"},
        {{"show"}, "one device name"},
    };
    for (const auto &c : cases) {
        const Run r = admin(QStringList{"--store", s} + c.first);
        QVERIFY2(r.code != 0, qPrintable(c.first.join(' ')));
        QVERIFY2(r.err.contains(c.second), r.err.constData());
    }
    QCOMPARE(admin({"--store", s, "list"}).out.count('\n'), 1);
}

QTEST_GUILESS_MAIN(SoftTokenEngineTest)
#include "tst_softtoken_engine.moc"
