// The SKF session, black-box: rows of conformance.h against the software
// token behind the call tracer, through the test host, by method name.
#include <QTest>

#include "isolatedtest.h"
#include "sessionrows.h"

class TestSession : public QObject
{
    Q_OBJECT

private slots:
    void openAndClose();
};

void TestSession::openAndClose()
{
    Conformance suite;
    suite.run({
        Row("new session connects").call("TWKey.count").is("1").calls(kEnumDev + kConnect)
            .log({"linux SKF_ConnectDev", "linux SKF_GetDevInfo ", " SKF_EnumApplication",
                  " SKF_EnumApplication 0 ulSize: 8", " SKF_OpenApplication success containerName= c1",
                  " KeyObjectSKF end"})
            .state("SN000001"),
        Row("open within the clock asks nothing").loose().call("open").is("true").calls({})
            .log({" KeyObjectSKF start", " timeTemp: *", "- start"}),
        Row("application without containers").token(noContainers).call("TWKey.count").is("0")
            .calls(kEnumDev + kConnect.mid(0, 4) + QStringList{
                R"(SKF_EnumContainer(h2, null, 0->1) = 0x00000000)", R"(SKF_EnumContainer(h2, ->{}, 1->1) = 0x00000000)",
                R"(SKF_CloseApplication(h2) = 0x00000000)", R"(SKF_DisConnectDev(h1) = 0x00000000)"})
            .log({" end"}),
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
        Row("connect fails").loose().fault("SKF_ConnectDev", SAR_DEVICE_REMOVED).call("TWKey.count").is("0").err(SAR_USER_NOT_LOGGED_IN)
            .calls(kEnumDev + QStringList{R"(SKF_ConnectDev("d*", ->null) = 0x0A000023)"})
            .log({errorLine(" SKF_ConnectDev failed,ret = %d ", SAR_DEVICE_REMOVED)}).out({printed("设备已移除")}).state(""),
        Row("close leaves the session open").call("close").is("").calls({}).log({" start", " end"})
            .then("GetPINInfo", {1, 1}, "6"),
        closed("closed session reconnects").call("open").is("true").calls(kConnect)
            .log({"!\u0020tw_device,value = SN000009 ", "linux SKF_ConnectDev"}).out({"SN000009"}).state("SN000009"),
        closed("unchanged state file").before("open").fault("SKF_GetPINInfo", SAR_DEVICE_REMOVED).before("GetPINInfo", {1, 1})
            .call("open").is("true").calls(kConnect).log({"!key statue is not change ", "linux SKF_ConnectDev"})
            .out({"SN000010"}),
        halfOpen("connected without application, state unchanged").loose().call("open").is("true").calls({})
            .log({"!key statue is not change ", "key statue is not change", "- SKF_ConnectDev"}).out({"SN000011"})
            .then("GetPINInfo", {1, 1}, "0"),
        Row("after the clock the same token is probed").loose().aged().call("open").is("true")
            .calls({"SKF_GenRandom(h1, buf, 6) = 0x00000000", R"(SKF_GetDevInfo(h1, ->{sn="SN000012",label="d*"}) = 0x00000000)"})
            .log({"devtemp.SerialNumber = SN000012, strSerialNumber = SN000012"}).then("isNeedEnumFile", {}, "false"),
        Row("failing probe reconnects").aged().fault("SKF_GenRandom", SAR_INVALIDHANDLEERR).call("open").is("true")
            .calls(QStringList{"SKF_GenRandom(h1, buf, 6) = 0x0A000005"} + connectLines(2)).log({" SblEnumDev = true"})
            .out({"SN000013"}).then("isNeedEnumFile", {}, "true").then("isNeedEnumFile", {}, "false"),
        Row("another token behind the name").aged().change([](DeviceData &d) { d.serial = QStringLiteral("OTHER01"); })
            .call("open").is("true")
            .calls(QStringList{"SKF_GenRandom(h1, buf, 6) = 0x00000000", "SKF_GetDevInfo(h1, ->{sn=\"OTHER01\"*"}
                   + connectLines(2).mid(0, 1) + QStringList{R"(SKF_GetDevInfo(h2, ->{sn="OTHER01",label="d*"}) = 0x00000000)", "..."})
            .log({"devtemp.SerialNumber = OTHER01, strSerialNumber = SN000014"}).out({"SN000014"}).state("OTHER01")
            .then("isNeedEnumFile", {}, "true").then("serialNumber", {}, "\"OTHER01\""),
        Row("pulled token fails to reopen").loose().aged().pull().call("open").is("false").err(SAR_DEVICE_REMOVED)
            .calls({"SKF_GenRandom(h1, buf, 6) = 0x0A000023", R"(SKF_ConnectDev("d*", ->null) = 0x0A000023)",
                    "SKF_CloseApplication(h2) = 0x0A000023", "SKF_DisConnectDev(h1) = 0x0A000023"})
            .out({"SN000015", printed("设备已移除")}),
    });
}

TW_TEST_MAIN_ISOLATED(TestSession)
#include "tst_session.moc"
