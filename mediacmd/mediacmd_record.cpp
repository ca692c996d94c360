// Initialising, merging and normalising media command records; channel-mask and speed helpers.
#include "mediacmd/mediacmd_record.h"

#include <cctype>
#include <cmath>
#include <cstring>

namespace {

constexpr uint32_t kUnset = 0xFFFFFFFF;

// Bits that end up set in a merged record only where the source has them.
constexpr uint32_t kSourceOnlyFlags[] = {cfDeferred, cfOverrideDeferred, cfTimeMs,   cfTimeTarget, cfTimeHouseClock,
                                         cfUseAllIDs, cfCopy,            cfConvert,  cfLoop,       cfRipple,
                                         cfInvert,    cfTest,            cfNoReturn};
constexpr uint32_t kTimeArgumentFlags = cfTimeMs | cfTimeTarget | cfTimeHouseClock | cfUseCmdAlt;
constexpr uint32_t kStartEndFlags = cfUseStart | cfUseStartOffset | cfUseEnd | cfUseEndOffset;

bool runsAtNormalSpeed(uint32_t cmd) { return cmd == ctPlay || cmd == ctRecord; }
bool standsStill(uint32_t cmd) {
  return cmd == ctStop || cmd == ctPause || cmd == ctRecStop || cmd == ctEject || cmd == ctTerminate || cmd == ctAbort;
}
bool carriesGetSetCode(uint32_t cmd) { return cmd == ctGetValue || cmd == ctSetValue || cmd == ctValueSupported; }

void unsetMasks(MEDIACMD* cmd) { cmd->VideoChannels = cmd->AudioChannels = cmd->InfoChannels = kUnset; }

// Copies at most `limit` characters of a NUL-terminated text, stopping after its NUL; when the
// limit cuts the text, a NUL is added if the destination has room for it.
// strncpy: copies at most `limit` characters and clears the rest of the bound behind the text,
// so no byte of an older, longer payload survives behind a shorter new one. Like strncpy it
// writes nothing beyond the bound (no terminator when the text fills it).
void copyBoundedText(char* dst, const char* src, size_t limit) {
  size_t n = 0;
  while (n < limit && src[n]) {
    dst[n] = src[n];
    ++n;
  }
  for (; n < limit; ++n) dst[n] = '\0';
}

uint32_t mapBytes(uint32_t fourcc, int (*convert)(int)) {
  uint32_t out = 0;
  for (int shift = 0; shift < 32; shift += 8) {
    // The C library sees each byte as a signed char, as a char-based caller would pass it
    // (glibc's tables accept -128..255); only the low 8 bits of the answer are kept.
    int byte = static_cast<signed char>(static_cast<uint8_t>(fourcc >> shift));
    out |= (static_cast<uint32_t>(convert(byte)) & 0xFF) << shift;
  }
  return out;
}

int upper(int c) { return std::toupper(c); }
int lower(int c) { return std::tolower(c); }

}  // namespace

void initMediaCmd(MEDIACMD* cmd, unsigned cmdCode) {
  if (!cmd) return;
  std::memset(cmd, 0, sizeof *cmd);
  cmd->CmdID = MEDIACMD_SIGNATURE;
  cmd->StructSize = MEDIACMD_SIZE;
  cmd->Channel = kUnset;
  cmd->Cmd = cmdCode;
  cmd->Speed = MEDIACMD_SPEED_NONE;
  unsetMasks(cmd);
  cmd->CmdAlt = kUnset;
  cmd->Position = cmd->Start = cmd->End = -1;
}

void copyMediaCmd(MEDIACMD* dst, const MEDIACMD* src, unsigned flagMask) {
  if (!dst || !src) return;
  const uint32_t from = src->CtrlFlags;
  dst->CmdID = MEDIACMD_SIGNATURE;
  dst->Channel = src->Channel;
  dst->Cmd = src->Cmd;
  dst->CtrlFlags |= from & flagMask;
  for (uint32_t bit : kSourceOnlyFlags)
    if (!(from & bit)) dst->CtrlFlags &= ~bit;
  if (!(from & cfUsePresets)) unsetMasks(dst);

  if (from & cfUseSpeed) {
    dst->CtrlFlags |= cfUseSpeed;
    dst->Speed = src->Speed;
  } else if (runsAtNormalSpeed(src->Cmd)) {
    dst->CtrlFlags |= cfUseSpeed;
    dst->Speed = MEDIACMD_SPEED_NORMAL;
  } else if (standsStill(src->Cmd)) {
    dst->CtrlFlags |= cfUseSpeed;
    dst->Speed = 0;
  } else {
    dst->Speed = MEDIACMD_SPEED_NONE;
  }

  if (from & cfUsePresets) {
    dst->CtrlFlags |= cfUsePresets;
    dst->VideoChannels = src->VideoChannels;
    dst->AudioChannels = src->AudioChannels;
    dst->InfoChannels = src->InfoChannels;
  }
  if ((from & kTimeArgumentFlags) || carriesGetSetCode(src->Cmd)) {
    dst->CmdAlt = src->CmdAlt;
    dst->CtrlFlags |= from & kTimeArgumentFlags;
  }
  dst->Position = src->Position;
  dst->CtrlFlags |= from & (cfUsePosition | cfUsePositionOffset);
  dst->Start = src->Start;
  dst->End = src->End;
  dst->CtrlFlags = (dst->CtrlFlags & ~kStartEndFlags) | (from & kStartEndFlags);

  if (from & cfUseClipID) {
    // strncpy of 8 characters: zero-filled after the text, the ninth byte left as it was.
    bool ended = false;
    for (size_t i = 0; i + 1 < MEDIACMD_CLIPID_SIZE; ++i) {
      ended = ended || src->ClipID[i] == '\0';
      dst->ClipID[i] = ended ? '\0' : src->ClipID[i];
    }
    if (src->StructSize > MEDIACMD_PAYLOAD_OFFSET && dst->StructSize > MEDIACMD_PAYLOAD_OFFSET) {
      size_t srcRoom = src->StructSize - MEDIACMD_PAYLOAD_OFFSET;
      size_t dstRoom = dst->StructSize - MEDIACMD_PAYLOAD_OFFSET;
      size_t limit = srcRoom < dstRoom ? srcRoom : dstRoom;
      if (limit > MEDIACMD_PAYLOAD_COPY_MAX) limit = MEDIACMD_PAYLOAD_COPY_MAX;
      copyBoundedText(dst->Payload, src->Payload, limit);
    }
  }
}

uint32_t fixMediaCmd(MEDIACMD* cmd, unsigned flagMask) {
  if (!cmd) return kUnset;
  const uint32_t flags = (flagMask ? flagMask : kUnset) & cmd->CtrlFlags;
  if (!(flags & cfUsePresets)) unsetMasks(cmd);
  if (flags & cfUseSpeed) return kUnset;
  if (runsAtNormalSpeed(cmd->Cmd)) {
    cmd->Speed = MEDIACMD_SPEED_NORMAL;
    cmd->CtrlFlags |= cfUseSpeed;
  } else if (standsStill(cmd->Cmd)) {
    cmd->Speed = 0;
    cmd->CtrlFlags |= cfUseSpeed;
  }
  return kUnset;
}

uint32_t findChannel(unsigned mask, unsigned* rest, unsigned index) {
  unsigned seen = 0;
  for (uint32_t bit = 0; bit < 32; ++bit) {
    if (!(mask & (1u << bit))) continue;
    if (seen++ == index) {
      if (rest) *rest = mask & ~(1u << bit);
      return bit;
    }
  }
  if (rest) *rest = mask;
  return kUnset;
}

uint32_t isolateChannel(unsigned mask, unsigned index) {
  uint32_t bit = findChannel(mask, nullptr, index);
  return bit == kUnset ? 0 : 1u << bit;
}

uint32_t totalChannels(unsigned mask) { return static_cast<uint32_t>(__builtin_popcount(mask)); }

uint32_t fourccToUpper(unsigned fourcc) { return mapBytes(fourcc, upper); }
uint32_t fourccToLower(unsigned fourcc) { return mapBytes(fourcc, lower); }

namespace {
// The playout stepper's state, shared process-wide (one playout loop at a time).
struct SpeedStepper {
  int64_t lastSpeed = 0;
  double factor = 0.0;  // fields per frame period: normal speed gives 2.0
  double accumulator = 0.0;
};
SpeedStepper gStepper;
}  // namespace

int speedReps(unsigned* count, int speed) {
  if (speed == 0) return 0;
  SpeedStepper& s = gStepper;
  if (speed != MEDIACMD_SPEED_NONE && speed != s.lastSpeed) {
    s.lastSpeed = speed;
    s.accumulator = 0.0;
    s.factor = std::fabs(static_cast<double>(speed)) / 32760.0;
  }
  // Kept speed before any real speed was seen: there is nothing to step.
  if (s.factor == 0.0) return 0;
  if (s.lastSpeed < MEDIACMD_SPEED_NORMAL) {
    // Slow motion (and every reverse speed): repeat the field 1/factor times, carrying the
    // fraction so that the average repetition matches the speed.
    if (count) ++*count;
    double t = 1.0 / s.factor;
    double whole = std::trunc(t);
    int result = static_cast<int>(whole);
    double acc = t - whole + s.accumulator;
    if (acc > 1.0) {
      result = static_cast<int>(whole) + 1;
      acc -= std::trunc(acc);
    }
    s.accumulator = acc;
    return result;
  }
  // Normal speed or faster: skip `factor` fields per period, carrying the fraction.
  double whole = std::trunc(s.factor);
  double acc = s.factor - whole + s.accumulator;
  s.accumulator = acc;
  if (!count) return 1;
  *count += static_cast<unsigned>(whole);
  if (acc > 1.0) {
    *count += 1;
    s.accumulator = acc - std::trunc(acc);
  }
  return 1;
}

uint32_t speedRate(int speed) {
  double r = std::fabs(static_cast<double>(speed)) / 65520.0;
  double whole = std::trunc(r);
  uint32_t fraction = static_cast<uint32_t>(std::trunc((r - whole) * 65536.0)) & 0xFFFF;
  return (static_cast<uint32_t>(whole) << 16) | fraction;
}
