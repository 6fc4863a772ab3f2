#!/bin/sh
# Installs the build into a scratch prefix and builds a C program against it with pkg-config.
# A cross build passes its compiler, sysroot and emulator: the library is then staged into
# /usr/local of a scratch root that links to the sysroot, as a board's image is put together,
# and the program runs under the emulator.
set -eu
build=$1
work=$2
src=$3
cc=${4:-cc}
sysroot=${5:-}
emulator=${6:-}
rm -rf "$work"
if [ -z "$sysroot" ]; then
  cmake --install "$build" --prefix "$work/prefix" >/dev/null
  search=$work/prefix
  run=""
else
  root=$work/root
  mkdir -p "$root/usr"
  for entry in "$sysroot"/*; do
    [ "$(basename "$entry")" = usr ] || ln -s "$entry" "$root/"
  done
  for entry in "$sysroot"/usr/*; do
    [ "$(basename "$entry")" = local ] || ln -s "$entry" "$root/usr/"
  done
  DESTDIR=$root cmake --install "$build" --prefix /usr/local >/dev/null
  search=$root/usr/local
  triplet=$($cc -dumpmachine)
  export PKG_CONFIG_SYSROOT_DIR="$root"
  export PKG_CONFIG_LIBDIR="$root/usr/lib/$triplet/pkgconfig:$root/usr/share/pkgconfig"
  cc="$cc --sysroot=$root -Wl,-rpath-link,$root/usr/lib/$triplet"
  run="$emulator -L $root"
fi
libdir=$(find "$search" -name qbcode_hexagon_recognition.pc -exec dirname {} \; | head -n 1)
export PKG_CONFIG_PATH="$libdir"
test -f "$search/share/qbcode_hexagon_recognition/algorithm_parameters_v01.yml"
$cc -o "$work/c_program" "$src" $(pkg-config --cflags --libs qbcode_hexagon_recognition)
LD_LIBRARY_PATH="$libdir/.." $run "$work/c_program"
