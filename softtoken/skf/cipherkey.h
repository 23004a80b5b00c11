// A symmetric key handle (SM4) and its cipher state. A step's output is
// worked out on a copy of the state first, so that a size query or a short
// buffer leaves the operation where it was; commit() then adopts it.
#ifndef SOFTTOKEN_CIPHERKEY_H
#define SOFTTOKEN_CIPHERKEY_H

#include "skfapi.h"
#include "tokencrypto.h"
#include "tokenobject.h"

#include <QByteArray>

typedef struct evp_cipher_ctx_st EVP_CIPHER_CTX;

class CipherKey : public TokenObject
{
public:
    enum Step { Whole, Update, Final };

    CipherKey(Connection *connection, ULONG algId, const QByteArray &key);
    ~CipherKey() override;

    // SM4 identifiers; SM1 and SSF33 have no implementation here.
    static bool supported(ULONG algId);
    static bool mode(ULONG algId, TokenCrypto::Sm4Mode *out);
    // IVLen 0 stands for a zero IV; otherwise 16 bytes.
    static bool ivFrom(const BYTE *iv, ULONG ivLen, QByteArray *out);
    // The IV and the padding of a cipher or MAC parameter. The feedback
    // width is SM4's block (128 bits, or 0 for that); other widths would
    // need a cipher mode this token does not have.
    static ULONG readParam(const BLOCKCIPHERPARAM &param, QByteArray *iv, bool *padding);

    ULONG algId() const { return m_algId; }
    const QByteArray &key() const { return m_key; }

    ULONG init(bool encrypt, const BLOCKCIPHERPARAM &param);
    ULONG preview(bool encrypt, Step step, const QByteArray &in, QByteArray *out);
    void commit(Step step);
    void release() override;

private:
    void reset();

    ULONG m_algId;
    QByteArray m_key;
    EVP_CIPHER_CTX *m_ctx = nullptr;
    EVP_CIPHER_CTX *m_pending = nullptr;
    int m_direction = 0; // 0 idle, 1 encrypting, 2 decrypting
    bool m_padding = false;
    bool m_blockMode = false;
    quint64 m_fed = 0;
    quint64 m_pendingFed = 0;
};

#endif // SOFTTOKEN_CIPHERKEY_H
