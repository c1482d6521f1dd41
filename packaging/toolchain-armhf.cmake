# The device's target: 32-bit ARM, hard float, with Debian's cross compiler
# (g++-arm-linux-gnueabihf). `long`, `unsigned long` and `time_t` are 4 bytes here.
#
#   cmake --preset armhf        (or -DCMAKE_TOOLCHAIN_FILE=packaging/toolchain-armhf.cmake)
#
# Programs of this build run on an x86-64 host through qemu-user (Debian's qemu-user),
# which CMake knows as the cross-compiling emulator: ctest puts it in front of every test.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(AGENT_TARGET_TRIPLE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${AGENT_TARGET_TRIPLE}-gcc)    # googletest's sources enable C
set(CMAKE_CXX_COMPILER ${AGENT_TARGET_TRIPLE}-g++)
# GCC notes on ARM that the passing of some arguments changed in GCC 7.1. Everything
# here is built by one compiler, so the note has nothing to warn of.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

# Libraries and headers come from the cross toolchain's tree; programs (pkg-config,
# the emulator) from the host.
set(CMAKE_FIND_ROOT_PATH /usr/${AGENT_TARGET_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# Header-only packages (nlohmann-json) are architecture-independent and live on the
# host; Debian's cross g++ searches /usr/include after its own tree, so their headers
# work unchanged. Compiled libraries are never taken from the host: tests that need one
# are marked HOST_ONLY (tests/CMakeLists.txt).
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# -L: the ARM dynamic loader and libraries of the cross toolchain's tree.
find_program(AGENT_QEMU_ARM NAMES qemu-arm qemu-arm-static REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${AGENT_QEMU_ARM} -L /usr/${AGENT_TARGET_TRIPLE})
