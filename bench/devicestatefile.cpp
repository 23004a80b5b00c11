#include "devicestatefile.h"

DeviceStateFile::DeviceStateFile() : m_file(QStringLiteral("/tmp/tw_device")), m_existed(m_file.exists())
{
    if (m_existed && m_file.open(QIODevice::ReadOnly)) {
        m_saved = m_file.readAll();
        m_file.close();
    }
}

DeviceStateFile::~DeviceStateFile()
{
    if (!m_existed) {
        m_file.remove();
    } else if (m_file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        m_file.write(m_saved);
        m_file.close();
    }
}
