#include "BenchProcess.h"

#include <QDir>
#include <QFile>

#include <csignal>
#include <fcntl.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

namespace {

// argv/envp built before the fork: the child only calls async-signal-safe functions.
struct CStrings
{
    explicit CStrings(const QStringList &list)
    {
        for (const QString &item : list)
            bytes.push_back(item.toLocal8Bit());
        for (QByteArray &item : bytes)
            pointers.push_back(item.data());
        pointers.push_back(nullptr);
    }
    std::vector<QByteArray> bytes;
    std::vector<char *> pointers;
};

QByteArray readProcFile(const QString &path)
{
    QFile file(path);
    // /proc files report size 0: read until the end.
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The number after "key:" in a "key: value kB" style file; -1 when absent.
long long fieldValue(const QByteArray &text, const QByteArray &key)
{
    for (const QByteArray &line : text.split('\n')) {
        if (line.startsWith(key + ':'))
            return line.mid(key.size() + 1).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

} // namespace

Child::~Child()
{
    stop();
}

bool Child::start(const QString &program, const QStringList &arguments, const QStringList &environment,
                  const QString &outputPath, int cpu)
{
    stop();
    CStrings argv(QStringList(program) + arguments);
    CStrings envp(environment);
    const QByteArray programPath = program.toLocal8Bit();
    const QByteArray output = outputPath.toLocal8Bit();

    _pid = fork();
    if (_pid < 0)
        return false;
    if (_pid == 0) {
        const int fd = open(output.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd >= 0) {
            dup2(fd, STDOUT_FILENO);
            dup2(fd, STDERR_FILENO);
        }
        const int null = open("/dev/null", O_RDONLY);
        if (null >= 0)
            dup2(null, STDIN_FILENO);
        if (cpu >= 0) {
            cpu_set_t set;
            CPU_ZERO(&set);
            CPU_SET(cpu, &set);
            sched_setaffinity(0, sizeof set, &set);
        }
        execve(programPath.constData(), argv.pointers.data(), envp.pointers.data());
        _exit(127);
    }
    return true;
}

void Child::stop()
{
    if (_pid <= 0)
        return;
    // SIGTERM first, so that a target run under a profiler can write its data.
    kill(_pid, SIGTERM);
    for (int i = 0; i < 1000; ++i) {
        if (waitpid(_pid, nullptr, WNOHANG) != 0) {
            _pid = -1;
            return;
        }
        usleep(10000);
    }
    kill(_pid, SIGKILL);
    waitpid(_pid, nullptr, 0);
    _pid = -1;
}

bool Child::isRunning()
{
    return _pid > 0 && waitpid(_pid, nullptr, WNOHANG) == 0;
}

bool pinToCpu(int cpu)
{
    if (cpu < 0)
        return true;
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    return sched_setaffinity(0, sizeof set, &set) == 0;
}

std::vector<TaskSample> sampleTasks(pid_t pid)
{
    std::vector<TaskSample> tasks;
    const QString base = QStringLiteral("/proc/%1/task").arg(pid);
    const QStringList tids = QDir(base).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &tid : tids) {
        const QString dir = base + QLatin1Char('/') + tid;
        const QByteArray status = readProcFile(dir + QStringLiteral("/status"));
        if (status.isEmpty())
            continue; // the thread ended meanwhile
        TaskSample task;
        task.tid = tid.toInt();
        task.name = QString::fromLocal8Bit(readProcFile(dir + QStringLiteral("/comm")).trimmed());
        task.voluntarySwitches = fieldValue(status, "voluntary_ctxt_switches");
        task.involuntarySwitches = fieldValue(status, "nonvoluntary_ctxt_switches");
        // schedstat: time on a CPU (ns), time waiting to run (ns), time slices.
        task.runtimeNs = readProcFile(dir + QStringLiteral("/schedstat")).split(' ').value(0).toLongLong();
        tasks.push_back(task);
    }
    return tasks;
}

long long cpuTimeNs(pid_t pid)
{
    long long total = 0;
    for (const TaskSample &task : sampleTasks(pid))
        total += task.runtimeNs;
    return total;
}

long long statCpuNs(pid_t pid)
{
    const QByteArray stat = readProcFile(QStringLiteral("/proc/%1/stat").arg(pid));
    // The fields after the command name, which is in parentheses: state is
    // the first, utime and stime the 12th and 13th.
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 13)
        return -1;
    const long long ticks = fields.at(11).toLongLong() + fields.at(12).toLongLong();
    return ticks * (1000000000LL / sysconf(_SC_CLK_TCK));
}

long long voluntarySwitches(pid_t pid)
{
    long long total = 0;
    for (const TaskSample &task : sampleTasks(pid))
        total += task.voluntarySwitches;
    return total;
}

MemorySample sampleMemory(pid_t pid)
{
    const QByteArray rollup = readProcFile(QStringLiteral("/proc/%1/smaps_rollup").arg(pid));
    const QByteArray status = readProcFile(QStringLiteral("/proc/%1/status").arg(pid));
    MemorySample memory;
    memory.rssKb = fieldValue(rollup, "Rss");
    memory.pssKb = fieldValue(rollup, "Pss");
    memory.privateDirtyKb = fieldValue(rollup, "Private_Dirty");
    memory.privateCleanKb = fieldValue(rollup, "Private_Clean");
    memory.anonymousKb = fieldValue(rollup, "Anonymous");
    memory.hwmKb = fieldValue(status, "VmHWM");
    return memory;
}

std::map<QString, long long> rssByMapping(pid_t pid)
{
    std::map<QString, long long> rss;
    QString mapping;
    for (const QByteArray &line : readProcFile(QStringLiteral("/proc/%1/smaps").arg(pid)).split('\n')) {
        // A mapping's first line: address range, permissions, offset, device,
        // inode, then what is mapped, if anything.
        const QList<QByteArray> fields = line.simplified().split(' ');
        if (fields.size() >= 5 && fields.at(0).contains('-') && !fields.at(0).endsWith(':')) {
            mapping = fields.size() >= 6 ? QString::fromLocal8Bit(fields.mid(5).join(' ')) : QStringLiteral("[anonymous]");
        } else if (fields.size() >= 2 && fields.at(0) == "Rss:") {
            rss[mapping] += fields.at(1).toLongLong();
        }
    }
    return rss;
}

} // namespace bench
