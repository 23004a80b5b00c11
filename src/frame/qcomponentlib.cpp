#include "qcomponentlib.h"

Q_ComponentLib::Q_ComponentLib(QObject *target, QObject *parent) : Q_Dispatch(target, parent) {}
