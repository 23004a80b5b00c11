#include "kdpfixture.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QXmlStreamWriter>

#include <quazip/JlCompress.h>

KdpFixture::KdpFixture()
{
    if (m_dir.isValid())
        QDir(m_dir.path()).mkpath(QStringLiteral("kdp"));
}

QString KdpFixture::kdpPath() const
{
    return m_dir.path() + QStringLiteral("/kdp");
}

QString KdpFixture::addPackage(const QString &dirName, const KdpConfig &config, const QString &libraryFile,
                               Link link) const
{
    const QString dir = kdpPath() + QLatin1Char('/') + dirName;
    return writePackage(dir, config, libraryFile, link) ? dir : QString();
}

bool KdpFixture::writePackage(const QString &dir, const KdpConfig &config, const QString &libraryFile, Link link)
{
    if (!QDir().mkpath(dir))
        return false;
    QFile file(dir + QStringLiteral("/config.xml"));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(configXml(config)) < 0)
        return false;
    file.close();
    if (libraryFile.isEmpty() || !config.argument || config.argument->isEmpty())
        return true;
    const QString target = dir + QLatin1Char('/') + *config.argument;
    QFile::remove(target);
    if (link == Link::Copy)
        return QFile::copy(libraryFile, target);
    return QFile::link(QFileInfo(libraryFile).absoluteFilePath(), target);
}

QByteArray KdpFixture::configXml(const KdpConfig &config)
{
    QByteArray xml;
    QXmlStreamWriter w(&xml);
    w.setAutoFormatting(true);
    w.writeStartDocument();
    w.writeStartElement(config.rootName);
    if (config.version)
        w.writeAttribute(QStringLiteral("version"), *config.version);
    const auto element = [&w](const char *name, const std::optional<QString> &value) {
        if (value)
            w.writeTextElement(QLatin1String(name), *value);
    };
    element("name", config.name);
    element("protocol", config.protocol);
    element("argument", config.argument);
    element("ap", config.ap);
    if (config.limitSerialNum) {
        w.writeStartElement(QStringLiteral("limitSerialNum"));
        if (config.limitSize)
            w.writeAttribute(QStringLiteral("limitSize"), *config.limitSize);
        w.writeCharacters(*config.limitSerialNum);
        w.writeEndElement();
    }
    element("createfilebyverifypin", config.createFileByVerifyPin);
    for (const auto &e : config.extra)
        w.writeTextElement(e.first, e.second);
    w.writeEndElement();
    w.writeEndDocument();
    return xml;
}

bool KdpFixture::pack(const QString &packageDir, const QString &kdpFile)
{
    QFile::remove(kdpFile);
    return JlCompress::compressDir(kdpFile, packageDir, true);
}

QString KdpFixture::encodeAdminPin(const QString &pin)
{
    return QString::fromLatin1(pin.toUtf8().toBase64().toBase64());
}
