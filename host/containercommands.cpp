#include "containercommands.h"

#include "blobconverter.h"
#include "clicontext.h"

#include <QJsonArray>
#include <QJsonObject>

namespace {

constexpr quint64 kSgdSm2_1 = 0x00020100;

QString typeName(int type)
{
    switch (type) {
    case 0:
        return QStringLiteral("empty");
    case 1:
        return QStringLiteral("RSA");
    case 2:
        return QStringLiteral("SM2");
    default:
        return QStringLiteral("type %1").arg(type);
    }
}

int list(CliContext &ctx)
{
    QStringList names;
    ctx.clearError();
    if (!ctx.call(ctx.key(), "enumContainer", names))
        return CliContext::Failed;
    if (names.isEmpty() && ctx.lastError() != 0)
        return ctx.fail(QStringLiteral("cannot list the containers"));
    QJsonArray all;
    for (const QString &name : names) {
        Qt::HANDLE handle = nullptr;
        int type = 0;
        if (!ctx.call(ctx.key(), "openContainer", handle, name))
            return CliContext::Failed;
        if (handle && !ctx.call(ctx.key(), "getContainerType", type, handle))
            return CliContext::Failed;
        const QString kind = handle ? typeName(type) : QStringLiteral("does not open");
        all.append(QJsonObject{{QStringLiteral("name"), name}, {QStringLiteral("type"), type},
                               {QStringLiteral("typeName"), kind}});
        if (!ctx.json())
            ctx.print(QStringLiteral("%1\t%2").arg(name, kind));
    }
    if (ctx.json())
        ctx.printJson(all);
    return CliContext::Ok;
}

// createContainer or deleteContainer by name: R is what the method gives,
// a handle or a flag, empty or false when it failed.
template <typename R>
int changeContainer(CliContext &ctx, const char *method, const QString &name, const QString &failure,
                    const QString &done)
{
    R result{};
    ctx.clearError();
    if (!ctx.call(ctx.key(), method, result, name))
        return CliContext::Failed;
    if (!result)
        return ctx.fail(failure.arg(name));
    ctx.print(done.arg(name));
    return CliContext::Ok;
}

// The blob as PEM, or the blob itself as --format says.
int writePublicKey(CliContext &ctx, const QByteArray &blob)
{
    if (!ctx.has("pem"))
        return ctx.writeOutput(blob) ? CliContext::Ok : CliContext::Usage;
    QString error;
    const QByteArray pem = BlobConverter::publicBlobToPem(blob, &error);
    if (pem.isEmpty()) {
        ctx.warn(QStringLiteral("cannot convert the public key: %1").arg(error));
        return CliContext::Failed;
    }
    return ctx.writeBytes(pem, CliContext::Encoding::Raw) ? CliContext::Ok : CliContext::Usage;
}

} // namespace

int ContainerCommands::containers(CliContext &ctx)
{
    const QStringList &args = ctx.args();
    const QString sub = args.value(0);
    const bool named = sub == QLatin1String("create") || sub == QLatin1String("rm");
    if (sub == QLatin1String("ls") ? args.size() != 1 : !named || args.size() != 2)
        return ctx.usage(QStringLiteral("containers ls | containers create NAME | containers rm NAME"));
    int rc = ctx.openSelectedKey(CliContext::Login::IfGiven);
    if (rc != CliContext::Ok)
        return rc;
    if (sub == QLatin1String("ls"))
        return list(ctx);
    if (sub == QLatin1String("create"))
        return changeContainer<Qt::HANDLE>(ctx, "createContainer", args.at(1),
                                           QStringLiteral("cannot create the container %1"),
                                           QStringLiteral("container %1 created"));
    return changeContainer<bool>(ctx, "deleteContainer", args.at(1), QStringLiteral("cannot delete the container %1"),
                                 QStringLiteral("container %1 deleted"));
}

int ContainerCommands::cert(CliContext &ctx)
{
    const QString sub = ctx.args().value(0);
    if (ctx.args().size() != 1 || (sub != QLatin1String("import") && sub != QLatin1String("export")))
        return ctx.usage(QStringLiteral("cert import --container C [--in FILE] | cert export --container C"));
    const bool signCert = !ctx.has("enc");
    QByteArray der;
    if (sub == QLatin1String("import")) {
        QByteArray input;
        if (!ctx.readInput(&input))
            return CliContext::Usage;
        der = BlobConverter::certificateToDer(input);
        if (der.isEmpty())
            return ctx.usage(QStringLiteral("the input holds no certificate"));
    }
    int rc = CliContext::Ok;
    Qt::HANDLE handle = ctx.selectedContainer(CliContext::Login::IfGiven, false, &rc);
    if (!handle)
        return rc;
    ctx.clearError();
    if (sub == QLatin1String("import")) {
        bool ok = false;
        if (!ctx.call(ctx.key(), "ImportCertificate", ok, handle, signCert, der))
            return CliContext::Failed;
        if (!ok)
            return ctx.fail(QStringLiteral("the certificate was not imported"));
        ctx.print(QStringLiteral("certificate imported (%1 bytes)").arg(der.size()));
        return CliContext::Ok;
    }
    if (!ctx.call(ctx.key(), "exportCertificate", der, handle, signCert))
        return CliContext::Failed;
    if (der.isEmpty())
        return ctx.fail(QStringLiteral("the container holds no such certificate"));
    if (ctx.has("pem"))
        return ctx.writeBytes(BlobConverter::certificateToPem(der), CliContext::Encoding::Raw) ? CliContext::Ok
                                                                                              : CliContext::Usage;
    return ctx.writeOutput(der) ? CliContext::Ok : CliContext::Usage;
}

int ContainerCommands::keygen(CliContext &ctx)
{
    const QString kind = ctx.args().value(0);
    if (ctx.args().size() != 1 || (kind != QLatin1String("sm2") && kind != QLatin1String("rsa")))
        return ctx.usage(QStringLiteral("keygen sm2|rsa --container C [--bits N]"));
    quint64 bits = 2048;
    if (ctx.has("bits")) {
        if (kind != QLatin1String("rsa"))
            return ctx.usage(QStringLiteral("--bits is for RSA keys"));
        if (!CliContext::parseNumber(ctx.value("bits"), &bits))
            return ctx.usage(QStringLiteral("--bits needs a number"));
    }
    int rc = CliContext::Ok;
    Qt::HANDLE handle = ctx.selectedContainer(CliContext::Login::User, true, &rc);
    if (!handle)
        return rc;
    QByteArray blob;
    ctx.clearError();
    const bool found = kind == QLatin1String("sm2") ? ctx.call(ctx.key(), "genECCKeyPair", blob, handle, kSgdSm2_1)
                                                     : ctx.call(ctx.key(), "genRSAKeyPair", blob, handle, bits);
    if (!found)
        return CliContext::Failed;
    if (blob.isEmpty())
        return ctx.fail(QStringLiteral("no key pair was generated"));
    const QString container = ctx.value("container");
    if (kind == QLatin1String("sm2"))
        ctx.print(QStringLiteral("SM2 key pair generated in container %1").arg(container));
    else
        ctx.print(QStringLiteral("RSA %1-bit key pair generated in container %2").arg(bits).arg(container));
    // The new public key only when asked for, so the line above stays alone.
    if (!ctx.has("pem") && !ctx.has("out"))
        return CliContext::Ok;
    return writePublicKey(ctx, blob);
}

int ContainerCommands::pubkey(CliContext &ctx)
{
    if (!ctx.args().isEmpty())
        return ctx.usage(QStringLiteral("pubkey --container C [--enc] [--pem]"));
    int rc = CliContext::Ok;
    Qt::HANDLE handle = ctx.selectedContainer(CliContext::Login::IfGiven, false, &rc);
    if (!handle)
        return rc;
    QByteArray blob;
    if (!ctx.publicKey(handle, !ctx.has("enc"), &blob, &rc))
        return rc;
    return writePublicKey(ctx, blob);
}
