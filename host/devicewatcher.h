// A thread that waits in one token library's SKF_WaitForDevEvent and
// reports each device that arrives or goes. The wait blocks inside the
// library: stop() ends it through SKF_CancelWaitForDevEvent where the
// library has that.
#ifndef TWHOST_DEVICEWATCHER_H
#define TWHOST_DEVICEWATCHER_H

#include "tokenlibraries.h"

#include <QThread>

#include <atomic>

class DeviceWatcher : public QThread
{
    Q_OBJECT

public:
    explicit DeviceWatcher(const TokenLibraries::Library &library, QObject *parent = nullptr);

    const TokenLibraries::Library &library() const { return m_library; }
    // Asks the wait to end; false when the library cannot be asked.
    bool stop();

signals:
    // The standard's event values: 1 arrival, 2 removal.
    void deviceEvent(const QString &device, uint event);
    void waitFailed(uint code);

protected:
    void run() override;

private:
    TokenLibraries::Library m_library;
    std::atomic<bool> m_stopping{false};
};

#endif
