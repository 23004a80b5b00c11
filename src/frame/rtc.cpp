#include "rtc.h"

// The published declarations: a host's header that drifted from these
// entry points would not compile here.
#include <twkey/twkey.h>

#include <QObject>
#include <QRecursiveMutex>

#include <cstring>

#include "manager/twkey.h"
#include "twcoreaccess.h"
#include "twlog.h"
#include "twsignaturecoreagent.h"

// The entry points log as "rtc:function:line".
#define RTC_LOG(msg) twlog::entryDebug(__FUNCTION__, __LINE__, (msg))

TWSignatureCoreAgent *s_coreagent = nullptr;

namespace {

const char kProgId[] = TWKEY_PROG_ID;
const char kInterfaceId[] = TWKEY_INTERFACE_ID;
const char kVersion[] = "V10.0.0.4";
const int kVersionLength = TWKEY_VERSION_TEXT_LENGTH;

} // namespace

int ComponentInit(QObject *core)
{
    // A second call abandons the first agent: the host owns that order.
    QMutexLocker lock(&twcore::agentLock());
    s_coreagent = new TWSignatureCoreAgent(core, nullptr);
    return 1;
}

QObject *CreateComponent(QString progId, QString interfaceId)
{
    static TWKey *sTWKey = nullptr;

    RTC_LOG(QStringLiteral(" start"));
    const QByteArray progBytes = progId.toUtf8();
    const QByteArray interfaceBytes = interfaceId.toUtf8();
    RTC_LOG(QString::asprintf("progId :%s, interface :%s", progBytes.constData(), interfaceBytes.constData()));

    // One matching identifier is enough.
    if (progId == QLatin1String(kProgId) || interfaceId == QLatin1String(kInterfaceId)) {
        // The manager's scan asks the core for its paths; without a core
        // there is nothing to scan with, so no manager is built then.
        if (!sTWKey && getSignatureCore())
            sTWKey = new TWKey(nullptr);
        return sTWKey;
    }
    RTC_LOG(QStringLiteral(" end"));
    return nullptr;
}

void ComponentDestroy()
{
    QMutexLocker lock(&twcore::agentLock());
    if (s_coreagent) {
        delete s_coreagent;
        s_coreagent = nullptr;
    }
}

int TW_GetVersion(char *buffer, int *length)
{
    // The size is reported before anything else, so a call with both
    // pointers zero-fills nine bytes and answers -1: that is the contract.
    // The zero-fill never goes past what the caller said its buffer holds.
    const int given = length ? *length : 0;
    if (length)
        *length = kVersionLength;
    if (!buffer)
        return 0;
    if (!length)
        return -1;
    std::memset(buffer, 0, size_t(qBound(0, given, *length)));
    if (*length > kVersionLength) {
        std::memcpy(buffer, kVersion, kVersionLength);
        return 0;
    }
    return -1;
}

TWSignatureCoreAgent *getSignatureCore()
{
    return s_coreagent;
}

QObject *createComponentObject(QString progId, QString interfaceId)
{
    QObject *object = nullptr;
    if (TWSignatureCoreAgent *core = getSignatureCore())
        core->invokeHelper(QStringLiteral("createComponentObject"), &object, &progId, &interfaceId);
    return object;
}
