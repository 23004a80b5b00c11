#include "mockcontrol.h"

#include <QFile>
#include <QtGlobal>

#include <dlfcn.h>

MockControl::MockControl(const QString &libraryPath) : m_path(libraryPath)
{
    // RTLD_LOCAL: the mock's SKF names must not shadow another token
    // library's in the same process. Never closed: see the header.
    void *handle = dlopen(QFile::encodeName(libraryPath).constData(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        m_error = QString::fromLocal8Bit(dlerror());
        return;
    }
#define MOCKCONTROL_RESOLVE(name)                                                                                    \
    p_##name = reinterpret_cast<decltype(p_##name)>(dlsym(handle, "mock_" #name));                                   \
    if (!p_##name) {                                                                                                 \
        m_error = QStringLiteral("%1 does not export mock_" #name).arg(libraryPath);                                 \
        return;                                                                                                      \
    }
    MOCKCONTROL_FUNCTIONS(MOCKCONTROL_RESOLVE)
    MOCKCONTROL_LOG_FUNCTIONS(MOCKCONTROL_RESOLVE)
#undef MOCKCONTROL_RESOLVE
    m_loaded = true;
}

void MockControl::check(const void *fn, const char *name)
{
    if (!fn)
        qFatal("MockControl: mock_%s is not loaded", name);
}

QStringList MockControl::calls() const
{
    check(reinterpret_cast<const void *>(p_calls), "calls");
    return QString::fromUtf8(p_calls()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

int MockControl::count(const char *function) const
{
    check(reinterpret_cast<const void *>(p_call_count), "call_count");
    return p_call_count(function);
}

void MockControl::clearCalls() const
{
    check(reinterpret_cast<const void *>(p_clear_calls), "clear_calls");
    p_clear_calls();
}
