// The daemon under valgrind's memcheck for one end-to-end scenario: start in
// setup mode, every save the menu offers (network, PSU mode, intensity), a
// walk through the test pages, then SIGTERM, which ends it as on a device.
// Fails on any memcheck error or on memory definitely lost. Registered under
// the CTest label soak (it takes minutes); prints memcheck's summary.
#include "support/PanelDaemon.h"
#include "support/SettingsSaves.h"

#include <QFile>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <cstdio>

using collector::CollectorMsg;
using P = PanelDaemon;

class MemcheckE2e : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void daemonUnderMemcheck()
    {
        const QString valgrind = QStandardPaths::findExecutable("valgrind");
        if (valgrind.isEmpty())
            QSKIP("valgrind is not installed (apt-get install valgrind)");
        QTemporaryDir dir;
        const QString log = dir.filePath("memcheck.log");
        const QString pidFile = dir.filePath("pid");
        const QString wrapper = dir.filePath("panel-setup-memcheck");
        {
            QFile script(wrapper);
            QVERIFY(script.open(QIODevice::WriteOnly));
            // exec keeps the pid, which SIGTERM is sent to at the end.
            script.write(QStringLiteral("#!/bin/sh\necho $$ > '%1'\nexec '%2' --tool=memcheck --leak-check=full "
                                        "--show-leak-kinds=definite,indirect,possible --errors-for-leak-kinds=definite --track-origins=yes "
                                        "--log-file='%3' '%4' \"$@\"\n")
                             .arg(pidFile, valgrind, log, QStringLiteral(PANEL_SETUP_BINARY))
                             .toLocal8Bit());
            script.close();
            QVERIFY(script.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner
                                          | QFileDevice::ExeOwner));
        }

        P d(wrapper);
        QVERIFY(d.sandbox.writeFile(Sandbox::StartFlagPath, QByteArray()));
        QVERIFY(d.startPeers());
        QVERIFY(d.start());
        QTRY_COMPARE_WITH_TIMEOUT(d.commands(), P::firstMainMenuCommands(), 120000);
        QTRY_COMPARE_WITH_TIMEOUT(d.collector.clientCount(), 1, 30000);

        QString failure;
        QVERIFY2(saveEverySetting(d, &failure), qPrintable(failure));
        // TESTING: the shaft, key, GPI and LED pages, each entered and left.
        const QList<CollectorMsg> walk = {
            P::turn(1), P::select(),                                                  // testing menu
            P::select(), CollectorMsg::shaft(0, 3), CollectorMsg::key(24, 1), P::back(), // shafts
            P::turn(1), P::select(), CollectorMsg::key(5, 1), CollectorMsg::key(5, 0),
            CollectorMsg::key(5, 1), CollectorMsg::key(24, 1),                         // keys
            P::turn(1), P::select(), CollectorMsg::gpi(3, 1), P::back(),               // GPIs
            P::turn(1), P::select(), P::turn(1), P::select(), P::back(),               // LEDs
            P::back()};
        for (const CollectorMsg &msg : walk) {
            const int before = d.commandCount();
            d.collector.send(msg);
            // Some events draw nothing: then the wait just runs out.
            (void)QTest::qWaitFor([&] { return d.commandCount() > before; }, 3000);
        }
        QTest::qWait(2000);
        QVERIFY(d.isRunning());

        QFile pid(pidFile);
        QVERIFY(pid.open(QIODevice::ReadOnly));
        QCOMPARE(::kill(pid.readAll().trimmed().toInt(), SIGTERM), 0);
        QTRY_VERIFY_WITH_TIMEOUT(!d.isRunning(), 120000);

        QFile report(log);
        QVERIFY(report.open(QIODevice::ReadOnly));
        const QString text = QString::fromLocal8Bit(report.readAll());
        const QStringList summary = text.split(QLatin1Char('\n')).filter(QRegularExpression(
            QStringLiteral("ERROR SUMMARY|definitely lost:|indirectly lost:|possibly lost:|still reachable:|"
                           "in use at exit:|total heap usage:")));
        for (const QString &line : summary)
            qInfo("%s", qPrintable(line));
        const QRegularExpressionMatch errors =
            QRegularExpression(QStringLiteral("ERROR SUMMARY: (\\d+) errors")).match(text);
        // The whole report when something is wrong: the test log cuts long messages.
        if (!errors.hasMatch() || errors.captured(1) != QLatin1String("0")
            || QRegularExpression(QStringLiteral("definitely lost: [1-9]")).match(text).hasMatch())
            fprintf(stderr, "%s\n", qPrintable(text));
        QVERIFY(errors.hasMatch());
        QCOMPARE(errors.captured(1), QStringLiteral("0"));
        const QRegularExpressionMatch lost =
            QRegularExpression(QStringLiteral("definitely lost: ([\\d,]+) bytes")).match(text);
        QVERIFY(!lost.hasMatch() || lost.captured(1) == QLatin1String("0"));
    }
};

QTEST_GUILESS_MAIN(MemcheckE2e)
#include "memcheck_e2e.moc"
