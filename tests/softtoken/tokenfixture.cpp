#include "tokenfixture.h"

#include <QDebug>

bool TokenFixture::addDevice(const QString &name, const QStringList &containers)
{
    SoftTokenEngine::DeviceOptions opt;
    opt.name = name;
    QString error;
    for (const QString &c : containers) {
        opt.containers.append(SoftTokenEngine::ContainerSetup());
        if (!SoftTokenEngine::ContainerSetup::parse(c, &opt.containers.last(), &error))
            return qWarning() << error, false;
    }
    return m_engine.createDevice(opt) || (qWarning() << m_engine.lastError(), false);
}

namespace {
// The handle (read after the call) when it succeeded, else null and a warning.
template <typename H> H checked(const char *what, const char *name, ULONG r, const H &handle)
{
    if (r != SAR_OK)
        qWarning("%s(%s) = 0x%08X", what, name, r);
    return r == SAR_OK ? handle : H();
}
} // namespace

DEVHANDLE TokenFixture::connect(const QString &device)
{
    DEVHANDLE h = nullptr;
    return checked("SKF_ConnectDev", qPrintable(device), SKF_ConnectDev(device.toUtf8().data(), &h), h);
}

HAPPLICATION TokenFixture::openApp(DEVHANDLE dev, const char *app)
{
    HAPPLICATION h = nullptr;
    return checked("SKF_OpenApplication", app, SKF_OpenApplication(dev, QByteArray(app).data(), &h), h);
}

HCONTAINER TokenFixture::openContainer(HAPPLICATION app, const char *container)
{
    HCONTAINER h = nullptr;
    return checked("SKF_OpenContainer", container, SKF_OpenContainer(app, QByteArray(container).data(), &h), h);
}

bool TokenFixture::login(HAPPLICATION app, const char *pin)
{
    ULONG retry = 0;
    return checked("SKF_VerifyPIN", pin, SKF_VerifyPIN(app, USER_TYPE, QByteArray(pin).data(), &retry), true);
}

HCONTAINER TokenFixture::ready(const QString &device, const char *container, DEVHANDLE *dev, HAPPLICATION *app)
{
    *dev = connect(device);
    *app = *dev ? openApp(*dev) : nullptr;
    return *app && login(*app) ? openContainer(*app, container) : nullptr;
}
