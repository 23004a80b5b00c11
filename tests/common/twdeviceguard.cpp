#include "twdeviceguard.h"

#include <QFile>

#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

const char *const TwDeviceGuard::kPath = "/tmp/tw_device";

namespace {

const char kMarker[] = "TWTEST_DEVICE_ISOLATION";
TwDeviceGuard::Isolation s_isolation = TwDeviceGuard::Isolation::None;

bool writeProc(const char *path, const QByteArray &text)
{
    const int fd = ::open(path, O_WRONLY | O_CLOEXEC);
    const bool ok = fd >= 0 && ::write(fd, text.constData(), size_t(text.size())) == text.size();
    if (fd >= 0)
        ::close(fd);
    return ok;
}

// A mount namespace of our own: as root directly, else inside a user
// namespace that maps us to ourselves (files keep their owners).
bool enterNamespace()
{
    if (::unshare(CLONE_NEWNS) == 0)
        return true;
    const uid_t uid = ::getuid();
    const gid_t gid = ::getgid();
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        return false;
    writeProc("/proc/self/setgroups", "deny");
    return writeProc("/proc/self/uid_map", QByteArray::number(uid) + ' ' + QByteArray::number(uid) + " 1")
           && writeProc("/proc/self/gid_map", QByteArray::number(gid) + ' ' + QByteArray::number(gid) + " 1");
}

bool bindPrivateFile()
{
    // Nothing we mount may travel back to the machine's namespace.
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return false;
    // The mount point must exist; an empty file reads as none to the
    // library, and it is never removed again (another run may sit on it).
    const int point = ::open(TwDeviceGuard::kPath, O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
    if (point < 0)
        return false;
    ::close(point);
    char source[] = "/tmp/tw_device.private.XXXXXX";
    const int fd = ::mkstemp(source);
    if (fd < 0)
        return false;
    ::close(fd);
    const bool ok = ::mount(source, TwDeviceGuard::kPath, nullptr, MS_BIND, nullptr) == 0;
    ::unlink(source); // the mount keeps it alive
    return ok;
}

} // namespace

TwDeviceGuard::Isolation TwDeviceGuard::isolate()
{
    if (s_isolation != Isolation::None)
        return s_isolation;
    const QByteArray inherited = qgetenv(kMarker);
    if (inherited == "namespace" || inherited == "lock") // a child of an isolated test
        return s_isolation = inherited == "namespace" ? Isolation::Namespace : Isolation::Lock;
    if (enterNamespace() && bindPrivateFile()) {
        s_isolation = Isolation::Namespace;
    } else {
        const int fd = ::open("/tmp/tw_device.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (fd < 0 || ::flock(fd, LOCK_EX) != 0) {
            std::fprintf(stderr, "tw_device: neither a private namespace nor the lock\n");
            std::abort();
        }
        ::fchmod(fd, 0666); // other users' runs take it too
        s_isolation = Isolation::Lock;
    }
    qputenv(kMarker, s_isolation == Isolation::Namespace ? "namespace" : "lock");
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
