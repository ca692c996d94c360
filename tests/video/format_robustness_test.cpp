// Arbitrary words and measurements: every function answers within its contract.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <cctype>

#include "video/video.h"

namespace {

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

}  // namespace
