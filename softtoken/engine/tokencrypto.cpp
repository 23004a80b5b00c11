#include "tokencrypto.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/obj_mac.h>
#include <openssl/param_build.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <memory>

namespace {

struct PkeyCtxFree { void operator()(EVP_PKEY_CTX *c) const { EVP_PKEY_CTX_free(c); } };
struct PkeyFree { void operator()(EVP_PKEY *k) const { EVP_PKEY_free(k); } };
struct BnFree { void operator()(BIGNUM *b) const { BN_free(b); } };
struct BnCtxFree { void operator()(BN_CTX *b) const { BN_CTX_free(b); } };
struct BldFree { void operator()(OSSL_PARAM_BLD *b) const { OSSL_PARAM_BLD_free(b); } };
struct ParamFree { void operator()(OSSL_PARAM *p) const { OSSL_PARAM_free(p); } };
struct GroupFree { void operator()(EC_GROUP *g) const { EC_GROUP_free(g); } };
struct PointFree { void operator()(EC_POINT *p) const { EC_POINT_free(p); } };
struct SigFree { void operator()(ECDSA_SIG *s) const { ECDSA_SIG_free(s); } };
struct CipherCtxFree { void operator()(EVP_CIPHER_CTX *c) const { EVP_CIPHER_CTX_free(c); } };
struct MdCtxFree { void operator()(EVP_MD_CTX *c) const { EVP_MD_CTX_free(c); } };

using PkeyCtx = std::unique_ptr<EVP_PKEY_CTX, PkeyCtxFree>;
using Pkey = std::unique_ptr<EVP_PKEY, PkeyFree>;
using Bn = std::unique_ptr<BIGNUM, BnFree>;

const unsigned char *ubytes(const QByteArray &b) { return reinterpret_cast<const unsigned char *>(b.constData()); }

Bn toBn(const QByteArray &b) { return Bn(BN_bin2bn(ubytes(b), b.size(), nullptr)); }

QByteArray fromBn(const BIGNUM *bn, int width)
{
    QByteArray out(width > 0 ? width : BN_num_bytes(bn), '\0');
    if (BN_bn2binpad(bn, reinterpret_cast<unsigned char *>(out.data()), out.size()) < 0)
        return QByteArray();
    return out;
}

// Left-pads or trims leading zeros to exactly width bytes; empty if it can't fit.
QByteArray fixedWidth(QByteArray v, int width)
{
    while (v.size() > width && v.at(0) == '\0')
        v.remove(0, 1);
    if (v.size() > width)
        return QByteArray();
    return QByteArray(width - v.size(), '\0') + v;
}

EVP_PKEY *fromData(const char *type, int selection, OSSL_PARAM_BLD *bld)
{
    std::unique_ptr<OSSL_PARAM, ParamFree> params(OSSL_PARAM_BLD_to_param(bld));
    PkeyCtx ctx(EVP_PKEY_CTX_new_from_name(nullptr, type, nullptr));
    EVP_PKEY *key = nullptr;
    if (!params || !ctx || EVP_PKEY_fromdata_init(ctx.get()) <= 0
        || EVP_PKEY_fromdata(ctx.get(), &key, selection, params.get()) <= 0)
        return nullptr;
    return key;
}

struct Sm2Curve {
    QByteArray a, b, gx, gy;
};

const Sm2Curve &sm2Curve()
{
    static const Sm2Curve curve = [] {
        Sm2Curve c;
        std::unique_ptr<EC_GROUP, GroupFree> g(EC_GROUP_new_by_curve_name(NID_sm2));
        std::unique_ptr<BN_CTX, BnCtxFree> bctx(BN_CTX_new());
        Bn p(BN_new()), a(BN_new()), b(BN_new()), x(BN_new()), y(BN_new());
        if (g && EC_GROUP_get_curve(g.get(), p.get(), a.get(), b.get(), bctx.get())
            && EC_POINT_get_affine_coordinates(g.get(), EC_GROUP_get0_generator(g.get()), x.get(), y.get(),
                                               bctx.get())) {
            c.a = fromBn(a.get(), 32);
            c.b = fromBn(b.get(), 32);
            c.gx = fromBn(x.get(), 32);
            c.gy = fromBn(y.get(), 32);
        }
        return c;
    }();
    return curve;
}

// Minimal DER for the SM2 ciphertext: SEQUENCE { INTEGER x, INTEGER y, OCTET STRING hash, OCTET STRING c }.
void derAppendLength(QByteArray &out, int len)
{
    if (len < 0x80) {
        out.append(char(len));
        return;
    }
    QByteArray digits;
    while (len > 0) {
        digits.prepend(char(len & 0xFF));
        len >>= 8;
    }
    out.append(char(0x80 | digits.size()));
    out.append(digits);
}

void derAppend(QByteArray &out, char tag, const QByteArray &content)
{
    out.append(tag);
    derAppendLength(out, content.size());
    out.append(content);
}

QByteArray derInteger(QByteArray v)
{
    while (v.size() > 1 && v.at(0) == '\0')
        v.remove(0, 1);
    if (v.isEmpty())
        v = QByteArray(1, '\0');
    if (static_cast<unsigned char>(v.at(0)) & 0x80)
        v.prepend('\0');
    return v;
}

bool derRead(const QByteArray &in, int &pos, char tag, QByteArray *content)
{
    if (pos + 2 > in.size() || in.at(pos) != tag)
        return false;
    ++pos;
    int len = static_cast<unsigned char>(in.at(pos++));
    if (len & 0x80) {
        const int n = len & 0x7F;
        if (n == 0 || n > 3 || pos + n > in.size())
            return false;
        len = 0;
        for (int i = 0; i < n; ++i)
            len = (len << 8) | static_cast<unsigned char>(in.at(pos++));
    }
    if (len > in.size() - pos)
        return false;
    *content = in.mid(pos, len);
    pos += len;
    return true;
}

bool pkeyCrypt(EVP_PKEY *key, bool encrypt, const QByteArray &in, QByteArray *out, int rsaPadding)
{
    PkeyCtx ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    if (!ctx || (encrypt ? EVP_PKEY_encrypt_init(ctx.get()) : EVP_PKEY_decrypt_init(ctx.get())) <= 0)
        return false;
    if (rsaPadding && EVP_PKEY_CTX_set_rsa_padding(ctx.get(), rsaPadding) <= 0)
        return false;
    size_t len = 0;
    auto run = encrypt ? EVP_PKEY_encrypt : EVP_PKEY_decrypt;
    if (run(ctx.get(), nullptr, &len, ubytes(in), in.size()) <= 0)
        return false;
    QByteArray buf(int(len), '\0');
    if (run(ctx.get(), reinterpret_cast<unsigned char *>(buf.data()), &len, ubytes(in), in.size()) <= 0)
        return false;
    buf.resize(int(len));
    *out = buf;
    return true;
}

} // namespace

QByteArray TokenCrypto::random(int size)
{
    QByteArray out(size, '\0');
    if (size > 0 && RAND_bytes(reinterpret_cast<unsigned char *>(out.data()), size) != 1)
        return QByteArray();
    return out;
}

QByteArray TokenCrypto::pinHash(const QByteArray &pin, const QByteArray &salt, int iterations)
{
    QByteArray out(32, '\0');
    if (PKCS5_PBKDF2_HMAC(pin.constData(), pin.size(), ubytes(salt), salt.size(), iterations, EVP_sha256(),
                          out.size(), reinterpret_cast<unsigned char *>(out.data()))
        != 1)
        return QByteArray();
    return out;
}

QByteArray TokenCrypto::digest(const char *name, const QByteArray &data)
{
    const EVP_MD *md = EVP_get_digestbyname(name);
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    if (!md || EVP_Digest(data.constData(), data.size(), out, &len, md, nullptr) != 1)
        return QByteArray();
    return QByteArray(reinterpret_cast<const char *>(out), int(len));
}

QByteArray TokenCrypto::sm2Generate()
{
    Pkey key(EVP_PKEY_Q_keygen(nullptr, nullptr, "SM2"));
    BIGNUM *d = nullptr;
    if (!key || !EVP_PKEY_get_bn_param(key.get(), OSSL_PKEY_PARAM_PRIV_KEY, &d))
        return QByteArray();
    Bn owned(d);
    return fromBn(d, Sm2FieldSize);
}

EVP_PKEY *TokenCrypto::sm2KeyPair(const QByteArray &priv)
{
    std::unique_ptr<EC_GROUP, GroupFree> g(EC_GROUP_new_by_curve_name(NID_sm2));
    std::unique_ptr<BN_CTX, BnCtxFree> bctx(BN_CTX_new());
    Bn d = toBn(priv);
    if (!g || !d || BN_is_zero(d.get()) || BN_cmp(d.get(), EC_GROUP_get0_order(g.get())) >= 0)
        return nullptr;
    std::unique_ptr<EC_POINT, PointFree> pub(EC_POINT_new(g.get()));
    unsigned char oct[65];
    if (!pub || !EC_POINT_mul(g.get(), pub.get(), d.get(), nullptr, nullptr, bctx.get())
        || EC_POINT_point2oct(g.get(), pub.get(), POINT_CONVERSION_UNCOMPRESSED, oct, sizeof oct, bctx.get())
               != sizeof oct)
        return nullptr;
    std::unique_ptr<OSSL_PARAM_BLD, BldFree> bld(OSSL_PARAM_BLD_new());
    if (!bld || !OSSL_PARAM_BLD_push_utf8_string(bld.get(), OSSL_PKEY_PARAM_GROUP_NAME, "SM2", 0)
        || !OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_PRIV_KEY, d.get())
        || !OSSL_PARAM_BLD_push_octet_string(bld.get(), OSSL_PKEY_PARAM_PUB_KEY, oct, sizeof oct))
        return nullptr;
    return fromData("SM2", EVP_PKEY_KEYPAIR, bld.get());
}

EVP_PKEY *TokenCrypto::sm2PublicKey(const QByteArray &x, const QByteArray &y)
{
    const QByteArray fx = fixedWidth(x, Sm2FieldSize), fy = fixedWidth(y, Sm2FieldSize);
    if (fx.isEmpty() || fy.isEmpty())
        return nullptr;
    const QByteArray oct = QByteArray(1, '\x04') + fx + fy;
    std::unique_ptr<OSSL_PARAM_BLD, BldFree> bld(OSSL_PARAM_BLD_new());
    if (!bld || !OSSL_PARAM_BLD_push_utf8_string(bld.get(), OSSL_PKEY_PARAM_GROUP_NAME, "SM2", 0)
        || !OSSL_PARAM_BLD_push_octet_string(bld.get(), OSSL_PKEY_PARAM_PUB_KEY, oct.constData(), oct.size()))
        return nullptr;
    return fromData("SM2", EVP_PKEY_PUBLIC_KEY, bld.get());
}

bool TokenCrypto::sm2PublicPoint(EVP_PKEY *key, QByteArray *x, QByteArray *y)
{
    unsigned char oct[65];
    size_t len = 0;
    if (!key || !EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, oct, sizeof oct, &len)
        || len != sizeof oct || oct[0] != 0x04)
        return false;
    *x = QByteArray(reinterpret_cast<const char *>(oct + 1), 32);
    *y = QByteArray(reinterpret_cast<const char *>(oct + 33), 32);
    return true;
}

bool TokenCrypto::sm2Sign(EVP_PKEY *key, const QByteArray &e, QByteArray *r, QByteArray *s)
{
    PkeyCtx ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    unsigned char der[80];
    size_t len = sizeof der;
    if (!ctx || EVP_PKEY_sign_init(ctx.get()) <= 0 || EVP_PKEY_sign(ctx.get(), der, &len, ubytes(e), e.size()) <= 0)
        return false;
    const unsigned char *p = der;
    std::unique_ptr<ECDSA_SIG, SigFree> sig(d2i_ECDSA_SIG(nullptr, &p, long(len)));
    if (!sig)
        return false;
    *r = fromBn(ECDSA_SIG_get0_r(sig.get()), 32);
    *s = fromBn(ECDSA_SIG_get0_s(sig.get()), 32);
    return r->size() == 32 && s->size() == 32;
}

bool TokenCrypto::sm2Verify(EVP_PKEY *key, const QByteArray &e, const QByteArray &r, const QByteArray &s)
{
    std::unique_ptr<ECDSA_SIG, SigFree> sig(ECDSA_SIG_new());
    Bn br = toBn(r), bs = toBn(s);
    if (!sig || !br || !bs || !ECDSA_SIG_set0(sig.get(), br.get(), bs.get()))
        return false;
    br.release();
    bs.release();
    unsigned char *der = nullptr;
    const int derLen = i2d_ECDSA_SIG(sig.get(), &der);
    if (derLen <= 0)
        return false;
    PkeyCtx ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    const bool ok = ctx && EVP_PKEY_verify_init(ctx.get()) > 0
                    && EVP_PKEY_verify(ctx.get(), der, size_t(derLen), ubytes(e), e.size()) == 1;
    OPENSSL_free(der);
    return ok;
}

bool TokenCrypto::sm2Encrypt(EVP_PKEY *pub, const QByteArray &plain, QByteArray *x, QByteArray *y,
                             QByteArray *hash, QByteArray *cipher)
{
    QByteArray der, seq, ix, iy;
    if (plain.isEmpty() || !pkeyCrypt(pub, true, plain, &der, 0))
        return false;
    int pos = 0, inner = 0;
    if (!derRead(der, pos, 0x30, &seq) || !derRead(seq, inner, 0x02, &ix) || !derRead(seq, inner, 0x02, &iy)
        || !derRead(seq, inner, 0x04, hash) || !derRead(seq, inner, 0x04, cipher))
        return false;
    *x = fixedWidth(ix, 32);
    *y = fixedWidth(iy, 32);
    return x->size() == 32 && y->size() == 32 && hash->size() == 32;
}

bool TokenCrypto::sm2Decrypt(EVP_PKEY *key, const QByteArray &x, const QByteArray &y, const QByteArray &hash,
                             const QByteArray &cipher, QByteArray *plain)
{
    if (cipher.isEmpty())
        return false;
    QByteArray seq;
    derAppend(seq, 0x02, derInteger(x));
    derAppend(seq, 0x02, derInteger(y));
    derAppend(seq, 0x04, hash);
    derAppend(seq, 0x04, cipher);
    QByteArray der;
    derAppend(der, 0x30, seq);
    return pkeyCrypt(key, false, der, plain, 0);
}

QByteArray TokenCrypto::sm2Z(const QByteArray &x, const QByteArray &y, const QByteArray &id)
{
    const Sm2Curve &c = sm2Curve();
    const int bits = id.size() * 8;
    QByteArray in;
    in.append(char((bits >> 8) & 0xFF)).append(char(bits & 0xFF));
    in.append(id).append(c.a).append(c.b).append(c.gx).append(c.gy);
    in.append(fixedWidth(x, 32)).append(fixedWidth(y, 32));
    return digest("SM3", in);
}

QByteArray TokenCrypto::rsaGenerate(int bits)
{
    Pkey key(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", size_t(bits)));
    return key ? rsaDer(key.get()) : QByteArray();
}

QByteArray TokenCrypto::rsaDer(EVP_PKEY *key)
{
    unsigned char *der = nullptr;
    const int len = i2d_PrivateKey(key, &der);
    if (len <= 0)
        return QByteArray();
    QByteArray out(reinterpret_cast<const char *>(der), len);
    OPENSSL_free(der);
    return out;
}

EVP_PKEY *TokenCrypto::rsaKeyPair(const QByteArray &der)
{
    const unsigned char *p = ubytes(der);
    return d2i_PrivateKey(EVP_PKEY_RSA, nullptr, &p, der.size());
}

EVP_PKEY *TokenCrypto::rsaPublicKey(const QByteArray &n, const QByteArray &e)
{
    Bn bn = toBn(n), be = toBn(e);
    std::unique_ptr<OSSL_PARAM_BLD, BldFree> bld(OSSL_PARAM_BLD_new());
    if (!bn || !be || BN_is_zero(bn.get()) || BN_is_zero(be.get()) || !bld
        || !OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_RSA_N, bn.get())
        || !OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_RSA_E, be.get()))
        return nullptr;
    return fromData("RSA", EVP_PKEY_PUBLIC_KEY, bld.get());
}

QByteArray TokenCrypto::rsaFromComponents(const QByteArray &n, const QByteArray &e, const QByteArray &d,
                                          const QByteArray &p, const QByteArray &q, const QByteArray &dp,
                                          const QByteArray &dq, const QByteArray &qinv)
{
    Bn parts[8] = {toBn(n), toBn(e), toBn(d), toBn(p), toBn(q), toBn(dp), toBn(dq), toBn(qinv)};
    const char *names[8] = {OSSL_PKEY_PARAM_RSA_N, OSSL_PKEY_PARAM_RSA_E, OSSL_PKEY_PARAM_RSA_D,
                            OSSL_PKEY_PARAM_RSA_FACTOR1, OSSL_PKEY_PARAM_RSA_FACTOR2,
                            OSSL_PKEY_PARAM_RSA_EXPONENT1, OSSL_PKEY_PARAM_RSA_EXPONENT2,
                            OSSL_PKEY_PARAM_RSA_COEFFICIENT1};
    std::unique_ptr<OSSL_PARAM_BLD, BldFree> bld(OSSL_PARAM_BLD_new());
    if (!bld)
        return QByteArray();
    for (int i = 0; i < 8; ++i) {
        if (!parts[i] || BN_is_zero(parts[i].get()) || !OSSL_PARAM_BLD_push_BN(bld.get(), names[i], parts[i].get()))
            return QByteArray();
    }
    Pkey key(fromData("RSA", EVP_PKEY_KEYPAIR, bld.get()));
    // A key whose parts don't belong together must not be stored.
    PkeyCtx check(key ? EVP_PKEY_CTX_new_from_pkey(nullptr, key.get(), nullptr) : nullptr);
    if (!check || EVP_PKEY_pairwise_check(check.get()) != 1)
        return QByteArray();
    return rsaDer(key.get());
}

bool TokenCrypto::rsaPublicParts(EVP_PKEY *key, QByteArray *n, QByteArray *e)
{
    BIGNUM *bn = nullptr, *be = nullptr;
    if (!EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_N, &bn) || !EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_E, &be)) {
        BN_free(bn);
        return false;
    }
    *n = fromBn(bn, 0);
    *e = fromBn(be, 0);
    BN_free(bn);
    BN_free(be);
    return true;
}

int TokenCrypto::rsaBits(EVP_PKEY *key)
{
    return key ? EVP_PKEY_get_bits(key) : 0;
}

bool TokenCrypto::rsaSignRaw(EVP_PKEY *key, const QByteArray &data, QByteArray *sig)
{
    PkeyCtx ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    size_t len = size_t(EVP_PKEY_get_size(key));
    QByteArray buf(int(len), '\0');
    if (!ctx || EVP_PKEY_sign_init(ctx.get()) <= 0 || EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING) <= 0
        || EVP_PKEY_sign(ctx.get(), reinterpret_cast<unsigned char *>(buf.data()), &len, ubytes(data), data.size()) <= 0)
        return false;
    buf.resize(int(len));
    *sig = buf;
    return true;
}

bool TokenCrypto::rsaVerifyRaw(EVP_PKEY *key, const QByteArray &data, const QByteArray &sig)
{
    PkeyCtx ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    return ctx && EVP_PKEY_verify_init(ctx.get()) > 0
           && EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING) > 0
           && EVP_PKEY_verify(ctx.get(), ubytes(sig), sig.size(), ubytes(data), data.size()) == 1;
}

bool TokenCrypto::rsaEncrypt(EVP_PKEY *pub, const QByteArray &plain, QByteArray *out)
{
    return pkeyCrypt(pub, true, plain, out, RSA_PKCS1_PADDING);
}

bool TokenCrypto::rsaDecrypt(EVP_PKEY *key, const QByteArray &cipher, QByteArray *out)
{
    return pkeyCrypt(key, false, cipher, out, RSA_PKCS1_PADDING);
}

const void *TokenCrypto::sm4Cipher(Sm4Mode mode)
{
    switch (mode) {
    case Sm4Ecb: return EVP_sm4_ecb();
    case Sm4Cbc: return EVP_sm4_cbc();
    case Sm4Cfb: return EVP_sm4_cfb128();
    case Sm4Ofb: return EVP_sm4_ofb();
    }
    return nullptr;
}

bool TokenCrypto::sm4(bool encrypt, Sm4Mode mode, const QByteArray &key, const QByteArray &iv, bool padding,
                      const QByteArray &in, QByteArray *out)
{
    if (key.size() != Sm4KeySize)
        return false;
    std::unique_ptr<EVP_CIPHER_CTX, CipherCtxFree> ctx(EVP_CIPHER_CTX_new());
    const QByteArray fullIv = (iv + QByteArray(Sm4BlockSize, '\0')).left(Sm4BlockSize);
    if (!ctx || EVP_CipherInit_ex(ctx.get(), static_cast<const EVP_CIPHER *>(sm4Cipher(mode)), nullptr, ubytes(key),
                                  ubytes(fullIv), encrypt ? 1 : 0) != 1)
        return false;
    EVP_CIPHER_CTX_set_padding(ctx.get(), padding ? 1 : 0);
    QByteArray buf(in.size() + Sm4BlockSize, '\0');
    int len1 = 0, len2 = 0;
    unsigned char *o = reinterpret_cast<unsigned char *>(buf.data());
    if (EVP_CipherUpdate(ctx.get(), o, &len1, ubytes(in), in.size()) != 1
        || EVP_CipherFinal_ex(ctx.get(), o + len1, &len2) != 1)
        return false;
    buf.resize(len1 + len2);
    *out = buf;
    return true;
}

QByteArray TokenCrypto::sm4CbcMac(const QByteArray &key, const QByteArray &iv, const QByteArray &data)
{
    QByteArray out;
    if (data.isEmpty() || data.size() % Sm4BlockSize != 0 || !sm4(true, Sm4Cbc, key, iv, false, data, &out))
        return QByteArray();
    return out.right(Sm4BlockSize);
}

void TokenCrypto::freeKey(EVP_PKEY *key)
{
    EVP_PKEY_free(key);
}
