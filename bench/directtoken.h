// The software token's SKF face called directly, on a connection of its
// own with the user logged in: the token calls that eccSimpleSign makes
// (SKF_ExportPublicKey size and fill, SKF_DigestInit with Z, SKF_Digest
// size and fill, SKF_ECCSignData) with nothing around them. What the
// signing benchmarks measure the library and twkey against.
#ifndef TWBENCH_DIRECTTOKEN_H
#define TWBENCH_DIRECTTOKEN_H

#include "skf/skfapi.h"

#include <QByteArray>
#include <QString>

class DirectToken
{
public:
    // Loads the library, connects to the device, logs in with the user PIN
    // and opens the container; false with error() set when a step fails.
    bool open(const QString &library, const char *device, const char *pin, const char *container);
    // The SM2 signature of the message's SM3 hash with Z; false when a
    // token call failed.
    bool sign(const QByteArray &message, ECCSIGNATUREBLOB *blob);
    const char *error() const { return m_error; }

private:
    bool fail(const char *what);

    decltype(&SKF_ExportPublicKey) m_exportPublicKey = nullptr;
    decltype(&SKF_DigestInit) m_digestInit = nullptr;
    decltype(&SKF_Digest) m_digest = nullptr;
    decltype(&SKF_ECCSignData) m_eccSignData = nullptr;
    DEVHANDLE m_dev = nullptr;
    HCONTAINER m_container = nullptr;
    const char *m_error = "";
};

#endif
