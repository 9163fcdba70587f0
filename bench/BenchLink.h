#ifndef BENCHLINK_H
#define BENCHLINK_H

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <sys/types.h>

#include <deque>
#include <vector>

namespace bench {

// CLOCK_MONOTONIC in nanoseconds.
qint64 nowNs();

// A listening TCP socket on 127.0.0.1 and a free port.
class Listener
{
public:
    Listener();
    ~Listener();
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    bool isValid() const { return _fd >= 0; }
    quint16 port() const { return _port; }
    int fd() const { return _fd; }

private:
    int _fd = -1;
    quint16 _port = 0;
};

// Accepts one connection on each listener. The times are when each connection
// was seen (nowNs()); false when either did not come within timeoutMs.
struct Accepted
{
    int collectorFd = -1;
    int driverFd = -1;
    qint64 collectorNs = 0;
    qint64 driverNs = 0;
};
bool acceptBoth(const Listener &collector, const Listener &driver, int timeoutMs, Accepted *accepted);

// The bench's own encoders, written from the wire layouts rather than taken
// from the daemon, so that a wrong byte in the daemon is seen as one.
// A collector frame: the length word 16, then the record's words type, id,
// value and delta, all big-endian.
QByteArray collectorFrame(qint32 type, qint32 id, qint32 value, qint32 delta);
// A text-line command (code 15) without its length frame: the words code,
// screen, line, inverted flag and text length (with the NUL), big-endian,
// then the text and a NUL.
QByteArray drawTextCommand(qint32 screen, quint32 line, bool inverted, const QByteArray &text);

// The main menu's eight items as text-line commands for screen 0: item i on
// line i, highlighted or plain.
struct MenuFrames
{
    static constexpr int Items = 8;
    QByteArray highlighted[Items];
    QByteArray plain[Items];
    QByteArray texts[Items];

    // The items of the main menu, the last one the version line "V=" + version.
    static MenuFrames mainMenu(const QByteArray &version);
    // Whether the last eight commands of the first drawing are the items in
    // order, item 0 highlighted.
    bool matchFirstDrawing(const std::vector<QByteArray> &commands) const;
};

// What one phase asks for: `events` menu-shaft turns, sent at `rate` per
// second (0: as fast as the window lets), with at most `window` events
// waiting for their commands (0: no limit). A phase gives up waiting when no
// command arrives for drainTimeoutMs.
struct PhaseSpec
{
    int events = 0;
    double rate = 0;
    int window = 0;
    int drainTimeoutMs = 30000;
};

struct PhaseResult
{
    int events = 0;
    long long commandsExpected = 0;
    long long commandsReceived = 0;
    long long mismatched = 0; // a command other than the one expected at its place
    long long lost = 0;       // expected commands that never came
    long long unexpected = 0; // commands beyond those expected
    std::vector<double> latencyUs; // per event: send to its last command
    double seconds = 0;            // first send to last command
    double sendSeconds = 0;        // first to last send
    long long cpuNs = 0;           // the target's CPU time over the phase

    bool clean() const { return mismatched == 0 && lost == 0 && unexpected == 0; }
    void merge(const PhaseResult &other);
};

// One target (daemon or baseline) seen from the collector's and the button
// driver's side. Events walk the main menu up and down between items 0 and 7,
// one step at a time, so every event moves the selection and yields exactly
// two commands: the new item highlighted, the old one plain.
class Link
{
public:
    // Takes ownership of both sockets.
    Link(const Accepted &accepted, pid_t target);
    ~Link();
    Link(const Link &) = delete;
    Link &operator=(const Link &) = delete;

    void setFrames(const MenuFrames &frames) { _frames = frames; }
    pid_t target() const { return _target; }

    // Reads `count` commands of any content; false when they did not all come
    // within timeoutMs.
    bool readCommands(int count, int timeoutMs, std::vector<QByteArray> *commands);
    PhaseResult run(const PhaseSpec &phase);
    // Listens for quietMs: commands that arrive are unexpected.
    long long unexpectedWithin(int quietMs);

    long long eventsSent() const { return _eventsSent; }

private:
    struct Expected
    {
        const QByteArray *message;
        int event;  // index within the phase
        bool last;  // the event's last command
    };

    // Reads what is there; returns false on a closed or broken stream.
    bool receive(std::vector<qint64> *sendNs, PhaseResult *result, qint64 *progressNs,
                 std::vector<QByteArray> *raw = nullptr);
    bool flushPending();
    // One read() or write() of the non-blocking sockets, again when a signal
    // cut it short: the bytes moved, 0 when the socket would block, -1 when
    // the stream is closed or broken (then marked so).
    template <typename Call> ssize_t transfer(Call call);

    int _collectorFd;
    int _driverFd;
    pid_t _target;
    MenuFrames _frames;
    int _selection = 0; // the daemon starts with item 0 selected
    int _direction = 1;
    long long _eventsSent = 0;
    std::deque<Expected> _expected;
    QByteArray _rx;
    QByteArray _tx;
    bool _broken = false;
};

// Nearest-rank percentile (p in 0..100) of unsorted samples; 0 when empty.
double percentile(std::vector<double> samples, double p);

} // namespace bench

#endif // BENCHLINK_H
