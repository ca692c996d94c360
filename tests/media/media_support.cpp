// See media_support.h.
#include "media_support.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace mtest {

namespace {
constexpr const char* kSource =
    "-f lavfi -i testsrc2=size=192x108:rate=25 -f lavfi -i sine=frequency=440:sample_rate=48000 -t 1 ";
}

const std::vector<Clip> kClips = {
    {"media_h264.mp4", "h264", "MP4", "-c:v libx264 -bf 2 -g 12 -c:a aac -f mp4"},
    {"media_h264.mov", "h264", "MOV", "-c:v libx264 -bf 2 -g 12 -c:a aac -f mov"},
    {"media_h264.mkv", "h264", "Matroska", "-c:v libx264 -bf 2 -g 12 -c:a aac -f matroska"},
    {"media_h264.ts", "h264", "MPEG-TS", "-c:v libx264 -bf 2 -g 12 -c:a aac -f mpegts"},
    {"media_h264.mxf", "h264", "MXF", "-c:v libx264 -bf 2 -g 12 -c:a pcm_s16le -f mxf"},
    {"media_hevc.mp4", "hevc", "MP4", "-c:v libx265 -x265-params log-level=error:bframes=2 -c:a aac -f mp4"},
    {"media_hevc.mov", "hevc", "MOV", "-c:v libx265 -x265-params log-level=error:bframes=2 -c:a aac -f mov"},
    {"media_hevc.mkv", "hevc", "Matroska", "-c:v libx265 -x265-params log-level=error:bframes=2 -c:a aac -f matroska"},
    {"media_hevc.ts", "hevc", "MPEG-TS", "-c:v libx265 -x265-params log-level=error:bframes=2 -c:a aac -f mpegts"},
};

void FfmpegTest::SetUp() {
  if (!qtest::haveProgram("ffmpeg") || !qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffmpeg not installed";
}

std::string clipPath(const Clip& clip) { return qtest::encodedStream(clip.name, std::string(kSource) + clip.ffmpegArgs); }

nlohmann::json runJson(const std::string& args) {
  auto r = qtest::runTool(args + " --json");
  EXPECT_EQ(r.exitCode, 0) << args << ": " << r.err;
  return nlohmann::json::parse(r.out, nullptr, false);
}

namespace {
std::string probe(const std::string& path, const std::string& entries, const char* stream = "v:0") {
  return qtest::runCommand(std::string("ffprobe -v error -select_streams ") + stream + " " + entries + " -of csv=p=0 " + qtest::shellQuote(path)).out;
}
std::string md5Of(const std::string& commandLine) {
  return qtest::runCommand(commandLine + " | md5sum").out;
}
}  // namespace

int videoPackets(const std::string& path) {
  return std::stoi(probe(path, "-count_packets -show_entries stream=nb_read_packets"));
}
int audioPackets(const std::string& path) { return std::stoi(probe(path, "-count_packets -show_entries stream=nb_read_packets", "a:0")); }
int videoWidth(const std::string& path) { return std::stoi(probe(path, "-show_entries stream=width")); }

std::string videoFrameMd5(const std::string& path) {
  // Only the picture hashes: the timestamps of framemd5 follow the container's clock.
  return md5Of("ffmpeg -v error -i " + qtest::shellQuote(path) + " -map 0:v -f framemd5 - | grep -v '^#' | cut -d, -f6");
}
std::string audioMd5(const std::string& path) {
  return qtest::runCommand("ffmpeg -v error -i " + qtest::shellQuote(path) + " -map 0:a -c copy -f md5 -").out;
}
std::string videoPts(const std::string& path) { return md5Of("ffprobe -v error -select_streams v -show_entries packet=pts_time -of csv " + qtest::shellQuote(path)); }

}  // namespace mtest
