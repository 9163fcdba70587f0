// The root's settings files read-only: the launcher configuration, the
// button-level file and the interfaces file. Every writer refuses with its
// own message and return value, the daemon carries on serving, and not one
// byte of those files changes. Two ways to be read-only: a read-only mount
// (EROFS, which binds root too) and permission bits 0444 for a daemon without
// root's right to override them.
#include "netutil/NetUtil.h"
#include "pages/ButtonLevelFile.h"
#include "panel/LauncherConfig.h"
#include "support/PanelDaemon.h"
#include "TargetProgram.h"
#include "support/PrivateMounts.h"
#include "support/SettingsSaves.h"
#include "support/TestRoot.h"

#include <QDir>
#include <QFile>
#include <QtTest>

namespace {

const QStringList settingsFiles = {"/etc/kd5820m/launcher.cfg", "/etc/kd5820m/buttonlevel",
                                   "/etc/network/interfaces"};

QByteArray quoted(const QString &path)
{
    return '"' + path.toLocal8Bit() + '"';
}

} // namespace

class TestFaultReadOnly : public QObject
{
    Q_OBJECT

private:
    TestRoot _root; // for the writers called in this process
    QString _mountFailure;

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(_root.install());
        if (!privatemounts::enter(&_mountFailure))
            qWarning("no private mounts: %s", qPrintable(_mountFailure));
    }

    // The writers themselves on a read-only mount: the documented messages and
    // return values, and nothing written.
    void writersOnReadOnlyMount()
    {
        if (!_mountFailure.isEmpty())
            QSKIP(qPrintable(_mountFailure));
        QVERIFY(_root.writeFile("/etc/kd5820m/launcher.cfg", "[setup]\nbutton1=24\nbutton2=25\n"));
        QVERIFY(_root.writeFile("/etc/kd5820m/buttonlevel", "lcd 100\nscr 60\n"));
        QVERIFY(_root.writeFile("/etc/network/interfaces", "auto lo\niface lo inet loopback\n"));
        QString why;
        QVERIFY2(privatemounts::bindReadOnly(_root.path() + "/etc", &why), qPrintable(why));
        QList<QByteArray> before;
        for (const QString &file : settingsFiles)
            before << _root.readFile(file);

        const QByteArray launcher = quoted(launcherConfigPath());
        const QByteArray notWriteable = "Configuration file " + launcher + " is not writeable!!";
        QTest::ignoreMessage(QtDebugMsg, notWriteable.constData());
        QCOMPARE(writeFontDimensions(6, 13), 2);
        QTest::ignoreMessage(QtDebugMsg, notWriteable.constData());
        QCOMPARE(writePsuMode(1), -1);
        // Reading adds a missing PSU key: on a read-only file it cannot, and says nothing more.
        QTest::ignoreMessage(QtDebugMsg, ("Getting PSU mode from file " + launcher).constData());
        QTest::ignoreMessage(QtDebugMsg, "Config file doesn't contain the PSU key. Setting it to zero.");
        QCOMPARE(readPsuMode(), 0);

        const QByteArray levels = quoted(buttonlevelFilePath());
        QTest::ignoreMessage(QtDebugMsg, ("writeButtonlevelFile : Unable to open " + levels).constData());
        writeButtonlevelFile({"5", "6"});

        QTest::ignoreMessage(QtDebugMsg, "&&&&&& write net file");
        QTest::ignoreMessage(QtDebugMsg, "NetUtil : failed to open /etc/network/interfaces");
        NetUtil::writeInterfacesFile({"10.0.0.2", "255.0.0.0", "10.255.255.255", "10.0.0.1"});

        for (int i = 0; i < settingsFiles.size(); ++i)
            QCOMPARE(_root.readFile(settingsFiles[i]), before[i]);
        QCOMPARE(QDir(_root.path() + "/etc/kd5820m").entryList(QDir::Files | QDir::Hidden),
                 QStringList({"buttonlevel", "launcher.cfg"}));
        QVERIFY2(privatemounts::unmount(_root.path() + "/etc", &why), qPrintable(why));
    }

    void daemonWithReadOnlyFiles_data()
    {
        QTest::addColumn<bool>("mount");
        QTest::newRow("read-only mount") << true;
        QTest::newRow("permission bits 0444") << false;
    }

    // The daemon makes every save it can from the menu; each is refused.
    void daemonWithReadOnlyFiles()
    {
        QFETCH(bool, mount);
        if (mount && !_mountFailure.isEmpty())
            QSKIP(qPrintable(_mountFailure));

        // Without root's override the bits bind the daemon: it runs with
        // CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH and CAP_FOWNER out of reach.
        QTemporaryDir wrapperDir;
        const QString wrapper = wrapperDir.filePath("panel-setup-without-override");
        {
            QFile script(wrapper);
            QVERIFY(script.open(QIODevice::WriteOnly));
            script.write("#!/bin/sh\nexec setpriv --bounding-set -dac_override,-dac_read_search,-fowner -- "
                         + targetprogram::shellCommand(targetprogram::path(PANEL_SETUP_BINARY)) + " \"$@\"\n");
            script.close();
            QVERIFY(script.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner
                                          | QFileDevice::ExeOwner));
        }

        PanelDaemon d(mount ? QStringLiteral(PANEL_SETUP_BINARY) : wrapper,
                      mount ? PanelDaemon::Program::Daemon : PanelDaemon::Program::Wrapper);
        QVERIFY(d.sandbox.writeFile(Sandbox::StartFlagPath, QByteArray()));
        QList<QByteArray> before;
        for (const QString &file : settingsFiles)
            before << d.sandbox.readFile(file);
        QString why;
        if (mount) {
            QVERIFY2(privatemounts::bindReadOnly(d.sandbox.hostPath("/etc"), &why), qPrintable(why));
        } else {
            for (const QString &file : settingsFiles)
                QVERIFY(QFile::setPermissions(d.sandbox.hostPath(file), QFileDevice::ReadOwner
                                                  | QFileDevice::ReadGroup | QFileDevice::ReadOther));
        }

        QVERIFY(d.startConnected());
        QTRY_COMPARE_WITH_TIMEOUT(d.commands(), PanelDaemon::firstMainMenuCommands(), 5000);
        QString failure;
        QVERIFY2(saveEverySetting(d, &failure), qPrintable(failure));
        QVERIFY(d.isRunning());

        const QString notWriteable = QStringLiteral("Configuration file %1 is not writeable!!")
                                         .arg(QString::fromLocal8Bit(quoted(d.sandbox.hostPath(settingsFiles[0]))));
        // The take-over's 8 x 13 and the PSU mode.
        QCOMPARE(d.countLines(notWriteable), 2);
        QCOMPARE(d.countLines("NetUtil : failed to open /etc/network/interfaces"), 1);
        // Opening the TFT item applies once, the turn once more.
        QCOMPARE(d.countLines(QStringLiteral("writeButtonlevelFile : Unable to open %1")
                                  .arg(QString::fromLocal8Bit(quoted(d.sandbox.hostPath(settingsFiles[1]))))),
                 2);
        QVERIFY(d.outputLines().filter(QRegularExpression("^Font dimensions set to")).isEmpty());
        // What the save does besides the file still happens: networking
        // restarts and the start flag goes, though the address was not saved.
        QCOMPARE(d.sandbox.calls(), QStringList({"networking restart", "sync"}));
        QVERIFY(!d.sandbox.exists(Sandbox::StartFlagPath));

        d.stop();
        for (int i = 0; i < settingsFiles.size(); ++i)
            QCOMPARE(d.sandbox.readFile(settingsFiles[i]), before[i]);
        QCOMPARE(QDir(d.sandbox.hostPath("/etc/kd5820m")).entryList(QDir::Files | QDir::Hidden),
                 QStringList({"buttonlevel", "launcher.cfg"}));
        QCOMPARE(QDir(d.sandbox.hostPath("/etc/network")).entryList(QDir::Files | QDir::Hidden),
                 QStringList("interfaces"));
        if (mount)
            QVERIFY2(privatemounts::unmount(d.sandbox.hostPath("/etc"), &why), qPrintable(why));
    }
};

QTEST_GUILESS_MAIN(TestFaultReadOnly)
#include "tst_fault_readonly.moc"
