#ifndef TWKEY_KEYDRIVERTWF_H
#define TWKEY_KEYDRIVERTWF_H

#include <QLibrary>

#include "package/keydriver.h"
#include "twfapi.h"

class KeyDriverPackage;

// The library's log callback: every text goes to the core's debug log,
// whatever the level. The library may call it from a thread of its own.
int TWF_LogCallBack(unsigned int level, char *text);

// The driver of a package whose protocol is "twf": the native library,
// found in the work path under the base name libTWKeyDriver, bound by name
// into the 61-row function table and started with TWF_Init_SDK. Sessions
// are matched by the token's serial number, not by the device name.
class KeyDriverTWF : public KeyDriver
{
    Q_OBJECT
public:
    // The function table, in binding order.
#define TW_TABLE_ROW(name, required) decltype(&::name) p##name;
    TWF_FUNCTION_ROWS(TW_TABLE_ROW)
#undef TW_TABLE_ROW

    KeyDriverTWF(KeyDriverPackage *package, QString fileName, QObject *parent = nullptr);
    ~KeyDriverTWF() override;

    bool load() override;
    void unload() override;
    bool init();
    QStringList enumDev() override;
    // A session is always opened here, found or new: `noload` has no part.
    KeyObject *open(QString devName, bool noload = false) override;

private:
    QString m_fileName;
    QLibrary m_library;
    KeyDriverPackage *m_package;
};

#endif
