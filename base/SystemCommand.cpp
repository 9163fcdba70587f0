#include "base/SystemCommand.h"

#include <cstdlib>

void runCommand(const QString &command)
{
    // glibc's system() is MT-Safe; the save and reboot threads run commands too.
    const int status = std::system(command.toLatin1().constData()); // NOLINT(concurrency-mt-unsafe)
    static_cast<void>(status);
}
