# Cross build for 64-bit Arm Linux with Debian's cross toolchain
# (g++-aarch64-linux-gnu). Tests run under qemu-user; Android's liblog comes
# from the multiarch package android-liblog:arm64.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
# Libraries and headers: the cross sysroot and the multiarch directories.
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
# No host package configs (GoogleTest is then built from Debian's sources).
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The target C and C++ runtimes come from the multiarch arm64 packages (pulled in
# by android-liblog:arm64), so qemu needs no -L prefix.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
