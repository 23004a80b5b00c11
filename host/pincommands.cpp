#include "pincommands.h"

#include "clicontext.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>

#include <cstdio>

namespace {

// PIN types of GetPINInfo and what it is asked for.
constexpr quint64 kAdminPin = 0;
constexpr quint64 kUserPin = 1;
constexpr quint64 kMaxRetries = 0;
constexpr quint64 kRemainingRetries = 1;

bool isAdmin(CliContext &ctx)
{
    return ctx.has("admin");
}

QString whichPin(bool admin)
{
    return admin ? QStringLiteral("administrator PIN") : QStringLiteral("user PIN");
}

// One retry figure; a 0 is only a failure when a code was left behind.
bool pinFigure(CliContext &ctx, quint64 type, quint64 what, quint64 *value)
{
    ctx.clearError();
    *value = 0;
    if (!ctx.call(ctx.key(), "GetPINInfo", *value, type, what))
        return false;
    return *value != 0 || ctx.lastError() == 0;
}

} // namespace

int PinCommands::login(CliContext &ctx)
{
    int rc = ctx.openSelectedKey();
    if (rc != CliContext::Ok)
        return rc;
    const bool admin = isAdmin(ctx);
    rc = ctx.login(admin);
    if (rc == CliContext::Ok)
        ctx.print(QStringLiteral("%1 verified").arg(whichPin(admin)));
    return rc;
}

int PinCommands::changePin(CliContext &ctx)
{
    int rc = ctx.openSelectedKey();
    if (rc != CliContext::Ok)
        return rc;
    const bool admin = isAdmin(ctx);
    QString oldPin, newPin;
    if (!ctx.readPin(admin ? QStringLiteral("Current administrator PIN: ") : QStringLiteral("Current user PIN: "),
                     &oldPin)
        || !ctx.readNewPin(QStringLiteral("New PIN: "), &newPin))
        return CliContext::Usage;
    bool ok = false;
    ctx.clearError();
    if (!ctx.call(ctx.key(), "changePIN", ok, admin, oldPin, newPin))
        return CliContext::Failed;
    if (!ok)
        return ctx.fail(QStringLiteral("the %1 was not changed").arg(whichPin(admin)));
    ctx.print(QStringLiteral("%1 changed").arg(whichPin(admin)));
    return CliContext::Ok;
}

int PinCommands::unblock(CliContext &ctx)
{
    int rc = ctx.openSelectedKey();
    if (rc != CliContext::Ok)
        return rc;
    bool ok = false;
    ctx.clearError();
    if (ctx.has("builtin")) {
        // The library's own administrator PINs; the user PIN becomes its default.
        if (!ctx.call(ctx.key(), "resetUserPin", ok))
            return CliContext::Failed;
    } else {
        QString adminPin, newPin;
        if (!ctx.readPin(QStringLiteral("Administrator PIN: "), &adminPin)
            || !ctx.readNewPin(QStringLiteral("New user PIN: "), &newPin))
            return CliContext::Usage;
        // An empty administrator PIN would make the library fall back to
        // its own PINs and report success whatever happened.
        if (adminPin.isEmpty())
            return ctx.usage(QStringLiteral("give an administrator PIN, or --builtin"));
        if (!ctx.call(ctx.key(), "resetUserPinV1", ok, adminPin, newPin))
            return CliContext::Failed;
    }
    if (!ok)
        return ctx.fail(QStringLiteral("the user PIN was not unblocked"));
    ctx.print(QStringLiteral("user PIN unblocked"));
    return CliContext::Ok;
}

int PinCommands::resetAdminPin(CliContext &ctx)
{
    int rc = ctx.openSelectedKey();
    if (rc != CliContext::Ok)
        return rc;
    bool ok = false;
    ctx.clearError();
    if (!ctx.call(ctx.key(), "resetAdminPin", ok))
        return CliContext::Failed;
    if (!ok)
        return ctx.fail(QStringLiteral("the administrator PIN was not reset"));
    ctx.print(QStringLiteral("administrator PIN reset"));
    return CliContext::Ok;
}

int PinCommands::pinInfo(CliContext &ctx)
{
    int rc = ctx.openSelectedKey();
    if (rc != CliContext::Ok)
        return rc;
    QJsonObject all;
    const struct
    {
        quint64 type;
        const char *name;
    } pins[] = {{kUserPin, "user"}, {kAdminPin, "admin"}};
    for (const auto &pin : pins) {
        quint64 max = 0, left = 0;
        if (!pinFigure(ctx, pin.type, kMaxRetries, &max) || !pinFigure(ctx, pin.type, kRemainingRetries, &left))
            return ctx.fail(QStringLiteral("cannot read the %1 PIN's retry counters").arg(QLatin1String(pin.name)));
        all.insert(QLatin1String(pin.name),
                   QJsonObject{{QStringLiteral("maxRetries"), double(max)}, {QStringLiteral("remainingRetries"), double(left)}});
        if (!ctx.json())
            ctx.print(QStringLiteral("%1 PIN: %2 of %3 tries left").arg(QLatin1String(pin.name)).arg(left).arg(max));
    }
    if (ctx.json())
        ctx.printJson(all);
    return CliContext::Ok;
}

int PinCommands::format(CliContext &ctx)
{
    int rc = ctx.openSelectedKey();
    if (rc != CliContext::Ok)
        return rc;
    if (!ctx.has("yes")) {
        QString label;
        ctx.call(ctx.key(), "labelName", label);
        std::fprintf(stderr, "Format key %d (%s)? Every file on it is deleted. Type yes to go on: ", ctx.keyIndex(),
                     qPrintable(label));
        std::fflush(stderr);
        QFile in;
        in.open(stdin, QIODevice::ReadOnly);
        const QByteArray answer = in.readLine().trimmed();
        if (answer != "yes") {
            ctx.warn(QStringLiteral("not formatted"));
            return CliContext::Failed;
        }
    }
    bool ok = false;
    ctx.clearError();
    if (!ctx.call(ctx.key(), "formatKey", ok))
        return CliContext::Failed;
    if (!ok)
        return ctx.fail(QStringLiteral("the key was not formatted"));
    ctx.print(QStringLiteral("key %1 formatted").arg(ctx.keyIndex()));
    return CliContext::Ok;
}
