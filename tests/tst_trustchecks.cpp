// The trust checks' pieces: user ids, the listener's owner from the kernel's
// socket tables, trusted files and escaped log text. Switching the checks on
// and off is tested through the daemon (tst_e2e_security).
#include "base/TrustChecks.h"

#include "support/MessageRecorder.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <unistd.h>

using trustchecks::Endpoint;
using trustchecks::ListenerSearch;

class TestTrustChecks : public QObject
{
    Q_OBJECT

private:
    // A /proc/net/tcp line: local address, remote address, state, uid.
    static QByteArray line(const char *local, const char *remote, const char *state, uint uid)
    {
        return QByteArray("   3: ") + local + ' ' + remote + ' ' + state
               + " 00000000:00000000 00:00000000 00000000 " + QByteArray::number(uid)
               + "        0 1297794 1 000000008de46ec5 100 0 0 10 0\n";
    }

    static std::optional<uint> search(const Endpoint &peer, const QList<QByteArray> &lines)
    {
        ListenerSearch finder(peer);
        for (const QByteArray &text : lines)
            finder.addLine(text);
        return finder.owner();
    }

    static Endpoint loopback(quint16 port) { return Endpoint{QHostAddress(QHostAddress::LocalHost), port}; }

private Q_SLOTS:
    void defaultsAreOff()
    {
        // The test's environment sets nothing: the specified behaviour.
        QVERIFY(qEnvironmentVariableIsEmpty("PANEL_SETUP_TRUST_CHECKS"));
        QVERIFY(!trustchecks::enabled());
        QCOMPARE(trustchecks::trustedUids(), std::vector<uint>{0});
        QVERIFY(trustchecks::isAcceptedImage("/nonexistent/x.img"));
        QCOMPARE(trustchecks::forLog("a\nb"), QString("a\nb"));
    }

    void parseUids_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<std::vector<uint>>("uids");
        QTest::addColumn<QStringList>("log");
        QTest::newRow("unset") << "" << std::vector<uint>{0} << QStringList();
        QTest::newRow("one") << "107" << std::vector<uint>{107} << QStringList();
        QTest::newRow("commas and blanks") << " 0, 107  5,,9 " << std::vector<uint>{0, 107, 5, 9} << QStringList();
        QTest::newRow("a word") << "0,daemon" << std::vector<uint>{0}
                                << QStringList("PANEL_SETUP_TRUSTED_UIDS: not a user id: \"daemon\"");
        QTest::newRow("tabs, newlines, vertical tab, form feed, return")
            << "1\t2\n3\v4\f5\r6" << std::vector<uint>{1, 2, 3, 4, 5, 6} << QStringList();
        // Only ASCII white space separates: a no-break space is part of a word.
        QTest::newRow("no-break space") << QString::fromUtf8("7\u00a08,9") << std::vector<uint>{9}
                                        << QStringList(QString::fromUtf8("PANEL_SETUP_TRUSTED_UIDS: not a user id: \"7\u00a08\""));
        QTest::newRow("only junk") << "-1" << std::vector<uint>{0}
                                   << QStringList("PANEL_SETUP_TRUSTED_UIDS: not a user id: \"-1\"");
    }

    void parseUids()
    {
        QFETCH(QString, text);
        QFETCH(std::vector<uint>, uids);
        QFETCH(QStringList, log);
        MessageRecorder recorder;
        QCOMPARE(trustchecks::parseUids(text), uids);
        QCOMPARE(recorder.messages(), log);
    }

    void listenerOnLoopback()
    {
        // 127.0.0.1:3355 listening, owned by 65534; an established socket on the same port by root.
        const QList<QByteArray> table = {
            "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n",
            line("0100007F:0D1B", "0100007F:A682", "01", 0),
            line("0100007F:0D1B", "00000000:0000", "0A", 65534),
            line("0100007F:0BBB", "00000000:0000", "0A", 0),
        };
        QCOMPARE(search(loopback(3355), table), std::optional<uint>(65534));
        QCOMPARE(search(loopback(3003), table), std::optional<uint>(0));
        QCOMPARE(search(loopback(3004), table), std::nullopt);
    }

    void listenerOnAnyAddressOrDualStack()
    {
        QCOMPARE(search(loopback(3355), {line("00000000:0D1B", "00000000:0000", "0A", 7)}), std::optional<uint>(7));
        QCOMPARE(search(loopback(3355), {line("00000000000000000000000000000000:0D1B",
                                               "00000000000000000000000000000000:0000", "0A", 8)}),
                 std::optional<uint>(8));
        QCOMPARE(search(loopback(3355), {line("0000000000000000FFFF00000100007F:0D1B",
                                               "00000000000000000000000000000000:0000", "0A", 9)}),
                 std::optional<uint>(9));
        // Another loopback address does not take connections to 127.0.0.1.
        QCOMPARE(search(loopback(3355), {line("0200007F:0D1B", "00000000:0000", "0A", 7)}), std::nullopt);
        // The listener bound to the address wins over the one bound to any, whatever the order.
        QCOMPARE(search(loopback(3355), {line("00000000:0D1B", "00000000:0000", "0A", 7),
                                         line("0100007F:0D1B", "00000000:0000", "0A", 0)}),
                 std::optional<uint>(0));
        QCOMPARE(search(loopback(3355), {line("0100007F:0D1B", "00000000:0000", "0A", 0),
                                         line("00000000:0D1B", "00000000:0000", "0A", 7)}),
                 std::optional<uint>(0));
    }

    void brokenLinesAreSkipped()
    {
        QCOMPARE(search(loopback(3355), {"", "garbage\n", "0100007F:0D1B 00000000:0000 0A\n",
                                         line("0100007F:0D1B", "00000000:0000", "0A", 0).replace(" 0 ", " x "),
                                         QByteArray(2000, ' ')}),
                 std::nullopt);
    }

    void ownerOfARealListener()
    {
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost));
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, server.serverPort());
        QVERIFY(socket.waitForConnected(2000));
        QCOMPARE(trustchecks::peerOwner(socket), std::optional<uint>(getuid()));
    }

    void trustedRegularFiles()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString file = dir.filePath("a.img");
        QFile image(file);
        QVERIFY(image.open(QIODevice::WriteOnly));
        image.close();
        QVERIFY(QFile::link(file, dir.filePath("link.img")));
        QVERIFY(QDir(dir.path()).mkdir("dir.img"));
        // The test runs as root or as the owner of what it creates; root is trusted.
        QCOMPARE(trustchecks::isTrustedRegularFile(file), getuid() == 0);
        QVERIFY(!trustchecks::isTrustedRegularFile(dir.filePath("link.img")));
        QVERIFY(!trustchecks::isTrustedRegularFile(dir.filePath("dir.img")));
        QVERIFY(!trustchecks::isTrustedRegularFile(dir.filePath("missing.img")));
        if (getuid() != 0)
            return;
        QCOMPARE(chown(QFile::encodeName(file).constData(), 65534, 65534), 0);
        QVERIFY(!trustchecks::isTrustedRegularFile(file));
    }

    void escapedText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("escaped");
        QTest::newRow("plain") << "panel-2.0.img" << "panel-2.0.img";
        QTest::newRow("newline") << "a\nUpgrade has finished - relinquishing control.\n.img"
                                 << "a\\nUpgrade has finished - relinquishing control.\\n.img";
        QTest::newRow("tab cr") << "a\tb\rc" << "a\\tb\\rc";
        QTest::newRow("backslash") << "a\\nb" << "a\\\\nb";
        QTest::newRow("other controls") << QString("a\x01\x1b[2Jb\x7f") << "a\\x01\\x1b[2Jb\\x7f";
        QTest::newRow("non-ASCII stays") << QString::fromUtf8("Bj\xc3\xb6rn.img") << QString::fromUtf8("Bj\xc3\xb6rn.img");
    }

    void escapedText()
    {
        QFETCH(QString, text);
        QFETCH(QString, escaped);
        QCOMPARE(trustchecks::escaped(text), escaped);
    }
};

QTEST_GUILESS_MAIN(TestTrustChecks)
#include "tst_trustchecks.moc"
