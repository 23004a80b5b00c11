// The host's parts: the core object as the library reaches it (by name, from any thread), calls by
// name that are refused, the loader against the real library and libraries that are none, what the
// library prints kept out of twkey's own output, and the CLI's conversions the CLI table does not reach.
#include "twcall.h"
#include "twcore.h"
#include "componenthost.h"
#include "stdoutcapture.h"
#include "blobconverter.h"

#include <QTemporaryDir>
#include <QtTest>

#include <thread>
#include <vector>
#include <fcntl.h>
#include <unistd.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

Key pemKey(const QByteArray &pem)
{
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new_mem_buf(pem.constData(), pem.size()), BIO_free);
    return Key(PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
}

void put32(QByteArray &blob, int offset, quint32 v) { memcpy(blob.data() + offset, &v, 4); }

// ECCPUBLICKEYBLOB: BitLen, then X and Y right-aligned in 64-byte fields.
QByteArray eccBlob(EVP_PKEY *key)
{
    unsigned char point[65];
    size_t len = 0;
    EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, point, sizeof point, &len);
    QByteArray blob(132, '\0');
    put32(blob, 0, 256);
    blob.replace(36, 32, QByteArray(reinterpret_cast<char *>(point) + 1, 32));
    blob.replace(100, 32, QByteArray(reinterpret_cast<char *>(point) + 33, 32));
    return blob;
}

// RSAPUBLICKEYBLOB with the modulus standing left, as some tokens give it.
QByteArray rsaLeftBlob(EVP_PKEY *key)
{
    BIGNUM *n = nullptr, *e = nullptr;
    EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_N, &n);
    EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_E, &e);
    QByteArray blob(268, '\0');
    put32(blob, 0, 0x00010000);
    put32(blob, 4, quint32(BN_num_bits(n)));
    BN_bn2bin(n, reinterpret_cast<unsigned char *>(blob.data()) + 8);
    BN_bn2binpad(e, reinterpret_cast<unsigned char *>(blob.data()) + 264, 4);
    BN_free(n);
    BN_free(e);
    return blob;
}

} // namespace

class TstHost : public QObject
{
    Q_OBJECT

private slots:
    // A refused call leaves the preset alone and calls nothing (the calls that work are every
    // other test's); then the log's levels, its file and discarding.
    void callsLogAndFile()
    {
        TWCore core;
        uint code = 7;
        qint64 wide = -1;
        QString text = "preset";
        TWPtr object{"TWKey*"};
        QVERIFY(!twCall(nullptr, "getLastError", code) && !twCall(&core, "noSuch", code) && !twCall(&core, "getLast", code));
        QVERIFY(!twCallVoid(&core, "setLastError", 5) && !twCallVoid(&core, "setLastError", code, code)); // int for uint; one too many
        QVERIFY(!twCall(&core, "getLastError", wide) && !twCall(&core, "getLastError", text) && !twCall(&core, "logDebug", code, text));
        QVERIFY(!twCall(&core, "createComponentObject", object, text, text)); // the result type by name
        QVERIFY(code == 7 && wide == -1 && text == "preset" && !object.value && core.lineCount() == 0 && core.lastError() == 0);

        QTemporaryDir dir;
        const QString path = dir.filePath("core.log");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write("earlier run\n") > 0);
        file.close();
        QVERIFY(core.setLogFile(path));
        QVERIFY(twCallVoid(&core, "logDebug", QString("[load:10] start")));
        QVERIFY(twCallVoid(&core, "logError", QString("[load:12] kdp load fail")));
        QVERIFY(core.setLogFile(QString()));
        QVERIFY(twCallVoid(&core, " logDebug ", QString("[load:14] end"))); // the name trimmed
        QCOMPARE(core.lines(TWCore::Level::Debug), (QStringList{"[load:10] start", "[load:14] end"}));
        QCOMPARE(core.lines(TWCore::Level::Error), QStringList{"[load:12] kdp load fail"});
        QVERIFY(file.open(QIODevice::ReadOnly)); // appended, with the level, until stopped
        QVERIFY(QRegularExpression("^earlier run\n.+ D \\[load:10\\] start\n.+ E \\[load:12\\] kdp load fail\n$")
                    .match(QString::fromUtf8(file.readAll())).hasMatch());
        QVERIFY(!core.setLogFile(dir.filePath("missing/dir/core.log")));
        core.setLastError(0xC000003Au);
        core.clear(); // the log only
        QVERIFY(core.lines().isEmpty() && core.lineCount() == 0 && core.lastError() == 0xC000003Au);

        core.setDiscard(true); // keeps nothing, counts all
        QVERIFY(core.setLogFile(path));
        for (int i = 0; i < 100; ++i)
            core.logDebug(QString::number(i));
        core.logError(QStringLiteral("failure"));
        QVERIFY(core.lines().isEmpty() && core.lineCount() == 101);
        QCOMPARE(QFileInfo(path).size(), file.size());
        core.setDiscard(false);
        core.logError(QStringLiteral("kept"));
        QCOMPARE(core.lines(TWCore::Level::Error), QStringList{"kept"});
    }

    void concurrentLoggingLosesNothing()
    {
        TWCore core;
        constexpr int threads = 4, perThread = 2000;
        std::vector<std::thread> workers;
        for (int t = 0; t < threads; ++t)
            workers.emplace_back([&core, t] {
                for (int i = 0; i < perThread; ++i)
                    twCallVoid(&core, i % 2 ? "logError" : "logDebug", QString("t%1 %2").arg(t).arg(i));
            });
        for (std::thread &w : workers)
            w.join();
        QCOMPARE(core.lineCount(), threads * perThread);
        QCOMPARE(core.lines(TWCore::Level::Error).size(), threads * perThread / 2);
        int next[threads] = {}; // each thread's lines in its own order
        for (const TWCore::LogLine &line : core.lines())
            QCOMPARE(line.text.section(' ', 1).toInt(), next[line.text.mid(1, 1).toInt()]++);
    }

    void loaderRefusalsStartAndShutdown()
    {
        TWCore core;
        const char *const bads[][2] = {{SKFTRACE_PATH, "does not export ComponentInit"}, {"/none/libTWKey.so", "/none/libTWKey.so"}};
        for (const auto &bad : bads) {
            ComponentHost host;
            QVERIFY(!host.load(QString::fromLatin1(bad[0])) && !host.isLoaded());
            QVERIFY2(host.errorString().contains(bad[1]), qPrintable(host.errorString()));
            QCOMPARE(host.start(&core), nullptr);
            QCOMPARE(host.getVersion(nullptr, nullptr), -2);
        }
        QTemporaryDir bin;
        core.setBinPath(bin.path());
        ComponentHost host;
        QVERIFY(host.load(QStringLiteral(TWKEY_LIB)));
        QCOMPARE(host.createComponent(), nullptr); // the library would fault before ComponentInit
        QVERIFY(host.errorString().contains("ComponentInit") && !host.init(nullptr));
        char buffer[16];
        QCOMPARE(host.getVersion(buffer, nullptr), -2); // refused here, a fault in the library
        QObject *manager = host.start(&core);
        QVERIFY(manager);
        QCOMPARE(host.start(&core), manager);
        QCOMPARE(host.createComponent(QStringLiteral("TWKEY.Other.1"), QStringLiteral("0000")), nullptr);
        core.clear();
        host.shutdown(true);
        QVERIFY(core.lines(TWCore::Level::Debug).join('\n').contains("~TWKey")); // deleted while the core was there
        QCOMPARE(host.manager(), nullptr);
        const int lines = core.lineCount();
        host.shutdown(true);
        QCOMPARE(core.lineCount(), lines);
        QVERIFY(host.init(&core));
        QCOMPARE(host.createComponent(), nullptr); // the library would hand out the deleted manager
    }

    void libraryLinesGoToTheSinkOwnOutputStays()
    {
        QTemporaryDir dir;
        const QByteArray path = QFile::encodeName(dir.filePath("stdout.txt"));
        std::fflush(stdout);
        const int original = ::dup(STDOUT_FILENO);
        const int file = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        QVERIFY(original >= 0 && file >= 0 && ::dup2(file, STDOUT_FILENO) >= 0);
        ::close(file);
        QStringList sunk;
        {
            StdoutCapture capture([&sunk](const QString &line) { sunk << line; });
            std::printf("[TWKeyObjectSkf::PrintError] Error:fail \n");
            std::fprintf(capture.realStdout(), "own output\n");
            std::printf("SERIAL0001\nno newline at the end");
            QVERIFY(::write(STDOUT_FILENO, "raw write\n", 10) == 10);
        }
        std::printf("after\n");
        std::fflush(stdout);
        ::dup2(original, STDOUT_FILENO);
        ::close(original);
        QFile f(QFile::decodeName(path));
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll(), QByteArray("own output\nafter\n"));
        sunk.sort(); // the unbuffered write may overtake the buffered lines; each arrives whole
        QCOMPARE(sunk, (QStringList{"SERIAL0001", "[TWKeyObjectSkf::PrintError] Error:fail ", "no newline at the end", "raw write"}));
    }

    // What the CLI table does not reach: the keys and signatures twkey meets
    // through the token are checked by openssl there.
    void edgesAndRefusals()
    {
        QString error;
        Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, "SM2"), EVP_PKEY_free);
        const QByteArray good = eccBlob(key.get()); // as the token gives it: twkey pubkey --pem shows it converts
        QByteArray offCurve = good, wrongBits = good;
        offCurve[131] = char(offCurve.at(131) ^ 1);
        put32(wrongBits, 0, 384);
        const QList<QPair<QByteArray, const char *>> bad{{offCurve, "SM2 curve"}, {wrongBits, "384"}, {good.left(131), "131"}};
        for (const auto &b : bad) {
            QVERIFY(BlobConverter::publicBlobToPem(b.first, &error).isEmpty());
            QVERIFY2(error.contains(QLatin1String(b.second)), qPrintable(error));
        }
        Key rsa(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", size_t(1024)), EVP_PKEY_free);
        Key left = pemKey(BlobConverter::publicBlobToPem(rsaLeftBlob(rsa.get()), &error));
        QVERIFY2(left && EVP_PKEY_eq(rsa.get(), left.get()) == 1, qPrintable(error));
        QByteArray empty(268, '\0');
        put32(empty, 4, 2048);
        QVERIFY(BlobConverter::rsaPublicBlobToPem(empty, &error).isEmpty());

        const QByteArray compact = QByteArray(31, '\x01') + '\x81' + QByteArray(32, '\x02');
        const QByteArray blob = BlobConverter::compactToSignatureBlob(compact), der = BlobConverter::compactToDer(compact);
        QCOMPARE(blob, QByteArray(32, '\0') + compact.left(32) + QByteArray(32, '\0') + compact.mid(32)); // r, s right-aligned
        QCOMPARE(BlobConverter::signatureBlobToCompact(blob), compact);
        QCOMPARE(BlobConverter::derToCompact(der), compact);
        for (const QByteArray &c : {QByteArray(32, '\x90') + QByteArray(2, '\0') + QByteArray(30, '\x7f'), QByteArray(2, '\0') + '\x90' + QByteArray(61, '\0')})
            QCOMPARE(BlobConverter::derToCompact(BlobConverter::compactToDer(c)), c); // openssl reads the smallest DER only
        for (const QByteArray &r : {BlobConverter::derToCompact(der + '\0'), BlobConverter::derToCompact("not a signature"),
                                    BlobConverter::compactToDer(compact.left(63)), BlobConverter::signatureBlobToCompact(blob.left(127))})
            QVERIFY(r.isEmpty());

        const QByteArray cert(200, 'c');
        const QByteArray pem = BlobConverter::certificateToPem(cert);
        for (const QByteArray &line : pem.split('\n'))
            QVERIFY(line.size() <= 64 || line.startsWith("-----"));
        for (const QByteArray &notOne : {"text before\n" + pem, cert, QByteArray("-----BEGIN CERTIFICATE-----\nAAAA")})
            QVERIFY(BlobConverter::certificateToDer(notOne).isEmpty()); // no X.509 certificate, whatever the wrapping
    }
};

QTEST_GUILESS_MAIN(TstHost)
#include "tst_host.moc"
