// Timecode types: of words and rates, their timing, re-counting between types, and their names;
// rate pairs: of words, of loose pairs, of floating-point rates and of rasters.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <string>

#include "platform/tcxlat.h"
#include "streamutil/captions.h"
#include "video/video.h"

namespace {

uint32_t typeOr2(const std::map<uint32_t, uint32_t>& m, uint32_t code) {
  auto it = m.find(code);
  return it == m.end() ? 2u : it->second;
}

TEST(TimecodeType, OfEveryRateCode) {
  const std::map<uint32_t, uint32_t> kBase = {
      {14, 4}, {29, 4}, {59, 4}, {119, 4}, {23, 128}, {47, 128}, {71, 128}, {24, 1}, {48, 1}, {72, 1}, {25, 8},
      {50, 8}, {100, 8},
  };
  const std::map<uint32_t, uint32_t> kFps = {
      {14, 4}, {23, 128}, {24, 1}, {25, 8}, {29, 4}, {47, 128}, {48, 1}, {50, 16}, {59, 32}, {60, 64}, {71, 128},
      {72, 1}, {100, 8}, {119, 4},
  };
  for (uint32_t code = 0; code < 512; ++code) {
    uint32_t word = 0x2380B200 | code;
    EXPECT_EQ(vidGetTCTypeSignalFormat(word), typeOr2(kBase, code)) << code;
    EXPECT_EQ(vidGetFPSTCTypeSignalFormat(word), typeOr2(kFps, code)) << code;
  }
}

// The timecode type of a rate is the type of the pair it snaps to: the exact pairs are checked
// in ConvertTC.BetweenEveryPairOfTypes, 48/1 and rates without an exact pair here.
TEST(TimecodeType, OfFortyEightAndOfRatesWithoutAnExactPair) {
  EXPECT_EQ(vidGetTCType(48.7), 1u);  // snaps to 48/1, counted as 24
  for (double fps : {12.5, 65.5, 1e12, std::nan("")}) EXPECT_EQ(vidGetTCType(fps), 2u) << fps;
}

// The rate of each named type is checked by TimecodeTypeNames.EntriesAgreeWithTheLibraryTiming.
TEST(TimecodeType, RatesAndDurations) {
  struct Case { uint32_t type; double fps, ms; int msRounded; };
  const Case kCases[] = {
      {2, 30, 33.36666666666667, 33},  // 30 NDF lasts a 29.97 frame: kept
      {132, 24000.0 / 1001, 41.708333333333336, 42}, {0, 30000.0 / 1001, 33.36666666666667, 33},
      {0x108, 25, 40, 40},  // only the low byte counts
  };
  for (const auto& c : kCases) {
    EXPECT_DOUBLE_EQ(vidTCFramesPerSecD(c.type), c.fps) << c.type;
    EXPECT_DOUBLE_EQ(vidTCMsPerFrameD(c.type), c.ms) << c.type;
    EXPECT_EQ(vidTCMsPerFrame(c.type), c.msRounded) << c.type;
  }
  // Every type but 2 lasts exactly one frame of its own rate.
  for (uint32_t type = 0; type < 256; ++type) {
    if (type == 2) continue;
    EXPECT_NEAR(vidTCMsPerFrameD(type) * vidTCFramesPerSecD(type), 1000.0, 1e-9) << type;
  }
}

// ---- Re-counting between types --------------------------------------------------------------

struct TypeRate {
  uint32_t nominal;  // frames per second of the fields
  uint32_t drop;     // frame numbers dropped per minute (drop-frame types)
};
// SMPTE ST 12-1 counting of each type, stated independently of the library.
const std::map<uint32_t, TypeRate> kCounting = {
    {1, {24, 0}}, {2, {30, 0}}, {4, {30, 2}}, {8, {25, 0}}, {16, {50, 0}}, {32, {60, 4}}, {64, {60, 0}},
    {128, {24, 0}}, {132, {24, 0}},
};

struct Fields { unsigned h, m, s, f; };

bool readFields(const char* text, Fields& out) {
  char sep = 0;
  return std::sscanf(text, "%u:%u:%u%c%u", &out.h, &out.m, &out.s, &sep, &out.f) == 5 && (sep == ':' || sep == ';');
}

// Frame count of fields in a type; false when the fields do not exist there.
bool fieldsToFrames(const Fields& t, uint32_t type, uint32_t& frames) {
  const TypeRate& c = kCounting.at(type);
  if (t.f >= c.nominal) return false;
  if (c.drop && t.s == 0 && t.m % 10 != 0 && t.f < c.drop) return false;
  uint64_t minutes = 60ull * t.h + t.m;
  uint64_t count = (3600ull * t.h + 60ull * t.m + t.s) * c.nominal + t.f - c.drop * (minutes - minutes / 10);
  frames = static_cast<uint32_t>(count);
  return true;
}

struct Source { uint32_t rate, scale, type; };
const Source kSources[] = {
    {24, 1, 1}, {30, 1, 2}, {30000, 1001, 4}, {25, 1, 8}, {50, 1, 16}, {60000, 1001, 32}, {60, 1, 64},
    {24000, 1001, 128},
};
const uint32_t kTargets[] = {0, 1, 2, 4, 8, 16, 32, 64, 128, 132};

uint32_t canonical(uint32_t type) { return type == 132 ? 128 : type; }

TEST(ConvertTC, BetweenEveryPairOfTypes) {
  // 29.97df 00:00:59;29 and 00:01:00;02 around the first dropped numbers, 01:00:00;00.
  const uint32_t kFixedStarts[] = {0, 1799, 1800, 17982, 107892};
  std::mt19937 rng(12);
  int converted = 0, refused = 0;
  for (const auto& src : kSources) {
    ASSERT_EQ(vidGetTCType(double(src.rate) / src.scale), src.type);
    const TypeRate& counting = kCounting.at(src.type);
    uint32_t day = 86400u * counting.nominal - 86400u / 60 * 9 / 10 * counting.drop;
    std::uniform_int_distribution<uint32_t> anyFrame(0, day - 1);
    for (uint32_t to : kTargets) {
      for (int i = 0; i < 400; ++i) {
        uint32_t start = i < 5 ? kFixedStarts[i] : anyFrame(rng);
        char text[32] = {};
        ASSERT_EQ(tc2String(start, src.type | TCF_FULL_TEXT, text, sizeof text), 0);
        Fields fields{};
        ASSERT_TRUE(readFields(text, fields)) << text;

        uint32_t frames = start;
        int result = vidConvertTC(&frames, to, src.rate, src.scale);
        uint32_t expected = 0;
        SCOPED_TRACE(testing::Message() << text << " type " << src.type << " -> " << to);
        if (canonical(to) == canonical(src.type) || to == 0) {
          EXPECT_EQ(result, 0);
          EXPECT_EQ(frames, start);
        } else if (fieldsToFrames(fields, to, expected)) {
          if (src.type == 32 || src.type == 64) expected *= 2;  // kept doubling of 59.94/60 sources
          EXPECT_EQ(result, 0);
          EXPECT_EQ(frames, expected);
          ++converted;
        } else {
          EXPECT_EQ(result, -1);
          EXPECT_EQ(frames, start);
          ++refused;
        }
      }
    }
  }
  EXPECT_GT(converted, 10000);
  EXPECT_GT(refused, 1000);
}

TEST(ConvertTC, RefusesNoCountAndZeroScale) {
  uint32_t frames = 5;
  EXPECT_EQ(vidConvertTC(nullptr, 8, 25, 1), -1);
  EXPECT_EQ(vidConvertTC(&frames, 8, 25, 0), -1);
  EXPECT_EQ(frames, 5u);
}

// The timecode-type vocabulary: every spelling finds one canonical entry, each entry agrees with
// the library's own timing of its type, and the caption and SEI codes match their writers'.

TEST(TimecodeTypeNames, EverySpellingFindsItsCanonicalEntry) {
  const std::pair<const char*, const char*> kSpellings[] = {
      {"frames", "frames"}, {"0", "frames"}, {"23.98", "23.98"}, {"23.976", "23.98"}, {"24000/1001", "23.98"},
      {"film-drop", "23.98"}, {"132", "23.98"}, {"24", "24"}, {"film", "24"}, {"24/1", "24"}, {"25", "25"},
      {"PAL", "25"}, {"25/1", "25"}, {"29.97", "29.97"}, {"30000/1001", "29.97"}, {"29.97ndf", "29.97"},
      {"29.97df", "29.97df"}, {"drop-frame", "29.97df"}, {"df", "29.97df"}, {"4", "29.97df"}, {"30", "30"},
      {"non-drop-frame", "30"}, {"ndf", "30"}, {"30/1", "30"}, {"50", "50"}, {"16", "50"}, {"59.94", "59.94"},
      {"60000/1001", "59.94"}, {"59.94DF", "59.94df"}, {"32", "59.94df"}, {"60", "60"}, {" 60/1 ", "60"},
  };
  for (const auto& [text, canonical] : kSpellings) {
    VIDTCTYPEINFO info{};
    ASSERT_EQ(vidTCTypeFromName(text, &info), 0) << text;
    EXPECT_STREQ(info.name, canonical) << text;
  }
  for (const char* bad : {"", "29.970", "29,97", "pal50", "2997", "3", "ntsc", "24fps", "df29.97"}) {
    VIDTCTYPEINFO info{};
    EXPECT_EQ(vidTCTypeFromName(bad, &info), -1) << bad;
  }
  VIDTCTYPEINFO info{};
  EXPECT_EQ(vidTCTypeFromName(nullptr, &info), -1);
  EXPECT_EQ(vidTCTypeFromName("25", nullptr), -1);
  EXPECT_EQ(vidTCTypeFromValue(3, &info), -1);
  EXPECT_STREQ(vidTCTypeName(3), "unknown");
}

// Each canonical entry: its name finds it again, its rate is the rate the library times its
// type at (the non-drop 1001 rates excepted: they count like the whole rate), and a type value
// names the whole-rate entry. (Every count of a day renders and parses in each type:
// platform/tcxlat_test.cpp.)
TEST(TimecodeTypeNames, EntriesAgreeWithTheLibraryTiming) {
  std::set<std::string> names;
  VIDTCTYPEINFO e{};
  for (uint32_t n = 0; vidTCTypeAt(n, &e) == 0; ++n) {
    EXPECT_TRUE(names.insert(e.name).second) << e.name;
    VIDTCTYPEINFO again{};
    ASSERT_EQ(vidTCTypeFromName(e.name, &again), 0);
    EXPECT_EQ(again.tctype, e.tctype);
    EXPECT_EQ(again.rate, e.rate);
    if (e.tctype == TC_FRAMES) continue;
    const double fps = double(e.rate) / e.scale;
    const bool nonDrop1001 = e.scale == 1001 && e.tctype != TC_2398 && e.tctype != TC_DF2997 && e.tctype != TC_DF5994;
    EXPECT_NEAR(vidTCFramesPerSecD(e.tctype), nonDrop1001 ? std::round(fps) : fps, 1e-9) << e.name;
    EXPECT_STREQ(vidTCTypeName(e.tctype), nonDrop1001 ? (e.rate == 30000 ? "30" : "60") : e.name);
  }
  EXPECT_EQ(names.size(), 11u);
}

TEST(TimecodeTypeNames, CaptionAndSeiCodesOfEachRate) {
  const struct { const char* name; uint32_t cdpRate, seiType; } kCases[] = {
      {"23.98", CDP_RATE_23_976, TC_FILM}, {"24", CDP_RATE_24, TC_FILM}, {"25", CDP_RATE_25, TC_PAL},
      {"29.97", CDP_RATE_29_97, TC_NDF30}, {"29.97df", CDP_RATE_29_97, TC_DF2997}, {"30", CDP_RATE_30, TC_NDF30},
      {"50", CDP_RATE_50, TC_50}, {"59.94", CDP_RATE_59_94, TC_60}, {"59.94df", CDP_RATE_59_94, TC_DF5994},
      {"60", CDP_RATE_60, TC_60},
  };
  for (const auto& c : kCases) {
    VIDTCTYPEINFO info{};
    ASSERT_EQ(vidTCTypeFromName(c.name, &info), 0);
    EXPECT_EQ(info.cdpRate, c.cdpRate) << c.name;
    EXPECT_EQ(info.seiType, c.seiType) << c.name;
  }
}

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
