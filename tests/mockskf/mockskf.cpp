// The test token library of the driver and manager tests: an in-memory
// world of devices, applications and containers behind the SKF names, with
// a call log, injectable faults, size lies and device events. It connects,
// lists and opens; every other name is there for the binding and answers
// SAR_NOTSUPPORTYETERR (sessions are tested against the software token).
// Everything runs under one lock so that a device-event thread of the
// library may call in as well.
#include "mockskf.h"

#include "skf/skfapi.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#define MOCK_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using Bytes = std::vector<BYTE>;

struct Container
{
    std::string name;
    ULONG type = CONTAINER_TYPE_EMPTY;
};

struct App
{
    std::string name;
    std::vector<std::unique_ptr<Container>> containers;
};

struct Device
{
    std::string name, serial, label, manufacturer;
    VERSION hw{1, 0}, fw{1, 0};
    ULONG totalSpace = 65536;
    bool present = true;
    unsigned int generation = 0; // bumped on removal: handles of before die
    std::vector<std::unique_ptr<App>> apps;
};

enum class Kind { Device, App, Container };

struct Handle
{
    Kind kind;
    Device *dev = nullptr;
    unsigned int generation = 0;
    App *app = nullptr;
    Container *container = nullptr;
};

struct World
{
    std::vector<std::unique_ptr<Device>> devices;
    std::map<void *, std::unique_ptr<Handle>> handles;
    // Closed handles stay allocated so that their addresses are never given
    // out again: a stale handle must stay invalid.
    std::vector<std::unique_ptr<Handle>> graveyard;
    std::string log;
    std::string snapshot;
    struct Fault
    {
        ULONG code;
        int times;
    };
    std::map<std::string, Fault> faults;
    std::map<std::string, int> sizeDelta;
    std::deque<std::pair<std::string, ULONG>> events;
    unsigned int waitTimeoutMs = 0;
    bool cancelWait = false;
};

std::recursive_mutex g_mutex;
std::condition_variable_any g_eventCv;

World &world()
{
    static World *w = new World; // never destroyed: the library may call in at exit
    return *w;
}

using Lock = std::unique_lock<std::recursive_mutex>;

// ---- call log -------------------------------------------------------------

class Line
{
public:
    explicit Line(const char *function) : m_text(function) {}
    Line &num(const char *key, unsigned long long value)
    {
        return put(key, std::to_string(value));
    }
    Line &ptr(const char *key, const void *p) { return put(key, p ? "set" : "null"); }
    Line &str(const char *key, const char *s) { return put(key, s ? std::string(s) : std::string("null")); }
    Line &text(const char *key, const std::string &s) { return put(key, s); }
    Line &size(const char *key, const ULONG *p) { return p ? num(key, *p) : put(key, "null"); }
    const std::string &textValue() const { return m_text; }

private:
    Line &put(const char *key, const std::string &value)
    {
        m_text += ' ';
        m_text += key;
        m_text += '=';
        m_text += value;
        return *this;
    }
    std::string m_text;
};

// Logs the call; a pending fault answers instead of the function.
std::optional<ULONG> enter(const char *function, const Line &line)
{
    World &w = world();
    w.log += line.textValue();
    w.log += '\n';
    auto it = w.faults.find(function);
    if (it == w.faults.end() || it->second.times == 0)
        return std::nullopt;
    const ULONG code = it->second.code;
    if (it->second.times > 0 && --it->second.times == 0)
        w.faults.erase(it);
    return code;
}

#define MOCK_ENTER(line)                                                                                             \
    Lock lock_(g_mutex);                                                                                             \
    if (std::optional<ULONG> fault_ = enter(__func__, (line)))                                                       \
    return *fault_

int sizeDelta(const char *function)
{
    auto it = world().sizeDelta.find(function);
    return it == world().sizeDelta.end() ? 0 : it->second;
}

ULONG lied(const char *function, size_t n)
{
    const long long v = static_cast<long long>(n) + sizeDelta(function);
    return static_cast<ULONG>(std::max(0LL, v));
}

// The size-then-fill answer of the standard.
// The size-then-fill answer of the standard.
ULONG fill(const char *function, const BYTE *data, size_t n, BYTE *out, ULONG *pulLen)
{
    if (!pulLen)
        return SAR_INVALIDPARAMERR;
    if (!out) {
        *pulLen = lied(function, n);
        return SAR_OK;
    }
    if (*pulLen < n) {
        *pulLen = static_cast<ULONG>(n);
        return SAR_BUFFER_TOO_SMALL;
    }
    if (n)
        std::memcpy(out, data, n);
    *pulLen = static_cast<ULONG>(n);
    return SAR_OK;
}

ULONG fillBytes(const char *function, const Bytes &data, BYTE *out, ULONG *pulLen)
{
    return fill(function, data.data(), data.size(), out, pulLen);
}

Bytes multiString(const std::vector<std::string> &names)
{
    Bytes out;
    for (const std::string &n : names) {
        out.insert(out.end(), n.begin(), n.end());
        out.push_back(0);
    }
    if (!out.empty())
        out.push_back(0);
    return out;
}

// ---- the world ------------------------------------------------------------

Device *findDevice(const std::string &name)
{
    for (auto &d : world().devices)
        if (d->name == name)
            return d.get();
    return nullptr;
}

Device *findDevice(const char *name)
{
    return name ? findDevice(std::string(name)) : nullptr;
}

App *findApp(Device *dev, const std::string &name)
{
    if (!dev)
        return nullptr;
    for (auto &a : dev->apps)
        if (a->name == name)
            return a.get();
    return nullptr;
}

App *findApp(const char *dev, const char *app)
{
    return (dev && app) ? findApp(findDevice(dev), app) : nullptr;
}

Container *findContainer(App *app, const std::string &name)
{
    if (!app)
        return nullptr;
    for (auto &c : app->containers)
        if (c->name == name)
            return c.get();
    return nullptr;
}

Handle *newHandle(Kind kind, Device *dev)
{
    auto h = std::make_unique<Handle>();
    h->kind = kind;
    h->dev = dev;
    h->generation = dev ? dev->generation : 0;
    Handle *raw = h.get();
    world().handles.emplace(raw, std::move(h));
    return raw;
}

template <typename Pred>
void closeHandlesIf(Pred pred)
{
    World &w = world();
    for (auto it = w.handles.begin(); it != w.handles.end();) {
        if (pred(*it->second)) {
            w.graveyard.push_back(std::move(it->second));
            it = w.handles.erase(it);
        } else {
            ++it;
        }
    }
}

void closeHandle(void *h)
{
    closeHandlesIf([h](const Handle &x) { return &x == h; });
}

// Looks a handle up: SAR_INVALIDHANDLEERR for anything that is not a live
// handle of one of the kinds, SAR_DEVICE_REMOVED when its device went away.
ULONG resolve(void *h, std::initializer_list<Kind> kinds, Handle *&out)
{
    out = nullptr;
    auto it = world().handles.find(h);
    if (!h || it == world().handles.end())
        return SAR_INVALIDHANDLEERR;
    Handle *x = it->second.get();
    if (std::find(kinds.begin(), kinds.end(), x->kind) == kinds.end())
        return SAR_INVALIDHANDLEERR;
    if (x->dev && (!x->dev->present || x->dev->generation != x->generation))
        return SAR_DEVICE_REMOVED;
    out = x;
    return SAR_OK;
}

// Declares `h` as the live handle, or answers the lookup's error.
#define MOCK_RESOLVE(h, handle, ...)                                                                                 \
    Handle *h;                                                                                                       \
    if (ULONG resolved_ = resolve((handle), {__VA_ARGS__}, h))                                                       \
    return resolved_

std::string devName(void *h)
{
    auto it = world().handles.find(h);
    return (h && it != world().handles.end() && it->second->dev) ? it->second->dev->name : std::string("invalid");
}

std::string appName(void *h)
{
    auto it = world().handles.find(h);
    return (h && it != world().handles.end() && it->second->app) ? it->second->app->name : std::string("invalid");
}

void copyText(CHAR *field, size_t size, const std::string &text)
{
    std::memset(field, 0, size);
    std::memcpy(field, text.data(), std::min(size, text.size()));
}

void queueEvent(const std::string &dev, ULONG event)
{
    world().events.emplace_back(dev, event);
    g_eventCv.notify_all();
}

Container *newContainer(App *app, const std::string &name, ULONG type)
{
    auto c = std::make_unique<Container>();
    c->name = name;
    c->type = type;
    Container *raw = c.get();
    app->containers.push_back(std::move(c));
    return raw;
}

std::vector<std::string> containerNames(const App *app)
{
    std::vector<std::string> names;
    for (const auto &c : app->containers)
        names.push_back(c->name);
    return names;
}

} // namespace

// ============================================================================
// Control interface
// ============================================================================

MOCK_EXPORT void mock_reset(void)
{
    Lock lock(g_mutex);
    World &w = world();
    closeHandlesIf([](const Handle &) { return true; });
    w.devices.clear();
    w.log.clear();
    w.faults.clear();
    w.sizeDelta.clear();
    w.events.clear();
    w.waitTimeoutMs = 0;
    w.cancelWait = false;
}

MOCK_EXPORT void mock_add_device(const char *dev, const char *serial)
{
    Lock lock(g_mutex);
    if (!dev || findDevice(dev))
        return;
    auto d = std::make_unique<Device>();
    d->name = dev;
    d->serial = serial ? serial : "";
    d->label = dev;
    d->manufacturer = "mock token maker";
    world().devices.push_back(std::move(d));
}

MOCK_EXPORT void mock_set_present(const char *dev, int present)
{
    Lock lock(g_mutex);
    Device *d = findDevice(dev);
    if (!d || d->present == (present != 0))
        return;
    d->present = present != 0;
    if (!d->present)
        ++d->generation;
    queueEvent(d->name, d->present ? SKF_DEV_EVENT_INSERT : SKF_DEV_EVENT_REMOVE);
}

MOCK_EXPORT void mock_set_serial(const char *dev, const char *serial)
{
    Lock lock(g_mutex);
    if (Device *d = findDevice(dev))
        d->serial = serial ? serial : "";
}

MOCK_EXPORT void mock_add_app(const char *dev, const char *app)
{
    Lock lock(g_mutex);
    Device *d = findDevice(dev);
    if (!d || !app || findApp(d, app))
        return;
    auto a = std::make_unique<App>();
    a->name = app;
    d->apps.push_back(std::move(a));
}

MOCK_EXPORT void mock_add_container(const char *dev, const char *app, const char *container, unsigned int type)
{
    Lock lock(g_mutex);
    App *a = findApp(dev, app);
    if (a && container && !findContainer(a, container))
        newContainer(a, container, type);
}

MOCK_EXPORT void mock_fail(const char *function, unsigned int code, int times)
{
    Lock lock(g_mutex);
    if (!function)
        return;
    if (times == 0)
        world().faults.erase(function);
    else
        world().faults[function] = World::Fault{code, times};
}

MOCK_EXPORT void mock_size_delta(const char *function, int delta)
{
    Lock lock(g_mutex);
    if (function)
        world().sizeDelta[function] = delta;
}

MOCK_EXPORT void mock_clear_faults(void)
{
    Lock lock(g_mutex);
    world().faults.clear();
    world().sizeDelta.clear();
}

MOCK_EXPORT const char *mock_calls(void)
{
    Lock lock(g_mutex);
    world().snapshot = world().log;
    return world().snapshot.c_str();
}

MOCK_EXPORT int mock_call_count(const char *function)
{
    Lock lock(g_mutex);
    if (!function)
        return 0;
    const std::string &log = world().log;
    const size_t n = std::strlen(function);
    int count = 0;
    size_t pos = 0;
    while (pos < log.size()) {
        size_t end = log.find('\n', pos);
        if (end == std::string::npos)
            end = log.size();
        if (end - pos >= n && log.compare(pos, n, function) == 0 && (end - pos == n || log[pos + n] == ' '))
            ++count;
        pos = end + 1;
    }
    return count;
}

MOCK_EXPORT void mock_clear_calls(void)
{
    Lock lock(g_mutex);
    world().log.clear();
}

MOCK_EXPORT void mock_set_wait_timeout(unsigned int milliseconds)
{
    Lock lock(g_mutex);
    world().waitTimeoutMs = milliseconds;
}

// ============================================================================
// Devices, applications, containers
// ============================================================================

MOCK_EXPORT ULONG SKF_WaitForDevEvent(LPSTR szDevName, ULONG *pulDevNameLen, ULONG *pulEvent)
{
    MOCK_ENTER(Line(__func__).size("size", pulDevNameLen));
    World &w = world();
    if (!szDevName || !pulDevNameLen || !pulEvent)
        return SAR_INVALIDPARAMERR;
    w.cancelWait = false;
    g_eventCv.wait_for(lock_, std::chrono::milliseconds(w.waitTimeoutMs),
                       [&w] { return !w.events.empty() || w.cancelWait; });
    if (w.events.empty())
        return SAR_NOT_EVENTERR;
    const auto event = w.events.front();
    if (*pulDevNameLen < event.first.size() + 1) {
        *pulDevNameLen = static_cast<ULONG>(event.first.size() + 1);
        return SAR_BUFFER_TOO_SMALL;
    }
    w.events.pop_front();
    std::memcpy(szDevName, event.first.c_str(), event.first.size() + 1);
    *pulDevNameLen = static_cast<ULONG>(event.first.size());
    *pulEvent = event.second;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_CancelWaitForDevEvent(void)
{
    MOCK_ENTER(Line(__func__));
    world().cancelWait = true;
    g_eventCv.notify_all();
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_EnumDev(BOOL bPresent, LPSTR szNameList, ULONG *pulSize)
{
    MOCK_ENTER(Line(__func__).num("present", bPresent ? 1 : 0).ptr("buf", szNameList).size("size", pulSize));
    std::vector<std::string> names;
    for (const auto &d : world().devices)
        if (d->present || !bPresent)
            names.push_back(d->name);
    return fillBytes(__func__, multiString(names), reinterpret_cast<BYTE *>(szNameList), pulSize);
}

MOCK_EXPORT ULONG SKF_ConnectDev(LPSTR szName, DEVHANDLE *phDev)
{
    MOCK_ENTER(Line(__func__).str("name", szName));
    if (!szName || !phDev)
        return SAR_INVALIDPARAMERR;
    Device *d = findDevice(szName);
    if (!d || !d->present)
        return SAR_DEVICE_REMOVED;
    *phDev = newHandle(Kind::Device, d);
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_DisConnectDev(DEVHANDLE hDev)
{
    MOCK_ENTER(Line(__func__).text("dev", devName(hDev)));
    Handle *h;
    const ULONG r = resolve(hDev, {Kind::Device}, h);
    if (r == SAR_INVALIDHANDLEERR)
        return r;
    // A removed device still lets its handle go.
    closeHandle(hDev);
    return r;
}

MOCK_EXPORT ULONG SKF_GetDevState(LPSTR szDevName, ULONG *pulDevState)
{
    MOCK_ENTER(Line(__func__).str("name", szDevName));
    if (!szDevName || !pulDevState)
        return SAR_INVALIDPARAMERR;
    Device *d = findDevice(szDevName);
    *pulDevState = !d ? DEV_UNKNOW_STATE : d->present ? DEV_PRESENT_STATE : DEV_ABSENT_STATE;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_GetDevInfo(DEVHANDLE hDev, DEVINFO *pDevInfo)
{
    MOCK_ENTER(Line(__func__).text("dev", devName(hDev)));
    MOCK_RESOLVE(h, hDev, Kind::Device);
    if (!pDevInfo)
        return SAR_INVALIDPARAMERR;
    const Device *d = h->dev;
    std::memset(pDevInfo, 0, sizeof(DEVINFO));
    pDevInfo->Version = VERSION{1, 0};
    copyText(pDevInfo->Manufacturer, sizeof pDevInfo->Manufacturer, d->manufacturer);
    copyText(pDevInfo->Issuer, sizeof pDevInfo->Issuer, "mock issuer");
    copyText(pDevInfo->Label, sizeof pDevInfo->Label, d->label);
    copyText(pDevInfo->SerialNumber, sizeof pDevInfo->SerialNumber, d->serial);
    pDevInfo->HWVersion = d->hw;
    pDevInfo->FirmwareVersion = d->fw;
    pDevInfo->AlgSymCap = SGD_SM4_ECB | SGD_SM4_CBC;
    pDevInfo->AlgAsymCap = SGD_RSA | SGD_SM2_1;
    pDevInfo->AlgHashCap = SGD_SM3 | SGD_SHA1 | SGD_SHA256;
    pDevInfo->DevAuthAlgId = SGD_SM4_ECB;
    pDevInfo->TotalSpace = d->totalSpace;
    pDevInfo->FreeSpace = d->totalSpace;
    pDevInfo->MaxECCBufferSize = 1024;
    pDevInfo->MaxBufferSize = 2048;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_EnumApplication(DEVHANDLE hDev, LPSTR szAppName, ULONG *pulSize)
{
    MOCK_ENTER(Line(__func__).text("dev", devName(hDev)).ptr("buf", szAppName).size("size", pulSize));
    MOCK_RESOLVE(h, hDev, Kind::Device);
    std::vector<std::string> names;
    for (const auto &a : h->dev->apps)
        names.push_back(a->name);
    return fillBytes(__func__, multiString(names), reinterpret_cast<BYTE *>(szAppName), pulSize);
}

MOCK_EXPORT ULONG SKF_OpenApplication(DEVHANDLE hDev, LPSTR szAppName, HAPPLICATION *phApplication)
{
    MOCK_ENTER(Line(__func__).text("dev", devName(hDev)).str("name", szAppName));
    MOCK_RESOLVE(h, hDev, Kind::Device);
    if (!phApplication)
        return SAR_INVALIDPARAMERR;
    App *a = szAppName ? findApp(h->dev, szAppName) : nullptr;
    if (!a)
        return SAR_APPLICATION_NOT_EXISTS;
    Handle *ah = newHandle(Kind::App, h->dev);
    ah->app = a;
    *phApplication = ah;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_CloseApplication(HAPPLICATION hApplication)
{
    MOCK_ENTER(Line(__func__).text("app", appName(hApplication)));
    Handle *h;
    const ULONG r = resolve(hApplication, {Kind::App}, h);
    if (r == SAR_INVALIDHANDLEERR)
        return r;
    closeHandle(hApplication);
    return r;
}

MOCK_EXPORT ULONG SKF_EnumContainer(HAPPLICATION hApplication, LPSTR szContainerName, ULONG *pulSize)
{
    MOCK_ENTER(Line(__func__).ptr("buf", szContainerName).size("size", pulSize));
    MOCK_RESOLVE(h, hApplication, Kind::App);
    return fillBytes(__func__, multiString(containerNames(h->app)), reinterpret_cast<BYTE *>(szContainerName),
                     pulSize);
}

MOCK_EXPORT ULONG SKF_OpenContainer(HAPPLICATION hApplication, LPSTR szContainerName, HCONTAINER *phContainer)
{
    MOCK_ENTER(Line(__func__).str("name", szContainerName));
    MOCK_RESOLVE(h, hApplication, Kind::App);
    if (!phContainer)
        return SAR_INVALIDPARAMERR;
    Container *c = szContainerName ? findContainer(h->app, szContainerName) : nullptr;
    if (!c)
        return TW_ERR_CONTAINER_NOT_EXIST;
    Handle *ch = newHandle(Kind::Container, h->dev);
    ch->app = h->app;
    ch->container = c;
    *phContainer = ch;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_CloseContainer(HCONTAINER hContainer)
{
    MOCK_ENTER(Line(__func__));
    Handle *h;
    const ULONG r = resolve(hContainer, {Kind::Container}, h);
    if (r != SAR_INVALIDHANDLEERR)
        closeHandle(hContainer);
    return r;
}

MOCK_EXPORT ULONG SKF_GetContainerType(HCONTAINER hContainer, ULONG *pulContainerType)
{
    MOCK_ENTER(Line(__func__));
    MOCK_RESOLVE(h, hContainer, Kind::Container);
    if (!pulContainerType)
        return SAR_INVALIDPARAMERR;
    *pulContainerType = h->container->type;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_GenRandom(DEVHANDLE hDev, BYTE *pbRandom, ULONG ulRandomLen)
{
    MOCK_ENTER(Line(__func__).text("dev", devName(hDev)).num("len", ulRandomLen));
    MOCK_RESOLVE(h, hDev, Kind::Device);
    if (!pbRandom && ulRandomLen)
        return SAR_INVALIDPARAMERR;
    static BYTE counter = 0;
    for (ULONG i = 0; i < ulRandomLen; ++i)
        pbRandom[i] = ++counter;
    return SAR_OK;
}

// ============================================================================
// The other names: logged, faults applied, not supported
// ============================================================================

#define MOCK_UNSUPPORTED(name, params)                                                                               \
    MOCK_EXPORT ULONG name params                                                                                    \
    {                                                                                                                \
        MOCK_ENTER(Line(__func__));                                                                                  \
        return SAR_NOTSUPPORTYETERR;                                                                                 \
    }
MOCK_UNSUPPORTED(name, ())
MOCK_UNSUPPORTED(SKF_SetLabel, (DEVHANDLE, LPSTR))
MOCK_UNSUPPORTED(SKF_LockDev, (DEVHANDLE, ULONG))
MOCK_UNSUPPORTED(SKF_UnlockDev, (DEVHANDLE))
MOCK_UNSUPPORTED(SKF_Transmit, (DEVHANDLE, BYTE *, ULONG, BYTE *, ULONG *))
MOCK_UNSUPPORTED(SKF_ChangeDevAuthKey, (DEVHANDLE, BYTE *, ULONG))
MOCK_UNSUPPORTED(SKF_DevAuth, (DEVHANDLE, BYTE *, ULONG))
MOCK_UNSUPPORTED(SKF_ChangePIN, (HAPPLICATION, ULONG, LPSTR, LPSTR, ULONG *))
MOCK_UNSUPPORTED(SKF_GetPINInfo, (HAPPLICATION, ULONG, ULONG *, ULONG *, BOOL *))
MOCK_UNSUPPORTED(SKF_VerifyPIN, (HAPPLICATION, ULONG, LPSTR, ULONG *))
MOCK_UNSUPPORTED(SKF_UnblockPIN, (HAPPLICATION, LPSTR, LPSTR, ULONG *))
MOCK_UNSUPPORTED(SKF_GenRemoteUnblockRequest, (HAPPLICATION, BYTE *, ULONG))
MOCK_UNSUPPORTED(SKF_RemoteUnblockPIN, (HAPPLICATION, BYTE *, ULONG))
MOCK_UNSUPPORTED(SKF_ClearSecureState, (HAPPLICATION))
MOCK_UNSUPPORTED(SKF_CreateFile, (HAPPLICATION, LPSTR, ULONG, ULONG, ULONG))
MOCK_UNSUPPORTED(SKF_DeleteFile, (HAPPLICATION, LPSTR))
MOCK_UNSUPPORTED(SKF_EnumFiles, (HAPPLICATION, LPSTR, ULONG *))
MOCK_UNSUPPORTED(SKF_GetFileInfo, (HAPPLICATION, LPSTR, FILEATTRIBUTE *))
MOCK_UNSUPPORTED(SKF_ReadFile, (HAPPLICATION, LPSTR, ULONG, ULONG, BYTE *, ULONG *))
MOCK_UNSUPPORTED(SKF_WriteFile, (HAPPLICATION, LPSTR, ULONG, BYTE *, ULONG))
MOCK_UNSUPPORTED(SKF_CreateApplication, (DEVHANDLE, LPSTR, LPSTR, DWORD, LPSTR, DWORD, DWORD, HAPPLICATION *))
MOCK_UNSUPPORTED(SKF_DeleteApplication, (DEVHANDLE, LPSTR))
MOCK_UNSUPPORTED(SKF_CreateContainer, (HAPPLICATION, LPSTR, HCONTAINER *))
MOCK_UNSUPPORTED(SKF_DeleteContainer, (HAPPLICATION, LPSTR))
MOCK_UNSUPPORTED(SKF_ImportCertificate, (HCONTAINER, BOOL, BYTE *, ULONG))
MOCK_UNSUPPORTED(SKF_ExportCertificate, (HCONTAINER, BOOL, BYTE *, ULONG *))
MOCK_UNSUPPORTED(SKF_GenRSAKeyPair, (HCONTAINER, ULONG, RSAPUBLICKEYBLOB *))
MOCK_UNSUPPORTED(SKF_ImportRSAKeyPair, (HCONTAINER, ULONG, BYTE *, ULONG, BYTE *, ULONG))
MOCK_UNSUPPORTED(SKF_RSASignData, (HCONTAINER, BYTE *, ULONG, BYTE *, ULONG *))
MOCK_UNSUPPORTED(SKF_RSAVerify, (DEVHANDLE, RSAPUBLICKEYBLOB *, BYTE *, ULONG, BYTE *, ULONG))
MOCK_UNSUPPORTED(SKF_RSAExportSessionKey, (HCONTAINER, ULONG, RSAPUBLICKEYBLOB *, BYTE *, ULONG *, HANDLE *))
MOCK_UNSUPPORTED(SKF_GenECCKeyPair, (HCONTAINER, ULONG, ECCPUBLICKEYBLOB *))
MOCK_UNSUPPORTED(SKF_ImportECCKeyPair, (HCONTAINER, PENVELOPEDKEYBLOB))
MOCK_UNSUPPORTED(SKF_ECCSignData, (HCONTAINER, BYTE *, ULONG, PECCSIGNATUREBLOB))
MOCK_UNSUPPORTED(SKF_ECCVerify, (DEVHANDLE, ECCPUBLICKEYBLOB *, BYTE *, ULONG, PECCSIGNATUREBLOB))
MOCK_UNSUPPORTED(SKF_GenerateAgreementDataWithECC, (HCONTAINER, ULONG, ECCPUBLICKEYBLOB *, BYTE *, ULONG, HANDLE *))
MOCK_UNSUPPORTED(SKF_GenerateAgreementDataAndKeyWithECC, (HANDLE, ULONG, ECCPUBLICKEYBLOB *, ECCPUBLICKEYBLOB *, ECCPUBLICKEYBLOB *, BYTE *, ULONG, BYTE *, ULONG, HANDLE *))
MOCK_UNSUPPORTED(SKF_GenerateKeyWithECC, (HANDLE, ECCPUBLICKEYBLOB *, ECCPUBLICKEYBLOB *, BYTE *, ULONG, HANDLE *))
MOCK_UNSUPPORTED(SKF_ECCExportSessionKey, (HCONTAINER, ULONG, ECCPUBLICKEYBLOB *, PECCCIPHERBLOB, HANDLE *))
MOCK_UNSUPPORTED(SKF_ExportPublicKey, (HCONTAINER, BOOL, BYTE *, ULONG *))
MOCK_UNSUPPORTED(SKF_ImportSessionKey, (HCONTAINER, ULONG, BYTE *, ULONG, HANDLE *))
MOCK_UNSUPPORTED(SKF_EncryptInit, (HANDLE, BLOCKCIPHERPARAM))
MOCK_UNSUPPORTED(SKF_Encrypt, (HANDLE, BYTE *, ULONG, BYTE *, ULONG *))
MOCK_UNSUPPORTED(SKF_EncryptUpdate, (HANDLE, BYTE *, ULONG, BYTE *, ULONG *))
MOCK_UNSUPPORTED(SKF_EncryptFinal, (HANDLE, BYTE *, ULONG *))
MOCK_UNSUPPORTED(SKF_DecryptInit, (HANDLE, BLOCKCIPHERPARAM))
MOCK_UNSUPPORTED(SKF_Decrypt, (HANDLE, BYTE *, ULONG, BYTE *, ULONG *))
MOCK_UNSUPPORTED(SKF_DecryptUpdate, (HANDLE, BYTE *, ULONG, BYTE *, ULONG *))
MOCK_UNSUPPORTED(SKF_DecryptFinal, (HANDLE, BYTE *, ULONG *))
MOCK_UNSUPPORTED(SKF_DigestInit, (DEVHANDLE, ULONG, ECCPUBLICKEYBLOB *, unsigned char *, ULONG, HANDLE *))
MOCK_UNSUPPORTED(SKF_Digest, (HANDLE, BYTE *, ULONG, BYTE *, ULONG *))
MOCK_UNSUPPORTED(SKF_DigestUpdate, (HANDLE, BYTE *, ULONG))
MOCK_UNSUPPORTED(SKF_DigestFinal, (HANDLE, BYTE *, ULONG *))
MOCK_UNSUPPORTED(SKF_MacInit, (HANDLE, BLOCKCIPHERPARAM *, HANDLE *))
MOCK_UNSUPPORTED(SKF_Mac, (HANDLE, BYTE *, ULONG, BYTE *, ULONG *))
MOCK_UNSUPPORTED(SKF_MacUpdate, (HANDLE, BYTE *, ULONG))
MOCK_UNSUPPORTED(SKF_MacFinal, (HANDLE, BYTE *, ULONG *))
MOCK_UNSUPPORTED(SKF_CloseHandle, (HANDLE))
MOCK_UNSUPPORTED(SKF_SetSymmKey, (DEVHANDLE, BYTE *, ULONG, HANDLE *))
MOCK_UNSUPPORTED(SKF_ECCPrvKeyDecryptEx, (HCONTAINER, BOOL, PECCCIPHERBLOB, BYTE *, ULONG *))
MOCK_UNSUPPORTED(SKF_ExtECCEncrypt, (DEVHANDLE, ECCPUBLICKEYBLOB *, BYTE *, ULONG, PECCCIPHERBLOB))
MOCK_UNSUPPORTED(EPS_Decrypt, (HCONTAINER, ULONG, ULONG, BYTE *, ULONG, BYTE *, ULONG, BYTE *, ULONG *, ULONG))
MOCK_UNSUPPORTED(EPS_Encrypt, (HCONTAINER, ULONG, ULONG, BYTE *, ULONG, BYTE *, ULONG, BYTE *, ULONG *, ULONG))
MOCK_UNSUPPORTED(EPS_ImportSymmKey, (HCONTAINER, ULONG, BYTE *, ULONG, ULONG))
MOCK_UNSUPPORTED(EPS_Mac, (HCONTAINER, ULONG, ULONG, BYTE *, ULONG, BYTE *, ULONG, BYTE *, ULONG *, ULONG))
MOCK_UNSUPPORTED(EPS_ReadESealData, (HAPPLICATION, ULONG, ULONG, BYTE *, ULONG *, ULONG))
MOCK_UNSUPPORTED(EPS_WriteESealData, (HAPPLICATION, BYTE *, ULONG, ULONG))
