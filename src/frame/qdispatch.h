#ifndef TWKEY_QDISPATCH_H
#define TWKEY_QDISPATCH_H

#include <QByteArray>
#include <QDir>
#include <QObject>
#include <QString>
#include <cstdarg>

class QRecursiveMutex;

// Calls a method by name on a QObject the library knows only as such.
// Every argument is passed as a pointer; a call that can't be made is
// silent for the caller, whose preset result slot stays as it was.
class Q_Dispatch : public QObject
{
    Q_OBJECT
public:
    Q_Dispatch(QObject *target, QObject *parent = nullptr);
    ~Q_Dispatch() override;

    void invokeHelper(QString methodName, void *result, ...);
    void invokeHelperV(QString methodName, void *result, va_list args);
    void Corelog(QString text);

    QObject *target() const { return _target; }

protected:
    QDir _traceDir;
    QObject *_target;
    // Taken around every call when set (the core agent's calls).
    QRecursiveMutex *_lock = nullptr;

private:
    bool traceOn() const;

    // _traceDir's path as the file system takes it, encoded once: the
    // directory is looked up at every call.
    QByteArray _traceDirName;
};

#endif
