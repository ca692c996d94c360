// Frame-wide NAL unit search and insertion: the unit lists of real x264/x265 streams against
// ffmpeg's trace_headers in both framings, insertion/removal round trips, and hostile frames in
// buffers of exactly their size.
#include <gtest/gtest.h>

#include <random>

#include "streamutil/nal_units.h"
#include "support/test_support.h"
#include "support/ffmpeg_oracle.h"
#include "hdr/sei_frames.h"

namespace {

using Bytes = std::vector<uint8_t>;

using hdrtest::unitsOf;

oracle::TracedUnit asTraced(const Bytes& frame, const KLX_NAL_UNIT& u, bool hevc) {
  oracle::TracedUnit t;
  t.forbiddenZeroBit = frame[u.offset + u.prefixLength] >> 7;
  t.nalUnitType = u.type;
  if (hevc) {
    t.nuhLayerId = u.layer;
    t.temporalId = u.temporalId;
  } else {
    t.nalRefIdc = u.nalRefIdc;
  }
  return t;
}

std::vector<oracle::TracedUnit> withoutSei(std::vector<oracle::TracedUnit> units) {
  for (auto& u : units) u.seis.clear();
  return units;
}

// A real stream's packets as ffmpeg's parser cuts them (Annex B) and as its MP4 muxer stores them.
class FrameWideSearch : public ::testing::TestWithParam<oracle::Stream> {
 protected:
  void SetUp() override {
    const std::string path = qtest::encodedStream(GetParam().name, GetParam().ffmpegArgs);
    ASSERT_FALSE(path.empty());
    traced_ = withoutSei(oracle::traceUnits(path));
    const Bytes stream = qtest::readBytes(path);
    for (const auto& r : oracle::packetRanges(path))
      packets_.emplace_back(stream.begin() + static_cast<long>(r.pos), stream.begin() + static_cast<long>(r.pos + r.size));
    samples_ = oracle::mp4Samples(path, dir_.path());
    ASSERT_EQ(samples_.size(), packets_.size());
  }
  // Packet `i` in either framing.
  const Bytes& frame(size_t i, bool startCodes) const { return startCodes ? packets_[i] : samples_[i]; }
  qtest::TempDir dir_;
  std::vector<oracle::TracedUnit> traced_;
  std::vector<Bytes> packets_, samples_;
};

TEST_P(FrameWideSearch, AgreesWithTraceHeadersInBothFramings) {
  const bool hevc = GetParam().hevc;
  ASSERT_FALSE(traced_.empty());
  for (bool startCodes : {true, false}) {
    std::vector<oracle::TracedUnit> listed;
    for (size_t i = 0; i < packets_.size(); ++i) {
      int rc = 0;
      for (const auto& u : unitsOf(frame(i, startCodes), hevc, startCodes, &rc)) listed.push_back(asTraced(frame(i, startCodes), u, hevc));
      EXPECT_EQ(rc, KLX_NAL_OK);
    }
    EXPECT_EQ(listed, traced_) << (startCodes ? "Annex B" : "length-prefixed");
  }
}

// Inserting two units anywhere in a real frame, in either framing, finds them back at that index
// and removing them gives the frame back byte for byte.
TEST_P(FrameWideSearch, InsertionRoundTripsAtEveryIndex) {
  const auto& s = GetParam();
  const Bytes first = {uint8_t(s.hevc ? 0x46 : 0x09), 0x01, 0x50};  // an access unit delimiter
  const Bytes second = {uint8_t(s.hevc ? 0x4E : 0x06), 0x01, 0x05, 0x00, 0x00, 0x03, 0x01, 0x80};
  const uint8_t* units[] = {first.data(), second.data()};
  const uint32_t sizes[] = {3, 8};
  for (size_t p = 0; p < 3 && p < packets_.size(); ++p) {
    for (bool startCodes : {true, false}) {
      const Bytes& original = frame(p, startCodes);
      const auto before = unitsOf(original, s.hevc, startCodes);
      for (uint32_t index = 0; index <= before.size(); ++index) {
        Bytes frame = original;
        frame.resize(original.size() + 19);  // exactly the room needed
        uint32_t size = static_cast<uint32_t>(original.size());
        ASSERT_EQ(klxutilAddNalUnitsChecked(frame.data(), &size, static_cast<uint32_t>(frame.size()), startCodes, index,
                                            units, sizes, 2),
                  KLX_NAL_OK);
        ASSERT_EQ(size, frame.size());
        const auto after = unitsOf(frame, s.hevc, startCodes);
        ASSERT_EQ(after.size(), before.size() + 2);
        EXPECT_EQ(after[index].size, 3u);
        EXPECT_EQ(after[index + 1].size, 8u);
        EXPECT_EQ(Bytes(frame.begin() + after[index + 1].offset + 4, frame.begin() + after[index + 1].offset + 12), second);
        ASSERT_EQ(klxutilRemoveNalUnits(frame.data(), &size, startCodes, index, 2), KLX_NAL_OK);
        frame.resize(size);
        EXPECT_EQ(frame, original) << "index " << index << (startCodes ? " Annex B" : " length-prefixed");
      }
      // One byte short: refused, untouched.
      Bytes frame = original;
      frame.resize(original.size() + 18);
      uint32_t size = static_cast<uint32_t>(original.size());
      EXPECT_EQ(klxutilAddNalUnitsChecked(frame.data(), &size, static_cast<uint32_t>(frame.size()), startCodes, 0, units,
                                          sizes, 2),
                KLX_NAL_NO_ROOM);
      EXPECT_EQ(size, original.size());
      EXPECT_TRUE(std::equal(original.begin(), original.end(), frame.begin()));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(RealStreams, FrameWideSearch, ::testing::ValuesIn(oracle::kStreams),
                         [](const auto& info) {
                           std::string n = info.param.name;
                           for (auto& c : n)
                             if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                           return n;
                         });

struct HostileCase {
  const char* name;
  Bytes frame;
  bool startCodes;
  int result;
  uint32_t count;
};

TEST(FrameWideSearchEdges, TableOfHostileAndEdgeFrames) {
  const HostileCase cases[] = {
      {"length past the end", {0, 0, 0, 5, 0x40, 1}, false, KLX_NAL_BAD, 0},
      {"second length absurd", {0, 0, 0, 2, 0x40, 1, 0xFF, 0xFF, 0xFF, 0xF0, 0x4E}, false, KLX_NAL_BAD, 1},
      {"cut length field", {0, 0, 0, 2, 0x40, 1, 0, 0}, false, KLX_NAL_OK, 1},
      {"cut length field, not zero", {0, 0, 0, 2, 0x40, 1, 0, 7}, false, KLX_NAL_BAD, 1},
      {"zero padding ends the chain", {0, 0, 0, 2, 0x40, 1, 0, 0, 0, 0, 0, 0}, false, KLX_NAL_OK, 1},
      {"no start code", {0x40, 1, 2, 3}, true, KLX_NAL_OK, 0},
      {"start code at the very end", {0, 0, 1, 0x40, 1, 0, 0, 1}, true, KLX_NAL_OK, 1},
      {"leading garbage is not a unit", {7, 7, 0, 0, 1, 0x40, 1}, true, KLX_NAL_OK, 1},
      {"one-byte HEVC header", {0, 0, 0, 1, 0x40, 0, 0, 1, 0x4E}, true, KLX_NAL_OK, 2},
      {"empty", {}, true, KLX_NAL_OK, 0},
  };
  for (const auto& c : cases) {
    int rc = 0;
    auto units = unitsOf(c.frame, true, c.startCodes, &rc);
    EXPECT_EQ(rc, c.result) << c.name;
    EXPECT_EQ(units.size(), c.count) << c.name;
  }
  // The one-byte header reads its missing second byte as 0: temporal id -1.
  auto units = unitsOf(cases[8].frame, true, true);
  ASSERT_EQ(units.size(), 2u);
  EXPECT_EQ(units[1].temporalId, -1);
  // A table too small still counts every unit.
  const Bytes three = {0, 0, 1, 0x40, 1, 0, 0, 1, 0x42, 1, 0, 0, 1, 0x44, 1};
  KLX_NAL_UNIT one[1];
  uint32_t count = 0;
  EXPECT_EQ(klxutilFindNalUnitsHevc(three.data(), 15, 1, one, 1, &count), KLX_NAL_NO_ROOM);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(one[0].type, 32);
  // Index beyond the units, empty units and null arguments are refused.
  Bytes frame = three;
  frame.resize(64);
  uint32_t size = 15;
  const uint8_t aud[] = {0x46, 1, 0x50};
  const uint8_t* list[] = {aud};
  uint32_t sizes[] = {3};
  EXPECT_EQ(klxutilAddNalUnitsChecked(frame.data(), &size, 64, 1, 4, list, sizes, 1), KLX_NAL_BAD);
  sizes[0] = 0;
  EXPECT_EQ(klxutilAddNalUnitsChecked(frame.data(), &size, 64, 1, 0, list, sizes, 1), KLX_NAL_BAD);
  EXPECT_EQ(klxutilAddNalUnitsChecked(nullptr, &size, 64, 1, 0, list, sizes, 1), KLX_NAL_BAD);
  EXPECT_EQ(klxutilRemoveNalUnits(frame.data(), &size, 1, 2, 2), KLX_NAL_BAD);
  EXPECT_EQ(size, 15u);
}

// Random frames in buffers of exactly their size (ASan checks every access): the units found
// lie inside the frame in order, never overlapping, and edits stay inside the capacity.
TEST(FrameWideSearchEdges, RandomFramesStayInBounds) {
  std::mt19937 rng(13);
  for (int round = 0; round < 4000; ++round) {
    const size_t n = rng() % 96;
    Bytes frame(n);
    for (auto& b : frame) {
      const uint32_t r = rng() % 8;
      b = r < 3 ? 0 : r == 3 ? 1 : static_cast<uint8_t>(rng());
    }
    const bool startCodes = rng() % 2;
    const auto units = unitsOf(frame, round % 3 == 0, startCodes);
    uint64_t previousEnd = 0;
    for (const auto& u : units) {
      ASSERT_LE(uint64_t{u.offset} + u.prefixLength + u.size, n);
      ASSERT_GE(u.size, 1u);
      ASSERT_GE(u.offset, previousEnd);
      previousEnd = uint64_t{u.offset} + u.prefixLength + u.size;
    }
    const uint8_t unit[] = {0x4E, 1, 0x80};
    const uint8_t* list[] = {unit};
    const uint32_t sizes[] = {3};
    uint32_t size = static_cast<uint32_t>(n);
    const uint32_t index = units.empty() ? 0 : static_cast<uint32_t>(rng() % (units.size() + 1));
    const int added = klxutilAddNalUnitsChecked(frame.data(), &size, static_cast<uint32_t>(n), startCodes, index, list, sizes, 1);
    EXPECT_TRUE(added == KLX_NAL_NO_ROOM || added == KLX_NAL_BAD);
    if (!units.empty()) {
      size = static_cast<uint32_t>(n);
      ASSERT_EQ(klxutilRemoveNalUnits(frame.data(), &size, startCodes, 0, static_cast<uint32_t>(units.size())), KLX_NAL_OK);
      ASSERT_LE(size, n);
    }
  }
}

}  // namespace
