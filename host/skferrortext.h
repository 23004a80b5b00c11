// Words for the result codes a host reads back through lastError(): the
// host's own copy, in English, of the token result codes and the
// library's own codes.
#ifndef TWHOST_SKFERRORTEXT_H
#define TWHOST_SKFERRORTEXT_H

#include <QString>

class SkfErrorText
{
public:
    // The text for a code, or "unknown error" for a code without one.
    static QString text(uint code);
    // "error 0x0A000024: PIN incorrect"
    static QString line(uint code);
};

#endif
