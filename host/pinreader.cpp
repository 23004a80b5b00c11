#include "pinreader.h"

#include <QByteArray>

#include <cerrno>
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

} // namespace

PinReader::PinReader(const QString &pinOption, int fd) : m_option(pinOption), m_fd(fd) {}

bool PinReader::next(const QString &promptText, QString *pin, QString *error)
{
    if (!m_option.isNull() && !m_optionUsed) {
        m_optionUsed = true;
        *pin = m_option;
        return true;
    }
    if (m_fd >= 0)
        return fromDescriptor(pin, error);
    return prompt(promptText, pin, error);
}

bool PinReader::nextNew(const QString &promptText, QString *pin, QString *error)
{
    const bool fromTerminal = (m_option.isNull() || m_optionUsed) && m_fd < 0;
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
    termios saved {};
    const bool isTerminal = ::tcgetattr(tty, &saved) == 0;
    if (isTerminal) {
        termios quiet = saved;
        quiet.c_lflag &= ~tcflag_t(ECHO);
        quiet.c_lflag |= ECHONL;
        ::tcsetattr(tty, TCSAFLUSH, &quiet);
    }
    const QByteArray promptBytes = text.toUtf8();
    ssize_t written = ::write(tty, promptBytes.constData(), size_t(promptBytes.size()));
    Q_UNUSED(written);
    QByteArray line;
    char c = 0;
    while (::read(tty, &c, 1) == 1 && c != '\n')
        line += c;
    if (isTerminal)
        ::tcsetattr(tty, TCSAFLUSH, &saved);
    ::close(tty);
    *pin = chomp(line);
    return true;
}
