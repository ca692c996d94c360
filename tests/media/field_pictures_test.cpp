// Field pictures: the display order counts the fields the pictures show, the cutter says which
// pictures are fields (H.264 field_pic_flag, MPEG-2 picture_structure), and `stamp` gives both
// fields of a frame that frame's timecode while frame pictures get one each.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>
#include <vector>

#include "media_support.h"
#include "platform/tcxlat.h"
#include "streamutil/access_units.h"
#include "support/ffmpeg_oracle.h"
#include "support/edit_support.h"
#include "support/paff_stream.h"
#include "support/test_support.h"
#include "support/tool_runs.h"

namespace {

using qtest::shellQuote;

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
