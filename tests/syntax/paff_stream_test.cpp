// The field-picture streams of qtest::paffStream, read back by FFmpeg: one decoded frame per
// pattern letter, interlaced exactly for the field pairs, no decode error, each field pair
// decoded to exactly its source frame, and the slice headers (trace_headers) carrying
// field_pic_flag/bottom_field_flag as the pattern says.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "support/paff_stream.h"
#include "support/test_support.h"

namespace {

struct PaffCase {
  const char* name;
  const char* pattern;
  int fps;
};

const PaffCase kCases[] = {
    {"paff-PPPP.264", "PPPP", 25},
    {"paff-FPFP.264", "FPFP", 30},
    {"paff-PFFPP.264", "PFFPP", 25},
};

class PaffStream : public ::testing::TestWithParam<PaffCase> {
 protected:
  void SetUp() override {
    for (const char* program : {"ffmpeg", "ffprobe"})
      if (!qtest::haveProgram(program)) GTEST_SKIP() << program << " not installed";
    path_ = qtest::paffStream(GetParam().name, GetParam().pattern, GetParam().fps);
    ASSERT_FALSE(path_.empty());
  }
  std::string pattern() const { return GetParam().pattern; }
  std::string path_;
};

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    if (!line.empty()) lines.push_back(line);
  return lines;
}

TEST_P(PaffStream, FfprobeSeesOneInterlacedFramePerFieldPair) {
  auto frames = qtest::runCommand("ffprobe -v error -show_entries frame=height,interlaced_frame -of compact=p=0 " +
                                  qtest::shellQuote(path_));
  ASSERT_EQ(frames.exitCode, 0) << frames.err;
  std::vector<std::string> expected;
  for (char letter : pattern())
    expected.push_back(std::string("height=96|interlaced_frame=") + (letter == 'P' ? "1" : "0"));
  EXPECT_EQ(linesOf(frames.out), expected);

  auto stream = qtest::runCommand("ffprobe -v error -show_entries stream=profile,level,r_frame_rate -of compact=p=0 " +
                                  qtest::shellQuote(path_));
  EXPECT_EQ(stream.out, "profile=Main|level=30|r_frame_rate=" + std::to_string(GetParam().fps) + "/1\n");
}

// Frames renumbered: a raw stream has no timestamps, and the ffmpeg command's guesses for a mix of
// frame and field pictures collide ("non monotonically increasing dts"), which is no decode error.
TEST_P(PaffStream, DecodesWithoutAnyError) {
  auto decode = qtest::runCommand("ffmpeg -nostdin -v error -i " + qtest::shellQuote(path_) +
                                  " -vf 'setpts=N/FRAME_RATE/TB' -f null -");
  EXPECT_EQ(decode.exitCode, 0);
  EXPECT_EQ(decode.err, "");
}

// MD5 of each decoded frame, in order.
std::vector<std::string> frameHashes(const std::string& input) {
  auto r = qtest::runCommand("ffmpeg -nostdin -v error " + input + " -vf 'setpts=N/FRAME_RATE/TB' -f framemd5 -");
  std::vector<std::string> hashes;
  for (const auto& line : linesOf(r.out))
    if (line[0] != '#') hashes.push_back(line.substr(line.rfind(',') + 2));
  return hashes;
}

// Every picture is lossless (I_PCM), so each frame must decode to exactly its source frame: this
// catches a pair whose fields are swapped or misplaced.
TEST_P(PaffStream, FramesDecodeToTheirSourceFrame) {
  auto decoded = frameHashes("-i " + qtest::shellQuote(path_));
  auto source = frameHashes("-f lavfi -i testsrc2=size=160x96:rate=" + std::to_string(GetParam().fps) +
                            " -frames:v " + std::to_string(pattern().size()) + " -pix_fmt yuv420p");
  ASSERT_EQ(decoded.size(), pattern().size());
  ASSERT_EQ(source.size(), pattern().size());
  for (size_t i = 0; i < pattern().size(); ++i)
    EXPECT_EQ(decoded[i], source[i]) << "frame " << i;
}

// Each slice as trace_headers prints it: 'F' frame, 'T' top field, 'B' bottom field, followed by
// its nal_unit_type; and the idr_pic_id of every IDR slice.
struct TracedSlices {
  std::string kinds;
  std::vector<int> idrPicIds;
};

TracedSlices traceSlices(const std::string& path) {
  auto trace = qtest::runCommand("ffmpeg -nostdin -hide_banner -i " + qtest::shellQuote(path) +
                                 " -c:v copy -bsf:v trace_headers -f null -");
  TracedSlices slices;
  int nalType = 0;
  for (const auto& line : linesOf(trace.err)) {
    auto eq = line.rfind("= ");
    if (eq == std::string::npos) continue;
    int value = std::atoi(line.c_str() + eq + 2);
    auto has = [&](const char* name) { return line.find(std::string(" ") + name + " ") != std::string::npos; };
    if (has("nal_unit_type")) nalType = value;
    if (has("field_pic_flag") && value == 0) slices.kinds += "F" + std::to_string(nalType);
    if (has("bottom_field_flag")) slices.kinds += (value ? "B" : "T") + std::to_string(nalType);
    if (has("idr_pic_id")) slices.idrPicIds.push_back(value);
  }
  return slices;
}

TEST_P(PaffStream, SliceHeadersCarryTheFieldFlags) {
  std::string expected;
  for (char letter : pattern()) expected += letter == 'P' ? "T5B1" : "F5";
  auto slices = traceSlices(path_);
  EXPECT_EQ(slices.kinds, expected);
  ASSERT_EQ(slices.idrPicIds.size(), pattern().size());  // frames and top fields are the IDR pictures
  for (size_t i = 1; i < slices.idrPicIds.size(); ++i)
    EXPECT_NE(slices.idrPicIds[i], slices.idrPicIds[i - 1]) << "consecutive IDR pictures at " << i;
}

INSTANTIATE_TEST_SUITE_P(PaffPatterns, PaffStream, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.pattern); });

}  // namespace
