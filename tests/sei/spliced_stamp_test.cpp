// Streams spliced from pieces with different sequence parameter sets: each picture's pic_timing
// is laid out by the SPS it activates (ITU-T H.264 D.1.3), so stamp, inspect and captions
// extract must follow the SPS from picture to picture; a change of frame rate (an SPS or an MPEG-2
// sequence header stating another) is reported. Checked against ffprobe and trace_headers.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/tcxlat.h"
#include "support/ffmpeg_oracle.h"
#include "support/splice_support.h"
#include "support/test_support.h"
#include "support/tool_runs.h"

namespace {

using Bytes = std::vector<uint8_t>;
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
    qtest::stampOk(in, out, "--tc 09:59:59:20");
    int exitCode = -1;
    oracle::traceHeaderLines(out, &exitCode);
    EXPECT_EQ(exitCode, 0) << "trace_headers cannot read the stamped stream";
    qtest::expectTimecodesCountOn(out, pictures.size(), start, TC_PAL);
    EXPECT_EQ(oracle::pictureChecksums(out), pictures);
    // The readers follow the SPS too: inspect lists every stamped timecode, in display order.
    const auto listed = qtest::runToolOk("inspect --json " + shellQuote(out));
    const auto frames = nlohmann::json::parse(listed.out).at("pictures");
    ASSERT_EQ(frames.size(), pictures.size());
    for (size_t i = 0; i < frames.size(); ++i)
      EXPECT_EQ(frames[i].at("timecode"), oracle::printedTimecode(start + uint32_t(i), TC_PAL)) << "picture " << i;
  }
}

const std::string kX264 = " -c:v libx264 -bf 2 -f h264", kX265 = " -c:v libx265 -x265-params log-level=error -f hevc";
// Closed GOPs of three pictures without B pictures: GOP k of a piece starts at its picture 3k.
const std::string kMpeg2 = " -c:v mpeg2video -g 3 -bf 0 -flags +cgop -sc_threshold 1000000000 -f mpeg2video";

struct Change {
  int piecesBefore;  // the change comes with the first picture of piece[piecesBefore]
  const char* rate;
  const char* from;  // fps as the warning names them
  const char* to;
};

// A splice of 25 and 29.97 material: the timecode keeps counting at the first rate, and stamp says
// once per change, on stderr and in --json "rateChanges", where a picture's SPS (or an MPEG-2
// sequence header) states another rate (not when --rate was given, nor when a new SPS or sequence
// header states the same rate). Pieces by x264/x265/FFmpeg's MPEG-2 encoder; frame numbers and
// timecodes read back by ffprobe (MPEG-2: the time_code of each GOP header).
TEST(StampRateChange, WarnsOncePerChangeAndKeepsCountingAtTheFirstRate) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffmpeg missing";
  const Bytes at25 = splice::piece("rate-25.264", "rate=25:size=160x90 -frames:v 7" + kX264);
  const Bytes at2997 = splice::piece("rate-2997.264", "rate=30000/1001:size=160x90 -frames:v 5" + kX264);
  const Bytes at25OtherSps = splice::piece("rate-25-sps2.264", "rate=25:size=176x96 -frames:v 4 -x264-params sps-id=2" + kX264);
  const Bytes hevc25 = splice::piece("rate-25.265", "rate=25:size=160x90 -frames:v 6" + kX265);
  const Bytes hevc2997 = splice::piece("rate-2997.265", "rate=30000/1001:size=160x90 -frames:v 4" + kX265);
  const Bytes mpeg25 = splice::piece("rate-25.m2v", "rate=25:size=160x96 -frames:v 7" + kMpeg2);
  const Bytes mpeg2997 = splice::piece("rate-2997.m2v", "rate=30000/1001:size=160x96 -frames:v 5" + kMpeg2);
  const Bytes mpeg50 = splice::piece("rate-50.m2v", "rate=50:size=160x96 -frames:v 4" + kMpeg2);
  const std::vector<Change> thereAndBack = {{1, "30000/1001", "25", "29.97"}, {2, "25/1", "29.97", "25"}};
  struct Case {
    const char* name;
    std::vector<Bytes> pieces;
    const char* ext;
    const char* options;
    std::vector<Change> changes;
  };
  const Case cases[] = {
      {"25, 29.97, 25", {at25, at2997, at25}, "264", "", thereAndBack},
      {"25, then 25 under another SPS", {at25, at25OtherSps}, "264", "", {}},
      {"25, 29.97 with --rate 25", {at25, at2997}, "264", "--rate 25", {}},
      {"HEVC 25, 29.97", {hevc25, hevc2997}, "265", "", {{1, "30000/1001", "25", "29.97"}}},
      {"MPEG-2 25, 29.97, 25", {mpeg25, mpeg2997, mpeg25}, "m2v", "", thereAndBack},
      {"MPEG-2 25, 50 with --rate 25", {mpeg25, mpeg50}, "m2v", "--rate 25", {}},
      {"MPEG-2 25 twice", {mpeg25, mpeg25}, "m2v", "", {}},
  };
  uint32_t start = 0;
  ASSERT_EQ(tc2Frame("10:00:00:00", TC_PAL | TCF_TEXT, &start), 0);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    qtest::TempDir dir;
    Bytes stream;
    std::vector<size_t> picturesBefore{0};  // ffprobe's picture count of the pieces so far
    std::vector<std::string> gopTimecodes;  // MPEG-2: the timecode of each GOP's first picture
    for (size_t i = 0; i < c.pieces.size(); ++i) {
      const std::string file = dir.file("piece" + std::to_string(i) + "." + c.ext);
      qtest::writeBytes(file, c.pieces[i]);
      picturesBefore.push_back(picturesBefore.back() + oracle::pictureChecksums(file).size());
      for (size_t frame = picturesBefore[i]; frame < picturesBefore.back(); frame += 3)
        gopTimecodes.push_back(oracle::printedTimecode(start + uint32_t(frame), TC_PAL));
      stream.insert(stream.end(), c.pieces[i].begin(), c.pieces[i].end());
    }
    const std::string in = dir.file(std::string("in.") + c.ext), out = dir.file(std::string("out.") + c.ext);
    qtest::writeBytes(in, stream);
    const auto r = qtest::stampOk(in, out, std::string("--tc 10:00:00:00 --json ") + c.options);
    std::string warnings;
    nlohmann::json expected = nlohmann::json::array();
    for (const Change& change : c.changes) {
      const size_t frame = picturesBefore[size_t(change.piecesBefore)];
      warnings += "quorvane stamp: warning: the stream changes rate at frame " + std::to_string(frame) + " (" + change.from +
                  " fps to " + change.to + " fps); timecodes keep counting at 25 fps\n";
      expected.push_back({{"frame", frame}, {"rate", change.rate}, {"timecode", oracle::printedTimecode(start + uint32_t(frame), TC_PAL)}});
    }
    EXPECT_EQ(r.err, warnings);
    auto changes = nlohmann::json::parse(r.out).at("rateChanges");
    for (auto& change : changes) change.erase("fps");
    EXPECT_EQ(changes, expected);
    if (std::string(c.ext) == "m2v") {
      EXPECT_EQ(oracle::allTimecodes(out, false), gopTimecodes);
    } else {
      qtest::expectTimecodesCountOn(out, picturesBefore.back(), start, TC_PAL);
    }
  }
}

}  // namespace
