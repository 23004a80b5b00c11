// The token store on disk: one folder per device, named after the device.
//
//   <root>/<device>/device.json   what the device holds (DeviceData)
//   <root>/<device>/present       exists while the device is inserted; holds
//                                 a token that changes at each insertion
//   <root>/<device>/faults.json   the fault plan, absent when there is none
//   <root>/<device>/lock          flock target serialising writers
//   <root>/.generation            grows by one byte after every write, so
//                                 that one stat() tells a reader whether
//                                 anything in the store changed
//
// Every change is a read-modify-write under the lock, written to a temporary
// file, synced and renamed over the old one, so readers never see half a
// file and two processes never lose each other's updates.
#ifndef SOFTTOKEN_DEVICESTORE_H
#define SOFTTOKEN_DEVICESTORE_H

#include "devicedata.h"
#include "faultplan.h"

#include <QString>
#include <QStringList>

#include <functional>

class DeviceStore
{
public:
    static const char *const DeviceFile;
    static const char *const PresentFile;
    static const char *const FaultFile;
    static const char *const LockFile;
    static const char *const GenerationFile;

    explicit DeviceStore(const QString &root);

    // SOFTTOKEN_STORE, else $XDG_DATA_HOME/twkey/softtoken, else
    // ~/.local/share/twkey/softtoken; read anew at each call.
    static QString defaultRoot();
    // Device names are folder names: letters, digits, '.', '_', '-'.
    static bool validDeviceName(const QString &name);

    const QString &root() const { return m_root; }
    QString path(const QString &device, const char *file = nullptr) const;
    QString generationPath() const;

    QStringList deviceNames() const;
    bool exists(const QString &device) const;
    bool isPresent(const QString &device) const;
    QByteArray presenceToken(const QString &device) const;

    bool load(const QString &device, DeviceData *out, QString *error) const;
    bool create(const QString &device, const DeviceData &data, QString *error);
    // change() edits the freshly read data; returning false writes nothing.
    bool update(const QString &device, const std::function<bool(DeviceData &)> &change, QString *error);
    bool setPresent(const QString &device, bool present, QString *error);
    bool destroy(const QString &device, QString *error);

    bool loadFaults(const QString &device, FaultPlan *out) const;
    bool updateFaults(const QString &device, const std::function<bool(FaultPlan &)> &change, QString *error);

    static bool writeAtomically(const QString &path, const QByteArray &bytes, QString *error);
    static bool readAll(const QString &path, QByteArray *out);

private:
    bool lockedWrite(const QString &device, const std::function<bool(QString *)> &work, QString *error);
    // Called with a device's lock held, after its files were written.
    void bumpGeneration() const;

    QString m_root;
};

#endif // SOFTTOKEN_DEVICESTORE_H
