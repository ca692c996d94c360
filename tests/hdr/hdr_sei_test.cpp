// HDR SEI units against the ones x265 and x264 write for the same values (byte for byte), read
// back from their streams, and replaced in real access units of either framing and at the least
// capacity of hand-made frames; the --master-display notation and its ranges.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>

#include "streamutil/hdr_sei.h"
#include "streamutil/nal_units.h"
#include "support/test_support.h"
#include "support/ffmpeg_oracle.h"
#include "hdr/sei_frames.h"

namespace {

using namespace hdrtest;

struct Values {
  const char* masterDisplay;
  uint16_t maxCll, maxFall;
  uint8_t atc;
  const char* atcName;  // x264's spelling
};
const Values kValuesA = {"G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)", 1000, 400, 18,
                         "arib-std-b67"};
const Values kValuesB = {"G(8500,39850)B(6550,2300)R(35400,14600)WP(15635,16450)L(40000000,50)", 4000, 1000, 14,
                         "bt2020-10"};

KLX_HDR_METADATA metadataOf(const Values& v) {
  KLX_HDR_METADATA md{};
  EXPECT_EQ(klxutilParseMasteringDisplay(v.masterDisplay, &md.masteringDisplay), 0);
  md.contentLightLevel = {v.maxCll, v.maxFall};
  md.preferredTransferCharacteristics = v.atc;
  md.present = KLX_HDR_HAS_MASTERING_DISPLAY | KLX_HDR_HAS_CONTENT_LIGHT_LEVEL | KLX_HDR_HAS_ALTERNATIVE_TRANSFER;
  return md;
}

bool sameMetadata(const KLX_HDR_METADATA& a, const KLX_HDR_METADATA& b) {
  return a.present == b.present && !std::memcmp(&a.masteringDisplay, &b.masteringDisplay, sizeof a.masteringDisplay) &&
         !std::memcmp(&a.contentLightLevel, &b.contentLightLevel, sizeof a.contentLightLevel) &&
         a.preferredTransferCharacteristics == b.preferredTransferCharacteristics;
}

struct Encoder {
  const char* name;
  bool hevc;
};
const Encoder kEncoders[] = {{"x265", true}, {"x264", false}};

std::string streamWith(const Encoder& e, const Values& v, const std::string& tag) {
  const std::string source = "-f lavfi -i testsrc2=size=128x96:rate=25 -frames:v 3 ";
  if (e.hevc)
    return qtest::encodedStream("hdr_x265_" + tag + ".hevc",
                                source + "-pix_fmt yuv420p10le -c:v libx265 -x265-params 'log-level=error:master-display=" +
                                    v.masterDisplay + ":max-cll=" + std::to_string(v.maxCll) + "," +
                                    std::to_string(v.maxFall) + ":atc-sei=" + std::to_string(v.atc) + "' -f hevc");
  return qtest::encodedStream("hdr_x264_" + tag + ".h264",
                              source + "-c:v libx264 -x264-params 'mastering-display=" + v.masterDisplay + ":cll=" +
                                  std::to_string(v.maxCll) + "," + std::to_string(v.maxFall) +
                                  ":alternative-transfer=" + v.atcName + "' -f h264");
}

Bytes unitBytes(const Bytes& frame, const KLX_NAL_UNIT& u) {
  Bytes b(frame.begin() + u.offset + u.prefixLength, frame.begin() + u.offset + u.prefixLength + u.size);
  while (!b.empty() && b.back() == 0) b.pop_back();
  return b;
}

// The encoder's SEI unit carrying `payloadType` as its first message.
Bytes encoderUnit(const Bytes& stream, bool hevc, uint32_t payloadType) {
  for (const auto& u : unitsOf(stream, hevc, true)) {
    Bytes b = unitBytes(stream, u);
    const size_t typeAt = hevc ? 2 : 1;
    if (u.type == (hevc ? 39 : 6) && b.size() > typeAt && b[typeAt] == payloadType) return b;
  }
  return {};
}

class HdrSeiInterop : public ::testing::TestWithParam<Encoder> {};

// For each set of values, the encoder's stream: our units equal the encoder's byte for byte, and
// the values are read back from its stream. The encoder's own messages (values A) in its first
// access unit are then replaced by values B, in either framing: one unit per kind afterwards, the
// new values, every other unit kept in order.
TEST_P(HdrSeiInterop, UnitsEqualTheEncodersAndReplaceThemInBothFramings) {
  const Encoder& e = GetParam();
  for (const Values* v : {&kValuesA, &kValuesB}) {
    const Bytes stream = qtest::readBytes(streamWith(e, *v, v == &kValuesA ? "a" : "b"));
    const KLX_HDR_METADATA md = metadataOf(*v);
    for (uint32_t type : {KLX_SEI_MASTERING_DISPLAY, KLX_SEI_CONTENT_LIGHT_LEVEL, KLX_SEI_ALTERNATIVE_TRANSFER}) {
      const Bytes theirs = encoderUnit(stream, e.hevc, type);
      ASSERT_FALSE(theirs.empty()) << e.name << " wrote no payloadType " << type;
      uint8_t ours[64];
      const uint32_t n = klxutilWriteHdrSeiUnit(e.hevc, type, &md, ours, sizeof ours);
      EXPECT_EQ(Bytes(ours, ours + n), theirs) << e.name << " payloadType " << type;
      EXPECT_EQ(klxutilWriteHdrSeiUnit(e.hevc, type, &md, ours, n - 1), 0u) << "one byte short";
    }
    KLX_HDR_METADATA read{};
    ASSERT_EQ(klxutilReadHdrSei(stream.data(), static_cast<uint32_t>(stream.size()), 1, e.hevc, &read), 0);
    EXPECT_TRUE(sameMetadata(read, md)) << e.name << ": values read back";
  }

  const std::string path = streamWith(e, kValuesA, "a");
  const Bytes stream = qtest::readBytes(path);
  qtest::TempDir dir;
  const auto packets = oracle::packetRanges(path);
  const auto samples = oracle::mp4Samples(path, dir.path());
  ASSERT_FALSE(packets.empty());
  const KLX_HDR_METADATA want = metadataOf(kValuesB);
  for (bool startCodes : {true, false}) {
    Bytes frame = startCodes ? Bytes(stream.begin() + static_cast<long>(packets[0].pos),
                                     stream.begin() + static_cast<long>(packets[0].pos + packets[0].size))
                             : samples[0];
    auto kinds = [&](const Bytes& f, bool hdr) {  // HDR SEI payloadTypes, or the other units' types
      std::vector<int> types;
      for (const auto& u : unitsOf(f, e.hevc, startCodes)) {
        const Bytes b = unitBytes(f, u);
        const int payloadType = u.type == (e.hevc ? 39 : 6) && b.size() > 2 ? b[e.hevc ? 2 : 1] : -1;
        if ((payloadType == 137 || payloadType == 144 || payloadType == 147) == hdr) types.push_back(hdr ? payloadType : u.type);
      }
      return types;
    };
    const auto othersBefore = kinds(frame, false);
    uint32_t size = static_cast<uint32_t>(frame.size());
    frame.resize(frame.size() + 60);
    ASSERT_EQ(klxutilSetHdrSei(frame.data(), &size, static_cast<uint32_t>(frame.size()), startCodes, e.hevc, &want), 0);
    frame.resize(size);
    EXPECT_EQ(kinds(frame, false), othersBefore);
    EXPECT_EQ(kinds(frame, true), (std::vector<int>{137, 144, 147}));
    KLX_HDR_METADATA read{};
    ASSERT_EQ(klxutilReadHdrSei(frame.data(), size, startCodes, e.hevc, &read), 0);
    EXPECT_TRUE(sameMetadata(read, want));
    // Exactly the room of the new units is required (freed room is not counted): one short is refused.
    uint32_t needed = 0;
    for (uint32_t type : {KLX_SEI_MASTERING_DISPLAY, KLX_SEI_CONTENT_LIGHT_LEVEL, KLX_SEI_ALTERNATIVE_TRANSFER}) {
      uint8_t unit[64];
      needed += 4 + klxutilWriteHdrSeiUnit(e.hevc, type, &want, unit, sizeof unit);
    }
    frame.resize(size + needed - 1);
    const Bytes kept = frame;
    EXPECT_EQ(klxutilSetHdrSei(frame.data(), &size, size + needed - 1, startCodes, e.hevc, &want), -102);
    EXPECT_EQ(frame, kept);
  }
}

INSTANTIATE_TEST_SUITE_P(Encoders, HdrSeiInterop, ::testing::ValuesIn(kEncoders),
                         [](const auto& info) { return std::string(info.param.name); });

// SEI units of random content (absurd payload sizes, cut messages, 0xFF runs) in buffers of
// exactly their size: the reader and the editor answer with a result code, never out of bounds.
TEST(HdrSeiEdit, HostileSeiUnitsStayInBounds) {
  std::mt19937 rng(137);
  for (int round = 0; round < 3000; ++round) {
    const bool hevc = round % 2;
    Bytes frame = hevc ? Bytes{0, 0, 0, 1, 0x4E, 0x01} : Bytes{0, 0, 0, 1, 0x06};
    const size_t n = rng() % 40;
    for (size_t i = 0; i < n; ++i) {
      const uint32_t r = rng() % 6;
      frame.push_back(r == 0 ? 0xFF : r == 1 ? 137 : r == 2 ? 144 : r == 3 ? 0 : static_cast<uint8_t>(rng()));
    }
    if (rng() % 2) frame.insert(frame.end(), {0, 0, 0, 1, uint8_t(hevc ? 0x26 : 0x65), 0x01, 0x88});
    KLX_HDR_METADATA md{};
    EXPECT_EQ(klxutilReadHdrSei(frame.data(), static_cast<uint32_t>(frame.size()), 1, hevc, &md), 0);
    KLX_HDR_METADATA want{};
    want.present = KLX_HDR_HAS_CONTENT_LIGHT_LEVEL;
    uint32_t size = static_cast<uint32_t>(frame.size());
    const size_t room = rng() % 24;
    frame.resize(frame.size() + room);
    const int rc = klxutilSetHdrSei(frame.data(), &size, static_cast<uint32_t>(frame.size()), 1, hevc, &want);
    EXPECT_TRUE(rc == 0 || rc == -1 || rc == -102) << rc;
    EXPECT_LE(size, frame.size());
  }
}

// ---- klxutilSetHdrSei at the edge of its capacity. The rows are the frames the order of its edits
// exists for: a rewritten (mixed) SEI unit that grows behind an HDR-only unit that goes, a growth
// past the room the new units need, and a mixed unit that shrinks. Each result must equal the one
// obtained with plenty of room, and ffmpeg's trace_headers must read the units and messages left.

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
  KLX_HDR_METADATA md = metadataOf(kValuesB);
  md.present = row.present;
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

// ---- --master-display values outside ITU-T H.265 D.3.28 / H.264 D.2.29 (SMPTE ST 2086) are
// refused by the parser: chromaticities above 50000 (x, y > 1) and a maximum luminance not above
// the minimum (L(min,max) typed the wrong way round). The message `quorvane hdr` prints for them
// is a row of the command's refusal table (tests/media/command_json_test.cpp).
const struct {
  const char* text;
  int result;
} kRangeCases[] = {
    {"G(50000,50000)B(0,0)R(50000,0)WP(50000,50000)L(2,1)", 0},  // the bounds themselves
    {"G(50001,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)", -1},
    {"G(13250,60000)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)", -1},
    {"G(13250,34500)B(50001,3000)R(34000,16000)WP(15635,16450)L(10000000,1)", -1},
    {"G(13250,34500)B(7500,3000)R(34000,50001)WP(15635,16450)L(10000000,1)", -1},
    {"G(13250,34500)B(7500,3000)R(34000,16000)WP(50001,16450)L(10000000,1)", -1},
    {"G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,65535)L(10000000,1)", -1},
    {"G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(1,10000000)", -1},  // min first
    {"G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(500,500)", -1},
    {"G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(4294967295,4294967294)", 0},
    // The notation itself: every part, nothing behind it, numbers that fit their fields.
    {"G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)", -1},
    {"G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)x", -1},
    {"G(65536,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)", -1},
    {"G(-1,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)", -1},
    {"G(1,2)B(3,4)R(5,6)WP(7,8)L(4294967296,1)", -1},
};

TEST(MasteringDisplayRange, ParserKeepsToTheNotationAndTheStandardRanges) {
  for (const auto& c : kRangeCases) {
    KLX_MASTERING_DISPLAY m{};
    EXPECT_EQ(klxutilParseMasteringDisplay(c.text, &m), c.result) << c.text;
  }
  // Spaces between the parts are allowed; the values land green first, red last.
  KLX_MASTERING_DISPLAY m{};
  ASSERT_EQ(klxutilParseMasteringDisplay("G(13250, 34500) B(7500,3000) R(34000,16000) WP(15635,16450) L(10000000,1)", &m), 0);
  EXPECT_EQ(m.display_primaries_x[0], 13250);
  EXPECT_EQ(m.display_primaries_y[2], 16000);
  EXPECT_EQ(m.min_display_mastering_luminance, 1u);
}

}  // namespace
