// Sends the process's standard output into a file for a while, to read what
// printf wrote there.
#ifndef TWTEST_STDOUTCAPTURE_H
#define TWTEST_STDOUTCAPTURE_H

#include <QByteArray>
#include <QFile>
#include <QString>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

class StdoutCapture
{
public:
    explicit StdoutCapture(const QString &path) : m_path(path)
    {
        std::fflush(stdout);
        m_saved = ::dup(STDOUT_FILENO);
        const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::dup2(fd, STDOUT_FILENO);
        ::close(fd);
    }
    ~StdoutCapture() { finish(); }

    // Restores standard output and returns what was written meanwhile.
    QByteArray finish()
    {
        if (m_saved >= 0) {
            std::fflush(stdout);
            ::dup2(m_saved, STDOUT_FILENO);
            ::close(m_saved);
            m_saved = -1;
            QFile file(m_path);
            if (file.open(QIODevice::ReadOnly))
                m_text = file.readAll();
        }
        return m_text;
    }

private:
    QString m_path;
    int m_saved = -1;
    QByteArray m_text;
};

#endif
