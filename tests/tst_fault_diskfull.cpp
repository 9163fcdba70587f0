// A full file system under the root: the daemon's sandbox lives on a small
// tmpfs of the test's own, filled up before the daemon makes every save it
// can from the menu. No save may leave a truncated, empty or stray file: each
// settings file keeps its old bytes (or, where a block was left, may hold the
// new ones whole), and once there is room again the next save writes the new
// ones whole. Full in three ways: no data blocks left, one block left, and no
// inodes left.
#include "support/PanelDaemon.h"
#include "support/PrivateMounts.h"
#include "support/SettingsSaves.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

#include <functional>

namespace {

const QStringList settingsFiles = {"/etc/kd5820m/launcher.cfg", "/etc/kd5820m/buttonlevel",
                                   "/etc/network/interfaces"};

} // namespace

class TestFaultDiskFull : public QObject
{
    Q_OBJECT

private:
    enum Fill { NoBlocks, OneBlock, NoInodes };

    QString _mountFailure;

    // Takes every data block (one file grown until a write fails), all but
    // one, or every inode (empty files until one cannot be created); returns
    // the fillers.
    static QStringList fill(const QString &dir, Fill how)
    {
        QStringList fillers;
        if (how == NoInodes) {
            for (int i = 0; i < 100000; ++i) {
                QFile file(QStringLiteral("%1/inode-%2").arg(dir).arg(i));
                if (!file.open(QIODevice::WriteOnly))
                    break;
                fillers << file.fileName();
            }
            return fillers;
        }
        // One byte holds a whole block until it is freed again.
        QFile spare(dir + QStringLiteral("/spare"));
        if (how == OneBlock && (!spare.open(QIODevice::WriteOnly) || spare.write("x", 1) != 1 || !spare.flush()))
            return fillers;
        QFile file(dir + QStringLiteral("/filler"));
        if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
            return fillers;
        fillers << file.fileName();
        const QByteArray block(4096, 'x');
        while (file.write(block) == block.size()) {
        }
        while (file.write("x", 1) == 1) {
        }
        if (how == OneBlock)
            spare.remove();
        return fillers;
    }

    static bool roomForOneBlock(const QString &dir)
    {
        QFile probe(dir + QStringLiteral("/probe"));
        const bool room = probe.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && probe.write("x", 1) == 1;
        probe.remove();
        return room;
    }

    // Files in the settings directories: the settings files and anything a
    // save left beside them.
    static QStringList settingsDirectories(const Sandbox &sandbox)
    {
        return QDir(sandbox.hostPath("/etc/kd5820m")).entryList(QDir::Files | QDir::Hidden)
               + QDir(sandbox.hostPath("/etc/network")).entryList(QDir::Files | QDir::Hidden);
    }

    // The launcher configuration as its writers leave it after `change`,
    // written the same way on a disk with room.
    static QByteArray launcherAfter(const QByteArray &old, const std::function<void(QSettings &)> &change)
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("launcher.cfg");
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(old) != old.size())
            return QByteArray();
        file.close();
        {
            QSettings settings(path, QSettings::IniFormat);
            change(settings);
        }
        file.open(QIODevice::ReadOnly);
        return file.readAll();
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (!privatemounts::enter(&_mountFailure))
            qWarning("no private mounts: %s", qPrintable(_mountFailure));
    }

    void savesOnAFullFileSystem_data()
    {
        QTest::addColumn<int>("how");
        QTest::newRow("no blocks left") << int(NoBlocks);
        QTest::newRow("one block left") << int(OneBlock);
        QTest::newRow("no inodes left") << int(NoInodes);
    }

    void savesOnAFullFileSystem()
    {
        QFETCH(int, how);
        if (!_mountFailure.isEmpty())
            QSKIP(qPrintable(_mountFailure));

        QTemporaryDir mountPoint;
        QVERIFY(mountPoint.isValid());
        QString why;
        QVERIFY2(privatemounts::mountTmpfs(mountPoint.path(),
                                           how == NoInodes ? QStringLiteral("size=4m,nr_inodes=400")
                                                           : QStringLiteral("size=512k"),
                                           &why),
                 qPrintable(why));
        // The daemon's sandbox is a temporary directory: put it on the tmpfs.
        const QByteArray tmpdir = qgetenv("TMPDIR");
        qputenv("TMPDIR", mountPoint.path().toLocal8Bit());
        {
            PanelDaemon d(PANEL_SETUP_BINARY);
            qputenv("TMPDIR", tmpdir);
            QVERIFY(d.sandbox.isValid());
            QVERIFY(d.sandbox.root().startsWith(mountPoint.path()));
            QVERIFY(d.sandbox.writeFile(Sandbox::StartFlagPath, QByteArray()));
            const QByteArray launcher = d.sandbox.readFile("/etc/kd5820m/launcher.cfg");
            const QByteArray levels = d.sandbox.readFile("/etc/kd5820m/buttonlevel");
            const QByteArray interfaces = d.sandbox.readFile("/etc/network/interfaces");
            const QStringList files = settingsDirectories(d.sandbox);

            const QStringList fillers = fill(mountPoint.path(), Fill(how));
            QVERIFY(!fillers.isEmpty());
            QCOMPARE(roomForOneBlock(mountPoint.path()), how == OneBlock);

            QVERIFY(d.startConnected());
            QTRY_COMPARE_WITH_TIMEOUT(d.commands(), PanelDaemon::firstMainMenuCommands(), 5000);
            QString failure;
            QVERIFY2(saveEverySetting(d, &failure), qPrintable(failure));
            QVERIFY(d.isRunning());

            // Each file holds its old bytes or what a save with room writes:
            // never an empty, truncated or mixed file, and nothing beside them.
            const auto interfacesWith = [](int octet) {
                return QStringLiteral("auto lo\niface lo inet loopback\n\nauto eth0\niface eth0 inet static\n"
                                      "address %1.168.1.10\nnetmask 255.255.255.0\nbroadcast 192.168.1.255\n"
                                      "gateway 192.168.1.1\n")
                    .arg(octet)
                    .toLatin1();
            };
            const QByteArray newInterfaces = interfacesWith(193);
            const QByteArray savedInterfaces = d.sandbox.readFile("/etc/network/interfaces");
            QVERIFY2(savedInterfaces == interfaces || savedInterfaces == newInterfaces, savedInterfaces.constData());
            const QByteArray savedLevels = d.sandbox.readFile("/etc/kd5820m/buttonlevel");
            QVERIFY2(savedLevels == levels || savedLevels == "lcd 100\nscr 93\n", savedLevels.constData());
            const auto font = [](QSettings &s) { s.setValue("font/width", 8); s.setValue("font/height", 13); };
            const auto psu = [](QSettings &s) { s.setValue("psu/redundant", 1); };
            const QList<QByteArray> launchers = {
                launcher, launcherAfter(launcher, font), launcherAfter(launcher, psu),
                launcherAfter(launcher, [&](QSettings &s) { font(s); psu(s); })};
            const QByteArray savedLauncher = d.sandbox.readFile("/etc/kd5820m/launcher.cfg");
            QVERIFY2(launchers.contains(savedLauncher), savedLauncher.constData());
            QCOMPARE(settingsDirectories(d.sandbox), files);
            const QString launcherPath = d.sandbox.hostPath("/etc/kd5820m/launcher.cfg");
            QVERIFY(d.hasLine(QStringLiteral("Font dimensions set to width = 8 and height = 13 in file \"%1\"")
                                  .arg(launcherPath)));
            if (how != OneBlock) {
                // Nothing had room: every save was refused, with its message.
                QCOMPARE(savedInterfaces, interfaces);
                QCOMPARE(savedLevels, levels);
                QCOMPARE(savedLauncher, launcher);
                QCOMPARE(d.countLines("NetUtil : failed to open /etc/network/interfaces"), 1);
                QCOMPARE(d.countLines(QStringLiteral("writeButtonlevelFile : Unable to %1 \"%2\"")
                                          .arg(how == NoInodes ? "open" : "write",
                                               d.sandbox.hostPath("/etc/kd5820m/buttonlevel"))),
                         2);
                // The take-over's font and the PSU mode.
                QCOMPARE(d.countLines(QStringLiteral("Configuration file \"%1\" is not writeable!!")
                                          .arg(launcherPath)),
                         2);
            }

            // Room again: the next save of each file writes it whole.
            for (const QString &filler : fillers)
                QVERIFY(QFile::remove(filler));
            QVERIFY(d.sandbox.writeFile(Sandbox::StartFlagPath, QByteArray()));
            d.stop();
            d.driver.clearLog();
            QVERIFY(d.start());
            QTRY_COMPARE_WITH_TIMEOUT(d.commands(), PanelDaemon::firstMainMenuCommands(), 5000);
            QTRY_COMPARE(d.collector.clientCount(), 1);
            QVERIFY2(saveEverySetting(d, &failure), qPrintable(failure));
            // The editor starts from what the file holds: one up from that.
            QCOMPARE(d.sandbox.readFile("/etc/network/interfaces"),
                     interfacesWith(savedInterfaces == newInterfaces ? 194 : 193));
            QCOMPARE(d.sandbox.readFile("/etc/kd5820m/buttonlevel"), QByteArray("lcd 100\nscr 93\n"));
            QCOMPARE(d.launcherValue("psu/redundant"), 1);
            QCOMPARE(d.launcherValue("font/width"), 8);
            QCOMPARE(settingsDirectories(d.sandbox), files);
        }
        QVERIFY2(privatemounts::unmount(mountPoint.path(), &why), qPrintable(why));
    }
};

QTEST_GUILESS_MAIN(TestFaultDiskFull)
#include "tst_fault_diskfull.moc"
