// Hostile or broken peers and files against the real daemon: its memory stays
// within a bound, it stays up, and it serves a well-behaved peer afterwards.
#include "support/PanelDaemon.h"
#include "support/ProcessProbe.h"
#include "TargetProgram.h"

#include <QElapsedTimer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <cerrno>
#include <csignal>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

using collector::CollectorMsg;
using P = PanelDaemon;

namespace {

// How long each hostile peer keeps at it.
constexpr int FloodMs = 4000;
// The daemon's peak resident memory may grow by this much under any of them
// (it starts at about 13 MiB; the unbounded buffers grew to gigabytes).
// AddressSanitizer keeps up to 256 MiB of freed memory in quarantine.
#if defined(__SANITIZE_ADDRESS__)
constexpr qint64 GrowthBoundKiB = 512 * 1024;
constexpr int SlowDown = 8;
#else
constexpr qint64 GrowthBoundKiB = 2 * 1024;
constexpr int SlowDown = 1;
#endif

// Writes chunk into socket as fast as it takes it for FloodMs; returns the
// bytes written. The test's event loop runs in between, so the daemon's
// output is read.
qint64 flood(QTcpSocket *socket, const QByteArray &chunk)
{
    const int fd = int(socket->socketDescriptor());
    qint64 total = 0;
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < FloodMs) {
        const ssize_t n = ::send(fd, chunk.constData(), size_t(chunk.size()), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (n > 0)
            total += n;
        else if (errno == EAGAIN || errno == EWOULDBLOCK)
            QTest::qWait(1);
        else
            break;
        QCoreApplication::processEvents();
    }
    return total;
}

// Many frames back to back: a length word, then a key record.
QByteArray frames(quint32 length, int count)
{
    QByteArray frame = FakeCollector::frame(CollectorMsg::key(7, 1));
    qToBigEndian<quint32>(length, frame.data());
    return frame.repeated(count);
}

} // namespace

class TestFaultResources : public QObject
{
    Q_OBJECT

private:
    // The main menu's answer to a turn of the menu shaft: the daemon is up and serving.
    static void turnIsDrawn(P &d)
    {
        const QStringList drawn = d.step(P::turn(1), 2);
        QCOMPARE(drawn, QStringList({"text 0 1 1 TESTING", "text 0 0 0 SETUP"}));
    }

    static qint64 peak(const P &d) { return processprobe::peakResidentKiB(d.pid()); }

private Q_SLOTS:
    void floodingCollector_data()
    {
        QTest::addColumn<quint32>("length");
        for (quint32 length : {0u, 15u, 17u})
            QTest::addRow("length word %u", length) << length;
    }

    // Frames with a wrong length word at full speed: each is diagnosed, the
    // socket reads only a little ahead, and TCP holds back the rest.
    void floodingCollector()
    {
        QFETCH(quint32, length);
        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.startInMenu());
        const qint64 before = processprobe::residentKiB(d.pid());
        QVERIFY(before > 0);
        QCOMPARE(d.collector.clients().size(), 1);
        const qint64 sent = flood(d.collector.clients().first(), frames(length, 3000));
        const qint64 after = peak(d);
        qInfo("length %u: %lld bytes sent in %d ms; peak RSS %lld KiB, %lld KiB before", length, sent, FloodMs,
              after, before);
        QVERIFY(d.isRunning());
        QVERIFY2(after - before < GrowthBoundKiB, qPrintable(QString::number(after - before)));
        QVERIFY(d.countLines(QStringLiteral("wrong collector message size %1 ../qcollector/QCollectorClient 50")
                                 .arg(length))
                > 0);

        // The collector restarts: the daemon reconnects and serves it.
        d.collector.stop();
        QVERIFY(d.collector.start());
        QTRY_COMPARE_WITH_TIMEOUT(d.collector.clientCount(), 1, 5000);
        turnIsDrawn(d);
    }

    // A driver that writes back: nothing of it is read, and the daemon does
    // not buffer it.
    void driverWritingBack()
    {
        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.startInMenu());
        const qint64 before = processprobe::residentKiB(d.pid());
        QCOMPARE(d.driver.clients().size(), 1);
        const qint64 sent = flood(d.driver.clients().first(), QByteArray(64 * 1024, 'x'));
        const qint64 after = peak(d);
        qInfo("%lld bytes written back in %d ms; peak RSS %lld KiB, %lld KiB before", sent, FloodMs, after,
              before);
        QVERIFY(d.isRunning());
        QVERIFY2(after - before < GrowthBoundKiB, qPrintable(QString::number(after - before)));
        turnIsDrawn(d);
    }

    // A driver that stops reading: past the backlog, drawings are dropped
    // whole; once it reads again, every frame it gets is whole and the next
    // drawing arrives as it should.
    void driverNotReading()
    {
        P d(PANEL_SETUP_BINARY);
        QVERIFY(d.startInMenu());
        const qint64 before = processprobe::residentKiB(d.pid());
        d.driver.setReading(false);
        const QString dropped = "QButtonDriverClient: the button driver does not read, drawings are dropped";
        // Far more drawing than the kernel's buffers (up to 10 MiB on
        // loopback) and the backlog hold: about 60 bytes a turn.
        const int turns = 250000;
        for (int i = 0; i < turns; ++i) {
            d.collector.send(P::turn(i % 2 ? -1 : 1));
            if (i % 500 == 0)
                QTest::qWait(5);
        }
        // The turns go 0 -> 1 -> 0 ...; a last one of +2 logs a line of its
        // own once the daemon has handled every turn.
        d.collector.send(P::turn(2));
        QTRY_VERIFY_WITH_TIMEOUT(
            d.outputContains("Entering Page_Main::refresh_main_items(): _sh_menu_val = 2 , _prev_sh_menu_val = 0"),
            60000 * SlowDown);
        const qint64 after = peak(d);
        qInfo("%d turns while the driver did not read; peak RSS %lld KiB, %lld KiB before", turns, after, before);
        QVERIFY(d.isRunning());
        QVERIFY2(after - before < GrowthBoundKiB, qPrintable(QString::number(after - before)));
        QCOMPARE(d.countLines(dropped), 1);

        d.driver.setReading(true);
        // The backlog is delivered, every frame whole; then a turn draws exactly its two lines.
        int delivered = -1;
        while (delivered != d.commandCount()) {
            delivered = d.commandCount();
            QTest::qWait(300);
        }
        QVERIFY(delivered > 0);
        QCOMPARE(d.driver.malformedCount(), 0);
        QCOMPARE(d.step(P::turn(1), 2), QStringList({"text 0 3 1 EXIT", "text 0 2 0 INTENSITY"}));
        QCOMPARE(d.driver.malformedCount(), 0);
        QCOMPARE(d.countLines(dropped), 1);
    }

    // The reader of the daemon's output goes away (a logger or journal that
    // restarts): the daemon's next lines fail, and it goes on serving.
    void outputReaderGone()
    {
        QTemporaryDir wrapperDir;
        const QString stop = wrapperDir.filePath("stop-reading");
        const QString wrapper = wrapperDir.filePath("panel-setup-through-reader");
        {
            QFile script(wrapper);
            QVERIFY(script.open(QIODevice::WriteOnly));
            script.write("#!/bin/sh\n"
                         + targetprogram::shellCommand(targetprogram::path(PANEL_SETUP_BINARY)) + " \"$@\" 2>&1 | {\n"
                         "    cat & reader=$!\n"
                         "    while [ ! -e '" + stop.toLocal8Bit() + "' ]; do sleep 0.05; done\n"
                         "    kill $reader; wait $reader\n"
                         "    exec 0<&-\n"
                         "    echo reader-gone\n"
                         "}\n");
            script.close();
            QVERIFY(script.setPermissions(QFileDevice::ReadOwner | QFileDevice::ExeOwner));
        }
        P d(wrapper, P::Program::Wrapper);
        QVERIFY(d.startInMenu());
        const qint64 daemon = processprobe::findByEnvironment(
            targetprogram::path(PANEL_SETUP_BINARY), "PANEL_SETUP_ROOT=" + QFile::encodeName(d.sandbox.root()));
        QVERIFY(daemon > 0);
        // Stopping the wrapper leaves the daemon behind: it is ended here.
        struct EndsProcess
        {
            qint64 pid;
            ~EndsProcess() { ::kill(pid_t(pid), SIGTERM); }
        } const endsDaemon{daemon};
        QFile(stop).open(QIODevice::WriteOnly);
        // Said once nothing holds the pipe's reading end any more.
        QTRY_VERIFY(d.outputContains("reader-gone"));
        const int mark = d.commandCount();
        // Every turn logs lines into the pipe that nobody reads any more.
        d.collector.send(P::turn(1));
        d.collector.send(P::turn(1));
        QTRY_COMPARE(d.commandCount(), mark + 4);
        QCOMPARE(d.commands(mark + 2), QStringList({"text 0 2 1 INTENSITY", "text 0 1 0 TESTING"}));
        QVERIFY(::kill(pid_t(daemon), 0) == 0);
    }

    // Settings files that are no files: a device, a FIFO, or far too large.
    // The start completes, the specified message for an unreadable file is
    // logged, and memory stays small.
    void settingsFilesThatAreNoFiles_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("message");
        const QString version = "readVersionFile: Unable to open file \"%1\" ";
        const QString levels = "readButtonlevelFile: Unable to open file \"%1\"";
        const QString launcher = "Error reading configuration file ' \"%1\" '";
        const QString interfaces = "NetUtil : failed to open /etc/network/interfaces";
        const struct
        {
            const char *file;
            QString message;
        } files[] = {{"/opt/kd5820m/version", version},
                     {"/etc/kd5820m/buttonlevel", levels},
                     {"/etc/kd5820m/launcher.cfg", launcher},
                     {"/etc/network/interfaces", interfaces}};
        for (const auto &entry : files) {
            for (const char *kind : {"/dev/zero", "fifo", "large"})
                QTest::addRow("%s: %s", entry.file, kind) << entry.file << kind << entry.message;
        }
    }

    void settingsFilesThatAreNoFiles()
    {
        QFETCH(QString, file);
        QFETCH(QString, kind);
        QFETCH(QString, message);
        P d(PANEL_SETUP_BINARY);
        const QString path = d.sandbox.hostPath(file);
        QVERIFY(QFile::remove(path));
        if (kind == "/dev/zero") {
            QVERIFY(QFile::link("/dev/zero", path));
        } else if (kind == "fifo") {
            QVERIFY(::mkfifo(QFile::encodeName(path).constData(), 0644) == 0);
        } else {
            QFile large(path);
            QVERIFY(large.open(QIODevice::WriteOnly));
            QVERIFY(large.resize(100 * 1024 * 1024)); // sparse: no room taken
        }
        QVERIFY(d.sandbox.writeFile(Sandbox::StartFlagPath, QByteArray()));
        QVERIFY(d.startConnected());
        // The main menu is drawn: the start is over.
        QTRY_VERIFY_WITH_TIMEOUT(d.commandCount() >= P::firstMainMenuCommands().size(), 5000);
        QTRY_VERIFY(d.hasLine(message.arg(path)));
        QVERIFY(d.isRunning());
        const qint64 peakKiB = peak(d);
        qInfo("%s as %s: peak RSS %lld KiB", qPrintable(file), qPrintable(kind), peakKiB);
        QVERIFY2(peakKiB < 40 * 1024 + GrowthBoundKiB, qPrintable(QString::number(peakKiB)));
        turnIsDrawn(d);
    }
};

QTEST_GUILESS_MAIN(TestFaultResources)
#include "tst_fault_resources.moc"
