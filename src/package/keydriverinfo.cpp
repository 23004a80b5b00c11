#include "keydriverinfo.h"

#include "frame/twlog.h"
#include "keydriver.h"
#include "keydriverpackage.h"
#include "native/keydrivertwf.h"
#include "skf/keydriverskf.h"

namespace {

enum DriverType { Closed = 0, Skf = 1, Twhard = 2, Twf = 3 };

} // namespace

KeyDriverInfo::KeyDriverInfo(KeyDriverPackage *kdp, QObject *parent)
    : QObject(parent), _active(true), _firstIndex(0), _count(0), _kdp(kdp), _keyDriver(nullptr), _driverType(Skf)
{
    TW_LOG(QStringLiteral(" start"));
    TW_LOG(QStringLiteral(" end"));
}

KeyDriverInfo::~KeyDriverInfo()
{
    TW_LOG(QStringLiteral(" start"));
    close();
    TW_LOG(QStringLiteral(" end"));
}

bool KeyDriverInfo::open()
{
    TW_LOG(QStringLiteral(" start"));
    const QString version = _kdp->version();
    int type = Skf;
    if (version == QLatin1String("1.0")) {
        // skfPath() is never filled, so a 1.0 package stops here.
        if (_kdp->skfPath().isEmpty()) {
            TW_LOG(QStringLiteral(" protocol twhard by kdp1.0, not support run by not win32 os"));
            return false;
        }
        TW_LOG(QStringLiteral(" protocol skf by kdp1.0"));
        _keyDriver = new KeyDriverSKF(_kdp, _kdp->skfPath(), this);
    } else if (version == QLatin1String("1.1") || version == QLatin1String("2.0")) {
        const QString protocol = _kdp->protocol();
        if (protocol.compare(tr("skf"), Qt::CaseInsensitive) == 0) {
            TW_LOG(QStringLiteral(" protocol skf"));
            // Both reads log: the work path is asked for first. Operands of
            // one + expression have no fixed order, so they are read apart.
            const QString workPath = _kdp->workPath();
            _keyDriver = new KeyDriverSKF(_kdp, workPath + QLatin1Char('/') + _kdp->argument(), this);
        } else if (protocol.compare(tr("twf"), Qt::CaseInsensitive) == 0) {
            TW_LOG(QStringLiteral(" protocol twf"));
            _keyDriver = new KeyDriverTWF(_kdp, _kdp->workPath() + QStringLiteral("/libTWKeyDriver"), this);
            type = Twf;
        } else {
            TW_LOG_ERROR(QStringLiteral(" no keydriver"));
            return false;
        }
    } else {
        TW_LOG_ERROR(QStringLiteral(" unknown version, not support"));
        return false;
    }

    if (!_keyDriver->load()) {
        TW_LOG_ERROR(QStringLiteral(" kdp load fail"));
        delete _keyDriver;
        _keyDriver = nullptr;
        return false;
    }
    _driverType = type;
    TW_LOG(QStringLiteral(" end"));
    return true;
}

void KeyDriverInfo::close()
{
    // The package is not ours: it may already be gone, so only the pointer
    // is dropped.
    TW_LOG(QStringLiteral(" start"));
    delete _keyDriver;
    _keyDriver = nullptr;
    _driverType = Closed;
    TW_LOG(QStringLiteral(" end"));
    _kdp = nullptr;
}

int KeyDriverInfo::count()
{
    TW_LOG(QStringLiteral(" start"));
    const int n = _keyDriver ? _keyDriver->count() : 0;
    TW_LOG(QStringLiteral(" end"));
    return n;
}

KeyObject *KeyDriverInfo::openKey(int index)
{
    TW_LOG(QStringLiteral(" start"));
    KeyObject *key = _keyDriver ? _keyDriver->openKey(index) : nullptr;
    TW_LOG(QStringLiteral(" end"));
    return key;
}

KeyObject *KeyDriverInfo::openKeyWithoutEnumDev(int index)
{
    TW_LOG(QStringLiteral(" start"));
    KeyObject *key = _keyDriver ? _keyDriver->openKeyWithoutEnumDev(index) : nullptr;
    TW_LOG(QStringLiteral(" end"));
    return key;
}

qint64 KeyDriverInfo::lastError()
{
    return _keyDriver ? _keyDriver->lastError() : 0;
}
