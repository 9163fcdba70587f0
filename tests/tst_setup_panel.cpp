// The panel controller in-process: a sandbox root for its files, a fake button
// driver and a fake collector on free ports, stub commands first on PATH.
#include "panel/Setup_Panel.h"

#include "FakeButtonDriver.h"
#include "FakeCollector.h"
#include "Sandbox.h"
#include "buttondriver/KVB_Messages.h"
#include "support/CuttingFileOperations.h"
#include "support/MessageRecorder.h"
#include "support/PanelDaemon.h"
#include "support/RecordingCallback.h"
#include "support/StdoutCapture.h"

#include <QElapsedTimer>
#include <QFileSystemWatcher>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

#include <dirent.h>
#include <sys/wait.h>
#include <unistd.h>

using collector::CollectorMsg;
using P = PanelDaemon;

namespace {

bool isForkedChild = false;

} // namespace

// LeakSanitizer asks this at exit. A forked child has the parent's objects but
// not its other threads, whose pointers to them are gone: its check would
// report those objects as leaks.
extern "C" int __lsan_is_turned_off()
{
    return isForkedChild ? 1 : 0;
}

class TestSetupPanel : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir _rootDir;
    std::unique_ptr<Sandbox> _sandbox;
    FakeButtonDriver _driver;
    FakeCollector _collector;

    QStringList sentSince(int mark) const
    {
        QStringList lines;
        for (const QByteArray &message : _driver.messages(mark))
            lines << RecordingCallback::describe(message);
        return lines;
    }

    // Waits until everything the panel sent so far has arrived (a marker
    // command closes it) and returns the count to compare from.
    int settle(Setup_Panel &panel)
    {
        const int before = _driver.messageCount();
        panel.pcb_send_message(buttondriver::KVB_Cmd10());
        if (!QTest::qWaitFor([&] { return sentSince(before).endsWith("cmd10"); }, 5000))
            return -1;
        return _driver.messageCount();
    }

    // Everything the panel sent after mark, up to a closing marker: proves
    // that nothing else was sent in between.
    QStringList sentUpToMarker(Setup_Panel &panel, int mark)
    {
        if (mark < 0 || settle(panel) < 0)
            return {"no marker"};
        QStringList lines = sentSince(mark);
        lines.removeLast();
        return lines;
    }

    static QStringList threeScreens(int line, const QString &text)
    {
        QStringList lines;
        for (int screen = 0; screen < 3; ++screen)
            lines << QStringLiteral("text %1 %2 0 %3").arg(screen).arg(line).arg(text);
        return lines;
    }

    static QStringList blankRows(int from)
    {
        QStringList lines;
        for (int line = from; line <= 8; ++line)
            lines << threeScreens(line, QString());
        return lines;
    }

    int launcherValue(const QString &key) const
    {
        const QSettings settings(_sandbox->hostPath("/etc/kd5820m/launcher.cfg"), QSettings::IniFormat);
        return settings.value(key, -1).toInt();
    }

    static bool containsInOrder(const QStringList &all, const QStringList &wanted)
    {
        int at = 0;
        for (const QString &line : all) {
            if (at < wanted.size() && line == wanted.at(at))
                ++at;
        }
        return at == wanted.size();
    }

    // The upgrade images of a directory in the order the directory holds them.
    static QStringList directoryOrder(const QString &path)
    {
        QStringList names;
        DIR *dir = opendir(QFile::encodeName(path).constData());
        if (!dir)
            return names;
        while (const struct dirent *entry = readdir(dir)) {
            const QString name = QFile::decodeName(entry->d_name);
            if (name.endsWith(QLatin1String(".img")))
                names << name;
        }
        closedir(dir);
        return names;
    }

    static QString listForm(const QStringList &names)
    {
        return "(\"" + names.join("\", \"") + "\")";
    }

    static void stopWatching(Setup_Panel &panel)
    {
        panel._watcher->removePaths(panel._watcher->directories());
    }

    // What the watcher reports on a change in /tmp, and the line the panel logs for it.
    void tmpChanged(Setup_Panel &panel) { panel.onSystemUpgrade(_sandbox->hostPath("/tmp")); }
    QString tmpChangedLine() const
    {
        return QStringLiteral("Path that changed = \"%1\"").arg(_sandbox->hostPath("/tmp"));
    }

    // Waits for the reboot thread's stub call; the thread ends right after it.
    void waitForRebootCall(int calls)
    {
        QTRY_COMPARE_WITH_TIMEOUT(_sandbox->calls().count("reboot -n"), calls, 8000);
        QTest::qWait(100);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(_rootDir.isValid());
        QVERIFY(_driver.start());
        QVERIFY(_collector.start());
        // Read once per process by the program: set before anything uses them.
        qputenv("PANEL_SETUP_ROOT", _rootDir.path().toLocal8Bit());
        qputenv("PANEL_SETUP_DRIVER_PORT", QByteArray::number(_driver.port()));
        qputenv("PANEL_SETUP_COLLECTOR_PORT", QByteArray::number(_collector.port()));
        _sandbox = std::make_unique<Sandbox>(_rootDir.path());
        QVERIFY(_sandbox->isValid());
        qputenv("PATH", (_sandbox->binDir() + ':' + qEnvironmentVariable("PATH")).toLocal8Bit());
    }

    void init()
    {
        // A fresh device tree in the same root for every test.
        QVERIFY(QDir(_rootDir.path()).removeRecursively());
        _sandbox = std::make_unique<Sandbox>(_rootDir.path());
        QVERIFY(_sandbox->isValid());
    }

    void sleepRefusesNonPositive_data()
    {
        QTest::addColumn<int>("msecs");
        QTest::newRow("0") << 0;
        QTest::newRow("-3") << -3;
    }

    void sleepRefusesNonPositive()
    {
        QFETCH(int, msecs);
        Setup_Panel panel("setup_script");
        QTest::ignoreMessage(QtDebugMsg, qPrintable(QStringLiteral("Invalid sleep time: %1 msecs.").arg(msecs)));
        QElapsedTimer timer;
        timer.start();
        panel.pcb_sleep(msecs);
        QVERIFY(timer.elapsed() < 50);
    }

    void sleepTakesElevenTenthsAndProcessesEvents()
    {
        Setup_Panel panel("setup_script");
        int delivered = 0;
        QTimer::singleShot(0, this, [&delivered] { ++delivered; });
        QElapsedTimer timer;
        timer.start();
        panel.pcb_sleep(200);
        QVERIFY2(timer.elapsed() >= 220, qPrintable(QString::number(timer.elapsed())));
        QVERIFY2(timer.elapsed() < 600, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(delivered, 1);
    }

    void fontDimensionsPrintAndStore()
    {
        Setup_Panel panel("setup_script");
        QByteArray printed;
        int width = -5;
        int height = -5;
        {
            StdoutCapture capture;
            panel.pcb_update_font_dimensions(12, 24);
            panel.pcb_get_current_font_dimensions(&width, &height);
            printed = capture.text();
        }
        QCOMPARE(printed, QByteArray("pcb_update_font_dimensions(): _saved_font_width = 12, _saved_font_height = 24.\n"
                                     "pcb_get_current_font_dimensions(): width = 12, height = 24.\n"));
        QCOMPARE(width, 12);
        QCOMPARE(height, 24);
        // The user's font is kept, not written: the launcher file still has 10 x 20.
        QCOMPARE(launcherValue("font/width"), 10);
    }

    void currentFontWithNullPointerDoesNothing()
    {
        Setup_Panel panel("setup_script");
        int width = -5;
        int height = -5;
        QByteArray printed;
        {
            StdoutCapture capture;
            panel.pcb_get_current_font_dimensions(nullptr, &height);
            panel.pcb_get_current_font_dimensions(&width, nullptr);
            panel.pcb_get_current_font_dimensions(nullptr, nullptr);
            printed = capture.text();
        }
        QCOMPARE(printed, QByteArray());
        QCOMPARE(width, -5);
        QCOMPARE(height, -5);
    }

    void editorsLoadedFromInterfacesFile()
    {
        Setup_Panel panel("setup_script");
        QCOMPARE(int(panel._params.size()), 4);
        QCOMPARE(panel._params[0], &panel._ip_param);
        QCOMPARE(panel._params[1], &panel._mask_param);
        QCOMPARE(panel._params[2], &panel._broadcast_param);
        QCOMPARE(panel._params[3], &panel._gateway_param);
        QCOMPARE(panel._ip_param.label(), QString("IP"));
        QCOMPARE(panel._mask_param.label(), QString("Mask"));
        QCOMPARE(panel._broadcast_param.label(), QString("Broad\ncast"));
        QCOMPARE(panel._gateway_param.label(), QString("Gate\nway"));
        QCOMPARE(panel._ip_param.text(), QString("192.168.1.10"));
        QCOMPARE(panel._mask_param.text(), QString("255.255.255.0"));
        QCOMPARE(panel._broadcast_param.text(), QString("192.168.1.255"));
        QCOMPARE(panel._gateway_param.text(), QString("192.168.1.1"));
        QVERIFY(!_sandbox->exists(Sandbox::StartFlagPath));
    }

    void shortAndBrokenAddressesFillWithZeros()
    {
        QVERIFY(_sandbox->writeFile("/etc/network/interfaces",
                                    "iface eth0 inet static\naddress 10.1\nnetmask 255.x.0\n"
                                    "broadcast 10.1.255.255.7\n"));
        Setup_Panel panel("setup_script");
        QCOMPARE(panel._ip_param.text(), QString("10.1.0.0"));
        QCOMPARE(panel._mask_param.text(), QString("255.0.0.0"));
        QCOMPARE(panel._broadcast_param.text(), QString("10.1.255.255"));
        QCOMPARE(panel._gateway_param.text(), QString("0.0.0.0"));
    }

    void unsetAddressTouchesStartFlag()
    {
        QVERIFY(_sandbox->writeFile("/etc/network/interfaces", "iface eth0 inet static\naddress 0.0.0.0\n"));
        QTest::ignoreMessage(QtDebugMsg, "IP address is not set.");
        QTest::ignoreMessage(QtDebugMsg, qPrintable(QStringLiteral("cmd = [ \"touch %1\" ]")
                                                        .arg(_sandbox->hostPath(Sandbox::StartFlagPath))));
        Setup_Panel panel("setup_script");
        QVERIFY(_sandbox->exists(Sandbox::StartFlagPath));
        QCOMPARE(panel._ip_param.text(), QString("0.0.0.0"));
    }

    void saveNetworkSettingsWritesRestartsAndDeletesFlag()
    {
        QVERIFY(_sandbox->writeFile(Sandbox::StartFlagPath, QByteArray()));
        Setup_Panel panel("setup_script");
        panel._ip_param.setFromDotted("10.0.0.2");
        panel._mask_param.setFromDotted("255.0.0.0");
        panel._broadcast_param.setFromDotted("10.255.255.255");
        panel._gateway_param.setFromDotted("0.0.0.0");
        // The save writes what the editors held when the page started it.
        for (Param_Quad *editor : {&panel._ip_param, &panel._mask_param, &panel._broadcast_param,
                                   &panel._gateway_param})
            editor->keepForSave();
        panel._ip_param.setFromDotted("10.0.0.3");
        panel.pcb_save_network_settings();
        QCOMPARE(_sandbox->readFile("/etc/network/interfaces"),
                 QByteArray("auto lo\niface lo inet loopback\n\nauto eth0\niface eth0 inet static\n"
                            "address 10.0.0.2\nnetmask 255.0.0.0\nbroadcast 10.255.255.255\n"));
        QCOMPARE(_sandbox->calls(), QStringList({"networking restart", "sync"}));
        QVERIFY(!_sandbox->exists(Sandbox::StartFlagPath));
    }

    // A power cut at any file operation of the network save, and the next
    // boot: the recovery, then the controller reading the interfaces file.
    // The device has the old or the new address, and enters setup mode (the
    // start flag) whenever that is no address. Every operation of the file's
    // save comes before the networking restart and the removal of the flag.
    void networkSaveCutAnywhere_data()
    {
        QTest::addColumn<QByteArray>("oldFile");
        QTest::addColumn<bool>("flag");
        QTest::addColumn<QString>("oldAddress");
        QTest::addColumn<QString>("newAddress");
        QTest::newRow("first address") << QByteArray("auto lo\niface lo inet loopback\n") << true << "0.0.0.0"
                                       << "10.0.0.2";
        QTest::newRow("address changed") << Sandbox::DefaultInterfaces << false << "192.168.1.10" << "10.0.0.2";
        QTest::newRow("address removed") << Sandbox::DefaultInterfaces << false << "192.168.1.10" << "0.0.0.0";
    }

    void networkSaveCutAnywhere()
    {
        QFETCH(QByteArray, oldFile);
        QFETCH(bool, flag);
        QFETCH(QString, oldAddress);
        QFETCH(QString, newAddress);
        MessageRecorder quiet; // every boot logs its start
        int oldBoots = 0, newBoots = 0; // after a cut
        for (int allowed = 0;; ++allowed) {
            init();
            QVERIFY(_sandbox->writeFile("/etc/network/interfaces", oldFile));
            if (flag)
                QVERIFY(_sandbox->writeFile(Sandbox::StartFlagPath, QByteArray()));
            QCOMPARE(_sandbox->exists(Sandbox::StartFlagPath), flag);
            bool completed = false;
            bool inOrder = true;
            {
                Setup_Panel panel("setup_script");
                panel._ip_param.setFromDotted(newAddress);
                panel._mask_param.setFromDotted("255.0.0.0");
                panel._broadcast_param.setFromDotted("10.255.255.255");
                panel._gateway_param.setFromDotted("10.0.0.1");
                const bool flagBefore = _sandbox->exists(Sandbox::StartFlagPath);
                CuttingFileOperations cuts(allowed);
                cuts.beforeEach = [&] {
                    inOrder = inOrder && _sandbox->calls().isEmpty()
                              && _sandbox->exists(Sandbox::StartFlagPath) == flagBefore;
                };
                panel.pcb_save_network_settings();
                completed = !cuts.cut();
                if (!completed) {
                    // The power went at the cut: what followed it never happened.
                    if (flagBefore)
                        QVERIFY(_sandbox->writeFile(Sandbox::StartFlagPath, QByteArray()));
                    _sandbox->clearCalls();
                }
            }
            QVERIFY2(inOrder, qPrintable(QStringLiteral("cut after %1 operations").arg(allowed)));

            Setup_Panel::recoverInterruptedSaves();
            Setup_Panel booted("setup_script");
            const QString address = booted._ip_param.text();
            const QString where = QStringLiteral("cut after %1 operations: %2").arg(allowed).arg(address);
            QVERIFY2(address == oldAddress || address == newAddress, qPrintable(where));
            if (address == QLatin1String("0.0.0.0"))
                QVERIFY2(_sandbox->exists(Sandbox::StartFlagPath), qPrintable(where));
            if (completed) {
                QCOMPARE(address, newAddress);
                QCOMPARE(_sandbox->calls(), QStringList({"networking restart", "sync"}));
                break;
            }
            (address == oldAddress ? oldBoots : newBoots) += 1;
        }
        // Cuts fell before and after the point where the save commits.
        QVERIFY(oldBoots > 0 && newBoots > 0);
    }

    void takeOverFontSavesUserFontAndForces8x13()
    {
        Setup_Panel panel("setup_script");
        QElapsedTimer timer;
        timer.start();
        panel.takeOverFont();
        QVERIFY(timer.elapsed() >= 550);
        QCOMPARE(panel._saved_font_width, 10);
        QCOMPARE(panel._saved_font_height, 20);
        QCOMPARE(launcherValue("font/width"), 8);
        QCOMPARE(launcherValue("font/height"), 13);
    }

    void takeOverFontWithoutLauncherFile()
    {
        QVERIFY(_sandbox->removeFile("/etc/kd5820m/launcher.cfg"));
        Setup_Panel panel("setup_script");
        panel.takeOverFont();
        QCOMPARE(panel._saved_font_width, 8);
        QCOMPARE(panel._saved_font_height, 13);
        QVERIFY(!_sandbox->exists("/etc/kd5820m/launcher.cfg"));
    }

    void takeOverFontWithoutFontGroupSavesZero()
    {
        QVERIFY(_sandbox->writeFile("/etc/kd5820m/launcher.cfg", "[psu]\nredundant=0\n"));
        Setup_Panel panel("setup_script");
        panel.takeOverFont();
        QCOMPARE(panel._saved_font_width, 0);
        QCOMPARE(panel._saved_font_height, 0);
        QCOMPARE(launcherValue("font/width"), 8);
    }

    void activationNeedsBothKeys()
    {
        Setup_Panel panel("setup_script");
        panel.collectorMsg(CollectorMsg::key(24, 1));
        QVERIFY(!panel._activate_timer.isActive());
        panel.collectorMsg(CollectorMsg::key(25, 1));
        QVERIFY(panel._activate_timer.isActive());
        QVERIFY(panel._activate_timer.isSingleShot());
        QCOMPARE(panel._activate_timer.interval(), 5000);
        QCOMPARE(panel._activate_timer.timerType(), Qt::PreciseTimer);
        QVERIFY(!panel._active);
    }

    void activationCancelledByAnyLaterEvent_data()
    {
        QTest::addColumn<CollectorMsg>("event");
        QTest::newRow("release of key 24") << CollectorMsg::key(24, 0);
        QTest::newRow("release of key 25") << CollectorMsg::key(25, 0);
        QTest::newRow("another key") << CollectorMsg::key(3, 1);
        QTest::newRow("shaft") << CollectorMsg::shaft(4, 1);
        QTest::newRow("gpi") << CollectorMsg::gpi(1, 1);
        // Both flags were cleared when the timer started: pressing again cancels too.
        QTest::newRow("key 24 pressed again") << CollectorMsg::key(24, 1);
    }

    void activationCancelledByAnyLaterEvent()
    {
        QFETCH(CollectorMsg, event);
        Setup_Panel panel("setup_script");
        panel.collectorMsg(CollectorMsg::key(24, 1));
        panel.collectorMsg(CollectorMsg::key(25, 1));
        QVERIFY(panel._activate_timer.isActive());
        panel.collectorMsg(event);
        QVERIFY(!panel._activate_timer.isActive());
        // Leave both key flags up for the next test.
        panel.collectorMsg(CollectorMsg::key(24, 0));
        panel.collectorMsg(CollectorMsg::key(25, 0));
    }

    void activationKeyReleasedBeforeSecondPress()
    {
        Setup_Panel panel("setup_script");
        panel.collectorMsg(CollectorMsg::key(24, 1));
        panel.collectorMsg(CollectorMsg::key(24, 0));
        panel.collectorMsg(CollectorMsg::key(25, 1));
        QVERIFY(!panel._activate_timer.isActive());
        panel.collectorMsg(CollectorMsg::key(25, 0));
    }

    void activationKeyConfiguredTwice()
    {
        QVERIFY(_sandbox->writeFile("/etc/kd5820m/launcher.cfg",
                                    "[setup]\nbutton1=7\nbutton2=7\n[font]\nwidth=10\nheight=20\n"));
        Setup_Panel panel("setup_script");
        QCOMPARE(panel._activate_but1, 7);
        QCOMPARE(panel._activate_but2, 7);
        // One press drives both flags.
        panel.collectorMsg(CollectorMsg::key(7, 1));
        QVERIFY(panel._activate_timer.isActive());
        panel.collectorMsg(CollectorMsg::key(7, 0));
        QVERIFY(!panel._activate_timer.isActive());
    }

    void activationIgnoredWhileNotIdle()
    {
        Setup_Panel panel("setup_script");
        QTest::ignoreMessage(QtDebugMsg, "Changing state to st_reboot");
        panel.gotoState(Setup_Panel::st_reboot);
        panel.collectorMsg(CollectorMsg::key(24, 1));
        panel.collectorMsg(CollectorMsg::key(25, 1));
        QVERIFY(!panel._activate_timer.isActive());
        QVERIFY(!panel._active);
    }

    void timerEntersSetupWithEnterHook()
    {
        Setup_Panel panel("setup_script");
        const int mark = settle(panel);
        QTest::ignoreMessage(QtDebugMsg, "system( \"setup_script enter\" )");
        panel.onTimerEnterSetup();
        QVERIFY(panel._active);
        QCOMPARE(_sandbox->calls(), QStringList("setup_script enter"));
        QCOMPARE(launcherValue("font/width"), 8);
        QCOMPARE(launcherValue("font/height"), 13);
        QCOMPARE(sentUpToMarker(panel, mark), P::resetPanelCommands() + P::firstMainMenuCommands());
        // While active, events go to the page on screen, not to the activation logic.
        const int next = settle(panel);
        panel.collectorMsg(CollectorMsg::key(24, 1));
        panel.collectorMsg(CollectorMsg::key(25, 1));
        QVERIFY(!panel._activate_timer.isActive());
        panel.collectorMsg(CollectorMsg::shaft(4, 1));
        QCOMPARE(sentUpToMarker(panel, next), QStringList({"text 0 1 1 TESTING", "text 0 0 0 SETUP"}));
        panel.collectorMsg(CollectorMsg::key(24, 0));
        panel.collectorMsg(CollectorMsg::key(25, 0));
    }

    void scriptPathUsedAsGiven()
    {
        QVERIFY(_sandbox->addStub("/opt/hooks/my_script", "my_script"));
        const QString script = _sandbox->hostPath("/opt/hooks/my_script");
        Setup_Panel panel(script);
        QTest::ignoreMessage(QtDebugMsg, qPrintable(QStringLiteral("system( \"%1 enter\" )").arg(script)));
        panel.runScriptEnter();
        QTest::ignoreMessage(QtDebugMsg, qPrintable(QStringLiteral("system( \"%1 exit\" )").arg(script)));
        panel.runScriptExit();
        QCOMPARE(_sandbox->calls(), QStringList({"my_script enter", "my_script exit"}));
    }

    void missingScriptStillEntersAndLeaves()
    {
        Setup_Panel panel(_sandbox->hostPath("/no/such/script"));
        const int mark = settle(panel);
        panel.onTimerEnterSetup();
        QVERIFY(panel._active);
        panel.pcb_exit_setup();
        QVERIFY(!panel._active);
        QCOMPARE(sentUpToMarker(panel, mark),
                 P::resetPanelCommands() + P::firstMainMenuCommands() + QStringList("leds -1 0 0")
                     + P::resetPanelCommands());
    }

    void exitSetupRestoresFontAndRunsExitHook()
    {
        Setup_Panel panel("setup_script");
        panel.startDevices();
        panel.onTimerEnterSetup();
        panel.pcb_update_font_dimensions(6, 13);
        const int mark = settle(panel);
        QTest::ignoreMessage(QtDebugMsg, "system( \"setup_script exit\" )");
        panel.pcb_exit_setup();
        QVERIFY(!panel._active);
        QCOMPARE(_sandbox->calls(), QStringList({"setup_script enter", "setup_script exit"}));
        QCOMPARE(launcherValue("font/width"), 6);
        QCOMPARE(launcherValue("font/height"), 13);
        QCOMPARE(panel._main_page.menuValue(), -1);
        QCOMPARE(panel._main_page.prevMenuValue(), -1);
        QCOMPARE(panel._main_page.setupPage()->submenuValue(), -1);
        QCOMPARE(sentUpToMarker(panel, mark), QStringList("leds -1 0 0") + P::resetPanelCommands());

        // Idle again: the collector's events feed only the activation logic.
        QTRY_COMPARE(_collector.clientCount(), 1);
        const int next = settle(panel);
        _collector.sendShaft(4, 1);
        _collector.sendKey(24, 1);
        _collector.sendKey(25, 1);
        QTRY_VERIFY(panel._activate_timer.isActive());
        QCOMPARE(sentUpToMarker(panel, next), QStringList());
        _collector.sendKey(24, 0);
        QTRY_VERIFY(!panel._activate_timer.isActive());
        _collector.sendKey(25, 0);
    }

    void rebootNeedsSetupMode()
    {
        Setup_Panel panel("setup_script");
        const int mark = settle(panel);
        MessageRecorder recorder;
        panel.pcb_reboot();
        panel.pcb_poweroff();
        QCOMPARE(recorder.messages(), QStringList());
        QCOMPARE(panel._state, int(Setup_Panel::st_idle));
        QCOMPARE(sentUpToMarker(panel, mark), QStringList());
    }

    void gotoStateUnhandledStillStores()
    {
        Setup_Panel panel("setup_script");
        const int mark = settle(panel);
        QTest::ignoreMessage(QtDebugMsg, "Setup_Panel: gotoState(): unhandled switch 7");
        panel.gotoState(7);
        QCOMPARE(panel._state, 7);
        QTest::ignoreMessage(QtDebugMsg, "Setup_Panel: Invalid state in doRebootPoweroff(): 7");
        panel.doRebootPoweroff();
        QCOMPARE(sentUpToMarker(panel, mark), QStringList());
    }

    void gotoStateIdleClearsTextRows()
    {
        Setup_Panel panel("setup_script");
        panel.gotoState(Setup_Panel::st_poweroff);
        const int mark = settle(panel);
        QTest::ignoreMessage(QtDebugMsg, "Changing state to st_idle");
        panel.gotoState(Setup_Panel::st_idle);
        QCOMPARE(panel._state, int(Setup_Panel::st_idle));
        QCOMPARE(sentUpToMarker(panel, mark), blankRows(0));
    }

    void rebootPoweroffInIdleStateOnlyLogs()
    {
        Setup_Panel panel("setup_script");
        const int mark = settle(panel);
        MessageRecorder recorder;
        panel.doRebootPoweroff();
        QCOMPARE(recorder.messages(), QStringList("Setup_Panel: Invalid state in doRebootPoweroff(): 0"));
        QCOMPARE(sentUpToMarker(panel, mark), QStringList());
    }

    void showMessageRows_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("Rebooting Now") << "Rebooting Now"
                                       << threeScreens(0, "Rebooting") + threeScreens(1, " Now") + blankRows(2);
        QTest::newRow("Shutting Down Now")
            << "Shutting Down Now" << threeScreens(0, "Shutting ") + threeScreens(1, "Down Now") + blankRows(2);
        // Row 0 holds 9 characters, so the 20th character falls off.
        QTest::newRow("20 characters") << "ABCDEFGHIJKLMNOPQRST"
                                       << threeScreens(0, "ABCDEFGHI") + threeScreens(1, "JKLMNOPQRS") + blankRows(2);
        QTest::newRow("11 characters") << "ABCDEFGHIJK"
                                       << threeScreens(0, "ABCDEFGHI") + threeScreens(1, "JK") + blankRows(2);
        // One line or less is not drawn; the nine rows are cleared.
        QTest::newRow("10 characters") << "ABCDEFGHIJ" << blankRows(0);
        QTest::newRow("short") << "Hi" << blankRows(0);
        QTest::newRow("empty") << "" << blankRows(0);
        QStringList nineRows = threeScreens(0, "AAAAAAAAA");
        for (int line = 1; line < 9; ++line)
            nineRows += threeScreens(line, "AAAAAAAAAA");
        QTest::newRow("nine lines") << QString(90, 'A') << nineRows;
    }

    void showMessageRows()
    {
        QFETCH(QString, text);
        QFETCH(QStringList, expected);
        Setup_Panel panel("setup_script");
        const int mark = settle(panel);
        panel.showMessage(text);
        QCOMPARE(sentUpToMarker(panel, mark), expected);
    }

    void rebootSequence()
    {
        Setup_Panel panel("setup_script");
        panel.onTimerEnterSetup();
        panel.pcb_update_font_dimensions(6, 13);
        _sandbox->clearCalls();
        const int mark = settle(panel);
        QTest::ignoreMessage(QtDebugMsg, "Changing state to st_reboot");
        QTest::ignoreMessage(QtDebugMsg, "Performing reboot now.");
        QElapsedTimer timer;
        timer.start();
        panel.pcb_reboot();
        QVERIFY(timer.elapsed() >= 3300);
        QVERIFY(!panel._active);
        QCOMPARE(panel._state, int(Setup_Panel::st_reboot));
        QCOMPARE(launcherValue("font/width"), 6);
        QCOMPARE(launcherValue("font/height"), 13);
        QCOMPARE(sentUpToMarker(panel, mark),
                 QStringList({"leds -1 0 0", "leds -1 -1 200"}) + threeScreens(0, "Rebooting")
                     + threeScreens(1, " Now") + blankRows(2) + P::resetPanelCommands());
        // The command follows about 2 s later, from the reboot thread; no exit hook.
        QVERIFY(_sandbox->calls().isEmpty());
        waitForRebootCall(1);
        QVERIFY(timer.elapsed() >= 5300);
        QCOMPARE(_sandbox->calls(), QStringList("reboot -n"));

        // Events now only reach the activation logic, which ignores keys.
        panel.collectorMsg(CollectorMsg::key(24, 1));
        panel.collectorMsg(CollectorMsg::key(25, 1));
        QVERIFY(!panel._activate_timer.isActive());

        // The thread of the first call is reused with its flag: a power-off now still reboots.
        panel.gotoState(Setup_Panel::st_poweroff);
        const int next = settle(panel);
        panel.doRebootPoweroff();
        QCOMPARE(sentUpToMarker(panel, next).mid(2, 6), threeScreens(0, "Shutting ") + threeScreens(1, "Down Now"));
        waitForRebootCall(2);
        QCOMPARE(_sandbox->calls(), QStringList({"reboot -n", "reboot -n"}));
    }

    // A process that ends while the reboot thread still waits does not abort:
    // it runs the command and then exits.
    void exitDuringRebootWaitStillReboots()
    {
#ifdef PANEL_SETUP_TESTS_EMULATED
        QSKIP("qemu-user cannot start a thread in a forked child; the native builds run this");
#endif
        _sandbox->clearCalls();
        const pid_t child = fork();
        QVERIFY(child >= 0);
        if (child == 0) {
            isForkedChild = true;
            Setup_Panel panel("setup_script");
            panel.gotoState(Setup_Panel::st_reboot);
            panel.doRebootPoweroff();
            exit(0);
        }
        int status = 0;
        QCOMPARE(waitpid(child, &status, 0), child);
        QVERIFY2(WIFEXITED(status), qPrintable(QStringLiteral("ended by signal %1").arg(WTERMSIG(status))));
        QCOMPARE(WEXITSTATUS(status), 0);
        QCOMPARE(_sandbox->calls(), QStringList("reboot -n"));
    }

    void upgradeWatcherIsWired()
    {
        Setup_Panel panel("setup_script");
        QCOMPARE(panel._watcher->directories(), QStringList(_sandbox->hostPath("/tmp")));
        QCOMPARE(panel._watcher->parent(), &panel);
        QSignalSpy changed(panel._watcher, &QFileSystemWatcher::directoryChanged);
        QVERIFY(_sandbox->writeFile("/tmp/notes.txt", "x"));
        QTRY_COMPARE(changed.count(), 1);
        QVERIFY(!panel._upgrading);
    }

    void otherFilesOnlyLogThePath()
    {
        QVERIFY(_sandbox->writeFile("/tmp/notes.txt", "x"));
        Setup_Panel panel("setup_script");
        stopWatching(panel);
        const int mark = settle(panel);
        MessageRecorder recorder;
        tmpChanged(panel);
        QCOMPARE(recorder.messages(), QStringList(tmpChangedLine()));
        QVERIFY(!panel._upgrading);
        QVERIFY(!panel._active);
        QCOMPARE(sentUpToMarker(panel, mark), QStringList());
    }

    // The images are listed as the directory holds them, not sorted by name.
    void upgradeFilesListedUnsorted()
    {
        const QStringList names = {"a.img", "b.img", "c.img", "d.img", "e.img", "f.img"};
        for (const QString &name : names)
            QVERIFY(_sandbox->writeFile("/tmp/" + name, "x"));
        const QStringList held = directoryOrder(_sandbox->hostPath("/tmp"));
        QCOMPARE(QSet<QString>(held.begin(), held.end()), QSet<QString>(names.begin(), names.end()));
        // Without this the test could not tell a sorted listing from an unsorted one.
        QVERIFY2(held != names, "the file system lists these files sorted");
        Setup_Panel panel("setup_script");
        stopWatching(panel);
        MessageRecorder recorder;
        tmpChanged(panel);
        QVERIFY(containsInOrder(recorder.messages(), {"Upgrade files detected: " + listForm(held)}));
    }

    void upgradeTakesPanelOverAndDropsInput()
    {
        QVERIFY(_sandbox->writeFile("/tmp/b.img", "x"));
        QVERIFY(_sandbox->writeFile("/tmp/a.img", "x"));
        Setup_Panel panel("setup_script");
        stopWatching(panel);
        const int mark = settle(panel);
        MessageRecorder recorder;
        tmpChanged(panel);
        const QString listed = listForm(directoryOrder(_sandbox->hostPath("/tmp")));
        QVERIFY(containsInOrder(recorder.messages(),
                                {tmpChangedLine(), "Upgrade files detected: " + listed,
                                 "system( \"setup_script enter\" )"}));
        QVERIFY(panel._upgrading);
        QVERIFY(panel._active);
        QCOMPARE(panel._saved_font_width, 10);
        QCOMPARE(launcherValue("font/width"), 8);
        QCOMPARE(_sandbox->calls(), QStringList("setup_script enter"));
        QCOMPARE(sentUpToMarker(panel, mark),
                 P::resetPanelCommands() + P::resetPanelCommands()
                     + QStringList({"text -1 2 0      Upgrade", "text -1 3 0         In",
                                    "text -1 4 0      Progress", "leds -1 0 0", "leds -1 1 0"}));

        const int next = settle(panel);
        panel.collectorMsg(CollectorMsg::shaft(4, 1));
        panel.collectorMsg(CollectorMsg::key(28, 1));
        QCOMPARE(sentUpToMarker(panel, next), QStringList());

        // Files still there after the re-read: keep waiting.
        MessageRecorder again;
        tmpChanged(panel);
        QCOMPARE(again.messages(),
                 QStringList({tmpChangedLine(), "Upgrade in progress: upgradeFiles = " + listed}));
        QVERIFY(panel._upgrading);
    }

    void upgradeInSetupModeRunsEnterHookAgain()
    {
        Setup_Panel panel("setup_script");
        stopWatching(panel);
        panel.onTimerEnterSetup();
        panel.pcb_update_font_dimensions(6, 13);
        QVERIFY(_sandbox->writeFile("/tmp/a.img", "x"));
        tmpChanged(panel);
        QCOMPARE(_sandbox->calls(), QStringList({"setup_script enter", "setup_script enter"}));
        // Already active: the user's font is not read again.
        QCOMPARE(panel._saved_font_width, 6);
        QVERIFY(panel._upgrading);
    }

    void upgradeFinishedReboots()
    {
        QVERIFY(_sandbox->writeFile("/tmp/a.img", "x"));
        Setup_Panel panel("setup_script");
        stopWatching(panel);
        tmpChanged(panel);
        QVERIFY(_sandbox->removeFile("/tmp/a.img"));
        _sandbox->clearCalls();
        const int mark = settle(panel);
        QTest::ignoreMessage(QtDebugMsg, "Upgrade has finished - relinquishing control.");
        tmpChanged(panel);
        QVERIFY(!panel._upgrading);
        QVERIFY(!panel._active);
        QCOMPARE(panel._state, int(Setup_Panel::st_reboot));
        QCOMPARE(launcherValue("font/width"), 10);
        QCOMPARE(sentSince(mark).mid(0, 8),
                 QStringList({"leds -1 0 0", "leds -1 -1 200"}) + threeScreens(0, "Rebooting")
                     + threeScreens(1, " Now"));
        waitForRebootCall(1);
        QCOMPARE(_sandbox->calls(), QStringList("reboot -n"));
    }

    void upgradeFilesDeletedBetweenListings()
    {
        QVERIFY(_sandbox->writeFile("/tmp/a.img", "x"));
        Setup_Panel panel("setup_script");
        stopWatching(panel);
        tmpChanged(panel);
        QVERIFY(panel._upgrading);
        _sandbox->clearCalls();

        // The file goes while the first listing is being logged, before the re-read.
        static Sandbox *sandbox = nullptr;
        static QStringList logged;
        sandbox = _sandbox.get();
        logged.clear();
        const QtMessageHandler previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &, const QString &text) {
                // The reboot thread logs too; only this thread's lines count.
                if (QThread::currentThread() != QCoreApplication::instance()->thread())
                    return;
                logged << text;
                if (text.startsWith("Upgrade in progress:"))
                    sandbox->removeFile("/tmp/a.img");
            });
        tmpChanged(panel);
        qInstallMessageHandler(previous);

        QVERIFY(containsInOrder(logged, {"Upgrade in progress: upgradeFiles = (\"a.img\")",
                                         "Files were deleted shortly after they were modified.",
                                         "Relinquishing control now ..."}));
        QVERIFY(!logged.contains("Upgrade has finished - relinquishing control."));
        QVERIFY(!logged.contains("Changing state to st_reboot"));
        QVERIFY(!panel._upgrading);
        QCOMPARE(panel._state, int(Setup_Panel::st_reboot));
        waitForRebootCall(1);
    }

    void destructionDeletesWatcherFirst()
    {
        auto panel = std::make_unique<Setup_Panel>("setup_script");
        QPointer<QFileSystemWatcher> watcher = panel->_watcher;
        QVERIFY(watcher);
        panel.reset();
        QVERIFY(!watcher);
    }
};

QTEST_GUILESS_MAIN(TestSetupPanel)
#include "tst_setup_panel.moc"
