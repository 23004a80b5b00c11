// The CLI's conversions against OpenSSL's own view of the same keys and
// signatures.
#include "blobconverter.h"

#include <QtTest>

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

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

} // namespace

class TstBlobConverter : public QObject
{
    Q_OBJECT

private slots:
    // What the CLI table does not reach: the keys and signatures twkey meets
    // through the token are checked by openssl there.
    void edgesAndRefusals()
    {
        QString error;
        Key key = keygen("SM2");
        const QByteArray good = eccBlob(key.get());
        Key back = pemKey(BlobConverter::publicBlobToPem(good, &error));
        QVERIFY2(back && EVP_PKEY_eq(key.get(), back.get()) == 1 && EVP_PKEY_is_a(back.get(), "SM2"), qPrintable(error));
        QByteArray offCurve = good, wrongBits = good;
        offCurve[131] = char(offCurve.at(131) ^ 1);
        put32(wrongBits, 0, 384);
        const QList<QPair<QByteArray, const char *>> bad{{offCurve, "SM2 curve"}, {wrongBits, "384"}, {good.left(131), "131"}};
        for (const auto &b : bad) {
            QVERIFY(BlobConverter::publicBlobToPem(b.first, &error).isEmpty());
            QVERIFY2(error.contains(QLatin1String(b.second)), qPrintable(error));
        }
        Key rsa = keygen("RSA", 1024); // the token's modulus stands right, some stand left
        Key left = pemKey(BlobConverter::publicBlobToPem(rsaBlob(rsa.get(), false), &error));
        QVERIFY2(left && EVP_PKEY_eq(rsa.get(), left.get()) == 1, qPrintable(error));
        QByteArray empty(268, '\0');
        put32(empty, 4, 2048);
        QVERIFY(BlobConverter::rsaPublicBlobToPem(empty, &error).isEmpty());

        const QByteArray compact = QByteArray(31, '\x01') + '\x81' + QByteArray(32, '\x02');
        const QByteArray blob = BlobConverter::compactToSignatureBlob(compact), der = BlobConverter::compactToDer(compact);
        QCOMPARE(blob, QByteArray(32, '\0') + compact.left(32) + QByteArray(32, '\0') + compact.mid(32)); // r, s right-aligned
        QCOMPARE(BlobConverter::signatureBlobToCompact(blob), compact);
        QCOMPARE(BlobConverter::derToCompact(der), compact);
        for (const QByteArray &r : {BlobConverter::derToCompact(der + '\0'), BlobConverter::derToCompact("not a signature"),
                                    BlobConverter::compactToDer(compact.left(63)), BlobConverter::signatureBlobToCompact(blob.left(127))})
            QVERIFY(r.isEmpty());

        QByteArray cert;
        for (int i = 0; i < 200; ++i)
            cert += char(i * 7);
        const QByteArray pem = BlobConverter::certificateToPem(cert);
        for (const QByteArray &line : pem.split('\n'))
            QVERIFY(line.size() <= 64 || line.startsWith("-----"));
        QCOMPARE(BlobConverter::certificateToDer("text before\n" + pem), cert);
        QCOMPARE(BlobConverter::certificateToDer(cert), cert);
        QVERIFY(BlobConverter::certificateToDer("-----BEGIN CERTIFICATE-----\nAAAA").isEmpty());
    }
};

QTEST_GUILESS_MAIN(TstBlobConverter)
#include "tst_blobconverter.moc"
