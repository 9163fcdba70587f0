#ifndef LOGOUTPUT_H
#define LOGOUTPUT_H

#include <QString>
#include <QVarLengthArray>
#include <QtGlobal>

// The daemon's log: every line as Qt's default message handler writes it
// without a message pattern, but with one write(2) a line and no QString,
// QByteArray or stdio on the way. A menu turn logs four lines; through the
// default handler they cost more than the rest of the turn.
namespace logoutput {

using Line = QVarLengthArray<char, 1024>;

// Installs the handler unless QT_MESSAGE_PATTERN asks for Qt's own formatting.
void install();

// The bytes the default handler writes for a message: "category: " for a
// category other than "default", the text in the local 8-bit encoding up to a
// NUL (the default handler prints it with "%s"), a newline; nothing for a null
// text without a category.
void formatLine(const QMessageLogContext &context, const QString &message, Line *line);

// A debug line of the default category, as qDebug() sends it, without
// QDebug's stream: for the lines of the event path.
void debugLine(const QString &text);

} // namespace logoutput

#endif // LOGOUTPUT_H
