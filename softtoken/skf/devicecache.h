// What this process last read of each device, reused while the files have
// not changed, so that a call costs one stat() and not a parse: the device
// data with its parsed private keys, its fault plan and the store's device
// list. While the store's generation file is unchanged, nothing in the store
// is; otherwise (or without that file) each file is looked at again.
#ifndef SOFTTOKEN_DEVICECACHE_H
#define SOFTTOKEN_DEVICECACHE_H

#include "devicedata.h"
#include "faultplan.h"
#include "filestamp.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <map>
#include <memory>
#include <string>
#include <unordered_map>

class Connection;
class DeviceStore;
typedef struct evp_pkey_st EVP_PKEY;

class DeviceCache
{
public:
    // One reading of a device. A holder keeps it, and the keys parsed from
    // it, valid even when a newer reading replaces it in the cache.
    class Snapshot
    {
    public:
        ~Snapshot();
        DeviceData data;
        // A container's private key as a ready OpenSSL key; null if none.
        EVP_PKEY *privateKey(const QString &app, const QString &container, bool sign) const;

    private:
        mutable std::map<QString, EVP_PKEY *> m_keys;
    };
    using SnapshotPtr = std::shared_ptr<const Snapshot>;

    static DeviceCache &instance();

    // An outermost call begins: the store's generation is looked at again,
    // once, by the first check that needs it.
    void beginCall() { ++m_call; }
    // The state of the store as this process knows it: a number that stays
    // while nothing in the store changed, and is new at each call when the
    // store has no generation file.
    quint64 epoch(const QString &root);

    struct Listing {
        QHash<QString, bool> isPresent; // every device of the store
        QStringList planned; // those with a fault plan, in name order
        QByteArray allText, presentText; // the names as SKF_EnumDev gives them
        quint64 epoch = 0;
    };
    // The store's devices, those present and those with a fault plan.
    const Listing &listing(const DeviceStore &store);

    // The device's current data; null once the device is gone or unreadable.
    SnapshotPtr snapshot(Connection *connection);
    SnapshotPtr snapshot(const DeviceStore &store, const QString &device);

    // Takes one use of a planned fault for function on the device, if any.
    bool takeFault(DeviceStore &store, const QString &device, const std::string &faultPath, const char *function,
                   FaultPlan::Entry *fault);

private:
    SnapshotPtr snapshot(const DeviceStore &store, const QString &device, const std::string &path);

    struct Entry {
        FileStamp stamp;
        SnapshotPtr snapshot;
        quint64 epoch = 0;
        FileStamp faultStamp;
        FaultPlan faults;
        quint64 faultEpoch = 0;
    };
    struct Generation {
        std::string path;
        FileStamp stamp;
        quint64 epoch = 0;
        quint64 call = 0;
    };

    std::unordered_map<std::string, Entry> m_entries;
    std::map<QString, Generation> m_generations;
    std::map<QString, Listing> m_listings;
    quint64 m_call = 0;
    quint64 m_lastEpoch = 0;
};

#endif // SOFTTOKEN_DEVICECACHE_H
