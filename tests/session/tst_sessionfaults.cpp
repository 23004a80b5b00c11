// The fault matrix of the SKF session: every token function that each
// operation calls, failed once with SAR_DEVICE_REMOVED and once with SAR_FAIL
// through the software token's fault plan; the operation's shown result,
// the last error, and whether the session is closed after.
#include <QRegularExpression>
#include <QTest>

#include "isolatedtest.h"
#include "sessionrows.h"

namespace {

const QByteArray kData(32, 'd'), kParam(44, '\0');

// Operation, arguments, what it shows when it fails, set-up (letters of
// kSetUp), and the token functions it calls. "F#2" fails at the second
// call of F. Behind a name: "=keep" the last error stays, "=XXXXXXXX" it
// becomes that code; "!always" closes on any failure, "!never" on none.
// By default the last error is the code and a removed token closes.
struct Op
{
    const char *method;
    QList<Val> args;
    const char *shows;
    const char *setUp;
    const char *functions;
    quint32 only = 0; // this code alone
};

const QList<Op> kOps = {
    {"totalSpace", {}, "0", "", "SKF_GetDevInfo=keep!never"},
    {"freeSpace", {}, "0", "", "SKF_GetDevInfo=keep!never"},
    {"SetlabelName", {"L"}, "false", "", "SKF_SetLabel=keep!never"},
    {"verifyPin", {kUser, false}, "false", "", "SKF_VerifyPIN"},
    {"changePIN", {false, kUser, "87654321"}, "false", "", "SKF_ChangePIN"},
    {"resetUserPin", {}, "false", "", "SKF_UnblockPIN!never"},
    {"resetUserPinV1", {kAdmin, kUser}, "false", "", "SKF_UnblockPIN!never"},
    {"resetAdminPin", {}, "true", "", "SKF_VerifyPIN"},
    {"GetPINInfo", {1, 1}, "0", "", "SKF_GetPINInfo"},
    {"createFile", {"n1", 8}, "false", "", "SKF_CreateFile"},
    {"enumFiles", {}, "{}", "f", "SKF_EnumFiles=keep!never SKF_EnumFiles#2!always"},
    {"readFile", {"f1"}, "[0]", "f", "SKF_GetFileInfo SKF_ReadFile"},
    {"writeFile", {"f1", 0, bin("ab")}, "false", "f", "SKF_WriteFile"},
    {"deleteFile", {"f1"}, "false", "f", "SKF_DeleteFile"},
    {"writeFileV1", {"f1", bin("ab")}, "false", "f", "SKF_GetFileInfo=0A00002F!never SKF_DeleteFile SKF_CreateFile SKF_WriteFile"},
    // A removed token closes the session midway: what follows meets no application.
    {"formatKey", {}, "true", "fa", "SKF_EnumFiles=keep!never"},
    {"formatKey", {}, "false", "fa", "SKF_EnumFiles#2=0A00002D!always"},
    {"formatKey", {}, "true", "fa", "SKF_DeleteFile!never", SAR_FAIL},
    {"formatKey", {}, "false", "fa", "SKF_DeleteFile=0A00002D SKF_VerifyPIN=0A00002D", SAR_DEVICE_REMOVED},
    {"formatKey", {}, "false", "fa", "SKF_VerifyPIN=0A000024", SAR_FAIL},
    {"createContainer", {"n"}, "handle", "u", "SKF_EnumContainer!never"},
    {"createContainer", {"n"}, "handle", "u", "SKF_EnumContainer#2", SAR_FAIL},
    {"createContainer", {"n"}, "null", "u", "SKF_EnumContainer#2=0A000005", SAR_DEVICE_REMOVED},
    {"createContainer", {"n"}, "null", "u", "SKF_CreateContainer"},
    {"deleteContainer", {"r1"}, "false", "u", "SKF_EnumContainer=0B000035!never SKF_EnumContainer#2=0B000035 SKF_DeleteContainer"},
    {"enumContainer", {}, "{}", "", "SKF_EnumContainer!never SKF_EnumContainer#2"},
    {"exportAllCertificate", {true}, "{}", "", "SKF_EnumContainer!never SKF_EnumContainer#2"},
    {"openContainer", {"c1"}, "null", "", "SKF_OpenContainer"},
    {"getContainerType", {ref("c")}, "0", "c", "SKF_GetContainerType"},
    {"ImportCertificate", {ref("c"), true, bin("cert")}, "false", "c", "SKF_ImportCertificate"},
    {"exportCertificate", {ref("c"), true}, "[0]", "c", "SKF_ExportCertificate SKF_ExportCertificate#2"},
    {"genRSAKeyPair", {ref("r"), 1024}, "[0]", "r", "SKF_GenRSAKeyPair"},
    {"importRSAKeyPair", {ref("r"), SGD_SM4_ECB, bin("w"), bin("e")}, "false", "r", "SKF_ImportRSAKeyPair"},
    {"rsaSignData", {ref("r"), bin(kData)}, "[0]", "r", "SKF_RSASignData SKF_RSASignData#2"},
    {"rsaVerify", {bin("p"), bin(kData), bin("s")}, "false", "", "SKF_RSAVerify"},
    {"exportPublicKey", {ref("r"), true}, "[0]", "r", "SKF_ExportPublicKey SKF_ExportPublicKey#2"},
    {"genECCKeyPair", {ref("c"), SGD_SM2_1}, "[0]", "c", "SKF_GenECCKeyPair"},
    {"importECCKeyPair", {ref("c"), bin("x")}, "false", "c", "SKF_ImportECCKeyPair"},
    {"eccSignData", {ref("c"), bin(kData)}, "[0]", "c", "SKF_ECCSignData"},
    {"eccVerify", {bin("p"), bin(kData), bin("s")}, "false", "", "SKF_ECCVerify"},
    {"eccSimpleSign", {ref("c"), bin("m"), true}, "[0]", "c",
     "SKF_ExportPublicKey SKF_ExportPublicKey#2 SKF_DigestInit SKF_Digest SKF_Digest#2"},
    {"eccSimpleSign", {ref("c"), bin("m"), true}, "[32]*", "c", "SKF_ECCSignData"},
    {"eccSimpleVerify", {ref("c"), bin("m"), bin(QByteArray(64, 's')), true}, "false", "c",
     "SKF_ExportPublicKey SKF_ExportPublicKey#2 SKF_DigestInit SKF_Digest SKF_Digest#2 SKF_ECCVerify"},
    {"eccExportSessionKey", {ref("c"), SGD_SM4_ECB, ref("pub"), outHandle("k")}, "[0]", "cp", "SKF_ECCExportSessionKey!never"},
    {"digestInit", {1, bin(""), ""}, "null", "", "SKF_DigestInit"},
    {"digest", {ref("h"), bin("abc")}, "[0]", "h", "SKF_Digest SKF_Digest#2"},
    {"digestV1", {ref("h"), bin("abc")}, "[0]", "h", "SKF_Digest SKF_Digest#2"},
    {"digestRsaByPubkey", {bin("abc")}, "[0]", "", "SKF_DigestInit SKF_Digest"},
    {"importSessionKey", {ref("c"), SGD_SM4_ECB, bin("w"), 1}, "null", "c", "SKF_ImportSessionKey"},
    {"encryptInit", {ref("k"), bin(kParam)}, "false", "cpk", "SKF_EncryptInit"},
    {"encrypt", {ref("k"), bin(kData), 32}, "[0]", "cpke", "SKF_Encrypt SKF_Encrypt#2"},
    {"decryptInit", {ref("k"), bin(kParam)}, "false", "cpk", "SKF_DecryptInit"},
    {"decrypt", {ref("k"), bin(kData), 32}, "[0]", "cpkd", "SKF_Decrypt SKF_Decrypt#2"},
    {"closeHandle", {ref("h")}, "", "h", "SKF_CloseHandle=keep!never"},
    {"epsImportSymmKey", {ref("c"), 1, bin("x"), 1}, "false", "c", "EPS_ImportSymmKey"},
    {"epsReadESealData", {1, 0}, "[0]", "s", "EPS_ReadESealData EPS_ReadESealData#2"},
    {"epsWriteESealData", {bin("s"), 1}, "false", "u", "EPS_WriteESealData"},
};

// Set-up steps by letter: token edits, then calls made ahead.
Row setUp(Row row, const QString &letters)
{
    const QMap<QChar, std::function<void(Row &)>> steps{
        {'f', [](Row &r) { r.token(file("f1", "data")); }},
        {'a', [](Row &r) { r.token([](DeviceData &d) { file("f1", "data")(d), d.apps[0].admin.set(kBuiltIn); }); }},
        {'s', [](Row &r) { r.token([](DeviceData &d) { d.apps[0].sealData = "seal"; }); }},
        {'u', [](Row &r) { r.before("verifyPin", {kUser, false}); }},
        {'c', [](Row &r) { r.before("verifyPin", {kUser, false}).before("openContainer", {"c1"}, "c"); }},
        {'r', [](Row &r) { r.before("verifyPin", {kUser, false}).before("openContainer", {"r1"}, "r"); }},
        {'h', [](Row &r) { r.before("digestInit", {1, bin(""), ""}, "h"); }},
        {'p', [](Row &r) { r.before("exportPublicKey", {ref("c"), false}, "pub"); }},
        {'k', [](Row &r) { r.before("eccExportSessionKey", {ref("c"), SGD_SM4_ECB, ref("pub"), outHandle("k")}); }},
        {'e', [](Row &r) { r.before("encryptInit", {ref("k"), bin(kParam)}); }},
        {'d', [](Row &r) { r.before("decryptInit", {ref("k"), bin(kParam)}); }},
    };
    for (const QChar c : letters)
        steps.value(c)(row);
    return row;
}

QList<Row> matrix()
{
    QList<Row> rows;
    for (const Op &op : kOps) {
        for (const QString &entry : QString::fromLatin1(op.functions).split(QLatin1Char(' '))) {
            const QString name = entry.section(QRegularExpression("[#=!]"), 0, 0), err = entry.section('=', 1).section('!', 0, 0);
            const QString closes = entry.section('!', 1);
            for (const quint32 code : {quint32(SAR_DEVICE_REMOVED), quint32(SAR_FAIL)}) {
                if (op.only && op.only != code)
                    continue;
                const bool closed = closes == "always" || (closes.isEmpty() && code == SAR_DEVICE_REMOVED);
                Row row = setUp(Row(QStringList{op.method, entry, QString::number(code, 16)}.join(' ')), op.setUp);
                entry.contains("#2") ? row.second(name, code) : row.fault(name, code);
                rows << row.call(op.method, op.args).is(op.shows).out({"..."}).loose()
                            .err(err == "keep" ? Keep : err.isEmpty() ? code : err.toUInt(nullptr, 16))
                            .then("GetPINInfo", {1, 0}, closed ? "0" : "6");
            }
        }
    }
    return rows;
}

} // namespace

class TestSessionFaults : public QObject
{
    Q_OBJECT

private slots:
    void firstHalf() { Conformance().run(matrix().mid(0, matrix().size() / 2)); }
    void secondHalf() { Conformance().run(matrix().mid(matrix().size() / 2)); }
};

TW_TEST_MAIN_ISOLATED(TestSessionFaults)
#include "tst_sessionfaults.moc"
