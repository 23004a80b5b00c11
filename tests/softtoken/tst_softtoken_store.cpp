// The software token's store: devices pulled out and put back, device
// events, the fault plan, the store shared between processes; the engine's
// C++ interface and the softtoken admin program.
#include "diskfull.h"
#include "tokenfixture.h"
#include "twdeviceguard.h"

#include <QtTest>

#include <future>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const QString OK = QStringLiteral("0"), REMOVED = rv(SAR_DEVICE_REMOVED), HANDLE_ERR = rv(SAR_INVALIDHANDLEERR);

// The code, then the name (or, on failure, the length asked for) and the event.
QString waitEvent(ULONG size = 256)
{
    QByteArray buf(int(size), '\0');
    ULONG event = 0;
    const ULONG r = SKF_WaitForDevEvent(buf.data(), &size, &event);
    return rv(r) + ' ' + (r ? QString::number(size) : QString::fromLatin1(buf.constData()) + ' ' + QString::number(event));
}

// Starts f in a child process (from the main thread: the token's lock must
// not be held at the fork); then, with the parent's work, true when it exited 0.
pid_t spawn(const std::function<bool()> &f)
{
    const pid_t pid = fork();
    if (pid == 0)
        _exit(f() ? 0 : 1);
    return pid;
}

bool reaped(pid_t pid)
{
    int status = 0;
    return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool inChild(const std::function<bool()> &f) { return reaped(spawn(f)); }

struct Run
{
    int code = -1;
    QByteArray out, err;
};

// The program, after the shell lines given (ulimit, trap).
Run admin(const QStringList &args, const QString &store = QString(), const QString &shell = QString())
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    if (!store.isEmpty())
        env.insert("SOFTTOKEN_STORE", store);
    p.setProcessEnvironment(env);
    if (shell.isEmpty())
        p.start(QStringLiteral(SOFTTOKEN_ADMIN), args);
    else
        p.start("sh", QStringList{"-c", shell + "; exec \"$0\" \"$@\"", SOFTTOKEN_ADMIN} + args);
    Run r;
    if (p.waitForFinished(60000) && p.exitStatus() == QProcess::NormalExit)
        r = {p.exitCode(), p.readAllStandardOutput(), p.readAllStandardError()};
    return r;
}

QJsonObject show(const QString &store, const QString &device)
{
    return QJsonDocument::fromJson(admin({"--store", store, "show", device}).out).object();
}

// The folder read-only for this process alone, in a mount namespace of its
// own; false where the system gives none.
bool readOnly(const QString &dir, bool on)
{
    static const bool own = TwDeviceGuard::ownMounts();
    const QByteArray d = QFile::encodeName(dir);
    return own && (on ? !mount(d, d, nullptr, MS_BIND, nullptr) && !mount(nullptr, d, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr)
                      : !umount2(d, MNT_DETACH));
}

QString tries(TokenSteps &s, int wrong)
{
    Out o;
    ULONG max, left;
    BOOL isDefault;
    for (int k = 0; k < wrong; ++k)
        o << SKF_VerifyPIN(s.app, USER_TYPE, const_cast<char *>("00000000"), &s.n);
    o << ' ' << SKF_VerifyPIN(s.app, USER_TYPE, const_cast<char *>(TokenFixture::UserPin), &s.n) << ' '
      << SKF_GetPINInfo(s.app, USER_TYPE, &max, &left, &isDefault);
    return o << QString::number(left);
}

QStringList temporaries(const QString &folder) { return QDir(folder).entryList({"*.tmp.*"}, QDir::Files | QDir::Hidden); }

} // namespace

class SoftTokenStoreTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TokenSteps> steps;

    QTemporaryDir m_refusals;

private slots:
    // Pulled out: every call on its handles says so, and each handle still gives itself back, once. The rest of
    // presence and the fault plan is what the session tables stand on.
    void removal_data()
    {
        newSteps(&steps);
        STEP("1", s.a = QByteArray(32, 'e'); return QString::number(s.fx.addDevice("tok", {"c:sm2"}) && (s.c = s.fx.ready("tok", "c", &s.dev, &s.app))
                                   && !SKF_DigestInit(s.dev, SGD_SM3, nullptr, nullptr, 0, &s.h) && !SKF_SetSymmKey(s.dev, bytes(s.a), SGD_SM4_ECB, &s.k) && s.fx.engine().removeDevice("tok")));
        STEP(REMOVED.repeated(8), ECCSIGNATUREBLOB g; DEVINFO i{}; BYTE r[6]; DEVHANDLE d;
             return Out() << rv(SKF_GenRandom(s.dev, r, 6)) << rv(SKF_GetDevInfo(s.dev, &i)) << rv(SKF_EnumFiles(s.app, nullptr, &s.n)) << rv(SKF_GetContainerType(s.c, &s.n))
                    << rv(SKF_ECCSignData(s.c, bytes(s.a), 32, &g)) << rv(SKF_Digest(s.h, bytes(s.a), 32, nullptr, &s.n)) << rv(SKF_Encrypt(s.k, bytes(s.a), 32, nullptr, &s.n))
                    << rv(SKF_ConnectDev(const_cast<char *>("tok"), &d)));
        STEP(REMOVED + HANDLE_ERR + REMOVED + HANDLE_ERR + HANDLE_ERR, // the old handles still give themselves back, once
             return Out() << rv(SKF_CloseHandle(s.h)) << rv(SKF_CloseHandle(s.h)) << rv(SKF_DisConnectDev(s.dev)) << rv(SKF_DisConnectDev(s.dev)) << rv(SKF_Encrypt(s.k, bytes(s.a), 32, nullptr, &s.n)));
    }
    void removal() { TOKEN_STEPS_RUN(steps); }

    // A full disk: wrong PINs still count, in memory until stored, and the
    // right one is refused while any is owed. Killed and failing writers.
    void brokenStore_data()
    {
        newSteps(&steps);
        const QString wrong = rv(SAR_PIN_INCORRECT), locked = rv(SAR_PIN_LOCKED);
        STEP("1", return QString::number(s.fx.addDevice("tok", {"c:sm2"}) && (s.dev = s.fx.connect("tok")) && (s.app = s.fx.openApp(s.dev))));
        STEP(wrong.repeated(5) + locked.repeated(15) + ' ' + locked + " 00", diskFull(true); return tries(s, 20));
        STEP(" " + locked + " 00 0", diskFull(false); SoftTokenEngine::PinState p; const QString shown = tries(s, 0);
             s.fx.engine().pinState("tok", false, &p); return shown + ' ' + QString::number(p.remaining));
        STEP("0" + wrong + ' ' + rv(SAR_WRITEFILEERR) + " 05", s.n = SKF_UnblockPIN(s.app, const_cast<char *>(TokenFixture::AdminPin), const_cast<char *>(TokenFixture::UserPin), &s.m);
             diskFull(true); return Out() << s.n << tries(s, 1));
        STEP(" 0 06", diskFull(false); return tries(s, 0));
        STEP("1 1 0 0", const Run init = admin({"--store", s.fx.store(), "init", "half"}, QString(), "trap '' XFSZ; ulimit -f 0");
             const Run killed = admin({"--store", s.fx.store(), "init", "killed"}, QString(), "ulimit -f 0");
             return Out() << QString::number(init.code) << ' ' << QString::number(!QFileInfo::exists(s.fx.store() + "/half") && killed.code == -1)
                          << ' ' << QString::number(admin({"--store", s.fx.store(), "init", "killed"}).code) << ' ' << QString::number(temporaries(s.fx.store() + "/killed").size()));
        STEP("1 0", const QString folder = s.fx.store() + "/tok";
             admin({"--store", s.fx.store(), "fault", "tok", "SKF_GenRandom", "0x1"}, QString(), "ulimit -f 0");
             const bool left = temporaries(folder).size() == 1;
             return Out() << QString::number(left && !admin({"--store", s.fx.store(), "clear-faults", "tok"}).code) << ' ' << QString::number(temporaries(folder).size()));
    }
    void brokenStore() { TOKEN_STEPS_RUN(steps); }

    // Login and signing need no write; what must be written says so.
    void readOnlyStore()
    {
        TokenFixture fx;
        DEVHANDLE dev;
        HAPPLICATION app;
        ECCSIGNATUREBLOB sig;
        BYTE digest[32] = {1};
        QVERIFY(fx.addDevice("ro", {"c:sm2"}));
        if (!readOnly(fx.store(), true))
            QSKIP("no mount namespace of its own here");
        const HCONTAINER c = fx.ready("ro", "c", &dev, &app);
        QVERIFY(c && SKF_ECCSignData(c, digest, 32, &sig) == SAR_OK);
        TokenSteps s{};
        s.app = app;
        QCOMPARE(tries(s, 1), rv(SAR_PIN_INCORRECT) + ' ' + rv(SAR_WRITEFILEERR) + " 05");
        QVERIFY(readOnly(fx.store(), false));
        QCOMPARE(tries(s, 0), " 0 06");
    }

    // A wait blocks no other call and ends when cancelled; events from then to the next wait are kept, also past a
    // short buffer. (Waking at an event is the driver tests'.)
    void deviceEvents()
    {
        TokenFixture fx;
        QVERIFY(fx.addDevice("tok"));
        auto cancelled = std::async(std::launch::async, [] { return waitEvent(); });
        QCOMPARE(cancelled.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
        QCOMPARE(SKF_DisConnectDev(fx.connect("tok")), ULONG(SAR_OK)); // other calls go on meanwhile
        while (cancelled.wait_for(std::chrono::milliseconds(10)) == std::future_status::timeout)
            QCOMPARE(SKF_CancelWaitForDevEvent(), ULONG(SAR_OK));
        QCOMPARE(cancelled.get(), rv(SAR_NOT_EVENTERR) + " 256");
        QVERIFY(fx.engine().removeDevice("tok"));
        QCOMPARE(waitEvent(), QString("0 tok %1").arg(SKF_DEV_EVENT_REMOVE));
        QVERIFY(fx.engine().insertDevice("tok") && fx.addDevice("a-long-device-name"));
        QCOMPARE(waitEvent(4), rv(SAR_BUFFER_TOO_SMALL) + " 19");
        QCOMPARE(waitEvent(), QString("0 a-long-device-name %1").arg(SKF_DEV_EVENT_INSERT));
        QCOMPARE(waitEvent(), QString("0 tok %1").arg(SKF_DEV_EVENT_INSERT));
        QVERIFY(fx.engine().deleteDevice("tok"));
        QCOMPARE(waitEvent(), QString("0 tok %1").arg(SKF_DEV_EVENT_REMOVE));
    }

    void processesShareTheStore()
    {
        TokenFixture fx;
        QVERIFY(fx.addDevice("tok", {"c:sm2"}));
        auto writer = [&fx](char tag) {
            DEVHANDLE dev = fx.connect("tok");
            HAPPLICATION app = dev ? fx.openApp(dev) : nullptr;
            bool ok = app;
            for (int i = 0; ok && i < 25; ++i)
                ok = SKF_CreateFile(app, QByteArray(1, tag).append(QByteArray::number(i)).data(), 8, 0xFF, 0xFF) == SAR_OK;
            return ok && SKF_DisConnectDev(dev) == SAR_OK;
        };
        const pid_t child = spawn([&] { return writer('c'); });
        QVERIFY(writer('p'));
        QVERIFY(reaped(child));
        QCOMPARE(fx.engine().files("tok").size(), 50); // no update lost
        DEVHANDLE dev;
        HAPPLICATION app;
        HCONTAINER c = fx.ready("tok", "c", &dev, &app);
        FILEATTRIBUTE attr;
        QCOMPARE(SKF_GetFileInfo(app, const_cast<char *>("c0"), &attr), ULONG(SAR_OK));
        QVERIFY(inChild([&] { return SKF_DeleteFile(fx.openApp(fx.connect("tok")), const_cast<char *>("c0")) == SAR_OK; }));
        QCOMPARE(SKF_GetFileInfo(app, const_cast<char *>("c0"), &attr), ULONG(SAR_FILE_NOT_EXIST)); // seen at the next call
        struct stat before, after;
        QVERIFY(::stat(QFile::encodeName(fx.store() + "/tok/device.json").constData(), &before) == 0);
        QByteArray e(32, 'e');
        ECCSIGNATUREBLOB sig;
        for (int i = 0; i < 10; ++i)
            QCOMPARE(SKF_ECCSignData(c, bytes(e), 32, &sig), ULONG(SAR_OK));
        QVERIFY(::stat(QFile::encodeName(fx.store() + "/tok/device.json").constData(), &after) == 0);
        QCOMPARE(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec); // signing never writes the store
        QCOMPARE(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
        SKF_DisConnectDev(dev);
    }

    void refusals()
    {
        TokenFixture fx;
        QVERIFY(fx.addDevice("one") && fx.addDevice("two"));
        const auto list = fx.engine().listDevices(); // serial numbers made unique
        QVERIFY(list.size() == 2 && list.at(0).name == "one" && list.at(0).present && list.at(0).serial.size() >= 20);
        QVERIFY(list.at(0).serial != list.at(1).serial);
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
        QVERIFY(!fx.engine().deviceExists("nosuch") && fx.engine().deviceExists("half"));
        QFile f(fx.store() + "/half/device.json"); // a damaged device file is refused cleanly
        QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write("{ not json") > 0);
        f.close();
        QCOMPARE(fx.engine().listDevices().size(), 3);
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
        QCOMPARE(admin({"--store", s, "insert", "tok"}).code, 0);
        dev = fx.connect("tok");
        QCOMPARE(admin({"--store", s, "fault", "tok", "SKF_GetDevInfo", "0x0A000023", "--times", "2"}).code, 0);
        QCOMPARE(admin({"fault", "tok", "SKF_EnumDev", "--size-lie", "-4", "--store", s}).code, 0);
        const QJsonArray faults = show(s, "tok")["faults"].toArray();
        QVERIFY(faults.size() == 2 && faults[0].toObject()["code"] == "0x0A000023" && faults[0].toObject()["remaining"] == 2);
        QVERIFY(faults[1].toObject()["sizeDelta"] == -4 && faults[1].toObject()["remaining"] == -1);
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
                               "fault tok SKF_Bogus 0x1|unknown function", "fault tok SKF_GenRandom 0x1 --times 0|from 1",
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

QTEST_GUILESS_MAIN(SoftTokenStoreTest)
#include "tst_softtoken_store.moc"
