// quorvane params / hvcc: sizes and profiles agree with ffprobe; hvcC files round-trip; errors.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/edit_support.h"
#include "support/param_streams.h"
#include "support/test_support.h"

namespace {

std::string ffprobeField(const std::string& path, const std::string& field) {
  auto r = qtest::runCommand("ffprobe -v error -select_streams v:0 -show_entries stream=" + field +
                             " -of default=nw=1:nk=1 " + qtest::shellQuote(path));
  std::string out = r.out;
  while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
  return out;
}

TEST(ParamsCommand, SummaryAgreesWithFfprobe) {
  const std::string paths[] = {
      ptest::x265Stream("odd_size_crop", "yuv420p", "", "100x58"),
      ptest::x265Stream("main10", "yuv420p10le", "", "64x64"),
      ptest::x264Stream("colour_sar_crop", "yuv420p",
                        "-profile:v high -x264-params colorprim=bt2020:transfer=smpte2084:colormatrix=bt2020nc:range=pc:sar=5/7:chromaloc=1:overscan=show",
                        "100x58"),
      ptest::x264Stream("high422", "yuv422p10le", "-profile:v high422", "64x64"),
  };
  for (const auto& path : paths) {
    auto r = qtest::runTool("params --json " + qtest::shellQuote(path));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto summary = nlohmann::json::parse(r.out).at("summary");
    EXPECT_EQ(std::to_string(summary.at("width").get<int>()), ffprobeField(path, "width")) << path;
    EXPECT_EQ(std::to_string(summary.at("height").get<int>()), ffprobeField(path, "height")) << path;
    EXPECT_EQ(summary.at("profile"), ffprobeField(path, "profile")) << path;
    std::string pixFmt = ffprobeField(path, "pix_fmt");
    EXPECT_EQ(pixFmt.find("10") != std::string::npos, summary.at("bitDepthLuma") == 10) << pixFmt;
    auto text = qtest::runTool("params " + qtest::shellQuote(path));
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_NE(text.out.find("x" + ffprobeField(path, "height") + ","), std::string::npos) << text.out;
    // The rate as ffprobe reduces it (x264's VUI gives 50/2 for 25 frames per second).
    EXPECT_NE(text.out.find(" fps (" + ffprobeField(path, "r_frame_rate") + ")"), std::string::npos) << text.out;
  }
}

TEST(HvccCommand, WritesABoxThatReadsBack) {
  std::string stream = ptest::x265Stream("main_hrd", "yuv420p", "hrd=1:vbv-maxrate=500:vbv-bufsize=500", "64x64");
  qtest::TempDir dir;
  auto w = qtest::runTool("hvcc " + qtest::shellQuote(stream) + " -o " + qtest::shellQuote(dir.file("h.bin")));
  ASSERT_EQ(w.exitCode, 0) << w.err;
  auto box = qtest::readBytes(dir.file("h.bin"));
  ASSERT_GT(box.size(), 8u);
  EXPECT_EQ(std::string(box.begin() + 4, box.begin() + 8), "hvcC");
  EXPECT_EQ(size_t(box[3]) | size_t(box[2]) << 8, box.size());
  auto r = qtest::runTool("hvcc --json --read " + qtest::shellQuote(dir.file("h.bin")));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto j = nlohmann::json::parse(r.out);
  EXPECT_EQ(j.at("header").at("numOfArrays"), 3);
  EXPECT_EQ(j.at("summary").at("width"), 64);
  EXPECT_EQ(j.at("header").at("lengthSizeMinusOne"), 3);
}

// The refusals of params, hvcc and dvcc (0: any failure). Run in the scratch directory, so that
// dvcc's relative names are its files.
TEST(ParamsCommands, RefuseBadInputWithOneLine) {
  qtest::TempDir dir;
  qtest::writeBytes(dir.file("junk.bin"), {1, 2, 3, 4, 5});
  qtest::writeBytes(dir.file("short.bin"), ptest::Bytes(23, 0));
  ptest::Bytes badSize = {0, 0, 0, 40, 'd', 'v', 'v', 'C'};
  badSize.resize(32, 0);
  qtest::writeBytes(dir.file("badsize.bin"), badSize);
  ptest::Bytes longBox = {0, 0, 0, 33, 'd', 'v', 'c', 'C'};
  longBox.resize(33, 0);
  qtest::writeBytes(dir.file("long.bin"), longBox);
  qtest::writeBytes(dir.file("exists.bin"), ptest::Bytes(3, 1));
  std::string h264 = ptest::x264Stream("main", "yuv420p", "-profile:v main", "64x48");
  struct Case {
    std::string command, args;
    int exitCode;
  } cases[] = {
      {"params", "", 2},
      {"params", dir.file("missing.h264"), 1},
      {"params", dir.file("junk.bin"), 1},
      {"params", "--bogus x", 2},
      {"hvcc", h264 + " -o " + dir.file("x.bin"), 1},
      {"hvcc", h264, 2},
      {"hvcc", "--read " + dir.file("junk.bin"), 1},
      {"dvcc", "--read short.bin", 0},
      {"dvcc", "--read badsize.bin", 0},
      {"dvcc", "--read long.bin", 0},
      {"dvcc", "--read missing.bin", 0},
      {"dvcc", "-o out.bin --profile 128 --level 1", 0},
      {"dvcc", "-o out.bin --profile 8 --level 64", 0},
      {"dvcc", "-o out.bin --profile 8 --level x", 0},
      {"dvcc", "-o out.bin --profile 8", 0},
      {"dvcc", "-o exists.bin --profile 8 --level 6", 0},
      {"dvcc", "", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.command + " " + c.args);
    auto r = qtest::runCommand("cd " + qtest::shellQuote(dir.path()) + " && " + QUORVANE_TOOL + " " + c.command + " " + c.args);
    EXPECT_TRUE(c.exitCode ? r.exitCode == c.exitCode : r.exitCode != 0) << "exit code " << r.exitCode;
    qtest::expectOneLineError(r, c.command);
  }
  EXPECT_EQ(qtest::readBytes(dir.file("exists.bin")), ptest::Bytes(3, 1));
  for (const std::string command : {"params", "hvcc", "dvcc"}) {
    auto help = qtest::runTool(command + " --help");
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.out.find("usage: quorvane " + command), std::string::npos) << help.out;
  }
}

}  // namespace
