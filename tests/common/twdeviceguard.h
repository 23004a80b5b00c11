// The machine-wide device-state file "/tmp/tw_device" for tests.
//
// A test that lets the library connect a token rewrites that file. So that
// two test runs on one machine (two checkouts, two ctest runs) never meet
// there, such a test is built with tw_isolate_device(<target>) (CMake): before
// main, isolate() takes an exclusive flock on "/tmp/tw_device.lock", shared
// across runs, for the process's life, and puts the file back as it found it
// at exit. A TwDeviceGuard does that for a scope.
#ifndef TWTEST_TWDEVICEGUARD_H
#define TWTEST_TWDEVICEGUARD_H

#include <QByteArray>

class TwDeviceGuard
{
public:
    static const char *const kPath;

    TwDeviceGuard();
    ~TwDeviceGuard();
    TwDeviceGuard(const TwDeviceGuard &) = delete;
    TwDeviceGuard &operator=(const TwDeviceGuard &) = delete;

    // The file's content; a null array when there is none.
    static QByteArray current();
    // Writes the content as it stands; a null array removes the file.
    static bool set(const QByteArray &content);
    // Once per process, before main: see above. Children share it.
    static bool isolate();

private:
    QByteArray m_saved;
};

#endif
