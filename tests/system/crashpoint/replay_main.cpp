// crashpoint-replay: lists a dm-log-writes log, finds its marks and replays
// it onto a device or image file, all of it or entry by entry, so that a
// sweep over every state of the disk applies each entry once.
#include "ReplayCommand.h"

#include <cstdio>

int main(int argc, char *argv[])
{
    std::string out, err;
    const int status = logwrites::runReplayCommand(std::vector<std::string>(argv + 1, argv + argc), &out, &err);
    std::fwrite(out.data(), 1, out.size(), stdout);
    std::fwrite(err.data(), 1, err.size(), stderr);
    return status;
}
