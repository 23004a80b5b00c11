#include "infocommands.h"

#include "clicontext.h"
#include "skferrortext.h"
#include "tokenlibraries.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

namespace {

// The library's fill call of TW_GetVersion is built to return -1, so only
// its size query is of use; the text itself is this host's own copy.
const char kVersionText[] = "V10.0.0.4";

QString driverTypeName(int type)
{
    switch (type) {
    case 0:
        return QStringLiteral("none");
    case 1:
        return QStringLiteral("SKF");
    case 2:
        return QStringLiteral("hard");
    case 3:
        return QStringLiteral("native");
    default:
        return QStringLiteral("type %1").arg(type);
    }
}

// Everything a key tells about itself, under the names that
// 'softtoken show' gives the same things. False when the library lacks one
// of the methods (already reported).
bool describeKey(CliContext &ctx, QObject *key, int index, QJsonObject *out)
{
    QString label, serial, serialWhole, manufacturer, hw, fw, path;
    quint64 total = 0, free = 0;
    int type = 0;
    const bool ok = ctx.call(key, "labelName", label) && ctx.call(key, "serialNumber", serial)
                    && ctx.call(key, "serialNumberEx", serialWhole) && ctx.call(key, "GetManufacturer", manufacturer)
                    && ctx.call(key, "GetHWVersion", hw) && ctx.call(key, "GetFirmwareVersion", fw)
                    && ctx.call(key, "totalSpace", total) && ctx.call(key, "freeSpace", free)
                    && ctx.call(key, "getDriverType", type) && ctx.call(key, "getDriverPath", path);
    if (!ok)
        return false;
    *out = QJsonObject{{QStringLiteral("index"), index},
                       {QStringLiteral("label"), label},
                       {QStringLiteral("serial"), serialWhole},
                       {QStringLiteral("serialLimited"), serial},
                       {QStringLiteral("manufacturer"), manufacturer},
                       {QStringLiteral("hwVersion"), hw},
                       {QStringLiteral("firmwareVersion"), fw},
                       {QStringLiteral("totalSpace"), double(total)},
                       {QStringLiteral("freeSpace"), double(free)},
                       {QStringLiteral("driverType"), type},
                       {QStringLiteral("driverTypeName"), driverTypeName(type)},
                       {QStringLiteral("packagePath"), path}};
    return true;
}

void printKey(CliContext &ctx, const QJsonObject &k)
{
    auto row = [&](const char *name, const QString &value) {
        ctx.print(QStringLiteral("  %1 %2").arg(QLatin1String(name), -18).arg(value));
    };
    ctx.print(QStringLiteral("key %1").arg(k.value(QStringLiteral("index")).toInt()));
    row("label:", k.value(QStringLiteral("label")).toString());
    row("serial number:", k.value(QStringLiteral("serialLimited")).toString());
    row("serial (whole):", k.value(QStringLiteral("serial")).toString());
    row("manufacturer:", k.value(QStringLiteral("manufacturer")).toString());
    row("hardware version:", k.value(QStringLiteral("hwVersion")).toString());
    row("firmware version:", k.value(QStringLiteral("firmwareVersion")).toString());
    row("total space:", QStringLiteral("%1 bytes").arg(quint64(k.value(QStringLiteral("totalSpace")).toDouble())));
    row("free space:", QStringLiteral("%1 bytes").arg(quint64(k.value(QStringLiteral("freeSpace")).toDouble())));
    row("driver type:", QStringLiteral("%1 (%2)")
                            .arg(k.value(QStringLiteral("driverType")).toInt())
                            .arg(k.value(QStringLiteral("driverTypeName")).toString()));
    row("package path:", k.value(QStringLiteral("packagePath")).toString());
}

// What the package folder holds and which devices its token libraries
// list: the keys are what of them opens. Returns Failed when a library
// cannot list its devices.
int explain(CliContext &ctx, int opened)
{
    const QStringList packages = TokenLibraries::packages(ctx.packageDir());
    QJsonArray devices;
    int rc = CliContext::Ok;
    for (const TokenLibraries::Library &library : TokenLibraries::loaded(ctx.packageDir())) {
        const QString package = QFileInfo(library.path).dir().dirName();
        QStringList names;
        const ULONG code = library.devices(&names);
        if (code != SAR_OK)
            rc = ctx.out().error(CliContext::Failed,
                                 QStringLiteral("the token library of the package %1 cannot list its devices").arg(package),
                                 {SkfErrorText::line(code)}, SkfErrorText::json(code));
        for (const QString &name : qAsConst(names))
            devices.append(QJsonObject{{QStringLiteral("name"), name}, {QStringLiteral("package"), package}});
    }
    ctx.out().set(QStringLiteral("packages"), QJsonArray::fromStringList(packages));
    ctx.out().set(QStringLiteral("devices"), devices);
    if (packages.isEmpty()) {
        ctx.warn(QStringLiteral("no key driver package in %1").arg(ctx.packageDir()));
    } else if (rc == CliContext::Ok && (opened == 0 || devices.size() > opened)) {
        QStringList found;
        for (const QJsonValue &d : qAsConst(devices))
            found << QStringLiteral("%1 (%2)").arg(d[QStringLiteral("name")].toString(), d[QStringLiteral("package")].toString());
        ctx.warn(QStringLiteral("packages: %1; devices: %2").arg(packages.join(QStringLiteral(", ")),
                                                                 found.isEmpty() ? QStringLiteral("none") : found.join(QStringLiteral(", "))));
        if (devices.size() > opened)
            ctx.warn(QStringLiteral("a token is a key only when an application on it holds a container that opens: "
                                    "a token without one is not listed, and the keys after it move up"));
    }
    return rc;
}

} // namespace

int InfoCommands::version(CliContext &ctx)
{
    const int rc = ctx.loadLibrary();
    if (rc != CliContext::Ok)
        return rc;
    int length = 0;
    const int result = ctx.host().getVersion(nullptr, &length);
    const int expected = int(sizeof kVersionText) - 1;
    if (result != 0 || length != expected) {
        return ctx.refuse(QStringLiteral("the library reports a version text of %1 characters (result %2); "
                                "this twkey knows %3, of %4")
                     .arg(length)
                     .arg(result)
                     .arg(QLatin1String(kVersionText))
                     .arg(expected));
    }
    ctx.out().set(QStringLiteral("version"), QLatin1String(kVersionText));
    ctx.out().set(QStringLiteral("length"), length);
    ctx.print(QLatin1String(kVersionText));
    return CliContext::Ok;
}

int InfoCommands::list(CliContext &ctx)
{
    int count = 0, rc = CliContext::Ok;
    if (!ctx.countKeys(&count, &rc))
        return rc;
    QJsonArray keys;
    for (int i = 0; i < count; ++i) {
        TWPtr key{"KeyObject*"};
        if (!ctx.call(ctx.manager(), "open", key, i))
            return CliContext::Failed;
        QJsonObject k;
        if (!key.value) {
            rc = ctx.fail(QStringLiteral("key %1 does not open").arg(i));
            k = QJsonObject{{QStringLiteral("index"), i}, {QStringLiteral("error"), QStringLiteral("does not open")}};
        } else if (!describeKey(ctx, key.object(), i, &k)) {
            return CliContext::Failed;
        }
        keys.append(k);
    }
    ctx.out().set(QStringLiteral("count"), count);
    ctx.out().set(QStringLiteral("keys"), keys);
    ctx.print(QStringLiteral("keys: %1").arg(count));
    for (const QJsonValue &k : qAsConst(keys)) {
        if (!ctx.json() && !k.toObject().contains(QStringLiteral("error")))
            printKey(ctx, k.toObject());
    }
    int opened = 0;
    for (const QJsonValue &k : qAsConst(keys))
        opened += k.toObject().contains(QStringLiteral("error")) ? 0 : 1;
    const int found = explain(ctx, opened);
    return rc != CliContext::Ok ? rc : found;
}

int InfoCommands::info(CliContext &ctx)
{
    int rc = CliContext::Ok;
    if (ctx.args().size() > 1)
        return ctx.usage(QStringLiteral("info takes one key index"));
    if (ctx.args().isEmpty()) {
        rc = ctx.openSelectedKey();
    } else {
        quint64 index = 0;
        if (!CliContext::parseNumber(ctx.args().first(), &index) || index > 0x7fffffff)
            return ctx.usage(QStringLiteral("info needs a key index, not %1").arg(ctx.args().first()));
        rc = ctx.openKey(int(index));
    }
    if (rc != CliContext::Ok)
        return rc;
    QJsonObject k;
    if (!describeKey(ctx, ctx.key(), ctx.keyIndex(), &k))
        return CliContext::Failed;
    for (auto it = k.constBegin(); it != k.constEnd(); ++it)
        ctx.out().set(it.key(), it.value());
    if (!ctx.json())
        printKey(ctx, k);
    return CliContext::Ok;
}
