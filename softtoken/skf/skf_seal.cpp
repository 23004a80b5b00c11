// The electronic-seal extension: the application's seal data, and
// symmetric keys kept in the application by index.
#include "skfexport.h"

#include "blobcodec.h"
#include "cipherkey.h"
#include "macobject.h"
#include "skfcall.h"
#include "tokencrypto.h"

namespace {

// ulFlags of EPS_Encrypt, EPS_Decrypt and EPS_Mac: bit 0 asks for PKCS#5 padding.
const ULONG kPaddingFlag = 0x1;
const ULONG kMaxSeal = 64 * 1024;

// A stored key by index, the container's application and user login checked.
ULONG indexedKey(SkfCall &call, HCONTAINER hContainer, ULONG index, QByteArray *key)
{
    ContainerObject *c = nullptr;
    ULONG rv = call.userContainer(hContainer, &c);
    if (rv != SAR_OK)
        return rv;
    const DeviceData::App *a = nullptr;
    const DeviceData::Container *data = nullptr;
    if ((rv = call.containerData(c, &a, &data)) != SAR_OK)
        return rv;
    const auto it = a->symmKeys.constFind(quint32(index));
    if (it == a->symmKeys.constEnd())
        return SAR_KEYNOTFOUNTERR;
    *key = it->key;
    return SAR_OK;
}

ULONG sealCipher(const char *function, bool encrypt, HCONTAINER hContainer, ULONG ulKeyIndex, ULONG ulKeyAlgId,
                 BYTE *pbIV, ULONG ulIVLen, BYTE *pbInData, ULONG ulInDataLen, BYTE *pbOutData, ULONG *pulOutDataLen,
                 ULONG ulFlags)
{
    SkfCall call(function);
    QByteArray key, iv, in, out;
    ULONG rv = indexedKey(call, hContainer, ulKeyIndex, &key);
    if (rv != SAR_OK)
        return rv;
    TokenCrypto::Sm4Mode mode;
    if (!CipherKey::mode(ulKeyAlgId, &mode))
        return SAR_NOTSUPPORTYETERR;
    if (!pulOutDataLen || !CipherKey::ivFrom(pbIV, ulIVLen, &iv))
        return SAR_INVALIDPARAMERR;
    if ((rv = SkfCall::input(pbInData, ulInDataLen, &in)) != SAR_OK)
        return rv;
    const bool blockMode = mode == TokenCrypto::Sm4Ecb || mode == TokenCrypto::Sm4Cbc;
    const bool padding = blockMode && (ulFlags & kPaddingFlag);
    if (blockMode && !padding && in.size() % TokenCrypto::Sm4BlockSize != 0)
        return SAR_INDATALENERR;
    if (!TokenCrypto::sm4(encrypt, mode, key, iv, padding, in, &out))
        return encrypt ? SAR_FAIL : SAR_DECRYPTPADERR;
    return call.fill(out, pbOutData, pulOutDataLen);
}

} // namespace

SKF_EXPORT ULONG EPS_ImportSymmKey(HCONTAINER hContainer, ULONG ulKeyIndex, BYTE *pbEncData, ULONG ulEncDataLen,
                                   ULONG)
{
    SkfCall call("EPS_ImportSymmKey");
    ContainerObject *c = nullptr;
    ULONG rv = call.userContainer(hContainer, &c);
    if (rv != SAR_OK)
        return rv;
    if (!pbEncData)
        return SAR_INVALIDPARAMERR;
    const DeviceData::App *a = nullptr;
    const DeviceData::Container *data = nullptr;
    if ((rv = call.containerData(c, &a, &data)) != SAR_OK)
        return rv;
    if (data->enc.alg == DeviceData::NoKey)
        return SAR_KEYNOTFOUNTERR;
    // The key comes wrapped under the container's encryption key.
    EVP_PKEY *encKey = call.privateKey(c, false);
    QByteArray key;
    if (!encKey)
        return SAR_KEYNOTFOUNTERR;
    if ((rv = BlobCodec::unwrap(encKey, data->enc.alg, pbEncData, ulEncDataLen, &key)) != SAR_OK)
        return rv;
    if (key.size() != TokenCrypto::Sm4KeySize)
        return SAR_INDATAERR;
    return call.modifyApp(c->app(), [&](DeviceData::App &app, DeviceData &, bool &) -> ULONG {
        app.symmKeys.insert(quint32(ulKeyIndex), DeviceData::SymmKey{SGD_SM4_ECB, key});
        return SAR_OK;
    });
}

SKF_EXPORT ULONG EPS_Encrypt(HCONTAINER hContainer, ULONG ulKeyIndex, ULONG ulKeyAlgId, BYTE *pbIV, ULONG ulIVLen,
                             BYTE *pbInData, ULONG ulInDataLen, BYTE *pbOutData, ULONG *pulOutDataLen, ULONG ulFlags)
{
    return sealCipher("EPS_Encrypt", true, hContainer, ulKeyIndex, ulKeyAlgId, pbIV, ulIVLen, pbInData, ulInDataLen,
                      pbOutData, pulOutDataLen, ulFlags);
}

SKF_EXPORT ULONG EPS_Decrypt(HCONTAINER hContainer, ULONG ulKeyIndex, ULONG ulKeyAlgId, BYTE *pbIV, ULONG ulIVLen,
                             BYTE *pbInData, ULONG ulInDataLen, BYTE *pbOutData, ULONG *pulOutDataLen, ULONG ulFlags)
{
    return sealCipher("EPS_Decrypt", false, hContainer, ulKeyIndex, ulKeyAlgId, pbIV, ulIVLen, pbInData, ulInDataLen,
                      pbOutData, pulOutDataLen, ulFlags);
}

SKF_EXPORT ULONG EPS_Mac(HCONTAINER hContainer, ULONG ulKeyIndex, ULONG ulKeyAlgId, BYTE *pbIV, ULONG ulIVLen,
                         BYTE *pbInData, ULONG ulInDataLen, BYTE *pbMac, ULONG *pulMacLen, ULONG ulFlags)
{
    SkfCall call("EPS_Mac");
    QByteArray key, iv, in;
    ULONG rv = indexedKey(call, hContainer, ulKeyIndex, &key);
    if (rv != SAR_OK)
        return rv;
    if (!CipherKey::supported(ulKeyAlgId))
        return SAR_NOTSUPPORTYETERR;
    if (!pulMacLen || !CipherKey::ivFrom(pbIV, ulIVLen, &iv))
        return SAR_INVALIDPARAMERR;
    if ((rv = SkfCall::input(pbInData, ulInDataLen, &in)) != SAR_OK)
        return rv;
    const QByteArray mac = MacObject::mac(in, key, iv, ulFlags & kPaddingFlag);
    if (mac.isEmpty())
        return SAR_INDATALENERR;
    return call.fill(mac, pbMac, pulMacLen);
}

SKF_EXPORT ULONG EPS_ReadESealData(HAPPLICATION hApplication, ULONG, ULONG, BYTE *pbData, ULONG *pulDataLen, ULONG)
{
    SkfCall call("EPS_ReadESealData");
    const DeviceData::App *a = nullptr;
    const ULONG rv = call.appData(hApplication, &a);
    if (rv != SAR_OK)
        return rv;
    return call.fill(a->sealData, pbData, pulDataLen);
}

SKF_EXPORT ULONG EPS_WriteESealData(HAPPLICATION hApplication, BYTE *pbData, ULONG ulDataSize, ULONG)
{
    SkfCall call("EPS_WriteESealData");
    AppObject *app = nullptr;
    ULONG rv = call.app(hApplication, &app);
    if (rv != SAR_OK || (rv = call.requireUser(app)) != SAR_OK)
        return rv;
    QByteArray data;
    if (!pbData || ulDataSize == 0)
        return SAR_INVALIDPARAMERR;
    if (ulDataSize > kMaxSeal)
        return SAR_INDATALENERR;
    if ((rv = SkfCall::input(pbData, ulDataSize, &data)) != SAR_OK)
        return rv;
    return call.modifyApp(app, [&](DeviceData::App &a, DeviceData &d, bool &persist) -> ULONG {
        a.sealData = data;
        if (d.usedSpace() > d.totalSpace) {
            persist = false;
            return SAR_NO_ROOM;
        }
        return SAR_OK;
    });
}
