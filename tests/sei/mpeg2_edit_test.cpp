// MPEG-2 access units edited in place by the library: caption user data replaced in front of
// the first slice (read back by the library's reader and by FFmpeg's decoder elsewhere), room
// refused exactly, GOP time_code from a frame count, picture timecodes counted on by
// temporal_reference against a plain frame counter.
#include <gtest/gtest.h>

#include <vector>

#include "platform/tcxlat.h"
#include "streamutil/captions.h"
#include "streamutil/mpeg2_edit.h"
#include "streamutil/sei_read.h"
#include "sei_support.h"
#include "support/edit_support.h"

namespace {

// sequence header, GOP header (01:02:03:04, closed), picture header, one slice.
std::vector<uint8_t> accessUnit() {
  return {0, 0, 1, 0xB3, 0x0C, 0x00, 0x60, 0x14, 0xFF, 0xFF, 0xE0, 0x18,  // 192x96, 29.97 (code 4)
          0, 0, 1, 0xB8, 0x08, 0x44, 0x32, 0x40,                           // time_code 01:02:03:04
          0, 0, 1, 0x00, 0x00, 0x4F, 0xFF, 0xF8,                           // picture: tref 1, I
          0, 0, 1, 0x01, 0x12, 0x34, 0x56, 0x78};                          // slice
}

TEST(Mpeg2Edit, CaptionsReplacedInFrontOfTheFirstSlice) {
  struct Case {
    const char* name;
    std::vector<std::vector<uint8_t>> inserts;  // packets' triplets, in order
    bool removeFirst;
    int removed;
    std::vector<uint8_t> readBack;  // triplets the reader sees at the end
  } cases[] = {
      {"one", {{0xFC, 0x94, 0x20}}, false, 0, {0xFC, 0x94, 0x20}},
      {"two blocks stay side by side", {{0xFC, 0x94, 0x20}, {0xFD, 0x80, 0x80}}, false, 0, {0xFC, 0x94, 0x20, 0xFD, 0x80, 0x80}},
      {"replaced", {{0xFC, 0x94, 0x20}, {0xFC, 0xC8, 0xE9}}, true, 1, {0xFC, 0xC8, 0xE9}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<uint8_t> bytes = accessUnit(), original = bytes;
    bytes.resize(bytes.size() + 256);
    DFRAME f = qtest::frameOver(bytes, original.size());
    for (size_t i = 0; i < c.inserts.size(); ++i) {
      if (i + 1 == c.inserts.size() && c.removeFirst) {
        EXPECT_EQ(klxutilRemoveMpeg2Captions(&f), c.removed);
      }
      const auto packet = stest::captionPacket(c.inserts[i]);
      ASSERT_EQ(klxutilInsertMpeg2Captions(&f, packet.data(), uint32_t(packet.size())), 0);
    }
    uint8_t triplets[3 * 8];
    const int n = klxUtilReadMpeg2Captions(f.pData, f.nDataSize, triplets, 8);
    EXPECT_EQ(std::vector<uint8_t>(triplets, triplets + 3 * n), c.readBack);
    // The slice and every header keep their bytes; removing all gives the frame back.
    EXPECT_EQ(std::vector<uint8_t>(f.pData + f.nDataSize - 8, f.pData + f.nDataSize),
              std::vector<uint8_t>(original.end() - 8, original.end()));
    EXPECT_GT(klxutilRemoveMpeg2Captions(&f), 0);
    EXPECT_EQ(std::vector<uint8_t>(f.pData, f.pData + f.nDataSize), original);
  }
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
