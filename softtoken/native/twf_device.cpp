// The native face's device, PIN and file functions. A fault planned for an
// SKF function reaches the native function working through it; the native
// functions without an SKF counterpart take the plan under their own names.
#include "twfcall.h"

#include <QFile>
#include <QFileInfo>

#include <atomic>
#include <thread>

namespace {

std::atomic<TWF_LOGCALLBACK> g_log{nullptr};

void tell(const QString &text)
{
    if (TWF_LOGCALLBACK log = g_log.load()) {
        QByteArray bytes = text.toUtf8();
        log(0, bytes.data());
    }
}

// The store a TWF_Init_SDK path names: any path but one ending in '/' (what
// a package with an empty argument gives) or naming something other than a
// folder. Empty: the usual store.
QString storeFrom(const char *path)
{
    const QString p = path ? QFile::decodeName(path) : QString();
    const QFileInfo info(p);
    if (p.isEmpty() || p.endsWith(QLatin1Char('/')) || (info.exists() && !info.isDir()))
        return QString();
    return p;
}

ULONG deviceText(const char *function, DEVHANDLE dev, LPSTR out, ULONG *len, QString DeviceData::*field)
{
    TwfCall call(function);
    const DeviceData *d = nullptr;
    const ULONG rv = call.deviceData(dev, &d);
    return rv != SAR_OK ? rv : call.fillText((d->*field).toUtf8().append('\0'), out, len);
}

ULONG deviceSpace(const char *function, DEVHANDLE dev, ULONG *out, bool free)
{
    TwfCall call(function);
    const DeviceData *d = nullptr;
    const ULONG rv = call.deviceData(dev, &d);
    if (rv != SAR_OK || !out)
        return rv != SAR_OK ? rv : ULONG(SAR_INVALIDPARAMERR);
    *out = free ? d->freeSpace() : d->totalSpace;
    return SAR_OK;
}

} // namespace

TWF_EXPORT ULONG TWF_Init_SDK(LPSTR szModelId, LPSTR szPath, TWF_LOGCALLBACK pfnLog, ULONG)
{
    const QString store = storeFrom(szPath);
    SkfCall::setStoreRoot(store);
    g_log = pfnLog;
    const QString root = SkfCall::storeRoot();
    tell(QStringLiteral("TWF_Init_SDK model %1, store %2 (%3)")
             .arg(QString::fromLatin1(szModelId ? szModelId : ""), root,
                  store.isEmpty() ? QStringLiteral("usual rule") : QStringLiteral("path argument")));
    // Token SDKs report from threads of their own: callers must cope.
    std::thread([root] {
        tell(QStringLiteral("TWF_Init_SDK %1 device(s) in the store").arg(DeviceStore(root).deviceNames().size()));
    }).join();
    return SAR_OK;
}

TWF_EXPORT ULONG TWF_Uinit_SDK(void)
{
    tell(QStringLiteral("TWF_Uinit_SDK"));
    g_log = nullptr;
    SkfCall::setStoreRoot(QString());
    return SAR_OK;
}

TWF_EXPORT ULONG TWF_EnumDev(LPSTR szNameList, ULONG *pulSize)
{
    return SKF_EnumDev(TRUE, szNameList, pulSize);
}

TWF_EXPORT ULONG TWF_ConnectDev(LPSTR szName, DEVHANDLE *phDev)
{
    TwfCall call(__func__);
    if (!szName || !phDev)
        return SAR_INVALIDPARAMERR;
    *phDev = nullptr;
    DEVHANDLE connection = nullptr;
    const ULONG rv = SKF_ConnectDev(szName, &connection);
    return rv != SAR_OK ? rv : call.openDevice(connection, phDev);
}

TWF_EXPORT ULONG TWF_IsConnectDev(DEVHANDLE hDev)
{
    TwfCall call(__func__);
    AppObject *app = nullptr;
    return call.app(hDev, &app);
}

TWF_EXPORT ULONG TWF_DisConnectDev(DEVHANDLE hDev)
{
    TwfCall call(__func__);
    return SKF_DisConnectDev(call.connectionOf(hDev));
}

TWF_EXPORT ULONG TWF_GetSerialNumberByDevName(LPSTR szDevName, LPSTR szSerial, ULONG *pulLen)
{
    TwfCall call(__func__);
    if (!pulLen)
        return SAR_INVALIDPARAMERR;
    DeviceStore store(SkfCall::storeRoot());
    QString name;
    const DeviceData *d = nullptr;
    const ULONG rv = call.presentDevice(store, szDevName, &name, &d);
    return rv != SAR_OK ? rv : call.fillText(d->serial.toUtf8().append('\0'), szSerial, pulLen);
}

TWF_EXPORT ULONG TWF_GetLabelName(DEVHANDLE hDev, LPSTR szLabel, ULONG *pulLen)
{
    return deviceText(__func__, hDev, szLabel, pulLen, &DeviceData::label);
}

TWF_EXPORT ULONG TWF_GetSerialNumber(DEVHANDLE hDev, LPSTR szSerial, ULONG *pulLen)
{
    return deviceText(__func__, hDev, szSerial, pulLen, &DeviceData::serial);
}

TWF_EXPORT ULONG TWF_GetTotalSpace(DEVHANDLE hDev, ULONG *pulSpace)
{
    return deviceSpace(__func__, hDev, pulSpace, false);
}

TWF_EXPORT ULONG TWF_GetFreeSpace(DEVHANDLE hDev, ULONG *pulSpace)
{
    return deviceSpace(__func__, hDev, pulSpace, true);
}

// Deletes the application's files and leaves the administrator PIN at the
// first PIN, as the library's format of an SKF token does. Either PIN may
// prove the administrator, the second also in the form packages keep it in,
// under two layers of base64; a wrong one counts down.
TWF_EXPORT ULONG TWF_FormatKey(DEVHANDLE hDev, LPSTR szUnblockPin, LPSTR szNewAdminPin)
{
    TwfCall call(__func__);
    AppObject *app = nullptr;
    QByteArray unblock, admin;
    ULONG rv = call.app(hDev, &app);
    if (rv == SAR_OK && (rv = SkfCall::pinArg(szUnblockPin, &unblock)) == SAR_OK)
        rv = SkfCall::pinArg(szNewAdminPin, &admin);
    if (rv != SAR_OK || !SkfCall::pinLengthOk(unblock))
        return rv != SAR_OK ? rv : ULONG(SAR_PIN_LEN_RANGE);
    const QByteArray decoded = QByteArray::fromBase64(QByteArray::fromBase64(admin));
    rv = call.modifyApp(app, [&](DeviceData::App &a, DeviceData &, bool &persist) -> ULONG {
        const QByteArray &given = a.admin.matches(unblock) ? unblock : a.admin.matches(admin) ? admin : decoded;
        const ULONG r = call.checkPin(app, true, a.admin, given, nullptr, persist);
        if (r != SAR_OK)
            return r;
        a.files.clear();
        a.admin.set(unblock);
        a.admin.isDefault = false;
        persist = true;
        return SAR_OK;
    });
    if (rv == SAR_OK)
        app->connection()->logOut(app->name());
    return rv;
}

TWF_EXPORT ULONG TWF_ChangePIN(DEVHANDLE hDev, ULONG ulPINType, LPSTR szOldPin, LPSTR szNewPin, ULONG *pulRetryCount)
{
    return SKF_ChangePIN(hDev, ulPINType, szOldPin, szNewPin, pulRetryCount);
}

TWF_EXPORT ULONG TWF_VerifyPIN(DEVHANDLE hDev, ULONG ulPINType, LPSTR szPIN, ULONG *pulRetryCount)
{
    return SKF_VerifyPIN(hDev, ulPINType, szPIN, pulRetryCount);
}

TWF_EXPORT ULONG TWF_GetPINInfo(DEVHANDLE hDev, ULONG ulPINType, ULONG *pulMaxRetryCount, ULONG *pulRemainRetryCount,
                                BOOL *pbDefaultPin)
{
    return SKF_GetPINInfo(hDev, ulPINType, pulMaxRetryCount, pulRemainRetryCount, pbDefaultPin);
}

TWF_EXPORT ULONG TWF_UnblockPIN(DEVHANDLE hDev, LPSTR szAdminPIN, LPSTR szNewUserPIN, ULONG *pulRetryCount)
{
    return SKF_UnblockPIN(hDev, szAdminPIN, szNewUserPIN, pulRetryCount);
}

TWF_EXPORT ULONG TWF_CreateFile(DEVHANDLE hDev, LPSTR szFileName, ULONG ulFileSize, ULONG ulReadRights,
                                ULONG ulWriteRights)
{
    return SKF_CreateFile(hDev, szFileName, ulFileSize, ulReadRights, ulWriteRights);
}

TWF_EXPORT ULONG TWF_DeleteFile(DEVHANDLE hDev, LPSTR szFileName)
{
    return SKF_DeleteFile(hDev, szFileName);
}

TWF_EXPORT ULONG TWF_EnumFiles(DEVHANDLE hDev, LPSTR szFileList, ULONG *pulSize)
{
    return SKF_EnumFiles(hDev, szFileList, pulSize);
}

// A size of 0 reads to the end of the file: a native read of a whole file
// asks with no size, having no file attributes to ask first.
TWF_EXPORT ULONG TWF_ReadFile(DEVHANDLE hDev, LPSTR szFileName, ULONG ulOffset, ULONG ulSize, BYTE *pbOutData,
                              ULONG *pulOutLen)
{
    FILEATTRIBUTE attr;
    if (ulSize == 0 && SKF_GetFileInfo(hDev, szFileName, &attr) == SAR_OK)
        ulSize = attr.FileSize > ulOffset ? attr.FileSize - ulOffset : 0;
    return SKF_ReadFile(hDev, szFileName, ulOffset, ulSize, pbOutData, pulOutLen);
}

TWF_EXPORT ULONG TWF_WriteFile(DEVHANDLE hDev, LPSTR szFileName, ULONG ulOffset, BYTE *pbData, ULONG ulSize)
{
    return SKF_WriteFile(hDev, szFileName, ulOffset, pbData, ulSize);
}

TWF_EXPORT ULONG TWF_IsFileExist(DEVHANDLE hDev, LPSTR szFileName)
{
    FILEATTRIBUTE attr;
    return SKF_GetFileInfo(hDev, szFileName, &attr);
}
