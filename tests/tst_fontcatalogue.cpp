#include "pages/FontCatalogue.h"
#include "base/RuntimeEnv.h"
#include "support/MessageRecorder.h"
#include "support/RecordingCallback.h"
#include "support/StdoutCapture.h"
#include "support/TestRoot.h"

#include <QtTest>

class TestFontCatalogue : public QObject
{
    Q_OBJECT

private:
    TestRoot _root;

    QString fontDir() const { return _root.hostPath("/opt/kd5820m/fonts"); }

    // Scans into fresh containers; returns the log and fills names and info.
    QStringList scan(QStringList *names, QMap<QString, QString> *info)
    {
        MessageRecorder log;
        fontcatalogue::scanFonts(names, info);
        return log.messages();
    }

    // Runs a lookup with the callback reporting width x height; returns the
    // printed lines and puts the log into *log.
    QByteArray lookup(const QStringList &names, int width, int height, int *index,
                      QStringList *log)
    {
        RecordingCallback cb;
        cb.setFontDimensions(width, height);
        MessageRecorder recorder;
        QByteArray printed;
        {
            StdoutCapture out;
            fontcatalogue::lookupFontIndex(&cb, names, index);
            printed = out.text();
        }
        *log = recorder.messages();
        return printed;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(_root.install());
        QCOMPARE(fontcatalogue::fontDirectory(), fontDir());
    }

    void init() { QDir(_root.path() + "/opt").removeRecursively(); }

    void listsByWidthNotByText()
    {
        QVERIFY(_root.writeFonts({"10x20.pcf.gz", "6x13.pcf.gz", "8x13.pcf.gz"}));
        QStringList names;
        QMap<QString, QString> info;
        const QStringList log = scan(&names, &info);
        QCOMPARE(names, (QStringList{"6x13", "8x13", "10x20"}));
        QCOMPARE(info.size(), 3);
        QCOMPARE(info.value("6x13"), fontDir() + "/6x13.pcf.gz");
        QCOMPARE(info.value("8x13"), fontDir() + "/8x13.pcf.gz");
        QCOMPARE(info.value("10x20"), fontDir() + "/10x20.pcf.gz");
        QCOMPARE(log, (QStringList{
                          "Num fonts = 0",
                          "Fonts available:  (\"6x13.pcf.gz\", \"8x13.pcf.gz\", \"10x20.pcf.gz\")",
                          "Added font ' \"6x13\" ' to _font_info",
                          "Added font ' \"8x13\" ' to _font_info",
                          "Added font ' \"10x20\" ' to _font_info",
                      }));
    }

    void onlyFontFilesAreListed()
    {
        QVERIFY(_root.writeFonts({"8x13.pcf.gz", "9x15.pcf", "README", "12x24.bdf.gz", "7x14.pcf.gz.bak"}));
        QVERIFY(QDir().mkpath(fontDir() + "/5x7.pcf.gz")); // a directory, not a font
        QStringList names;
        QMap<QString, QString> info;
        scan(&names, &info);
        QCOMPARE(names, QStringList{"8x13"});
        QCOMPARE(info.keys(), QStringList{"8x13"});
    }

    // As a QDir name filter did: the suffix in any case, hidden files left out.
    void suffixIgnoresCaseAndHiddenFilesAreLeftOut()
    {
        QVERIFY(_root.writeFonts({"6X13.PCF.GZ", "8x13.Pcf.Gz", ".10x20.pcf.gz", "9x15.pcf.gzip", "7x14pcf.gz"}));
        QStringList names;
        QMap<QString, QString> info;
        scan(&names, &info);
        QCOMPARE(names, QStringList({"6X13", "8x13"}));
        QCOMPARE(info.value("6X13"), fontDir() + "/6X13.PCF.GZ");
    }

    void sameWidthKeepsNameOrder()
    {
        QVERIFY(_root.writeFonts({"6x9.pcf.gz", "6x13.pcf.gz", "5x8.pcf.gz", "6x10.pcf.gz", "12x24.pcf.gz"}));
        QStringList names;
        QMap<QString, QString> info;
        scan(&names, &info);
        QCOMPARE(names, (QStringList{"5x8", "6x10", "6x13", "6x9", "12x24"}));
    }

    void nameWithoutWidthSortsFirst()
    {
        QVERIFY(_root.writeFonts({"8x13.pcf.gz", "fixed.pcf.gz", "10x20.pcf.gz"}));
        QStringList names;
        QMap<QString, QString> info;
        scan(&names, &info);
        QCOMPARE(names, (QStringList{"fixed", "8x13", "10x20"}));
        QCOMPARE(info.value("fixed"), fontDir() + "/fixed.pcf.gz");
    }

    void emptyOrMissingDirectoryGivesEmptyList_data()
    {
        QTest::addColumn<bool>("keepDirectory");
        QTest::newRow("empty") << true;
        QTest::newRow("missing") << false;
    }

    void emptyOrMissingDirectoryGivesEmptyList()
    {
        QFETCH(bool, keepDirectory);
        if (keepDirectory)
            QVERIFY(QDir().mkpath(fontDir()));
        else
            QVERIFY(!QFileInfo::exists(fontDir()));
        QStringList names;
        QMap<QString, QString> info;
        const QStringList log = scan(&names, &info);
        QVERIFY(names.isEmpty());
        QVERIFY(info.isEmpty());
        QCOMPARE(log, (QStringList{"Num fonts = 0", "Fonts available:  ()"}));
    }

    void filledListIsNotScannedAgain()
    {
        QVERIFY(_root.writeFonts({"8x13.pcf.gz"}));
        QStringList names;
        QMap<QString, QString> info;
        scan(&names, &info);
        QVERIFY(_root.writeFonts({"6x10.pcf.gz"}));
        const QStringList log = scan(&names, &info);
        QCOMPARE(log, QStringList());
        QCOMPARE(names, QStringList{"8x13"});
        QCOMPARE(info.size(), 1);
    }

    void nullContainersAreRefused()
    {
        QVERIFY(_root.writeFonts({"8x13.pcf.gz"}));
        QStringList names;
        QMap<QString, QString> info;
        QCOMPARE(scan(nullptr, &info), QStringList());
        QCOMPARE(scan(&names, nullptr), QStringList());
        QVERIFY(names.isEmpty());
        QVERIFY(info.isEmpty());
    }

    void lookupFindsTheFontInUse()
    {
        int index = -1;
        QStringList log;
        const QByteArray printed = lookup({"6x13", "8x13", "10x20"}, 8, 13, &index, &log);
        QCOMPARE(index, 1);
        QCOMPARE(printed, QByteArray("_font_names.at(0) = 6x13.\n"
                                     "_font_names.at(1) = 8x13.\n"
                                     "Index for key '8x13' is 1\n"));
        QCOMPARE(log, QStringList{"Searching for index for font key ' \"8x13\""});
    }

    void lookupWithoutMatchKeepsTheIndex()
    {
        int index = -1;
        QStringList log;
        const QByteArray printed = lookup({"6x13", "8x13", "10x20"}, 7, 14, &index, &log);
        QCOMPARE(index, -1);
        QCOMPARE(printed, QByteArray("_font_names.at(0) = 6x13.\n"
                                     "_font_names.at(1) = 8x13.\n"
                                     "_font_names.at(2) = 10x20.\n"));
        QCOMPARE(log, (QStringList{"Searching for index for font key ' \"7x14\"",
                                   "Couldn't find match for font key ' \"7x14\""}));

        index = 2;
        lookup({"6x13", "8x13", "10x20"}, 7, 14, &index, &log);
        QCOMPARE(index, 2);
    }

    void lookupIsCaseSensitiveAndExact()
    {
        int index = -1;
        QStringList log;
        lookup({"8X13", "8x130", "8x13b"}, 8, 13, &index, &log);
        QCOMPARE(index, -1);
    }

    void lookupInEmptyListFindsNothing()
    {
        int index = -1;
        QStringList log;
        QCOMPARE(lookup({}, 8, 13, &index, &log), QByteArray());
        QCOMPARE(index, -1);
        QCOMPARE(log.last(), QString("Couldn't find match for font key ' \"8x13\""));
    }

    void lookupWithoutCallbackUsesZeroByZero()
    {
        int index = -1;
        MessageRecorder log;
        {
            StdoutCapture out;
            fontcatalogue::lookupFontIndex(nullptr, {"8x13", "0x0"}, &index);
        }
        QCOMPARE(index, 1);
        QCOMPARE(log.messages().first(), QString("Searching for index for font key ' \"0x0\""));
        fontcatalogue::lookupFontIndex(nullptr, {"8x13"}, nullptr); // refused quietly
    }

    void parsesFontDimensions_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("height");
        QTest::newRow("8x13") << "8x13" << 8 << 13;
        QTest::newRow("10x20") << "10x20" << 10 << 20;
        QTest::newRow("no x") << "fixed" << 0 << 0;
        QTest::newRow("no height") << "12x" << 12 << 0;
        QTest::newRow("no width") << "x9" << 0 << 9;
        QTest::newRow("words") << "axb" << 0 << 0;
        QTest::newRow("empty") << "" << 0 << 0;
    }

    void parsesFontDimensions()
    {
        QFETCH(QString, name);
        QFETCH(int, width);
        QFETCH(int, height);
        int w = -1;
        int h = -1;
        QByteArray printed;
        {
            StdoutCapture out;
            parse_font_dimensions(name, &w, &h);
            printed = out.text();
        }
        QCOMPARE(w, width);
        QCOMPARE(h, height);
        QCOMPARE(printed, QStringLiteral("parse_font_dimensions(): width = %1, height = %2.\n")
                              .arg(width)
                              .arg(height)
                              .toLatin1());
    }
};

QTEST_GUILESS_MAIN(TestFontCatalogue)
#include "tst_fontcatalogue.moc"
