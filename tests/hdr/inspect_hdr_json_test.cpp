// inspect --json gives the mastering display of an x265 HDR10 stream as the numbers ffprobe's
// side data gives as fractions (x/50000 chromaticity, L/10000 cd/m2): each JSON value is the
// double nearest the fraction, so 7500 units read 0.15, not 0.15000000000000002.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <map>
#include <sstream>
#include <string>

#include "support/test_support.h"

namespace {

// "red_x" -> "34000/50000": the mastering display side data of the first frame.
std::map<std::string, std::string> ffprobeMasteringDisplay(const std::string& path) {
  auto r = qtest::runCommand("ffprobe -v error -read_intervals %+#1 -show_frames " + qtest::shellQuote(path));
  std::map<std::string, std::string> fractions;
  std::istringstream in(r.out);
  for (std::string line; std::getline(in, line);) {
    const size_t eq = line.find('=');
    if (eq != std::string::npos && line.find('/', eq) != std::string::npos) fractions[line.substr(0, eq)] = line.substr(eq + 1);
  }
  return fractions;
}

double fraction(const std::string& text) {
  const size_t slash = text.find('/');
  return std::stod(text.substr(0, slash)) / std::stod(text.substr(slash + 1));
}

TEST(InspectHdrJson, MasteringDisplayNumbersAreTheFractionsFfprobeGives) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffprobe missing";
  const std::string path = qtest::encodedStream(
      "inspect-hdr10.hevc",
      "-f lavfi -i testsrc2=size=160x90:rate=25 -frames:v 2 -pix_fmt yuv420p10le -c:v libx265 -x265-params "
      "'log-level=error:hdr10=1:master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1):"
      "max-cll=1000,400' -f hevc");
  ASSERT_FALSE(path.empty());
  auto theirs = ffprobeMasteringDisplay(path);
  ASSERT_EQ(theirs.count("blue_x"), 1u) << "no mastering display side data";
  auto r = qtest::runTool("inspect --json " + qtest::shellQuote(path));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto md = nlohmann::json::parse(r.out)["hdr"]["masteringDisplay"];
  for (const auto& p : md["primaries"]) {
    const std::string colour = p["colour"];
    EXPECT_EQ(double(p["x"]), fraction(theirs[colour + "_x"])) << colour;
    EXPECT_EQ(double(p["y"]), fraction(theirs[colour + "_y"])) << colour;
  }
  EXPECT_EQ(double(md["whitePoint"]["x"]), fraction(theirs["white_point_x"]));
  EXPECT_EQ(double(md["whitePoint"]["y"]), fraction(theirs["white_point_y"]));
  EXPECT_EQ(double(md["maxLuminance"]), fraction(theirs["max_luminance"]));
  EXPECT_EQ(double(md["minLuminance"]), fraction(theirs["min_luminance"]));
  // The text report names the light level x265 was given.
  r = qtest::runTool("inspect " + qtest::shellQuote(path));
  EXPECT_NE(r.out.find("content light level: MaxCLL 1000 cd/m2, MaxFALL 400 cd/m2"), std::string::npos) << r.out;
}

}  // namespace
