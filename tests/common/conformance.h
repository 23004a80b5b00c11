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

    Val(const char *text);
    Val(const QString &text);
    Val(const QByteArray &bytes);
    Val(bool b);
    Val(int n);
    Val(quint64 n);
    Val(const QVariant &v, const char *typeName) : value(v), type(typeName) {}
};
Val bin(const QByteArray &bytes);
Val hex(const char *hexDigits);
Val ref(const char *name);
Val nullHandle();
Val outHandle(const char *name);
Val i32(int n);

struct Fault
{
    QString function;
    quint32 code = 0;
    int times = 1;
    bool sizeLie = false;
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
    Row &fault(const QString &function, quint32 code, int times = 1);
    Row &lie(const QString &function, qint32 delta, int times = 1, int skip = 0);
    Row &second(const QString &function, quint32 code);
    Row &pull() { m_pending.pull = true; return *this; }
    Row &change(std::function<void(DeviceData &)> edit) { m_pending.change = std::move(edit); return *this; }
    Row &before(const QString &method, const QList<Val> &args = {}, const QString &save = QString());
    Row &call(const QString &method, const QList<Val> &args = {}, const QString &save = QString());
    Row &then(const QString &method, const QList<Val> &args, const QString &glob);
    Row &is(const QString &glob) { m_result = glob; m_checkResult = true; return *this; }
    Row &state(const QString &glob) { m_state = glob; m_checkState = true; return *this; }
    Row &stateBefore(const QByteArray &content) { m_stateBefore = content; m_setStateBefore = true; return *this; }
    Row &err(quint32 code) { m_err = code; return *this; }
    Row &calls(const QStringList &lines) { m_calls = lines; m_checkCalls = true; return *this; }
    Row &log(const QStringList &lines) { m_log = lines; return *this; }
    Row &out(const QStringList &lines) { m_out = lines; return *this; }
    Row &aged() { m_aged = true; return *this; }
    Row &reuse() { m_reuse = true; return *this; }
    Row &open(const QStringList &functions) { m_open = functions; return *this; }
    Row &loose() { m_loose = true; return *this; }

private:
    friend class ::Conformance;
    QString m_tag;
    std::function<void(DeviceData &)> m_token;
    Step m_pending;
    QList<Step> m_before;
    Step m_call;
    QList<QPair<Step, QString>> m_then;
    QString m_state;
    bool m_checkState = false;
    QByteArray m_stateBefore;
    bool m_setStateBefore = false;
    QString m_result;
    bool m_checkResult = false;
    quint32 m_err = Keep;
    QStringList m_calls;
    bool m_checkCalls = false;
    QStringList m_log;
    QStringList m_out;
    bool m_aged = false;
    bool m_reuse = false;
    bool m_loose = false;
    QStringList m_open;
};

// A log line at error level with the code in it: errorLine(" X failed,ret = %d", code).
QString errorLine(const char *format, quint32 code);
// PrintError's standard-output line for a text of the code table.
QString printed(const QString &text, const char *tag = "TWKeyObjectSkf");

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
    explicit Conformance(const QString &library);
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
    bool call(QObject *target, const conf::Step &step, QString *shown, QString *problem);

    struct Private;
    std::unique_ptr<Private> d;
};

#endif
