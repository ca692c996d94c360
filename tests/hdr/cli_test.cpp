// quorvane hdr end to end: ffprobe reads the same HDR side data from our stamped stream as from
// x265's and x264's (-y replacing an existing OUT), --remove takes the named messages out of the
// encoders' streams, inspect reports the HDR values ffprobe reads; a colour rewrite reads back
// through ffprobe and trace_headers with every other SPS element unchanged and identical pictures.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <sstream>

#include "support/edit_support.h"
#include "support/ffmpeg_oracle.h"
#include "support/param_streams.h"
#include "support/test_support.h"

namespace {

const char* kMasterDisplay = "G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)";

std::string hevcStream(const std::string& tag, const std::string& extra) {
  return qtest::encodedStream("hdr_cli_" + tag + ".hevc",
                              "-f lavfi -i testsrc2=size=160x96:rate=25 -frames:v 12 -pix_fmt yuv420p10le -c:v libx265 "
                              "-x265-params 'log-level=error:keyint=6:repeat-headers=1" + extra + "' -f hevc");
}
std::string avcStream(const std::string& tag, const std::string& extra) {
  return qtest::encodedStream("hdr_cli_" + tag + ".h264",
                              "-f lavfi -i testsrc2=size=160x96:rate=25 -frames:v 12 -c:v libx264 -x264-params "
                              "'keyint=6" + extra + "' -f h264");
}

// Every mastering-display and content-light-level field ffprobe reports, frame by frame.
std::string hdrSideData(const std::string& path) {
  auto r = qtest::runCommand("ffprobe -v error -show_frames -select_streams v " + qtest::shellQuote(path));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  std::istringstream lines(r.out);
  std::string line, out;
  bool inHdr = false;
  while (std::getline(lines, line)) {
    if (line.rfind("side_data_type=", 0) == 0)
      inHdr = line.find("Mastering display") != std::string::npos || line.find("Content light") != std::string::npos;
    if (line == "[/SIDE_DATA]") inHdr = false;
    if (inHdr) out += line + "\n";
  }
  return out;
}

// The HDR SEI fields trace_headers reads, as sorted lines (FFmpeg's H.264 decoder of this version
// exports no HDR side data, its syntax tracer reads both codecs; x265 writes the light level
// message first, x264 and we the mastering display).
std::string hdrTrace(const std::string& path) {
  static const char* kFields[] = {"display_primaries_x", "display_primaries_y", "white_point_x", "white_point_y",
                                  "max_display_mastering_luminance", "min_display_mastering_luminance",
                                  "max_content_light_level", "max_pic_average_light_level"};
  std::vector<std::string> lines;
  for (const auto& unit : ptest::traceHeaders(path))
    for (const char* field : kFields)
      if (auto it = unit.elements.find(field); it != unit.elements.end())
        for (int64_t v : it->second) lines.push_back(std::string(field) + "=" + std::to_string(v) + "\n");
  std::sort(lines.begin(), lines.end());
  std::string out;
  for (const auto& line : lines) out += line;
  return out;
}

std::string streamColour(const std::string& path) {
  auto r = qtest::runCommand("ffprobe -v error -select_streams v -show_entries "
                             "stream=color_range,color_space,color_transfer,color_primaries,chroma_location -of compact=p=0 " +
                             qtest::shellQuote(path));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  return r.out;
}

struct StampCase {
  const char* name;
  bool hevc;
  const char* encoderHdr;  // the same metadata given to the encoder
};
const StampCase kStampCases[] = {
    {"x265", true, ":master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1):max-cll=1000,400"},
    {"x264", false, ":mastering-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1):cll=1000,400"},
};

class HdrCommand : public ::testing::TestWithParam<StampCase> {};

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

// On the encoders' reference HDR10 streams and the same stream without HDR metadata:
// - hdr on the plain stream, in both framings, gives the side data ffprobe and the fields
//   trace_headers read from the reference, and the same pictures;
// - hdr --remove on the reference takes the named HDR SEI messages out of every access unit and
//   keeps the others (trace_headers counts them), the pictures unchanged;
// - inspect names the light level the encoder was given, and inspect --json gives the mastering
//   display as the numbers ffprobe's side data gives as fractions (x/50000 chromaticity,
//   L/10000 cd/m2): each JSON value is the double nearest the fraction, so 7500 units read 0.15,
//   not 0.15000000000000002 (FFmpeg's H.264 decoder exports no such side data: x265 only).
TEST_P(HdrCommand, StampRemoveAndInspectReadLikeTheEncoders) {
  const StampCase& c = GetParam();
  const std::string plain = c.hevc ? hevcStream("plain", "") : avcStream("plain", "");
  const std::string reference = c.hevc ? hevcStream("reference", c.encoderHdr) : avcStream("reference", c.encoderHdr);
  const std::string expected = hdrSideData(reference), expectedTrace = hdrTrace(reference);
  EXPECT_EQ(expected.find("max_content=1000") != std::string::npos, c.hevc);
  ASSERT_NE(expectedTrace.find("max_content_light_level=1000"), std::string::npos);
  qtest::TempDir dir;
  for (const char* framing : {"", " --length-prefixed"}) {
    const std::string out = dir.file(std::string("out") + (*framing ? "_len" : ""));
    qtest::writeBytes(out, {1, 2, 3});  // replaced with -y (refused without it: the command's refusal table)
    auto r = qtest::runTool("hdr " + qtest::shellQuote(plain) + " " + qtest::shellQuote(out) + " -y --master-display " +
                            qtest::shellQuote(kMasterDisplay) + " --max-cll 1000,400" + framing);
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(hdrSideData(out), expected) << framing;
    EXPECT_EQ(hdrTrace(out), expectedTrace) << framing;
    EXPECT_EQ(oracle::pictureChecksums(out), oracle::pictureChecksums(plain)) << framing;
  }

  auto count = [](const std::string& trace, const std::string& field) {
    size_t n = 0;
    for (size_t at = 0; (at = trace.find(field + "=", at)) != std::string::npos; ++at) ++n;
    return n;
  };
  const size_t mastering = count(expectedTrace, "max_display_mastering_luminance"),
               light = count(expectedTrace, "max_content_light_level");
  ASSERT_GT(mastering, 0u);
  ASSERT_GT(light, 0u);
  struct Row {
    const char* remove;
    bool keepsMasteringDisplay, keepsLightLevel;
  };
  const Row rows[] = {{"max-cll", true, false}, {"master-display", false, true}, {"all", false, false},
                      {"master-display,max-cll", false, false}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.remove);
    const std::string out = dir.file(std::string("out-") + row.remove);
    auto r = qtest::runTool("hdr " + qtest::shellQuote(reference) + " " + qtest::shellQuote(out) + " --remove " + row.remove);
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const std::string after = hdrTrace(out);
    EXPECT_EQ(count(after, "max_display_mastering_luminance"), row.keepsMasteringDisplay ? mastering : 0u);
    EXPECT_EQ(count(after, "max_content_light_level"), row.keepsLightLevel ? light : 0u);
    EXPECT_EQ(oracle::pictureChecksums(out), oracle::pictureChecksums(reference));
  }

  auto r = qtest::runTool("inspect " + qtest::shellQuote(reference));
  EXPECT_NE(r.out.find("content light level: MaxCLL 1000 cd/m2, MaxFALL 400 cd/m2"), std::string::npos) << r.out;
  if (!c.hevc) return;
  auto theirs = ffprobeMasteringDisplay(reference);
  ASSERT_EQ(theirs.count("blue_x"), 1u) << "no mastering display side data";
  r = qtest::runTool("inspect --json " + qtest::shellQuote(reference));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto md = nlohmann::json::parse(r.out)["hdr"]["masteringDisplay"];
  ASSERT_EQ(md["primaries"].size(), 3u);
  for (const auto& p : md["primaries"]) {
    const std::string colour = p["colour"];
    EXPECT_EQ(double(p["x"]), fraction(theirs[colour + "_x"])) << colour;
    EXPECT_EQ(double(p["y"]), fraction(theirs[colour + "_y"])) << colour;
  }
  EXPECT_EQ(double(md["whitePoint"]["x"]), fraction(theirs["white_point_x"]));
  EXPECT_EQ(double(md["whitePoint"]["y"]), fraction(theirs["white_point_y"]));
  EXPECT_EQ(double(md["maxLuminance"]), fraction(theirs["max_luminance"]));
  EXPECT_EQ(double(md["minLuminance"]), fraction(theirs["min_luminance"]));
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

struct ColourCase {
  const char* name;
  bool hevc;
  const char* encoderVui;  // what the source SPS already carries
};
const ColourCase kColourCases[] = {
    {"x265_no_vui", true, ""},
    {"x265_vui", true, ":sar=4\\:3:colorprim=bt709:transfer=bt709:colormatrix=bt709:hrd=1:vbv-maxrate=800:vbv-bufsize=800"},
    {"x265_scaling_lists", true, ":scaling-list=default:interlace=tff"},
    {"x264_no_vui", false, ":no-vui=1"},
    {"x264_jvt_matrices", false, ":cqm=jvt:interlaced=1"},
    {"x264_vui", false, ":sar=4\\:3:colorprim=bt709:transfer=bt709:colormatrix=bt709:nal-hrd=vbr:vbv-maxrate=800:vbv-bufsize=800"},
};

class ColourRewrite : public ::testing::TestWithParam<ColourCase> {};

TEST_P(ColourRewrite, ReadsBackWithEveryOtherElementAndPictureUnchanged) {
  const ColourCase& c = GetParam();
  const std::string in = c.hevc ? hevcStream(c.name, c.encoderVui) : avcStream(c.name, c.encoderVui);
  qtest::TempDir dir;
  const std::string out = dir.file("out");
  auto r = qtest::runTool("hdr " + qtest::shellQuote(in) + " " + qtest::shellQuote(out) +
                          " --colour bt2020,pq,bt2020nc --range full --chroma-loc 2");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(streamColour(out),
            "color_range=pc|color_space=bt2020nc|color_transfer=smpte2084|color_primaries=bt2020|chroma_location=topleft\n");
  EXPECT_EQ(oracle::pictureChecksums(out), oracle::pictureChecksums(in));

  const char* kind = "Sequence Parameter Set";
  auto before = ptest::traceHeaders(in), after = ptest::traceHeaders(out);
  const auto* oldSps = ptest::firstOfKind(before, kind);
  const auto* newSps = ptest::firstOfKind(after, kind);
  ASSERT_TRUE(oldSps && newSps);
  const std::map<std::string, int64_t> changed = {
      {"vui_parameters_present_flag", 1}, {"video_signal_type_present_flag", 1}, {"video_full_range_flag", 1},
      {"colour_description_present_flag", 1}, {"colour_primaries", 9}, {"transfer_characteristics", 16},
      {"matrix_coefficients", 9}, {"chroma_loc_info_present_flag", 1}, {"chroma_sample_loc_type_top_field", 2},
      {"chroma_sample_loc_type_bottom_field", 2}, {"video_format", -1},
      {"rbsp_alignment_zero_bit", -1}};  // the trailing bits follow the new length
  ptest::ElementValues oldRest, newRest;
  for (const auto& [name, values] : oldSps->elements)
    if (!changed.count(name)) oldRest[name] = values;
  for (const auto& [name, values] : newSps->elements) {
    auto it = changed.find(name);
    if (it == changed.end()) {
      newRest[name] = values;
    } else if (it->second >= 0) {
      EXPECT_EQ(values, std::vector<int64_t>{it->second}) << name;
    }
  }
  // Elements of the VUI that only exist once it is switched on are new; all others must be equal.
  for (const auto& [name, values] : newRest)
    if (oldRest.count(name)) {
      EXPECT_EQ(values, oldRest[name]) << c.name << ": " << name;
    }
  for (const auto& [name, values] : oldRest) EXPECT_TRUE(newRest.count(name)) << c.name << " lost " << name;
}

INSTANTIATE_TEST_SUITE_P(Encoders, HdrCommand, ::testing::ValuesIn(kStampCases),
                         [](const auto& info) { return std::string(info.param.name); });
INSTANTIATE_TEST_SUITE_P(Streams, ColourRewrite, ::testing::ValuesIn(kColourCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
