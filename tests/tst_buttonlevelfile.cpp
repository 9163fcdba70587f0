#include "pages/ButtonLevelFile.h"
#include "support/MessageRecorder.h"
#include "support/PermissionBitsEnforced.h"
#include "support/TestRoot.h"

#include <QtTest>

namespace {

const char *const LevelFile = "/etc/kd5820m/buttonlevel";

} // namespace

// Unreadable and read-only files: the tests run as root, which ignores
// permission bits; PermissionBitsEnforced makes the calls meet them.
class TestButtonLevelFile : public QObject
{
    Q_OBJECT

private:
    TestRoot _root;
    QString _dir;
    QString _path;

    void writeFile(const QByteArray &bytes) { QVERIFY(_root.writeFile(LevelFile, bytes)); }
    QByteArray fileContent() const { return _root.readFile(LevelFile); }

    QString quoted(const QString &text) const { return "\"" + text + "\""; }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(_root.install());
        _dir = _root.hostPath("/etc/kd5820m");
        _path = _root.hostPath(LevelFile);
        QCOMPARE(buttonlevelFilePath(), _path);
    }

    void init()
    {
        QFile(_dir).setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QDir(_dir).removeRecursively();
        QVERIFY(QDir().mkpath(_dir));
    }

    void missingFileIsCreatedWithDefaults()
    {
        std::vector<QString> values(2);
        MessageRecorder log;
        QVERIFY(readButtonlevelFile(values));
        QCOMPARE(fileContent(), QByteArray("lcd 100\nscr 100\n"));
        QCOMPARE(values, (std::vector<QString>{"100", "100"}));
        QCOMPARE(log.messages(), (QStringList{"line = \"lcd 100\"", "line = \"scr 100\""}));
    }

    void readsWhatIsThere_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QStringList>("before");
        QTest::addColumn<QStringList>("after");
        QTest::addColumn<QStringList>("logged");
        QTest::newRow("lines in any order")
            << QByteArray("scr 40\nlcd 70\n") << QStringList{"", ""} << QStringList{"70", "40"}
            << QStringList{"line = \"scr 40\"", "line = \"lcd 70\""};
        QTest::newRow("key without value reads empty")
            << QByteArray("lcd\nscr 50\n") << QStringList{"x", "y"} << QStringList{"", "50"}
            << QStringList{"line = \"lcd\"", "line = \"scr 50\""};
        QTest::newRow("missing key leaves its entry")
            << QByteArray("lcd 5\n") << QStringList{"a", "b"} << QStringList{"5", "b"}
            << QStringList{"line = \"lcd 5\""};
        QTest::newRow("empty file reads nothing")
            << QByteArray() << QStringList{"", ""} << QStringList{"", ""} << QStringList();
    }

    void readsWhatIsThere()
    {
        QFETCH(QByteArray, file);
        QFETCH(QStringList, before);
        QFETCH(QStringList, after);
        QFETCH(QStringList, logged);
        writeFile(file);
        std::vector<QString> values(before.begin(), before.end());
        MessageRecorder log;
        QVERIFY(readButtonlevelFile(values));
        QCOMPARE(values, std::vector<QString>(after.begin(), after.end()));
        QCOMPARE(log.messages(), logged);
        QCOMPARE(fileContent(), file); // present, so no defaults
    }

    void laterLineWinsAndOtherLinesAreIgnored()
    {
        writeFile("lcd 10\n   lcd    20\t   \nbrightness 99\n\nLCD 5\nscr\t60\nscr 30 extra\nlcdx 1\n");
        std::vector<QString> values(2);
        MessageRecorder log;
        QVERIFY(readButtonlevelFile(values));
        QCOMPARE(values, (std::vector<QString>{"20", "30"}));
        QCOMPARE(log.messages().size(), 8);
        QCOMPARE(log.messages().at(1), QString("line = \"   lcd    20\t   \""));
        QCOMPARE(log.messages().at(3), QString("line = \"\""));
    }

    void unreadableFileIsReported()
    {
        writeFile("lcd 70\nscr 40\n");
        QVERIFY(QFile(_path).setPermissions(QFileDevice::Permissions()));
        std::vector<QString> values{"a", "b"};
        MessageRecorder log;
        {
            PermissionBitsEnforced enforced;
            QVERIFY(enforced.isActive());
            QVERIFY(!readButtonlevelFile(values));
        }
        QCOMPARE(values, (std::vector<QString>{"a", "b"}));
        QCOMPARE(log.messages(),
                 QStringList{"readButtonlevelFile: Unable to open file " + quoted(_path)});
        QVERIFY(QFile(_path).setPermissions(QFile::ReadOwner | QFile::WriteOwner));
        QCOMPARE(fileContent(), QByteArray("lcd 70\nscr 40\n"));
    }

    void missingDirectoryFailsBothSteps()
    {
        QVERIFY(QDir(_dir).removeRecursively());
        std::vector<QString> values(2);
        MessageRecorder log;
        QVERIFY(!readButtonlevelFile(values));
        QCOMPARE(log.messages(),
                 (QStringList{"writeButtonlevelFile : Unable to open " + quoted(_path),
                              "readButtonlevelFile: Unable to open file " + quoted(_path)}));
        QVERIFY(!QFileInfo::exists(_dir));
        QCOMPARE(values, std::vector<QString>(2));
    }

    void shortValueListIsRefused()
    {
        std::vector<QString> values(1, "keep");
        MessageRecorder log;
        QVERIFY(!readButtonlevelFile(values));
        writeButtonlevelFile(values);
        std::vector<QString> none;
        QVERIFY(!readButtonlevelFile(none));
        writeButtonlevelFile(none);
        QCOMPARE(values, std::vector<QString>(1, "keep"));
        QVERIFY(!QFileInfo::exists(_path));
        QCOMPARE(log.messages(),
                 (QStringList{"readButtonlevelFile: refused a value list of 1 entries",
                              "writeButtonlevelFile : refused a value list of 1 entries",
                              "readButtonlevelFile: refused a value list of 0 entries",
                              "writeButtonlevelFile : refused a value list of 0 entries"}));
    }

    void writesBothLinesExactly()
    {
        MessageRecorder log;
        writeButtonlevelFile({"70", "40"});
        QCOMPARE(fileContent(), QByteArray("lcd 70\nscr 40\n"));
        writeButtonlevelFile({"", ""});
        QCOMPARE(fileContent(), QByteArray("lcd \nscr \n"));
        QCOMPARE(log.messages(), QStringList());
    }

    void writeReplacesLongerContent()
    {
        writeFile("lcd 100\nscr 100\n# a long trailing comment line\n");
        writeButtonlevelFile({"5", "7"});
        QCOMPARE(fileContent(), QByteArray("lcd 5\nscr 7\n"));
    }

    void defaultsWriter()
    {
        writeFile("lcd 1\nscr 2\n");
        writeButtonlevelFileDefaults();
        QCOMPARE(fileContent(), QByteArray("lcd 100\nscr 100\n"));
    }

    void writeIsAtomic()
    {
        writeFile("lcd 1\nscr 2\n");
        // A reader that opened the old file keeps reading it whole: the new
        // content goes to a new file that replaces the old name.
        QFile reader(_path);
        QVERIFY(reader.open(QIODevice::ReadOnly));
        writeButtonlevelFile({"55", "66"});
        QCOMPARE(reader.readAll(), QByteArray("lcd 1\nscr 2\n"));
        QCOMPARE(fileContent(), QByteArray("lcd 55\nscr 66\n"));
        QCOMPARE(QDir(_dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList{"buttonlevel"});
    }

    // A read-only file, or the file in a read-only directory.
    void readOnlyFileIsNotWritten()
    {
        writeFile("lcd 1\nscr 2\n");
        QVERIFY(QFile(_path).setPermissions(QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther));
        MessageRecorder log;
        {
            PermissionBitsEnforced enforced;
            QVERIFY(enforced.isActive());
            writeButtonlevelFile({"55", "66"});
        }
        QCOMPARE(log.messages(),
                 QStringList{"writeButtonlevelFile : Unable to open " + quoted(_path)});
        QCOMPARE(fileContent(), QByteArray("lcd 1\nscr 2\n"));
        QCOMPARE(QDir(_dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList{"buttonlevel"});
    }

    // A writable file in a directory the program cannot write: written in place.
    void writableFileInReadOnlyDirectoryIsWritten()
    {
        writeFile("lcd 1\nscr 2\n");
        QVERIFY(QFile(_dir).setPermissions(QFile::ReadOwner | QFile::ExeOwner));
        MessageRecorder log;
        {
            PermissionBitsEnforced enforced;
            QVERIFY(enforced.isActive());
            writeButtonlevelFile({"55", "66"});
        }
        QVERIFY(QFile(_dir).setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QCOMPARE(log.messages(), QStringList());
        QCOMPARE(fileContent(), QByteArray("lcd 55\nscr 66\n"));
        QCOMPARE(QDir(_dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList{"buttonlevel"});
    }

    void readWritesDefaultsOnlyWhenMissing()
    {
        std::vector<QString> values(2);
        MessageRecorder log;
        QVERIFY(readButtonlevelFile(values));
        writeButtonlevelFile({"70", "40"});
        QVERIFY(readButtonlevelFile(values));
        QCOMPARE(values, (std::vector<QString>{"70", "40"}));
        QCOMPARE(fileContent(), QByteArray("lcd 70\nscr 40\n"));
    }
};

QTEST_GUILESS_MAIN(TestButtonLevelFile)
#include "tst_buttonlevelfile.moc"
