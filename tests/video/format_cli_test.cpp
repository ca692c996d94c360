// quorvane format: decoding words and deriving them from the command line.
#include <gtest/gtest.h>

#include <string>

#include "support/h16_process.h"
#include "support/test_support.h"

namespace {

class FormatCli : public testing::Test {
 protected:
  // The matrix lookup reads (and may write) the configuration store: keep it in a temp file.
  qtest::TempDir dir_;
  qtest::ScopedEnv config_{"QUORVANE_CONFIG", dir_.file("config.xml").c_str()};
};

// The verbs and options, each once: the output holds the expected text, and a --json output is
// one object. (What the words, rates and steps are is the library's: the other tests here.)
TEST_F(FormatCli, DecodesAndDerivesWordsRatesTimecodesAndPlaySteps) {
  struct Case { const char* args; const char* expected; };
  const Case kCases[] = {
      // A word decoded: every line of the report, in order.
      {"format 0x1380B21D",
       "word        0x1380B21D\ntext        \"1920x1080i@29.97\"\nraster      1920x1080 (field 1920x540)\n"
       "scan        interlaced\nrate        30000/1001 frames per second (29.970 fps, 33 ms per frame), "
       "60000/1001 fields per second\ntimecode    29.97df (4)\naspect      16:9\nmatrix      4 (BT.709 full range)\n"},
      // A rate counts frames; the scan is progressive unless asked (or the raster has no other).
      {"format 1920x1080 30000/1001 --json", "\"word\":\"0x2380B21D\""},
      {"format 1920x1080 23.976 --scan psf --json", "\"text\":\"1920x1080psf@23.98\""},
      // PsF at 25 is the interlaced word's raster and rate as a segmented word.
      {"format 1920x1080 25 --scan psf --json", "\"text\":\"1920x1080psf@25\""},
      {"format 1920x1080 25 --scan interlaced --json", "\"word\":\"0x1380B219\""},
      {"format 1920x1080 50 --scan interlaced --field-rate --json", "\"frameRate\":\"25/1\",\"fieldRate\":\"50/1\""},
      {"format 1920x1080 29.97df --json", "\"frameRate\":\"30000/1001\",\"fieldRate\":null"},
      {"format 720x576 12.5 --json", "\"frameRate\":null"},
      {"format 3840x2160 60000/1001 --video-range --json", "\"matrix\":7"},
      // The question is said back as it was typed, not as its exact fraction (2997/50).
      {"format 3840x2160 59.94 --json", "{\"derivedFrom\":\"3840x2160 at 59.94 frames per second\",\"word\":\"0x2640F03B\""},
      {"format 1920x1080 59.94 --scan interlaced --field-rate --json",
       "\"derivedFrom\":\"1920x1080 at 59.94 fields per second interlaced\",\"word\":\"0x1380B21D\""},
      {"format rate 29.97", "normalized  30000/1001\nsnapped     30000/1001 (exact)\ntimecode    29.97df (4)\n"},
      {"format rate 12.5 --json", "\"snapped\":\"12/1\",\"snappedExact\":false"},
      {"format tc 107892 29.97 pal", "from        107892 29.97df 01:00:00;00\nto          90000 25 01:00:00:00\n"},
      {"format tc 90000 25 4 --json", "\"converted\":107892,\"toTimecode\":\"01:00:00;00\""},
      {"format play 1/4 --from 199 --range 0:200 --steps 3",
       "step  periods  frame  fraction\n1     2        0      0\n2     4        1      0\n3     4        2      0\n"},
      {"format play -1/2 --from 1 --range 0:10 --steps 2 --json",
       "\"steps\":[{\"periods\":2,\"frame\":0,\"fraction\":32760},{\"periods\":2,\"frame\":9,\"fraction\":32760}]"},
  };
  for (const auto& c : kCases) {
    auto r = qtest::runTool(c.args);
    ASSERT_EQ(r.exitCode, 0) << c.args << ": " << r.err;
    EXPECT_NE(r.out.find(c.expected), std::string::npos) << c.args << " ->\n" << r.out;
    if (std::string(c.args).find("--json") != std::string::npos) {
      EXPECT_EQ(r.out.front(), '{') << c.args;
    }
  }
}

// Each refusal the command has: exit 2 for a wrong command line, 1 for a well-formed question
// without an answer, and one line that says what was wrong.
TEST_F(FormatCli, RefusesBadInputWithOneLine) {
  struct Case { const char* args; int exitCode; const char* says; };
  const Case kCases[] = {
      {"format", 2, "give a format word, or a raster and a rate"},
      {"format 1920x1080", 2, "'1920x1080' is not a format word"},
      {"format 19x 25", 2, "'19x' is not a raster"},
      {"format 1920x1080 0/0", 2, "'0/0' is not a rate"},
      {"format 0xF0000000", 1, "0xF0000000 is not a valid format word (no raster)"},
      {"format 100x100 25", 1, "no format word for 100x100 at 25 frames per second"},
      {"format 1280x720 50 --scan interlaced", 1, "no format word for 1280x720 at 50 frames per second interlaced"},
      {"format 0x2380B21D --scan psf", 2, "--scan and --field-rate apply only when deriving"},
      {"format 1920x1080 50 --field-rate", 2, "--field-rate needs --scan interlaced"},
      {"format 1920x1080 50 --scan sideways", 2, "--scan takes progressive, interlaced or psf, not 'sideways'"},
      {"format --bogus 0x2380B21D", 2, "--bogus"},
      {"format 0x2380B21D --from 3", 2, "--from applies only to play"},
      {"format rate 25 --video-range", 2, "--video-range does not apply to rate"},
      {"format rate x", 2, "'x' is not a rate"},
      {"format tc 27 30000/1001 pal", 1, "does not exist in"},  // 00:00:00;27 has no PAL frame 27
      {"format tc 1 25 nosuch", 2, "unknown timecode type 'nosuch'"},
      {"format tc 1 25", 2, "tc takes FRAMES RATE TYPE"},
      {"format play 1/0", 2, "'1/0' is not a speed"},
      {"format play 1 --steps 0", 2, "--steps takes 1.."},
      {"format play 1 --range 5", 2, "--range takes FIRST:END"},
  };
  for (const auto& c : kCases) {
    auto r = qtest::runTool(c.args);
    EXPECT_EQ(r.exitCode, c.exitCode) << c.args;
    EXPECT_EQ(r.err.rfind(std::string("quorvane format: "), 0), 0u) << c.args << ": " << r.err;
    EXPECT_NE(r.err.find(c.says), std::string::npos) << c.args << ": " << r.err;
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << c.args << ": " << r.err;
  }
}

}  // namespace
