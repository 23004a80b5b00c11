// A device as the software token's store holds it: device.json and
// faults.json parsed, written back and parsed again, and the keys made as
// the token makes them on use.
#include "devicedata.h"
#include "faultplan.h"
#include "tokencrypto.h"

#include <cstdlib>

// Qt 5.15's JSON parser itself leaks on some malformed documents, and a
// stack unwound by frame pointers ends inside Qt: what Qt allocated is let
// be, the keys' memory is still watched.
extern "C" const char *__lsan_default_suppressions() { return "leak:libQt5Core.so\n"; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray json = QByteArray::fromRawData(reinterpret_cast<const char *>(data), int(size));
    DeviceData device, again;
    if (DeviceData::fromJson(json, &device, nullptr)) {
        if (!DeviceData::fromJson(device.toJson(), &again, nullptr))
            abort();
        for (const DeviceData::App &a : device.apps) {
            for (const DeviceData::Container &c : a.containers) {
                for (const DeviceData::KeyPair *k : {&c.sign, &c.enc}) {
                    if (k->alg != DeviceData::NoKey)
                        TokenCrypto::freeKey(k->alg == DeviceData::Sm2 ? TokenCrypto::sm2KeyPair(k->priv)
                                                                       : TokenCrypto::rsaKeyPair(k->priv));
                }
            }
        }
    }
    FaultPlan plan, replan;
    if (FaultPlan::fromJson(json, &plan) && !FaultPlan::fromJson(plan.toJson(), &replan))
        abort();
    return 0;
}
