// What a container OUT says about its tracks beside the coded pictures: the stream side data of
// every copied track (an MP4 tkhd display matrix above all) comes through reframe, stamp and hdr as
// ffmpeg -c copy carries it into the same container; a video track without HDR metadata of its own
// (an elementary stream, an MPEG-TS) is described from its first access unit's SEI (ITU-T H.265
// D.2.28 / D.2.35, H.264 D.1.29 / D.1.31); and a track that has its own (Matroska
// MasteringMetadata, MaxCLL/MaxFALL) keeps it, in step with the SEI that hdr writes or removes.
// ffprobe reads the tracks, and the SEI of the first picture, back.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "media_support.h"
#include "support/test_support.h"
#include "support/tool_runs.h"

namespace {

using qtest::shellQuote;
using Fields = std::map<std::string, double>;  // rationals divided out
using SideData = std::map<std::string, Fields>;  // by side_data_type

double number(const nlohmann::json& value) {
  if (value.is_number()) return value.get<double>();
  if (!value.is_string()) return 0;
  const std::string text = value.get<std::string>();
  const size_t slash = text.find('/');
  return std::atof(text.c_str()) / (slash == std::string::npos ? 1 : std::atof(text.c_str() + slash + 1));
}
SideData sideDataOf(const nlohmann::json& list) {
  SideData all;
  for (const auto& element : list) {
    Fields& fields = all[element.value("side_data_type", "")];
    for (const auto& [key, value] : element.items())
      if (key != "side_data_type") fields[key] = number(value);
  }
  return all;
}
// Each stream's side data, in stream order.
std::vector<SideData> tracks(const std::string& path) {
  const auto r = qtest::runCommand("ffprobe -v error -show_streams -of json " + shellQuote(path));
  const auto doc = nlohmann::json::parse(r.out, nullptr, false);
  std::vector<SideData> all;
  if (doc.is_object() && doc.contains("streams"))
    for (const auto& stream : doc["streams"]) all.push_back(sideDataOf(stream.value("side_data_list", nlohmann::json::array())));
  return all;
}
// The side data the decoder attaches to the first picture (for HEVC: the HDR SEI messages).
SideData firstPicture(const std::string& path) {
  const auto r = qtest::runCommand("ffprobe -v error -select_streams v:0 -read_intervals %+#1 -show_frames -of json " + shellQuote(path));
  const auto doc = nlohmann::json::parse(r.out, nullptr, false);
  if (!doc.is_object() || !doc.contains("frames") || doc["frames"].empty()) return {};
  return sideDataOf(doc["frames"][0].value("side_data_list", nlohmann::json::array()));
}

constexpr const char* kMatrix = "Display Matrix";
constexpr const char* kMastering = "Mastering display metadata";
constexpr const char* kLight = "Content light level metadata";

void expectNear(const Fields& got, const Fields& want) {
  ASSERT_EQ(got.size(), want.size());
  for (const auto& [key, value] : want) {
    ASSERT_TRUE(got.count(key)) << key;
    EXPECT_NEAR(got.at(key), value, 1e-4) << key;
  }
}
Fields kindOf(const SideData& all, const char* kind) {
  const auto it = all.find(kind);
  return it == all.end() ? Fields{} : it->second;
}

using SideDataCarry = mtest::FfmpegTest;

// A phone-style MP4: H.264 and AAC, the video turned by a quarter (tkhd matrix).
TEST_F(SideDataCarry, EveryTrackKeepsItsSideDataAsAStreamCopyDoes) {
  qtest::TempDir dir;
  const std::string plain = qtest::encodedStream(
      "side_data_plain.mp4",
      "-f lavfi -i testsrc2=size=160x96:rate=25 -f lavfi -i sine=frequency=440:sample_rate=48000 -t 0.4 -c:v libx264 -c:a aac -f mp4");
  ASSERT_FALSE(plain.empty());
  const std::string in = dir.file("rotated.mp4");
  ASSERT_EQ(qtest::runCommand("ffmpeg -v error -i " + shellQuote(plain) + " -map 0 -c copy -metadata:s:v:0 rotate=90 " + shellQuote(in)).exitCode, 0);
  const std::vector<SideData> given = tracks(in);
  ASSERT_EQ(given.size(), 2u);
  ASSERT_EQ(kindOf(given[0], kMatrix).count("rotation"), 1u) << "ffmpeg wrote no display matrix";

  // Caption insertion (stamp --captions) goes through the same writer.
  const std::string scc = dir.file("cc.scc");
  const std::string sccText = "Scenarist_SCC V1.0\n\n00:00:00:01\t9420 9420 94ae 94ae c8e5 ecec ef80 942f 942f\n";
  qtest::writeBytes(scc, std::vector<uint8_t>(sccText.begin(), sccText.end()));
  struct Row {
    const char* command;
    std::string options;
    const char* extension;
    bool matrixKept;  // the container has a place for it (libavformat 5.1's Matroska writer has none)
  };
  const Row rows[] = {
      {"reframe", "", "mp4", true},
      {"reframe", "", "mkv", false},
      {"stamp", " --tc 01:00:00:00 --rate 25", "mp4", true},
      {"stamp", " --tc 00:00:00:00 --rate 25 --captions " + shellQuote(scc), "mov", true},
      {"hdr", " --max-cll 500,100", "mp4", true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.command) + row.options + " ." + row.extension);
    const std::string out = dir.file(std::string(row.command) + "." + row.extension);
    const std::string copied = dir.file(std::string("ffmpeg.") + row.extension);
    std::remove(out.c_str());
    qtest::runToolOk(std::string(row.command) + " " + shellQuote(in) + " " + shellQuote(out) + row.options + " -y");
    ASSERT_EQ(qtest::runCommand("ffmpeg -y -v error -i " + shellQuote(in) + " -map 0 -c copy " + shellQuote(copied)).exitCode, 0);
    std::vector<SideData> got = tracks(out);
    const std::vector<SideData> oracle = tracks(copied);
    ASSERT_EQ(got.size(), oracle.size());
    if (std::string(row.command) == "hdr") {
      expectNear(kindOf(got[0], kLight), {{"max_content", 500}, {"max_average", 100}});
      got[0].erase(kLight);  // the edit's, not IN's
    }
    for (size_t i = 0; i < got.size(); ++i) EXPECT_EQ(got[i], oracle[i]) << "track " << i;
    EXPECT_EQ(kindOf(got[0], kMatrix) == kindOf(given[0], kMatrix), row.matrixKept);
    // The pictures as a player shows them (ffmpeg turns them by the matrix) are those of the
    // stream copy.
    EXPECT_EQ(mtest::videoFrameMd5(out), mtest::videoFrameMd5(copied));
    if (row.matrixKept) {
      EXPECT_EQ(mtest::videoFrameMd5(out), mtest::videoFrameMd5(in));
    }
    EXPECT_EQ(mtest::audioMd5(out), mtest::audioMd5(in));
  }
}

// The values given to the encoders, as ffprobe reads them (primaries in 0.00002, luminance in
// 0.0001 cd/m2), and the ones hdr --master-display and --max-cll replace them with.
constexpr const char* kMasterDisplay = "G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)";
const Fields kMasteringGiven = {{"red_x", 0.68},          {"red_y", 0.32},          {"green_x", 0.265},
                                {"green_y", 0.69},        {"blue_x", 0.15},         {"blue_y", 0.06},
                                {"white_point_x", 0.3127}, {"white_point_y", 0.329}, {"max_luminance", 1000},
                                {"min_luminance", 0.0001}};
const Fields kLightGiven = {{"max_content", 1000}, {"max_average", 400}};
constexpr const char* kNewMastering = "G(8500,39850)B(6550,2300)R(35400,14600)WP(15635,16450)L(40000000,50)";
const Fields kMasteringNew = {{"red_x", 0.708},          {"red_y", 0.292},         {"green_x", 0.17},
                              {"green_y", 0.797},        {"blue_x", 0.131},        {"blue_y", 0.046},
                              {"white_point_x", 0.3127}, {"white_point_y", 0.329}, {"max_luminance", 4000},
                              {"min_luminance", 0.005}};
const Fields kLightNew = {{"max_content", 500}, {"max_average", 100}};

// The HDR static metadata of OUT's video track through reframe, stamp and hdr, and hdr keeping it
// in step with the SEI messages it writes or removes. IN is an x265 HDR10 stream: as an
// elementary stream or in an MPEG-TS (which has no place for track metadata), described only in
// the SEI, from which OUT's track takes it; or in a Matroska file whose track GStreamer's muxer
// describes (MasteringMetadata, MaxCLL/MaxFALL), which OUT's track carries on. The x264 stream
// carries the same values in its SEI.
TEST_F(SideDataCarry, HdrMetadataOfTheTrackFollowsTheStream) {
  const std::string source = "-f lavfi -i testsrc2=size=160x96:rate=25 -frames:v 6 ";
  const std::string x265 = source + "-pix_fmt yuv420p10le -c:v libx265 -x265-params " +
                           shellQuote(std::string("log-level=error:hdr10=1:master-display=") + kMasterDisplay + ":max-cll=1000,400");
  const std::string hevc = qtest::encodedStream("side_data_hdr10.hevc", x265 + " -f hevc");
  const std::string ts = qtest::encodedStream("side_data_hdr10.ts", x265 + " -f mpegts");
  const std::string avc = qtest::encodedStream(
      "side_data_hdr.h264",
      source + "-c:v libx264 -x264-params " + shellQuote(std::string("mastering-display=") + kMasterDisplay + ":cll=1000,400") + " -f h264");
  ASSERT_FALSE(hevc.empty() || avc.empty() || ts.empty());
  qtest::TempDir dir;
  ASSERT_TRUE(tracks(ts).at(0).empty()) << "an MPEG-TS track describes no HDR metadata";
  // The oracle for HEVC: what FFmpeg's decoder reads from the first picture's SEI.
  expectNear(kindOf(firstPicture(hevc), kMastering), kMasteringGiven);
  expectNear(kindOf(firstPicture(hevc), kLight), kLightGiven);
  std::map<std::string, std::string> inputs = {{"hevc", hevc}, {"h264", avc}, {"ts", ts}};
  SideData mkvTrack;
  if (qtest::haveProgram("gst-launch-1.0")) {
    const std::string mp4 = qtest::encodedStream("side_data_hdr10.mp4", x265 + " -f mp4");
    inputs["mkv"] = dir.file("in.mkv");
    const auto gst = qtest::runCommand("gst-launch-1.0 -q filesrc location=" + shellQuote(mp4) + " ! qtdemux name=d d.video_0 " +
                                       "! h265parse ! matroskamux ! filesink location=" + shellQuote(inputs["mkv"]));
    ASSERT_EQ(gst.exitCode, 0) << gst.err;
    mkvTrack = tracks(inputs["mkv"]).at(0);
    ASSERT_EQ(mkvTrack.count(kMastering) + mkvTrack.count(kLight), 2u) << "the input track carries no HDR metadata";
  }

  enum class Want { kGiven, kNew, kNone };
  struct Row {
    const char* command;
    std::string options;
    const char* input;  // "hevc", "h264", "ts": the HEVC stream in MPEG-TS, "mkv": in Matroska by GStreamer
    const char* extension;
    Want mastering, light;
  };
  const Row rows[] = {
      {"reframe", "", "hevc", "mp4", Want::kGiven, Want::kGiven},
      {"reframe", "", "hevc", "mkv", Want::kGiven, Want::kGiven},
      {"stamp", " --tc 01:00:00:00 --rate 25", "hevc", "mp4", Want::kGiven, Want::kGiven},
      {"hdr", " --max-cll 500,100", "hevc", "mp4", Want::kGiven, Want::kNew},
      {"hdr", " --remove master-display", "hevc", "mkv", Want::kNone, Want::kGiven},
      {"hdr", " --remove all", "hevc", "mp4", Want::kNone, Want::kNone},
      {"reframe", "", "h264", "mp4", Want::kGiven, Want::kGiven},
      {"reframe", "", "ts", "mp4", Want::kGiven, Want::kGiven},
      {"hdr", " --remove max-cll", "ts", "mp4", Want::kGiven, Want::kNone},
      {"reframe", "", "mkv", "mkv", Want::kGiven, Want::kGiven},
      {"reframe", "", "mkv", "mp4", Want::kGiven, Want::kGiven},
      {"hdr", std::string(" --master-display '") + kNewMastering + "'", "mkv", "mkv", Want::kNew, Want::kGiven},
      {"hdr", " --max-cll 500,100", "mkv", "mkv", Want::kGiven, Want::kNew},
      {"hdr", " --remove all", "mkv", "mkv", Want::kNone, Want::kNone},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.command) + row.options + " " + row.input + " ." + row.extension);
    if (!inputs.count(row.input)) continue;  // no GStreamer
    const std::string& in = inputs.at(row.input);
    const std::string out = dir.file(std::string(row.command) + "." + row.extension);
    qtest::runToolOk(std::string(row.command) + " " + shellQuote(in) + " " + shellQuote(out) + row.options + " -y");
    const std::vector<SideData> got = tracks(out);
    ASSERT_EQ(got.size(), 1u);
    const Fields mastering = kindOf(got[0], kMastering);
    // IN's own track values, as GStreamer wrote them (its luminances are not the SEI's).
    const bool inTrack = std::string(row.input) == "mkv" && row.mastering == Want::kGiven;
    if (row.mastering == Want::kNone) {
      EXPECT_TRUE(mastering.empty());
    } else if (row.mastering == Want::kNew) {
      expectNear(mastering, kMasteringNew);
    } else if (inTrack && std::string(row.extension) == "mkv") {
      EXPECT_EQ(mastering, kindOf(mkvTrack, kMastering));  // Matroska's floats hold them as they are
    } else {
      expectNear(mastering, inTrack ? kindOf(mkvTrack, kMastering) : kMasteringGiven);  // MP4's mdcv: ST 2086 units
    }
    const Want light = row.light;
    EXPECT_EQ(kindOf(got[0], kLight), light == Want::kGiven ? kLightGiven : light == Want::kNew ? kLightNew : Fields{});
    // The track says what the pictures say (FFmpeg 5.1 reads the HEVC SEI only).
    if (std::string(row.input) != "h264") {
      const SideData picture = firstPicture(out);
      EXPECT_EQ(kindOf(picture, kMastering).empty(), mastering.empty());
      if (!kindOf(picture, kMastering).empty() && !inTrack) expectNear(mastering, kindOf(picture, kMastering));
      EXPECT_EQ(kindOf(got[0], kLight), kindOf(picture, kLight));
    }
    EXPECT_EQ(mtest::videoFrameMd5(out), mtest::videoFrameMd5(in));
  }
}

// hdr --colour/--range on a container: the container's own colour description (the colr box of
// ISO/IEC 14496-12 12.1.5 in MP4/MOV, the Colour element of a Matroska track) says what the
// rewritten SPS says, not what the input's said. Read from the file's bytes: ffprobe reports the
// decoder's view and would hide a contradiction.
struct Colour {
  int primaries = -1, transfer = -1, matrix = -1;
  bool operator==(const Colour&) const = default;
};

size_t find(const std::vector<uint8_t>& d, const char* tag, size_t n) {
  for (size_t i = 0; i + n <= d.size(); ++i)
    if (std::memcmp(d.data() + i, tag, n) == 0) return i;
  return std::string::npos;
}

// colr: size, 'colr', 'nclx'/'nclc', then primaries, transfer, matrix as 16-bit words.
Colour colrBox(const std::vector<uint8_t>& d) {
  const size_t at = find(d, "colr", 4);
  if (at == std::string::npos || at + 14 > d.size()) return {};
  auto u16 = [&](size_t i) { return d[i] << 8 | d[i + 1]; };
  return {u16(at + 8), u16(at + 10), u16(at + 12)};
}

// Matroska Colour (ID 55 B0) and its children MatrixCoefficients (55 B1), TransferCharacteristics
// (55 BA), Primaries (55 BB): EBML variable-length sizes, big-endian unsigned values.
Colour matroskaColour(const std::vector<uint8_t>& d) {
  auto vint = [&](size_t& p) {
    int n = 1;
    while (n <= 8 && !(d[p] & (0x80 >> (n - 1)))) ++n;
    uint64_t v = d[p] & ((0x80 >> (n - 1)) - 1);
    for (int k = 1; k < n; ++k) v = v << 8 | d[p + k];
    p += n;
    return v;
  };
  const uint8_t id[] = {0x55, 0xB0};
  size_t p = find(d, reinterpret_cast<const char*>(id), 2);
  if (p == std::string::npos) return {};
  p += 2;
  const size_t end = p + vint(p);
  Colour c;
  while (p + 3 <= end && end <= d.size()) {
    const int child = d[p] << 8 | d[p + 1];
    p += 2;
    const size_t size = vint(p);
    int value = 0;
    for (size_t k = 0; k < size; ++k) value = value << 8 | d[p + k];
    p += size;
    if (child == 0x55B1) c.matrix = value;
    if (child == 0x55BA) c.transfer = value;
    if (child == 0x55BB) c.primaries = value;
  }
  return c;
}

TEST_F(SideDataCarry, ContainerColourFollowsTheRewrittenSps) {
  // x265 HDR10 (BT.2020, PQ) in each container; rewritten to BT.709 and to HLG.
  struct Row {
    const char* extension;
    const char* muxer;
    Colour (*read)(const std::vector<uint8_t>&);
  };
  const Row rows[] = {{"mp4", "mp4", colrBox}, {"mov", "mov", colrBox}, {"mkv", "matroska", matroskaColour}};
  for (const Row& row : rows) {
    const std::string in = qtest::encodedStream(
        std::string("colour_hdr10.") + row.extension,
        std::string("-f lavfi -i testsrc2=size=160x96:rate=25 -frames:v 6 -pix_fmt yuv420p10le -c:v libx265 -x265-params log-level=error "
        "-color_primaries bt2020 -color_trc smpte2084 -colorspace bt2020nc") +
            (row.read == colrBox ? " -tag:v hvc1 -movflags +write_colr" : "") + " -f " + row.muxer);
    ASSERT_EQ(row.read(qtest::readBytes(in)), (Colour{9, 16, 9})) << row.extension;
    for (const auto& [option, expected] : {std::pair{"bt709,bt709,bt709", Colour{1, 1, 1}}, {"bt2020,hlg,bt2020nc", Colour{9, 18, 9}}}) {
      SCOPED_TRACE(std::string(row.extension) + " " + option);
      qtest::TempDir dir;
      const std::string out = dir.file(std::string("out.") + row.extension);
      qtest::runToolOk("hdr " + shellQuote(in) + " " + shellQuote(out) + " --colour " + option);
      EXPECT_EQ(row.read(qtest::readBytes(out)), expected);
      EXPECT_EQ(mtest::videoFrameMd5(out), mtest::videoFrameMd5(in));
    }
  }
}

}  // namespace
