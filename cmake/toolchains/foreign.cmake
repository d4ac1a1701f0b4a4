# Builds for another machine, TARNWICK_ARCHITECTURE: with Debian's cross compiler, and with the libraries
# of that machine in build/sysroot, which scripts/sysroot brings. What the host has of these libraries is
# never found.
set(CMAKE_SYSTEM_NAME Linux)
cmake_path(SET CMAKE_SYSROOT NORMALIZE
  "${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot/${TARNWICK_ARCHITECTURE}")
if(NOT EXISTS "${CMAKE_SYSROOT}")
  message(FATAL_ERROR " ${CMAKE_SYSROOT} not found: run scripts/sysroot ${TARNWICK_ARCHITECTURE}, which "
    "brings the libraries of the other machine.")
endif()

find_program(TARNWICK_CROSS_COMPILER ${TARNWICK_TRIPLET}-g++)
if(NOT TARNWICK_CROSS_COMPILER)
  message(FATAL_ERROR " ${TARNWICK_TRIPLET}-g++ not found: install g++-${TARNWICK_TRIPLET}.")
endif()
set(CMAKE_CXX_COMPILER "${TARNWICK_CROSS_COMPILER}")
set(CMAKE_LIBRARY_ARCHITECTURE "${TARNWICK_TRIPLET}")

# The emulator takes the loader and the libraries of the program from the sysroot.
find_program(TARNWICK_EMULATOR_PATH ${TARNWICK_EMULATOR})
if(TARNWICK_EMULATOR_PATH)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${TARNWICK_EMULATOR_PATH};-L;${CMAKE_SYSROOT}")
endif()

# Libraries, headers and packages only from the sysroot, and programs only from the host.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
  "${CMAKE_SYSROOT}/usr/lib/${TARNWICK_TRIPLET}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")

# No path of this machine in a program. The linker follows the libraries that libraries need, such as
# those of libsystemd, by -rpath-link, which leaves nothing in the program either.
set(CMAKE_SKIP_RPATH ON)
set(library_folders
  "${CMAKE_SYSROOT}/lib/${TARNWICK_TRIPLET}:${CMAKE_SYSROOT}/usr/lib/${TARNWICK_TRIPLET}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,\"${library_folders}\"")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${CMAKE_EXE_LINKER_FLAGS_INIT}")
