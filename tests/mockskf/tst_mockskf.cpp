// Smoke check of the test token library's builds: the driver tests bind by
// name and rely on the full build having every name and each variant
// lacking exactly the ones it is built without.
#include "mockcontrol.h"

#include <QLibrary>
#include <QTest>

#include <dlfcn.h>

namespace {

const char *const kAllNames[] = {
#define MOCK_ROW_NAME(name, required) #name,
    SKF_FUNCTION_ROWS(MOCK_ROW_NAME)
#undef MOCK_ROW_NAME
};

bool exports(const char *path, const char *name)
{
    void *h = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    return h && dlsym(h, name);
}

} // namespace

class TestMockSkf : public QObject
{
    Q_OBJECT

private slots:
    void exportsEveryBoundName()
    {
        for (const char *name : kAllNames)
            QVERIFY2(exports(MOCKSKF_PATH, name), name);
    }

    void variantsLackTheirNames()
    {
        for (const char *name : {"EPS_Decrypt", "EPS_Encrypt", "EPS_ImportSymmKey", "EPS_Mac", "EPS_ReadESealData",
                                 "EPS_WriteESealData"})
            QVERIFY2(!exports(MOCKSKF_NOEPS_PATH, name), name);
        QVERIFY(exports(MOCKSKF_NOEPS_PATH, "SKF_WaitForDevEvent"));

        QVERIFY(!exports(MOCKSKF_NOWAIT_PATH, "SKF_WaitForDevEvent"));
        QVERIFY(exports(MOCKSKF_NOWAIT_PATH, "EPS_Decrypt"));

        QVERIFY(!exports(MOCKSKF_NOEPSDECRYPT_NODISCONNECT_PATH, "EPS_Decrypt"));
        QVERIFY(!exports(MOCKSKF_NOEPSDECRYPT_NODISCONNECT_PATH, "SKF_DisConnectDev"));
        QVERIFY(exports(MOCKSKF_NOEPSDECRYPT_NODISCONNECT_PATH, "EPS_Encrypt"));
        QVERIFY(exports(MOCKSKF_NOEPSDECRYPT_NODISCONNECT_PATH, "SKF_ConnectDev"));

        QVERIFY(!QLibrary(QStringLiteral(NOTALIB_PATH)).load());
    }
};

QTEST_GUILESS_MAIN(TestMockSkf)
#include "tst_mockskf.moc"
