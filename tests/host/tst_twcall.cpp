// Calls by name: which form a call reaches, what it writes, and what it
// refuses and leaves alone (the e2e and CLI tables make the calls that work).
#include "twcall.h"

#include <QtTest>

namespace {

class ProbeAgent : public QObject
{
    Q_OBJECT
};

class Probe : public QObject
{
    Q_OBJECT
public:
    int calls = 0;
    QString seen;
    Q_INVOKABLE QString readFile(QString name, quint64 offset = 0, quint64 size = 0) { ++calls; return QString("%1:%2:%3").arg(name).arg(offset).arg(size); }
    Q_INVOKABLE int add(int a, int b) { ++calls; return a + b; }
    Q_INVOKABLE QByteArray exportKey(Qt::HANDLE c, quint64 alg, QByteArray pub, Qt::HANDLE *key)
    {
        ++calls;
        *key = reinterpret_cast<Qt::HANDLE>(quintptr(c) + alg);
        return pub + "-wrapped";
    }
    Q_INVOKABLE Probe *child(int index)
    {
        ++calls;
        return index == 0 ? new Probe(this) : nullptr;
    }
    Q_INVOKABLE int agentName(ProbeAgent *agent) { ++calls; seen = agent->objectName(); return 1; }
    Q_INVOKABLE void touch(QString text) { ++calls; seen = text; }
    explicit Probe(QObject *parent = nullptr) : QObject(parent) {}
};

QString show(const QString &v) { return v; }
QString show(const QByteArray &v) { return QString::fromLatin1(v); }
QString show(const TWPtr &v) { return v.value ? QString("ptr") : QString("null"); }
QString show(Qt::HANDLE v) { return QString::number(quintptr(v), 16); }
template <typename T> QString show(T v) { return QString::number(v); }

// "value", or "refused value" when the call could not be made.
template <typename R, typename... A>
QString call(QObject *target, const char *method, R preset, A... args)
{
    const bool ok = twCall(target, method, preset, args...);
    return (ok ? QString() : QStringLiteral("refused ")) + show(preset);
}

} // namespace

Q_DECLARE_METATYPE(std::function<QString(Probe &)>)

class TstTWCall : public QObject
{
    Q_OBJECT

private slots:
    void calls_data()
    {
        QTest::addColumn<std::function<QString(Probe &)>>("call");
        QTest::addColumn<QString>("shows");
        QTest::addColumn<int>("calls");
        using F = std::function<QString(Probe &)>;
        const QString n = QStringLiteral("cert.der");
        auto row = [](const char *tag, F f, const char *shows, int calls) { QTest::newRow(tag) << f << QString(shows) << calls; };
        row("shorter form", [=](Probe &p) { return call(&p, "readFile", QString(), n); }, "cert.der:0:0", 1);
        row("middle form", [=](Probe &p) { return call(&p, "readFile", QString(), n, quint64(5)); }, "cert.der:5:0", 1);
        row("full form", [=](Probe &p) { return call(&p, "readFile", QString(), n, quint64(5), quint64(7)); }, "cert.der:5:7", 1);
        row("blanks around", [=](Probe &p) { return call(&p, " readFile ", QString(), n); }, "cert.der:0:0", 1);
        row("int", [](Probe &p) { return call(&p, "add", 0, 40, 2); }, "42", 1);
        row("pointer result", [](Probe &p) { const QString r = call(&p, "child", TWPtr{"Probe*"}, 0); return r + QString::number(p.children().size()); }, "ptr1", 1);
        row("null pointer result", [&](Probe &p) { return call(&p, "child", TWPtr{"Probe*", &p}, 1); }, "null", 1);
        row("out-parameter", [](Probe &p) {
            Qt::HANDLE key = nullptr;
            const QString r = call(&p, "exportKey", QByteArray(), Qt::HANDLE(0x100), quint64(0x401), QByteArray("pub"), TWPtr{"Qt::HANDLE*", &key});
            return r + show(key);
        }, "pub-wrapped501", 1);
        row("class by name", [](Probe &p) {
            ProbeAgent agent;
            agent.setObjectName("Agent");
            const QString r = call(&p, "agentName", 0, TWPtr{"ProbeAgent*", &agent});
            return r + p.seen;
        }, "1Agent", 1);
        row("void method", [](Probe &p) { const bool ok = twCallVoid(&p, "touch", QString("seen")); return QString::number(ok) + p.seen; }, "1seen", 1);
        row("no result wanted", [](Probe &p) { return QString::number(twCallVoid(&p, "add", 1, 2)); }, "1", 1);
        row("no such name", [](Probe &p) { return call(&p, "noSuchMethod", QString("preset"), QString("x")); }, "refused preset", 0);
        row("other argument type", [](Probe &p) { return call(&p, "readFile", QString("preset"), QString("x"), 5); }, "refused preset", 0);
        row("too many arguments", [](Probe &p) { return call(&p, "readFile", QString("preset"), QString("x"), quint64(1), quint64(2), quint64(3)); }, "refused preset", 0);
        row("start of a name", [](Probe &p) { return call(&p, "read", QString("preset"), QString("x")); }, "refused preset", 0);
        row("empty name", [](Probe &p) { return call(&p, "", QString("preset")); }, "refused preset", 0);
        row("null target", [](Probe &) { return call(nullptr, "readFile", QString("preset"), QString("x")); }, "refused preset", 0);
        row("int into QString", [](Probe &p) { return call(&p, "add", QString("preset"), 1, 2); }, "refused preset", 0);
        row("int into qint64", [](Probe &p) { return call(&p, "add", qint64(-1), 1, 2); }, "refused -1", 0);
        row("Probe* into QObject*", [](Probe &p) { return call(&p, "child", TWPtr{"QObject*", &p}, 0); }, "refused ptr", 0);
        row("class by another name", [](Probe &p) { ProbeAgent a; return call(&p, "agentName", 0, TWPtr{"QObject*", &a}); }, "refused 0", 0);
        row("result slot for void", [](Probe &p) { const QString r = call(&p, "touch", 9, QString("again")); return r + p.seen; }, "refused 9", 0);
    }
    void calls()
    {
        QFETCH(std::function<QString(Probe &)>, call);
        Probe probe;
        QTEST(call(probe), "shows");
        QTEST(probe.calls, "calls");
    }
};

QTEST_GUILESS_MAIN(TstTWCall)
#include "tst_twcall.moc"
