// MPEG-2 video in MPEG-TS (AAC) and MXF (PCM) made by ffmpeg, through stamp and captions
// extract: ffprobe reads the stamped GOP timecodes, the decoded pictures and the audio bits stay
// the same, the caption pairs come back at their timecodes, and the decoded text equals FFmpeg's
// subcc text; captions extract reads H.264 captions that FFmpeg's own writer (-a53cc) put in a TS.
#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include "media_support.h"
#include "platform/tcxlat.h"
#include "streamutil/scc.h"
#include "support/edit_support.h"
#include "support/ffmpeg_oracle.h"
#include "support/tool_runs.h"

namespace {

using qtest::shellQuote;

constexpr const char* kSource =
    "-f lavfi -i testsrc2=size=192x108:rate=30000/1001 -f lavfi -i sine=frequency=440:sample_rate=48000 -t 2 "
    "-c:v mpeg2video -g 12 -bf 2 -timecode 01:00:00:00 ";

// Pop-on "Hello" shown from 10:00:00;10 to 10:00:01;10, then "two" until 10:00:01;25.
constexpr const char* kScc =
    "Scenarist_SCC V1.0\n\n"
    "10:00:00;10\t9420 9420 94ae 94ae 9452 9452 c8e5 ecec ef80 942f 942f\n\n"
    "10:00:01;10\t9420 9420 94ae 94ae 94d0 94d0 f4f7 ef80 942c 942c 942f 942f\n\n"
    "10:00:01;25\t942c 942c\n";

// FFmpeg's subcc reading as SRT, its styling tags taken off.
std::string ffmpegSrt(const std::string& path) {
  return std::regex_replace(qtest::runCommand("ffmpeg -v error -f lavfi -i " + shellQuote("movie=" + path + "[out0+subcc]") +
                                    " -map 0:s -f srt -").out, std::regex("<[^>]*>|\\{[^}]*\\}|\r"), "");
}

using Mpeg2Containers = mtest::FfmpegTest;

TEST_F(Mpeg2Containers, StampAndCaptionsRoundTrip) {
  struct Case {
    const char* name;  // cache file; its extension names the container
    const char* args;
    const char* container;
    const char* containerTimecode;  // the container's own timecode tag after the stamp
  } cases[] = {
      {"m2_aac.ts", "-c:a aac -f mpegts", "MPEG-TS", ""},
      {"m2_pcm.mxf", "-c:a pcm_s16le -f mxf", "MXF", "TAG:timecode=10:00:00;00\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string in = qtest::encodedStream(c.name, std::string(kSource) + c.args);
    ASSERT_FALSE(in.empty());
    qtest::TempDir dir;
    const std::string out = dir.file(std::string("out") + std::strrchr(c.name, '.')), scc = dir.file("cc.scc");
    qtest::writeText(scc, kScc);
    const auto summary = mtest::runJson("stamp " + shellQuote(in) + " " + shellQuote(out) + " --tc '10:00:00;00' --captions " + shellQuote(scc));
    ASSERT_FALSE(summary.is_discarded());
    EXPECT_EQ(summary["codec"], "mpeg2");
    EXPECT_EQ(summary["output"], c.container);
    EXPECT_EQ(summary["timecodeType"], "29.97 drop-frame");
    EXPECT_EQ(summary["last"], "10:00:01;29");

    // Each GOP header holds its first picture's timecode: as far from the start as FFmpeg's
    // own (non-drop) time_codes in the input are from theirs.
    const auto theirs = oracle::allTimecodes(in, false), ours = oracle::allTimecodes(out, false);
    ASSERT_GE(theirs.size(), 4u);
    EXPECT_EQ(summary["gopHeaders"], theirs.size());
    qtest::expectGopTimecodesFollow(ours, theirs, "10:00:00;00", TC_DF2997, TC_NDF30);
    EXPECT_EQ(qtest::runCommand("ffprobe -v error -show_format " + shellQuote(out) + " | grep TAG:timecode").out, c.containerTimecode);
    EXPECT_EQ(mtest::videoFrameMd5(out), mtest::videoFrameMd5(in));
    EXPECT_EQ(mtest::audioMd5(out), mtest::audioMd5(in));

    // The pairs come back at their timecodes; the text is FFmpeg's.
    qtest::extractOk(out, dir.file("back.scc"));
    EXPECT_EQ(qtest::sccPairs(qtest::readText(dir.file("back.scc")), TC_DF2997), qtest::sccPairs(kScc, TC_DF2997));
    auto r = qtest::extractOk(out, "-");
    EXPECT_NE(r.out.find("Hello"), std::string::npos);
    EXPECT_EQ(r.out, ffmpegSrt(out));

    // Stamping the stamped file again replaces the captions rather than adding to them.
    const std::string again = dir.file(std::string("again") + std::strrchr(c.name, '.'));
    const auto second = mtest::runJson("stamp " + shellQuote(out) + " " + shellQuote(again) + " --tc '10:00:00;00' --captions " + shellQuote(scc));
    EXPECT_EQ(second["replacedCaptions"], 60);
    EXPECT_EQ(qtest::extractOk(again, "-").out, ffmpegSrt(out));
    if (std::string(c.container) != "MPEG-TS") continue;

    // FFmpeg's decoder carries the stamped MPEG-2 captions over to libx264, which writes them as
    // its own cc_data SEI (-a53cc): captions extract on that TS gives FFmpeg's text and times.
    const std::string avc = dir.file("avc.ts");
    r = qtest::runCommand("ffmpeg -v error -i " + shellQuote(out) + " -c:v libx264 -a53cc 1 -bf 2 -c:a copy -f mpegts " +
                          shellQuote(avc));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    r = qtest::extractOk(avc, "-");
    EXPECT_NE(r.out.find("Hello"), std::string::npos);
    EXPECT_EQ(r.out, ffmpegSrt(avc));
    const auto json = mtest::runJson("captions extract " + shellQuote(avc));
    EXPECT_EQ(json["codec"], "h264");
    EXPECT_EQ(json["cues"].size(), 2u);
  }
}

}  // namespace
