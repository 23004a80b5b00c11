// Symmetric keys and ciphers, hashes, MACs, and closing such handles.
#include "skfexport.h"

#include "cipherkey.h"
#include "handleregistry.h"
#include "hashobject.h"
#include "macobject.h"
#include "skfcall.h"
#include "tokencrypto.h"

namespace {

// The SM2 signer id used when a public key comes without one.
const char kDefaultId[] = "1234567812345678";
// ENTL holds the id's length in bits in 16 bits.
const ULONG kMaxIdLen = 8191;

ULONG cipherStep(const char *function, bool encrypt, CipherKey::Step step, HANDLE hKey, const BYTE *in, ULONG inLen,
                 BYTE *out, ULONG *outLen)
{
    SkfCall call(function);
    CipherKey *key = nullptr;
    ULONG rv = call.key(hKey, &key);
    if (rv != SAR_OK)
        return rv;
    QByteArray data, result;
    if (!outLen)
        return SAR_INVALIDPARAMERR;
    if (step != CipherKey::Final && (rv = SkfCall::input(in, inLen, &data)) != SAR_OK)
        return rv;
    if ((rv = key->preview(encrypt, step, data, &result)) != SAR_OK)
        return rv;
    rv = call.fill(result, out, outLen);
    if (rv == SAR_OK && out)
        key->commit(step);
    return rv;
}

ULONG cipherInit(const char *function, bool encrypt, HANDLE hKey, const BLOCKCIPHERPARAM &param)
{
    SkfCall call(function);
    CipherKey *key = nullptr;
    const ULONG rv = call.key(hKey, &key);
    return rv != SAR_OK ? rv : key->init(encrypt, param);
}

const char *digestName(ULONG algId)
{
    switch (algId) {
    case SGD_SM3: return "SM3";
    case SGD_SHA1: return "SHA1";
    case SGD_SHA256: return "SHA256";
    default: return nullptr;
    }
}

// More data into a hash or MAC object.
ULONG feed(HashObject *hash, const QByteArray &data)
{
    return hash->update(data) ? SAR_OK : SAR_HASHERR;
}

ULONG feed(MacObject *mac, const QByteArray &data)
{
    mac->update(data);
    return SAR_OK;
}

// Hash of what the object was fed plus more; on a fill the object starts over.
ULONG finish(SkfCall &call, HashObject *hash, const QByteArray &more, BYTE *out, ULONG *outLen)
{
    if (!outLen)
        return SAR_INVALIDPARAMERR;
    ULONG rv = SAR_OK;
    if (call.sizeFirst(ULONG(hash->size()), out, outLen, &rv))
        return rv;
    QByteArray value;
    if (!hash->peek(more, &value))
        return SAR_HASHERR;
    rv = call.fill(value, out, outLen);
    if (rv == SAR_OK)
        hash->reset();
    return rv;
}

// MAC of what the object was fed plus more; a fill that writes starts it over.
ULONG finish(SkfCall &call, MacObject *mac, const QByteArray &more, BYTE *out, ULONG *outLen)
{
    if (!outLen)
        return SAR_INVALIDPARAMERR;
    const QByteArray value = mac->peek(more);
    if (value.isEmpty())
        return SAR_INDATALENERR;
    const ULONG rv = call.fill(value, out, outLen);
    if (rv == SAR_OK && out)
        mac->reset();
    return rv;
}

// One step of a hash or MAC handle: the whole data at once, more data, or
// the end of what was fed.
template <class T>
ULONG streamStep(const char *function, ULONG (SkfCall::*lookup)(HANDLE, T **), CipherKey::Step step, HANDLE handle,
                 const BYTE *in, ULONG inLen, BYTE *out, ULONG *outLen)
{
    SkfCall call(function);
    T *object = nullptr;
    ULONG rv = (call.*lookup)(handle, &object);
    if (rv != SAR_OK)
        return rv;
    QByteArray data;
    if (step != CipherKey::Final && (rv = SkfCall::input(in, inLen, &data)) != SAR_OK)
        return rv;
    if (step == CipherKey::Update)
        return feed(object, data);
    return finish(call, object, data, out, outLen);
}

} // namespace

SKF_EXPORT ULONG SKF_SetSymmKey(DEVHANDLE hDev, BYTE *pbKey, ULONG ulAlgID, HANDLE *phKey)
{
    SkfCall call("SKF_SetSymmKey");
    Connection *conn = nullptr;
    const ULONG rv = call.device(hDev, &conn);
    if (rv != SAR_OK)
        return rv;
    if (!pbKey || !phKey)
        return SAR_INVALIDPARAMERR;
    if (!CipherKey::supported(ulAlgID))
        return SAR_NOTSUPPORTYETERR;
    const QByteArray key(reinterpret_cast<const char *>(pbKey), TokenCrypto::Sm4KeySize);
    *phKey = HandleRegistry::instance().add(std::make_unique<CipherKey>(conn, ulAlgID, key));
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_EncryptInit(HANDLE hKey, BLOCKCIPHERPARAM EncryptParam)
{
    return cipherInit("SKF_EncryptInit", true, hKey, EncryptParam);
}

SKF_EXPORT ULONG SKF_Encrypt(HANDLE hKey, BYTE *pbData, ULONG ulDataLen, BYTE *pbEncryptedData,
                             ULONG *pulEncryptedLen)
{
    return cipherStep("SKF_Encrypt", true, CipherKey::Whole, hKey, pbData, ulDataLen, pbEncryptedData,
                      pulEncryptedLen);
}

SKF_EXPORT ULONG SKF_EncryptUpdate(HANDLE hKey, BYTE *pbData, ULONG ulDataLen, BYTE *pbEncryptedData,
                                   ULONG *pulEncryptedLen)
{
    return cipherStep("SKF_EncryptUpdate", true, CipherKey::Update, hKey, pbData, ulDataLen, pbEncryptedData,
                      pulEncryptedLen);
}

SKF_EXPORT ULONG SKF_EncryptFinal(HANDLE hKey, BYTE *pbEncryptedData, ULONG *pulEncryptedDataLen)
{
    return cipherStep("SKF_EncryptFinal", true, CipherKey::Final, hKey, nullptr, 0, pbEncryptedData,
                      pulEncryptedDataLen);
}

SKF_EXPORT ULONG SKF_DecryptInit(HANDLE hKey, BLOCKCIPHERPARAM DecryptParam)
{
    return cipherInit("SKF_DecryptInit", false, hKey, DecryptParam);
}

SKF_EXPORT ULONG SKF_Decrypt(HANDLE hKey, BYTE *pbEncryptedData, ULONG ulEncryptedLen, BYTE *pbData, ULONG *pulDataLen)
{
    return cipherStep("SKF_Decrypt", false, CipherKey::Whole, hKey, pbEncryptedData, ulEncryptedLen, pbData,
                      pulDataLen);
}

SKF_EXPORT ULONG SKF_DecryptUpdate(HANDLE hKey, BYTE *pbEncryptedData, ULONG ulEncryptedLen, BYTE *pbData,
                                   ULONG *pulDataLen)
{
    return cipherStep("SKF_DecryptUpdate", false, CipherKey::Update, hKey, pbEncryptedData, ulEncryptedLen, pbData,
                      pulDataLen);
}

SKF_EXPORT ULONG SKF_DecryptFinal(HANDLE hKey, BYTE *pbDecryptedData, ULONG *pulDecryptedDataLen)
{
    return cipherStep("SKF_DecryptFinal", false, CipherKey::Final, hKey, nullptr, 0, pbDecryptedData,
                      pulDecryptedDataLen);
}

SKF_EXPORT ULONG SKF_DigestInit(DEVHANDLE hDev, ULONG ulAlgID, ECCPUBLICKEYBLOB *pPubKey, unsigned char *pucID,
                                ULONG ulIDLen, HANDLE *phHash)
{
    SkfCall call("SKF_DigestInit");
    Connection *conn = nullptr;
    const ULONG rv = call.device(hDev, &conn);
    if (rv != SAR_OK)
        return rv;
    if (!phHash)
        return SAR_INVALIDPARAMERR;
    const char *name = digestName(ulAlgID);
    if (!name)
        return SAR_NOTSUPPORTYETERR;
    QByteArray prefix;
    // With SM3 and a public key, the Z value of the signer goes first.
    if (ulAlgID == SGD_SM3 && pPubKey) {
        if (pPubKey->BitLen != 256)
            return SAR_INVALIDPARAMERR;
        if (ulIDLen > kMaxIdLen)
            return SAR_INDATALENERR;
        if (ulIDLen && !pucID)
            return SAR_INVALIDPARAMERR;
        const QByteArray id = ulIDLen ? QByteArray(reinterpret_cast<const char *>(pucID), int(ulIDLen))
                                      : QByteArray(kDefaultId);
        const QByteArray x(reinterpret_cast<const char *>(pPubKey->XCoordinate) + 32, 32);
        const QByteArray y(reinterpret_cast<const char *>(pPubKey->YCoordinate) + 32, 32);
        prefix = TokenCrypto::sm2Z(x, y, id);
        if (prefix.isEmpty())
            return SAR_HASHERR;
    }
    auto hash = std::make_unique<HashObject>(conn, name, prefix);
    if (!hash->ok())
        return SAR_HASHOBJERR;
    *phHash = HandleRegistry::instance().add(std::move(hash));
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_Digest(HANDLE hHash, BYTE *pbData, ULONG ulDataLen, BYTE *pbHashData, ULONG *pulHashLen)
{
    return streamStep("SKF_Digest", &SkfCall::hash, CipherKey::Whole, hHash, pbData, ulDataLen, pbHashData,
                      pulHashLen);
}

SKF_EXPORT ULONG SKF_DigestUpdate(HANDLE hHash, BYTE *pbData, ULONG ulDataLen)
{
    return streamStep("SKF_DigestUpdate", &SkfCall::hash, CipherKey::Update, hHash, pbData, ulDataLen, nullptr,
                      nullptr);
}

SKF_EXPORT ULONG SKF_DigestFinal(HANDLE hHash, BYTE *pHashData, ULONG *pulHashLen)
{
    return streamStep("SKF_DigestFinal", &SkfCall::hash, CipherKey::Final, hHash, nullptr, 0, pHashData, pulHashLen);
}

SKF_EXPORT ULONG SKF_MacInit(HANDLE hKey, BLOCKCIPHERPARAM *pMacParam, HANDLE *phMac)
{
    SkfCall call("SKF_MacInit");
    CipherKey *key = nullptr;
    const ULONG rv = call.key(hKey, &key);
    if (rv != SAR_OK)
        return rv;
    if (!pMacParam || !phMac)
        return SAR_INVALIDPARAMERR;
    QByteArray iv;
    bool padding = false;
    const ULONG checked = CipherKey::readParam(*pMacParam, &iv, &padding);
    if (checked != SAR_OK)
        return checked;
    *phMac = HandleRegistry::instance().add(std::make_unique<MacObject>(key->connection(), key->key(), iv, padding));
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_Mac(HANDLE hMac, BYTE *pbData, ULONG ulDataLen, BYTE *pbMacData, ULONG *pulMacLen)
{
    return streamStep("SKF_Mac", &SkfCall::mac, CipherKey::Whole, hMac, pbData, ulDataLen, pbMacData, pulMacLen);
}

SKF_EXPORT ULONG SKF_MacUpdate(HANDLE hMac, BYTE *pbData, ULONG ulDataLen)
{
    return streamStep("SKF_MacUpdate", &SkfCall::mac, CipherKey::Update, hMac, pbData, ulDataLen, nullptr, nullptr);
}

SKF_EXPORT ULONG SKF_MacFinal(HANDLE hMac, BYTE *pbMacData, ULONG *pulMacDataLen)
{
    return streamStep("SKF_MacFinal", &SkfCall::mac, CipherKey::Final, hMac, nullptr, 0, pbMacData, pulMacDataLen);
}

SKF_EXPORT ULONG SKF_CloseHandle(HANDLE hHandle)
{
    SkfCall call("SKF_CloseHandle");
    CipherKey *key = nullptr;
    HashObject *hash = nullptr;
    MacObject *mac = nullptr;
    TokenObject *object = nullptr;
    ULONG rv = call.key(hHandle, &key);
    if (key) {
        object = key;
    } else if ((rv = call.hash(hHandle, &hash)), hash) {
        object = hash;
    } else if ((rv = call.mac(hHandle, &mac)), mac) {
        object = mac;
    }
    if (!object)
        return SAR_INVALIDHANDLEERR;
    if (rv != SAR_OK && rv != SAR_DEVICE_REMOVED)
        return rv;
    HandleRegistry::instance().close(object);
    return rv;
}
