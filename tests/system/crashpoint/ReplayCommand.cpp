#include "ReplayCommand.h"

#include "LogWrites.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace logwrites {

namespace {

const char *const Usage =
    "usage: crashpoint-replay info LOG\n"
    "       crashpoint-replay list LOG\n"
    "       crashpoint-replay find LOG MARK\n"
    "       crashpoint-replay replay LOG TARGET [--from M] --to N\n"
    "info: the number of entries and the sector size.\n"
    "list: one line per entry: index, sector, number of sectors, flags (FLUSH, FUA,\n"
    "  DISCARD, MARK, METADATA joined by |, or -) and a mark's text.\n"
    "find: the index of the first mark with that text; status 1 when there is none.\n"
    "replay: puts entries M (default 0) to N, both included, on TARGET: the disk\n"
    "  as it was after entry N, when TARGET holds it as it was before entry M.\n";

struct Output
{
    std::string *out;
    std::string *err;

    int usage() const
    {
        *err += Usage;
        return 2;
    }

    int fail(const std::string &message) const
    {
        *err += "crashpoint-replay: " + message + "\n";
        return 1;
    }
};

bool parseIndex(const std::string &text, std::uint64_t *value)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    errno = 0;
    const unsigned long long parsed = std::strtoull(text.c_str(), nullptr, 10);
    if (errno != 0)
        return false;
    *value = parsed;
    return true;
}

int info(Reader &log, const Output &o)
{
    *o.out += "entries " + std::to_string(log.entryCount()) + "\nsector size " + std::to_string(log.sectorSize())
              + "\n";
    return 0;
}

int list(Reader &log, const Output &o)
{
    Entry entry;
    std::string error;
    while (log.next(&entry, &error)) {
        *o.out += std::to_string(entry.index) + ' ' + std::to_string(entry.sector) + ' '
                  + std::to_string(entry.sectors) + ' ' + flagNames(entry.flags);
        if (entry.flags & Mark)
            *o.out += ' ' + entry.mark;
        *o.out += '\n';
    }
    return error.empty() ? 0 : o.fail(error);
}

int find(Reader &log, const std::string &mark, const Output &o)
{
    Entry entry;
    std::string error;
    while (log.next(&entry, &error)) {
        if ((entry.flags & Mark) && entry.mark == mark) {
            *o.out += std::to_string(entry.index) + '\n';
            return 0;
        }
    }
    return o.fail(error.empty() ? "no mark \"" + mark + "\"" : error);
}

int replay(Reader &log, const std::string &targetPath, std::uint64_t from, std::uint64_t to, const Output &o)
{
    if (to >= log.entryCount())
        return o.fail("entry " + std::to_string(to) + " is past the end of the log (" + std::to_string(log.entryCount())
                      + " entries)");
    if (from > to)
        return o.fail("--from " + std::to_string(from) + " is after --to " + std::to_string(to));
    const int target = ::open(targetPath.c_str(), O_WRONLY | O_CLOEXEC);
    if (target < 0)
        return o.fail(targetPath + ": " + std::strerror(errno));
    const off_t size = ::lseek(target, 0, SEEK_END);
    std::string error;
    bool ok = size >= 0;
    if (!ok)
        error = targetPath + ": " + std::strerror(errno);
    Entry entry;
    while (ok && log.next(&entry, &error)) {
        if (entry.index >= from)
            ok = apply(log, entry, target, std::uint64_t(size), &error);
        if (entry.index == to)
            break;
    }
    ok = ok && error.empty();
    // A device keeps what was written in its cache until synced.
    if (ok && ::fdatasync(target) != 0 && errno != EINVAL) {
        error = targetPath + ": " + std::strerror(errno);
        ok = false;
    }
    ::close(target);
    return ok ? 0 : o.fail(error);
}

} // namespace

int runReplayCommand(const std::vector<std::string> &args, std::string *out, std::string *err)
{
    const Output o{out, err};
    if (args.size() < 2)
        return o.usage();
    const std::string &command = args[0];
    Reader log;
    std::string error;
    if (command == "info" && args.size() == 2)
        return log.open(args[1], &error) ? info(log, o) : o.fail(error);
    if (command == "list" && args.size() == 2)
        return log.open(args[1], &error) ? list(log, o) : o.fail(error);
    if (command == "find" && args.size() == 3)
        return log.open(args[1], &error) ? find(log, args[2], o) : o.fail(error);
    if (command == "replay" && (args.size() == 5 || args.size() == 7)) {
        std::uint64_t from = 0, to = 0;
        bool haveTo = false;
        for (std::size_t i = 3; i + 1 < args.size(); i += 2) {
            std::uint64_t value = 0;
            if (!parseIndex(args[i + 1], &value))
                return o.usage();
            if (args[i] == "--from") {
                from = value;
            } else if (args[i] == "--to" && !haveTo) {
                to = value;
                haveTo = true;
            } else {
                return o.usage();
            }
        }
        if (!haveTo)
            return o.usage();
        return log.open(args[1], &error) ? replay(log, args[2], from, to, o) : o.fail(error);
    }
    return o.usage();
}

} // namespace logwrites
