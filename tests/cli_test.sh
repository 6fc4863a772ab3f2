#!/bin/sh
# The qbcode program as a user meets it: help and version on standard output, usage errors on
# standard error with status 2, an image on standard input, and a payload that reads back as
# it was written (the README's examples).
set -u
qbcode=$1
work=$2
rm -rf "$work" && mkdir -p "$work" && cd "$work"
failures=0
check() {  # check NAME EXPECTED-STATUS COMMAND...; stdout in out, stderr in err
  name=$1 want=$2; shift 2
  "$@" >out 2>err
  got=$?
  if [ "$got" -ne "$want" ]; then
    echo "FAIL $name: status $got, wanted $want"; cat out err; failures=$((failures + 1))
  fi
}
expect() {  # expect NAME FILE PATTERN
  grep -q -- "$3" "$2" || { echo "FAIL $1: no '$3' in $2"; cat "$2"; failures=$((failures + 1)); }
}
empty() {
  [ ! -s "$2" ] || { echo "FAIL $1: $2 not empty"; cat "$2"; failures=$((failures + 1)); }
}

for args in "--help" "-h" "help" "help read" "read --help" "render --help" "grade --help" \
            "dots --help" "scan --help"; do
  check "$args" 0 $qbcode $args
  expect "$args" out "usage: qbcode"
  empty "$args" err
done
check version 0 $qbcode --version
[ "$(cat out)" = "Quelbor Recognition Algorithm 0.3.10" ] || { echo "FAIL --version: $(cat out)"; failures=$((failures + 1)); }

for args in "" "frobnicate" "dots" "dots x" "read" "read --fast x.png" "render" "grade" \
            "grade --fast x.png" "render --payload 1 -o" "scan" "scan a.avi b.avi" \
            "scan a.avi --frames x" "read --jobs 0 x.png" "read --json --csv x.png"; do
  check "usage: '$args'" 2 $qbcode $args
  expect "usage: '$args'" err "usage: qbcode"
  empty "usage: '$args'" out
done

# The README's example: nine bytes in, the same nine bytes out, from a file and from a pipe.
payload=c0ffee5eedba5eba11
check render 0 $qbcode render --payload-hex $payload --camera --rotation 30 -o code.png
check "read file" 0 $qbcode read code.png --overlay marked.png
expect "read file" out "payload: $payload\$"
[ -s marked.png ] || { echo "FAIL overlay not written"; failures=$((failures + 1)); }
check "read stdin" 0 sh -c "$qbcode read - < code.png"
expect "read stdin" out "^-: 0 ok"
expect "read stdin" out "payload: $payload\$"
check "read empty stdin" 1 sh -c "$qbcode read - < /dev/null"
expect "read empty stdin" out "cannot read image"
# A batch: a folder and a pattern, CSV in input order; the summary goes to standard error.
mkdir shots && cp code.png shots/a.png && cp code.png shots/b.png && echo junk > shots/c.png
check "batch" 1 $qbcode read shots 'shots/*.png' --csv --jobs 2
[ "$(grep -c "^shots/.*,0,ok,$payload," out)" -eq 4 ] || { echo "FAIL batch rows"; cat out; failures=$((failures + 1)); }
expect "batch" err "6 images: 4 read, 0 refused, 2 failed to open"
check "grade overlay" 0 $qbcode grade code.png --overlay graded.png
[ -s graded.png ] || { echo "FAIL grade overlay not written"; failures=$((failures + 1)); }
# Streams: a camera that is not there, a file that is not a video.
check "no camera" 3 $qbcode scan /dev/video97
expect "no camera" err "no such device /dev/video97"
check "not a video" 3 $qbcode scan code.png.txt
expect "not a video" err "no such file"

# A small number sets a few low bits only: too few dots for a code, and render says so.
check "sparse" 0 $qbcode render --payload 123456789 -o sparse.png
expect "sparse" err "dots"

echo "$failures failed"
[ "$failures" -eq 0 ]
