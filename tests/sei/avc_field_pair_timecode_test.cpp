// A container sample may hold both field pictures of a frame: two access units, each of which
// needs its own pic_timing SEI. The samples are made from a hand-written PAFF stream (one
// sample per frame), stamped by the library, and read back by FFmpeg's trace_headers (one
// pic_timing per field, pic_struct 1 then 2, the frame's n_frames in both), ffprobe (one
// timecode per frame) and framemd5 (pictures unchanged).
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "platform/tcxlat.h"
#include "streamutil/access_units.h"
#include "streamutil/avc_params.h"
#include "streamutil/sei.h"
#include "support/ffmpeg_oracle.h"
#include "support/paff_stream.h"
#include "support/test_support.h"

namespace {

using Bytes = std::vector<uint8_t>;

// The stream cut into one sample per frame: a frame picture, or both fields of a pair.
std::vector<Bytes> samplesPerFrame(const Bytes& s) {
  KLXUTIL_AU_CUTTER cutter;
  klxutilAuCutterInit(&cutter, KLXUTIL_AU_H264);
  std::vector<size_t> starts;
  std::vector<int32_t> fields;  // fieldPicture of each access unit
  size_t at = 0, next = 0;
  uint32_t length = 0, nextLength = 0;
  for (bool more = klxutilFindStartCode(s.data(), s.size(), 0, &at, &length) == 1; more; at = next, length = nextLength) {
    more = klxutilFindStartCode(s.data(), s.size(), at + length, &next, &nextLength) == 1;
    KLXUTIL_AU_UNIT info;
    if (klxutilAuCutterPush(&cutter, s.data() + at + length, uint32_t((more ? next : s.size()) - at - length), &info) != 0)
      return {};
    if (info.opensAccessUnit) starts.push_back(starts.empty() ? 0 : at);
    if (info.finishedValid) fields.push_back(info.finished.fieldPicture);
  }
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

SPS_DECODED firstSps(const Bytes& s) {
  SPS_DECODED sps{};
  size_t at = 0;
  uint32_t length = 0;
  if (klxutilFindStartCode(s.data(), s.size(), 0, &at, &length) == 1) {
    zr_bitstream b{const_cast<uint8_t*>(s.data() + at + length), int64_t(s.size() - at - length),
                   uint64_t(s.size() - at - length) * 8, 0};
    klxutilRead_SPS(&b, &sps);
  }
  return sps;
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

TEST(AvcFieldPairTimecode, EachFieldOfASampleGetsThePicTimingOfItsFrame) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffmpeg missing";
  // (At some patterns FFmpeg guesses a frame rate above 30 and prints every frame count
  // doubled; this one it reads at 25.)
  const std::string source = qtest::paffStream("paff-PFFPP-25.264", "PFFPP", 25);
  ASSERT_FALSE(source.empty());
  const Bytes stream = qtest::readBytes(source);
  const SPS_DECODED sps = firstSps(stream);
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
  const auto frames = oracle::frameTimecodes(stamped);
  ASSERT_EQ(frames.size(), samples.size());
  for (size_t i = 0; i < frames.size(); ++i) {
    EXPECT_FALSE(frames[i].empty()) << "frame " << i;
    for (const auto& v : frames[i]) EXPECT_EQ(v, oracle::printedTimecode(uint32_t(90000 + i), TC_PAL)) << "frame " << i;
  }
  EXPECT_EQ(oracle::pictureChecksums(stamped), oracle::pictureChecksums(source));
}

// Room for the second field's unit but not the first's: refused, and the sample is left as it
// was (the second field's unit taken out again).
TEST(AvcFieldPairTimecode, NoRoomForBothFieldsLeavesTheSampleAlone) {
  if (!qtest::haveProgram("ffmpeg")) GTEST_SKIP() << "ffmpeg missing";
  const Bytes stream = qtest::readBytes(qtest::paffStream("paff-PFFPP-25.264", "PFFPP", 25));
  ASSERT_FALSE(stream.empty());
  const SPS_DECODED sps = firstSps(stream);
  const std::vector<Bytes> samples = samplesPerFrame(stream);
  ASSERT_EQ(samples.size(), 5u);
  Bytes roomy = samples[3];
  ASSERT_EQ(stamp(roomy, 1024, 0, sps), 0);
  const size_t both = roomy.size() - samples[3].size();
  for (size_t room : {size_t(0), both / 2, both - 1}) {
    Bytes sample = samples[3];
    EXPECT_EQ(stamp(sample, room, 0, sps), KLX_SEI_NO_ROOM) << room;
    EXPECT_EQ(sample, samples[3]) << room;
  }
  Bytes exact = samples[3];
  EXPECT_EQ(stamp(exact, both, 0, sps), 0);
  EXPECT_EQ(exact, roomy);
}

}  // namespace
