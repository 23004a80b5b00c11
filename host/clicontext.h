// What every twkey command shares: the parsed command line, the core
// object, the loaded library and the open key, the calls by name with their
// failure reports, PINs, input and output.
#ifndef TWHOST_CLICONTEXT_H
#define TWHOST_CLICONTEXT_H

#include "commandline.h"
#include "componenthost.h"
#include "pinreader.h"
#include "stdoutcapture.h"
#include "twcall.h"
#include "twcore.h"

#include <QJsonValue>
#include <QStringList>

#include <memory>
#include <utility>

class CliContext
{
public:
    // Exit codes of twkey.
    enum Exit { Ok = 0, Failed = 1, Usage = 2, NoLibrary = 3, NoKey = 4 };

    // How bytes go out: as they are, as hex or base64, or as text that
    // is already text (a string in JSON).
    enum class Encoding { Raw, Hex, Base64, Text };

    explicit CliContext(CommandLine &line);
    ~CliContext();

    bool has(const char *option) const;
    // The option's value, or `fallback` when it was not given.
    QString value(const char *option, const QString &fallback = QString()) const;
    // The positional arguments after the command name.
    const QStringList &args() const { return m_line.args(); }
    bool json() const { return m_out.json(); }
    CliOutput &out() { return m_out; }

    TWCore &core() { return m_core; }
    ComponentHost &host() { return m_host; }
    // The folder of the key driver packages.
    QString packageDir();

    // Loads the library and resolves its entry points.
    int loadLibrary();
    // loadLibrary(), ComponentInit and CreateComponent.
    int startManager();
    // startManager() and count(); false after a report.
    bool countKeys(int *count, int *rc);
    // startManager(), count(), open(index). The key stays open.
    int openKey(int index);
    // Whether a command logs in after opening the key: never, when a PIN
    // was given on the command line, or always with the user PIN.
    enum class Login { None, IfGiven, User };
    // The key of --key, --serial and --label (the first key without them),
    // then the login.
    int openSelectedKey(Login login = Login::None);
    QObject *manager() const { return m_host.manager(); }
    QObject *key() const { return m_key; }
    int keyIndex() const { return m_keyIndex; }

    // Calls by name that report a method the library lacks.
    template <typename R, typename... A>
    bool call(QObject *target, const char *method, R &result, A &&...args)
    {
        if (twCall(target, method, result, std::forward<A>(args)...))
            return true;
        reportMissing(method);
        return false;
    }
    template <typename... A>
    bool callVoid(QObject *target, const char *method, A &&...args)
    {
        if (twCallVoid(target, method, std::forward<A>(args)...))
            return true;
        reportMissing(method);
        return false;
    }

    // Clears the last error before an operation, so a failure value can be
    // told from a genuine empty or zero result.
    void clearError();
    // The key's lastError(), or the manager's when no key is open.
    uint lastError();
    // Whether the library reported a failure since clearError(): a last
    // error, or a line in its error log. Some failures leave only the line.
    bool failedSinceClear();

    // Reports what failed and the last error (or the library's last error
    // line) with its name and text; returns Failed.
    int fail(const QString &what);
    // Reports a refusal of twkey's own, without an error code.
    int refuse(const QString &what, int exitCode = Failed);
    // Prints the message and a pointer to the help; returns Usage.
    int usage(const QString &message);
    void warn(const QString &message);
    // A line telling what was done, on standard error.
    void status(const QString &line);
    // Prints the JSON object of the run, if asked for; returns exitCode.
    int finish(int exitCode);

    // PINs as PinReader gives them; a new PIN comes from --new-pin first.
    bool readPin(const QString &prompt, QString *pin);
    bool readNewPin(const QString &prompt, QString *pin);
    // Reads a PIN and calls verifyPin on the open key. Returns Ok or an exit
    // code; a wrong PIN is told with the tries left.
    int login(bool admin, QString *pinUsed = nullptr);
    // login() when a PIN was given on the command line.
    int loginIfGiven();
    // A failure of a PIN operation, with the tries left of that PIN.
    int pinFailure(const QString &what, bool admin);
    // --yes, or "yes" typed at a terminal; false after the refusal.
    bool confirm(const QString &question, int *rc);
    // Whether the token can give a name back as it was stored; false after
    // a usage report.
    bool storableName(const QString &kind, const QString &name, int *rc);

    // --container, opened; created first when asked and missing (then
    // *created is set). Null after a report (the exit code is in *exitCode).
    Qt::HANDLE container(bool createIfMissing, int *exitCode, bool *created = nullptr);
    // openSelectedKey(login), then container().
    Qt::HANDLE selectedContainer(Login login, bool createIfMissing, int *exitCode, bool *created = nullptr);

    // exportPublicKey of the signing or the encryption pair; false after a
    // report, with the exit code in *exitCode.
    bool publicKey(Qt::HANDLE container, bool signKey, QByteArray *blob, int *exitCode);
    // getContainerType: 1 RSA, 2 SM2, 0 empty; -1 after a failure report.
    int containerType(Qt::HANDLE container, int *exitCode);

    // --in FILE, or standard input when absent or "-". A PIN on --pin-fd
    // is taken first.
    bool readInput(QByteArray *data);
    // readInput() of another path.
    bool readData(const QString &path, QByteArray *data);
    // A file, or standard input for "-".
    bool readFile(const QString &path, QByteArray *data);
    // --out FILE or standard output, encoded as --format says; without
    // --format, raw into a file or a pipe and hex on a terminal. In JSON
    // the bytes written to standard output are the field `field`.
    bool writeOutput(const QByteArray &bytes, const QString &field = QStringLiteral("data"));
    bool writeBytes(const QByteArray &bytes, Encoding encoding, const QString &field = QStringLiteral("data"));
    // The bytes as written in that encoding.
    static QByteArray encode(const QByteArray &bytes, Encoding encoding);
    // A file, or standard output for "-".
    bool writeFile(const QString &path, const QByteArray &bytes);
    // --format as an encoding.
    Encoding outputEncoding() const;
    // A line of results (text output only).
    void print(const QString &line);

    static bool parseNumber(const QString &text, quint64 *value) { return CommandLine::parseNumber(text, value); }

private:
    void reportMissing(const char *method);
    // The library's last error line since clearError() that tells of a
    // failure; empty for none.
    QString loggedFailure() const;
    PinReader *pins();
    bool writesToStdout() const;
    int keyMatching(int *index);

    CommandLine &m_line;
    CliOutput &m_out;
    // In this order: the capture logs into the core, and the library,
    // whose manager is deleted first, may print until then.
    TWCore m_core;
    StdoutCapture m_capture;
    ComponentHost m_host;
    QObject *m_key = nullptr;
    int m_keyIndex = -1;
    std::unique_ptr<PinReader> m_pins;
    bool m_libraryLoaded = false;
    int m_errorLines = 0;
};

#endif
