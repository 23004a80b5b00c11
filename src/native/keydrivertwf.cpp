#include "keydrivertwf.h"

#include "frame/twlog.h"

KeyDriverTWF::KeyDriverTWF(KeyDriverPackage *package, QString libraryPath, QObject *parent)
    : KeyDriver(parent), m_package(package), m_libraryPath(libraryPath)
{
}

KeyDriverTWF::~KeyDriverTWF() = default;

bool KeyDriverTWF::load()
{
    TW_LOGF(" libraryPath:%s", qUtf8Printable(m_libraryPath));
    TW_LOG_ERROR(QStringLiteral(" end. native driver not available"));
    return false;
}

void KeyDriverTWF::unload() {}

KeyObject *KeyDriverTWF::openKey(int)
{
    return nullptr;
}

KeyObject *KeyDriverTWF::openKeyWithoutEnumDev(int)
{
    return nullptr;
}

int KeyDriverTWF::count()
{
    return 0;
}
