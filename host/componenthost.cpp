#include "componenthost.h"

#include <twkey/twkey.h>

const char *const ComponentHost::kProgId = TWKEY_PROG_ID;
const char *const ComponentHost::kInterfaceId = TWKEY_INTERFACE_ID;

ComponentHost::ComponentHost() = default;

ComponentHost::~ComponentHost()
{
    shutdown(false);
}

bool ComponentHost::load(const QString &libraryPath)
{
    if (isLoaded()) {
        m_error = QStringLiteral("a library is already loaded");
        return false;
    }
    m_library.setFileName(libraryPath);
    if (!m_library.load()) {
        m_error = m_library.errorString();
        return false;
    }
    struct Entry
    {
        const char *name;
        QFunctionPointer *slot;
    };
    QFunctionPointer init = nullptr, create = nullptr, destroy = nullptr, version = nullptr;
    const Entry entries[] = {{"ComponentInit", &init},
                             {"CreateComponent", &create},
                             {"ComponentDestroy", &destroy},
                             {"TW_GetVersion", &version}};
    for (const Entry &e : entries) {
        *e.slot = m_library.resolve(e.name);
        if (!*e.slot) {
            m_error = QStringLiteral("%1 does not export %2").arg(libraryPath, QLatin1String(e.name));
            return false;
        }
    }
    m_init = reinterpret_cast<InitFn>(init);
    m_create = reinterpret_cast<CreateFn>(create);
    m_destroy = reinterpret_cast<DestroyFn>(destroy);
    m_version = reinterpret_cast<VersionFn>(version);
    m_error.clear();
    return true;
}

bool ComponentHost::isLoaded() const
{
    return m_init && m_create && m_destroy && m_version;
}

QString ComponentHost::errorString() const
{
    return m_error;
}

bool ComponentHost::init(QObject *core)
{
    if (!isLoaded()) {
        m_error = QStringLiteral("the library is not loaded");
        return false;
    }
    if (!core) {
        m_error = QStringLiteral("no core object");
        return false;
    }
    m_init(core);
    m_initialised = true;
    return true;
}

QObject *ComponentHost::createComponent(const QString &progId, const QString &interfaceId)
{
    // Creating before the core is handed over is a fault in the library,
    // so it is refused here.
    if (!m_initialised) {
        m_error = QStringLiteral("ComponentInit has not been called");
        return nullptr;
    }
    // The library keeps handing out the manager it made first, so after
    // we deleted that one it would hand out a dangling pointer.
    if (m_managerDeleted) {
        m_error = QStringLiteral("the manager of this library was deleted");
        return nullptr;
    }
    QObject *object = m_create(progId, interfaceId);
    if (!object)
        m_error = QStringLiteral("CreateComponent refused %1 / %2").arg(progId, interfaceId);
    return object;
}

QObject *ComponentHost::start(QObject *core)
{
    if (m_manager)
        return m_manager;
    if (!init(core))
        return nullptr;
    m_manager = createComponent();
    return m_manager;
}

QObject *ComponentHost::manager() const
{
    return m_manager;
}

int ComponentHost::getVersion(char *buffer, int *length) const
{
    // A buffer without a length is a fault in the library; refuse it here.
    if (!m_version || (buffer && !length))
        return -2;
    return m_version(buffer, length);
}

void ComponentHost::shutdown(bool deleteManager)
{
    if (deleteManager && m_manager) {
        delete m_manager;
        m_managerDeleted = true;
    }
    m_manager = nullptr;
    if (m_initialised) {
        m_destroy();
        m_initialised = false;
    }
}
