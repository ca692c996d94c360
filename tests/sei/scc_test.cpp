#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/tcxlat.h"
#include "streamutil/scc.h"

namespace {

std::vector<SCC_CAPTION> readAll(const std::string& text, uint32_t type, int* rc, uint32_t* line = nullptr) {
  uint32_t count = 0, errorLine = 0;
  *rc = klxutilReadScc(text.data(), text.size(), type, nullptr, 0, &count, &errorLine);
  std::vector<SCC_CAPTION> pairs(count);
  if (*rc == -2) *rc = klxutilReadScc(text.data(), text.size(), type, pairs.data(), count, &count, &errorLine);
  if (line) *line = errorLine;
  pairs.resize(count);
  return pairs;
}

uint32_t framesOf(const char* tc, uint32_t type) {
  uint32_t f = 0;
  EXPECT_EQ(tc2Frame(tc, type | TCF_TEXT, &f), 0) << tc;
  return f;
}

TEST(Scc, PairsGoOutOneAFrameFromTheirTimecode) {
  const std::string text =
      "Scenarist_SCC V1.0\r\n\r\n"
      "00:00:59;28\t9420 9420 c8e5\r\n\r\n"
      "00:01:00;02\t942f\r\n"      // starts before the previous line has finished: goes behind it
      "00:01:10;00\tECEC ef80\n";  // upper-case hex is fine
  int rc = 0;
  const auto pairs = readAll(text, TC_DF2997, &rc);
  ASSERT_EQ(rc, 0);
  const uint32_t t0 = framesOf("00:00:59;28", TC_DF2997), t1 = framesOf("00:01:10;00", TC_DF2997);
  struct Expected {
    uint32_t frame;
    uint8_t a, b;
  };
  const Expected expected[] = {{t0, 0x94, 0x20}, {t0 + 1, 0x94, 0x20}, {t0 + 2, 0xC8, 0xE5},
                               {t0 + 3, 0x94, 0x2F}, {t1, 0xEC, 0xEC},   {t1 + 1, 0xEF, 0x80}};
  ASSERT_EQ(pairs.size(), std::size(expected));
  for (size_t i = 0; i < pairs.size(); ++i) {
    EXPECT_EQ(pairs[i].frame, expected[i].frame) << i;
    EXPECT_EQ(pairs[i].data[0], expected[i].a) << i;
    EXPECT_EQ(pairs[i].data[1], expected[i].b) << i;
  }
}

TEST(Scc, MalformedFilesNameTheLine) {
  struct Case {
    const char* text;
    uint32_t line;
  };
  const Case cases[] = {
      {"", 0},
      {"WEBVTT\n\n00:00:01:00\t9420\n", 1},
      {"Scenarist_SCC V1.0\n\n00:00:01:00\t942\n", 3},        // three hex digits
      {"Scenarist_SCC V1.0\n\n00:00:01:00\t9421\n", 3},       // 0x21 has even parity
      {"Scenarist_SCC V1.0\n\n00:00:01:00\n", 3},             // no data
      {"Scenarist_SCC V1.0\n\n00:00:99:00\t9420\n", 3},       // seconds out of range
      {"Scenarist_SCC V1.0\n\n9420 9420\n", 3},               // no timecode
      {"Scenarist_SCC V1.0\n\n00:00:01:00\t9420\nxx\n", 4},
  };
  for (const auto& c : cases) {
    int rc = 0;
    uint32_t line = 99;
    const auto pairs = readAll(c.text, TC_PAL, &rc, &line);
    EXPECT_EQ(rc, -1) << c.text;
    EXPECT_EQ(line, c.line) << c.text;
    EXPECT_TRUE(pairs.empty());
  }
}

TEST(Scc, CapacityIsNeverOverrun) {
  const std::string text = "Scenarist_SCC V1.0\n\n00:00:00:00\t9420 9420 942c 942f\n";
  SCC_CAPTION pairs[3] = {};
  SCC_CAPTION guard{0xABCD, {1, 2}};
  uint32_t count = 0;
  pairs[2] = guard;
  EXPECT_EQ(klxutilReadScc(text.data(), text.size(), TC_PAL, pairs, 2, &count, nullptr), -2);
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(pairs[1].data[1], 0x20);
  EXPECT_EQ(pairs[2].frame, 0xABCDu) << "third slot untouched";
  EXPECT_EQ(klxutilReadScc(nullptr, 0, TC_PAL, pairs, 2, &count, nullptr), -1);
}

}  // namespace
