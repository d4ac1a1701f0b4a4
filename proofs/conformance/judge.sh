#!/bin/sh
# judge.sh LIST BINARY
# Compares BINARY with the tables in LIST, a file with the path of a test program on each line. Prints
# the name of each row that fails, then what differs, at the end the number of rows that hold. The exit
# code is 1 unless all hold.
set -eu
list=$1 binary=$(realpath "$2")

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
trap 'exit 130' INT TERM

# Leaks are not checked here: the program leaves files open on purpose.
export LSAN_OPTIONS="${LSAN_OPTIONS:-detect_leaks=0}"
# One program for each processor. The report of each goes to a file of its own, its count last.
export TARNWICK_BINARY="$binary" directory
# shellcheck disable=SC2016 # for the inner shell
xargs -d '\n' -P "$(nproc)" -I '{}' sh -c '
  "$1" --rows >"$directory/${1##*/}" 2>&1 || true' judge '{}' <"$list"

rows=0 holding=0 unfinished=0
while read -r program; do
  report=$directory/${program##*/}
  count=$(tail -n 1 "$report")
  if expr "$count" : '[0-9][0-9]* [0-9][0-9]*$' >/dev/null; then
    sed '$d' "$report"
    rows=$((rows + ${count% *})) holding=$((holding + ${count#* }))
  else
    cat "$report"
    echo "${program##*/} did not finish"
    unfinished=1
  fi
done <"$list"

echo "$holding of $rows rows hold"
[ "$holding" -eq "$rows" ] && [ "$rows" -gt 0 ] && [ "$unfinished" -eq 0 ]
