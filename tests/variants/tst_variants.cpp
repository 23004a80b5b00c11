// The Wg and Lm sessions, made by their constructors over the software token
// (answering as the Wg family's library) behind the call tracer, and driven
// by method name as rows of conformance.h.
#include <QTest>

#include <memory>

#include "devicestore.h"
#include "isolatedtest.h"
#include "sessionrows.h"
#include "package/keydriverpackage.h"
#include "session/keyobjectskf.h"
#include "skf/keydriverskf.h"
#include "variants/keyobjectlmskf.h"
#include "variants/keyobjectwgskf.h"

namespace {

const char kWg[] = "TWKeyObjectWgSKF";
const char kLm[] = "TWKeyObjectLmSKF";

// Sessions of one class on a wg-profile device, connected as a driver
// would, with the suite's package; `made` is the last one.
template <class Session>
struct Variant
{
    std::unique_ptr<KeyDriverPackage> package;
    std::unique_ptr<KeyDriverSKF> driver;
    Session *made = nullptr;

    Conformance::Options options(const KdpConfig &config = KdpConfig())
    {
        Conformance::Options o;
        o.package = config;
        o.session = [this](Conformance &suite, const QString &device) -> QObject * {
            if (!driver) {
                package = std::make_unique<KeyDriverPackage>(suite.packagePath());
                package->open();
                driver = std::make_unique<KeyDriverSKF>(package.get(), package->workPath() + QStringLiteral("/libskftrace.so"));
                driver->load();
            }
            QString error;
            DeviceStore(suite.storePath()).update(device, [](DeviceData &d) {
                d.profile = QLatin1String(DeviceData::WgProfile);
                return true;
            }, &error);
            made = new Session(package.get(), device, driver.get());
            return made->open() ? made : nullptr;
        };
        return o;
    }
};

// The session's own close (application h1, device h2) and a new connect:
// device h3, application h4, whose files are listed.
const QStringList kReconnect = closing(1, 2) + QStringList{
    R"(SKF_ConnectDev("d*", ->h3) = 0x00000000)", "SKF_GetDevInfo(h3, *", "SKF_EnumApplication(h3, null, *",
    R"(SKF_EnumApplication(h3, ->{"TW_APP "}, *) = 0x00000000)", R"(SKF_OpenApplication(h3, "TW_APP", ->h4) = 0x00000000)",
    "SKF_EnumFiles(h4, null, *", "SKF_EnumFiles(h4, *"};
const QString kUserLogin = R"(SKF_VerifyPIN(h*, 1, "12345678", ->*) = 0x00000000)";

void apps(DeviceData &d, const QStringList &names)
{
    const DeviceData::App app = d.apps[0];
    d.apps.clear();
    for (const QString &name : names) {
        d.apps << app;
        d.apps.last().name = name;
    }
}

// An object whose bytes 4 to 19 hold `number` as text, then `content`.
QByteArray object(const QByteArray &number, const QByteArray &content = "content")
{
    return QByteArray(4, '\x01') + number.leftJustified(16, '\0') + content;
}

// "hi" behind a header as the Lm session writes it for the number
// `digits`, as the runner shows it.
QString headed(const QByteArray &digits)
{
    QByteArray h(64, '\0');
    h.replace(8, digits.size(), digits);
    h[48] = h[50] = 1;
    h[56] = 2;
    return shownBytes(h + "hi");
}

// A store of the Lm family: a name of no kind, objects (11, 7, 1, 6 and 33;
// one too short, one without a number), a digit file 7 behind the object
// of that number, a seal file.
void objects(DeviceData &d)
{
    const QList<QPair<QString, QByteArray>> files = {
        {"abc", "a"}, {"PUBOBJ2", object("6")}, {"7", "seven"}, {"kfs_seal_1", "s"},
        {"PUBOBJ9", object("a", QByteArray(32, '.') + "payload")}, {"PUBOBJ1", object("3", "")},
        {"PUBOBJ4", object(" 0 ")}, {"PUBOBJA", object("5")}, {"PUBOBJB", object("20")}, {"PUBOBJZ", object("zz")}};
    for (const auto &f : files)
        file(f.first, f.second)(d);
}

// What both classes share: the session kept by a look at the file store,
// close that closes, the real closeContainer, the files listed at opening
// failing whole, the looser writeFileV1, the one-try unblocks.
QList<Row> probing(const char *tag, const char *pinInfoWord)
{
    return {
        Row("open within the clock asks nothing").call("open").is("true").calls({}).log({" timeTemp: %d"}),
        Row("after the clock one size query").aged().call("open").is("true")
            .calls({"SKF_EnumFiles(h1, null, 0->1) = 0x00000000"})
            .log({" SKF_EnumFiles start", " SKF_EnumFiles end", " enumFiles", "- SKF_ConnectDev"}),
        Row("failed probe connects again").loose().aged().fault("SKF_EnumFiles", SAR_FAIL).call("open").is("true")
            .calls(QStringList{"SKF_EnumFiles(h1, null, 0->0) = 0x0A000001"} + kReconnect)
            .log({" SKF_EnumFiles start", "[closeV1] start", " SKF_ConnectDev", " SKF_ConnectDev ok", " SKF_GetDevInfo ", " openApplication", " SKF_EnumApplication 3 ulSize: %d",
                  " appNameList: TW_APP*",
                  "[enumApplication] end", "[openApplication] start", "[openApplication] end", "[openApplication] end"}),
        Row("pulled token: no second close, no words").aged().pull().call("open").is("false").err(SAR_DEVICE_REMOVED)
            .calls(QStringList{"SKF_EnumFiles(h1, null, *) = 0x0A000023"} + closing(1, 2)
                   + QStringList{R"(SKF_ConnectDev("d*", ->null) = 0x0A000023)"})
            .log({errorLine(" SKF_ConnectDev failed,ret = %d ", SAR_DEVICE_REMOVED)}).out({}),
        Row("application fails: disconnect").loose().before("close").fault("SKF_OpenApplication", SAR_FAIL).call("open")
            .is("false").err(SAR_FAIL)
            .calls({"SKF_ConnectDev(*", "SKF_GetDevInfo(*", "SKF_EnumApplication(*", "SKF_EnumApplication(*",
                    "SKF_OpenApplication(h1, \"TW_APP\", ->null) = 0x0A000001", "SKF_DisConnectDev(h1) = 0x00000000"})
            .log({"[openApplication] end", "[openApplication] end. app = null", "! openApplication failed,DisConnectDev."}),
        Row("the application list's size fails").loose().before("close").fault("SKF_EnumApplication", SAR_FAIL).call("open")
            .is("false").out({printed("fail", tag)}).log({errorLine("SKF_EnumApplication failed.ret = %d", SAR_FAIL), " end. appNameList.count = 0"}),
        Row("the application list fails").loose().before("close").second("SKF_EnumApplication", SAR_FAIL).call("open").is("false")
            .err(SAR_FAIL).out({printed("fail", tag)}).log({errorLine("SKF_EnumApplication failed.ret = %d", SAR_FAIL)}),
        Row("close closes").call("close").is("").calls(closing(1, 2)).log({"[close] start", "[closeV1] start", "[close] end"})
            .then("GetPINInfo", {1, 1}, "0"),
        Row("deleting the session closes it").call("deleteLater").calls(closing(1, 2)).log({"[closeV1] start"}),
        Row("closeContainer gives the handle back").loose().before("openContainer", {"c1"}, "c").call("closeContainer", {ref("c")})
            .calls({"SKF_CloseContainer(h1) = 0x00000000"}).log({" SKF_CloseContainer", " end"}),
        Row("closeContainer(null) leaves the last error").loose().call("closeContainer", {nullHandle()}).calls({})
            .log({" end. container = null"}),
        Row("size query of the listing fails: closed").fault("SKF_EnumFiles", SAR_FAIL).call("enumFiles").is("{}")
            .err(SAR_FAIL).calls(QStringList{"SKF_EnumFiles(h1, null, 0->0) = 0x0A000001"} + closing(1, 2))
            .log({errorLine(" SKF_EnumFiles failed,ret = %d", SAR_FAIL), " end "}).then("GetPINInfo", {1, 1}, "0"),
        Row("writeFileV1 passes a failed deletion").loose().token(file("f1", "old")).fault("SKF_DeleteFile", SAR_FAIL)
            .call("writeFileV1", {"f1", bin("new")}).is("false").err(SAR_FILE_ALREADY_EXIST)
            .calls({"SKF_EnumFiles(h1, null, *", "SKF_EnumFiles(h1, *", R"(SKF_GetFileInfo(h1, "f1", *) = 0x00000000)",
                    R"(SKF_DeleteFile(h1, "f1") = 0x0A000001)", R"(SKF_CreateFile(h1, "f1", 3, 0xFF, 0xFF) = 0x0A00002F)"})
            .log({errorLine(" SKF_CreateFile failed,ret = %d", SAR_FILE_ALREADY_EXIST), "- SKF_DeleteFile failed*"}),
        Row("resetUserPin tries once").loose().call("resetUserPin").is("false").err(SAR_PIN_INCORRECT)
            .calls({R"(SKF_UnblockPIN(h1, "QmVR2kdLZTTHpXsa", "482915", ->*) = 0x0A000024)"})
            .log({" SKF_UnblockPIN", errorLine(" SKF_UnblockPIN failed,ret = %d", SAR_PIN_INCORRECT)}),
        Row("resetUserPin with the built-in admin PIN").token([](DeviceData &d) { d.apps[0].admin.set(kBuiltIn); })
            .call("resetUserPin").is("true").log({" SKF_UnblockPIN", "[resetUserPin] end"}),
        Row("resetUserPinV1 without PINs: the built-in ones")
            .token([](DeviceData &d) { d.apps[0].admin.set(kBuiltIn); }).call("resetUserPinV1", {"", ""}).is("true")
            .calls({R"(SKF_UnblockPIN(h1, "QmVR2kdLZTTHpXsa", "482915", ->*) = 0x00000000)"}),
        Row("refused PIN prints nothing").loose().fault("SKF_VerifyPIN", SAR_PIN_INCORRECT).call("verifyPinEx", {kUser, false})
            .is("false").err(SAR_PIN_INCORRECT).log({errorLine(" SKF_VerifyPIN failed,ret = %d", SAR_PIN_INCORRECT)})
            .out({}),
        Row("the class's own error tag").loose().fault("SKF_CreateContainer", SAR_FAIL).call("createContainer", {"n1"})
            .is("null").err(SAR_FAIL).out({printed("fail", tag)}),
        Row("PIN information word").call("GetPINInfo", {1, 1}).is("6").log({pinInfoWord}),
    };
}

} // namespace

class TestVariants : public QObject
{
    Q_OBJECT

private slots:
    void wg()
    {
        Variant<KeyObjectWgSKF> wg;
        Conformance suite(wg.options());
        suite.run(probing(kWg, " SKF_GetPINInfo_wg ") + QList<Row>{
            Row("verifyPinEx starts on a new connection").loose().call("verifyPinEx", {kUser, false}).is("true")
                .calls(kReconnect + QStringList{R"(SKF_VerifyPIN(h4, 1, "12345678", ->*) = 0x00000000)"})
                .log({"[close] start", " SKF_ConnectDev ok", "[verifyPinEx] start", " serialNumber(A) = SN*"}),
            Row("readFile starts on a new connection").loose().token(file("f1", "hi")).call("readFile", {"f1"}).is("[2]6869")
                .calls(kReconnect + QStringList{R"(SKF_GetFileInfo(h4, "f1", *)", R"(SKF_ReadFile(h4, "f1", *)"}),
            Row("openContainer starts on a new connection").loose().call("openContainer", {"c1"}).is("handle")
                .calls(kReconnect + QStringList{R"(SKF_OpenContainer(h4, "c1", ->h5) = 0x00000000)"}),
            Row("exportAllCertificate opens through this class").loose().call("exportAllCertificate", {true})
                .is(R"({"c2lnbi1jZXJ0LWMx"})").err(SAR_CERTNOTFOUNTERR).out({"*"})
                .calls(QStringList{"SKF_EnumContainer(h1, *", "SKF_EnumContainer(h1, *"} + kReconnect
                       + QStringList{R"(SKF_OpenContainer(h4, "c1", *)", "SKF_ExportCertificate(*", "SKF_ExportCertificate(*",
                                     "SKF_CloseApplication(h4) = *", "...", R"(SKF_OpenContainer(*, "r1", *)", "..."}),
            Row("no PIN yet: straight to the name checks").loose().call("createContainer", {"n1"}).is("null")
                .err(SAR_USER_NOT_LOGGED_IN).out({"*"})
                .calls({"SKF_EnumContainer(h1, *", "SKF_EnumContainer(h1, *", R"(SKF_CreateContainer(h1, "n1", ->null) = 0x0A00002D)"}),
            Row("the PIN is given again by serial number").loose().before("verifyPinEx", {kUser, false})
                .call("createContainer", {"n1"}).is("handle")
                .calls(kReconnect + QStringList{kUserLogin, "SKF_EnumContainer(h4, *", "SKF_EnumContainer(h4, *",
                                                R"(SKF_CreateContainer(h4, "n1", *) = 0x00000000)"})
                .log({" serialNumber(A) = SN*", "[verifyPinEx] start", "[createContainer] start"}),
            Row("PIN changed elsewhere: refused before the library").loose().before("verifyPinEx", {kUser, false})
                .change([](DeviceData &d) { d.apps[0].user.set("87654321"); }).call("createContainer", {"n1"}).is("null")
                .err(SAR_PIN_INCORRECT).calls(kReconnect + QStringList{R"(SKF_VerifyPIN(h4, 1, "12345678", ->*) = 0x0A000024)"})
                .log({"-[createContainer] start"}).out({}),
            Row("admin PIN kept in the same entry").loose().before("verifyPinEx", {kAdmin, true})
                .call("createContainer", {"n1"}).is("null").err(SAR_PIN_INCORRECT)
                .calls(kReconnect + QStringList{R"(SKF_VerifyPIN(h4, 1, "88888888", ->*) = 0x0A000024)"}),
            Row("null container: the guard, no replay").before("verifyPinEx", {kUser, false})
                .call("importRSAKeyPair", {nullHandle(), 1, bin("k"), bin("d")}).is("false").err(SAR_INVALIDHANDLEERR)
                .calls({}),
            Row("importRSAKeyPair replays past its guards").loose().before("openContainer", {"r1"}, "c")
                .before("verifyPinEx", {kUser, false}).call("importRSAKeyPair", {ref("c"), 1, bin("k"), bin("d")})
                .is("false").err(SAR_INVALIDHANDLEERR).out({"*"})
                .calls(kReconnect + QStringList{kUserLogin, "SKF_ImportRSAKeyPair(* = 0x0A000005"})
                .log({"[importRSAKeyPair] start", "[verifyPinEx] start", " SKF_ImportRSAKeyPair"}),
            Row("eccExportSessionKey logs no cipher blob").loose().before("openContainer", {"c1"}, "c")
                .before("exportPublicKey", {ref("c"), true}, "pk")
                .call("eccExportSessionKey", {ref("c"), SGD_SM4_ECB, ref("pk"), outHandle("k")})
                .log({"[eccExportSessionKey] start", "-! pstEccCipherBlob*"}),
        });
    }

    // The application list is the class's own, reached here directly; the
    // session opens the first name.
    void wgApplicationNames()
    {
        Variant<KeyObjectWgSKF> wg;
        Conformance suite(wg.options());
        const QList<QPair<QStringList, QStringList>> cases = {{{"A", "B"}, {"A", "B"}}, {{"A", "", "B"}, {"A", "", "B"}}};
        for (const auto &c : cases) {
            suite.run({Row(c.first.join('|')).token([&c](DeviceData &d) { apps(d, c.first); }).call("labelName")
                           .then("GetPINInfo", {1, 1}, "6")});
            QCOMPARE(wg.made->enumApplication(), c.second);
        }
    }

    void lm()
    {
        Variant<KeyObjectLmSKF> lm;
        Conformance suite(lm.options());
        const auto shortObject = file("PUBOBJ1", object("3", ""));
        suite.run(probing(kLm, " SKF_GetPINInfo_lm ") + QList<Row>{
            Row("verifyPinEx on the open session").call("verifyPinEx", {kUser, false}).is("true")
                .calls({R"(SKF_VerifyPIN(h1, 1, "12345678", ->*) = 0x00000000)"}),
            Row("new label without a read").before("SetlabelName", {"new label"}).call("labelName").is("\"new label\"")
                .calls({}).then("serialNumber", {}, "\"SN*\""),
            Row("a multi-byte label cut short").call("SetlabelName", {"标签名"}).log({"[SetlabelName] Changed DevInfo"}).then("labelName", {}, "\"标\""),
            Row("open reads each object once").loose().token(objects).before("close").call("open").is("true")
                .calls(QStringList{"SKF_ConnectDev(*", "SKF_GetDevInfo(*", "SKF_EnumApplication(*", "SKF_EnumApplication(*",
                                   "SKF_OpenApplication(*", "SKF_EnumFiles(*", "SKF_EnumFiles(*"}
                       + [] {
                             QStringList reads;
                             for (const char c : QByteArray("2914ABZ"))
                                 reads << QStringLiteral("SKF_GetFileInfo(h2, \"PUBOBJ%1\"*").arg(c)
                                       << QStringLiteral("SKF_ReadFile(h2, \"PUBOBJ%1\"*").arg(c);
                             return reads;
                         }()),
            Row("a plain store lists every name").token([](DeviceData &d) {
                    file("abc", "a")(d);
                    file("kfs_seal_1", "s")(d);
                    file("7", "seven")(d);
                }).call("enumFiles").is(R"({"abc","kfs_seal_1","7"})").then("readFile", {"7"}, "[5]736576656e"),
            Row("a digit file beside no object of its number").loose().token([&](DeviceData &d) { shortObject(d); file("7", "")(d); })
                .call("enumFiles").is(R"({"7"})").log({"[enumFiles] insert strName(B): 7;  value: 7"}),
            Row("objects by number, other names hidden").token(objects).call("enumFiles").is(R"({"7","kfs_seal_1","11","1","6","33"})")
                .calls(QStringList{"SKF_EnumFiles(h1, null, *", "SKF_EnumFiles(h1, *"} + QStringList{
                    R"(SKF_GetFileInfo(h1, "PUBOBJ2", *)", R"(SKF_ReadFile(h1, "PUBOBJ2", 0, 27, *)", "...",
                    R"(SKF_ReadFile(h1, "PUBOBJZ", *)"})
                .log({"[enumFiles] value: abc", "[enumFiles] insert strName(A): key: 7;  value: PUBOBJ2", " updata strName: 7;  value: 7",
                      "[enumFiles] iNam(PUBOBJ): 10", " insert strName(A): key: 11;  value: PUBOBJ9", " iNam(PUBOBJ): 0"})
                .then("enumFiles", {}, R"({"7","kfs_seal_1","11","1","6","33"})"),
            Row("an object reads less 52 bytes").loose().token(objects).call("readFile", {"11"}).is("[7]7061796c6f6164")
                .calls({"...", R"(SKF_GetFileInfo(h1, "PUBOBJ9", *)", R"(SKF_ReadFile(h1, "PUBOBJ9", *)"})
                .log({"[readFile] P11 fileName: PUBOBJ9"}),
            Row("a digit file reads whole").loose().token(objects).call("readFile", {"7"}).is("[5]736576656e"),
            Row("create 5 with no object taken").loose().token(shortObject).call("createFile", {"5", 8}).is("true")
                .calls({"...", R"(SKF_CreateFile(h1, "PUBOBJ4", 8, 0xFF, 0xFF) = 0x00000000)"})
                .log({"[createFile] P11 fileName(A): 5", "[createFile] P11 fileName: PUBOBJ4"}),
            Row("create 5 past PUBOBJ4").loose().token(objects).call("createFile", {"5", 8}).is("true")
                .calls({"...", R"(SKF_CreateFile(h1, "PUBOBJ5", *)"}).log({" key: 1, value: PUBOBJ4"}),
            Row("taken in any case").loose().token(objects).call("createFile", {"12", 8})
                .calls({"...", R"(SKF_CreateFile(h1, "PUBOBJc", *)"}),
            Row("17 is PUBOBJ10").loose().token(shortObject).call("createFile", {"17", 8})
                .calls({"...", R"(SKF_CreateFile(h1, "PUBOBJ10", *)"}),
            Row("the last index stands though taken").loose().token(file("PUBOBJ3e6", object("40"))).call("createFile", {"999", 8})
                .err(SAR_FILE_ALREADY_EXIST)
                .calls({"...", R"(SKF_CreateFile(h1, "PUBOBJ3e6", *)"}),
            Row("1000 is a plain file").loose().token(shortObject).call("createFile", {"1000", 8})
                .calls({"...", R"(SKF_CreateFile(h1, "1000", *)"}).log({"[createFile] P11 fileName: 1000"}),
            Row("a mapped number goes to its object").loose().token(objects).call("createFile", {"11", 8}).is("false")
                .err(SAR_FILE_ALREADY_EXIST)
                .calls({"...", R"(SKF_CreateFile(h1, "PUBOBJ9", 8, *)"}),
            Row("without objects no mapping").token(file("x", "1")).call("createFile", {"5", 8})
                .calls({"SKF_EnumFiles(*", "SKF_EnumFiles(*", R"(SKF_CreateFile(h1, "5", *)"}).log({"-* P11*"}),
            Row("writeFile heads a mapped digit file").loose().token(objects).call("writeFile", {"7", 0, bin("hi")})
                .is("false").err(SAR_INDATALENERR)
                .calls({"...", QStringLiteral(R"(SKF_WriteFile(h1, "7", 0, %1, 66) = *)").arg(headed("6"))})
                .log({"[writeFile] P11 fileName: 7"}),
            Row("writeFile of an unmapped name as it stands").loose().token(objects).call("writeFile", {"99", 0, bin("hi")})
                .err(SAR_FILE_NOT_EXIST).calls({"...", R"(SKF_WriteFile(h1, "99", 0, [2]6869, 2) = *)"})
                .log({"-[writeFile] P11*"}),
            Row("writeFileV1 leaves a digit file bare").loose().token(objects).call("writeFileV1", {"7", bin("hi")})
                .is("true").calls({"...", R"(SKF_CreateFile(h1, "7", 2, 0xFF, 0xFF) = 0x00000000)", R"(SKF_WriteFile(h1, "7", 0, [2]6869, 2) = *)"})
                .log({"[writeFileV1] P11 fileName(A): 7"}),
            Row("writeFileV1 makes a new object").loose().token(objects).call("writeFileV1", {"5", bin("hi")}).is("true")
                .calls({"...", R"(SKF_GetFileInfo(h1, "5", *) = 0x0A000031)", R"(SKF_CreateFile(h1, "PUBOBJ5", 66, *)",
                        QStringLiteral(R"(SKF_WriteFile(h1, "PUBOBJ5", 0, %1, 66) = *)").arg(headed("4"))})
                .log({"[writeFileV1] P11 fileName(A): 5", "[writeFileV1] P11 fileName(B): PUBOBJ5"}),
            Row("deleteFile by number").loose().token(objects).call("deleteFile", {"11"}).is("true")
                .calls({"...", R"(SKF_DeleteFile(h1, "PUBOBJ9") = 0x00000000)"}).log({"[deleteFile] P11 fileName: PUBOBJ9"})
                .then("enumFiles", {}, R"({"7","kfs_seal_1","1","6","33"})"),
            Row("deleteFile of an unknown number").loose().token(objects).call("deleteFile", {"99"}).is("false")
                .err(SAR_FILE_NOT_EXIST)
                .calls({"...", R"(SKF_DeleteFile(h1, "99") = 0x0A000031)"}),
            Row("formatKey deletes through the map").loose().token(objects).call("formatKey").err(SAR_PIN_INCORRECT)
                .calls({"...", R"(SKF_DeleteFile(h1, "PUBOBJ9") = 0x00000000)", "..."}),
        });
    }

    // The one package family whose failed create means a full store: not so
    // here, for either class.
    void cfcaPackage()
    {
        KdpConfig config;
        config.name = QStringLiteral("CFCA");
        Variant<KeyObjectWgSKF> wg;
        Conformance suite(wg.options(config));
        suite.run({Row("create failure as it is").loose().fault("SKF_CreateFile", SAR_FAIL).call("writeFileV1", {"f1", bin("abc")})
                       .is("false").err(SAR_FAIL).log({errorLine(" SKF_CreateFile failed,ret = %d", SAR_FAIL)})});
    }

    // Each class has KeyObjectSKF's method table as its own, behind KeyObject's.
    void methodTables()
    {
        const auto forms = [](const QMetaObject &m) {
            QStringList out;
            for (int i = m.methodOffset(); i < m.methodCount(); ++i)
                out << QString::fromLatin1(m.method(i).typeName() + QByteArray(" ") + m.method(i).methodSignature());
            return out;
        };
        for (const QMetaObject *meta : {&KeyObjectWgSKF::staticMetaObject, &KeyObjectLmSKF::staticMetaObject}) {
            QCOMPARE(meta->superClass(), &KeyObject::staticMetaObject);
            QCOMPARE(forms(*meta), forms(KeyObjectSKF::staticMetaObject));
        }
    }
};

TW_TEST_MAIN_ISOLATED(TestVariants)
#include "tst_variants.moc"
