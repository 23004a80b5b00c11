#include "twcore.h"

#include <QDateTime>
#include <QMutexLocker>

#include <algorithm>
#include <cstdio>

namespace {

const char *levelTag(TWCore::Level level)
{
    return level == TWCore::Level::Error ? "E" : "D";
}

} // namespace

TWCore::TWCore(QObject *parent) : QObject(parent) {}

TWCore::~TWCore() = default;

void TWCore::logDebug(QString text)
{
    append(Level::Debug, text);
}

void TWCore::logError(QString text)
{
    append(Level::Error, text);
}

void TWCore::setLastError(uint code)
{
    QMutexLocker lock(&m_mutex);
    m_lastError = code;
}

uint TWCore::getLastError()
{
    return lastError();
}

QString TWCore::configPath()
{
    QMutexLocker lock(&m_mutex);
    return m_configPath;
}

QString TWCore::binPath()
{
    QMutexLocker lock(&m_mutex);
    return m_binPath;
}

QObject *TWCore::createComponentObject(QString progId, QString interfaceId)
{
    // This host offers no further components; the library never asks for one.
    logDebug(QStringLiteral("[core] no component %1 / %2").arg(progId, interfaceId));
    return nullptr;
}

void TWCore::setConfigPath(const QString &path)
{
    QMutexLocker lock(&m_mutex);
    m_configPath = path;
}

void TWCore::setBinPath(const QString &path)
{
    QMutexLocker lock(&m_mutex);
    m_binPath = path;
}

bool TWCore::setLogFile(const QString &path)
{
    QMutexLocker lock(&m_mutex);
    if (m_logFile.isOpen())
        m_logFile.close();
    if (path.isEmpty())
        return true;
    m_logFile.setFileName(path);
    return m_logFile.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text);
}

void TWCore::setVerbose(bool on)
{
    QMutexLocker lock(&m_mutex);
    m_verbose = on;
}

void TWCore::setDiscard(bool on)
{
    QMutexLocker lock(&m_mutex);
    m_discard = on;
}

void TWCore::setKeepDebug(bool on)
{
    QMutexLocker lock(&m_mutex);
    m_keepDebug = on;
}

QList<TWCore::LogLine> TWCore::lines() const
{
    QMutexLocker lock(&m_mutex);
    return m_lines;
}

QStringList TWCore::lines(Level level) const
{
    QMutexLocker lock(&m_mutex);
    QStringList out;
    for (const LogLine &line : m_lines) {
        if (line.level == level)
            out << line.text;
    }
    return out;
}

int TWCore::count(Level level) const
{
    QMutexLocker lock(&m_mutex);
    return int(std::count_if(m_lines.cbegin(), m_lines.cend(),
                             [level](const LogLine &line) { return line.level == level; }));
}

int TWCore::lineCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_lineCount;
}

void TWCore::clear()
{
    QMutexLocker lock(&m_mutex);
    m_lines.clear();
    m_lineCount = 0;
}

uint TWCore::lastError() const
{
    QMutexLocker lock(&m_mutex);
    return m_lastError;
}

void TWCore::append(Level level, const QString &text)
{
    // The library may log from a thread of a token library, so everything
    // below runs under the one lock.
    QMutexLocker lock(&m_mutex);
    ++m_lineCount;
    if (m_discard)
        return;
    if (m_keepDebug || level == Level::Error)
        m_lines.append(LogLine{level, text});
    if (!m_logFile.isOpen() && !m_verbose)
        return;
    const QByteArray line = QDateTime::currentDateTime().toString(QStringLiteral("hh:mm:ss.zzz")).toUtf8()
                            + ' ' + levelTag(level) + ' ' + text.toUtf8() + '\n';
    if (m_logFile.isOpen()) {
        m_logFile.write(line);
        m_logFile.flush();
    }
    if (m_verbose) {
        // Behind the results so far, which may wait in a buffer.
        std::fflush(nullptr);
        std::fwrite(line.constData(), 1, size_t(line.size()), stderr);
    }
}
