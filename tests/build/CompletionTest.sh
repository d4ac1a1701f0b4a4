#!/bin/bash
# CompletionTest.sh COMPLETIONS BIN
# Checks what the completions for bash offer: for each command line all words, compared whole.
set -u
completions=$1 bin=$2 self=$(realpath "$0")

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory" || exit
mkdir folder
touch image.bin 'image two.bin' a=b.bin

# shellcheck source=packaging/completions/tarnwick.bash
. "$completions"

failed=0
# offers FUNCTION LINE EXPECTED...: completes the words of LINE, which are told apart by blanks (a blank
# within a word is written as _), and compares what is offered, in any order. LINE is split at = : and @
# as bash does it.
offers() {
  local function=$1 line=$2 expected got
  shift 2
  [[ $line != *' ' ]] || line+='_'
  read -ra COMP_WORDS <<<"$(sed -E 's/[=:@]+/ & /g' <<<"$line")"
  COMP_WORDS=("${COMP_WORDS[@]//_/ }")
  [[ ${COMP_WORDS[-1]} != ' ' ]] || COMP_WORDS[-1]=
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  COMPREPLY=("left over")
  "$function"
  expected=$(printf '%s\n' "$@" | sort)
  got=$(printf '%s\n' "${COMPREPLY[@]}" | sort)
  if [ "$expected" != "$got" ]; then
    printf '%s: < expected, > offered\n' "$2"
    diff <(echo "$expected") <(echo "$got")
    failed=1
  fi
}
targets=(wend dax pyx1 pyx2)
files=(folder image.bin 'image two.bin' a=b.bin)

# Where there is no inventory. This script starts itself on the virtual instrument, with one.
if [ "${3-}" = inventory ]; then
  slots=(7 3)
else
  slots=()
  export DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent
fi

offers _tarnwick "tarnwick wend -sf " "${slots[@]}"
offers _tarnwickctl "tarnwickctl update wend " "${slots[@]}"
offers _tarnwickctl "tarnwickctl verify --json wend --wait 5 " "${slots[@]}"
offers _tarnwickctl "tarnwickctl read --state=x -- wend " "${slots[@]}"
if [ "${3-}" = inventory ]; then
  offers _tarnwick "tarnwick wend -sf 3" 3
  offers _tarnwick "tarnwick wend -sf 1"
  # Only where a slot belongs.
  offers _tarnwickctl "tarnwickctl image image.bin "
  offers _orvane_sim "orvane-sim --module wend@"
  exit "$failed"
fi
"$bin/orvane-sim" --module wend@7 --module dax@3 -- \
  bash "$self" "$completions" "$bin" inventory || failed=1

offers _tarnwick "tarnwick " "${targets[@]}"
offers _tarnwick "tarnwick py" pyx1 pyx2
offers _tarnwick "tarnwick --" --help
offers _tarnwick "tarnwick wend " -sf --spi-flash -h --help
offers _tarnwick "tarnwick wend --s" --spi-flash
offers _tarnwick "tarnwick wend -sf 1 " "${files[@]}"
offers _tarnwick "tarnwick wend -sf 1 im" image.bin "image two.bin"
offers _tarnwick "tarnwick wend -sf 1 image\\_t" "image two.bin"
offers _tarnwick "tarnwick wend -sf 1 \"image_t" "image two.bin"
offers _tarnwick "tarnwick wend -sf 1 a=" b.bin
offers _tarnwick "tarnwick wend -sf 1 image.bin "

offers _tarnwickctl "tarnwickctl " image read verify update
offers _tarnwickctl "tarnwickctl --" --help --version
offers _tarnwickctl "tarnwickctl update " "${targets[@]}"
offers _tarnwickctl "tarnwickctl update d" dax
offers _tarnwickctl "tarnwickctl read dax 2 im" image.bin "image two.bin"
offers _tarnwickctl "tarnwickctl read dax 2 image.bin "
offers _tarnwickctl "tarnwickctl image im" image.bin "image two.bin"
offers _tarnwickctl "tarnwickctl image -" --target --flash --json --help --version
offers _tarnwickctl "tarnwickctl read -" --length --state --wait --json --help --version
offers _tarnwickctl "tarnwickctl verify dax -" --state --wait --json --help --version
offers _tarnwickctl "tarnwickctl update -" --sha256 --attempts --timeout --restart --force --program \
  --state --wait --json --help --version
offers _tarnwickctl "tarnwickctl update -- wend 1 -"
offers _tarnwickctl "tarnwickctl image x --target " "${targets[@]}"
offers _tarnwickctl "tarnwickctl image x --target=py" pyx1 pyx2
offers _tarnwickctl "tarnwickctl image x --flash=im" image.bin "image two.bin"
offers _tarnwickctl "tarnwickctl update wend 1 x --state " folder
offers _tarnwickctl "tarnwickctl update wend 1 x --wait "
offers _tarnwickctl "tarnwickctl update --attempts 2 wend 1 im" image.bin "image two.bin"

offers _orvane_sim "orvane-sim --t" --timing --trace
offers _orvane_sim "orvane-sim --timing " polls typical longest
offers _orvane_sim "orvane-sim --timing=t" typical
offers _orvane_sim "orvane-sim --log im" image.bin "image two.bin"
offers _orvane_sim "orvane-sim --summary=" json
offers _orvane_sim "orvane-sim --summary --without b" bus
offers _orvane_sim "orvane-sim --module " wend@ dax@ pyx1@ pyx2@
offers _orvane_sim "orvane-sim --module=py" pyx1@ pyx2@
offers _orvane_sim "orvane-sim --module wend@1,fl" 1,flash= 1,flash-chip=
offers _orvane_sim "orvane-sim --module wend@1,flash=im" image.bin "image two.bin"
offers _orvane_sim "orvane-sim --module wend@1,flash=image.bin,chip=" micron macronix
offers _orvane_sim "orvane-sim --module wend@1,done=a" auto after:
offers _orvane_sim "orvane-sim --fault s" spi: sleep:
offers _orvane_sim "orvane-sim --fault spi:P"
offers _orvane_sim "orvane-sim --fast -- ./im" ./image.bin "./image two.bin"
offers _orvane_sim "orvane-sim --fast -- cat --help im" image.bin "image two.bin"

offers _orvane_image "orvane-image " zynq bitstream --help --version
offers _orvane_image "orvane-image bitstream --s" --stamp --stamp-word --size --seed
offers _orvane_image "orvane-image zynq --out im" image.bin "image two.bin"
offers _orvane_image "orvane-image zynq --out=im" image.bin "image two.bin"
offers _orvane_image "orvane-image zynq --date "

# All that the helps have is offered, and nothing else.
options() { "$bin/$1" --help | grep -oE -- '--[a-z][a-z0-9-]*' | sort -u; }
mapfile -t all < <(options orvane-sim)
offers _orvane_sim "orvane-sim " "${all[@]}" --
mapfile -t keys < <("$bin/orvane-sim" --help | sed -n '/^KEY=VALUE/,/^RULE/p' |
  grep -oE '^  [a-z].*=' | grep -oE '[a-z0-9-]+=' | sort -u)
offers _orvane_sim "orvane-sim --module wend@1,chip=micron," "${keys[@]/#/micron,}"
for program in tarnwickctl orvane-image; do
  offered=$(case $program in
    tarnwickctl) for command in image read verify update; do _tarnwickctl_options "$command"; done ;;
    *)
      for command in zynq bitstream; do
        COMP_WORDS=(orvane-image "$command" "") COMP_CWORD=2
        _orvane_image
        echo "${COMPREPLY[@]}"
      done
      ;;
  esac | tr ' ' '\n' | sort -u)
  if ! diff <(options "$program") <(echo "$offered"); then
    echo "$program: < in its help, > offered"
    failed=1
  fi
done

# The names under which bash has them.
if [ "$(complete -p tarnwick tarnwickctl orvane-sim orvane-image)" != "complete -F _tarnwick tarnwick
complete -F _tarnwickctl tarnwickctl
complete -F _orvane_sim orvane-sim
complete -F _orvane_image orvane-image" ]; then
  complete -p
  failed=1
fi
exit "$failed"
