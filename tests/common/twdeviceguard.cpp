#include "twdeviceguard.h"

#include <QFile>

#include <cstdlib>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

const char *const TwDeviceGuard::kPath = "/tmp/tw_device";

bool TwDeviceGuard::isolate()
{
    static bool held = false;
    // A child of a test shares its parent's lock.
    if (held || qEnvironmentVariableIsSet("TWTEST_DEVICE_LOCKED"))
        return true;
    // Not a private mount namespace: it would hide a build tree under /tmp,
    // and the file could not be removed as the rows need.
    const int fd = ::open("/tmp/tw_device.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd >= 0)
        (void)::fchmod(fd, 0666); // other users' runs take it too
    if (fd < 0 || ::flock(fd, LOCK_EX) != 0)
        qFatal("/tmp/tw_device.lock: cannot take the lock");
    held = true;
    static TwDeviceGuard *saved = new TwDeviceGuard; // put back as found, under the lock
    std::atexit([] { delete saved; });
    qputenv("TWTEST_DEVICE_LOCKED", "1");
    return true;
}

TwDeviceGuard::TwDeviceGuard() : m_saved(current()) {}

TwDeviceGuard::~TwDeviceGuard() { set(m_saved); }

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
