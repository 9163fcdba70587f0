#include "RuntimeEnv.h"

#include <QByteArray>
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
    static const quint16 port = portFromEnv("PANEL_SETUP_COLLECTOR_PORT", 3355);
    return port;
}

quint16 driverPort()
{
    static const quint16 port = portFromEnv("PANEL_SETUP_DRIVER_PORT", 3003);
    return port;
}

} // namespace runtimeenv
