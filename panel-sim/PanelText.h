#ifndef PANELTEXT_H
#define PANELTEXT_H

#include <QString>
#include <QStringList>
#include <QVector>

class PanelModel;
class VirtualPanel;

// What the panel shows, as text: the cells of a TFT row for the terminal
// view, and the plain dump of the whole panel for scripts.
namespace paneltext {

constexpr int ScreenWidth = 24; // characters of a TFT text line shown
constexpr int ScreenRows = 9;   // the daemon draws rows 0 to 8

struct Cell
{
    QChar ch = QLatin1Char(' ');
    bool inverse = false; // the row is highlighted
    bool marked = false;  // under text painted at a column (code 18)
    quint32 colour = 0;   // of the painted text, when marked
    quint32 background = 0;
};

// text in double quotes, with \\, \" and \n escaped as the script language reads them.
QString quoted(const QString &text);

// One row of a screen as it looks: the line's text, highlighted across the
// whole width, with the painted texts over it.
QVector<Cell> screenRow(const PanelModel &panel, int screen, int row);

// "all 0/0", "-1/200 on all", "3 1/0, 7 1/0 (others 0/0)": levels of key lights.
QString keyLightSummary(const PanelModel &panel);

// The line under the panel: the countdown of held keys; else, while the
// daemon is connected and draws nothing, why the screens are blank; else the
// number of warnings and the last one (*warning set); else empty.
QString statusLine(const VirtualPanel &panel, bool *warning);

// The whole panel, one fact a line, in the words of the script language.
QStringList dump(const VirtualPanel &panel);

} // namespace paneltext

#endif // PANELTEXT_H
