#include "tokenlibraries.h"

#include <QDir>
#include <QFileInfo>

#include <dlfcn.h>
#include <link.h>

namespace {

int collect(dl_phdr_info *info, size_t, void *data)
{
    if (info->dlpi_name && *info->dlpi_name)
        static_cast<QStringList *>(data)->append(QFile::decodeName(info->dlpi_name));
    return 0;
}

template <typename F>
void resolve(void *handle, const char *name, F *function)
{
    *function = reinterpret_cast<F>(dlsym(handle, name));
}

} // namespace

ULONG TokenLibraries::Library::devices(QStringList *names) const
{
    names->clear();
    ULONG size = 0;
    ULONG rv = enumDev(TRUE, nullptr, &size);
    QByteArray buffer(int(size) + 1, '\0');
    if (rv == SAR_OK)
        rv = enumDev(TRUE, buffer.data(), &size);
    if (rv != SAR_OK)
        return rv;
    for (const QByteArray &name : buffer.left(int(size)).split('\0')) {
        if (name.isEmpty())
            break;
        names->append(QString::fromLocal8Bit(name));
    }
    return SAR_OK;
}

QVector<TokenLibraries::Library> TokenLibraries::loaded(const QString &kdpDir)
{
    QStringList objects;
    dl_iterate_phdr(collect, &objects);
    const QString root = QDir::cleanPath(QDir(kdpDir).absolutePath()) + QLatin1Char('/');
    QVector<Library> out;
    for (const QString &object : qAsConst(objects)) {
        const QString path = QDir::cleanPath(QFileInfo(object).absoluteFilePath());
        if (!path.startsWith(root))
            continue;
        // Already loaded: this only takes another reference, never dropped,
        // as the key library keeps its own.
        void *handle = dlopen(QFile::encodeName(object).constData(), RTLD_LAZY | RTLD_NOLOAD);
        if (!handle)
            continue;
        Library library;
        library.path = path;
        resolve(handle, "SKF_EnumDev", &library.enumDev);
        resolve(handle, "SKF_WaitForDevEvent", &library.waitForDevEvent);
        resolve(handle, "SKF_CancelWaitForDevEvent", &library.cancelWaitForDevEvent);
        if (library.enumDev)
            out.append(library);
    }
    return out;
}

QStringList TokenLibraries::packages(const QString &kdpDir)
{
    QStringList out;
    const QFileInfoList entries =
        QDir(kdpDir).entryInfoList(QDir::Dirs | QDir::Files | QDir::NoDotAndDotDot, QDir::Name);
    for (const QFileInfo &entry : entries) {
        if (entry.isDir() || entry.suffix().compare(QLatin1String("kdp"), Qt::CaseInsensitive) == 0)
            out.append(entry.fileName());
    }
    return out;
}
