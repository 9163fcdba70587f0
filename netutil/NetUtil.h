#ifndef NETUTIL_H
#define NETUTIL_H

#include <QString>

#include <vector>

struct sockaddr;

// The network parameters travel as eight dotted-decimal texts: address, netmask,
// broadcast and gateway of eth0 (0 to 3), then the same of eth1 / bond0:1 (4 to 7).
// An empty text means "not set".
class NetUtil
{
public:
    // "a.b.c.d" of an IPv4 socket address; empty for a null or non-IPv4 address.
    static QString formatAddress(const struct sockaddr *address);

    // Address, netmask and broadcast of eth0 into entries 0 to 2.
    static void getCurrentAddress(std::vector<QString> &params);

    // Replaces /etc/network/interfaces with loopback plus eth0 from entries 0 to 3.
    static void writeInterfacesFile(const std::vector<QString> &params);

    // Fills entries 0 to 7 from /etc/network/interfaces; the vector must hold eight.
    static void readInterfacesFile(std::vector<QString> &params);

    // Where /etc/network/interfaces is (under the sandbox root in tests).
    static QString interfacesPath();

    // Status of "/etc/init.d/networking restart" as system() returns it.
    static int restartNetworking();
};

#endif // NETUTIL_H
