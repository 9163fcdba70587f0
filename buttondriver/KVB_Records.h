#ifndef KVB_RECORDS_H
#define KVB_RECORDS_H

#include "buttondriver/KVB_Messages.h"

#include <QByteArray>
#include <QtEndian>
#include <QtGlobal>

#include <cstring>
#include <vector>

// Host-order records of the button-driver messages. Each record states its wire
// layout once, in layout(); size(), hton() and ntoh() walk that layout, so the
// three can never disagree. Header words and element lists are swapped; byte
// tails are copied as they are, their length taken from the record's length field.
namespace buttondriver {

namespace wire {

// Counts the bytes of a record's wire form.
struct Sizer
{
    qint64 size = 0;

    template <typename Word> void word(const Word &) { size += 4; }
    void list(const std::vector<quint32> &, quint32 count) { size += 4 * qint64(count); }
    void tail(const QByteArray &, quint32 length) { size += length; }
    void area(const QByteArray &, quint32, int areaSize) { size += areaSize; }
};

// Writes a record in network order into a buffer of the record's size.
struct Writer
{
    char *out;

    // Qt's counted form converts out of line: GCC takes an inlined store into
    // a Qt 5 QByteArray's data() for one past the array's header and warns
    // (-Wstringop-overflow) although the buffer holds the record.
    template <typename Word> void word(const Word &w)
    {
        qToBigEndian<Word>(&w, 1, out);
        out += 4;
    }
    void list(const std::vector<quint32> &items, quint32 count)
    {
        for (quint32 i = 0; i < count; ++i)
            word(i < items.size() ? items[i] : 0u);
    }
    // Exactly `length` bytes: what the source lacks is zero-filled.
    void tail(const QByteArray &bytes, quint32 length) { copy(bytes, length, length); }
    void area(const QByteArray &bytes, quint32 length, int areaSize)
    {
        copy(bytes, qMin<qint64>(length, areaSize), areaSize);
    }

private:
    void copy(const QByteArray &bytes, qint64 wanted, qint64 room)
    {
        const qint64 n = qMin<qint64>(bytes.size(), wanted);
        if (n > 0)
            std::memcpy(out, bytes.constData(), size_t(n));
        std::memset(out + n, 0, size_t(room - n));
        out += room;
    }
};

// Reads a record from network order. It never reads past `left` bytes: a field
// that does not fit, or a length that exceeds what is there, clears `ok`.
struct Reader
{
    const char *in;
    qint64 left;
    bool ok = true;

    template <typename Word> void word(Word &w)
    {
        if (!take(4))
            return;
        w = qFromBigEndian<Word>(in);
        in += 4;
    }
    void list(std::vector<quint32> &items, quint32 count)
    {
        items.clear();
        if (!take(4 * qint64(count)))
            return;
        items.reserve(count);
        for (quint32 i = 0; i < count; ++i, in += 4)
            items.push_back(qFromBigEndian<quint32>(in));
    }
    void tail(QByteArray &bytes, quint32 length)
    {
        if (!take(length))
            return;
        bytes = QByteArray(in, int(length));
        in += length;
    }
    void area(QByteArray &bytes, quint32 length, int areaSize)
    {
        if (length > quint32(areaSize) || !take(areaSize))
            return;
        bytes = QByteArray(in, int(length));
        in += areaSize;
    }

private:
    bool take(qint64 n)
    {
        ok = ok && n <= left;
        if (ok)
            left -= n;
        return ok;
    }
};

} // namespace wire

// size(), hton() and ntoh() for a record that provides layout().
template <typename Record>
struct KVB_Record
{
    // Bytes of the wire form: a constant, plus the tail or list the record holds.
    qint64 size() const
    {
        wire::Sizer sizer;
        Record::layout(self(), sizer);
        return sizer.size;
    }

    // Writes the network-order form into `out`, which holds size() bytes.
    void hton(char *out) const
    {
        wire::Writer writer{out};
        Record::layout(self(), writer);
    }

    // Fills the record from a network-order message of `length` bytes. False,
    // with the record unusable, when the message is not exactly one record of
    // this kind.
    bool ntoh(const char *in, qint64 length)
    {
        const quint32 code = self().code;
        wire::Reader reader{in, length};
        Record::layout(static_cast<Record &>(*this), reader);
        return reader.ok && reader.left == 0 && self().code == code;
    }

private:
    const Record &self() const { return static_cast<const Record &>(*this); }
};

// Code 6: one block of up to 120 data bytes.
struct KVB_Block_Record : KVB_Record<KVB_Block_Record>
{
    static constexpr int DataArea = 120;

    quint32 code = KVB_CODE_BLOCK;
    quint32 block = 0;
    quint32 length = 0;
    QByteArray data; // the first `length` bytes of the data area

    template <typename Self, typename Io> static void layout(Self &r, Io &io)
    {
        io.word(r.code);
        io.word(r.block);
        io.word(r.length);
        io.area(r.data, r.length, DataArea);
    }
};

// Code 7: two words that this program passes through.
struct KVB_Cmd7_Record : KVB_Record<KVB_Cmd7_Record>
{
    quint32 code = KVB_CODE_CMD7;
    quint32 param1 = 0;
    quint32 param2 = 0;

    template <typename Self, typename Io> static void layout(Self &r, Io &io)
    {
        io.word(r.code);
        io.word(r.param1);
        io.word(r.param2);
    }
};

// Code 10: one word, always 0.
struct KVB_Cmd10_Record : KVB_Record<KVB_Cmd10_Record>
{
    quint32 code = KVB_CODE_CMD10;
    quint32 zero = 0;

    template <typename Self, typename Io> static void layout(Self &r, Io &io)
    {
        io.word(r.code);
        io.word(r.zero);
    }
};

// Code 13: the blocks that make up one transfer, in order.
struct KVB_BlockList_Record : KVB_Record<KVB_BlockList_Record>
{
    quint32 code = KVB_CODE_BLOCKLIST;
    quint32 param1 = 0;
    quint32 reserved = 0;
    quint32 param3 = 0;
    quint32 param2 = 0;
    quint32 count = 0;
    std::vector<quint32> blocks;

    template <typename Self, typename Io> static void layout(Self &r, Io &io)
    {
        io.word(r.code);
        io.word(r.param1);
        io.word(r.reserved);
        io.word(r.param3);
        io.word(r.param2);
        io.word(r.count);
        io.list(r.blocks, r.count);
    }
};

// Code 15: a text line; the text carries its NUL, which `length` counts.
struct KVB_DrawText_Record : KVB_Record<KVB_DrawText_Record>
{
    quint32 code = KVB_CODE_DRAWTEXT;
    qint32 screen = 0;
    quint32 line = 0;
    quint32 inverted = 0;
    quint32 length = 0;
    QByteArray text;

    template <typename Self, typename Io> static void layout(Self &r, Io &io)
    {
        io.word(r.code);
        io.word(r.screen);
        io.word(r.line);
        io.word(r.inverted);
        io.word(r.length);
        io.tail(r.text, r.length);
    }
};

// Code 16: clears a screen (-1: all).
struct KVB_ClearScreen_Record : KVB_Record<KVB_ClearScreen_Record>
{
    quint32 code = KVB_CODE_CLEARSCREEN;
    qint32 screen = 0;

    template <typename Self, typename Io> static void layout(Self &r, Io &io)
    {
        io.word(r.code);
        io.word(r.screen);
    }
};

// Code 17: key lights of one button (-1: all).
struct KVB_ButtonLeds_Record : KVB_Record<KVB_ButtonLeds_Record>
{
    quint32 code = KVB_CODE_BUTTONLEDS;
    qint32 button = 0;
    qint32 level1 = 0;
    qint32 level2 = 0;

    template <typename Self, typename Io> static void layout(Self &r, Io &io)
    {
        io.word(r.code);
        io.word(r.button);
        io.word(r.level1);
        io.word(r.level2);
    }
};

// Code 18: text at a position with colours; the text goes last.
struct KVB_DrawTextAt_Record : KVB_Record<KVB_DrawTextAt_Record>
{
    quint32 code = KVB_CODE_DRAWTEXTAT;
    quint32 screen = 0;
    quint32 position = 0;
    quint32 column = 0;
    quint32 width = 0;
    quint32 colour = 0;
    quint32 bgColour = 0;
    quint32 length = 0;
    QByteArray text;

    template <typename Self, typename Io> static void layout(Self &r, Io &io)
    {
        io.word(r.code);
        io.word(r.screen);
        io.word(r.position);
        io.word(r.column);
        io.word(r.width);
        io.word(r.colour);
        io.word(r.bgColour);
        io.word(r.length);
        io.tail(r.text, r.length);
    }
};

// Code 19: raw image data.
struct KVB_DrawTFTImage_Record : KVB_Record<KVB_DrawTFTImage_Record>
{
    quint32 code = KVB_CODE_DRAWTFTIMAGE;
    quint32 param1 = 0;
    quint32 param2 = 0;
    quint32 param3 = 0;
    quint32 length = 0;
    QByteArray data;

    template <typename Self, typename Io> static void layout(Self &r, Io &io)
    {
        io.word(r.code);
        io.word(r.param1);
        io.word(r.param2);
        io.word(r.param3);
        io.word(r.length);
        io.tail(r.data, r.length);
    }
};

// Codes 21 and 22: one LED; the two codes address different LED groups.
template <quint32 Code>
struct KVB_SetLed_Record_T : KVB_Record<KVB_SetLed_Record_T<Code>>
{
    quint32 code = Code;
    quint32 led = 0;
    quint32 value = 0;

    template <typename Self, typename Io> static void layout(Self &r, Io &io)
    {
        io.word(r.code);
        io.word(r.led);
        io.word(r.value);
    }
};
using KVB_SetLed_Record = KVB_SetLed_Record_T<KVB_CODE_SETLED>;
using KVB_SetLed2_Record = KVB_SetLed_Record_T<KVB_CODE_SETLED2>;

} // namespace buttondriver

#endif // KVB_RECORDS_H
