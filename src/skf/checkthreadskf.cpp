#include "checkthreadskf.h"

#include "frame/twlog.h"
#include "keydriverskf.h"

CheckThreadSKF::CheckThreadSKF(KeyDriverSKF *driver, QObject *parent)
    : QThread(parent), m_driver(driver), m_quit(false)
{
}

CheckThreadSKF::~CheckThreadSKF()
{
    TW_LOG(QStringLiteral(" end"));
}

void CheckThreadSKF::setQuit(bool quit)
{
    m_quit = quit;
}

bool CheckThreadSKF::needQuit() const
{
    return m_quit;
}

void CheckThreadSKF::run()
{
    TW_LOG(QStringLiteral(" start"));
    if (m_driver && m_driver->pSKF_EnumDev) {
        ULONG size = 0;
        try {
            // The result is not looked at.
            m_driver->pSKF_EnumDev(TRUE, nullptr, &size);
            TW_LOG(QStringLiteral("pSKF_EnumDev success!"));
        } catch (...) {
            TW_LOG(QStringLiteral("pSKF_EnumDev catch Exception ..."));
        }
    }
    TW_LOG(QStringLiteral(" end"));
}
