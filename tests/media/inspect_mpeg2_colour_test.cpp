// MPEG-2 colour: the sequence_display_extension (ISO/IEC 13818-2 6.2.2.4) is read into the
// sequence record, and inspect prints its colour description as it prints the H.264/HEVC VUI's.
// Oracle: ffprobe on streams ffmpeg's mpeg2video encoder made with and without colour settings.
#include <gtest/gtest.h>

#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "streamutil/mpeg2_sequence.h"
#include "support/test_support.h"

namespace {

using qtest::shellQuote;

TEST(Mpeg2Colour, InspectNamesTheColourFfprobeReads) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffprobe missing";
  struct Case {
    const char* name;
    const char* options;  // ffmpeg colour options, "" for none (no display extension)
  };
  const Case cases[] = {
      {"m2v-colour-bt470bg.m2v", "-color_primaries bt470bg -color_trc gamma28 -colorspace bt470bg"},
      {"m2v-colour-bt709.m2v", "-color_primaries bt709 -color_trc bt709 -colorspace bt709"},
      {"m2v-colour-smpte170m.m2v", "-color_primaries smpte170m -color_trc smpte170m -colorspace smpte170m"},
      {"m2v-colour-none.m2v", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = qtest::encodedStream(
        c.name, std::string("-f lavfi -i testsrc=size=720x576:rate=25 -frames:v 2 -c:v mpeg2video ") + c.options + " -f mpeg2video");
    ASSERT_FALSE(path.empty());
    const auto probe = qtest::runCommand("ffprobe -v error -select_streams v:0 -show_entries "
                                         "stream=color_primaries,color_transfer,color_space -of json " + shellQuote(path));
    ASSERT_EQ(probe.exitCode, 0) << probe.err;
    const auto oracle = nlohmann::json::parse(probe.out).at("streams").at(0);
    const auto r = qtest::runTool("inspect --json " + shellQuote(path));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto json = nlohmann::json::parse(r.out);
    const auto hdr = json.at("hdr");
    const bool described = oracle.value("color_primaries", "unknown") != "unknown";
    EXPECT_EQ(described, *c.options != 0);
    EXPECT_EQ(hdr.at("colourDescription"), described);
    EXPECT_EQ(json.at("parameterSets").at("sequenceDisplayExtensions"), described ? 1 : 0);
    if (described) {
      EXPECT_EQ(hdr.at("colourPrimariesName"), oracle.at("color_primaries"));
      EXPECT_EQ(hdr.at("transferCharacteristicsName"), oracle.at("color_transfer"));
      EXPECT_EQ(hdr.at("matrixCoefficientsName"), oracle.at("color_space"));
      EXPECT_EQ(json.at("parameterSets").at("summary").at("colourPrimaries"), hdr.at("colourPrimaries"));
    }
    const auto text = qtest::runTool("inspect " + shellQuote(path));
    ASSERT_EQ(text.exitCode, 0) << text.err;
    const std::string colour =
        described ? "  colour: primaries " + hdr.at("colourPrimariesName").get<std::string>() + " (" +
                        std::to_string(hdr.at("colourPrimaries").get<int>()) + "), transfer "
                  : "  colour description: none (unspecified)";
    EXPECT_NE(text.out.find("hdr:\n" + colour), std::string::npos) << text.out;
    EXPECT_EQ(text.out.find("HDR SEI"), std::string::npos) << "MPEG-2 has none to look for";
  }
}

TEST(Mpeg2Colour, ReaderTakesTheDisplayExtensionAndRefusesBadUnits) {
  const uint8_t header[] = {0xB3, 0x2D, 0x02, 0x40, 0x13, 0xFF, 0xFF, 0xE0};  // 720x576, 25 fps
  struct Row {
    const char* name;
    std::vector<uint8_t> unit;
    int result;
    uint32_t videoFormat, colour, primaries, width, height;
  };
  const Row rows[] = {
      {"PAL, colour 5/5/5, 720x576", {0xB5, 0x23, 5, 5, 5, 0x0B, 0x42, 0x12, 0x00}, 0, 1, 1, 5, 720, 576},
      {"NTSC, no colour, 352x288", {0xB5, 0x24, 0x05, 0x82, 0x09, 0x00}, 0, 2, 0, 0, 352, 288},
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
