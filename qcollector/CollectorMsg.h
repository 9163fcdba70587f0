#ifndef COLLECTORMSG_H
#define COLLECTORMSG_H

#include <QMetaType>
#include <QtGlobal>

namespace collector {

enum MsgType : quint32 {
    MSG_KEY = 1,
    MSG_SHAFT = 2,
    MSG_GPI = 3,
};

// Key 28 (push of shaft 4) selects; shaft 4 moves the menu selection.
constexpr qint32 TFT_MENU_BUT = 28;
constexpr qint32 TFT_MENU_SHAFT = 4;

// One collector event record: four 32-bit words, big-endian on the wire.
struct CollectorMsg
{
    static constexpr int WireSize = 16;

    quint32 type = 0;
    qint32 id = -1;
    qint32 value = 0;
    qint32 delta = 0;

    CollectorMsg() = default;

    static CollectorMsg key(qint32 id, qint32 value);
    static CollectorMsg shaft(qint32 id, qint32 delta);
    static CollectorMsg gpi(qint32 id, qint32 value);

    // Allocates a 16-byte buffer that the caller releases with delete[].
    void pack(char **buffer, int *length) const;
    // Fills the record from a 16-byte wire form; any other size leaves it unchanged.
    bool unpack(const char *buffer, int size);
};

} // namespace collector

Q_DECLARE_METATYPE(collector::CollectorMsg)

#endif // COLLECTORMSG_H
