// The command line's side of timecode: the type vocabulary, whole timecode text, rate pairs.
#include <numeric>

#include "cli.h"
#include "platform/tcxlat.h"

namespace cli {

std::optional<VIDTCTYPEINFO> tcType(std::string_view text) {
  VIDTCTYPEINFO info{};
  if (vidTCTypeFromName(std::string(text).c_str(), &info) != 0) return std::nullopt;
  return info;
}

std::string tcTypeNames() {
  std::string names;
  VIDTCTYPEINFO info{};
  for (uint32_t n = 0; vidTCTypeAt(n, &info) == 0; ++n) names += (n ? ", " : "") + std::string(info.name);
  return names;
}

std::optional<uint32_t> parseTimecode(const std::string& text, uint32_t tctype, std::string* why) {
  size_t separators = 0;
  for (char c : text) separators += c == ':' || c == ';' || c == '.';
  if (separators == 0 || separators > 3) {
    *why = "'" + text + "' is not a timecode (HH:MM:SS:FF)";
    return std::nullopt;
  }
  if (separators != 3) {
    *why = "'" + text + "' is not a whole timecode: give all four fields HH:MM:SS:FF (three fields could be "
           "HH:MM:SS or MM:SS:FF)";
    return std::nullopt;
  }
  uint32_t frames = 0;
  if (tc2Frame(text.c_str(), tctype | TCF_TEXT, &frames) != 0) {
    *why = "'" + text + "' is not a valid " + vidTCTypeName(tctype) + " timecode";
    return std::nullopt;
  }
  return frames;
}

std::string rateText(uint64_t rate, uint64_t scale) {
  const uint64_t divisor = std::gcd(rate, scale);
  if (divisor > 1) rate /= divisor, scale /= divisor;
  return std::to_string(rate) + "/" + std::to_string(scale);
}

}  // namespace cli
