// The stream commands on real containers, checked against ffprobe and ffmpeg: the right answer
// or a one-line refusal, never a misread; an editing pass keeps pictures, audio and timing.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <regex>

#include "media_support.h"
#include "platform/tcxlat.h"
#include "support/edit_support.h"
#include "support/ffmpeg_oracle.h"
#include "support/test_support.h"
#include "support/tool_runs.h"

namespace {

using qtest::shellQuote;

using Containers = mtest::FfmpegTest;

int lines(const std::string& text) { return static_cast<int>(std::count(text.begin(), text.end(), '\n')); }

// Each clip: inspect, params, nal and hvcc read the video track the way ffprobe does; an editing
// pass into the same container kind changes neither pictures, audio nor timing; stamp (each codec
// in MP4, Matroska and MPEG-TS, 1 s at 25 pictures per second) writes timecodes that ffprobe reads
// back. One decode of the clip serves every comparison.
TEST_F(Containers, ReadAsFfprobeReadsAndEditedWithoutChange) {
  for (const auto& clip : mtest::kClips) {
    SCOPED_TRACE(clip.name);
    const std::string path = mtest::clipPath(clip), quoted = shellQuote(path), extension = std::strrchr(clip.name, '.');
    const int packets = mtest::videoPackets(path), width = mtest::videoWidth(path);
    const std::string pictures = mtest::videoFrameMd5(path), audio = mtest::audioMd5(path);
    auto inspect = mtest::runJson("inspect " + quoted);
    ASSERT_TRUE(inspect.is_object());
    EXPECT_EQ(inspect["container"], clip.container);
    EXPECT_EQ(inspect["codec"], clip.codec);
    EXPECT_EQ(inspect["frames"], packets);
    EXPECT_EQ(inspect["pictures"].size(), size_t(packets));
    EXPECT_EQ(inspect["parameterSets"]["summary"]["width"], width);
    // Display order is a permutation of the decode order.
    std::vector<int> displays;
    for (const auto& p : inspect["pictures"]) displays.push_back(p["display"]);
    for (size_t i = 0; i < displays.size(); ++i) EXPECT_EQ(displays[i], int(i));

    auto params = mtest::runJson("params " + quoted);
    EXPECT_EQ(params["summary"]["width"], width);
    auto nal = mtest::runJson("nal " + quoted);
    EXPECT_EQ(nal["count"], nal["units"].size());
    EXPECT_EQ(nal["count"], inspect["units"]);

    qtest::TempDir dir;
    auto hvcc = qtest::runTool("hvcc " + quoted + " -o " + shellQuote(dir.file("h.bin")));
    if (std::string(clip.codec) == "hevc") {
      EXPECT_EQ(hvcc.exitCode, 0) << hvcc.err;
    } else {
      EXPECT_EQ(hvcc.exitCode, 1);
      EXPECT_EQ(hvcc.err, "quorvane hvcc: " + path + ": an H.264 track in " + clip.container + ", not HEVC\n");
    }
    auto adts = qtest::runTool("adts --json " + quoted);
    if (std::string(clip.container) == "MPEG-TS") {  // ADTS in the transport stream: listed
      ASSERT_EQ(adts.exitCode, 0) << adts.err;
      EXPECT_EQ(nlohmann::json::parse(adts.out)["frames"].size(), size_t(mtest::audioPackets(path)));
    } else {
      EXPECT_EQ(adts.exitCode, 1);
      EXPECT_EQ(lines(adts.err), 1) << adts.err;
    }

    const std::string out = dir.file("out" + extension), stamped = dir.file("stamped" + extension);
    const auto summary = mtest::runJson("reframe " + quoted + " " + shellQuote(out));
    ASSERT_FALSE(summary.is_null());
    // The byte counts are the video track's on both sides: its samples pass unchanged.
    EXPECT_EQ(summary["inBytes"], summary["outBytes"]);
    EXPECT_EQ(mtest::videoFrameMd5(out), pictures);
    EXPECT_EQ(mtest::audioMd5(out), audio);
    EXPECT_EQ(mtest::videoPts(out), mtest::videoPts(path));
    EXPECT_EQ(mtest::runJson("inspect " + shellQuote(out))["container"], clip.container);
    if (extension == ".mov" || extension == ".mxf") continue;
    const auto stamp = mtest::runJson("stamp " + quoted + " " + shellQuote(stamped) + " --tc 01:00:00:00 --rate 25");
    ASSERT_FALSE(stamp.is_discarded());
    EXPECT_EQ(stamp["codec"], clip.codec);
    EXPECT_EQ(stamp["output"], clip.container);
    const auto timecodes = oracle::allTimecodes(stamped);
    ASSERT_EQ(timecodes.size(), 25u);
    EXPECT_EQ(timecodes.front(), "01:00:00:00");
    EXPECT_EQ(timecodes.back(), "01:00:00:24");
    EXPECT_EQ(stamp["last"], "01:00:00:24");
    EXPECT_EQ(mtest::videoFrameMd5(stamped), pictures);
    EXPECT_EQ(mtest::audioMd5(stamped), audio);
  }
}

// Into another container, or out to an elementary stream: the same pictures. An elementary stream
// into a container (timestamps from the display order) decodes the same too. Into another kind of
// container the timeline starts where ffmpeg -c copy starts it: an MPEG-TS clock that begins at
// 1.4 s does not become 1.4 s of nothing at the head of an MP4 or a Matroska file. '-' is standard
// input and output for elementary streams and MPEG-TS; the summary then goes to stderr.
TEST_F(Containers, ReframeAcrossKindsAndThroughPipes) {
  qtest::TempDir dir;
  const std::string hevcMp4 = mtest::clipPath(mtest::kClips[5]), elementary = dir.file("e.hevc");
  const std::string ts = mtest::clipPath(mtest::kClips[3]);
  qtest::runToolOk("reframe " + shellQuote(hevcMp4) + " " + shellQuote(elementary));
  auto times = [](const std::string& path) {
    return qtest::runCommand("ffprobe -v error -show_entries stream=start_time,duration:format=start_time,duration -of csv=p=0 " +
                             shellQuote(path)).out;
  };
  struct Case {
    std::string in;
    const char* out;
    bool timesAsFfmpegCopies;
  } cases[] = {{mtest::clipPath(mtest::kClips[0]), "x.ts", false}, {ts, "x.mp4", true}, {ts, "x.mkv", true},
               {mtest::clipPath(mtest::kClips[7]), "y.mp4", false}, {mtest::clipPath(mtest::kClips[0]), "x.mkv", false},
               {mtest::clipPath(mtest::kClips[0]), "x.h264", false}, {hevcMp4, "x.hevc", false},
               {mtest::clipPath(mtest::kClips[8]), "y.hevc", false}, {elementary, "e.mp4", false},
               {elementary, "e.mkv", false}, {elementary, "e.ts", false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.in + " -> " + c.out);
    const std::string out = dir.file((c.timesAsFfmpegCopies ? "ts-" : "") + std::string(c.out));
    qtest::runToolOk("reframe " + shellQuote(c.in) + " " + shellQuote(out));
    EXPECT_EQ(mtest::videoFrameMd5(out), mtest::videoFrameMd5(c.in == elementary ? hevcMp4 : c.in));
    if (!c.timesAsFfmpegCopies) continue;
    const std::string theirs = dir.file(std::string("ffmpeg-") + c.out);
    ASSERT_EQ(qtest::runCommand("ffmpeg -v error -i " + shellQuote(c.in) + " -c copy " + shellQuote(theirs)).exitCode, 0);
    EXPECT_EQ(times(out), times(theirs));
  }
  const std::string hevcTs = mtest::clipPath(mtest::kClips[8]);
  auto piped = qtest::runCommand("cat " + shellQuote(dir.file("y.hevc")) + " | " + shellQuote(QUORVANE_TOOL) +
                                 " reframe --to length - - | " + shellQuote(QUORVANE_TOOL) + " reframe --to annexb - - > " +
                                 shellQuote(dir.file("piped.hevc")));
  ASSERT_EQ(piped.exitCode, 0) << piped.err;
  EXPECT_EQ(lines(piped.err), 2) << "one summary line per reframe, on stderr";
  EXPECT_EQ(mtest::videoFrameMd5(dir.file("piped.hevc")), mtest::videoFrameMd5(hevcTs));
  auto tsOut = qtest::runCommand(shellQuote(QUORVANE_TOOL) + " reframe " + shellQuote(hevcTs) + " - > " + shellQuote(dir.file("c.ts")));
  ASSERT_EQ(tsOut.exitCode, 0) << tsOut.err;
  EXPECT_EQ(mtest::audioMd5(dir.file("c.ts")), mtest::audioMd5(hevcTs));
}

// What cannot be done is said in one line that names what was found and what would work.
TEST_F(Containers, RefusalsSayWhatWasFound) {
  qtest::TempDir dir;
  const std::string h264 = mtest::clipPath(mtest::kClips[0]), hevc = mtest::clipPath(mtest::kClips[5]);
  const std::string twoVideo = dir.file("two.ts"), vp9 = dir.file("vp9.mkv"), audio = dir.file("a.m4a");
  qtest::runCommand("ffmpeg -v error -i " + shellQuote(h264) + " -i " + shellQuote(hevc) +
                    " -map 0:v -map 1:v -map 0:a -c copy " + shellQuote(twoVideo));
  qtest::runCommand("ffmpeg -v error -f lavfi -i testsrc2=size=64x64:rate=5 -t 1 -c:v libvpx-vp9 " + shellQuote(vp9));
  qtest::runCommand("ffmpeg -v error -i " + shellQuote(h264) + " -vn -c copy " + shellQuote(audio));
  const std::string mp2 = dir.file("mp2.ts");
  qtest::runCommand("ffmpeg -v error -f lavfi -i testsrc2=size=64x64:rate=25 -f lavfi -i sine=r=44100 -t 0.2 -c:v mpeg2video "
                    "-c:a mp2 " + shellQuote(mp2));
  qtest::runCommand("cp " + shellQuote(h264) + " " + shellQuote(dir.file("exists.mp4")));
  qtest::runCommand("ln " + shellQuote(dir.file("exists.mp4")) + " " + shellQuote(dir.file("link.mp4")));
  struct Case {
    std::string args, message;
  } cases[] = {
      {"inspect " + twoVideo, twoVideo + ": MPEG-TS with 2 video tracks: choose one with --track (0: h264, 1: hevc, 2: aac)"},
      {"params --track 2 " + twoVideo, twoVideo + ": MPEG-TS track 2 is not an H.264, HEVC or MPEG-2 video track (tracks: 0: h264, 1: hevc, 2: aac)"},
      {"nal " + vp9, vp9 + ": Matroska with no H.264, HEVC or MPEG-2 video track (found: 0: vp9)"},
      {"inspect " + audio, audio + ": MP4 with no H.264, HEVC or MPEG-2 video track (found: 0: aac)"},
      {"reframe " + hevc + " " + dir.file("o.mxf"), "MXF cannot carry HEVC video: write OUT as .mp4, .mov, .mkv or .ts"},
      {"reframe " + mp2 + " " + dir.file("o.mxf"), "MXF cannot carry these tracks (mpeg2video, mp2 44100 Hz): write OUT as .mp4, .mkv or .ts"},
      {"reframe " + h264 + " " + dir.file("exists.mp4"), dir.file("exists.mp4") + " exists: give -y (--force) to replace it"},
      {"reframe -y " + dir.file("exists.mp4") + " " + dir.file("link.mp4"),
       dir.file("link.mp4") + " is the input file " + dir.file("exists.mp4") + ": choose another OUT"},
      {"reframe " + h264 + " -", "MP4 cannot be written to standard output (elementary streams, MPEG-TS and Matroska can): give OUT a file name"},
      {"reframe --to length " + h264 + " " + dir.file("o.mp4"), "--to chooses the framing of an elementary-stream OUT; MP4 OUT keeps the container's framing"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args);
    auto r = qtest::runTool(c.args);
    const std::string command = c.args.substr(0, c.args.find(' '));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "quorvane " + command + ": " + c.message + "\n");
  }
  auto twoOk = mtest::runJson("inspect --track 1 " + twoVideo);
  EXPECT_EQ(twoOk["codec"], "hevc");
  EXPECT_EQ(qtest::readBytes(dir.file("exists.mp4")), qtest::readBytes(h264)) << "a refused OUT is left alone";
}

// Damaged containers: cut short, or bytes flipped all over: the answer, or one line, never a crash
// (the sanitizers watch) and never a partial OUT.
TEST_F(Containers, DamagedFilesGiveAnAnswerOrOneLine) {
  qtest::TempDir dir;
  std::mt19937 random(5);
  for (size_t index : {0, 2, 3, 4, 5, 8}) {  // each container kind once, each codec's MP4 and TS
    const mtest::Clip& clip = mtest::kClips[index];
    SCOPED_TRACE(clip.name);
    const auto bytes = qtest::readBytes(mtest::clipPath(clip));
    auto cut = bytes;
    cut.resize(bytes.size() / 3);
    auto flipped = bytes;
    for (int i = 0; i < 200; ++i) flipped[1024 + random() % (flipped.size() - 1024)] = uint8_t(random());
    for (const auto& [name, content] : {std::pair{"cut", cut}, std::pair{"flipped", flipped}}) {
      const std::string in = dir.file(std::string(name) + std::strrchr(clip.name, '.'));
      const std::string out = dir.file(std::string("out-") + name + std::strrchr(clip.name, '.'));
      qtest::writeBytes(in, content);
      for (const std::string command : {"inspect", "nal", "params", "reframe"}) {
        auto r = qtest::runTool(command + " " + shellQuote(in) + (command == "reframe" ? " " + shellQuote(out) : ""));
        EXPECT_TRUE(r.exitCode == 0 || (r.exitCode == 1 && lines(r.err) == 1)) << command << " " << name << ": " << r.err;
        if (command == "reframe" && r.exitCode != 0) {
          EXPECT_TRUE(qtest::readBytes(out).empty()) << "no partial OUT";
        }
      }
      std::remove(out.c_str());
    }
  }
}

std::string firstVideoPacketFlags(const std::string& path) {
  return qtest::runCommand("ffprobe -v error -select_streams v:0 -read_intervals %+#1 -show_entries packet=flags -of csv=p=0 " +
                           shellQuote(path)).out;
}

// Containers cut in front of a keyframe (ffmpeg -ss ... -c copy -copyinkf): the first packets are
// B-frames whose references were cut away, and a Matroska track gives them no dts. An editing
// pass keeps every packet, the pictures ffmpeg can decode, and the audio.
TEST_F(Containers, CutBeforeAKeyframeReframeAndStampKeepEveryPacket) {
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

std::string ffprobeStream(const std::string& path, const std::string& entry) {
  auto r = qtest::runCommand("ffprobe -v error -select_streams v:0 -show_entries stream=" + entry +
                             " -of default=nw=1:nk=1 " + shellQuote(path));
  return r.out.substr(0, r.out.find('\n'));
}

// H.264 in MXF: libavformat's MXF reader makes up AVC-Intra parameter sets (High 4:2:2, 10-bit)
// for a 1920x1080 interlaced track, although the stream carries its own. The commands must
// describe and pass on the stream's own, as ffprobe reads them from the elementary stream.
TEST_F(Containers, MxfTheStreamsOwnParameterSetsAreDescribedAndPassedOn) {
  const std::string es = qtest::encodedStream(
      "mxf-1080i.264", "-f lavfi -i testsrc2=size=1920x1080:rate=25 -frames:v 4 -c:v libx264 -preset ultrafast "
                       "-flags +ildct+ilme -f h264");
  qtest::TempDir dir;
  const std::string mxf = dir.file("in.mxf");
  ASSERT_EQ(qtest::runCommand("ffmpeg -v error -i " + shellQuote(es) + " -c copy " + shellQuote(mxf)).exitCode, 0);
  const auto params = mtest::runJson("params " + shellQuote(mxf));
  ASSERT_FALSE(params.is_null());
  EXPECT_EQ(params.at("summary").at("profile"), ffprobeStream(es, "profile"));
  EXPECT_EQ(params.at("summary").at("chromaFormat"), "4:2:0");
  EXPECT_EQ(params.at("summary").at("bitDepthLuma"), 8);
  const auto inspect = mtest::runJson("inspect " + shellQuote(mxf));
  ASSERT_FALSE(inspect.is_null());
  EXPECT_EQ(inspect.at("parameterSets").at("sps"), 1);
  // An MP4 made from it carries the stream's SPS in its avcC, for reframe and stamp alike: the
  // record read back equals the one made from the elementary stream.
  auto record = [&](const std::string& path, const std::string& name) {
    const std::string box = dir.file(name);
    EXPECT_EQ(qtest::runTool("avcc " + shellQuote(path) + " -o " + shellQuote(box)).exitCode, 0);
    return mtest::runJson("avcc --read " + shellQuote(box)).at("record");
  };
  const auto esRecord = record(es, "es.avcc");
  for (const char* command : {"reframe", "stamp"}) {
    SCOPED_TRACE(command);
    const std::string mp4 = dir.file(std::string(command) + ".mp4");
    qtest::runToolOk(std::string(command) + " " + shellQuote(mxf) + " " + shellQuote(mp4) +
                     (std::string(command) == "stamp" ? " --tc 01:00:00:00" : ""));
    EXPECT_EQ(ffprobeStream(mp4, "profile"), ffprobeStream(es, "profile"));
    EXPECT_EQ(ffprobeStream(mp4, "pix_fmt"), ffprobeStream(es, "pix_fmt"));
    EXPECT_EQ(mtest::videoFrameMd5(mp4), mtest::videoFrameMd5(mxf));
    if (std::string(command) == "reframe") {
      EXPECT_EQ(record(mp4, "mp4.avcc"), esRecord);  // stamp rewrites the SPS for pic_struct
    }
  }
}

// An MP4/MOV whose moov box follows the media data needs a seek back that a pipe cannot do once
// the media outgrows libavformat's buffer: inspect from standard input then says so in one line
// and names what works. A small such file and a faststart one (moov first) still read from the
// pipe as from their names.
qtest::CommandResult inspectPiped(const std::string& path) {
  return qtest::runCommand("cat " + shellQuote(path) + " | " + shellQuote(QUORVANE_TOOL) + " inspect --json -");
}

// 30 lossless 320x240 pictures: some 150 KB of media in front of a moov that ffmpeg writes last
// unless told otherwise.
const std::string kLarge = "-f lavfi -i testsrc2=size=320x240:rate=25 -frames:v 30 -c:v libx264 -qp 0 ";
const std::string kSmall = "-f lavfi -i testsrc2=size=64x64:rate=25 -frames:v 30 -c:v libx264 ";

TEST(PipeMp4, MoovAfterTheMediaIsRefusedUnlessSmallOrFaststart) {
  if (!qtest::haveProgram("ffmpeg")) GTEST_SKIP() << "ffmpeg missing";
  struct Case {
    std::string name, args;
    bool refused;
  };
  const Case cases[] = {{"pipe_large_moov_last.mp4", kLarge + "-f mp4", true},
                        {"pipe_large_moov_last.mov", kLarge + "-f mov", true},
                        {"pipe_large_faststart.mp4", kLarge + "-movflags +faststart -f mp4", false},
                        {"pipe_small_moov_last.mp4", kSmall + "-f mp4", false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = qtest::encodedStream(c.name, c.args);
    ASSERT_FALSE(path.empty());
    const auto piped = inspectPiped(path);
    const auto named = qtest::runTool("inspect --json " + shellQuote(path));
    ASSERT_EQ(named.exitCode, 0) << named.err;  // by its name it reads
    if (c.refused) {
      EXPECT_EQ(piped.exitCode, 1);
      EXPECT_EQ(piped.err,
                "quorvane inspect: -: an MP4/MOV file with its moov box after the media data cannot be read from a "
                "pipe; give the file name, or remux it: ffmpeg -i IN -c copy -movflags +faststart OUT\n");
      continue;
    }
    ASSERT_EQ(piped.exitCode, 0) << piped.err;
    auto a = nlohmann::json::parse(piped.out), b = nlohmann::json::parse(named.out);
    EXPECT_EQ(a.at("frames"), 30);
    a.erase("file"), b.erase("file");
    EXPECT_EQ(a, b);
  }
}

// MPEG-2 video in MPEG-TS (AAC) and MXF (PCM) made by ffmpeg, through stamp and captions
// extract: ffprobe reads the stamped GOP timecodes, the decoded pictures and the audio bits stay
// the same, the caption pairs come back at their timecodes, and the decoded text equals FFmpeg's
// subcc text; captions extract reads H.264 captions that FFmpeg's own writer (-a53cc) put in a TS.
constexpr const char* kMpeg2Source =
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

TEST_F(Containers, Mpeg2StampAndCaptionsRoundTrip) {
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
    const std::string in = qtest::encodedStream(c.name, std::string(kMpeg2Source) + c.args);
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
