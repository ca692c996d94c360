#!/usr/bin/env bash
# Makes the bundled sample streams with ffmpeg (libx264, libx265, its MPEG-2 video and AAC
# encoders). Tiny on purpose: 160x90 or 320x180, 8-24 frames, a few KB each. Run from anywhere;
# writes next to this script. Encoders are deterministic for a given ffmpeg/x264/x265 build;
# other builds make different bytes with the same syntax, so tests read the streams, they do not
# compare them with fixed bytes.
set -euo pipefail
cd "$(dirname "$0")"
ff() { ffmpeg -hide_banner -nostdin -y -v error "$@"; }
src() { echo "testsrc2=size=$1:rate=$2"; }

# H.264 High profile, 25 fps, B-frames, x264's version SEI, VUI timing.
ff -f lavfi -i "$(src 160x90 25)" -frames:v 12 -pix_fmt yuv420p \
   -c:v libx264 -preset medium -crf 30 -bf 2 -x264-params "threads=1" \
   -f h264 h264_160x90_25fps.264

# H.264 at 29.97 with access unit delimiters and HRD: buffering-period and picture-timing SEI.
ff -f lavfi -i "$(src 160x90 30000/1001)" -frames:v 10 -pix_fmt yuv420p \
   -c:v libx264 -preset fast -crf 30 -bf 0 \
   -x264-params "threads=1:aud=1:nal-hrd=vbr:vbv-bufsize=500:vbv-maxrate=400:pic-struct=1" \
   -f h264 h264_160x90_2997_aud_hrd.264

# HEVC Main (8-bit), 25 fps, no B-frames, x265's version SEI, VUI timing, repeated headers.
ff -f lavfi -i "$(src 160x90 25)" -frames:v 8 -pix_fmt yuv420p \
   -c:v libx265 -preset fast -crf 32 \
   -x265-params "log-level=error:pools=1:frame-threads=1:bframes=0:info=1:repeat-headers=1" \
   -f hevc hevc_main_160x90_25fps.hevc

# HEVC Main with B-frames at 29.97: access unit delimiters, HRD, buffering-period and
# picture-timing SEI, decoded-picture-hash SEI.
ff -f lavfi -i "$(src 160x90 30000/1001)" -frames:v 12 -pix_fmt yuv420p \
   -c:v libx265 -preset fast -crf 32 \
   -x265-params "log-level=error:pools=1:frame-threads=1:bframes=3:b-adapt=0:info=1:aud=1:hrd=1:vbv-bufsize=500:vbv-maxrate=400:hash=2:repeat-headers=1" \
   -f hevc hevc_main_160x90_2997_bframes.hevc

# HEVC Main 10 at 59.94, 320x180, B-frames, VUI timing with HRD and SEI.
ff -f lavfi -i "$(src 320x180 60000/1001)" -frames:v 8 -pix_fmt yuv420p10le \
   -c:v libx265 -preset fast -crf 34 \
   -x265-params "log-level=error:pools=1:frame-threads=1:bframes=2:info=1:hrd=1:vbv-bufsize=800:vbv-maxrate=600" \
   -f hevc hevc_main10_320x180_5994.hevc

# MPEG-2 video at 29.97 with a drop-frame GOP timecode just before a minute boundary.
ff -f lavfi -i "$(src 160x90 30000/1001)" -frames:v 8 -pix_fmt yuv420p \
   -c:v mpeg2video -q:v 20 -g 4 -bf 1 -timecode "00:00:59;28" \
   -f mpeg2video mpeg2_160x90_2997.m2v

# AAC LC in ADTS: half a second of 48 kHz stereo tones.
ff -f lavfi -i "sine=frequency=440:sample_rate=48000:duration=0.5" \
   -f lavfi -i "sine=frequency=660:sample_rate=48000:duration=0.5" \
   -filter_complex "[0][1]amerge=inputs=2" -c:a aac -b:a 48k -f adts aac_lc_48k_stereo.aac

ls -l *.264 *.hevc *.m2v *.aac
