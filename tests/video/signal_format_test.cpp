// Signal-format words: size tokens, word -> size/rate/text, raster + rate -> word.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

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
    uint32_t rate = 0, scale = 0;  // the pair of each rate code is checked in rate_test
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

}  // namespace
