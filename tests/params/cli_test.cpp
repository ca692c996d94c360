// quorvane params: sizes, profiles and set ids agree with ffprobe and trace_headers; dvcc's refusals;
// params, hvcc and dvcc --help.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/edit_support.h"
#include "support/param_streams.h"
#include "support/test_support.h"

namespace {

// params --json's summary and the text's size and rate agree with ffprobe; each set is headed with
// the id trace_headers reads from the unit (x264's sps-id=31 numbers both SPS and PPS 31, so that
// the id cannot be taken for the index 0).
TEST(ParamsCommand, SummaryAndIdsAgreeWithFfmpeg) {
  struct Stream {
    std::string path;
    const char* spsId;  // trace_headers' names of the ids
    const char* ppsId;
  };
  const Stream streams[] = {
      {ptest::x265Stream("odd_size_crop", "yuv420p", "", "100x58"), "sps_seq_parameter_set_id", "pps_pic_parameter_set_id"},
      {ptest::x265Stream("main10", "yuv420p10le", "", "64x64"), "sps_seq_parameter_set_id", "pps_pic_parameter_set_id"},
      {ptest::x264Stream("colour_sar_crop", "yuv420p",
                         "-profile:v high -x264-params colorprim=bt2020:transfer=smpte2084:colormatrix=bt2020nc:range=pc:sar=5/7:chromaloc=1:overscan=show",
                         "100x58"),
       "seq_parameter_set_id", "pic_parameter_set_id"},
      {ptest::x264Stream("high422", "yuv422p10le", "-profile:v high422", "64x64"), "seq_parameter_set_id", "pic_parameter_set_id"},
      {ptest::x264Stream("sps_id_31", "yuv420p", "-x264-params sps-id=31", "160x96"), "seq_parameter_set_id",
       "pic_parameter_set_id"},
  };
  bool saw31 = false;
  for (const auto& [path, spsId, ppsId] : streams) {
    SCOPED_TRACE(path);
    auto probe = qtest::runCommand("ffprobe -v error -select_streams v:0 -show_entries "
                                   "stream=width,height,profile,pix_fmt,r_frame_rate -of json " + qtest::shellQuote(path));
    ASSERT_EQ(probe.exitCode, 0) << probe.err;
    const auto theirs = nlohmann::json::parse(probe.out).at("streams").at(0);
    auto r = qtest::runTool("params --json " + qtest::shellQuote(path));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto summary = nlohmann::json::parse(r.out).at("summary");
    EXPECT_EQ(summary.at("width"), theirs.at("width"));
    EXPECT_EQ(summary.at("height"), theirs.at("height"));
    EXPECT_EQ(summary.at("profile"), theirs.at("profile"));
    const std::string pixFmt = theirs.at("pix_fmt");
    EXPECT_EQ(pixFmt.find("10") != std::string::npos, summary.at("bitDepthLuma") == 10) << pixFmt;
    auto text = qtest::runTool("params " + qtest::shellQuote(path));
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_NE(text.out.find("x" + std::to_string(theirs.at("height").get<int>()) + ","), std::string::npos) << text.out;
    // The rate as ffprobe reduces it (x264's VUI gives 50/2 for 25 frames per second).
    EXPECT_NE(text.out.find(" fps (" + theirs.at("r_frame_rate").get<std::string>() + ")"), std::string::npos) << text.out;
    const auto traced = ptest::traceHeaders(path);
    const ptest::TracedUnit* sps = ptest::firstOfKind(traced, "Sequence Parameter Set");
    const ptest::TracedUnit* pps = ptest::firstOfKind(traced, "Picture Parameter Set");
    ASSERT_TRUE(sps && pps && sps->elements.count(spsId) && pps->elements.count(ppsId));
    const int64_t id = sps->elements.at(spsId).at(0);
    saw31 = saw31 || id == 31;
    EXPECT_NE(text.out.find("SPS #0 (id " + std::to_string(id) + ", "), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("PPS #0 (id " + std::to_string(pps->elements.at(ppsId).at(0)) + ", "), std::string::npos) << text.out;
  }
  EXPECT_TRUE(saw31) << "x264 did not number its SPS 31";
}

// The refusals of dvcc, one row per message, run in the scratch directory so that dvcc's relative
// names are its files. Those of params and hvcc: CommandJson.BadInputGivesOneLineAndAJsonError and
// Containers.RefusalsSayWhatWasFound (tests/media), HvccBoxSize (hvcc --read, hevc_streams_test.cpp).
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
