// The token libraries that the key library loaded from the packages,
// found among the objects loaded into the process and reached by their
// exported names, for what the key library offers no method for: the list
// of devices and the wait for device events.
#ifndef TWHOST_TOKENLIBRARIES_H
#define TWHOST_TOKENLIBRARIES_H

#include "skf/skfapi.h"

#include <QString>
#include <QStringList>
#include <QVector>

class TokenLibraries
{
public:
    struct Library
    {
        QString path;
        decltype(&::SKF_EnumDev) enumDev = nullptr;
        decltype(&::SKF_WaitForDevEvent) waitForDevEvent = nullptr;
        decltype(&::SKF_CancelWaitForDevEvent) cancelWaitForDevEvent = nullptr;

        // The present devices' names; the result code of SKF_EnumDev.
        ULONG devices(QStringList *names) const;
    };

    // The libraries loaded from under the package folder that export
    // SKF_EnumDev: the SKF token libraries of the packages in use.
    static QVector<Library> loaded(const QString &kdpDir);
    // The names of the package folders and files in the package folder.
    static QStringList packages(const QString &kdpDir);
};

#endif
