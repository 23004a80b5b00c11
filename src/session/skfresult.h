#ifndef TWKEY_SKFRESULT_H
#define TWKEY_SKFRESULT_H

#include <QtGlobal>

// The words for SKF result codes, kept once for every session class.
class SkfResult
{
public:
    // The text of a code; *known tells whether the code has a row.
    static const char *text(quint32 code, bool *known = nullptr);
    // What each class's PrintError does, with that class's tag
    // ("[TWKeyObjectSkf::PrintError] Error:"): fill msg when given, and
    // print one line to standard output for codes that have a row.
    static void print(const char *tag, quint32 code, char *msg);
};

#endif
