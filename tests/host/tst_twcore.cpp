// The core object as the library reaches it: by name, from any thread.
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
    void logLevelsOrderLastErrorAndFile()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("core.log");
        QFile old(path);
        QVERIFY(old.open(QIODevice::WriteOnly) && old.write("earlier run\n") > 0);
        old.close();
        TWCore core;
        QVERIFY(core.setLogFile(path));
        QVERIFY(twCallVoid(&core, "logDebug", QString("[load:10] start")));
        QVERIFY(twCallVoid(&core, "logError", QString("[load:12] kdp load fail")));
        QVERIFY(core.setLogFile(QString()));
        QVERIFY(twCallVoid(&core, "logDebug", QString("[load:14] end")));
        QCOMPARE(core.lines().size(), 3);
        QCOMPARE(core.lines().at(1).level, TWCore::Level::Error);
        QCOMPARE(core.lines(TWCore::Level::Debug), (QStringList{"[load:10] start", "[load:14] end"}));
        QCOMPARE(core.lines(TWCore::Level::Error), QStringList{"[load:12] kdp load fail"});
        QFile file(path); // appended, with the level, until stopped
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY(QRegularExpression("^earlier run\n.+ D \\[load:10\\] start\n.+ E \\[load:12\\] kdp load fail\n$")
                    .match(QString::fromUtf8(file.readAll())).hasMatch());
        QVERIFY(!core.setLogFile(dir.filePath("missing/dir/core.log")));

        uint read = 7, code = 0xC000003Au;
        QVERIFY(twCall(&core, "getLastError", read) && read == 0);
        QVERIFY(twCallVoid(&core, "setLastError", code)); // through a pointer to a 32-bit copy
        QVERIFY(twCall(&core, "getLastError", read) && read == code);
        core.clear(); // the log only
        QVERIFY(core.lines().isEmpty() && core.lineCount() == 0 && core.lastError() == code);

        core.setDiscard(true); // keeps nothing, counts all
        QVERIFY(core.setLogFile(path));
        for (int i = 0; i < 100; ++i)
            core.logDebug(QString::number(i));
        core.logError(QStringLiteral("failure"));
        QVERIFY(core.lines().isEmpty() && core.lineCount() == 101);
        QCOMPARE(QFileInfo(path).size(), file.size());
        core.setDiscard(false);
        core.logError(QStringLiteral("kept"));
        QCOMPARE(core.lines(TWCore::Level::Error), QStringList{"kept"});
    }

    void concurrentLoggingLosesNothing()
    {
        TWCore core;
        constexpr int threads = 4, perThread = 2000;
        std::vector<std::thread> workers;
        for (int t = 0; t < threads; ++t)
            workers.emplace_back([&core, t] {
                for (int i = 0; i < perThread; ++i) {
                    twCallVoid(&core, i % 2 ? "logError" : "logDebug", QString("t%1 %2").arg(t).arg(i));
                    twCallVoid(&core, "setLastError", uint(i));
                }
            });
        for (std::thread &w : workers)
            w.join();
        QCOMPARE(core.lineCount(), threads * perThread);
        QCOMPARE(core.lines(TWCore::Level::Error).size(), threads * perThread / 2);
        int next[threads] = {}; // each thread's lines in its own order
        for (const TWCore::LogLine &line : core.lines())
            QCOMPARE(line.text.section(' ', 1).toInt(), next[line.text.mid(1, 1).toInt()]++);
    }
};

QTEST_GUILESS_MAIN(TstTWCore)
#include "tst_twcore.moc"
