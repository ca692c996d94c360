// quorvane nal on real streams, checked against ffmpeg's reading of them, and the one-line
// refusals of nal, reframe and inspect.
#include <gtest/gtest.h>

#include <sstream>

#include "support/ffmpeg_oracle.h"
#include "support/test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;

const oracle::Stream& kX264 = oracle::kStreams[0];  // sliced, with access unit delimiters
const oracle::Stream& kX265 = oracle::kStreams[3];

class Cli : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!qtest::haveProgram("ffmpeg") || !qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffmpeg not installed";
  }
};

struct ListedUnit {
  long offset, size, startCode, type;
};

std::vector<ListedUnit> parseNalListing(const std::string& text) {
  std::vector<ListedUnit> units;
  std::istringstream lines(text);
  std::string line;
  std::getline(lines, line);  // heading
  while (std::getline(lines, line)) {
    ListedUnit u;
    if (std::sscanf(line.c_str(), "%ld %ld %ld %ld", &u.offset, &u.size, &u.startCode, &u.type) == 4) units.push_back(u);
  }
  return units;
}

// Every unit that trace_headers reads, with the same type, at an offset where the file holds a
// start code of the listed length.
TEST_F(Cli, NalListsTheUnitsFfmpegReads) {
  for (const oracle::Stream& stream : {kX264, kX265}) {
    SCOPED_TRACE(stream.name);
    std::string path = qtest::encodedStream(stream.name, stream.ffmpegArgs);
    auto r = qtest::runTool("nal " + qtest::shellQuote(path));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    auto listed = parseNalListing(r.out);
    auto traced = oracle::traceUnits(path);
    Bytes bytes = qtest::readBytes(path);
    ASSERT_EQ(listed.size(), traced.size());
    for (size_t i = 0; i < listed.size(); i++) {
      EXPECT_EQ(listed[i].type, traced[i].nalUnitType) << "unit " << i;
      const long at = listed[i].offset;
      ASSERT_LE(static_cast<size_t>(at + listed[i].startCode + listed[i].size), bytes.size());
      EXPECT_EQ(bytes[at + listed[i].startCode - 1], 0x01);
      EXPECT_EQ(bytes[at], 0x00);
    }
  }
}

// reframe's conversions: RealStream.FramingAndLookupMatchMp4Samples (the library against ffmpeg's MP4
// samples), Containers.StandardInputAndOutput (--to length then --to annexb decode unchanged) and
// CommandJson; inspect's codec and frame counts: Containers.ReadOnlyCommandsAgreeWithFfprobe and
// FieldPictures (tests/media). The one-line messages these commands share with the other stream
// commands are CommandJson.BadInputGivesOneLineAndAJsonError's rows.
TEST_F(Cli, BadInputFailsWithOneLine) {
  qtest::TempDir dir;
  qtest::writeBytes(dir.file("noise.bin"), Bytes{0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0, 0x11});
  qtest::writeBytes(dir.file("cut.len"), Bytes{0x00, 0x00, 0x00, 0x02, 0x09, 0xF0, 0x00, 0x00, 0x00, 0x09, 0x41});
  qtest::writeBytes(dir.file("empty"), Bytes{});
  struct Case {
    std::string args;
    int exitCode;
    std::string message;
  } cases[] = {
      {"nal", 2, "quorvane nal: expected one FILE (see quorvane nal --help)\n"},
      {"nal " + dir.file("noise.bin"), 1, "quorvane nal: " + dir.file("noise.bin") + ": no H.264, HEVC or MPEG-2 video found (neither an elementary stream nor a known container)\n"},
      {"reframe --to annexb " + dir.file("cut.len") + " " + dir.file("o"), 1, "quorvane reframe: " + dir.file("cut.len") + ": no H.264, HEVC or MPEG-2 video found (neither an elementary stream nor a known container)\n"},
      {"inspect " + dir.path(), 1, "quorvane inspect: " + dir.path() + " is a directory\n"},
      {"nal " + dir.file("empty"), 1, "quorvane nal: " + dir.file("empty") + " is empty\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args);
    auto r = qtest::runTool(c.args);
    EXPECT_EQ(r.exitCode, c.exitCode);
    EXPECT_EQ(r.err, c.message);
  }
}

}  // namespace
