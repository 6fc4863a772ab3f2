# 64-bit ARM (Debian arm64): cmake -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64.cmake -DCMAKE_SYSROOT=DIR
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(QBCODE_QEMU qemu-aarch64-static)
include(${CMAKE_CURRENT_LIST_DIR}/arm-cross.cmake)
