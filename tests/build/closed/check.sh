#!/bin/sh
# check.sh SOURCE BUILD COMPILER LIBRARY...
# Builds the program against each platform library, given by its path, without the simulator and the
# tests, and checks that the program uses this library.
set -eu
source=$1 build=$2 compiler=$3
shift 3

mkdir -p "$build"
for library in "$@"; do
  echo "$library"
  rm -f "$build/bin/tarnwick"
  cmake -S "$source" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_CXX_COMPILER="$compiler" -DTARNWICK_SIMULATOR=OFF -DBUILD_TESTING=OFF \
    -DTARNWICK_PLATFORM_LIBRARY="$library" >"$build.log" || { cat "$build.log"; exit 1; }
  cmake --build "$build" >"$build.log" || { cat "$build.log"; exit 1; }
  if grep -q 'platform/linux' "$build/build.ninja"; then
    echo "platform/linux is part of the build"
    exit 1
  fi

  code=0
  LD_LIBRARY_PATH=$(dirname "$library") "$build/bin/tarnwick" wend -sf 7 image.bin \
    >"$build/out" 2>"$build/err" || code=$?
  cat >"$build/expected-out" <<'EOF'
programming mode: -sf
module number: 7
FPGA bitstream: 'image.bin'
Could not connect to the device. Check Module # and power.
EOF
  echo "ERROR: No SPI device found" >"$build/expected-err"
  diff "$build/expected-out" "$build/out"
  diff "$build/expected-err" "$build/err"
  [ "$code" -eq 1 ]
done
