// Open-GOP HEVC cut at a CRA picture, alone or spliced behind an end of sequence unit: the CRA
// starts a coded video sequence and its RASL pictures are not output (ITU-T H.265 8.1.3), so
// the first picture shown is the CRA. ffmpeg's decoder, the oracle, shows the timecodes that
// stamp wrote in the order it outputs the pictures.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "media_support.h"
#include "support/ffmpeg_oracle.h"
#include "support/test_support.h"
#include "support/tool_runs.h"

namespace {

using qtest::shellQuote;
using Bytes = std::vector<uint8_t>;

// Offsets of the access unit delimiters (x265 aud=1: one in front of every access unit).
std::vector<size_t> accessUnitStarts(const Bytes& d) {
  std::vector<size_t> starts;
  for (size_t i = 0; i + 4 < d.size(); ++i)
    if (d[i] == 0 && d[i + 1] == 0 && d[i + 2] == 1 && ((d[i + 3] >> 1) & 0x3F) == 35) starts.push_back(i > 0 && d[i - 1] == 0 ? i - 1 : i);
  return starts;
}
int firstSliceType(const Bytes& d, size_t from) {  // of the first VCL unit (types 0..31) after `from`
  for (size_t i = from + 5; i + 4 < d.size(); ++i)
    if (d[i] == 0 && d[i + 1] == 0 && d[i + 2] == 1 && ((d[i + 3] >> 1) & 0x3F) < 32) return (d[i + 3] >> 1) & 0x3F;
  return -1;
}

using HevcCraStart = mtest::FfmpegTest;

TEST_F(HevcCraStart, StampNumbersThePicturesADecoderShows) {
  const std::string whole = qtest::encodedStream(
      "cra_open_gop.hevc", "-f lavfi -i testsrc2=size=160x96:rate=25 -frames:v 30 -c:v libx265 -x265-params "
                           "log-level=error:bframes=4:b-pyramid=1:open-gop=1:keyint=12:min-keyint=12:aud=1 -f hevc");
  const Bytes stream = qtest::readBytes(whole);
  const auto starts = accessUnitStarts(stream);
  size_t cra = 0;
  for (size_t s : starts)
    if (!cra && s > 0 && firstSliceType(stream, s) == 21) cra = s;  // the first CRA (type 21), with RASL pictures
  ASSERT_GT(cra, 0u);
  const Bytes tail(stream.begin() + static_cast<long>(cra), stream.end());
  Bytes spliced = stream;
  for (uint8_t b : {0, 0, 0, 1, 0x48, 0x01}) spliced.push_back(b);  // end of sequence unit (type 36)
  spliced.insert(spliced.end(), tail.begin(), tail.end());

  for (const auto& [name, bytes] : {std::pair{"cut.hevc", tail}, {"spliced.hevc", spliced}}) {
    SCOPED_TRACE(name);
    qtest::TempDir dir;
    const std::string in = dir.file(name), out = dir.file(std::string("stamped_") + name);
    qtest::writeBytes(in, bytes);
    qtest::stampOk(in, out, "--tc 01:00:00:00 --rate 25");
    const auto shown = oracle::allTimecodes(out);
    ASSERT_FALSE(shown.empty());
    for (size_t i = 1; i < shown.size(); ++i) EXPECT_LT(shown[i - 1], shown[i]) << "picture " << i;
    if (std::string(name) == "cut.hevc") {
      EXPECT_EQ(shown.front(), "01:00:00:00");
      // inspect lists the pictures a decoder shows.
      EXPECT_EQ(mtest::runJson("inspect " + shellQuote(in))["pictures"].size(), shown.size());
    }
  }
}

}  // namespace
