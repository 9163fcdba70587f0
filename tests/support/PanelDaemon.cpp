#include "support/PanelDaemon.h"

#include "support/RecordingCallback.h"
#include "support/TestPageDrawings.h"
#include "TargetProgram.h"

#include <QElapsedTimer>
#include <QSettings>
#include <QTest>

PanelDaemon::PanelDaemon(const QString &binary, Program program) : _binary(binary), _program(program)
{
    _process.setProcessChannelMode(QProcess::MergedChannels);
    connect(&_process, &QProcess::readyRead, this, [this] { _output += _process.readAll(); });
}

PanelDaemon::~PanelDaemon()
{
    stop();
    // The daemon's log is what explains a failed scenario.
    if (QTest::currentTestFailed())
        qWarning().noquote() << "Daemon output:\n" + QString::fromLatin1(_output);
}

bool PanelDaemon::startPeers(bool collectorListening, bool driverListening)
{
    if (!collector.start() || !driver.start())
        return false;
    if (!collectorListening)
        collector.stop();
    if (!driverListening)
        driver.stop();
    return true;
}

bool PanelDaemon::start(const QStringList &arguments)
{
    // Never without the sandbox root and the stubs: the host must stay untouched.
    if (!sandbox.isValid() || collector.port() == 0 || driver.port() == 0)
        return false;
    QProcessEnvironment environment = sandbox.environment(collector.port(), driver.port());
    environment.insert(_extraEnvironment);
    _process.setProcessEnvironment(environment);
    _process.setWorkingDirectory(sandbox.root());
    if (_program == Program::Daemon)
        targetprogram::start(_process, targetprogram::path(_binary), arguments);
    else
        _process.start(_binary, arguments);
    return _process.waitForStarted(5000);
}

bool PanelDaemon::startConnected(const QStringList &arguments)
{
    return startPeers() && start(arguments)
           && QTest::qWaitFor([this] { return collector.clientCount() > 0 && driver.clientCount() > 0; },
                              5000);
}

bool PanelDaemon::startInMenu()
{
    return sandbox.writeFile(Sandbox::StartFlagPath, QByteArray()) && startConnected()
           && QTest::qWaitFor([this] { return commands() == firstMainMenuCommands(); }, 5000);
}

bool PanelDaemon::waitUntilWatching()
{
    const QString changed = QStringLiteral("Path that changed = \"%1\"").arg(sandbox.hostPath("/tmp"));
    QElapsedTimer sinceProbe;
    int probes = 0;
    return QTest::qWaitFor(
        [&] {
            if (hasLine(changed))
                return true;
            if (!sinceProbe.isValid() || sinceProbe.elapsed() >= 100) {
                sandbox.writeFile(QStringLiteral("/tmp/probe-%1").arg(probes++), QByteArray());
                sinceProbe.start();
            }
            return false;
        },
        5000);
}

QStringList PanelDaemon::step(const collector::CollectorMsg &msg, int count)
{
    const int mark = commandCount();
    collector.send(msg);
    if (count == 0)
        QTest::qWait(300);
    if (!QTest::qWaitFor([&] { return commandCount() >= mark + count; }, 5000))
        return QStringList("timed out after:") + commands(mark);
    return commands(mark);
}

void PanelDaemon::stop()
{
    if (_process.state() == QProcess::NotRunning)
        return;
    _process.kill();
    _process.waitForFinished(5000);
    _output += _process.readAll();
}

bool PanelDaemon::isRunning() const
{
    return _process.state() == QProcess::Running;
}

QStringList PanelDaemon::outputLines() const
{
    return QString::fromLatin1(_output).split(QLatin1Char('\n'));
}

bool PanelDaemon::hasLine(const QString &line) const
{
    return countLines(line) > 0;
}

int PanelDaemon::countLines(const QString &line) const
{
    return outputLines().count(line);
}

int PanelDaemon::launcherValue(const QString &key) const
{
    const QSettings settings(sandbox.hostPath("/etc/kd5820m/launcher.cfg"), QSettings::IniFormat);
    return settings.value(key, -1).toInt();
}

QStringList PanelDaemon::commands(int from) const
{
    QStringList lines;
    for (const QByteArray &message : driver.messages(from))
        lines << RecordingCallback::describe(message);
    return lines;
}

QStringList PanelDaemon::firstMainMenuCommands()
{
    return QStringList{"clear 0", "clear 1", "clear 2", "leds -1 0 0"} + testpagedrawings::statusLedsOff()
        + QStringList{"text 0 0 1 SETUP", "text 0 1 0 TESTING", "text 0 2 0 INTENSITY", "text 0 3 0 EXIT",
                      "text 0 4 0 ",      "text 0 5 0 REBOOT",  "text 0 6 0 SHUTDOWN",  "text 0 7 0 V=1.2.3"};
}

QStringList PanelDaemon::mainMenuReturnCommands(int selected, int previous)
{
    static const QStringList items = {"SETUP", "TESTING", "INTENSITY", "EXIT",
                                      "",      "REBOOT",  "SHUTDOWN",  "V=1.2.3"};
    QStringList lines = QStringList{"clear 1", "clear 2", "leds -1 0 0"} + testpagedrawings::statusLedsOff();
    lines << QStringLiteral("text 0 %1 1 %2").arg(selected).arg(items.value(selected));
    if (previous >= 0)
        lines << QStringLiteral("text 0 %1 0 %2").arg(previous).arg(items.value(previous));
    return lines;
}

QStringList PanelDaemon::resetPanelCommands()
{
    return {"leds -1 0 0", "clear 0", "clear 1", "clear 2"};
}
