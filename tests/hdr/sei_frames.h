// Hand-made HEVC SEI messages, and one x265 picture split into its parameter sets and slices to
// frame them.
#pragma once
#include <string>
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

inline Picture x265Picture() {
  const std::string path = qtest::encodedStream(
      "hdr_room_x265.hevc", "-f lavfi -i testsrc2=size=128x96:rate=25 -frames:v 1 -c:v libx265 -x265-params log-level=error -f hevc");
  const Bytes stream = qtest::readBytes(path);
  uint32_t count = 0;
  klxutilFindNalUnitsHevc(stream.data(), static_cast<uint32_t>(stream.size()), 1, nullptr, 0, &count);
  std::vector<KLX_NAL_UNIT> units(count);
  klxutilFindNalUnitsHevc(stream.data(), static_cast<uint32_t>(stream.size()), 1, units.data(), count, &count);
  Picture p;
  for (const auto& u : units) {
    const Bytes b(stream.begin() + u.offset + u.prefixLength, stream.begin() + u.offset + u.prefixLength + u.size);
    if (u.type >= 32 && u.type <= 34) p.parameterSets.push_back(b);
    if (u.type < 32) p.slices.push_back(b);
  }
  return p;
}

}  // namespace hdrtest
