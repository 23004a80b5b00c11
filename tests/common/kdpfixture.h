// Key driver packages for tests, written into a temporary directory that
// serves as a host's binPath (packages go to <root>/kdp/).
//
//   KdpFixture kdp;
//   KdpConfig cfg;                          // version 2.0, protocol skf, argument libmockskf.so
//   cfg.limitSerialNum = "1"; cfg.limitSize = "8";
//   QString dir = kdp.addPackage("a_mock", cfg, MOCKSKF_PATH);   // <root>/kdp/a_mock
//   QString zip = kdp.pack(dir, kdp.kdpPath() + "/b_mock.kdp");  // packed form
//   TestHost host(kdp.root());
//
// A field left unset (std::nullopt) leaves its element or attribute out of
// config.xml; an empty string writes it empty.
#ifndef TWTEST_KDPFIXTURE_H
#define TWTEST_KDPFIXTURE_H

#include <QList>
#include <QPair>
#include <QString>
#include <QTemporaryDir>

#include <optional>

struct KdpConfig
{
    QString rootName = QStringLiteral("driver");
    std::optional<QString> version = QStringLiteral("2.0");
    std::optional<QString> name = QStringLiteral("mock");
    std::optional<QString> protocol = QStringLiteral("skf");
    std::optional<QString> argument = QStringLiteral("libmockskf.so");
    std::optional<QString> ap;                 // as stored: see KdpFixture::encodeAdminPin
    std::optional<QString> limitSerialNum;
    std::optional<QString> limitSize;          // attribute of limitSerialNum; needs limitSerialNum
    std::optional<QString> createFileByVerifyPin;
    // Further elements in this order, e.g. {"library", "keydriver_twhard.dll"} for version 1.0.
    QList<QPair<QString, QString>> extra;
};

class KdpFixture
{
public:
    enum class Link { Symlink, Copy };

    KdpFixture();

    bool isValid() const { return m_dir.isValid(); }
    // The temporary directory: a host's binPath.
    QString root() const { return m_dir.path(); }
    // root() + "/kdp", created on construction.
    QString kdpPath() const;

    // Writes <kdpPath>/<dirName>/config.xml and puts `libraryFile` there under
    // the argument's name (a symlink, or a copy: a copy is a library of its
    // own to the loader, a symlink the same one). An empty libraryFile puts
    // no library. Returns the package directory, or an empty string on failure.
    QString addPackage(const QString &dirName, const KdpConfig &config, const QString &libraryFile,
                       Link link = Link::Symlink) const;

    // The same into any directory.
    static bool writePackage(const QString &dir, const KdpConfig &config, const QString &libraryFile,
                             Link link = Link::Symlink);
    static QByteArray configXml(const KdpConfig &config);
    // Zips the files of packageDir at the top of kdpFile (the packed form).
    static bool pack(const QString &packageDir, const QString &kdpFile);
    // The form the package keeps an admin PIN in: base64 of base64.
    static QString encodeAdminPin(const QString &pin);

private:
    QTemporaryDir m_dir;
};

#endif
