// Timecode types: of a rate, of a format word, their rates and frame durations, and
// re-counting a timecode from one type into another.
#include <array>
#include <cstdint>
#include <cstring>

#include "platform/tcxlat.h"
#include "video/rate_snap.h"
#include "video/vidformat.h"
#include "video/vidrate.h"

namespace {

struct CodeType {
  uint32_t code;
  uint32_t tctype;
};

// Rate code -> type, folding the fast rates onto the timecode of their base rate.
constexpr CodeType kBaseTypes[] = {
    {14, TC_DF2997}, {29, TC_DF2997}, {59, TC_DF2997}, {119, TC_DF2997}, {23, TC_2398},
    {47, TC_2398},   {71, TC_2398},   {24, TC_FILM},   {48, TC_FILM},    {72, TC_FILM},
    {25, TC_PAL},    {50, TC_PAL},    {100, TC_PAL},
};

// Rate code -> type, keeping 50, 59.94 and 60 as types of their own; a byte per code 14..119.
constexpr uint32_t kFirstFpsCode = 14;
constexpr uint32_t kLastFpsCode = 119;
constexpr CodeType kFpsTypes[] = {
    {14, TC_DF2997}, {23, TC_2398}, {24, TC_FILM},   {25, TC_PAL},  {29, TC_DF2997},
    {47, TC_2398},   {48, TC_FILM}, {50, TC_50},     {59, TC_DF5994}, {60, TC_60},
    {71, TC_2398},   {72, TC_FILM}, {100, TC_PAL},   {119, TC_DF2997},
};
constexpr auto makeFpsTable() {
  std::array<uint8_t, kLastFpsCode - kFirstFpsCode + 1> table{};
  for (auto& entry : table) entry = TC_NDF30;
  for (const auto& entry : kFpsTypes) table[entry.code - kFirstFpsCode] = static_cast<uint8_t>(entry.tctype);
  return table;
}
constexpr auto kFpsTypeTable = makeFpsTable();
static_assert(kFpsTypeTable.size() == 106);

struct TypeTiming {
  uint32_t tctype;
  double framesPerSec;
  double msPerFrame;
};
// Type 2 counts 30 a second but lasts a 29.97 frame: 30 NDF timecode is laid on 29.97 video.
constexpr TypeTiming kTimings[] = {
    {TC_FILM, 24.0, 41.666666666666664},
    {TC_NDF30, 30.0, 33.36666666666667},
    {TC_PAL, 25.0, 40.0},
    {TC_50, 50.0, 20.0},
    {TC_DF5994, 60000.0 / 1001.0, 16.68333333333333},
    {TC_60, 60.0, 16.66666666666667},
    {TC_2398, 24000.0 / 1001.0, 41.708333333333336},
    {TC_2398 | TC_DF2997, 24000.0 / 1001.0, 41.708333333333336},
};
// Every other type (29.97 drop-frame included).
constexpr TypeTiming kDefaultTiming{TC_DF2997, 30000.0 / 1001.0, 33.36666666666667};

const TypeTiming& timingOf(uint32_t tctype) {
  for (const auto& entry : kTimings)
    if (entry.tctype == (tctype & 0xFF)) return entry;
  return kDefaultTiming;
}

constexpr size_t kTextSize = 64;

uint32_t canonicalType(uint32_t tctype) { return tctype == (TC_2398 | TC_DF2997) ? TC_2398 : tctype; }

}  // namespace

extern "C" uint32_t vidGetTCType(double fps) { return snapTarget(snapRate(fps).kind).tctype; }

extern "C" uint32_t vidGetTCTypeSignalFormat(uint32_t format) {
  uint32_t code = format & VID_FMT_RATE_MASK;
  for (const auto& entry : kBaseTypes)
    if (entry.code == code) return entry.tctype;
  return TC_NDF30;
}

extern "C" uint32_t vidGetFPSTCTypeSignalFormat(uint32_t format) {
  uint32_t code = format & VID_FMT_RATE_MASK;
  if (code < kFirstFpsCode || code > kLastFpsCode) return TC_NDF30;
  return kFpsTypeTable[code - kFirstFpsCode];
}

extern "C" double vidTCFramesPerSecD(uint32_t tctype) { return timingOf(tctype).framesPerSec; }
extern "C" double vidTCMsPerFrameD(uint32_t tctype) { return timingOf(tctype).msPerFrame; }
extern "C" int vidTCMsPerFrame(uint32_t tctype) { return static_cast<int>(vidTCMsPerFrameD(tctype) + 0.5); }

extern "C" int vidConvertTC(uint32_t* frames, uint32_t toType, uint32_t rate, uint32_t scale) {
  if (!frames || scale == 0) return -1;
  uint32_t from = vidGetTCType(static_cast<double>(rate) / scale);
  if (canonicalType(from) == canonicalType(toType)) return 0;
  // A plain frame count has no fields to carry over: the count stays as it is.
  if (toType == TC_FRAMES) return 0;
  char text[kTextSize];
  std::memset(text, 0, sizeof text);
  if (tc2String(*frames, from | TCF_FULL_TEXT, text, sizeof text) != 0) return -1;
  uint32_t converted = 0;
  if (tc2Frame(text, toType, &converted) != 0) return -1;
  // Counts taken from 59.94 and 60 timecode come back doubled; the hosts that store these
  // counts expect exactly that.
  if (from == TC_DF5994 || from == TC_60) converted *= 2;
  *frames = converted;
  return 0;
}
