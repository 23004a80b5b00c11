// The machine-wide device-state file "/tmp/tw_device", which opening a key
// rewrites: kept as it was before a benchmark's run and put back after.
#ifndef TWBENCH_DEVICESTATEFILE_H
#define TWBENCH_DEVICESTATEFILE_H

#include <QByteArray>
#include <QFile>

class DeviceStateFile
{
public:
    DeviceStateFile();
    ~DeviceStateFile();
    DeviceStateFile(const DeviceStateFile &) = delete;
    DeviceStateFile &operator=(const DeviceStateFile &) = delete;

private:
    QFile m_file;
    bool m_existed;
    QByteArray m_saved;
};

#endif
