// Control interface of the test token library (libmockskf.so) of the
// driver and manager tests. The library exports the SKF names of the
// binding table and these mock_* functions; a test dlopen()s the same file
// the driver loads (same inode, same instance) and steers it through them.
//
//   MockControl mock;                       // libmockskf.so
//   mock.reset();
//   mock.add_device("dev1", "SN0001");      // present, label "dev1"
//   mock.add_app("dev1", "APP");
//   mock.add_container("dev1", "APP", "C1", 2);
//   ... drive the library ...
//   QCOMPARE(mock.count("SKF_ConnectDev"), 1);
//
// The token world, in brief:
// - Handles are pointers to objects of the mock, checked on every call
//   (SAR_INVALIDHANDLEERR for anything else, also after close or reset).
//   A device set absent makes all handles taken on it answer
//   SAR_DEVICE_REMOVED for good, even after it comes back; it must be
//   connected anew. Connecting to an absent or unknown name gives
//   SAR_DEVICE_REMOVED.
// - Multi-string results are names each ended by NUL plus one more NUL; an
//   empty list is 0 bytes. Size-then-fill: null buffer -> size; buffer too
//   small -> SAR_BUFFER_TOO_SMALL and the size.
// - Connecting, listing and opening devices, applications and containers,
//   device events and SKF_GenRandom work; every other SKF name answers
//   SAR_NOTSUPPORTYETERR (faults still apply).
//
// Call log lines (one per call, arguments as " key=value"; a pointer
// argument is "set" or "null"; strings as given), e.g.:
//   SKF_EnumDev present=1 buf=null size=0
//   SKF_ConnectDev name=dev1            SKF_DisConnectDev dev=dev1
//   SKF_GetDevInfo dev=dev1             SKF_GenRandom dev=dev1 len=6
//   SKF_EnumApplication dev=dev1 buf=set size=256
//   SKF_OpenApplication dev=dev1 name=APP     SKF_CloseApplication app=APP
//   SKF_EnumContainer buf=null size=0   SKF_OpenContainer name=C1
// A name that is not supported logs its name alone.
#ifndef TWKEY_MOCKSKF_H
#define TWKEY_MOCKSKF_H

#ifdef __cplusplus
extern "C" {
#endif

// Back to an empty token world: no devices, no faults, empty call log.
void mock_reset(void);
// Devices, applications, containers.
void mock_add_device(const char *dev, const char *serial);
void mock_set_present(const char *dev, int present);          // removed devices answer SAR_DEVICE_REMOVED
void mock_set_serial(const char *dev, const char *serial);     // a "replaced" token under the same name
void mock_add_app(const char *dev, const char *app);
void mock_add_container(const char *dev, const char *app, const char *container, unsigned int type);
// Faults: the named function returns `code` for its next `times` calls
// (times < 0: until cleared), without doing anything else.
void mock_fail(const char *function, unsigned int code, int times);
// Size lies: the named function's size query reports `delta` more bytes.
void mock_size_delta(const char *function, int delta);
void mock_clear_faults(void);
// Call log: one line per SKF/EPS call received, "NAME arg=value ...".
// The text is valid until the next mock_* call.
const char *mock_calls(void);
int mock_call_count(const char *function);
void mock_clear_calls(void);
// How long SKF_WaitForDevEvent waits for an event (default 0 ms).
void mock_set_wait_timeout(unsigned int milliseconds);

#ifdef __cplusplus
}
#endif

#endif
