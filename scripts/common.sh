# What the scripts share. Each sources it first, with its own arguments:
#     . "$(dirname "$0")/common.sh"
# With --help among these it prints the comment at the head of the script and ends it. Changes to
# the root of the repository; `started_in` is the folder where the script was started.
# shellcheck shell=sh

# refuse MESSAGE: ends a script whose arguments are wrong, with exit code 2.
refuse() {
  echo "$0: $1" >&2
  echo "Try '$0 --help'." >&2
  exit 2
}
# refuse_words WORD...: the same when there is a word; for words that the script does not know.
refuse_words() {
  [ $# -eq 0 ] || refuse "unknown word '$1'"
}

# quietly COMMAND...: runs it, and shows what it printed only when it fails.
quietly() {
  code=0
  printed=$("$@" 2>&1) || code=$?
  [ "$code" -eq 0 ] || printf '%s\n' "$printed" >&2
  return "$code"
}

# source_folders KIND...: the top-level folders with C++ sources of these kinds, one a line.
source_folders() {
  for kind in "$@"; do
    awk -v kind="$kind" '$1 == kind { print $2 }' cmake/source-folders
  done
}

for word in "$@"; do
  if [ "$word" = --help ]; then
    sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"
    exit 0
  fi
done
# shellcheck disable=SC2034 # for scripts that take paths
started_in=$PWD
cd "$(dirname "$0")/.." || exit
