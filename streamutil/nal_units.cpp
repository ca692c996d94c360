// Frame-wide NAL unit search, insertion and removal. One walker steps from unit to unit in either
// framing without allocating; the search fills the caller's table from it, the editors use it to
// turn a unit index into a byte offset.
#include "streamutil/nal_units.h"

#include <cstring>

#include "streamutil/nal_walker.h"

namespace {

using nal_walk::describe;
using nal_walk::NalWalker;
using nal_walk::Step;

int findUnits(const uint8_t* frame, uint32_t size, uint32_t startCodes, KLX_NAL_UNIT* units, uint32_t maxUnits,
              uint32_t* count, bool hevc) {
  if (count) *count = 0;
  if ((!frame && size) || !count || (maxUnits && !units)) return KLX_NAL_BAD;
  NalWalker walker(frame, size, startCodes != 0);
  Step step;
  uint32_t n = 0;
  while (walker.next(step)) {
    if (n < maxUnits) units[n] = describe(frame, step, hevc);
    ++n;
  }
  *count = n;
  if (walker.bad()) return KLX_NAL_BAD;
  return n > maxUnits ? KLX_NAL_NO_ROOM : KLX_NAL_OK;
}

// Byte range [begin, end) of units index .. index + count - 1; `begin` alone when count is 0
// (the insertion point: the frame's end when index equals the number of units; for length-prefixed
// framing the end of the last unit, since zero bytes after it end the frame and would hide a unit
// appended behind them).
bool rangeOf(const uint8_t* frame, uint32_t size, bool startCodes, uint32_t index, uint32_t count, uint64_t& begin,
             uint64_t& end) {
  NalWalker walker(frame, size, startCodes);
  Step step;
  uint32_t n = 0;
  bool haveBegin = false;
  uint64_t lastEnd = 0;
  // An insertion point needs only the offset of unit `index`, not its end.
  while (walker.next(step, [&](uint64_t) { return !(count == 0 && n == index); })) {
    if (count == 0 && n == index) {
      begin = end = step.offset;
      return true;
    }
    if (n == index) begin = step.offset, haveBegin = true;
    if (count && n == index + count - 1) {
      end = step.end;
      return haveBegin;
    }
    lastEnd = step.end;
    ++n;
  }
  if (walker.bad()) return false;
  if (count == 0 && n == index) {
    begin = end = startCodes ? size : lastEnd;
    return true;
  }
  if (count == 0) return haveBegin;
  return false;
}

int addUnits(uint8_t* frame, uint32_t* frameSize, uint64_t capacity, uint32_t startCodes, uint32_t index,
             const uint8_t* const* units, const uint32_t* unitSizes, uint32_t unitCount, uint64_t* insertedAt) {
  if (!frame || !frameSize || (unitCount && (!units || !unitSizes))) return KLX_NAL_BAD;
  uint64_t added = 0;
  for (uint32_t i = 0; i < unitCount; ++i) {
    if (!units[i] || unitSizes[i] == 0) return KLX_NAL_BAD;
    added += 4ull + unitSizes[i];
  }
  uint64_t at = 0, unused = 0;
  if (!rangeOf(frame, *frameSize, startCodes != 0, index, 0, at, unused)) return KLX_NAL_BAD;
  if (uint64_t{*frameSize} + added > capacity || uint64_t{*frameSize} + added > 0xFFFFFFFFull) return KLX_NAL_NO_ROOM;
  std::memmove(frame + at + added, frame + at, *frameSize - at);
  uint8_t* p = frame + at;
  for (uint32_t i = 0; i < unitCount; ++i) {
    const uint32_t n = unitSizes[i];
    const uint32_t prefix = startCodes ? 1u : n;
    p[0] = static_cast<uint8_t>(prefix >> 24);
    p[1] = static_cast<uint8_t>(prefix >> 16);
    p[2] = static_cast<uint8_t>(prefix >> 8);
    p[3] = static_cast<uint8_t>(prefix);
    std::memcpy(p + 4, units[i], n);
    p += 4 + n;
  }
  *frameSize += static_cast<uint32_t>(added);
  if (insertedAt) *insertedAt = at;
  return KLX_NAL_OK;
}

}  // namespace

extern "C" {

int klxutilFindNalUnits(const uint8_t* frame, uint32_t size, uint32_t startCodes, KLX_NAL_UNIT* units,
                        uint32_t maxUnits, uint32_t* count) {
  return findUnits(frame, size, startCodes, units, maxUnits, count, false);
}

int klxutilFindNalUnitsHevc(const uint8_t* frame, uint32_t size, uint32_t startCodes, KLX_NAL_UNIT* units,
                            uint32_t maxUnits, uint32_t* count) {
  return findUnits(frame, size, startCodes, units, maxUnits, count, true);
}

int klxutilAddNalUnits(uint8_t* frame, uint32_t* frameSize, uint32_t startCodes, uint32_t index,
                       const uint8_t* const* units, const uint32_t* unitSizes, uint32_t unitCount) {
  return addUnits(frame, frameSize, UINT64_MAX, startCodes, index, units, unitSizes, unitCount, nullptr);
}

int klxutilAddNalUnitsChecked(uint8_t* frame, uint32_t* frameSize, uint32_t capacity, uint32_t startCodes,
                              uint32_t index, const uint8_t* const* units, const uint32_t* unitSizes,
                              uint32_t unitCount) {
  if (frameSize && *frameSize > capacity) return KLX_NAL_BAD;
  return addUnits(frame, frameSize, capacity, startCodes, index, units, unitSizes, unitCount, nullptr);
}

int klxutilAddNalUnitsFrame(DFRAME* frame, uint32_t startCodes, uint32_t index, const uint8_t* const* units,
                            const uint32_t* unitSizes, uint32_t unitCount) {
  if (!frame || frame->nDataSize > frame->nBufferSize) return KLX_NAL_BAD;
  const uint32_t before = frame->nDataSize;
  uint64_t at = 0;
  const int rc = addUnits(frame->pData, &frame->nDataSize, frame->nBufferSize, startCodes, index, units, unitSizes,
                          unitCount, &at);
  constexpr uint32_t kTwoParts = DFRAME_TWO_PARTS | DFRAME_SECOND_PART_VALID;
  if (rc == KLX_NAL_OK && (frame->nFlags & kTwoParts) == kTwoParts && at <= frame->nSecondPartOffset)
    frame->nSecondPartOffset += frame->nDataSize - before;
  return rc;
}

int klxutilRemoveNalUnits(uint8_t* frame, uint32_t* frameSize, uint32_t startCodes, uint32_t index, uint32_t count) {
  if (!frame || !frameSize || count == 0) return KLX_NAL_BAD;
  uint64_t begin = 0, end = 0;
  if (!rangeOf(frame, *frameSize, startCodes != 0, index, count, begin, end)) return KLX_NAL_BAD;
  std::memmove(frame + begin, frame + end, *frameSize - end);
  *frameSize -= static_cast<uint32_t>(end - begin);
  return KLX_NAL_OK;
}

}  // extern "C"
