# Cross-compiling on Debian with multiarch: the cross compiler g++-<triplet>
# and the target architecture's own -dev packages (qt6-base-dev:<arch>), whose
# libraries and CMake files live in /usr/lib/<triplet>. Included by the files
# of each architecture, which set the three variables below.
#   PANEL_SETUP_TRIPLET      GNU triplet, e.g. aarch64-linux-gnu
#   PANEL_SETUP_PROCESSOR    CMAKE_SYSTEM_PROCESSOR, e.g. aarch64
#   PANEL_SETUP_QEMU         qemu-user program that runs the target's binaries

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${PANEL_SETUP_PROCESSOR})
set(CMAKE_C_COMPILER ${PANEL_SETUP_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${PANEL_SETUP_TRIPLET}-g++)

# Libraries and packages from /usr/lib/<triplet> only; programs (moc) from the build machine.
set(CMAKE_LIBRARY_ARCHITECTURE ${PANEL_SETUP_TRIPLET})
set(CMAKE_FIND_ROOT_PATH /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(PKG_CONFIG_LIBDIR /usr/lib/${PANEL_SETUP_TRIPLET}/pkgconfig:/usr/share/pkgconfig)

# CTest runs the target's test programs under qemu-user; the target's dynamic
# loader and libraries are installed by multiarch, so no sysroot is needed.
set(CMAKE_CROSSCOMPILING_EMULATOR ${PANEL_SETUP_QEMU})
