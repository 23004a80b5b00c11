// Conformance tables: each case is a row of data (a token set-up, by-name
// calls, what must follow), run by one runner. The row form and every check
// are described in docs/tests.md.
#ifndef TWTEST_CONFORMANCE_H
#define TWTEST_CONFORMANCE_H

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <functional>
#include <memory>
#include <optional>

#include "kdpfixture.h"

class Conformance;
class DeviceData;
class TestHost;

namespace conf {

enum : quint32 { Keep = 0x12345678u, Any = 0xFFFFFFFFu };

struct Val
{
    enum Kind { Value, Ref, OutHandle };
    Kind kind = Value;
    QVariant value;
    QString name;
    const char *type = nullptr;

    Val(const char *text) : value(QString::fromUtf8(text)), type("QString") {}
    Val(const QString &text) : value(text), type("QString") {}
    Val(const QByteArray &bytes) : value(bytes), type("QByteArray") {}
    Val(bool b) : value(b), type("bool") {}
    Val(int n) : value(quint64(n)), type("quint64") {}
    Val(quint64 n) : value(n), type("quint64") {}
    Val(const QVariant &v, const char *typeName) : value(v), type(typeName) {}
    Val(Kind k, const char *saved) : kind(k), name(QString::fromLatin1(saved)) {}
};
inline Val bin(const QByteArray &bytes) { return Val(bytes); }
inline Val ref(const char *name) { return Val(Val::Ref, name); }
inline Val outHandle(const char *name) { return Val(Val::OutHandle, name); }
inline Val nullHandle() { return Val(QVariant::fromValue<void *>(nullptr), "Qt::HANDLE"); }
inline Val i32(int n) { return Val(QVariant(n), "int"); }

// The token's function fails with the code, or with a delta reports a size
// that far off; `times` calls after `skip`.
struct Fault
{
    QString function;
    quint32 code = 0;
    int times = 1;
    qint32 delta = 0;
    int skip = 0;
};

// A by-name call and what is done to the token just before it.
struct Step
{
    QString method;
    QList<Val> args;
    QString save;
    QList<Fault> faults;
    bool pull = false;
    std::function<void(DeviceData &)> change;
};

class Row
{
public:
    explicit Row(const QString &tag) : m_tag(tag) {}

    Row &token(std::function<void(DeviceData &)> edit) { m_token = std::move(edit); return *this; }
    Row &fault(const QString &function, quint32 code, int times = 1) { return add({function, code, times, 0, 0}); }
    Row &lie(const QString &function, qint32 delta, int times = 1, int skip = 0) { return add({function, 0, times, delta, skip}); }
    Row &second(const QString &function, quint32 code) { return add({function, code, 1, 0, 1}); }
    Row &pull() { m_pending.pull = true; return *this; }
    Row &change(std::function<void(DeviceData &)> edit) { m_pending.change = std::move(edit); return *this; }
    Row &before(const QString &method, const QList<Val> &args = {}, const QString &save = QString());
    Row &call(const QString &method, const QList<Val> &args = {}, const QString &save = QString());
    Row &then(const QString &method, const QList<Val> &args, const QString &glob);
    Row &is(const QString &glob) { m_result = glob; return *this; }
    Row &state(const QString &glob) { m_state = glob; return *this; }
    Row &stateBefore(const QByteArray &content) { m_stateBefore = content; return *this; }
    Row &err(quint32 code) { m_err = code; return *this; }
    Row &calls(const QStringList &lines) { m_calls = lines; return *this; }
    Row &log(const QStringList &lines) { m_log = lines; return *this; }
    Row &out(const QStringList &lines) { m_out = lines; return *this; }
    Row &aged() { m_aged = true; return *this; }
    Row &reuse() { m_reuse = true; return *this; }
    Row &open(const QStringList &functions) { m_open = functions; return *this; }
    Row &loose() { m_loose = true; return *this; }

private:
    friend class ::Conformance;
    Row &add(const Fault &f) { m_pending.faults << f; return *this; }
    QString m_tag;
    std::function<void(DeviceData &)> m_token;
    Step m_pending;
    QList<Step> m_before;
    Step m_call;
    QList<QPair<Step, QString>> m_then;
    std::optional<QString> m_state, m_result; // unchecked when not given
    std::optional<QByteArray> m_stateBefore;
    quint32 m_err = Keep;
    std::optional<QStringList> m_calls;
    QStringList m_log;
    QStringList m_out;
    bool m_aged = false;
    bool m_reuse = false;
    bool m_loose = false;
    QStringList m_open;
};

// A log line at error level with the code in it: errorLine(" X failed,ret = %d", code).
inline QString errorLine(const char *format, quint32 code) { return QLatin1Char('!') + QString::asprintf(format, int(code)); }
// Bytes as a result shows them: "[size]" and the hex digits, or past 16
// bytes "#" and their FNV-1a hash.
QString shownBytes(const QByteArray &bytes);
// PrintError's standard-output line for a text of the code table.
inline QString printed(const QString &text, const char *tag = "TWKeyObjectSkf")
{
    return QStringLiteral("[%1::PrintError] Error:%2 ").arg(QLatin1String(tag), text);
}

} // namespace conf

class Conformance
{
public:
    struct Options
    {
        KdpConfig package;
        // The SKF library the package names: the tracer, or a build of it
        // that leaves names out (tests/common/CMakeLists.txt).
        QString library = QStringLiteral(SKFTRACE_PATH);
        // The session for a device; by default the host's key manager
        // counts and opens it. Others construct theirs.
        std::function<QObject *(Conformance &, const QString &device)> session;
    };

    explicit Conformance(const KdpConfig &package = KdpConfig());
    explicit Conformance(const Options &options);
    ~Conformance();

    // Runs the rows; fails the running test with every row that differs.
    void run(const QList<conf::Row> &rows);

    TestHost &host();
    QString storePath() const;
    // The package folder that names the traced library: a session made by
    // its constructor needs a KeyDriverPackage and a driver of it.
    QString packagePath() const;
    const DeviceData &standardToken() const;
    // The default session maker: count() on the manager, then open() of
    // the device's index.
    QObject *openThroughManager(const QString &device);

private:
    struct Prepared;
    bool prepare(const conf::Row &row, int index, Prepared &p, QStringList &problems);
    bool act(const Prepared &p, const conf::Step &step, QString *problem);
    void execute(const conf::Row &row, Prepared &p, QStringList &problems);
    bool call(Prepared &p, const conf::Step &step, QString *shown, QString *problem);

    struct Private;
    std::unique_ptr<Private> d;
};

#endif
