// The Lm family's objects: names and headers as the token gives them, host
// names as the fuzzer picks them, through listing, reading, writing,
// creating and deleting.
#include "faketoken.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fake::Token token(data, size);
    fake::Session<KeyObjectLmSKF> session(token);
    FuzzedDataProvider &input = token.input;
    static const char *const names[] = {"1", "2", "10", "999", "1000", "0", "-1", "PUBOBJ0", "kfs_seal_1", "a"};
    while (input.remaining_bytes() > 0) {
        const QString name = input.ConsumeBool() ? QString::fromLatin1(input.PickValueInArray(names))
                                                 : QString::fromLatin1(input.ConsumeRandomLengthString(12).c_str());
        const QByteArray bytes = QByteArray::fromStdString(input.ConsumeRandomLengthString(100));
        switch (input.ConsumeIntegralInRange(0, 5)) {
        case 0: session.enumFiles(); break;
        case 1: session.readFile(name, input.ConsumeIntegral<quint8>(), input.ConsumeIntegral<quint8>()); break;
        case 2: session.writeFile(name, input.ConsumeIntegral<quint8>(), bytes); break;
        case 3: session.writeFileV1(name, bytes); break;
        case 4: session.createFile(name, bytes.size()); break;
        default: session.deleteFile(name);
        }
    }
    return 0;
}
