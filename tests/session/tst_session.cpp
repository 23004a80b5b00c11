// The SKF session, black-box: rows of conformance.h against the software
// token behind the call tracer, through the test host, by method name.
// Opening and closing, identity, result words, and sessions that a host
// cannot make: one without a driver, one over a library without seal.
#include <QTest>

#include "isolatedtest.h"
#include "sessionrows.h"
#include "session/keyobjectskf.h"
#include "devicestore.h"
#include "twdeviceguard.h"

#include <QTemporaryDir>

#include <cstring>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const auto identity = [](DeviceData &d) {
    d.serial = QStringLiteral("SN20CHARSERIAL000001");
    d.label = QStringLiteral("LBL");
    d.manufacturer = QStringLiteral("MAKER");
    d.hwMajor = 2;
    d.hwMinor = 10;
    d.fwMajor = 3;
    d.fwMinor = 7;
};

} // namespace

class TestSession : public QObject
{
    Q_OBJECT

private slots:
    void openAndClose()
    {
        Conformance suite;
        suite.run({
            Row("new session connects").token(serial("SN-0")).call("TWKey.count").is("1").calls(kEnumDev + kConnect)
                .log({"[findDev] findDev", "[findDev]pKeyObj : 0", "linux SKF_ConnectDev", "linux SKF_GetDevInfo ", " SKF_EnumApplication",
                      " SKF_EnumApplication 0 ulSize: 8", " SKF_OpenApplication success containerName= c1",
                      " KeyObjectSKF end"})
                .state("SN-0"),
            Row("open within the clock asks nothing").open({"open"}).call("open").is("true").calls({})
                .log({" KeyObjectSKF start", " timeTemp: %d", "- start"}),
            Row("application without containers").token(noContainers).call("TWKey.count").is("0")
                .calls(kEnumDev + kConnect.mid(0, 4) + QStringList{
                    R"(SKF_EnumContainer(h2, null, 0->1) = 0x00000000)", R"(SKF_EnumContainer(h2, ->{}, 1->1) = 0x00000000)",
                    R"(SKF_CloseApplication(h2) = 0x00000000)", R"(SKF_DisConnectDev(h1) = 0x00000000)"})
                .log({"[enumContainer] end", "[open] end"}),
            Row("first application fails to open").token(emptyAppFirst).fault("SKF_OpenApplication", SAR_APPLICATION_NOT_EXISTS)
                .call("TWKey.count").is("1").err(SAR_APPLICATION_NOT_EXISTS)
                .calls(kEnumDev + kConnect.mid(0, 2) + QStringList{
                    R"(SKF_EnumApplication(h1, ->{"APP0","TW_APP"}, 256->13) = 0x00000000)",
                    R"(SKF_OpenApplication(h1, "APP0", ->null) = 0x0A00002E)"} + kConnect.mid(3))
                .log({errorLine(" SKF_OpenApplication failed,ret= %d", SAR_APPLICATION_NOT_EXISTS)})
                .out({printed("应用不存在")}),
            Row("application without containers passed over").token(emptyAppFirst).call("TWKey.count").is("1")
                .calls(kEnumDev + kConnect.mid(0, 2) + QStringList{
                    R"(SKF_EnumApplication(h1, ->{"APP0","TW_APP"}, 256->13) = 0x00000000)",
                    R"(SKF_OpenApplication(h1, "APP0", ->h2) = 0x00000000)",
                    R"(SKF_EnumContainer(h2, null, 0->1) = 0x00000000)", R"(SKF_EnumContainer(h2, ->{}, 1->1) = 0x00000000)",
                    R"(SKF_OpenApplication(h1, "TW_APP", ->h3) = 0x00000000)", "SKF_EnumContainer(h3, *", "SKF_EnumContainer(h3, *",
                    R"(SKF_OpenContainer(h3, "c1", ->h4) = 0x00000000)"}),
            Row("empty entry in the application list").token([](DeviceData &d) {
                    emptyAppFirst(d);
                    d.apps.insert(1, d.apps[0]);
                    d.apps[1].name.clear();
                }).call("TWKey.count").is("1")
                .calls(kEnumDev + kConnect.mid(0, 2) + QStringList{R"(SKF_EnumApplication(h1, ->{"APP0"}, 256->14) = 0x00000000)",
                    R"(SKF_OpenApplication(h1, "APP0", ->h2) = 0x00000000)", "...",
                    R"(SKF_OpenApplication(h1, "TW_APP", ->h3) = 0x00000000)", "...", R"(SKF_OpenContainer(h3, "c1", ->h4) = 0x00000000)"}),
            Row("no application").token([](DeviceData &d) { d.apps.clear(); }).call("TWKey.count").is("0")
                .err(SAR_USER_NOT_LOGGED_IN).calls(kEnumDev + kConnect.mid(0, 2) + QStringList{
                    "SKF_EnumApplication(h1, ->{}, 256->1) = 0x00000000", "SKF_DisConnectDev(h1) = 0x00000000"})
                .loose().log({" end. appNameList.count = 0", "[open] end"}),
            Row("the application list fails").fault("SKF_EnumApplication", SAR_FAIL).call("TWKey.count").is("0")
                .err(SAR_USER_NOT_LOGGED_IN).calls(kEnumDev + kConnect.mid(0, 2) + QStringList{
                    "SKF_EnumApplication(h1, buf, 256->256) = 0x0A000001", "SKF_DisConnectDev(h1) = 0x00000000"})
                .loose().out({printed("fail")})
                .log({" SKF_EnumApplication 0 ulSize: 256", errorLine("SKF_EnumApplication failed.ret = %d", SAR_FAIL),
                      " end. appNameList.count = 0"}),
            Row("connect fails").loose().fault("SKF_ConnectDev", SAR_DEVICE_REMOVED).call("TWKey.count").is("0").err(SAR_USER_NOT_LOGGED_IN)
                .calls(kEnumDev + QStringList{R"(SKF_ConnectDev("d*", ->null) = 0x0A000023)"})
                .log({errorLine(" SKF_ConnectDev failed,ret = %d ", SAR_DEVICE_REMOVED), "[closeV1] start", "[closeV1] end",
                      "[closeV1] start", "[closeV1] end", "[open] KeyDriverSKF end"})
                .out({printed("设备已移除")}).state(""),
            Row("close leaves the session open").call("close").is("").calls({}).log({" start", " end"})
                .then("GetPINInfo", {1, 1}, "6"),
            Row("deleting the session closes it").call("deleteLater").calls(closing(1, 2))
                .log({"[closeV1] start", "[closeV1] CloseApplication", "[closeV1] DisConnectDev", "[closeV1] end"}),
            closed("closed session reconnects").token(serial("SN-A")).call("open").is("true").calls(kConnect)
                .log({"!\u0020tw_device,value = SN-A ", "-!key statue*", "linux SKF_ConnectDev"}).out({"SN-A"}).state("SN-A"),
            closed("unchanged state file").token(serial("SN-B")).before("open").fault("SKF_GetPINInfo", SAR_DEVICE_REMOVED).before("GetPINInfo", {1, 1})
                .call("open").is("true").calls(kConnect).log({"!key statue is not change ", "linux SKF_ConnectDev"})
                .out({"SN-B"}),
            halfOpen("connected without application, state unchanged").token(serial("SN-C")).open({"open"}).call("open").is("true").calls({})
                .log({"!key statue is not change ", "key statue is not change", "- SKF_ConnectDev"}).out({"SN-C"})
                .then("GetPINInfo", {1, 1}, "0"),
            Row("after the clock the same token is probed").token(serial("SN-D")).open({"open"}).aged().call("open").is("true")
                .calls({"SKF_GenRandom(h1, buf, 6) = 0x00000000", R"(SKF_GetDevInfo(h1, ->{sn="SN-D",label="d*"}) = 0x00000000)"})
                .log({"devtemp.SerialNumber = SN-D, strSerialNumber = SN-D"}).then("isNeedEnumFile", {}, "false"),
            Row("failing probe reconnects").token(serial("SN-E")).aged().fault("SKF_GenRandom", SAR_INVALIDHANDLEERR).call("open").is("true")
                .calls(QStringList{"SKF_GenRandom(h1, buf, 6) = 0x0A000005"} + connectLines(2)).log({" SblEnumDev = true"})
                .out({"SN-E"}).then("isNeedEnumFile", {}, "true").then("isNeedEnumFile", {}, "false"),
            Row("another token behind the name").token(serial("SN-F")).aged().change([](DeviceData &d) { d.serial = QStringLiteral("OTHER01"); })
                .call("open").is("true")
                .calls(QStringList{"SKF_GenRandom(h1, buf, 6) = 0x00000000", "SKF_GetDevInfo(h1, ->{sn=\"OTHER01\"*"}
                       + connectLines(2).mid(0, 1) + QStringList{R"(SKF_GetDevInfo(h2, ->{sn="OTHER01",label="d*"}) = 0x00000000)", "..."})
                .log({"devtemp.SerialNumber = OTHER01, strSerialNumber = SN-F"}).out({"SN-F"}).state("OTHER01")
                .then("isNeedEnumFile", {}, "true").then("serialNumber", {}, "\"OTHER01\""),
            Row("pulled token fails to reopen").token(serial("SN-G")).open({"open"}).aged().pull().call("open").is("false").err(SAR_DEVICE_REMOVED)
                .calls({"SKF_GenRandom(h1, buf, 6) = 0x0A000023", R"(SKF_ConnectDev("d*", ->null) = 0x0A000023)",
                        "SKF_CloseApplication(h2) = 0x0A000023", "SKF_DisConnectDev(h1) = 0x0A000023"})
                .out({"SN-G", printed("设备已移除")}),
            halfOpen("no device-state file: a change").token(serial("SN-N")).stateBefore(QByteArray()).call("open").is("true")
                .calls({R"(SKF_ConnectDev("d*", ->h*) = 0x00000000)", "..."}).state("SN-N").loose(),
            Row("probed token without device information").token(serial("SN-H")).open({"open"}).aged().fault("SKF_GetDevInfo", SAR_FAIL)
                .call("open").is("true").log({"devtemp.SerialNumber = , strSerialNumber = SN-H"}).out({"SN-H"}),
        });
    }

    void identity()
    {
        Conformance suite;
        suite.run({
            Row("label").token(::identity).call("labelName").is("\"LBL\"").calls({}).log({"[labelName] labelName = LBL "}),
            Row("serial cut to sixteen").reuse().call("serialNumber").is("\"SN20CHARSERIAL00\"")
                .log({"[GetSerialNumByString] End_GetSerialNumByString_strSerialNum is:SN20CHARSERIAL00",
                      "[serialNumber] serialNumber(A) = SN20CHARSERIAL00 "}),
            Row("whole serial").reuse().call("serialNumberEx").is("\"SN20CHARSERIAL000001\"")
                .log({" serialNumber = SN20CHARSERIAL000001 "}),
            Row("maker").reuse().call("GetManufacturer").is("\"MAKER\"").log({" Manufacturer = MAKER "}),
            Row("hardware version").reuse().call("GetHWVersion").is("\"2.10\"").log({" strMajor is:2", " strMinor is:10"}),
            Row("firmware version").reuse().call("GetFirmwareVersion").is("\"3.7\""),
            Row("total space read anew").reuse().call("totalSpace").is("262144")
                .calls({R"(SKF_GetDevInfo(h1, ->{sn="SN20CHARSERIAL000001",label="LBL"}) = 0x00000000)"}).log({" SKF_GetDevInfo "}),
            Row("free space read anew").reuse().call("freeSpace").is("260073").calls({"SKF_GetDevInfo(h1, *"}),
            Row("label set, not read back").reuse().call("SetlabelName", {"NEW"}).is("true")
                .calls({R"(SKF_SetLabel(h1, "NEW") = 0x00000000)"}).log({" SetLabel is successfully", "[SetlabelName] end"})
                .then("labelName", {}, "\"LBL\"").then("freeSpace", {}, "260073").then("labelName", {}, "\"NEW\""),
            Row("label refused, quietly").reuse().fault("SKF_SetLabel", SAR_DEVICE_REMOVED).call("SetlabelName", {"X"})
                .is("false").calls({R"(SKF_SetLabel(h1, "X") = 0x0A000023)"}).log({"-!*", "- SetLabel is successfully"})
                .then("GetPINInfo", {1, 1}, "6"),
            Row("a failed read leaves nothing").reuse().fault("SKF_GetDevInfo", SAR_FAIL).call("totalSpace").is("0")
                .calls({"SKF_GetDevInfo(h1, out) = 0x0A000001"}).then("labelName", {}, "\"\""),
            Row("nor a serial").reuse().call("serialNumber").is("\"\"").log({" strSerialNum is Empty"}).open({"GetSerialNumByString"}),
            closed("label on a closed session").token(::identity).call("SetlabelName", {"X"}).is("false").calls({})
                .log({" dev is NULL"}).open({"SetlabelName"}),
            Row("space on a closed session: what was read").reuse().call("freeSpace").is("260073").calls({}),
            Row("the driver's type").call("getDriverType").is("1").calls({}).log({"[getDriverType] start", "[getDriverType] end"}),
            Row("the package's folder").reuse().call("getDriverPath").is("\"*/kdp/traced\"").log({"[getDriverPath] start"}),
            Row("the last error is the core's").reuse().call("lastError").is("305419896").calls({}),
        });
    }

    // A package that keeps 8 characters of a serial number.
    void limitedSerial()
    {
        KdpConfig package;
        package.limitSerialNum = QStringLiteral("1");
        package.limitSize = QStringLiteral("8");
        Conformance suite(package);
        suite.run({
            Row("the device-state file holds the cut serial").token(::identity).call("TWKey.count").is("1")
                .state("SN20CHAR"),
            Row("serial cut to eight").token(::identity).call("serialNumber").is("\"SN20CHAR\""),
        });
    }

    // A package whose limit is 0: whole serials. It names "yes" for a PIN
    // before files, which is not "true".
    void wholeSerial()
    {
        KdpConfig package;
        package.limitSerialNum = QStringLiteral("1");
        package.limitSize = QStringLiteral("0");
        package.createFileByVerifyPin = QStringLiteral("yes");
        Conformance suite(package);
        suite.run({
            Row("serial whole").token(::identity).call("serialNumber").is("\"SN20CHARSERIAL000001\""),
            Row("no PIN before files").reuse().call("createFileByVerifyPin").is("false").log({" CreateFileByVerifyPin: yes"}),
        });
    }

    // PrintError's words for every code, as the library's failure shows them.
    void words()
    {
        static const QList<QPair<quint32, QString>> words = {
            {0x0A000001, "fail"}, {0x0A000002, "异常错误"}, {0x0A000003, "不支持的服务"}, {0x0A000004, "文件操作错误"},
            {0x0A000005, "无效的句柄"}, {0x0A000006, "无效的参数"}, {0x0A000007, "读文件错误"}, {0x0A000008, "写文件错误"},
            {0x0A000009, "名称长度错误"}, {0x0A00000A, "密钥用途错误"}, {0x0A00000B, "模的长度错误"}, {0x0A00000C, "未初始化"},
            {0x0A00000D, "对象错误"}, {0x0A00000E, "内存错误"}, {0x0A00000F, "超时"}, {0x0A000010, "输入数据长度错误"},
            {0x0A000011, "输入数据错误"}, {0x0A000012, "生成随机数错误"}, {0x0A000013, "HASH对象错误"}, {0x0A000014, "HASH运算错误"},
            {0x0A000015, "产生RSA密钥错误"}, {0x0A000016, "RSA密钥模长错误"}, {0x0A000017, "CSP服务导入公钥错误"},
            {0x0A000018, "RSA加密错误"}, {0x0A000019, "RSA解密错误"}, {0x0A00001A, "HASH值不相等"}, {0x0A00001B, "未发现证书密钥"},
            {0x0A00001C, "未发现证书"}, {0x0A00001D, "对象未导出"}, {0x0A00001E, "解密时做补丁错误"}, {0x0A00001F, "MAC长度错误"},
            {0x0A000020, "缓冲区不足"}, {0x0A000021, "密钥类型错误"}, {0x0A000022, "无事件错误"}, {0x0A000024, "密码错误"},
            {0x0A000025, "密钥盘锁定"}, {0x0A000026, "密码无效"}, {0x0A000027, "密码长度错误"}, {0x0A000028, "用户已经登录"},
            {0x0A000029, "没有初始化用户口令"}, {0x0A00002A, "PIN类型错误"}, {0x0A00002B, "应用名称无效"}, {0x0A00002C, "应用已经存在"},
            {0x0A00002D, "用户没有登录"}, {0x0A00002E, "应用不存在"}, {0x0A00002F, "文件已经存在"}, {0x0A000030, "存储空间不足"},
            {0x0A000031, "文件不存在"}, {0x0A000032, "已达到最大可管理容器数"}, {0x0B000033, "安全状态不满足"},
            {0x0B000034, "指针移到超过文件长度"}, {0x0B000035, "容器不存在"}, {0x0B000036, "容器已存在"}, {0x0B000037, "设备认证锁定"},
            {0x0B000038, "ECC加密错误"}, {0x0C00003A, "新密码位数过多或过少"},
            // No words, no line.
            {0x0A000033, ""}, {0x0B000032, ""}, {0x0B000039, ""}, {0x0C000039, ""}, {0x0C00003B, ""},
            {0x0A000023, "设备已移除"}};
        QList<Row> rows;
        for (const auto &w : words)
            rows << Row(QStringLiteral("0x%1").arg(w.first, 8, 16, QLatin1Char('0'))).reuse()
                        .fault("SKF_VerifyPIN", w.first).call("verifyPin", {kUser, false}).is("false").err(w.first)
                        .out(w.second.isEmpty() ? QStringList() : QStringList{printed(w.second)});
        Conformance suite;
        suite.run(rows);
    }

    // A library without the optional EPS_ functions: each seal operation fails
    // on its own, after its other guards.
    void withoutSeal()
    {
        Conformance suite(Conformance::Options{KdpConfig(), QStringLiteral(SKFTRACE_NOEPS_PATH), {}});
        suite.run({
            Row("read").call("epsReadESealData", {1, 2}).is("[0]").err(SAR_INVALIDHANDLEERR).calls({})
                .log({" end . pEPS_ReadESealData is null"}),
            Row("write nothing: the data first").call("epsWriteESealData", {bin(""), 0}).is("false").err(SAR_INDATALENERR)
                .log({" end. szData invalid"}),
            Row("write").call("epsWriteESealData", {bin("S"), 1}).is("false").err(SAR_INVALIDHANDLEERR).calls({})
                .log({" end . pEPS_WriteESealData is null"}),
            Row("import: the container first").call("epsImportSymmKey", {nullHandle(), 1, bin("k"), 1}).is("false")
                .err(SAR_INVALIDHANDLEERR).log({" end. container = null"}),
            Row("import").before("openContainer", {"c1"}, "c").call("epsImportSymmKey", {ref("c"), 1, bin("k"), 1})
                .is("false").err(SAR_INVALIDHANDLEERR).calls({}).log({" end . pEPS_ImportSymmKey is null"}),
        });
    }

    // A session made with a parent that is no driver has no function table.
    void withoutDriver()
    {
        Conformance::Options options;
        options.session = [](Conformance &, const QString &device) -> QObject * {
            return new KeyObjectSKF(nullptr, device, nullptr);
        };
        Conformance suite(options);
        suite.run({
            Row("cipher set-up").call("encryptInit", {nullHandle(), bin("")}).is("false").err(SAR_USER_NOT_LOGGED_IN)
                .log({" end . keyDriver is null"}),
            Row("encrypt").call("encrypt", {nullHandle(), bin(""), 0}).is("[0]").err(SAR_USER_NOT_LOGGED_IN),
            Row("decryption set-up").call("decryptInit", {nullHandle(), bin("")}).is("false").err(SAR_USER_NOT_LOGGED_IN),
            Row("decrypt").call("decrypt", {nullHandle(), bin(""), 0}).is("[0]").err(SAR_USER_NOT_LOGGED_IN),
            Row("no handle given back").call("closeHandle", {nullHandle()}).log({" end. keyDriver = null or handle = null"}),
            Row("a new session is not connected").call("totalSpace").is("0").calls({})
                .then("serialNumber", {}, "\"\"").then("GetHWVersion", {}, "\"0.0\"").then("isNeedEnumFile", {}, "false"),
            Row("nor ready").call("GetPINInfo", {1, 1}).is("0").err(SAR_USER_NOT_LOGGED_IN).calls({}),
            Row("no driver information").call("getDriverType").is("0").then("getDriverPath", {}, "\"\""),
        });
        // PrintError's buffer, which no caller in the library passes: the
        // text and its end, also for a code without words or a line.
        KeyObjectSKF key(nullptr, QString(), nullptr);
        char text[64];
        for (const auto &code : {qMakePair(0x0A000001u, QString("fail")), qMakePair(0x0C000039u, QString("未知的错误"))}) {
            std::memset(text, 'x', sizeof(text));
            key.PrintError(code.first, text);
            QCOMPARE(QString::fromUtf8(text), code.second);
        }
    }

    // A device-state file that is no small plain file, at a new session's open:
    // a FIFO is not waited on, a link's target is not written, a huge file is
    // not read whole.
    void deviceFile()
    {
        Conformance suite;
        QTemporaryDir dir;
        const QByteArray path = TwDeviceGuard::kPath, target = QFile::encodeName(dir.path() + "/target");
        const std::unique_ptr<const char, void (*)(const char *)> gone(path, [](const char *p) { ::unlink(p); });
        for (const QString kind : {"fifo", "link", "huge"}) {
            ::unlink(path);
            QFile file(kind == "link" ? target : path);
            QVERIFY(kind == "fifo" ? !::mkfifo(path, 0600)
                                   : file.open(QIODevice::WriteOnly) && file.write("keep") == 4 && file.resize(kind == "huge" ? 300 << 20 : 4));
            QVERIFY(kind != "link" || !::symlink(target, path));
            DeviceData token = suite.standardToken();
            token.serial = "SN-" + kind;
            rusage before, after;
            ::getrusage(RUSAGE_SELF, &before);
            QVERIFY(DeviceStore(suite.storePath()).create(kind, token, nullptr) && suite.openThroughManager(kind));
            ::getrusage(RUSAGE_SELF, &after);
            QFile back(target);
            QVERIFY(kind != "link" || (QFileInfo(path).isSymLink() && back.open(QIODevice::ReadOnly) && back.readAll() == "keep"));
            QVERIFY2(after.ru_maxrss - before.ru_maxrss < 64 << 10, qPrintable(kind));
        }
    }
};

TW_TEST_MAIN_ISOLATED(TestSession)
#include "tst_session.moc"
