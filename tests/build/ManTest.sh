#!/bin/sh
# ManTest.sh SOURCES PAGES MANDOC BIN
# Checks the man pages, which were made from SOURCES, with MANDOC; and that each has the sections that
# users look for, and a place for every option, key and exit code of its program's help, and for no others.
set -eu
sources=$1 pages=$2 mandoc=$3 bin=$4

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory"
failed=0

# same WHAT: compares the lines of `help` with those of `page`, in any order.
same() {
  sort -u help >help.sorted
  sort -u page >page.sorted
  if ! [ -s help ] || ! diff help.sorted page.sorted; then
    echo "$1: < only in the help, > only in the man page"
    failed=1
  fi
}
# section NAME: this section of the source on standard input.
section() { awk -v name="# $1" '/^# / { is = ($0 == name) } is'; }

for page in tarnwick.8 tarnwickctl.8 orvane-image.1 orvane-sim.1; do
  program=${page%.*} source=$sources/$page.scd
  "$mandoc" -T lint -W error "$pages/$page" || failed=1

  for heading in NAME SYNOPSIS DESCRIPTION "EXIT STATUS" ENVIRONMENT FILES EXAMPLES; do
    if [ "$(section "$heading" <"$source" | grep -c '[a-z]')" -lt 1 ]; then
      echo "$page: nothing under $heading"
      failed=1
    fi
  done

  # Options stand at the start of a line, several with commas between them.
  "$bin/$program" --help >text
  sed 's/\x1b\[[0-9]*m//g' text | grep -oE '(^|[^[:alnum:]-])-{1,2}[a-z][a-z0-9-]*' |
    sed 's/^[^-]//' >help
  grep '^\*-' "$source" | grep -oE '\*-{1,2}[a-z][^*]*\*' | tr -d '*' >page
  # The help of tarnwick does not tell of -h, which it takes.
  [ "$program" != tarnwick ] || echo -h >>help
  same "$page, options"
done

# What else the help lists.
"$bin/orvane-sim" --help | sed -n '/^KEY=VALUE/,/^RULE/p' | grep -oE '^  [a-z].*=' |
  grep -oE '[a-z0-9-]+=' >help
section KEYS <"$sources/orvane-sim.1.scd" | grep -oE '^\*[a-z].*=\*' | grep -oE '[a-z0-9-]+=' >page
same "orvane-sim.1, keys"

# "ioctl: this number" is the second line of an action.
"$bin/orvane-sim" --help | sed -n '/^  ACTION/,/^  The first/p' | cut -c 11- |
  grep -oE '^([a-z-]+[:[]|ENOENT)' | tr -d ':[' | grep -vx ioctl >help
section FAULTS <"$sources/orvane-sim.1.scd" | sed -n '/^_ACTION_/,$p' | grep -oE '^\*[A-Za-z-]+' |
  tr -d '*' >page
same "orvane-sim.1, actions"

"$bin/tarnwickctl" --help | sed -n '/^Exit status/,$p' | grep -oE '^  [0-9]+' | tr -d ' ' >help
section "EXIT STATUS" <"$sources/tarnwickctl.8.scd" | grep -oE '^\*[0-9]+' | tr -d '*' >page
same "tarnwickctl.8, exit codes"
exit "$failed"
