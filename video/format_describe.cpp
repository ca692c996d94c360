// What a signal-format word stands for: its frame size, its display text, the video
// sub-record it fills and its picture aspect ratio.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <span>

#include "video/vidformat.h"
#include "video/vidrate.h"

namespace {

// A set of rate codes 0..255.
struct RateCodes {
  uint64_t bits[4] = {};
  constexpr RateCodes(std::initializer_list<int> codes) {
    for (int c : codes) bits[c >> 6] |= uint64_t{1} << (c & 63);
  }
  static constexpr RateCodes span(int lo, int hi) {
    RateCodes set{};
    for (int c = lo; c <= hi; ++c) set.bits[c >> 6] |= uint64_t{1} << (c & 63);
    return set;
  }
  constexpr bool has(uint32_t code) const { return code < 256 && ((bits[code >> 6] >> (code & 63)) & 1); }
};

constexpr uint32_t rateCode(uint32_t format) { return format & VID_FMT_RATE_MASK; }
constexpr uint32_t familyOf(uint32_t format) { return format & ~VID_FMT_RATE_MASK; }
constexpr int widthToken(uint32_t format) { return (format >> VID_FMT_WIDTH_SHIFT) & VID_FMT_WIDTH_MASK; }
constexpr int heightToken(uint32_t format) { return (format >> VID_FMT_HEIGHT_SHIFT) & VID_FMT_HEIGHT_MASK; }

// ---- Rasters with a known size --------------------------------------------------------------
// Most agree with their tokens; 2560x1080 (width token 2650) and the 8K rasters (height token
// 4096) are known only from here.
struct KnownRaster {
  uint32_t family;
  RateCodes rates;
  int width;
  int height;
};

constexpr RateCodes kBroadcastRates{23, 24, 25, 29, 30, 50, 59, 60};

constexpr KnownRaster kKnownRasters[] = {
    {VID_FMT_NTSC, {29}, 640, 480},
    {VID_FMT_NTSC_601, {23, 29}, 720, 486},
    {VID_FMT_PAL, {25}, 640, 576},
    {VID_FMT_PAL_601, {25}, 720, 576},
    {VID_FMT_1080I, kBroadcastRates, 1920, 1080},
    {VID_FMT_1035I, {29, 30}, 1920, 1035},
    {VID_FMT_720P, kBroadcastRates, 1280, 720},
    {VID_FMT_1080P, {23, 24, 25, 29, 30, 47, 48, 50, 59, 60}, 1920, 1080},
    {VID_FMT_1080PSF, {23, 24, 25, 29, 30}, 1920, 1080},
    {VID_FMT_2K_1080P, {23, 24, 25, 29, 30, 59}, 2048, 1080},
    {VID_FMT_2K_1080PSF, {23, 24, 25}, 2048, 1080},
    {VID_FMT_2560_1080P, {60, 200}, 2560, 1080},
    {VID_FMT_1400_1050P, {24, 25}, 1400, 1050},
    {VID_FMT_2K_1536P, {14, 15, 23, 24}, 2048, 1536},
    {VID_FMT_2K_1536PSF, {24}, 2048, 1536},
    {VID_FMT_2K_1556P, {14, 15, 23, 24}, 2048, 1556},
    {VID_FMT_2K_1556PSF, {24}, 2048, 1556},
    {VID_FMT_4K_1714P, {23, 24}, 4096, 1714},
    {VID_FMT_UHD_P, kBroadcastRates, 3840, 2160},
    {VID_FMT_UHD_PSF, {23, 24, 25}, 3840, 2160},
    {VID_FMT_4K_2160P, {23, 24, 25, 29, 30, 48, 50, 59, 60}, 4096, 2160},
    {VID_FMT_4K_2160PSF, {23, 24, 25, 29, 30}, 4096, 2160},
    {VID_FMT_8K_7680P, RateCodes::span(23, 60), 7680, 4320},
    {VID_FMT_8K_8192P, RateCodes::span(22, 60), 8192, 4320},
    {VID_FMT_4K_3112P, {23, 24}, 4096, 3112},
    {VID_FMT_4K_3112PSF, {5}, 4096, 3112},
};

const KnownRaster* knownRaster(uint32_t format) {
  for (const auto& raster : kKnownRasters)
    if (raster.family == familyOf(format) && raster.rates.has(rateCode(format))) return &raster;
  return nullptr;
}

// ---- Display texts ---------------------------------------------------------------------------
struct FixedText {
  uint32_t format;
  const char* text;
};
constexpr FixedText kFixedTexts[] = {
    {VID_FMT_NTSC | VID_RATE_29_97, "NTSC"},
    {VID_FMT_NTSC_601 | VID_RATE_29_97, "NTSC-CCIR601"},
    {VID_FMT_NTSC_601 | VID_RATE_23_98, "NTSC-23.98"},
    {VID_FMT_PAL | VID_RATE_25, "PAL"},
    {VID_FMT_PAL_601 | VID_RATE_25, "PAL-CCIR601"},
    {VID_FMT_1035I | VID_RATE_29_97, "1920x1035i@29.97"},
    {VID_FMT_1035I | VID_RATE_30, "1920x1035i@30"},
    {VID_FMT_2560_1080P | 200, "2560x1080P 200fps"},
    {VID_FMT_2560_1080P | VID_RATE_60, "2560x1080P 60fps"},
    {VID_FMT_2K_1536P | VID_RATE_14_98, "2048x1536@14.98"},
    {VID_FMT_2K_1536P | VID_RATE_23_98, "2048x1536@23.98"},
    {VID_FMT_2K_1556P | VID_RATE_14_98, "2048x1556@14.98"},
    {VID_FMT_2K_1556P | VID_RATE_23_98, "2048x1556@23.98"},
    {VID_FMT_4K_1714P | VID_RATE_23_98, "4096x1714@23.98"},
    {VID_FMT_4K_3112P | VID_RATE_23_98, "4096x3112@23.98"},
    {VID_FMT_2K_1536PSF | VID_RATE_24, "2048x1536psf@24"},
    {VID_FMT_2K_1556PSF | VID_RATE_24, "2048x1556psf@24"},
    {VID_FMT_4K_3112PSF | 5, "4096x3112@5"},
};

// Rate texts of the generic "WxH<scan>@rate" form, by rate code.
struct RateText {
  uint32_t code;
  const char* text;
};
constexpr RateText kRateTexts[] = {
    {14, "14.98"}, {15, "15"}, {23, "23.98"}, {24, "24"}, {25, "25"},   {29, "29.97"},
    {30, "30"},    {47, "47.95"}, {48, "48"}, {50, "50"}, {59, "59.94"}, {60, "60"},
    {71, "71.93"}, {72, "72"}, {100, "100"}, {119, "119.88"},
};
// Rate texts of the "... 24fps" form of the large rasters.
constexpr RateText kFpsRateTexts[] = {
    {23, "23.98"}, {24, "24"}, {25, "25"}, {29, "29.97"}, {30, "30"},
    {48, "48"},    {50, "50"}, {59, "59.94"}, {60, "60"},
};

const char* rateText(std::span<const RateText> table, uint32_t code) {
  for (const auto& entry : table)
    if (entry.code == code) return entry.text;
  return nullptr;
}

// Families with a text of their own: "<prefix>@<rate>" or "<prefix> <rate>fps". A segmented
// prefix that would push the text past 20 characters drops its "p" ("3840x2160sf 23.98fps").
enum class TextForm { kAtRate, kFps };
struct FamilyText {
  uint32_t family;
  RateCodes rates;
  const char* prefix;
  TextForm form;
};
constexpr FamilyText kFamilyTexts[] = {
    {VID_FMT_1080PSF, {23, 24, 25, 29, 30}, "1920x1080psf", TextForm::kAtRate},
    {VID_FMT_2K_1080PSF, {23, 24, 25}, "2048x1080psf", TextForm::kAtRate},
    {VID_FMT_UHD_P, kBroadcastRates, "3840x2160P", TextForm::kFps},
    {VID_FMT_4K_2160P, {23, 24, 25, 29, 30, 48, 50, 59, 60}, "4096x2160P", TextForm::kFps},
    {VID_FMT_UHD_PSF, {23, 24, 25}, "3840x2160psf", TextForm::kFps},
    {VID_FMT_4K_2160PSF, {23, 24, 25, 29, 30}, "4096x2160psf", TextForm::kFps},
    {VID_FMT_8K_7680P, RateCodes::span(23, 60), "7680x4320", TextForm::kFps},
    {VID_FMT_8K_8192P, RateCodes::span(22, 60), "8192x4320", TextForm::kFps},
};

constexpr size_t kTextChars = 20;

// Writes the family text of format into out (room for 48 bytes); false when it has none.
bool familyText(uint32_t format, char* out, size_t outSize) {
  for (const auto& entry : kFamilyTexts) {
    if (entry.family != familyOf(format) || !entry.rates.has(rateCode(format))) continue;
    const bool fps = entry.form == TextForm::kFps;
    const char* rate = fps ? rateText(kFpsRateTexts, rateCode(format)) : rateText(kRateTexts, rateCode(format));
    if (!rate) return false;
    const char* form = fps ? "%.*s%s %sfps" : "%.*s%s@%s";
    const char* psf = std::strstr(entry.prefix, "psf");
    int length = std::snprintf(out, outSize, form, 0, "", entry.prefix, rate);
    if (length > static_cast<int>(kTextChars) && psf)
      std::snprintf(out, outSize, form, static_cast<int>(psf - entry.prefix), entry.prefix, psf + 1, rate);
    return true;
  }
  return false;
}

char scanLetter(uint32_t format) {
  if (format & VID_FMT_PROGRESSIVE) return 'P';
  if (format & VID_FMT_INTERLACED) return 'i';
  if (format & VID_FMT_SEGMENTED) return 's';
  return ' ';
}

void writeText(uint32_t format, char* text) {
  std::memset(text, ' ', kTextChars);
  text[kTextChars] = '\0';
  for (const auto& entry : kFixedTexts)
    if (entry.format == format) {
      std::memcpy(text, entry.text, std::strlen(entry.text) + 1);
      return;
    }
  char own[48];
  if (!familyText(format, own, sizeof own)) {
    const char* rate = rateText(kRateTexts, rateCode(format));
    std::snprintf(own, sizeof own, "%dx%d%c@%s", vidGetSizeFromToken(widthToken(format)),
                  vidGetSizeFromToken(heightToken(format)), scanLetter(format), rate ? rate : "Custom");
  }
  // Every text fits in 20 characters (the longest generic one is "8192x4096P@119.88").
  std::memcpy(text, own, std::min(std::strlen(own), kTextChars) + 1);
  text[kTextChars] = '\0';
}

// ---- The video sub-record ---------------------------------------------------------------------
enum class Scan { kProgressive, kInterlaced };
struct VideoFamily {
  uint32_t family;
  RateCodes rates;
  int yOffset;
  Scan scan;
};
constexpr VideoFamily kVideoFamilies[] = {
    {VID_FMT_720P, kBroadcastRates, 41, Scan::kProgressive},
    {VID_FMT_1080P, {23, 24, 25, 29, 30}, 41, Scan::kProgressive},
    {VID_FMT_1080I, {23, 24, 25, 29, 30}, 40, Scan::kInterlaced},
    {VID_FMT_1035I, {29, 30}, 78, Scan::kInterlaced},
    {VID_FMT_NTSC, {29}, 34, Scan::kInterlaced},
    {VID_FMT_NTSC_601, {29}, 34, Scan::kInterlaced},
    {VID_FMT_PAL, {25}, 45, Scan::kInterlaced},
    {VID_FMT_PAL_601, {25}, 45, Scan::kInterlaced},
};

const VideoFamily* videoFamily(uint32_t format) {
  for (const auto& entry : kVideoFamilies)
    if (entry.family == familyOf(format) && entry.rates.has(rateCode(format))) return &entry;
  return nullptr;
}

constexpr uint32_t kScanFlags = KLXVID_INTERLACED | KLXVID_SEGMENTED;

// ---- Aspect ratios ------------------------------------------------------------------------------
constexpr uint32_t aspect(uint32_t num, uint32_t den) { return (num << 16) | den; }
struct AspectEntry {
  int height;
  int width;
  uint32_t ratio;
};
constexpr AspectEntry kAspects[] = {
    {720, 960, aspect(16, 9)},     {720, 1280, aspect(16, 9)},    {858, 2048, aspect(239, 100)},
    {1080, 1998, aspect(185, 100)}, {1080, 1440, aspect(16, 9)},  {1080, 1920, aspect(16, 9)},
    {1080, 1280, aspect(16, 9)},   {1080, 2048, aspect(256, 135)}, {2160, 3840, aspect(16, 9)},
    {2160, 4096, aspect(256, 135)},
};

}  // namespace

extern "C" int vidImageSize(uint32_t format, int* width, int* height, int fieldHeight) {
  if (!width || !height) return -1;
  int w, h;
  if (const KnownRaster* raster = knownRaster(format)) {
    w = raster->width;
    h = raster->height;
  } else {
    w = vidGetSizeFromToken(widthToken(format));
    h = vidGetSizeFromToken(heightToken(format));
    if (w < 0 || h < 0) return -1;
  }
  if (fieldHeight && (format & VID_FMT_INTERLACED)) h >>= 1;
  *width = w;
  *height = h;
  return 0;
}

extern "C" int vidSignalFormatToStr20s(uint32_t format, char* text, size_t textSize) {
  if (!text || textSize < kTextChars + 1) return -1;
  writeText(format, text);
  return 0;
}

extern "C" int vidSignalFormatToStr20(uint32_t format, char* text) {
  return vidSignalFormatToStr20s(format, text, text ? kTextChars + 1 : 0);
}

extern "C" int vidSignalFormatToKLXVid(uint32_t format, KLXVIDEO* video) {
  if (!video) return -1;
  uint32_t rate, scale;
  int width, height;
  if (vidRateScale(format, &rate, &scale) != 0) return -1;
  if (vidImageSize(format, &width, &height, 0) != 0) return -1;
  video->Rate = rate;
  video->Scale = scale;
  video->TotalWidth = 0;
  video->TotalHeight = 0;
  if (const VideoFamily* family = videoFamily(format)) {
    video->Width = width;
    video->Height = height;
    video->XOffset = 0;
    video->YOffset = family->yOffset;
    if (family->scan == Scan::kInterlaced)
      video->Flags |= KLXVID_INTERLACED;
    else
      video->Flags &= ~kScanFlags;
  } else {
    // Other words describe their picture by the tokens alone (so the 8K words read 4096
    // lines here) and keep whatever offsets the record had.
    int tokenWidth = vidGetSizeFromToken(widthToken(format));
    int tokenHeight = vidGetSizeFromToken(heightToken(format));
    if (tokenWidth >= 0 && tokenHeight >= 0) {
      video->Width = tokenWidth;
      video->Height = tokenHeight;
    }
  }
  video->TotalWidth = video->XOffset + video->Width;
  video->TotalHeight = video->YOffset + video->Height;
  // The word's scan decides the flags; every non-scan flag is cleared on purpose.
  if (format & VID_FMT_INTERLACED)
    video->Flags = (video->Flags & KLXVID_SEGMENTED) | KLXVID_INTERLACED;
  else if (format & VID_FMT_SEGMENTED)
    video->Flags = (video->Flags & KLXVID_INTERLACED) | KLXVID_SEGMENTED;
  else
    video->Flags &= kScanFlags;
  return 0;
}

extern "C" uint32_t vidGetAspectRatio(uint32_t format, int width, int height) {
  if (width == 0 && height == 0 && vidImageSize(format, &width, &height, 0) != 0) return 0;
  long long h = std::llabs(static_cast<long long>(height));
  if (h < 480) return 0;
  if (h < 526) return aspect(4, 3);
  if (h < 626) return (width >= 640 && width <= 800) ? aspect(4, 3) : 0;
  for (const auto& entry : kAspects)
    if (entry.height == h && entry.width == width) return entry.ratio;
  return 0;
}
