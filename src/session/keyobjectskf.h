#ifndef TWKEY_KEYOBJECTSKF_H
#define TWKEY_KEYOBJECTSKF_H

#include "keysession.h"
#include "sessionmethods.h"

class KeyDriverPackage;

// The session on one token over a standard SKF library. It alone keeps the
// device-state file and tells a changed token from the one it connected.
class KeyObjectSKF : public KeySession
{
    Q_OBJECT
    TW_SESSION_METHODS
public:
    KeyObjectSKF(KeyDriverPackage *package, QString devName, QObject *parent = nullptr);
    ~KeyObjectSKF() override;

    bool open() override;
    bool isKeyDisConnect() override;
    QStringList enumApplication() override;
    bool GetKeyStatus();
    bool SaveKeySn();

private:
    ULONG probeToken();
};

#endif
