// The benchmark's baseline: the least a program can do for a menu-shaft event.
// It connects to the collector and the button driver like the daemon (same
// port variables), reads 20-byte frames with epoll and answers each menu-shaft
// turn with the two text-line frames the main menu sends (selected item
// highlighted, previous item plain), one write per frame as the daemon must.
// The frames are built once at start; the eight item texts are the arguments.
//
//   panel-bench-relay ITEM0 ... ITEM7
#include "buttondriver/KVB_Messages.h"
#include "pages/MenuNavigation.h"
#include "base/RuntimeEnv.h"
#include "qcollector/CollectorMsg.h"

#include <QtEndian>

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int Items = 8;
constexpr int FrameSize = 4 + collector::CollectorMsg::WireSize;

int connectLoopback(quint16 port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        perror("panel-bench-relay: connect");
        return -1;
    }
    return fd;
}

QByteArray framed(const QByteArray &message)
{
    char length[4];
    qToBigEndian<quint32>(quint32(message.size()), length);
    return QByteArray(length, 4) + message;
}

bool writeAll(int fd, const QByteArray &bytes)
{
    const char *data = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t n = write(fd, data, size_t(left));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        left -= n;
    }
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 1 + Items) {
        fprintf(stderr, "usage: panel-bench-relay ITEM0 ... ITEM7\n");
        return 2;
    }
    QByteArray plain[Items];
    QByteArray highlighted[Items];
    for (int i = 0; i < Items; ++i) {
        const QString text = QString::fromLatin1(argv[1 + i]);
        plain[i] = framed(buttondriver::KVB_DrawText(0, quint32(i), text, 0));
        highlighted[i] = framed(buttondriver::KVB_DrawText(0, quint32(i), text, 1));
    }

    // Collector first, as the daemon connects.
    const int collectorFd = connectLoopback(runtimeenv::collectorPort());
    const int driverFd = connectLoopback(runtimeenv::driverPort());
    if (collectorFd < 0 || driverFd < 0)
        return 1;

    const int epollFd = epoll_create1(EPOLL_CLOEXEC);
    epoll_event watch{};
    watch.events = EPOLLIN;
    watch.data.fd = collectorFd;
    epoll_ctl(epollFd, EPOLL_CTL_ADD, collectorFd, &watch);

    // The main menu as the daemon leaves it after its first drawing.
    int selection = 0;
    int previous = -1;
    char buffer[64 * 1024];
    int held = 0;
    for (;;) {
        epoll_event ready;
        if (epoll_wait(epollFd, &ready, 1, -1) < 0) {
            if (errno == EINTR)
                continue;
            return 1;
        }
        const ssize_t n = read(collectorFd, buffer + held, sizeof buffer - size_t(held));
        if (n <= 0)
            return n == 0 ? 0 : 1;
        held += int(n);
        // The bench only sends whole 16-byte records; no length check needed here.
        int at = 0;
        for (; held - at >= FrameSize; at += FrameSize) {
            collector::CollectorMsg msg;
            msg.unpack(buffer + at + 4, collector::CollectorMsg::WireSize);
            if (msg.type != collector::MSG_SHAFT || msg.id != collector::TFT_MENU_SHAFT
                || !menuNavigate(&selection, &previous, msg.delta, Items - 1))
                continue;
            if (!writeAll(driverFd, highlighted[selection]))
                return 1;
            if (previous >= 0 && !writeAll(driverFd, plain[previous]))
                return 1;
        }
        held -= at;
        std::memmove(buffer, buffer + at, size_t(held));
    }
}
