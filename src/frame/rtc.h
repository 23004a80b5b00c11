#ifndef TWKEY_RTC_H
#define TWKEY_RTC_H

#include <QString>

class QObject;
class TWSignatureCoreAgent;

#define TW_EXPORT __attribute__((visibility("default")))

// The component's exported entry points. The first four are plain C names.
extern "C" {
TW_EXPORT extern TWSignatureCoreAgent *s_coreagent;
TW_EXPORT int ComponentInit(QObject *core);
TW_EXPORT QObject *CreateComponent(QString progId, QString interfaceId);
TW_EXPORT void ComponentDestroy();
TW_EXPORT int TW_GetVersion(char *buffer, int *length);
}

TW_EXPORT TWSignatureCoreAgent *getSignatureCore();
TW_EXPORT QObject *createComponentObject(QString progId, QString interfaceId);

#endif
