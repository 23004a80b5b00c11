#include "twsignaturecoreagent.h"

#include "twcoreaccess.h"

TWSignatureCoreAgent::TWSignatureCoreAgent(QObject *core, QObject *parent) : Q_Dispatch(core, parent)
{
    _lock = &twcore::agentLock();
}

void TWSignatureCoreAgent::logDebug(QString text)
{
    invokeHelper(QStringLiteral("logDebug"), nullptr, &text);
}

void TWSignatureCoreAgent::logError(QString text)
{
    invokeHelper(QStringLiteral("logError"), nullptr, &text);
}

void TWSignatureCoreAgent::setLastError(unsigned int code)
{
    invokeHelper(QStringLiteral("setLastError"), nullptr, &code);
}
