#include "base/RuntimeEnv.h"
#include "base/DevicePaths.h"

#include <QtGlobal>

namespace runtimeenv {

namespace {

quint16 portFromEnv(const char *name, quint16 devicePort)
{
    bool ok = false;
    const uint port = qEnvironmentVariable(name).toUInt(&ok);
    return ok && port > 0 && port <= 0xFFFF ? quint16(port) : devicePort;
}

} // namespace

const QString &root()
{
    static const QString value = qEnvironmentVariable("PANEL_SETUP_ROOT");
    return value;
}

QString path(const QString &devicePath)
{
    return root() + devicePath;
}

quint16 collectorPort()
{
    static const quint16 port = portFromEnv("PANEL_SETUP_COLLECTOR_PORT", devicepaths::CollectorPort);
    return port;
}

quint16 driverPort()
{
    static const quint16 port = portFromEnv("PANEL_SETUP_DRIVER_PORT", devicepaths::DriverPort);
    return port;
}

} // namespace runtimeenv
