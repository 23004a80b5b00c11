#include "containercommands.h"

#include "blobconverter.h"
#include "clicontext.h"

#include <QJsonArray>
#include <QJsonObject>

namespace {

constexpr quint64 kSgdSm2_1 = 0x00020100;
constexpr int kContainerRsa = 1;
constexpr int kContainerSm2 = 2;

// The type as 'softtoken show' names it, and as the listing shows it.
QString typeName(int type, bool upper)
{
    const QString name = type == kContainerRsa ? QStringLiteral("rsa")
                         : type == kContainerSm2 ? QStringLiteral("sm2")
                         : type == 0           ? QStringLiteral("empty")
                                               : QStringLiteral("type %1").arg(type);
    return upper && type != 0 ? name.toUpper() : name;
}

int list(CliContext &ctx)
{
    QStringList names;
    ctx.clearError();
    if (!ctx.call(ctx.key(), "enumContainer", names))
        return CliContext::Failed;
    if (names.isEmpty() && ctx.failedSinceClear())
        return ctx.fail(QStringLiteral("cannot list the containers"));
    QJsonArray all;
    int rc = CliContext::Ok;
    for (const QString &name : qAsConst(names)) {
        Qt::HANDLE handle = nullptr;
        ctx.clearError();
        if (!ctx.call(ctx.key(), "openContainer", handle, name))
            return CliContext::Failed;
        const int type = handle ? ctx.containerType(handle, &rc) : -1;
        if (!handle)
            rc = ctx.fail(QStringLiteral("the container %1 does not open").arg(name));
        if (type < 0)
            continue;
        all.append(QJsonObject{{QStringLiteral("name"), name}, {QStringLiteral("type"), typeName(type, false)}});
        ctx.print(QStringLiteral("%1\t%2").arg(name, typeName(type, true)));
    }
    ctx.out().set(QStringLiteral("containers"), all);
    return rc;
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
    ctx.status(done.arg(name));
    return CliContext::Ok;
}

// The blob as PEM, or the blob itself as --format says.
int writePublicKey(CliContext &ctx, const QByteArray &blob)
{
    if (!ctx.has("pem"))
        return ctx.writeOutput(blob, QStringLiteral("publicKey")) ? CliContext::Ok : CliContext::Usage;
    QString error;
    const QByteArray pem = BlobConverter::publicBlobToPem(blob, &error);
    if (pem.isEmpty())
        return ctx.refuse(QStringLiteral("cannot convert the public key: %1").arg(error));
    return ctx.writeBytes(pem, CliContext::Encoding::Text, QStringLiteral("publicKey")) ? CliContext::Ok
                                                                                         : CliContext::Usage;
}

} // namespace

int ContainerCommands::containers(CliContext &ctx)
{
    const QStringList &args = ctx.args();
    const QString sub = args.value(0);
    const bool named = sub == QLatin1String("create") || sub == QLatin1String("rm");
    if (sub == QLatin1String("ls") ? args.size() != 1 : !named || args.size() != 2)
        return ctx.usage(QStringLiteral("containers ls | containers create NAME | containers rm NAME"));
    int rc = CliContext::Ok;
    if (sub == QLatin1String("create") && !ctx.storableName(QStringLiteral("container"), args.at(1), &rc))
        return rc;
    // Making and deleting containers takes the user PIN.
    rc = ctx.openSelectedKey(sub == QLatin1String("ls") ? CliContext::Login::IfGiven : CliContext::Login::User);
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
    const bool import = sub == QLatin1String("import");
    QByteArray der;
    if (import) {
        QByteArray input;
        if (!ctx.readInput(&input))
            return CliContext::Usage;
        der = BlobConverter::certificateToDer(input);
        if (der.isEmpty())
            return ctx.usage(QStringLiteral("the input holds no X.509 certificate, in PEM or DER"));
    }
    int rc = CliContext::Ok;
    // Importing takes the user PIN.
    Qt::HANDLE handle = ctx.selectedContainer(import ? CliContext::Login::User : CliContext::Login::IfGiven, false, &rc);
    if (!handle)
        return rc;
    ctx.clearError();
    if (import) {
        bool ok = false;
        if (!ctx.call(ctx.key(), "ImportCertificate", ok, handle, signCert, der))
            return CliContext::Failed;
        if (!ok)
            return ctx.fail(QStringLiteral("the certificate was not imported"));
        ctx.status(QStringLiteral("certificate imported (%1 bytes)").arg(der.size()));
        return CliContext::Ok;
    }
    if (!ctx.call(ctx.key(), "exportCertificate", der, handle, signCert))
        return CliContext::Failed;
    if (der.isEmpty())
        return ctx.fail(QStringLiteral("the container holds no such certificate"));
    const bool written = ctx.has("pem") ? ctx.writeBytes(BlobConverter::certificateToPem(der), CliContext::Encoding::Text,
                                                         QStringLiteral("certificate"))
                                        : ctx.writeOutput(der, QStringLiteral("certificate"));
    return written ? CliContext::Ok : CliContext::Usage;
}

int ContainerCommands::keygen(CliContext &ctx)
{
    const QString kind = ctx.args().value(0);
    const bool sm2 = kind == QLatin1String("sm2");
    if (ctx.args().size() != 1 || (!sm2 && kind != QLatin1String("rsa")))
        return ctx.usage(QStringLiteral("keygen sm2|rsa --container C [--bits N]"));
    if (ctx.has("enc"))
        return ctx.usage(QStringLiteral("tokens generate signing key pairs only; an encryption key pair is imported "
                                        "under the signing one"));
    quint64 bits = 2048;
    if (ctx.has("bits")) {
        if (sm2)
            return ctx.usage(QStringLiteral("--bits is for RSA keys"));
        if (!CliContext::parseNumber(ctx.value("bits"), &bits))
            return ctx.usage(QStringLiteral("--bits needs a number"));
    }
    int rc = CliContext::Ok;
    bool created = false;
    Qt::HANDLE handle = ctx.selectedContainer(CliContext::Login::User, true, &rc, &created);
    if (!handle)
        return rc;
    const QString container = ctx.value("container");
    const int type = created ? 0 : ctx.containerType(handle, &rc);
    if (type < 0)
        return rc;
    if (type != 0 && !ctx.has("force"))
        return ctx.refuse(QStringLiteral("the container %1 holds an %2 key pair; --force replaces it, and its "
                                         "certificates and encryption key pair with it")
                              .arg(container, typeName(type, true)));
    QByteArray blob;
    ctx.clearError();
    const bool found = sm2 ? ctx.call(ctx.key(), "genECCKeyPair", blob, handle, kSgdSm2_1)
                           : ctx.call(ctx.key(), "genRSAKeyPair", blob, handle, bits);
    if (found && blob.isEmpty() && created) {
        // No container of ours is left behind empty; the generation's
        // error is the one told.
        const uint code = ctx.lastError();
        bool deleted = false;
        ctx.call(ctx.key(), "deleteContainer", deleted, container);
        ctx.core().setLastError(code);
    }
    if (!found)
        return CliContext::Failed;
    if (blob.isEmpty())
        return ctx.fail(QStringLiteral("no key pair was generated"));
    const QString replaced = type ? QStringLiteral(", replacing an %1 key pair").arg(typeName(type, true)) : QString();
    ctx.status(sm2 ? QStringLiteral("SM2 key pair generated in container %1%2").arg(container, replaced)
                   : QStringLiteral("RSA %1-bit key pair generated in container %2%3").arg(bits).arg(container, replaced));
    // The new public key only when asked for.
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
