// A child saving the settings files through the daemon's own writers is
// killed with SIGKILL at random moments, over and over. After every kill each
// file must still parse and hold, byte for byte, either what the last complete
// round wrote or what the round under way was writing: never a truncated,
// empty or mixed file.
//
// The launcher configuration's saves lock only the copy that each makes of
// the file, under a name of its own, so an empty lock left by a kill cannot
// hold up a later save; the test counts stalled starts all the same.
//
// It runs on the plain layout and on the one devices with a read-only root
// use: each settings file a symbolic link into the flash partition. There the
// links must stay links, and the next start must find nothing left beside
// the files.
//
// PANEL_SETUP_KILL_CYCLES sets the number of kills (default 60); the soak
// label runs it with more.
#include "hardening/SettingsRounds.h"
#include "panel/LauncherConfig.h"
#include "panel/Setup_Panel.h"
#include "support/TestRoot.h"
#include "TargetProgram.h"

#include <QDir>
#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QProcess>
#include <QRandomGenerator>
#include <QtTest>

#include <unistd.h>

using settingsrounds::round;

namespace {

const char *const InterfacesPath = "/etc/network/interfaces";
const char *const ButtonLevelPath = "/etc/kd5820m/buttonlevel";
const char *const LauncherPath = "/etc/kd5820m/launcher.cfg";

} // namespace

class TestFaultWriterKill : public QObject
{
    Q_OBJECT

private:
    // On the disk the device would use, not a RAM disk: the saves really sync.
    TestRoot _root;
    QByteArray _interfaces[2];
    QByteArray _levels[2];
    // Launcher configuration by [font] round and [psu] round.
    QByteArray _launcher[2][2];

    static int cyclesWanted()
    {
        bool ok = false;
        const int cycles = qEnvironmentVariableIntValue("PANEL_SETUP_KILL_CYCLES", &ok);
        return ok && cycles > 0 ? cycles : 60;
    }

    // Which round's bytes a file holds: 0, 1, or -1 for neither.
    static int roundOf(const QByteArray &content, const QByteArray (&rounds)[2])
    {
        return content == rounds[0] ? 0 : content == rounds[1] ? 1 : -1;
    }

    // The files parse, with the values of the rounds they hold.
    void checkParses(int interfacesRound, int levelsRound, int fontRound, int psuRound)
    {
        std::vector<QString> addresses(8);
        NetUtil::readInterfacesFile(addresses);
        QCOMPARE(std::vector<QString>(addresses.begin(), addresses.begin() + 4),
                 round(interfacesRound).addresses);
        std::vector<QString> levels(2);
        QVERIFY(readButtonlevelFile(levels));
        QCOMPARE(levels, round(levelsRound).levels);
        int width = -1, height = -1;
        readFontDimensions(&width, &height);
        QCOMPARE(width, round(fontRound).fontWidth);
        QCOMPARE(height, round(fontRound).fontHeight);
        QCOMPARE(readPsuMode(), round(psuRound).psu);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(_root.install());
        QVERIFY(QDir().mkpath(_root.hostPath("/etc/network")));
        QVERIFY(_root.writeFile(LauncherPath, "[setup]\nbutton1=24\nbutton2=25\n"));

        // The bytes each writer leaves, for every combination a kill can leave.
        // The writers log every save: keep the test log readable.
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
        for (int r = 0; r < 2; ++r) {
            settingsrounds::saveAll(round(r));
            _interfaces[r] = _root.readFile(InterfacesPath);
            _levels[r] = _root.readFile(ButtonLevelPath);
            _launcher[r][r] = _root.readFile(LauncherPath);
        }
        settingsrounds::saveFont(round(0));
        _launcher[0][1] = _root.readFile(LauncherPath);
        settingsrounds::saveAll(round(1));
        settingsrounds::savePsu(round(0));
        _launcher[1][0] = _root.readFile(LauncherPath);
        for (const QByteArray &content : {_interfaces[0], _interfaces[1], _levels[0], _levels[1],
                                          _launcher[0][0], _launcher[0][1], _launcher[1][0],
                                          _launcher[1][1]})
            QVERIFY(!content.isEmpty());
        QVERIFY(_interfaces[0] != _interfaces[1] && _levels[0] != _levels[1]);
        QVERIFY(_launcher[0][1] != _launcher[1][0]);
        QCOMPARE(_levels[1], QByteArray("lcd 35\nscr 7\n"));

    }

    void killedWhileSaving_data()
    {
        QTest::addColumn<bool>("symlinked");
        QTest::newRow("plain") << false;
        QTest::newRow("symlinked into flash") << true;
    }

    void killedWhileSaving()
    {
        QFETCH(bool, symlinked);
        settingsrounds::saveAll(round(0));
        const QString flash = _root.hostPath("/mnt/flashdisk/etc");
        QVERIFY(QDir(flash).removeRecursively() && QDir().mkpath(flash));
        for (const char *file : {InterfacesPath, ButtonLevelPath, LauncherPath}) {
            const QString path = _root.hostPath(QLatin1String(file));
            const QString target = flash + '/' + QFileInfo(path).fileName();
            if (symlinked)
                QVERIFY(QFile::rename(path, target) && QFile::link(target, path));
            else if (QFileInfo(path).isSymLink())
                QVERIFY(QFile::remove(path) && QFile::rename(target, path));
        }

        const int cycles = cyclesWanted();
        QRandomGenerator rng(0x6b111u);
        int survived = 0;
        QStringList killedPids;
        int stalls = 0;        // children whose first round took over a second
        qint64 longestStart = 0;
        int landed[3] = {0, 0, 0}; // kills that left 0, 1 or 2+ files of the round under way
        qint64 rounds = 0;
        QElapsedTimer clock;
        clock.start();

        for (int cycle = 0; cycle < cycles; ++cycle) {
            QProcess child;
            child.setProcessChannelMode(QProcess::SeparateChannels);
            targetprogram::start(child, targetprogram::path(QStringLiteral(PANEL_SETTINGS_WRITER)));
            QVERIFY2(child.waitForStarted(5000), qPrintable(child.errorString()));
            killedPids << QString::number(child.processId());
            QElapsedTimer start;
            start.start();
            // At least one complete round, then a kill somewhere in the next few.
            QVERIFY(child.waitForReadyRead(40000));
            longestStart = qMax(longestStart, start.elapsed());
            stalls += start.elapsed() > 1000 ? 1 : 0;
            usleep(useconds_t(rng.bounded(8000)));
            child.kill();
            QVERIFY(child.waitForFinished(5000));
            QCOMPARE(child.exitStatus(), QProcess::CrashExit);
            const qint64 complete = child.readAllStandardOutput().count('.');
            QVERIFY(complete >= 1);
            rounds += complete;

            // The last complete round, and the one under way at the kill.
            const int done = int((complete - 1) % 2);
            const int next = 1 - done;
            const int interfaces = roundOf(_root.readFile(InterfacesPath), _interfaces);
            const int levels = roundOf(_root.readFile(ButtonLevelPath), _levels);
            const QByteArray launcher = _root.readFile(LauncherPath);
            int font = -1, psu = -1;
            for (int f = 0; f < 2; ++f)
                for (int p = 0; p < 2; ++p)
                    if (launcher == _launcher[f][p]) {
                        font = f;
                        psu = p;
                    }
            const QString where = QStringLiteral("cycle %1 after %2 rounds").arg(cycle).arg(complete);
            QVERIFY2(interfaces >= 0,
                     qPrintable(where + ": interfaces file " + _root.readFile(InterfacesPath)));
            QVERIFY2(levels >= 0, qPrintable(where + ": button-level file " + _root.readFile(ButtonLevelPath)));
            QVERIFY2(font >= 0, qPrintable(where + ": launcher configuration " + launcher));
            // Saved in order: a later file holds the round under way only if
            // every file before it does (the launcher's PSU line comes last).
            const int order[4] = {interfaces, levels, font, psu};
            bool reachedOld = false;
            int newer = 0;
            for (int value : order) {
                QVERIFY2(value == done || value == next, qPrintable(where));
                if (value == next) {
                    QVERIFY2(!reachedOld, qPrintable(where + ": files saved out of order"));
                    ++newer;
                } else {
                    reachedOld = true;
                }
            }
            ++landed[newer == 0 ? 0 : newer == 1 ? 1 : 2];
            checkParses(interfaces, levels, font, psu);
            if (QTest::currentTestFailed())
                return;
            ++survived;
        }

        // Stale lock or temporary files left by the kills must not stop a later save.
        settingsrounds::saveAll(round(1));
        QCOMPARE(_root.readFile(InterfacesPath), _interfaces[1]);
        QCOMPARE(_root.readFile(ButtonLevelPath), _levels[1]);
        QCOMPARE(_root.readFile(LauncherPath), _launcher[1][1]);
        const auto filesLeft = [&] {
            return QDir(_root.path() + "/etc/network").entryList(QDir::Files | QDir::Hidden)
                   + QDir(_root.path() + "/etc/kd5820m").entryList(QDir::Files | QDir::Hidden)
                   + QDir(flash).entryList(QDir::Files | QDir::Hidden);
        };
        const int copiesLeft = int(filesLeft().filter(".panel-setup-").size());

        qInfo("writer kill: %d of %d kill cycles survived, %lld complete rounds, kills after "
              "0/1/2+ new files: %d/%d/%d, %d stalled starts (longest first round %lld ms), "
              "%lld ms; copies left beside the files: %d",
              survived, cycles, rounds, landed[0], landed[1], landed[2], stalls, longestStart,
              qint64(clock.elapsed()), copiesLeft);
        for (const char *file : {InterfacesPath, ButtonLevelPath, LauncherPath})
            QCOMPARE(QFileInfo(_root.hostPath(QLatin1String(file))).isSymLink(), symlinked);
        // What the next start removes: the copies of killed saves, nothing else.
        Setup_Panel::recoverInterruptedSaves();
        QStringList files = {"buttonlevel", "interfaces", "launcher.cfg"};
        if (symlinked)
            files += files;
        files.sort();
        QStringList left = filesLeft();
        left.sort();
        QCOMPARE(left, files);
        // And the launcher saves' copies in RAM of the killed children.
        QDir scratch(scratchParent());
        for (const QString &entry : scratch.entryList({"panel-setup-*"}, QDir::Dirs))
            QVERIFY2(!killedPids.contains(entry.section('-', 2, 2)), qPrintable(entry));
        QCOMPARE(survived, cycles);
        // Enough kills hit different moments of a round, not always the same one.
        if (cycles >= 50)
            QVERIFY(landed[0] > 0 && landed[1] + landed[2] > 0);
    }
};

QTEST_GUILESS_MAIN(TestFaultWriterKill)
#include "tst_fault_writer_kill.moc"
