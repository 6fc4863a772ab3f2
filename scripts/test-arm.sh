#!/usr/bin/env bash
# Cross-builds the library, qbcode and the tests for each ARM architecture named on the command
# line (aarch64, armhf) against Debian bookworm's own packages, and runs the whole ctest suite
# under qemu-user. Sysroots are cached in the build folders (build-ARCH/sysroot).
#
# Packages that cannot be downloaded (a mirror mid-update, no network) skip that architecture
# with a line saying so; a build error or a failing test always fails.
# JOBS sets the parallel jobs; QBCODE_BUILD_LOCK, when set, is a lock file that serialises the
# compile step with other builds on a shared machine.
set -uo pipefail
cd "$(dirname "$0")/.."
JOBS=${JOBS:-$(nproc 2>/dev/null || echo 2)}
SUDO=$([ "$(id -u)" -eq 0 ] || echo sudo)
# Security updates are left out: the build and the tests need none of them, and that index is the
# one most often caught mid-update (a size mismatch on armhf).
SUITES=(bookworm bookworm-updates)
SYSROOT_PACKAGES=libc6-dev,libstdc++-12-dev,libopencv-dev,libgtest-dev
status=0
skipped=()

# Runs a command up to three times, a minute apart at most: downloads fail for reasons of their own.
retry() {
  local n
  for n in 1 2 3; do
    "$@" && return 0
    [ "$n" -lt 3 ] && sleep $((n * 20))
  done
  return 1
}

skip() {
  echo "ARM: $1 suite SKIPPED: $2" >&2
  skipped+=("$1")
}

host_tools() {
  local missing="" p
  for p in crossbuild-essential-arm64 crossbuild-essential-armhf qemu-user-static mmdebstrap; do
    dpkg -s "$p" >/dev/null 2>&1 || missing="$missing $p"
  done
  [ -z "$missing" ] && return 0
  echo "installing:$missing"
  retry $SUDO apt-get -o DPkg::Lock::Timeout=900 update -qq &&
    retry env DEBIAN_FRONTEND=noninteractive $SUDO apt-get -o DPkg::Lock::Timeout=900 \
      install -y -qq $missing
}

# A Debian root with the headers and libraries to build and run against, made once.
sysroot() {
  local debarch=$1 triplet=$2 dir=$3
  local key="$debarch ${SUITES[*]} $SYSROOT_PACKAGES"
  [ -f "$dir/.qbcode-sysroot" ] && [ "$(cat "$dir/.qbcode-sysroot")" = "$key" ] && return 0
  rm -rf "$dir" "$dir.new"
  mkdir -p "$(dirname "$dir")"
  local sources=() s uri
  # The machine's own apt sources, so that a local mirror or proxy serves the sysroot too.
  for s in "${SUITES[@]}"; do
    uri=$(apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT)' 2>/dev/null |
      awk -v s="$s" '$2 == s && $3 == "main" { print $1; exit }')
    [ -n "$uri" ] || { echo "no apt source for Debian $s main on this machine" >&2; return 1; }
    sources+=("deb ${uri%/} $s main")
  done
  attempt() {
    rm -rf "$dir.new"
    $SUDO mmdebstrap --quiet --variant=extract --architectures="$debarch" \
      --include="$SYSROOT_PACKAGES" bookworm "$dir.new" "${sources[@]}"
  }
  retry attempt || return 1
  # The extract variant runs no maintainer scripts, so the alternatives' links are missing.
  ln -sf blas/libblas.so.3 "$dir.new/usr/lib/$triplet/libblas.so.3"
  ln -sf lapack/liblapack.so.3 "$dir.new/usr/lib/$triplet/liblapack.so.3"
  echo "$key" >"$dir.new/.qbcode-sysroot"
  mv "$dir.new" "$dir"
}

run_arch() {
  local arch=$1 debarch triplet
  case $arch in
    aarch64) debarch=arm64 triplet=aarch64-linux-gnu ;;
    armhf) debarch=armhf triplet=arm-linux-gnueabihf ;;
    *) echo "unknown architecture $arch" >&2; status=1; return ;;
  esac
  local build=build-$arch t0 t1 t2 t3
  t0=$(date +%s)
  if ! sysroot "$debarch" "$triplet" "$PWD/$build/sysroot"; then
    skip "$arch" "the $debarch sysroot packages could not be downloaded"
    return
  fi
  t1=$(date +%s)
  local lock=()
  [ -n "${QBCODE_BUILD_LOCK:-}" ] && lock=(flock "$QBCODE_BUILD_LOCK")
  if ! cmake -S . -B "$build" -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchain-$arch.cmake" \
         -DCMAKE_SYSROOT="$PWD/$build/sysroot" -DCMAKE_BUILD_TYPE=Release \
         -DQBCODE_BUILD_BENCH=OFF >/dev/null ||
     ! "${lock[@]}" cmake --build "$build" -j "$JOBS"; then
    echo "ARM: $arch build FAILED" >&2
    status=1
    return
  fi
  t2=$(date +%s)
  (cd "$build" && ctest --output-on-failure -j "$JOBS" --timeout 1800) || status=1
  t3=$(date +%s)
  echo "ARM: $arch sysroot $((t1 - t0)) s, build $((t2 - t1)) s, tests $((t3 - t2)) s"
}

if ! host_tools; then
  for arch in "$@"; do skip "$arch" "the cross compilers, qemu-user or mmdebstrap could not be installed"; done
  exit 0
fi
for arch in "$@"; do run_arch "$arch"; done
[ ${#skipped[@]} -gt 0 ] && echo "ARM: skipped: ${skipped[*]} (package downloads failed; see above)"
exit $status
