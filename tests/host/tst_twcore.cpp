// The core object as the library reaches it: by name, from any thread. The
// library's own calls into it are covered by the frame tests.
#include "twcall.h"
#include "twcore.h"

#include <QTemporaryDir>
#include <QtTest>

#include <thread>
#include <vector>

class TstTWCore : public QObject
{
    Q_OBJECT

private slots:
    void logLinesKeepTheirLevelAndOrder();
    void lastErrorRoundTripsAsA32BitValue();
    void discardKeepsNothingButCounts();
    void logFileGetsEveryLineUntilStopped();
    void concurrentLoggingLosesNothing();
};

void TstTWCore::logLinesKeepTheirLevelAndOrder()
{
    TWCore core;
    QVERIFY(twCallVoid(&core, "logDebug", QStringLiteral("[load:10] start")));
    QVERIFY(twCallVoid(&core, "logError", QStringLiteral("[load:12] kdp load fail")));
    QVERIFY(twCallVoid(&core, "logDebug", QStringLiteral("[load:14] end")));

    const QList<TWCore::LogLine> all = core.lines();
    QCOMPARE(all.size(), 3);
    QCOMPARE(all.at(0).level, TWCore::Level::Debug);
    QCOMPARE(all.at(1).level, TWCore::Level::Error);
    QCOMPARE(all.at(1).text, QStringLiteral("[load:12] kdp load fail"));
    QCOMPARE(core.lines(TWCore::Level::Debug),
             QStringList({QStringLiteral("[load:10] start"), QStringLiteral("[load:14] end")}));
    QCOMPARE(core.lines(TWCore::Level::Error), QStringList{QStringLiteral("[load:12] kdp load fail")});
    QCOMPARE(core.lineCount(), 3);

    core.clear();
    QVERIFY(core.lines().isEmpty());
    QCOMPARE(core.lineCount(), 0);
}

void TstTWCore::lastErrorRoundTripsAsA32BitValue()
{
    TWCore core;
    uint read = 7;
    QVERIFY(twCall(&core, "getLastError", read));
    QCOMPARE(read, 0u);

    // The library writes through a pointer to a 32-bit copy of its code.
    uint code = 0xC000003Au;
    QVERIFY(twCallVoid(&core, "setLastError", code));
    QVERIFY(twCall(&core, "getLastError", read));
    QCOMPARE(read, 0xC000003Au);
    QCOMPARE(core.lastError(), 0xC000003Au);

    // clear() is for the log only.
    core.clear();
    QCOMPARE(core.lastError(), 0xC000003Au);
}

void TstTWCore::discardKeepsNothingButCounts()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("core.log"));
    TWCore core;
    QVERIFY(core.setLogFile(path));
    core.setDiscard(true);
    for (int i = 0; i < 100; ++i)
        core.logDebug(QStringLiteral("line %1").arg(i));
    core.logError(QStringLiteral("failure"));
    QVERIFY(core.lines().isEmpty());
    QCOMPARE(core.lineCount(), 101);
    QCOMPARE(QFileInfo(path).size(), 0);

    core.setDiscard(false);
    core.logError(QStringLiteral("kept"));
    QCOMPARE(core.lines(TWCore::Level::Error), QStringList{QStringLiteral("kept")});
}

void TstTWCore::logFileGetsEveryLineUntilStopped()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("core.log"));
    {
        QFile old(path);
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write("earlier run\n");
    }
    TWCore core;
    QVERIFY(core.setLogFile(path));
    core.logDebug(QStringLiteral("[open:5] start"));
    core.logError(QStringLiteral("[open:9] SKF_ConnectDev failed,ret = 1 "));
    QVERIFY(core.setLogFile(QString()));
    core.logDebug(QStringLiteral("not in the file"));

    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = file.readAll().split('\n');
    QCOMPARE(lines.size(), 4); // three lines and the empty tail
    QCOMPARE(lines.at(0), QByteArray("earlier run"));
    QVERIFY(lines.at(1).endsWith(" D [open:5] start"));
    QVERIFY(lines.at(2).endsWith(" E [open:9] SKF_ConnectDev failed,ret = 1 "));
    QVERIFY(!core.setLogFile(dir.filePath(QStringLiteral("missing/dir/core.log"))));
}

void TstTWCore::concurrentLoggingLosesNothing()
{
    TWCore core;
    constexpr int threads = 4;
    constexpr int perThread = 2000;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&core, t] {
            for (int i = 0; i < perThread; ++i) {
                QString text = QStringLiteral("t%1 %2").arg(t).arg(i);
                twCallVoid(&core, i % 2 ? "logError" : "logDebug", text);
                uint code = uint(i);
                twCallVoid(&core, "setLastError", code);
            }
        });
    }
    for (std::thread &w : workers)
        w.join();
    QCOMPARE(core.lineCount(), threads * perThread);
    QCOMPARE(core.lines().size(), threads * perThread);
    QCOMPARE(core.lines(TWCore::Level::Error).size(), threads * perThread / 2);
    // Each thread's lines stay in its own order.
    int next[threads] = {};
    for (const TWCore::LogLine &line : core.lines()) {
        const QStringList parts = line.text.split(QLatin1Char(' '));
        const int t = parts.at(0).mid(1).toInt();
        QCOMPARE(parts.at(1).toInt(), next[t]++);
    }
}

QTEST_GUILESS_MAIN(TstTWCore)
#include "tst_twcore.moc"
