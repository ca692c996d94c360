// Timecode counting checked against FFmpeg: its MPEG-2 encoder stamps a GOP timecode on every
// picture (one picture per GOP), counting on from a start timecode with its own drop-frame and
// midnight rules. Each stamped timecode must be what tc2String gives for the start count plus
// the picture index.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "platform/tcxlat.h"
#include "support/test_support.h"

namespace {

struct GopCase {
  const char* name;  // cache file name stem
  const char* rate;
  uint32_t type;
  const char* start;
};

const GopCase kCases[] = {
    {"df2997_minute", "30000/1001", TC_DF2997, "00:00:59;20"},
    {"df2997_tenth", "30000/1001", TC_DF2997, "00:09:59;20"}, {"df2997_hour", "30000/1001", TC_DF2997, "00:59:59;20"},
    {"df5994_minute", "60000/1001", TC_DF5994, "00:00:59;40"},
    {"df5994_tenth", "60000/1001", TC_DF5994, "00:19:59;40"}, {"ndf30_minute", "30", TC_NDF30, "00:00:59:20"},
    {"film_midnight", "24", TC_FILM, "23:59:59:10"}, {"f2398_minute", "24000/1001", TC_2398, "00:00:59:10"},
    {"pal_hour", "25", TC_PAL, "00:59:59:10"}, {"fps50_minute", "50", TC_50, "00:00:59:40"},
    {"fps60_midnight", "60", TC_60, "23:59:59:40"},
};
constexpr int kPictures = 30;

// MPEG-2 GOP header time_code (ISO/IEC 13818-2 6.3.8): drop_frame_flag, hours (5), minutes (6),
// marker bit, seconds (6), pictures (6).
struct GopTimecode { int h, m, s, f; };

std::vector<GopTimecode> gopTimecodes(const std::string& path) {
  const auto r = qtest::runCommand("ffmpeg -hide_banner -nostdin -i " + qtest::shellQuote(path) +
                                   " -c copy -bsf:v trace_headers -f null - 2>&1");
  std::vector<GopTimecode> out;
  std::istringstream lines(r.out);
  for (std::string line; std::getline(lines, line);) {
    if (line.find(" time_code ") == std::string::npos) continue;
    const unsigned long v = std::stoul(line.substr(line.rfind(' ') + 1));
    out.push_back({int(v >> 19 & 31), int(v >> 13 & 63), int(v >> 6 & 63), int(v & 63)});
  }
  return out;
}

class FfmpegGopTimecodes : public testing::TestWithParam<GopCase> {};

TEST_P(FfmpegGopTimecodes, CountLikeTc2String) {
  if (!qtest::haveProgram("ffmpeg")) GTEST_SKIP() << "ffmpeg not installed";
  const GopCase& c = GetParam();
  const std::string path = qtest::encodedStream(
      std::string("tc_gop_") + c.name + ".m2v",
      std::string("-f lavfi -i testsrc=size=16x16:rate=") + c.rate + " -frames:v " + std::to_string(kPictures) +
          " -c:v mpeg2video -g 1 -bf 0 -timecode " + qtest::shellQuote(c.start) + " -f mpeg2video");
  ASSERT_FALSE(path.empty());
  const auto stamped = gopTimecodes(path);
  ASSERT_EQ(stamped.size(), size_t(kPictures));
  uint32_t start = 0;
  ASSERT_EQ(tc2Frame(c.start, c.type | TCF_TEXT, &start), 0) << c.start;
  for (int i = 0; i < kPictures; ++i) {
    uint8_t d[4];
    ASSERT_EQ(tc2String(start + i, c.type | TCF_DIGITS, d, sizeof d), 0);
    const auto& e = stamped[i];
    EXPECT_TRUE(d[0] == e.h && d[1] == e.m && d[2] == e.s && d[3] == e.f)
        << c.name << " picture " << i << ": ffmpeg " << e.h << ":" << e.m << ":" << e.s << ":" << e.f << ", ours "
        << +d[0] << ":" << +d[1] << ":" << +d[2] << ":" << +d[3];
  }
}

INSTANTIATE_TEST_SUITE_P(Rates, FfmpegGopTimecodes, testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
