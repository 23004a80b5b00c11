#ifndef TWKEY_KEYOBJECTWGSKF_H
#define TWKEY_KEYOBJECTWGSKF_H

#include <QMap>

#include "session/keysession.h"
#include "session/sessionmethods.h"

class KeyDriverPackage;

// The session for a token family whose library loses its login easily:
// PIN checks, file reads and container opens start on a new connection,
// and the PIN that last verified is given again before the operations that
// need a login.
class KeyObjectWgSKF : public KeySession
{
    Q_OBJECT
    TW_SESSION_METHODS
public:
    KeyObjectWgSKF(KeyDriverPackage *package, QString devName, QObject *parent = nullptr);
    ~KeyObjectWgSKF() override;

    bool verifyPinEx(QString pinCode, bool isAdmin) override;
    QByteArray readFile(QString fileName, quint64 ulOffset = 0, quint64 ulSize = 0) override;
    Qt::HANDLE createContainer(QString containerName) override;
    Qt::HANDLE openContainer(QString containerName) override;

protected:
    void pinVerified(const QString &pinCode, bool isAdmin) override;
    bool beforeRsaKeyPairImport() override;

private:
    void reconnect();
    bool replayPin();

    // Serial number -> the PIN that last verified on that key.
    QMap<QString, QString> m_mapPin;
};

#endif
