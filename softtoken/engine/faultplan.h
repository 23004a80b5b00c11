// A device's fault plan: named SKF functions made to fail with a given
// code, or to report a size other than what they fill, for a number of
// calls or until cleared. It lives in the store, so that a test in another
// process can set it.
#ifndef SOFTTOKEN_FAULTPLAN_H
#define SOFTTOKEN_FAULTPLAN_H

#include <QByteArray>
#include <QList>
#include <QString>

class FaultPlan
{
public:
    enum { UntilCleared = -1 };

    struct Entry {
        QString function;
        bool sizeLie = false;
        quint32 code = 0;      // result to return, when not a size lie
        qint32 sizeDelta = 0;  // added to the reported size, when a size lie
        int remaining = UntilCleared;
        int skip = 0;          // calls let through before the entry acts
    };

    QList<Entry> entries;

    bool isEmpty() const { return entries.isEmpty(); }
    bool mentions(const char *function) const;
    // Takes one use of the first entry for the function, code faults before
    // size lies; an entry whose uses run out leaves the plan. Entries still
    // letting calls through count the call instead (*changed set).
    bool consume(const char *function, Entry *used, bool *changed = nullptr);

    QByteArray toJson() const;
    static QString codeText(quint32 code); // 0x0A000023
    static bool fromJson(const QByteArray &json, FaultPlan *out);
};

#endif // SOFTTOKEN_FAULTPLAN_H
