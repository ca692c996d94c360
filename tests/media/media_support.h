// Real media files for the container tests, made by ffmpeg with x264/x265, and what ffprobe
// and ffmpeg say about them: the oracles of the media layer's tests.
#pragma once
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace mtest {

struct Clip {
  const char* name;       // cache file name (its extension names the container)
  const char* codec;      // "h264" / "hevc"
  const char* container;  // as quorvane names it
  const char* ffmpegArgs;
};

// H.264 and HEVC with audio in every container whose muxer takes them (MXF: H.264 with PCM).
extern const std::vector<Clip> kClips;

std::string clipPath(const Clip& clip);

// The fixture of the tests that need ffmpeg and ffprobe: skipped without them.
class FfmpegTest : public ::testing::Test {
 protected:
  void SetUp() override;
};
nlohmann::json runJson(const std::string& args);  // quorvane ... --json, parsed (null on failure)
// ffprobe: video packet count, first video stream's width and height.
int videoPackets(const std::string& path);
int videoWidth(const std::string& path);
int audioPackets(const std::string& path);
// What must not change through an editing pass: decoded pictures, the audio bits, the timing.
std::string videoFrameMd5(const std::string& path);
std::string audioMd5(const std::string& path);
std::string videoPts(const std::string& path);

}  // namespace mtest
