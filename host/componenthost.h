// Loads the component library at run time and hands out its key manager.
// Knows the library only by its exported entry points.
#ifndef TWHOST_COMPONENTHOST_H
#define TWHOST_COMPONENTHOST_H

#include <QLibrary>
#include <QObject>
#include <QString>

class ComponentHost
{
public:
    static const char *const kProgId;
    static const char *const kInterfaceId;

    ComponentHost();
    // Leaves the library mapped: objects it handed out may outlive us.
    ~ComponentHost();

    ComponentHost(const ComponentHost &) = delete;
    ComponentHost &operator=(const ComponentHost &) = delete;

    // Loads the file and resolves the four entry points. All four must be
    // there; errorString() tells which one is not.
    bool load(const QString &libraryPath);
    bool isLoaded() const;
    QString errorString() const;

    // ComponentInit(core). The core must outlive every use of the library.
    bool init(QObject *core);
    // CreateComponent(progId, interfaceId); only after init().
    QObject *createComponent(const QString &progId = QString::fromLatin1(kProgId),
                             const QString &interfaceId = QString::fromLatin1(kInterfaceId));
    // init(core), then the key manager. Null on any failure.
    QObject *start(QObject *core);
    QObject *manager() const;

    // TW_GetVersion as the library exports it; -2 when it is not loaded.
    int getVersion(char *buffer, int *length) const;

    // Deletes the manager if asked (its destructor closes the sessions),
    // then ComponentDestroy(). Safe to call twice.
    void shutdown(bool deleteManager);

private:
    using InitFn = int (*)(QObject *);
    using CreateFn = QObject *(*)(QString, QString);
    using DestroyFn = void (*)();
    using VersionFn = int (*)(char *, int *);

    QLibrary m_library;
    QString m_error;
    InitFn m_init = nullptr;
    CreateFn m_create = nullptr;
    DestroyFn m_destroy = nullptr;
    VersionFn m_version = nullptr;
    bool m_initialised = false;
    bool m_managerDeleted = false;
    QObject *m_manager = nullptr;
};

#endif
