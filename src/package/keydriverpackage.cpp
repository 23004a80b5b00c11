#include "keydriverpackage.h"

#include <QDir>
#include <QDomDocument>
#include <QDomElement>
#include <QFile>
#include <QFileInfo>
#include <QSettings>

#include <quazip/JlCompress.h>
#include <quazip/quazip.h>
#include <quazip/quazipfile.h>
#include <quazip/quazipfileinfo.h>

#include "frame/twlog.h"

namespace {

const char kConfigName[] = "/config.xml";
const char kTwhardLibrary[] = "keydriver_twhard.dll";

// Text of the first direct child element of that name, as it stands.
QString childText(const QDomElement &root, const char *name)
{
    return root.firstChildElement(QLatin1String(name)).text();
}

bool isInside(const QString &root, const QString &path)
{
    const QString clean = QDir::cleanPath(path);
    return clean == root || clean.startsWith(root + QLatin1Char('/'));
}

// Where a write to `path` really lands, as far as the disk decides it
// already: the real path of the nearest existing part, with the rest of
// the name on top. A link that points nowhere yet counts by its target;
// a chain of such links this long, or a loop, lands nowhere (empty).
QString landingPath(const QString &path, int depth = 0)
{
    if (depth > 8)
        return QString();
    QString existing = QDir::cleanPath(path);
    QString rest;
    while (!existing.isEmpty()) {
        const QFileInfo info(existing);
        if (info.isSymLink() && !info.exists()) {
            const QString landing = landingPath(info.symLinkTarget(), depth + 1);
            return landing.isEmpty() ? landing : QDir::cleanPath(landing + rest);
        }
        if (info.exists())
            return QDir::cleanPath(info.canonicalFilePath() + rest);
        const int slash = existing.lastIndexOf(QLatin1Char('/'));
        if (slash < 0)
            break;
        rest.prepend(existing.mid(slash));
        existing.truncate(slash);
        if (existing.isEmpty())
            existing = QStringLiteral("/");
    }
    return QDir::cleanPath(path);
}

// An archive is unpacked only when every entry, every link target it
// carries and every link already lying in the work path keeps the writes
// inside the work path. An archive that can't be read is not unpacked
// either: nothing is written then, and the missing config.xml reports it.
bool safeToUnpack(const QString &archive, const QString &target)
{
    QuaZip zip(archive);
    if (!zip.open(QuaZip::mdUnzip))
        return false;
    const QString root = QDir::cleanPath(QDir(target).absolutePath());
    const QString realRoot = landingPath(root);
    if (realRoot.isEmpty())
        return false;
    for (bool more = zip.goToFirstFile(); more; more = zip.goToNextFile()) {
        QuaZipFileInfo64 info;
        if (!zip.getCurrentFileInfo(&info))
            return false;
        if (info.name.isEmpty() || QDir::isAbsolutePath(info.name))
            return false;
        const QString destination = root + QLatin1Char('/') + info.name;
        if (!isInside(root, destination) || !isInside(realRoot, landingPath(destination)))
            return false;
        if (info.isSymbolicLink()) {
            QuaZipFile entry(&zip);
            if (!entry.open(QIODevice::ReadOnly))
                return false;
            const QString link = QFile::decodeName(entry.readAll());
            entry.close();
            if (QDir::isAbsolutePath(link) || !isInside(root, QFileInfo(destination).path() + QLatin1Char('/') + link))
                return false;
        }
    }
    return zip.getZipError() == UNZ_OK;
}

} // namespace

KeyDriverPackage::KeyDriverPackage(QString filePath, QObject *parent)
    : QObject(parent), _kdpPath(filePath), _isKDPFile(false)
{
    TW_LOGF(" filePath:%s", qUtf8Printable(filePath));
}

KeyDriverPackage::~KeyDriverPackage() = default;

bool KeyDriverPackage::open()
{
    if (_kdpPath.isEmpty()) {
        TW_LOG(QStringLiteral(" end. kdpPath is empty"));
        return false;
    }
    const QFileInfo info(_kdpPath);
    if (!info.exists()) {
        TW_LOG(QLatin1String(" end. kdpPath ") + _kdpPath + QLatin1String(" is invalidate"));
        return false;
    }

    if (info.isDir()) {
        _workPath = _kdpPath;
        _configPath = _workPath + QLatin1String(kConfigName);
        _isKDPFile = false;
    } else if (info.suffix() == QLatin1String("kdp")) {
        _isKDPFile = true;
        _workPath = info.canonicalPath() + QLatin1Char('/') + info.completeBaseName();
        _configPath = _workPath + QLatin1String(kConfigName);
        // The first test asks for a directory named config.xml, so a normal
        // unpacked folder doesn't pass it and the archive is unpacked again
        // over whatever lies there.
        const bool unpacked = QDir(_workPath + QLatin1String(kConfigName)).exists() && QFileInfo(_configPath).exists();
        if (!unpacked && safeToUnpack(_kdpPath, _workPath))
            JlCompress::extractDir(_kdpPath, _workPath);
    } else {
        TW_LOG(QStringLiteral(" end. unknow format"));
        return false;
    }

    if (!QFileInfo(_configPath).exists()) {
        TW_LOG(QStringLiteral(" end. configPath invalidate"));
        return false;
    }
    if (!load())
        return false;
    TW_LOG(QStringLiteral(" end"));
    return true;
}

bool KeyDriverPackage::load()
{
    TW_LOGF(" _workPath:%s", qUtf8Printable(_workPath));
    QFile file(_workPath + QLatin1String(kConfigName));
    if (!file.open(QIODevice::ReadOnly)) {
        TW_LOG(QStringLiteral(" open failed."));
        return false;
    }
    const QByteArray content = file.readAll();
    file.close();

    QDomDocument document;
    QString errorStr;
    int errorLine = 0;
    int errorCol = 0;
    if (!document.setContent(content, true, &errorStr, &errorLine, &errorCol)) {
        // Joined, not arg(): a parser message may hold "%2".
        TW_LOG(QLatin1String(" errorStr: ") + errorStr + QLatin1String(" ; errorLine: ") + QString::number(errorLine)
               + QLatin1String(" ; errorCol: ") + QString::number(errorCol));
        TW_LOG(QStringLiteral("end. xml parser failed."));
        return false;
    }

    // The root's name matters only when there is no root at all.
    const QDomElement root = document.documentElement();
    if (root.isNull() && root.tagName() != QLatin1String("driver")) {
        TW_LOG(QStringLiteral("end. xml parser failed. tagName = driver"));
        return false;
    }

    _version = root.attribute(QStringLiteral("version"));
    if (_version.isEmpty())
        _version = QStringLiteral("1.0");

    _name = childText(root, "name");
    _argument = childText(root, "argument");
    _modelId = childText(root, "modelid");
    _manufacturerId = childText(root, "manufacturerid");
    _modifyDate = childText(root, "modifydate");
    _cpuType = childText(root, "cputype");
    _cpuBits = childText(root, "cpubits");
    _os = childText(root, "os");
    _author = childText(root, "author");
    _createFileByVerifyPin = childText(root, "createfilebyverifypin");
    _defaultAdminPin = childText(root, "ap");

    const QDomElement limit = root.firstChildElement(QStringLiteral("limitSerialNum"));
    if (limit.isNull()) {
        _limitSerialNum = QStringLiteral("0");
        _limitSize = QStringLiteral("0");
    } else {
        _limitSerialNum = limit.text();
        TW_LOG(QStringLiteral(" _limitSerialNum is:") + _limitSerialNum);
        if (!_limitSerialNum.isEmpty() && _limitSerialNum.toInt() != 0 && limit.hasAttribute(QStringLiteral("limitSize"))) {
            _limitSize = limit.attribute(QStringLiteral("limitSize"));
            TW_LOG(QStringLiteral(" _limitSize is:") + _limitSize);
        }
    }

    if (_version == QLatin1String("1.0")) {
        TW_LOG(QStringLiteral(" end. _version = 1.0"));
        _library = childText(root, "library");
        _cspname = childText(root, "cspname");
        _algo = childText(root, "algo");
        _digest = childText(root, "digest");
        _driverName = childText(root, "drivername");
        if (_library.compare(QLatin1String(kTwhardLibrary), Qt::CaseInsensitive) != 0)
            return false;
        // The key code lands in _p11Path only; _skfPath is never filled, so
        // every 1.0 package is refused later by the binding on this system.
        QString keyCode;
        if (!getSKFPath(_workPath + QStringLiteral("/TW_KeyCode.ini"), keyCode))
            _p11Path = keyCode;
    } else if (_version == QLatin1String("1.1") || _version == QLatin1String("2.0")) {
        TW_LOG(QStringLiteral(" _version = 1.1 or 2.0"));
        _protocol = childText(root, "protocol");
    } else {
        TW_LOG(QStringLiteral("end. unkown _version"));
        return false;
    }

    TW_LOG(QStringLiteral(" end"));
    return true;
}

void KeyDriverPackage::close()
{
    // The work directory stays for the next start.
    TW_LOG(QStringLiteral(" start"));
    TW_LOG(QStringLiteral(" end"));
}

bool KeyDriverPackage::isKDPFile()
{
    TW_LOGF(" isKDPFile: %d", int(_isKDPFile));
    return _isKDPFile;
}

QString KeyDriverPackage::workPath()
{
    TW_LOGF(" _workPath: %s", qUtf8Printable(_workPath));
    return _workPath;
}

QString KeyDriverPackage::version()
{
    TW_LOGF(" _version: %s", qUtf8Printable(_version));
    return _version;
}

QString KeyDriverPackage::name()
{
    TW_LOGF(" _name: %s", qUtf8Printable(_name));
    return _name;
}

QString KeyDriverPackage::protocol()
{
    TW_LOGF(" _protocol: %s", qUtf8Printable(_protocol));
    return _protocol;
}

QString KeyDriverPackage::argument()
{
    TW_LOGF(" _argument: %s", qUtf8Printable(_argument));
    return _argument;
}

int KeyDriverPackage::GetLimitSize(int defaultSize) const
{
    if (_limitSerialNum.toInt() > 0)
        return _limitSize.toInt();
    return defaultSize;
}

bool KeyDriverPackage::getSKFPath(QString iniPath, QString &out)
{
    QSettings settings(iniPath, QSettings::IniFormat);
    const QString skfCode = settings.value(QStringLiteral("KeyType/SKFKEYCODE")).toString();
    if (!skfCode.isEmpty()) {
        out = skfCode;
        return true;
    }
    out = settings.value(QStringLiteral("KeyType/P11KEYCODE")).toString();
    return false;
}
