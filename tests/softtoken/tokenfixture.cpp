#include "tokenfixture.h"

#include <QtGlobal>
#include <QDebug>
#include <QFile>

const char *const TokenFixture::UserPin = "12345678";
const char *const TokenFixture::AdminPin = "88888888";
const char *const TokenFixture::App = "TW_APP";

TokenFixture::TokenFixture()
    : m_oldStore(qgetenv("SOFTTOKEN_STORE"))
    , m_hadStore(qEnvironmentVariableIsSet("SOFTTOKEN_STORE"))
    , m_engine(m_dir.path())
{
    qputenv("SOFTTOKEN_STORE", QFile::encodeName(m_dir.path()));
}

TokenFixture::~TokenFixture()
{
    if (m_hadStore)
        qputenv("SOFTTOKEN_STORE", m_oldStore);
    else
        qunsetenv("SOFTTOKEN_STORE");
}

void TokenFixture::useStore(const QString &dir)
{
    qputenv("SOFTTOKEN_STORE", QFile::encodeName(dir));
}

bool TokenFixture::addDevice(const QString &name, const QStringList &containers)
{
    SoftTokenEngine::DeviceOptions opt;
    opt.name = name;
    for (const QString &c : containers) {
        SoftTokenEngine::ContainerSetup setup;
        QString error;
        if (!SoftTokenEngine::ContainerSetup::parse(c, &setup, &error)) {
            qWarning() << error;
            return false;
        }
        opt.containers.append(setup);
    }
    if (!m_engine.createDevice(opt)) {
        qWarning() << m_engine.lastError();
        return false;
    }
    return true;
}

DEVHANDLE TokenFixture::connect(const QString &device)
{
    DEVHANDLE dev = nullptr;
    QByteArray name = device.toUtf8();
    const ULONG rv = SKF_ConnectDev(name.data(), &dev);
    if (rv != SAR_OK)
        qWarning("SKF_ConnectDev(%s) = 0x%08X", name.constData(), rv);
    return rv == SAR_OK ? dev : nullptr;
}

HAPPLICATION TokenFixture::openApp(DEVHANDLE dev, const char *app)
{
    HAPPLICATION h = nullptr;
    QByteArray name(app);
    const ULONG rv = SKF_OpenApplication(dev, name.data(), &h);
    if (rv != SAR_OK)
        qWarning("SKF_OpenApplication(%s) = 0x%08X", app, rv);
    return rv == SAR_OK ? h : nullptr;
}

HCONTAINER TokenFixture::openContainer(HAPPLICATION app, const char *container)
{
    HCONTAINER h = nullptr;
    QByteArray name(container);
    const ULONG rv = SKF_OpenContainer(app, name.data(), &h);
    if (rv != SAR_OK)
        qWarning("SKF_OpenContainer(%s) = 0x%08X", container, rv);
    return rv == SAR_OK ? h : nullptr;
}

bool TokenFixture::login(HAPPLICATION app, const char *pin)
{
    QByteArray p(pin);
    ULONG retry = 0;
    const ULONG rv = SKF_VerifyPIN(app, USER_TYPE, p.data(), &retry);
    if (rv != SAR_OK)
        qWarning("SKF_VerifyPIN = 0x%08X", rv);
    return rv == SAR_OK;
}

HCONTAINER TokenFixture::ready(const QString &device, const char *container, DEVHANDLE *dev, HAPPLICATION *app)
{
    *dev = connect(device);
    *app = *dev ? openApp(*dev) : nullptr;
    if (!*app || !login(*app))
        return nullptr;
    return openContainer(*app, container);
}

QStringList TokenFixture::names(const QByteArray &multi)
{
    QStringList out;
    int pos = 0;
    while (pos < multi.size()) {
        int end = multi.indexOf('\0', pos);
        if (end < 0)
            end = multi.size();
        if (end == pos)
            break;
        out.append(QString::fromUtf8(multi.mid(pos, end - pos)));
        pos = end + 1;
    }
    return out;
}
