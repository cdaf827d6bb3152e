# 32-bit ARM (Debian armhf): cross compiler, sysroot, and qemu-arm to run the result.
# The sysroot is made by `./dev sysroot`.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Notes on an ABI that changed with GCC 7; everything here is compiled by one compiler.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

set(VU_ARMHF_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/armhf
    CACHE PATH "Debian armhf tree with the development packages")
get_filename_component(CMAKE_SYSROOT ${VU_ARMHF_SYSROOT} ABSOLUTE)

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR}
    ${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${CMAKE_SYSROOT})
# CMake's FindPython3 cannot ask an interpreter that does not run here.
set(Python3_INCLUDE_DIR ${CMAKE_SYSROOT}/usr/include/python3.11)
