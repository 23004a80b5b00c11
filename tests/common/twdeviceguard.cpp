#include "twdeviceguard.h"

#include <QFile>

const char *const TwDeviceGuard::kPath = "/tmp/tw_device";

TwDeviceGuard::TwDeviceGuard() : m_saved(current()), m_existed(!m_saved.isNull()) {}

TwDeviceGuard::~TwDeviceGuard()
{
    set(m_existed ? m_saved : QByteArray());
}

QByteArray TwDeviceGuard::current()
{
    QFile file(QString::fromLatin1(kPath));
    if (!file.exists() || !file.open(QIODevice::ReadOnly))
        return QByteArray();
    QByteArray content = file.readAll();
    // An empty file is a file: keep it apart from none.
    if (content.isNull())
        content = QByteArray("");
    return content;
}

bool TwDeviceGuard::set(const QByteArray &content)
{
    QFile file(QString::fromLatin1(kPath));
    if (content.isNull())
        return !file.exists() || file.remove();
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(content) == content.size();
}
