#ifndef BUTTONLEVELFILE_H
#define BUTTONLEVELFILE_H

#include <QString>

#include <vector>

// The button-level file holds two lines, "lcd <buttons level>" and
// "scr <TFT level>".

// The file path actually used (under PANEL_SETUP_ROOT).
QString buttonlevelFilePath();

// values must hold two entries: 0 receives the lcd value, 1 the scr value.
// Writes the defaults first when the file does not exist. False when the file
// cannot be read (or values is too short).
bool readButtonlevelFile(std::vector<QString> &values);

// Writes entry 0 on the lcd line and entry 1 on the scr line; a failure is
// only logged.
void writeButtonlevelFile(const std::vector<QString> &values);

// Writes "100" for both levels.
void writeButtonlevelFileDefaults();

#endif // BUTTONLEVELFILE_H
