// Log expectations as data, "function|message[|count]" with the source line
// left open (the forms: docs/tests.md); TW_VERIFY_LOG(core, wants).
#ifndef TWTEST_LOGCHECK_H
#define TWTEST_LOGCHECK_H

#include "twcore.h"

#include <QRegularExpression>
#include <QStringList>

namespace LogCheck {

// A glob as a regular expression: '*' is any text, "%d" a number, all else literal.
inline QString globExpression(const QString &glob)
{
    return QRegularExpression::escape(glob)
        .replace(QStringLiteral("\\*"), QStringLiteral(".*"))
        .replace(QStringLiteral("\\%d"), QStringLiteral("-?\\d+"));
}

inline bool glob(const QString &pattern, const QString &text)
{
    return QRegularExpression(QRegularExpression::anchoredPattern(globExpression(pattern))).match(text).hasMatch();
}

// The first expectation that does not hold, with the log; empty when all hold.
inline QString unmet(const TWCore &core, const QStringList &wants)
{
    const QList<TWCore::LogLine> lines = core.lines();
    int last = -1;
    for (QString want : wants) {
        const bool after = want.startsWith(QLatin1Char('>'));
        const bool error = want.startsWith(QLatin1Char('!')) || want.startsWith(QLatin1String(">!"));
        const bool anyLevel = want.startsWith(QLatin1Char('?'));
        want.remove(0, int(after) + int(error) + int(anyLevel));
        const QStringList f = want.split(QLatin1Char('|'));
        const QString where = f.value(0) == QLatin1String("*") ? QStringLiteral("[^\\]]*") : QRegularExpression::escape(f.value(0));
        const QRegularExpression re(QStringLiteral("^\\[%1:\\d+\\]%2$").arg(where, globExpression(f.value(1))),
                                    QRegularExpression::DotMatchesEverythingOption);
        int count = 0, first = -1;
        for (int i = after ? last + 1 : 0; i < lines.size(); ++i) {
            if ((anyLevel || (lines.at(i).level == TWCore::Level::Error) == error) && re.match(lines.at(i).text).hasMatch()) {
                first = first < 0 ? i : first;
                ++count;
            }
        }
        if (f.size() > 2 ? count != f.at(2).toInt() : count == 0) {
            QStringList all;
            for (const TWCore::LogLine &l : lines)
                all << (l.level == TWCore::Level::Error ? QStringLiteral("E ") : QStringLiteral("D ")) + l.text;
            return QStringLiteral("%1 (seen %2)\n%3").arg(want).arg(count).arg(all.join(QLatin1Char('\n')));
        }
        last = first;
    }
    return QString();
}

} // namespace LogCheck

#define TW_VERIFY_LOG(core, ...)                                                                                     \
    do {                                                                                                             \
        const QString twUnmet = LogCheck::unmet((core), __VA_ARGS__);                                                    \
        QVERIFY2(twUnmet.isEmpty(), qPrintable(twUnmet));                                                            \
    } while (0)

#endif
