// Pulling devices out, device events, the fault plan and the store shared
// between processes, through the exported C functions.
#include "tokenfixture.h"

#include <QtTest>

#include <atomic>
#include <thread>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

BYTE *bytes(QByteArray &b) { return reinterpret_cast<BYTE *>(b.data()); }

struct Event {
    ULONG rv = 0;
    QByteArray name;
    ULONG event = 0;
};

Event waitEvent(ULONG bufferSize = 256)
{
    Event e;
    QByteArray buf(int(bufferSize), '\0');
    ULONG len = bufferSize;
    e.rv = SKF_WaitForDevEvent(buf.data(), &len, &e.event);
    e.name = e.rv == SAR_OK ? QByteArray(buf.constData()) : QByteArray::number(len);
    return e;
}

// Runs a wait on its own thread; the result is there once done is set.
class EventWaiter
{
public:
    EventWaiter()
        : m_thread([this] {
            m_event = waitEvent();
            m_done = true;
        })
    {
    }
    ~EventWaiter()
    {
        if (m_thread.joinable())
            m_thread.join();
    }
    bool waitDone(int ms)
    {
        QElapsedTimer t;
        t.start();
        while (!m_done && t.elapsed() < ms)
            QThread::msleep(5);
        if (m_done)
            m_thread.join();
        return m_done;
    }
    const Event &event() const { return m_event; }

private:
    Event m_event;
    std::atomic<bool> m_done{false};
    std::thread m_thread;
};

qint64 mtimeNs(const QString &path)
{
    struct stat st;
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return -1;
    return qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
}

} // namespace

class SoftTokenPresenceTest : public QObject
{
    Q_OBJECT

private slots:
    void removedDeviceFailsEveryHandleUntilReconnect();
    void removeAndInsertBetweenCallsStillEndsTheConnection();
    void deletedDeviceCountsAsRemoved();
    void waitReportsArrivalsAndRemovals();
    void waitCanBeCancelled();
    void faultPlanFailsExactlyTheNamedCallNTimes();
    void faultPlanSetByAnotherProcess();
    void sizeLieReportsAnotherSize();
    void twoProcessesWritingLoseNoUpdate();
    void signingLeavesTheStoreAlone();
    void enumeratesSixtyFourDevicesQuickly();
};

void SoftTokenPresenceTest::removedDeviceFailsEveryHandleUntilReconnect()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("tok", {"c:sm2"}));
    DEVHANDLE dev = nullptr;
    HAPPLICATION app = nullptr;
    HCONTAINER c = fx.ready("tok", "c", &dev, &app);
    QVERIFY(c);
    HANDLE hash = nullptr, key = nullptr;
    QCOMPARE(SKF_DigestInit(dev, SGD_SM3, nullptr, nullptr, 0, &hash), ULONG(SAR_OK));
    QByteArray k(16, 'k');
    QCOMPARE(SKF_SetSymmKey(dev, bytes(k), SGD_SM4_ECB, &key), ULONG(SAR_OK));

    QVERIFY(fx.engine().removeDevice("tok"));
    QByteArray e(32, 'e');
    ECCSIGNATUREBLOB sig;
    DEVINFO info;
    ULONG len = 0, type = 0;
    BYTE rnd[6];
    QCOMPARE(SKF_GenRandom(dev, rnd, 6), ULONG(SAR_DEVICE_REMOVED));
    QCOMPARE(SKF_GetDevInfo(dev, &info), ULONG(SAR_DEVICE_REMOVED));
    QCOMPARE(SKF_EnumFiles(app, nullptr, &len), ULONG(SAR_DEVICE_REMOVED));
    QCOMPARE(SKF_GetContainerType(c, &type), ULONG(SAR_DEVICE_REMOVED));
    QCOMPARE(SKF_ECCSignData(c, bytes(e), 32, &sig), ULONG(SAR_DEVICE_REMOVED));
    QCOMPARE(SKF_Digest(hash, bytes(e), 32, nullptr, &len), ULONG(SAR_DEVICE_REMOVED));
    QCOMPARE(SKF_Encrypt(key, bytes(e), 32, nullptr, &len), ULONG(SAR_DEVICE_REMOVED));
    DEVHANDLE none = nullptr;
    QCOMPARE(SKF_ConnectDev(const_cast<char *>("tok"), &none), ULONG(SAR_DEVICE_REMOVED));

    QVERIFY(fx.engine().insertDevice("tok"));
    // Put back, the device is listed again, but the old connection is over.
    len = 64;
    char list[64];
    QCOMPARE(SKF_EnumDev(TRUE, list, &len), ULONG(SAR_OK));
    QCOMPARE(QByteArray(list, int(len)), QByteArray("tok\0\0", 5));
    QCOMPARE(SKF_GenRandom(dev, rnd, 6), ULONG(SAR_DEVICE_REMOVED));
    QCOMPARE(SKF_ECCSignData(c, bytes(e), 32, &sig), ULONG(SAR_DEVICE_REMOVED));

    DEVHANDLE dev2 = nullptr;
    HAPPLICATION app2 = nullptr;
    HCONTAINER c2 = fx.ready("tok", "c", &dev2, &app2);
    QVERIFY(c2);
    QCOMPARE(SKF_ECCSignData(c2, bytes(e), 32, &sig), ULONG(SAR_OK));

    // The old handles still give themselves back, once.
    QCOMPARE(SKF_CloseHandle(hash), ULONG(SAR_DEVICE_REMOVED));
    QCOMPARE(SKF_CloseHandle(hash), ULONG(SAR_INVALIDHANDLEERR));
    QCOMPARE(SKF_DisConnectDev(dev), ULONG(SAR_DEVICE_REMOVED));
    QCOMPARE(SKF_DisConnectDev(dev), ULONG(SAR_INVALIDHANDLEERR));
    QCOMPARE(SKF_Encrypt(key, bytes(e), 32, nullptr, &len), ULONG(SAR_INVALIDHANDLEERR));
    QCOMPARE(SKF_DisConnectDev(dev2), ULONG(SAR_OK));
}

void SoftTokenPresenceTest::removeAndInsertBetweenCallsStillEndsTheConnection()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("tok"));
    DEVHANDLE dev = fx.connect("tok");
    BYTE rnd[6];
    QCOMPARE(SKF_GenRandom(dev, rnd, 6), ULONG(SAR_OK));
    QVERIFY(fx.engine().removeDevice("tok"));
    QVERIFY(fx.engine().insertDevice("tok"));
    QCOMPARE(SKF_GenRandom(dev, rnd, 6), ULONG(SAR_DEVICE_REMOVED));
    SKF_DisConnectDev(dev);
}

void SoftTokenPresenceTest::deletedDeviceCountsAsRemoved()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("tok"));
    DEVHANDLE dev = fx.connect("tok");
    HAPPLICATION app = fx.openApp(dev);
    QVERIFY(fx.engine().deleteDevice("tok"));
    ULONG len = 0;
    QCOMPARE(SKF_EnumFiles(app, nullptr, &len), ULONG(SAR_DEVICE_REMOVED));
    QVERIFY(!fx.engine().deviceExists("tok"));
    QVERIFY(!QFileInfo::exists(fx.store() + "/tok"));
    QCOMPARE(SKF_DisConnectDev(dev), ULONG(SAR_DEVICE_REMOVED));
}

void SoftTokenPresenceTest::waitReportsArrivalsAndRemovals()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("tok"));
    {
        EventWaiter waiter;
        QThread::msleep(120); // the wait is under way, nothing happens
        QVERIFY(!waiter.waitDone(0));
        QVERIFY(fx.engine().removeDevice("tok"));
        QVERIFY(waiter.waitDone(3000));
        QCOMPARE(waiter.event().rv, ULONG(SAR_OK));
        QCOMPARE(waiter.event().name, QByteArray("tok"));
        QCOMPARE(waiter.event().event, ULONG(SKF_DEV_EVENT_REMOVE));
    }
    {
        EventWaiter waiter;
        QVERIFY(fx.engine().insertDevice("tok"));
        QVERIFY(waiter.waitDone(3000));
        QCOMPARE(waiter.event().name, QByteArray("tok"));
        QCOMPARE(waiter.event().event, ULONG(SKF_DEV_EVENT_INSERT));
    }
    // Events between two waits are kept; a short buffer keeps the event.
    QVERIFY(fx.addDevice("a-long-device-name"));
    Event e = waitEvent(4);
    QCOMPARE(e.rv, ULONG(SAR_BUFFER_TOO_SMALL));
    QCOMPARE(e.name, QByteArray("19"));
    e = waitEvent();
    QCOMPARE(e.rv, ULONG(SAR_OK));
    QCOMPARE(e.name, QByteArray("a-long-device-name"));
    QCOMPARE(e.event, ULONG(SKF_DEV_EVENT_INSERT));
    QVERIFY(fx.engine().deleteDevice("tok"));
    e = waitEvent();
    QCOMPARE(e.name, QByteArray("tok"));
    QCOMPARE(e.event, ULONG(SKF_DEV_EVENT_REMOVE));
}

void SoftTokenPresenceTest::waitCanBeCancelled()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("tok"));
    EventWaiter waiter;
    QThread::msleep(100);
    QVERIFY(!waiter.waitDone(0));
    // Other calls go on while a wait blocks.
    DEVHANDLE dev = fx.connect("tok");
    QVERIFY(dev);
    SKF_DisConnectDev(dev);
    QCOMPARE(SKF_CancelWaitForDevEvent(), ULONG(SAR_OK));
    QVERIFY(waiter.waitDone(1000));
    QCOMPARE(waiter.event().rv, ULONG(SAR_NOT_EVENTERR));
}

void SoftTokenPresenceTest::faultPlanFailsExactlyTheNamedCallNTimes()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("tok"));
    QVERIFY(fx.addDevice("other"));
    DEVHANDLE dev = fx.connect("tok");
    DEVHANDLE other = fx.connect("other");
    QVERIFY(fx.engine().setFault("tok", "SKF_GenRandom", SAR_GENRANDERR, 3));
    BYTE rnd[8];
    DEVINFO info;
    QList<ULONG> results;
    for (int i = 0; i < 5; ++i) {
        results << SKF_GenRandom(dev, rnd, 8);
        QCOMPARE(SKF_GetDevInfo(dev, &info), ULONG(SAR_OK));
        QCOMPARE(SKF_GenRandom(other, rnd, 8), ULONG(SAR_OK));
    }
    QCOMPARE(results, (QList<ULONG>{SAR_GENRANDERR, SAR_GENRANDERR, SAR_GENRANDERR, SAR_OK, SAR_OK}));
    QVERIFY(!QFileInfo::exists(fx.store() + "/tok/faults.json")); // used up

    QVERIFY(fx.engine().setFault("tok", "SKF_GetDevInfo", SAR_DEVICE_REMOVED));
    for (int i = 0; i < 4; ++i)
        QCOMPARE(SKF_GetDevInfo(dev, &info), ULONG(SAR_DEVICE_REMOVED));
    QCOMPARE(SKF_GenRandom(dev, rnd, 8), ULONG(SAR_OK));
    QVERIFY(fx.engine().clearFaults("tok"));
    QCOMPARE(SKF_GetDevInfo(dev, &info), ULONG(SAR_OK));

    // Calls made by name: the connect itself can be made to fail.
    QVERIFY(fx.engine().setFault("tok", "SKF_ConnectDev", SAR_FAIL, 1));
    DEVHANDLE h = nullptr;
    QCOMPARE(SKF_ConnectDev(const_cast<char *>("tok"), &h), ULONG(SAR_FAIL));
    QCOMPARE(SKF_ConnectDev(const_cast<char *>("tok"), &h), ULONG(SAR_OK));
    SKF_DisConnectDev(h);
    QVERIFY(!fx.engine().setFault("tok", "SKF_NoSuchCall", SAR_FAIL));
    QVERIFY(fx.engine().lastError().contains("SKF_NoSuchCall"));
    SKF_DisConnectDev(dev);
    SKF_DisConnectDev(other);
}

void SoftTokenPresenceTest::faultPlanSetByAnotherProcess()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("tok"));
    DEVHANDLE dev = fx.connect("tok");
    BYTE rnd[8];
    QCOMPARE(SKF_GenRandom(dev, rnd, 8), ULONG(SAR_OK));
    const pid_t pid = fork();
    if (pid == 0) {
        SoftTokenEngine engine(fx.store());
        _exit(engine.setFault("tok", "SKF_GenRandom", SAR_DEVICE_REMOVED, 2) ? 0 : 1);
    }
    int status = 0;
    QCOMPARE(waitpid(pid, &status, 0), pid);
    QVERIFY(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    QCOMPARE(SKF_GenRandom(dev, rnd, 8), ULONG(SAR_DEVICE_REMOVED));
    QCOMPARE(SKF_GenRandom(dev, rnd, 8), ULONG(SAR_DEVICE_REMOVED));
    QCOMPARE(SKF_GenRandom(dev, rnd, 8), ULONG(SAR_OK));
    SKF_DisConnectDev(dev);
}

void SoftTokenPresenceTest::sizeLieReportsAnotherSize()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("tok"));
    QVERIFY(fx.engine().setSizeLie("tok", "SKF_EnumDev", 5, 2));
    ULONG size = 0;
    QCOMPARE(SKF_EnumDev(TRUE, nullptr, &size), ULONG(SAR_OK));
    QCOMPARE(size, ULONG(5 + 5));
    QByteArray buf(64, '\x7f');
    size = ULONG(buf.size());
    QCOMPARE(SKF_EnumDev(TRUE, buf.data(), &size), ULONG(SAR_OK));
    QCOMPARE(size, ULONG(5 + 5));
    QCOMPARE(buf.left(6), QByteArray("tok\0\0\x7f", 6)); // what is filled is the truth
    QCOMPARE(SKF_EnumDev(TRUE, nullptr, &size), ULONG(SAR_OK));
    QCOMPARE(size, ULONG(5));

    DEVHANDLE dev = fx.connect("tok");
    HAPPLICATION app = fx.openApp(dev);
    QVERIFY(fx.engine().setSizeLie("tok", "SKF_EnumApplication", -3, 1));
    size = ULONG(buf.size());
    QCOMPARE(SKF_EnumApplication(dev, buf.data(), &size), ULONG(SAR_OK));
    QCOMPARE(size, ULONG(8 - 3));
    QVERIFY(app);
    SKF_DisConnectDev(dev);
}

void SoftTokenPresenceTest::twoProcessesWritingLoseNoUpdate()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("tok"));
    const int perProcess = 25;
    auto writer = [&](char tag) {
        DEVHANDLE dev = fx.connect("tok");
        HAPPLICATION app = dev ? fx.openApp(dev) : nullptr;
        if (!app)
            return false;
        for (int i = 0; i < perProcess; ++i) {
            QByteArray name = QByteArray(1, tag) + QByteArray::number(i);
            if (SKF_CreateFile(app, name.data(), 8, 0xFF, 0xFF) != SAR_OK)
                return false;
        }
        return SKF_DisConnectDev(dev) == SAR_OK;
    };
    const pid_t pid = fork();
    if (pid == 0)
        _exit(writer('c') ? 0 : 1);
    const bool parentOk = writer('p');
    int status = 0;
    QCOMPARE(waitpid(pid, &status, 0), pid);
    QVERIFY(parentOk);
    QVERIFY(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    QCOMPARE(fx.engine().files("tok").size(), 2 * perProcess);

    // And each sees the other's changes at its next call.
    DEVHANDLE dev = fx.connect("tok");
    HAPPLICATION app = fx.openApp(dev);
    FILEATTRIBUTE attr;
    QCOMPARE(SKF_GetFileInfo(app, const_cast<char *>("c0"), &attr), ULONG(SAR_OK));
    const pid_t deleter = fork();
    if (deleter == 0) {
        DEVHANDLE d = fx.connect("tok");
        HAPPLICATION a = fx.openApp(d);
        _exit(SKF_DeleteFile(a, const_cast<char *>("c0")) == SAR_OK ? 0 : 1);
    }
    QCOMPARE(waitpid(deleter, &status, 0), deleter);
    QVERIFY(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    QCOMPARE(SKF_GetFileInfo(app, const_cast<char *>("c0"), &attr), ULONG(SAR_FILE_NOT_EXIST));
    SKF_DisConnectDev(dev);
}

void SoftTokenPresenceTest::signingLeavesTheStoreAlone()
{
    TokenFixture fx;
    QVERIFY(fx.addDevice("tok", {"c:sm2"}));
    DEVHANDLE dev = nullptr;
    HAPPLICATION app = nullptr;
    HCONTAINER c = fx.ready("tok", "c", &dev, &app);
    QVERIFY(c);
    const QString file = fx.store() + "/tok/device.json";
    const qint64 before = mtimeNs(file);
    QByteArray e(32, 'e');
    ECCSIGNATUREBLOB sig;
    for (int i = 0; i < 10; ++i)
        QCOMPARE(SKF_ECCSignData(c, bytes(e), 32, &sig), ULONG(SAR_OK));
    QCOMPARE(mtimeNs(file), before);
    SKF_DisConnectDev(dev);
}

void SoftTokenPresenceTest::enumeratesSixtyFourDevicesQuickly()
{
    TokenFixture fx;
    // One device made, 63 copied: making each costs synced writes that the
    // enumeration doesn't care about.
    QVERIFY(fx.addDevice("dev00"));
    for (int i = 1; i < 64; ++i) {
        const QString dir = fx.store() + QStringLiteral("/dev%1").arg(i, 2, 10, QLatin1Char('0'));
        QVERIFY(QDir().mkdir(dir));
        for (const char *file : {"device.json", "present"})
            QVERIFY(QFile::copy(fx.store() + "/dev00/" + file, dir + "/" + file));
    }
    QByteArray buf(4096, '\0');
    qint64 best = -1;
    for (int i = 0; i < 10; ++i) {
        QElapsedTimer t;
        t.start();
        ULONG size = 0;
        QCOMPARE(SKF_EnumDev(TRUE, nullptr, &size), ULONG(SAR_OK));
        QCOMPARE(SKF_EnumDev(TRUE, buf.data(), &size), ULONG(SAR_OK));
        const qint64 ns = t.nsecsElapsed();
        best = best < 0 ? ns : qMin(best, ns);
        QCOMPARE(TokenFixture::names(buf.left(int(size))).size(), 64);
    }
    // Both calls of the size-then-fill pair together.
    QVERIFY2(best < 2 * 5000000, qPrintable(QStringLiteral("%1 ns").arg(best)));
}

QTEST_GUILESS_MAIN(SoftTokenPresenceTest)
#include "tst_softtoken_presence.moc"
