// What the library prints must not land in twkey's own output.
#include "stdoutcapture.h"

#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <unistd.h>

class TstStdoutCapture : public QObject
{
    Q_OBJECT

private slots:
    void libraryLinesGoToTheSinkOwnOutputStays();
};

void TstStdoutCapture::libraryLinesGoToTheSinkOwnOutputStays()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QByteArray path = dir.filePath(QStringLiteral("stdout.txt")).toLocal8Bit();

    // Point this process's standard output at a file for the test.
    std::fflush(stdout);
    const int original = ::dup(STDOUT_FILENO);
    const int file = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    QVERIFY(original >= 0 && file >= 0);
    QVERIFY(::dup2(file, STDOUT_FILENO) >= 0);
    ::close(file);

    QStringList sunk;
    {
        StdoutCapture capture([&sunk](const QString &line) { sunk << line; });
        QVERIFY(capture.realStdout() != stdout);
        std::printf("[TWKeyObjectSkf::PrintError] Error:fail \n");
        std::fprintf(capture.realStdout(), "own output\n");
        std::printf("SERIAL0001\nno newline at the end");
        ::write(STDOUT_FILENO, "raw write\n", 10);
    }
    std::printf("after\n");
    std::fflush(stdout);
    ::dup2(original, STDOUT_FILENO);
    ::close(original);

    QFile f(QString::fromLocal8Bit(path));
    QVERIFY(f.open(QIODevice::ReadOnly));
    QCOMPARE(f.readAll(), QByteArray("own output\nafter\n"));
    // The unbuffered write may overtake the buffered lines; each arrives whole.
    QCOMPARE(sunk.size(), 4);
    QVERIFY(sunk.contains(QStringLiteral("[TWKeyObjectSkf::PrintError] Error:fail ")));
    QVERIFY(sunk.contains(QStringLiteral("SERIAL0001")));
    QVERIFY(sunk.contains(QStringLiteral("no newline at the end")));
    QVERIFY(sunk.contains(QStringLiteral("raw write")));
}

QTEST_GUILESS_MAIN(TstStdoutCapture)
#include "tst_stdoutcapture.moc"
