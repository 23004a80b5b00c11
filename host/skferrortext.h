// Words for the result codes a host reads back through lastError(): the
// host's own copy, in English, of the token result codes and the
// library's own codes.
#ifndef TWHOST_SKFERRORTEXT_H
#define TWHOST_SKFERRORTEXT_H

#include <QJsonObject>
#include <QString>

class SkfErrorText
{
public:
    // The text for a code, or "unknown error" for a code without one.
    static QString text(uint code);
    // The symbolic name, SAR_PIN_INCORRECT; empty for a code without one.
    static QString name(uint code);
    // "error 0x0A000024 SAR_PIN_INCORRECT: PIN incorrect"
    static QString line(uint code);
    // The code, its hex form, name and text; empty for 0.
    static QJsonObject json(uint code);
};

#endif
