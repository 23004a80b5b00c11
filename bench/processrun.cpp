#include "processrun.h"

#include <QFile>

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

extern char **environ;

namespace {

double msOf(const struct timeval &t)
{
    return double(t.tv_sec) * 1e3 + double(t.tv_usec) / 1e3;
}

double nowMs()
{
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return double(t.tv_sec) * 1e3 + double(t.tv_nsec) / 1e6;
}

} // namespace

bool ProcessRun::run(const QString &program, const QStringList &args)
{
    std::vector<QByteArray> bytes{QFile::encodeName(program)};
    for (const QString &a : args)
        bytes.push_back(a.toLocal8Bit());
    std::vector<char *> argv;
    for (QByteArray &b : bytes)
        argv.push_back(b.data());
    argv.push_back(nullptr);
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0)
        return false;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    const double start = nowMs();
    pid_t pid = -1;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    output.clear();
    char buf[65536];
    ssize_t n;
    while (spawned == 0 && (n = ::read(out[0], buf, sizeof buf)) != 0) {
        if (n > 0)
            output.append(buf, int(n));
        else if (errno != EINTR)
            break;
    }
    ::close(out[0]);
    if (spawned != 0)
        return false;
    int status = 0;
    struct rusage usage;
    while (::wait4(pid, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    wallMs = nowMs() - start;
    cpuMs = msOf(usage.ru_utime) + msOf(usage.ru_stime);
    exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return true;
}

double ProcessRun::median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t mid = values.size() / 2;
    return values.size() % 2 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
}
