#include "devicecache.h"

#include "connection.h"
#include "devicestore.h"
#include "skfcall.h"
#include "tokencrypto.h"

#include <QFile>

#include <unistd.h>

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

quint64 DeviceCache::epoch(const QString &root)
{
    Generation &g = m_generations[root];
    if (g.call == m_call && g.epoch)
        return g.epoch;
    g.call = m_call;
    // Writers grow the file after writing, under the device's lock: an
    // unchanged file means unchanged devices.
    if (g.path.empty())
        g.path = QFile::encodeName(DeviceStore(root).generationPath()).toStdString();
    const FileStamp now = FileStamp::of(g.path);
    if (!now.sameAs(g.stamp) || !g.epoch)
        g.epoch = ++m_lastEpoch;
    g.stamp = now;
    return g.epoch;
}

const DeviceCache::Listing &DeviceCache::listing(const DeviceStore &store)
{
    Listing &l = m_listings[store.root()];
    const quint64 now = epoch(store.root());
    if (l.epoch != now) {
        const QStringList all = store.deviceNames();
        QStringList present;
        l.isPresent.clear();
        l.planned.clear();
        for (const QString &d : all) {
            const bool in = store.isPresent(d);
            l.isPresent.insert(d, in);
            if (in)
                present.append(d);
            if (::access(QFile::encodeName(store.path(d, DeviceStore::FaultFile)).constData(), F_OK) == 0)
                l.planned.append(d);
        }
        l.allText = SkfCall::multiString(all);
        l.presentText = SkfCall::multiString(present);
        l.epoch = now;
    }
    return l;
}

DeviceCache::SnapshotPtr DeviceCache::snapshot(Connection *connection)
{
    return snapshot(connection->store(), connection->device(), connection->dataPath());
}

DeviceCache::SnapshotPtr DeviceCache::snapshot(const DeviceStore &store, const QString &device)
{
    return snapshot(store, device, QFile::encodeName(store.path(device, DeviceStore::DeviceFile)).toStdString());
}

DeviceCache::SnapshotPtr DeviceCache::snapshot(const DeviceStore &store, const QString &device, const std::string &path)
{
    Entry &e = m_entries[path];
    const quint64 epoch = this->epoch(store.root());
    if (e.snapshot && e.epoch == epoch)
        return e.snapshot;
    const FileStamp now = FileStamp::of(path);
    e.epoch = 0;
    if (!now.exists()) {
        e.snapshot.reset();
        return nullptr;
    }
    if (!e.snapshot || !now.unchangedSince(e.stamp)) {
        auto fresh = std::make_shared<Snapshot>();
        e.stamp = now;
        if (store.load(device, &fresh->data, nullptr))
            e.snapshot = fresh;
        else
            e.snapshot.reset();
    }
    if (e.snapshot)
        e.epoch = epoch;
    return e.snapshot;
}

bool DeviceCache::takeFault(DeviceStore &store, const QString &device, const std::string &faultPath,
                            const char *function, FaultPlan::Entry *fault)
{
    Entry &e = m_entries[faultPath];
    const quint64 epoch = this->epoch(store.root());
    if (e.faultEpoch != epoch) {
        const FileStamp now = FileStamp::of(faultPath);
        if (!now.exists())
            e.faults = FaultPlan();
        else if (!now.unchangedSince(e.faultStamp) && !store.loadFaults(device, &e.faults))
            e.faults = FaultPlan();
        e.faultStamp = now;
        e.faultEpoch = epoch;
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
    e.faultEpoch = 0;
    return taken;
}
