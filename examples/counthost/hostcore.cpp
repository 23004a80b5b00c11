#include "hostcore.h"

#include <QDir>

#include <cstdio>

HostCore::HostCore(const QString &binPath, QObject *parent) : QObject(parent), m_binPath(binPath) {}

void HostCore::logDebug(QString)
{
    // A real host keeps these lines in its log.
}

void HostCore::logError(QString text)
{
    if (qEnvironmentVariableIsSet("COUNTHOST_LOG"))
        std::fprintf(stderr, "%s\n", qUtf8Printable(text));
}

void HostCore::setLastError(uint code)
{
    m_lastError = code;
}

uint HostCore::getLastError()
{
    return m_lastError;
}

QString HostCore::configPath()
{
    return QDir::homePath() + QStringLiteral("/.config/counthost");
}

QString HostCore::binPath()
{
    return m_binPath;
}

#include "moc_hostcore.cpp"
