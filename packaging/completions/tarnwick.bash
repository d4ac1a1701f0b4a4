# Completion of tarnwick, tarnwickctl, orvane-sim and orvane-image, for bash 4.4 or later. It is installed
# under the name of each of them, where bash-completion finds it, and works without that package too.
# shellcheck shell=bash

# What the functions below share, in variables of the one that completes:
#   words   the words up to the cursor. bash splits words at = : and @, which may be part of ours: here
#           they are whole
#   cur     the last of them, which is to be completed
#   before  its beginning that bash leaves as it is
_orvane_words() {
  local i word joins=
  words=()
  for ((i = 0; i <= COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    if ((${#words[@]} > 0)) && [[ $joins || $word == [=:@]* ]]; then
      words[-1]+=$word
    else
      words+=("$word")
    fi
    joins=
    [[ $word =~ ^[=:@]+$ ]] && joins=1
  done
  cur=${words[-1]} before=$cur
  [[ $joins ]] || before=${cur%"$word"}
}

# _orvane_offer PART WORD...: offers those words that begin with PART, the end of `cur`.
_orvane_offer() {
  local part=$1 word whole
  shift
  for word in "$@"; do
    [[ $word == "$part"* ]] || continue
    whole=${cur%"$part"}$word
    COMPREPLY+=("${whole#"$before"}")
    # More follows: no blank.
    [[ $word != *[=:@] ]] || compopt -o nospace 2>/dev/null
  done
}

# _orvane_files PART [-d]: offers the files, or only the folders, whose names begin with PART, the end of
# `cur` as it was typed.
_orvane_files() {
  local part=$1 kind=${2:--f} file typed=${cur%"$1"}
  local taken=${before#"$typed"} # of the name
  part=${part#[\"\']}
  while IFS= read -r file; do
    COMPREPLY+=("${file#"$taken"}")
  done < <(compgen "$kind" -- "${part//\\/}")
  compopt -o filenames 2>/dev/null
}

# _orvane_slots PART: offers the slots that hold a module, as the system's inventory tells them within a
# second; nothing when it does not. A service that does not run is not started for this.
_orvane_slots() {
  local answer slots slot
  answer=$(timeout 1 busctl --system --timeout=1 --auto-start=no call org.orvane.SystemInventory1 \
    /org/orvane/SystemInventory1 org.orvane.SystemInventory1 GetModuleLocations 2>/dev/null)
  # "ai 3 1 2 4": the type, the number of slots, the slots.
  read -ra slots <<<"$answer"
  for slot in "${slots[@]:2}"; do
    [[ $slot =~ ^[0-9]+$ ]] && _orvane_offer "$1" "$slot"
  done
}

_tarnwick() {
  local words cur before
  COMPREPLY=()
  _orvane_words
  case ${#words[@]} in
    2)
      _orvane_offer "$cur" wend dax pyx1 pyx2
      [[ $cur != -* ]] || _orvane_offer "$cur" --help
      ;;
    3) _orvane_offer "$cur" -sf --spi-flash -h --help ;;
    4) _orvane_slots "$cur" ;;
    5) _orvane_files "$cur" ;;
  esac
}

# _tarnwickctl_options COMMAND: prints its options.
_tarnwickctl_options() {
  case $1 in
    image) echo --target --flash --json ;;
    read) echo --length --state --wait --json ;;
    verify) echo --state --wait --json ;;
    update)
      echo --sha256 --attempts --timeout --restart --force --program --state --wait --json
      ;;
  esac
  echo --help --version
}

# _tarnwickctl_value OPTION PART: offers values of the option.
_tarnwickctl_value() {
  case $1 in
    --target) _orvane_offer "$2" wend dax pyx1 pyx2 ;;
    --flash | --program) _orvane_files "$2" ;;
    --state) _orvane_files "$2" -d ;;
  esac
}

_tarnwickctl() {
  local words cur before word i places=() options=1
  COMPREPLY=()
  _orvane_words
  # The command and its words, without the options between them; `i` ends at the last word.
  for ((i = 1; i < ${#words[@]} - 1; i++)); do
    word=${words[i]}
    case $options$word in
      1--) options= ;;
      1--*=* | 1--json | 1--restart | 1--force | 1--help | 1--version) ;;
      1--*)
        if ((++i == ${#words[@]} - 1)); then
          _tarnwickctl_value "$word" "$cur"
          return
        fi
        ;;
      *) places+=("$word") ;;
    esac
  done
  if [[ $options && $cur == --*=* ]]; then
    _tarnwickctl_value "${cur%%=*}" "${cur#*=}"
  elif [[ $options && $cur == -* ]]; then
    # shellcheck disable=SC2046 # one word an option
    _orvane_offer "$cur" $(_tarnwickctl_options "${places[0]-}")
  elif ((${#places[@]} == 0)); then
    _orvane_offer "$cur" image read verify update
  else
    case ${places[0]}${#places[@]} in
      image1 | read3 | verify3 | update3) _orvane_files "$cur" ;;
      read1 | verify1 | update1) _orvane_offer "$cur" wend dax pyx1 pyx2 ;;
      read2 | verify2 | update2) _orvane_slots "$cur" ;;
    esac
  fi
}

# _orvane_sim_module PART: completes TYPE@SLOT[,KEY=VALUE]..., of which it is the last PART.
_orvane_sim_module() {
  local part=${1##*,}
  if [[ $1 != *,* ]]; then
    _orvane_offer "$1" wend@ dax@ pyx1@ pyx2@
    return
  fi
  case $part in
    flash=* | loaded=*) _orvane_files "${part#*=}" ;;
    chip=*) _orvane_offer "${part#*=}" micron macronix ;;
    done=*) _orvane_offer "${part#*=}" auto high low after: ;;
    i2c=* | spi=*) _orvane_offer "${part#*=}" none ;;
    i2cdev=* | spidev=* | zynq-files=*) _orvane_offer "${part#*=}" missing ;;
    expander=* | flash-chip=*) _orvane_offer "${part#*=}" absent ;;
    *=*) ;;
    *)
      _orvane_offer "$part" flash= loaded= chip= registers= done= i2c= spi= i2cdev= spidev= \
        zynq-files= expander= held= flash-chip= program-lost= erase-lost= register-lost= \
        busy-after= worn-page= worn-sector=
      ;;
  esac
}

# _orvane_sim_value OPTION PART: offers values of the option.
_orvane_sim_value() {
  case $1 in
    --module) _orvane_sim_module "$2" ;;
    --timing) _orvane_offer "$2" polls typical longest ;;
    --log | --trace | --vcd | --state) _orvane_files "$2" ;;
    --summary) _orvane_offer "$2" json ;;
    --bufsiz) _orvane_offer "$2" none ;;
    --spi-alignment) _orvane_offer "$2" 1 8 64 128 ;;
    --without) _orvane_offer "$2" inventory resources bus selector ;;
    --fault)
      [[ $2 == *:* ]] ||
        _orvane_offer "$2" open: close: read: write: ioctl: spi: i2c: dbus: sleep: file: any:
      ;;
  esac
}

_orvane_sim() {
  local words cur before i
  COMPREPLY=()
  _orvane_words
  for ((i = 1; i < ${#words[@]} - 1; i++)); do
    case ${words[i]} in
      --) break ;;
      --*=* | --fast | --summary | --i2c-clients | --file-events | --allow-unhit | --help | --version) ;;
      --*)
        if ((++i == ${#words[@]} - 1)); then
          _orvane_sim_value "${words[i - 1]}" "$cur"
          return
        fi
        ;;
    esac
  done
  if [[ ${words[i]} == -- ]] && ((i < ${#words[@]} - 1)); then
    _orvane_sim_command "$i"
  elif [[ $cur == --*=* ]]; then
    _orvane_sim_value "${cur%%=*}" "${cur#*=}"
  else
    _orvane_offer "$cur" --module --fast --timing --message-cost --clock-step --log --trace --vcd \
      --state --summary --control --bufsiz --spi-alignment --i2c-clients --without --fault \
      --file-events --allow-unhit --help --version --
  fi
}

# _orvane_sim_command INDEX: completes the command after the word "--", which has this index in `words`.
_orvane_sim_command() {
  local offset
  for ((offset = 1; offset < COMP_CWORD; offset++)); do
    [[ ${COMP_WORDS[offset]} != -- ]] || break
  done
  if declare -F _command_offset >/dev/null; then # of bash-completion: as the command itself does
    _command_offset $((offset + 1))
  else
    ((${#words[@]} - 1 > $1 + 1)) || mapfile -t COMPREPLY < <(compgen -c -- "$cur")
    _orvane_files "$cur"
  fi
}

_orvane_image() {
  local words cur before options
  COMPREPLY=()
  _orvane_words
  if ((${#words[@]} == 2)); then
    _orvane_offer "$cur" zynq bitstream --help --version
    return
  fi
  case ${words[1]} in
    zynq) options=(--name --date) ;;
    bitstream) options=(--stamp --no-stamp --stamp-word) ;;
    *) return ;;
  esac
  case ${words[-2]} in
    --out) _orvane_files "$cur" ;;
    --name | --date | --stamp | --stamp-word | --size | --seed) ;;
    *)
      case $cur in
        --out=*) _orvane_files "${cur#*=}" ;;
        --*=*) ;;
        *) _orvane_offer "$cur" "${options[@]}" --out --size --seed --gzip --help --version ;;
      esac
      ;;
  esac
}

complete -F _tarnwick tarnwick
complete -F _tarnwickctl tarnwickctl
complete -F _orvane_sim orvane-sim
complete -F _orvane_image orvane-image
