# 64-bit ARM (Debian arm64). See docs/cross-building.md.
set(PANEL_SETUP_TRIPLET aarch64-linux-gnu)
set(PANEL_SETUP_PROCESSOR aarch64)
set(PANEL_SETUP_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-multiarch.cmake)
