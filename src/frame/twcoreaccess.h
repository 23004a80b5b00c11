#ifndef TWKEY_TWCOREACCESS_H
#define TWKEY_TWCOREACCESS_H

#include <QtGlobal>

class QRecursiveMutex;

// The last error of the whole system lives in the host's core. These two
// are the one way to it for TWKey, KeyDriver and KeyObject; without a core
// agent the store is skipped and the read gives 0.
namespace twcore {
void setLastError(quint32 code);
quint32 lastError();
// Held by every call into the core agent and by the agent's creation and
// deletion: the native library may log from a thread of its own, and the
// host's core need not be ready for two callers at once.
QRecursiveMutex &agentLock();
} // namespace twcore

#endif
