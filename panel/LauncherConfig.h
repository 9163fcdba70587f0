#ifndef LAUNCHERCONFIG_H
#define LAUNCHERCONFIG_H

#include <QString>

// The INI file shared with the main application: groups "setup" (activation
// keys), "font" (panel text font) and "psu" (dual power-supply mode). Every
// routine opens the file anew and keeps the other groups and keys as they are.
// None of them creates the file; a missing file takes the error path. A save
// replaces the file whole or, when it cannot be written (a full disk), leaves
// it as it was and logs the refusal.

// /etc/kd5820m/launcher.cfg under the runtime root.
QString launcherConfigPath();

// Where saves keep their copies, each in a private directory
// "panel-setup-<pid>-XXXXXX": /dev/shm, or the temporary directory without it.
QString scratchParent();

// Removes the copies' directories of processes no longer running.
void removeStaleScratchCopies();

// Activation key ids from [setup] button1/button2; 24 and 25 when the file is
// missing or unreadable. Null pointers are ignored.
void readActivateButtons(int *button1, int *button2);

// [font] width/height; a missing key gives 0. Both outputs stay untouched when
// the file is missing or unreadable, or when either pointer is null.
void readFontDimensions(int *width, int *height);

// 0 written, -1 file missing, 1 file unreadable, 2 file not writable or the
// save could not be written.
int writeFontDimensions(int width, int height);

// [psu] redundant, 0 on any failure; adds the key with 0 to an existing file
// that lacks it (0 also when that save is refused).
int readPsuMode();

// 0 written, -1 file missing, unreadable or not writable, or the save could
// not be written.
int writePsuMode(int mode);

#endif // LAUNCHERCONFIG_H
