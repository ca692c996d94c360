// --master-display values outside ITU-T H.265 D.3.28 / H.264 D.2.29 (SMPTE ST 2086) are refused by
// the parser: chromaticities above 50000 (x, y > 1) and a maximum luminance not above the minimum
// (L(min,max) typed the wrong way round). The message `quorvane hdr` prints for them is a row of
// the command's refusal table (tests/media/command_json_test.cpp).
#include <gtest/gtest.h>

#include "streamutil/hdr_sei.h"
#include "support/test_support.h"

namespace {

const struct {
  const char* text;
  int result;
} kRangeCases[] = {
    {"G(50000,50000)B(0,0)R(50000,0)WP(50000,50000)L(2,1)", 0},  // the bounds themselves
    {"G(50001,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)", -1},
    {"G(13250,60000)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)", -1},
    {"G(13250,34500)B(50001,3000)R(34000,16000)WP(15635,16450)L(10000000,1)", -1},
    {"G(13250,34500)B(7500,3000)R(34000,50001)WP(15635,16450)L(10000000,1)", -1},
    {"G(13250,34500)B(7500,3000)R(34000,16000)WP(50001,16450)L(10000000,1)", -1},
    {"G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,65535)L(10000000,1)", -1},
    {"G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(1,10000000)", -1},  // min first
    {"G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(500,500)", -1},
    {"G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(4294967295,4294967294)", 0},
    // The notation itself: every part, nothing behind it, numbers that fit their fields.
    {"G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)", -1},
    {"G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)x", -1},
    {"G(65536,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)", -1},
    {"G(-1,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)", -1},
    {"G(1,2)B(3,4)R(5,6)WP(7,8)L(4294967296,1)", -1},
};

TEST(MasteringDisplayRange, ParserKeepsToTheNotationAndTheStandardRanges) {
  for (const auto& c : kRangeCases) {
    KLX_MASTERING_DISPLAY m{};
    EXPECT_EQ(klxutilParseMasteringDisplay(c.text, &m), c.result) << c.text;
  }
  // Spaces between the parts are allowed; the values land green first, red last.
  KLX_MASTERING_DISPLAY m{};
  ASSERT_EQ(klxutilParseMasteringDisplay("G(13250, 34500) B(7500,3000) R(34000,16000) WP(15635,16450) L(10000000,1)", &m), 0);
  EXPECT_EQ(m.display_primaries_x[0], 13250);
  EXPECT_EQ(m.display_primaries_y[2], 16000);
  EXPECT_EQ(m.min_display_mastering_luminance, 1u);
}

}  // namespace
