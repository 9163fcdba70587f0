#include "pages/ButtonLevelFile.h"
#include "support/MessageRecorder.h"
#include "support/PermissionBitsEnforced.h"

#include <QtTest>

// Unreadable and read-only files: the tests run as root, which ignores
// permission bits; PermissionBitsEnforced makes the calls meet them.
class TestButtonLevelFile : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir _root;
    QString _dir;
    QString _path;

    void writeFile(const QByteArray &bytes)
    {
        QFile::remove(_path);
        QFile file(_path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(bytes), qint64(bytes.size()));
    }

    QByteArray fileContent() const
    {
        QFile file(_path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
    }

    QString quoted(const QString &text) const { return "\"" + text + "\""; }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(_root.isValid());
        qputenv("PANEL_SETUP_ROOT", _root.path().toLocal8Bit());
        _dir = _root.path() + "/etc/kd5820m";
        _path = _dir + "/buttonlevel";
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

    void linesInAnyOrder()
    {
        writeFile("scr 40\nlcd 70\n");
        std::vector<QString> values(2);
        MessageRecorder log;
        QVERIFY(readButtonlevelFile(values));
        QCOMPARE(values, (std::vector<QString>{"70", "40"}));
        QCOMPARE(log.messages(), (QStringList{"line = \"scr 40\"", "line = \"lcd 70\""}));
        QCOMPARE(fileContent(), QByteArray("scr 40\nlcd 70\n"));
    }

    void laterLineWinsAndOtherLinesAreIgnored()
    {
        writeFile("lcd 10\n   lcd    20\t   \nbrightness 99\n\nLCD 5\nscr\t60\nscr 30 extra\nlcdx 1\n");
        std::vector<QString> values(2);
        MessageRecorder log;
        QVERIFY(readButtonlevelFile(values));
        QCOMPARE(values, (std::vector<QString>{"20", "30"}));
        QCOMPARE(log.messages().size(), 8);
        QCOMPARE(log.messages().at(1), QString("line = \"   lcd    20\\t   \""));
        QCOMPARE(log.messages().at(3), QString("line = \"\""));
    }

    void keyWithoutValueReadsEmpty()
    {
        writeFile("lcd\nscr 50\n");
        std::vector<QString> values{"x", "y"};
        MessageRecorder log;
        QVERIFY(readButtonlevelFile(values));
        QCOMPARE(values, (std::vector<QString>{"", "50"}));
    }

    void missingKeyLeavesItsEntry()
    {
        writeFile("lcd 5\n");
        std::vector<QString> values{"a", "b"};
        MessageRecorder log;
        QVERIFY(readButtonlevelFile(values));
        QCOMPARE(values, (std::vector<QString>{"5", "b"}));
    }

    void emptyFileReadsNothing()
    {
        writeFile("");
        std::vector<QString> values(2);
        MessageRecorder log;
        QVERIFY(readButtonlevelFile(values));
        QCOMPARE(values, std::vector<QString>(2));
        QCOMPARE(log.messages(), QStringList());
        QCOMPARE(fileContent(), QByteArray()); // present, so no defaults
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
    }

    void readOnlyDirectoryIsNotWritten()
    {
        writeFile("lcd 1\nscr 2\n");
        QVERIFY(QFile(_dir).setPermissions(QFile::ReadOwner | QFile::ExeOwner));
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
