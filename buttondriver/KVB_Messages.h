#ifndef KVB_MESSAGES_H
#define KVB_MESSAGES_H

#include <QByteArray>
#include <QList>
#include <QString>
#include <QtGlobal>

#include <vector>

// Builders for the button-driver commands. Each returns one finished message
// (header words big-endian, text or data tail as is); the client adds the
// length frame.
namespace buttondriver {

enum KVB_Code : quint32 {
    KVB_CODE_BLOCK = 6,
    KVB_CODE_CMD7 = 7,
    KVB_CODE_CMD10 = 10,
    KVB_CODE_BLOCKLIST = 13,
    KVB_CODE_DRAWTEXT = 15,
    KVB_CODE_CLEARSCREEN = 16,
    KVB_CODE_BUTTONLEDS = 17,
    KVB_CODE_DRAWTEXTAT = 18,
    KVB_CODE_DRAWTFTIMAGE = 19,
    KVB_CODE_SETLED = 21,
    KVB_CODE_SETLED2 = 22,
};

QByteArray KVB_DrawText(qint32 screen, quint32 line, const QString &text, quint8 inverted);
QByteArray KVB_ClearScreen(qint32 screen);
QByteArray KVB_ButtonLeds(qint32 button, qint32 level1, qint32 level2);
QByteArray KVB_DrawTextAt(quint32 screen, quint32 position, quint32 column, quint32 width,
                          const QString &text, quint32 colour, quint32 bgColour);
QByteArray KVB_SetLed(quint32 led, quint32 value);
QByteArray KVB_SetLed2(quint32 led, quint32 value);
QByteArray KVB_Cmd10();
QByteArray KVB_DrawTFTImage(quint32 param1, quint32 param2, quint32 param3,
                            quint32 length, const char *data);
QByteArray KVB_BlockList(quint32 param1, const std::vector<quint32> &blocks,
                         quint32 param2, quint32 param3);
// One KVB_Block per array (block numbers firstBlock, firstBlock + 1, ...),
// then one KVB_BlockList naming them; meant to be sent as one batch.
std::vector<QByteArray> KVB_BlockMessages(quint32 param1, const QList<QByteArray> &blocks,
                                          quint32 firstBlock, quint32 param2, quint32 param3);

// A command converted back to host order with the same conversions.
struct DecodedCommand
{
    quint32 code = 0;
    std::vector<qint32> words; // header words after the code, in message order
    QByteArray tail;           // text (with its NUL) or data bytes, as on the wire

    // The text tail up to its first NUL.
    QString text() const;
};

// False for an unknown code or a message whose size does not match its code.
bool decodeCommand(const QByteArray &message, DecodedCommand *out);

} // namespace buttondriver

#endif // KVB_MESSAGES_H
