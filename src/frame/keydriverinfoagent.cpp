#include "keydriverinfoagent.h"

KeyDriverInfoAgent::KeyDriverInfoAgent(QObject *target, QObject *parent) : Q_Dispatch(target, parent) {}
