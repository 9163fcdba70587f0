#include "unixsignalhandler/UnixSignalHandler.h"
#include "support/MessageRecorder.h"

#include <QtTest>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

using unixsignalhandler::UnixSignalHandler;

class TestUnixSignalHandler : public QObject
{
    Q_OBJECT

private:
    UnixSignalHandler *_handler = nullptr;

    static void expectInstalled(const char *quotedName)
    {
        QTest::ignoreMessage(QtDebugMsg, QByteArray("Installing handler for ") + quotedName);
        QTest::ignoreMessage(QtDebugMsg, QByteArray("Installation of ") + quotedName + " handler was successful");
    }

    static void expectRemoved(const char *quotedName)
    {
        QTest::ignoreMessage(QtDebugMsg, QByteArray("Removing ") + quotedName + " handler");
        QTest::ignoreMessage(QtDebugMsg, QByteArray("Removal of ") + quotedName + " handler was successful");
    }

    static bool isDefaultAction(int sig)
    {
        struct sigaction current = {};
        return sigaction(sig, nullptr, &current) == 0 && current.sa_handler == SIG_DFL;
    }

    // The descriptors this process has open (below 1024).
    static QSet<int> openDescriptors()
    {
        QSet<int> fds;
        for (int fd = 0; fd < 1024; ++fd) {
            if (fcntl(fd, F_GETFD) != -1)
                fds.insert(fd);
        }
        return fds;
    }

private Q_SLOTS:
    void init()
    {
        _handler = new UnixSignalHandler;
    }

    void cleanup()
    {
        // Back to the default actions before the table is emptied.
        for (const int sig : {SIGUSR1, SIGUSR2, SIGRTMIN + 2}) {
            MessageRecorder quiet;
            UnixSignalHandler::removeHandler(sig);
        }
        delete _handler;
        _handler = nullptr;
    }

    void raisedSignalReachesHandlerThroughEventLoop()
    {
        int usr1 = 0;
        int usr2 = 0;
        expectInstalled("\"SIGUSR1\"");
        QVERIFY(UnixSignalHandler::addHandler(SIGUSR1, [&usr1] { ++usr1; }));
        expectInstalled("\"SIGUSR2\"");
        QVERIFY(UnixSignalHandler::addHandler(SIGUSR2, [&usr2] { ++usr2; }));

        QCOMPARE(raise(SIGUSR1), 0);
        // The signal function only writes; the call waits for the event loop.
        QCOMPARE(usr1, 0);
        QTRY_COMPARE(usr1, 1);

        // One number per activation: queued signals each reach the handler.
        QCOMPARE(raise(SIGUSR1), 0);
        QCOMPARE(raise(SIGUSR2), 0);
        QCOMPARE(raise(SIGUSR1), 0);
        QTRY_COMPARE(usr1, 3);
        QTRY_COMPARE(usr2, 1);
    }

    void uncatchableSignalsAreRefused_data()
    {
        QTest::addColumn<int>("sig");
        QTest::addColumn<QString>("message");
        QTest::newRow("SIGKILL") << int(SIGKILL) << "ERROR: \"SIGKILL\" cannot be caught. Not adding handler.";
        QTest::newRow("SIGSTOP") << int(SIGSTOP) << "ERROR: \"SIGSTOP\" cannot be caught. Not adding handler.";
    }

    void uncatchableSignalsAreRefused()
    {
        QFETCH(int, sig);
        QFETCH(QString, message);
        QTest::ignoreMessage(QtDebugMsg, message.toLatin1().constData());
        QVERIFY(!UnixSignalHandler::addHandler(sig, [] {}));
        // Nothing was entered: removing it is a silent no-op.
        MessageRecorder recorder;
        QVERIFY(!UnixSignalHandler::removeHandler(sig));
        QCOMPARE(recorder.messages(), QStringList());
    }

    void secondAddKeepsFirstHandler()
    {
        int first = 0;
        int second = 0;
        expectInstalled("\"SIGUSR2\"");
        QVERIFY(UnixSignalHandler::addHandler(SIGUSR2, [&first] { ++first; }));
        {
            MessageRecorder recorder;
            QVERIFY(!UnixSignalHandler::addHandler(SIGUSR2, [&second] { ++second; }));
            QCOMPARE(recorder.messages(), QStringList());
        }
        QCOMPARE(raise(SIGUSR2), 0);
        QTRY_COMPARE(first, 1);
        QCOMPARE(second, 0);
    }

    void removeUnknownIsSilent()
    {
        MessageRecorder recorder;
        QVERIFY(!UnixSignalHandler::removeHandler(SIGUSR1));
        QVERIFY(!UnixSignalHandler::removeHandler(0));
        QVERIFY(!UnixSignalHandler::removeHandler(99));
        QCOMPARE(recorder.messages(), QStringList());
    }

    void removeRestoresDefaultAction()
    {
        expectInstalled("\"SIGUSR1\"");
        QVERIFY(UnixSignalHandler::addHandler(SIGUSR1, [] {}));
        QVERIFY(!isDefaultAction(SIGUSR1));
        expectRemoved("\"SIGUSR1\"");
        QVERIFY(UnixSignalHandler::removeHandler(SIGUSR1));
        QVERIFY(isDefaultAction(SIGUSR1));
        // Gone from the table: a second removal is silent, a new add works.
        {
            MessageRecorder recorder;
            QVERIFY(!UnixSignalHandler::removeHandler(SIGUSR1));
            QCOMPARE(recorder.messages(), QStringList());
        }
        expectInstalled("\"SIGUSR1\"");
        QVERIFY(UnixSignalHandler::addHandler(SIGUSR1, [] {}));
    }

    void numbersOutsideTheTableHaveEmptyNames()
    {
        // A real-time signal: installable, but not one of the 31 named ones.
        const int sig = SIGRTMIN + 2;
        QVERIFY(sig > 31);
        int calls = 0;
        expectInstalled("\"\"");
        QVERIFY(UnixSignalHandler::addHandler(sig, [&calls] { ++calls; }));
        QCOMPARE(raise(sig), 0);
        QTRY_COMPARE(calls, 1);
        expectRemoved("\"\"");
        QVERIFY(UnixSignalHandler::removeHandler(sig));
    }

    void invalidNumbersFailWithEmptyNames_data()
    {
        QTest::addColumn<int>("sig");
        QTest::newRow("0") << 0;
        QTest::newRow("-1") << -1;
        QTest::newRow("200") << 200;
    }

    void invalidNumbersFailWithEmptyNames()
    {
        QFETCH(int, sig);
        QTest::ignoreMessage(QtDebugMsg, "Installing handler for \"\"");
        QTest::ignoreMessage(QtDebugMsg, "Failed to install handler for \"\"");
        QVERIFY(!UnixSignalHandler::addHandler(sig, [] {}));
        MessageRecorder recorder;
        QVERIFY(!UnixSignalHandler::removeHandler(sig));
        QCOMPARE(recorder.messages(), QStringList());
    }

    void handlerMayRemoveItself()
    {
        int calls = 0;
        expectInstalled("\"SIGUSR2\"");
        QVERIFY(UnixSignalHandler::addHandler(SIGUSR2, [&calls] {
            ++calls;
            MessageRecorder quiet;
            UnixSignalHandler::removeHandler(SIGUSR2);
        }));
        QCOMPARE(raise(SIGUSR2), 0);
        QTRY_COMPARE(calls, 1);
        QVERIFY(isDefaultAction(SIGUSR2));
    }

    // Both ends of the socket pair are closed on exec: a program started
    // while the handler exists inherits neither. The flag is read directly
    // because a child cannot be started under qemu-user, where this test also runs.
    void bothEndsAreClosedOnExec()
    {
        const QSet<int> before = openDescriptors();
        UnixSignalHandler handler;
        const QSet<int> pair = openDescriptors() - before;
        QCOMPARE(pair.size(), 2);
        for (const int fd : pair) {
            char target[64] = {};
            const QByteArray link = QByteArray("/proc/self/fd/") + QByteArray::number(fd);
            QVERIFY(readlink(link.constData(), target, sizeof target - 1) > 0);
            QVERIFY2(QByteArray(target).startsWith("socket:["), target);
            const int flags = fcntl(fd, F_GETFD);
            QVERIFY(flags >= 0);
            QVERIFY2(flags & FD_CLOEXEC, link.constData());
        }
    }

    void destructionEmptiesTheTable()
    {
        expectInstalled("\"SIGUSR1\"");
        QVERIFY(UnixSignalHandler::addHandler(SIGUSR1, [] {}));
        delete _handler;
        _handler = new UnixSignalHandler;
        MessageRecorder recorder;
        QVERIFY(!UnixSignalHandler::removeHandler(SIGUSR1));
        QCOMPARE(recorder.messages(), QStringList());
        // The action itself stays installed; put it back by hand.
        signal(SIGUSR1, SIG_DFL);
    }
};

QTEST_GUILESS_MAIN(TestUnixSignalHandler)
#include "tst_unixsignalhandler.moc"
