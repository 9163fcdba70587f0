// The daemon's whole log of a scripted run, byte for byte, against the one
// recorded in tests/data/menu-walk.log: the menu and every page that logs,
// walked the same way each time, then EXIT. The sandbox's root is written as
// @ROOT@. With PANEL_SETUP_RECORD_LOG=1 the test writes the recording instead.
#include "support/PanelDaemon.h"

#include <QFile>
#include <QtTest>

class TestE2eLogBytes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void menuWalkLogsTheRecordedBytes()
    {
        PanelDaemon d(PANEL_SETUP_BINARY);
        QVERIFY(d.startInMenu());
        const collector::CollectorMsg select = PanelDaemon::select();
        const collector::CollectorMsg back = PanelDaemon::back();
        const auto turn = [](int delta) { return PanelDaemon::turn(delta); };
        // Each event with the commands to wait for. The test pages count
        // none: the key test blinks the lights on a timer, and the log does
        // not depend on where one step's drawing ends.
        const std::vector<std::pair<collector::CollectorMsg, int>> steps = {
            // Down the menu and back, clamped at both ends.
            {turn(1), 2}, {turn(1), 2}, {turn(1), 2}, {turn(1), 2}, {turn(1), 2}, {turn(1), 2}, {turn(1), 2},
            {turn(1), 2}, {turn(-7), 2}, {turn(-1), 2}, {turn(-1), 2},
            // SETUP: down the list, into the IP editor, a digit turned, out
            // without saving.
            {select, 9}, {turn(1), 2}, {turn(-1), 2}, {select, 3}, {turn(1), 7}, {back, 1}, {back, 10},
            // TESTING: the shaft, key, GPI and LED tests in turn; the key
            // test counts the back key and is left with a shaft's push.
            {turn(1), 2}, {select, 5}, {select, 0}, {back, 0}, {turn(1), 0}, {select, 0}, {select, 0},
            {turn(1), 0}, {select, 0}, {back, 0}, {turn(1), 0}, {select, 0}, {back, 0}, {back, 0},
            // INTENSITY, the spacer, and EXIT.
            {turn(1), 2}, {select, 4}, {back, 10}, {turn(2), 2}, {select, 0}, {turn(-1), 2}, {select, 5}};
        for (const auto &[msg, commands] : steps) {
            const QStringList drawn = d.step(msg, commands);
            QVERIFY2(drawn.isEmpty() || drawn.first() != QLatin1String("timed out after:"),
                     qPrintable(drawn.join(QLatin1String(" | "))));
        }
        QTRY_COMPARE(d.sandbox.calls(), QStringList("setup_script exit"));
        QTRY_VERIFY(d.outputContains("Font dimensions set to width = 10 and height = 20"));
        d.stop();

        QByteArray log = d.outputLines().join(QLatin1Char('\n')).toLatin1();
        log.replace(d.sandbox.root().toLatin1(), "@ROOT@");
        const QString recording = QStringLiteral(PANEL_SETUP_TESTS_SOURCE_DIR "/data/menu-walk.log");
        if (qEnvironmentVariableIsSet("PANEL_SETUP_RECORD_LOG")) {
            QFile out(recording);
            QVERIFY(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
            QCOMPARE(out.write(log), qint64(log.size()));
            QSKIP("recorded, not compared");
        }
        QFile in(recording);
        QVERIFY(in.open(QIODevice::ReadOnly));
        const QByteArray expected = in.readAll();
        if (log != expected) {
            const QList<QByteArray> got = log.split('\n');
            const QList<QByteArray> want = expected.split('\n');
            int line = 0;
            while (line < got.size() && line < want.size() && got.at(line) == want.at(line))
                ++line;
            qWarning("first difference at line %d:\n  got:      %s\n  recorded: %s", line + 1,
                     line < got.size() ? got.at(line).constData() : "(end)",
                     line < want.size() ? want.at(line).constData() : "(end)");
        }
        QCOMPARE(log.size(), expected.size());
        QVERIFY(log == expected);
    }
};

QTEST_GUILESS_MAIN(TestE2eLogBytes)
#include "tst_e2e_logbytes.moc"
