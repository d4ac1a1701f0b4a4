# The ways to add code: tarnwick_add_library, tarnwick_add_header_library, tarnwick_add_executable,
# tarnwick_add_test and tarnwick_add_fuzzer.

include(CheckPIESupported)
find_package(Threads REQUIRED)
enable_testing()  # BUILD_TESTING asks for it too, but is off in the preset `fuzz`
check_pie_supported()  # so that executables are linked with -pie, not only compiled for it

# What every target of ours is compiled with; nothing is set globally.
add_library(tarnwick_build_flags INTERFACE)
target_compile_features(tarnwick_build_flags INTERFACE cxx_std_20)
target_compile_options(tarnwick_build_flags INTERFACE
  -Wall -Wextra -Wconversion -Wshadow
  -Wno-missing-field-initializers)  # warns of designated initialisers that leave members at zero
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # Optimising, g++ 12 warns of overlaps and bounds in std::string and std::copy without cause.
  target_compile_options(tarnwick_build_flags INTERFACE -Wno-restrict -Wno-array-bounds
    -Wno-stringop-overread)
  if(CMAKE_CROSSCOMPILING)  # the machine decides which of them
    target_compile_options(tarnwick_build_flags INTERFACE -Wno-stringop-overflow)
  endif()
endif()
if(TARNWICK_WERROR)
  target_compile_options(tarnwick_build_flags INTERFACE -Werror)
endif()
# Files of 2 GiB and more, and inode numbers beyond 32 bits, which file systems give also to small files.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_compile_definitions(tarnwick_build_flags INTERFACE _FILE_OFFSET_BITS=64)
endif()

# Hardening: position-independent code, relocations read-only before main() runs, protected stacks,
# and checked copies in the C library, which need optimisation.
set_target_properties(tarnwick_build_flags PROPERTIES INTERFACE_POSITION_INDEPENDENT_CODE ON)
target_compile_options(tarnwick_build_flags INTERFACE
  -fstack-protector-strong -fstack-clash-protection)
target_link_options(tarnwick_build_flags INTERFACE LINKER:-z,relro,-z,now)
target_compile_definitions(tarnwick_build_flags INTERFACE
  $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:_FORTIFY_SOURCE=3>)

# The sanitizers are a target of their own, because a library that is preloaded into any program
# must not have them. With g++ their runtimes are linked statically: a shared one would have to be
# preloaded before all other libraries.
add_library(tarnwick_sanitizers INTERFACE)
if(TARNWICK_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR " TARNWICK_FUZZ takes clang: -DCMAKE_CXX_COMPILER=clang++ (package clang).")
  endif()
  target_compile_options(tarnwick_sanitizers INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer
    # Code that is not under test is built without the coverage that guides the fuzzer.
    $<$<NOT:$<BOOL:$<TARGET_PROPERTY:TARNWICK_NOT_UNDER_TEST>>>:-fsanitize=fuzzer-no-link>)
  target_link_options(tarnwick_sanitizers INTERFACE -fsanitize=address,undefined)
elseif(TARNWICK_SANITIZE)
  target_compile_options(tarnwick_sanitizers INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(tarnwick_sanitizers INTERFACE -fsanitize=address,undefined)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_link_options(tarnwick_sanitizers INTERFACE -static-libasan -static-libubsan)
  endif()
endif()

# The counts are written when a process ends. The link seams and the simulator's shim must not take
# that for calls of the program, so a copy of libgcov calls the C library by its internal names.
if(TARNWICK_COVERAGE)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    message(FATAL_ERROR " TARNWICK_COVERAGE takes g++, which brings gcov.")
  endif()
  set(gcov_folder "${CMAKE_BINARY_DIR}/gcov")
  file(MAKE_DIRECTORY "${gcov_folder}")
  execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-file-name=libgcov.a
    OUTPUT_VARIABLE gcov_library OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND "${CMAKE_OBJCOPY}" --redefine-sym open=__open
    --redefine-sym close=__close --redefine-sym fclose=_IO_fclose
    "${gcov_library}" "${gcov_folder}/libgcov.a" COMMAND_ERROR_IS_FATAL ANY)
endif()

file(STRINGS "${CMAKE_CURRENT_LIST_DIR}/source-folders" program_folders REGEX "^program ")
list(TRANSFORM program_folders REPLACE "^program " "")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  "${CMAKE_CURRENT_LIST_DIR}/source-folders")

# tarnwick_count_coverage(TARGET)
#   has a target count what is executed, when it is in one of the program's folders; the tests and
#   the simulator are not measured.
function(tarnwick_count_coverage target)
  cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR
    BASE_DIRECTORY "${PROJECT_SOURCE_DIR}" OUTPUT_VARIABLE folder)
  string(REGEX REPLACE "/.*" "" folder "${folder}")
  if(TARNWICK_COVERAGE AND folder IN_LIST program_folders)
    target_compile_options(${target} PRIVATE --coverage)
    target_link_options(${target} PUBLIC --coverage "-L${gcov_folder}")
  endif()
endfunction()

# tarnwick_add_library(NAME SOURCES file... [DEPS target...])
#   adds the static library tarnwick_NAME, alias tarnwick::NAME; includes are written from the
#   repository root.
function(tarnwick_add_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPS")
  add_library(tarnwick_${name} STATIC ${arg_SOURCES})
  add_library(tarnwick::${name} ALIAS tarnwick_${name})
  target_include_directories(tarnwick_${name} PUBLIC "${PROJECT_SOURCE_DIR}")
  target_link_libraries(tarnwick_${name}
    PUBLIC ${arg_DEPS} tarnwick_sanitizers
    PRIVATE tarnwick_build_flags)
  tarnwick_count_coverage(tarnwick_${name})
endfunction()

# tarnwick_add_header_library(NAME file...)
#   the same for a folder that holds nothing but headers.
function(tarnwick_add_header_library name)
  add_library(tarnwick_${name} INTERFACE)
  add_library(tarnwick::${name} ALIAS tarnwick_${name})
  target_sources(tarnwick_${name} PRIVATE ${ARGN})
  target_include_directories(tarnwick_${name} INTERFACE "${PROJECT_SOURCE_DIR}")
endfunction()

# The wrapped functions with an offset, a size of a file or an inode number, and those that open files.
set(TARNWICK_OFFSET_CALLS fcntl fstat fstatat ftruncate lseek mmap open openat pwrite)

# tarnwick_wrap(TARGET symbol...)
#   replaces each named function by __wrap_NAME, with the linker's --wrap. The target supplies that,
#   or a library at any place of the linker's command line. For a library, the functions are wrapped
#   in each executable that links it.
function(tarnwick_wrap target)
  get_target_property(type ${target} TYPE)
  set(link_scope PRIVATE)
  set(compile_scope PRIVATE)
  if(type STREQUAL "STATIC_LIBRARY")
    set(link_scope INTERFACE)
    set(compile_scope PUBLIC)
  endif()
  # _FORTIFY_SOURCE renames open and read, which the link seams replace by name. Optimised code of
  # our libraries calls the checked forms, whose first parameters are the same.
  target_compile_options(${target} ${compile_scope} -U_FORTIFY_SOURCE)
  set(checked_open __open_2)
  set(checked_open64 __open64_2)
  set(checked_read __read_chk)
  foreach(symbol IN LISTS ARGN)
    # With _FILE_OFFSET_BITS the calls of our code have other names, and so have those of the seams.
    if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND symbol IN_LIST TARNWICK_OFFSET_CALLS)
      target_compile_definitions(${target} ${compile_scope}
        __wrap_${symbol}=__wrap_${symbol}64 __real_${symbol}=__real_${symbol}64)
      string(APPEND symbol 64)
    endif()
    target_link_options(${target} ${link_scope} "LINKER:--wrap=${symbol},--undefined=__wrap_${symbol}")
    set(checked "${checked_${symbol}}")
    if(checked)
      target_link_options(${target} ${link_scope}
        "LINKER:--wrap=${checked},--defsym=__wrap_${checked}=__wrap_${symbol}")
    endif()
  endforeach()
endfunction()

# tarnwick_add_executable(NAME SOURCES file... [DEPS target...])
function(tarnwick_add_executable name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPS")
  add_executable(${name} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE ${arg_DEPS} tarnwick_build_flags tarnwick_sanitizers)
  tarnwick_count_coverage(${name})
endfunction()

# Options of the leak sanitizer. Suppressions match by function, which needs exact call stacks, also
# through libraries without frame pointers; eight frames are enough. The quotes allow blanks in the
# path.
string(CONCAT TARNWICK_LSAN_OPTIONS
  "LSAN_OPTIONS=suppressions='${PROJECT_SOURCE_DIR}/tests/leaks.supp':print_suppressions=0"
  ":fast_unwind_on_malloc=0:malloc_context_size=8")
# Where tests that run the program find the instrument's own library: tarnwick has no RPATH for it.
set(TARNWICK_LIBRARY_PATH "")
if(TARNWICK_PLATFORM_LIBRARY)
  cmake_path(GET TARNWICK_PLATFORM_LIBRARY PARENT_PATH library_folder)
  set(TARNWICK_LIBRARY_PATH "LD_LIBRARY_PATH=path_list_prepend:${library_folder}")
endif()

# The headers of GoogleTest, compiled once for all tests: by an executable, as the tests are, with the
# options that all of them have, and with -pthread, which libraries add to some.
function(tarnwick_use_test_headers target)
  if(NOT TARGET tarnwick_test_headers)
    file(GENERATE OUTPUT "${CMAKE_BINARY_DIR}/TestHeaders.cpp" CONTENT "int main() {}\n")
    add_executable(tarnwick_test_headers EXCLUDE_FROM_ALL "${CMAKE_BINARY_DIR}/TestHeaders.cpp")
    target_link_libraries(tarnwick_test_headers
      PRIVATE GTest::gmock tarnwick_build_flags tarnwick_sanitizers)
    tarnwick_wrap(tarnwick_test_headers)
    target_compile_options(tarnwick_test_headers PRIVATE -pthread)
    target_precompile_headers(tarnwick_test_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
  endif()
  target_compile_options(${target} PRIVATE -pthread)
  target_precompile_headers(${target} REUSE_FROM tarnwick_test_headers)
endfunction()

# What scripts/coverage runs: the tests of the program's folders.
add_custom_target(program-tests)

# What is left out on another machine: lines of a test's name, a filter, and the reason.
set(left_out_list "${PROJECT_SOURCE_DIR}/tests/foreign/left-out")
set(TARNWICK_LEFT_OUT "")
if(CMAKE_CROSSCOMPILING)
  file(STRINGS "${left_out_list}" TARNWICK_LEFT_OUT REGEX "^[^#]")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${left_out_list}")
endif()

# Leaves out what the list says of a test: all of it for the filter *.
function(tarnwick_leave_out test)
  foreach(line IN LISTS TARNWICK_LEFT_OUT)
    if(NOT line MATCHES "^([^ ]+) ([^ ]+) " OR NOT CMAKE_MATCH_1 STREQUAL test)
      continue()
    endif()
    if(CMAKE_MATCH_2 STREQUAL "*")
      set_tests_properties(${test} PROPERTIES DISABLED ON)
    else()
      set_property(TEST ${test} APPEND PROPERTY ENVIRONMENT "GTEST_FILTER=-${CMAKE_MATCH_2}")
    endif()
  endforeach()
endfunction()

# tarnwick_add_test(NAME [SOURCES file...] [DEPS target...] [WRAP symbol...] [LAUNCHER word...]
#                   [TIMEOUT seconds])
#   builds NAME.cpp (and SOURCES) into a GoogleTest program, registered as FOLDER.NAME with ctest.
#   WRAP lists the functions for tarnwick_wrap; LAUNCHER is the command that starts the program. Built
#   for another machine, the program runs in the emulator.
function(tarnwick_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "SOURCES;DEPS;WRAP;LAUNCHER")
  cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR
    BASE_DIRECTORY "${PROJECT_SOURCE_DIR}/tests" OUTPUT_VARIABLE folder)
  string(REPLACE "/" "." folder "${folder}")
  string(REPLACE "." "_" target "${folder}.${name}")
  tarnwick_add_executable(${target} SOURCES ${name}.cpp ${arg_SOURCES}
    DEPS ${arg_DEPS} GTest::gmock GTest::gtest_main)
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/tests")
  tarnwick_wrap(${target} ${arg_WRAP})
  tarnwick_use_test_headers(${target})
  if(NOT folder MATCHES "^(build|proofs)|[.]simulator")
    add_dependencies(program-tests ${target})
  endif()
  # CMake itself names the emulator only where the command is nothing but the target.
  add_test(NAME ${folder}.${name}
    COMMAND ${arg_LAUNCHER} ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${target}>)
  set_property(GLOBAL APPEND PROPERTY TARNWICK_TESTS ${target})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  set_tests_properties(${folder}.${name} PROPERTIES TIMEOUT ${arg_TIMEOUT}
    ENVIRONMENT "${TARNWICK_LSAN_OPTIONS}"
    ENVIRONMENT_MODIFICATION "${TARNWICK_LIBRARY_PATH}")
  if(folder MATCHES "^e2e(.companion)?$")
    # The program and the instrument take turns. On two processors, each turn begins with one that
    # sleeps and has to be woken, which takes longer than the turn. The tests in e2e/simulator send
    # signals while the instrument goes on, so they need a processor beside it.
    set_tests_properties(${folder}.${name} PROPERTIES PROCESSOR_AFFINITY ON)
  endif()
  tarnwick_leave_out(${folder}.${name})
endfunction()

# tarnwick_add_fuzzer(NAME [SOURCES file...] [DEPS target...] [WRAP symbol...])
#   builds NAME.cpp (and SOURCES) into a libFuzzer program, part of the target `fuzzers`, and
#   registers fuzz.NAME with ctest, which runs the inputs of corpus/NAME once. WRAP as for
#   tarnwick_add_test.
function(tarnwick_add_fuzzer name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPS;WRAP")
  tarnwick_add_executable(${name} SOURCES ${name}.cpp ${arg_SOURCES} DEPS ${arg_DEPS})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/fuzzers")
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  set_target_properties(${name} PROPERTIES TARNWICK_NOT_UNDER_TEST ON)
  tarnwick_wrap(${name} ${arg_WRAP})
  if(NOT TARGET fuzzers)
    add_custom_target(fuzzers)
  endif()
  add_dependencies(fuzzers ${name})
  add_test(NAME fuzz.${name}
    COMMAND ${name} -runs=0 "${CMAKE_CURRENT_SOURCE_DIR}/corpus/${name}")
endfunction()
