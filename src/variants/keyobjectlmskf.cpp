#include "keyobjectlmskf.h"

#include <QByteArray>
#include <QScopedValueRollback>
#include <QString>
#include <QStringList>

#include <cstring>

#include "session/skftokenapi.h"
#include "skf/keydriverskf.h"

namespace {

const QLatin1String kObjectPrefix("PUBOBJ");
const QLatin1String kSealPrefix("kfs_seal_");
// Put on at writing, taken off at reading: the family's own readers expect
// the twelve bytes between, so the two stay apart.
const int kHeaderOn = 64;
const int kHeaderOff = 52;
// The writer puts the number at 8 in decimal; readers take it at 4 to 19
// in hexadecimal.
const int kDigitsAt = 8;
const int kDigitsRoom = 40;
const int kLengthAt = 56;
const int kNumberAt = 4;
const int kNumberRoom = 16;
// A listed object has more than its number's bytes.
const int kShortestObject = 20;
// Host numbers above this name plain files; object indexes stop here.
const qint64 kLastObject = 999;

// Where each step of a file operation logs.
const char *const kStepFunction[] = {"createFile", "readFile", "writeFile", "deleteFile",
                                     "writeFileV1", "writeFileV1", "readFile"};

// Wrapping arithmetic: numbers come from the token's bytes and the host.
QString plusOne(qint64 number)
{
    return QString::number(qint64(quint64(number) + 1));
}

// The digits the header holds for a host's name: its number less one.
QByteArray headerDigits(const QString &hostName)
{
    return QByteArray::number(qint64(quint64(hostName.toLongLong()) - 1));
}

QByteArray objectHeader(const QByteArray &digits, quint64 dataLength)
{
    QByteArray header(kHeaderOn, '\0');
    std::memcpy(header.data() + kDigitsAt, digits.constData(), size_t(qMin(digits.size(), kDigitsRoom)));
    header[48] = 1;
    header[50] = 1;
    for (int i = 0; i < 8; ++i)
        header[kLengthAt + i] = char((dataLength >> (8 * i)) & 0xFF);
    return header;
}

// The number in an object's bytes 4 to 19, text up to a NUL, blanks
// around it allowed.
qint64 objectNumber(const QByteArray &data, bool *ok)
{
    const QByteArray field = data.mid(kNumberAt, kNumberRoom);
    return QString::fromLatin1(field.left(field.indexOf('\0'))).toLongLong(ok, 16); // no NUL: left(-1) is all
}

} // namespace

KeyObjectLmSKF::KeyObjectLmSKF(KeyDriverPackage *package, QString devName, QObject *parent)
    : KeySession(package, devName, probingTraits("[TWKeyObjectLmSKF::PrintError] Error:", " SKF_GetPINInfo_lm "),
                 new SkfTokenApi(qobject_cast<KeyDriverSKF *>(parent))),
      m_hasPubObj(false), m_listing(false)
{
}

KeyObjectLmSKF::~KeyObjectLmSKF()
{
    KeyObjectLmSKF::closeV1();
}

int KeyObjectLmSKF::isDigitStr(QString text)
{
    const QByteArray bytes = text.toLatin1();
    for (const char c : bytes) {
        if (c < '0' || c > '9')
            return 1;
    }
    return 0;
}

QByteArray KeyObjectLmSKF::readFileV1(QString fileName, quint64 ulOffset, quint64 ulSize)
{
    return KeySession::readFile(fileName, ulOffset, ulSize);
}

bool KeyObjectLmSKF::mapped(const QString &hostName) const
{
    return m_hasPubObj && !m_mapFileName.isEmpty() && m_mapFileName.contains(hostName);
}

bool KeyObjectLmSKF::allocates(const QString &name) const
{
    return m_hasPubObj && !name.startsWith(kSealPrefix) && isDigitStr(name) == 0;
}

// A number past the last object index stays a plain name. Else the first
// index whose name no object of the map has, in any case, is taken, and
// the last one stands if all are. Logged as `word` when done.
QString KeyObjectLmSKF::allocated(const char *function, const char *word, const QString &name) const
{
    const QString object = objectFor(function, name);
    say(function, __LINE__, QString::fromLatin1(word) + object);
    return object;
}

QString KeyObjectLmSKF::objectFor(const char *function, const QString &name) const
{
    bool ok = false;
    const qint64 number = name.toLongLong(&ok);
    if (!ok || number > kLastObject)
        return name;
    qint64 index = number - 1;
    for (;;) {
        const QString candidate = kObjectPrefix + QString::number(index, 16);
        bool taken = false;
        for (auto it = m_mapFileName.cbegin(); it != m_mapFileName.cend() && !taken; ++it) {
            say(function, __LINE__, QLatin1String(" key: ") + it.key() + QLatin1String(", value: ") + it.value());
            taken = it.value().compare(candidate, Qt::CaseInsensitive) == 0;
        }
        if (!taken || ++index == kLastObject)
            return candidate;
    }
}

QStringList KeyObjectLmSKF::enumFiles()
{
    m_hasPubObj = false;
    return KeySession::enumFiles();
}

QStringList KeyObjectLmSKF::filesFound(const QStringList &names)
{
    for (const QString &name : names) {
        say("enumFiles", __LINE__, QStringLiteral(" value: ") + name);
        if (name.startsWith(kObjectPrefix))
            m_hasPubObj = true;
    }
    m_mapFileName.clear();
    if (!m_hasPubObj)
        return names;

    // Appended one by one: a key pulled while an object is read closes
    // the session, which empties the list so far.
    const QScopedValueRollback<bool> listing(m_listing, true);
    for (const QString &name : names) {
        if (name.startsWith(kObjectPrefix)) {
            const QByteArray data = readFileV1(name, 0, kShortestObject);
            if (data.size() <= kShortestObject)
                continue;
            bool ok = false;
            const qint64 number = objectNumber(data, &ok);
            say("enumFiles", __LINE__, QLatin1String(" iNam(PUBOBJ): ") + QString::number(number));
            const QString key = plusOne(number);
            if (!ok || m_mapFileName.contains(key))
                continue;
            m_mapFileName.insert(key, name);
            say("enumFiles", __LINE__, QLatin1String(" insert strName(A): key: ") + key + QLatin1String(";  value: ") + name);
            m_fileList.append(key);
        } else if (name.startsWith(kSealPrefix)) {
            m_fileList.append(name);
        } else if (isDigitStr(name) == 0) {
            // A digit file wins over an object of the same number.
            const bool known = m_mapFileName.contains(name);
            m_mapFileName.insert(name, name);
            say("enumFiles", __LINE__, QLatin1String(known ? " updata strName: " : " insert strName(B): ") + name
                                           + QLatin1String(";  value: ") + name);
            if (!known)
                m_fileList.append(name);
        }
    }
    return m_fileList;
}

QString KeyObjectLmSKF::fileStep(FileStep step, const QString &hostName, const QString &name, QByteArray *data)
{
    if (m_listing)
        return name;
    const char *function = kStepFunction[int(step)];
    if (step == FileStep::ReadDone) {
        if (m_hasPubObj && name.startsWith(kObjectPrefix))
            data->remove(0, kHeaderOff);
        return name;
    }
    if (step == FileStep::ReplaceMake) {
        const QString target =
            !mapped(hostName) && allocates(name) ? allocated(function, " P11 fileName(B): ", name) : name;
        // writeFileV1 heads objects only, a mapped digit file not.
        if (m_hasPubObj && target.startsWith(kObjectPrefix))
            data->prepend(objectHeader(headerDigits(hostName), quint64(data->size())));
        return target;
    }

    // writeFileV1 has listed the files already.
    if (step != FileStep::Replace)
        enumFiles();
    const bool found = mapped(hostName);
    const QString target = found ? m_mapFileName.value(hostName) : name;
    switch (step) {
    case FileStep::Create: {
        if (m_hasPubObj)
            say(function, __LINE__, QStringLiteral(" P11 fileName(A): ") + target);
        return !found && allocates(target) ? allocated(function, " P11 fileName: ", target) : target;
    }
    case FileStep::Write:
        // Whatever the map knows gets a header, a digit file too.
        if (found) {
            say(function, __LINE__, QStringLiteral(" P11 fileName: ") + target);
            data->prepend(objectHeader(headerDigits(hostName), quint64(data->size())));
        }
        return target;
    case FileStep::Replace:
        say(function, __LINE__, QStringLiteral(" P11 fileName(A): ") + target);
        return target;
    default:
        if (m_hasPubObj)
            say(function, __LINE__, QStringLiteral(" P11 fileName: ") + target);
        return target;
    }
}

// The label field is 32 bytes: a longer name is cut there.
void KeyObjectLmSKF::labelSet(const QString &label)
{
    std::memset(devInfo.Label, 0, sizeof(devInfo.Label));
    const QByteArray bytes = label.toUtf8();
    const int count = qMin(qMin(label.size(), bytes.size()), int(sizeof(devInfo.Label)));
    std::memcpy(devInfo.Label, bytes.constData(), size_t(count));
    say("SetlabelName", __LINE__, QStringLiteral(" Changed DevInfo"));
}
