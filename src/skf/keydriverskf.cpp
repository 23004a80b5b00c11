#include "keydriverskf.h"

#include <QDebug>

#include "checkthreadskf.h"
#include "frame/twlog.h"
#include "session/keyobjectskf.h"

KeyDriverSKF::KeyDriverSKF(KeyDriverPackage *package, QString fileName, QObject *parent)
    : KeyDriver(parent), m_fileName(fileName), m_checkThread(nullptr), m_package(package)
{
    TW_LOGF("path :%s", qUtf8Printable(fileName));
    // Nothing reads the table before load(); it starts null all the same.
#define TW_CLEAR_ROW(name, required) p##name = nullptr;
    SKF_FUNCTION_ROWS(TW_CLEAR_ROW)
#undef TW_CLEAR_ROW
    pSKF_CancelWaitForDevEvent = nullptr;
}

KeyDriverSKF::~KeyDriverSKF()
{
    unload();
}

bool KeyDriverSKF::load()
{
    if (!openLibrary(__FUNCTION__, m_library, m_fileName))
        return false;
    // On a missing required name the library stays loaded and the rows
    // bound so far stay set.
    if (!init()) {
        TW_LOG_ERROR(QStringLiteral("end. init failed"));
        return false;
    }
    TW_LOG(QStringLiteral(" end"));
    return true;
}

bool KeyDriverSKF::init()
{
    SKF_FUNCTION_ROWS(TW_DRIVER_BIND_ROW)
    return true;
}

void KeyDriverSKF::unload()
{
    if (m_checkThread) {
        m_checkThread->setQuit(true);
        m_checkThread->terminate();
        // Deleting a QThread that has not yet ended aborts the process, so
        // the end of the terminated thread is awaited before the delete.
        m_checkThread->wait();
        delete m_checkThread;
        m_checkThread = nullptr;
    }
    // The library itself stays mapped: a maker's library may keep global
    // state that must survive a reload.
#define TW_CLEAR_ROW(name, required) p##name = nullptr;
    SKF_FUNCTION_ROWS(TW_CLEAR_ROW)
#undef TW_CLEAR_ROW
    TW_LOG(QStringLiteral(" end"));
}

QStringList KeyDriverSKF::enumDev()
{
    // One list for all SKF drivers of the process, rebuilt on every call.
    static QStringList list;
    DevListCall call;
    if (pSKF_EnumDev)
        call = [this](char *buffer, ULONG *size) { return pSKF_EnumDev(TRUE, buffer, size); };
    enumDevices(__FUNCTION__, list, call);
    return list;
}

KeyObject *KeyDriverSKF::open(QString devName, bool noload)
{
    TW_LOG(QStringLiteral(" KeyDriverSKF start"));
    TW_LOGF("devName: %s", qUtf8Printable(devName));

    KeyObject *pKeyObj = KeyObject::findDev(devName);
    if (!pKeyObj) {
        TW_LOG(QStringLiteral(" pKeyObj == 0"));
        pKeyObj = new KeyObjectSKF(m_package, devName, this);
        pKeyObj->open();
        if (!pKeyObj->isOpen()) {
            delete pKeyObj;
            pKeyObj = nullptr;
        }
        TW_LOG(QStringLiteral(" KeyDriverSKF end"));
        return pKeyObj;
    }

    const bool bRet = pKeyObj->isKeyDisConnect();
    if (noload && !bRet) {
        // A live session on a counted device: no token traffic.
        TW_LOG(QStringLiteral("  1 KeyDriverSKF end. noload  = 1, bRet = 0"));
        return pKeyObj;
    }
    TW_LOG(QLatin1String("  2 KeyDriverSKF end. noload  = ") + QString::number(int(noload)) + QLatin1String(", bRet = ")
           + QString::number(int(bRet)));
    pKeyObj->open();
    if (!pKeyObj->isOpen()) {
        delete pKeyObj;
        return nullptr;
    }
    return pKeyObj;
}

bool KeyDriverSKF::waitForDevEvent(QString &devName, unsigned int &event)
{
    char buffer[512 + 1] = {};
    ULONG length = 512;
    ULONG eventValue = 0;
    TW_LOG(QStringLiteral(" SKF_WaitForDevEvent"));
    // Blocks until the library has an event.
    const ULONG ret = pSKF_WaitForDevEvent ? pSKF_WaitForDevEvent(buffer, &length, &eventValue) : SAR_FAIL;
    if (ret == SAR_OK && buffer[0] != '\0') {
        devName = QString::fromLocal8Bit(buffer);
        event = eventValue;
        TW_LOG(QStringLiteral(" end"));
        return true;
    }
    TW_LOGF_ERROR(" SKF_WaitForDevEvent failed.ret = %d", int(ret));
    setLastError(ret);
    TW_LOG(QStringLiteral(" end. false"));
    return false;
}

void KeyDriverSKF::cancelWaitForDevEvent()
{
    // The table has no cancel function bound: a blocked wait stays blocked.
    TW_LOG(QStringLiteral(" start"));
    TW_LOG(QStringLiteral(" end"));
}

void KeyDriverSKF::on_keyEvent(QString devName, bool insert)
{
    qDebug() << "on_keyEvent..." << devName;
    TW_LOGF("devName :%s ,insert %d", qUtf8Printable(devName), int(insert));
    if (!insert) {
        // A removal closes the session but keeps it, so a later open
        // reconnects the same object.
        if (KeyObject *key = KeyObject::findDev(devName))
            key->closeV1();
    }
    emit keyEvent(devName, insert);
    TW_LOG(QStringLiteral(" end"));
}
