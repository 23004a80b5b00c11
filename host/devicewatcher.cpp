#include "devicewatcher.h"

DeviceWatcher::DeviceWatcher(const TokenLibraries::Library &library, QObject *parent)
    : QThread(parent), m_library(library)
{
}

bool DeviceWatcher::stop()
{
    m_stopping = true;
    return m_library.cancelWaitForDevEvent && m_library.cancelWaitForDevEvent() == SAR_OK;
}

void DeviceWatcher::run()
{
    // Each wait blocks in the library until it has an event: nothing here
    // asks the token anything in between.
    while (!m_stopping) {
        char name[512] = {};
        ULONG length = sizeof name;
        ULONG event = 0;
        const ULONG rv = m_library.waitForDevEvent(name, &length, &event);
        if (m_stopping)
            break;
        if (rv != SAR_OK || !name[0]) {
            emit waitFailed(rv);
            break;
        }
        emit deviceEvent(QString::fromLocal8Bit(name), event);
    }
}
