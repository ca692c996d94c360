// What ffmpeg and ffprobe say about a real stream: the units and SEI messages its trace_headers
// bitstream filter reads, the packets its parser cuts, and the samples its MP4 muxer stores.
// These are the independent answers the syntax layer's results are compared with.
#pragma once
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace oracle {

// One line of `ffmpeg -bsf:v trace_headers`: a heading ("Packet: ...", "Sequence Parameter Set",
// ...) or a syntax element with its name as printed (subscripts kept) and value.
struct TraceLine {
  bool isElement = false;
  std::string text;  // the heading
  std::string name;
  int64_t value = 0;
};
// Every trace line ffmpeg prints for the stream file, extradata listing included; ffmpeg's exit
// code goes to *exitCode (a stream ffmpeg stops reading half way still lists its first units).
std::vector<TraceLine> traceHeaderLines(const std::string& path, int* exitCode = nullptr);

struct SeiMessage {
  int payloadType = 0;
  int payloadSize = 0;
  bool operator==(const SeiMessage&) const = default;
};

struct TracedUnit {
  int forbiddenZeroBit = -1;
  int nalRefIdc = -1;  // H.264 only
  int nalUnitType = -1;
  int nuhLayerId = -1;  // HEVC only
  int temporalId = -1;  // HEVC only: nuh_temporal_id_plus1 - 1
  std::vector<SeiMessage> seis;
  bool operator==(const TracedUnit&) const = default;
};
inline std::ostream& operator<<(std::ostream& os, const TracedUnit& u) {
  os << "{forbidden " << u.forbiddenZeroBit << ", ref_idc " << u.nalRefIdc << ", type " << u.nalUnitType << ", layer "
     << u.nuhLayerId << ", tid " << u.temporalId << ", sei";
  for (const auto& m : u.seis) os << " " << m.payloadType << "/" << m.payloadSize;
  return os << "}";
}

// Every unit of every packet, in stream order, as `ffmpeg -bsf:v trace_headers` reads it
// (the extradata listing in front of the first packet is skipped).
std::vector<TracedUnit> traceUnits(const std::string& path);

// Packets of a raw elementary stream as ffmpeg's parser cuts them: byte ranges of the file.
struct Range {
  uint64_t pos = 0;
  uint64_t size = 0;
};
std::vector<Range> packetRanges(const std::string& path);

// The units of a length-prefixed (four-byte big-endian) sample, split by the test itself.
std::vector<std::vector<uint8_t>> lengthPrefixedUnits(const std::vector<uint8_t>& sample);

// The real streams the syntax tests read, made once by ffmpeg with x264/x265 and cached.
struct Stream {
  const char* name;
  const char* ffmpegArgs;
  bool hevc;
};
inline void PrintTo(const Stream& s, std::ostream* os) { *os << s.name; }
#define QV_SOURCE "-f lavfi -i testsrc2=size=320x240:rate=25 "
inline const Stream kStreams[] = {
    {"syntax_x264_slices.h264", QV_SOURCE "-frames:v 6 -c:v libx264 -x264-params slices=3:aud=1 -f h264", false},
    {"syntax_x264_bframes.h264", QV_SOURCE "-frames:v 8 -c:v libx264 -bf 2 -f h264", false},
    {"syntax_x265_sei.hevc",
     QV_SOURCE "-frames:v 12 -c:v libx265 -x265-params "
               "'log-level=error:bframes=3:b-pyramid=1:temporal-layers=1:hash=1:info=1:"
               "master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1):max-cll=1000,400' "
               "-f hevc",
     true},
    {"syntax_x265_slices.hevc",
     QV_SOURCE "-frames:v 6 -c:v libx265 -x265-params log-level=error:slices=2:aud=1:repeat-headers=1 -f hevc", true},
};
#undef QV_SOURCE

// Decoded-picture checksums (`ffmpeg -f framemd5`), one line per picture, comments dropped:
// equal lists mean the pictures decode unchanged.
std::vector<std::string> pictureChecksums(const std::string& path);

// The timecodes ffprobe reports (frame side data "value"/"timecode"), frame by frame in display
// order, every clock timestamp of a frame. FFmpeg marks only some drop-frame timecodes with ';':
// with colonsOnly every ';' reads as ':'.
std::vector<std::vector<std::string>> frameTimecodes(const std::string& path, bool colonsOnly = true);
// The text ffprobe prints (colons only) for the frame count of a timecode type, as tc2String
// writes it: what a stamped picture must read back as.
std::string printedTimecode(uint32_t frames, uint32_t type);
// Every timecode of frameTimecodes, frames without one skipped.
std::vector<std::string> allTimecodes(const std::string& path, bool colonsOnly = true);

// The samples ffmpeg stores when it remuxes the stream into MP4 (-c copy), read back unconverted.
std::vector<std::vector<uint8_t>> mp4Samples(const std::string& path, const std::string& scratchDir);

}  // namespace oracle
