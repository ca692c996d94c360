// Sections of `quorvane inspect`. cmd_inspect.cpp reads the input once, access unit by access
// unit, hands each unit to the sections that collect from it, and then asks each section to add
// its part of the report, as text on `out` or as members of the `json` object when --json is
// given (exactly one of the two is non-null). Each section lives in its own file.
#pragma once
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cli.h"
#include "streamutil/access_units.h"
#include "streamutil/avc_sps_set.h"
#include "streamutil/sei_read.h"

enum class StreamCodec { kH264, kHevc, kMpeg2, kUnknown };

namespace params {
struct StreamParams;
}
namespace media {
struct AccessUnit;
}

// Parameter sets (VPS/SPS/PPS) and the signal format derived from them.  inspect_params.cpp
void inspectParams(const params::StreamParams& sets, FILE* out, cli::JsonValue* json);

// Per-picture timecodes and caption counts found in SEI/user data, in display order, from a
// window of pictures (the library's display order).                      inspect_frames.cpp
class FrameReport {
 public:
  // Text lines wait in a temporary file, so the memory stays the same whatever the length of
  // the stream; JSON pictures are kept in memory.
  FrameReport(StreamCodec codec, bool lengthPrefixed, bool json);
  ~FrameReport();
  FrameReport(const FrameReport&) = delete;
  FrameReport& operator=(const FrameReport&) = delete;
  void add(const media::AccessUnit& au);  // in decode order
  void finish();                          // the end of the stream
  void print(FILE* out, cli::JsonValue* json) const;

 private:
  struct Facts {
    int32_t poc = 0;
    std::string timecode;  // empty: none
    int captions = -1;     // cc_count of the picture's cc_data, -1: none
  };
  void release(int32_t flush);
  void addMpeg2(const media::AccessUnit& au);
  StreamCodec codec_;
  bool lengthPrefixed_;
  uint32_t mpeg2RateCode_ = 0;       // frame_rate_code of the sequence header
  KLX_TIMECODE mpeg2Gop_{};          // time_code of the current group of pictures
  bool mpeg2HaveGop_ = false;
  std::unique_ptr<KLXUTIL_AVC_SPS_SET> avcSps_;  // the H.264 SPSs seen so far, by id
  KLXUTIL_DISPLAY_ORDER order_{};
  std::map<uint64_t, Facts> waiting_;  // pictures not yet placed, by decode index
  struct Line {
    uint64_t display, decode;
    Facts facts;
  };
  std::vector<Line> lines_;  // JSON
  FILE* spill_ = nullptr;    // text
  bool json_;
  std::string error_;
};
