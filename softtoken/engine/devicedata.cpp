#include "devicedata.h"

#include "tokencrypto.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <openssl/crypto.h>

namespace {

// Enough to make a stolen store file costly to brute-force per PIN, cheap
// enough that a test suite verifying many PINs stays fast.
const int kPinIterations = 2048;
const int kFormat = 1;
// What a key pair takes of the token's space.
const quint32 kKeyPairCost = 512;

QString b64(const QByteArray &b) { return QString::fromLatin1(b.toBase64()); }
QByteArray unb64(const QJsonValue &v) { return QByteArray::fromBase64(v.toString().toLatin1()); }
// A 32-bit field; a damaged file's number out of range reads as 0.
quint32 u32(const QJsonValue &v)
{
    const double d = v.toDouble();
    return d >= 0 && d <= 4294967295.0 ? quint32(d) : 0;
}

QJsonObject pinToJson(const DeviceData::Pin &p)
{
    return QJsonObject{{"salt", b64(p.salt)}, {"hash", b64(p.hash)}, {"iterations", p.iterations},
                       {"maxRetries", p.maxRetries}, {"remaining", p.remaining}, {"default", p.isDefault}};
}

DeviceData::Pin pinFromJson(const QJsonObject &o)
{
    DeviceData::Pin p;
    p.salt = unb64(o.value("salt"));
    p.hash = unb64(o.value("hash"));
    p.iterations = o.value("iterations").toInt();
    p.maxRetries = o.value("maxRetries").toInt();
    p.remaining = o.value("remaining").toInt();
    p.isDefault = o.value("default").toBool();
    return p;
}

const char *algName(DeviceData::KeyAlg a)
{
    return a == DeviceData::Sm2 ? "sm2" : a == DeviceData::Rsa ? "rsa" : "none";
}

QJsonObject keyToJson(const DeviceData::KeyPair &k)
{
    return QJsonObject{{"alg", algName(k.alg)}, {"bits", k.bits}, {"private", b64(k.priv)}};
}

DeviceData::KeyPair keyFromJson(const QJsonObject &o)
{
    DeviceData::KeyPair k;
    const QString alg = o.value("alg").toString();
    k.alg = alg == "sm2" ? DeviceData::Sm2 : alg == "rsa" ? DeviceData::Rsa : DeviceData::NoKey;
    k.bits = o.value("bits").toInt();
    k.priv = unb64(o.value("private"));
    if (k.priv.isEmpty())
        k.alg = DeviceData::NoKey;
    return k;
}

QJsonArray versionToJson(quint8 major, quint8 minor) { return QJsonArray{major, minor}; }

void versionFromJson(const QJsonValue &v, quint8 *major, quint8 *minor)
{
    const QJsonArray a = v.toArray();
    *major = quint8(a.at(0).toInt());
    *minor = quint8(a.at(1).toInt());
}

} // namespace

const char *const DeviceData::StandardProfile = "standard";
const char *const DeviceData::WgProfile = "wg";

bool DeviceData::validProfile(const QString &profile)
{
    return profile == QLatin1String(StandardProfile) || profile == QLatin1String(WgProfile);
}

void DeviceData::Pin::set(const QByteArray &pin)
{
    salt = TokenCrypto::random(16);
    iterations = kPinIterations;
    hash = TokenCrypto::pinHash(pin, salt, iterations);
}

bool DeviceData::Pin::matches(const QByteArray &pin) const
{
    if (hash.isEmpty() || iterations <= 0)
        return false;
    const QByteArray h = TokenCrypto::pinHash(pin, salt, iterations);
    return h.size() == hash.size() && CRYPTO_memcmp(h.constData(), hash.constData(), size_t(h.size())) == 0;
}

DeviceData::ContainerType DeviceData::Container::type() const
{
    const KeyAlg a = sign.alg != NoKey ? sign.alg : enc.alg;
    return a == Sm2 ? EccContainer : a == Rsa ? RsaContainer : EmptyContainer;
}

DeviceData::File *DeviceData::App::file(const QString &fileName)
{
    for (File &f : files)
        if (f.name == fileName)
            return &f;
    return nullptr;
}

const DeviceData::File *DeviceData::App::file(const QString &fileName) const
{
    return const_cast<App *>(this)->file(fileName);
}

DeviceData::Container *DeviceData::App::container(const QString &containerName)
{
    for (Container &c : containers)
        if (c.name == containerName)
            return &c;
    return nullptr;
}

const DeviceData::Container *DeviceData::App::container(const QString &containerName) const
{
    return const_cast<App *>(this)->container(containerName);
}

DeviceData::App *DeviceData::app(const QString &appName)
{
    for (App &a : apps)
        if (a.name == appName)
            return &a;
    return nullptr;
}

const DeviceData::App *DeviceData::app(const QString &appName) const
{
    return const_cast<DeviceData *>(this)->app(appName);
}

quint32 DeviceData::usedSpace() const
{
    quint64 used = 0;
    for (const App &a : apps) {
        used += quint64(a.sealData.size());
        for (const File &f : a.files)
            used += quint64(f.data.size());
        for (const Container &c : a.containers) {
            used += quint64(c.signCert.size() + c.encCert.size());
            used += (c.sign.alg != NoKey ? kKeyPairCost : 0) + (c.enc.alg != NoKey ? kKeyPairCost : 0);
        }
    }
    return used > 0xFFFFFFFFu ? 0xFFFFFFFFu : quint32(used);
}

quint32 DeviceData::freeSpace() const
{
    const quint32 used = usedSpace();
    return used >= totalSpace ? 0 : totalSpace - used;
}

QByteArray DeviceData::toJson() const
{
    QJsonArray appArray;
    for (const App &a : apps) {
        QJsonArray fileArray, containerArray;
        QJsonObject keys;
        for (const File &f : a.files)
            fileArray.append(QJsonObject{{"name", f.name}, {"read", qint64(f.readRights)},
                                         {"write", qint64(f.writeRights)}, {"data", b64(f.data)}});
        for (const Container &c : a.containers)
            containerArray.append(QJsonObject{{"name", c.name}, {"sign", keyToJson(c.sign)}, {"enc", keyToJson(c.enc)},
                                              {"signCert", b64(c.signCert)}, {"encCert", b64(c.encCert)}});
        for (auto it = a.symmKeys.constBegin(); it != a.symmKeys.constEnd(); ++it)
            keys.insert(QString::number(it.key()),
                        QJsonObject{{"alg", qint64(it.value().algId)}, {"key", b64(it.value().key)}});
        appArray.append(QJsonObject{{"name", a.name}, {"adminPin", pinToJson(a.admin)}, {"userPin", pinToJson(a.user)},
                                    {"createFileRights", qint64(a.createFileRights)}, {"files", fileArray},
                                    {"containers", containerArray}, {"seal", b64(a.sealData)}, {"symmKeys", keys}});
    }
    const QJsonObject info{{"profile", profile}, {"label", label}, {"serial", serial}, {"manufacturer", manufacturer}, {"issuer", issuer},
                           {"hwVersion", versionToJson(hwMajor, hwMinor)},
                           {"firmwareVersion", versionToJson(fwMajor, fwMinor)}, {"totalSpace", qint64(totalSpace)}};
    const QJsonObject root{{"format", kFormat}, {"info", info}, {"devAuthKey", b64(devAuthKey)}, {"apps", appArray}};
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}

bool DeviceData::fromJson(const QByteArray &json, DeviceData *out, QString *error)
{
    QJsonParseError pe;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &pe);
    if (!doc.isObject()) {
        if (error)
            *error = QStringLiteral("device file is not valid JSON: %1").arg(pe.errorString());
        return false;
    }
    const QJsonObject root = doc.object();
    if (root.value("format").toInt() != kFormat) {
        if (error)
            *error = QStringLiteral("device file has an unknown format");
        return false;
    }
    DeviceData d;
    const QJsonObject info = root.value("info").toObject();
    d.profile = info.value("profile").toString(QLatin1String(StandardProfile));
    if (!validProfile(d.profile)) {
        if (error)
            *error = QStringLiteral("device file names an unknown profile");
        return false;
    }
    d.label = info.value("label").toString();
    d.serial = info.value("serial").toString();
    d.manufacturer = info.value("manufacturer").toString();
    d.issuer = info.value("issuer").toString();
    versionFromJson(info.value("hwVersion"), &d.hwMajor, &d.hwMinor);
    versionFromJson(info.value("firmwareVersion"), &d.fwMajor, &d.fwMinor);
    d.totalSpace = u32(info.value("totalSpace"));
    d.devAuthKey = unb64(root.value("devAuthKey"));
    for (const QJsonValue &av : root.value("apps").toArray()) {
        const QJsonObject ao = av.toObject();
        App a;
        a.name = ao.value("name").toString();
        a.admin = pinFromJson(ao.value("adminPin").toObject());
        a.user = pinFromJson(ao.value("userPin").toObject());
        a.createFileRights = u32(ao.value("createFileRights"));
        a.sealData = unb64(ao.value("seal"));
        for (const QJsonValue &fv : ao.value("files").toArray()) {
            const QJsonObject fo = fv.toObject();
            File f;
            f.name = fo.value("name").toString();
            f.readRights = u32(fo.value("read"));
            f.writeRights = u32(fo.value("write"));
            f.data = unb64(fo.value("data"));
            a.files.append(f);
        }
        for (const QJsonValue &cv : ao.value("containers").toArray()) {
            const QJsonObject co = cv.toObject();
            Container c;
            c.name = co.value("name").toString();
            c.sign = keyFromJson(co.value("sign").toObject());
            c.enc = keyFromJson(co.value("enc").toObject());
            c.signCert = unb64(co.value("signCert"));
            c.encCert = unb64(co.value("encCert"));
            a.containers.append(c);
        }
        const QJsonObject keys = ao.value("symmKeys").toObject();
        for (auto it = keys.constBegin(); it != keys.constEnd(); ++it) {
            const QJsonObject ko = it.value().toObject();
            a.symmKeys.insert(it.key().toUInt(), SymmKey{u32(ko.value("alg")), unb64(ko.value("key"))});
        }
        d.apps.append(a);
    }
    *out = d;
    return true;
}

bool DeviceData::validName(const QString &name, int maxBytes)
{
    const QByteArray utf8 = name.toUtf8();
    return !utf8.isEmpty() && utf8.size() <= maxBytes && !utf8.contains('\0');
}
