#ifndef TWKEY_KEYDRIVER_H
#define TWKEY_KEYDRIVER_H

#include <QObject>
#include <QStringList>

#include <functional>

class KeyObject;
class QLibrary;

// Abstract driver: enumerates tokens behind one library and hands out
// key objects.
class KeyDriver : public QObject
{
    Q_OBJECT
public:
    explicit KeyDriver(QObject *parent = nullptr);
    ~KeyDriver() override;

    virtual bool load() = 0;
    virtual void unload() = 0;
    // Enumerates afresh, then opens the device at this index of the list.
    virtual KeyObject *openKey(int index);
    // The same over the list of the last enumeration, so that a loop over
    // all keys enumerates once.
    virtual KeyObject *openKeyWithoutEnumDev(int index);
    // Enumerates and tells how many devices there are.
    virtual int count();

    qint64 lastError();
    void setLastError(long long code);

    // The library's device names; empty on failure.
    virtual QStringList enumDev() = 0;
    // The session on a device: found among the live ones or made, and
    // opened; null if it won't open. `noload` lets a live session be
    // returned without asking the token, where the protocol allows it.
    virtual KeyObject *open(QString devName, bool noload) = 0;

protected:
    // What every protocol's driver does alike. `function` names the
    // caller in the log, so the lines read as the caller's own.

    // Opens the library; false after "end. error msg %s".
    static bool openLibrary(const char *function, QLibrary &library, const QString &fileName);
    // A name the library lacks: a required one ends the binding (false),
    // an optional one is only noted. Both go to Qt's debug stream.
    static bool acceptMissing(const char *name, bool required);

    // The library's device list in its two-call form: call(null, &size)
    // asks for the size, call(buffer, &size) fills. An empty call means the
    // library has no such function. `list` is emptied, then filled.
    using DevListCall = std::function<quint32(char *buffer, quint32 *size)>;
    void enumDevices(const char *function, QStringList &list, const DevListCall &call);

    // The device names of the last enumeration by count or openKey.
    QStringList m_devList;

private:
    KeyObject *openAt(const char *function, int index, bool noload);
};

// One row of a driver's function table (X(name, required) lists): binds
// p<name> from m_library, and leaves init() on a missing required name.
#define TW_DRIVER_BIND_ROW(name, required)                                                                             \
    p##name = reinterpret_cast<decltype(p##name)>(m_library.resolve(#name));                                          \
    if (!p##name && !acceptMissing(#name, required))                                                                   \
        return false;

#endif
