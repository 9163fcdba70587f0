// crashpoint-sweep CONFIG: every state that a dm-log-writes log of the
// settings disk passed through, checked as after a power cut. In one process
// because a booted image under emulation pays dearly for each process it
// starts: the replay, the copies, the mounts and the checks happen here, and
// only the readers (once per distinct content), a check's commands
// (fsck.fat, a recovery step, the daemon) run as processes.
//
// For each state (planned by planStates) and each variant: the disk's bytes
// are copied to the state's image, the variant's command runs on it, and in
// a mount namespace of its own the image is mounted where the device has its
// settings disk, with the layout's bind mounts, the recovery command runs,
// and each settings file is checked. One line per file on standard output:
//   R TAG VARIANT ENTRY FILE BYTES READER META LEFT START-UP RECOVERY
// BYTES: old or new (those before or after the operation under way),
// lost:missing, lost:empty, lost:vN (an earlier save's bytes), torn, or
// lost:unmountable; READER: ok, unreadable or - (no reader); META: ok or
// changed (owner, group, mode, links); LEFT: ok, removed (something was beside
// the file, and the cleanup command removed it), left (it is still there) or
// kept (still there because the file system turned read-only: vfat does when
// it meets an error as mounted, and then nothing can be removed);
// START-UP: ok, wrong or - (not a sample);
// RECOVERY: the recovery command's status or -.
//
// CONFIG, one directive a line ("{}" in a command is replaced by a path):
//   tag WORDS                       printed after R
//   log PATH                        the log
//   base PATH                       the disk as the log starts from
//   scratch PATH                    the disk replayed entry by entry
//   state PATH                      each state's copy, which the checks change
//   versions DIR                    DIR/marks (one mark a line); DIR/vK/FILE, the
//                                   files at mark K; DIR/meta.FILE, "uid:gid mode
//                                   links" before the saves
//   mount TYPE OPTIONS DIR          how and where a state is mounted
//   bind SOURCE TARGET              SOURCE (in the mounted state) over TARGET
//   file NAME DISKPATH DEVICEPATH [READER...]
//                                   a settings file, where it is in the state and
//                                   on the device, and its reader
//   hardlink NAME DISKPATH          another name the file keeps
//   watch NAME DIR LISTING          a directory where a save of the file puts
//                                   things (beside its link, its target, the
//                                   state directory); LISTING, its names before
//   variant NAME [COMMAND...]       run on the image before it is mounted
//   recover COMMAND...              run on every mounted state
//   cleanup COMMAND...              run when something is beside the files
//   startup COMMAND...              run on the last state before each mark whose
//                                   files hold saved bytes; CRASH_VERSION_FILE
//                                   (dots as _), CRASH_ENTRY and CRASH_VARIANT set
//   examples DIR                    the first torn files of each kind go there
#include "LogWrites.h"
#include "SweepPlan.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <linux/loop.h>
#include <map>
#include <sched.h>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct File
{
    std::string name;
    std::string diskPath;
    std::string devicePath;
    std::string reader;
    std::string hardlink;
    std::string meta;                    // before the saves
    // Directories a save puts things in, with their names before the saves.
    std::vector<std::pair<std::string, std::vector<std::string>>> watched;
    std::vector<std::string> versions;  // the bytes at each mark
    std::vector<std::string> readings;  // the reader's output on them
};

struct Variant
{
    std::string name;
    std::string command;
};

struct Config
{
    std::string tag, log, base, scratch, state, versions, mountType, mountOptions, mountDir;
    std::string recover, cleanup, startup, examples;
    std::vector<std::pair<std::string, std::string>> binds;
    std::vector<File> files;
    std::vector<Variant> variants;
    std::vector<std::string> marks;
};

[[noreturn]] void die(const std::string &message)
{
    std::fprintf(stderr, "crashpoint-sweep: %s\n", message.c_str());
    std::exit(1);
}

std::string systemError(const std::string &what)
{
    return what + ": " + std::strerror(errno);
}

bool readFile(const std::string &path, std::string *bytes)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    std::ostringstream out;
    out << in.rdbuf();
    *bytes = out.str();
    return !in.bad();
}

std::vector<std::string> lines(const std::string &text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

std::string trimmed(const std::string &text)
{
    const auto first = text.find_first_not_of(" \t\n");
    const auto last = text.find_last_not_of(" \t\n");
    return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
}

Config readConfig(const std::string &path)
{
    std::string text;
    if (!readFile(path, &text))
        die(systemError(path));
    Config c;
    for (const std::string &line : lines(text)) {
        std::istringstream words(line);
        std::string key;
        if (!(words >> key) || key[0] == '#')
            continue;
        std::string rest;
        std::getline(words >> std::ws, rest);
        std::istringstream args(rest);
        if (key == "tag") {
            c.tag = rest;
        } else if (key == "log") {
            c.log = rest;
        } else if (key == "base") {
            c.base = rest;
        } else if (key == "scratch") {
            c.scratch = rest;
        } else if (key == "state") {
            c.state = rest;
        } else if (key == "versions") {
            c.versions = rest;
        } else if (key == "mount") {
            args >> c.mountType >> c.mountOptions >> c.mountDir;
        } else if (key == "bind") {
            std::string source, target;
            args >> source >> target;
            c.binds.emplace_back(source, target);
        } else if (key == "file") {
            File f;
            args >> f.name >> f.diskPath >> f.devicePath;
            std::getline(args >> std::ws, f.reader);
            c.files.push_back(f);
        } else if (key == "hardlink") {
            std::string name, disk;
            args >> name >> disk;
            for (File &f : c.files)
                if (f.name == name)
                    f.hardlink = disk;
        } else if (key == "watch") {
            std::string name, dir, listingPath, text;
            args >> name >> dir >> listingPath;
            if (!readFile(listingPath, &text))
                die(systemError(listingPath));
            std::vector<std::string> names = lines(text);
            std::sort(names.begin(), names.end());
            for (File &f : c.files)
                if (f.name == name)
                    f.watched.emplace_back(dir, names);
        } else if (key == "variant") {
            Variant v;
            args >> v.name;
            std::getline(args >> std::ws, v.command);
            c.variants.push_back(v);
        } else if (key == "recover") {
            c.recover = rest;
        } else if (key == "cleanup") {
            c.cleanup = rest;
        } else if (key == "startup") {
            c.startup = rest;
        } else if (key == "examples") {
            c.examples = rest;
        } else {
            die(path + ": unknown directive " + key);
        }
    }
    if (c.log.empty() || c.base.empty() || c.scratch.empty() || c.state.empty() || c.versions.empty()
        || c.mountDir.empty() || c.files.empty() || c.variants.empty())
        die(path + ": needs log, base, scratch, state, versions, mount, file and variant");
    return c;
}

// A command line split at blanks, with {} replaced by path.
std::vector<std::string> commandLine(const std::string &command, const std::string &path)
{
    std::vector<std::string> out;
    std::istringstream words(command);
    for (std::string word; words >> word;) {
        for (std::size_t at; (at = word.find("{}")) != std::string::npos;)
            word.replace(at, 2, path);
        out.push_back(word);
    }
    return out;
}

// Runs a command with extra environment; its output goes to *output (both
// streams) when given, else to standard error. Returns the exit status (128
// + signal when killed).
int runCommand(const std::vector<std::string> &args, const std::vector<std::pair<std::string, std::string>> &env,
               std::string *output = nullptr)
{
    int pipeFds[2] = {-1, -1};
    if (output && ::pipe2(pipeFds, O_CLOEXEC) != 0)
        die(systemError("pipe"));
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid < 0)
        die(systemError("fork"));
    if (pid == 0) {
        const int out = output ? pipeFds[1] : STDERR_FILENO;
        ::dup2(out, STDOUT_FILENO);
        ::dup2(out, STDERR_FILENO);
        for (const auto &e : env)
            ::setenv(e.first.c_str(), e.second.c_str(), 1);
        std::vector<char *> list;
        for (const std::string &a : args)
            list.push_back(const_cast<char *>(a.c_str()));
        list.push_back(nullptr);
        ::execvp(list[0], list.data());
        std::fprintf(stderr, "crashpoint-sweep: %s: %s\n", list[0], std::strerror(errno));
        ::_exit(127);
    }
    if (output) {
        ::close(pipeFds[1]);
        output->clear();
        char buffer[4096];
        for (ssize_t n; (n = ::read(pipeFds[0], buffer, sizeof buffer)) != 0;) {
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0)
                break;
            output->append(buffer, std::size_t(n));
        }
        ::close(pipeFds[0]);
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void copyFile(const std::string &from, const std::string &to)
{
    const int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    const int out = ::open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (in < 0 || out < 0)
        die(systemError("copying " + from + " to " + to));
    std::vector<char> buffer(1 << 20);
    for (ssize_t n; (n = ::read(in, buffer.data(), buffer.size())) != 0;) {
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 || ::write(out, buffer.data(), std::size_t(n)) != n)
            die(systemError("copying " + from + " to " + to));
    }
    ::close(in);
    ::close(out);
}

std::vector<std::string> listing(const std::string &dir)
{
    std::vector<std::string> names;
    DIR *d = ::opendir(dir.c_str());
    if (!d)
        return {"(" + std::string(std::strerror(errno)) + ")"};
    while (const dirent *e = ::readdir(d)) {
        const std::string name = e->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    ::closedir(d);
    std::sort(names.begin(), names.end());
    return names;
}

std::string metaOf(const struct stat &st)
{
    char text[64];
    std::snprintf(text, sizeof text, "%u:%u %o %lu", unsigned(st.st_uid), unsigned(st.st_gid),
                  unsigned(st.st_mode & 07777), static_cast<unsigned long>(st.st_nlink));
    return text;
}

std::string envName(const std::string &file)
{
    std::string name = "CRASH_VERSION_" + file;
    std::replace(name.begin(), name.end(), '.', '_');
    return name;
}

class Sweep
{
public:
    explicit Sweep(Config config) : _c(std::move(config)) {}

    void loadVersions()
    {
        std::string text;
        if (!readFile(_c.versions + "/marks", &text))
            die(systemError(_c.versions + "/marks"));
        _c.marks = lines(text);
        for (File &f : _c.files) {
            if (!readFile(_c.versions + "/meta." + f.name, &text))
                die(systemError(_c.versions + "/meta." + f.name));
            f.meta = trimmed(text);
            for (std::size_t k = 0; k < _c.marks.size(); ++k) {
                const std::string path = _c.versions + "/v" + std::to_string(k) + "/" + f.name;
                if (!readFile(path, &text))
                    die(systemError(path));
                f.versions.push_back(text);
                f.readings.push_back(f.reader.empty() ? std::string() : reading(f, text, path));
            }
        }
    }

    void run()
    {
        std::string error;
        logwrites::Reader log;
        if (!log.open(_c.log, &error))
            die(error);
        std::vector<logwrites::Entry> entries;
        for (logwrites::Entry e; log.next(&e, &error);)
            entries.push_back(e);
        if (!error.empty())
            die(error);
        std::vector<logwrites::PlannedState> plan;
        if (!logwrites::planStates(entries, _c.marks, &plan, &error))
            die(error);
        if (plan.empty())
            die("no states to check");

        copyFile(_c.base, _c.scratch);
        const int scratch = ::open(_c.scratch.c_str(), O_WRONLY | O_CLOEXEC);
        const off_t size = scratch < 0 ? -1 : ::lseek(scratch, 0, SEEK_END);
        if (size < 0)
            die(systemError(_c.scratch));
        _ownNamespace = ::open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC);
        if (_ownNamespace < 0)
            die(systemError("/proc/self/ns/mnt"));

        std::size_t next = 0; // the next entry to apply
        const auto started = std::chrono::steady_clock::now();
        for (const logwrites::PlannedState &state : plan) {
            for (; next <= state.entry; ++next) {
                if (!logwrites::apply(log, entries[next], scratch, std::uint64_t(size), &error))
                    die(error);
            }
            for (const Variant &variant : _c.variants)
                check(state, variant);
        }
        ::close(scratch);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        std::fprintf(stderr, "crashpoint-sweep: %zu states, %zu variants, in %.0f s\n", plan.size(),
                     _c.variants.size(), seconds);
    }

private:
    // What the reader makes of bytes (at path), once per distinct content:
    // the reader's output depends on nothing else.
    std::string reading(const File &f, const std::string &bytes, const std::string &path)
    {
        const auto key = std::make_pair(f.name, bytes);
        const auto known = _readings.find(key);
        if (known != _readings.end())
            return known->second;
        std::string output;
        const int status = runCommand(commandLine(f.reader, path), {}, &output);
        output += "status " + std::to_string(status) + "\n";
        _readings.emplace(key, output);
        return output;
    }

    // A loop device of its own for each state, cleared on its last close: a
    // prober that still has the previous one open (udev's blkid) holds only
    // that one up.
    void attach()
    {
        const int control = ::open("/dev/loop-control", O_RDWR | O_CLOEXEC);
        const int image = ::open(_c.state.c_str(), O_RDWR | O_CLOEXEC);
        if (control < 0 || image < 0)
            die(systemError("/dev/loop-control or " + _c.state));
        loop_config config = {};
        config.fd = unsigned(image);
        config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
        for (int tries = 100;; --tries) {
            const int number = ::ioctl(control, LOOP_CTL_GET_FREE);
            if (number < 0)
                die(systemError("/dev/loop-control"));
            _loopPath = "/dev/loop" + std::to_string(number);
            _loop = ::open(_loopPath.c_str(), O_RDWR | O_CLOEXEC);
            if (_loop >= 0 && ::ioctl(_loop, LOOP_CONFIGURE, &config) == 0)
                break;
            // Taken between the two calls: another one.
            if ((_loop >= 0 && errno != EBUSY) || tries == 0)
                die(systemError("attaching " + _c.state + " to " + _loopPath));
            if (_loop >= 0)
                ::close(_loop);
        }
        ::close(image);
        ::close(control);
    }

    void detach()
    {
        ::close(_loop);
        _loop = -1;
    }

    void check(const logwrites::PlannedState &state, const Variant &variant)
    {
        copyFile(_c.scratch, _c.state);
        // What the command says shows in the checks that follow.
        std::string ignored;
        if (!variant.command.empty())
            runCommand(commandLine(variant.command, _c.state), {}, &ignored);
        const std::size_t k = state.mark;
        const std::size_t next = std::min(k + 1, _c.marks.size() - 1);
        const std::string prefix =
            "R " + _c.tag + " " + variant.name + " " + std::to_string(state.entry) + " ";

        if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            die(systemError("a mount namespace of its own"));
        attach();
        const char *options = _c.mountOptions == "defaults" ? nullptr : _c.mountOptions.c_str();
        if (::mount(_loopPath.c_str(), _c.mountDir.c_str(), _c.mountType.c_str(), 0, options) != 0) {
            for (const File &f : _c.files)
                std::printf("%s%s lost:unmountable - - - - -\n", prefix.c_str(), f.name.c_str());
            leaveNamespace(false);
            return;
        }
        std::vector<std::string> bound;
        for (const auto &bind : _c.binds) {
            if (::mount((_c.mountDir + "/" + bind.first).c_str(), bind.second.c_str(), nullptr, MS_BIND, nullptr) != 0)
                die(systemError("binding " + bind.first + " over " + bind.second));
            bound.push_back(bind.second);
        }

        const std::string recovery =
            _c.recover.empty() ? "-" : std::to_string(runCommand(commandLine(_c.recover, ""), {{"PANEL_SETUP_ROOT", ""}}));

        // The files first, as the power cut (and the recovery step) left them:
        // the cleanup below starts the daemon, which may write them.
        std::vector<std::string> lines;
        std::vector<std::pair<std::string, std::string>> versionsHeld;
        for (const File &f : _c.files) {
            const std::string disk = _c.mountDir + "/" + f.diskPath;
            std::string bytes;
            std::string verdict = "torn";
            struct stat st = {};
            const bool exists = ::lstat(disk.c_str(), &st) == 0;
            if (!exists) {
                verdict = "lost:missing";
            } else if (!S_ISREG(st.st_mode) || !readFile(disk, &bytes)) {
                verdict = "torn";
            } else if (bytes.empty()) {
                verdict = "lost:empty";
            } else if (bytes == f.versions[k]) {
                verdict = "old";
                versionsHeld.emplace_back(envName(f.name), std::to_string(k));
            } else if (bytes == f.versions[next]) {
                verdict = "new";
                versionsHeld.emplace_back(envName(f.name), std::to_string(next));
            } else {
                for (std::size_t j = 0; j < k; ++j)
                    if (bytes == f.versions[j])
                        verdict = "lost:v" + std::to_string(j);
            }
            if (verdict == "torn" && exists)
                keepExample(variant.name, f.name, state.entry, disk);

            std::string reader = "-";
            if (!f.reader.empty()) {
                std::string seen;
                const std::string read = readFile(f.devicePath, &seen) ? reading(f, seen, f.devicePath) : "";
                reader = read == f.readings[k] || read == f.readings[next] ? "ok" : "unreadable";
            }
            std::string meta = exists && S_ISREG(st.st_mode) && metaOf(st) == f.meta ? "ok" : "changed";
            if (meta == "ok" && !f.hardlink.empty()) {
                struct stat other = {};
                if (::lstat((_c.mountDir + "/" + f.hardlink).c_str(), &other) != 0 || other.st_ino != st.st_ino)
                    meta = "changed";
            }
            lines.push_back(f.name + " " + verdict + " " + reader + " " + meta);
        }

        // What a save left beside the files must be gone once the cleanup ran.
        const auto leftBeside = [](const File &f) {
            for (const auto &dir : f.watched)
                if (listing(dir.first) != dir.second)
                    return true;
            return false;
        };
        std::vector<bool> beside;
        for (const File &f : _c.files)
            beside.push_back(leftBeside(f));
        if (std::find(beside.begin(), beside.end(), true) != beside.end() && !_c.cleanup.empty())
            runCommand(commandLine(_c.cleanup, ""), {});
        struct statvfs mounted = {};
        const bool readOnly = ::statvfs(_c.mountDir.c_str(), &mounted) == 0 && (mounted.f_flag & ST_RDONLY);
        for (std::size_t i = 0; i < _c.files.size(); ++i) {
            const bool left = leftBeside(_c.files[i]);
            lines[i] += left ? (readOnly ? " kept" : " left") : beside[i] ? " removed" : " ok";
            if (left)
                keepLeftovers(variant.name, _c.files[i], state.entry, readOnly);
        }

        std::string startup = "-";
        if (state.lastBeforeMark && !_c.startup.empty() && versionsHeld.size() == _c.files.size()) {
            versionsHeld.emplace_back("CRASH_ENTRY", std::to_string(state.entry));
            versionsHeld.emplace_back("CRASH_VARIANT", variant.name);
            startup = runCommand(commandLine(_c.startup, ""), versionsHeld) == 0 ? "ok" : "wrong";
        }
        for (const std::string &line : lines)
            std::printf("%s%s %s %s\n", prefix.c_str(), line.c_str(), startup.c_str(), recovery.c_str());
        std::fflush(stdout);

        for (auto target = bound.rbegin(); target != bound.rend(); ++target) {
            if (::umount2(target->c_str(), 0) != 0)
                die(systemError("unmounting " + *target));
        }
        leaveNamespace(true);
    }

    void leaveNamespace(bool mounted)
    {
        if (mounted && ::umount2(_c.mountDir.c_str(), 0) != 0)
            die(systemError("unmounting " + _c.mountDir));
        detach();
        if (::setns(_ownNamespace, CLONE_NEWNS) != 0)
            die(systemError("back to the mount namespace"));
    }

    void keepExample(const std::string &variant, const std::string &file, std::uint64_t entry, const std::string &path)
    {
        if (_c.examples.empty() || _examples[variant + " " + file]++ >= 3)
            return;
        copyFile(path, _c.examples + "/torn-" + variant + "-" + file + "-" + std::to_string(entry));
    }

    // The names beside the file that the cleanup did not remove.
    void keepLeftovers(const std::string &variant, const File &f, std::uint64_t entry, bool readOnly)
    {
        if (_c.examples.empty() || _examples["left " + variant + " " + f.name]++ >= 3)
            return;
        std::ofstream out(_c.examples + "/left-" + variant + "-" + f.name + "-" + std::to_string(entry));
        for (const auto &dir : f.watched) {
            for (const std::string &name : listing(dir.first)) {
                if (!std::binary_search(dir.second.begin(), dir.second.end(), name))
                    out << dir.first << '/' << name << '\n';
            }
        }
        if (readOnly)
            out << "(the file system had turned read-only)\n";
    }

    Config _c;
    int _ownNamespace = -1;
    int _loop = -1;
    std::string _loopPath;
    std::map<std::pair<std::string, std::string>, std::string> _readings;
    std::map<std::string, int> _examples;
};

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 2) {
        std::fputs("usage: crashpoint-sweep CONFIG\n", stderr);
        return 2;
    }
    Sweep sweep(readConfig(argv[1]));
    sweep.loadVersions();
    sweep.run();
    return 0;
}
