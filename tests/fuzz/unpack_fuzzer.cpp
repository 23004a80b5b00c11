// A packed package unpacked, whatever the archive holds: it fails on any
// file left outside the work folder, in the three folders above it or in
// a sibling package, and on any folder of its own left behind.
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdlib>

#include "package/packagearchive.h"

namespace {

void expect(const QString &folder, const QStringList &names)
{
    const QStringList found = QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    if (found != names) {
        qWarning("%s holds %s", qPrintable(folder), qPrintable(found.join(QLatin1Char(' '))));
        abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QTemporaryDir sandbox;
    static const QString top = QDir(sandbox.path()).canonicalPath(), kdp = top + QStringLiteral("/a/b/kdp");
    static const bool made = QDir().mkpath(kdp + QStringLiteral("/other")) && QFile(kdp + QStringLiteral("/other/config.xml")).open(QIODevice::WriteOnly);
    QFile archive(kdp + QStringLiteral("/p.kdp"));
    if (!made || !archive.open(QIODevice::WriteOnly | QIODevice::Truncate)
        || archive.write(reinterpret_cast<const char *>(data), qint64(size)) != qint64(size))
        abort();
    archive.close();
    QString why;
    const bool unpacked = PackageArchive::unpack(archive.fileName(), kdp + QStringLiteral("/p"), &why);
    expect(top, {"a"});
    expect(top + QStringLiteral("/a"), {"b"});
    expect(top + QStringLiteral("/a/b"), {"kdp"});
    expect(kdp, unpacked ? QStringList{"other", "p", "p.kdp"} : QStringList{"other", "p.kdp"});
    expect(kdp + QStringLiteral("/other"), {"config.xml"});
    if (QFileInfo(kdp + QStringLiteral("/other/config.xml")).size() != 0)
        abort();
    QDir(kdp + QStringLiteral("/p")).removeRecursively();
    return 0;
}
