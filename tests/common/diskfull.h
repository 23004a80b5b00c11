// A full disk as this process sees it: no file of it may grow.
#ifndef TWTEST_DISKFULL_H
#define TWTEST_DISKFULL_H

#include <csignal>
#include <sys/resource.h>

inline bool diskFull(bool full)
{
    rlimit r;
    std::signal(SIGXFSZ, full ? SIG_IGN : SIG_DFL); // children inherit it
    ::getrlimit(RLIMIT_FSIZE, &r);
    r.rlim_cur = full ? 0 : r.rlim_max;
    return ::setrlimit(RLIMIT_FSIZE, &r) == 0;
}

#endif
