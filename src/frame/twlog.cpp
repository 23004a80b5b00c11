#include "twlog.h"

#include <QRecursiveMutex>

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
    // "[function:line]message" in one buffer: this runs for every log line.
    const QByteArray number = QByteArray::number(line);
    const QLatin1String name(function);
    QString text;
    text.reserve(name.size() + number.size() + message.size() + 3);
    text += QLatin1Char('[');
    text += name;
    text += QLatin1Char(':');
    text += QLatin1String(number);
    text += QLatin1Char(']');
    text += message;
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
