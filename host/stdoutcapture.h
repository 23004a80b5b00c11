// Keeps what the library prints on standard output out of the command's
// own output: file descriptor 1 is moved onto a pipe whose lines go to a
// sink (the log), and the command writes to the real standard output
// through realStdout().
#ifndef TWHOST_STDOUTCAPTURE_H
#define TWHOST_STDOUTCAPTURE_H

#include <QString>

#include <cstdio>
#include <functional>
#include <thread>

class StdoutCapture
{
public:
    explicit StdoutCapture(std::function<void(const QString &)> sink);
    // Flushes, gives each last line to the sink and puts descriptor 1 back.
    ~StdoutCapture();

    StdoutCapture(const StdoutCapture &) = delete;
    StdoutCapture &operator=(const StdoutCapture &) = delete;

    // The real standard output; stdout itself when nothing could be moved.
    FILE *realStdout() const { return m_real ? m_real : stdout; }

private:
    void readLines(int fd);

    std::function<void(const QString &)> m_sink;
    FILE *m_real = nullptr;
    int m_savedFd = -1;
    std::thread m_reader;
};

#endif
