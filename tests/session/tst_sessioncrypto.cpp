// Keys, signatures, digests, session keys, ciphers and the seal of the SKF
// session, as rows of conformance.h. The software token does the
// cryptography; a row that verifies what another step signed checks it.
#include <QTest>

#include "isolatedtest.h"
#include "sessionrows.h"
#include "tokencrypto.h"

#include <cstring>

namespace {

// A new SM2 key pair as an ENVELOPEDKEYBLOB for the standard token's c1:
// the private key under an SM4 key, that key under c1's signing key.
QByteArray eccEnvelope(const DeviceData &token)
{
    EVP_PKEY *sign = TokenCrypto::sm2KeyPair(token.apps[0].containers[0].sign.priv);
    const QByteArray priv = TokenCrypto::sm2Generate(), sym = TokenCrypto::random(16);
    EVP_PKEY *key = TokenCrypto::sm2KeyPair(priv);
    QByteArray px, py, x, y, hash, cipher, encPriv;
    TokenCrypto::sm2PublicPoint(key, &px, &py);
    TokenCrypto::sm2Encrypt(sign, sym, &x, &y, &hash, &cipher);
    TokenCrypto::sm4(true, TokenCrypto::Sm4Ecb, sym, QByteArray(), false, priv, &encPriv);
    TokenCrypto::freeKey(key);
    TokenCrypto::freeKey(sign);
    QByteArray blob(int(sizeof(ENVELOPEDKEYBLOB)) - 1 + cipher.size(), '\0');
    auto *env = reinterpret_cast<ENVELOPEDKEYBLOB *>(blob.data());
    env->Version = 1;
    env->ulSymmAlgID = SGD_SM4_ECB;
    env->ulBits = env->PubKey.BitLen = 256;
    std::memcpy(env->cbEncryptedPriKey + 32, encPriv.constData(), 32);
    std::memcpy(env->PubKey.XCoordinate + 32, px.constData(), 32);
    std::memcpy(env->PubKey.YCoordinate + 32, py.constData(), 32);
    std::memcpy(env->ECCCipherBlob.XCoordinate + 32, x.constData(), 32);
    std::memcpy(env->ECCCipherBlob.YCoordinate + 32, y.constData(), 32);
    std::memcpy(env->ECCCipherBlob.HASH, hash.constData(), 32);
    env->ECCCipherBlob.CipherLen = ULONG(cipher.size());
    std::memcpy(env->ECCCipherBlob.Cipher, cipher.constData(), size_t(cipher.size()));
    return blob;
}

// A new RSA 1024 key pair for r1: the SM4 key wrapped under r1's signing
// key, and the private key's DER under the SM4 key.
QPair<QByteArray, QByteArray> rsaWrapped(const DeviceData &token)
{
    EVP_PKEY *sign = TokenCrypto::rsaKeyPair(token.apps[0].containers[1].sign.priv);
    const QByteArray sym = TokenCrypto::random(16);
    QByteArray der = TokenCrypto::rsaGenerate(1024), wrapped, encrypted;
    der.append(QByteArray((16 - der.size() % 16) % 16, '\0'));
    TokenCrypto::rsaEncrypt(sign, sym, &wrapped);
    TokenCrypto::sm4(true, TokenCrypto::Sm4Ecb, sym, QByteArray(), false, der, &encrypted);
    TokenCrypto::freeKey(sign);
    return qMakePair(wrapped, encrypted);
}

// Opened container "c" (SM2 c1 or RSA r1), the user logged in.
Row in(const char *container, const QString &tag) { return user(tag).before("openContainer", {container}, "c"); }

// The same without the login.
Row bare(const char *container, const QString &tag) { return Row(tag).before("openContainer", {container}, "c"); }

// A session key "k" made by the token for c1's encryption key, and the
// enveloped form "blob" (181 bytes of its 197).
Row keyed(const QString &tag)
{
    return in("c1", tag).before("exportPublicKey", {ref("c"), false}, "enc")
        .before("eccExportSessionKey", {ref("c"), SGD_SM4_ECB, ref("enc"), outHandle("k")}, "blob");
}

// BLOCKCIPHERPARAM: IV 00..0f, IVLen 16, PKCS#5 padding, no feedback.
const QByteArray kParam = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f") + QByteArray(16, '\0')
                          + QByteArray::fromHex("10000000" "01000000" "00000000");
const QByteArray kBlock = "sixteen bytes!!!";
const QStringList kSimpleSign = {
    "SKF_ExportPublicKey(h1, 1, null, 0->132) = 0x00000000", "SKF_ExportPublicKey(h1, 1, ->[132]#*, 132->132) = 0x00000000",
    R"(SKF_DigestInit(h2, 0x1, [132]#*, "1234567812345678", 16, ->h3) = 0x00000000)",
    "SKF_Digest(h3, [7]6d657373616765, 7, null, 0->32) = 0x00000000",
    "SKF_Digest(h3, [7]6d657373616765, 7, ->[32]#*, 32->32) = 0x00000000"};

} // namespace

class TestSessionCrypto : public QObject
{
    Q_OBJECT

private slots:
    void rsa()
    {
        Conformance suite;
        const auto rsaKey = rsaWrapped(suite.standardToken());
        suite.run({
            in("r1", "generate 1024 bits").call("genRSAKeyPair", {ref("c"), 1024}).is("[268]*")
                .calls({"SKF_GenRSAKeyPair(h1, 1024, ->[268]#*) = 0x00000000"})
                .log({"[genRSAKeyPair] start", " SKF_GenRSAKeyPair", "[genRSAKeyPair] end."}),
            bare("r1", "generate without login").call("genRSAKeyPair", {ref("c"), 1024}).is("[0]").err(SAR_USER_NOT_LOGGED_IN)
                .calls({"SKF_GenRSAKeyPair(h1, 1024, out) = 0x0A00002D"}).out({printed("用户没有登录")})
                .log({errorLine(" SKF_GenRSAKeyPair failed.ret = %d", SAR_USER_NOT_LOGGED_IN), " end."}),
            onNull("genRSAKeyPair", {nullHandle(), 1024}, "[0]"),
            onClosed("genRSAKeyPair", {nullHandle(), 1024}, "[0]"),

            in("r1", "import a wrapped key pair").call("importRSAKeyPair", {ref("c"), SGD_SM4_ECB, bin(rsaKey.first), bin(rsaKey.second)})
                .is("true").calls({QStringLiteral("SKF_ImportRSAKeyPair(h1, 0x401, [128]#*, 128, [%1]#*, %1) = 0x00000000")
                                       .arg(rsaKey.second.size())})
                .log({" SKF_ImportRSAKeyPair", "[importRSAKeyPair] end"}),
            bare("r1", "import passes both parts").fault("SKF_ImportRSAKeyPair", SAR_FAIL)
                .call("importRSAKeyPair", {ref("c"), SGD_SM4_ECB, bin("wrapped"), bin("encdata")}).is("false").err(SAR_FAIL)
                .calls({"SKF_ImportRSAKeyPair(h1, 0x401, [7]77726170706564, 7, [7]656e6364617461, 7) = 0x0A000001"})
                .log({" SKF_ImportRSAKeyPair", errorLine(" SKF_ImportRSAKeyPair failed.ret = %d", SAR_FAIL), " end."})
                .out({printed("fail")}),
            bare("r1", "import without a wrapped key").open({"importRSAKeyPair"}).call("importRSAKeyPair", {ref("c"), SGD_SM4_ECB, bin(""), bin("e")})
                .is("false").err(SAR_INDATALENERR).calls({}).log({"-* SKF_ImportRSAKeyPair"}),
            onNull("importRSAKeyPair", {nullHandle(), SGD_SM4_ECB, bin("w"), bin("e")}, "false"),
            onClosed("importRSAKeyPair", {nullHandle(), 1, bin("w"), bin("e")}, "false"),

            in("r1", "sign").call("rsaSignData", {ref("c"), bin("digest-info")}).is("[128]*")
                .calls({"SKF_RSASignData(h1, [11]6469676573742d696e666f, 11, null, 0->128) = 0x00000000",
                        "SKF_RSASignData(h1, [11]6469676573742d696e666f, 11, ->[128]#*, 128->128) = 0x00000000"})
                .log({" SKF_rsaSignData", "[rsaSignData] end"}),
            in("r1", "sign nothing").call("rsaSignData", {ref("c"), bin("")}).is("[0]").err(SAR_INDATALENERR).calls({})
                .log({" end. container = null"}),
            bare("r1", "sign without login").call("rsaSignData", {ref("c"), bin("x")}).is("[0]").err(SAR_USER_NOT_LOGGED_IN)
                .calls({"SKF_RSASignData(h1, [1]78, 1, null, 0->0) = 0x0A00002D"}).out({printed("用户没有登录")})
                .log({errorLine(" pSKF_RSASignData failed.ret = %d", SAR_USER_NOT_LOGGED_IN), " end"}),
            // A filled length past the buffer: what the buffer holds, its zero byte beyond the asked size included.
            in("r1", "sign: a length past the buffer").lie("SKF_RSASignData", 2, 1, 1).call("rsaSignData", {ref("c"), bin("x")}).is("[129]*"),
            onNull("rsaSignData", {nullHandle(), bin("x")}, "[0]"),
            onClosed("rsaSignData", {nullHandle(), bin("x")}, "[0]"),

            in("r1", "verify what was signed").before("exportPublicKey", {ref("c"), true}, "pub")
                .before("rsaSignData", {ref("c"), bin("abc")}, "sig").call("rsaVerify", {ref("pub"), bin("abc"), ref("sig")})
                .is("true").calls({"SKF_RSAVerify(h1, [268]#*, [3]616263, 3, [128]#*, 128) = 0x00000000"})
                .log({" SKF_pSKF_RSASignData", " dataLen: 3", " signatureLen: 128", "[rsaVerify] end"}),
            in("r1", "verify other data").before("exportPublicKey", {ref("c"), true}, "pub")
                .before("rsaSignData", {ref("c"), bin("abc")}, "sig").call("rsaVerify", {ref("pub"), bin("abd"), ref("sig")})
                .is("false").err(SAR_FAIL).calls({"SKF_RSAVerify(h1, [268]#*, [3]616264, 3, [128]#*, 128) = 0x0A000001"})
                .log({errorLine(" pSKF_RSAVerify failed.ret = %d", SAR_FAIL), "[rsaVerify] end"}).out({printed("fail")}),
            Row("verify without a key").open({"rsaVerify"}).call("rsaVerify", {bin(""), bin("d"), bin("s")}).is("false").err(SAR_INDATALENERR)
                .calls({}).log({" start.parameter invalid"}),
            halfOpen("verify needs the device only").call("rsaVerify", {bin("k"), bin("d"), bin("s")}).is("false").err(Any)
                .calls({"SKF_RSAVerify(h1, [268]#6e4a464e, [1]64, 1, [1]73, 1) = *"}).out({"..."}), // short blobs zero-padded
            onClosed("rsaVerify", {bin("k"), bin("d"), bin("s")}, "false", "dev"),

            in("r1", "the simple form signs nothing").call("rsaSimpleSign", {ref("c"), bin("x"), SGD_SHA1}).is("[0]").calls({}),

            Row("public key of RSA").before("openContainer", {"r1"}, "c").call("exportPublicKey", {ref("c"), true}).is("[268]*")
                .calls({"SKF_ExportPublicKey(h1, 1, null, 0->268) = 0x00000000",
                        "SKF_ExportPublicKey(h1, 1, ->[268]#*, 268->268) = 0x00000000"}).log({" SKF_ExportPublicKey"}),
            Row("public key of SM2 for encryption").before("openContainer", {"c1"}, "c").call("exportPublicKey", {ref("c"), false})
                .is("[132]*").calls({"SKF_ExportPublicKey(h1, 0, null, 0->132) = 0x00000000", "SKF_ExportPublicKey(h1, 0, ->*"}),
            bare("c1", "public key: size query fails").fault("SKF_ExportPublicKey", SAR_DEVICE_REMOVED)
                .call("exportPublicKey", {ref("c"), true}).is("[0]").err(SAR_DEVICE_REMOVED)
                .calls(QStringList{"SKF_ExportPublicKey(h1, 1, null, 0->0) = 0x0A000023"} + closing(2, 3))
                .log({errorLine(" SKF_ExportPublicKey failed.ret = %d", SAR_DEVICE_REMOVED), " end"}).out({printed("设备已移除")}),
            onNull("exportPublicKey", {nullHandle(), true}, "[0]", SAR_INDATALENERR),
            halfOpen("public key needs the device only").call("exportPublicKey", {nullHandle(), true}).is("[0]")
                .err(SAR_INDATALENERR),
            onClosed("exportPublicKey", {nullHandle(), true}, "[0]", "dev"),
        });
    }

    void ecc()
    {
        Conformance suite;
        const QByteArray envelope = eccEnvelope(suite.standardToken());
        suite.run({
            in("c1", "generate").call("genECCKeyPair", {ref("c"), SGD_SM2_1}).is("[132]*")
                .calls({"SKF_GenECCKeyPair(h1, 0x20100, ->[132]#*) = 0x00000000"})
                .log({" SKF_GenECCKeyPair", "[genECCKeyPair] end."}),
            bare("c1", "generate without login").call("genECCKeyPair", {ref("c"), SGD_SM2_1}).is("[0]")
                .err(SAR_USER_NOT_LOGGED_IN).calls({"SKF_GenECCKeyPair(h1, 0x20100, out) = 0x0A00002D"})
                .log({errorLine(" SKF_GenECCKeyPair failed.ret = %d", SAR_USER_NOT_LOGGED_IN), " end."})
                .out({printed("用户没有登录")}),
            onNull("genECCKeyPair", {nullHandle(), SGD_SM2_1}, "[0]"),
            onClosed("genECCKeyPair", {nullHandle(), 1}, "[0]"),

            in("c1", "import an enveloped key pair").call("importECCKeyPair", {ref("c"), bin(envelope)}).is("true")
                .calls({"SKF_ImportECCKeyPair(h1, [373]#*) = 0x00000000"}).log({" SKF_ImportECCKeyPair", "[importECCKeyPair] end."}),
            bare("c1", "import passes the envelope").fault("SKF_ImportECCKeyPair", SAR_FAIL)
                .call("importECCKeyPair", {ref("c"), bin(QByteArray(373, 'e'))}).is("false").err(SAR_FAIL)
                .calls({"SKF_ImportECCKeyPair(h1, [373]#*) = 0x0A000001"}).out({printed("fail")})
                .log({" SKF_ImportECCKeyPair", errorLine(" SKF_ImportECCKeyPair failed.ret = %d", SAR_FAIL), " end."}),
            bare("c1", "import nothing").open({"importECCKeyPair"}).call("importECCKeyPair", {ref("c"), bin("")}).is("false").err(SAR_INDATALENERR)
                .calls({}).log({"-* SKF_ImportECCKeyPair"}),
            onNull("importECCKeyPair", {nullHandle(), bin("e")}, "false"),
            onClosed("importECCKeyPair", {nullHandle(), bin("e")}, "false"),

            in("c1", "sign").call("eccSignData", {ref("c"), bin(QByteArray(32, 'h'))}).is("[128]*")
                .calls({"SKF_ECCSignData(h1, [32]#*, 32, ->[128]#*) = 0x00000000"}).log({" SKF_ECCSignData", "[eccSignData] end"}),
            in("c1", "sign nothing").open({"eccSignData"}).call("eccSignData", {ref("c"), bin("")}).is("[0]").err(SAR_INDATALENERR).calls({})
                .log({"-* SKF_ECCSignData"}),
            bare("c1", "sign without login").call("eccSignData", {ref("c"), bin("x")}).is("[0]").err(SAR_USER_NOT_LOGGED_IN)
                .calls({"SKF_ECCSignData(h1, [1]78, 1, out) = 0x0A00002D"}).out({printed("用户没有登录")})
                .log({errorLine(" SKF_ECCSignData failed.ret = %d", SAR_USER_NOT_LOGGED_IN), " end"}),
            onNull("eccSignData", {nullHandle(), bin("x")}, "[0]"),
            onClosed("eccSignData", {nullHandle(), bin("x")}, "[0]"),

            in("c1", "verify what was signed").before("exportPublicKey", {ref("c"), true}, "pub")
                .before("eccSignData", {ref("c"), bin(QByteArray(32, 'h'))}, "sig")
                .call("eccVerify", {ref("pub"), bin(QByteArray(32, 'h')), ref("sig")})
                .is("true").calls({"SKF_ECCVerify(h1, [132]#*, [32]#*, 32, [128]#*) = 0x00000000"})
                .log({" SKF_ECCVerify", "[eccVerify] end"}),
            in("c1", "verify other data").before("exportPublicKey", {ref("c"), true}, "pub")
                .before("eccSignData", {ref("c"), bin(QByteArray(32, 'h'))}, "sig").call("eccVerify", {ref("pub"), bin("short"), ref("sig")})
                .is("false").err(SAR_INDATALENERR).calls({"SKF_ECCVerify(h1, [132]#*, [5]73686f7274, 5, [128]#*) = 0x0A000010"})
                .log({errorLine(" SKF_ECCVerify failed.ret = %d", SAR_INDATALENERR)}).out({printed("输入数据长度错误")}),
            Row("verify without a key").open({"eccVerify"}).call("eccVerify", {bin(""), bin("d"), bin("s")}).is("false").err(SAR_INDATALENERR)
                .calls({}).log({" start.parameter invalid"}),
            halfOpen("verify needs the device only").call("eccVerify", {bin("k"), bin("d"), bin("s")}).is("false")
                .err(Any).calls({"SKF_ECCVerify(h1, [132]#af42c68e, [1]64, 1, [128]#9361e9b6) = *"}).out({"..."}),
            onClosed("eccVerify", {bin("k"), bin("d"), bin("s")}, "false", "dev"),

            in("c1", "compact signature").open({"eccSignData", "digest", "digestInit"}).call("eccSimpleSign", {ref("c"), bin("message"), true}, "sig").is("[64]*")
                .calls(kSimpleSign + QStringList{"SKF_ECCSignData(h1, [32]#*, 32, ->[128]#*) = 0x00000000"})
                .log({"[eccSimpleSign] start", "[eccSimpleSign] end."})
                .then("eccSimpleVerify", {ref("c"), bin("message"), ref("sig"), true}, "true")
                .then("eccSimpleVerify", {ref("c"), bin("messagE"), ref("sig"), true}, "false"),
            in("c1", "compact signature without the key in the hash").open({"eccSignData", "digest", "digestInit"}).call("eccSimpleSign", {ref("c"), bin("m"), false}).is("[64]*")
                .calls({R"(SKF_DigestInit(h1, 0x1, null, "1234567812345678", 16, ->h2) = 0x00000000)", "SKF_Digest(h2, *",
                        "SKF_Digest(h2, *", "SKF_ECCSignData(h3, [32]#*, 32, ->*"}),
            bare("c1", "compact signature: the token refuses").open({"eccSignData", "digest", "digestInit"}).call("eccSimpleSign", {ref("c"), bin("message"), true})
                .is("[32]*").err(SAR_USER_NOT_LOGGED_IN).out({printed("用户没有登录")}),
            in("c1", "compact signature: no public key").fault("SKF_ExportPublicKey", SAR_FAIL)
                .call("eccSimpleSign", {ref("c"), bin("m"), true}).is("[0]").err(SAR_FAIL).calls({"SKF_ExportPublicKey(*"})
                .log({"end.exportPublicKey failed."}).out({printed("fail")}),
            in("c1", "compact signature: no hash").fault("SKF_DigestInit", SAR_FAIL)
                .call("eccSimpleSign", {ref("c"), bin("m"), false}).is("[0]").err(SAR_FAIL).log({"end. digestInit failed."})
                .out({printed("fail")}),
            in("c1", "compact signature: the hash fails").open({"digest", "digestInit"}).second("SKF_Digest", SAR_FAIL)
                .call("eccSimpleSign", {ref("c"), bin("m"), false}).is("[0]").err(SAR_FAIL).log({"end. digest failed."})
                .out({printed("fail")}),
            onNull("eccSimpleSign", {nullHandle(), bin("m"), true}, "[0]"),
            onClosed("eccSimpleSign", {nullHandle(), bin("m"), true}, "[0]"),

            in("c1", "compact verify without the key is refused").open({"eccVerify", "digest", "digestInit"}).call("eccSimpleVerify", {ref("c"), bin("m"), bin(QByteArray(64, 's')), false})
                .is("false").err(SAR_INDATALENERR)
                .calls({R"(SKF_DigestInit(h1, 0x1, null, "1234567812345678", 16, ->h2) = 0x00000000)", "SKF_Digest(h2, *", "SKF_Digest(h2, *"}),
            in("c1", "compact verify: no public key").fault("SKF_ExportPublicKey", SAR_FAIL)
                .call("eccSimpleVerify", {ref("c"), bin("m"), bin("s"), true}).is("false").err(SAR_FAIL)
                .log({"end.exportPublicKey failed."}).out({printed("fail")}),
            in("c1", "compact verify: no hash").fault("SKF_DigestInit", SAR_FAIL)
                .call("eccSimpleVerify", {ref("c"), bin("m"), bin("s"), true}).is("false").err(SAR_FAIL)
                .log({"end.digestInit failed."}).out({printed("fail")}),
            in("c1", "compact verify: the hash fails").open({"digest", "digestInit"}).fault("SKF_Digest", SAR_FAIL)
                .call("eccSimpleVerify", {ref("c"), bin("m"), bin("s"), true}).is("false").err(SAR_FAIL)
                .log({"end.digest failed."}).out({printed("fail")}),
            Row("compact verify with null").call("eccSimpleVerify", {nullHandle(), bin("m"), bin("s"), true}).is("false")
                .err(SAR_INVALIDHANDLEERR).calls({}).log({" end . container is null"}),
            halfOpen("compact verify needs the device only").call("eccSimpleVerify", {nullHandle(), bin("m"), bin("s"), true})
                .is("false").err(SAR_INVALIDHANDLEERR),
            onClosed("eccSimpleVerify", {nullHandle(), bin("m"), bin("s"), true}, "false", "dev"),

            bare("c1", "session key for a public key").loose().before("exportPublicKey", {ref("c"), false}, "enc")
                .call("eccExportSessionKey", {ref("c"), SGD_SM4_ECB, ref("enc"), outHandle("k")}).is("[197]*")
                .calls({"SKF_ECCExportSessionKey(h1, 0x401, [132]#*, ->{CipherLen=16}, ->h2) = 0x00000000"})
                .log({"[eccExportSessionKey]start", "! pstEccCipherBlob = AAAAAAAA*", "[eccExportSessionKey] end."}),
            bare("c1", "session key on a removed token keeps the session").loose().fault("SKF_ECCExportSessionKey", SAR_DEVICE_REMOVED)
                .call("eccExportSessionKey", {ref("c"), SGD_SM4_ECB, bin("k"), outHandle("k")}).is("[0]").err(SAR_DEVICE_REMOVED)
                .calls({"SKF_ECCExportSessionKey(h1, 0x401, [132]#*, out, ->null) = 0x0A000023"}).out({printed("设备已移除")})
                .log({errorLine(" pSKF_ECCExportSessionKey failed.ret = %d", SAR_DEVICE_REMOVED), " end."})
                .then("GetPINInfo", {1, 1}, "6"),
            bare("c1", "session key without a public key").loose().call("eccExportSessionKey", {ref("c"), 1, bin(""), outHandle("k")})
                .is("[0]").err(SAR_INVALIDPARAMERR).calls({}),
            onNull("eccExportSessionKey", {nullHandle(), 1, bin("k"), outHandle("k")}, "[0]").loose(),
            halfOpen("session key needs the device only").loose().call("eccExportSessionKey", {nullHandle(), 1, bin("k"), outHandle("k")})
                .is("[0]").err(SAR_INVALIDHANDLEERR),
            onClosed("eccExportSessionKey", {nullHandle(), 1, bin("k"), outHandle("k")}, "[0]", "dev").loose(),
        });
    }

    void digest()
    {
        const QStringList sm3abc = {"SKF_Digest(h1, [3]616263, 3, null, 0->32) = 0x00000000",
                                    "SKF_Digest(h1, [3]616263, 3, ->[32]#*, 32->32) = 0x00000000"};
        Conformance suite;
        suite.run({
            Row("hash object").open({"digestInit"}).call("digestInit", {SGD_SM3, bin(""), ""}).is("handle")
                .calls({R"(SKF_DigestInit(h1, 0x1, null, "", 0, ->h2) = 0x00000000)"}).log({" m_AlgID: 1", "-[digestInit] end"}),
            Row("hash object refused").call("digestInit", {3, bin(""), "id"}).is("null").err(SAR_NOTSUPPORTYETERR)
                .calls({R"(SKF_DigestInit(h1, 0x3, null, "id", 2, ->null) = 0x0A000003)"})
                .log({errorLine(" SKF_DigestInit failded.ret = %d.", SAR_NOTSUPPORTYETERR), " end"}).out({printed("不支持的服务")}),
            onClosed("digestInit", {SGD_SM3, bin(""), ""}, "null", "dev"),

            Row("SM3").before("digestInit", {SGD_SM3, bin(""), ""}, "h").call("digest", {ref("h"), bin("abc")}).is("[32]*")
                .calls(sm3abc).log({" ulHashLen(1): 32", " m_AlgID: 1", " 1", " ulHashLen(2): 32", " 2", "[digest] end"}),
            Row("SHA-1").before("digestInit", {SGD_SHA1, bin(""), ""}, "h").call("digest", {ref("h"), bin("abc")})
                .is("[20]#*").calls({"SKF_Digest(h1, [3]616263, 3, null, 0->20) = 0x00000000", "SKF_Digest(h1, *, 20->20) = 0x00000000"}),
            Row("the algorithm sizes the buffer").before("digestInit", {SGD_SHA256, bin(""), ""}, "h").lie("SKF_Digest", 5)
                .call("digest", {ref("h"), bin("abc")}).is("[32]*")
                .calls({"SKF_Digest(h1, [3]616263, 3, null, 0->37) = 0x00000000", sm3abc[1]}),
            Row("and the result").before("digestInit", {SGD_SHA1, bin(""), ""}, "h").lie("SKF_Digest", -4, 1, 1)
                .call("digest", {ref("h"), bin("abc")}).is("[20]*").calls({"SKF_Digest(*", "SKF_Digest(h1, *, 20->16) = 0x00000000"}),
            Row("hash nothing").before("digestInit", {SGD_SM3, bin(""), ""}, "h").call("digest", {ref("h"), bin("")}).is("[0]")
                .err(SAR_INDATALENERR).calls({}).log({" end.parameter invalidate"}),
            Row("hash with null").call("digest", {nullHandle(), bin("")}).is("[0]").err(SAR_USER_NOT_LOGGED_IN).calls({})
                .log({" end . hash is null"}),
            Row("hash: the size query fails").open({"digest"}).before("digestInit", {SGD_SM3, bin(""), ""}, "h")
                .fault("SKF_Digest", SAR_DEVICE_REMOVED).call("digest", {ref("h"), bin("abc")}).is("[0]").err(SAR_DEVICE_REMOVED)
                .calls(QStringList{"SKF_Digest(h1, [3]616263, 3, null, 0->0) = 0x0A000023"} + closing(2, 3))
                .log({errorLine(" SKF_Digest failded.ret = %d.", SAR_DEVICE_REMOVED)}).out({printed("设备已移除")}),
            Row("digestV1 is digest").before("digestInit", {SGD_SM3, bin(""), ""}, "h").call("digestV1", {ref("h"), bin("abc")})
                .is("[32]*").calls(sm3abc).log({"[digestV1] start", "[digest] start", "[digest] end", "[digestV1] end"}),
            Row("no update").before("digestInit", {SGD_SM3, bin(""), ""}, "h").call("digestUpdate", {ref("h"), bin("abc")})
                .is("false").calls({}).log({"[digestUpdate] start", "[digestUpdate] end"}),
            Row("no final").before("digestInit", {SGD_SM3, bin(""), ""}, "h").call("digestFinal", {ref("h")}).is("[0]").calls({})
                .log({"[digestFinal] start", "[digestFinal] end"}),
            Row("a DigestInfo that is not handed out").call("digestRsaByPubkey", {bin("abc")}).is("[0]")
                .calls({"SKF_DigestInit(h1, 0x2, null, null, 0, ->h2) = 0x00000000",
                        "SKF_Digest(h2, [3]616263, 3, ->[20]#*, 256->20) = 0x00000000"})
                .out({"[KeyObjectSKF::SignDataRsaWithDigest] call in "}),
            Row("DigestInfo: no hash object").fault("SKF_DigestInit", SAR_DEVICE_REMOVED).call("digestRsaByPubkey", {bin("abc")})
                .is("[0]").err(SAR_DEVICE_REMOVED).calls(QStringList{"SKF_DigestInit(*"} + closing(2, 1))
                .log({errorLine(" SKF_DigestInit failded.ret = %d.", SAR_DEVICE_REMOVED), " end"})
                .out({"[KeyObjectSKF::SignDataRsaWithDigest] call in ", printed("设备已移除")}),
            Row("DigestInfo: the hash fails").fault("SKF_Digest", SAR_FAIL).call("digestRsaByPubkey", {bin("abc")}).is("[0]")
                .err(SAR_FAIL).calls({"SKF_DigestInit(*", "SKF_Digest(h2, [3]616263, 3, buf, 256->256) = 0x0A000001"})
                .log({errorLine(" SKF_Digest failded.ret = %d.", SAR_FAIL)})
                .out({"[KeyObjectSKF::SignDataRsaWithDigest] call in ", printed("fail")}),

            Row("give a handle back").before("digestInit", {SGD_SM3, bin(""), ""}, "h").call("closeHandle", {ref("h")}).is("")
                .calls({"SKF_CloseHandle(h1) = 0x00000000"}).log({" SKF_CloseHandle", "[closeHandle] end"}),
            Row("a refused handle, silently").before("digestInit", {SGD_SM3, bin(""), ""}, "h").fault("SKF_CloseHandle", SAR_FAIL)
                .call("closeHandle", {ref("h")}).calls({"SKF_CloseHandle(h1) = 0x0A000001"}).log({"-!*"}),
            Row("null is not given back").call("closeHandle", {nullHandle()}).calls({})
                .log({" end. keyDriver = null or handle = null"}),
        });
    }

    void ciphers()
    {
        Conformance suite;
        suite.run({
            keyed("import a session key").call("importSessionKey", {ref("c"), SGD_SM4_ECB, ref("blob"), 181}).is("handle")
                .calls({"SKF_ImportSessionKey(h1, 0x401, [181]#*, 181, ->h2) = 0x00000000"})
                .log({" SKF_ImportSessionKey", "[importSessionKey] end"}),
            keyed("the length given goes to the token").fault("SKF_ImportSessionKey", SAR_FAIL)
                .call("importSessionKey", {ref("c"), SGD_SM4_ECB, ref("blob"), 5}).is("null").err(SAR_FAIL)
                .calls({"SKF_ImportSessionKey(h1, 0x401, [5]*, 5, ->null) = 0x0A000001"}).out({printed("fail")})
                .log({errorLine(" SKF_ImportSessionKey failded.ret = %d.", SAR_FAIL), " end"}),
            onNull("importSessionKey", {nullHandle(), SGD_SM4_ECB, bin("w"), 1}, "null", SAR_INDATALENERR),
            halfOpen("import needs the device only").call("importSessionKey", {nullHandle(), 1, bin("w"), 1}).is("null")
                .err(SAR_INDATALENERR),
            onClosed("importSessionKey", {nullHandle(), 1, bin("w"), 1}, "null", "dev"),

            keyed("encryption set up").call("encryptInit", {ref("k"), bin(kParam)}).is("true")
                .calls({"SKF_EncryptInit(h1, [44]#*) = 0x00000000"}).log({" SKF_EncryptInit", "[encryptInit] end"}),
            keyed("encryption set up fails").fault("SKF_EncryptInit", SAR_DEVICE_REMOVED)
                .call("encryptInit", {ref("k"), bin(kParam)}).is("false").err(SAR_DEVICE_REMOVED)
                .calls(QStringList{"SKF_EncryptInit(*"} + closing(2, 3)).out({printed("设备已移除")})
                .log({errorLine(" SKF_EncryptInit failded.ret = %d.", SAR_DEVICE_REMOVED), " end"}),
            Row("encryption with null").call("encryptInit", {nullHandle(), bin(kParam)}).is("false").err(SAR_INVALIDHANDLEERR)
                .calls({}).log({" end . hKey is null"}),
            keyed("encryption without parameters").call("encryptInit", {ref("k"), bin("")}).is("false").err(SAR_INDATALENERR)
                .calls({}).log({" end. encryptParamData is empty"}),
            keyed("encrypt").before("encryptInit", {ref("k"), bin(kParam)}).call("encrypt", {ref("k"), bin(kBlock), 0}).is("[32]*")
                .calls({"SKF_Encrypt(h1, [16]*, 16, null, 0->32) = 0x00000000", "SKF_Encrypt(h1, [16]*, 16, ->[32]#*, 32->32) = 0x00000000"})
                .log({" SKF_Encrypt A", " ulEncryptedLen: 32", " SKF_Encrypt B", "[encrypt] end"}),
            keyed("encrypt: a length past the buffer").before("encryptInit", {ref("k"), bin(kParam)}).lie("SKF_Encrypt", 2, 1, 1)
                .call("encrypt", {ref("k"), bin(kBlock), 0}).is("[33]*"),
            keyed("encrypt: the size query fails").open({"encrypt"}).fault("SKF_Encrypt", SAR_DEVICE_REMOVED).call("encrypt", {ref("k"), bin("x"), 1})
                .is("[0]").err(SAR_DEVICE_REMOVED).calls(QStringList{"SKF_Encrypt(h1, [1]78, 1, null, 0->0) = 0x0A000023"} + closing(2, 3))
                .log({errorLine(" SKF_Encrypt failded.ret = %d.", SAR_DEVICE_REMOVED)}).out({printed("设备已移除")}),
            keyed("encrypt: the fill fails").open({"encrypt"}).before("encryptInit", {ref("k"), bin(kParam)}).second("SKF_Encrypt", SAR_FAIL)
                .call("encrypt", {ref("k"), bin(kBlock), 99}).is("[0]").err(SAR_FAIL)
                .calls({"SKF_Encrypt(h1, [16]*, 16, null, 0->32) = 0x00000000", "SKF_Encrypt(h1, [16]*, 16, buf, 32->32) = 0x0A000001"})
                .log({errorLine(" SKF_Encrypt failded.ret = %d.", SAR_FAIL)}).out({printed("fail")}),
            Row("encrypt with null").call("encrypt", {nullHandle(), bin(""), 0}).is("[0]").err(SAR_INVALIDHANDLEERR).calls({}),
            keyed("encrypt nothing").call("encrypt", {ref("k"), bin(""), 0}).is("[0]").err(SAR_INDATALENERR).calls({})
                .log({" end. data is empty"}),

            keyed("decryption set up").call("decryptInit", {ref("k"), bin(kParam)}).is("true")
                .calls({"SKF_DecryptInit(h1, [44]#*) = 0x00000000"}).log({" SKF_DecryptInit", "[decryptInit] end"}),
            keyed("decryption set up fails").fault("SKF_DecryptInit", SAR_FAIL).call("decryptInit", {ref("k"), bin(kParam)})
                .is("false").err(SAR_FAIL).log({errorLine(" SKF_DecryptInit failded.ret = %d.", SAR_FAIL)}).out({printed("fail")}),
            Row("decryption with null").call("decryptInit", {nullHandle(), bin(kParam)}).is("false").err(SAR_INVALIDHANDLEERR)
                .calls({}),
            keyed("decryption without parameters").call("decryptInit", {ref("k"), bin("")}).is("false").err(SAR_INDATALENERR)
                .calls({}).log({" end. decryptParamData is empty"}),
            keyed("decrypt what was encrypted").before("encryptInit", {ref("k"), bin(kParam)})
                .before("encrypt", {ref("k"), bin(kBlock), 0}, "ct").before("decryptInit", {ref("k"), bin(kParam)})
                .call("decrypt", {ref("k"), ref("ct"), 7}).is("[16]73697874656*")
                .calls({"SKF_Decrypt(h1, [32]#*, 32, null, 0->*) = 0x00000000", "SKF_Decrypt(h1, [32]#*, 32, ->[16]*, *->16) = 0x00000000"})
                .log({" SKF_Decrypt A", " ulDecryptedLen: 16", " SKF_Decrypt B", "[decrypt] end"}),
            keyed("decrypt: a length past the buffer").before("encryptInit", {ref("k"), bin(kParam)})
                .before("encrypt", {ref("k"), bin(kBlock), 0}, "ct").before("decryptInit", {ref("k"), bin(kParam)})
                .lie("SKF_Decrypt", 2, 1, 1).call("decrypt", {ref("k"), ref("ct"), 7}).is("[17]*"),
            keyed("decrypt: the size query fails").open({"decrypt"}).fault("SKF_Decrypt", SAR_DEVICE_REMOVED).call("decrypt", {ref("k"), bin("x"), 1})
                .is("[0]").err(SAR_DEVICE_REMOVED).calls(QStringList{"SKF_Decrypt(*"} + closing(2, 3))
                .log({errorLine(" SKF_Encrypt failded.ret = %d.", SAR_DEVICE_REMOVED)}).out({printed("设备已移除")}),
            keyed("decrypt: the fill fails").open({"decrypt"}).before("encryptInit", {ref("k"), bin(kParam)})
                .before("encrypt", {ref("k"), bin(kBlock), 0}, "ct").before("decryptInit", {ref("k"), bin(kParam)})
                .second("SKF_Decrypt", SAR_FAIL).call("decrypt", {ref("k"), ref("ct"), 1})
                .is("[0]").err(SAR_FAIL).calls({"SKF_Decrypt(*", "SKF_Decrypt(h1, [32]*, 32, buf, * = 0x0A000001"})
                .log({errorLine(" SKF_Digest failded.ret = %d.", SAR_FAIL)}).out({printed("fail")}),
            Row("decrypt with null").call("decrypt", {nullHandle(), bin("x"), 1}).is("[0]").err(SAR_INVALIDHANDLEERR).calls({}),
            keyed("decrypt nothing").call("decrypt", {ref("k"), bin(""), 0}).is("[0]").err(SAR_INDATALENERR).calls({})
                .log({" end. data is empty"}),
        });
    }

    void seal()
    {
        const auto sealed = [](DeviceData &d) { d.apps[0].sealData = "SEAL"; };
        Conformance suite;
        suite.run({
            user("write the seal").call("epsWriteESealData", {bin("SEAL"), 4, 1}).is("true")
                .calls({"EPS_WriteESealData(h1, [4]5345414c, 4, 0x1) = 0x00000000"}).log({" ESP_WriteESealData", "[epsWriteESealData] end."})
                .then("epsReadESealData", {1, 2}, "[4]5345414c"),
            user("the shorter form, the size given").call("epsWriteESealData", {bin("SEALDATA"), 4}).is("true")
                .calls({"EPS_WriteESealData(h1, [4]5345414c, 4, 0x0) = 0x00000000"}),
            Row("write refused").open({"epsWriteESealData"}).call("epsWriteESealData", {bin("SEAL"), 4}).is("false").err(SAR_USER_NOT_LOGGED_IN)
                .calls({"EPS_WriteESealData(* = 0x0A00002D"}).log({errorLine(" ESP_WriteESealData failed,ret = %d", SAR_USER_NOT_LOGGED_IN)}),
            Row("a declared size past any real data").open({"epsWriteESealData"}).call("epsWriteESealData", {bin("S"), 0x20000000}).is("false")
                .err(SAR_MEMORYERR).calls({}).log({errorLine(" ESP_WriteESealData failed,ret = %d", SAR_MEMORYERR)}),
            Row("write nothing").call("epsWriteESealData", {bin(""), 4}).is("false").err(SAR_INDATALENERR).calls({})
                .log({" end. szData invalid"}),
            onClosed("epsWriteESealData", {bin("S"), 1}, "false"),

            Row("read the seal").token(sealed).call("epsReadESealData", {7, SGD_SM4_ECB, 1}).is("[4]5345414c")
                .calls({"EPS_ReadESealData(h1, 7, 0x401, null, 0->4, 0x1) = 0x00000000",
                        "EPS_ReadESealData(h1, 7, 0x401, ->[4]5345414c, 4->4, 0x1) = 0x00000000"})
                .log({" ESP_ReadESealData A", "ulOutSize: 4", " ESP_ReadESealData B", "[epsReadESealData] end."}),
            Row("read a length past the buffer").token(sealed).lie("EPS_ReadESealData", 2, 1, 1).call("epsReadESealData", {7, SGD_SM4_ECB, 1})
                .is("[5]5345414c00"),
            Row("no seal").call("epsReadESealData", {1, 2}).is("[0]").calls({"EPS_ReadESealData(h1, 1, 0x2, null, 0->0, 0x0) = 0x00000000"})
                .log({"ulOutSize: 0", " end . ulOutSize is 0"}),
            Row("read: the size query fails").open({"epsReadESealData"}).token(sealed).fault("EPS_ReadESealData", SAR_DEVICE_REMOVED)
                .call("epsReadESealData", {1, 2}).is("[0]").err(SAR_DEVICE_REMOVED)
                .calls(QStringList{"EPS_ReadESealData(h1, 1, 0x2, null, 0->0, 0x0) = 0x0A000023"} + closing(1, 2))
                .log({errorLine(" SKF_GetFileInfo failed,ret = %d", SAR_DEVICE_REMOVED)}),
            Row("read: the fill fails").open({"epsReadESealData"}).token(sealed).second("EPS_ReadESealData", SAR_FAIL).call("epsReadESealData", {1, 2})
                .is("[0]").err(SAR_FAIL).calls({"EPS_ReadESealData(*", "EPS_ReadESealData(h1, 1, 0x2, buf, 4->4, 0x0) = 0x0A000001"})
                .log({errorLine(" SKF_ReadFile failed,ret = %d", SAR_FAIL)}),
            onClosed("epsReadESealData", {1, 2}, "[0]"),

            keyed("import a seal key").call("epsImportSymmKey", {ref("c"), 3, ref("blob"), 181, 0}).is("true")
                .calls({"EPS_ImportSymmKey(h1, 3, [181]#*, 181, 0x0) = 0x00000000"}).log({" ESP_ImportSymmKey", "[epsImportSymmKey] end."}),
            bare("c1", "import: the length given, the shorter form").fault("EPS_ImportSymmKey", SAR_FAIL)
                .call("epsImportSymmKey", {ref("c"), 3, bin("key"), 2}).is("false").err(SAR_FAIL)
                .calls({"EPS_ImportSymmKey(h1, 3, [2]6b65, 2, 0x0) = 0x0A000001"}).out({printed("fail")})
                .log({errorLine(" ESP_ImportSymmKey failed.ret = %d", SAR_FAIL), " end."}),
            onNull("epsImportSymmKey", {nullHandle(), 3, bin("key"), 3}, "false"),
            onClosed("epsImportSymmKey", {nullHandle(), 3, bin("key"), 3}, "false"),
        });
    }
};

TW_TEST_MAIN_ISOLATED(TestSessionCrypto)
#include "tst_sessioncrypto.moc"
