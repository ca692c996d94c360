// quorvane stamp on MPEG-2 video: GOP time_code rewritten in place (ffprobe reads it),
// captions as picture user data (read back by quorvane captions), pictures unchanged.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/tcxlat.h"
#include "streamutil/scc.h"
#include "support/ffmpeg_oracle.h"
#include "support/edit_support.h"

namespace {

using qtest::shellQuote;

TEST(Mpeg2Stamp, GopTimecodesAndCaptionsRoundTrip) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP();
  struct Case {
    const char* fps;
    const char* rate;
    uint32_t type;
    const char* start;
    const char* scc;
  } cases[] = {
      {"30000/1001", "29.97", TC_DF2997, "00:00:59;26", "Scenarist_SCC V1.0\n\n00:00:59;28\t9420 9420 94ae c8e9 942f 942f\n"},
      {"25", "25", TC_PAL, "09:59:59:20", "Scenarist_SCC V1.0\n\n10:00:00:01\t9420 9420 94ae c8e9 942f 942f\n"},
      {"24", "24", TC_FILM, "00:09:59:20", "Scenarist_SCC V1.0\n\n00:10:00:03\t9420 c8e9 942f\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.rate);
    qtest::TempDir dir;
    const std::string in = dir.file("in.m2v"), out = dir.file("out.m2v");
    auto r = qtest::runCommand(std::string("ffmpeg -v error -f lavfi -i testsrc2=size=160x96:rate=") + c.fps +
                               " -frames:v 30 -c:v mpeg2video -g 6 -bf 2 -flags +cgop -sc_threshold 1000000000 -timecode 01:02:03:04 " + shellQuote(in));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    qtest::writeText(dir.file("cc.scc"), c.scc);
    r = qtest::runTool("stamp " + shellQuote(in) + " " + shellQuote(out) + " --tc '" + c.start + "' --captions " +
                       shellQuote(dir.file("cc.scc")));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find(std::string(" at ") + c.rate), std::string::npos) << r.out;
    EXPECT_TRUE(r.err.empty()) << "no cue outside the range: " << r.err;
    // Every GOP header carries the timecode of its first picture in display order: as far
    // from the start as FFmpeg's own (closed-GOP) time_codes in the input are from theirs.
    const auto theirs = oracle::allTimecodes(in, false), ours = oracle::allTimecodes(out, false);
    // FFmpeg counted "01:02:03:04" non-drop.
    qtest::expectGopTimecodesFollow(ours, theirs, c.start, c.type, c.type == TC_DF2997 ? TC_NDF30 : c.type);
    EXPECT_GE(ours.size(), 5u);
    EXPECT_EQ(oracle::pictureChecksums(out), oracle::pictureChecksums(in));
    // The caption pairs come back at their timecodes.
    r = qtest::runTool("captions extract " + shellQuote(out) + " -o " + shellQuote(dir.file("back.scc")));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(qtest::sccPairs(qtest::readText(dir.file("back.scc")), c.type), qtest::sccPairs(c.scc, c.type));
  }
}

}  // namespace
