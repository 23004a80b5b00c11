#include "pincommands.h"

#include "clicontext.h"

#include <QJsonObject>

namespace {

// PIN types of GetPINInfo and what it is asked for.
constexpr quint64 kAdminPin = 0;
constexpr quint64 kUserPin = 1;
constexpr quint64 kMaxRetries = 0;
constexpr quint64 kRemainingRetries = 1;
// The library's own PINs, which its rescue operations leave on the token.
const char kBuiltInAdminPin[] = "QmVR2kdLZTTHpXsa";
const char kDefaultUserPin[] = "482915";

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

// Tells a PIN that the token now has: a result, so on standard output.
void tellPin(CliContext &ctx, bool admin, const char *pin, const char *what)
{
    ctx.out().set(QStringLiteral("newPin"), QJsonObject{{QStringLiteral("type"), admin ? QStringLiteral("admin") : QStringLiteral("user")},
                                                       {QStringLiteral("value"), QLatin1String(pin)}});
    ctx.print(QStringLiteral("%1: %2 (%3)").arg(whichPin(admin), QLatin1String(pin), QLatin1String(what)));
}

// The key opened, and the go-ahead for an operation that sets a PIN nobody
// chose: asked at a terminal, or --yes.
int openAndConfirm(CliContext &ctx, const QString &question)
{
    int rc = ctx.openSelectedKey();
    if (rc == CliContext::Ok)
        ctx.confirm(question, &rc);
    return rc;
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
        ctx.status(QStringLiteral("%1 verified").arg(whichPin(admin)));
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
        return ctx.pinFailure(QStringLiteral("the %1 was not changed").arg(whichPin(admin)), admin);
    ctx.status(QStringLiteral("%1 changed").arg(whichPin(admin)));
    return CliContext::Ok;
}

int PinCommands::unblock(CliContext &ctx)
{
    const bool builtin = ctx.has("builtin");
    if (builtin && (ctx.has("pin") || ctx.has("pin-fd") || ctx.has("new-pin")))
        return ctx.usage(QStringLiteral("--builtin takes no PINs: the library uses its own"));
    int rc = builtin ? openAndConfirm(ctx, QStringLiteral("The library tries its built-in administrator PINs; each "
                                                          "one that fails costs a try."))
                     : ctx.openSelectedKey();
    if (rc != CliContext::Ok)
        return rc;
    bool ok = false;
    ctx.clearError();
    if (builtin) {
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
        return builtin ? ctx.fail(QStringLiteral("the user PIN was not unblocked"))
                       : ctx.pinFailure(QStringLiteral("the user PIN was not unblocked"), true);
    ctx.status(QStringLiteral("user PIN unblocked"));
    if (builtin)
        tellPin(ctx, false, kDefaultUserPin, "the library's default user PIN");
    return CliContext::Ok;
}

int PinCommands::resetAdminPin(CliContext &ctx)
{
    int rc = openAndConfirm(ctx, QStringLiteral("The administrator PIN becomes the library's built-in one; a try "
                                                "that fails costs a try."));
    if (rc != CliContext::Ok)
        return rc;
    bool ok = false;
    ctx.clearError();
    if (!ctx.call(ctx.key(), "resetAdminPin", ok))
        return CliContext::Failed;
    if (!ok)
        return ctx.fail(QStringLiteral("the administrator PIN was not reset"));
    ctx.status(QStringLiteral("administrator PIN reset"));
    tellPin(ctx, true, kBuiltInAdminPin, "the library's built-in administrator PIN");
    return CliContext::Ok;
}

int PinCommands::pinInfo(CliContext &ctx)
{
    int rc = ctx.openSelectedKey();
    if (rc != CliContext::Ok)
        return rc;
    const struct
    {
        quint64 type;
        const char *name;
    } pins[] = {{kUserPin, "user"}, {kAdminPin, "admin"}};
    for (const auto &pin : pins) {
        quint64 max = 0, left = 0;
        if (!pinFigure(ctx, pin.type, kMaxRetries, &max) || !pinFigure(ctx, pin.type, kRemainingRetries, &left))
            return ctx.fail(QStringLiteral("cannot read the %1 PIN's retry counters").arg(QLatin1String(pin.name)));
        // The names of 'softtoken show'.
        ctx.out().set(QLatin1String(pin.name) + QStringLiteral("Pin"),
                      QJsonObject{{QStringLiteral("maxRetries"), double(max)}, {QStringLiteral("remaining"), double(left)}});
        ctx.print(QStringLiteral("%1 PIN: %2 of %3 tries left").arg(QLatin1String(pin.name)).arg(left).arg(max));
    }
    return CliContext::Ok;
}

int PinCommands::format(CliContext &ctx)
{
    int rc = openAndConfirm(ctx, QStringLiteral("Every file on the key is deleted, and the administrator PIN "
                                                "becomes the library's built-in one."));
    QString adminPin;
    if (rc == CliContext::Ok)
        rc = ctx.login(true, &adminPin);
    if (rc != CliContext::Ok)
        return rc;
    // The library's format wants the built-in administrator PIN, or the
    // package's default one; the PIN just proven is made the built-in one
    // first, so that no try is spent on PINs the token does not have.
    bool ok = false;
    ctx.clearError();
    if (adminPin != QLatin1String(kBuiltInAdminPin)) {
        if (!ctx.call(ctx.key(), "changePIN", ok, true, adminPin, QString::fromLatin1(kBuiltInAdminPin)))
            return CliContext::Failed;
        if (!ok)
            return ctx.pinFailure(QStringLiteral("the administrator PIN was not changed"), true);
        ctx.clearError();
    }
    if (!ctx.call(ctx.key(), "formatKey", ok))
        return CliContext::Failed;
    if (!ok)
        return ctx.fail(QStringLiteral("the key was not formatted"));
    ctx.status(QStringLiteral("key %1 formatted").arg(ctx.keyIndex()));
    tellPin(ctx, true, kBuiltInAdminPin, "the library's built-in administrator PIN");
    return CliContext::Ok;
}
