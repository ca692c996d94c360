// HEVC field coding: no slice header says that its picture is a field, the SPS's VUI does
// (field_seq_flag), so inspect's frame count must read it there. x265 writes the stream and
// ffprobe counts the field pictures; trace_headers shows the flag.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "support/test_support.h"

namespace {
using qtest::shellQuote;

TEST(InspectFields, HevcFieldSequencePicturesPairIntoFrames) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffmpeg missing";
  struct Case {
    const char* x265Params;
    int fieldSeqFlag;
  };
  for (const Case& c : {Case{"interlace=tff:field=1", 1}, Case{"interlace=false", 0}}) {
    SCOPED_TRACE(c.x265Params);
    const std::string encode = "-f lavfi -i testsrc2=size=320x240:rate=25 -frames:v 10 -c:v libx265 -x265-params " +
                               std::string(c.x265Params) + ":log-level=error";
    const std::string name = "fieldseq-" + std::to_string(c.fieldSeqFlag);
    const std::string es = qtest::encodedStream(name + ".hevc", encode + " -f hevc");
    const std::string mkv = qtest::encodedStream(name + ".mkv", encode + " -f matroska");
    ASSERT_FALSE(es.empty() || mkv.empty());
    const auto trace = qtest::runCommand("ffmpeg -nostdin -v trace -i " + shellQuote(es) + " -c copy -bsf:v trace_headers -f null - 2>&1");
    std::smatch flag;
    ASSERT_TRUE(std::regex_search(trace.out, flag, std::regex("field_seq_flag +[01]+ = ([01])")));
    EXPECT_EQ(std::stoi(flag[1]), c.fieldSeqFlag);
    for (const std::string& path : {es, mkv}) {
      SCOPED_TRACE(path);
      const auto pictures = qtest::runCommand("ffprobe -v error -count_frames -show_entries stream=nb_read_frames -of csv=p=0 " + shellQuote(path));
      const auto r = qtest::runTool("inspect " + shellQuote(path) + " --json");
      ASSERT_EQ(r.exitCode, 0) << r.err;
      const auto json = nlohmann::json::parse(r.out);
      const size_t expected = std::stoul(pictures.out);
      EXPECT_EQ(json["accessUnits"].get<size_t>(), expected);
      EXPECT_EQ(json["frames"].get<size_t>(), c.fieldSeqFlag ? (expected + 1) / 2 : expected);
    }
  }
}

}  // namespace
