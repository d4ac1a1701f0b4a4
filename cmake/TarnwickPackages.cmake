# Finds the installed libraries and programs. For a missing one the message names what to install.

if(TARNWICK_SIMULATOR AND CMAKE_SIZEOF_VOID_P EQUAL 4)
  message(FATAL_ERROR
    " The virtual instrument takes a machine with 64 bits: switch it off with -DTARNWICK_SIMULATOR=OFF.")
endif()

find_package(PkgConfig REQUIRED)

# What the message for a missing library says, before the name of its package: on this machine, or in the
# sysroot of another one (cmake/toolchains).
set(tarnwick_library_missing "not found: install")
if(TARNWICK_ARCHITECTURE)
  set(tarnwick_library_missing
    "not found in ${CMAKE_SYSROOT}: run scripts/sysroot ${TARNWICK_ARCHITECTURE}, which brings")
endif()

# tarnwick_require_module(TARGET MODULE PACKAGE WHY)
#   finds the pkg-config module MODULE, as PkgConfig::TARGET.
function(tarnwick_require_module target module package why)
  pkg_check_modules(${target} QUIET IMPORTED_TARGET GLOBAL ${module})
  if(NOT ${target}_FOUND)
    message(FATAL_ERROR " ${module} ${tarnwick_library_missing} ${package} (${why}).")
  endif()
endfunction()

# tarnwick_require_program(PROGRAM PACKAGE WHY)
#   finds PROGRAM and sets TARNWICK_PROGRAM, in capitals and underscores, to its path.
function(tarnwick_require_program program package why)
  string(MAKE_C_IDENTIFIER "TARNWICK_${program}" variable)
  string(TOUPPER "${variable}" variable)
  find_program(${variable} ${program})
  if(NOT ${variable})
    message(FATAL_ERROR " ${program} not found: install ${package} (${why}).")
  endif()
endfunction()

tarnwick_require_module(ZLIB zlib zlib1g-dev "reads the image files")
tarnwick_require_module(LIBUDEV libudev libudev-dev "finds the I2C mux channel")
if(NOT TARNWICK_PLATFORM_LIBRARY)
  tarnwick_require_module(LIBSYSTEMD libsystemd libsystemd-dev
    "D-Bus; or link the instrument's own library with -DTARNWICK_PLATFORM_LIBRARY=PATH")
elseif(TARNWICK_SIMULATOR AND BUILD_TESTING)
  tarnwick_require_module(LIBSYSTEMD libsystemd libsystemd-dev
    "a test of the simulator asks the system bus; or switch the tests off with -DBUILD_TESTING=OFF")
endif()
# What the simulator and the tests of platform/linux need.
set(users "")
if(TARNWICK_SIMULATOR)
  list(APPEND users "the simulator off with -DTARNWICK_SIMULATOR=OFF")
endif()
if(BUILD_TESTING AND NOT TARNWICK_PLATFORM_LIBRARY)
  list(APPEND users "the tests off with -DBUILD_TESTING=OFF")
endif()
if(users)
  list(JOIN users ", and " users)
  tarnwick_require_module(UMOCKDEV umockdev-1.0 "libumockdev-dev and umockdev" "or switch ${users}")
  tarnwick_require_module(GIO gio-2.0 libglib2.0-dev "or switch ${users}")
  tarnwick_require_program(dbus-daemon dbus-daemon "or switch ${users}")
  tarnwick_require_program(umockdev-wrapper umockdev "or switch ${users}")
endif()
# What our tools need: the simulator and the companion read their words with CLI11, and write JSON.
set(tools "")
if(TARNWICK_SIMULATOR)
  list(APPEND tools "the simulator off with -DTARNWICK_SIMULATOR=OFF")
endif()
if(TARNWICK_COMPANION)
  list(APPEND tools "the companion off with -DTARNWICK_COMPANION=OFF")
endif()
if(tools)
  list(JOIN tools ", and " tools)
  find_package(CLI11 QUIET)
  if(NOT CLI11_FOUND)
    message(FATAL_ERROR " CLI11 ${tarnwick_library_missing} libcli11-dev (or switch ${tools}).")
  endif()
  find_package(nlohmann_json QUIET)
  if(NOT nlohmann_json_FOUND)
    message(FATAL_ERROR
      " nlohmann-json ${tarnwick_library_missing} nlohmann-json3-dev (or switch ${tools}).")
  endif()
endif()
if(TARNWICK_COMPANION)
  tarnwick_require_module(LIBCRYPTO libcrypto libssl-dev
    "SHA-256; or switch the companion off with -DTARNWICK_COMPANION=OFF")
endif()
if(TARNWICK_MAN)
  tarnwick_require_program(scdoc scdoc
    "makes the man pages; or switch them off with -DTARNWICK_MAN=OFF")
endif()
if(BUILD_TESTING)
  if(TARNWICK_EMULATOR AND NOT TARNWICK_EMULATOR_PATH)
    message(FATAL_ERROR " ${TARNWICK_EMULATOR} not found: install qemu-user (runs the tests; switch them "
      "off with -DBUILD_TESTING=OFF).")
  endif()
  find_package(GTest QUIET)
  if(NOT GTest_FOUND)
    message(FATAL_ERROR
      " GoogleTest ${tarnwick_library_missing} libgtest-dev and libgmock-dev "
      "(switch the tests off with -DBUILD_TESTING=OFF).")
  endif()
  if(TARNWICK_SIMULATOR)
    find_package(rapidcheck QUIET)
    if(NOT rapidcheck_FOUND)
      message(FATAL_ERROR
        " RapidCheck ${tarnwick_library_missing} librapidcheck-dev (switch the tests off with "
        "-DBUILD_TESTING=OFF, or the simulator with -DTARNWICK_SIMULATOR=OFF).")
    endif()
  endif()
endif()
