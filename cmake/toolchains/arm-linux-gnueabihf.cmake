# Cross build for 32-bit ARM Linux (hard-float, ARMv7) with Debian's
# cross compiler (package g++-arm-linux-gnueabihf).
#
# Test programs run on the build machine under qemu-arm (package qemu-user),
# so ctest and gtest_discover_tests work as in a native build.
#
#   cmake -S . -B build/arm --toolchain cmake/toolchains/arm-linux-gnueabihf.cmake
#
# Libraries built for the target (GoogleTest, say) are found through
# CMAKE_PREFIX_PATH; prefixes given there are searched as they are, besides
# the cross compiler's own root /usr/arm-linux-gnueabihf.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(CHANLINK_TARGET_TRIPLE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${CHANLINK_TARGET_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${CHANLINK_TARGET_TRIPLE}-g++)

# GCC notes that the ABI for passing some types changed in GCC 7.1; nothing
# built here is linked with code from before that, so the notes are noise.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")

# Debian's multiarch cross toolchain keeps the target's C and C++ runtime here.
set(CHANLINK_TARGET_ROOT /usr/${CHANLINK_TARGET_TRIPLE})

# qemu-arm loads the target's dynamic loader and shared libraries from -L.
find_program(CHANLINK_QEMU_ARM qemu-arm)
if(CHANLINK_QEMU_ARM)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${CHANLINK_QEMU_ARM} -L ${CHANLINK_TARGET_ROOT})
endif()

# Programs (the emulator, cmake, pkg-config) come from the build machine;
# headers and libraries only from the target's root and the prefixes that
# CMAKE_PREFIX_PATH names, never from the build machine's /usr.
set(CMAKE_FIND_ROOT_PATH ${CHANLINK_TARGET_ROOT} ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
