#include "clicontext.h"

#include "skferrortext.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr uint kPinIncorrect = 0x0A000024;
constexpr uint kPinLocked = 0x0A000025;
constexpr quint64 kRemainingRetries = 1;

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
    if (!quiet) {
        // After the results so far, which may wait in a buffer.
        std::fflush(nullptr);
        std::fprintf(stderr, "%s\n", qPrintable(text));
    }
}

// The folder of the library and its kdp/: beside twkey in the build tree,
// else the installed one, named from twkey's own folder.
QString libraryFolder()
{
    const QString appDir = QCoreApplication::applicationDirPath();
    if (QFileInfo::exists(appDir + QStringLiteral("/libTWKey.so")))
        return appDir;
    return QDir::cleanPath(appDir + QStringLiteral("/" TWKEY_INSTALLED_LIBDIR));
}

} // namespace

CliContext::CliContext(CommandLine &line)
    : m_line(line), m_out(line.output()),
      m_capture([this](const QString &text) { m_core.logDebug(QStringLiteral("[stdout] ") + text); })
{
    m_out.setStdout(m_capture.realStdout());
    m_core.setBinPath(value("bin-path", libraryFolder()));
    m_core.setConfigPath(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
                         + QStringLiteral("/twkey"));
    m_core.setVerbose(has("verbose"));
    // Debug lines nobody reads would pile up over a long batch.
    m_core.setKeepDebug(false);
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
    m_out.setStdout(stdout);
}

bool CliContext::has(const char *option) const
{
    return m_line.isSet(option);
}

QString CliContext::value(const char *option, const QString &fallback) const
{
    return m_line.value(option, fallback);
}

QString CliContext::packageDir()
{
    return m_core.binPath() + QStringLiteral("/kdp");
}

int CliContext::loadLibrary()
{
    if (m_libraryLoaded)
        return Ok;
    if (has("log") && !m_core.setLogFile(value("log")))
        return refuse(QStringLiteral("cannot open the log file %1").arg(value("log")), Usage);
    const QString lib = value("lib", libraryFolder() + QStringLiteral("/libTWKey.so"));
    if (!m_host.load(lib))
        return refuse(QStringLiteral("cannot load the library: %1").arg(m_host.errorString()), NoLibrary);
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
    if (!m_host.start(&m_core))
        return refuse(QStringLiteral("the library gave no key manager: %1").arg(m_host.errorString()), NoLibrary);
    return Ok;
}

bool CliContext::countKeys(int *count, int *rc)
{
    *rc = startManager();
    if (*rc != Ok)
        return false;
    // The manager maps indices only after a count.
    clearError();
    *count = 0;
    if (!call(manager(), "count", *count)) {
        *rc = Failed;
        return false;
    }
    return true;
}

int CliContext::openKey(int index)
{
    int count = 0, rc = Ok;
    if (!countKeys(&count, &rc))
        return rc;
    TWPtr key{"KeyObject*"};
    clearError();
    if (!call(manager(), "open", key, index))
        return Failed;
    if (!key.value) {
        const uint code = lastError();
        return m_out.error(NoKey, QStringLiteral("no key at index %1 (%2 key(s) present; 'twkey list' tells why a token is not a key)").arg(index).arg(count),
                           code ? QStringList{SkfErrorText::line(code)} : QStringList(), SkfErrorText::json(code));
    }
    m_key = key.object();
    m_keyIndex = index;
    return Ok;
}

int CliContext::keyMatching(int *index)
{
    int count = 0, rc = Ok;
    if (!countKeys(&count, &rc))
        return rc;
    const QString serial = value("serial"), label = value("label");
    QList<int> found;
    for (int i = 0; i < count; ++i) {
        TWPtr key{"KeyObject*"};
        QString whole, limited, name;
        if (!call(manager(), "open", key, i))
            return Failed;
        if (!key.value || (has("key") && i != *index))
            continue;
        if (!call(key.object(), "serialNumberEx", whole) || !call(key.object(), "serialNumber", limited)
            || !call(key.object(), "labelName", name))
            return Failed;
        if ((serial.isNull() || serial == whole || serial == limited) && (label.isNull() || label == name))
            found.append(i);
    }
    const QString wanted = serial.isNull() ? QStringLiteral("the label %1").arg(label)
                                           : QStringLiteral("the serial number %1").arg(serial);
    if (found.isEmpty())
        return refuse(QStringLiteral("no key has %1 (%2 key(s) present; 'twkey list' tells why a token is not a key)").arg(wanted).arg(count), NoKey);
    if (found.size() > 1)
        return refuse(QStringLiteral("%1 keys have %2: choose one by --serial or --key").arg(found.size()).arg(wanted), NoKey);
    *index = found.first();
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
    int rc = has("serial") || has("label") ? keyMatching(&index) : Ok;
    if (rc == Ok)
        rc = openKey(index);
    if (rc != Ok || login == Login::None)
        return rc;
    return login == Login::User ? this->login(false) : loginIfGiven();
}

void CliContext::clearError()
{
    m_core.setLastError(0);
    m_errorLines = m_core.count(TWCore::Level::Error);
}

uint CliContext::lastError()
{
    QObject *target = m_key ? m_key : manager();
    qint64 code = 0;
    if (target && twCall(target, "lastError", code))
        return uint(code);
    return m_core.lastError();
}

QString CliContext::loggedFailure() const
{
    // The session reports the device-state file through the error log at
    // every connect; that line tells of no failure.
    const QStringList logged = m_core.lines(TWCore::Level::Error);
    for (int i = logged.size() - 1; i >= m_errorLines; --i) {
        if (!logged.at(i).contains(QLatin1String("tw_device,value")))
            return logged.at(i).trimmed();
    }
    return QString();
}

bool CliContext::failedSinceClear()
{
    return lastError() != 0 || !loggedFailure().isEmpty();
}

int CliContext::fail(const QString &what)
{
    const uint code = lastError();
    if (code)
        return m_out.error(Failed, what, {SkfErrorText::line(code)}, SkfErrorText::json(code));
    const QString logged = loggedFailure();
    if (!logged.isEmpty())
        return m_out.error(Failed, what, {QStringLiteral("the library logged: ") + logged},
                           QJsonObject{{QStringLiteral("log"), logged}});
    return m_out.error(Failed, what, {QStringLiteral("error 0x00000000: the library recorded no error code")});
}

int CliContext::refuse(const QString &what, int exitCode)
{
    return m_out.error(exitCode, what);
}

int CliContext::usage(const QString &message)
{
    return m_line.usage(message);
}

void CliContext::warn(const QString &message)
{
    m_out.warn(message);
}

void CliContext::status(const QString &line)
{
    m_out.status(line);
}

int CliContext::finish(int exitCode)
{
    return m_out.finish(exitCode);
}

PinReader *CliContext::pins()
{
    if (m_pins)
        return m_pins.get();
    int fd = -1;
    if (has("pin-fd")) {
        quint64 number = 0;
        if (!parseNumber(value("pin-fd"), &number) || number > 65535) {
            usage(QStringLiteral("--pin-fd needs a file descriptor number"));
            return nullptr;
        }
        fd = int(number);
    }
    m_pins.reset(new PinReader(value("pin"), fd));
    return m_pins.get();
}

bool CliContext::readPin(const QString &prompt, QString *pin)
{
    PinReader *reader = pins();
    QString error;
    if (!reader)
        return false;
    m_out.flushResults();
    if (reader->next(prompt, pin, &error))
        return true;
    usage(error);
    return false;
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
    m_out.flushResults();
    if (reader->nextNew(prompt, pin, &error))
        return true;
    usage(error);
    return false;
}

int CliContext::login(bool admin, QString *pinUsed)
{
    QString pin;
    if (!readPin(admin ? QStringLiteral("Administrator PIN: ") : QStringLiteral("User PIN: "), &pin))
        return Usage;
    if (pinUsed)
        *pinUsed = pin;
    bool ok = false;
    clearError();
    if (!call(m_key, "verifyPin", ok, pin, admin))
        return Failed;
    if (!ok)
        return pinFailure(admin ? QStringLiteral("the administrator PIN was not accepted")
                                : QStringLiteral("the user PIN was not accepted"),
                          admin);
    return Ok;
}

int CliContext::loginIfGiven()
{
    if (!has("pin") && !has("pin-fd"))
        return Ok;
    return login(has("admin"));
}

int CliContext::pinFailure(const QString &what, bool admin)
{
    const uint code = lastError();
    QString told = what;
    if (code == kPinIncorrect) {
        quint64 left = 0;
        if (twCall(m_key, "GetPINInfo", left, quint64(admin ? 0 : 1), kRemainingRetries))
            told += QStringLiteral(" (%1 %2 left)").arg(left).arg(left == 1 ? "try" : "tries");
        m_core.setLastError(code);
    } else if (code == kPinLocked) {
        told += admin ? QStringLiteral(" (locked)") : QStringLiteral(" (locked: 'twkey unblock' sets a new one)");
    }
    return fail(told);
}

bool CliContext::confirm(const QString &question, int *rc)
{
    if (has("yes"))
        return true;
    if (::isatty(STDIN_FILENO) != 1) {
        *rc = usage(QStringLiteral("%1 Give --yes to go on without a terminal.").arg(question));
        return false;
    }
    m_out.flushResults();
    std::fprintf(stderr, "%s Type yes to go on: ", qPrintable(question));
    std::fflush(stderr);
    QFile in;
    in.open(stdin, QIODevice::ReadOnly);
    if (in.readLine().trimmed() == "yes")
        return true;
    *rc = refuse(QStringLiteral("nothing was done"));
    return false;
}

bool CliContext::storableName(const QString &kind, const QString &name, int *rc)
{
    // The library hands names to the token as UTF-8 but reads them back as
    // Latin-1, so only ASCII names can be found again once stored.
    for (const QChar c : name) {
        if (c.unicode() < 0x20 || c.unicode() > 0x7e) {
            *rc = usage(QStringLiteral("%1 names are printable ASCII: the token would give \"%2\" back in another "
                                       "form, and it could then be neither read nor removed")
                            .arg(kind, name));
            return false;
        }
    }
    if (name.isEmpty())
        *rc = usage(QStringLiteral("a %1 name is needed").arg(kind));
    return !name.isEmpty();
}

Qt::HANDLE CliContext::container(bool createIfMissing, int *exitCode, bool *created)
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
        if (!storableName(QStringLiteral("container"), name, exitCode))
            return nullptr;
        clearError();
        if (!call(m_key, "createContainer", handle, name)) {
            *exitCode = Failed;
            return nullptr;
        }
        if (!handle) {
            *exitCode = fail(QStringLiteral("cannot create the container %1").arg(name));
            return nullptr;
        }
        if (created)
            *created = true;
    }
    if (!handle) {
        *exitCode = fail(QStringLiteral("cannot open the container %1").arg(name));
        return nullptr;
    }
    *exitCode = Ok;
    return handle;
}

Qt::HANDLE CliContext::selectedContainer(Login login, bool createIfMissing, int *exitCode, bool *created)
{
    *exitCode = openSelectedKey(login);
    return *exitCode == Ok ? container(createIfMissing, exitCode, created) : nullptr;
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

int CliContext::containerType(Qt::HANDLE container, int *exitCode)
{
    int type = 0;
    clearError();
    if (!call(m_key, "getContainerType", type, container)) {
        *exitCode = Failed;
        return -1;
    }
    if (type == 0 && failedSinceClear()) {
        *exitCode = fail(QStringLiteral("cannot read the container's type"));
        return -1;
    }
    return type;
}

bool CliContext::readInput(QByteArray *data)
{
    return readData(value("in", QStringLiteral("-")), data);
}

bool CliContext::readData(const QString &path, QByteArray *data)
{
    if (has("pin-fd")) {
        PinReader *reader = pins();
        QString error;
        if (!reader || !reader->readAhead(&error)) {
            if (reader)
                usage(error);
            return false;
        }
    }
    return readFile(path, data);
}

bool CliContext::readFile(const QString &path, QByteArray *data)
{
    // Plain system calls: a batch reads a file per input.
    const bool fromStdin = path == QLatin1String("-");
    const int fd = fromStdin ? STDIN_FILENO : ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
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
    if (fd >= 0 && !fromStdin)
        ::close(fd);
    if (n == 0)
        return true;
    usage(QStringLiteral("cannot read %1: %2")
              .arg(path, error == EISDIR ? QStringLiteral("file to open is a directory")
                                         : QString::fromLocal8Bit(std::strerror(error))));
    return false;
}

bool CliContext::writesToStdout() const
{
    return !has("out") || value("out") == QLatin1String("-");
}

CliContext::Encoding CliContext::outputEncoding() const
{
    const QString format = value("format");
    if (format == QLatin1String("hex"))
        return Encoding::Hex;
    if (format == QLatin1String("base64"))
        return Encoding::Base64;
    if (format.isEmpty() && writesToStdout() && (json() || m_out.stdoutIsTerminal()))
        return Encoding::Hex;
    return Encoding::Raw;
}

bool CliContext::writeOutput(const QByteArray &bytes, const QString &field)
{
    return writeBytes(bytes, outputEncoding(), field);
}

bool CliContext::writeBytes(const QByteArray &bytes, Encoding encoding, const QString &field)
{
    if (json() && writesToStdout()) {
        m_out.set(field, encoding == Encoding::Text     ? QString::fromUtf8(bytes)
                         : encoding == Encoding::Base64 ? QString::fromLatin1(bytes.toBase64())
                                                        : QString::fromLatin1(bytes.toHex()));
        return true;
    }
    const QByteArray out = encode(bytes, encoding);
    if (writesToStdout()) {
        m_out.bytes(out);
        return true;
    }
    m_out.set(QStringLiteral("out"), value("out"));
    m_out.set(QStringLiteral("size"), out.size());
    return writeFile(value("out"), out);
}

QByteArray CliContext::encode(const QByteArray &bytes, Encoding encoding)
{
    if (encoding == Encoding::Hex)
        return bytes.toHex() + '\n';
    if (encoding == Encoding::Base64)
        return bytes.toBase64() + '\n';
    return bytes;
}

bool CliContext::writeFile(const QString &path, const QByteArray &bytes)
{
    if (path == QLatin1String("-")) {
        m_out.bytes(bytes);
        return true;
    }
    // Written over in place, then cut to length if its end lies beyond what
    // was written: a file rewritten with as many bytes (a batch signed
    // again) costs the file system no blocks freed and allocated anew, and
    // no truncation. Where there is no end to seek (a pipe), nothing is cut.
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
    bool ok = fd >= 0 && done == bytes.size() && (::lseek(fd, 0, SEEK_END) <= done || ::ftruncate(fd, done) == 0 || errno == EINVAL);
    int error = errno;
    if (fd >= 0 && ::close(fd) != 0 && ok) {
        ok = false;
        error = errno;
    }
    if (!ok)
        usage(QStringLiteral("cannot write %1: %2").arg(path, QString::fromLocal8Bit(std::strerror(error))));
    return ok;
}

void CliContext::print(const QString &line)
{
    m_out.line(line);
}

void CliContext::reportMissing(const char *method)
{
    refuse(QStringLiteral("the library offers no method %1 with these arguments").arg(QLatin1String(method)));
}
