#ifndef BITMAPFONT_H
#define BITMAPFONT_H

#include <QByteArray>
#include <QString>

// A fixed-cell bitmap font (PCF, gzip-compressed or not) read with FreeType,
// as the page draws it: for every character of Latin-1 that the font has, the
// pixels of its whole cell, one integer a row, bit width-1-x for column x.
namespace bitmapfont {

// {"name", "width", "height", "ascent", "glyphs": {"65": [rows...], ...}} as
// compact JSON; empty with *error set when the file is no bitmap font.
QByteArray cellsJson(const QString &path, const QString &name, QString *error);

} // namespace bitmapfont

#endif // BITMAPFONT_H
