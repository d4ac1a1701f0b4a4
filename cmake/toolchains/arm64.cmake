# The toolchain of the preset `arm64`.
set(TARNWICK_ARCHITECTURE arm64)  # Debian's name
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(TARNWICK_TRIPLET aarch64-linux-gnu)
set(TARNWICK_EMULATOR qemu-aarch64)
include("${CMAKE_CURRENT_LIST_DIR}/foreign.cmake")
