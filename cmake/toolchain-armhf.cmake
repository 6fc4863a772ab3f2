# 32-bit ARM, hard float (Debian armhf): cmake -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake -DCMAKE_SYSROOT=DIR
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(QBCODE_QEMU qemu-arm-static)
include(${CMAKE_CURRENT_LIST_DIR}/arm-cross.cmake)
