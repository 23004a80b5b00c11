// A host for tests that reaches the library only through its entry points
// and by method name: see docs/tests.md. A call whose method or argument
// types the object lacks fails the test.
#ifndef TWTEST_TESTHOST_H
#define TWTEST_TESTHOST_H

#include "host/componenthost.h"
#include "host/twcall.h"
#include "host/twcore.h"

#include <QRegularExpression>

class TestHost
{
public:
    explicit TestHost(const QString &binPath); // packages in <binPath>/kdp
    ~TestHost(); // deletes the manager (closing every session), then ComponentDestroy

    TWCore &core() { return m_core; }
    QObject *start();
    QObject *manager() const { return m_host.manager(); }
    QString errorString() const { return m_error; }

    int count() { return call<int>(manager(), "count"); }
    QObject *open(int index) { return callPointer(manager(), "open", "KeyObject*", index); }
    uint lastError() const { return m_core.lastError(); }

    template <typename R, typename... A> R call(QObject *target, const char *method, A &&...args)
    {
        R result{};
        if (!twCall(target, method, result, args...))
            missing(target, method, TWCall::signature(method, {twcall_detail::slot(args)...}));
        return result;
    }
    template <typename... A> void callVoid(QObject *target, const char *method, A &&...args)
    {
        if (!twCallVoid(target, method, args...))
            missing(target, method, TWCall::signature(method, {twcall_detail::slot(args)...}));
    }
    template <typename... A> QObject *callPointer(QObject *target, const char *method, const char *type, A &&...args)
    {
        TWPtr result{type};
        if (!twCall(target, method, result, args...))
            missing(target, method, TWCall::signature(method, {twcall_detail::slot(args)...}));
        return result.object();
    }

    QStringList log() const; // the library's lines, oldest first
    QStringList errorLog() const { return m_core.lines(TWCore::Level::Error); }
    int logCount(const QRegularExpression &pattern) const { return log().filter(pattern).size(); }
    bool logHas(const QRegularExpression &pattern) const { return logCount(pattern) > 0; }
    void clearLog() { m_core.clear(); }

private:
    static void missing(QObject *target, const char *method, const QByteArray &signature);

    TWCore m_core;
    ComponentHost m_host;
    QString m_error;
};

#endif
