#include "keyobjectskf.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "frame/twlog.h"
#include "package/keydriverpackage.h"
#include "skf/keydriverskf.h"
#include "skfformat.h"
#include "skfresult.h"

namespace {

const char kPrintTag[] = "[TWKeyObjectSkf::PrintError] Error:";
// Written at each connect, read back to learn whether another session or
// process has connected since.
const char kDeviceStateFile[] = "/tmp/tw_device";
// A session this young is taken as good without asking the token.
const quint32 kFreshMsecs = 800;

const char kAppIsNull[] = " end . app is null";
const char kDevIsNull[] = " end . dev is null";
const char kNameInvalid[] = " end,parameter invalid ";
const char kDataInvalid[] = " end. parameter invalid";
const char kContainerNameEmpty[] = " end. containerName is empty.";
const char kContainerIsNull[] = " end. container = null";
const char kKeyDriverIsNull[] = " end . keyDriver is null";
const char kHKeyIsNull[] = " end . hKey is null";
const char kVerifyInvalid[] = " start.parameter invalid";
// Largest buffer the session builds for a size that the token or the host
// declared, and the most of the device-state file it reads; anything above
// is a broken size, not data.
const ULONG kMaxBuffer = 1u << 28;

// The user id that the compact SM2 operations always hash with.
const char kDefaultUserId[] = "1234567812345678";

// PKCS#1 v1.5 DigestInfo prefix of SHA-1.
const char kSha1DigestInfoPrefix[] = "\x30\x21\x30\x09\x06\x05\x2B\x0E\x03\x02\x1A\x05\x00\x04\x14";
const int kSha1DigestInfoPrefixSize = 15;

// Fixed-size text fields of DEVINFO are NUL-padded, not always ended.
QString fieldText(const char *field, size_t size)
{
    return QString::fromLocal8Bit(field, int(qstrnlen(field, uint(size))));
}

template <size_t N>
QString fieldText(const char (&field)[N])
{
    return fieldText(field, N);
}

int serialLimit(KeyDriverPackage *package)
{
    return package ? package->GetLimitSize(16) : 16;
}

// A user PIN has 6 to 16 characters; the token judges the rest.
bool userPinLengthOk(const QString &pin)
{
    return pin.length() >= 6 && pin.length() <= 16;
}

ULONG pinType(bool isAdmin)
{
    return isAdmin ? ADMIN_TYPE : USER_TYPE;
}

// Input bytes for the library. SKF takes non-const pointers for data it
// only reads.
BYTE *inBytes(const QByteArray &data)
{
    return reinterpret_cast<BYTE *>(const_cast<char *>(data.constData()));
}

BYTE *outBytes(QByteArray &buffer)
{
    return reinterpret_cast<BYTE *>(buffer.data());
}

// The first `length` bytes that the library wrote, never more than the
// buffer holds.
QByteArray written(const QByteArray &buffer, quint64 length)
{
    return buffer.left(int(qMin<quint64>(length, quint64(buffer.size()))));
}

// A file or container list: names ended by NUL, the first empty name ends
// the list, and a last name without its NUL still counts.
QStringList splitNames(const QByteArray &buffer, ULONG size)
{
    QStringList names;
    QByteArray rest = written(buffer, size);
    while (!rest.isEmpty()) {
        const int end = rest.indexOf('\0');
        const QByteArray name = end < 0 ? rest : rest.left(end);
        if (name.isEmpty())
            break;
        names.append(QString::fromLatin1(name));
        rest = rest.mid(name.size() + 1);
    }
    return names;
}

// The library's size plus `extra` zeroed bytes. False when that size
// can't be real; the fill call then counts as failed with SAR_MEMORYERR,
// since a cut-down buffer would let the library write past it.
bool allocate(QByteArray &buffer, ULONG size, ULONG extra)
{
    if (size > kMaxBuffer - extra)
        return false;
    buffer = QByteArray(int(size + extra), '\0');
    return true;
}

// `data` when it holds at least `size` bytes, else a copy zero-padded to
// `size`: the library reads a whole structure and must never read past
// what the host gave.
QByteArray padded(const QByteArray &data, int size)
{
    if (data.size() >= size)
        return data;
    QByteArray whole(size, '\0');
    std::memcpy(whole.data(), data.constData(), size_t(data.size()));
    return whole;
}

// The same for a length the host declared beside its array. False when
// that length is too large to stand for real data.
bool declared(const QByteArray &data, ULONG length, QByteArray *out)
{
    if (length > kMaxBuffer)
        return false;
    *out = padded(data, int(length));
    return true;
}

// An ENVELOPEDKEYBLOB as the library reads it: the structure and the
// CipherLen bytes of its cipher tail, zero-padded where the host's bytes
// end. A tail length past any real key is left to the library.
QByteArray envelope(const QByteArray &blob)
{
    const int cipherAt = int(offsetof(ENVELOPEDKEYBLOB, ECCCipherBlob) + offsetof(ECCCIPHERBLOB, Cipher));
    const int cipherLenAt = cipherAt - int(sizeof(ULONG));
    ULONG cipherLen = 0;
    if (blob.size() >= cipherAt)
        std::memcpy(&cipherLen, blob.constData() + cipherLenAt, sizeof(cipherLen));
    int whole = int(sizeof(ENVELOPEDKEYBLOB));
    if (cipherLen <= kMaxBuffer)
        whole = qMax(whole, cipherAt + int(cipherLen));
    return padded(blob, whole);
}

// Hash length by algorithm: the token's report counts only for
// algorithms the session doesn't know.
ULONG hashSize(quint64 algId, ULONG reported)
{
    switch (algId) {
    case SGD_SM3:
    case SGD_SHA256:
        return 32;
    case SGD_SHA1:
        return 20;
    default:
        return reported;
    }
}

// A BLOCKCIPHERPARAM from the host's bytes; a shorter array leaves the
// rest zero.
BLOCKCIPHERPARAM cipherParam(const QByteArray &data)
{
    BLOCKCIPHERPARAM param;
    std::memset(&param, 0, sizeof(param));
    std::memcpy(&param, data.constData(), size_t(qMin<int>(data.size(), int(sizeof(param)))));
    return param;
}

// Puts up to `room` bytes of `piece` at `pos` of a fixed-size blob.
void place(QByteArray &blob, int pos, const QByteArray &piece, int room)
{
    std::memcpy(blob.data() + pos, piece.constData(), size_t(qMin(piece.size(), room)));
}

// Six random bytes: the cheapest question a token must answer.
ULONG probeToken(KeyDriverSKF *driver, DEVHANDLE dev)
{
    if (!driver)
        return SAR_NOTINITIALIZEERR;
    BYTE random[7] = {0};
    return driver->pSKF_GenRandom(dev, random, 6);
}

// totalSpace and freeSpace read the device data anew when connected; a
// failed read leaves it zeroed or partly filled.
void refreshDevInfo(const char *function, KeyDriverSKF *driver, DEVHANDLE dev, DEVINFO &info)
{
    if (!dev || !driver)
        return;
    std::memset(&info, 0, sizeof(info));
    if (twlog::enabled())
        twlog::debug(function, __LINE__, QStringLiteral(" SKF_GetDevInfo "));
    driver->pSKF_GetDevInfo(dev, &info);
}

QString versionText(const char *function, const VERSION &version)
{
    const QString major = QString::number(uint(version.major));
    const QString minor = QString::number(uint(version.minor));
    if (twlog::enabled()) {
        twlog::debug(function, __LINE__, QStringLiteral(" strMajor is:") + major);
        twlog::debug(function, __LINE__, QStringLiteral(" strMinor is:") + minor);
    }
    return major + QLatin1Char('.') + minor;
}

} // namespace

KeyObjectSKF::KeyObjectSKF(KeyDriverPackage *package, QString devName, QObject *parent)
    : KeyObject(devName, nullptr), m_AlgID(0), m_package(package), dev(nullptr), app(nullptr),
      keyDriver(qobject_cast<KeyDriverSKF *>(parent)), m_call(this, kPrintTag)
{
    m_isOpen = false;
    std::memset(&devInfo, 0, sizeof(devInfo));
}

KeyObjectSKF::~KeyObjectSKF()
{
    KeyObjectSKF::closeV1();
    keyDriver = nullptr;
}

void KeyObjectSKF::PrintError(unsigned int ret, char *msg)
{
    SkfResult::print(kPrintTag, ret, msg);
}

// ---------------------------------------------------------------------------
// Electronic seal: the library's optional EPS_ functions. The seal data is
// opaque here; a library without a function fails that operation alone.

bool KeyObjectSKF::epsImportSymmKey(Qt::HANDLE container, quint64 ulKeyIndex, QByteArray szEncData,
                                    quint64 ulEncDataLen, quint64 ulFlags)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull},
                    {keyDriver && !keyDriver->pEPS_ImportSymmKey, SAR_INVALIDHANDLEERR,
                     " end . pEPS_ImportSymmKey is null"}))
        return false;

    TW_LOG(" ESP_ImportSymmKey");
    const ULONG length = ULONG(ulEncDataLen);
    QByteArray encData;
    ULONG ret = SAR_MEMORYERR;
    if (declared(szEncData, length, &encData))
        ret = keyDriver->pEPS_ImportSymmKey(container, ULONG(ulKeyIndex), inBytes(encData), length, ULONG(ulFlags));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " ESP_ImportSymmKey failed.ret = %d");
        TW_LOG(" end.");
        return false;
    }
    TW_LOG(" end.");
    return true;
}

QByteArray KeyObjectSKF::epsReadESealData(quint64 ulKeyIndex, quint64 ulKeyAlgId, quint64 ulFlags)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {keyDriver && !keyDriver->pEPS_ReadESealData, SAR_INVALIDHANDLEERR,
                     " end . pEPS_ReadESealData is null"}))
        return QByteArray();

    ULONG ulOutSize = 0;
    TW_LOG(" ESP_ReadESealData A");
    ULONG ret = keyDriver->pEPS_ReadESealData(app, ULONG(ulKeyIndex), ULONG(ulKeyAlgId), nullptr, &ulOutSize,
                                              ULONG(ulFlags));
    TW_LOGF("ulOutSize: %d", int(ulOutSize));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_GetFileInfo failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose, false);
        return QByteArray();
    }
    // An empty seal is no failure.
    if (ulOutSize == 0) {
        TW_LOG(" end . ulOutSize is 0");
        return QByteArray();
    }

    QByteArray buffer;
    ret = SAR_MEMORYERR;
    if (allocate(buffer, ulOutSize, 1)) {
        TW_LOG(" ESP_ReadESealData B");
        ret = keyDriver->pEPS_ReadESealData(app, ULONG(ulKeyIndex), ULONG(ulKeyAlgId), outBytes(buffer), &ulOutSize,
                                            ULONG(ulFlags));
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ReadFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose, false);
        return QByteArray();
    }
    const QByteArray seal = written(buffer, ulOutSize);
    TW_LOG(" end.");
    return seal;
}

bool KeyObjectSKF::epsWriteESealData(QByteArray szData, quint64 ulDataSize, quint64 ulFlags)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {szData.isEmpty(), SAR_INDATALENERR, " end. szData invalid"},
                    {keyDriver && !keyDriver->pEPS_WriteESealData, SAR_INVALIDHANDLEERR,
                     " end . pEPS_WriteESealData is null"}))
        return false;

    TW_LOG(" ESP_WriteESealData");
    const ULONG size = ULONG(ulDataSize);
    QByteArray data;
    ULONG ret = SAR_MEMORYERR;
    if (declared(szData, size, &data))
        ret = keyDriver->pEPS_WriteESealData(app, inBytes(data), size, ULONG(ulFlags));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " ESP_WriteESealData failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose,
                   false);
        return false;
    }
    TW_LOG(" end.");
    return true;
}

// ---------------------------------------------------------------------------
// Opening and closing

bool KeyObjectSKF::open()
{
    TW_LOG(" KeyObjectSKF start");
    const bool wasOpen = m_isOpen;
    if (wasOpen) {
        const int timeTemp = m_time.msecsTo(QTime::currentTime());
        TW_LOG(QStringLiteral(" timeTemp: ") + QString::number(timeTemp));
        // Negative after midnight: as unsigned that counts as long ago.
        if (quint32(timeTemp) <= kFreshMsecs)
            return true;
        if (!dev) {
            m_time = QTime::currentTime();
            return true;
        }
        if (probeToken(keyDriver, dev) != SAR_OK) {
            TW_LOG(" SblEnumDev = true");
            m_needEnumFile = true;
            m_time = QTime::currentTime();
        } else {
            const QString strSerialNumber = fieldText(devInfo.SerialNumber);
            DEVINFO devtemp;
            std::memset(&devtemp, 0, sizeof(devtemp));
            if (keyDriver)
                keyDriver->pSKF_GetDevInfo(dev, &devtemp);
            const QString tempSerial = fieldText(devtemp.SerialNumber);
            TW_LOG(QStringLiteral("devtemp.SerialNumber = %1, strSerialNumber = %2").arg(tempSerial, strSerialNumber));
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
        TW_LOG("key statue is not change");
        return true;
    }

    TW_LOG("linux SKF_ConnectDev");
    DEVHANDLE handle = nullptr;
    // Without a driver there is no library to connect through.
    const ULONG ret = keyDriver ? keyDriver->pSKF_ConnectDev(m_devName.toLocal8Bit().data(), &handle)
                                : ULONG(SAR_NOTINITIALIZEERR);
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
    if (keyDriver) {
        TW_LOG("linux SKF_GetDevInfo ");
        keyDriver->pSKF_GetDevInfo(dev, &devInfo);
        SaveKeySn();
    }

    m_isOpen = false;
    const QStringList appNames = enumApplication();
    if (appNames.isEmpty())
        TW_LOG(" end. appNameList.count = 0");

    // The first application with a container that opens is the session's.
    for (const QString &appName : appNames) {
        HAPPLICATION hApp = nullptr;
        const ULONG appRet = keyDriver->pSKF_OpenApplication(dev, appName.toUtf8().data(), &hApp);
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
            TW_LOGF(" SKF_OpenApplication success containerName= %s", containerName.toUtf8().constData());
            m_isOpen = true;
            m_time = QTime::currentTime();
            TW_LOG(" KeyObjectSKF end");
            return true;
        }
    }
    TW_LOG(" end");
    return m_isOpen;
}

void KeyObjectSKF::close()
{
    // The session stays connected for its next use; closeV1 is the real end.
    TW_LOG(" start");
    TW_LOG(" end");
}

bool KeyObjectSKF::closeV1()
{
    TW_LOG(" start");
    m_fileList.clear();
    if (app) {
        TW_LOG(" CloseApplication");
        if (keyDriver)
            keyDriver->pSKF_CloseApplication(app);
        app = nullptr;
    } else {
        setLastError(SAR_USER_NOT_LOGGED_IN);
    }
    if (dev) {
        TW_LOG(" DisConnectDev");
        if (keyDriver)
            keyDriver->pSKF_DisConnectDev(dev);
        dev = nullptr;
    } else {
        setLastError(SAR_USER_NOT_LOGGED_IN);
    }
    m_isOpen = false;
    TW_LOG(" end");
    return m_isOpen;
}

bool KeyObjectSKF::isKeyDisConnect()
{
    if (probeToken(keyDriver, dev) != SAR_OK) {
        TW_LOG(" keyDriver->pSKF_GenRandom failed");
        return true;
    }
    return false;
}

QStringList KeyObjectSKF::enumApplication()
{
    TW_LOG(" start");
    if (SKF_REFUSED({!dev || !keyDriver, SAR_USER_NOT_LOGGED_IN, kDevIsNull}))
        return QStringList();

    // One call: a list past 256 bytes is the library's failure.
    char buffer[256];
    std::memset(buffer, 0, sizeof(buffer));
    ULONG size = sizeof(buffer);
    TW_LOG(" SKF_EnumApplication");
    const ULONG ret = keyDriver->pSKF_EnumApplication(dev, buffer, &size);
    TW_LOG(QStringLiteral(" SKF_EnumApplication 0 ulSize: %1").arg(size));
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
    TW_LOG(" end");
    return names;
}

bool KeyObjectSKF::openApplication()
{
    TW_LOG(" start");
    if (!keyDriver) {
        TW_LOG(" end. keyDriver = null");
        return false;
    }
    if (app) {
        // The words are the old ones, kept though they say the opposite.
        TW_LOG(" end. app = null");
        return true;
    }
    const QStringList names = enumApplication();
    if (names.isEmpty()) {
        TW_LOG(" end. appNameList.count = 0");
        return false;
    }
    app = openApplication(names.first());
    if (!app) {
        TW_LOG(" end. app = null");
        return false;
    }
    TW_LOG(" end");
    return true;
}

HAPPLICATION KeyObjectSKF::openApplication(QString appName)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!dev || !keyDriver, SAR_USER_NOT_LOGGED_IN, kDevIsNull}))
        return nullptr;
    if (appName.isEmpty()) {
        TW_LOG(" end. keyDriver = null or dev = null or appName is empty.");
        return nullptr;
    }
    TW_LOG(" SKF_OpenApplication");
    HAPPLICATION handle = nullptr;
    const ULONG ret = keyDriver->pSKF_OpenApplication(dev, appName.toUtf8().data(), &handle);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_OpenApplication failed,ret= %d", SkfCall::CloseNever, SkfCall::ErrorThenClose, false);
        m_isOpen = false;
        TW_LOG(" end");
        return nullptr;
    }
    TW_LOG(" end");
    return handle;
}

bool KeyObjectSKF::SaveKeySn()
{
    TW_LOG(" start");
    FILE *file = std::fopen(kDeviceStateFile, "w+");
    if (!file) {
        TW_LOG(" end");
        return true;
    }
    const QString serial = GetSerialNumByString(fieldText(devInfo.SerialNumber), quint64(serialLimit(m_package)));
    const QByteArray bytes = serial.toLocal8Bit();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), file);
    std::fclose(file);
    TW_LOG(" end");
    return true;
}

bool KeyObjectSKF::GetKeyStatus()
{
    TW_LOG(" start");
    // A missing or empty file counts as a change.
    FILE *file = std::fopen(kDeviceStateFile, "rt");
    if (!file) {
        TW_LOG(" end");
        return true;
    }
    std::fseek(file, 0, SEEK_END);
    const long size = std::ftell(file);
    if (size <= 0) {
        std::fclose(file);
        TW_LOG(" end");
        return true;
    }
    std::fseek(file, 0, SEEK_SET);
    // The value is a serial number; a file past the bound is read only so far.
    QByteArray content(int(qMin<long>(size, long(kMaxBuffer))), '\0');
    const size_t got = std::fread(content.data(), 1, size_t(content.size()), file);
    content.truncate(int(got));
    const int nul = content.indexOf('\0');
    if (nul >= 0)
        content.truncate(nul);
    const QString value = QString::fromLocal8Bit(content);

    TW_LOGF_ERROR(" tw_device,value = %s ", content.constData());
    std::printf("%s\n", content.constData());
    std::fclose(file);

    if (value == m_keyStatus) {
        TW_LOG_ERROR("key statue is not change ");
        TW_LOG(" end");
        return false;
    }
    m_keyStatus = value;
    TW_LOG(" end");
    return true;
}

// ---------------------------------------------------------------------------
// Identity and capacity: read from the DEVINFO of the last connect, but for
// the space queries, which read it anew.

QString KeyObjectSKF::labelName()
{
    const QString label = fieldText(devInfo.Label);
    TW_LOGF(" labelName = %s ", label.toUtf8().constData());
    return label;
}

QString KeyObjectSKF::serialNumber()
{
    const QString serial = GetSerialNumByString(fieldText(devInfo.SerialNumber), quint64(serialLimit(m_package)));
    TW_LOGF(" serialNumber(A) = %s ", serial.toUtf8().constData());
    return serial;
}

QString KeyObjectSKF::serialNumberEx()
{
    const QString serial = fieldText(devInfo.SerialNumber);
    TW_LOGF(" serialNumber = %s ", serial.toUtf8().constData());
    return serial;
}

QString KeyObjectSKF::GetManufacturer()
{
    const QString manufacturer = fieldText(devInfo.Manufacturer);
    TW_LOGF(" Manufacturer = %s ", manufacturer.toUtf8().constData());
    return manufacturer;
}

QString KeyObjectSKF::GetHWVersion()
{
    return versionText(__FUNCTION__, devInfo.HWVersion);
}

QString KeyObjectSKF::GetFirmwareVersion()
{
    return versionText(__FUNCTION__, devInfo.FirmwareVersion);
}

bool KeyObjectSKF::SetlabelName(QString strlabelName)
{
    TW_LOG(" start");
    if (!dev) {
        TW_LOG(" dev is NULL");
        return false;
    }
    if (!keyDriver) {
        TW_LOG(" keyDriver is NULL");
        return false;
    }
    // devInfo keeps the old label until the next read.
    const ULONG ret = keyDriver->pSKF_SetLabel(dev, strlabelName.toUtf8().data());
    if (ret == SAR_OK) {
        TW_LOG(" SetLabel is successfully");
        TW_LOG(" end");
        return true;
    }
    TW_LOG(" end");
    return false;
}

quint64 KeyObjectSKF::totalSpace()
{
    TW_LOG(" start");
    refreshDevInfo(__FUNCTION__, keyDriver, dev, devInfo);
    TW_LOG(" end");
    return quint64(devInfo.TotalSpace);
}

quint64 KeyObjectSKF::freeSpace()
{
    TW_LOG(" start");
    refreshDevInfo(__FUNCTION__, keyDriver, dev, devInfo);
    TW_LOG(" end");
    return quint64(devInfo.FreeSpace);
}

bool KeyObjectSKF::formatKey()
{
    return SkfFormat::formatKey(this, app != nullptr, m_package);
}

// ---------------------------------------------------------------------------
// PINs. The session keeps no PIN and no login flag: that state is the
// token's.

bool KeyObjectSKF::changePIN(bool isAdmin, QString oldPin, QString newPin)
{
    TW_LOG(" start");
    // The old PIN is judged first where both are wrong.
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!isAdmin && !userPinLengthOk(oldPin), TW_ERR_OLD_PIN_LEN, " end . oldPin len error"},
                    {!isAdmin && !userPinLengthOk(newPin), TW_ERR_NEW_PIN_LEN, " end . newPin len error"}))
        return false;

    TW_LOG(" SKF_ChangePIN");
    ULONG retryCount = 0;
    const ULONG ret = keyDriver->pSKF_ChangePIN(app, pinType(isAdmin), oldPin.toUtf8().data(), newPin.toUtf8().data(),
                                                &retryCount);
    if (ret != SAR_OK) {
        // The code is recorded last, after the closing words.
        SKF_FAILED(ret, " SKF_ChangePIN failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::NoError, false);
        TW_LOG(" end.");
        setLastError(int(ret));
        return false;
    }
    TW_LOG(" end");
    return true;
}

bool KeyObjectSKF::verifyPin(QString pinCode, bool isAdmin)
{
    return verifyPinEx(pinCode, isAdmin);
}

bool KeyObjectSKF::verifyPinEx(QString pinCode, bool isAdmin)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull}))
        return false;
    // A user PIN of the wrong length never reaches the token, so it costs
    // no retry.
    const bool badLength = !isAdmin && !userPinLengthOk(pinCode);
    if (badLength)
        TW_LOG(QStringLiteral(" pinCode length: %1").arg(pinCode.length()));
    if (SKF_REFUSED({badLength, TW_ERR_OLD_PIN_LEN, " end . oldPin len error"}))
        return false;

    TW_LOG(" SKF_VerifyPIN");
    ULONG retryCount = 0;
    const ULONG ret = keyDriver->pSKF_VerifyPIN(app, pinType(isAdmin), pinCode.toUtf8().data(), &retryCount);
    if (ret != SAR_OK) {
        // The code is recorded last, after the closing words.
        SKF_FAILED(ret, " SKF_VerifyPIN failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::NoError);
        TW_LOG(" end.");
        setLastError(int(ret));
        return false;
    }
    TW_LOG(" end");
    return true;
}

bool KeyObjectSKF::resetUserPin()
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull}))
        return false;

    QByteArray userPin(SkfFormat::kDefaultUserPin);
    QByteArray adminPin(SkfFormat::kBuiltInAdminPin);
    ULONG retryCount = 0;
    TW_LOG(" SKF_UnblockPIN first");
    const ULONG firstRet = keyDriver->pSKF_UnblockPIN(app, adminPin.data(), userPin.data(), &retryCount);
    if (firstRet == SAR_OK) {
        TW_LOG(" end");
        return true;
    }
    SKF_FAILED(firstRet, " SKF_UnblockPIN first failed,ret = %d", SkfCall::CloseNever, SkfCall::NoError, false);

    // Second try with the package's own administrator PIN, if it has one.
    const QString encoded = m_package ? m_package->defaultAdminPin() : QString();
    if (encoded.isEmpty()) {
        setLastError(int(firstRet));
        return false;
    }
    TW_LOG(QStringLiteral(" strDefaultAdminPin: ") + encoded);
    QByteArray packagePin = SkfFormat::decodeAdminPin(encoded);
    TW_LOG(" SKF_UnblockPIN second");
    const ULONG secondRet = keyDriver->pSKF_UnblockPIN(app, packagePin.data(), userPin.data(), &retryCount);
    if (secondRet == SAR_OK) {
        TW_LOG(" end");
        return true;
    }
    // The second failure is recorded but not logged.
    setLastError(int(secondRet));
    return false;
}

bool KeyObjectSKF::resetUserPinV1(QString AdminPin, QString NewUserPin)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull}))
        return false;
    TW_LOGF(" AdminPinLength: %d", AdminPin.length());
    TW_LOGF(" NewUserPinLength: %d", NewUserPin.length());

    // Without an administrator PIN the built-in rescue runs, and its
    // outcome is not passed on.
    if (AdminPin.isEmpty()) {
        resetUserPin();
        return true;
    }
    if (NewUserPin.isEmpty())
        NewUserPin = QString::fromLatin1(SkfFormat::kDefaultUserPin);

    TW_LOG(" SKF_UnblockPIN");
    ULONG retryCount = 0;
    const ULONG ret =
        keyDriver->pSKF_UnblockPIN(app, AdminPin.toUtf8().data(), NewUserPin.toUtf8().data(), &retryCount);
    if (ret != SAR_OK) {
        TW_LOGF_ERROR(" SKF_UnblockPIN failed,pulRetryCount = %d", int(retryCount));
        SKF_FAILED(ret, " SKF_UnblockPIN failed,ret = %d", SkfCall::CloseNever, SkfCall::ErrorThenClose, false);
        return false;
    }
    TW_LOG(" end");
    return true;
}

bool KeyObjectSKF::resetAdminPin()
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app, SAR_USER_NOT_LOGGED_IN, kAppIsNull}))
        return false;
    return SkfFormat::adoptBuiltInAdminPin(__FUNCTION__, this, m_package, true);
}

quint64 KeyObjectSKF::GetPINInfo(quint64 ulPINType, quint64 ulOutType)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull}))
        return 0;
    TW_LOG(" SKF_GetPINInfo ");
    ULONG maxRetry = 0;
    ULONG remainRetry = 0;
    BOOL isDefault = 0;
    const ULONG ret = keyDriver->pSKF_GetPINInfo(app, ULONG(ulPINType), &maxRetry, &remainRetry, &isDefault);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_GetPINInfo failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::CloseThenError, false);
        return 0;
    }
    TW_LOG(" end");
    if (ulOutType == 0)
        return maxRetry;
    if (ulOutType == 1)
        return remainRetry;
    return 0;
}

// ---------------------------------------------------------------------------
// Files. Moved whole, never chunked; rights and login are the token's to
// judge.

bool KeyObjectSKF::createFile(QString fileName, quint64 ulFileSize, quint64 readRights, quint64 writeRights)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {fileName.isEmpty(), SAR_NAMELENERR, kNameInvalid}))
        return false;
    const ULONG ret = keyDriver->pSKF_CreateFile(app, fileName.toUtf8().data(), ULONG(ulFileSize), ULONG(readRights),
                                                 ULONG(writeRights));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_CreateFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::CloseThenError, false);
        return false;
    }
    TW_LOG(" end");
    return true;
}

QStringList KeyObjectSKF::enumFiles()
{
    TW_LOG(" start");
    m_fileList.clear();
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull}))
        return m_fileList;

    // A failed size query leaves the session alone; a failed fill closes it
    // whatever the code.
    ULONG size = 0;
    ULONG ret = keyDriver->pSKF_EnumFiles(app, nullptr, &size);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_EnumFiles failed,ret = %d", SkfCall::CloseNever, SkfCall::NoError, false);
        return m_fileList;
    }
    QByteArray buffer;
    ret = allocate(buffer, size, 1) ? keyDriver->pSKF_EnumFiles(app, buffer.data(), &size) : ULONG(SAR_MEMORYERR);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_EnumFiles failed,ret = %d", SkfCall::CloseAlways, SkfCall::CloseThenError, false);
        m_fileList.clear();
        return m_fileList;
    }
    m_fileList = splitNames(buffer, size);
    TW_LOG(" end");
    return m_fileList;
}

QByteArray KeyObjectSKF::readFile(QString fileName, quint64 ulOffset, quint64 ulSize)
{
    // The whole file is read whatever size is asked.
    Q_UNUSED(ulSize);
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {fileName.isEmpty(), SAR_NAMELENERR, kNameInvalid}))
        return QByteArray();

    // Attributes are asked under the Latin-1 name, the read under UTF-8.
    FILEATTRIBUTE attributes;
    std::memset(&attributes, 0, sizeof(attributes));
    ULONG ret = keyDriver->pSKF_GetFileInfo(app, fileName.toLatin1().data(), &attributes);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_GetFileInfo failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose, false);
        return QByteArray();
    }
    if (attributes.FileSize == 0) {
        TW_LOG(" end");
        return QByteArray();
    }

    QByteArray buffer;
    ULONG outLength = attributes.FileSize;
    ret = allocate(buffer, attributes.FileSize, 1)
              ? keyDriver->pSKF_ReadFile(app, fileName.toUtf8().data(), ULONG(ulOffset), attributes.FileSize,
                                         outBytes(buffer), &outLength)
              : ULONG(SAR_MEMORYERR);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ReadFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose, false);
        return QByteArray();
    }
    TW_LOG(" end");
    return written(buffer, qMin(outLength, attributes.FileSize));
}

bool KeyObjectSKF::writeFile(QString fileName, quint64 offset, QByteArray data)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {fileName.isEmpty(), SAR_NAMELENERR, kNameInvalid},
                    {data.isEmpty(), SAR_INDATALENERR, kDataInvalid}))
        return false;
    const ULONG ret = keyDriver->pSKF_WriteFile(app, fileName.toUtf8().data(), ULONG(offset),
                                                inBytes(data), ULONG(data.size()));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_WriteFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose, false);
        return false;
    }
    TW_LOG(" end");
    return true;
}

bool KeyObjectSKF::deleteFile(QString fileName)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {fileName.isEmpty(), SAR_NAMELENERR, kNameInvalid}))
        return false;
    const ULONG ret = keyDriver->pSKF_DeleteFile(app, fileName.toUtf8().data());
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_DeleteFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::CloseThenError, false);
        return false;
    }
    TW_LOG(" end");
    return true;
}

bool KeyObjectSKF::writeFileV1(QString fileName, QByteArray data)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {fileName.isEmpty(), SAR_NAMELENERR, kNameInvalid},
                    {data.isEmpty(), SAR_INDATALENERR, kDataInvalid}))
        return false;

    // Replaced, not rewritten: the new file has exactly the data's length
    // and full rights. Nothing is rolled back if the write fails.
    QByteArray name = fileName.toUtf8();
    const ULONG length = ULONG(data.size());
    FILEATTRIBUTE attributes;
    std::memset(&attributes, 0, sizeof(attributes));
    if (keyDriver->pSKF_GetFileInfo(app, name.data(), &attributes) == SAR_OK) {
        const ULONG ret = keyDriver->pSKF_DeleteFile(app, name.data());
        if (ret != SAR_OK) {
            SKF_FAILED(ret, " SKF_DeleteFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose,
                       false);
            return false;
        }
    }

    ULONG ret = keyDriver->pSKF_CreateFile(app, name.data(), length, 0xFF, 0xFF);
    if (ret != SAR_OK) {
        // That family's tokens answer a full store with a bare failure.
        const bool noRoom = ret == SAR_FAIL && m_package &&
                            m_package->name().compare(QLatin1String("CFCA"), Qt::CaseInsensitive) == 0;
        if (noRoom)
            SKF_FAILED(SAR_NO_ROOM, " SKF_CreateFile failed (CFCA),ret = %d", SkfCall::CloseNever,
                       SkfCall::ErrorThenClose, false);
        else
            SKF_FAILED(ret, " SKF_CreateFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose,
                       false);
        return false;
    }

    ret = keyDriver->pSKF_WriteFile(app, name.data(), 0, inBytes(data), length);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_WriteFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose, false);
        return false;
    }
    TW_LOG(" end");
    return true;
}

bool KeyObjectSKF::createFileByVerifyPin()
{
    // Only tells the host what the package asks for.
    TW_LOG(" start");
    const QString setting = m_package ? m_package->createFileByVerifyPin() : QString();
    TW_LOG(QStringLiteral(" CreateFileByVerifyPin: ") + setting);
    TW_LOG(" end");
    return setting.toLower() == QLatin1String("true");
}

// ---------------------------------------------------------------------------
// Containers and certificates. Handles are the host's; this class never
// closes one.

Qt::HANDLE KeyObjectSKF::createContainer(QString containerName)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {containerName.isEmpty(), SAR_USER_NOT_LOGGED_IN, kContainerNameEmpty}))
        return nullptr;
    if (SKF_REFUSED({enumContainer().contains(containerName), TW_ERR_CONTAINER_EXISTS, " end. containerName is exist."}))
        return nullptr;

    HCONTAINER handle = nullptr;
    const ULONG ret = keyDriver->pSKF_CreateContainer(app, containerName.toUtf8().data(), &handle);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_CreateContainer failed.ret = %d");
        return nullptr;
    }
    TW_LOG(" end");
    return handle;
}

bool KeyObjectSKF::deleteContainer(QString containerName)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {containerName.isEmpty(), SAR_USER_NOT_LOGGED_IN, kContainerNameEmpty}))
        return false;
    const bool exists = enumContainer().contains(containerName);
    if (exists)
        TW_LOG(" containerName is exist.");
    if (SKF_REFUSED({!exists, TW_ERR_CONTAINER_NOT_EXIST, " end. containerName is not exist."}))
        return false;

    const ULONG ret = keyDriver->pSKF_DeleteContainer(app, containerName.toUtf8().data());
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_DeleteContainer failed.ret = %d");
        return false;
    }
    TW_LOG(" end");
    return true;
}

QStringList KeyObjectSKF::enumContainer()
{
    // One list for the class, emptied at every call.
    static QStringList list;
    TW_LOG(" start");
    list.clear();
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull}))
        return list;

    // Only the fill call tests for a removed device.
    ULONG size = 0;
    ULONG ret = keyDriver->pSKF_EnumContainer(app, nullptr, &size);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_EnumContainer failed.ret = %d", SkfCall::CloseNever);
        return list;
    }
    QByteArray buffer;
    ret = allocate(buffer, size, 1) ? keyDriver->pSKF_EnumContainer(app, buffer.data(), &size) : ULONG(SAR_MEMORYERR);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_EnumContainer failed.ret = %d");
        return list;
    }
    list = splitNames(buffer, size);
    TW_LOG(" end");
    return list;
}

Qt::HANDLE KeyObjectSKF::openContainer(QString containerName)
{
    TW_LOG(" start");
    // No look-up first: the library tells a missing container.
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {containerName.isEmpty(), SAR_USER_NOT_LOGGED_IN, kContainerNameEmpty}))
        return nullptr;
    HCONTAINER handle = nullptr;
    const ULONG ret = keyDriver->pSKF_OpenContainer(app, containerName.toUtf8().data(), &handle);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_OpenContainer failed.ret = %d");
        return nullptr;
    }
    TW_LOG(" end");
    return handle;
}

void KeyObjectSKF::closeContainer(Qt::HANDLE container)
{
    // Handles stay open until the application closes; the variants differ.
    Q_UNUSED(container);
}

int KeyObjectSKF::getContainerType(Qt::HANDLE container)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull}))
        return 0;
    ULONG type = 0;
    const ULONG ret = keyDriver->pSKF_GetContainerType(container, &type);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_GetContainerType failed.ret = %d");
        return 0;
    }
    TW_LOG(" end");
    return int(type);
}

bool KeyObjectSKF::ImportCertificate(Qt::HANDLE container, bool signFlag, QByteArray cert)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull}))
        return false;
    // An empty certificate is the library's to refuse.
    const ULONG ret = keyDriver->pSKF_ImportCertificate(container, signFlag ? TRUE : FALSE,
                                                        inBytes(cert), ULONG(cert.size()));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ImportCertificate failed.ret = %d");
        return false;
    }
    TW_LOG(" end");
    return true;
}

QByteArray KeyObjectSKF::exportCertificate(Qt::HANDLE container, bool signFlag)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull}))
        return QByteArray();
    ULONG length = 0;
    ULONG ret = keyDriver->pSKF_ExportCertificate(container, signFlag ? TRUE : FALSE, nullptr, &length);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ExportCertificate failed.ret = %d");
        return QByteArray();
    }
    QByteArray buffer;
    ret = allocate(buffer, length, 0) ? keyDriver->pSKF_ExportCertificate(container, signFlag ? TRUE : FALSE,
                                                                          outBytes(buffer),
                                                                          &length)
                                      : ULONG(SAR_MEMORYERR);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ExportCertificate failed.ret = %d");
        return QByteArray();
    }
    TW_LOG(" end");
    return written(buffer, length);
}

QStringList KeyObjectSKF::exportAllCertificate(bool signFlag)
{
    // One list for the class, emptied at every call.
    static QStringList certLst;
    TW_LOG(" start");
    certLst.clear();
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull}))
        return certLst;

    // Through the virtual operations, so a variant's overrides are used. A
    // failing container is skipped and leaves its last error.
    const QStringList names = enumContainer();
    for (const QString &name : names) {
        Qt::HANDLE container = openContainer(name);
        if (!container)
            continue;
        const QByteArray cert = exportCertificate(container, signFlag);
        if (cert.isEmpty())
            continue;
        certLst.append(QString::fromLatin1(cert.toBase64()));
    }
    TW_LOG(" end");
    return certLst;
}

// ---------------------------------------------------------------------------
// Keys, signatures, digests and ciphers. Every byte goes to the token and
// back as it stands; the session only checks, sizes buffers and reports.

QByteArray KeyObjectSKF::genRSAKeyPair(Qt::HANDLE container, quint64 algId)
{
    TW_LOG(" start");
    // Failures give an empty array that is not null.
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull}))
        return QByteArray("");

    TW_LOG(" SKF_GenRSAKeyPair");
    RSAPUBLICKEYBLOB blob;
    std::memset(&blob, 0, sizeof(blob));
    // algId carries the key length in bits, which is what the token takes.
    const ULONG ret = keyDriver->pSKF_GenRSAKeyPair(container, ULONG(algId), &blob);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_GenRSAKeyPair failed.ret = %d");
        TW_LOG(" end.");
        return QByteArray("");
    }
    TW_LOG(" end.");
    return QByteArray(reinterpret_cast<const char *>(&blob), SKF_RSAPUBLICKEYBLOB_SIZE);
}

bool KeyObjectSKF::importRSAKeyPair(Qt::HANDLE container, quint64 symAlgId, QByteArray wrappedKey,
                                    QByteArray encryptedData)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull},
                    {wrappedKey.isEmpty() || encryptedData.isEmpty(), SAR_INDATALENERR, nullptr}))
        return false;

    TW_LOG(" SKF_ImportRSAKeyPair");
    const ULONG ret = keyDriver->pSKF_ImportRSAKeyPair(container, ULONG(symAlgId), inBytes(wrappedKey),
                                                       ULONG(wrappedKey.size()), inBytes(encryptedData),
                                                       ULONG(encryptedData.size()));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ImportRSAKeyPair failed.ret = %d");
        TW_LOG(" end.");
        return false;
    }
    TW_LOG(" end");
    return true;
}

QByteArray KeyObjectSKF::rsaSignData(Qt::HANDLE container, QByteArray data)
{
    TW_LOG(" start");
    // Empty data logs the container text too: kept as hosts know it.
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull},
                    {data.isEmpty(), SAR_INDATALENERR, kContainerIsNull}))
        return QByteArray();

    TW_LOG(" SKF_rsaSignData");
    ULONG length = 0;
    ULONG ret = keyDriver->pSKF_RSASignData(container, inBytes(data), ULONG(data.size()), nullptr, &length);
    QByteArray buffer;
    if (ret == SAR_OK) {
        ret = SAR_MEMORYERR;
        if (allocate(buffer, length, 1))
            ret = keyDriver->pSKF_RSASignData(container, inBytes(data), ULONG(data.size()), outBytes(buffer),
                                              &length);
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " pSKF_RSASignData failed.ret = %d");
        TW_LOG(" end");
        return QByteArray();
    }
    TW_LOG(" end");
    return written(buffer, length);
}

bool KeyObjectSKF::rsaVerify(QByteArray pubkeyBlob, QByteArray data, QByteArray signature)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!dev || !keyDriver, SAR_USER_NOT_LOGGED_IN, kDevIsNull},
                    {pubkeyBlob.isEmpty() || data.isEmpty() || signature.isEmpty(), SAR_INDATALENERR, kVerifyInvalid}))
        return false;

    TW_LOG(" SKF_pSKF_RSASignData");
    TW_LOG(QStringLiteral(" dataLen: ") + QString::number(data.size()));
    TW_LOG(QStringLiteral(" signatureLen: ") + QString::number(signature.size()));
    QByteArray blob = padded(pubkeyBlob, SKF_RSAPUBLICKEYBLOB_SIZE);
    const ULONG ret = keyDriver->pSKF_RSAVerify(dev, reinterpret_cast<RSAPUBLICKEYBLOB *>(inBytes(blob)),
                                                inBytes(data), ULONG(data.size()), inBytes(signature),
                                                ULONG(signature.size()));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " pSKF_RSAVerify failed.ret = %d");
        TW_LOG(" end");
        return false;
    }
    TW_LOG(" end");
    return true;
}

QByteArray KeyObjectSKF::genECCKeyPair(Qt::HANDLE container, quint64 algId)
{
    TW_LOG(" start");
    // Failures give an empty array that is not null.
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull}))
        return QByteArray("");

    TW_LOG(" SKF_GenECCKeyPair");
    ECCPUBLICKEYBLOB blob;
    std::memset(&blob, 0, sizeof(blob));
    const ULONG ret = keyDriver->pSKF_GenECCKeyPair(container, ULONG(algId), &blob);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_GenECCKeyPair failed.ret = %d");
        TW_LOG(" end.");
        return QByteArray("");
    }
    TW_LOG(" end.");
    return QByteArray(reinterpret_cast<const char *>(&blob), SKF_ECCPUBLICKEYBLOB_SIZE);
}

bool KeyObjectSKF::importECCKeyPair(Qt::HANDLE container, QByteArray envelopedKeyBlob)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull},
                    {envelopedKeyBlob.isEmpty(), SAR_INDATALENERR, nullptr}))
        return false;

    TW_LOG(" SKF_ImportECCKeyPair");
    // The call has no length: a short blob reaches the token zero-padded.
    QByteArray blob = envelope(envelopedKeyBlob);
    const ULONG ret = keyDriver->pSKF_ImportECCKeyPair(container, reinterpret_cast<PENVELOPEDKEYBLOB>(inBytes(blob)));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ImportECCKeyPair failed.ret = %d");
        TW_LOG(" end.");
        return false;
    }
    TW_LOG(" end.");
    return true;
}

QByteArray KeyObjectSKF::eccSignData(Qt::HANDLE container, QByteArray data)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull},
                    {data.isEmpty(), SAR_INDATALENERR, nullptr}))
        return QByteArray();

    TW_LOG(" SKF_ECCSignData");
    ECCSIGNATUREBLOB blob;
    std::memset(&blob, 0, sizeof(blob));
    const ULONG ret = keyDriver->pSKF_ECCSignData(container, inBytes(data), ULONG(data.size()), &blob);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ECCSignData failed.ret = %d");
        TW_LOG(" end");
        return QByteArray();
    }
    TW_LOG(" end");
    return QByteArray(reinterpret_cast<const char *>(&blob), SKF_ECCSIGNATUREBLOB_SIZE);
}

bool KeyObjectSKF::eccVerify(QByteArray pubkeyBlob, QByteArray data, QByteArray signature)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!dev || !keyDriver, SAR_USER_NOT_LOGGED_IN, kDevIsNull},
                    {pubkeyBlob.isEmpty() || data.isEmpty() || signature.isEmpty(), SAR_INDATALENERR, kVerifyInvalid}))
        return false;

    TW_LOG(" SKF_ECCVerify");
    // Whole structures only: a compact signature reaches the token as a
    // zero-padded blob, never as a read past the host's bytes.
    QByteArray key = padded(pubkeyBlob, SKF_ECCPUBLICKEYBLOB_SIZE);
    QByteArray blob = padded(signature, SKF_ECCSIGNATUREBLOB_SIZE);
    const ULONG ret = keyDriver->pSKF_ECCVerify(dev, reinterpret_cast<ECCPUBLICKEYBLOB *>(inBytes(key)),
                                                inBytes(data), ULONG(data.size()),
                                                reinterpret_cast<PECCSIGNATUREBLOB>(inBytes(blob)));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ECCVerify failed.ret = %d");
        TW_LOG(" end");
        return false;
    }
    TW_LOG(" end");
    return true;
}

Qt::HANDLE KeyObjectSKF::importSessionKey(Qt::HANDLE container, quint64 ulAlgID, QByteArray wrapedData,
                                          quint64 wrapedDataLen)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!dev || !keyDriver, SAR_USER_NOT_LOGGED_IN, kDevIsNull},
                    {!container, SAR_INDATALENERR, kContainerIsNull}))
        return nullptr;

    TW_LOG(" SKF_ImportSessionKey");
    // The token gets the declared length, not the array's.
    const ULONG length = ULONG(wrapedDataLen);
    QByteArray wrapped;
    HANDLE hKey = nullptr;
    ULONG ret = SAR_MEMORYERR;
    if (declared(wrapedData, length, &wrapped))
        ret = keyDriver->pSKF_ImportSessionKey(container, ULONG(ulAlgID), inBytes(wrapped), length, &hKey);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ImportSessionKey failded.ret = %d.");
        TW_LOG(" end");
        return nullptr;
    }
    TW_LOG(" end");
    return hKey;
}

bool KeyObjectSKF::encryptInit(Qt::HANDLE hKey, QByteArray encryptParamData)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!keyDriver, SAR_USER_NOT_LOGGED_IN, kKeyDriverIsNull},
                    {!hKey, SAR_INVALIDHANDLEERR, kHKeyIsNull},
                    {encryptParamData.isEmpty(), SAR_INDATALENERR, " end. encryptParamData is empty"}))
        return false;

    TW_LOG(" SKF_EncryptInit");
    const ULONG ret = keyDriver->pSKF_EncryptInit(hKey, cipherParam(encryptParamData));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_EncryptInit failded.ret = %d.");
        TW_LOG(" end");
        return false;
    }
    TW_LOG(" end");
    return true;
}

QByteArray KeyObjectSKF::encrypt(Qt::HANDLE hKey, QByteArray data, quint64 dataLen)
{
    // The array's length is what the token gets; dataLen stays in the
    // interface only.
    Q_UNUSED(dataLen);
    TW_LOG(" start");
    if (SKF_REFUSED({!keyDriver, SAR_USER_NOT_LOGGED_IN, kKeyDriverIsNull},
                    {!hKey, SAR_INVALIDHANDLEERR, kHKeyIsNull},
                    {data.isEmpty(), SAR_INDATALENERR, " end. data is empty"}))
        return QByteArray();

    ULONG ulEncryptedLen = 0;
    TW_LOG(" SKF_Encrypt A");
    ULONG ret = keyDriver->pSKF_Encrypt(hKey, inBytes(data), ULONG(data.size()), nullptr, &ulEncryptedLen);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Encrypt failded.ret = %d.");
        return QByteArray();
    }
    TW_LOG(QStringLiteral(" ulEncryptedLen: ") + QString::number(ulEncryptedLen));

    QByteArray buffer;
    ret = SAR_MEMORYERR;
    if (allocate(buffer, ulEncryptedLen, 1)) {
        TW_LOG(" SKF_Encrypt B");
        ret = keyDriver->pSKF_Encrypt(hKey, inBytes(data), ULONG(data.size()), outBytes(buffer), &ulEncryptedLen);
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Encrypt failded.ret = %d.");
        return QByteArray();
    }
    const QByteArray encrypted = written(buffer, ulEncryptedLen);
    TW_LOG(" end");
    return encrypted;
}

bool KeyObjectSKF::decryptInit(Qt::HANDLE hKey, QByteArray decryptParamData)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!keyDriver, SAR_USER_NOT_LOGGED_IN, kKeyDriverIsNull},
                    {!hKey, SAR_INVALIDHANDLEERR, kHKeyIsNull},
                    {decryptParamData.isEmpty(), SAR_INDATALENERR, " end. decryptParamData is empty"}))
        return false;

    TW_LOG(" SKF_DecryptInit");
    const ULONG ret = keyDriver->pSKF_DecryptInit(hKey, cipherParam(decryptParamData));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_DecryptInit failded.ret = %d.");
        TW_LOG(" end");
        return false;
    }
    TW_LOG(" end");
    return true;
}

QByteArray KeyObjectSKF::decrypt(Qt::HANDLE hKey, QByteArray encryptedData, quint64 encryptedDataLen)
{
    Q_UNUSED(encryptedDataLen);
    TW_LOG(" start");
    if (SKF_REFUSED({!keyDriver, SAR_USER_NOT_LOGGED_IN, kKeyDriverIsNull},
                    {!hKey, SAR_INVALIDHANDLEERR, kHKeyIsNull},
                    {encryptedData.isEmpty(), SAR_INDATALENERR, " end. data is empty"}))
        return QByteArray();

    // The failure words of the two calls are the ones hosts have always
    // seen, whatever they name.
    ULONG ulDecryptedLen = 0;
    TW_LOG(" SKF_Decrypt A");
    ULONG ret = keyDriver->pSKF_Decrypt(hKey, inBytes(encryptedData), ULONG(encryptedData.size()), nullptr,
                                        &ulDecryptedLen);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Encrypt failded.ret = %d.");
        return QByteArray();
    }
    TW_LOG(QStringLiteral(" ulDecryptedLen: ") + QString::number(ulDecryptedLen));

    QByteArray buffer;
    ret = SAR_MEMORYERR;
    if (allocate(buffer, ulDecryptedLen, 1)) {
        TW_LOG(" SKF_Decrypt B");
        ret = keyDriver->pSKF_Decrypt(hKey, inBytes(encryptedData), ULONG(encryptedData.size()), outBytes(buffer),
                                      &ulDecryptedLen);
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Digest failded.ret = %d.");
        return QByteArray();
    }
    const QByteArray plain = written(buffer, ulDecryptedLen);
    TW_LOG(" end");
    return plain;
}

QByteArray KeyObjectSKF::rsaSimpleSign(Qt::HANDLE container, QByteArray data, quint64 digestAlgID)
{
    // Offered by name only: RSA signing goes through rsaSignData.
    Q_UNUSED(container);
    Q_UNUSED(data);
    Q_UNUSED(digestAlgID);
    TW_LOG(" start");
    TW_LOG(" end");
    return QByteArray();
}

QByteArray KeyObjectSKF::eccSimpleSign(Qt::HANDLE container, QByteArray data, bool usedPubkeyDigest)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull}))
        return QByteArray();

    // Through the virtual operations, so that a subclass's overrides count.
    QByteArray pubkey;
    if (usedPubkeyDigest) {
        pubkey = exportPublicKey(container, true);
        if (pubkey.isEmpty()) {
            TW_LOG("end.exportPublicKey failed.");
            return QByteArray();
        }
    }
    Qt::HANDLE hash = digestInit(SGD_SM3, pubkey, QString::fromLatin1(kDefaultUserId));
    if (!hash) {
        TW_LOG("end. digestInit failed.");
        return QByteArray();
    }
    const QByteArray hashValue = digest(hash, data);
    if (hashValue.isEmpty()) {
        TW_LOG("end. digest failed.");
        return QByteArray();
    }
    const QByteArray signature = eccSignData(container, hashValue);

    // r and s stand right-aligned in their 64-byte fields. A failed
    // signature replaces with nothing and leaves 32 zero bytes: callers
    // tell failure by the length, with the token's code as last error.
    QByteArray compact(64, '\0');
    compact.replace(0, 32, signature.mid(32, 32));
    compact.replace(32, 32, signature.right(32));
    TW_LOG(" end.");
    return compact;
}

bool KeyObjectSKF::eccSimpleVerify(Qt::HANDLE container, QByteArray data, QByteArray signature,
                                   bool usedPubkeyDigest)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!dev || !keyDriver, SAR_USER_NOT_LOGGED_IN, kDevIsNull},
                    {!container, SAR_INVALIDHANDLEERR, " end . container is null"}))
        return false;

    QByteArray pubkey;
    if (usedPubkeyDigest) {
        pubkey = exportPublicKey(container, true);
        if (pubkey.isEmpty()) {
            TW_LOG("end.exportPublicKey failed.");
            return false;
        }
    }
    Qt::HANDLE hash = digestInit(SGD_SM3, pubkey, QString::fromLatin1(kDefaultUserId));
    if (!hash) {
        TW_LOG("end.digestInit failed.");
        return false;
    }
    const QByteArray hashValue = digest(hash, data);
    if (hashValue.isEmpty()) {
        TW_LOG("end.digest failed.");
        return false;
    }

    // Compact r||s back into the token's blob; a short signature fills
    // only what it has.
    QByteArray blob(SKF_ECCSIGNATUREBLOB_SIZE, '\0');
    place(blob, 32, signature.left(32), 32);
    place(blob, 96, signature.right(32), 32);
    TW_LOG(" end");
    return eccVerify(pubkey, hashValue, blob);
}

Qt::HANDLE KeyObjectSKF::digestInit(quint64 ulAlgID, QByteArray pubkeyBlob, QString id)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!dev || !keyDriver, SAR_USER_NOT_LOGGED_IN, kDevIsNull}))
        return nullptr;

    // No key: a null pointer. A short key reaches the token zero-padded.
    QByteArray key;
    ECCPUBLICKEYBLOB *pubkey = nullptr;
    if (!pubkeyBlob.isEmpty()) {
        key = padded(pubkeyBlob, SKF_ECCPUBLICKEYBLOB_SIZE);
        pubkey = reinterpret_cast<ECCPUBLICKEYBLOB *>(inBytes(key));
    }
    // An empty id is a valid pointer to an empty string, length 0.
    const QByteArray idBytes = id.toUtf8();
    HANDLE hash = nullptr;
    const ULONG ret = keyDriver->pSKF_DigestInit(dev, ULONG(ulAlgID), pubkey, inBytes(idBytes),
                                                 ULONG(idBytes.size()), &hash);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_DigestInit failded.ret = %d.");
        TW_LOG(" end");
        return nullptr;
    }
    m_AlgID = ulAlgID;
    TW_LOG(QStringLiteral(" m_AlgID: ") + QString::number(m_AlgID));
    return hash;
}

QByteArray KeyObjectSKF::digest(Qt::HANDLE hash, QByteArray data)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!hash || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . hash is null"},
                    {data.isEmpty(), SAR_INDATALENERR, " end.parameter invalidate"}))
        return QByteArray();

    ULONG ulHashLen = 0;
    ULONG ret = keyDriver->pSKF_Digest(hash, inBytes(data), ULONG(data.size()), nullptr, &ulHashLen);
    QByteArray buffer;
    if (ret == SAR_OK) {
        TW_LOG(QStringLiteral(" ulHashLen(1): ") + QString::number(ulHashLen));
        TW_LOG(QStringLiteral(" m_AlgID: ") + QString::number(m_AlgID));
        // The algorithm, not the token's report, sizes a known hash.
        ulHashLen = hashSize(m_AlgID, ulHashLen);
        ret = SAR_MEMORYERR;
        if (allocate(buffer, ulHashLen, 1)) {
            TW_LOG(" 1");
            ret = keyDriver->pSKF_Digest(hash, inBytes(data), ULONG(data.size()), outBytes(buffer), &ulHashLen);
        }
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Digest failded.ret = %d.");
        return QByteArray();
    }
    TW_LOG(QStringLiteral(" ulHashLen(2): ") + QString::number(ulHashLen));
    const QByteArray hashValue = written(buffer, hashSize(m_AlgID, ulHashLen));
    TW_LOG(" 2");
    TW_LOG(" end");
    return hashValue;
}

QByteArray KeyObjectSKF::digestV1(Qt::HANDLE hash, QByteArray data)
{
    TW_LOG(" start");
    const QByteArray hashValue = digest(hash, data);
    TW_LOG(" end");
    return hashValue;
}

// Multi-part hashing is not offered: hosts use digest.
bool KeyObjectSKF::digestUpdate(Qt::HANDLE hash, QByteArray data)
{
    Q_UNUSED(hash);
    Q_UNUSED(data);
    TW_LOG(" start");
    TW_LOG(" end");
    return false;
}

QByteArray KeyObjectSKF::digestFinal(Qt::HANDLE hash)
{
    Q_UNUSED(hash);
    TW_LOG(" start");
    TW_LOG(" end");
    return QByteArray();
}

QByteArray KeyObjectSKF::exportPublicKey(Qt::HANDLE container, bool bSignFlag)
{
    TW_LOG(" start");
    // A null container records SAR_INDATALENERR here, unlike its siblings.
    if (SKF_REFUSED({!dev || !keyDriver, SAR_USER_NOT_LOGGED_IN, kDevIsNull},
                    {!container, SAR_INDATALENERR, kContainerIsNull}))
        return QByteArray();

    TW_LOG(" SKF_ExportPublicKey");
    ULONG length = 0;
    ULONG ret = keyDriver->pSKF_ExportPublicKey(container, bSignFlag, nullptr, &length);
    QByteArray buffer;
    if (ret == SAR_OK) {
        ret = SAR_MEMORYERR;
        if (allocate(buffer, length, 1))
            ret = keyDriver->pSKF_ExportPublicKey(container, bSignFlag, outBytes(buffer), &length);
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ExportPublicKey failed.ret = %d");
        TW_LOG(" end");
        return QByteArray();
    }
    TW_LOG(" end");
    return written(buffer, length);
}

void KeyObjectSKF::closeHandle(Qt::HANDLE handle)
{
    TW_LOG(" start");
    if (!keyDriver || !handle) {
        TW_LOG(" end. keyDriver = null or handle = null");
        return;
    }
    TW_LOG(" SKF_CloseHandle");
    // A handle the token refuses is no failure of the host's.
    keyDriver->pSKF_CloseHandle(handle);
    TW_LOG(" end");
}

QByteArray KeyObjectSKF::digestRsaByPubkey(QByteArray pbtData)
{
    TW_LOG(" start");
    std::printf("[KeyObjectSKF::SignDataRsaWithDigest] call in \n");
    // The device handle goes to the token as it is; only a missing
    // function table is stopped here.
    if (SKF_REFUSED({!keyDriver, SAR_USER_NOT_LOGGED_IN, kKeyDriverIsNull}))
        return QByteArray();

    QByteArray hashValue(256, '\0');
    ULONG ulHashLen = 256;
    HANDLE hash = nullptr;
    ULONG ret = keyDriver->pSKF_DigestInit(dev, SGD_SHA1, nullptr, nullptr, 0, &hash);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_DigestInit failded.ret = %d.");
        TW_LOG(" end");
        return QByteArray();
    }
    ret = keyDriver->pSKF_Digest(hash, inBytes(pbtData), ULONG(pbtData.size()), outBytes(hashValue), &ulHashLen);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Digest failded.ret = %d.");
        TW_LOG(" end");
        return QByteArray();
    }
    // The DigestInfo is assembled but not handed out: hosts rely on the
    // empty result, and the hash object stays with the token.
    QByteArray digestInfo(kSha1DigestInfoPrefix, kSha1DigestInfoPrefixSize);
    digestInfo += written(hashValue, qMin<ULONG>(ulHashLen, 256 - kSha1DigestInfoPrefixSize));
    Q_UNUSED(digestInfo);
    TW_LOG(" end");
    return QByteArray();
}

QByteArray KeyObjectSKF::eccExportSessionKey(Qt::HANDLE container, quint64 ulAlgID, QByteArray pubkeyBlob,
                                             Qt::HANDLE *phSessionKey)
{
    TW_LOG("start");
    if (SKF_REFUSED({!dev || !keyDriver, SAR_USER_NOT_LOGGED_IN, kDevIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull},
                    {pubkeyBlob.isEmpty(), SAR_INVALIDPARAMERR, " end"}))
        return QByteArray();

    // An ECCCIPHERBLOB with room for a 33-byte cipher.
    QByteArray cipherBlob(SKF_ECCCIPHERBLOB_BUFFER_SIZE, '\0');
    TW_LOGF_ERROR(" pstEccCipherBlob = %s", cipherBlob.toBase64().constData());
    QByteArray key = padded(pubkeyBlob, SKF_ECCPUBLICKEYBLOB_SIZE);
    const ULONG ret = keyDriver->pSKF_ECCExportSessionKey(container, ULONG(ulAlgID),
                                                          reinterpret_cast<ECCPUBLICKEYBLOB *>(inBytes(key)),
                                                          reinterpret_cast<PECCCIPHERBLOB>(outBytes(cipherBlob)),
                                                          phSessionKey);
    if (ret != SAR_OK) {
        // This operation never closes the session, removed device or not.
        SKF_FAILED(ret, " pSKF_ECCExportSessionKey failed.ret = %d", SkfCall::CloseNever);
        TW_LOG(" end.");
        return QByteArray();
    }
    TW_LOG(" end.");
    return cipherBlob;
}
