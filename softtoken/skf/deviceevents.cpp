#include "deviceevents.h"

#include "devicestore.h"
#include "skfcall.h"

#include <QStringList>

#include <algorithm>
#include <chrono>
#include <string.h>

DeviceEvents &DeviceEvents::instance()
{
    static DeviceEvents *events = new DeviceEvents;
    return *events;
}

QSet<QString> DeviceEvents::presentDevices(const QString &root)
{
    DeviceStore store(root);
    QSet<QString> present;
    for (const QString &name : store.deviceNames())
        if (store.isPresent(name))
            present.insert(name);
    return present;
}

ULONG DeviceEvents::wait(LPSTR name, ULONG *nameLen, ULONG *event)
{
    if (!name || !nameLen || !event)
        return SAR_INVALIDPARAMERR;
    std::unique_lock<std::mutex> lock(m_mutex);
    const unsigned cancelAtStart = m_cancelCount;
    const QString root = SkfCall::storeRoot();
    if (!m_started || root != m_root) {
        m_root = root;
        m_known = presentDevices(root);
        m_started = true;
    }
    for (;;) {
        const QSet<QString> now = presentDevices(m_root);
        QStringList gone = (m_known - now).values(), came = (now - m_known).values();
        std::sort(gone.begin(), gone.end());
        std::sort(came.begin(), came.end());
        if (!gone.isEmpty() || !came.isEmpty()) {
            const bool arrival = gone.isEmpty();
            const QString device = arrival ? came.first() : gone.first();
            const QByteArray bytes = device.toUtf8();
            const ULONG need = ULONG(bytes.size()) + 1;
            if (*nameLen < need) {
                *nameLen = need; // the event stays for the next wait
                return SAR_BUFFER_TOO_SMALL;
            }
            memcpy(name, bytes.constData(), size_t(bytes.size()));
            name[bytes.size()] = '\0';
            *nameLen = need;
            *event = arrival ? SKF_DEV_EVENT_INSERT : SKF_DEV_EVENT_REMOVE;
            if (arrival)
                m_known.insert(device);
            else
                m_known.remove(device);
            return SAR_OK;
        }
        if (m_wake.wait_for(lock, std::chrono::milliseconds(50), [&] { return m_cancelCount != cancelAtStart; }))
            return SAR_NOT_EVENTERR;
    }
}

void DeviceEvents::cancel()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_cancelCount;
    }
    m_wake.notify_all();
}
