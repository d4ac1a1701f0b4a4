#!/bin/sh
# JudgeTest.sh TABLE DEVIANT
# Checks that judge.sh, with the test program TABLE, reports how DEVIANT differs, and nothing else.
set -eu
folder=$(dirname "$0") table=$1 deviant=$2
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT

echo "$table" >"$directory/list"
export GTEST_FILTER='*Ends/NoWordsShowHelp:*Ends/LongCommandIsEchoedAsTyped'
failed=0

# expect EXIT-CODE DEVIATION: checks that the report is the text on standard input.
expect() {
  cat >"$directory/expected"
  code=0
  DEVIATION=$2 "$folder/judge.sh" "$directory/list" "$deviant" >"$directory/report" || code=$?
  if [ "$code" -ne "$1" ] || ! diff "$directory/expected" "$directory/report"; then
    echo "deviation '$2': exit code $code, expected $1" >&2
    failed=1
  fi
}

expect 0 none <<'END'
2 of 2 rows hold
END
expect 1 "exit code" <<'END'
FAILS Words/CommandLineTest.Ends/NoWordsShowHelp
    exit code
        expected 0, but it is 1
FAILS Words/CommandLineTest.Ends/LongCommandIsEchoedAsTyped
    exit code
        expected 1, but it is 2
0 of 2 rows hold
END
expect 1 stdout <<'END'
FAILS Words/CommandLineTest.Ends/NoWordsShowHelp
    stdout
        from line 1 on (- expected, + is)
        + This is not tarnwick.
FAILS Words/CommandLineTest.Ends/LongCommandIsEchoedAsTyped
    stdout
        from line 1 on (- expected, + is)
        + This is not tarnwick.
0 of 2 rows hold
END
expect 1 stderr <<'END'
FAILS Words/CommandLineTest.Ends/NoWordsShowHelp
    stderr
        from line 1 on (- expected, + is)
        + This is not tarnwick.
FAILS Words/CommandLineTest.Ends/LongCommandIsEchoedAsTyped
    stderr
        from line 1 on (- expected, + is)
        + This is not tarnwick.
0 of 2 rows hold
END
expect 1 "device traffic" <<'END'
FAILS Words/CommandLineTest.Ends/NoWordsShowHelp
    device traffic
        from line 1 on (- expected, + is)
        + open /dev/spidev1.0 O_RDONLY
        + close /dev/spidev1.0
FAILS Words/CommandLineTest.Ends/LongCommandIsEchoedAsTyped
    device traffic
        from line 1 on (- expected, + is)
        + open /dev/spidev1.0 O_RDONLY
        + close /dev/spidev1.0
0 of 2 rows hold
END

# Golden logs are rewritten neither in CI nor from another build of the program. Each reason is
# tried alone, wherever this test runs.
refuse() {
  code=0
  env -u CI "$1" "$table" --write-golden >"$directory/message" 2>&1 || code=$?
  if [ "$code" -ne 2 ] ||
    ! grep -q " --write-golden: not with ${1%%=*} in the environment" "$directory/message"; then
    echo "$1: exit code $code" >&2
    cat "$directory/message" >&2
    failed=1
  fi
}
refuse CI=true
refuse TARNWICK_BINARY="$deviant"

# Every part is right, but comes too late.
GTEST_FILTER='WendProgramTest.EmptySpiNameFails'
echo "$(dirname "$table")/e2e_WendProgramTest" >"$directory/list"
expect 1 order <<'END'
FAILS WendProgramTest.EmptySpiNameFails
    order of console and device traffic
        from line 1 on (- expected, + is)
        - stdout "programming mode: -sf\n"
        - stdout "module number: 1\n"
        - stdout "FPGA bitstream: 'image.bin'\n"
        - dbus GetModuleLocations = 1
        - dbus GetI2CBus 1 = "i2c-1"
        - dbus GetModuleLocations = 1
        - ... and 4 more
        + dbus GetModuleLocations = 1
        + dbus GetI2CBus 1 = "i2c-1"
        + dbus GetModuleLocations = 1
        + dbus GetSPIDev 1 = ""
        + stderr "ERROR: No SPI device found\n"
        + close -1
        + ... and 1 more
0 of 1 rows hold
END

# A program without a table, or one that ends before its last row, does not hold.
echo /bin/true >"$directory/list"
expect 1 none <<'END'
true did not finish
0 of 0 rows hold
END
exit $failed
