#ifndef TWKEY_TWSIGNATURECOREAGENT_H
#define TWKEY_TWSIGNATURECOREAGENT_H

#include "qdispatch.h"

// The proxy of the host's core: the system's log and last-error store.
class TWSignatureCoreAgent : public Q_Dispatch
{
    Q_OBJECT
public:
    explicit TWSignatureCoreAgent(QObject *core, QObject *parent = nullptr);

    void logDebug(QString text);
    void logError(QString text);
    void setLastError(unsigned int code);
};

#endif
