#include "hashobject.h"

#include "connection.h"

#include <openssl/evp.h>

HashObject::HashObject(Connection *connection, const char *digestName, const QByteArray &prefix)
    : TokenObject(HashKind, connection, connection)
{
    const EVP_MD *md = EVP_get_digestbyname(digestName);
    EVP_MD_CTX *start = EVP_MD_CTX_new();
    if (!md || !start || EVP_DigestInit_ex(start, md, nullptr) != 1
        || (!prefix.isEmpty() && EVP_DigestUpdate(start, prefix.constData(), size_t(prefix.size())) != 1)) {
        EVP_MD_CTX_free(start);
        return;
    }
    m_start = start;
    m_size = EVP_MD_get_size(md);
    reset();
}

HashObject::~HashObject()
{
    release();
}

bool HashObject::update(const QByteArray &data)
{
    return m_current && EVP_DigestUpdate(m_current, data.constData(), size_t(data.size())) == 1;
}

bool HashObject::peek(const QByteArray &more, QByteArray *out) const
{
    if (!m_current)
        return false;
    EVP_MD_CTX *copy = EVP_MD_CTX_new();
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    const bool ok = copy && EVP_MD_CTX_copy_ex(copy, m_current) == 1
                    && EVP_DigestUpdate(copy, more.constData(), size_t(more.size())) == 1
                    && EVP_DigestFinal_ex(copy, md, &len) == 1;
    EVP_MD_CTX_free(copy);
    if (ok)
        *out = QByteArray(reinterpret_cast<const char *>(md), int(len));
    return ok;
}

void HashObject::reset()
{
    if (!m_start)
        return;
    if (!m_current)
        m_current = EVP_MD_CTX_new();
    if (m_current && EVP_MD_CTX_copy_ex(m_current, m_start) != 1) {
        EVP_MD_CTX_free(m_current);
        m_current = nullptr;
    }
}

void HashObject::release()
{
    EVP_MD_CTX_free(m_current);
    EVP_MD_CTX_free(m_start);
    m_current = m_start = nullptr;
}
