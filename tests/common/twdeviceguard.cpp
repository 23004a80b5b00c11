#include "twdeviceguard.h"

#include <QFile>

#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

const char *const TwDeviceGuard::kPath = "/tmp/tw_device";

namespace {

const char kLock[] = "/tmp/tw_device.lock";

// A fresh /tmp with every entry of the machine's bound back by name but the
// device-state file and its lock: rows may remove and make the file, and
// build trees, temporary folders and the rest of /tmp stay where they were.
// What others add to the machine's /tmp later is not seen.
bool privateTmp()
{
    char cwd[4096], path[4096] = "/tmp/", link[4096];
    const bool named = ::getcwd(cwd, sizeof cwd);
    const int here = ::open(".", O_PATH | O_CLOEXEC), real = ::open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR *const list = real < 0 ? nullptr : ::fdopendir(real);
    // Bound from there by relative names, the cheapest way.
    const bool ok = list && here >= 0 && !::fchdir(real) && !::mount("tmpfs", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777");
    while (const dirent *e = ok ? ::readdir(list) : nullptr) {
        struct stat st;
        const unsigned type = e->d_type != DT_UNKNOWN ? e->d_type
                              : ::fstatat(real, e->d_name, &st, AT_SYMLINK_NOFOLLOW) ? unsigned(DT_UNKNOWN) : IFTODT(st.st_mode);
        ::strncpy(path + 5, e->d_name, sizeof path - 6);
        const ssize_t size = type == DT_LNK ? ::readlinkat(real, e->d_name, link, sizeof link - 1) : -1;
        if (!::strcmp(path, TwDeviceGuard::kPath) || !::strcmp(path, kLock)) // "." and ".." are there already
            continue;
        if (size >= 0) { // a link is made again: a bind would follow it
            link[size] = '\0';
            (void)::symlink(link, path);
        } else if (type != DT_LNK && !(type == DT_DIR ? ::mkdir(path, 0700) : ::mknod(path, S_IFREG | 0600, 0)) &&
                   ::mount(e->d_name, path, nullptr, MS_BIND | MS_REC, nullptr)) {
            (void)::remove(path); // what cannot be bound is left out
        }
    }
    if (list)
        ::closedir(list);
    if (!named || ::chdir(cwd)) // back, through the new /tmp where it was under it
        (void)::fchdir(here);
    ::close(here);
    return ok;
}

} // namespace

bool TwDeviceGuard::ownMounts()
{
    if (::unshare(CLONE_NEWNS) != 0) { // not root: in a user namespace mapping only itself
        const QByteArray uid = QByteArray::number(::getuid()), gid = QByteArray::number(::getgid());
        const QByteArray maps[][2] = {{"setgroups", "deny"}, {"uid_map", uid + ' ' + uid + " 1"}, {"gid_map", gid + ' ' + gid + " 1"}};
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            return false;
        for (const auto &m : maps) {
            QFile f("/proc/self/" + m[0]);
            if (!f.open(QIODevice::WriteOnly) || f.write(m[1]) < 0)
                return false;
        }
    }
    return ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool TwDeviceGuard::isolate()
{
    static bool held = false;
    // A child of a test shares its parent's /tmp or lock.
    if (held || qEnvironmentVariableIsSet("TWTEST_DEVICE_LOCKED"))
        return true;
    held = true;
    qputenv("TWTEST_DEVICE_LOCKED", "1");
    const bool own = !qEnvironmentVariableIsSet("TWTEST_SHARED_TMP") && ownMounts() && privateTmp();
    __user_cap_header_struct head{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct none[2] = {};
    // Not root: the powers a user namespace gives would read files the rows make unreadable.
    if (::getuid() != 0)
        (void)::syscall(SYS_capset, &head, none);
    if (own)
        return true;
    // No /tmp of its own: the machine's file, under a lock, put back as found.
    const int fd = ::open(kLock, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd >= 0)
        (void)::fchmod(fd, 0666); // other users' runs take it too
    if (fd < 0 || ::flock(fd, LOCK_EX) != 0)
        qFatal("%s: cannot take the lock", kLock);
    static const QByteArray saved = current(); // put back as found, under the lock
    std::atexit([] { set(saved); });
    return true;
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
