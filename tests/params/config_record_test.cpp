// hvcC against the box ffmpeg writes when it remuxes our test streams into MP4 (the library's and
// the hvcc command's), and the reader's documented results.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "support/mp4_box.h"
#include "support/param_streams.h"
#include "streamutil/hevc_config_record.h"
#include "support/test_support.h"

namespace {

using ptest::Bytes;

using ptest::over;
using StreamUnits = ptest::HevcUnits;

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
  for (int i = 0; i < 4; ++i) b[i] = static_cast<uint8_t>(size >> (24 - 8 * i));
  std::memcpy(&b[4], "hvcC", 4);
  std::copy(record.begin(), record.end(), b.begin() + 8);
  return b;
}

struct Case {
  const char* name;
  const char* pixelFormat;
  const char* x265Params;
  const char* size;
};
const Case kCases[] = {
    {"main_hrd", "yuv420p", "hrd=1:vbv-maxrate=500:vbv-bufsize=500", "64x64"},
    {"main10", "yuv420p10le", "", "64x64"},
    {"main422_10", "yuv422p10le", "", "64x64"},
    {"main444", "yuv444p", "", "64x64"},
    {"two_sub_layers", "yuv420p", "temporal-layers=1:bframes=2", "64x64"},
    {"vui_kitchen_sink", "yuv420p", "sar=5:7:overscan=show:chromaloc=1:display-window=8,0,0,8:videoformat=pal", "96x64"},
};

class HvccFromFfmpeg : public ::testing::TestWithParam<Case> {};

TEST_P(HvccFromFfmpeg, WriterMatchesAndReaderAgrees) {
  const Case& c = GetParam();
  StreamUnits u = ptest::hevcUnits(ptest::x265Stream(c.name, c.pixelFormat, c.x265Params, c.size));
  ASSERT_FALSE(u.sps.empty());
  Bytes box = qtest::remuxedBox(u.path, "hvcC");
  ASSERT_GT(box.size(), 8u + 23u);

  // Ours: header filled from the parsed parameter sets, arrays from the stream's own units.
  auto vps = ptest::readHevcUnit<HEVC_VPS_DECODED>(u.vps);
  auto sps = ptest::readHevcUnit<HEVC_SPS_DECODED>(u.sps);
  auto pps = ptest::readHevcUnit<HEVC_PPS_DECODED>(u.pps);
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
  EXPECT_EQ(ours, theirs) << c.name << ": header fields and the three arrays";
  qtest::TempDir dir;
  ASSERT_EQ(qtest::runTool("hvcc " + qtest::shellQuote(u.path) + " -o " + qtest::shellQuote(dir.file("h.bin"))).exitCode, 0);
  EXPECT_EQ(qtest::readBytes(dir.file("h.bin")), boxOf(ours)) << "the hvcc command's box holds the same record";

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
}

INSTANTIATE_TEST_SUITE_P(X265, HvccFromFfmpeg, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

StreamUnits mainUnits() { return ptest::hevcUnits(ptest::x265Stream(kCases[0].name, kCases[0].pixelFormat, kCases[0].x265Params, kCases[0].size)); }

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
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].text.rfind("Hevc read is past end of bitstream klxvidutil ", 0), 0u);
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

}  // namespace
