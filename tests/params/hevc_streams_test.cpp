// HEVC parameter sets of real x265 streams (hostile input: fuzz_hevc_*): every element ffmpeg's trace_headers reports must
// match ours, read-then-write must give the unit back byte for byte unless the stream is listed as
// exempt (with the reason), and the hvcC record written from them must be the one ffmpeg stores
// when it remuxes the stream into MP4 (the library's and the hvcc command's), reading back to the
// same records. Then the record reader's documented results, and the box's size word: it bounds
// the record (ISO/IEC 14496-12 4.2); a box claiming more bytes than there are, or fewer than its
// own header, is refused by hvcc --read; bytes behind the box are not read as part of it. A box
// stored with emulation prevention reads as the plain one, and on the reader's retry over its
// unescaped copy the word still bounds the box. hvcc --read names what the file holds and its
// size: an hvcC box, or a bare record (which the reader wraps in box words of its own; their 8
// bytes are not the file's). Last, the parameter-set readers' and writers' messages, limits and
// forced values on variations of main_hrd's units, and syntax x265 never writes, read by ffmpeg.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/mp4_box.h"
#include "support/param_streams.h"
#include "streamutil/hevc_config_record.h"
#include "streamutil/hevc_params.h"
#include "support/test_support.h"

namespace {

using ptest::Bytes;
using StreamUnits = ptest::HevcUnits;
using qtest::shellQuote;

// Why a unit may not come back byte for byte.
enum Exempt : unsigned {
  kNone = 0,
  kPpsPositiveSigned = 1,  // positive se(v) values are written as code 2v + 2 by the HEVC writers
};

struct HevcStream {
  const char* name;
  const char* pixelFormat;
  const char* x265Params;
  const char* size;
  unsigned exempt;
};

const HevcStream kStreams[] = {
    {"main_hrd", "yuv420p", "hrd=1:vbv-maxrate=500:vbv-bufsize=500", "64x64", kNone},
    {"main10", "yuv420p10le", "", "64x64", kNone},
    {"main422_10", "yuv422p10le", "", "64x64", kNone},
    {"main444", "yuv444p", "", "64x64", kPpsPositiveSigned},  // x265 codes pps_cb/cr_qp_offset > 0
    {"hdr_colour", "yuv420p10le", "colorprim=bt2020:transfer=smpte2084:colormatrix=bt2020nc:range=full:hdr10=1", "64x64", kNone},
    {"scaling_default", "yuv420p", "scaling-list=default", "64x64", kNone},
    {"interlaced_fields", "yuv420p", "interlace=tff", "64x64", kNone},
    {"two_sub_layers", "yuv420p", "temporal-layers=1:bframes=2", "64x64", kNone},
    {"vui_kitchen_sink", "yuv420p", "sar=5:7:overscan=show:chromaloc=1:display-window=8,0,0,8:videoformat=pal", "96x64", kNone},
    {"odd_size_crop", "yuv420p", "", "100x58", kNone},
};

zr_bitstream over(const Bytes& b) {
  return zr_bitstream{const_cast<uint8_t*>(b.data()), static_cast<int64_t>(b.size()), b.size() * 8, 0};
}

bool hasPositiveSigned(const HEVC_PPS_DECODED& p) {
  return p.init_qp_minus26 > 0 || p.pps_cb_qp_offset > 0 || p.pps_cr_qp_offset > 0 || p.pps_beta_offset_div2 > 0 ||
         p.pps_tc_offset_div2 > 0;
}

Bytes writeRecord(HEVC_DECODED* header, const StreamUnits& u, int32_t spsLength) {
  Bytes out(512, 0);
  zr_bitstream o = over(out);
  out.resize(klxutilWrite_HEVC_CR(&o, header, u.vps.data(), u.sps.data(), u.pps.data(),
                                  static_cast<int32_t>(u.vps.size()), spsLength, static_cast<int32_t>(u.pps.size())));
  return out;
}

// A box: size and type words, then the record.
// Sized once and filled in place: growing an 8-byte vector by insert() makes GCC 12 at -O3
// report its own reallocation copy as out of bounds (-Warray-bounds).
Bytes boxOf(const Bytes& record) {
  const size_t size = record.size() + 8;
  Bytes b(size);
  qtest::putBe32(b, 0, static_cast<uint32_t>(size));
  std::memcpy(&b[4], "hvcC", 4);
  std::copy(record.begin(), record.end(), b.begin() + 8);
  return b;
}

// The header of an HEVCDecoderConfigurationRecord decoded straight from its bytes, by the layout
// of ISO/IEC 14496-15 8.3.3.1.2, under the names hvcc --read --json prints.
std::vector<std::pair<std::string, uint64_t>> hvccHeaderOf(const uint8_t* r) {
  auto bytes = [&](int from, int count) {
    uint64_t v = 0;
    for (int i = 0; i < count; ++i) v = v << 8 | r[from + i];
    return v;
  };
  return {{"configurationVersion", r[0]},
          {"general_profile_space", r[1] >> 6},
          {"general_tier_flag", r[1] >> 5 & 1},
          {"general_profile_idc", r[1] & 31},
          {"general_profile_compatibility_flags", bytes(2, 4)},
          {"general_constraint_indicator_flags", bytes(6, 6)},
          {"general_level_idc", r[12]},
          {"min_spatial_segmentation_idc", bytes(13, 2) & 0xFFF},
          {"parallelismType", r[15] & 3},
          {"chromaFormat", r[16] & 3},
          {"bitDepthLumaMinus8", r[17] & 7},
          {"bitDepthChromaMinus8", r[18] & 7},
          {"avgFrameRate", bytes(19, 2)},
          {"constantFrameRate", r[21] >> 6},
          {"numTemporalLayers", r[21] >> 3 & 7},
          {"temporalIdNested", r[21] >> 2 & 1},
          {"lengthSizeMinusOne", r[21] & 3},
          {"numOfArrays", r[22]}};
}

// The elements our lister reports for a record.
template <class Record>
ptest::ElementValues listed(void (*list)(const Record*, klxutilParamElementSink, void*), const Record* record) {
  ptest::ElementCollector ours;
  list(record, &ptest::ElementCollector::sink, &ours);
  return ours.elements;
}

class HevcStreams : public ::testing::TestWithParam<HevcStream> {};

TEST_P(HevcStreams, MatchFfmpegTraceAndRoundTrip) {
  const HevcStream& param = GetParam();
  std::string path = ptest::x265Stream(param.name, param.pixelFormat, param.x265Params, param.size);
  ASSERT_FALSE(path.empty());
  auto units = ptest::splitAnnexB(qtest::readBytes(path));
  const Bytes* vpsNal = ptest::firstHevcUnit(units, 32);
  const Bytes* spsNal = ptest::firstHevcUnit(units, 33);
  const Bytes* ppsNal = ptest::firstHevcUnit(units, 34);
  ASSERT_TRUE(vpsNal && spsNal && ppsNal);
  auto traced = ptest::traceHeaders(path);

  auto vps = std::make_unique<HEVC_VPS_DECODED>();
  auto sps = std::make_unique<HEVC_SPS_DECODED>();
  auto pps = std::make_unique<HEVC_PPS_DECODED>();
  HEVC_DECODED summary{};
  {
    qtest::LogCapture log;
    zr_bitstream v = over(*vpsNal), s = over(*spsNal), p = over(*ppsNal);
    EXPECT_GT(klxutilRead_HEVC_VPS(&v, vps.get(), &summary, 0), 0u);
    // x265's profile_tier_level always needs emulation prevention: the SPS is read from an
    // unescaped copy, and its trailing bits are checked against that copy's length.
    ASSERT_GT(ptest::escapesIn(*spsNal), 0u);
    EXPECT_EQ(klxutilRead_HEVC_SPS(&s, sps.get(), &summary, 0), spsNal->size() - ptest::escapesIn(*spsNal));
    EXPECT_GT(klxutilRead_HEVC_PPS(&p, pps.get(), &summary, 0), 0u);
    EXPECT_EQ(s.position, spsNal->size() * 8) << "the input moves on by the whole unit";
    for (const auto& line : log.lines()) ADD_FAILURE() << param.name << ": unexpected report: " << line.text;
  }
  EXPECT_EQ(summary.general_profile_idc, static_cast<uint32_t>(sps->ptl.general_profile_idc));
  EXPECT_EQ(summary.general_level_idc, static_cast<uint32_t>(sps->ptl.general_level_idc));

  const std::pair<const char*, ptest::ElementValues> ourSets[] = {
      {"Video Parameter Set", listed(klxutilList_HEVC_VPS, vps.get())},
      {"Sequence Parameter Set", listed(klxutilList_HEVC_SPS, sps.get())},
      {"Picture Parameter Set", listed(klxutilList_HEVC_PPS, pps.get())},
  };
  const int minimumCompared[] = {15, 35, 25};
  for (size_t k = 0; k < 3; ++k) {
    const ptest::TracedUnit* theirs = ptest::firstOfKind(traced, ourSets[k].first);
    ASSERT_NE(theirs, nullptr) << ourSets[k].first;
    const std::string context = std::string(param.name) + " " + ourSets[k].first;
    EXPECT_GE(ptest::compareElements(ourSets[k].second, theirs->elements, context), minimumCompared[k]) << context;
  }

  // hvcC: ours, header filled from the parsed parameter sets, arrays from the stream's own units.
  const StreamUnits u{*vpsNal, *spsNal, *ppsNal, path};
  Bytes box = qtest::remuxedBox(path, "hvcC");
  ASSERT_GT(box.size(), 8u + 23u);
  HEVC_DECODED header;
  klxutilFillHvccHeader(&header, sps.get(), pps.get());
  Bytes ours = writeRecord(&header, u, static_cast<int32_t>(u.sps.size()));
  ASSERT_EQ(ours.size(), 23 + 15 + u.vps.size() + u.sps.size() + u.pps.size());
  // ffmpeg leaves array_completeness at 0; our writer sets it (the parameter sets are all in
  // the record). Every other bit must match.
  Bytes theirs(box.begin() + 8, box.end());
  for (size_t head : {size_t{23}, 28 + u.vps.size(), 33 + u.vps.size() + u.sps.size()}) {
    ASSERT_LT(head, theirs.size());
    EXPECT_EQ(theirs[head] & 0x80, 0) << head;
    theirs[head] |= 0x80;
  }
  EXPECT_EQ(ours, theirs) << param.name << ": header fields and the three arrays";
  qtest::TempDir dir;
  ASSERT_EQ(qtest::runTool("hvcc " + qtest::shellQuote(u.path) + " -o " + qtest::shellQuote(dir.file("h.bin"))).exitCode, 0);
  EXPECT_EQ(qtest::readBytes(dir.file("h.bin")), boxOf(ours)) << "the hvcc command's box holds the same record";
  // hvcc --read --json on ffmpeg's box names each header field as the record's bytes hold it.
  // The fields x265 and ffmpeg leave at 0 or at equal values get distinct ones first
  // (min_spatial_segmentation_idc 90, parallelismType 1, avgFrameRate 4660,
  // constantFrameRate 2, lengthSizeMinusOne 1), so that no two fields can be mistaken.
  Bytes edited = box;
  uint8_t* r = edited.data() + 8;
  const std::pair<int, uint8_t> distinct[] = {{13, 0xF0}, {14, 0x5A}, {15, 0xFD}, {19, 0x12}, {20, 0x34}};
  for (const auto& [at, value] : distinct) r[at] = value;
  r[21] = static_cast<uint8_t>(0x80 | (r[21] & 0x3C) | 1);
  qtest::writeBytes(dir.file("ffmpeg.bin"), edited);
  const auto read = qtest::runTool("hvcc --read " + qtest::shellQuote(dir.file("ffmpeg.bin")) + " --json");
  ASSERT_EQ(read.exitCode, 0) << read.err;
  const auto printed = nlohmann::json::parse(read.out).at("header");
  const auto fields = hvccHeaderOf(r);
  EXPECT_EQ(printed.size(), fields.size());
  for (const auto& [name, value] : fields) EXPECT_EQ(printed.value(name, ~uint64_t{0}), value) << name;

  // ffmpeg's box read back gives the same records as the stream's own units.
  HEVC_DECODED readHeader{};
  auto vps2 = std::make_unique<HEVC_VPS_DECODED>();
  auto sps2 = std::make_unique<HEVC_SPS_DECODED>();
  auto pps2 = std::make_unique<HEVC_PPS_DECODED>();
  zr_bitstream in = over(box);
  qtest::LogCapture log;
  uint32_t end = klxutilRead_HEVC_CR(&in, &readHeader, vps2.get(), sps2.get(), pps2.get());
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(end, 8 + 23 + 10 + u.vps.size() + u.sps.size()) << "offset past the SPS array";
  EXPECT_EQ(in.position, box.size() * 8);
  EXPECT_EQ(0, std::memcmp(vps.get(), vps2.get(), sizeof *vps));
  EXPECT_EQ(0, std::memcmp(sps.get(), sps2.get(), sizeof *sps));
  EXPECT_EQ(0, std::memcmp(pps.get(), pps2.get(), sizeof *pps));
  EXPECT_EQ(writeRecord(&readHeader, u, static_cast<int32_t>(u.sps.size())), ours) << "every header field was read";
  EXPECT_EQ(readHeader.numOfArrays, 3u);

  // Read then write.
  uint8_t out[kHevcParamSetMaxBytes];
  int32_t n = klxutilWrite_HEVC_SPS(sps.get(), out, 0);
  const Bytes spsWritten(out, out + n);

  // The SPS reader leaves the large tables past the coded counts as they were: read into a
  // record full of stale bytes, it must list and write exactly as the clean record does.
  auto stale = std::make_unique<HEVC_SPS_DECODED>();
  std::memset(static_cast<void*>(stale.get()), 0xA5, sizeof *stale);
  zr_bitstream again = over(*spsNal);
  ASSERT_GT(klxutilRead_HEVC_SPS(&again, stale.get(), nullptr, 0), 0u);
  EXPECT_EQ(listed(klxutilList_HEVC_SPS, sps.get()), listed(klxutilList_HEVC_SPS, stale.get())) << param.name;
  n = klxutilWrite_HEVC_SPS(stale.get(), out, 0);
  EXPECT_EQ(Bytes(out, out + n), spsWritten) << param.name << " SPS read over stale bytes";
  // The checked form refuses one byte less than the unit, writing nothing, and fills exactly its size.
  Bytes exact(spsWritten.size(), 0xEE);
  EXPECT_EQ(klxutilWriteChecked_HEVC_SPS(sps.get(), exact.data(), exact.size() - 1), -1);
  EXPECT_EQ(exact, Bytes(exact.size(), 0xEE)) << "nothing written";
  EXPECT_EQ(klxutilWriteChecked_HEVC_SPS(sps.get(), exact.data(), exact.size()), static_cast<int32_t>(exact.size()));
  EXPECT_EQ(exact, spsWritten);

  n = klxutilWrite_HEVC_VPS(vps.get(), out);
  EXPECT_EQ(Bytes(out, out + n), *vpsNal) << param.name << " VPS";
  EXPECT_EQ(spsWritten, *spsNal) << param.name << " SPS";
  n = klxutilWrite_HEVC_PPS(pps.get(), out);
  EXPECT_EQ(hasPositiveSigned(*pps), (param.exempt & kPpsPositiveSigned) != 0)
      << param.name << ": the exemption list is out of date";
  if (!(param.exempt & kPpsPositiveSigned)) {
    EXPECT_EQ(Bytes(out, out + n), *ppsNal) << param.name << " PPS";
  }
}

INSTANTIATE_TEST_SUITE_P(X265, HevcStreams, ::testing::ValuesIn(kStreams),
                         [](const auto& info) { return std::string(info.param.name); });

// The first VPS, SPS and PPS of main_hrd.
const StreamUnits& mainUnits() {
  static const StreamUnits units = ptest::hevcUnits(
      ptest::x265Stream(kStreams[0].name, kStreams[0].pixelFormat, kStreams[0].x265Params, kStreams[0].size));
  return units;
}

// Exactly one report, starting with `prefix`.
void expectOneReport(const qtest::LogCapture& log, const std::string& prefix) {
  ASSERT_EQ(log.lines().size(), 1u) << prefix;
  EXPECT_EQ(log.lines()[0].text.rfind(prefix, 0), 0u) << log.lines()[0].text;
}

TEST(HvccWriter, HeaderlessAndOddLengths) {
  StreamUnits u = mainUnits();
  Bytes noHeader = writeRecord(nullptr, u, static_cast<int32_t>(u.sps.size()));
  EXPECT_EQ(noHeader.size(), 15 + u.vps.size() + u.sps.size() + u.pps.size());
  EXPECT_EQ(noHeader[0], 0xA0) << "array_completeness 1, reserved 0, type 32";
  Bytes emptySps = writeRecord(nullptr, u, 0);
  EXPECT_EQ(emptySps.size(), 15 + u.vps.size() + u.pps.size());
  Bytes negative = writeRecord(nullptr, u, -2);
  size_t spsHead = 5 + u.vps.size();
  EXPECT_EQ(negative[spsHead + 3], 0xFF);
  EXPECT_EQ(negative[spsHead + 4], 0xFE) << "low 16 bits of the length, no bytes";
  EXPECT_EQ(negative.size(), 15 + u.vps.size() + u.pps.size());
  EXPECT_EQ(klxutilGetHvcc(nullptr, 0, nullptr, 0), -1);
}

TEST(HvccReader, DocumentedResults) {
  StreamUnits u = mainUnits();
  auto sps = ptest::readHevcUnit<HEVC_SPS_DECODED>(u.sps);
  HEVC_DECODED header;
  klxutilFillHvccHeader(&header, sps.get(), nullptr);
  Bytes good = boxOf(writeRecord(&header, u, static_cast<int32_t>(u.sps.size())));

  HEVC_DECODED h{};
  zr_bitstream in = over(good);
  EXPECT_EQ(klxutilRead_HEVC_CR(&in, nullptr, nullptr, nullptr, nullptr), 0u) << "null header";
  zr_bitstream empty{good.data(), 0, 0, 0};
  EXPECT_EQ(klxutilRead_HEVC_CR(&empty, &h, nullptr, nullptr, nullptr), 0u) << "empty input";

  // A unit length that runs past the data.
  Bytes truncated(good.begin(), good.end() - 4);
  truncated[3] = static_cast<uint8_t>(truncated.size());
  {
    qtest::LogCapture log;
    zr_bitstream t = over(truncated);
    auto pps = std::make_unique<HEVC_PPS_DECODED>();
    EXPECT_EQ(klxutilRead_HEVC_CR(&t, &h, nullptr, nullptr, pps.get()), 0xFFFFFFFFu);
    expectOneReport(log, "Hevc read is past end of bitstream klxvidutil ");
  }
  // Wrong reserved bits twice: failure after two reports.
  Bytes bad = good;
  bad[8 + 13] &= 0x7F;  // the "1111" before min_spatial_segmentation_idc
  {
    qtest::LogCapture log;
    zr_bitstream b = over(bad);
    EXPECT_EQ(klxutilRead_HEVC_CR(&b, &h, nullptr, nullptr, nullptr), 0xFFFFFFFFu);
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.lines()[1].text.rfind("Hevc Reserved bits incorrect klxvidutil ", 0), 0u);
  }
  // Reserved bits behind an escape byte: the second pass on an unescaped copy succeeds.
  HEVC_DECODED headerOnly = header;
  headerOnly.numOfArrays = 0;
  headerOnly.general_constraint_indicator_flags = 0x900000000000ull;  // 90 00 00 00 00 00
  Bytes escaped = boxOf(writeRecord(&headerOnly, u, static_cast<int32_t>(u.sps.size())));
  escaped.insert(escaped.begin() + 8 + 9, 3);  // 90 00 00 03 00 00 00
  {
    qtest::LogCapture log;
    HEVC_DECODED back{};
    zr_bitstream e = over(escaped);
    EXPECT_EQ(klxutilRead_HEVC_CR(&e, &back, nullptr, nullptr, nullptr), 0u) << "no arrays";
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(back.general_constraint_indicator_flags, 0x900000000000ull);
    EXPECT_EQ(back.general_level_idc, header.general_level_idc);
    EXPECT_EQ(back.chromaFormat, header.chromaFormat);
    EXPECT_EQ(back.lengthSizeMinusOne, 3u);
  }
}

TEST(HvccReader, TakesTheFirstOfEachType) {
  StreamUnits u = mainUnits();
  auto first = ptest::readHevcUnit<HEVC_SPS_DECODED>(u.sps);
  HEVC_DECODED header;
  klxutilFillHvccHeader(&header, first.get(), nullptr);
  // A second SPS with another id, and one more byte on the first unit's length.
  auto second = std::make_unique<HEVC_SPS_DECODED>(*first);
  second->sps_seq_parameter_set_id = 5;
  uint8_t buffer[kHevcParamSetMaxBytes];
  Bytes secondSps(buffer, buffer + klxutilWrite_HEVC_SPS(second.get(), buffer, 0));

  Bytes record(512, 0);
  zr_bitstream w = over(record);
  header.numOfArrays = 1;
  klxutilWrite_HEVC_CR(&w, &header, nullptr, nullptr, nullptr, 0, 0, 0);  // header + 3 empty arrays
  w.position = 23 * 8;                                                      // overwrite the arrays
  WriteBits(&w, 8, 0x80 | 33);
  WriteBits(&w, 16, 2);
  for (const Bytes* unit : {&u.sps, &secondSps}) {
    WriteBits(&w, 16, static_cast<uint32_t>(unit->size()));
    for (uint8_t b : *unit) WriteBits(&w, 8, b);
  }
  record.resize(w.position / 8);
  Bytes box = boxOf(record);
  auto sps = std::make_unique<HEVC_SPS_DECODED>();
  HEVC_DECODED h{};
  zr_bitstream in = over(box);
  qtest::LogCapture log;
  EXPECT_EQ(klxutilRead_HEVC_CR(&in, &h, nullptr, sps.get(), nullptr), 8 + 23 + 3 + 2 + u.sps.size());
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(sps->sps_seq_parameter_set_id, first->sps_seq_parameter_set_id);
  EXPECT_EQ(in.position, box.size() * 8);
}

TEST(HvccReader, ReportsAUnitThatDoesNotReadToItsLength) {
  StreamUnits u = mainUnits();
  HEVC_DECODED header{};
  header.configurationVersion = 1;
  header.numOfArrays = 3;
  // The PPS travels in the SPS array: the SPS reader rejects it after the NAL header.
  StreamUnits swapped = u;
  swapped.sps = u.pps;
  Bytes box = boxOf(writeRecord(&header, swapped, static_cast<int32_t>(u.pps.size())));
  auto sps = std::make_unique<HEVC_SPS_DECODED>();
  auto pps = std::make_unique<HEVC_PPS_DECODED>();
  HEVC_DECODED h{};
  zr_bitstream in = over(box);
  qtest::LogCapture log;
  klxutilRead_HEVC_CR(&in, &h, nullptr, sps.get(), pps.get());
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(log.lines()[0].text.rfind("Not a sps NAL klxvidutil ", 0), 0u);
  std::string expected = "Hevc read is not the same length as entry size (16 <> " + std::to_string(u.pps.size() * 8) + ") klxvidutil ";
  EXPECT_EQ(log.lines()[1].text.rfind(expected, 0), 0u) << log.lines()[1].text;
  EXPECT_NE(pps->pps_extension_present_flag, -1) << "the walk went on to the PPS array";
  EXPECT_EQ(in.position, box.size() * 8);
}

Bytes withSizeWord(Bytes box, uint32_t size) {
  qtest::putBe32(box, 0, size);
  return box;
}

// The box stored with emulation prevention over its record, its size word counting the bytes stored.
Bytes escapedBox(const Bytes& box) {
  Bytes escaped(box.begin(), box.begin() + 8);
  const Bytes record = qtest::emulationPrevented(Bytes(box.begin() + 8, box.end()));
  escaped.insert(escaped.end(), record.begin(), record.end());
  return withSizeWord(escaped, uint32_t(escaped.size()));
}

TEST(HvccBoxSize, HvccReadNamesTheFileAndRefusesABoxLargerThanTheFileOrSmallerThanItsHeader) {
  // The box quorvane writes for an x265 stream.
  qtest::TempDir dir;
  ASSERT_EQ(qtest::runTool("hvcc " + shellQuote(mainUnits().path) + " -o " + shellQuote(dir.file("box.bin"))).exitCode, 0);
  const Bytes box = qtest::readBytes(dir.file("box.bin"));
  ASSERT_GT(box.size(), 40u);
  const uint32_t n = uint32_t(box.size());
  Bytes trailing = box;
  trailing.insert(trailing.end(), {0, 0, 0, 9, 'f', 'r', 'e', 'e', 0});
  struct Row {
    const char* name;
    Bytes bytes;
    const char* error;  // null: read as the plain box
    const char* kind;   // the first line's name of what the file holds (null: not checked)
  };
  const Row rows[] = {
      {"as written", box, nullptr, "hvcC"},
      {"the bare record", Bytes(box.begin() + 8, box.end()), nullptr, "record"},
      {"size 0: to the end of the file", withSizeWord(box, 0), nullptr, nullptr},
      {"another box behind it", trailing, nullptr, nullptr},
      {"stored with emulation prevention", escapedBox(box), nullptr, nullptr},
      {"one byte more than the file", withSizeWord(box, n + 1), "is past end of bitstream", nullptr},
      {"all ones", withSizeWord(box, 0xFFFFFFFFu), "is past end of bitstream", nullptr},
      {"smaller than its header", withSizeWord(box, 7), "is smaller than its 8-byte header", nullptr},
      // The retry on the unescaped copy stays inside the box: the bytes behind it complete the cut unit.
      {"escapes left out of the size word", withSizeWord(escapedBox(box), n), "is not a readable hvcC record", nullptr},
  };
  const std::string in = dir.file("in.bin");
  std::string plain;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    qtest::writeBytes(in, row.bytes);
    const auto r = qtest::runTool("hvcc --read " + shellQuote(in));
    if (!row.error) {
      EXPECT_EQ(r.exitCode, 0) << r.err;
      const size_t eol = r.out.find('\n');
      if (row.kind) {
        EXPECT_EQ(r.out.substr(0, eol), in + ": " + row.kind + ", " + std::to_string(row.bytes.size()) + " bytes");
      }
      const std::string body = r.out.substr(eol);  // the first line names the file's size
      if (plain.empty()) plain = body;
      EXPECT_EQ(body, plain);
      continue;
    }
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err.rfind("quorvane hvcc: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find(row.error), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << "one line";
  }
}

TEST(HevcReaders, WrongUnitTypeIsRejectedWithItsMessage) {
  StreamUnits u = mainUnits();
  ASSERT_FALSE(u.sps.empty());
  auto vps = std::make_unique<HEVC_VPS_DECODED>();
  auto sps = std::make_unique<HEVC_SPS_DECODED>();
  auto pps = std::make_unique<HEVC_PPS_DECODED>();
  struct Case {
    Bytes* unit;
    std::function<uint32_t(zr_bitstream*)> read;
    std::string message;
  } cases[] = {
      {&u.sps, [&](zr_bitstream* s) { return klxutilRead_HEVC_VPS(s, vps.get(), nullptr, 0); }, "Not a vps NAL klxvidutil "},
      {&u.pps, [&](zr_bitstream* s) { return klxutilRead_HEVC_SPS(s, sps.get(), nullptr, 0); }, "Not a sps NAL klxvidutil "},
      {&u.vps, [&](zr_bitstream* s) { return klxutilRead_HEVC_PPS(s, pps.get(), nullptr, 0); }, "Not a pps NAL (32) klxvidutil "},
  };
  for (auto& c : cases) {
    qtest::LogCapture log;
    zr_bitstream s = over(*c.unit);
    EXPECT_EQ(c.read(&s), 0xFFFFFFFFu);
    EXPECT_EQ(s.position, 16u) << "position is the private stream's, after the NAL header";
    expectOneReport(log, c.message);
  }
}

TEST(HevcReaders, NullRecordAndEmptyInputGiveZero) {
  Bytes unit = mainUnits().sps;
  zr_bitstream s = over(unit);
  EXPECT_EQ(klxutilRead_HEVC_SPS(&s, nullptr, nullptr, 0), 0u);
  auto sps = std::make_unique<HEVC_SPS_DECODED>();
  zr_bitstream empty{unit.data(), 0, 0, 0};
  EXPECT_EQ(klxutilRead_HEVC_SPS(&empty, sps.get(), nullptr, 0), 0u);
  EXPECT_EQ(s.position, 0u);
}

TEST(HevcVps, ReservedBitsAreChecked) {
  const Bytes& real = mainUnits().vps;
  ASSERT_GE(real.size(), 6u);
  struct Case {
    const char* what;
    size_t byte;
    uint8_t mask;
  } cases[] = {
      {"vps_base_layer_available_flag", 2, 0x04},
      {"vps_reserved_0xffff_16bits low", 5, 0x01},
  };
  for (const auto& c : cases) {
    Bytes unit = real;
    unit[c.byte] &= static_cast<uint8_t>(~c.mask);
    auto vps = std::make_unique<HEVC_VPS_DECODED>();
    qtest::LogCapture log;
    zr_bitstream s = over(unit);
    EXPECT_EQ(klxutilRead_HEVC_VPS(&s, vps.get(), nullptr, 0), 0xFFFFFFFFu) << c.what;
    expectOneReport(log, "Vps Reserved bits incorrect klxvidutil ");
  }
}

TEST(HevcVps, WriterForcesItsFields) {
  auto vps = ptest::readHevcUnit<HEVC_VPS_DECODED>(mainUnits().vps);
  vps->vps_num_layer_sets_minus1 = 2;
  vps->vps_max_layer_id = 1;
  vps->vps_timing_info_present_flag = 1;
  vps->vps_num_units_in_tick = 1001;
  vps->vps_time_scale = 60000;
  vps->vps_poc_proportional_to_timing_flag = 1;
  vps->vps_num_ticks_poc_diff_one = 5;
  vps->vps_num_hrd_parameters = 3;
  vps->vps_extension_flag = 1;
  uint8_t out[kHevcParamSetMaxBytes];
  int32_t n = klxutilWrite_HEVC_VPS(vps.get(), out);
  EXPECT_EQ(vps->vps_num_hrd_parameters, 0) << "the caller's record is changed too";
  auto back = std::make_unique<HEVC_VPS_DECODED>();
  Bytes written(out, out + n);
  zr_bitstream r = over(written);
  qtest::LogCapture log;
  EXPECT_EQ(klxutilRead_HEVC_VPS(&r, back.get(), nullptr, 0), written.size() - ptest::escapesIn(written));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(back->vps_num_layer_sets_minus1, 2);
  EXPECT_EQ(back->vps_time_scale, 60000u);
  EXPECT_EQ(back->vps_num_ticks_poc_diff_one, 5u) << "stored as coded value plus one";
  EXPECT_EQ(back->vps_num_hrd_parameters, 0);
  EXPECT_EQ(back->vps_extension_flag, 0);
}

// 64 explicit (empty) short-term sets is the most that reads; 65 is refused by the writer and
// by the reader (element_ranges_test.cpp).
TEST(HevcSps, SixtyFourShortTermSetsRoundTrip) {
  auto sps = ptest::readHevcUnit<HEVC_SPS_DECODED>(mainUnits().sps);
  sps->num_short_term_ref_pic_sets = 64;
  uint8_t out[kHevcParamSetMaxBytes];
  Bytes written(out, out + klxutilWrite_HEVC_SPS(sps.get(), out, 0));
  auto back = std::make_unique<HEVC_SPS_DECODED>();
  zr_bitstream r = over(written);
  EXPECT_EQ(klxutilRead_HEVC_SPS(&r, back.get(), nullptr, 0), written.size() - ptest::escapesIn(written));
  EXPECT_EQ(back->num_short_term_ref_pic_sets, 64);
}

TEST(HevcPps, PositiveSignedValuesTakeTheLibraryMapping) {
  struct Case {
    int32_t written, readBack;
  } cases[] = {{2, -3}, {1, -2}, {0, 0}, {-1, -1}, {-7, -7}};
  for (const auto& c : cases) {
    auto pps = ptest::readHevcUnit<HEVC_PPS_DECODED>(mainUnits().pps);
    pps->init_qp_minus26 = c.written;
    pps->pps_cb_qp_offset = c.written;
    uint8_t out[kHevcParamSetMaxBytes];
    Bytes written(out, out + klxutilWrite_HEVC_PPS(pps.get(), out));
    auto back = std::make_unique<HEVC_PPS_DECODED>();
    zr_bitstream r = over(written);
    ASSERT_GT(klxutilRead_HEVC_PPS(&r, back.get(), nullptr, 0), 0u);
    EXPECT_EQ(back->init_qp_minus26, c.readBack) << c.written;
    EXPECT_EQ(back->pps_cb_qp_offset, c.readBack) << c.written;
  }
}

TEST(HevcReaders, TrailingBitProblemsAreReportedNotFailed) {
  const Bytes& real = mainUnits().pps;
  struct Case {
    const char* what;
    std::function<void(Bytes&)> damage;
    std::string prefix;
  } cases[] = {
      {"extra byte", [](Bytes& b) { b.push_back(0x55); }, "\nklxutilRead_HEVC_PPS failed bit length is wrong = 1 padding = 0 "},
      {"padding bit set", [](Bytes& b) { b.back() |= 0x01; }, "\nklxutilRead_HEVC_PPS failed allignment bit = 1 padding = 1 "},
  };
  for (const auto& c : cases) {
    Bytes unit = real;
    ASSERT_NE(unit.back() & 0x01, 1);
    c.damage(unit);
    auto pps = std::make_unique<HEVC_PPS_DECODED>();
    qtest::LogCapture log;
    zr_bitstream s = over(unit);
    EXPECT_NE(klxutilRead_HEVC_PPS(&s, pps.get(), nullptr, 0), 0xFFFFFFFFu) << c.what;
    expectOneReport(log, c.prefix);
    EXPECT_EQ(s.position, unit.size() * 8);
  }
}

// Syntax x265 never produces (short-term sets with inter prediction, long-term pictures, PCM,
// explicit scaling lists, the range extension): write it with our writer, then have ffmpeg's
// parser and ours read the same bytes and compare every element.
TEST(HevcWriters, RareSyntaxReadsTheSameInFfmpeg) {
  StreamUnits u = mainUnits();
  auto sps = ptest::readHevcUnit<HEVC_SPS_DECODED>(u.sps);

  sps->num_short_term_ref_pic_sets = 4;
  HEVC_ST_REF_PIC_SET* rps = sps->st_ref_pic_set;
  rps[0].num_negative_pics = 2;
  rps[0].delta_poc_s0_minus1[0] = 0;
  rps[0].used_by_curr_pic_s0_flag[0] = 1;
  rps[0].delta_poc_s0_minus1[1] = 1;
  rps[0].used_by_curr_pic_s0_flag[1] = 0;
  rps[0].num_positive_pics = 1;
  rps[0].delta_poc_s1_minus1[0] = 2;
  rps[0].used_by_curr_pic_s1_flag[0] = 1;
  rps[1].inter_ref_pic_set_prediction_flag = 1;  // predicted from set 0 (3 deltas + itself)
  rps[1].delta_rps_sign = 1;
  rps[1].abs_delta_rps_minus1 = 0;
  const int used1[] = {1, 0, 1, 0}, useDelta1[] = {1, 1, 1, 0};
  for (int j = 0; j < 4; ++j) {
    rps[1].used_by_curr_pic_flag[j] = used1[j];
    rps[1].use_delta_flag[j] = useDelta1[j];
  }
  rps[2].inter_ref_pic_set_prediction_flag = 1;  // predicted from set 1: its size comes from the derivation
  rps[2].abs_delta_rps_minus1 = 1;
  for (int j = 0; j < 4; ++j) rps[2].used_by_curr_pic_flag[j] = 1;
  rps[3].num_negative_pics = 1;
  rps[3].delta_poc_s0_minus1[0] = 7;
  sps->long_term_ref_pics_present_flag = 1;
  sps->num_long_term_ref_pics_sps = 2;
  sps->lt_ref_pic_poc_lsb_sps[0] = 5;
  sps->lt_ref_pic_poc_lsb_sps[1] = 200;
  sps->used_by_curr_pic_lt_sps_flag[1] = 1;
  sps->pcm_enabled_flag = 1;
  sps->pcm_sample_bit_depth_luma_minus1 = 7;
  sps->pcm_sample_bit_depth_chroma_minus1 = 6;
  sps->log2_min_pcm_luma_coding_block_size_minus3 = 0;
  sps->log2_diff_max_min_pcm_luma_coding_block_size = 1;
  sps->pcm_loop_filter_disabled_flag = 1;
  sps->scaling_list_enabled_flag = 1;
  sps->sps_scaling_list_data_present_flag = 1;
  HEVC_SCALING_LIST_DATA& sl = sps->scaling_list;
  for (int sizeId = 0; sizeId < 4; ++sizeId)
    for (int m = 0; m < 6; m += sizeId == 3 ? 3 : 1) {
      sl.scaling_list_pred_mode_flag[sizeId][m] = (m + sizeId) % 2;
      sl.scaling_list_pred_matrix_id_delta[sizeId][m] = m > 0 ? 1 : 0;
      sl.scaling_list_dc_coef_minus8[sizeId][m] = -(sizeId + m);
      for (int i = 0; i < 64; ++i) sl.scaling_list_delta_coef[sizeId][m][i] = -((i + m) % 5);
    }
  sps->sps_extension_present_flag = 1;
  sps->sps_range_extension_flag = 1;
  sps->implicit_rdpcm_enabled_flag = 1;
  sps->persistent_rice_adaptation_enabled_flag = 1;

  uint8_t out[kHevcParamSetMaxBytes];
  Bytes written(out, out + klxutilWrite_HEVC_SPS(sps.get(), out, 0));
  auto back = std::make_unique<HEVC_SPS_DECODED>();
  zr_bitstream r = over(written);
  qtest::LogCapture log;
  ASSERT_GT(klxutilRead_HEVC_SPS(&r, back.get(), nullptr, 0), 0u);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(back->st_ref_pic_set[2].use_delta_flag[0], 1) << "inferred when used_by_curr_pic_flag is 1";

  qtest::TempDir dir;
  Bytes stream;
  for (const Bytes* unit : {&u.vps, &written, &u.pps}) {
    stream.insert(stream.end(), {0, 0, 0, 1});
    stream.insert(stream.end(), unit->begin(), unit->end());
  }
  qtest::writeBytes(dir.file("rare.hevc"), stream);
  auto traced = ptest::traceHeaders(dir.file("rare.hevc"));
  const ptest::TracedUnit* theirs = ptest::firstOfKind(traced, "Sequence Parameter Set");
  ASSERT_NE(theirs, nullptr);
  for (const char* name : {"used_by_curr_pic_flag", "use_delta_flag", "lt_ref_pic_poc_lsb_sps",
                           "pcm_sample_bit_depth_luma_minus1", "scaling_list_delta_coeff", "implicit_rdpcm_enabled_flag"})
    EXPECT_TRUE(theirs->elements.count(name)) << "ffmpeg did not report " << name;
  EXPECT_GE(ptest::compareElements(listed(klxutilList_HEVC_SPS, back.get()), theirs->elements, "rare SPS"), 70);
}

}  // namespace
