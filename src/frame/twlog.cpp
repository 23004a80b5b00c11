#include "twlog.h"

#include <QRecursiveMutex>

#include <algorithm>
#include <cstring>

#include "rtc.h"
#include "twcoreaccess.h"
#include "twsignaturecoreagent.h"

namespace twlog {

bool enabled()
{
    return getSignatureCore() != nullptr;
}

namespace {

// "[function:line]" followed by room for a message of `length` characters,
// written in place into one buffer: this runs for every log line. *rest
// is where the message goes.
QString framed(const char *function, int line, int length, QChar **rest)
{
    char digits[16];
    char *number = digits + sizeof digits;
    unsigned int value = line < 0 ? 0u - unsigned(line) : unsigned(line);
    do {
        *--number = char('0' + value % 10);
        value /= 10;
    } while (value);
    if (line < 0)
        *--number = '-';
    const int numberLength = int(digits + sizeof digits - number);
    const int nameLength = int(std::strlen(function));
    QString text(nameLength + numberLength + length + 3, Qt::Uninitialized);
    QChar *out = text.data();
    *out++ = QLatin1Char('[');
    out = std::transform(function, function + nameLength, out, [](char c) { return QLatin1Char(c); });
    *out++ = QLatin1Char(':');
    out = std::transform(number, number + numberLength, out, [](char c) { return QLatin1Char(c); });
    *out++ = QLatin1Char(']');
    *rest = out;
    return text;
}

template <typename Text>
void send(void (TWSignatureCoreAgent::*to)(QString), const char *function, int lineNo, const Text &message)
{
    if (TWSignatureCoreAgent *core = getSignatureCore())
        (core->*to)(line(function, lineNo, message));
}

} // namespace

QString line(const char *function, int line, const QString &message)
{
    QChar *rest = nullptr;
    QString text = framed(function, line, message.size(), &rest);
    std::copy(message.constData(), message.constData() + message.size(), rest);
    return text;
}

QString line(const char *function, int line, const char *message)
{
    // ASCII, as fixed texts are, reads the same in every encoding; any
    // other text is decoded as UTF-8 first.
    const char *end = message;
    bool ascii = true;
    for (; *end; ++end)
        ascii = ascii && uchar(*end) < 0x80;
    if (!ascii)
        return twlog::line(function, line, QString::fromUtf8(message));
    QChar *rest = nullptr;
    QString text = framed(function, line, int(end - message), &rest);
    std::transform(message, end, rest, [](char c) { return QLatin1Char(c); });
    return text;
}

void debug(const char *function, int lineNo, const QString &message)
{
    send(&TWSignatureCoreAgent::logDebug, function, lineNo, message);
}

void error(const char *function, int lineNo, const QString &message)
{
    send(&TWSignatureCoreAgent::logError, function, lineNo, message);
}

void debug(const char *function, int lineNo, const char *message)
{
    send(&TWSignatureCoreAgent::logDebug, function, lineNo, message);
}

void error(const char *function, int lineNo, const char *message)
{
    send(&TWSignatureCoreAgent::logError, function, lineNo, message);
}

void entryDebug(const char *function, int lineNo, const QString &message)
{
    if (TWSignatureCoreAgent *core = getSignatureCore()) {
        core->logDebug(QLatin1String("[rtc:") + QLatin1String(function) + QLatin1Char(':') + QString::number(lineNo)
                       + QLatin1Char(']') + message);
    }
}

void forward(const QString &text)
{
    // The agent may be deleted by another thread: it is looked up and
    // used under the lock that its deletion takes.
    QMutexLocker lock(&twcore::agentLock());
    if (TWSignatureCoreAgent *core = getSignatureCore())
        core->logDebug(text);
}

} // namespace twlog
