# shellcheck shell=sh
# What the steps of a rehearsal are made of. Sourced by them, in the folder where they run.

tracing=/sys/kernel/tracing

# begin NAME: the folder of the step; from here on the kernel notes what happens on its buses.
begin() {
  out=/out/$1
  mkdir "$out"
  rm -f dumpflash.bin FlashDevice.bin FlashDevice_verif.bin
  echo >$tracing/trace
  echo 1 >$tracing/tracing_on
}

# finish STATUS
finish() {
  echo "$1" >"$out/status"
  echo 0 >$tracing/tracing_on
  grep -v '^#' $tracing/trace >"$out/trace"
  sed -n 's/^\(overrun\|dropped events\): //p' $tracing/per_cpu/cpu0/stats >"$out/lost"
  for dump in dumpflash.bin FlashDevice.bin FlashDevice_verif.bin; do
    [ ! -e $dump ] || cp $dump "$out"
  done
  for state in /sys/platform_m1/*/value /sys/platform/module_selector/* /sys/bus/pci/devices/*/* \
    /sys/class/pci_bus/*/*; do
    echo "$state $(cat "$state")"
  done >"$out/files"
}

# step NAME COMMAND...
step() {
  begin "$1"
  shift
  code=0
  "$@" </dev/null >"$out/stdout" 2>"$out/stderr" || code=$?
  finish $code
}

# step_killed_in_write NAME COMMAND...: SIGKILL when the 100th page is seen in a trace of its own.
step_killed_in_write() {
  begin "$1"
  shift
  watch=$tracing/instances/watch
  mkdir -p $watch
  echo >$watch/trace
  echo 1 >$watch/events/spi/spi_transfer_start/enable
  "$@" </dev/null >"$out/stdout" 2>"$out/stderr" &
  process=$!
  grep -m 100 'tx=\[02-' $watch/trace_pipe >/dev/null
  kill -9 $process
  echo 0 >$watch/events/spi/spi_transfer_start/enable
  code=0
  wait $process || code=$?
  finish $code
}

# as_nobody COMMAND...
as_nobody() {
  su -s /bin/sh nobody -c "$*"
}
