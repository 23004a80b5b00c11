// One call into the token library. Every exported function starts with one:
// it serialises the call, resolves and checks the handles (unknown or closed
// handle, device pulled, planned fault, in that order), and reports sizes
// (size-then-fill, with a planned size lie applied). Calls nest when one face
// works through the other's functions: a size lie taken by an inner call
// applies to the outermost call's reports too.
#ifndef SOFTTOKEN_SKFCALL_H
#define SOFTTOKEN_SKFCALL_H

#include "skfapi.h"

#include "appobject.h"
#include "devicecache.h"
#include "connection.h"
#include "containerobject.h"
#include "devicedata.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>
#include <mutex>
#include <vector>

class CipherKey;
class HashObject;
class MacObject;
typedef struct evp_pkey_st EVP_PKEY;

class SkfCall
{
public:
    // Inputs larger than this are refused rather than copied.
    enum { MaxInput = 64 * 1024 * 1024 };

    explicit SkfCall(const char *function);
    ~SkfCall();
    SkfCall(const SkfCall &) = delete;
    SkfCall &operator=(const SkfCall &) = delete;

    // The store this library serves: the one set by setStoreRoot, else the
    // one "softtoken.store" beside the library names, else
    // DeviceStore::defaultRoot(), read anew at each call.
    static QString storeRoot();
    static void setStoreRoot(const QString &root);

    ULONG device(DEVHANDLE handle, Connection **out);
    ULONG app(HAPPLICATION handle, AppObject **out);
    ULONG container(HCONTAINER handle, ContainerObject **out);
    ULONG key(HANDLE handle, CipherKey **out);
    ULONG hash(HANDLE handle, HashObject **out);
    ULONG mac(HANDLE handle, MacObject **out);
    // Faults planned on a device named without a handle, or on any of them.
    ULONG named(DeviceStore &store, const QString &device);
    ULONG anyDevice(DeviceStore &store, const QStringList &devices);
    // A present device of the store named by text, its plan taken, and its
    // data; the presence token of the insertion if asked for.
    ULONG presentDevice(DeviceStore &store, LPSTR text, QString *name, const DeviceData **data,
                        QByteArray *token = nullptr);

    // The device's current data, or the application and container of a
    // handle; codes for what has vanished meanwhile. What they point to
    // stays valid for the rest of the call.
    ULONG data(Connection *connection, const DeviceData **out);
    ULONG appData(AppObject *app, const DeviceData::App **out);
    // app() and appData() at once, for calls with nothing to check between.
    ULONG appData(HAPPLICATION handle, const DeviceData::App **out);
    ULONG containerData(ContainerObject *container, const DeviceData::App **app, const DeviceData::Container **out);
    EVP_PKEY *privateKey(ContainerObject *container, bool sign);
    // Read-modify-write of the device under its lock. change() returns the
    // call's result and may clear persist to write nothing.
    ULONG modify(Connection *connection, const std::function<ULONG(DeviceData &, bool &persist)> &change);
    ULONG modifyApp(AppObject *app, const std::function<ULONG(DeviceData::App &, DeviceData &, bool &persist)> &change);

    ULONG requireUser(AppObject *app) const;
    // container(), then the user login of its application.
    ULONG userContainer(HCONTAINER handle, ContainerObject **out);

    // Size-then-fill: a null buffer asks for the size.
    ULONG fill(const QByteArray &bytes, BYTE *out, ULONG *len);
    ULONG fillText(const QByteArray &bytes, LPSTR out, ULONG *len);
    void reportSize(ULONG *len, ULONG actual);
    // Size-then-fill answered before the work: when out is null or shorter
    // than need, *rv gets the answer for need bytes and this returns true.
    bool sizeFirst(ULONG need, BYTE *out, ULONG *len, ULONG *rv);

    // Releases the call's lock while the caller waits; handles must be
    // looked up again afterwards.
    void unlockWhile(const std::function<void()> &wait);

    static ULONG input(const BYTE *data, ULONG len, QByteArray *out);
    // A NUL-terminated name of at most maxBytes.
    static bool name(const char *text, int maxBytes, QString *out);
    // name() of an argument: missing is a parameter error, unusable gives
    // the call's own code.
    static ULONG nameArg(const char *text, int maxBytes, ULONG unusable, QString *out);
    static QByteArray multiString(const QStringList &names);

    // A PIN argument of at most 256 bytes; new PINs must be 6 to 16 bytes.
    static ULONG pinArg(LPSTR pin, QByteArray *out);
    static bool pinLengthOk(const QByteArray &pin);
    // Checks the application's PIN against its record, counting a wrong try
    // down; persist tells whether the record changed. A wrong try whose
    // count-down the store refuses is owed, in this process: the PIN stays
    // refused until modify() can store it.
    ULONG checkPin(AppObject *app, bool admin, DeviceData::Pin &pin, const QByteArray &given, ULONG *retry,
                   bool &persist);
    // The last checkPin passed, with nothing owed: what only restores its
    // counter may go unstored.
    bool pinPassed() const { return m_pin.checked && m_pin.right && m_pin.owed == 0; }
    // Tries left, less those owed.
    static int remaining(AppObject *app, bool admin, const DeviceData::Pin &pin);

private:
    ULONG checkDevice(Connection *connection);
    // Keeps a snapshot valid for the rest of the call.
    const DeviceData *hold(DeviceCache::SnapshotPtr snapshot);
    ULONG takeFault(DeviceStore &store, const QString &device, const std::string &faultPath);

    std::unique_lock<std::recursive_mutex> m_lock;
    std::vector<DeviceCache::SnapshotPtr> m_held;
    const char *m_function;
    qint32 m_sizeDelta = 0;
    struct PinTry
    {
        QString key;
        int owed = 0;
        bool checked = false, right = false, counted = false;
    } m_pin;
    SkfCall *m_outer;
};

#endif // SOFTTOKEN_SKFCALL_H
