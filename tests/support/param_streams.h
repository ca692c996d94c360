// Helpers of the parameter-set and HDR tests: splitting Annex B streams, and the syntax elements
// that ffmpeg's trace_headers bitstream filter reports for a stream (the independent parser).
#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace ptest {

using Bytes = std::vector<uint8_t>;

// A small x265 stream (3 frames) cached under the build tree.
std::string x265Stream(const std::string& name, const std::string& pixelFormat, const std::string& x265Params,
                       const std::string& size);
// A small x264 stream (3 frames) cached under the build tree.
std::string x264Stream(const std::string& name, const std::string& pixelFormat, const std::string& profileAndParams,
                       const std::string& size);

// First unit of the HEVC (nal_unit_type) or H.264 (nal_unit_type) type, or null.
const Bytes* firstHevcUnit(const std::vector<Bytes>& units, int type);
const Bytes* firstAvcUnit(const std::vector<Bytes>& units, int type);

// Number of emulation-prevention bytes (00 00 03) in a NAL unit.
size_t escapesIn(const Bytes& unit);

// NAL units of an Annex B byte stream, without start codes or trailing zero bytes.
std::vector<Bytes> splitAnnexB(const Bytes& stream);

// Name (subscripts dropped) -> values in bitstream order.
using ElementValues = std::map<std::string, std::vector<int64_t>>;

struct TracedUnit {
  std::string kind;  // "Video Parameter Set", "Sequence Parameter Set", "Picture Parameter Set", ...
  ElementValues elements;
};
// Every header unit ffmpeg's trace_headers prints for the stream file (extradata included).
std::vector<TracedUnit> traceHeaders(const std::string& path);
// The first traced unit of the given kind, or null.
const TracedUnit* firstOfKind(const std::vector<TracedUnit>& units, const std::string& kind);

// Collects the elements our lister reports (klxutilList_...), under the same naming.
struct ElementCollector {
  ElementValues elements;
  static void sink(void* user, const char* name, int64_t value, int32_t bits);
};

// Compares every element name present in both; returns the number of names compared and adds
// a test failure for each difference.
int compareElements(const ElementValues& ours, const ElementValues& theirs, const std::string& context);

}  // namespace ptest

#include "streamutil/zr_bitstream.h"

namespace ptest {

// A reader/writer over the whole of `b` (size and length both the vector's).
inline zr_bitstream over(Bytes& b) { return zr_bitstream{b.data(), static_cast<int64_t>(b.size()), b.size() * 8, 0}; }

// The first VPS, SPS and PPS of an HEVC Annex B file (empty when absent).
struct HevcUnits {
  Bytes vps, sps, pps;
  std::string path;
};
HevcUnits hevcUnits(const std::string& path);

}  // namespace ptest

#include <memory>

#include "streamutil/hevc_params.h"

namespace ptest {

// A new HEVC_VPS_DECODED, HEVC_SPS_DECODED or HEVC_PPS_DECODED read from the whole unit by
// its reader (no summary record); *result, when given, gets the reader's result, otherwise a
// unit that does not read fails the calling test.
template <class Record>
std::unique_ptr<Record> readHevcUnit(Bytes unit, uint32_t* result = nullptr);

}  // namespace ptest
