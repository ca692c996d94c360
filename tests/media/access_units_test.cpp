// The library's access-unit API (streamutil/access_units.h) on real x264/x265 streams: the cut
// agrees with ffmpeg's packets and the display order with the order ffmpeg's decoder outputs
// the pictures in; hostile input is refused or cut without harm. The commands built on it number
// and list the pictures a decoder shows of an open-GOP HEVC stream cut at a CRA.
// Field pictures: the display order counts the fields the pictures show, the cutter says which
// pictures are fields (H.264 field_pic_flag, MPEG-2 picture_structure), and `stamp` gives both
// fields of a frame that frame's timecode while frame pictures get one each.
#include "streamutil/access_units.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <tuple>
#include <vector>

#include "media_support.h"
#include "platform/tcxlat.h"
#include "support/edit_support.h"
#include "support/ffmpeg_oracle.h"
#include "support/paff_stream.h"
#include "support/test_support.h"
#include "support/tool_runs.h"

namespace {

using qtest::shellQuote;

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

// Against a model: pictures sorted by (sequence, poc, decode order) show their fields one
// after another, so a picture's displayField is the sum of the fields shown before it.
TEST(DisplayOrderFields, CountsTheFieldsShownBeforeEachPicture) {
  std::mt19937 random(5);
  for (int run = 0; run < 200; ++run) {
    struct Picture {
      uint64_t decode;
      uint32_t sequence;
      int32_t poc;
      uint32_t fields;
    };
    std::vector<Picture> pictures;
    uint32_t sequence = 0;
    const uint64_t count = 1 + random() % 60;
    for (uint64_t d = 0; d < count; ++d) {
      if (random() % 10 == 0) ++sequence;
      // POCs within a sequence reorder by at most a few pictures, as encoders keep them.
      const int32_t poc = int32_t(2 * d) + int32_t(random() % 7) - 3;
      pictures.push_back({d, sequence, poc, 1 + uint32_t(random() % 2)});
    }
    KLXUTIL_DISPLAY_ORDER order;
    klxutilDisplayOrderInit(&order);
    std::vector<std::tuple<uint64_t, uint64_t, uint64_t>> released;  // decode, display, field
    auto take = [&](int32_t flush) {
      uint64_t decode = 0, display = 0, field = 0;
      while (klxutilDisplayOrderNextField(&order, flush, &decode, &display, &field) == 1) released.emplace_back(decode, display, field);
    };
    for (const Picture& p : pictures) {
      ASSERT_EQ(klxutilDisplayOrderAddFields(&order, p.decode, p.sequence, p.poc, p.fields), 0);
      take(0);
    }
    take(1);
    // The window releases in model order only when reordering stays inside it, which the POC
    // spread above guarantees.
    std::vector<Picture> model = pictures;
    std::stable_sort(model.begin(), model.end(), [](const Picture& a, const Picture& b) {
      return std::tie(a.sequence, a.poc) < std::tie(b.sequence, b.poc);
    });
    ASSERT_EQ(released.size(), model.size());
    uint64_t fields = 0;
    for (size_t i = 0; i < model.size(); ++i) {
      EXPECT_EQ(std::get<0>(released[i]), model[i].decode) << "run " << run << " display " << i;
      EXPECT_EQ(std::get<1>(released[i]), i);
      EXPECT_EQ(std::get<2>(released[i]), fields);
      fields += model[i].fields;
    }
  }
}

TEST(DisplayOrderFields, RefusesOtherFieldCountsAndNullArguments) {
  KLXUTIL_DISPLAY_ORDER order;
  klxutilDisplayOrderInit(&order);
  EXPECT_EQ(klxutilDisplayOrderAddFields(&order, 0, 0, 0, 0), -1);
  EXPECT_EQ(klxutilDisplayOrderAddFields(&order, 0, 0, 0, 3), -1);
  EXPECT_EQ(klxutilDisplayOrderAddFields(nullptr, 0, 0, 0, 1), -1);
  ASSERT_EQ(klxutilDisplayOrderAdd(&order, 0, 0, 0), 0);  // a frame: two fields
  uint64_t decode = 0, display = 0, field = 7;
  EXPECT_EQ(klxutilDisplayOrderNextField(&order, 1, &decode, &display, nullptr), -1);
  ASSERT_EQ(klxutilDisplayOrderNextField(&order, 1, &decode, &display, &field), 1);
  EXPECT_EQ(field, 0u);
  EXPECT_EQ(order.nextDisplayField, 2u);
}

// MPEG-2 (ISO/IEC 13818-2 6.2.3.1): picture_structure in the picture coding extension says
// whether a picture is a frame or one field; without the extension (MPEG-1) it is not known.
TEST(CutterFields, Mpeg2PictureStructureMarksFieldPictures) {
  struct Case {
    int structure;  // -1: no picture coding extension
    int32_t fieldPicture;
  };
  const Case cases[] = {{3, 0}, {1, 1}, {2, 1}, {0, -1}, {-1, -1}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.structure);
    KLXUTIL_AU_CUTTER cutter;
    klxutilAuCutterInit(&cutter, KLXUTIL_AU_MPEG2);
    // Units from their start code value: picture header, coding extension, one slice; then
    // the next picture header closes the access unit.
    const uint8_t picture[] = {0x00, 0x00, 0x0F, 0xFF, 0xF8};
    const uint8_t extension[] = {0xB5, 0x8F, 0xFF, uint8_t(0xF0 | (c.structure & 3)), 0x80};
    const uint8_t slice[] = {0x01, 0x0A, 0x00};
    KLXUTIL_AU_UNIT info;
    klxutilAuCutterPush(&cutter, picture, sizeof picture, &info);
    if (c.structure >= 0) klxutilAuCutterPush(&cutter, extension, sizeof extension, &info);
    klxutilAuCutterPush(&cutter, slice, sizeof slice, &info);
    klxutilAuCutterPush(&cutter, picture, sizeof picture, &info);
    ASSERT_TRUE(info.finishedValid);
    EXPECT_EQ(info.finished.hasPicture, 1);
    EXPECT_EQ(info.finished.fieldPicture, c.fieldPicture);
  }
}

// The cutter on a stream of frame pictures and field pairs: each field is an access unit of its
// own (field_pic_flag read from the slice header), and joining the two fields of a pair, as a
// host does for a container sample holding both, leaves one frame per pattern letter.
TEST(CutterFields, FieldPairsJoinIntoTheirFrames) {
  if (!qtest::haveProgram("ffmpeg")) GTEST_SKIP() << "ffmpeg missing";
  const std::string pattern = "PFFPP";
  const auto s = qtest::readBytes(qtest::paffStream("paff-" + pattern + "-25.264", pattern, 25));
  ASSERT_FALSE(s.empty());
  KLXUTIL_AU_CUTTER cutter;
  klxutilAuCutterInit(&cutter, KLXUTIL_AU_H264);
  std::vector<KLXUTIL_AU_PICTURE> pictures;
  qtest::forEachAnnexBUnit(s, [&](size_t, const uint8_t* unit, uint32_t size) {
    KLXUTIL_AU_UNIT info;
    ASSERT_EQ(klxutilAuCutterPush(&cutter, unit, size, &info), 0);
    if (info.finishedValid) pictures.push_back(info.finished);
  });
  pictures.push_back(cutter.current);
  std::string fields, joined;
  for (const auto& p : pictures) fields += p.fieldPicture == 1 ? 'f' : 'F';
  EXPECT_EQ(fields, "ffFFffff");
  for (size_t i = 0; i < pictures.size(); ++i) {
    KLXUTIL_AU_PICTURE picture = pictures[i];
    const bool pair = i + 1 < pictures.size() && klxutilAuJoinFieldPair(&picture, &pictures[i + 1]) == 1;
    EXPECT_EQ(picture.poc, pictures[i].poc);  // the frame shows where its first field does
    joined += pair ? 'P' : 'F';
    i += pair ? 1 : 0;
    EXPECT_EQ(picture.fieldPicture, 0);
    EXPECT_EQ(picture.randomAccess, 1);
  }
  EXPECT_EQ(joined, pattern);
  KLXUTIL_AU_PICTURE frame = pictures[2];
  EXPECT_EQ(klxutilAuJoinFieldPair(&frame, &pictures[3]), 0) << "two frame pictures";
  EXPECT_EQ(klxutilAuJoinFieldPair(nullptr, &frame), -1);
}

// Streams mixing frame pictures and pairs of field pictures (H.264 PAFF), stamped as elementary
// streams and in the containers FFmpeg puts them in (a packet per field): FFmpeg must read one
// timecode per frame, counting on by one from --tc, with both fields of a pair showing their
// frame's, and the pictures must decode unchanged. (At 30 frames FFmpeg guesses a frame rate
// above 30 for such streams and prints every frame count doubled, so the rows run at 25.)
TEST(StampFields, AFieldPairSharesItsFrameTimecode) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffmpeg missing";
  struct Case {
    const char* pattern;
    const char* rate;  // --rate, "" for the VUI timing
    const char* start;
    const char* carrier;  // "264" elementary stream, else the container FFmpeg copies it into
  };
  const Case cases[] = {
      {"PFFPP", "", "00:00:59:23", "264"},
      {"PPPPP", "--rate 25", "09:59:59:22", "264"},
      {"FPPFP", "", "10:00:00:00", "mkv"},
      {"PFFPP", "", "00:00:59:23", "ts"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.pattern) + " in " + c.carrier);
    qtest::TempDir dir;
    std::string in = qtest::paffStream("paff-" + std::string(c.pattern) + "-25.264", c.pattern, 25);
    ASSERT_FALSE(in.empty());
    if (std::string(c.carrier) != "264") {
      const std::string remuxed = dir.file(std::string("in.") + c.carrier);
      ASSERT_EQ(qtest::runCommand("ffmpeg -nostdin -v error -i " + shellQuote(in) + " -c copy " + shellQuote(remuxed)).exitCode, 0);
      in = remuxed;
    }
    // One timecode or more per frame FFmpeg decodes, the pictures unchanged.
    qtest::expectStampCountsOn(in, dir.file(std::string("out.") + c.carrier), c.start, TC_PAL, c.rate, 0);
  }
}

// A caption pair goes into the first field of its frame and comes back at that frame's timecode:
// H.264 field pairs, and an x265 field stream whose VUI rate (12.5 frames per second) is no
// timecode rate, so that both the stamp and the extractor count its timecodes at 25.
TEST(CaptionsFields, PairsComeBackAtTheirFrameTimecodes) {
  if (!qtest::haveProgram("ffmpeg")) GTEST_SKIP() << "ffmpeg missing";
  qtest::TempDir dir;
  const std::string scc = "Scenarist_SCC V1.0\n\n00:59:59:22\t9420\n\n00:59:59:24\t94ae 94ae 942f\n";
  qtest::writeText(dir.file("in.scc"), scc);
  struct Case {
    std::string in, out, start, back;
  };
  // The pairs at 22 and 24 (frame 23 carries none), each frame's pair in its first field only:
  // the extractor starts a line wherever a frame without data interrupts the pairs. The x265
  // stream ends at 24, so only the first pair of that line goes in.
  const Case cases[] = {
      {qtest::paffStream("paff-PPFPPP-25.264", "PPFPPP", 25), "out.264", "00:59:59:21", scc},
      {qtest::encodedStream("fieldseq-1.hevc", "-f lavfi -i testsrc2=size=320x240:rate=25 -frames:v 10 -c:v libx265 "
                                               "-x265-params log-level=error:interlace=tff:field=1 -f hevc"),
       "out.hevc", "00:59:59:20", "Scenarist_SCC V1.0\n\n00:59:59:22\t9420\n\n00:59:59:24\t94ae\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.in);
    ASSERT_FALSE(c.in.empty());
    qtest::stampOk(c.in, dir.file(c.out), "--tc " + c.start + " --captions " + shellQuote(dir.file("in.scc")));
    qtest::runToolOk("captions extract -y " + shellQuote(dir.file(c.out)) + " -o " + shellQuote(dir.file("out.scc")));
    EXPECT_EQ(qtest::readText(dir.file("out.scc")), c.back);
  }
}

// inspect counts access units and frames apart. ffprobe counts the pictures FFmpeg puts out: a
// frame for each H.264 field pair (also in MPEG-TS, where each field has a packet of its own),
// but a picture for each HEVC field (field_seq_flag in the SPS's VUI, which trace_headers shows),
// so an HEVC field stream holds half as many frames as ffprobe counts.
TEST(InspectFields, AFieldPairIsOneFrame) {
  if (!qtest::haveProgram("ffprobe")) GTEST_SKIP() << "ffmpeg missing";
  qtest::TempDir dir;
  const std::string paff = qtest::paffStream("paff-PPFPPF-25.264", "PPFPPF", 25);
  const std::string ts = dir.file("in.ts");
  ASSERT_EQ(qtest::runCommand("ffmpeg -nostdin -v error -i " + shellQuote(paff) + " -c copy " + shellQuote(ts)).exitCode, 0);
  const std::string x265 = "-f lavfi -i testsrc2=size=320x240:rate=25 -frames:v 10 -c:v libx265 -x265-params log-level=error:";
  struct Case {
    std::string path;
    size_t accessUnits;
    size_t probedPerFrame;
    int fieldSeqFlag;  // -1: not an HEVC elementary stream
  };
  const Case cases[] = {
      {paff, 10, 1, -1},  // four pairs of two access units, two frame pictures
      {ts, 10, 1, -1},
      {qtest::encodedStream("fieldseq-1.hevc", x265 + "interlace=tff:field=1 -f hevc"), 10, 2, 1},
      {qtest::encodedStream("fieldseq-1.mkv", x265 + "interlace=tff:field=1 -f matroska"), 10, 2, -1},
      {qtest::encodedStream("fieldseq-0.hevc", x265 + "interlace=false -f hevc"), 10, 1, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    ASSERT_FALSE(c.path.empty());
    if (c.fieldSeqFlag >= 0) {
      int64_t flag = -1;
      for (const auto& line : oracle::traceHeaderLines(c.path)) flag = line.name == "field_seq_flag" ? line.value : flag;
      EXPECT_EQ(flag, c.fieldSeqFlag);
    }
    const auto probed = qtest::runCommand("ffprobe -v error -count_frames -show_entries stream=nb_read_frames -of csv=p=0 " + shellQuote(c.path));
    const auto json = mtest::runJson("inspect " + shellQuote(c.path));
    EXPECT_EQ(json["frames"].get<size_t>(), std::stoul(probed.out) / c.probedPerFrame);
    EXPECT_EQ(json["accessUnits"].get<size_t>(), c.accessUnits);
  }
}

}  // namespace
