// The one-line refusals of nal, reframe and inspect. quorvane nal on real streams is checked
// against ffmpeg's reading of them in RealStream.UnitWalkMatchesTraceHeaders.
#include <gtest/gtest.h>

#include "support/test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;

// reframe's conversions: RealStream.FramingAndLookupMatchMp4Samples (the library against ffmpeg's MP4
// samples), Containers.StandardInputAndOutput (--to length then --to annexb decode unchanged) and
// CommandJson; inspect's codec and frame counts: Containers.ReadOnlyCommandsAgreeWithFfprobe and
// FieldPictures (tests/media). The one-line messages these commands share with the other stream
// commands are CommandJson.BadInputGivesOneLineAndAJsonError's rows.
TEST(Cli, BadInputFailsWithOneLine) {
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
