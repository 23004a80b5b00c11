// Identity of a file's current version, for cheap change checks: inode,
// size, mtime and ctime. A file written moments before its stamp was taken
// could change again within the same timestamp tick, so such a stamp is not
// trusted until the file has been quiet for a while.
#ifndef SOFTTOKEN_FILESTAMP_H
#define SOFTTOKEN_FILESTAMP_H

#include <string>

#include <sys/types.h>

class FileStamp
{
public:
    static FileStamp of(const std::string &path);

    bool exists() const { return m_exists; }
    // The same version of the file, however recently it was written.
    bool sameAs(const FileStamp &other) const;
    // Same version as other, and other old enough to be trusted.
    bool unchangedSince(const FileStamp &other) const;

private:
    bool m_exists = false;
    ino_t m_ino = 0;
    off_t m_size = 0;
    long long m_mtimeNs = 0;
    long long m_ctimeNs = 0;
    long long m_takenNs = 0;
};

#endif // SOFTTOKEN_FILESTAMP_H
