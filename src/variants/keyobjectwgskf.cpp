#include "keyobjectwgskf.h"

#include "session/skftokenapi.h"
#include "skf/keydriverskf.h"

KeyObjectWgSKF::KeyObjectWgSKF(KeyDriverPackage *package, QString devName, QObject *parent)
    : KeySession(package, devName, [] {
          Traits traits = probingTraits("[TWKeyObjectWgSKF::PrintError] Error:", " SKF_GetPINInfo_wg ");
          traits.plainSessionKeyExport = true;
          return traits;
      }(), new SkfTokenApi(qobject_cast<KeyDriverSKF *>(parent)))
{
}

KeyObjectWgSKF::~KeyObjectWgSKF()
{
    KeyObjectWgSKF::closeV1();
}

// The family's library drops a session's state between calls: these start
// on a new connection. Neither result matters; the guards tell a lost key.
void KeyObjectWgSKF::reconnect()
{
    close();
    open();
}

// The login the key had, given again. Nothing remembered: nothing to do.
bool KeyObjectWgSKF::replayPin()
{
    const QString serial = serialNumber();
    if (m_mapPin.isEmpty() || !m_mapPin.contains(serial))
        return true;
    if (verifyPinEx(m_mapPin.value(serial), false))
        return true;
    setLastError(SAR_PIN_INCORRECT);
    return false;
}

bool KeyObjectWgSKF::verifyPinEx(QString pinCode, bool isAdmin)
{
    reconnect();
    return KeySession::verifyPinEx(pinCode, isAdmin);
}

void KeyObjectWgSKF::pinVerified(const QString &pinCode, bool /*isAdmin*/)
{
    // An administrator PIN lands in the same entry.
    m_mapPin[serialNumber()] = pinCode;
}

QByteArray KeyObjectWgSKF::readFile(QString fileName, quint64 ulOffset, quint64 ulSize)
{
    reconnect();
    return KeySession::readFile(fileName, ulOffset, ulSize);
}

Qt::HANDLE KeyObjectWgSKF::createContainer(QString containerName)
{
    if (!replayPin())
        return nullptr;
    return KeySession::createContainer(containerName);
}

Qt::HANDLE KeyObjectWgSKF::openContainer(QString containerName)
{
    reconnect();
    return KeySession::openContainer(containerName);
}

bool KeyObjectWgSKF::beforeRsaKeyPairImport()
{
    return replayPin();
}
