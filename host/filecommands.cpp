#include "filecommands.h"

#include "clicontext.h"

#include <QJsonArray>
#include <QJsonObject>

namespace {

int list(CliContext &ctx)
{
    QStringList names;
    ctx.clearError();
    if (!ctx.call(ctx.key(), "enumFiles", names))
        return CliContext::Failed;
    // A failed listing may leave no last error, only the library's error
    // line: either is a failure, not an empty application.
    if (names.isEmpty() && ctx.failedSinceClear())
        return ctx.fail(QStringLiteral("cannot list the files"));
    QJsonArray files;
    for (const QString &name : qAsConst(names)) {
        files.append(QJsonObject{{QStringLiteral("name"), name}});
        ctx.print(name);
    }
    ctx.out().set(QStringLiteral("files"), files);
    return CliContext::Ok;
}

int get(CliContext &ctx, const QString &name)
{
    QByteArray data;
    ctx.clearError();
    // The one-argument form: the whole file from offset 0.
    if (!ctx.call(ctx.key(), "readFile", data, name))
        return CliContext::Failed;
    if (data.isEmpty() && ctx.failedSinceClear())
        return ctx.fail(QStringLiteral("cannot read the file %1").arg(name));
    return ctx.writeOutput(data, QStringLiteral("data")) ? CliContext::Ok : CliContext::Usage;
}

int put(CliContext &ctx, const QString &name)
{
    QByteArray data;
    int rc = CliContext::Ok;
    if (!ctx.storableName(QStringLiteral("file"), name, &rc))
        return rc;
    if (!ctx.readInput(&data))
        return CliContext::Usage;
    // The package says whether files may be created before a login.
    bool needsPin = false;
    if (!ctx.call(ctx.key(), "createFileByVerifyPin", needsPin))
        return CliContext::Failed;
    rc = needsPin ? ctx.login(false) : ctx.loginIfGiven();
    if (rc != CliContext::Ok)
        return rc;
    bool ok = false;
    ctx.clearError();
    if (!ctx.call(ctx.key(), "writeFileV1", ok, name, data))
        return CliContext::Failed;
    if (!ok)
        return ctx.fail(QStringLiteral("cannot write the file %1").arg(name));
    ctx.status(QStringLiteral("%1: %2 bytes written").arg(name).arg(data.size()));
    return CliContext::Ok;
}

int remove(CliContext &ctx, const QString &name)
{
    const int rc = ctx.loginIfGiven();
    if (rc != CliContext::Ok)
        return rc;
    bool ok = false;
    ctx.clearError();
    if (!ctx.call(ctx.key(), "deleteFile", ok, name))
        return CliContext::Failed;
    if (!ok)
        return ctx.fail(QStringLiteral("cannot delete the file %1").arg(name));
    ctx.status(QStringLiteral("%1 deleted").arg(name));
    return CliContext::Ok;
}

// --name as a number, into *value; false after a usage report.
bool numberOption(CliContext &ctx, const char *name, quint64 *value, int *rc)
{
    if (!CliContext::parseNumber(ctx.value(name), value)) {
        *rc = ctx.usage(QStringLiteral("--%1 needs a number").arg(QLatin1String(name)));
        return false;
    }
    return true;
}

} // namespace

int FileCommands::files(CliContext &ctx)
{
    const QStringList &args = ctx.args();
    const QString sub = args.value(0);
    const bool needsName = sub == QLatin1String("get") || sub == QLatin1String("put") || sub == QLatin1String("rm");
    if (sub == QLatin1String("ls") ? args.size() != 1 : !needsName || args.size() != 2)
        return ctx.usage(QStringLiteral("files ls | files get NAME | files put NAME | files rm NAME"));
    int rc = ctx.openSelectedKey();
    if (rc != CliContext::Ok)
        return rc;
    if (sub == QLatin1String("ls"))
        return list(ctx);
    const QString name = args.at(1);
    if (sub == QLatin1String("get"))
        return get(ctx, name);
    if (sub == QLatin1String("put"))
        return put(ctx, name);
    return remove(ctx, name);
}

int FileCommands::seal(CliContext &ctx)
{
    const QString sub = ctx.args().value(0);
    if (ctx.args().size() != 1 || (sub != QLatin1String("read") && sub != QLatin1String("write")))
        return ctx.usage(QStringLiteral("seal read --index N --alg ALG | seal write [--in FILE]"));
    const bool withFlags = ctx.has("flags");
    quint64 flags = 0;
    int rc = CliContext::Ok;
    if (withFlags && !numberOption(ctx, "flags", &flags, &rc))
        return rc;

    if (sub == QLatin1String("read")) {
        quint64 index = 0, alg = 0;
        if (!ctx.has("index") || !ctx.has("alg"))
            return ctx.usage(QStringLiteral("seal read needs --index N and --alg ALG"));
        if (!numberOption(ctx, "index", &index, &rc) || !numberOption(ctx, "alg", &alg, &rc))
            return rc;
        if ((rc = ctx.openSelectedKey(CliContext::Login::IfGiven)) != CliContext::Ok)
            return rc;
        QByteArray data;
        ctx.clearError();
        // Without --flags the shorter form, which passes flags 0.
        const bool found = withFlags ? ctx.call(ctx.key(), "epsReadESealData", data, index, alg, flags)
                                     : ctx.call(ctx.key(), "epsReadESealData", data, index, alg);
        if (!found)
            return CliContext::Failed;
        if (data.isEmpty() && ctx.failedSinceClear())
            return ctx.fail(QStringLiteral("cannot read the seal data"));
        return ctx.writeOutput(data, QStringLiteral("sealData")) ? CliContext::Ok : CliContext::Usage;
    }

    QByteArray data;
    if (!ctx.readInput(&data))
        return CliContext::Usage;
    // Writing the seal data takes the user PIN.
    if ((rc = ctx.openSelectedKey(CliContext::Login::User)) != CliContext::Ok)
        return rc;
    const quint64 size = quint64(data.size());
    bool ok = false;
    ctx.clearError();
    const bool found = withFlags ? ctx.call(ctx.key(), "epsWriteESealData", ok, data, size, flags)
                                 : ctx.call(ctx.key(), "epsWriteESealData", ok, data, size);
    if (!found)
        return CliContext::Failed;
    if (!ok)
        return ctx.fail(QStringLiteral("cannot write the seal data"));
    ctx.status(QStringLiteral("seal data written: %1 bytes").arg(data.size()));
    return CliContext::Ok;
}
