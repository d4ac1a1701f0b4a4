#!/bin/sh
# generate.sh LIST PROGRAMS
# Prints the page of LIST. PROGRAMS is a file with the paths of the test programs, one on each line.
# Fails when a behaviour has no test, or names one that does not exist.
set -eu
list=$1 programs=$2

# "kind Suite.Test/Row" for every test, without the prefix of an instantiation and the number of a
# type. The kind is "program" for a test that runs the whole program, else "class".
while read -r program; do
  kind=class
  case ${program##*/} in e2e_*) kind=program ;; esac
  "$program" --gtest_list_tests | awk -v kind="$kind" '
    /^[^ ].*\.( |$)/ { suite = $1; sub(/\/[0-9]+\.$/, ".", suite); sub(/^.*\//, "", suite); next }
    /^  / { print kind, suite $1 }'
done <"$programs" | sort -u |
  awk -v list="$list" '
    { # a test counts for itself and for its rows together
      kind[$2] = $1
      ++rows[$2]
      if (sub(/\/.*/, "", $2)) {
        kind[$2] = $1
        ++rows[$2]
      }
    }
    END {
      while ((getline line <list) > 0) {
        if (line ~ /^## /) {
          text = text "\n" line "\n\n| behaviour | shown by | tests |\n|---|---|---|\n"
        } else if (line !~ /^#/ && line != "") {
          text = text row(line)
        }
      }
      if (broken) {
        exit 1
      }
      print "# What the program does at its edges\n"
      print "Made of `proofs/behaviour/behaviours` by `cmake --build --preset dev --target behaviour`."
      print "A test that has rows is followed by their number.\n"
      print count " behaviours: " whole " are shown by the whole program on the virtual instrument, " \
        count - whole " by a class"
      print "alone. None is without a test."
      printf "%s", text
    }

    function row(line,   bar, names, tests, shown, i, n) {
      bar = index(line, "|")
      n = split(substr(line, bar + 1), names, " ")
      if (bar == 0 || n == 0) {
        complain("no test: " line)
        return ""
      }
      shown = "class"
      for (i = 1; i <= n; ++i) {
        if (!(names[i] in kind)) {
          complain("no such test: " names[i])
          continue
        }
        if (kind[names[i]] == "program") {
          shown = "program"
        }
        tests = tests (i > 1 ? "<br>" : "") "`" names[i] "`"
        if (rows[names[i]] > 1) {
          tests = tests " (" rows[names[i]] ")"
        }
      }
      ++count
      whole += shown == "program"
      return "| " substr(line, 1, bar - 2) " | " shown " | " tests " |\n"
    }

    function complain(what) {
      print what >"/dev/stderr"
      broken = 1
    }'
