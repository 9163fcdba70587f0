#ifndef REPLAYCOMMAND_H
#define REPLAYCOMMAND_H

#include <string>
#include <vector>

namespace logwrites {

// The command line of crashpoint-replay without the program name: what it
// prints on standard output and standard error, and its exit status (0, 1 for
// a failure or a missing mark, 2 for a bad command line).
int runReplayCommand(const std::vector<std::string> &args, std::string *out, std::string *err);

} // namespace logwrites

#endif // REPLAYCOMMAND_H
