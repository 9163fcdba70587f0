#ifndef FONTCATALOGUE_H
#define FONTCATALOGUE_H

#include <QMap>
#include <QString>
#include <QStringList>

class PageCallback;

// The fonts installed for the panel's TFT text: "*.pcf.gz" files named
// width "x" height, listed narrowest first.
namespace fontcatalogue {

// The font directory actually used (under PANEL_SETUP_ROOT).
QString fontDirectory();

// Fills names (base names such as "8x13") and info (name -> file path) from
// the font directory, unless names already holds a catalogue.
void scanFonts(QStringList *names, QMap<QString, QString> *info);

// Sets *index to the entry of names that matches the font in use (asked of
// callback); leaves it unchanged when nothing matches.
void lookupFontIndex(PageCallback *callback, const QStringList &names, int *index);

} // namespace fontcatalogue

// Width and height of a font name such as "10x20"; a part that is missing or
// no number gives 0.
void parse_font_dimensions(const QString &name, int *width, int *height);

#endif // FONTCATALOGUE_H
