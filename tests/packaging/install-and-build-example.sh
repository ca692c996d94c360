#!/usr/bin/env bash
# Installs a build tree into a temporary prefix, then builds examples/host against the installed
# package twice — with find_package(Quorvane) (shared and static targets) and with pkg-config
# (shared and static) — and runs every program. Nothing outside the prefix is used.
#   install-and-build-example.sh BUILD_DIR EXAMPLE_DIR CXX "EXTRA_FLAGS"
# EXTRA_FLAGS are compile and link flags that the installed library needs from its host, e.g. the
# sanitizer flags of an instrumented build.
set -euo pipefail
build=${1:?build dir} example=${2:?example dir} cxx=${3:?c++ compiler} flags=${4:-}
expected="107892 01:00:00;00 MDE6MDA6MDA7MDA="

work=$(mktemp -d "${TMPDIR:-/tmp}/quorvane-pkg.XXXXXX")
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"
fail() { echo "FAIL: $*" >&2; exit 1; }
check_run() {  # program
  local out
  out=$(LD_LIBRARY_PATH="$prefix/lib" "$1") || fail "$1 exited with $?"
  [ "$out" = "$expected" ] || fail "$1 printed '$out', expected '$expected'"
  echo "ok: $(basename "$1")"
}

cmake --install "$build" --prefix "$prefix" >/dev/null
for f in include/quorvane/quorvane.h include/quorvane/platform/tcxlat.h lib/pkgconfig/quorvane.pc \
         lib/cmake/Quorvane/QuorvaneConfig.cmake lib/cmake/Quorvane/QuorvaneConfigVersion.cmake; do
  [ -f "$prefix/$f" ] || fail "not installed: $f"
done

# 1. CMake package.
cmake -S "$example" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" \
  -DCMAKE_CXX_FLAGS="$flags -Wall -Wextra -Werror" -DCMAKE_EXE_LINKER_FLAGS="$flags" >/dev/null
cmake --build "$work/cmake" >/dev/null
# (ldd output is captured first: grep -q closing the pipe early would fail it under pipefail.)
deps=$(ldd "$work/cmake/quorvane_host")
[[ $deps == *"$prefix/lib/libquorvane.so"* ]] || fail "quorvane_host does not load the installed shared library; ldd says: $deps"
deps=$(ldd "$work/cmake/quorvane_host_static")
[[ $deps != *libquorvane* ]] || fail "quorvane_host_static loads libquorvane.so"
check_run "$work/cmake/quorvane_host"
check_run "$work/cmake/quorvane_host_static"

# 2. pkg-config.
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
[ "$(pkg-config --modversion quorvane)" = "$(sed -n 's/^Version: //p' "$prefix/lib/pkgconfig/quorvane.pc")" ]
read -r -a cflags <<<"$(pkg-config --cflags quorvane)"
read -r -a libs <<<"$(pkg-config --libs quorvane)"
read -r -a static_libs <<<"$(pkg-config --static --libs quorvane | sed 's/-lquorvane\b/-l:libquorvane.a/')"
read -r -a extra <<<"$flags"
"$cxx" -std=c++20 -Wall -Wextra -Werror "${extra[@]}" "${cflags[@]}" "$example/main.cpp" -o "$work/pc_host" "${libs[@]}"
"$cxx" -std=c++20 -Wall -Wextra -Werror "${extra[@]}" "${cflags[@]}" "$example/main.cpp" -o "$work/pc_host_static" "${static_libs[@]}"
check_run "$work/pc_host"
check_run "$work/pc_host_static"
