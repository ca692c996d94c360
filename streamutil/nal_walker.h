// Internal: the walk from NAL unit to NAL unit of one frame, in either framing, shared by the
// frame-wide search and the editors of streamutil. No allocation; every read is inside the frame.
#pragma once
#include <cstdint>

#include "nal_units.h"
#include "../syntax/byte_scan.h"

namespace nal_walk {

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
  // wantEnd(header offset) says whether the unit's end is needed: in Annex B finding it means
  // scanning the whole unit, which a caller that stops at a slice can skip (step.end is then the
  // frame size, and the scan happens only if the walk goes on).
  template <class WantEnd>
  bool next(Step& step, WantEnd&& wantEnd) {
    return annexB_ ? nextAnnexB(step, wantEnd) : nextLengthPrefixed(step);
  }
  bool next(Step& step) {
    return next(step, [](uint64_t) { return true; });
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

  // True when the bytes at `h` are the next start code itself: the unit would be empty.
  bool startCodeAt(uint64_t h) const {
    auto at = [&](uint64_t i, uint8_t v) { return i < size_ && d_[i] == v; };
    return at(h, 0) && at(h + 1, 0) && (at(h + 2, 1) || (at(h + 2, 0) && at(h + 3, 1)));
  }

  // A start code with nothing behind it before the next one (zero stuffing) is not a unit.
  template <class WantEnd>
  bool nextAnnexB(Step& step, WantEnd& wantEnd) {
    if (pendingFrom_) {  // the end of the previous unit was not looked for
      nextCode_ = findCode(pendingFrom_);
      pendingFrom_ = 0;
    }
    for (;;) {
      const uint64_t code = nextCode_;
      if (code >= size_ || code + 3 >= size_) return false;  // no unit behind a last start code
      step.header = code + 3;
      step.offset = (code > floor_ && d_[code - 1] == 0) ? code - 1 : code;
      if (!startCodeAt(step.header) && !wantEnd(step.header)) {
        step.end = size_;
        floor_ = step.header;
        pendingFrom_ = step.header;
        return true;
      }
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
  uint64_t pendingFrom_ = 0;  // Annex B: where to look for the next start code, when not looked for yet
};

inline KLX_NAL_UNIT describe(const uint8_t* d, const Step& s, bool hevc) {
  KLX_NAL_UNIT u{};
  u.offset = static_cast<uint32_t>(s.offset);
  u.size = static_cast<uint32_t>(s.end - s.header);
  u.prefixLength = static_cast<uint8_t>(s.header - s.offset);
  const uint8_t h0 = d[s.header];
  if (hevc) {
    const uint8_t h1 = s.end > s.header + 1 ? d[s.header + 1] : 0;  // a missing byte reads as 0 (s.end <= size)
    u.type = (h0 >> 1) & 0x3F;
    u.layer = static_cast<uint8_t>(((h0 & 1) << 5) | (h1 >> 3));
    u.temporalId = static_cast<int8_t>((h1 & 7) - 1);
  } else {
    u.type = h0 & 0x1F;
    u.nalRefIdc = (h0 >> 5) & 3;
  }
  return u;
}

}  // namespace nal_walk
