// Removing SEI messages in place and the conforming caption insertion, in both framings, on
// frames built here unit by unit; hostile frames in buffers of exactly their capacity.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "streamutil/captions.h"
#include "streamutil/framing.h"
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
      // Read back (the output is in start-code form again).
      uint8_t got[30];
      const int n = c.codec == KLX_CODEC_H264 ? klxUtilReadH264CaptionsSEI(out.data(), uint32_t(out.size()), 0, got, 10)
                                              : klxUtilReadHevcCaptionsSEI(out.data(), uint32_t(out.size()), 0, got, 10);
      ASSERT_EQ(n, 3);
      EXPECT_EQ(Bytes(got, got + 9), triplets);
    }
}

}  // namespace
