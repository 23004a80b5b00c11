#include "keysession.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "frame/twlog.h"
#include "package/keydriverpackage.h"
#include "skfresult.h"

const char KeySession::kBuiltInAdminPin[] = "QmVR2kdLZTTHpXsa";
const char KeySession::kDefaultUserPin[] = "482915";
const char KeySession::kAppIsNull[] = " end . app is null";
const char KeySession::kDevIsNull[] = " end . dev is null";
const char KeySession::kNameInvalid[] = " end,parameter invalid ";
const char KeySession::kDataInvalid[] = " end. parameter invalid";
const char KeySession::kContainerNameEmpty[] = " end. containerName is empty.";
const char KeySession::kContainerIsNull[] = " end. container = null";
const char KeySession::kKeyDriverIsNull[] = " end . keyDriver is null";
const char KeySession::kHKeyIsNull[] = " end . hKey is null";
const char KeySession::kVerifyInvalid[] = " start.parameter invalid";

namespace {

// An open session probed within this time is taken as good.
const quint32 kFreshMsecs = 500;

// Largest buffer the session builds for a size that the token or the host
// declared; anything above is a broken size, not data.
const ULONG kMaxBuffer = 1u << 28;

// The user id that the compact SM2 operations always hash with.
const char kDefaultUserId[] = "1234567812345678";

// The package's `ap`: base64 of base64 of the PIN. The PIN ends at its
// first NUL.
QByteArray decodeAdminPin(const QString &encoded)
{
    QByteArray pin = QByteArray::fromBase64(QByteArray::fromBase64(encoded.toLatin1()));
    const int end = pin.indexOf('\0');
    if (end >= 0)
        pin.truncate(end);
    return pin;
}

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

// A user PIN has 6 to 16 characters; the token judges the rest.
bool userPinLengthOk(const QString &pin)
{
    return pin.length() >= 6 && pin.length() <= 16;
}

ULONG pinType(bool isAdmin)
{
    return isAdmin ? ADMIN_TYPE : USER_TYPE;
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

} // namespace

// Input bytes for the library. SKF takes non-const pointers for data it
// only reads.
BYTE *KeySession::inBytes(const QByteArray &data)
{
    return reinterpret_cast<BYTE *>(const_cast<char *>(data.constData()));
}

BYTE *KeySession::outBytes(QByteArray &buffer)
{
    return reinterpret_cast<BYTE *>(buffer.data());
}

// The first `length` bytes that the library wrote, never more than the
// buffer holds.
QByteArray KeySession::written(const QByteArray &buffer, quint64 length)
{
    return buffer.left(int(qMin<quint64>(length, quint64(buffer.size()))));
}

// The library's size plus `extra` zeroed bytes. False when that size
// can't be real; the fill call then counts as failed with SAR_MEMORYERR,
// since a cut-down buffer would let the library write past it.
bool KeySession::allocate(QByteArray &buffer, ULONG size, ULONG extra)
{
    if (size > kMaxBuffer - extra)
        return false;
    buffer = QByteArray(int(size + extra), '\0');
    return true;
}

// A file or container list: names ended by NUL, the first empty name ends
// the list, and a last name without its NUL still counts.
QStringList KeySession::splitNames(const QByteArray &buffer, ULONG size)
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

KeySession::KeySession(KeyDriverPackage *package, QString devName, const Traits &traits, TokenApi *api)
    : KeyObject(devName, nullptr), m_AlgID(0), m_package(package), dev(nullptr), app(nullptr), m_traits(traits),
      m_api(api), m_call(this)
{
    m_isOpen = false;
    std::memset(&devInfo, 0, sizeof(devInfo));
    m_api->attach(&dev, &app);
}

// The class's own closeV1 ran in its destructor.
KeySession::~KeySession()
{
    delete m_api;
}

void KeySession::PrintError(unsigned int ret, char *msg)
{
    SkfResult::print(m_traits.printTag, ret, msg);
}

void KeySession::say(const char *function, int line, const QString &text, bool error) const
{
    if (!twlog::enabled())
        return;
    if (error)
        twlog::error(function, line, m_api->reword(text));
    else
        twlog::debug(function, line, m_api->reword(text));
}

QString KeySession::words(const char *text) const
{
    return m_api->reword(QString::fromUtf8(text));
}

QString KeySession::serialOf(const DEVINFO &info)
{
    return fieldText(info.SerialNumber);
}

QString KeySession::limitedSerial()
{
    return GetSerialNumByString(serialOf(devInfo), quint64(m_package ? m_package->GetLimitSize(16) : 16));
}

void KeySession::pinVerified(const QString &/*pinCode*/, bool /*isAdmin*/)
{
}

bool KeySession::beforeRsaKeyPairImport()
{
    return true;
}

void KeySession::labelSet(const QString &/*label*/)
{
}

QString KeySession::fileStep(FileStep /*step*/, const QString &/*hostName*/, const QString &name, QByteArray * /*data*/)
{
    return name;
}

QStringList KeySession::filesFound(const QStringList &names)
{
    return names;
}

KeySession::Traits KeySession::probingTraits(const char *printTag, const char *pinInfoWord)
{
    Traits traits;
    traits.printTag = printTag;
    traits.pinInfoWord = pinInfoWord;
    traits.verifyPrintsError = false;
    traits.closeEnds = true;
    traits.closesContainers = true;
    traits.enumFilesSizeFailCloses = true;
    traits.looseReplace = true;
    traits.readsFullStore = false;
    traits.singleUnblock = true;
    return traits;
}

ULONG KeySession::connectDevice(DEVHANDLE *handle)
{
    // Without a function table there is no library to connect through.
    return m_api->bound() ? m_api->connectDev(m_devName.toLocal8Bit().data(), handle) : ULONG(SAR_NOTINITIALIZEERR);
}

// totalSpace and freeSpace read the device data anew when connected; a
// failed read leaves it zeroed or partly filled.
void KeySession::refreshDevInfo(const char *function)
{
    if (!m_api->devReady())
        return;
    std::memset(&devInfo, 0, sizeof(devInfo));
    if (twlog::enabled())
        say(function, __LINE__, QStringLiteral(" SKF_GetDevInfo "));
    m_api->getDevInfo(&devInfo);
}

QString KeySession::versionText(const char *function, const VERSION &version) const
{
    const QString major = QString::number(uint(version.major));
    const QString minor = QString::number(uint(version.minor));
    if (twlog::enabled()) {
        say(function, __LINE__, QStringLiteral(" strMajor is:") + major);
        say(function, __LINE__, QStringLiteral(" strMinor is:") + minor);
    }
    return major + QLatin1Char('.') + minor;
}

// ---------------------------------------------------------------------------
// Electronic seal: the library's optional EPS_ functions. The seal data is
// opaque here; a library without a function fails that operation alone.

bool KeySession::epsImportSymmKey(Qt::HANDLE container, quint64 ulKeyIndex, QByteArray szEncData,
                                  quint64 ulEncDataLen, quint64 ulFlags)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull},
                    {!m_api->has(TokenApi::EpsImportSymmKey), SAR_INVALIDHANDLEERR, " end . pEPS_ImportSymmKey is null"}))
        return false;

    SLOG(" ESP_ImportSymmKey");
    const ULONG length = ULONG(ulEncDataLen);
    QByteArray encData;
    ULONG ret = SAR_MEMORYERR;
    if (declared(szEncData, length, &encData))
        ret = m_api->epsImportSymmKey(container, ULONG(ulKeyIndex), inBytes(encData), length, ULONG(ulFlags));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " ESP_ImportSymmKey failed.ret = %d");
        SLOG(" end.");
        return false;
    }
    SLOG(" end.");
    return true;
}

QByteArray KeySession::epsReadESealData(quint64 ulKeyIndex, quint64 ulKeyAlgId, quint64 ulFlags)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!m_api->has(TokenApi::EpsReadESealData), SAR_INVALIDHANDLEERR, " end . pEPS_ReadESealData is null"}))
        return QByteArray();

    ULONG ulOutSize = 0;
    SLOG(" ESP_ReadESealData A");
    ULONG ret = m_api->epsReadESealData(ULONG(ulKeyIndex), ULONG(ulKeyAlgId), nullptr, &ulOutSize, ULONG(ulFlags));
    SLOGF("ulOutSize: %d", int(ulOutSize));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_GetFileInfo failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose, false);
        return QByteArray();
    }
    // An empty seal is no failure.
    if (ulOutSize == 0) {
        SLOG(" end . ulOutSize is 0");
        return QByteArray();
    }

    QByteArray buffer;
    ret = SAR_MEMORYERR;
    if (allocate(buffer, ulOutSize, 1)) {
        SLOG(" ESP_ReadESealData B");
        ret = m_api->epsReadESealData(ULONG(ulKeyIndex), ULONG(ulKeyAlgId), outBytes(buffer), &ulOutSize,
                                      ULONG(ulFlags));
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ReadFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose, false);
        return QByteArray();
    }
    const QByteArray seal = written(buffer, ulOutSize);
    SLOG(" end.");
    return seal;
}

bool KeySession::epsWriteESealData(QByteArray szData, quint64 ulDataSize, quint64 ulFlags)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {szData.isEmpty(), SAR_INDATALENERR, " end. szData invalid"},
                    {!m_api->has(TokenApi::EpsWriteESealData), SAR_INVALIDHANDLEERR, " end . pEPS_WriteESealData is null"}))
        return false;

    SLOG(" ESP_WriteESealData");
    const ULONG size = ULONG(ulDataSize);
    QByteArray data;
    ULONG ret = SAR_MEMORYERR;
    if (declared(szData, size, &data))
        ret = m_api->epsWriteESealData(inBytes(data), size, ULONG(ulFlags));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " ESP_WriteESealData failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose,
                   false);
        return false;
    }
    SLOG(" end.");
    return true;
}

// ---------------------------------------------------------------------------
// Opening and closing

// The form that keeps a session alive by a look at the file store: no
// device-state file, no serial compare, no container step.
bool KeySession::open()
{
    if (m_isOpen) {
        const int timeTemp = m_time.msecsTo(QTime::currentTime());
        SLOG(QStringLiteral(" timeTemp: ") + QString::number(timeTemp));
        // Negative after midnight: as unsigned that counts as long ago.
        if (quint32(timeTemp) > kFreshMsecs) {
            SLOG(" SKF_EnumFiles start");
            ULONG size = 0;
            if (m_api->enumFiles(nullptr, &size) != SAR_OK)
                closeV1();
            SLOG(" SKF_EnumFiles end");
            m_time = QTime::currentTime();
            SLOG(" enumFiles");
        }
    }
    // A failed probe closed the session: connect again in this same call.
    if (m_isOpen)
        return true;

    SLOG(" SKF_ConnectDev");
    DEVHANDLE handle = nullptr;
    const ULONG ret = connectDevice(&handle);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ConnectDev failed,ret = %d ", SkfCall::CloseNever, SkfCall::ErrorThenClose, false);
        return false;
    }
    dev = handle;
    SLOG(" SKF_ConnectDev ok");
    std::memset(&devInfo, 0, sizeof(devInfo));
    SLOG(" SKF_GetDevInfo ");
    m_api->getDevInfo(&devInfo);

    SLOG(" openApplication");
    if (openApplication()) {
        m_isOpen = true;
        // Fills m_fileList.
        enumFiles();
        m_time = QTime::currentTime();
    } else {
        m_isOpen = false;
        if (dev) {
            SLOG_ERROR(" openApplication failed,DisConnectDev.");
            m_api->disconnectDev();
        }
        dev = nullptr;
    }
    SLOG(" end");
    return m_isOpen;
}

void KeySession::close()
{
    // KeyObjectSKF's session stays connected for its next use; closeV1 is
    // the real end.
    SLOG(" start");
    if (m_traits.closeEnds)
        closeV1();
    SLOG(" end");
}

bool KeySession::closeV1()
{
    SLOG(" start");
    m_fileList.clear();
    if (app) {
        SLOG(" CloseApplication");
        if (m_api->bound())
            m_api->closeApplication();
        app = nullptr;
    } else {
        setLastError(SAR_USER_NOT_LOGGED_IN);
    }
    if (dev) {
        SLOG(" DisConnectDev");
        if (m_api->bound())
            m_api->disconnectDev();
        dev = nullptr;
    } else {
        setLastError(SAR_USER_NOT_LOGGED_IN);
    }
    m_isOpen = false;
    SLOG(" end");
    return m_isOpen;
}

QStringList KeySession::enumApplication()
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->devReady(), SAR_USER_NOT_LOGGED_IN, kDevIsNull}))
        return QStringList();

    ULONG size = 0;
    ULONG ret = m_api->enumApplication(nullptr, &size);
    SLOG(QLatin1String(" SKF_EnumApplication 0 ulSize: ") + QString::number(size));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, "SKF_EnumApplication failed.ret = %d", SkfCall::CloseIfRemoved, SkfCall::NoError);
        return QStringList();
    }
    QByteArray buffer;
    ret = SAR_MEMORYERR;
    if (allocate(buffer, size, 1)) {
        SLOG(QLatin1String(" SKF_EnumApplication 3 ulSize: ") + QString::number(size));
        ret = m_api->enumApplication(buffer.data(), &size);
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, "SKF_EnumApplication failed.ret = %d");
        return QStringList();
    }

    // One string, names between blanks: a NUL ends the list, and empty
    // names count but for one at the end.
    const QString list = QString::fromLatin1(buffer.constData());
    SLOG(QStringLiteral(" appNameList: ") + list);
    QStringList names = list.split(QLatin1Char(' '));
    if (names.last().isEmpty())
        names.removeLast();
    SLOG(" end");
    return names;
}

bool KeySession::openApplication()
{
    SLOG(" start");
    if (!m_api->bound()) {
        SLOG(" end. keyDriver = null");
        return false;
    }
    if (app) {
        // The words are the old ones, kept though they say the opposite.
        SLOG(" end. app = null");
        return true;
    }
    const QStringList names = enumApplication();
    if (names.isEmpty()) {
        SLOG(" end. appNameList.count = 0");
        return false;
    }
    app = openApplication(names.first());
    if (!app) {
        SLOG(" end. app = null");
        return false;
    }
    SLOG(" end");
    return true;
}

HAPPLICATION KeySession::openApplication(QString appName)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->devReady(), SAR_USER_NOT_LOGGED_IN, kDevIsNull}))
        return nullptr;
    if (appName.isEmpty()) {
        SLOG(" end. keyDriver = null or dev = null or appName is empty.");
        return nullptr;
    }
    SLOG(" SKF_OpenApplication");
    HAPPLICATION handle = nullptr;
    const ULONG ret = m_api->openApplication(appName.toUtf8().data(), &handle);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_OpenApplication failed,ret= %d", SkfCall::CloseNever, SkfCall::ErrorThenClose, false);
        m_isOpen = false;
        SLOG(" end");
        return nullptr;
    }
    SLOG(" end");
    return handle;
}

// ---------------------------------------------------------------------------
// Identity and capacity: read from the DEVINFO of the last connect, but for
// the space queries, which read it anew.

QString KeySession::labelName()
{
    const QString label = fieldText(devInfo.Label);
    SLOGF(" labelName = %s ", label.toUtf8().constData());
    return label;
}

QString KeySession::serialNumber()
{
    const QString serial = limitedSerial();
    SLOGF(" serialNumber(A) = %s ", serial.toUtf8().constData());
    return serial;
}

QString KeySession::serialNumberEx()
{
    const QString serial = serialOf(devInfo);
    SLOGF(" serialNumber = %s ", serial.toUtf8().constData());
    return serial;
}

QString KeySession::GetManufacturer()
{
    const QString manufacturer = fieldText(devInfo.Manufacturer);
    SLOGF(" Manufacturer = %s ", manufacturer.toUtf8().constData());
    return manufacturer;
}

QString KeySession::GetHWVersion()
{
    return versionText(__FUNCTION__, devInfo.HWVersion);
}

QString KeySession::GetFirmwareVersion()
{
    return versionText(__FUNCTION__, devInfo.FirmwareVersion);
}

bool KeySession::SetlabelName(QString strlabelName)
{
    SLOG(" start");
    if (!dev) {
        SLOG(" dev is NULL");
        return false;
    }
    if (!m_api->bound()) {
        SLOG(" keyDriver is NULL");
        return false;
    }
    // devInfo keeps the old label until the next read, unless labelSet
    // says otherwise.
    const ULONG ret = m_api->setLabel(strlabelName.toUtf8().data());
    if (ret == SAR_OK) {
        labelSet(strlabelName);
        SLOG(" SetLabel is successfully");
        SLOG(" end");
        return true;
    }
    SLOG(" end");
    return false;
}

quint64 KeySession::totalSpace()
{
    SLOG(" start");
    refreshDevInfo(__FUNCTION__);
    SLOG(" end");
    return quint64(devInfo.TotalSpace);
}

quint64 KeySession::freeSpace()
{
    SLOG(" start");
    refreshDevInfo(__FUNCTION__);
    SLOG(" end");
    return quint64(devInfo.FreeSpace);
}

bool KeySession::formatKey()
{
    SLOG(" start");
    if (!m_api->scoped()) {
        setLastError(SAR_USER_NOT_LOGGED_IN);
        SLOG(" end . app is null");
        return false;
    }

    // Through the virtual operations. A failed deletion is logged and
    // passed over: the result speaks only of the PIN steps.
    const QStringList files = enumFiles();
    for (const QString &name : files) {
        if (deleteFile(name))
            SLOG(QStringLiteral(" delete file succeed. FileName: ") + name);
        else
            SLOG(QStringLiteral(" delete file fail. FileName: ") + name);
    }
    return adoptBuiltInAdminPin(__FUNCTION__, false);
}

// Nothing to do when the built-in PIN verifies, else moves over from the
// package's `ap`. A package with no `ap` is a success when
// `emptyApIsSuccess` (resetAdminPin); otherwise the empty PIN is tried and
// fails (formatKey).
bool KeySession::adoptBuiltInAdminPin(const char *function, bool emptyApIsSuccess)
{
    const QString builtIn = QString::fromLatin1(kBuiltInAdminPin);
    if (verifyPin(builtIn, true)) {
        say(function, __LINE__, QStringLiteral(" end"));
        return true;
    }

    const QString encoded = m_package ? m_package->defaultAdminPin() : QString();
    say(function, __LINE__, QStringLiteral(" strDefaultAdminPin: ") + encoded);
    if (encoded.isEmpty() && emptyApIsSuccess) {
        say(function, __LINE__, QStringLiteral(" end"));
        return true;
    }

    const QString packagePin = QString::fromLatin1(decodeAdminPin(encoded));
    if (!verifyPin(packagePin, true)) {
        say(function, __LINE__, QStringLiteral(" end. DefaultAdminPin fail"));
        return false;
    }
    if (!changePIN(true, packagePin, builtIn)) {
        say(function, __LINE__, QStringLiteral(" end. change Admin PIN fail"));
        return false;
    }
    say(function, __LINE__, QStringLiteral(" end"));
    return true;
}

// ---------------------------------------------------------------------------
// PINs. The session keeps no PIN and no login flag: that state is the
// token's.

bool KeySession::changePIN(bool isAdmin, QString oldPin, QString newPin)
{
    SLOG(" start");
    // The old PIN is judged first where both are wrong.
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!isAdmin && !userPinLengthOk(oldPin), TW_ERR_OLD_PIN_LEN, " end . oldPin len error"},
                    {!isAdmin && !userPinLengthOk(newPin), TW_ERR_NEW_PIN_LEN, " end . newPin len error"}))
        return false;

    SLOG(" SKF_ChangePIN");
    ULONG retryCount = 0;
    const ULONG ret = m_api->changePIN(pinType(isAdmin), oldPin.toUtf8().data(), newPin.toUtf8().data(), &retryCount);
    if (ret != SAR_OK) {
        // The code is recorded last, after the closing words.
        SKF_FAILED(ret, " SKF_ChangePIN failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::NoError, false);
        SLOG(" end.");
        setLastError(int(ret));
        return false;
    }
    SLOG(" end");
    return true;
}

bool KeySession::verifyPin(QString pinCode, bool isAdmin)
{
    return verifyPinEx(pinCode, isAdmin);
}

bool KeySession::verifyPinEx(QString pinCode, bool isAdmin)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull}))
        return false;
    // A user PIN of the wrong length never reaches the token, so it costs
    // no retry.
    const bool badLength = !isAdmin && !userPinLengthOk(pinCode);
    if (badLength)
        SLOG(QLatin1String(" pinCode length: ") + QString::number(pinCode.length()));
    if (SKF_REFUSED({badLength, TW_ERR_OLD_PIN_LEN, " end . oldPin len error"}))
        return false;

    SLOG(" SKF_VerifyPIN");
    ULONG retryCount = 0;
    const ULONG ret = m_api->verifyPIN(pinType(isAdmin), pinCode.toUtf8().data(), &retryCount);
    if (ret != SAR_OK) {
        // The code is recorded last, after the closing words.
        SKF_FAILED(ret, " SKF_VerifyPIN failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::NoError,
                   m_traits.verifyPrintsError);
        SLOG(" end.");
        setLastError(int(ret));
        return false;
    }
    pinVerified(pinCode, isAdmin);
    SLOG(" end");
    return true;
}

bool KeySession::resetUserPin()
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull}))
        return false;

    QByteArray userPin(kDefaultUserPin);
    QByteArray adminPin(kBuiltInAdminPin);
    ULONG retryCount = 0;
    if (m_traits.singleUnblock) {
        SLOG(" SKF_UnblockPIN");
        const ULONG ret = m_api->unblockPIN(adminPin.data(), userPin.data(), &retryCount);
        if (ret != SAR_OK) {
            SKF_FAILED(ret, " SKF_UnblockPIN failed,ret = %d", SkfCall::CloseNever, SkfCall::ErrorThenClose, false);
            return false;
        }
        SLOG(" end");
        return true;
    }

    SLOG(" SKF_UnblockPIN first");
    const ULONG firstRet = m_api->unblockPIN(adminPin.data(), userPin.data(), &retryCount);
    if (firstRet == SAR_OK) {
        SLOG(" end");
        return true;
    }
    SKF_FAILED(firstRet, " SKF_UnblockPIN first failed,ret = %d", SkfCall::CloseNever, SkfCall::NoError, false);

    // Second try with the package's own administrator PIN, if it has one.
    const QString encoded = m_package ? m_package->defaultAdminPin() : QString();
    if (encoded.isEmpty()) {
        setLastError(int(firstRet));
        return false;
    }
    SLOG(QStringLiteral(" strDefaultAdminPin: ") + encoded);
    QByteArray packagePin = decodeAdminPin(encoded);
    SLOG(" SKF_UnblockPIN second");
    const ULONG secondRet = m_api->unblockPIN(packagePin.data(), userPin.data(), &retryCount);
    if (secondRet == SAR_OK) {
        SLOG(" end");
        return true;
    }
    // The second failure is recorded but not logged.
    setLastError(int(secondRet));
    return false;
}

bool KeySession::resetUserPinV1(QString AdminPin, QString NewUserPin)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull}))
        return false;
    SLOGF(" AdminPinLength: %d", AdminPin.length());
    SLOGF(" NewUserPinLength: %d", NewUserPin.length());

    // Without an administrator PIN the built-in rescue runs, and its
    // outcome is not passed on; or the built-in PIN stands in.
    if (AdminPin.isEmpty()) {
        if (!m_traits.singleUnblock) {
            resetUserPin();
            return true;
        }
        AdminPin = QString::fromLatin1(kBuiltInAdminPin);
    }
    if (NewUserPin.isEmpty())
        NewUserPin = QString::fromLatin1(kDefaultUserPin);

    SLOG(" SKF_UnblockPIN");
    ULONG retryCount = 0;
    const ULONG ret = m_api->unblockPIN(AdminPin.toUtf8().data(), NewUserPin.toUtf8().data(), &retryCount);
    if (ret != SAR_OK) {
        SLOGF_ERROR(" SKF_UnblockPIN failed,pulRetryCount = %d", int(retryCount));
        SKF_FAILED(ret, " SKF_UnblockPIN failed,ret = %d", SkfCall::CloseNever, SkfCall::ErrorThenClose, false);
        return false;
    }
    SLOG(" end");
    return true;
}

bool KeySession::resetAdminPin()
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->scoped(), SAR_USER_NOT_LOGGED_IN, kAppIsNull}))
        return false;
    return adoptBuiltInAdminPin(__FUNCTION__, true);
}

quint64 KeySession::GetPINInfo(quint64 ulPINType, quint64 ulOutType)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull}))
        return 0;
    SLOG(m_traits.pinInfoWord);
    ULONG maxRetry = 0;
    ULONG remainRetry = 0;
    BOOL isDefault = 0;
    const ULONG ret = m_api->getPINInfo(ULONG(ulPINType), &maxRetry, &remainRetry, &isDefault);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_GetPINInfo failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::CloseThenError, false);
        return 0;
    }
    SLOG(" end");
    if (ulOutType == 0)
        return maxRetry;
    if (ulOutType == 1)
        return remainRetry;
    return 0;
}

// ---------------------------------------------------------------------------
// Files. Moved whole, never chunked; rights and login are the token's to
// judge.

bool KeySession::createFile(QString fileName, quint64 ulFileSize, quint64 readRights, quint64 writeRights)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {fileName.isEmpty(), SAR_NAMELENERR, kNameInvalid}))
        return false;
    const QString name = fileStep(FileStep::Create, fileName, fileName, nullptr);
    const ULONG ret = m_api->createFile(name.toUtf8().data(), ULONG(ulFileSize), ULONG(readRights), ULONG(writeRights));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_CreateFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::CloseThenError, false);
        return false;
    }
    SLOG(" end");
    return true;
}

QStringList KeySession::enumFiles()
{
    SLOG(" start");
    m_fileList.clear();
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull}))
        return m_fileList;

    // A failed size query leaves the session alone, unless the class
    // takes it like a failed fill, which closes it whatever the code.
    ULONG size = 0;
    ULONG ret = m_api->enumFiles(nullptr, &size);
    if (ret != SAR_OK && !m_traits.enumFilesSizeFailCloses) {
        SKF_FAILED(ret, " SKF_EnumFiles failed,ret = %d", SkfCall::CloseNever, SkfCall::NoError, false);
        return m_fileList;
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_EnumFiles failed,ret = %d", SkfCall::CloseAlways, SkfCall::CloseThenError, false);
        m_fileList.clear();
        SLOG(" end ");
        return m_fileList;
    }
    QByteArray buffer;
    ret = allocate(buffer, size, 1) ? m_api->enumFiles(buffer.data(), &size) : ULONG(SAR_MEMORYERR);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_EnumFiles failed,ret = %d", SkfCall::CloseAlways, SkfCall::CloseThenError, false);
        m_fileList.clear();
        return m_fileList;
    }
    m_fileList = filesFound(splitNames(buffer, size));
    SLOG(" end");
    return m_fileList;
}

QByteArray KeySession::readFile(QString fileName, quint64 ulOffset, quint64 /*ulSize*/)
{
    // The whole file is read whatever size is asked.
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {fileName.isEmpty(), SAR_NAMELENERR, kNameInvalid}))
        return QByteArray();

    // Attributes are asked under the Latin-1 name, the read under UTF-8.
    const QString name = fileStep(FileStep::Read, fileName, fileName, nullptr);
    FILEATTRIBUTE attributes;
    std::memset(&attributes, 0, sizeof(attributes));
    ULONG ret = m_api->getFileInfo(name.toLatin1().data(), &attributes);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_GetFileInfo failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose, false);
        return QByteArray();
    }
    if (attributes.FileSize == 0) {
        SLOG(" end");
        return QByteArray();
    }

    QByteArray buffer;
    ULONG outLength = attributes.FileSize;
    ret = allocate(buffer, attributes.FileSize, 1)
              ? m_api->readFile(name.toUtf8().data(), ULONG(ulOffset), attributes.FileSize, outBytes(buffer),
                                &outLength)
              : ULONG(SAR_MEMORYERR);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ReadFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose, false);
        return QByteArray();
    }
    QByteArray content = written(buffer, qMin(outLength, attributes.FileSize));
    fileStep(FileStep::ReadDone, fileName, name, &content);
    SLOG(" end");
    return content;
}

bool KeySession::writeFile(QString fileName, quint64 offset, QByteArray data)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {fileName.isEmpty(), SAR_NAMELENERR, kNameInvalid},
                    {data.isEmpty(), SAR_INDATALENERR, kDataInvalid}))
        return false;
    const QString name = fileStep(FileStep::Write, fileName, fileName, &data);
    const ULONG ret = m_api->writeFile(name.toUtf8().data(), ULONG(offset), inBytes(data), ULONG(data.size()));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_WriteFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose, false);
        return false;
    }
    SLOG(" end");
    return true;
}

bool KeySession::deleteFile(QString fileName)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {fileName.isEmpty(), SAR_NAMELENERR, kNameInvalid}))
        return false;
    const QString name = fileStep(FileStep::Delete, fileName, fileName, nullptr);
    const ULONG ret = m_api->deleteFile(name.toUtf8().data());
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_DeleteFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::CloseThenError, false);
        return false;
    }
    SLOG(" end");
    return true;
}

bool KeySession::writeFileV1(QString fileName, QByteArray data)
{
    if (m_traits.replaceLogsSize)
        SLOGF("fileName:%s,size:%d", fileName.toUtf8().constData(), data.size());
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {fileName.isEmpty(), SAR_NAMELENERR, kNameInvalid},
                    {data.isEmpty(), SAR_INDATALENERR, kDataInvalid}))
        return false;

    // Replaced, not rewritten: the new file has exactly the data's length
    // and full rights. Nothing is rolled back if the write fails. Where a
    // failed deletion is passed over, it shows as a failed creation.
    if (m_traits.looseReplace)
        enumFiles();
    const QString tokenName = fileStep(FileStep::Replace, fileName, fileName, nullptr);
    QByteArray name = tokenName.toUtf8();
    if (m_traits.fileProbeWord)
        SLOG(m_traits.fileProbeWord);
    if (m_api->fileExists(name.data()) == SAR_OK) {
        const ULONG ret = m_api->deleteFile(name.data());
        if (ret != SAR_OK && !m_traits.looseReplace) {
            SKF_FAILED(ret, " SKF_DeleteFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose,
                       false);
            return false;
        }
    }

    name = fileStep(FileStep::ReplaceMake, fileName, tokenName, &data).toUtf8();
    const ULONG length = ULONG(data.size());
    ULONG ret = m_api->createFile(name.data(), length, 0xFF, 0xFF);
    if (m_traits.replaceLogsSize)
        SLOGF("fileName:%s,size:%d", fileName.toUtf8().constData(), data.size());
    if (ret != SAR_OK) {
        // That family's tokens answer a full store with a bare failure.
        const bool noRoom = m_traits.readsFullStore && ret == SAR_FAIL && m_package &&
                            m_package->name().compare(QLatin1String("CFCA"), Qt::CaseInsensitive) == 0;
        if (noRoom)
            SKF_FAILED(SAR_NO_ROOM, " SKF_CreateFile failed (CFCA),ret = %d", SkfCall::CloseNever,
                       SkfCall::ErrorThenClose, false);
        else
            SKF_FAILED(ret, " SKF_CreateFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose,
                       false);
        return false;
    }

    ret = m_api->writeFile(name.data(), 0, inBytes(data), length);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_WriteFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose, false);
        return false;
    }
    SLOG(" end");
    return true;
}

bool KeySession::createFileByVerifyPin()
{
    // Only tells the host what the package asks for.
    SLOG(" start");
    const QString setting = m_package ? m_package->createFileByVerifyPin() : QString();
    SLOG(QStringLiteral(" CreateFileByVerifyPin: ") + setting);
    SLOG(" end");
    return setting.toLower() == QLatin1String("true");
}

// ---------------------------------------------------------------------------
// Containers and certificates. Handles are the host's; this class never
// closes one.

Qt::HANDLE KeySession::createContainer(QString containerName)
{
    SLOG(" start");
    const bool shortWords = m_traits.shortContainerGuards;
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, shortWords ? " app is null" : kAppIsNull},
                    {containerName.isEmpty(), SAR_USER_NOT_LOGGED_IN,
                     shortWords ? " containerName is empty." : kContainerNameEmpty}))
        return nullptr;
    if (SKF_REFUSED({enumContainer().contains(containerName), TW_ERR_CONTAINER_EXISTS, " end. containerName is exist."}))
        return nullptr;

    HCONTAINER handle = nullptr;
    const ULONG ret = m_api->createContainer(containerName.toUtf8().data(), &handle);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_CreateContainer failed.ret = %d");
        return nullptr;
    }
    SLOG(" end");
    return handle;
}

bool KeySession::deleteContainer(QString containerName)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {containerName.isEmpty(), SAR_USER_NOT_LOGGED_IN, kContainerNameEmpty}))
        return false;
    const bool exists = enumContainer().contains(containerName);
    if (exists)
        SLOG(" containerName is exist.");
    if (SKF_REFUSED({!exists, TW_ERR_CONTAINER_NOT_EXIST, " end. containerName is not exist."}))
        return false;

    const ULONG ret = m_api->deleteContainer(containerName.toUtf8().data());
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_DeleteContainer failed.ret = %d");
        return false;
    }
    SLOG(" end");
    return true;
}

QStringList KeySession::enumContainer()
{
    // One list for all session classes, emptied at every call: callers get
    // a copy, so sharing it is not seen.
    static QStringList list;
    SLOG(" start");
    list.clear();
    if (m_traits.enumContainerTellsWhy) {
        if (!dev)
            SLOG(kDevIsNull);
        if (!m_api->bound())
            SLOG(kKeyDriverIsNull);
    }
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull}))
        return list;

    // Only the fill call tests for a removed device.
    ULONG size = 0;
    ULONG ret = m_api->enumContainer(nullptr, &size);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_EnumContainer failed.ret = %d", SkfCall::CloseNever);
        return list;
    }
    QByteArray buffer;
    ret = allocate(buffer, size, 1) ? m_api->enumContainer(buffer.data(), &size) : ULONG(SAR_MEMORYERR);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_EnumContainer failed.ret = %d");
        return list;
    }
    list = splitNames(buffer, size);
    SLOG(" end");
    return list;
}

Qt::HANDLE KeySession::openContainer(QString containerName)
{
    SLOG(" start");
    // No look-up first: the library tells a missing container.
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {containerName.isEmpty(), SAR_USER_NOT_LOGGED_IN, kContainerNameEmpty}))
        return nullptr;
    HCONTAINER handle = nullptr;
    const ULONG ret = m_api->openContainer(containerName.toUtf8().data(), &handle);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_OpenContainer failed.ret = %d");
        return nullptr;
    }
    SLOG(" end");
    return handle;
}

void KeySession::closeContainer(Qt::HANDLE container)
{
    // KeyObjectSKF leaves handles open until the application closes.
    if (!m_traits.closesContainers)
        return;
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull}))
        return;
    // Unlike the other container operations, no last error here.
    if (!container) {
        SLOG(kContainerIsNull);
        return;
    }
    SLOG(" SKF_CloseContainer");
    m_api->closeContainer(container);
    SLOG(" end");
}

int KeySession::getContainerType(Qt::HANDLE container)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull}))
        return 0;
    ULONG type = 0;
    const ULONG ret = m_api->getContainerType(container, &type);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_GetContainerType failed.ret = %d");
        return 0;
    }
    SLOG(" end");
    return int(type);
}

bool KeySession::ImportCertificate(Qt::HANDLE container, bool signFlag, QByteArray cert)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull}))
        return false;
    // An empty certificate is the library's to refuse.
    const ULONG ret = m_api->importCertificate(container, signFlag ? TRUE : FALSE, inBytes(cert), ULONG(cert.size()));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ImportCertificate failed.ret = %d");
        return false;
    }
    SLOG(" end");
    return true;
}

QByteArray KeySession::exportCertificate(Qt::HANDLE container, bool signFlag)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull}))
        return QByteArray();
    ULONG length = 0;
    ULONG ret = m_api->exportCertificate(container, signFlag ? TRUE : FALSE, nullptr, &length);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ExportCertificate failed.ret = %d");
        return QByteArray();
    }
    QByteArray buffer;
    ret = allocate(buffer, length, 0)
              ? m_api->exportCertificate(container, signFlag ? TRUE : FALSE, outBytes(buffer), &length)
              : ULONG(SAR_MEMORYERR);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ExportCertificate failed.ret = %d");
        return QByteArray();
    }
    const QByteArray cert = written(buffer, length);
    if (m_traits.exportLogsCertificate)
        SLOG(QStringLiteral(" data: ") + QString::fromLatin1(cert.toBase64()));
    SLOG(" end");
    return cert;
}

QStringList KeySession::exportAllCertificate(bool signFlag)
{
    // One list for all session classes, emptied at every call: callers get
    // a copy, so sharing it is not seen.
    static QStringList certLst;
    SLOG(" start");
    certLst.clear();
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull}))
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
    SLOG(" end");
    return certLst;
}

// ---------------------------------------------------------------------------
// Keys, signatures, digests and ciphers. Every byte goes to the token and
// back as it stands; the session only checks, sizes buffers and reports.

QByteArray KeySession::genRSAKeyPair(Qt::HANDLE container, quint64 algId)
{
    SLOG(" start");
    // Failures give an empty array that is not null.
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull}))
        return QByteArray("");

    SLOG(" SKF_GenRSAKeyPair");
    RSAPUBLICKEYBLOB blob;
    std::memset(&blob, 0, sizeof(blob));
    // algId carries the key length in bits, which is what the token takes.
    ULONG blobLength = SKF_RSAPUBLICKEYBLOB_SIZE;
    const ULONG ret = m_api->genRSAKeyPair(container, ULONG(algId), &blob, &blobLength);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_GenRSAKeyPair failed.ret = %d");
        SLOG(" end.");
        return QByteArray("");
    }
    SLOG(" end.");
    return QByteArray(reinterpret_cast<const char *>(&blob), SKF_RSAPUBLICKEYBLOB_SIZE);
}

bool KeySession::importRSAKeyPair(Qt::HANDLE container, quint64 symAlgId, QByteArray wrappedKey,
                                  QByteArray encryptedData)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull},
                    {wrappedKey.isEmpty() || encryptedData.isEmpty(), SAR_INDATALENERR, nullptr}))
        return false;
    if (!beforeRsaKeyPairImport())
        return false;

    SLOG(" SKF_ImportRSAKeyPair");
    const ULONG ret = m_api->importRSAKeyPair(container, ULONG(symAlgId), inBytes(wrappedKey), ULONG(wrappedKey.size()),
                                              inBytes(encryptedData), ULONG(encryptedData.size()));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ImportRSAKeyPair failed.ret = %d");
        SLOG(" end.");
        return false;
    }
    SLOG(" end");
    return true;
}

QByteArray KeySession::rsaSignData(Qt::HANDLE container, QByteArray data)
{
    SLOG(" start");
    // Empty data logs the container text too: kept as hosts know it.
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull},
                    {data.isEmpty(), SAR_INDATALENERR, kContainerIsNull}))
        return QByteArray();

    SLOG(" SKF_rsaSignData");
    ULONG length = 0;
    ULONG ret = m_api->rsaSignData(container, inBytes(data), ULONG(data.size()), nullptr, &length);
    QByteArray buffer;
    if (ret == SAR_OK) {
        ret = SAR_MEMORYERR;
        if (allocate(buffer, length, 1))
            ret = m_api->rsaSignData(container, inBytes(data), ULONG(data.size()), outBytes(buffer), &length);
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " pSKF_RSASignData failed.ret = %d");
        SLOG(" end");
        return QByteArray();
    }
    SLOG(" end");
    return written(buffer, length);
}

bool KeySession::rsaVerify(QByteArray pubkeyBlob, QByteArray data, QByteArray signature)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->devReady(), SAR_USER_NOT_LOGGED_IN, kDevIsNull},
                    {pubkeyBlob.isEmpty() || data.isEmpty() || signature.isEmpty(), SAR_INDATALENERR, kVerifyInvalid}))
        return false;

    SLOG(" SKF_pSKF_RSASignData");
    SLOG(QStringLiteral(" dataLen: ") + QString::number(data.size()));
    SLOG(QStringLiteral(" signatureLen: ") + QString::number(signature.size()));
    QByteArray blob = padded(pubkeyBlob, SKF_RSAPUBLICKEYBLOB_SIZE);
    const ULONG ret = m_api->rsaVerify(reinterpret_cast<RSAPUBLICKEYBLOB *>(inBytes(blob)), ULONG(pubkeyBlob.size()),
                                       inBytes(data), ULONG(data.size()), inBytes(signature), ULONG(signature.size()));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " pSKF_RSAVerify failed.ret = %d");
        SLOG(" end");
        return false;
    }
    SLOG(" end");
    return true;
}

QByteArray KeySession::genECCKeyPair(Qt::HANDLE container, quint64 algId)
{
    SLOG(" start");
    // Failures give an empty array that is not null.
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull}))
        return QByteArray("");

    SLOG(" SKF_GenECCKeyPair");
    ECCPUBLICKEYBLOB blob;
    std::memset(&blob, 0, sizeof(blob));
    ULONG blobLength = SKF_ECCPUBLICKEYBLOB_SIZE;
    const ULONG ret = m_api->genECCKeyPair(container, ULONG(algId), &blob, &blobLength);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_GenECCKeyPair failed.ret = %d");
        SLOG(" end.");
        return QByteArray("");
    }
    SLOG(" end.");
    return QByteArray(reinterpret_cast<const char *>(&blob), SKF_ECCPUBLICKEYBLOB_SIZE);
}

bool KeySession::importECCKeyPair(Qt::HANDLE container, QByteArray envelopedKeyBlob)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull},
                    {envelopedKeyBlob.isEmpty(), SAR_INDATALENERR, nullptr}))
        return false;

    SLOG(" SKF_ImportECCKeyPair");
    // The call has no length: a short blob reaches the token zero-padded.
    QByteArray blob = envelope(envelopedKeyBlob);
    const ULONG ret = m_api->importECCKeyPair(container, reinterpret_cast<PENVELOPEDKEYBLOB>(inBytes(blob)),
                                              ULONG(envelopedKeyBlob.size()));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ImportECCKeyPair failed.ret = %d");
        SLOG(" end.");
        return false;
    }
    SLOG(" end.");
    return true;
}

QByteArray KeySession::eccSignData(Qt::HANDLE container, QByteArray data)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull},
                    {data.isEmpty(), SAR_INDATALENERR, nullptr}))
        return QByteArray();

    SLOG(" SKF_ECCSignData");
    ECCSIGNATUREBLOB blob;
    std::memset(&blob, 0, sizeof(blob));
    ULONG blobLength = SKF_ECCSIGNATUREBLOB_SIZE;
    const ULONG ret = m_api->eccSignData(container, inBytes(data), ULONG(data.size()), &blob, &blobLength);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ECCSignData failed.ret = %d");
        SLOG(" end");
        return QByteArray();
    }
    SLOG(" end");
    return QByteArray(reinterpret_cast<const char *>(&blob), SKF_ECCSIGNATUREBLOB_SIZE);
}

bool KeySession::eccVerify(QByteArray pubkeyBlob, QByteArray data, QByteArray signature)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->devReady(), SAR_USER_NOT_LOGGED_IN, kDevIsNull},
                    {pubkeyBlob.isEmpty() || data.isEmpty() || signature.isEmpty(), SAR_INDATALENERR, kVerifyInvalid}))
        return false;

    SLOG(" SKF_ECCVerify");
    // Whole structures only: a compact signature reaches the token as a
    // zero-padded blob, never as a read past the host's bytes.
    QByteArray key = padded(pubkeyBlob, SKF_ECCPUBLICKEYBLOB_SIZE);
    QByteArray blob = padded(signature, SKF_ECCSIGNATUREBLOB_SIZE);
    const ULONG ret = m_api->eccVerify(reinterpret_cast<ECCPUBLICKEYBLOB *>(inBytes(key)), ULONG(pubkeyBlob.size()),
                                       inBytes(data), ULONG(data.size()),
                                       reinterpret_cast<PECCSIGNATUREBLOB>(inBytes(blob)), ULONG(signature.size()));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ECCVerify failed.ret = %d");
        SLOG(" end");
        return false;
    }
    SLOG(" end");
    return true;
}

Qt::HANDLE KeySession::importSessionKey(Qt::HANDLE container, quint64 ulAlgID, QByteArray wrapedData,
                                        quint64 wrapedDataLen)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->devReady(), SAR_USER_NOT_LOGGED_IN, kDevIsNull},
                    {!container, SAR_INDATALENERR, kContainerIsNull}))
        return nullptr;

    SLOG(" SKF_ImportSessionKey");
    // The token gets the declared length, not the array's.
    const ULONG length = ULONG(wrapedDataLen);
    QByteArray wrapped;
    HANDLE hKey = nullptr;
    ULONG ret = SAR_MEMORYERR;
    if (declared(wrapedData, length, &wrapped))
        ret = m_api->importSessionKey(container, ULONG(ulAlgID), inBytes(wrapped), length, &hKey);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ImportSessionKey failded.ret = %d.");
        SLOG(" end");
        return nullptr;
    }
    SLOG(" end");
    return hKey;
}

bool KeySession::encryptInit(Qt::HANDLE hKey, QByteArray encryptParamData)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->bound(), SAR_USER_NOT_LOGGED_IN, kKeyDriverIsNull},
                    {!hKey, SAR_INVALIDHANDLEERR, kHKeyIsNull},
                    {encryptParamData.isEmpty(), SAR_INDATALENERR, " end. encryptParamData is empty"}))
        return false;

    SLOG(" SKF_EncryptInit");
    BLOCKCIPHERPARAM param = cipherParam(encryptParamData);
    const ULONG ret = m_api->encryptInit(hKey, &param, SKF_BLOCKCIPHERPARAM_SIZE);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_EncryptInit failded.ret = %d.");
        SLOG(" end");
        return false;
    }
    SLOG(" end");
    return true;
}

QByteArray KeySession::encrypt(Qt::HANDLE hKey, QByteArray data, quint64 /*dataLen*/)
{
    // The array's length is what the token gets; dataLen stays in the
    // interface only.
    SLOG(" start");
    if (SKF_REFUSED({!m_api->bound(), SAR_USER_NOT_LOGGED_IN, kKeyDriverIsNull},
                    {!m_api->handleUsable(hKey), SAR_INVALIDHANDLEERR, kHKeyIsNull},
                    {data.isEmpty(), SAR_INDATALENERR, " end. data is empty"}))
        return QByteArray();

    ULONG ulEncryptedLen = 0;
    SLOG(" SKF_Encrypt A");
    ULONG ret = m_api->encrypt(hKey, inBytes(data), ULONG(data.size()), nullptr, &ulEncryptedLen);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Encrypt failded.ret = %d.");
        return QByteArray();
    }
    SLOG(QStringLiteral(" ulEncryptedLen: ") + QString::number(ulEncryptedLen));

    QByteArray buffer;
    ret = SAR_MEMORYERR;
    if (allocate(buffer, ulEncryptedLen, 1)) {
        SLOG(" SKF_Encrypt B");
        ret = m_api->encrypt(hKey, inBytes(data), ULONG(data.size()), outBytes(buffer), &ulEncryptedLen);
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Encrypt failded.ret = %d.");
        return QByteArray();
    }
    const QByteArray encrypted = written(buffer, ulEncryptedLen);
    SLOG(" end");
    return encrypted;
}

bool KeySession::decryptInit(Qt::HANDLE hKey, QByteArray decryptParamData)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->bound(), SAR_USER_NOT_LOGGED_IN, kKeyDriverIsNull},
                    {!hKey, SAR_INVALIDHANDLEERR, kHKeyIsNull},
                    {decryptParamData.isEmpty(), SAR_INDATALENERR, " end. decryptParamData is empty"}))
        return false;

    SLOG(" SKF_DecryptInit");
    BLOCKCIPHERPARAM param = cipherParam(decryptParamData);
    const ULONG ret = m_api->decryptInit(hKey, &param, SKF_BLOCKCIPHERPARAM_SIZE);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_DecryptInit failded.ret = %d.");
        SLOG(" end");
        return false;
    }
    SLOG(" end");
    return true;
}

QByteArray KeySession::decrypt(Qt::HANDLE hKey, QByteArray encryptedData, quint64 /*encryptedDataLen*/)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->bound(), SAR_USER_NOT_LOGGED_IN, kKeyDriverIsNull},
                    {!hKey, SAR_INVALIDHANDLEERR, kHKeyIsNull},
                    {encryptedData.isEmpty(), SAR_INDATALENERR, " end. data is empty"}))
        return QByteArray();

    // The failure words of the two calls are the ones hosts have always
    // seen, whatever they name.
    ULONG ulDecryptedLen = 0;
    SLOG(" SKF_Decrypt A");
    ULONG ret = m_api->decrypt(hKey, inBytes(encryptedData), ULONG(encryptedData.size()), nullptr, &ulDecryptedLen);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Encrypt failded.ret = %d.");
        return QByteArray();
    }
    SLOG(QStringLiteral(" ulDecryptedLen: ") + QString::number(ulDecryptedLen));

    QByteArray buffer;
    ret = SAR_MEMORYERR;
    if (allocate(buffer, ulDecryptedLen, 1)) {
        SLOG(" SKF_Decrypt B");
        ret = m_api->decrypt(hKey, inBytes(encryptedData), ULONG(encryptedData.size()), outBytes(buffer),
                             &ulDecryptedLen);
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Digest failded.ret = %d.");
        return QByteArray();
    }
    const QByteArray plain = written(buffer, ulDecryptedLen);
    SLOG(" end");
    return plain;
}

QByteArray KeySession::rsaSimpleSign(Qt::HANDLE /*container*/, QByteArray /*data*/, quint64 /*digestAlgID*/)
{
    // Offered by name only: RSA signing goes through rsaSignData.
    SLOG(" start");
    SLOG(" end");
    return QByteArray();
}

QByteArray KeySession::eccSimpleSign(Qt::HANDLE container, QByteArray data, bool usedPubkeyDigest)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, kAppIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull}))
        return QByteArray();

    // Through the virtual operations, so that a subclass's overrides count.
    QByteArray pubkey;
    if (usedPubkeyDigest) {
        pubkey = exportPublicKey(container, true);
        if (pubkey.isEmpty()) {
            SLOG("end.exportPublicKey failed.");
            return QByteArray();
        }
    }
    Qt::HANDLE hash = digestInit(SGD_SM3, pubkey, QString::fromLatin1(kDefaultUserId));
    if (!hash) {
        SLOG("end. digestInit failed.");
        return QByteArray();
    }
    const QByteArray hashValue = digest(hash, data);
    if (hashValue.isEmpty()) {
        SLOG("end. digest failed.");
        return QByteArray();
    }
    const QByteArray signature = eccSignData(container, hashValue);

    // r and s stand right-aligned in their 64-byte fields. A failed
    // signature replaces with nothing and leaves 32 zero bytes: callers
    // tell failure by the length, with the token's code as last error.
    QByteArray compact(64, '\0');
    compact.replace(0, 32, signature.mid(32, 32));
    compact.replace(32, 32, signature.right(32));
    SLOG(" end.");
    return compact;
}

bool KeySession::eccSimpleVerify(Qt::HANDLE container, QByteArray data, QByteArray signature,
                                   bool usedPubkeyDigest)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->devReady(), SAR_USER_NOT_LOGGED_IN, kDevIsNull},
                    {!container, SAR_INVALIDHANDLEERR, " end . container is null"}))
        return false;

    QByteArray pubkey;
    if (usedPubkeyDigest) {
        pubkey = exportPublicKey(container, true);
        if (pubkey.isEmpty()) {
            SLOG("end.exportPublicKey failed.");
            return false;
        }
    }
    Qt::HANDLE hash = digestInit(SGD_SM3, pubkey, QString::fromLatin1(kDefaultUserId));
    if (!hash) {
        SLOG("end.digestInit failed.");
        return false;
    }
    const QByteArray hashValue = digest(hash, data);
    if (hashValue.isEmpty()) {
        SLOG("end.digest failed.");
        return false;
    }

    // Compact r||s back into the token's blob; a short signature fills
    // only what it has.
    QByteArray blob(SKF_ECCSIGNATUREBLOB_SIZE, '\0');
    place(blob, 32, signature.left(32), 32);
    place(blob, 96, signature.right(32), 32);
    SLOG(" end");
    return eccVerify(pubkey, hashValue, blob);
}

Qt::HANDLE KeySession::digestInit(quint64 ulAlgID, QByteArray pubkeyBlob, QString id)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->devReady(), SAR_USER_NOT_LOGGED_IN, kDevIsNull}))
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
    const ULONG keyLength = pubkey ? SKF_ECCPUBLICKEYBLOB_SIZE : 0;
    const ULONG ret =
        m_api->digestInit(ULONG(ulAlgID), pubkey, keyLength, inBytes(idBytes), ULONG(idBytes.size()), &hash);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_DigestInit failded.ret = %d.");
        SLOG(" end");
        return nullptr;
    }
    m_AlgID = ulAlgID;
    SLOG(QStringLiteral(" m_AlgID: ") + QString::number(m_AlgID));
    return hash;
}

QByteArray KeySession::digest(Qt::HANDLE hash, QByteArray data)
{
    SLOG(" start");
    if (SKF_REFUSED({!m_api->handleUsable(hash) || !m_api->bound(), SAR_USER_NOT_LOGGED_IN, " end . hash is null"},
                    {data.isEmpty(), SAR_INDATALENERR, " end.parameter invalidate"}))
        return QByteArray();

    ULONG ulHashLen = 0;
    ULONG ret = m_api->digest(hash, inBytes(data), ULONG(data.size()), nullptr, &ulHashLen);
    QByteArray buffer;
    if (ret == SAR_OK) {
        SLOG(QStringLiteral(" ulHashLen(1): ") + QString::number(ulHashLen));
        SLOG(QStringLiteral(" m_AlgID: ") + QString::number(m_AlgID));
        // The algorithm, not the token's report, sizes a known hash.
        ulHashLen = hashSize(m_AlgID, ulHashLen);
        ret = SAR_MEMORYERR;
        if (allocate(buffer, ulHashLen, 1)) {
            SLOG(" 1");
            ret = m_api->digest(hash, inBytes(data), ULONG(data.size()), outBytes(buffer), &ulHashLen);
        }
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Digest failded.ret = %d.");
        return QByteArray();
    }
    SLOG(QStringLiteral(" ulHashLen(2): ") + QString::number(ulHashLen));
    const QByteArray hashValue = written(buffer, hashSize(m_AlgID, ulHashLen));
    SLOG(" 2");
    SLOG(" end");
    return hashValue;
}

QByteArray KeySession::digestV1(Qt::HANDLE hash, QByteArray data)
{
    SLOG(" start");
    const QByteArray hashValue = digest(hash, data);
    SLOG(" end");
    return hashValue;
}

// Multi-part hashing is not offered: hosts use digest.
bool KeySession::digestUpdate(Qt::HANDLE /*hash*/, QByteArray /*data*/)
{
    SLOG(" start");
    SLOG(" end");
    return false;
}

QByteArray KeySession::digestFinal(Qt::HANDLE /*hash*/)
{
    SLOG(" start");
    SLOG(" end");
    return QByteArray();
}

QByteArray KeySession::exportPublicKey(Qt::HANDLE container, bool bSignFlag)
{
    SLOG(" start");
    // A null container records SAR_INDATALENERR here, unlike its siblings.
    if (SKF_REFUSED({!m_api->devReady(), SAR_USER_NOT_LOGGED_IN, kDevIsNull},
                    {!container, SAR_INDATALENERR, kContainerIsNull}))
        return QByteArray();

    SLOG(" SKF_ExportPublicKey");
    ULONG length = 0;
    ULONG ret = m_api->exportPublicKey(container, bSignFlag, nullptr, &length);
    QByteArray buffer;
    if (ret == SAR_OK) {
        ret = SAR_MEMORYERR;
        if (allocate(buffer, length, 1))
            ret = m_api->exportPublicKey(container, bSignFlag, outBytes(buffer), &length);
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ExportPublicKey failed.ret = %d");
        SLOG(" end");
        return QByteArray();
    }
    SLOG(" end");
    return written(buffer, length);
}

void KeySession::closeHandle(Qt::HANDLE handle)
{
    SLOG(" start");
    if (!m_api->bound() || !handle) {
        SLOG(" end. keyDriver = null or handle = null");
        return;
    }
    SLOG(" SKF_CloseHandle");
    // A handle the token refuses is no failure of the host's.
    m_api->closeHandle(handle);
    SLOG(" end");
}

QByteArray KeySession::digestRsaByPubkey(QByteArray pbtData)
{
    SLOG(" start");
    std::printf("%s", words("[KeyObjectSKF::SignDataRsaWithDigest] call in \n").toUtf8().constData());
    // The device handle goes to the token as it is; only a missing
    // function table is stopped here.
    if (SKF_REFUSED({!m_api->bound(), SAR_USER_NOT_LOGGED_IN, kKeyDriverIsNull}))
        return QByteArray();

    QByteArray hashValue(256, '\0');
    ULONG ulHashLen = 256;
    HANDLE hash = nullptr;
    ULONG ret = m_api->digestInit(SGD_SHA1, nullptr, 0, nullptr, 0, &hash);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_DigestInit failded.ret = %d.");
        SLOG(" end");
        return QByteArray();
    }
    ret = m_api->digest(hash, inBytes(pbtData), ULONG(pbtData.size()), outBytes(hashValue), &ulHashLen);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Digest failded.ret = %d.");
        SLOG(" end");
        return QByteArray();
    }
    // The DigestInfo (SHA-1's prefix and the hash) is not handed out: hosts
    // rely on the empty result, and the hash object stays with the token.
    SLOG(" end");
    return QByteArray();
}

QByteArray KeySession::eccExportSessionKey(Qt::HANDLE container, quint64 ulAlgID, QByteArray pubkeyBlob,
                                           Qt::HANDLE *phSessionKey)
{
    const bool plain = m_traits.plainSessionKeyExport;
    SLOG(plain ? " start" : "start");
    if (SKF_REFUSED({!m_api->devReady(), SAR_USER_NOT_LOGGED_IN,
                     m_traits.sessionKeyExportAppGuard ? kAppIsNull : kDevIsNull},
                    {!container, SAR_INVALIDHANDLEERR, kContainerIsNull},
                    {pubkeyBlob.isEmpty(), SAR_INVALIDPARAMERR, " end"}))
        return QByteArray();

    // An ECCCIPHERBLOB with room for a 33-byte cipher.
    QByteArray cipherBlob(SKF_ECCCIPHERBLOB_BUFFER_SIZE, '\0');
    if (!plain)
        SLOGF_ERROR(" pstEccCipherBlob = %s", cipherBlob.toBase64().constData());
    if (SKF_REFUSED({!m_api->has(TokenApi::EccExportSessionKey), SAR_NOTSUPPORTYETERR, nullptr}))
        return QByteArray();
    QByteArray key = padded(pubkeyBlob, SKF_ECCPUBLICKEYBLOB_SIZE);
    ULONG cipherLength = SKF_ECCCIPHERBLOB_BUFFER_SIZE;
    const ULONG ret = m_api->eccExportSessionKey(container, ULONG(ulAlgID),
                                                 reinterpret_cast<ECCPUBLICKEYBLOB *>(inBytes(key)),
                                                 ULONG(pubkeyBlob.size()),
                                                 reinterpret_cast<PECCCIPHERBLOB>(outBytes(cipherBlob)),
                                                 &cipherLength, phSessionKey);
    if (ret != SAR_OK) {
        // This operation never closes the session, removed device or not.
        SKF_FAILED(ret, " pSKF_ECCExportSessionKey failed.ret = %d", SkfCall::CloseNever);
        SLOG(" end.");
        return QByteArray();
    }
    SLOG(" end.");
    return cipherBlob;
}
