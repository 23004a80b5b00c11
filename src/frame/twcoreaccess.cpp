#include "twcoreaccess.h"

#include <QRecursiveMutex>

#include "rtc.h"
#include "twsignaturecoreagent.h"

namespace twcore {

void setLastError(quint32 code)
{
    if (TWSignatureCoreAgent *core = getSignatureCore())
        core->setLastError(code);
}

quint32 lastError()
{
    quint32 code = 0;
    if (TWSignatureCoreAgent *core = getSignatureCore())
        core->invokeHelper(QStringLiteral("getLastError"), &code);
    return code;
}

QRecursiveMutex &agentLock()
{
    static QRecursiveMutex lock;
    return lock;
}

} // namespace twcore
