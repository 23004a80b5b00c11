// twkey run as a user runs it, on the shipped software-token package with
// a token store of the test's own. Needs the library and the software
// token built beside twkey; without them the test is skipped.
#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QString kBin = QStringLiteral(TWKEY_BIN_DIR);
const QString kUserPin = QStringLiteral("12345678");
const QString kAdminPin = QStringLiteral("88888888");
const char kDeviceFile[] = "/tmp/tw_device";
const QByteArray kSm3Abc = "66c7f0f462eeedd9d1f2d46bdc10e4e24167c4875cf2f7a2297da02b8f4ba8e0\n";

struct Run
{
    int code = -1;
    QByteArray out;
    QByteArray err;
};

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool writeAll(const QString &path, const QByteArray &data)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(data) == data.size();
}

QStringList words(const QString &text)
{
    return text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

} // namespace

class TstTwkeyCli : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void versionIsTheHostsOwnCopy();
    void listAndInfoShowTheToken();
    void exitCodesForMissingLibraryKeyAndUsage();
    void pinRulesAndTheirCodes();
    void changePinAndUnblock();
    void filesRoundTrip();
    void containersAndCertificates();
    void sm2SignatureVerifiesWithOpenssl();
    void rsaSignatureVerifiesWithOpenssl();
    void digestsMatchOpenssl();
    void sessionKeyEncryptDecrypt_data();
    void sessionKeyEncryptDecrypt();
    void sealRoundTrip();
    void logOptionWritesLibraryLines();
    void formatDeletesFilesKeepsContainers();
    void demoScriptPasses();

private:
    Run run(const QString &program, const QStringList &args, const QByteArray &input = QByteArray());
    // Blank-separated words first, then arguments that may hold blanks (paths).
    Run twkey(const QString &args, const QStringList &more = {}, const QByteArray &input = QByteArray())
    {
        return run(kBin + QStringLiteral("/twkey"), words(args) + more, input);
    }
    QString file(const QString &name) const { return m_dir.filePath(name); }
    QJsonObject json(const Run &r);
    int userRetries();

    QTemporaryDir m_dir;
    QString m_store;
    bool m_hadDevice = false;
    QByteArray m_device;
};

Run TstTwkeyCli::run(const QString &program, const QStringList &args, const QByteArray &input)
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("SOFTTOKEN_STORE"), m_store);
    p.setProcessEnvironment(env);
    p.setWorkingDirectory(m_dir.path());
    p.start(program, args);
    Run r;
    if (!p.waitForStarted(10000))
        return r;
    if (!input.isEmpty())
        p.write(input);
    p.closeWriteChannel();
    if (!p.waitForFinished(60000)) {
        p.kill();
        p.waitForFinished();
        return r;
    }
    r.code = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -2;
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    return r;
}

QJsonObject TstTwkeyCli::json(const Run &r)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(r.out, &error);
    if (error.error != QJsonParseError::NoError)
        qWarning("not JSON: %s", r.out.constData());
    return doc.object();
}

int TstTwkeyCli::userRetries()
{
    const Run r = twkey(QStringLiteral("pin-info --json"));
    return r.code == 0 ? json(r).value(QStringLiteral("user")).toObject().value(QStringLiteral("remainingRetries")).toInt()
                       : -1;
}

// Runs once; the run stays in the expression's variable when one is named.
#define RUN_OK(expr)                                                                                                   \
    do {                                                                                                               \
        const Run &ran = (expr);                                                                                       \
        QVERIFY2(ran.code == 0, qPrintable(QStringLiteral("exit %1\nstdout: %2\nstderr: %3")                           \
                                               .arg(ran.code)                                                          \
                                               .arg(QString::fromUtf8(ran.out), QString::fromUtf8(ran.err))));         \
    } while (0)

// Fails with this exit code and these words on stderr.
#define RUN_FAILS(expr, exitCode, words)                                                                               \
    do {                                                                                                               \
        const Run failed = (expr);                                                                                     \
        QCOMPARE(failed.code, exitCode);                                                                               \
        QVERIFY2(failed.err.contains(words), failed.err.constData());                                                  \
    } while (0)

void TstTwkeyCli::initTestCase()
{
    for (const char *n : {"/twkey", "/libTWKey.so", "/softtoken", "/kdp/softtoken/config.xml"}) {
        if (!QFileInfo::exists(kBin + QLatin1String(n)))
            QSKIP(qPrintable(QStringLiteral("%1 is not built").arg(kBin + QLatin1String(n))));
    }
    QVERIFY(m_dir.isValid());
    m_store = file(QStringLiteral("store"));
    QVERIFY(QDir().mkpath(m_store));

    // The library writes the device-state file; give it back as it was.
    m_hadDevice = QFileInfo::exists(QLatin1String(kDeviceFile));
    m_device = readAll(QLatin1String(kDeviceFile));

    const Run made = run(kBin + QStringLiteral("/softtoken"),
                         QStringList{QStringLiteral("--store"), m_store}
                             + words(QStringLiteral("init clitoken --serial TWCLI0000000000000042 --label"))
                             + QStringList{QStringLiteral("cli test")}
                             + words(QStringLiteral("--container main:sm2 --container rsa1:rsa:1024")));
    RUN_OK(made);
}

void TstTwkeyCli::cleanupTestCase()
{
    if (m_store.isEmpty())
        return;
    if (m_hadDevice)
        writeAll(QLatin1String(kDeviceFile), m_device);
    else
        QFile::remove(QLatin1String(kDeviceFile));
}

void TstTwkeyCli::versionIsTheHostsOwnCopy()
{
    Run r = twkey(QStringLiteral("version"));
    RUN_OK(r);
    QCOMPARE(r.out, QByteArray("V10.0.0.4\n"));
    RUN_OK(r = twkey(QStringLiteral("version --json")));
    QCOMPARE(json(r).value(QStringLiteral("length")).toInt(), 9);
}

void TstTwkeyCli::listAndInfoShowTheToken()
{
    Run r = twkey(QStringLiteral("list --json"));
    RUN_OK(r);
    const QJsonObject all = json(r);
    QCOMPARE(all.value(QStringLiteral("count")).toInt(), 1);
    const QJsonObject key = all.value(QStringLiteral("keys")).toArray().at(0).toObject();
    QCOMPARE(key.value(QStringLiteral("label")).toString(), QStringLiteral("cli test"));
    // The limited serial number is cut to 16 characters; the whole one is not.
    QCOMPARE(key.value(QStringLiteral("serialNumber")).toString(), QStringLiteral("TWCLI00000000000"));
    QCOMPARE(key.value(QStringLiteral("serialNumberWhole")).toString(), QStringLiteral("TWCLI0000000000000042"));
    QCOMPARE(key.value(QStringLiteral("driverType")).toInt(), 1);
    QVERIFY(key.value(QStringLiteral("packagePath")).toString().endsWith(QLatin1String("kdp/softtoken")));
    QVERIFY(key.value(QStringLiteral("totalSpace")).toDouble() >= key.value(QStringLiteral("freeSpace")).toDouble());

    RUN_OK(r = twkey(QStringLiteral("list")));
    QVERIFY(r.out.startsWith("keys: 1\nkey 0\n"));
    QVERIFY(r.out.contains("TWCLI0000000000000042"));

    RUN_OK(r = twkey(QStringLiteral("info 0 --json")));
    QCOMPARE(json(r).value(QStringLiteral("serialNumberWhole")).toString(), QStringLiteral("TWCLI0000000000000042"));
}

void TstTwkeyCli::exitCodesForMissingLibraryKeyAndUsage()
{
    QCOMPARE(twkey(QStringLiteral("list --lib"), {file(QStringLiteral("none.so"))}).code, 3);
    RUN_FAILS(twkey(QStringLiteral("info 5")), 4, "no key at index 5 (1 key(s) present)");
    // A package folder without packages: no keys at all.
    const QString empty = file(QStringLiteral("emptybin"));
    QVERIFY(QDir().mkpath(empty + QStringLiteral("/kdp")));
    const Run r = twkey(QStringLiteral("list --json --bin-path"), {empty});
    RUN_OK(r);
    QCOMPARE(json(r).value(QStringLiteral("count")).toInt(), 0);
    for (const char *usage : {"sign", "nosuchcommand", "files get"})
        QVERIFY2(twkey(QLatin1String(usage)).code == 2, usage);
}

void TstTwkeyCli::pinRulesAndTheirCodes()
{
    const int before = userRetries();
    QVERIFY(before > 2);

    // Too short: refused before the token sees it, so no try is spent.
    RUN_FAILS(twkey(QStringLiteral("login --pin 12345")), 1, "error 0x0C000039: ");
    QCOMPARE(userRetries(), before);
    RUN_FAILS(twkey(QStringLiteral("login --pin 87654321")), 1, "error 0x0A000024: PIN incorrect");
    QCOMPARE(userRetries(), before - 1);

    // From a descriptor: standard input here.
    Run r = twkey(QStringLiteral("login --pin-fd 0"), {}, kUserPin.toUtf8() + '\n');
    RUN_OK(r);
    QCOMPARE(r.out, QByteArray("user PIN verified\n"));
    QCOMPARE(userRetries(), before);

    RUN_OK(r = twkey(QStringLiteral("login --admin --pin ") + kAdminPin));
}

void TstTwkeyCli::changePinAndUnblock()
{
    const QString newPin = QStringLiteral("24681357");
    Run r = twkey(QStringLiteral("change-pin --pin-fd 0"), {}, (kUserPin + '\n' + newPin + '\n').toUtf8());
    RUN_OK(r);
    RUN_OK(r = twkey(QStringLiteral("login --pin ") + newPin));
    // A new PIN out of the length rule has its own code.
    RUN_FAILS(twkey(QStringLiteral("change-pin --pin %1 --new-pin 1234").arg(newPin)), 1, "error 0x0C00003A");

    // Lock the user PIN, then unblock it with the administrator PIN.
    const int tries = userRetries();
    QVERIFY(tries > 0 && tries < 100);
    for (int i = 0; i < tries; ++i)
        twkey(QStringLiteral("login --pin 00000000"));
    RUN_FAILS(twkey(QStringLiteral("login --pin ") + newPin), 1, "error 0x0A000025: PIN locked");

    RUN_OK(r = twkey(QStringLiteral("unblock --pin %1 --new-pin %2").arg(kAdminPin, kUserPin)));
    RUN_OK(r = twkey(QStringLiteral("login --pin ") + kUserPin));
}

void TstTwkeyCli::filesRoundTrip()
{
    QByteArray data;
    for (int i = 0; i < 300; ++i)
        data += char(i);
    QVERIFY(writeAll(file(QStringLiteral("blob.bin")), data));
    Run r = twkey(QStringLiteral("files put notes --pin 12345678 --in"), {file(QStringLiteral("blob.bin"))});
    RUN_OK(r);
    RUN_OK(r = twkey(QStringLiteral("files ls --json")));
    QVERIFY(QJsonDocument::fromJson(r.out).array().contains(QStringLiteral("notes")));
    RUN_OK(r = twkey(QStringLiteral("files get notes --out"), {file(QStringLiteral("back.bin"))}));
    QCOMPARE(readAll(file(QStringLiteral("back.bin"))), data);
    RUN_OK(r = twkey(QStringLiteral("files get notes")));
    QCOMPARE(r.out, data.toHex() + '\n');

    // Replaced by shorter content: the file takes the new length.
    RUN_OK(r = twkey(QStringLiteral("files put notes --pin 12345678"), {}, "short"));
    RUN_OK(r = twkey(QStringLiteral("files get notes --format raw")));
    QCOMPARE(r.out, QByteArray("short"));

    RUN_OK(r = twkey(QStringLiteral("files rm notes --pin 12345678")));
    RUN_FAILS(twkey(QStringLiteral("files get notes")), 1, "error 0x");
}

void TstTwkeyCli::containersAndCertificates()
{
    Run r = twkey(QStringLiteral("containers create extra --pin 12345678"));
    RUN_OK(r);
    RUN_FAILS(twkey(QStringLiteral("containers create extra --pin 12345678")), 1, "error 0x0B000036");
    RUN_OK(r = twkey(QStringLiteral("containers ls --json")));
    QMap<QString, QString> types;
    for (const QJsonValue &v : QJsonDocument::fromJson(r.out).array())
        types.insert(v.toObject().value(QStringLiteral("name")).toString(),
                     v.toObject().value(QStringLiteral("typeName")).toString());
    QCOMPARE(types.value(QStringLiteral("main")), QStringLiteral("SM2"));
    QCOMPARE(types.value(QStringLiteral("rsa1")), QStringLiteral("RSA"));
    QCOMPARE(types.value(QStringLiteral("extra")), QStringLiteral("empty"));

    // A certificate goes in as PEM and comes out as DER and PEM.
    const QString pem = file(QStringLiteral("cert.pem"));
    const Run made = run(QStringLiteral("openssl"),
                         words(QStringLiteral("req -x509 -newkey rsa:1024 -nodes -days 1 -subj /CN=twkey-test -keyout"))
                             + QStringList{file(QStringLiteral("cert.key")), QStringLiteral("-out"), pem});
    if (made.code != 0)
        QSKIP("the openssl program is not at hand");
    RUN_OK(r = twkey(QStringLiteral("cert import --container extra --pin 12345678 --in"), {pem}));
    RUN_OK(r = twkey(QStringLiteral("cert export --container extra --pem")));
    QCOMPARE(r.out, readAll(pem));
    QCOMPARE(twkey(QStringLiteral("cert export --container extra --enc")).code, 1);

    RUN_OK(r = twkey(QStringLiteral("containers rm extra --pin 12345678")));
    RUN_FAILS(twkey(QStringLiteral("containers rm extra --pin 12345678")), 1, "error 0x0B000035");
}

void TstTwkeyCli::sm2SignatureVerifiesWithOpenssl()
{
    const QString msg = file(QStringLiteral("msg.txt"));
    QVERIFY(writeAll(msg, "a message for the SM2 key\n"));
    Run r = twkey(QStringLiteral("keygen sm2 --container sm2new --pin 12345678"));
    RUN_OK(r);
    // Every call below is on the new key and the message file.
    auto onKey = [&](const QString &args, const QStringList &more = {}, const QByteArray &input = QByteArray()) {
        QStringList all = words(args);
        const QStringList key = QStringList{QStringLiteral("--container"), QStringLiteral("sm2new")}
                                + (input.isEmpty() ? QStringList{QStringLiteral("--in"), msg} : QStringList());
        return run(kBin + QStringLiteral("/twkey"), all.mid(0, 1) + key + all.mid(1) + more, input);
    };

    RUN_OK(r = onKey(QStringLiteral("sign --pin 12345678 --out"), {file(QStringLiteral("sig.bin"))}));
    QCOMPARE(readAll(file(QStringLiteral("sig.bin"))).size(), 64);
    RUN_OK(r = onKey(QStringLiteral("verify --sig"), {file(QStringLiteral("sig.bin"))}));
    QCOMPARE(r.out, QByteArray("signature verified\n"));

    // Without a login the key signs nothing.
    QCOMPARE(onKey(QStringLiteral("sign --pin 99999999")).code, 1);

    // The same signature in DER, checked by openssl against the exported PEM.
    RUN_OK(r = onKey(QStringLiteral("sign --pin 12345678 --format der --out"), {file(QStringLiteral("sig.der"))}));
    RUN_OK(r = twkey(QStringLiteral("pubkey --pem --container sm2new --out"), {file(QStringLiteral("pub.pem"))}));
    RUN_OK(r = run(QStringLiteral("openssl"), words(QStringLiteral("dgst -sm3 -sigopt distid:1234567812345678 -verify"))
                                           + QStringList{file(QStringLiteral("pub.pem")), QStringLiteral("-signature"),
                                                         file(QStringLiteral("sig.der")), msg}));
    QVERIFY(r.out.contains("Verified OK"));
    // twkey takes the DER form back too.
    RUN_OK(r = onKey(QStringLiteral("verify --format der --sig"), {file(QStringLiteral("sig.der"))}));

    // A changed message or signature is refused.
    QCOMPARE(onKey(QStringLiteral("verify --sig"), {file(QStringLiteral("sig.bin"))}, "another message\n").code, 1);
    QByteArray bad = readAll(file(QStringLiteral("sig.bin")));
    bad[10] = char(bad.at(10) ^ 0x40);
    QVERIFY(writeAll(file(QStringLiteral("bad.bin")), bad));
    QCOMPARE(onKey(QStringLiteral("verify --sig"), {file(QStringLiteral("bad.bin"))}).code, 1);

    // The token's plain signature of a given 32-byte value, and the
    // signature without Z.
    const QString value = file(QStringLiteral("value.bin"));
    QVERIFY(writeAll(value, QCryptographicHash::hash("value", QCryptographicHash::Sha256)));
    const QString sigHex = file(QStringLiteral("sig.hex"));
    const struct
    {
        QString form;
        QString in;
        int hexSize;
    } forms[] = {{QStringLiteral("--raw"), value, 256}, {QStringLiteral("--no-z"), msg, 128}};
    for (const auto &f : forms) {
        const QStringList c = {QStringLiteral("--container"), QStringLiteral("sm2new"), QStringLiteral("--in"), f.in};
        RUN_OK(r = twkey(QStringLiteral("sign %1 --pin 12345678 --format hex").arg(f.form), c));
        QCOMPARE(r.out.trimmed().size(), f.hexSize);
        QVERIFY(writeAll(sigHex, r.out));
        RUN_OK(r = twkey(QStringLiteral("verify %1 --format hex --sig").arg(f.form), QStringList{sigHex} + c));
        // Not valid in the other form.
        QCOMPARE(twkey(QStringLiteral("verify --format hex --sig"), QStringList{sigHex} + c).code, 1);
    }
}

void TstTwkeyCli::rsaSignatureVerifiesWithOpenssl()
{
    const QString msg = file(QStringLiteral("rsa.txt"));
    QVERIFY(writeAll(msg, "a message for the RSA key\n"));
    const QString sig = file(QStringLiteral("rsa.sig"));
    const QString pem = file(QStringLiteral("rsa.pem"));
    Run r = twkey(QStringLiteral("keygen rsa --bits 1024 --pem --pin 12345678 --container rsanew"));
    RUN_OK(r);
    QVERIFY(r.out.startsWith("RSA 1024-bit key pair generated in container rsanew\n-----BEGIN PUBLIC KEY-----\n"));

    RUN_OK(r = twkey(QStringLiteral("sign --pin 12345678 --container rsanew --in"), {msg, QStringLiteral("--out"), sig}));
    QCOMPARE(readAll(sig).size(), 128);
    RUN_OK(r = twkey(QStringLiteral("verify --container rsanew --in"), {msg, QStringLiteral("--sig"), sig}));
    RUN_OK(r = twkey(QStringLiteral("pubkey --pem --container rsanew --out"), {pem}));
    // The token signed a SHA-256 DigestInfo: a standard verification.
    RUN_OK(r = run(QStringLiteral("openssl"), words(QStringLiteral("dgst -sha256 -verify"))
                                           + QStringList{pem, QStringLiteral("-signature"), sig, msg}));
    QCOMPARE(twkey(QStringLiteral("verify --container rsanew --sig"), {sig}, "changed\n").code, 1);
    // The SM2 signature forms are refused for RSA.
    QCOMPARE(twkey(QStringLiteral("sign --pin 12345678 --format der --container rsanew --in"), {msg}).code, 2);
}

void TstTwkeyCli::digestsMatchOpenssl()
{
    const QByteArray data = "abc";
    const struct
    {
        const char *alg;
        QCryptographicHash::Algorithm qt;
    } plain[] = {{"sha1", QCryptographicHash::Sha1}, {"sha256", QCryptographicHash::Sha256}};
    for (const auto &p : plain) {
        const Run r = twkey(QStringLiteral("digest --alg ") + QLatin1String(p.alg), {}, data);
        RUN_OK(r);
        QCOMPARE(r.out, QCryptographicHash::hash(data, p.qt).toHex() + '\n');
    }
    // SM3("abc"), the standard's own example.
    Run r = twkey(QStringLiteral("digest --alg sm3"), {}, data);
    RUN_OK(r);
    QCOMPARE(r.out, kSm3Abc);
    // With the signer's key the hash covers Z and differs.
    RUN_OK(r = twkey(QStringLiteral("digest --alg sm3 --container main"), {}, data));
    QCOMPARE(r.out.trimmed().size(), 64);
    QVERIFY(r.out != kSm3Abc);
    QCOMPARE(twkey(QStringLiteral("digest --alg md5"), {}, data).code, 2);
}

void TstTwkeyCli::sessionKeyEncryptDecrypt_data()
{
    QTest::addColumn<QString>("mode");
    QTest::newRow("ecb") << QStringLiteral("ecb");
    QTest::newRow("cbc") << QStringLiteral("cbc");
}

void TstTwkeyCli::sessionKeyEncryptDecrypt()
{
    QFETCH(QString, mode);
    QByteArray plain;
    for (int i = 0; i < 100; ++i)
        plain += char('a' + i % 26);
    QVERIFY(writeAll(file(QStringLiteral("plain.txt")), plain));
    const QString cipher = file(QStringLiteral("cipher.") + mode);
    const QString wrapped = file(QStringLiteral("wrapped.") + mode);
    const QString common = QStringLiteral(" --container main --mode %1 --pin 12345678").arg(mode);
    Run r = twkey(QStringLiteral("encrypt") + common,
                  {QStringLiteral("--in"), file(QStringLiteral("plain.txt")), QStringLiteral("--out"), cipher,
                   QStringLiteral("--key-out"), wrapped});
    RUN_OK(r);
    QCOMPARE(readAll(wrapped).size(), 197);
    const QByteArray c = readAll(cipher);
    // PKCS#5 padding to whole blocks, plus the IV in front for CBC.
    QCOMPARE(c.size(), 112 + (mode == QLatin1String("cbc") ? 16 : 0));
    QVERIFY(!c.contains(plain.left(16)));

    RUN_OK(r = twkey(QStringLiteral("decrypt --format raw") + common,
              {QStringLiteral("--in"), cipher, QStringLiteral("--key-in"), wrapped}));
    QCOMPARE(r.out, plain);
}

void TstTwkeyCli::sealRoundTrip()
{
    Run r = twkey(QStringLiteral("seal read --index 0 --alg 0x401"));
    RUN_OK(r);
    QCOMPARE(r.out, QByteArray("\n"));
    const QByteArray seal = QByteArray("seal image bytes ") + QByteArray(200, '\x5a');
    RUN_OK(r = twkey(QStringLiteral("seal write --pin 12345678"), {}, seal));
    RUN_OK(r = twkey(QStringLiteral("seal read --index 0 --alg 0x401 --format base64")));
    QCOMPARE(QByteArray::fromBase64(r.out.trimmed()), seal);
}

void TstTwkeyCli::logOptionWritesLibraryLines()
{
    const QString log = file(QStringLiteral("twkey.log"));
    Run r = twkey(QStringLiteral("list --log"), {log});
    RUN_OK(r);
    const QByteArray lines = readAll(log);
    // The library's lines in its "[function:line]message" pattern.
    QVERIFY2(QRegularExpression(QStringLiteral(" D \\[count:\\d+\\] start\n")).match(QString::fromUtf8(lines)).hasMatch(),
             lines.left(2000).constData());
    RUN_OK(r = twkey(QStringLiteral("version --verbose")));
}

void TstTwkeyCli::formatDeletesFilesKeepsContainers()
{
    Run r = twkey(QStringLiteral("files put doomed --pin 12345678"), {}, "bytes");
    RUN_OK(r);
    QCOMPARE(twkey(QStringLiteral("format"), {}, "no\n").code, 1);
    RUN_OK(r = twkey(QStringLiteral("files ls")));
    QVERIFY(r.out.contains("doomed"));

    RUN_OK(r = twkey(QStringLiteral("format"), {}, "yes\n"));
    RUN_OK(r = twkey(QStringLiteral("files ls")));
    QVERIFY(!r.out.contains("doomed"));
    RUN_OK(r = twkey(QStringLiteral("containers ls")));
    QVERIFY(r.out.contains("main\tSM2"));

    // The administrator PIN is now the library's built-in one: it is
    // already what reset-admin-pin brings back, and it unblocks the user
    // PIN to the library's default.
    RUN_OK(r = twkey(QStringLiteral("reset-admin-pin")));
    QCOMPARE(twkey(QStringLiteral("login --admin --pin ") + kAdminPin).code, 1);
    for (const char *step : {"format --yes", "unblock --builtin", "login --pin 482915"}) {
        RUN_OK(r = twkey(QLatin1String(step)));
    }
}

void TstTwkeyCli::demoScriptPasses()
{
    const Run r = run(QStringLiteral("bash"), {QStringLiteral(TWKEY_SOURCE_DIR "/scripts/demo.sh"), kBin});
    RUN_OK(r);
    QVERIFY(r.out.contains("openssl"));
}

QTEST_GUILESS_MAIN(TstTwkeyCli)
#include "tst_twkeycli.moc"
