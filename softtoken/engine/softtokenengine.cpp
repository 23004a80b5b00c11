#include "softtokenengine.h"

#include "devicestore.h"
#include "faultplan.h"
#include "tokencrypto.h"
#include "twfapi.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

namespace {

const DeviceData::App *findApp(const DeviceData &data, const QString &app)
{
    if (app.isEmpty())
        return data.apps.isEmpty() ? nullptr : &data.apps.first();
    return data.app(app);
}

DeviceData::Pin newPin(const QString &pin, int retries)
{
    DeviceData::Pin p;
    p.set(pin.toUtf8());
    p.maxRetries = retries;
    p.remaining = retries;
    p.isDefault = true;
    return p;
}

bool makeKeyPair(const SoftTokenEngine::ContainerSetup &setup, DeviceData::KeyPair *out)
{
    if (setup.type == SoftTokenEngine::ContainerSetup::Sm2) {
        out->alg = DeviceData::Sm2;
        out->bits = 256;
        out->priv = TokenCrypto::sm2Generate();
    } else {
        out->alg = DeviceData::Rsa;
        out->bits = setup.rsaBits;
        out->priv = TokenCrypto::rsaGenerate(setup.rsaBits);
    }
    return !out->priv.isEmpty();
}

bool validPin(const QString &pin)
{
    const int len = pin.toUtf8().size();
    return len >= 6 && len <= 16;
}

QJsonObject pinJson(const DeviceData::Pin &p)
{
    return QJsonObject{{"maxRetries", p.maxRetries}, {"remaining", p.remaining}, {"default", p.isDefault}};
}

const char *containerTypeName(int type)
{
    return type == DeviceData::EccContainer ? "sm2" : type == DeviceData::RsaContainer ? "rsa" : "empty";
}

// Appends a planned fault or size lie for the next times calls of its
// function, after checking both.
bool planEntry(const QString &storeDir, const QString &device, FaultPlan::Entry e, int times, QString *error)
{
    const QString name = SoftTokenEngine::planName(e.function);
    if (name.isEmpty()) {
        *error = QStringLiteral("unknown function '%1': give an SKF_, EPS_, TWF_ or TWEPS_ name").arg(e.function);
        return false;
    }
    e.function = name;
    if (times == 0 || times < SoftTokenEngine::UntilCleared) {
        *error = QStringLiteral("the number of calls must be positive");
        return false;
    }
    e.remaining = times;
    return DeviceStore(storeDir).updateFaults(device, [&](FaultPlan &plan) {
        plan.entries.append(e);
        return true;
    }, error);
}

} // namespace

bool SoftTokenEngine::ContainerSetup::parse(const QString &text, ContainerSetup *out, QString *error)
{
    const QStringList parts = text.split(QLatin1Char(':'));
    ContainerSetup setup;
    setup.name = parts.value(0);
    bool ok = DeviceData::validName(setup.name) && parts.size() <= 3;
    if (ok && parts.size() >= 2) {
        const QString type = parts.at(1).toLower();
        if (type == QLatin1String("sm2") && parts.size() == 2)
            setup.type = Sm2;
        else if (type == QLatin1String("rsa"))
            setup.type = Rsa;
        else
            ok = false;
    }
    if (ok && parts.size() == 3) {
        setup.rsaBits = parts.at(2).toInt(&ok);
        ok = ok && (setup.rsaBits == 1024 || setup.rsaBits == 2048);
    }
    if (!ok) {
        if (error)
            *error = QStringLiteral("bad container '%1': expected NAME, NAME:sm2 or NAME:rsa[:1024|2048], "
                                    "the name 1 to 32 bytes").arg(text);
        return false;
    }
    *out = setup;
    return true;
}

SoftTokenEngine::SoftTokenEngine(const QString &storeDir)
    : m_storeDir(storeDir.isEmpty() ? DeviceStore::defaultRoot() : storeDir)
{
}

QString SoftTokenEngine::defaultStoreDir()
{
    return DeviceStore::defaultRoot();
}

bool SoftTokenEngine::fail(const QString &message) const
{
    m_error = message;
    return false;
}

bool SoftTokenEngine::createDevice(const DeviceOptions &o)
{
    if (!DeviceStore::validDeviceName(o.name))
        return fail(QStringLiteral("invalid device name '%1': use 1 to 64 letters, digits, '.', '_' or '-'").arg(o.name));
    if (!DeviceData::validName(o.app))
        return fail(QStringLiteral("invalid application name '%1'").arg(o.app));
    if (!DeviceData::validProfile(o.profile))
        return fail(QStringLiteral("unknown profile '%1': use standard or wg").arg(o.profile));
    if (!validPin(o.adminPin) || !validPin(o.userPin))
        return fail(QStringLiteral("PINs must be 6 to 16 bytes long"));
    if (o.adminRetries < 1 || o.adminRetries > 15 || o.userRetries < 1 || o.userRetries > 15)
        return fail(QStringLiteral("retry counts must be between 1 and 15"));
    if (o.label.toUtf8().size() > 31 || o.manufacturer.toUtf8().size() > 63 || o.issuer.toUtf8().size() > 63
        || o.serial.toUtf8().size() > 31)
        return fail(QStringLiteral("label up to 31 bytes, serial up to 31, manufacturer and issuer up to 63"));
    QSet<QString> seen;
    for (const ContainerSetup &c : o.containers) {
        if (!DeviceData::validName(c.name) || seen.contains(c.name))
            return fail(QStringLiteral("invalid or repeated container name '%1'").arg(c.name));
        seen.insert(c.name);
    }
    DeviceStore store(m_storeDir);
    if (store.exists(o.name))
        return fail(QStringLiteral("device %1 already exists in %2").arg(o.name, m_storeDir));

    QSet<QString> serials;
    for (const DeviceSummary &d : listDevices())
        serials.insert(d.serial);
    QString serial = o.serial;
    if (serial.isEmpty()) {
        do {
            serial = QStringLiteral("STK") + QString::fromLatin1(TokenCrypto::random(9).toHex().toUpper());
        } while (serials.contains(serial));
    } else if (serials.contains(serial)) {
        return fail(QStringLiteral("serial number %1 is already used in %2").arg(serial, m_storeDir));
    }

    DeviceData d;
    d.profile = o.profile;
    d.label = o.label.isEmpty() ? o.name : o.label;
    d.serial = serial;
    d.manufacturer = o.manufacturer;
    d.issuer = o.issuer;
    d.totalSpace = o.totalSpace;
    d.devAuthKey = QByteArrayLiteral("1234567812345678");
    DeviceData::App app;
    app.name = o.app;
    app.admin = newPin(o.adminPin, o.adminRetries);
    app.user = newPin(o.userPin, o.userRetries);
    app.createFileRights = DeviceData::Anyone;
    for (const ContainerSetup &setup : o.containers) {
        DeviceData::Container c;
        c.name = setup.name;
        if (setup.type != ContainerSetup::Empty && (!makeKeyPair(setup, &c.sign) || !makeKeyPair(setup, &c.enc)))
            return fail(QStringLiteral("key generation failed for container %1").arg(setup.name));
        app.containers.append(c);
    }
    d.apps.append(app);
    QString error;
    if (!store.create(o.name, d, &error))
        return fail(error);
    return true;
}

bool SoftTokenEngine::removeDevice(const QString &device)
{
    QString error;
    return DeviceStore(m_storeDir).setPresent(device, false, &error) || fail(error);
}

bool SoftTokenEngine::insertDevice(const QString &device)
{
    QString error;
    return DeviceStore(m_storeDir).setPresent(device, true, &error) || fail(error);
}

bool SoftTokenEngine::deleteDevice(const QString &device)
{
    QString error;
    return DeviceStore(m_storeDir).destroy(device, &error) || fail(error);
}

bool SoftTokenEngine::knownFunction(const QString &function)
{
    return !planName(function).isEmpty();
}

QString SoftTokenEngine::planName(const QString &function)
{
#define SOFTTOKEN_NAME_ROW(name, required) QStringLiteral(#name),
    static const QSet<QString> skf{SKF_FUNCTION_ROWS(SOFTTOKEN_NAME_ROW)};
    static const QSet<QString> twf{TWF_FUNCTION_ROWS(SOFTTOKEN_NAME_ROW)};
#undef SOFTTOKEN_NAME_ROW
    if (skf.contains(function))
        return function;
    if (!twf.contains(function) || function.endsWith(QLatin1String("_SDK")))
        return QString(); // the two SDK calls concern no device
    // The native face works through the SKF function of the same stem, and
    // answers TWF_IsFileExist with SKF_GetFileInfo.
    if (function == QLatin1String("TWF_IsFileExist"))
        return QStringLiteral("SKF_GetFileInfo");
    const QString stem = function.startsWith(QLatin1String("TWEPS_")) ? QStringLiteral("EPS_") + function.mid(6)
                                                                       : QStringLiteral("SKF_") + function.mid(4);
    return skf.contains(stem) ? stem : function;
}

bool SoftTokenEngine::setFault(const QString &device, const QString &function, quint32 code, int times, int skip)
{
    FaultPlan::Entry e;
    e.function = function;
    e.code = code;
    e.skip = qMax(0, skip);
    QString error;
    return planEntry(m_storeDir, device, e, times, &error) || fail(error);
}

bool SoftTokenEngine::setSizeLie(const QString &device, const QString &function, qint32 delta, int times, int skip)
{
    FaultPlan::Entry e;
    e.function = function;
    e.skip = qMax(0, skip);
    e.sizeLie = true;
    e.sizeDelta = delta;
    QString error;
    return planEntry(m_storeDir, device, e, times, &error) || fail(error);
}

bool SoftTokenEngine::clearFaults(const QString &device)
{
    QString error;
    return DeviceStore(m_storeDir).updateFaults(device, [](FaultPlan &plan) {
        plan.entries.clear();
        return true;
    }, &error) || fail(error);
}

QList<SoftTokenEngine::DeviceSummary> SoftTokenEngine::listDevices() const
{
    DeviceStore store(m_storeDir);
    QList<DeviceSummary> out;
    for (const QString &name : store.deviceNames()) {
        DeviceData d;
        if (!store.load(name, &d, nullptr))
            continue;
        out.append(DeviceSummary{name, d.serial, store.isPresent(name)});
    }
    return out;
}

bool SoftTokenEngine::deviceExists(const QString &device) const
{
    return DeviceStore(m_storeDir).exists(device);
}

bool SoftTokenEngine::isPresent(const QString &device) const
{
    return DeviceStore(m_storeDir).isPresent(device);
}

bool SoftTokenEngine::pinState(const QString &device, bool admin, PinState *out, const QString &app) const
{
    DeviceData d;
    QString error;
    if (!DeviceStore(m_storeDir).load(device, &d, &error))
        return fail(error);
    const DeviceData::App *a = findApp(d, app);
    if (!a)
        return fail(QStringLiteral("no application %1 on %2").arg(app, device));
    const DeviceData::Pin &p = admin ? a->admin : a->user;
    *out = PinState{p.maxRetries, p.remaining, p.isDefault};
    return true;
}

QStringList SoftTokenEngine::applications(const QString &device) const
{
    DeviceData d;
    QStringList out;
    QString error;
    if (!DeviceStore(m_storeDir).load(device, &d, &error)) {
        fail(error);
        return out;
    }
    for (const DeviceData::App &a : d.apps)
        out.append(a.name);
    return out;
}

QList<SoftTokenEngine::FileInfo> SoftTokenEngine::files(const QString &device, const QString &app) const
{
    DeviceData d;
    QList<FileInfo> out;
    QString error;
    if (!DeviceStore(m_storeDir).load(device, &d, &error)) {
        fail(error);
        return out;
    }
    if (const DeviceData::App *a = findApp(d, app))
        for (const DeviceData::File &f : a->files)
            out.append(FileInfo{f.name, f.data.size(), f.readRights, f.writeRights});
    return out;
}

QList<SoftTokenEngine::ContainerInfo> SoftTokenEngine::containers(const QString &device, const QString &app) const
{
    DeviceData d;
    QList<ContainerInfo> out;
    QString error;
    if (!DeviceStore(m_storeDir).load(device, &d, &error)) {
        fail(error);
        return out;
    }
    if (const DeviceData::App *a = findApp(d, app))
        for (const DeviceData::Container &c : a->containers)
            out.append(ContainerInfo{c.name, int(c.type()), c.sign.alg != DeviceData::NoKey,
                                     c.enc.alg != DeviceData::NoKey, !c.signCert.isEmpty(), !c.encCert.isEmpty()});
    return out;
}

bool SoftTokenEngine::writeFile(const QString &device, const QString &file, const QByteArray &bytes,
                                const QString &app)
{
    if (!DeviceData::validName(file))
        return fail(QStringLiteral("invalid file name '%1': 1 to 32 bytes").arg(file));
    QString error;
    const bool done = DeviceStore(m_storeDir).update(device, [&](DeviceData &d) {
        DeviceData::App *a = app.isEmpty() ? (d.apps.isEmpty() ? nullptr : &d.apps.first()) : d.app(app);
        if (!a) {
            error = QStringLiteral("no application %1 on %2").arg(app, device);
            return false;
        }
        DeviceData::File *f = a->file(file);
        if (!f) {
            a->files.append(DeviceData::File());
            f = &a->files.last();
            f->name = file;
        }
        f->data = bytes;
        if (d.usedSpace() > d.totalSpace) {
            error = QStringLiteral("no room for %1 bytes on %2").arg(bytes.size()).arg(device);
            return false;
        }
        return true;
    }, &error);
    return done || fail(error);
}

QByteArray SoftTokenEngine::showJson(const QString &device) const
{
    DeviceStore store(m_storeDir);
    DeviceData d;
    QString error;
    if (!store.load(device, &d, &error)) {
        fail(error);
        return QByteArray();
    }
    QJsonArray apps;
    for (const DeviceData::App &a : d.apps) {
        QJsonArray files, containers, keys;
        for (const DeviceData::File &f : a.files)
            files.append(QJsonObject{{"name", f.name}, {"size", f.data.size()}, {"readRights", qint64(f.readRights)},
                                     {"writeRights", qint64(f.writeRights)}});
        for (const DeviceData::Container &c : a.containers)
            containers.append(QJsonObject{{"name", c.name}, {"type", containerTypeName(c.type())},
                                          {"signKey", c.sign.alg != DeviceData::NoKey},
                                          {"encKey", c.enc.alg != DeviceData::NoKey},
                                          {"signCert", !c.signCert.isEmpty()}, {"encCert", !c.encCert.isEmpty()}});
        for (auto it = a.symmKeys.constBegin(); it != a.symmKeys.constEnd(); ++it)
            keys.append(qint64(it.key()));
        apps.append(QJsonObject{{"name", a.name}, {"adminPin", pinJson(a.admin)}, {"userPin", pinJson(a.user)},
                                {"createFileRights", qint64(a.createFileRights)}, {"files", files},
                                {"containers", containers}, {"sealDataSize", a.sealData.size()},
                                {"symmKeys", keys}});
    }
    FaultPlan plan;
    QJsonArray faults;
    if (store.loadFaults(device, &plan)) {
        for (const FaultPlan::Entry &e : plan.entries) {
            QJsonObject o{{"function", e.function}, {"remaining", e.remaining}};
            if (e.sizeLie)
                o.insert("sizeDelta", e.sizeDelta);
            else
                o.insert("code", FaultPlan::codeText(e.code));
            faults.append(o);
        }
    }
    const auto version = [](quint8 major, quint8 minor) { return QStringLiteral("%1.%2").arg(major).arg(minor); };
    const QJsonObject info{{"profile", d.profile}, {"label", d.label}, {"serial", d.serial},
                           {"manufacturer", d.manufacturer}, {"issuer", d.issuer},
                           {"hwVersion", version(d.hwMajor, d.hwMinor)},
                           {"firmwareVersion", version(d.fwMajor, d.fwMinor)}, {"totalSpace", qint64(d.totalSpace)},
                           {"freeSpace", qint64(d.freeSpace())}};
    const QJsonObject root{{"name", device}, {"present", store.isPresent(device)}, {"info", info}, {"apps", apps},
                           {"faults", faults}};
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}
