#include "keydrivertwf.h"

#include "frame/twlog.h"
#include "keyobjecttwf.h"
#include "package/keydriverpackage.h"

#define TW_CLEAR_ROW(name, required) p##name = nullptr;

int TWF_LogCallBack(unsigned int, char *text)
{
    twlog::forward(QString::fromLocal8Bit(text));
    return 0;
}

KeyDriverTWF::KeyDriverTWF(KeyDriverPackage *package, QString fileName, QObject *parent)
    : KeyDriver(parent), m_fileName(fileName), m_package(package)
{
    TW_LOGF("path :%s", qUtf8Printable(fileName));
    TWF_FUNCTION_ROWS(TW_CLEAR_ROW)
}

KeyDriverTWF::~KeyDriverTWF()
{
    TW_LOG(QStringLiteral(" start"));
    unload();
    TW_LOG(QStringLiteral(" end"));
}

bool KeyDriverTWF::load()
{
    if (!openLibrary(__FUNCTION__, m_library, m_fileName))
        return false;
    if (!init()) {
        TW_LOG_ERROR(QStringLiteral("end. init failed"));
        unload();
        return false;
    }
    const QByteArray workPath = m_package->workPath().toLatin1();
    QByteArray path = workPath + '/' + m_package->argument().toLatin1();
    QByteArray modelId = m_package->modelId().toLatin1();
    // The library reports its own troubles through the callback.
    pTWF_Init_SDK(modelId.data(), path.data(), TWF_LogCallBack, 0);
    TW_LOG(QStringLiteral(" end"));
    return true;
}

void KeyDriverTWF::unload()
{
    // Two rows stay: a session may still ask whether its token is there,
    // and which serial number a device name has. The library stays mapped
    // and is not told.
    const auto keepConnect = pTWF_IsConnectDev;
    const auto keepSerial = pTWF_GetSerialNumberByDevName;
    TWF_FUNCTION_ROWS(TW_CLEAR_ROW)
    pTWF_IsConnectDev = keepConnect;
    pTWF_GetSerialNumberByDevName = keepSerial;
    TW_LOG(QStringLiteral(" end"));
}

bool KeyDriverTWF::init()
{
    TWF_FUNCTION_ROWS(TW_DRIVER_BIND_ROW)
    return true;
}

QStringList KeyDriverTWF::enumDev()
{
    // One list for all native drivers of the process, rebuilt on every call.
    static QStringList list;
    DevListCall call;
    if (pTWF_EnumDev)
        call = [this](char *buffer, ULONG *size) { return pTWF_EnumDev(buffer, size); };
    enumDevices(__FUNCTION__, list, call);
    return list;
}

KeyObject *KeyDriverTWF::open(QString devName, bool)
{
    TW_LOGF("devName: %s", qUtf8Printable(devName));
    TW_LOG(QStringLiteral(" KeyObject::findDev"));

    // A failed lookup leaves the text empty: the search is then for the
    // empty serial number.
    char serial[64 + 1] = {};
    ULONG length = 64;
    QByteArray name = devName.toLatin1();
    if (pTWF_GetSerialNumberByDevName)
        pTWF_GetSerialNumberByDevName(name.data(), serial, &length);

    KeyObject *pKeyObj = KeyObject::findDevbySN(QString::fromLatin1(serial));
    if (pKeyObj) {
        // A token back under another device name finds its old session,
        // which goes on with the name it was made with.
        TW_LOG(QStringLiteral(" pKeyObj->open()"));
        pKeyObj->open();
        if (!pKeyObj->isOpen()) {
            TW_LOG(QStringLiteral(" isOpen == false"));
            return nullptr;
        }
    } else {
        TW_LOG(QStringLiteral(" pKeyObj == 0"));
        pKeyObj = new KeyObjectTWF(m_package, devName, this);
        pKeyObj->open();
        if (!pKeyObj->isOpen()) {
            TW_LOG(QStringLiteral(" isOpen == false"));
            delete pKeyObj;
            return nullptr;
        }
    }
    TW_LOG(QStringLiteral(" end"));
    return pKeyObj;
}
