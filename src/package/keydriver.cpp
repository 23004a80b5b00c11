#include "keydriver.h"

#include "frame/twcoreaccess.h"

KeyDriver::KeyDriver(QObject *parent) : QObject(parent) {}

KeyDriver::~KeyDriver() = default;

qint64 KeyDriver::lastError()
{
    return qint64(twcore::lastError());
}

void KeyDriver::setLastError(long long code)
{
    twcore::setLastError(quint32(code));
}
