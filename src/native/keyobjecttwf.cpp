#include "keyobjecttwf.h"

#include <QByteArray>

#include "frame/twlog.h"
#include "keydrivertwf.h"
#include "package/keydriverpackage.h"
#include "twftokenapi.h"

namespace {

// Larger than any file a token holds.
const ULONG kMaxRead = 1u << 28;

// Much as the sessions that keep themselves by probing, but for the
// stricter replacing of a file, and the native words and logs.
KeySession::Traits nativeTraits()
{
    KeySession::Traits traits = KeySession::probingTraits(KeySession::Traits().printTag, " Not Support");
    traits.looseReplace = false;
    traits.fileProbeWord = " TWF_IsFileExist";
    // The native texts of file replacing, session key export, containers.
    traits.replaceLogsSize = traits.plainSessionKeyExport = traits.sessionKeyExportAppGuard =
        traits.shortContainerGuards = traits.enumContainerTellsWhy = traits.exportLogsCertificate = true;
    return traits;
}

// What a device function leaves in a zeroed 255-byte buffer, up to its
// first NUL. The result code says nothing the text doesn't.
QString deviceText(decltype(&::TWF_GetSerialNumber) call, DEVHANDLE dev)
{
    char buffer[255 + 1] = {};
    ULONG length = 255;
    if (call)
        call(dev, buffer, &length);
    return QString::fromLocal8Bit(buffer);
}

void log(const char *function, int line, const QString &text)
{
    if (twlog::enabled())
        twlog::debug(function, line, text);
}

// What the native library does not offer: start and end under the
// caller's name, and nothing between.
void notOffered(const char *function, int line)
{
    log(function, line, QStringLiteral(" start"));
    log(function, line, QStringLiteral(" end"));
}

// A count from a device function, 0 without a device or function table.
quint64 space(const char *function, const char *word, decltype(&::TWF_GetFreeSpace) call, DEVHANDLE dev)
{
    ULONG count = 0;
    log(function, __LINE__, QStringLiteral(" start"));
    if (dev && call) {
        log(function, __LINE__, QString::fromLatin1(word));
        call(dev, &count);
    }
    log(function, __LINE__, QStringLiteral(" end"));
    return count;
}

} // namespace

KeyObjectTWF::KeyObjectTWF(KeyDriverPackage *package, QString devName, QObject *parent)
    : KeySession(package, devName, nativeTraits(), new TwfTokenApi(qobject_cast<KeyDriverTWF *>(parent))),
      keyDriver(qobject_cast<KeyDriverTWF *>(parent))
{
}

KeyObjectTWF::~KeyObjectTWF()
{
    TW_LOG(" start");
    KeyObjectTWF::closeV1();
    TW_LOG(" end");
}

bool KeyObjectTWF::open()
{
    // Once open, always open: a token that is gone is only noted.
    if (m_isOpen) {
        if (keyDriver && keyDriver->pTWF_IsConnectDev && keyDriver->pTWF_IsConnectDev(dev) != 0)
            closeV1();
        return true;
    }

    TW_LOG(" TWF_ConnectDev");
    DEVHANDLE handle = nullptr;
    const ULONG ret = connectDevice(&handle);
    if (ret != SAR_OK) {
        m_isOpen = false;
        TW_LOGF_ERROR(" TWF_ConnectDev failed,ret = %d ", int(ret));
        setLastError(int(ret));
        return false;
    }
    dev = handle;
    m_isOpen = handle != nullptr;
    if (!handle) {
        TW_LOG_ERROR("pTWF_ConnectDev success but dev is NULL");
        return false;
    }
    TW_LOG(" TWF_ConnectDev ok");
    TW_LOG(" end");
    return true;
}

bool KeyObjectTWF::closeV1()
{
    // The native library has no closing that a session could undo.
    return true;
}

QString KeyObjectTWF::labelName()
{
    const QString label = deviceText(keyDriver ? keyDriver->pTWF_GetLabelName : nullptr, dev);
    TW_LOGF(" labelName = %s ", label.toUtf8().constData());
    return label;
}

QString KeyObjectTWF::serialNumber()
{
    const QString serial = GetSerialNumByString(deviceText(keyDriver ? keyDriver->pTWF_GetSerialNumber : nullptr, dev),
                                                quint64(m_package ? m_package->GetLimitSize(16) : 16));
    TW_LOGF(" serialNumber(A) = %s ", serial.toUtf8().constData());
    return serial;
}

QString KeyObjectTWF::serialNumberEx()
{
    const QString serial = deviceText(keyDriver ? keyDriver->pTWF_GetSerialNumber : nullptr, dev);
    TW_LOGF(" serialNumber = %s ", serial.toUtf8().constData());
    return serial;
}

// Maker, versions and a new label are not offered.
QString KeyObjectTWF::GetManufacturer() { notOffered(__FUNCTION__, __LINE__); return QString(); }
QString KeyObjectTWF::GetHWVersion() { notOffered(__FUNCTION__, __LINE__); return QString(); }
QString KeyObjectTWF::GetFirmwareVersion() { notOffered(__FUNCTION__, __LINE__); return QString(); }
bool KeyObjectTWF::SetlabelName(QString) { notOffered(__FUNCTION__, __LINE__); return false; }

quint64 KeyObjectTWF::totalSpace()
{
    return space(__FUNCTION__, " TWF_GetTotalSpace", m_api->bound() ? keyDriver->pTWF_GetTotalSpace : nullptr, dev);
}

quint64 KeyObjectTWF::freeSpace()
{
    return space(__FUNCTION__, " TWF_GetFreeSpace ", m_api->bound() ? keyDriver->pTWF_GetFreeSpace : nullptr, dev);
}

bool KeyObjectTWF::formatKey()
{
    // The library formats the token itself; the session deletes nothing.
    TW_LOG(" start");
    if (!dev) {
        setLastError(SAR_USER_NOT_LOGGED_IN);
        TW_LOG(kAppIsNull);
        return false;
    }
    QByteArray unblockPin(kBuiltInAdminPin);
    QByteArray adminPin = (m_package ? m_package->defaultAdminPin() : QString()).toLatin1();
    // A failure is neither logged nor recorded.
    const ULONG ret = m_api->bound() ? keyDriver->pTWF_FormatKey(dev, unblockPin.data(), adminPin.data())
                                     : ULONG(SAR_NOTINITIALIZEERR);
    TW_LOG(" end");
    return ret == SAR_OK;
}

quint64 KeyObjectTWF::GetPINInfo(quint64, quint64)
{
    TW_LOG(" Not Support");
    return ~quint64(0);
}

// No file attributes to ask: the size comes from a read without a buffer.
QByteArray KeyObjectTWF::readFile(QString fileName, quint64 ulOffset, quint64 ulSize)
{
    TW_LOG(QLatin1String(" fileName: ") + fileName + QLatin1Char(',') + QString::number(ulOffset) + QLatin1Char(',')
           + QString::number(ulSize));
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {fileName.isEmpty(), SAR_NAMELENERR, kNameInvalid}))
        return QByteArray();
    // Only for the log; it also refills m_fileList.
    TW_LOG(enumFiles().join(QLatin1Char(',')) + QStringLiteral(" enumFiles_out"));

    QByteArray name = fileName.toUtf8();
    ULONG ulOutSize = 0;
    TW_LOG(" TWF_ReadFile");
    ULONG ret = m_api->readFile(name.data(), ULONG(ulOffset), ULONG(ulSize), nullptr, &ulOutSize);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " TWF_GetFileInfo failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose, false);
        return QByteArray();
    }
    if (ulOutSize == 0)
        return QByteArray();
    const ULONG size = ulOutSize;
    TW_LOGF("ulOutSize: %d,FileName :%s,ulSize: %d", int(ulOutSize), name.constData(), int(size));
    // A size no file can have fails as the library's read would.
    QByteArray buffer;
    ret = SAR_MEMORYERR;
    if (size < kMaxRead) {
        buffer = QByteArray(int(size) + 1, '\0');
        TW_LOG(" TWF_ReadFile");
        ret = m_api->readFile(name.data(), ULONG(ulOffset), size, reinterpret_cast<BYTE *>(buffer.data()), &ulOutSize);
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " TWF_ReadFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose, false);
        return QByteArray();
    }
    buffer.truncate(int(qMin(ulOutSize, size)));
    TW_LOGF("ulOutSize: %d,FileName :%s", int(ulOutSize), name.constData());
    TW_LOG(" end.");
    return buffer;
}
