// quorvane params: sizes and profiles agree with ffprobe; dvcc's refusals; params, hvcc and dvcc --help.
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

// The refusals of dvcc, one row per message, run in the scratch directory so that dvcc's relative
// names are its files. Those of params and hvcc: CommandJson.BadInputGivesOneLineAndAJsonError and
// Containers.RefusalsSayWhatWasFound (tests/media), HvccBoxSize (hvcc --read).
TEST(ParamsCommands, RefuseBadInputWithOneLine) {
  qtest::TempDir dir;
  qtest::writeBytes(dir.file("short.bin"), ptest::Bytes(23, 0));
  ptest::Bytes badSize = {0, 0, 0, 40, 'd', 'v', 'v', 'C'};
  badSize.resize(32, 0);
  qtest::writeBytes(dir.file("badsize.bin"), badSize);
  const std::pair<const char*, const char*> kRows[] = {  // arguments, part of the message
      {"--read short.bin", "a Dolby Vision configuration record is 24 bytes, found 23"},
      {"--read badsize.bin", "box size 40 does not match the file's 32 bytes"},
      {"-o out.bin --profile 128 --level 1", "--profile must be a number from 0 to 127, not '128'"},
      {"-o out.bin --profile 8 --level 64", "--level must be a number from 0 to 63, not '64'"},
      {"-o out.bin --profile 8", "--profile and --level are required"},
      {"", "missing -o FILE or --read FILE"},
  };
  for (const auto& [args, says] : kRows) {
    SCOPED_TRACE(args);
    auto r = qtest::runCommand("cd " + qtest::shellQuote(dir.path()) + " && " + QUORVANE_TOOL + " dvcc " + args);
    EXPECT_NE(r.exitCode, 0);
    qtest::expectOneLineError(r, "dvcc");
    EXPECT_NE(r.err.find(says), std::string::npos) << r.err;
  }
  for (const std::string command : {"params", "hvcc", "dvcc"}) {
    auto help = qtest::runTool(command + " --help");
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.out.find("usage: quorvane " + command), std::string::npos) << help.out;
  }
}

}  // namespace
