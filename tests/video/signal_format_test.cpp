// Signal-format words: size tokens, word -> size/rate/text, raster + rate -> word, and any word
// or measurement answered within the contract, and the words of real streams; what a word fills
// in: the video sub-record, the aspect ratio and the colour matrix (forced or not by the
// configuration store).
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>

#include "support/config_values.h"
#include "support/h16_process.h"
#include "support/test_support.h"
#include "video/vidformat.h"
#include "video/video.h"

namespace {

struct Named { uint32_t word; int width, height; const char* text; };
// Every named format: its frame size and its 20-character text.
const Named kNamed[] = {
    {0x1100401D, 640, 480, "NTSC"}, {0x1120421D, 720, 486, "NTSC-CCIR601"}, {0x11204217, 720, 486, "NTSC-23.98"},
    {0x11A04019, 640, 576, "PAL"}, {0x11A04219, 720, 576, "PAL-CCIR601"},
    {0x1310B21D, 1920, 1035, "1920x1035i@29.97"}, {0x1310B21E, 1920, 1035, "1920x1035i@30"},
    {0x1380B217, 1920, 1080, "1920x1080i@23.98"}, {0x1380B218, 1920, 1080, "1920x1080i@24"},
    {0x1380B219, 1920, 1080, "1920x1080i@25"}, {0x1380B21D, 1920, 1080, "1920x1080i@29.97"},
    {0x1380B21E, 1920, 1080, "1920x1080i@30"}, {0x1380B232, 1920, 1080, "1920x1080i@50"},
    {0x1380B23B, 1920, 1080, "1920x1080i@59.94"}, {0x1380B23C, 1920, 1080, "1920x1080i@60"},
    {0x22109017, 1280, 720, "1280x720P@23.98"}, {0x22109018, 1280, 720, "1280x720P@24"},
    {0x22109019, 1280, 720, "1280x720P@25"}, {0x2210901D, 1280, 720, "1280x720P@29.97"},
    {0x2210901E, 1280, 720, "1280x720P@30"}, {0x22109032, 1280, 720, "1280x720P@50"},
    {0x2210903B, 1280, 720, "1280x720P@59.94"}, {0x2210903C, 1280, 720, "1280x720P@60"},
    {0x2380B217, 1920, 1080, "1920x1080P@23.98"}, {0x2380B218, 1920, 1080, "1920x1080P@24"},
    {0x2380B219, 1920, 1080, "1920x1080P@25"}, {0x2380B21D, 1920, 1080, "1920x1080P@29.97"},
    {0x2380B21E, 1920, 1080, "1920x1080P@30"}, {0x2380B22F, 1920, 1080, "1920x1080P@47.95"},
    {0x2380B230, 1920, 1080, "1920x1080P@48"}, {0x2380B232, 1920, 1080, "1920x1080P@50"},
    {0x2380B23B, 1920, 1080, "1920x1080P@59.94"}, {0x2380B23C, 1920, 1080, "1920x1080P@60"},
    {0x2380C017, 2048, 1080, "2048x1080P@23.98"}, {0x2380C018, 2048, 1080, "2048x1080P@24"},
    {0x2380C019, 2048, 1080, "2048x1080P@25"}, {0x2380C01D, 2048, 1080, "2048x1080P@29.97"},
    {0x2380C01E, 2048, 1080, "2048x1080P@30"}, {0x2380C03B, 2048, 1080, "2048x1080P@59.94"},
    {0x2380D0C8, 2560, 1080, "2560x1080P 200fps"}, {0x2380D03C, 2560, 1080, "2560x1080P 60fps"},
    {0x23409618, 1400, 1050, "1400x1050P@24"}, {0x23409619, 1400, 1050, "1400x1050P@25"},
    {0x2500C00E, 2048, 1536, "2048x1536@14.98"}, {0x2500C00F, 2048, 1536, "2048x1536P@15"},
    {0x2500C017, 2048, 1536, "2048x1536@23.98"}, {0x2500C018, 2048, 1536, "2048x1536P@24"},
    {0x2510C00E, 2048, 1556, "2048x1556@14.98"}, {0x2510C00F, 2048, 1556, "2048x1556P@15"},
    {0x2510C017, 2048, 1556, "2048x1556@23.98"}, {0x2510C018, 2048, 1556, "2048x1556P@24"},
    {0x25710017, 4096, 1714, "4096x1714@23.98"}, {0x25710018, 4096, 1714, "4096x1714P@24"},
    {0x2640F017, 3840, 2160, "3840x2160P 23.98fps"}, {0x2640F018, 3840, 2160, "3840x2160P 24fps"},
    {0x2640F019, 3840, 2160, "3840x2160P 25fps"}, {0x2640F01D, 3840, 2160, "3840x2160P 29.97fps"},
    {0x2640F01E, 3840, 2160, "3840x2160P 30fps"}, {0x2640F032, 3840, 2160, "3840x2160P 50fps"},
    {0x2640F03B, 3840, 2160, "3840x2160P 59.94fps"}, {0x2640F03C, 3840, 2160, "3840x2160P 60fps"},
    {0x26410017, 4096, 2160, "4096x2160P 23.98fps"}, {0x26410018, 4096, 2160, "4096x2160P 24fps"},
    {0x26410019, 4096, 2160, "4096x2160P 25fps"}, {0x2641001D, 4096, 2160, "4096x2160P 29.97fps"},
    {0x2641001E, 4096, 2160, "4096x2160P 30fps"}, {0x26410030, 4096, 2160, "4096x2160P 48fps"},
    {0x26410032, 4096, 2160, "4096x2160P 50fps"}, {0x2641003B, 4096, 2160, "4096x2160P 59.94fps"},
    {0x2641003C, 4096, 2160, "4096x2160P 60fps"}, {0x2650B617, 7680, 4320, "7680x4320 23.98fps"},
    {0x2650B618, 7680, 4320, "7680x4320 24fps"}, {0x2650B619, 7680, 4320, "7680x4320 25fps"},
    {0x2650B61D, 7680, 4320, "7680x4320 29.97fps"}, {0x2650B61E, 7680, 4320, "7680x4320 30fps"},
    {0x2650B630, 7680, 4320, "7680x4320 48fps"}, {0x2650B632, 7680, 4320, "7680x4320 50fps"},
    {0x2650B63B, 7680, 4320, "7680x4320 59.94fps"}, {0x2650B63C, 7680, 4320, "7680x4320 60fps"},
    {0x2650B817, 8192, 4320, "8192x4320 23.98fps"}, {0x2650B818, 8192, 4320, "8192x4320 24fps"},
    {0x2650B819, 8192, 4320, "8192x4320 25fps"}, {0x2650B81D, 8192, 4320, "8192x4320 29.97fps"},
    {0x2650B81E, 8192, 4320, "8192x4320 30fps"}, {0x2650B830, 8192, 4320, "8192x4320 48fps"},
    {0x2650B832, 8192, 4320, "8192x4320 50fps"}, {0x2650B83B, 8192, 4320, "8192x4320 59.94fps"},
    {0x2650B83C, 8192, 4320, "8192x4320 60fps"}, {0x26B10017, 4096, 3112, "4096x3112@23.98"},
    {0x26B10018, 4096, 3112, "4096x3112P@24"}, {0x4380B217, 1920, 1080, "1920x1080psf@23.98"},
    {0x4380B218, 1920, 1080, "1920x1080psf@24"}, {0x4380B219, 1920, 1080, "1920x1080psf@25"},
    {0x4380B21D, 1920, 1080, "1920x1080psf@29.97"}, {0x4380B21E, 1920, 1080, "1920x1080psf@30"},
    {0x4380C017, 2048, 1080, "2048x1080psf@23.98"}, {0x4380C018, 2048, 1080, "2048x1080psf@24"},
    {0x4380C019, 2048, 1080, "2048x1080psf@25"}, {0x4500C018, 2048, 1536, "2048x1536psf@24"},
    {0x4510C018, 2048, 1556, "2048x1556psf@24"}, {0x4640F017, 3840, 2160, "3840x2160sf 23.98fps"},
    {0x4640F018, 3840, 2160, "3840x2160psf 24fps"}, {0x4640F019, 3840, 2160, "3840x2160psf 25fps"},
    {0x46410017, 4096, 2160, "4096x2160sf 23.98fps"}, {0x46410018, 4096, 2160, "4096x2160psf 24fps"},
    {0x46410019, 4096, 2160, "4096x2160psf 25fps"}, {0x4641001D, 4096, 2160, "4096x2160sf 29.97fps"},
    {0x4641001E, 4096, 2160, "4096x2160psf 30fps"}, {0x46B10005, 4096, 3112, "4096x3112@5"},
};

std::string str20(uint32_t word) {
  char text[21];
  std::memset(text, 'x', sizeof text);
  EXPECT_EQ(vidSignalFormatToStr20(word, text), 0);
  EXPECT_EQ(text[20], '\0');
  size_t len = std::strlen(text);
  // Past the text's own terminator the buffer stays space filled.
  for (size_t i = len + 1; i < 20; ++i) EXPECT_EQ(text[i], ' ') << "byte " << i << " of " << std::hex << word;
  return std::string(text);
}

bool isProgressive(uint32_t word) { return (word & VID_FMT_PROGRESSIVE) != 0; }

// Deriving a named word back from its own raster and rate gives the word again, except for
// the words that are named for reading only: the derivation never produces them.
bool readOnlyWord(uint32_t word) {
  static const std::set<uint32_t> kReadOnly = {
      0x1380B217, 0x1380B218,  // film rates: a clear psf flag means segmented, not interlaced
      0x11204217,              // NTSC-23.98: 720x486 at 23.98 is progressive by the generic rule
      0x2380D0C8, 0x2380D03C,  // 2560x1080: no rule produces them
      0x26410030, 0x2650B630, 0x2650B830,  // UHD/8K at 48: only 1080 lines have a 48 rule
      0x26B10017, 0x26B10018, 0x46B10005,  // 4096x3112: taken for 4096x2160 or generic
  };
  uint32_t code = word & VID_FMT_RATE_MASK;
  bool filmRate = code == 23 || code == 24;
  bool uhd = ((word >> 20) & 0xFF) >= 100;
  // Segmented words come only from the 23.98/24 rules, and never for UHD.
  if ((word & VID_FMT_SEGMENTED) && (!filmRate || uhd)) return true;
  return kReadOnly.count(word) != 0;
}

// Each named word: its text, frame and field size, rate pair, the size tokens inside it (known
// stored exceptions: width token 104 reads 2650 for the 2560-wide words, the 8K words carry
// height token 101, 4096, for 4320 lines), and the derivation back from raster and rate.
TEST(SignalFormat, NamedWordsTextSizeRateTokensAndDerivation) {
  int roundTrips = 0;
  for (const auto& n : kNamed) {
    SCOPED_TRACE(testing::Message() << std::hex << "0x" << n.word << " " << n.text);
    EXPECT_EQ(str20(n.word), n.text);
    int w = 0, h = 0;
    ASSERT_EQ(vidImageSize(n.word, &w, &h, 0), 0);
    EXPECT_EQ(w, n.width);
    EXPECT_EQ(h, n.height);
    ASSERT_EQ(vidImageSize(n.word, &w, &h, 1), 0);
    EXPECT_EQ(h, (n.word & VID_FMT_INTERLACED) ? n.height / 2 : n.height);  // a field of an interlaced word
    uint32_t rate = 0, scale = 0;  // the pair of each rate code: RateScale.EveryRateCodeNamesItsCanonicalPair
    ASSERT_EQ(vidRateScale(n.word, &rate, &scale), 0);
    EXPECT_EQ(vidGetSizeFromToken((n.word >> 9) & 0x7FF), n.width == 2560 ? 2650 : n.width);
    EXPECT_EQ(vidGetSizeFromToken((n.word >> 20) & 0xFF), n.height == 4320 ? 4096 : n.height);
    const uint32_t derived = vidGetSignalFormat(rate, scale, n.width, n.height, isProgressive(n.word));
    if (readOnlyWord(n.word)) {
      EXPECT_NE(derived, n.word);
    } else {
      EXPECT_EQ(derived, n.word) << " -> 0x" << derived;
      ++roundTrips;
    }
  }
  EXPECT_EQ(roundTrips, 86);
}

struct Derivation { int width, height; uint32_t rate, scale; int psf; uint32_t word; };
const Derivation kDerivations[] = {
    // (A named word's own raster, pair and scan: NamedWordsTextSizeRateTokensAndDerivation.)
    // 25 Hz: interlaced unless psf.
    {1440, 1088, 25000, 1000, 0, 0x1380B219}, {1920, 1035, 25, 1, 0, 0x1380B219}, {360, 288, 25, 1, 0, 0x11A04219},
    {1280, 720, 25, 1, 0, 0x22109019}, {2048, 1080, 25, 1, 0, 0x2380C019}, {3840, 2160, 25, 1, 0, 0x2640F019},
    {7680, 4320, 25, 1, 0, 0x2650B619}, {8192, 4320, 25, 1, 0, 0x2650B819},
    // 23.976: a clear psf flag gives the segmented word.
    {2048, 1080, 23976, 1000, 0, 0x4380C017}, {2048, 1536, 24000, 1001, 0, 0x2500C017},
    {2048, 1588, 24000, 1001, 0, 0x2510C017}, {1280, 720, 24000, 1001, 0, 0x22109017}, {4096, 2160, 24, 1, 0, 0x26410018},
    // 29.97 and 30.
    {1920, 1080, 2997, 100, 1, 0x2380B21D}, {1920, 1088, 30, 1, 0, 0x1380B21E}, {704, 480, 30000, 1001, 0, 0x1120421D},
    {720, 576, 30000, 1001, 0, 0x11A0421D}, {1280, 720, 30, 1, 0, 0x2210901E}, {8192, 4320, 30000, 1001, 0, 0x2650B81D},
    // 50, 59.94, 60 and faster (which counts as 60).
    {1280, 720, 60000, 1001, 0, 0x2210903B}, {1280, 720, 50, 1, 0, 0x22109032}, {2048, 1080, 60000, 1001, 0, 0x2380C03B},
    {3840, 2160, 50, 1, 0, 0x2640F032}, {7680, 4320, 60, 1, 0, 0x2650B63C},
    {1920, 1080, 120, 1, 0, 0x1380B23C}, {1920, 1080, 48, 1, 0, 0x2380B230}, {1920, 1080, 48000, 1001, 0, 0x2380B22F},
    {2048, 1536, 15000, 1001, 0, 0x2500C00E}, {2048, 1556, 15, 1, 0, 0x2510C00F},
    // Generic rule.
    {1440, 1080, 12, 1, 0, 0x2380B20C}, {960, 720, 12, 1, 0, 0x2210900C}, {1024, 768, 12, 1, 0, 0x2220600C},
    {1920, 1035, 12, 1, 0, 0x2300B20C}, {720, 480, 14, 1, 0, 0x1100420E}, {640, 480, 24, 1, 0, 0x21004018},
    {720, 576, 10, 1, 0, 0x11A0420A}, {720, 576, 125, 10, 0, 0x11A04300}, {800, 600, 12, 1, 0, 0x21B0460C},
    {720, 600, 12, 1, 0, 0x21B0420C}, {720, 590, 12, 1, 0, 0x11A0420C},
    {1024, 768, 300, 1, 0, 0x22206100},  // too fast for the 9-bit code: unknown
    {720, 576, 61, 1, 0, 0x21A0423D},  // codes 61..99 are progressive, even at SD heights
    {720, 576, 99, 1, 0, 0x21A04263}, {720, 576, 100, 1, 0, 0x11A04264},
    {1920, 1080, 249, 10, 0, 0x2380B218},  // 24.9 lies in neither the 24 nor the 25 band
    {100, 100, 25, 1, 0, VID_FMT_INVALID}, {9000, 1080, 12, 1, 0, VID_FMT_INVALID},
    {1920, 1080, 30, 0, 0, VID_FMT_INVALID},
};

TEST(SignalFormat, DerivedFromRasterAndRate) {
  for (const auto& d : kDerivations)
    EXPECT_EQ(vidGetSignalFormat(d.rate, d.scale, d.width, d.height, d.psf), d.word)
        << d.width << "x" << d.height << " " << d.rate << "/" << d.scale << " psf " << d.psf;
}

TEST(SignalFormat, GenericTexts) {
  const std::pair<uint32_t, const char*> kTexts[] = {
      {0x0380B219, "1920x1080 @25"},  // no scan bit: a space
      {0x4380B232, "1920x1080s@50"},  // segmented outside the named family
      {0x2380B20C, "1920x1080P@Custom"}, {0x21004077, "640x480P@119.88"}, {0x21004047, "640x480P@71.93"},
      {0x2000000C, "-1x-1P@Custom"},  // tokens without a size
      {0x2650B616, "7680x4096P@Custom"},  // 8K family member with no rate text
      {0x11A04300, "720x576i@Custom"},  // 12.5 Hz: the unknown rate code (derivation table)
  };
  for (const auto& [word, text] : kTexts) EXPECT_EQ(str20(word), text) << std::hex << word;
}

TEST(SignalFormat, TextRefusesShortOrNullBuffers) {
  char small[20];
  std::memset(small, '#', sizeof small);
  EXPECT_EQ(vidSignalFormatToStr20s(0x1380B21D, small, sizeof small), -1);
  EXPECT_EQ(small[0], '#');
  EXPECT_EQ(vidSignalFormatToStr20(0x1380B21D, nullptr), -1);
  char exact[21];
  EXPECT_EQ(vidSignalFormatToStr20s(0x1380B21D, exact, sizeof exact), 0);
  EXPECT_STREQ(exact, "1920x1080i@29.97");
}

TEST(SignalFormat, ImageSizeFailures) {
  int w = 5, h = 5;
  EXPECT_EQ(vidImageSize(VID_FMT_INVALID, &w, &h, 0), -1);
  EXPECT_EQ(vidImageSize(0x2000000C, &w, &h, 0), -1);  // tokens 0
  EXPECT_EQ(w, 5);
  EXPECT_EQ(vidImageSize(0x1380B21D, nullptr, &h, 0), -1);
  // Generic interlaced words halve their token height for a field (integer shift).
  ASSERT_EQ(vidImageSize(0x11A0420C, &w, &h, 1), 0);
  EXPECT_EQ(h, 288);
  ASSERT_EQ(vidImageSize(0x1020420C, &w, &h, 1), 0);  // 720x243i
  EXPECT_EQ(h, 121);
}

// ---- The size-token table and the bucketing of measured sizes onto it ----

TEST(SizeTokens, OutsideTheTableIsMinusOne) {
  for (int token : {-1000, -1, 0, 129, 2047, 1 << 30}) EXPECT_EQ(vidGetSizeFromToken(token), -1) << token;
  for (int token : {4, 19, 44, 127}) EXPECT_EQ(vidGetSizeFromToken(token), -1) << token;  // unused
}

// Sizes that own no bucket: 1782 and 2880 fall inside their neighbours, UHD words come only
// from explicit rules, and 4096 is token 128.
const std::set<int> kUnbucketedTokens = {90, 91, 92, 100, 101, 106, 120};

// Independent statement of the buckets: a size maps to the token of the largest table size not
// above it, with two kept irregularities (241..242 already map to 243, 1035 still maps to 1024).
int bucketOracle(int pixels) {
  if (pixels < 240 || pixels > 8192) return -1;
  if (pixels == 241 || pixels == 242) return 2;
  if (pixels == 1035) return 48;
  int best = -1, bestSize = -1;
  for (int token = 1; token <= 128; ++token) {
    int size = vidGetSizeFromToken(token);
    if (size < 0 || kUnbucketedTokens.count(token) || size > pixels) continue;
    if (size > bestSize) best = token, bestSize = size;
  }
  return best;
}

TEST(SizeTokens, EverySizeLandsInTheBucketOfTheLargestSizeNotAbove) {
  for (int pixels = -10; pixels <= 9000; ++pixels)
    ASSERT_EQ(vidGetTokenFromSize(pixels), bucketOracle(pixels)) << pixels;
  EXPECT_EQ(vidGetTokenFromSize(1 << 30), -1);
  EXPECT_EQ(vidGetTokenFromSize(-(1 << 30)), -1);
}

// The kept quirks, one row each, and the tokens whose sizes are out of order, which the bucket
// oracle above takes from the library's own table.
TEST(SizeTokens, KeptIrregularities) {
  const std::map<int, int> kCases = {
      {241, 2}, {1035, 48}, {2160, 96}, {857, 38}, {864, 36}, {988, 37}, {1050, 52}, {1052, 51},
  };
  for (const auto& [size, token] : kCases) EXPECT_EQ(vidGetTokenFromSize(size), token) << size;
}

// ---- Arbitrary words and measurements: every function answers within its contract ----
TEST(FormatRobustness, AnyWordHasAShortTextAndAConsistentSize) {
  std::mt19937 rng(21);
  for (int i = 0; i < 200000; ++i) {
    uint32_t word = rng();
    char text[21];
    ASSERT_EQ(vidSignalFormatToStr20(word, text), 0);
    ASSERT_LE(std::strlen(text), 20u) << std::hex << word;
    int w = 0, h = 0, fw = 0, fh = 0;
    bool sized = vidImageSize(word, &w, &h, 0) == 0;
    ASSERT_EQ(sized, vidImageSize(word, &fw, &fh, 1) == 0);
    if (sized) {
      ASSERT_GT(w, 0);
      ASSERT_GT(h, 0);
      ASSERT_EQ(fw, w);
      ASSERT_EQ(fh, (word & VID_FMT_INTERLACED) ? h / 2 : h) << std::hex << word;
    }
    KLXVIDEO video{};
    uint32_t rate, scale;
    bool rated = vidRateScale(word, &rate, &scale) == 0;
    ASSERT_EQ(vidSignalFormatToKLXVid(word, &video) == 0, sized && rated) << std::hex << word;
  }
}

// Whatever is measured, the word derived either is "no format" or has a raster and its
// text names the same raster the word decodes to (the 2560/8K words excepted, which carry
// their own texts).
TEST(FormatRobustness, DerivedWordsAlwaysDecode) {
  std::mt19937 rng(22);
  std::uniform_int_distribution<int> sizes(-100, 9000);
  std::uniform_int_distribution<uint32_t> rates(0, 300000), scales(0, 1001);
  int valid = 0;
  for (int i = 0; i < 200000; ++i) {
    int width = sizes(rng), height = sizes(rng);
    uint32_t word = vidGetSignalFormat(rates(rng), scales(rng), width, height, i & 1);
    if (word == VID_FMT_INVALID) continue;
    ++valid;
    int w = 0, h = 0;
    ASSERT_EQ(vidImageSize(word, &w, &h, 0), 0) << std::hex << word;
    char text[21];
    vidSignalFormatToStr20(word, text);
    std::string raster = std::to_string(w) + "x" + std::to_string(h);
    bool named = std::isalpha(static_cast<unsigned char>(text[0]));  // "NTSC", "PAL..."
    if (!named) {
      ASSERT_EQ(std::string(text).rfind(raster, 0), 0u) << text << " vs " << raster;
    }
  }
  EXPECT_GT(valid, 50000);
}

// Real streams: a host measures raster and rate from a stream made by ffmpeg/x264 (as ffprobe
// reports them) and derives a word; the word must give back exactly that raster and rate.

struct Probed {
  int width = 0, height = 0;
  uint32_t rate = 0, scale = 0;
};

Probed probe(const std::string& path) {
  auto r = qtest::runCommand("ffprobe -v error -select_streams v:0 -show_entries stream=width,height,r_frame_rate "
                             "-of csv=p=0 " + qtest::shellQuote(path));
  Probed p;
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(std::sscanf(r.out.c_str(), "%d,%d,%u/%u", &p.width, &p.height, &p.rate, &p.scale), 4) << r.out;
  return p;
}

struct StreamCase { const char* size; const char* rate; int psf; const char* text; };
const StreamCase kStreams[] = {
    {"720x576", "25", 0, "PAL-CCIR601"}, {"720x486", "30000/1001", 0, "NTSC-CCIR601"},
    {"1280x720", "60000/1001", 0, "1280x720P@59.94"}, {"1920x1080", "25", 1, "1920x1080P@25"},
    {"1920x1080", "24000/1001", 0, "1920x1080psf@23.98"}, {"2048x1080", "24", 1, "2048x1080P@24"},
    {"3840x2160", "50", 0, "3840x2160P 50fps"},
};

TEST(FormatInterop, WordsOfProbedStreamsGiveBackTheirRasterAndRate) {
  for (const auto& c : kStreams) {
    std::string rateName = c.rate;
    for (char& ch : rateName)
      if (ch == '/') ch = '_';
    std::string name = std::string("fmt_") + c.size + "_" + rateName + ".mp4";
    std::string path = qtest::encodedStream(name, std::string("-f lavfi -i testsrc2=size=") + c.size + ":rate=" + c.rate +
                                                      " -frames:v 1 -c:v libx264 -preset ultrafast -f mp4");
    ASSERT_FALSE(path.empty());
    Probed p = probe(path);
    SCOPED_TRACE(testing::Message() << name << ": " << p.width << "x" << p.height << " " << p.rate << "/" << p.scale);
    uint32_t word = vidGetSignalFormat(p.rate, p.scale, p.width, p.height, c.psf);
    char text[21];
    vidSignalFormatToStr20(word, text);
    EXPECT_STREQ(text, c.text);
    int w = 0, h = 0;
    ASSERT_EQ(vidImageSize(word, &w, &h, 0), 0);
    EXPECT_EQ(w, p.width);
    EXPECT_EQ(h, p.height);
    uint32_t rate = 0, scale = 0;
    ASSERT_EQ(vidRateScale(word, &rate, &scale), 0);
    EXPECT_EQ(uint64_t{rate} * p.scale, uint64_t{p.rate} * scale);  // the same rate
    uint32_t snappedRate = 0, snappedScale = 0;
    EXPECT_EQ(vidRateScaled(double(p.rate) / p.scale, &snappedRate, &snappedScale), 0);
    EXPECT_EQ(uint64_t{snappedRate} * p.scale, uint64_t{p.rate} * snappedScale);
  }
}

struct VideoCase {
  uint32_t word;
  KLXVIDEO before;  // offsets and flags the record held
  KLXVIDEO after;
};

constexpr uint32_t kAllFlags = 0xFFFFFFFF;

const VideoCase kVideoCases[] = {
    // Named families: fixed offsets; the total raster is offset + picture.
    {0x2210903B, {0, 0, 0, 0, 9, 9, 0, 0, kAllFlags}, {60000, 1001, 1280, 720, 0, 41, 1280, 761, 0}},
    {0x2380B219, {0, 0, 0, 0, 9, 9, 0, 0, 0x1234}, {25, 1, 1920, 1080, 0, 41, 1920, 1121, 0}},
    {0x1380B21D, {0, 0, 0, 0, 9, 9, 0, 0, kAllFlags}, {30000, 1001, 1920, 1080, 0, 40, 1920, 1120, 0x300}},
    {0x1380B21D, {0, 0, 0, 0, 9, 9, 0, 0, 0}, {30000, 1001, 1920, 1080, 0, 40, 1920, 1120, 0x100}},
    {0x1310B21E, {0, 0, 0, 0, 9, 9, 0, 0, 0x8000}, {30, 1, 1920, 1035, 0, 78, 1920, 1113, 0x100}},
    {0x1100401D, {0, 0, 0, 0, 9, 9, 0, 0, 0}, {30000, 1001, 640, 480, 0, 34, 640, 514, 0x100}},
    {0x1120421D, {0, 0, 0, 0, 9, 9, 0, 0, 0}, {30000, 1001, 720, 486, 0, 34, 720, 520, 0x100}},
    {0x11A04019, {0, 0, 0, 0, 9, 9, 0, 0, 0}, {25, 1, 640, 576, 0, 45, 640, 621, 0x100}},
    {0x11A04219, {0, 0, 0, 0, 9, 9, 0, 0, 0}, {25, 1, 720, 576, 0, 45, 720, 621, 0x100}},
    // Other words: sizes from the tokens, offsets kept, scan flags from the word with every
    // other flag cleared.
    {0x1380B232, {0, 0, 0, 0, 7, 9, 0, 0, kAllFlags}, {50, 1, 1920, 1080, 7, 9, 1927, 1089, 0x300}},
    {0x4380B217, {0, 0, 0, 0, 7, 9, 0, 0, kAllFlags}, {24000, 1001, 1920, 1080, 7, 9, 1927, 1089, 0x300}},
    {0x4380B217, {0, 0, 0, 0, 7, 9, 0, 0, 0x4}, {24000, 1001, 1920, 1080, 7, 9, 1927, 1089, 0x200}},
    {0x2640F03C, {0, 0, 0, 0, 1, 2, 0, 0, 0x201}, {60, 1, 3840, 2160, 1, 2, 3841, 2162, 0x200}},
    {0x2650B63C, {0, 0, 0, 0, 0, 0, 0, 0, 0}, {60, 1, 7680, 4096, 0, 0, 7680, 4096, 0}},  // token height
    {0x2380D03C, {0, 0, 0, 0, 0, 0, 0, 0, 0}, {60, 1, 2650, 1080, 0, 0, 2650, 1080, 0}},  // token width
};

bool sameRecord(const KLXVIDEO& a, const KLXVIDEO& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(KLXVid, FilledFromTheWord) {
  for (const auto& c : kVideoCases) {
    KLXVIDEO v = c.before;
    ASSERT_EQ(vidSignalFormatToKLXVid(c.word, &v), 0) << std::hex << c.word;
    EXPECT_TRUE(sameRecord(v, c.after)) << std::hex << c.word << ": " << std::dec << v.Rate << "/" << v.Scale << " "
                                        << v.Width << "x" << v.Height << " +" << v.XOffset << "+" << v.YOffset << " "
                                        << v.TotalWidth << "x" << v.TotalHeight << std::hex << " flags " << v.Flags;
  }
}

TEST(KLXVid, RefusedWordsLeaveTheRecordAlone) {
  const KLXVIDEO original{1, 2, 3, 4, 5, 6, 7, 8, 9};
  for (uint32_t word : {VID_FMT_INVALID, 0x2380B300u /* unknown rate */, 0x2000001Du /* no tokens */}) {
    KLXVIDEO v = original;
    EXPECT_EQ(vidSignalFormatToKLXVid(word, &v), -1) << std::hex << word;
    EXPECT_TRUE(sameRecord(v, original));
  }
  EXPECT_EQ(vidSignalFormatToKLXVid(0x2380B219, nullptr), -1);
}

constexpr uint32_t ratio(uint32_t n, uint32_t d) { return (n << 16) | d; }

TEST(AspectRatio, ByRaster) {
  struct Case { int width, height; uint32_t aspect; };
  const Case kCases[] = {
      {720, 479, 0}, {640, 480, ratio(4, 3)}, {720, 486, ratio(4, 3)}, {100, 525, ratio(4, 3)},
      {720, 576, ratio(4, 3)}, {640, 576, ratio(4, 3)}, {800, 600, ratio(4, 3)}, {639, 576, 0}, {1024, 576, 0},
      {720, 626, 0}, {1280, 720, ratio(16, 9)}, {960, 720, ratio(16, 9)}, {1440, 720, 0},
      {2048, 858, ratio(239, 100)}, {1998, 1080, ratio(185, 100)}, {1440, 1080, ratio(16, 9)},
      {1280, 1080, ratio(16, 9)}, {1920, 1080, ratio(16, 9)}, {2048, 1080, ratio(256, 135)},
      {3840, 2160, ratio(16, 9)}, {4096, 2160, ratio(256, 135)}, {1920, -1080, ratio(16, 9)}, {7680, 4320, 0},
      {1920, 1088, 0}, {4000, 2160, 0}, {100, 526, 0},
  };
  for (const auto& c : kCases)
    EXPECT_EQ(vidGetAspectRatio(0, c.width, c.height), c.aspect) << c.width << "x" << c.height;
  EXPECT_EQ(vidGetAspectRatio(0x2380B219, 0, 0), ratio(16, 9));
  EXPECT_EQ(vidGetAspectRatio(0x11A04219, 0, 0), ratio(4, 3));
  EXPECT_EQ(vidGetAspectRatio(VID_FMT_INVALID, 0, 0), 0u);
}

// The matrix by size, for each forced setting (the loaded value is set directly here; reading
// it from the store is tested with the store).
TEST(Matrix, BySizeAndRange) {
  struct Case { int width, height; uint32_t flags; int forced, matrix; };
  const Case kCases[] = {
      {720, 576, 0, 0, 0}, {720, 576, 0x1000, 0, 1}, {721, 576, 0x1000, 0, 5}, {1920, 1080, 0, 0, 4},
      {1920, 1080, 0x1000, 0, 5}, {1920, 1125, 0x1000, 0, 5}, {1920, 1126, 0x1000, 0, 7}, {3840, 2160, 0, 0, 6},
      {640, -2160, 0x1000, 0, 7}, {720, 576, 0x1000, 1, 0}, {1920, 1080, 0x1000, 1, 4}, {3840, 2160, 0x1FFF, 1, 6},
      {720, 576, 0x1000, 2, 1}, {1920, 1080, 0xEFFF, 2, 4},
  };
  const int saved = m_gForceVideoRangeMatrix;
  for (const auto& c : kCases) {
    m_gForceVideoRangeMatrix = c.forced;
    EXPECT_EQ(GetMatrixBySize(c.width, c.height, c.flags), c.matrix)
        << c.width << "x" << c.height << " flags " << std::hex << c.flags << " forced " << c.forced;
  }
  m_gForceVideoRangeMatrix = saved;
}

// GetMatrixBySize reads "ForceVideoRangeMatrix" from the configuration store, once.
class MatrixStore : public testing::Test {
 protected:
  static constexpr const char* kKey = "Quorvane\\Advanced";
  static constexpr const char* kValue = "ForceVideoRangeMatrix";
  void SetUp() override {
    saved_ = m_gForceVideoRangeMatrix;
    m_gForceVideoRangeMatrix = -1;
  }
  void TearDown() override { m_gForceVideoRangeMatrix = saved_; }
  static void store(uint32_t value) { ASSERT_EQ(qtest::setDword(ZR_CFG_SYSTEM, kKey, kValue, value), ZR_CFG_OK); }
  qtest::TempDir dir_;
  qtest::ScopedEnv config_{"QUORVANE_CONFIG", dir_.file("config.xml").c_str()};
  int saved_ = -1;
};

TEST_F(MatrixStore, ForcedOneKeepsFullRangeAndIsReadOnce) {
  store(1);
  EXPECT_EQ(GetMatrixBySize(1920, 1080, VID_MATRIX_FLAG_VIDEO_RANGE), VID_MATRIX_HD_FULL);
  EXPECT_EQ(m_gForceVideoRangeMatrix, 1);
  store(0);  // not seen: the setting is loaded once
  EXPECT_EQ(GetMatrixBySize(1920, 1080, VID_MATRIX_FLAG_VIDEO_RANGE), VID_MATRIX_HD_FULL);
  m_gForceVideoRangeMatrix = -1;  // ask for a reload
  EXPECT_EQ(GetMatrixBySize(1920, 1080, VID_MATRIX_FLAG_VIDEO_RANGE), VID_MATRIX_HD_VIDEO);
  EXPECT_EQ(m_gForceVideoRangeMatrix, 0);
}

TEST_F(MatrixStore, MissingSettingIsWrittenAsZero) {
  ASSERT_EQ(qtest::getDword(ZR_CFG_SYSTEM, kKey, kValue), std::nullopt);
  EXPECT_EQ(GetMatrixBySize(720, 486, VID_MATRIX_FLAG_VIDEO_RANGE), VID_MATRIX_SD_VIDEO);
  EXPECT_EQ(m_gForceVideoRangeMatrix, 0);
  EXPECT_EQ(qtest::getDword(ZR_CFG_SYSTEM, kKey, kValue), 0u);
}

}  // namespace
