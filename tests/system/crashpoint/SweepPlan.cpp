#include "SweepPlan.h"

namespace logwrites {

const char *const EndMark = "dm-log-writes-end";

bool planStates(const std::vector<Entry> &entries, const std::vector<std::string> &marks,
                std::vector<PlannedState> *plan, std::string *error)
{
    plan->clear();
    std::size_t seen = 0; // recorded marks met so far
    for (const Entry &entry : entries) {
        if (entry.flags & Mark) {
            if (entry.mark == EndMark)
                continue;
            if (seen >= marks.size() || entry.mark != marks[seen]) {
                *error = "entry " + std::to_string(entry.index) + " is the mark \"" + entry.mark + "\", expected "
                         + (seen < marks.size() ? "\"" + marks[seen] + "\"" : std::string("none"));
                return false;
            }
            ++seen;
            if (seen == 1)
                plan->push_back({entry.index, 0, false});
            else
                plan->back().lastBeforeMark = true;
        } else if (seen > 0 && entry.changesTarget()) {
            plan->push_back({entry.index, seen - 1, false});
        }
    }
    if (seen != marks.size()) {
        *error = "the log holds " + std::to_string(seen) + " of the " + std::to_string(marks.size())
                 + " recorded marks";
        return false;
    }
    if (!plan->empty())
        plan->back().lastBeforeMark = true;
    return true;
}

} // namespace logwrites
