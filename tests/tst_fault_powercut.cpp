// Saves of a settings file stopped by a power cut at each of their file
// operations in turn (write, fsync, syncfs, rename, truncate, unlink, ...),
// n = 0, 1, 2, ... until the save completes, with the write that the cut falls
// into lost or stored but for its last byte; then the recovery the next boot runs. On every
// layout devices use, the file must then hold exactly its old or exactly its
// new bytes, with owner, mode, inode and links as before, and no record or
// copy may be left beside it or in the state directory. Also: torn, planted
// and oversized records are removed without touching any file, and the
// recovery program does the same as the daemon's start.
#include "base/SettingsFile.h"
#include "support/CuttingFileOperations.h"
#include "support/FileFacts.h"
#include "support/MessageRecorder.h"
#include "support/PermissionBitsEnforced.h"
#include "support/PrivateMounts.h"
#include "support/TestRoot.h"
#include "TargetProgram.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QtTest>

#include <memory>
#include <optional>

#include <sys/stat.h>
#include <unistd.h>

namespace {

enum Layout {
    Plain,
    Symlink,     // the file is a link into the flash partition
    HardLink,    // a second name in the flash partition shares the file
    OtherOwner,  // owned by nobody, mode 0664
    ReadOnlyDir, // a writable file in a directory the program cannot write
    BindMount,   // a file of the flash partition mounted over the file
};

constexpr uid_t Nobody = 65534;

const QString Interfaces = QStringLiteral("/etc/network/interfaces");
const QString ButtonLevel = QStringLiteral("/etc/kd5820m/buttonlevel");
const QString StateDir = QStringLiteral("/var/lib/panel-setup");

// Neither is the start of the other: a longer file cut short is no shorter one.
const QByteArray shortText = "auto lo\niface lo inet loopback\n\nauto eth0\niface eth0 inet static\n"
                             "address 192.168.1.10\n";
const QByteArray longText = "auto lo\niface lo inet loopback\n\nauto eth0\niface eth0 inet static\n"
                            "address 10.1.2.3\nnetmask 255.0.0.0\nbroadcast 10.255.255.255\n"
                            "gateway 10.0.0.1\n";

bool inPlace(Layout layout)
{
    return layout == HardLink || layout == ReadOnlyDir || layout == BindMount;
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

QString completedLine(const QString &devicePath)
{
    return "settingsfile::recoverPending(): completed the interrupted save of \"" + devicePath + '"';
}

// Shows the bytes of a torn file in a failure message.
QByteArray shown(const QByteArray &bytes)
{
    return bytes.toPercentEncoding(" ");
}

} // namespace

class TestFaultPowerCut : public QObject
{
    Q_OBJECT

private:
    // In RAM: these runs are about the order of the operations, not the disk.
    TestRoot _root{TestRoot::ramTemplate(QStringLiteral("tst_fault_powercut"))};
    QString _mountFailure;
    QStringList _mounts;

    QString host(const QString &devicePath) const { return _root.hostPath(devicePath); }

    // The layout's names for the interfaces file.
    struct Files
    {
        QString path;   // the name the program saves
        QString target; // the file that holds the bytes
        QString shared; // the second hard link
        QString dir;
        QString flash;
    };

    void reset()
    {
        QString why;
        for (const QString &dir : _mounts)
            QVERIFY2(privatemounts::unmount(dir, &why), qPrintable(why));
        _mounts.clear();
        QFile::setPermissions(host("/etc/network"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        for (const char *dir : {"/etc", "/mnt", "/var"})
            QVERIFY(QDir(host(QLatin1String(dir))).removeRecursively());
        QVERIFY(QDir().mkpath(host(StateDir)));
    }

    void setUp(Layout layout, const QByteArray &old, Files *files)
    {
        reset();
        files->path = host(Interfaces);
        files->dir = host("/etc/network");
        files->flash = host("/mnt/flashdisk/etc");
        files->target = layout == Symlink || layout == BindMount ? files->flash + "/interfaces" : files->path;
        files->shared = files->flash + "/interfaces.shared";
        QVERIFY(QDir().mkpath(files->dir) && QDir().mkpath(files->flash));
        QVERIFY(_root.writeFile(files->target.mid(_root.path().size()), old));
        QString why;
        switch (layout) {
        case Symlink:
            QVERIFY(QFile::link(files->target, files->path));
            break;
        case HardLink:
            QVERIFY(::link(QFile::encodeName(files->target).constData(), QFile::encodeName(files->shared).constData())
                    == 0);
            break;
        case OtherOwner:
            QVERIFY(::chown(QFile::encodeName(files->target).constData(), Nobody, Nobody) == 0);
            QVERIFY(::chmod(QFile::encodeName(files->target).constData(), 0664) == 0);
            break;
        case ReadOnlyDir:
            QVERIFY(QFile::setPermissions(files->dir, QFile::ReadOwner | QFile::ExeOwner | QFile::ReadGroup
                                                          | QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther));
            break;
        case BindMount:
            QVERIFY(_root.writeFile(Interfaces, "placeholder\n"));
            QVERIFY2(privatemounts::bind(files->target, files->path, &why), qPrintable(why));
            _mounts.prepend(files->path);
            break;
        case Plain:
            break;
        }
    }

    // Runs f as the daemon would on the layout: without root's override of
    // permission bits where the directory is read-only.
    template <typename F>
    static void asDaemon(Layout layout, F f)
    {
        std::optional<PermissionBitsEnforced> enforced;
        if (layout == ReadOnlyDir)
            enforced.emplace();
        f();
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(_root.install());
        if (!privatemounts::enter(&_mountFailure))
            qWarning("no private mounts: %s", qPrintable(_mountFailure));
    }

    void cleanupTestCase() { reset(); }

    void cutAtEveryOperation_data()
    {
        QTest::addColumn<int>("layout");
        QTest::addColumn<QByteArray>("oldBytes");
        QTest::addColumn<QByteArray>("newBytes");
        const char *const layouts[] = {"plain",           "symlink",             "hard link",
                                       "owned by nobody", "read-only directory", "bind mount"};
        for (int layout = Plain; layout <= BindMount; ++layout) {
            QTest::addRow("%s, longer", layouts[layout]) << layout << shortText << longText;
            QTest::addRow("%s, shorter", layouts[layout]) << layout << longText << shortText;
        }
    }

    void cutAtEveryOperation()
    {
        QFETCH(int, layout);
        QFETCH(QByteArray, oldBytes);
        QFETCH(QByteArray, newBytes);
        const Layout l = Layout(layout);
        if (l == BindMount && !_mountFailure.isEmpty())
            QSKIP(qPrintable(_mountFailure));

        int oldKept = 0, newKept = 0, replayed = 0, runs = 0, points = 0;
        for (int allowed = 0;; ++allowed) {
            ++points;
            bool completed = false;
            for (const bool tear : {false, true}) {
                Files files;
                setUp(l, oldBytes, &files);
                if (QTest::currentTestFailed())
                    return;
                const QStringList dirBefore = entries(files.dir);
                const QStringList flashBefore = entries(files.flash);
                const struct stat before = statOf(files.target);
                settingsfile::SaveResult result = settingsfile::SaveResult::OpenFailed;
                QStringList trail;
                asDaemon(l, [&] {
                    CuttingFileOperations cuts(allowed, tear);
                    result = settingsfile::save(files.path, newBytes);
                    completed = !cuts.cut();
                    trail = cuts.trail();
                });
                // Power back: the next boot's recovery.
                QStringList log;
                asDaemon(l, [&] {
                    MessageRecorder recorder;
                    settingsfile::recoverPending();
                    log = recorder.messages();
                });
                ++runs;

                const QString where = QStringLiteral("cut after %1 operations%2 (%3)")
                                          .arg(allowed)
                                          .arg(tear ? ", the write stored in part" : "")
                                          .arg(trail.join(", "));
                const QByteArray bytes = contents(files.target);
                QVERIFY2(bytes == oldBytes || bytes == newBytes,
                         qPrintable(where + ": the file holds " + shown(bytes)));
                QCOMPARE(contents(files.path), bytes);
                if (completed) {
                    QCOMPARE(result, settingsfile::SaveResult::Saved);
                    QCOMPARE(bytes, newBytes);
                }
                // The recovery completes a save or has nothing to say.
                QVERIFY2(log.isEmpty() || log == QStringList(completedLine(Interfaces)),
                         qPrintable(where + ": " + log.join(" | ")));
                if (!log.isEmpty())
                    QVERIFY2(bytes == newBytes, qPrintable(where));
                (bytes == oldBytes ? oldKept : newKept) += 1;
                replayed += log.isEmpty() ? 0 : 1;

                const struct stat after = statOf(files.target);
                QCOMPARE(after.st_uid, before.st_uid);
                QCOMPARE(after.st_gid, before.st_gid);
                QCOMPARE(after.st_mode, before.st_mode);
                if (inPlace(l))
                    QCOMPARE(after.st_ino, before.st_ino);
                if (l == HardLink) {
                    QCOMPARE(statOf(files.shared).st_ino, after.st_ino);
                    QCOMPARE(after.st_nlink, nlink_t(2));
                }
                if (l == Symlink)
                    QCOMPARE(QFileInfo(files.path).symLinkTarget(), files.target);
                QCOMPARE(entries(files.dir), dirBefore);
                QCOMPARE(entries(files.flash), flashBefore);
                QCOMPARE(entries(host(StateDir)), QStringList());
                if (completed)
                    break;
            }
            if (completed)
                break;
        }
        qInfo("%d cut points, %d runs: old bytes %d, new bytes %d, of which the recovery completed %d",
              points, runs, oldKept, newKept, replayed);
        // The cut reached both sides of the moment the save commits to.
        QVERIFY(oldKept > 0 && replayed > 0);
    }

    // Where the record lies once it is whole and the file is still untouched,
    // and what it holds.
    void recordPlaceAndBytes_data()
    {
        QTest::addColumn<int>("layout");
        QTest::addColumn<QString>("record");
        QTest::newRow("plain") << int(Plain) << "/etc/network/interfaces.panel-setup-redo";
        QTest::newRow("symlink") << int(Symlink) << "/mnt/flashdisk/etc/interfaces.panel-setup-redo";
        QTest::newRow("read-only directory") << int(ReadOnlyDir) << "/var/lib/panel-setup/interfaces.panel-setup-redo";
    }

    void recordPlaceAndBytes()
    {
        QFETCH(int, layout);
        QFETCH(QString, record);
        const Layout l = Layout(layout);
        Files files;
        setUp(l, shortText, &files);
        QStringList trail;
        asDaemon(l, [&] {
            CuttingFileOperations uncut;
            QCOMPARE(settingsfile::save(files.path, longText), settingsfile::SaveResult::Saved);
            trail = uncut.trail();
        });
        // Up to the record's rename, its sync under the new name and the sync of its directory.
        const int renamed = trail.indexOf("rename " + host(record));
        QVERIFY2(renamed >= 0, qPrintable(trail.join(", ")));
        QCOMPARE(trail.at(renamed + 1), "fsync " + host(record));
        QCOMPARE(trail.at(renamed + 2), "fsync " + QFileInfo(host(record)).path());
        setUp(l, shortText, &files);
        asDaemon(l, [&] {
            CuttingFileOperations cuts(renamed + 3);
            settingsfile::save(files.path, longText);
        });
        QCOMPARE(contents(files.target), shortText);
        QCOMPARE(contents(host(record)), settingsfile::redoRecord(Interfaces, longText));
        QCOMPARE(statOf(host(record)).st_mode & 07777, mode_t(0600));
        asDaemon(l, [&] {
            QTest::ignoreMessage(QtDebugMsg, qPrintable(completedLine(Interfaces)));
            settingsfile::recoverPending();
        });
        QCOMPARE(contents(files.target), longText);
        QVERIFY(!QFileInfo::exists(host(record)));
    }

    // The whole order of an atomic save. Each file is synced again once
    // renamed (vfat stores the new name's first cluster and size only then),
    // and the record goes only after the file system's sync.
    void atomicSaveOrder()
    {
        Files files;
        setUp(Plain, shortText, &files);
        QStringList trail;
        asDaemon(Plain, [&] {
            CuttingFileOperations uncut;
            QCOMPARE(settingsfile::save(files.path, longText), settingsfile::SaveResult::Saved);
            trail = uncut.trail();
        });
        const QString dir = host("/etc/network");
        const QString record = dir + "/interfaces.panel-setup-redo";
        QVERIFY2(trail.size() == 18, qPrintable(trail.join(", ")));
        // The temporary names end in six random characters.
        const QString recordTemporary = trail.at(0).mid(int(strlen("open ")));
        const QString copy = trail.at(7).mid(int(strlen("open ")));
        QCOMPARE(recordTemporary.chopped(6), record + '-');
        QCOMPARE(copy.chopped(6), dir + "/interfaces.panel-setup-");
        QCOMPARE(trail, QStringList({"open " + recordTemporary, "pwrite", "fsync " + recordTemporary,
                                     "rename " + record, "fsync " + record, "fsync " + dir,
                                     "unlink " + host("/var/lib/panel-setup/interfaces.panel-setup-redo"),
                                     "open " + copy, "fchown", "fchmod", "pwrite", "fsync " + copy,
                                     "rename " + files.path, "fsync " + files.path, "fsync " + dir,
                                     "syncfs " + dir, "unlink " + record, "fsync " + dir}));
    }

    void recordFormat()
    {
        QCOMPARE(settingsfile::redoRecord(ButtonLevel, "lcd 55\nscr 66\n"),
                 QByteArray("panel-setup redo 1\n"
                            "target /etc/kd5820m/buttonlevel\n"
                            "size 14\n"
                            "sha256 9cc5ff577be7335f92872551c8808af0880621a51280122dafb0aa23646b02e5\n"
                            "lcd 55\nscr 66\n"));
    }

    // Records the target was never touched for: a record is whole before the
    // save touches its file, so these are dropped and the file stays.
    void tornRecordIsRemoved_data()
    {
        QTest::addColumn<QString>("recordPath");
        QTest::addColumn<QByteArray>("record");
        const QByteArray whole = settingsfile::redoRecord(ButtonLevel, "lcd 55\nscr 66\n");
        const QString beside = "/etc/kd5820m/buttonlevel.panel-setup-redo";
        const QString inState = StateDir + "/buttonlevel.panel-setup-redo";
        QByteArray flipped = whole;
        flipped[flipped.size() - 3] = '7';
        QByteArray badSum = whole;
        badSum.replace("sha256 9cc5", "sha256 0cc5");
        for (const QString &path : {beside, inState}) {
            const QByteArray where = path == beside ? "beside" : "state directory";
            QTest::addRow("empty, %s", where.constData()) << path << QByteArray();
            QTest::addRow("cut short, %s", where.constData()) << path << whole.left(whole.size() - 5);
            QTest::addRow("header only, %s", where.constData()) << path << whole.left(whole.indexOf("lcd"));
            QTest::addRow("contents changed, %s", where.constData()) << path << flipped;
            QTest::addRow("checksum changed, %s", where.constData()) << path << badSum;
            QTest::addRow("NULs after it, %s", where.constData()) << path << whole + QByteArray(9, '\0');
            QTest::addRow("NULs for the contents, %s", where.constData())
                << path << whole.left(whole.size() - 14) + QByteArray(14, '\0');
            QTest::addRow("size not plain decimal, %s", where.constData())
                << path << QByteArray(whole).replace("size 14", "size +14");
            QTest::addRow("other format, %s", where.constData())
                << path << QByteArray(whole).replace("redo 1", "redo 2");
        }
    }

    void tornRecordIsRemoved()
    {
        QFETCH(QString, recordPath);
        QFETCH(QByteArray, record);
        reset();
        QVERIFY(_root.writeFile(ButtonLevel, "lcd 100\nscr 60\n"));
        QVERIFY(_root.writeFile(recordPath, record));
        MessageRecorder log;
        settingsfile::recoverPending();
        QCOMPARE(log.messages(),
                 QStringList("settingsfile::recoverPending(): removed the invalid record \"" + host(recordPath) + '"'));
        QCOMPARE(_root.readFile(ButtonLevel), QByteArray("lcd 100\nscr 60\n"));
        QCOMPARE(entries(host("/etc/kd5820m")), QStringList("buttonlevel"));
        QCOMPARE(entries(host(StateDir)), QStringList());
    }

    // A record may only complete a save of the settings file it belongs to: a
    // planted one cannot make the daemon, which runs as root, write anything else.
    void recordForAnotherFileIsRefused_data()
    {
        QTest::addColumn<QString>("recordPath");
        QTest::addColumn<QString>("target");
        QTest::newRow("a system file, state directory") << StateDir + "/passwd.panel-setup-redo" << "/etc/passwd";
        QTest::newRow("a system file under a settings file's name")
            << StateDir + "/interfaces.panel-setup-redo" << "/etc/passwd";
        QTest::newRow("another settings file's name") << StateDir + "/interfaces.panel-setup-redo" << ButtonLevel;
        QTest::newRow("beside another settings file") << "/etc/network/interfaces.panel-setup-redo" << ButtonLevel;
        QTest::newRow("a relative path") << StateDir + "/interfaces.panel-setup-redo" << "etc/network/interfaces";
        QTest::newRow("the path through ..")
            << StateDir + "/interfaces.panel-setup-redo" << "/etc/network/../network/interfaces";
    }

    void recordForAnotherFileIsRefused()
    {
        QFETCH(QString, recordPath);
        QFETCH(QString, target);
        reset();
        QVERIFY(_root.writeFile(Interfaces, shortText));
        QVERIFY(_root.writeFile(ButtonLevel, "lcd 100\nscr 60\n"));
        QVERIFY(_root.writeFile(recordPath, settingsfile::redoRecord(target, "root::0:0::/:/bin/sh\n")));
        MessageRecorder log;
        settingsfile::recoverPending();
        QCOMPARE(log.messages(), QStringList("settingsfile::recoverPending(): refused the record \"" + host(recordPath)
                                             + "\" for \"" + target + '"'));
        QCOMPARE(_root.readFile(Interfaces), shortText);
        QCOMPARE(_root.readFile(ButtonLevel), QByteArray("lcd 100\nscr 60\n"));
        QVERIFY(!QFileInfo::exists(host("/etc/passwd")));
        QVERIFY(!QFileInfo::exists(host(recordPath)));
        QCOMPARE(entries(host(StateDir)), QStringList());
    }

    // Records are bounded as the settings files' reads are (64 KiB): a larger
    // one is not read, and a save does not make one.
    void recordsAreBounded()
    {
        reset();
        QVERIFY(_root.writeFile(ButtonLevel, "lcd 100\nscr 60\n"));
        const QString record = StateDir + "/buttonlevel.panel-setup-redo";
        const QByteArray limit(int(settingsfile::MaxReadSize), 'x');
        QVERIFY(_root.writeFile(record, settingsfile::redoRecord(ButtonLevel, limit + 'x')));
        QTest::ignoreMessage(QtDebugMsg, qPrintable("settingsfile::recoverPending(): removed the invalid record \""
                                                     + host(record) + '"'));
        settingsfile::recoverPending();
        QCOMPARE(_root.readFile(ButtonLevel), QByteArray("lcd 100\nscr 60\n"));
        QVERIFY(!QFileInfo::exists(host(record)));

        QCOMPARE(settingsfile::save(host(ButtonLevel), limit + 'x'), settingsfile::SaveResult::WriteFailed);
        QCOMPARE(_root.readFile(ButtonLevel), QByteArray("lcd 100\nscr 60\n"));
        QCOMPARE(entries(host("/etc/kd5820m")), QStringList("buttonlevel"));
        // The largest file a reader takes is saved and recovered.
        QVERIFY(_root.writeFile(record, settingsfile::redoRecord(ButtonLevel, limit)));
        QTest::ignoreMessage(QtDebugMsg, qPrintable(completedLine(ButtonLevel)));
        settingsfile::recoverPending();
        QCOMPARE(_root.readFile(ButtonLevel), limit);
        QCOMPARE(entries(host(StateDir)), QStringList());
    }

    // A record that is a link is no record: removed, and what it points to stays.
    void recordThatIsALinkIsRemoved()
    {
        reset();
        QVERIFY(_root.writeFile(ButtonLevel, "lcd 100\nscr 60\n"));
        const QString elsewhere = host("/mnt/record");
        QVERIFY(_root.writeFile("/mnt/record", settingsfile::redoRecord(ButtonLevel, "lcd 1\nscr 1\n")));
        const QString link = host(StateDir + "/buttonlevel.panel-setup-redo");
        QVERIFY(QFile::link(elsewhere, link));
        QTest::ignoreMessage(QtDebugMsg, qPrintable("settingsfile::recoverPending(): removed the invalid record \""
                                                     + link + '"'));
        settingsfile::recoverPending();
        QCOMPARE(_root.readFile(ButtonLevel), QByteArray("lcd 100\nscr 60\n"));
        QVERIFY(!QFileInfo(link).isSymLink());
        QCOMPARE(contents(elsewhere), settingsfile::redoRecord(ButtonLevel, "lcd 1\nscr 1\n"));
    }

    // Unfinished records and copies go silently; other files stay.
    void leftoversAreRemoved()
    {
        reset();
        QVERIFY(_root.writeFile(Interfaces, shortText));
        const QStringList gone = {"/etc/network/interfaces.panel-setup-Ab3xY9",
                                  "/etc/network/interfaces.panel-setup-redo-Ab3xY9",
                                  StateDir + "/interfaces.panel-setup-redo-Zz0000",
                                  StateDir + "/launcher.cfg.panel-setup-redo-AAAAAA"};
        const QStringList kept = {"/etc/network/interfaces.panel-setup-redo-Ab3xY9.old", StateDir + "/notes",
                                  StateDir + "/passwd.panel-setup-redo-Ab3xY9"};
        for (const QString &path : gone + kept)
            QVERIFY(_root.writeFile(path, "x"));
        MessageRecorder log;
        settingsfile::recoverPending();
        QCOMPARE(log.messages(), QStringList());
        for (const QString &path : gone)
            QVERIFY2(!QFileInfo::exists(host(path)), qPrintable(path));
        for (const QString &path : kept)
            QVERIFY2(QFileInfo::exists(host(path)), qPrintable(path));
        QCOMPARE(_root.readFile(Interfaces), shortText);
    }

    // A record whose save fails again (the file is read-only now) stays for
    // the next start.
    void recordStaysWhenTheSaveFailsAgain()
    {
        reset();
        QVERIFY(_root.writeFile(ButtonLevel, "lcd 100\nscr 60\n"));
        const QString record = StateDir + "/buttonlevel.panel-setup-redo";
        QVERIFY(_root.writeFile(record, settingsfile::redoRecord(ButtonLevel, "lcd 1\nscr 2\n")));
        QVERIFY(QFile::setPermissions(host(ButtonLevel), QFile::ReadOwner));
        {
            PermissionBitsEnforced enforced;
            QVERIFY(enforced.isActive());
            QTest::ignoreMessage(QtDebugMsg, qPrintable("settingsfile::recoverPending(): kept the record \""
                                                         + host(record) + "\" as its save failed again"));
            settingsfile::recoverPending();
        }
        QCOMPARE(_root.readFile(ButtonLevel), QByteArray("lcd 100\nscr 60\n"));
        QCOMPARE(contents(host(record)), settingsfile::redoRecord(ButtonLevel, "lcd 1\nscr 2\n"));
        QVERIFY(QFile::setPermissions(host(ButtonLevel), QFile::ReadOwner | QFile::WriteOwner));
        QTest::ignoreMessage(QtDebugMsg, qPrintable(completedLine(ButtonLevel)));
        settingsfile::recoverPending();
        QCOMPARE(_root.readFile(ButtonLevel), QByteArray("lcd 1\nscr 2\n"));
        QCOMPARE(entries(host(StateDir)), QStringList());
    }

    // The boot's program: the same recovery, exit status 0, under PANEL_SETUP_ROOT.
    void recoveryProgram()
    {
        reset();
        QVERIFY(_root.writeFile(Interfaces, shortText));
        QVERIFY(_root.writeFile("/etc/network/interfaces.panel-setup-redo", settingsfile::redoRecord(Interfaces, longText)));
        QVERIFY(_root.writeFile(StateDir + "/buttonlevel.panel-setup-redo", "torn"));
        for (int run = 0; run < 2; ++run) {
            QProcess program;
            program.setProcessChannelMode(QProcess::MergedChannels);
            targetprogram::start(program, targetprogram::path(QStringLiteral(PANEL_SETUP_RECOVER_BINARY)));
            QVERIFY(program.waitForFinished(10000));
            QCOMPARE(program.exitStatus(), QProcess::NormalExit);
            QCOMPARE(program.exitCode(), 0);
            // The second run finds nothing and says nothing.
            QCOMPARE(program.readAll(),
                     run == 0 ? (completedLine(Interfaces) + '\n'
                                 + "settingsfile::recoverPending(): removed the invalid record \""
                                 + host(StateDir + "/buttonlevel.panel-setup-redo") + "\"\n")
                                    .toLocal8Bit()
                              : QByteArray());
        }
        QCOMPARE(_root.readFile(Interfaces), longText);
        QCOMPARE(entries(host("/etc/network")), QStringList("interfaces"));
        QCOMPARE(entries(host(StateDir)), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestFaultPowerCut)
#include "tst_fault_powercut.moc"
