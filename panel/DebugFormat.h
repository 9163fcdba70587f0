#ifndef DEBUGFORMAT_H
#define DEBUGFORMAT_H

#include <QString>
#include <QStringList>

// A string list in the debug stream's list form, ("a", "b"), the same on Qt 5
// and Qt 6 (Qt 6 itself prints QList("a", "b")). Log it with noquote().
QString debugListForm(const QStringList &list);

#endif // DEBUGFORMAT_H
