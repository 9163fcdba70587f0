// libFuzzer target: arbitrary bytes on the collector connection.
//
// Input: byte 0 = largest segment (0: the whole stream in one segment),
// byte 1 = seed of the segment sizes, the rest = the stream. Each segment is
// written to one end of a socket pair whose other end is the real
// QCollectorClient's socket, and is drained by one readyRead, so the client's
// own framing (data()) and CollectorMsg::unpack cut it into records. The
// records must be exactly those of the framing rules (20-byte frames, a
// length other than 16 consumes what is there and ends the segment; the
// stream is cut to the client's read-ahead), and each
// one then goes through a fresh page tree with a recording callback, which
// must never be handed a command that the button driver cannot decode.
#include "FuzzTarget.h"
#include "pages/Page_Main.h"
#include "pages/Page_Testing.h"
#include "qcollector/QCollectorClient.h"
#include "support/AddressEditors.h"
#include "support/FreePort.h"
#include "support/RecordingCallback.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTcpSocket>
#include <QtEndian>

#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using collector::CollectorMsg;
using fuzztarget::check;

namespace {

TestRoot *root = nullptr;
int wrongSizeMessages = 0;

// Debug lines are dropped (millions would only slow the run); the collector
// client's critical line is counted against the framing rules.
void messageHandler(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    fuzztarget::abortOnFatal(type, text);
    if (type == QtCriticalMsg && text.startsWith(QLatin1String("wrong collector message size")))
        ++wrongSizeMessages;
}

// The files the pages read at creation, the same before every input.
void resetFiles()
{
    const bool written =
        root->writeFile("/opt/kd5820m/version", "kd5820m version 4.5.6\n")
        && root->writeFile("/etc/kd5820m/launcher.cfg", "[setup]\nbutton1=24\nbutton2=25\n[psu]\nredundant=0\n")
        && root->writeFile("/etc/kd5820m/buttonlevel", "lcd 100\nscr 60\n")
        && root->writeFile("/etc/network/interfaces", "auto lo\niface lo inet loopback\n");
    check(written, "cannot write the sandbox");
}

// The framing rules, segment by segment: the records that must come out.
class FramingModel
{
public:
    void feed(const QByteArray &segment, std::vector<CollectorMsg> *records, int *wrongSizes)
    {
        _pending += segment;
        while (_pending.size() >= 20) {
            const quint32 length = qFromBigEndian<quint32>(_pending.constData());
            _pending.remove(0, 4);
            const int taken = int(qMin<qint64>(length, _pending.size()));
            const QByteArray record = _pending.left(taken);
            _pending.remove(0, taken);
            if (length != 16) {
                ++*wrongSizes;
                return;
            }
            CollectorMsg msg;
            msg.type = qFromBigEndian<quint32>(record.constData());
            msg.id = qFromBigEndian<qint32>(record.constData() + 4);
            msg.value = qFromBigEndian<qint32>(record.constData() + 8);
            msg.delta = qFromBigEndian<qint32>(record.constData() + 12);
            records->push_back(msg);
        }
    }

private:
    QByteArray _pending;
};

bool sameRecord(const CollectorMsg &a, const CollectorMsg &b)
{
    return a.type == b.type && a.id == b.id && a.value == b.value && a.delta == b.delta;
}

// A connection attempt of the client's own must be over before its socket is
// given the pair: nothing of it may still be queued.
QTcpSocket *clientSocket(collector::QCollectorClient &client)
{
    QTcpSocket *socket = client.findChild<QTcpSocket *>();
    check(socket != nullptr, "client has no socket");
    QElapsedTimer clock;
    clock.start();
    while (socket->state() != QAbstractSocket::UnconnectedState && clock.elapsed() < 2000)
        QCoreApplication::processEvents();
    check(socket->state() == QAbstractSocket::UnconnectedState, "refused connection did not end");
    QCoreApplication::processEvents();
    return socket;
}

void runPageTree(const std::vector<CollectorMsg> &records)
{
    if (records.empty())
        return;
    resetFiles();
    RecordingCallback cb;
    AddressEditors editors(&cb);
    {
        Page_Main tree(&cb, editors.params());
        tree.onEnter();
        for (const CollectorMsg &msg : records) {
            // As the controller does: the page that the main page records as current.
            tree.currentPage()->collectorMsg(msg);
            check(tree.menuValue() >= -1 && tree.menuValue() <= 7, "main menu selection out of range");
            check(tree.testingPage()->submenuValue() >= -1 && tree.testingPage()->submenuValue() <= 3,
                  "testing menu selection out of range");
        }
        // A save thread still running holds the page: let it finish first.
        QElapsedTimer clock;
        clock.start();
        while (tree.setupPage()->isSaving() && clock.elapsed() < 10000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        check(!tree.setupPage()->isSaving(), "save did not finish");
        QCoreApplication::processEvents();
    }
    // For looking at one input: what the pages asked of the controller.
    if (qEnvironmentVariableIsSet("PANEL_SETUP_FUZZ_TRACE"))
        fprintf(stderr, "%s\n", qPrintable(cb.journal().join(QLatin1Char('\n'))));
    check(cb.undecodableCount() == 0, "a page built a command the driver cannot decode");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    (void)argc;
    root = &fuzztarget::start("fuzz_collector_stream", *argv, messageHandler);
    check(root->writeFonts({"6x13.pcf.gz", "8x13.pcf.gz", "10x20.pcf.gz"}), "cannot write the sandbox");
    // The client's own connection attempts go to a port that refuses them.
    check(setFreePort("PANEL_SETUP_COLLECTOR_PORT") != 0, "cannot reserve a port");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    const size_t largestSegment = data[0];
    quint32 state = data[1] * 2654435761u + 1;
    // At most what the client reads ahead: then every byte written is in its
    // read buffer when it handles a segment, as the framing rules assume (past
    // that the kernel holds the rest, and the frames behind a bad frame are
    // read on as it delivers them).
    const QByteArray stream(reinterpret_cast<const char *>(data + 2),
                            int(qMin<size_t>(size - 2, collector::QCollectorClient::ReadBufferSize - 2)));

    int fds[2];
    check(socketpair(AF_UNIX, SOCK_STREAM, 0, fds) == 0, "socketpair failed");

    std::vector<CollectorMsg> emitted;
    std::vector<CollectorMsg> expected;
    int expectedWrongSizes = 0;
    wrongSizeMessages = 0;
    {
        collector::QCollectorClient client;
        QObject::connect(&client, &collector::QCollectorClient::new_msg,
                         [&emitted](const CollectorMsg &msg) { emitted.push_back(msg); });
        QTcpSocket *socket = clientSocket(client);
        check(socket->setSocketDescriptor(fds[0]), "socket pair refused by the client's socket");

        FramingModel model;
        int offset = 0;
        while (offset < stream.size()) {
            int length = int(stream.size()) - offset;
            if (largestSegment > 0) {
                state ^= state << 13;
                state ^= state >> 17;
                state ^= state << 5;
                length = qMin<int>(length, int(1 + state % largestSegment));
            }
            const QByteArray segment = stream.mid(offset, length);
            offset += length;
            check(write(fds[1], segment.constData(), size_t(segment.size())) == segment.size(),
                  "short write to the socket pair");
            // One readyRead takes everything written so far: one data() per segment.
            check(socket->waitForReadyRead(5000), "segment not delivered");
            model.feed(segment, &expected, &expectedWrongSizes);
            check(emitted.size() == expected.size(), "record count differs from the framing rules");
        }
    }
    close(fds[1]);

    for (size_t i = 0; i < expected.size(); ++i)
        check(sameRecord(emitted[i], expected[i]), "record differs from the framing rules");
    check(wrongSizeMessages == expectedWrongSizes, "wrong-size diagnostics differ from the framing rules");

    runPageTree(emitted);
    return 0;
}
