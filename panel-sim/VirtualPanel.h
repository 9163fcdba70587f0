#ifndef VIRTUALPANEL_H
#define VIRTUALPANEL_H

#include "FakeButtonDriver.h"
#include "FakeCollector.h"
#include "PanelModel.h"
#include "Sandbox.h"

#include <QElapsedTimer>
#include <QObject>
#include <QProcess>
#include <QSet>
#include <QStringList>
#include <QTimer>

#include <array>
#include <functional>
#include <memory>

// The panel hardware and its two local peers as the daemon sees them: the fake
// collector sends what the operator does, the fake button driver feeds the
// panel model, and the daemon runs as a child in a sandbox root (or is started
// by hand against the same ports). Everything here runs on the event loop.
class VirtualPanel : public QObject
{
    Q_OBJECT

public:
    static constexpr int Gpis = 8;
    static constexpr int Shafts = 6;
    static constexpr int LogSize = 50; // recent events, commands, warnings kept
    static const QStringList LedNames; // by index of the model's LED table

    struct Options
    {
        QString root;          // empty: a temporary directory, removed at exit
        bool reuse = false;    // keep what an earlier run left in root
        QString templateDir;   // the sandbox template
        QString daemon;        // the daemon binary
        QStringList daemonArguments;
        bool listenOnly = false;
        quint16 collectorPort = 0; // 0: a free port
        quint16 driverPort = 0;
    };

    explicit VirtualPanel(const Options &options, QObject *parent = nullptr);
    ~VirtualPanel() override;

    // Creates the sandbox, points this process's PANEL_SETUP_ROOT at it and
    // starts both listeners. False with *error set when something is missing.
    bool setUp(QString *error);
    // Starts the daemon (not with listenOnly); ready() follows once it is
    // connected to both peers and watches /tmp.
    bool startDaemon(QString *error);
    void stopDaemon();
    bool isStarted() const { return _started; }
    bool isReady() const { return _ready; }
    bool listenOnly() const { return _options.listenOnly; }

    Sandbox &sandbox() { return *_sandbox; }
    const PanelModel &panel() const { return _driver.panel(); }
    quint16 collectorPort() const { return _collector.port(); }
    quint16 driverPort() const { return _driver.port(); }
    // "running (pid 123)", "exited with code 1", "listening for a daemon" ...
    QString daemonState() const;
    QString daemonLogPath() const;
    QStringList daemonLogTail(int lines) const;

    // Operator input. Keys 0..29, shafts 0..5, GPIs 0..7; anything else is
    // refused with a warning.
    void press(int key);
    void release(int key);
    void tap(int key);
    void turn(int shaft, int delta);
    void setGpi(int gpi, bool active);
    // Presses the keys in order, releases them in reverse order after msecs,
    // then calls done (if any).
    void hold(const QList<int> &keys, int msecs, const std::function<void()> &done = {});
    bool isHolding() const { return _holdTimer.isActive(); }
    // "keys 24 25 held 3.1 s of 5.5 s"; empty when nothing is held.
    QString holdState() const;
    // The two activation keys from the sandbox's launcher configuration.
    QList<int> activationKeys() const;
    bool isPressed(int key) const { return _pressed.contains(key); }
    bool gpi(int gpi) const { return gpi >= 0 && gpi < Gpis && _gpis[gpi]; }
    int shaftPosition(int shaft) const { return shaft >= 0 && shaft < Shafts ? _shafts[shaft] : 0; }

    static const QString UpgradeImagePath;
    void dropUpgradeImage();
    void removeUpgradeImage();

    const QStringList &events() const { return _events; }
    const QStringList &commands() const { return _commands; }
    const QStringList &warnings() const { return _warnings; }
    const QStringList &calls() const { return _calls; }
    // One line about the sandbox's files: address, font, start flag, images.
    const QString &filesSummary() const { return _filesSummary; }
    // The font the launcher configuration names now, "8x13" as the font
    // catalogue calls it ("0x0" without one).
    QString fontName() const { return QStringLiteral("%1x%2").arg(_fontWidth).arg(_fontHeight); }

signals:
    // Also every 100 ms while keys are held: the countdown moves.
    void changed();
    void ready();
    void daemonFinished(const QString &state);

private:
    void send(const collector::CollectorMsg &msg, const QString &event);
    void addLine(QStringList &log, const QString &line);
    void warn(const QString &text);
    void onMessage(const FakeButtonDriver::Received &message);
    void checkConnected();
    void probeWatcher();
    void readDaemonOutput();
    void pollSandbox();
    QString readFilesSummary();

    Options _options;
    std::unique_ptr<Sandbox> _sandbox;
    FakeCollector _collector;
    FakeButtonDriver _driver;
    QProcess _daemon;
    QByteArray _partialLine; // daemon output after its last line feed
    bool _started = false;
    bool _ready = false;
    QTimer _probeTimer; // touches /tmp until the daemon reports the change
    int _probes = 0;
    QTimer _pollTimer;  // the call log and the files are only ever polled

    QSet<int> _pressed;
    std::array<bool, Gpis> _gpis{};
    std::array<int, Shafts> _shafts{};
    QTimer _holdTimer;
    QTimer _holdTicker;
    QElapsedTimer _heldFor;
    QList<int> _heldKeys;
    std::function<void()> _holdDone;

    QStringList _events;
    QStringList _commands;
    QStringList _warnings;
    QStringList _calls;
    QString _filesSummary;
    QString _settingsStamp;   // times and sizes of the interfaces and launcher files
    QString _settingsSummary; // what they held then
    int _fontWidth = 0;
    int _fontHeight = 0;
};

#endif // VIRTUALPANEL_H
