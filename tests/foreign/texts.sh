#!/bin/sh
# texts.sh NATIVE FOREIGN IMAGE-MAKER [EMULATOR-WORD...]
# Compares what the programs in the folder FOREIGN say, in the emulator, with those in NATIVE: standard
# output, standard error and exit code of each command line below. Names the command lines that differ,
# and fails when there is one. IMAGE-MAKER is orvane-image.
set -eu
native=$(realpath "$1") foreign=$(realpath "$2") maker=$(realpath "$3")
shift 3
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory"

# make_image NAME WORD...
make_image() {
  name=$1
  shift
  "$maker" "$@" --out "$name" >/dev/null
}
make_image zynq.bin zynq --date '2024-05-06 07:08:09' --size 64K
make_image stamped.bin bitstream --stamp '2024-05-06 07:08:09' --size 64K
make_image older.bin bitstream --stamp '2023-01-02 03:04:05' --size 64K --seed 2
make_image unstamped.bin bitstream --no-stamp --size 64K
make_image stamped.bin.gz bitstream --gzip --stamp '2024-05-06 07:08:09' --size 64K
printf 'neither' >text

# say RESULT FOLDER LINE [EMULATOR-WORD...]: runs a command line without a bus, and with nothing of our
# environment that the programs read.
say() {
  result=$1 folder=$2 line=$3
  shift 3
  set -- "$@" "$folder/${line%% *}"
  case $line in
    *' '*) eval "set -- \"\$@\" ${line#* }" ;;
  esac
  code=0
  env -i PATH=/nowhere HOME=/nowhere DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nowhere \
    "$@" >out 2>err </dev/null || code=$?
  {
    echo "exit code $code, standard output:"
    sed -e "s|$folder|FOLDER|g" -e 's/"milliseconds": [0-9]*/"milliseconds": N/' out
    echo "standard error:"
    # The emulator has a line of its own for a program that ends by a signal.
    sed -e "s|$folder|FOLDER|g" -e '/^qemu: uncaught target signal /d' err
  } >"$result"
}

compared=0 different=0
while read -r line; do
  rm -rf state
  say native "$native" "$line"
  rm -rf state
  say foreign "$foreign" "$line" "$@"
  compared=$((compared + 1))
  if ! diff native foreign >difference; then
    echo "$line"
    cat difference
    different=$((different + 1))
  fi
done <<'LINES'
tarnwick
tarnwick wend
tarnwick wend -sf 1
tarnwick wend -sf 1 zynq.bin more
tarnwick wend -h 1 zynq.bin
tarnwick dax --help 1 stamped.bin
tarnwick pyx1 --help x ''
tarnwick other -sf 1 zynq.bin
tarnwick other --help 1 zynq.bin
tarnwick '' '' '' ''
tarnwick wend -x 1 zynq.bin
tarnwick wend '' 1 zynq.bin
tarnwick wend -sf x zynq.bin
tarnwick wend -sf '' zynq.bin
tarnwick wend -sf 18446744073709551616 zynq.bin
tarnwick wend -sf 18446744073709551615 zynq.bin
tarnwick wend -sf 4294967297 zynq.bin
tarnwick dax --spi-flash -1 stamped.bin
tarnwick pyx1 -sf ' +7x' stamped.bin
tarnwick pyx2 -sf 2 missing
tarnwickctl
tarnwickctl --help
tarnwickctl --version
tarnwickctl other
tarnwickctl --other
tarnwickctl image
tarnwickctl image missing
tarnwickctl image .
tarnwickctl image text
tarnwickctl image text --json
tarnwickctl image zynq.bin
tarnwickctl image zynq.bin --json
tarnwickctl image zynq.bin --target wend --flash zynq.bin
tarnwickctl image zynq.bin --target dax
tarnwickctl image zynq.bin --target pyx2 --flash stamped.bin --json
tarnwickctl image stamped.bin
tarnwickctl image stamped.bin --json
tarnwickctl image stamped.bin --target dax --flash older.bin --json
tarnwickctl image stamped.bin --target pyx1 --flash stamped.bin --json
tarnwickctl image stamped.bin.gz --target dax --flash older.bin --json
tarnwickctl image unstamped.bin --target pyx1 --flash unstamped.bin --json
tarnwickctl image zynq.bin --target other
tarnwickctl update
tarnwickctl update dax
tarnwickctl update dax x stamped.bin
tarnwickctl update dax 4294967296 stamped.bin
tarnwickctl update dax 1 missing --state state
tarnwickctl update dax 1 stamped.bin --state state --program /nowhere/tarnwick
tarnwickctl update dax 1 stamped.bin --state state --attempts 0
tarnwickctl update dax 1 stamped.bin --state state --sha256 0
tarnwickctl update wend 1 zynq.bin --state state --program /nowhere/tarnwick --json
tarnwickctl update dax 1 zynq.bin --state state --program /nowhere/tarnwick --json
tarnwickctl verify wend 1 zynq.bin --state state
tarnwickctl verify pyx2 1 zynq.bin --state state --json
tarnwickctl verify dax 1 zynq.bin --state /proc/nowhere
tarnwickctl read dax 1 head --state state
tarnwickctl read dax 1 head --state state --length 16777217
tarnwickctl read wend 1 /proc/nowhere/head --state state --json
LINES
echo "$compared command lines, $different differ"
[ "$different" -eq 0 ]
