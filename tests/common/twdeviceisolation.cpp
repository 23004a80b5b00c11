// Linked into a test by tw_isolate_device(): the lock is taken before main.
#include "twdeviceguard.h"

__attribute__((constructor(101))) static void twIsolateDeviceFile() { TwDeviceGuard::isolate(); }
