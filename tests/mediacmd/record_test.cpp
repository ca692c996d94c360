// The command record: layout, initialisation, merging and normalising, channel masks, FOURCC
// case, speed stepping, the payload copy.
#include <gtest/gtest.h>

#include <bitset>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "mediacmd/mediacmd.h"

namespace {

MEDIACMD freshCmd(unsigned code) {
  MEDIACMD cmd;
  std::memset(&cmd, 0xA5, sizeof cmd);
  initMediaCmd(&cmd, code);
  return cmd;
}

TEST(MediaCmdRecord, InitSetsEveryUnsetValueAndClearsTheRest) {
  MEDIACMD cmd = freshCmd(ctPlay);
  EXPECT_EQ(cmd.prev, 0u);
  EXPECT_EQ(cmd.next, 0u);
  EXPECT_EQ(cmd.list, 0u);
  EXPECT_EQ(cmd.Channel, 0xFFFFFFFFu);
  EXPECT_EQ(cmd.Cmd, static_cast<uint32_t>(ctPlay));
  EXPECT_EQ(cmd.CtrlFlags, 0u);
  EXPECT_EQ(cmd.Speed, 0x7FFFFFFF);
  for (uint32_t v : {cmd.VideoChannels, cmd.AudioChannels, cmd.InfoChannels, cmd.CmdAlt}) EXPECT_EQ(v, 0xFFFFFFFFu);
  for (int32_t v : {cmd.Position, cmd.Start, cmd.End}) EXPECT_EQ(v, -1);
  for (char c : cmd.ClipID) EXPECT_EQ(c, 0);
  for (char c : cmd.Payload) ASSERT_EQ(c, 0);
  // The signature and size as a host in another language would see the bytes.
  const auto* bytes = reinterpret_cast<const uint8_t*>(&cmd);
  const uint8_t signature[] = {0x00, 0x02, 0x25, 0xFA, 0x5C, 0x10, 0x00, 0x00};
  EXPECT_EQ(std::memcmp(bytes + 24, signature, sizeof signature), 0);
  initMediaCmd(nullptr, ctStop);  // ignored, must not crash
}

// One merge rule per row: what the destination held, what the source holds, what must result.
struct CopyCase {
  const char* name;
  uint32_t dstFlags;
  uint32_t srcCmd;
  uint32_t srcFlags;
  uint32_t mask;
  uint32_t wantFlags;
  int32_t wantSpeed;
};

TEST(MediaCmdRecord, CopyMergesFlagsAndSpeedByTheRules) {
  const CopyCase cases[] = {
      {"deferred cleared when the source lacks it, mask all ones", cfDeferred, ctStop, 0, 0xFFFFFFFF, cfUseSpeed, 0},
      {"source-only bits all cleared", cfOverrideDeferred | cfTimeMs | cfTimeTarget | cfTimeHouseClock | cfUseAllIDs |
           cfCopy | cfConvert | cfLoop | cfRipple | cfInvert | cfTest | cfNoReturn,
       ctTransfer, 0, 0xFFFFFFFF, 0, 0x7FFFFFFF},
      {"other destination bits survive", cfTrigger | cfPreview | cfUseClipID | cfUsePosition, ctTransfer, 0, 0,
       cfTrigger | cfPreview | cfUseClipID | cfUsePosition, 0x7FFFFFFF},
      {"mask limits what the source adds", 0, ctTransfer, cfTrigger | cfPreview, cfTrigger, cfTrigger, 0x7FFFFFFF},
      {"play without speed runs at normal speed", 0, ctPlay, 0, 0, cfUseSpeed, 65520},
      {"record without speed runs at normal speed", 0, ctRecord, 0, 0, cfUseSpeed, 65520},
      {"pause stands still", 0, ctPause, 0, 0, cfUseSpeed, 0},
      {"abort stands still", 0, ctAbort, 0, 0, cfUseSpeed, 0},
      {"transfer has no speed", 0, ctTransfer, 0, 0, 0, 0x7FFFFFFF},
      {"a destination speed flag is not removed", cfUseSpeed, ctTransfer, 0, 0, cfUseSpeed, 0x7FFFFFFF},
      {"source speed wins even for play", 0, ctPlay, cfUseSpeed, 0, cfUseSpeed, 12345},
      {"start/end bits replaced by the source's", cfUseStart | cfUseEndOffset, ctTransfer, cfUseStartOffset | cfUseEnd,
       0, cfUseStartOffset | cfUseEnd, 0x7FFFFFFF},
      {"position bits are only ever added", cfUsePositionOffset, ctTransfer, cfUsePosition, 0,
       cfUsePosition | cfUsePositionOffset, 0x7FFFFFFF},
      {"time bits come with the time argument", 0, ctTransfer, cfTimeMs | cfUseCmdAlt, 0, cfTimeMs | cfUseCmdAlt,
       0x7FFFFFFF},
  };
  for (const CopyCase& c : cases) {
    SCOPED_TRACE(c.name);
    MEDIACMD dst = freshCmd(ctStop), src = freshCmd(c.srcCmd);
    dst.CtrlFlags = c.dstFlags;
    dst.Speed = 99;
    src.CtrlFlags = c.srcFlags;
    src.Speed = 12345;
    copyMediaCmd(&dst, &src, c.mask);
    EXPECT_EQ(dst.CtrlFlags, c.wantFlags);
    EXPECT_EQ(dst.Speed, c.wantSpeed);
    EXPECT_EQ(dst.Cmd, c.srcCmd);
  }
}

TEST(MediaCmdRecord, CopyCarriesValuesOnlyWhereTheSourceSaysTheyAreValid) {
  MEDIACMD dst = freshCmd(ctStop), src = freshCmd(ctTransfer);
  dst.CmdID = 0;
  dst.VideoChannels = dst.AudioChannels = dst.InfoChannels = 7;
  dst.CmdAlt = 77;
  src.Channel = 3;
  src.VideoChannels = 1, src.AudioChannels = 2, src.InfoChannels = 4;
  src.CmdAlt = 555;
  src.Position = 10, src.Start = 20, src.End = 30;
  std::strcpy(dst.ClipID, "KEEP");
  std::strcpy(dst.Payload, "keep.mov");
  std::strcpy(src.ClipID, "NEW");
  std::strcpy(src.Payload, "new.mov");
  copyMediaCmd(&dst, &src, 0);
  EXPECT_STREQ(dst.ClipID, "KEEP");  // no clip flag in the source: clip and payload stay
  EXPECT_STREQ(dst.Payload, "keep.mov");
  EXPECT_EQ(dst.CmdID, 0xFA250200u);
  EXPECT_EQ(dst.Channel, 3u);
  EXPECT_EQ(dst.VideoChannels, 0xFFFFFFFFu);  // no presets in the source: unset
  EXPECT_EQ(dst.CmdAlt, 77u);                 // no time flags, not a get/set command: kept
  EXPECT_EQ(dst.Position, 10);
  EXPECT_EQ(dst.Start, 20);
  EXPECT_EQ(dst.End, 30);

  src.CtrlFlags = cfUsePresets;
  src.Cmd = ctGetValue;
  copyMediaCmd(&dst, &src, 0);
  EXPECT_EQ(dst.VideoChannels, 1u);
  EXPECT_EQ(dst.AudioChannels, 2u);
  EXPECT_EQ(dst.InfoChannels, 4u);
  EXPECT_EQ(dst.CmdAlt, 555u);
  EXPECT_TRUE(dst.CtrlFlags & cfUsePresets);
  copyMediaCmd(nullptr, &src, 0);  // ignored, must not crash
  copyMediaCmd(&dst, nullptr, 0);
}

TEST(MediaCmdRecord, FixNormalisesByCommand) {
  struct Case { uint32_t cmd, flags, mask; int32_t wantSpeed; uint32_t wantFlags, wantMask; };
  const Case cases[] = {
      {ctPlay, 0, 0, 65520, cfUseSpeed, 0xFFFFFFFF}, {ctRecord, cfUsePresets, 0, 65520, cfUsePresets | cfUseSpeed, 5},
      {ctStop, 0, 0, 0, cfUseSpeed, 0xFFFFFFFF}, {ctEject, 0, 0, 0, cfUseSpeed, 0xFFFFFFFF},
      {ctTerminate, 0, 0, 0, cfUseSpeed, 0xFFFFFFFF}, {ctTransfer, 0, 0, 1234, 0, 0xFFFFFFFF},
      {ctPlay, cfUseSpeed, 0, 1234, cfUseSpeed, 0xFFFFFFFF},
      // The mask hides the speed flag: the command's default speed is applied.
      {ctPlay, cfUseSpeed | cfUsePresets, cfUsePresets, 65520, cfUseSpeed | cfUsePresets, 5},
      // The mask hides the presets flag: masks are unset.
      {ctGetValue, cfUsePresets, cfUseSpeed, 1234, cfUsePresets, 0xFFFFFFFF},
  };
  for (const Case& c : cases) {
    MEDIACMD cmd = freshCmd(c.cmd);
    cmd.CtrlFlags = c.flags;
    cmd.Speed = 1234;
    cmd.VideoChannels = cmd.AudioChannels = cmd.InfoChannels = 5;
    EXPECT_EQ(fixMediaCmd(&cmd, c.mask), 0xFFFFFFFFu);
    EXPECT_EQ(cmd.Speed, c.wantSpeed) << c.cmd;
    EXPECT_EQ(cmd.CtrlFlags, c.wantFlags) << c.cmd;
    EXPECT_EQ(cmd.AudioChannels, c.wantMask) << c.cmd;
  }
  EXPECT_EQ(fixMediaCmd(nullptr, 0), 0xFFFFFFFFu);
}

// Against std::bitset: the n-th set bit, its isolation, and the count, over random masks.
TEST(MediaCmdRecord, ChannelMaskHelpersAgreeWithBitset) {
  std::mt19937 rng(1234);
  const uint32_t edges[] = {0, 0xFFFFFFFF, 0x80000000, 0x0A};
  for (int iteration = 0; iteration < 20000; ++iteration) {
    uint32_t mask = rng() & rng();  // sparse and dense masks both
    if (iteration % 7 == 0) mask = rng();
    if (iteration < 4) mask = edges[iteration];
    std::bitset<32> bits(mask);
    std::vector<unsigned> setBits;
    for (unsigned b = 0; b < 32; ++b)
      if (bits.test(b)) setBits.push_back(b);
    ASSERT_EQ(totalChannels(mask), bits.count());
    for (unsigned index = 0; index <= setBits.size(); ++index) {
      unsigned rest = 0xDEADBEEF;
      uint32_t found = findChannel(mask, &rest, index);
      if (index < setBits.size()) {
        ASSERT_EQ(found, setBits[index]);
        ASSERT_EQ(rest, mask & ~(1u << setBits[index]));
        ASSERT_EQ(isolateChannel(mask, index), 1u << setBits[index]);
        ASSERT_EQ(findChannel(mask, nullptr, index), setBits[index]);
      } else {
        ASSERT_EQ(found, 0xFFFFFFFFu);
        ASSERT_EQ(rest, mask);
        ASSERT_EQ(isolateChannel(mask, index), 0u);
      }
    }
  }
}

// Every byte value in every position: only ASCII letters change case, byte order is kept.
TEST(MediaCmdRecord, FourccCaseChangesOnlyAsciiLettersInEveryByte) {
  for (unsigned shift = 0; shift < 32; shift += 8) {
    for (unsigned byte = 0; byte < 256; ++byte) {
      uint32_t fourcc = 0x2E2E2E2E & ~(0xFFu << shift);  // '.' elsewhere
      fourcc |= byte << shift;
      unsigned wantUpper = (byte >= 'a' && byte <= 'z') ? byte - 32 : byte;
      unsigned wantLower = (byte >= 'A' && byte <= 'Z') ? byte + 32 : byte;
      uint32_t rest = fourcc & ~(0xFFu << shift);
      ASSERT_EQ(fourccToUpper(fourcc), rest | (wantUpper << shift)) << byte;
      ASSERT_EQ(fourccToLower(fourcc), rest | (wantLower << shift)) << byte;
    }
  }
  EXPECT_EQ(fourccToUpper(0x31637668), 0x31435648u);  // "hvc1" -> "HVC1"
}

// 16.16 rate of |speed|, truncated: the bounds fix the integer, examples included.
TEST(MediaCmdRecord, SpeedRatePrecision) {
  std::mt19937 rng(7);
  const int examples[] = {65520, -32760, 0, 3 * 65520};
  for (int i = 0; i < 10000; ++i) {
    int speed = i < 4 ? examples[i] : static_cast<int>(rng());
    double exact = std::abs(static_cast<double>(speed)) / 65520.0 * 65536.0;
    double got = speedRate(speed);
    ASSERT_LE(got, exact + 1e-6) << speed;  // truncated, never rounded up
    ASSERT_GT(got, exact - 1.0) << speed;
  }
}

TEST(MediaCmdRecord, SpeedRepsExamples) {
  struct Case { int speed; int wantResult; unsigned wantAdvance; };
  const Case cases[] = {{16380, 2, 1}, {32760, 1, 1}, {65520, 1, 2}, {131040, 1, 4}, {-32760, 1, 1}, {-65520, 0, 1}, {0, 0, 0}};
  for (const Case& c : cases) {
    unsigned count = 10;
    EXPECT_EQ(speedReps(&count, c.speed), c.wantResult) << c.speed;
    EXPECT_EQ(count, 10 + c.wantAdvance) << c.speed;
  }
  EXPECT_EQ(speedReps(nullptr, 131040), 1);
}

// Over many periods the stepper's repetitions and skips average out to the speed.
TEST(MediaCmdRecord, SpeedRepsAccumulatesFractionsToTheExactRate) {
  const int speeds[] = {21840, 10000, 49140, -21840, 98280, 163800, 70000};
  for (int speed : speeds) {
    const int periods = 3000;
    unsigned count = 0;
    long repeats = 0;
    speedReps(&count, 1);  // a different speed first resets the accumulation
    count = 0;
    for (int i = 0; i < periods; ++i) repeats += speedReps(&count, i == 0 ? speed : 0x7FFFFFFF);
    double fieldsPerPeriod = std::abs(speed) / 32760.0;
    if (speed < 65520) {
      EXPECT_EQ(count, static_cast<unsigned>(periods)) << speed;
      EXPECT_NEAR(static_cast<double>(repeats) / periods, 1.0 / fieldsPerPeriod, 2.0 / periods) << speed;
    } else {
      EXPECT_EQ(repeats, periods) << speed;
      EXPECT_NEAR(static_cast<double>(count) / periods, fieldsPerPeriod, 2.0 / periods) << speed;
    }
  }
}

// copyMediaCmd's payload copy behaves as the C library's strncpy over the bound: the text, then
// zeros to the end of the bound (nothing of a longer old payload left behind the text), nothing
// written beyond it. strncpy itself is the oracle. The clip id is copied the same way, 8 bytes.

// The payload that strncpy would leave in `dst` for this merge.
std::string expectedPayload(const MEDIACMD& dst, const MEDIACMD& src) {
  MEDIACMD want = dst;
  size_t limit = std::min<size_t>({src.StructSize - MEDIACMD_PAYLOAD_OFFSET, MEDIACMD_PAYLOAD_COPY_MAX,
                                   dst.StructSize - MEDIACMD_PAYLOAD_OFFSET});
  std::strncpy(want.Payload, src.Payload, limit);
  return std::string(want.Payload, MEDIACMD_PAYLOAD_SIZE);
}

TEST(MediaCmdPayloadCopy, BoundsFromBothSizesMatchStrncpy) {
  struct Case {
    uint32_t dstSize, srcSize;
  } const kCases[] = {{4188, 4188}, {86, 4188}, {4188, 86}, {100, 200}, {200, 100},
                      {85, 4188},   {4188, 85}, {5000, 5000}};
  std::mt19937 rng(7);
  for (const auto& c : kCases) {
    for (int round = 0; round < 50; ++round) {
      MEDIACMD dst, src;
      initMediaCmd(&dst, ctStop);
      initMediaCmd(&src, ctPlay);
      for (char& ch : dst.Payload) ch = static_cast<char>('a' + rng() % 26);
      for (char& ch : src.Payload) ch = static_cast<char>('A' + rng() % 26);
      src.Payload[rng() % MEDIACMD_PAYLOAD_SIZE] = '\0';
      dst.StructSize = c.dstSize;
      src.StructSize = c.srcSize;
      src.CtrlFlags = cfUseClipID;
      std::memcpy(src.ClipID, "ABCDEFGHI", 9);  // no NUL: only 8 may be copied
      std::memset(dst.ClipID, 'z', sizeof dst.ClipID);
      MEDIACMD before = dst;
      copyMediaCmd(&dst, &src, 0);
      ASSERT_EQ(std::string(dst.ClipID, 9), "ABCDEFGHz");
      std::string want = (c.dstSize > 85 && c.srcSize > 85) ? expectedPayload(before, src)
                                                            : std::string(before.Payload, MEDIACMD_PAYLOAD_SIZE);
      ASSERT_EQ(std::string(dst.Payload, MEDIACMD_PAYLOAD_SIZE), want) << c.dstSize << " " << c.srcSize;
    }
  }
}

}  // namespace
