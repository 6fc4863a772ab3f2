#!/bin/sh
# Installs the build into a scratch prefix and builds a C program against it with pkg-config.
set -eu
build=$1
work=$2
src=$3
rm -rf "$work"
cmake --install "$build" --prefix "$work/prefix" >/dev/null
libdir=$(find "$work/prefix" -name qbcode_hexagon_recognition.pc -exec dirname {} \; | head -n 1)
export PKG_CONFIG_PATH="$libdir"
test -f "$work/prefix/share/qbcode_hexagon_recognition/algorithm_parameters_v01.yml"
cc -o "$work/c_program" "$src" $(pkg-config --cflags --libs qbcode_hexagon_recognition)
LD_LIBRARY_PATH="$libdir/.." "$work/c_program"
