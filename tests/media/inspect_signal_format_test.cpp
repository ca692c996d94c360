// inspect's signal format: the word of the stream's raster and rate, and whether the word stands
// for the stream exactly or is only the nearest one (its sizes are buckets, its rates a list,
// and below 600 lines its scan follows the height).
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "support/test_support.h"

namespace {

struct Case {
  const char* name;
  const char* source;  // an ffmpeg encoding, or a bundled sample
  const char* text;    // signalFormatText, "" for null
  bool exact;
  const char* line;    // what the text report says after "signal format: " (its end)
};

const Case kCases[] = {
    {"fmt-1080i2997.264", "1920x1080:rate=30000/1001 -frames:v 2 -c:v libx264 -flags +ildct+ilme -f h264", "1920x1080i@29.97",
     true, "0x1380B21D 1920x1080i@29.97"},
    {"fmt-720p50.hevc", "1280x720:rate=50 -frames:v 2 -c:v libx265 -x265-params log-level=error -f hevc", "1280x720P@50", true,
     "0x22109032 1280x720P@50"},
    {"fmt-1000x600.264", "1000x600:rate=24 -frames:v 2 -c:v libx264 -f h264", "988x600P@24", false,
     "988x600P@24 (the nearest word: the stream is 1000x600 progressive at 24 fps)"},
    {"fmt-576-12.5.264", "720x576:rate=12.5 -frames:v 2 -c:v libx264 -f h264", "720x576i@Custom", false,
     "720x576i@Custom (the nearest word: the stream is 720x576 progressive at 12.5 fps)"},
    {"fmt-576i25.264", "720x576:rate=25 -frames:v 2 -c:v libx264 -flags +ildct+ilme -f h264", "PAL-CCIR601", true,
     "0x11A04219 PAL-CCIR601"},
    {"fmt-240p25.hevc", "320x240:rate=25 -frames:v 2 -c:v libx265 -x265-params log-level=error -f hevc", "320x240i@25",
     false, "320x240i@25 (the nearest word: the stream is 320x240 progressive at 25 fps)"},
    {"h264_160x90_25fps.264", nullptr, "", false, "none (no format word has a 160x90 raster)"},
};

TEST(InspectSignalFormat, SaysWhetherTheWordIsTheStreamsOwn) {
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const std::string path = c.source ? qtest::encodedStream(c.name, std::string("-f lavfi -i testsrc2=size=") + c.source)
                                      : qtest::samplePath(c.name);
    ASSERT_FALSE(path.empty());
    const auto json = qtest::runTool("inspect --json " + qtest::shellQuote(path));
    ASSERT_EQ(json.exitCode, 0) << json.err;
    const auto sets = nlohmann::json::parse(json.out).at("parameterSets");
    if (*c.text) {
      EXPECT_EQ(sets.at("signalFormatText"), c.text);
      EXPECT_TRUE(sets.at("signalFormat").is_number());
    } else {
      EXPECT_TRUE(sets.at("signalFormat").is_null());
      EXPECT_TRUE(sets.at("signalFormatText").is_null());
    }
    EXPECT_EQ(sets.at("signalFormatExact"), c.exact);
    const auto text = qtest::runTool("inspect " + qtest::shellQuote(path));
    ASSERT_EQ(text.exitCode, 0) << text.err;
    const std::string line = std::string(c.line) + "\n";
    const size_t at = text.out.find("signal format: ");
    ASSERT_NE(at, std::string::npos) << text.out;
    const size_t end = text.out.find('\n', at);
    EXPECT_TRUE(text.out.substr(at, end + 1 - at).ends_with(line)) << text.out.substr(at, end - at);
  }
}

}  // namespace
