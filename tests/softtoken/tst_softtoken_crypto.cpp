// The software token's cryptography through the exported C functions, with
// known answers and an independent check by the openssl command line.
#include "tokenfixture.h"
#include "tokencrypto.h"

#include <QtTest>

namespace {

const QByteArray kSm4Key = QByteArray::fromHex("0123456789abcdeffedcba9876543210");
const QByteArray kSm4Cipher = QByteArray::fromHex("681edf34d206965e86b3e94f536e4246");
const char kUserId[] = "1234567812345678";

BYTE *bytes(QByteArray &b) { return reinterpret_cast<BYTE *>(b.data()); }

QByteArray exportPublic(HCONTAINER c, BOOL sign)
{
    ULONG len = 0;
    if (SKF_ExportPublicKey(c, sign, nullptr, &len) != SAR_OK)
        return QByteArray();
    QByteArray blob(int(len), '\0');
    if (SKF_ExportPublicKey(c, sign, bytes(blob), &len) != SAR_OK)
        return QByteArray();
    return blob.left(int(len));
}

// Digest through the token: the library's two-call form.
QByteArray tokenDigest(DEVHANDLE dev, ULONG alg, ECCPUBLICKEYBLOB *pub, const QByteArray &id, QByteArray data)
{
    HANDLE h = nullptr;
    QByteArray idCopy = id;
    if (SKF_DigestInit(dev, alg, pub, reinterpret_cast<unsigned char *>(idCopy.data()), ULONG(idCopy.size()), &h)
        != SAR_OK)
        return QByteArray();
    ULONG len = 0;
    QByteArray out;
    if (SKF_Digest(h, bytes(data), ULONG(data.size()), nullptr, &len) == SAR_OK) {
        out.resize(int(len));
        if (SKF_Digest(h, bytes(data), ULONG(data.size()), bytes(out), &len) != SAR_OK)
            out.clear();
    }
    SKF_CloseHandle(h);
    return out.left(int(len));
}

BLOCKCIPHERPARAM param(const QByteArray &iv, ULONG padding)
{
    BLOCKCIPHERPARAM p;
    memset(&p, 0, sizeof p);
    memcpy(p.IV, iv.constData(), size_t(iv.size()));
    p.IVLen = ULONG(iv.size());
    p.PaddingType = padding;
    return p;
}

QByteArray crypt(bool encrypt, HANDLE key, const BLOCKCIPHERPARAM &p, QByteArray in, ULONG *rvOut = nullptr)
{
    ULONG rv = encrypt ? SKF_EncryptInit(key, p) : SKF_DecryptInit(key, p);
    ULONG len = 0;
    QByteArray out;
    if (rv == SAR_OK)
        rv = encrypt ? SKF_Encrypt(key, bytes(in), ULONG(in.size()), nullptr, &len)
                     : SKF_Decrypt(key, bytes(in), ULONG(in.size()), nullptr, &len);
    if (rv == SAR_OK) {
        out.resize(int(len));
        rv = encrypt ? SKF_Encrypt(key, bytes(in), ULONG(in.size()), bytes(out), &len)
                     : SKF_Decrypt(key, bytes(in), ULONG(in.size()), bytes(out), &len);
    }
    if (rvOut)
        *rvOut = rv;
    return rv == SAR_OK ? out.left(int(len)) : QByteArray();
}

// Plain DER, written here so the openssl checks don't lean on the token's code.
QByteArray der(char tag, const QByteArray &content)
{
    QByteArray len;
    if (content.size() < 0x80) {
        len.append(char(content.size()));
    } else {
        for (int n = content.size(); n > 0; n >>= 8)
            len.prepend(char(n & 0xFF));
        len.prepend(char(0x80 | len.size()));
    }
    return QByteArray(1, tag) + len + content;
}

QByteArray derInteger(QByteArray v)
{
    while (v.size() > 1 && v.at(0) == '\0')
        v.remove(0, 1);
    if (uchar(v.at(0)) & 0x80)
        v.prepend('\0');
    return der(0x02, v);
}

QByteArray sm2PublicKeyDer(const ECCPUBLICKEYBLOB &blob)
{
    return QByteArray::fromHex("3059301306072a8648ce3d020106082a811ccf5501822d03420004")
           + QByteArray(reinterpret_cast<const char *>(blob.XCoordinate) + 32, 32)
           + QByteArray(reinterpret_cast<const char *>(blob.YCoordinate) + 32, 32);
}

int runOpenssl(const QStringList &args, QByteArray *output = nullptr)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start("openssl", args);
    if (!p.waitForFinished(30000))
        return -1;
    if (output)
        *output = p.readAll();
    return p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
}

bool writeFile(const QString &path, const QByteArray &data)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(data) == data.size();
}

} // namespace

class SoftTokenCryptoTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void sm2SignAndVerify();
    void sm2SignatureOverZVerifiesWithOpenssl();
    void digestsMatchKnownValues();
    void rsaSignAndVerify();
    void sm4RoundTripsEcbCbc();
    void sm4StreamingAndErrors();
    void eccSessionKeyExportedImportsBack();
    void rsaSessionKeyExportedImportsBack();
    void importEnvelopedEccKeyPair();
    void importWrappedRsaKeyPair();
    void extEccEncryptAndMac();
    void electronicSeal();

private:
    TokenFixture *m_fx = nullptr;
    DEVHANDLE m_dev = nullptr;
    HAPPLICATION m_app = nullptr;
    HCONTAINER m_sm2 = nullptr;
    HCONTAINER m_rsa = nullptr;
};

void SoftTokenCryptoTest::initTestCase()
{
    m_fx = new TokenFixture;
    QVERIFY(m_fx->addDevice("tok", {"sm2c:sm2", "rsac:rsa:1024", "spare"}));
    m_sm2 = m_fx->ready("tok", "sm2c", &m_dev, &m_app);
    QVERIFY(m_sm2);
    m_rsa = m_fx->openContainer(m_app, "rsac");
    QVERIFY(m_rsa);
}

void SoftTokenCryptoTest::cleanupTestCase()
{
    SKF_DisConnectDev(m_dev);
    delete m_fx;
}

void SoftTokenCryptoTest::sm2SignAndVerify()
{
    QByteArray pub = exportPublic(m_sm2, TRUE);
    QCOMPARE(pub.size(), SKF_ECCPUBLICKEYBLOB_SIZE);
    auto *blob = reinterpret_cast<ECCPUBLICKEYBLOB *>(pub.data());
    QCOMPARE(blob->BitLen, ULONG(256));
    QCOMPARE(QByteArray(reinterpret_cast<char *>(blob->XCoordinate), 32), QByteArray(32, '\0'));

    QByteArray e = TokenCrypto::random(32);
    ECCSIGNATUREBLOB sig;
    QCOMPARE(SKF_ECCSignData(m_sm2, bytes(e), 32, &sig), ULONG(SAR_OK));
    QCOMPARE(QByteArray(reinterpret_cast<char *>(sig.r), 32), QByteArray(32, '\0')); // right-aligned
    QCOMPARE(QByteArray(reinterpret_cast<char *>(sig.s), 32), QByteArray(32, '\0'));
    QCOMPARE(SKF_ECCVerify(m_dev, blob, bytes(e), 32, &sig), ULONG(SAR_OK));
    e[0] = char(e.at(0) ^ 1);
    QCOMPARE(SKF_ECCVerify(m_dev, blob, bytes(e), 32, &sig), ULONG(SAR_FAIL));

    // The encryption key pair is another key.
    QByteArray encPub = exportPublic(m_sm2, FALSE);
    QVERIFY(!encPub.isEmpty() && encPub != pub);
    e[0] = char(e.at(0) ^ 1);
    QCOMPARE(SKF_ECCVerify(m_dev, reinterpret_cast<ECCPUBLICKEYBLOB *>(encPub.data()), bytes(e), 32, &sig),
             ULONG(SAR_FAIL));

    // Signing needs the user PIN on this connection; verifying doesn't.
    DEVHANDLE other = m_fx->connect("tok");
    HAPPLICATION app = m_fx->openApp(other);
    HCONTAINER c = m_fx->openContainer(app, "sm2c");
    QCOMPARE(SKF_ECCSignData(c, bytes(e), 32, &sig), ULONG(SAR_USER_NOT_LOGGED_IN));
    QCOMPARE(SKF_ECCVerify(other, blob, bytes(e), 32, &sig), ULONG(SAR_OK));
    SKF_DisConnectDev(other);
}

void SoftTokenCryptoTest::sm2SignatureOverZVerifiesWithOpenssl()
{
    QByteArray pub = exportPublic(m_sm2, TRUE);
    auto *blob = reinterpret_cast<ECCPUBLICKEYBLOB *>(pub.data());
    const QByteArray message = "a message signed the way the library signs it";
    const QByteArray e = tokenDigest(m_dev, SGD_SM3, blob, kUserId, message);
    QCOMPARE(e.size(), 32);
    QVERIFY(e != TokenCrypto::digest("SM3", message)); // Z was hashed ahead
    QByteArray eCopy = e;
    ECCSIGNATUREBLOB sig;
    QCOMPARE(SKF_ECCSignData(m_sm2, bytes(eCopy), 32, &sig), ULONG(SAR_OK));

    QTemporaryDir dir;
    const QByteArray sigDer = der(0x30, derInteger(QByteArray(reinterpret_cast<char *>(sig.r) + 32, 32))
                                            + derInteger(QByteArray(reinterpret_cast<char *>(sig.s) + 32, 32)));
    QVERIFY(writeFile(dir.filePath("pub.der"), sm2PublicKeyDer(*blob)));
    QVERIFY(writeFile(dir.filePath("sig.der"), sigDer));
    QVERIFY(writeFile(dir.filePath("msg"), message));
    QVERIFY(writeFile(dir.filePath("other"), message + "!"));
    QByteArray out;
    QCOMPARE(runOpenssl({"pkey", "-pubin", "-inform", "DER", "-in", dir.filePath("pub.der"), "-out",
                         dir.filePath("pub.pem")}, &out), 0);
    const QStringList verify{"dgst", "-sm3", "-sigopt", QStringLiteral("distid:%1").arg(kUserId), "-verify",
                             dir.filePath("pub.pem"), "-signature", dir.filePath("sig.der")};
    QCOMPARE(runOpenssl(verify + QStringList{dir.filePath("msg")}, &out), 0);
    QVERIFY2(out.contains("Verified OK"), out.constData());
    QVERIFY(runOpenssl(verify + QStringList{dir.filePath("other")}, &out) != 0);

    // And the token's own verification of the same value.
    eCopy = e;
    QCOMPARE(SKF_ECCVerify(m_dev, blob, bytes(eCopy), 32, &sig), ULONG(SAR_OK));
}

void SoftTokenCryptoTest::digestsMatchKnownValues()
{
    QCOMPARE(tokenDigest(m_dev, SGD_SM3, nullptr, QByteArray(), "abc").toHex(),
             QByteArray("66c7f0f462eeedd9d1f2d46bdc10e4e24167c4875cf2f7a2297da02b8f4ba8e0"));
    QCOMPARE(tokenDigest(m_dev, SGD_SHA1, nullptr, QByteArray(), "abc").toHex(),
             QByteArray("a9993e364706816aba3e25717850c26c9cd0d89d"));
    QCOMPARE(tokenDigest(m_dev, SGD_SHA256, nullptr, QByteArray(), "abc").toHex(),
             QByteArray("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
    HANDLE h = nullptr;
    QCOMPARE(SKF_DigestInit(m_dev, 3, nullptr, nullptr, 0, &h), ULONG(SAR_NOTSUPPORTYETERR));

    // Update and final give what the one-shot form gives; short buffers are refused.
    QByteArray pub = exportPublic(m_sm2, TRUE);
    auto *blob = reinterpret_cast<ECCPUBLICKEYBLOB *>(pub.data());
    QByteArray id = kUserId;
    QCOMPARE(SKF_DigestInit(m_dev, SGD_SM3, blob, reinterpret_cast<unsigned char *>(id.data()), 16, &h),
             ULONG(SAR_OK));
    QByteArray a = "first part,", b = " second part";
    QCOMPARE(SKF_DigestUpdate(h, bytes(a), ULONG(a.size())), ULONG(SAR_OK));
    QCOMPARE(SKF_DigestUpdate(h, bytes(b), ULONG(b.size())), ULONG(SAR_OK));
    QByteArray out(32, '\0');
    ULONG len = 16;
    QCOMPARE(SKF_DigestFinal(h, bytes(out), &len), ULONG(SAR_BUFFER_TOO_SMALL));
    QCOMPARE(len, ULONG(32));
    QCOMPARE(SKF_DigestFinal(h, bytes(out), &len), ULONG(SAR_OK));
    QCOMPARE(out, tokenDigest(m_dev, SGD_SM3, blob, kUserId, a + b));
    // Without an id the signer's default id is taken.
    QCOMPARE(tokenDigest(m_dev, SGD_SM3, blob, QByteArray(), a + b), out);
    QCOMPARE(SKF_CloseHandle(h), ULONG(SAR_OK));
    QCOMPARE(SKF_CloseHandle(h), ULONG(SAR_INVALIDHANDLEERR));
}

void SoftTokenCryptoTest::rsaSignAndVerify()
{
    QByteArray pub = exportPublic(m_rsa, TRUE);
    QCOMPARE(pub.size(), SKF_RSAPUBLICKEYBLOB_SIZE);
    auto *blob = reinterpret_cast<RSAPUBLICKEYBLOB *>(pub.data());
    QCOMPARE(blob->BitLen, ULONG(1024));
    QCOMPARE(blob->AlgID, ULONG(SGD_RSA));

    // A DigestInfo made by the caller: the token adds nothing.
    QByteArray data = QByteArray::fromHex("3021300906052b0e03021a05000414") + TokenCrypto::digest("SHA1", "hello");
    ULONG len = 0;
    QCOMPARE(SKF_RSASignData(m_rsa, bytes(data), ULONG(data.size()), nullptr, &len), ULONG(SAR_OK));
    QCOMPARE(len, ULONG(128));
    QByteArray sig(int(len), '\0');
    ULONG shortLen = 64;
    QCOMPARE(SKF_RSASignData(m_rsa, bytes(data), ULONG(data.size()), bytes(sig), &shortLen),
             ULONG(SAR_BUFFER_TOO_SMALL));
    QCOMPARE(SKF_RSASignData(m_rsa, bytes(data), ULONG(data.size()), bytes(sig), &len), ULONG(SAR_OK));
    QCOMPARE(SKF_RSAVerify(m_dev, blob, bytes(data), ULONG(data.size()), bytes(sig), len), ULONG(SAR_OK));
    QByteArray other = data;
    other[other.size() - 1] = char(other.at(other.size() - 1) ^ 1);
    QCOMPARE(SKF_RSAVerify(m_dev, blob, bytes(other), ULONG(other.size()), bytes(sig), len), ULONG(SAR_FAIL));

    // openssl recovers exactly the data from the signature: PKCS#1 v1.5
    // over what was given, nothing added.
    QTemporaryDir dir;
    QVERIFY(writeFile(dir.filePath("sig"), sig));
    QVERIFY(writeFile(dir.filePath("pub.der"),
                      der(0x30, derInteger(QByteArray(reinterpret_cast<char *>(blob->Modulus) + 128, 128))
                                    + derInteger(QByteArray(reinterpret_cast<char *>(blob->PublicExponent), 4)))));
    QByteArray out;
    QCOMPARE(runOpenssl({"pkeyutl", "-verifyrecover", "-pubin", "-keyform", "DER", "-inkey", dir.filePath("pub.der"),
                         "-in", dir.filePath("sig"), "-out", dir.filePath("recovered")}, &out), 0);
    QFile recovered(dir.filePath("recovered"));
    QVERIFY(recovered.open(QIODevice::ReadOnly));
    QCOMPARE(recovered.readAll(), data);
    QByteArray tooLong(118, 'x');
    QCOMPARE(SKF_RSASignData(m_rsa, bytes(tooLong), 118, bytes(sig), &len), ULONG(SAR_INDATALENERR));

    // A key made on the token signs too.
    HCONTAINER spare = m_fx->openContainer(m_app, "spare");
    RSAPUBLICKEYBLOB fresh;
    QCOMPARE(SKF_GenRSAKeyPair(spare, 1000, &fresh), ULONG(SAR_RSAMODULUSLENERR));
    QCOMPARE(SKF_GenRSAKeyPair(spare, 1024, &fresh), ULONG(SAR_OK));
    ULONG type = 0;
    QCOMPARE(SKF_GetContainerType(spare, &type), ULONG(SAR_OK));
    QCOMPARE(type, ULONG(CONTAINER_TYPE_RSA));
    len = ULONG(sig.size());
    QCOMPARE(SKF_RSASignData(spare, bytes(data), ULONG(data.size()), bytes(sig), &len), ULONG(SAR_OK));
    QCOMPARE(SKF_RSAVerify(m_dev, &fresh, bytes(data), ULONG(data.size()), bytes(sig), len), ULONG(SAR_OK));
    QCOMPARE(SKF_RSAVerify(m_dev, blob, bytes(data), ULONG(data.size()), bytes(sig), len), ULONG(SAR_FAIL));
    // An SM2 key in its place turns it into an ECC container.
    ECCPUBLICKEYBLOB eccBlob;
    QCOMPARE(SKF_GenECCKeyPair(spare, SGD_SM2_1, &eccBlob), ULONG(SAR_OK));
    QCOMPARE(SKF_GetContainerType(spare, &type), ULONG(SAR_OK));
    QCOMPARE(type, ULONG(CONTAINER_TYPE_ECC));
    QCOMPARE(exportPublic(spare, TRUE), QByteArray(reinterpret_cast<char *>(&eccBlob), sizeof eccBlob));
    SKF_CloseContainer(spare);
}

void SoftTokenCryptoTest::sm4RoundTripsEcbCbc()
{
    QByteArray key = kSm4Key;
    HANDLE ecb = nullptr, cbc = nullptr;
    QCOMPARE(SKF_SetSymmKey(m_dev, bytes(key), SGD_SM4_ECB, &ecb), ULONG(SAR_OK));
    QCOMPARE(SKF_SetSymmKey(m_dev, bytes(key), SGD_SM4_CBC, &cbc), ULONG(SAR_OK));
    QCOMPARE(crypt(true, ecb, param(QByteArray(), SKF_NO_PADDING), kSm4Key), kSm4Cipher);
    QCOMPARE(crypt(false, ecb, param(QByteArray(), SKF_NO_PADDING), kSm4Cipher), kSm4Key);

    const QByteArray text = "thirty-seven bytes of plain text here";
    const QByteArray iv = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f");
    for (HANDLE k : {ecb, cbc}) {
        const QByteArray c = crypt(true, k, param(iv, SKF_PKCS5_PADDING), text);
        QCOMPARE(c.size(), 48);
        QCOMPARE(crypt(false, k, param(iv, SKF_PKCS5_PADDING), c), text);
    }
    // CBC really chains from the IV: as the ECB of the first block xor IV.
    const QByteArray cbcOut = crypt(true, cbc, param(iv, SKF_NO_PADDING), kSm4Key);
    QByteArray xored = kSm4Key;
    for (int i = 0; i < 16; ++i)
        xored[i] = char(xored.at(i) ^ iv.at(i));
    QCOMPARE(cbcOut, crypt(true, ecb, param(QByteArray(), SKF_NO_PADDING), xored));
    SKF_CloseHandle(ecb);
    SKF_CloseHandle(cbc);
}

void SoftTokenCryptoTest::sm4StreamingAndErrors()
{
    QByteArray key = kSm4Key;
    HANDLE k = nullptr;
    QCOMPARE(SKF_SetSymmKey(m_dev, bytes(key), SGD_SM4_CBC, &k), ULONG(SAR_OK));
    QByteArray in(20, 'a');
    ULONG len = 64;
    QByteArray out(64, '\0');
    QCOMPARE(SKF_Encrypt(k, bytes(in), 20, bytes(out), &len), ULONG(SAR_NOTINITIALIZEERR));
    const QByteArray iv(16, '\x11');
    const QByteArray whole = crypt(true, k, param(iv, SKF_PKCS5_PADDING), in + in);

    QCOMPARE(SKF_EncryptInit(k, param(iv, SKF_PKCS5_PADDING)), ULONG(SAR_OK));
    QByteArray streamed;
    for (int i = 0; i < 2; ++i) {
        len = 0;
        QCOMPARE(SKF_EncryptUpdate(k, bytes(in), 20, nullptr, &len), ULONG(SAR_OK)); // a size query consumes nothing
        len = ULONG(out.size());
        QCOMPARE(SKF_EncryptUpdate(k, bytes(in), 20, bytes(out), &len), ULONG(SAR_OK));
        streamed += out.left(int(len));
    }
    len = ULONG(out.size());
    QCOMPARE(SKF_EncryptFinal(k, bytes(out), &len), ULONG(SAR_OK));
    streamed += out.left(int(len));
    QCOMPARE(streamed, whole);

    ULONG rv = 0;
    crypt(true, k, param(iv, SKF_NO_PADDING), in, &rv);
    QCOMPARE(rv, ULONG(SAR_INDATALENERR));
    QByteArray tampered = whole;
    tampered[tampered.size() - 1] = char(tampered.at(tampered.size() - 1) ^ 0x55);
    crypt(false, k, param(iv, SKF_PKCS5_PADDING), tampered, &rv);
    QCOMPARE(rv, ULONG(SAR_DECRYPTPADERR));
    QCOMPARE(SKF_EncryptInit(k, param(QByteArray(5, 'x'), SKF_NO_PADDING)), ULONG(SAR_INVALIDPARAMERR));
    QCOMPARE(SKF_EncryptInit(k, param(iv, 7)), ULONG(SAR_INVALIDPARAMERR));
    HANDLE sm1 = nullptr;
    QCOMPARE(SKF_SetSymmKey(m_dev, bytes(key), SGD_SM1_ECB, &sm1), ULONG(SAR_NOTSUPPORTYETERR));
    SKF_CloseHandle(k);
}

void SoftTokenCryptoTest::eccSessionKeyExportedImportsBack()
{
    QByteArray encPub = exportPublic(m_sm2, FALSE);
    QByteArray wrapped(SKF_ECCCIPHERBLOB_BUFFER_SIZE, '\0');
    auto *blob = reinterpret_cast<ECCCIPHERBLOB *>(wrapped.data());
    HANDLE sent = nullptr, received = nullptr;
    QCOMPARE(SKF_ECCExportSessionKey(m_sm2, SGD_SM4_CBC, reinterpret_cast<ECCPUBLICKEYBLOB *>(encPub.data()), blob,
                                     &sent),
             ULONG(SAR_OK));
    QCOMPARE(blob->CipherLen, ULONG(16));
    QCOMPARE(QByteArray(reinterpret_cast<char *>(blob->XCoordinate), 32), QByteArray(32, '\0'));
    const QByteArray iv(16, '\x42');
    const QByteArray text = "only the holder of the encryption key reads this";
    const QByteArray cipher = crypt(true, sent, param(iv, SKF_PKCS5_PADDING), text);
    QVERIFY(!cipher.isEmpty());

    QCOMPARE(SKF_ImportSessionKey(m_sm2, SGD_SM4_CBC, bytes(wrapped), 165 + blob->CipherLen, &received),
             ULONG(SAR_OK));
    QCOMPARE(crypt(false, received, param(iv, SKF_PKCS5_PADDING), cipher), text);
    QCOMPARE(SKF_ImportSessionKey(m_sm2, SGD_SM4_CBC, bytes(wrapped), 100, &received), ULONG(SAR_INDATALENERR));
    wrapped[170] = char(wrapped.at(170) ^ 1); // a damaged cipher fails its hash
    HANDLE broken = nullptr;
    QCOMPARE(SKF_ImportSessionKey(m_sm2, SGD_SM4_CBC, bytes(wrapped), 181, &broken), ULONG(SAR_INDATAERR));
    SKF_CloseHandle(sent);
    SKF_CloseHandle(received);
}

void SoftTokenCryptoTest::rsaSessionKeyExportedImportsBack()
{
    QByteArray encPub = exportPublic(m_rsa, FALSE);
    auto *pub = reinterpret_cast<RSAPUBLICKEYBLOB *>(encPub.data());
    ULONG len = 0;
    HANDLE sent = nullptr, received = nullptr;
    QCOMPARE(SKF_RSAExportSessionKey(m_rsa, SGD_SM4_ECB, pub, nullptr, &len, &sent), ULONG(SAR_OK));
    QCOMPARE(len, ULONG(128));
    QVERIFY(!sent);
    QByteArray wrapped(int(len), '\0');
    QCOMPARE(SKF_RSAExportSessionKey(m_rsa, SGD_SM4_ECB, pub, bytes(wrapped), &len, &sent), ULONG(SAR_OK));
    QVERIFY(sent);
    QCOMPARE(SKF_ImportSessionKey(m_rsa, SGD_SM4_ECB, bytes(wrapped), len, &received), ULONG(SAR_OK));
    const QByteArray text(64, 'r');
    QCOMPARE(crypt(false, received, param(QByteArray(), SKF_NO_PADDING),
                   crypt(true, sent, param(QByteArray(), SKF_NO_PADDING), text)),
             text);
    SKF_CloseHandle(sent);
    SKF_CloseHandle(received);
}

void SoftTokenCryptoTest::importEnvelopedEccKeyPair()
{
    QByteArray signPub = exportPublic(m_sm2, TRUE);
    const QByteArray priv = TokenCrypto::sm2Generate();
    EVP_PKEY *key = TokenCrypto::sm2KeyPair(priv);
    QByteArray x, y;
    QVERIFY(key && TokenCrypto::sm2PublicPoint(key, &x, &y));
    TokenCrypto::freeKey(key);

    // The envelope: an SM4 key under the container's signing key, the new
    // private key under the SM4 key.
    QByteArray env(sizeof(ENVELOPEDKEYBLOB) + 32, '\0');
    auto *blob = reinterpret_cast<ENVELOPEDKEYBLOB *>(env.data());
    blob->Version = 1;
    blob->ulSymmAlgID = SGD_SM4_ECB;
    blob->ulBits = 256;
    QByteArray symKey = TokenCrypto::random(16), encPriv;
    QVERIFY(TokenCrypto::sm4(true, TokenCrypto::Sm4Ecb, symKey, QByteArray(), false, priv, &encPriv));
    memcpy(blob->cbEncryptedPriKey + 32, encPriv.constData(), 32);
    blob->PubKey.BitLen = 256;
    memcpy(blob->PubKey.XCoordinate + 32, x.constData(), 32);
    memcpy(blob->PubKey.YCoordinate + 32, y.constData(), 32);
    QCOMPARE(SKF_ExtECCEncrypt(m_dev, reinterpret_cast<ECCPUBLICKEYBLOB *>(signPub.data()), bytes(symKey), 16,
                               &blob->ECCCipherBlob),
             ULONG(SAR_OK));

    HCONTAINER c = nullptr;
    QCOMPARE(SKF_CreateContainer(m_app, const_cast<char *>("imported"), &c), ULONG(SAR_OK));
    QCOMPARE(SKF_ImportECCKeyPair(c, blob), ULONG(SAR_KEYNOTFOUNTERR)); // no signing key to unwrap with
    SKF_CloseContainer(c);
    QCOMPARE(SKF_ImportECCKeyPair(m_sm2, blob), ULONG(SAR_OK));
    QByteArray encPub = exportPublic(m_sm2, FALSE);
    QCOMPARE(encPub.mid(4 + 32, 32), x);
    QCOMPARE(encPub.mid(4 + 64 + 32, 32), y);

    // The imported private key decrypts what its public key enciphered.
    QByteArray plain = "for the imported key", cipherBuf(165 + plain.size(), '\0');
    QCOMPARE(SKF_ExtECCEncrypt(m_dev, reinterpret_cast<ECCPUBLICKEYBLOB *>(encPub.data()), bytes(plain),
                               ULONG(plain.size()), reinterpret_cast<ECCCIPHERBLOB *>(cipherBuf.data())),
             ULONG(SAR_OK));
    QByteArray back(64, '\0');
    ULONG len = ULONG(back.size());
    QCOMPARE(SKF_ECCPrvKeyDecryptEx(m_sm2, FALSE, reinterpret_cast<ECCCIPHERBLOB *>(cipherBuf.data()), bytes(back),
                                    &len),
             ULONG(SAR_OK));
    QCOMPARE(back.left(int(len)), plain);

    // A public key that doesn't match the private key is refused.
    blob->PubKey.XCoordinate[63] ^= 1;
    QCOMPARE(SKF_ImportECCKeyPair(m_sm2, blob), ULONG(SAR_INDATAERR));
}

void SoftTokenCryptoTest::importWrappedRsaKeyPair()
{
    QByteArray signPub = exportPublic(m_rsa, TRUE);
    auto *pub = reinterpret_cast<RSAPUBLICKEYBLOB *>(signPub.data());
    EVP_PKEY *wrapKey = TokenCrypto::rsaPublicKey(QByteArray(reinterpret_cast<char *>(pub->Modulus) + 128, 128),
                                                  QByteArray(reinterpret_cast<char *>(pub->PublicExponent), 4));
    QVERIFY(wrapKey);
    QByteArray symKey = TokenCrypto::random(16), wrapped, encrypted;
    QVERIFY(TokenCrypto::rsaEncrypt(wrapKey, symKey, &wrapped));
    TokenCrypto::freeKey(wrapKey);
    const QByteArray der = TokenCrypto::rsaGenerate(1024);
    QVERIFY(TokenCrypto::sm4(true, TokenCrypto::Sm4Ecb, symKey, QByteArray(), true, der, &encrypted));

    QCOMPARE(SKF_ImportRSAKeyPair(m_rsa, SGD_SM1_ECB, bytes(wrapped), ULONG(wrapped.size()), bytes(encrypted),
                                  ULONG(encrypted.size())),
             ULONG(SAR_NOTSUPPORTYETERR));
    QCOMPARE(SKF_ImportRSAKeyPair(m_rsa, SGD_SM4_ECB, bytes(wrapped), ULONG(wrapped.size()), bytes(encrypted),
                                  ULONG(encrypted.size())),
             ULONG(SAR_OK));
    EVP_PKEY *imported = TokenCrypto::rsaKeyPair(der);
    QByteArray n, e;
    QVERIFY(TokenCrypto::rsaPublicParts(imported, &n, &e));
    TokenCrypto::freeKey(imported);
    QByteArray encPub = exportPublic(m_rsa, FALSE);
    QCOMPARE(encPub.mid(8 + 256 - 128, 128), n);
}

void SoftTokenCryptoTest::extEccEncryptAndMac()
{
    QByteArray key = kSm4Key;
    HANDLE k = nullptr, mac = nullptr;
    QCOMPARE(SKF_SetSymmKey(m_dev, bytes(key), SGD_SM4_MAC, &k), ULONG(SAR_OK));
    BLOCKCIPHERPARAM p = param(QByteArray(16, '\0'), SKF_NO_PADDING);
    QCOMPARE(SKF_MacInit(k, &p, &mac), ULONG(SAR_OK));
    // One block under a zero IV: the block cipher's known answer.
    QByteArray block = kSm4Key, out(16, '\0');
    ULONG len = 16;
    QCOMPARE(SKF_Mac(mac, bytes(block), 16, bytes(out), &len), ULONG(SAR_OK));
    QCOMPARE(out, kSm4Cipher);
    QCOMPARE(SKF_MacUpdate(mac, bytes(block), 8), ULONG(SAR_OK));
    len = 16;
    QCOMPARE(SKF_MacFinal(mac, bytes(out), &len), ULONG(SAR_INDATALENERR));
    QCOMPARE(SKF_MacUpdate(mac, bytes(block) + 8, 8), ULONG(SAR_OK));
    QCOMPARE(SKF_MacFinal(mac, bytes(out), &len), ULONG(SAR_OK));
    QCOMPARE(out, kSm4Cipher);
    QCOMPARE(SKF_EncryptInit(k, param(QByteArray(), SKF_NO_PADDING)), ULONG(SAR_KEYUSAGEERR));
    SKF_CloseHandle(mac);
    SKF_CloseHandle(k);
}

void SoftTokenCryptoTest::electronicSeal()
{
    ULONG len = 77;
    QCOMPARE(EPS_ReadESealData(m_app, 0, 0, nullptr, &len, 0), ULONG(SAR_OK));
    QCOMPARE(len, ULONG(0));
    QByteArray seal(3000, 's');
    QCOMPARE(EPS_WriteESealData(m_app, bytes(seal), ULONG(seal.size()), 0), ULONG(SAR_OK));
    QCOMPARE(EPS_ReadESealData(m_app, 1, SGD_SM4_ECB, nullptr, &len, 0), ULONG(SAR_OK));
    QCOMPARE(len, ULONG(3000));
    QByteArray back(int(len), '\0');
    ULONG shortLen = 10;
    QCOMPARE(EPS_ReadESealData(m_app, 1, SGD_SM4_ECB, bytes(back), &shortLen, 0), ULONG(SAR_BUFFER_TOO_SMALL));
    QCOMPARE(EPS_ReadESealData(m_app, 1, SGD_SM4_ECB, bytes(back), &len, 0), ULONG(SAR_OK));
    QCOMPARE(back, seal);

    // A symmetric key by index, wrapped under the container's encryption key.
    QByteArray encPub = exportPublic(m_sm2, FALSE), key = kSm4Key;
    QByteArray wrapped(165 + 16, '\0');
    QCOMPARE(SKF_ExtECCEncrypt(m_dev, reinterpret_cast<ECCPUBLICKEYBLOB *>(encPub.data()), bytes(key), 16,
                               reinterpret_cast<ECCCIPHERBLOB *>(wrapped.data())),
             ULONG(SAR_OK));
    QCOMPARE(EPS_ImportSymmKey(m_sm2, 3, bytes(wrapped), ULONG(wrapped.size()), 0), ULONG(SAR_OK));
    QByteArray in = kSm4Key, out(32, '\0');
    len = ULONG(out.size());
    QCOMPARE(EPS_Encrypt(m_sm2, 3, SGD_SM4_ECB, nullptr, 0, bytes(in), 16, bytes(out), &len, 0), ULONG(SAR_OK));
    QCOMPARE(out.left(int(len)), kSm4Cipher);
    QByteArray cipher = out.left(int(len));
    len = ULONG(out.size());
    QCOMPARE(EPS_Decrypt(m_sm2, 3, SGD_SM4_ECB, nullptr, 0, bytes(cipher), 16, bytes(out), &len, 0), ULONG(SAR_OK));
    QCOMPARE(out.left(int(len)), kSm4Key);
    len = ULONG(out.size());
    QCOMPARE(EPS_Mac(m_sm2, 3, SGD_SM4_MAC, nullptr, 0, bytes(in), 16, bytes(out), &len, 0), ULONG(SAR_OK));
    QCOMPARE(out.left(int(len)), kSm4Cipher);
    QCOMPARE(EPS_Encrypt(m_sm2, 4, SGD_SM4_ECB, nullptr, 0, bytes(in), 16, bytes(out), &len, 0),
             ULONG(SAR_KEYNOTFOUNTERR));

    // Writing the seal takes the user PIN.
    DEVHANDLE other = m_fx->connect("tok");
    HAPPLICATION app = m_fx->openApp(other);
    QCOMPARE(EPS_WriteESealData(app, bytes(seal), 10, 0), ULONG(SAR_USER_NOT_LOGGED_IN));
    len = 0;
    QCOMPARE(EPS_ReadESealData(app, 0, 0, nullptr, &len, 0), ULONG(SAR_OK));
    QCOMPARE(len, ULONG(3000));
    SKF_DisConnectDev(other);
}

QTEST_GUILESS_MAIN(SoftTokenCryptoTest)
#include "tst_softtoken_crypto.moc"
