#!/bin/sh
# Throughput of the stream commands on large files from the page cache, beside ffprobe/ffmpeg
# doing the nearest job in the same run (best of 3, wall time and peak resident memory).
#   bench/media_bench.sh [build/release/tools/quorvane] [megabytes]
set -eu
tool=${1:-build/release/tools/quorvane}
megabytes=${2:-500}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM

# One 1080p GOP of each codec, repeated to the size asked for (each copy opens with an IDR).
ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=1920x1080:rate=25 -t 4 -c:v libx264 -preset veryfast -b:v 20M -g 50 -bf 3 -f h264 "$work/gop.h264"
ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=3840x2160:rate=25 -t 1 -c:v libx265 -preset ultrafast -b:v 60M -x265-params log-level=error:keyint=25 -f hevc "$work/gop.hevc"
for codec in h264 hevc; do
  python3 -c "
import sys
d = open('$work/gop.$codec', 'rb').read()
with open('$work/big.$codec', 'wb') as f:
    for _ in range($megabytes * 2**20 // len(d) + 1): f.write(d)"
done
ffmpeg -nostdin -v error -i "$work/big.h264" -f lavfi -i sine=sample_rate=48000 -shortest -c:v copy -c:a aac "$work/big.mp4"

best() {  # best of 3: "seconds peakKB"
  for i in 1 2 3; do /usr/bin/time -f "%e %M" "$@" >/dev/null 2>"$work/t" || true; tail -1 "$work/t"; done | sort -n | head -1
}
row() {  # label, bytes, command...
  label=$1 bytes=$2
  shift 2
  set -- $(best "$@")
  echo "| $label | $1 s | $(python3 -c "print(round($bytes / 2**20 / max($1, 0.001)))") MB/s | $(($2 / 1024)) MB |"
}

cat "$work"/big.* >/dev/null
echo "| job | time | throughput | peak memory |"
echo "|---|---|---|---|"
for codec in h264 hevc; do
  f="$work/big.$codec"
  size=$(stat -c %s "$f")
  row "quorvane params ($codec, $((size >> 20)) MB)" "$size" "$tool" params "$f"
  row "quorvane nal ($codec)" "$size" "$tool" nal "$f"
  row "quorvane inspect ($codec)" "$size" "$tool" inspect "$f"
  row "quorvane reframe --to length ($codec)" "$size" "$tool" reframe --to length "$f" -
  row "ffprobe -show_packets ($codec)" "$size" ffprobe -v error -show_packets "$f"
  row "ffmpeg -c copy -f $codec ($codec)" "$size" ffmpeg -nostdin -v error -i "$f" -c copy -f "$codec" -
done
size=$(stat -c %s "$work/big.mp4")
rm -f "$work/out.mp4"
row "quorvane reframe in.mp4 out.mp4" "$size" sh -c "rm -f '$work/out.mp4'; '$tool' reframe '$work/big.mp4' '$work/out.mp4'"
row "ffmpeg -i in.mp4 -c copy out.mp4" "$size" ffmpeg -nostdin -v error -y -i "$work/big.mp4" -c copy "$work/out.mp4"
