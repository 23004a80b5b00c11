// Steers the test token library (tests/mockskf) from a test: it dlopen()s
// the same file a package links, so test and driver see one token world.
// Every mock_* function of mockskf.h is a method without the prefix
// (mock_set_present -> set_present); the call log is calls(), count(),
// clearCalls(). The world lives as long as the process.
//
//   MockControl mock;                       // MOCKSKF_PATH
//   mock.reset(); mock.add_device("dev1", "SN0001"); mock.add_app("dev1", "APP");
//   mock.fail("SKF_GenRandom", SAR_FAIL, 1);
//   QCOMPARE(mock.count("SKF_ConnectDev"), 1);
#ifndef TWTEST_MOCKCONTROL_H
#define TWTEST_MOCKCONTROL_H

#include "mockskf.h"
#include "skf/skfapi.h"

#include <QStringList>

#define MOCKCONTROL_FUNCTIONS(X)                                                                                     \
    X(reset) X(add_device) X(set_present) X(set_serial) X(add_app) X(add_container) X(add_file) X(file_exists)       \
    X(set_pin) X(pin_retries) X(set_cert) X(set_seal) X(fail) X(size_delta) X(clear_faults) X(set_label)             \
    X(set_manufacturer) X(set_versions) X(set_space) X(set_login_required) X(logged_in) X(pin_is)                   \
    X(set_file_rights) X(file_info) X(container_type) X(remove_container) X(seal) X(set_wait_timeout)               \
    X(calls) X(call_count) X(clear_calls)

class MockControl
{
public:
    explicit MockControl(const QString &libraryPath = QStringLiteral(MOCKSKF_PATH));
    MockControl(const MockControl &) = delete;
    MockControl &operator=(const MockControl &) = delete;

    bool isLoaded() const { return m_loaded; }
    QString errorString() const { return m_error; }
    QString path() const { return m_path; }

    // One entry per library call, oldest first; calls of one function.
    QStringList calls() const { return QString::fromUtf8(p_calls()).split('\n', Qt::SkipEmptyParts); }
    int count(const char *function) const { return p_call_count(function); }
    void clearCalls() const { p_clear_calls(); }
    void addFile(const char *dev, const char *app, const char *file, const QByteArray &data) const;
    void setCert(const char *dev, const char *app, const char *container, bool sign, const QByteArray &der) const;
    QByteArray fileData(const char *dev, const char *app, const char *file) const;
    QByteArray sealData(const char *dev, const char *app) const;

#define MOCKCONTROL_METHOD(name)                                                                                     \
    template <typename... A> auto name(A... args) const { return p_##name(args...); }
    MOCKCONTROL_FUNCTIONS(MOCKCONTROL_METHOD)
#undef MOCKCONTROL_METHOD

private:
#define MOCKCONTROL_POINTER(name) decltype(&::mock_##name) p_##name = nullptr;
    MOCKCONTROL_FUNCTIONS(MOCKCONTROL_POINTER)
#undef MOCKCONTROL_POINTER
    QString m_path;
    QString m_error;
    bool m_loaded = false;
};

#endif
