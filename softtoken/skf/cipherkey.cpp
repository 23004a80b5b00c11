#include "cipherkey.h"

#include "connection.h"

#include <openssl/evp.h>

CipherKey::CipherKey(Connection *connection, ULONG algId, const QByteArray &key)
    : TokenObject(KeyKind, connection, connection), m_algId(algId), m_key(key)
{
}

CipherKey::~CipherKey()
{
    release();
}

bool CipherKey::mode(ULONG algId, TokenCrypto::Sm4Mode *out)
{
    switch (algId) {
    case SGD_SM4_ECB: *out = TokenCrypto::Sm4Ecb; return true;
    case SGD_SM4_CBC: *out = TokenCrypto::Sm4Cbc; return true;
    case SGD_SM4_CFB: *out = TokenCrypto::Sm4Cfb; return true;
    case SGD_SM4_OFB: *out = TokenCrypto::Sm4Ofb; return true;
    default: return false;
    }
}

bool CipherKey::supported(ULONG algId)
{
    TokenCrypto::Sm4Mode m;
    return algId == SGD_SM4_MAC || mode(algId, &m);
}

bool CipherKey::ivFrom(const BYTE *iv, ULONG ivLen, QByteArray *out)
{
    if (ivLen == 0) {
        *out = QByteArray(TokenCrypto::Sm4BlockSize, '\0');
        return true;
    }
    if (!iv || ivLen != TokenCrypto::Sm4BlockSize)
        return false;
    *out = QByteArray(reinterpret_cast<const char *>(iv), int(ivLen));
    return true;
}

ULONG CipherKey::readParam(const BLOCKCIPHERPARAM &param, QByteArray *iv, bool *padding)
{
    if (param.IVLen > MAX_IV_LEN || !ivFrom(param.IV, param.IVLen, iv)
        || (param.PaddingType != SKF_NO_PADDING && param.PaddingType != SKF_PKCS5_PADDING))
        return SAR_INVALIDPARAMERR;
    if (param.FeedBitLen != 0 && param.FeedBitLen != TokenCrypto::Sm4BlockSize * 8)
        return SAR_NOTSUPPORTYETERR;
    *padding = param.PaddingType == SKF_PKCS5_PADDING;
    return SAR_OK;
}

void CipherKey::reset()
{
    EVP_CIPHER_CTX_free(m_ctx);
    EVP_CIPHER_CTX_free(m_pending);
    m_ctx = m_pending = nullptr;
    m_direction = 0;
    m_fed = m_pendingFed = 0;
}

ULONG CipherKey::init(bool encrypt, const BLOCKCIPHERPARAM &param)
{
    TokenCrypto::Sm4Mode m;
    if (!mode(m_algId, &m))
        return SAR_KEYUSAGEERR; // a MAC key
    QByteArray iv;
    bool padding = false;
    const ULONG rv = readParam(param, &iv, &padding);
    if (rv != SAR_OK)
        return rv;
    reset();
    m_blockMode = m == TokenCrypto::Sm4Ecb || m == TokenCrypto::Sm4Cbc;
    // Stream modes need no padding and take none.
    m_padding = m_blockMode && padding;
    m_ctx = EVP_CIPHER_CTX_new();
    if (!m_ctx
        || EVP_CipherInit_ex(m_ctx, static_cast<const EVP_CIPHER *>(TokenCrypto::sm4Cipher(m)), nullptr,
                             reinterpret_cast<const unsigned char *>(m_key.constData()),
                             reinterpret_cast<const unsigned char *>(iv.constData()), encrypt ? 1 : 0)
               != 1) {
        reset();
        return SAR_FAIL;
    }
    EVP_CIPHER_CTX_set_padding(m_ctx, m_padding ? 1 : 0);
    m_direction = encrypt ? 1 : 2;
    return SAR_OK;
}

ULONG CipherKey::preview(bool encrypt, Step step, const QByteArray &in, QByteArray *out)
{
    if (!m_ctx || m_direction != (encrypt ? 1 : 2))
        return SAR_NOTINITIALIZEERR;
    EVP_CIPHER_CTX_free(m_pending);
    m_pending = EVP_CIPHER_CTX_new();
    if (!m_pending || EVP_CIPHER_CTX_copy(m_pending, m_ctx) != 1)
        return SAR_FAIL;
    QByteArray buf(in.size() + 2 * TokenCrypto::Sm4BlockSize, '\0');
    unsigned char *o = reinterpret_cast<unsigned char *>(buf.data());
    int len = 0, tail = 0;
    m_pendingFed = m_fed + quint64(in.size());
    if (step != Final
        && EVP_CipherUpdate(m_pending, o, &len, reinterpret_cast<const unsigned char *>(in.constData()), in.size()) != 1)
        return SAR_FAIL;
    if (step != Update && EVP_CipherFinal_ex(m_pending, o + len, &tail) != 1) {
        if (m_blockMode && m_pendingFed % TokenCrypto::Sm4BlockSize != 0)
            return SAR_INDATALENERR;
        return encrypt ? SAR_FAIL : SAR_DECRYPTPADERR;
    }
    buf.resize(len + tail);
    *out = buf;
    return SAR_OK;
}

void CipherKey::commit(Step step)
{
    if (step == Update) {
        std::swap(m_ctx, m_pending);
        m_fed = m_pendingFed;
        EVP_CIPHER_CTX_free(m_pending);
        m_pending = nullptr;
        return;
    }
    // A whole or final step ends the operation: the next needs a new init.
    reset();
}

void CipherKey::release()
{
    reset();
    m_key.fill('\0');
}
