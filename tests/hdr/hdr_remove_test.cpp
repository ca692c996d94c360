// quorvane hdr --remove: the named HDR SEI messages leave every access unit of x265's and x264's
// HDR10 streams, the others stay (read back by ffmpeg's trace_headers), the pictures do not change.
#include <gtest/gtest.h>

#include <string>

#include "support/edit_support.h"
#include "support/ffmpeg_oracle.h"
#include "support/param_streams.h"
#include "support/test_support.h"

namespace {

std::string hdr10Stream(bool hevc) {
  const std::string md = "master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)";
  const std::string source = "-f lavfi -i testsrc2=size=160x96:rate=25 -frames:v 8 ";
  return hevc ? qtest::encodedStream("hdr_remove.hevc", source + "-pix_fmt yuv420p10le -c:v libx265 -x265-params "
                                                                 "'log-level=error:keyint=4:repeat-headers=1:" + md +
                                                                 ":max-cll=1000,400' -f hevc")
              : qtest::encodedStream("hdr_remove.h264", source + "-c:v libx264 -x264-params 'keyint=4:mastering-display=" +
                                                                 md.substr(md.find('=') + 1) + ":cll=1000,400' -f h264");
}

// How many messages of each kind trace_headers reads.
struct Counts {
  size_t masteringDisplay = 0, lightLevel = 0;
};
Counts count(const std::string& path) {
  Counts c;
  for (const auto& unit : ptest::traceHeaders(path)) {
    if (auto it = unit.elements.find("max_display_mastering_luminance"); it != unit.elements.end()) c.masteringDisplay += it->second.size();
    if (auto it = unit.elements.find("max_content_light_level"); it != unit.elements.end()) c.lightLevel += it->second.size();
  }
  return c;
}

TEST(HdrRemove, NamedMessagesLeaveEveryAccessUnit) {
  if (!qtest::haveProgram("ffmpeg")) GTEST_SKIP() << "ffmpeg not installed";
  struct Row {
    const char* remove;
    bool keepsMasteringDisplay, keepsLightLevel;
  };
  const Row rows[] = {{"max-cll", true, false}, {"master-display", false, true}, {"all", false, false},
                      {"master-display,max-cll", false, false}};
  for (bool hevc : {true, false}) {
    const std::string in = hdr10Stream(hevc);
    const Counts before = count(in);
    ASSERT_GT(before.masteringDisplay, 0u);
    ASSERT_GT(before.lightLevel, 0u);
    for (const Row& row : rows) {
      SCOPED_TRACE(std::string(hevc ? "hevc " : "h264 ") + row.remove);
      qtest::TempDir dir;
      const std::string out = dir.file(hevc ? "out.hevc" : "out.h264");
      auto r = qtest::runTool("hdr " + qtest::shellQuote(in) + " " + qtest::shellQuote(out) + " --remove " + row.remove);
      ASSERT_EQ(r.exitCode, 0) << r.err;
      const Counts after = count(out);
      EXPECT_EQ(after.masteringDisplay, row.keepsMasteringDisplay ? before.masteringDisplay : 0u);
      EXPECT_EQ(after.lightLevel, row.keepsLightLevel ? before.lightLevel : 0u);
      EXPECT_EQ(oracle::pictureChecksums(out), oracle::pictureChecksums(in));
    }
  }
}

TEST(HdrRemove, RefusesUnknownNamesAndContradictions) {
  qtest::TempDir dir;
  const std::string in = dir.file("in.hevc"), out = dir.file("out.hevc");
  qtest::writeBytes(in, {0, 0, 1, 0x40, 1});
  for (const char* args : {"--remove mastering", "--remove max-cll --max-cll 10,5", "--remove ''"}) {
    SCOPED_TRACE(args);
    auto r = qtest::runTool("hdr " + in + " " + out + " " + args);
    EXPECT_EQ(r.exitCode, 2);  // a usage error
    qtest::expectOneLineError(r, "hdr");
  }
}

}  // namespace
