#ifndef TWKEY_TOKENAPI_H
#define TWKEY_TOKENAPI_H

#include <QString>

#include "skf/skfapi.h"

// What a session asks of a token library, one method per library call, in
// the SKF form with the scope handle left out: the adapter adds the
// session's application or device handle itself. Arguments that SKF does
// not take (blob lengths, the capacity of fixed-size outputs, a cipher
// parameter by pointer, the public key's length) are given all the same,
// for libraries that want them; an SKF library ignores them.
class TokenApi
{
public:
    // Functions a library may lack.
    enum Optional { EpsImportSymmKey, EpsReadESealData, EpsWriteESealData, EccExportSessionKey };

    virtual ~TokenApi();

    // The session's handles, read at each call.
    void attach(const DEVHANDLE *dev, const HAPPLICATION *app);

    // The function table is there.
    virtual bool bound() const = 0;
    virtual bool has(Optional function) const = 0;
    // The handle that application-level calls go to is set.
    virtual bool scoped() const = 0;
    // A key or hash handle can be used: not null, and whatever else the
    // library needs beside it.
    virtual bool handleUsable(HANDLE handle) const { return handle != nullptr; }
    // A fixed text of the session (a log line, a failure text) in the
    // library's own words, and whether reword() changes a text at all.
    virtual QString reword(const QString &text) const { return text; }
    virtual bool rewords(const char * /*text*/) const { return false; }

    // What the " end . app is null" guard tests.
    bool ready() const { return scoped() && bound(); }
    // What the " end . dev is null" guard tests.
    bool devReady() const { return dev() && bound(); }

    virtual ULONG connectDev(LPSTR name, DEVHANDLE *handle) = 0;
    virtual ULONG disconnectDev() = 0;
    virtual ULONG getDevInfo(DEVINFO *info) = 0;
    virtual ULONG setLabel(LPSTR label) = 0;
    virtual ULONG genRandom(BYTE *random, ULONG length) = 0;
    virtual ULONG enumApplication(LPSTR names, ULONG *size) = 0;
    virtual ULONG openApplication(LPSTR name, HAPPLICATION *handle) = 0;
    virtual ULONG closeApplication() = 0;

    virtual ULONG changePIN(ULONG type, LPSTR oldPin, LPSTR newPin, ULONG *retryCount) = 0;
    virtual ULONG getPINInfo(ULONG type, ULONG *maxRetry, ULONG *remainRetry, BOOL *isDefault) = 0;
    virtual ULONG verifyPIN(ULONG type, LPSTR pin, ULONG *retryCount) = 0;
    virtual ULONG unblockPIN(LPSTR adminPin, LPSTR newUserPin, ULONG *retryCount) = 0;

    virtual ULONG createFile(LPSTR name, ULONG size, ULONG readRights, ULONG writeRights) = 0;
    virtual ULONG deleteFile(LPSTR name) = 0;
    virtual ULONG enumFiles(LPSTR names, ULONG *size) = 0;
    virtual ULONG getFileInfo(LPSTR name, FILEATTRIBUTE *info) = 0;
    // 0 when the file exists.
    virtual ULONG fileExists(LPSTR name) = 0;
    virtual ULONG readFile(LPSTR name, ULONG offset, ULONG size, BYTE *out, ULONG *outLength) = 0;
    virtual ULONG writeFile(LPSTR name, ULONG offset, BYTE *data, ULONG size) = 0;

    virtual ULONG createContainer(LPSTR name, HCONTAINER *container) = 0;
    virtual ULONG deleteContainer(LPSTR name) = 0;
    virtual ULONG enumContainer(LPSTR names, ULONG *size) = 0;
    virtual ULONG openContainer(LPSTR name, HCONTAINER *container) = 0;
    virtual ULONG closeContainer(HCONTAINER container) = 0;
    virtual ULONG getContainerType(HCONTAINER container, ULONG *type) = 0;
    virtual ULONG importCertificate(HCONTAINER container, BOOL signFlag, BYTE *cert, ULONG length) = 0;
    virtual ULONG exportCertificate(HCONTAINER container, BOOL signFlag, BYTE *cert, ULONG *length) = 0;

    virtual ULONG genRSAKeyPair(HCONTAINER container, ULONG bits, RSAPUBLICKEYBLOB *blob, ULONG *blobLength) = 0;
    virtual ULONG importRSAKeyPair(HCONTAINER container, ULONG symAlgId, BYTE *wrappedKey, ULONG wrappedKeyLength,
                                   BYTE *encryptedData, ULONG encryptedDataLength) = 0;
    virtual ULONG rsaSignData(HCONTAINER container, BYTE *data, ULONG length, BYTE *signature,
                              ULONG *signatureLength) = 0;
    virtual ULONG rsaVerify(RSAPUBLICKEYBLOB *key, ULONG keyLength, BYTE *data, ULONG length, BYTE *signature,
                            ULONG signatureLength) = 0;
    virtual ULONG genECCKeyPair(HCONTAINER container, ULONG algId, ECCPUBLICKEYBLOB *blob, ULONG *blobLength) = 0;
    virtual ULONG importECCKeyPair(HCONTAINER container, PENVELOPEDKEYBLOB blob, ULONG blobLength) = 0;
    virtual ULONG eccSignData(HCONTAINER container, BYTE *data, ULONG length, PECCSIGNATUREBLOB signature,
                              ULONG *signatureLength) = 0;
    virtual ULONG eccVerify(ECCPUBLICKEYBLOB *key, ULONG keyLength, BYTE *data, ULONG length,
                            PECCSIGNATUREBLOB signature, ULONG signatureLength) = 0;
    virtual ULONG eccExportSessionKey(HCONTAINER container, ULONG algId, ECCPUBLICKEYBLOB *key, ULONG keyLength,
                                      PECCCIPHERBLOB cipher, ULONG *cipherLength, HANDLE *sessionKey) = 0;
    virtual ULONG exportPublicKey(HCONTAINER container, BOOL signFlag, BYTE *blob, ULONG *blobLength) = 0;

    virtual ULONG importSessionKey(HCONTAINER container, ULONG algId, BYTE *wrapped, ULONG length, HANDLE *key) = 0;
    virtual ULONG encryptInit(HANDLE key, BLOCKCIPHERPARAM *param, ULONG paramLength) = 0;
    virtual ULONG encrypt(HANDLE key, BYTE *data, ULONG length, BYTE *out, ULONG *outLength) = 0;
    virtual ULONG decryptInit(HANDLE key, BLOCKCIPHERPARAM *param, ULONG paramLength) = 0;
    virtual ULONG decrypt(HANDLE key, BYTE *data, ULONG length, BYTE *out, ULONG *outLength) = 0;
    virtual ULONG digestInit(ULONG algId, ECCPUBLICKEYBLOB *key, ULONG keyLength, BYTE *id, ULONG idLength,
                             HANDLE *hash) = 0;
    virtual ULONG digest(HANDLE hash, BYTE *data, ULONG length, BYTE *out, ULONG *outLength) = 0;
    virtual ULONG closeHandle(HANDLE handle) = 0;

    virtual ULONG epsImportSymmKey(HCONTAINER container, ULONG keyIndex, BYTE *data, ULONG length, ULONG flags) = 0;
    virtual ULONG epsReadESealData(ULONG keyIndex, ULONG keyAlgId, BYTE *out, ULONG *outLength, ULONG flags) = 0;
    virtual ULONG epsWriteESealData(BYTE *data, ULONG size, ULONG flags) = 0;

protected:
    DEVHANDLE dev() const { return m_dev ? *m_dev : nullptr; }
    HAPPLICATION app() const { return m_app ? *m_app : nullptr; }

private:
    const DEVHANDLE *m_dev = nullptr;
    const HAPPLICATION *m_app = nullptr;
};

#endif
