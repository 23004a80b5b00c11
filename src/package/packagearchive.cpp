#include "packagearchive.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QList>

#include <quazip/quazip.h>
#include <quazip/quazipfile.h>
#include <quazip/quazipfileinfo.h>

#include <cerrno>
#include <cstdlib>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
const qint64 kMaxLinkText = 1024;

// A descriptor that closes with its scope.
struct Fd
{
    int fd;
    explicit Fd(int f = -1) : fd(f) {}
    ~Fd()
    {
        if (fd >= 0)
            ::close(fd);
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
};

// The folder `name` in `at`, made when missing and asked to; a link or a
// file of that name gives -1, so nothing is ever written through a link.
int folder(int at, const QByteArray &name, bool make)
{
    int fd = ::openat(at, name.constData(), kFolderFlags);
    if (fd < 0 && errno == ENOENT && make && ::mkdirat(at, name.constData(), 0755) == 0)
        fd = ::openat(at, name.constData(), kFolderFlags);
    return fd;
}

// An entry's name as the names of its steps; false for a name that could
// lead out of the folder or names nothing.
bool steps(const QString &name, QList<QByteArray> *out)
{
    if (name.startsWith(QLatin1Char('/')))
        return false;
    for (const QString &part : name.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        const QByteArray step = QFile::encodeName(part);
        if (step == ".")
            continue;
        if (step == ".." || step.contains('\0'))
            return false;
        *out << step;
    }
    return !out->isEmpty();
}

bool writeAll(int fd, const char *data, qint64 size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size_t(size));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        size -= n;
    }
    return true;
}

// Moves what `from` holds into `to`: folders that meet are merged, any
// other name replaces what lies there (a link is replaced, not followed),
// but nothing replaces a folder. With `apply` false it only checks.
bool merge(int from, int to, bool apply)
{
    QList<QByteArray> names;
    if (DIR *dir = ::fdopendir(::openat(from, ".", kFolderFlags))) {
        while (const dirent *e = ::readdir(dir)) {
            if (qstrcmp(e->d_name, ".") != 0 && qstrcmp(e->d_name, "..") != 0)
                names << QByteArray(e->d_name);
        }
        ::closedir(dir);
    } else {
        return false;
    }
    for (const QByteArray &name : names) {
        struct stat source, target;
        if (::fstatat(from, name.constData(), &source, AT_SYMLINK_NOFOLLOW) != 0)
            return false;
        const bool there = ::fstatat(to, name.constData(), &target, AT_SYMLINK_NOFOLLOW) == 0;
        if (there && S_ISDIR(target.st_mode)) {
            const Fd a(folder(from, name, false)), b(folder(to, name, false));
            if (a.fd < 0 || b.fd < 0 || !merge(a.fd, b.fd, apply))
                return false;
        } else if (apply && ((there && S_ISDIR(source.st_mode) && ::unlinkat(to, name.constData(), 0) != 0)
                             || ::renameat(from, name.constData(), to, name.constData()) != 0)) {
            return false;
        }
    }
    return true;
}

// One archive unpacked into a fresh private folder.
class Staging
{
public:
    Staging(const QString &path, int fd, qint64 budget) : m_path(path), m_fd(fd), m_left(budget) {}

    QString why;

    bool unpack(const QString &archive)
    {
        QuaZip zip(archive);
        if (!zip.open(QuaZip::mdUnzip))
            return fail(QStringLiteral("not a zip archive"));
        int entries = 0;
        for (bool more = zip.goToFirstFile(); more; more = zip.goToNextFile()) {
            QuaZipFileInfo64 info;
            if (++entries > PackageArchive::kMaxEntries)
                return fail(QLatin1String("more than ") + QString::number(PackageArchive::kMaxEntries) + QLatin1String(" entries"));
            if (!zip.getCurrentFileInfo(&info) || !entry(zip, info))
                return why.isEmpty() ? fail(QStringLiteral("damaged archive")) : false;
        }
        if (zip.getZipError() != UNZ_OK)
            return fail(QStringLiteral("damaged archive"));
        // Links are judged by where they lead once all is in place.
        const QString root = QFileInfo(m_path).canonicalFilePath();
        for (const QString &link : m_links) {
            const QString lands = QFileInfo(m_path + QLatin1Char('/') + link).canonicalFilePath();
            if (lands != root && !lands.startsWith(root + QLatin1Char('/')))
                return fail(QLatin1String("link \"") + link + QLatin1String("\" leads out"));
        }
        return true;
    }

private:
    bool fail(const QString &text)
    {
        why = text;
        return false;
    }

    bool entry(QuaZip &zip, const QuaZipFileInfo64 &info)
    {
        QList<QByteArray> names;
        if (!steps(info.name, &names))
            return fail(QLatin1String("entry \"") + info.name + QLatin1String("\" leads out"));
        const QByteArray last = names.takeLast();
        Fd at(::dup(m_fd));
        for (const QByteArray &name : qAsConst(names)) {
            const int next = folder(at.fd, name, true);
            ::close(at.fd);
            if ((at.fd = next) < 0)
                return fail(QLatin1String("entry \"") + info.name + QLatin1String("\" goes through a link or a file"));
        }
        if (info.name.endsWith(QLatin1Char('/'))) {
            const Fd made(folder(at.fd, last, true));
            return made.fd >= 0 || fail(QLatin1String("folder \"") + info.name + QLatin1String("\" stands on a link or a file"));
        }
        QuaZipFile file(&zip);
        if (!file.open(QIODevice::ReadOnly))
            return false;
        if (info.isSymbolicLink()) {
            // Past the limit the link is refused, not cut: a cut target could
            // name another file.
            const QByteArray target = file.read(kMaxLinkText);
            if (target.isEmpty() || !file.atEnd() || target.startsWith('/') || target.contains('\0')
                || ::symlinkat(target.constData(), at.fd, last.constData()) != 0)
                return fail(QLatin1String("link \"") + info.name + QLatin1String("\" refused"));
            m_links << info.name;
            return true;
        }
        const bool exec = info.getPermissions() & (QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
        const Fd out(::openat(at.fd, last.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                              exec ? 0755 : 0644));
        if (out.fd < 0)
            return fail(QLatin1String("entry \"") + info.name + QLatin1String("\" made twice"));
        char buffer[1 << 16];
        for (qint64 n; (n = file.read(buffer, sizeof(buffer))) != 0;) {
            if (n < 0)
                return false;
            if ((m_left -= n) < 0)
                return fail(QStringLiteral("unpacks to more than its limit"));
            if (!writeAll(out.fd, buffer, n))
                return fail(QLatin1String("cannot write \"") + info.name + QLatin1String("\""));
        }
        file.close();
        return file.getZipError() == UNZ_OK;
    }

    QString m_path;
    int m_fd;
    qint64 m_left;
    QStringList m_links;
};

} // namespace

bool PackageArchive::unpack(const QString &archive, const QString &workPath, QString *why)
{
    const QFileInfo work(workPath);
    const QByteArray base = QFile::encodeName(work.fileName());
    const QByteArray parentPath = QFile::encodeName(work.path());
    const Fd parent(::open(parentPath.constData(), kFolderFlags));
    struct stat there;
    const bool exists = parent.fd >= 0 && ::fstatat(parent.fd, base.constData(), &there, AT_SYMLINK_NOFOLLOW) == 0;
    if (exists && !S_ISDIR(there.st_mode)) {
        *why = QStringLiteral("the work folder is a link or a file");
        return false;
    }
    QByteArray path = parentPath + "/." + base + ".unpack.XXXXXX";
    if (parent.fd < 0 || !::mkdtemp(path.data())) {
        *why = QStringLiteral("cannot make a folder beside the package");
        return false;
    }
    const QString staged = QFile::decodeName(path);
    const Fd fd(::open(path.constData(), kFolderFlags));
    Staging staging(staged, fd.fd, qMin(kMaxTotal, kMaxRatio * QFileInfo(archive).size()));
    bool done = fd.fd >= 0 && staging.unpack(archive);
    *why = staging.why;
    if (done && !exists) {
        done = ::fchmod(fd.fd, 0755) == 0
               && ::renameat(parent.fd, path.constData() + parentPath.size() + 1, parent.fd, base.constData()) == 0;
    } else if (done) {
        const Fd into(folder(parent.fd, base, false));
        done = into.fd >= 0 && merge(fd.fd, into.fd, false) && merge(fd.fd, into.fd, true);
        if (!done)
            *why = QStringLiteral("a file of the archive stands where the work folder has a folder");
    }
    if (done && !exists)
        return true;
    QDir(staged).removeRecursively();
    if (!done && why->isEmpty())
        *why = QStringLiteral("cannot move the archive's files in");
    return done;
}
