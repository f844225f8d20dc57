# Debian's compiler for AArch64, with the libraries of its arm64 in a folder of the build; programs run in QEMU.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
if(NOT CMAKE_CXX_COMPILER)
  set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
endif()
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-gnu)  # for clang++, which compiles for every processor

cmake_path(SET CMAKE_SYSROOT NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../../build/aarch64-root)
execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/fetch_root ${CMAKE_SYSROOT} COMMAND_ERROR_IS_FATAL ANY)

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

find_program(QEMU_AARCH64 NAMES qemu-aarch64-static qemu-aarch64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${QEMU_AARCH64} -L ${CMAKE_SYSROOT})
