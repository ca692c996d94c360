// The SPSs of an H.264 stream by id: which one a picture finds, and what an unreadable SPS or a
// unit of another kind does to the set (nothing).
#include <gtest/gtest.h>

#include <memory>

#include "streamutil/avc_sps_set.h"
#include "support/param_streams.h"
#include "support/test_support.h"

namespace {

using ptest::Bytes;

Bytes spsOf(const std::string& path) {
  const auto units = ptest::splitAnnexB(qtest::readBytes(path));
  const Bytes* sps = ptest::firstAvcUnit(units, 7);
  return sps ? *sps : Bytes{};
}

TEST(AvcSpsSet, APictureFindsTheSpsOfItsIdAndBadUnitsChangeNothing) {
  const Bytes sps0 = spsOf(ptest::x264Stream("sps-set-0.264", "yuv420p", "-profile:v high", "160x90"));
  const Bytes sps3 = spsOf(ptest::x264Stream("sps-set-3.264", "yuv420p", "-profile:v main -x264-params sps-id=3", "176x96"));
  ASSERT_FALSE(sps0.empty());
  ASSERT_FALSE(sps3.empty());
  auto set = std::make_unique<KLXUTIL_AVC_SPS_SET>();
  ASSERT_EQ(klxutilAvcSpsSetInit(set.get()), 0);
  EXPECT_EQ(klxutilAvcSpsSetFind(set.get(), -1), nullptr);
  EXPECT_EQ(klxutilAvcSpsSetLearn(set.get(), sps0.data(), uint32_t(sps0.size())), 0);
  EXPECT_EQ(klxutilAvcSpsSetLearn(set.get(), sps3.data(), uint32_t(sps3.size())), 0);
  const Bytes pps = {0x68, 0xEB, 0xE3, 0xCB, 0x22, 0xC0};
  const Bytes truncated0(sps0.begin(), sps0.begin() + 4);
  struct Case {
    const char* what;
    const Bytes& unit;
    int learnt;
  };
  const Case cases[] = {{"a PPS", pps, 1}, {"an SPS cut short", truncated0, -1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(klxutilAvcSpsSetLearn(set.get(), c.unit.data(), uint32_t(c.unit.size())), c.learnt);
    const SPS_DECODED* first = klxutilAvcSpsSetFind(set.get(), 0);
    const SPS_DECODED* last = klxutilAvcSpsSetFind(set.get(), -1);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(first->profile_idc, 100);
    EXPECT_EQ(last->seq_parameter_set_id, 3);  // an id not known: the SPS learnt last
    EXPECT_EQ(last->profile_idc, 77);
    EXPECT_EQ(klxutilAvcSpsSetFind(set.get(), 1), nullptr);
    EXPECT_EQ(klxutilAvcSpsSetFind(set.get(), 32), nullptr);
  }
}

}  // namespace
