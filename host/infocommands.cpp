#include "infocommands.h"

#include "clicontext.h"

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

// Everything a key tells about itself. False when the library lacks one
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
                       {QStringLiteral("serialNumber"), serial},
                       {QStringLiteral("serialNumberWhole"), serialWhole},
                       {QStringLiteral("manufacturer"), manufacturer},
                       {QStringLiteral("hardwareVersion"), hw},
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
    row("serial number:", k.value(QStringLiteral("serialNumber")).toString());
    row("serial (whole):", k.value(QStringLiteral("serialNumberWhole")).toString());
    row("manufacturer:", k.value(QStringLiteral("manufacturer")).toString());
    row("hardware version:", k.value(QStringLiteral("hardwareVersion")).toString());
    row("firmware version:", k.value(QStringLiteral("firmwareVersion")).toString());
    row("total space:", QStringLiteral("%1 bytes").arg(quint64(k.value(QStringLiteral("totalSpace")).toDouble())));
    row("free space:", QStringLiteral("%1 bytes").arg(quint64(k.value(QStringLiteral("freeSpace")).toDouble())));
    row("driver type:", QStringLiteral("%1 (%2)")
                            .arg(k.value(QStringLiteral("driverType")).toInt())
                            .arg(k.value(QStringLiteral("driverTypeName")).toString()));
    row("package path:", k.value(QStringLiteral("packagePath")).toString());
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
        ctx.warn(QStringLiteral("the library reports a version text of %1 characters (result %2); "
                                "this twkey knows %3, of %4")
                     .arg(length)
                     .arg(result)
                     .arg(QLatin1String(kVersionText))
                     .arg(expected));
        return CliContext::Failed;
    }
    if (ctx.json())
        ctx.printJson(QJsonObject{{QStringLiteral("version"), QLatin1String(kVersionText)},
                                  {QStringLiteral("length"), length}});
    else
        ctx.print(QLatin1String(kVersionText));
    return CliContext::Ok;
}

int InfoCommands::list(CliContext &ctx)
{
    int rc = ctx.startManager();
    if (rc != CliContext::Ok)
        return rc;
    int count = 0;
    if (!ctx.call(ctx.manager(), "count", count))
        return CliContext::Failed;
    QJsonArray keys;
    rc = CliContext::Ok;
    for (int i = 0; i < count; ++i) {
        TWPtr key{"KeyObject*"};
        if (!ctx.call(ctx.manager(), "open", key, i))
            return CliContext::Failed;
        QJsonObject k;
        if (!key.value) {
            ctx.warn(QStringLiteral("key %1 does not open").arg(i));
            k = QJsonObject{{QStringLiteral("index"), i}, {QStringLiteral("error"), QStringLiteral("does not open")}};
            rc = CliContext::Failed;
        } else if (!describeKey(ctx, key.object(), i, &k)) {
            return CliContext::Failed;
        }
        keys.append(k);
    }
    if (ctx.json()) {
        ctx.printJson(QJsonObject{{QStringLiteral("count"), count}, {QStringLiteral("keys"), keys}});
        return rc;
    }
    ctx.print(QStringLiteral("keys: %1").arg(count));
    for (const QJsonValue &k : keys) {
        if (!k.toObject().contains(QStringLiteral("error")))
            printKey(ctx, k.toObject());
    }
    return rc;
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
    if (ctx.json())
        ctx.printJson(k);
    else
        printKey(ctx, k);
    return CliContext::Ok;
}
