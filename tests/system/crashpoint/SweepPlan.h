#ifndef SWEEPPLAN_H
#define SWEEPPLAN_H

#include "LogWrites.h"

#include <string>
#include <vector>

namespace logwrites {

// The mark that the kernel adds when the target is removed.
extern const char *const EndMark;

// One state of the disk that a sweep checks: as it was after entry `entry`.
struct PlannedState
{
    std::uint64_t entry = 0;
    // The last of the recorded marks at or before the entry (0 for the
    // first): the operation under way is the one between it and the next.
    std::size_t mark = 0;
    // The last state before a mark, or the last of all: the state in which
    // the operation before that mark had finished.
    bool lastBeforeMark = false;
};

// The states from the first recorded mark on: the one at that mark, then the
// one after each later entry that changes the disk (the others leave it as it
// was). The log's marks, but for EndMark, must be exactly `marks`, in order.
bool planStates(const std::vector<Entry> &entries, const std::vector<std::string> &marks,
                std::vector<PlannedState> *plan, std::string *error);

} // namespace logwrites

#endif // SWEEPPLAN_H
