// captions extract -o x.scc lays the file out as Scenarist SCC does: the header line, then one
// blank line in front of each caption line. A file in that layout comes back byte for byte
// through stamp --captions and extract, and FFmpeg's SCC demuxer reads ours as it reads it.
#include <gtest/gtest.h>

#include "support/h16_text_files.h"
#include "support/test_support.h"

namespace {

// Pop-on "Hello" shown at 00:00:00:05, erased at 00:00:01:10 (two caption lines, a gap between).
const char* kScc =
    "Scenarist_SCC V1.0\n\n"
    "00:00:00:05\t9420 9420 94ae 94ae 9452 9452 c8e5 ecec ef80 942f 942f\n\n"
    "00:00:01:10\t942c 942c\n";

std::string ffmpegSrt(const std::string& scc) {
  const auto r = qtest::runCommand("ffmpeg -v error -i " + qtest::shellQuote(scc) + " -f srt -");
  EXPECT_EQ(r.exitCode, 0) << r.err;
  return r.out;
}

TEST(SccExtractLayout, OneBlankLineAfterTheHeaderAndBetweenLines) {
  if (!qtest::haveProgram("ffmpeg")) GTEST_SKIP() << "ffmpeg missing";
  const std::string stream = qtest::encodedStream(
      "scc_layout.264", "-f lavfi -i testsrc2=size=64x64:rate=25 -frames:v 60 -c:v libx264 -f h264");
  ASSERT_FALSE(stream.empty());
  qtest::TempDir dir;
  const std::string in = dir.file("in.scc");
  qtest::writeText(in, kScc);
  std::string previous = in;
  for (const char* round : {"1", "2"}) {  // the extracted file stamps and extracts to itself
    SCOPED_TRACE(round);
    const std::string stamped = dir.file(std::string("s") + round + ".264"), out = dir.file(std::string("o") + round + ".scc");
    auto r = qtest::runTool("stamp " + qtest::shellQuote(stream) + " " + qtest::shellQuote(stamped) +
                            " --tc 00:00:00:00 --rate 25 --captions " + qtest::shellQuote(previous));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    r = qtest::runTool("captions extract " + qtest::shellQuote(stamped) + " -o " + qtest::shellQuote(out));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(qtest::readText(out), kScc);
    const std::string srt = ffmpegSrt(out);
    EXPECT_NE(srt.find("Hello"), std::string::npos) << srt;
    EXPECT_EQ(srt, ffmpegSrt(in));
    previous = out;
  }
}

}  // namespace
