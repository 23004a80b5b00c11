#include "skfcall.h"

#include "cipherkey.h"
#include "devicecache.h"
#include "handleregistry.h"
#include "hashobject.h"
#include "macobject.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <dlfcn.h>
#include <map>
#include <string.h>

namespace {

const int kPinMin = 6;
const int kPinMax = 16;

std::recursive_mutex &callMutex()
{
    static std::recursive_mutex *m = new std::recursive_mutex;
    return *m;
}

// The outermost call of this thread; per thread, as a call that waits
// lets other threads' calls run meanwhile.
thread_local SkfCall *t_outermost = nullptr;

std::mutex &rootMutex()
{
    static std::mutex *m = new std::mutex;
    return *m;
}

QString &rootOverride()
{
    static QString *root = new QString;
    return *root;
}

// A package may give its token a store of its own: the first line of
// "softtoken.store" beside this library, relative to the library's folder.
// Read once: the library does not move.
QString storeBesideLibrary()
{
    static const QString root = [] {
        Dl_info info{};
        if (!dladdr(reinterpret_cast<void *>(&storeBesideLibrary), &info) || !info.dli_fname)
            return QString();
        const QDir dir = QFileInfo(QFile::decodeName(info.dli_fname)).absoluteDir();
        QFile file(dir.filePath(QStringLiteral("softtoken.store")));
        if (!file.open(QIODevice::ReadOnly))
            return QString();
        const QString line = QString::fromUtf8(file.readLine(4096)).trimmed();
        return line.isEmpty() ? QString() : QDir::cleanPath(dir.absoluteFilePath(line));
    }();
    return root;
}

// Wrong PIN tries not yet stored, by store, device, application and PIN.
std::map<QString, int> &owedTries()
{
    static std::map<QString, int> *owed = new std::map<QString, int>;
    return *owed;
}

QString pinKey(AppObject *app, bool admin)
{
    Connection *c = app->connection();
    return c->store().root() + QLatin1Char('\n') + c->device() + QLatin1Char('\n') + app->name()
           + QLatin1String(admin ? "\na" : "\nu");
}

template <class T>
ULONG lookup(const void *handle, TokenObject::Kind kind, T **out)
{
    TokenObject *o = HandleRegistry::instance().find(handle, kind);
    if (!o)
        return SAR_INVALIDHANDLEERR;
    *out = static_cast<T *>(o);
    return SAR_OK;
}

} // namespace

SkfCall::SkfCall(const char *function)
    : m_lock(callMutex())
    , m_function(function)
    , m_outer(t_outermost)
{
    if (!m_outer) {
        t_outermost = this;
        DeviceCache::instance().beginCall();
    }
}

SkfCall::~SkfCall()
{
    if (t_outermost == this)
        t_outermost = nullptr;
}

QString SkfCall::storeRoot()
{
    std::lock_guard<std::mutex> lock(rootMutex());
    if (!rootOverride().isEmpty())
        return rootOverride();
    const QString beside = storeBesideLibrary();
    return beside.isEmpty() ? DeviceStore::defaultRoot() : beside;
}

void SkfCall::setStoreRoot(const QString &root)
{
    std::lock_guard<std::mutex> lock(rootMutex());
    rootOverride() = root;
}

ULONG SkfCall::takeFault(DeviceStore &store, const QString &device, const std::string &faultPath)
{
    FaultPlan::Entry fault;
    if (!DeviceCache::instance().takeFault(store, device, faultPath, m_function, &fault))
        return SAR_OK;
    if (!fault.sizeLie)
        return fault.code;
    m_sizeDelta = fault.sizeDelta;
    if (m_outer)
        m_outer->m_sizeDelta = fault.sizeDelta;
    return SAR_OK;
}

ULONG SkfCall::checkDevice(Connection *connection)
{
    if (!connection->alive())
        return SAR_DEVICE_REMOVED;
    return takeFault(connection->store(), connection->device(), connection->faultPath());
}

ULONG SkfCall::device(DEVHANDLE handle, Connection **out)
{
    const ULONG rv = lookup(handle, TokenObject::ConnectionKind, out);
    return rv != SAR_OK ? rv : checkDevice(*out);
}

ULONG SkfCall::app(HAPPLICATION handle, AppObject **out)
{
    const ULONG rv = lookup(handle, TokenObject::AppKind, out);
    return rv != SAR_OK ? rv : checkDevice((*out)->connection());
}

ULONG SkfCall::container(HCONTAINER handle, ContainerObject **out)
{
    const ULONG rv = lookup(handle, TokenObject::ContainerKind, out);
    return rv != SAR_OK ? rv : checkDevice((*out)->connection());
}

ULONG SkfCall::key(HANDLE handle, CipherKey **out)
{
    const ULONG rv = lookup(handle, TokenObject::KeyKind, out);
    return rv != SAR_OK ? rv : checkDevice((*out)->connection());
}

ULONG SkfCall::hash(HANDLE handle, HashObject **out)
{
    const ULONG rv = lookup(handle, TokenObject::HashKind, out);
    return rv != SAR_OK ? rv : checkDevice((*out)->connection());
}

ULONG SkfCall::mac(HANDLE handle, MacObject **out)
{
    const ULONG rv = lookup(handle, TokenObject::MacKind, out);
    return rv != SAR_OK ? rv : checkDevice((*out)->connection());
}

ULONG SkfCall::named(DeviceStore &store, const QString &device)
{
    return takeFault(store, device, QFile::encodeName(store.path(device, DeviceStore::FaultFile)).toStdString());
}

ULONG SkfCall::anyDevice(DeviceStore &store, const QStringList &devices)
{
    for (const QString &d : devices) {
        const ULONG rv = named(store, d);
        if (rv != SAR_OK || m_sizeDelta != 0)
            return rv;
    }
    return SAR_OK;
}

ULONG SkfCall::presentDevice(DeviceStore &store, LPSTR text, QString *name, const DeviceData **data, QByteArray *token)
{
    const DeviceCache::Listing &devices = DeviceCache::instance().listing(store);
    if (!SkfCall::name(text, 64, name) || !DeviceStore::validDeviceName(*name) || !devices.isPresent.contains(*name))
        return SAR_INVALIDPARAMERR;
    QByteArray presence;
    if (!devices.isPresent.value(*name)
        || (token && (!DeviceStore::readAll(store.path(*name, DeviceStore::PresentFile), &presence) || presence.isEmpty())))
        return SAR_DEVICE_REMOVED;
    const ULONG rv = named(store, *name);
    if (rv != SAR_OK)
        return rv;
    *data = hold(DeviceCache::instance().snapshot(store, *name));
    if (!*data)
        return SAR_READFILEERR;
    if (token)
        *token = presence;
    return SAR_OK;
}

const DeviceData *SkfCall::hold(DeviceCache::SnapshotPtr snapshot)
{
    if (!snapshot)
        return nullptr;
    if (m_held.empty() || m_held.back() != snapshot)
        m_held.push_back(std::move(snapshot));
    return &m_held.back()->data;
}

ULONG SkfCall::data(Connection *connection, const DeviceData **out)
{
    *out = hold(DeviceCache::instance().snapshot(connection));
    return *out ? SAR_OK : SAR_DEVICE_REMOVED;
}

ULONG SkfCall::appData(AppObject *app, const DeviceData::App **out)
{
    const DeviceData *d = nullptr;
    const ULONG rv = data(app->connection(), &d);
    if (rv != SAR_OK)
        return rv;
    *out = d->app(app->name());
    return *out ? SAR_OK : SAR_APPLICATION_NOT_EXISTS;
}

ULONG SkfCall::appData(HAPPLICATION handle, const DeviceData::App **out)
{
    AppObject *object = nullptr;
    const ULONG rv = app(handle, &object);
    return rv != SAR_OK ? rv : appData(object, out);
}

ULONG SkfCall::containerData(ContainerObject *container, const DeviceData::App **app,
                             const DeviceData::Container **out)
{
    const ULONG rv = appData(container->app(), app);
    if (rv != SAR_OK)
        return rv;
    *out = (*app)->container(container->name());
    return *out ? SAR_OK : TW_ERR_CONTAINER_NOT_EXIST;
}

EVP_PKEY *SkfCall::privateKey(ContainerObject *container, bool sign)
{
    const DeviceData *d = nullptr;
    if (data(container->connection(), &d) != SAR_OK)
        return nullptr;
    return m_held.back()->privateKey(container->app()->name(), container->name(), sign);
}

ULONG SkfCall::modify(Connection *connection, const std::function<ULONG(DeviceData &, bool &)> &change)
{
    ULONG result = SAR_OK;
    QString error;
    m_pin.checked = false;
    const bool written = connection->store().update(connection->device(), [&](DeviceData &d) {
        bool persist = true;
        result = change(d, persist);
        return persist;
    }, &error);
    if (m_pin.checked && (written || !error.isEmpty())) {
        // A wrong try stays owed until stored; while anything is owed the
        // PIN is refused, the right one too.
        int &owed = owedTries()[m_pin.key];
        owed = written ? 0 : m_pin.owed + int(m_pin.counted);
        if (!written && !m_pin.right)
            return result;
    }
    if (!written && error.isEmpty())
        return result; // change() chose not to write
    if (!written)
        return connection->store().exists(connection->device()) ? ULONG(SAR_WRITEFILEERR) : ULONG(SAR_DEVICE_REMOVED);
    return result;
}

ULONG SkfCall::modifyApp(AppObject *app, const std::function<ULONG(DeviceData::App &, DeviceData &, bool &)> &change)
{
    return modify(app->connection(), [&](DeviceData &d, bool &persist) -> ULONG {
        DeviceData::App *a = d.app(app->name());
        if (!a) {
            persist = false;
            return SAR_APPLICATION_NOT_EXISTS;
        }
        return change(*a, d, persist);
    });
}

ULONG SkfCall::requireUser(AppObject *app) const
{
    return app->connection()->userLoggedIn(app->name()) ? ULONG(SAR_OK) : ULONG(SAR_USER_NOT_LOGGED_IN);
}

ULONG SkfCall::userContainer(HCONTAINER handle, ContainerObject **out)
{
    const ULONG rv = container(handle, out);
    return rv != SAR_OK ? rv : requireUser((*out)->app());
}

void SkfCall::reportSize(ULONG *len, ULONG actual)
{
    const qint64 shown = qint64(actual) + m_sizeDelta;
    *len = shown < 0 ? 0 : ULONG(shown);
}

bool SkfCall::sizeFirst(ULONG need, BYTE *out, ULONG *len, ULONG *rv)
{
    if (out && len && *len >= need)
        return false;
    *rv = fill(QByteArray(int(need), '\0'), out, len);
    return true;
}

ULONG SkfCall::fill(const QByteArray &bytes, BYTE *out, ULONG *len)
{
    if (!len)
        return SAR_INVALIDPARAMERR;
    const ULONG need = ULONG(bytes.size());
    if (out && *len < need) {
        *len = need;
        return SAR_BUFFER_TOO_SMALL;
    }
    if (out && need)
        memcpy(out, bytes.constData(), need);
    reportSize(len, need);
    return SAR_OK;
}

ULONG SkfCall::fillText(const QByteArray &bytes, LPSTR out, ULONG *len)
{
    return fill(bytes, reinterpret_cast<BYTE *>(out), len);
}

void SkfCall::unlockWhile(const std::function<void()> &wait)
{
    m_lock.unlock();
    wait();
    m_lock.lock();
}

ULONG SkfCall::input(const BYTE *data, ULONG len, QByteArray *out)
{
    if (len == 0) {
        out->clear();
        return SAR_OK;
    }
    if (!data)
        return SAR_INVALIDPARAMERR;
    if (len > MaxInput)
        return SAR_INDATALENERR;
    *out = QByteArray(reinterpret_cast<const char *>(data), int(len));
    return SAR_OK;
}

bool SkfCall::name(const char *text, int maxBytes, QString *out)
{
    if (!text)
        return false;
    const size_t len = strnlen(text, size_t(maxBytes) + 1);
    if (len == 0 || len > size_t(maxBytes))
        return false;
    *out = QString::fromUtf8(text, int(len));
    return true;
}

ULONG SkfCall::nameArg(const char *text, int maxBytes, ULONG unusable, QString *out)
{
    if (!text)
        return SAR_INVALIDPARAMERR;
    return name(text, maxBytes, out) ? ULONG(SAR_OK) : unusable;
}

QByteArray SkfCall::multiString(const QStringList &names)
{
    QByteArray out;
    for (const QString &n : names)
        out.append(n.toUtf8()).append('\0');
    out.append('\0');
    return out;
}

ULONG SkfCall::pinArg(LPSTR pin, QByteArray *out)
{
    if (!pin)
        return SAR_INVALIDPARAMERR;
    const size_t len = strnlen(pin, 257);
    if (len > 256)
        return SAR_PIN_LEN_RANGE;
    *out = QByteArray(pin, int(len));
    return SAR_OK;
}

bool SkfCall::pinLengthOk(const QByteArray &pin)
{
    return pin.size() >= kPinMin && pin.size() <= kPinMax;
}

int SkfCall::remaining(AppObject *app, bool admin, const DeviceData::Pin &pin)
{
    const auto owed = owedTries().find(pinKey(app, admin));
    return qMax(0, pin.remaining - (owed == owedTries().end() ? 0 : owed->second));
}

ULONG SkfCall::checkPin(AppObject *app, bool admin, DeviceData::Pin &pin, const QByteArray &given, ULONG *retry,
                        bool &persist)
{
    m_pin.key = pinKey(app, admin);
    m_pin.owed = owedTries()[m_pin.key];
    m_pin.checked = true;
    m_pin.right = m_pin.counted = false;
    persist = m_pin.owed > 0;
    pin.remaining = qMax(0, pin.remaining - m_pin.owed);
    if (pin.remaining <= 0) {
        if (retry)
            *retry = 0;
        return SAR_PIN_LOCKED;
    }
    if (pin.matches(given)) {
        m_pin.right = true;
        persist = persist || pin.remaining != pin.maxRetries;
        pin.remaining = pin.maxRetries;
        if (retry)
            *retry = ULONG(pin.remaining);
        return SAR_OK;
    }
    --pin.remaining;
    persist = m_pin.counted = true;
    if (retry)
        *retry = ULONG(pin.remaining);
    return pin.remaining == 0 ? SAR_PIN_LOCKED : SAR_PIN_INCORRECT;
}
