// twkey files ls|get|put|rm and seal read|write: data kept on the key.
#ifndef TWHOST_FILECOMMANDS_H
#define TWHOST_FILECOMMANDS_H

class CliContext;

class FileCommands
{
public:
    static int files(CliContext &ctx);
    static int seal(CliContext &ctx);
};

#endif
