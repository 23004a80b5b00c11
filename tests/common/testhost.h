// A host for tests: the reference host's core object and loader around the
// component library, reached only through its exported entry points and
// by method name, as the signature application does.
//
//   KdpFixture kdp;  kdp.addPackage("a_mock", KdpConfig(), MOCKSKF_PATH);
//   TestHost host(kdp.root());                  // binPath; packages in <binPath>/kdp
//   QObject *manager = host.start();            // ComponentInit + CreateComponent
//   QVERIFY2(manager, qPrintable(host.errorString()));
//   QCOMPARE(host.count(), 1);
//   QObject *key = host.open(0);
//   QVERIFY(host.call<bool>(key, "verifyPin", QString("12345678"), false));
//   Qt::HANDLE c = host.call<Qt::HANDLE>(key, "openContainer", QString("C1"));
//   QCOMPARE(host.lastError(), 0u);
//   QVERIFY(host.logHas(QRegularExpression("^\\[count:\\d+\\] total Count:1$")));
//
// The library makes one key manager per process and scans the packages
// once, when it is made: one start() per process (see isolatedtest.h for
// running each test function in a process of its own). A call whose method
// or argument types the object does not have fails the running test.
#ifndef TWTEST_TESTHOST_H
#define TWTEST_TESTHOST_H

#include "host/componenthost.h"
#include "host/twcall.h"
#include "host/twcore.h"

#include <QObject>
#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <utility>

class TestHost
{
public:
    // binPath empty: a temporary directory of its own, with no kdp folder.
    explicit TestHost(const QString &binPath = QString());
    // Deletes the manager (which closes every session), then ComponentDestroy.
    ~TestHost();

    TestHost(const TestHost &) = delete;
    TestHost &operator=(const TestHost &) = delete;

    TWCore &core() { return m_core; }
    QString binPath() const { return m_binPath; }
    QString kdpPath() const { return m_binPath + QStringLiteral("/kdp"); }

    // Loads the library, hands it the core and asks for the key manager.
    QObject *start(const QString &library = QStringLiteral(TWKEY_LIB));
    QObject *manager() const { return m_host.manager(); }
    ComponentHost &componentHost() { return m_host; }
    QString errorString() const { return m_error; }
    // Leave the manager alive at the end (for tests of what outlives it).
    void setDeleteManager(bool on) { m_deleteManager = on; }

    // The manager's interface, by name.
    int count();
    QObject *open(int index);
    QObject *openEx(int index, bool enumDev);
    uint lastError() const { return m_core.lastError(); }

    // result = target->method(args...) by name; R{} when the call cannot be made.
    template <typename R, typename... A>
    R call(QObject *target, const char *method, A &&...args)
    {
        R result{};
        if (!twCall(target, method, result, std::forward<A>(args)...))
            missing(target, method, TWCall::signature(method, {twcall_detail::slot(args)...}));
        return result;
    }
    template <typename... A>
    void callVoid(QObject *target, const char *method, A &&...args)
    {
        if (!twCallVoid(target, method, std::forward<A>(args)...))
            missing(target, method, TWCall::signature(method, {twcall_detail::slot(args)...}));
    }
    // For results of pointer types the host knows by name only ("KeyObject*").
    template <typename... A>
    void *callPointer(QObject *target, const char *method, const char *resultType, A &&...args)
    {
        TWPtr result{resultType};
        if (!twCall(target, method, result, std::forward<A>(args)...))
            missing(target, method, TWCall::signature(method, {twcall_detail::slot(args)...}));
        return result.value;
    }

    // Log lines the library sent to the core, oldest first.
    QStringList log() const;
    QStringList errorLog() const;
    bool logHas(const QRegularExpression &pattern) const;
    int logCount(const QRegularExpression &pattern) const;
    void clearLog() { m_core.clear(); }

private:
    static void missing(QObject *target, const char *method, const QByteArray &signature);

    std::unique_ptr<QTemporaryDir> m_ownDir;
    QString m_binPath;
    TWCore m_core;
    ComponentHost m_host;
    QString m_error;
    bool m_deleteManager = true;
};

#endif
