// SKF_WaitForDevEvent: arrivals and removals of the store's devices, found
// by polling the store every 50 ms against the set of present devices this
// process saw last, so that no event between two waits is lost.
#ifndef SOFTTOKEN_DEVICEEVENTS_H
#define SOFTTOKEN_DEVICEEVENTS_H

#include "skfapi.h"

#include <QSet>
#include <QString>

#include <condition_variable>
#include <mutex>

class DeviceEvents
{
public:
    static DeviceEvents &instance();

    ULONG wait(LPSTR name, ULONG *nameLen, ULONG *event);
    // Ends the waits under way; a later wait is not affected.
    void cancel();

private:
    static QSet<QString> presentDevices(const QString &root);

    std::mutex m_mutex;
    std::condition_variable m_wake;
    unsigned m_cancelCount = 0;
    bool m_started = false;
    QString m_root;
    QSet<QString> m_known;
};

#endif // SOFTTOKEN_DEVICEEVENTS_H
