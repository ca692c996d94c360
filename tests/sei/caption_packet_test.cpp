#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "streamutil/captions.h"
#include "streamutil/dframe.h"

namespace {

// Accepted exactly when the fixed header fits, the data count is not below its bias and the CDP
// length (0: not given) stays inside the packet: more caption bytes than it holds pass, each
// writer cuts them. Each packet is a buffer of exactly its length, so ASan sees any overread.
TEST(CaptionPacketCheck, RandomPacketsNeverReadPastTheirEnd) {
  std::mt19937 rng(608);
  for (int i = 0; i < 5000; ++i) {
    const uint32_t length = rng() % 300;
    std::vector<uint8_t> packet(length);
    for (auto& b : packet) b = uint8_t(rng());
    const int result = copy_zrccCheck608708(packet.empty() ? nullptr : packet.data(), length);
    const bool fits = length >= 16 && packet[6] >= 7 && (packet[9] == 0 || 7u + packet[9] <= length);
    ASSERT_EQ(result, fits ? 0 : -1) << length;
  }
  EXPECT_EQ(copy_zrccCheck608708(nullptr, 100), -1);
}

TEST(CaptionPacket, BuiltPacketsPassTheCheckAndCarryAValidCdp) {
  std::mt19937 rng(708);
  for (uint32_t cc = 0; cc <= 31; ++cc) {
    std::vector<uint8_t> triplets(cc * 3);
    for (auto& b : triplets) b = uint8_t(rng());
    std::vector<uint8_t> packet(200, 0xEE);
    const uint32_t n = klxutilMakeCaptionPacket(packet.data(), uint32_t(packet.size()), triplets.data(), cc,
                                                CDP_RATE_29_97, uint16_t(0x1234 + cc));
    ASSERT_EQ(n, 20 + 3 * cc);
    EXPECT_EQ(copy_zrccCheck608708(packet.data(), n), 0);
    EXPECT_EQ(packet[6], 3 * cc + 7);
    EXPECT_EQ(packet[7], 0x96);
    EXPECT_EQ(packet[8], 0x69);
    EXPECT_EQ(packet[9], n - 7);  // cdp_length: the whole CDP
    EXPECT_EQ(packet[10] >> 4, 4);
    EXPECT_EQ(packet[14], 0x72);
    EXPECT_EQ(packet[15], 0xE0 | cc);
    EXPECT_TRUE(std::equal(triplets.begin(), triplets.end(), packet.begin() + 16));
    EXPECT_EQ(packet[16 + 3 * cc], 0x74);
    uint32_t sum = 0;
    for (uint32_t i = 7; i < n; ++i) sum += packet[i];
    EXPECT_EQ(sum % 256, 0u) << "checksum, cc " << cc;
    EXPECT_EQ(packet[n], 0xEE) << "nothing written past the packet";
    // One byte too little room: refused, nothing written.
    std::vector<uint8_t> small(n - 1, 0xEE);
    EXPECT_EQ(klxutilMakeCaptionPacket(small.data(), n - 1, triplets.data(), cc, CDP_RATE_29_97, 0), 0u);
    EXPECT_EQ(small, std::vector<uint8_t>(n - 1, 0xEE));
  }
  uint8_t out[300], none[96] = {};
  EXPECT_EQ(klxutilMakeCaptionPacket(out, sizeof out, none, 32, CDP_RATE_25, 0), 0u);  // cc_count is 5 bits
}

TEST(FrameTimecode, FirstSetSlotWins) {
  struct Case {
    uint32_t tc, alt, frame, expected;
  };
  const Case cases[] = {
      {100, 200, 300, 100},
      {DFRAME_NOT_SET, 200, 300, 200},
      {DFRAME_NOT_SET, DFRAME_NOT_SET, 300, 300},
      {0, 200, 300, 0},  // 0 is a timecode, not "unset"
      {DFRAME_NOT_SET, DFRAME_NOT_SET, DFRAME_NOT_SET, DFRAME_NOT_SET},
  };
  for (const auto& c : cases) {
    DFRAME f;
    klxutilInitFrame(&f, nullptr, 0, 0);
    f.nTimecode = c.tc;
    f.nTimecodeAlt = c.alt;
    f.nFrame = c.frame;
    EXPECT_EQ(klxFrameTimecode(&f), c.expected);
  }
  DFRAME fresh;
  klxutilInitFrame(&fresh, nullptr, 0, 0);
  fresh.nFrame = 42;
  EXPECT_EQ(klxFrameTimecode(&fresh), 42u) << "a fresh frame has both timecodes unset";
}

}  // namespace
