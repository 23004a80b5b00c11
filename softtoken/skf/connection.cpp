#include "connection.h"

#include "devicecache.h"

#include <QFile>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

std::string nativePath(const DeviceStore &store, const QString &device, const char *file)
{
    return QFile::encodeName(store.path(device, file)).toStdString();
}

} // namespace

Connection::Connection(const QString &storeRoot, const QString &device, const QByteArray &presenceToken)
    : TokenObject(ConnectionKind, this, nullptr), m_store(storeRoot)
{
    bind(device, presenceToken);
}

void Connection::bind(const QString &device, const QByteArray &presenceToken)
{
    m_device = device;
    m_devicePath = nativePath(m_store, device, DeviceStore::DeviceFile);
    m_presentPath = nativePath(m_store, device, DeviceStore::PresentFile);
    m_faultPath = nativePath(m_store, device, DeviceStore::FaultFile);
    m_lockPath = nativePath(m_store, device, "devlock");
    m_token = presenceToken;
    m_presentStamp = FileStamp::of(m_presentPath);
    // Bound within a call that has just read the token.
    m_presentEpoch = DeviceCache::instance().epoch(m_store.root());
}

Connection::~Connection()
{
    unlockDevice();
}

bool Connection::alive()
{
    if (!m_dead) {
        const quint64 epoch = DeviceCache::instance().epoch(m_store.root());
        if (epoch == m_presentEpoch)
            return true;
        const FileStamp now = FileStamp::of(m_presentPath);
        QByteArray token;
        if (now.unchangedSince(m_presentStamp)
            || (now.exists() && DeviceStore::readAll(m_store.path(m_device, DeviceStore::PresentFile), &token)
                && token == m_token)) {
            m_presentStamp = now;
            m_presentEpoch = epoch;
            return true;
        }
        // Pulled, or pulled and put back: either way this connection is over.
        m_dead = true;
        logOutAll();
    }
    return !m_serial.isEmpty() && takeUpFollowed();
}

bool Connection::takeUpFollowed()
{
    for (const QString &name : m_store.deviceNames()) {
        DeviceData data;
        QString error;
        if (m_store.isPresent(name) && m_store.load(name, &data, &error) && data.serial == m_serial) {
            unlockDevice();
            bind(name, m_store.presenceToken(name));
            m_dead = false;
            return true;
        }
    }
    return false;
}

void Connection::logIn(const QString &app, bool admin)
{
    (admin ? m_admin : m_user).insert(app);
}

void Connection::logOut(const QString &app)
{
    m_user.remove(app);
    m_admin.remove(app);
}

void Connection::logOutAll()
{
    m_user.clear();
    m_admin.clear();
    m_devAuth = false;
}

QByteArray Connection::takeChallenge()
{
    const QByteArray c = m_challenge;
    m_challenge.clear();
    return c;
}

bool Connection::tryDeviceLock()
{
    if (m_lockFd >= 0)
        return true;
    const int fd = ::open(m_lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0)
        return false;
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        return false;
    }
    m_lockFd = fd;
    return true;
}

void Connection::unlockDevice()
{
    if (m_lockFd >= 0) {
        ::close(m_lockFd);
        m_lockFd = -1;
    }
}

void Connection::release()
{
    unlockDevice();
    logOutAll();
}
