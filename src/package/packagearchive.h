#ifndef TWKEY_PACKAGEARCHIVE_H
#define TWKEY_PACKAGEARCHIVE_H

#include <QString>

// The packed form of a key driver package. The archive is unpacked into a
// fresh private folder beside the work folder, never through a link, and
// only when all of it unpacked and every link it made stays inside is it
// moved into the work folder, entry by entry, by rename. A refused archive
// leaves nothing behind; what it would have written never lands outside.
class PackageArchive
{
public:
    // What one archive may unpack to: bytes in all, times the archive's
    // own size, entries.
    static constexpr qint64 kMaxTotal = 64 << 20;
    static constexpr int kMaxRatio = 100;
    static constexpr int kMaxEntries = 4096;

    // Unpacks `archive` into `workPath`; false with the reason in `why`.
    static bool unpack(const QString &archive, const QString &workPath, QString *why);
};

#endif
