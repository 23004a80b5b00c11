// config.xml as a package folder holds it: the checks ahead of the parser,
// the parser, and the reading of every element.
#include <QFile>
#include <QTemporaryDir>

#include "package/keydriverpackage.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QTemporaryDir dir;
    QFile config(dir.path() + QStringLiteral("/config.xml"));
    if (!config.open(QIODevice::WriteOnly | QIODevice::Truncate)
        || config.write(reinterpret_cast<const char *>(data), qint64(size)) != qint64(size))
        abort();
    config.close();
    KeyDriverPackage package(dir.path());
    if (package.open())
        package.GetLimitSize(16);
    return 0;
}
