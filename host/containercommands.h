// twkey containers ls|create|rm, cert import|export, keygen, pubkey.
#ifndef TWHOST_CONTAINERCOMMANDS_H
#define TWHOST_CONTAINERCOMMANDS_H

class CliContext;

class ContainerCommands
{
public:
    static int containers(CliContext &ctx);
    static int cert(CliContext &ctx);
    static int keygen(CliContext &ctx);
    static int pubkey(CliContext &ctx);
};

#endif
