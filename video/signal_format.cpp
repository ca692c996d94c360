// Deriving a signal-format word from a measured raster and rate.
//
// Broadcast rates are matched first, band by band, against the rasters that have a fixed word
// (the order of the rules inside a band matters: the first rule that fits wins). Everything
// else goes through the generic rule, which builds the word from the size tokens.
#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <span>

#include "video/vidformat.h"

namespace {

// A test on one dimension: any value, an inclusive range, or one of a few values.
struct Dim {
  int lo = INT_MIN;
  int hi = INT_MAX;
  std::array<int16_t, 5> values{};
  int count = 0;

  constexpr bool matches(int v) const {
    if (count == 0) return v >= lo && v <= hi;
    for (int i = 0; i < count; ++i)
      if (values[i] == v) return true;
    return false;
  }
};
constexpr Dim any() { return {}; }
constexpr Dim range(int lo, int hi) { return {lo, hi, {}, 0}; }
constexpr Dim atLeast(int lo) { return {lo, INT_MAX, {}, 0}; }
constexpr Dim oneOf(std::initializer_list<int> values) {
  Dim d;
  for (int v : values) d.values[d.count++] = static_cast<int16_t>(v);
  return d;
}

struct Rule {
  Dim height;
  Dim width;
  uint32_t word;         // the word when psf is clear
  uint32_t wordPsf = 0;  // the word when psf is set (0: same as word)
};

constexpr Dim kHdWidths = oneOf({1280, 1440, 1920});
constexpr Dim k720Heights = range(720, 740);
constexpr Dim kHd1080Heights = range(1034, 1125);

// UHD and 8K: 4320 lines first, then 2160.
constexpr std::array<Rule, 4> uhdRules(uint32_t code) {
  return {{
      {atLeast(4320), oneOf({7680}), VID_FMT_8K_7680P | code},
      {atLeast(4320), any(), VID_FMT_8K_8192P | code},
      {atLeast(2160), oneOf({3840}), VID_FMT_UHD_P | code},
      {atLeast(2160), any(), VID_FMT_4K_2160P | code},
  }};
}

template <size_t A, size_t B>
constexpr std::array<Rule, A + B> join(const std::array<Rule, A>& a, const std::array<Rule, B>& b) {
  std::array<Rule, A + B> out{};
  for (size_t i = 0; i < A; ++i) out[i] = a[i];
  for (size_t i = 0; i < B; ++i) out[A + i] = b[i];
  return out;
}

// 14.98 and 15: only the 2048-wide film scans.
constexpr std::array<Rule, 2> filmScanRules(uint32_t code) {
  return {{
      {oneOf({1536}), oneOf({2048}), VID_FMT_2K_1536P | code},
      {atLeast(1556), oneOf({2048}), VID_FMT_2K_1556P | code},
  }};
}

constexpr auto kRules25 = join(
    std::array<Rule, 6>{{
        {range(INT_MIN, 625), oneOf({720, 360}), VID_FMT_PAL_601 | VID_RATE_25},
        {range(INT_MIN, 625), oneOf({640}), VID_FMT_PAL | VID_RATE_25},
        {k720Heights, any(), VID_FMT_720P | VID_RATE_25},
        {oneOf({1035, 1036}), kHdWidths, VID_FMT_1080I | VID_RATE_25},
        {oneOf({1080, 1088, 1092, 1112, 1114}), kHdWidths, VID_FMT_1080I | VID_RATE_25,
         VID_FMT_1080P | VID_RATE_25},
        {any(), oneOf({2048}), VID_FMT_2K_1080P | VID_RATE_25},
    }},
    uhdRules(VID_RATE_25));

// 50, 59.94 and 60 (and anything faster, which counts as 60).
constexpr auto fastRules(uint32_t code) {
  return join(std::array<Rule, 2>{{
                  {k720Heights, any(), VID_FMT_720P | code},
                  {kHd1080Heights, any(), VID_FMT_1080I | code, VID_FMT_1080P | code},
              }},
              uhdRules(code));
}
constexpr auto kRules60 = fastRules(VID_RATE_60);
constexpr auto kRules5994 = join(
    std::array<Rule, 1>{{{oneOf({1080}), oneOf({2048}), VID_FMT_2K_1080P | VID_RATE_59_94}}},
    fastRules(VID_RATE_59_94));
constexpr auto kRules50 = fastRules(VID_RATE_50);

constexpr std::array<Rule, 1> kRules48{{{kHd1080Heights, any(), VID_FMT_1080P | VID_RATE_48}}};
constexpr std::array<Rule, 1> kRules4795{{{kHd1080Heights, any(), VID_FMT_1080P | VID_RATE_47_95}}};

// 29.97 and 30.
constexpr auto videoRules(uint32_t code) {
  return join(std::array<Rule, 6>{{
                  {oneOf({1035, 1036}), oneOf({1920}), VID_FMT_1035I | code},
                  {range(1037, 1124), kHdWidths, VID_FMT_1080I | code, VID_FMT_1080P | code},
                  {any(), oneOf({2048}), VID_FMT_2K_1080P | code},
                  {any(), oneOf({640, 320}), VID_FMT_NTSC | code},
                  {range(INT_MIN, 512), oneOf({720, 704}), VID_FMT_NTSC_601 | code},
                  {k720Heights, any(), VID_FMT_720P | code},
              }},
              uhdRules(code));
}
constexpr auto kRules2997 = videoRules(VID_RATE_29_97);
constexpr auto kRules30 = videoRules(VID_RATE_30);

// 23.98 and 24. Here a clear psf flag gives the segmented-frame word, a set one progressive.
constexpr Dim kFilm1080Heights = oneOf({1080, 1088, 1090, 1092});
constexpr auto filmRules(uint32_t code, uint32_t tall1536, uint32_t tall1536Psf, uint32_t tall1556,
                         uint32_t tall1556Psf) {
  return join(std::array<Rule, 5>{{
                  {k720Heights, any(), VID_FMT_720P | code},
                  {kFilm1080Heights, oneOf({2048}), VID_FMT_2K_1080PSF | code, VID_FMT_2K_1080P | code},
                  {kFilm1080Heights, kHdWidths, VID_FMT_1080PSF | code, VID_FMT_1080P | code},
                  {oneOf({1536}), oneOf({2048}), tall1536 | code, tall1536Psf | code},
                  {oneOf({1556, 1588}), oneOf({2048}), tall1556 | code, tall1556Psf | code},
              }},
              uhdRules(code));
}
constexpr auto kRules2398 = filmRules(VID_RATE_23_98, VID_FMT_2K_1536P, VID_FMT_2K_1536P,
                                      VID_FMT_2K_1556P, VID_FMT_2K_1556P);
constexpr auto kRules24 = filmRules(VID_RATE_24, VID_FMT_2K_1536PSF, VID_FMT_2K_1536P,
                                    VID_FMT_2K_1556PSF, VID_FMT_2K_1556P);

constexpr auto kRules1498 = filmScanRules(VID_RATE_14_98);
constexpr auto kRules15 = filmScanRules(VID_RATE_15);

// A band of rates: lo <= r < hi, or lo < r < hi when loExclusive.
struct Band {
  double lo;
  bool loExclusive;
  double hi;
  std::span<const Rule> rules;

  bool contains(double r) const { return (loExclusive ? r > lo : r >= lo) && r < hi; }
};

const Band kBands[] = {
    {14, false, 15, kRules1498},
    {15, false, 16, kRules15},
    {23, false, 24, kRules2398},
    {24, false, 24.9, kRules24},
    {24.9, true, 25.1, kRules25},
    {29, true, 30, kRules2997},
    {30, false, 30.9, kRules30},
    {47, false, 48, kRules4795},
    {48, false, 50, kRules48},
    {50, false, 59, kRules50},
    {59, false, 60, kRules5994},
    {60, false, std::numeric_limits<double>::infinity(), kRules60},
};

// Rate codes an SD interlaced word may carry; any other becomes "unknown".
constexpr uint32_t kSdRateCodes[] = {5, 6, 7, 10, 14, 15, 23, 24, 25, 29, 30, 47, 48, 50, 59, 60, 71, 72, 100, 119};
constexpr int kProgressiveWidths[] = {800, 1024, 1400, 1600, 2048};

template <typename T, size_t N>
bool contains(const T (&list)[N], T value) {
  return std::find(std::begin(list), std::end(list), value) != std::end(list);
}

// Integer part of a whole rate; otherwise of r - 0.8 (29.97 -> 29, 23.976 -> 23). Rates that
// do not fit the 9-bit field are unknown.
uint32_t rateCodeOf(double r) {
  double code = (r == std::floor(r)) ? r : r - 0.8;
  if (code < 0) code = 0;
  if (code >= VID_RATE_UNKNOWN) return VID_RATE_UNKNOWN;
  return static_cast<uint32_t>(code);
}

uint32_t scanOf(int width, int height, uint32_t& code) {
  if (height == 720 || height == 1035 || height == 1036) return VID_FMT_PROGRESSIVE;
  if (contains(kProgressiveWidths, width)) return VID_FMT_PROGRESSIVE;
  if ((code >= 23 && code <= 24) || (code >= 47 && code <= 48) || (code >= 61 && code <= 99))
    return VID_FMT_PROGRESSIVE;
  if (height <= 512 || height == 576 || height == 608) {
    if (!contains(kSdRateCodes, code)) code = VID_RATE_UNKNOWN;
    return VID_FMT_INTERLACED;
  }
  return height < 600 ? VID_FMT_INTERLACED : VID_FMT_PROGRESSIVE;
}

uint32_t genericFormat(double r, int width, int height) {
  if (height == 1080 && (width == 1280 || width == 1440)) width = 1920;  // anamorphic HD
  if (height == 720 && width == 960) width = 1280;
  int widthToken = vidGetTokenFromSize(width);
  int heightToken = vidGetTokenFromSize(height);
  if (widthToken < 0 || heightToken < 0) return VID_FMT_INVALID;
  uint32_t code = rateCodeOf(r);
  uint32_t scan = scanOf(width, height, code);
  return scan | (static_cast<uint32_t>(heightToken) << VID_FMT_HEIGHT_SHIFT) |
         (static_cast<uint32_t>(widthToken) << VID_FMT_WIDTH_SHIFT) | code;
}

}  // namespace

extern "C" uint32_t vidGetSignalFormat(uint32_t rate, uint32_t scale, int width, int height, int psf) {
  if (scale == 0) return VID_FMT_INVALID;
  double r = static_cast<double>(rate) / scale;
  for (const auto& band : kBands) {
    if (!band.contains(r)) continue;
    for (const auto& rule : band.rules)
      if (rule.height.matches(height) && rule.width.matches(width))
        return (psf && rule.wordPsf) ? rule.wordPsf : rule.word;
    break;
  }
  return genericFormat(r, width, height);
}
