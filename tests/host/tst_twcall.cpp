// Calls by name: which method a call reaches, what it writes, and what it
// leaves alone.
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
    QString lastSeen;

    Q_INVOKABLE QString readFile(QString name, quint64 offset = 0, quint64 size = 0)
    {
        ++calls;
        return QStringLiteral("%1:%2:%3").arg(name).arg(offset).arg(size);
    }
    Q_INVOKABLE bool negate(bool value) { ++calls; return !value; }
    Q_INVOKABLE int add(int a, int b) { ++calls; return a + b; }
    Q_INVOKABLE uint twice(uint value) { ++calls; return value * 2; }
    Q_INVOKABLE qint64 minus(qint64 value) { ++calls; return -value; }
    Q_INVOKABLE quint64 high(quint64 value) { ++calls; return value << 32; }
    Q_INVOKABLE QStringList split(QString text) { ++calls; return text.split(QLatin1Char(',')); }
    Q_INVOKABLE QByteArray reversed(QByteArray bytes)
    {
        ++calls;
        std::reverse(bytes.begin(), bytes.end());
        return bytes;
    }
    Q_INVOKABLE Qt::HANDLE handleOf(QString name)
    {
        ++calls;
        return name.isEmpty() ? nullptr : reinterpret_cast<Qt::HANDLE>(quintptr(0x1000 + name.size()));
    }
    Q_INVOKABLE QByteArray exportKey(Qt::HANDLE container, quint64 alg, QByteArray pub, Qt::HANDLE *key)
    {
        ++calls;
        *key = reinterpret_cast<Qt::HANDLE>(quintptr(container) + alg);
        return pub + "-wrapped";
    }
    Q_INVOKABLE Probe *child(int index)
    {
        ++calls;
        if (index != 0)
            return nullptr;
        auto *c = new Probe;
        c->setParent(this);
        c->lastSeen = QStringLiteral("child");
        return c;
    }
    Q_INVOKABLE int agentName(ProbeAgent *agent)
    {
        ++calls;
        lastSeen = agent ? agent->objectName() : QStringLiteral("null");
        return 1;
    }
    Q_INVOKABLE void touch(QString text) { ++calls; lastSeen = text; }
};

class DerivedProbe : public Probe
{
    Q_OBJECT

public:
    Q_INVOKABLE QString onlyHere() { ++calls; return QStringLiteral("derived"); }
};

} // namespace

class TstTWCall : public QObject
{
    Q_OBJECT

private slots:
    void signatureIsNormalized();
    void shorterFormsByArgumentCount();
    void everyTypeNameCrosses();
    void missingMethodLeavesPresetResult();
    void wrongResultTypeIsNotCalled();
    void pointerResultAndPointerArguments();
    void voidMethods();
    void runTimeMetaObjectIsUsed();
};

void TstTWCall::signatureIsNormalized()
{
    QString s;
    quint64 n = 0;
    Qt::HANDLE h = nullptr;
    TWPtr out{"Qt::HANDLE*"};
    QCOMPARE(TWCall::signature("  readFile ", {twcall_detail::slot(s), twcall_detail::slot(n)}),
             QByteArray("readFile(QString,quint64)"));
    QCOMPARE(TWCall::signature("eccExportSessionKey",
                               {twcall_detail::slot(h), twcall_detail::slot(n), twcall_detail::slot(out)}),
             QByteArray("eccExportSessionKey(Qt::HANDLE,quint64,Qt::HANDLE*)"));
    QCOMPARE(TWCall::signature("count", {}), QByteArray("count()"));
}

void TstTWCall::shorterFormsByArgumentCount()
{
    Probe p;
    const QString name = QStringLiteral("cert.der");
    QString out;
    QVERIFY(twCall(&p, "readFile", out, name));
    QCOMPARE(out, QStringLiteral("cert.der:0:0"));
    QVERIFY(twCall(&p, "readFile", out, name, quint64(5)));
    QCOMPARE(out, QStringLiteral("cert.der:5:0"));
    QVERIFY(twCall(&p, "readFile", out, name, quint64(5), quint64(7)));
    QCOMPARE(out, QStringLiteral("cert.der:5:7"));
    QCOMPARE(p.calls, 3);
    // A blank-padded name reaches the same method.
    QVERIFY(twCall(&p, " readFile ", out, name));
    QCOMPARE(out, QStringLiteral("cert.der:0:0"));
}

void TstTWCall::everyTypeNameCrosses()
{
    Probe p;
    bool b = false;
    QVERIFY(twCall(&p, "negate", b, false));
    QCOMPARE(b, true);
    int i = 0;
    QVERIFY(twCall(&p, "add", i, 40, 2));
    QCOMPARE(i, 42);
    uint u = 0;
    QVERIFY(twCall(&p, "twice", u, 0x7fffffffu));
    QCOMPARE(u, 0xfffffffeu);
    qint64 s = 0;
    QVERIFY(twCall(&p, "minus", s, qint64(1) << 40));
    QCOMPARE(s, -(qint64(1) << 40));
    quint64 q = 0;
    QVERIFY(twCall(&p, "high", q, quint64(0xABCD)));
    QCOMPARE(q, quint64(0xABCD) << 32);
    QStringList list;
    QVERIFY(twCall(&p, "split", list, QStringLiteral("a,b,c")));
    QCOMPARE(list, QStringList({QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")}));
    QByteArray bytes;
    QVERIFY(twCall(&p, "reversed", bytes, QByteArray("\x01\x02\x03", 3)));
    QCOMPARE(bytes, QByteArray("\x03\x02\x01", 3));
    Qt::HANDLE h = nullptr;
    QVERIFY(twCall(&p, "handleOf", h, QStringLiteral("abc")));
    QCOMPARE(h, reinterpret_cast<Qt::HANDLE>(quintptr(0x1003)));
    // A const argument is passed the same way.
    const QString constName = QStringLiteral("abcd");
    QVERIFY(twCall(&p, "handleOf", h, constName));
    QCOMPARE(h, reinterpret_cast<Qt::HANDLE>(quintptr(0x1004)));
}

void TstTWCall::missingMethodLeavesPresetResult()
{
    Probe p;
    QString out = QStringLiteral("preset");
    QVERIFY(!twCall(&p, "noSuchMethod", out, QStringLiteral("x")));
    QCOMPARE(out, QStringLiteral("preset"));
    // Arguments of other types than declared: no such signature either.
    QVERIFY(!twCall(&p, "readFile", out, QStringLiteral("x"), 5));
    QVERIFY(!twCall(&p, "readFile", out, QStringLiteral("x"), quint64(1), quint64(2), quint64(3)));
    // "read" is only the start of "readFile".
    QVERIFY(!twCall(&p, "read", out, QStringLiteral("x")));
    QVERIFY(!twCall(&p, "", out));
    QVERIFY(!twCall(nullptr, "readFile", out, QStringLiteral("x")));
    QCOMPARE(out, QStringLiteral("preset"));
    QCOMPARE(p.calls, 0);
}

void TstTWCall::wrongResultTypeIsNotCalled()
{
    Probe p;
    // add() gives an int; a QString slot must not receive it.
    QString text = QStringLiteral("preset");
    QVERIFY(!twCall(&p, "add", text, 1, 2));
    QCOMPARE(text, QStringLiteral("preset"));
    qint64 wide = -1;
    QVERIFY(!twCall(&p, "add", wide, 1, 2));
    QCOMPARE(wide, qint64(-1));
    TWPtr asQObject{"QObject*", &p};
    QVERIFY(!twCall(&p, "child", asQObject, 0));
    QCOMPARE(asQObject.value, static_cast<void *>(&p));
    QCOMPARE(p.calls, 0);
}

void TstTWCall::pointerResultAndPointerArguments()
{
    Probe p;
    TWPtr child{"Probe*"};
    QVERIFY(twCall(&p, "child", child, 0));
    QVERIFY(child.value);
    QCOMPARE(child.object()->parent(), &p);
    QCOMPARE(child.object()->metaObject()->className(), "Probe");

    TWPtr none{"Probe*", &p};
    QVERIFY(twCall(&p, "child", none, 1));
    QCOMPARE(none.value, nullptr);

    // Out-parameter: the callee writes through the pointer it is handed.
    Qt::HANDLE key = nullptr;
    QByteArray wrapped;
    const Qt::HANDLE container = reinterpret_cast<Qt::HANDLE>(quintptr(0x100));
    QVERIFY(twCall(&p, "exportKey", wrapped, container, quint64(0x401), QByteArray("pub"), TWPtr{"Qt::HANDLE*", &key}));
    QCOMPARE(wrapped, QByteArray("pub-wrapped"));
    QCOMPARE(key, reinterpret_cast<Qt::HANDLE>(quintptr(0x501)));

    // A pointer to a class the caller knows only by name.
    ProbeAgent agent;
    agent.setObjectName(QStringLiteral("Agent"));
    int one = 0;
    QVERIFY(twCall(&p, "agentName", one, TWPtr{"ProbeAgent*", &agent}));
    QCOMPARE(one, 1);
    QCOMPARE(p.lastSeen, QStringLiteral("Agent"));
    QVERIFY(!twCall(&p, "agentName", one, TWPtr{"QObject*", &agent}));
}

void TstTWCall::voidMethods()
{
    Probe p;
    QVERIFY(twCallVoid(&p, "touch", QStringLiteral("seen")));
    QCOMPARE(p.lastSeen, QStringLiteral("seen"));
    // Not wanting a result is fine for any method.
    QVERIFY(twCallVoid(&p, "add", 1, 2));
    QCOMPARE(p.calls, 2);
    // A result slot for a void method is refused.
    int slot = 9;
    QVERIFY(!twCall(&p, "touch", slot, QStringLiteral("again")));
    QCOMPARE(slot, 9);
    QCOMPARE(p.lastSeen, QStringLiteral("seen"));
}

void TstTWCall::runTimeMetaObjectIsUsed()
{
    DerivedProbe derived;
    QObject *asBase = &derived;
    QString out;
    QVERIFY(twCall(asBase, "onlyHere", out));
    QCOMPARE(out, QStringLiteral("derived"));
    // Inherited methods are reached too.
    QVERIFY(twCall(asBase, "readFile", out, QStringLiteral("n")));
    QCOMPARE(out, QStringLiteral("n:0:0"));
    Probe base;
    QVERIFY(!twCall(&base, "onlyHere", out));
}

QTEST_GUILESS_MAIN(TstTWCall)
#include "tst_twcall.moc"
