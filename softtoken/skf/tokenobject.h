// Base of every object the token library hands out as a handle. Handles are
// these objects' addresses, and are only dereferenced after the registry has
// confirmed them (HandleRegistry).
#ifndef SOFTTOKEN_TOKENOBJECT_H
#define SOFTTOKEN_TOKENOBJECT_H

class Connection;

class TokenObject
{
public:
    enum Kind { ConnectionKind, AppKind, ContainerKind, KeyKind, HashKind, MacKind };

    TokenObject(Kind kind, Connection *connection, TokenObject *owner)
        : m_kind(kind), m_connection(connection), m_owner(owner)
    {
    }
    virtual ~TokenObject() = default;
    TokenObject(const TokenObject &) = delete;
    TokenObject &operator=(const TokenObject &) = delete;

    Kind kind() const { return m_kind; }
    Connection *connection() const { return m_connection; }
    // Closing the owner closes this object too.
    TokenObject *owner() const { return m_owner; }
    // Drops what the object holds once its handle is closed.
    virtual void release() {}

private:
    Kind m_kind;
    Connection *m_connection;
    TokenObject *m_owner;
};

#endif // SOFTTOKEN_TOKENOBJECT_H
