#!/usr/bin/env bash
# The main job shown by `make run`: the quorvane command on the bundled samples.
set -euo pipefail
tool=${1:?usage: run-demo.sh path/to/quorvane}
here=$(cd "$(dirname "$0")/.." && pwd)
samples="$here/samples"
step() { echo; echo "\$ quorvane $*"; "$tool" "$@"; }
step --help
step tc --help
# Drop-frame counting: one hour at 29.97 is 107892 frames, ten minutes 17982; frame 1800 is the
# first of minute one, whose numbers 00 and 01 are skipped.
step tc --type 29.97df 107892 17982 1800
step tc --type 25 01:00:00:00
step tc --type 59.94df 00:01:00:04 215784
step tc --type 24 --no-wrap 2073624
step tc --type 29.97df --json 00:10:00\;00
# The main job: what each bundled video sample is (units, parameter sets, format, timecodes).
for sample in "$samples"/*.264 "$samples"/*.hevc "$samples"/*.m2v; do
  step inspect "$sample"
done
step nal "$samples/hevc_main_160x90_2997_bframes.hevc"
# Annex B -> 4-byte length prefixes (MP4 samples) and back; three-byte start codes are widened.
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
step reframe --to length "$samples/h264_160x90_2997_aud_hrd.264" "$scratch/h264.len"
step reframe --to annexb --json "$scratch/h264.len" "$scratch/h264.264"
# Timecode and captions stamped into the HEVC sample (B-frames: each picture gets the timecode of
# its display position), then read back frame by frame.
cat >"$scratch/hello.scc" <<'SCC'
Scenarist_SCC V1.0

00:59:59;28	9420 94ae 9452 97a1 c8e5 ecec ef80 942f
SCC
step stamp "$samples/hevc_main_160x90_2997_bframes.hevc" "$scratch/stamped.hevc" --tc '00:59:59;28' --rate 29.97df --captions "$scratch/hello.scc"
step inspect "$scratch/stamped.hevc"
step captions extract "$scratch/stamped.hevc" -o -
# H.264 timecode (pic_timing clock timestamps; the rate comes from the VUI).
step stamp "$samples/h264_160x90_2997_aud_hrd.264" "$scratch/stamped.264" --tc '01:00:00;00'
# Containers: the H.264 sample put into MP4, read back, its avcC record written.
step reframe "$samples/h264_160x90_25fps.264" "$scratch/clip.mp4"
step inspect "$scratch/clip.mp4"
step avcc "$scratch/clip.mp4" -o "$scratch/avcC.bin"
# HDR10 metadata and BT.2020/PQ colour written into the 10-bit HEVC sample, then decoded back.
step hdr "$samples/hevc_main10_320x180_5994.hevc" "$scratch/hdr.hevc" --colour bt2020,pq,bt2020nc \
  --master-display 'G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)' --max-cll 1000,400
step inspect "$scratch/hdr.hevc"
step adts "$samples/aac_lc_48k_stereo.aac"
step names --file-type 203 --codec hvc1
echo; echo "bundled samples in $samples:"; ls "$samples"
