#include "twdeviceguard.h"

#include <QFile>

#include <cstdlib>

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

const char *const TwDeviceGuard::kPath = "/tmp/tw_device";

namespace {

TwDeviceGuard::Isolation s_isolation = TwDeviceGuard::Isolation::None;

bool writeProc(const char *path, const QByteArray &text)
{
    const int fd = ::open(path, O_WRONLY | O_CLOEXEC);
    const bool ok = fd >= 0 && ::write(fd, text.constData(), size_t(text.size())) == text.size();
    return (fd < 0 || ::close(fd) == 0) && ok;
}

// As root a mount namespace directly, else within a user namespace that maps
// us to ourselves (files keep their owners).
bool enterNamespace()
{
    if (::unshare(CLONE_NEWNS) == 0)
        return true;
    const QByteArray uid = QByteArray::number(::getuid()), gid = QByteArray::number(::getgid());
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        return false;
    writeProc("/proc/self/setgroups", "deny");
    return writeProc("/proc/self/uid_map", uid + ' ' + uid + " 1") && writeProc("/proc/self/gid_map", gid + ' ' + gid + " 1");
}

bool privateDeviceFile()
{
    // Nothing mounted here may travel back to the machine's namespace.
    if (!enterNamespace() || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return false;
    // The mount point must exist: an empty file reads as none to the library,
    // and it is never removed again, since another run may sit on it.
    struct stat st;
    const int point = ::lstat(TwDeviceGuard::kPath, &st) == 0 ? -2 : ::open(TwDeviceGuard::kPath, O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
    char source[] = "/tmp/tw_device.private.XXXXXX";
    const int fd = point == -1 ? -1 : ::mkstemp(source);
    const bool ok = fd >= 0 && ::mount(source, TwDeviceGuard::kPath, nullptr, MS_BIND, nullptr) == 0;
    if (fd >= 0)
        ::close(fd), ::unlink(source); // the mount keeps it alive
    if (point >= 0)
        ::close(point);
    return ok;
}

} // namespace

TwDeviceGuard::Isolation TwDeviceGuard::isolate()
{
    const QByteArray inherited = qgetenv("TWTEST_DEVICE_ISOLATION"); // a child of an isolated test shares it
    if (s_isolation == Isolation::None && !inherited.isEmpty())
        s_isolation = inherited == "namespace" ? Isolation::Namespace : Isolation::Lock;
    if (s_isolation != Isolation::None)
        return s_isolation;
    if (privateDeviceFile()) {
        s_isolation = Isolation::Namespace;
    } else {
        const int fd = ::open("/tmp/tw_device.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (fd >= 0)
            (void)::fchmod(fd, 0666); // other users' runs take it too
        if (fd < 0 || ::flock(fd, LOCK_EX) != 0)
            qFatal("/tmp/tw_device: neither a private mount namespace nor /tmp/tw_device.lock");
        s_isolation = Isolation::Lock;
        static TwDeviceGuard *saved = new TwDeviceGuard; // put back as found, under the lock
        std::atexit([] { delete saved; });
    }
    qputenv("TWTEST_DEVICE_ISOLATION", s_isolation == Isolation::Namespace ? "namespace" : "lock");
    return s_isolation;
}

TwDeviceGuard::Isolation TwDeviceGuard::isolation()
{
    return s_isolation;
}

TwDeviceGuard::TwDeviceGuard() : m_saved(current()) {}

TwDeviceGuard::~TwDeviceGuard()
{
    set(m_saved);
}

QByteArray TwDeviceGuard::current()
{
    QFile file(QString::fromLatin1(kPath));
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    const QByteArray content = file.readAll();
    return content.isNull() ? QByteArray("") : content; // an empty file is a file
}

bool TwDeviceGuard::set(const QByteArray &content)
{
    QFile file(QString::fromLatin1(kPath));
    if (content.isNull() && (!file.exists() || file.remove()))
        return true;
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(content) == content.size();
}
