// What a word fills in: the video sub-record, the aspect ratio and the colour matrix (forced or
// not by the configuration store).
#include <gtest/gtest.h>

#include <cstring>

#include "support/config_values.h"
#include "support/h16_process.h"
#include "support/test_support.h"
#include "video/vidformat.h"
#include "video/video.h"

namespace {

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
