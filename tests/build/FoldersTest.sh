#!/bin/sh
# FoldersTest.sh SOURCE
# Checks that the list of the source folders is complete, and that an incomplete list is refused.
# shellcheck disable=SC2016 # the backquotes are Markdown's
set -eu
folder=$(cd "$(dirname "$0")" && pwd) source=$1
"$folder/folders.sh" "$source"

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory"

# A correct tree.
tree() {
  rm -rf tree
  mkdir -p tree/app/deep tree/cmake tree/tests tree/build/dev tree/docs
  touch tree/app/deep/Run.cpp tree/tests/Run.h tree/build/dev/CMakeCache.txt tree/build/dev/Made.h
  printf '# A comment.\nprogram app\ntest tests\n' >tree/cmake/source-folders
  printf '| folder | |\n| `app/` | |\n| `tests/`, `docs/` | |\n' >tree/README.md
  echo "HeaderFilterRegex: '(app|tests)/'" >tree/.clang-tidy
}
failed=0
# expect EXIT-CODE: checks that the report on the tree is the text on standard input.
expect() {
  cat >expected
  code=0
  "$folder/folders.sh" tree >report || code=$?
  if [ "$code" -ne "$1" ] || ! diff expected report; then
    echo "exit code $code, expected $1"
    failed=1
  fi
}

tree
expect 0 </dev/null

tree
mkdir tree/lines
touch tree/lines/Line.h
expect 1 <<'END'
lines/ has sources and is not in cmake/source-folders
END

tree
rm tree/tests/Run.h
expect 1 <<'END'
tests/ of cmake/source-folders has no sources
END

tree
printf '| `app/` | |\nIn `tests/`\n' >tree/README.md
expect 1 <<'END'
README.md does not name tests/
END

tree
printf 'program app\ntest tests\nprogramm lines\n' >tree/cmake/source-folders
echo "HeaderFilterRegex: '(app|lines|tests)/'" >tree/.clang-tidy
echo '| `lines/` | |' >>tree/README.md
mkdir tree/lines
touch tree/lines/Line.h
expect 1 <<'END'
cmake/source-folders: neither program nor tool nor test: programm lines
END

tree
echo "HeaderFilterRegex: '(app)/'" >tree/.clang-tidy
expect 1 <<'END'
.clang-tidy: the folders are HeaderFilterRegex: '(app|tests)/'
END
exit "$failed"
