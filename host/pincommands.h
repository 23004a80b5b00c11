// twkey login, change-pin, unblock, reset-admin-pin, pin-info, format.
#ifndef TWHOST_PINCOMMANDS_H
#define TWHOST_PINCOMMANDS_H

class CliContext;

class PinCommands
{
public:
    static int login(CliContext &ctx);
    static int changePin(CliContext &ctx);
    static int unblock(CliContext &ctx);
    static int resetAdminPin(CliContext &ctx);
    static int pinInfo(CliContext &ctx);
    static int format(CliContext &ctx);
};

#endif
