// captions extract -o - --json: the captions on standard output are exactly what -o - alone
// writes, and the JSON goes to stderr (as every command's summary does when stdout carries the
// output), the same document --json alone prints.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "support/test_support.h"

namespace {

using qtest::shellQuote;

TEST(CaptionsStdout, JsonGoesToStderrWhenTheCaptionsGoToStdout) {
  const std::string source = qtest::encodedStream(
      "captions-stdout-src.264", "-f lavfi -i testsrc2=size=160x90:rate=30000/1001 -frames:v 40 -c:v libx264 -f h264");
  ASSERT_FALSE(source.empty());
  qtest::TempDir dir;
  const std::string scc =
      "Scenarist_SCC V1.0\n\n01:00:00;05\t9420 9420 94ae 94ae 9452 9452 97a1 97a1 c8e5 ecec ef80 942f 942f\n\n"
      "01:00:01;01\t942c 942c\n";
  qtest::writeBytes(dir.file("in.scc"), std::vector<uint8_t>(scc.begin(), scc.end()));
  const std::string stamped = shellQuote(dir.file("cc.264"));
  auto r = qtest::runTool("stamp " + shellQuote(source) + " " + stamped + " --tc '01:00:00;00' --rate 29.97df --captions " +
                          shellQuote(dir.file("in.scc")));
  ASSERT_EQ(r.exitCode, 0) << r.err;

  const auto srtOnly = qtest::runTool("captions extract " + stamped + " -o -");
  const auto jsonOnly = qtest::runTool("captions extract " + stamped + " --json");
  const auto both = qtest::runTool("captions extract " + stamped + " -o - --json");
  for (const auto* run : {&srtOnly, &jsonOnly, &both}) ASSERT_EQ(run->exitCode, 0) << run->err;
  ASSERT_NE(srtOnly.out.find("Hello"), std::string::npos) << srtOnly.out;
  EXPECT_EQ(both.out, srtOnly.out);
  ASSERT_TRUE(nlohmann::json::accept(both.err)) << both.err;
  EXPECT_EQ(nlohmann::json::parse(both.err), nlohmann::json::parse(jsonOnly.out));
  EXPECT_EQ(nlohmann::json::parse(both.err)["cues"].size(), 1u);
}

}  // namespace
