#include "skftokenapi.h"

#include <cstring>

#include "skf/keydriverskf.h"

SkfTokenApi::SkfTokenApi(KeyDriverSKF *driver) : m_driver(driver) {}

bool SkfTokenApi::bound() const
{
    return m_driver != nullptr;
}

bool SkfTokenApi::has(Optional function) const
{
    if (!m_driver)
        return false;
    switch (function) {
    case EpsImportSymmKey:
        return m_driver->pEPS_ImportSymmKey != nullptr;
    case EpsReadESealData:
        return m_driver->pEPS_ReadESealData != nullptr;
    case EpsWriteESealData:
        return m_driver->pEPS_WriteESealData != nullptr;
    case EccExportSessionKey:
        return m_driver->pSKF_ECCExportSessionKey != nullptr;
    }
    return false;
}

bool SkfTokenApi::scoped() const
{
    return app() != nullptr;
}

ULONG SkfTokenApi::connectDev(LPSTR name, DEVHANDLE *handle)
{
    return m_driver->pSKF_ConnectDev(name, handle);
}

ULONG SkfTokenApi::disconnectDev()
{
    return m_driver->pSKF_DisConnectDev(dev());
}

ULONG SkfTokenApi::getDevInfo(DEVINFO *info)
{
    return m_driver->pSKF_GetDevInfo(dev(), info);
}

ULONG SkfTokenApi::setLabel(LPSTR label)
{
    return m_driver->pSKF_SetLabel(dev(), label);
}

ULONG SkfTokenApi::genRandom(BYTE *random, ULONG length)
{
    return m_driver->pSKF_GenRandom(dev(), random, length);
}

ULONG SkfTokenApi::enumApplication(LPSTR names, ULONG *size)
{
    return m_driver->pSKF_EnumApplication(dev(), names, size);
}

ULONG SkfTokenApi::openApplication(LPSTR name, HAPPLICATION *handle)
{
    return m_driver->pSKF_OpenApplication(dev(), name, handle);
}

ULONG SkfTokenApi::closeApplication()
{
    return m_driver->pSKF_CloseApplication(app());
}

ULONG SkfTokenApi::changePIN(ULONG type, LPSTR oldPin, LPSTR newPin, ULONG *retryCount)
{
    return m_driver->pSKF_ChangePIN(app(), type, oldPin, newPin, retryCount);
}

ULONG SkfTokenApi::getPINInfo(ULONG type, ULONG *maxRetry, ULONG *remainRetry, BOOL *isDefault)
{
    return m_driver->pSKF_GetPINInfo(app(), type, maxRetry, remainRetry, isDefault);
}

ULONG SkfTokenApi::verifyPIN(ULONG type, LPSTR pin, ULONG *retryCount)
{
    return m_driver->pSKF_VerifyPIN(app(), type, pin, retryCount);
}

ULONG SkfTokenApi::unblockPIN(LPSTR adminPin, LPSTR newUserPin, ULONG *retryCount)
{
    return m_driver->pSKF_UnblockPIN(app(), adminPin, newUserPin, retryCount);
}

ULONG SkfTokenApi::createFile(LPSTR name, ULONG size, ULONG readRights, ULONG writeRights)
{
    return m_driver->pSKF_CreateFile(app(), name, size, readRights, writeRights);
}

ULONG SkfTokenApi::deleteFile(LPSTR name)
{
    return m_driver->pSKF_DeleteFile(app(), name);
}

ULONG SkfTokenApi::enumFiles(LPSTR names, ULONG *size)
{
    return m_driver->pSKF_EnumFiles(app(), names, size);
}

ULONG SkfTokenApi::getFileInfo(LPSTR name, FILEATTRIBUTE *info)
{
    return m_driver->pSKF_GetFileInfo(app(), name, info);
}

ULONG SkfTokenApi::fileExists(LPSTR name)
{
    FILEATTRIBUTE attributes;
    std::memset(&attributes, 0, sizeof(attributes));
    return m_driver->pSKF_GetFileInfo(app(), name, &attributes);
}

ULONG SkfTokenApi::readFile(LPSTR name, ULONG offset, ULONG size, BYTE *out, ULONG *outLength)
{
    return m_driver->pSKF_ReadFile(app(), name, offset, size, out, outLength);
}

ULONG SkfTokenApi::writeFile(LPSTR name, ULONG offset, BYTE *data, ULONG size)
{
    return m_driver->pSKF_WriteFile(app(), name, offset, data, size);
}

ULONG SkfTokenApi::createContainer(LPSTR name, HCONTAINER *container)
{
    return m_driver->pSKF_CreateContainer(app(), name, container);
}

ULONG SkfTokenApi::deleteContainer(LPSTR name)
{
    return m_driver->pSKF_DeleteContainer(app(), name);
}

ULONG SkfTokenApi::enumContainer(LPSTR names, ULONG *size)
{
    return m_driver->pSKF_EnumContainer(app(), names, size);
}

ULONG SkfTokenApi::openContainer(LPSTR name, HCONTAINER *container)
{
    return m_driver->pSKF_OpenContainer(app(), name, container);
}

ULONG SkfTokenApi::closeContainer(HCONTAINER container)
{
    return m_driver->pSKF_CloseContainer(container);
}

ULONG SkfTokenApi::getContainerType(HCONTAINER container, ULONG *type)
{
    return m_driver->pSKF_GetContainerType(container, type);
}

ULONG SkfTokenApi::importCertificate(HCONTAINER container, BOOL signFlag, BYTE *cert, ULONG length)
{
    return m_driver->pSKF_ImportCertificate(container, signFlag, cert, length);
}

ULONG SkfTokenApi::exportCertificate(HCONTAINER container, BOOL signFlag, BYTE *cert, ULONG *length)
{
    return m_driver->pSKF_ExportCertificate(container, signFlag, cert, length);
}

ULONG SkfTokenApi::genRSAKeyPair(HCONTAINER container, ULONG bits, RSAPUBLICKEYBLOB *blob, ULONG *)
{
    return m_driver->pSKF_GenRSAKeyPair(container, bits, blob);
}

ULONG SkfTokenApi::importRSAKeyPair(HCONTAINER container, ULONG symAlgId, BYTE *wrappedKey, ULONG wrappedKeyLength,
                                    BYTE *encryptedData, ULONG encryptedDataLength)
{
    return m_driver->pSKF_ImportRSAKeyPair(container, symAlgId, wrappedKey, wrappedKeyLength, encryptedData,
                                           encryptedDataLength);
}

ULONG SkfTokenApi::rsaSignData(HCONTAINER container, BYTE *data, ULONG length, BYTE *signature,
                               ULONG *signatureLength)
{
    return m_driver->pSKF_RSASignData(container, data, length, signature, signatureLength);
}

ULONG SkfTokenApi::rsaVerify(RSAPUBLICKEYBLOB *key, ULONG, BYTE *data, ULONG length, BYTE *signature,
                             ULONG signatureLength)
{
    return m_driver->pSKF_RSAVerify(dev(), key, data, length, signature, signatureLength);
}

ULONG SkfTokenApi::genECCKeyPair(HCONTAINER container, ULONG algId, ECCPUBLICKEYBLOB *blob, ULONG *)
{
    return m_driver->pSKF_GenECCKeyPair(container, algId, blob);
}

ULONG SkfTokenApi::importECCKeyPair(HCONTAINER container, PENVELOPEDKEYBLOB blob, ULONG)
{
    return m_driver->pSKF_ImportECCKeyPair(container, blob);
}

ULONG SkfTokenApi::eccSignData(HCONTAINER container, BYTE *data, ULONG length, PECCSIGNATUREBLOB signature, ULONG *)
{
    return m_driver->pSKF_ECCSignData(container, data, length, signature);
}

ULONG SkfTokenApi::eccVerify(ECCPUBLICKEYBLOB *key, ULONG, BYTE *data, ULONG length, PECCSIGNATUREBLOB signature,
                             ULONG)
{
    return m_driver->pSKF_ECCVerify(dev(), key, data, length, signature);
}

ULONG SkfTokenApi::eccExportSessionKey(HCONTAINER container, ULONG algId, ECCPUBLICKEYBLOB *key, ULONG,
                                       PECCCIPHERBLOB cipher, ULONG *, HANDLE *sessionKey)
{
    return m_driver->pSKF_ECCExportSessionKey(container, algId, key, cipher, sessionKey);
}

ULONG SkfTokenApi::exportPublicKey(HCONTAINER container, BOOL signFlag, BYTE *blob, ULONG *blobLength)
{
    return m_driver->pSKF_ExportPublicKey(container, signFlag, blob, blobLength);
}

ULONG SkfTokenApi::importSessionKey(HCONTAINER container, ULONG algId, BYTE *wrapped, ULONG length, HANDLE *key)
{
    return m_driver->pSKF_ImportSessionKey(container, algId, wrapped, length, key);
}

ULONG SkfTokenApi::encryptInit(HANDLE key, BLOCKCIPHERPARAM *param, ULONG)
{
    return m_driver->pSKF_EncryptInit(key, *param);
}

ULONG SkfTokenApi::encrypt(HANDLE key, BYTE *data, ULONG length, BYTE *out, ULONG *outLength)
{
    return m_driver->pSKF_Encrypt(key, data, length, out, outLength);
}

ULONG SkfTokenApi::decryptInit(HANDLE key, BLOCKCIPHERPARAM *param, ULONG)
{
    return m_driver->pSKF_DecryptInit(key, *param);
}

ULONG SkfTokenApi::decrypt(HANDLE key, BYTE *data, ULONG length, BYTE *out, ULONG *outLength)
{
    return m_driver->pSKF_Decrypt(key, data, length, out, outLength);
}

ULONG SkfTokenApi::digestInit(ULONG algId, ECCPUBLICKEYBLOB *key, ULONG, BYTE *id, ULONG idLength, HANDLE *hash)
{
    return m_driver->pSKF_DigestInit(dev(), algId, key, id, idLength, hash);
}

ULONG SkfTokenApi::digest(HANDLE hash, BYTE *data, ULONG length, BYTE *out, ULONG *outLength)
{
    return m_driver->pSKF_Digest(hash, data, length, out, outLength);
}

ULONG SkfTokenApi::closeHandle(HANDLE handle)
{
    return m_driver->pSKF_CloseHandle(handle);
}

ULONG SkfTokenApi::epsImportSymmKey(HCONTAINER container, ULONG keyIndex, BYTE *data, ULONG length, ULONG flags)
{
    return m_driver->pEPS_ImportSymmKey(container, keyIndex, data, length, flags);
}

ULONG SkfTokenApi::epsReadESealData(ULONG keyIndex, ULONG keyAlgId, BYTE *out, ULONG *outLength, ULONG flags)
{
    return m_driver->pEPS_ReadESealData(app(), keyIndex, keyAlgId, out, outLength, flags);
}

ULONG SkfTokenApi::epsWriteESealData(BYTE *data, ULONG size, ULONG flags)
{
    return m_driver->pEPS_WriteESealData(app(), data, size, flags);
}
