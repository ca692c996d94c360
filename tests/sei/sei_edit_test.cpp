// Frames edited in place: removing SEI messages and the conforming caption insertion, in both
// framings, on frames built here unit by unit, hostile frames in buffers of exactly their
// capacity; and MPEG-2 access units.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "platform/tcxlat.h"
#include "streamutil/captions.h"
#include "streamutil/framing.h"
#include "streamutil/mpeg2_edit.h"
#include "streamutil/mpeg2_pictures.h"
#include "streamutil/sei_read.h"
#include "streamutil/sei_remove.h"
#include "sei_support.h"
#include "support/edit_support.h"

namespace {

using qtest::Bytes;
using qtest::cat;

struct Message {
  uint32_t type;
  Bytes payload;
};

// One SEI unit (start code, header, messages, trailing bits), emulation prevention written out
// here, apart from the library.
Bytes seiUnit(Bytes header, const std::vector<Message>& messages) {
  Bytes rbsp = header;
  for (const auto& m : messages) {
    rbsp.push_back(uint8_t(m.type)), rbsp.push_back(uint8_t(m.payload.size()));
    rbsp.insert(rbsp.end(), m.payload.begin(), m.payload.end());
  }
  rbsp.push_back(0x80);
  return cat({{0, 0, 0, 1}, qtest::emulationPrevented(rbsp)});
}

const Bytes kAud = {0, 0, 0, 1, 0x09, 0xF0};
const Bytes kSps = {0, 0, 0, 1, 0x67, 0x42, 0xC0, 0x1E, 0xDA};
const Bytes kPps = {0, 0, 0, 1, 0x68, 0xCE, 0x3C, 0x80};
const Bytes kSlice = {0, 0, 0, 1, 0x65, 0x88, 0x84, 0x00, 0x00, 0x03, 0x01, 0x7F};
const Bytes kHevcSlice = {0, 0, 0, 1, 0x26, 0x01, 0xAF, 0x00, 0x00, 0x03, 0x02, 0x40};
const Bytes kHevcAud = {0, 0, 0, 1, 0x46, 0x01, 0x50};
const Message kPicTiming{1, {0x12, 0x34}};
const Message kCaptions{4, {0xB5, 0x00, 0x31, 'G', 'A', '9', '4', 0x03, 0xC1, 0xFF, 0xFC, 0x94, 0x20, 0xFF}};
const Message kAfd{4, {0xB5, 0x00, 0x31, 'D', 'T', 'G', '1', 0x41}};
const Message kUnregistered{5, Bytes(16, 0x00)};  // zeros: escaped in the unit
const Message kTimeCode{136, {0x60, 0x00, 0x00, 0x00, 0x00, 0x00}};
const Message kHash{132, {0x02, 0x00, 0x00, 0x01}};

struct RemoveCase {
  const char* name;
  uint32_t codec;
  Bytes frame;
  std::vector<uint32_t> types;
  Bytes expected;
  int removed;
};

std::vector<RemoveCase> removeCases() {
  const Bytes h264 = {0x06}, prefix = {0x4E, 0x01}, suffix = {0x50, 0x01};
  return {
      {"captions out, the other messages stay", KLX_CODEC_H264,
       cat({kAud, seiUnit(h264, {kPicTiming, kCaptions, kUnregistered}), kSlice}), {KLX_SEI_CC_DATA},
       cat({kAud, seiUnit(h264, {kPicTiming, kUnregistered}), kSlice}), 1},
      {"an emptied unit goes", KLX_CODEC_H264, cat({kAud, seiUnit(h264, {kCaptions}), kSps, kSlice}), {KLX_SEI_CC_DATA},
       cat({kAud, kSps, kSlice}), 1},
      {"AFD of the same payloadType stays", KLX_CODEC_H264, cat({seiUnit(h264, {kAfd, kCaptions, kCaptions}), kSlice}),
       {KLX_SEI_CC_DATA}, cat({seiUnit(h264, {kAfd}), kSlice}), 2},
      {"by payloadType, over several units", KLX_CODEC_H264,
       cat({seiUnit(h264, {kUnregistered}), seiUnit(h264, {kPicTiming, kUnregistered}), kSlice}), {5, 1},
       cat({kSlice}), 3},
      {"nothing to remove", KLX_CODEC_H264, cat({kAud, seiUnit(h264, {kPicTiming}), kSlice}), {136},
       cat({kAud, seiUnit(h264, {kPicTiming}), kSlice}), 0},
      {"HEVC prefix and suffix SEI", KLX_CODEC_HEVC,
       cat({kHevcAud, seiUnit(prefix, {kTimeCode, kCaptions}), kHevcSlice, seiUnit(suffix, {kHash})}), {136, 132},
       cat({kHevcAud, seiUnit(prefix, {kCaptions}), kHevcSlice}), 2},
  };
}

// Runs `edit` on the frame in start-code form or in length-prefixed form (converted there and
// back with the library's converters) in a buffer of exactly `capacity` bytes.
template <class Edit>
Bytes edited(const Bytes& frame, bool lengthPrefixed, uint32_t spare, Edit&& edit, int& result) {
  Bytes buffer = frame;
  uint32_t size = uint32_t(frame.size());
  if (lengthPrefixed) size = klxUtilh264MarkerToSize(buffer.data(), size);
  buffer.resize(size + spare);
  DFRAME f = qtest::frameOver(buffer, size);
  result = edit(f);
  buffer.resize(f.nDataSize);
  if (lengthPrefixed) buffer.resize(klxUtilh264SizeToMarker(buffer.data(), uint32_t(buffer.size())));
  return buffer;
}

TEST(SeiRemove, RemovesTheGivenMessagesInBothFramings) {
  for (const auto& c : removeCases())
    for (bool lengthPrefixed : {false, true}) {
      SCOPED_TRACE(testing::Message() << c.name << (lengthPrefixed ? ", length-prefixed" : ", start codes"));
      int result = 0;
      const Bytes out = edited(c.frame, lengthPrefixed, 0, [&](DFRAME& f) {
        return klxutilRemoveSEIMessages(&f, c.codec, lengthPrefixed, c.types.data(), uint32_t(c.types.size()));
      }, result);
      EXPECT_EQ(result, c.removed);
      EXPECT_EQ(out, c.expected);
    }
}

TEST(SeiRemove, UnparsableUnitsAndBadArgumentsAreLeftAlone) {
  Bytes broken = cat({seiUnit({0x06}, {kPicTiming}), kSlice});
  broken[6] = 0x40;  // payloadSize runs past the unit
  int result = 0;
  const uint32_t type = 1;
  EXPECT_EQ(edited(broken, false, 0, [&](DFRAME& f) { return klxutilRemoveSEIMessages(&f, KLX_CODEC_H264, 0, &type, 1); }, result),
            broken);
  EXPECT_EQ(result, 0);
  DFRAME f;
  klxutilInitFrame(&f, broken.data(), uint32_t(broken.size()), uint32_t(broken.size()));
  EXPECT_EQ(klxutilRemoveSEIMessages(nullptr, KLX_CODEC_H264, 0, &type, 1), -1);
  EXPECT_EQ(klxutilRemoveSEIMessages(&f, 7, 0, &type, 1), -1);
  EXPECT_EQ(klxutilRemoveSEIMessages(&f, KLX_CODEC_H264, 0, nullptr, 1), -1);
}

// Arbitrary bytes, in both framings and codecs: removal and the readers stay inside the
// buffer (ASan) and never grow the frame.
TEST(SeiRemove, HostileFramesStayInBounds) {
  std::mt19937 rng(12);
  const uint32_t types[] = {1, 4, 5, 136, KLX_SEI_CC_DATA};
  for (int round = 0; round < 3000; ++round) {
    Bytes frame(1 + rng() % 200);
    for (auto& b : frame) b = uint8_t(rng() % 4 == 0 ? 0 : rng() % 8 == 0 ? 1 : rng());
    for (size_t i = 0; i + 4 < frame.size() && rng() % 2; i += 1 + rng() % 40) frame[i] = 0, frame[i + 1] = 0, frame[i + 2] = 1;
    const uint32_t codec = round % 2 ? KLX_CODEC_H264 : KLX_CODEC_HEVC;
    const uint32_t framing = (round / 2) % 2;
    Bytes buffer = frame;
    DFRAME f = qtest::frameOver(buffer, uint32_t(buffer.size()));
    const int n = klxutilRemoveSEIMessages(&f, codec, framing, types, 5);
    EXPECT_GE(n, 0);
    EXPECT_LE(f.nDataSize, frame.size());
    uint8_t triplets[96];
    KLX_TIMECODE tc;
    EXPECT_GE(klxUtilReadH264CaptionsSEI(frame.data(), uint32_t(frame.size()), framing, triplets, 32), 0);
    EXPECT_GE(klxUtilReadHevcCaptionsSEI(frame.data(), uint32_t(frame.size()), framing, triplets, 32), 0);
    EXPECT_GE(klxUtilReadHevcTimeCode(frame.data(), uint32_t(frame.size()), framing, &tc), 0);
    EXPECT_GE(klxUtilReadMpeg2TimeCode(frame.data(), uint32_t(frame.size()), &tc), 0);
    EXPECT_GE(klxUtilReadMpeg2Captions(frame.data(), uint32_t(frame.size()), triplets, 32), 0);
    KLX_MPEG2_PICTURE pictures[4];
    uint32_t rateCode = 0;
    const int n2 = klxutilMpeg2Pictures(frame.data(), uint32_t(frame.size()), pictures, 4, &rateCode);
    for (int i = 0; i < std::min(n2, 4); ++i) EXPECT_LE(pictures[i].end, frame.size());
  }
}

// ---- conforming caption insertion

TEST(CaptionInsert, GoesInFrontOfTheFirstPictureInBothFramings) {
  const Bytes triplets = {0xFC, 0x94, 0x20, 0xFD, 0x80, 0x80, 0xFA, 0x00, 0x00};
  const Bytes packet = stest::captionPacket(triplets);
  const Bytes h264Sei = seiUnit({0x06}, {{4, cat({{0xB5, 0x00, 0x31, 'G', 'A', '9', '4', 0x03, 0xC3, 0xFF}, triplets, {0xFF}})}});
  const Bytes hevcSei = seiUnit({0x4E, 0x01}, {{4, cat({{0xB5, 0x00, 0x31, 'G', 'A', '9', '4', 0x03, 0xC3, 0xFF}, triplets, {0xFF}})}});
  const Bytes bp = seiUnit({0x06}, {{0, {0x80}}});
  struct Case {
    const char* name;
    uint32_t codec;
    Bytes frame, expected;
  } cases[] = {
      {"behind delimiter, parameter sets and buffering period", KLX_CODEC_H264, cat({kAud, kSps, kPps, bp, kSlice}),
       cat({kAud, kSps, kPps, bp, h264Sei, kSlice})},
      {"a bare slice", KLX_CODEC_H264, kSlice, cat({h264Sei, kSlice})},
      {"no picture: at the end", KLX_CODEC_H264, cat({kAud, kSps}), cat({kAud, kSps, h264Sei})},
      {"HEVC: behind the prefix SEI", KLX_CODEC_HEVC, cat({kHevcAud, seiUnit({0x4E, 0x01}, {kTimeCode}), kHevcSlice}),
       cat({kHevcAud, seiUnit({0x4E, 0x01}, {kTimeCode}), hevcSei, kHevcSlice})},
  };
  for (const auto& c : cases)
    for (bool lengthPrefixed : {false, true}) {
      SCOPED_TRACE(testing::Message() << c.name << (lengthPrefixed ? ", length-prefixed" : ", start codes"));
      const uint32_t room = uint32_t(c.expected.size() - c.frame.size());
      auto insert = [&](DFRAME& f) {
        return klxutilAddCaptionsSEI(&f, c.codec, packet.data(), uint32_t(packet.size()), lengthPrefixed);
      };
      int result = 0;
      const Bytes out = edited(c.frame, lengthPrefixed, room, insert, result);
      EXPECT_EQ(result, 0);
      EXPECT_EQ(out, c.expected);
      // One byte short: refused, frame untouched.
      const Bytes refused = edited(c.frame, lengthPrefixed, room - 1, insert, result);
      EXPECT_EQ(result, KLX_CC_NO_ROOM);
      EXPECT_EQ(refused, c.frame);
    }
}

// ---- MPEG-2

// MPEG-2 access units edited in place by the library: caption room refused exactly (the
// replacement itself is read back through stamp and captions extract in Mpeg2Stamp and
// tests/media/container_test.cpp), GOP time_code from a frame count, picture timecodes
// counted on by temporal_reference against a plain frame counter.
// sequence header, GOP header (01:02:03:04, closed), picture header, one slice.
std::vector<uint8_t> accessUnit() {
  return {0, 0, 1, 0xB3, 0x0C, 0x00, 0x60, 0x14, 0xFF, 0xFF, 0xE0, 0x18,  // 192x96, 29.97 (code 4)
          0, 0, 1, 0xB8, 0x08, 0x44, 0x32, 0x40,                           // time_code 01:02:03:04
          0, 0, 1, 0x00, 0x00, 0x4F, 0xFF, 0xF8,                           // picture: tref 1, I
          0, 0, 1, 0x01, 0x12, 0x34, 0x56, 0x78};                          // slice
}

TEST(Mpeg2Edit, RefusalsLeaveTheFrameAlone) {
  const auto packet = stest::captionPacket({0xFC, 0x94, 0x20, 0xFD, 0x80, 0x80});
  const uint32_t block = 12 + 6;  // start code, B2, "GA94" 03, flags, em_data, two triplets, marker
  std::vector<uint8_t> noSlice = accessUnit();
  noSlice.resize(noSlice.size() - 8);
  struct Case {
    const char* name;
    std::vector<uint8_t> frame;
    uint32_t room;
    const uint8_t* packet;
    uint32_t packetLength;
    int result;
  } cases[] = {
      {"exact room", accessUnit(), block, packet.data(), uint32_t(packet.size()), 0},
      {"one byte short", accessUnit(), block - 1, packet.data(), uint32_t(packet.size()), KLX_CC_NO_ROOM},
      {"no slice", noSlice, 64, packet.data(), uint32_t(packet.size()), -1},
      {"short packet", accessUnit(), 64, packet.data(), 15, -1},
      {"null packet", accessUnit(), 64, nullptr, 0, -1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<uint8_t> bytes = c.frame;
    const size_t size = bytes.size();
    bytes.resize(size + c.room);
    DFRAME f = qtest::frameOver(bytes, size);
    EXPECT_EQ(klxutilInsertMpeg2Captions(&f, c.packet, c.packetLength), c.result);
    if (c.result != 0) {
      EXPECT_EQ(std::vector<uint8_t>(f.pData, f.pData + f.nDataSize), c.frame);
    }
  }
  EXPECT_EQ(klxutilInsertMpeg2Captions(nullptr, packet.data(), uint32_t(packet.size())), -1);
  EXPECT_EQ(klxutilRemoveMpeg2Captions(nullptr), -1);
}

TEST(Mpeg2Edit, GopTimecodeFromAFrameCount) {
  struct Case {
    uint32_t type;
    const char* text;
  } cases[] = {{TC_DF2997, "10:00:00;00"}, {TC_PAL, "23:59:59:24"}, {TC_NDF30, "00:00:00:00"}, {TC_DF5994, "01:10:00;00"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    uint32_t frames = 0;
    ASSERT_EQ(tc2Frame(c.text, c.type | TCF_TEXT, &frames), 0);
    std::vector<uint8_t> bytes = accessUnit();
    DFRAME f = qtest::frameOver(bytes, bytes.size());
    f.nTimecode = frames;
    ASSERT_EQ(klxutilAddMpeg2TimeCode(&f, c.type), 1);
    KLX_TIMECODE tc{};
    ASSERT_EQ(klxUtilReadMpeg2TimeCode(f.pData, f.nDataSize, &tc), 1);
    char shown[16];
    std::snprintf(shown, sizeof shown, "%02u:%02u:%02u%c%02u", tc.hours, tc.minutes, tc.seconds, tc.dropFrame ? ';' : ':', tc.frames);
    EXPECT_STREQ(shown, c.text);
    EXPECT_EQ(bytes[19] & 0x40, 0x40) << "closed_gop stays";
  }
  std::vector<uint8_t> bytes = accessUnit();
  DFRAME f = qtest::frameOver(bytes, bytes.size());
  f.nTimecode = 1;
  EXPECT_EQ(klxutilAddMpeg2TimeCode(&f, 3), -1) << "no such timecode type";
}

TEST(Mpeg2Edit, PictureTimecodeCountsOnByTemporalReference) {
  // Against a plain counter: the group's count plus temporal_reference, at each rate code.
  struct Case {
    uint32_t rateCode, type;
    bool drop;
  } cases[] = {{1, TC_FILM, false}, {3, TC_PAL, false}, {4, TC_DF2997, true}, {4, TC_NDF30, false},
               {6, TC_50, false},   {7, TC_DF5994, true}, {8, TC_60, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.rateCode);
    for (uint32_t start : {0u, 1795u, 17980u, 107880u}) {
      uint8_t digits[4];
      ASSERT_EQ(tc2String(start, c.type | TCF_DIGITS, digits, sizeof digits), 0);
      const KLX_TIMECODE gop{digits[0], digits[1], digits[2], digits[3], uint8_t(c.drop), 0, 0, 1};
      for (uint32_t tref : {0u, 1u, 4u, 11u}) {
        KLX_TIMECODE tc{};
        ASSERT_EQ(klxutilMpeg2PictureTimeCode(&gop, c.rateCode, tref, &tc), 0);
        uint8_t want[4];
        ASSERT_EQ(tc2String(start + tref, c.type | TCF_DIGITS, want, sizeof want), 0);
        EXPECT_EQ((std::vector<uint8_t>{tc.hours, tc.minutes, tc.seconds, tc.frames}), std::vector<uint8_t>(want, want + 4));
      }
    }
  }
  const KLX_TIMECODE gop{1, 0, 0, 0, 0, 0, 0, 1}, bad{1, 0, 0, 40, 0, 0, 0, 1};
  KLX_TIMECODE tc{};
  EXPECT_EQ(klxutilMpeg2PictureTimeCode(&gop, 0, 0, &tc), -1) << "reserved rate code";
  EXPECT_EQ(klxutilMpeg2PictureTimeCode(&bad, 3, 0, &tc), -1) << "frames beyond the rate";
  EXPECT_EQ(klxutilMpeg2PictureTimeCode(nullptr, 3, 0, &tc), -1);
}

}  // namespace
