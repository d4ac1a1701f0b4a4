# What the scripts share; each sources it first, with the words it was given:
#     . "$(dirname "$0")/common.sh"
# Among these, --help shows the comment at the head of the script. Goes to the root of the
# repository; `started_in` is the folder before.
# shellcheck shell=sh

# refuse MESSAGE: ends a script whose words are wrong.
refuse() {
  echo "$0: $1" >&2
  echo "Try '$0 --help'." >&2
  exit 2
}
# refuse_words WORD...: for a script that knows none of these.
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
# shellcheck disable=SC2034 # for those that take paths
started_in=$PWD
cd "$(dirname "$0")/.." || exit
