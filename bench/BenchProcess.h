#ifndef BENCHPROCESS_H
#define BENCHPROCESS_H

#include <QString>
#include <QStringList>

#include <sys/types.h>

#include <map>
#include <vector>

namespace bench {

// A child process (the daemon or the baseline relay) with its standard output
// and error sent to one file, optionally pinned to one CPU.
class Child
{
public:
    Child() = default;
    ~Child();
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    // fork + execve; false when the fork fails (an exec failure shows as an
    // exit of the child with status 127).
    bool start(const QString &program, const QStringList &arguments, const QStringList &environment,
               const QString &outputPath, int cpu);
    // SIGTERM, SIGKILL after 10 s, and reap; nothing when not running.
    void stop();
    bool isRunning();
    pid_t pid() const { return _pid; }

private:
    pid_t _pid = -1;
};

// Pins the calling process to one CPU (-1: no change).
bool pinToCpu(int cpu);

// One thread's counters from /proc.
struct TaskSample
{
    int tid = 0;
    QString name;
    long long voluntarySwitches = 0;
    long long involuntarySwitches = 0;
    long long runtimeNs = 0; // time on a CPU
};

// Every thread of the process.
std::vector<TaskSample> sampleTasks(pid_t pid);
// Total CPU time of all threads, in ns.
long long cpuTimeNs(pid_t pid);
// utime + stime of the process from /proc/PID/stat, in ns: the same time in
// clock ticks (10 ms at 100 Hz); -1 when unreadable.
long long statCpuNs(pid_t pid);
// Voluntary context switches of all threads: one for each time a thread slept.
long long voluntarySwitches(pid_t pid);

// From smaps_rollup and status, in kB; -1 where unreadable.
struct MemorySample
{
    long long rssKb = -1;
    long long pssKb = -1;
    long long privateDirtyKb = -1;
    long long privateCleanKb = -1;
    long long anonymousKb = -1;
    long long hwmKb = -1;
};

MemorySample sampleMemory(pid_t pid);

// Rss of /proc/PID/smaps in kB by what is mapped: a file's path, "[heap]",
// "[stack]" and the like, or "[anonymous]".
std::map<QString, long long> rssByMapping(pid_t pid);

} // namespace bench

#endif // BENCHPROCESS_H
