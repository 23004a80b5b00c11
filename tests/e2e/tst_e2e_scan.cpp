// A host that loads the library and calls `count` by name: with nothing to
// scan the count is 0, nothing opens, and the log shows the scan in the
// system's line pattern "[function:line]message"; a packed package is
// unpacked beside itself and serves its tokens.
#include "isolatedtest.h"
#include "kdpfixture.h"
#include "mockcontrol.h"
#include "testhost.h"
#include "twdeviceguard.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTest>

namespace {

QRegularExpression line(const QString &function, const QString &message)
{
    return QRegularExpression(QStringLiteral("^\\[%1:\\d+\\]%2$").arg(function, message));
}

// Index of the first line at or after `from` that matches, or -1.
int find(const QStringList &log, const QRegularExpression &pattern, int from = 0)
{
    for (int i = from; i < log.size(); ++i)
        if (pattern.match(log.at(i)).hasMatch())
            return i;
    return -1;
}

} // namespace

class TestE2eScan : public QObject
{
    Q_OBJECT

private slots:
    void emptyPackageFolderCountsNothing();
    void missingPackageFolderCountsNothing();
    void packedPackageServesItsTokens();

private:
    void countIsZero(TestHost &host);
};

void TestE2eScan::countIsZero(TestHost &host)
{
    QVERIFY2(host.start(), qPrintable(host.errorString()));
    QCOMPARE(host.count(), 0);
    QVERIFY(!host.open(0));
    QCOMPARE(host.lastError(), 0u);

    const QStringList log = host.log();
    // Every line of the library follows one pattern.
    static const QRegularExpression pattern(QStringLiteral("^\\[(rtc:)?~?\\w+:\\d+\\]"));
    for (const QString &l : log)
        QVERIFY2(pattern.match(l).hasMatch(), qPrintable(l));

    const QString kdp = QRegularExpression::escape(host.kdpPath() + QStringLiteral("/"));
    const int kdpPath = find(log, line(QStringLiteral("load"), QStringLiteral(" kdpPath:") + kdp));
    const int scan = find(log, line(QStringLiteral("loadKDPs"), QStringLiteral(" path:") + kdp), kdpPath);
    const int scanEnd = find(log, line(QStringLiteral("loadKDPs"), QStringLiteral(" end\\.")), scan);
    const int countStart = find(log, line(QStringLiteral("count"), QStringLiteral(" start")), scanEnd);
    const int total = find(log, line(QStringLiteral("count"), QStringLiteral(" total Count:0")), countStart);
    const int countEnd = find(log, line(QStringLiteral("count"), QStringLiteral(" end\\.")), total);
    QVERIFY2(kdpPath >= 0 && scan > kdpPath && scanEnd > scan && countStart > scanEnd && total > countStart &&
                 countEnd > total,
             qPrintable(log.join(QLatin1Char('\n'))));
    QVERIFY(host.logHas(line(QStringLiteral("load"), QStringLiteral(" end"))));
    QVERIFY(host.logHas(line(QStringLiteral("TWKey"), QStringLiteral(" start"))));
    QVERIFY(!host.logHas(QRegularExpression(QStringLiteral("KeyDriverPackage"))));
}

void TestE2eScan::emptyPackageFolderCountsNothing()
{
    KdpFixture kdp;
    QVERIFY(kdp.isValid() && QDir(kdp.kdpPath()).exists());
    TestHost host(kdp.root());
    countIsZero(host);
    if (QTest::currentTestFailed())
        return;
    // The folder is walked: "." and ".." are looked at and dropped.
    QCOMPARE(host.logCount(line(QStringLiteral("loadKDPs"), QStringLiteral(" fileList:.*"))), 2);
    QCOMPARE(host.logCount(line(QStringLiteral("loadKDP"), QStringLiteral(" end\\. \"\\.\""))), 2);
}

void TestE2eScan::missingPackageFolderCountsNothing()
{
    TestHost host; // a binPath of its own, without kdp/
    QVERIFY(!QDir(host.kdpPath()).exists());
    countIsZero(host);
    if (QTest::currentTestFailed())
        return;
    QCOMPARE(host.logCount(line(QStringLiteral("loadKDPs"), QStringLiteral(" fileList:.*"))), 0);
    QVERIFY(!QDir(host.kdpPath()).exists());
}

void TestE2eScan::packedPackageServesItsTokens()
{
    TwDeviceGuard guard;
    KdpFixture kdp;
    const QString source = kdp.root() + QStringLiteral("/source");
    QVERIFY(KdpFixture::writePackage(source, KdpConfig(), QStringLiteral(MOCKSKF_PATH), KdpFixture::Link::Copy));
    QVERIFY(KdpFixture::pack(source, kdp.kdpPath() + QStringLiteral("/packed.kdp")));
    TestHost host(kdp.root());
    QVERIFY2(host.start(), qPrintable(host.errorString()));

    // Unpacked beside the package, and its library bound from there: the
    // test reaches that very library to put a token in it.
    const QString unpacked = kdp.kdpPath() + QStringLiteral("/packed");
    QVERIFY(QFileInfo(unpacked + QStringLiteral("/config.xml")).isFile());
    MockControl mock(unpacked + QStringLiteral("/libmockskf.so"));
    QVERIFY2(mock.isLoaded(), qPrintable(mock.errorString()));
    mock.reset();
    mock.add_device("dev1", "SN-PACKED");
    mock.add_app("dev1", "APP");
    mock.add_container("dev1", "APP", "C1", CONTAINER_TYPE_ECC);

    QCOMPARE(host.count(), 1);
    QObject *key = host.open(0);
    QVERIFY(key);
    QCOMPARE(host.call<QString>(key, "serialNumber"), QStringLiteral("SN-PACKED"));
    QCOMPARE(host.call<QString>(key, "getDriverPath"), unpacked);
}

TW_TEST_MAIN_ISOLATED(TestE2eScan)
#include "tst_e2e_scan.moc"
