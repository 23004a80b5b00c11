// twkey version, list, info.
#ifndef TWHOST_INFOCOMMANDS_H
#define TWHOST_INFOCOMMANDS_H

class CliContext;

class InfoCommands
{
public:
    static int version(CliContext &ctx);
    static int list(CliContext &ctx);
    static int info(CliContext &ctx);
};

#endif
