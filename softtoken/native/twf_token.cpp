// The native face's containers, keys, signatures, hashes, ciphers and seal
// data: each the SKF or EPS function of its stem, with the device handle in
// front and lengths beside the blobs.
#include "twfcall.h"

#include "blobcodec.h"
#include "tokencrypto.h"

namespace {

// A blob passed with its length must be whole.
bool whole(const void *blob, ULONG len, ULONG size)
{
    return !blob || len == size;
}

ULONG withParam(const BLOCKCIPHERPARAM *param, ULONG len, const std::function<ULONG(const BLOCKCIPHERPARAM &)> &skf)
{
    if (!param || len != SKF_BLOCKCIPHERPARAM_SIZE)
        return SAR_INVALIDPARAMERR;
    return skf(*param);
}

} // namespace

TWF_EXPORT ULONG TWF_CreateContainer(DEVHANDLE hDev, LPSTR szContainerName, HCONTAINER *phContainer)
{
    return SKF_CreateContainer(hDev, szContainerName, phContainer);
}

TWF_EXPORT ULONG TWF_DeleteContainer(DEVHANDLE hDev, LPSTR szContainerName)
{
    return SKF_DeleteContainer(hDev, szContainerName);
}

TWF_EXPORT ULONG TWF_EnumContainer(DEVHANDLE hDev, LPSTR szContainerList, ULONG *pulSize)
{
    return SKF_EnumContainer(hDev, szContainerList, pulSize);
}

TWF_EXPORT ULONG TWF_OpenContainer(DEVHANDLE hDev, LPSTR szContainerName, HCONTAINER *phContainer)
{
    return SKF_OpenContainer(hDev, szContainerName, phContainer);
}

TWF_EXPORT ULONG TWF_CloseContainer(DEVHANDLE hDev, HCONTAINER hContainer)
{
    return TwfCall::through(__func__, hDev, hContainer, [&] { return SKF_CloseContainer(hContainer); });
}

TWF_EXPORT ULONG TWF_GetContainerType(DEVHANDLE hDev, HCONTAINER hContainer, ULONG *pulContainerType)
{
    return TwfCall::through(__func__, hDev, hContainer,
                            [&] { return SKF_GetContainerType(hContainer, pulContainerType); });
}

TWF_EXPORT ULONG TWF_ImportCertificate(DEVHANDLE hDev, HCONTAINER hContainer, BOOL bSignFlag, BYTE *pbCert,
                                       ULONG ulCertLen)
{
    return TwfCall::through(__func__, hDev, hContainer,
                            [&] { return SKF_ImportCertificate(hContainer, bSignFlag, pbCert, ulCertLen); });
}

TWF_EXPORT ULONG TWF_ExportCertificate(DEVHANDLE hDev, HCONTAINER hContainer, BOOL bSignFlag, BYTE *pbCert,
                                       ULONG *pulCertLen)
{
    return TwfCall::through(__func__, hDev, hContainer,
                            [&] { return SKF_ExportCertificate(hContainer, bSignFlag, pbCert, pulCertLen); });
}

TWF_EXPORT ULONG TWF_GenRSAKeyPair(DEVHANDLE hDev, HCONTAINER hContainer, ULONG ulBitsLen, RSAPUBLICKEYBLOB *pBlob,
                                   ULONG *pulBlobLen)
{
    return TwfCall::fixedSize(__func__, hDev, hContainer, SKF_RSAPUBLICKEYBLOB_SIZE, pBlob, pulBlobLen,
                              [&] { return SKF_GenRSAKeyPair(hContainer, ulBitsLen, pBlob); });
}

TWF_EXPORT ULONG TWF_ImportRSAKeyPair(DEVHANDLE hDev, HCONTAINER hContainer, ULONG ulSymAlgId, BYTE *pbWrappedKey,
                                      ULONG ulWrappedKeyLen, BYTE *pbEncryptedData, ULONG ulEncryptedDataLen)
{
    return TwfCall::through(__func__, hDev, hContainer, [&] {
        return SKF_ImportRSAKeyPair(hContainer, ulSymAlgId, pbWrappedKey, ulWrappedKeyLen, pbEncryptedData,
                                    ulEncryptedDataLen);
    });
}

TWF_EXPORT ULONG TWF_RSASignData(DEVHANDLE hDev, HCONTAINER hContainer, BYTE *pbData, ULONG ulDataLen,
                                 BYTE *pbSignature, ULONG *pulSignLen)
{
    return TwfCall::through(__func__, hDev, hContainer,
                            [&] { return SKF_RSASignData(hContainer, pbData, ulDataLen, pbSignature, pulSignLen); });
}

TWF_EXPORT ULONG TWF_RSAVerify(DEVHANDLE hDev, RSAPUBLICKEYBLOB *pPubKey, ULONG ulPubKeyLen, BYTE *pbData,
                               ULONG ulDataLen, BYTE *pbSignature, ULONG ulSignLen)
{
    TwfCall call(__func__);
    if (!whole(pPubKey, ulPubKeyLen, SKF_RSAPUBLICKEYBLOB_SIZE))
        return SAR_INVALIDPARAMERR;
    return SKF_RSAVerify(call.connectionOf(hDev), pPubKey, pbData, ulDataLen, pbSignature, ulSignLen);
}

TWF_EXPORT ULONG TWF_GenECCKeyPair(DEVHANDLE hDev, HCONTAINER hContainer, ULONG ulAlgId, ECCPUBLICKEYBLOB *pBlob,
                                   ULONG *pulBlobLen)
{
    return TwfCall::fixedSize(__func__, hDev, hContainer, SKF_ECCPUBLICKEYBLOB_SIZE, pBlob, pulBlobLen,
                              [&] { return SKF_GenECCKeyPair(hContainer, ulAlgId, pBlob); });
}

TWF_EXPORT ULONG TWF_ImportECCKeyPair(DEVHANDLE hDev, HCONTAINER hContainer, ENVELOPEDKEYBLOB *pEnvelopedKeyBlob,
                                      ULONG ulBlobLen)
{
    // The length given bounds the cipher's variable tail.
    const ULONG head = sizeof(ENVELOPEDKEYBLOB) - 1;
    if (pEnvelopedKeyBlob && (ulBlobLen < head || pEnvelopedKeyBlob->ECCCipherBlob.CipherLen > ulBlobLen - head))
        return SAR_INDATALENERR;
    return TwfCall::through(__func__, hDev, hContainer,
                            [&] { return SKF_ImportECCKeyPair(hContainer, pEnvelopedKeyBlob); });
}

TWF_EXPORT ULONG TWF_ECCSignData(DEVHANDLE hDev, HCONTAINER hContainer, BYTE *pbData, ULONG ulDataLen,
                                 ECCSIGNATUREBLOB *pSignature, ULONG *pulSignLen)
{
    return TwfCall::fixedSize(__func__, hDev, hContainer, SKF_ECCSIGNATUREBLOB_SIZE, pSignature, pulSignLen,
                              [&] { return SKF_ECCSignData(hContainer, pbData, ulDataLen, pSignature); });
}

TWF_EXPORT ULONG TWF_ECCVerify(DEVHANDLE hDev, ECCPUBLICKEYBLOB *pPubKey, ULONG ulPubKeyLen, BYTE *pbData,
                               ULONG ulDataLen, ECCSIGNATUREBLOB *pSignature, ULONG ulSignLen)
{
    TwfCall call(__func__);
    if (!whole(pPubKey, ulPubKeyLen, SKF_ECCPUBLICKEYBLOB_SIZE)
        || !whole(pSignature, ulSignLen, SKF_ECCSIGNATUREBLOB_SIZE))
        return SAR_INVALIDPARAMERR;
    return SKF_ECCVerify(call.connectionOf(hDev), pPubKey, pbData, ulDataLen, pSignature);
}

TWF_EXPORT ULONG TWF_ExportPublicKey(DEVHANDLE hDev, HCONTAINER hContainer, BOOL bSignFlag, BYTE *pbBlob,
                                     ULONG *pulBlobLen)
{
    return TwfCall::through(__func__, hDev, hContainer,
                            [&] { return SKF_ExportPublicKey(hContainer, bSignFlag, pbBlob, pulBlobLen); });
}

TWF_EXPORT ULONG TWF_ImportSessionKey(DEVHANDLE hDev, HCONTAINER hContainer, ULONG ulAlgId, BYTE *pbWrapedData,
                                      ULONG ulWrapedLen, HANDLE *phKey)
{
    return TwfCall::through(__func__, hDev, hContainer, [&] {
        return SKF_ImportSessionKey(hContainer, ulAlgId, pbWrapedData, ulWrapedLen, phKey);
    });
}

TWF_EXPORT ULONG TWF_EncryptInit(DEVHANDLE hDev, HANDLE hKey, BLOCKCIPHERPARAM *pParam, ULONG ulParamLen)
{
    return TwfCall::through(__func__, hDev, hKey, [&] {
        return withParam(pParam, ulParamLen, [&](const BLOCKCIPHERPARAM &p) { return SKF_EncryptInit(hKey, p); });
    });
}

TWF_EXPORT ULONG TWF_Encrypt(DEVHANDLE hDev, HANDLE hKey, BYTE *pbData, ULONG ulDataLen, BYTE *pbEncryptedData,
                             ULONG *pulEncryptedLen)
{
    return TwfCall::through(__func__, hDev, hKey,
                            [&] { return SKF_Encrypt(hKey, pbData, ulDataLen, pbEncryptedData, pulEncryptedLen); });
}

TWF_EXPORT ULONG TWF_EncryptUpdate(DEVHANDLE hDev, HANDLE hKey, BYTE *pbData, ULONG ulDataLen, BYTE *pbEncryptedData,
                                   ULONG *pulEncryptedLen)
{
    return TwfCall::through(__func__, hDev, hKey, [&] {
        return SKF_EncryptUpdate(hKey, pbData, ulDataLen, pbEncryptedData, pulEncryptedLen);
    });
}

TWF_EXPORT ULONG TWF_EncryptFinal(DEVHANDLE hDev, HANDLE hKey, BYTE *pbEncryptedData, ULONG *pulEncryptedLen)
{
    return TwfCall::through(__func__, hDev, hKey,
                            [&] { return SKF_EncryptFinal(hKey, pbEncryptedData, pulEncryptedLen); });
}

TWF_EXPORT ULONG TWF_DecryptInit(DEVHANDLE hDev, HANDLE hKey, BLOCKCIPHERPARAM *pParam, ULONG ulParamLen)
{
    return TwfCall::through(__func__, hDev, hKey, [&] {
        return withParam(pParam, ulParamLen, [&](const BLOCKCIPHERPARAM &p) { return SKF_DecryptInit(hKey, p); });
    });
}

TWF_EXPORT ULONG TWF_Decrypt(DEVHANDLE hDev, HANDLE hKey, BYTE *pbEncryptedData, ULONG ulEncryptedLen, BYTE *pbData,
                             ULONG *pulDataLen)
{
    return TwfCall::through(__func__, hDev, hKey,
                            [&] { return SKF_Decrypt(hKey, pbEncryptedData, ulEncryptedLen, pbData, pulDataLen); });
}

TWF_EXPORT ULONG TWF_DecryptUpdate(DEVHANDLE hDev, HANDLE hKey, BYTE *pbEncryptedData, ULONG ulEncryptedLen,
                                   BYTE *pbData, ULONG *pulDataLen)
{
    return TwfCall::through(__func__, hDev, hKey, [&] {
        return SKF_DecryptUpdate(hKey, pbEncryptedData, ulEncryptedLen, pbData, pulDataLen);
    });
}

TWF_EXPORT ULONG TWF_DecryptFinal(DEVHANDLE hDev, HANDLE hKey, BYTE *pbData, ULONG *pulDataLen)
{
    return TwfCall::through(__func__, hDev, hKey, [&] { return SKF_DecryptFinal(hKey, pbData, pulDataLen); });
}

TWF_EXPORT ULONG TWF_DigestInit(DEVHANDLE hDev, ULONG ulAlgID, ECCPUBLICKEYBLOB *pPubKey, ULONG ulPubKeyLen,
                                BYTE *pbID, ULONG ulIDLen, HANDLE *phHash)
{
    TwfCall call(__func__);
    // No length means no public key, whatever the pointer.
    if (ulPubKeyLen != 0 && !whole(pPubKey, ulPubKeyLen, SKF_ECCPUBLICKEYBLOB_SIZE))
        return SAR_INVALIDPARAMERR;
    return SKF_DigestInit(call.connectionOf(hDev), ulAlgID, ulPubKeyLen ? pPubKey : nullptr, pbID, ulIDLen, phHash);
}

TWF_EXPORT ULONG TWF_Digest(DEVHANDLE hDev, HANDLE hHash, BYTE *pbData, ULONG ulDataLen, BYTE *pbHashData,
                            ULONG *pulHashLen)
{
    return TwfCall::through(__func__, hDev, hHash,
                            [&] { return SKF_Digest(hHash, pbData, ulDataLen, pbHashData, pulHashLen); });
}

TWF_EXPORT ULONG TWF_DigestUpdate(DEVHANDLE hDev, HANDLE hHash, BYTE *pbData, ULONG ulDataLen)
{
    return TwfCall::through(__func__, hDev, hHash, [&] { return SKF_DigestUpdate(hHash, pbData, ulDataLen); });
}

TWF_EXPORT ULONG TWF_DigestFinal(DEVHANDLE hDev, HANDLE hHash, BYTE *pbHashData, ULONG *pulHashLen)
{
    return TwfCall::through(__func__, hDev, hHash, [&] { return SKF_DigestFinal(hHash, pbHashData, pulHashLen); });
}

TWF_EXPORT ULONG TWF_MacInit(DEVHANDLE hDev, HANDLE hKey, BLOCKCIPHERPARAM *pParam, ULONG ulParamLen, HANDLE *phMac)
{
    return TwfCall::through(__func__, hDev, hKey, [&] {
        return withParam(pParam, ulParamLen, [&](const BLOCKCIPHERPARAM &p) {
            BLOCKCIPHERPARAM copy = p;
            return SKF_MacInit(hKey, &copy, phMac);
        });
    });
}

TWF_EXPORT ULONG TWF_Mac(DEVHANDLE hDev, HANDLE hMac, BYTE *pbData, ULONG ulDataLen, BYTE *pbMacData,
                         ULONG *pulMacLen)
{
    return TwfCall::through(__func__, hDev, hMac,
                            [&] { return SKF_Mac(hMac, pbData, ulDataLen, pbMacData, pulMacLen); });
}

TWF_EXPORT ULONG TWF_MacUpdate(DEVHANDLE hDev, HANDLE hMac, BYTE *pbData, ULONG ulDataLen)
{
    return TwfCall::through(__func__, hDev, hMac, [&] { return SKF_MacUpdate(hMac, pbData, ulDataLen); });
}

TWF_EXPORT ULONG TWF_MacFinal(DEVHANDLE hDev, HANDLE hMac, BYTE *pbMacData, ULONG *pulMacLen)
{
    return TwfCall::through(__func__, hDev, hMac, [&] { return SKF_MacFinal(hMac, pbMacData, pulMacLen); });
}

TWF_EXPORT ULONG TWF_CloseHandle(DEVHANDLE hDev, HANDLE hHandle)
{
    return TwfCall::through(__func__, hDev, hHandle, [&] { return SKF_CloseHandle(hHandle); });
}

TWF_EXPORT ULONG TWF_ECCExportSessionKey(DEVHANDLE hDev, HCONTAINER hContainer, ULONG ulAlgId,
                                         ECCPUBLICKEYBLOB *pPubKey, ULONG ulPubKeyLen, ECCCIPHERBLOB *pData,
                                         ULONG *pulDataLen, HANDLE *phSessionKey)
{
    if (!whole(pPubKey, ulPubKeyLen, SKF_ECCPUBLICKEYBLOB_SIZE))
        return SAR_INVALIDPARAMERR;
    const ULONG size = BlobCodec::CipherHeader + TokenCrypto::Sm4KeySize;
    return TwfCall::fixedSize(__func__, hDev, hContainer, size, pData, pulDataLen, [&] {
        return SKF_ECCExportSessionKey(hContainer, ulAlgId, pPubKey, pData, phSessionKey);
    });
}

TWF_EXPORT ULONG TWEPS_ImportSymmKey(DEVHANDLE hDev, HCONTAINER hContainer, ULONG ulKeyIndex, BYTE *pbEncData,
                                     ULONG ulEncDataLen, ULONG ulFlags)
{
    return TwfCall::through(__func__, hDev, hContainer, [&] {
        return EPS_ImportSymmKey(hContainer, ulKeyIndex, pbEncData, ulEncDataLen, ulFlags);
    });
}

TWF_EXPORT ULONG TWEPS_WriteESealData(DEVHANDLE hDev, BYTE *pbData, ULONG ulDataSize, ULONG ulFlags)
{
    return EPS_WriteESealData(hDev, pbData, ulDataSize, ulFlags);
}

TWF_EXPORT ULONG TWEPS_ReadESealData(DEVHANDLE hDev, ULONG ulKeyIndex, ULONG ulKeyAlgId, BYTE *pbData,
                                     ULONG *pulDataLen, ULONG ulFlags)
{
    return EPS_ReadESealData(hDev, ulKeyIndex, ulKeyAlgId, pbData, pulDataLen, ulFlags);
}
