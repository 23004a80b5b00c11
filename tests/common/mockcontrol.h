// Steers the test token library (tests/mockskf) from a test. It dlopen()s
// the same library file that a package links, so the test and the driver
// see one token world.
//
//   MockControl mock;                                 // MOCKSKF_PATH
//   QVERIFY2(mock.isLoaded(), qPrintable(mock.errorString()));
//   mock.reset();                                     // in init(): empty world, empty log
//   mock.add_device("dev1", "SN0001");
//   mock.add_app("dev1", "APP");                      // PINs "88888888" / "12345678"
//   mock.add_container("dev1", "APP", "C1", CONTAINER_TYPE_ECC);
//   mock.fail("SKF_GenRandom", SAR_FAIL, 1);
//   ... drive the library ...
//   QCOMPARE(mock.count("SKF_ConnectDev"), 1);
//
// Every mock_* function of mockskf.h is a method here without the prefix
// (mock_set_present -> set_present). The world lives as long as the
// process: the library is never unloaded.
#ifndef TWTEST_MOCKCONTROL_H
#define TWTEST_MOCKCONTROL_H

#include "mockskf.h"
#include "skf/skfapi.h"

#include <QString>
#include <QStringList>

#define MOCKCONTROL_FUNCTIONS(X)                                                                                     \
    X(reset) X(add_device) X(set_present) X(set_serial) X(add_app) X(add_container) X(fail) X(size_delta)            \
    X(clear_faults) X(set_wait_timeout)

// The call log is reached through calls(), count() and clearCalls().
#define MOCKCONTROL_LOG_FUNCTIONS(X) X(calls) X(call_count) X(clear_calls)

class MockControl
{
public:
    explicit MockControl(const QString &libraryPath = QStringLiteral(MOCKSKF_PATH));

    MockControl(const MockControl &) = delete;
    MockControl &operator=(const MockControl &) = delete;

    bool isLoaded() const { return m_loaded; }
    QString errorString() const { return m_error; }
    QString path() const { return m_path; }

    // The call log, one entry per library call, oldest first.
    QStringList calls() const;
    // Calls of one function since the last reset() or clearCalls().
    int count(const char *function) const;
    void clearCalls() const;

#define MOCKCONTROL_METHOD(name)                                                                                     \
    template <typename... A>                                                                                         \
    auto name(A... args) const                                                                                       \
    {                                                                                                                \
        check(reinterpret_cast<const void *>(p_##name), #name);                                                      \
        return p_##name(args...);                                                                                    \
    }
    MOCKCONTROL_FUNCTIONS(MOCKCONTROL_METHOD)
#undef MOCKCONTROL_METHOD

private:
    // A test that goes on without the library would crash somewhere less
    // telling; stop at once and name the function.
    static void check(const void *fn, const char *name);

#define MOCKCONTROL_POINTER(name) decltype(&::mock_##name) p_##name = nullptr;
    MOCKCONTROL_FUNCTIONS(MOCKCONTROL_POINTER)
    MOCKCONTROL_LOG_FUNCTIONS(MOCKCONTROL_POINTER)
#undef MOCKCONTROL_POINTER

    QString m_path;
    QString m_error;
    bool m_loaded = false;
};

#endif
