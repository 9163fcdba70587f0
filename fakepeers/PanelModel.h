#ifndef PANELMODEL_H
#define PANELMODEL_H

#include "buttondriver/KVB_Messages.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QtGlobal>

#include <array>

// What the panel would show after the button-driver commands seen so far:
// three TFT screens of text lines, the text painted at a column over them,
// the key lights, the five status LEDs, the number of level updates and the
// TFT and key-light levels last applied.
class PanelModel
{
public:
    static constexpr int Screens = 3;
    static constexpr int Keys = 30;       // keys 0..23 and the shafts' push switches 24..29
    static constexpr int StatusLeds = 5;  // PSU, AUX, FAULT, WARNING, COMM

    struct TextLine
    {
        QString text;
        bool highlighted = false;
    };

    // Text drawn at a column of a row (code 18), over the row's text line.
    struct Overlay
    {
        int row = 0;
        int column = 0;
        int width = 0;
        QString text;
        quint32 colour = 0;
        quint32 background = 0;
    };

    struct KeyLight
    {
        qint32 level1 = 0;
        qint32 level2 = 0;
    };

    // Applies one command; unknown codes and out-of-range screens, keys or
    // LEDs change nothing and give false. Codes that do not change what the
    // panel shows (blocks, images, code 7) give true.
    bool apply(const buttondriver::DecodedCommand &command);
    void reset();

    // The rows drawn on a screen since its last clear (row -> line).
    QMap<int, TextLine> lines(int screen) const;
    // The row's text, empty when nothing is drawn there.
    QString text(int screen, int row) const;
    bool isHighlighted(int screen, int row) const;
    QList<Overlay> overlays(int screen) const;

    KeyLight keyLight(int key) const;
    // By index of the LED table: 0 PSU, 1 AUX (code 22, LEDs 0 and 1),
    // 2 FAULT, 3 WARNING, 4 COMM (code 21, LEDs 2, 1 and 0); -1 before any command.
    qint32 statusLed(int index) const;
    int levelUpdates() const { return _levelUpdates; }

    // Brightness in percent as the driver applies it on a level update
    // (code 10); -1 before any.
    void setLevels(qint32 tft, qint32 keyLights);
    qint32 tftLevel() const { return _tftLevel; }
    qint32 keyLightLevel() const { return _keyLightLevel; }

private:
    struct Screen
    {
        QMap<int, TextLine> lines;
        QList<Overlay> overlays;
    };

    static bool validScreen(int screen) { return screen >= 0 && screen < Screens; }
    bool drawText(int screen, int row, const TextLine &line);
    bool clear(int screen);

    std::array<Screen, Screens> _screens;
    std::array<KeyLight, Keys> _keys{};
    std::array<qint32, StatusLeds> _leds{{-1, -1, -1, -1, -1}};
    int _levelUpdates = 0;
    qint32 _tftLevel = -1;
    qint32 _keyLightLevel = -1;
};

#endif // PANELMODEL_H
