// quorvane stamp on real x264/x265 and MPEG-2 streams, read back by ffprobe/ffmpeg.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/tcxlat.h"
#include "sei_support.h"
#include "streamutil/scc.h"
#include "support/edit_support.h"
#include "support/ffmpeg_oracle.h"
#include "support/test_support.h"
#include "support/tool_runs.h"

namespace {

using qtest::shellQuote;

using oracle::pictureChecksums;

struct StampCase {
  const char* name;
  bool hevc;
  const char* fps;       // source picture rate (field rate of a field-coded HEVC row)
  const char* encoder;   // x264 options (ffmpeg -x264-params); unused for HEVC
  const char* rate;      // --rate, or "" to take it from the VUI
  const char* rateName;  // the rate the summary must name
  uint32_t type;
  const char* start;     // --tc: near a minute so drop-frame counting shows
  size_t timestampsPerFrame;  // clock timestamps per picture: 1 frame, 2 interlaced H.264 frame
  bool fields;                // --fields on field-coded HEVC: two pictures per timecode frame
};

const StampCase kCases[] = {
    {"23.98", false, "24000/1001", "bframes=3", "", "23.98", TC_2398, "00:59:59:20", 1, false},
    {"24", false, "24", "bframes=3", "", "24", TC_FILM, "10:59:59:18", 1, false},
    {"25", false, "25", "bframes=3", "", "25", TC_PAL, "01:00:00:00", 1, false},
    {"29.97 DF", false, "30000/1001", "bframes=3", "", "29.97", TC_DF2997, "00:00:59;25", 1, false},
    {"30", false, "30", "bframes=3", "", "30", TC_NDF30, "00:59:59:25", 1, false},
    {"50", false, "50", "bframes=3", "", "50", TC_50, "00:09:59:45", 1, false},
    {"59.94 DF", false, "60000/1001", "bframes=3", "", "59.94", TC_DF5994, "00:00:59;55", 1, false},
    {"60", false, "60", "bframes=3", "", "60", TC_60, "23:59:59:50", 1, false},
    {"MBAFF 25 top field first", false, "25", "bframes=2:interlaced=1:tff=1", "", "25", TC_PAL, "00:00:59:20", 2, false},
    {"MBAFF 29.97 bottom field first", false, "30000/1001", "bframes=2:interlaced=1:bff=1", "", "29.97", TC_DF2997,
     "00:09:59;26", 2, false},
    {"fake-interlaced 25", false, "25", "bframes=2:fake-interlaced=1:tff=1", "", "25", TC_PAL, "01:00:00:00", 2, false},
    {"--rate over the VUI", false, "25", "bframes=3", "50", "50", TC_50, "00:00:00:00", 1, false},
    {"HEVC 23.98", true, "24000/1001", "", "23.98", "23.98", TC_2398, "00:00:59:20", 1, false},
    {"HEVC 24", true, "24", "", "24", "24", TC_FILM, "10:59:59:18", 1, false},
    {"HEVC 25", true, "25", "", "25", "25", TC_PAL, "01:00:00:00", 1, false},
    {"HEVC 29.97df", true, "30000/1001", "", "29.97df", "29.97", TC_DF2997, "00:00:59;25", 1, false},
    {"HEVC 50", true, "50", "", "50", "50", TC_50, "00:09:59:45", 1, false},
    {"HEVC 59.94df", true, "60000/1001", "", "59.94df", "59.94", TC_DF5994, "00:00:59;55", 1, false},
    {"HEVC 60", true, "60", "", "60", "60", TC_60, "23:59:59:50", 1, false},
    {"HEVC 25 field-coded", true, "50", "", "25", "25", TC_PAL, "00:00:59:20", 1, true},
    {"HEVC 29.97df field-coded", true, "60000/1001", "", "29.97df", "29.97", TC_DF2997, "00:00:59;26", 1, true},
    {"HEVC 29.97 non-drop", true, "30000/1001", "", "29.97", "29.97", TC_NDF30, "00:00:59:25", 1, false},
};

// An x264 stream, or an x265 one with B-frames; field-coded ones come from the x265 command (each
// input picture one field), since the FFmpeg wrapper does not pass field coding on.
std::string streamFor(const StampCase& c, const qtest::TempDir& dir) {
  std::string name = std::string("stamp-") + c.name + (c.hevc ? ".hevc" : ".264");
  for (auto& ch : name)
    if (ch == '/' || ch == ' ') ch = '_';
  const std::string source = std::string("-f lavfi -i testsrc2=size=160x96:rate=") + c.fps + " -frames:v 14 -pix_fmt yuv420p ";
  if (!c.hevc)
    return qtest::encodedStream(name, source + "-c:v libx264 -x264-params threads=1:" + c.encoder + " -f h264");
  if (!c.fields)
    return qtest::encodedStream(name, source + "-c:v libx265 -x265-params "
                                               "log-level=error:pools=1:frame-threads=1:bframes=3:b-adapt=0 -f hevc");
  const std::string path = dir.file(name);
  // x265 codes each input picture as one field, --fps being the field rate.
  auto r = qtest::runCommand(std::string("ffmpeg -v error -f lavfi -i testsrc2=size=160x64:rate=") + c.fps +
                             " -frames:v 16 -pix_fmt yuv420p -f rawvideo - | timeout 60 x265 --log-level error --input - "
                             "--input-res 160x64 --fps " + c.fps +
                             " --interlace tff --bframes 2 --b-adapt 0 --pools 1 -o " + shellQuote(path));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  return path;
}

// Stamped, then stamped again in length-prefixed editing: ffprobe reads the timecodes in display
// order both times (the second stamp leaves only the new timecode, and says it replaced one per
// picture); the summary names the rate and where it came from; --keep-existing on the stamped
// stream refuses and writes nothing.
TEST(StampInterop, FfprobeReadsTheStampedTimecodesInDisplayOrder) {
  if (!qtest::haveProgram("ffprobe") || !qtest::haveProgram("x265")) GTEST_SKIP() << "ffmpeg/x265 missing";
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    qtest::TempDir dir;
    const std::string in = streamFor(c, dir);
    ASSERT_FALSE(in.empty());
    const std::string ext = c.hevc ? ".hevc" : ".264", out = dir.file("out" + ext), again = dir.file("again" + ext);
    const std::string options = (*c.rate ? std::string(" --rate ") + c.rate : "") + (c.fields ? " --fields" : "");
    const uint32_t picturesPerFrame = c.fields ? 2 : 1;
    const auto r = qtest::expectStampCountsOn(in, out, c.start, c.type, options, c.timestampsPerFrame, picturesPerFrame);
    EXPECT_NE(r.out.find(std::string(" at ") + c.rateName), std::string::npos) << "names the rate: " << r.out;
    // The VUI timing is named as a frame rate in lowest terms (60000/2002 reads 30000/1001).
    const std::string source = *c.rate ? "given with --rate" : std::string("from the stream's VUI timing ") + c.fps;
    EXPECT_NE(r.out.find(source), std::string::npos) << r.out;
    const auto twice = qtest::expectStampCountsOn(out, again, "12:00:00:00", c.type, "--json --length-prefixed" + options,
                                                  c.timestampsPerFrame, picturesPerFrame);
    const size_t pictures = oracle::pictureChecksums(in).size();
    EXPECT_NE(twice.out.find("\"replacedTimecodes\":" + std::to_string(pictures)), std::string::npos) << twice.out;
    const auto keep = qtest::runTool("stamp " + shellQuote(out) + " " + shellQuote(dir.file("kept" + ext)) +
                                     " --tc 02:00:00:00 --keep-existing" + options);
    EXPECT_EQ(keep.exitCode, 1);
    EXPECT_NE(keep.err.find("IN already carries timecode"), std::string::npos) << keep.err;
    EXPECT_TRUE(qtest::readBytes(dir.file("kept" + ext)).empty()) << "nothing written";
  }
}

// MPEG-2: process_cc_data_flag stays 0 in the kept block layout, so FFmpeg ignores the data;
// check the block sits in front of each picture and FFmpeg still decodes the same pictures.
TEST(Mpeg2Interop, BlockInFrontOfEachPictureLeavesThePicturesAlone) {
  if (!qtest::haveProgram("ffmpeg")) GTEST_SKIP();
  const std::string in = qtest::samplePath("mpeg2_160x90_2997.m2v");
  const auto stream = qtest::readBytes(in);
  // Split in front of each picture_start_code (the first piece keeps the sequence header).
  std::vector<size_t> cuts = {0};
  for (size_t i = 4; i + 3 < stream.size(); ++i)
    if (!stream[i] && !stream[i + 1] && stream[i + 2] == 1 && stream[i + 3] == 0) cuts.push_back(i);
  cuts.push_back(stream.size());
  const auto packet = stest::captionPacket({0xFC, 0x94, 0x20, 0xFD, 0x80, 0x80});
  std::vector<uint8_t> out;
  size_t blocks = 0;
  for (size_t k = 0; k + 1 < cuts.size(); ++k) {
    const size_t size = cuts[k + 1] - cuts[k];
    if (!size) continue;
    std::vector<uint8_t> frame(stream.begin() + long(cuts[k]), stream.begin() + long(cuts[k + 1]));
    frame.resize(size + packet.size() + 285);
    DFRAME f = qtest::frameOver(frame, size);
    f.pCaption = const_cast<uint8_t*>(packet.data());
    f.nCaptionSize = uint32_t(packet.size());
    ASSERT_EQ(klxutilAddMPEG2Captions(&f), 0);
    out.insert(out.end(), frame.begin(), frame.begin() + f.nDataSize);
    ++blocks;
  }
  EXPECT_GT(blocks, 5u);
  qtest::TempDir dir;
  qtest::writeBytes(dir.file("out.m2v"), out);
  EXPECT_EQ(pictureChecksums(dir.file("out.m2v")), pictureChecksums(in));
}

TEST(InspectFrames, ListsTheStampedTimecodesAndCaptionCounts) {
  qtest::TempDir dir;
  const std::string in = qtest::samplePath("hevc_main_160x90_2997_bframes.hevc");
  qtest::writeText(dir.file("a.scc"), "Scenarist_SCC V1.0\n\n00:00:59;28\t9420 9420\n");
  qtest::stampOk(in, dir.file("s.hevc"), "--tc '00:00:59;28' --rate 29.97df --captions " + shellQuote(dir.file("a.scc")));
  auto plain = qtest::runTool("inspect --json " + shellQuote(in));
  auto stamped = qtest::runToolOk("inspect --json " + shellQuote(dir.file("s.hevc")));
  // Display order 0, 1, 2 are 59;28, 59;29 and (drop-frame) 00:01:00;02; every picture has two triplets.
  for (const char* frame : {"{\"display\":0,\"decode\":0,\"poc\":0,\"timecode\":\"00:00:59;28\",\"captions\":2}",
                            "\"display\":1,", "\"timecode\":\"00:00:59;29\",\"captions\":2}",
                            "\"timecode\":\"00:01:00;02\",\"captions\":2}", "\"timecode\":\"00:01:00;11\",\"captions\":2}"})
    EXPECT_NE(stamped.out.find(frame), std::string::npos) << frame << "\n" << stamped.out;
  EXPECT_NE(plain.out.find("\"timecode\":null,\"captions\":0"), std::string::npos) << plain.out;
}

// The SEI units stamp puts in front of a picture of a higher temporal sub-layer carry that
// picture's TemporalId, never less (ITU-T H.265 7.4.2.2): dropping the sub-layer drops them too.
// Checked on x265's temporal layers as ffmpeg's trace_headers reads the units back.
TEST(SeiTemporalId, InsertedSeiTakesThePicturesTemporalId) {
  const oracle::Stream& source = oracle::kStreams[2];  // temporal-layers=1, b-pyramid
  const std::string stream = qtest::encodedStream(source.name, source.ffmpegArgs);
  ASSERT_FALSE(stream.empty());
  qtest::TempDir dir;
  const std::string scc = "Scenarist_SCC V1.0\n\n00:00:00:01\t9420 9420 94ae 94ae 9452 9452 97a1 97a1 c8e5 ecec ef80 942f 942f\n";
  qtest::writeBytes(dir.file("in.scc"), std::vector<uint8_t>(scc.begin(), scc.end()));
  for (const char* out : {"out.hevc", "out.mp4"}) {
    SCOPED_TRACE(out);
    qtest::stampOk(stream, dir.file(out), "--tc 00:00:00:00 --rate 25 --captions " + shellQuote(dir.file("in.scc")));
    const std::vector<oracle::TracedUnit> units = oracle::traceUnits(dir.file(out));
    int seiAboveLayerZero = 0, seiCount = 0;
    std::vector<int> seiTids;  // the SEI units in front of the next picture
    for (const oracle::TracedUnit& u : units) {
      if (u.nalUnitType == 39) seiTids.push_back(u.temporalId);
      if (u.nalUnitType >= 32 || seiTids.empty()) continue;
      for (int tid : seiTids) {
        EXPECT_GE(tid, u.temporalId) << "picture type " << u.nalUnitType;
        seiAboveLayerZero += tid > 0;
      }
      seiCount += int(seiTids.size());
      seiTids.clear();
    }
    EXPECT_GT(seiAboveLayerZero, 0) << "the stream has pictures above layer 0";
    EXPECT_GE(seiCount, 12) << "a time_code and a caption SEI in front of each picture";
  }
}

// quorvane stamp on MPEG-2 video: GOP time_code rewritten in place (ffprobe reads it),
// captions as picture user data (read back by quorvane captions), pictures unchanged.
TEST(Mpeg2Stamp, GopTimecodesAndCaptionsRoundTrip) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP();
  struct Case {
    const char* fps;
    const char* rate;
    uint32_t type;
    const char* start;
    const char* scc;
  } cases[] = {
      {"30000/1001", "29.97", TC_DF2997, "00:00:59;26", "Scenarist_SCC V1.0\n\n00:00:59;28\t9420 9420 94ae c8e9 942f 942f\n"},
      {"25", "25", TC_PAL, "09:59:59:20", "Scenarist_SCC V1.0\n\n10:00:00:01\t9420 9420 94ae c8e9 942f 942f\n"},
      {"24", "24", TC_FILM, "00:09:59:20", "Scenarist_SCC V1.0\n\n00:10:00:03\t9420 c8e9 942f\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.rate);
    qtest::TempDir dir;
    const std::string in = dir.file("in.m2v"), out = dir.file("out.m2v");
    auto r = qtest::runCommand(std::string("ffmpeg -v error -f lavfi -i testsrc2=size=160x96:rate=") + c.fps +
                               " -frames:v 30 -c:v mpeg2video -g 6 -bf 2 -flags +cgop -sc_threshold 1000000000 -timecode 01:02:03:04 " + shellQuote(in));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    qtest::writeText(dir.file("cc.scc"), c.scc);
    r = qtest::stampOk(in, out, std::string("--tc '") + c.start + "' --captions " + shellQuote(dir.file("cc.scc")));
    EXPECT_NE(r.out.find(std::string(" at ") + c.rate), std::string::npos) << r.out;
    EXPECT_TRUE(r.err.empty()) << "no cue outside the range: " << r.err;
    // Every GOP header carries the timecode of its first picture in display order: as far
    // from the start as FFmpeg's own (closed-GOP) time_codes in the input are from theirs.
    const auto theirs = oracle::allTimecodes(in, false), ours = oracle::allTimecodes(out, false);
    // FFmpeg counted "01:02:03:04" non-drop.
    qtest::expectGopTimecodesFollow(ours, theirs, c.start, c.type, c.type == TC_DF2997 ? TC_NDF30 : c.type);
    EXPECT_GE(ours.size(), 5u);
    EXPECT_EQ(oracle::pictureChecksums(out), oracle::pictureChecksums(in));
    // The caption pairs come back at their timecodes.
    qtest::extractOk(out, dir.file("back.scc"));
    EXPECT_EQ(qtest::sccPairs(qtest::readText(dir.file("back.scc")), c.type), qtest::sccPairs(c.scc, c.type));
  }
}

}  // namespace
