// The timecode-type vocabulary: every spelling finds one canonical entry, each entry agrees with
// the library's own timing of its type, and the caption and SEI codes match their writers'.
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>

#include "platform/tcxlat.h"
#include "streamutil/captions.h"
#include "video/video.h"

namespace {

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

}  // namespace
