// Rate pairs: of words, of loose pairs, of floating-point rates and of rasters.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "video/video.h"

namespace {

struct Pair {
  uint32_t rate, scale;
  bool operator==(const Pair&) const = default;
};
std::ostream& operator<<(std::ostream& os, const Pair& p) { return os << p.rate << "/" << p.scale; }

const Pair kCanonical[] = {
    {15000, 1001}, {15, 1}, {24000, 1001}, {24, 1}, {25, 1}, {30000, 1001}, {30, 1}, {48000, 1001}, {48, 1}, {50, 1},
    {60000, 1001}, {60, 1}, {72000, 1001}, {72, 1}, {100, 1}, {120000, 1001},
};
const uint32_t kCodes[] = {14, 15, 23, 24, 25, 29, 30, 47, 48, 50, 59, 60, 71, 72, 100, 119};

TEST(RateScale, EveryRateCodeNamesItsCanonicalPair) {
  for (size_t i = 0; i < std::size(kCodes); ++i) {
    Pair got{};
    ASSERT_EQ(vidRateScale(0x2380B200 | kCodes[i], &got.rate, &got.scale), 0);
    EXPECT_EQ(got, kCanonical[i]) << "code " << kCodes[i];
  }
  Pair got{};
  ASSERT_EQ(vidRateScale(0x2380B200 | 200, &got.rate, &got.scale), 0);
  EXPECT_EQ(got, (Pair{200, 1}));
  ASSERT_EQ(vidRateScale(0x2380B200 | 7, &got.rate, &got.scale), 0);
  EXPECT_EQ(got, (Pair{7, 1}));
  EXPECT_EQ(vidRateScale(VID_FMT_INVALID, &got.rate, &got.scale), -1);
  EXPECT_EQ(vidRateScale(0x2380B200 | VID_RATE_UNKNOWN, &got.rate, &got.scale), -1);
  EXPECT_EQ(vidRateScale(0x2380B219, nullptr, &got.scale), -1);
}

TEST(RateScale, NormalizeSnapsLoosePairs) {
  struct Case { Pair in, out; };
  const Case kCases[] = {
      {{2997, 100}, {30000, 1001}}, {{2996, 100}, {30000, 1001}}, {{2998, 130}, {24000, 1001}},
      {{23976, 1000}, {23976, 1000}}, {{23977, 1000}, {23976, 1000}}, {{2397, 100}, {23976, 1000}},
      {{2398, 100}, {23976, 1000}}, {{2400, 100}, {24, 1}}, {{2400, 101}, {24000, 1001}}, {{3000, 100}, {30, 1}},
      {{3000, 101}, {30000, 1001}}, {{3000, 200}, {3000, 200}}, {{12500, 1000}, {12500, 1000}},
      {{50000, 1000}, {50, 1}}, {{29, 2}, {29, 1}}, {{10, 7}, {10, 1}}, {{60000, 1000}, {60, 1}},
      {{59940, 1000}, {60000, 1001}}, {{47952, 1000}, {47952, 1000}}, {{48000, 1000}, {48, 1}},
      {{25000, 1000}, {25, 1}}, {{24000, 1000}, {24, 1}}, {{23976, 1001}, {23976, 1000}}, {{120, 1}, {120, 1}},
      {{240, 2}, {120, 1}}, {{15000, 1000}, {15, 1}}, {{2997, 200}, {2997, 200}},
  };
  for (const auto& c : kCases) {
    Pair p = c.in;
    EXPECT_EQ(vidNormalizeRateScale(&p.rate, &p.scale), 0) << c.in;
    EXPECT_EQ(p, c.out) << c.in;
  }
  Pair zero{30, 0};
  EXPECT_EQ(vidNormalizeRateScale(&zero.rate, &zero.scale), -1);
  EXPECT_EQ(zero, (Pair{30, 0}));
  EXPECT_EQ(vidNormalizeRateScale(nullptr, &zero.scale), -1);
}

TEST(RateScale, NormalizeKeepsCanonicalPairsAndIsIdempotent) {
  for (const auto& c : kCanonical) {
    Pair p = c;
    vidNormalizeRateScale(&p.rate, &p.scale);
    EXPECT_EQ(p, c);
  }
  std::mt19937 rng(7);
  std::uniform_int_distribution<uint32_t> rates(1, 130000), scales(1, 1100);
  for (int i = 0; i < 200000; ++i) {
    Pair p{rates(rng), scales(rng)};
    if (i % 4 == 0) p.rate = 2990 + p.rate % 20;  // the hundredths neighbourhood
    Pair once = p;
    vidNormalizeRateScale(&once.rate, &once.scale);
    Pair twice = once;
    vidNormalizeRateScale(&twice.rate, &twice.scale);
    ASSERT_EQ(twice, once) << "from " << p;
    ASSERT_NE(once.scale, 0u);
  }
}

TEST(RateScale, FloatingRatesSnapToTheirBaseRate) {
  struct Case { double fps; Pair pair; int result; };
  const Case kCases[] = {
      {29.97, {30000, 1001}, 0}, {30000.0 / 1001, {30000, 1001}, 0}, {30, {30, 1}, 0}, {23.976, {24000, 1001}, 0},
      {24, {24, 1}, 0}, {24.9, {24, 1}, 0}, {25, {25, 1}, 0}, {25.05, {25, 1}, 0}, {47.952, {24000, 1001}, 0},
      {48, {24, 1}, 0}, {48.7, {48, 1}, 0}, {50, {50, 1}, 0}, {59.94, {60000, 1001}, 0}, {60, {60, 1}, 0},
      {71.928, {24000, 1001}, 0}, {72, {24, 1}, 0}, {100, {25, 1}, 0}, {119.88, {30000, 1001}, 0}, {120, {30, 1}, 0},
      {14.985, {30000, 1001}, 0}, {15, {30, 1}, 0}, {24000.0 / 1001, {24000, 1001}, 0},
      {60000.0 / 1001, {60000, 1001}, 0},
      // Approximate: the whole frames per second in hundredths over 100, the fraction dropped
      // first; below 14 and from 15.5 to 23 the rate is taken as it is (edges of both bands).
      {0.5, {0, 100}, 1}, {13.99, {1300, 100}, 1}, {15.51, {1500, 100}, 1}, {22.99, {2200, 100}, 1},
      {65.5, {6500, 100}, 1}, {80.25, {8000, 100}, 1}, {110, {2700, 100}, 1},
      {27, {2700, 100}, 1}, {14.5, {2900, 100}, 1}, {31, {3100, 100}, 1},
      {49.5, {4900, 100}, 1}, {130, {13000, 100}, 1}, {0, {0, 100}, 1}, {-3, {0, 100}, 1},
      {std::nan(""), {0, 100}, 1}, {1e12, {UINT32_MAX, 100}, 1},
  };
  for (const auto& c : kCases) {
    Pair p{};
    EXPECT_EQ(vidRateScaled(c.fps, &p.rate, &p.scale), c.result) << c.fps;
    EXPECT_EQ(p, c.pair) << c.fps;
  }
  uint32_t r;
  EXPECT_EQ(vidRateScaled(25, &r, nullptr), -1);
}

TEST(RateScale, DefaultRateOfARaster) {
  struct Case { int width, height; Pair pair; };
  const Case kCases[] = {
      {720, 480, {30000, 1001}}, {720, 512, {30000, 1001}}, {720, 576, {25, 1}}, {352, 288, {30000, 1001}},
      {1080, 1080, {30000, 1001}}, {1280, 720, {25, 1}}, {1828, 1080, {25, 1}}, {1920, 1080, {30000, 1001}},
      {2048, 1080, {25, 1}}, {2048, 1236, {24, 1}}, {2048, 1556, {24, 1}}, {4096, 2160, {24, 1}},
  };
  for (const auto& c : kCases) {
    Pair p{};
    EXPECT_EQ(vidRateScaleFromSize(c.width, c.height, &p.rate, &p.scale), 0);
    EXPECT_EQ(p, c.pair) << c.width << "x" << c.height;
  }
  Pair untouched{7, 7};
  EXPECT_EQ(vidRateScaleFromSize(7680, 4320, &untouched.rate, &untouched.scale), 0);
  EXPECT_EQ(untouched, (Pair{7, 7}));
  EXPECT_EQ(vidRateScaleFromSize(720, 480, nullptr, &untouched.scale), -1);
}

TEST(RateScale, FrameDurations) {
  EXPECT_DOUBLE_EQ(vidFramesPerSecD(0, 25, 1), 25.0);
  EXPECT_DOUBLE_EQ(vidFramesPerSecD(0x2380B232, 0, 1), 50.0);          // pair incomplete: the word
  EXPECT_DOUBLE_EQ(vidFramesPerSecD(0x2380B23B, 0, 0), 60000.0 / 1001);
  EXPECT_DOUBLE_EQ(vidFramesPerSecD(VID_FMT_INVALID, 0, 0), 29.97002997002997);
  EXPECT_DOUBLE_EQ(vidFramesPerSecD(0x2380B300, 0, 0), 29.97002997002997);  // unknown rate
  EXPECT_DOUBLE_EQ(vidMsPerFrameD(0, 25, 1), 40.0);
  EXPECT_EQ(vidMsPerFrame(0, 30000, 1001), 33);
  EXPECT_EQ(vidMsPerFrame(0, 24000, 1001), 42);
  EXPECT_EQ(vidMsPerFrame(0x22109032, 0, 0), 20);
  EXPECT_EQ(vidMsPerFrame(0, 1, 4000000000u), std::numeric_limits<int>::max());
}

}  // namespace
