// What ffmpeg and ffprobe say about a real stream: the units and SEI messages its trace_headers
// bitstream filter reads, the packets its parser cuts, and the samples its MP4 muxer stores.
// These are the independent answers the syntax layer's results are compared with.
#pragma once
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace oracle {

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

// The samples ffmpeg stores when it remuxes the stream into MP4 (-c copy), read back unconverted.
std::vector<std::vector<uint8_t>> mp4Samples(const std::string& path, const std::string& scratchDir);

}  // namespace oracle
