#include "keydriver.h"

#include <QDebug>
#include <QLibrary>

#include <vector>

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
