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

QString line(const char *function, int line, const QString &message)
{
    // "[function:line]message" written in place into one buffer: this runs
    // for every log line.
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
    QString text(nameLength + numberLength + message.size() + 3, Qt::Uninitialized);
    QChar *out = text.data();
    *out++ = QLatin1Char('[');
    out = std::transform(function, function + nameLength, out, [](char c) { return QLatin1Char(c); });
    *out++ = QLatin1Char(':');
    out = std::transform(number, number + numberLength, out, [](char c) { return QLatin1Char(c); });
    *out++ = QLatin1Char(']');
    std::copy(message.constData(), message.constData() + message.size(), out);
    return text;
}

void debug(const char *function, int lineNo, const QString &message)
{
    if (TWSignatureCoreAgent *core = getSignatureCore())
        core->logDebug(line(function, lineNo, message));
}

void error(const char *function, int lineNo, const QString &message)
{
    if (TWSignatureCoreAgent *core = getSignatureCore())
        core->logError(line(function, lineNo, message));
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
