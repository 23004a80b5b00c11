// One call into the native face. A native device handle is an open
// application, the device's first, opened at connect, since the native
// interface has no application layer. Calls that work on an application
// pass it on as such to the SKF function of their stem, calls that work on
// the device pass its connection, and calls that take a container, key or
// hash handle first check that it came through the same connection.
#ifndef SOFTTOKEN_TWFCALL_H
#define SOFTTOKEN_TWFCALL_H

#pragma GCC visibility push(default)
#include "twfapi.h"
#pragma GCC visibility pop

#include "skfcall.h"

#include <functional>

#define TWF_EXPORT extern "C" __attribute__((visibility("default")))

class TwfCall : public SkfCall
{
public:
    explicit TwfCall(const char *function) : SkfCall(function) {}

    // The connection behind dev as an SKF device handle; null if dev is none.
    DEVHANDLE connectionOf(DEVHANDLE dev) const;
    // dev's application checked as SKF calls check theirs, and its data.
    ULONG deviceData(DEVHANDLE dev, const DeviceData **out);
    // Makes the first application of a fresh connection the device handle;
    // closes the connection when there is none.
    ULONG openDevice(DEVHANDLE connection, DEVHANDLE *out);

    // The SKF call of a native function that takes one of dev's handles.
    static ULONG through(const char *function, DEVHANDLE dev, HANDLE handle, const std::function<ULONG()> &skf);
    // The same for an output of a fixed size with a length argument: a
    // null or short buffer is answered with the size at once.
    static ULONG fixedSize(const char *function, DEVHANDLE dev, HANDLE handle, ULONG need, void *out, ULONG *len,
                           const std::function<ULONG()> &skf);

private:
    ULONG owns(DEVHANDLE dev, HANDLE handle) const;
};

#endif // SOFTTOKEN_TWFCALL_H
