#!/bin/sh
# combinations.sh SOURCE BUILD COMPILER LIBRARY
# Configures the project with a platform library, given by its path, in all four combinations of the
# simulator and the tests, and builds one program of the last.
set -eu
source=$1 build=$2 compiler=$3 library=$4

failures=0
rm -rf "$build"
mkdir -p "$build"
for simulator in OFF ON; do
  for tests in OFF ON; do
    folder=$build/simulator-$simulator-tests-$tests
    echo "$folder"
    if ! cmake -S "$source" -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
      -DCMAKE_CXX_COMPILER="$compiler" -DTARNWICK_SIMULATOR="$simulator" \
      -DBUILD_TESTING="$tests" -DTARNWICK_PLATFORM_LIBRARY="$library" >"$build/log" 2>&1; then
      cat "$build/log"
      failures=$((failures + 1))
    fi
  done
done

# The one test program that uses the system bus itself, whatever tarnwick is linked with.
if ! cmake --build "$folder" --target device-probe >"$build/log"; then
  cat "$build/log"
  failures=$((failures + 1))
fi
[ "$failures" -eq 0 ]
