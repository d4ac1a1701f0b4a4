#!/bin/sh
# VersionsTest.sh SOURCE VERSION
# Checks that the change logs tell the version of the project, and that another one is noticed.
set -eu
folder=$(cd "$(dirname "$0")" && pwd) source=$1 version=$2
"$folder/versions.sh" "$source" "$version"

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory"

failed=0
# expect EXIT-CODE: checks that the report on the tree, whose version is 1.2.3, is the text on standard
# input.
expect() {
  cat >expected
  code=0
  "$folder/versions.sh" . 1.2.3 >report 2>&1 || code=$?
  if [ "$code" -ne "$1" ] || ! diff expected report; then
    echo "exit code $code, expected $1"
    failed=1
  fi
}
# changes HEADING...: makes CHANGELOG.md of them.
changes() { printf '# Changelog\n' && printf '\n## %s\n\n### Added\n- x\n' "$@"; }

changes Unreleased >CHANGELOG.md
expect 0 </dev/null

changes Unreleased "1.2.3 - 2024-05-06" "1.2.2 - 2024-05-05" >CHANGELOG.md
expect 0 </dev/null

changes "1.2.3 - 2024-05-06" "1.2.2 - 2024-05-05" >CHANGELOG.md
expect 0 </dev/null

changes Unreleased "1.2.2 - 2024-05-05" "1.2.3 - 2024-05-06" >CHANGELOG.md
expect 1 <<'END'
CHANGELOG.md: the topmost release is 1.2.2, the project's version is 1.2.3
END

changes "1.2.3 - 2024-05-06" Unreleased >CHANGELOG.md
expect 1 <<'END'
CHANGELOG.md: not a heading of a release: Unreleased
END

changes "1.2.3, in May" >CHANGELOG.md
expect 1 <<'END'
CHANGELOG.md: not a heading of a release: 1.2.3, in May
CHANGELOG.md: the topmost release is 1.2.3,, the project's version is 1.2.3
END

echo "# Changelog" >CHANGELOG.md
expect 1 <<'END'
CHANGELOG.md: no heading of a version
END

# The package's version, with and without a revision and an epoch.
changes Unreleased "1.2.3 - 2024-05-06" >CHANGELOG.md
mkdir debian
for packaged in 1.2.3-1 1.2.3 1:1.2.3-1; do
  printf 'tarnwick (%s) unstable; urgency=medium\n\n  * x\n' "$packaged" >debian/changelog
  expect 0 </dev/null
done
for packaged in 1.2.4-1 1.2.3.1 11.2.3; do
  printf 'tarnwick (%s) unstable; urgency=medium\n\n  * x\n' "$packaged" >debian/changelog
  expect 1 <<END
debian/changelog: the topmost version is '$packaged', the project's is 1.2.3
END
done
exit "$failed"
