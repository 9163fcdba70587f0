// panel-bench: the event-to-screen path of the real daemon against a minimal
// relay (panel-bench-relay), measured the same way in the same run. The bench
// plays collector and button driver on loopback, runs the daemon in a sandbox
// root (stub reboot/poweroff first on PATH) and sends menu-shaft turns; each
// turn must come back as two text-line commands. See BENCHMARKS.md.
//
// Exit status: 0, or 1 when a target lost, reordered or added commands or the
// daemon's counts per turn are over their goals, or 2 when a target could not
// be started, or 77 for --counts-only without valgrind. Times never fail the
// run.
#include "BenchLink.h"
#include "BenchProcess.h"

#include "Sandbox.h"

#include <QCoreApplication>
#include <QFile>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QSysInfo>
#include <QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <map>
#include <memory>
#include <sys/prctl.h>
#include <sys/utsname.h>
#include <thread>
#include <unistd.h>

using namespace bench;

namespace {

// No wait of the bench ends a run for slowness alone; these only catch a
// target that is gone.
constexpr int ConnectTimeoutMs = 30000;
constexpr int FirstDrawingCommands = 17;
// The version file of the setup sandbox: the main menu's last item is "V=" and
// the version.
const QByteArray BenchVersion = "4.5.6";
// Exit status of --counts-only when valgrind is missing (CTest's skip).
constexpr int SkipStatus = 77;
// Per-turn counts are the difference of two closed-loop runs of these many
// turns, so that start-up and exit cancel out.
constexpr int CountTurnsShort = 200;
constexpr int CountTurnsLong = 1200;
// What a menu turn may cost the daemon (deterministic counts, so asserted).
constexpr double InstructionsGoal = 12000;
constexpr double SyscallsGoal = 9;
// Busy /tmp: the files present and the changes per second, every pair measured.
const int BusyFileCounts[] = {50, 2000};
const double BusyRates[] = {100, 1000};
// The daemon's CPU time per change at most this times the baseline's, with
// 2000 files; under this share of a core at 100 changes/s with 50 files.
constexpr double BusyRatioGoal = 2;
constexpr double BusyShareGoal = 0.01;
// The daemon's RSS at most this much over the Qt floor's, in MB.
constexpr double FloorExcessGoalMb = 0.7;

struct Options
{
    bool ci = false;
    QString daemon = QStringLiteral(PANEL_SETUP_BINARY);
    QString relay = QStringLiteral(PANEL_BENCH_RELAY);
    QString watch = QStringLiteral(PANEL_BENCH_WATCH);
    QString floor = QStringLiteral(PANEL_BENCH_QT_FLOOR);
    QString daemonLog = QStringLiteral("/dev/null");
    QStringList daemonEnv; // NAME=VALUE added to the daemon's environment
    int benchCpu = -1;
    int targetCpu = -1;
    int startupRuns = 20;
    double idleSeconds = 10;
    int warmupEvents = 2000;
    int closedEvents = 20000;
    std::vector<double> rates = {300, 1000, 5000};
    double rateSeconds = 5;
    int memoryEvents = 100000;
    bool search = true;
    double searchSeconds = 2;
    double checkRate = 20000; // the short form's one fast rate
    bool busy = true;
    double busySeconds = 10; // per target, files count and rate
    int busyChunks = 4;
    bool counts = true;
    bool countsOnly = false;
};

void usage()
{
    printf("usage: panel-bench [--ci] [--daemon PATH] [--relay PATH] [--watch PATH] [--floor PATH]\n"
           "                   [--daemon-log FILE] [--daemon-env NAME=VALUE]\n"
           "                   [--pin same|split] [--closed N] [--idle SECONDS] [--rate-seconds S]\n"
           "                   [--startup-runs N] [--memory-events N] [--search-seconds S] [--no-search]\n"
           "                   [--busy-seconds S | --no-busy] [--no-counts | --counts-only]\n"
           "  --ci           short form (a few seconds)\n"
           "  --counts-only  only the instructions and system calls per turn (under valgrind);\n"
           "                 exit status %d when valgrind is missing\n"
           "  --pin same     bench, daemon and relay all on CPU 0\n"
           "  --pin split    bench on CPU 0, daemon and relay on CPU 1\n",
           SkipStatus);
}

bool parse(int argc, char *argv[], Options *o)
{
    for (int i = 1; i < argc; ++i) {
        const QByteArray arg = argv[i];
        const bool hasValue = i + 1 < argc;
        const QByteArray value = hasValue ? QByteArray(argv[i + 1]) : QByteArray();
        if (arg == "--ci") {
            o->ci = true;
            o->startupRuns = 3;
            o->idleSeconds = 1;
            o->warmupEvents = 200;
            o->closedEvents = 1000;
            o->rateSeconds = 0.5;
            o->memoryEvents = 10000;
            o->search = false;
            o->busySeconds = 0.5;
            o->busyChunks = 2;
        } else if (arg == "--no-search") {
            o->search = false;
        } else if (arg == "--no-busy") {
            o->busy = false;
        } else if (arg == "--no-counts") {
            o->counts = false;
        } else if (arg == "--counts-only") {
            o->countsOnly = true;
        } else if (!hasValue) {
            return false;
        } else if (arg == "--daemon") {
            o->daemon = QString::fromLocal8Bit(value), ++i;
        } else if (arg == "--relay") {
            o->relay = QString::fromLocal8Bit(value), ++i;
        } else if (arg == "--watch") {
            o->watch = QString::fromLocal8Bit(value), ++i;
        } else if (arg == "--floor") {
            o->floor = QString::fromLocal8Bit(value), ++i;
        } else if (arg == "--busy-seconds") {
            o->busySeconds = value.toDouble(), ++i;
        } else if (arg == "--daemon-env" && value.contains('=')) {
            o->daemonEnv << QString::fromLocal8Bit(value), ++i;
        } else if (arg == "--daemon-log") {
            o->daemonLog = QString::fromLocal8Bit(value), ++i;
        } else if (arg == "--pin" && (value == "same" || value == "split")) {
            o->benchCpu = 0;
            o->targetCpu = value == "same" ? 0 : 1;
            ++i;
        } else if (arg == "--closed") {
            o->closedEvents = value.toInt(), ++i;
        } else if (arg == "--idle") {
            o->idleSeconds = value.toDouble(), ++i;
        } else if (arg == "--rate-seconds") {
            o->rateSeconds = value.toDouble(), ++i;
        } else if (arg == "--startup-runs") {
            o->startupRuns = value.toInt(), ++i;
        } else if (arg == "--memory-events") {
            o->memoryEvents = value.toInt(), ++i;
        } else if (arg == "--search-seconds") {
            o->searchSeconds = value.toDouble(), ++i;
        } else {
            return false;
        }
    }
    return o->closedEvents > 0 && o->startupRuns > 0 && o->idleSeconds > 0 && o->rateSeconds > 0
           && o->busySeconds > 0 && (o->counts || !o->countsOnly);
}

QString cpuModel()
{
    QFile file(QStringLiteral("/proc/cpuinfo"));
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("?");
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.startsWith("model name"))
            return QString::fromLatin1(line.mid(line.indexOf(':') + 1).trimmed());
    }
    return QStringLiteral("?");
}

// A running target with its two connections.
struct Target
{
    explicit Target(const char *name) : name(name) {}

    const char *name;
    Child child;
    Listener collector;
    Listener driver;
    std::unique_ptr<Link> link;
    Accepted accepted;

    bool start(const QString &program, const QStringList &arguments, const Sandbox &sandbox,
               const QString &output, int cpu, const QStringList &extraEnvironment = {})
    {
        link.reset();
        QProcessEnvironment environment = sandbox.environment(collector.port(), driver.port());
        for (const QString &entry : extraEnvironment)
            environment.insert(entry.section(QLatin1Char('='), 0, 0), entry.section(QLatin1Char('='), 1));
        if (!collector.isValid() || !driver.isValid()
            || !child.start(program, arguments, environment.toStringList(), output, cpu)
            || !acceptBoth(collector, driver, ConnectTimeoutMs, &accepted)) {
            fprintf(stderr, "panel-bench: %s did not connect to both peers\n", name);
            return false;
        }
        link = std::make_unique<Link>(accepted, child.pid());
        return true;
    }

    // Reads the target's first drawing (the daemon's take-over: `commands`
    // commands, the last eight the main menu's items; the relay draws none)
    // and gives the link the frames that every turn is checked against.
    bool drawsMainMenu(int commands, const MenuFrames &frames)
    {
        std::vector<QByteArray> drawing;
        if (!link->readCommands(commands, ConnectTimeoutMs, &drawing)
            || (commands > 0 && !frames.matchFirstDrawing(drawing))) {
            fprintf(stderr, "panel-bench: %s did not draw the main menu\n", name);
            return false;
        }
        link->setFrames(frames);
        return true;
    }
};

bool allClean = true;

void note(const char *target, const PhaseResult &r)
{
    if (r.clean())
        return;
    allClean = false;
    printf("  !! %s: %lld of %lld commands lost, %lld out of order or wrong, %lld unexpected\n", target, r.lost,
           r.commandsExpected, r.mismatched, r.unexpected);
}

void printPhase(const char *label, const char *target, const PhaseResult &r)
{
    const double events = std::max(1, r.events);
    printf("  %-22s %-8s %7d ev  p50 %8.1f  p99 %8.1f  p99.9 %8.1f  max %9.1f us  cpu/ev %6.2f us"
           "  lost %lld  misordered %lld\n",
           label, target, r.events, percentile(r.latencyUs, 50), percentile(r.latencyUs, 99),
           percentile(r.latencyUs, 99.9), percentile(r.latencyUs, 100), double(r.cpuNs) / 1000.0 / events,
           r.lost, r.mismatched + r.unexpected);
    note(target, r);
}

double ratio(double a, double b)
{
    return b > 0 ? a / b : 0;
}

// A sandbox in setup mode (start flag) with the bench's version file.
bool makeSetupSandbox(Sandbox *box)
{
    return box->isValid() && box->writeFile(Sandbox::StartFlagPath, QByteArray())
           && box->writeFile(QStringLiteral("/opt/kd5820m/version"), "kd5820m version " + BenchVersion + "\n");
}

// The relay's arguments: the eight item texts.
QStringList relayArguments(const MenuFrames &frames)
{
    QStringList texts;
    for (const QByteArray &text : frames.texts)
        texts << QString::fromLatin1(text);
    return texts;
}

// What valgrind counted over one run of a target: callgrind's instructions
// and the target's system calls by name (--trace-syscalls).
struct RunCounts
{
    long long instructions = -1;
    std::map<QByteArray, long long> syscalls;
};

// Per closed-loop turn: everything the target executes for one event, from
// the wake-up on the frame to the next wait, its log lines included.
struct TurnCounts
{
    double instructions = 0;
    std::map<QByteArray, double> syscalls;

    // Without the calls that are no system calls outside valgrind.
    double syscallTotal() const
    {
        double total = 0;
        for (const auto &entry : syscalls)
            total += isVdsoCall(entry.first) ? 0 : entry.second;
        return total;
    }

    // Calls the kernel's vDSO answers in user space; valgrind traces them
    // as system calls.
    static bool isVdsoCall(const QByteArray &name)
    {
        return name == "sys_clock_gettime" || name == "sys_gettimeofday" || name == "sys_time"
               || name == "sys_getcpu";
    }
};

bool readCounts(const QString &callgrindOut, const QString &valgrindLog, RunCounts *counts)
{
    QFile profile(callgrindOut);
    QFile log(valgrindLog);
    if (!profile.open(QIODevice::ReadOnly) || !log.open(QIODevice::ReadOnly))
        return false;
    while (!profile.atEnd()) {
        const QByteArray line = profile.readLine();
        if (line.startsWith("totals:"))
            counts->instructions = line.mid(7).trimmed().toLongLong();
    }
    // "SYSCALL[pid,tid](nr) sys_read ( ..."; a line with "..." there is the
    // end of an asynchronous call already counted.
    static const QRegularExpression call(QStringLiteral("^SYSCALL\\[\\d+,\\d+\\]\\(\\d+\\) (\\w+)"));
    while (!log.atEnd()) {
        const QRegularExpressionMatch match = call.match(QString::fromLatin1(log.readLine()));
        if (match.hasMatch())
            ++counts->syscalls[match.captured(1).toLatin1()];
    }
    return counts->instructions >= 0;
}

// One run of a target under callgrind: its first drawing (the daemon's main
// menu; the relay draws none), `turns` closed-loop menu turns, SIGTERM.
bool countedRun(const char *name, const QString &valgrind, const QString &program, const QStringList &arguments,
                const QStringList &environment, const QString &output, int cpu, int firstDrawing, int turns,
                RunCounts *counts)
{
    QTemporaryDir dir;
    Sandbox box;
    if (!dir.isValid() || !makeSetupSandbox(&box)) {
        fprintf(stderr, "panel-bench: cannot build the sandbox for the counted run\n");
        return false;
    }
    const QString callgrindOut = dir.filePath(QStringLiteral("callgrind.out"));
    const QString log = dir.filePath(QStringLiteral("valgrind.log"));
    const QStringList valgrindArguments = QStringList{QStringLiteral("--tool=callgrind"),
                                                      QStringLiteral("--callgrind-out-file=") + callgrindOut,
                                                      QStringLiteral("--trace-syscalls=yes"),
                                                      QStringLiteral("--log-file=") + log, program}
                                          + arguments;
    Target target(name);
    if (!target.start(valgrind, valgrindArguments, box, output, cpu, environment)
        || !target.drawsMainMenu(firstDrawing, MenuFrames::mainMenu(BenchVersion)))
        return false;
    PhaseSpec closed;
    closed.window = 1;
    closed.events = turns;
    const PhaseResult result = target.link->run(closed);
    note(name, result);
    target.child.stop();
    if (!result.clean() || !readCounts(callgrindOut, log, counts)) {
        fprintf(stderr, "panel-bench: no counts from %s's run under valgrind\n", name);
        return false;
    }
    return true;
}

// The difference of a short and a long run, per turn.
bool countPerTurn(const char *name, const QString &valgrind, const QString &program, const QStringList &arguments,
                  const QStringList &environment, const QString &output, int cpu, int firstDrawing,
                  TurnCounts *perTurn)
{
    RunCounts shortRun;
    RunCounts longRun;
    if (!countedRun(name, valgrind, program, arguments, environment, output, cpu, firstDrawing, CountTurnsShort,
                    &shortRun)
        || !countedRun(name, valgrind, program, arguments, environment, output, cpu, firstDrawing, CountTurnsLong,
                       &longRun))
        return false;
    constexpr double Turns = CountTurnsLong - CountTurnsShort;
    perTurn->instructions = double(longRun.instructions - shortRun.instructions) / Turns;
    for (const auto &entry : longRun.syscalls) {
        // Start-ups differ by a few calls with their timing (one more loop
        // pass, a log line): a few thousandths a turn, so hundredths are kept,
        // and only the calls that each turn makes.
        const double calls =
            std::round(double(entry.second - shortRun.syscalls[entry.first]) / Turns * 100) / 100;
        if (calls >= 0.5)
            perTurn->syscalls[entry.first] = calls;
    }
    return true;
}

void printTurnCounts(const char *name, const TurnCounts &counts)
{
    QByteArray calls;
    for (const auto &entry : counts.syscalls)
        calls += QByteArray(" ") + entry.first + ' ' + QByteArray::number(entry.second, 'f', 2)
                 + (TurnCounts::isVdsoCall(entry.first) ? " (vDSO)" : "");
    printf("  %-8s %8.0f instructions  %5.2f system calls (vDSO calls not counted):%s\n", name, counts.instructions, counts.syscallTotal(),
           calls.constData());
}

// Instructions and system calls per menu turn of the daemon and the relay,
// under valgrind: counts, the same on every run of the same binaries. False
// when a run failed; *met tells whether the daemon is within the goals.
bool printCounts(const Options &o, const QString &valgrind, bool *met)
{
    printf("\nPer menu turn, closed loop, counted under valgrind (callgrind's instructions, traced system calls;"
           " %d turns minus %d):\n",
           CountTurnsLong, CountTurnsShort);
    fflush(stdout);
    TurnCounts daemon;
    TurnCounts relay;
    if (!countPerTurn("daemon", valgrind, o.daemon, {}, o.daemonEnv, o.daemonLog, o.targetCpu, FirstDrawingCommands,
                      &daemon)
        || !countPerTurn("baseline", valgrind, o.relay, relayArguments(MenuFrames::mainMenu(BenchVersion)), {}, QStringLiteral("/dev/null"), o.targetCpu, 0, &relay))
        return false;
    printTurnCounts("daemon", daemon);
    printTurnCounts("baseline", relay);
    *met = daemon.instructions <= InstructionsGoal && daemon.syscallTotal() <= SyscallsGoal;
    printf("  daemon instructions per turn      %6.0f / %.0f   %s\n", daemon.instructions, InstructionsGoal,
           daemon.instructions <= InstructionsGoal ? "met" : "MISSED");
    printf("  daemon system calls per turn      %6.2f / %.0f      %s\n", daemon.syscallTotal(), SyscallsGoal,
           daemon.syscallTotal() <= SyscallsGoal ? "met" : "MISSED");
    fflush(stdout);
    return true;
}

void printMemory(const char *label, pid_t pid)
{
    const MemorySample m = sampleMemory(pid);
    printf("  %-34s RSS %6lld kB  PSS %6lld kB  Private_Dirty %6lld kB  Private_Clean %6lld kB"
           "  Anonymous %6lld kB  VmHWM %6lld kB\n",
           label, m.rssKb, m.pssKb, m.privateDirtyKb, m.privateCleanKb, m.anonymousKb, m.hwmKb);
}

struct IdleResult
{
    long long voluntary = 0;
    long long involuntary = 0;
    long long runtimeNs = 0;
};

IdleResult printIdle(const char *label, const std::vector<TaskSample> &before,
                     const std::vector<TaskSample> &after, double seconds)
{
    IdleResult total;
    printf("  %s:\n", label);
    for (const TaskSample &a : after) {
        TaskSample b;
        for (const TaskSample &candidate : before) {
            if (candidate.tid == a.tid)
                b = candidate;
        }
        const long long voluntary = a.voluntarySwitches - b.voluntarySwitches;
        const long long involuntary = a.involuntarySwitches - b.involuntarySwitches;
        const long long runtime = a.runtimeNs - b.runtimeNs;
        printf("    thread %-7d %-16s wakeups (voluntary switches) %4lld  involuntary %4lld  cpu %8.3f ms\n", a.tid,
               qPrintable(a.name), voluntary, involuntary, double(runtime) / 1e6);
        total.voluntary += voluntary;
        total.involuntary += involuntary;
        total.runtimeNs += runtime;
    }
    printf("    all threads: %.2f wakeups/s, %lld involuntary switches, %.3f ms CPU in %.1f s\n",
           double(total.voluntary) / seconds, total.involuntary, double(total.runtimeNs) / 1e6, seconds);
    return total;
}

// A trial of the rate search: every command in order, and no queue: the
// typical event waits for none before it (p50 under 1 ms) and nothing is left
// to drain when the sending stops (last command within 20 ms of the last
// send). A target that is short of the rate by 1 % ends a 2 s trial 20 ms
// behind. Tail latencies are not the test: on a shared machine other
// processes' time slices reach them at any rate.
bool sustains(Link &link, double rate, double seconds, PhaseResult *result)
{
    PhaseSpec phase;
    phase.events = std::max(1, int(rate * seconds));
    phase.rate = rate;
    *result = link.run(phase);
    return result->clean() && percentile(result->latencyUs, 50) <= 1000
           && result->seconds - result->sendSeconds <= 0.020;
}

// One target's search for its highest sustained rate: doubling from 5000/s
// until a rate fails, then five halvings of the gap.
class RateSearch
{
public:
    bool done() const { return _done; }
    double highest() const { return _good; }
    double next() const
    {
        if (_bad == 0)
            return _good == 0 ? 5000 : _good * 2;
        return std::round((_good + _bad) / 2 / 250) * 250;
    }
    void record(double rate, bool keptUp)
    {
        if (_bad != 0)
            ++_bisections;
        (keptUp ? _good : _bad) = rate;
        const double following = next();
        _done = _bad == 0 ? following > 1e6 : _bisections == 5 || following <= _good || following >= _bad;
    }

private:
    double _good = 0;
    double _bad = 0;
    int _bisections = 0;
    bool _done = false;
};

void sleepSeconds(double seconds)
{
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

// Waits until the process has used no CPU time for 50 ms (at most 5 s): it
// has handled what it was sent.
void waitUntilQuiet(pid_t pid)
{
    long long last = cpuTimeNs(pid);
    for (int i = 0; i < 100; ++i) {
        sleepSeconds(0.05);
        const long long now = cpuTimeNs(pid);
        if (now == last)
            return;
        last = now;
    }
}

// The changes of a busy directory: the bench's temporary file created, then
// removed again, and so on, each at its own deadline.
class DirectoryWriter
{
public:
    explicit DirectoryWriter(const QString &dir) : _dir(QFile::encodeName(dir) + '/') {}

    // Exactly `count` other files present: file-0000.dat and on.
    bool fill(int count)
    {
        for (; _files < count; ++_files) {
            if (!create(fileName(_files)))
                return false;
        }
        for (; _files > count; --_files) {
            if (::unlink(fileName(_files - 1).constData()) != 0)
                return false;
        }
        return true;
    }

    // `changes` changes at `rate` per second. The deadlines are absolute, so a
    // late change does not move the ones after it.
    bool change(int changes, double rate)
    {
        const qint64 start = nowNs();
        for (int i = 0; i < changes; ++i) {
            const qint64 due = start + qint64(double(i) * 1e9 / rate);
            const timespec at = {time_t(due / 1000000000), long(due % 1000000000)};
            while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr) == EINTR) {
            }
            _mostLateNs = std::max(_mostLateNs, nowNs() - due);
            const QByteArray changing = _dir + "busy-change.tmp";
            if (_present ? ::unlink(changing.constData()) != 0 : !create(changing))
                return false;
            _present = !_present;
        }
        return true;
    }

    qint64 mostLateNs() const { return _mostLateNs; }

private:
    QByteArray fileName(int i) const { return _dir + "file-" + QByteArray::number(i).rightJustified(4, '0') + ".dat"; }

    static bool create(const QByteArray &path)
    {
        const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        return fd >= 0 && ::close(fd) == 0;
    }

    QByteArray _dir;
    int _files = 0;
    bool _present = false;
    qint64 _mostLateNs = 0;
};

// What a target used over one busy-/tmp case.
struct BusyUsage
{
    long long changes = 0;
    double seconds = 0;    // the time its changes took, at the rate
    long long statNs = 0;  // utime + stime
    long long runNs = 0;   // schedstat's run time, the same to the nanosecond
    long long wakeups = 0; // voluntary context switches

    double perChangeUs() const { return changes > 0 ? double(statNs) / 1000.0 / double(changes) : 0; }
    double runPerChangeUs() const { return changes > 0 ? double(runNs) / 1000.0 / double(changes) : 0; }
    double shareOfCore() const { return seconds > 0 ? double(statNs) / 1e9 / seconds : 0; }
};

struct BusyCase
{
    int files = 0;
    double rate = 0;
    BusyUsage used[2]; // daemon, baseline
};

// Both targets watch their own directory; each case changes them in turn,
// chunk by chunk, so that both see the same moments of the machine. Each
// target's counters are read before the case and after it: it uses nothing
// while the other's directory changes.
bool runBusyTmp(const Options &o, const pid_t pids[2], const QString dirs[2], std::vector<BusyCase> *cases)
{
    const char *names[2] = {"daemon", "baseline"};
    DirectoryWriter writers[2] = {DirectoryWriter(dirs[0]), DirectoryWriter(dirs[1])};
    for (int files : BusyFileCounts) {
        for (int i = 0; i < 2; ++i) {
            if (!writers[i].fill(files)) {
                fprintf(stderr, "panel-bench: cannot fill %s\n", qPrintable(dirs[i]));
                return false;
            }
        }
        for (double rate : BusyRates) {
            BusyCase result;
            result.files = files;
            result.rate = rate;
            // An even number of changes: each chunk leaves the changing file away.
            const int perChunk = std::max(2, int(std::lround(rate * o.busySeconds / o.busyChunks / 2)) * 2);
            long long before[2][3];
            for (int i = 0; i < 2; ++i) {
                waitUntilQuiet(pids[i]);
                before[i][0] = statCpuNs(pids[i]);
                before[i][1] = cpuTimeNs(pids[i]);
                before[i][2] = voluntarySwitches(pids[i]);
            }
            for (int chunk = 0; chunk < o.busyChunks; ++chunk) {
                for (int i = 0; i < 2; ++i) {
                    if (!writers[i].change(perChunk, rate)) {
                        fprintf(stderr, "panel-bench: cannot change %s\n", qPrintable(dirs[i]));
                        return false;
                    }
                    waitUntilQuiet(pids[i]);
                    result.used[i].changes += perChunk;
                    result.used[i].seconds += perChunk / rate;
                }
            }
            printf("  %d files, %.0f changes/s, %lld changes each:\n", files, rate, result.used[0].changes);
            for (int i = 0; i < 2; ++i) {
                BusyUsage &u = result.used[i];
                u.statNs = statCpuNs(pids[i]) - before[i][0];
                u.runNs = cpuTimeNs(pids[i]) - before[i][1];
                u.wakeups = voluntarySwitches(pids[i]) - before[i][2];
                printf("    %-8s cpu/change %7.1f us (utime+stime; run time %7.1f us)  %5.2f %% of a core"
                       "  wakeups/change %4.2f\n",
                       names[i], u.perChangeUs(), u.runPerChangeUs(), u.shareOfCore() * 100,
                       double(u.wakeups) / double(u.changes));
                if (u.wakeups == 0) {
                    allClean = false;
                    printf("  !! %s did not wake up for the changes\n", names[i]);
                }
            }
            printf("    daemon/baseline cpu/change %.2fx (run time %.2fx)\n",
                   ratio(result.used[0].perChangeUs(), result.used[1].perChangeUs()),
                   ratio(result.used[0].runPerChangeUs(), result.used[1].runPerChangeUs()));
            fflush(stdout);
            cases->push_back(result);
        }
    }
    printf("  the writer was at most %.2f ms late\n",
           double(std::max(writers[0].mostLateNs(), writers[1].mostLateNs())) / 1e6);
    for (DirectoryWriter &writer : writers)
        writer.fill(0);
    return true;
}

// Rss by mapping, daemon against floor: the mappings that differ by 8 kB or
// more, largest difference first.
void printMappingExcess(pid_t daemon, pid_t floor)
{
    const std::map<QString, long long> ours = rssByMapping(daemon);
    const std::map<QString, long long> floors = rssByMapping(floor);
    std::map<QString, long long> excess = ours;
    for (const auto &entry : floors)
        excess[entry.first] -= entry.second;
    std::vector<std::pair<long long, QString>> rows;
    for (const auto &entry : excess) {
        if (std::abs(entry.second) >= 8)
            rows.emplace_back(entry.second, entry.first);
    }
    std::sort(rows.rbegin(), rows.rend());
    printf("  Rss by mapping, daemon minus floor (kB; the daemon's, the floor's):\n");
    for (const auto &row : rows) {
        const auto find = [&row](const std::map<QString, long long> &in) {
            const auto at = in.find(row.second);
            return at == in.end() ? 0LL : at->second;
        };
        printf("    %+6lld  %-48s %6lld %6lld\n", row.first, qPrintable(row.second.section(QLatin1Char('/'), -1)),
               find(ours), find(floors));
    }
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    Options o;
    if (!parse(argc, argv, &o)) {
        usage();
        return 2;
    }
    // Short sleeps of the open loop must end when asked, not 50 us later.
    prctl(PR_SET_TIMERSLACK, 1UL, 0, 0, 0);
    if (o.benchCpu >= 0 && (!pinToCpu(o.benchCpu) || sysconf(_SC_NPROCESSORS_ONLN) <= o.targetCpu)) {
        fprintf(stderr, "panel-bench: cannot pin to CPU %d/%d\n", o.benchCpu, o.targetCpu);
        return 2;
    }

    utsname system;
    uname(&system);
    printf("panel-bench%s\n", o.ci ? " (short form)" : "");
    printf("  machine: %ld CPUs, %s, Linux %s, Qt %s\n", sysconf(_SC_NPROCESSORS_ONLN), qPrintable(cpuModel()),
           system.release, qVersion());
    printf("  daemon: %s (output to %s%s%s)\n  baselines: %s, %s, %s\n  pinning: %s\n", qPrintable(o.daemon),
           qPrintable(o.daemonLog), o.daemonEnv.isEmpty() ? "" : ", with ", qPrintable(o.daemonEnv.join(' ')),
           qPrintable(o.relay), qPrintable(o.watch), qPrintable(o.floor),
           o.benchCpu < 0 ? "none" : o.targetCpu == 0 ? "bench and targets on CPU 0" : "bench on CPU 0, targets on CPU 1");
    fflush(stdout);

    // Counts first: they need valgrind, and a short run can assert them.
    const QString valgrind = QStandardPaths::findExecutable(QStringLiteral("valgrind"));
    bool countsMet = true;
    if (o.counts && valgrind.isEmpty()) {
        printf("\nPer menu turn, counted under valgrind: skipped, valgrind is not on PATH\n");
        if (o.countsOnly)
            return SkipStatus;
    } else if (o.counts && !printCounts(o, valgrind, &countsMet)) {
        return 2;
    }
    if (o.countsOnly)
        return countsMet ? 0 : 1;

    // Start-up, in idle mode: the default sandbox has the main application
    // installed and no start flag. The last run stays up for the idle figures.
    Sandbox idleBox;
    Sandbox setupBox;
    if (!idleBox.isValid() || !makeSetupSandbox(&setupBox)) {
        fprintf(stderr, "panel-bench: cannot build the sandboxes\n");
        return 2;
    }
    Target idleDaemon("daemon");
    std::vector<double> startupMs;
    for (int run = 0; run < o.startupRuns; ++run) {
        const qint64 before = nowNs();
        if (!idleDaemon.start(o.daemon, {}, idleBox, o.daemonLog, o.targetCpu, o.daemonEnv))
            return 2;
        const qint64 both = std::max(idleDaemon.accepted.collectorNs, idleDaemon.accepted.driverNs);
        startupMs.push_back(double(both - before) / 1e6);
        if (run + 1 < o.startupRuns)
            idleDaemon.child.stop();
    }
    const double startupP50 = percentile(startupMs, 50);
    const double startupMax = percentile(startupMs, 100);
    printf("\nStart-up, idle mode, fork+exec to both connections accepted (%d runs):\n"
           "  min %.2f ms  median %.2f ms  max %.2f ms\n",
           o.startupRuns, *std::min_element(startupMs.begin(), startupMs.end()), startupP50, startupMax);
    fflush(stdout);

    // Setup mode through the start flag: the take-over draws the main menu
    // (17 commands), the last eight the items as the bench encodes them.
    Target daemon("daemon");
    if (!daemon.start(o.daemon, {}, setupBox, o.daemonLog, o.targetCpu, o.daemonEnv))
        return 2;
    const MenuFrames frames = MenuFrames::mainMenu(BenchVersion);
    if (!daemon.drawsMainMenu(FirstDrawingCommands, frames))
        return 2;
    Target relay("baseline");
    if (!relay.start(o.relay, relayArguments(frames), setupBox, QStringLiteral("/dev/null"), o.targetCpu)
        || !relay.drawsMainMenu(0, frames))
        return 2;
    Target *targets[] = {&relay, &daemon};
    // The memory floor: connected like the daemon, nothing else.
    Target floor("qt floor");
    if (!floor.start(o.floor, {}, setupBox, QStringLiteral("/dev/null"), o.targetCpu))
        return 2;

    sleepSeconds(o.ci ? 0.2 : 1.0);
    printf("\nMemory after start:\n");
    printMemory("daemon, setup mode", daemon.child.pid());
    printMemory("daemon, idle mode", idleDaemon.child.pid());
    printMemory("baseline", relay.child.pid());
    printMemory("Qt floor", floor.child.pid());

    printf("\nIdle, no input for %.1f s, both peers connected:\n", o.idleSeconds);
    fflush(stdout);
    const auto setupBefore = sampleTasks(daemon.child.pid());
    const auto idleBefore = sampleTasks(idleDaemon.child.pid());
    const auto relayBefore = sampleTasks(relay.child.pid());
    sleepSeconds(o.idleSeconds);
    const IdleResult setupIdle =
        printIdle("daemon, setup mode", setupBefore, sampleTasks(daemon.child.pid()), o.idleSeconds);
    const IdleResult idleIdle =
        printIdle("daemon, idle mode", idleBefore, sampleTasks(idleDaemon.child.pid()), o.idleSeconds);
    printIdle("baseline", relayBefore, sampleTasks(relay.child.pid()), o.idleSeconds);

    // Busy /tmp: the idle daemon (the main application is installed, so no
    // file takes the panel over) and panel-bench-watch, each on a directory of
    // its own, while the bench creates and removes a file there.
    std::vector<BusyCase> busyCases;
    if (o.busy) {
        printf("\nBusy /tmp: a file created or removed at a fixed rate beside other files, no image; idle daemon"
               " against panel-bench-watch, %.1f s each in %d chunks; CPU time per change:\n",
               o.busySeconds, o.busyChunks);
        fflush(stdout);
        QTemporaryDir watchDir;
        Child watch;
        if (!watchDir.isValid()
            || !watch.start(o.watch, {watchDir.path()}, QProcessEnvironment::systemEnvironment().toStringList(),
                            QStringLiteral("/dev/null"), o.targetCpu)) {
            fprintf(stderr, "panel-bench: cannot start %s\n", qPrintable(o.watch));
            return 2;
        }
        const pid_t pids[2] = {idleDaemon.child.pid(), watch.pid()};
        const QString dirs[2] = {idleBox.hostPath(QStringLiteral("/tmp")), watchDir.path()};
        if (!runBusyTmp(o, pids, dirs, &busyCases))
            return 2;
        if (!watch.isRunning()) {
            fprintf(stderr, "panel-bench: %s ended\n", qPrintable(o.watch));
            return 2;
        }
        // The idle daemon must have stayed idle: nothing drawn.
        const long long drawn = idleDaemon.link->unexpectedWithin(200);
        if (drawn > 0) {
            allClean = false;
            printf("  !! the idle daemon sent %lld commands\n", drawn);
        }
        printMemory("daemon, idle mode, after busy /tmp", idleDaemon.child.pid());
        printf("  its RSS over the Qt floor's: %+.2f MB\n",
               double(sampleMemory(idleDaemon.child.pid()).rssKb - sampleMemory(floor.child.pid()).rssKb) / 1024);
        printMappingExcess(idleDaemon.child.pid(), floor.child.pid());
    }

    // Closed loop in alternating chunks, so that both targets see the same
    // moments of the machine.
    printf("\nClosed loop (one event, wait for its second command, repeat), latency in us:\n");
    fflush(stdout);
    PhaseSpec closed;
    closed.window = 1;
    for (Target *t : targets) {
        closed.events = o.warmupEvents;
        note(t->name, t->link->run(closed));
    }
    constexpr int Chunks = 10;
    PhaseResult closedResults[2];
    for (int chunk = 0; chunk < Chunks; ++chunk) {
        closed.events = o.closedEvents / Chunks + (chunk < o.closedEvents % Chunks ? 1 : 0);
        for (int i = 0; i < 2; ++i)
            closedResults[i].merge(targets[i]->link->run(closed));
    }
    for (int i = 0; i < 2; ++i)
        printPhase("closed loop", targets[i]->name, closedResults[i]);
    const double p50Ratio = ratio(percentile(closedResults[1].latencyUs, 50), percentile(closedResults[0].latencyUs, 50));
    const double p99Ratio = ratio(percentile(closedResults[1].latencyUs, 99), percentile(closedResults[0].latencyUs, 99));
    const double p999Ratio =
        ratio(percentile(closedResults[1].latencyUs, 99.9), percentile(closedResults[0].latencyUs, 99.9));
    printf("  daemon/baseline: p50 %.2fx  p99 %.2fx  p99.9 %.2fx  cpu/ev %.2fx\n", p50Ratio, p99Ratio, p999Ratio,
           ratio(double(closedResults[1].cpuNs), double(closedResults[0].cpuNs)));

    printf("\nOpen loop (fixed send rate, %.1f s each), latency in us:\n", o.rateSeconds);
    fflush(stdout);
    for (double rate : o.rates) {
        PhaseSpec open;
        open.rate = rate;
        open.events = std::max(1, int(rate * o.rateSeconds));
        PhaseResult results[2];
        for (int i = 0; i < 2; ++i) {
            results[i] = targets[i]->link->run(open);
            printPhase(qPrintable(QStringLiteral("%1 events/s").arg(rate)), targets[i]->name, results[i]);
        }
        printf("  daemon/baseline: p50 %.2fx  p99 %.2fx  p99.9 %.2fx  cpu/ev %.2fx\n",
               ratio(percentile(results[1].latencyUs, 50), percentile(results[0].latencyUs, 50)),
               ratio(percentile(results[1].latencyUs, 99), percentile(results[0].latencyUs, 99)),
               ratio(percentile(results[1].latencyUs, 99.9), percentile(results[0].latencyUs, 99.9)),
               ratio(double(results[1].cpuNs), double(results[0].cpuNs)));
        fflush(stdout);
    }

    // Memory after a fixed number of events: the rest are sent as fast as a
    // window of 64 events in flight allows.
    PhaseSpec bulk;
    bulk.window = 64;
    printf("\nMemory after %d events (the remainder sent with 64 in flight):\n", o.memoryEvents);
    for (Target *t : targets) {
        bulk.events = int(std::max<long long>(0, o.memoryEvents - t->link->eventsSent()));
        if (bulk.events > 0) {
            const PhaseResult r = t->link->run(bulk);
            printf("  %-8s %d events in %.3f s: %.0f events/s\n", t->name, r.events, r.seconds,
                   r.seconds > 0 ? r.events / r.seconds : 0.0);
            note(t->name, r);
        }
    }
    const long long memoryEvents = daemon.link->eventsSent();
    const MemorySample memory = sampleMemory(daemon.child.pid());
    const MemorySample floorMemory = sampleMemory(floor.child.pid());
    printMemory("daemon, setup mode", daemon.child.pid());
    printMemory("baseline", relay.child.pid());
    printMemory("Qt floor", floor.child.pid());
    const double floorExcessMb = double(memory.rssKb - floorMemory.rssKb) / 1024;
    printf("  daemon over the Qt floor: RSS %+.2f MB, PSS %+.2f MB; goal RSS at most %.1f MB over: %s\n",
           floorExcessMb, double(memory.pssKb - floorMemory.pssKb) / 1024, FloorExcessGoalMb,
           floorExcessMb <= FloorExcessGoalMb ? "PASS" : "FAIL");
    printMappingExcess(daemon.child.pid(), floor.child.pid());
    fflush(stdout);

    double highest[2] = {0, 0};
    if (o.search) {
        printf("\nHighest sustained rate (%.1f s per trial, relay and daemon in turn; kept up = every command in"
               " order, p50 <= 1 ms, drained within 20 ms):\n",
               o.searchSeconds);
        RateSearch searches[2];
        while (!searches[0].done() || !searches[1].done()) {
            for (int i = 0; i < 2; ++i) {
                if (searches[i].done())
                    continue;
                const double rate = searches[i].next();
                PhaseResult r;
                const bool keptUp = sustains(*targets[i]->link, rate, o.searchSeconds, &r);
                printf("    %-8s %8.0f/s  %-11s  p50 %8.1f  p99 %8.1f us  drain %6.1f ms  cpu/ev %6.2f us%s\n",
                       targets[i]->name, rate, keptUp ? "kept up" : "fell behind", percentile(r.latencyUs, 50),
                       percentile(r.latencyUs, 99), (r.seconds - r.sendSeconds) * 1000,
                       double(r.cpuNs) / 1000.0 / std::max(1, r.events), r.clean() ? "" : "  (lost or misordered commands)");
                fflush(stdout);
                note(targets[i]->name, r);
                searches[i].record(rate, keptUp);
            }
        }
        for (int i = 0; i < 2; ++i) {
            highest[i] = searches[i].highest();
            printf("  %-8s %.0f events/s\n", targets[i]->name, highest[i]);
        }
        printf("  daemon/baseline: %.2fx\n", ratio(highest[1], highest[0]));
    } else {
        printf("\n%.0f events/s for %.1f s:\n", o.checkRate, o.rateSeconds);
        for (int i = 0; i < 2; ++i) {
            PhaseResult r;
            if (sustains(*targets[i]->link, o.checkRate, o.rateSeconds, &r))
                highest[i] = o.checkRate;
            printPhase(qPrintable(QStringLiteral("%1 events/s").arg(o.checkRate)), targets[i]->name, r);
        }
    }

    for (Target *t : targets) {
        const long long extra = t->link->unexpectedWithin(200);
        if (extra > 0) {
            allClean = false;
            printf("  !! %s: %lld commands after the last phase\n", t->name, extra);
        }
    }

    const double rssMb = double(memory.rssKb) / 1024;
    const double dirtyMb = double(memory.privateDirtyKb) / 1024;
    const double setupWakeups = double(setupIdle.voluntary) / o.idleSeconds;
    const double idleWakeups = double(idleIdle.voluntary) / o.idleSeconds;
    auto verdict = [](bool met) { return met ? "met" : "MISSED"; };
    printf("\nGoals (measured / limit):\n");
    printf("  closed-loop p50 daemon/baseline   %6.2fx / 1.3x    %s\n", p50Ratio, verdict(p50Ratio <= 1.3));
    printf("  closed-loop p99 daemon/baseline   %6.2fx / 2x      %s\n", p99Ratio, verdict(p99Ratio <= 2));
    if (o.search)
        printf("  sustained menu events/s           %6.0f / 20000   ratio %.2f  %s\n", highest[1], highest[1] / 20000,
               verdict(highest[1] >= 20000));
    else
        printf("  20000 menu events/s kept up       %s\n", highest[1] >= 20000 ? "yes" : "no");
    printf("  idle wakeups/s, setup mode        %6.2f / 0       %s\n", setupWakeups, verdict(setupIdle.voluntary == 0));
    printf("  idle wakeups/s, idle mode         %6.2f / 0       %s\n", idleWakeups, verdict(idleIdle.voluntary == 0));
    printf("  RSS after %lld events         %6.2f / 12 MB   ratio %.2f  %s (PSS %.2f MB)\n", memoryEvents, rssMb,
           rssMb / 12, verdict(rssMb <= 12), double(memory.pssKb) / 1024);
    printf("  Private_Dirty after %lld events %6.2f / 2 MB    ratio %.2f  %s\n", memoryEvents, dirtyMb, dirtyMb / 2,
           verdict(dirtyMb <= 2));
    printf("  start-up to both connections      %6.2f / 50 ms   ratio %.2f  %s (median; max %.2f ms)\n", startupP50,
           startupP50 / 50, verdict(startupP50 < 50), startupMax);
    printf("  RSS over the Qt floor             %6.2f / %.1f MB  %s\n", floorExcessMb, FloorExcessGoalMb,
           floorExcessMb <= FloorExcessGoalMb ? "PASS" : "FAIL");
    for (const BusyCase &c : busyCases) {
        const double busyRatio = ratio(c.used[0].perChangeUs(), c.used[1].perChangeUs());
        if (c.files == 2000)
            printf("  busy /tmp, %4d files, %4.0f/s: daemon/baseline cpu/change %5.2fx / %.0fx  %s\n", c.files, c.rate,
                   busyRatio, BusyRatioGoal, busyRatio <= BusyRatioGoal ? "PASS" : "FAIL");
        if (c.files == 50 && c.rate == 100)
            printf("  busy /tmp, %4d files, %4.0f/s: daemon %5.2f %% of a core / %.0f %%  %s\n", c.files, c.rate,
                   c.used[0].shareOfCore() * 100, BusyShareGoal * 100,
                   c.used[0].shareOfCore() < BusyShareGoal ? "PASS" : "FAIL");
    }
    if (o.counts && !valgrind.isEmpty())
        printf("  instructions and system calls per turn: %s (see above)\n", countsMet ? "met" : "MISSED");
    printf("\nCommands: %s\n", allClean ? "none lost, none out of order" : "LOST OR OUT OF ORDER");
    return allClean && countsMet ? 0 : 1;
}
