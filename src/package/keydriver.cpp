#include "keydriver.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QLibrary>

#include <cstring>
#include <vector>

#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/twcoreaccess.h"
#include "frame/twlog.h"

namespace {

const quint32 kUnknownError = 0x0A000002; // SAR_UNKNOWNERR

void logDebug(const char *function, int line, const QString &text)
{
    if (twlog::enabled())
        twlog::debug(function, line, text);
}

void logError(const char *function, int line, const QString &text)
{
    if (twlog::enabled())
        twlog::error(function, line, text);
}

// Why the loader must not map this file, or nothing. The loader maps what
// an ELF file's program headers name, and a page past the end of a cut
// file faults the whole process instead of failing the load; whatever is
// no ELF file of this machine's class the loader refuses well by itself.
QString unloadable(const QString &path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return QString();
    struct stat st;
    ElfW(Ehdr) header;
    // A folder the loader refuses by itself; a FIFO or a device it would
    // wait on or read on.
    const bool regular = ::fstat(fd, &st) == 0 && (S_ISREG(st.st_mode) || S_ISDIR(st.st_mode));
    const ssize_t got = regular ? ::pread(fd, &header, sizeof(header), 0) : 0;
    const quint64 size = quint64(st.st_size);
    const bool elf = got >= SELFMAG && std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0;
    QString why;
    if (!regular) {
        why = QStringLiteral("not a regular file");
    } else if (elf && got < ssize_t(sizeof(header))) {
        why = QStringLiteral("ELF header cut short");
    } else if (elf && header.e_ident[EI_CLASS] == (sizeof(void *) == 8 ? ELFCLASS64 : ELFCLASS32)) {
        const quint64 table = quint64(header.e_phnum) * sizeof(ElfW(Phdr));
        std::vector<ElfW(Phdr)> segments(header.e_phnum);
        if (header.e_phentsize != sizeof(ElfW(Phdr)) || header.e_phoff > size || table > size - header.e_phoff
            || ::pread(fd, segments.data(), table, off_t(header.e_phoff)) != ssize_t(table))
            why = QStringLiteral("program headers beyond the end of the file");
        for (const ElfW(Phdr) &s : segments) {
            if (why.isEmpty() && (s.p_offset > size || s.p_filesz > size - s.p_offset))
                why = QStringLiteral("a segment beyond the end of the file");
        }
    }
    ::close(fd);
    return why;
}

// The files QLibrary may try for a name: as given, with ".so", and both
// with "lib" ahead of the base name.
QStringList libraryFiles(const QString &fileName)
{
    const QFileInfo info(fileName);
    QStringList names{info.fileName()};
    if (!names[0].startsWith(QLatin1String("lib")))
        names << QStringLiteral("lib") + names[0];
    QStringList files;
    for (const QString &name : names) {
        const QString file = info.path() + QLatin1Char('/') + name;
        files << file;
        if (!name.endsWith(QLatin1String(".so")))
            files << file + QStringLiteral(".so");
    }
    return files;
}

} // namespace

KeyDriver::KeyDriver(QObject *parent) : QObject(parent) {}

KeyDriver::~KeyDriver() = default;

qint64 KeyDriver::lastError()
{
    return qint64(twcore::lastError());
}

void KeyDriver::setLastError(long long code)
{
    twcore::setLastError(quint32(code));
}

bool KeyDriver::openLibrary(const char *function, QLibrary &library, const QString &fileName)
{
    logDebug(function, __LINE__, QString::asprintf("FileName: %s", qUtf8Printable(fileName)));
    for (const QString &file : libraryFiles(fileName)) {
        const QString why = unloadable(file);
        if (!why.isEmpty()) {
            logError(function, __LINE__, QString::asprintf("end. error msg %s: %s", qUtf8Printable(file), qUtf8Printable(why)));
            return false;
        }
    }
    library.setFileName(fileName);
    if (library.load())
        return true;
    logError(function, __LINE__, QString::asprintf("end. error msg %s", qUtf8Printable(library.errorString())));
    return false;
}

bool KeyDriver::acceptMissing(const char *name, bool required)
{
    if (required) {
        qDebug("Error: load dll function [%s] failed", name);
        return false;
    }
    qDebug("Warning: load dll function [%s] failed", name);
    return true;
}

void KeyDriver::enumDevices(const char *function, QStringList &list, const DevListCall &call)
{
    list.clear();

    quint32 size = 0;
    quint32 ret = kUnknownError;
    try {
        if (call) {
            ret = call(nullptr, &size);
            logDebug(function, __LINE__, QString::asprintf("SKF_EnumDev: ret: %d,size: %d", int(ret), int(size)));
        }
    } catch (...) {
        logError(function, __LINE__, QStringLiteral("pSKF_EnumDev catch Exception ..."));
        ret = kUnknownError;
    }
    if (ret != 0) {
        logError(function, __LINE__, QString::asprintf("SKF_EnumDev: ret: %d", int(ret)));
        return;
    }

    // Twice what the library asked for, as a margin; the second call is
    // told the doubled length.
    size *= 2;
    const quint32 capacity = size;
    std::vector<char> buffer(size_t(capacity) + 1, '\0');
    ret = call(buffer.data(), &size);
    logDebug(function, __LINE__, QString::asprintf("SKF_EnumDev: ret: %d,size: %d", int(ret), int(size)));
    if (ret != 0) {
        logError(function, __LINE__, QString::asprintf("SKF_EnumDev: ret: %d,size: %d", int(ret), int(size)));
        setLastError(ret);
        return;
    }
    logDebug(function, __LINE__, QString::asprintf("pszDevNameList:  %s", buffer.data()));

    // A library that reports more than it was given is read no further
    // than the buffer.
    QByteArray names(buffer.data(), int(qMin(size, capacity)));
    QString logText = QStringLiteral("DevNameList:");
    while (!names.isEmpty()) {
        const int end = names.indexOf('\0');
        const QByteArray raw = end < 0 ? names : names.left(end);
        const QString name = QString::fromLocal8Bit(raw);
        if (name.isEmpty())
            break;
        list.append(name);
        logText += name + QLatin1Char(';');
        names = names.right(names.size() - raw.size() - 1);
    }
    logDebug(function, __LINE__, logText);
}

int KeyDriver::count()
{
    m_devList = enumDev();
    qDebug() << "devList:" << m_devList;
    TW_LOGF(" devList count: %d ", m_devList.size());
    return m_devList.size();
}

KeyObject *KeyDriver::openKey(int index)
{
    m_devList = enumDev();
    return openAt(__FUNCTION__, index, false);
}

KeyObject *KeyDriver::openKeyWithoutEnumDev(int index)
{
    return openAt(__FUNCTION__, index, true);
}

KeyObject *KeyDriver::openAt(const char *function, int index, bool noload)
{
    if (index < 0 || index >= m_devList.size()) {
        logError(function, __LINE__, QString::asprintf(" devList count:%d", m_devList.size()));
        return nullptr;
    }
    logDebug(function, __LINE__, QString::asprintf(" dev name:%s", qUtf8Printable(m_devList.at(index))));
    return open(m_devList.at(index), noload);
}
