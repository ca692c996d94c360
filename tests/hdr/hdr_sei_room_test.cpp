// klxutilSetHdrSei at the edge of its capacity. The rows are the frames the order of its edits
// exists for: a rewritten (mixed) SEI unit that grows behind an HDR-only unit that goes, a growth
// past the room the new units need, and a mixed unit that shrinks. Each result must equal the one
// obtained with plenty of room, and ffmpeg's trace_headers must read the units and messages left.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "streamutil/hdr_sei.h"
#include "streamutil/nal_units.h"
#include "support/ffmpeg_oracle.h"
#include "support/test_support.h"
#include "hdr/sei_frames.h"

namespace {

using namespace hdrtest;

// A prefix SEI unit behind a 3- or 4-byte start code. `escaped` false keeps the zero run the
// payload carries as it is: the unit walk splits only at 00 00 01, so such a unit is read, and its
// rewrite gains an 03 for every two of those zeros.
struct SeiUnit {
  std::vector<Message> messages;
  int startCode;
  bool escaped;
  Bytes bytes() const {
    Bytes rbsp = {0x4E, 0x01};
    for (const Message& m : messages) {
      rbsp.insert(rbsp.end(), {m.type, static_cast<uint8_t>(m.payload.size())});
      rbsp.insert(rbsp.end(), m.payload.begin(), m.payload.end());
    }
    rbsp.push_back(0x80);
    return escaped ? qtest::emulationPrevented(rbsp) : rbsp;
  }
};

const Bytes kMastering(24, 0x11);
const Message kZeroRun = {5, withUuid(Bytes(16, 0))};  // 16 zeros: 7 escapes in the rewrite

constexpr uint32_t kAll = KLX_HDR_HAS_MASTERING_DISPLAY | KLX_HDR_HAS_CONTENT_LIGHT_LEVEL | KLX_HDR_HAS_ALTERNATIVE_TRANSFER;

struct RoomRow {
  const char* name;
  std::vector<SeiUnit> sei;  // between the parameter sets and the slice
  uint32_t present;
  bool outgrowsNewUnits;     // final size > frame + new units: the rewrite grows by more than what goes
  int capacityBeyondLeast;   // capacity = max(frame + new units, final size) + this
  int result;
};
void PrintTo(const RoomRow& row, std::ostream* os) { *os << row.name; }

const SeiUnit kOnlyMastering = {{{137, kMastering}}, 4, true};
const SeiUnit kGrowing = {{kZeroRun, kTransfer}, 3, false};  // +7 escapes +1 start code -3 message
const RoomRow kRows[] = {
    // The frame at exactly its capacity: fits only when the unit in front goes before the one behind grows.
    {"MixedGrowsBehindRemovedUnitOnlyRemoval", {kOnlyMastering, kGrowing}, 0, false, 0, 0},
    {"MixedGrowsBehindRemovedUnit", {kOnlyMastering, kGrowing}, kAll, false, 0, 0},
    {"MixedGrowsOneByteShort", {kGrowing}, KLX_HDR_HAS_CONTENT_LIGHT_LEVEL, true, -1, -102},
    {"MixedGrowsExactly", {kGrowing}, KLX_HDR_HAS_CONTENT_LIGHT_LEVEL, true, 0, 0},
    {"MixedShrinks",
     {{{{5, withUuid({0, 0, 1, 7})}, kLightLevel, {5, withUuid({0, 0, 2})}, kTransfer}, 3, true}, kOnlyMastering},
     kAll, false, 0, 0},
};


Bytes frameOf(const Picture& p, const RoomRow& row, bool startCodes) {
  std::vector<std::pair<Bytes, int>> sei;
  for (const SeiUnit& s : row.sei) sei.emplace_back(s.bytes(), s.startCode);
  return hdrtest::frameOf(p, sei, startCodes);
}

KLX_HDR_METADATA metadata(uint32_t present) {
  KLX_HDR_METADATA md{};
  EXPECT_EQ(klxutilParseMasteringDisplay("G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)",
                                         &md.masteringDisplay), 0);
  md.contentLightLevel = {4000, 1000};
  md.preferredTransferCharacteristics = 14;
  md.present = present;
  return md;
}

// The units trace_headers should read: parameter sets, the rows' units without their HDR
// messages (a unit left without messages gone), one unit per new message, the slices.
std::vector<oracle::TracedUnit> expectedTrace(const Picture& p, const RoomRow& row) {
  std::vector<oracle::TracedUnit> want;
  auto unit = [&](int type, std::vector<oracle::SeiMessage> seis) {
    oracle::TracedUnit u;
    u.nalUnitType = type;
    u.seis = std::move(seis);
    want.push_back(u);
  };
  for (const Bytes& b : p.parameterSets) unit((b[0] >> 1) & 0x3F, {});
  for (const SeiUnit& s : row.sei) {
    std::vector<oracle::SeiMessage> kept;
    for (const Message& m : s.messages)
      if (!isHdr(m.type)) kept.push_back({m.type, static_cast<int>(m.payload.size())});
    if (!kept.empty()) unit(39, kept);
  }
  const std::pair<uint32_t, oracle::SeiMessage> added[] = {
      {KLX_HDR_HAS_MASTERING_DISPLAY, {137, 24}}, {KLX_HDR_HAS_CONTENT_LIGHT_LEVEL, {144, 4}}, {KLX_HDR_HAS_ALTERNATIVE_TRANSFER, {147, 1}}};
  for (const auto& [bit, message] : added)
    if (row.present & bit) unit(39, {message});
  for (const Bytes& b : p.slices) unit((b[0] >> 1) & 0x3F, {});
  return want;
}

class HdrSeiRoom : public ::testing::TestWithParam<RoomRow> {};

TEST_P(HdrSeiRoom, LeastCapacityGivesThePlentyOfRoomResult) {
  const RoomRow& row = GetParam();
  const Picture picture = x265Picture();
  ASSERT_FALSE(picture.slices.empty());
  const KLX_HDR_METADATA md = metadata(row.present);
  uint32_t newUnits = 0;
  for (const auto& [type, bit] : {std::pair{KLX_SEI_MASTERING_DISPLAY, KLX_HDR_HAS_MASTERING_DISPLAY},
                                  std::pair{KLX_SEI_CONTENT_LIGHT_LEVEL, KLX_HDR_HAS_CONTENT_LIGHT_LEVEL},
                                  std::pair{KLX_SEI_ALTERNATIVE_TRANSFER, KLX_HDR_HAS_ALTERNATIVE_TRANSFER}}) {
    uint8_t unit[64];
    if (md.present & bit) newUnits += 4 + klxutilWriteHdrSeiUnit(1, type, &md, unit, sizeof unit);
  }
  for (bool startCodes : {true, false}) {
    SCOPED_TRACE(startCodes ? "Annex B" : "length-prefixed");
    const Bytes frame = frameOf(picture, row, startCodes);
    const auto frameSize = static_cast<uint32_t>(frame.size());
    Bytes roomy = frame;
    roomy.resize(frame.size() + 4096);
    uint32_t finalSize = frameSize;
    ASSERT_EQ(klxutilSetHdrSei(roomy.data(), &finalSize, static_cast<uint32_t>(roomy.size()), startCodes, 1, &md), 0);
    roomy.resize(finalSize);
    EXPECT_EQ(finalSize > frameSize + newUnits, row.outgrowsNewUnits) << "final size " << finalSize;

    // The buffer is exactly the capacity: ASan reports any write past it.
    const auto capacity = static_cast<uint32_t>(std::max(frameSize + newUnits, finalSize) + row.capacityBeyondLeast);
    Bytes tight = frame;
    tight.resize(capacity);
    const Bytes before = tight;
    uint32_t size = frameSize;
    ASSERT_EQ(klxutilSetHdrSei(tight.data(), &size, capacity, startCodes, 1, &md), row.result);
    if (row.result != 0) {
      EXPECT_EQ(size, frameSize);
      EXPECT_EQ(tight, before) << "refused, yet written";
      continue;
    }
    EXPECT_EQ(Bytes(tight.begin(), tight.begin() + size), roomy);
    if (!startCodes || !qtest::haveProgram("ffmpeg")) continue;
    qtest::TempDir dir;
    qtest::writeBytes(dir.file("out.hevc"), roomy);
    std::vector<oracle::TracedUnit> traced = oracle::traceUnits(dir.file("out.hevc"));
    for (auto& u : traced) u = oracle::TracedUnit{-1, -1, u.nalUnitType, -1, -1, u.seis};
    EXPECT_EQ(traced, expectedTrace(picture, row));
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, HdrSeiRoom, ::testing::ValuesIn(kRows), [](const auto& info) { return std::string(info.param.name); });

}  // namespace
