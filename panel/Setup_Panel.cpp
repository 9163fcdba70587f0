#include "panel/Setup_Panel.h"

#include "buttondriver/KVB_Messages.h"
#include "netutil/NetUtil.h"
#include "base/DebugFormat.h"
#include "base/DirectoryListing.h"
#include "base/LogOutput.h"
#include "panel/LauncherConfig.h"
#include "base/RuntimeEnv.h"
#include "base/SettingsFile.h"
#include "base/SystemCommand.h"
#include "base/TrustChecks.h"
#include "base/DevicePaths.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFile>
#include <QFileSystemWatcher>
#include <QStringList>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <unistd.h>

using buttondriver::KVB_ButtonLeds;
using buttondriver::KVB_ClearScreen;
using buttondriver::KVB_DrawText;
using collector::CollectorMsg;

namespace {

// The menu font that setup mode forces while it owns the panel.
const char *const SetupFontName = "8x13.pcf.gz";

} // namespace

Setup_Panel::Setup_Panel(const QString &script_path)
    : QObject(nullptr),
      _main_page(this, &_params),
      _ip_param(this, QStringLiteral("?#")),
      _mask_param(this, QStringLiteral("?#")),
      _broadcast_param(this, QStringLiteral("?#")),
      _gateway_param(this, QStringLiteral("?#")),
      _script_path(script_path)
{
    loadActivateButtons();
    _activate_timer.setSingleShot(true);
    // Qt's default coarse timers may fire 5 % early: a 4.8 s hold would take over.
    _activate_timer.setTimerType(Qt::PreciseTimer);
    connect(&_activate_timer, &QTimer::timeout, this, &Setup_Panel::onTimerEnterSetup);
    _start_flag_path = runtimeenv::path(devicepaths::StartFlag);
    loadNetworkParams();
    _upgrading = false;
    _active = false;
    _state = st_idle;
    _watcher = new QFileSystemWatcher(QStringList(runtimeenv::path(devicepaths::UpgradeDir)), this);
    connect(_watcher, &QFileSystemWatcher::directoryChanged, this, &Setup_Panel::onSystemUpgrade);
}

Setup_Panel::~Setup_Panel()
{
    // The members then go in reverse order: strings, timers, editors, pages, clients.
    delete _watcher;
}

void Setup_Panel::recoverInterruptedSaves()
{
    settingsfile::recoverPending();
    removeStaleScratchCopies();
}

void Setup_Panel::startDevices()
{
    _btdriver.connectToDriver(2000);
    connect(&_collector, &collector::QCollectorClient::new_msg, this, &Setup_Panel::collectorMsg);

    if (!_active && QFile::exists(_start_flag_path)) {
        _active = true;
        takeOverFont();
        _main_page.onEnter();
    }
    if (!_active && !QFile::exists(runtimeenv::path(devicepaths::MainAppScript))) {
        _active = true;
        pcb_send_message(KVB_ClearScreen(-1));
        takeOverFont();
        _main_page.onEnter();
    }
}

void Setup_Panel::loadActivateButtons()
{
    readActivateButtons(&_activate_but1, &_activate_but2);
}

void Setup_Panel::loadNetworkParams()
{
    const struct
    {
        Param_Quad *editor;
        const char *label;
    } editors[] = {{&_ip_param, "IP"},
                   {&_mask_param, "Mask"},
                   {&_broadcast_param, "Broad\ncast"},
                   {&_gateway_param, "Gate\nway"}};
    for (const auto &entry : editors) {
        entry.editor->setLabel(QStringLiteral("%1").arg(QLatin1String(entry.label)));
        entry.editor->setCallback(this);
    }

    std::vector<QString> addresses(8);
    NetUtil::readInterfacesFile(addresses);

    if (addresses[0] == QLatin1String("0.0.0.0") || addresses[0].isEmpty()) {
        qDebug() << "IP address is not set.";
        const QString cmd = QStringLiteral("touch ") + _start_flag_path;
        qDebug() << "cmd = [" << verbatim(cmd) << "]";
        runCommand(cmd);
    }

    _params.clear();
    for (int i = 0; i < 4; ++i) {
        editors[i].editor->setFromDotted(addresses[i]);
        _params.push_back(editors[i].editor);
    }
}

void Setup_Panel::takeOverFont()
{
    readFontDimensions(&_saved_font_width, &_saved_font_height);

    const QStringList size = QString::fromLatin1(SetupFontName).split(QLatin1Char('.')).first().split(QLatin1Char('x'));
    writeFontDimensions(size.value(0).toInt(), size.value(1).toInt());
    pcb_sleep(500);

    // An unreadable file left the saved size untouched.
    if (_saved_font_width == -1 || _saved_font_height == -1) {
        _saved_font_width = 8;
        _saved_font_height = 13;
    }
}

void Setup_Panel::resetPanel()
{
    pcb_send_message(KVB_ButtonLeds(-1, 0, 0));
    pcb_send_message(KVB_ClearScreen(0));
    pcb_send_message(KVB_ClearScreen(1));
    pcb_send_message(KVB_ClearScreen(2));
}

void Setup_Panel::runScript(const QString &word)
{
    // Passed to the shell as it stands, unquoted.
    const QString cmd = _script_path + QLatin1Char(' ') + word;
    qDebug() << "system(" << verbatim(cmd) << ")";
    runCommand(cmd);
}

void Setup_Panel::runScriptEnter()
{
    pcb_sleep(500);
    resetPanel();
    runScript(QStringLiteral("enter"));
}

void Setup_Panel::runScriptExit()
{
    resetPanel();
    _main_page.resetMenuSelection();
    _main_page.setupPage()->force_redraw();
    writeFontDimensions(_saved_font_width, _saved_font_height);
    QCoreApplication::processEvents();
    runScript(QStringLiteral("exit"));
}

bool Setup_Panel::pcb_send_messages(const std::vector<QByteArray> &msgs)
{
    return _btdriver.msg(msgs);
}

bool Setup_Panel::pcb_send_message(const QByteArray &msg)
{
    return _btdriver.msg(msg);
}

void Setup_Panel::pcb_exit_setup()
{
    _active = false;
    pcb_send_message(KVB_ButtonLeds(-1, 0, 0));
    runScriptExit();
}

void Setup_Panel::pcb_save_network_settings()
{
    // Runs on the setup page's save thread. It writes the addresses that the
    // page kept when the save started, which later edits do not touch.
    const Param_Quad *const editors[] = {&_ip_param, &_mask_param, &_broadcast_param, &_gateway_param};
    std::vector<QString> addresses(std::size(editors));
    std::transform(std::begin(editors), std::end(editors), addresses.begin(),
                   [](const Param_Quad *editor) { return editor->textForSave(); });
    NetUtil::writeInterfacesFile(addresses);
    NetUtil::restartNetworking();
    QFile::remove(_start_flag_path);
    runCommand(runtimeenv::path(devicepaths::Sync));
}

void Setup_Panel::pcb_reserved()
{
}

void Setup_Panel::pcb_reboot()
{
    if (!_active)
        return;
    gotoState(st_reboot);
    qDebug() << "Performing reboot now.";
    doRebootPoweroff();
}

void Setup_Panel::pcb_poweroff()
{
    if (!_active)
        return;
    gotoState(st_poweroff);
    qDebug() << "Performing poweroff now.";
    doRebootPoweroff();
}

void Setup_Panel::pcb_sleep(int msecs)
{
    if (msecs < 1) {
        qDebug() << "Invalid sleep time:" << msecs << "msecs.";
        return;
    }
    // Eleven slices of a tenth each: 1.1 times the time asked for.
    const useconds_t slice = useconds_t(qint64(msecs) * 1000 / 10);
    for (int i = 0; i < 11; ++i) {
        usleep(slice);
        QCoreApplication::processEvents();
    }
}

void Setup_Panel::pcb_update_font_dimensions(int width, int height)
{
    _saved_font_width = width;
    _saved_font_height = height;
    printf("pcb_update_font_dimensions(): _saved_font_width = %d, _saved_font_height = %d.\n",
           _saved_font_width, _saved_font_height);
    fflush(stdout);
}

void Setup_Panel::pcb_get_current_font_dimensions(int *width, int *height)
{
    if (!width || !height)
        return;
    *width = _saved_font_width;
    *height = _saved_font_height;
    printf("pcb_get_current_font_dimensions(): width = %d, height = %d.\n", *width, *height);
    fflush(stdout);
}

void Setup_Panel::collectorMsg(const CollectorMsg &msg)
{
    if (!_active) {
        // Whether each activation key is down; process-wide on purpose.
        static bool but1_down = false;
        static bool but2_down = false;
        if (msg.type == collector::MSG_KEY && _state == st_idle) {
            // Both comparisons: one id configured twice drives both flags.
            if (msg.id == _activate_but1)
                but1_down = msg.value != 0;
            if (msg.id == _activate_but2)
                but2_down = msg.value != 0;
        }
        if (but1_down && but2_down) {
            // Cleared at once, so any further event cancels the hold.
            _activate_timer.start(5000);
            but1_down = false;
            but2_down = false;
            return;
        }
        _activate_timer.stop();
        return;
    }

    if (_upgrading)
        return;
    // The main page records which page is on screen.
    _main_page.currentPage()->collectorMsg(msg);
}

void Setup_Panel::onTimerEnterSetup()
{
    runScriptEnter();
    _active = true;
    takeOverFont();
    _main_page.onEnter();
}

void Setup_Panel::onSystemUpgrade(const QString &path)
{
    // Every change of /tmp logs this line: without QDebug's stream, as the menu turn's lines.
    logoutput::debugLine(QStringLiteral("Path that changed = \"") + trustchecks::forLog(path) + QLatin1Char('"'));
    const QStringList upgradeFiles = upgradeImages(path);

    if (!_upgrading) {
        if (upgradeFiles.isEmpty())
            return;
        qDebug().noquote() << "Upgrade files detected:" << debugListForm(forLog(upgradeFiles));
        // Set first: the hook and the pauses below let a nested change through.
        _upgrading = true;
        if (!_active)
            takeOverFont();
        runScriptEnter();
        _active = true;
        resetPanel();
        pcb_send_message(KVB_DrawText(-1, 2, QStringLiteral("     Upgrade"), 0));
        pcb_send_message(KVB_DrawText(-1, 3, QStringLiteral("        In"), 0));
        pcb_send_message(KVB_DrawText(-1, 4, QStringLiteral("     Progress"), 0));
        pcb_send_message(KVB_ButtonLeds(-1, 0, 0));
        pcb_send_message(KVB_ButtonLeds(-1, 1, 0));
        return;
    }

    if (upgradeFiles.isEmpty()) {
        qDebug() << "Upgrade has finished - relinquishing control.";
    } else {
        qDebug().noquote() << "Upgrade in progress: upgradeFiles =" << debugListForm(forLog(upgradeFiles));
        // The first listing may be stale: read the directory again.
        if (!upgradeImages(path).isEmpty())
            return;
        qDebug() << "Files were deleted shortly after they were modified.";
        qDebug() << "Relinquishing control now ...";
    }

    _active = false;
    _state = st_reboot;
    _upgrading = false;
    doRebootPoweroff();
}

// Files, directories and links to what exists, named "*.img" in any case and
// not hidden, as the directory holds them, without sorting.
QStringList Setup_Panel::upgradeImages(const QString &path)
{
    const QStringList names = directorylisting::entryNames(path, directorylisting::Files | directorylisting::Dirs,
                                                           QLatin1String(".img"));
    QStringList images;
    for (const QString &name : names) {
        if (trustchecks::isAcceptedImage(path + QLatin1Char('/') + name))
            images << name;
    }
    return images;
}

QStringList Setup_Panel::forLog(QStringList names)
{
    for (QString &name : names)
        name = trustchecks::forLog(name);
    return names;
}

void Setup_Panel::gotoState(int state)
{
    switch (state) {
    case st_idle:
        qDebug() << "Changing state to st_idle";
        clearScreenText();
        break;
    case st_reboot:
        qDebug() << "Changing state to st_reboot";
        break;
    case st_poweroff:
        qDebug() << "Changing state to st_poweroff";
        break;
    default:
        qDebug() << "Setup_Panel: gotoState(): unhandled switch" << state;
        break;
    }
    _state = state;
}

void Setup_Panel::doRebootPoweroff()
{
    class RebootThread : public QThread
    {
    public:
        explicit RebootThread(bool reboot) : reboot(reboot) {}
        // A process that ends during the 2 s still reboots; a running
        // QThread destroyed at exit would abort it instead.
        ~RebootThread() override { wait(); }

        bool reboot;

    protected:
        void run() override
        {
            const QString cmd = reboot ? QStringLiteral("reboot -n") : QStringLiteral("poweroff -n");
            qDebug() << "system(" << verbatim(cmd) << ")";
            QThread::sleep(2);
            runCommand(cmd);
        }
    };

    if (_state != st_reboot && _state != st_poweroff) {
        qDebug() << "Setup_Panel: Invalid state in doRebootPoweroff():" << _state;
        return;
    }

    pcb_send_message(KVB_ButtonLeds(-1, 0, 0));
    pcb_send_message(KVB_ButtonLeds(-1, -1, 200));

    _activate_timer.stop();
    _active = false;

    const bool reboot = _state == st_reboot;
    showMessage(reboot ? QStringLiteral("Rebooting Now") : QStringLiteral("Shutting Down Now"));

    pcb_sleep(3000);
    resetPanel();
    // The main application comes back with the user's font.
    writeFontDimensions(_saved_font_width, _saved_font_height);

    // One per process, keeping the flag of the first call.
    static RebootThread thread(reboot);
    thread.start(QThread::InheritPriority);
}

void Setup_Panel::drawOnAllScreens(int line, const QString &text)
{
    for (int screen = 0; screen < 3; ++screen)
        pcb_send_message(KVB_DrawText(screen, line, text, 0));
}

void Setup_Panel::showMessage(const QString &text)
{
    const int lines = int(text.length() + 9) / 10;
    int line = 0;
    // A text of one line is not drawn at all; only the rows are cleared.
    if (lines > 1) {
        for (line = 0; line < lines; ++line) {
            // Row 0 starts at -1, clamped: it holds 9 characters, the rows after it 10.
            const int start = 10 * line - 1;
            drawOnAllScreens(line, start < 0 ? text.mid(0, 10 + start) : text.mid(start, 10));
        }
    }
    for (; line <= 8; ++line)
        drawOnAllScreens(line, QString());
}

void Setup_Panel::clearScreenText()
{
    for (int line = 0; line <= 8; ++line)
        drawOnAllScreens(line, QString());
}
