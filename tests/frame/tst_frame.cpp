// The component frame: late-bound dispatch, its trace, the core agent's
// log and last-error plumbing, and the version entry point.
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include "frame/keydriverinfoagent.h"
#include "frame/qdispatch.h"
#include "frame/rtc.h"
#include "frame/twcoreaccess.h"
#include "frame/twlog.h"
#include "frame/twsignaturecoreagent.h"
#include "package/keydriverinfo.h"
#include "twcore.h"

namespace {

struct Custom
{
    int value;
};

} // namespace

// A target with the shapes the dispatch must tell apart.
class Target : public QObject
{
    Q_OBJECT
public:
    // openEx stands first so that a loose prefix match would find it.
    Q_INVOKABLE int openEx() { return 2; }
    Q_INVOKABLE int open() { return 1; }
    Q_INVOKABLE int sum(int a, int b) { return a + b; }
    Q_INVOKABLE QString pick(int) { return QStringLiteral("int"); }
    Q_INVOKABLE QString pick(QString) { return QStringLiteral("QString"); }
    Q_INVOKABLE int takesCustom(int a, Custom c)
    {
        customCalled = true;
        return a + c.value;
    }
    Q_INVOKABLE int withDefault(int a, int b = 10) { return a * 100 + b; }
    Q_INVOKABLE void store(QByteArray data, quint64 n, Qt::HANDLE h)
    {
        stored = data;
        storedNumber = n;
        storedHandle = h;
    }

    bool customCalled = false;
    QByteArray stored;
    quint64 storedNumber = 0;
    Qt::HANDLE storedHandle = nullptr;
};

// The same overload pair in the other order.
class StringFirst : public QObject
{
    Q_OBJECT
public:
    Q_INVOKABLE QString pick(QString s) { return QStringLiteral("QString:") + s; }
    Q_INVOKABLE QString pick(int) { return QStringLiteral("int"); }
};

class TstFrame : public QObject
{
    Q_OBJECT

private:
    // Points the temporary directory, and with it the trace folder of
    // every agent made from now on, into a fresh test folder.
    QString useTempRoot(QTemporaryDir &dir, bool withTraceFolder = true)
    {
        qputenv("TMPDIR", QFile::encodeName(dir.path()));
        const QString traceDir = dir.path() + QStringLiteral("/tarnwick");
        if (withTraceFolder && !QDir().mkpath(traceDir))
            qFatal("cannot make %s", qPrintable(traceDir));
        return traceDir;
    }

    static QStringList traceTexts(const QString &traceDir)
    {
        QFile file(traceDir + QStringLiteral("/quillset_core.log"));
        if (!file.open(QIODevice::ReadOnly))
            return {};
        QStringList texts;
        const QList<QByteArray> lines = file.readAll().split('\n');
        for (const QByteArray &line : lines) {
            const int sep = line.indexOf(": ");
            if (sep > 0)
                texts << QString::fromUtf8(line.mid(sep + 2));
        }
        return texts;
    }

    QByteArray savedTmp;

private slots:
    void initTestCase() { savedTmp = qgetenv("TMPDIR"); }
    void cleanup()
    {
        if (savedTmp.isNull())
            qunsetenv("TMPDIR");
        else
            qputenv("TMPDIR", savedTmp);
        ComponentDestroy();
    }

    void agentIsNamedAndTargetsItsObject()
    {
        Target target;
        KeyDriverInfoAgent agent(&target);
        QCOMPARE(agent.objectName(), QStringLiteral("Agent"));
        QCOMPARE(agent.target(), &target);
        QCOMPARE(agent.parent(), nullptr);
    }

    void findsByNameWithExactPrefix()
    {
        Target target;
        Q_Dispatch dispatch(&target);
        int result = 0;
        dispatch.invokeHelper(QStringLiteral("open"), &result);
        QCOMPARE(result, 1);
        result = 0;
        dispatch.invokeHelper(QStringLiteral("openEx"), &result);
        QCOMPARE(result, 2);
        // Blanks around the name don't matter.
        result = 0;
        dispatch.invokeHelper(QStringLiteral("  open \t"), &result);
        QCOMPARE(result, 1);
    }

    void passesEveryArgumentAsAPointer()
    {
        Target target;
        Q_Dispatch dispatch(&target);
        int a = 40, b = 2, result = 0;
        dispatch.invokeHelper(QStringLiteral("sum"), &result, &a, &b);
        QCOMPARE(result, 42);

        QByteArray data("\x00\x01raw", 5);
        quint64 number = Q_UINT64_C(0x1122334455667788);
        Qt::HANDLE handle = &target;
        dispatch.invokeHelper(QStringLiteral("store"), nullptr, &data, &number, &handle);
        QCOMPARE(target.stored, data);
        QCOMPARE(target.storedNumber, number);
        QCOMPARE(target.storedHandle, handle);
    }

    void firstDeclaredOverloadWins()
    {
        Target intFirst;
        int value = 5;
        QString result;
        Q_Dispatch(&intFirst).invokeHelper(QStringLiteral("pick"), &result, &value);
        QCOMPARE(result, QStringLiteral("int"));

        StringFirst stringFirst;
        QString text = QStringLiteral("x");
        result.clear();
        Q_Dispatch(&stringFirst).invokeHelper(QStringLiteral("pick"), &result, &text);
        QCOMPARE(result, QStringLiteral("QString:x"));
    }

    void defaultedMethodNeedsEveryArgument()
    {
        // The full form stands first in the method table, so it is the one
        // reached and both pointers are read.
        Target target;
        int a = 3, b = 7, result = 0;
        Q_Dispatch(&target).invokeHelper(QStringLiteral("withDefault"), &result, &a, &b);
        QCOMPARE(result, 307);
    }

    void unknownNameLeavesPresetResult()
    {
        QTemporaryDir tmp;
        const QString traceDir = useTempRoot(tmp);
        Target target;
        Q_Dispatch dispatch(&target);
        int result = 77;
        dispatch.invokeHelper(QStringLiteral("nosuch"), &result);
        QCOMPARE(result, 77);
        dispatch.invokeHelper(QStringLiteral("   "), &result);
        QCOMPARE(result, 77);
        // A prefix of a real name is no name.
        dispatch.invokeHelper(QStringLiteral("ope"), &result);
        QCOMPARE(result, 77);
        const QStringList trace = traceTexts(traceDir);
        QCOMPARE(trace.count(QStringLiteral("QTCORE____ERROR: findMethodIndex fail!!!cnt")), 3);
    }

    void refusesUserValueType()
    {
        QTemporaryDir tmp;
        const QString traceDir = useTempRoot(tmp);
        Target target;
        Q_Dispatch dispatch(&target);
        int a = 1;
        Custom c{2};
        int result = -5;
        dispatch.invokeHelper(QStringLiteral("takesCustom"), &result, &a, &c);
        QVERIFY(!target.customCalled);
        QCOMPARE(result, -5);

        const QStringList trace = traceTexts(traceDir);
        const int refused = trace.indexOf(QStringLiteral("参数错误"));
        QVERIFY(refused > 1);
        QCOMPARE(trace.at(refused - 1), QStringLiteral("paramTypeName=Custom"));
        QCOMPARE(trace.at(refused - 2), QStringLiteral("paramTypeName=int"));
        QVERIFY(!trace.contains(QStringLiteral("QMetaObject::metacall call in")));
    }

    void nullTargetCallsNothing()
    {
        QTemporaryDir tmp;
        const QString traceDir = useTempRoot(tmp);
        Q_Dispatch dispatch(nullptr);
        int result = 9;
        dispatch.invokeHelper(QStringLiteral("open"), &result);
        QCOMPARE(result, 9);
        QCOMPARE(traceTexts(traceDir), QStringList{QStringLiteral("methodName=open")});
    }

    void traceOnlyWhenFolderExists()
    {
        QTemporaryDir tmp;
        const QString traceDir = useTempRoot(tmp, false);
        Target target;
        Q_Dispatch dispatch(&target);
        int a = 1, b = 2, result = 0;
        dispatch.invokeHelper(QStringLiteral("sum"), &result, &a, &b);
        QCOMPARE(result, 3);
        QVERIFY(!QFileInfo::exists(traceDir));

        // The folder switches the trace on for an agent that already exists.
        QVERIFY(QDir().mkpath(traceDir));
        dispatch.invokeHelper(QStringLiteral("sum"), &result, &a, &b);
        const QStringList trace = traceTexts(traceDir);
        // The count is one character whose code is the count.
        const QStringList expected{QStringLiteral("methodName=sum"),
                                   QStringLiteral("methodName=sum::paramCount=") + QChar(2),
                                   QStringLiteral("paramTypeName=int"),
                                   QStringLiteral("paramTypeName=int"),
                                   QStringLiteral("QMetaObject::metacall call in"),
                                   QStringLiteral("QMetaObject::metacall call end")};
        QCOMPARE(trace, expected);

        // Each line carries the time of day in front.
        QFile file(traceDir + QStringLiteral("/quillset_core.log"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY(QRegularExpression(QStringLiteral("^\\d\\d:\\d\\d:\\d\\d: methodName=sum\n"))
                    .match(QString::fromUtf8(file.readAll()))
                    .hasMatch());
    }

    void coreAgentCarriesLogAndLastError()
    {
        TWCore core;
        QCOMPARE(ComponentInit(&core), 1);
        QVERIFY(getSignatureCore());
        QCOMPARE(static_cast<TWSignatureCoreAgent *>(s_coreagent), getSignatureCore());

        getSignatureCore()->logDebug(QStringLiteral("d"));
        getSignatureCore()->logError(QStringLiteral("e"));
        QCOMPARE(core.lines(TWCore::Level::Debug), QStringList{QStringLiteral("d")});
        QCOMPARE(core.lines(TWCore::Level::Error), QStringList{QStringLiteral("e")});

        // Codes travel as 32 bits and come back widened without sign.
        twcore::setLastError(0xFFFFFFF0u);
        QCOMPARE(core.lastError(), 0xFFFFFFF0u);
        QCOMPARE(twcore::lastError(), 0xFFFFFFF0u);
        KeyDriverInfo info(nullptr);
        QCOMPARE(info.lastError(), qint64(0)); // no driver: 0, whatever the core holds
    }

    void logLinesCarryFunctionAndLine()
    {
        TWCore core;
        ComponentInit(&core);
        const int line = __LINE__ + 1;
        TW_LOGF(" value:%d", 7);
        TW_LOG_ERROR(QStringLiteral(" end. broken"));
        twlog::entryDebug("CreateComponent", 12, QStringLiteral(" start"));
        const QList<TWCore::LogLine> lines = core.lines();
        QCOMPARE(lines.size(), 3);
        QCOMPARE(lines.at(0).text, QStringLiteral("[logLinesCarryFunctionAndLine:%1] value:7").arg(line));
        QCOMPARE(lines.at(0).level, TWCore::Level::Debug);
        QCOMPARE(lines.at(1).text, QStringLiteral("[logLinesCarryFunctionAndLine:%1] end. broken").arg(line + 1));
        QCOMPARE(lines.at(1).level, TWCore::Level::Error);
        QCOMPARE(lines.at(2).text, QStringLiteral("[rtc:CreateComponent:12] start"));
    }

    void withoutCoreAgentEverythingIsQuiet()
    {
        TWCore core;
        ComponentInit(&core);
        twcore::setLastError(5);
        ComponentDestroy();
        ComponentDestroy(); // the second finds nothing to do
        QCOMPARE(getSignatureCore(), nullptr);
        QCOMPARE(twcore::lastError(), 0u);
        twcore::setLastError(6);
        TW_LOG(QStringLiteral(" dropped"));
        QCOMPARE(core.lastError(), 5u);
        QCOMPARE(core.lineCount(), 0);
        QCOMPARE(createComponentObject(QStringLiteral("a"), QStringLiteral("b")), nullptr);
    }

    void createComponentObjectAsksTheCore()
    {
        TWCore core;
        ComponentInit(&core);
        QCOMPARE(createComponentObject(QStringLiteral("p.1"), QStringLiteral("iid")), nullptr);
        QVERIFY(core.lines(TWCore::Level::Debug).join('\n').contains(QStringLiteral("p.1")));
    }

    void version_data()
    {
        QTest::addColumn<int>("bufferSize"); // 0: no buffer
        QTest::addColumn<bool>("withLength");
        QTest::addColumn<int>("length");
        QTest::addColumn<int>("result");
        QTest::addColumn<int>("lengthAfter");
        QTest::addColumn<int>("zeroed"); // leading bytes cleared, the rest untouched
        QTest::newRow("size query") << 0 << true << -3 << 0 << 9 << 0;
        QTest::newRow("nothing") << 0 << false << 0 << 0 << 0 << 0;
        // The size is written first, so the text never arrives: -1 and nine
        // zero bytes, whatever length the caller gave.
        QTest::newRow("room") << 32 << true << 100 << -1 << 9 << 9;
        // Never past the length the caller gave; a buffer without one is refused untouched.
        QTest::newRow("short buffer") << 8 << true << 4 << -1 << 9 << 4;
        QTest::newRow("buffer without length") << 8 << false << 0 << -1 << 0 << 0;
    }

    void version()
    {
        QFETCH(int, bufferSize);
        QFETCH(bool, withLength);
        QFETCH(int, length);
        QFETCH(int, result);
        QFETCH(int, lengthAfter);
        QFETCH(int, zeroed);
        QByteArray buffer(qMax(bufferSize, 1), 0x55);
        QCOMPARE(TW_GetVersion(bufferSize ? buffer.data() : nullptr, withLength ? &length : nullptr), result);
        if (withLength)
            QCOMPARE(length, lengthAfter);
        QCOMPARE(buffer.left(bufferSize), QByteArray(zeroed, '\0') + QByteArray(bufferSize - zeroed, 0x55));
    }
};

QTEST_GUILESS_MAIN(TstFrame)
#include "tst_frame.moc"
