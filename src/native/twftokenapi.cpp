#include "twftokenapi.h"

#include <cstring>

namespace {

// What every text that reword() changes holds.
const char kSkfWord[] = "SKF";

} // namespace

TwfTokenApi::TwfTokenApi(KeyDriverTWF *driver) : d(driver) {}

bool TwfTokenApi::bound() const
{
    // An unloaded driver keeps two functions only: that is no table.
    return d && d->pTWF_ConnectDev;
}

bool TwfTokenApi::has(Optional function) const
{
    // The seal functions are required here: a bound table has them.
    return bound() && (function != EccExportSessionKey || d->pTWF_ECCExportSessionKey);
}

bool TwfTokenApi::scoped() const
{
    return dev() != nullptr;
}

bool TwfTokenApi::handleUsable(HANDLE handle) const
{
    // Every key and hash call takes the device as well.
    return handle && dev();
}

QString TwfTokenApi::reword(const QString &text) const
{
    // The texts name the native functions; the seal texts (ESP_, pEPS_)
    // stay as they are.
    if (!text.contains(QLatin1String(kSkfWord)))
        return text;
    QString native = text;
    native.replace(QLatin1String("SKF_"), QLatin1String("TWF_"));
    native.replace(QLatin1String("KeyObjectSKF"), QLatin1String("KeyObjectTWF"));
    return native;
}

bool TwfTokenApi::rewords(const char *text) const
{
    return std::strstr(text, kSkfWord) != nullptr;
}
