// The test token library: an in-memory token world behind the SKF names,
// with a call log and injectable faults. Everything runs under one lock so
// that a device-event thread of the library may call in as well.
#include "mockskf.h"

#include "skf/skfapi.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
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

const unsigned int kDefaultRetry = 10;
const char *const kDefaultAdminPin = "88888888";
const char *const kDefaultUserPin = "12345678";

struct Pin
{
    std::string value;
    unsigned int maxRetry = kDefaultRetry;
    unsigned int remain = kDefaultRetry;
    bool isDefault = true;
};

struct File
{
    std::string name;
    Bytes data;
    ULONG readRights = SECURE_ANYONE_ACCOUNT;
    ULONG writeRights = SECURE_ANYONE_ACCOUNT;
};

struct Container
{
    std::string name;
    ULONG type = CONTAINER_TYPE_EMPTY;
    ULONG rsaBits = 2048;
    unsigned int signKey = 0; // key identities; 0: no key
    unsigned int encKey = 0;
    Bytes signCert, encCert;
    std::map<ULONG, Bytes> symmKeys; // EPS keys by index
};

struct App
{
    std::string name;
    Pin pins[2];
    bool loggedIn[2] = {false, false};
    std::vector<std::unique_ptr<Container>> containers;
    std::vector<File> files;
    Bytes seal;
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

enum class Kind { Device, App, Container, Hash, Key, Mac, Agreement };

struct Handle
{
    Kind kind;
    Device *dev = nullptr;
    unsigned int generation = 0;
    App *app = nullptr;
    Container *container = nullptr;
    // Hash objects.
    ULONG alg = 0;
    Bytes prefix;
    // Session keys: XOR key bytes, and whether an operation was set up.
    Bytes key;
    bool encInit = false, decInit = false;
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
    bool loginRequired = true;
    unsigned int keyCounter = 0;
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

// ---- fake crypto ----------------------------------------------------------

uint64_t fnv(const Bytes &data, uint64_t h = 1469598103934665603ULL)
{
    for (BYTE b : data) {
        h ^= b;
        h *= 1099511628211ULL;
    }
    return h;
}

Bytes expand(uint64_t seed, size_t n)
{
    Bytes out;
    uint64_t x = seed;
    while (out.size() < n) {
        x += 0x9E3779B97F4A7C15ULL;
        uint64_t z = x;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        z ^= z >> 31;
        for (int i = 0; i < 8 && out.size() < n; ++i)
            out.push_back(static_cast<BYTE>(z >> (8 * i)));
    }
    return out;
}

Bytes concat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes &p : parts)
        out.insert(out.end(), p.begin(), p.end());
    return out;
}

Bytes fromRaw(const void *p, size_t n)
{
    if (!p || !n)
        return Bytes();
    const BYTE *b = static_cast<const BYTE *>(p);
    return Bytes(b, b + n);
}

Bytes fromText(const std::string &s)
{
    return Bytes(s.begin(), s.end());
}

Bytes eccPublicKey(unsigned int keyId)
{
    Bytes blob(SKF_ECCPUBLICKEYBLOB_SIZE, 0);
    const ULONG bits = 256;
    std::memcpy(blob.data(), &bits, 4);
    const Bytes x = expand(keyId * 2ULL + 1, 32), y = expand(keyId * 2ULL + 2, 32);
    std::copy(x.begin(), x.end(), blob.begin() + 4 + 32);
    std::copy(y.begin(), y.end(), blob.begin() + 4 + 64 + 32);
    return blob;
}

Bytes rsaPublicKey(unsigned int keyId, ULONG bits)
{
    Bytes blob(SKF_RSAPUBLICKEYBLOB_SIZE, 0);
    const ULONG alg = SGD_RSA;
    std::memcpy(blob.data(), &alg, 4);
    std::memcpy(blob.data() + 4, &bits, 4);
    const size_t n = std::min<size_t>(bits / 8, MAX_RSA_MODULUS_LEN);
    const Bytes mod = expand(keyId * 7ULL + 3, n);
    std::copy(mod.begin(), mod.end(), blob.begin() + 8 + (MAX_RSA_MODULUS_LEN - n));
    const BYTE e[4] = {0, 1, 0, 1};
    std::copy(e, e + 4, blob.begin() + 8 + MAX_RSA_MODULUS_LEN);
    return blob;
}

Bytes publicKeyOf(const Container &c, bool sign)
{
    const unsigned int id = sign ? c.signKey : c.encKey;
    if (!id)
        return Bytes();
    return c.type == CONTAINER_TYPE_RSA ? rsaPublicKey(id, c.rsaBits) : eccPublicKey(id);
}

Bytes eccSignature(const Bytes &publicKey, const Bytes &data)
{
    const uint64_t h = fnv(data, fnv(publicKey));
    Bytes sig(SKF_ECCSIGNATUREBLOB_SIZE, 0);
    const Bytes r = concat({fromText("mock-r::"), expand(h, 24)});
    const Bytes s = concat({fromText("mock-s::"), expand(h ^ 0x5555, 24)});
    std::copy(r.begin(), r.end(), sig.begin() + 32);
    std::copy(s.begin(), s.end(), sig.begin() + 96);
    return sig;
}

Bytes rsaSignature(const Bytes &publicKey, const Bytes &data, ULONG bits)
{
    return concat({fromText("mock-rsa"), expand(fnv(data, fnv(publicKey)), bits / 8 - 8)});
}

size_t hashLength(ULONG alg)
{
    return alg == SGD_SHA1 ? 20 : 32;
}

Bytes xorWith(const Bytes &key, const BYTE *data, ULONG len)
{
    Bytes out = fromRaw(data, len);
    if (!key.empty())
        for (size_t i = 0; i < out.size(); ++i)
            out[i] ^= key[i % key.size()];
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

File *findFile(App *app, const std::string &name)
{
    if (!app)
        return nullptr;
    for (File &f : app->files)
        if (f.name == name)
            return &f;
    return nullptr;
}

void logout(Device *dev)
{
    for (auto &a : dev->apps)
        a->loggedIn[0] = a->loggedIn[1] = false;
}

ULONG usedSpace(const Device *dev)
{
    size_t used = 0;
    for (const auto &a : dev->apps)
        for (const File &f : a->files)
            used += f.data.size();
    return static_cast<ULONG>(used);
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

bool loginMissing(const App *app)
{
    return world().loginRequired && !app->loggedIn[USER_TYPE];
}

bool mayAccess(const App *app, ULONG rights)
{
    if (rights == SECURE_ANYONE_ACCOUNT)
        return true;
    return ((rights & SECURE_USER_ACCOUNT) && app->loggedIn[USER_TYPE]) ||
           ((rights & SECURE_ADM_ACCOUNT) && app->loggedIn[ADMIN_TYPE]);
}

ULONG checkPin(App *app, ULONG type, const char *pin, ULONG *pulRetryCount)
{
    if (type != ADMIN_TYPE && type != USER_TYPE)
        return SAR_USER_TYPE_INVALID;
    if (!pin)
        return SAR_INVALIDPARAMERR;
    Pin &p = app->pins[type];
    if (p.remain == 0) {
        if (pulRetryCount)
            *pulRetryCount = 0;
        return SAR_PIN_LOCKED;
    }
    if (p.value != pin) {
        --p.remain;
        app->loggedIn[type] = false;
        if (pulRetryCount)
            *pulRetryCount = p.remain;
        return p.remain == 0 ? SAR_PIN_LOCKED : SAR_PIN_INCORRECT;
    }
    p.remain = p.maxRetry;
    if (pulRetryCount)
        *pulRetryCount = p.remain;
    return SAR_OK;
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
    if (type != CONTAINER_TYPE_EMPTY) {
        c->signKey = ++world().keyCounter;
        c->encKey = ++world().keyCounter;
    }
    Container *raw = c.get();
    app->containers.push_back(std::move(c));
    return raw;
}

// Closes the container's handles first: they must not outlive it.
void removeContainer(App *app, Container *c)
{
    closeHandlesIf([c](const Handle &x) { return x.container == c; });
    auto &cs = app->containers;
    cs.erase(std::find_if(cs.begin(), cs.end(), [c](const std::unique_ptr<Container> &x) { return x.get() == c; }));
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
    w.loginRequired = true;
    w.keyCounter = 0;
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
    if (!d->present) {
        ++d->generation;
        logout(d);
    }
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
    a->pins[ADMIN_TYPE].value = kDefaultAdminPin;
    a->pins[USER_TYPE].value = kDefaultUserPin;
    d->apps.push_back(std::move(a));
}

MOCK_EXPORT void mock_add_container(const char *dev, const char *app, const char *container, unsigned int type)
{
    Lock lock(g_mutex);
    App *a = findApp(dev, app);
    if (a && container && !findContainer(a, container))
        newContainer(a, container, type);
}

MOCK_EXPORT void mock_add_file(const char *dev, const char *app, const char *file, const unsigned char *data,
                               unsigned int len)
{
    Lock lock(g_mutex);
    App *a = findApp(dev, app);
    if (!a || !file)
        return;
    File *f = findFile(a, file);
    if (!f) {
        a->files.push_back(File());
        f = &a->files.back();
        f->name = file;
    }
    f->data = fromRaw(data, len);
}

MOCK_EXPORT int mock_file_exists(const char *dev, const char *app, const char *file)
{
    Lock lock(g_mutex);
    return (file && findFile(findApp(dev, app), file)) ? 1 : 0;
}

MOCK_EXPORT void mock_set_pin(const char *dev, const char *app, unsigned int type, const char *pin,
                              unsigned int maxRetry)
{
    Lock lock(g_mutex);
    App *a = findApp(dev, app);
    if (!a || type > 1 || !pin)
        return;
    Pin &p = a->pins[type];
    p.value = pin;
    p.maxRetry = p.remain = maxRetry;
    p.isDefault = false;
}

MOCK_EXPORT unsigned int mock_pin_retries(const char *dev, const char *app, unsigned int type)
{
    Lock lock(g_mutex);
    App *a = findApp(dev, app);
    return (a && type <= 1) ? a->pins[type].remain : 0;
}

MOCK_EXPORT void mock_set_cert(const char *dev, const char *app, const char *container, int sign,
                               const unsigned char *der, unsigned int len)
{
    Lock lock(g_mutex);
    Container *c = container ? findContainer(findApp(dev, app), container) : nullptr;
    if (c)
        (sign ? c->signCert : c->encCert) = fromRaw(der, len);
}

MOCK_EXPORT void mock_set_seal(const char *dev, const char *app, const unsigned char *data, unsigned int len)
{
    Lock lock(g_mutex);
    if (App *a = findApp(dev, app))
        a->seal = fromRaw(data, len);
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

MOCK_EXPORT void mock_set_label(const char *dev, const char *label)
{
    Lock lock(g_mutex);
    if (Device *d = findDevice(dev))
        d->label = label ? label : "";
}

MOCK_EXPORT void mock_set_manufacturer(const char *dev, const char *manufacturer)
{
    Lock lock(g_mutex);
    if (Device *d = findDevice(dev))
        d->manufacturer = manufacturer ? manufacturer : "";
}

MOCK_EXPORT void mock_set_versions(const char *dev, unsigned int hwMajor, unsigned int hwMinor, unsigned int fwMajor,
                                   unsigned int fwMinor)
{
    Lock lock(g_mutex);
    if (Device *d = findDevice(dev)) {
        d->hw = VERSION{static_cast<BYTE>(hwMajor), static_cast<BYTE>(hwMinor)};
        d->fw = VERSION{static_cast<BYTE>(fwMajor), static_cast<BYTE>(fwMinor)};
    }
}

MOCK_EXPORT void mock_set_space(const char *dev, unsigned int total)
{
    Lock lock(g_mutex);
    if (Device *d = findDevice(dev))
        d->totalSpace = total;
}

MOCK_EXPORT void mock_set_login_required(int on)
{
    Lock lock(g_mutex);
    world().loginRequired = on != 0;
}

MOCK_EXPORT int mock_logged_in(const char *dev, const char *app, unsigned int type)
{
    Lock lock(g_mutex);
    App *a = findApp(dev, app);
    return (a && type <= 1 && a->loggedIn[type]) ? 1 : 0;
}

MOCK_EXPORT int mock_pin_is(const char *dev, const char *app, unsigned int type, const char *pin)
{
    Lock lock(g_mutex);
    App *a = findApp(dev, app);
    return (a && type <= 1 && pin && a->pins[type].value == pin) ? 1 : 0;
}

MOCK_EXPORT void mock_set_file_rights(const char *dev, const char *app, const char *file, unsigned int readRights,
                                      unsigned int writeRights)
{
    Lock lock(g_mutex);
    if (File *f = file ? findFile(findApp(dev, app), file) : nullptr) {
        f->readRights = readRights;
        f->writeRights = writeRights;
    }
}

MOCK_EXPORT int mock_file_info(const char *dev, const char *app, const char *file, unsigned char *buf,
                               unsigned int capacity, unsigned int *readRights, unsigned int *writeRights)
{
    Lock lock(g_mutex);
    File *f = file ? findFile(findApp(dev, app), file) : nullptr;
    if (!f)
        return -1;
    if (buf)
        std::memcpy(buf, f->data.data(), std::min<size_t>(capacity, f->data.size()));
    if (readRights)
        *readRights = f->readRights;
    if (writeRights)
        *writeRights = f->writeRights;
    return static_cast<int>(f->data.size());
}

MOCK_EXPORT int mock_container_type(const char *dev, const char *app, const char *container)
{
    Lock lock(g_mutex);
    Container *c = container ? findContainer(findApp(dev, app), container) : nullptr;
    return c ? static_cast<int>(c->type) : -1;
}

MOCK_EXPORT void mock_remove_container(const char *dev, const char *app, const char *container)
{
    Lock lock(g_mutex);
    App *a = findApp(dev, app);
    Container *c = container ? findContainer(a, container) : nullptr;
    if (!c)
        return;
    removeContainer(a, c);
}

MOCK_EXPORT int mock_seal(const char *dev, const char *app, unsigned char *buf, unsigned int capacity)
{
    Lock lock(g_mutex);
    App *a = findApp(dev, app);
    if (!a)
        return -1;
    if (buf)
        std::memcpy(buf, a->seal.data(), std::min<size_t>(capacity, a->seal.size()));
    return static_cast<int>(a->seal.size());
}

MOCK_EXPORT void mock_set_wait_timeout(unsigned int milliseconds)
{
    Lock lock(g_mutex);
    world().waitTimeoutMs = milliseconds;
}

// ============================================================================
// Electronic seal extension
// ============================================================================

namespace {

// The log line of the keyed EPS calls (ciphers and MAC).
Line epsLine(const char *function, ULONG index, ULONG alg, ULONG ivLen, ULONG len, const BYTE *out, const ULONG *size,
             ULONG flags)
{
    return Line(function).num("index", index).num("alg", alg).num("ivlen", ivLen).num("len", len).ptr("buf", out)
        .size("size", size).num("flags", flags);
}

// EPS_Encrypt and EPS_Decrypt alike: XOR under the container's key of that index.
ULONG epsCipher(const char *function, HCONTAINER hContainer, ULONG ulKeyIndex, BYTE *pbInData, ULONG ulInDataLen,
                BYTE *pbOutData, ULONG *pulOutDataLen)
{
    MOCK_RESOLVE(h, hContainer, Kind::Container);
    auto it = h->container->symmKeys.find(ulKeyIndex);
    if (it == h->container->symmKeys.end())
        return SAR_KEYNOTFOUNTERR;
    if (!pbInData && ulInDataLen)
        return SAR_INVALIDPARAMERR;
    return fillBytes(function, xorWith(it->second, pbInData, ulInDataLen), pbOutData, pulOutDataLen);
}

} // namespace

MOCK_EXPORT ULONG EPS_Decrypt(HCONTAINER hContainer, ULONG ulKeyIndex, ULONG ulKeyAlgId, BYTE *pbIV, ULONG ulIVLen,
                              BYTE *pbInData, ULONG ulInDataLen, BYTE *pbOutData, ULONG *pulOutDataLen, ULONG ulFlags)
{
    (void)pbIV;
    MOCK_ENTER(epsLine(__func__, ulKeyIndex, ulKeyAlgId, ulIVLen, ulInDataLen, pbOutData, pulOutDataLen, ulFlags));
    return epsCipher(__func__, hContainer, ulKeyIndex, pbInData, ulInDataLen, pbOutData, pulOutDataLen);
}

MOCK_EXPORT ULONG EPS_Encrypt(HCONTAINER hContainer, ULONG ulKeyIndex, ULONG ulKeyAlgId, BYTE *pbIV, ULONG ulIVLen,
                              BYTE *pbInData, ULONG ulInDataLen, BYTE *pbOutData, ULONG *pulOutDataLen, ULONG ulFlags)
{
    (void)pbIV;
    MOCK_ENTER(epsLine(__func__, ulKeyIndex, ulKeyAlgId, ulIVLen, ulInDataLen, pbOutData, pulOutDataLen, ulFlags));
    return epsCipher(__func__, hContainer, ulKeyIndex, pbInData, ulInDataLen, pbOutData, pulOutDataLen);
}

MOCK_EXPORT ULONG EPS_ImportSymmKey(HCONTAINER hContainer, ULONG ulKeyIndex, BYTE *pbEncData, ULONG ulEncDataLen,
                                    ULONG ulFlags)
{
    MOCK_ENTER(Line(__func__).num("index", ulKeyIndex).num("len", ulEncDataLen).num("flags", ulFlags));
    MOCK_RESOLVE(h, hContainer, Kind::Container);
    if (!pbEncData || !ulEncDataLen)
        return SAR_INDATALENERR;
    h->container->symmKeys[ulKeyIndex] = fromRaw(pbEncData, ulEncDataLen);
    return SAR_OK;
}

MOCK_EXPORT ULONG EPS_Mac(HCONTAINER hContainer, ULONG ulKeyIndex, ULONG ulKeyAlgId, BYTE *pbIV, ULONG ulIVLen,
                          BYTE *pbInData, ULONG ulInDataLen, BYTE *pbMac, ULONG *pulMacLen, ULONG ulFlags)
{
    (void)pbIV;
    MOCK_ENTER(epsLine(__func__, ulKeyIndex, ulKeyAlgId, ulIVLen, ulInDataLen, pbMac, pulMacLen, ulFlags));
    MOCK_RESOLVE(h, hContainer, Kind::Container);
    auto it = h->container->symmKeys.find(ulKeyIndex);
    if (it == h->container->symmKeys.end())
        return SAR_KEYNOTFOUNTERR;
    return fillBytes(__func__, expand(fnv(fromRaw(pbInData, ulInDataLen), fnv(it->second)), 16), pbMac, pulMacLen);
}

MOCK_EXPORT ULONG EPS_ReadESealData(HAPPLICATION hApplication, ULONG ulKeyIndex, ULONG ulKeyAlgId, BYTE *pbData,
                                    ULONG *pulDataLen, ULONG ulFlags)
{
    MOCK_ENTER(Line(__func__).num("index", ulKeyIndex).num("alg", ulKeyAlgId).ptr("buf", pbData)
                   .size("size", pulDataLen).num("flags", ulFlags));
    MOCK_RESOLVE(h, hApplication, Kind::App);
    return fillBytes(__func__, h->app->seal, pbData, pulDataLen);
}

MOCK_EXPORT ULONG EPS_WriteESealData(HAPPLICATION hApplication, BYTE *pbData, ULONG ulDataSize, ULONG ulFlags)
{
    MOCK_ENTER(Line(__func__).num("size", ulDataSize).num("flags", ulFlags));
    MOCK_RESOLVE(h, hApplication, Kind::App);
    if (!pbData && ulDataSize)
        return SAR_INVALIDPARAMERR;
    h->app->seal = fromRaw(pbData, ulDataSize);
    return SAR_OK;
}

// ============================================================================
// Devices
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
    logout(d);
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
    Device *d = world().handles.at(hDev)->dev;
    closeHandle(hDev);
    if (r == SAR_OK)
        logout(d);
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

MOCK_EXPORT ULONG SKF_SetLabel(DEVHANDLE hDev, LPSTR szLabel)
{
    MOCK_ENTER(Line(__func__).text("dev", devName(hDev)).str("label", szLabel));
    MOCK_RESOLVE(h, hDev, Kind::Device);
    if (!szLabel || std::strlen(szLabel) > 32)
        return SAR_INVALIDPARAMERR;
    h->dev->label = szLabel;
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
    const ULONG used = usedSpace(d);
    pDevInfo->FreeSpace = used < d->totalSpace ? d->totalSpace - used : 0;
    pDevInfo->MaxECCBufferSize = 1024;
    pDevInfo->MaxBufferSize = 2048;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_LockDev(DEVHANDLE hDev, ULONG ulTimeOut)
{
    MOCK_ENTER(Line(__func__).text("dev", devName(hDev)).num("timeout", ulTimeOut));
    Handle *h;
    return resolve(hDev, {Kind::Device}, h);
}

MOCK_EXPORT ULONG SKF_UnlockDev(DEVHANDLE hDev)
{
    MOCK_ENTER(Line(__func__).text("dev", devName(hDev)));
    Handle *h;
    return resolve(hDev, {Kind::Device}, h);
}

MOCK_EXPORT ULONG SKF_Transmit(DEVHANDLE hDev, BYTE *pbCommand, ULONG ulCommandLen, BYTE *pbData, ULONG *pulDataLen)
{
    MOCK_ENTER(Line(__func__).text("dev", devName(hDev)).num("len", ulCommandLen).ptr("buf", pbData)
                   .size("size", pulDataLen));
    MOCK_RESOLVE(h, hDev, Kind::Device);
    // Status word "90 00" for any command.
    const Bytes ok = {0x90, 0x00};
    (void)pbCommand;
    return fillBytes(__func__, ok, pbData, pulDataLen);
}

MOCK_EXPORT ULONG SKF_ChangeDevAuthKey(DEVHANDLE hDev, BYTE *pbKeyValue, ULONG ulKeyLen)
{
    MOCK_ENTER(Line(__func__).text("dev", devName(hDev)).num("len", ulKeyLen));
    MOCK_RESOLVE(h, hDev, Kind::Device);
    return (pbKeyValue && ulKeyLen) ? SAR_OK : SAR_INVALIDPARAMERR;
}

MOCK_EXPORT ULONG SKF_DevAuth(DEVHANDLE hDev, BYTE *pbAuthData, ULONG ulLen)
{
    MOCK_ENTER(Line(__func__).text("dev", devName(hDev)).num("len", ulLen));
    MOCK_RESOLVE(h, hDev, Kind::Device);
    return (pbAuthData && ulLen) ? SAR_OK : SAR_INVALIDPARAMERR;
}

// ============================================================================
// PINs
// ============================================================================

MOCK_EXPORT ULONG SKF_ChangePIN(HAPPLICATION hApplication, ULONG ulPINType, LPSTR szOldPin, LPSTR szNewPin,
                                ULONG *pulRetryCount)
{
    MOCK_ENTER(Line(__func__).num("type", ulPINType).str("old", szOldPin).str("new", szNewPin));
    MOCK_RESOLVE(h, hApplication, Kind::App);
    if (!szNewPin)
        return SAR_INVALIDPARAMERR;
    if (ULONG r = checkPin(h->app, ulPINType, szOldPin, pulRetryCount))
        return r;
    Pin &p = h->app->pins[ulPINType];
    p.value = szNewPin;
    p.isDefault = false;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_GetPINInfo(HAPPLICATION hApplication, ULONG ulPINType, ULONG *pulMaxRetryCount,
                                 ULONG *pulRemainRetryCount, BOOL *pbDefaultPin)
{
    MOCK_ENTER(Line(__func__).num("type", ulPINType));
    MOCK_RESOLVE(h, hApplication, Kind::App);
    if (ulPINType > 1)
        return SAR_USER_TYPE_INVALID;
    if (!pulMaxRetryCount || !pulRemainRetryCount || !pbDefaultPin)
        return SAR_INVALIDPARAMERR;
    const Pin &p = h->app->pins[ulPINType];
    *pulMaxRetryCount = p.maxRetry;
    *pulRemainRetryCount = p.remain;
    *pbDefaultPin = p.isDefault ? TRUE : FALSE;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_VerifyPIN(HAPPLICATION hApplication, ULONG ulPINType, LPSTR szPIN, ULONG *pulRetryCount)
{
    MOCK_ENTER(Line(__func__).num("type", ulPINType).str("pin", szPIN));
    MOCK_RESOLVE(h, hApplication, Kind::App);
    if (ULONG r = checkPin(h->app, ulPINType, szPIN, pulRetryCount))
        return r;
    h->app->loggedIn[ulPINType] = true;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_UnblockPIN(HAPPLICATION hApplication, LPSTR szAdminPIN, LPSTR szNewUserPIN,
                                 ULONG *pulRetryCount)
{
    MOCK_ENTER(Line(__func__).str("admin", szAdminPIN).str("user", szNewUserPIN));
    MOCK_RESOLVE(h, hApplication, Kind::App);
    if (!szNewUserPIN)
        return SAR_INVALIDPARAMERR;
    if (ULONG r = checkPin(h->app, ADMIN_TYPE, szAdminPIN, pulRetryCount))
        return r;
    Pin &user = h->app->pins[USER_TYPE];
    user.value = szNewUserPIN;
    user.remain = user.maxRetry;
    user.isDefault = false;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_GenRemoteUnblockRequest(HAPPLICATION hApplication, BYTE *pbRandom, ULONG ulRandomLen)
{
    MOCK_ENTER(Line(__func__).num("len", ulRandomLen));
    (void)hApplication;
    (void)pbRandom;
    return SAR_NOTSUPPORTYETERR;
}

MOCK_EXPORT ULONG SKF_RemoteUnblockPIN(HAPPLICATION hApplication, BYTE *pbCipher, ULONG ulCipherLen)
{
    MOCK_ENTER(Line(__func__).num("len", ulCipherLen));
    (void)hApplication;
    (void)pbCipher;
    return SAR_NOTSUPPORTYETERR;
}

MOCK_EXPORT ULONG SKF_ClearSecureState(HAPPLICATION hApplication)
{
    MOCK_ENTER(Line(__func__));
    MOCK_RESOLVE(h, hApplication, Kind::App);
    h->app->loggedIn[0] = h->app->loggedIn[1] = false;
    return SAR_OK;
}

// ============================================================================
// Files
// ============================================================================

MOCK_EXPORT ULONG SKF_CreateFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulFileSize, ULONG ulReadRights,
                                 ULONG ulWriteRights)
{
    MOCK_ENTER(Line(__func__).str("name", szFileName).num("size", ulFileSize).num("read", ulReadRights)
                   .num("write", ulWriteRights));
    MOCK_RESOLVE(h, hApplication, Kind::App);
    if (!szFileName || !*szFileName || std::strlen(szFileName) > 32)
        return SAR_NAMELENERR;
    if (findFile(h->app, szFileName))
        return SAR_FILE_ALREADY_EXIST;
    const ULONG used = usedSpace(h->dev);
    if (used > h->dev->totalSpace || ulFileSize > h->dev->totalSpace - used)
        return SAR_NO_ROOM;
    File f;
    f.name = szFileName;
    f.data.assign(ulFileSize, 0);
    f.readRights = ulReadRights;
    f.writeRights = ulWriteRights;
    h->app->files.push_back(std::move(f));
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_DeleteFile(HAPPLICATION hApplication, LPSTR szFileName)
{
    MOCK_ENTER(Line(__func__).str("name", szFileName));
    MOCK_RESOLVE(h, hApplication, Kind::App);
    File *f = szFileName ? findFile(h->app, szFileName) : nullptr;
    if (!f)
        return SAR_FILE_NOT_EXIST;
    if (!mayAccess(h->app, f->writeRights))
        return SAR_USER_NOT_LOGGED_IN;
    auto &files = h->app->files;
    files.erase(files.begin() + (f - files.data()));
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_EnumFiles(HAPPLICATION hApplication, LPSTR szFileList, ULONG *pulSize)
{
    MOCK_ENTER(Line(__func__).ptr("buf", szFileList).size("size", pulSize));
    MOCK_RESOLVE(h, hApplication, Kind::App);
    std::vector<std::string> names;
    for (const File &f : h->app->files)
        names.push_back(f.name);
    return fillBytes(__func__, multiString(names), reinterpret_cast<BYTE *>(szFileList), pulSize);
}

MOCK_EXPORT ULONG SKF_GetFileInfo(HAPPLICATION hApplication, LPSTR szFileName, FILEATTRIBUTE *pFileInfo)
{
    MOCK_ENTER(Line(__func__).str("name", szFileName));
    MOCK_RESOLVE(h, hApplication, Kind::App);
    if (!pFileInfo)
        return SAR_INVALIDPARAMERR;
    const File *f = szFileName ? findFile(h->app, szFileName) : nullptr;
    if (!f)
        return SAR_FILE_NOT_EXIST;
    std::memset(pFileInfo, 0, sizeof(FILEATTRIBUTE));
    copyText(pFileInfo->FileName, sizeof pFileInfo->FileName, f->name);
    pFileInfo->FileSize = static_cast<ULONG>(f->data.size());
    pFileInfo->ReadRights = f->readRights;
    pFileInfo->WriteRights = f->writeRights;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_ReadFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulOffset, ULONG ulSize,
                               BYTE *pbOutData, ULONG *pulOutLen)
{
    MOCK_ENTER(Line(__func__).str("name", szFileName).num("off", ulOffset).num("size", ulSize));
    MOCK_RESOLVE(h, hApplication, Kind::App);
    const File *f = szFileName ? findFile(h->app, szFileName) : nullptr;
    if (!f)
        return SAR_FILE_NOT_EXIST;
    if (!mayAccess(h->app, f->readRights))
        return SAR_USER_NOT_LOGGED_IN;
    if (ulOffset > f->data.size())
        return TW_ERR_OFFSET_BEYOND_FILE;
    // The answer is clipped at the end of the file.
    const size_t n = std::min<size_t>(ulSize, f->data.size() - ulOffset);
    return fill(__func__, f->data.data() + ulOffset, n, pbOutData, pulOutLen);
}

MOCK_EXPORT ULONG SKF_WriteFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulOffset, BYTE *pbData,
                                ULONG ulSize)
{
    MOCK_ENTER(Line(__func__).str("name", szFileName).num("off", ulOffset).num("size", ulSize));
    MOCK_RESOLVE(h, hApplication, Kind::App);
    File *f = szFileName ? findFile(h->app, szFileName) : nullptr;
    if (!f)
        return SAR_FILE_NOT_EXIST;
    if (!mayAccess(h->app, f->writeRights))
        return SAR_USER_NOT_LOGGED_IN;
    if (!pbData && ulSize)
        return SAR_INVALIDPARAMERR;
    if (ulOffset > f->data.size() || ulSize > f->data.size() - ulOffset)
        return SAR_FILEERR;
    if (ulSize)
        std::memcpy(f->data.data() + ulOffset, pbData, ulSize);
    return SAR_OK;
}

// ============================================================================
// Applications
// ============================================================================

MOCK_EXPORT ULONG SKF_CreateApplication(DEVHANDLE hDev, LPSTR szAppName, LPSTR szAdminPin,
                                        DWORD dwAdminPinRetryCount, LPSTR szUserPin, DWORD dwUserPinRetryCount,
                                        DWORD dwCreateFileRights, HAPPLICATION *phApplication)
{
    MOCK_ENTER(Line(__func__).text("dev", devName(hDev)).str("name", szAppName).num("adminretry", dwAdminPinRetryCount)
                   .num("userretry", dwUserPinRetryCount).num("rights", dwCreateFileRights));
    MOCK_RESOLVE(h, hDev, Kind::Device);
    if (!szAppName || !*szAppName || std::strlen(szAppName) > 32)
        return SAR_APPLICATION_NAME_INVALID;
    if (!szAdminPin || !szUserPin || !phApplication)
        return SAR_INVALIDPARAMERR;
    if (findApp(h->dev, szAppName))
        return SAR_APPLICATION_EXISTS;
    auto a = std::make_unique<App>();
    a->name = szAppName;
    a->pins[ADMIN_TYPE] = Pin{szAdminPin, dwAdminPinRetryCount, dwAdminPinRetryCount, false};
    a->pins[USER_TYPE] = Pin{szUserPin, dwUserPinRetryCount, dwUserPinRetryCount, false};
    App *raw = a.get();
    h->dev->apps.push_back(std::move(a));
    Handle *ah = newHandle(Kind::App, h->dev);
    ah->app = raw;
    *phApplication = ah;
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

MOCK_EXPORT ULONG SKF_DeleteApplication(DEVHANDLE hDev, LPSTR szAppName)
{
    MOCK_ENTER(Line(__func__).text("dev", devName(hDev)).str("name", szAppName));
    MOCK_RESOLVE(h, hDev, Kind::Device);
    App *a = szAppName ? findApp(h->dev, szAppName) : nullptr;
    if (!a)
        return SAR_APPLICATION_NOT_EXISTS;
    closeHandlesIf([a](const Handle &x) { return x.app == a; });
    auto &apps = h->dev->apps;
    apps.erase(std::find_if(apps.begin(), apps.end(), [a](const std::unique_ptr<App> &x) { return x.get() == a; }));
    return SAR_OK;
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
    App *a = world().handles.at(hApplication)->app;
    a->loggedIn[0] = a->loggedIn[1] = false;
    closeHandle(hApplication);
    return r;
}

// ============================================================================
// Containers and certificates
// ============================================================================

MOCK_EXPORT ULONG SKF_CreateContainer(HAPPLICATION hApplication, LPSTR szContainerName, HCONTAINER *phContainer)
{
    MOCK_ENTER(Line(__func__).str("name", szContainerName));
    MOCK_RESOLVE(h, hApplication, Kind::App);
    if (!szContainerName || !*szContainerName || std::strlen(szContainerName) > 64)
        return SAR_NAMELENERR;
    if (!phContainer)
        return SAR_INVALIDPARAMERR;
    if (loginMissing(h->app))
        return SAR_USER_NOT_LOGGED_IN;
    if (findContainer(h->app, szContainerName))
        return TW_ERR_CONTAINER_EXISTS;
    Handle *ch = newHandle(Kind::Container, h->dev);
    ch->app = h->app;
    ch->container = newContainer(h->app, szContainerName, CONTAINER_TYPE_EMPTY);
    *phContainer = ch;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_DeleteContainer(HAPPLICATION hApplication, LPSTR szContainerName)
{
    MOCK_ENTER(Line(__func__).str("name", szContainerName));
    MOCK_RESOLVE(h, hApplication, Kind::App);
    Container *c = szContainerName ? findContainer(h->app, szContainerName) : nullptr;
    if (!c)
        return TW_ERR_CONTAINER_NOT_EXIST;
    if (loginMissing(h->app))
        return SAR_USER_NOT_LOGGED_IN;
    removeContainer(h->app, c);
    return SAR_OK;
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

MOCK_EXPORT ULONG SKF_ImportCertificate(HCONTAINER hContainer, BOOL bSignFlag, BYTE *pbCert, ULONG ulCertLen)
{
    MOCK_ENTER(Line(__func__).num("sign", bSignFlag ? 1 : 0).num("len", ulCertLen));
    MOCK_RESOLVE(h, hContainer, Kind::Container);
    if (!pbCert || !ulCertLen)
        return SAR_INDATALENERR;
    if (loginMissing(h->app))
        return SAR_USER_NOT_LOGGED_IN;
    (bSignFlag ? h->container->signCert : h->container->encCert) = fromRaw(pbCert, ulCertLen);
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_ExportCertificate(HCONTAINER hContainer, BOOL bSignFlag, BYTE *pbCert, ULONG *pulCertLen)
{
    MOCK_ENTER(Line(__func__).num("sign", bSignFlag ? 1 : 0).ptr("buf", pbCert).size("size", pulCertLen));
    MOCK_RESOLVE(h, hContainer, Kind::Container);
    const Bytes &cert = bSignFlag ? h->container->signCert : h->container->encCert;
    if (cert.empty())
        return SAR_CERTNOTFOUNTERR;
    return fillBytes(__func__, cert, pbCert, pulCertLen);
}

MOCK_EXPORT ULONG SKF_GenRandom(DEVHANDLE hDev, BYTE *pbRandom, ULONG ulRandomLen)
{
    MOCK_ENTER(Line(__func__).text("dev", devName(hDev)).num("len", ulRandomLen));
    MOCK_RESOLVE(h, hDev, Kind::Device);
    if (!pbRandom && ulRandomLen)
        return SAR_INVALIDPARAMERR;
    static uint64_t counter = 0;
    const Bytes r = expand(++counter, ulRandomLen);
    if (ulRandomLen)
        std::memcpy(pbRandom, r.data(), ulRandomLen);
    return SAR_OK;
}

// ============================================================================
// RSA
// ============================================================================

namespace {

ULONG keyContainer(HCONTAINER hContainer, Handle *&h, bool needLogin)
{
    if (ULONG r = resolve(hContainer, {Kind::Container}, h))
        return r;
    if (needLogin && loginMissing(h->app))
        return SAR_USER_NOT_LOGGED_IN;
    return SAR_OK;
}

} // namespace

MOCK_EXPORT ULONG SKF_GenRSAKeyPair(HCONTAINER hContainer, ULONG ulBitsLen, RSAPUBLICKEYBLOB *pBlob)
{
    MOCK_ENTER(Line(__func__).num("bits", ulBitsLen));
    Handle *h;
    if (ULONG r = keyContainer(hContainer, h, true))
        return r;
    if (ulBitsLen != 1024 && ulBitsLen != 2048)
        return SAR_MODULUSLENERR;
    if (!pBlob)
        return SAR_INVALIDPARAMERR;
    Container *c = h->container;
    c->type = CONTAINER_TYPE_RSA;
    c->rsaBits = ulBitsLen;
    c->signKey = ++world().keyCounter;
    const Bytes blob = publicKeyOf(*c, true);
    // Only the key's own bytes: a shorter modulus leaves the rest as it was.
    std::memcpy(&pBlob->AlgID, blob.data(), 8);
    std::memcpy(pBlob->Modulus + (MAX_RSA_MODULUS_LEN - ulBitsLen / 8), blob.data() + 8 + (MAX_RSA_MODULUS_LEN - ulBitsLen / 8),
                ulBitsLen / 8);
    std::memcpy(pBlob->PublicExponent, blob.data() + 8 + MAX_RSA_MODULUS_LEN, MAX_RSA_EXPONENT_LEN);
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_ImportRSAKeyPair(HCONTAINER hContainer, ULONG ulSymAlgId, BYTE *pbWrappedKey,
                                       ULONG ulWrappedKeyLen, BYTE *pbEncryptedData, ULONG ulEncryptedDataLen)
{
    MOCK_ENTER(Line(__func__).num("alg", ulSymAlgId).num("wrappedlen", ulWrappedKeyLen)
                   .num("datalen", ulEncryptedDataLen));
    Handle *h;
    if (ULONG r = keyContainer(hContainer, h, true))
        return r;
    if (!pbWrappedKey || !ulWrappedKeyLen || !pbEncryptedData || !ulEncryptedDataLen)
        return SAR_INDATALENERR;
    Container *c = h->container;
    if (c->type != CONTAINER_TYPE_RSA || !c->signKey)
        return SAR_KEYNOTFOUNTERR;
    c->encKey = ++world().keyCounter;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_RSASignData(HCONTAINER hContainer, BYTE *pbData, ULONG ulDataLen, BYTE *pbSignature,
                                  ULONG *pulSignLen)
{
    MOCK_ENTER(Line(__func__).num("len", ulDataLen).ptr("buf", pbSignature).size("size", pulSignLen));
    Handle *h;
    if (ULONG r = keyContainer(hContainer, h, true))
        return r;
    const Container *c = h->container;
    if (c->type != CONTAINER_TYPE_RSA || !c->signKey)
        return SAR_KEYNOTFOUNTERR;
    if (!pbData || !ulDataLen || ulDataLen > c->rsaBits / 8 - 11)
        return SAR_INDATALENERR;
    const Bytes sig = rsaSignature(publicKeyOf(*c, true), fromRaw(pbData, ulDataLen), c->rsaBits);
    return fillBytes(__func__, sig, pbSignature, pulSignLen);
}

MOCK_EXPORT ULONG SKF_RSAVerify(DEVHANDLE hDev, RSAPUBLICKEYBLOB *pRSAPubKeyBlob, BYTE *pbData, ULONG ulDataLen,
                                BYTE *pbSignature, ULONG ulSignLen)
{
    MOCK_ENTER(Line(__func__).num("len", ulDataLen).num("siglen", ulSignLen));
    MOCK_RESOLVE(h, hDev, Kind::Device);
    if (!pRSAPubKeyBlob || !pbData || !pbSignature)
        return SAR_INVALIDPARAMERR;
    const ULONG bits = pRSAPubKeyBlob->BitLen;
    if ((bits != 1024 && bits != 2048) || ulSignLen != bits / 8)
        return SAR_RSADECERR;
    const Bytes expected =
        rsaSignature(fromRaw(pRSAPubKeyBlob, SKF_RSAPUBLICKEYBLOB_SIZE), fromRaw(pbData, ulDataLen), bits);
    return expected == fromRaw(pbSignature, ulSignLen) ? SAR_OK : SAR_RSADECERR;
}

MOCK_EXPORT ULONG SKF_RSAExportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, RSAPUBLICKEYBLOB *pPubKey,
                                          BYTE *pbData, ULONG *pulDataLen, HANDLE *phSessionKey)
{
    MOCK_ENTER(Line(__func__).num("alg", ulAlgId).ptr("buf", pbData).size("size", pulDataLen));
    MOCK_RESOLVE(h, hContainer, Kind::Container);
    if (!pPubKey || !phSessionKey)
        return SAR_INVALIDPARAMERR;
    const ULONG bits = pPubKey->BitLen == 1024 ? 1024 : 2048;
    const Bytes key = expand(world().keyCounter + 1000ULL, 16);
    Bytes wrapped = key;
    wrapped.resize(bits / 8, 0);
    if (!pbData)
        return fillBytes(__func__, wrapped, pbData, pulDataLen);
    if (ULONG r = fillBytes(__func__, wrapped, pbData, pulDataLen))
        return r;
    Handle *kh = newHandle(Kind::Key, h->dev);
    kh->key = key;
    *phSessionKey = kh;
    return SAR_OK;
}

// ============================================================================
// ECC
// ============================================================================

MOCK_EXPORT ULONG SKF_GenECCKeyPair(HCONTAINER hContainer, ULONG ulAlgId, ECCPUBLICKEYBLOB *pBlob)
{
    MOCK_ENTER(Line(__func__).num("alg", ulAlgId));
    Handle *h;
    if (ULONG r = keyContainer(hContainer, h, true))
        return r;
    if (ulAlgId != SGD_SM2_1)
        return SAR_NOTSUPPORTYETERR;
    if (!pBlob)
        return SAR_INVALIDPARAMERR;
    Container *c = h->container;
    c->type = CONTAINER_TYPE_ECC;
    c->signKey = ++world().keyCounter;
    const Bytes blob = publicKeyOf(*c, true);
    std::memcpy(pBlob, blob.data(), blob.size());
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_ImportECCKeyPair(HCONTAINER hContainer, PENVELOPEDKEYBLOB pEnvelopedKeyBlob)
{
    // The blob is not read: its length is the caller's word alone.
    MOCK_ENTER(Line(__func__).ptr("blob", pEnvelopedKeyBlob));
    Handle *h;
    if (ULONG r = keyContainer(hContainer, h, true))
        return r;
    if (!pEnvelopedKeyBlob)
        return SAR_INVALIDPARAMERR;
    Container *c = h->container;
    if (c->type != CONTAINER_TYPE_ECC || !c->signKey)
        return SAR_KEYNOTFOUNTERR;
    c->encKey = ++world().keyCounter;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_ECCSignData(HCONTAINER hContainer, BYTE *pbData, ULONG ulDataLen,
                                  PECCSIGNATUREBLOB pSignature)
{
    MOCK_ENTER(Line(__func__).num("len", ulDataLen));
    Handle *h;
    if (ULONG r = keyContainer(hContainer, h, true))
        return r;
    const Container *c = h->container;
    if (c->type != CONTAINER_TYPE_ECC || !c->signKey)
        return SAR_KEYNOTFOUNTERR;
    if (!pbData || !ulDataLen)
        return SAR_INDATALENERR;
    if (!pSignature)
        return SAR_INVALIDPARAMERR;
    const Bytes sig = eccSignature(publicKeyOf(*c, true), fromRaw(pbData, ulDataLen));
    std::memcpy(pSignature, sig.data(), sig.size());
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_ECCVerify(DEVHANDLE hDev, ECCPUBLICKEYBLOB *pECCPubKeyBlob, BYTE *pbData, ULONG ulDataLen,
                                PECCSIGNATUREBLOB pSignature)
{
    MOCK_ENTER(Line(__func__).num("len", ulDataLen));
    MOCK_RESOLVE(h, hDev, Kind::Device);
    if (!pECCPubKeyBlob || !pbData || !ulDataLen || !pSignature)
        return SAR_INVALIDPARAMERR;
    const Bytes expected =
        eccSignature(fromRaw(pECCPubKeyBlob, SKF_ECCPUBLICKEYBLOB_SIZE), fromRaw(pbData, ulDataLen));
    return expected == fromRaw(pSignature, SKF_ECCSIGNATUREBLOB_SIZE) ? SAR_OK : SAR_FAIL;
}

MOCK_EXPORT ULONG SKF_GenerateAgreementDataWithECC(HCONTAINER hContainer, ULONG ulAlgId,
                                                   ECCPUBLICKEYBLOB *pTempECCPubKeyBlob, BYTE *pbID, ULONG ulIDLen,
                                                   HANDLE *phAgreementHandle)
{
    MOCK_ENTER(Line(__func__).num("alg", ulAlgId).num("idlen", ulIDLen));
    (void)pbID;
    MOCK_RESOLVE(h, hContainer, Kind::Container);
    if (!pTempECCPubKeyBlob || !phAgreementHandle)
        return SAR_INVALIDPARAMERR;
    const Bytes temp = eccPublicKey(++world().keyCounter);
    std::memcpy(pTempECCPubKeyBlob, temp.data(), temp.size());
    *phAgreementHandle = newHandle(Kind::Agreement, h->dev);
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_GenerateAgreementDataAndKeyWithECC(HANDLE hContainer, ULONG ulAlgId,
                                                         ECCPUBLICKEYBLOB *pSponsorECCPubKeyBlob,
                                                         ECCPUBLICKEYBLOB *pSponsorTempECCPubKeyBlob,
                                                         ECCPUBLICKEYBLOB *pTempECCPubKeyBlob, BYTE *pbID,
                                                         ULONG ulIDLen, BYTE *pbSponsorID, ULONG ulSponsorIDLen,
                                                         HANDLE *phKeyHandle)
{
    MOCK_ENTER(Line(__func__).num("alg", ulAlgId).num("idlen", ulIDLen).num("sponsoridlen", ulSponsorIDLen));
    (void)pSponsorECCPubKeyBlob;
    (void)pSponsorTempECCPubKeyBlob;
    (void)pbID;
    (void)pbSponsorID;
    MOCK_RESOLVE(h, hContainer, Kind::Container);
    if (!pTempECCPubKeyBlob || !phKeyHandle)
        return SAR_INVALIDPARAMERR;
    const Bytes temp = eccPublicKey(++world().keyCounter);
    std::memcpy(pTempECCPubKeyBlob, temp.data(), temp.size());
    Handle *kh = newHandle(Kind::Key, h->dev);
    kh->key = expand(world().keyCounter, 16);
    *phKeyHandle = kh;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_GenerateKeyWithECC(HANDLE hAgreementHandle, ECCPUBLICKEYBLOB *pECCPubKeyBlob,
                                         ECCPUBLICKEYBLOB *pTempECCPubKeyBlob, BYTE *pbID, ULONG ulIDLen,
                                         HANDLE *phKeyHandle)
{
    MOCK_ENTER(Line(__func__).num("idlen", ulIDLen));
    (void)pECCPubKeyBlob;
    (void)pTempECCPubKeyBlob;
    (void)pbID;
    MOCK_RESOLVE(h, hAgreementHandle, Kind::Agreement);
    if (!phKeyHandle)
        return SAR_INVALIDPARAMERR;
    Handle *kh = newHandle(Kind::Key, h->dev);
    kh->key = expand(reinterpret_cast<uintptr_t>(h), 16);
    *phKeyHandle = kh;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_ECCExportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, ECCPUBLICKEYBLOB *pPubKey,
                                          PECCCIPHERBLOB pData, HANDLE *phSessionKey)
{
    MOCK_ENTER(Line(__func__).num("alg", ulAlgId).ptr("pubkey", pPubKey));
    MOCK_RESOLVE(h, hContainer, Kind::Container);
    if (!pPubKey || !pData || !phSessionKey)
        return SAR_INVALIDPARAMERR;
    // 16 key bytes "wrapped" as they are: 165 + 16 bytes of blob.
    const Bytes key = expand(++world().keyCounter + 5000ULL, 16);
    const Bytes point = expand(world().keyCounter, 128);
    std::memcpy(pData->XCoordinate, point.data(), 64);
    std::memcpy(pData->YCoordinate, point.data() + 64, 64);
    const Bytes hash = expand(fnv(key), 32);
    std::memcpy(pData->HASH, hash.data(), 32);
    pData->CipherLen = static_cast<ULONG>(key.size());
    std::memcpy(pData->Cipher, key.data(), key.size());
    Handle *kh = newHandle(Kind::Key, h->dev);
    kh->key = key;
    *phSessionKey = kh;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_ExportPublicKey(HCONTAINER hContainer, BOOL bSignFlag, BYTE *pbBlob, ULONG *pulBlobLen)
{
    MOCK_ENTER(Line(__func__).num("sign", bSignFlag ? 1 : 0).ptr("buf", pbBlob).size("size", pulBlobLen));
    MOCK_RESOLVE(h, hContainer, Kind::Container);
    const Bytes blob = publicKeyOf(*h->container, bSignFlag != 0);
    if (blob.empty())
        return SAR_KEYNOTFOUNTERR;
    return fillBytes(__func__, blob, pbBlob, pulBlobLen);
}

// ============================================================================
// Session keys and ciphers
// ============================================================================

namespace {

ULONG cipherInit(HANDLE hKey, bool encrypt)
{
    MOCK_RESOLVE(h, hKey, Kind::Key);
    (encrypt ? h->encInit : h->decInit) = true;
    return SAR_OK;
}

// One-shot cipher: the size query leaves the operation set up, the fill
// call ends it.
ULONG cipherRun(const char *function, HANDLE hKey, bool encrypt, BYTE *in, ULONG inLen, BYTE *out, ULONG *pulOutLen,
                bool final)
{
    MOCK_RESOLVE(h, hKey, Kind::Key);
    bool &init = encrypt ? h->encInit : h->decInit;
    if (!init)
        return SAR_NOTINITIALIZEERR;
    if (!in && inLen)
        return SAR_INVALIDPARAMERR;
    const ULONG r = fillBytes(function, xorWith(h->key, in, inLen), out, pulOutLen);
    if (r == SAR_OK && out && final)
        init = false;
    return r;
}

} // namespace

MOCK_EXPORT ULONG SKF_ImportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, BYTE *pbWrapedData, ULONG ulWrapedLen,
                                       HANDLE *phKey)
{
    MOCK_ENTER(Line(__func__).num("len", ulWrapedLen).num("alg", ulAlgId));
    Handle *h;
    if (ULONG r = keyContainer(hContainer, h, true))
        return r;
    if (!phKey || (!pbWrapedData && ulWrapedLen))
        return SAR_INVALIDPARAMERR;
    if (!ulWrapedLen)
        return SAR_INDATALENERR;
    Handle *kh = newHandle(Kind::Key, h->dev);
    kh->key = fromRaw(pbWrapedData, std::min<ULONG>(ulWrapedLen, 16));
    *phKey = kh;
    return SAR_OK;
}

// Both directions alike, by name: SKF_EncryptInit, SKF_Encrypt,
// SKF_EncryptUpdate, SKF_EncryptFinal and the Decrypt ones.
#define MOCK_CIPHER_FUNCTIONS(Dir, encrypt)                                                                          \
    MOCK_EXPORT ULONG SKF_##Dir##Init(HANDLE hKey, BLOCKCIPHERPARAM param)                                           \
    {                                                                                                                \
        MOCK_ENTER(Line(__func__).num("ivlen", param.IVLen).num("padding", param.PaddingType)                        \
                       .num("feedbits", param.FeedBitLen));                                                          \
        return cipherInit(hKey, encrypt);                                                                            \
    }                                                                                                                \
    MOCK_EXPORT ULONG SKF_##Dir(HANDLE hKey, BYTE *in, ULONG inLen, BYTE *out, ULONG *pulOutLen)                     \
    {                                                                                                                \
        MOCK_ENTER(Line(__func__).num("len", inLen).ptr("buf", out).size("size", pulOutLen));                        \
        return cipherRun(__func__, hKey, encrypt, in, inLen, out, pulOutLen, true);                                  \
    }                                                                                                                \
    MOCK_EXPORT ULONG SKF_##Dir##Update(HANDLE hKey, BYTE *in, ULONG inLen, BYTE *out, ULONG *pulOutLen)             \
    {                                                                                                                \
        MOCK_ENTER(Line(__func__).num("len", inLen).ptr("buf", out).size("size", pulOutLen));                        \
        return cipherRun(__func__, hKey, encrypt, in, inLen, out, pulOutLen, false);                                 \
    }                                                                                                                \
    MOCK_EXPORT ULONG SKF_##Dir##Final(HANDLE hKey, BYTE *out, ULONG *pulOutLen)                                     \
    {                                                                                                                \
        MOCK_ENTER(Line(__func__).ptr("buf", out).size("size", pulOutLen));                                          \
        return cipherRun(__func__, hKey, encrypt, nullptr, 0, out, pulOutLen, true);                                 \
    }

MOCK_CIPHER_FUNCTIONS(Encrypt, true)
MOCK_CIPHER_FUNCTIONS(Decrypt, false)

// ============================================================================
// Digest
// ============================================================================

MOCK_EXPORT ULONG SKF_DigestInit(DEVHANDLE hDev, ULONG ulAlgID, ECCPUBLICKEYBLOB *pPubKey, unsigned char *pucID,
                                 ULONG ulIDLen, HANDLE *phHash)
{
    const std::string id = pucID ? std::string(reinterpret_cast<const char *>(pucID), ulIDLen) : std::string("null");
    MOCK_ENTER(Line(__func__).num("alg", ulAlgID).ptr("pubkey", pPubKey).num("idlen", ulIDLen).text("id", id));
    MOCK_RESOLVE(h, hDev, Kind::Device);
    if (ulAlgID != SGD_SM3 && ulAlgID != SGD_SHA1 && ulAlgID != SGD_SHA256)
        return SAR_NOTSUPPORTYETERR;
    if (!phHash)
        return SAR_INVALIDPARAMERR;
    Handle *hh = newHandle(Kind::Hash, h->dev);
    hh->alg = ulAlgID;
    hh->prefix = Bytes{static_cast<BYTE>(ulAlgID)};
    // The Z value of SM3 with a key: the key and the id go into the hash.
    if (ulAlgID == SGD_SM3 && pPubKey)
        hh->prefix = concat({hh->prefix, fromRaw(pPubKey, SKF_ECCPUBLICKEYBLOB_SIZE), fromRaw(pucID, ulIDLen)});
    *phHash = hh;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_Digest(HANDLE hHash, BYTE *pbData, ULONG ulDataLen, BYTE *pbHashData, ULONG *pulHashLen)
{
    MOCK_ENTER(Line(__func__).num("len", ulDataLen).ptr("buf", pbHashData).size("size", pulHashLen));
    MOCK_RESOLVE(h, hHash, Kind::Hash);
    if (!pulHashLen || (!pbData && ulDataLen))
        return SAR_INVALIDPARAMERR;
    const size_t n = hashLength(h->alg);
    if (pbHashData) {
        if (*pulHashLen < n) {
            *pulHashLen = static_cast<ULONG>(n);
            return SAR_BUFFER_TOO_SMALL;
        }
        const Bytes value = expand(fnv(fromRaw(pbData, ulDataLen), fnv(h->prefix)), n);
        std::memcpy(pbHashData, value.data(), n);
    }
    // A lying token reports another length in both calls, and writes n bytes.
    *pulHashLen = lied(__func__, n);
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_DigestUpdate(HANDLE hHash, BYTE *pbData, ULONG ulDataLen)
{
    MOCK_ENTER(Line(__func__).num("len", ulDataLen));
    MOCK_RESOLVE(h, hHash, Kind::Hash);
    if (!pbData && ulDataLen)
        return SAR_INVALIDPARAMERR;
    // Folding the part into the prefix gives the same value as one Digest
    // over the whole only in the mock's own terms; that is all it promises.
    const Bytes part = fromRaw(pbData, ulDataLen);
    h->prefix.insert(h->prefix.end(), part.begin(), part.end());
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_DigestFinal(HANDLE hHash, BYTE *pHashData, ULONG *pulHashLen)
{
    MOCK_ENTER(Line(__func__).ptr("buf", pHashData).size("size", pulHashLen));
    MOCK_RESOLVE(h, hHash, Kind::Hash);
    return fillBytes(__func__, expand(fnv(h->prefix), hashLength(h->alg)), pHashData, pulHashLen);
}

// ============================================================================
// MAC and the rest
// ============================================================================

MOCK_EXPORT ULONG SKF_MacInit(HANDLE hKey, BLOCKCIPHERPARAM *pMacParam, HANDLE *phMac)
{
    MOCK_ENTER(Line(__func__).ptr("param", pMacParam));
    MOCK_RESOLVE(h, hKey, Kind::Key);
    if (!phMac)
        return SAR_INVALIDPARAMERR;
    Handle *mh = newHandle(Kind::Mac, h->dev);
    mh->key = h->key;
    *phMac = mh;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_Mac(HANDLE hMac, BYTE *pbData, ULONG ulDataLen, BYTE *pbMacData, ULONG *pulMacLen)
{
    MOCK_ENTER(Line(__func__).num("len", ulDataLen).ptr("buf", pbMacData).size("size", pulMacLen));
    MOCK_RESOLVE(h, hMac, Kind::Mac);
    return fillBytes(__func__, expand(fnv(fromRaw(pbData, ulDataLen), fnv(h->key)), 16), pbMacData, pulMacLen);
}

MOCK_EXPORT ULONG SKF_MacUpdate(HANDLE hMac, BYTE *pbData, ULONG ulDataLen)
{
    MOCK_ENTER(Line(__func__).num("len", ulDataLen));
    MOCK_RESOLVE(h, hMac, Kind::Mac);
    const Bytes part = fromRaw(pbData, ulDataLen);
    h->prefix.insert(h->prefix.end(), part.begin(), part.end());
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_MacFinal(HANDLE hMac, BYTE *pbMacData, ULONG *pulMacDataLen)
{
    MOCK_ENTER(Line(__func__).ptr("buf", pbMacData).size("size", pulMacDataLen));
    MOCK_RESOLVE(h, hMac, Kind::Mac);
    return fillBytes(__func__, expand(fnv(h->prefix, fnv(h->key)), 16), pbMacData, pulMacDataLen);
}

MOCK_EXPORT ULONG SKF_CloseHandle(HANDLE hHandle)
{
    MOCK_ENTER(Line(__func__).ptr("handle", hHandle));
    Handle *h;
    const ULONG r = resolve(hHandle, {Kind::Hash, Kind::Key, Kind::Mac, Kind::Agreement}, h);
    if (r != SAR_INVALIDHANDLEERR)
        closeHandle(hHandle);
    return r;
}

MOCK_EXPORT ULONG SKF_SetSymmKey(DEVHANDLE hDev, BYTE *pbKey, ULONG ulAlgID, HANDLE *phKey)
{
    MOCK_ENTER(Line(__func__).text("dev", devName(hDev)).num("alg", ulAlgID));
    MOCK_RESOLVE(h, hDev, Kind::Device);
    if (!pbKey || !phKey)
        return SAR_INVALIDPARAMERR;
    Handle *kh = newHandle(Kind::Key, h->dev);
    kh->key = fromRaw(pbKey, 16);
    *phKey = kh;
    return SAR_OK;
}

MOCK_EXPORT ULONG SKF_ECCPrvKeyDecryptEx(HCONTAINER hContainer, BOOL bSignFlag, PECCCIPHERBLOB pCipherText,
                                         BYTE *pbPlainText, ULONG *pulPlainTextLen)
{
    MOCK_ENTER(Line(__func__).num("sign", bSignFlag ? 1 : 0).ptr("buf", pbPlainText).size("size", pulPlainTextLen));
    Handle *h;
    if (ULONG r = keyContainer(hContainer, h, true))
        return r;
    if (h->container->type != CONTAINER_TYPE_ECC)
        return SAR_KEYNOTFOUNTERR;
    if (!pCipherText)
        return SAR_INVALIDPARAMERR;
    // The mock's "encryption" leaves the plain text in Cipher.
    return fill(__func__, pCipherText->Cipher, pCipherText->CipherLen, pbPlainText, pulPlainTextLen);
}

MOCK_EXPORT ULONG SKF_ExtECCEncrypt(DEVHANDLE hDev, ECCPUBLICKEYBLOB *pECCPubKeyBlob, BYTE *pbPlainText,
                                    ULONG ulPlainTextLen, PECCCIPHERBLOB pCipherText)
{
    MOCK_ENTER(Line(__func__).num("len", ulPlainTextLen));
    MOCK_RESOLVE(h, hDev, Kind::Device);
    if (!pECCPubKeyBlob || !pCipherText || (!pbPlainText && ulPlainTextLen))
        return SAR_INVALIDPARAMERR;
    std::memset(pCipherText, 0, offsetof(ECCCIPHERBLOB, Cipher));
    pCipherText->CipherLen = ulPlainTextLen;
    if (ulPlainTextLen)
        std::memcpy(pCipherText->Cipher, pbPlainText, ulPlainTextLen);
    return SAR_OK;
}
