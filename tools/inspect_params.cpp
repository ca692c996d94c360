// Parameter-set section of `quorvane inspect`: the counts of distinct VPS/SPS/PPS units (MPEG-2:
// sequence headers, extensions and display extensions), the summary of the first SPS (first sequence header), and
// the signal format derived from its raster and rate.
#include <cstdio>
#include <string>

#include "inspect.h"
#include "param_report.h"
#include "video/vidformat.h"
#include "video/vidrate.h"

namespace {

struct Derived {
  params::Summary summary;
  uint32_t format = VID_FMT_INVALID;
  char text[21] = {};
  bool exact = false;  // the word stands for the stream's own raster, scan and frame rate
};

// The word's size tokens are buckets (a 1000-wide raster takes the 988 token), a rate outside
// the list has no code, and below 600 lines the scan follows the height, so for some streams
// the word is only the nearest one. A segmented-frame word fits either coding.
bool wordIsExact(uint32_t format, const params::Summary& s) {
  int width = 0, height = 0;
  uint32_t rate = 0, scale = 0;
  if (vidImageSize(format, &width, &height, 0) != 0 || vidRateScale(format, &rate, &scale) != 0 || !scale || !s.scale)
    return false;
  const bool scanFits = (format & VID_FMT_SEGMENTED) || (format & (s.interlaced ? VID_FMT_INTERLACED : VID_FMT_PROGRESSIVE));
  return scanFits && width == s.width && height == s.height && uint64_t{rate} * s.scale == uint64_t{s.rate} * scale;
}

// "24", "29.97", "12.5": the stream's frame rate to two decimals.
std::string fpsText(const params::Summary& s) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", double(s.rate) / s.scale);
  std::string t = text;
  while (t.back() == '0') t.pop_back();
  if (t.back() == '.') t.pop_back();
  return t;
}

// What the text report says after "signal format: ".
std::string wordLine(const Derived& d) {
  const params::Summary& s = d.summary;
  const std::string raster = std::to_string(s.width) + "x" + std::to_string(s.height);
  if (!s.rate || !s.scale) return "none (the stream carries no frame rate)";
  if (d.format == VID_FMT_INVALID) return "none (no format word has a " + raster + " raster)";
  char word[48];
  std::snprintf(word, sizeof word, "0x%08X %s", d.format, d.text);
  std::string line = word;
  while (line.back() == ' ') line.pop_back();
  if (!d.exact)
    line += " (the nearest word: the stream is " + raster + (s.interlaced ? " interlaced" : " progressive") + " at " +
            fpsText(s) + " fps)";
  return line;
}

bool derive(const params::StreamParams& sets, Derived& out) {
  if (!params::summarizeFirst(sets, out.summary)) return false;
  const params::Summary& s = out.summary;
  if (s.rate && s.scale)
    out.format = vidGetSignalFormat(s.rate, s.scale, s.width, s.height, s.interlaced ? 0 : 1);
  vidSignalFormatToStr20s(out.format, out.text, sizeof out.text);
  out.exact = out.format != VID_FMT_INVALID && wordIsExact(out.format, s);
  return true;
}

}  // namespace

void inspectParams(const params::StreamParams& sets, FILE* out, cli::JsonValue* json) {
  const bool mpeg2 = sets.codec == StreamCodec::kMpeg2;
  if (sets.codec != StreamCodec::kHevc && sets.codec != StreamCodec::kH264 && !mpeg2) return;
  Derived derived;
  const bool ok = derive(sets, derived);
  if (json) {
    cli::JsonValue section = mpeg2 ? cli::JsonValue{{"sequenceHeaders", sets.sequenceHeaders.size()},
                                                    {"sequenceExtensions", sets.sequenceExtensions.size()},
                                                    {"sequenceDisplayExtensions", sets.sequenceDisplayExtensions.size()}}
                                   : cli::JsonValue{{"vps", sets.vps.size()}, {"sps", sets.sps.size()}, {"pps", sets.pps.size()}};
    if (ok) {
      section["summary"] = params::summaryJson(derived.summary);
      const bool word = derived.format != VID_FMT_INVALID;
      std::string text = derived.text;
      text.erase(text.find_last_not_of(' ') + 1);
      section["signalFormat"] = word ? cli::JsonValue(derived.format) : cli::JsonValue(nullptr);
      section["signalFormatText"] = word ? cli::JsonValue(text) : cli::JsonValue(nullptr);
      section["signalFormatExact"] = derived.exact;
    }
    (*json)["parameterSets"] = std::move(section);
    return;
  }
  if (mpeg2)
    std::fprintf(out, "sequence headers: %zu, %zu sequence extensions, %zu sequence display extensions\n",
                 sets.sequenceHeaders.size(), sets.sequenceExtensions.size(), sets.sequenceDisplayExtensions.size());
  else
    std::fprintf(out, "parameter sets: %zu VPS, %zu SPS, %zu PPS\n", sets.vps.size(), sets.sps.size(), sets.pps.size());
  if (!ok) {
    std::fprintf(out, mpeg2 ? "  no readable sequence header\n" : "  no readable sequence parameter set\n");
    return;
  }
  std::fprintf(out, "  %s\n  signal format: %s\n", params::summaryLine(derived.summary).c_str(), wordLine(derived).c_str());
}
