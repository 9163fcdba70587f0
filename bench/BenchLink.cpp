#include "BenchLink.h"

#include "BenchProcess.h"

#include <QtEndian>

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {

namespace {

// No command is anywhere near this; a larger length word means a broken stream.
constexpr quint32 MaxCommandSize = 1 << 20;

void makeNonBlocking(int fd)
{
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

timespec toTimespec(qint64 ns)
{
    ns = std::max<qint64>(ns, 0);
    return timespec{time_t(ns / 1000000000), long(ns % 1000000000)};
}

// Collector record kind 2, shaft 4: a turn of the menu shaft.
constexpr qint32 ShaftEvent = 2;
constexpr qint32 MenuShaft = 4;
constexpr quint32 DrawTextCode = 15;

void appendWord(QByteArray *bytes, quint32 word)
{
    char big[4];
    qToBigEndian(word, big);
    bytes->append(big, 4);
}

const QByteArray &upFrame()
{
    static const QByteArray frame = collectorFrame(ShaftEvent, MenuShaft, 0, 1);
    return frame;
}

const QByteArray &downFrame()
{
    static const QByteArray frame = collectorFrame(ShaftEvent, MenuShaft, 0, -1);
    return frame;
}

} // namespace

qint64 nowNs()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return qint64(now.tv_sec) * 1000000000 + now.tv_nsec;
}

Listener::Listener()
{
    _fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (_fd < 0)
        return;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(_fd, reinterpret_cast<sockaddr *>(&address), size) != 0 || listen(_fd, 8) != 0
        || getsockname(_fd, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
        close(_fd);
        _fd = -1;
        return;
    }
    _port = ntohs(address.sin_port);
}

Listener::~Listener()
{
    if (_fd >= 0)
        close(_fd);
}

bool acceptBoth(const Listener &collector, const Listener &driver, int timeoutMs, Accepted *accepted)
{
    const qint64 deadline = nowNs() + qint64(timeoutMs) * 1000000;
    *accepted = Accepted();
    while (accepted->collectorFd < 0 || accepted->driverFd < 0) {
        pollfd fds[2] = {{collector.fd(), POLLIN, 0}, {driver.fd(), POLLIN, 0}};
        const timespec timeout = toTimespec(deadline - nowNs());
        if (ppoll(fds, 2, &timeout, nullptr) <= 0)
            break;
        const qint64 seen = nowNs();
        if (accepted->collectorFd < 0 && (fds[0].revents & POLLIN)) {
            accepted->collectorFd = accept4(collector.fd(), nullptr, nullptr, SOCK_CLOEXEC);
            accepted->collectorNs = seen;
        }
        if (accepted->driverFd < 0 && (fds[1].revents & POLLIN)) {
            accepted->driverFd = accept4(driver.fd(), nullptr, nullptr, SOCK_CLOEXEC);
            accepted->driverNs = seen;
        }
    }
    if (accepted->collectorFd >= 0 && accepted->driverFd >= 0)
        return true;
    for (int fd : {accepted->collectorFd, accepted->driverFd}) {
        if (fd >= 0)
            close(fd);
    }
    *accepted = Accepted();
    return false;
}

QByteArray collectorFrame(qint32 type, qint32 id, qint32 value, qint32 delta)
{
    QByteArray frame;
    for (qint32 word : {16, type, id, value, delta})
        appendWord(&frame, quint32(word));
    return frame;
}

QByteArray drawTextCommand(qint32 screen, quint32 line, bool inverted, const QByteArray &text)
{
    QByteArray command;
    for (quint32 word : {DrawTextCode, quint32(screen), line, quint32(inverted ? 1 : 0), quint32(text.size() + 1)})
        appendWord(&command, word);
    return command + text + '\0';
}

MenuFrames MenuFrames::mainMenu(const QByteArray &version)
{
    MenuFrames frames;
    const QByteArray texts[Items] = {"SETUP", "TESTING", "INTENSITY", "EXIT", "", "REBOOT", "SHUTDOWN", "V=" + version};
    for (int i = 0; i < Items; ++i) {
        frames.texts[i] = texts[i];
        frames.highlighted[i] = drawTextCommand(0, quint32(i), true, texts[i]);
        frames.plain[i] = drawTextCommand(0, quint32(i), false, texts[i]);
    }
    return frames;
}

bool MenuFrames::matchFirstDrawing(const std::vector<QByteArray> &commands) const
{
    if (commands.size() < size_t(Items))
        return false;
    for (int i = 0; i < Items; ++i) {
        if (commands[commands.size() - Items + i] != (i == 0 ? highlighted[i] : plain[i]))
            return false;
    }
    return true;
}

void PhaseResult::merge(const PhaseResult &other)
{
    events += other.events;
    commandsExpected += other.commandsExpected;
    commandsReceived += other.commandsReceived;
    mismatched += other.mismatched;
    lost += other.lost;
    unexpected += other.unexpected;
    latencyUs.insert(latencyUs.end(), other.latencyUs.begin(), other.latencyUs.end());
    seconds += other.seconds;
    sendSeconds += other.sendSeconds;
    cpuNs += other.cpuNs;
}

Link::Link(const Accepted &accepted, pid_t target)
    : _collectorFd(accepted.collectorFd), _driverFd(accepted.driverFd), _target(target)
{
    makeNonBlocking(_collectorFd);
    makeNonBlocking(_driverFd);
    // Each event goes out when it is due, not when Nagle lets it.
    const int one = 1;
    setsockopt(_collectorFd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

Link::~Link()
{
    close(_collectorFd);
    close(_driverFd);
}

bool Link::readCommands(int count, int timeoutMs, std::vector<QByteArray> *commands)
{
    const qint64 deadline = nowNs() + qint64(timeoutMs) * 1000000;
    PhaseResult ignored;
    qint64 progress = 0;
    while (int(commands->size()) < count && !_broken) {
        pollfd fd = {_driverFd, POLLIN, 0};
        const timespec timeout = toTimespec(deadline - nowNs());
        if (ppoll(&fd, 1, &timeout, nullptr) <= 0)
            return false;
        receive(nullptr, &ignored, &progress, commands);
    }
    return int(commands->size()) >= count;
}

template <typename Call> ssize_t Link::transfer(Call call)
{
    for (;;) {
        const ssize_t n = call();
        if (n > 0)
            return n;
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return 0;
        _broken = true;
        return -1;
    }
}

bool Link::flushPending()
{
    while (!_tx.isEmpty()) {
        const ssize_t n = transfer([this] { return write(_collectorFd, _tx.constData(), size_t(_tx.size())); });
        if (n <= 0)
            return n == 0;
        _tx.remove(0, int(n));
    }
    return true;
}

bool Link::receive(std::vector<qint64> *sendNs, PhaseResult *result, qint64 *progressNs,
                   std::vector<QByteArray> *raw)
{
    char buffer[64 * 1024];
    for (;;) {
        const ssize_t n = transfer([this, &buffer] { return read(_driverFd, buffer, sizeof buffer); });
        if (n <= 0)
            return n == 0;
        const qint64 arrived = nowNs();
        *progressNs = arrived;
        _rx.append(buffer, int(n));
        int at = 0;
        while (_rx.size() - at >= 4) {
            const quint32 length = qFromBigEndian<quint32>(_rx.constData() + at);
            if (length > MaxCommandSize) {
                _broken = true;
                return false;
            }
            if (quint32(_rx.size() - at - 4) < length)
                break;
            const char *message = _rx.constData() + at + 4;
            at += 4 + int(length);
            if (raw) {
                raw->push_back(QByteArray(message, int(length)));
                continue;
            }
            ++result->commandsReceived;
            if (_expected.empty()) {
                ++result->unexpected;
                continue;
            }
            const Expected expected = _expected.front();
            _expected.pop_front();
            if (expected.message->size() != int(length)
                || std::memcmp(expected.message->constData(), message, length) != 0)
                ++result->mismatched;
            if (expected.last && sendNs)
                result->latencyUs.push_back(double(arrived - (*sendNs)[size_t(expected.event)]) / 1000.0);
        }
        _rx.remove(0, at);
    }
}

PhaseResult Link::run(const PhaseSpec &phase)
{
    PhaseResult result;
    result.events = phase.events;
    result.commandsExpected = 2LL * phase.events;
    // What an earlier phase still waited for is gone for good.
    _expected.clear();
    if (_broken) {
        result.lost = result.commandsExpected;
        return result;
    }
    std::vector<qint64> sendNs(size_t(phase.events), 0);
    result.latencyUs.reserve(size_t(phase.events));

    const long long cpuBefore = cpuTimeNs(_target);
    const qint64 start = nowNs();
    qint64 progress = start;
    qint64 lastSend = start;
    int sent = 0;
    while (int(result.latencyUs.size()) < phase.events && !_broken) {
        const qint64 now = nowNs();
        int due = phase.events;
        if (phase.rate > 0)
            due = std::min<qint64>(phase.events, qint64(double(now - start) * phase.rate / 1e9) + 1);
        if (phase.window > 0)
            due = std::min<int>(due, int(result.latencyUs.size()) + phase.window);
        if (due > sent) {
            // Everything due goes out in one write: a late wake-up of the bench
            // must not spread the events out.
            for (; sent < due; ++sent) {
                if (_selection + _direction < 0 || _selection + _direction >= MenuFrames::Items)
                    _direction = -_direction;
                const int next = _selection + _direction;
                _tx.append(_direction > 0 ? upFrame() : downFrame());
                _expected.push_back({&_frames.highlighted[next], sent, false});
                _expected.push_back({&_frames.plain[_selection], sent, true});
                _selection = next;
                sendNs[size_t(sent)] = now;
                ++_eventsSent;
            }
            lastSend = now;
            progress = std::max(progress, now);
            if (!flushPending())
                break;
        }

        qint64 wait = progress + qint64(phase.drainTimeoutMs) * 1000000 - now;
        if (wait <= 0)
            break;
        if (phase.rate > 0 && sent < phase.events)
            wait = std::min<qint64>(wait, start + qint64(double(sent) * 1e9 / phase.rate) - now);
        pollfd fds[2] = {{_driverFd, POLLIN, 0}, {_collectorFd, short(_tx.isEmpty() ? 0 : POLLOUT), 0}};
        const timespec timeout = toTimespec(wait);
        if (ppoll(fds, 2, &timeout, nullptr) < 0 && errno != EINTR)
            break;
        if (fds[0].revents)
            receive(&sendNs, &result, &progress);
        if (fds[1].revents)
            flushPending();
    }
    result.cpuNs = cpuTimeNs(_target) - cpuBefore;
    result.seconds = double(progress - start) / 1e9;
    result.sendSeconds = double(lastSend - start) / 1e9;
    result.lost = std::max<long long>(0, result.commandsExpected - result.commandsReceived + result.unexpected);
    return result;
}

long long Link::unexpectedWithin(int quietMs)
{
    _expected.clear();
    const qint64 deadline = nowNs() + qint64(quietMs) * 1000000;
    PhaseResult result;
    qint64 progress = 0;
    while (!_broken) {
        const qint64 left = deadline - nowNs();
        if (left <= 0)
            break;
        pollfd fd = {_driverFd, POLLIN, 0};
        const timespec timeout = toTimespec(left);
        if (ppoll(&fd, 1, &timeout, nullptr) <= 0)
            break;
        receive(nullptr, &result, &progress);
    }
    return result.unexpected;
}

double percentile(std::vector<double> samples, double p)
{
    if (samples.empty())
        return 0;
    const size_t rank = size_t(std::ceil(p / 100.0 * double(samples.size())));
    const size_t index = std::min(samples.size() - 1, rank == 0 ? 0 : rank - 1);
    std::nth_element(samples.begin(), samples.begin() + long(index), samples.end());
    return samples[index];
}

} // namespace bench
