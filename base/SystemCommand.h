#ifndef SYSTEMCOMMAND_H
#define SYSTEMCOMMAND_H

#include <QString>

// Runs command through the C library's system() and waits for it. Nothing
// acts on how the hooks, sync, touch, reboot or poweroff end, so their status
// is not kept.
void runCommand(const QString &command);

#endif // SYSTEMCOMMAND_H
