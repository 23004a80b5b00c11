// twkey: drives the key library from the command line, the way a host does:
// it loads libTWKey.so at run time, hands it a core object, and calls the
// key manager and the keys by method name only.
#include "clicontext.h"
#include "commandline.h"
#include "containercommands.h"
#include "cryptocommands.h"
#include "filecommands.h"
#include "infocommands.h"
#include "pincommands.h"
#include "watchcommand.h"

#include <QCoreApplication>

namespace {

// A command of the table runs on a context of its own.
template <int (*F)(CliContext &)>
int onContext(CommandLine &line)
{
    CliContext ctx(line);
    return ctx.finish(F(ctx));
}

const CliProgram kTwkey{
    "twkey",
    TWKEY_VERSION,
    "drive cryptographic tokens through the key library",
    "twkey drives the key library the way an e-signature host does: it loads libTWKey.so at run time, "
    "hands it a core object of its own, and calls the key manager and the keys by method name only.\n"
    "A PIN login lasts as long as the process, so a command that needs one takes the PIN itself. Without "
    "--pin or --pin-fd the PIN is asked for on the terminal, without echo.\n"
    "Results go to standard output, status lines and errors to standard error. Binary results go to a "
    "file or a pipe as they are, and to a terminal as hex, unless --format says otherwise; \"-\" names "
    "standard input or output. With --json every command prints one JSON object, errors included.",
    "bin-path lib log verbose json",
    {
        {"bin-path", "DIR", "the folder whose kdp/ holds the key driver packages (default: the library's folder)"},
        {"lib", "PATH", "the library to load (default: libTWKey.so beside twkey, else the installed one)"},
        {"log", "FILE", "append the library's log lines to FILE"},
        {"verbose", nullptr, "echo the library's log lines on standard error"},
        {"json", nullptr, "print one JSON object: the results, or the error with its code, name and text"},
        {"key", "N", "the key at index N of 'twkey list' (default 0)"},
        {"serial", "SN", "the key with this serial number, whole or as the library limits it"},
        {"label", "LABEL", "the key with this label"},
        {"pin", "PIN", "the PIN: the text itself, pass:TEXT, env:VARIABLE or file:PATH (its first line)"},
        {"pin-fd", "FD", "read PINs from file descriptor FD, one per line, before any data"},
        {"new-pin", "PIN", "the new PIN of change-pin and unblock"},
        {"admin", nullptr, "the administrator PIN instead of the user PIN"},
        {"builtin", nullptr, "unblock with the library's built-in administrator PINs"},
        {"yes", nullptr, "go on without asking"},
        {"force", nullptr, "replace a key pair the container holds"},
        {"in", "FILE", "input data (default: standard input)"},
        {"out", "FILE", "write the result into FILE (\"-\": standard output)"},
        {"format", "raw|hex|base64|der", "how binary results are written; der is for SM2 signatures"},
        {"container", "NAME", "the container to work on"},
        {"enc", nullptr, "the encryption key pair or certificate instead of the signing one"},
        {"pem", nullptr, "PEM instead of the token's binary form"},
        {"bits", "N", "RSA key size (default 2048)"},
        {"raw", nullptr, "sign or verify the input as it is, without hashing"},
        {"compact", nullptr, "SM2 r||s signature over SM3 with the public key (the default)"},
        {"no-z", nullptr, "SM2: hash without the public key and id"},
        {"alg", "ALG", "digest: sm3, sha1 or sha256; seal read: the algorithm number"},
        {"id", "ID", "the SM2 user id (default 1234567812345678)"},
        {"sig", "FILE", "the signature to verify: raw, hex, base64 or DER"},
        {"list", "FILE", "more inputs to sign or verify, one path a line (\"-\": standard input)"},
        {"out-dir", "DIR", "where sign writes the signature files of a batch (default: beside each input)"},
        {"sig-dir", "DIR", "where verify finds the signature files of a batch (default: beside each input)"},
        {"stop-on-error", nullptr, "a batch stops at its first failed input"},
        {"key-out", "FILE", "where encrypt writes the wrapped session key"},
        {"key-in", "FILE", "the wrapped session key that decrypt unwraps"},
        {"mode", "ecb|cbc", "SM4 mode (default ecb)"},
        {"padding", "pkcs5|none", "SM4 padding (default pkcs5)"},
        {"index", "N", "the seal key index"},
        {"flags", "F", "the seal flags"},
    },
    {{"key", "key serial label"}, {"pin", "pin pin-fd"}, {"out", "out format"}},
    {
        {"version", "", "", "print the library's version text",
         "Print the library's version text. The library is asked for the size of the text only (TW_GetVersion "
         "with a null buffer); its fill call is built to return -1, so the text printed is twkey's own copy, "
         "V10.0.0.4, shown once the library reports its size as 9. Needs no key manager.",
         onContext<InfoCommands::version>},
        {"list", "", "", "show every key, and why a token is not one",
         "Count the keys (count()) and show each: index, label, serial number (whole and as the library limits "
         "it), manufacturer, hardware and firmware versions, total and free space, driver type and package "
         "path. When a package's token has devices that are no key, it tells so: a token opens only when an "
         "application on it holds a container that opens. Exits 1 when the search for keys failed.",
         onContext<InfoCommands::list>},
        {"info", "[N]", "@key", "show one key", "Show one key: N, or the one chosen by --key, --serial or --label.",
         onContext<InfoCommands::info>},
        {"login", "", "@key admin @pin", "verify a PIN",
         "Verify the user PIN, or the administrator PIN with --admin. A login lasts as long as the process: "
         "commands that need one take the PIN themselves.",
         onContext<PinCommands::login>},
        {"change-pin", "", "@key admin @pin new-pin", "change a PIN",
         "Change the user PIN (or the administrator PIN with --admin). Without the options both PINs are asked "
         "for on the terminal, the new one twice; with --pin-fd the old and the new PIN are the first two lines.",
         onContext<PinCommands::changePin>},
        {"unblock", "", "@key @pin new-pin builtin yes", "unblock the user PIN",
         "Unblock the user PIN with the administrator PIN (--pin) and set a new one. With --builtin the "
         "library tries its built-in administrator PIN, then the package's default one, and the user PIN "
         "becomes the library's default, 482915, which is printed; each failed try costs an administrator "
         "PIN try, so --builtin asks first (or takes --yes).",
         onContext<PinCommands::unblock>},
        {"reset-admin-pin", "", "@key yes", "set the administrator PIN to the built-in one",
         "Bring the administrator PIN back to the library's built-in one, QmVR2kdLZTTHpXsa, which is printed. "
         "Works where the administrator PIN is that one already or the package's default one; a failed try "
         "costs an administrator PIN try. Asks first, or takes --yes.",
         onContext<PinCommands::resetAdminPin>},
        {"pin-info", "", "@key", "show the tries of both PINs",
         "Show the maximum and remaining tries of the user and administrator PINs.",
         onContext<PinCommands::pinInfo>},
        {"files", "ls | get NAME | put NAME | rm NAME", "@key @pin in @out", "files on the key",
         "List, read, write or delete the files in the key's application. put replaces the file with the "
         "input; it logs in first when the package asks for that, or when a PIN is given. File names are "
         "printable ASCII.",
         onContext<FileCommands::files>},
        {"containers", "ls | create NAME | rm NAME", "@key @pin", "containers on the key",
         "List the containers of the key's application with the type of each, or make or delete one (with the "
         "user PIN). Container names are printable ASCII.",
         onContext<ContainerCommands::containers>},
        {"cert", "import | export", "@key @pin container! enc in @out pem", "import or export a certificate",
         "Import a certificate (DER or PEM, checked with OpenSSL) into the signing slot of the container, or "
         "the encryption slot with --enc, with the user PIN; or export one as DER, or PEM with --pem.",
         onContext<ContainerCommands::cert>},
        {"format", "", "@key @pin yes", "delete every file and set the administrator PIN",
         "Delete every file on the key and set the administrator PIN to the library's built-in one, "
         "QmVR2kdLZTTHpXsa, which is printed. Containers, certificates and the user PIN stay. The current "
         "administrator PIN is checked first (--pin, --pin-fd or the terminal). Asks first, or takes --yes.",
         onContext<PinCommands::format>},
        {"keygen", "sm2|rsa", "@key @pin container! bits pem @out force enc", "generate a signing key pair",
         "Generate a signing key pair in the container, made if missing and removed again if the generation "
         "fails. A key pair the container holds is replaced only with --force (its certificates and "
         "encryption key pair go with it). Tokens generate signing key pairs only: --enc is refused. RSA keys "
         "have 2048 bits unless --bits says otherwise. Needs the user PIN. --pem or --out also writes the "
         "new public key.",
         onContext<ContainerCommands::keygen>},
        {"pubkey", "", "@key @pin container! enc pem @out", "export a public key",
         "Export the signing public key (--enc: the encryption one) as the token's blob, or with --pem as a "
         "SubjectPublicKeyInfo PEM (SM2 keys on the SM2 curve, readable by openssl).",
         onContext<ContainerCommands::pubkey>},
        {"sign", "[FILE...]", "@key @pin container! in @out raw compact no-z list out-dir stop-on-error",
         "sign the input, or a batch of files",
         "Sign the input (default: standard input). SM2: the token hashes with SM3 over the public key and the "
         "id 1234567812345678 and gives the 64-byte r||s (--compact, the default; --no-z leaves out the "
         "public key); --raw signs the input as it is into the token's 128-byte signature blob; --format der "
         "writes a DER signature that openssl verifies. RSA: PKCS#1 v1.5 over SHA-256 of the input (--raw: "
         "the input as it is). Needs the user PIN.\n"
         "Given FILEs, or a list of paths in --list, signs each with one login into FILE.sig, or into the "
         "folder of --out-dir; the files are raw unless --format says otherwise. Each input is reported on a "
         "line of its own (a result under \"results\" in JSON), one that fails does not stop the others unless "
         "--stop-on-error, and the exit status is 1 when any failed.",
         onContext<CryptoCommands::sign>},
        {"verify", "[FILE...]", "@key @pin container! sig in format raw compact no-z list sig-dir stop-on-error",
         "verify a signature, or a batch of them",
         "Verify a signature made by sign with the same options. The signature may be raw (r||s, the 128-byte "
         "blob or DER), hex or base64; --format says which, or it is recognised.\n"
         "Given FILEs, or a list of paths in --list, verifies each against FILE.sig, or the .sig of its name in "
         "the folder of --sig-dir, and reports each as sign does.",
         onContext<CryptoCommands::verify>},
        {"digest", "", "@key @pin alg! in @out container id", "hash on the key",
         "Hash the input on the key with sm3, sha1 or sha256. With --container (SM3 only) the hash covers the "
         "container's public key and the id, 1234567812345678 by default.",
         onContext<CryptoCommands::digest>},
        {"encrypt", "", "@key @pin container! key-out! in @out mode padding", "encrypt with a new session key",
         "Encrypt with SM4 under a session key made on the key and wrapped under the container's encryption "
         "public key. The wrapped key (197 bytes) goes to --key-out; CBC output starts with its 16-byte IV.",
         onContext<CryptoCommands::encrypt>},
        {"decrypt", "", "@key @pin container! key-in! in @out mode padding", "decrypt with a wrapped session key",
         "Unwrap the session key of --key-in in the container and decrypt the input with it. Needs the user PIN.",
         onContext<CryptoCommands::decrypt>},
        {"seal", "read | write", "@key @pin index alg flags in @out", "electronic seal data",
         "Read the electronic seal data (seal read --index N --alg A) or write it (seal write, with the user "
         "PIN). Numbers may be decimal or 0x hexadecimal.",
         onContext<FileCommands::seal>},
        {"watch", "", "", "report tokens as they come and go",
         "Report each token that arrives or is removed, one time-stamped line per event (a JSON line with "
         "--json), until Ctrl-C. The wait is the token libraries' own SKF_WaitForDevEvent, on a thread of its "
         "own; a removal is told to the library's driver, which closes the token's session.",
         onContext<WatchCommand::watch>},
        {"help", "[COMMAND]", "", "tell about twkey or one command", "Tell about twkey, or about one command.",
         nullptr},
    },
    {
        {"Exit status",
         "0 done; 1 the key or the library refused the operation, or a signature did not verify (the last "
         "error is printed as \"error 0x0A000024 SAR_PIN_INCORRECT: PIN incorrect\"); 2 bad usage, "
         "unreadable input or unwritable output; 3 the library could not be loaded; 4 no such key."},
        {"Built-in PINs",
         "The library has two PINs of its own. QmVR2kdLZTTHpXsa is its built-in administrator PIN: format and "
         "reset-admin-pin leave the administrator PIN at it, and unblock --builtin tries it first. 482915 is "
         "its default user PIN: unblock --builtin sets the user PIN to it."},
        {"See also", "softtoken(1), openssl(1)"},
    },
    "json",
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    CommandLine line(kTwkey);
    return line.exec(app.arguments());
}
