// Rate pairs: of a format word, of a loose pair, of a floating-point rate, of a raster.
#include <climits>
#include <cmath>
#include <cstdint>

#include "video/rate_snap.h"
#include "video/vidformat.h"
#include "video/vidrate.h"

namespace {

struct RatePair {
  uint32_t rate;
  uint32_t scale;
};

constexpr RatePair kNtsc{30000, 1001};
constexpr RatePair kFilmDrop{24000, 1001};
constexpr RatePair kPal{25, 1};
constexpr RatePair kFilm{24, 1};

struct CodeRate {
  uint32_t code;
  RatePair pair;
};
constexpr CodeRate kCodeRates[] = {
    {14, {15000, 1001}}, {15, {15, 1}},  {23, kFilmDrop},     {24, kFilm},
    {25, kPal},          {29, kNtsc},    {30, {30, 1}},       {47, {48000, 1001}},
    {48, {48, 1}},       {50, {50, 1}},  {59, {60000, 1001}}, {60, {60, 1}},
    {71, {72000, 1001}}, {72, {72, 1}},  {100, {100, 1}},     {119, {120000, 1001}},
};

void put(const RatePair& pair, uint32_t* rate, uint32_t* scale) {
  *rate = pair.rate;
  *scale = pair.scale;
}

// The whole-number quotients that snap to a canonical pair.
struct QuotientRate {
  uint32_t quotient;
  RatePair pair;
};
constexpr QuotientRate kQuotientRates[] = {
    {23, kFilmDrop}, {24, kFilm},   {25, kPal},          {29, kNtsc},  {30, {30, 1}},
    {48, {48, 1}},   {50, {50, 1}}, {59, {60000, 1001}}, {60, {60, 1}},
};
// Rates that are already frames per second: only the scale is forced to 1.
constexpr uint32_t kWholeRates[] = {10, 15, 23, 24, 25, 29, 30, 59, 60};
// 23.976 written as a thousandths pair stays a thousandths pair (the recorders store it so).
constexpr RatePair kFilmDropThousandths{23976, 1000};

// Default rate by raster width: up to maxWidth, heights below splitHeight get `below`.
struct WidthRate {
  int maxWidth;
  int splitHeight;
  RatePair below;
  RatePair atOrAbove;
};
constexpr WidthRate kWidthRates[] = {
    {720, 513, kNtsc, kPal},       {1080, INT_MAX, kNtsc, kNtsc}, {1828, INT_MAX, kPal, kPal},
    {1920, INT_MAX, kNtsc, kNtsc}, {2048, 1236, kPal, kFilm},     {4096, INT_MAX, kFilm, kFilm},
};

}  // namespace

extern "C" int vidRateScale(uint32_t format, uint32_t* rate, uint32_t* scale) {
  if (!rate || !scale || format == VID_FMT_INVALID) return -1;
  uint32_t code = format & VID_FMT_RATE_MASK;
  if (code == VID_RATE_UNKNOWN) return -1;
  for (const auto& entry : kCodeRates)
    if (entry.code == code) {
      put(entry.pair, rate, scale);
      return 0;
    }
  put({code, 1}, rate, scale);
  return 0;
}

extern "C" int vidNormalizeRateScale(uint32_t* rate, uint32_t* scale) {
  if (!rate || !scale || *scale == 0) return -1;
  const uint32_t r = *rate;
  const uint32_t q = r / *scale;
  // Rates written in hundredths or thousandths first; each of these decides alone.
  if (r == 3000) {
    if (q == 30) put({30, 1}, rate, scale);
    if (q == 29) put(kNtsc, rate, scale);
    return 0;
  }
  if (r == 23976 || r == 23977) {
    if (q == 23) put(kFilmDropThousandths, rate, scale);
    return 0;
  }
  if (r >= 2996 && r <= 2998) {
    if (q == 29) put(kNtsc, rate, scale);
    if (q == 23) put(kFilmDrop, rate, scale);
    return 0;
  }
  if (r == 2397 || r == 2398) {
    if (q == 23) put(kFilmDropThousandths, rate, scale);
    return 0;
  }
  for (uint32_t whole : kWholeRates)
    if (r == whole) {
      *scale = 1;
      return 0;
    }
  if (r == 2400) {
    if (q == 24) put(kFilm, rate, scale);
    if (q == 23) put(kFilmDrop, rate, scale);
    return 0;
  }
  for (const auto& entry : kQuotientRates)
    if (entry.quotient == q) {
      put(entry.pair, rate, scale);
      return 0;
    }
  if (static_cast<double>(r) / *scale == static_cast<double>(q)) put({q, 1}, rate, scale);
  return 0;
}

extern "C" int vidRateScaled(double fps, uint32_t* rate, uint32_t* scale) {
  if (!rate || !scale) return -1;
  RateSnap snap = snapRate(fps);
  if (snap.kind == SnapKind::kApprox) {
    // The whole frames per second, in hundredths: 12.5 gives 1200/100, the fraction is dropped.
    double hundredths = std::trunc(snap.approx) * 100;
    if (!(hundredths > 0)) hundredths = 0;  // negative or not a number
    if (hundredths > UINT32_MAX) hundredths = UINT32_MAX;
    put({static_cast<uint32_t>(hundredths), 100}, rate, scale);
    return 1;
  }
  const SnapTarget& target = snapTarget(snap.kind);
  put({target.rate, target.scale}, rate, scale);
  return 0;
}

extern "C" int vidRateScaleFromSize(int width, int height, uint32_t* rate, uint32_t* scale) {
  if (!rate || !scale) return -1;
  for (const auto& entry : kWidthRates)
    if (width <= entry.maxWidth) {
      put(height < entry.splitHeight ? entry.below : entry.atOrAbove, rate, scale);
      return 0;
    }
  return 0;  // wider than 4096: no default, outputs untouched
}

extern "C" double vidFramesPerSecD(uint32_t format, uint32_t rate, uint32_t scale) {
  if (rate && scale) return static_cast<double>(rate) / scale;
  if (vidRateScale(format, &rate, &scale) == 0 && rate && scale) return static_cast<double>(rate) / scale;
  return static_cast<double>(kNtsc.rate) / kNtsc.scale;
}

extern "C" double vidMsPerFrameD(uint32_t format, uint32_t rate, uint32_t scale) {
  return 1000.0 / vidFramesPerSecD(format, rate, scale);
}

extern "C" int vidMsPerFrame(uint32_t format, uint32_t rate, uint32_t scale) {
  double ms = vidMsPerFrameD(format, rate, scale) + 0.5;
  return ms >= static_cast<double>(INT_MAX) ? INT_MAX : static_cast<int>(ms);
}
