// twkey run as a user runs it, on the shipped software-token package with a
// store of the test's own: one table of runs in order, on one token.
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace {

const QString kBin = QStringLiteral(TWKEY_BIN_DIR);

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<no file>");
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

    QTemporaryDir m_dir;
    QString place(QString s) const { return s.replace("{D}", m_dir.path()).replace("{BIN}", kBin); }

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        qputenv("SOFTTOKEN_STORE", QFile::encodeName(m_dir.filePath("store")));
        QByteArray blob;
        for (int i = 0; i < 300; ++i)
            blob += char(i);
        qputenv("TWCLI_PIN", "12345678");
        QVERIFY(QDir(m_dir.path()).mkpath("emptybin/kdp") && QDir(m_dir.path()).mkpath("skfbin/kdp") // skfbin: the SKF package alone
                && QDir(m_dir.path()).mkpath("sigs"));
        QVERIFY(QFile::link(kBin + "/kdp/softtoken", place("{D}/skfbin/kdp/softtoken")) && writeAll(place("{D}/pin.txt"), "12345678\n"));
        QVERIFY(writeAll(place("{D}/blob.bin"), blob) && writeAll(place("{D}/msg.txt"), "a message for the key\n")
                && writeAll(place("{D}/value.bin"), QByteArray(32, 'v')) && writeAll(place("{D}/plain.txt"), QByteArray(100, 'p'))
                && writeAll(place("{D}/seal.bin"), "seal image bytes"));
    }

    // The command ("twkey", "softtoken", a program on the path, or "flip SRC DST": a copy with one bit
    // changed; {D} the test folder, {BIN} the build's bin), standard input ("bash -s": the script), the
    // exit code, and checks: "=text" standard output is, "=@file" is that file's content, "~re" matches,
    // "!text" standard error holds, ">file" keeps standard output there, "@file#N" has N bytes,
    // "@file=@other" the same content, "@file~re".
    void run_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("input");
        QTest::addColumn<int>("code");
        QTest::addColumn<QStringList>("checks");
        auto row = [](const QString &command, const char *input, int code, const QStringList &checks) {
            QTest::newRow(qPrintable(command)) << command << QString::fromUtf8(input) << code << checks;
        };
        const QString retries = "~\"userPin\":\\s*\\{[^}]*\"remaining\":\\s*%1\\b"; // the names of softtoken show
        row("softtoken init clitoken --serial=TWCLI0000000000000042 --label=cli-test --container main:sm2 --container rsa1:rsa:1024", "", 0, {});
        row("twkey version", "", 0, {"=V10.0.0.4\n"});
        row("twkey version --json", "", 0, {"~\"length\":\\s*9"});
        // The limited serial number is cut to 16 characters; the whole one is not.
        row("twkey list --json", "", 0, {"~\"count\":\\s*1", "~\"label\":\\s*\"cli-test\"", "~\"serialLimited\":\\s*\"TWCLI00000000000\"",
                                         "~\"serial\":\\s*\"TWCLI0000000000000042\"", "~\"hwVersion\"", "~\"driverType\":\\s*1",
                                         "~\"packagePath\":\\s*\"[^\"]*kdp/softtoken\""});
        row("twkey list", "", 0, {"~^keys: 1\nkey 0\n", "~TWCLI0000000000000042"});
        row("twkey list --lib {D}/none.so", "", 3, {});
        row("twkey info 5 --json", "", 4, {"!no key at index 5 (1 key(s) present", "~\"ok\":\\s*false"}); // errors in JSON too
        row("twkey list --json --bin-path {D}/emptybin", "", 0, {"~\"count\":\\s*0"});
        // One parser per command: what it does not take, options given twice, arguments before any input.
        row("twkey list --bits 5 --sig q --json", "", 2, {"!unknown option --bits: list takes no such option", "~\"ok\":\\s*false"});
        row("twkey sign --in {D}/none.bin", "", 2, {"!sign needs --container NAME"});
        row("twkey nosuchcommand", "", 2, {});
        row("twkey files get", "", 2, {});
        row("twkey -h", "", 0, {"~^Usage: twkey \\[options\\] COMMAND"});
        row("twkey help keygen", "", 0, {"~\\[--force\\]"});
        row("twkey sign --version", "", 0, {"~^twkey \\d+\\.\\d+"});
        // A PIN out of the length rule is refused before the token sees it: no try spent.
        row("twkey login --pin 12345", "", 1, {"!error 0x0C000039 TW_ERR_OLD_PIN_LEN: "});
        row("twkey login --pin 87654321 --pin 12345678", "", 2, {"!--pin is given more than once"});
        row("twkey login --pin 87654321", "", 1, {"!accepted (5 tries left)", "!error 0x0A000024 SAR_PIN_INCORRECT: PIN incorrect"});
        row("twkey login --pin-fd 0", "12345678\n", 0, {"!user PIN verified", "="});
        row("twkey pin-info --json", "", 0, {retries.arg(6)});
        row("twkey login --pin env:TWCLI_PIN", "", 0, {});
        row("twkey login --pin file:{D}/pin.txt", "", 0, {});
        row("twkey login --admin --pin 88888888", "", 0, {});
        row("twkey change-pin --pin-fd 0", "12345678\n24681357\n", 0, {});
        row("twkey login --pin 24681357", "", 0, {});
        row("twkey change-pin --pin 24681357 --new-pin 1234", "", 1, {"!error 0x0C00003A"});
        row("twkey unblock --pin 88888888 --new-pin 12345678", "", 0, {});
        row("twkey login --pin 12345678", "", 0, {});
        row("openssl req -x509 -newkey rsa:1024 -nodes -days 1 -subj /CN=twkey-test -keyout {D}/cert.key -out {D}/cert.pem", "", 0, {});
        // Commands that need the user PIN ask for it, and without a terminal say so.
        for (const char *c : {"containers create extra", "containers rm main", "cert import --container main --in {D}/cert.pem", "seal write --in {D}/seal.bin"})
            row(QString("setsid -w {BIN}/twkey %1").arg(c), "", 2, {"!a PIN is needed"});
        row("twkey files put notes --pin 12345678 --in {D}/blob.bin", "", 0, {});
        row("twkey files ls --json", "", 0, {"~\"name\":\\s*\"notes\""});
        row("twkey files get notes --out {D}/back.bin", "", 0, {"@{D}/back.bin=@{D}/blob.bin"});
        row("twkey files get notes", "", 0, {"=@{D}/blob.bin"}); // bytes as they are into a pipe
        row("twkey files get notes --format hex --out -", "", 0, {"~^000102[0-9a-f]{594}\n$"});
        row("twkey files put notes --pin 12345678", "short", 0, {}); // the file takes the new length
        row("twkey files get notes --format raw", "", 0, {"=short"});
        row("twkey files rm notes --pin 12345678", "", 0, {});
        row("twkey files get notes", "", 1, {"!error 0x"});
        row("twkey files put naïve --pin 12345678", "x", 2, {"!printable ASCII"});
        // A listing that failed is no empty listing; fault codes are decimal unless 0x.
        row("softtoken fault clitoken SKF_EnumFiles 167772161 --times 1", "", 0, {});
        row("twkey files ls", "", 1, {"!cannot list the files"});
        row("softtoken fault clitoken SKF_GetContainerType 0x0A000001 --times 1", "", 0, {});
        row("twkey containers ls", "", 1, {"!error 0x0A000001 SAR_FAIL"});
        row("twkey containers create extra --pin 12345678", "", 0, {});
        row("twkey containers create extra --pin 12345678", "", 1, {"!error 0x0B000036"});
        row("twkey containers ls --json", "", 0, {"~\"main\",\\s*\"type\":\\s*\"sm2\"", "~\"rsa1\",\\s*\"type\":\\s*\"rsa\"", "~\"extra\",\\s*\"type\":\\s*\"empty\""});
        row("twkey cert import --container extra --pin 12345678 --in {D}/msg.txt", "", 2, {"!no X.509 certificate"});
        row("twkey cert import --container extra --pin 12345678 --in {D}/cert.pem", "", 0, {});
        row("twkey cert export --container extra --pem", "", 0, {"=@{D}/cert.pem"});
        row("twkey cert export --container extra --enc", "", 1, {});
        row("twkey containers rm extra --pin 12345678", "", 0, {});
        row("twkey containers rm extra --pin 12345678", "", 1, {"!error 0x0B000035"});
        // keygen replaces, converts and leaves behind nothing it was not asked to.
        row("twkey keygen sm2 --container rsa1 --pin 12345678", "", 1, {"!holds an RSA key pair; --force"});
        row("twkey keygen sm2 --enc --container sm2new --pin 12345678", "", 2, {"!signing key pairs only"});
        row("softtoken fault clitoken SKF_GenECCKeyPair 0x0A000001 --times 1", "", 0, {});
        row("twkey keygen sm2 --container ghost --pin 12345678", "", 1, {"!SAR_FAIL"});
        row("twkey containers ls", "", 0, {"~^(?![\\s\\S]*ghost)"});
        row("twkey keygen sm2 --container sm2new --pin 12345678", "", 0, {});
        row("twkey sign --container sm2new --in {D}/msg.txt --pin 12345678", "", 0, {">{D}/sig.bin", "@{D}/sig.bin#64"});
        row("twkey verify --container sm2new --in {D}/msg.txt --sig {D}/sig.bin", "", 0, {"!signature verified"});
        row("twkey sign --json --container sm2new --in {D}/msg.txt --pin 12345678", "", 0, {"~\"signature\":\\s*\"[0-9a-f]{128}\""});
        // The PIN line of --pin-fd is read before the data that follows it.
        row("twkey sign --container sm2new --pin-fd 0 --format der --out {D}/sig.der", "12345678\na message for the key\n", 0, {});
        row("twkey pubkey --pem --container sm2new --out {D}/pub.pem", "", 0, {});
        row("openssl dgst -sm3 -sigopt distid:1234567812345678 -verify {D}/pub.pem -signature {D}/sig.der {D}/msg.txt", "", 0,
            {"~Verified OK"});
        row("twkey verify --format der --sig {D}/sig.der --container sm2new --in {D}/msg.txt", "", 0, {});
        row("flip {D}/sig.bin {D}/bad.bin", "", 0, {});
        row("twkey verify --json --sig {D}/bad.bin --container sm2new", "a message for the key\n", 1, {"~\"name\":\\s*\"SAR_FAIL\""});
        // The token's plain signature of a given value, and one without Z; hex and base64 signatures are recognised.
        row("twkey sign --raw --pin 12345678 --format hex --container sm2new --in {D}/value.bin", "", 0, {"~^[0-9a-f]{256}\n$", ">{D}/raw.hex"});
        row("twkey verify --raw --sig {D}/raw.hex --container sm2new --in {D}/value.bin", "", 0, {});
        row("twkey verify --format hex --sig {D}/raw.hex --container sm2new --in {D}/value.bin", "", 1, {});
        row("twkey sign --no-z --pin 12345678 --format base64 --container sm2new --in {D}/msg.txt", "", 0, {">{D}/noz.b64"});
        row("twkey verify --no-z --sig {D}/noz.b64 --container sm2new --in {D}/msg.txt", "", 0, {});
        row("twkey verify --format base64 --sig {D}/noz.b64 --container sm2new --in {D}/msg.txt", "", 1, {});
        row("twkey keygen rsa --bits 1024 --pem --pin 12345678 --container rsanew", "", 0,
            {"~^-----BEGIN PUBLIC KEY-----\n", "!RSA 1024-bit key pair generated in container rsanew"});
        row("twkey keygen sm2 --force --container rsa1 --pin 12345678", "", 0, {"!replacing an RSA key pair"});
        row("twkey sign --pin 12345678 --container rsanew --in {D}/msg.txt --out {D}/rsa.sig", "", 0, {"@{D}/rsa.sig#128"});
        row("twkey pubkey --pem --container rsanew --out {D}/rsa.pem", "", 0, {});
        // The token signed a SHA-256 DigestInfo: a standard verification.
        row("openssl dgst -sha256 -verify {D}/rsa.pem -signature {D}/rsa.sig {D}/msg.txt", "", 0, {});
        row("twkey verify --container rsanew --sig {D}/rsa.sig", "changed\n", 1, {});
        row("twkey sign --pin 12345678 --format der --container rsanew --in {D}/msg.txt", "", 2, {});
        // Many inputs, one login: each reported, one that fails fails alone, every signature verifies.
        row("twkey sign --container sm2new --pin 12345678 --format der --stop-on-error {D}/msg.txt {D}/plain.txt {D}/none.txt {D}/blob.bin", "", 1,
            {"~^signed +\\S+msg.txt \\(\\S+msg.txt.sig\\)\nsigned +\\S+plain.txt .*\nFAILED +\\S+none.txt: cannot read .*\nskipped +\\S+blob.bin\n$",
             "!twkey: 2 of 4 signed, 1 failed, 1 not tried"});
        row("bash -s", "{BIN}/twkey sign --container sm2new --pin 12345678 --format der {D}/msg.txt {D}/none.txt 2>&1", 1, // results ahead of the summary
            {"~^signed +\\S+msg.txt \\(.*\nFAILED +\\S+none.txt: cannot read .*\ntwkey: 1 of 2 signed, 1 failed\n$"});
        row("twkey sign --container rsanew --pin-fd 0 --out-dir {D}/sigs --list -", "12345678\n{D}/msg.txt\n{D}/plain.txt\n{D}/blob.bin\n", 0, {"!3 of 3 signed\n"});
        row("bash -s", "cd {D} && for f in msg plain; do openssl dgst -sm3 -sigopt distid:1234567812345678 -verify pub.pem -signature $f.txt.sig $f.txt"
            " && openssl dgst -sha256 -verify rsa.pem -signature sigs/$f.txt.sig $f.txt || exit 1; done", 0, {});
        row("flip {D}/sigs/plain.txt.sig {D}/sigs/plain.txt.sig", "", 0, {});
        row("twkey verify --container rsanew --sig-dir {D}/sigs --json {D}/msg.txt {D}/plain.txt {D}/blob.bin", "", 1,
            {"~\"in\": \"\\S+msg.txt\",\\s*\"ok\": true", "~\"name\": \"SAR_\\w+\",[^}]*\\},\\s*\"in\": \"\\S+plain.txt\",\\s*\"message\": \"the signature does not verify\",\\s*\"ok\": false",
             "~\"in\": \"\\S+blob.bin\",\\s*\"ok\": true", "~\"message\": \"2 of 3 verified, 1 failed\""});
        // Another process's write between two signatures of a batch is seen at the next call.
        row("bash -s", "cd {D} && mkdir live && mkfifo fifo && ({BIN}/twkey sign --container main --pin 12345678 --out-dir live msg.txt fifo blob.bin &"
            " until [ -e live/msg.txt.sig ]; do sleep 0.02; done; {BIN}/softtoken fault clitoken SKF_ECCSignData 0x0A000001 --times 1 >/dev/null;"
            " echo 2 > fifo; wait $!)", 1, {"~^signed .*\nFAILED +fifo: the key did not sign \\(error 0x0A000001 SAR_FAIL: .*\nsigned +blob.bin .*\n$"});
        row("twkey digest --alg sha1 --format hex --out -", "abc", 0, {"=a9993e364706816aba3e25717850c26c9cd0d89d\n"});
        row("twkey digest --alg sha256 --format hex", "abc", 0, {"=ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad\n"});
        row("twkey digest --alg sha1 --format hex --out {D}/rsa.sig", "abc", 0, {"@{D}/rsa.sig#41"}); // a longer file cut
        row("twkey digest --alg sm3 --format hex", "abc", 0, {"=66c7f0f462eeedd9d1f2d46bdc10e4e24167c4875cf2f7a2297da02b8f4ba8e0\n"});
        row("twkey digest --alg sm3 --container main --format hex", "abc", 0, {"~^(?!66c7f0f4)[0-9a-f]{64}\n$"}); // Z hashed ahead
        row("twkey digest --alg md5", "abc", 2, {});
        // PKCS#5 to whole blocks, the IV in front for CBC.
        for (const QString m : {"ecb", "cbc"}) {
            const QString c = "{D}/c." + m, k = "{D}/k." + m, how = " --container main --pin 12345678 --mode " + m;
            row("twkey encrypt --in {D}/plain.txt --out " + c + " --key-out " + k + how, "", 0,
                {"@" + k + "#197", "@" + c + (m == "ecb" ? "#112" : "#128")});
            row("twkey decrypt --format raw --in " + c + " --key-in " + k + how, "", 0, {"=@{D}/plain.txt"});
        }
        row("twkey seal read --index 0 --alg 0x401", "", 0, {"="});
        row("twkey seal write --pin 12345678 --in {D}/seal.bin", "", 0, {});
        row("twkey seal read --index 0 --alg 0x401 --format base64", "", 0, {"=c2VhbCBpbWFnZSBieXRlcw==\n"});
        row("twkey list --verbose --log {D}/twkey.log", "", 0, {"@{D}/twkey.log~ D \\[count:\\d+\\] start\n", "! D [count:"});
        // Formatting asks first, proves the administrator PIN, and tells the PIN it leaves.
        row("twkey files put doomed --pin 12345678", "bytes", 0, {});
        row("twkey format", "yes\n", 2, {"!Give --yes"});
        row("twkey format --yes --pin 11111111", "", 1, {"!(9 tries left)"});
        row("twkey files ls", "", 0, {"~doomed"});
        row("twkey format --yes --pin 88888888", "", 0, {"~administrator PIN: QmVR2kdLZTTHpXsa"});
        row("twkey files ls", "", 0, {"~^(?![\\s\\S]*doomed)"});
        row("twkey containers ls", "", 0, {"~main\tSM2"});
        row("twkey reset-admin-pin --yes", "", 0, {"~administrator PIN: QmVR2kdLZTTHpXsa"});
        row("twkey unblock --builtin --yes", "", 0, {"~user PIN: 482915"});
        row("twkey login --pin 482915", "", 0, {});
        // Keys by serial number or label; a token without a container is no key to a host, and list tells why.
        row("softtoken init second --serial TWCLI2 --label=second --container c:sm2", "", 0, {});
        row("twkey info --label second --json", "", 0, {"~\"serial\":\\s*\"TWCLI2\""});
        row("twkey info --serial TWCLI00000000000 --json", "", 0, {"~\"label\":\\s*\"cli-test\""});
        row("softtoken delete second", "", 0, {});
        row("softtoken init bare", "", 0, {"!has no container"});
        row("twkey list --bin-path {D}/skfbin", "", 1, {"!a token is a key only when"});
        row("twkey info --label cli-test", "", 4, {"!no key has the label cli-test"});
        row("softtoken delete bare", "", 0, {});
        row("softtoken fault clitoken SKF_EnumDev 0x0A000001", "", 0, {});
        row("twkey list", "", 1, {"!cannot list its devices"});
        row("softtoken clear-faults clitoken", "", 0, {});
        // Man page and completion, made at build time from the tables that serve --help.
        row("bash -s", "n=0; for c in $({BIN}/twkey help | sed -n '/^Commands:/,/^$/s/^  \\([a-z-]*\\) .*/\\1/p'); do man -l {BIN}/../share/man/man1/twkey.1 | grep -q \"^ \\{7\\}$c\\b\" && n=$((n+1)) || echo missing $c; done; echo $n shown", 0, {"~^[1-9]\\d* shown\n$"});
        row("bash -s", "source {BIN}/../share/bash-completion/completions/twkey && complete -p twkey", 0, {"=complete -F _twkey twkey\n"});
        row("bash " TWKEY_SOURCE_DIR "/scripts/demo.sh {BIN}", "", 0, {"~openssl"});
    }
    void run()
    {
        QFETCH(QString, command);
        QFETCH(QString, input);
        QFETCH(QStringList, checks);
        QStringList args = place(command).split(' ');
        const QString program = args.takeFirst();
        QProcess p;
        QByteArray out, err;
        if (program == "flip") {
            QByteArray data = readAll(args.at(0));
            data[10] = char(data.at(10) ^ 0x40);
            QVERIFY(writeAll(args.at(1), data));
        } else {
            p.start(program == "twkey" || program == "softtoken" ? kBin + "/" + program : program, args);
            QVERIFY2(p.waitForStarted(10000), qPrintable(program));
            p.write(place(input).toUtf8());
            p.closeWriteChannel();
            QVERIFY(p.waitForFinished(60000) && p.exitStatus() == QProcess::NormalExit);
            out = p.readAllStandardOutput();
            err = p.readAllStandardError();
            QFETCH(int, code);
            QVERIFY2(p.exitCode() == code, qPrintable(QString("exit %1\n%2\n%3").arg(p.exitCode()).arg(out, err)));
        }
        for (QString c : checks) {
            c = place(c);
            const QString file = c.startsWith('@') ? c.mid(1).section(QRegularExpression("[#=~]"), 0, 0) : QString();
            const QByteArray subject = file.isEmpty() ? out : readAll(file);
            const QString rest = file.isEmpty() ? c : c.mid(1 + file.size());
            bool ok = false;
            if (rest.startsWith("=@"))
                ok = subject == readAll(rest.mid(2));
            else if (rest.startsWith('='))
                ok = subject == rest.mid(1).toUtf8();
            else if (rest.startsWith('~'))
                ok = QRegularExpression(rest.mid(1)).match(QString::fromUtf8(subject)).hasMatch();
            else if (rest.startsWith('#'))
                ok = subject.size() == rest.mid(1).toInt();
            else if (rest.startsWith('!'))
                ok = err.contains(rest.mid(1).toUtf8());
            else if (rest.startsWith('>'))
                ok = writeAll(rest.mid(1), out);
            QVERIFY2(ok, qPrintable(QString("%1\nstdout: %2\nstderr: %3").arg(c, QString::fromUtf8(subject.left(2000)), err)));
        }
    }

    // Arrivals and removals made by another process, a JSON line each; a
    // removal reaches the driver's slot; Ctrl-C ends the watch.
    void watch()
    {
        QProcess w;
        w.start(kBin + "/twkey", {"watch", "--json", "--log", place("{D}/watch.log")});
        w.setReadChannel(QProcess::StandardError);
        while (!w.readAll().contains("watching") && w.waitForReadyRead(10000)) {}
        w.setReadChannel(QProcess::StandardOutput);
        QByteArray out;
        for (const char *step : {"remove", "insert"}) {
            const int lines = out.count('\n') + 1;
            QCOMPARE(QProcess::execute(kBin + "/softtoken", {step, "clitoken"}), 0);
            while (out.count('\n') < lines && w.waitForReadyRead(10000))
                out += w.readAll();
        }
        ::kill(pid_t(w.processId()), SIGINT);
        QVERIFY(w.waitForFinished(10000) && w.exitStatus() == QProcess::NormalExit && w.exitCode() == 0);
        const QRegularExpression lines("^\\{\"device\":\"clitoken\",\"event\":\"removed\",\"time\":\"[^\"]+\"\\}\n"
                                       "\\{\"device\":\"clitoken\",\"event\":\"inserted\",\"time\":\"[^\"]+\"\\}\n$");
        QVERIFY2(lines.match(out + w.readAll()).hasMatch(), out.constData());
        QVERIFY(readAll(place("{D}/watch.log")).contains("devName :clitoken ,insert 0"));
    }

    // A PIN prompt on a real terminal has no echo, and echo is back after Ctrl-C or SIGTERM ended
    // the program at it. Keys are typed before Ctrl-C only, which reaches the terminal after them: a
    // SIGTERM can overtake keys, which are then echoed once echo is back.
    void prompt_data()
    {
        QTest::addColumn<int>("signal");
        QTest::newRow("Ctrl-C") << 0;
        QTest::newRow("SIGTERM") << int(SIGTERM);
    }
    void prompt()
    {
        QFETCH(int, signal);
        const QByteArray twkey = QFile::encodeName(kBin + "/twkey");
        int fd = -1;
        const pid_t pid = forkpty(&fd, nullptr, nullptr, nullptr);
        if (pid == 0) {
            execl(twkey.constData(), "twkey", "login", nullptr);
            _exit(127);
        }
        char seen[256] = {};
        QByteArray shown;
        for (ssize_t n = 0; !shown.contains("PIN: ") && (n = read(fd, seen, sizeof seen - 1)) > 0;)
            shown += QByteArray(seen, int(n));
        termios t{};
        QVERIFY2(tcgetattr(fd, &t) == 0 && !(t.c_lflag & ECHO), shown.constData());
        QVERIFY((signal ? kill(pid, signal) : int(write(fd, "1234\x03", 5)) - 5) == 0);
        int status = 0;
        QVERIFY(waitpid(pid, &status, 0) == pid && WIFSIGNALED(status) && WTERMSIG(status) == (signal ? signal : SIGINT));
        QVERIFY(tcgetattr(fd, &t) == 0 && (t.c_lflag & ECHO) && read(fd, seen, sizeof seen - 1) > 0 && !strstr(seen, "1234"));
        close(fd);
    }
};

QTEST_GUILESS_MAIN(TstTwkeyCli)
#include "tst_twkeycli.moc"
