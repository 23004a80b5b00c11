// twkey sign, verify, digest, encrypt, decrypt: cryptography on the key.
#ifndef TWHOST_CRYPTOCOMMANDS_H
#define TWHOST_CRYPTOCOMMANDS_H

class CliContext;

class CryptoCommands
{
public:
    static int sign(CliContext &ctx);
    static int verify(CliContext &ctx);
    static int digest(CliContext &ctx);
    static int encrypt(CliContext &ctx);
    static int decrypt(CliContext &ctx);
};

#endif
