#ifndef TWKEY_KEYDRIVERINFOAGENT_H
#define TWKEY_KEYDRIVERINFOAGENT_H

#include "qdispatch.h"

// Proxy form of a KeyDriverInfo handle at the manager's interface.
class KeyDriverInfoAgent : public Q_Dispatch
{
    Q_OBJECT
public:
    explicit KeyDriverInfoAgent(QObject *target, QObject *parent = nullptr);
};

#endif
