# The installed libraries, each found with a message that names what to install.

find_package(PkgConfig REQUIRED)

# tarnwick_require_module(TARGET MODULE PACKAGE WHY): pkg-config MODULE as PkgConfig::TARGET.
function(tarnwick_require_module target module package why)
  pkg_check_modules(${target} QUIET IMPORTED_TARGET GLOBAL ${module})
  if(NOT ${target}_FOUND)
    message(FATAL_ERROR "${module} not found: install ${package} (${why}).")
  endif()
endfunction()

tarnwick_require_module(ZLIB zlib zlib1g-dev "reads the image files")
tarnwick_require_module(LIBUDEV libudev libudev-dev "finds the I2C mux channel")
if(NOT TARNWICK_PLATFORM_LIBRARY)
  tarnwick_require_module(LIBSYSTEMD libsystemd libsystemd-dev
    "D-Bus; or link the instrument's own library with -DTARNWICK_PLATFORM_LIBRARY=PATH")
endif()
if(TARNWICK_SIMULATOR)
  set(off "switch the simulator off with -DTARNWICK_SIMULATOR=OFF")
  tarnwick_require_module(UMOCKDEV umockdev-1.0 "libumockdev-dev and umockdev" "${off}")
  tarnwick_require_module(GIO gio-2.0 libglib2.0-dev "${off}")
  find_program(TARNWICK_DBUS_DAEMON dbus-daemon)
  if(NOT TARNWICK_DBUS_DAEMON)
    message(FATAL_ERROR "dbus-daemon not found: install dbus-daemon (${off}).")
  endif()
endif()
if(BUILD_TESTING)
  find_package(GTest QUIET)
  if(NOT GTest_FOUND)
    message(FATAL_ERROR
      "GoogleTest not found: install libgtest-dev and libgmock-dev "
      "(switch the tests off with -DBUILD_TESTING=OFF).")
  endif()
endif()
