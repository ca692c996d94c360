#!/usr/bin/env bash
# Installs a build tree into a temporary prefix, moves the prefix elsewhere (the package must be
# relocatable), then builds examples/host against the installed package twice — with
# find_package(Quorvane) (shared and static targets) and with pkg-config (shared, and static
# with --static) — and runs every program. Nothing outside the prefix is used.
#   install-and-build-example.sh BUILD_DIR EXAMPLE_DIR CXX "EXTRA_FLAGS"
# EXTRA_FLAGS are compile and link flags that the installed library needs from its host, e.g. the
# sanitizer flags of an instrumented build.
set -euo pipefail
build=${1:?build dir} example=${2:?example dir} cxx=${3:?c++ compiler} flags=${4:-}
expected="107892 01:00:00;00 MDE6MDA6MDA7MDA="

work=$(mktemp -d "${TMPDIR:-/tmp}/quorvane-pkg.XXXXXX")
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$work/staged" >/dev/null
mv "$work/staged" "$work/prefix"
prefix="$work/prefix"
check_run() {  # program
  local out
  out=$(LD_LIBRARY_PATH="$prefix/lib" "$1") || fail "$1 exited with $?"
  [ "$out" = "$expected" ] || fail "$1 printed '$out', expected '$expected'"
  echo "ok: $(basename "$1")"
}
for f in include/quorvane/quorvane.h include/quorvane/platform/tcxlat.h include/quorvane/video/vidrate.h \
         lib/pkgconfig/quorvane.pc lib/cmake/Quorvane/QuorvaneConfig.cmake \
         lib/cmake/Quorvane/QuorvaneConfigVersion.cmake lib/cmake/Quorvane/FindTinyXML.cmake; do
  [ -f "$prefix/$f" ] || fail "not installed: $f"
done
[ "$(ls "$prefix/include")" = quorvane ] || fail "include/ holds more than quorvane/: $(ls "$prefix/include")"
if grep -rn -e "$work/staged" -e "$build" -e '/usr/lib' "$prefix/lib/cmake" "$prefix/lib/pkgconfig"; then
  fail "the package carries absolute paths of the building machine"
fi

# Every installed header compiles on its own with nothing but the prefix's include directory.
headers=$(cd "$prefix/include" && find quorvane -name '*.h' | sort)
for h in $headers; do echo "#include <$h>"; done >"$work/all_headers.cpp"
"$cxx" -std=c++20 -Wall -Wextra -Werror -fsyntax-only -I"$prefix/include" "$work/all_headers.cpp" ||
  fail "installed headers do not compile from <quorvane/...>"
for h in $headers; do
  "$cxx" -std=c++20 -fsyntax-only -I"$prefix/include" -x c++ - <<<"#include <$h>" 2>/dev/null || fail "$h does not compile on its own"
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

# 2. pkg-config: --libs for the shared library; --static lists every private dependency, so the
# whole list links from static archives.
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
[ "$(pkg-config --modversion quorvane)" = "$(sed -n 's/^Version: //p' "$prefix/lib/pkgconfig/quorvane.pc")" ]
read -r -a cflags <<<"$(pkg-config --cflags quorvane)"
read -r -a libs <<<"$(pkg-config --libs quorvane)"
read -r -a static_libs <<<"$(pkg-config --static --libs quorvane)"
read -r -a extra <<<"$flags"
"$cxx" -std=c++20 -Wall -Wextra -Werror "${extra[@]}" "${cflags[@]}" "$example/main.cpp" -o "$work/pc_host" "${libs[@]}"
"$cxx" -std=c++20 -Wall -Wextra -Werror "${extra[@]}" "${cflags[@]}" "$example/main.cpp" -o "$work/pc_host_static" \
  -Wl,-Bstatic "${static_libs[@]}" -Wl,-Bdynamic
deps=$(LD_LIBRARY_PATH="$prefix/lib" ldd "$work/pc_host")
[[ $deps == *"$prefix/lib/libquorvane.so"* ]] || fail "pc_host does not load the installed shared library; ldd says: $deps"
deps=$(ldd "$work/pc_host_static")
[[ $deps != *libquorvane* && $deps != *libtinyxml* ]] || fail "pc_host_static is not statically linked; ldd says: $deps"
check_run "$work/pc_host"
check_run "$work/pc_host_static"
