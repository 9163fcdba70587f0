#ifndef PANELDAEMON_H
#define PANELDAEMON_H

#include "FakeButtonDriver.h"
#include "FakeCollector.h"
#include "Sandbox.h"
#include "support/MenuEvents.h"

#include <QByteArray>
#include <QObject>
#include <QProcess>
#include <QStringList>

// The built daemon as a child process in a sandbox, wired to a fake collector
// and a fake button driver on free loopback ports, with the stub commands
// first on PATH. Its standard output and error are collected together.
class PanelDaemon : public QObject
{
    Q_OBJECT

public:
    // What the test starts: the daemon of this build (the tests'
    // PANEL_SETUP_BINARY), which targetprogram:: may take from a cross build
    // and run under an emulator, or a script of the test that starts it.
    enum class Program { Daemon, Wrapper };
    explicit PanelDaemon(const QString &binary, Program program = Program::Daemon);
    ~PanelDaemon() override;

    Sandbox sandbox;
    FakeCollector collector;
    FakeButtonDriver driver;

    // Binds both fakes to free ports; a fake that is not to listen yet keeps
    // its port reserved for a later start().
    bool startPeers(bool collectorListening = true, bool driverListening = true);
    // An environment variable for the daemon's next start, beside the sandbox's.
    void setEnvironmentVariable(const QString &name, const QString &value) { _extraEnvironment.insert(name, value); }
    // Starts the daemon with these arguments; false without a valid sandbox.
    bool start(const QStringList &arguments = {});
    void stop();
    bool isRunning() const;
    qint64 pid() const { return _process.processId(); }
    // Closes the test's end of the daemon's output pipe, as a log reader that
    // died would: the daemon's next line meets a pipe without a reader.
    void closeOutput() { _process.closeReadChannel(QProcess::StandardOutput); }
    // startPeers() and start(), then waits until the daemon is connected to both.
    bool startConnected(const QStringList &arguments = {});
    // Starts in setup mode (start flag) and waits for the main menu.
    bool startInMenu();
    // The daemon watches /tmp only at the end of its start-up: touches probe
    // files there until it logs a change.
    bool waitUntilWatching();

    // Sends one event and returns what the daemon drew for it once `count`
    // commands have arrived (with "timed out after:" first if they did not
    // within 5 s). With a count of 0 it gives the daemon 300 ms to draw
    // anything, which the result then shows.
    QStringList step(const collector::CollectorMsg &msg, int count);

    QStringList outputLines() const;
    bool hasLine(const QString &line) const;
    // Whether the output holds text anywhere; cheap on a long output.
    bool outputContains(const QByteArray &text) const { return _output.contains(text); }
    int countLines(const QString &line) const;

    // A key of the sandbox's launcher configuration ("font/width"); -1 when absent.
    int launcherValue(const QString &key) const;

    // The driver's messages from index `from` on, one readable line each
    // (RecordingCallback's form: "text 0 3 1 EXIT", "clear 2", ...).
    QStringList commands(int from = 0) const;
    int commandCount() const { return driver.messageCount(); }

    // What a take-over sends when the main menu is drawn for the first time:
    // screens cleared, key lights and status LEDs off, the eight items.
    static QStringList firstMainMenuCommands();
    // The menu events: select key pressed, back key (2) pressed, menu shaft turned.
    static collector::CollectorMsg select() { return menuevents::select(); }
    static collector::CollectorMsg back() { return menuevents::back(); }
    static collector::CollectorMsg turn(int delta) { return menuevents::turn(delta); }

    // The main menu drawn again on return from a sub-page.
    static QStringList mainMenuReturnCommands(int selected, int previous);
    // The blanking of the panel before a hook or a reboot.
    static QStringList resetPanelCommands();

private:
    const QString _binary;
    const Program _program;
    QProcess _process;
    QProcessEnvironment _extraEnvironment;
    QByteArray _output;
};

#endif // PANELDAEMON_H
