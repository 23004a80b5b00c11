// Signatures, digests, session keys and seal data made on the software
// token through by-name calls, judged by OpenSSL: in this process for
// hashes, and by the openssl command line for signatures.
#include "blobconverter.h"
#include "isolatedtest.h"
#include "kdpfixture.h"
#include "softtokenengine.h"
#include "testhost.h"
#include "twdeviceguard.h"

#include "skf/skfapi.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/obj_mac.h>

#include <cstring>
#include <memory>

namespace {

const QString kUserPin = QStringLiteral("12345678");
const QString kDefaultId = QStringLiteral("1234567812345678");
const uint kSentinel = 0x5EA15EA1u;

QByteArray evpDigest(const EVP_MD *md, const QByteArray &data)
{
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    if (!EVP_Digest(data.constData(), size_t(data.size()), out, &len, md, nullptr))
        return QByteArray();
    return QByteArray(reinterpret_cast<const char *>(out), int(len));
}

QByteArray bn32(const BIGNUM *n)
{
    QByteArray out(32, '\0');
    BN_bn2binpad(n, reinterpret_cast<unsigned char *>(out.data()), 32);
    return out;
}

// Z of the signer: SM3(ENTL || id || a || b || xG || yG || xA || yA), with
// the curve taken from OpenSSL and the point from an ECCPUBLICKEYBLOB,
// where each 256-bit coordinate stands right-aligned in 64 bytes.
QByteArray sm2Z(const QByteArray &pubBlob, const QByteArray &id)
{
    EC_GROUP *group = EC_GROUP_new_by_curve_name(NID_sm2);
    BN_CTX *ctx = BN_CTX_new();
    BIGNUM *p = BN_new(), *a = BN_new(), *b = BN_new(), *gx = BN_new(), *gy = BN_new();
    QByteArray z;
    if (group && ctx && EC_GROUP_get_curve(group, p, a, b, ctx) &&
        EC_POINT_get_affine_coordinates(group, EC_GROUP_get0_generator(group), gx, gy, ctx)) {
        const int bits = id.size() * 8;
        QByteArray in;
        in += char((bits >> 8) & 0xFF);
        in += char(bits & 0xFF);
        in += id + bn32(a) + bn32(b) + bn32(gx) + bn32(gy);
        in += pubBlob.mid(4 + 32, 32) + pubBlob.mid(4 + 64 + 32, 32);
        z = evpDigest(EVP_sm3(), in);
    }
    BN_free(p);
    BN_free(a);
    BN_free(b);
    BN_free(gx);
    BN_free(gy);
    BN_CTX_free(ctx);
    EC_GROUP_free(group);
    return z;
}

QByteArray sha256DigestInfo(const QByteArray &data)
{
    static const char prefix[] = "\x30\x31\x30\x0d\x06\x09\x60\x86\x48\x01\x65\x03\x04\x02\x01\x05\x00\x04\x20";
    return QByteArray(prefix, 19) + evpDigest(EVP_sha256(), data);
}

QByteArray cipherParam(const QByteArray &iv, quint32 padding)
{
    BLOCKCIPHERPARAM p;
    std::memset(&p, 0, sizeof(p));
    std::memcpy(p.IV, iv.constData(), size_t(iv.size()));
    p.IVLen = ULONG(iv.size());
    p.PaddingType = padding;
    return QByteArray(reinterpret_cast<const char *>(&p), int(sizeof(p)));
}

QByteArray pattern(int size, int seed)
{
    QByteArray out(size, '\0');
    for (int i = 0; i < size; ++i)
        out[i] = char((i * 31 + seed * 17 + (i >> 3)) & 0xFF);
    return out;
}

} // namespace

class TestSessionCryptoSoftToken : public QObject
{
    Q_OBJECT

private slots:
    void eccSimpleSignatureVerifiesWithOpenssl();
    void rsaSignatureVerifiesWithOpenssl();
    void digestsMatchOpenssl();
    void exportedSessionKeyDecryptsAfterImport();
    void envelopeCipherTailIsNeverReadPast();
    void sealReadsBackByteForByte();

private:
    bool start(const SoftTokenEngine::ContainerSetup &container, bool login);
    QString writeFile(const QString &name, const QByteArray &data);
    int openssl(const QStringList &args);
    const char *opensslSaid() const { return m_opensslOutput.constData(); }

    template <typename R, typename... A>
    R call(const char *method, A &&...args)
    {
        return m_host->call<R>(m_key, method, std::forward<A>(args)...);
    }

    TwDeviceGuard m_guard;
    QTemporaryDir m_store;
    QTemporaryDir m_files;
    KdpFixture m_kdp;
    std::unique_ptr<TestHost> m_host;
    QObject *m_key = nullptr;
    Qt::HANDLE m_c = nullptr;
    QByteArray m_opensslOutput;
};

// One token in a store of its own with one container, seen through a
// package of the software token library; the key and the container (m_c)
// are open, logged in when asked.
bool TestSessionCryptoSoftToken::start(const SoftTokenEngine::ContainerSetup &container, bool login)
{
    if (!m_store.isValid() || !m_files.isValid() || !m_kdp.isValid()) {
        QTest::qFail("no temporary directory", __FILE__, __LINE__);
        return false;
    }
    qputenv("SOFTTOKEN_STORE", QFile::encodeName(m_store.path()));
    SoftTokenEngine engine(m_store.path());
    SoftTokenEngine::DeviceOptions options;
    options.name = QStringLiteral("token1");
    options.containers << container;
    if (!engine.createDevice(options)) {
        QTest::qFail(qPrintable(engine.lastError()), __FILE__, __LINE__);
        return false;
    }
    KdpConfig config;
    config.name = QStringLiteral("softtoken");
    config.argument = QStringLiteral("libsofttoken-skf.so");
    if (m_kdp.addPackage(QStringLiteral("softtoken"), config, QStringLiteral(SOFTTOKEN_SKF)).isEmpty()) {
        QTest::qFail("package not written", __FILE__, __LINE__);
        return false;
    }
    m_host = std::make_unique<TestHost>(m_kdp.root());
    if (!m_host->start() || m_host->count() != 1 || !(m_key = m_host->open(0))) {
        QTest::qFail(qPrintable(QStringLiteral("the token does not open: ") + m_host->errorString()), __FILE__,
                     __LINE__);
        return false;
    }
    if (login && !call<bool>("verifyPin", kUserPin, false)) {
        QTest::qFail("verifyPin failed", __FILE__, __LINE__);
        return false;
    }
    m_c = call<Qt::HANDLE>("openContainer", container.name);
    if (!m_c)
        QTest::qFail("the container does not open", __FILE__, __LINE__);
    return m_c != nullptr;
}

QString TestSessionCryptoSoftToken::writeFile(const QString &name, const QByteArray &data)
{
    const QString path = m_files.filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size())
        return QString();
    return path;
}

// Exit code of the openssl command line, -1 when it did not run; what it
// printed is kept for the failure message.
int TestSessionCryptoSoftToken::openssl(const QStringList &args)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral("openssl"), args);
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit)
        return -1;
    m_opensslOutput = process.readAll();
    return process.exitCode();
}

void TestSessionCryptoSoftToken::eccSimpleSignatureVerifiesWithOpenssl()
{
    QVERIFY(start({QStringLiteral("sm2"), SoftTokenEngine::ContainerSetup::Sm2}, false));
    const QByteArray message("A message signed on the token, checked by openssl.");

    // Not logged in: the token refuses, and what is left is 32 zero bytes
    // with the token's code.
    m_host->core().setLastError(0);
    QCOMPARE(call<QByteArray>("eccSimpleSign", m_c, message, true), QByteArray(32, '\0'));
    QCOMPARE(m_host->lastError(), uint(SAR_USER_NOT_LOGGED_IN));

    QVERIFY(call<bool>("verifyPin", kUserPin, false));
    const QByteArray signature = call<QByteArray>("eccSimpleSign", m_c, message, true);
    QCOMPARE(signature.size(), 64);
    QVERIFY(call<bool>("eccSimpleVerify", m_c, message, signature, true));
    QVERIFY(!call<bool>("eccSimpleVerify", m_c, message + '.', signature, true));
    QByteArray forged = signature;
    forged[63] = char(forged.at(63) ^ 0x01);
    QVERIFY(!call<bool>("eccSimpleVerify", m_c, message, forged, true));

    // The same signature by the openssl command line, with SM3, the default
    // id and the exported public key; another id or message fails.
    const QByteArray pub = call<QByteArray>("exportPublicKey", m_c, true);
    QCOMPARE(pub.size(), SKF_ECCPUBLICKEYBLOB_SIZE);
    QString error;
    const QByteArray pem = BlobConverter::eccPublicBlobToPem(pub, &error);
    QVERIFY2(!pem.isEmpty(), qPrintable(error));
    const QString pemFile = writeFile(QStringLiteral("pub.pem"), pem);
    const QString sigFile = writeFile(QStringLiteral("sig.der"), BlobConverter::compactToDer(signature));
    const QString msgFile = writeFile(QStringLiteral("msg"), message);
    const QString otherFile = writeFile(QStringLiteral("other"), message + '.');
    QVERIFY(!pemFile.isEmpty() && !sigFile.isEmpty() && !msgFile.isEmpty() && !otherFile.isEmpty());
    auto verify = [&](const QString &id, const QString &file) {
        return openssl({QStringLiteral("dgst"), QStringLiteral("-sm3"), QStringLiteral("-sigopt"),
                        QStringLiteral("distid:") + id, QStringLiteral("-verify"), pemFile,
                        QStringLiteral("-signature"), sigFile, file});
    };
    QVERIFY2(verify(kDefaultId, msgFile) == 0, opensslSaid());
    QVERIFY(verify(QStringLiteral("1234567812345679"), msgFile) > 0);
    QVERIFY(verify(kDefaultId, otherFile) > 0);
}

void TestSessionCryptoSoftToken::rsaSignatureVerifiesWithOpenssl()
{
    QVERIFY(start({QStringLiteral("rsa"), SoftTokenEngine::ContainerSetup::Empty}, true));

    // The one RSA 2048 key of the suite.
    const QByteArray blob = call<QByteArray>("genRSAKeyPair", m_c, quint64(2048));
    QCOMPARE(blob.size(), SKF_RSAPUBLICKEYBLOB_SIZE);
    QCOMPARE(call<QByteArray>("exportPublicKey", m_c, true), blob);

    // The session adds no DigestInfo: the caller's bytes are what gets signed.
    const QByteArray message("A message for a PKCS#1 v1.5 signature.");
    const QByteArray digestInfo = sha256DigestInfo(message);
    const QByteArray signature = call<QByteArray>("rsaSignData", m_c, digestInfo);
    QCOMPARE(signature.size(), 256);
    QVERIFY(call<bool>("rsaVerify", blob, digestInfo, signature));
    QByteArray forged = signature;
    forged[0] = char(forged.at(0) ^ 0x01);
    m_host->core().setLastError(0);
    QVERIFY(!call<bool>("rsaVerify", blob, digestInfo, forged));
    QVERIFY(m_host->lastError() != 0);

    QString error;
    const QByteArray pem = BlobConverter::rsaPublicBlobToPem(blob, &error);
    QVERIFY2(!pem.isEmpty(), qPrintable(error));
    const QString pemFile = writeFile(QStringLiteral("rsa.pem"), pem);
    const QString sigFile = writeFile(QStringLiteral("rsa.sig"), signature);
    const QString inFile = writeFile(QStringLiteral("digestinfo"), digestInfo);
    const QString otherFile = writeFile(QStringLiteral("other"), sha256DigestInfo(message + '.'));
    auto verify = [&](const QString &file) {
        return openssl({QStringLiteral("pkeyutl"), QStringLiteral("-verify"), QStringLiteral("-pubin"),
                        QStringLiteral("-inkey"), pemFile, QStringLiteral("-in"), file, QStringLiteral("-sigfile"),
                        sigFile});
    };
    QVERIFY2(verify(inFile) == 0, opensslSaid());
    QVERIFY(verify(otherFile) > 0);
}

void TestSessionCryptoSoftToken::digestsMatchOpenssl()
{
    QVERIFY(start({QStringLiteral("sm2"), SoftTokenEngine::ContainerSetup::Sm2}, false));
    const QByteArray data = pattern(1500, 1);

    struct Alg
    {
        quint64 id;
        const EVP_MD *md;
    };
    const QList<Alg> algs = {{SGD_SM3, EVP_sm3()}, {SGD_SHA1, EVP_sha1()}, {SGD_SHA256, EVP_sha256()}};
    for (const Alg &alg : algs) {
        Qt::HANDLE hash = call<Qt::HANDLE>("digestInit", alg.id, QByteArray(), QString());
        QVERIFY(hash);
        QCOMPARE(call<QByteArray>("digest", hash, data), evpDigest(alg.md, data));
        m_host->callVoid(m_key, "closeHandle", hash);
    }

    // With the public key and an id, the token hashes Z first.
    const QByteArray pub = call<QByteArray>("exportPublicKey", m_c, true);
    QCOMPARE(pub.size(), SKF_ECCPUBLICKEYBLOB_SIZE);
    for (const QString &id : {kDefaultId, QStringLiteral("ALICE123@YAHOO.COM")}) {
        Qt::HANDLE hash = call<Qt::HANDLE>("digestInit", quint64(SGD_SM3), pub, id);
        QVERIFY(hash);
        const QByteArray z = sm2Z(pub, id.toUtf8());
        QCOMPARE(z.size(), 32);
        QCOMPARE(call<QByteArray>("digest", hash, data), evpDigest(EVP_sm3(), z + data));
        m_host->callVoid(m_key, "closeHandle", hash);
    }
}

void TestSessionCryptoSoftToken::exportedSessionKeyDecryptsAfterImport()
{
    QVERIFY(start({QStringLiteral("sm2"), SoftTokenEngine::ContainerSetup::Sm2}, true));
    // Wrapped under the container's encryption key, which unwraps it on import.
    const QByteArray encPub = call<QByteArray>("exportPublicKey", m_c, false);
    QCOMPARE(encPub.size(), SKF_ECCPUBLICKEYBLOB_SIZE);

    struct Mode
    {
        const char *name;
        quint64 alg;
        QByteArray iv;
        quint32 padding;
        int plainSize;
        int cipherSize;
    };
    const QList<Mode> modes = {
        {"SM4 ECB", SGD_SM4_ECB, QByteArray(), SKF_NO_PADDING, 64, 64},
        {"SM4 CBC", SGD_SM4_CBC, pattern(16, 7), SKF_PKCS5_PADDING, 37, 48},
    };
    for (const Mode &mode : modes) {
        const QByteArray plain = pattern(mode.plainSize, 3);
        const QByteArray param = cipherParam(mode.iv, mode.padding);

        Qt::HANDLE exported = nullptr;
        TWPtr out{"Qt::HANDLE*", &exported};
        const QByteArray blob = call<QByteArray>("eccExportSessionKey", m_c, mode.alg, encPub, out);
        QVERIFY2(blob.size() == SKF_ECCCIPHERBLOB_BUFFER_SIZE, mode.name);
        QVERIFY2(exported, mode.name);
        QVERIFY2(call<bool>("encryptInit", exported, param), mode.name);
        const QByteArray cipher = call<QByteArray>("encrypt", exported, plain, quint64(plain.size()));
        QVERIFY2(cipher.size() == mode.cipherSize, mode.name);
        QVERIFY2(cipher.left(plain.size()) != plain, mode.name);

        Qt::HANDLE imported = call<Qt::HANDLE>("importSessionKey", m_c, mode.alg, blob, quint64(blob.size()));
        QVERIFY2(imported, mode.name);
        QVERIFY2(call<bool>("decryptInit", imported, param), mode.name);
        QVERIFY2(call<QByteArray>("decrypt", imported, cipher, quint64(cipher.size())) == plain, mode.name);

        m_host->callVoid(m_key, "closeHandle", exported);
        m_host->callVoid(m_key, "closeHandle", imported);
    }
}

// The token reads an enveloped key pair with its cipher tail of CipherLen
// bytes. A host that hands over only the declared structure gets a tail of
// zeros, never a read past its array (the sanitizer build would stop there).
void TestSessionCryptoSoftToken::envelopeCipherTailIsNeverReadPast()
{
    QVERIFY(start({QStringLiteral("sm2"), SoftTokenEngine::ContainerSetup::Sm2}, true));

    QByteArray env(int(sizeof(ENVELOPEDKEYBLOB)), '\0');
    auto *blob = reinterpret_cast<ENVELOPEDKEYBLOB *>(env.data());
    blob->ulSymmAlgID = SGD_SM4_ECB;
    blob->ulBits = 256;
    blob->PubKey.BitLen = 256;
    blob->ECCCipherBlob.CipherLen = 16;
    // Not a key the container can unwrap: the token refuses it after
    // reading the whole tail.
    m_host->core().setLastError(kSentinel);
    QVERIFY(!call<bool>("importECCKeyPair", m_c, env));
    QCOMPARE(m_host->lastError(), uint(SAR_INDATAERR));
}

void TestSessionCryptoSoftToken::sealReadsBackByteForByte()
{
    QVERIFY(start({QStringLiteral("sm2"), SoftTokenEngine::ContainerSetup::Sm2}, true));

    // No seal yet: empty, and no last error.
    m_host->core().setLastError(kSentinel);
    QVERIFY(call<QByteArray>("epsReadESealData", quint64(1), quint64(SGD_SM2_1), quint64(0)).isEmpty());
    QCOMPARE(m_host->lastError(), kSentinel);

    const QByteArray seal = pattern(2000, 5);
    QVERIFY(call<bool>("epsWriteESealData", seal, quint64(seal.size()), quint64(0)));
    QCOMPARE(call<QByteArray>("epsReadESealData", quint64(1), quint64(SGD_SM2_1), quint64(0)), seal);
    // And by the shorter forms.
    const QByteArray other = pattern(10, 9);
    QVERIFY(call<bool>("epsWriteESealData", other, quint64(other.size())));
    QCOMPARE(call<QByteArray>("epsReadESealData", quint64(1), quint64(SGD_SM2_1)), other);
    QCOMPARE(m_host->lastError(), kSentinel);
}

TW_TEST_MAIN_ISOLATED(TestSessionCryptoSoftToken)
#include "tst_sessioncrypto_softtoken.moc"
