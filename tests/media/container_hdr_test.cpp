// The HDR static metadata of a container's video track (Matroska MasteringMetadata and
// MaxCLL/MaxFALL, MP4 mdcv and clli) goes through reframe, stamp and hdr, and hdr keeps it in step
// with the SEI messages it writes or removes. The input is an x265 HDR10 stream that GStreamer's
// Matroska muxer describes in its track; ffprobe reads the track and the pictures back.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "media_support.h"
#include "support/test_support.h"
#include "support/tool_runs.h"

namespace {

using qtest::shellQuote;
// Side data kind -> field -> value (rationals divided out).
using SideData = std::map<std::string, std::map<std::string, double>>;

// The side data ffprobe lists (under "streams" or "frames" of its JSON).
SideData sideData(const std::string& ffprobeArgs) {
  const auto r = qtest::runCommand("ffprobe -v error -of json -select_streams v:0 " + ffprobeArgs);
  const nlohmann::json listing = nlohmann::json::parse(r.out);
  SideData all;
  for (const auto& [section, entries] : listing.items())
    for (const auto& entry : entries)
      for (const auto& data : entry.value("side_data_list", nlohmann::json::array()))
        for (const auto& [key, value] : data.items()) {
          auto& fields = all[data.at("side_data_type").get<std::string>()];
          if (key == "side_data_type") continue;
          const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
          const size_t slash = text.find('/');
          fields[key] = std::atof(text.c_str()) / (slash == std::string::npos ? 1 : std::atof(text.c_str() + slash + 1));
        }
  return all;
}
// One kind's fields; none when the kind is absent.
std::map<std::string, double> of(const SideData& all, const char* kind) {
  const auto it = all.find(kind);
  return it == all.end() ? std::map<std::string, double>{} : it->second;
}
SideData track(const std::string& path) { return sideData("-show_streams " + shellQuote(path)); }
SideData firstPicture(const std::string& path) { return sideData("-read_intervals %+#1 -show_frames " + shellQuote(path)); }

constexpr const char* kMastering = "Mastering display metadata";
constexpr const char* kLight = "Content light level metadata";
constexpr const char* kNewMastering = "G(8500,39850)B(6550,2300)R(35400,14600)WP(15635,16450)L(40000000,50)";
// kNewMastering as ffprobe reads it: chromaticities in 0.00002, luminance in 0.0001 cd/m2.
const std::map<std::string, double> kNewMasteringRead = {
    {"red_x", 0.708},   {"red_y", 0.292},          {"green_x", 0.17},          {"green_y", 0.797},
    {"blue_x", 0.131},  {"blue_y", 0.046},         {"white_point_x", 0.3127},  {"white_point_y", 0.329},
    {"max_luminance", 4000}, {"min_luminance", 0.005}};

void expectNear(const std::map<std::string, double>& got, const std::map<std::string, double>& want) {
  ASSERT_EQ(got.size(), want.size());
  for (const auto& [key, value] : want) {
    ASSERT_TRUE(got.count(key)) << key;
    EXPECT_NEAR(got.at(key), value, 1e-4) << key;
  }
}

using ContainerHdr = mtest::FfmpegTest;

TEST_F(ContainerHdr, TrackMetadataFollowsTheStream) {
  if (!qtest::haveProgram("gst-launch-1.0")) GTEST_SKIP() << "gst-launch-1.0 is not installed";
  const std::string x265 = qtest::encodedStream(
      "container_hdr10.mp4",
      "-f lavfi -i testsrc2=size=160x96:rate=25 -frames:v 6 -pix_fmt yuv420p10le -c:v libx265 -x265-params " +
          shellQuote("log-level=error:hdr10=1:master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)"
                     "L(10000000,1):max-cll=1000,400:colorprim=bt2020:transfer=smpte2084:colormatrix=bt2020nc") + " -f mp4");
  ASSERT_FALSE(x265.empty());
  qtest::TempDir dir;
  const std::string in = dir.file("in.mkv");
  const auto gst = qtest::runCommand("gst-launch-1.0 -q filesrc location=" + shellQuote(x265) +
                                     " ! qtdemux name=d d.video_0 ! h265parse ! matroskamux ! filesink location=" + shellQuote(in));
  ASSERT_EQ(gst.exitCode, 0) << gst.err;
  const SideData given = track(in);
  ASSERT_EQ(given.count(kMastering) + given.count(kLight), 2u) << "the input track carries no HDR metadata";

  enum class Want { kInput, kNew, kNone };
  struct Row {
    const char* command;
    const char* extension;
    std::string options;
    Want mastering, light;
  };
  const Row rows[] = {
      {"reframe", "mkv", "", Want::kInput, Want::kInput},
      {"reframe", "mp4", "", Want::kInput, Want::kInput},
      {"stamp", "mkv", " --tc 01:00:00:00 --rate 25", Want::kInput, Want::kInput},
      {"hdr", "mkv", std::string(" --master-display '") + kNewMastering + "'", Want::kNew, Want::kInput},
      {"hdr", "mkv", " --max-cll 500,100", Want::kInput, Want::kNew},
      {"hdr", "mkv", " --remove max-cll", Want::kInput, Want::kNone},
      {"hdr", "mkv", " --remove all", Want::kNone, Want::kNone},
  };
  for (const Row& row : rows) {
    const std::string& options = row.options;
    SCOPED_TRACE(std::string(row.command) + " ." + row.extension + options);
    const std::string out = dir.file(std::string(row.command) + "." + row.extension);
    qtest::runToolOk(std::string(row.command) + " " + shellQuote(in) + " " + shellQuote(out) + options + " -y");
    const SideData container = track(out), picture = firstPicture(out);
    switch (row.mastering) {
      case Want::kInput:
        // MP4's mdcv holds ST 2086's units (luminance in 0.0001 cd/m2); Matroska's floats hold
        // GStreamer's 0.00002 cd/m2 minimum as it is.
        if (row.extension == std::string("mp4"))
          expectNear(of(container, kMastering), of(given, kMastering));
        else
          EXPECT_EQ(of(container, kMastering), of(given, kMastering));
        break;
      case Want::kNew:
        expectNear(of(container, kMastering), kNewMasteringRead);
        expectNear(of(picture, kMastering), kNewMasteringRead);  // the SEI written into the picture
        break;
      case Want::kNone: EXPECT_FALSE(container.count(kMastering) || picture.count(kMastering)); break;
    }
    const std::map<std::string, double> newLight = {{"max_content", 500}, {"max_average", 100}};
    switch (row.light) {
      case Want::kInput: EXPECT_EQ(of(container, kLight), of(given, kLight)); break;
      case Want::kNew:
        EXPECT_EQ(of(container, kLight), newLight);
        EXPECT_EQ(of(picture, kLight), newLight);
        break;
      case Want::kNone: EXPECT_FALSE(container.count(kLight) || picture.count(kLight)); break;
    }
    EXPECT_EQ(mtest::videoFrameMd5(out), mtest::videoFrameMd5(in));
  }
}

}  // namespace
