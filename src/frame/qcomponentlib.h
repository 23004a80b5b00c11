#ifndef TWKEY_QCOMPONENTLIB_H
#define TWKEY_QCOMPONENTLIB_H

#include "qdispatch.h"

// Base of proxies of further components of the host.
class Q_ComponentLib : public Q_Dispatch
{
    Q_OBJECT
public:
    explicit Q_ComponentLib(QObject *target, QObject *parent = nullptr);
};

#endif
