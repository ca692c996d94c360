// Containers cut in front of a keyframe (ffmpeg -ss ... -c copy -copyinkf): the first packets are
// B-frames whose references were cut away, and a Matroska track gives them no dts. An editing
// pass keeps every packet, the pictures ffmpeg can decode, and the audio.
#include <gtest/gtest.h>

#include <string>

#include "media_support.h"
#include "support/test_support.h"
#include "support/tool_runs.h"

namespace {

using qtest::shellQuote;

using CutBeforeKeyframe = mtest::FfmpegTest;

std::string firstVideoPacketFlags(const std::string& path) {
  return qtest::runCommand("ffprobe -v error -select_streams v:0 -read_intervals %+#1 -show_entries packet=flags -of csv=p=0 " +
                           shellQuote(path)).out;
}

TEST_F(CutBeforeKeyframe, ReframeAndStampKeepEveryPacket) {
  // media_h264.mkv: keyframes every 12 pictures, 2 B-frames; cut 0.3 s in, between keyframes.
  const std::string whole = mtest::clipPath(mtest::kClips[2]);
  const std::string cut =
      qtest::encodedStream("media_h264_cut.mkv", "-i " + shellQuote(whole) + " -ss 0.3 -c copy -copyinkf -f matroska");
  ASSERT_EQ(firstVideoPacketFlags(cut).substr(0, 1), "_") << "the cut must start on a non-keyframe";
  struct Case {
    const char* command;
    const char* out;
    const char* options;
  };
  const Case cases[] = {
      {"reframe", "out.mkv", ""}, {"reframe", "out.mp4", ""}, {"reframe", "out.mov", ""},
      {"stamp", "out.mkv", " --tc 01:00:00:00"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.command) + " -> " + c.out);
    qtest::TempDir dir;
    const std::string out = dir.file(c.out);
    qtest::runToolOk(std::string(c.command) + " " + shellQuote(cut) + " " + shellQuote(out) + c.options);
    EXPECT_EQ(mtest::videoPackets(out), mtest::videoPackets(cut));
    EXPECT_EQ(mtest::videoFrameMd5(out), mtest::videoFrameMd5(cut));
    EXPECT_EQ(mtest::audioMd5(out), mtest::audioMd5(cut));
  }
}

}  // namespace
