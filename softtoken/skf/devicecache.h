// What this process last read of each device, reused while the files have
// not changed, so that a call costs a few stat()s and not a parse: the
// device data with its parsed private keys, and its fault plan.
#ifndef SOFTTOKEN_DEVICECACHE_H
#define SOFTTOKEN_DEVICECACHE_H

#include "devicedata.h"
#include "faultplan.h"
#include "filestamp.h"

#include <QString>

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

    // The device's current data; null once the device is gone or unreadable.
    SnapshotPtr snapshot(Connection *connection);

    // Takes one use of a planned fault for function on the device, if any.
    bool takeFault(DeviceStore &store, const QString &device, const std::string &faultPath, const char *function,
                   FaultPlan::Entry *fault);

private:
    struct Entry {
        FileStamp stamp;
        SnapshotPtr snapshot;
        FileStamp faultStamp;
        FaultPlan faults;
    };

    std::unordered_map<std::string, Entry> m_entries;
};

#endif // SOFTTOKEN_DEVICECACHE_H
