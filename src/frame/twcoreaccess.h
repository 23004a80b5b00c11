#ifndef TWKEY_TWCOREACCESS_H
#define TWKEY_TWCOREACCESS_H

#include <QtGlobal>

// The last error of the whole system lives in the host's core. These two
// are the one way to it for TWKey, KeyDriver and KeyObject; without a core
// agent the store is skipped and the read gives 0.
namespace twcore {
void setLastError(quint32 code);
quint32 lastError();
} // namespace twcore

#endif
