#include "blobcodec.h"

#include "tokencrypto.h"

#include <string.h>

namespace {

void putRight(BYTE *field, size_t size, const QByteArray &value)
{
    memset(field, 0, size);
    const size_t n = qMin(size, size_t(value.size()));
    memcpy(field + size - n, value.constData() + value.size() - int(n), n);
}

QByteArray right(const BYTE *field, size_t size, size_t take)
{
    return QByteArray(reinterpret_cast<const char *>(field + size - take), int(take));
}

} // namespace

bool BlobCodec::eccPublic(EVP_PKEY *key, ECCPUBLICKEYBLOB *out)
{
    QByteArray x, y;
    if (!TokenCrypto::sm2PublicPoint(key, &x, &y))
        return false;
    memset(out, 0, sizeof *out);
    out->BitLen = 256;
    putRight(out->XCoordinate, sizeof out->XCoordinate, x);
    putRight(out->YCoordinate, sizeof out->YCoordinate, y);
    return true;
}

EVP_PKEY *BlobCodec::eccKey(const ECCPUBLICKEYBLOB *blob)
{
    if (!blob || blob->BitLen != 256)
        return nullptr;
    return TokenCrypto::sm2PublicKey(right(blob->XCoordinate, sizeof blob->XCoordinate, 32),
                                     right(blob->YCoordinate, sizeof blob->YCoordinate, 32));
}

bool BlobCodec::rsaPublic(EVP_PKEY *key, RSAPUBLICKEYBLOB *out)
{
    QByteArray n, e;
    if (!TokenCrypto::rsaPublicParts(key, &n, &e) || n.size() > MAX_RSA_MODULUS_LEN || e.size() > MAX_RSA_EXPONENT_LEN)
        return false;
    memset(out, 0, sizeof *out);
    out->AlgID = SGD_RSA;
    out->BitLen = ULONG(TokenCrypto::rsaBits(key));
    putRight(out->Modulus, sizeof out->Modulus, n);
    putRight(out->PublicExponent, sizeof out->PublicExponent, e);
    return true;
}

EVP_PKEY *BlobCodec::rsaKey(const RSAPUBLICKEYBLOB *blob)
{
    if (!blob || (blob->BitLen != 1024 && blob->BitLen != 2048))
        return nullptr;
    return TokenCrypto::rsaPublicKey(right(blob->Modulus, sizeof blob->Modulus, blob->BitLen / 8),
                                     right(blob->PublicExponent, sizeof blob->PublicExponent, MAX_RSA_EXPONENT_LEN));
}

QByteArray BlobCodec::publicBlob(EVP_PKEY *key, DeviceData::KeyAlg alg)
{
    if (alg == DeviceData::Sm2) {
        ECCPUBLICKEYBLOB blob;
        if (eccPublic(key, &blob))
            return QByteArray(reinterpret_cast<const char *>(&blob), sizeof blob);
    } else if (alg == DeviceData::Rsa) {
        RSAPUBLICKEYBLOB blob;
        if (rsaPublic(key, &blob))
            return QByteArray(reinterpret_cast<const char *>(&blob), sizeof blob);
    }
    return QByteArray();
}

void BlobCodec::putCipher(const QByteArray &x, const QByteArray &y, const QByteArray &hash, const QByteArray &cipher,
                          ECCCIPHERBLOB *out)
{
    // Only the fixed part is cleared: Cipher may be longer than declared.
    memset(out, 0, CipherHeader);
    putRight(out->XCoordinate, sizeof out->XCoordinate, x);
    putRight(out->YCoordinate, sizeof out->YCoordinate, y);
    putRight(out->HASH, sizeof out->HASH, hash);
    out->CipherLen = ULONG(cipher.size());
    memcpy(out->Cipher, cipher.constData(), size_t(cipher.size()));
}

bool BlobCodec::cipherParts(const ECCCIPHERBLOB *blob, ULONG available, QByteArray *x, QByteArray *y,
                            QByteArray *hash, QByteArray *cipher)
{
    if (!blob || (available != 0 && available < ULONG(CipherHeader)))
        return false;
    const ULONG len = blob->CipherLen;
    if (len == 0 || len > MaxCipher || (available != 0 && len > available - CipherHeader))
        return false;
    *x = right(blob->XCoordinate, sizeof blob->XCoordinate, 32);
    *y = right(blob->YCoordinate, sizeof blob->YCoordinate, 32);
    *hash = QByteArray(reinterpret_cast<const char *>(blob->HASH), sizeof blob->HASH);
    *cipher = QByteArray(reinterpret_cast<const char *>(blob->Cipher), int(len));
    return true;
}

QByteArray BlobCodec::rsaPrivateFromBlob(const QByteArray &bytes)
{
    if (bytes.size() < int(sizeof(RSAPRIVATEKEYBLOB)))
        return QByteArray();
    RSAPRIVATEKEYBLOB b;
    memcpy(&b, bytes.constData(), sizeof b);
    if (b.BitLen != 1024 && b.BitLen != 2048)
        return QByteArray();
    const size_t k = b.BitLen / 8, h = k / 2;
    return TokenCrypto::rsaFromComponents(right(b.Modulus, sizeof b.Modulus, k),
                                          right(b.PublicExponent, sizeof b.PublicExponent, MAX_RSA_EXPONENT_LEN),
                                          right(b.PrivateExponent, sizeof b.PrivateExponent, k),
                                          right(b.Prime1, sizeof b.Prime1, h), right(b.Prime2, sizeof b.Prime2, h),
                                          right(b.Prime1Exponent, sizeof b.Prime1Exponent, h),
                                          right(b.Prime2Exponent, sizeof b.Prime2Exponent, h),
                                          right(b.Coefficient, sizeof b.Coefficient, h));
}

ULONG BlobCodec::unwrap(EVP_PKEY *key, DeviceData::KeyAlg alg, const BYTE *data, ULONG len, QByteArray *out)
{
    if (!data || len == 0)
        return SAR_INVALIDPARAMERR;
    if (alg == DeviceData::Sm2) {
        QByteArray x, y, hash, cipher;
        if (!cipherParts(reinterpret_cast<const ECCCIPHERBLOB *>(data), len, &x, &y, &hash, &cipher))
            return SAR_INDATALENERR;
        return TokenCrypto::sm2Decrypt(key, x, y, hash, cipher, out) ? ULONG(SAR_OK) : ULONG(SAR_INDATAERR);
    }
    if (len > MAX_RSA_MODULUS_LEN)
        return SAR_INDATALENERR;
    const QByteArray wrapped(reinterpret_cast<const char *>(data), int(len));
    return TokenCrypto::rsaDecrypt(key, wrapped, out) ? ULONG(SAR_OK) : ULONG(SAR_RSADECERR);
}
