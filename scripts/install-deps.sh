#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the samples need, only when missing.
# With --bench, also the peers the benchmarks measure against (never needed to build or test).
# With --fuzz, only clang and the libFuzzer runtime that matches it (make fuzz).
set -euo pipefail
packages=(
  cmake ninja-build g++ make pkg-config
  libtinyxml-dev libjsmn-dev
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev
  ffmpeg x264 x265 libavcodec-dev libavformat-dev libavutil-dev
  gstreamer1.0-tools gstreamer1.0-plugins-good gstreamer1.0-plugins-bad  # test oracle: Matroska HDR metadata
)
bench_packages=(libgstreamer-plugins-bad1.0-dev)  # GStreamer's H.264/H.265 parsers
[ "${1:-}" = "--bench" ] && packages+=("${bench_packages[@]}")

sudo_cmd=()
[ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
updated=no

install_missing() {
  local missing=() p
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "installing: ${missing[*]}"
  if [ "$updated" = no ]; then
    "${sudo_cmd[@]}" apt-get update -qq
    updated=yes
  fi
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

if [ "${1:-}" = "--fuzz" ]; then
  install_missing clang
  # libFuzzer ships in the compiler-rt package of the same major version as clang
  # (libclang-rt-<N>-dev on Debian 12); older releases kept it in libclang-common-<N>-dev.
  major=$(clang --version | sed -n 's/.*clang version \([0-9]*\).*/\1/p' | head -1)
  runtime=$(clang -print-file-name="libclang_rt.fuzzer-$(uname -m).a")
  if [ ! -f "$runtime" ]; then
    [ "$updated" = no ] && { "${sudo_cmd[@]}" apt-get update -qq; updated=yes; }
    if apt-cache show "libclang-rt-$major-dev" >/dev/null 2>&1; then
      install_missing "libclang-rt-$major-dev"
    else
      install_missing "libclang-common-$major-dev"
    fi
  fi
  exit 0
fi
install_missing "${packages[@]}"
