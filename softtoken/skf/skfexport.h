// Included first by the files that define the exported functions: the SKF
// declarations get default visibility, everything else stays hidden.
#ifndef SOFTTOKEN_SKFEXPORT_H
#define SOFTTOKEN_SKFEXPORT_H

#pragma GCC visibility push(default)
#include "skfapi.h"
#pragma GCC visibility pop

#define SKF_EXPORT extern "C" __attribute__((visibility("default")))

#endif // SOFTTOKEN_SKFEXPORT_H
