// Digests, RSA, SM2, session keys, ciphers and seal over the test token
// library, driven by name through a host. The library's call log is the
// witness of what reached the token, and of what did not.
#include "isolatedtest.h"
#include "kdpfixture.h"
#include "mockcontrol.h"
#include "testhost.h"
#include "twdeviceguard.h"

#include <QRegularExpression>
#include <QTest>

#include <dlfcn.h>

#include <cstddef>
#include <cstring>

#include <functional>
#include <memory>

namespace {

const char kDev[] = "dev1";
const char kApp[] = "APP";
const QString kUserPin = QStringLiteral("12345678");
const QString kDefaultId = QStringLiteral("1234567812345678");
// A last error that no operation sets: what a call must leave alone.
const uint kSentinel = 0x5EA15EA1u;
const quint32 kRemoved = SAR_DEVICE_REMOVED;

const Qt::HANDLE kNull = nullptr;
// Never reaches the token in the cases that use it: the guards stop first,
// or a fault answers before the handle is looked at.
const Qt::HANDLE kBogus = reinterpret_cast<Qt::HANDLE>(quintptr(0x10));

QString codeText(quint32 code)
{
    return QStringLiteral("0x%1").arg(code, 8, 16, QLatin1Char('0'));
}

// "[function]message", as the core received it with the line number taken out.
QString line(const char *function, const QString &message)
{
    return QStringLiteral("[%1]%2").arg(QLatin1String(function), message);
}

// A BLOCKCIPHERPARAM as the host packs it.
QByteArray cipherParam(const QByteArray &iv, quint32 padding, quint32 feedBits)
{
    BLOCKCIPHERPARAM p;
    std::memset(&p, 0, sizeof(p));
    std::memcpy(p.IV, iv.constData(), size_t(qMin(iv.size(), int(sizeof(p.IV)))));
    p.IVLen = ULONG(iv.size());
    p.PaddingType = padding;
    p.FeedBitLen = feedBits;
    return QByteArray(reinterpret_cast<const char *>(&p), int(sizeof(p)));
}

} // namespace

class TestSessionCryptoMock : public QObject
{
    Q_OBJECT

private slots:
    void guardsRefuseWithoutCallingTheToken();
    void twoCallFormsTakeTheWrittenBackLength();
    void digestIsSizedBySessionAlgorithm();
    void digestWithoutInitTakesTokenLength();
    void eccSimpleSignPacksTheCompactForm();
    void eccExportSessionKeyKeepsTheSession();
    void removedDeviceClosesTheSession();
    void sealDataAndShorterForms();
    void sealWithoutEpsFunctions();
    void shortBuffersAreNeverReadPast();

private:
    bool start(const QString &library = QStringLiteral(MOCKSKF_PATH));
    bool reopen();
    static QStringList plain(QStringList lines);
    QStringList plainLog() const { return plain(m_host->log()); }
    QStringList plainErrors() const { return plain(m_host->errorLog()); }
    void resetWitnesses();
    void expectRefused(const char *what, const std::function<bool()> &failed, quint32 code, const QStringList &log);

    template <typename R, typename... A>
    R call(const char *method, A &&...args)
    {
        return m_host->call<R>(m_key, method, std::forward<A>(args)...);
    }
    // eccExportSessionKey with its out-argument; the key handle into `key` when given.
    QByteArray exportSessionKey(Qt::HANDLE container, const QByteArray &pub, Qt::HANDLE *key = nullptr)
    {
        Qt::HANDLE local = nullptr;
        TWPtr out{"Qt::HANDLE*", key ? key : &local};
        return call<QByteArray>("eccExportSessionKey", container, quint64(SGD_SM4_ECB), pub, out);
    }
    template <typename... A>
    void callVoid(const char *method, A &&...args)
    {
        m_host->callVoid(m_key, method, std::forward<A>(args)...);
    }

    TwDeviceGuard m_guard;
    KdpFixture m_kdp;
    std::unique_ptr<MockControl> m_mock;
    std::unique_ptr<TestHost> m_host;
    QObject *m_key = nullptr;
    Qt::HANDLE m_ecc = nullptr;
    Qt::HANDLE m_rsa = nullptr;
};

// One token with an SM2 container "E1" and an RSA container "R1", logged
// in, both containers open.
bool TestSessionCryptoMock::start(const QString &library)
{
    m_mock = std::make_unique<MockControl>(library);
    if (!m_mock->isLoaded()) {
        QTest::qFail(qPrintable(m_mock->errorString()), __FILE__, __LINE__);
        return false;
    }
    m_mock->reset();
    m_mock->add_device(kDev, "SN0001");
    m_mock->add_app(kDev, kApp);
    m_mock->add_container(kDev, kApp, "E1", CONTAINER_TYPE_ECC);
    m_mock->add_container(kDev, kApp, "R1", CONTAINER_TYPE_RSA);
    if (m_kdp.addPackage(QStringLiteral("mock"), KdpConfig(), library).isEmpty()) {
        QTest::qFail("package not written", __FILE__, __LINE__);
        return false;
    }
    m_host = std::make_unique<TestHost>(m_kdp.root());
    if (!m_host->start()) {
        QTest::qFail(qPrintable(m_host->errorString()), __FILE__, __LINE__);
        return false;
    }
    if (m_host->count() != 1) {
        QTest::qFail("the token is not counted", __FILE__, __LINE__);
        return false;
    }
    return reopen();
}

// Opens the key (reconnecting a closed session) and takes new handles.
bool TestSessionCryptoMock::reopen()
{
    m_key = m_host->open(0);
    if (!m_key) {
        QTest::qFail("open(0) gave no key", __FILE__, __LINE__);
        return false;
    }
    if (!call<bool>("verifyPin", kUserPin, false)) {
        QTest::qFail("verifyPin failed", __FILE__, __LINE__);
        return false;
    }
    m_ecc = call<Qt::HANDLE>("openContainer", QStringLiteral("E1"));
    m_rsa = call<Qt::HANDLE>("openContainer", QStringLiteral("R1"));
    if (!m_ecc || !m_rsa) {
        QTest::qFail("containers do not open", __FILE__, __LINE__);
        return false;
    }
    resetWitnesses();
    return true;
}

QStringList TestSessionCryptoMock::plain(QStringList lines)
{
    static const QRegularExpression location(QStringLiteral("^\\[(\\w+):\\d+\\]"));
    for (QString &l : lines)
        l.replace(location, QStringLiteral("[\\1]"));
    return lines;
}

void TestSessionCryptoMock::resetWitnesses()
{
    m_host->clearLog();
    m_mock->clearCalls();
    m_mock->clear_faults();
    m_host->core().setLastError(kSentinel);
}

// `failed` makes the call and tells whether it returned the operation's
// failure value. The call must record `code`, log exactly `log` and make no
// library call.
void TestSessionCryptoMock::expectRefused(const char *what, const std::function<bool()> &failed, quint32 code,
                                          const QStringList &log)
{
    resetWitnesses();
    QVERIFY2(failed(), what);
    QVERIFY2(m_host->lastError() == code,
             qPrintable(QStringLiteral("%1: last error %2, expected %3")
                            .arg(QLatin1String(what), codeText(m_host->lastError()), codeText(code))));
    QVERIFY2(plainLog() == log, qPrintable(QStringLiteral("%1: log [%2]").arg(QLatin1String(what),
                                                                               plainLog().join(QLatin1String(" | ")))));
    QVERIFY2(m_mock->calls().isEmpty(),
             qPrintable(QStringLiteral("%1: reached the token: %2").arg(QLatin1String(what),
                                                                         m_mock->calls().join(QLatin1String("; ")))));
}

void TestSessionCryptoMock::guardsRefuseWithoutCallingTheToken()
{
    QVERIFY(start());
    const QByteArray some("data");
    const QByteArray none;

    struct Case
    {
        const char *what;
        std::function<bool()> failed;
        quint32 code;
        QStringList log;
    };
    // "[op] start" then the reason, when the guard has words.
    auto guardLog = [](const char *op, const char *reason) {
        QStringList l{line(op, QStringLiteral(" start"))};
        if (reason)
            l << line(op, QString::fromLatin1(reason));
        return l;
    };
    // Key generation fails with an empty array that is not null.
    auto emptyNotNull = [](const QByteArray &b) { return b.isEmpty() && !b.isNull(); };

    const QList<Case> onReadySession = {
        {"epsImportSymmKey, null container",
         [&] { return !call<bool>("epsImportSymmKey", kNull, quint64(1), some, quint64(4), quint64(0)); },
         SAR_INVALIDHANDLEERR, guardLog("epsImportSymmKey", " end. container = null")},
        {"epsWriteESealData, empty data",
         [&] { return !call<bool>("epsWriteESealData", none, quint64(4), quint64(0)); }, SAR_INDATALENERR,
         guardLog("epsWriteESealData", " end. szData invalid")},
        {"genRSAKeyPair, null container",
         [&] { return emptyNotNull(call<QByteArray>("genRSAKeyPair", kNull, quint64(2048))); }, SAR_INVALIDHANDLEERR,
         guardLog("genRSAKeyPair", " end. container = null")},
        {"importRSAKeyPair, null container",
         [&] { return !call<bool>("importRSAKeyPair", kNull, quint64(SGD_SM4_ECB), some, some); },
         SAR_INVALIDHANDLEERR, guardLog("importRSAKeyPair", " end. container = null")},
        {"importRSAKeyPair, empty wrapped key",
         [&] { return !call<bool>("importRSAKeyPair", m_rsa, quint64(SGD_SM4_ECB), none, some); }, SAR_INDATALENERR,
         guardLog("importRSAKeyPair", nullptr)},
        {"importRSAKeyPair, empty private key",
         [&] { return !call<bool>("importRSAKeyPair", m_rsa, quint64(SGD_SM4_ECB), some, none); }, SAR_INDATALENERR,
         guardLog("importRSAKeyPair", nullptr)},
        {"rsaSignData, null container", [&] { return call<QByteArray>("rsaSignData", kNull, some).isEmpty(); },
         SAR_INVALIDHANDLEERR, guardLog("rsaSignData", " end. container = null")},
        // Empty data words itself as a null container, by design.
        {"rsaSignData, empty data", [&] { return call<QByteArray>("rsaSignData", m_rsa, none).isEmpty(); },
         SAR_INDATALENERR, guardLog("rsaSignData", " end. container = null")},
        {"rsaVerify, empty blob", [&] { return !call<bool>("rsaVerify", none, some, some); }, SAR_INDATALENERR,
         guardLog("rsaVerify", " start.parameter invalid")},
        {"rsaVerify, empty data", [&] { return !call<bool>("rsaVerify", some, none, some); }, SAR_INDATALENERR,
         guardLog("rsaVerify", " start.parameter invalid")},
        {"rsaVerify, empty signature", [&] { return !call<bool>("rsaVerify", some, some, none); }, SAR_INDATALENERR,
         guardLog("rsaVerify", " start.parameter invalid")},
        // The one null container that records SAR_INDATALENERR.
        {"exportPublicKey, null container", [&] { return call<QByteArray>("exportPublicKey", kNull, true).isEmpty(); },
         SAR_INDATALENERR, guardLog("exportPublicKey", " end. container = null")},
        {"genECCKeyPair, null container",
         [&] { return emptyNotNull(call<QByteArray>("genECCKeyPair", kNull, quint64(SGD_SM2_1))); },
         SAR_INVALIDHANDLEERR, guardLog("genECCKeyPair", " end. container = null")},
        {"importECCKeyPair, null container", [&] { return !call<bool>("importECCKeyPair", kNull, some); },
         SAR_INVALIDHANDLEERR, guardLog("importECCKeyPair", " end. container = null")},
        {"importECCKeyPair, empty blob", [&] { return !call<bool>("importECCKeyPair", m_ecc, none); },
         SAR_INDATALENERR, guardLog("importECCKeyPair", nullptr)},
        {"eccSignData, null container", [&] { return call<QByteArray>("eccSignData", kNull, some).isEmpty(); },
         SAR_INVALIDHANDLEERR, guardLog("eccSignData", " end. container = null")},
        {"eccSignData, empty data", [&] { return call<QByteArray>("eccSignData", m_ecc, none).isEmpty(); },
         SAR_INDATALENERR, guardLog("eccSignData", nullptr)},
        {"eccVerify, empty blob", [&] { return !call<bool>("eccVerify", none, some, some); }, SAR_INDATALENERR,
         guardLog("eccVerify", " start.parameter invalid")},
        {"eccVerify, empty data", [&] { return !call<bool>("eccVerify", some, none, some); }, SAR_INDATALENERR,
         guardLog("eccVerify", " start.parameter invalid")},
        {"eccVerify, empty signature", [&] { return !call<bool>("eccVerify", some, some, none); }, SAR_INDATALENERR,
         guardLog("eccVerify", " start.parameter invalid")},
        {"eccSimpleSign, null container",
         [&] { return call<QByteArray>("eccSimpleSign", kNull, some, true).isEmpty(); }, SAR_INVALIDHANDLEERR,
         guardLog("eccSimpleSign", " end. container = null")},
        {"eccSimpleVerify, null container",
         [&] { return !call<bool>("eccSimpleVerify", kNull, some, some, true); }, SAR_INVALIDHANDLEERR,
         guardLog("eccSimpleVerify", " end . container is null")},
        {"eccExportSessionKey, null container", [&] { return exportSessionKey(kNull, some).isEmpty(); },
         SAR_INVALIDHANDLEERR,
         {line("eccExportSessionKey", QStringLiteral("start")),
          line("eccExportSessionKey", QStringLiteral(" end. container = null"))}},
        {"eccExportSessionKey, empty public key", [&] { return exportSessionKey(m_ecc, none).isEmpty(); },
         SAR_INVALIDPARAMERR,
         {line("eccExportSessionKey", QStringLiteral("start")), line("eccExportSessionKey", QStringLiteral(" end"))}},
        {"importSessionKey, null container",
         [&] { return !call<Qt::HANDLE>("importSessionKey", kNull, quint64(SGD_SM4_ECB), some, quint64(4)); },
         SAR_INDATALENERR, guardLog("importSessionKey", " end. container = null")},
        {"encryptInit, null key", [&] { return !call<bool>("encryptInit", kNull, some); }, SAR_INVALIDHANDLEERR,
         guardLog("encryptInit", " end . hKey is null")},
        {"encryptInit, empty parameter", [&] { return !call<bool>("encryptInit", kBogus, none); }, SAR_INDATALENERR,
         guardLog("encryptInit", " end. encryptParamData is empty")},
        {"decryptInit, null key", [&] { return !call<bool>("decryptInit", kNull, some); }, SAR_INVALIDHANDLEERR,
         guardLog("decryptInit", " end . hKey is null")},
        {"decryptInit, empty parameter", [&] { return !call<bool>("decryptInit", kBogus, none); }, SAR_INDATALENERR,
         guardLog("decryptInit", " end. decryptParamData is empty")},
        // The key is checked before the data.
        {"encrypt, null key and empty data",
         [&] { return call<QByteArray>("encrypt", kNull, none, quint64(0)).isEmpty(); }, SAR_INVALIDHANDLEERR,
         guardLog("encrypt", " end . hKey is null")},
        {"encrypt, empty data", [&] { return call<QByteArray>("encrypt", kBogus, none, quint64(4)).isEmpty(); },
         SAR_INDATALENERR, guardLog("encrypt", " end. data is empty")},
        {"decrypt, null key", [&] { return call<QByteArray>("decrypt", kNull, some, quint64(4)).isEmpty(); },
         SAR_INVALIDHANDLEERR, guardLog("decrypt", " end . hKey is null")},
        {"decrypt, empty data", [&] { return call<QByteArray>("decrypt", kBogus, none, quint64(4)).isEmpty(); },
         SAR_INDATALENERR, guardLog("decrypt", " end. data is empty")},
        {"digest, null hash and empty data", [&] { return call<QByteArray>("digest", kNull, none).isEmpty(); },
         SAR_USER_NOT_LOGGED_IN, guardLog("digest", " end . hash is null")},
        {"digest, empty data", [&] { return call<QByteArray>("digest", kBogus, none).isEmpty(); }, SAR_INDATALENERR,
         guardLog("digest", " end.parameter invalidate")},
        {"digestV1, null hash", [&] { return call<QByteArray>("digestV1", kNull, some).isEmpty(); },
         SAR_USER_NOT_LOGGED_IN,
         {line("digestV1", QStringLiteral(" start")), line("digest", QStringLiteral(" start")),
          line("digest", QStringLiteral(" end . hash is null")), line("digestV1", QStringLiteral(" end"))}},
        // Operations that never reach the token and leave the last error alone.
        {"closeHandle, null handle",
         [&] {
             callVoid("closeHandle", kNull);
             return true;
         },
         kSentinel,
         {line("closeHandle", QStringLiteral(" start")),
          line("closeHandle", QStringLiteral(" end. keyDriver = null or handle = null"))}},
        {"digestUpdate", [&] { return !call<bool>("digestUpdate", kBogus, some); }, kSentinel,
         guardLog("digestUpdate", " end")},
        {"digestFinal", [&] { return call<QByteArray>("digestFinal", kBogus).isEmpty(); }, kSentinel,
         guardLog("digestFinal", " end")},
        {"rsaSimpleSign", [&] { return call<QByteArray>("rsaSimpleSign", m_rsa, some, quint64(SGD_SHA256)).isEmpty(); },
         kSentinel, guardLog("rsaSimpleSign", " end")},
    };
    for (const Case &c : onReadySession) {
        expectRefused(c.what, c.failed, c.code, c.log);
        if (QTest::currentTestFailed())
            return;
    }

    // A removed token closes the session; from then on the session guard
    // stands first, ahead of any argument.
    m_mock->fail("SKF_ExportPublicKey", kRemoved, 1);
    QVERIFY(call<QByteArray>("exportPublicKey", m_ecc, true).isEmpty());
    QCOMPARE(m_mock->count("SKF_DisConnectDev"), 1);

    const char *noApp = " end . app is null";
    const char *noDev = " end . dev is null";
    const QList<Case> withoutSession = {
        {"epsImportSymmKey", [&] { return !call<bool>("epsImportSymmKey", kNull, quint64(1), none, quint64(4), quint64(0)); },
         SAR_USER_NOT_LOGGED_IN, guardLog("epsImportSymmKey", noApp)},
        {"epsReadESealData", [&] { return call<QByteArray>("epsReadESealData", quint64(1), quint64(0), quint64(0)).isEmpty(); },
         SAR_USER_NOT_LOGGED_IN, guardLog("epsReadESealData", noApp)},
        {"epsWriteESealData", [&] { return !call<bool>("epsWriteESealData", none, quint64(4), quint64(0)); },
         SAR_USER_NOT_LOGGED_IN, guardLog("epsWriteESealData", noApp)},
        {"genRSAKeyPair", [&] { return emptyNotNull(call<QByteArray>("genRSAKeyPair", kNull, quint64(2048))); },
         SAR_USER_NOT_LOGGED_IN, guardLog("genRSAKeyPair", noApp)},
        {"importRSAKeyPair", [&] { return !call<bool>("importRSAKeyPair", kNull, quint64(SGD_SM4_ECB), none, none); },
         SAR_USER_NOT_LOGGED_IN, guardLog("importRSAKeyPair", noApp)},
        {"rsaSignData", [&] { return call<QByteArray>("rsaSignData", kNull, none).isEmpty(); }, SAR_USER_NOT_LOGGED_IN,
         guardLog("rsaSignData", noApp)},
        {"rsaVerify", [&] { return !call<bool>("rsaVerify", none, none, none); }, SAR_USER_NOT_LOGGED_IN,
         guardLog("rsaVerify", noDev)},
        {"exportPublicKey", [&] { return call<QByteArray>("exportPublicKey", kNull, false).isEmpty(); },
         SAR_USER_NOT_LOGGED_IN, guardLog("exportPublicKey", noDev)},
        {"genECCKeyPair", [&] { return emptyNotNull(call<QByteArray>("genECCKeyPair", m_ecc, quint64(SGD_SM2_1))); },
         SAR_USER_NOT_LOGGED_IN, guardLog("genECCKeyPair", noApp)},
        {"importECCKeyPair", [&] { return !call<bool>("importECCKeyPair", kNull, none); }, SAR_USER_NOT_LOGGED_IN,
         guardLog("importECCKeyPair", noApp)},
        {"eccSignData", [&] { return call<QByteArray>("eccSignData", m_ecc, some).isEmpty(); }, SAR_USER_NOT_LOGGED_IN,
         guardLog("eccSignData", noApp)},
        {"eccVerify", [&] { return !call<bool>("eccVerify", none, none, none); }, SAR_USER_NOT_LOGGED_IN,
         guardLog("eccVerify", noDev)},
        {"eccSimpleSign", [&] { return call<QByteArray>("eccSimpleSign", m_ecc, some, true).isEmpty(); },
         SAR_USER_NOT_LOGGED_IN, guardLog("eccSimpleSign", noApp)},
        {"eccSimpleVerify", [&] { return !call<bool>("eccSimpleVerify", kNull, some, some, true); },
         SAR_USER_NOT_LOGGED_IN, guardLog("eccSimpleVerify", noDev)},
        {"eccExportSessionKey", [&] { return exportSessionKey(kNull, none).isEmpty(); }, SAR_USER_NOT_LOGGED_IN,
         {line("eccExportSessionKey", QStringLiteral("start")), line("eccExportSessionKey", QString::fromLatin1(noDev))}},
        {"importSessionKey",
         [&] { return !call<Qt::HANDLE>("importSessionKey", kNull, quint64(SGD_SM4_ECB), none, quint64(0)); },
         SAR_USER_NOT_LOGGED_IN, guardLog("importSessionKey", noDev)},
        {"digestInit", [&] { return !call<Qt::HANDLE>("digestInit", quint64(SGD_SM3), none, QString()); },
         SAR_USER_NOT_LOGGED_IN, guardLog("digestInit", noDev)},
    };
    for (const Case &c : withoutSession) {
        expectRefused(c.what, c.failed, c.code, c.log);
        if (QTest::currentTestFailed())
            return;
    }
}

void TestSessionCryptoMock::twoCallFormsTakeTheWrittenBackLength()
{
    QVERIFY(start());

    // Public keys: size, then fill; the token's own blob comes back whole.
    QCOMPARE(call<QByteArray>("exportPublicKey", m_ecc, true).size(), SKF_ECCPUBLICKEYBLOB_SIZE);
    QCOMPARE(m_mock->calls(), QStringList({"SKF_ExportPublicKey sign=1 buf=null size=0",
                                           "SKF_ExportPublicKey sign=1 buf=set size=132"}));
    resetWitnesses();
    const QByteArray rsaPub = call<QByteArray>("exportPublicKey", m_rsa, false);
    QCOMPARE(rsaPub.size(), SKF_RSAPUBLICKEYBLOB_SIZE);
    QCOMPARE(m_mock->calls(), QStringList({"SKF_ExportPublicKey sign=0 buf=null size=0",
                                           "SKF_ExportPublicKey sign=0 buf=set size=268"}));

    // A token that over-reports the size gets a bigger buffer; the result
    // is the length it writes back.
    const QByteArray digestInfo(35, '\x5A');
    const QByteArray signPub = call<QByteArray>("exportPublicKey", m_rsa, true);
    resetWitnesses();
    m_mock->size_delta("SKF_RSASignData", 5);
    const QByteArray signature = call<QByteArray>("rsaSignData", m_rsa, digestInfo);
    QCOMPARE(signature.size(), 256);
    QCOMPARE(m_mock->calls(), QStringList({"SKF_RSASignData len=35 buf=null size=0",
                                           "SKF_RSASignData len=35 buf=set size=261"}));
    QVERIFY(call<bool>("rsaVerify", signPub, digestInfo, signature));
    QVERIFY(plainLog().contains(line("rsaVerify", QStringLiteral(" dataLen: 35"))));
    QVERIFY(plainLog().contains(line("rsaVerify", QStringLiteral(" signatureLen: 256"))));
    // A signature that doesn't match is a false with the token's code; the
    // session stays open.
    QByteArray forged = signature;
    forged[100] = char(forged.at(100) ^ 1);
    resetWitnesses();
    QVERIFY(!call<bool>("rsaVerify", signPub, digestInfo, forged));
    QCOMPARE(m_host->lastError(), uint(SAR_RSADECERR));
    QCOMPARE(m_mock->count("SKF_DisConnectDev"), 0);

    // Ciphers: the array's length goes to the token, dataLen plays no part.
    const QByteArray key("0123456789abcdef");
    Qt::HANDLE hKey = call<Qt::HANDLE>("importSessionKey", m_ecc, quint64(SGD_SM4_ECB), key, quint64(16));
    QVERIFY(hKey);
    const QByteArray plain("twenty bytes of text");
    QVERIFY(call<bool>("encryptInit", hKey, cipherParam(QByteArray(), SKF_NO_PADDING, 0)));
    resetWitnesses();
    const QByteArray cipher = call<QByteArray>("encrypt", hKey, plain, quint64(0));
    QCOMPARE(cipher.size(), plain.size());
    QVERIFY(cipher != plain);
    QCOMPARE(m_mock->calls(), QStringList({"SKF_Encrypt len=20 buf=null size=0", "SKF_Encrypt len=20 buf=set size=20"}));
    QStringList expected = {line("encrypt", QStringLiteral(" start")), line("encrypt", QStringLiteral(" SKF_Encrypt A")),
                            line("encrypt", QStringLiteral(" ulEncryptedLen: 20")),
                            line("encrypt", QStringLiteral(" SKF_Encrypt B")), line("encrypt", QStringLiteral(" end"))};
    QCOMPARE(plainLog(), expected);

    QVERIFY(call<bool>("decryptInit", hKey, cipherParam(QByteArray(), SKF_NO_PADDING, 0)));
    resetWitnesses();
    QCOMPARE(call<QByteArray>("decrypt", hKey, cipher, quint64(12345)), plain);
    expected = QStringList{line("decrypt", QStringLiteral(" start")), line("decrypt", QStringLiteral(" SKF_Decrypt A")),
                           line("decrypt", QStringLiteral(" ulDecryptedLen: 20")),
                           line("decrypt", QStringLiteral(" SKF_Decrypt B")), line("decrypt", QStringLiteral(" end"))};
    QCOMPARE(plainLog(), expected);

    // Failures of the second call, and their words: decrypt's are its own.
    const QString tooSmall = QString::number(SAR_BUFFER_TOO_SMALL);
    QVERIFY(call<bool>("encryptInit", hKey, cipherParam(QByteArray(), SKF_NO_PADDING, 0)));
    resetWitnesses();
    m_mock->size_delta("SKF_Encrypt", -1);
    QVERIFY(call<QByteArray>("encrypt", hKey, plain, quint64(20)).isEmpty());
    QCOMPARE(m_host->lastError(), uint(SAR_BUFFER_TOO_SMALL));
    QCOMPARE(plainErrors(), QStringList({line("encrypt", QStringLiteral(" SKF_Encrypt failded.ret = %1.").arg(tooSmall))}));

    QVERIFY(call<bool>("decryptInit", hKey, cipherParam(QByteArray(), SKF_NO_PADDING, 0)));
    resetWitnesses();
    m_mock->size_delta("SKF_Decrypt", -1);
    QVERIFY(call<QByteArray>("decrypt", hKey, cipher, quint64(20)).isEmpty());
    QCOMPARE(m_mock->count("SKF_Decrypt"), 2);
    QCOMPARE(plainErrors(), QStringList({line("decrypt", QStringLiteral(" SKF_Digest failded.ret = %1.").arg(tooSmall))}));
    resetWitnesses();
    m_mock->fail("SKF_Decrypt", SAR_FAIL, 1);
    QVERIFY(call<QByteArray>("decrypt", hKey, cipher, quint64(20)).isEmpty());
    QCOMPARE(m_mock->count("SKF_Decrypt"), 1);
    QCOMPARE(plainErrors(), QStringList({line("decrypt", QStringLiteral(" SKF_Encrypt failded.ret = %1.").arg(SAR_FAIL))}));
    // None of these closes the key or the session.
    QCOMPARE(m_mock->count("SKF_CloseHandle"), 0);
    QCOMPARE(m_mock->count("SKF_DisConnectDev"), 0);

    // closeHandle gives the key back; a handle the token refuses is silent.
    resetWitnesses();
    callVoid("closeHandle", hKey);
    QCOMPARE(m_mock->calls(), QStringList({"SKF_CloseHandle handle=set"}));
    callVoid("closeHandle", hKey);
    QCOMPARE(m_mock->count("SKF_CloseHandle"), 2);
    QCOMPARE(m_host->lastError(), kSentinel);
    QVERIFY(m_host->errorLog().isEmpty());
}

void TestSessionCryptoMock::digestIsSizedBySessionAlgorithm()
{
    QVERIFY(start());
    const QByteArray data("abc");

    struct Row
    {
        quint64 alg;
        int delta;
        int size;
    };
    const QList<Row> rows = {{SGD_SM3, 0, 32},   {SGD_SM3, 8, 32},  {SGD_SM3, -8, 32},
                             {SGD_SHA1, 0, 20},  {SGD_SHA1, 4, 20}, {SGD_SHA256, -8, 32}};
    for (const Row &row : rows) {
        const QByteArray what = QByteArray("alg ") + QByteArray::number(row.alg) + " delta " +
                                QByteArray::number(row.delta);
        resetWitnesses();
        m_mock->size_delta("SKF_Digest", row.delta);
        Qt::HANDLE hash = call<Qt::HANDLE>("digestInit", row.alg, QByteArray(), QString());
        QVERIFY2(hash, what.constData());
        const QByteArray value = call<QByteArray>("digest", hash, data);
        QVERIFY2(value.size() == row.size, what.constData());
        // The second call is told the algorithm's size, whatever the token reported.
        const QStringList calls = m_mock->calls();
        QVERIFY2(calls.size() == 3, what.constData());
        QCOMPARE(calls.at(1), QStringLiteral("SKF_Digest len=3 buf=null size=0"));
        QCOMPARE(calls.at(2), QStringLiteral("SKF_Digest len=3 buf=set size=%1").arg(row.size));
        // digestV1 is the same operation under another name.
        QCOMPARE(call<QByteArray>("digestV1", hash, data), value);
        callVoid("closeHandle", hash);
    }
    m_mock->size_delta("SKF_Digest", 0);

    // An empty key and id: a null key pointer and a valid empty id.
    resetWitnesses();
    Qt::HANDLE plainHash = call<Qt::HANDLE>("digestInit", quint64(SGD_SM3), QByteArray(), QString());
    QCOMPARE(m_mock->calls(), QStringList({"SKF_DigestInit alg=1 pubkey=null idlen=0 id="}));
    QVERIFY(plainLog().contains(line("digestInit", QStringLiteral(" m_AlgID: 1"))));
    // With key and id, the token hashes Z first: another value.
    const QByteArray pub = call<QByteArray>("exportPublicKey", m_ecc, true);
    resetWitnesses();
    Qt::HANDLE zHash = call<Qt::HANDLE>("digestInit", quint64(SGD_SM3), pub, kDefaultId);
    QCOMPARE(m_mock->calls(), QStringList({"SKF_DigestInit alg=1 pubkey=set idlen=16 id=1234567812345678"}));
    QVERIFY(call<QByteArray>("digest", zHash, data) != call<QByteArray>("digest", plainHash, data));

    // The size belongs to the session, not to the hash object: the later
    // digestInit sizes both. A SHA-1 value read as SM3 is 20 bytes and 12 zeros.
    Qt::HANDLE sha1 = call<Qt::HANDLE>("digestInit", quint64(SGD_SHA1), QByteArray(), QString());
    const QByteArray sha1Value = call<QByteArray>("digest", sha1, data);
    QCOMPARE(sha1Value.size(), 20);
    QVERIFY(call<Qt::HANDLE>("digestInit", quint64(SGD_SM3), QByteArray(), QString()));
    QCOMPARE(call<QByteArray>("digest", sha1, data), sha1Value + QByteArray(12, '\0'));
    // A failed digestInit leaves the algorithm as it was; the identifier
    // went to the token unchanged.
    resetWitnesses();
    QVERIFY(!call<Qt::HANDLE>("digestInit", quint64(3), QByteArray(), QString()));
    QCOMPARE(m_host->lastError(), uint(SAR_NOTSUPPORTYETERR));
    QCOMPARE(m_mock->calls().first(), QStringLiteral("SKF_DigestInit alg=3 pubkey=null idlen=0 id="));
    QCOMPARE(call<QByteArray>("digest", sha1, data).size(), 32);

    // digestRsaByPubkey hashes on the token and hands out nothing, leaving
    // the last error and the session's algorithm alone.
    resetWitnesses();
    QVERIFY(call<QByteArray>("digestRsaByPubkey", data).isEmpty());
    QCOMPARE(m_mock->calls(), QStringList({"SKF_DigestInit alg=2 pubkey=null idlen=0 id=null",
                                           "SKF_Digest len=3 buf=set size=256"}));
    QCOMPARE(m_host->lastError(), kSentinel);
    QCOMPARE(call<QByteArray>("digest", sha1, data).size(), 32);
}

void TestSessionCryptoMock::digestWithoutInitTakesTokenLength()
{
    QVERIFY(start());
    // A hash object from elsewhere, on a session that has made no
    // digestInit: the token's report is the size.
    void *lib = dlopen(MOCKSKF_PATH, RTLD_NOW | RTLD_NOLOAD);
    QVERIFY(lib);
    auto connect = reinterpret_cast<decltype(&SKF_ConnectDev)>(dlsym(lib, "SKF_ConnectDev"));
    auto digestInit = reinterpret_cast<decltype(&SKF_DigestInit)>(dlsym(lib, "SKF_DigestInit"));
    QVERIFY(connect && digestInit);
    char name[] = "dev1";
    DEVHANDLE dev = nullptr;
    QCOMPARE(connect(name, &dev), ULONG(SAR_OK));
    HANDLE foreign = nullptr;
    QCOMPARE(digestInit(dev, SGD_SHA1, nullptr, nullptr, 0, &foreign), ULONG(SAR_OK));

    resetWitnesses();
    m_mock->size_delta("SKF_Digest", 8);
    const QByteArray value = call<QByteArray>("digest", foreign, QByteArray("abc"));
    QCOMPARE(value.size(), 28);
    QCOMPARE(m_mock->calls().last(), QStringLiteral("SKF_Digest len=3 buf=set size=28"));
    QCOMPARE(value.right(8), QByteArray(8, '\0'));
}

void TestSessionCryptoMock::eccSimpleSignPacksTheCompactForm()
{
    QVERIFY(start());
    const QByteArray message("hello");

    const QByteArray compact = call<QByteArray>("eccSimpleSign", m_ecc, message, true);
    QCOMPARE(compact.size(), 64);
    QCOMPARE(m_mock->calls(), QStringList({"SKF_ExportPublicKey sign=1 buf=null size=0",
                                           "SKF_ExportPublicKey sign=1 buf=set size=132",
                                           "SKF_DigestInit alg=1 pubkey=set idlen=16 id=1234567812345678",
                                           "SKF_Digest len=5 buf=null size=0", "SKF_Digest len=5 buf=set size=32",
                                           "SKF_ECCSignData len=32"}));
    // The same steps by hand: r and s are taken from bytes 32-63 and 96-127.
    const QByteArray pub = call<QByteArray>("exportPublicKey", m_ecc, true);
    Qt::HANDLE hash = call<Qt::HANDLE>("digestInit", quint64(SGD_SM3), pub, kDefaultId);
    const QByteArray blob = call<QByteArray>("eccSignData", m_ecc, call<QByteArray>("digest", hash, message));
    QCOMPARE(blob.size(), SKF_ECCSIGNATUREBLOB_SIZE);
    QCOMPARE(compact, blob.mid(32, 32) + blob.mid(96, 32));
    QVERIFY(compact.startsWith("mock-r::"));
    QVERIFY(compact.mid(32).startsWith("mock-s::"));

    resetWitnesses();
    QVERIFY(call<bool>("eccSimpleVerify", m_ecc, message, compact, true));
    QCOMPARE(m_mock->calls().last(), QStringLiteral("SKF_ECCVerify len=32"));
    QVERIFY(!call<bool>("eccSimpleVerify", m_ecc, QByteArray("hellO"), compact, true));
    QByteArray forged = compact;
    forged[40] = char(forged.at(40) ^ 1);
    QVERIFY(!call<bool>("eccSimpleVerify", m_ecc, message, forged, true));

    // Without the key: no export, a null key and the id all the same.
    resetWitnesses();
    QCOMPARE(call<QByteArray>("eccSimpleSign", m_ecc, message, false).size(), 64);
    QCOMPARE(m_mock->count("SKF_ExportPublicKey"), 0);
    QCOMPARE(m_mock->calls().first(), QStringLiteral("SKF_DigestInit alg=1 pubkey=null idlen=16 id=1234567812345678"));
    // Verifying without the key hashes on the token and then fails on the
    // empty key, with no verification call.
    resetWitnesses();
    QVERIFY(!call<bool>("eccSimpleVerify", m_ecc, message, compact, false));
    QCOMPARE(m_host->lastError(), uint(SAR_INDATALENERR));
    QCOMPARE(m_mock->count("SKF_Digest"), 2);
    QCOMPARE(m_mock->count("SKF_ECCVerify"), 0);

    // A refused signature leaves 32 zero bytes and the token's code.
    resetWitnesses();
    m_mock->fail("SKF_ECCSignData", SAR_USER_NOT_LOGGED_IN, 1);
    QCOMPARE(call<QByteArray>("eccSimpleSign", m_ecc, message, true), QByteArray(32, '\0'));
    QCOMPARE(m_host->lastError(), uint(SAR_USER_NOT_LOGGED_IN));
    resetWitnesses();
    m_mock->fail("SKF_ECCSignData", SAR_KEYNOTFOUNTERR, 1);
    QCOMPARE(call<QByteArray>("eccSimpleSign", m_ecc, message, true), QByteArray(32, '\0'));
    QCOMPARE(m_host->lastError(), uint(SAR_KEYNOTFOUNTERR));

    // Each failed step ends the operation with its own words (they differ
    // between signing and verifying) and the failed step's code.
    struct Step
    {
        const char *fault;
        quint32 code;
        const char *signWords;
        const char *verifyWords;
    };
    const QList<Step> steps = {
        {"SKF_ExportPublicKey", SAR_KEYNOTFOUNTERR, "end.exportPublicKey failed.", "end.exportPublicKey failed."},
        {"SKF_DigestInit", SAR_HASHOBJERR, "end. digestInit failed.", "end.digestInit failed."},
        {"SKF_Digest", SAR_HASHERR, "end. digest failed.", "end.digest failed."},
    };
    for (const Step &step : steps) {
        resetWitnesses();
        m_mock->fail(step.fault, step.code, 1);
        QVERIFY2(call<QByteArray>("eccSimpleSign", m_ecc, message, true).isEmpty(), step.fault);
        QVERIFY2(m_host->lastError() == step.code, step.fault);
        QVERIFY2(plainLog().contains(line("eccSimpleSign", QString::fromLatin1(step.signWords))), step.fault);
        QVERIFY2(m_mock->count("SKF_ECCSignData") == 0, step.fault);

        resetWitnesses();
        m_mock->fail(step.fault, step.code, 1);
        QVERIFY2(!call<bool>("eccSimpleVerify", m_ecc, message, compact, true), step.fault);
        QVERIFY2(m_host->lastError() == step.code, step.fault);
        QVERIFY2(plainLog().contains(line("eccSimpleVerify", QString::fromLatin1(step.verifyWords))), step.fault);
        QVERIFY2(m_mock->count("SKF_ECCVerify") == 0, step.fault);
    }
    // Empty data fails in digest with its code.
    resetWitnesses();
    QVERIFY(call<QByteArray>("eccSimpleSign", m_ecc, QByteArray(), true).isEmpty());
    QCOMPARE(m_host->lastError(), uint(SAR_INDATALENERR));
    QVERIFY(plainLog().contains(line("eccSimpleSign", QStringLiteral("end. digest failed."))));
}

void TestSessionCryptoMock::eccExportSessionKeyKeepsTheSession()
{
    QVERIFY(start());
    const QByteArray encPub = call<QByteArray>("exportPublicKey", m_ecc, false);
    QCOMPARE(encPub.size(), SKF_ECCPUBLICKEYBLOB_SIZE);

    resetWitnesses();
    Qt::HANDLE sessionKey = nullptr;
    const QByteArray blob = exportSessionKey(m_ecc, encPub, &sessionKey);
    // All 197 bytes, whatever CipherLen says: 16 cipher bytes here, the rest zero.
    const int cipherAt = int(offsetof(ECCCIPHERBLOB, Cipher));
    QCOMPARE(blob.size(), SKF_ECCCIPHERBLOB_BUFFER_SIZE);
    ULONG cipherLen = 0;
    std::memcpy(&cipherLen, blob.constData() + offsetof(ECCCIPHERBLOB, CipherLen), sizeof(cipherLen));
    QCOMPARE(cipherLen, ULONG(16));
    QCOMPARE(blob.mid(cipherAt + 16), QByteArray(SKF_ECCCIPHERBLOB_BUFFER_SIZE - cipherAt - 16, '\0'));
    QVERIFY(sessionKey);
    QCOMPARE(m_mock->calls(), QStringList({"SKF_ECCExportSessionKey alg=1025 pubkey=set"}));
    QCOMPARE(plainLog().first(), line("eccExportSessionKey", QStringLiteral("start")));
    // The buffer is shown before the call, still zero.
    QCOMPARE(plainErrors(), QStringList({line("eccExportSessionKey", QStringLiteral(" pstEccCipherBlob = ") +
                                                                       QString::fromLatin1(QByteArray(197, '\0').toBase64()))}));

    // The handle that came back is the key inside this blob (the test
    // token "wraps" it as it is).
    QVERIFY(call<bool>("encryptInit", sessionKey, cipherParam(QByteArray(), SKF_NO_PADDING, 0)));
    QCOMPARE(call<QByteArray>("encrypt", sessionKey, QByteArray(16, '\0'), quint64(16)), blob.mid(cipherAt, 16));
    callVoid("closeHandle", sessionKey);

    // A removed token fails the export but never closes the session here.
    resetWitnesses();
    m_mock->fail("SKF_ECCExportSessionKey", kRemoved, 1);
    QVERIFY(exportSessionKey(m_ecc, encPub).isEmpty());
    QCOMPARE(m_host->lastError(), uint(kRemoved));
    QCOMPARE(plainErrors().last(),
             line("eccExportSessionKey", QStringLiteral(" pSKF_ECCExportSessionKey failed.ret = %1").arg(kRemoved)));
    QCOMPARE(m_mock->count("SKF_CloseApplication"), 0);
    QCOMPARE(m_mock->count("SKF_DisConnectDev"), 0);
    QCOMPARE(call<QByteArray>("exportPublicKey", m_ecc, true).size(), SKF_ECCPUBLICKEYBLOB_SIZE);
}

void TestSessionCryptoMock::removedDeviceClosesTheSession()
{
    QVERIFY(start());
    const QByteArray some("data");
    const QByteArray param = cipherParam(QByteArray(), SKF_NO_PADDING, 0);

    struct Case
    {
        const char *fault;
        const char *op;
        const char *words;
        std::function<bool()> failed;
    };
    const QList<Case> cases = {
        {"SKF_GenRSAKeyPair", "genRSAKeyPair", " SKF_GenRSAKeyPair failed.ret = %d",
         [&] { return call<QByteArray>("genRSAKeyPair", m_rsa, quint64(2048)).isEmpty(); }},
        {"SKF_ImportRSAKeyPair", "importRSAKeyPair", " SKF_ImportRSAKeyPair failed.ret = %d",
         [&] { return !call<bool>("importRSAKeyPair", m_rsa, quint64(SGD_SM4_ECB), some, some); }},
        {"SKF_RSASignData", "rsaSignData", " pSKF_RSASignData failed.ret = %d",
         [&] { return call<QByteArray>("rsaSignData", m_rsa, some).isEmpty(); }},
        {"SKF_RSAVerify", "rsaVerify", " pSKF_RSAVerify failed.ret = %d",
         [&] { return !call<bool>("rsaVerify", QByteArray(268, '\1'), some, some); }},
        {"SKF_ExportPublicKey", "exportPublicKey", " SKF_ExportPublicKey failed.ret = %d",
         [&] { return call<QByteArray>("exportPublicKey", m_ecc, true).isEmpty(); }},
        {"SKF_GenECCKeyPair", "genECCKeyPair", " SKF_GenECCKeyPair failed.ret = %d",
         [&] { return call<QByteArray>("genECCKeyPair", m_ecc, quint64(SGD_SM2_1)).isEmpty(); }},
        {"SKF_ImportECCKeyPair", "importECCKeyPair", " SKF_ImportECCKeyPair failed.ret = %d",
         [&] { return !call<bool>("importECCKeyPair", m_ecc, some); }},
        {"SKF_ECCSignData", "eccSignData", " SKF_ECCSignData failed.ret = %d",
         [&] { return call<QByteArray>("eccSignData", m_ecc, some).isEmpty(); }},
        {"SKF_ECCVerify", "eccVerify", " SKF_ECCVerify failed.ret = %d",
         [&] { return !call<bool>("eccVerify", some, some, some); }},
        {"SKF_ImportSessionKey", "importSessionKey", " SKF_ImportSessionKey failded.ret = %d.",
         [&] { return !call<Qt::HANDLE>("importSessionKey", m_ecc, quint64(SGD_SM4_ECB), some, quint64(4)); }},
        {"SKF_EncryptInit", "encryptInit", " SKF_EncryptInit failded.ret = %d.",
         [&] { return !call<bool>("encryptInit", kBogus, param); }},
        {"SKF_Encrypt", "encrypt", " SKF_Encrypt failded.ret = %d.",
         [&] { return call<QByteArray>("encrypt", kBogus, some, quint64(4)).isEmpty(); }},
        {"SKF_DecryptInit", "decryptInit", " SKF_DecryptInit failded.ret = %d.",
         [&] { return !call<bool>("decryptInit", kBogus, param); }},
        {"SKF_Decrypt", "decrypt", " SKF_Encrypt failded.ret = %d.",
         [&] { return call<QByteArray>("decrypt", kBogus, some, quint64(4)).isEmpty(); }},
        {"SKF_DigestInit", "digestInit", " SKF_DigestInit failded.ret = %d.",
         [&] { return !call<Qt::HANDLE>("digestInit", quint64(SGD_SM3), QByteArray(), QString()); }},
        {"SKF_Digest", "digest", " SKF_Digest failded.ret = %d.",
         [&] { return call<QByteArray>("digest", kBogus, some).isEmpty(); }},
        {"SKF_DigestInit", "digestRsaByPubkey", " SKF_DigestInit failded.ret = %d.",
         [&] { return call<QByteArray>("digestRsaByPubkey", some).isEmpty(); }},
        {"SKF_Digest", "digestRsaByPubkey", " SKF_Digest failded.ret = %d.",
         [&] { return call<QByteArray>("digestRsaByPubkey", some).isEmpty(); }},
        {"EPS_ImportSymmKey", "epsImportSymmKey", " ESP_ImportSymmKey failed.ret = %d",
         [&] { return !call<bool>("epsImportSymmKey", m_ecc, quint64(1), some, quint64(4), quint64(0)); }},
        {"EPS_ReadESealData", "epsReadESealData", " SKF_GetFileInfo failed,ret = %d",
         [&] { return call<QByteArray>("epsReadESealData", quint64(1), quint64(0), quint64(0)).isEmpty(); }},
        {"EPS_WriteESealData", "epsWriteESealData", " ESP_WriteESealData failed,ret = %d",
         [&] { return !call<bool>("epsWriteESealData", some, quint64(4), quint64(0)); }},
    };
    for (const Case &c : cases) {
        const QByteArray what = QByteArray(c.op) + " / " + c.fault;
        QVERIFY2(reopen(), what.constData());
        m_mock->fail(c.fault, kRemoved, 1);
        QVERIFY2(c.failed(), what.constData());
        QVERIFY2(m_host->lastError() == kRemoved, what.constData());
        const QString words = line(c.op, QString::asprintf(c.words, int(kRemoved)));
        QVERIFY2(plainErrors() == QStringList{words},
                 qPrintable(QString::fromLatin1(what) + QStringLiteral(": ") + plainErrors().join(QLatin1String(" | "))));
        // The faulted call was the last one made to the token, before the close.
        const QStringList calls = m_mock->calls();
        QVERIFY2(m_mock->count(c.fault) == 1, what.constData());
        QVERIFY2(calls.size() >= 3 && calls.at(calls.size() - 3).startsWith(QLatin1String(c.fault)) &&
                     calls.at(calls.size() - 2).startsWith(QLatin1String("SKF_CloseApplication")) &&
                     calls.last().startsWith(QLatin1String("SKF_DisConnectDev")),
                 qPrintable(QString::fromLatin1(what) + QStringLiteral(": ") + calls.join(QLatin1String("; "))));
        // Closed: the next operation is refused without a word to the token.
        expectRefused(what.constData(), [&] { return call<QByteArray>("exportPublicKey", m_ecc, true).isEmpty(); },
                      SAR_USER_NOT_LOGGED_IN,
                      {line("exportPublicKey", QStringLiteral(" start")),
                       line("exportPublicKey", QStringLiteral(" end . dev is null"))});
        if (QTest::currentTestFailed())
            return;
    }
}

void TestSessionCryptoMock::sealDataAndShorterForms()
{
    QVERIFY(start());

    // No seal yet: empty, and no failure.
    QVERIFY(call<QByteArray>("epsReadESealData", quint64(1), quint64(2), quint64(0)).isEmpty());
    QCOMPARE(m_host->lastError(), kSentinel);
    QCOMPARE(m_mock->calls(), QStringList({"EPS_ReadESealData index=1 alg=2 buf=null size=0 flags=0"}));
    QVERIFY(plainLog().contains(line("epsReadESealData", QStringLiteral("ulOutSize: 0"))));
    QVERIFY(plainLog().contains(line("epsReadESealData", QStringLiteral(" end . ulOutSize is 0"))));

    QByteArray seal;
    for (int i = 0; i < 300; ++i)
        seal += char(i * 7);
    resetWitnesses();
    QVERIFY(call<bool>("epsWriteESealData", seal, quint64(seal.size()), quint64(7)));
    QCOMPARE(m_mock->calls(), QStringList({"EPS_WriteESealData size=300 flags=7"}));
    QCOMPARE(m_mock->sealData(kDev, kApp), seal);

    resetWitnesses();
    QCOMPARE(call<QByteArray>("epsReadESealData", quint64(1), quint64(2), quint64(9)), seal);
    QCOMPARE(m_mock->calls(), QStringList({"EPS_ReadESealData index=1 alg=2 buf=null size=0 flags=9",
                                           "EPS_ReadESealData index=1 alg=2 buf=set size=300 flags=9"}));
    QCOMPARE(m_host->lastError(), kSentinel);

    // The shorter forms take flags 0.
    resetWitnesses();
    QCOMPARE(call<QByteArray>("epsReadESealData", quint64(4), quint64(5)), seal);
    QVERIFY(m_mock->calls().last().endsWith(QLatin1String(" flags=0")));
    QVERIFY(call<bool>("epsWriteESealData", QByteArray("short form"), quint64(10)));
    QCOMPARE(m_mock->calls().last(), QStringLiteral("EPS_WriteESealData size=10 flags=0"));
    QVERIFY(call<bool>("epsImportSymmKey", m_ecc, quint64(3), QByteArray(16, 'k'), quint64(16)));
    QCOMPARE(m_mock->calls().last(), QStringLiteral("EPS_ImportSymmKey index=3 len=16 flags=0"));

    // The declared size is what the token gets: a shorter one cuts, a
    // longer one comes zero-padded, never read past the array.
    QVERIFY(call<bool>("epsWriteESealData", QByteArray("abcdef"), quint64(3), quint64(0)));
    QCOMPARE(m_mock->sealData(kDev, kApp), QByteArray("abc"));
    QVERIFY(call<bool>("epsWriteESealData", QByteArray("abc"), quint64(8), quint64(0)));
    QCOMPARE(m_mock->sealData(kDev, kApp), QByteArray("abc") + QByteArray(5, '\0'));
    resetWitnesses();
    QVERIFY(call<bool>("epsImportSymmKey", m_ecc, quint64(3), QByteArray(8, 'k'), quint64(40), quint64(0)));
    QCOMPARE(m_mock->calls(), QStringList({"EPS_ImportSymmKey index=3 len=40 flags=0"}));

    // Failures that leave the session open, with the words of each call.
    resetWitnesses();
    m_mock->fail("EPS_ReadESealData", SAR_FAIL, 1);
    QVERIFY(call<QByteArray>("epsReadESealData", quint64(1), quint64(2)).isEmpty());
    QCOMPARE(m_host->lastError(), uint(SAR_FAIL));
    QCOMPARE(m_mock->count("EPS_ReadESealData"), 1);
    QCOMPARE(plainErrors(), QStringList({line("epsReadESealData", QStringLiteral(" SKF_GetFileInfo failed,ret = %1").arg(SAR_FAIL))}));
    resetWitnesses();
    m_mock->size_delta("EPS_ReadESealData", -1);
    QVERIFY(call<QByteArray>("epsReadESealData", quint64(1), quint64(2)).isEmpty());
    QCOMPARE(m_host->lastError(), uint(SAR_BUFFER_TOO_SMALL));
    QCOMPARE(plainErrors(), QStringList({line("epsReadESealData", QStringLiteral(" SKF_ReadFile failed,ret = %1").arg(SAR_BUFFER_TOO_SMALL))}));
    m_mock->size_delta("EPS_ReadESealData", 0);
    resetWitnesses();
    m_mock->fail("EPS_WriteESealData", SAR_NO_ROOM, 1);
    QVERIFY(!call<bool>("epsWriteESealData", seal, quint64(seal.size())));
    QCOMPARE(m_host->lastError(), uint(SAR_NO_ROOM));
    QCOMPARE(plainErrors(), QStringList({line("epsWriteESealData", QStringLiteral(" ESP_WriteESealData failed,ret = %1").arg(SAR_NO_ROOM))}));
    QCOMPARE(m_mock->count("SKF_DisConnectDev"), 0);
}

void TestSessionCryptoMock::sealWithoutEpsFunctions()
{
    QVERIFY(start(QStringLiteral(MOCKSKF_NOEPS_PATH)));
    const QByteArray some("data");
    struct Case
    {
        const char *op;
        std::function<bool()> failed;
        quint32 code;
        const char *words;
    };
    const char *noImport = " end . pEPS_ImportSymmKey is null";
    const char *noRead = " end . pEPS_ReadESealData is null";
    const QList<Case> cases = {
        {"epsImportSymmKey", [&] { return !call<bool>("epsImportSymmKey", m_ecc, quint64(1), some, quint64(4), quint64(0)); },
         SAR_INVALIDHANDLEERR, noImport},
        {"epsImportSymmKey", [&] { return !call<bool>("epsImportSymmKey", m_ecc, quint64(1), some, quint64(4)); },
         SAR_INVALIDHANDLEERR, noImport},
        // The container is checked before the function.
        {"epsImportSymmKey", [&] { return !call<bool>("epsImportSymmKey", kNull, quint64(1), some, quint64(4), quint64(0)); },
         SAR_INVALIDHANDLEERR, " end. container = null"},
        {"epsReadESealData", [&] { return call<QByteArray>("epsReadESealData", quint64(1), quint64(0), quint64(0)).isEmpty(); },
         SAR_INVALIDHANDLEERR, noRead},
        {"epsReadESealData", [&] { return call<QByteArray>("epsReadESealData", quint64(1), quint64(0)).isEmpty(); },
         SAR_INVALIDHANDLEERR, noRead},
        {"epsWriteESealData", [&] { return !call<bool>("epsWriteESealData", some, quint64(4), quint64(0)); },
         SAR_INVALIDHANDLEERR, " end . pEPS_WriteESealData is null"},
        // The data is checked before the function.
        {"epsWriteESealData", [&] { return !call<bool>("epsWriteESealData", QByteArray(), quint64(4)); },
         SAR_INDATALENERR, " end. szData invalid"},
    };
    for (const Case &c : cases) {
        expectRefused(c.op, c.failed, c.code,
                      {line(c.op, QStringLiteral(" start")), line(c.op, QString::fromLatin1(c.words))});
        if (QTest::currentTestFailed())
            return;
    }

    // The session stays open and usable.
    QCOMPARE(call<QByteArray>("exportPublicKey", m_ecc, true).size(), SKF_ECCPUBLICKEYBLOB_SIZE);
}

void TestSessionCryptoMock::shortBuffersAreNeverReadPast()
{
    // Under the sanitizer build a read past any of these arrays fails the run.
    QVERIFY(start());
    Qt::HANDLE hKey = call<Qt::HANDLE>("importSessionKey", m_ecc, quint64(SGD_SM4_CBC), QByteArray("0123456789abcdef"),
                                       quint64(16));
    QVERIFY(hKey);

    // Cipher parameters: the first 44 bytes, a shorter array zero-filled.
    const QByteArray full = cipherParam(QByteArray(16, '\x11'), SKF_PKCS5_PADDING, 8);
    struct Param
    {
        QByteArray bytes;
        const char *seen;
    };
    const QList<Param> params = {
        {full, "ivlen=16 padding=1 feedbits=8"},
        {full + QByteArray(20, '\x7f'), "ivlen=16 padding=1 feedbits=8"},
        {full.left(36), "ivlen=16 padding=0 feedbits=0"},
        {full.left(5), "ivlen=0 padding=0 feedbits=0"},
    };
    for (const Param &p : params) {
        resetWitnesses();
        QVERIFY(call<bool>("encryptInit", hKey, p.bytes));
        QCOMPARE(m_mock->calls(), QStringList({QStringLiteral("SKF_EncryptInit ") + QLatin1String(p.seen)}));
        QVERIFY(call<bool>("decryptInit", hKey, p.bytes));
        QCOMPARE(m_mock->calls().last(), QStringLiteral("SKF_DecryptInit ") + QLatin1String(p.seen));
    }

    // importSessionKey hands over the declared length: shorter cuts the key,
    // longer pads it with zeros (the test token XORs with the key it got).
    resetWitnesses();
    Qt::HANDLE cut = call<Qt::HANDLE>("importSessionKey", m_ecc, quint64(SGD_SM4_ECB), QByteArray("ABCDEFGHIJKLMNOP"),
                                      quint64(4));
    QCOMPARE(m_mock->calls(), QStringList({"SKF_ImportSessionKey len=4 alg=1025"}));
    QVERIFY(call<bool>("encryptInit", cut, full));
    QCOMPARE(call<QByteArray>("encrypt", cut, QByteArray(8, '\0'), quint64(8)), QByteArray("ABCDABCD"));
    resetWitnesses();
    Qt::HANDLE padded = call<Qt::HANDLE>("importSessionKey", m_ecc, quint64(SGD_SM4_ECB), QByteArray("ABCDEFGH"),
                                         quint64(16));
    QCOMPARE(m_mock->calls(), QStringList({"SKF_ImportSessionKey len=16 alg=1025"}));
    QVERIFY(call<bool>("encryptInit", padded, full));
    QCOMPARE(call<QByteArray>("encrypt", padded, QByteArray(16, '\0'), quint64(16)),
             QByteArray("ABCDEFGH") + QByteArray(8, '\0'));
    // No guard on an empty key: the token decides.
    resetWitnesses();
    QVERIFY(!call<Qt::HANDLE>("importSessionKey", m_ecc, quint64(SGD_SM4_ECB), QByteArray(), quint64(0)));
    QCOMPARE(m_host->lastError(), uint(SAR_INDATALENERR));
    QCOMPARE(m_mock->count("SKF_ImportSessionKey"), 1);

    // Structures without a length reach the token whole and zero-padded.
    const QByteArray shortKey(10, '\x04');
    resetWitnesses();
    QVERIFY(call<Qt::HANDLE>("digestInit", quint64(SGD_SM3), shortKey, kDefaultId));
    QCOMPARE(m_mock->calls().last(), QStringLiteral("SKF_DigestInit alg=1 pubkey=set idlen=16 id=1234567812345678"));
    QVERIFY(!call<bool>("eccVerify", shortKey, QByteArray("data"), QByteArray(64, '\x01')));
    QCOMPARE(m_mock->count("SKF_ECCVerify"), 1);
    QVERIFY(!call<bool>("rsaVerify", QByteArray(12, '\x08'), QByteArray("data"), QByteArray(256, '\x01')));
    QCOMPARE(m_mock->count("SKF_RSAVerify"), 1);
    QVERIFY(call<bool>("importECCKeyPair", m_ecc, QByteArray(8, '\x02')));
    QCOMPARE(m_mock->calls().last(), QStringLiteral("SKF_ImportECCKeyPair blob=set"));
    QCOMPARE(exportSessionKey(m_ecc, shortKey).size(), SKF_ECCCIPHERBLOB_BUFFER_SIZE);
    // A compact signature where the blob belongs is padded, not over-read.
    QVERIFY(call<bool>("eccSimpleVerify", m_ecc, QByteArray("data"), QByteArray(10, '\x03'), true) == false);
}

TW_TEST_MAIN_ISOLATED(TestSessionCryptoMock)
#include "tst_sessioncrypto_mock.moc"
