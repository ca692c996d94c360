// What `quorvane hdr` does to a stream, split so that any source of frames can drive it:
//   hdrParameterSets  - once per stream: the colour rewrite of every distinct SPS (elementary
//                       stream units, or the SPS of a container's hvcC / avcC via hdrConfigRecord);
//   hdrAccessUnit     - per access unit, in either framing: in-band SPS replaced by their
//                       rewrites, HDR SEI messages set (replacing any already there).
#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "streamutil/colour.h"
#include "streamutil/dframe.h"
#include "streamutil/hdr_sei.h"

// Orders SPS units by size, then bytes. std::less over vectors compares through a three-way memcmp
// whose length GCC 12 at -O3 cannot bound and reports as an overread (-Wstringop-overread).
struct UnitBytesOrder {
  bool operator()(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) const {
    if (a.size() != b.size()) return a.size() < b.size();
    for (size_t i = 0; i < a.size(); ++i)
      if (a[i] != b[i]) return a[i] < b[i];
    return false;
  }
};

struct HdrPlan {
  bool hevc = true;
  // HDR messages to set; present = 0 leaves the stream's messages alone. Messages not given here
  // keep the values already in the access unit.
  KLX_HDR_METADATA metadata{};
  // HDR messages (KLX_HDR_HAS_* bits) to take out of every access unit that carries them.
  uint32_t remove = 0;
  // VUI colour fields to set; set = 0 leaves every SPS alone.
  KLX_COLOUR_DESCRIPTION colour{};
  // Filled by hdrParameterSets: each original SPS unit (header first, no trailing zeros) and its
  // rewrite. hdrAccessUnit rewrites an in-band SPS missing here on the spot (uncached).
  std::map<std::vector<uint8_t>, std::vector<uint8_t>, UnitBytesOrder> spsRewrites;
};

// Room an access unit needs behind its data for hdrAccessUnit (three SEI units and SPS growth).
constexpr uint32_t kHdrSpareBytes = 1024;

// Rewrites the colour description of every SPS among `units` (NAL units, header first) into
// plan.spsRewrites. Returns false with `error` set when an SPS cannot be rewritten.
bool hdrParameterSets(HdrPlan& plan, const std::vector<std::vector<uint8_t>>& units, std::string& error);

// The same for the SPS inside a container's decoder configuration record (hvcC or avcC record
// bytes, without the box header): `out` receives the new record.
bool hdrConfigRecord(const HdrPlan& plan, const std::vector<uint8_t>& record, std::vector<uint8_t>& out,
                     std::string& error);

// Edits one access unit in place (DFRAME: pData, nDataSize, nBufferSize with kHdrSpareBytes of
// room). lengthPrefixed: 4-byte lengths instead of start codes. IRAP access units, those carrying
// an SPS and those already carrying an HDR message get the plan's messages, less those it removes. Returns 0, or -1 with
// `error` set (unreadable framing, an SPS that cannot be rewritten, no room).
int hdrAccessUnit(const HdrPlan& plan, DFRAME& frame, bool lengthPrefixed, std::string& error);
