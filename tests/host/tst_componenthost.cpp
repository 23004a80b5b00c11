// The loader against a stand-in library: what it resolves, the order it
// keeps, and what it refuses.
#include "componenthost.h"
#include "twcall.h"
#include "twcore.h"

#include <QtTest>

#include <cstring>

class TstComponentHost : public QObject
{
    Q_OBJECT

private slots:
    void missingFileOrEntryPointIsReported();
    void createBeforeInitIsRefused();
    void startHandsOutOneManagerWiredToTheCore();
    void versionSizeQueryAndRefusedBufferWithoutLength();
    void shutdownDeletesTheManagerOnce();
};

void TstComponentHost::missingFileOrEntryPointIsReported()
{
    ComponentHost host;
    QVERIFY(!host.load(QStringLiteral("/nonexistent/libTWKey.so")));
    QVERIFY(!host.isLoaded());
    QVERIFY(!host.errorString().isEmpty());

    ComponentHost partial;
    QVERIFY(!partial.load(QStringLiteral(FAKECOMPONENT_NOVERSION_PATH)));
    QVERIFY(!partial.isLoaded());
    QVERIFY2(partial.errorString().contains(QLatin1String("TW_GetVersion")), qPrintable(partial.errorString()));
    TWCore core;
    QVERIFY(!partial.init(&core));
    QCOMPARE(partial.start(&core), nullptr);
}

void TstComponentHost::createBeforeInitIsRefused()
{
    ComponentHost host;
    QVERIFY(host.load(QStringLiteral(FAKECOMPONENT_PATH)));
    QCOMPARE(host.createComponent(), nullptr);
    QVERIFY(host.errorString().contains(QLatin1String("ComponentInit")));
    QVERIFY(!host.init(nullptr));
    QCOMPARE(host.manager(), nullptr);
}

void TstComponentHost::startHandsOutOneManagerWiredToTheCore()
{
    TWCore core;
    core.setBinPath(QStringLiteral("/srv/bin"));
    ComponentHost host;
    QVERIFY(host.load(QStringLiteral(FAKECOMPONENT_PATH)));
    QObject *manager = host.start(&core);
    QVERIFY(manager);
    QCOMPARE(host.start(&core), manager);
    QCOMPARE(host.createComponent(), manager);
    // Refused identifiers give nothing.
    QCOMPARE(host.createComponent(QStringLiteral("TWKEY.Other.1"), QStringLiteral("0000")), nullptr);

    int count = 0;
    QVERIFY(twCall(manager, "count", count));
    QCOMPARE(count, 2);
    QString path;
    QVERIFY(twCall(manager, "scannedPath", path));
    QCOMPARE(path, QStringLiteral("/srv/bin/kdp/"));
    QVERIFY(core.lines(TWCore::Level::Debug).contains(QStringLiteral("fake manager made, bin /srv/bin")));
    host.shutdown(true);
}

void TstComponentHost::versionSizeQueryAndRefusedBufferWithoutLength()
{
    ComponentHost unloaded;
    int length = 0;
    QCOMPARE(unloaded.getVersion(nullptr, &length), -2);

    ComponentHost host;
    QVERIFY(host.load(QStringLiteral(FAKECOMPONENT_PATH)));
    QCOMPARE(host.getVersion(nullptr, &length), 0);
    QCOMPARE(length, 9);
    char buffer[16];
    std::memset(buffer, 'x', sizeof buffer);
    length = int(sizeof buffer);
    QCOMPARE(host.getVersion(buffer, &length), -1);
    QCOMPARE(length, 9);
    QCOMPARE(QByteArray(buffer, 9), QByteArray(9, '\0'));
    QCOMPARE(host.getVersion(buffer, nullptr), -2);
}

void TstComponentHost::shutdownDeletesTheManagerOnce()
{
    TWCore core;
    ComponentHost host;
    QVERIFY(host.load(QStringLiteral(FAKECOMPONENT_PATH)));
    QVERIFY(host.start(&core));
    core.clear();
    host.shutdown(true);
    // Deleted while the core was still handed over, so its last line arrived.
    QCOMPARE(core.lines(TWCore::Level::Debug), QStringList{QStringLiteral("fake manager deleted")});
    QCOMPARE(host.manager(), nullptr);
    host.shutdown(true);
    QCOMPARE(core.lineCount(), 1);
    // The library would hand out the deleted manager again.
    QVERIFY(host.init(&core));
    QCOMPARE(host.createComponent(), nullptr);
}

QTEST_GUILESS_MAIN(TstComponentHost)
#include "tst_componenthost.moc"
