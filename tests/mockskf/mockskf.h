// Control interface of the test token library (libmockskf.so and its
// variants). The library exports the SKF names of the binding table and
// these mock_* functions; a test dlopen()s the same file the driver loads
// (same inode, same instance) and steers it through them.
//
// Usage (tests/common/mockcontrol.h wraps the dlopen):
//   MockControl mock;                       // libmockskf.so, already reset
//   mock.add_device("dev1", "SN0001");      // present, label "dev1"
//   mock.add_app("dev1", "APP");            // admin PIN "88888888", user "12345678", 10 tries
//   mock.add_container("dev1", "APP", "C1", 2);   // ECC container with a sign and an enc key
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
//   empty list is 0 bytes. Size-then-fill everywhere the standard has it:
//   null buffer -> size; buffer too small -> SAR_BUFFER_TOO_SMALL and the size.
// - Login state belongs to the application and is lost on connect,
//   disconnect, close of the application and removal. Wrong PIN:
//   SAR_PIN_INCORRECT and one try less; no tries left: SAR_PIN_LOCKED.
//   SKF_UnblockPIN checks the admin PIN and sets the user PIN.
// - With login required (the default) signing, key generation and import,
//   certificate import and creating or deleting containers need the user
//   PIN verified (SAR_USER_NOT_LOGGED_IN otherwise). Files: rights 0xFF
//   anyone, 0x10 user, 0x01 admin.
// - Fake crypto, no real algorithm: an ECC signature is 128 bytes, r and s
//   right-aligned (first 32 bytes of each half zero), their values begin
//   with "mock-r::" and "mock-s::" and depend on the public key and data;
//   SKF_ECCVerify accepts exactly what SKF_ECCSignData made for that data
//   with that key. RSA alike, signature BitLen/8 bytes. Digest lengths: 32
//   for SM3 and SHA256, 20 for SHA1. SKF_ExportPublicKey gives 268 bytes
//   (RSA container) or 132 (ECC). Session keys XOR with their key bytes
//   (no key bytes: identity); ciphertext has the length of the plaintext.
//   SKF_DigestInit and SKF_ECCVerify read a whole 132-byte public key blob
//   when given one.
//
// Call log lines (one per call, arguments as " key=value"; a pointer
// argument is "set" or "null"; strings as given):
//   SKF_EnumDev present=1 buf=null size=0
//   SKF_ConnectDev name=dev1            SKF_DisConnectDev dev=dev1
//   SKF_GetDevInfo dev=dev1             SKF_GenRandom dev=dev1 len=6
//   SKF_SetLabel dev=dev1 label=L       SKF_GetDevState name=dev1
//   SKF_EnumApplication dev=dev1 buf=set size=256
//   SKF_OpenApplication dev=dev1 name=APP     SKF_CloseApplication app=APP
//   SKF_VerifyPIN type=1 pin=123456     SKF_ChangePIN type=1 old=a new=b
//   SKF_UnblockPIN admin=x user=y       SKF_GetPINInfo type=1
//   SKF_EnumFiles buf=null size=0       SKF_GetFileInfo name=a
//   SKF_CreateFile name=a size=10 read=255 write=255
//   SKF_ReadFile name=a off=0 size=100  SKF_WriteFile name=a off=0 size=3
//   SKF_DeleteFile name=a
//   SKF_EnumContainer buf=null size=0   SKF_OpenContainer name=C1
//   SKF_CreateContainer name=C1         SKF_DeleteContainer name=C1
//   SKF_DigestInit alg=1 pubkey=null idlen=16 id=1234567812345678
//   SKF_Digest len=32 buf=null size=0   SKF_ECCSignData len=32
//   SKF_ECCVerify len=32                SKF_ExportPublicKey sign=1 buf=null size=0
//   SKF_ImportSessionKey len=16 alg=1025
//   EPS_ReadESealData index=1 alg=0 buf=null size=0 flags=0
// Every other function logs its name and its numeric and size arguments
// in the same way (see mockskf.cpp).
#ifndef TWKEY_MOCKSKF_H
#define TWKEY_MOCKSKF_H

#ifdef __cplusplus
extern "C" {
#endif

// Back to an empty token world: no devices, no faults, empty call log.
void mock_reset(void);

// Devices, applications, containers, files.
void mock_add_device(const char *dev, const char *serial);
void mock_set_present(const char *dev, int present);          // removed devices answer SAR_DEVICE_REMOVED
void mock_set_serial(const char *dev, const char *serial);     // a "replaced" token under the same name
void mock_add_app(const char *dev, const char *app);
void mock_add_container(const char *dev, const char *app, const char *container, unsigned int type);
void mock_add_file(const char *dev, const char *app, const char *file, const unsigned char *data, unsigned int len);
int mock_file_exists(const char *dev, const char *app, const char *file);
// PINs of an application: type 0 admin, 1 user.
void mock_set_pin(const char *dev, const char *app, unsigned int type, const char *pin, unsigned int maxRetry);
unsigned int mock_pin_retries(const char *dev, const char *app, unsigned int type);
// Certificates and seal data of a container / application.
void mock_set_cert(const char *dev, const char *app, const char *container, int sign, const unsigned char *der,
                   unsigned int len);
void mock_set_seal(const char *dev, const char *app, const unsigned char *data, unsigned int len);

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

// Further setters and probes.
void mock_set_label(const char *dev, const char *label);
void mock_set_manufacturer(const char *dev, const char *manufacturer);
void mock_set_versions(const char *dev, unsigned int hwMajor, unsigned int hwMinor, unsigned int fwMajor,
                       unsigned int fwMinor);
// Total space in bytes (default 65536); free space is total less file sizes.
void mock_set_space(const char *dev, unsigned int total);
// 0: no operation asks for a login (default 1).
void mock_set_login_required(int on);
int mock_logged_in(const char *dev, const char *app, unsigned int type);
// 1 when the PIN of that type is `pin`.
int mock_pin_is(const char *dev, const char *app, unsigned int type, const char *pin);
void mock_set_file_rights(const char *dev, const char *app, const char *file, unsigned int readRights,
                          unsigned int writeRights);
// Size of the file (copies up to `capacity` bytes into buf when given) and
// its rights; -1 when there is no such file.
int mock_file_info(const char *dev, const char *app, const char *file, unsigned char *buf, unsigned int capacity,
                   unsigned int *readRights, unsigned int *writeRights);
// Type of the container, -1 when there is none.
int mock_container_type(const char *dev, const char *app, const char *container);
void mock_remove_container(const char *dev, const char *app, const char *container);
// Size of the seal data (copied into buf up to capacity), -1 without an application.
int mock_seal(const char *dev, const char *app, unsigned char *buf, unsigned int capacity);
// How long SKF_WaitForDevEvent waits for an event before SAR_NOT_EVENTERR
// (default 0 ms). Presence changes queue insert (1) and remove (2) events.
void mock_set_wait_timeout(unsigned int milliseconds);

#ifdef __cplusplus
}
#endif

#endif
