// The software token's cryptography, all of it through OpenSSL 3.
// Byte values are big-endian and fixed-width where the token's structures
// need it: SM2 scalars and coordinates are 32 bytes, SM4 keys 16.
#ifndef SOFTTOKEN_TOKENCRYPTO_H
#define SOFTTOKEN_TOKENCRYPTO_H

#include <QByteArray>

typedef struct evp_pkey_st EVP_PKEY;

class TokenCrypto
{
public:
    enum Sm4Mode { Sm4Ecb, Sm4Cbc, Sm4Cfb, Sm4Ofb };
    enum { Sm4KeySize = 16, Sm4BlockSize = 16, Sm2FieldSize = 32 };

    static QByteArray random(int size);

    // Salted PIN hash (PBKDF2-HMAC-SHA256).
    static QByteArray pinHash(const QByteArray &pin, const QByteArray &salt, int iterations);

    static QByteArray digest(const char *name, const QByteArray &data);

    // SM2. Keys are held as the 32-byte private scalar.
    static QByteArray sm2Generate();
    static EVP_PKEY *sm2KeyPair(const QByteArray &priv);
    static EVP_PKEY *sm2PublicKey(const QByteArray &x, const QByteArray &y);
    static bool sm2PublicPoint(EVP_PKEY *key, QByteArray *x, QByteArray *y);
    // Signs e as the digest value itself: no further hashing.
    static bool sm2Sign(EVP_PKEY *key, const QByteArray &e, QByteArray *r, QByteArray *s);
    static bool sm2Verify(EVP_PKEY *key, const QByteArray &e, const QByteArray &r, const QByteArray &s);
    // Ciphertext as C1 (x, y), C3 (hash) and C2 (cipher).
    static bool sm2Encrypt(EVP_PKEY *pub, const QByteArray &plain, QByteArray *x, QByteArray *y,
                           QByteArray *hash, QByteArray *cipher);
    static bool sm2Decrypt(EVP_PKEY *key, const QByteArray &x, const QByteArray &y, const QByteArray &hash,
                           const QByteArray &cipher, QByteArray *plain);
    // The Z value that precedes the message in an SM2 signature hash.
    static QByteArray sm2Z(const QByteArray &x, const QByteArray &y, const QByteArray &id);

    // RSA. Keys are held as PKCS#1 DER.
    static QByteArray rsaGenerate(int bits);
    static EVP_PKEY *rsaKeyPair(const QByteArray &der);
    static QByteArray rsaDer(EVP_PKEY *key);
    static EVP_PKEY *rsaPublicKey(const QByteArray &n, const QByteArray &e);
    static QByteArray rsaFromComponents(const QByteArray &n, const QByteArray &e, const QByteArray &d,
                                        const QByteArray &p, const QByteArray &q, const QByteArray &dp,
                                        const QByteArray &dq, const QByteArray &qinv);
    static bool rsaPublicParts(EVP_PKEY *key, QByteArray *n, QByteArray *e);
    static int rsaBits(EVP_PKEY *key);
    // PKCS#1 v1.5 over the data as given, no DigestInfo added.
    static bool rsaSignRaw(EVP_PKEY *key, const QByteArray &data, QByteArray *sig);
    static bool rsaVerifyRaw(EVP_PKEY *key, const QByteArray &data, const QByteArray &sig);
    static bool rsaEncrypt(EVP_PKEY *pub, const QByteArray &plain, QByteArray *out);
    static bool rsaDecrypt(EVP_PKEY *key, const QByteArray &cipher, QByteArray *out);

    // One-shot SM4; stream use goes through the EVP cipher of sm4Cipher().
    static const void *sm4Cipher(Sm4Mode mode);
    static bool sm4(bool encrypt, Sm4Mode mode, const QByteArray &key, const QByteArray &iv, bool padding,
                    const QByteArray &in, QByteArray *out);
    static QByteArray sm4CbcMac(const QByteArray &key, const QByteArray &iv, const QByteArray &data);

    static void freeKey(EVP_PKEY *key);
};

#endif // SOFTTOKEN_TOKENCRYPTO_H
