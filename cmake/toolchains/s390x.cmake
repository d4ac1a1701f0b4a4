# The toolchain of the preset `s390x`.
set(TARNWICK_ARCHITECTURE s390x)  # Debian's name
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(TARNWICK_TRIPLET s390x-linux-gnu)
set(TARNWICK_EMULATOR qemu-s390x)
include("${CMAKE_CURRENT_LIST_DIR}/foreign.cmake")
