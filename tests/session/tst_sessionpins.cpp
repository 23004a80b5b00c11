// PINs and formatting of the SKF session, as rows of conformance.h.
#include <QTest>

#include "isolatedtest.h"
#include "sessionrows.h"

namespace {

void adminPin(DeviceData &d, const char *pin) { d.apps[0].admin.set(QByteArray(pin)); }

const auto builtInAdmin = [](DeviceData &d) { adminPin(d, kBuiltIn); };
const auto otherAdmin = [](DeviceData &d) { adminPin(d, "77777777"); };
const auto twoFiles = [](DeviceData &d) {
    file("f1", "1")(d);
    file("f2", "22")(d);
};
const QString kUnblockFirst = R"(SKF_UnblockPIN(h1, "QmVR2kdLZTTHpXsa", "482915", ->*) = *)";

} // namespace

class TestSessionPins : public QObject
{
    Q_OBJECT

private slots:
    void pins()
    {
        Conformance suite;
        suite.run({
            Row("user PIN").call("verifyPin", {kUser, false}).is("true")
                .calls({R"(SKF_VerifyPIN(h1, 1, "12345678", ->6) = 0x00000000)"})
                .log({"[verifyPinEx] start", "[verifyPinEx] SKF_VerifyPIN", "[verifyPinEx] end"}),
            Row("user PIN of five").call("verifyPin", {"12345", false}).is("false").err(TW_ERR_OLD_PIN_LEN).calls({})
                .log({" pinCode length: 5", " end . oldPin len error"}),
            Row("user PIN of seventeen").call("verifyPin", {"12345678901234567", false}).is("false").err(TW_ERR_OLD_PIN_LEN)
                .calls({}).log({" pinCode length: 17"}),
            Row("user PIN of six reaches the token").call("verifyPin", {"123456", false}).is("false").err(SAR_PIN_INCORRECT)
                .calls({R"(SKF_VerifyPIN(h1, 1, "123456", ->5) = 0x0A000024)"})
                .log({" SKF_VerifyPIN", errorLine(" SKF_VerifyPIN failed,ret = %d", SAR_PIN_INCORRECT), " end."})
                .out({printed("密码错误")}),
            Row("user PIN of sixteen reaches the token").call("verifyPin", {"1234567890123456", false}).is("false")
                .err(SAR_PIN_INCORRECT).calls({R"(SKF_VerifyPIN(h1, 1, "1234567890123456", ->5) = 0x0A000024)"})
                .out({printed("密码错误")}),
            Row("admin PIN of two reaches the token").call("verifyPin", {"88", true}).is("false").err(SAR_PIN_INCORRECT)
                .calls({R"(SKF_VerifyPIN(h1, 0, "88", ->9) = 0x0A000024)"}).out({printed("密码错误")}),
            onClosed("verifyPinEx", {kUser, false}, "false"),

            Row("change user PIN").call("changePIN", {false, kUser, "87654321"}).is("true")
                .calls({R"(SKF_ChangePIN(h1, 1, "12345678", "87654321", ->6) = 0x00000000)"}).log({" SKF_ChangePIN", " end"})
                .then("verifyPin", {"87654321", false}, "true"),
            Row("both user PINs short: the old one counts").call("changePIN", {false, "123", "456"}).is("false")
                .err(TW_ERR_OLD_PIN_LEN).calls({}).log({" end . oldPin len error"}),
            Row("new user PIN short").call("changePIN", {false, kUser, "12345"}).is("false").err(TW_ERR_NEW_PIN_LEN)
                .calls({}).log({" end . newPin len error"}),
            Row("admin PINs are not measured").call("changePIN", {true, "88", "123"}).is("false").err(SAR_PIN_LEN_RANGE)
                .calls({R"(SKF_ChangePIN(h1, 0, "88", "123", ->0) = 0x0A000027)"})
                .log({errorLine(" SKF_ChangePIN failed,ret = %d", SAR_PIN_LEN_RANGE), " end."}),
            onClosed("changePIN", {false, "1", "2"}, "false"),

            Row("unblock with the built-in admin PIN").token(builtInAdmin).call("resetUserPin").is("true")
                .calls({kUnblockFirst.left(kUnblockFirst.size() - 1) + "0x00000000"})
                .then("verifyPin", {kDefaultUser, false}, "true"),
            Row("unblock fails without a package admin PIN").open({"resetUserPin"}).call("resetUserPin").is("false").err(SAR_PIN_INCORRECT)
                .calls({kUnblockFirst}).log({errorLine(" SKF_UnblockPIN first failed,ret = %d", SAR_PIN_INCORRECT)}),
            onClosed("resetUserPin", {}, "false"),
            Row("unblock with an empty admin PIN is a success").open({"resetUserPin", "resetUserPinV1"}).call("resetUserPinV1", {"", "11112222"}).is("true")
                .err(SAR_PIN_INCORRECT).calls({kUnblockFirst}).log({" AdminPinLength: 0", " NewUserPinLength: 8"}),
            Row("unblock to a given user PIN").call("resetUserPinV1", {kAdmin, "11112222"}).is("true")
                .calls({R"(SKF_UnblockPIN(h1, "88888888", "11112222", ->10) = 0x00000000)"})
                .log({" SKF_UnblockPIN"}).then("verifyPin", {"11112222", false}, "true"),
            Row("unblock with a wrong admin PIN").open({"resetUserPinV1"}).call("resetUserPinV1", {"99999999", ""}).is("false").err(SAR_PIN_INCORRECT)
                .calls({R"(SKF_UnblockPIN(h1, "99999999", "482915", ->9) = 0x0A000024)"})
                .log({errorLine(" SKF_UnblockPIN failed,pulRetryCount = %d", 9),
                      errorLine(" SKF_UnblockPIN failed,ret = %d", SAR_PIN_INCORRECT)}),
            Row("unblock on a removed token keeps the session").open({"resetUserPinV1"}).fault("SKF_UnblockPIN", SAR_DEVICE_REMOVED)
                .call("resetUserPinV1", {kAdmin, ""}).is("false").err(SAR_DEVICE_REMOVED).calls({"SKF_UnblockPIN(*"})
                .then("GetPINInfo", {1, 1}, "6"),
            onClosed("resetUserPinV1", {kAdmin, kUser}, "false"),

            Row("admin PIN already the built-in one").token(builtInAdmin).call("resetAdminPin").is("true")
                .calls({R"(SKF_VerifyPIN(h1, 0, "QmVR2kdLZTTHpXsa", ->10) = 0x00000000)"}).log({"[resetAdminPin] end"}),
            Row("no package admin PIN: success on paper").call("resetAdminPin").is("true").err(SAR_PIN_INCORRECT)
                .calls({R"(SKF_VerifyPIN(h1, 0, "QmVR2kdLZTTHpXsa", ->9) = 0x0A000024)"})
                .log({" strDefaultAdminPin: ", "[resetAdminPin] end"}).out({printed("密码错误")}),
            onClosed("resetAdminPin", {}, "false"),

            Row("user retries left").call("GetPINInfo", {1, 1}).is("6")
                .calls({"SKF_GetPINInfo(h1, 1, ->6, ->6, ->1) = 0x00000000"}).log({" SKF_GetPINInfo "}),
            Row("admin retries at most").call("GetPINInfo", {0, 0}).is("10").calls({"SKF_GetPINInfo(h1, 0, ->10, ->10, ->1) = 0x00000000"}),
            Row("no such answer").call("GetPINInfo", {1, 2}).is("0").calls({"SKF_GetPINInfo(h1, 1, *"}),
            Row("locked user PIN").token([](DeviceData &d) { d.apps[0].user.remaining = 0; }).call("GetPINInfo", {1, 1})
                .is("0").calls({"SKF_GetPINInfo(h1, 1, ->6, ->0, ->1) = 0x00000000"}),
            Row("PIN info fails").open({"GetPINInfo"}).fault("SKF_GetPINInfo", SAR_FAIL).call("GetPINInfo", {1, 0}).is("0").err(SAR_FAIL)
                .calls({"SKF_GetPINInfo(h1, 1, ->0, ->0, ->0) = 0x0A000001"})
                .log({errorLine(" SKF_GetPINInfo failed,ret = %d", SAR_FAIL)}).then("GetPINInfo", {1, 0}, "6"),
            onClosed("GetPINInfo", {1, 1}, "0"),
        });
    }

    // A package that keeps an administrator PIN of its own: 88888888.
    void packageAdminPin()
    {
        KdpConfig package;
        package.ap = KdpFixture::encodeAdminPin(kAdmin);
        Conformance suite(package);
        suite.run({
            Row("unblock: the package's admin PIN second").call("resetUserPin").is("true")
                .calls({kUnblockFirst, R"(SKF_UnblockPIN(h1, "88888888", "482915", ->10) = 0x00000000)"})
                .log({" SKF_UnblockPIN first", errorLine(" SKF_UnblockPIN first failed,ret = %d", SAR_PIN_INCORRECT),
                      " strDefaultAdminPin: " + *package.ap, " SKF_UnblockPIN second", "[resetUserPin] end"}),
            Row("unblock: both admin PINs fail").open({"resetUserPin"}).token(otherAdmin).call("resetUserPin").is("false").err(SAR_PIN_INCORRECT)
                .calls({kUnblockFirst, R"(SKF_UnblockPIN(h1, "88888888", "482915", ->8) = 0x0A000024)"})
                .log({"-*second failed*"}),
            Row("admin PIN moved to the built-in one").call("resetAdminPin").is("true").err(SAR_PIN_INCORRECT)
                .calls({R"(SKF_VerifyPIN(h1, 0, "QmVR2kdLZTTHpXsa", ->9) = 0x0A000024)",
                        R"(SKF_VerifyPIN(h1, 0, "88888888", ->10) = 0x00000000)",
                        R"(SKF_ChangePIN(h1, 0, "88888888", "QmVR2kdLZTTHpXsa", ->10) = 0x00000000)"})
                .out({printed("密码错误")}).then("verifyPin", {kBuiltIn, true}, "true"),
            Row("admin reset: neither PIN verifies").token(otherAdmin).call("resetAdminPin").is("false").err(SAR_PIN_INCORRECT)
                .calls({"SKF_VerifyPIN(h1, 0, \"QmVR2kdLZTTHpXsa\", *", "SKF_VerifyPIN(h1, 0, \"88888888\", *"})
                .log({" end. DefaultAdminPin fail"}).out({printed("密码错误"), printed("密码错误")}),
            Row("admin reset: the change fails").fault("SKF_ChangePIN", SAR_FAIL).call("resetAdminPin").is("false")
                .err(SAR_FAIL).calls({"SKF_VerifyPIN(*", "SKF_VerifyPIN(*", "SKF_ChangePIN(* = 0x0A000001"})
                .log({" end. change Admin PIN fail"}).out({printed("密码错误")}),
        });
    }

    void format()
    {
        Conformance suite;
        suite.run({
            Row("format deletes the files").token([](DeviceData &d) {
                    twoFiles(d);
                    adminPin(d, kBuiltIn);
                }).call("formatKey").is("true")
                .calls({"SKF_EnumFiles(h1, null, 0->7) = 0x00000000", R"(SKF_EnumFiles(h1, ->{"f1","f2"}, 7->7) = 0x00000000)",
                        R"(SKF_DeleteFile(h1, "f1") = 0x00000000)", R"(SKF_DeleteFile(h1, "f2") = 0x00000000)",
                        R"(SKF_VerifyPIN(h1, 0, "QmVR2kdLZTTHpXsa", ->10) = 0x00000000)"})
                .log({" delete file succeed. FileName: f1", " delete file succeed. FileName: f2", "[formatKey] end", "- strDefaultAdminPin: *"})
                .then("enumContainer", {}, R"({"c1","r1"})"),
            Row("failed deletions do not count").open({"verifyPinEx", "deleteFile"}).token([](DeviceData &d) {
                    twoFiles(d);
                    adminPin(d, kBuiltIn);
                }).fault("SKF_DeleteFile", SAR_FAIL, 2).call("formatKey").is("true").err(SAR_FAIL)
                .log({" delete file fail. FileName: f1", " delete file fail. FileName: f2"}).then("enumFiles", {}, R"({"f1","f2"})"),
            Row("neither admin PIN verifies").token(twoFiles).call("formatKey").is("false").err(SAR_PIN_INCORRECT)
                .calls({"SKF_EnumFiles(*", "SKF_EnumFiles(*", "SKF_DeleteFile(*", "SKF_DeleteFile(*",
                        R"(SKF_VerifyPIN(h1, 0, "QmVR2kdLZTTHpXsa", ->9) = 0x0A000024)", R"(SKF_VerifyPIN(h1, 0, "", ->8) = 0x0A000024)"})
                .log({" strDefaultAdminPin: ", " end. DefaultAdminPin fail"}).out({printed("密码错误"), printed("密码错误")})
                .then("enumFiles", {}, "{}"),
            onClosed("formatKey", {}, "false"),
        });
    }
};

TW_TEST_MAIN_ISOLATED(TestSessionPins)
#include "tst_sessionpins.moc"
