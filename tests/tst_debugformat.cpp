#include "base/DebugFormat.h"
#include "support/MessageRecorder.h"

#include <QtTest>

class TestDebugFormat : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void verbatimKeepsTheTextAsItStands_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("plain") << QString("/etc/kd5820m/buttonlevel");
        QTest::newRow("line breaks") << QString("auto lo\niface lo inet loopback\n");
        QTest::newRow("tab") << QString("lcd 20\t");
        QTest::newRow("quote and backslash") << QString("/tmp/a\"b\\c");
        QTest::newRow("empty") << QString();
    }

    void verbatimKeepsTheTextAsItStands()
    {
        QFETCH(QString, text);
        MessageRecorder log;
        qDebug() << "line =" << verbatim(text);
        QCOMPARE(log.messages(), QStringList("line = \"" + text + "\""));
    }

    // One item among others: the same single spaces, and the stream keeps
    // quoting the plain string items after it.
    void verbatimAmongOtherItems()
    {
        MessageRecorder log;
        qDebug() << "system(" << verbatim("a\tb") << ")" << QString("x\ty") << 5;
        QCOMPARE(log.messages(), QStringList("system( \"a\tb\" ) \"x\\ty\" 5"));
    }

    void listForm()
    {
        QCOMPARE(debugListForm({}), QString("()"));
        QCOMPARE(debugListForm({"a.img", "b\\.img"}), QString("(\"a.img\", \"b\\.img\")"));
    }
};

QTEST_GUILESS_MAIN(TestDebugFormat)
#include "tst_debugformat.moc"
