#include "VirtualPanel.h"

#include "CommandText.h"
#include "TargetProgram.h"
#include "netutil/NetUtil.h"
#include "panel/LauncherConfig.h"
#include "base/RuntimeEnv.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

using collector::CollectorMsg;

const QStringList VirtualPanel::LedNames = {"PSU", "AUX", "FAULT", "WARNING", "COMM"};
const QString VirtualPanel::UpgradeImagePath = QStringLiteral("/tmp/panel-upgrade.img");

namespace {

const char *const ProbePath = "/tmp/.panel-sim-probe";

// A root that an earlier run filled: safe to delete before a fresh start.
bool isEarlierSandbox(const QDir &dir)
{
    return dir.exists(QStringLiteral("stub-bin")) && dir.exists(QStringLiteral("etc/kd5820m"));
}

QString signedNumber(int value)
{
    return value > 0 ? QStringLiteral("+%1").arg(value) : QString::number(value);
}

} // namespace

VirtualPanel::VirtualPanel(const Options &options, QObject *parent) : QObject(parent), _options(options)
{
    connect(&_driver, &FakeButtonDriver::messageReceived, this, &VirtualPanel::onMessage);
    connect(&_driver, &FakeButtonDriver::frameRefused, this, [this](quint32 length) {
        warn(QStringLiteral("frame length %1 is no command: connection dropped").arg(length));
    });
    connect(&_collector, &LoopbackPeer::clientConnected, this, &VirtualPanel::checkConnected);
    connect(&_driver, &LoopbackPeer::clientConnected, this, &VirtualPanel::checkConnected);

    _daemon.setProcessChannelMode(QProcess::MergedChannels);
    connect(&_daemon, &QProcess::readyRead, this, &VirtualPanel::readDaemonOutput);
    connect(&_daemon, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this, [this] {
        readDaemonOutput();
        _ready = false;
        _probeTimer.stop();
        emit daemonFinished(daemonState());
        emit changed();
    });

    _probeTimer.setInterval(100);
    connect(&_probeTimer, &QTimer::timeout, this, &VirtualPanel::probeWatcher);
    _pollTimer.setInterval(200);
    connect(&_pollTimer, &QTimer::timeout, this, &VirtualPanel::pollSandbox);
    _holdTimer.setSingleShot(true);
    // A coarse timer may fire 5% early, most of the margin over the daemon's 5 s.
    _holdTimer.setTimerType(Qt::PreciseTimer);
    _holdTicker.setInterval(100);
    connect(&_holdTicker, &QTimer::timeout, this, &VirtualPanel::changed);
    connect(&_holdTimer, &QTimer::timeout, this, [this] {
        _holdTicker.stop();
        for (int i = int(_heldKeys.size()) - 1; i >= 0; --i)
            release(_heldKeys.at(i));
        _heldKeys.clear();
        const std::function<void()> done = std::move(_holdDone);
        _holdDone = nullptr;
        if (done)
            done();
    });
}

VirtualPanel::~VirtualPanel()
{
    stopDaemon();
}

bool VirtualPanel::setUp(QString *error)
{
    QString root;
    if (!_options.root.isEmpty()) {
        root = QDir::cleanPath(QFileInfo(_options.root).absoluteFilePath());
        QDir dir(root);
        if (!_options.reuse && dir.exists() && !dir.isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden)) {
            if (!isEarlierSandbox(dir)) {
                *error = QStringLiteral("%1 is not empty and holds no sandbox of an earlier run; "
                                        "give another --root").arg(root);
                return false;
            }
            if (!dir.removeRecursively()) {
                *error = QStringLiteral("cannot remove the old sandbox %1").arg(root);
                return false;
            }
        }
    }
    _sandbox = std::make_unique<Sandbox>(root, _options.templateDir, _options.reuse);
    if (!_sandbox->isValid()) {
        *error = QStringLiteral("cannot make a sandbox from the template %1 in %2")
                     .arg(_options.templateDir, root.isEmpty() ? QStringLiteral("a temporary directory") : root);
        return false;
    }
    // This process reads the sandbox's files (levels, activation keys,
    // addresses) through the same path mapping as the daemon.
    qputenv("PANEL_SETUP_ROOT", QFile::encodeName(_sandbox->root()));
    if (runtimeenv::root() != _sandbox->root()) {
        *error = QStringLiteral("the sandbox root was set too late");
        return false;
    }
    if (!_collector.start(_options.collectorPort) || !_driver.start(_options.driverPort)) {
        *error = QStringLiteral("cannot listen on the collector port %1 and the driver port %2")
                     .arg(_options.collectorPort)
                     .arg(_options.driverPort);
        return false;
    }
    _driver.setReadsLevelFile(true);
    _driver.readLevelFile(); // what the driver shows before the first update
    pollSandbox();
    _pollTimer.start();
    return true;
}

bool VirtualPanel::startDaemon(QString *error)
{
    _started = true;
    if (_options.listenOnly) {
        checkConnected();
        emit changed();
        return true;
    }
    const QFileInfo binary(_options.daemon);
    if (!binary.isFile() || !binary.isExecutable()) {
        *error = QStringLiteral("no daemon at %1 (build panel-setup, or give --daemon PATH)").arg(_options.daemon);
        return false;
    }
    _daemon.setProcessEnvironment(_sandbox->environment(_collector.port(), _driver.port()));
    _daemon.setWorkingDirectory(_sandbox->root());
    targetprogram::start(_daemon, binary.absoluteFilePath(), _options.daemonArguments);
    if (!_daemon.waitForStarted(5000)) {
        *error = QStringLiteral("cannot start %1: %2").arg(binary.absoluteFilePath(), _daemon.errorString());
        return false;
    }
    emit changed();
    return true;
}

void VirtualPanel::stopDaemon()
{
    if (_daemon.state() == QProcess::NotRunning)
        return;
    _daemon.disconnect(this); // a stop asked for is no news
    _daemon.terminate();
    if (!_daemon.waitForFinished(3000)) {
        _daemon.kill();
        _daemon.waitForFinished(3000);
    }
    readDaemonOutput();
}

QString VirtualPanel::daemonState() const
{
    if (_options.listenOnly) {
        return QStringLiteral("%1 (start it by hand: collector port %2, driver port %3)")
            .arg(_ready ? QStringLiteral("daemon connected") : QStringLiteral("waiting for a daemon"))
            .arg(_collector.port())
            .arg(_driver.port());
    }
    if (!_started)
        return QStringLiteral("daemon not started");
    if (_daemon.state() != QProcess::NotRunning) {
        return QStringLiteral("daemon running (pid %1)%2")
            .arg(_daemon.processId())
            .arg(_ready ? QString() : QStringLiteral(", connecting"));
    }
    if (_daemon.exitStatus() == QProcess::CrashExit)
        return QStringLiteral("daemon died (%1)").arg(_daemon.errorString());
    return QStringLiteral("daemon exited with code %1").arg(_daemon.exitCode());
}

QString VirtualPanel::daemonLogPath() const
{
    return _sandbox->root() + QStringLiteral("/daemon.log");
}

QStringList VirtualPanel::daemonLogTail(int lines) const
{
    QFile file(daemonLogPath());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList all = QString::fromLocal8Bit(file.readAll()).split(QLatin1Char('\n'));
    if (!all.isEmpty() && all.last().isEmpty())
        all.removeLast();
    return all.mid(qMax(0, int(all.size()) - lines));
}

void VirtualPanel::press(int key)
{
    if (key < 0 || key >= PanelModel::Keys)
        return warn(QStringLiteral("there is no key %1").arg(key));
    _pressed.insert(key);
    send(CollectorMsg::key(key, 1), QStringLiteral("key %1 down").arg(key));
}

void VirtualPanel::release(int key)
{
    if (key < 0 || key >= PanelModel::Keys)
        return warn(QStringLiteral("there is no key %1").arg(key));
    _pressed.remove(key);
    send(CollectorMsg::key(key, 0), QStringLiteral("key %1 up").arg(key));
}

void VirtualPanel::tap(int key)
{
    press(key);
    release(key);
}

void VirtualPanel::turn(int shaft, int delta)
{
    if (shaft < 0 || shaft >= Shafts)
        return warn(QStringLiteral("there is no shaft %1").arg(shaft));
    _shafts[shaft] += delta;
    send(CollectorMsg::shaft(shaft, delta), QStringLiteral("shaft %1 %2").arg(shaft).arg(signedNumber(delta)));
}

void VirtualPanel::setGpi(int gpi, bool active)
{
    if (gpi < 0 || gpi >= Gpis)
        return warn(QStringLiteral("there is no GPI %1").arg(gpi));
    _gpis[gpi] = active;
    send(CollectorMsg::gpi(gpi, active ? 1 : 0),
         QStringLiteral("GPI %1 %2").arg(gpi).arg(active ? QStringLiteral("on") : QStringLiteral("off")));
}

void VirtualPanel::hold(const QList<int> &keys, int msecs, const std::function<void()> &done)
{
    if (isHolding()) {
        warn(QStringLiteral("keys are held already"));
        if (done)
            done();
        return;
    }
    for (int key : keys)
        press(key);
    _heldKeys = keys;
    _holdDone = done;
    _heldFor.start();
    _holdTimer.start(msecs);
    _holdTicker.start();
}

QString VirtualPanel::holdState() const
{
    if (!isHolding())
        return QString();
    QStringList keys;
    for (int key : _heldKeys)
        keys << QString::number(key);
    return QStringLiteral("holding key%1 %2: %3 s of %4 s")
        .arg(keys.size() > 1 ? QStringLiteral("s") : QString(), keys.join(QLatin1Char(' ')))
        .arg(double(_heldFor.elapsed()) / 1000.0, 0, 'f', 1)
        .arg(_holdTimer.interval() / 1000.0, 0, 'f', 1);
}

QList<int> VirtualPanel::activationKeys() const
{
    int first = 24;
    int second = 25;
    readActivateButtons(&first, &second);
    return first == second ? QList<int>{first} : QList<int>{first, second};
}

void VirtualPanel::dropUpgradeImage()
{
    if (_sandbox->writeFile(UpgradeImagePath, "upgrade image\n"))
        addLine(_events, QStringLiteral("image dropped"));
    else
        warn(QStringLiteral("cannot write %1").arg(_sandbox->hostPath(UpgradeImagePath)));
    emit changed();
}

void VirtualPanel::removeUpgradeImage()
{
    if (_sandbox->removeFile(UpgradeImagePath))
        addLine(_events, QStringLiteral("image removed"));
    else
        warn(QStringLiteral("no upgrade image to remove"));
    emit changed();
}

void VirtualPanel::send(const CollectorMsg &msg, const QString &event)
{
    if (_collector.clientCount() == 0)
        warn(QStringLiteral("no daemon connected to the collector: %1 went nowhere").arg(event));
    _collector.send(msg);
    addLine(_events, event);
    emit changed();
}

void VirtualPanel::addLine(QStringList &log, const QString &line)
{
    log << line;
    while (log.size() > LogSize)
        log.removeFirst();
}

void VirtualPanel::warn(const QString &text)
{
    addLine(_warnings, text);
    emit changed();
}

void VirtualPanel::onMessage(const FakeButtonDriver::Received &message)
{
    const QString command = describeCommand(message.message);
    addLine(_commands, command);
    if (!message.decoded)
        warn(QStringLiteral("unknown or malformed command (%1 bytes): %2").arg(message.message.size()).arg(command.left(60)));
    else if (!message.applied)
        warn(QStringLiteral("refused by the panel: %1").arg(command));
    emit changed();
}

void VirtualPanel::checkConnected()
{
    if (!_started || _ready || _collector.clientCount() == 0 || _driver.clientCount() == 0)
        return;
    if (_options.listenOnly) {
        _ready = true;
        emit ready();
        emit changed();
        return;
    }
    // Connected is not enough: the daemon starts its event loop (and with it
    // the collector's input and the /tmp watcher) only after both connects.
    if (!_probeTimer.isActive()) {
        probeWatcher();
        _probeTimer.start();
    }
}

void VirtualPanel::probeWatcher()
{
    if (_probes++ % 2 == 0)
        _sandbox->writeFile(QLatin1String(ProbePath), QByteArray());
    else
        _sandbox->removeFile(QLatin1String(ProbePath));
}

void VirtualPanel::readDaemonOutput()
{
    const QByteArray output = _daemon.readAll();
    if (output.isEmpty())
        return;
    QFile log(daemonLogPath());
    if (log.open(QIODevice::WriteOnly | QIODevice::Append))
        log.write(output);
    if (_ready)
        return;
    _partialLine += output;
    const QByteArray changedLine =
        QStringLiteral("Path that changed = \"%1\"").arg(_sandbox->hostPath("/tmp")).toLocal8Bit();
    const QList<QByteArray> lines = _partialLine.split('\n');
    _partialLine = lines.last();
    for (int i = 0; i + 1 < lines.size(); ++i) {
        if (lines.at(i) != changedLine || !_probeTimer.isActive())
            continue;
        _probeTimer.stop();
        _sandbox->removeFile(QLatin1String(ProbePath));
        _partialLine.clear();
        _ready = true;
        emit ready();
        emit changed();
        return;
    }
}

void VirtualPanel::pollSandbox()
{
    const QStringList logged = _sandbox->calls();
    const QString files = readFilesSummary();
    if (logged == _calls && files == _filesSummary)
        return;
    _calls = logged;
    _filesSummary = files;
    emit changed();
}

QString VirtualPanel::readFilesSummary()
{
    // Parsed again only when the files change: the readers log every line.
    const QFileInfo interfaces(_sandbox->hostPath("/etc/network/interfaces"));
    const QFileInfo launcher(launcherConfigPath());
    const QString stamp = QStringLiteral("%1 %2 %3 %4")
                              .arg(interfaces.lastModified().toMSecsSinceEpoch())
                              .arg(interfaces.size())
                              .arg(launcher.lastModified().toMSecsSinceEpoch())
                              .arg(launcher.size());
    if (stamp != _settingsStamp) {
        _settingsStamp = stamp;
        std::vector<QString> addresses(8);
        NetUtil::readInterfacesFile(addresses);
        _fontWidth = 0;
        _fontHeight = 0;
        readFontDimensions(&_fontWidth, &_fontHeight);
        _settingsSummary = QStringLiteral("eth0 %1/%2 gw %3 | font %4")
                               .arg(addresses[0].isEmpty() ? QStringLiteral("-") : addresses[0], addresses[1],
                                    addresses[3], fontName());
    }
    const QStringList images = QDir(_sandbox->hostPath("/tmp"), QStringLiteral("*.img")).entryList(QDir::Files);
    return QStringLiteral("%1 | start flag %2 | images: %3")
        .arg(_settingsSummary,
             _sandbox->exists(Sandbox::StartFlagPath) ? QStringLiteral("yes") : QStringLiteral("no"),
             images.isEmpty() ? QStringLiteral("none") : images.join(QLatin1Char(' ')));
}
