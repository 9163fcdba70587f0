#ifndef PROCESSPROBE_H
#define PROCESSPROBE_H

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// Looks at a running process from outside, through /proc: finds the daemon
// that a test started (by its executable and an entry of its environment) and
// reads its resident memory.
namespace processprobe {

// The pid of a process running `executable` (through the launcher of
// targetprogram:: when there is one) whose environment holds `entry` (for example
// "PANEL_SETUP_ROOT=/tmp/x"); -1 when there is none.
qint64 findByEnvironment(const QString &executable, const QByteArray &entry);

// VmRSS of the process in KiB; -1 when it cannot be read.
qint64 residentKiB(qint64 pid);

// VmHWM, the peak of VmRSS since the process started, in KiB; -1 when it cannot be read.
qint64 peakResidentKiB(qint64 pid);

} // namespace processprobe

#endif // PROCESSPROBE_H
