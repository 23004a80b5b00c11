// Files, containers and certificates of the SKF session, as rows of
// conformance.h.
#include <QTest>

#include "isolatedtest.h"
#include "sessionrows.h"

namespace {

const auto hello = file("f1", "hello");
const auto signCertOnR1 = [](DeviceData &d) {
    d.apps[0].containers[0].signCert.clear();
    d.apps[0].containers[1].signCert = "sign-cert-r1";
};
const QString kNoFile = R"(SKF_GetFileInfo(h1, "f1", out) = 0x0A000031)";

} // namespace

class TestSessionStore : public QObject
{
    Q_OBJECT

private slots:
    void files()
    {
        Conformance suite;
        suite.run({
            Row("create with the shorter form").call("createFile", {"f1", 100}).is("true")
                .calls({R"(SKF_CreateFile(h1, "f1", 100, 0xFF, 0xFF) = 0x00000000)"}).log({"[createFile] start", "[createFile] end"}),
            Row("create with rights").call("createFile", {"f1", 8, 0x10, 0x01}).is("true")
                .calls({R"(SKF_CreateFile(h1, "f1", 8, 0x10, 0x1) = 0x00000000)"}),
            Row("create without a name").call("createFile", {"", 8}).is("false").err(SAR_NAMELENERR).calls({})
                .log({" end,parameter invalid "}),
            Row("create a file that exists").open({"createFile"}).token(hello).call("createFile", {"f1", 8}).is("false")
                .err(SAR_FILE_ALREADY_EXIST).calls({R"(SKF_CreateFile(h1, "f1", 8, 0xFF, 0xFF) = 0x0A00002F)"})
                .log({errorLine(" SKF_CreateFile failed,ret = %d", SAR_FILE_ALREADY_EXIST)}),
            onClosed("createFile", {"f1", 8}, "false"),

            Row("list").token([](DeviceData &d) {
                    file("f1", "1")(d);
                    file("f2", "2")(d);
                }).call("enumFiles").is(R"({"f1","f2"})")
                .calls({"SKF_EnumFiles(h1, null, 0->7) = 0x00000000", R"(SKF_EnumFiles(h1, ->{"f1","f2"}, 7->7) = 0x00000000)"})
                .then("enumFiles", {}, R"({"f1","f2"})"),
            Row("list of none").call("enumFiles").is("{}")
                .calls({"SKF_EnumFiles(h1, null, 0->1) = 0x00000000", "SKF_EnumFiles(h1, ->{}, 1->1) = 0x00000000"}),
            Row("size query fails, the session stays").open({"enumFiles"}).token(hello).fault("SKF_EnumFiles", SAR_DEVICE_REMOVED)
                .call("enumFiles").is("{}").calls({"SKF_EnumFiles(h1, null, 0->0) = 0x0A000023"})
                .log({errorLine(" SKF_EnumFiles failed,ret = %d", SAR_DEVICE_REMOVED)}).then("enumFiles", {}, R"({"f1"})"),
            Row("fill fails: the session closes").open({"enumFiles"}).token(hello).second("SKF_EnumFiles", SAR_FAIL).call("enumFiles")
                .is("{}").err(SAR_FAIL).calls(QStringList{"SKF_EnumFiles(h1, null, 0->4) = 0x00000000",
                                                          "SKF_EnumFiles(h1, buf, 4->4) = 0x0A000001"} + closing(1, 2))
                .log({errorLine(" SKF_EnumFiles failed,ret = %d", SAR_FAIL)}).then("enumFiles", {}, "{}"),
            Row("a size past any real list is refused").open({"enumFiles"}).lie("SKF_EnumFiles", 0x10000000).call("enumFiles").is("{}")
                .err(SAR_MEMORYERR).calls(QStringList{"SKF_EnumFiles(h1, null, 0->268435457) = 0x00000000"} + closing(1, 2)),
            onClosed("enumFiles", {}, "{}"),

            Row("read").token(hello).call("readFile", {"f1"}).is("[5]68656c6c6f")
                .calls({R"(SKF_GetFileInfo(h1, "f1", ->{size=5}) = 0x00000000)",
                        R"(SKF_ReadFile(h1, "f1", 0, 5, ->[5]68656c6c6f, 5->5) = 0x00000000)"}),
            Row("read from an offset asks for the whole size, whatever is asked").token(hello).call("readFile", {"f1", 3, 2}).is("[2]6c6f")
                .calls({"SKF_GetFileInfo(*", R"(SKF_ReadFile(h1, "f1", 3, 5, ->[2]6c6f, 5->2) = 0x00000000)"}),
            Row("an empty file is not read").token(file("f1", "")).call("readFile", {"f1"}).is("[0]")
                .calls({R"(SKF_GetFileInfo(h1, "f1", ->{size=0}) = 0x00000000)"}),
            Row("the size is asked for under the Latin-1 name").open({"readFile"}).token(file("\u00e9", "x")).call("readFile", {"\u00e9"})
                .is("[0]").err(SAR_FILE_NOT_EXIST).calls({R"(SKF_GetFileInfo(h1, "\xe9", out) = 0x0A000031)"}),
            Row("read a missing file").open({"readFile"}).call("readFile", {"f1"}).is("[0]").err(SAR_FILE_NOT_EXIST).calls({kNoFile})
                .log({errorLine(" SKF_GetFileInfo failed,ret = %d", SAR_FILE_NOT_EXIST)}),
            Row("read fails").open({"readFile"}).token(hello).fault("SKF_ReadFile", SAR_DEVICE_REMOVED).call("readFile", {"f1"}).is("[0]")
                .err(SAR_DEVICE_REMOVED).calls(QStringList{"SKF_GetFileInfo(*", "SKF_ReadFile(h1, \"f1\", 0, 5, buf, 5->5) = 0x0A000023"}
                                               + closing(1, 2))
                .log({errorLine(" SKF_ReadFile failed,ret = %d", SAR_DEVICE_REMOVED)}),
            Row("read without a name").call("readFile", {""}).is("[0]").err(SAR_NAMELENERR).calls({}),
            onClosed("readFile", {"f1"}, "[0]"),

            Row("write").token(hello).call("writeFile", {"f1", 1, bin("EL")}).is("true")
                .calls({R"(SKF_WriteFile(h1, "f1", 1, [2]454c, 2) = 0x00000000)"}).then("readFile", {"f1"}, "[5]68454c6c6f"),
            Row("write nothing").token(hello).call("writeFile", {"f1", 0, bin("")}).is("false").err(SAR_INDATALENERR)
                .calls({}).log({" end. parameter invalid"}),
            Row("write without a name, without data").call("writeFile", {"", 0, bin("")}).is("false").err(SAR_NAMELENERR),
            Row("write fails").open({"writeFile"}).token(hello).fault("SKF_WriteFile", SAR_DEVICE_REMOVED).call("writeFile", {"f1", 0, bin("x")})
                .is("false").err(SAR_DEVICE_REMOVED).calls(QStringList{"SKF_WriteFile(*"} + closing(1, 2))
                .log({errorLine(" SKF_WriteFile failed,ret = %d", SAR_DEVICE_REMOVED)}),
            onClosed("writeFile", {"f1", 0, bin("x")}, "false"),

            Row("delete").token(hello).call("deleteFile", {"f1"}).is("true")
                .calls({R"(SKF_DeleteFile(h1, "f1") = 0x00000000)"}).then("enumFiles", {}, "{}"),
            Row("delete a missing file").open({"deleteFile"}).call("deleteFile", {"f1"}).is("false").err(SAR_FILE_NOT_EXIST)
                .calls({R"(SKF_DeleteFile(h1, "f1") = 0x0A000031)"}).log({errorLine(" SKF_DeleteFile failed,ret = %d", SAR_FILE_NOT_EXIST)}),
            Row("delete without a name").call("deleteFile", {""}).is("false").err(SAR_NAMELENERR).calls({}),
            onClosed("deleteFile", {"f1"}, "false"),

            user("replace a file").token(file("f1", "hello", 0x10, 0x10)).call("writeFileV1", {"f1", bin("abc")}).is("true")
                .calls({"SKF_GetFileInfo(h1, \"f1\", ->{size=5}) = 0x00000000", R"(SKF_DeleteFile(h1, "f1") = 0x00000000)",
                        R"(SKF_CreateFile(h1, "f1", 3, 0xFF, 0xFF) = 0x00000000)", R"(SKF_WriteFile(h1, "f1", 0, [3]616263, 3) = 0x00000000)"})
                .then("readFile", {"f1"}, "[3]616263"),
            Row("a new file").call("writeFileV1", {"f1", bin("abc")}).is("true")
                .calls({kNoFile, "SKF_CreateFile(h1, \"f1\", 3, 0xFF, 0xFF) = 0x00000000", "SKF_WriteFile(*"})
                .log({"-!*GetFileInfo*"}),
            Row("replace: the delete fails").open({"writeFileV1"}).token(hello).fault("SKF_DeleteFile", SAR_DEVICE_REMOVED)
                .call("writeFileV1", {"f1", bin("abc")}).is("false").err(SAR_DEVICE_REMOVED)
                .calls(QStringList{"SKF_GetFileInfo(*", "SKF_DeleteFile(* = 0x0A000023"} + closing(1, 2))
                .log({errorLine(" SKF_DeleteFile failed,ret = %d", SAR_DEVICE_REMOVED)}),
            Row("replace: the create fails").open({"writeFileV1"}).fault("SKF_CreateFile", SAR_FAIL).call("writeFileV1", {"f1", bin("abc")})
                .is("false").err(SAR_FAIL).calls({kNoFile, "SKF_CreateFile(* = 0x0A000001"})
                .log({errorLine(" SKF_CreateFile failed,ret = %d", SAR_FAIL)}),
            Row("replace: the write fails, an empty file stays").open({"writeFileV1"}).token(hello).fault("SKF_WriteFile", SAR_FAIL)
                .call("writeFileV1", {"f1", bin("abc")}).is("false").err(SAR_FAIL)
                .calls({"SKF_GetFileInfo(*", "SKF_DeleteFile(*", "SKF_CreateFile(*", "SKF_WriteFile(* = 0x0A000001"})
                .log({errorLine(" SKF_WriteFile failed,ret = %d", SAR_FAIL)}).then("readFile", {"f1"}, "[3]000000"),
            Row("replace with nothing leaves the old file").token(hello).call("writeFileV1", {"f1", bin("")}).is("false")
                .err(SAR_INDATALENERR).calls({}).then("readFile", {"f1"}, "[5]68656c6c6f"),
            Row("replace without a name").call("writeFileV1", {"", bin("abc")}).is("false").err(SAR_NAMELENERR).calls({}),
            onClosed("writeFileV1", {"f1", bin("x")}, "false"),
        });
    }

    // A package named CFCA in other letters, which also asks for a PIN before
    // files are made.
    void cfcaPackage()
    {
        KdpConfig package;
        package.name = QStringLiteral("cfca");
        package.createFileByVerifyPin = QStringLiteral("TrUe");
        Conformance suite(package);
        suite.run({
            Row("a failing create means no room").open({"writeFileV1"}).fault("SKF_CreateFile", SAR_FAIL).call("writeFileV1", {"f1", bin("abc")})
                .is("false").err(SAR_NO_ROOM).calls({kNoFile, "SKF_CreateFile(* = 0x0A000001"})
                .log({errorLine(" SKF_CreateFile failed (CFCA),ret = %d", SAR_NO_ROOM)}),
            Row("other codes as they are").open({"writeFileV1"}).fault("SKF_CreateFile", SAR_DEVICE_REMOVED)
                .call("writeFileV1", {"f1", bin("abc")}).is("false").err(SAR_DEVICE_REMOVED)
                .calls(QStringList{kNoFile, "SKF_CreateFile(* = 0x0A000023"} + closing(1, 2))
                .log({errorLine(" SKF_CreateFile failed,ret = %d", SAR_DEVICE_REMOVED)}),
            Row("the package asks for a PIN").call("createFileByVerifyPin").is("true").log({" CreateFileByVerifyPin: TrUe"}),
        });
    }

    void containers()
    {
        const QStringList enumC1R1 = {"SKF_EnumContainer(h1, null, 0->7) = 0x00000000",
                                      R"(SKF_EnumContainer(h1, ->{"c1","r1"}, 7->7) = 0x00000000)"};
        Conformance suite;
        suite.run({
            Row("list").call("enumContainer").is(R"({"c1","r1"})").calls(enumC1R1),
            Row("list of none").change(noContainers).call("enumContainer").is("{}")
                .calls({"SKF_EnumContainer(h1, null, 0->1) = 0x00000000", "SKF_EnumContainer(h1, ->{}, 1->1) = 0x00000000"}),
            Row("size query on a removed token keeps the session").open({"enumContainer"}).fault("SKF_EnumContainer", SAR_DEVICE_REMOVED)
                .call("enumContainer").is("{}").err(SAR_DEVICE_REMOVED).calls({"SKF_EnumContainer(h1, null, 0->0) = 0x0A000023"})
                .log({errorLine(" SKF_EnumContainer failed.ret = %d", SAR_DEVICE_REMOVED)}).out({printed("设备已移除")})
                .then("enumContainer", {}, R"({"c1","r1"})"),
            Row("fill on a removed token closes").open({"enumContainer"}).second("SKF_EnumContainer", SAR_DEVICE_REMOVED).call("enumContainer")
                .is("{}").err(SAR_DEVICE_REMOVED)
                .calls(QStringList{enumC1R1[0], "SKF_EnumContainer(h1, buf, 7->7) = 0x0A000023"} + closing(1, 2))
                .out({printed("设备已移除")}),
            Row("fill fails").open({"enumContainer"}).second("SKF_EnumContainer", SAR_FAIL).call("enumContainer").is("{}").err(SAR_FAIL)
                .calls({enumC1R1[0], "SKF_EnumContainer(h1, buf, 7->7) = 0x0A000001"}).out({printed("fail")})
                .then("enumContainer", {}, R"({"c1","r1"})"),
            onClosed("enumContainer", {}, "{}"),

            Row("open").call("openContainer", {"r1"}).is("handle").calls({R"(SKF_OpenContainer(h1, "r1", ->h2) = 0x00000000)"}),
            Row("open a missing container").open({"openContainer"}).call("openContainer", {"zz"}).is("null").err(TW_ERR_CONTAINER_NOT_EXIST)
                .calls({R"(SKF_OpenContainer(h1, "zz", ->null) = 0x0B000035)"})
                .log({errorLine(" SKF_OpenContainer failed.ret = %d", TW_ERR_CONTAINER_NOT_EXIST)}).out({printed("容器不存在")}),
            Row("open without a name").call("openContainer", {""}).is("null").err(SAR_USER_NOT_LOGGED_IN).calls({})
                .log({" end. containerName is empty."}),
            onClosed("openContainer", {"c1"}, "null"),

            user("create").call("createContainer", {"c2"}).is("handle")
                .calls(enumC1R1 + QStringList{R"(SKF_CreateContainer(h1, "c2", ->h2) = 0x00000000)"}),
            user("create a name that exists").call("createContainer", {"c1"}).is("null").err(TW_ERR_CONTAINER_EXISTS)
                .calls(enumC1R1).log({" end. containerName is exist."}),
            user("names differ in case").call("createContainer", {"C1"}).is("handle").calls(enumC1R1 + QStringList{"SKF_CreateContainer(*"}),
            user("create after a failed list").open({"enumContainer", "createContainer"}).fault("SKF_EnumContainer", SAR_FAIL).call("createContainer", {"c1"})
                .is("null").err(TW_ERR_CONTAINER_EXISTS)
                .calls({"SKF_EnumContainer(h1, null, 0->0) = 0x0A000001", R"(SKF_CreateContainer(h1, "c1", ->null) = 0x0B000036)"})
                .out({printed("fail"), printed("容器已存在")})
                .log({errorLine(" SKF_CreateContainer failed.ret = %d", TW_ERR_CONTAINER_EXISTS)}),
            Row("create without a name").call("createContainer", {""}).is("null").err(SAR_USER_NOT_LOGGED_IN).calls({})
                .log({" end. containerName is empty."}),
            onClosed("createContainer", {"c2"}, "null"),

            user("delete").call("deleteContainer", {"r1"}).is("true")
                .calls(enumC1R1 + QStringList{R"(SKF_DeleteContainer(h1, "r1") = 0x00000000)"}).log({" containerName is exist."})
                .then("enumContainer", {}, R"({"c1"})"),
            user("delete a missing name").call("deleteContainer", {"C1"}).is("false").err(TW_ERR_CONTAINER_NOT_EXIST)
                .calls(enumC1R1).log({" end. containerName is not exist."}),
            Row("delete fails").open({"deleteContainer"}).call("deleteContainer", {"r1"}).is("false").err(SAR_USER_NOT_LOGGED_IN)
                .calls(enumC1R1 + QStringList{R"(SKF_DeleteContainer(h1, "r1") = 0x0A00002D)"}).out({printed("用户没有登录")})
                .log({errorLine(" SKF_DeleteContainer failed.ret = %d", SAR_USER_NOT_LOGGED_IN)}),
            Row("delete without a name").call("deleteContainer", {""}).is("false").err(SAR_USER_NOT_LOGGED_IN).calls({})
                .log({" end. containerName is empty."}),
            onClosed("deleteContainer", {"r1"}, "false"),

            Row("type of SM2").before("openContainer", {"c1"}, "c").call("getContainerType", {ref("c")}).is("2")
                .calls({"SKF_GetContainerType(h1, ->2) = 0x00000000"}),
            onNull("getContainerType", {nullHandle()}, "0"),
            Row("type fails").open({"getContainerType"}).before("openContainer", {"c1"}, "c").fault("SKF_GetContainerType", SAR_DEVICE_REMOVED)
                .call("getContainerType", {ref("c")}).is("0").err(SAR_DEVICE_REMOVED)
                .calls(QStringList{"SKF_GetContainerType(h1, ->0) = 0x0A000023"} + closing(2, 3))
                .log({errorLine(" SKF_GetContainerType failed.ret = %d", SAR_DEVICE_REMOVED)}).out({printed("设备已移除")}),
            onClosed("getContainerType", {nullHandle()}, "0"),
            closed("closing a container does nothing").call("closeContainer", {nullHandle()}).is("").calls({}).log({"-*"}),

            user("import a certificate").before("openContainer", {"r1"}, "c").call("ImportCertificate", {ref("c"), true, bin("CERT")})
                .is("true").calls({"SKF_ImportCertificate(h1, 1, [4]43455254, 4) = 0x00000000"})
                .then("exportCertificate", {ref("c"), true}, "[4]43455254"),
            user("an empty certificate goes to the token").open({"ImportCertificate"}).before("openContainer", {"r1"}, "c")
                .call("ImportCertificate", {ref("c"), false, bin("")}).is("false").err(SAR_INVALIDPARAMERR)
                .calls({"SKF_ImportCertificate(h1, 0, [0], 0) = 0x0A000006"}).out({printed("无效的参数")}),
            Row("import fails").open({"ImportCertificate"}).before("openContainer", {"r1"}, "c").fault("SKF_ImportCertificate", SAR_DEVICE_REMOVED)
                .call("ImportCertificate", {ref("c"), true, bin("CERT")}).is("false").err(SAR_DEVICE_REMOVED)
                .calls(QStringList{"SKF_ImportCertificate(*"} + closing(2, 3))
                .log({errorLine(" SKF_ImportCertificate failed.ret = %d", SAR_DEVICE_REMOVED)}).out({printed("设备已移除")}),
            onNull("ImportCertificate", {nullHandle(), true, bin("CERT")}, "false"),
            onClosed("ImportCertificate", {nullHandle(), true, bin("C")}, "false"),

            Row("export").before("openContainer", {"c1"}, "c").call("exportCertificate", {ref("c"), false}).is("[11]656e632d636572742d6331")
                .calls({"SKF_ExportCertificate(h1, 0, null, 0->11) = 0x00000000",
                        "SKF_ExportCertificate(h1, 0, ->[11]656e632d636572742d6331, 11->11) = 0x00000000"}),
            Row("export: size query fails").open({"exportCertificate"}).before("openContainer", {"c1"}, "c").fault("SKF_ExportCertificate", SAR_DEVICE_REMOVED)
                .call("exportCertificate", {ref("c"), true}).is("[0]").err(SAR_DEVICE_REMOVED)
                .calls(QStringList{"SKF_ExportCertificate(h1, 1, null, 0->0) = 0x0A000023"} + closing(2, 3))
                .log({errorLine(" SKF_ExportCertificate failed.ret = %d", SAR_DEVICE_REMOVED)}).out({printed("设备已移除")}),
            Row("export: fill fails").open({"exportCertificate"}).before("openContainer", {"c1"}, "c").second("SKF_ExportCertificate", SAR_DEVICE_REMOVED)
                .call("exportCertificate", {ref("c"), true}).is("[0]").err(SAR_DEVICE_REMOVED)
                .calls(QStringList{"SKF_ExportCertificate(*", "SKF_ExportCertificate(h1, 1, buf, 12->12) = 0x0A000023"} + closing(2, 3))
                .log({errorLine(" SKF_ExportCertificate failed.ret = %d", SAR_DEVICE_REMOVED)}).out({printed("设备已移除")}),
            onNull("exportCertificate", {nullHandle(), true}, "[0]"),
            onClosed("exportCertificate", {nullHandle(), true}, "[0]"),

            Row("all signing certificates").open({"exportCertificate"}).call("exportAllCertificate", {true}).is(R"({"c2lnbi1jZXJ0LWMx"})")
                .err(SAR_CERTNOTFOUNTERR).calls(enumC1R1 + QStringList{R"(SKF_OpenContainer(h1, "c1", ->h2) = 0x00000000)",
                    "SKF_ExportCertificate(h2, 1, null, 0->12) = 0x00000000", "SKF_ExportCertificate(h2, 1, ->*",
                    R"(SKF_OpenContainer(h1, "r1", ->h3) = 0x00000000)", "SKF_ExportCertificate(h3, 1, null, 0->0) = 0x0A00001C"})
                .out({printed("未发现证书")}),
            Row("only the second holds one").open({"exportCertificate"}).token(signCertOnR1).call("exportAllCertificate", {true})
                .is(R"({"c2lnbi1jZXJ0LXIx"})").err(SAR_CERTNOTFOUNTERR).out({printed("未发现证书")}),
            Row("a container that does not open is passed").open({"exportCertificate", "openContainer"}).token(signCertOnR1).fault("SKF_OpenContainer", SAR_FAIL)
                .call("exportAllCertificate", {true}).is(R"({"c2lnbi1jZXJ0LXIx"})").err(SAR_FAIL).out({printed("fail")}),
            Row("the last call's list is not kept").before("exportAllCertificate", {true})
                .fault("SKF_GetPINInfo", SAR_DEVICE_REMOVED).before("GetPINInfo", {1, 1})
                .call("exportAllCertificate", {true}).is("{}").err(SAR_USER_NOT_LOGGED_IN).calls({})
                .log({"[exportAllCertificate] end . app is null"}),
        });
    }
};

TW_TEST_MAIN_ISOLATED(TestSessionStore)
#include "tst_sessionstore.moc"
