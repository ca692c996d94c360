// MPEG-2 splice of 25 and 29.97 material: stamp keeps counting at the first rate and names the
// change where a sequence header states another frame_rate_code (stderr and --json
// "rateChanges"), as it does for H.264/HEVC SPSs. Pieces by FFmpeg's mpeg2video; GOP time_codes
// read back by ffprobe.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/tcxlat.h"
#include "splice_support.h"
#include "support/ffmpeg_oracle.h"
#include "support/test_support.h"

namespace {

using qtest::shellQuote;

TEST(StampRateChange, Mpeg2SequenceHeadersStatingAnotherRate) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffmpeg missing";
  // Closed GOPs of three pictures without B pictures: GOP k of a piece starts at its picture 3k.
  const std::string kEncoder = " -c:v mpeg2video -g 3 -bf 0 -flags +cgop -sc_threshold 1000000000 -f mpeg2video";
  const auto at25 = splice::piece("rate-25.m2v", "rate=25:size=160x96 -frames:v 7" + kEncoder);
  const auto at2997 = splice::piece("rate-2997.m2v", "rate=30000/1001:size=160x96 -frames:v 5" + kEncoder);
  const auto at50 = splice::piece("rate-50.m2v", "rate=50:size=160x96 -frames:v 4" + kEncoder);
  struct Case {
    const char* name;
    std::vector<uint8_t> stream;
    const char* options;
    std::vector<int> gopStarts;  // display frames of the GOP headers
    std::string warnings;
    nlohmann::json changes;
  };
  const Case cases[] = {
      {"25, 29.97, 25",
       splice::joined({at25, at2997, at25}),
       "",
       {0, 3, 6, 7, 10, 12, 15, 18},
       "quorvane stamp: warning: the stream changes rate at frame 7 (25 fps to 29.97 fps); timecodes keep counting at 25 fps\n"
       "quorvane stamp: warning: the stream changes rate at frame 12 (29.97 fps to 25 fps); timecodes keep counting at 25 fps\n",
       {{{"frame", 7}, {"timecode", "10:00:00:07"}, {"rate", "30000/1001"}},
        {{"frame", 12}, {"timecode", "10:00:00:12"}, {"rate", "25/1"}}}},
      {"25, 50 with --rate 25", splice::joined({at25, at50}), "--rate 25", {0, 3, 6, 7, 10}, "", nlohmann::json::array()},
      {"25 twice", splice::joined({at25, at25}), "", {0, 3, 6, 7, 10, 13}, "", nlohmann::json::array()},
  };
  uint32_t start = 0;
  ASSERT_EQ(tc2Frame("10:00:00:00", TC_PAL | TCF_TEXT, &start), 0);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    qtest::TempDir dir;
    const std::string in = dir.file("in.m2v"), out = dir.file("out.m2v");
    qtest::writeBytes(in, c.stream);
    const auto r = qtest::runTool("stamp " + shellQuote(in) + " " + shellQuote(out) + " --tc 10:00:00:00 --json " + c.options);
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err, c.warnings);
    auto changes = nlohmann::json::parse(r.out).at("rateChanges");
    for (auto& change : changes) change.erase("fps");
    EXPECT_EQ(changes, c.changes);
    std::vector<std::string> expected;
    for (int frame : c.gopStarts) expected.push_back(oracle::printedTimecode(start + uint32_t(frame), TC_PAL));
    EXPECT_EQ(oracle::allTimecodes(out, false), expected);
  }
}

}  // namespace
