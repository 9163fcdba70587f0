#ifndef TARGETPROGRAM_H
#define TARGETPROGRAM_H

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>

// The project's own programs that the end-to-end tests, the fault tests and
// panel-sim start (the daemon and its helpers). They may be built for another
// architecture than the test programs:
//   PANEL_SETUP_TEST_BIN_DIR   the directory the programs are taken from
//                              (a cross build's bin/) instead of this build's;
//   PANEL_SETUP_TEST_LAUNCHER  the command that runs them ("qemu-arm"),
//                              split as a shell would.
// Neither set: this build's programs, run directly.
namespace targetprogram {

// The program to run for builtPath, a program of this build: the same file
// in PANEL_SETUP_TEST_BIN_DIR when that is set.
QString path(const QString &builtPath);

// The launcher's words; empty when the programs run directly.
QStringList launcher();

// The whole command for program (a path() already): the launcher's words, then program.
QStringList commandLine(const QString &program);

// Starts program (a path() already) with arguments in process, through the launcher.
void start(QProcess &process, const QString &program, const QStringList &arguments = {});

// commandLine() for a shell script, each word in single quotes.
QByteArray shellCommand(const QString &program);

} // namespace targetprogram

#endif // TARGETPROGRAM_H
