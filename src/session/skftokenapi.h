#ifndef TWKEY_SKFTOKENAPI_H
#define TWKEY_SKFTOKENAPI_H

#include "tokenapi.h"

class KeyDriverSKF;

// A token library bound by KeyDriverSKF: application-level calls go to the
// session's application, device-level ones to its device.
class SkfTokenApi : public TokenApi
{
public:
    explicit SkfTokenApi(KeyDriverSKF *driver);

    bool bound() const override;
    bool has(Optional function) const override;
    bool scoped() const override;

    ULONG connectDev(LPSTR name, DEVHANDLE *handle) override;
    ULONG disconnectDev() override;
    ULONG getDevInfo(DEVINFO *info) override;
    ULONG setLabel(LPSTR label) override;
    ULONG genRandom(BYTE *random, ULONG length) override;
    ULONG enumApplication(LPSTR names, ULONG *size) override;
    ULONG openApplication(LPSTR name, HAPPLICATION *handle) override;
    ULONG closeApplication() override;
    ULONG changePIN(ULONG type, LPSTR oldPin, LPSTR newPin, ULONG *retryCount) override;
    ULONG getPINInfo(ULONG type, ULONG *maxRetry, ULONG *remainRetry, BOOL *isDefault) override;
    ULONG verifyPIN(ULONG type, LPSTR pin, ULONG *retryCount) override;
    ULONG unblockPIN(LPSTR adminPin, LPSTR newUserPin, ULONG *retryCount) override;
    ULONG createFile(LPSTR name, ULONG size, ULONG readRights, ULONG writeRights) override;
    ULONG deleteFile(LPSTR name) override;
    ULONG enumFiles(LPSTR names, ULONG *size) override;
    ULONG getFileInfo(LPSTR name, FILEATTRIBUTE *info) override;
    ULONG fileExists(LPSTR name) override;
    ULONG readFile(LPSTR name, ULONG offset, ULONG size, BYTE *out, ULONG *outLength) override;
    ULONG writeFile(LPSTR name, ULONG offset, BYTE *data, ULONG size) override;
    ULONG createContainer(LPSTR name, HCONTAINER *container) override;
    ULONG deleteContainer(LPSTR name) override;
    ULONG enumContainer(LPSTR names, ULONG *size) override;
    ULONG openContainer(LPSTR name, HCONTAINER *container) override;
    ULONG closeContainer(HCONTAINER container) override;
    ULONG getContainerType(HCONTAINER container, ULONG *type) override;
    ULONG importCertificate(HCONTAINER container, BOOL signFlag, BYTE *cert, ULONG length) override;
    ULONG exportCertificate(HCONTAINER container, BOOL signFlag, BYTE *cert, ULONG *length) override;
    ULONG genRSAKeyPair(HCONTAINER container, ULONG bits, RSAPUBLICKEYBLOB *blob, ULONG *blobLength) override;
    ULONG importRSAKeyPair(HCONTAINER container, ULONG symAlgId, BYTE *wrappedKey, ULONG wrappedKeyLength,
                           BYTE *encryptedData, ULONG encryptedDataLength) override;
    ULONG rsaSignData(HCONTAINER container, BYTE *data, ULONG length, BYTE *signature, ULONG *signatureLength) override;
    ULONG rsaVerify(RSAPUBLICKEYBLOB *key, ULONG keyLength, BYTE *data, ULONG length, BYTE *signature,
                    ULONG signatureLength) override;
    ULONG genECCKeyPair(HCONTAINER container, ULONG algId, ECCPUBLICKEYBLOB *blob, ULONG *blobLength) override;
    ULONG importECCKeyPair(HCONTAINER container, PENVELOPEDKEYBLOB blob, ULONG blobLength) override;
    ULONG eccSignData(HCONTAINER container, BYTE *data, ULONG length, PECCSIGNATUREBLOB signature,
                      ULONG *signatureLength) override;
    ULONG eccVerify(ECCPUBLICKEYBLOB *key, ULONG keyLength, BYTE *data, ULONG length, PECCSIGNATUREBLOB signature,
                    ULONG signatureLength) override;
    ULONG eccExportSessionKey(HCONTAINER container, ULONG algId, ECCPUBLICKEYBLOB *key, ULONG keyLength,
                              PECCCIPHERBLOB cipher, ULONG *cipherLength, HANDLE *sessionKey) override;
    ULONG exportPublicKey(HCONTAINER container, BOOL signFlag, BYTE *blob, ULONG *blobLength) override;
    ULONG importSessionKey(HCONTAINER container, ULONG algId, BYTE *wrapped, ULONG length, HANDLE *key) override;
    ULONG encryptInit(HANDLE key, BLOCKCIPHERPARAM *param, ULONG paramLength) override;
    ULONG encrypt(HANDLE key, BYTE *data, ULONG length, BYTE *out, ULONG *outLength) override;
    ULONG decryptInit(HANDLE key, BLOCKCIPHERPARAM *param, ULONG paramLength) override;
    ULONG decrypt(HANDLE key, BYTE *data, ULONG length, BYTE *out, ULONG *outLength) override;
    ULONG digestInit(ULONG algId, ECCPUBLICKEYBLOB *key, ULONG keyLength, BYTE *id, ULONG idLength,
                     HANDLE *hash) override;
    ULONG digest(HANDLE hash, BYTE *data, ULONG length, BYTE *out, ULONG *outLength) override;
    ULONG closeHandle(HANDLE handle) override;
    ULONG epsImportSymmKey(HCONTAINER container, ULONG keyIndex, BYTE *data, ULONG length, ULONG flags) override;
    ULONG epsReadESealData(ULONG keyIndex, ULONG keyAlgId, BYTE *out, ULONG *outLength, ULONG flags) override;
    ULONG epsWriteESealData(BYTE *data, ULONG size, ULONG flags) override;

private:
    KeyDriverSKF *m_driver;
};

#endif
