// Real streams: a host measures raster and rate from a stream made by ffmpeg/x264 (as ffprobe
// reports them) and derives a word; the word must give back exactly that raster and rate.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "support/test_support.h"
#include "video/video.h"

namespace {

struct Probed {
  int width = 0, height = 0;
  uint32_t rate = 0, scale = 0;
};

Probed probe(const std::string& path) {
  auto r = qtest::runCommand("ffprobe -v error -select_streams v:0 -show_entries stream=width,height,r_frame_rate "
                             "-of csv=p=0 " + qtest::shellQuote(path));
  Probed p;
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(std::sscanf(r.out.c_str(), "%d,%d,%u/%u", &p.width, &p.height, &p.rate, &p.scale), 4) << r.out;
  return p;
}

struct StreamCase { const char* size; const char* rate; int psf; const char* text; };
const StreamCase kStreams[] = {
    {"720x576", "25", 0, "PAL-CCIR601"}, {"720x486", "30000/1001", 0, "NTSC-CCIR601"},
    {"1280x720", "60000/1001", 0, "1280x720P@59.94"}, {"1920x1080", "25", 1, "1920x1080P@25"},
    {"1920x1080", "24000/1001", 0, "1920x1080psf@23.98"}, {"2048x1080", "24", 1, "2048x1080P@24"},
    {"3840x2160", "50", 0, "3840x2160P 50fps"},
};

TEST(FormatInterop, WordsOfProbedStreamsGiveBackTheirRasterAndRate) {
  for (const auto& c : kStreams) {
    std::string rateName = c.rate;
    for (char& ch : rateName)
      if (ch == '/') ch = '_';
    std::string name = std::string("fmt_") + c.size + "_" + rateName + ".mp4";
    std::string path = qtest::encodedStream(name, std::string("-f lavfi -i testsrc2=size=") + c.size + ":rate=" + c.rate +
                                                      " -frames:v 1 -c:v libx264 -preset ultrafast -f mp4");
    ASSERT_FALSE(path.empty());
    Probed p = probe(path);
    SCOPED_TRACE(testing::Message() << name << ": " << p.width << "x" << p.height << " " << p.rate << "/" << p.scale);
    uint32_t word = vidGetSignalFormat(p.rate, p.scale, p.width, p.height, c.psf);
    char text[21];
    vidSignalFormatToStr20(word, text);
    EXPECT_STREQ(text, c.text);
    int w = 0, h = 0;
    ASSERT_EQ(vidImageSize(word, &w, &h, 0), 0);
    EXPECT_EQ(w, p.width);
    EXPECT_EQ(h, p.height);
    uint32_t rate = 0, scale = 0;
    ASSERT_EQ(vidRateScale(word, &rate, &scale), 0);
    EXPECT_EQ(uint64_t{rate} * p.scale, uint64_t{p.rate} * scale);  // the same rate
    uint32_t snappedRate = 0, snappedScale = 0;
    EXPECT_EQ(vidRateScaled(double(p.rate) / p.scale, &snappedRate, &snappedScale), 0);
    EXPECT_EQ(uint64_t{snappedRate} * p.scale, uint64_t{p.rate} * snappedScale);
  }
}

}  // namespace
