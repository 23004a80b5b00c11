// The device-state file "/tmp/tw_device" for tests: a /tmp of the test's own
// where the system allows it, else saved, put back and held under a lock
// shared across runs (see docs/tests.md).
#ifndef TWTEST_TWDEVICEGUARD_H
#define TWTEST_TWDEVICEGUARD_H

#include <QByteArray>

class TwDeviceGuard
{
public:
    static const char *const kPath;

    // The file's content; a null array when there is none.
    static QByteArray current();
    // Writes the content as it stands; a null array removes the file.
    static bool set(const QByteArray &content);
    // Once per process, before main: see above. Children share it.
    static bool isolate();
    // A mount namespace of the process's own, mounts private (in a user
    // namespace of its own when not root); false where the system refuses.
    static bool ownMounts();
};

#endif
