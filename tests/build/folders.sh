#!/bin/sh
# folders.sh ROOT
# Checks that cmake/source-folders lists the top-level folders below ROOT that have C++ sources, and
# no other, and that README.md and .clang-tidy name them too.
set -eu
cd "$1"

failed=0
complain() {
  echo "$1"
  failed=1
}

# Not build folders: each has a CMake cache below it.
present=$(for folder in */; do
  folder=${folder%/}
  if [ -n "$(find "$folder" \( -name '*.cpp' -o -name '*.h' \) -print -quit)" ] &&
    [ -z "$(find "$folder" -maxdepth 2 -name CMakeCache.txt -print -quit)" ]; then
    echo "$folder"
  fi
done)
listed=$(grep -v '^#' cmake/source-folders | cut -d ' ' -f 2-)

for folder in $present; do
  printf '%s\n' "$listed" | grep -qxF -e "$folder" ||
    complain "$folder/ has sources and is not in cmake/source-folders"
done
for folder in $listed; do
  printf '%s\n' "$present" | grep -qxF -e "$folder" ||
    complain "$folder/ of cmake/source-folders has no sources"
  grep -q "^|[^|]*\`$folder/\`" README.md || complain "README.md does not name $folder/"
done
grep -vE '^(#|(program|tool|test) [^ ]+$)' cmake/source-folders | while read -r line; do
  echo "cmake/source-folders: neither program nor tool nor test: $line"
done | grep . && failed=1

pattern=$(printf '%s\n' "$listed" | LC_ALL=C sort | paste -sd '|')
grep -qxF "HeaderFilterRegex: '($pattern)/'" .clang-tidy ||
  complain ".clang-tidy: the folders are HeaderFilterRegex: '($pattern)/'"
exit "$failed"
