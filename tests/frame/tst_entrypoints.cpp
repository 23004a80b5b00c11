// The exported entry points as a host meets them: the library loaded at run
// time by path, nothing of it linked. The manager exists once per process,
// so the cases run in this order in one process.
#include <QLibrary>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include "componenthost.h"
#include "twcall.h"
#include "twcore.h"

class TstEntryPoints : public QObject
{
    Q_OBJECT

    TWCore core;
    QTemporaryDir bin;
    ComponentHost host;
    QLibrary raw{QStringLiteral(TWKEY_LIBRARY_PATH)};

    int linesMatching(const QString &pattern) const
    {
        const QRegularExpression re(pattern);
        int n = 0;
        for (const QString &line : core.lines(TWCore::Level::Debug))
            n += re.match(line).hasMatch() ? 1 : 0;
        return n;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(bin.isValid());
        // No kdp/ folder at all under the bin path.
        core.setBinPath(bin.path());
        core.setConfigPath(bin.path() + QStringLiteral("/config"));
        QVERIFY2(host.load(QStringLiteral(TWKEY_LIBRARY_PATH)), qPrintable(host.errorString()));
        QVERIFY(raw.load());
    }

    void exportsPlainNames()
    {
        for (const char *name : {"ComponentInit", "CreateComponent", "ComponentDestroy", "TW_GetVersion",
                                 "s_coreagent"})
            QVERIFY2(raw.resolve(name), name);
        auto **agent = reinterpret_cast<QObject **>(raw.resolve("s_coreagent"));
        QCOMPARE(*agent, nullptr);
    }

    void refusesWhenBothIdentifiersAreWrong()
    {
        QVERIFY(host.init(&core));
        QCOMPARE(host.createComponent(QStringLiteral("TWKEY.TWKey.2"), QStringLiteral("nope")), nullptr);
        const QStringList lines = core.lines(TWCore::Level::Debug);
        QCOMPARE(lines.size(), 3);
        QVERIFY(QRegularExpression(QStringLiteral("^\\[rtc:CreateComponent:\\d+\\] start$")).match(lines.at(0)).hasMatch());
        QVERIFY(QRegularExpression(QStringLiteral("^\\[rtc:CreateComponent:\\d+\\]progId :TWKEY.TWKey.2, interface :nope$"))
                    .match(lines.at(1))
                    .hasMatch());
        QVERIFY(QRegularExpression(QStringLiteral("^\\[rtc:CreateComponent:\\d+\\] end$")).match(lines.at(2)).hasMatch());
    }

    void oneMatchingIdentifierIsEnoughAndScansOnce()
    {
        core.clear();
        QObject *byInterface =
            host.createComponent(QStringLiteral("wrong"), QString::fromLatin1(ComponentHost::kInterfaceId));
        QVERIFY(byInterface);
        QCOMPARE(byInterface->metaObject()->className(), "TWKey");
        QObject *byProgId = host.createComponent(QString::fromLatin1(ComponentHost::kProgId), QString());
        QCOMPARE(byProgId, byInterface);
        // Case matters in both identifiers.
        QCOMPARE(host.createComponent(QStringLiteral("twkey.twkey.1"),
                                      QString::fromLatin1(ComponentHost::kInterfaceId).toLower()),
                 nullptr);

        QCOMPARE(linesMatching(QStringLiteral("^\\[loadKDPs:\\d+\\] path:%1/kdp/$").arg(QRegularExpression::escape(bin.path()))), 1);
        QCOMPARE(linesMatching(QStringLiteral("^\\[load:\\d+\\] configPath:%1/config$").arg(QRegularExpression::escape(bin.path()))), 1);
        QCOMPARE(linesMatching(QStringLiteral("^\\[loadKDPs:\\d+\\] end\\.$")), 1);
        QCOMPARE(linesMatching(QStringLiteral("^\\[TWKey:\\d+\\] start$")), 1);
    }

    void countByNameOnMissingFolderIsZero()
    {
        QObject *manager = host.createComponent();
        int n = -1;
        QVERIFY(twCall(manager, "count", n));
        QCOMPARE(n, 0);
        TWPtr key{"KeyObject*"};
        int index = 0;
        QVERIFY(twCall(manager, "open", key, index));
        QCOMPARE(key.value, nullptr);
    }

    void destroyLeavesTheManager()
    {
        QObject *manager = host.createComponent();
        auto destroy = reinterpret_cast<void (*)()>(raw.resolve("ComponentDestroy"));
        auto create = reinterpret_cast<QObject *(*)(QString, QString)>(raw.resolve("CreateComponent"));
        auto **agent = reinterpret_cast<QObject **>(raw.resolve("s_coreagent"));
        QVERIFY(*agent);
        destroy();
        QCOMPARE(*agent, nullptr);
        destroy(); // harmless
        core.clear();
        // The manager stays and is still handed out; nothing logs now.
        QCOMPARE(create(QString::fromLatin1(ComponentHost::kProgId), QString()), manager);
        int n = -1;
        QVERIFY(twCall(manager, "count", n));
        QCOMPARE(n, 0);
        qint64 last = -1;
        QVERIFY(twCall(manager, "lastError", last));
        QCOMPARE(last, qint64(0));
        QCOMPARE(core.lineCount(), 0);
    }
};

QTEST_GUILESS_MAIN(TstEntryPoints)
#include "tst_entrypoints.moc"
