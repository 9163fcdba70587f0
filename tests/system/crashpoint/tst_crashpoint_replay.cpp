// crashpoint-replay on logs that the test writes itself in the kernel's
// dm-log-writes format: the listing, the marks, and the exact bytes of the
// image after each entry, replayed at once and entry by entry. And the
// states that crashpoint-sweep checks for a log.
#include "LogWrites.h"
#include "ReplayCommand.h"
#include "SweepPlan.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

namespace {

QByteArray little(quint64 value, int bytes)
{
    QByteArray out;
    for (int i = 0; i < bytes; ++i)
        out += char((value >> (8 * i)) & 0xff);
    return out;
}

// A log as the kernel lays it out: the super block in sector 0, then for
// each entry a header sector followed by the written sectors.
class LogBuilder
{
public:
    explicit LogBuilder(int sectorSize) : _sectorSize(sectorSize) {}

    void write(quint64 sector, const QByteArray &data, quint64 flags = 0)
    {
        Q_ASSERT(data.size() % _sectorSize == 0);
        add(sector, quint64(data.size() / _sectorSize), flags, QByteArray(), data);
    }
    void discard(quint64 sector, quint64 sectors) { add(sector, sectors, logwrites::Discard, {}, {}); }
    void flush() { add(0, 0, logwrites::Flush, {}, {}); }
    void mark(const QByteArray &text) { add(0, 0, logwrites::Mark, text, {}); }
    // An entry the replay does not know how to place: inline data.
    void inlineData(const QByteArray &data) { add(0, 1, 0, data, {}); }

    // superEntries: what the super block says, when it is not the truth.
    QByteArray bytes(qint64 superEntries = -1, quint64 magic = logwrites::Magic, quint64 version = 1) const
    {
        QByteArray super = little(magic, 8) + little(version, 8)
                           + little(quint64(superEntries < 0 ? _entries : superEntries), 8)
                           + little(quint64(_sectorSize), 4);
        return padded(super) + _body;
    }

private:
    QByteArray padded(QByteArray bytes) const
    {
        bytes.append(QByteArray(_sectorSize - bytes.size(), '\0'));
        return bytes;
    }

    void add(quint64 sector, quint64 sectors, quint64 flags, const QByteArray &headerData, const QByteArray &data)
    {
        _body += padded(little(sector, 8) + little(sectors, 8) + little(flags, 8)
                        + little(quint64(headerData.size()), 8) + headerData);
        _body += data;
        ++_entries;
    }

    int _sectorSize;
    int _entries = 0;
    QByteArray _body;
};

QByteArray sectors(const char *fills, int sectorSize)
{
    QByteArray out;
    for (const char *c = fills; *c; ++c)
        out += QByteArray(sectorSize, *c == '0' ? '\0' : *c);
    return out;
}

struct Run
{
    int status;
    QByteArray out;
    QByteArray err;
};

Run run(const QStringList &args)
{
    std::vector<std::string> argv;
    for (const QString &arg : args)
        argv.push_back(arg.toStdString());
    std::string out, err;
    const int status = logwrites::runReplayCommand(argv, &out, &err);
    return {status, QByteArray::fromStdString(out), QByteArray::fromStdString(err)};
}

logwrites::Entry entry(quint64 index, quint64 sectors, quint64 flags, const char *mark = "")
{
    logwrites::Entry e;
    e.index = index;
    e.sector = 8 * index;
    e.sectors = sectors;
    e.flags = flags;
    e.mark = mark;
    return e;
}

QString planText(const std::vector<logwrites::PlannedState> &plan)
{
    QStringList states;
    for (const logwrites::PlannedState &state : plan)
        states << QStringLiteral("%1@%2%3").arg(state.entry).arg(state.mark).arg(state.lastBeforeMark ? "*" : "");
    return states.join(' ');
}

} // namespace

class TestCrashpointReplay : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir _dir;

    QString writeFile(const QString &name, const QByteArray &bytes)
    {
        const QString path = _dir.filePath(name);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
            return QString();
        return path;
    }

    QByteArray readFile(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(unreadable)");
    }

    // Six entries over an 8-sector disk.
    static LogBuilder sampleLog(int sectorSize)
    {
        LogBuilder log(sectorSize);
        log.write(1, sectors("AA", sectorSize));                      // 0
        log.write(2, sectors("B", sectorSize), logwrites::Metadata); // 1
        log.flush();                                                  // 2
        log.mark("saved");                                            // 3
        log.discard(0, 2);                                            // 4
        log.write(7, sectors("C", sectorSize), logwrites::Fua);      // 5
        return log;
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(_dir.isValid()); }

    void infoAndList()
    {
        const QString log = writeFile("sample.log", sampleLog(512).bytes());
        Run r = run({"info", log});
        QCOMPARE(r.status, 0);
        QCOMPARE(r.out, QByteArray("entries 6\nsector size 512\n"));
        r = run({"list", log});
        QCOMPARE(r.status, 0);
        QCOMPARE(r.out, QByteArray("0 1 2 -\n"
                                   "1 2 1 METADATA\n"
                                   "2 0 0 FLUSH\n"
                                   "3 0 0 MARK saved\n"
                                   "4 0 2 DISCARD\n"
                                   "5 7 1 FUA\n"));
        QCOMPARE(r.err, QByteArray());
    }

    void flagNames()
    {
        QCOMPARE(QString::fromStdString(logwrites::flagNames(0)), QStringLiteral("-"));
        QCOMPARE(QString::fromStdString(logwrites::flagNames(logwrites::Flush | logwrites::Fua | logwrites::Metadata)),
                 QStringLiteral("FLUSH|FUA|METADATA"));
        QCOMPARE(QString::fromStdString(logwrites::flagNames(logwrites::Mark | 0x40)), QStringLiteral("MARK|0x40"));
    }

    void findMark()
    {
        LogBuilder builder(512);
        builder.mark("start");
        builder.write(0, sectors("A", 512));
        builder.mark("saved");
        builder.mark("saved");
        const QString log = writeFile("marks.log", builder.bytes());
        Run r = run({"find", log, "saved"});
        QCOMPARE(r.status, 0);
        QCOMPARE(r.out, QByteArray("2\n"));
        QCOMPARE(run({"find", log, "start"}).out, QByteArray("0\n"));
        r = run({"find", log, "sav"});
        QCOMPARE(r.status, 1);
        QCOMPARE(r.out, QByteArray());
        QCOMPARE(r.err, QByteArray("crashpoint-replay: no mark \"sav\"\n"));
    }

    void replayUpToEachEntry_data()
    {
        QTest::addColumn<int>("sectorSize");
        QTest::addColumn<int>("to");
        QTest::addColumn<QByteArray>("image");
        // The disk starts as eight sectors of 'E'.
        for (int sectorSize : {512, 4096}) {
            const char *const images[] = {"EAAEEEEE", "EABEEEEE", "EABEEEEE", "EABEEEEE", "00BEEEEE", "00BEEEEC"};
            for (int to = 0; to < 6; ++to)
                QTest::addRow("%d-byte sectors, up to entry %d", sectorSize, to)
                    << sectorSize << to << sectors(images[to], sectorSize);
        }
    }

    void replayUpToEachEntry()
    {
        QFETCH(int, sectorSize);
        QFETCH(int, to);
        QFETCH(QByteArray, image);
        const QString log = writeFile("sample.log", sampleLog(sectorSize).bytes());
        const QString target = writeFile("disk.img", sectors("EEEEEEEE", sectorSize));
        const Run r = run({"replay", log, target, "--to", QString::number(to)});
        QCOMPARE(r.err, QByteArray());
        QCOMPARE(r.status, 0);
        QCOMPARE(r.out, QByteArray());
        QCOMPARE(readFile(target), image);
    }

    // A sweep: each entry applied once onto the state before it.
    void replayEntryByEntry()
    {
        const QString log = writeFile("sample.log", sampleLog(512).bytes());
        const QString target = writeFile("disk.img", sectors("EEEEEEEE", 512));
        QCOMPARE(run({"replay", log, target, "--to", "1"}).status, 0);
        QCOMPARE(readFile(target), sectors("EABEEEEE", 512));
        QCOMPARE(run({"replay", log, target, "--from", "2", "--to", "4"}).status, 0);
        QCOMPARE(readFile(target), sectors("00BEEEEE", 512));
        QCOMPARE(run({"replay", log, target, "--from", "5", "--to", "5"}).status, 0);
        QCOMPARE(readFile(target), sectors("00BEEEEC", 512));

        // Entries before --from are not applied again.
        const QString other = writeFile("other.img", sectors("EEEEEEEE", 512));
        QCOMPARE(run({"replay", log, other, "--from", "1", "--to", "1"}).status, 0);
        QCOMPARE(readFile(other), sectors("EEBEEEEE", 512));
    }

    // A later write over an earlier one, and a discard of part of a write.
    void laterEntriesWin()
    {
        LogBuilder builder(512);
        builder.write(0, sectors("AAAA", 512));
        builder.write(1, sectors("BB", 512));
        builder.discard(2, 1);
        builder.write(2, QByteArray(256, 'x') + QByteArray(256, 'y'));
        const QString log = writeFile("overwrite.log", builder.bytes());
        const QString target = writeFile("disk.img", sectors("EEEE", 512));
        QCOMPARE(run({"replay", log, target, "--to", "2"}).status, 0);
        QCOMPARE(readFile(target), sectors("AB0A", 512));
        QCOMPARE(run({"replay", log, target, "--from", "3", "--to", "3"}).status, 0);
        QCOMPARE(readFile(target), sectors("AB", 512) + QByteArray(256, 'x') + QByteArray(256, 'y') + sectors("A", 512));
    }

    // The super block counts the entries; what was written after its last
    // update is not part of the log.
    void superBlockCountsEntries()
    {
        const QString log = writeFile("short.log", sampleLog(512).bytes(2));
        QCOMPARE(run({"list", log}).out, QByteArray("0 1 2 -\n1 2 1 METADATA\n"));
        const QString target = writeFile("disk.img", sectors("EEEEEEEE", 512));
        const Run r = run({"replay", log, target, "--to", "5"});
        QCOMPARE(r.status, 1);
        QCOMPARE(r.err, QByteArray("crashpoint-replay: entry 5 is past the end of the log (2 entries)\n"));
        QCOMPARE(readFile(target), sectors("EEEEEEEE", 512));
    }

    void refusals_data()
    {
        QTest::addColumn<QByteArray>("log");
        QTest::addColumn<QStringList>("args"); // after the log and the target
        QTest::addColumn<QByteArray>("error");
        const QByteArray sample = sampleLog(512).bytes();
        QTest::newRow("wrong magic") << sampleLog(512).bytes(-1, 0x6a736677736873ULL) << QStringList{"--to", "0"}
                                     << QByteArray("LOG: not a dm-log-writes log (wrong magic)");
        QTest::newRow("version 2") << sampleLog(512).bytes(-1, logwrites::Magic, 2) << QStringList{"--to", "0"}
                                   << QByteArray("LOG: log version 2, only 1 is known");
        QTest::newRow("no super block") << QByteArray(10, 'x') << QStringList{"--to", "0"}
                                        << QByteArray("LOG: no super block: the log ends at byte 10");
        // Entry 5's data is cut off after 100 of its 512 bytes.
        QTest::newRow("data cut off") << sample.left(sample.size() - 412) << QStringList{"--to", "5"}
                                      << QByteArray("entry 5: the log ends at byte 5220, within its 512 bytes of data");
        QTest::newRow("--from after --to") << sample << QStringList{"--from", "3", "--to", "2"}
                                           << QByteArray("--from 3 is after --to 2");
        LogBuilder far(512);
        far.write(8, sectors("A", 512));
        QTest::newRow("past the end of the target")
            << far.bytes() << QStringList{"--to", "0"}
            << QByteArray("entry 0 changes bytes 4096 to 4608, past the end of the target (4096 bytes)");
        LogBuilder dax(512);
        dax.inlineData("abc");
        QTest::newRow("inline data") << dax.bytes() << QStringList{"--to", "0"}
                                     << QByteArray("entry 0: inline data (3 bytes) is not supported");
    }

    void refusals()
    {
        QFETCH(QByteArray, log);
        QFETCH(QStringList, args);
        QFETCH(QByteArray, error);
        const QString logPath = writeFile("bad.log", log);
        const QString target = writeFile("disk.img", sectors("EEEEEEEE", 512));
        const Run r = run(QStringList{"replay", logPath, target} + args);
        QCOMPARE(r.status, 1);
        QCOMPARE(r.err, "crashpoint-replay: " + QByteArray(error).replace("LOG", logPath.toLocal8Bit()) + '\n');
        QCOMPARE(r.out, QByteArray());
    }

    void badCommandLines_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::newRow("nothing") << QStringList();
        QTest::newRow("unknown command") << QStringList{"dump", "LOG"};
        QTest::newRow("replay without --to") << QStringList{"replay", "LOG", "IMG", "--from", "1"};
        QTest::newRow("negative index") << QStringList{"replay", "LOG", "IMG", "--to", "-1"};
        QTest::newRow("index with a tail") << QStringList{"replay", "LOG", "IMG", "--to", "3x"};
        QTest::newRow("two --to") << QStringList{"replay", "LOG", "IMG", "--to", "1", "--to", "2"};
        QTest::newRow("find without a mark") << QStringList{"find", "LOG"};
    }

    void badCommandLines()
    {
        QFETCH(QStringList, args);
        const Run r = run(args);
        QCOMPARE(r.status, 2);
        QVERIFY(r.err.startsWith("usage: crashpoint-replay info LOG\n"));
        QCOMPARE(r.out, QByteArray());
    }

    // The states of a sweep: from the first mark on, one after each entry that
    // changes the disk, each with the operation under way (the last mark
    // before it); the last before each mark (*) is where that operation ended.
    void plannedStates()
    {
        using namespace logwrites;
        const std::vector<Entry> entries = {
            entry(0, 2, 0),                   // before the start: not a state
            entry(1, 0, Mark, "start"),       // the first state
            entry(2, 1, Metadata),            //
            entry(3, 0, Flush),               // changes nothing
            entry(4, 4, 0),                   // ends "take-over"
            entry(5, 0, Mark, "take-over"),   //
            entry(6, 0, Mark, "font"),        // nothing written for it
            entry(7, 2, Discard),             //
            entry(8, 1, Fua),                 // ends "end"
            entry(9, 0, Mark, "end"),         //
            entry(10, 0, Flush),              //
            entry(11, 0, Mark, EndMark),      // the kernel's own
        };
        std::vector<PlannedState> plan;
        std::string error;
        QVERIFY(planStates(entries, {"start", "take-over", "font", "end"}, &plan, &error));
        QCOMPARE(planText(plan), QStringLiteral("1@0 2@0 4@0* 7@2 8@2*"));
        QCOMPARE(QString::fromStdString(error), QString());

        // Nothing written after the last mark: the state at it is the last.
        QVERIFY(planStates({entry(0, 0, Mark, "start"), entry(1, 1, 0), entry(2, 0, Mark, "end")}, {"start", "end"},
                           &plan, &error));
        QCOMPARE(planText(plan), QStringLiteral("0@0 1@0*"));
    }

    void plannedStatesNeedTheRecordedMarks_data()
    {
        QTest::addColumn<QStringList>("marks");
        QTest::addColumn<QString>("error");
        QTest::newRow("another order") << QStringList{"b", "a"} << "entry 1 is the mark \"a\", expected \"b\"";
        QTest::newRow("one missing") << QStringList{"a", "b", "c"} << "the log holds 2 of the 3 recorded marks";
        QTest::newRow("one more in the log") << QStringList{"a"} << "entry 3 is the mark \"b\", expected none";
    }

    void plannedStatesNeedTheRecordedMarks()
    {
        QFETCH(QStringList, marks);
        QFETCH(QString, error);
        std::vector<std::string> recorded;
        for (const QString &mark : marks)
            recorded.push_back(mark.toStdString());
        using namespace logwrites;
        std::vector<PlannedState> plan;
        std::string why;
        QVERIFY(!planStates({entry(0, 1, 0), entry(1, 0, Mark, "a"), entry(2, 1, 0), entry(3, 0, Mark, "b")},
                            recorded, &plan, &why));
        QCOMPARE(QString::fromStdString(why), error);
    }
};

QTEST_GUILESS_MAIN(TestCrashpointReplay)
#include "tst_crashpoint_replay.moc"
