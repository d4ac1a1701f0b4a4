#!/bin/sh
# InstallTest.sh BUILD BINDIR SBINDIR LIBDIR DATADIR DOCDIR [MANDIR]
# Installs each component of the build alone and compares what it holds; then installs all of them with
# DESTDIR, moves the tree, and updates a module of the installed virtual instrument with the installed
# programs. The folders are those of the installation, below its prefix;
# without MANDIR there are no man pages.
set -eu
build=$1 bin=$2 sbin=$3 lib=$4 data=$5 doc=$6 man=${7-}

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory"
failed=0

# install_into FOLDER [OPTION...]: installs below FOLDER, as a package does.
install_into() {
  folder=$1
  shift
  DESTDIR=$directory/$folder cmake --install "$build" --prefix /usr "$@" >install.log 2>&1 || {
    cat install.log
    exit 1
  }
}

# holds COMPONENT: checks that the component alone is the files on standard input, but for the pages
# below docs/.
holds() {
  sed '/^\/man[0-9]/d' | sort >expected
  install_into "$1" --component "$1"
  (cd "$1/usr" && find . ! -type d ! -path "./$doc/docs/*" | sed 's,^\./,,' | sort) >files
  if ! diff expected files; then
    echo "component $1: other files than these"
    failed=1
  fi
}
holds program <<END
$sbin/tarnwick
$data/bash-completion/completions/tarnwick
$data/dbus-1/interfaces/org.orvane.ModuleResources1.xml
$data/dbus-1/interfaces/org.orvane.SystemInventory1.xml
$doc/CHANGELOG.md
$doc/LICENSE
$doc/README.md
$man/man8/tarnwick.8
END
holds companion <<END
$sbin/tarnwickctl
$data/bash-completion/completions/tarnwickctl
$man/man8/tarnwickctl.8
END
holds simulator <<END
$bin/orvane-image
$bin/orvane-sim
$data/bash-completion/completions/orvane-image
$data/bash-completion/completions/orvane-sim
$lib/orvane-sim/liborvane-shim.so
$man/man1/orvane-image.1
$man/man1/orvane-sim.1
END
for page in program:fault-map companion:companion simulator:virtual-instrument; do
  if ! [ -s "${page%:*}/usr/$doc/docs/${page#*:}.md" ]; then
    echo "component ${page%:*}: no page ${page#*:}"
    failed=1
  fi
done

# All that is installed is in one of the components, and once.
install_into all
(cd all && find . ! -type d | sort) >files
for component in program companion simulator; do
  (cd "$component" && find . ! -type d)
done | sort >expected
if ! diff expected files; then
  echo "the components together are not what is installed without --component"
  failed=1
fi

# The shim is found from the executable, wherever the tree is, and only the system decides from where
# libraries are loaded.
mv all "moved tree"
root=$directory/moved\ tree/usr
for file in "$root/$bin"/* "$root/$sbin"/* "$root/$lib/orvane-sim"/*; do
  if readelf -dW "$file" | grep -E '\((RPATH|RUNPATH)\)'; then
    echo "$file says where its libraries are"
    failed=1
  fi
done

image() { "$root/$bin/orvane-image" zynq --date "$1" --size 128K --out "$2"; }
image "2023-01-02 03:04:05" flash
image "2024-05-06 07:08:09" image
# run CODE WORD...: runs a program on the installed instrument.
run() {
  expected=$1 code=0
  shift
  "$root/$bin/orvane-sim" --fast --module wend@1,flash=flash -- "$@" >out 2>err || code=$?
  if [ "$code" -ne "$expected" ] || [ -s err ]; then
    echo "$*: exit code $code, expected $expected"
    cat out err
    failed=1
  fi
}
run 0 "$root/$sbin/tarnwick" wend -sf 1 image
cmp -n "$(stat -c %s image)" flash image || failed=1
run 11 "$root/$sbin/tarnwick" wend -sf 1 image

# tarnwickctl runs the tarnwick that is installed with it: no other one can be found.
image "2025-01-02 03:04:05" image
PATH=/usr/bin:/bin run 0 "$root/$sbin/tarnwickctl" update wend 1 image --state "$directory/state"
cmp -n "$(stat -c %s image)" flash image || failed=1
exit "$failed"
