// The core object this host hands to the library. The library reaches it
// only by method name, so these names and parameter types are what counts.
#ifndef COUNTHOST_HOSTCORE_H
#define COUNTHOST_HOSTCORE_H

#include <QObject>
#include <QString>

class HostCore : public QObject
{
    Q_OBJECT

public:
    explicit HostCore(const QString &binPath, QObject *parent = nullptr);

    Q_INVOKABLE void logDebug(QString text);
    Q_INVOKABLE void logError(QString text);
    Q_INVOKABLE void setLastError(uint code);
    Q_INVOKABLE uint getLastError();
    Q_INVOKABLE QString configPath();
    // The library scans binPath() + "/kdp/" for key driver packages.
    Q_INVOKABLE QString binPath();

private:
    QString m_binPath;
    uint m_lastError = 0;
};

#endif
