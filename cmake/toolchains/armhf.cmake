# The toolchain of the preset `armhf`.
set(TARNWICK_ARCHITECTURE armhf)  # Debian's name
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(TARNWICK_TRIPLET arm-linux-gnueabihf)
set(TARNWICK_EMULATOR qemu-arm)
# Notes that the compiler has for users of one before GCC 7.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
include("${CMAKE_CURRENT_LIST_DIR}/foreign.cmake")
