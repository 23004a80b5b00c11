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
    Run twkey(const QStringList &args, const QByteArray &input = QByteArray());
    QString file(const QString &name) const { return m_dir.filePath(name); }
    QJsonObject json(const Run &r);

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

Run TstTwkeyCli::twkey(const QStringList &args, const QByteArray &input)
{
    return run(kBin + QStringLiteral("/twkey"), args, input);
}

QJsonObject TstTwkeyCli::json(const Run &r)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(r.out, &error);
    if (error.error != QJsonParseError::NoError)
        qWarning("not JSON: %s", r.out.constData());
    return doc.object();
}

#define RUN_OK(r)                                                                                                      \
    QVERIFY2((r).code == 0, qPrintable(QStringLiteral("exit %1\nstdout: %2\nstderr: %3")                               \
                                           .arg((r).code)                                                              \
                                           .arg(QString::fromUtf8((r).out), QString::fromUtf8((r).err))))

void TstTwkeyCli::initTestCase()
{
    const QStringList needed = {QStringLiteral("/twkey"), QStringLiteral("/libTWKey.so"), QStringLiteral("/softtoken"),
                                QStringLiteral("/kdp/softtoken/config.xml")};
    for (const QString &n : needed) {
        if (!QFileInfo::exists(kBin + n))
            QSKIP(qPrintable(QStringLiteral("%1 is not built").arg(kBin + n)));
    }
    QVERIFY(m_dir.isValid());
    m_store = file(QStringLiteral("store"));
    QVERIFY(QDir().mkpath(m_store));

    // The library writes the device-state file; give it back as it was.
    m_hadDevice = QFileInfo::exists(QLatin1String(kDeviceFile));
    m_device = readAll(QLatin1String(kDeviceFile));

    const Run made = run(kBin + QStringLiteral("/softtoken"),
                         {QStringLiteral("--store"), m_store, QStringLiteral("init"), QStringLiteral("clitoken"),
                          QStringLiteral("--serial"), QStringLiteral("TWCLI0000000000000042"), QStringLiteral("--label"),
                          QStringLiteral("cli test"), QStringLiteral("--container"), QStringLiteral("main:sm2"),
                          QStringLiteral("--container"), QStringLiteral("rsa1:rsa:1024")});
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
    Run r = twkey({QStringLiteral("version")});
    RUN_OK(r);
    QCOMPARE(r.out, QByteArray("V10.0.0.4\n"));
    r = twkey({QStringLiteral("version"), QStringLiteral("--json")});
    RUN_OK(r);
    QCOMPARE(json(r).value(QStringLiteral("length")).toInt(), 9);
}

void TstTwkeyCli::listAndInfoShowTheToken()
{
    Run r = twkey({QStringLiteral("list"), QStringLiteral("--json")});
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

    r = twkey({QStringLiteral("list")});
    RUN_OK(r);
    QVERIFY(r.out.startsWith("keys: 1\nkey 0\n"));
    QVERIFY(r.out.contains("TWCLI0000000000000042"));

    r = twkey({QStringLiteral("info"), QStringLiteral("0"), QStringLiteral("--json")});
    RUN_OK(r);
    QCOMPARE(json(r).value(QStringLiteral("serialNumberWhole")).toString(), QStringLiteral("TWCLI0000000000000042"));
}

void TstTwkeyCli::exitCodesForMissingLibraryKeyAndUsage()
{
    Run r = twkey({QStringLiteral("list"), QStringLiteral("--lib"), file(QStringLiteral("none.so"))});
    QCOMPARE(r.code, 3);
    r = twkey({QStringLiteral("info"), QStringLiteral("5")});
    QCOMPARE(r.code, 4);
    QVERIFY(r.err.contains("no key at index 5 (1 key(s) present)"));
    // A package folder without packages: no keys at all.
    const QString empty = file(QStringLiteral("emptybin"));
    QVERIFY(QDir().mkpath(empty + QStringLiteral("/kdp")));
    r = twkey({QStringLiteral("list"), QStringLiteral("--json"), QStringLiteral("--bin-path"), empty});
    RUN_OK(r);
    QCOMPARE(json(r).value(QStringLiteral("count")).toInt(), 0);
    r = twkey({QStringLiteral("sign")});
    QCOMPARE(r.code, 2);
    r = twkey({QStringLiteral("nosuchcommand")});
    QCOMPARE(r.code, 2);
    r = twkey({QStringLiteral("files"), QStringLiteral("get")});
    QCOMPARE(r.code, 2);
}

void TstTwkeyCli::pinRulesAndTheirCodes()
{
    auto remaining = [this]() {
        const Run r = twkey({QStringLiteral("pin-info"), QStringLiteral("--json")});
        return r.code == 0 ? json(r).value(QStringLiteral("user")).toObject().value(QStringLiteral("remainingRetries")).toInt()
                           : -1;
    };
    const int before = remaining();
    QVERIFY(before > 2);

    // Too short: refused before the token sees it, so no try is spent.
    Run r = twkey({QStringLiteral("login"), QStringLiteral("--pin"), QStringLiteral("12345")});
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains("error 0x0C000039: "), r.err.constData());
    QCOMPARE(remaining(), before);

    r = twkey({QStringLiteral("login"), QStringLiteral("--pin"), QStringLiteral("87654321")});
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains("error 0x0A000024: PIN incorrect"), r.err.constData());
    QCOMPARE(remaining(), before - 1);

    // From a descriptor: standard input here.
    r = twkey({QStringLiteral("login"), QStringLiteral("--pin-fd"), QStringLiteral("0")}, kUserPin.toUtf8() + '\n');
    RUN_OK(r);
    QCOMPARE(r.out, QByteArray("user PIN verified\n"));
    QCOMPARE(remaining(), before);

    r = twkey({QStringLiteral("login"), QStringLiteral("--admin"), QStringLiteral("--pin"), kAdminPin});
    RUN_OK(r);
}

void TstTwkeyCli::changePinAndUnblock()
{
    const QString newPin = QStringLiteral("24681357");
    Run r = twkey({QStringLiteral("change-pin"), QStringLiteral("--pin-fd"), QStringLiteral("0")},
                  (kUserPin + QLatin1Char('\n') + newPin + QLatin1Char('\n')).toUtf8());
    RUN_OK(r);
    r = twkey({QStringLiteral("login"), QStringLiteral("--pin"), newPin});
    RUN_OK(r);
    // A new PIN out of the length rule has its own code.
    r = twkey({QStringLiteral("change-pin"), QStringLiteral("--pin"), newPin, QStringLiteral("--new-pin"),
               QStringLiteral("1234")});
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains("error 0x0C00003A"), r.err.constData());

    // Lock the user PIN, then unblock it with the administrator PIN.
    const Run info = twkey({QStringLiteral("pin-info"), QStringLiteral("--json")});
    RUN_OK(info);
    const int tries = json(info).value(QStringLiteral("user")).toObject().value(QStringLiteral("remainingRetries")).toInt();
    QVERIFY(tries > 0 && tries < 100);
    for (int i = 0; i < tries; ++i)
        twkey({QStringLiteral("login"), QStringLiteral("--pin"), QStringLiteral("00000000")});
    r = twkey({QStringLiteral("login"), QStringLiteral("--pin"), newPin});
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains("error 0x0A000025: PIN locked"), r.err.constData());

    r = twkey({QStringLiteral("unblock"), QStringLiteral("--pin"), kAdminPin, QStringLiteral("--new-pin"), kUserPin});
    RUN_OK(r);
    r = twkey({QStringLiteral("login"), QStringLiteral("--pin"), kUserPin});
    RUN_OK(r);
}

void TstTwkeyCli::filesRoundTrip()
{
    QByteArray data;
    for (int i = 0; i < 300; ++i)
        data += char(i);
    QVERIFY(writeAll(file(QStringLiteral("blob.bin")), data));
    Run r = twkey({QStringLiteral("files"), QStringLiteral("put"), QStringLiteral("notes"), QStringLiteral("--in"),
                   file(QStringLiteral("blob.bin")), QStringLiteral("--pin"), kUserPin});
    RUN_OK(r);
    r = twkey({QStringLiteral("files"), QStringLiteral("ls"), QStringLiteral("--json")});
    RUN_OK(r);
    QVERIFY(QJsonDocument::fromJson(r.out).array().contains(QStringLiteral("notes")));
    r = twkey({QStringLiteral("files"), QStringLiteral("get"), QStringLiteral("notes"), QStringLiteral("--out"),
               file(QStringLiteral("back.bin"))});
    RUN_OK(r);
    QCOMPARE(readAll(file(QStringLiteral("back.bin"))), data);
    r = twkey({QStringLiteral("files"), QStringLiteral("get"), QStringLiteral("notes")});
    RUN_OK(r);
    QCOMPARE(r.out, data.toHex() + '\n');

    // Replaced by shorter content: the file takes the new length.
    r = twkey({QStringLiteral("files"), QStringLiteral("put"), QStringLiteral("notes"), QStringLiteral("--pin"), kUserPin},
              "short");
    RUN_OK(r);
    r = twkey({QStringLiteral("files"), QStringLiteral("get"), QStringLiteral("notes"), QStringLiteral("--format"),
               QStringLiteral("raw")});
    RUN_OK(r);
    QCOMPARE(r.out, QByteArray("short"));

    r = twkey({QStringLiteral("files"), QStringLiteral("rm"), QStringLiteral("notes"), QStringLiteral("--pin"), kUserPin});
    RUN_OK(r);
    r = twkey({QStringLiteral("files"), QStringLiteral("get"), QStringLiteral("notes")});
    QCOMPARE(r.code, 1);
    QVERIFY(r.err.contains("error 0x"));
}

void TstTwkeyCli::containersAndCertificates()
{
    Run r = twkey({QStringLiteral("containers"), QStringLiteral("create"), QStringLiteral("extra"), QStringLiteral("--pin"),
                   kUserPin});
    RUN_OK(r);
    r = twkey({QStringLiteral("containers"), QStringLiteral("create"), QStringLiteral("extra"), QStringLiteral("--pin"),
               kUserPin});
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains("error 0x0B000036"), r.err.constData());
    r = twkey({QStringLiteral("containers"), QStringLiteral("ls"), QStringLiteral("--json")});
    RUN_OK(r);
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
                         {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                          QStringLiteral("rsa:1024"), QStringLiteral("-nodes"), QStringLiteral("-keyout"),
                          file(QStringLiteral("cert.key")), QStringLiteral("-subj"), QStringLiteral("/CN=twkey test"),
                          QStringLiteral("-days"), QStringLiteral("1"), QStringLiteral("-out"), pem});
    if (made.code != 0)
        QSKIP("the openssl program is not at hand");
    r = twkey({QStringLiteral("cert"), QStringLiteral("import"), QStringLiteral("--container"), QStringLiteral("extra"),
               QStringLiteral("--in"), pem, QStringLiteral("--pin"), kUserPin});
    RUN_OK(r);
    r = twkey({QStringLiteral("cert"), QStringLiteral("export"), QStringLiteral("--container"), QStringLiteral("extra"),
               QStringLiteral("--pem")});
    RUN_OK(r);
    QCOMPARE(r.out, readAll(pem));
    r = twkey({QStringLiteral("cert"), QStringLiteral("export"), QStringLiteral("--container"), QStringLiteral("extra"),
               QStringLiteral("--enc")});
    QCOMPARE(r.code, 1);

    r = twkey({QStringLiteral("containers"), QStringLiteral("rm"), QStringLiteral("extra"), QStringLiteral("--pin"), kUserPin});
    RUN_OK(r);
    r = twkey({QStringLiteral("containers"), QStringLiteral("rm"), QStringLiteral("extra"), QStringLiteral("--pin"), kUserPin});
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains("error 0x0B000035"), r.err.constData());
}

void TstTwkeyCli::sm2SignatureVerifiesWithOpenssl()
{
    const QString msg = file(QStringLiteral("msg.txt"));
    QVERIFY(writeAll(msg, "a message for the SM2 key\n"));
    Run r = twkey({QStringLiteral("keygen"), QStringLiteral("sm2"), QStringLiteral("--container"), QStringLiteral("sm2new"),
                   QStringLiteral("--pin"), kUserPin});
    RUN_OK(r);
    const QStringList c = {QStringLiteral("--container"), QStringLiteral("sm2new")};

    r = twkey(QStringList{QStringLiteral("sign"), QStringLiteral("--in"), msg, QStringLiteral("--pin"), kUserPin,
                          QStringLiteral("--out"), file(QStringLiteral("sig.bin"))} + c);
    RUN_OK(r);
    QCOMPARE(readAll(file(QStringLiteral("sig.bin"))).size(), 64);
    r = twkey(QStringList{QStringLiteral("verify"), QStringLiteral("--in"), msg, QStringLiteral("--sig"),
                          file(QStringLiteral("sig.bin"))} + c);
    RUN_OK(r);
    QCOMPARE(r.out, QByteArray("signature verified\n"));

    // Without a login the key signs nothing.
    r = twkey(QStringList{QStringLiteral("sign"), QStringLiteral("--in"), msg, QStringLiteral("--pin"),
                          QStringLiteral("99999999")} + c);
    QCOMPARE(r.code, 1);

    // The same signature in DER, checked by openssl against the exported PEM.
    r = twkey(QStringList{QStringLiteral("sign"), QStringLiteral("--in"), msg, QStringLiteral("--pin"), kUserPin,
                          QStringLiteral("--format"), QStringLiteral("der"), QStringLiteral("--out"),
                          file(QStringLiteral("sig.der"))} + c);
    RUN_OK(r);
    r = twkey(QStringList{QStringLiteral("pubkey"), QStringLiteral("--pem"), QStringLiteral("--out"),
                          file(QStringLiteral("pub.pem"))} + c);
    RUN_OK(r);
    r = run(QStringLiteral("openssl"),
            {QStringLiteral("dgst"), QStringLiteral("-sm3"), QStringLiteral("-sigopt"),
             QStringLiteral("distid:1234567812345678"), QStringLiteral("-verify"), file(QStringLiteral("pub.pem")),
             QStringLiteral("-signature"), file(QStringLiteral("sig.der")), msg});
    RUN_OK(r);
    QVERIFY(r.out.contains("Verified OK"));
    // twkey takes the DER form back too.
    r = twkey(QStringList{QStringLiteral("verify"), QStringLiteral("--in"), msg, QStringLiteral("--sig"),
                          file(QStringLiteral("sig.der")), QStringLiteral("--format"), QStringLiteral("der")} + c);
    RUN_OK(r);

    // A changed message or signature is refused.
    r = twkey(QStringList{QStringLiteral("verify"), QStringLiteral("--sig"), file(QStringLiteral("sig.bin"))} + c,
              "another message\n");
    QCOMPARE(r.code, 1);
    QByteArray bad = readAll(file(QStringLiteral("sig.bin")));
    bad[10] = char(bad.at(10) ^ 0x40);
    QVERIFY(writeAll(file(QStringLiteral("bad.bin")), bad));
    r = twkey(QStringList{QStringLiteral("verify"), QStringLiteral("--in"), msg, QStringLiteral("--sig"),
                          file(QStringLiteral("bad.bin"))} + c);
    QCOMPARE(r.code, 1);

    // The token's plain signature of a given 32-byte value, and the
    // signature without Z.
    const QString value = file(QStringLiteral("value.bin"));
    QVERIFY(writeAll(value, QCryptographicHash::hash("value", QCryptographicHash::Sha256)));
    const struct
    {
        QString form;
        QString in;
        int hexSize;
    } forms[] = {{QStringLiteral("--raw"), value, 256}, {QStringLiteral("--no-z"), msg, 128}};
    for (const auto &f : forms) {
        r = twkey(QStringList{QStringLiteral("sign"), f.form, QStringLiteral("--in"), f.in, QStringLiteral("--pin"), kUserPin,
                              QStringLiteral("--format"), QStringLiteral("hex")} + c);
        RUN_OK(r);
        QCOMPARE(r.out.trimmed().size(), f.hexSize);
        QVERIFY(writeAll(file(QStringLiteral("sig.hex")), r.out));
        r = twkey(QStringList{QStringLiteral("verify"), f.form, QStringLiteral("--in"), f.in, QStringLiteral("--sig"),
                              file(QStringLiteral("sig.hex")), QStringLiteral("--format"), QStringLiteral("hex")} + c);
        RUN_OK(r);
        // Not valid in the other form.
        r = twkey(QStringList{QStringLiteral("verify"), QStringLiteral("--in"), f.in, QStringLiteral("--sig"),
                              file(QStringLiteral("sig.hex")), QStringLiteral("--format"), QStringLiteral("hex")} + c);
        QCOMPARE(r.code, 1);
    }
}

void TstTwkeyCli::rsaSignatureVerifiesWithOpenssl()
{
    const QString msg = file(QStringLiteral("rsa.txt"));
    QVERIFY(writeAll(msg, "a message for the RSA key\n"));
    const QStringList c = {QStringLiteral("--container"), QStringLiteral("rsanew")};
    Run r = twkey(QStringList{QStringLiteral("keygen"), QStringLiteral("rsa"), QStringLiteral("--bits"),
                              QStringLiteral("1024"), QStringLiteral("--pem"), QStringLiteral("--pin"), kUserPin} + c);
    RUN_OK(r);
    QVERIFY(r.out.startsWith("RSA 1024-bit key pair generated in container rsanew\n-----BEGIN PUBLIC KEY-----\n"));

    r = twkey(QStringList{QStringLiteral("sign"), QStringLiteral("--in"), msg, QStringLiteral("--pin"), kUserPin,
                          QStringLiteral("--out"), file(QStringLiteral("rsa.sig"))} + c);
    RUN_OK(r);
    QCOMPARE(readAll(file(QStringLiteral("rsa.sig"))).size(), 128);
    r = twkey(QStringList{QStringLiteral("verify"), QStringLiteral("--in"), msg, QStringLiteral("--sig"),
                          file(QStringLiteral("rsa.sig"))} + c);
    RUN_OK(r);
    r = twkey(QStringList{QStringLiteral("pubkey"), QStringLiteral("--pem"), QStringLiteral("--out"),
                          file(QStringLiteral("rsa.pem"))} + c);
    RUN_OK(r);
    // The token signed a SHA-256 DigestInfo: a standard verification.
    r = run(QStringLiteral("openssl"),
            {QStringLiteral("dgst"), QStringLiteral("-sha256"), QStringLiteral("-verify"), file(QStringLiteral("rsa.pem")),
             QStringLiteral("-signature"), file(QStringLiteral("rsa.sig")), msg});
    RUN_OK(r);
    r = twkey(QStringList{QStringLiteral("verify"), QStringLiteral("--sig"), file(QStringLiteral("rsa.sig"))} + c,
              "changed\n");
    QCOMPARE(r.code, 1);
    // The SM2 signature forms are refused for RSA.
    r = twkey(QStringList{QStringLiteral("sign"), QStringLiteral("--in"), msg, QStringLiteral("--pin"), kUserPin,
                          QStringLiteral("--format"), QStringLiteral("der")} + c);
    QCOMPARE(r.code, 2);
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
        const Run r = twkey({QStringLiteral("digest"), QStringLiteral("--alg"), QLatin1String(p.alg)}, data);
        RUN_OK(r);
        QCOMPARE(r.out, QCryptographicHash::hash(data, p.qt).toHex() + '\n');
    }
    // SM3("abc"), the standard's own example.
    Run r = twkey({QStringLiteral("digest"), QStringLiteral("--alg"), QStringLiteral("sm3")}, data);
    RUN_OK(r);
    QCOMPARE(r.out, QByteArray("66c7f0f462eeedd9d1f2d46bdc10e4e24167c4875cf2f7a2297da02b8f4ba8e0\n"));
    // With the signer's key the hash covers Z and differs.
    r = twkey({QStringLiteral("digest"), QStringLiteral("--alg"), QStringLiteral("sm3"), QStringLiteral("--container"),
               QStringLiteral("main")},
              data);
    RUN_OK(r);
    QCOMPARE(r.out.trimmed().size(), 64);
    QVERIFY(r.out != QByteArray("66c7f0f462eeedd9d1f2d46bdc10e4e24167c4875cf2f7a2297da02b8f4ba8e0\n"));
    r = twkey({QStringLiteral("digest"), QStringLiteral("--alg"), QStringLiteral("md5")}, data);
    QCOMPARE(r.code, 2);
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
    const QStringList common = {QStringLiteral("--container"), QStringLiteral("main"), QStringLiteral("--mode"), mode,
                                QStringLiteral("--pin"), kUserPin};
    Run r = twkey(QStringList{QStringLiteral("encrypt"), QStringLiteral("--in"), file(QStringLiteral("plain.txt")),
                              QStringLiteral("--out"), cipher, QStringLiteral("--key-out"), wrapped} + common);
    RUN_OK(r);
    QCOMPARE(readAll(wrapped).size(), 197);
    const QByteArray c = readAll(cipher);
    // PKCS#5 padding to whole blocks, plus the IV in front for CBC.
    QCOMPARE(c.size(), 112 + (mode == QLatin1String("cbc") ? 16 : 0));
    QVERIFY(!c.contains(plain.left(16)));

    r = twkey(QStringList{QStringLiteral("decrypt"), QStringLiteral("--in"), cipher, QStringLiteral("--key-in"), wrapped,
                          QStringLiteral("--format"), QStringLiteral("raw")} + common);
    RUN_OK(r);
    QCOMPARE(r.out, plain);
}

void TstTwkeyCli::sealRoundTrip()
{
    Run r = twkey({QStringLiteral("seal"), QStringLiteral("read"), QStringLiteral("--index"), QStringLiteral("0"),
                   QStringLiteral("--alg"), QStringLiteral("0x401")});
    RUN_OK(r);
    QCOMPARE(r.out, QByteArray("\n"));
    const QByteArray seal = QByteArray("seal image bytes ") + QByteArray(200, '\x5a');
    r = twkey({QStringLiteral("seal"), QStringLiteral("write"), QStringLiteral("--pin"), kUserPin}, seal);
    RUN_OK(r);
    r = twkey({QStringLiteral("seal"), QStringLiteral("read"), QStringLiteral("--index"), QStringLiteral("0"),
               QStringLiteral("--alg"), QStringLiteral("0x401"), QStringLiteral("--format"), QStringLiteral("base64")});
    RUN_OK(r);
    QCOMPARE(QByteArray::fromBase64(r.out.trimmed()), seal);
}

void TstTwkeyCli::logOptionWritesLibraryLines()
{
    const QString log = file(QStringLiteral("twkey.log"));
    Run r = twkey({QStringLiteral("list"), QStringLiteral("--log"), log});
    RUN_OK(r);
    const QByteArray lines = readAll(log);
    // The library's lines in its "[function:line]message" pattern.
    QVERIFY2(QRegularExpression(QStringLiteral(" D \\[count:\\d+\\] start\n")).match(QString::fromUtf8(lines)).hasMatch(),
             lines.left(2000).constData());
    r = twkey({QStringLiteral("version"), QStringLiteral("--verbose")});
    RUN_OK(r);
}

void TstTwkeyCli::formatDeletesFilesKeepsContainers()
{
    Run r = twkey({QStringLiteral("files"), QStringLiteral("put"), QStringLiteral("doomed"), QStringLiteral("--pin"), kUserPin},
                  "bytes");
    RUN_OK(r);
    r = twkey({QStringLiteral("format")}, "no\n");
    QCOMPARE(r.code, 1);
    r = twkey({QStringLiteral("files"), QStringLiteral("ls")});
    RUN_OK(r);
    QVERIFY(r.out.contains("doomed"));

    r = twkey({QStringLiteral("format")}, "yes\n");
    RUN_OK(r);
    r = twkey({QStringLiteral("files"), QStringLiteral("ls")});
    RUN_OK(r);
    QVERIFY(!r.out.contains("doomed"));
    r = twkey({QStringLiteral("containers"), QStringLiteral("ls")});
    RUN_OK(r);
    QVERIFY(r.out.contains("main\tSM2"));

    // The administrator PIN is now the library's built-in one: it is
    // already what reset-admin-pin brings back, and it unblocks the user
    // PIN to the library's default.
    r = twkey({QStringLiteral("reset-admin-pin")});
    RUN_OK(r);
    r = twkey({QStringLiteral("login"), QStringLiteral("--admin"), QStringLiteral("--pin"), kAdminPin});
    QCOMPARE(r.code, 1);
    r = twkey({QStringLiteral("format"), QStringLiteral("--yes")});
    RUN_OK(r);
    r = twkey({QStringLiteral("unblock"), QStringLiteral("--builtin")});
    RUN_OK(r);
    r = twkey({QStringLiteral("login"), QStringLiteral("--pin"), QStringLiteral("482915")});
    RUN_OK(r);
}

void TstTwkeyCli::demoScriptPasses()
{
    const Run r = run(QStringLiteral("bash"), {QStringLiteral(TWKEY_SOURCE_DIR "/scripts/demo.sh"), kBin});
    RUN_OK(r);
    QVERIFY(r.out.contains("openssl"));
}

QTEST_GUILESS_MAIN(TstTwkeyCli)
#include "tst_twkeycli.moc"
