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
    // Nothing mounted here may travel back to the machine's namespace. A
    // private /tmp, not a file bound over the path: the test must be able to
    // remove the file, as the library sees a missing one.
    return enterNamespace() && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("tmpfs", "/tmp", "tmpfs", 0, "mode=1777") == 0;
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
