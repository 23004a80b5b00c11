#include "keyobjectskf.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "skf/keydriverskf.h"
#include "skftokenapi.h"

namespace {

// Written at each connect, read back to learn whether another session or
// process has connected since.
const char kDeviceStateFile[] = "/tmp/tw_device";
// The most of the device-state file read: it holds a serial number.
const int kMaxStateFile = 4096;

// The device-state file, never through a link and never waiting on a FIFO;
// anything but a regular file counts as no file (-1).
int openStateFile(int flags)
{
    const int fd = ::open(kDeviceStateFile, flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666);
    struct stat st;
    if (fd >= 0 && (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))) {
        ::close(fd);
        return -1;
    }
    return fd;
}
// A session this young is taken as good without asking the token.
const quint32 kFreshMsecs = 800;

} // namespace

KeyObjectSKF::KeyObjectSKF(KeyDriverPackage *package, QString devName, QObject *parent)
    : KeySession(package, devName, Traits(), new SkfTokenApi(qobject_cast<KeyDriverSKF *>(parent)))
{
}

KeyObjectSKF::~KeyObjectSKF()
{
    KeyObjectSKF::closeV1();
}

// Six random bytes: the cheapest question a token must answer.
ULONG KeyObjectSKF::probeToken()
{
    if (!m_api->bound())
        return SAR_NOTINITIALIZEERR;
    BYTE random[7] = {0};
    return m_api->genRandom(random, 6);
}

bool KeyObjectSKF::open()
{
    SLOG(" KeyObjectSKF start");
    const bool wasOpen = m_isOpen;
    if (wasOpen) {
        const int timeTemp = m_time.msecsTo(QTime::currentTime());
        SLOG(QStringLiteral(" timeTemp: ") + QString::number(timeTemp));
        // Negative after midnight: as unsigned that counts as long ago.
        if (quint32(timeTemp) <= kFreshMsecs)
            return true;
        if (!dev) {
            m_time = QTime::currentTime();
            return true;
        }
        if (probeToken() != SAR_OK) {
            SLOG(" SblEnumDev = true");
            m_needEnumFile = true;
            m_time = QTime::currentTime();
        } else {
            const QString strSerialNumber = serialOf(devInfo);
            DEVINFO devtemp;
            std::memset(&devtemp, 0, sizeof(devtemp));
            if (m_api->bound())
                m_api->getDevInfo(&devtemp);
            const QString tempSerial = serialOf(devtemp);
            SLOG(QLatin1String("devtemp.SerialNumber = ") + tempSerial + QLatin1String(", strSerialNumber = ") + strSerialNumber);
            // Same token: the probe stands in for a connect, and m_time is
            // left alone so the next open probes again.
            if (tempSerial == strSerialNumber)
                return true;
            m_needEnumFile = true;
            m_time = QTime::currentTime();
        }
    }

    // Always read, so m_keyStatus follows the file.
    const bool changed = GetKeyStatus();
    if (!changed && dev && !wasOpen) {
        SLOG("key statue is not change");
        return true;
    }

    SLOG("linux SKF_ConnectDev");
    DEVHANDLE handle = nullptr;
    const ULONG ret = connectDevice(&handle);
    if (ret != SAR_OK) {
        // Here the words and the code come before PrintError.
        SKF_FAILED(ret, " SKF_ConnectDev failed,ret = %d ", SkfCall::CloseNever, SkfCall::ErrorThenClose, false);
        PrintError(ret, nullptr);
        closeV1();
        return false;
    }

    // A dev and app held from before are dropped, not released.
    dev = handle;
    std::memset(&devInfo, 0, sizeof(devInfo));
    if (m_api->bound()) {
        SLOG("linux SKF_GetDevInfo ");
        m_api->getDevInfo(&devInfo);
        SaveKeySn();
    }

    m_isOpen = false;
    const QStringList appNames = enumApplication();
    if (appNames.isEmpty())
        SLOG(" end. appNameList.count = 0");

    // The first application with a container that opens is the session's.
    for (const QString &appName : appNames) {
        HAPPLICATION hApp = nullptr;
        const ULONG appRet = m_api->openApplication(appName.toUtf8().data(), &hApp);
        if (appRet != SAR_OK) {
            SKF_FAILED(appRet, " SKF_OpenApplication failed,ret= %d", SkfCall::CloseNever, SkfCall::ErrorThenClose,
                       false);
            PrintError(appRet, nullptr);
            continue;
        }
        app = hApp;
        const QStringList containers = enumContainer();
        for (const QString &containerName : containers) {
            if (!openContainer(containerName))
                continue;
            SLOGF(" SKF_OpenApplication success containerName= %s", containerName.toUtf8().constData());
            m_isOpen = true;
            m_time = QTime::currentTime();
            SLOG(" KeyObjectSKF end");
            return true;
        }
    }
    SLOG(" end");
    return m_isOpen;
}

bool KeyObjectSKF::isKeyDisConnect()
{
    if (probeToken() != SAR_OK) {
        SLOG(" keyDriver->pSKF_GenRandom failed");
        return true;
    }
    return false;
}

QStringList KeyObjectSKF::enumApplication()
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->devReady(), SAR_USER_NOT_LOGGED_IN, kDevIsNull}))
        return QStringList();

    // One call: a list past 256 bytes is the library's failure.
    char buffer[256];
    std::memset(buffer, 0, sizeof(buffer));
    ULONG size = sizeof(buffer);
    SLOG(" SKF_EnumApplication");
    const ULONG ret = m_api->enumApplication(buffer, &size);
    SLOG(QLatin1String(" SKF_EnumApplication 0 ulSize: ") + QString::number(size));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, "SKF_EnumApplication failed.ret = %d", SkfCall::CloseIfRemoved, SkfCall::NoError);
        return QStringList();
    }

    // Empty entries are skipped, not taken as the end.
    QStringList names;
    const ULONG end = qMin<ULONG>(size, sizeof(buffer));
    ULONG pos = 0;
    while (pos < end) {
        if (buffer[pos] == '\0') {
            ++pos;
            continue;
        }
        const ULONG length = ULONG(qstrnlen(buffer + pos, uint(end - pos)));
        names.append(QString::fromLocal8Bit(buffer + pos, int(length)));
        pos += length;
    }
    SLOG(" end");
    return names;
}

bool KeyObjectSKF::SaveKeySn()
{
    SLOG(" start");
    const int fd = openStateFile(O_WRONLY | O_CREAT);
    if (fd < 0) {
        SLOG(" end");
        return true;
    }
    const QString serial = limitedSerial();
    const QByteArray bytes = serial.toLocal8Bit();
    // Written over, then cut to length: cutting to zero first makes ext4
    // flush the file at close, some milliseconds per connect. A write that
    // fails is let be: the next check sees a change.
    [[maybe_unused]] const bool written =
        ::pwrite(fd, bytes.constData(), size_t(bytes.size()), 0) == ssize_t(bytes.size())
        && ::ftruncate(fd, off_t(bytes.size())) == 0;
    ::close(fd);
    SLOG(" end");
    return true;
}

bool KeyObjectSKF::GetKeyStatus()
{
    SLOG(" start");
    // A missing or empty file counts as a change.
    const int fd = openStateFile(O_RDONLY);
    // The value is a serial number; a file past the bound is read only so far.
    QByteArray content(kMaxStateFile, '\0');
    const ssize_t got = fd < 0 ? 0 : ::read(fd, content.data(), size_t(content.size()));
    if (got <= 0) {
        if (fd >= 0)
            ::close(fd);
        SLOG(" end");
        return true;
    }
    content.truncate(int(got));
    const int nul = content.indexOf('\0');
    if (nul >= 0)
        content.truncate(nul);
    const QString value = QString::fromLocal8Bit(content);

    SLOGF_ERROR(" tw_device,value = %s ", content.constData());
    std::printf("%s\n", content.constData());
    ::close(fd);

    if (value == m_keyStatus) {
        SLOG_ERROR("key statue is not change ");
        SLOG(" end");
        return false;
    }
    m_keyStatus = value;
    SLOG(" end");
    return true;
}
