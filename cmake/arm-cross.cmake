# Shared part of the ARM toolchain files: Debian's cross compiler against a Debian sysroot
# (`make test-arm` makes one under each build folder). Pass -DCMAKE_SYSROOT=DIR.
if(NOT CMAKE_SYSROOT)
  message(FATAL_ERROR "set CMAKE_SYSROOT to a Debian ${CMAKE_LIBRARY_ARCHITECTURE} root")
endif()
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-gcc)
set(CMAKE_CXX_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-g++)

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# OpenCV's own dependencies (BLAS, GDAL, ...) are only found through these at link time.
set(_qbcode_rpath_link
  "-Wl,-rpath-link,${CMAKE_SYSROOT}/lib/${CMAKE_LIBRARY_ARCHITECTURE}:${CMAKE_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${_qbcode_rpath_link}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${_qbcode_rpath_link}")

# Test binaries (and gtest discovery) run under qemu-user with the sysroot's loader and libraries.
set(CMAKE_CROSSCOMPILING_EMULATOR ${QBCODE_QEMU} -L ${CMAKE_SYSROOT})
