SUMMARY = "Front-panel setup and maintenance daemon"
DESCRIPTION = "Takes the control panel's keys, shafts and screens over from the \
main application for network settings, hardware tests, intensity, reboot and \
shutdown. Talks to the collector (TCP 3355) and the button driver (TCP 3003) \
on the loopback address."
# Set the licence of your product.
LICENSE = "CLOSED"

# Point this at the repository your layer builds from.
SRC_URI = "git://git.example.com/panel-setup.git;protocol=https;branch=main"
SRCREV = "${AUTOREV}"
PV = "1.1+git${SRCPV}"
S = "${WORKDIR}/git"

# meta-qt6. For a Qt 5.15 BSP (meta-qt5): inherit cmake_qt5 instead of
# qt6-cmake and set PANEL_SETUP_QT_MAJOR_VERSION to 5.
inherit qt6-cmake systemd update-rc.d
DEPENDS = "qtbase"

# Every CMake option of the project, in the order of its CMakeLists.txt files.
# Not used here (developer builds only): PANEL_SETUP_SANITIZE
# PANEL_SETUP_SANITIZE_THREAD PANEL_SETUP_FUZZ
# PANEL_SETUP_BUILD_BENCH PANEL_SETUP_SOAK PANEL_SETUP_SOAK_EVENTS
# PANEL_SETUP_SOAK_KILL_CYCLES PANEL_SETUP_SOAK_RESTART_CYCLES
# PANEL_SETUP_PYTHON3 (the browser test's interpreter)
EXTRA_OECMAKE = " \
    -DPANEL_SETUP_BUILD_TESTS=OFF \
    -DPANEL_SETUP_QT_MAJOR_VERSION=6 \
    -DPANEL_SETUP_INSTALL_SYSTEMD_UNIT=${@bb.utils.contains('DISTRO_FEATURES', 'systemd', 'ON', 'OFF', d)} \
    -DPANEL_SETUP_INSTALL_SYSVINIT_SCRIPT=${@bb.utils.contains('DISTRO_FEATURES', 'sysvinit', 'ON', 'OFF', d)} \
    -DPANEL_SETUP_INSTALL_SETUP_SCRIPT=ON \
    -DPANEL_SETUP_SCRIPT=${sbindir}/setup_script \
    -DPANEL_SETUP_SYSTEMD_UNITDIR=${systemd_system_unitdir} \
    -DPANEL_SETUP_COLLECTOR_SERVICE=kd5820m-collector \
    -DPANEL_SETUP_DRIVER_SERVICE=kd5820m-buttondriver \
"

SYSTEMD_SERVICE:${PN} = "panel-setup.service panel-setup-recover.service"

# The init scripts: one a package for update-rc.d, so the boot's recovery of
# interrupted settings saves has a package of its own.
PACKAGES =+ "${PN}-recover"
FILES:${PN}-recover = "${sysconfdir}/init.d/panel-setup-recover"
RDEPENDS:${PN}-recover = "${PN}"
RRECOMMENDS:${PN} = "${PN}-recover"
ALLOW_EMPTY:${PN}-recover = "1"
INITSCRIPT_PACKAGES = "${PN} ${PN}-recover"
INITSCRIPT_NAME:${PN} = "panel-setup"
# Starts late (90), after the collector and the button driver; stops early (10).
INITSCRIPT_PARAMS:${PN} = "defaults 90 10"
INITSCRIPT_NAME:${PN}-recover = "panel-setup-recover"
# In runlevel S once the local file systems are mounted read-write, before
# networking; check the numbers against the image's own scripts.
INITSCRIPT_PARAMS:${PN}-recover = "start 38 S ."
