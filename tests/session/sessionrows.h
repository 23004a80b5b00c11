// What the session tables share: the calls of a connect, sessions in the
// states that only a sequence of calls reaches, tokens the tables edit.
#ifndef TWTEST_SESSIONROWS_H
#define TWTEST_SESSIONROWS_H

#include "conformance.h"
#include "devicedata.h"
#include "skf/skfapi.h"

using namespace conf;

const char kUser[] = "12345678";
const char kAdmin[] = "88888888";
const char kBuiltIn[] = "QmVR2kdLZTTHpXsa";
const char kDefaultUser[] = "482915";
// What the manager's count() asks before the session's own open.
const QStringList kEnumDev = {"SKF_EnumDev(1, null, 0->*) = 0x00000000", "SKF_EnumDev(1, ->{\"d*\"}, *) = 0x00000000"};
// A connect of the standard token: device, application and container
// handles h<first>, h<first+1>, h<first+2>.
inline QStringList connectLines(int first = 1)
{
    const QString dev = QStringLiteral("h%1").arg(first), app = QStringLiteral("h%1").arg(first + 1);
    return {
        QStringLiteral(R"(SKF_ConnectDev("d*", ->%1) = 0x00000000)").arg(dev),
        QStringLiteral(R"(SKF_GetDevInfo(%1, ->{sn="*",label="d*"}) = 0x00000000)").arg(dev),
        QStringLiteral(R"(SKF_EnumApplication(%1, ->{"TW_APP"}, 256->8) = 0x00000000)").arg(dev),
        QStringLiteral(R"(SKF_OpenApplication(%1, "TW_APP", ->%2) = 0x00000000)").arg(dev, app),
        QStringLiteral(R"(SKF_EnumContainer(%1, null, 0->7) = 0x00000000)").arg(app),
        QStringLiteral(R"(SKF_EnumContainer(%1, ->{"c1","r1"}, 7->7) = 0x00000000)").arg(app),
        QStringLiteral(R"(SKF_OpenContainer(%1, "c1", ->h%2) = 0x00000000)").arg(app).arg(first + 2),
    };
}
const QStringList kConnect = connectLines();

// A session that a removed token has closed: no device, no application.
inline Row closed(const QString &tag)
{
    return Row(tag).fault("SKF_GetPINInfo", SAR_DEVICE_REMOVED).before("GetPINInfo", {1, 1});
}

// An operation on a session that a removed token has closed: refused
// before the library, SAR_USER_NOT_LOGGED_IN, the missing handle logged
// under the operation's name.
inline Row onClosed(const char *method, const QList<Val> &args, const char *shows, const char *missing = "app")
{
    return closed(QStringLiteral("%1 on a closed session").arg(method)).call(method, args).is(shows)
        .err(SAR_USER_NOT_LOGGED_IN).calls({}).log({QStringLiteral("[%1] end . %2 is null").arg(method, missing)});
}

// An operation given a null container: refused before the library with
// the code, the guard's words logged under the operation's name.
inline Row onNull(const char *method, const QList<Val> &args, const char *shows, quint32 code = SAR_INVALIDHANDLEERR)
{
    return Row(QStringLiteral("%1 with a null container").arg(method)).call(method, args).is(shows).err(code).calls({})
        .log({QStringLiteral("[%1] end. container = null").arg(method)});
}

// Connected but with no application: closed, then an open whose only
// application does not open.
inline Row halfOpen(const QString &tag) { return closed(tag).fault("SKF_OpenApplication", SAR_FAIL).before("open"); }

inline Row user(const QString &tag) { return Row(tag).before("verifyPin", {kUser, false}); }

// What a removed token's closing asks of the library: application, device.
inline QStringList closing(int app, int dev)
{
    return {QStringLiteral("SKF_CloseApplication(h%1) = *").arg(app), QStringLiteral("SKF_DisConnectDev(h%1) = *").arg(dev)};
}

inline std::function<void(DeviceData &)> serial(const QString &sn) { return [sn](DeviceData &d) { d.serial = sn; }; }

inline std::function<void(DeviceData &)> file(const QString &name, const QByteArray &data, quint32 read = 0xFF,
                                              quint32 write = 0xFF)
{
    return [=](DeviceData &d) { d.apps[0].files.append(DeviceData::File{name, read, write, data}); };
}

inline void noContainers(DeviceData &d) { d.apps[0].containers.clear(); }

// An application APP0 without containers ahead of the standard one.
inline void emptyAppFirst(DeviceData &d)
{
    DeviceData::App first = d.apps[0];
    first.name = QStringLiteral("APP0");
    first.containers.clear();
    d.apps.prepend(first);
}

#endif
