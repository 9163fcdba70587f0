// Saves of the three settings files through their own writers, on the layouts
// devices use: files reached through symbolic links into the flash partition,
// hard links, another owner, a read-only directory, a bind-mounted file and a
// full file system. Each save must leave the final target with the new bytes
// (the old ones where it cannot), links still links, owner and mode as they
// were, and nothing beside the files nor in the state directory.
#include "netutil/NetUtil.h"
#include "pages/ButtonLevelFile.h"
#include "panel/LauncherConfig.h"
#include "base/SettingsFile.h"
#include "panel/Setup_Panel.h"
#include "support/FileFacts.h"
#include "support/MessageRecorder.h"
#include "support/PermissionBitsEnforced.h"
#include "support/PrivateMounts.h"
#include "support/TestRoot.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtTest>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

enum Kind { Interfaces, ButtonLevel, LauncherFont, LauncherPsu };

enum Layout {
    Plain,
    Symlink,        // the file is a link into the flash partition
    SymlinkChain,   // a link to a link (relative) to the file
    HardLink,       // a second name in the flash partition shares the file
    OtherOwner,     // owned by nobody, mode 0664
    ReadOnlyDir,    // a writable file in a directory the program cannot write
    BindMount,      // a file of the flash partition mounted over the file
    FullDisk,       // no room left on the file system
    FullDiskInPlace // no room left, and the file is hard-linked: the new bytes
                    // still fit the blocks the file holds
};

constexpr uid_t Nobody = 65534;

// Where a save keeps its redo record when the file's directory is not writable.
const QString StateDir = QStringLiteral("/var/lib/panel-setup");

// In the order QSettings writes: a save changes only the values.
const QByteArray launcherOld = "[font]\nheight=20\nwidth=10\n\n[psu]\nredundant=0\n\n[setup]\nbutton1=24\nbutton2=25\n";

QString devicePath(Kind kind)
{
    switch (kind) {
    case Interfaces:
        return QStringLiteral("/etc/network/interfaces");
    case ButtonLevel:
        return QStringLiteral("/etc/kd5820m/buttonlevel");
    case LauncherFont:
    case LauncherPsu:
        break;
    }
    return QStringLiteral("/etc/kd5820m/launcher.cfg");
}

QByteArray oldBytes(Kind kind)
{
    switch (kind) {
    case Interfaces:
        return "auto lo\niface lo inet loopback\n";
    case ButtonLevel:
        return "lcd 100\nscr 60\n";
    case LauncherFont:
    case LauncherPsu:
        break;
    }
    return launcherOld;
}

QByteArray newBytes(Kind kind)
{
    switch (kind) {
    case Interfaces:
        return "auto lo\niface lo inet loopback\n\nauto eth0\niface eth0 inet static\naddress 10.1.2.3\n"
               "netmask 255.0.0.0\nbroadcast 10.255.255.255\ngateway 10.0.0.1\n";
    case ButtonLevel:
        return "lcd 55\nscr 66\n";
    case LauncherFont:
        return QByteArray(launcherOld).replace("height=20\nwidth=10", "height=13\nwidth=8");
    case LauncherPsu:
        break;
    }
    return QByteArray(launcherOld).replace("redundant=0", "redundant=1");
}

bool inPlace(Layout layout)
{
    return layout == HardLink || layout == ReadOnlyDir || layout == BindMount || layout == FullDiskInPlace;
}

bool onFullDisk(Layout layout)
{
    return layout == FullDisk || layout == FullDiskInPlace;
}

} // namespace

class TestSettingsFile : public QObject
{
    Q_OBJECT

private:
    TestRoot _root;
    QString _mountFailure;
    QStringList _mounts;

    QString host(const QString &devicePath) const { return _root.hostPath(devicePath); }

    // Saves the new values of kind and returns what the writer logged; *ok
    // tells whether the writer reported success (only the launcher's have a
    // result; the others set it true).
    static QStringList save(Kind kind, bool *ok)
    {
        MessageRecorder log;
        *ok = true;
        switch (kind) {
        case Interfaces:
            NetUtil::writeInterfacesFile({"10.1.2.3", "255.0.0.0", "10.255.255.255", "10.0.0.1"});
            break;
        case ButtonLevel:
            writeButtonlevelFile({"55", "66"});
            break;
        case LauncherFont:
            *ok = writeFontDimensions(8, 13) == 0;
            break;
        case LauncherPsu:
            *ok = writePsuMode(1) == 0;
            break;
        }
        return log.messages();
    }

    QStringList expectedLog(Kind kind, bool saved) const
    {
        const QString quotedPath = '"' + host(devicePath(kind)) + '"';
        switch (kind) {
        case Interfaces:
            return {"&&&&&& write net file",
                    saved ? '"' + QString::fromLatin1(newBytes(kind)) + '"'
                          : QStringLiteral("NetUtil : failed to open /etc/network/interfaces")};
        case ButtonLevel:
            return saved ? QStringList() : QStringList("writeButtonlevelFile : Unable to write " + quotedPath);
        case LauncherFont: {
            QStringList lines("Font dimensions set to width = 8 and height = 13 in file " + quotedPath);
            if (!saved)
                lines << "Configuration file " + quotedPath + " is not writeable!!";
            return lines;
        }
        case LauncherPsu:
            break;
        }
        return saved ? QStringList() : QStringList("Configuration file " + quotedPath + " is not writeable!!");
    }

    // Fills the file system of dir to the last byte.
    static bool fill(const QString &dir)
    {
        QFile filler(dir + "/filler");
        if (!filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
            return false;
        const QByteArray block(512, 'f');
        while (filler.write(block) > 0) {
        }
        const QByteArray byte(1, 'f');
        while (filler.write(byte) > 0) {
        }
        return true;
    }

    void mount(const QString &what, bool done, const QString &why)
    {
        QVERIFY2(done, qPrintable(why));
        _mounts.prepend(what);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(_root.install());
        if (!privatemounts::enter(&_mountFailure))
            qWarning("no private mounts: %s", qPrintable(_mountFailure));
    }

    void init()
    {
        QString why;
        for (const QString &dir : _mounts)
            QVERIFY2(privatemounts::unmount(dir, &why), qPrintable(why));
        _mounts.clear();
        for (const char *dir : {"/etc/network", "/etc/kd5820m"})
            QFile::setPermissions(host(QLatin1String(dir)), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        for (const char *dir : {"/etc", "/mnt", "/var"})
            QVERIFY(QDir(host(QLatin1String(dir))).removeRecursively());
        QVERIFY(QDir().mkpath(host(StateDir)));
    }

    void cleanupTestCase() { init(); }

    void layouts_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<int>("layout");
        const char *const kinds[] = {"interfaces", "button levels", "font", "PSU mode"};
        const char *const layouts[] = {"plain",        "symlink",   "symlink chain",
                                       "hard link",    "owned by nobody", "read-only directory",
                                       "bind mount",   "full disk", "full disk, hard link"};
        for (int kind = Interfaces; kind <= LauncherPsu; ++kind) {
            for (int layout = Plain; layout <= FullDiskInPlace; ++layout)
                QTest::addRow("%s, %s", kinds[kind], layouts[layout]) << kind << layout;
        }
    }

    void layouts()
    {
        QFETCH(int, kind);
        QFETCH(int, layout);
        const Kind k = Kind(kind);
        const Layout l = Layout(layout);
        if ((l == BindMount || onFullDisk(l)) && !_mountFailure.isEmpty())
            QSKIP(qPrintable(_mountFailure));

        const QString path = host(devicePath(k));
        const QString dir = QFileInfo(path).path();
        const QString name = QFileInfo(path).fileName();
        const QString flash = host("/mnt/flashdisk/etc");
        const QString links = host("/mnt/flashdisk/links");
        QVERIFY(QDir().mkpath(dir) && QDir().mkpath(flash) && QDir().mkpath(links));
        QString why;
        if (onFullDisk(l))
            mount(dir, privatemounts::mountTmpfs(dir, "size=16k", &why), why);

        // The file that holds the bytes, and the other names it has.
        QString target = path;
        switch (l) {
        case Symlink:
        case SymlinkChain:
        case BindMount:
            target = flash + '/' + name;
            break;
        default:
            break;
        }
        QVERIFY(_root.writeFile(target.mid(_root.path().size()), oldBytes(k)));
        if (l == Symlink)
            QVERIFY(QFile::link(target, path));
        if (l == SymlinkChain) {
            QVERIFY(QFile::link(links + '/' + name, path));
            QVERIFY(::symlink(QFile::encodeName("../etc/" + name).constData(),
                              QFile::encodeName(links + '/' + name).constData())
                    == 0);
        }
        // A second name on the same file system.
        const QString shared = (l == FullDiskInPlace ? dir : flash) + '/' + name + ".shared";
        if (l == HardLink || l == FullDiskInPlace)
            QVERIFY(::link(QFile::encodeName(target).constData(), QFile::encodeName(shared).constData()) == 0);
        if (l == OtherOwner) {
            QVERIFY(::chown(QFile::encodeName(target).constData(), Nobody, Nobody) == 0);
            QVERIFY(::chmod(QFile::encodeName(target).constData(), 0664) == 0);
        }
        if (l == BindMount) {
            QVERIFY(_root.writeFile(devicePath(k), "placeholder\n"));
            mount(path, privatemounts::bind(target, path, &why), why);
        }
        if (onFullDisk(l))
            QVERIFY(fill(dir));
        const QStringList dirBefore = entries(dir);
        const QStringList flashBefore = entries(flash);
        const struct stat before = statOf(target);

        bool ok = false;
        QStringList log;
        if (l == ReadOnlyDir) {
            QVERIFY(QFile::setPermissions(dir, QFile::ReadOwner | QFile::ExeOwner | QFile::ReadGroup
                                                   | QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther));
            PermissionBitsEnforced enforced;
            QVERIFY(enforced.isActive());
            log = save(k, &ok);
        } else {
            log = save(k, &ok);
        }

        const bool saved = l != FullDisk;
        QCOMPARE(log, expectedLog(k, saved));
        if (k == LauncherFont || k == LauncherPsu)
            QCOMPARE(ok, saved);
        QFile file(target);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), saved ? newBytes(k) : oldBytes(k));
        QCOMPARE(_root.readFile(devicePath(k)), saved ? newBytes(k) : oldBytes(k));

        const struct stat after = statOf(target);
        QCOMPARE(after.st_uid, before.st_uid);
        QCOMPARE(after.st_gid, before.st_gid);
        QCOMPARE(after.st_mode, before.st_mode);
        if (l == OtherOwner) {
            QCOMPARE(after.st_uid, Nobody);
            QCOMPARE(after.st_mode & 07777, mode_t(0664));
        }
        if (inPlace(l) || l == FullDisk)
            QCOMPARE(after.st_ino, before.st_ino);
        else
            QVERIFY(after.st_ino != before.st_ino); // a new file renamed over the old one
        if (l == HardLink || l == FullDiskInPlace) {
            QCOMPARE(statOf(shared).st_ino, after.st_ino);
            QCOMPARE(statOf(shared).st_nlink, nlink_t(2));
        }
        if (l == Symlink) {
            QVERIFY(QFileInfo(path).isSymLink());
            QCOMPARE(QFileInfo(path).symLinkTarget(), target);
        }
        if (l == SymlinkChain) {
            QVERIFY(QFileInfo(path).isSymLink());
            QCOMPARE(QFileInfo(links + '/' + name).symLinkTarget(), target);
        }
        // Nothing beside the files, here or in the flash partition, and no record.
        QCOMPARE(entries(dir), dirBefore);
        QCOMPARE(entries(flash), flashBefore);
        QCOMPARE(entries(host(StateDir)), QStringList());
        if (l == BindMount) {
            QVERIFY2(privatemounts::unmount(path, &why), qPrintable(why));
            _mounts.removeOne(path);
            QCOMPARE(_root.readFile(devicePath(k)), QByteArray("placeholder\n"));
        }
    }

    void missingFileIsCreatedWithTheUsualMode()
    {
        QVERIFY(QDir().mkpath(host("/etc/kd5820m")));
        const mode_t mask = ::umask(022);
        writeButtonlevelFile({"55", "66"});
        ::umask(mask);
        QCOMPARE(_root.readFile("/etc/kd5820m/buttonlevel"), QByteArray("lcd 55\nscr 66\n"));
        QCOMPARE(statOf(host("/etc/kd5820m/buttonlevel")).st_mode & 07777, mode_t(0644));
        QCOMPARE(entries(host("/etc/kd5820m")), QStringList("buttonlevel"));
    }

    // Without a writable place for its record (a read-only directory and no
    // state directory) a save goes on as it did before records: in place.
    void saveWithoutPlaceForRecord()
    {
        QVERIFY(QDir(host(StateDir)).removeRecursively());
        QVERIFY(_root.writeFile("/etc/kd5820m/buttonlevel", "lcd 100\nscr 60\n"));
        const QString dir = host("/etc/kd5820m");
        const ino_t inode = statOf(dir + "/buttonlevel").st_ino;
        QVERIFY(QFile::setPermissions(dir, QFile::ReadOwner | QFile::ExeOwner));
        {
            PermissionBitsEnforced enforced;
            QVERIFY(enforced.isActive());
            bool ok = false;
            QCOMPARE(save(ButtonLevel, &ok), QStringList());
        }
        QCOMPARE(_root.readFile("/etc/kd5820m/buttonlevel"), QByteArray("lcd 55\nscr 66\n"));
        QCOMPARE(statOf(dir + "/buttonlevel").st_ino, inode);
        QCOMPARE(entries(dir), QStringList("buttonlevel"));
        QVERIFY(!QFileInfo::exists(host(StateDir)));
    }

    void linkToMissingFileCreatesTheTarget()
    {
        QVERIFY(QDir().mkpath(host("/etc/network")) && QDir().mkpath(host("/mnt/flashdisk/etc")));
        QVERIFY(QFile::link(host("/mnt/flashdisk/etc/interfaces"), host("/etc/network/interfaces")));
        bool ok = false;
        QCOMPARE(save(Interfaces, &ok), expectedLog(Interfaces, true));
        QCOMPARE(_root.readFile("/mnt/flashdisk/etc/interfaces"), newBytes(Interfaces));
        QVERIFY(QFileInfo(host("/etc/network/interfaces")).isSymLink());
    }

    void linkLoopIsRefused()
    {
        QVERIFY(QDir().mkpath(host("/etc/kd5820m")));
        QVERIFY(QFile::link(host("/etc/kd5820m/buttonlevel"), host("/etc/kd5820m/buttonlevel")));
        QCOMPARE(settingsfile::finalTarget(host("/etc/kd5820m/buttonlevel")), QString());
        QCOMPARE(settingsfile::save(host("/etc/kd5820m/buttonlevel"), "x"), settingsfile::SaveResult::OpenFailed);
        QVERIFY(QFileInfo(host("/etc/kd5820m/buttonlevel")).isSymLink());
    }

    void leftoverNames_data()
    {
        QTest::addColumn<QString>("entry");
        QTest::addColumn<bool>("leftover");
        QTest::newRow("own copy") << "interfaces.panel-setup-Ab3xY9" << true;
        QTest::newRow("digits") << "interfaces.panel-setup-000000" << true;
        QTest::newRow("five characters") << "interfaces.panel-setup-Ab3xY" << false;
        QTest::newRow("seven characters") << "interfaces.panel-setup-Ab3xY9z" << false;
        QTest::newRow("other punctuation") << "interfaces.panel-setup-Ab3x.9" << false;
        QTest::newRow("another file's copy") << "interfaces.old.panel-setup-Ab3xY9" << false;
        QTest::newRow("the file") << "interfaces" << false;
        QTest::newRow("a user's backup") << "interfaces.backup" << false;
        QTest::newRow("an editor's copy") << "interfaces.AbC123" << false;
        QTest::newRow("a lock") << "interfaces.panel-setup-Ab3xY9.lock" << false;
        QTest::newRow("an unfinished record") << "interfaces.panel-setup-redo-Ab3xY9" << true;
        QTest::newRow("a record") << "interfaces.panel-setup-redo" << false;
        QTest::newRow("an unfinished record, five characters") << "interfaces.panel-setup-redo-Ab3xY" << false;
        QTest::newRow("another file's unfinished record") << "buttonlevel.panel-setup-redo-Ab3xY9" << false;
    }

    void leftoverNames()
    {
        QFETCH(QString, entry);
        QFETCH(bool, leftover);
        QCOMPARE(settingsfile::isLeftoverOf("interfaces", entry), leftover);
    }

    // On vfat an interrupted copy or record may be known only by the short
    // name the file system made of its long one.
    void shortNames_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("entry");
        QTest::addColumn<bool>("leftover");
        QTest::newRow("copy") << "interfaces" << "INTERF~1.PAN" << true;
        QTest::newRow("ninth") << "interfaces" << "INTERF~9.PAN" << true;
        QTest::newRow("listed in lower case") << "interfaces" << "interf~2.pan" << true;
        QTest::newRow("dot in the name") << "launcher.cfg" << "LAUNCH~2.PAN" << true;
        QTest::newRow("short name") << "ab" << "AB~1.PAN" << true;
        QTest::newRow("hashed") << "buttonlevel" << "BU3F0A~1.PAN" << true;
        QTest::newRow("hashed, eighth") << "buttonlevel" << "BU3F0A~8.PAN" << true;
        QTest::newRow("hashed, ninth") << "buttonlevel" << "BU3F0A~9.PAN" << false;
        QTest::newRow("hashed, not hexadecimal") << "buttonlevel" << "BU3G0A~1.PAN" << false;
        QTest::newRow("character replaced") << "a+b" << "A_B~1.PAN" << true;
        QTest::newRow("another file's") << "interfaces" << "BUTTON~1.PAN" << false;
        QTest::newRow("another extension") << "interfaces" << "INTERF~1.BAK" << false;
        QTest::newRow("no number") << "interfaces" << "INTERF~.PAN" << false;
        QTest::newRow("number zero") << "interfaces" << "INTERF~0.PAN" << false;
        QTest::newRow("two digits") << "interfaces" << "INTER~10.PAN" << false;
        QTest::newRow("the file's own short name") << "interfaces" << "INTERF~1" << false;
        QTest::newRow("long copy name") << "interfaces" << "interfaces.panel-setup-Ab3xY9" << true;
        QTest::newRow("a record") << "interfaces" << "interfaces.panel-setup-redo" << false;
    }

    void shortNames()
    {
        QFETCH(QString, name);
        QFETCH(QString, entry);
        QFETCH(bool, leftover);
        QCOMPARE(settingsfile::isLeftoverOf(name, entry, settingsfile::Names::LongAndShort), leftover);
        // Elsewhere such a name is some other program's file.
        QCOMPARE(settingsfile::isLeftoverOf(name, entry), leftover && entry.contains(QLatin1String("panel-setup")));
    }

    // What the start of the daemon removes: its own copies beside the final
    // targets, nothing else, and nothing beside the links.
    void startRemovesOwnLeftoversOnly()
    {
        const QString flash = host("/mnt/flashdisk/etc");
        QVERIFY(QDir().mkpath(flash));
        QStringList kept;
        for (Kind kind : {Interfaces, ButtonLevel, LauncherFont}) {
            const QString name = QFileInfo(devicePath(kind)).fileName();
            QVERIFY(_root.writeFile("/mnt/flashdisk/etc/" + name, oldBytes(kind)));
            QVERIFY(QDir().mkpath(host(QFileInfo(devicePath(kind)).path())));
            QVERIFY(QFile::link(flash + '/' + name, host(devicePath(kind))));
            for (const char *suffix : {".panel-setup-AbC123", ".panel-setup-9zZ9zz", ".panel-setup-redo-AbC123"})
                QVERIFY(_root.writeFile("/mnt/flashdisk/etc/" + name + QLatin1String(suffix), "copy"));
            for (const char *suffix : {".backup", ".AbC123", ".panel-setup-AbC123.lock"}) {
                QVERIFY(_root.writeFile("/mnt/flashdisk/etc/" + name + QLatin1String(suffix), "keep"));
                kept << name + QLatin1String(suffix);
            }
            kept << name;
            // Beside the link: not a copy of a save of the target's.
            QVERIFY(_root.writeFile(devicePath(kind) + ".panel-setup-AbC123", "keep"));
        }
        Setup_Panel::recoverInterruptedSaves();
        kept.sort();
        QCOMPARE(entries(flash), kept);
        QVERIFY(QFile::exists(host("/etc/network/interfaces.panel-setup-AbC123")));
        QVERIFY(QFile::exists(host("/etc/kd5820m/launcher.cfg.panel-setup-AbC123")));
    }

    // The launcher's copies in RAM: those of processes that are gone.
    void startRemovesScratchOfEndedProcessesOnly()
    {
        // A child that has ended and been reaped (fork: QProcess cannot start
        // one under qemu-user).
        const pid_t endedPid = ::fork();
        if (endedPid == 0)
            ::_exit(0);
        QVERIFY(endedPid > 0);
        QVERIFY(::waitpid(endedPid, nullptr, 0) == endedPid);
        const QString parent = scratchParent();
        const QString gone = parent + "/panel-setup-" + QString::number(endedPid) + "-AbC123";
        const QString running = parent + "/panel-setup-" + QString::number(::getpid()) + "-AbC123";
        const QString other = parent + "/panel-setup-notapid-AbC123";
        for (const QString &dir : {gone, running, other}) {
            QVERIFY(QDir().mkpath(dir));
            QFile file(dir + "/launcher.cfg");
            QVERIFY(file.open(QIODevice::WriteOnly));
        }
        Setup_Panel::recoverInterruptedSaves();
        QVERIFY(!QFileInfo::exists(gone));
        QVERIFY(QFileInfo::exists(running + "/launcher.cfg"));
        QVERIFY(QFileInfo::exists(other + "/launcher.cfg"));
        QVERIFY(QDir(running).removeRecursively() && QDir(other).removeRecursively());
    }
};

QTEST_GUILESS_MAIN(TestSettingsFile)
#include "tst_settingsfile.moc"
