// Streams spliced from pieces with different sequence parameter sets: each picture's pic_timing
// is laid out by the SPS it activates (ITU-T H.264 D.1.3), so stamp, inspect and captions
// extract must follow the SPS from picture to picture. Checked against ffprobe and trace_headers.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/tcxlat.h"
#include "support/ffmpeg_oracle.h"
#include "splice_support.h"
#include "support/test_support.h"

namespace {

using qtest::shellQuote;

std::vector<uint8_t> piece(const std::string& name, const std::string& args) {
  return splice::piece(name, "rate=25:size=" + args + " -f h264");
}
// HRD delays in pic_timing and B-frames (SPS 0).
std::vector<uint8_t> hrdPiece() {
  return piece("splice-hrd.264", "160x90 -frames:v 12 -c:v libx264 -bf 2 -x264-params nal-hrd=vbr:vbv-maxrate=800:vbv-bufsize=800");
}
// pic_struct but no HRD, at another raster (SPS 3, PPS 3).
std::vector<uint8_t> picStructPiece() {
  return piece("splice-picstruct.264", "176x96 -frames:v 10 -c:v libx264 -bf 0 -x264-params sps-id=3:pic-struct=1");
}

// Three x264 pieces at 25 fps, the last one giving SPS 0 new contents (neither HRD nor pic_struct).
std::vector<uint8_t> splicedStream() {
  return splice::joined({hrdPiece(), picStructPiece(), piece("splice-plain.264", "160x90 -frames:v 9 -c:v libx264 -bf 1")});
}

// The first two pieces with both their SPSs and PPSs up front: each picture finds its SPS through
// its PPS id, not as the SPS that came last.
std::vector<uint8_t> parameterSetsUpFront() {
  std::vector<uint8_t> sets, pictures;
  for (const auto& bytes : {hrdPiece(), picStructPiece()})
    for (const auto& unit : splice::unitsOf(bytes)) {
      auto& to = splice::isParameterSet(unit) ? sets : pictures;
      to.insert(to.end(), unit.begin(), unit.end());
    }
  sets.insert(sets.end(), pictures.begin(), pictures.end());
  return sets;
}

TEST(SplicedStream, EveryPictureIsStampedWithTheSpsItActivates) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffmpeg missing";
  uint32_t start = 0;
  ASSERT_EQ(tc2Frame("09:59:59:20", TC_PAL | TCF_TEXT, &start), 0);
  struct Case {
    const char* name;
    std::vector<uint8_t> stream;
    size_t pictures;
    const char* out;
  };
  const Case cases[] = {{"spliced", splicedStream(), 31, "stamped.264"},
                        {"spliced, into MPEG-TS", splicedStream(), 31, "stamped.ts"},
                        {"parameter sets up front", parameterSetsUpFront(), 22, "stamped.264"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    qtest::TempDir dir;
    const std::string in = dir.file("in.264"), out = dir.file(c.out);
    qtest::writeBytes(in, c.stream);
    const auto pictures = oracle::pictureChecksums(in);
    ASSERT_EQ(pictures.size(), c.pictures);
    const auto r = qtest::runTool("stamp " + shellQuote(in) + " " + shellQuote(out) + " --tc 09:59:59:20");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    int exitCode = -1;
    oracle::traceHeaderLines(out, &exitCode);
    EXPECT_EQ(exitCode, 0) << "trace_headers cannot read the stamped stream";
    const auto timecodes = oracle::allTimecodes(out);
    ASSERT_EQ(timecodes.size(), pictures.size());
    for (size_t i = 0; i < timecodes.size(); ++i)
      EXPECT_EQ(timecodes[i], oracle::printedTimecode(start + uint32_t(i), TC_PAL)) << "picture " << i;
    EXPECT_EQ(oracle::pictureChecksums(out), pictures);
    // The readers follow the SPS too: inspect lists every stamped timecode, in display order.
    const auto listed = qtest::runTool("inspect --json " + shellQuote(out));
    ASSERT_EQ(listed.exitCode, 0) << listed.err;
    const auto frames = nlohmann::json::parse(listed.out).at("pictures");
    ASSERT_EQ(frames.size(), pictures.size());
    for (size_t i = 0; i < frames.size(); ++i)
      EXPECT_EQ(frames[i].at("timecode"), timecodes[i]) << "picture " << i;
  }
}

}  // namespace
