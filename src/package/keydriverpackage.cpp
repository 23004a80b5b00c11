#include "keydriverpackage.h"

#include <QDir>
#include <QDomDocument>
#include <QDomElement>
#include <QFile>
#include <QFileInfo>
#include <QSettings>

#include <algorithm>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/twlog.h"
#include "packagearchive.h"

namespace {

const char kConfigName[] = "/config.xml";
const char kTwhardLibrary[] = "keydriver_twhard.dll";

// Text of the first direct child element of that name, as it stands.
QString childText(const QDomElement &root, const char *name)
{
    return root.firstChildElement(QLatin1String(name)).text();
}

// config.xml of a real package is a few hundred bytes, two levels deep;
// the parser's time grows with the square of an element's attributes.
const qint64 kMaxConfig = 16 * 1024;
const int kMaxDepth = 32;

// The whole of a regular file of at most kMaxConfig bytes. Opened without
// blocking, so a FIFO or a device is refused, not waited on or read on.
QString readConfig(const QString &path, QByteArray *content)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return QStringLiteral("cannot be opened");
    struct stat st;
    QString why;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))
        why = QStringLiteral("is not a regular file");
    content->resize(int(kMaxConfig) + 1);
    qint64 got = 0;
    for (ssize_t n = 1; why.isEmpty() && n > 0 && got < content->size(); got += n > 0 ? n : 0)
        n = ::read(fd, content->data() + got, size_t(content->size() - got));
    ::close(fd);
    content->truncate(int(got));
    if (why.isEmpty() && got > kMaxConfig)
        why = QLatin1String("is larger than ") + QString::number(kMaxConfig) + QLatin1String(" bytes");
    return why;
}

// How deep the elements nest, judged on the bytes before the parser, which
// recurses per level, sees them; -1 for an internal DTD subset, whose
// entities could expand to markup. Counts no lower than the parser would
// up to the parser's first error.
int depth(const QByteArray &xml)
{
    const char *p = xml.constData(), *const end = p + xml.size();
    const auto skipPast = [&](const char *mark) {
        const char *const stop = mark + qstrlen(mark);
        p = std::search(p, end, mark, stop);
        p = p == end ? end : p + (stop - mark);
    };
    int level = 0, deepest = 0;
    while ((p = std::find(p, end, '<')) != end && ++p != end) {
        if (*p == '/') {
            --level;
            skipPast(">");
        } else if (*p == '?') {
            skipPast("?>");
        } else if (end - p >= 3 && !qstrncmp(p, "!--", 3)) {
            skipPast("-->");
        } else if (end - p >= 8 && !qstrncmp(p, "![CDATA[", 8)) {
            skipPast("]]>");
        } else if (*p == '!') {
            const char *const close = std::find(p, end, '>');
            if (std::find(p, close, '[') != close)
                return -1;
            p = close;
        } else {
            char quote = 0;
            const char *q = p;
            for (; q != end && (quote || *q != '>'); ++q)
                quote = quote ? (*q == quote ? 0 : quote) : (*q == '"' || *q == '\'' ? *q : 0);
            if (q == end)
                break;
            if (q[-1] != '/')
                deepest = qMax(deepest, ++level);
            p = q + 1;
        }
    }
    return deepest;
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
        QString why;
        if (!unpacked && !PackageArchive::unpack(_kdpPath, _workPath, &why))
            TW_LOG(QLatin1String(" unpack refused: ") + why);
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
    QByteArray content;
    const QString why = readConfig(_workPath + QLatin1String(kConfigName), &content);
    if (!why.isEmpty()) {
        TW_LOG(QLatin1String(" config.xml ") + why);
        TW_LOG(QStringLiteral(" open failed."));
        return false;
    }
    const int levels = depth(content);
    if (levels < 0 || levels > kMaxDepth) {
        TW_LOG(levels < 0 ? QStringLiteral(" config.xml declares entities")
                          : QLatin1String(" config.xml nests deeper than ") + QString::number(kMaxDepth) + QLatin1String(" levels"));
        TW_LOG(QStringLiteral("end. xml parser failed."));
        return false;
    }

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

    // The root's name is never checked: the old test asked for a name other
    // than "driver" of a root that is absent, which has none.
    const QDomElement root = document.documentElement();
    if (root.isNull()) {
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
    // Anything but a small regular file reads as a missing one.
    const QFileInfo ini(iniPath);
    if (ini.exists() && (!ini.isFile() || ini.size() > kMaxConfig)) {
        out.clear();
        return false;
    }
    QSettings settings(iniPath, QSettings::IniFormat);
    const QString skfCode = settings.value(QStringLiteral("KeyType/SKFKEYCODE")).toString();
    if (!skfCode.isEmpty()) {
        out = skfCode;
        return true;
    }
    out = settings.value(QStringLiteral("KeyType/P11KEYCODE")).toString();
    return false;
}
