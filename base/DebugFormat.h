#ifndef DEBUGFORMAT_H
#define DEBUGFORMAT_H

#include <QDebug>
#include <QString>
#include <QStringList>

// A string list in the debug stream's list form, ("a", "b"), the same on Qt 5
// and Qt 6 (Qt 6 itself prints QList("a", "b")). Log it with noquote().
QString debugListForm(const QStringList &list);

// A string item of the debug stream framed in double quotes but otherwise as
// it stands: Qt 5.14 and later escape quotes, backslashes and control
// characters in a quoted string, which would change paths, file texts and
// version lines in the log.
struct Verbatim
{
    QString text;
};

inline Verbatim verbatim(const QString &text)
{
    return Verbatim{text};
}

QDebug operator<<(QDebug debug, const Verbatim &item);

#endif // DEBUGFORMAT_H
