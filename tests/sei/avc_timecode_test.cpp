// H.264 timecode (pic_timing clock timestamps) stamped into x264 streams whose pic_timing already
// says something (3:2 pulldown, HRD delays), read back by ffprobe and trace_headers; the SPS
// rewrite; both fields of a sample stamped. (The frame rates and interlaced codings are rows of
// StampInterop.FfprobeReadsTheStampedTimecodesInDisplayOrder.)
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "platform/tcxlat.h"
#include "streamutil/access_units.h"
#include "streamutil/avc_params.h"
#include "streamutil/sei.h"
#include "support/ffmpeg_oracle.h"
#include "support/paff_stream.h"
#include "support/param_streams.h"
#include "support/test_support.h"
#include "support/tool_runs.h"

namespace {

using Bytes = std::vector<uint8_t>;
using qtest::shellQuote;

using oracle::frameTimecodes;
using oracle::pictureChecksums;
using oracle::printedTimecode;

// The values of the named syntax elements trace_headers reads, one "name value" line each.
std::string tracedValues(const std::string& path, const std::string& names) {
  return qtest::runCommand("ffmpeg -v trace -i " + shellQuote(path) + " -c copy -bsf:v trace_headers -f null - 2>&1 | grep -E ' (" +
                           names + ") ' | sed 's/^\\[[^]]*\\] //' | awk '{print $2, $NF}'").out;
}

// x264's 3:2 pulldown: pic_struct 3..6 stay, every clock timestamp slot gets the timecode.
TEST(AvcTimecode, PulldownKeepsPicStructAndFillsEverySlot) {
  if (!qtest::haveProgram("ffprobe") || !qtest::haveProgram("x264")) GTEST_SKIP();
  qtest::TempDir dir;
  const std::string yuv = dir.file("in.yuv"), in = dir.file("in.264"), out = dir.file("out.264");
  auto r = qtest::runCommand("ffmpeg -v error -f lavfi -i testsrc2=size=160x96:rate=24000/1001 -frames:v 10 -pix_fmt yuv420p "
                             "-f rawvideo " + shellQuote(yuv) + " && x264 --quiet --pulldown 32 --fps 24000/1001 --bframes 2 "
                             "--threads 1 --input-res 160x96 -o " + shellQuote(in) + " " + shellQuote(yuv));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  qtest::stampOk(in, out, "--tc 01:00:00:00 --rate 23.98");
  const std::string kept = "pic_struct|cpb_removal_delay";
  EXPECT_EQ(tracedValues(out, kept), tracedValues(in, kept));
  const auto frames = frameTimecodes(out);
  ASSERT_EQ(frames.size(), 10u);
  size_t slots = 0;
  for (size_t i = 0; i < frames.size(); ++i) {
    slots += frames[i].size();
    for (const auto& v : frames[i]) EXPECT_EQ(v, printedTimecode(86400 + uint32_t(i), TC_2398));
  }
  EXPECT_EQ(slots, 25u) << "3:2 pulldown: 10 pictures, 25 fields";
  EXPECT_EQ(pictureChecksums(out), pictureChecksums(in));
}

// An HRD stream's pic_timing keeps its delays; its SPS is left as it is (pic_struct present).
TEST(AvcTimecode, ExistingPicTimingKeepsItsDelays) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP();
  qtest::TempDir dir;
  const std::string in = qtest::samplePath("h264_160x90_2997_aud_hrd.264"), out = dir.file("out.264");
  qtest::stampOk(in, out, "--tc '00:59:59;28'");
  const std::string kept = "cpb_removal_delay|dpb_output_delay|pic_struct|seq_parameter_set_id|initial_cpb_removal_delay";
  EXPECT_FALSE(tracedValues(in, kept).empty());
  EXPECT_EQ(tracedValues(out, kept), tracedValues(in, kept));
  qtest::expectTimecodesCountOn(out, 10, 107890, TC_DF2997);
}

// The SPS rewrite: pic_struct_present_flag set, every other field as read.
TEST(AvcTimecode, SpsRewriteSetsOnlyPicStructPresent) {
  const auto units = ptest::splitAnnexB(qtest::readBytes(qtest::samplePath("h264_160x90_25fps.264")));
  const auto* found = ptest::firstAvcUnit(units, 7);
  ASSERT_NE(found, nullptr);
  std::vector<uint8_t> nal = *found, out(nal.size() + 16);
  uint32_t n = 0;
  ASSERT_EQ(klxutilAVCSpsForTimeCode(nal.data(), uint32_t(nal.size()), out.data(), uint32_t(out.size()), &n), 0);
  static SPS_DECODED before, after;
  zr_bitstream a{nal.data(), int64_t(nal.size()), nal.size() * 8, 0}, b{out.data(), int64_t(n), uint64_t(n) * 8, 0};
  ASSERT_GT(klxutilRead_SPS(&a, &before), 0u);
  ASSERT_GT(klxutilRead_SPS(&b, &after), 0u);
  EXPECT_EQ(before.vui.pic_struct_present_flag, 0);
  EXPECT_EQ(after.vui.pic_struct_present_flag, 1);
  after.vui.pic_struct_present_flag = 0;
  EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
  // Once set, the unit comes back as it is (1), and too small an output is refused.
  std::vector<uint8_t> copy(n + 4);
  uint32_t m = 0;
  EXPECT_EQ(klxutilAVCSpsForTimeCode(out.data(), n, copy.data(), uint32_t(copy.size()), &m), 1);
  EXPECT_EQ(std::vector<uint8_t>(copy.begin(), copy.begin() + m), std::vector<uint8_t>(out.begin(), out.begin() + n));
  EXPECT_EQ(klxutilAVCSpsForTimeCode(nal.data(), uint32_t(nal.size()), out.data(), 4, &m), KLX_SEI_NO_ROOM);
  EXPECT_EQ(klxutilAVCSpsForTimeCode(nal.data(), 3, out.data(), 64, &m), -1);
}

// The stream cut into one sample per frame: a frame picture, or both fields of a pair.
std::vector<Bytes> samplesPerFrame(const Bytes& s) {
  KLXUTIL_AU_CUTTER cutter;
  klxutilAuCutterInit(&cutter, KLXUTIL_AU_H264);
  std::vector<size_t> starts;
  std::vector<int32_t> fields;  // fieldPicture of each access unit
  bool cut = true;
  qtest::forEachAnnexBUnit(s, [&](size_t at, const uint8_t* unit, uint32_t size) {
    KLXUTIL_AU_UNIT info;
    cut = cut && klxutilAuCutterPush(&cutter, unit, size, &info) == 0;
    if (cut && info.opensAccessUnit) starts.push_back(starts.empty() ? 0 : at);
    if (cut && info.finishedValid) fields.push_back(info.finished.fieldPicture);
  });
  if (!cut) return {};
  fields.push_back(cutter.current.fieldPicture);
  starts.push_back(s.size());
  std::vector<Bytes> samples;
  for (size_t i = 0; i + 1 < starts.size(); ++i) {
    const size_t end = fields[i] == 1 ? starts[i + 2] : starts[i + 1];
    samples.emplace_back(s.begin() + long(starts[i]), s.begin() + long(end));
    if (fields[i] == 1) ++i;
  }
  return samples;
}

int stamp(Bytes& sample, size_t room, uint32_t timecode, const SPS_DECODED& sps) {
  const size_t size = sample.size();
  sample.resize(size + room);
  DFRAME frame{};
  frame.pData = sample.data();
  frame.nDataSize = uint32_t(size);
  frame.nBufferSize = uint32_t(sample.size());
  frame.nTimecode = timecode;
  frame.nTimecodeAlt = DFRAME_NOT_SET;
  const int rc = klxutilAddAVCTimeCode(&frame, TC_PAL, &sps, 0, 0);
  sample.resize(frame.nDataSize);
  return rc;
}

std::vector<int64_t> traced(const std::vector<oracle::TraceLine>& lines, const std::string& name) {
  std::vector<int64_t> values;
  for (const auto& l : lines)
    if (l.isElement && l.name == name) values.push_back(l.value);
  return values;
}

// A container sample may hold both field pictures of a frame: two access units, each of which
// needs its own pic_timing SEI. The samples are made from a hand-written PAFF stream (one
// sample per frame), stamped by the library, and read back by FFmpeg's trace_headers (one
// pic_timing per field, pic_struct 1 then 2, the frame's n_frames in both), ffprobe (one
// timecode per frame) and framemd5 (pictures unchanged).
TEST(AvcFieldPairTimecode, EachFieldOfASampleGetsThePicTimingOfItsFrame) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffmpeg missing";
  // (At some patterns FFmpeg guesses a frame rate above 30 and prints every frame count
  // doubled; this one it reads at 25.)
  const std::string source = qtest::paffStream("paff-PFFPP-25.264", "PFFPP", 25);
  ASSERT_FALSE(source.empty());
  const Bytes stream = qtest::readBytes(source);
  Bytes spsUnit = *ptest::firstAvcUnit(ptest::splitAnnexB(stream), 7);
  zr_bitstream spsBits = ptest::over(spsUnit);
  static SPS_DECODED sps;
  ASSERT_GT(klxutilRead_SPS(&spsBits, &sps), 0u);
  std::vector<Bytes> samples = samplesPerFrame(stream);
  ASSERT_EQ(samples.size(), 5u);
  qtest::TempDir dir;
  const std::string stamped = dir.file("stamped.264");
  {
    std::ofstream out(stamped, std::ios::binary);
    for (size_t i = 0; i < samples.size(); ++i) {
      ASSERT_EQ(stamp(samples[i], 1024, uint32_t(90000 + i), sps), 0) << i;
      out.write(reinterpret_cast<const char*>(samples[i].data()), std::streamsize(samples[i].size()));
    }
  }
  const auto lines = oracle::traceHeaderLines(stamped);
  EXPECT_EQ(traced(lines, "pic_struct"), (std::vector<int64_t>{1, 2, 3, 3, 1, 2, 1, 2}));
  // n_frames in every clock timestamp: each field of a pair and each frame picture (pic_struct 3)
  // carry two, all the frame's.
  EXPECT_EQ(traced(lines, "n_frames"), (std::vector<int64_t>{0, 0, 1, 1, 2, 2, 3, 3, 4, 4}));
  qtest::expectTimecodesCountOn(stamped, samples.size(), 90000, TC_PAL, 0);
  EXPECT_EQ(oracle::pictureChecksums(stamped), oracle::pictureChecksums(source));

  // Room for the second field's unit but not the first's: refused, and the sample is left as it
  // was (the second field's unit taken out again).
  const std::vector<Bytes> unstamped = samplesPerFrame(stream);
  const size_t both = samples[3].size() - unstamped[3].size();
  for (size_t room : {size_t(0), both / 2, both - 1}) {
    Bytes sample = unstamped[3];
    EXPECT_EQ(stamp(sample, room, 90003, sps), KLX_SEI_NO_ROOM) << room;
    EXPECT_EQ(sample, unstamped[3]) << room;
  }
  Bytes exact = unstamped[3];
  EXPECT_EQ(stamp(exact, both, 90003, sps), 0);
  EXPECT_EQ(exact, samples[3]);
}

}  // namespace
