// PrintError's line on standard output: the words of a code with a row,
// and nothing at all for a code without one.
#include "session/keyobjectskf.h"
#include "skf/skfapi.h"

#include <QTemporaryFile>
#include <QTest>

#include <cstdio>
#include <unistd.h>

namespace {

// What PrintError(code, msg) writes to fd 1, caught in a temporary file.
QByteArray printed(KeyObjectSKF &key, unsigned int code, char *msg = nullptr)
{
    QTemporaryFile file;
    if (!file.open())
        return QByteArray("<no temporary file>");
    std::fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    dup2(file.handle(), STDOUT_FILENO);
    key.PrintError(code, msg);
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    file.seek(0);
    return file.readAll();
}

} // namespace

class TestE2ePrintError : public QObject
{
    Q_OBJECT

private slots:
    void linesForCodesWithWords_data();
    void linesForCodesWithWords();
    void silentForCodesWithoutWords();
};

void TestE2ePrintError::linesForCodesWithWords_data()
{
    QTest::addColumn<uint>("code");
    QTest::addColumn<QString>("line");
    QTest::newRow("removed") << uint(SAR_DEVICE_REMOVED)
                             << QStringLiteral("[TWKeyObjectSkf::PrintError] Error:设备已移除 \n");
    QTest::newRow("fail") << uint(SAR_FAIL) << QStringLiteral("[TWKeyObjectSkf::PrintError] Error:fail \n");
    QTest::newRow("new pin length") << uint(TW_ERR_NEW_PIN_LEN)
                                    << QStringLiteral("[TWKeyObjectSkf::PrintError] Error:新密码位数过多或过少 \n");
}

void TestE2ePrintError::linesForCodesWithWords()
{
    QFETCH(uint, code);
    QFETCH(QString, line);
    KeyObjectSKF key(nullptr, QStringLiteral("dev"), nullptr);
    QCOMPARE(QString::fromUtf8(printed(key, code)), line);
}

void TestE2ePrintError::silentForCodesWithoutWords()
{
    KeyObjectSKF key(nullptr, QStringLiteral("dev"), nullptr);
    for (uint code : {0u, uint(TW_ERR_OLD_PIN_LEN), 0x0B000039u, 0x0A000033u})
        QCOMPARE(printed(key, code), QByteArray());
    // The text still reaches a caller's buffer.
    char msg[128] = {};
    QCOMPARE(printed(key, SAR_FAIL, msg).isEmpty(), false);
    QCOMPARE(QByteArray(msg), QByteArray("fail"));
}

QTEST_GUILESS_MAIN(TestE2ePrintError)
#include "tst_e2e_printerror.moc"
