// Hand-made HEVC SEI messages, one x265 picture split into its parameter sets and slices to frame
// them, and the units of a frame as the frame-wide search lists them.
#pragma once
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "streamutil/nal_units.h"
#include "support/test_support.h"

namespace hdrtest {

using Bytes = std::vector<uint8_t>;

struct Message {
  uint8_t type;
  Bytes payload;
};

// Mastering display, content light level, alternative transfer characteristics.
inline bool isHdr(uint8_t type) { return type == 137 || type == 144 || type == 147; }

inline const Message kLightLevel = {144, {0x03, 0xE8, 0x01, 0x90}};
inline const Message kTransfer = {147, {18}};
inline const Bytes kUuid(16, 0x5A);
// A user_data_unregistered payload: the uuid, then `tail`.
inline Bytes withUuid(Bytes tail) {
  tail.insert(tail.begin(), kUuid.begin(), kUuid.end());
  return tail;
}

struct Picture {
  std::vector<Bytes> parameterSets, slices;
};

// Appends `unit` behind a start code of `startCode` bytes (3 or 4), or behind its 4-byte length.
inline void append(Bytes& frame, const Bytes& unit, int startCode, bool startCodes) {
  if (!startCodes) {
    const auto n = static_cast<uint32_t>(unit.size());
    frame.insert(frame.end(), {uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n)});
  } else {
    if (startCode == 4) frame.push_back(0);
    frame.insert(frame.end(), {0, 0, 1});
  }
  frame.insert(frame.end(), unit.begin(), unit.end());
}

// The units of a frame as the frame-wide search lists them (counted first, then listed); its
// result goes to *rc when asked for.
inline std::vector<KLX_NAL_UNIT> unitsOf(const Bytes& frame, bool hevc, bool startCodes, int* rc = nullptr) {
  auto finder = hevc ? klxutilFindNalUnitsHevc : klxutilFindNalUnits;
  uint32_t count = 0;
  finder(frame.data(), static_cast<uint32_t>(frame.size()), startCodes, nullptr, 0, &count);
  std::vector<KLX_NAL_UNIT> units(count);
  const int result = finder(frame.data(), static_cast<uint32_t>(frame.size()), startCodes, units.data(), count, &count);
  if (rc) *rc = result;
  units.resize(std::min<size_t>(count, units.size()));
  return units;
}

// The picture's parameter sets, then `middle` (each unit behind a start code of the given length),
// then its slices.
inline Bytes frameOf(const Picture& p, const std::vector<std::pair<Bytes, int>>& middle, bool startCodes) {
  Bytes frame;
  for (const Bytes& u : p.parameterSets) append(frame, u, 4, startCodes);
  for (const auto& [unit, startCode] : middle) append(frame, unit, startCode, startCodes);
  for (const Bytes& u : p.slices) append(frame, u, 4, startCodes);
  return frame;
}

inline Picture x265Picture() {
  const std::string path = qtest::encodedStream(
      "hdr_room_x265.hevc", "-f lavfi -i testsrc2=size=128x96:rate=25 -frames:v 1 -c:v libx265 -x265-params log-level=error -f hevc");
  const Bytes stream = qtest::readBytes(path);
  Picture p;
  for (const auto& u : unitsOf(stream, true, true)) {
    const Bytes b(stream.begin() + u.offset + u.prefixLength, stream.begin() + u.offset + u.prefixLength + u.size);
    if (u.type >= 32 && u.type <= 34) p.parameterSets.push_back(b);
    if (u.type < 32) p.slices.push_back(b);
  }
  return p;
}

}  // namespace hdrtest
