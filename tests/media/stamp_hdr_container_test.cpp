// stamp and hdr through the frame pipeline on real containers (ffmpeg with x264/x265, AAC
// audio): ffprobe reads the stamped timecodes back, the decoded pictures and the audio bits stay
// the same.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "media_support.h"
#include "support/ffmpeg_oracle.h"
#include "support/test_support.h"

namespace {

using qtest::shellQuote;

using StampHdrContainers = mtest::FfmpegTest;

TEST_F(StampHdrContainers, StampKeepsPicturesAndAudio) {
  // kClips: H.264 and HEVC in MP4, Matroska and MPEG-TS; 1 s at 25 pictures per second.
  for (size_t index : {0u, 2u, 3u, 5u, 7u, 8u}) {
    const mtest::Clip& clip = mtest::kClips[index];
    SCOPED_TRACE(clip.name);
    const std::string in = mtest::clipPath(clip);
    qtest::TempDir dir;
    const std::string out = dir.file(std::string("out") + std::strrchr(clip.name, '.'));
    const auto summary = mtest::runJson("stamp " + shellQuote(in) + " " + shellQuote(out) + " --tc 01:00:00:00 --rate 25");
    ASSERT_FALSE(summary.is_discarded());
    EXPECT_EQ(summary["codec"], clip.codec);
    EXPECT_EQ(summary["output"], clip.container);
    const auto timecodes = oracle::allTimecodes(out);
    ASSERT_EQ(timecodes.size(), 25u);
    EXPECT_EQ(timecodes.front(), "01:00:00:00");
    EXPECT_EQ(timecodes.back(), "01:00:00:24");
    EXPECT_EQ(summary["last"], "01:00:00:24");
    EXPECT_EQ(mtest::videoFrameMd5(out), mtest::videoFrameMd5(in));
    EXPECT_EQ(mtest::audioMd5(out), mtest::audioMd5(in));
  }
}

TEST_F(StampHdrContainers, HdrSetsMasteringDisplayInMp4) {
  const std::string in = mtest::clipPath(mtest::kClips[5]);
  qtest::TempDir dir;
  const std::string out = dir.file("hdr.mp4");
  auto r = qtest::runTool("hdr " + shellQuote(in) + " " + shellQuote(out) +
                          " --master-display 'G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)'");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto side = qtest::runCommand("ffprobe -v error -select_streams v:0 -read_intervals %+#1 -show_frames " + shellQuote(out)).out;
  EXPECT_NE(side.find("side_data_type=Mastering display metadata"), std::string::npos);
  EXPECT_NE(side.find("red_x=34000/50000"), std::string::npos);
  EXPECT_NE(side.find("max_luminance=10000000/10000"), std::string::npos);
  EXPECT_EQ(mtest::videoFrameMd5(out), mtest::videoFrameMd5(in));
  EXPECT_EQ(mtest::audioMd5(out), mtest::audioMd5(in));
}

}  // namespace
