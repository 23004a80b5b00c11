// Key driver packages for tests in a temporary directory that serves as a
// host's binPath (packages in <root>/kdp/): see docs/tests.md.
#ifndef TWTEST_KDPFIXTURE_H
#define TWTEST_KDPFIXTURE_H

#include <QTemporaryDir>

#include <optional>

struct KdpConfig
{
    std::optional<QString> name = QStringLiteral("mock");
    std::optional<QString> protocol = QStringLiteral("skf");
    std::optional<QString> argument = QStringLiteral("libtoken.so");
    std::optional<QString> ap; // as stored: see encodeAdminPin
    std::optional<QString> limitSerialNum;
    std::optional<QString> limitSize; // attribute of limitSerialNum
    std::optional<QString> createFileByVerifyPin;
    QList<QPair<QString, QString>> extra; // further elements, in this order
};

class KdpFixture
{
public:
    // A copy is a library of its own to the loader, a symlink the same one.
    enum class Link { Symlink, Copy };

    KdpFixture();
    QString root() const { return m_dir.path(); }
    QString kdpPath() const { return m_dir.path() + QStringLiteral("/kdp"); }

    // <kdpPath>/<dirName> with config.xml and libraryFile under the argument's
    // name (none for an empty one); the directory, or empty on failure.
    QString addPackage(const QString &dirName, const KdpConfig &config, const QString &libraryFile,
                       Link link = Link::Symlink) const;
    static bool writePackage(const QString &dir, const KdpConfig &config, const QString &libraryFile,
                             Link link = Link::Symlink);
    // <dir>: the SKF call tracer in front of a copy of the
    // software token's SKF library that serves `store` (libraries of their
    // own, so packages don't share a token); the calls go to <dir>/trace.log.
    static bool writeTracedToken(const QString &dir, const QString &store, KdpConfig config = KdpConfig());
    // The traced calls of the package at `dir` since the last look; with a
    // function, how many of them were calls of it.
    static QStringList traced(const QString &dir);
    static int traced(const QString &dir, const QString &function);
    static bool pack(const QString &packageDir, const QString &kdpFile); // files at the archive's top
    static QString encodeAdminPin(const QString &pin);                     // base64 of base64

private:
    QTemporaryDir m_dir;
};

#endif
