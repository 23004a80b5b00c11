#include "conformance.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QMetaMethod>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <deque>

#include "devicestore.h"
#include "host/stdoutcapture.h"
#include "logcheck.h"
#include "softtokenengine.h"
#include "testhost.h"
#include "twdeviceguard.h"

using namespace conf;
using LogCheck::glob;

namespace {

// Past the session's open clock (800 ms), with a margin for a slow clock tick.
const int kAgeMsecs = 830;

} // namespace

QString conf::shownBytes(const QByteArray &b)
{
    const QString head = QStringLiteral("[%1]").arg(b.size());
    if (b.size() <= 16)
        return head + QString::fromLatin1(b.toHex());
    quint32 h = 2166136261u;
    for (char c : b)
        h = (h ^ quint8(c)) * 16777619u;
    return head + QStringLiteral("#%1").arg(h, 8, 16, QLatin1Char('0'));
}

namespace {

QString shown(const QVariant &v)
{
    switch (v.userType()) {
    case QMetaType::UnknownType:
        return QString();
    case QMetaType::Bool:
        return v.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    case QMetaType::QByteArray:
        return shownBytes(v.toByteArray());
    case QMetaType::QString:
        return QLatin1Char('"') + v.toString() + QLatin1Char('"');
    case QMetaType::QStringList: {
        QStringList quoted;
        for (const QString &s : v.toStringList())
            quoted << QLatin1Char('"') + s + QLatin1Char('"');
        return QLatin1Char('{') + quoted.join(QLatin1Char(',')) + QLatin1Char('}');
    }
    case QMetaType::VoidStar:
        return v.value<void *>() ? QStringLiteral("handle") : QStringLiteral("null");
    case QMetaType::QObjectStar:
        return v.value<QObject *>() ? QStringLiteral("object") : QStringLiteral("null");
    default:
        return v.toString();
    }
}

// A saved value passed on under the name the method takes it by.
const char *typeOf(const QVariant &v)
{
    const int type = v.userType();
    return type == QMetaType::VoidStar ? "Qt::HANDLE" : type == QMetaType::ULongLong ? "quint64" : v.typeName();
}

// Lines against patterns, "..." standing for any number of lines.
bool sequence(const QStringList &patterns, int p, const QStringList &lines, int l)
{
    if (p == patterns.size())
        return l == lines.size();
    if (patterns[p] == QLatin1String("...")) {
        for (int k = l; k <= lines.size(); ++k)
            if (sequence(patterns, p + 1, lines, k))
                return true;
        return false;
    }
    return l < lines.size() && glob(patterns[p], lines[l]) && sequence(patterns, p + 1, lines, l + 1);
}

// The log as "[fn]message", "!" ahead of error-level lines; the source
// line number is no part of the design.
QStringList messages(const TWCore &core)
{
    static const QRegularExpression line(QStringLiteral("^\\[([^:\\]]*)(:[^\\]]*)?\\]"));
    QStringList out;
    for (const TWCore::LogLine &l : core.lines()) {
        QString text = l.text;
        text.replace(line, QStringLiteral("[\\1]"));
        out << (l.level == TWCore::Level::Error ? QLatin1Char('!') + text : text);
    }
    return out;
}

// A pattern with "[fn]" names the function; without, it matches the
// message whatever function logged it.
bool logMatch(const QString &want, const QString &line)
{
    const bool error = want.startsWith(QLatin1Char('!'));
    if (error != line.startsWith(QLatin1Char('!')))
        return false;
    const QString text = line.mid(error), pattern = want.mid(error);
    return glob(pattern, text) || (!pattern.startsWith(QLatin1Char('[')) && glob(pattern, text.mid(text.indexOf(QLatin1Char(']')) + 1)));
}

QString logProblem(const QStringList &expected, const QStringList &log)
{
    int at = 0;
    for (const QString &want : expected) {
        if (want.startsWith(QLatin1Char('-'))) {
            for (const QString &line : log)
                if (logMatch(want.mid(1), line))
                    return QStringLiteral("log has \"%1\"").arg(line);
            continue;
        }
        while (at < log.size() && !logMatch(want, log[at]))
            ++at;
        if (at == log.size())
            return QStringLiteral("log lacks \"%1\" (in order)").arg(want);
        ++at;
    }
    return QString();
}

// Every function logs " start" on entry and a line beginning " end" (or
// "end") on each way out: the starts and ends of a call nest.
// Functions in `mayStayOpen` are let off their end on the path the row takes.
QString unbalanced(const QStringList &log, const QStringList &mayStayOpen)
{
    // An end is " end", " end.", " end ", or " end" with a reason in words behind it.
    static const QRegularExpression line(QStringLiteral(
        "^!?\\[([^\\]]*)\\](?:( (?:KeyObjectSKF )?start)$|( ?(?:KeyObjectSKF )?(?:end[. ]?$|end[ .,]+[A-Za-z].*|End_.*)))?"));
    QStringList open;
    for (const QString &l : log) {
        const QRegularExpressionMatch m = line.match(l);
        const QString fn = m.captured(1);
        if (m.capturedLength(2)) {
            open << fn;
        } else if (m.capturedLength(3)) {
            while (!open.isEmpty() && open.last() != fn && mayStayOpen.contains(open.last()))
                open.removeLast();
            if (open.isEmpty() || open.last() != fn)
                return QStringLiteral("\"%1\" ends what did not start").arg(l);
            open.removeLast();
        }
    }
    while (!open.isEmpty() && mayStayOpen.contains(open.last()))
        open.removeLast();
    return open.isEmpty() ? QString() : QStringLiteral("[%1] start without its end").arg(open.last());
}

// Handles renamed h1, h2... in order of their first appearance in the row.
QStringList renamed(QStringList lines)
{
    static const QRegularExpression handle(QStringLiteral("\\bh(\\d+)\\b"));
    QMap<QString, QString> names;
    for (QString &line : lines) {
        for (QRegularExpressionMatch m = handle.match(line); m.hasMatch();) {
            QString &name = names[m.captured(1)];
            if (name.isEmpty())
                name = QStringLiteral("h%1").arg(names.size());
            line.replace(m.capturedStart(), m.capturedLength(), name);
            m = handle.match(line, m.capturedStart() + name.size());
        }
    }
    return lines;
}

QString listed(const QStringList &lines)
{
    return lines.isEmpty() ? QStringLiteral("    (none)") : QStringLiteral("    ") + lines.join(QStringLiteral("\n    "));
}

} // namespace

namespace conf {

Row &Row::before(const QString &method, const QList<Val> &args, const QString &save)
{
    Step step = m_pending;
    step.method = method;
    step.args = args;
    step.save = save;
    m_before << step;
    m_pending = Step();
    return *this;
}

Row &Row::call(const QString &method, const QList<Val> &args, const QString &save)
{
    return m_call = Step{method, args, save, {}, false, {}}, *this;
}

Row &Row::then(const QString &method, const QList<Val> &args, const QString &glob)
{
    return m_then << qMakePair(Step{method, args, QString(), {}, false, {}}, glob), *this;
}

} // namespace conf

// A row's device and session as its set-up left them, with what its steps saved.
struct Conformance::Prepared
{
    QString device;
    QObject *session = nullptr;
    QMap<QString, QVariant> saved;
    QByteArray state;
    bool ok = false;
};

struct Conformance::Private
{
    Options options;
    QTemporaryDir dir;
    KdpFixture kdp;
    std::unique_ptr<TestHost> host;
    DeviceData standard;
    QString startProblem;
    int devices = 0;
    Prepared last; // the device the next row reuses, or removes

    QString store() const { return dir.path() + QStringLiteral("/store"); }
    QString trace() const { return dir.path() + QStringLiteral("/trace.log"); }
};

Conformance::Conformance(const KdpConfig &package) : Conformance(Options{package, QStringLiteral(SKFTRACE_PATH), {}}) {}

Conformance::Conformance(const Options &options) : d(new Private)
{
    d->options = options;
    qputenv("SOFTTOKEN_STORE", QFile::encodeName(d->store()));
    qputenv("SKFTRACE_LIBRARY", SOFTTOKEN_SKF);
    qputenv("SKFTRACE_OUTPUT", QFile::encodeName(d->trace()));

    SoftTokenEngine engine(d->store());
    SoftTokenEngine::DeviceOptions standard;
    standard.name = QStringLiteral("standard");
    standard.containers << SoftTokenEngine::ContainerSetup{QStringLiteral("c1"), SoftTokenEngine::ContainerSetup::Sm2}
                        << SoftTokenEngine::ContainerSetup{QStringLiteral("r1"), SoftTokenEngine::ContainerSetup::Rsa,
                                                           1024};
    QString error;
    DeviceStore store(d->store());
    if (!engine.createDevice(standard) || !store.load(standard.name, &d->standard, &error)
        || !store.destroy(standard.name, &error)) {
        d->startProblem = engine.lastError() + error;
        return;
    }
    d->standard.apps[0].containers[0].signCert = QByteArrayLiteral("sign-cert-c1");
    d->standard.apps[0].containers[0].encCert = QByteArrayLiteral("enc-cert-c1");

    KdpConfig config = options.package;
    config.argument = QFileInfo(options.library).fileName();
    if (d->kdp.addPackage(QStringLiteral("traced"), config, options.library).isEmpty()) {
        d->startProblem = QStringLiteral("package not written");
        return;
    }
    d->host = std::make_unique<TestHost>(d->kdp.root());
    if (!d->host->start())
        d->startProblem = d->host->errorString();
}

Conformance::~Conformance() = default;

TestHost &Conformance::host() { return *d->host; }
QString Conformance::storePath() const { return d->store(); }
QString Conformance::packagePath() const { return d->kdp.kdpPath() + QStringLiteral("/traced"); }
const DeviceData &Conformance::standardToken() const { return d->standard; }

QObject *Conformance::openThroughManager(const QString &device)
{
    const int n = d->host->count();
    DeviceData data;
    QString error;
    DeviceStore(d->store()).load(device, &data, &error);
    for (int i = n - 1; i >= 0; --i) {
        QObject *key = d->host->open(i);
        if (key && (n == 1 || d->host->call<QString>(key, "serialNumberEx") == data.serial))
            return key;
    }
    return nullptr;
}

bool Conformance::act(const Prepared &p, const Step &step, QString *problem)
{
    SoftTokenEngine engine(d->store());
    QString error;
    if (step.change && !DeviceStore(d->store()).update(p.device, [&step](DeviceData &data) {
            step.change(data);
            return true;
        }, &error))
        *problem = error;
    if (step.pull && !engine.removeDevice(p.device))
        *problem = engine.lastError();
    for (const Fault &f : step.faults) {
        if (!(f.delta ? engine.setSizeLie(p.device, f.function, f.delta, f.times, f.skip)
                      : engine.setFault(p.device, f.function, f.code, f.times, f.skip)))
            *problem = engine.lastError();
    }
    return problem->isEmpty();
}

bool Conformance::call(Prepared &p, const Step &step, QString *shownResult, QString *problem)
{
    QObject *target = p.session;
    QString method = step.method;
    if (method.startsWith(QLatin1String("TWKey."))) {
        target = d->host->manager();
        method = method.mid(6);
    }
    if (!target) {
        *problem = QStringLiteral("no object for %1").arg(step.method);
        return false;
    }
    std::deque<QVariant> values;
    std::deque<void *> pointers;
    QVector<TWArg> args;
    QList<QPair<QString, void **>> outs;
    for (const Val &v : step.args) {
        if (v.kind == Val::OutHandle) {
            void **h = &pointers.emplace_back(nullptr);
            void **ph = &pointers.emplace_back(h);
            args << TWArg{"Qt::HANDLE*", ph};
            outs << qMakePair(v.name, h);
            continue;
        }
        if (v.kind == Val::Ref && !p.saved.contains(v.name)) {
            *problem = QStringLiteral("nothing saved as \"%1\"").arg(v.name);
            return false;
        }
        QVariant &stored = values.emplace_back(v.kind == Val::Ref ? p.saved.value(v.name) : v.value);
        args << TWArg{v.kind == Val::Ref ? typeOf(stored) : v.type, stored.data()};
    }
    const QByteArray name = method.toLatin1();
    const QByteArray signature = TWCall::signature(name.constData(), args.constData(), args.size());
    const int index = target->metaObject()->indexOfMethod(signature);
    if (index < 0) {
        *problem = QStringLiteral("no method %1").arg(QString::fromLatin1(signature));
        return false;
    }
    const QMetaMethod m = target->metaObject()->method(index);
    QVariant result;
    void *pointerResult = nullptr;
    TWArg slot{nullptr, nullptr};
    if (qstrcmp(m.typeName(), "Qt::HANDLE") == 0) {
        result = QVariant::fromValue<void *>(nullptr);
        slot = TWArg{m.typeName(), result.data()};
    } else if (m.returnType() == QMetaType::UnknownType || QByteArray(m.typeName()).endsWith('*')) {
        slot = TWArg{m.typeName(), &pointerResult};
    } else if (m.returnType() != QMetaType::Void) {
        result = QVariant(m.returnType(), nullptr);
        slot = TWArg{m.typeName(), result.data()};
    }
    if (!TWCall::invoke(target, name.constData(), slot, args.constData(), args.size())) {
        *problem = QStringLiteral("%1 could not be called").arg(step.method);
        return false;
    }
    if (slot.ptr == &pointerResult)
        result = QVariant::fromValue<QObject *>(static_cast<QObject *>(pointerResult));
    for (const auto &out : outs)
        p.saved[out.first] = QVariant::fromValue<void *>(*out.second);
    if (!step.save.isEmpty())
        p.saved[step.save] = result;
    *shownResult = shown(result);
    return true;
}

bool Conformance::prepare(const Row &row, int index, Prepared &p, QStringList &problems)
{
    const auto fail = [&](const QString &what) {
        problems << QStringLiteral("%1: %2").arg(row.m_tag, what);
        return false;
    };
    if (row.m_reuse && d->last.ok) {
        p = d->last;
        return true;
    }
    StdoutCapture quiet([](const QString &) {});
    // Empty, not gone: a file that is a mount point of its own can't go.
    TwDeviceGuard::set(QByteArray(""));
    p = Prepared();
    p.device = QStringLiteral("d%1").arg(++d->devices, 4, 10, QLatin1Char('0'));
    DeviceData data = d->standard;
    data.serial = QStringLiteral("SN%1").arg(index + 1, 6, 10, QLatin1Char('0'));
    data.label = p.device;
    if (row.m_token)
        row.m_token(data);
    QString error;
    if (!DeviceStore(d->store()).create(p.device, data, &error))
        return fail(error);
    d->last = p;
    if (!row.m_call.method.startsWith(QLatin1String("TWKey."))) {
        p.session = d->options.session ? d->options.session(*this, p.device) : openThroughManager(p.device);
        if (!p.session)
            return fail(QStringLiteral("the session did not open"));
    }
    for (const Step &step : row.m_before) {
        QString ignored, problem;
        const bool done = act(p, step, &problem) && call(p, step, &ignored, &problem);
        SoftTokenEngine(d->store()).clearFaults(p.device);
        if (!done)
            return fail(QStringLiteral("before %1: %2").arg(step.method, problem));
    }
    p.state = TwDeviceGuard::current();
    p.ok = true;
    d->last = p;
    return true;
}

void Conformance::execute(const Row &row, Prepared &p, QStringList &problems)
{
    SoftTokenEngine engine(d->store());
    QString problem;
    if (!act(p, row.m_pending, &problem))
        problems << QStringLiteral("%1: %2").arg(row.m_tag, problem);
    // As the row's own preparation left it, whatever other rows did since.
    TwDeviceGuard::set(row.m_stateBefore.value_or(p.state));
    d->host->core().setLastError(Keep);
    d->host->clearLog();
    QFile trace(d->trace());
    const qint64 mark = trace.exists() ? trace.size() : 0;
    QStringList out;
    QString result;
    bool called;
    {
        // QtTest writes the library's qDebug lines to standard output too.
        static const QRegularExpression qtMessage(QStringLiteral("^Q[A-Z]+ +: "));
        StdoutCapture capture([&out](const QString &line) {
            if (!qtMessage.match(line).hasMatch())
                out << line;
        });
        called = call(p, row.m_call, &result, &problem);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); // a "deleteLater" row
    }
    d->last = p;
    engine.clearFaults(p.device);
    const QByteArray state = TwDeviceGuard::current();

    const QString tag = row.m_tag;
    if (!called) {
        problems << QStringLiteral("%1: %2").arg(tag, problem);
        return;
    }
    QStringList lines;
    if (trace.open(QIODevice::ReadOnly) && trace.seek(mark))
        lines = QString::fromUtf8(trace.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    lines = renamed(lines);
    const QStringList log = messages(d->host->core());

    if (row.m_result && !glob(*row.m_result, result))
        problems << QStringLiteral("%1: result %2, wanted %3").arg(tag, result, *row.m_result);
    const uint lastError = d->host->lastError();
    if (row.m_err != Any && lastError != row.m_err)
        problems << QStringLiteral("%1: last error 0x%2, wanted 0x%3")
                        .arg(tag)
                        .arg(lastError, 8, 16, QLatin1Char('0'))
                        .arg(row.m_err, 8, 16, QLatin1Char('0'));
    if (row.m_calls && !sequence(*row.m_calls, 0, lines, 0))
        problems << QStringLiteral("%1: library calls\n%2\n  wanted\n%3").arg(tag, listed(lines), listed(*row.m_calls));
    QString logIssue = logProblem(row.m_log, log);
    if (logIssue.isEmpty() && !row.m_loose)
        logIssue = unbalanced(log, row.m_open);
    if (!logIssue.isEmpty())
        problems << QStringLiteral("%1: %2; the log:\n%3").arg(tag, logIssue, listed(log));
    if (!sequence(row.m_out, 0, out, 0))
        problems << QStringLiteral("%1: standard output\n%2\n  wanted\n%3").arg(tag, listed(out), listed(row.m_out));
    if (row.m_state && !glob(*row.m_state, QString::fromUtf8(state)))
        problems << QStringLiteral("%1: device-state file \"%2\", wanted \"%3\"").arg(tag, QString::fromUtf8(state), *row.m_state);
    StdoutCapture quiet([](const QString &) {});
    for (const auto &then : row.m_then) {
        QString shownThen;
        if (!call(p, then.first, &shownThen, &problem))
            problems << QStringLiteral("%1: then %2: %3").arg(tag, then.first.method, problem);
        else if (!glob(then.second, shownThen))
            problems << QStringLiteral("%1: then %2 gave %3, wanted %4").arg(tag, then.first.method, shownThen, then.second);
    }
}

void Conformance::run(const QList<Row> &rows)
{
    QVERIFY2(d->startProblem.isEmpty(), qPrintable(d->startProblem));
    QStringList problems;
    DeviceStore store(d->store());
    QString ignored;
    // Rows one by one, each device gone once the next row needs a new one.
    for (int i = 0; i < rows.size(); ++i) {
        if (rows[i].m_aged)
            continue;
        if (!rows[i].m_reuse && !d->last.device.isEmpty()) {
            store.destroy(d->last.device, &ignored);
            d->last = Prepared();
        }
        Prepared p;
        if (prepare(rows[i], i, p, problems))
            execute(rows[i], p, problems);
    }
    // The aged rows: all made ready, one wait, then each call.
    QList<QPair<int, Prepared>> aged;
    for (int i = 0; i < rows.size(); ++i) {
        Prepared p;
        if (rows[i].m_aged && prepare(rows[i], i, p, problems))
            aged << qMakePair(i, p);
    }
    if (!aged.isEmpty())
        QThread::msleep(kAgeMsecs);
    for (auto &a : aged)
        execute(rows[a.first], a.second, problems);
    // One message per row: QtTest cuts long ones.
    for (const QString &problem : qAsConst(problems))
        qWarning().noquote() << problem;
    QVERIFY2(problems.isEmpty(), qPrintable(QStringLiteral("%1 differences over %2 rows").arg(problems.size()).arg(rows.size())));
}
