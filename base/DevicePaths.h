#ifndef DEVICEPATHS_H
#define DEVICEPATHS_H

#include <QtGlobal>

// Every fixed path and port of the device, in one place. Paths are the
// device's own; runtimeenv::path() puts them under the sandbox root.
namespace devicepaths {

constexpr char LauncherConfig[] = "/etc/kd5820m/launcher.cfg";
constexpr char ButtonLevel[] = "/etc/kd5820m/buttonlevel";
constexpr char VersionFile[] = "/opt/kd5820m/version";
constexpr char FontDir[] = "/opt/kd5820m/fonts";
constexpr char Interfaces[] = "/etc/network/interfaces";
constexpr char NetworkingScript[] = "/etc/init.d/networking";
constexpr char StartFlag[] = "/mnt/flashdisk/etc/network/start_setup_program";
constexpr char MainAppScript[] = "/etc/init.d/kd5820m-main";
constexpr char UpgradeDir[] = "/tmp";
constexpr char Sync[] = "/bin/sync";
// Redo records of settings saves whose file's directory is not writable.
constexpr char StateDir[] = "/var/lib/panel-setup";

constexpr quint16 CollectorPort = 3355;
constexpr quint16 DriverPort = 3003;

} // namespace devicepaths

#endif // DEVICEPATHS_H
