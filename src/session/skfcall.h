#ifndef TWKEY_SKFCALL_H
#define TWKEY_SKFCALL_H

#include <QtGlobal>
#include <initializer_list>

#include "frame/twlog.h"

class KeySession;

// One guard of an operation: when `trips` holds, `code` becomes the last
// error and `text` is logged (no line when text is null).
struct SkfGuard
{
    bool trips;
    quint32 code;
    const char *text;
};

// Runs what every session operation does alike: its guards in order, and
// the common steps after a failed library call. Texts go out in the
// session's words.
class SkfCall
{
public:
    enum Close { CloseIfRemoved, CloseAlways, CloseNever };
    // NoError: the code is logged (and closes as asked) but not recorded
    // as last error, for the few calls whose failure leaves it alone.
    enum Order { ErrorThenClose, CloseThenError, NoError };

    explicit SkfCall(KeySession *key);

    // The first guard that trips ends the operation; true when one did.
    bool refused(const char *function, int line, std::initializer_list<SkfGuard> guards) const;

    // Common failure steps: PrintError (when asked), the formatted text
    // (fmt with the code as its one %d) through the error log, the code as
    // last error, and closeV1 as the close policy says, in `order`.
    void failed(const char *function, int line, quint32 ret, const char *fmt, Close close = CloseIfRemoved,
                Order order = ErrorThenClose, bool printError = true) const;

private:
    KeySession *m_key;
};

// In a session method: `if (SKF_REFUSED({!m_api->ready(), SAR_USER_NOT_LOGGED_IN, " end . app is null"})) return ...;`
#define SKF_REFUSED(...) m_call.refused(__FUNCTION__, __LINE__, {__VA_ARGS__})
// After a library call: `SKF_FAILED(ret, " SKF_X failed.ret = %d");` plus optional Close, Order, printError.
#define SKF_FAILED(ret, ...) m_call.failed(__FUNCTION__, __LINE__, (ret), __VA_ARGS__)

// A session's log lines, as TW_LOG and its kin, in the session's words.
#define SLOG(msg)                                                       \
    do {                                                                \
        if (twlog::enabled()) say(__FUNCTION__, __LINE__, (msg));       \
    } while (0)
#define SLOG_ERROR(msg)                                                 \
    do {                                                                \
        if (twlog::enabled()) say(__FUNCTION__, __LINE__, (msg), true); \
    } while (0)
#define SLOGF(...) SLOG(QString::asprintf(__VA_ARGS__))
#define SLOGF_ERROR(...) SLOG_ERROR(QString::asprintf(__VA_ARGS__))

#endif
