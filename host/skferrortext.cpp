#include "skferrortext.h"

#include "skf/skfapi.h"

namespace {

struct CodeText
{
    uint code;
    const char *name;
    const char *text;
};

// The names as the standard and the library declare them.
#define ROW(code, text) {code, #code, text}

const CodeText kTexts[] = {
    ROW(SAR_OK, "success"),
    ROW(SAR_FAIL, "failed"),
    ROW(SAR_UNKNOWNERR, "unexpected error"),
    ROW(SAR_NOTSUPPORTYETERR, "operation not supported"),
    ROW(SAR_FILEERR, "file operation error"),
    ROW(SAR_INVALIDHANDLEERR, "invalid handle"),
    ROW(SAR_INVALIDPARAMERR, "invalid parameter"),
    ROW(SAR_READFILEERR, "file read error"),
    ROW(SAR_WRITEFILEERR, "file write error"),
    ROW(SAR_NAMELENERR, "name length error"),
    ROW(SAR_KEYUSAGEERR, "wrong key usage"),
    ROW(SAR_MODULUSLENERR, "modulus length error"),
    ROW(SAR_NOTINITIALIZEERR, "not initialized"),
    ROW(SAR_OBJERR, "object error"),
    ROW(SAR_MEMORYERR, "memory error"),
    ROW(SAR_TIMEOUTERR, "timeout"),
    ROW(SAR_INDATALENERR, "input data length error"),
    ROW(SAR_INDATAERR, "input data error"),
    ROW(SAR_GENRANDERR, "random number generation error"),
    ROW(SAR_HASHOBJERR, "hash object error"),
    ROW(SAR_HASHERR, "hash error"),
    ROW(SAR_GENRSAKEYERR, "RSA key generation error"),
    ROW(SAR_RSAMODULUSLENERR, "RSA modulus length error"),
    ROW(SAR_CSPIMPRTPUBKEYERR, "public key import error"),
    ROW(SAR_RSAENCERR, "RSA encryption error"),
    ROW(SAR_RSADECERR, "RSA decryption error"),
    ROW(SAR_HASHNOTEQUALERR, "hash values differ"),
    ROW(SAR_KEYNOTFOUNTERR, "key not found"),
    ROW(SAR_CERTNOTFOUNTERR, "certificate not found"),
    ROW(SAR_NOTEXPORTERR, "object not exportable"),
    ROW(SAR_DECRYPTPADERR, "decryption padding error"),
    ROW(SAR_MACLENERR, "MAC length error"),
    ROW(SAR_BUFFER_TOO_SMALL, "buffer too small"),
    ROW(SAR_KEYINFOTYPEERR, "wrong key type"),
    ROW(SAR_NOT_EVENTERR, "no event"),
    ROW(SAR_DEVICE_REMOVED, "device removed"),
    ROW(SAR_PIN_INCORRECT, "PIN incorrect"),
    ROW(SAR_PIN_LOCKED, "PIN locked"),
    ROW(SAR_PIN_INVALID, "PIN invalid"),
    ROW(SAR_PIN_LEN_RANGE, "PIN length out of range"),
    ROW(SAR_USER_ALREADY_LOGGED_IN, "user already logged in"),
    ROW(SAR_USER_PIN_NOT_INITIALIZED, "user PIN not initialized"),
    ROW(SAR_USER_TYPE_INVALID, "invalid PIN type"),
    ROW(SAR_APPLICATION_NAME_INVALID, "invalid application name"),
    ROW(SAR_APPLICATION_EXISTS, "application already exists"),
    ROW(SAR_USER_NOT_LOGGED_IN, "user not logged in"),
    ROW(SAR_APPLICATION_NOT_EXISTS, "application does not exist"),
    ROW(SAR_FILE_ALREADY_EXIST, "file already exists"),
    ROW(SAR_NO_ROOM, "not enough room on the key"),
    ROW(SAR_FILE_NOT_EXIST, "file does not exist"),
    ROW(SAR_REACH_MAX_CONTAINER_COUNT, "maximum number of containers reached"),
    ROW(TW_ERR_SECURITY_STATE, "security state not satisfied"),
    ROW(TW_ERR_OFFSET_BEYOND_FILE, "offset beyond the end of the file"),
    ROW(TW_ERR_CONTAINER_NOT_EXIST, "container does not exist"),
    ROW(TW_ERR_CONTAINER_EXISTS, "container already exists"),
    ROW(TW_ERR_DEVAUTH_LOCKED, "device authentication locked"),
    ROW(TW_ERR_ECC_ENCRYPT, "ECC encryption error"),
    ROW(TW_ERR_OLD_PIN_LEN, "PIN must have 6 to 16 characters"),
    ROW(TW_ERR_NEW_PIN_LEN, "new PIN must have 6 to 16 characters"),
};

#undef ROW

const CodeText *find(uint code)
{
    for (const CodeText &entry : kTexts) {
        if (entry.code == code)
            return &entry;
    }
    return nullptr;
}

QString hex(uint code)
{
    return QStringLiteral("0x") + QStringLiteral("%1").arg(code, 8, 16, QLatin1Char('0')).toUpper();
}

} // namespace

QString SkfErrorText::text(uint code)
{
    const CodeText *entry = find(code);
    return entry ? QString::fromLatin1(entry->text) : QStringLiteral("unknown error");
}

QString SkfErrorText::name(uint code)
{
    const CodeText *entry = find(code);
    return entry ? QString::fromLatin1(entry->name) : QString();
}

QString SkfErrorText::line(uint code)
{
    const QString symbol = name(code);
    return QStringLiteral("error %1%2: %3").arg(hex(code), symbol.isEmpty() ? QString() : QLatin1Char(' ') + symbol, text(code));
}

QJsonObject SkfErrorText::json(uint code)
{
    if (code == 0)
        return QJsonObject();
    return QJsonObject{{QStringLiteral("code"), qint64(code)},
                       {QStringLiteral("hex"), hex(code)},
                       {QStringLiteral("name"), name(code)},
                       {QStringLiteral("text"), text(code)}};
}
