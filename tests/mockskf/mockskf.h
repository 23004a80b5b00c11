// Control interface of the test token library (libmockskf.so and its
// variants). The library exports the SKF names of the binding table and
// these mock_* functions; a test dlopen()s the same file the driver loads
// (same inode, same instance) and steers it through them.
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

#ifdef __cplusplus
}
#endif

#endif
