// What every twkey command shares: the parsed options, the core object,
// the loaded library and the open key, the calls by name with their
// failure reports, PINs, input and output.
#ifndef TWHOST_CLICONTEXT_H
#define TWHOST_CLICONTEXT_H

#include "componenthost.h"
#include "pinreader.h"
#include "stdoutcapture.h"
#include "twcall.h"
#include "twcore.h"

#include <QCommandLineParser>
#include <QJsonValue>
#include <QStringList>

#include <memory>
#include <utility>

class CliContext
{
public:
    // Exit codes of twkey.
    enum Exit { Ok = 0, Failed = 1, Usage = 2, NoLibrary = 3, NoKey = 4 };

    // How bytes go out: as they are, or as text.
    enum class Encoding { Raw, Hex, Base64 };

    CliContext(const QCommandLineParser &parser, const QStringList &args);
    ~CliContext();

    const QCommandLineParser &options() const { return m_parser; }
    bool has(const char *option) const;
    // The option's value, or `fallback` when it was not given.
    QString value(const char *option, const QString &fallback = QString()) const;
    // The positional arguments after the command name.
    const QStringList &args() const { return m_args; }
    bool json() const;

    TWCore &core() { return m_core; }
    ComponentHost &host() { return m_host; }

    // Loads the library and resolves its entry points.
    int loadLibrary();
    // loadLibrary(), ComponentInit and CreateComponent.
    int startManager();
    // startManager(), count(), open(index). The key stays open.
    int openKey(int index);
    // Whether a command logs in after opening the key: never, when a PIN
    // was given on the command line, or always with the user PIN.
    enum class Login { None, IfGiven, User };
    // openKey() on the --key index, then the login.
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

    // Prints "twkey: <what>" and the last error with its text; returns Failed.
    int fail(const QString &what);
    // Prints the message and a pointer to the help; returns Usage.
    int usage(const QString &message);
    // Prints "twkey: <message>" without an error code.
    void warn(const QString &message);

    // While collecting, fail(), usage() and warn() keep their first message
    // and the last error for takeReport() instead of printing: what one input
    // of a batch reports.
    struct Report
    {
        QString message;
        uint code = 0;
    };
    void collectReports(bool on);
    Report takeReport();

    // PINs as PinReader gives them; a new PIN comes from --new-pin first.
    bool readPin(const QString &prompt, QString *pin);
    bool readNewPin(const QString &prompt, QString *pin);
    // Reads a PIN and calls verifyPin on the open key. Returns Ok or an exit code.
    int login(bool admin);
    // login() when a PIN was given on the command line.
    int loginIfGiven();

    // --container, opened; created first when asked and missing. Null after
    // a report (the exit code is then in *exitCode).
    Qt::HANDLE container(bool createIfMissing, int *exitCode);
    // openSelectedKey(login), then container().
    Qt::HANDLE selectedContainer(Login login, bool createIfMissing, int *exitCode);

    // exportPublicKey of the signing or the encryption pair; false after a
    // report, with the exit code in *exitCode.
    bool publicKey(Qt::HANDLE container, bool signKey, QByteArray *blob, int *exitCode);
    // getContainerType: 1 RSA, 2 SM2, 0 empty or failed.
    int containerType(Qt::HANDLE container);

    // --in FILE, or standard input when absent or "-".
    bool readInput(QByteArray *data);
    bool readFile(const QString &path, QByteArray *data);
    // --out FILE or standard output, encoded as --format says; without
    // --format, raw into a file and hex on standard output.
    bool writeOutput(const QByteArray &bytes);
    bool writeBytes(const QByteArray &bytes, Encoding encoding);
    static QByteArray encode(const QByteArray &bytes, Encoding encoding);
    bool writeFile(const QString &path, const QByteArray &bytes);
    // --format as an encoding; false on an unknown value.
    bool outputEncoding(Encoding *encoding) const;
    void print(const QString &line);
    void printJson(const QJsonValue &value);

    // Parses decimal or 0x-prefixed hexadecimal.
    static bool parseNumber(const QString &text, quint64 *value);

private:
    void reportMissing(const char *method);
    PinReader *pins();

    const QCommandLineParser &m_parser;
    QStringList m_args;
    // In this order: the capture logs into the core, and the library,
    // whose manager is deleted first, may print until then.
    TWCore m_core;
    StdoutCapture m_capture;
    ComponentHost m_host;
    QObject *m_key = nullptr;
    int m_keyIndex = -1;
    std::unique_ptr<PinReader> m_pins;
    bool m_libraryLoaded = false;
    bool m_collecting = false;
    Report m_report;
};

#endif
