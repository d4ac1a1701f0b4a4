# What the tests share: a virtual instrument with a module of each type, whose flash holds a build of
# 2023, and an image of 2024 for each. Sourced in an empty folder.
# shellcheck shell=sh

for kind in wend pyx2; do
  orvane-image zynq --date "2023-01-02 03:04:05" --size 256K --out "$kind.flash"
  orvane-image zynq --date "2024-05-06 07:08:09" --size 512K --seed 2 --out "$kind.bin"
done
for kind in dax pyx1; do
  orvane-image bitstream --stamp "2023-01-02 03:04:05" --size 256K --out "$kind.flash"
  orvane-image bitstream --stamp "2024-05-06 07:08:09" --size 512K --seed 2 --out "$kind.bin"
done

slot_of() { case $1 in wend) echo 1 ;; dax) echo 2 ;; pyx1) echo 4 ;; pyx2) echo 5 ;; esac; }

# on_instrument COMMAND...: runs it there. Its standard output is then the file `out`, its standard error
# `err`, its exit code `code`.
on_instrument() {
  code=0
  orvane-sim --fast \
    --module wend@1,flash=wend.flash --module dax@2,flash=dax.flash \
    --module pyx1@4,flash=pyx1.flash --module pyx2@5,flash=pyx2.flash \
    -- "$@" >out 2>err || code=$?
}

# fail REASON: shows what was printed last, and ends the test.
fail() {
  echo "$1"
  cat out err
  exit 1
}

# expect_code CODE: checks how the last command ended, and that it complained of nothing.
expect_code() {
  [ "$code" -eq "$1" ] || fail "exit code $code, expected $1"
  [ ! -s err ] || fail "standard error is not empty"
}

# expect_flash KIND: checks that its flash begins with its image, and that nothing else was written.
expect_flash() {
  cmp -n "$(stat -c %s "$1.bin")" "$1.flash" "$1.bin" || fail "the flash of the $1 is not the image"
}
