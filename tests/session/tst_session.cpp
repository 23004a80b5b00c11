// The SKF session, black-box: rows of conformance.h against the software
// token behind the call tracer, through the test host, by method name.
#include <QTest>

#include "conformance.h"
#include "devicedata.h"
#include "isolatedtest.h"
#include "skf/skfapi.h"

using namespace conf;

class TestSession : public QObject
{
    Q_OBJECT

private slots:
    void pins();
    void openAndClose();
};

void TestSession::pins()
{
    Conformance suite;
    suite.run({
        Row("user PIN").call("verifyPin", {"12345678", false}).is("true")
            .calls({"SKF_VerifyPIN(h1, 1, \"12345678\", ->6) = 0x00000000"}).log({" SKF_VerifyPIN", " end"}),
        Row("user PIN of five").call("verifyPin", {"12345", false}).is("false").err(TW_ERR_OLD_PIN_LEN)
            .calls({}).log({" pinCode length: 5", " end . oldPin len error"}),
        Row("wrong user PIN").call("verifyPin", {"87654321", false}).is("false").err(SAR_PIN_INCORRECT)
            .calls({"SKF_VerifyPIN(h1, 1, \"87654321\", ->5) = 0x0A000024"})
            .log({" SKF_VerifyPIN", errorLine(" SKF_VerifyPIN failed,ret = %d", SAR_PIN_INCORRECT), " end."})
            .out({printed("密码错误")}),
    });
}

namespace {

const QString kOk = QStringLiteral(" = 0x00000000");
// What the manager's count() asks before the session's own open.
const QStringList kEnumDev = {"SKF_EnumDev(1, null, 0->*) = 0x00000000", "SKF_EnumDev(1, ->{\"d*\"}, *) = 0x00000000"};
// A connect of the standard token: device, application and container
// handles h<first>, h<first+1>, h<first+2>.
QStringList connectLines(int first = 1)
{
    const QString dev = QStringLiteral("h%1").arg(first), app = QStringLiteral("h%1").arg(first + 1);
    return {
        QStringLiteral(R"(SKF_ConnectDev("d*", ->%1) = 0x00000000)").arg(dev),
        QStringLiteral(R"(SKF_GetDevInfo(%1, ->{sn="*",label="d*"}) = 0x00000000)").arg(dev),
        QStringLiteral(R"(SKF_EnumApplication(%1, ->{"TW_APP"}, 256->8) = 0x00000000)").arg(dev),
        QStringLiteral(R"(SKF_OpenApplication(%1, "TW_APP", ->%2) = 0x00000000)").arg(dev, app),
        QStringLiteral(R"(SKF_EnumContainer(%1, null, 0->7) = 0x00000000)").arg(app),
        QStringLiteral(R"(SKF_EnumContainer(%1, ->{"c1","r1"}, 7->7) = 0x00000000)").arg(app),
        QStringLiteral(R"(SKF_OpenContainer(%1, "c1", ->h%2) = 0x00000000)").arg(app).arg(first + 2),
    };
}
const QStringList kConnect = connectLines();

// A session that a removed token has closed: no device, no application.
Row closed(const QString &tag)
{
    return Row(tag).fault("SKF_GetPINInfo", SAR_DEVICE_REMOVED).before("GetPINInfo", {1, 1});
}

// Connected but with no application: closed, then an open whose only
// application does not open.
Row halfOpen(const QString &tag)
{
    return closed(tag).fault("SKF_OpenApplication", SAR_FAIL).before("open");
}

void noContainers(DeviceData &d)
{
    d.apps[0].containers.clear();
}

// An application APP0 without containers ahead of the standard one.
void emptyAppFirst(DeviceData &d)
{
    DeviceData::App first = d.apps[0];
    first.name = QStringLiteral("APP0");
    first.containers.clear();
    d.apps.prepend(first);
}

} // namespace

void TestSession::openAndClose()
{
    Conformance suite;
    suite.run({
        Row("new session connects").call("TWKey.count").is("1").calls(kEnumDev + kConnect)
            .log({"linux SKF_ConnectDev", "linux SKF_GetDevInfo ", " SKF_EnumApplication",
                  " SKF_EnumApplication 0 ulSize: 8", " SKF_OpenApplication success containerName= c1",
                  " KeyObjectSKF end"})
            .state("SN000001"),
        Row("open within the clock asks nothing").call("open").is("true").calls({})
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
        Row("connect fails").fault("SKF_ConnectDev", SAR_DEVICE_REMOVED).call("TWKey.count").is("0").err(SAR_USER_NOT_LOGGED_IN)
            .calls(kEnumDev + QStringList{R"(SKF_ConnectDev("d*", ->null) = 0x0A000023)"})
            .log({errorLine(" SKF_ConnectDev failed,ret = %d ", SAR_DEVICE_REMOVED)}).out({printed("设备已移除")}).state(""),
        Row("close leaves the session open").call("close").is("").calls({}).log({" start", " end"})
            .then("GetPINInfo", {1, 1}, "6"),
        closed("closed session reconnects").call("open").is("true").calls(kConnect)
            .log({"!\u0020tw_device,value = SN000009 ", "linux SKF_ConnectDev"}).out({"SN000009"}).state("SN000009"),
        closed("unchanged state file").before("open").fault("SKF_GetPINInfo", SAR_DEVICE_REMOVED).before("GetPINInfo", {1, 1})
            .call("open").is("true").calls(kConnect).log({"!key statue is not change ", "linux SKF_ConnectDev"})
            .out({"SN000010"}),
        halfOpen("connected without application, state unchanged").call("open").is("true").calls({})
            .log({"!key statue is not change ", "key statue is not change", "- SKF_ConnectDev"}).out({"SN000011"})
            .then("GetPINInfo", {1, 1}, "0"),
        Row("after the clock the same token is probed").aged().call("open").is("true")
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
        Row("pulled token fails to reopen").aged().pull().call("open").is("false").err(SAR_DEVICE_REMOVED)
            .calls({"SKF_GenRandom(h1, buf, 6) = 0x0A000023", R"(SKF_ConnectDev("d*", ->null) = 0x0A000023)",
                    "SKF_CloseApplication(h2) = 0x0A000023", "SKF_DisConnectDev(h1) = 0x0A000023"})
            .out({"SN000015", printed("设备已移除")}),
    });
}

TW_TEST_MAIN_ISOLATED(TestSession)
#include "tst_session.moc"
