// An open application: a connection and an application name.
#ifndef SOFTTOKEN_APPOBJECT_H
#define SOFTTOKEN_APPOBJECT_H

#include "connection.h"

#include <QString>

class AppObject : public TokenObject
{
public:
    AppObject(Connection *connection, const QString &name)
        : TokenObject(AppKind, connection, connection), m_name(name)
    {
    }
    const QString &name() const { return m_name; }

private:
    QString m_name;
};

#endif // SOFTTOKEN_APPOBJECT_H
