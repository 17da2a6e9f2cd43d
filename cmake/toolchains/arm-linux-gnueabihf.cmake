# 32-bit ARM, little-endian.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(triplet arm-linux-gnueabihf)
set(emulator qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
# Remarks on how GCC before 7.1 passed some parameters: no code of such a compiler is linked here.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
