#ifndef TWKEY_KEYOBJECTTWF_H
#define TWKEY_KEYOBJECTTWF_H

#include "session/keysession.h"
#include "session/sessionmethods.h"

class KeyDriverPackage;
class KeyDriverTWF;

// The session on one token over the native library. There is no
// application layer and no way of closing: once connected, the session
// stays open for the life of the process, and a pulled token shows only
// in the calls that fail. Identity and capacity come from functions of
// their own; maker, versions and PIN information are not offered.
class KeyObjectTWF : public KeySession
{
    Q_OBJECT
    TW_SESSION_METHODS
public:
    KeyObjectTWF(KeyDriverPackage *package, QString devName, QObject *parent = nullptr);
    ~KeyObjectTWF() override;

    bool open() override;
    bool closeV1() override;
    bool formatKey() override;
    QByteArray readFile(QString fileName, quint64 ulOffset = 0, quint64 ulSize = 0) override;

    // Asked of the token at each call.
    QString serialNumber() override;
    QString serialNumberEx() override;
    QString labelName() override;
    quint64 totalSpace() override;
    quint64 freeSpace() override;

    // Not offered.
    QString GetManufacturer() override;
    QString GetHWVersion() override;
    QString GetFirmwareVersion() override;
    bool SetlabelName(QString strlabelName) override;
    quint64 GetPINInfo(quint64 ulPINType, quint64 ulOutType) override;

protected:
    KeyDriverTWF *keyDriver;

};

#endif
