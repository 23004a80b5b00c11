// A MAC object (SKF_MacInit): SM4 CBC-MAC under a key, with the IV and
// padding of its BLOCKCIPHERPARAM, collecting data until the MAC is taken.
#ifndef SOFTTOKEN_MACOBJECT_H
#define SOFTTOKEN_MACOBJECT_H

#include "connection.h"
#include "tokencrypto.h"

#include <QByteArray>

class MacObject : public TokenObject
{
public:
    MacObject(Connection *connection, const QByteArray &key, const QByteArray &iv, bool padding)
        : TokenObject(MacKind, connection, connection), m_key(key), m_iv(iv), m_padding(padding)
    {
    }

    void update(const QByteArray &data) { m_data.append(data); }
    // The MAC over what was fed plus more; empty if the length doesn't fit.
    QByteArray peek(const QByteArray &more) const { return mac(m_data + more, m_key, m_iv, m_padding); }
    void reset() { m_data.clear(); }
    void release() override
    {
        m_key.fill('\0');
        m_data.clear();
    }

    static QByteArray mac(QByteArray data, const QByteArray &key, const QByteArray &iv, bool padding)
    {
        if (padding) {
            const int pad = TokenCrypto::Sm4BlockSize - data.size() % TokenCrypto::Sm4BlockSize;
            data.append(QByteArray(pad, char(pad)));
        }
        return TokenCrypto::sm4CbcMac(key, iv, data);
    }

private:
    QByteArray m_key;
    QByteArray m_iv;
    bool m_padding;
    QByteArray m_data;
};

#endif // SOFTTOKEN_MACOBJECT_H
