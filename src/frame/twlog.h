#ifndef TWKEY_TWLOG_H
#define TWKEY_TWLOG_H

#include <QString>

// Every log line of the system is "[location]message", where the location is
// "function:line" (or "rtc:function:line" for the exported entry points).
// Lines go to the host's core through the core agent; without a core agent
// nothing is built or sent.
namespace twlog {
bool enabled();
void debug(const char *function, int line, const QString &message);
void error(const char *function, int line, const QString &message);
// A fixed text (UTF-8), put into the line without a string of its own.
void debug(const char *function, int line, const char *message);
void error(const char *function, int line, const char *message);
void entryDebug(const char *function, int line, const QString &message);
QString line(const char *function, int line, const QString &message);
QString line(const char *function, int line, const char *message);
// A text as it stands to the core's debug log; safe from any thread.
void forward(const QString &text);
} // namespace twlog

// Messages are the system's fixed texts; formatted ones use QString::asprintf
// with the text as it stands (" SKF_ConnectDev failed,ret = %d ").
#define TW_LOG(msg)                                                   \
    do {                                                              \
        if (twlog::enabled()) twlog::debug(__FUNCTION__, __LINE__, (msg)); \
    } while (0)
#define TW_LOG_ERROR(msg)                                             \
    do {                                                              \
        if (twlog::enabled()) twlog::error(__FUNCTION__, __LINE__, (msg)); \
    } while (0)
#define TW_LOGF(...) TW_LOG(QString::asprintf(__VA_ARGS__))
#define TW_LOGF_ERROR(...) TW_LOG_ERROR(QString::asprintf(__VA_ARGS__))

#endif
