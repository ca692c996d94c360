// GetMatrixBySize reads "ForceVideoRangeMatrix" from the configuration store, once.
#include <gtest/gtest.h>

#include "platform/zrcfg.h"
#include "support/h16_process.h"
#include "support/test_support.h"
#include "video/vidformat.h"

namespace {

constexpr const char* kKey = "Quorvane\\Advanced";
constexpr const char* kValue = "ForceVideoRangeMatrix";

class MatrixStore : public testing::Test {
 protected:
  void SetUp() override {
    saved_ = m_gForceVideoRangeMatrix;
    m_gForceVideoRangeMatrix = -1;
  }
  void TearDown() override { m_gForceVideoRangeMatrix = saved_; }
  static void store(uint32_t value) { ASSERT_EQ(zrCFGValueDword(ZR_CFG_SYSTEM, kKey, kValue, &value, 1), ZR_CFG_OK); }
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
  uint32_t value = 77;
  ASSERT_EQ(zrCFGValueDword(ZR_CFG_SYSTEM, kKey, kValue, &value, 0), ZR_CFG_NOT_FOUND);
  EXPECT_EQ(GetMatrixBySize(720, 486, VID_MATRIX_FLAG_VIDEO_RANGE), VID_MATRIX_SD_VIDEO);
  EXPECT_EQ(m_gForceVideoRangeMatrix, 0);
  ASSERT_EQ(zrCFGValueDword(ZR_CFG_SYSTEM, kKey, kValue, &value, 0), ZR_CFG_OK);
  EXPECT_EQ(value, 0u);
}

TEST_F(MatrixStore, OtherForcedValuesBehaveAsZero) {
  store(2);
  EXPECT_EQ(GetMatrixBySize(3840, 2160, VID_MATRIX_FLAG_VIDEO_RANGE), VID_MATRIX_UHD_VIDEO);
  EXPECT_EQ(m_gForceVideoRangeMatrix, 2);
}

}  // namespace
