#include "devicestore.h"

#include "tokencrypto.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <atomic>

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

const char *const DeviceStore::DeviceFile = "device.json";
const char *const DeviceStore::PresentFile = "present";
const char *const DeviceStore::FaultFile = "faults.json";
const char *const DeviceStore::LockFile = "lock";
const char *const DeviceStore::GenerationFile = ".generation";

namespace {

// The generation file is started afresh at this size.
const off_t kGenerationLimit = 4096;

QByteArray native(const QString &path) { return QFile::encodeName(path); }

QString errnoText(const QString &what, const QString &path)
{
    return QStringLiteral("%1 %2: %3").arg(what, path, QString::fromLocal8Bit(strerror(errno)));
}

bool regularFile(const QByteArray &path)
{
    struct stat st;
    return ::stat(path.constData(), &st) == 0 && S_ISREG(st.st_mode);
}

// Exclusive flock on the device's lock file for the life of the object.
class DeviceLock
{
public:
    explicit DeviceLock(const QString &path)
    {
        // Read-only is enough for flock, and works on a read-only store.
        m_fd = ::open(native(path).constData(), O_RDONLY | O_CLOEXEC);
        if (m_fd < 0 && errno == ENOENT)
            m_fd = ::open(native(path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (m_fd >= 0) {
            int rc;
            do {
                rc = ::flock(m_fd, LOCK_EX);
            } while (rc != 0 && errno == EINTR);
            if (rc != 0) {
                ::close(m_fd);
                m_fd = -1;
            }
        }
    }
    ~DeviceLock()
    {
        if (m_fd >= 0)
            ::close(m_fd); // closing drops the lock
    }
    DeviceLock(const DeviceLock &) = delete;
    DeviceLock &operator=(const DeviceLock &) = delete;
    bool held() const { return m_fd >= 0; }

private:
    int m_fd = -1;
};

// Temporary files in a device's folder while its lock is held: every
// writer holds the lock, so these are what killed writers left.
void sweepTemporaries(const QString &folder)
{
    QDir dir(folder);
    for (const QString &name : dir.entryList({QStringLiteral("*.tmp.*")}, QDir::Files | QDir::Hidden | QDir::System))
        dir.remove(name);
}

} // namespace

DeviceStore::DeviceStore(const QString &root)
    : m_root(root)
{
}

QString DeviceStore::defaultRoot()
{
    const QString store = QString::fromLocal8Bit(qgetenv("SOFTTOKEN_STORE"));
    if (!store.isEmpty())
        return store;
    const QString xdg = QString::fromLocal8Bit(qgetenv("XDG_DATA_HOME"));
    if (!xdg.isEmpty())
        return xdg + QStringLiteral("/twkey/softtoken");
    return QDir::homePath() + QStringLiteral("/.local/share/twkey/softtoken");
}

bool DeviceStore::validDeviceName(const QString &name)
{
    if (name.isEmpty() || name.size() > 64 || name.startsWith(QLatin1Char('.')))
        return false;
    for (const QChar c : name) {
        const ushort u = c.unicode();
        const bool ok = (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9') || u == '.'
                        || u == '_' || u == '-';
        if (!ok)
            return false;
    }
    return true;
}

QString DeviceStore::path(const QString &device, const char *file) const
{
    QString p = m_root + QLatin1Char('/') + device;
    if (file)
        p += QLatin1Char('/') + QLatin1String(file);
    return p;
}

QString DeviceStore::generationPath() const
{
    return m_root + QLatin1Char('/') + QLatin1String(GenerationFile);
}

void DeviceStore::bumpGeneration() const
{
    // Appends of writers holding other devices' locks don't lose each
    // other; a file started afresh is a new inode, which readers see too.
    const QByteArray file = native(generationPath());
    const int fd = ::open(file.constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    struct stat st;
    bool ok = fd >= 0 && ::write(fd, "+", 1) == 1 && ::fstat(fd, &st) == 0;
    if (fd >= 0)
        ::close(fd);
    if (ok && st.st_size >= kGenerationLimit)
        ok = writeAtomically(generationPath(), QByteArrayLiteral("+"), nullptr);
    // Without a generation, readers look at every file again.
    if (!ok)
        ::unlink(file.constData());
}

QStringList DeviceStore::deviceNames() const
{
    QStringList names;
    const QByteArray root = native(m_root);
    DIR *dir = ::opendir(root.constData());
    if (!dir)
        return names;
    while (struct dirent *ent = ::readdir(dir)) {
        if (ent->d_name[0] == '.')
            continue;
        const QByteArray file = root + '/' + QByteArray(ent->d_name) + '/' + QByteArray(DeviceFile);
        if (regularFile(file))
            names.append(QFile::decodeName(ent->d_name));
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

bool DeviceStore::exists(const QString &device) const
{
    return validDeviceName(device) && regularFile(native(path(device, DeviceFile)));
}

bool DeviceStore::isPresent(const QString &device) const
{
    return exists(device) && regularFile(native(path(device, PresentFile)));
}

QByteArray DeviceStore::presenceToken(const QString &device) const
{
    QByteArray token;
    if (!exists(device) || !readAll(path(device, PresentFile), &token))
        return QByteArray();
    return token;
}

bool DeviceStore::readAll(const QString &path, QByteArray *out)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return false;
    *out = f.readAll();
    return true;
}

bool DeviceStore::writeAtomically(const QString &path, const QByteArray &bytes, QString *error)
{
    static std::atomic<unsigned> counter{0};
    const QByteArray target = native(path);
    const QByteArray temp = target + ".tmp." + QByteArray::number(qint64(::getpid())) + '.'
                            + QByteArray::number(counter.fetch_add(1));
    const int fd = ::open(temp.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
        if (error)
            *error = errnoText(QStringLiteral("cannot create"), QFile::decodeName(temp));
        return false;
    }
    qint64 done = 0;
    bool ok = true;
    while (ok && done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        ok = n > 0;
        done += n > 0 ? n : 0;
    }
    ok = ok && ::fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    if (!ok || ::rename(temp.constData(), target.constData()) != 0) {
        if (error)
            *error = errnoText(QStringLiteral("cannot write"), path);
        ::unlink(temp.constData());
        return false;
    }
    // Make the rename itself durable.
    const int dfd = ::open(native(QFileInfo(path).absolutePath()).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
        ::fsync(dfd);
        ::close(dfd);
    }
    return true;
}

bool DeviceStore::load(const QString &device, DeviceData *out, QString *error) const
{
    QByteArray json;
    if (!exists(device) || !readAll(path(device, DeviceFile), &json)) {
        if (error)
            *error = QStringLiteral("no device %1 in %2").arg(device, m_root);
        return false;
    }
    return DeviceData::fromJson(json, out, error);
}

bool DeviceStore::lockedWrite(const QString &device, const std::function<bool(QString *)> &work, QString *error)
{
    if (!exists(device)) {
        if (error)
            *error = QStringLiteral("no device %1 in %2").arg(device, m_root);
        return false;
    }
    DeviceLock lock(path(device, LockFile));
    if (!lock.held()) {
        if (error)
            *error = errnoText(QStringLiteral("cannot lock"), path(device, LockFile));
        return false;
    }
    // The device may have been deleted while we waited for the lock.
    if (!exists(device)) {
        if (error)
            *error = QStringLiteral("no device %1 in %2").arg(device, m_root);
        return false;
    }
    sweepTemporaries(path(device));
    const bool done = work(error);
    bumpGeneration();
    return done;
}

bool DeviceStore::create(const QString &device, const DeviceData &data, QString *error)
{
    if (!validDeviceName(device)) {
        if (error)
            *error = QStringLiteral("invalid device name '%1': use letters, digits, '.', '_' and '-'").arg(device);
        return false;
    }
    const bool madeRoot = !QFileInfo::exists(m_root);
    if (!QDir().mkpath(m_root)) {
        if (error)
            *error = QStringLiteral("cannot create the store %1").arg(m_root);
        return false;
    }
    // A folder without a device file is what an interrupted create leaves:
    // it is taken over.
    if (::mkdir(native(path(device)).constData(), 0700) != 0 && (errno != EEXIST || exists(device))) {
        if (error)
            *error = errno == EEXIST ? QStringLiteral("device %1 already exists in %2").arg(device, m_root)
                                     : errnoText(QStringLiteral("cannot create"), path(device));
        return false;
    }
    DeviceLock lock(path(device, LockFile));
    sweepTemporaries(path(device));
    if (writeAtomically(path(device, DeviceFile), data.toJson(), error)
        && writeAtomically(path(device, PresentFile), TokenCrypto::random(8).toHex(), error)) {
        bumpGeneration();
        return true;
    }
    // Half a device is none: what was made goes again, the device file first.
    for (const char *name : {DeviceFile, PresentFile, LockFile})
        ::unlink(native(path(device, name)).constData());
    ::rmdir(native(path(device)).constData());
    if (madeRoot)
        ::rmdir(native(m_root).constData());
    else
        bumpGeneration();
    return false;
}

bool DeviceStore::update(const QString &device, const std::function<bool(DeviceData &)> &change, QString *error)
{
    return lockedWrite(device, [&](QString *err) {
        DeviceData data;
        if (!load(device, &data, err))
            return false;
        if (!change(data))
            return false;
        return writeAtomically(path(device, DeviceFile), data.toJson(), err);
    }, error);
}

bool DeviceStore::setPresent(const QString &device, bool present, QString *error)
{
    return lockedWrite(device, [&](QString *err) {
        const QByteArray marker = native(path(device, PresentFile));
        if (!present) {
            if (::unlink(marker.constData()) != 0 && errno != ENOENT) {
                if (err)
                    *err = errnoText(QStringLiteral("cannot remove"), path(device, PresentFile));
                return false;
            }
            return true;
        }
        // A fresh token per insertion lets connections notice a remove and
        // insert that happened between two of their calls.
        return regularFile(marker) || writeAtomically(path(device, PresentFile), TokenCrypto::random(8).toHex(), err);
    }, error);
}

bool DeviceStore::destroy(const QString &device, QString *error)
{
    return lockedWrite(device, [&](QString *err) {
        // The device file goes first: from then on the device is unknown.
        const QByteArray dir = native(path(device));
        const char *order[] = {DeviceFile, PresentFile, FaultFile};
        for (const char *name : order) {
            const QByteArray f = dir + '/' + name;
            if (::unlink(f.constData()) != 0 && errno != ENOENT) {
                if (err)
                    *err = errnoText(QStringLiteral("cannot delete"), QFile::decodeName(f));
                return false;
            }
        }
        QDir d(path(device));
        for (const QString &left : d.entryList(QDir::Files | QDir::Hidden | QDir::System))
            d.remove(left);
        ::rmdir(dir.constData());
        return true;
    }, error);
}

bool DeviceStore::loadFaults(const QString &device, FaultPlan *out) const
{
    QByteArray json;
    *out = FaultPlan();
    if (!readAll(path(device, FaultFile), &json))
        return true; // no plan
    return FaultPlan::fromJson(json, out);
}

bool DeviceStore::updateFaults(const QString &device, const std::function<bool(FaultPlan &)> &change,
                               QString *error)
{
    return lockedWrite(device, [&](QString *err) {
        FaultPlan plan;
        if (!loadFaults(device, &plan))
            plan = FaultPlan(); // a damaged plan is replaced, not kept
        if (!change(plan))
            return false;
        if (plan.isEmpty()) {
            const QByteArray f = native(path(device, FaultFile));
            return ::unlink(f.constData()) == 0 || errno == ENOENT;
        }
        return writeAtomically(path(device, FaultFile), plan.toJson(), err);
    }, error);
}
