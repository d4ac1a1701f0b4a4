#!/bin/sh
# ScriptsTest.sh SOURCE
# Checks that every script shows its help, also when it is started in another folder, and that it
# refuses an unknown word before it does anything.
set -eu
source=$1
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory"

failed=0
for script in "$source"/scripts/* "$source/.ci/run"; do
  [ -x "$script" ] || continue
  name=${script#"$source/"}

  code=0
  "$script" --help >out 2>err || code=$?
  first=$(head -n 1 out)
  if [ "$code" -ne 0 ] || [ -s err ] || [ "${first%% *}" != "$name" ] || grep -q '^#' out; then
    echo "$name --help: exit code $code"
    cat out err
    failed=1
  fi

  code=0
  "$script" --nonsense >out 2>err || code=$?
  printf "%s: unknown word '--nonsense'\nTry '%s --help'.\n" "$script" "$script" >expected
  if [ "$code" -ne 2 ] || [ -s out ] || ! diff expected err; then
    echo "$name --nonsense: exit code $code"
    cat out
    failed=1
  fi
done
exit "$failed"
