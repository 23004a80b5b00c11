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

TW_TEST_MAIN_ISOLATED(TestSession)
#include "tst_session.moc"
