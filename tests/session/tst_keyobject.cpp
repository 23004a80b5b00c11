// The session contract without a token: the method tables that late-bound
// callers rely on, the process-wide session list, the serial limit rule,
// the words of result codes and the guards of a session that never
// connected.
#include <QMetaMethod>
#include <QTemporaryDir>
#include <QtTest>

#include <cstring>
#include <functional>
#include <memory>

#include "frame/rtc.h"
#include "host/twcall.h"
#include "host/twcore.h"
#include "kdpfixture.h"
#include "package/keydriverpackage.h"
#include "session/keyobjectskf.h"
#include "session/skfresult.h"
#include "skf/skfapi.h"
#include "stdoutcapture.h"

namespace {

// The invokable methods of the contract, in their order (shorter forms of
// defaulted methods left out).
const char *const kContractOrder[] = {
    "lastError", "isNeedEnumFile", "epsImportSymmKey", "epsReadESealData", "epsWriteESealData", "open", "close",
    "labelName", "serialNumber", "serialNumberEx", "GetManufacturer", "GetHWVersion", "GetFirmwareVersion",
    "SetlabelName", "totalSpace", "freeSpace", "formatKey", "changePIN", "verifyPin", "verifyPinEx", "resetUserPin",
    "resetUserPinV1", "resetAdminPin", "GetPINInfo", "createFile", "enumFiles", "readFile", "writeFile", "deleteFile",
    "writeFileV1", "createFileByVerifyPin", "createContainer", "deleteContainer", "enumContainer", "openContainer",
    "closeContainer", "getContainerType", "ImportCertificate", "exportCertificate", "exportAllCertificate",
    "genRSAKeyPair", "importRSAKeyPair", "rsaSignData", "rsaVerify", "genECCKeyPair", "importECCKeyPair",
    "eccSignData", "eccVerify", "importSessionKey", "encryptInit", "encrypt", "decryptInit", "decrypt",
    "rsaSimpleSign", "eccSimpleSign", "eccSimpleVerify", "digestInit", "digest", "digestV1", "digestUpdate",
    "digestFinal", "exportPublicKey", "closeHandle", "digestRsaByPubkey", "getDriverType", "getDriverPath",
    "eccExportSessionKey"};

// Found only in the base's table.
const char *const kBaseOnly[] = {"lastError", "isNeedEnumFile", "open", "getDriverType", "getDriverPath"};

QStringList ownSignatures(const QMetaObject &meta)
{
    QStringList out;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        out << QString::fromLatin1(meta.method(i).methodSignature());
    return out;
}

QStringList namesInOrder(const QMetaObject &meta)
{
    QStringList out;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QString name = QString::fromLatin1(meta.method(i).name());
        if (out.isEmpty() || out.last() != name)
            out << name;
    }
    return out;
}

std::unique_ptr<KeyDriverPackage> openPackage(const QString &dir, const KdpConfig &config)
{
    if (!KdpFixture::writePackage(dir, config, QString()))
        return nullptr;
    std::unique_ptr<KeyDriverPackage> package(new KeyDriverPackage(dir));
    return package->open() ? std::move(package) : nullptr;
}

bool hasLine(const QStringList &lines, const char *function, const QString &message)
{
    const QString head = QStringLiteral("[%1:").arg(QLatin1String(function));
    const QString tail = QStringLiteral("]") + message;
    for (const QString &line : lines) {
        if (line.startsWith(head) && line.endsWith(tail))
            return true;
    }
    return false;
}

} // namespace

class TestKeyObject : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();

    void methodTablesKeepTheContractOrder();
    void shorterFormsFollowTheDefaults();
    void sessionListFindsLiveSessionsByName();
    void serialLimitRule_data();
    void serialLimitRule();
    void lastErrorGoesThroughTheCore();
    void freshSessionHoldsNothing();
    void operationsWithoutApplicationAreRefused();
    void createFileByVerifyPinReadsThePackage_data();
    void createFileByVerifyPinReadsThePackage();
    void resultTextTable();
    void printErrorLines_data();
    void printErrorLines();
    void printErrorFillsBuffer();

private:
    QTemporaryDir m_tmp;
    TWCore m_core;
    std::unique_ptr<KeyDriverPackage> m_package;
};

void TestKeyObject::initTestCase()
{
    QVERIFY(m_tmp.isValid());
    // Before a core is handed over, the last error reads 0 and setting it
    // is harmless.
    KeyObjectSKF orphan(nullptr, QStringLiteral("orphan"), nullptr);
    orphan.setLastError(SAR_FAIL);
    QCOMPARE(orphan.lastError(), qint64(0));

    ComponentInit(&m_core);
    m_package = openPackage(m_tmp.filePath(QStringLiteral("pkg")), KdpConfig());
    QVERIFY(m_package);
}

void TestKeyObject::cleanupTestCase()
{
    ComponentDestroy();
}

void TestKeyObject::init()
{
    m_core.clear();
    m_core.setLastError(0);
}

void TestKeyObject::methodTablesKeepTheContractOrder()
{
    QStringList contract;
    for (const char *name : kContractOrder)
        contract << QString::fromLatin1(name);
    QCOMPARE(namesInOrder(KeyObject::staticMetaObject), contract);

    QStringList sessionNames = contract;
    for (const char *name : kBaseOnly)
        sessionNames.removeOne(QString::fromLatin1(name));
    QCOMPARE(namesInOrder(KeyObjectSKF::staticMetaObject), sessionNames);

    // 67 methods and 5 shorter forms in the base; 62 and 7 in the session.
    QCOMPARE(ownSignatures(KeyObject::staticMetaObject).size(), 72);
    QCOMPARE(ownSignatures(KeyObjectSKF::staticMetaObject).size(), 69);

    // Form by form the base's table, less the five above, with the two
    // shorter createFile forms behind the full one; and that list is
    // KeyObjectSKF's own, so a class built on the shared list keeps it.
    QStringList forms;
    const QMetaObject &base = KeyObject::staticMetaObject;
    for (int i = base.methodOffset(); i < base.methodCount(); ++i) {
        const QMetaMethod method = base.method(i);
        if (!sessionNames.contains(QString::fromLatin1(method.name())))
            continue;
        forms << QString::fromLatin1(method.typeName() + QByteArray(" ") + method.methodSignature());
        if (method.name() == "createFile")
            forms << QStringLiteral("bool createFile(QString,qulonglong,qulonglong)")
                  << QStringLiteral("bool createFile(QString,qulonglong)");
    }
    QStringList sessionForms;
    const QMetaObject &session = KeyObjectSKF::staticMetaObject;
    for (int i = session.methodOffset(); i < session.methodCount(); ++i)
        sessionForms << QString::fromLatin1(session.method(i).typeName() + QByteArray(" ") +
                                            session.method(i).methodSignature());
    QCOMPARE(sessionForms, forms);
    QCOMPARE(session.superClass(), &base);

    // Not invokable: they are for the library's own use.
    for (const char *name : {"isOpen()", "closeV1()", "isKeyDisConnect()"})
        QCOMPARE(KeyObjectSKF::staticMetaObject.indexOfMethod(name), -1);
}

void TestKeyObject::shorterFormsFollowTheDefaults()
{
    const QStringList base = ownSignatures(KeyObject::staticMetaObject);
    const QStringList session = ownSignatures(KeyObjectSKF::staticMetaObject);
    // Signatures as the meta-object keeps them: quint64 reads qulonglong.
    for (const char *form : {"epsImportSymmKey(Qt::HANDLE,qulonglong,QByteArray,qulonglong)",
                             "epsReadESealData(qulonglong,qulonglong)", "epsWriteESealData(QByteArray,qulonglong)",
                             "readFile(QString,qulonglong)", "readFile(QString)"}) {
        QVERIFY2(base.contains(QLatin1String(form)), form);
        QVERIFY2(session.contains(QLatin1String(form)), form);
    }
    // The defaults of createFile exist on the session classes only.
    for (const char *form : {"createFile(QString,qulonglong,qulonglong)", "createFile(QString,qulonglong)"}) {
        QVERIFY2(!base.contains(QLatin1String(form)), form);
        QVERIFY2(session.contains(QLatin1String(form)), form);
    }
    // No other argument has a default.
    QVERIFY(!session.contains(QStringLiteral("GetPINInfo(qulonglong)")));
    QVERIFY(!session.contains(QStringLiteral("writeFile(QString,qulonglong)")));
}

void TestKeyObject::sessionListFindsLiveSessionsByName()
{
    QCOMPARE(KeyObject::findDev(QStringLiteral("nobody")), nullptr);
    const int before = KeyObject::s_vecKeyObj.size();

    auto *first = new KeyObjectSKF(m_package.get(), QStringLiteral("devA"), nullptr);
    auto *second = new KeyObjectSKF(m_package.get(), QStringLiteral("devB"), nullptr);
    QCOMPARE(KeyObject::s_vecKeyObj.size(), before + 2);
    QCOMPARE(KeyObject::s_vecKeyObj.at(before), first);
    QCOMPARE(KeyObject::s_vecKeyObj.at(before + 1), second);
    QCOMPARE(KeyObject::findDev(QStringLiteral("devA")), first);
    QCOMPARE(KeyObject::findDev(QStringLiteral("devB")), second);
    QCOMPARE(KeyObject::findDev(QStringLiteral("devC")), nullptr);
    QVERIFY(hasLine(m_core.lines(TWCore::Level::Debug), "findDev", QStringLiteral(" findDev")));
    // A session has no QObject parent: nothing deletes it by ownership.
    QCOMPARE(first->parent(), nullptr);

    delete first;
    QCOMPARE(KeyObject::s_vecKeyObj.size(), before + 1);
    QCOMPARE(KeyObject::findDev(QStringLiteral("devA")), nullptr);
    QCOMPARE(KeyObject::findDev(QStringLiteral("devB")), second);
    delete second;
    QCOMPARE(KeyObject::s_vecKeyObj.size(), before);
}

void TestKeyObject::serialLimitRule_data()
{
    QTest::addColumn<QString>("serial");
    QTest::addColumn<quint64>("limit");
    QTest::addColumn<QString>("expected");
    QTest::newRow("cut") << "ABCDEFGH" << quint64(4) << "ABCD";
    QTest::newRow("no limit") << "ABCDEFGH" << quint64(0) << "ABCDEFGH";
    QTest::newRow("limit beyond length") << "ABCDEFGH" << quint64(100) << "ABCDEFGH";
    QTest::newRow("exact length") << "ABCDEFGH" << quint64(8) << "ABCDEFGH";
    QTest::newRow("huge limit") << "ABCDEFGH" << quint64(0x100000004ULL) << "ABCDEFGH";
    QTest::newRow("empty, limit") << "" << quint64(4) << "";
    QTest::newRow("empty, no limit") << "" << quint64(0) << "";
}

void TestKeyObject::serialLimitRule()
{
    QFETCH(QString, serial);
    QFETCH(quint64, limit);
    QFETCH(QString, expected);
    KeyObjectSKF key(m_package.get(), QStringLiteral("dev"), nullptr);
    QCOMPARE(key.GetSerialNumByString(serial, limit), expected);
    if (serial.isEmpty())
        QVERIFY(hasLine(m_core.lines(TWCore::Level::Debug), "GetSerialNumByString",
                        QStringLiteral(" strSerialNum is Empty")));
}

void TestKeyObject::lastErrorGoesThroughTheCore()
{
    KeyObjectSKF key(m_package.get(), QStringLiteral("dev"), nullptr);
    key.setLastError(SAR_PIN_INCORRECT);
    QCOMPARE(m_core.lastError(), uint(SAR_PIN_INCORRECT));
    QCOMPARE(key.lastError(), qint64(SAR_PIN_INCORRECT));

    // 32 bits, read without sign, also by name.
    key.setLastError(-1);
    qint64 viaName = 0;
    QVERIFY(twCall(&key, "lastError", viaName));
    QCOMPARE(viaName, qint64(0xFFFFFFFFLL));
}

void TestKeyObject::freshSessionHoldsNothing()
{
    KeyObjectSKF key(m_package.get(), QStringLiteral("dev"), nullptr);
    QVERIFY(!key.isOpen());
    QVERIFY(!key.isNeedEnumFile());
    QCOMPARE(key.getDriverType(), 0);
    QCOMPARE(key.getDriverPath(), QString());
    QCOMPARE(key.getKDI(), nullptr);
    // close() at the host's interface changes nothing.
    key.close();
    QVERIFY(!key.isOpen());

    // The identity is empty, and none of it reports by last error.
    QCOMPARE(key.labelName(), QString());
    QCOMPARE(key.serialNumber(), QString());
    QCOMPARE(key.serialNumberEx(), QString());
    QCOMPARE(key.GetManufacturer(), QString());
    QCOMPARE(key.GetHWVersion(), QStringLiteral("0.0"));
    QCOMPARE(key.GetFirmwareVersion(), QStringLiteral("0.0"));
    QCOMPARE(key.totalSpace(), quint64(0));
    QCOMPARE(key.freeSpace(), quint64(0));
    QVERIFY(!key.SetlabelName(QStringLiteral("x")));
    QVERIFY(hasLine(m_core.lines(TWCore::Level::Debug), "SetlabelName", QStringLiteral(" dev is NULL")));
    QCOMPARE(m_core.lastError(), 0u);

    // closeV1 says that nothing was open.
    QCOMPARE(key.closeV1(), false);
    QCOMPARE(m_core.lastError(), uint(SAR_USER_NOT_LOGGED_IN));
    QVERIFY(!key.isOpen());
}

void TestKeyObject::operationsWithoutApplicationAreRefused()
{
    KeyObjectSKF key(m_package.get(), QStringLiteral("dev"), nullptr);
    const QString appIsNull = QStringLiteral(" end . app is null");
    struct Case
    {
        const char *function;
        std::function<bool()> failed;
    };
    const QList<Case> cases = {
        {"verifyPinEx", [&] { return !key.verifyPin(QStringLiteral("12345678"), false); }},
        {"changePIN", [&] { return !key.changePIN(false, QStringLiteral("1"), QStringLiteral("2")); }},
        {"resetUserPin", [&] { return !key.resetUserPin(); }},
        {"resetUserPinV1", [&] { return !key.resetUserPinV1(QString(), QString()); }},
        {"resetAdminPin", [&] { return !key.resetAdminPin(); }},
        {"GetPINInfo", [&] { return key.GetPINInfo(1, 0) == 0; }},
        {"createFile", [&] { return !key.createFile(QString(), 1); }},
        {"enumFiles", [&] { return key.enumFiles().isEmpty(); }},
        {"readFile", [&] { return key.readFile(QStringLiteral("f")).isEmpty(); }},
        {"writeFile", [&] { return !key.writeFile(QStringLiteral("f"), 0, QByteArray()); }},
        {"deleteFile", [&] { return !key.deleteFile(QStringLiteral("f")); }},
        {"writeFileV1", [&] { return !key.writeFileV1(QStringLiteral("f"), QByteArray("x")); }},
        {"createContainer", [&] { return !key.createContainer(QString()); }},
        {"deleteContainer", [&] { return !key.deleteContainer(QStringLiteral("c")); }},
        {"enumContainer", [&] { return key.enumContainer().isEmpty(); }},
        {"openContainer", [&] { return !key.openContainer(QStringLiteral("c")); }},
        {"getContainerType", [&] { return key.getContainerType(nullptr) == 0; }},
        {"ImportCertificate", [&] { return !key.ImportCertificate(nullptr, true, QByteArray("x")); }},
        {"exportCertificate", [&] { return key.exportCertificate(nullptr, true).isEmpty(); }},
        {"exportAllCertificate", [&] { return key.exportAllCertificate(true).isEmpty(); }},
        {"formatKey", [&] { return !key.formatKey(); }},
    };
    // The session guard comes before every argument check.
    for (const Case &c : cases) {
        m_core.clear();
        m_core.setLastError(0);
        QVERIFY2(c.failed(), c.function);
        QCOMPARE(m_core.lastError(), uint(SAR_USER_NOT_LOGGED_IN));
        QVERIFY2(hasLine(m_core.lines(TWCore::Level::Debug), c.function, appIsNull), c.function);
    }

    m_core.setLastError(0);
    QVERIFY(key.enumApplication().isEmpty());
    QCOMPARE(m_core.lastError(), uint(SAR_USER_NOT_LOGGED_IN));
    QVERIFY(hasLine(m_core.lines(TWCore::Level::Debug), "enumApplication", QStringLiteral(" end . dev is null")));

    // No driver behind the session: the argument-free form says so, the
    // named form is refused for the missing device.
    QVERIFY(!key.openApplication());
    QVERIFY(hasLine(m_core.lines(TWCore::Level::Debug), "openApplication", QStringLiteral(" end. keyDriver = null")));
    QCOMPARE(key.openApplication(QStringLiteral("APP")), nullptr);

    // closeContainer asks nothing and sets nothing.
    m_core.setLastError(0);
    key.closeContainer(nullptr);
    key.closeContainer(reinterpret_cast<Qt::HANDLE>(0x1234));
    QCOMPARE(m_core.lastError(), 0u);
}

void TestKeyObject::createFileByVerifyPinReadsThePackage_data()
{
    QTest::addColumn<QString>("setting");
    QTest::addColumn<bool>("expected");
    QTest::newRow("true") << "true" << true;
    QTest::newRow("TRUE") << "TRUE" << true;
    QTest::newRow("tRuE") << "tRuE" << true;
    QTest::newRow("leading blank") << " true" << false;
    QTest::newRow("false") << "false" << false;
    QTest::newRow("1") << "1" << false;
    QTest::newRow("empty") << "" << false;
    QTest::newRow("absent") << QString() << false;
}

void TestKeyObject::createFileByVerifyPinReadsThePackage()
{
    QFETCH(QString, setting);
    QFETCH(bool, expected);
    KdpConfig config;
    if (!setting.isNull())
        config.createFileByVerifyPin = setting;
    auto package = openPackage(m_tmp.filePath(QStringLiteral("cfvp_%1").arg(QTest::currentDataTag())), config);
    QVERIFY(package);
    // Works without any token or application.
    KeyObjectSKF key(package.get(), QStringLiteral("dev"), nullptr);
    bool viaName = !expected;
    QVERIFY(twCall(&key, "createFileByVerifyPin", viaName));
    QCOMPARE(viaName, expected);
    QVERIFY(hasLine(m_core.lines(TWCore::Level::Debug), "createFileByVerifyPin",
                    QStringLiteral(" CreateFileByVerifyPin: ") + setting));
}

void TestKeyObject::resultTextTable()
{
    bool known = false;
    for (quint32 code = SAR_FAIL; code <= SAR_REACH_MAX_CONTAINER_COUNT; ++code) {
        SkfResult::text(code, &known);
        QVERIFY2(known, qPrintable(QString::number(code, 16)));
    }
    for (quint32 code = TW_ERR_SECURITY_STATE; code <= TW_ERR_ECC_ENCRYPT; ++code) {
        SkfResult::text(code, &known);
        QVERIFY2(known, qPrintable(QString::number(code, 16)));
    }
    for (quint32 code : {0u, 0x0A000000u, 0x0A000033u, 0x0B000032u, 0x0B000039u, 0x0C000039u, 0x0C00003Bu,
                         0xFFFFFFFFu}) {
        QCOMPARE(QString::fromUtf8(SkfResult::text(code, &known)), QStringLiteral("未知的错误"));
        QVERIFY2(!known, qPrintable(QString::number(code, 16)));
    }
    // Some words; PrintError's rows check more.
    QCOMPARE(QString::fromUtf8(SkfResult::text(SAR_UNKNOWNERR)), QStringLiteral("异常错误"));
    QCOMPARE(QString::fromUtf8(SkfResult::text(SAR_INDATALENERR)), QStringLiteral("输入数据长度错误"));
    QCOMPARE(QString::fromUtf8(SkfResult::text(SAR_PIN_LOCKED)), QStringLiteral("密钥盘锁定"));
    QCOMPARE(QString::fromUtf8(SkfResult::text(TW_ERR_CONTAINER_NOT_EXIST)), QStringLiteral("容器不存在"));
    QCOMPARE(QString::fromUtf8(SkfResult::text(SAR_REACH_MAX_CONTAINER_COUNT)),
             QStringLiteral("已达到最大可管理容器数"));
    QCOMPARE(QString::fromUtf8(SkfResult::text(TW_ERR_ECC_ENCRYPT)), QStringLiteral("ECC加密错误"));
}

void TestKeyObject::printErrorLines_data()
{
    QTest::addColumn<uint>("code");
    QTest::addColumn<QString>("expected");
    const QString tag = QStringLiteral("[TWKeyObjectSkf::PrintError] Error:");
    QTest::newRow("removed") << uint(SAR_DEVICE_REMOVED) << tag + QStringLiteral("设备已移除 \n");
    QTest::newRow("fail") << uint(SAR_FAIL) << tag + QStringLiteral("fail \n");
    QTest::newRow("new pin length") << uint(TW_ERR_NEW_PIN_LEN) << tag + QStringLiteral("新密码位数过多或过少 \n");
    QTest::newRow("container exists") << uint(TW_ERR_CONTAINER_EXISTS) << tag + QStringLiteral("容器已存在 \n");
    QTest::newRow("success") << 0u << QString();
    QTest::newRow("old pin length") << uint(TW_ERR_OLD_PIN_LEN) << QString();
    QTest::newRow("next to the family") << 0x0B000039u << QString();
    QTest::newRow("past the standard") << 0x0A000033u << QString();
}

void TestKeyObject::printErrorLines()
{
    QFETCH(uint, code);
    QFETCH(QString, expected);
    KeyObjectSKF key(m_package.get(), QStringLiteral("dev"), nullptr);
    m_core.setLastError(7);
    StdoutCapture capture(m_tmp.filePath(QStringLiteral("stdout.txt")));
    key.PrintError(code, nullptr);
    QCOMPARE(QString::fromUtf8(capture.finish()), expected);
    // Words only: no log line and no last error.
    QCOMPARE(m_core.lastError(), 7u);
    QCOMPARE(m_core.lineCount(), 0);
}

void TestKeyObject::printErrorFillsBuffer()
{
    KeyObjectSKF key(m_package.get(), QStringLiteral("dev"), nullptr);
    char buffer[64];
    std::memset(buffer, 'x', sizeof(buffer));
    {
        StdoutCapture capture(m_tmp.filePath(QStringLiteral("stdout.txt")));
        key.PrintError(SAR_FAIL, buffer);
        QCOMPARE(capture.finish(), QByteArray("[TWKeyObjectSkf::PrintError] Error:fail \n"));
    }
    QCOMPARE(QByteArray(buffer), QByteArray("fail"));

    // A code without a row fills the buffer and prints nothing.
    StdoutCapture capture(m_tmp.filePath(QStringLiteral("stdout.txt")));
    key.PrintError(TW_ERR_OLD_PIN_LEN, buffer);
    QCOMPARE(capture.finish(), QByteArray());
    QCOMPARE(QString::fromUtf8(buffer), QStringLiteral("未知的错误"));
}

QTEST_GUILESS_MAIN(TestKeyObject)
#include "tst_keyobject.moc"
