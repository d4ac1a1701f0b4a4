#!/bin/sh
# check.sh SOURCE BUILD COMPILER COMPILER-ID LIBRARY...
# Builds the programs as they are installed on an instrument, and checks that they are hardened: by the
# ELF file if that shows it, else by the compile commands. Then links them with each platform LIBRARY,
# and checks that tarnwick contains no path of the build tree.
set -eu
source=$1 build=$2 compiler=$3 id=$4
shift 4

# build_program OPTION...
build_program() {
  cmake -S "$source" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON \
    -DTARNWICK_SIMULATOR=OFF -DBUILD_TESTING=OFF "$@" >"$build.log" || { cat "$build.log"; exit 1; }
  cmake --build "$build" >"$build.log" || { cat "$build.log"; exit 1; }
}

rm -rf "$build"
build_program

failures=0
# carries WHAT PATTERN TEXT: checks that a line of TEXT matches the extended regular expression PATTERN.
carries() {
  if ! printf '%s\n' "$3" | grep -Eq -e "$2"; then
    echo "not hardened: $1 is missing"
    failures=$((failures + 1))
  fi
}
# check_loading WHAT: checks that only the system decides from where the program's libraries are loaded.
check_loading() {
  wanted=$(readelf -Wd "$program" | grep -E '\((RPATH|RUNPATH|NEEDED)\)')
  if printf '%s\n' "$wanted" | grep -E 'PATH\)|\[.*/'; then
    echo "not hardened: $1: the program says where its libraries are"
    failures=$((failures + 1))
  fi
}

# check_program NAME
check_program() {
  program=$build/bin/$1
  header=$(readelf -Wh "$program")
  segments=$(readelf -Wl "$program")
  dynamic=$(readelf -Wd "$program")
  symbols=$(readelf -W --dyn-syms "$program")
  carries "$1: PIE (type of file)" '^ *Type: +DYN ' "$header"
  carries "$1: PIE (flag)" '\(FLAGS_1\).*[ :]PIE' "$dynamic"
  carries "$1: RELRO (segment)" '^ *GNU_RELRO ' "$segments"
  carries "$1: full RELRO (bind now)" '\(BIND_NOW\)|\(FLAGS\).* BIND_NOW' "$dynamic"
  carries "$1: the stack protector" ' UND __stack_chk_fail(@|$)' "$symbols"
  if [ "$id" = GNU ]; then # another compiler may find nothing here that it could check
    carries "$1: a checked function of the C library" ' UND __[a-z_0-9]+_chk(@|$)' "$symbols"
  fi
  check_loading "$1 over platform/linux"
}
check_program tarnwickctl
check_program tarnwick

# The programs are made of the folders that the list names: the gates check no others, but for those of
# the tools that they share.
folders=$(awk '$1 == "program" { print $2 }' "$source/cmake/source-folders" | sort)
used=$(cd "$build" && ninja -t deps | sed -n 's/^    //p' | sort -u | xargs -d '\n' realpath |
  awk -v root="$(realpath "$source")/" -v build="$(pwd -P)/" '
    index($0, root) == 1 && index($0, build) != 1 {
      path = substr($0, length(root) + 1)
      sub("/.*", "", path)
      print path
    }' | sort -u)
tools=$(awk '$1 == "tool" { print $2 }' "$source/cmake/source-folders")
own=$(printf '%s\n' "$used" | grep -vxF -e "$tools")
if [ "$own" != "$folders" ]; then
  echo "the folders that the programs are made of, and those of cmake/source-folders:"
  printf '%s\n---\n%s\n' "$own" "$folders"
  failures=$((failures + 1))
fi

# One line for each file that is compiled.
commands=$(sed -n 's/^ *"command": "\(.*\)",$/\1/p' "$build/compile_commands.json")
files=$(cd "$source" && for folder in $used; do find "$folder" -name '*.cpp'; done | wc -l)
compiled=$(printf '%s\n' "$commands" | wc -l)
if [ "$compiled" -ne "$files" ]; then
  echo "$compiled compile commands for the $files source files of the programs"
  failures=$((failures + 1))
fi
for flag in -fstack-protector-strong -fstack-clash-protection -D_FORTIFY_SOURCE=3 '-O[23]' \
  '-fPI[CE]'; do
  bare=$(printf '%s\n' "$commands" | grep -Evc -e " $flag( |\$)" || true)
  if [ "$bare" -ne 0 ]; then
    echo "not hardened: $bare files are compiled without $flag"
    failures=$((failures + 1))
  fi
done
if printf '%s\n' "$commands" | grep -Eq -e ' (-U_FORTIFY_SOURCE|-fno-stack-[a-z]+)( |$)'; then
  echo "not hardened: a file switches a protection off"
  failures=$((failures + 1))
fi

for library in "$@"; do
  build_program -DTARNWICK_PLATFORM_LIBRARY="$library"
  check_loading "with $library"
  case $library in
    *.a) ;;
    *) carries "the library" "\(NEEDED\).*\[$(basename "$library")\]" "$(readelf -Wd "$program")" ;;
  esac
done
[ "$failures" -eq 0 ]
