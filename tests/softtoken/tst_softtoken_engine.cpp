// The store engine's C++ interface and the softtoken admin program.
#include "tokenfixture.h"

#include <QtTest>

namespace {

struct Run
{
    int code = -1;
    QByteArray out, err;
};

Run admin(const QStringList &args, const QString &store = QString())
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    if (!store.isEmpty())
        env.insert("SOFTTOKEN_STORE", store);
    p.setProcessEnvironment(env);
    p.start(QStringLiteral(SOFTTOKEN_ADMIN), args);
    Run r;
    if (p.waitForFinished(60000) && p.exitStatus() == QProcess::NormalExit)
        r = {p.exitCode(), p.readAllStandardOutput(), p.readAllStandardError()};
    return r;
}

QJsonObject show(const QString &store, const QString &device)
{
    return QJsonDocument::fromJson(admin({"--store", store, "show", device}).out).object();
}

} // namespace

class SoftTokenEngineTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_refusals;

private slots:
    void createsDevicesWithDefaults()
    {
        TokenFixture fx;
        QVERIFY(fx.addDevice("one", {"sig:sm2", "r:rsa:1024", "blank"}) && fx.addDevice("two"));
        const auto list = fx.engine().listDevices();
        QVERIFY(list.size() == 2 && list.at(0).name == "one" && list.at(0).present);
        QVERIFY(list.at(0).serial.size() >= 20 && list.at(0).serial != list.at(1).serial);
        SoftTokenEngine::PinState admin, user;
        QVERIFY(fx.engine().pinState("one", true, &admin) && fx.engine().pinState("one", false, &user));
        QVERIFY(admin.maxRetries == 10 && user.maxRetries == 6 && user.remaining == 6 && user.isDefault);
        QCOMPARE(fx.engine().applications("one"), QStringList{"TW_APP"});
        const auto cs = fx.engine().containers("one");
        QVERIFY(cs.size() == 3 && cs.at(0).type == CONTAINER_TYPE_ECC && cs.at(1).type == CONTAINER_TYPE_RSA && cs.at(2).type == CONTAINER_TYPE_EMPTY);
        QVERIFY(cs.at(0).hasSignKey && cs.at(0).hasEncKey && !cs.at(0).hasSignCert && !cs.at(2).hasSignKey);
        DEVHANDLE dev = fx.connect("one");
        HAPPLICATION app = fx.openApp(dev);
        ULONG retry = 0;
        QVERIFY(fx.login(app)); // the default PINs work
        QCOMPARE(SKF_VerifyPIN(app, ADMIN_TYPE, const_cast<char *>(TokenFixture::AdminPin), &retry), ULONG(SAR_OK));
        SKF_DisConnectDev(dev);
    }

    void refusals()
    {
        TokenFixture fx;
        SoftTokenEngine::DeviceOptions o;
        // name, user PIN, serial: the error, or "" for made.
        const QList<QStringList> rows{{"../escape", "12345678", "", "invalid device name"}, {"ok", "123", "", "PIN"},
                                      {"ok", "12345678", "SAME-SERIAL", ""}, {"ok2", "12345678", "SAME-SERIAL", "already used"},
                                      {"ok", "12345678", "", "already exists"}};
        for (const QStringList &r : rows) {
            o.name = r.at(0), o.userPin = r.at(1), o.serial = r.at(2);
            QVERIFY2(fx.engine().createDevice(o) == r.at(3).isEmpty() && fx.engine().lastError().contains(r.at(3)), qPrintable(r.join(' ')));
        }
        QVERIFY(QDir().mkdir(fx.store() + "/half")); // left without its device file by an interrupted create: reused
        o.name = "half";
        QVERIFY2(fx.engine().createDevice(o) && fx.engine().isPresent("half"), qPrintable(fx.engine().lastError()));
        SoftTokenEngine::ContainerSetup setup;
        QString error;
        for (const char *bad : {"c:rsa:512", "c:dsa", ":sm2"})
            QVERIFY2(!SoftTokenEngine::ContainerSetup::parse(bad, &setup, &error), bad);
        QVERIFY(SoftTokenEngine::ContainerSetup::parse("c:rsa:2048", &setup, &error) && setup.rsaBits == 2048);
        SoftTokenEngine::PinState st;
        QVERIFY(!fx.engine().removeDevice("nosuch") && !fx.engine().pinState("nosuch", false, &st));
        QFile f(fx.store() + "/half/device.json"); // a damaged device file is refused cleanly
        QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write("{ not json") > 0);
        f.close();
        QCOMPARE(fx.engine().listDevices().size(), 1);
        DEVHANDLE dev = nullptr;
        QCOMPARE(SKF_ConnectDev(const_cast<char *>("half"), &dev), ULONG(SAR_READFILEERR));
        QVERIFY(fx.engine().showJson("half").isEmpty() && fx.engine().lastError().contains("JSON"));
    }

    void storeLocationFollowsTheEnvironment()
    {
        const QByteArray store = qgetenv("SOFTTOKEN_STORE"), xdg = qgetenv("XDG_DATA_HOME");
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
        QTemporaryDir dir; // the program takes the same variable without --store
        QCOMPARE(admin({"init", "viaenv"}, dir.path()).code, 0);
        QVERIFY(QFileInfo::exists(dir.path() + "/viaenv/device.json"));
    }

    void adminProgram()
    {
        QTemporaryDir dir;
        const QString s = dir.path();
        Run r = admin({"--store", s, "init", "tok", "--serial", "SN-0001", "--label", "Lab", "--manufacturer", "M", "--issuer", "I",
                       "--admin-pin", "adminpin", "--user-pin", "userpin1", "--admin-retries", "4", "--user-retries", "3", "--app", "APP2",
                       "--container", "a:sm2", "--container", "b:rsa:1024", "--container", "c"});
        QVERIFY2(r.code == 0, r.err.constData());
        QCOMPARE(admin({"--store", s, "list"}).out, QByteArray("tok\tSN-0001\tpresent\n"));
        QJsonObject j = show(s, "tok");
        const QJsonObject app = j["apps"].toArray().at(0).toObject();
        const QJsonArray cs = app["containers"].toArray();
        QVERIFY(j["info"].toObject()["serial"] == "SN-0001" && j["info"].toObject()["label"] == "Lab" && app["name"] == "APP2");
        QVERIFY(app["adminPin"].toObject()["maxRetries"] == 4 && app["userPin"].toObject()["remaining"] == 3);
        QVERIFY(cs.size() == 3 && cs[0].toObject()["type"] == "sm2" && cs[1].toObject()["type"] == "rsa" && cs[2].toObject()["type"] == "empty");
        QCOMPARE(cs[0].toObject()["signCert"].toBool(), false);
        TokenFixture fx; // the library in this process sees what the program does
        fx.useStore(s);
        DEVHANDLE dev = fx.connect("tok");
        HAPPLICATION h = fx.openApp(dev, "APP2");
        QVERIFY(fx.login(h, "userpin1"));
        BYTE rnd[4];
        QCOMPARE(admin({"--store", s, "remove", "tok"}).code, 0);
        QCOMPARE(admin({"--store", s, "list"}).out, QByteArray("tok\tSN-0001\tremoved\n"));
        QCOMPARE(show(s, "tok")["present"].toBool(), false);
        QCOMPARE(admin({"--store", s, "insert", "tok"}).code, 0);
        QCOMPARE(show(s, "tok")["present"].toBool(), true);
        dev = fx.connect("tok");
        QCOMPARE(admin({"--store", s, "fault", "tok", "SKF_GenRandom", "0x0A000023", "--times", "2"}).code, 0);
        QCOMPARE(admin({"fault", "tok", "SKF_EnumDev", "--size-lie", "-4", "--store", s}).code, 0);
        const QJsonArray faults = show(s, "tok")["faults"].toArray();
        QVERIFY(faults.size() == 2 && faults[0].toObject()["code"] == "0x0A000023" && faults[0].toObject()["remaining"] == 2);
        QVERIFY(faults[1].toObject()["sizeDelta"] == -4 && faults[1].toObject()["remaining"] == -1);
        QCOMPARE(SKF_GenRandom(dev, rnd, 4), ULONG(SAR_DEVICE_REMOVED));
        QCOMPARE(admin({"--store", s, "clear-faults", "tok"}).code, 0);
        QCOMPARE(SKF_GenRandom(dev, rnd, 4), ULONG(SAR_OK));
        QVERIFY(show(s, "tok")["faults"].toArray().isEmpty());
        QCOMPARE(admin({"--store", s, "delete", "tok"}).code, 0);
        QCOMPARE(SKF_GenRandom(dev, rnd, 4), ULONG(SAR_DEVICE_REMOVED));
        QVERIFY(admin({"--store", s, "list"}).out.isEmpty());
        SKF_DisConnectDev(dev);
    }

    void adminRefusals_data()
    {
        QTest::addColumn<QString>("args");
        QTest::addColumn<QString>("words");
        const QStringList rows{"|no command", "frobnicate|unknown command", "init|one device name", "init tok|already exists",
                               "init x --container c:ec|bad container", "init x --user-pin 12|6 to 16", "init x --admin-retries many|needs a number",
                               "init x --colour red|unknown option", "init x --serial|needs a value", "fault tok SKF_GenRandom zz|bad code",
                               "fault tok SKF_Bogus 0x1|unknown function", "fault tok SKF_GenRandom 0x1 --times 0|positive",
                               "fault nosuch SKF_GenRandom 0x1|no device", "remove nosuch|no device", "show|one device name", "show tok2|no device tok2"};
        for (const QString &r : rows)
            QTest::newRow(qPrintable(r)) << r.section('|', 0, 0) << r.section('|', 1);
        admin({"--store", m_refusals.path(), "init", "tok"});
    }
    void adminRefusals()
    {
        QFETCH(QString, args);
        const Run r = admin(QStringList{"--store", m_refusals.path()} + args.split(' ', Qt::SkipEmptyParts));
        QFETCH(QString, words);
        QVERIFY2(r.code != 0 && r.err.contains(words.toUtf8()), r.err.constData());
        QCOMPARE(QDir(m_refusals.path()).entryList(QDir::Dirs | QDir::NoDotAndDotDot), QStringList{"tok"}); // nothing made
    }
};

QTEST_GUILESS_MAIN(SoftTokenEngineTest)
#include "tst_softtoken_engine.moc"
