// Applications, PINs and files.
#include "skfexport.h"

#include "handleregistry.h"
#include "skfcall.h"

#include <string.h>

namespace {

const int kNameMax = 32;

bool allowed(quint32 rights, AppObject *app)
{
    const Connection *c = app->connection();
    if (rights == DeviceData::Anyone)
        return true;
    return ((rights & DeviceData::User) && c->userLoggedIn(app->name()))
           || ((rights & DeviceData::Admin) && c->adminLoggedIn(app->name()));
}

ULONG rightsError(quint32 rights)
{
    return rights == DeviceData::Never ? ULONG(TW_ERR_SECURITY_STATE) : ULONG(SAR_USER_NOT_LOGGED_IN);
}

// The named file in the application's current data.
ULONG findFile(SkfCall &call, AppObject *app, LPSTR text, const DeviceData::File **out)
{
    QString name;
    ULONG rv = SkfCall::nameArg(text, kNameMax, SAR_FILE_NOT_EXIST, &name);
    if (rv != SAR_OK)
        return rv;
    const DeviceData::App *a = nullptr;
    if ((rv = call.appData(app, &a)) != SAR_OK)
        return rv;
    *out = a->file(name);
    return *out ? SAR_OK : SAR_FILE_NOT_EXIST;
}

ULONG openApp(Connection *conn, const QString &name, HAPPLICATION *out)
{
    *out = HandleRegistry::instance().add(std::make_unique<AppObject>(conn, name));
    return SAR_OK;
}

} // namespace

SKF_EXPORT ULONG SKF_ChangePIN(HAPPLICATION hApplication, ULONG ulPINType, LPSTR szOldPin, LPSTR szNewPin,
                               ULONG *pulRetryCount)
{
    SkfCall call("SKF_ChangePIN");
    AppObject *app = nullptr;
    ULONG rv = call.app(hApplication, &app);
    if (rv != SAR_OK)
        return rv;
    if (ulPINType != ADMIN_TYPE && ulPINType != USER_TYPE)
        return SAR_USER_TYPE_INVALID;
    QByteArray oldPin, newPin;
    if ((rv = SkfCall::pinArg(szOldPin, &oldPin)) != SAR_OK || (rv = SkfCall::pinArg(szNewPin, &newPin)) != SAR_OK)
        return rv;
    if (!SkfCall::pinLengthOk(newPin))
        return SAR_PIN_LEN_RANGE;
    return call.modifyApp(app, [&](DeviceData::App &a, DeviceData &, bool &persist) -> ULONG {
        DeviceData::Pin &pin = ulPINType == ADMIN_TYPE ? a.admin : a.user;
        const ULONG r = call.checkPin(app, ulPINType == ADMIN_TYPE, pin, oldPin, pulRetryCount, persist);
        if (r != SAR_OK)
            return r;
        pin.set(newPin);
        pin.isDefault = false;
        persist = true;
        return SAR_OK;
    });
}

SKF_EXPORT ULONG SKF_GetPINInfo(HAPPLICATION hApplication, ULONG ulPINType, ULONG *pulMaxRetryCount,
                                ULONG *pulRemainRetryCount, BOOL *pbDefaultPin)
{
    SkfCall call("SKF_GetPINInfo");
    AppObject *app = nullptr;
    ULONG rv = call.app(hApplication, &app);
    if (rv != SAR_OK)
        return rv;
    if (ulPINType != ADMIN_TYPE && ulPINType != USER_TYPE)
        return SAR_USER_TYPE_INVALID;
    if (!pulMaxRetryCount || !pulRemainRetryCount || !pbDefaultPin)
        return SAR_INVALIDPARAMERR;
    const DeviceData::App *a = nullptr;
    if ((rv = call.appData(app, &a)) != SAR_OK)
        return rv;
    const DeviceData::Pin &pin = ulPINType == ADMIN_TYPE ? a->admin : a->user;
    *pulMaxRetryCount = ULONG(pin.maxRetries);
    *pulRemainRetryCount = ULONG(SkfCall::remaining(app, ulPINType == ADMIN_TYPE, pin));
    *pbDefaultPin = pin.isDefault ? TRUE : FALSE;
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_VerifyPIN(HAPPLICATION hApplication, ULONG ulPINType, LPSTR szPIN, ULONG *pulRetryCount)
{
    SkfCall call("SKF_VerifyPIN");
    AppObject *app = nullptr;
    ULONG rv = call.app(hApplication, &app);
    if (rv != SAR_OK)
        return rv;
    if (ulPINType != ADMIN_TYPE && ulPINType != USER_TYPE)
        return SAR_USER_TYPE_INVALID;
    QByteArray pin;
    if ((rv = SkfCall::pinArg(szPIN, &pin)) != SAR_OK)
        return rv;
    rv = call.modifyApp(app, [&](DeviceData::App &a, DeviceData &, bool &persist) -> ULONG {
        const bool admin = ulPINType == ADMIN_TYPE;
        return call.checkPin(app, admin, admin ? a.admin : a.user, pin, pulRetryCount, persist);
    });
    // A right PIN logs in even when its counter can't be restored on disk
    // (a read-only store): the counter stays on the safe side.
    if (rv == SAR_WRITEFILEERR && call.pinPassed())
        rv = SAR_OK;
    if (rv == SAR_OK)
        app->connection()->logIn(app->name(), ulPINType == ADMIN_TYPE);
    else if (rv == SAR_PIN_INCORRECT || rv == SAR_PIN_LOCKED)
        app->connection()->logOut(app->name());
    return rv;
}

SKF_EXPORT ULONG SKF_UnblockPIN(HAPPLICATION hApplication, LPSTR szAdminPIN, LPSTR szNewUserPIN,
                                ULONG *pulRetryCount)
{
    SkfCall call("SKF_UnblockPIN");
    AppObject *app = nullptr;
    ULONG rv = call.app(hApplication, &app);
    if (rv != SAR_OK)
        return rv;
    QByteArray adminPin, newPin;
    if ((rv = SkfCall::pinArg(szAdminPIN, &adminPin)) != SAR_OK
        || (rv = SkfCall::pinArg(szNewUserPIN, &newPin)) != SAR_OK)
        return rv;
    if (!SkfCall::pinLengthOk(newPin))
        return SAR_PIN_LEN_RANGE;
    return call.modifyApp(app, [&](DeviceData::App &a, DeviceData &, bool &persist) -> ULONG {
        const ULONG r = call.checkPin(app, true, a.admin, adminPin, pulRetryCount, persist);
        if (r != SAR_OK)
            return r;
        a.user.set(newPin);
        a.user.remaining = a.user.maxRetries;
        a.user.isDefault = false;
        persist = true;
        return SAR_OK;
    });
}

SKF_EXPORT ULONG SKF_GenRemoteUnblockRequest(HAPPLICATION hApplication, BYTE *, ULONG)
{
    SkfCall call("SKF_GenRemoteUnblockRequest");
    AppObject *app = nullptr;
    const ULONG rv = call.app(hApplication, &app);
    return rv != SAR_OK ? rv : SAR_NOTSUPPORTYETERR;
}

SKF_EXPORT ULONG SKF_RemoteUnblockPIN(HAPPLICATION hApplication, BYTE *, ULONG)
{
    SkfCall call("SKF_RemoteUnblockPIN");
    AppObject *app = nullptr;
    const ULONG rv = call.app(hApplication, &app);
    return rv != SAR_OK ? rv : SAR_NOTSUPPORTYETERR;
}

SKF_EXPORT ULONG SKF_ClearSecureState(HAPPLICATION hApplication)
{
    SkfCall call("SKF_ClearSecureState");
    AppObject *app = nullptr;
    const ULONG rv = call.app(hApplication, &app);
    if (rv != SAR_OK)
        return rv;
    app->connection()->logOut(app->name());
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_CreateFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulFileSize, ULONG ulReadRights,
                                ULONG ulWriteRights)
{
    SkfCall call("SKF_CreateFile");
    AppObject *app = nullptr;
    ULONG rv = call.app(hApplication, &app);
    if (rv != SAR_OK)
        return rv;
    QString name;
    if ((rv = SkfCall::nameArg(szFileName, kNameMax, SAR_NAMELENERR, &name)) != SAR_OK)
        return rv;
    if (ulFileSize > ULONG(SkfCall::MaxInput))
        return SAR_NO_ROOM;
    return call.modifyApp(app, [&](DeviceData::App &a, DeviceData &d, bool &persist) -> ULONG {
        persist = false;
        if (!allowed(a.createFileRights, app))
            return rightsError(a.createFileRights);
        if (a.file(name))
            return SAR_FILE_ALREADY_EXIST;
        if (ulFileSize > d.freeSpace())
            return SAR_NO_ROOM;
        DeviceData::File f;
        f.name = name;
        f.readRights = ulReadRights;
        f.writeRights = ulWriteRights;
        f.data = QByteArray(int(ulFileSize), '\0');
        a.files.append(f);
        persist = true;
        return SAR_OK;
    });
}

SKF_EXPORT ULONG SKF_DeleteFile(HAPPLICATION hApplication, LPSTR szFileName)
{
    SkfCall call("SKF_DeleteFile");
    AppObject *app = nullptr;
    ULONG rv = call.app(hApplication, &app);
    if (rv != SAR_OK)
        return rv;
    QString name;
    if ((rv = SkfCall::nameArg(szFileName, kNameMax, SAR_FILE_NOT_EXIST, &name)) != SAR_OK)
        return rv;
    return call.modifyApp(app, [&](DeviceData::App &a, DeviceData &, bool &persist) -> ULONG {
        persist = false;
        const DeviceData::File *f = a.file(name);
        if (!f)
            return SAR_FILE_NOT_EXIST;
        if (!allowed(f->writeRights, app))
            return rightsError(f->writeRights);
        for (int i = 0; i < a.files.size(); ++i)
            if (a.files.at(i).name == name)
                a.files.removeAt(i--);
        persist = true;
        return SAR_OK;
    });
}

SKF_EXPORT ULONG SKF_EnumFiles(HAPPLICATION hApplication, LPSTR szFileList, ULONG *pulSize)
{
    SkfCall call("SKF_EnumFiles");
    const DeviceData::App *a = nullptr;
    const ULONG rv = call.appData(hApplication, &a);
    if (rv != SAR_OK)
        return rv;
    QStringList names;
    for (const DeviceData::File &f : a->files)
        names.append(f.name);
    return call.fillText(SkfCall::multiString(names), szFileList, pulSize);
}

SKF_EXPORT ULONG SKF_GetFileInfo(HAPPLICATION hApplication, LPSTR szFileName, FILEATTRIBUTE *pFileInfo)
{
    SkfCall call("SKF_GetFileInfo");
    AppObject *app = nullptr;
    ULONG rv = call.app(hApplication, &app);
    if (rv != SAR_OK)
        return rv;
    if (!pFileInfo)
        return SAR_INVALIDPARAMERR;
    const DeviceData::File *f = nullptr;
    if ((rv = findFile(call, app, szFileName, &f)) != SAR_OK)
        return rv;
    FILEATTRIBUTE attr;
    memset(&attr, 0, sizeof attr);
    const QByteArray n = f->name.toUtf8();
    memcpy(attr.FileName, n.constData(), qMin(size_t(n.size()), sizeof attr.FileName));
    attr.FileSize = ULONG(f->data.size());
    attr.ReadRights = f->readRights;
    attr.WriteRights = f->writeRights;
    memcpy(pFileInfo, &attr, sizeof attr);
    return SAR_OK;
}

SKF_EXPORT ULONG SKF_ReadFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulOffset, ULONG ulSize,
                              BYTE *pbOutData, ULONG *pulOutLen)
{
    SkfCall call("SKF_ReadFile");
    AppObject *app = nullptr;
    ULONG rv = call.app(hApplication, &app);
    if (rv != SAR_OK)
        return rv;
    if (!pulOutLen)
        return SAR_INVALIDPARAMERR;
    const DeviceData::File *f = nullptr;
    if ((rv = findFile(call, app, szFileName, &f)) != SAR_OK)
        return rv;
    if (!allowed(f->readRights, app))
        return rightsError(f->readRights);
    if (ulOffset > ULONG(f->data.size()))
        return TW_ERR_OFFSET_BEYOND_FILE;
    // A read past the end is cut at the end.
    const ULONG take = qMin(ulSize, ULONG(f->data.size()) - ulOffset);
    return call.fill(f->data.mid(int(ulOffset), int(take)), pbOutData, pulOutLen);
}

SKF_EXPORT ULONG SKF_WriteFile(HAPPLICATION hApplication, LPSTR szFileName, ULONG ulOffset, BYTE *pbData,
                               ULONG ulSize)
{
    SkfCall call("SKF_WriteFile");
    AppObject *app = nullptr;
    ULONG rv = call.app(hApplication, &app);
    if (rv != SAR_OK)
        return rv;
    QString name;
    QByteArray data;
    if ((rv = SkfCall::nameArg(szFileName, kNameMax, SAR_FILE_NOT_EXIST, &name)) != SAR_OK)
        return rv;
    if ((rv = SkfCall::input(pbData, ulSize, &data)) != SAR_OK)
        return rv;
    return call.modifyApp(app, [&](DeviceData::App &a, DeviceData &, bool &persist) -> ULONG {
        persist = false;
        DeviceData::File *f = a.file(name);
        if (!f)
            return SAR_FILE_NOT_EXIST;
        if (!allowed(f->writeRights, app))
            return rightsError(f->writeRights);
        if (ulOffset > ULONG(f->data.size()))
            return TW_ERR_OFFSET_BEYOND_FILE;
        // Files keep the size they were created with.
        if (ULONG(data.size()) > ULONG(f->data.size()) - ulOffset)
            return SAR_INDATALENERR;
        f->data.replace(int(ulOffset), data.size(), data);
        persist = true;
        return SAR_OK;
    });
}

SKF_EXPORT ULONG SKF_CreateApplication(DEVHANDLE hDev, LPSTR szAppName, LPSTR szAdminPin,
                                       DWORD dwAdminPinRetryCount, LPSTR szUserPin, DWORD dwUserPinRetryCount,
                                       DWORD dwCreateFileRights, HAPPLICATION *phApplication)
{
    SkfCall call("SKF_CreateApplication");
    Connection *conn = nullptr;
    ULONG rv = call.device(hDev, &conn);
    if (rv != SAR_OK)
        return rv;
    QString name;
    QByteArray adminPin, userPin;
    if (!phApplication)
        return SAR_INVALIDPARAMERR;
    if ((rv = SkfCall::nameArg(szAppName, kNameMax, SAR_APPLICATION_NAME_INVALID, &name)) != SAR_OK)
        return rv;
    if ((rv = SkfCall::pinArg(szAdminPin, &adminPin)) != SAR_OK
        || (rv = SkfCall::pinArg(szUserPin, &userPin)) != SAR_OK)
        return rv;
    if (!SkfCall::pinLengthOk(adminPin) || !SkfCall::pinLengthOk(userPin))
        return SAR_PIN_LEN_RANGE;
    if (dwAdminPinRetryCount < 1 || dwAdminPinRetryCount > 15 || dwUserPinRetryCount < 1 || dwUserPinRetryCount > 15)
        return SAR_INVALIDPARAMERR;
    if (!conn->devAuthenticated())
        return TW_ERR_SECURITY_STATE;
    rv = call.modify(conn, [&](DeviceData &d, bool &persist) -> ULONG {
        if (d.app(name)) {
            persist = false;
            return SAR_APPLICATION_EXISTS;
        }
        DeviceData::App a;
        a.name = name;
        a.admin.set(adminPin);
        a.admin.maxRetries = a.admin.remaining = int(dwAdminPinRetryCount);
        a.user.set(userPin);
        a.user.maxRetries = a.user.remaining = int(dwUserPinRetryCount);
        a.createFileRights = dwCreateFileRights;
        d.apps.append(a);
        return SAR_OK;
    });
    return rv != SAR_OK ? rv : openApp(conn, name, phApplication);
}

SKF_EXPORT ULONG SKF_EnumApplication(DEVHANDLE hDev, LPSTR szAppName, ULONG *pulSize)
{
    SkfCall call("SKF_EnumApplication");
    Connection *conn = nullptr;
    ULONG rv = call.device(hDev, &conn);
    if (rv != SAR_OK)
        return rv;
    const DeviceData *d = nullptr;
    if ((rv = call.data(conn, &d)) != SAR_OK)
        return rv;
    QStringList names;
    for (const DeviceData::App &a : d->apps)
        names.append(a.name);
    if (d->profile != QLatin1String(DeviceData::WgProfile))
        return call.fillText(SkfCall::multiString(names), szAppName, pulSize);
    // One C string, each name followed by a blank.
    QByteArray text;
    for (const QString &n : names)
        text.append(n.toUtf8()).append(' ');
    return call.fillText(text.append('\0'), szAppName, pulSize);
}

SKF_EXPORT ULONG SKF_DeleteApplication(DEVHANDLE hDev, LPSTR szAppName)
{
    SkfCall call("SKF_DeleteApplication");
    Connection *conn = nullptr;
    ULONG rv = call.device(hDev, &conn);
    if (rv != SAR_OK)
        return rv;
    QString name;
    if ((rv = SkfCall::nameArg(szAppName, kNameMax, SAR_APPLICATION_NOT_EXISTS, &name)) != SAR_OK)
        return rv;
    if (!conn->devAuthenticated())
        return TW_ERR_SECURITY_STATE;
    return call.modify(conn, [&](DeviceData &d, bool &persist) -> ULONG {
        for (int i = 0; i < d.apps.size(); ++i) {
            if (d.apps.at(i).name == name) {
                d.apps.removeAt(i);
                conn->logOut(name);
                return SAR_OK;
            }
        }
        persist = false;
        return SAR_APPLICATION_NOT_EXISTS;
    });
}

SKF_EXPORT ULONG SKF_OpenApplication(DEVHANDLE hDev, LPSTR szAppName, HAPPLICATION *phApplication)
{
    SkfCall call("SKF_OpenApplication");
    Connection *conn = nullptr;
    ULONG rv = call.device(hDev, &conn);
    if (rv != SAR_OK)
        return rv;
    QString name;
    if (!szAppName || !phApplication)
        return SAR_INVALIDPARAMERR;
    *phApplication = nullptr;
    if (!SkfCall::name(szAppName, kNameMax, &name))
        return SAR_APPLICATION_NOT_EXISTS;
    const DeviceData *d = nullptr;
    if ((rv = call.data(conn, &d)) != SAR_OK)
        return rv;
    if (!d->app(name))
        return SAR_APPLICATION_NOT_EXISTS;
    return openApp(conn, name, phApplication);
}

SKF_EXPORT ULONG SKF_CloseApplication(HAPPLICATION hApplication)
{
    SkfCall call("SKF_CloseApplication");
    AppObject *app = nullptr;
    const ULONG rv = call.app(hApplication, &app);
    if (rv != SAR_OK && rv != SAR_DEVICE_REMOVED)
        return rv;
    // Closing an application ends its security state on this connection.
    app->connection()->logOut(app->name());
    HandleRegistry::instance().close(app);
    return rv;
}
