#include "skfcall.h"

#include <QString>

#include "keysession.h"
#include "skf/skfapi.h"

SkfCall::SkfCall(KeySession *key) : m_key(key) {}

bool SkfCall::refused(const char *function, int line, std::initializer_list<SkfGuard> guards) const
{
    for (const SkfGuard &guard : guards) {
        if (!guard.trips)
            continue;
        m_key->setLastError(int(guard.code));
        if (guard.text && twlog::enabled())
            m_key->say(function, line, guard.text);
        return true;
    }
    return false;
}

void SkfCall::failed(const char *function, int line, quint32 ret, const char *fmt, Close close, Order order,
                     bool printError) const
{
    if (printError)
        m_key->PrintError(ret, nullptr);
    if (twlog::enabled())
        m_key->say(function, line, QString::asprintf(fmt, int(ret)), true);

    const bool closes = close == CloseAlways || (close == CloseIfRemoved && ret == SAR_DEVICE_REMOVED);
    if (order == ErrorThenClose)
        m_key->setLastError(int(ret));
    if (closes)
        m_key->closeV1();
    if (order == CloseThenError)
        m_key->setLastError(int(ret));
}
