// The field-picture streams of qtest::paffStream, read back by FFmpeg: the slice headers carry
// field_pic_flag/bottom_field_flag as the pattern says (trace_headers), each pattern letter
// decodes to one frame, interlaced exactly for the field pairs, and every frame is exactly its
// source frame (a pair with swapped or misplaced fields would not be).
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/ffmpeg_oracle.h"
#include "support/paff_stream.h"
#include "support/test_support.h"

namespace {

// Each slice as trace_headers prints it: 'F' frame, 'T' top field, 'B' bottom field, then its
// nal_unit_type; idr_pic_id values in order.
std::string traceSlices(const std::string& path, std::vector<int64_t>& idrPicIds) {
  std::string kinds;
  int64_t nalType = 0;
  for (const auto& line : oracle::traceHeaderLines(path)) {
    if (!line.isElement) continue;
    if (line.name == "nal_unit_type") nalType = line.value;
    if (line.name == "field_pic_flag" && line.value == 0) kinds += "F" + std::to_string(nalType);
    if (line.name == "bottom_field_flag") kinds += (line.value ? "B" : "T") + std::to_string(nalType);
    if (line.name == "idr_pic_id") idrPicIds.push_back(line.value);
  }
  return kinds;
}

// The MD5 of each decoded picture, without the timestamps a raw stream only has as guesses.
std::vector<std::string> pictureHashes(const std::string& path) {
  std::vector<std::string> hashes;
  for (const auto& line : oracle::pictureChecksums(path)) hashes.push_back(line.substr(line.rfind(',') + 1));
  return hashes;
}

TEST(PaffStream, FfmpegReadsTheFieldsTheirFramesAndTheSourcePictures) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffmpeg missing";
  for (const std::string pattern : {"PPPP", "FPFP", "PFFPP"}) {
    SCOPED_TRACE(pattern);
    const std::string path = qtest::paffStream("paff-" + pattern + "-25.264", pattern, 25);
    ASSERT_FALSE(path.empty());
    std::string kinds, interlaced;
    for (char letter : pattern) {
      kinds += letter == 'P' ? "T5B1" : "F5";
      interlaced += std::string("interlaced_frame=") + (letter == 'P' ? "1" : "0") + "\n";
    }
    std::vector<int64_t> idrPicIds;
    EXPECT_EQ(traceSlices(path, idrPicIds), kinds);
    ASSERT_EQ(idrPicIds.size(), pattern.size());  // frames and top fields are the IDR pictures
    for (size_t i = 1; i < idrPicIds.size(); ++i) EXPECT_NE(idrPicIds[i], idrPicIds[i - 1]) << "consecutive IDR pictures";
    const auto frames = qtest::runCommand("ffprobe -v error -show_entries frame=interlaced_frame -of default=nw=1 " +
                                          qtest::shellQuote(path));
    EXPECT_EQ(frames.out, interlaced);
    qtest::TempDir dir;
    const std::string source = dir.file("source.y4m");
    ASSERT_EQ(qtest::runCommand("ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=160x96:rate=25 -frames:v " +
                                std::to_string(pattern.size()) + " -pix_fmt yuv420p " + qtest::shellQuote(source)).exitCode, 0);
    EXPECT_EQ(pictureHashes(path), pictureHashes(source));
  }
}

}  // namespace
