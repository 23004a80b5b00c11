#ifndef TWKEY_KEYDRIVERTWF_H
#define TWKEY_KEYDRIVERTWF_H

#include <QString>

#include "package/keydriver.h"

class KeyDriverPackage;

// The driver of a package whose protocol is "twf": the native library,
// found in the work path under the base name libTWKeyDriver.
// The native binding is not here yet: load() refuses, so such a package is
// dropped at binding with " kdp load fail".
class KeyDriverTWF : public KeyDriver
{
    Q_OBJECT
public:
    KeyDriverTWF(KeyDriverPackage *package, QString libraryPath, QObject *parent = nullptr);
    ~KeyDriverTWF() override;

    bool load() override;
    void unload() override;
    KeyObject *openKey(int index) override;
    KeyObject *openKeyWithoutEnumDev(int index) override;
    int count() override;

private:
    KeyDriverPackage *m_package;
    QString m_libraryPath;
};

#endif
