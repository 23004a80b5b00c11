#include "skfcall.h"

#include <QString>

#include "frame/twlog.h"
#include "keyobject.h"
#include "skf/skfapi.h"
#include "skfresult.h"

SkfCall::SkfCall(KeyObject *key, const char *printTag) : m_key(key), m_tag(printTag) {}

bool SkfCall::refused(const char *function, int line, std::initializer_list<SkfGuard> guards) const
{
    for (const SkfGuard &guard : guards) {
        if (!guard.trips)
            continue;
        m_key->setLastError(int(guard.code));
        if (guard.text && twlog::enabled())
            twlog::debug(function, line, QString::fromUtf8(guard.text));
        return true;
    }
    return false;
}

void SkfCall::failed(const char *function, int line, quint32 ret, const char *fmt, Close close, Order order,
                     bool printError) const
{
    if (printError)
        SkfResult::print(m_tag, ret, nullptr);
    if (twlog::enabled())
        twlog::error(function, line, QString::asprintf(fmt, int(ret)));

    const bool closes = close == CloseAlways || (close == CloseIfRemoved && ret == SAR_DEVICE_REMOVED);
    if (order == ErrorThenClose)
        m_key->setLastError(int(ret));
    if (closes)
        m_key->closeV1();
    if (order == CloseThenError)
        m_key->setLastError(int(ret));
}
