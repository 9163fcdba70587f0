#include "support/ProcessProbe.h"

#include "TargetProgram.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QStandardPaths>

namespace processprobe {

namespace {

QByteArray readProcFile(const QString &path)
{
    QFile file(path);
    // /proc files report no size: read until the end.
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

qint64 findByEnvironment(const QString &executable, const QByteArray &entry)
{
    // Under a launcher the process's executable is the launcher, and the
    // program follows it on the command line.
    QStringList command = targetprogram::commandLine(executable);
    const QString program = command.takeFirst();
    const QString wanted = QFileInfo(QStandardPaths::findExecutable(program)).canonicalFilePath();
    const QStringList pids = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &name : pids) {
        bool ok = false;
        const qint64 pid = name.toLongLong(&ok);
        if (!ok)
            continue;
        const QString dir = QStringLiteral("/proc/") + name;
        if (QFileInfo(dir + QStringLiteral("/exe")).canonicalFilePath() != wanted)
            continue;
        const QStringList arguments = QFile::decodeName(readProcFile(dir + QStringLiteral("/cmdline")))
                                          .split(QLatin1Char('\0'))
                                          .mid(1, int(command.size()));
        if (arguments == command && readProcFile(dir + QStringLiteral("/environ")).split('\0').contains(entry))
            return pid;
    }
    return -1;
}

namespace {

qint64 statusKiB(qint64 pid, const QByteArray &field)
{
    const QList<QByteArray> lines = readProcFile(QStringLiteral("/proc/%1/status").arg(pid)).split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith(field))
            return line.mid(field.size()).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

} // namespace

qint64 residentKiB(qint64 pid)
{
    return statusKiB(pid, "VmRSS:");
}

qint64 peakResidentKiB(qint64 pid)
{
    return statusKiB(pid, "VmHWM:");
}

} // namespace processprobe
