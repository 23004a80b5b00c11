// twkey: drives the key library from the command line, the way a host does:
// it loads libTWKey.so at run time, hands it a core object, and calls the
// key manager and the keys by method name only.
#include "clicontext.h"
#include "containercommands.h"
#include "cryptocommands.h"
#include "filecommands.h"
#include "infocommands.h"
#include "pincommands.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>

namespace {

struct Command
{
    const char *name;
    int (*run)(CliContext &);
    const char *usage;
    const char *help;
};

const Command kCommands[] = {
    {"version", InfoCommands::version, "version",
     "Print the library's version text. The library is asked for the size of\n"
     "the text only (TW_GetVersion with a null buffer); its fill call is built\n"
     "to return -1, so the text printed is twkey's own copy, V10.0.0.4, shown\n"
     "once the library reports its size as 9. Needs no key manager."},
    {"list", InfoCommands::list, "list [--json]",
     "Count the keys (count()) and show each: index, label, serial number\n"
     "(limited and whole), manufacturer, hardware and firmware versions, total\n"
     "and free space, driver type and package path."},
    {"info", InfoCommands::info, "info [N] [--json]", "Show one key, N or --key (default 0)."},
    {"login", PinCommands::login, "login [--admin] [--pin P | --pin-fd FD]",
     "Verify the user PIN, or the administrator PIN with --admin. A login lasts\n"
     "as long as the process: commands that need one take the PIN themselves."},
    {"change-pin", PinCommands::changePin, "change-pin [--admin] [--pin OLD] [--new-pin NEW]",
     "Change the user PIN (or the administrator PIN with --admin). Without the\n"
     "options both PINs are asked for on the terminal, the new one twice; with\n"
     "--pin-fd the old and the new PIN are the first two lines."},
    {"unblock", PinCommands::unblock, "unblock [--pin ADMINPIN | --builtin] [--new-pin NEW]",
     "Unblock the user PIN with the administrator PIN and set a new one. With\n"
     "--builtin the library tries its own administrator PINs and the user PIN\n"
     "becomes the library's default."},
    {"reset-admin-pin", PinCommands::resetAdminPin, "reset-admin-pin",
     "Bring the administrator PIN back to the library's built-in one (from the\n"
     "package's default administrator PIN)."},
    {"pin-info", PinCommands::pinInfo, "pin-info [--json]",
     "Show the maximum and remaining tries of the user and administrator PINs."},
    {"files", FileCommands::files, "files ls | get NAME [--out F] | put NAME [--in F] | rm NAME",
     "Files on the key. put replaces the file with the input; it logs in first\n"
     "when the package asks for that, or when a PIN is given."},
    {"containers", ContainerCommands::containers, "containers ls | create NAME | rm NAME",
     "Containers of the key's application, with the type of each."},
    {"cert", ContainerCommands::cert, "cert import|export --container C [--enc] [--in F] [--out F] [--pem]",
     "Import a certificate (DER or PEM in) into the signing slot of the\n"
     "container, or the encryption slot with --enc; export one as DER or PEM."},
    {"format", PinCommands::format, "format [--yes]",
     "Delete every file on the key and set the administrator PIN to the\n"
     "library's built-in one. Containers and certificates stay. Asks first\n"
     "unless --yes."},
    {"keygen", ContainerCommands::keygen, "keygen sm2|rsa --container C [--bits N] [--pem] [--out F]",
     "Generate a signing key pair in the container, made if missing. RSA keys\n"
     "have 2048 bits unless --bits says otherwise. Needs the user PIN."},
    {"pubkey", ContainerCommands::pubkey, "pubkey --container C [--enc] [--pem] [--out F] [--format F]",
     "Export the signing public key (--enc: the encryption one) as the token's\n"
     "blob, or with --pem as a SubjectPublicKeyInfo PEM (SM2 keys on the SM2\n"
     "curve, readable by openssl)."},
    {"sign", CryptoCommands::sign,
     "sign --container C [--in F | FILE... | --list F] [--raw|--compact] [--no-z] [--out F | --out-dir D] [--format F]",
     "Sign the input (default: standard input). SM2: the token hashes with SM3\n"
     "over the public key and the id 1234567812345678 and gives the 64-byte\n"
     "r||s (--compact, the default; --no-z leaves out the public key); --raw\n"
     "signs the input as it is into the token's 128-byte signature blob;\n"
     "--format der writes a DER signature that openssl verifies. RSA: PKCS#1\n"
     "v1.5 over SHA-256 of the input (--raw: the input as it is). Needs the\n"
     "user PIN.\n"
     "Given FILEs, or a list of paths, one a line, in --list F (- for standard\n"
     "input), signs each with one login into FILE.sig, or into --out-dir D,\n"
     "raw unless --format says otherwise. Each input is reported; one that\n"
     "fails doesn't stop the rest (unless --stop-on-error); --json gives one\n"
     "result per input; exit 1 when any failed."},
    {"verify", CryptoCommands::verify,
     "verify --container C [--sig F [--in F] | FILE... | --list F] [--sig-dir D] [--raw] [--no-z] [--format F]",
     "Verify a signature made by sign with the same options. The signature\n"
     "file is raw (r||s, the 128-byte blob or DER), hex, base64 or der as\n"
     "--format says. Given FILEs or --list F, verifies each against FILE.sig,\n"
     "or the .sig of its name in --sig-dir D, and reports each as sign does."},
    {"digest", CryptoCommands::digest, "digest --alg sm3|sha1|sha256 [--in F] [--container C] [--id ID]",
     "Hash the input on the key. With --container (SM3 only) the hash covers\n"
     "the container's public key and the id, 1234567812345678 by default."},
    {"encrypt", CryptoCommands::encrypt,
     "encrypt --container C --key-out F [--in F] [--out F] [--mode ecb|cbc] [--padding pkcs5|none]",
     "Encrypt with SM4 under a session key made on the key and wrapped under\n"
     "the container's encryption public key. The wrapped key (197 bytes) goes\n"
     "to --key-out; CBC output starts with its 16-byte IV."},
    {"decrypt", CryptoCommands::decrypt,
     "decrypt --container C --key-in F [--in F] [--out F] [--mode ecb|cbc] [--padding pkcs5|none]",
     "Unwrap the session key of --key-in in the container and decrypt the\n"
     "input with it. Needs the user PIN."},
    {"seal", FileCommands::seal, "seal read --index N --alg A [--flags F] | seal write [--in F] [--flags F]",
     "Read or write the electronic seal data on the key."},
};

const char kGlobalHelp[] =
    "Options for every command:\n"
    "  --bin-path DIR   folder whose kdp/ holds the key driver packages\n"
    "                   (default: the folder of twkey)\n"
    "  --lib PATH       the library to load (default: libTWKey.so beside twkey)\n"
    "  --log FILE       append the library's log lines to FILE\n"
    "  --verbose        echo the library's log lines on standard error\n"
    "  --json           JSON output where a command has it\n"
    "  --key N          the key to use (default 0)\n"
    "  --pin P, --pin-fd FD\n"
    "                   the PIN, or a file descriptor to read it from (one per\n"
    "                   line); otherwise it is asked for on the terminal\n"
    "  --out F, --format raw|hex|base64|der\n"
    "                   binary results go raw into F, or as hex on standard\n"
    "                   output unless --format says otherwise\n"
    "\n"
    "Exit codes: 0 done; 1 the key or the library refused (the last error is\n"
    "printed as \"error 0x%08X: text\"); 2 bad usage or unreadable input;\n"
    "3 the library could not be loaded; 4 no key at that index.\n";

const Command *findCommand(const QString &name)
{
    for (const Command &c : kCommands) {
        if (name == QLatin1String(c.name))
            return &c;
    }
    return nullptr;
}

void printHelp(const Command *command)
{
    if (command) {
        std::printf("Usage: twkey [options] %s\n\n%s\n\n%s", command->usage, command->help, kGlobalHelp);
        return;
    }
    std::printf("Usage: twkey [options] COMMAND [arguments]\n\nCommands:\n");
    for (const Command &c : kCommands)
        std::printf("  %s\n", c.usage);
    std::printf("\n%s\n'twkey help COMMAND' tells more about one command.\n", kGlobalHelp);
}

void addOptions(QCommandLineParser &parser)
{
    const struct
    {
        const char *name;
        const char *value;
    } options[] = {
        {"bin-path", "DIR"}, {"lib", "PATH"},  {"log", "FILE"},    {"verbose", nullptr}, {"json", nullptr},
        {"key", "N"},        {"pin", "PIN"},   {"pin-fd", "FD"},   {"new-pin", "PIN"},   {"admin", nullptr},
        {"builtin", nullptr}, {"in", "FILE"},  {"out", "FILE"},    {"format", "F"},      {"container", "C"},
        {"enc", nullptr},    {"pem", nullptr}, {"bits", "N"},      {"raw", nullptr},     {"compact", nullptr},
        {"no-z", nullptr},   {"alg", "A"},     {"id", "ID"},       {"sig", "FILE"},      {"key-out", "FILE"},
        {"key-in", "FILE"},  {"mode", "M"},    {"padding", "P"},   {"index", "N"},       {"flags", "F"},
        {"yes", nullptr},    {"help", nullptr}, {"list", "FILE"},  {"out-dir", "DIR"}, {"sig-dir", "DIR"},
        {"stop-on-error", nullptr},
    };
    for (const auto &o : options) {
        QCommandLineOption option(QLatin1String(o.name), QString());
        if (o.value)
            option.setValueName(QLatin1String(o.value));
        parser.addOption(option);
    }
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    addOptions(parser);
    if (!parser.parse(app.arguments())) {
        std::fprintf(stderr, "twkey: %s\nTry 'twkey help'.\n", qPrintable(parser.errorText()));
        return CliContext::Usage;
    }
    QStringList args = parser.positionalArguments();
    const QString name = args.value(0);
    if (name.isEmpty() || name == QLatin1String("help") || parser.isSet(QStringLiteral("help"))) {
        const QString topic = name == QLatin1String("help") ? args.value(1) : name;
        const Command *command = findCommand(topic);
        if (!topic.isEmpty() && !command) {
            std::fprintf(stderr, "twkey: no command %s\n", qPrintable(topic));
            return CliContext::Usage;
        }
        printHelp(command);
        return name.isEmpty() && !parser.isSet(QStringLiteral("help")) ? CliContext::Usage : CliContext::Ok;
    }
    const Command *command = findCommand(name);
    if (!command) {
        std::fprintf(stderr, "twkey: no command %s\nTry 'twkey help'.\n", qPrintable(name));
        return CliContext::Usage;
    }
    args.removeFirst();
    CliContext ctx(parser, args);
    return command->run(ctx);
}
