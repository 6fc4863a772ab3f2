#!/bin/sh
# Installs the build into a scratch prefix and builds a C program against it with pkg-config.
# A cross build passes its compiler, sysroot and emulator: the library is then staged into
# /usr/local of a scratch root that links to the sysroot, as a board's image is put together,
# and the program runs under the emulator. A native build also builds C and C++ hosts with
# find_package, moves the installation and checks that qbcode still finds its parameter file.
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
[ -z "$sysroot" ] || exit 0

# find_package and the imported target, from C and C++.
hosts=$(dirname "$src")/install_host
cmake -S "$hosts" -B "$work/hosts" -DCMAKE_PREFIX_PATH="$work/prefix" \
  -DSOURCES="$(dirname "$src")" >/dev/null
cmake --build "$work/hosts" >/dev/null
"$work/hosts/c_host"
found=$(cd "$work" && "$work/hosts/cpp_host")
[ "$found" = "$work/prefix/share/qbcode_hexagon_recognition/algorithm_parameters_v01.yml" ] ||
  { echo "installed library found '$found'"; exit 1; }

# Moved away from where it was built and installed, qbcode reads with the moved copy's file.
mv "$work/prefix" "$work/moved"
mkdir -p "$work/elsewhere" && cd "$work/elsewhere"
"$work/moved/bin/qbcode" render --payload-hex c0ffee5eedba5eba11 --rotation 20 -o code.png >/dev/null
"$work/moved/bin/qbcode" read code.png | grep -q "payload: c0ffee5eedba5eba11"
