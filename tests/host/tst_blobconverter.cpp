// The CLI's conversions against OpenSSL's own view of the same keys and
// signatures.
#include "blobconverter.h"

#include <QtTest>

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

Key keygen(const char *type, size_t bits = 0)
{
    return Key(bits ? EVP_PKEY_Q_keygen(nullptr, nullptr, type, bits) : EVP_PKEY_Q_keygen(nullptr, nullptr, type), EVP_PKEY_free);
}

Key pemKey(const QByteArray &pem)
{
    BIO *bio = BIO_new_mem_buf(pem.constData(), pem.size());
    Key key(PEM_read_bio_PUBKEY(bio, nullptr, nullptr, nullptr), EVP_PKEY_free);
    BIO_free(bio);
    return key;
}

void put32(QByteArray &blob, int offset, quint32 v) { memcpy(blob.data() + offset, &v, 4); }

// ECCPUBLICKEYBLOB: BitLen, then X and Y right-aligned in 64-byte fields.
QByteArray eccBlob(EVP_PKEY *key)
{
    unsigned char point[65];
    size_t len = 0;
    EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, point, sizeof point, &len);
    QByteArray blob(132, '\0');
    put32(blob, 0, 256);
    blob.replace(36, 32, QByteArray(reinterpret_cast<char *>(point) + 1, 32));
    blob.replace(100, 32, QByteArray(reinterpret_cast<char *>(point) + 33, 32));
    return blob;
}

QByteArray rsaBlob(EVP_PKEY *key, bool rightAligned)
{
    BIGNUM *n = nullptr, *e = nullptr;
    EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_N, &n);
    EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_E, &e);
    QByteArray blob(268, '\0'), modulus(BN_num_bytes(n), '\0');
    put32(blob, 0, 0x00010000);
    put32(blob, 4, quint32(BN_num_bits(n)));
    BN_bn2bin(n, reinterpret_cast<unsigned char *>(modulus.data()));
    blob.replace(rightAligned ? 264 - modulus.size() : 8, modulus.size(), modulus);
    BN_bn2binpad(e, reinterpret_cast<unsigned char *>(blob.data()) + 264, 4);
    BN_free(n);
    BN_free(e);
    return blob;
}

// SM2 with SM3 and the default id, DER signatures: sign with der empty.
QByteArray sm2(EVP_PKEY *key, const QByteArray &msg, const QByteArray &der = QByteArray())
{
    EVP_MD_CTX *md = EVP_MD_CTX_new();
    EVP_PKEY_CTX *pctx = nullptr;
    QByteArray sig(128, '\0');
    size_t len = size_t(sig.size());
    const auto *m = reinterpret_cast<const unsigned char *>(msg.constData());
    bool ok = (der.isEmpty() ? EVP_DigestSignInit_ex(md, &pctx, "SM3", nullptr, nullptr, key, nullptr)
                             : EVP_DigestVerifyInit_ex(md, &pctx, "SM3", nullptr, nullptr, key, nullptr)) == 1
              && EVP_PKEY_CTX_set1_id(pctx, "1234567812345678", 16) == 1;
    ok = ok && (der.isEmpty() ? EVP_DigestSign(md, reinterpret_cast<unsigned char *>(sig.data()), &len, m, size_t(msg.size()))
                              : EVP_DigestVerify(md, reinterpret_cast<const unsigned char *>(der.constData()), size_t(der.size()), m,
                                                 size_t(msg.size()))) == 1;
    EVP_MD_CTX_free(md);
    return !ok ? QByteArray() : der.isEmpty() ? sig.left(int(len)) : QByteArray("ok");
}

} // namespace

class TstBlobConverter : public QObject
{
    Q_OBJECT

private slots:
    void publicKeys()
    {
        QString error;
        Key key = keygen("SM2");
        const QByteArray good = eccBlob(key.get());
        Key back = pemKey(BlobConverter::publicBlobToPem(good, &error));
        QVERIFY2(back && EVP_PKEY_eq(key.get(), back.get()) == 1 && EVP_PKEY_is_a(back.get(), "SM2"), qPrintable(error));
        QCOMPARE(sm2(back.get(), "msg", sm2(key.get(), "msg")), QByteArray("ok")); // on the SM2 curve
        QByteArray offCurve = good, wrongBits = good;
        offCurve[131] = char(offCurve.at(131) ^ 1);
        put32(wrongBits, 0, 384);
        const QList<QPair<QByteArray, const char *>> bad{{offCurve, "SM2 curve"}, {wrongBits, "384"}, {good.left(131), "131"}};
        for (const auto &b : bad) {
            QVERIFY(BlobConverter::publicBlobToPem(b.first, &error).isEmpty());
            QVERIFY2(error.contains(QLatin1String(b.second)), qPrintable(error));
        }
        for (size_t bits : {1024u, 2048u}) {
            Key rsa = keygen("RSA", bits);
            for (bool right : {true, false}) {
                Key r = pemKey(BlobConverter::publicBlobToPem(rsaBlob(rsa.get(), right), &error));
                QVERIFY2(r && EVP_PKEY_eq(rsa.get(), r.get()) == 1, qPrintable(error));
            }
        }
        QByteArray empty(268, '\0');
        put32(empty, 4, 2048);
        QVERIFY(BlobConverter::rsaPublicBlobToPem(empty, &error).isEmpty());
    }

    void signatureForms()
    {
        Key key = keygen("SM2");
        const QByteArray der = sm2(key.get(), "signed");
        const QByteArray compact = BlobConverter::derToCompact(der);
        QCOMPARE(compact.size(), 64);
        const QByteArray blob = BlobConverter::compactToSignatureBlob(compact);
        // r and s right-aligned in their 64-byte fields.
        QCOMPARE(blob, QByteArray(32, '\0') + compact.left(32) + QByteArray(32, '\0') + compact.mid(32));
        QCOMPARE(BlobConverter::signatureBlobToCompact(blob), compact);
        QCOMPARE(sm2(key.get(), "signed", BlobConverter::compactToDer(compact)), QByteArray("ok"));
        QCOMPARE(sm2(key.get(), "other", BlobConverter::compactToDer(compact)), QByteArray());
        for (const QByteArray &r : {BlobConverter::derToCompact(der + '\0'), BlobConverter::derToCompact("not a signature"),
                                    BlobConverter::compactToDer(compact.left(63)), BlobConverter::signatureBlobToCompact(blob.left(127))})
            QVERIFY(r.isEmpty());
    }

    void digestInfoIsWhatPkcs1VerifiesAgainst()
    {
        Key key = keygen("RSA", 2048);
        const QByteArray msg = "pay 100 to the bearer", info = BlobConverter::sha256DigestInfo(msg);
        QCOMPARE(info.size(), 19 + 32);
        // Signed as a token does (PKCS#1 v1.5, nothing added), verified as SHA-256.
        EVP_PKEY_CTX *ctx = EVP_PKEY_CTX_new(key.get(), nullptr);
        QByteArray sig(256, '\0');
        size_t len = 256;
        QVERIFY(EVP_PKEY_sign_init(ctx) == 1 && EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_PKCS1_PADDING) == 1
                && EVP_PKEY_sign(ctx, reinterpret_cast<unsigned char *>(sig.data()), &len,
                                 reinterpret_cast<const unsigned char *>(info.constData()), size_t(info.size())) == 1);
        EVP_PKEY_CTX_free(ctx);
        EVP_MD_CTX *md = EVP_MD_CTX_new();
        QVERIFY(EVP_DigestVerifyInit(md, nullptr, EVP_sha256(), nullptr, key.get()) == 1
                && EVP_DigestVerify(md, reinterpret_cast<const unsigned char *>(sig.constData()), len,
                                    reinterpret_cast<const unsigned char *>(msg.constData()), size_t(msg.size())) == 1);
        EVP_MD_CTX_free(md);
    }

    void certificatesBetweenDerAndPem()
    {
        QByteArray der;
        for (int i = 0; i < 200; ++i)
            der += char(i * 7);
        const QByteArray pem = BlobConverter::certificateToPem(der);
        QVERIFY(pem.startsWith("-----BEGIN CERTIFICATE-----\n") && pem.endsWith("-----END CERTIFICATE-----\n"));
        for (const QByteArray &line : pem.split('\n'))
            QVERIFY(line.size() <= 64 || line.startsWith("-----"));
        QCOMPARE(BlobConverter::certificateToDer(pem), der);
        QCOMPARE(BlobConverter::certificateToDer("text before\n" + pem), der);
        QCOMPARE(BlobConverter::certificateToDer(der), der);
        QVERIFY(BlobConverter::certificateToDer("-----BEGIN CERTIFICATE-----\nAAAA").isEmpty());
    }
};

QTEST_GUILESS_MAIN(TstBlobConverter)
#include "tst_blobconverter.moc"
