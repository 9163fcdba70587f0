#ifndef RUNTIMEENV_H
#define RUNTIMEENV_H

#include <QString>

// The device's paths and ports are fixed. For tests and the simulator three
// environment variables move them; unset or empty, every value is the device's:
//   PANEL_SETUP_ROOT            prefixed to every absolute path the program uses
//   PANEL_SETUP_COLLECTOR_PORT  collector port (default 3355)
//   PANEL_SETUP_DRIVER_PORT     button-driver port (default 3003)
// The variables are read once, on first use.
namespace runtimeenv {

// The sandbox root, empty on a device.
const QString &root();

// devicePath (an absolute path such as "/etc/network/interfaces") under the root.
QString path(const QString &devicePath);

quint16 collectorPort();
quint16 driverPort();

} // namespace runtimeenv

#endif // RUNTIMEENV_H
