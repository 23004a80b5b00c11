#include "keydriverskf.h"

#include <QDebug>

#include <vector>

#include "checkthreadskf.h"
#include "frame/twlog.h"
#include "session/keyobjectskf.h"

namespace {

// A name the library lacks: a required one ends the binding, an optional
// one is only noted. Both go to Qt's debug stream, not to the host's log.
bool acceptMissing(const char *name, bool required)
{
    if (required) {
        qDebug("Error: load dll function [%s] failed", name);
        return false;
    }
    qDebug("Warning: load dll function [%s] failed", name);
    return true;
}

} // namespace

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
    TW_LOGF("FileName: %s", qUtf8Printable(m_fileName));
    m_library.setFileName(m_fileName);
    if (!m_library.load()) {
        TW_LOGF_ERROR("end. error msg %s", qUtf8Printable(m_library.errorString()));
        return false;
    }
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
#define TW_BIND_ROW(name, required)                                                                                    \
    p##name = reinterpret_cast<decltype(p##name)>(m_library.resolve(#name));                                          \
    if (!p##name && !acceptMissing(#name, required))                                                                   \
        return false;
    SKF_FUNCTION_ROWS(TW_BIND_ROW)
#undef TW_BIND_ROW
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
    // One list for all drivers of the process, rebuilt on every call.
    static QStringList list;
    list.clear();

    ULONG size = 0;
    ULONG ret = SAR_UNKNOWNERR;
    try {
        if (pSKF_EnumDev) {
            ret = pSKF_EnumDev(TRUE, nullptr, &size);
            TW_LOGF("SKF_EnumDev: ret: %d,size: %d", int(ret), int(size));
        }
    } catch (...) {
        TW_LOG_ERROR(QStringLiteral("pSKF_EnumDev catch Exception ..."));
        ret = SAR_UNKNOWNERR;
    }
    if (ret != SAR_OK) {
        TW_LOGF_ERROR("SKF_EnumDev: ret: %d", int(ret));
        return list;
    }

    // Twice what the library asked for, as a margin; the second call is
    // told the doubled length.
    size *= 2;
    const ULONG capacity = size;
    std::vector<char> buffer(size_t(capacity) + 1, '\0');
    ret = pSKF_EnumDev(TRUE, buffer.data(), &size);
    TW_LOGF("SKF_EnumDev: ret: %d,size: %d", int(ret), int(size));
    if (ret != SAR_OK) {
        TW_LOGF_ERROR("SKF_EnumDev: ret: %d,size: %d", int(ret), int(size));
        setLastError(ret);
        return list;
    }
    TW_LOGF("pszDevNameList:  %s", buffer.data());

    // A library that reports more than it was given is read no further
    // than the buffer.
    QByteArray names(buffer.data(), int(qMin(size, capacity)));
    QString logText = QStringLiteral("DevNameList:");
    while (!names.isEmpty()) {
        const int end = names.indexOf('\0');
        const QByteArray raw = end < 0 ? names : names.left(end);
        const QString name = QString::fromLocal8Bit(raw);
        if (name.isEmpty())
            break;
        list.append(name);
        logText += name + QLatin1Char(';');
        names = names.right(names.size() - raw.size() - 1);
    }
    TW_LOG(logText);
    return list;
}

int KeyDriverSKF::count()
{
    m_devList = enumDev();
    qDebug() << "devList:" << m_devList;
    TW_LOGF(" devList count: %d ", m_devList.size());
    return m_devList.size();
}

KeyObject *KeyDriverSKF::openKey(int index)
{
    m_devList = enumDev();
    return openIndexed(__FUNCTION__, index, false);
}

KeyObject *KeyDriverSKF::openKeyWithoutEnumDev(int index)
{
    return openIndexed(__FUNCTION__, index, true);
}

KeyObject *KeyDriverSKF::openIndexed(const char *function, int index, bool noload)
{
    if (index < 0 || index >= m_devList.size()) {
        twlog::error(function, __LINE__, QString::asprintf(" devList count:%d", m_devList.size()));
        return nullptr;
    }
    twlog::debug(function, __LINE__, QString::asprintf(" dev name:%s", qUtf8Printable(m_devList.at(index))));
    return open(m_devList.at(index), noload);
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
        TW_LOG(QStringLiteral("  1 KeyDriverSKF end. noload  = %1, bRet = %2").arg(1).arg(0));
        return pKeyObj;
    }
    TW_LOG(QStringLiteral("  2 KeyDriverSKF end. noload  = %1, bRet = %2").arg(int(noload)).arg(int(bRet)));
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
