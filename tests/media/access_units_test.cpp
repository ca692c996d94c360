// The library's access-unit API (streamutil/access_units.h) on real x264/x265 streams: the cut
// agrees with ffmpeg's packets and the display order with the order ffmpeg's decoder outputs
// the pictures in; hostile input is refused or cut without harm. The commands built on it number
// and list the pictures a decoder shows of an open-GOP HEVC stream cut at a CRA.
#include "streamutil/access_units.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "media_support.h"
#include "support/ffmpeg_oracle.h"
#include "support/test_support.h"
#include "support/tool_runs.h"

namespace {

struct Cut {
  std::vector<uint64_t> offsets;        // access units, decode order
  std::vector<int32_t> pocs;            // pictures, decode order
  std::vector<uint64_t> displayToDecode;
  int errors = 0;
};

// Feeds every unit of an Annex B stream to the cutter and the pictures to the display order.
Cut cutStream(const std::vector<uint8_t>& s, int32_t codec) {
  Cut cut;
  KLXUTIL_AU_CUTTER cutter;
  KLXUTIL_DISPLAY_ORDER order;
  EXPECT_EQ(klxutilAuCutterInit(&cutter, codec), 0);
  klxutilDisplayOrderInit(&order);
  auto place = [&](const KLXUTIL_AU_PICTURE& p, int32_t flush) {
    if (p.hasPicture) {
      EXPECT_EQ(klxutilDisplayOrderAdd(&order, p.decodeIndex, p.sequence, p.poc), 0);
      cut.pocs.push_back(p.poc);
    }
    uint64_t decode = 0, display = 0;
    while (klxutilDisplayOrderNext(&order, flush, &decode, &display) == 1) {
      EXPECT_EQ(display, cut.displayToDecode.size());
      cut.displayToDecode.push_back(decode);
    }
  };
  qtest::forEachAnnexBUnit(s, [&](size_t at, const uint8_t* unit, uint32_t size) {
    KLXUTIL_AU_UNIT info;
    cut.errors += klxutilAuCutterPush(&cutter, unit, size, &info) != 0;
    if (info.opensAccessUnit) cut.offsets.push_back(at);
    if (info.finishedValid) place(info.finished, 0);
  });
  place(cutter.current, 0);
  KLXUTIL_AU_PICTURE none{};
  place(none, 1);
  return cut;
}

std::vector<uint64_t> numbers(const std::string& text) {
  std::vector<uint64_t> out;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line))
    if (!line.empty() && isdigit(static_cast<unsigned char>(line[0]))) out.push_back(std::stoull(line));
  return out;
}

// The cut and the display order against ffprobe's packets and the order of its decoded frames.
// Where a row says so, the POCs too: a frame whose bottom field comes first has the bottom
// field's POC (ITU-T H.264 8.2.1: Min(TopFieldOrderCnt, BottomFieldOrderCnt)), from
// pic_order_cnt_lsb and delta_pic_order_cnt_bottom as trace_headers reads them (one slice per
// picture, and the stream is too short to wrap). On every H.264 stream, parameter sets taught
// from an avcC-style side channel let the slices of a sample be ordered, and without them each
// picture's first slice (the one read for the picture) is reported.
TEST(AccessUnitApi, CutAndDisplayOrderAgreeWithFfmpeg) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffmpeg not installed";
  struct Case {
    const char* name;
    const char* args;
    int32_t codec;
    bool pocsFromTrace;
  } cases[] = {
      {"au_x264_bpyramid.h264", "-frames:v 40 -c:v libx264 -bf 3 -b_strategy 2 -g 20 -f h264", KLXUTIL_AU_H264, false},
      {"au_x264_slices.h264", "-frames:v 40 -c:v libx264 -bf 2 -x264-params slices=3:aud=1 -g 9 -f h264", KLXUTIL_AU_H264, false},
      {"au_x264_bff.h264", "-frames:v 10 -c:v libx264 -bf 2 -flags +ildct+ilme -x264-params bff=1 -f h264", KLXUTIL_AU_H264, true},
      {"au_x265_pyramid.hevc", "-frames:v 40 -c:v libx265 -x265-params log-level=error:bframes=4:b-pyramid=1:keyint=16 -f hevc", KLXUTIL_AU_HEVC, false},
      {"au_x265_slices.hevc", "-frames:v 40 -c:v libx265 -x265-params log-level=error:slices=2:aud=1:keyint=8 -f hevc", KLXUTIL_AU_HEVC, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path =
        qtest::encodedStream(c.name, std::string("-f lavfi -i testsrc2=size=192x108:rate=25 ") + c.args);
    const auto bytes = qtest::readBytes(path);
    const Cut cut = cutStream(bytes, c.codec);
    EXPECT_EQ(cut.errors, 0);
    const auto packets = numbers(qtest::runCommand("ffprobe -v error -show_entries packet=pos -of csv=p=0 " + qtest::shellQuote(path)).out);
    const auto frames = numbers(qtest::runCommand("ffprobe -v error -show_entries frame=pkt_pos -of csv=p=0 " + qtest::shellQuote(path)).out);
    ASSERT_EQ(cut.offsets.size(), packets.size());
    ASSERT_EQ(cut.displayToDecode.size(), frames.size());
    // ffmpeg's positions point into the start code of the access unit's first unit.
    auto decodeIndexAt = [&](uint64_t pos) {
      for (size_t i = 0; i < cut.offsets.size(); ++i)
        if (pos >= cut.offsets[i] && pos < cut.offsets[i] + 4) return i;
      return cut.offsets.size();
    };
    for (size_t i = 0; i < packets.size(); ++i) EXPECT_EQ(decodeIndexAt(packets[i]), i) << "packet " << i;
    for (size_t d = 0; d < frames.size(); ++d) EXPECT_EQ(cut.displayToDecode[d], decodeIndexAt(frames[d])) << "display " << d;
    if (c.pocsFromTrace) {
      std::vector<int32_t> traced;
      for (const auto& line : oracle::traceHeaderLines(path)) {
        if (line.name == "pic_order_cnt_lsb") traced.push_back(int32_t(line.value));
        if (line.name == "delta_pic_order_cnt_bottom") traced.back() += std::min<int32_t>(0, int32_t(line.value));
      }
      EXPECT_EQ(cut.pocs, traced);
    }
    if (c.codec != KLXUTIL_AU_H264) continue;
    KLXUTIL_AU_CUTTER withSets, without;
    klxutilAuCutterInit(&withSets, KLXUTIL_AU_H264);
    klxutilAuCutterInit(&without, KLXUTIL_AU_H264);
    int slicesWith = 0, failuresWith = 0, failuresWithout = 0;
    qtest::forEachAnnexBUnit(bytes, [&](size_t, const uint8_t* unit, uint32_t size) {
      const int type = unit[0] & 0x1F;
      KLXUTIL_AU_UNIT info;
      if (type == 7 || type == 8) {
        EXPECT_EQ(klxutilAuCutterLearn(&withSets, unit, size), 0);
        return;  // the sample chain holds no parameter sets
      }
      failuresWith += klxutilAuCutterPush(&withSets, unit, size, &info) != 0;
      slicesWith += info.isSlice;
      failuresWithout += klxutilAuCutterPush(&without, unit, size, &info) != 0;
    });
    EXPECT_GT(slicesWith, 0);
    EXPECT_EQ(failuresWith, 0);
    EXPECT_EQ(failuresWithout, int(cut.pocs.size())) << "a picture without its parameter sets is reported";
  }
}

// Random bytes and absurd parameter sets: a result code, never a crash or an overrun (the
// sanitizers watch), and the display order stays a permutation.
TEST(AccessUnitApi, HostileUnitsAreHarmless) {
  std::mt19937 random(11);
  for (int32_t codec : {KLXUTIL_AU_H264, KLXUTIL_AU_HEVC, KLXUTIL_AU_MPEG2}) {
    KLXUTIL_AU_CUTTER cutter;
    klxutilAuCutterInit(&cutter, codec);
    KLXUTIL_DISPLAY_ORDER order;
    klxutilDisplayOrderInit(&order);
    uint64_t added = 0, released = 0, decode = 0, display = 0;
    for (int i = 0; i < 4000; ++i) {
      std::vector<uint8_t> unit(1 + random() % 40);
      for (auto& b : unit) b = uint8_t(random());
      KLXUTIL_AU_UNIT info;
      const int rc = klxutilAuCutterPush(&cutter, unit.data(), uint32_t(unit.size()), &info);
      EXPECT_TRUE(rc == 0 || rc == -1);
      if (info.finishedValid && info.finished.hasPicture) {
        ASSERT_EQ(klxutilDisplayOrderAdd(&order, info.finished.decodeIndex, info.finished.sequence, info.finished.poc), 0);
        ++added;
      }
      while (klxutilDisplayOrderNext(&order, 0, &decode, &display) == 1) EXPECT_EQ(display, released++);
    }
    while (klxutilDisplayOrderNext(&order, 1, &decode, &display) == 1) EXPECT_EQ(display, released++);
    EXPECT_EQ(released, added);
  }
  KLXUTIL_AU_UNIT info;
  KLXUTIL_AU_CUTTER cutter;
  const uint8_t unit[1] = {0x67};
  EXPECT_EQ(klxutilAuCutterInit(&cutter, 7), -1);
  EXPECT_EQ(klxutilAuCutterInit(nullptr, KLXUTIL_AU_H264), -1);
  klxutilAuCutterInit(&cutter, KLXUTIL_AU_H264);
  EXPECT_EQ(klxutilAuCutterPush(&cutter, unit, 0, &info), -1);
  EXPECT_EQ(klxutilAuCutterPush(&cutter, nullptr, 1, &info), -1);
  EXPECT_EQ(klxutilAuCutterLearn(&cutter, unit, 1), -1);
}

using qtest::shellQuote;
using Bytes = std::vector<uint8_t>;
using HevcCraStart = mtest::FfmpegTest;

// Open-GOP HEVC cut at a CRA picture, alone or spliced behind an end of sequence unit: the CRA
// starts a coded video sequence and its RASL pictures are not output (ITU-T H.265 8.1.3), so
// the first picture shown is the CRA. ffmpeg's decoder, the oracle, shows the timecodes that
// stamp wrote in the order it outputs the pictures.
TEST_F(HevcCraStart, StampNumbersThePicturesADecoderShows) {
  const std::string whole = qtest::encodedStream(
      "cra_open_gop.hevc", "-f lavfi -i testsrc2=size=160x96:rate=25 -frames:v 30 -c:v libx265 -x265-params "
                           "log-level=error:bframes=4:b-pyramid=1:open-gop=1:keyint=12:min-keyint=12:aud=1 -f hevc");
  const Bytes stream = qtest::readBytes(whole);
  // x265 aud=1 puts an access unit delimiter (type 35) in front of every access unit: the first
  // CRA (type 21, with RASL pictures) after the stream's start is cut at its delimiter.
  size_t cra = 0, delimiter = 0;
  qtest::forEachAnnexBUnit(stream, [&](size_t at, const uint8_t* unit, uint32_t) {
    const int type = (unit[0] >> 1) & 0x3F;
    if (type == 35) delimiter = at;
    if (type == 21 && !cra && delimiter > 0) cra = delimiter;
  });
  ASSERT_GT(cra, 0u);
  const Bytes tail(stream.begin() + static_cast<long>(cra), stream.end());
  Bytes spliced = stream;
  for (uint8_t b : {0, 0, 0, 1, 0x48, 0x01}) spliced.push_back(b);  // end of sequence unit (type 36)
  spliced.insert(spliced.end(), tail.begin(), tail.end());

  for (const auto& [name, bytes] : {std::pair{"cut.hevc", tail}, {"spliced.hevc", spliced}}) {
    SCOPED_TRACE(name);
    qtest::TempDir dir;
    const std::string in = dir.file(name), out = dir.file(std::string("stamped_") + name);
    qtest::writeBytes(in, bytes);
    qtest::stampOk(in, out, "--tc 01:00:00:00 --rate 25");
    const auto shown = oracle::allTimecodes(out);
    ASSERT_FALSE(shown.empty());
    for (size_t i = 1; i < shown.size(); ++i) EXPECT_LT(shown[i - 1], shown[i]) << "picture " << i;
    if (std::string(name) == "cut.hevc") {
      EXPECT_EQ(shown.front(), "01:00:00:00");
      // inspect lists the pictures a decoder shows.
      EXPECT_EQ(mtest::runJson("inspect " + shellQuote(in))["pictures"].size(), shown.size());
    }
  }
}

}  // namespace
