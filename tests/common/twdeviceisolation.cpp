// Linked into a test by tw_isolate_device(): /tmp/tw_device of its own (or the lock) before main.
#include "twdeviceguard.h"

__attribute__((constructor(101))) static void twIsolateDeviceFile() { TwDeviceGuard::isolate(); }
