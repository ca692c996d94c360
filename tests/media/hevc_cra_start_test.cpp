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

using HevcCraStart = mtest::FfmpegTest;

TEST_F(HevcCraStart, StampNumbersThePicturesADecoderShows) {
  const std::string whole = qtest::encodedStream(
      "cra_open_gop.hevc", "-f lavfi -i testsrc2=size=160x96:rate=25 -frames:v 30 -c:v libx265 -x265-params "
                           "log-level=error:bframes=4:b-pyramid=1:open-gop=1:keyint=12:min-keyint=12:aud=1 -f hevc");
  const Bytes stream = qtest::readBytes(whole);
  // x265 aud=1 puts an access unit delimiter (type 35) in front of every access unit: the first
  // CRA (type 21, with RASL pictures) after the stream's start is cut at its delimiter.
  size_t cra = 0, delimiter = 0;
  qtest::forEachAnnexBUnit(stream, [&](size_t at, const uint8_t* unit, uint32_t) {
    const int type = (unit[0] >> 1) & 0x3F;
    if (type == 35) delimiter = at;
    if (type == 21 && !cra && delimiter > 0) cra = delimiter;
  });
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
