#include "twkey.h"

#include <QDebug>
#include <QDir>

#include <memory>

#include "frame/rtc.h"
#include "frame/twcoreaccess.h"
#include "frame/twlog.h"
#include "frame/twsignaturecoreagent.h"
#include "package/keydriverpackage.h"

namespace {

// A directory of this exact name is never loaded, however good it is.
const char kBlockedName[] = "tarnwick_vkey_skf_mac_v1.0.0.0";
const int kTwhardDriver = 2;

// Resolves a handle of the manager's interface. createKDI gives out a bare
// KeyDriverInfo*, while a host may pass a proxy of it: a proxy is the one
// kind of object here with an object name. A bare pointer is wrapped like
// a proxy for the span of the call.
class ResolvedKdi
{
public:
    explicit ResolvedKdi(KeyDriverInfoAgent *handle)
    {
        // The handle may not be a KeyDriverInfoAgent at all; look at it as
        // the QObject it surely is.
        QObject *object = reinterpret_cast<QObject *>(handle);
        if (!object)
            return;
        Q_Dispatch *agent = nullptr;
        if (object->objectName().isEmpty()) {
            m_wrapper.reset(new KeyDriverInfoAgent(object));
            agent = m_wrapper.get();
        } else {
            agent = qobject_cast<Q_Dispatch *>(object);
        }
        if (agent)
            m_info = qobject_cast<KeyDriverInfo *>(agent->target());
    }

    KeyDriverInfo *info() const { return m_info; }

private:
    std::unique_ptr<KeyDriverInfoAgent> m_wrapper;
    KeyDriverInfo *m_info = nullptr;
};

QString askCore(const char *method)
{
    QString value;
    if (TWSignatureCoreAgent *core = getSignatureCore())
        core->invokeHelper(QLatin1String(method), &value);
    return value;
}

} // namespace

TWKey::TWKey(QObject *parent) : QObject(parent)
{
    TW_LOG(QStringLiteral(" start"));
    // A scan that finds nothing leaves a working, empty manager.
    load();
    TW_LOG(QStringLiteral(" end"));
}

TWKey::~TWKey()
{
    TW_LOG(QStringLiteral(" start"));
    unload();
    TW_LOG(QStringLiteral(" end"));
    // QObject now deletes the remaining children, the driver infos, which
    // close their drivers in the order they were made.
}

qint64 TWKey::lastError()
{
    return qint64(twcore::lastError());
}

void TWKey::setLastError(long long code)
{
    twcore::setLastError(quint32(code));
}

bool TWKey::load()
{
    _configPath = askCore("configPath");
    _kdpPath = askCore("binPath") + QStringLiteral("/kdp/");
    TW_LOGF(" configPath:%s", qUtf8Printable(_configPath));
    TW_LOGF(" kdpPath:%s", qUtf8Printable(_kdpPath));
    if (!loadKDPs(_kdpPath)) {
        unload();
        TW_LOG(QStringLiteral(" end. loadKDPs failed."));
        return false;
    }
    TW_LOG(QStringLiteral(" end"));
    return true;
}

bool TWKey::loadKDPs(QString path)
{
    TW_LOGF(" path:%s", qUtf8Printable(path));
    QDir dir(path);
    if (dir.exists()) {
        // Directories first, so a package file unpacked by an earlier run
        // is served from its folder and not unpacked again.
        dir.setFilter(QDir::Dirs);
        const QFileInfoList dirs = dir.entryInfoList();
        for (const QFileInfo &entry : dirs) {
            TW_LOGF(" fileList:%s", qUtf8Printable(entry.filePath()));
            loadKDP(entry);
        }
        dir.setFilter(QDir::Files);
        const QFileInfoList files = dir.entryInfoList();
        for (const QFileInfo &entry : files) {
            if (entry.suffix().compare(tr("kdp"), Qt::CaseInsensitive) != 0)
                continue;
            TW_LOGF(" fileList:%s", qUtf8Printable(entry.filePath()));
            loadKDP(entry);
        }
    }
    TW_LOG(QStringLiteral(" end."));
    return true;
}

bool TWKey::loadKDP(const QFileInfo &info)
{
    TW_LOG(QStringLiteral(" start"));
    if (info.fileName() == QLatin1String(kBlockedName))
        return false;

    QString name;
    if (info.isDir()) {
        name = info.fileName();
        if (name.startsWith(QLatin1Char('.'))) {
            TW_LOG(QStringLiteral(" end. \".\""));
            return false;
        }
    } else {
        name = info.completeBaseName();
    }
    // The first package of a name wins; a failed one was never recorded,
    // so a later entry of that name still gets its turn.
    if (_packages.contains(name)) {
        TW_LOG(QStringLiteral(" end. contained."));
        return true;
    }

    KeyDriverInfo *kdi = openPackage(__FUNCTION__, info.absoluteFilePath());
    if (!kdi)
        return false;
    _packages.insert(name, kdi->getKDP());
    if (kdi->getDriverType() == kTwhardDriver)
        _driverInfos.prepend(kdi);
    else
        _driverInfos.append(kdi);
    TW_LOG(QStringLiteral(" end"));
    return true;
}

KeyDriverInfo *TWKey::openPackage(const char *function, const QString &path)
{
    twlog::debug(function, __LINE__, QStringLiteral(" KeyDriverPackage"));
    auto *package = new KeyDriverPackage(path, this);
    if (!package->open()) {
        twlog::debug(function, __LINE__, QStringLiteral("end. open kdp failed"));
        delete package;
        return nullptr;
    }
    auto *kdi = new KeyDriverInfo(package, this);
    if (!kdi->open()) {
        delete kdi;
        delete package;
        twlog::debug(function, __LINE__, QStringLiteral("end. open kdi failed"));
        return nullptr;
    }
    return kdi;
}

void TWKey::unloadKDPs()
{
    TW_LOG(QStringLiteral(" start"));
    for (KeyDriverPackage *package : qAsConst(_packages))
        delete package;
    _packages.clear();
    TW_LOG(QStringLiteral(" end"));
}

void TWKey::unload()
{
    TW_LOG(QStringLiteral(" start"));
    // Every session of the process, newest first; each destructor takes
    // its own entry out of the list.
    QVector<KeyObject *> &keys = KeyObject::s_vecKeyObj;
    for (int i = keys.size() - 1; i >= 0; --i) {
        if (i < keys.size() && keys.at(i))
            delete keys.at(i);
    }
    TW_LOG(QStringLiteral(" end"));
    unloadKDPs();
}

int TWKey::countDriver(const char *function, KeyDriverInfo *info, int firstIndex, QStringList &seen, bool enumEach)
{
    const int n = info->count();
    info->_firstIndex = firstIndex;
    info->_active = n > 0;
    if (n <= 0) {
        info->_count = n;
        return 0;
    }
    int added = 0;
    int failed = 0;
    for (int i = 0; i < n; ++i) {
        KeyObject *key = enumEach ? info->openKey(i) : info->openKeyWithoutEnumDev(i);
        if (!key) {
            ++failed;
            continue;
        }
        const QString serial = key->serialNumber();
        twlog::debug(function, __LINE__, QStringLiteral(" serialNumber: ") + serial);
        // A token another driver (or this one) already counted drops this
        // driver from the mapping; what it counted before stays counted.
        if (seen.contains(serial)) {
            twlog::debug(function, __LINE__, QStringLiteral(" end. keySN exist"));
            info->_active = false;
            break;
        }
        seen.append(serial);
        ++added;
    }
    // Failures shorten the range but not the local numbering.
    info->_count = n - failed;
    return added;
}

int TWKey::count()
{
    qDebug() << "TWKEY::COUNT";
    TW_LOG(QStringLiteral(" start"));
    QStringList seen;
    int total = 0;
    const QList<KeyDriverInfo *> infos = _driverInfos;
    for (KeyDriverInfo *info : infos) {
        const int added = countDriver(__FUNCTION__, info, total, seen, false);
        total += added;
    }
    TW_LOGF(" total Count:%d", total);
    TW_LOG(QStringLiteral(" end."));
    return total;
}

KeyObject *TWKey::openMapped(const char *function, int index, bool enumDev)
{
    twlog::debug(function, __LINE__, QStringLiteral(" start"));
    const QList<KeyDriverInfo *> infos = _driverInfos;
    for (KeyDriverInfo *info : infos) {
        // No lower bound: the first active driver whose range reaches the
        // index answers, with a local index that may come out negative.
        if (!info->_active || index >= info->_firstIndex + info->_count)
            continue;
        const int local = index - info->_firstIndex;
        twlog::debug(function, __LINE__, QStringLiteral(" openKey"));
        KeyObject *key = enumDev ? info->openKey(local) : info->openKeyWithoutEnumDev(local);
        if (key) {
            key->setKDI(info);
            return key;
        }
        twlog::debug(function, __LINE__, QStringLiteral(" openKey failed."));
    }
    twlog::debug(function, __LINE__, QStringLiteral(" end."));
    return nullptr;
}

KeyObject *TWKey::open(int index)
{
    return openMapped(__FUNCTION__, index, true);
}

KeyObject *TWKey::openEx(int index, bool bEnumDev)
{
    return openMapped(__FUNCTION__, index, bEnumDev);
}

KeyDriverInfo *TWKey::createKDI(QString kdpPath)
{
    TW_LOG(QStringLiteral(" start"));
    // The pair stays outside the scan's map and list: count() and open()
    // never see it.
    KeyDriverInfo *kdi = openPackage(__FUNCTION__, kdpPath);
    if (kdi)
        TW_LOG(QStringLiteral(" end"));
    return kdi;
}

int TWKey::countByKDI(KeyDriverInfoAgent *kdi)
{
    TW_LOG(QStringLiteral(" start"));
    int total = 0;
    {
        const ResolvedKdi resolved(kdi);
        if (KeyDriverInfo *info = resolved.info()) {
            QStringList seen;
            total = countDriver(__FUNCTION__, info, 0, seen, true);
        }
        TW_LOGF(" total Count:%d", total);
    }
    TW_LOG(QStringLiteral(" end."));
    return total;
}

KeyObject *TWKey::openByKDI(KeyDriverInfoAgent *kdi, int index)
{
    TW_LOG(QStringLiteral(" start"));
    const ResolvedKdi resolved(kdi);
    KeyDriverInfo *info = resolved.info();
    if (!info || !info->_active)
        return nullptr;
    if (index >= info->_firstIndex + info->_count) {
        TW_LOG(QStringLiteral(" end."));
        return nullptr;
    }
    TW_LOG(QStringLiteral(" openKey"));
    KeyObject *key = info->openKey(index - info->_firstIndex);
    if (key) {
        key->setKDI(info);
        return key;
    }
    TW_LOG(QStringLiteral(" openKey failed."));
    TW_LOG(QStringLiteral(" end."));
    return nullptr;
}

void TWKey::destroyKDI(KeyDriverInfoAgent *kdi)
{
    TW_LOG(QStringLiteral(" start"));
    const ResolvedKdi resolved(kdi);
    if (KeyDriverInfo *info = resolved.info()) {
        // Only the newest session bound to this handle goes.
        const QVector<KeyObject *> &keys = KeyObject::s_vecKeyObj;
        for (int i = keys.size() - 1; i >= 0; --i) {
            if (keys.at(i) && keys.at(i)->getKDI() == info) {
                TW_LOG(QStringLiteral(" find destroyKDI"));
                delete keys.at(i);
                break;
            }
        }
        // The package first: the info must not touch it on its way out.
        if (KeyDriverPackage *package = info->getKDP())
            package->deleteLater();
        info->deleteLater();
    }
    TW_LOG(QStringLiteral(" end"));
}
