// The token's multi-string answers (devices, applications, containers,
// files), with sizes that may lie: split without reading past what was given.
#include "faketoken.h"
#include "package/keydriverpackage.h"
#include "session/keyobjectskf.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider input(data, size);
    fake::in = &input;
    KeyDriverPackage package{QString()};
    KeyDriverSKF driver(&package, QString());
    fake::bind(driver);
    driver.enumDev();
    fake::Session<KeyObjectSKF> session(&package, &driver);
    session.enumApplication();
    session.enumContainer();
    session.enumFiles();
    return 0;
}
