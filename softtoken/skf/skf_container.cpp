// Containers, certificates, key pairs, signatures and the asymmetric
// wrapping of session keys.
#include "skfexport.h"

#include "blobcodec.h"
#include "cipherkey.h"
#include "handleregistry.h"
#include "skfcall.h"
#include "tokencrypto.h"

#include <string.h>

namespace {

const int kNameMax = 32;
const int kMaxContainers = 64;
const ULONG kMaxCert = 16 * 1024;

// Frees an OpenSSL key made for one call.
struct OwnedKey {
    EVP_PKEY *key;
    explicit OwnedKey(EVP_PKEY *k) : key(k) {}
    ~OwnedKey() { TokenCrypto::freeKey(key); }
    OwnedKey(const OwnedKey &) = delete;
    OwnedKey &operator=(const OwnedKey &) = delete;
};

// The private key of one of a container's key pairs, of the wanted kind.
ULONG containerKey(SkfCall &call, ContainerObject *c, bool sign, DeviceData::KeyAlg want, EVP_PKEY **out,
                   DeviceData::KeyAlg *alg = nullptr)
{
    const DeviceData::App *a = nullptr;
    const DeviceData::Container *data = nullptr;
    const ULONG rv = call.containerData(c, &a, &data);
    if (rv != SAR_OK)
        return rv;
    const DeviceData::KeyPair &kp = sign ? data->sign : data->enc;
    if (kp.alg == DeviceData::NoKey)
        return SAR_KEYNOTFOUNTERR;
    if (want != DeviceData::NoKey && kp.alg != want)
        return SAR_KEYINFOTYPEERR;
    if (alg)
        *alg = kp.alg;
    *out = call.privateKey(c, sign);
    return *out ? SAR_OK : SAR_KEYNOTFOUNTERR;
}

// Puts a new key pair into a container; a signing key of another kind than
// the container's starts it afresh.
ULONG storeKeyPair(SkfCall &call, ContainerObject *c, bool sign, const DeviceData::KeyPair &kp)
{
    return call.modifyApp(c->app(), [&](DeviceData::App &a, DeviceData &d, bool &persist) -> ULONG {
        persist = false;
        DeviceData::Container *data = a.container(c->name());
        if (!data)
            return TW_ERR_CONTAINER_NOT_EXIST;
        if (sign) {
            if (data->type() != DeviceData::EmptyContainer && data->sign.alg != kp.alg && data->enc.alg != kp.alg) {
                data->enc = DeviceData::KeyPair();
                data->encCert.clear();
            }
            data->sign = kp;
            data->signCert.clear();
        } else {
            data->enc = kp;
            data->encCert.clear();
        }
        if (d.usedSpace() > d.totalSpace)
            return SAR_NO_ROOM;
        persist = true;
        return SAR_OK;
    });
}

// The DER object at the head of bytes, without what follows it.
QByteArray derPrefix(const QByteArray &bytes)
{
    if (bytes.size() < 2 || bytes.at(0) != 0x30)
        return bytes;
    int len = static_cast<unsigned char>(bytes.at(1)), head = 2;
    if (len & 0x80) {
        const int n = len & 0x7F;
        if (n == 0 || n > 3 || bytes.size() < 2 + n)
            return bytes;
        len = 0;
        for (int i = 0; i < n; ++i)
            len = (len << 8) | static_cast<unsigned char>(bytes.at(2 + i));
        head += n;
    }
    return head + len <= bytes.size() ? bytes.left(head + len) : bytes;
}

void *newKeyHandle(Connection *conn, ULONG algId, const QByteArray &key)
{
    return HandleRegistry::instance().add(std::make_unique<CipherKey>(conn, algId, key));
}

// The application and container name given to a call that hands out a
// container handle; the handle is cleared as soon as it may be written.
ULONG containerArgs(SkfCall &call, HAPPLICATION hApplication, LPSTR text, HCONTAINER *out, ULONG unusable,
                    AppObject **app, QString *name)
{
    const ULONG rv = call.app(hApplication, app);
    if (rv != SAR_OK)
        return rv;
    if (!text || !out)
        return SAR_INVALIDPARAMERR;
    *out = nullptr;
    return SkfCall::nameArg(text, kNameMax, unusable, name);
}

} // namespace

SKF_EXPORT ULONG SKF_CreateContainer(HAPPLICATION hApplication, LPSTR szContainerName, HCONTAINER *phContainer)
{
    SkfCall call("SKF_CreateContainer");
    AppObject *app = nullptr;
    QString name;
    ULONG rv = containerArgs(call, hApplication, szContainerName, phContainer, SAR_NAMELENERR, &app, &name);
    if (rv != SAR_OK || (rv = call.requireUser(app)) != SAR_OK)
        return rv;
    rv = call.modifyApp(app, [&](DeviceData::App &a, DeviceData &, bool &persist) -> ULONG {
        persist = false;
        if (a.container(name))
            return TW_ERR_CONTAINER_EXISTS;
        if (a.containers.size() >= kMaxContainers)
            return SAR_REACH_MAX_CONTAINER_COUNT;
        DeviceData::Container c;
        c.name = name;
        a.containers.append(c);
        persist = true;
        return SAR_OK;
    });
    if (rv == SAR_OK)
        *phContainer = HandleRegistry::instance().add(std::make_unique<ContainerObject>(app, name));
    return rv;
}

SKF_EXPORT ULONG SKF_DeleteContainer(HAPPLICATION hApplication, LPSTR szContainerName)
{
    SkfCall call("SKF_DeleteContainer");
    AppObject *app = nullptr;
    ULONG rv = call.app(hApplication, &app);
    if (rv != SAR_OK)
        return rv;
    QString name;
    if ((rv = SkfCall::nameArg(szContainerName, kNameMax, TW_ERR_CONTAINER_NOT_EXIST, &name)) != SAR_OK)
        return rv;
    if ((rv = call.requireUser(app)) != SAR_OK)
        return rv;
    return call.modifyApp(app, [&](DeviceData::App &a, DeviceData &, bool &persist) -> ULONG {
        for (int i = 0; i < a.containers.size(); ++i) {
            if (a.containers.at(i).name == name) {
                a.containers.removeAt(i);
                return SAR_OK;
            }
        }
        persist = false;
        return TW_ERR_CONTAINER_NOT_EXIST;
    });
}

SKF_EXPORT ULONG SKF_EnumContainer(HAPPLICATION hApplication, LPSTR szContainerName, ULONG *pulSize)
{
    SkfCall call("SKF_EnumContainer");
    const DeviceData::App *a = nullptr;
    const ULONG rv = call.appData(hApplication, &a);
    if (rv != SAR_OK)
        return rv;
    QStringList names;
    for (const DeviceData::Container &c : a->containers)
        names.append(c.name);
    return call.fillText(SkfCall::multiString(names), szContainerName, pulSize);
}

SKF_EXPORT ULONG SKF_OpenContainer(HAPPLICATION hApplication, LPSTR szContainerName, HCONTAINER *phContainer)
{
    SkfCall call("SKF_OpenContainer");
    AppObject *app = nullptr;
    QString name;
    ULONG rv = containerArgs(call, hApplication, szContainerName, phContainer, TW_ERR_CONTAINER_NOT_EXIST, &app,
                             &name);
    if (rv != SAR_OK)
        return rv;
    const DeviceData::App *a = nullptr;
    if ((rv = call.appData(app, &a)) != SAR_OK)
        return rv;
    if (!a->container(name))
        return TW_ERR_CONTAINER_NOT_EXIST;
    *phContainer = HandleRegistry::instance().add(std::make_unique<ContainerObject>(app, name));
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_CloseContainer(HCONTAINER hContainer)
{
    SkfCall call("SKF_CloseContainer");
    ContainerObject *c = nullptr;
    const ULONG rv = call.container(hContainer, &c);
    if (rv != SAR_OK && rv != SAR_DEVICE_REMOVED)
        return rv;
    HandleRegistry::instance().close(c);
    return rv;
}

SKF_EXPORT ULONG SKF_GetContainerType(HCONTAINER hContainer, ULONG *pulContainerType)
{
    SkfCall call("SKF_GetContainerType");
    ContainerObject *c = nullptr;
    ULONG rv = call.container(hContainer, &c);
    if (rv != SAR_OK)
        return rv;
    if (!pulContainerType)
        return SAR_INVALIDPARAMERR;
    const DeviceData::App *a = nullptr;
    const DeviceData::Container *data = nullptr;
    if ((rv = call.containerData(c, &a, &data)) != SAR_OK)
        return rv;
    *pulContainerType = ULONG(data->type());
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_ImportCertificate(HCONTAINER hContainer, BOOL bSignFlag, BYTE *pbCert, ULONG ulCertLen)
{
    SkfCall call("SKF_ImportCertificate");
    ContainerObject *c = nullptr;
    ULONG rv = call.userContainer(hContainer, &c);
    if (rv != SAR_OK)
        return rv;
    QByteArray cert;
    if ((rv = SkfCall::input(pbCert, ulCertLen, &cert)) != SAR_OK)
        return rv;
    if (cert.isEmpty())
        return SAR_INVALIDPARAMERR;
    if (ulCertLen > kMaxCert)
        return SAR_INDATALENERR;
    return call.modifyApp(c->app(), [&](DeviceData::App &a, DeviceData &d, bool &persist) -> ULONG {
        persist = false;
        DeviceData::Container *data = a.container(c->name());
        if (!data)
            return TW_ERR_CONTAINER_NOT_EXIST;
        (bSignFlag ? data->signCert : data->encCert) = cert;
        if (d.usedSpace() > d.totalSpace)
            return SAR_NO_ROOM;
        persist = true;
        return SAR_OK;
    });
}

SKF_EXPORT ULONG SKF_ExportCertificate(HCONTAINER hContainer, BOOL bSignFlag, BYTE *pbCert, ULONG *pulCertLen)
{
    SkfCall call("SKF_ExportCertificate");
    ContainerObject *c = nullptr;
    ULONG rv = call.container(hContainer, &c);
    if (rv != SAR_OK)
        return rv;
    if (!pulCertLen)
        return SAR_INVALIDPARAMERR;
    const DeviceData::App *a = nullptr;
    const DeviceData::Container *data = nullptr;
    if ((rv = call.containerData(c, &a, &data)) != SAR_OK)
        return rv;
    const QByteArray &cert = bSignFlag ? data->signCert : data->encCert;
    if (cert.isEmpty())
        return SAR_CERTNOTFOUNTERR;
    return call.fill(cert, pbCert, pulCertLen);
}

SKF_EXPORT ULONG SKF_GenRSAKeyPair(HCONTAINER hContainer, ULONG ulBitsLen, RSAPUBLICKEYBLOB *pBlob)
{
    SkfCall call("SKF_GenRSAKeyPair");
    ContainerObject *c = nullptr;
    ULONG rv = call.userContainer(hContainer, &c);
    if (rv != SAR_OK)
        return rv;
    if (!pBlob)
        return SAR_INVALIDPARAMERR;
    if (ulBitsLen != 1024 && ulBitsLen != 2048)
        return SAR_RSAMODULUSLENERR;
    DeviceData::KeyPair kp;
    kp.alg = DeviceData::Rsa;
    kp.bits = int(ulBitsLen);
    kp.priv = TokenCrypto::rsaGenerate(kp.bits);
    OwnedKey key(TokenCrypto::rsaKeyPair(kp.priv));
    RSAPUBLICKEYBLOB blob;
    if (!key.key || !BlobCodec::rsaPublic(key.key, &blob))
        return SAR_GENRSAKEYERR;
    if ((rv = storeKeyPair(call, c, true, kp)) != SAR_OK)
        return rv;
    memcpy(pBlob, &blob, sizeof blob);
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_ImportRSAKeyPair(HCONTAINER hContainer, ULONG ulSymAlgId, BYTE *pbWrappedKey,
                                      ULONG ulWrappedKeyLen, BYTE *pbEncryptedData, ULONG ulEncryptedDataLen)
{
    SkfCall call("SKF_ImportRSAKeyPair");
    ContainerObject *c = nullptr;
    ULONG rv = call.userContainer(hContainer, &c);
    if (rv != SAR_OK)
        return rv;
    QByteArray encrypted;
    if (!pbWrappedKey || !pbEncryptedData || ulWrappedKeyLen == 0 || ulEncryptedDataLen == 0)
        return SAR_INVALIDPARAMERR;
    if ((rv = SkfCall::input(pbEncryptedData, ulEncryptedDataLen, &encrypted)) != SAR_OK)
        return rv;
    if (ulSymAlgId != SGD_SM4_ECB)
        return SAR_NOTSUPPORTYETERR;
    EVP_PKEY *signKey = nullptr;
    if ((rv = containerKey(call, c, true, DeviceData::Rsa, &signKey)) != SAR_OK)
        return rv;
    // The symmetric key comes wrapped under the container's signing key.
    QByteArray symKey, plain;
    if ((rv = BlobCodec::unwrap(signKey, DeviceData::Rsa, pbWrappedKey, ulWrappedKeyLen, &symKey)) != SAR_OK)
        return rv;
    if (symKey.size() != TokenCrypto::Sm4KeySize)
        return SAR_INDATAERR;
    if (encrypted.size() % TokenCrypto::Sm4BlockSize != 0
        || !TokenCrypto::sm4(false, TokenCrypto::Sm4Ecb, symKey, QByteArray(), false, encrypted, &plain))
        return SAR_INDATALENERR;
    // The private key: PKCS#1 DER (any padding behind it is ignored) or an
    // RSAPRIVATEKEYBLOB.
    DeviceData::KeyPair kp;
    kp.alg = DeviceData::Rsa;
    {
        OwnedKey parsed(TokenCrypto::rsaKeyPair(derPrefix(plain)));
        kp.priv = parsed.key ? TokenCrypto::rsaDer(parsed.key) : BlobCodec::rsaPrivateFromBlob(plain);
    }
    OwnedKey key(TokenCrypto::rsaKeyPair(kp.priv));
    if (!key.key)
        return SAR_INDATAERR;
    kp.bits = TokenCrypto::rsaBits(key.key);
    if (kp.bits != 1024 && kp.bits != 2048)
        return SAR_RSAMODULUSLENERR;
    return storeKeyPair(call, c, false, kp);
}

SKF_EXPORT ULONG SKF_RSASignData(HCONTAINER hContainer, BYTE *pbData, ULONG ulDataLen, BYTE *pbSignature,
                                 ULONG *pulSignLen)
{
    SkfCall call("SKF_RSASignData");
    ContainerObject *c = nullptr;
    ULONG rv = call.userContainer(hContainer, &c);
    if (rv != SAR_OK)
        return rv;
    QByteArray data;
    if (!pulSignLen || !pbData)
        return SAR_INVALIDPARAMERR;
    if ((rv = SkfCall::input(pbData, ulDataLen, &data)) != SAR_OK)
        return rv;
    EVP_PKEY *key = nullptr;
    if ((rv = containerKey(call, c, true, DeviceData::Rsa, &key)) != SAR_OK)
        return rv;
    const ULONG sigLen = ULONG(TokenCrypto::rsaBits(key) / 8);
    if (data.isEmpty() || ulDataLen > sigLen - 11)
        return SAR_INDATALENERR;
    if (call.sizeFirst(sigLen, pbSignature, pulSignLen, &rv))
        return rv;
    QByteArray sig;
    if (!TokenCrypto::rsaSignRaw(key, data, &sig))
        return SAR_FAIL;
    return call.fill(sig, pbSignature, pulSignLen);
}

SKF_EXPORT ULONG SKF_RSAVerify(DEVHANDLE hDev, RSAPUBLICKEYBLOB *pRSAPubKeyBlob, BYTE *pbData, ULONG ulDataLen,
                               BYTE *pbSignature, ULONG ulSignLen)
{
    SkfCall call("SKF_RSAVerify");
    Connection *conn = nullptr;
    ULONG rv = call.device(hDev, &conn);
    if (rv != SAR_OK)
        return rv;
    QByteArray data, sig;
    if (!pRSAPubKeyBlob || !pbData || !pbSignature)
        return SAR_INVALIDPARAMERR;
    if ((rv = SkfCall::input(pbData, ulDataLen, &data)) != SAR_OK
        || (rv = SkfCall::input(pbSignature, ulSignLen, &sig)) != SAR_OK)
        return rv;
    OwnedKey key(BlobCodec::rsaKey(pRSAPubKeyBlob));
    if (!key.key)
        return SAR_INVALIDPARAMERR;
    if (ulSignLen != pRSAPubKeyBlob->BitLen / 8 || data.isEmpty())
        return SAR_INDATALENERR;
    return TokenCrypto::rsaVerifyRaw(key.key, data, sig) ? SAR_OK : SAR_FAIL;
}

SKF_EXPORT ULONG SKF_RSAExportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, RSAPUBLICKEYBLOB *pPubKey,
                                         BYTE *pbData, ULONG *pulDataLen, HANDLE *phSessionKey)
{
    SkfCall call("SKF_RSAExportSessionKey");
    ContainerObject *c = nullptr;
    ULONG rv = call.container(hContainer, &c);
    if (rv != SAR_OK)
        return rv;
    if (!pPubKey || !pulDataLen || !phSessionKey)
        return SAR_INVALIDPARAMERR;
    if (!CipherKey::supported(ulAlgId))
        return SAR_NOTSUPPORTYETERR;
    OwnedKey pub(BlobCodec::rsaKey(pPubKey));
    if (!pub.key)
        return SAR_INVALIDPARAMERR;
    if (call.sizeFirst(pPubKey->BitLen / 8, pbData, pulDataLen, &rv))
        return rv;
    const QByteArray sessionKey = TokenCrypto::random(TokenCrypto::Sm4KeySize);
    QByteArray wrapped;
    if (sessionKey.isEmpty() || !TokenCrypto::rsaEncrypt(pub.key, sessionKey, &wrapped))
        return SAR_RSAENCERR;
    if ((rv = call.fill(wrapped, pbData, pulDataLen)) == SAR_OK)
        *phSessionKey = newKeyHandle(c->connection(), ulAlgId, sessionKey);
    return rv;
}

SKF_EXPORT ULONG SKF_GenECCKeyPair(HCONTAINER hContainer, ULONG ulAlgId, ECCPUBLICKEYBLOB *pBlob)
{
    SkfCall call("SKF_GenECCKeyPair");
    ContainerObject *c = nullptr;
    ULONG rv = call.userContainer(hContainer, &c);
    if (rv != SAR_OK)
        return rv;
    if (!pBlob)
        return SAR_INVALIDPARAMERR;
    // Clients name an SM2 signing key by either of these two identifiers.
    if (ulAlgId != SGD_SM2_1 && ulAlgId != SGD_SM2_2)
        return SAR_NOTSUPPORTYETERR;
    DeviceData::KeyPair kp;
    kp.alg = DeviceData::Sm2;
    kp.bits = 256;
    kp.priv = TokenCrypto::sm2Generate();
    OwnedKey key(TokenCrypto::sm2KeyPair(kp.priv));
    ECCPUBLICKEYBLOB blob;
    if (!key.key || !BlobCodec::eccPublic(key.key, &blob))
        return SAR_FAIL;
    if ((rv = storeKeyPair(call, c, true, kp)) != SAR_OK)
        return rv;
    memcpy(pBlob, &blob, sizeof blob);
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_ImportECCKeyPair(HCONTAINER hContainer, PENVELOPEDKEYBLOB pEnvelopedKeyBlob)
{
    SkfCall call("SKF_ImportECCKeyPair");
    ContainerObject *c = nullptr;
    ULONG rv = call.userContainer(hContainer, &c);
    if (rv != SAR_OK)
        return rv;
    if (!pEnvelopedKeyBlob)
        return SAR_INVALIDPARAMERR;
    const ENVELOPEDKEYBLOB *env = pEnvelopedKeyBlob;
    if (env->ulSymmAlgID != SGD_SM4_ECB)
        return SAR_NOTSUPPORTYETERR;
    if (env->ulBits != 256 || env->PubKey.BitLen != 256 || env->ECCCipherBlob.CipherLen != TokenCrypto::Sm4KeySize)
        return SAR_INVALIDPARAMERR;
    EVP_PKEY *signKey = nullptr;
    if ((rv = containerKey(call, c, true, DeviceData::Sm2, &signKey)) != SAR_OK)
        return rv;
    // The symmetric key comes wrapped under the container's signing key.
    QByteArray x, y, hash, cipher, symKey;
    if (!BlobCodec::cipherParts(&env->ECCCipherBlob, 0, &x, &y, &hash, &cipher)
        || !TokenCrypto::sm2Decrypt(signKey, x, y, hash, cipher, &symKey) || symKey.size() != TokenCrypto::Sm4KeySize)
        return SAR_INDATAERR;
    // The enciphered private key: either the whole 64-byte field
    // enciphered, or the 32-byte value in its right or left half. The
    // public key tells which.
    const QByteArray field(reinterpret_cast<const char *>(env->cbEncryptedPriKey), sizeof env->cbEncryptedPriKey);
    QByteArray whole, rightHalf, leftHalf;
    QList<QByteArray> candidates;
    if (TokenCrypto::sm4(false, TokenCrypto::Sm4Ecb, symKey, QByteArray(), false, field, &whole)
        && whole.left(32) == QByteArray(32, '\0'))
        candidates << whole.right(32);
    if (TokenCrypto::sm4(false, TokenCrypto::Sm4Ecb, symKey, QByteArray(), false, field.right(32), &rightHalf))
        candidates << rightHalf;
    if (TokenCrypto::sm4(false, TokenCrypto::Sm4Ecb, symKey, QByteArray(), false, field.left(32), &leftHalf))
        candidates << leftHalf;
    const QByteArray wantX(reinterpret_cast<const char *>(env->PubKey.XCoordinate) + 32, 32);
    const QByteArray wantY(reinterpret_cast<const char *>(env->PubKey.YCoordinate) + 32, 32);
    for (const QByteArray &d : candidates) {
        OwnedKey key(TokenCrypto::sm2KeyPair(d));
        QByteArray kx, ky;
        if (key.key && TokenCrypto::sm2PublicPoint(key.key, &kx, &ky) && kx == wantX && ky == wantY) {
            DeviceData::KeyPair kp;
            kp.alg = DeviceData::Sm2;
            kp.bits = 256;
            kp.priv = d;
            return storeKeyPair(call, c, false, kp);
        }
    }
    return SAR_INDATAERR;
}

SKF_EXPORT ULONG SKF_ECCSignData(HCONTAINER hContainer, BYTE *pbData, ULONG ulDataLen, PECCSIGNATUREBLOB pSignature)
{
    SkfCall call("SKF_ECCSignData");
    ContainerObject *c = nullptr;
    ULONG rv = call.userContainer(hContainer, &c);
    if (rv != SAR_OK)
        return rv;
    if (!pbData || !pSignature)
        return SAR_INVALIDPARAMERR;
    if (ulDataLen != 32)
        return SAR_INDATALENERR;
    EVP_PKEY *key = nullptr;
    if ((rv = containerKey(call, c, true, DeviceData::Sm2, &key)) != SAR_OK)
        return rv;
    QByteArray r, s;
    if (!TokenCrypto::sm2Sign(key, QByteArray(reinterpret_cast<const char *>(pbData), 32), &r, &s))
        return SAR_FAIL;
    memset(pSignature, 0, sizeof *pSignature);
    memcpy(pSignature->r + 32, r.constData(), 32);
    memcpy(pSignature->s + 32, s.constData(), 32);
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_ECCVerify(DEVHANDLE hDev, ECCPUBLICKEYBLOB *pECCPubKeyBlob, BYTE *pbData, ULONG ulDataLen,
                               PECCSIGNATUREBLOB pSignature)
{
    SkfCall call("SKF_ECCVerify");
    Connection *conn = nullptr;
    const ULONG rv = call.device(hDev, &conn);
    if (rv != SAR_OK)
        return rv;
    if (!pECCPubKeyBlob || !pbData || !pSignature)
        return SAR_INVALIDPARAMERR;
    if (ulDataLen != 32)
        return SAR_INDATALENERR;
    OwnedKey key(BlobCodec::eccKey(pECCPubKeyBlob));
    if (!key.key)
        return SAR_INVALIDPARAMERR;
    const QByteArray e(reinterpret_cast<const char *>(pbData), 32);
    const QByteArray r(reinterpret_cast<const char *>(pSignature->r), sizeof pSignature->r);
    const QByteArray s(reinterpret_cast<const char *>(pSignature->s), sizeof pSignature->s);
    return TokenCrypto::sm2Verify(key.key, e, r, s) ? SAR_OK : SAR_FAIL;
}

SKF_EXPORT ULONG SKF_GenerateAgreementDataWithECC(HCONTAINER hContainer, ULONG, ECCPUBLICKEYBLOB *, BYTE *, ULONG,
                                                  HANDLE *)
{
    SkfCall call("SKF_GenerateAgreementDataWithECC");
    ContainerObject *c = nullptr;
    const ULONG rv = call.container(hContainer, &c);
    return rv != SAR_OK ? rv : SAR_NOTSUPPORTYETERR;
}

SKF_EXPORT ULONG SKF_GenerateAgreementDataAndKeyWithECC(HANDLE hContainer, ULONG, ECCPUBLICKEYBLOB *,
                                                        ECCPUBLICKEYBLOB *, ECCPUBLICKEYBLOB *, BYTE *, ULONG, BYTE *,
                                                        ULONG, HANDLE *)
{
    SkfCall call("SKF_GenerateAgreementDataAndKeyWithECC");
    ContainerObject *c = nullptr;
    const ULONG rv = call.container(hContainer, &c);
    return rv != SAR_OK ? rv : SAR_NOTSUPPORTYETERR;
}

SKF_EXPORT ULONG SKF_GenerateKeyWithECC(HANDLE, ECCPUBLICKEYBLOB *, ECCPUBLICKEYBLOB *, BYTE *, ULONG, HANDLE *)
{
    SkfCall call("SKF_GenerateKeyWithECC");
    // No agreement handle is ever handed out.
    return SAR_INVALIDHANDLEERR;
}

SKF_EXPORT ULONG SKF_ECCExportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, ECCPUBLICKEYBLOB *pPubKey,
                                         PECCCIPHERBLOB pData, HANDLE *phSessionKey)
{
    SkfCall call("SKF_ECCExportSessionKey");
    ContainerObject *c = nullptr;
    const ULONG rv = call.container(hContainer, &c);
    if (rv != SAR_OK)
        return rv;
    if (!pPubKey || !pData || !phSessionKey)
        return SAR_INVALIDPARAMERR;
    if (!CipherKey::supported(ulAlgId))
        return SAR_NOTSUPPORTYETERR;
    OwnedKey pub(BlobCodec::eccKey(pPubKey));
    if (!pub.key)
        return SAR_INVALIDPARAMERR;
    const QByteArray sessionKey = TokenCrypto::random(TokenCrypto::Sm4KeySize);
    QByteArray x, y, hash, cipher;
    if (sessionKey.isEmpty() || !TokenCrypto::sm2Encrypt(pub.key, sessionKey, &x, &y, &hash, &cipher))
        return TW_ERR_ECC_ENCRYPT;
    BlobCodec::putCipher(x, y, hash, cipher, pData);
    *phSessionKey = newKeyHandle(c->connection(), ulAlgId, sessionKey);
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_ExportPublicKey(HCONTAINER hContainer, BOOL bSignFlag, BYTE *pbBlob, ULONG *pulBlobLen)
{
    SkfCall call("SKF_ExportPublicKey");
    ContainerObject *c = nullptr;
    ULONG rv = call.container(hContainer, &c);
    if (rv != SAR_OK)
        return rv;
    if (!pulBlobLen)
        return SAR_INVALIDPARAMERR;
    EVP_PKEY *key = nullptr;
    DeviceData::KeyAlg alg = DeviceData::NoKey;
    if ((rv = containerKey(call, c, bSignFlag != FALSE, DeviceData::NoKey, &key, &alg)) != SAR_OK)
        return rv;
    const QByteArray blob = BlobCodec::publicBlob(key, alg);
    if (blob.isEmpty())
        return SAR_FAIL;
    return call.fill(blob, pbBlob, pulBlobLen);
}

SKF_EXPORT ULONG SKF_ImportSessionKey(HCONTAINER hContainer, ULONG ulAlgId, BYTE *pbWrapedData, ULONG ulWrapedLen,
                                      HANDLE *phKey)
{
    SkfCall call("SKF_ImportSessionKey");
    ContainerObject *c = nullptr;
    ULONG rv = call.userContainer(hContainer, &c);
    if (rv != SAR_OK)
        return rv;
    if (!pbWrapedData || !phKey)
        return SAR_INVALIDPARAMERR;
    if (!CipherKey::supported(ulAlgId))
        return SAR_NOTSUPPORTYETERR;
    EVP_PKEY *key = nullptr;
    DeviceData::KeyAlg alg = DeviceData::NoKey;
    if ((rv = containerKey(call, c, false, DeviceData::NoKey, &key, &alg)) != SAR_OK)
        return rv;
    QByteArray sessionKey;
    if ((rv = BlobCodec::unwrap(key, alg, pbWrapedData, ulWrapedLen, &sessionKey)) != SAR_OK)
        return rv;
    if (sessionKey.size() != TokenCrypto::Sm4KeySize)
        return SAR_INDATAERR;
    *phKey = newKeyHandle(c->connection(), ulAlgId, sessionKey);
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_ECCPrvKeyDecryptEx(HCONTAINER hContainer, BOOL bSignFlag, PECCCIPHERBLOB pCipherText,
                                        BYTE *pbPlainText, ULONG *pulPlainTextLen)
{
    SkfCall call("SKF_ECCPrvKeyDecryptEx");
    ContainerObject *c = nullptr;
    ULONG rv = call.userContainer(hContainer, &c);
    if (rv != SAR_OK)
        return rv;
    if (!pCipherText || !pulPlainTextLen)
        return SAR_INVALIDPARAMERR;
    EVP_PKEY *key = nullptr;
    if ((rv = containerKey(call, c, bSignFlag != FALSE, DeviceData::Sm2, &key)) != SAR_OK)
        return rv;
    QByteArray x, y, hash, cipher, plain;
    if (!BlobCodec::cipherParts(pCipherText, 0, &x, &y, &hash, &cipher))
        return SAR_INDATALENERR;
    if (!pbPlainText)
        return call.fill(QByteArray(cipher.size(), '\0'), nullptr, pulPlainTextLen);
    if (!TokenCrypto::sm2Decrypt(key, x, y, hash, cipher, &plain))
        return SAR_INDATAERR;
    return call.fill(plain, pbPlainText, pulPlainTextLen);
}

SKF_EXPORT ULONG SKF_ExtECCEncrypt(DEVHANDLE hDev, ECCPUBLICKEYBLOB *pECCPubKeyBlob, BYTE *pbPlainText,
                                   ULONG ulPlainTextLen, PECCCIPHERBLOB pCipherText)
{
    SkfCall call("SKF_ExtECCEncrypt");
    Connection *conn = nullptr;
    const ULONG rv = call.device(hDev, &conn);
    if (rv != SAR_OK)
        return rv;
    if (!pECCPubKeyBlob || !pbPlainText || !pCipherText)
        return SAR_INVALIDPARAMERR;
    if (ulPlainTextLen == 0 || ulPlainTextLen > BlobCodec::MaxCipher)
        return SAR_INDATALENERR;
    OwnedKey pub(BlobCodec::eccKey(pECCPubKeyBlob));
    if (!pub.key)
        return SAR_INVALIDPARAMERR;
    QByteArray x, y, hash, cipher;
    if (!TokenCrypto::sm2Encrypt(pub.key, QByteArray(reinterpret_cast<const char *>(pbPlainText), int(ulPlainTextLen)),
                                 &x, &y, &hash, &cipher))
        return TW_ERR_ECC_ENCRYPT;
    BlobCodec::putCipher(x, y, hash, cipher, pCipherText);
    return SAR_OK;
}
