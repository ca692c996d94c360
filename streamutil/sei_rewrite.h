// Internal: replacing a byte range of a frame in place, and rebuilding one SEI NAL unit with
// some of its messages dropped or replaced (shared by the SEI remover, the H.264 timecode
// writer and the caption inserter).
#pragma once
#include <cstdint>
#include <cstring>
#include <vector>

#include "dframe.h"
#include "nal_walk.h"
#include "sei_remove.h"

namespace seirewrite {

inline uint32_t headerBytes(uint32_t codec) { return codec == KLX_CODEC_HEVC ? 2 : 1; }

inline uint32_t unitType(uint32_t codec, uint8_t h) { return codec == KLX_CODEC_HEVC ? (h >> 1) & 0x3F : h & 0x1F; }

inline bool isSeiUnit(uint32_t codec, uint8_t h) {
  const uint32_t t = unitType(codec, h);
  return codec == KLX_CODEC_HEVC ? (t == 39 || t == 40) : t == 6;
}

inline bool isPictureUnit(uint32_t codec, uint8_t h) {
  const uint32_t t = unitType(codec, h);
  return codec == KLX_CODEC_HEVC ? t < 32 : ((t >= 1 && t <= 5) || t == 14 || t == 20);
}

// Replaces frame bytes [from, to) by n bytes of src, moving the tail. KLX_SEI_NO_ROOM_FRAME
// (frame untouched) when the buffer cannot hold the result.
inline int replaceRange(DFRAME* f, uint32_t from, uint32_t to, const uint8_t* src, uint32_t n) {
  const uint64_t newSize = uint64_t(f->nDataSize) - (to - from) + n;
  if (newSize > f->nBufferSize) return KLX_SEI_NO_ROOM_FRAME;
  uint8_t* d = f->pData;
  if (n != to - from) std::memmove(d + from + n, d + to, f->nDataSize - to);
  if (n) std::memcpy(d + from, src, n);
  const uint32_t both = DFRAME_TWO_PARTS | DFRAME_SECOND_PART_VALID;
  if ((f->nFlags & both) == both && from < f->nSecondPartOffset) {
    const int64_t moved = int64_t(f->nSecondPartOffset) + int64_t(n) - int64_t(to - from);
    f->nSecondPartOffset = static_cast<uint32_t>(moved < int64_t(from) ? from : moved);
  }
  f->nDataSize = static_cast<uint32_t>(newSize);
  return 0;
}

// A working buffer on the stack for ordinary SEI units, on the heap only for huge ones.
class Scratch {
 public:
  uint8_t* get(size_t n) {
    if (n <= sizeof stack_) return stack_;
    heap_.resize(n);
    return heap_.data();
  }

 private:
  uint8_t stack_[4096];
  std::vector<uint8_t> heap_;
};

// What an editor does with one message: keep it, drop it, or replace its payload.
constexpr int kKeep = -1;
constexpr int kDrop = -2;

// Rebuilds SEI unit `u` of the frame. For each message the editor
//   int editor(const nalwalk::SeiMessage& m, const uint8_t* rbsp, uint8_t* out, uint32_t cap)
// returns kKeep, kDrop, or the length (<= cap) of a new payload written to out. A unit left
// without messages is removed. Returns the number of messages dropped or replaced (the frame
// is untouched when 0), -1 when the unit cannot be parsed (untouched), or KLX_SEI_NO_ROOM_FRAME.
template <class Editor>
int rewriteSeiUnit(DFRAME* f, const nalwalk::Unit& u, uint32_t codec, bool lengthPrefixed, Editor&& editor) {
  constexpr uint32_t kPayloadRoom = 1024;
  const uint32_t hb = headerBytes(codec);
  const uint32_t nalLength = u.end - u.header;
  if (nalLength <= hb) return -1;
  Scratch rbspScratch, outScratch;
  uint8_t* rbsp = rbspScratch.get(nalLength);
  const uint32_t rbspLength = nalwalk::unescape(f->pData + u.header, nalLength, rbsp, nalLength);
  // New RBSP: every message re-coded, at most kPayloadRoom bytes of new payload each.
  uint8_t* built = outScratch.get(size_t(rbspLength) * 2 + kPayloadRoom * 4 + 64);
  uint32_t n = hb, messages = 0;
  int changed = 0;
  std::memcpy(built, rbsp, hb);
  nalwalk::SeiMessages walk(rbsp, rbspLength, hb);
  nalwalk::SeiMessage m;
  uint8_t payload[kPayloadRoom];
  while (walk.next(m)) {
    const int action = editor(m, rbsp, payload, uint32_t(sizeof payload));
    if (action == kDrop) {
      ++changed;
      continue;
    }
    const uint8_t* src = action == kKeep ? rbsp + m.payload : payload;
    const uint32_t size = action == kKeep ? m.size : static_cast<uint32_t>(action);
    if (action != kKeep) ++changed;
    if (size_t(n) + size + 16 + size / 255 * 2 > size_t(rbspLength) * 2 + kPayloadRoom * 4) return -1;
    n += nalwalk::putCoded(built + n, m.type);
    n += nalwalk::putCoded(built + n, size);
    std::memcpy(built + n, src, size);
    n += size;
    ++messages;
  }
  if (walk.broken()) return -1;
  if (!changed) return 0;
  if (!messages) return replaceRange(f, u.at, u.end, nullptr, 0) == 0 ? changed : KLX_SEI_NO_ROOM_FRAME;
  built[n++] = 0x80;  // rbsp_trailing_bits
  // The escaped unit with its prefix (the original start code, or a new length).
  const uint32_t prefix = u.header - u.at;
  Scratch unitScratch;
  uint8_t* unit = unitScratch.get(size_t(prefix) + hb + (size_t(n) - hb) * 3 / 2 + 4);
  std::memcpy(unit, f->pData + u.at, prefix);
  std::memcpy(unit + prefix, built, hb);
  const uint32_t body = nalwalk::escape(built + hb, n - hb, unit + prefix + hb, (n - hb) * 3 / 2 + 4);
  const uint32_t total = prefix + hb + body;
  if (lengthPrefixed) {
    const uint32_t len = total - 4;
    unit[0] = uint8_t(len >> 24), unit[1] = uint8_t(len >> 16), unit[2] = uint8_t(len >> 8), unit[3] = uint8_t(len);
  }
  return replaceRange(f, u.at, u.end, unit, total) == 0 ? changed : KLX_SEI_NO_ROOM_FRAME;
}

// True for a user_data_registered_itu_t_t35 payload carrying ATSC A/53 cc_data.
inline bool isCaptionPayload(const uint8_t* p, uint32_t size) {
  static constexpr uint8_t kId[] = {0xB5, 0x00, 0x31, 'G', 'A', '9', '4', 0x03};
  return size >= sizeof kId && std::memcmp(p, kId, sizeof kId) == 0;
}

}  // namespace seirewrite

namespace seirewrite {

// Calls f(type, payload, size) for each SEI message of unit `u` that `wanted(type)` selects,
// until f returns true; returns whether it did. Other payloads are skipped in place; a
// selected payload is unescaped into a small buffer (longer ones are cut to it, `size` then
// telling the full length). Units that cannot be parsed end the walk.
template <class Wanted, class F>
bool forEachMessage(const uint8_t* d, const nalwalk::Unit& u, uint32_t codec, Wanted&& wanted, F&& f) {
  const uint32_t hb = headerBytes(codec);
  if (u.end - u.header <= hb) return false;
  nalwalk::EscapedCursor c(d, u.header + hb, u.end);
  uint8_t payload[256];
  while (!c.onlyTrailingBits()) {
    uint32_t type = 0, size = 0;
    uint8_t b = 0xFF;
    while (b == 0xFF) {
      if (!c.byte(b)) return false;
      type += b;
    }
    b = 0xFF;
    while (b == 0xFF) {
      if (!c.byte(b)) return false;
      size += b;
    }
    if (!wanted(type)) {
      if (!c.skip(size)) return false;
      continue;
    }
    uint32_t n = 0;
    for (; n < size && n < sizeof payload; ++n)
      if (!c.byte(payload[n])) return false;
    if (size > n && !c.skip(size - n)) return false;
    if (f(type, static_cast<const uint8_t*>(payload), size < n ? size : n)) return true;
  }
  return false;
}

}  // namespace seirewrite
