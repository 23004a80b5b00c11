#include "filestamp.h"

#include <sys/stat.h>
#include <time.h>

namespace {

// Far above the coarse clock tick that file timestamps use.
const long long kSettleNs = 50LL * 1000 * 1000;

long long ns(const struct timespec &t) { return (long long)t.tv_sec * 1000000000LL + t.tv_nsec; }

} // namespace

FileStamp FileStamp::of(const std::string &path)
{
    FileStamp s;
    struct stat st;
    if (::stat(path.c_str(), &st) != 0)
        return s;
    struct timespec now;
    ::clock_gettime(CLOCK_REALTIME, &now);
    s.m_exists = true;
    s.m_ino = st.st_ino;
    s.m_size = st.st_size;
    s.m_mtimeNs = ns(st.st_mtim);
    s.m_ctimeNs = ns(st.st_ctim);
    s.m_takenNs = ns(now);
    return s;
}

bool FileStamp::sameAs(const FileStamp &other) const
{
    return m_exists && other.m_exists && m_ino == other.m_ino && m_size == other.m_size
           && m_mtimeNs == other.m_mtimeNs && m_ctimeNs == other.m_ctimeNs;
}

bool FileStamp::unchangedSince(const FileStamp &other) const
{
    if (!sameAs(other))
        return false;
    const long long changed = other.m_mtimeNs > other.m_ctimeNs ? other.m_mtimeNs : other.m_ctimeNs;
    return other.m_takenNs - changed > kSettleNs;
}
