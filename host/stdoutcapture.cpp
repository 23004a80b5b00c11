#include "stdoutcapture.h"

#include <QByteArray>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

StdoutCapture::StdoutCapture(std::function<void(const QString &)> sink) : m_sink(std::move(sink))
{
    std::fflush(stdout);
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
        return;
    m_savedFd = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    const int realFd = m_savedFd >= 0 ? ::fcntl(m_savedFd, F_DUPFD_CLOEXEC, 3) : -1;
    m_real = realFd >= 0 ? ::fdopen(realFd, "w") : nullptr;
    if (!m_real || ::dup2(fds[1], STDOUT_FILENO) < 0) {
        if (m_real)
            std::fclose(m_real);
        else if (realFd >= 0)
            ::close(realFd);
        m_real = nullptr;
        if (m_savedFd >= 0)
            ::close(m_savedFd);
        m_savedFd = -1;
        ::close(fds[0]);
        ::close(fds[1]);
        return;
    }
    // Descriptor 1 is now the only write end, so putting it back ends the reader.
    ::close(fds[1]);
    m_reader = std::thread(&StdoutCapture::readLines, this, fds[0]);
}

StdoutCapture::~StdoutCapture()
{
    if (m_savedFd < 0)
        return;
    std::fflush(stdout);
    std::fflush(m_real);
    ::dup2(m_savedFd, STDOUT_FILENO);
    ::close(m_savedFd);
    m_reader.join();
    std::fclose(m_real);
}

void StdoutCapture::readLines(int fd)
{
    QByteArray pending;
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        pending.append(buffer, int(n));
        int end;
        while ((end = pending.indexOf('\n')) >= 0) {
            m_sink(QString::fromUtf8(pending.left(end)));
            pending.remove(0, end + 1);
        }
    }
    if (!pending.isEmpty())
        m_sink(QString::fromUtf8(pending));
    ::close(fd);
}
