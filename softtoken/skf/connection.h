// A connection to one device of the store (a DEVHANDLE). It carries what a
// real token keeps per connection: the login state of each application, the
// device authentication state and challenge, and the device lock. It also
// notices when its device was pulled: from then on it is dead for good,
// unless it follows its token (the native face's handles do).
#ifndef SOFTTOKEN_CONNECTION_H
#define SOFTTOKEN_CONNECTION_H

#include "devicestore.h"
#include "filestamp.h"
#include "tokenobject.h"

#include <QByteArray>
#include <QSet>
#include <QString>

#include <string>

class Connection : public TokenObject
{
public:
    Connection(const QString &storeRoot, const QString &device, const QByteArray &presenceToken);
    ~Connection() override;

    DeviceStore &store() { return m_store; }
    const QString &device() const { return m_device; }
    const std::string &dataPath() const { return m_devicePath; }
    const std::string &faultPath() const { return m_faultPath; }

    // False once the device has been removed or deleted since the connect,
    // and, for a connection that follows its token, until a device with
    // that serial number is present again.
    bool alive();
    // Once pulled, take up the present device holding this serial number,
    // under whatever name, logged out: what a native library that tracks
    // its tokens by serial number does with a handle.
    void followSerial(const QString &serial) { m_serial = serial; }

    bool userLoggedIn(const QString &app) const { return m_user.contains(app); }
    bool adminLoggedIn(const QString &app) const { return m_admin.contains(app); }
    void logIn(const QString &app, bool admin);
    void logOut(const QString &app);
    void logOutAll();

    bool devAuthenticated() const { return m_devAuth; }
    void setDevAuthenticated(bool on) { m_devAuth = on; }
    QByteArray takeChallenge();
    void setChallenge(const QByteArray &random) { m_challenge = random; }

    bool holdsDeviceLock() const { return m_lockFd >= 0; }
    // Non-blocking try; true when this connection holds the lock after it.
    bool tryDeviceLock();
    void unlockDevice();

    void release() override;

private:
    void bind(const QString &device, const QByteArray &presenceToken);
    bool takeUpFollowed();

    DeviceStore m_store;
    QString m_device;
    std::string m_devicePath;
    std::string m_presentPath;
    std::string m_faultPath;
    std::string m_lockPath;
    QByteArray m_token;
    FileStamp m_presentStamp;
    // The store's state in which the device was last found present.
    quint64 m_presentEpoch = 0;
    bool m_dead = false;
    QSet<QString> m_user;
    QSet<QString> m_admin;
    bool m_devAuth = false;
    QByteArray m_challenge;
    int m_lockFd = -1;
    QString m_serial;
};

#endif // SOFTTOKEN_CONNECTION_H
