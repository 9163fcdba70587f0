#include "buttondriver/KVB_Messages.h"

#include "buttondriver/KVB_Records.h"

#include <cstdio>

namespace buttondriver {

namespace {

template <typename Record>
QByteArray toWire(const Record &record)
{
    QByteArray message(int(record.size()), Qt::Uninitialized);
    record.hton(message.data());
    return message;
}

// The driver takes 8-bit text: Latin-1, '?' for what it cannot show, then the
// NUL that the length field counts.
QByteArray textTail(const QString &text)
{
    QByteArray bytes = text.toLatin1();
    bytes.append('\0');
    return bytes;
}

// Walks a host-order record into the code, the following words and the tail.
struct Collector
{
    DecodedCommand *out;
    bool codeTaken = false;

    template <typename Word> void word(const Word &w)
    {
        if (codeTaken) {
            out->words.push_back(qint32(w));
        } else {
            out->code = quint32(w);
            codeTaken = true;
        }
    }
    void list(const std::vector<quint32> &items, quint32)
    {
        for (quint32 item : items)
            out->words.push_back(qint32(item));
    }
    void tail(const QByteArray &bytes, quint32) { out->tail = bytes; }
    void area(const QByteArray &bytes, quint32, int) { out->tail = bytes; }
};

template <typename Record>
bool decodeAs(const QByteArray &message, DecodedCommand *out)
{
    Record record;
    if (!record.ntoh(message.constData(), message.size()))
        return false;
    DecodedCommand decoded;
    Collector collector{&decoded};
    Record::layout(record, collector);
    *out = decoded;
    return true;
}

} // namespace

QByteArray KVB_DrawText(qint32 screen, quint32 line, const QString &text, quint8 inverted)
{
    KVB_DrawText_Record record;
    record.screen = screen;
    record.line = line;
    record.inverted = inverted;
    record.text = textTail(text);
    record.length = quint32(record.text.size());
    return toWire(record);
}

QByteArray KVB_ClearScreen(qint32 screen)
{
    KVB_ClearScreen_Record record;
    record.screen = screen;
    return toWire(record);
}

QByteArray KVB_ButtonLeds(qint32 button, qint32 level1, qint32 level2)
{
    KVB_ButtonLeds_Record record;
    record.button = button;
    record.level1 = level1;
    record.level2 = level2;
    return toWire(record);
}

QByteArray KVB_DrawTextAt(quint32 screen, quint32 position, quint32 column, quint32 width,
                          const QString &text, quint32 colour, quint32 bgColour)
{
    KVB_DrawTextAt_Record record;
    record.screen = screen;
    record.position = position;
    record.column = column;
    record.width = width;
    record.colour = colour;
    record.bgColour = bgColour;
    record.text = textTail(text);
    record.length = quint32(record.text.size());
    return toWire(record);
}

QByteArray KVB_SetLed(quint32 led, quint32 value)
{
    KVB_SetLed_Record record;
    record.led = led;
    record.value = value;
    return toWire(record);
}

QByteArray KVB_SetLed2(quint32 led, quint32 value)
{
    KVB_SetLed2_Record record;
    record.led = led;
    record.value = value;
    return toWire(record);
}

QByteArray KVB_Cmd10()
{
    return toWire(KVB_Cmd10_Record());
}

QByteArray KVB_DrawTFTImage(quint32 param1, quint32 param2, quint32 param3,
                            quint32 length, const char *data)
{
    KVB_DrawTFTImage_Record record;
    record.param1 = param1;
    record.param2 = param2;
    record.param3 = param3;
    record.length = length;
    record.data = QByteArray(data, int(length));
    printf("Before hton_KVB_DrawTFTImage... size = %d\n", int(length));
    fflush(stdout);
    QByteArray message = toWire(record);
    printf("After hton_KVB_DrawTFTImage...");
    fflush(stdout);
    return message;
}

QByteArray KVB_BlockList(quint32 param1, const std::vector<quint32> &blocks,
                         quint32 param2, quint32 param3)
{
    KVB_BlockList_Record record;
    record.param1 = param1;
    record.param2 = param2;
    record.param3 = param3;
    record.count = quint32(blocks.size());
    record.blocks = blocks;
    return toWire(record);
}

std::vector<QByteArray> KVB_BlockMessages(quint32 param1, const QList<QByteArray> &blocks,
                                          quint32 firstBlock, quint32 param2, quint32 param3)
{
    std::vector<QByteArray> messages;
    std::vector<quint32> numbers;
    for (const QByteArray &data : blocks) {
        KVB_Block_Record record;
        record.block = firstBlock + quint32(numbers.size());
        // The length word says what the caller gave; only the 120-byte area is filled.
        record.length = quint32(data.size());
        record.data = data;
        messages.push_back(toWire(record));
        numbers.push_back(record.block);
    }
    messages.push_back(KVB_BlockList(param1, numbers, param2, param3));
    return messages;
}

QString DecodedCommand::text() const
{
    const auto nul = tail.indexOf('\0');
    return QString::fromLatin1(nul < 0 ? tail : tail.left(nul));
}

bool decodeCommand(const QByteArray &message, DecodedCommand *out)
{
    if (!out || message.size() < 4)
        return false;
    switch (qFromBigEndian<quint32>(message.constData())) {
    case KVB_CODE_BLOCK:
        return decodeAs<KVB_Block_Record>(message, out);
    case KVB_CODE_CMD7:
        return decodeAs<KVB_Cmd7_Record>(message, out);
    case KVB_CODE_CMD10:
        return decodeAs<KVB_Cmd10_Record>(message, out);
    case KVB_CODE_BLOCKLIST:
        return decodeAs<KVB_BlockList_Record>(message, out);
    case KVB_CODE_DRAWTEXT:
        return decodeAs<KVB_DrawText_Record>(message, out);
    case KVB_CODE_CLEARSCREEN:
        return decodeAs<KVB_ClearScreen_Record>(message, out);
    case KVB_CODE_BUTTONLEDS:
        return decodeAs<KVB_ButtonLeds_Record>(message, out);
    case KVB_CODE_DRAWTEXTAT:
        return decodeAs<KVB_DrawTextAt_Record>(message, out);
    case KVB_CODE_DRAWTFTIMAGE:
        return decodeAs<KVB_DrawTFTImage_Record>(message, out);
    case KVB_CODE_SETLED:
        return decodeAs<KVB_SetLed_Record>(message, out);
    case KVB_CODE_SETLED2:
        return decodeAs<KVB_SetLed2_Record>(message, out);
    }
    return false;
}

} // namespace buttondriver
