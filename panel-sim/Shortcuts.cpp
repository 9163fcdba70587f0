#include "Shortcuts.h"

#include "VirtualPanel.h"

namespace shortcuts {

namespace {

constexpr QLatin1String KeysLow("1234567890-=");  // keys 0 to 11
constexpr QLatin1String KeysHigh("!@#$%^&*()_+"); // keys 12 to 23
constexpr QLatin1String ShaftsUp("asdfgh");       // shafts 0 to 5, +1
constexpr QLatin1String ShaftsDown("ASDFGH");     // shafts 0 to 5, -1
constexpr QLatin1String PushSwitches("zxcvbn");   // keys 24 to 29
constexpr QLatin1String GpiKeys("wertyuio");      // GPIs 0 to 7

// The position of c in keys, -1 when it is not there.
int indexIn(QLatin1String keys, QChar c)
{
    return int(keys.indexOf(c));
}

} // namespace

Action apply(VirtualPanel &panel, int key)
{
    const QChar c = key < 0x10000 ? QChar(key) : QChar();
    if (key == Up || key == 'k') {
        panel.turn(4, -1);
    } else if (key == Down || key == 'j') {
        panel.turn(4, 1);
    } else if (key == '\r' || key == '\n') {
        panel.tap(28);
    } else if (key == Escape || key == 0x7f || key == 0x08) {
        panel.tap(2);
    } else if (key == 'q' || key == 0x03) {
        return Action::Quit;
    } else if (key == 0x0c) {
        return Action::Redraw;
    } else if (key == '?') {
        return Action::Help;
    } else if (key == 'm') {
        panel.hold(panel.activationKeys(), HoldMsecs);
    } else if (key == '[') {
        panel.dropUpgradeImage();
    } else if (key == ']') {
        panel.removeUpgradeImage();
    } else if (indexIn(KeysLow, c) >= 0) {
        panel.tap(indexIn(KeysLow, c));
    } else if (indexIn(KeysHigh, c) >= 0) {
        panel.tap(12 + indexIn(KeysHigh, c));
    } else if (indexIn(ShaftsUp, c) >= 0) {
        panel.turn(indexIn(ShaftsUp, c), 1);
    } else if (indexIn(ShaftsDown, c) >= 0) {
        panel.turn(indexIn(ShaftsDown, c), -1);
    } else if (indexIn(PushSwitches, c) >= 0) {
        panel.tap(24 + indexIn(PushSwitches, c));
    } else if (indexIn(GpiKeys, c) >= 0) {
        const int gpi = indexIn(GpiKeys, c);
        panel.setGpi(gpi, !panel.gpi(gpi));
    } else {
        // A null character (a key beyond 16 bits) too.
        return Action::None;
    }
    return Action::Panel;
}

QStringList helpText()
{
    return {
        QStringLiteral("Up/k Down/j: menu shaft -1/+1   Enter: select (28)   Backspace/Esc: back (2)"),
        QStringLiteral("Keys 0-11: 1 2 3 4 5 6 7 8 9 0 - =    Keys 12-23: ! @ # $ % ^ & * ( ) _ +"),
        QStringLiteral("Shafts 0-5: a s d f g h +1, A S D F G H -1   Push switches 24-29: z x c v b n"),
        QStringLiteral("GPIs 0-7 on/off: w e r t y u i o   m: hold the activation keys 5.5 s"),
        QStringLiteral("[: drop /tmp/panel-upgrade.img  ]: remove it  Ctrl-L: redraw  ?: log  q: quit"),
    };
}

} // namespace shortcuts
