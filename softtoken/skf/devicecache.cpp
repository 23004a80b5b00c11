#include "devicecache.h"

#include "connection.h"
#include "devicestore.h"
#include "tokencrypto.h"

DeviceCache &DeviceCache::instance()
{
    static DeviceCache *cache = new DeviceCache;
    return *cache;
}

DeviceCache::Snapshot::~Snapshot()
{
    for (auto &k : m_keys)
        TokenCrypto::freeKey(k.second);
}

EVP_PKEY *DeviceCache::Snapshot::privateKey(const QString &app, const QString &container, bool sign) const
{
    const DeviceData::App *a = data.app(app);
    const DeviceData::Container *c = a ? a->container(container) : nullptr;
    if (!c)
        return nullptr;
    const DeviceData::KeyPair &kp = sign ? c->sign : c->enc;
    if (kp.alg == DeviceData::NoKey)
        return nullptr;
    const QString id = app + QLatin1Char('\n') + container + (sign ? QLatin1String("\ns") : QLatin1String("\ne"));
    auto it = m_keys.find(id);
    if (it != m_keys.end())
        return it->second;
    EVP_PKEY *key = kp.alg == DeviceData::Sm2 ? TokenCrypto::sm2KeyPair(kp.priv) : TokenCrypto::rsaKeyPair(kp.priv);
    if (key)
        m_keys.emplace(id, key);
    return key;
}

DeviceCache::SnapshotPtr DeviceCache::snapshot(Connection *connection)
{
    Entry &e = m_entries[connection->dataPath()];
    const FileStamp now = FileStamp::of(connection->dataPath());
    if (!now.exists()) {
        e.snapshot.reset();
        return nullptr;
    }
    if (e.snapshot && now.unchangedSince(e.stamp))
        return e.snapshot;
    auto fresh = std::make_shared<Snapshot>();
    e.stamp = now;
    if (connection->store().load(connection->device(), &fresh->data, nullptr))
        e.snapshot = fresh;
    else
        e.snapshot.reset();
    return e.snapshot;
}

bool DeviceCache::takeFault(DeviceStore &store, const QString &device, const std::string &faultPath,
                            const char *function, FaultPlan::Entry *fault)
{
    const FileStamp now = FileStamp::of(faultPath);
    if (!now.exists())
        return false;
    Entry &e = m_entries[faultPath];
    if (!now.unchangedSince(e.faultStamp)) {
        if (!store.loadFaults(device, &e.faults))
            e.faults = FaultPlan();
        e.faultStamp = now;
    }
    if (!e.faults.mentions(function))
        return false;
    // Another process may share the plan: count the use under the lock.
    bool taken = false;
    store.updateFaults(device, [&](FaultPlan &plan) {
        bool counted = false;
        taken = plan.consume(function, fault, &counted);
        return taken || counted;
    }, nullptr);
    e.faultStamp = FileStamp();
    return taken;
}
