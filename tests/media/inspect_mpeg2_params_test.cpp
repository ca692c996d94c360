// inspect on MPEG-2 video: the summary of the first sequence header and sequence extension
// (raster, frame rate with frame_rate_extension_n/d, scan, profile/level, chroma format) equals
// what ffprobe reads from streams ffmpeg made, and the signal-format word follows from it as for
// H.264/HEVC (in a transport stream too, whose copy of the headers keeps the trailing zero bytes
// the stream's splitter drops). The library reader refuses short or foreign units.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "streamutil/mpeg2_sequence.h"
#include "support/test_support.h"

namespace {

struct Case {
  const char* name;
  const char* source;  // ffmpeg arguments after testsrc2=size=, or null for a bundled sample
  const char* word;    // signalFormatText, "" for null
};

const Case kCases[] = {
    {"m2v-1080i2997.m2v", "1920x1080:rate=30000/1001 -frames:v 2 -c:v mpeg2video -flags +ildct+ilme -f mpeg2video", "1920x1080i@29.97"},
    {"m2v-576i25-422.m2v", "720x576:rate=25 -frames:v 2 -c:v mpeg2video -flags +ildct+ilme -pix_fmt yuv422p -f mpeg2video",
     "PAL-CCIR601"},
    {"m2v-720p50.m2v", "1280x720:rate=50 -frames:v 2 -c:v mpeg2video -f mpeg2video", "1280x720P@50"},
    {"m2v-288p12.m2v", "352x288:rate=12.5 -frames:v 2 -c:v mpeg2video -f mpeg2video", ""},  // 24 * 1/2: frame_rate_extension_d
    {"m2v-576i25.ts", "720x576:rate=25 -frames:v 2 -c:v mpeg2video -flags +ildct+ilme -f mpegts", "PAL-CCIR601"},
    {"mpeg2_160x90_2997.m2v", nullptr, ""},
};

// ffprobe's level numbers are the low bits of profile_and_level_indication (its "4:2:2" profile
// carries the escaped 0x82/0x85).
std::string levelName(const std::string& profile, int level) {
  static const std::map<int, std::string> kLevels = {{4, "High"}, {6, "High 1440"}, {8, "Main"}, {10, "Low"}};
  static const std::map<int, std::string> k422Levels = {{2, "High"}, {5, "Main"}};
  const auto& table = profile == "4:2:2" ? k422Levels : kLevels;
  return table.count(level) ? table.at(level) : "?";
}

TEST(InspectMpeg2Params, SummaryEqualsFfprobe) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffprobe missing";
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const std::string path = c.source ? qtest::encodedStream(c.name, std::string("-f lavfi -i testsrc2=size=") + c.source)
                                      : qtest::samplePath(c.name);
    ASSERT_FALSE(path.empty());
    const auto probe = qtest::runCommand("ffprobe -v error -select_streams v:0 -show_entries "
                                         "stream=width,height,r_frame_rate,field_order,profile,level,pix_fmt -of json " +
                                         qtest::shellQuote(path));
    ASSERT_EQ(probe.exitCode, 0) << probe.err;
    const auto oracle = nlohmann::json::parse(probe.out).at("streams").at(0);
    const auto json = qtest::runTool("inspect --json " + qtest::shellQuote(path));
    ASSERT_EQ(json.exitCode, 0) << json.err;
    const auto sets = nlohmann::json::parse(json.out).at("parameterSets");
    EXPECT_GE(sets.at("sequenceHeaders").get<int>(), 1);
    EXPECT_EQ(sets.at("sequenceExtensions"), 1);
    const auto s = sets.at("summary");
    EXPECT_EQ(s.at("codec"), "mpeg2");
    EXPECT_EQ(s.at("width"), oracle.at("width"));
    EXPECT_EQ(s.at("height"), oracle.at("height"));
    EXPECT_EQ(std::to_string(s.at("rate").get<int>()) + "/" + std::to_string(s.at("scale").get<int>()),
              oracle.at("r_frame_rate"));
    EXPECT_EQ(s.at("interlaced"), oracle.at("field_order") != "progressive");
    EXPECT_EQ(s.at("profile"), oracle.at("profile"));
    EXPECT_EQ(s.at("level"), levelName(oracle.at("profile"), oracle.at("level")));
    EXPECT_EQ(s.at("chromaFormat"), oracle.at("pix_fmt") == "yuv422p" ? "4:2:2" : "4:2:0");
    if (*c.word) {
      EXPECT_EQ(sets.at("signalFormatText"), c.word);
      EXPECT_TRUE(sets.at("signalFormatExact"));
    } else {
      EXPECT_FALSE(sets.at("signalFormatExact"));
    }
    const auto text = qtest::runTool("inspect " + qtest::shellQuote(path));
    ASSERT_EQ(text.exitCode, 0) << text.err;
    EXPECT_NE(text.out.find("sequence headers: "), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("  MPEG-2 " + oracle.at("profile").get<std::string>() + ", level "), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("signal format: "), std::string::npos) << text.out;
  }
}

// A sequence header of 4095x4095 with size extensions 3 (16383x16383) and frame_rate_code 8 (60)
// with n = 1, d = 1: every field at its widest.
TEST(InspectMpeg2Params, ReaderTakesExtensionsAndRefusesBadUnits) {
  const uint8_t header[] = {0xB3, 0xFF, 0xFF, 0xFF, 0x18, 0xFF, 0xFF, 0xE0, 0x00};
  const uint8_t extension[] = {0xB5, 0x14, 0x8D, 0xE0, 0x01, 0x00, 0x21};  // Main@Main, progressive, 4:2:2
  KLX_MPEG2_SEQUENCE seq{};
  ASSERT_EQ(klxutilReadMpeg2SequenceHeader(header, sizeof header, &seq), 0);
  EXPECT_EQ(seq.horizontal_size, 4095u);
  EXPECT_EQ(seq.frameRate, 60u);
  EXPECT_TRUE(seq.progressive_sequence);
  ASSERT_EQ(klxutilReadMpeg2SequenceExtension(extension, sizeof extension, &seq), 0);
  EXPECT_EQ(seq.horizontal_size, 16383u);
  EXPECT_EQ(seq.vertical_size, 16383u);
  EXPECT_EQ(seq.chroma_format, 2u);
  EXPECT_EQ(seq.frame_rate_extension_n, 1u);
  EXPECT_EQ(seq.frame_rate_extension_d, 1u);
  EXPECT_EQ(seq.frameRate, 60u);
  EXPECT_EQ(seq.frameRateScale, 1u);
  EXPECT_STREQ(klxutilMpeg2ProfileName(seq.profile_and_level_indication), "Main");
  EXPECT_STREQ(klxutilMpeg2LevelName(seq.profile_and_level_indication), "Main");

  // A splitter takes the last zero byte for stuffing: the shorter units read the same.
  const uint8_t extensionEndingInZeros[] = {0xB5, 0x14, 0x8D, 0xE0, 0x01, 0x00, 0x00};
  KLX_MPEG2_SEQUENCE whole{}, cut{};
  ASSERT_EQ(klxutilReadMpeg2SequenceHeader(header, sizeof header, &whole), 0);
  ASSERT_EQ(klxutilReadMpeg2SequenceExtension(extensionEndingInZeros, sizeof extensionEndingInZeros, &whole), 0);
  ASSERT_EQ(klxutilReadMpeg2SequenceHeader(header, sizeof header - 1, &cut), 0);
  ASSERT_EQ(klxutilReadMpeg2SequenceExtension(extensionEndingInZeros, 5, &cut), 0);
  EXPECT_EQ(std::memcmp(&cut, &whole, sizeof cut), 0);

  const KLX_MPEG2_SEQUENCE before = seq;
  const uint8_t noMarker[] = {0xB5, 0x14, 0x8D, 0xE0, 0x00, 0x00, 0x21};
  const uint8_t otherExtension[] = {0xB5, 0x24, 0x8D, 0xE0, 0x01, 0x00, 0x21};
  EXPECT_EQ(klxutilReadMpeg2SequenceExtension(extension, 4, &seq), -1);  // cut before its marker_bit
  EXPECT_EQ(klxutilReadMpeg2SequenceExtension(noMarker, sizeof noMarker, &seq), -1);
  EXPECT_EQ(klxutilReadMpeg2SequenceExtension(otherExtension, sizeof otherExtension, &seq), -1);
  EXPECT_EQ(klxutilReadMpeg2SequenceExtension(header, sizeof header, &seq), -1);
  EXPECT_EQ(std::memcmp(&before, &seq, sizeof seq), 0);
  EXPECT_EQ(klxutilReadMpeg2SequenceHeader(header, 7, &seq), -1);
  EXPECT_EQ(klxutilReadMpeg2SequenceHeader(extension, sizeof extension, &seq), -1);
  EXPECT_EQ(klxutilReadMpeg2SequenceHeader(nullptr, 8, &seq), -1);
}

}  // namespace
