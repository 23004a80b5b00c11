// A hash object (SKF_DigestInit): SM3, with the SM2 Z value ahead of the
// data when a public key was given, SHA-1 or SHA-256.
#ifndef SOFTTOKEN_HASHOBJECT_H
#define SOFTTOKEN_HASHOBJECT_H

#include "tokenobject.h"

#include <QByteArray>

typedef struct evp_md_ctx_st EVP_MD_CTX;

class HashObject : public TokenObject
{
public:
    HashObject(Connection *connection, const char *digestName, const QByteArray &prefix);
    ~HashObject() override;

    bool ok() const { return m_start != nullptr; }
    int size() const { return m_size; }
    bool update(const QByteArray &data);
    // Digest of what was fed plus more, leaving the object as it was.
    bool peek(const QByteArray &more, QByteArray *out) const;
    // Back to the state right after init: prefix fed, no data.
    void reset();
    void release() override;

private:
    EVP_MD_CTX *m_start = nullptr;
    EVP_MD_CTX *m_current = nullptr;
    int m_size = 0;
};

#endif // SOFTTOKEN_HASHOBJECT_H
