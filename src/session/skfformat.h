#ifndef TWKEY_SKFFORMAT_H
#define TWKEY_SKFFORMAT_H

#include <QByteArray>
#include <QString>

class KeyDriverPackage;
class KeyObject;

// What the SKF session classes share about formatting and the two rescue
// PINs. Everything here works through the key's virtual operations, so
// each class's own file and PIN handling takes effect.
class SkfFormat
{
public:
    // Compiled-in PINs: the administrator PIN the system unblocks with,
    // and the user PIN an unblock sets.
    static const char kBuiltInAdminPin[];
    static const char kDefaultUserPin[];

    // The package's `ap`: base64 of base64 of the PIN. The PIN ends at its
    // first NUL.
    static QByteArray decodeAdminPin(const QString &encoded);

    // Deletes the application's files, then leaves the administrator PIN
    // at the built-in one. `appOpen` tells whether the key has an
    // application open.
    static bool formatKey(KeyObject *key, bool appOpen, KeyDriverPackage *package);

    // Makes the built-in PIN the administrator PIN: nothing to do when it
    // verifies, else moves over from the package's `ap`. A package with
    // no `ap` is a success when `emptyApIsSuccess` (resetAdminPin);
    // otherwise the empty PIN is tried and fails (formatKey). Logs under
    // the caller's function name.
    static bool adoptBuiltInAdminPin(const char *function, KeyObject *key, KeyDriverPackage *package,
                                     bool emptyApIsSuccess);
};

#endif
