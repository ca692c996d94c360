// The parameter sets of an elementary stream as `quorvane params`, `quorvane hvcc` and the
// parameter-set section of `quorvane inspect` show them: decoded records, a one-line summary
// (size, rate, profile, level, chroma format, bit depth, colour description) and the element
// listings, as text or JSON.
#pragma once
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli.h"
#include "inspect.h"
#include "media/input.h"
#include "streamutil/avc_params.h"
#include "streamutil/hevc_params.h"
#include "streamutil/mpeg2_sequence.h"

namespace params {

// Collects the library's log lines while alive (the readers report damaged units through the
// log), so the commands can show them in their own output instead of as stray stderr lines.
class LogCollector {
 public:
  LogCollector();
  ~LogCollector();
  LogCollector(const LogCollector&) = delete;
  LogCollector& operator=(const LogCollector&) = delete;
  const std::vector<std::string>& lines() const { return lines_; }
  // The first line without leading/trailing line breaks, or "".
  std::string first() const { return lines_.empty() ? "" : trimmed(lines_.front()); }
  static std::string trimmed(std::string text);
  void clear() { lines_.clear(); }

 private:
  static void sink(void* user, int kind, uint32_t severity, uint32_t a, uint32_t b, const char* text);
  std::vector<std::string> lines_;
};

using Bytes = std::vector<uint8_t>;

// Distinct parameter-set units in stream order (repeats of the same bytes are dropped).
struct StreamParams {
  StreamCodec codec = StreamCodec::kUnknown;
  std::vector<Bytes> vps, sps, pps;
  // MPEG-2: distinct sequence_header(), sequence_extension() and sequence_display_extension()
  // units (start code value first).
  std::vector<Bytes> sequenceHeaders, sequenceExtensions, sequenceDisplayExtensions;
};
// Adds one unit (header byte first) when it is a parameter set not seen before.
void addUnit(StreamParams& p, const uint8_t* unit, size_t size);
// True once every kind of set a picture needs has been seen (VPS, SPS, PPS for HEVC).
bool complete(const StreamParams& p);
// The parameter sets of an input: those of the container's extradata, then those in the stream
// up to the first picture that follows a complete set (the rest is not read). False with the
// input's error when reading failed.
bool collectFrom(media::Input& input, StreamParams& out);

// What a viewer wants to know first, derived from the SPS (and VPS for HEVC timing).
struct Summary {
  const char* codec = "";
  std::string profile;
  std::string level;
  int width = 0, height = 0;      // after cropping / conformance window
  uint32_t rate = 0, scale = 0;   // frames per second = rate / scale (0 when not signalled)
  bool interlaced = false;
  int chromaFormat = 1;           // 0 monochrome, 1 4:2:0, 2 4:2:2, 3 4:4:4
  int bitDepthLuma = 8, bitDepthChroma = 8;
  bool colourDescription = false;
  int colourPrimaries = 2, transferCharacteristics = 2, matrixCoefficients = 2;  // 2 = unspecified
  bool fullRange = false;
};
Summary summarize(const HEVC_SPS_DECODED& sps, const HEVC_VPS_DECODED* vps);
Summary summarize(const SPS_DECODED& sps);
Summary summarize(const KLX_MPEG2_SEQUENCE& seq);
std::string summaryLine(const Summary& s);
// The summary of a stream's first parameter sets: the first SPS (and first VPS for HEVC timing),
// or MPEG-2's first sequence header with the first sequence extension and sequence display
// extension. False when there is none or it cannot be read.
bool summarizeFirst(const StreamParams& sets, Summary& out);
// The summary as a JSON object (camelCase keys, codec "h264"/"hevc"/"mpeg2").
cli::JsonValue summaryJson(const Summary& s);

// Decoded records of one stream's first VPS/SPS/PPS (HEVC) or SPS/PPS (H.264).
struct Decoded {
  std::unique_ptr<HEVC_VPS_DECODED> hevcVps;
  std::unique_ptr<HEVC_SPS_DECODED> hevcSps;
  std::unique_ptr<HEVC_PPS_DECODED> hevcPps;
  std::unique_ptr<SPS_DECODED> avcSps;
  std::unique_ptr<PPS_DECODED> avcPps;
};
// Reads one unit into the matching record of `out` (kind: "VPS", "SPS", "PPS"). False when the
// reader rejects it.
bool decodeUnit(StreamCodec codec, const char* kind, const Bytes& unit, Decoded& out);

// "name = value" lines (text) or an array of {"name", "value"} objects (JSON) of one record;
// the names are the syntax elements of ITU-T H.264/H.265 as the standards spell them.
void listText(FILE* out, StreamCodec codec, const char* kind, const Decoded& d, const char* indent);
cli::JsonValue listJson(StreamCodec codec, const char* kind, const Decoded& d);

// Every unit of one kind ("VPS", "SPS", "PPS"; header byte first) in the order given, as
// `params`, `avcc --read` and `hvcc --read` list them: text "SPS #0 (N bytes)" (": not readable"
// when its reader refuses it), "  report: " lines with what the reader logged, then its
// elements; JSON an array of {"bytes", "valid", "reports": [TEXT], "elements"}. `log` is
// cleared before each unit.
void listUnitsText(FILE* out, StreamCodec codec, const char* kind, const std::vector<Bytes>& units, LogCollector& log);
cli::JsonValue listUnitsJson(StreamCodec codec, const char* kind, const std::vector<Bytes>& units, LogCollector& log);

}  // namespace params
