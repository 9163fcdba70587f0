// The setup page end to end: network, font and PSU saves, and revert.
#include "base/SettingsFile.h"
#include "support/PanelDaemon.h"
#include "support/SettingsSaves.h"

#include <QtTest>

using P = PanelDaemon;

class TestE2eSettings : public QObject
{
    Q_OBJECT

private:
    static QStringList setupList()
    {
        return {"text 1 0 1 IP Addr",   "text 1 1 0 Netmask",       "text 1 2 0 Broadcast",
                "text 1 3 0 Gateway",   "text 1 4 0 Font Size",     "text 1 5 0 Dual PSU Mode",
                "text 1 6 0 ",          "text 1 7 0 Save Changes",  "text 1 8 0 Revert Changes"};
    }

    // From an address editor whose last turn is drawn: back to the list,
    // "Revert Changes", and the IP address opened again, which must show
    // `baseline`.
    static void revertAndReopenAddress(P &d, const QString &baseline)
    {
        QTest::qWait(200); // the page's 150 ms redraw of the last turn
        QCOMPARE(d.step(P::back(), 1), QStringList("clear 2"));
        QCOMPARE(d.step(P::turn(8), 2), QStringList({"text 1 8 1 Revert Changes", "text 1 0 0 IP Addr"}));
        QCOMPARE(d.step(P::select(), 4),
                 QStringList({"leds 3 0 0", "text 2 2 0 Changes were", "text 2 3 0 Discarded", "clear 2"}));
        QCOMPARE(d.step(P::turn(-8), 2), QStringList({"text 1 0 1 IP Addr", "text 1 8 0 Revert Changes"}));
        QCOMPARE(d.step(P::select(), 3).first(), "text 2 0 0 " + baseline);
    }

    // The interfaces file that a network save writes for this primary address.
    static QByteArray interfacesWith(const char *address)
    {
        return QByteArray("auto lo\niface lo inet loopback\n\nauto eth0\niface eth0 inet static\naddress ")
               + address + "\nnetmask 255.255.255.0\nbroadcast 192.168.1.255\ngateway 192.168.1.1\n";
    }

private Q_SLOTS:
    void networkSave()
    {
        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.startInMenu());
        QCOMPARE(d.step(P::select(), 9), setupList());
        QCOMPARE(d.step(P::select(), 3),
                 QStringList({"text 2 0 0 192.168.  1. 10", "textat 2 0 0 3 0xffffff 0 192", "text 2 1 0 ^"}));

        // The first octet goes up by one; the last turn is drawn within 150 ms.
        int mark = d.commandCount();
        d.collector.send(P::turn(1));
        QTRY_COMPARE(d.driver.panel().text(2, 0), QString("193.168.  1. 10"));
        QCOMPARE(d.commands(mark).first(), QString("leds 3 1 0"));
        QTRY_COMPARE(d.commands(d.commandCount() - 3),
                     QStringList({"text 2 0 0 193.168.  1. 10", "textat 2 0 0 3 0xffffff 0 193", "text 2 1 0 ^"}));

        QCOMPARE(d.step(P::back(), 1), QStringList("clear 2"));
        QCOMPARE(d.step(P::turn(7), 2), QStringList({"text 1 7 1 Save Changes", "text 1 0 0 IP Addr"}));
        QVERIFY(d.sandbox.exists(Sandbox::StartFlagPath));
        mark = d.commandCount();
        d.collector.send(P::select());
        QTRY_COMPARE_WITH_TIMEOUT(d.commandCount(), mark + 10, 8000);
        QCOMPARE(d.commands(mark),
                 QStringList({"leds 3 -1 0", "leds 3 0 0", "text 2 1 0 Network Params", "text 2 2 0 Were Saved:",
                              "text 2 3 0 ", "text 2 4 0 193.168.1.10", "text 2 5 0 255.255.255.0",
                              "text 2 6 0 192.168.1.255", "text 2 7 0 192.168.1.1", "clear 2"}));
        QCOMPARE(d.sandbox.readFile("/etc/network/interfaces"),
                 QByteArray("auto lo\niface lo inet loopback\n\nauto eth0\niface eth0 inet static\n"
                            "address 193.168.1.10\nnetmask 255.255.255.0\nbroadcast 192.168.1.255\n"
                            "gateway 192.168.1.1\n"));
        QCOMPARE(d.sandbox.calls(), QStringList({"networking restart", "sync"}));
        QVERIFY(!d.sandbox.exists(Sandbox::StartFlagPath));
        QVERIFY(d.hasLine("&&&&&& write net file"));
        // The text is logged with its real line breaks.
        QTRY_VERIFY(d.outputLines().join('\n').contains(
            "\"auto lo\niface lo inet loopback\n\nauto eth0\niface eth0 inet static\naddress 193.168.1.10\n"
            "netmask 255.255.255.0\nbroadcast 192.168.1.255\ngateway 192.168.1.1\n\""));
    }

    // Input that comes while a save screen pauses waits until the flow has
    // returned: during the PSU confirmation a turn away and back and a select
    // on "Save Changes" (then ignored: the network save runs), during "Were
    // Saved:" an address edit (then pending). The save writes the addresses of
    // the press, once; the second save completes twice.
    void inputDuringTheSaveScreens()
    {
        P d(PANEL_SETUP_BINARY);
        // A networking restart that lasts until the test lets it end.
        const QString mayEnd = d.sandbox.hostPath("/networking-may-end");
        QVERIFY(d.sandbox.writeFile("/etc/init.d/networking",
                                    QStringLiteral("#!/bin/sh\necho \"networking $*\" >> '%1'\n"
                                                   "while [ ! -e '%2' ]; do sleep 0.05; done\n")
                                        .arg(d.sandbox.callLogPath(), mayEnd)
                                        .toUtf8(),
                                    true));
        QVERIFY(d.startInMenu());
        QCOMPARE(d.step(P::select(), 9), setupList());
        QCOMPARE(d.step(P::select(), 3).first(), QString("text 2 0 0 192.168.  1. 10"));
        d.collector.send(P::turn(1));
        QTRY_COMPARE(d.driver.panel().text(2, 0), QString("193.168.  1. 10"));
        QTest::qWait(200); // the page's 150 ms redraw of the last turn
        QCOMPARE(d.step(P::back(), 1), QStringList("clear 2"));
        QCOMPARE(d.step(P::turn(5), 2), QStringList({"text 1 5 1 Dual PSU Mode", "text 1 0 0 IP Addr"}));
        QCOMPARE(d.step(P::select(), 2), QStringList({"text 2 0 1 No", "text 2 1 0 Yes"}));
        QCOMPARE(d.step(P::turn(1), 3), QStringList({"leds 3 1 0", "text 2 0 0 No", "text 2 1 1 Yes"}));
        QCOMPARE(d.step(P::back(), 1), QStringList("clear 2"));
        QCOMPARE(d.step(P::turn(2), 2), QStringList({"text 1 7 1 Save Changes", "text 1 5 0 Dual PSU Mode"}));

        int mark = d.commandCount();
        d.collector.send(P::select());
        QTRY_VERIFY(d.commands(mark).contains("text 2 4 0 Enabled"));
        d.collector.send(P::turn(1));
        d.collector.send(P::turn(-1));
        d.collector.send(P::select());
        QTRY_COMPARE_WITH_TIMEOUT(d.sandbox.calls(), QStringList("networking restart"), 8000);
        QCOMPARE(d.sandbox.readFile("/etc/network/interfaces"), interfacesWith("193.168.1.10"));
        QTest::qWait(300);
        QCOMPARE(d.commands(mark), QStringList({"text 2 1 0 Dual PSU", "text 2 2 0 Setting Saved:", "text 2 3 0 ",
                                                "text 2 4 0 Enabled", "clear 2", "leds 3 -1 0"}));

        mark = d.commandCount();
        QVERIFY(d.sandbox.writeFile("/networking-may-end", QByteArray()));
        QTRY_VERIFY(d.commands(mark).contains("text 2 2 0 Were Saved:"));
        d.collector.send(P::turn(-7));
        d.collector.send(P::select());
        d.collector.send(P::turn(1));
        const QStringList completion{"leds 3 0 0", "text 2 1 0 Network Params", "text 2 2 0 Were Saved:",
                                     "text 2 3 0 ", "text 2 4 0 193.168.1.10", "text 2 5 0 255.255.255.0",
                                     "text 2 6 0 192.168.1.255", "text 2 7 0 192.168.1.1", "clear 2"};
        const QStringList edited{"text 2 0 0 194.168.  1. 10", "textat 2 0 0 3 0xffffff 0 194", "text 2 1 0 ^"};
        QTRY_COMPARE_WITH_TIMEOUT(d.commands(mark).count(edited.first()), 2, 10000);
        QTest::qWait(300);
        QCOMPARE(d.commands(mark),
                 completion
                     + QStringList({"text 1 0 1 IP Addr", "text 1 7 0 Save Changes", "text 2 0 0 193.168.  1. 10",
                                    "textat 2 0 0 3 0xffffff 0 193", "text 2 1 0 ^", "leds 3 1 0"})
                     + edited + edited);
        QCOMPARE(d.sandbox.calls(), QStringList({"networking restart", "sync"}));

        // The held edit is pending: the second save writes it and completes twice.
        QCOMPARE(d.step(P::back(), 1), QStringList("clear 2"));
        QCOMPARE(d.step(P::turn(7), 2), QStringList({"text 1 7 1 Save Changes", "text 1 0 0 IP Addr"}));
        mark = d.commandCount();
        d.collector.send(P::select());
        QTRY_COMPARE_WITH_TIMEOUT(d.commands(mark).count("clear 2"), 2, 15000);
        QCOMPARE(d.commands(mark).count("text 2 4 0 194.168.1.10"), 2);
        QCOMPARE(d.sandbox.readFile("/etc/network/interfaces"), interfacesWith("194.168.1.10"));
        QCOMPARE(d.sandbox.calls(), QStringList({"networking restart", "sync", "networking restart", "sync"}));
    }

    void fontSaveAppliesAtExit()
    {
        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.startInMenu());
        QCOMPARE(d.step(P::select(), 9), setupList());
        QCOMPARE(d.step(P::turn(4), 2), QStringList({"text 1 4 1 Font Size", "text 1 0 0 IP Addr"}));
        // The list opens on the user's font (10 x 20), not on the 8 x 13 that setup mode shows.
        QCOMPARE(d.step(P::select(), 3), QStringList({"text 2 0 0 6x13", "text 2 1 0 8x13", "text 2 2 1 10x20"}));
        QVERIFY(d.hasLine("pcb_get_current_font_dimensions(): width = 10, height = 20."));
        QCOMPARE(d.step(P::turn(-2), 3), QStringList({"leds 3 1 0", "text 2 0 1 6x13", "text 2 2 0 10x20"}));
        QCOMPARE(d.step(P::back(), 1), QStringList("clear 2"));
        QCOMPARE(d.step(P::turn(3), 2), QStringList({"text 1 7 1 Save Changes", "text 1 4 0 Font Size"}));
        QCOMPARE(d.step(P::select(), 6),
                 QStringList({"text 2 1 0 Font Setting", "text 2 2 0 Was Saved:", "text 2 3 0 ", "text 2 4 0 6x13",
                              "clear 2", "leds 3 0 0"}));
        QVERIFY(d.hasLine("parse_font_dimensions(): width = 6, height = 13."));
        QVERIFY(d.hasLine("pcb_update_font_dimensions(): _saved_font_width = 6, _saved_font_height = 13."));
        // Setup mode keeps drawing with 8 x 13 until the panel is handed back.
        QCOMPARE(d.launcherValue("font/width"), 8);
        QCOMPARE(d.launcherValue("font/height"), 13);

        // Nothing else pending: the save closed the item, so key 2 leaves the page.
        QCOMPARE(d.step(P::back(), 9), P::mainMenuReturnCommands(0, -1));
        QCOMPARE(d.step(P::turn(3), 2), QStringList({"text 0 3 1 EXIT", "text 0 0 0 SETUP"}));
        QCOMPARE(d.step(P::select(), 5), QStringList("leds -1 0 0") + P::resetPanelCommands());
        QTRY_COMPARE(d.sandbox.calls(), QStringList("setup_script exit"));
        QCOMPARE(d.launcherValue("font/width"), 6);
        QCOMPARE(d.launcherValue("font/height"), 13);
    }

    void psuSave()
    {
        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.startInMenu());
        QCOMPARE(d.step(P::select(), 9), setupList());
        QCOMPARE(d.step(P::turn(5), 2), QStringList({"text 1 5 1 Dual PSU Mode", "text 1 0 0 IP Addr"}));
        QCOMPARE(d.step(P::select(), 2), QStringList({"text 2 0 1 No", "text 2 1 0 Yes"}));
        QCOMPARE(d.step(P::turn(1), 3), QStringList({"leds 3 1 0", "text 2 0 0 No", "text 2 1 1 Yes"}));
        QCOMPARE(d.step(P::back(), 1), QStringList("clear 2"));
        QCOMPARE(d.step(P::turn(2), 2), QStringList({"text 1 7 1 Save Changes", "text 1 5 0 Dual PSU Mode"}));
        QCOMPARE(d.launcherValue("psu/redundant"), 0);
        QCOMPARE(d.step(P::select(), 6),
                 QStringList({"text 2 1 0 Dual PSU", "text 2 2 0 Setting Saved:", "text 2 3 0 ",
                              "text 2 4 0 Enabled", "clear 2", "leds 3 0 0"}));
        QCOMPARE(d.launcherValue("psu/redundant"), 1);
        QVERIFY(d.sandbox.calls().isEmpty());
    }

    void revertRestoresFileValues()
    {
        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.startInMenu());
        QCOMPARE(d.step(P::select(), 9), setupList());
        QCOMPARE(d.step(P::select(), 3).first(), QString("text 2 0 0 192.168.  1. 10"));
        d.collector.send(P::turn(5));
        QTRY_COMPARE(d.driver.panel().text(2, 0), QString("197.168.  1. 10"));
        // The editor holds the file's address again.
        revertAndReopenAddress(d, "192.168.  1. 10");
        QCOMPARE(d.sandbox.readFile("/etc/network/interfaces"), Sandbox::DefaultInterfaces);
        QVERIFY(d.sandbox.calls().isEmpty());
    }

    // A read-only root's layout: every settings file a symbolic link into the
    // flash partition. The saves land in the flash files, the links stay, and
    // the start removed what a killed save had left there.
    void savesFollowLinksIntoFlash()
    {
        P d(PANEL_SETUP_BINARY);
        const QString flash = d.sandbox.hostPath("/mnt/flashdisk/etc");
        QVERIFY(QDir().mkpath(flash));
        const QStringList files = {"/etc/network/interfaces", "/etc/kd5820m/launcher.cfg", "/etc/kd5820m/buttonlevel"};
        for (const QString &file : files) {
            const QString target = flash + '/' + QFileInfo(file).fileName();
            QVERIFY(QFile::rename(d.sandbox.hostPath(file), target));
            QVERIFY(QFile::link(target, d.sandbox.hostPath(file)));
        }
        QVERIFY(d.sandbox.writeFile("/mnt/flashdisk/etc/interfaces.panel-setup-k1LLed", "killed save"));
        QVERIFY(d.sandbox.writeFile(Sandbox::StartFlagPath, QByteArray()));
        QVERIFY(d.startConnected());
        QTRY_COMPARE_WITH_TIMEOUT(d.commands(), P::firstMainMenuCommands(), 5000);
        QString failure;
        QVERIFY2(saveEverySetting(d, &failure), qPrintable(failure));

        QCOMPARE(d.sandbox.readFile("/mnt/flashdisk/etc/interfaces"),
                 QByteArray(Sandbox::DefaultInterfaces).replace("address 192.", "address 193."));
        QCOMPARE(d.sandbox.readFile("/mnt/flashdisk/etc/launcher.cfg"),
                 QByteArray("[font]\nheight=13\nwidth=8\n\n[psu]\nredundant=1\n\n[setup]\nbutton1=24\nbutton2=25\n"));
        QVERIFY(d.sandbox.readFile("/mnt/flashdisk/etc/buttonlevel") != Sandbox::DefaultButtonLevel);
        for (const QString &file : files) {
            const QFileInfo link(d.sandbox.hostPath(file));
            QVERIFY2(link.isSymLink(), qPrintable(file));
            QCOMPARE(link.symLinkTarget(), flash + '/' + link.fileName());
        }
        QCOMPARE(QDir(flash).entryList(QDir::Files | QDir::Hidden),
                 QStringList({"buttonlevel", "interfaces", "launcher.cfg"}));
    }

    // A part above 255 in the file shows as read, a turn wraps it to 0, and
    // Revert brings the file's value back.
    void addressPartAbove255()
    {
        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.sandbox.writeFile("/etc/network/interfaces",
                                    "auto lo\niface lo inet loopback\n\nauto eth0\niface eth0 inet static\n"
                                    "address 10.0.0.300\nnetmask 255.255.255.0\n"));
        QVERIFY(d.startInMenu());
        QCOMPARE(d.step(P::select(), 9), setupList());
        QCOMPARE(d.step(P::select(), 3),
                 QStringList({"text 2 0 0  10.  0.  0.300", "textat 2 0 0 3 0xffffff 0  10", "text 2 1 0 ^"}));
        for (int field = 1; field <= 3; ++field)
            d.step(P::select(), 3);
        QCOMPARE(d.driver.panel().text(2, 1), QString("            ^"));
        d.collector.send(P::turn(1));
        QTRY_COMPARE(d.driver.panel().text(2, 0), QString(" 10.  0.  0.  0"));
        revertAndReopenAddress(d, " 10.  0.  0.300");
    }

    // Saves that a power cut interrupted, found as redo records at the start:
    // completed before anything reads a setting, so the menu and the PSU mode
    // show the saved values, and a torn record is dropped without a change.
    void interruptedSavesCompletedAtStart()
    {
        P d(PANEL_SETUP_BINARY);
        const QByteArray interfaces = "auto lo\niface lo inet loopback\n\nauto eth0\niface eth0 inet static\n"
                                      "address 10.20.30.40\nnetmask 255.0.0.0\n";
        const QByteArray launcher = "[setup]\nbutton1=24\nbutton2=25\n\n[font]\nwidth=10\nheight=20\n\n"
                                    "[psu]\nredundant=1\n";
        QVERIFY(d.sandbox.writeFile("/var/lib/panel-setup/interfaces.panel-setup-redo",
                                    settingsfile::redoRecord("/etc/network/interfaces", interfaces)));
        QVERIFY(d.sandbox.writeFile("/etc/kd5820m/launcher.cfg.panel-setup-redo",
                                    settingsfile::redoRecord("/etc/kd5820m/launcher.cfg", launcher)));
        const QByteArray torn = settingsfile::redoRecord("/etc/kd5820m/buttonlevel", "lcd 1\nscr 1\n");
        QVERIFY(d.sandbox.writeFile("/etc/kd5820m/buttonlevel.panel-setup-redo", torn.left(torn.size() - 1)));
        QVERIFY(d.startInMenu());

        const QStringList lines = d.outputLines();
        // Records beside the files first, then those of the state directory.
        QCOMPARE(lines.mid(0, 4),
                 QStringList({"settingsfile::recoverPending(): removed the invalid record \""
                                  + d.sandbox.hostPath("/etc/kd5820m/buttonlevel.panel-setup-redo") + '"',
                              "settingsfile::recoverPending(): completed the interrupted save of "
                              "\"/etc/kd5820m/launcher.cfg\"",
                              "settingsfile::recoverPending(): completed the interrupted save of "
                              "\"/etc/network/interfaces\"",
                              "Getting PSU mode from file \"" + d.sandbox.hostPath("/etc/kd5820m/launcher.cfg") + '"'}));
        QVERIFY(lines.contains("_sh_psu_val = 1"));
        QCOMPARE(d.sandbox.readFile("/etc/network/interfaces"), interfaces);
        QCOMPARE(d.sandbox.readFile("/etc/kd5820m/buttonlevel"), Sandbox::DefaultButtonLevel);
        for (const char *dir : {"/etc/kd5820m", "/etc/network", "/var/lib/panel-setup"})
            QVERIFY(QDir(d.sandbox.hostPath(QLatin1String(dir))).entryList({"*.panel-setup-*"}, QDir::Files).isEmpty());
        QCOMPARE(d.step(P::select(), 9), setupList());
        QCOMPARE(d.step(P::select(), 3).first(), QString("text 2 0 0  10. 20. 30. 40"));
    }
};

QTEST_GUILESS_MAIN(TestE2eSettings)
#include "tst_e2e_settings.moc"
