#include "pinreader.h"

#include <QByteArray>
#include <QFile>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace {

QString chomp(QByteArray line)
{
    while (line.endsWith('\n') || line.endsWith('\r'))
        line.chop(1);
    return QString::fromUtf8(line);
}

// Echo off on the terminal for the life of the object. The signals that end
// a program put the saved modes back first, then take their former course.
class QuietTerminal
{
public:
    explicit QuietTerminal(int tty)
    {
        if (::tcgetattr(tty, &s_saved) != 0)
            return;
        s_tty = tty;
        struct sigaction action {};
        action.sa_handler = restore;
        sigemptyset(&action.sa_mask);
        for (size_t i = 0; i < kCount; ++i)
            ::sigaction(kSignals[i], &action, &s_former[i]);
        termios quiet = s_saved;
        quiet.c_lflag &= ~tcflag_t(ECHO);
        quiet.c_lflag |= ECHONL;
        ::tcsetattr(tty, TCSAFLUSH, &quiet);
    }
    ~QuietTerminal()
    {
        if (s_tty < 0)
            return;
        ::tcsetattr(s_tty, TCSAFLUSH, &s_saved);
        for (size_t i = 0; i < kCount; ++i)
            ::sigaction(kSignals[i], &s_former[i], nullptr);
        s_tty = -1;
    }
    QuietTerminal(const QuietTerminal &) = delete;
    QuietTerminal &operator=(const QuietTerminal &) = delete;

private:
    static void restore(int signal)
    {
        ::tcsetattr(s_tty, TCSAFLUSH, &s_saved);
        const ssize_t written = ::write(s_tty, "\n", 1);
        (void)written;
        for (size_t i = 0; i < kCount; ++i) {
            if (kSignals[i] == signal)
                ::sigaction(signal, &s_former[i], nullptr);
        }
        // Delivered once this handler returns, under the former action.
        ::raise(signal);
    }

    static constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
    static constexpr size_t kCount = sizeof kSignals / sizeof kSignals[0];
    static inline int s_tty = -1;
    static inline termios s_saved {};
    static inline struct sigaction s_former[kCount] {};
};

} // namespace

PinReader::PinReader(const QString &pinOption, int fd) : m_option(pinOption), m_fd(fd) {}

bool PinReader::next(const QString &promptText, QString *pin, QString *error)
{
    if (!m_option.isNull() && !m_optionUsed) {
        m_optionUsed = true;
        return fromOption(pin, error);
    }
    if (!m_ahead.isEmpty()) {
        *pin = m_ahead.takeFirst();
        return true;
    }
    if (m_fd >= 0)
        return fromDescriptor(pin, error);
    return prompt(promptText, pin, error);
}

bool PinReader::nextNew(const QString &promptText, QString *pin, QString *error)
{
    const bool fromTerminal = (m_option.isNull() || m_optionUsed) && m_ahead.isEmpty() && m_fd < 0;
    if (!next(promptText, pin, error))
        return false;
    if (!fromTerminal)
        return true;
    QString again;
    if (!prompt(QStringLiteral("Repeat: "), &again, error))
        return false;
    if (again != *pin) {
        *error = QStringLiteral("the two PINs differ");
        return false;
    }
    return true;
}

bool PinReader::readAhead(QString *error)
{
    if (m_fd < 0 || (!m_option.isNull() && !m_optionUsed) || !m_ahead.isEmpty())
        return true;
    QString pin;
    if (!fromDescriptor(&pin, error))
        return false;
    m_ahead.append(pin);
    return true;
}

bool PinReader::fromOption(QString *pin, QString *error) const
{
    // The forms of openssl's pass phrase arguments; anything else is the
    // PIN itself.
    const QString kind = m_option.section(QLatin1Char(':'), 0, 0), rest = m_option.section(QLatin1Char(':'), 1);
    if (kind == QLatin1String("pass") && m_option.contains(QLatin1Char(':'))) {
        *pin = rest;
    } else if (kind == QLatin1String("env") && m_option.contains(QLatin1Char(':'))) {
        if (!qEnvironmentVariableIsSet(qPrintable(rest))) {
            *error = QStringLiteral("--pin env:%1: the variable is not set").arg(rest);
            return false;
        }
        *pin = qEnvironmentVariable(qPrintable(rest));
    } else if (kind == QLatin1String("file") && m_option.contains(QLatin1Char(':'))) {
        QFile file(rest);
        if (!file.open(QIODevice::ReadOnly)) {
            *error = QStringLiteral("--pin file:%1: %2").arg(rest, file.errorString());
            return false;
        }
        *pin = chomp(file.readLine());
    } else {
        *pin = m_option;
    }
    return true;
}

bool PinReader::fromDescriptor(QString *pin, QString *error)
{
    // One PIN per line, read a byte at a time so that nothing after the
    // line is taken from a descriptor the caller may go on using.
    QByteArray line;
    bool ended = false;
    for (;;) {
        char c = 0;
        const ssize_t n = ::read(m_fd, &c, 1);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            *error = QStringLiteral("cannot read file descriptor %1").arg(m_fd);
            return false;
        }
        if (n == 0)
            break;
        if (c == '\n') {
            ended = true;
            break;
        }
        line += c;
    }
    if (line.isEmpty() && !ended) {
        *error = QStringLiteral("no PIN on file descriptor %1").arg(m_fd);
        return false;
    }
    *pin = chomp(line);
    return true;
}

bool PinReader::prompt(const QString &text, QString *pin, QString *error)
{
    const int tty = ::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (tty < 0) {
        *error = QStringLiteral("a PIN is needed: give --pin or --pin-fd, or run on a terminal");
        return false;
    }
    QByteArray line;
    {
        QuietTerminal quiet(tty);
        const QByteArray promptBytes = text.toUtf8();
        const ssize_t written = ::write(tty, promptBytes.constData(), size_t(promptBytes.size()));
        Q_UNUSED(written);
        char c = 0;
        for (;;) {
            const ssize_t n = ::read(tty, &c, 1);
            if (n < 0 && errno == EINTR)
                continue;
            if (n != 1 || c == '\n')
                break;
            line += c;
        }
    }
    ::close(tty);
    *pin = chomp(line);
    return true;
}
