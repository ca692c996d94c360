#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the samples need, only when missing.
# With --bench, also the peers the benchmarks measure against (never needed to build or test).
set -euo pipefail
packages=(
  cmake ninja-build g++ make pkg-config
  libtinyxml-dev libjsmn-dev
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev
  ffmpeg x264 x265 libavcodec-dev libavformat-dev libavutil-dev
)
bench_packages=(libgstreamer-plugins-bad1.0-dev)  # GStreamer's H.264/H.265 parsers
[ "${1:-}" = "--bench" ] && packages+=("${bench_packages[@]}")
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "installing: ${missing[*]}"
sudo_cmd=()
[ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
