// Between the token's published structures and OpenSSL keys and values.
// Coordinates and moduli stand right-aligned in their fixed-size fields.
#ifndef SOFTTOKEN_BLOBCODEC_H
#define SOFTTOKEN_BLOBCODEC_H

#include "skfapi.h"

#include "devicedata.h"

#include <QByteArray>

typedef struct evp_pkey_st EVP_PKEY;

class BlobCodec
{
public:
    // Fixed part of ECCCIPHERBLOB ahead of Cipher.
    enum { CipherHeader = 164, MaxCipher = 1024 };

    static bool eccPublic(EVP_PKEY *key, ECCPUBLICKEYBLOB *out);
    static EVP_PKEY *eccKey(const ECCPUBLICKEYBLOB *blob);
    static bool rsaPublic(EVP_PKEY *key, RSAPUBLICKEYBLOB *out);
    static EVP_PKEY *rsaKey(const RSAPUBLICKEYBLOB *blob);
    // The public key of a container's key pair in its blob form.
    static QByteArray publicBlob(EVP_PKEY *key, DeviceData::KeyAlg alg);

    static void putCipher(const QByteArray &x, const QByteArray &y, const QByteArray &hash, const QByteArray &cipher,
                          ECCCIPHERBLOB *out);
    // available: bytes the caller gave, or 0 when it gave no length.
    static bool cipherParts(const ECCCIPHERBLOB *blob, ULONG available, QByteArray *x, QByteArray *y,
                            QByteArray *hash, QByteArray *cipher);

    // RSAPRIVATEKEYBLOB as PKCS#1 DER; empty if it is no valid key.
    static QByteArray rsaPrivateFromBlob(const QByteArray &blob);

    // A symmetric key wrapped for a container's key pair: an ECCCIPHERBLOB
    // for SM2, PKCS#1 v1.5 for RSA.
    static ULONG unwrap(EVP_PKEY *key, DeviceData::KeyAlg alg, const BYTE *data, ULONG len, QByteArray *out);
};

#endif // SOFTTOKEN_BLOBCODEC_H
