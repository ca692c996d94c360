// Lookup of single units in a frame by their first header byte: any unit, and the two that carry
// HEVC HDR side data (the prefix SEI and the Dolby Vision RPU).
//
// Both walks step from unit to unit with the same rule. In length-prefixed frames the step is the
// length field. In Annex B frames it is deliberately coarse, and kept so: the scan behind a unit's
// header stops at the first k where byte k, k+1 or k+2 is zero or byte k+3 is 01, so a unit found
// in this mode ends at its first zero byte.
#include <algorithm>

#include "streamutil/framing.h"

namespace {

constexpr uint8_t kHevcPrefixSeiHeader = 0x4E;  // nal_unit_type 39
constexpr uint8_t kDolbyVisionRpuHeader = 0x7C;  // nal_unit_type 62

uint64_t nextUnitPosition(const uint8_t* buf, uint32_t size, uint64_t pos, uint32_t startCodes) {
  const uint64_t limit = size - 4;
  if (startCodes == 0) {
    const uint8_t* p = buf + pos;
    uint32_t length = (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
    return pos + 4 + length;
  }
  uint64_t k = pos + 4;
  for (; k < limit; k++) {
    if (buf[k] == 0 || buf[k + 1] == 0 || buf[k + 2] == 0 || buf[k + 3] == 1) break;
  }
  return k;
}

// A unit is never reported past the end of the frame, whatever a length field claims.
uint32_t unitLength(uint64_t unitStart, uint64_t next, uint32_t size) {
  uint64_t end = std::min<uint64_t>(next, size);
  return end > unitStart ? static_cast<uint32_t>(end - unitStart) : 0;
}

// A unit found by the Dolby Vision walk: open (length 0) until the walk passes its pointer.
struct FoundUnit {
  bool found = false;
  uint64_t pos = 0;  // offset of the second header byte
  uint32_t length = 0;

  void open(uint64_t at) {
    found = true;
    pos = at;
    length = 0;
  }
  void closeAt(uint64_t next, uint32_t size) {
    if (found && length == 0) length = unitLength(pos, next, size);
  }
};

}  // namespace

extern "C" {

int klxUtilFindSpecificNAL(uint8_t* buf, uint32_t size, uint32_t startCodes, uint8_t nalHeaderByte,
                           uint8_t** unit, uint32_t* unitLength_) {
  if (buf == nullptr || size < 4) return 0;
  uint8_t* ignoredUnit;
  uint32_t ignoredLength;
  if (unit == nullptr) unit = &ignoredUnit;
  if (unitLength_ == nullptr) unitLength_ = &ignoredLength;
  *unit = nullptr;
  *unitLength_ = 0;
  const uint64_t limit = size - 4;
  for (uint64_t pos = 0; pos < limit;) {
    uint64_t next = nextUnitPosition(buf, size, pos, startCodes);
    if (buf[pos + 4] == nalHeaderByte) {
      *unit = buf + pos;
      *unitLength_ = unitLength(pos, next, size);
      return *unitLength_ != 0 ? 1 : 0;
    }
    pos = next;
  }
  return 0;
}

int klxUtilFindDolbyVisionMetadata(uint8_t* buf, uint32_t size, uint32_t startCodes, uint8_t** sei,
                                   uint32_t* seiLength, uint8_t** rpu, uint32_t* rpuLength) {
  if (buf == nullptr || size < 4) return 0;
  FoundUnit seiUnit;
  FoundUnit rpuUnit;
  const uint64_t limit = size - 4;
  uint64_t pos = 0;
  while (pos < limit) {
    const uint8_t header = buf[pos + 4];
    if (header == kHevcPrefixSeiHeader) seiUnit.open(pos + 5);  // the last one wins
    if (header == kDolbyVisionRpuHeader) rpuUnit.open(pos + 5);
    uint64_t next = nextUnitPosition(buf, size, pos, startCodes);
    seiUnit.closeAt(next, size);
    rpuUnit.closeAt(next, size);
    pos = next;
  }
  seiUnit.closeAt(pos, size);
  rpuUnit.closeAt(pos, size);

  auto publish = [buf](const FoundUnit& unit, uint8_t** pointer, uint32_t* length) {
    if (pointer) *pointer = unit.found ? buf + unit.pos : nullptr;
    if (length) *length = unit.found ? unit.length : 0;
  };
  publish(seiUnit, sei, seiLength);
  publish(rpuUnit, rpu, rpuLength);
  if (rpuUnit.found && rpuUnit.length != 0) return 1;
  if (seiUnit.found && seiUnit.length != 0) return 1;
  return 0;
}

}  // extern "C"
