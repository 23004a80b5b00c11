// Log lines as the host's core keeps them, "[function:line]message", read
// back by function and message with the line number left open.
#ifndef TWKEY_TESTS_LOGCHECK_H
#define TWKEY_TESTS_LOGCHECK_H

#include <QRegularExpression>
#include <QStringList>

#include "twcore.h"

namespace logcheck {

inline QRegularExpression linePattern(const QString &function, const QString &message)
{
    return QRegularExpression(QStringLiteral("^\\[%1:\\d+\\]%2$")
                                  .arg(QRegularExpression::escape(function), QRegularExpression::escape(message)));
}

// How many lines of that level carry exactly this function and message.
inline int count(const TWCore &core, TWCore::Level level, const QString &function, const QString &message)
{
    const QRegularExpression re = linePattern(function, message);
    int n = 0;
    for (const QString &line : core.lines(level))
        n += re.match(line).hasMatch() ? 1 : 0;
    return n;
}

inline bool debug(const TWCore &core, const QString &function, const QString &message)
{
    return count(core, TWCore::Level::Debug, function, message) > 0;
}

inline bool error(const TWCore &core, const QString &function, const QString &message)
{
    return count(core, TWCore::Level::Error, function, message) > 0;
}

// The messages of all lines, of both levels, in order, without location.
inline QStringList messages(const TWCore &core)
{
    static const QRegularExpression location(QStringLiteral("^\\[[^\\]]*\\]"));
    QStringList out;
    for (const TWCore::LogLine &line : core.lines())
        out << QString(line.text).remove(location);
    return out;
}

} // namespace logcheck

#endif
