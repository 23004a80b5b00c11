// The component frame: entry points, late-bound dispatch and its trace, the
// core agent's log and last error.
#include <QTemporaryDir>
#include <QtTest>

#include <dlfcn.h>

#include "frame/qdispatch.h"
#include "frame/rtc.h"
#include "frame/twcoreaccess.h"
#include "frame/twlog.h"
#include "frame/twsignaturecoreagent.h"
#include "logcheck.h"

namespace {
struct Custom
{
    int value;
};
const QString kProgId = QStringLiteral("TWKEY.TWKey.1");
const QString kIid = QStringLiteral("3948311E-CB0F-4526-8D6C-8588A7C5E490");
constexpr int kNone = -99;
} // namespace

class Target : public QObject
{
    Q_OBJECT
public:
    Q_INVOKABLE int openEx() { return 2; } // first, so that a loose prefix would find it
    Q_INVOKABLE int open() { return 1; }
    Q_INVOKABLE int sum(int a, int b) { return a * 100 + b; }
    Q_INVOKABLE int pick(int) { return 3; }
    Q_INVOKABLE int pick(QString) { return 4; }
    Q_INVOKABLE int withDefault(int a, int b = 10) { return a * 100 + b; }
    Q_INVOKABLE int custom(int, Custom) { return 5; }
};

// One method per parameter type the dispatch takes, as moc writes the names.
#define TAKES(name, type) Q_INVOKABLE int name(type) { return 1; }
class Types : public QObject
{
    Q_OBJECT
public:
    TAKES(a, char) TAKES(b, short) TAKES(c, int) TAKES(d, long) TAKES(e, uchar) TAKES(f, ushort) TAKES(g, uint) TAKES(h, ulong)
    TAKES(i, float) TAKES(j, double) TAKES(k, bool) TAKES(m, qint16) TAKES(n, qint32) TAKES(o, qint64) TAKES(p, qlonglong)
    TAKES(q, quint8) TAKES(r, quint16) TAKES(s, quint32) TAKES(t, quint64) TAKES(u, qulonglong) TAKES(v, Qt::HANDLE)
    TAKES(w, QString) TAKES(x, QStringList) TAKES(y, QByteArray) TAKES(z, QBitArray) TAKES(A, QLatin1String) TAKES(B, QChar)
    TAKES(C, QDate) TAKES(D, QTime) TAKES(E, QDateTime) TAKES(F, QSize) TAKES(G, QSizeF) TAKES(H, QPoint) TAKES(I, QPointF)
    TAKES(J, QLine) TAKES(K, QLineF) TAKES(L, QRect) TAKES(M, QRectF) TAKES(N, QUrl) TAKES(O, QLocale) TAKES(P, QRegExp)
    TAKES(Q, QEasingCurve) TAKES(R, Qt::GlobalColor) TAKES(S, QVariant) TAKES(T, Target *) TAKES(U, const char *)
};
#undef TAKES

class TstFrame : public QObject
{
    Q_OBJECT

    TWCore core;
    QTemporaryDir tmp;

    QString traceDir() const { return tmp.path() + QStringLiteral("/tarnwick"); }
    // The trace's texts, each behind its "hh:mm:ss: ", and the trace gone.
    QStringList trace() const
    {
        QFile file(traceDir() + QStringLiteral("/quillset_core.log"));
        QStringList texts;
        if (file.open(QIODevice::ReadOnly))
            for (const QString &line : QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts))
                texts << QString(line).remove(QRegularExpression(QStringLiteral("^\\d\\d:\\d\\d:\\d\\d: ")));
        QFile::remove(file.fileName());
        return texts;
    }

private slots:
    void initTestCase()
    {
        // The temporary directory, and with it every agent's trace folder.
        qputenv("TMPDIR", QFile::encodeName(tmp.path()));
        core.setBinPath(tmp.path()); // no kdp/ folder: an empty manager
        core.setConfigPath(tmp.path() + QStringLiteral("/config"));
    }

    // name, two int arguments, the preset result, the result after, and the
    // trace: M the name, P<n> the count, int/Custom a type, IN/END the call,
    // NF no method, BAD a refused type; "off": no trace folder, so none.
    // No trace column: not looked at.
    void dispatch_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("result");
        QTest::addColumn<QString>("traced");
        QTest::newRow("exact prefix") << "open" << 1 << ""; // a count of 0 is a NUL: the line is cut there
        QTest::newRow("longer name") << "openEx" << 2 << "";
        QTest::newRow("blanks around") << "  open \t" << 1 << "";
        QTest::newRow("args by pointer") << "sum" << 4002 << "M P2 int int IN END";
        QTest::newRow("no trace folder") << "sum" << 4002 << "off";
        QTest::newRow("first overload") << "pick" << 3 << "M P1 int IN END";
        QTest::newRow("default needs all") << "withDefault" << 4002 << "M P2 int int IN END";
        QTest::newRow("start of a name") << "ope" << -7 << "M NF";
        QTest::newRow("no such name") << "nosuch" << -7 << "M NF";
        QTest::newRow("blank name") << "   " << -7 << "M NF";
        QTest::newRow("user value type") << "custom" << -7 << "M P2 int Custom BAD";
        QTest::newRow("null target") << "" << -7 << "M";
    }
    void dispatch()
    {
        QFETCH(QString, name);
        QFETCH(int, result);
        QFETCH(QString, traced);
        Target target;
        const QString called = name.isEmpty() ? QStringLiteral("open") : name;
        Q_Dispatch agent(name.isEmpty() ? nullptr : &target);
        QCOMPARE(agent.objectName(), QStringLiteral("Agent"));
        // Made after the agent: the folder is looked for at each call.
        QVERIFY(traced == "off" ? QDir(traceDir()).removeRecursively() : QDir().mkpath(traceDir()));
        int value = -7, a = 40, b = 2;
        agent.invokeHelper(called, &value, &a, &b);
        QCOMPARE(value, result);
        const QString m = QStringLiteral("methodName=") + called;
        const QMap<QString, QString> words{{"M", m}, {"NF", "QTCORE____ERROR: findMethodIndex fail!!!cnt"}, {"BAD", "参数错误"},
                                           {"IN", "QMetaObject::metacall call in"}, {"END", "QMetaObject::metacall call end"}};
        QStringList expected;
        for (const QString &t : traced.split(QLatin1Char(' '), Qt::SkipEmptyParts))
            expected << (t[0] == 'P' ? m + "::paramCount=" + QChar(t.mid(1).toInt()) : words.value(t, "paramTypeName=" + t));
        const QStringList seen = trace();
        if (!traced.isEmpty())
            QCOMPARE(seen, traced == "off" ? QStringList() : expected);
    }

    void everyListedTypeIsTaken()
    {
        Types types;
        Q_Dispatch agent(&types);
        const QMetaObject *meta = types.metaObject();
        for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
            const QByteArray typeName = meta->method(i).parameterTypes().value(0);
            const int id = QMetaType::type(typeName);
            QVariant value = id > 0 && id != QMetaType::VoidStar ? QVariant(id, nullptr) : QVariant();
            quint64 zero[4] = {};
            void *arg = value.isValid() ? value.data() : zero;
            int result = 0;
            // Each argument arrives as one pointer, of whatever type.
            agent.invokeHelper(QString::fromLatin1(meta->method(i).name()), &result, arg);
            QVERIFY2(result == 1, typeName.constData());
        }
    }

    void coreAgentLogAndLastError()
    {
        QCOMPARE(getSignatureCore(), nullptr);
        QCOMPARE(ComponentInit(&core), 1);
        QVERIFY(getSignatureCore() && static_cast<TWSignatureCoreAgent *>(s_coreagent) == getSignatureCore());
        QCOMPARE(getSignatureCore()->parent(), nullptr);
        const int line = __LINE__ + 1;
        TW_LOGF(" value:%d", 7);
        twlog::entryDebug("CreateComponent", 12, QStringLiteral(" start"));
        QCOMPARE(core.lines(TWCore::Level::Debug),
                 (QStringList{QStringLiteral("[coreAgentLogAndLastError:%1] value:7").arg(line), "[rtc:CreateComponent:12] start"}));
        // Codes travel as 32 bits and come back widened without sign.
        twcore::setLastError(0xFFFFFFF0u);
        QCOMPARE(core.lastError(), 0xFFFFFFF0u);
        QCOMPARE(twcore::lastError(), 0xFFFFFFF0u);
        core.clear();
        QCOMPARE(createComponentObject(QStringLiteral("p.1"), QStringLiteral("iid")), nullptr);
        QVERIFY(core.lines(TWCore::Level::Debug).join(QLatin1Char(' ')).contains(QStringLiteral("p.1"))); // the core was asked
        core.clear();
        ComponentDestroy();
        ComponentDestroy(); // finds nothing to do
        QCOMPARE(getSignatureCore(), nullptr);
        QCOMPARE(twcore::lastError(), 0u);
        twcore::setLastError(6);
        TW_LOG(QStringLiteral(" dropped"));
        QCOMPARE(core.lastError(), 0xFFFFFFF0u);
        QCOMPARE(core.lineCount(), 0);
        QCOMPARE(createComponentObject(QStringLiteral("a"), QStringLiteral("b")), nullptr);
    }

    // TW_GetVersion: buffer size (0: none), the length given (kNone: no
    // length), the result, the length after, the leading bytes zeroed.
    void version_data()
    {
        QTest::addColumn<int>("bufferSize");
        QTest::addColumn<int>("length");
        QTest::addColumn<int>("result");
        QTest::addColumn<int>("lengthAfter");
        QTest::addColumn<int>("zeroed");
        QTest::newRow("size query") << 0 << -3 << 0 << 9 << 0;
        // The size is written first, so the text never arrives.
        QTest::newRow("room") << 32 << 100 << -1 << 9 << 9;
        QTest::newRow("short buffer") << 8 << 4 << -1 << 9 << 4; // never past what was given
        QTest::newRow("buffer without length") << 8 << kNone << -1 << kNone << 0;
    }
    void version()
    {
        QFETCH(int, bufferSize);
        QFETCH(int, length);
        QByteArray buffer(qMax(bufferSize, 1), 0x55);
        QTEST(TW_GetVersion(bufferSize ? buffer.data() : nullptr, length == kNone ? nullptr : &length), "result");
        QTEST(length, "lengthAfter");
        QFETCH(int, zeroed);
        QCOMPARE(buffer.left(bufferSize), QByteArray(zeroed, '\0') + QByteArray(bufferSize - zeroed, 0x55));
    }

    // In this order, in one process: the manager exists once.
    void createComponent()
    {
        for (const char *name : {"ComponentInit", "CreateComponent", "ComponentDestroy", "TW_GetVersion", "s_coreagent"})
            QVERIFY2(dlsym(RTLD_DEFAULT, name), name);
        ComponentInit(&core);
        core.clear();
        QCOMPARE(CreateComponent(QStringLiteral("TWKEY.TWKey.2"), QStringLiteral("nope")), nullptr);
        QCOMPARE(core.lineCount(), 3);
        TW_VERIFY_LOG(core, (QStringList{"rtc:CreateComponent| start|1", ">rtc:CreateComponent|progId :TWKEY.TWKey.2, interface :nope",
                                         ">rtc:CreateComponent| end|1", "TWKey| start|0"}));
        QObject *manager = CreateComponent(QStringLiteral("wrong"), kIid);
        QVERIFY(manager);
        QCOMPARE(manager->metaObject()->className(), "TWKey");
        QCOMPARE(CreateComponent(kProgId, QString()), manager);
        QCOMPARE(CreateComponent(kProgId.toLower(), kIid.toLower()), nullptr); // case counts
        TW_VERIFY_LOG(core, (QStringList{"TWKey| start|1", "load| configPath:" + tmp.path() + "/config|1",
                                         "loadKDPs| path:" + tmp.path() + "/kdp/|1", "loadKDPs| end.|1", ">TWKey| end|1",
                                         "rtc:CreateComponent| end|2"}));
        ComponentDestroy();
        core.clear();
        // The manager stays and is handed out still; nothing logs now.
        QCOMPARE(CreateComponent(kProgId, QString()), manager);
        qint64 last = -1;
        QMetaObject::invokeMethod(manager, "lastError", Q_RETURN_ARG(qint64, last));
        QCOMPARE(last, qint64(0));
        QCOMPARE(core.lineCount(), 0);
    }
};

QTEST_GUILESS_MAIN(TstFrame)
#include "tst_frame.moc"
