// The host's core object: the log sink, the last-error store and the two
// paths that the component library reaches by late-bound calls.
#ifndef TWHOST_TWCORE_H
#define TWHOST_TWCORE_H

#include <QFile>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QStringList>

class TWCore : public QObject
{
    Q_OBJECT

public:
    enum class Level { Debug, Error };

    struct LogLine
    {
        Level level;
        QString text;
    };

    explicit TWCore(QObject *parent = nullptr);
    ~TWCore() override;

    // The library calls these by name, one pointer per argument. Their
    // names and parameter types are the interface; keep them unique here,
    // since the library finds a method by the "name(" prefix alone.
    Q_INVOKABLE void logDebug(QString text);
    Q_INVOKABLE void logError(QString text);
    Q_INVOKABLE void setLastError(uint code);
    Q_INVOKABLE uint getLastError();
    Q_INVOKABLE QString configPath();
    Q_INVOKABLE QString binPath();
    Q_INVOKABLE QObject *createComponentObject(QString progId, QString interfaceId);

    // Host side.
    void setConfigPath(const QString &path);
    void setBinPath(const QString &path);
    // Appends every line to this file from now on; an empty path stops it.
    bool setLogFile(const QString &path);
    void setVerbose(bool on);
    // Keeps nothing and writes nothing: for runs that measure the library
    // rather than the sink. Lines are still counted.
    void setDiscard(bool on);
    // Off: lines() keeps the error lines alone, for a long run that reads
    // no other (the log file and --verbose still get every line).
    void setKeepDebug(bool on);

    QList<LogLine> lines() const;
    QStringList lines(Level level) const;
    // lines(level).size(), without the copy.
    int count(Level level) const;
    // Number of lines received since the last clear(), discarded ones too.
    int lineCount() const;
    void clear();
    uint lastError() const;

private:
    void append(Level level, const QString &text);

    mutable QMutex m_mutex;
    QList<LogLine> m_lines;
    int m_lineCount = 0;
    uint m_lastError = 0;
    QString m_configPath;
    QString m_binPath;
    QFile m_logFile;
    bool m_verbose = false;
    bool m_discard = false;
    bool m_keepDebug = true;
};

#endif
