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
  const MEDIACMD cmd = freshCmd(ctPlay);  // over a record of 0xA5 bytes
  MEDIACMD want;
  std::memset(&want, 0, sizeof want);
  want.CmdID = 0xFA250200;
  want.StructSize = 4188;
  want.Cmd = ctPlay;
  want.Speed = 0x7FFFFFFF;
  want.Channel = want.VideoChannels = want.AudioChannels = want.InfoChannels = want.CmdAlt = 0xFFFFFFFF;
  want.Position = want.Start = want.End = -1;
  EXPECT_EQ(std::memcmp(&cmd, &want, sizeof cmd), 0);
  // The signature and size as a host in another language would see the bytes.
  const auto* bytes = reinterpret_cast<const uint8_t*>(&cmd);
  const uint8_t signature[] = {0x00, 0x02, 0x25, 0xFA, 0x5C, 0x10, 0x00, 0x00};
  EXPECT_EQ(std::memcmp(bytes + 24, signature, sizeof signature), 0);
  initMediaCmd(nullptr, ctStop);  // ignored, must not crash
}

// copyMediaCmd and fixMediaCmd written out again from the record's rules, step by step, as the
// model for random records below. (The clip id and payload copy is MediaCmdPayloadCopy's.)

// The speed a command without "usespeed" is given: normal for play and record, still for the
// stopping commands, none for the rest.
int32_t standingSpeed(uint32_t cmd) {
  if (cmd == ctPlay || cmd == ctRecord) return MEDIACMD_SPEED_NORMAL;
  for (uint32_t still : {ctStop, ctPause, ctRecStop, ctEject, ctTerminate, ctAbort})
    if (cmd == still) return 0;
  return MEDIACMD_SPEED_NONE;
}

MEDIACMD modelCopy(MEDIACMD d, const MEDIACMD& s, uint32_t mask) {
  const uint32_t f = s.CtrlFlags;
  d.CmdID = MEDIACMD_SIGNATURE;
  d.Channel = s.Channel;
  d.Cmd = s.Cmd;
  d.CtrlFlags |= f & mask;
  const uint32_t onlyWhereTheSourceHasThem = cfDeferred | cfOverrideDeferred | cfTimeMs | cfTimeTarget | cfTimeHouseClock |
                                             cfUseAllIDs | 0x4000 | 0x8000 | cfLoop | cfRipple | cfInvert | cfTest | cfNoReturn;
  d.CtrlFlags &= ~(onlyWhereTheSourceHasThem & ~f);
  if (f & cfUseSpeed) {
    d.CtrlFlags |= cfUseSpeed;
    d.Speed = s.Speed;
  } else {
    d.Speed = standingSpeed(s.Cmd);
    if (d.Speed != MEDIACMD_SPEED_NONE) d.CtrlFlags |= cfUseSpeed;
  }
  if (f & cfUsePresets) {
    d.CtrlFlags |= cfUsePresets;
    d.VideoChannels = s.VideoChannels, d.AudioChannels = s.AudioChannels, d.InfoChannels = s.InfoChannels;
  } else {
    d.VideoChannels = d.AudioChannels = d.InfoChannels = 0xFFFFFFFF;
  }
  const uint32_t time = cfTimeMs | cfTimeTarget | cfTimeHouseClock | cfUseCmdAlt;
  if ((f & time) || s.Cmd == ctGetValue || s.Cmd == ctSetValue || s.Cmd == ctValueSupported) {
    d.CmdAlt = s.CmdAlt;
    d.CtrlFlags |= f & time;
  }
  d.Position = s.Position;
  d.CtrlFlags |= f & (cfUsePosition | cfUsePositionOffset);
  d.Start = s.Start, d.End = s.End;
  const uint32_t points = cfUseStart | cfUseStartOffset | cfUseEnd | cfUseEndOffset;
  d.CtrlFlags = (d.CtrlFlags & ~points) | (f & points);
  return d;
}

MEDIACMD modelFix(MEDIACMD c, uint32_t mask) {
  const uint32_t m = (mask ? mask : 0xFFFFFFFF) & c.CtrlFlags;
  if (!(m & cfUsePresets)) c.VideoChannels = c.AudioChannels = c.InfoChannels = 0xFFFFFFFF;
  if (!(m & cfUseSpeed) && standingSpeed(c.Cmd) != MEDIACMD_SPEED_NONE) {
    c.Speed = standingSpeed(c.Cmd);
    c.CtrlFlags |= cfUseSpeed;
  }
  return c;
}

TEST(MediaCmdRecord, CopyAndFixFollowTheRulesOnRandomRecords) {
  std::mt19937 rng(4188);
  auto randomRecord = [&] {
    MEDIACMD c;
    for (size_t i = 0; i < sizeof c; ++i) reinterpret_cast<uint8_t*>(&c)[i] = static_cast<uint8_t>(rng());
    c.StructSize = MEDIACMD_SIZE;
    c.Cmd = rng() % 24;
    c.CtrlFlags = rng() & rng();  // about a quarter of the bits, so that "none of these" happens too
    return c;
  };
  for (int i = 0; i < 20000; ++i) {
    const MEDIACMD dst = randomRecord(), src = randomRecord();
    const uint32_t masks[] = {0, 0xFFFFFFFF, static_cast<uint32_t>(rng())};
    const uint32_t mask = masks[i % 3];
    MEDIACMD got = dst;
    copyMediaCmd(&got, &src, mask);
    MEDIACMD want = modelCopy(dst, src, mask);
    if (src.CtrlFlags & cfUseClipID) {
      std::memcpy(want.ClipID, got.ClipID, sizeof want.ClipID);
      std::memcpy(want.Payload, got.Payload, sizeof want.Payload);
    }
    ASSERT_EQ(std::memcmp(&got, &want, sizeof got), 0)
        << "copy: cmd " << src.Cmd << std::hex << " dst flags 0x" << dst.CtrlFlags << " src flags 0x" << src.CtrlFlags
        << " mask 0x" << mask << " gave flags 0x" << got.CtrlFlags << " speed " << std::dec << got.Speed;

    got = src;
    EXPECT_EQ(fixMediaCmd(&got, mask), 0xFFFFFFFFu);
    want = modelFix(src, mask);
    ASSERT_EQ(std::memcmp(&got, &want, sizeof got), 0)
        << "fix: cmd " << src.Cmd << std::hex << " flags 0x" << src.CtrlFlags << " mask 0x" << mask;
  }
  MEDIACMD any = randomRecord();
  copyMediaCmd(nullptr, &any, 0);  // ignored, must not crash
  copyMediaCmd(&any, nullptr, 0);
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
