// The SEI units stamp puts in front of a picture of a higher temporal sub-layer carry that
// picture's TemporalId, never less (ITU-T H.265 7.4.2.2): dropping the sub-layer drops them too.
// Checked on x265's temporal layers as ffmpeg's trace_headers reads the units back.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/ffmpeg_oracle.h"
#include "support/test_support.h"

namespace {

using qtest::shellQuote;

TEST(SeiTemporalId, InsertedSeiTakesThePicturesTemporalId) {
  const oracle::Stream& source = oracle::kStreams[2];  // temporal-layers=1, b-pyramid
  const std::string stream = qtest::encodedStream(source.name, source.ffmpegArgs);
  ASSERT_FALSE(stream.empty());
  qtest::TempDir dir;
  const std::string scc = "Scenarist_SCC V1.0\n\n00:00:00:01\t9420 9420 94ae 94ae 9452 9452 97a1 97a1 c8e5 ecec ef80 942f 942f\n";
  qtest::writeBytes(dir.file("in.scc"), std::vector<uint8_t>(scc.begin(), scc.end()));
  for (const char* out : {"out.hevc", "out.mp4"}) {
    SCOPED_TRACE(out);
    auto r = qtest::runTool("stamp " + shellQuote(stream) + " " + shellQuote(dir.file(out)) +
                            " --tc 00:00:00:00 --rate 25 --captions " + shellQuote(dir.file("in.scc")));
    ASSERT_EQ(r.exitCode, 0) << r.err;
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

}  // namespace
