// quorvane params names each parameter set by its own id beside its place in the list: x264's
// --sps-id numbers the SPS and PPS of a stream, read back from the units by ffmpeg's trace_headers.
#include <gtest/gtest.h>

#include <string>

#include "support/test_support.h"

namespace {

// Id 31, so that the id cannot be taken for the index 0.
TEST(ParameterSetIds, TextNamesTheIdSlicesReferTo) {
  if (!qtest::haveProgram("ffmpeg")) GTEST_SKIP() << "ffmpeg not installed";
  const std::string path = qtest::encodedStream(
      "param_ids_31.h264", "-f lavfi -i testsrc2=size=160x96:rate=25 -frames:v 2 -c:v libx264 -x264-params sps-id=31 -f h264");
  const auto trace = qtest::runCommand("ffmpeg -v trace -i " + qtest::shellQuote(path) +
                                       " -c copy -bsf:v trace_headers -f null - 2>&1 | grep -c 'seq_parameter_set_id.* = 31$'");
  ASSERT_NE(trace.out, "0\n") << "x264 did not number its SPS 31";
  auto r = qtest::runTool("params " + qtest::shellQuote(path));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("SPS #0 (id 31, "), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("PPS #0 (id 31, "), std::string::npos) << r.out;
}

}  // namespace
