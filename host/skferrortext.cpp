#include "skferrortext.h"

namespace {

struct CodeText
{
    uint code;
    const char *text;
};

const CodeText kTexts[] = {
    {0x00000000, "success"},
    {0x0A000001, "failed"},
    {0x0A000002, "unexpected error"},
    {0x0A000003, "operation not supported"},
    {0x0A000004, "file operation error"},
    {0x0A000005, "invalid handle"},
    {0x0A000006, "invalid parameter"},
    {0x0A000007, "file read error"},
    {0x0A000008, "file write error"},
    {0x0A000009, "name length error"},
    {0x0A00000A, "wrong key usage"},
    {0x0A00000B, "modulus length error"},
    {0x0A00000C, "not initialized"},
    {0x0A00000D, "object error"},
    {0x0A00000E, "memory error"},
    {0x0A00000F, "timeout"},
    {0x0A000010, "input data length error"},
    {0x0A000011, "input data error"},
    {0x0A000012, "random number generation error"},
    {0x0A000013, "hash object error"},
    {0x0A000014, "hash error"},
    {0x0A000015, "RSA key generation error"},
    {0x0A000016, "RSA modulus length error"},
    {0x0A000017, "public key import error"},
    {0x0A000018, "RSA encryption error"},
    {0x0A000019, "RSA decryption error"},
    {0x0A00001A, "hash values differ"},
    {0x0A00001B, "key not found"},
    {0x0A00001C, "certificate not found"},
    {0x0A00001D, "object not exportable"},
    {0x0A00001E, "decryption padding error"},
    {0x0A00001F, "MAC length error"},
    {0x0A000020, "buffer too small"},
    {0x0A000021, "wrong key type"},
    {0x0A000022, "no event"},
    {0x0A000023, "device removed"},
    {0x0A000024, "PIN incorrect"},
    {0x0A000025, "PIN locked"},
    {0x0A000026, "PIN invalid"},
    {0x0A000027, "PIN length out of range"},
    {0x0A000028, "user already logged in"},
    {0x0A000029, "user PIN not initialized"},
    {0x0A00002A, "invalid PIN type"},
    {0x0A00002B, "invalid application name"},
    {0x0A00002C, "application already exists"},
    {0x0A00002D, "user not logged in"},
    {0x0A00002E, "application does not exist"},
    {0x0A00002F, "file already exists"},
    {0x0A000030, "not enough room on the key"},
    {0x0A000031, "file does not exist"},
    {0x0A000032, "maximum number of containers reached"},
    {0x0B000033, "security state not satisfied"},
    {0x0B000034, "offset beyond the end of the file"},
    {0x0B000035, "container does not exist"},
    {0x0B000036, "container already exists"},
    {0x0B000037, "device authentication locked"},
    {0x0B000038, "ECC encryption error"},
    {0x0C000039, "PIN must have 6 to 16 characters"},
    {0x0C00003A, "new PIN must have 6 to 16 characters"},
};

} // namespace

QString SkfErrorText::text(uint code)
{
    for (const CodeText &entry : kTexts) {
        if (entry.code == code)
            return QString::fromLatin1(entry.text);
    }
    return QStringLiteral("unknown error");
}

QString SkfErrorText::line(uint code)
{
    const QString hex = QStringLiteral("%1").arg(code, 8, 16, QLatin1Char('0')).toUpper();
    return QStringLiteral("error 0x%1: %2").arg(hex, text(code));
}
