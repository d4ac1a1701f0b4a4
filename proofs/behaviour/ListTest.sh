#!/bin/sh
# ListTest.sh PROGRAMS
# Checks that proofs/behaviour/BEHAVIOUR.md is what the list of behaviours makes, so that each has its
# tests; and that a list is refused if a behaviour has no test or names one that does not exist.
set -eu
folder=$(cd "$(dirname "$0")" && pwd) programs=$1
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT

"$folder/generate.sh" "$folder/behaviours" "$programs" >"$directory/BEHAVIOUR.md"
diff "$folder/BEHAVIOUR.md" "$directory/BEHAVIOUR.md" ||
  { echo "proofs/behaviour/BEHAVIOUR.md is stale: cmake --build --preset dev --target behaviour" >&2; exit 1; }

# refuse LINE MESSAGE
refuse() {
  printf '## Area\n%s\n' "$1" >"$directory/list"
  code=0
  "$folder/generate.sh" "$directory/list" "$programs" >/dev/null 2>"$directory/message" || code=$?
  if [ "$code" -eq 0 ] || [ "$(cat "$directory/message")" != "$2" ]; then
    echo "taken or refused otherwise: $1" >&2
    cat "$directory/message" >&2
    exit 1
  fi
}

refuse 'It is done' 'no test: It is done'
refuse 'It is done | ' 'no test: It is done | '
refuse 'It is done | CommandLineTest.Is' 'no such test: CommandLineTest.Is'
refuse 'It is done | CommandLineTest.Ends/NoRow' 'no such test: CommandLineTest.Ends/NoRow'
