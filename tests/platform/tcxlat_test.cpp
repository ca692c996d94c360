// Timecode translation: every frame of a day of every type against an independent odometer,
// known anchors, every format word the library passes, parsing and refusals, and FFmpeg's own
// counting of GOP timecodes.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "platform/tcxlat.h"
#include "support/test_support.h"

namespace {

struct TypeCase {
  const char* name;
  uint32_t type;
  uint32_t fps;
  uint32_t dropped;         // frame numbers skipped per minute (not every tenth)
  uint32_t expectedPerDay;  // frames in 24 hours, worked out by hand
};

const TypeCase kTypes[] = {
    {"film", TC_FILM, 24, 0, 2073600}, {"ndf30", TC_NDF30, 30, 0, 2592000}, {"df2997", TC_DF2997, 30, 2, 2589408},
    {"pal", TC_PAL, 25, 0, 2160000}, {"fps50", TC_50, 50, 0, 4320000}, {"df5994", TC_DF5994, 60, 4, 5178816},
    {"fps60", TC_60, 60, 0, 5184000}, {"fps2398", TC_2398, 24, 0, 2073600}, {"alias132", 132, 24, 0, 2073600},
};

// A timecode reader's odometer: advances one frame at a time and skips the dropped numbers.
// It shares no arithmetic with the library's division-based conversion.
struct Odometer {
  uint32_t fps, dropped;
  uint8_t h = 0, m = 0, s = 0, f = 0;
  void step() {
    if (++f < fps) return;
    f = 0;
    if (++s < 60) return;
    s = 0;
    if (++m == 60) {
      m = 0;
      ++h;
    }
    if (m % 10 != 0) f = static_cast<uint8_t>(dropped);
  }
};

class EveryFrameOfADay : public testing::TestWithParam<TypeCase> {};

TEST_P(EveryFrameOfADay, MatchesOdometerAndRoundTrips) {
  const TypeCase& t = GetParam();
  Odometer odo{t.fps, t.dropped};
  uint32_t frame = 0;
  char text[16];
  uint8_t digits[4];
  // Plain comparisons in the loop: gtest assertions per frame would dominate the run time.
  for (; odo.h < 24; odo.step(), ++frame) {
    const uint8_t expected[4] = {odo.h, odo.m, odo.s, odo.f};
    if (tc2String(frame, t.type | TCF_DIGITS, digits, sizeof digits) != 0 || std::memcmp(digits, expected, 4) != 0)
      FAIL() << "frame " << frame << " gave " << +digits[0] << ":" << +digits[1] << ":" << +digits[2] << ":"
             << +digits[3] << ", odometer " << +odo.h << ":" << +odo.m << ":" << +odo.s << ":" << +odo.f;
    uint32_t back = ~0u;
    if (tc2String(frame, t.type | TCF_FULL_TEXT, text, sizeof text) != 0 ||
        tc2Frame(text, t.type | TCF_TEXT, &back) != 0 || back != frame)
      FAIL() << "frame " << frame << " wrote '" << text << "' which read back as " << back;
  }
  EXPECT_EQ(frame, t.expectedPerDay);
  // One day on, the count wraps to midnight unless told not to.
  ASSERT_EQ(tc2String(frame, t.type | TCF_FULL_TEXT, text, sizeof text), 0);
  EXPECT_STREQ(text, t.dropped ? "00:00:00;00" : "00:00:00:00");
  ASSERT_EQ(tc2String(frame, t.type | TCF_FULL_TEXT | TCF_NO_WRAP, text, sizeof text), 0);
  EXPECT_STREQ(text, t.dropped ? "24:00:00;00" : "24:00:00:00");
}

INSTANTIATE_TEST_SUITE_P(Types, EveryFrameOfADay, testing::ValuesIn(kTypes),
                         [](const auto& info) { return std::string(info.param.name); });

// The count a format word reads back for frames: wrapped at a day unless told not to.
uint32_t readBack(uint32_t frames, uint32_t format) {
  if (format & TCF_NO_WRAP) return frames;
  for (const auto& t : kTypes)
    if (t.type == (format & TCF_TYPE_MASK)) return frames % t.expectedPerDay;
  return frames;  // plain counts
}

// Text and digit forms at anchors the odometer does not reach: separators, compact and trace
// forms, service words, plain counts, and digits written over a preset slot. Whatever is
// written reads back with the same word.
TEST(Tc2String, FormsAtAnchors) {
  const struct {
    uint32_t frames, format;
    const char* text;  // for TCF_DIGITS: the four bytes as "h m s f"
  } cases[] = {
      {1800, TC_DF2997 | TCF_FULL_TEXT, "00:01:00;02"}, {86399, TC_FILM | TCF_FULL_TEXT, "00:59:59:23"},
      {2160000 + 25, TC_PAL | TCF_FULL_TEXT | TCF_NO_WRAP, "24:00:01:00"},
      // Service-setting values: 60 fps, never wrapped, so the whole 32-bit range survives.
      {5184000, 0xB2140, "24:00:00:00"}, {0xFFFFFFFFu, 0xB2140, "19884:06:28:15"},
      // Trace text: all fields, leading field unpadded, ':' throughout.
      {1800, TC_DF2997 | TCF_DEBUG_TEXT, "0:01:00:02"}, {3600 * 30 * 11, 0x10102, "11:00:00:00"},
      // Compact forms: leading zero fields left out down to seconds:frames.
      {0, TC_PAL | TCF_TEXT, "0:00"}, {137, TC_PAL | TCF_TEXT, "5:12"}, {137, TC_PAL | TCF_TEXT | TCF_PAD, "05:12"},
      {1500, TC_PAL | TCF_TEXT, "1:00:00"}, {90000, TC_PAL | TCF_TEXT, "1:00:00:00"},
      {1800, TC_DF2997 | TCF_TEXT | TCF_DROP_MARK, "1:00;02"}, {1800, TC_DF2997, "1:00:02"},  // neither TEXT nor DIGITS: text
      // Plain frame counts are decimal, whatever the flags.
      {0xFFFFFFFFu, TC_FRAMES | TCF_TEXT, "4294967295"}, {0, TC_FRAMES, "0"},
      // An SEI digit word (every frame of every type is EveryFrameOfADay, SEI digits against
      // ffprobe are tests/sei); the slot is preset, so every byte must be replaced.
      {90000 * 23 + 24, 0x408, "23 0 0 24"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.format << std::dec << " " << c.frames);
    char out[32];
    std::memset(out, 0x7F, sizeof out);
    ASSERT_EQ(tc2String(c.frames, c.format, out, sizeof out), 0);
    const bool digits = c.format & TCF_DIGITS;
    EXPECT_EQ(digits ? std::to_string(+out[0]) + " " + std::to_string(+out[1]) + " " + std::to_string(+out[2]) + " " +
                           std::to_string(+out[3])
                     : std::string(out),
              c.text);
    uint32_t back = 0;
    ASSERT_EQ(tc2Frame(out, c.format, &back), 0);
    EXPECT_EQ(back, readBack(c.frames, c.format));
  }
}

TEST(Tc2String, Refusals) {
  const struct { uint32_t frames, format; size_t size; } cases[] = {
      {0, 3 | TCF_FULL_TEXT, 31},  // unknown type
      {0, 255 | TCF_FULL_TEXT, 31},  // 255 is the writer's business, not ours
      {0, TC_PAL | TCF_FULL_TEXT | 0x800, 31},  // unknown option bit
      {0, TC_PAL | TCF_TEXT | TCF_DIGITS, 31},  // contradictory forms
      {0, TC_PAL | TCF_FULL_TEXT, 11},  // "00:00:00:00" needs 12
      {0, TC_FRAMES, 1},  // "0" needs 2
      {0, TC_FRAMES | TCF_DIGITS, 4},  // a plain count has no fields
      {0, TC_PAL | TCF_DIGITS, 3},  // four bytes needed
      {0xFFFFFFFFu, TC_PAL | TCF_DIGITS | TCF_NO_WRAP, 4},  // hours past 255
  };
  for (const auto& c : cases) {
    char out[32];
    std::memset(out, 'x', sizeof out);
    EXPECT_EQ(tc2String(c.frames, c.format, out, c.size), -1) << std::hex << c.format;
    if (c.format & TCF_DIGITS)
      EXPECT_EQ(std::string(out, 4), "xxxx") << "digits untouched on failure";
    else EXPECT_EQ(out[0], '\0') << "text left empty on failure";
    EXPECT_EQ(out[c.size], 'x') << "wrote past the buffer";
  }
  EXPECT_EQ(tc2String(0, TC_PAL | TCF_FULL_TEXT, nullptr, 32), -1);
  char exact[12];
  EXPECT_EQ(tc2String(0, TC_PAL | TCF_FULL_TEXT, exact, sizeof exact), 0);  // exactly enough
}

// Separators, blanks and limits; the round trips below cover the forms tc2String writes.
TEST(Tc2Frame, AcceptsAndRefuses) {
  const struct {
    const char* text;
    uint32_t type;
    int64_t frames;  // -1: refused
  } cases[] = {
      {"01.00.00.00", TC_DF2997, 107892}, {"01;00;00;00", TC_DF2997, 107892}, {"  01:00:00;00\t", TC_DF2997, 107892},
      {"00:01:00;00", TC_DF2997, -1}, {"00:01:00;01", TC_DF2997, -1},  // dropped frame numbers
      // The frame bound of one type stands for all: each type's rate is EveryFrameOfADay's.
      {"00:00:00:25", TC_PAL, -1}, {"00:60:00:00", TC_PAL, -1}, {"00:00:60:00", TC_PAL, -1}, {"24:00:00:00", TC_PAL, -1},
      {"19884:06:28:16", 0xB2140, -1},  // one past 32 bits
      {"99999999:00:00:00", TC_60 | TCF_NO_WRAP, -1}, {"00000000001:00:00:00", TC_PAL | TCF_NO_WRAP, -1},
      {" 4294967295 ", TC_FRAMES, 0xFFFFFFFFu}, {"4294967296", TC_FRAMES, -1}, {"01:00", TC_FRAMES, -1},
      {"", TC_PAL, -1}, {"1", TC_PAL, -1}, {"01:00:00:0", TC_PAL, -1}, {"01:00:00:000", TC_PAL, -1},
      {"01:00:00:00:00", TC_PAL, -1}, {"01-00-00-00", TC_PAL, -1}, {"+1:00:00:00", TC_PAL, -1},
      {"01:00:00:00;", TC_PAL, -1}, {"01 :00:00:00", TC_PAL, -1}, {"01:00:00:00", 3, -1},
      {"01:00:00:00", TC_PAL | 0x800, -1},
  };
  for (const auto& c : cases) {
    uint32_t frames = 0xDEADBEEF;
    const int rc = tc2Frame(c.text, c.type, &frames);
    if (c.frames < 0) {
      EXPECT_EQ(rc, -1) << "'" << c.text << "' type " << c.type << " gave " << frames;
      EXPECT_EQ(frames, 0xDEADBEEF) << "output touched on failure";
    } else {
      EXPECT_EQ(rc, 0) << "'" << c.text << "' type " << c.type;
      EXPECT_EQ(frames, static_cast<uint32_t>(c.frames)) << "'" << c.text << "'";
    }
  }
  uint32_t frames = 0;
  EXPECT_EQ(tc2Frame(nullptr, TC_PAL, &frames), -1);
  EXPECT_EQ(tc2Frame("00:00:00:00", TC_PAL, nullptr), -1);
  const uint8_t dropped[4] = {0, 1, 0, 1};  // digits form refuses dropped numbers as well
  EXPECT_EQ(tc2Frame(reinterpret_cast<const char*>(dropped), TC_DF2997 | TCF_DIGITS, &frames), -1);
  // Digits are not bounded by two text characters: minute or second 60 must be refused here too.
  const uint8_t sixties[2][4] = {{0, 60, 0, 0}, {0, 0, 60, 0}};
  for (const auto& digits : sixties)
    EXPECT_EQ(tc2Frame(reinterpret_cast<const char*>(digits), TC_PAL | TCF_DIGITS, &frames), -1);
}

// Every text form, wrapped or not, reads back to the count it came from (modulo a day).
TEST(Tc2Frame, RandomCountsRoundTripInEveryForm) {
  std::mt19937 rng(12);
  const uint32_t forms[] = {TCF_FULL_TEXT, TCF_DEBUG_TEXT, TCF_TEXT, TCF_TEXT | TCF_PAD, TCF_TEXT | TCF_DROP_MARK, 0};
  for (const auto& t : kTypes) {
    for (int i = 0; i < 4000; ++i) {
      const uint32_t frames = i < 2 ? (i ? 0xFFFFFFFFu : 0u) : static_cast<uint32_t>(rng());
      for (uint32_t form : forms)
        for (uint32_t wrap : {0u, TCF_NO_WRAP}) {
          const uint32_t word = t.type | form | wrap;
          char text[32];
          ASSERT_EQ(tc2String(frames, word, text, sizeof text), 0) << std::hex << word;
          uint32_t back = 0;
          ASSERT_EQ(tc2Frame(text, word, &back), 0) << text << " " << std::hex << word;
          ASSERT_EQ(back, readBack(frames, word)) << text << " " << std::hex << word;
        }
    }
  }
}

// Timecode counting checked against FFmpeg: its MPEG-2 encoder stamps a GOP timecode on every
// picture (one picture per GOP), counting on from a start timecode with its own drop-frame and
// midnight rules. Each stamped timecode must be what tc2String gives for the start count plus
// the picture index.

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
