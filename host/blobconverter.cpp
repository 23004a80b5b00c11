#include "blobconverter.h"

#include <QRegularExpression>
#include <QtEndian>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>

#include <cstring>
#include <memory>

namespace {

constexpr int kCoordinateField = 64;
constexpr int kSm2Bytes = 32;
constexpr int kRsaModulusField = 256;

template <typename T, void (*Free)(T *)>
struct Deleter
{
    void operator()(T *p) const { Free(p); }
};
using PkeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using CtxPtr = std::unique_ptr<EVP_PKEY_CTX, Deleter<EVP_PKEY_CTX, EVP_PKEY_CTX_free>>;
using BldPtr = std::unique_ptr<OSSL_PARAM_BLD, Deleter<OSSL_PARAM_BLD, OSSL_PARAM_BLD_free>>;
using ParamPtr = std::unique_ptr<OSSL_PARAM, Deleter<OSSL_PARAM, OSSL_PARAM_free>>;
using BnPtr = std::unique_ptr<BIGNUM, Deleter<BIGNUM, BN_free>>;
using SigPtr = std::unique_ptr<ECDSA_SIG, Deleter<ECDSA_SIG, ECDSA_SIG_free>>;

void bioFree(BIO *bio)
{
    BIO_free(bio);
}
using BioPtr = std::unique_ptr<BIO, Deleter<BIO, bioFree>>;

quint32 readUint32(const QByteArray &bytes, int offset)
{
    // The token writes its structures in the machine's byte order.
    return qFromUnaligned<quint32>(bytes.constData() + offset);
}

bool isZero(const char *p, int n)
{
    for (int i = 0; i < n; ++i) {
        if (p[i] != 0)
            return false;
    }
    return true;
}

QByteArray pemOf(EVP_PKEY *pkey)
{
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio || PEM_write_bio_PUBKEY(bio.get(), pkey) != 1)
        return QByteArray();
    char *data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return QByteArray(data, int(size));
}

PkeyPtr keyFromParams(const char *type, OSSL_PARAM_BLD *bld)
{
    ParamPtr params(OSSL_PARAM_BLD_to_param(bld));
    CtxPtr ctx(EVP_PKEY_CTX_new_from_name(nullptr, type, nullptr));
    EVP_PKEY *raw = nullptr;
    if (!params || !ctx || EVP_PKEY_fromdata_init(ctx.get()) != 1
        || EVP_PKEY_fromdata(ctx.get(), &raw, EVP_PKEY_PUBLIC_KEY, params.get()) != 1)
        return PkeyPtr();
    return PkeyPtr(raw);
}

bool fail(QString *error, const QString &text)
{
    if (error)
        *error = text;
    return false;
}

} // namespace

QByteArray BlobConverter::publicBlobToPem(const QByteArray &blob, QString *error)
{
    if (blob.size() == kEccPublicBlobSize)
        return eccPublicBlobToPem(blob, error);
    if (blob.size() == kRsaPublicBlobSize)
        return rsaPublicBlobToPem(blob, error);
    fail(error, QStringLiteral("a public key blob of %1 bytes is neither ECC (%2) nor RSA (%3)")
                    .arg(blob.size())
                    .arg(kEccPublicBlobSize)
                    .arg(kRsaPublicBlobSize));
    return QByteArray();
}

QByteArray BlobConverter::eccPublicBlobToPem(const QByteArray &blob, QString *error)
{
    if (blob.size() != kEccPublicBlobSize) {
        fail(error, QStringLiteral("an ECC public key blob must have %1 bytes, not %2").arg(kEccPublicBlobSize).arg(blob.size()));
        return QByteArray();
    }
    const quint32 bits = readUint32(blob, 0);
    if (bits != 256) {
        fail(error, QStringLiteral("the key has %1 bits; SM2 keys have 256").arg(bits));
        return QByteArray();
    }
    // Each coordinate stands right-aligned in its 64-byte field.
    QByteArray point(1, '\x04');
    point += blob.mid(4 + kCoordinateField - kSm2Bytes, kSm2Bytes);
    point += blob.mid(4 + 2 * kCoordinateField - kSm2Bytes, kSm2Bytes);

    BldPtr bld(OSSL_PARAM_BLD_new());
    if (!bld || OSSL_PARAM_BLD_push_utf8_string(bld.get(), OSSL_PKEY_PARAM_GROUP_NAME, "SM2", 0) != 1
        || OSSL_PARAM_BLD_push_octet_string(bld.get(), OSSL_PKEY_PARAM_PUB_KEY, point.constData(), size_t(point.size()))
               != 1) {
        fail(error, QStringLiteral("out of memory"));
        return QByteArray();
    }
    PkeyPtr key = keyFromParams("SM2", bld.get());
    if (!key) {
        fail(error, QStringLiteral("the blob holds no point of the SM2 curve"));
        return QByteArray();
    }
    CtxPtr check(EVP_PKEY_CTX_new_from_pkey(nullptr, key.get(), nullptr));
    if (!check || EVP_PKEY_public_check(check.get()) != 1) {
        fail(error, QStringLiteral("the blob holds no point of the SM2 curve"));
        return QByteArray();
    }
    return pemOf(key.get());
}

QByteArray BlobConverter::rsaPublicBlobToPem(const QByteArray &blob, QString *error)
{
    if (blob.size() != kRsaPublicBlobSize) {
        fail(error, QStringLiteral("an RSA public key blob must have %1 bytes, not %2").arg(kRsaPublicBlobSize).arg(blob.size()));
        return QByteArray();
    }
    const quint32 bits = readUint32(blob, 4);
    if (bits < 512 || bits > 2048 || bits % 8 != 0) {
        fail(error, QStringLiteral("the blob gives an RSA key length of %1 bits").arg(bits));
        return QByteArray();
    }
    const int n = int(bits / 8);
    const char *field = blob.constData() + 8;
    // A short modulus may stand at either end of its field; the end that is
    // not all zero holds it.
    const char *modulus = isZero(field, kRsaModulusField - n) ? field + kRsaModulusField - n : field;
    const char *exponent = blob.constData() + 8 + kRsaModulusField;

    BnPtr bnN(BN_bin2bn(reinterpret_cast<const unsigned char *>(modulus), n, nullptr));
    BnPtr bnE(BN_bin2bn(reinterpret_cast<const unsigned char *>(exponent), 4, nullptr));
    BldPtr bld(OSSL_PARAM_BLD_new());
    if (!bnN || !bnE || !bld || OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_RSA_N, bnN.get()) != 1
        || OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_RSA_E, bnE.get()) != 1) {
        fail(error, QStringLiteral("out of memory"));
        return QByteArray();
    }
    if (BN_is_zero(bnE.get()) || BN_num_bits(bnN.get()) != int(bits)) {
        fail(error, QStringLiteral("the blob holds no RSA key of %1 bits").arg(bits));
        return QByteArray();
    }
    PkeyPtr key = keyFromParams("RSA", bld.get());
    if (!key) {
        fail(error, QStringLiteral("the blob holds no RSA key"));
        return QByteArray();
    }
    return pemOf(key.get());
}

QByteArray BlobConverter::signatureBlobToCompact(const QByteArray &blob)
{
    if (blob.size() != kEccSignatureBlobSize)
        return QByteArray();
    return blob.mid(kCoordinateField - kSm2Bytes, kSm2Bytes) + blob.mid(2 * kCoordinateField - kSm2Bytes, kSm2Bytes);
}

QByteArray BlobConverter::compactToSignatureBlob(const QByteArray &compact)
{
    if (compact.size() != kCompactSignatureSize)
        return QByteArray();
    QByteArray blob(kEccSignatureBlobSize, '\0');
    blob.replace(kCoordinateField - kSm2Bytes, kSm2Bytes, compact.left(kSm2Bytes));
    blob.replace(2 * kCoordinateField - kSm2Bytes, kSm2Bytes, compact.mid(kSm2Bytes));
    return blob;
}

QByteArray BlobConverter::compactToDer(const QByteArray &compact)
{
    if (compact.size() != kCompactSignatureSize)
        return QByteArray();
    // SEQUENCE of two INTEGERs, each at most 33 bytes, so every length
    // fits one byte. Written here: a batch converts one per input, and
    // OpenSSL's encoder costs more than the rest of the host's work on it.
    char der[2 + 2 * (3 + kSm2Bytes)];
    int size = 2;
    for (const char *number : {compact.constData(), compact.constData() + kSm2Bytes}) {
        // The smallest form: leading zero bytes dropped, and one put back
        // before a high bit, which would make the number negative.
        int start = 0;
        while (start < kSm2Bytes - 1 && number[start] == 0)
            ++start;
        const bool pad = uchar(number[start]) & 0x80;
        der[size++] = 0x02;
        der[size++] = char(kSm2Bytes - start + (pad ? 1 : 0));
        if (pad)
            der[size++] = 0;
        std::memcpy(der + size, number + start, size_t(kSm2Bytes - start));
        size += kSm2Bytes - start;
    }
    der[0] = 0x30;
    der[1] = char(size - 2);
    return QByteArray(der, size);
}

QByteArray BlobConverter::derToCompact(const QByteArray &der)
{
    const auto *p = reinterpret_cast<const unsigned char *>(der.constData());
    SigPtr sig(d2i_ECDSA_SIG(nullptr, &p, der.size()));
    if (!sig || p != reinterpret_cast<const unsigned char *>(der.constData()) + der.size())
        return QByteArray();
    const BIGNUM *r = nullptr;
    const BIGNUM *s = nullptr;
    ECDSA_SIG_get0(sig.get(), &r, &s);
    QByteArray compact(kCompactSignatureSize, '\0');
    auto *out = reinterpret_cast<unsigned char *>(compact.data());
    if (BN_bn2binpad(r, out, kSm2Bytes) != kSm2Bytes || BN_bn2binpad(s, out + kSm2Bytes, kSm2Bytes) != kSm2Bytes)
        return QByteArray();
    return compact;
}

QByteArray BlobConverter::sha256DigestInfo(const QByteArray &data)
{
    static const unsigned char prefix[] = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                                           0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int mdLength = 0;
    if (EVP_Digest(data.constData(), size_t(data.size()), md, &mdLength, EVP_sha256(), nullptr) != 1)
        return QByteArray();
    return QByteArray(reinterpret_cast<const char *>(prefix), int(sizeof prefix))
           + QByteArray(reinterpret_cast<const char *>(md), int(mdLength));
}

QByteArray BlobConverter::certificateToPem(const QByteArray &der)
{
    const QByteArray b64 = der.toBase64();
    QByteArray pem = "-----BEGIN CERTIFICATE-----\n";
    for (int i = 0; i < b64.size(); i += 64)
        pem += b64.mid(i, 64) + '\n';
    pem += "-----END CERTIFICATE-----\n";
    return pem;
}

QByteArray BlobConverter::certificateToDer(const QByteArray &derOrPem)
{
    // Whatever OpenSSL reads as an X.509 certificate, written out again as
    // DER; anything else is no certificate.
    std::unique_ptr<BIO, decltype(&BIO_free)> in(BIO_new_mem_buf(derOrPem.constData(), derOrPem.size()), BIO_free);
    X509 *cert = in ? PEM_read_bio_X509(in.get(), nullptr, nullptr, nullptr) : nullptr;
    if (!cert) {
        const unsigned char *p = reinterpret_cast<const unsigned char *>(derOrPem.constData());
        cert = d2i_X509(nullptr, &p, derOrPem.size());
        // DER with bytes after it is not one certificate either.
        if (cert && p != reinterpret_cast<const unsigned char *>(derOrPem.constData()) + derOrPem.size()) {
            X509_free(cert);
            cert = nullptr;
        }
    }
    QByteArray der;
    const int size = cert ? i2d_X509(cert, nullptr) : 0;
    if (size > 0) {
        der.resize(size);
        unsigned char *out = reinterpret_cast<unsigned char *>(der.data());
        i2d_X509(cert, &out);
    }
    X509_free(cert);
    ERR_clear_error();
    return der;
}

QByteArray BlobConverter::randomBytes(int count)
{
    QByteArray bytes(count, '\0');
    if (count > 0 && RAND_bytes(reinterpret_cast<unsigned char *>(bytes.data()), count) != 1)
        return QByteArray();
    return bytes;
}

QByteArray BlobConverter::fromText(const QByteArray &bytes)
{
    QByteArray text = bytes.simplified();
    text.replace(' ', QByteArray());
    static const QRegularExpression hex(QStringLiteral("^(?:[0-9A-Fa-f]{2})+$"));
    static const QRegularExpression base64(QStringLiteral("^[A-Za-z0-9+/]+={0,2}$"));
    if (hex.match(QString::fromLatin1(text)).hasMatch())
        return QByteArray::fromHex(text);
    if (text.size() % 4 == 0 && base64.match(QString::fromLatin1(text)).hasMatch())
        return QByteArray::fromBase64(text);
    return bytes;
}
