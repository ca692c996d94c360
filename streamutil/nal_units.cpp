// Frame-wide NAL unit search, insertion and removal. One walker steps from unit to unit in either
// framing without allocating; the search fills the caller's table from it, the editors use it to
// turn a unit index into a byte offset.
#include "streamutil/nal_units.h"

#include <cstring>

#include "syntax/byte_scan.h"

namespace {

using quorvane::scan::findFirst;
using quorvane::scan::Third;

struct Step {
  uint64_t offset = 0;  // start code / length field
  uint64_t header = 0;  // first header byte
  uint64_t end = 0;     // one past the unit (next unit's offset, or the end of the data)
};

class NalWalker {
 public:
  NalWalker(const uint8_t* data, uint32_t size, bool startCodes) : d_(data), size_(size), annexB_(startCodes) {
    if (annexB_) nextCode_ = findCode(0);
  }

  // False at the end of the frame; `bad()` then tells whether the framing was broken.
  bool next(Step& step) {
    return annexB_ ? nextAnnexB(step) : nextLengthPrefixed(step);
  }
  bool bad() const { return bad_; }

 private:
  // Offset of the next start code (its 00 00 01, widened to a leading zero) at or after `from`,
  // or the frame size.
  uint64_t findCode(uint64_t from) const {
    if (size_ < 3 || from + 3 > size_) return size_;
    const uint64_t at = findFirst<Third::kOne>(d_, from, size_ - 2);
    return at >= size_ - 2 ? size_ : at;
  }

  // A start code with nothing behind it before the next one (zero stuffing) is not a unit.
  bool nextAnnexB(Step& step) {
    for (;;) {
      const uint64_t code = nextCode_;
      if (code >= size_ || code + 3 >= size_) return false;  // no unit behind a last start code
      step.header = code + 3;
      step.offset = (code > floor_ && d_[code - 1] == 0) ? code - 1 : code;
      const uint64_t following = findCode(step.header);
      uint64_t end = following;
      if (following < size_ && following > step.header && d_[following - 1] == 0) end = following - 1;
      step.end = end;
      nextCode_ = following;
      floor_ = step.header;
      if (step.end > step.header) return true;
    }
  }

  bool nextLengthPrefixed(Step& step) {
    if (pos_ >= size_) return false;
    const uint64_t left = size_ - pos_;
    uint32_t length = 0;
    if (left >= 4)
      length = (uint32_t{d_[pos_]} << 24) | (uint32_t{d_[pos_ + 1]} << 16) | (uint32_t{d_[pos_ + 2]} << 8) | d_[pos_ + 3];
    if (length == 0) {  // zero padding ends the frame; anything else is a broken chain
      for (uint64_t i = pos_; i < size_; ++i)
        if (d_[i]) bad_ = true;
      pos_ = size_;
      return false;
    }
    if (length > left - 4) {
      bad_ = true;
      pos_ = size_;
      return false;
    }
    step.offset = pos_;
    step.header = pos_ + 4;
    step.end = pos_ + 4 + length;
    pos_ = step.end;
    return true;
  }

  const uint8_t* d_;
  uint64_t size_;
  bool annexB_;
  bool bad_ = false;
  uint64_t pos_ = 0;       // length-prefixed: next length field
  uint64_t nextCode_ = 0;  // Annex B: next 00 00 01
  uint64_t floor_ = 0;     // Annex B: a widening zero must lie behind the previous header
};

KLX_NAL_UNIT describe(const uint8_t* d, const Step& s, bool hevc) {
  KLX_NAL_UNIT u{};
  u.offset = static_cast<uint32_t>(s.offset);
  u.size = static_cast<uint32_t>(s.end - s.header);
  u.prefixLength = static_cast<uint8_t>(s.header - s.offset);
  const uint8_t h0 = d[s.header];
  if (hevc) {
    const uint8_t h1 = s.end > s.header + 1 ? d[s.header + 1] : 0;  // a missing byte reads as 0
    u.type = (h0 >> 1) & 0x3F;
    u.layer = static_cast<uint8_t>(((h0 & 1) << 5) | (h1 >> 3));
    u.temporalId = static_cast<int8_t>((h1 & 7) - 1);
  } else {
    u.type = h0 & 0x1F;
    u.nalRefIdc = (h0 >> 5) & 3;
  }
  return u;
}

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
// (the insertion point: the frame's end when index equals the number of units).
bool rangeOf(const uint8_t* frame, uint32_t size, bool startCodes, uint32_t index, uint32_t count, uint64_t& begin,
             uint64_t& end) {
  NalWalker walker(frame, size, startCodes);
  Step step;
  uint32_t n = 0;
  bool haveBegin = false;
  while (walker.next(step)) {
    if (n == index) begin = step.offset, haveBegin = true;
    if (count && n == index + count - 1) {
      end = step.end;
      return haveBegin;
    }
    ++n;
  }
  if (walker.bad()) return false;
  if (count == 0 && n == index) {
    begin = end = size;
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
