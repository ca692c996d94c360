// inspect's account of the video format, against ffprobe on streams ffmpeg made: the signal-format
// word of the stream's raster and rate, and whether the word stands for the stream exactly or is
// only the nearest one (its sizes are buckets, its rates a list, and below 600 lines its scan
// follows the height); for MPEG-2 the summary of the first sequence header and sequence extension
// (raster, frame rate with frame_rate_extension_n/d, scan, profile/level, chroma format), in a
// transport stream too, whose copy of the headers keeps the trailing zero bytes the stream's
// splitter drops; and the colour description of the sequence_display_extension (ISO/IEC 13818-2
// 6.2.2.4), printed as the H.264/HEVC VUI's is. The library's readers refuse short or foreign units.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "media_support.h"
#include "streamutil/mpeg2_sequence.h"
#include "support/test_support.h"
#include "support/tool_runs.h"

namespace {

using qtest::shellQuote;

// inspect's JSON and text reports of a stream.
struct Report {
  nlohmann::json json;
  std::string text;
};
Report inspect(const std::string& path) {
  return {mtest::runJson("inspect " + shellQuote(path)), qtest::runToolOk("inspect " + shellQuote(path)).out};
}

// ffprobe's entries of the stream's first video stream.
nlohmann::json probedStream(const std::string& path, const std::string& entries) {
  const auto probe = qtest::runCommand("ffprobe -v error -select_streams v:0 -show_entries stream=" + entries + " -of json " +
                                       shellQuote(path));
  EXPECT_EQ(probe.exitCode, 0) << probe.err;
  return nlohmann::json::parse(probe.out).at("streams").at(0);
}

struct Case {
  const char* name;    // the extension "m2v" in the name marks MPEG-2 video
  const char* source;  // ffmpeg arguments after testsrc2=size=, or null for a bundled sample
  const char* text;    // signalFormatText, "" for null
  bool exact;
  const char* line;    // what the text report says after "signal format: " (its end)
};

const Case kCases[] = {
    {"fmt-1080i2997.264", "1920x1080:rate=30000/1001 -frames:v 2 -c:v libx264 -flags +ildct+ilme -f h264", "1920x1080i@29.97",
     true, "0x1380B21D 1920x1080i@29.97"},
    {"fmt-1000x600.264", "1000x600:rate=24 -frames:v 2 -c:v libx264 -f h264", "988x600P@24", false,
     "988x600P@24 (the nearest word: the stream is 1000x600 progressive at 24 fps)"},
    {"fmt-576-12.5.264", "720x576:rate=12.5 -frames:v 2 -c:v libx264 -f h264", "720x576i@Custom", false,
     "720x576i@Custom (the nearest word: the stream is 720x576 progressive at 12.5 fps)"},
    {"fmt-240p25.hevc", "320x240:rate=25 -frames:v 2 -c:v libx265 -x265-params log-level=error -f hevc", "320x240i@25",
     false, "320x240i@25 (the nearest word: the stream is 320x240 progressive at 25 fps)"},
    {"h264_160x90_25fps.264", nullptr, "", false, "none (no format word has a 160x90 raster)"},
    {"m2v-1080i2997.m2v", "1920x1080:rate=30000/1001 -frames:v 2 -c:v mpeg2video -flags +ildct+ilme -f mpeg2video",
     "1920x1080i@29.97", true, "0x1380B21D 1920x1080i@29.97"},
    {"m2v-576i25-422-bt470bg.m2v", "720x576:rate=25 -frames:v 2 -c:v mpeg2video -flags +ildct+ilme -pix_fmt yuv422p "
     "-color_primaries bt470bg -color_trc gamma28 -colorspace bt470bg -f mpeg2video", "PAL-CCIR601", true, "0x11A04219 PAL-CCIR601"},
    // 24 * 1/2: frame_rate_extension_d
    {"m2v-288p12-smpte170m.m2v", "352x288:rate=12.5 -frames:v 2 -c:v mpeg2video -color_primaries smpte170m -color_trc smpte170m "
     "-colorspace smpte170m -f mpeg2video", "352x288i@Custom", false,
     "0x10301300 352x288i@Custom (the nearest word: the stream is 352x288 progressive at 12 fps)"},
    {"m2v-576i25.ts", "720x576:rate=25 -frames:v 2 -c:v mpeg2video -flags +ildct+ilme -f mpegts", "PAL-CCIR601", true,
     "0x11A04219 PAL-CCIR601"},
    {"mpeg2_160x90_2997.m2v", nullptr, "", false, "none (no format word has a 160x90 raster)"},
};

// ffprobe's level numbers are the low bits of profile_and_level_indication (its "4:2:2" profile
// carries the escaped 0x82/0x85).
std::string levelName(const std::string& profile, int level) {
  static const std::map<int, std::string> kLevels = {{4, "High"}, {6, "High 1440"}, {8, "Main"}, {10, "Low"}};
  static const std::map<int, std::string> k422Levels = {{2, "High"}, {5, "Main"}};
  const auto& table = profile == "4:2:2" ? k422Levels : kLevels;
  return table.count(level) ? table.at(level) : "?";
}

// The MPEG-2 summary of inspect's reports against ffprobe's reading of the stream, and the colour
// description of the sequence display extension, printed as the H.264/HEVC VUI's is; whether the
// stream has one is what ffprobe says.
bool expectMpeg2SummaryAndColour(const Report& report, const std::string& path) {
  const auto oracle = probedStream(path, "width,height,r_frame_rate,field_order,profile,level,pix_fmt,"
                                         "color_primaries,color_transfer,color_space");
  const auto sets = report.json.at("parameterSets");
  EXPECT_GE(sets.at("sequenceHeaders").get<int>(), 1);
  EXPECT_EQ(sets.at("sequenceExtensions"), 1);
  const auto s = sets.at("summary");
  EXPECT_EQ(s.at("codec"), "mpeg2");
  EXPECT_EQ(s.at("width"), oracle.at("width"));
  EXPECT_EQ(s.at("height"), oracle.at("height"));
  EXPECT_EQ(std::to_string(s.at("rate").get<int>()) + "/" + std::to_string(s.at("scale").get<int>()), oracle.at("r_frame_rate"));
  EXPECT_EQ(s.at("interlaced"), oracle.at("field_order") != "progressive");
  EXPECT_EQ(s.at("profile"), oracle.at("profile"));
  EXPECT_EQ(s.at("level"), levelName(oracle.at("profile"), oracle.at("level")));
  EXPECT_EQ(s.at("chromaFormat"), oracle.at("pix_fmt") == "yuv422p" ? "4:2:2" : "4:2:0");
  EXPECT_NE(report.text.find("sequence headers: "), std::string::npos) << report.text;
  EXPECT_NE(report.text.find("  MPEG-2 " + oracle.at("profile").get<std::string>() + ", level "), std::string::npos) << report.text;

  const auto hdr = report.json.at("hdr");
  const bool described = oracle.value("color_primaries", "unknown") != "unknown";
  EXPECT_EQ(hdr.at("colourDescription"), described);
  EXPECT_EQ(sets.at("sequenceDisplayExtensions"), described ? 1 : 0);
  if (described) {
    EXPECT_EQ(hdr.at("colourPrimariesName"), oracle.at("color_primaries"));
    EXPECT_EQ(hdr.at("transferCharacteristicsName"), oracle.at("color_transfer"));
    EXPECT_EQ(hdr.at("matrixCoefficientsName"), oracle.at("color_space"));
    EXPECT_EQ(s.at("colourPrimaries"), hdr.at("colourPrimaries"));
  }
  const std::string colour =
      described ? "  colour: primaries " + hdr.at("colourPrimariesName").get<std::string>() + " (" +
                      std::to_string(hdr.at("colourPrimaries").get<int>()) + "), transfer "
                : "  colour description: none (unspecified)";
  EXPECT_NE(report.text.find("hdr:\n" + colour), std::string::npos) << report.text;
  EXPECT_EQ(report.text.find("HDR SEI"), std::string::npos) << "MPEG-2 has none to look for";
  return described;
}

TEST(InspectFormat, SignalFormatWordAndMpeg2SummaryAgreeWithFfprobe) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffprobe missing";
  int described = 0;
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const std::string path = c.source ? qtest::encodedStream(c.name, std::string("-f lavfi -i testsrc2=size=") + c.source)
                                      : qtest::samplePath(c.name);
    ASSERT_FALSE(path.empty());
    const Report report = inspect(path);
    const auto sets = report.json.at("parameterSets");
    if (*c.text) {
      EXPECT_EQ(sets.at("signalFormatText"), c.text);
      EXPECT_TRUE(sets.at("signalFormat").is_number());
    } else {
      EXPECT_TRUE(sets.at("signalFormat").is_null());
      EXPECT_TRUE(sets.at("signalFormatText").is_null());
    }
    EXPECT_EQ(sets.at("signalFormatExact"), c.exact);
    const std::string line = std::string(c.line) + "\n";
    const size_t at = report.text.find("signal format: ");
    ASSERT_NE(at, std::string::npos) << report.text;
    const size_t end = report.text.find('\n', at);
    EXPECT_TRUE(report.text.substr(at, end + 1 - at).ends_with(line)) << report.text.substr(at, end - at);
    if (std::string(c.name).find("m2v") != std::string::npos) described += expectMpeg2SummaryAndColour(report, path);
  }
  EXPECT_EQ(described, 2) << "the two rows that give ffmpeg colour options, and no other";
}

// The size extensions (no ffmpeg stream is wider than 4095): a sequence header of 4095x4095 with
// size extensions 3 reads 16383x16383. (The rest of both units, and units whose last zero bytes a
// splitter took for stuffing, are read from ffmpeg's streams above.) A refused unit leaves the
// record as it was.
TEST(Mpeg2SequenceReader, TakesExtensionsAndRefusesBadUnits) {
  const uint8_t header[] = {0xB3, 0xFF, 0xFF, 0xFF, 0x18, 0xFF, 0xFF, 0xE0, 0x00};
  const uint8_t extension[] = {0xB5, 0x14, 0x8D, 0xE0, 0x01, 0x00, 0x21};  // Main@Main, progressive, 4:2:2
  KLX_MPEG2_SEQUENCE seq{};
  ASSERT_EQ(klxutilReadMpeg2SequenceHeader(header, sizeof header, &seq), 0);
  ASSERT_EQ(klxutilReadMpeg2SequenceExtension(extension, sizeof extension, &seq), 0);
  EXPECT_EQ(seq.horizontal_size, 16383u);
  EXPECT_EQ(seq.vertical_size, 16383u);
  EXPECT_EQ(seq.chroma_format, 2u);

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

TEST(Mpeg2SequenceReader, TakesTheDisplayExtensionAndRefusesBadUnits) {
  const uint8_t header[] = {0xB3, 0x2D, 0x02, 0x40, 0x13, 0xFF, 0xFF, 0xE0};  // 720x576, 25 fps
  struct Row {
    const char* name;
    std::vector<uint8_t> unit;
    int result;
    uint32_t videoFormat, colour, primaries, width, height;
  };
  const Row rows[] = {
      {"PAL, colour 5/5/5, 720x576", {0xB5, 0x23, 5, 5, 5, 0x0B, 0x42, 0x12, 0x00}, 0, 1, 1, 5, 720, 576},
      {"without display_vertical_size's zero byte", {0xB5, 0x24, 0x05, 0x82, 0x09}, 0, 2, 0, 0, 352, 288},
      {"no marker bit", {0xB5, 0x23, 5, 5, 5, 0x0B, 0x40, 0x12, 0x00}, -1, 5, 0, 0, 0, 0},
      {"cut before the marker bit", {0xB5, 0x23, 5, 5, 5, 0x0B}, -1, 5, 0, 0, 0, 0},
      {"a sequence extension", {0xB5, 0x14, 0x8A, 0x00, 0x01, 0x00}, -1, 5, 0, 0, 0, 0},
      {"a sequence header", {header, header + sizeof header}, -1, 5, 0, 0, 0, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    KLX_MPEG2_SEQUENCE seq{};
    ASSERT_EQ(klxutilReadMpeg2SequenceHeader(header, sizeof header, &seq), 0);
    const KLX_MPEG2_SEQUENCE before = seq;
    EXPECT_EQ(klxutilReadMpeg2SequenceDisplayExtension(row.unit.data(), uint32_t(row.unit.size()), &seq), row.result);
    if (row.result != 0) {
      EXPECT_EQ(std::memcmp(&before, &seq, sizeof seq), 0) << "left as it was";
      continue;
    }
    EXPECT_EQ(seq.hasDisplayExtension, 1u);
    EXPECT_EQ(seq.video_format, row.videoFormat);
    EXPECT_EQ(seq.colour_description, row.colour);
    EXPECT_EQ(seq.colour_primaries, row.primaries);
    EXPECT_EQ(seq.matrix_coefficients, row.primaries);
    EXPECT_EQ(seq.display_horizontal_size, row.width);
    EXPECT_EQ(seq.display_vertical_size, row.height);
    EXPECT_EQ(seq.horizontal_size, 720u) << "the header's fields stay";
  }
}

}  // namespace
