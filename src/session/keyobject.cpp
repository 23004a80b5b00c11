#include "keyobject.h"

#include "frame/twcoreaccess.h"
#include "frame/twlog.h"
#include "package/keydriverinfo.h"
#include "package/keydriverpackage.h"

QVector<KeyObject *> KeyObject::s_vecKeyObj;

KeyObject::KeyObject(QString devName, QObject *parent)
    : QObject(parent), m_devName(devName), m_isOpen(false), m_needEnumFile(false), m_kdi(nullptr)
{
    s_vecKeyObj.append(this);
}

KeyObject::~KeyObject()
{
    s_vecKeyObj.removeOne(this);
}

qint64 KeyObject::lastError()
{
    return qint64(twcore::lastError());
}

void KeyObject::setLastError(int code)
{
    twcore::setLastError(quint32(code));
}

bool KeyObject::isNeedEnumFile()
{
    const bool need = m_needEnumFile;
    if (need)
        m_needEnumFile = false;
    return need;
}

KeyObject *KeyObject::findDev(QString devName)
{
    TW_LOG(" findDev");
    KeyObject *pKeyObj = nullptr;
    for (KeyObject *key : qAsConst(s_vecKeyObj)) {
        if (key->m_devName == devName) {
            pKeyObj = key;
            break;
        }
    }
    // The pointer is logged as a number; its low half is enough to tell
    // sessions apart in a log.
    TW_LOGF("pKeyObj : %d", int(quintptr(pKeyObj)));
    return pKeyObj;
}

KeyObject *KeyObject::findDevbySN(QString sn)
{
    TW_LOG(" start");
    // A copy: serialNumber() may log, and nothing here should depend on
    // the list staying put meanwhile.
    const QVector<KeyObject *> sessions = s_vecKeyObj;
    for (KeyObject *key : sessions) {
        if (key->serialNumber() == sn) {
            TW_LOG(" end");
            return key;
        }
    }
    TW_LOG(" end");
    return nullptr;
}

QString KeyObject::GetSerialNumByString(QString strSerialNum, quint64 limit)
{
    TW_LOG(" start");
    QString result;
    if (strSerialNum.isEmpty()) {
        TW_LOG(" strSerialNum is Empty");
        return result;
    }
    if (limit == 0 || limit >= quint64(strSerialNum.length()))
        result = strSerialNum;
    else
        result = strSerialNum.left(int(limit));
    TW_LOG(QStringLiteral(" End_GetSerialNumByString_strSerialNum is:") + result);
    return result;
}

int KeyObject::getDriverType()
{
    TW_LOG(" start");
    const int type = m_kdi ? m_kdi->getDriverType() : 0;
    TW_LOG(" end");
    return type;
}

QString KeyObject::getDriverPath()
{
    TW_LOG(" start");
    const QString path = m_kdi && m_kdi->getKDP() ? m_kdi->getKDP()->workPath() : QString();
    TW_LOG(" end");
    return path;
}

bool KeyObject::isOpen()
{
    return m_isOpen;
}

bool KeyObject::isKeyDisConnect()
{
    return false;
}
