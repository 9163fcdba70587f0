// The fake peers and the sandbox that the end-to-end tests stand on.
#include "CommandText.h"
#include "FakeButtonDriver.h"
#include "FakeCollector.h"
#include "PanelModel.h"
#include "Sandbox.h"
#include "buttondriver/KVB_Messages.h"
#include "support/TestRoot.h"

#include <QFile>
#include <QProcess>
#include <QTcpSocket>
#include <QtEndian>
#include <QtTest>

using namespace buttondriver;

namespace {

const char *const LevelFile = "/etc/kd5820m/buttonlevel";

} // namespace

class TestFakePeers : public QObject
{
    Q_OBJECT

private:
    static void apply(PanelModel &model, const QByteArray &message)
    {
        DecodedCommand command;
        QVERIFY(decodeCommand(message, &command));
        model.apply(command);
    }

    static QByteArray framed(const QByteArray &message)
    {
        QByteArray frame(4, '\0');
        qToBigEndian<quint32>(quint32(message.size()), frame.data());
        return frame + message;
    }

    // True when the message decodes and the model takes it.
    static bool applies(PanelModel &model, const QByteArray &message)
    {
        DecodedCommand command;
        return decodeCommand(message, &command) && model.apply(command);
    }

    static void writeTemplateFile(const QString &path, const QByteArray &content, bool executable = false)
    {
        QVERIFY(QDir().mkpath(QFileInfo(path).absolutePath()));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(content), content.size());
        file.close();
        if (executable)
            QVERIFY(file.setPermissions(file.permissions() | QFile::ExeOwner));
    }

    // A client of the peer, connected once the peer has taken it.
    static void connectClient(LoopbackPeer &peer, QTcpSocket &socket)
    {
        socket.connectToHost(QHostAddress::LocalHost, peer.port());
        QVERIFY(socket.waitForConnected(2000));
        QTRY_COMPARE(peer.clientCount(), 1);
    }

    // The button-level file is read under PANEL_SETUP_ROOT, fixed at first use.
    TestRoot _levelRoot;

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(_levelRoot.install());
    }

    void modelTextLinesAndClears()
    {
        PanelModel model;
        apply(model, KVB_DrawText(0, 3, "EXIT", 1));
        apply(model, KVB_DrawText(-1, 2, "     Upgrade", 0));
        QCOMPARE(model.text(0, 3), QString("EXIT"));
        QVERIFY(model.isHighlighted(0, 3));
        for (int screen = 0; screen < 3; ++screen)
            QCOMPARE(model.text(screen, 2), QString("     Upgrade"));
        QCOMPARE(model.lines(1).size(), 1);

        apply(model, KVB_ClearScreen(1));
        QCOMPARE(model.lines(1).size(), 0);
        QCOMPARE(model.lines(0).size(), 2);
        apply(model, KVB_ClearScreen(-1));
        QCOMPARE(model.lines(0).size(), 0);
        QCOMPARE(model.lines(2).size(), 0);

        // Unknown screens change nothing and are never indexed.
        apply(model, KVB_DrawText(3, 0, "x", 0));
        apply(model, KVB_ClearScreen(7));
        QCOMPARE(model.lines(3).size(), 0);
        QCOMPARE(model.text(-2, 0), QString());
    }

    void modelOverlaysAtAColumn()
    {
        PanelModel model;
        apply(model, KVB_DrawText(2, 0, "192.168.  1. 10", 0));
        apply(model, KVB_DrawTextAt(2, 0, 4, 3, "168", 0xFFFFFF, 0));
        QCOMPARE(model.overlays(2).size(), 1);
        const PanelModel::Overlay overlay = model.overlays(2).first();
        QCOMPARE(overlay.row, 0);
        QCOMPARE(overlay.column, 4);
        QCOMPARE(overlay.width, 3);
        QCOMPARE(overlay.text, QString("168"));
        QCOMPARE(overlay.colour, 0xFFFFFFu);
        // Redrawing the row covers the overlay; other rows keep theirs.
        apply(model, KVB_DrawTextAt(2, 1, 0, 3, "x", 0xFFFFFF, 0));
        apply(model, KVB_DrawText(2, 0, "10.0.  0.  1", 0));
        QCOMPARE(model.overlays(2).size(), 1);
        QCOMPARE(model.overlays(2).first().row, 1);
        apply(model, KVB_ClearScreen(2));
        QVERIFY(model.overlays(2).isEmpty());
    }

    void modelKeyLightsLedsAndLevels()
    {
        PanelModel model;
        apply(model, KVB_ButtonLeds(-1, -1, 200));
        QCOMPARE(model.keyLight(0).level1, -1);
        QCOMPARE(model.keyLight(29).level2, 200);
        apply(model, KVB_ButtonLeds(3, 1, 0));
        QCOMPARE(model.keyLight(3).level1, 1);
        QCOMPARE(model.keyLight(3).level2, 0);
        QCOMPARE(model.keyLight(4).level1, -1);
        apply(model, KVB_ButtonLeds(30, 1, 1));
        apply(model, KVB_ButtonLeds(-7, 1, 1));
        QCOMPARE(model.keyLight(30).level1, 0);
        QCOMPARE(model.keyLight(29).level1, -1);

        // The LED table: code 22 drives PSU and AUX, code 21 FAULT, WARNING, COMM.
        QCOMPARE(model.statusLed(0), -1);
        apply(model, KVB_SetLed2(0, 1));
        apply(model, KVB_SetLed2(1, 0));
        apply(model, KVB_SetLed(2, 1));
        apply(model, KVB_SetLed(1, 0));
        apply(model, KVB_SetLed(0, 1));
        QCOMPARE(model.statusLed(0), 1);
        QCOMPARE(model.statusLed(1), 0);
        QCOMPARE(model.statusLed(2), 1);
        QCOMPARE(model.statusLed(3), 0);
        QCOMPARE(model.statusLed(4), 1);
        apply(model, KVB_SetLed2(2, 1));
        apply(model, KVB_SetLed(5, 1));
        QCOMPARE(model.statusLed(5), -1);

        apply(model, KVB_Cmd10());
        apply(model, KVB_Cmd10());
        QCOMPARE(model.levelUpdates(), 2);
    }

    void modelIgnoresShortCommands()
    {
        PanelModel model;
        DecodedCommand command;
        command.code = KVB_CODE_DRAWTEXT;
        command.words = {0, 1};
        model.apply(command);
        QVERIFY(model.lines(0).isEmpty());
    }

    void modelTellsWhatItRefused()
    {
        PanelModel model;
        QVERIFY(applies(model, KVB_DrawText(2, 0, "x", 0)));
        QVERIFY(applies(model, KVB_DrawText(-1, 1, "y", 1)));
        QVERIFY(applies(model, KVB_ClearScreen(-1)));
        QVERIFY(applies(model, KVB_ButtonLeds(29, 1, 0)));
        QVERIFY(applies(model, KVB_DrawTextAt(0, 0, 4, 3, "168", 0xFFFFFF, 0)));
        QVERIFY(applies(model, KVB_SetLed(2, 1)));
        QVERIFY(applies(model, KVB_SetLed2(1, 1)));
        QVERIFY(applies(model, KVB_Cmd10()));
        // Nothing to show, but a command the panel takes.
        QVERIFY(applies(model, KVB_DrawTFTImage(1, 2, 3, 2, "ab")));
        QVERIFY(applies(model, KVB_BlockList(1, {4, 5}, 2, 3)));

        QVERIFY(!applies(model, KVB_DrawText(3, 0, "x", 0)));
        QVERIFY(!applies(model, KVB_DrawText(-2, 0, "x", 0)));
        QVERIFY(!applies(model, KVB_ClearScreen(5)));
        QVERIFY(!applies(model, KVB_ButtonLeds(30, 1, 0)));
        QVERIFY(!applies(model, KVB_DrawTextAt(3, 0, 0, 3, "x", 0, 0)));
        QVERIFY(!applies(model, KVB_SetLed(3, 1)));
        QVERIFY(!applies(model, KVB_SetLed2(2, 1)));
        DecodedCommand unknown;
        unknown.code = 99;
        unknown.words = {1, 2, 3};
        QVERIFY(!model.apply(unknown));
        QCOMPARE(model.keyLight(29).level1, 1);
        QCOMPARE(model.statusLed(2), 1);
        QCOMPARE(model.statusLed(1), 1);
    }

    void modelLevels()
    {
        PanelModel model;
        QCOMPARE(model.tftLevel(), -1);
        QCOMPARE(model.keyLightLevel(), -1);
        model.setLevels(40, 70);
        QCOMPARE(model.tftLevel(), 40);
        QCOMPARE(model.keyLightLevel(), 70);
        model.reset();
        QCOMPARE(model.tftLevel(), -1);
    }

    void commandsAsText()
    {
        QCOMPARE(describeCommand(KVB_DrawText(0, 3, "EXIT", 1)), QString("text 0 3 1 EXIT"));
        QCOMPARE(describeCommand(KVB_DrawText(-1, 2, "", 0)), QString("text -1 2 0 "));
        QCOMPARE(describeCommand(KVB_ClearScreen(-1)), QString("clear -1"));
        QCOMPARE(describeCommand(KVB_ButtonLeds(-1, -1, 200)), QString("leds -1 -1 200"));
        QCOMPARE(describeCommand(KVB_DrawTextAt(2, 0, 4, 3, "168", 0xFFFFFF, 0)),
                 QString("textat 2 0 4 3 0xffffff 0 168"));
        QCOMPARE(describeCommand(KVB_SetLed(1, 0)), QString("led 1 0"));
        QCOMPARE(describeCommand(KVB_SetLed2(0, 1)), QString("led2 0 1"));
        QCOMPARE(describeCommand(KVB_Cmd10()), QString("cmd10"));
        QCOMPARE(describeCommand(KVB_BlockList(7, {4}, 8, 9)), QString("code13 7 0 9 8 1 4"));
        QCOMPARE(describeCommand(QByteArray::fromHex("0000006300")), QString("undecodable 0000006300"));
    }

    void driverReadsTheLevelFileOnAnUpdate()
    {
        QFile::remove(_levelRoot.hostPath(LevelFile));
        FakeButtonDriver driver;
        QVERIFY(driver.start());
        QTcpSocket socket;
        connectClient(driver, socket);

        // Off by default: an update is counted, no level read.
        QVERIFY(_levelRoot.writeFile(LevelFile, "lcd 70\nscr 40\n"));
        socket.write(framed(KVB_Cmd10()));
        QTRY_COMPARE(driver.panel().levelUpdates(), 1);
        QCOMPARE(driver.panel().tftLevel(), -1);

        driver.setReadsLevelFile(true);
        socket.write(framed(KVB_Cmd10()));
        QTRY_COMPARE(driver.panel().levelUpdates(), 2);
        QCOMPARE(driver.panel().tftLevel(), 40);
        QCOMPARE(driver.panel().keyLightLevel(), 70);

        // A value that is no number gives no level.
        QVERIFY(_levelRoot.writeFile(LevelFile, "scr dim\nlcd 5\n"));
        socket.write(framed(KVB_Cmd10()));
        QTRY_COMPARE(driver.panel().levelUpdates(), 3);
        QCOMPARE(driver.panel().tftLevel(), -1);
        QCOMPARE(driver.panel().keyLightLevel(), 5);
        // Other commands leave the levels alone.
        socket.write(framed(KVB_ClearScreen(0)));
        QTRY_COMPARE(driver.messageCount(), 4);
        QVERIFY(driver.received().last().applied);
        QCOMPARE(driver.panel().keyLightLevel(), 5);
    }

    void driverCutsFramesAndCountsMalformed()
    {
        FakeButtonDriver driver;
        QVERIFY(driver.start());
        QTcpSocket socket;
        connectClient(driver, socket);

        const QByteArray text = framed(KVB_DrawText(1, 0, "SETUP", 1));
        socket.write(text.left(5));
        socket.flush();
        QTest::qWait(100);
        QCOMPARE(driver.messageCount(), 0);
        socket.write(text.mid(5) + framed(KVB_ClearScreen(2)) + framed(QByteArray(8, '\x7f')));
        socket.flush();
        QTRY_COMPARE(driver.messageCount(), 3);
        QCOMPARE(driver.messages(), QList<QByteArray>({KVB_DrawText(1, 0, "SETUP", 1), KVB_ClearScreen(2),
                                                       QByteArray(8, '\x7f')}));
        QVERIFY(driver.received().at(0).decoded);
        QVERIFY(!driver.received().at(2).decoded);
        QCOMPARE(driver.malformedCount(), 1);
        QCOMPARE(driver.panel().text(1, 0), QString("SETUP"));
        QCOMPARE(driver.messages(1).size(), 2);

        QVERIFY(driver.received().at(0).applied);
        QVERIFY(!driver.received().at(2).applied);

        // A length no command can have ends the connection.
        QSignalSpy refused(&driver, &FakeButtonDriver::frameRefused);
        socket.write(QByteArray::fromHex("ffffffff00"));
        socket.flush();
        QTRY_COMPARE(driver.malformedCount(), 2);
        QCOMPARE(refused.size(), 1);
        QCOMPARE(refused.first().first().value<quint32>(), 0xFFFFFFFFu);
        QTRY_COMPARE(driver.clientCount(), 0);
        QCOMPARE(driver.messageCount(), 3);

        driver.clearLog();
        QCOMPARE(driver.messageCount(), 0);
        QCOMPARE(driver.panel().text(1, 0), QString("SETUP"));
    }

    void collectorFramesAndRestarts()
    {
        FakeCollector collector;
        QVERIFY(collector.start());
        const quint16 port = collector.port();
        QVERIFY(port != 0);
        QTcpSocket socket;
        connectClient(collector, socket);

        collector.sendKey(28, 1);
        collector.sendShaft(4, -1);
        QTRY_COMPARE(socket.bytesAvailable(), qint64(40));
        QCOMPARE(socket.read(20).toHex(), QByteArray("00000010000000010000001c0000000100000000"));
        QCOMPARE(socket.read(20).toHex(), QByteArray("000000100000000200000004" "00000000ffffffff"));

        collector.stop();
        QVERIFY(!collector.isListening());
        QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(collector.clientCount(), 0);
        QVERIFY(collector.start());
        QCOMPARE(collector.port(), port);
    }

    void sandboxTreeAndStubs()
    {
        Sandbox sandbox;
        QVERIFY(sandbox.isValid());
        QCOMPARE(sandbox.readFile("/etc/network/interfaces"), Sandbox::DefaultInterfaces);
        QCOMPARE(sandbox.readFile("/etc/kd5820m/launcher.cfg"), Sandbox::DefaultLauncherConfig);
        QVERIFY(sandbox.exists(Sandbox::MainAppScriptPath));
        QVERIFY(!sandbox.exists(Sandbox::StartFlagPath));
        QVERIFY(sandbox.exists("/opt/kd5820m/fonts/8x13.pcf.gz"));
        QVERIFY(QFileInfo(sandbox.hostPath("/tmp")).isDir());
        QVERIFY(QFileInfo(sandbox.hostPath("/mnt/flashdisk/etc/network")).isDir());

        // The stubs only log; the environment puts them first on PATH.
        const QProcessEnvironment env = sandbox.environment(4000, 4001);
        QCOMPARE(env.value("PANEL_SETUP_ROOT"), sandbox.root());
        QCOMPARE(env.value("PANEL_SETUP_COLLECTOR_PORT"), QString("4000"));
        QCOMPARE(env.value("PANEL_SETUP_DRIVER_PORT"), QString("4001"));
        QVERIFY(env.value("PATH").startsWith(sandbox.binDir() + ':'));
        QProcess shell;
        shell.setProcessEnvironment(env);
        shell.start("/bin/sh", {"-c", "reboot -n; poweroff -n; setup_script enter; \"$PANEL_SETUP_ROOT/etc/init.d/"
                                      "networking\" restart; \"$PANEL_SETUP_ROOT/bin/sync\""});
        QVERIFY(shell.waitForFinished(5000));
        QCOMPARE(shell.exitCode(), 0);
        QCOMPARE(sandbox.calls(),
                 QStringList({"reboot -n", "poweroff -n", "setup_script enter", "networking restart", "sync"}));
        sandbox.clearCalls();
        QVERIFY(sandbox.calls().isEmpty());

        QVERIFY(sandbox.writeFile("/new/dir/file", "x"));
        QCOMPARE(sandbox.readFile("/new/dir/file"), QByteArray("x"));
        QVERIFY(sandbox.removeFile("/new/dir/file"));
    }

    void sandboxInAGivenDirectory()
    {
        QTemporaryDir dir;
        {
            Sandbox sandbox(dir.path());
            QVERIFY(sandbox.isValid());
            QCOMPARE(sandbox.root(), dir.path());
            QVERIFY(sandbox.writeFile(Sandbox::StartFlagPath, QByteArray()));
        }
        // Kept after the sandbox goes; a new one starts from the defaults again.
        QVERIFY(QFileInfo::exists(dir.path() + Sandbox::StartFlagPath));
        Sandbox again(dir.path());
        QVERIFY(!again.exists(Sandbox::StartFlagPath));
    }

    void sandboxFromATemplate()
    {
        QTemporaryDir source;
        const QString tmpl = source.path() + "/template";
        writeTemplateFile(tmpl + "/etc/kd5820m/launcher.cfg", "[setup]\nbutton1=3\nbutton2=4\n");
        writeTemplateFile(tmpl + "/opt/kd5820m/fonts/7x14.pcf.gz", QByteArray());
        writeTemplateFile(tmpl + "/bin/sync", "#!/bin/sh\necho \"sync $*\" >> \"$PANEL_SETUP_ROOT/calls.log\"\n", true);
        writeTemplateFile(tmpl + "/etc/.hidden", "h");
        writeTemplateFile(tmpl + Sandbox::StartFlagPath, QByteArray());

        const QString root = source.path() + "/root";
        {
            Sandbox sandbox(root, tmpl, false);
            QVERIFY(sandbox.isValid());
            QCOMPARE(sandbox.root(), root);
            QCOMPARE(sandbox.readFile("/etc/kd5820m/launcher.cfg"), QByteArray("[setup]\nbutton1=3\nbutton2=4\n"));
            QVERIFY(sandbox.exists("/opt/kd5820m/fonts/7x14.pcf.gz"));
            QCOMPARE(sandbox.readFile("/etc/.hidden"), QByteArray("h"));
            // Nothing of the built-in tree, but its directories; a fresh start has no flag.
            QVERIFY(!sandbox.exists("/etc/network/interfaces"));
            QVERIFY(QFileInfo(sandbox.hostPath("/tmp")).isDir());
            QVERIFY(!sandbox.exists(Sandbox::StartFlagPath));
            QVERIFY(QFileInfo(sandbox.hostPath("/bin/sync")).isExecutable());

            QProcess shell;
            shell.setProcessEnvironment(sandbox.environment(1, 2));
            shell.start("/bin/sh", {"-c", "reboot -n; setup_script exit; \"$PANEL_SETUP_ROOT/bin/sync\""});
            QVERIFY(shell.waitForFinished(5000));
            QCOMPARE(sandbox.calls(), QStringList({"reboot -n", "setup_script exit", "sync"}));

            QVERIFY(sandbox.writeFile("/etc/kd5820m/launcher.cfg", "changed"));
            QVERIFY(sandbox.writeFile(Sandbox::StartFlagPath, QByteArray()));
            QVERIFY(sandbox.removeFile("/etc/.hidden"));
        }
        // Reused: what the run left stays, what is missing comes back.
        {
            Sandbox sandbox(root, tmpl, true);
            QVERIFY(sandbox.isValid());
            QCOMPARE(sandbox.readFile("/etc/kd5820m/launcher.cfg"), QByteArray("changed"));
            QVERIFY(sandbox.exists(Sandbox::StartFlagPath));
            QCOMPARE(sandbox.calls().size(), 3);
            QCOMPARE(sandbox.readFile("/etc/.hidden"), QByteArray("h"));
        }
        // Fresh again: the template's files replace the changed ones.
        {
            Sandbox sandbox(root, tmpl, false);
            QVERIFY(sandbox.isValid());
            QCOMPARE(sandbox.readFile("/etc/kd5820m/launcher.cfg"), QByteArray("[setup]\nbutton1=3\nbutton2=4\n"));
            QVERIFY(sandbox.calls().isEmpty());
        }
        // A temporary root, removed with the sandbox.
        QString temporary;
        {
            Sandbox sandbox(QString(), tmpl, false);
            QVERIFY(sandbox.isValid());
            temporary = sandbox.root();
            QVERIFY(sandbox.exists("/opt/kd5820m/fonts/7x14.pcf.gz"));
        }
        QVERIFY(!QFileInfo::exists(temporary));

        QVERIFY(!Sandbox(root, source.path() + "/no-such-template", false).isValid());
        QVERIFY(!Sandbox(root, QString(), false).isValid());
    }
};

QTEST_GUILESS_MAIN(TestFakePeers)
#include "tst_fakepeers.moc"
