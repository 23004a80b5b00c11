// KeyObjectSKF: digests, RSA and SM2 keys and signatures, session keys and
// ciphers, electronic seal. Every byte goes to the token and back as it
// stands; the session only checks, sizes buffers and reports.
#include "keyobjectskf.h"

#include <QtGlobal>

#include <cstdio>
#include <cstring>

#include "frame/twlog.h"
#include "skf/keydriverskf.h"

namespace {

// The user id that the compact SM2 operations always hash with.
const char kCryptoDefaultUserId[] = "1234567812345678";

// PKCS#1 v1.5 DigestInfo prefix of SHA-1.
const char kCryptoSha1DigestInfoPrefix[] = "\x30\x21\x30\x09\x06\x05\x2B\x0E\x03\x02\x1A\x05\x00\x04\x14";
const int kCryptoSha1DigestInfoPrefixSize = 15;

// Largest buffer the session builds for a size that the token or the host
// declared; anything above is a broken size, not data.
const quint64 kCryptoMaxBuffer = quint64(1) << 28;

const int kCryptoEnvelopedKeyBlobSize = int(sizeof(ENVELOPEDKEYBLOB));

// Input bytes for the library. SKF takes non-const pointers for data it
// only reads.
BYTE *cryptoIn(const QByteArray &data)
{
    return reinterpret_cast<BYTE *>(const_cast<char *>(data.constData()));
}

// `data` when it holds at least `size` bytes, else a copy zero-padded to
// `size`: the library reads a whole structure and must never read past
// what the host gave.
QByteArray cryptoAtLeast(const QByteArray &data, int size)
{
    if (data.size() >= size)
        return data;
    QByteArray padded(size, '\0');
    std::memcpy(padded.data(), data.constData(), size_t(data.size()));
    return padded;
}

// The same for a length the host declared beside its array. False when
// that length is too large to stand for real data.
bool cryptoDeclared(const QByteArray &data, ULONG length, QByteArray *out)
{
    if (length > kCryptoMaxBuffer)
        return false;
    *out = cryptoAtLeast(data, int(length));
    return true;
}

// Output buffer for a size the token reported: one byte more, zeroed.
// False when the size can't be real.
bool cryptoOutBuffer(ULONG reported, QByteArray *out)
{
    if (reported > kCryptoMaxBuffer)
        return false;
    *out = QByteArray(int(reported) + 1, '\0');
    return true;
}

BYTE *cryptoOut(QByteArray &buffer)
{
    return reinterpret_cast<BYTE *>(buffer.data());
}

// The first `length` bytes that the token wrote, never more than the
// buffer holds.
QByteArray cryptoWritten(const QByteArray &buffer, quint64 length)
{
    return buffer.left(int(qMin<quint64>(length, quint64(buffer.size()))));
}

// Hash length by algorithm: the token's report counts only for
// algorithms the session doesn't know.
ULONG cryptoHashSize(quint64 algId, ULONG reported)
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
BLOCKCIPHERPARAM cryptoCipherParam(const QByteArray &data)
{
    BLOCKCIPHERPARAM param;
    std::memset(&param, 0, sizeof(param));
    std::memcpy(&param, data.constData(), size_t(qMin<int>(data.size(), int(sizeof(param)))));
    return param;
}

// Puts up to `room` bytes of `piece` at `pos` of a fixed-size blob.
void cryptoPlace(QByteArray &blob, int pos, const QByteArray &piece, int room)
{
    std::memcpy(blob.data() + pos, piece.constData(), size_t(qMin(piece.size(), room)));
}

} // namespace

bool KeyObjectSKF::epsImportSymmKey(Qt::HANDLE container, quint64 ulKeyIndex, QByteArray szEncData,
                                    quint64 ulEncDataLen, quint64 ulFlags)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . app is null"},
                    {!container, SAR_INVALIDHANDLEERR, " end. container = null"},
                    {keyDriver && !keyDriver->pEPS_ImportSymmKey, SAR_INVALIDHANDLEERR,
                     " end . pEPS_ImportSymmKey is null"}))
        return false;

    TW_LOG(" ESP_ImportSymmKey");
    const ULONG length = ULONG(ulEncDataLen);
    QByteArray encData;
    ULONG ret = SAR_MEMORYERR;
    if (cryptoDeclared(szEncData, length, &encData))
        ret = keyDriver->pEPS_ImportSymmKey(container, ULONG(ulKeyIndex), cryptoIn(encData), length, ULONG(ulFlags));
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
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . app is null"},
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
    if (cryptoOutBuffer(ulOutSize, &buffer)) {
        TW_LOG(" ESP_ReadESealData B");
        ret = keyDriver->pEPS_ReadESealData(app, ULONG(ulKeyIndex), ULONG(ulKeyAlgId), cryptoOut(buffer), &ulOutSize,
                                            ULONG(ulFlags));
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ReadFile failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose, false);
        return QByteArray();
    }
    const QByteArray seal = cryptoWritten(buffer, ulOutSize);
    TW_LOG(" end.");
    return seal;
}

bool KeyObjectSKF::epsWriteESealData(QByteArray szData, quint64 ulDataSize, quint64 ulFlags)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . app is null"},
                    {szData.isEmpty(), SAR_INDATALENERR, " end. szData invalid"},
                    {keyDriver && !keyDriver->pEPS_WriteESealData, SAR_INVALIDHANDLEERR,
                     " end . pEPS_WriteESealData is null"}))
        return false;

    TW_LOG(" ESP_WriteESealData");
    const ULONG size = ULONG(ulDataSize);
    QByteArray data;
    ULONG ret = SAR_MEMORYERR;
    if (cryptoDeclared(szData, size, &data))
        ret = keyDriver->pEPS_WriteESealData(app, cryptoIn(data), size, ULONG(ulFlags));
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " ESP_WriteESealData failed,ret = %d", SkfCall::CloseIfRemoved, SkfCall::ErrorThenClose,
                   false);
        return false;
    }
    TW_LOG(" end.");
    return true;
}

QByteArray KeyObjectSKF::genRSAKeyPair(Qt::HANDLE container, quint64 algId)
{
    TW_LOG(" start");
    // Failures give an empty array that is not null.
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . app is null"},
                    {!container, SAR_INVALIDHANDLEERR, " end. container = null"}))
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
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . app is null"},
                    {!container, SAR_INVALIDHANDLEERR, " end. container = null"},
                    {wrappedKey.isEmpty() || encryptedData.isEmpty(), SAR_INDATALENERR, nullptr}))
        return false;

    TW_LOG(" SKF_ImportRSAKeyPair");
    const ULONG ret = keyDriver->pSKF_ImportRSAKeyPair(container, ULONG(symAlgId), cryptoIn(wrappedKey),
                                                       ULONG(wrappedKey.size()), cryptoIn(encryptedData),
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
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . app is null"},
                    {!container, SAR_INVALIDHANDLEERR, " end. container = null"},
                    {data.isEmpty(), SAR_INDATALENERR, " end. container = null"}))
        return QByteArray();

    TW_LOG(" SKF_rsaSignData");
    ULONG length = 0;
    ULONG ret = keyDriver->pSKF_RSASignData(container, cryptoIn(data), ULONG(data.size()), nullptr, &length);
    QByteArray buffer;
    if (ret == SAR_OK) {
        ret = SAR_MEMORYERR;
        if (cryptoOutBuffer(length, &buffer))
            ret = keyDriver->pSKF_RSASignData(container, cryptoIn(data), ULONG(data.size()), cryptoOut(buffer),
                                              &length);
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " pSKF_RSASignData failed.ret = %d");
        TW_LOG(" end");
        return QByteArray();
    }
    TW_LOG(" end");
    return cryptoWritten(buffer, length);
}

bool KeyObjectSKF::rsaVerify(QByteArray pubkeyBlob, QByteArray data, QByteArray signature)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!dev || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . dev is null"},
                    {pubkeyBlob.isEmpty() || data.isEmpty() || signature.isEmpty(), SAR_INDATALENERR,
                     " start.parameter invalid"}))
        return false;

    TW_LOG(" SKF_pSKF_RSASignData");
    TW_LOG(QStringLiteral(" dataLen: ") + QString::number(data.size()));
    TW_LOG(QStringLiteral(" signatureLen: ") + QString::number(signature.size()));
    QByteArray blob = cryptoAtLeast(pubkeyBlob, SKF_RSAPUBLICKEYBLOB_SIZE);
    const ULONG ret = keyDriver->pSKF_RSAVerify(dev, reinterpret_cast<RSAPUBLICKEYBLOB *>(cryptoIn(blob)),
                                                cryptoIn(data), ULONG(data.size()), cryptoIn(signature),
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
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . app is null"},
                    {!container, SAR_INVALIDHANDLEERR, " end. container = null"}))
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
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . app is null"},
                    {!container, SAR_INVALIDHANDLEERR, " end. container = null"},
                    {envelopedKeyBlob.isEmpty(), SAR_INDATALENERR, nullptr}))
        return false;

    TW_LOG(" SKF_ImportECCKeyPair");
    // The call has no length: a short blob reaches the token zero-padded.
    QByteArray blob = cryptoAtLeast(envelopedKeyBlob, kCryptoEnvelopedKeyBlobSize);
    const ULONG ret = keyDriver->pSKF_ImportECCKeyPair(container, reinterpret_cast<PENVELOPEDKEYBLOB>(cryptoIn(blob)));
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
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . app is null"},
                    {!container, SAR_INVALIDHANDLEERR, " end. container = null"},
                    {data.isEmpty(), SAR_INDATALENERR, nullptr}))
        return QByteArray();

    TW_LOG(" SKF_ECCSignData");
    ECCSIGNATUREBLOB blob;
    std::memset(&blob, 0, sizeof(blob));
    const ULONG ret = keyDriver->pSKF_ECCSignData(container, cryptoIn(data), ULONG(data.size()), &blob);
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
    if (SKF_REFUSED({!dev || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . dev is null"},
                    {pubkeyBlob.isEmpty() || data.isEmpty() || signature.isEmpty(), SAR_INDATALENERR,
                     " start.parameter invalid"}))
        return false;

    TW_LOG(" SKF_ECCVerify");
    // Whole structures only: a compact signature reaches the token as a
    // zero-padded blob, never as a read past the host's bytes.
    QByteArray key = cryptoAtLeast(pubkeyBlob, SKF_ECCPUBLICKEYBLOB_SIZE);
    QByteArray blob = cryptoAtLeast(signature, SKF_ECCSIGNATUREBLOB_SIZE);
    const ULONG ret = keyDriver->pSKF_ECCVerify(dev, reinterpret_cast<ECCPUBLICKEYBLOB *>(cryptoIn(key)),
                                                cryptoIn(data), ULONG(data.size()),
                                                reinterpret_cast<PECCSIGNATUREBLOB>(cryptoIn(blob)));
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
    if (SKF_REFUSED({!dev || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . dev is null"},
                    {!container, SAR_INDATALENERR, " end. container = null"}))
        return nullptr;

    TW_LOG(" SKF_ImportSessionKey");
    // The token gets the declared length, not the array's.
    const ULONG length = ULONG(wrapedDataLen);
    QByteArray wrapped;
    HANDLE hKey = nullptr;
    ULONG ret = SAR_MEMORYERR;
    if (cryptoDeclared(wrapedData, length, &wrapped))
        ret = keyDriver->pSKF_ImportSessionKey(container, ULONG(ulAlgID), cryptoIn(wrapped), length, &hKey);
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
    if (SKF_REFUSED({!keyDriver, SAR_USER_NOT_LOGGED_IN, " end . keyDriver is null"},
                    {!hKey, SAR_INVALIDHANDLEERR, " end . hKey is null"},
                    {encryptParamData.isEmpty(), SAR_INDATALENERR, " end. encryptParamData is empty"}))
        return false;

    TW_LOG(" SKF_EncryptInit");
    const ULONG ret = keyDriver->pSKF_EncryptInit(hKey, cryptoCipherParam(encryptParamData));
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
    if (SKF_REFUSED({!keyDriver, SAR_USER_NOT_LOGGED_IN, " end . keyDriver is null"},
                    {!hKey, SAR_INVALIDHANDLEERR, " end . hKey is null"},
                    {data.isEmpty(), SAR_INDATALENERR, " end. data is empty"}))
        return QByteArray();

    ULONG ulEncryptedLen = 0;
    TW_LOG(" SKF_Encrypt A");
    ULONG ret = keyDriver->pSKF_Encrypt(hKey, cryptoIn(data), ULONG(data.size()), nullptr, &ulEncryptedLen);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Encrypt failded.ret = %d.");
        return QByteArray();
    }
    TW_LOG(QStringLiteral(" ulEncryptedLen: ") + QString::number(ulEncryptedLen));

    QByteArray buffer;
    ret = SAR_MEMORYERR;
    if (cryptoOutBuffer(ulEncryptedLen, &buffer)) {
        TW_LOG(" SKF_Encrypt B");
        ret = keyDriver->pSKF_Encrypt(hKey, cryptoIn(data), ULONG(data.size()), cryptoOut(buffer), &ulEncryptedLen);
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Encrypt failded.ret = %d.");
        return QByteArray();
    }
    const QByteArray encrypted = cryptoWritten(buffer, ulEncryptedLen);
    TW_LOG(" end");
    return encrypted;
}

bool KeyObjectSKF::decryptInit(Qt::HANDLE hKey, QByteArray decryptParamData)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!keyDriver, SAR_USER_NOT_LOGGED_IN, " end . keyDriver is null"},
                    {!hKey, SAR_INVALIDHANDLEERR, " end . hKey is null"},
                    {decryptParamData.isEmpty(), SAR_INDATALENERR, " end. decryptParamData is empty"}))
        return false;

    TW_LOG(" SKF_DecryptInit");
    const ULONG ret = keyDriver->pSKF_DecryptInit(hKey, cryptoCipherParam(decryptParamData));
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
    if (SKF_REFUSED({!keyDriver, SAR_USER_NOT_LOGGED_IN, " end . keyDriver is null"},
                    {!hKey, SAR_INVALIDHANDLEERR, " end . hKey is null"},
                    {encryptedData.isEmpty(), SAR_INDATALENERR, " end. data is empty"}))
        return QByteArray();

    // The failure words of the two calls are the ones hosts have always
    // seen, whatever they name.
    ULONG ulDecryptedLen = 0;
    TW_LOG(" SKF_Decrypt A");
    ULONG ret = keyDriver->pSKF_Decrypt(hKey, cryptoIn(encryptedData), ULONG(encryptedData.size()), nullptr,
                                        &ulDecryptedLen);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Encrypt failded.ret = %d.");
        return QByteArray();
    }
    TW_LOG(QStringLiteral(" ulDecryptedLen: ") + QString::number(ulDecryptedLen));

    QByteArray buffer;
    ret = SAR_MEMORYERR;
    if (cryptoOutBuffer(ulDecryptedLen, &buffer)) {
        TW_LOG(" SKF_Decrypt B");
        ret = keyDriver->pSKF_Decrypt(hKey, cryptoIn(encryptedData), ULONG(encryptedData.size()), cryptoOut(buffer),
                                      &ulDecryptedLen);
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Digest failded.ret = %d.");
        return QByteArray();
    }
    const QByteArray plain = cryptoWritten(buffer, ulDecryptedLen);
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
    if (SKF_REFUSED({!app || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . app is null"},
                    {!container, SAR_INVALIDHANDLEERR, " end. container = null"}))
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
    Qt::HANDLE hash = digestInit(SGD_SM3, pubkey, QString::fromLatin1(kCryptoDefaultUserId));
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
    if (SKF_REFUSED({!dev || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . dev is null"},
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
    Qt::HANDLE hash = digestInit(SGD_SM3, pubkey, QString::fromLatin1(kCryptoDefaultUserId));
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
    cryptoPlace(blob, 32, signature.left(32), 32);
    cryptoPlace(blob, 96, signature.right(32), 32);
    TW_LOG(" end");
    return eccVerify(pubkey, hashValue, blob);
}

Qt::HANDLE KeyObjectSKF::digestInit(quint64 ulAlgID, QByteArray pubkeyBlob, QString id)
{
    TW_LOG(" start");
    if (SKF_REFUSED({!dev || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . dev is null"}))
        return nullptr;

    // No key: a null pointer. A short key reaches the token zero-padded.
    QByteArray key;
    ECCPUBLICKEYBLOB *pubkey = nullptr;
    if (!pubkeyBlob.isEmpty()) {
        key = cryptoAtLeast(pubkeyBlob, SKF_ECCPUBLICKEYBLOB_SIZE);
        pubkey = reinterpret_cast<ECCPUBLICKEYBLOB *>(cryptoIn(key));
    }
    // An empty id is a valid pointer to an empty string, length 0.
    const QByteArray idBytes = id.toUtf8();
    HANDLE hash = nullptr;
    const ULONG ret = keyDriver->pSKF_DigestInit(dev, ULONG(ulAlgID), pubkey, cryptoIn(idBytes),
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
    ULONG ret = keyDriver->pSKF_Digest(hash, cryptoIn(data), ULONG(data.size()), nullptr, &ulHashLen);
    QByteArray buffer;
    if (ret == SAR_OK) {
        TW_LOG(QStringLiteral(" ulHashLen(1): ") + QString::number(ulHashLen));
        TW_LOG(QStringLiteral(" m_AlgID: ") + QString::number(m_AlgID));
        // The algorithm, not the token's report, sizes a known hash.
        ulHashLen = cryptoHashSize(m_AlgID, ulHashLen);
        ret = SAR_MEMORYERR;
        if (cryptoOutBuffer(ulHashLen, &buffer)) {
            TW_LOG(" 1");
            ret = keyDriver->pSKF_Digest(hash, cryptoIn(data), ULONG(data.size()), cryptoOut(buffer), &ulHashLen);
        }
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Digest failded.ret = %d.");
        return QByteArray();
    }
    TW_LOG(QStringLiteral(" ulHashLen(2): ") + QString::number(ulHashLen));
    const QByteArray hashValue = cryptoWritten(buffer, cryptoHashSize(m_AlgID, ulHashLen));
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
    if (SKF_REFUSED({!dev || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . dev is null"},
                    {!container, SAR_INDATALENERR, " end. container = null"}))
        return QByteArray();

    TW_LOG(" SKF_ExportPublicKey");
    ULONG length = 0;
    ULONG ret = keyDriver->pSKF_ExportPublicKey(container, bSignFlag, nullptr, &length);
    QByteArray buffer;
    if (ret == SAR_OK) {
        ret = SAR_MEMORYERR;
        if (cryptoOutBuffer(length, &buffer))
            ret = keyDriver->pSKF_ExportPublicKey(container, bSignFlag, cryptoOut(buffer), &length);
    }
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_ExportPublicKey failed.ret = %d");
        TW_LOG(" end");
        return QByteArray();
    }
    TW_LOG(" end");
    return cryptoWritten(buffer, length);
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
    if (SKF_REFUSED({!keyDriver, SAR_USER_NOT_LOGGED_IN, " end . keyDriver is null"}))
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
    ret = keyDriver->pSKF_Digest(hash, cryptoIn(pbtData), ULONG(pbtData.size()), cryptoOut(hashValue), &ulHashLen);
    if (ret != SAR_OK) {
        SKF_FAILED(ret, " SKF_Digest failded.ret = %d.");
        TW_LOG(" end");
        return QByteArray();
    }
    // The DigestInfo is assembled but not handed out: hosts rely on the
    // empty result, and the hash object stays with the token.
    QByteArray digestInfo(kCryptoSha1DigestInfoPrefix, kCryptoSha1DigestInfoPrefixSize);
    digestInfo += cryptoWritten(hashValue, qMin<ULONG>(ulHashLen, 256 - kCryptoSha1DigestInfoPrefixSize));
    Q_UNUSED(digestInfo);
    TW_LOG(" end");
    return QByteArray();
}

QByteArray KeyObjectSKF::eccExportSessionKey(Qt::HANDLE container, quint64 ulAlgID, QByteArray pubkeyBlob,
                                             Qt::HANDLE *phSessionKey)
{
    TW_LOG("start");
    if (SKF_REFUSED({!dev || !keyDriver, SAR_USER_NOT_LOGGED_IN, " end . dev is null"},
                    {!container, SAR_INVALIDHANDLEERR, " end. container = null"},
                    {pubkeyBlob.isEmpty(), SAR_INVALIDPARAMERR, " end"}))
        return QByteArray();

    // An ECCCIPHERBLOB with room for a 33-byte cipher.
    QByteArray cipherBlob(SKF_ECCCIPHERBLOB_BUFFER_SIZE, '\0');
    TW_LOGF_ERROR(" pstEccCipherBlob = %s", cipherBlob.toBase64().constData());
    QByteArray key = cryptoAtLeast(pubkeyBlob, SKF_ECCPUBLICKEYBLOB_SIZE);
    const ULONG ret = keyDriver->pSKF_ECCExportSessionKey(container, ULONG(ulAlgID),
                                                          reinterpret_cast<ECCPUBLICKEYBLOB *>(cryptoIn(key)),
                                                          reinterpret_cast<PECCCIPHERBLOB>(cryptoOut(cipherBlob)),
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
