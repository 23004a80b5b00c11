// The loader against the real library, a library without the entry points,
// and no file at all; and what the library prints kept out of twkey's own
// output.
#include "componenthost.h"
#include "stdoutcapture.h"
#include "twcall.h"
#include "twcore.h"

#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <unistd.h>

class TstComponentHost : public QObject
{
    Q_OBJECT

private slots:
    void refusals()
    {
        TWCore core;
        for (const char *path : {"/nonexistent/libTWKey.so", MOCKSKF_PATH}) {
            ComponentHost host;
            QVERIFY(!host.load(QString::fromLatin1(path)) && !host.isLoaded() && !host.errorString().isEmpty());
            QVERIFY(!host.init(&core));
            QCOMPARE(host.start(&core), nullptr);
            int length = 0;
            QCOMPARE(host.getVersion(nullptr, &length), -2);
        }
        ComponentHost noEntry;
        noEntry.load(QStringLiteral(MOCKSKF_PATH));
        QVERIFY2(noEntry.errorString().contains("ComponentInit"), qPrintable(noEntry.errorString()));
        ComponentHost host;
        QVERIFY(host.load(QStringLiteral(TWKEY_LIB)));
        QCOMPARE(host.createComponent(), nullptr); // the library would fault before ComponentInit
        QVERIFY(host.errorString().contains("ComponentInit"));
        QVERIFY(!host.init(nullptr));
        QCOMPARE(host.manager(), nullptr);
    }

    void startVersionAndShutdown()
    {
        QTemporaryDir bin;
        TWCore core;
        core.setBinPath(bin.path());
        ComponentHost host;
        QVERIFY(host.load(QStringLiteral(TWKEY_LIB)));
        int length = 0;
        QCOMPARE(host.getVersion(nullptr, &length), 0);
        QCOMPARE(length, 9);
        char buffer[16];
        length = int(sizeof buffer);
        QCOMPARE(host.getVersion(buffer, &length), -1);
        QCOMPARE(host.getVersion(buffer, nullptr), -2); // refused here, a fault in the library
        QObject *manager = host.start(&core);
        QVERIFY(manager);
        QCOMPARE(host.start(&core), manager);
        QCOMPARE(host.createComponent(), manager);
        QCOMPARE(host.createComponent(QStringLiteral("TWKEY.Other.1"), QStringLiteral("0000")), nullptr);
        int count = -1;
        QVERIFY(twCall(manager, "count", count) && count == 0);
        QVERIFY(core.lines(TWCore::Level::Debug).join('\n').contains("kdpPath:" + bin.path() + "/kdp/"));
        core.clear();
        host.shutdown(true);
        QVERIFY(core.lines(TWCore::Level::Debug).join('\n').contains("~TWKey")); // deleted while the core was there
        QCOMPARE(host.manager(), nullptr);
        const int lines = core.lineCount();
        host.shutdown(true);
        QCOMPARE(core.lineCount(), lines);
        QVERIFY(host.init(&core));
        QCOMPARE(host.createComponent(), nullptr); // the library would hand out the deleted manager
    }

    void libraryLinesGoToTheSinkOwnOutputStays()
    {
        QTemporaryDir dir;
        const QByteArray path = QFile::encodeName(dir.filePath("stdout.txt"));
        std::fflush(stdout);
        const int original = ::dup(STDOUT_FILENO);
        const int file = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        QVERIFY(original >= 0 && file >= 0 && ::dup2(file, STDOUT_FILENO) >= 0);
        ::close(file);
        QStringList sunk;
        {
            StdoutCapture capture([&sunk](const QString &line) { sunk << line; });
            QVERIFY(capture.realStdout() != stdout);
            std::printf("[TWKeyObjectSkf::PrintError] Error:fail \n");
            std::fprintf(capture.realStdout(), "own output\n");
            std::printf("SERIAL0001\nno newline at the end");
            QVERIFY(::write(STDOUT_FILENO, "raw write\n", 10) == 10);
        }
        std::printf("after\n");
        std::fflush(stdout);
        ::dup2(original, STDOUT_FILENO);
        ::close(original);
        QFile f(QFile::decodeName(path));
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll(), QByteArray("own output\nafter\n"));
        sunk.sort(); // the unbuffered write may overtake the buffered lines; each arrives whole
        QCOMPARE(sunk, (QStringList{"SERIAL0001", "[TWKeyObjectSkf::PrintError] Error:fail ", "no newline at the end", "raw write"}));
    }
};

QTEST_GUILESS_MAIN(TstComponentHost)
#include "tst_componenthost.moc"
