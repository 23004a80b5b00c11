#include "mockcontrol.h"

#include <QFile>

#include <dlfcn.h>

MockControl::MockControl(const QString &libraryPath) : m_path(libraryPath)
{
    // RTLD_LOCAL: the mock's SKF names must not shadow another token
    // library's in this process. Never closed.
    void *handle = dlopen(QFile::encodeName(libraryPath).constData(), RTLD_NOW | RTLD_LOCAL);
    m_error = handle ? QString() : QString::fromLocal8Bit(dlerror());
#define MOCKCONTROL_RESOLVE(name)                                                                                    \
    p_##name = handle ? reinterpret_cast<decltype(p_##name)>(dlsym(handle, "mock_" #name)) : nullptr;               \
    if (handle && !p_##name && m_error.isEmpty())                                                                    \
        m_error = libraryPath + QStringLiteral(" does not export mock_" #name);
    MOCKCONTROL_FUNCTIONS(MOCKCONTROL_RESOLVE)
#undef MOCKCONTROL_RESOLVE
    // A test going on without the library would crash somewhere less telling.
    if (!m_error.isEmpty())
        qFatal("MockControl: %s", qPrintable(m_error));
    m_loaded = true;
}

void MockControl::addFile(const char *dev, const char *app, const char *file, const QByteArray &data) const
{
    add_file(dev, app, file, reinterpret_cast<const unsigned char *>(data.constData()), uint(data.size()));
}

void MockControl::setCert(const char *dev, const char *app, const char *container, bool sign, const QByteArray &der) const
{
    set_cert(dev, app, container, sign ? 1 : 0, reinterpret_cast<const unsigned char *>(der.constData()), uint(der.size()));
}

QByteArray MockControl::fileData(const char *dev, const char *app, const char *file) const
{
    QByteArray data(qMax(0, file_info(dev, app, file, nullptr, 0u, nullptr, nullptr)), '\0');
    file_info(dev, app, file, reinterpret_cast<unsigned char *>(data.data()), uint(data.size()), nullptr, nullptr);
    return data;
}

QByteArray MockControl::sealData(const char *dev, const char *app) const
{
    QByteArray data(qMax(0, seal(dev, app, nullptr, 0u)), '\0');
    seal(dev, app, reinterpret_cast<unsigned char *>(data.data()), uint(data.size()));
    return data;
}
