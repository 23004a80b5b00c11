#include "skfformat.h"

#include <QStringList>

#include "frame/twlog.h"
#include "keyobject.h"
#include "package/keydriverpackage.h"
#include "skf/skfapi.h"

const char SkfFormat::kBuiltInAdminPin[] = "QmVR2kdLZTTHpXsa";
const char SkfFormat::kDefaultUserPin[] = "482915";

namespace {

void logAs(const char *function, int line, const QString &message)
{
    if (twlog::enabled())
        twlog::debug(function, line, message);
}

} // namespace

QByteArray SkfFormat::decodeAdminPin(const QString &encoded)
{
    QByteArray pin = QByteArray::fromBase64(QByteArray::fromBase64(encoded.toLatin1()));
    const int end = pin.indexOf('\0');
    if (end >= 0)
        pin.truncate(end);
    return pin;
}

bool SkfFormat::adoptBuiltInAdminPin(const char *function, KeyObject *key, KeyDriverPackage *package,
                                     bool emptyApIsSuccess)
{
    const QString builtIn = QString::fromLatin1(kBuiltInAdminPin);
    if (key->verifyPin(builtIn, true)) {
        logAs(function, __LINE__, QStringLiteral(" end"));
        return true;
    }

    const QString encoded = package ? package->defaultAdminPin() : QString();
    logAs(function, __LINE__, QStringLiteral(" strDefaultAdminPin: ") + encoded);
    if (encoded.isEmpty() && emptyApIsSuccess) {
        logAs(function, __LINE__, QStringLiteral(" end"));
        return true;
    }

    const QString packagePin = QString::fromLatin1(decodeAdminPin(encoded));
    if (!key->verifyPin(packagePin, true)) {
        logAs(function, __LINE__, QStringLiteral(" end. DefaultAdminPin fail"));
        return false;
    }
    if (!key->changePIN(true, packagePin, builtIn)) {
        logAs(function, __LINE__, QStringLiteral(" end. change Admin PIN fail"));
        return false;
    }
    logAs(function, __LINE__, QStringLiteral(" end"));
    return true;
}

bool SkfFormat::formatKey(KeyObject *key, bool appOpen, KeyDriverPackage *package)
{
    TW_LOG(" start");
    if (!appOpen) {
        key->setLastError(SAR_USER_NOT_LOGGED_IN);
        TW_LOG(" end . app is null");
        return false;
    }

    // A failed deletion is logged and passed over: the result speaks only
    // of the PIN steps.
    const QStringList files = key->enumFiles();
    for (const QString &name : files) {
        if (key->deleteFile(name))
            TW_LOG(QStringLiteral(" delete file succeed. FileName: ") + name);
        else
            TW_LOG(QStringLiteral(" delete file fail. FileName: ") + name);
    }
    return adoptBuiltInAdminPin(__FUNCTION__, key, package, false);
}
