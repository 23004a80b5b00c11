// Linked into a test by tw_isolate_device(): runs before main, while the
// process has one thread, as unshare() needs.
#include "twdeviceguard.h"

__attribute__((constructor(101))) static void twIsolateDeviceFile()
{
    TwDeviceGuard::isolate();
}
