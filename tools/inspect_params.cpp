// Parameter-set section of `quorvane inspect`: the counts of distinct VPS/SPS/PPS units, the
// summary of the first SPS, and the signal format derived from its raster and rate.
#include <cstdio>

#include "inspect.h"
#include "param_report.h"
#include "video/vidformat.h"

namespace {

struct Derived {
  params::Summary summary;
  uint32_t format = 0xF0000000u;  // no valid format
  char text[21] = {};
};

bool derive(const params::StreamParams& sets, Derived& out) {
  if (sets.sps.empty()) return false;
  params::Decoded d;
  if (!params::decodeUnit(sets.codec, "SPS", sets.sps.front(), d)) return false;
  if (sets.codec == StreamCodec::kHevc) {
    if (!sets.vps.empty()) params::decodeUnit(sets.codec, "VPS", sets.vps.front(), d);
    out.summary = params::summarize(*d.hevcSps, d.hevcVps.get());
  } else {
    out.summary = params::summarize(*d.avcSps);
  }
  const params::Summary& s = out.summary;
  if (s.rate && s.scale)
    out.format = vidGetSignalFormat(s.rate, s.scale, s.width, s.height, s.interlaced ? 0 : 1);
  vidSignalFormatToStr20s(out.format, out.text, sizeof out.text);
  return true;
}

}  // namespace

void inspectParams(const params::StreamParams& sets, FILE* out, cli::JsonValue* json) {
  if (sets.codec != StreamCodec::kHevc && sets.codec != StreamCodec::kH264) return;
  Derived derived;
  const bool ok = derive(sets, derived);
  if (json) {
    cli::JsonValue section{{"vps", sets.vps.size()}, {"sps", sets.sps.size()}, {"pps", sets.pps.size()}};
    if (ok) {
      section["summary"] = params::summaryJson(derived.summary);
      section["signalFormat"] = derived.format;
      section["signalFormatText"] = derived.text;
    }
    (*json)["parameterSets"] = std::move(section);
    return;
  }
  std::fprintf(out, "parameter sets: %zu VPS, %zu SPS, %zu PPS\n", sets.vps.size(), sets.sps.size(), sets.pps.size());
  if (!ok) {
    std::fprintf(out, "  no readable sequence parameter set\n");
    return;
  }
  std::fprintf(out, "  %s\n  signal format: 0x%08X %s\n", params::summaryLine(derived.summary).c_str(), derived.format,
               derived.text);
}

