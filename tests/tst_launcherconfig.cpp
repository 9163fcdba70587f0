#include "panel/LauncherConfig.h"
#include "support/PermissionBitsEnforced.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

// Read-only and unreadable files: the tests run as root, which writes a 0444
// file and reads a 0000 one. PermissionBitsEnforced drops the capabilities that
// allow this for the duration of the call, so the routines meet the same
// permission checks as on any non-root account.
class TestLauncherConfig : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir _root;
    QString _path;
    QByteArray _quotedPath;
    int _fileGeneration = 0;

    void writeConfig(const QByteArray &bytes)
    {
        // Removed first: a 0000 file cannot be reopened while permission bits are enforced.
        QFile::remove(_path);
        QFile file(_path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        QCOMPARE(file.write(bytes), qint64(bytes.size()));
        QVERIFY(file.flush());
        // QSettings trusts its cache while size and modification time are unchanged;
        // every file written here gets a time of its own.
        QVERIFY(file.setFileTime(QDateTime::fromSecsSinceEpoch(1000000 + ++_fileGeneration),
                                 QFileDevice::FileModificationTime));
    }

    QByteArray readConfig() const
    {
        QFile file(_path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
    }

    void setMode(QFile::Permissions permissions)
    {
        QVERIFY(QFile::setPermissions(_path, permissions));
    }

    QByteArray message(const char *before, const char *after) const
    {
        return QByteArray(before) + _quotedPath + after;
    }

    void expectReadError() const
    {
        QTest::ignoreMessage(QtDebugMsg, message("Error reading configuration file ' ", " '").constData());
    }

    void expectAccessError() const
    {
        QTest::ignoreMessage(QtDebugMsg, message("Error accessing ' ", " ' for reading").constData());
    }

    void expectGettingPsu() const
    {
        QTest::ignoreMessage(QtDebugMsg, message("Getting PSU mode from file ", "").constData());
    }

    void expectNotWriteable() const
    {
        QTest::ignoreMessage(QtDebugMsg, message("Configuration file ", " is not writeable!!").constData());
    }

    // Everything in the file's directory: the file alone, whatever a save did.
    QStringList directoryEntries() const
    {
        return QDir(_root.path() + "/etc/kd5820m").entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }

    void setDirectoryMode(QFile::Permissions permissions)
    {
        QVERIFY(QFile::setPermissions(_root.path() + "/etc/kd5820m", permissions));
    }

    static void expectButtons(int b1, int b2)
    {
        const QByteArray line = "Using activate buttons: _activate_but1 = " + QByteArray::number(b1)
            + " , _activate_but2 = " + QByteArray::number(b2);
        QTest::ignoreMessage(QtDebugMsg, line.constData());
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(_root.isValid());
        qputenv("PANEL_SETUP_ROOT", _root.path().toLocal8Bit());
        QVERIFY(QDir().mkpath(_root.path() + "/etc/kd5820m"));
        _path = _root.path() + "/etc/kd5820m/launcher.cfg";
        _quotedPath = '"' + _path.toLocal8Bit() + '"';
        QCOMPARE(launcherConfigPath(), _path);
    }

    void init()
    {
        setDirectoryMode(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup
                         | QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther);
        QFile::remove(_path);
    }

    // File absent: defaults and error messages, and nothing creates the file.

    void absentFileGivesDefaultButtons()
    {
        int b1 = 0, b2 = 0;
        expectReadError();
        expectButtons(24, 25);
        readActivateButtons(&b1, &b2);
        QCOMPARE(b1, 24);
        QCOMPARE(b2, 25);
        QVERIFY(!QFile::exists(_path));
    }

    void absentFileLeavesFontUntouched()
    {
        int width = -1, height = -1;
        expectReadError();
        readFontDimensions(&width, &height);
        QCOMPARE(width, -1);
        QCOMPARE(height, -1);
        QVERIFY(!QFile::exists(_path));
    }

    void absentFileSkipsFontWrite()
    {
        QTest::ignoreMessage(QtDebugMsg, message("Configuration file ", " doesn't exist!").constData());
        QTest::ignoreMessage(QtDebugMsg, "Font settings will not be saved!!");
        QCOMPARE(writeFontDimensions(8, 13), -1);
        QVERIFY(!QFile::exists(_path));
    }

    void absentFileGivesPsuModeZero()
    {
        expectGettingPsu();
        expectAccessError();
        QCOMPARE(readPsuMode(), 0);
        QVERIFY(!QFile::exists(_path));
    }

    void absentFileRefusesPsuWrite()
    {
        expectAccessError();
        QCOMPARE(writePsuMode(1), -1);
        QVERIFY(!QFile::exists(_path));
    }

    // Activation keys.

    void buttonsFromFile()
    {
        writeConfig("[setup]\nbutton1=3\nbutton2=17\n");
        int b1 = 0, b2 = 0;
        expectButtons(3, 17);
        readActivateButtons(&b1, &b2);
        QCOMPARE(b1, 3);
        QCOMPARE(b2, 17);
    }

    void buttonsDefaultWhenKeysMissing()
    {
        writeConfig("[setup]\nbutton2=5\n\n[font]\nwidth=8\n");
        int b1 = 0, b2 = 0;
        expectButtons(24, 5);
        readActivateButtons(&b1, &b2);
        QCOMPARE(b1, 24);
        QCOMPARE(b2, 5);
    }

    void buttonsIgnoreNullPointers()
    {
        writeConfig("[setup]\nbutton1=3\nbutton2=17\n");
        int b = 7;
        readActivateButtons(nullptr, &b);
        readActivateButtons(&b, nullptr);
        QCOMPARE(b, 7);
    }

    // Font dimensions.

    void fontFromFile()
    {
        writeConfig("[font]\nwidth=10\nheight=20\n");
        int width = -1, height = -1;
        readFontDimensions(&width, &height);
        QCOMPARE(width, 10);
        QCOMPARE(height, 20);
    }

    void fontGroupAbsentGivesZero()
    {
        writeConfig("[setup]\nbutton1=24\nbutton2=25\n");
        int width = -1, height = -1;
        readFontDimensions(&width, &height);
        QCOMPARE(width, 0);
        QCOMPARE(height, 0);
    }

    void fontIgnoresNullPointers()
    {
        writeConfig("[font]\nwidth=10\nheight=20\n");
        int height = -1;
        readFontDimensions(nullptr, &height);
        QCOMPARE(height, -1);
    }

    void fontWriteKeepsOtherGroups()
    {
        writeConfig("[setup]\nbutton1=3\nbutton2=17\n\n[font]\nwidth=6\nheight=10\n\n[psu]\nredundant=1\n");
        QTest::ignoreMessage(QtDebugMsg,
                             message("Font dimensions set to width = 8 and height = 13 in file ", "").constData());
        QCOMPARE(writeFontDimensions(8, 13), 0);
        // QSettings rewrites the whole file, groups and keys in sorted order.
        QCOMPARE(readConfig(),
                 QByteArray("[font]\nheight=13\nwidth=8\n\n[psu]\nredundant=1\n\n[setup]\nbutton1=3\nbutton2=17\n"));
        int width = -1, height = -1;
        readFontDimensions(&width, &height);
        QCOMPARE(width, 8);
        QCOMPARE(height, 13);
    }

    void fontWriteAddsGroup()
    {
        writeConfig("[setup]\nbutton1=3\nbutton2=17\n");
        QTest::ignoreMessage(QtDebugMsg,
                             message("Font dimensions set to width = 12 and height = 24 in file ", "").constData());
        QCOMPARE(writeFontDimensions(12, 24), 0);
        QCOMPARE(readConfig(), QByteArray("[font]\nheight=24\nwidth=12\n\n[setup]\nbutton1=3\nbutton2=17\n"));
    }

    // PSU mode.

    void psuGroupAbsentAddsKey()
    {
        writeConfig("[setup]\nbutton1=3\nbutton2=17\n");
        expectGettingPsu();
        QTest::ignoreMessage(QtDebugMsg, "Config file doesn't contain the PSU key. Setting it to zero.");
        QCOMPARE(readPsuMode(), 0);
        QCOMPARE(readConfig(), QByteArray("[psu]\nredundant=0\n\n[setup]\nbutton1=3\nbutton2=17\n"));

        expectGettingPsu();
        QTest::ignoreMessage(QtDebugMsg, "Found PSU key.");
        QCOMPARE(readPsuMode(), 0);
    }

    void psuFromFile()
    {
        const QByteArray content = "[psu]\nredundant=1\n\n[setup]\nbutton1=3\n";
        writeConfig(content);
        expectGettingPsu();
        QTest::ignoreMessage(QtDebugMsg, "Found PSU key.");
        QCOMPARE(readPsuMode(), 1);
        QCOMPARE(readConfig(), content);
    }

    void psuWriteKeepsOtherGroups()
    {
        writeConfig("[setup]\nbutton1=3\nbutton2=17\n\n[psu]\nredundant=0\n\n[font]\nwidth=8\nheight=13\n");
        QCOMPARE(writePsuMode(1), 0);
        QCOMPARE(readConfig(),
                 QByteArray("[font]\nheight=13\nwidth=8\n\n[psu]\nredundant=1\n\n[setup]\nbutton1=3\nbutton2=17\n"));
        expectGettingPsu();
        QTest::ignoreMessage(QtDebugMsg, "Found PSU key.");
        QCOMPARE(readPsuMode(), 1);
    }

    // Read-only file: the write routines refuse and leave it as it was.

    void readOnlyFileRefusesFontWrite()
    {
        const QByteArray content = "[font]\nwidth=6\nheight=10\n";
        writeConfig(content);
        setMode(QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther);
        {
            PermissionBitsEnforced enforced;
            QVERIFY(enforced.isActive());
            expectNotWriteable();
            QCOMPARE(writeFontDimensions(8, 13), 2);
        }
        QCOMPARE(readConfig(), content);
    }

    void readOnlyFileRefusesPsuWrite()
    {
        const QByteArray content = "[psu]\nredundant=0\n";
        writeConfig(content);
        setMode(QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther);
        {
            PermissionBitsEnforced enforced;
            QVERIFY(enforced.isActive());
            expectNotWriteable();
            QCOMPARE(writePsuMode(1), -1);
        }
        QCOMPARE(readConfig(), content);
    }

    void readOnlyFileWithoutPsuKeyStaysAsItIs()
    {
        const QByteArray content = "[setup]\nbutton1=3\nbutton2=17\n";
        writeConfig(content);
        setMode(QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther);
        {
            PermissionBitsEnforced enforced;
            QVERIFY(enforced.isActive());
            expectGettingPsu();
            QTest::ignoreMessage(QtDebugMsg, "Config file doesn't contain the PSU key. Setting it to zero.");
            QCOMPARE(readPsuMode(), 0);
        }
        QCOMPARE(readConfig(), content);
        QCOMPARE(directoryEntries(), QStringList("launcher.cfg"));
    }

    void readOnlyFileIsStillRead()
    {
        writeConfig("[setup]\nbutton1=3\nbutton2=17\n\n[font]\nwidth=6\nheight=10\n\n[psu]\nredundant=1\n");
        setMode(QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther);
        PermissionBitsEnforced enforced;
        QVERIFY(enforced.isActive());
        int b1 = 0, b2 = 0, width = -1, height = -1;
        expectButtons(3, 17);
        readActivateButtons(&b1, &b2);
        readFontDimensions(&width, &height);
        QCOMPARE(width, 6);
        QCOMPARE(height, 10);
        expectGettingPsu();
        QTest::ignoreMessage(QtDebugMsg, "Found PSU key.");
        QCOMPARE(readPsuMode(), 1);
    }

    // A writable file in a directory the program cannot write (a bind mount,
    // a read-only root): every save writes it in place.
    void unwritableDirectorySavesInPlace()
    {
        writeConfig("[font]\nheight=10\nwidth=6\n\n[setup]\nbutton1=3\nbutton2=17\n");
        setDirectoryMode(QFile::ReadOwner | QFile::ExeOwner | QFile::ReadGroup | QFile::ExeGroup
                         | QFile::ReadOther | QFile::ExeOther);
        {
            PermissionBitsEnforced enforced;
            QVERIFY(enforced.isActive());
            expectGettingPsu();
            QTest::ignoreMessage(QtDebugMsg, "Config file doesn't contain the PSU key. Setting it to zero.");
            QCOMPARE(readPsuMode(), 0);
            QTest::ignoreMessage(QtDebugMsg,
                                 message("Font dimensions set to width = 8 and height = 13 in file ", "").constData());
            QCOMPARE(writeFontDimensions(8, 13), 0);
            QCOMPARE(writePsuMode(1), 0);
        }
        setDirectoryMode(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QCOMPARE(readConfig(),
                 QByteArray("[font]\nheight=13\nwidth=8\n\n[psu]\nredundant=1\n\n[setup]\nbutton1=3\nbutton2=17\n"));
        QCOMPARE(directoryEntries(), QStringList("launcher.cfg"));
    }

    void saveKeepsModeAndLeavesNothingBeside()
    {
        writeConfig("[setup]\nbutton1=3\nbutton2=17\n");
        const QFile::Permissions mode = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup;
        setMode(mode);
        QTest::ignoreMessage(QtDebugMsg,
                             message("Font dimensions set to width = 8 and height = 13 in file ", "").constData());
        QCOMPARE(writeFontDimensions(8, 13), 0);
        QCOMPARE(writePsuMode(1), 0);
        QCOMPARE(readConfig(),
                 QByteArray("[font]\nheight=13\nwidth=8\n\n[psu]\nredundant=1\n\n[setup]\nbutton1=3\nbutton2=17\n"));
        QCOMPARE(QFile::permissions(_path) & ~(QFile::ReadUser | QFile::WriteUser), mode);
        QCOMPARE(directoryEntries(), QStringList("launcher.cfg"));
    }

    // Unreadable file: the error paths of the readers, and 1 from the font writer.

    void unreadableFile()
    {
        PermissionBitsEnforced enforced;
        QVERIFY(enforced.isActive());
        const QByteArray content = "[setup]\nbutton1=3\nbutton2=17\n\n[font]\nwidth=6\nheight=10\n\n[psu]\nredundant=1\n";

        writeConfig(content);
        setMode({});
        int b1 = 0, b2 = 0;
        expectReadError();
        expectButtons(24, 25);
        readActivateButtons(&b1, &b2);
        QCOMPARE(b1, 24);
        QCOMPARE(b2, 25);

        writeConfig(content);
        setMode({});
        int width = -1, height = -1;
        expectReadError();
        readFontDimensions(&width, &height);
        QCOMPARE(width, -1);
        QCOMPARE(height, -1);

        writeConfig(content);
        setMode({});
        expectReadError();
        QCOMPARE(writeFontDimensions(8, 13), 1);

        writeConfig(content);
        setMode({});
        expectGettingPsu();
        expectAccessError();
        QCOMPARE(readPsuMode(), 0);

        writeConfig(content);
        setMode({});
        expectAccessError();
        QCOMPARE(writePsuMode(0), -1);

        setMode(QFile::ReadOwner);
        QCOMPARE(readConfig(), content);
    }
};

QTEST_GUILESS_MAIN(TestLauncherConfig)
#include "tst_launcherconfig.moc"
