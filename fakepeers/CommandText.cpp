#include "CommandText.h"

#include "buttondriver/KVB_Messages.h"

#include <QStringList>

QString describeCommand(const QByteArray &message)
{
    buttondriver::DecodedCommand cmd;
    if (!buttondriver::decodeCommand(message, &cmd))
        return QStringLiteral("undecodable ") + QString::fromLatin1(message.toHex());

    const std::vector<qint32> &w = cmd.words;
    auto words = [&w](size_t from, size_t to) {
        QStringList parts;
        for (size_t i = from; i < to && i < w.size(); ++i)
            parts << QString::number(w[i]);
        return parts.join(QLatin1Char(' '));
    };
    switch (cmd.code) {
    case buttondriver::KVB_CODE_DRAWTEXT: // screen, line, inverted, length
        return QStringLiteral("text %1 %2").arg(words(0, 3), cmd.text());
    case buttondriver::KVB_CODE_CLEARSCREEN:
        return QStringLiteral("clear ") + words(0, 1);
    case buttondriver::KVB_CODE_BUTTONLEDS:
        return QStringLiteral("leds ") + words(0, 3);
    case buttondriver::KVB_CODE_DRAWTEXTAT: // screen, pos, col, width, colour, bg, length
        return QStringLiteral("textat %1 0x%2 %3 %4")
            .arg(words(0, 4))
            .arg(quint32(w.at(4)), 0, 16)
            .arg(w.at(5))
            .arg(cmd.text());
    case buttondriver::KVB_CODE_SETLED:
        return QStringLiteral("led ") + words(0, 2);
    case buttondriver::KVB_CODE_SETLED2:
        return QStringLiteral("led2 ") + words(0, 2);
    case buttondriver::KVB_CODE_CMD10:
        return QStringLiteral("cmd10");
    default:
        return QStringLiteral("code%1 %2").arg(cmd.code).arg(words(0, w.size()));
    }
}
