#!/bin/sh
# versions.sh ROOT VERSION
# Checks that the headings of ROOT/CHANGELOG.md are "## Unreleased", only on top, and
# "## X.Y.Z - YYYY-MM-DD"; that the topmost release, if there is one, is VERSION; and that VERSION is the
# one of ROOT/debian/changelog, where there is that file.
set -eu
cd "$1"
version=$2
failed=0
complain() {
  echo "$1"
  failed=1
}

headings=$(sed -n 's/^## //p' CHANGELOG.md)
releases=$(printf '%s\n' "$headings" | sed '1{/^Unreleased$/d}')
wrong=$(printf '%s\n' "$releases" |
  grep -vE '^([0-9]+[.]){2}[0-9]+ - [0-9]{4}-[0-9]{2}-[0-9]{2}$' | grep . || true)
[ -z "$wrong" ] || complain "CHANGELOG.md: not a heading of a release: $wrong"
[ -n "$headings" ] || complain "CHANGELOG.md: no heading of a version"
topmost=$(printf '%s\n' "$releases" | sed -n '1s/ .*//p')
[ -z "$topmost" ] || [ "$topmost" = "$version" ] ||
  complain "CHANGELOG.md: the topmost release is $topmost, the project's version is $version"

if [ -d debian ]; then
  # "tarnwick (1.0.0-1) unstable; urgency=medium", without epoch and revision.
  packaged=$(sed -n '1s/^[^ ]* (\([0-9]*:\)\{0,1\}\([^)]*\)).*/\2/p' debian/changelog || true)
  [ "${packaged%-*}" = "$version" ] ||
    complain "debian/changelog: the topmost version is '$packaged', the project's is $version"
fi
exit "$failed"
