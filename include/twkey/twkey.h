/* libTWKey for host programs.
 *
 * A host loads libTWKey.so at run time (dlopen, QLibrary), resolves the entry
 * points below by name, hands the library its core object with
 * ComponentInit, asks for the key manager with CreateComponent and from then
 * on calls the manager and the keys by method name over Qt's meta-object.
 * The library scans its packages in the core's binPath plus "/kdp/".
 *
 * The identifiers and TW_GetVersion are plain C; the entry points that take
 * Qt types need C++ and QtCore.
 */
#ifndef TWKEY_PUBLIC_TWKEY_H
#define TWKEY_PUBLIC_TWKEY_H

/* CreateComponent accepts the manager's request when either one matches. */
#define TWKEY_PROG_ID "TWKEY.TWKey.1"
#define TWKEY_INTERFACE_ID "3948311E-CB0F-4526-8D6C-8588A7C5E490"

/* The version text has this length. TW_GetVersion reports the length; it
 * returns -1 for any call with both pointers given. */
#define TWKEY_VERSION_TEXT_LENGTH 9

#ifdef __cplusplus
#include <QString>
class QObject;
class TWSignatureCoreAgent;
extern "C" {
#endif

/* The size query: TW_GetVersion(NULL, &length) returns 0 and sets 9. */
int TW_GetVersion(char *buffer, int *length);
typedef int (*TWKeyGetVersionFn)(char *buffer, int *length);

/* Releases the library's hold on the core object; keys stay loaded. */
void ComponentDestroy(void);
typedef void (*TWKeyComponentDestroyFn)(void);

#ifdef __cplusplus
/* Must come first; always returns 1. */
int ComponentInit(QObject *core);
typedef int (*TWKeyComponentInitFn)(QObject *core);

/* The key manager (one per process), or null when neither identifier
 * matches. */
QObject *CreateComponent(QString progId, QString interfaceId);
typedef QObject *(*TWKeyCreateComponentFn)(QString progId, QString interfaceId);

/* The library's hold on the core; null outside ComponentInit ..
 * ComponentDestroy. */
extern TWSignatureCoreAgent *s_coreagent;
}

/* C++ names: for components inside the host's own framework. */
TWSignatureCoreAgent *getSignatureCore();
QObject *createComponentObject(QString progId, QString interfaceId);
#endif

#endif
