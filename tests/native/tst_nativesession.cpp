// The native session, black-box: rows of conformance.h against the
// software token's native face, through the test host, by method name.
// What differs from the SKF session is what the native session is
// designed to do otherwise; the rest is the shared code's, checked once
// by the SKF tables.
#include <QTest>

#include <openssl/evp.h>
#include <openssl/pem.h>

#include "blobconverter.h"
#include "isolatedtest.h"
#include "kdpfixture.h"
#include "sessionrows.h"
#include "session/keyobject.h"
#include "softtokenengine.h"
#include "testhost.h"

namespace {

const quint64 kAllOnes = ~quint64(0);
const QByteArray kMessage("A message signed on the native face.");
// BLOCKCIPHERPARAM of ECB without padding: all zero.
const QByteArray kEcb(44, '\0');

Conformance::Options nativeFace()
{
    Conformance::Options o;
    o.package.protocol = QStringLiteral("twf");
    o.package.ap = KdpFixture::encodeAdminPin(QString::fromLatin1(kAdmin));
    o.library = QStringLiteral(SOFTTOKEN_NATIVE);
    return o;
}

Row inC1(const QString &tag, bool sign = true)
{
    return user(tag).before("openContainer", {"c1"}, "c").before("exportPublicKey", {ref("c"), sign}, "pub");
}

// The openssl library's verdict on a token's signature: SM2 with the
// default id over the message, or RSA PKCS#1 v1.5 over the bytes as given.
bool opensslVerifies(const QByteArray &pubBlob, const QByteArray &data, const QByteArray &signature)
{
    QString error;
    const QByteArray pem = BlobConverter::publicBlobToPem(pubBlob, &error);
    BIO *bio = BIO_new_mem_buf(pem.constData(), pem.size());
    EVP_PKEY *key = PEM_read_bio_PUBKEY(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    EVP_PKEY_CTX *ctx = EVP_PKEY_CTX_new(key, nullptr);
    EVP_MD_CTX *md = EVP_MD_CTX_new();
    bool ok = false;
    if (pubBlob.size() == BlobConverter::kEccPublicBlobSize) {
        const QByteArray der = BlobConverter::compactToDer(signature);
        EVP_PKEY_CTX_set1_id(ctx, "1234567812345678", 16);
        EVP_MD_CTX_set_pkey_ctx(md, ctx);
        ok = EVP_DigestVerifyInit(md, nullptr, EVP_sm3(), nullptr, key) == 1
             && EVP_DigestVerify(md, reinterpret_cast<const uchar *>(der.constData()), size_t(der.size()),
                                 reinterpret_cast<const uchar *>(data.constData()), size_t(data.size())) == 1;
    } else {
        uchar out[512];
        size_t outLen = sizeof out;
        ok = EVP_PKEY_verify_recover_init(ctx) == 1
             && EVP_PKEY_verify_recover(ctx, out, &outLen, reinterpret_cast<const uchar *>(signature.constData()),
                                        size_t(signature.size())) == 1
             && QByteArray(reinterpret_cast<char *>(out), int(outLen)) == data;
        EVP_PKEY_CTX_free(ctx);
    }
    EVP_MD_CTX_free(md);
    EVP_PKEY_free(key);
    return ok;
}

} // namespace

class TestNativeSession : public QObject
{
    Q_OBJECT

private slots:
    void sessionRows()
    {
        Conformance suite(nativeFace());
        suite.run({
            // Open and close: connected once, never closed.
            Row("count connects").loose().call("TWKey.count").is("1")
                .log({"[open]devName: d*", "[open] KeyObject::findDev", "[open] pKeyObj == 0", "[open] TWF_ConnectDev",
                      "[open] TWF_ConnectDev ok", "[open] end", "[open] end", "- SKF_*", "- openApplication"}),
            Row("a session found by serial opens again").loose().before("TWKey.count").call("TWKey.open", {i32(0)})
                .is("object").log({"[open] pKeyObj->open()", "[open] end", "- TWF_ConnectDev"}),
            Row("a token that won't connect").loose().fault("TWF_ConnectDev", SAR_DEVICE_REMOVED).call("TWKey.count")
                .is("0").err(SAR_DEVICE_REMOVED)
                .log({" pKeyObj == 0", errorLine(" TWF_ConnectDev failed,ret = %d ", SAR_DEVICE_REMOVED), " isOpen == false"}),
            Row("open again asks only whether the token is there").loose().call("open").is("true")
                .log({"- TWF_ConnectDev"}),
            Row("close leaves the session open").call("close").is("").log({" start", " end"})
                .then("verifyPin", {kUser, false}, "true"),
            Row("pulled token: open still true").loose().pull().call("open").is("true").err(Keep),
            Row("pulled token: a call fails").pull().call("verifyPin", {kUser, false}).is("false").err(SAR_DEVICE_REMOVED)
                .log({errorLine(" TWF_VerifyPIN failed,ret = %d", SAR_DEVICE_REMOVED)}).then("open", {}, "true"),
            // Identity and capacity: asked at each call; maker and versions not offered.
            Row("label").loose().call("labelName").is("\"d*\"").log({" labelName = d* "}),
            Row("serial").loose().call("serialNumber").is("\"SN000009\"").log({" serialNumber(A) = SN000009 "}),
            Row("serial, whole").loose().call("serialNumberEx").is("\"SN000010\"").log({" serialNumber = SN000010 "}),
            Row("no manufacturer").call("GetManufacturer").is("\"\"").log({" start", " end"}).err(Keep)
                .then("GetHWVersion", {}, "\"\"").then("GetFirmwareVersion", {}, "\"\""),
            Row("no new label").call("SetlabelName", {"new"}).is("false").log({" start", " end"})
                .then("labelName", {}, "\"d*\""),
            Row("total space").call("totalSpace").is("262144").log({" start", " TWF_GetTotalSpace", " end"}),
            Row("free space").call("freeSpace").is("2*").log({" start", " TWF_GetFreeSpace ", " end"}),
            // PINs.
            Row("PIN information not offered").call("GetPINInfo", {1, 1}).is(QString::number(kAllOnes)).err(Keep)
                .log({" Not Support"}),
            Row("one unblock try, built-in PIN").loose().call("resetUserPin").is("false").err(SAR_PIN_INCORRECT)
                .log({" TWF_UnblockPIN", errorLine(" TWF_UnblockPIN failed,ret = %d", SAR_PIN_INCORRECT),
                      "- TWF_UnblockPIN second"}),
            Row("format through the library").token(file("f1", "x")).call("formatKey").is("true")
                .then("enumFiles", {}, "{}").then("verifyPin", {kBuiltIn, true}, "true"),
            Row("failed format leaves the last error").fault("TWF_FormatKey", SAR_FAIL).call("formatKey").is("false").err(Keep),
            // Files.
            Row("read lists the files first").loose().token(file("f1", "abc")).call("readFile", {"f1"}).is("[3]616263")
                .log({" fileName: f1,0,0", "f1 enumFiles_out", " TWF_ReadFile", "ulOutSize: 3,FileName :f1,ulSize: 3",
                      " TWF_ReadFile", "ulOutSize: 3,FileName :f1", " end."}),
            Row("empty file").loose().token(file("e", "")).call("readFile", {"e"}).is("[0]").err(Keep),
            Row("read without a name").loose().call("readFile", {""}).is("[0]").err(SAR_NAMELENERR)
                .log({" end,parameter invalid "}),
            Row("replace a file").loose().token(file("f1", "old")).call("writeFileV1", {"f1", bin("new!")}).is("true")
                .log({"fileName:f1,size:4", " TWF_IsFileExist", "fileName:f1,size:4"}).then("readFile", {"f1"}, "[4]6e657721"),
            Row("failed size query empties the list").fault("TWF_EnumFiles", SAR_FAIL).token(file("f1", "x"))
                .call("enumFiles").is("{}").err(SAR_FAIL).log({errorLine(" TWF_EnumFiles failed,ret = %d", SAR_FAIL)}),
            // Containers and certificates.
            Row("container without a name").loose().call("createContainer", {""}).is("null").err(SAR_USER_NOT_LOGGED_IN)
                .log({" containerName is empty."}),
            Row("certificate logged").before("openContainer", {"c1"}, "c").call("exportCertificate", {ref("c"), true})
                .is("[12]7369676e2d636572742d6331").log({" data: c2lnbi1jZXJ0LWMx"}),
            // Signatures, session keys, the seal.
            inC1("SM2 by the compact form").loose().call("eccSimpleSign", {ref("c"), kMessage, true}, "sig").is("[64]*")
                .then("eccSimpleVerify", {ref("c"), kMessage, ref("sig"), true}, "true")
                .then("eccSimpleVerify", {ref("c"), QByteArray("changed"), ref("sig"), true}, "false"),
            user("RSA").before("openContainer", {"r1"}, "c").before("exportPublicKey", {ref("c"), true}, "pub")
                .call("rsaSignData", {ref("c"), bin(QByteArray(20, 'd'))}, "sig").is("[128]*")
                .then("rsaVerify", {ref("pub"), bin(QByteArray(20, 'd')), ref("sig")}, "true"),
            inC1("session key round trip", false)
                .before("eccExportSessionKey", {ref("c"), quint64(SGD_SM4_ECB), ref("pub"), outHandle("k")}, "wrapped")
                .before("encryptInit", {ref("k"), bin(kEcb)}).before("encrypt", {ref("k"), bin(QByteArray(16, 'p')), 16}, "e")
                .before("importSessionKey", {ref("c"), quint64(SGD_SM4_ECB), ref("wrapped"), 197}, "k2")
                .before("decryptInit", {ref("k2"), bin(kEcb)}).call("decrypt", {ref("k2"), ref("e"), 16})
                .is("[16]70707070707070707070707070707070"),
            Row("RSA digest in the native words").loose().call("digestRsaByPubkey", {bin("abc")}).is("[0]")
                .out({"[KeyObjectTWF::SignDataRsaWithDigest] call in "}),
            Row("encrypt with a null key").call("encrypt", {nullHandle(), bin("x"), 1}).is("[0]").err(SAR_INVALIDHANDLEERR)
                .log({" end . hKey is null"}),
            user("seal").before("epsWriteESealData", {bin("seal"), 4}).call("epsReadESealData", {0, 0}).is("[4]7365616c"),
            Row("deleting the session").call("deleteLater").log({"[~KeyObjectTWF] start", "[~KeyObjectTWF] end"}),
            Row("read: the size query fails").loose().token(file("f1", "abc")).fault("SKF_ReadFile", SAR_FAIL).call("readFile", {"f1"})
                .is("[0]").err(SAR_FAIL).log({errorLine(" TWF_GetFileInfo failed,ret = %d", SAR_FAIL)}),
            Row("read: the read fails").loose().token(file("f1", "abc")).second("SKF_ReadFile", SAR_FAIL).call("readFile", {"f1"})
                .is("[0]").err(SAR_FAIL).log({errorLine(" TWF_ReadFile failed,ret = %d", SAR_FAIL)}),
        });
    }

    // The openssl library checks what the token signed on its native face.
    void signaturesCheckedByOpenssl()
    {
        Conformance suite(nativeFace());
        SoftTokenEngine::DeviceOptions o;
        o.name = QStringLiteral("tok");
        o.containers << SoftTokenEngine::ContainerSetup{QStringLiteral("s"), SoftTokenEngine::ContainerSetup::Sm2}
                     << SoftTokenEngine::ContainerSetup{QStringLiteral("r"), SoftTokenEngine::ContainerSetup::Rsa, 2048};
        QVERIFY(SoftTokenEngine(suite.storePath()).createDevice(o));
        TestHost &host = suite.host();
        QObject *key = suite.openThroughManager(o.name);
        QVERIFY(key && host.call<bool>(key, "verifyPin", QString(kUser), false));

        Qt::HANDLE c = host.call<Qt::HANDLE>(key, "openContainer", QString("s"));
        const QByteArray sm2 = host.call<QByteArray>(key, "eccSimpleSign", c, kMessage, true);
        QVERIFY(opensslVerifies(host.call<QByteArray>(key, "exportPublicKey", c, true), kMessage, sm2));
        QVERIFY(!opensslVerifies(host.call<QByteArray>(key, "exportPublicKey", c, true), kMessage + '!', sm2));

        c = host.call<Qt::HANDLE>(key, "openContainer", QString("r"));
        const QByteArray digestInfo = BlobConverter::sha256DigestInfo(kMessage);
        const QByteArray rsa = host.call<QByteArray>(key, "rsaSignData", c, digestInfo);
        QVERIFY(opensslVerifies(host.call<QByteArray>(key, "exportPublicKey", c, true), digestInfo, rsa));

        // Still open after close; the one class whose closing closes nothing.
        host.callVoid(key, "close");
        auto *session = qobject_cast<KeyObject *>(key);
        QVERIFY(session->isOpen() && session->closeV1() && session->isOpen());
    }
};

TW_TEST_MAIN_ISOLATED(TestNativeSession)
#include "tst_nativesession.moc"
