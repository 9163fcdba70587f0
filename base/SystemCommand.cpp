#include "base/SystemCommand.h"

#include <cstdlib>

void runCommand(const QString &command)
{
    const int status = std::system(command.toLatin1().constData());
    static_cast<void>(status);
}
