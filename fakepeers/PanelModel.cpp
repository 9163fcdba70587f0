#include "PanelModel.h"

using buttondriver::DecodedCommand;

namespace {

// Header words after the code that each drawn code needs.
size_t wordsNeeded(quint32 code)
{
    switch (code) {
    case buttondriver::KVB_CODE_DRAWTEXT:
        return 4;
    case buttondriver::KVB_CODE_BUTTONLEDS:
        return 3;
    case buttondriver::KVB_CODE_DRAWTEXTAT:
        return 7;
    case buttondriver::KVB_CODE_SETLED:
    case buttondriver::KVB_CODE_SETLED2:
        return 2;
    default:
        return 1;
    }
}

} // namespace

bool PanelModel::apply(const DecodedCommand &command)
{
    const std::vector<qint32> &w = command.words;
    if (w.size() < wordsNeeded(command.code))
        return false;
    switch (command.code) {
    case buttondriver::KVB_CODE_DRAWTEXT: { // screen, line, inverted, length
        const TextLine line{command.text(), w.at(2) != 0};
        if (w.at(0) != -1)
            return drawText(w.at(0), w.at(1), line);
        for (int screen = 0; screen < Screens; ++screen)
            drawText(screen, w.at(1), line);
        return true;
    }
    case buttondriver::KVB_CODE_CLEARSCREEN:
        if (w.at(0) != -1)
            return clear(w.at(0));
        for (int screen = 0; screen < Screens; ++screen)
            clear(screen);
        return true;
    case buttondriver::KVB_CODE_BUTTONLEDS: { // button, level1, level2
        const KeyLight light{w.at(1), w.at(2)};
        if (w.at(0) == -1)
            _keys.fill(light);
        else if (w.at(0) >= 0 && w.at(0) < Keys)
            _keys[w.at(0)] = light;
        else
            return false;
        return true;
    }
    case buttondriver::KVB_CODE_DRAWTEXTAT: // screen, row, column, width, colour, bg, length
        if (!validScreen(w.at(0)))
            return false;
        _screens[w.at(0)].overlays.append(Overlay{w.at(1), w.at(2), w.at(3), command.text(),
                                                  quint32(w.at(4)), quint32(w.at(5))});
        return true;
    case buttondriver::KVB_CODE_SETLED2: // LEDs 0 and 1 of the table
        if (w.at(0) != 0 && w.at(0) != 1)
            return false;
        _leds[w.at(0)] = w.at(1);
        return true;
    case buttondriver::KVB_CODE_SETLED: // hardware 2, 1, 0 are table entries 2, 3, 4
        if (w.at(0) < 0 || w.at(0) > 2)
            return false;
        _leds[4 - w.at(0)] = w.at(1);
        return true;
    case buttondriver::KVB_CODE_CMD10:
        ++_levelUpdates;
        return true;
    case buttondriver::KVB_CODE_BLOCK:
    case buttondriver::KVB_CODE_CMD7:
    case buttondriver::KVB_CODE_BLOCKLIST:
    case buttondriver::KVB_CODE_DRAWTFTIMAGE:
        return true;
    default:
        return false;
    }
}

void PanelModel::reset()
{
    *this = PanelModel();
}

bool PanelModel::drawText(int screen, int row, const TextLine &line)
{
    if (!validScreen(screen))
        return false;
    Screen &s = _screens[screen];
    s.lines[row] = line;
    // A new line covers whatever was painted over the old one.
    for (int i = int(s.overlays.size()) - 1; i >= 0; --i) {
        if (s.overlays.at(i).row == row)
            s.overlays.removeAt(i);
    }
    return true;
}

bool PanelModel::clear(int screen)
{
    if (!validScreen(screen))
        return false;
    _screens[screen] = Screen();
    return true;
}

void PanelModel::setLevels(qint32 tft, qint32 keyLights)
{
    _tftLevel = tft;
    _keyLightLevel = keyLights;
}

QMap<int, PanelModel::TextLine> PanelModel::lines(int screen) const
{
    return validScreen(screen) ? _screens[screen].lines : QMap<int, TextLine>();
}

QString PanelModel::text(int screen, int row) const
{
    return lines(screen).value(row).text;
}

bool PanelModel::isHighlighted(int screen, int row) const
{
    return lines(screen).value(row).highlighted;
}

QList<PanelModel::Overlay> PanelModel::overlays(int screen) const
{
    return validScreen(screen) ? _screens[screen].overlays : QList<Overlay>();
}

PanelModel::KeyLight PanelModel::keyLight(int key) const
{
    return key >= 0 && key < Keys ? _keys[key] : KeyLight();
}

qint32 PanelModel::statusLed(int index) const
{
    return index >= 0 && index < StatusLeds ? _leds[index] : -1;
}
