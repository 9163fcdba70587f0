#ifndef TESTPAGEDRAWINGS_H
#define TESTPAGEDRAWINGS_H

#include <QStringList>

// What the test pages draw on entry, as RecordingCallback lines: for the tests
// of the pages themselves and of the pages that lead to them.
namespace testpagedrawings {

// The five status LEDs switched off, in the order the pages switch them.
QStringList statusLedsOff();
// Key lights off, screen 2 cleared, then the title and each shaft's line
// ("<n>: 0, 0, 0") for the six shafts.
QStringList shaftTestEntry();
// Key 0 with no presses or releases, then the key lights off.
QStringList keyTestEntry();
// The eight inputs, all OFF.
QStringList gpiTestEntry();
// The status LEDs off, the heading, and the five LEDs listed with PSU selected.
QStringList ledTestEntry();

} // namespace testpagedrawings

#endif // TESTPAGEDRAWINGS_H
