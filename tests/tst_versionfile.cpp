#include "panel/VersionFile.h"
#include "support/TestRoot.h"

#include <QFile>
#include <QtTest>

namespace {

const char *const VersionFile = "/opt/kd5820m/version";

} // namespace

class TestVersionFile : public QObject
{
    Q_OBJECT

private:
    TestRoot _root;

    void writeVersion(const QByteArray &bytes) { QVERIFY(_root.writeFile(VersionFile, bytes)); }

    static void expectParseError()
    {
        QTest::ignoreMessage(QtDebugMsg,
                             "readVersionFile: error parsing version file should be 'kdxxxxm version ####'");
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(_root.install());
    }

    void versions_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("shortForm");
        QTest::addColumn<QString>("longForm");

        QTest::newRow("1.2.3") << QByteArray("kd5820m version 1.2.3\n") << "V=1.2.3" << "VER=\n1.2.3";
        QTest::newRow("12 characters") << QByteArray("kd5820m version 1.22.333.444\n")
                                       << "V=1.22.333" << "VER=\n1.22.\n333.4";
        QTest::newRow("7 characters") << QByteArray("kd5820m version 3.14.15\n")
                                      << "V=3.14.15" << "VER=\n3.14.\n15";
        QTest::newRow("6 characters") << QByteArray("kd5820m version 2.0.10\n")
                                      << "V=2.0.10" << "VER=\n2.0.1\n0";
        QTest::newRow("no line end") << QByteArray("kd5820m version 4.5") << "V=4.5" << "VER=\n4.5";
        QTest::newRow("repeated blanks") << QByteArray("  kd5820m   version   1.2.3  \n")
                                         << "V=1.2.3" << "VER=\n1.2.3";
        QTest::newRow("CRLF") << QByteArray("kd5820m version 1.2.3\r\n") << "V=1.2.3" << "VER=\n1.2.3";
        QTest::newRow("more words") << QByteArray("kd5820m version 7.1 build 42\n")
                                    << "V=7.1" << "VER=\n7.1";
        QTest::newRow("only the first line") << QByteArray("kd5820m version 6.0\nkd5820m version 9.9\n")
                                             << "V=6.0" << "VER=\n6.0";
    }

    void versions()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, shortForm);
        QFETCH(QString, longForm);
        writeVersion(file);
        QCOMPARE(readVersionFile(false), shortForm);
        QCOMPARE(readVersionFile(true), longForm);
        QVERIFY(shortForm.size() <= 10);
    }

    void malformed_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::newRow("two words") << QByteArray("kd5820m version\n");
        QTest::newRow("two words and a trailing blank") << QByteArray("kd5820m version \n");
        QTest::newRow("version on the second line") << QByteArray("kd5820m version\n1.2.3\n");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("tabs do not separate") << QByteArray("kd5820m\tversion\t1.2.3\n");
    }

    void malformed()
    {
        QFETCH(QByteArray, file);
        writeVersion(file);
        expectParseError();
        QCOMPARE(readVersionFile(false), QString("VER=N/A"));
        expectParseError();
        QCOMPARE(readVersionFile(true), QString("VER=\nN/A"));
    }

    void missingFile()
    {
        const QString path = _root.hostPath(VersionFile);
        QVERIFY(QFile::remove(path));
        const QByteArray message = "readVersionFile: Unable to open file \"" + path.toLocal8Bit() + "\" \n";
        QTest::ignoreMessage(QtDebugMsg, message.constData());
        QCOMPARE(readVersionFile(false), QString("VER=N/A"));
        QTest::ignoreMessage(QtDebugMsg, message.constData());
        QCOMPARE(readVersionFile(true), QString("VER=\nN/A"));
    }
};

QTEST_GUILESS_MAIN(TestVersionFile)
#include "tst_versionfile.moc"
