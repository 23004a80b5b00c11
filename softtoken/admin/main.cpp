// softtoken: makes and drives the software token's devices in a store.
// A thin command line over SoftTokenEngine.
#include "softtokenengine.h"

#include <QFile>
#include <QStringList>

#include <cstdio>
#include <functional>

namespace {

const char kUsage[] =
    "usage: softtoken [--store DIR] COMMAND ...\n"
    "\n"
    "  init NAME [--serial SN] [--label L] [--manufacturer M] [--issuer I]\n"
    "            [--admin-pin P] [--user-pin P] [--admin-retries N] [--user-retries N]\n"
    "            [--app APP] [--total-space BYTES] [--container CNAME[:sm2|:rsa[:1024|2048]]]...\n"
    "            [--profile standard|wg]\n"
    "  list\n"
    "  show NAME\n"
    "  remove NAME\n"
    "  insert NAME\n"
    "  fault NAME FUNCTION CODE [--times N]\n"
    "  fault NAME FUNCTION --size-lie DELTA [--times N]\n"
    "  clear-faults NAME\n"
    "  file-write NAME FILE --from PATH [--app APP]\n"
    "  delete NAME\n"
    "\n"
    "The store is DIR, else $SOFTTOKEN_STORE, else $XDG_DATA_HOME/twkey/softtoken,\n"
    "else ~/.local/share/twkey/softtoken.\n";

enum Exit { Ok = 0, Failed = 1, BadUsage = 2 };

int usageError(const QString &message)
{
    std::fprintf(stderr, "softtoken: %s\n\n%s", qPrintable(message), kUsage);
    return BadUsage;
}

int failure(const QString &message)
{
    std::fprintf(stderr, "softtoken: %s\n", qPrintable(message));
    return Failed;
}

bool parseInt(const QString &text, int base, qint64 *out)
{
    bool ok = false;
    QString t = text;
    if (base == 16 && (t.startsWith(QLatin1String("0x")) || t.startsWith(QLatin1String("0X"))))
        t = t.mid(2);
    *out = t.toLongLong(&ok, base);
    return ok;
}

// Options after the positional words: "--name value" pairs, some repeatable.
class Options
{
public:
    bool parse(const QStringList &args, const QStringList &known, QString *error)
    {
        for (int i = 0; i < args.size(); ++i) {
            const QString &a = args.at(i);
            if (!a.startsWith(QLatin1String("--"))) {
                m_words.append(a);
                continue;
            }
            if (!known.contains(a)) {
                *error = QStringLiteral("unknown option %1").arg(a);
                return false;
            }
            if (i + 1 >= args.size()) {
                *error = QStringLiteral("option %1 needs a value").arg(a);
                return false;
            }
            m_values.append(qMakePair(a, args.at(++i)));
        }
        return true;
    }
    const QStringList &words() const { return m_words; }
    bool has(const QString &name) const { return !all(name).isEmpty(); }
    QString value(const QString &name) const { return all(name).value(0); }
    QStringList all(const QString &name) const
    {
        QStringList out;
        for (const auto &p : m_values)
            if (p.first == name)
                out.append(p.second);
        return out;
    }
    bool once(const QStringList &names, QString *error) const
    {
        for (const QString &n : names)
            if (all(n).size() > 1) {
                *error = QStringLiteral("option %1 given twice").arg(n);
                return false;
            }
        return true;
    }

private:
    QStringList m_words;
    QList<QPair<QString, QString>> m_values;
};

int cmdInit(SoftTokenEngine &engine, const QStringList &args)
{
    const QStringList single{"--serial", "--label", "--manufacturer", "--issuer", "--admin-pin", "--user-pin",
                             "--admin-retries", "--user-retries", "--app", "--total-space", "--profile"};
    Options o;
    QString error;
    if (!o.parse(args, single + QStringList{"--container"}, &error) || !o.once(single, &error))
        return usageError(error);
    if (o.words().size() != 1)
        return usageError(QStringLiteral("init takes one device name"));
    SoftTokenEngine::DeviceOptions opt;
    opt.name = o.words().first();
    opt.serial = o.value("--serial");
    opt.label = o.value("--label");
    if (o.has("--manufacturer"))
        opt.manufacturer = o.value("--manufacturer");
    if (o.has("--issuer"))
        opt.issuer = o.value("--issuer");
    if (o.has("--admin-pin"))
        opt.adminPin = o.value("--admin-pin");
    if (o.has("--user-pin"))
        opt.userPin = o.value("--user-pin");
    if (o.has("--app"))
        opt.app = o.value("--app");
    if (o.has("--profile"))
        opt.profile = o.value("--profile");
    qint64 n = 0;
    if (o.has("--admin-retries")) {
        if (!parseInt(o.value("--admin-retries"), 10, &n))
            return usageError(QStringLiteral("--admin-retries needs a number"));
        opt.adminRetries = int(n);
    }
    if (o.has("--user-retries")) {
        if (!parseInt(o.value("--user-retries"), 10, &n))
            return usageError(QStringLiteral("--user-retries needs a number"));
        opt.userRetries = int(n);
    }
    if (o.has("--total-space")) {
        if (!parseInt(o.value("--total-space"), 10, &n) || n < 1024 || n > 0x7FFFFFFF)
            return usageError(QStringLiteral("--total-space needs a number of bytes from 1024 on"));
        opt.totalSpace = quint32(n);
    }
    for (const QString &c : o.all("--container")) {
        SoftTokenEngine::ContainerSetup setup;
        if (!SoftTokenEngine::ContainerSetup::parse(c, &setup, &error))
            return usageError(error);
        opt.containers.append(setup);
    }
    if (!engine.createDevice(opt))
        return failure(engine.lastError());
    std::printf("created %s in %s\n", qPrintable(opt.name), qPrintable(engine.storeDir()));
    return Ok;
}

int cmdFault(SoftTokenEngine &engine, const QStringList &args)
{
    Options o;
    QString error;
    if (!o.parse(args, {"--times", "--size-lie"}, &error) || !o.once({"--times", "--size-lie"}, &error))
        return usageError(error);
    const bool lie = o.has("--size-lie");
    if (o.words().size() != (lie ? 2 : 3))
        return usageError(lie ? QStringLiteral("fault NAME FUNCTION --size-lie DELTA takes no code")
                              : QStringLiteral("fault takes NAME FUNCTION CODE"));
    const QString device = o.words().at(0), function = o.words().at(1);
    qint64 times = SoftTokenEngine::UntilCleared;
    if (o.has("--times") && (!parseInt(o.value("--times"), 10, &times) || times < 1 || times > 1000000))
        return usageError(QStringLiteral("--times needs a positive number"));
    bool done;
    if (lie) {
        qint64 delta = 0;
        if (!parseInt(o.value("--size-lie"), 10, &delta) || delta < -65536 || delta > 65536)
            return usageError(QStringLiteral("--size-lie needs a number of bytes, such as 8 or -4"));
        done = engine.setSizeLie(device, function, qint32(delta), int(times));
    } else {
        qint64 code = 0;
        if (!parseInt(o.words().at(2), 16, &code) || code < 0 || code > 0xFFFFFFFFLL)
            return usageError(QStringLiteral("bad code '%1': give it in hex, such as 0x0A000023").arg(o.words().at(2)));
        done = engine.setFault(device, function, quint32(code), int(times));
    }
    return done ? Ok : failure(engine.lastError());
}

int cmdFileWrite(SoftTokenEngine &engine, const QStringList &args)
{
    Options o;
    QString error;
    if (!o.parse(args, {"--from", "--app"}, &error) || !o.once({"--from", "--app"}, &error))
        return usageError(error);
    if (o.words().size() != 2 || !o.has("--from"))
        return usageError(QStringLiteral("file-write takes NAME FILE --from PATH"));
    QFile from(o.value("--from"));
    if (!from.open(QIODevice::ReadOnly))
        return failure(QStringLiteral("cannot read %1: %2").arg(from.fileName(), from.errorString()));
    const QByteArray bytes = from.readAll();
    if (!engine.writeFile(o.words().at(0), o.words().at(1), bytes, o.value("--app")))
        return failure(engine.lastError());
    std::printf("wrote %d bytes to %s\n", bytes.size(), qPrintable(o.words().at(1)));
    return Ok;
}

int oneName(const QStringList &args, const char *command, QString *name)
{
    if (args.size() != 1)
        return usageError(QStringLiteral("%1 takes one device name").arg(QLatin1String(command)));
    *name = args.first();
    return Ok;
}

} // namespace

int main(int argc, char **argv)
{
    QStringList args;
    for (int i = 1; i < argc; ++i)
        args.append(QString::fromLocal8Bit(argv[i]));
    QString store;
    for (int i = 0; i < args.size(); ++i) {
        if (args.at(i) != QLatin1String("--store"))
            continue;
        if (i + 1 >= args.size())
            return usageError(QStringLiteral("--store needs a directory"));
        store = args.at(i + 1);
        args.erase(args.begin() + i, args.begin() + i + 2);
        break;
    }
    if (args.isEmpty())
        return usageError(QStringLiteral("no command given"));
    const QString command = args.takeFirst();
    if (command == QLatin1String("help") || command == QLatin1String("--help")) {
        std::fputs(kUsage, stdout);
        return Ok;
    }
    SoftTokenEngine engine(store);

    if (command == QLatin1String("init"))
        return cmdInit(engine, args);
    if (command == QLatin1String("fault"))
        return cmdFault(engine, args);
    if (command == QLatin1String("file-write"))
        return cmdFileWrite(engine, args);
    if (command == QLatin1String("list")) {
        if (!args.isEmpty())
            return usageError(QStringLiteral("list takes no arguments"));
        for (const SoftTokenEngine::DeviceSummary &d : engine.listDevices())
            std::printf("%s\t%s\t%s\n", qPrintable(d.name), qPrintable(d.serial), d.present ? "present" : "removed");
        return Ok;
    }

    using Action = std::function<bool(const QString &)>;
    const QList<QPair<QString, Action>> simple{
        {"remove", [&](const QString &n) { return engine.removeDevice(n); }},
        {"insert", [&](const QString &n) { return engine.insertDevice(n); }},
        {"delete", [&](const QString &n) { return engine.deleteDevice(n); }},
        {"clear-faults", [&](const QString &n) { return engine.clearFaults(n); }},
        {"show", [&](const QString &n) {
             const QByteArray json = engine.showJson(n);
             std::fwrite(json.constData(), 1, size_t(json.size()), stdout);
             return !json.isEmpty();
         }},
    };
    for (const auto &entry : simple) {
        if (entry.first != command)
            continue;
        QString name;
        const int rc = oneName(args, qPrintable(command), &name);
        if (rc != Ok)
            return rc;
        return entry.second(name) ? Ok : failure(engine.lastError());
    }
    return usageError(QStringLiteral("unknown command '%1'").arg(command));
}
