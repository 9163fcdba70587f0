#include "netutil/NetUtil.h"
#include "support/PermissionBitsEnforced.h"
#include "support/TestRoot.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkInterface>
#include <QtTest>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace {

const char *const InterfacesFile = "/etc/network/interfaces";
const char *const openFailed = "NetUtil : failed to open /etc/network/interfaces";

std::vector<QString> eight(const QString &fill = QString())
{
    return std::vector<QString>(8, fill);
}

sockaddr_in ipv4(const char *dotted)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    inet_pton(AF_INET, dotted, &address.sin_addr);
    return address;
}

} // namespace

class TestNetUtil : public QObject
{
    Q_OBJECT

private:
    TestRoot _root;

    QString interfacesPath() const { return _root.hostPath(InterfacesFile); }
    void writeInterfaces(const QByteArray &bytes) { QVERIFY(_root.writeFile(InterfacesFile, bytes)); }
    QByteArray readInterfaces() const { return _root.readFile(InterfacesFile); }

    ino_t interfacesInode() const
    {
        struct stat st = {};
        return stat(QFile::encodeName(interfacesPath()).constData(), &st) == 0 ? st.st_ino : 0;
    }

    // What the writer logs last: the file text between double quotes, with
    // its real line breaks.
    static QByteArray quoted(const QByteArray &text) { return '"' + text + '"'; }

    void expectWrite(const QByteArray &text)
    {
        QTest::ignoreMessage(QtDebugMsg, "&&&&&& write net file");
        QTest::ignoreMessage(QtDebugMsg, quoted(text).constData());
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(_root.install());
    }

    void init()
    {
        QVERIFY(QDir().mkpath(_root.path() + "/etc/network"));
        QFile::remove(interfacesPath());
    }

    void formatAddress_data()
    {
        QTest::addColumn<QString>("dotted");
        QTest::newRow("typical") << "192.168.1.10";
        QTest::newRow("no leading zeros") << "10.0.7.255";
        QTest::newRow("zero") << "0.0.0.0";
        QTest::newRow("all ones") << "255.255.255.255";
    }

    void formatAddress()
    {
        QFETCH(QString, dotted);
        const sockaddr_in address = ipv4(dotted.toLatin1().constData());
        QCOMPARE(NetUtil::formatAddress(reinterpret_cast<const sockaddr *>(&address)), dotted);
    }

    void formatAddressOfNonIpv4IsEmpty()
    {
        sockaddr_in6 address6 = {};
        address6.sin6_family = AF_INET6;
        QCOMPARE(NetUtil::formatAddress(reinterpret_cast<const sockaddr *>(&address6)), QString());
        QCOMPARE(NetUtil::formatAddress(nullptr), QString());
    }

    void getCurrentAddressMatchesEth0()
    {
        // Entries 0 to 2 follow eth0's IPv4 entry when the host has one; the
        // rest of the vector is never touched.
        std::vector<QString> params = eight("keep");
        std::vector<QString> expected = eight("keep");
        const QNetworkInterface eth0 = QNetworkInterface::interfaceFromName("eth0");
        for (const QNetworkAddressEntry &entry : eth0.addressEntries()) {
            if (entry.ip().protocol() != QAbstractSocket::IPv4Protocol)
                continue;
            expected[0] = entry.ip().toString();
            expected[1] = entry.netmask().toString();
            expected[2] = entry.broadcast().isNull() ? QString() : entry.broadcast().toString();
        }
        NetUtil::getCurrentAddress(params);
        QCOMPARE(params, expected);
    }

    void getCurrentAddressRefusesShortVector()
    {
        std::vector<QString> params(2, "keep");
        QTest::ignoreMessage(QtDebugMsg, "NetUtil : parameter vector holds 2 entries, needs 3");
        NetUtil::getCurrentAddress(params);
        QCOMPARE(params, std::vector<QString>(2, "keep"));
    }

    void write_data()
    {
        QTest::addColumn<QStringList>("params");
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("full stanza")
            << QStringList{"192.168.1.10", "255.255.255.0", "192.168.1.255", "192.168.1.1",
                           "10.0.0.1", "255.0.0.0", "10.255.255.255", "10.0.0.254"}
            << QByteArray("auto lo\n"
                          "iface lo inet loopback\n"
                          "\n"
                          "auto eth0\n"
                          "iface eth0 inet static\n"
                          "address 192.168.1.10\n"
                          "netmask 255.255.255.0\n"
                          "broadcast 192.168.1.255\n"
                          "gateway 192.168.1.1\n");
        // Without an address only the loopback stanza is kept.
        QTest::newRow("address 0.0.0.0")
            << QStringList{"0.0.0.0", "255.255.255.0", "192.168.1.255", "192.168.1.1"}
            << QByteArray("auto lo\niface lo inet loopback\n");
        QTest::newRow("empty address")
            << QStringList{"", "255.255.255.0", "192.168.1.255", "192.168.1.1"}
            << QByteArray("auto lo\niface lo inet loopback\n");
        QTest::newRow("zero gateway dropped, zero netmask kept")
            << QStringList{"192.168.1.10", "0.0.0.0", "0.0.0.0", "0.0.0.0"}
            << QByteArray("auto lo\n"
                          "iface lo inet loopback\n"
                          "\n"
                          "auto eth0\n"
                          "iface eth0 inet static\n"
                          "address 192.168.1.10\n"
                          "netmask 0.0.0.0\n"
                          "broadcast 0.0.0.0\n");
        QTest::newRow("empty values skipped")
            << QStringList{"172.16.0.5", "", "", ""}
            << QByteArray("auto lo\n"
                          "iface lo inet loopback\n"
                          "\n"
                          "auto eth0\n"
                          "iface eth0 inet static\n"
                          "address 172.16.0.5\n");
    }

    void write()
    {
        QFETCH(QStringList, params);
        QFETCH(QByteArray, text);
        expectWrite(text);
        NetUtil::writeInterfacesFile(std::vector<QString>(params.begin(), params.end()));
        QCOMPARE(readInterfaces(), text);
    }

    void writeReplacesFileAtomically()
    {
        writeInterfaces("auto lo\niface lo inet loopback\n# an old and much longer file\n");
        const ino_t oldInode = interfacesInode();
        QVERIFY(oldInode != 0);
        const QByteArray text = "auto lo\niface lo inet loopback\n";
        expectWrite(text);
        NetUtil::writeInterfacesFile(eight());
        QCOMPARE(readInterfaces(), text);
        // A new file renamed over the old one, not the old one truncated in place,
        // and no temporary file left beside it.
        QVERIFY(interfacesInode() != oldInode);
        QCOMPARE(QDir(_root.path() + "/etc/network").entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList{"interfaces"});
    }

    // A writable file in a directory the program cannot write (a bind mount,
    // a read-only root): written in place, the same inode.
    void writeIntoUnwritableDirectoryWritesInPlace()
    {
        writeInterfaces("auto lo\niface lo inet loopback\n\nauto eth0\n");
        const ino_t oldInode = interfacesInode();
        const QString dir = _root.path() + "/etc/network";
        QVERIFY(QFile::setPermissions(dir, QFile::ReadOwner | QFile::ExeOwner));
        const QByteArray text = "auto lo\niface lo inet loopback\n\nauto eth0\niface eth0 inet static\n"
                                "address 192.168.1.10\nnetmask 255.255.255.0\n";
        {
            PermissionBitsEnforced enforced;
            QVERIFY(enforced.isActive());
            expectWrite(text);
            NetUtil::writeInterfacesFile({"192.168.1.10", "255.255.255.0", "", ""});
        }
        QVERIFY(QFile::setPermissions(dir, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QCOMPARE(readInterfaces(), text);
        QCOMPARE(interfacesInode(), oldInode);
        QCOMPARE(QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList{"interfaces"});
    }

    void writeIntoMissingDirectoryFails()
    {
        QVERIFY(QDir(_root.path() + "/etc/network").removeRecursively());
        QTest::ignoreMessage(QtDebugMsg, "&&&&&& write net file");
        QTest::ignoreMessage(QtDebugMsg, openFailed);
        NetUtil::writeInterfacesFile(eight());
        QVERIFY(!QFileInfo::exists(interfacesPath()));
    }

    void writeRefusesShortVector()
    {
        writeInterfaces("old\n");
        QTest::ignoreMessage(QtDebugMsg, "NetUtil : parameter vector holds 3 entries, needs 4");
        NetUtil::writeInterfacesFile({"1.2.3.4", "255.0.0.0", "1.255.255.255"});
        QCOMPARE(readInterfaces(), QByteArray("old\n"));
    }

    void readMissingFileLeavesValues()
    {
        std::vector<QString> params = eight("keep");
        QTest::ignoreMessage(QtDebugMsg, openFailed);
        NetUtil::readInterfacesFile(params);
        QCOMPARE(params, eight("keep"));
    }

    void read_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QStringList>("expected");

        QTest::newRow("written file")
            << QByteArray("auto lo\niface lo inet loopback\n\nauto eth0\niface eth0 inet static\n"
                          "address 192.168.1.10\nnetmask 255.255.255.0\n"
                          "broadcast 192.168.1.255\ngateway 192.168.1.1\n")
            << QStringList{"192.168.1.10", "255.255.255.0", "192.168.1.255", "192.168.1.1",
                           "old4", "old5", "old6", "old7"};
        QTest::newRow("eth0 then eth1")
            << QByteArray("iface eth0 inet static\naddress 10.0.0.2\nnetmask 255.0.0.0\n"
                          "broadcast 10.255.255.255\ngateway 10.0.0.1\n\n"
                          "iface eth1 inet static\naddress 172.16.0.2\nnetmask 255.255.0.0\n"
                          "broadcast 172.16.255.255\ngateway 172.16.0.1\n")
            << QStringList{"10.0.0.2", "255.0.0.0", "10.255.255.255", "10.0.0.1",
                           "172.16.0.2", "255.255.0.0", "172.16.255.255", "172.16.0.1"};
        QTest::newRow("bond0:1")
            << QByteArray("iface bond0:1 inet static\naddress 172.16.0.9\nnetmask 255.255.0.0\n")
            << QStringList{"old0", "old1", "old2", "old3", "172.16.0.9", "255.255.0.0", "old6", "old7"};
        QTest::newRow("secondary then eth0 again")
            << QByteArray("iface eth1 inet static\naddress 172.16.0.2\niface eth0 inet static\naddress 10.0.0.2\n")
            << QStringList{"10.0.0.2", "old1", "old2", "old3", "172.16.0.2", "old5", "old6", "old7"};
        QTest::newRow("indented with tabs or spaces")
            << QByteArray("auto eth0\niface eth0 inet static\n\taddress 10.1.1.1\n    netmask 255.255.255.0\n"
                          "  \tgateway 10.1.1.254\n"
                          "iface eth1 inet static\n\t\taddress 10.2.2.2\n")
            << QStringList{"10.1.1.1", "255.255.255.0", "old2", "10.1.1.254",
                           "10.2.2.2", "old5", "old6", "old7"};
        // Split at blanks before trimming: the tab alone is the keyword.
        QTest::newRow("a tab then a blank before the keyword")
            << QByteArray("iface eth0 inet static\n\t address 10.0.0.7\n\t broadcast 10.1.1.255\n"
                          "\t\t netmask 255.0.0.0\n \t gateway 10.0.0.1\n")
            << QStringList{"old0", "old1", "old2", "old3", "old4", "old5", "old6", "old7"};
        QTest::newRow("two address lines, the last wins")
            << QByteArray("iface eth0 inet static\naddress 10.0.0.2\naddress 10.0.0.3\n")
            << QStringList{"10.0.0.3", "old1", "old2", "old3", "old4", "old5", "old6", "old7"};
        QTest::newRow("no iface line")
            << QByteArray("address 192.168.5.5\n")
            << QStringList{"192.168.5.5", "old1", "old2", "old3", "old4", "old5", "old6", "old7"};
        QTest::newRow("lo stanza feeds the primary entries")
            << QByteArray("iface lo inet loopback\naddress 127.0.0.1\n")
            << QStringList{"127.0.0.1", "old1", "old2", "old3", "old4", "old5", "old6", "old7"};
        QTest::newRow("keyword without value reads as empty")
            << QByteArray("iface eth0 inet static\naddress\nnetmask   \ngateway")
            << QStringList{"", "", "old2", "", "old4", "old5", "old6", "old7"};
        QTest::newRow("iface without value is not a secondary stanza")
            << QByteArray("iface eth1 inet static\niface\naddress 10.0.0.8\n")
            << QStringList{"10.0.0.8", "old1", "old2", "old3", "old4", "old5", "old6", "old7"};
        QTest::newRow("keywords are case-sensitive, others ignored")
            << QByteArray("iface eth0 inet static\nAddress 1.1.1.1\nhwaddress 00:11:22:33:44:55\n"
                          "auto eth0\nnetmask 255.0.0.0\n")
            << QStringList{"old0", "255.0.0.0", "old2", "old3", "old4", "old5", "old6", "old7"};
        QTest::newRow("line ends at its first NUL")
            << QByteArray("address 10.9.9.9\0 gateway 1.1.1.1\nbroadcast\0 10.9.9.255\n", 53)
            << QStringList{"10.9.9.9", "old1", "", "old3", "old4", "old5", "old6", "old7"};
        QTest::newRow("CRLF line ends and extra words")
            << QByteArray("iface eth0 inet static\r\naddress 10.4.4.4 # office\r\n")
            << QStringList{"10.4.4.4", "old1", "old2", "old3", "old4", "old5", "old6", "old7"};
        QTest::newRow("empty file")
            << QByteArray()
            << QStringList{"old0", "old1", "old2", "old3", "old4", "old5", "old6", "old7"};
    }

    void read()
    {
        QFETCH(QByteArray, file);
        QFETCH(QStringList, expected);
        writeInterfaces(file);
        std::vector<QString> params = {"old0", "old1", "old2", "old3", "old4", "old5", "old6", "old7"};
        NetUtil::readInterfacesFile(params);
        QCOMPARE(QStringList(params.begin(), params.end()), expected);
    }

    void readNeverGrowsTheVector()
    {
        writeInterfaces("iface eth1 inet static\naddress 172.16.0.2\n");
        std::vector<QString> params = {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9"};
        NetUtil::readInterfacesFile(params);
        QCOMPARE(params, std::vector<QString>({"0", "1", "2", "3", "172.16.0.2", "5", "6", "7", "8", "9"}));
    }

    void readRefusesShortVector()
    {
        writeInterfaces("iface eth1 inet static\naddress 172.16.0.2\n");
        std::vector<QString> params(5, "keep");
        QTest::ignoreMessage(QtDebugMsg, "NetUtil : parameter vector holds 5 entries, needs 8");
        NetUtil::readInterfacesFile(params);
        QCOMPARE(params, std::vector<QString>(5, "keep"));
    }

    void writtenFileReadsBack()
    {
        const std::vector<QString> written = {"192.168.1.10", "255.255.255.0", "192.168.1.255", "192.168.1.1"};
        QTest::ignoreMessage(QtDebugMsg, "&&&&&& write net file");
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression("^\"auto lo"));
        NetUtil::writeInterfacesFile(written);
        std::vector<QString> params = eight("x");
        NetUtil::readInterfacesFile(params);
        QCOMPARE(params, std::vector<QString>({"192.168.1.10", "255.255.255.0", "192.168.1.255",
                                               "192.168.1.1", "x", "x", "x", "x"}));
    }

    void restartNetworkingRunsTheScript()
    {
        const QString record = _root.hostPath("/networking.args");
        QVERIFY(_root.writeFile("/etc/init.d/networking",
                                QString("#!/bin/sh\necho \"$#:$*\" > '%1'\nexit 3\n").arg(record).toLocal8Bit()));
        QVERIFY(QFile::setPermissions(_root.hostPath("/etc/init.d/networking"),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));

        const int status = NetUtil::restartNetworking();
        QVERIFY(WIFEXITED(status));
        QCOMPARE(WEXITSTATUS(status), 3);
        QFile args(record);
        QVERIFY(args.open(QIODevice::ReadOnly));
        QCOMPARE(args.readAll(), QByteArray("1:restart\n"));
    }
};

QTEST_GUILESS_MAIN(TestNetUtil)
#include "tst_netutil.moc"
