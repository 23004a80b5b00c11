// An open container inside an open application.
#ifndef SOFTTOKEN_CONTAINEROBJECT_H
#define SOFTTOKEN_CONTAINEROBJECT_H

#include "appobject.h"

class ContainerObject : public TokenObject
{
public:
    ContainerObject(AppObject *app, const QString &name)
        : TokenObject(ContainerKind, app->connection(), app), m_app(app), m_name(name)
    {
    }
    AppObject *app() const { return m_app; }
    const QString &name() const { return m_name; }

private:
    AppObject *m_app;
    QString m_name;
};

#endif // SOFTTOKEN_CONTAINEROBJECT_H
