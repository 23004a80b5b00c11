#include "kdpfixture.h"

#include <QDir>
#include <QRegularExpression>
#include <QXmlStreamWriter>

#include <quazip/JlCompress.h>

KdpFixture::KdpFixture() { QDir(m_dir.path()).mkpath(QStringLiteral("kdp")); }

QString KdpFixture::addPackage(const QString &dirName, const KdpConfig &config, const QString &libraryFile, Link link) const
{
    const QString dir = kdpPath() + QLatin1Char('/') + dirName;
    return writePackage(dir, config, libraryFile, link) ? dir : QString();
}

bool KdpFixture::writePackage(const QString &dir, const KdpConfig &config, const QString &libraryFile, Link link)
{
    QByteArray xml;
    QXmlStreamWriter w(&xml);
    w.writeStartDocument();
    w.writeStartElement(QStringLiteral("driver"));
    w.writeAttribute(QStringLiteral("version"), QStringLiteral("2.0"));
    const QList<QPair<const char *, std::optional<QString>>> elements{
        {"name", config.name}, {"protocol", config.protocol}, {"argument", config.argument}, {"ap", config.ap}};
    for (const auto &e : elements)
        if (e.second)
            w.writeTextElement(QLatin1String(e.first), *e.second);
    if (config.limitSerialNum) {
        w.writeStartElement(QStringLiteral("limitSerialNum"));
        if (config.limitSize)
            w.writeAttribute(QStringLiteral("limitSize"), *config.limitSize);
        w.writeCharacters(*config.limitSerialNum);
        w.writeEndElement();
    }
    if (config.createFileByVerifyPin)
        w.writeTextElement(QStringLiteral("createfilebyverifypin"), *config.createFileByVerifyPin);
    for (const auto &e : config.extra)
        w.writeTextElement(e.first, e.second);
    w.writeEndDocument();
    QFile file(dir + QStringLiteral("/config.xml"));
    if (!QDir().mkpath(dir) || !file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(xml) < 0)
        return false;
    if (libraryFile.isEmpty() || !config.argument || config.argument->isEmpty())
        return true;
    const QString target = dir + QLatin1Char('/') + *config.argument;
    QFile::remove(target);
    return link == Link::Copy ? QFile::copy(libraryFile, target)
                              : QFile::link(QFileInfo(libraryFile).absoluteFilePath(), target);
}

bool KdpFixture::writeTracedToken(const QString &dir, const QString &store, KdpConfig config)
{
    config.argument = QStringLiteral("libskftrace.so");
    QFile conf(dir + QStringLiteral("/skftrace.conf")), where(dir + QStringLiteral("/softtoken.store"));
    return writePackage(dir, config, QStringLiteral(SKFTRACE_PATH), Link::Copy)
           && QFile::copy(QStringLiteral(SOFTTOKEN_SKF), dir + QStringLiteral("/libsofttoken-skf.so"))
           && conf.open(QIODevice::WriteOnly) && conf.write("library = libsofttoken-skf.so\noutput = trace.log\n") > 0
           && where.open(QIODevice::WriteOnly) && where.write(QFile::encodeName(store) + '\n') > 0;
}

QStringList KdpFixture::traced(const QString &dir)
{
    QFile trace(dir + QStringLiteral("/trace.log"));
    if (!trace.open(QIODevice::ReadWrite))
        return QStringList();
    const QStringList lines = QString::fromUtf8(trace.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    trace.resize(0); // the tracer appends
    return lines;
}

int KdpFixture::traced(const QString &dir, const QString &function)
{
    return traced(dir).filter(QRegularExpression(QLatin1Char('^') + function + QStringLiteral("\\("))).size();
}

bool KdpFixture::pack(const QString &packageDir, const QString &kdpFile)
{
    QFile::remove(kdpFile);
    return JlCompress::compressDir(kdpFile, packageDir, true);
}

QString KdpFixture::encodeAdminPin(const QString &pin) { return QString::fromLatin1(pin.toUtf8().toBase64().toBase64()); }
