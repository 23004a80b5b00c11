// softtoken: makes and drives the software token's devices in a store.
// A thin command line over SoftTokenEngine.
#include "commandline.h"
#include "softtokenengine.h"

#include <QCoreApplication>
#include <QFile>

namespace {

enum Exit { Ok = 0, Failed = 1 };

int failure(CommandLine &line, const QString &message)
{
    return line.output().error(Failed, message);
}

// A decimal number option within [low, high]; false after the report.
bool numberOption(CommandLine &line, const char *name, qint64 low, qint64 high, qint64 *value, int *rc)
{
    bool ok = false;
    *value = line.value(name).toLongLong(&ok, 10);
    if (ok && *value >= low && *value <= high)
        return true;
    *rc = line.usage(QStringLiteral("--%1 needs a number from %2 to %3").arg(QLatin1String(name)).arg(low).arg(high));
    return false;
}

// The one device name a command takes.
bool deviceName(CommandLine &line, QString *name, int *rc)
{
    if (line.args().size() == 1) {
        *name = line.args().first();
        return true;
    }
    *rc = line.usage(QStringLiteral("%1 takes one device name").arg(QLatin1String(line.command()->name)));
    return false;
}

int cmdInit(CommandLine &line)
{
    QString name;
    int rc = Ok;
    if (!deviceName(line, &name, &rc))
        return rc;
    SoftTokenEngine engine(line.value("store"));
    SoftTokenEngine::DeviceOptions opt;
    opt.name = name;
    opt.serial = line.value("serial");
    opt.label = line.value("label");
    opt.manufacturer = line.value("manufacturer", opt.manufacturer);
    opt.issuer = line.value("issuer", opt.issuer);
    opt.adminPin = line.value("admin-pin", opt.adminPin);
    opt.userPin = line.value("user-pin", opt.userPin);
    opt.app = line.value("app", opt.app);
    opt.profile = line.value("profile", opt.profile);
    qint64 n = 0;
    if (line.isSet("admin-retries")) {
        if (!numberOption(line, "admin-retries", 1, 15, &n, &rc))
            return rc;
        opt.adminRetries = int(n);
    }
    if (line.isSet("user-retries")) {
        if (!numberOption(line, "user-retries", 1, 15, &n, &rc))
            return rc;
        opt.userRetries = int(n);
    }
    if (line.isSet("total-space")) {
        if (!numberOption(line, "total-space", 1024, 0x7FFFFFFF, &n, &rc))
            return rc;
        opt.totalSpace = quint32(n);
    }
    for (const QString &c : line.values("container")) {
        SoftTokenEngine::ContainerSetup setup;
        QString error;
        if (!SoftTokenEngine::ContainerSetup::parse(c, &setup, &error))
            return line.usage(error);
        opt.containers.append(setup);
    }
    if (!engine.createDevice(opt))
        return failure(line, engine.lastError());
    line.output().status(QStringLiteral("created %1 in %2").arg(opt.name, engine.storeDir()));
    if (opt.containers.isEmpty())
        line.output().warn(QStringLiteral("%1 has no container: a host opens a token through a container, so it "
                                          "will not see this one (give --container NAME)")
                               .arg(opt.name));
    return Ok;
}

int cmdFault(CommandLine &line)
{
    const bool lie = line.isSet("size-lie");
    const QStringList &words = line.args();
    if (words.size() != (lie ? 2 : 3))
        return line.usage(lie ? QStringLiteral("fault NAME FUNCTION --size-lie DELTA takes no code")
                              : QStringLiteral("fault takes NAME FUNCTION CODE"));
    SoftTokenEngine engine(line.value("store"));
    qint64 times = SoftTokenEngine::UntilCleared;
    int rc = Ok;
    if (line.isSet("times") && !numberOption(line, "times", 1, 1000000, &times, &rc))
        return rc;
    bool done;
    if (lie) {
        qint64 delta = 0;
        if (!numberOption(line, "size-lie", -65536, 65536, &delta, &rc))
            return rc;
        done = engine.setSizeLie(words.at(0), words.at(1), qint32(delta), int(times));
    } else {
        // Hexadecimal only after 0x, as everywhere on this command line.
        quint64 code = 0;
        if (!CommandLine::parseNumber(words.at(2), &code) || code > 0xFFFFFFFFULL)
            return line.usage(QStringLiteral("bad code '%1': give it in hex after 0x, such as 0x0A000023, or in "
                                             "decimal")
                                  .arg(words.at(2)));
        done = engine.setFault(words.at(0), words.at(1), quint32(code), int(times));
    }
    return done ? Ok : failure(line, engine.lastError());
}

int cmdFileWrite(CommandLine &line)
{
    if (line.args().size() != 2)
        return line.usage(QStringLiteral("file-write takes NAME FILE --from PATH"));
    QFile from(line.value("from"));
    if (!from.open(QIODevice::ReadOnly))
        return failure(line, QStringLiteral("cannot read %1: %2").arg(from.fileName(), from.errorString()));
    const QByteArray bytes = from.readAll();
    SoftTokenEngine engine(line.value("store"));
    if (!engine.writeFile(line.args().at(0), line.args().at(1), bytes, line.value("app")))
        return failure(line, engine.lastError());
    line.output().status(QStringLiteral("wrote %1 bytes to %2").arg(bytes.size()).arg(line.args().at(1)));
    return Ok;
}

int cmdList(CommandLine &line)
{
    SoftTokenEngine engine(line.value("store"));
    for (const SoftTokenEngine::DeviceSummary &d : engine.listDevices())
        line.output().line(QStringLiteral("%1\t%2\t%3").arg(d.name, d.serial, d.present ? "present" : "removed"));
    return Ok;
}

int cmdShow(CommandLine &line)
{
    QString name;
    int rc = Ok;
    if (!deviceName(line, &name, &rc))
        return rc;
    SoftTokenEngine engine(line.value("store"));
    const QByteArray json = engine.showJson(name);
    if (json.isEmpty())
        return failure(line, engine.lastError());
    line.output().bytes(json);
    return Ok;
}

// The commands that take one device name and do one thing to it.
template <bool (SoftTokenEngine::*Action)(const QString &)>
int onDevice(CommandLine &line)
{
    QString name;
    int rc = Ok;
    if (!deviceName(line, &name, &rc))
        return rc;
    SoftTokenEngine engine(line.value("store"));
    return (engine.*Action)(name) ? Ok : failure(line, engine.lastError());
}

const CliProgram kSofttoken{
    "softtoken",
    SOFTTOKEN_VERSION,
    "make and drive the devices of the software token",
    "softtoken makes and drives the devices of the software token in a store: a folder, one sub-folder per "
    "device. The store is --store DIR, else $SOFTTOKEN_STORE, else $XDG_DATA_HOME/twkey/softtoken, else "
    "~/.local/share/twkey/softtoken. Hosts reach the devices through the token's libraries.\n"
    "Options take their value as the next word or after '=' (--label=name). Numbers are decimal; the code "
    "of a fault may also be hexadecimal after 0x.",
    "store",
    {
        {"store", "DIR", "the store"},
        {"serial", "SN", "the serial number (default: STK and 18 random hex digits, unique in the store)"},
        {"label", "LABEL", "the label (default: the device's name)"},
        {"manufacturer", "TEXT", "the manufacturer (default: Software Token)"},
        {"issuer", "TEXT", "the issuer (default: Software Token)"},
        {"admin-pin", "PIN", "the administrator PIN, 6 to 16 bytes (default 88888888)"},
        {"user-pin", "PIN", "the user PIN, 6 to 16 bytes (default 12345678)"},
        {"admin-retries", "N", "tries of the administrator PIN, 1 to 15 (default 10)"},
        {"user-retries", "N", "tries of the user PIN, 1 to 15 (default 6)"},
        {"app", "APP", "the application (init: default TW_APP; file-write: default the first one)"},
        {"total-space", "BYTES", "the space of the device, from 1024 (default 262144)"},
        {"container", "CNAME[:sm2|:rsa[:1024|2048]]",
         "a container, empty or with a signing and an encryption key pair (RSA 2048 unless 1024 is given); "
         "repeatable"},
        {"profile", "standard|wg", "how the token answers (default standard)"},
        {"times", "N", "the number of calls the fault hits (default: until cleared)"},
        {"size-lie", "DELTA", "make the function report sizes DELTA bytes off what it fills"},
        {"from", "FILE", "the file whose bytes are written"},
    },
    {},
    {
        {"init", "NAME",
         "serial label manufacturer issuer admin-pin user-pin admin-retries user-retries app total-space container* "
         "profile",
         "make a device, present",
         "Make a device, present. A host opens a token through a container, so a device without --container "
         "is one no host sees; init warns of that.",
         cmdInit},
        {"list", "", "", "list the devices", "One line per device: name, serial number, present or removed.",
         cmdList},
        {"show", "NAME", "", "show a device as JSON",
         "The device as JSON: info with free space, presence, each application's PIN counters, files, "
         "containers, seal data size, indexed keys, and the fault plan.",
         cmdShow},
        {"remove", "NAME", "", "pull a device out", "Pull the device out.",
         onDevice<&SoftTokenEngine::removeDevice>},
        {"insert", "NAME", "", "put a device back", "Put the device back.", onDevice<&SoftTokenEngine::insertDevice>},
        {"fault", "NAME FUNCTION CODE", "times size-lie", "make a function fail",
         "FUNCTION returns CODE for the next --times calls, or until cleared. CODE is hexadecimal after 0x "
         "(0x0A000023), decimal otherwise. With --size-lie DELTA instead of a code, FUNCTION reports sizes "
         "DELTA bytes off what it fills.",
         cmdFault},
        {"clear-faults", "NAME", "", "empty the fault plan", "Empty the device's fault plan.",
         onDevice<&SoftTokenEngine::clearFaults>},
        {"file-write", "NAME FILE", "from! app", "give a file bytes",
         "Give the file (made if missing, rights 0xFF) exactly the bytes of --from, in --app or the first "
         "application.",
         cmdFileWrite},
        {"delete", "NAME", "", "remove a device from the store", "Remove the device from the store.",
         onDevice<&SoftTokenEngine::deleteDevice>},
        {"help", "[COMMAND]", "", "tell about softtoken or one command", "Tell about softtoken, or one command.",
         nullptr},
    },
    {
        {"Exit status", "0 done; 1 the operation failed (no such device, a device that exists, a bad PIN "
                        "length); 2 bad usage. The message goes to standard error."},
        {"See also", "twkey(1)"},
    },
    nullptr,
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    CommandLine line(kSofttoken);
    return line.exec(app.arguments());
}
