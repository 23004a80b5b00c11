// The CLI's conversions against OpenSSL's own view of the same keys and
// signatures.
#include "blobconverter.h"

#include <QtTest>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <cstring>

namespace {

EVP_PKEY *pemKey(const QByteArray &pem)
{
    BIO *bio = BIO_new_mem_buf(pem.constData(), pem.size());
    EVP_PKEY *key = PEM_read_bio_PUBKEY(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    return key;
}

QByteArray sm2Point(EVP_PKEY *key)
{
    unsigned char buf[65];
    size_t len = 0;
    if (EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, buf, sizeof buf, &len) != 1 || len != 65)
        return QByteArray();
    return QByteArray(reinterpret_cast<const char *>(buf), int(len));
}

void putUint32(QByteArray &blob, int offset, quint32 value)
{
    std::memcpy(blob.data() + offset, &value, 4);
}

// ECCPUBLICKEYBLOB: BitLen, then X and Y right-aligned in 64-byte fields.
QByteArray eccBlob(const QByteArray &point)
{
    QByteArray blob(132, '\0');
    putUint32(blob, 0, 256);
    blob.replace(4 + 32, 32, point.mid(1, 32));
    blob.replace(4 + 64 + 32, 32, point.mid(33, 32));
    return blob;
}

QByteArray rsaBlob(EVP_PKEY *key, bool rightAligned)
{
    BIGNUM *n = nullptr;
    BIGNUM *e = nullptr;
    EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_N, &n);
    EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_E, &e);
    const int bits = BN_num_bits(n);
    QByteArray blob(268, '\0');
    putUint32(blob, 0, 0x00010000);
    putUint32(blob, 4, quint32(bits));
    QByteArray modulus(bits / 8, '\0');
    BN_bn2binpad(n, reinterpret_cast<unsigned char *>(modulus.data()), modulus.size());
    blob.replace(rightAligned ? 8 + 256 - modulus.size() : 8, modulus.size(), modulus);
    BN_bn2binpad(e, reinterpret_cast<unsigned char *>(blob.data()) + 8 + 256, 4);
    BN_free(n);
    BN_free(e);
    return blob;
}

QByteArray sm2SignDer(EVP_PKEY *key, const QByteArray &msg)
{
    EVP_MD_CTX *md = EVP_MD_CTX_new();
    EVP_PKEY_CTX *pctx = nullptr;
    QByteArray sig(128, '\0');
    size_t len = size_t(sig.size());
    const bool ok = EVP_DigestSignInit_ex(md, &pctx, "SM3", nullptr, nullptr, key, nullptr) == 1
                    && EVP_PKEY_CTX_set1_id(pctx, "1234567812345678", 16) == 1
                    && EVP_DigestSign(md, reinterpret_cast<unsigned char *>(sig.data()), &len,
                                      reinterpret_cast<const unsigned char *>(msg.constData()), size_t(msg.size()))
                           == 1;
    EVP_MD_CTX_free(md);
    return ok ? sig.left(int(len)) : QByteArray();
}

bool sm2VerifyDer(EVP_PKEY *key, const QByteArray &msg, const QByteArray &der)
{
    EVP_MD_CTX *md = EVP_MD_CTX_new();
    EVP_PKEY_CTX *pctx = nullptr;
    const bool ok = EVP_DigestVerifyInit_ex(md, &pctx, "SM3", nullptr, nullptr, key, nullptr) == 1
                    && EVP_PKEY_CTX_set1_id(pctx, "1234567812345678", 16) == 1
                    && EVP_DigestVerify(md, reinterpret_cast<const unsigned char *>(der.constData()), size_t(der.size()),
                                        reinterpret_cast<const unsigned char *>(msg.constData()), size_t(msg.size()))
                           == 1;
    EVP_MD_CTX_free(md);
    return ok;
}

} // namespace

class TstBlobConverter : public QObject
{
    Q_OBJECT

private slots:
    void sm2BlobBecomesTheSameKeyInPem();
    void badEccBlobsAreRefused();
    void rsaBlobEitherAlignmentBecomesTheSameKey();
    void signatureFormsRoundTripAndVerify();
    void digestInfoIsWhatPkcs1VerifiesAgainst();
    void certificatesBetweenDerAndPem();
};

void TstBlobConverter::sm2BlobBecomesTheSameKeyInPem()
{
    EVP_PKEY *key = EVP_PKEY_Q_keygen(nullptr, nullptr, "SM2");
    QVERIFY(key);
    const QByteArray blob = eccBlob(sm2Point(key));
    QString error;
    const QByteArray pem = BlobConverter::publicBlobToPem(blob, &error);
    QVERIFY2(pem.startsWith("-----BEGIN PUBLIC KEY-----"), qPrintable(error));
    EVP_PKEY *back = pemKey(pem);
    QVERIFY(back);
    QCOMPARE(EVP_PKEY_eq(key, back), 1);
    // On the SM2 curve, so a signature by the private key verifies with it.
    QVERIFY(EVP_PKEY_is_a(back, "SM2"));
    const QByteArray msg = "message to sign";
    QVERIFY(sm2VerifyDer(back, msg, sm2SignDer(key, msg)));
    EVP_PKEY_free(back);
    EVP_PKEY_free(key);
}

void TstBlobConverter::badEccBlobsAreRefused()
{
    EVP_PKEY *key = EVP_PKEY_Q_keygen(nullptr, nullptr, "SM2");
    QVERIFY(key);
    const QByteArray good = eccBlob(sm2Point(key));
    EVP_PKEY_free(key);
    QString error;

    QByteArray offCurve = good;
    offCurve[4 + 64 + 63] = char(offCurve.at(4 + 64 + 63) ^ 1);
    QVERIFY(BlobConverter::eccPublicBlobToPem(offCurve, &error).isEmpty());
    QVERIFY(error.contains(QLatin1String("SM2 curve")));

    QByteArray wrongBits = good;
    putUint32(wrongBits, 0, 384);
    QVERIFY(BlobConverter::eccPublicBlobToPem(wrongBits, &error).isEmpty());
    QVERIFY(error.contains(QLatin1String("384")));

    QVERIFY(BlobConverter::publicBlobToPem(good.left(131), &error).isEmpty());
    QVERIFY(error.contains(QLatin1String("131")));
}

void TstBlobConverter::rsaBlobEitherAlignmentBecomesTheSameKey()
{
    for (unsigned bits : {1024u, 2048u}) {
        EVP_PKEY *key = EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", size_t(bits));
        QVERIFY(key);
        for (bool right : {true, false}) {
            QString error;
            const QByteArray pem = BlobConverter::publicBlobToPem(rsaBlob(key, right), &error);
            QVERIFY2(!pem.isEmpty(), qPrintable(error));
            EVP_PKEY *back = pemKey(pem);
            QVERIFY(back);
            QCOMPARE(EVP_PKEY_eq(key, back), 1);
            EVP_PKEY_free(back);
        }
        EVP_PKEY_free(key);
    }
    QString error;
    QByteArray empty(268, '\0');
    putUint32(empty, 4, 2048);
    QVERIFY(BlobConverter::rsaPublicBlobToPem(empty, &error).isEmpty());
}

void TstBlobConverter::signatureFormsRoundTripAndVerify()
{
    EVP_PKEY *key = EVP_PKEY_Q_keygen(nullptr, nullptr, "SM2");
    QVERIFY(key);
    const QByteArray msg = "signed by openssl";
    const QByteArray der = sm2SignDer(key, msg);
    QVERIFY(!der.isEmpty());

    const QByteArray compact = BlobConverter::derToCompact(der);
    QCOMPARE(compact.size(), 64);
    const QByteArray blob = BlobConverter::compactToSignatureBlob(compact);
    QCOMPARE(blob.size(), 128);
    // r and s stand right-aligned in their 64-byte fields.
    QCOMPARE(blob.mid(0, 32), QByteArray(32, '\0'));
    QCOMPARE(blob.mid(32, 32), compact.left(32));
    QCOMPARE(blob.mid(64, 32), QByteArray(32, '\0'));
    QCOMPARE(blob.mid(96, 32), compact.mid(32));
    QCOMPARE(BlobConverter::signatureBlobToCompact(blob), compact);

    const QByteArray again = BlobConverter::compactToDer(compact);
    QVERIFY(sm2VerifyDer(key, msg, again));
    QVERIFY(!sm2VerifyDer(key, "another message", again));

    QVERIFY(BlobConverter::derToCompact(der + '\0').isEmpty());
    QVERIFY(BlobConverter::derToCompact("not a signature").isEmpty());
    QVERIFY(BlobConverter::compactToDer(compact.left(63)).isEmpty());
    QVERIFY(BlobConverter::signatureBlobToCompact(blob.left(127)).isEmpty());
    EVP_PKEY_free(key);
}

void TstBlobConverter::digestInfoIsWhatPkcs1VerifiesAgainst()
{
    EVP_PKEY *key = EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", size_t(2048));
    QVERIFY(key);
    const QByteArray msg = "pay 100 to the bearer";
    const QByteArray info = BlobConverter::sha256DigestInfo(msg);
    QCOMPARE(info.size(), 19 + 32);

    // Sign the DigestInfo as a token does (raw PKCS#1 v1.5, nothing added)...
    EVP_PKEY_CTX *ctx = EVP_PKEY_CTX_new(key, nullptr);
    QVERIFY(EVP_PKEY_sign_init(ctx) == 1 && EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_PKCS1_PADDING) == 1);
    QByteArray sig(256, '\0');
    size_t len = size_t(sig.size());
    QCOMPARE(EVP_PKEY_sign(ctx, reinterpret_cast<unsigned char *>(sig.data()), &len,
                           reinterpret_cast<const unsigned char *>(info.constData()), size_t(info.size())),
             1);
    EVP_PKEY_CTX_free(ctx);

    // ...and a standard SHA-256 verification of the message accepts it.
    EVP_MD_CTX *md = EVP_MD_CTX_new();
    QCOMPARE(EVP_DigestVerifyInit(md, nullptr, EVP_sha256(), nullptr, key), 1);
    QCOMPARE(EVP_DigestVerify(md, reinterpret_cast<const unsigned char *>(sig.constData()), len,
                              reinterpret_cast<const unsigned char *>(msg.constData()), size_t(msg.size())),
             1);
    EVP_MD_CTX_free(md);
    EVP_PKEY_free(key);
}

void TstBlobConverter::certificatesBetweenDerAndPem()
{
    QByteArray der;
    for (int i = 0; i < 200; ++i)
        der += char(i * 7);
    const QByteArray pem = BlobConverter::certificateToPem(der);
    QVERIFY(pem.startsWith("-----BEGIN CERTIFICATE-----\n"));
    QVERIFY(pem.endsWith("-----END CERTIFICATE-----\n"));
    for (const QByteArray &line : pem.split('\n'))
        QVERIFY(line.size() <= 64 || line.startsWith("-----"));
    QCOMPARE(BlobConverter::certificateToDer(pem), der);
    QCOMPARE(BlobConverter::certificateToDer("text before\n" + pem), der);
    QCOMPARE(BlobConverter::certificateToDer(der), der);
    QVERIFY(BlobConverter::certificateToDer("-----BEGIN CERTIFICATE-----\nAAAA").isEmpty());
}

QTEST_GUILESS_MAIN(TstBlobConverter)
#include "tst_blobconverter.moc"
