// An MP4/MOV whose moov box follows the media data needs a seek back that a pipe cannot do once
// the media outgrows libavformat's buffer: inspect from standard input then says so in one line
// and names what works. A small such file and a faststart one (moov first) still read from the
// pipe as from their names.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/test_support.h"

namespace {

using qtest::shellQuote;

qtest::CommandResult inspectPiped(const std::string& path) {
  return qtest::runCommand("cat " + shellQuote(path) + " | " + shellQuote(QUORVANE_TOOL) + " inspect --json -");
}

// 30 lossless 320x240 pictures: some 150 KB of media in front of a moov that ffmpeg writes last
// unless told otherwise.
const std::string kLarge = "-f lavfi -i testsrc2=size=320x240:rate=25 -frames:v 30 -c:v libx264 -qp 0 ";
const std::string kSmall = "-f lavfi -i testsrc2=size=64x64:rate=25 -frames:v 30 -c:v libx264 ";

TEST(PipeMp4, MoovAfterTheMediaIsRefusedUnlessSmallOrFaststart) {
  if (!qtest::haveProgram("ffmpeg")) GTEST_SKIP() << "ffmpeg missing";
  struct Case {
    std::string name, args;
    bool refused;
  };
  const Case cases[] = {{"pipe_large_moov_last.mp4", kLarge + "-f mp4", true},
                        {"pipe_large_moov_last.mov", kLarge + "-f mov", true},
                        {"pipe_large_faststart.mp4", kLarge + "-movflags +faststart -f mp4", false},
                        {"pipe_small_moov_last.mp4", kSmall + "-f mp4", false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = qtest::encodedStream(c.name, c.args);
    ASSERT_FALSE(path.empty());
    const auto piped = inspectPiped(path);
    const auto named = qtest::runTool("inspect --json " + shellQuote(path));
    ASSERT_EQ(named.exitCode, 0) << named.err;  // by its name it reads
    if (c.refused) {
      EXPECT_EQ(piped.exitCode, 1);
      EXPECT_EQ(piped.err,
                "quorvane inspect: -: an MP4/MOV file with its moov box after the media data cannot be read from a "
                "pipe; give the file name, or remux it: ffmpeg -i IN -c copy -movflags +faststart OUT\n");
      continue;
    }
    ASSERT_EQ(piped.exitCode, 0) << piped.err;
    auto a = nlohmann::json::parse(piped.out), b = nlohmann::json::parse(named.out);
    EXPECT_EQ(a.at("frames"), 30);
    a.erase("file"), b.erase("file");
    EXPECT_EQ(a, b);
  }
}

}  // namespace
