#include "cryptocommands.h"

#include "batchrun.h"
#include "blobconverter.h"
#include "clicontext.h"

#include <cstring>

namespace {

constexpr int kContainerRsa = 1;
constexpr int kContainerSm2 = 2;
constexpr quint64 kSgdSm3 = 0x00000001;
constexpr quint64 kSgdSha1 = 0x00000002;
constexpr quint64 kSgdSha256 = 0x00000004;
constexpr quint64 kSgdSm4Ecb = 0x00000401;
constexpr quint64 kSgdSm4Cbc = 0x00000402;
constexpr int kSm4Block = 16;
// BLOCKCIPHERPARAM: IV[32], then IVLen, PaddingType, FeedBitLen (32-bit each).
constexpr int kCipherParamSize = 44;
constexpr int kIvField = 32;
// The default user id of SM2 signatures.
const char kDefaultUserId[] = "1234567812345678";

// The form options of sign and verify, read once for all inputs.
struct SignForm
{
    explicit SignForm(const CliContext &ctx)
        : raw(ctx.has("raw")), noZ(ctx.has("no-z")), der(ctx.value("format") == QLatin1String("der"))
    {
    }
    bool raw;
    bool noZ;
    bool der;
};

// The token's SM3/SHA hash of data, through a hash object that is given back.
bool tokenDigest(CliContext &ctx, quint64 alg, const QByteArray &pubkey, const QString &id, const QByteArray &data,
                 QByteArray *value, int *rc)
{
    Qt::HANDLE hash = nullptr;
    ctx.clearError();
    if (!ctx.call(ctx.key(), "digestInit", hash, alg, pubkey, id)) {
        *rc = CliContext::Failed;
        return false;
    }
    if (!hash) {
        *rc = ctx.fail(QStringLiteral("the key refused to start a hash"));
        return false;
    }
    const bool found = ctx.call(ctx.key(), "digest", *value, hash, data);
    const uint code = ctx.lastError();
    ctx.callVoid(ctx.key(), "closeHandle", hash);
    if (!found) {
        *rc = CliContext::Failed;
        return false;
    }
    if (value->isEmpty()) {
        ctx.core().setLastError(code);
        *rc = ctx.fail(QStringLiteral("the key did not hash the data"));
        return false;
    }
    return true;
}

// The signature file decoded as --format says, as r||s. Empty if unreadable.
QByteArray compactSignature(const QByteArray &bytes, bool der)
{
    if (der)
        return BlobConverter::derToCompact(bytes);
    if (bytes.size() == BlobConverter::kCompactSignatureSize)
        return bytes;
    if (bytes.size() == BlobConverter::kEccSignatureBlobSize)
        return BlobConverter::signatureBlobToCompact(bytes);
    return BlobConverter::derToCompact(bytes);
}

struct CipherOptions
{
    quint64 alg = 0;
    bool cbc = false;
    quint32 padding = 0;
};

// The options encrypt and decrypt share; keyFile is the option naming the
// wrapped key's file. False after the report.
bool cipherOptions(CliContext &ctx, const char *command, const char *keyFile, CipherOptions *out)
{
    const QString mode = ctx.value("mode", QStringLiteral("ecb"));
    const QString pad = ctx.value("padding", QStringLiteral("pkcs5"));
    if (!ctx.args().isEmpty() || !ctx.has(keyFile) || (mode != QLatin1String("ecb") && mode != QLatin1String("cbc"))
        || (pad != QLatin1String("pkcs5") && pad != QLatin1String("none"))) {
        ctx.usage(QStringLiteral("%1 --container C --%2 FILE [--in FILE] [--out FILE] [--mode ecb|cbc] "
                                 "[--padding pkcs5|none]")
                      .arg(QLatin1String(command), QLatin1String(keyFile)));
        return false;
    }
    out->cbc = mode == QLatin1String("cbc");
    out->alg = out->cbc ? kSgdSm4Cbc : kSgdSm4Ecb;
    out->padding = pad == QLatin1String("pkcs5") ? 1 : 0;
    return true;
}

// The 44 bytes of a BLOCKCIPHERPARAM, in the machine's byte order.
QByteArray cipherParam(const QByteArray &iv, quint32 padding)
{
    QByteArray param(kCipherParamSize, '\0');
    std::memcpy(param.data(), iv.constData(), size_t(qMin(iv.size(), kIvField)));
    const quint32 fields[3] = {quint32(iv.size()), padding, 0};
    std::memcpy(param.data() + kIvField, fields, sizeof fields);
    return param;
}

// Init, one whole-buffer call and the key handle given back: encrypt or decrypt.
bool runCipher(CliContext &ctx, Qt::HANDLE hKey, bool encrypting, const QByteArray &param, const QByteArray &in,
               QByteArray *out, int *rc)
{
    const char *init = encrypting ? "encryptInit" : "decryptInit";
    const char *run = encrypting ? "encrypt" : "decrypt";
    const quint64 length = quint64(in.size());
    bool ok = false;
    bool found = ctx.call(ctx.key(), init, ok, hKey, param);
    if (found && ok)
        found = ctx.call(ctx.key(), run, *out, hKey, in, length);
    const uint code = ctx.lastError();
    ctx.callVoid(ctx.key(), "closeHandle", hKey);
    ctx.core().setLastError(code);
    if (!found) {
        *rc = CliContext::Failed;
        return false;
    }
    if (!ok || out->isEmpty()) {
        *rc = ctx.fail(encrypting ? QStringLiteral("the key did not encrypt the data")
                                  : QStringLiteral("the key did not decrypt the data"));
        return false;
    }
    return true;
}

// The container's signature of data in the form sign writes; empty after
// a report, with the exit code in *rc.
QByteArray signData(CliContext &ctx, Qt::HANDLE handle, int type, const SignForm &form, const QByteArray &data, int *rc)
{
    QByteArray signature;
    *rc = CliContext::Failed;
    ctx.clearError();
    if (type == kContainerRsa) {
        // The token signs what it is given: PKCS#1 needs the DigestInfo here.
        const QByteArray input = form.raw ? data : BlobConverter::sha256DigestInfo(data);
        if (!ctx.call(ctx.key(), "rsaSignData", signature, handle, input))
            return QByteArray();
    } else if (form.raw) {
        if (!ctx.call(ctx.key(), "eccSignData", signature, handle, data))
            return QByteArray();
        if (signature.size() != BlobConverter::kEccSignatureBlobSize)
            signature.clear();
        else if (form.der)
            signature = BlobConverter::compactToDer(BlobConverter::signatureBlobToCompact(signature));
    } else {
        const bool withZ = !form.noZ;
        if (!ctx.call(ctx.key(), "eccSimpleSign", signature, handle, data, withZ))
            return QByteArray();
        // A refused signature comes back shorter than 64 bytes.
        if (signature.size() != BlobConverter::kCompactSignatureSize)
            signature.clear();
        else if (form.der)
            signature = BlobConverter::compactToDer(signature);
    }
    if (signature.isEmpty()) {
        *rc = ctx.fail(QStringLiteral("the key did not sign"));
        return QByteArray();
    }
    *rc = CliContext::Ok;
    return signature;
}

// A signature file's bytes as --format says they are written; without it,
// hex and base64 text are recognised.
QByteArray decodedSignature(const QByteArray &bytes, const QString &format)
{
    if (format == QLatin1String("hex"))
        return QByteArray::fromHex(bytes.trimmed());
    if (format == QLatin1String("base64"))
        return QByteArray::fromBase64(bytes.trimmed());
    return format.isEmpty() ? BlobConverter::fromText(bytes) : bytes;
}

// Checks sig over data with the container's signing key, in the form the
// options name. Ok, or the exit code after a report.
int checkSignature(CliContext &ctx, Qt::HANDLE handle, int type, const SignForm &form, const QByteArray &data,
                   const QByteArray &sig)
{
    bool valid = false;
    int rc = CliContext::Ok;
    if (type == kContainerSm2) {
        const QByteArray compact = compactSignature(sig, form.der);
        if (compact.isEmpty())
            return ctx.usage(QStringLiteral("the signature file holds no SM2 signature"));
        if (form.raw || form.noZ) {
            // The plain verification: the caller's data, or the token's hash
            // without the public key, against the signing public key.
            QByteArray pub, hashed = data;
            if (!ctx.publicKey(handle, true, &pub, &rc))
                return rc;
            if (form.noZ && !tokenDigest(ctx, kSgdSm3, QByteArray(), QLatin1String(kDefaultUserId), data, &hashed, &rc))
                return rc;
            ctx.clearError();
            if (!ctx.call(ctx.key(), "eccVerify", valid, pub, hashed, BlobConverter::compactToSignatureBlob(compact)))
                return CliContext::Failed;
        } else {
            const bool withZ = true;
            ctx.clearError();
            if (!ctx.call(ctx.key(), "eccSimpleVerify", valid, handle, data, compact, withZ))
                return CliContext::Failed;
        }
    } else {
        QByteArray pub;
        if (!ctx.publicKey(handle, true, &pub, &rc))
            return rc;
        const QByteArray input = form.raw ? data : BlobConverter::sha256DigestInfo(data);
        ctx.clearError();
        if (!ctx.call(ctx.key(), "rsaVerify", valid, pub, input, sig))
            return CliContext::Failed;
    }
    return valid ? int(CliContext::Ok) : ctx.fail(QStringLiteral("the signature does not verify"));
}

// The key's container and its type once the inputs are known: 0 and the
// exit code in *rc after a report.
int signingContainer(CliContext &ctx, CliContext::Login login, Qt::HANDLE *handle, int *rc)
{
    *handle = ctx.selectedContainer(login, false, rc);
    if (!*handle)
        return 0;
    const int type = ctx.containerType(*handle, rc);
    if (type == kContainerRsa || type == kContainerSm2)
        return type;
    if (type >= 0)
        *rc = ctx.fail(QStringLiteral("the container holds no key pair"));
    return 0;
}

} // namespace

int CryptoCommands::sign(CliContext &ctx)
{
    const SignForm form(ctx);
    if (form.raw && ctx.has("compact"))
        return ctx.usage(QStringLiteral("sign --container C [--in FILE] [--raw|--compact] [--no-z]"));
    BatchRun batch(ctx, BatchRun::Mode::Sign);
    QByteArray data;
    if (batch.wanted() ? !batch.prepare() : !ctx.readInput(&data))
        return CliContext::Usage;
    Qt::HANDLE handle = nullptr;
    int rc = CliContext::Ok;
    const int type = signingContainer(ctx, CliContext::Login::User, &handle, &rc);
    if (!type)
        return rc;
    if (type == kContainerRsa && (form.der || form.noZ))
        return ctx.usage(QStringLiteral("--format der and --no-z are for SM2 signatures"));
    if (!batch.wanted()) {
        const QByteArray signature = signData(ctx, handle, type, form, data, &rc);
        if (signature.isEmpty())
            return rc;
        return ctx.writeOutput(signature, QStringLiteral("signature")) ? CliContext::Ok : CliContext::Usage;
    }
    // Signature files are raw unless --format says otherwise.
    const CliContext::Encoding encoding = ctx.has("format") ? ctx.outputEncoding() : CliContext::Encoding::Raw;
    return batch.run([&](const QString &input, const QString &signatureFile) {
        QByteArray message;
        if (!ctx.readFile(input, &message))
            return int(CliContext::Usage);
        int result = CliContext::Ok;
        const QByteArray signature = signData(ctx, handle, type, form, message, &result);
        if (signature.isEmpty())
            return result;
        return ctx.writeFile(signatureFile, CliContext::encode(signature, encoding)) ? int(CliContext::Ok)
                                                                                      : int(CliContext::Usage);
    });
}

int CryptoCommands::verify(CliContext &ctx)
{
    const SignForm form(ctx);
    const QString format = ctx.value("format");
    BatchRun batch(ctx, BatchRun::Mode::Verify);
    if (!batch.wanted() && !ctx.has("sig"))
        return ctx.usage(QStringLiteral("verify needs --sig FILE, or the files of a batch"));
    QByteArray data, sig;
    if (batch.wanted() ? !batch.prepare()
                       : !ctx.readInput(&data) || !ctx.readFile(ctx.value("sig"), &sig))
        return CliContext::Usage;
    Qt::HANDLE handle = nullptr;
    int rc = CliContext::Ok;
    const int type = signingContainer(ctx, CliContext::Login::IfGiven, &handle, &rc);
    if (!type)
        return rc;
    if (!batch.wanted()) {
        rc = checkSignature(ctx, handle, type, form, data, decodedSignature(sig, format));
        if (rc == CliContext::Ok)
            ctx.status(QStringLiteral("signature verified"));
        return rc;
    }
    return batch.run([&](const QString &input, const QString &signatureFile) {
        QByteArray message, bytes;
        if (!ctx.readFile(input, &message) || !ctx.readFile(signatureFile, &bytes))
            return int(CliContext::Usage);
        return checkSignature(ctx, handle, type, form, message, decodedSignature(bytes, format));
    });
}

int CryptoCommands::digest(CliContext &ctx)
{
    const QString name = ctx.value("alg");
    quint64 alg = 0;
    if (name == QLatin1String("sm3"))
        alg = kSgdSm3;
    else if (name == QLatin1String("sha1"))
        alg = kSgdSha1;
    else if (name == QLatin1String("sha256"))
        alg = kSgdSha256;
    if (!ctx.args().isEmpty() || alg == 0)
        return ctx.usage(QStringLiteral("digest --alg sm3|sha1|sha256 [--in FILE] [--container C] [--id ID]"));
    const bool withKey = ctx.has("container");
    if (withKey && alg != kSgdSm3)
        return ctx.usage(QStringLiteral("--container is for SM3 with the signer's public key"));
    QByteArray data;
    if (!ctx.readInput(&data))
        return CliContext::Usage;
    int rc = ctx.openSelectedKey(CliContext::Login::IfGiven);
    if (rc != CliContext::Ok)
        return rc;
    QByteArray pub;
    QString id = ctx.value("id");
    if (withKey) {
        Qt::HANDLE handle = ctx.container(false, &rc);
        if (!handle || !ctx.publicKey(handle, true, &pub, &rc))
            return rc;
        if (!ctx.has("id"))
            id = QLatin1String(kDefaultUserId);
    }
    QByteArray value;
    if (!tokenDigest(ctx, alg, pub, id, data, &value, &rc))
        return rc;
    return ctx.writeOutput(value, QStringLiteral("digest")) ? CliContext::Ok : CliContext::Usage;
}

int CryptoCommands::encrypt(CliContext &ctx)
{
    CipherOptions opt;
    if (!cipherOptions(ctx, "encrypt", "key-out", &opt))
        return CliContext::Usage;
    QByteArray data;
    if (!ctx.readInput(&data))
        return CliContext::Usage;
    int rc = CliContext::Ok;
    Qt::HANDLE handle = ctx.selectedContainer(CliContext::Login::IfGiven, false, &rc);
    QByteArray pub;
    if (!handle || !ctx.publicKey(handle, false, &pub, &rc))
        return rc;

    // A fresh SM4 key made on the token, wrapped under the container's
    // encryption key: the blob is what decrypt needs to get it back.
    Qt::HANDLE hKey = nullptr;
    QByteArray wrapped;
    ctx.clearError();
    if (!ctx.call(ctx.key(), "eccExportSessionKey", wrapped, handle, opt.alg, pub, TWPtr{"Qt::HANDLE*", &hKey}))
        return CliContext::Failed;
    if (wrapped.isEmpty() || !hKey)
        return ctx.fail(QStringLiteral("the key made no session key"));

    const QByteArray iv = opt.cbc ? BlobConverter::randomBytes(kSm4Block) : QByteArray();
    QByteArray cipher;
    if (!runCipher(ctx, hKey, true, cipherParam(iv, opt.padding), data, &cipher, &rc))
        return rc;
    if (!ctx.writeFile(ctx.value("key-out"), wrapped))
        return CliContext::Usage;
    // CBC output carries its IV in front.
    return ctx.writeOutput(iv + cipher) ? CliContext::Ok : CliContext::Usage;
}

int CryptoCommands::decrypt(CliContext &ctx)
{
    CipherOptions opt;
    if (!cipherOptions(ctx, "decrypt", "key-in", &opt))
        return CliContext::Usage;
    QByteArray input, wrapped;
    if (!ctx.readInput(&input) || !ctx.readFile(ctx.value("key-in"), &wrapped))
        return CliContext::Usage;
    const QByteArray iv = opt.cbc ? input.left(kSm4Block) : QByteArray();
    const QByteArray cipher = opt.cbc ? input.mid(kSm4Block) : input;
    if (iv.size() != (opt.cbc ? kSm4Block : 0) || cipher.isEmpty())
        return ctx.usage(QStringLiteral("the input holds no ciphertext"));
    int rc = CliContext::Ok;
    Qt::HANDLE handle = ctx.selectedContainer(CliContext::Login::User, false, &rc);
    if (!handle)
        return rc;
    Qt::HANDLE hKey = nullptr;
    const quint64 wrappedLength = quint64(wrapped.size());
    ctx.clearError();
    if (!ctx.call(ctx.key(), "importSessionKey", hKey, handle, opt.alg, wrapped, wrappedLength))
        return CliContext::Failed;
    if (!hKey)
        return ctx.fail(QStringLiteral("the key did not take the session key"));
    QByteArray plain;
    if (!runCipher(ctx, hKey, false, cipherParam(iv, opt.padding), cipher, &plain, &rc))
        return rc;
    return ctx.writeOutput(plain) ? CliContext::Ok : CliContext::Usage;
}
