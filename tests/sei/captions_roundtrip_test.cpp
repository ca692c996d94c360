// Reading timecode and captions back: SCC -> stamp -> extract gives the same SCC file back; the
// decoded text equals FFmpeg's ccaption decoder; the timecode readers agree with ffprobe on
// streams written by FFmpeg (MPEG-2 GOP timecode) and GStreamer; --keep-existing refuses captions
// FFmpeg's libx264 wrapper wrote; the SCC reader on hand-written files.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "platform/tcxlat.h"
#include "streamutil/cea608.h"
#include "streamutil/scc.h"
#include "streamutil/sei_read.h"
#include "support/ffmpeg_oracle.h"
#include "support/edit_support.h"
#include "support/tool_runs.h"

namespace {

using qtest::shellQuote;

uint8_t parity(uint8_t b) { return __builtin_popcount(b) % 2 ? b : uint8_t(b | 0x80); }

// SCC text from lines of control pairs and text.
struct SccLine {
  const char* timecode;
  std::vector<std::pair<uint8_t, uint8_t>> controls;  // each sent twice, as captioners do
  const char* text;
  std::vector<std::pair<uint8_t, uint8_t>> after;
};

std::string scc(const std::vector<SccLine>& lines) {
  std::string out = "Scenarist_SCC V1.0\n";
  char word[8];
  auto add = [&](uint8_t a, uint8_t b) {
    std::snprintf(word, sizeof word, " %02x%02x", parity(a), parity(b));
    out += word;
  };
  for (const auto& l : lines) {
    out += std::string("\n") + l.timecode + "\t";
    for (const auto& [a, b] : l.controls) add(a, b), add(a, b);
    const size_t n = std::strlen(l.text);
    for (size_t i = 0; i < n; i += 2) add(uint8_t(l.text[i]), i + 1 < n ? uint8_t(l.text[i + 1]) : 0);
    for (const auto& [a, b] : l.after) add(a, b), add(a, b);
    out += "\n";
  }
  for (size_t at; (at = out.find("\t ")) != std::string::npos;) out.erase(at + 1, 1);
  return out;
}

constexpr std::pair<uint8_t, uint8_t> kRcl{0x14, 0x20}, kEnm{0x14, 0x2E}, kEdm{0x14, 0x2C}, kEoc{0x14, 0x2F},
    kRu2{0x14, 0x25}, kCr{0x14, 0x2D}, kRdc{0x14, 0x29}, kRow14{0x14, 0x50}, kRow15{0x14, 0x70}, kRow15Indent4{0x14, 0x72};

// Pop-on (two rows, one indented, a special and an extended character), roll-up, paint-on.
const std::string kCaptions = scc({
    {"01:00:00;05", {kRcl, kEnm, kRow14}, "Hello, World", {}},
    {"01:00:00;25", {kRow15Indent4}, "caf", {}},
    {"01:00:01;00", {}, "e", {{0x13, 0x30}}},  // 0x13 0x30: Ä replaces the 'e'
    {"01:00:01;10", {kEdm, kEoc}, "", {}},
    {"01:00:02;10", {kRu2, kCr, kRow15}, "Hello roll", {}},
    {"01:00:03;00", {kCr, kRow15}, "second", {}},
    {"01:00:03;20", {kCr}, "", {}},
    {"01:00:04;00", {kRdc, kRow14}, "Paint", {}},
    {"01:00:04;20", {kEdm}, "", {}},
});

// FFmpeg's subcc reading of the stream (through MP4, at 29.97), as SRT text.
std::string ffmpegSrt(const std::string& stream, const qtest::TempDir& dir) {
  const std::string mp4 = dir.file("ff.mp4"), srt = dir.file("ff.srt");
  auto r = qtest::runCommand("ffmpeg -v error -y -r 30000/1001 -i " + shellQuote(stream) + " -c copy " + shellQuote(mp4) +
                             " && ffmpeg -v error -y -f lavfi -i " + shellQuote("movie=" + mp4 + "[out0+subcc]") + " -map s " +
                             shellQuote(srt));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  return qtest::readText(srt);
}

std::vector<std::string> srtTexts(std::string srt) {
  srt = std::regex_replace(srt, std::regex("<[^>]*>|\\{[^}]*\\}|\r"), "");
  std::vector<std::string> cues;
  std::istringstream in(srt);
  std::string line, text;
  int state = 0;  // 0 number, 1 times, 2 text
  while (std::getline(in, line)) {
    if (state == 0 && !line.empty()) state = 1;
    else if (state == 1) state = 2, text.clear();
    else if (state == 2 && line.empty()) cues.push_back(text), state = 0;
    else if (state == 2) text += (text.empty() ? "" : "\n") + line;
  }
  if (state == 2) cues.push_back(text);
  return cues;
}

std::string avcStream() {
  return qtest::encodedStream("cc-rt-h264.264", "-f lavfi -i testsrc2=size=160x96:rate=30000/1001 -frames:v 160 "
                                                 "-pix_fmt yuv420p -c:v libx264 -bf 3 -x264-params threads=1 -f h264");
}

TEST(CaptionsRoundTrip, SccComesBackPairForPairAndTextMatchesFfmpeg) {
  if (!qtest::haveProgram("ffmpeg")) GTEST_SKIP();
  struct Case {
    const char* name;
    std::string stream;
    const char* options;
  } cases[] = {
      {"H.264", avcStream(), ""},
      {"H.264, length-prefixed editing", avcStream(), " --length-prefixed"},
      {"HEVC", qtest::encodedStream("cc-rt-hevc.hevc", "-f lavfi -i testsrc2=size=160x96:rate=30000/1001 -frames:v 160 "
                                                       "-pix_fmt yuv420p -c:v libx265 -x265-params "
                                                       "log-level=error:pools=1:frame-threads=1:bframes=3 -f hevc"),
       ""},
  };
  const std::vector<std::string> wanted = {"Hello, World\ncafÄ", "Hello roll", "Hello roll\nsecond", "Paint"};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    qtest::TempDir dir;
    qtest::writeText(dir.file("in.scc"), kCaptions);
    // Stamped, then the stamped stream stamped again from the SCC file extracted from it: the
    // second stamp replaces the captions (one caption SEI of two triplets per picture), so both
    // read back the same.
    std::string input = c.stream, captions = dir.file("in.scc");
    for (const char* round : {"once", "twice"}) {
      SCOPED_TRACE(round);
      const std::string stamped = dir.file(std::string(round) + ".es");
      qtest::stampOk(input, stamped, "--tc '01:00:00;00' --captions " + shellQuote(captions) + c.options);
      const auto listed = qtest::runToolOk("inspect --json " + shellQuote(stamped)).out;
      size_t perPicture = 0;
      for (size_t at = 0; (at = listed.find("\"captions\":2}", at)) != std::string::npos; ++at) ++perPicture;
      EXPECT_EQ(perPicture, 160u);
      // -o x.scc lays the file out as Scenarist SCC does (the header line, then one blank line in
      // front of each caption line, a line wherever a frame without data interrupts the pairs), as
      // kCaptions is: it comes back byte for byte.
      qtest::extractOk(stamped, stamped + ".scc");
      EXPECT_EQ(qtest::readText(stamped + ".scc"), kCaptions);
      const auto r = qtest::extractOk(stamped, "-");
      EXPECT_EQ(srtTexts(r.out), wanted) << r.out;
      // With -o - --json the captions on standard output are exactly what -o - alone writes, and
      // the JSON goes to stderr (as every command's summary does when stdout carries the output),
      // the same document --json alone prints.
      const auto both = qtest::runToolOk("captions extract " + shellQuote(stamped) + " -o - --json");
      const auto jsonOnly = qtest::runToolOk("captions extract " + shellQuote(stamped) + " --json");
      EXPECT_EQ(both.out, r.out);
      ASSERT_TRUE(nlohmann::json::accept(both.err)) << both.err;
      EXPECT_EQ(nlohmann::json::parse(both.err), nlohmann::json::parse(jsonOnly.out));
      EXPECT_EQ(nlohmann::json::parse(both.err)["cues"].size(), wanted.size());
      // FFmpeg lets the pop-on caption stand until the end of the stream, so it comes last there.
      auto theirs = srtTexts(ffmpegSrt(stamped, dir));
      std::rotate(theirs.rbegin(), theirs.rbegin() + 1, theirs.rend());
      EXPECT_EQ(theirs, wanted);
      EXPECT_EQ(oracle::pictureChecksums(stamped), oracle::pictureChecksums(c.stream)) << "pictures changed";
      input = stamped;
      captions = stamped + ".scc";
    }
  }
}

// A stream whose captions FFmpeg's libx264 wrapper wrote (-a53cc, from a stamped stream) and
// which carries no timecode: --keep-existing refuses for the captions and writes nothing. (That
// our reader gives FFmpeg's text and times for such captions is checked on an MPEG-TS in
// Containers.Mpeg2StampAndCaptionsRoundTrip.)
TEST(CaptionsRoundTrip, KeepExistingRefusesCaptionsWrittenByFfmpeg) {
  if (!qtest::haveProgram("ffmpeg")) GTEST_SKIP();
  qtest::TempDir dir;
  qtest::writeText(dir.file("in.scc"), kCaptions);
  qtest::stampOk(avcStream(), dir.file("s.264"), "--tc '01:00:00;00' --captions " + shellQuote(dir.file("in.scc")));
  const std::string again = dir.file("ffmpeg.264");
  auto r = qtest::runCommand("ffmpeg -v error -y -i " + shellQuote(dir.file("s.264")) +
                             " -c:v libx264 -a53cc 1 -bf 2 -x264-params threads=1 -f h264 " + shellQuote(again));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  ASSERT_NE(qtest::extractOk(again, "-").out.find("Hello"), std::string::npos) << "FFmpeg kept the captions";
  r = qtest::runTool("stamp " + shellQuote(again) + " " + shellQuote(dir.file("kept.264")) +
                     " --tc '01:00:00;00' --keep-existing --captions " + shellQuote(dir.file("in.scc")));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.err.find("IN already carries captions"), std::string::npos) << r.err;
  EXPECT_FALSE(std::filesystem::exists(dir.file("kept.264")));
}

// cc_data() triplets whose cc_valid bit is clear carry no caption bytes (ATSC A/53 Part 4,
// CEA-708 4.4): with the bit cleared in every caption SEI of a stamped stream, extract finds
// no caption, although the SEI are all still there.
TEST(CaptionsTool, TripletsNotMarkedValidCarryNothing) {
  qtest::TempDir dir;
  qtest::writeText(dir.file("in.scc"), kCaptions);
  qtest::stampOk(avcStream(), dir.file("s.264"), "--tc '01:00:00;00' --captions " + shellQuote(dir.file("in.scc")));
  std::string stream = qtest::readText(dir.file("s.264"));
  // user_data_type_code 3, then cc_count in the low five bits, em_data, and the triplets.
  const std::string ga94("GA94\x03", 5);
  size_t cleared = 0;
  for (size_t at = stream.find(ga94); at != std::string::npos; at = stream.find(ga94, at + 1)) {
    const size_t count = uint8_t(stream[at + 5]) & 0x1F;
    for (size_t k = 0; k < count; ++k) {
      char& flags = stream[at + 7 + 3 * k];
      if (flags & 0x04) ++cleared;
      flags = char(flags & ~0x04);
    }
  }
  EXPECT_EQ(cleared, 2u * 160) << "two valid triplets a picture";
  qtest::writeText(dir.file("invalid.264"), stream);
  EXPECT_EQ(srtTexts(qtest::extractOk(dir.file("invalid.264"), "-").out), std::vector<std::string>{});
}

// Timecode written by other tools: GStreamer's h264parse (pic_timing from timecodestamper) and
// FFmpeg's MPEG-2 encoder (GOP time_code); inspect shows what ffprobe shows.
TEST(TimecodeReaders, AgreeWithFfprobeOnOtherWriters) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP();
  qtest::TempDir dir;
  auto probe = [](const std::string& path) { return oracle::allTimecodes(path, false); };
  auto inspected = [](const std::string& path) {
    auto r = qtest::runTool("inspect --json " + shellQuote(path));
    std::vector<std::string> out;
    std::regex tc("\"timecode\":\"([^\"]*)\"");
    for (auto it = std::sregex_iterator(r.out.begin(), r.out.end(), tc); it != std::sregex_iterator(); ++it) out.push_back((*it)[1]);
    return out;
  };
  if (qtest::haveProgram("gst-launch-1.0")) {
    const std::string gst = dir.file("gst.264");
    auto r = qtest::runCommand("timeout 120 gst-launch-1.0 -q videotestsrc num-buffers=14 ! "
                               "video/x-raw,width=160,height=96,framerate=25/1 ! timecodestamper ! "
                               "x264enc option-string=pic-struct=1 bframes=2 ! h264parse update-timecode=true ! "
                               "video/x-h264,stream-format=byte-stream ! filesink location=" + shellQuote(gst));
    if (r.exitCode == 0) {
      const auto theirs = probe(gst);
      EXPECT_EQ(theirs.size(), 14u);
      EXPECT_EQ(inspected(gst), theirs);
    }
  }
  // MPEG-2: the GOP time_code of each GOP, as the library reads it from the frame holding it.
  const std::string m2v = qtest::encodedStream("tc-mpeg2-2997.m2v", "-f lavfi -i testsrc2=size=160x96:rate=30000/1001 "
                                                                    "-frames:v 40 -c:v mpeg2video -g 6 -bf 2 -timecode '00:00:59;26' -f mpeg2video");
  const auto bytes = qtest::readBytes(m2v);
  std::vector<std::string> gops;
  for (size_t i = 0; i + 4 < bytes.size(); ++i)
    if (!bytes[i] && !bytes[i + 1] && bytes[i + 2] == 1 && bytes[i + 3] == 0xB8) {
      KLX_TIMECODE tc{};
      ASSERT_EQ(klxUtilReadMpeg2TimeCode(bytes.data() + i, uint32_t(bytes.size() - i), &tc), 1);
      char text[16];
      std::snprintf(text, sizeof text, "%02u:%02u:%02u%c%02u", tc.hours, tc.minutes, tc.seconds, tc.dropFrame ? ';' : ':', tc.frames);
      gops.push_back(text);
    }
  std::vector<std::string> theirs = probe(m2v);
  EXPECT_EQ(gops, theirs);
  // Per picture, inspect counts on from each GOP's time_code in display order.
  const auto perPicture = inspected(m2v);
  ASSERT_EQ(perPicture.size(), 40u);
  uint32_t start = 0;
  ASSERT_EQ(tc2Frame("00:00:59;26", TC_DF2997 | TCF_TEXT, &start), 0);
  for (size_t i = 0; i < perPicture.size(); ++i) {
    char text[32] = {};
    tc2String(start + uint32_t(i), TC_DF2997 | TCF_FULL_TEXT, text, sizeof text);
    EXPECT_EQ(perPicture[i], text) << i;
  }
}

// The decoder on hand-made pairs: doubled control codes count once, parity errors are dropped,
// characters of the other data channel are not shown.
TEST(Cea608, ControlCodesParityAndChannels) {
  static CEA608_DECODER d;
  static CEA608_CUE cue;
  ASSERT_EQ(klxutilCea608Init(&d, 1), 0);
  EXPECT_EQ(klxutilCea608Init(&d, 5), -1);
  ASSERT_EQ(klxutilCea608Init(&d, 1), 0);
  const std::vector<std::pair<uint8_t, uint8_t>> pairs = {
      {0x14, 0x20}, {0x14, 0x20}, {0x14, 0x70}, {'A', 'B'}, {0x14, 0x21}, {0x14, 0x21},  // RCL, PAC, "AB", BS once
      {0x1C, 0x20}, {'X', 'Y'},                                                          // CC2 text: not ours
      {0x14, 0x70}, {'C', 'D'}};                                                         // "CD" overwrites
  uint32_t frame = 0;
  for (const auto& [a, b] : pairs) EXPECT_EQ(klxutilCea608Feed(&d, frame++, parity(a), parity(b), &cue), 0);
  EXPECT_EQ(klxutilCea608Feed(&d, 20, 0x7E /* even parity: dropped */, parity('E'), &cue), 0);
  EXPECT_EQ(klxutilCea608Feed(&d, 20, parity(0x14), parity(0x2F), &cue), 0);  // EOC: shows
  EXPECT_EQ(klxutilCea608Feed(&d, 30, parity(0x14), parity(0x2C), &cue), 1);  // EDM: ends
  EXPECT_EQ(cue.startFrame, 20u);
  EXPECT_EQ(cue.endFrame, 30u);
  EXPECT_STREQ(cue.text, "CD");
  EXPECT_EQ(klxutilCea608Flush(&d, 40, &cue), 0);
}

}  // namespace

namespace {

// Without -o the output must be asked for as JSON; then a stream without captions gives no cues.
TEST(CaptionsTool, ExtractWantsAnOutputOrJson) {
  const std::string sample = shellQuote(qtest::samplePath("hevc_main_160x90_25fps.hevc"));
  auto r = qtest::runTool("captions extract " + sample);
  EXPECT_EQ(r.exitCode, 2) << r.err;
  qtest::expectOneLineError(r, "captions");
  r = qtest::runTool("captions extract " + sample + " --json");
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("\"pairs\":0,\"cues\":[]"), std::string::npos) << r.out;
}

// Stamped at 30 non-drop, a 29.97 stream is read back with drop-frame counting, where
// 00:01:00:00 and 00:01:00:01 do not exist: those pictures' pairs still come back, counted on
// from the picture before them.
TEST(CaptionsTool, PairsUnderTimecodesTheCountingLacksAreKept) {
  if (!qtest::haveProgram("ffmpeg")) GTEST_SKIP();
  qtest::TempDir dir;
  qtest::writeText(dir.file("in.scc"), "Scenarist_SCC V1.0\n\n00:00:59:28\t9420 9420 94ae 94ae\n");
  qtest::stampOk(avcStream(), dir.file("s.264"), "--rate 30 --tc 00:00:59:20 --captions " + shellQuote(dir.file("in.scc")));
  qtest::extractOk(dir.file("s.264"), dir.file("out.scc"));
  EXPECT_EQ(qtest::readText(dir.file("out.scc")), "Scenarist_SCC V1.0\n\n00:00:59;28\t9420 9420 94ae 94ae\n");
}

// Caption pairs outside the stamped timecodes: one warning line naming both ranges, exit 0.
TEST(CaptionsTool, StampWarnsAboutCuesOutsideTheRange) {
  qtest::TempDir dir;
  const std::string sample = qtest::samplePath("hevc_main_160x90_25fps.hevc");
  const std::string text = "Scenarist_SCC V1.0\n\n02:00:00:00\t9420 9420\n";
  qtest::writeText(dir.file("late.scc"), text);
  auto r = qtest::runTool("stamp " + shellQuote(sample) + " " + shellQuote(dir.file("out.hevc")) +
                          " --tc 01:00:00:00 --rate 25 --captions " + shellQuote(dir.file("late.scc")));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.err.find("warning: 2 of 2 caption byte pairs fall outside the stamped range 01:00:00:00-"), std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find("(the captions run 02:00:00:00-02:00:00:01)"), std::string::npos) << r.err;
}

// ---- the SCC reader on hand-written files: pairs one a frame from their line's timecode, the
// line of a malformed file, the capacity.

std::vector<SCC_CAPTION> readAll(const std::string& text, uint32_t type, int* rc, uint32_t* line = nullptr) {
  uint32_t count = 0, errorLine = 0;
  *rc = klxutilReadScc(text.data(), text.size(), type, nullptr, 0, &count, &errorLine);
  std::vector<SCC_CAPTION> pairs(count);
  if (*rc == -2) *rc = klxutilReadScc(text.data(), text.size(), type, pairs.data(), count, &count, &errorLine);
  if (line) *line = errorLine;
  pairs.resize(count);
  return pairs;
}

uint32_t framesOf(const char* tc, uint32_t type) {
  uint32_t f = 0;
  EXPECT_EQ(tc2Frame(tc, type | TCF_TEXT, &f), 0) << tc;
  return f;
}

TEST(Scc, PairsGoOutOneAFrameFromTheirTimecode) {
  const std::string text =
      "Scenarist_SCC V1.0\r\n\r\n"
      "00:00:59;28\t9420 9420 c8e5\r\n\r\n"
      "00:01:00;02\t942f\r\n"      // starts before the previous line has finished: goes behind it
      "00:01:10;00\tECEC ef80\n";  // upper-case hex is fine
  int rc = 0;
  const auto pairs = readAll(text, TC_DF2997, &rc);
  ASSERT_EQ(rc, 0);
  const uint32_t t0 = framesOf("00:00:59;28", TC_DF2997), t1 = framesOf("00:01:10;00", TC_DF2997);
  struct Expected {
    uint32_t frame;
    uint8_t a, b;
  };
  const Expected expected[] = {{t0, 0x94, 0x20}, {t0 + 1, 0x94, 0x20}, {t0 + 2, 0xC8, 0xE5},
                               {t0 + 3, 0x94, 0x2F}, {t1, 0xEC, 0xEC},   {t1 + 1, 0xEF, 0x80}};
  ASSERT_EQ(pairs.size(), std::size(expected));
  for (size_t i = 0; i < pairs.size(); ++i) {
    EXPECT_EQ(pairs[i].frame, expected[i].frame) << i;
    EXPECT_EQ(pairs[i].data[0], expected[i].a) << i;
    EXPECT_EQ(pairs[i].data[1], expected[i].b) << i;
  }
}

TEST(Scc, MalformedFilesNameTheLine) {
  struct Case {
    const char* text;
    uint32_t line;
  };
  const Case cases[] = {
      {"", 0},
      {"WEBVTT\n\n00:00:01:00\t9420\n", 1},
      {"Scenarist_SCC V1.0\n\n00:00:01:00\t942\n", 3},        // three hex digits
      {"Scenarist_SCC V1.0\n\n00:00:01:00\t9421\n", 3},       // 0x21 has even parity
      {"Scenarist_SCC V1.0\n\n00:00:01:00\n", 3},             // no data
      {"Scenarist_SCC V1.0\n\n00:00:99:00\t9420\n", 3},       // seconds out of range
      {"Scenarist_SCC V1.0\n\n9420 9420\n", 3},               // no timecode
      {"Scenarist_SCC V1.0\n\n00:00:01:00\t9420\nxx\n", 4},
  };
  for (const auto& c : cases) {
    int rc = 0;
    uint32_t line = 99;
    const auto pairs = readAll(c.text, TC_PAL, &rc, &line);
    EXPECT_EQ(rc, -1) << c.text;
    EXPECT_EQ(line, c.line) << c.text;
    EXPECT_TRUE(pairs.empty());
  }
}

TEST(Scc, CapacityIsNeverOverrun) {
  const std::string text = "Scenarist_SCC V1.0\n\n00:00:00:00\t9420 9420 942c 942f\n";
  SCC_CAPTION pairs[3] = {};
  SCC_CAPTION guard{0xABCD, {1, 2}};
  uint32_t count = 0;
  pairs[2] = guard;
  EXPECT_EQ(klxutilReadScc(text.data(), text.size(), TC_PAL, pairs, 2, &count, nullptr), -2);
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(pairs[1].data[1], 0x20);
  EXPECT_EQ(pairs[2].frame, 0xABCDu) << "third slot untouched";
  EXPECT_EQ(klxutilReadScc(nullptr, 0, TC_PAL, pairs, 2, &count, nullptr), -1);
}

}  // namespace
