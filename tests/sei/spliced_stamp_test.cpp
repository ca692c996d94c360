// Streams spliced from pieces with different sequence parameter sets: each picture's pic_timing
// is laid out by the SPS it activates (ITU-T H.264 D.1.3), so stamp, inspect and captions
// extract must follow the SPS from picture to picture. Checked against ffprobe and trace_headers.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/tcxlat.h"
#include "support/ffmpeg_oracle.h"
#include "support/test_support.h"

namespace {

using qtest::shellQuote;

const std::string kSource = "-f lavfi -i testsrc2=rate=25:size=";

std::vector<uint8_t> piece(const std::string& name, const std::string& args) {
  return qtest::readBytes(qtest::encodedStream(name, kSource + args + " -f h264"));
}
// HRD delays in pic_timing and B-frames (SPS 0).
std::vector<uint8_t> hrdPiece() {
  return piece("splice-hrd.264", "160x90 -frames:v 12 -c:v libx264 -bf 2 -x264-params nal-hrd=vbr:vbv-maxrate=800:vbv-bufsize=800");
}
// pic_struct but no HRD, at another raster (SPS 3, PPS 3).
std::vector<uint8_t> picStructPiece() {
  return piece("splice-picstruct.264", "176x96 -frames:v 10 -c:v libx264 -bf 0 -x264-params sps-id=3:pic-struct=1");
}

// The units of a start-code stream, each with its start code.
std::vector<std::vector<uint8_t>> unitsOf(const std::vector<uint8_t>& s) {
  std::vector<size_t> starts;
  for (size_t i = 0; i + 3 <= s.size(); ++i)
    if (s[i] == 0 && s[i + 1] == 0 && s[i + 2] == 1) starts.push_back(i > 0 && s[i - 1] == 0 ? i - 1 : i), i += 2;
  std::vector<std::vector<uint8_t>> units;
  for (size_t k = 0; k < starts.size(); ++k)
    units.emplace_back(s.begin() + long(starts[k]), k + 1 < starts.size() ? s.begin() + long(starts[k + 1]) : s.end());
  return units;
}

bool isParameterSet(const std::vector<uint8_t>& unit) {
  const uint8_t header = unit[unit[2] == 1 ? 3 : 4];
  return (header & 0x1F) == 7 || (header & 0x1F) == 8;
}

// Three x264 pieces at 25 fps, the last one giving SPS 0 new contents (neither HRD nor pic_struct).
std::vector<uint8_t> splicedStream() {
  const std::vector<uint8_t> pieces[] = {hrdPiece(), picStructPiece(),
                                         piece("splice-plain.264", "160x90 -frames:v 9 -c:v libx264 -bf 1")};
  std::vector<uint8_t> joined;
  for (const auto& bytes : pieces) joined.insert(joined.end(), bytes.begin(), bytes.end());
  return joined;
}

// The first two pieces with both their SPSs and PPSs up front: each picture finds its SPS through
// its PPS id, not as the SPS that came last.
std::vector<uint8_t> parameterSetsUpFront() {
  std::vector<uint8_t> sets, pictures;
  for (const auto& bytes : {hrdPiece(), picStructPiece()})
    for (const auto& unit : unitsOf(bytes)) {
      auto& to = isParameterSet(unit) ? sets : pictures;
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
