// twkey watch: token arrivals and removals as they happen.
#ifndef TWHOST_WATCHCOMMAND_H
#define TWHOST_WATCHCOMMAND_H

class CliContext;

class WatchCommand
{
public:
    static int watch(CliContext &ctx);
};

#endif
