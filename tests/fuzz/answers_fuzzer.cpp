// The token's multi-string answers (devices, applications, containers,
// files), with sizes that may lie: split without reading past what was given.
#include "faketoken.h"
#include "session/keyobjectskf.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fake::Token token(data, size);
    token.driver.enumDev();
    fake::Session<KeyObjectSKF> session(token);
    session.enumApplication();
    session.enumContainer();
    session.enumFiles();
    // The probing sessions' application list: one string, names between blanks.
    fake::Session<KeyObjectLmSKF>(token).enumApplication();
    return 0;
}
