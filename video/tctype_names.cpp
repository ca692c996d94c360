// The timecode-type vocabulary: canonical names first, then the other spellings of each.
#include "video/tctype_names.h"

#include <cctype>
#include <cstring>

#include "platform/tcxlat.h"

namespace {

// CTA-708 cdp_frame_rate codes (Table 3 of CTA-708: 1 = 23.976 ... 8 = 60).
enum : uint32_t { kCdpNone = 0, kCdp23976 = 1, kCdp24, kCdp25, kCdp2997, kCdp30, kCdp50, kCdp5994, kCdp60 };

// The HEVC time_code SEI carries 23.98 as 24-frame counting (the rate is in the VUI), and the
// non-drop 1001 rates as their whole-rate counts.
constexpr VIDTCTYPEINFO kTypes[] = {
    {"frames", TC_FRAMES, 0, 0, TC_FRAMES, kCdpNone},
    {"23.98", TC_2398, 24000, 1001, TC_FILM, kCdp23976},
    {"24", TC_FILM, 24, 1, TC_FILM, kCdp24},
    {"25", TC_PAL, 25, 1, TC_PAL, kCdp25},
    {"29.97", TC_NDF30, 30000, 1001, TC_NDF30, kCdp2997},
    {"29.97df", TC_DF2997, 30000, 1001, TC_DF2997, kCdp2997},
    {"30", TC_NDF30, 30, 1, TC_NDF30, kCdp30},
    {"50", TC_50, 50, 1, TC_50, kCdp50},
    {"59.94", TC_60, 60000, 1001, TC_60, kCdp5994},
    {"59.94df", TC_DF5994, 60000, 1001, TC_DF5994, kCdp5994},
    {"60", TC_60, 60, 1, TC_60, kCdp60},
};
constexpr uint32_t kTypeCount = sizeof kTypes / sizeof kTypes[0];

struct Alias {
  const char* text;
  const char* canonical;
};
constexpr Alias kAliases[] = {
    // Rate forms.
    {"24000/1001", "23.98"}, {"23.976", "23.98"}, {"24/1", "24"}, {"25/1", "25"},
    {"30000/1001", "29.97"}, {"30/1", "30"}, {"50/1", "50"}, {"60000/1001", "59.94"}, {"60/1", "60"},
    // The words of the command text forms and the older command-line spellings.
    {"film", "24"}, {"film-drop", "23.98"}, {"pal", "25"}, {"drop-frame", "29.97df"}, {"df", "29.97df"},
    {"non-drop-frame", "30"}, {"ndf", "30"}, {"29.97ndf", "29.97"}, {"59.94ndf", "59.94"},
    // Type values as numbers (those that are not also a rate name).
    {"0", "frames"}, {"1", "24"}, {"2", "30"}, {"4", "29.97df"}, {"8", "25"}, {"16", "50"},
    {"32", "59.94df"}, {"64", "60"}, {"128", "23.98"}, {"132", "23.98"},
};

// The entry reported for a type value: the whole-rate name where two entries share a count.
struct ValueName {
  uint32_t tctype;
  const char* canonical;
};
constexpr ValueName kNameOfValue[] = {
    {TC_FRAMES, "frames"}, {TC_FILM, "24"}, {TC_NDF30, "30"},  {TC_DF2997, "29.97df"}, {TC_PAL, "25"},
    {TC_50, "50"},         {TC_DF5994, "59.94df"}, {TC_60, "60"}, {TC_2398, "23.98"}, {TC_2398 | TC_DF2997, "23.98"},
};

bool sameWord(const char* a, size_t aLength, const char* b) {
  if (std::strlen(b) != aLength) return false;
  for (size_t i = 0; i < aLength; ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
  return true;
}

const VIDTCTYPEINFO* byName(const char* text, size_t length) {
  for (const auto& t : kTypes)
    if (sameWord(text, length, t.name)) return &t;
  for (const auto& a : kAliases)
    if (sameWord(text, length, a.text)) return byName(a.canonical, std::strlen(a.canonical));
  return nullptr;
}

}  // namespace

extern "C" {

int vidTCTypeFromName(const char* text, VIDTCTYPEINFO* info) {
  if (!text || !info) return -1;
  while (*text == ' ' || *text == '\t') ++text;
  size_t length = std::strlen(text);
  while (length && (text[length - 1] == ' ' || text[length - 1] == '\t')) --length;
  const VIDTCTYPEINFO* t = byName(text, length);
  if (!t) return -1;
  *info = *t;
  return 0;
}

int vidTCTypeFromValue(uint32_t tctype, VIDTCTYPEINFO* info) {
  if (!info) return -1;
  for (const auto& v : kNameOfValue)
    if (v.tctype == tctype) return vidTCTypeFromName(v.canonical, info);
  return -1;
}

const char* vidTCTypeName(uint32_t tctype) {
  VIDTCTYPEINFO info;
  return vidTCTypeFromValue(tctype, &info) == 0 ? info.name : "unknown";
}

int vidTCTypeAt(uint32_t n, VIDTCTYPEINFO* info) {
  if (!info || n >= kTypeCount) return -1;
  *info = kTypes[n];
  return 0;
}

}  // extern "C"
