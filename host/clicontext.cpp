#include "clicontext.h"

#include "skferrortext.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QStandardPaths>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace {

void writeStd(FILE *stream, const QByteArray &bytes)
{
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

// Qt's debug stream, where the library writes a few lines of its own
// beside its log, goes with the log: into --log and, with --verbose, on
// standard error. Warnings and worse are always shown.
TWCore *s_messageCore = nullptr;

void qtMessage(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    const bool quiet = type == QtDebugMsg || type == QtInfoMsg;
    if (s_messageCore) {
        if (quiet)
            s_messageCore->logDebug(QStringLiteral("[qt] ") + text);
        else
            s_messageCore->logError(QStringLiteral("[qt] ") + text);
    }
    if (!quiet)
        std::fprintf(stderr, "%s\n", qPrintable(text));
}

} // namespace

CliContext::CliContext(const QCommandLineParser &parser, const QStringList &args)
    : m_parser(parser), m_args(args),
      m_capture([this](const QString &line) { m_core.logDebug(QStringLiteral("[stdout] ") + line); })
{
    const QString appDir = QCoreApplication::applicationDirPath();
    m_core.setBinPath(value("bin-path", appDir));
    m_core.setConfigPath(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
                         + QStringLiteral("/twkey"));
    m_core.setVerbose(has("verbose"));
    // Lines nobody reads would pile up over a long batch.
    m_core.setDiscard(!has("log") && !has("verbose"));
    s_messageCore = &m_core;
    qInstallMessageHandler(qtMessage);
}

CliContext::~CliContext()
{
    // The manager's destructor closes the sessions and logs through the
    // core, which is still alive here.
    m_host.shutdown(true);
    qInstallMessageHandler(nullptr);
    s_messageCore = nullptr;
}

bool CliContext::has(const char *option) const
{
    return m_parser.isSet(QLatin1String(option));
}

QString CliContext::value(const char *option, const QString &fallback) const
{
    return has(option) ? m_parser.value(QLatin1String(option)) : fallback;
}

bool CliContext::json() const
{
    return has("json");
}

int CliContext::loadLibrary()
{
    if (m_libraryLoaded)
        return Ok;
    if (has("log") && !m_core.setLogFile(value("log"))) {
        warn(QStringLiteral("cannot open the log file %1").arg(value("log")));
        return Usage;
    }
    const QString lib = value("lib", QCoreApplication::applicationDirPath() + QStringLiteral("/libTWKey.so"));
    if (!m_host.load(lib)) {
        warn(QStringLiteral("cannot load the library: %1").arg(m_host.errorString()));
        return NoLibrary;
    }
    m_libraryLoaded = true;
    return Ok;
}

int CliContext::startManager()
{
    if (manager())
        return Ok;
    const int rc = loadLibrary();
    if (rc != Ok)
        return rc;
    if (!m_host.start(&m_core)) {
        warn(QStringLiteral("the library gave no key manager: %1").arg(m_host.errorString()));
        return NoLibrary;
    }
    return Ok;
}

int CliContext::openKey(int index)
{
    const int rc = startManager();
    if (rc != Ok)
        return rc;
    // The manager maps indices only after a count.
    int count = 0;
    if (!call(manager(), "count", count))
        return Failed;
    TWPtr key{"KeyObject*"};
    clearError();
    if (!call(manager(), "open", key, index))
        return Failed;
    if (!key.value) {
        warn(QStringLiteral("no key at index %1 (%2 key(s) present)").arg(index).arg(count));
        const uint code = lastError();
        if (code)
            std::fprintf(stderr, "%s\n", qPrintable(SkfErrorText::line(code)));
        return NoKey;
    }
    m_key = key.object();
    m_keyIndex = index;
    return Ok;
}

int CliContext::openSelectedKey(Login login)
{
    int index = 0;
    if (has("key")) {
        quint64 number = 0;
        if (!parseNumber(value("key"), &number) || number > 0x7fffffff)
            return usage(QStringLiteral("--key needs a key index"));
        index = int(number);
    }
    const int rc = openKey(index);
    if (rc != Ok || login == Login::None)
        return rc;
    return login == Login::User ? this->login(false) : loginIfGiven();
}

void CliContext::clearError()
{
    m_core.setLastError(0);
}

uint CliContext::lastError()
{
    QObject *target = m_key ? m_key : manager();
    qint64 code = 0;
    if (target && twCall(target, "lastError", code))
        return uint(code);
    return m_core.lastError();
}

int CliContext::fail(const QString &what)
{
    warn(what);
    const uint code = lastError();
    if (m_collecting) {
        m_report.code = code;
        return Failed;
    }
    if (code)
        std::fprintf(stderr, "%s\n", qPrintable(SkfErrorText::line(code)));
    else
        std::fprintf(stderr, "error 0x00000000: the library recorded no error code\n");
    return Failed;
}

int CliContext::usage(const QString &message)
{
    warn(message);
    if (!m_collecting)
        std::fprintf(stderr, "Try 'twkey help' or 'twkey help COMMAND'.\n");
    return Usage;
}

void CliContext::warn(const QString &message)
{
    if (!m_collecting)
        std::fprintf(stderr, "twkey: %s\n", qPrintable(message));
    else if (m_report.message.isEmpty())
        m_report.message = message;
}

void CliContext::collectReports(bool on)
{
    m_collecting = on;
    m_report = Report();
}

CliContext::Report CliContext::takeReport()
{
    const Report report = m_report;
    m_report = Report();
    return report;
}

PinReader *CliContext::pins()
{
    if (m_pins)
        return m_pins.get();
    int fd = -1;
    if (has("pin-fd")) {
        quint64 number = 0;
        if (!parseNumber(value("pin-fd"), &number) || number > 65535) {
            warn(QStringLiteral("--pin-fd needs a file descriptor number"));
            return nullptr;
        }
        fd = int(number);
    }
    const QString option = has("pin") ? value("pin") : QString();
    m_pins.reset(new PinReader(option, fd));
    return m_pins.get();
}

bool CliContext::readPin(const QString &prompt, QString *pin)
{
    PinReader *reader = pins();
    QString error;
    if (!reader)
        return false;
    if (!reader->next(prompt, pin, &error)) {
        warn(error);
        return false;
    }
    return true;
}

bool CliContext::readNewPin(const QString &prompt, QString *pin)
{
    if (has("new-pin")) {
        *pin = value("new-pin");
        return true;
    }
    PinReader *reader = pins();
    QString error;
    if (!reader)
        return false;
    if (!reader->nextNew(prompt, pin, &error)) {
        warn(error);
        return false;
    }
    return true;
}

int CliContext::login(bool admin)
{
    QString pin;
    if (!readPin(admin ? QStringLiteral("Administrator PIN: ") : QStringLiteral("User PIN: "), &pin))
        return Usage;
    bool ok = false;
    clearError();
    if (!call(m_key, "verifyPin", ok, pin, admin))
        return Failed;
    if (!ok)
        return fail(admin ? QStringLiteral("the administrator PIN was not accepted")
                          : QStringLiteral("the user PIN was not accepted"));
    return Ok;
}

int CliContext::loginIfGiven()
{
    if (!has("pin") && !has("pin-fd"))
        return Ok;
    return login(has("admin"));
}

Qt::HANDLE CliContext::container(bool createIfMissing, int *exitCode)
{
    if (!has("container")) {
        *exitCode = usage(QStringLiteral("this command needs --container NAME"));
        return nullptr;
    }
    const QString name = value("container");
    Qt::HANDLE handle = nullptr;
    clearError();
    if (!call(m_key, "openContainer", handle, name)) {
        *exitCode = Failed;
        return nullptr;
    }
    if (!handle && createIfMissing) {
        clearError();
        if (!call(m_key, "createContainer", handle, name)) {
            *exitCode = Failed;
            return nullptr;
        }
        if (!handle) {
            *exitCode = fail(QStringLiteral("cannot create the container %1").arg(name));
            return nullptr;
        }
    }
    if (!handle) {
        *exitCode = fail(QStringLiteral("cannot open the container %1").arg(name));
        return nullptr;
    }
    *exitCode = Ok;
    return handle;
}

Qt::HANDLE CliContext::selectedContainer(Login login, bool createIfMissing, int *exitCode)
{
    *exitCode = openSelectedKey(login);
    return *exitCode == Ok ? container(createIfMissing, exitCode) : nullptr;
}

bool CliContext::publicKey(Qt::HANDLE container, bool signKey, QByteArray *blob, int *exitCode)
{
    clearError();
    if (!call(m_key, "exportPublicKey", *blob, container, signKey)) {
        *exitCode = Failed;
        return false;
    }
    if (blob->isEmpty()) {
        *exitCode = fail(signKey ? QStringLiteral("the container has no signing public key")
                                 : QStringLiteral("the container has no encryption public key"));
        return false;
    }
    *exitCode = Ok;
    return true;
}

int CliContext::containerType(Qt::HANDLE container)
{
    int type = 0;
    clearError();
    call(m_key, "getContainerType", type, container);
    return type;
}

bool CliContext::readInput(QByteArray *data)
{
    const QString path = value("in");
    if (path.isEmpty() || path == QLatin1String("-")) {
        QFile in;
        if (!in.open(stdin, QIODevice::ReadOnly)) {
            warn(QStringLiteral("cannot read standard input"));
            return false;
        }
        *data = in.readAll();
        return true;
    }
    return readFile(path, data);
}

bool CliContext::readFile(const QString &path, QByteArray *data)
{
    // Plain system calls: a batch reads a file per input.
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    data->clear();
    char buf[65536];
    ssize_t n = fd < 0 ? -1 : 0;
    while (fd >= 0 && (n = ::read(fd, buf, sizeof buf)) != 0) {
        if (n > 0)
            data->append(buf, int(n));
        else if (errno != EINTR)
            break;
    }
    const int error = errno;
    if (fd >= 0)
        ::close(fd);
    if (n == 0)
        return true;
    warn(QStringLiteral("cannot read %1: %2")
             .arg(path, error == EISDIR ? QStringLiteral("file to open is a directory")
                                        : QString::fromLocal8Bit(std::strerror(error))));
    return false;
}

bool CliContext::outputEncoding(Encoding *encoding) const
{
    const QString format = value("format");
    if (format.isEmpty())
        *encoding = has("out") ? Encoding::Raw : Encoding::Hex;
    else if (format == QLatin1String("raw") || format == QLatin1String("der"))
        *encoding = Encoding::Raw;
    else if (format == QLatin1String("hex"))
        *encoding = Encoding::Hex;
    else if (format == QLatin1String("base64"))
        *encoding = Encoding::Base64;
    else
        return false;
    return true;
}

bool CliContext::writeOutput(const QByteArray &bytes)
{
    Encoding encoding = Encoding::Raw;
    if (!outputEncoding(&encoding)) {
        usage(QStringLiteral("unknown --format %1").arg(value("format")));
        return false;
    }
    return writeBytes(bytes, encoding);
}

QByteArray CliContext::encode(const QByteArray &bytes, Encoding encoding)
{
    if (encoding == Encoding::Hex)
        return bytes.toHex() + '\n';
    if (encoding == Encoding::Base64)
        return bytes.toBase64() + '\n';
    return bytes;
}

bool CliContext::writeBytes(const QByteArray &bytes, Encoding encoding)
{
    const QByteArray out = encode(bytes, encoding);
    if (has("out"))
        return writeFile(value("out"), out);
    writeStd(m_capture.realStdout(), out);
    return true;
}

bool CliContext::writeFile(const QString &path, const QByteArray &bytes)
{
    // Written over in place, then cut to length: a file rewritten with as
    // many bytes (a batch signed again) costs the file system no blocks
    // freed and allocated anew.
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    qint64 done = 0;
    while (fd >= 0 && done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        done += n;
    }
    bool ok = fd >= 0 && done == bytes.size() && (::ftruncate(fd, done) == 0 || errno == EINVAL);
    int error = errno;
    if (fd >= 0 && ::close(fd) != 0 && ok) {
        ok = false;
        error = errno;
    }
    if (!ok)
        warn(QStringLiteral("cannot write %1: %2").arg(path, QString::fromLocal8Bit(std::strerror(error))));
    return ok;
}

void CliContext::print(const QString &line)
{
    writeStd(m_capture.realStdout(), line.toUtf8() + '\n');
}

void CliContext::printJson(const QJsonValue &value)
{
    QJsonDocument doc = value.isArray() ? QJsonDocument(value.toArray()) : QJsonDocument(value.toObject());
    writeStd(m_capture.realStdout(), doc.toJson(QJsonDocument::Indented));
}

bool CliContext::parseNumber(const QString &text, quint64 *value)
{
    bool ok = false;
    const QString t = text.trimmed();
    if (t.startsWith(QLatin1String("0x"), Qt::CaseInsensitive))
        *value = t.mid(2).toULongLong(&ok, 16);
    else
        *value = t.toULongLong(&ok, 10);
    return ok;
}

void CliContext::reportMissing(const char *method)
{
    warn(QStringLiteral("the library offers no method %1 with these arguments").arg(QLatin1String(method)));
}
