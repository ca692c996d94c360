// klxutilSetHdrSei on a mixed SEI unit whose HEVC NAL header ends in a zero byte
// (nuh_temporal_id_plus1 0, forbidden, yet read). nal_unit() (ITU-T H.265 7.3.1.1) looks for
// emulation_prevention_three_byte behind the header only, so the rewrite is the header followed by
// the kept messages escaped from the payload's first byte: what the copying replacement wrote.
// Kept messages that begin 00 01 would make a start code with the header's zero: refused in a
// byte stream, written as they are behind a length field. A usual header is the control row, which
// ffmpeg's trace_headers also reads.
#include <gtest/gtest.h>

#include <string>

#include "streamutil/hdr_sei.h"
#include "streamutil/nal_units.h"
#include "support/ffmpeg_oracle.h"
#include "support/test_support.h"
#include "hdr/sei_frames.h"

namespace {

using namespace hdrtest;

struct ZeroHeaderRow {
  const char* name;
  uint8_t headerSecondByte;
  std::vector<Message> messages;  // the unit's, in order
  int annexBResult;               // length-prefixed: always 0
};
void PrintTo(const ZeroHeaderRow& row, std::ostream* os) { *os << row.name; }


const ZeroHeaderRow kRows[] = {
    // The fuzz reproducer's shape: the kept messages begin 00 00 (a type 0 message of size 0).
    {"KeptBeginZeroZero", 0x00, {{0, {}}, kLightLevel, {5, {0x77}}}, 0},
    {"KeptBegin0003", 0x00, {kLightLevel, {0, {3, 1, 2}}}, 0},
    {"KeptBegin0002", 0x00, {kLightLevel, {0, {2, 9}}}, 0},
    {"KeptBegin000000", 0x00, {kTransfer, {0, {}}, {0, {1}}, {5, {0x66}}}, 0},
    {"KeptBegin0001", 0x00, {kLightLevel, {0, {0x55}}}, -1},
    {"UsualHeader", 0x01, {kLightLevel, {5, withUuid({0, 0, 1, 0, 0, 2, 7})}, kTransfer}, 0},
};

Bytes rbspOf(const std::vector<Message>& messages, bool keepHdr) {
  Bytes rbsp;
  for (const Message& m : messages) {
    if (!keepHdr && isHdr(m.type)) continue;
    rbsp.insert(rbsp.end(), {m.type, static_cast<uint8_t>(m.payload.size())});
    rbsp.insert(rbsp.end(), m.payload.begin(), m.payload.end());
  }
  rbsp.push_back(0x80);
  return rbsp;
}

// Header, then the payload escaped from its own first byte (H.265 7.3.1.1).
Bytes unitOf(uint8_t headerSecondByte, const Bytes& rbsp) {
  Bytes unit = {0x4E, headerSecondByte};
  const Bytes payload = qtest::emulationPrevented(rbsp);
  unit.insert(unit.end(), payload.begin(), payload.end());
  return unit;
}



class HdrSeiZeroHeader : public ::testing::TestWithParam<ZeroHeaderRow> {};

TEST_P(HdrSeiZeroHeader, RewriteReadsBackAsTheUnitsKeptMessages) {
  const ZeroHeaderRow& row = GetParam();
  const Picture picture = x265Picture();
  ASSERT_FALSE(picture.slices.empty());
  KLX_HDR_METADATA md{};
  md.contentLightLevel = {4000, 1000};
  md.present = KLX_HDR_HAS_CONTENT_LIGHT_LEVEL;
  uint8_t lightLevelUnit[64];
  const uint32_t lightLevelBytes =
      klxutilWriteHdrSeiUnit(1, KLX_SEI_CONTENT_LIGHT_LEVEL, &md, lightLevelUnit, sizeof lightLevelUnit);
  ASSERT_GT(lightLevelBytes, 0u);
  const Bytes original = unitOf(row.headerSecondByte, rbspOf(row.messages, true));
  const Bytes rewritten = unitOf(row.headerSecondByte, rbspOf(row.messages, false));

  for (bool startCodes : {true, false}) {
    SCOPED_TRACE(startCodes ? "Annex B" : "length-prefixed");
    const Bytes frame = frameOf(picture, {{original, 4}}, startCodes);
    Bytes buffer = frame;
    buffer.resize(frame.size() + 256);
    const Bytes before = buffer;
    auto size = static_cast<uint32_t>(frame.size());
    const int expected = startCodes ? row.annexBResult : 0;
    const auto capacity = static_cast<uint32_t>(buffer.size());
    ASSERT_EQ(klxutilSetHdrSei(buffer.data(), &size, capacity, startCodes, 1, &md), expected);
    if (expected != 0) {
      EXPECT_EQ(size, frame.size());
      EXPECT_EQ(buffer, before) << "refused, yet written";
      continue;
    }
    buffer.resize(size);
    const Bytes newUnit(lightLevelUnit, lightLevelUnit + lightLevelBytes);
    const Bytes want = frameOf(picture, {{rewritten, 4}, {newUnit, 4}}, startCodes);
    EXPECT_EQ(buffer, want);
    KLX_HDR_METADATA back{};
    ASSERT_EQ(klxutilReadHdrSei(buffer.data(), size, startCodes, 1, &back), 0);
    EXPECT_EQ(back.present, KLX_HDR_HAS_CONTENT_LIGHT_LEVEL);
    EXPECT_EQ(back.contentLightLevel.max_content_light_level, 4000);
    EXPECT_EQ(back.contentLightLevel.max_pic_average_light_level, 1000);

    // ffmpeg refuses nuh_temporal_id_plus1 0, so only the usual header is traced.
    if (!startCodes || row.headerSecondByte == 0 || !qtest::haveProgram("ffmpeg")) continue;
    qtest::TempDir dir;
    qtest::writeBytes(dir.file("out.hevc"), buffer);
    std::vector<oracle::SeiMessage> seis;
    for (const oracle::TracedUnit& u : oracle::traceUnits(dir.file("out.hevc")))
      seis.insert(seis.end(), u.seis.begin(), u.seis.end());
    std::vector<oracle::SeiMessage> wantSeis;
    for (const Message& m : row.messages)
      if (!isHdr(m.type)) wantSeis.push_back({m.type, static_cast<int>(m.payload.size())});
    wantSeis.push_back({144, 4});
    EXPECT_EQ(seis, wantSeis);
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, HdrSeiZeroHeader, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
