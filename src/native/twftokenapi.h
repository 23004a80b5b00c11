#ifndef TWKEY_TWFTOKENAPI_H
#define TWKEY_TWFTOKENAPI_H

#include "keydrivertwf.h"
#include "session/tokenapi.h"

// A native library bound by KeyDriverTWF. It has no application layer:
// every call goes to the session's device, which comes first, and a
// container, key or hash handle follows it.
class TwfTokenApi : public TokenApi
{
public:
    explicit TwfTokenApi(KeyDriverTWF *driver);

    // The device stands where SKF has the application.
    bool scoped() const override;
    bool handleUsable(HANDLE handle) const override;
    QString reword(const QString &text) const override;
    bool rewords(const char *text) const override;
    bool bound() const override;
    bool has(Optional function) const override;

    // What the native library has no function for.
    ULONG getDevInfo(DEVINFO *) override { return SAR_NOTSUPPORTYETERR; }
    ULONG setLabel(LPSTR) override { return SAR_NOTSUPPORTYETERR; }
    ULONG genRandom(BYTE *, ULONG) override { return SAR_NOTSUPPORTYETERR; }
    ULONG enumApplication(LPSTR, ULONG *) override { return SAR_NOTSUPPORTYETERR; }
    ULONG openApplication(LPSTR, HAPPLICATION *) override { return SAR_NOTSUPPORTYETERR; }
    ULONG closeApplication() override { return SAR_NOTSUPPORTYETERR; }
    ULONG getFileInfo(LPSTR, FILEATTRIBUTE *) override { return SAR_NOTSUPPORTYETERR; }

    // The rest, one library function each.
    ULONG connectDev(LPSTR n, DEVHANDLE *h) override { return d->pTWF_ConnectDev(n, h); }
    ULONG disconnectDev() override { return d->pTWF_DisConnectDev(dev()); }
    ULONG changePIN(ULONG t, LPSTR o, LPSTR n, ULONG *r) override { return d->pTWF_ChangePIN(dev(), t, o, n, r); }
    ULONG getPINInfo(ULONG t, ULONG *m, ULONG *r, BOOL *i) override { return d->pTWF_GetPINInfo(dev(), t, m, r, i); }
    ULONG verifyPIN(ULONG t, LPSTR p, ULONG *r) override { return d->pTWF_VerifyPIN(dev(), t, p, r); }
    ULONG unblockPIN(LPSTR a, LPSTR u, ULONG *r) override { return d->pTWF_UnblockPIN(dev(), a, u, r); }
    ULONG createFile(LPSTR n, ULONG s, ULONG r, ULONG w) override { return d->pTWF_CreateFile(dev(), n, s, r, w); }
    ULONG deleteFile(LPSTR n) override { return d->pTWF_DeleteFile(dev(), n); }
    ULONG enumFiles(LPSTR n, ULONG *s) override { return d->pTWF_EnumFiles(dev(), n, s); }
    ULONG fileExists(LPSTR n) override { return d->pTWF_IsFileExist(dev(), n); }
    ULONG readFile(LPSTR n, ULONG o, ULONG s, BYTE *b, ULONG *l) override
    {
        return d->pTWF_ReadFile(dev(), n, o, s, b, l);
    }
    ULONG writeFile(LPSTR n, ULONG o, BYTE *b, ULONG s) override { return d->pTWF_WriteFile(dev(), n, o, b, s); }
    ULONG createContainer(LPSTR n, HCONTAINER *c) override { return d->pTWF_CreateContainer(dev(), n, c); }
    ULONG deleteContainer(LPSTR n) override { return d->pTWF_DeleteContainer(dev(), n); }
    ULONG enumContainer(LPSTR n, ULONG *s) override { return d->pTWF_EnumContainer(dev(), n, s); }
    ULONG openContainer(LPSTR n, HCONTAINER *c) override { return d->pTWF_OpenContainer(dev(), n, c); }
    ULONG closeContainer(HCONTAINER c) override { return d->pTWF_CloseContainer(dev(), c); }
    ULONG getContainerType(HCONTAINER c, ULONG *t) override { return d->pTWF_GetContainerType(dev(), c, t); }
    ULONG importCertificate(HCONTAINER c, BOOL f, BYTE *b, ULONG l) override
    {
        return d->pTWF_ImportCertificate(dev(), c, f, b, l);
    }
    ULONG exportCertificate(HCONTAINER c, BOOL f, BYTE *b, ULONG *l) override
    {
        return d->pTWF_ExportCertificate(dev(), c, f, b, l);
    }
    ULONG genRSAKeyPair(HCONTAINER c, ULONG bits, RSAPUBLICKEYBLOB *b, ULONG *l) override
    {
        return d->pTWF_GenRSAKeyPair(dev(), c, bits, b, l);
    }
    ULONG importRSAKeyPair(HCONTAINER c, ULONG a, BYTE *w, ULONG wl, BYTE *e, ULONG el) override
    {
        return d->pTWF_ImportRSAKeyPair(dev(), c, a, w, wl, e, el);
    }
    ULONG rsaSignData(HCONTAINER c, BYTE *b, ULONG l, BYTE *s, ULONG *sl) override
    {
        return d->pTWF_RSASignData(dev(), c, b, l, s, sl);
    }
    ULONG rsaVerify(RSAPUBLICKEYBLOB *k, ULONG kl, BYTE *b, ULONG l, BYTE *s, ULONG sl) override
    {
        return d->pTWF_RSAVerify(dev(), k, kl, b, l, s, sl);
    }
    ULONG genECCKeyPair(HCONTAINER c, ULONG a, ECCPUBLICKEYBLOB *b, ULONG *l) override
    {
        return d->pTWF_GenECCKeyPair(dev(), c, a, b, l);
    }
    ULONG importECCKeyPair(HCONTAINER c, PENVELOPEDKEYBLOB b, ULONG l) override
    {
        return d->pTWF_ImportECCKeyPair(dev(), c, b, l);
    }
    ULONG eccSignData(HCONTAINER c, BYTE *b, ULONG l, PECCSIGNATUREBLOB s, ULONG *sl) override
    {
        return d->pTWF_ECCSignData(dev(), c, b, l, s, sl);
    }
    ULONG eccVerify(ECCPUBLICKEYBLOB *k, ULONG kl, BYTE *b, ULONG l, PECCSIGNATUREBLOB s, ULONG sl) override
    {
        return d->pTWF_ECCVerify(dev(), k, kl, b, l, s, sl);
    }
    ULONG eccExportSessionKey(HCONTAINER c, ULONG a, ECCPUBLICKEYBLOB *k, ULONG kl, PECCCIPHERBLOB b, ULONG *bl,
                              HANDLE *key) override
    {
        return d->pTWF_ECCExportSessionKey(dev(), c, a, k, kl, b, bl, key);
    }
    ULONG exportPublicKey(HCONTAINER c, BOOL f, BYTE *b, ULONG *l) override
    {
        return d->pTWF_ExportPublicKey(dev(), c, f, b, l);
    }
    ULONG importSessionKey(HCONTAINER c, ULONG a, BYTE *w, ULONG l, HANDLE *key) override
    {
        return d->pTWF_ImportSessionKey(dev(), c, a, w, l, key);
    }
    ULONG encryptInit(HANDLE k, BLOCKCIPHERPARAM *p, ULONG l) override { return d->pTWF_EncryptInit(dev(), k, p, l); }
    ULONG encrypt(HANDLE k, BYTE *b, ULONG l, BYTE *o, ULONG *ol) override
    {
        return d->pTWF_Encrypt(dev(), k, b, l, o, ol);
    }
    ULONG decryptInit(HANDLE k, BLOCKCIPHERPARAM *p, ULONG l) override { return d->pTWF_DecryptInit(dev(), k, p, l); }
    ULONG decrypt(HANDLE k, BYTE *b, ULONG l, BYTE *o, ULONG *ol) override
    {
        return d->pTWF_Decrypt(dev(), k, b, l, o, ol);
    }
    ULONG digestInit(ULONG a, ECCPUBLICKEYBLOB *k, ULONG kl, BYTE *id, ULONG il, HANDLE *h) override
    {
        return d->pTWF_DigestInit(dev(), a, k, kl, id, il, h);
    }
    ULONG digest(HANDLE h, BYTE *b, ULONG l, BYTE *o, ULONG *ol) override
    {
        return d->pTWF_Digest(dev(), h, b, l, o, ol);
    }
    ULONG closeHandle(HANDLE h) override { return d->pTWF_CloseHandle(dev(), h); }
    ULONG epsImportSymmKey(HCONTAINER c, ULONG i, BYTE *b, ULONG l, ULONG f) override
    {
        return d->pTWEPS_ImportSymmKey(dev(), c, i, b, l, f);
    }
    ULONG epsReadESealData(ULONG i, ULONG a, BYTE *o, ULONG *ol, ULONG f) override
    {
        return d->pTWEPS_ReadESealData(dev(), i, a, o, ol, f);
    }
    ULONG epsWriteESealData(BYTE *b, ULONG s, ULONG f) override { return d->pTWEPS_WriteESealData(dev(), b, s, f); }

private:
    KeyDriverTWF *const d;
};

#endif
