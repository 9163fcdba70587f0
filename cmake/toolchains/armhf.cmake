# 32-bit ARM with hardware floating point (Debian armhf). See docs/cross-building.md.
set(PANEL_SETUP_TRIPLET arm-linux-gnueabihf)
set(PANEL_SETUP_PROCESSOR arm)
set(PANEL_SETUP_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-multiarch.cmake)
