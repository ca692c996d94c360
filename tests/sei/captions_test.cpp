#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "sei_support.h"
#include "streamutil/captions.h"
#include "streamutil/dframe.h"
#include "support/edit_support.h"

namespace {

using qtest::Bytes;
using qtest::cat;
using qtest::frameOver;

// A caption packet of `length` bytes announcing `captionBytes` caption bytes; triplet bytes
// count up from 0xC0 so that copies can be checked.
Bytes packetOf(uint32_t captionBytes, uint32_t length) {
  Bytes p(length, 0);
  p[CC_PACKET_DATA_COUNT] = uint8_t(captionBytes + CC_PACKET_COUNT_BIAS);
  for (uint32_t i = CC_PACKET_TRIPLETS; i < length; ++i) p[i] = uint8_t(0xC0 + i - CC_PACKET_TRIPLETS);
  return p;
}

// The ATSC A/53 caption message (payloadType 4, size, payload) and the trailing bits, built here
// independently of the writers.
Bytes a53Message(const Bytes& packet, size_t tripletsAt, uint32_t ccCount) {
  const Bytes payload = cat({{0xB5, 0x00, 0x31, 'G', 'A', '9', '4', 0x03, uint8_t(0xC0 | ccCount), 0xFF},
                             Bytes(packet.begin() + long(tripletsAt), packet.begin() + long(tripletsAt + 3 * ccCount)), {0xFF}});
  return cat({{0x04, uint8_t(payload.size())}, payload, {0x80}});
}
Bytes expectedAvcSei(const Bytes& packet, uint32_t ccCount) { return cat({{0, 0, 0, 1, 0x06}, a53Message(packet, 16, ccCount)}); }

// A frame record over `buffer` (or none) carrying the first `length` bytes of the caption packet.
DFRAME withCaption(const Bytes& packet, uint32_t length, Bytes* buffer = nullptr, size_t dataSize = 0) {
  DFRAME f;
  klxutilInitFrame(&f, buffer ? buffer->data() : nullptr, uint32_t(dataSize), buffer ? uint32_t(buffer->size()) : 0);
  f.pCaption = const_cast<uint8_t*>(packet.data());
  f.nCaptionSize = length;
  return f;
}

const Bytes kAud = {0, 0, 0, 1, 0x09, 0xF0};
const Bytes kSps = {0, 0, 0, 1, 0x67, 0x64, 0x00, 0x0C, 0xAC};
const Bytes kPps = {0, 0, 0, 1, 0x68, 0xEB, 0xE3, 0xCB};
const Bytes kPps3 = {0, 0, 1, 0x68, 0xEB, 0xE3, 0xCB};
const Bytes kSeiX264 = {0, 0, 1, 0x06, 0x05, 0x01, 0xAA, 0x80};
const Bytes kIdr = {0, 0, 0, 1, 0x65, 0x88, 0x84, 0x00, 0x33};
const Bytes kSlice = {0, 0, 1, 0x41, 0x9A, 0x21};

Bytes lengthPrefixed(std::initializer_list<Bytes> units) {
  Bytes out;
  for (const auto& u : units) {
    out.insert(out.end(), {0, 0, 0, uint8_t(u.size())});
    out.insert(out.end(), u.begin(), u.end());
  }
  return out;
}

// Where the SEI must land, in start-code and in length-prefixed frames, and how many triplets it
// takes from the packet.
TEST(AvcCaptions, InsertionPointsInBothFramings) {
  Bytes big(300, 0x55);  // slice data without zero bytes, to push the scan past 256
  const Bytes bigSlice = cat({Bytes{0, 0, 0, 1, 0x41}, big});
  const Bytes aud = {0x09, 0xF0}, sps = {0x67, 0x64, 0x00, 0x0C}, pps = {0x68, 0xEB, 0xE3};
  const Bytes sei = {0x06, 0x05, 0x01, 0xAA, 0x80}, idr = {0x65, 0x88, 0x84};
  struct Case {
    const char* name;
    Bytes frame;
    size_t at;
    bool lengthPrefixed;
    uint32_t captionBytes, length, ccCount;
  };
  const Bytes plain = cat({kSps, kPps, kIdr});
  const Case cases[] = {
      {"SPS PPS IDR: in front of the slice's start code", plain, 17, false, 9, 40, 3},
      {"AUD SPS PPS(3-byte) SEI IDR: in front of the SEI", cat({kAud, kSps, kPps3, kSeiX264, kIdr}), 22, false, 9, 40, 3},
      {"AUD then a long slice: position 6", cat({kAud, bigSlice}), 6, false, 9, 40, 3},
      {"AUD then a short slice: behind the AUD", cat({kAud, kSlice}), 6, false, 9, 40, 3},
      {"a short slice alone: in front", kSlice, 0, false, 9, 40, 3},
      {"AUD SPS PPS IDR: right behind the PPS", lengthPrefixed({aud, sps, pps, idr}), 6 + 8 + 7, true, 9, 40, 3},
      {"SPS PPS AUD IDR: behind the PPS", lengthPrefixed({sps, pps, aud, idr}), 8 + 7, true, 9, 40, 3},
      {"AUD SEI SPS PPS: in front of the SEI", lengthPrefixed({aud, sei, sps, pps, idr}), 6, true, 9, 40, 3},
      {"40 caption bytes: capped at 30, 10 triplets", plain, 17, false, 40, 56, 10},
      {"the packet holds 30 of 40: still 10", plain, 17, false, 40, 46, 10},
      {"7 bytes: cut to whole triplets", plain, 17, false, 7, 23, 2},
      {"under one triplet", plain, 17, false, 2, 18, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const Bytes packet = packetOf(c.captionBytes, c.length);
    Bytes buffer = c.frame;
    buffer.resize(c.frame.size() + 400, 0xEE);
    DFRAME f = frameOver(buffer, c.frame.size());
    ASSERT_EQ(klxutilAddAVCCaptions(&f, packet.data(), uint32_t(packet.size()), c.lengthPrefixed), 0);
    Bytes unit = expectedAvcSei(packet, c.ccCount);
    if (c.lengthPrefixed) unit[3] = uint8_t(unit.size() - 4);  // the length prefix
    Bytes expected = c.frame;
    expected.insert(expected.begin() + long(c.at), unit.begin(), unit.end());
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + f.nDataSize), expected);
  }
}

TEST(AvcCaptions, RefusalsLeaveTheFrameUntouched) {
  const Bytes frame = cat({kSps, kPps, kIdr});
  const Bytes packet = packetOf(6, 30);
  struct Case {
    const char* name;
    const uint8_t* packet;
    uint32_t length;
    uint32_t room;
    int result;
    const char* message;
  };
  const Case cases[] = {
      {"empty packet", packet.data(), 0, 400, 0, nullptr},
      {"null packet", nullptr, 30, 400, -1, nullptr},
      {"rejected packet (shorter than its header)", packet.data(), 15, 400, -1, nullptr},
      {"one byte short of room", packet.data(), 30, 6 + 285 - 1, KLX_CC_NO_ROOM, "No Allocation for CC Data"},
      {"exactly enough room", packet.data(), 30, 6 + 285, 0, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes buffer = frame;
    buffer.resize(frame.size() + c.room, 0xEE);
    const Bytes before = buffer;
    DFRAME f = frameOver(buffer, frame.size());
    qtest::LogCapture log;
    EXPECT_EQ(klxutilAddAVCCaptions(&f, c.packet, c.length, 0), c.result);
    if (c.message) {
      EXPECT_TRUE(log.contains(c.message));
    }
    if (c.result != 0 || c.length == 0) {
      EXPECT_EQ(buffer, before);
      EXPECT_EQ(f.nDataSize, frame.size());
    }
  }
  EXPECT_EQ(klxutilAddAVCCaptions(nullptr, packet.data(), 30, 0), -1);
}

TEST(Mpeg2Captions, BlockBytesAndPlacement) {
  const Bytes picture = {0, 0, 1, 0xB3, 0x0A, 0x00, 0x5A, 0x13, 0, 0, 1, 0x00, 0x00, 0x0F};
  for (uint32_t captionBytes : {6u, 7u, 40u, 0u}) {
    const Bytes packet = packetOf(captionBytes, 16 + captionBytes + 4);
    Bytes buffer = picture;
    buffer.resize(picture.size() + packet.size() + 285, 0xEE);
    DFRAME f = withCaption(packet, uint32_t(packet.size()), &buffer, picture.size());
    ASSERT_EQ(klxutilAddMPEG2Captions(&f), 0);
    Bytes expected = {0, 0, 0, 1, 0xB2, 'G', 'A', '9', '4', 0x03, uint8_t(captionBytes / 3), 0xFF};
    expected.insert(expected.end(), packet.begin() + 16, packet.begin() + 16 + captionBytes);
    expected.push_back(0xFF);
    expected.insert(expected.end(), picture.begin(), picture.end());
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + f.nDataSize), expected) << captionBytes;
  }
  // Room: data + packet length + 285.
  const Bytes packet = packetOf(6, 26);
  Bytes buffer = picture;
  buffer.resize(picture.size() + 26 + 285 - 1, 0xEE);
  const Bytes before = buffer;
  DFRAME f = withCaption(packet, 26, &buffer, picture.size());
  qtest::LogCapture log;
  EXPECT_EQ(klxutilAddMPEG2Captions(&f), KLX_CC_NO_ROOM);
  EXPECT_TRUE(log.contains("No Allocation for CC Data"));
  EXPECT_EQ(buffer, before);
  f.nCaptionSize = 15;
  EXPECT_EQ(klxutilAddMPEG2Captions(&f), -1);
  // A packet announcing more caption bytes than it holds is refused, not over-read.
  const Bytes overlong = packetOf(40, 46);
  f.pCaption = const_cast<uint8_t*>(overlong.data());
  f.nCaptionSize = 46;
  f.nBufferSize = uint32_t(buffer.size() + 1000);
  EXPECT_EQ(klxutilAddMPEG2Captions(&f), -1);
  EXPECT_EQ(buffer, before);
}

// ---- HEVC

TEST(HevcCaptions, SeiCarriesTheTripletsOfThePacketOrNothing) {
  struct Case {
    const char* name;
    Bytes packet;
    uint32_t length;
    int ccCount;  // -1: nothing written
    size_t tripletsAt;
    const char* message;
  };
  auto withCount = [](Bytes p, uint8_t count, bool timeCode) {
    if (timeCode) p[11] |= 0x80;
    p[timeCode ? 20 : 15] = uint8_t(0xE0 | count);
    return p;
  };
  const Bytes good = packetOf(6, 26);
  const Case cases[] = {
      {"two triplets", withCount(good, 2, false), 26, 2, 16, nullptr},
      {"time code section moves the triplets", withCount(packetOf(20, 40), 3, true), 40, 3, 21, nullptr},
      {"announced count cut to the packet", withCount(good, 9, false), 26, 3, 16, "\nCC count is wrong 9 actual 3"},
      {"zero triplets", withCount(packetOf(0, 16), 0, false), 16, 0, 16, nullptr},
      {"too short", good, 3, -1, 0, "No SEI CC data size is 3"},
      {"absurd length", good, 0xFFFFFFFF, -1, 0, "No SEI CC data size is -1"},
      {"rejected (shorter than its header)", good, 15, -1, 0, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    DFRAME f = withCaption(c.packet, c.length);
    qtest::LogCapture log;
    Bytes out(512, 0xEE);
    out.resize(klxUtilAddHevcCaptionsSEI(out.data(), &f, 77));
    if (c.message) {
      EXPECT_TRUE(log.contains(c.message));
    }
    if (c.ccCount < 0) {
      EXPECT_TRUE(out.empty());
      continue;
    }
    ASSERT_GT(out.size(), 4u);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 6), (Bytes{0, 0, 0, 1, 0x4E, 0x01}));
    EXPECT_EQ(stest::rbspOf(out), cat({{0x4E, 0x01}, a53Message(c.packet, c.tripletsAt, uint32_t(c.ccCount))}));
  }
}

const Bytes kHevcAud = {0, 0, 0, 1, 0x46, 0x01, 0x50};
const Bytes kHevcVps = {0, 0, 0, 1, 0x40, 0x01, 0x0C};
const Bytes kHevcSei = {0, 0, 1, 0x4E, 0x01, 0x05, 0x01, 0xAA, 0x80};
const Bytes kHevcIdr = {0, 0, 0, 1, 0x26, 0x01, 0xAF, 0x11};
const Bytes kHevcTrail2 = {0, 0, 1, 0x02, 0x01, 0x50, 0x22};

TEST(HevcCaptions, InsertedInFrontOfTheFirstSliceOrPrefixSeiWhenThereIsRoom) {
  const Bytes packet = packetOf(6, 26);
  Bytes sei(512);
  DFRAME probe = withCaption(packet, 26);
  sei.resize(klxUtilAddHevcCaptionsSEI(sei.data(), &probe, 0));
  const uint32_t seiLength = uint32_t(sei.size());
  struct Case {
    const char* name;
    Bytes frame;
    int64_t at;  // -1: nothing inserted
    uint32_t flags, secondPart, secondPartAfter, room;
  };
  const uint32_t both = DFRAME_TWO_PARTS | DFRAME_SECOND_PART_VALID;
  const Case cases[] = {
      {"VPS then IDR", cat({kHevcVps, kHevcIdr}), 7, 0, 15, 15, 200},
      {"AUD, 3-byte SEI", cat({kHevcAud, kHevcSei, kHevcIdr}), 7, 0, 0, 0, 200},
      {"second part moves when both flags are set", cat({kHevcAud, kHevcIdr, kHevcTrail2}), 7, both, 15, 15 + 100, 200},
      {"only one flag: it stays", cat({kHevcAud, kHevcIdr, kHevcTrail2}), 7, DFRAME_TWO_PARTS, 15, 15, 200},
      {"insertion behind the second part: it stays", cat({kHevcAud, kHevcIdr}), 7, both, 3, 3, 200},
      {"data + SEI must stay below the capacity", cat({kHevcAud, kHevcIdr}), -1, 0, 0, 0, seiLength},
      {"one byte more is room", cat({kHevcAud, kHevcIdr}), 7, 0, 0, 0, seiLength + 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes buffer = c.frame;
    buffer.resize(c.frame.size() + c.room, 0xEE);
    const Bytes before = buffer;
    DFRAME f = withCaption(packet, uint32_t(packet.size()), &buffer, c.frame.size());
    f.nFlags = c.flags;
    f.nSecondPartOffset = c.secondPart;
    const uint32_t added = klxUtilAddHevcCaptions(&f, 0);
    EXPECT_EQ(f.nDataSize, c.frame.size()) << "the data size is the caller's to grow";
    if (c.at < 0) {
      EXPECT_EQ(added, 0u);
      EXPECT_EQ(buffer, before);
      continue;
    }
    ASSERT_EQ(added, seiLength);
    Bytes expected = c.frame;
    expected.insert(expected.begin() + long(c.at), sei.begin(), sei.end());
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + c.frame.size() + added), expected);
    EXPECT_EQ(f.nSecondPartOffset, c.secondPart == c.secondPartAfter ? c.secondPart : c.secondPart + added);
  }
  // A rejected packet logs the length it did not add.
  Bytes buffer = cat({kHevcAud, kHevcIdr});
  const size_t size = buffer.size();
  buffer.resize(400);
  DFRAME f = withCaption(packet, 15, &buffer, size);
  qtest::LogCapture log;
  EXPECT_EQ(klxUtilAddHevcCaptions(&f, 0), 0u);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].text.rfind("Sei cc not added Length 0 klxvidutil ", 0), 0u) << log.lines()[0].text;
}

// ---- caption packets and the frame record

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
