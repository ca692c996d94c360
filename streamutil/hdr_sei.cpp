// HDR static metadata SEI: payload writers and readers, one-message SEI units, and their
// replacement in a frame.
#include "streamutil/hdr_sei.h"

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "streamutil/nal_units.h"
#include "streamutil/nal_walker.h"
#include "streamutil/sei.h"

namespace {

constexpr uint32_t kMaxUnitsScanned = 256;
constexpr uint32_t kUnitScratch = 128;  // one HDR message unit with its escapes fits easily

bool isHdrType(uint32_t t) {
  return t == KLX_SEI_MASTERING_DISPLAY || t == KLX_SEI_CONTENT_LIGHT_LEVEL || t == KLX_SEI_ALTERNATIVE_TRANSFER;
}

uint32_t presentBit(uint32_t t) {
  switch (t) {
    case KLX_SEI_MASTERING_DISPLAY: return KLX_HDR_HAS_MASTERING_DISPLAY;
    case KLX_SEI_CONTENT_LIGHT_LEVEL: return KLX_HDR_HAS_CONTENT_LIGHT_LEVEL;
    case KLX_SEI_ALTERNATIVE_TRANSFER: return KLX_HDR_HAS_ALTERNATIVE_TRANSFER;
    default: return 0;
  }
}

uint32_t payloadBytes(uint32_t t) {
  switch (t) {
    case KLX_SEI_MASTERING_DISPLAY: return 24;
    case KLX_SEI_CONTENT_LIGHT_LEVEL: return 4;
    case KLX_SEI_ALTERNATIVE_TRANSFER: return 1;
    default: return 0;
  }
}

void put16(uint8_t*& p, uint32_t v) {
  *p++ = static_cast<uint8_t>(v >> 8);
  *p++ = static_cast<uint8_t>(v);
}
void put32(uint8_t*& p, uint32_t v) {
  put16(p, v >> 16);
  put16(p, v & 0xFFFF);
}
uint16_t get16(const uint8_t* p) { return static_cast<uint16_t>((p[0] << 8) | p[1]); }
uint32_t get32(const uint8_t* p) { return (uint32_t{get16(p)} << 16) | get16(p + 2); }

bool isSeiUnit(uint32_t hevc, uint8_t type) { return hevc ? type == 39 : type == 6; }
bool isVclUnit(uint32_t hevc, uint8_t type) { return hevc ? type < 32 : (type >= 1 && type <= 5); }

// The units in front of the first slice: where parameter sets and SEI live. The walk stops at the
// first slice without scanning it, so the cost does not grow with the picture's size.
struct PrefixUnits {
  KLX_NAL_UNIT units[kMaxUnitsScanned];
  uint32_t count = 0;   // units in front of the first slice (or all units when there is none)
  uint32_t firstSlice = 0;  // its start code / length field; without a slice, where a unit is appended
  bool bad = false;     // unreadable framing
  bool tooMany = false;  // more than kMaxUnitsScanned units in front of the first slice
};

void scanPrefix(const uint8_t* frame, uint32_t size, uint32_t startCodes, uint32_t hevc, PrefixUnits& out) {
  nal_walk::NalWalker walker(frame, size, startCodes != 0);
  nal_walk::Step step;
  auto isSlice = [&](uint64_t header) {
    const uint8_t h = frame[header];
    return isVclUnit(hevc, hevc ? (h >> 1) & 0x3F : h & 0x1F);
  };
  out.count = 0;
  uint64_t lastEnd = 0;
  while (walker.next(step, [&](uint64_t header) { return !isSlice(header); })) {
    if (isSlice(step.header)) {
      out.firstSlice = static_cast<uint32_t>(step.offset);
      return;
    }
    if (out.count == kMaxUnitsScanned) {
      out.tooMany = true;
      return;
    }
    out.units[out.count++] = nal_walk::describe(frame, step, hevc);
    lastEnd = step.end;
  }
  out.bad = walker.bad();
  // As klxutilAddNalUnits appends: at the end of Annex B data, behind the last unit of
  // length-prefixed data (in front of the zero bytes that end it).
  out.firstSlice = startCodes ? size : static_cast<uint32_t>(lastEnd);
}

// Reads RBSP bytes out of an escaped unit: the 03 of every 00 00 03 is dropped.
class RbspReader {
 public:
  RbspReader(const uint8_t* p, size_t n) : p_(p), n_(n) {}
  bool get(uint8_t& b) {
    if (i_ >= n_) return false;
    b = p_[i_++];
    if (zeros_ >= 2 && b == 3) {
      zeros_ = 0;
      if (i_ >= n_) return false;
      b = p_[i_++];
    }
    zeros_ = b == 0 ? zeros_ + 1 : 0;
    return true;
  }
  // Skips n RBSP bytes. Runs of non-zero bytes (most of any payload) are passed over whole;
  // only the bytes around zeros go through get().
  bool skip(size_t n) {
    while (n > 0) {
      if (zeros_ == 0 && i_ < n_) {
        const size_t run = std::min(n, n_ - i_);
        const void* zero = std::memchr(p_ + i_, 0, run);
        const size_t plain = zero ? static_cast<size_t>(static_cast<const uint8_t*>(zero) - (p_ + i_)) : run;
        i_ += plain;
        n -= plain;
        if (n == 0) return true;
      }
      uint8_t b = 0;
      if (!get(b)) return false;
      --n;
    }
    return true;
  }
  size_t position() const { return i_; }

 private:
  const uint8_t* p_;
  size_t n_;
  size_t i_ = 0;
  int zeros_ = 0;
};

// sei_message(): payloadType and payloadSize as 0xFF runs plus a last byte.
bool readCoded(RbspReader& r, uint32_t& value) {
  value = 0;
  uint8_t b = 0;
  do {
    if (!r.get(b)) return false;
    if (value > 0x00FFFFFFu) return false;  // absurd: no real message is this large
    value += b;
  } while (b == 0xFF);
  return true;
}

// Visits each message of an SEI unit (`body` = the bytes behind the NAL header, escaped).
// visit(type, size, reader) must consume exactly the payload through the reader. Returns false
// when the unit is cut short.
template <class Visit>
bool forEachMessage(const uint8_t* body, size_t size, Visit&& visit) {
  size_t last = size;  // the rbsp_trailing_bits byte: the last non-zero byte
  while (last > 0 && body[last - 1] == 0) --last;
  if (last == 0) return true;
  RbspReader r(body, last - 1);
  while (r.position() < last - 1) {
    uint32_t type = 0, payloadSize = 0;
    if (!readCoded(r, type) || !readCoded(r, payloadSize)) return false;
    if (!visit(type, payloadSize, r)) return false;
  }
  return true;
}

// Copies up to `cap` payload bytes out of the reader, consuming all `size`.
bool takePayload(RbspReader& r, uint32_t size, uint8_t* out, uint32_t cap) {
  if (!out || cap == 0) return r.skip(size);
  for (uint32_t i = 0; i < size; ++i) {
    uint8_t b = 0;
    if (!r.get(b)) return false;
    if (i < cap) out[i] = b;
  }
  return true;
}

struct UnitBody {
  const uint8_t* data;
  size_t size;
};
UnitBody bodyOf(const uint8_t* frame, const KLX_NAL_UNIT& u, uint32_t hevc) {
  const uint32_t headerBytes = hevc ? 2 : 1;
  const size_t start = size_t{u.offset} + u.prefixLength + headerBytes;
  const size_t end = size_t{u.offset} + u.prefixLength + u.size;
  return start < end ? UnitBody{frame + start, end - start} : UnitBody{frame + end, 0};
}

// kUnreadable: cut short after an HDR message, which the reader still reports; a unit cut short
// before any HDR message holds nothing to remove and counts as kNoHdr.
enum class SeiKind { kNoHdr, kOnlyHdr, kMixed, kUnreadable };

SeiKind classify(const UnitBody& body) {
  bool hdr = false, other = false;
  const bool ok = forEachMessage(body.data, body.size, [&](uint32_t type, uint32_t size, RbspReader& r) {
    (isHdrType(type) ? hdr : other) = true;
    return takePayload(r, size, nullptr, 0);
  });
  if (!hdr) return SeiKind::kNoHdr;
  if (!ok) return SeiKind::kUnreadable;
  return other ? SeiKind::kMixed : SeiKind::kOnlyHdr;
}

template <class Emit>
void putCoded(uint32_t v, Emit& emit) {
  for (; v >= 0xFF; v -= 0xFF) emit(uint8_t{0xFF});
  emit(static_cast<uint8_t>(v));
}

// The RBSP of an SEI unit without its HDR messages: the other messages as coded (payloadType and
// payloadSize recoded the one way they can be), then rbsp_trailing_bits. Each byte goes to
// emit(byte) after the bytes it comes from have been read, and never more bytes than were read
// (the coding is canonical), so emit may write over the unit's own body behind the reader.
template <class Emit>
bool forEachKeptByte(const UnitBody& body, Emit&& emit) {
  const bool ok = forEachMessage(body.data, body.size, [&](uint32_t type, uint32_t size, RbspReader& r) {
    if (isHdrType(type)) return r.skip(size);
    putCoded(type, emit);
    putCoded(size, emit);
    for (uint32_t i = 0; i < size; ++i) {
      uint8_t b = 0;
      if (!r.get(b)) return false;
      emit(b);
    }
    return true;
  });
  if (!ok) return false;
  emit(uint8_t{0x80});
  return true;
}

// Emulation prevention (H.265 7.4.2 / H.264 7.4.1): an 03 in front of any byte <= 3 that follows
// two zero bytes of the payload. The count starts behind the NAL unit header, as the nal_unit()
// syntax (H.265 7.3.1.1 / H.264 7.3.1) and RbspReader look for emulation_prevention_three_byte
// there only: an 03 written because of a zero header byte would be read as data.
class Escaper {
 public:
  template <class Out>
  void put(uint8_t b, Out&& out) {
    if (zeros_ >= 2 && b <= 3) out(uint8_t{3}), zeros_ = 0;
    out(b);
    zeros_ = b == 0 ? zeros_ + 1 : 0;
  }

 private:
  int zeros_ = 0;
};

// One SEI unit in front of the first slice that loses its HDR messages. Offsets are those of the
// frame as given.
struct SeiEdit {
  uint32_t begin;       // the unit's start code / length field
  uint32_t end;         // one past the unit (its trailing zero bytes included)
  uint32_t newBytes;    // 0: the unit goes; else its rewrite, 4-byte start code / length included
  uint32_t rbspBytes;   // the rewrite's RBSP before emulation prevention (trailing bits included)
  uint8_t prefixLength;
  int64_t delta() const { return int64_t{newBytes} - (int64_t{end} - begin); }
};

// Every change of one klxutilSetHdrSei call, worked out before the frame is touched.
struct HdrPlan {
  SeiEdit edits[kMaxUnitsScanned];
  uint32_t editCount = 0;
  uint32_t unitsInFront = 0;  // units in front of the first slice, as given
  uint32_t unitsRemoved = 0;
  uint32_t insertAt = 0;   // the first slice's offset (the end without one): where the new units go
  uint64_t newUnitBytes = 0;
  uint64_t finalSize = 0;
};

// True when a rewrite would begin with a start code: behind an HEVC NAL unit header whose second
// byte is 0 (nuh_temporal_id_plus1 0, forbidden), kept messages that begin 00 01 make 00 00 01,
// where a byte stream's unit walk cuts the unit (H.265 B.2). No escape helps: an 03 there is not
// an emulation_prevention_three_byte (the search starts behind the header) and would be read as data.
bool startsWithStartCode(const uint8_t* header, uint32_t headerBytes, uint32_t startCodes, const uint8_t* rbsp,
                         uint64_t rbspBytes) {
  return startCodes && header[headerBytes - 1] == 0 && rbspBytes >= 2 && rbsp[0] == 0 && rbsp[1] == 1;
}

// The rewrite's size by a dry run of the code that writes it (rewriteInPlace): same walk, same
// escaper, only counting. False for a unit that cannot be rewritten and still read as it was.
bool measureRewrite(const uint8_t* frame, const KLX_NAL_UNIT& u, uint32_t startCodes, uint32_t hevc, SeiEdit& edit) {
  const uint32_t headerBytes = hevc ? 2 : 1;
  Escaper escaper;
  uint64_t rbsp = 0, escaped = 0;
  uint8_t first[2] = {};
  if (!forEachKeptByte(bodyOf(frame, u, hevc), [&](uint8_t b) {
        if (rbsp < sizeof first) first[rbsp] = b;
        ++rbsp;
        escaper.put(b, [&](uint8_t) { ++escaped; });
      }))
    return false;
  if (startsWithStartCode(frame + u.offset + u.prefixLength, headerBytes, startCodes, first, rbsp)) return false;
  if (4 + headerBytes + escaped > UINT32_MAX) return false;
  edit.rbspBytes = static_cast<uint32_t>(rbsp);
  edit.newBytes = static_cast<uint32_t>(4 + headerBytes + escaped);
  return true;
}

// Works out every change: which SEI units go, which are rewritten and how long they come out, the
// insertion point and the final size. -1 for a unit that cannot be read or rewritten; the frame
// is not written.
int planHdrEdits(const uint8_t* frame, uint32_t size, uint32_t startCodes, uint32_t hevc, uint64_t newUnitBytes,
                 HdrPlan& plan) {
  PrefixUnits prefix;
  scanPrefix(frame, size, startCodes, hevc, prefix);
  if (prefix.bad || prefix.tooMany) return -1;
  plan.editCount = plan.unitsRemoved = 0;
  int64_t change = 0;
  for (uint32_t i = 0; i < prefix.count; ++i) {
    const KLX_NAL_UNIT& u = prefix.units[i];
    if (!isSeiUnit(hevc, u.type)) continue;
    const SeiKind kind = classify(bodyOf(frame, u, hevc));
    // An HDR message in a unit that cannot be rewritten would stay and still be read.
    if (kind == SeiKind::kUnreadable) return -1;
    if (kind == SeiKind::kNoHdr) continue;
    SeiEdit& edit = plan.edits[plan.editCount++];
    edit = SeiEdit{u.offset, u.offset + u.prefixLength + u.size, 0, 0, u.prefixLength};
    if (kind == SeiKind::kMixed && !measureRewrite(frame, u, startCodes, hevc, edit)) return -1;
    if (kind == SeiKind::kOnlyHdr) ++plan.unitsRemoved;
    change += edit.delta();
  }
  plan.unitsInFront = prefix.count;
  plan.insertAt = prefix.firstSlice;
  plan.newUnitBytes = newUnitBytes;
  plan.finalSize = static_cast<uint64_t>(int64_t{size} + change) + newUnitBytes;
  return 0;
}

void putPrefix(uint8_t* p, uint32_t startCodes, uint32_t unitBytes) {
  const uint32_t v = startCodes ? 1u : unitBytes;
  p[0] = static_cast<uint8_t>(v >> 24);
  p[1] = static_cast<uint8_t>(v >> 16);
  p[2] = static_cast<uint8_t>(v >> 8);
  p[3] = static_cast<uint8_t>(v);
}

// Rewrites the mixed unit at `unit` (edit.end - edit.begin bytes, room for edit.newBytes) without
// its HDR messages and without a buffer: the kept RBSP is first compacted over the body (the writer
// stays behind the reader), moved to the end of the unit's new room, then escaped forwards from the
// front (the writer stays behind it, since it is placed exactly the escapes' count further on).
void rewriteInPlace(uint8_t* unit, const SeiEdit& edit, uint32_t startCodes, uint32_t hevc) {
  const uint32_t headerBytes = hevc ? 2 : 1;
  uint8_t header[2] = {unit[edit.prefixLength], hevc ? unit[edit.prefixLength + 1] : uint8_t{0}};
  uint8_t* body = unit + edit.prefixLength + headerBytes;
  uint8_t* kept = body;
  [[maybe_unused]] const bool ok =
      forEachKeptByte(UnitBody{body, edit.end - edit.begin - edit.prefixLength - headerBytes}, [&](uint8_t b) { *kept++ = b; });
  assert(ok && static_cast<uint32_t>(kept - body) == edit.rbspBytes);
  uint8_t* rbsp = unit + edit.newBytes - edit.rbspBytes;
  std::memmove(rbsp, body, edit.rbspBytes);
  putPrefix(unit, startCodes, edit.newBytes - 4);
  std::memcpy(unit + 4, header, headerBytes);
  uint8_t* out = unit + 4 + headerBytes;
  Escaper escaper;
  for (uint32_t i = 0; i < edit.rbspBytes; ++i) escaper.put(rbsp[i], [&](uint8_t b) { *out++ = b; });
  assert(out == unit + edit.newBytes);
}

// Applies one edit to the unit now at `at`; the region in front of the first slice ends at
// `regionEnd`, which moves by the edit's delta. A growing edit needs that much room behind the region.
void applyEdit(uint8_t* frame, uint64_t at, const SeiEdit& edit, uint64_t& regionEnd, uint32_t startCodes,
               uint32_t hevc) {
  const uint64_t oldBytes = edit.end - edit.begin;
  const uint64_t following = at + oldBytes;
  if (edit.newBytes > oldBytes)
    std::memmove(frame + at + edit.newBytes, frame + following, regionEnd - following);
  if (edit.newBytes) rewriteInPlace(frame + at, edit, startCodes, hevc);
  if (edit.newBytes < oldBytes)
    std::memmove(frame + at + edit.newBytes, frame + following, regionEnd - following);
  regionEnd = static_cast<uint64_t>(static_cast<int64_t>(regionEnd) + edit.delta());
}

// Commits a plan. The order keeps every intermediate size within the larger of the frame's and the
// final size (so within the capacity, with nothing to undo): when the frame grows, the tail from the
// first slice on moves up first, once; the region in front is then edited shrinking edits first, back
// to front (each at its place as given), then growing ones (behind the shrunk region), then the new
// units go in; when it shrinks, the tail moves down last.
void commitPlan(uint8_t* frame, uint32_t* size, const HdrPlan& plan, uint32_t startCodes, uint32_t hevc,
                const uint8_t* const* units, const uint32_t* unitSizes, uint32_t unitCount) {
  const uint64_t before = *size;
  const uint64_t at = plan.insertAt;
  if (plan.finalSize > before) std::memmove(frame + at + (plan.finalSize - before), frame + at, before - at);
  uint64_t regionEnd = at;
  int64_t shrinkInFront = 0;  // the shrinking edits' deltas in front of the current one
  for (uint32_t k = 0; k < plan.editCount; ++k)
    if (plan.edits[k].delta() <= 0) shrinkInFront += plan.edits[k].delta();
  for (uint32_t k = plan.editCount; k-- > 0;)
    if (plan.edits[k].delta() <= 0) applyEdit(frame, plan.edits[k].begin, plan.edits[k], regionEnd, startCodes, hevc);
  for (uint32_t k = plan.editCount; k-- > 0;) {
    const SeiEdit& edit = plan.edits[k];
    if (edit.delta() <= 0) {
      shrinkInFront -= edit.delta();
      continue;
    }
    applyEdit(frame, static_cast<uint64_t>(int64_t{edit.begin} + shrinkInFront), edit, regionEnd, startCodes, hevc);
  }
  uint8_t* p = frame + regionEnd;
  for (uint32_t i = 0; i < unitCount; ++i) {
    putPrefix(p, startCodes, unitSizes[i]);
    std::memcpy(p + 4, units[i], unitSizes[i]);
    p += 4 + unitSizes[i];
  }
  if (plan.finalSize < before) std::memmove(frame + at + plan.finalSize - before, frame + at, before - at);
  assert(static_cast<uint64_t>(p - frame) == at + plan.finalSize - before);
  *size = static_cast<uint32_t>(plan.finalSize);
}

}  // namespace

extern "C" {

uint32_t klxutilWriteHdrSeiPayload(uint32_t payloadType, const KLX_HDR_METADATA* md, uint8_t* out, uint32_t capacity) {
  const uint32_t n = payloadBytes(payloadType);
  if (!md || !out || n == 0 || capacity < n) return 0;
  uint8_t* p = out;
  if (payloadType == KLX_SEI_MASTERING_DISPLAY) {
    const KLX_MASTERING_DISPLAY& m = md->masteringDisplay;
    for (int c = 0; c < 3; ++c) {
      put16(p, m.display_primaries_x[c]);
      put16(p, m.display_primaries_y[c]);
    }
    put16(p, m.white_point_x);
    put16(p, m.white_point_y);
    put32(p, m.max_display_mastering_luminance);
    put32(p, m.min_display_mastering_luminance);
  } else if (payloadType == KLX_SEI_CONTENT_LIGHT_LEVEL) {
    put16(p, md->contentLightLevel.max_content_light_level);
    put16(p, md->contentLightLevel.max_pic_average_light_level);
  } else {
    *p++ = md->preferredTransferCharacteristics;
  }
  return n;
}

uint32_t klxutilWriteHdrSeiUnit(uint32_t hevc, uint32_t payloadType, const KLX_HDR_METADATA* md, uint8_t* out,
                                uint32_t capacity) {
  uint8_t payload[32];
  const uint32_t n = klxutilWriteHdrSeiPayload(payloadType, md, payload, sizeof payload);
  if (n == 0 || !out) return 0;
  uint8_t work[kUnitScratch] = {};
  zr_bitstream w{work, static_cast<int64_t>(sizeof work), sizeof work * 8, 0};
  WriteBits(&w, 32, 1);  // start code, dropped below
  if (hevc) {
    WriteBits(&w, 16, 0x4E01);  // forbidden_zero_bit 0, PREFIX_SEI_NUT, nuh_layer_id 0, temporal id plus1 1
  } else {
    WriteBits(&w, 8, 0x06);  // nal_ref_idc 0, nal_unit_type 6
  }
  const uint32_t sizeIndex = static_cast<uint32_t>(w.position / 8) + 1;
  WriteBits(&w, 8, payloadType);
  WriteBits(&w, 8, n);  // payloadSize, patched by CloseSEI to the same value
  for (uint32_t i = 0; i < n; ++i) WriteBits(&w, 8, payload[i]);
  uint8_t unit[kUnitScratch];
  zr_bitstream o{unit, static_cast<int64_t>(sizeof unit), sizeof unit * 8, 0};
  CloseSEI(&w, &o, sizeIndex, false);
  const uint32_t total = static_cast<uint32_t>(o.position / 8);
  if (total <= 4 || total > sizeof unit || total - 4 > capacity) return 0;
  std::memcpy(out, unit + 4, total - 4);
  return total - 4;
}

int klxutilReadHdrSeiPayload(uint32_t payloadType, const uint8_t* payload, uint32_t size, KLX_HDR_METADATA* md) {
  const uint32_t n = payloadBytes(payloadType);
  if (!md || !payload || n == 0 || size < n) return -1;
  if (payloadType == KLX_SEI_MASTERING_DISPLAY) {
    KLX_MASTERING_DISPLAY& m = md->masteringDisplay;
    for (int c = 0; c < 3; ++c) {
      m.display_primaries_x[c] = get16(payload + 4 * c);
      m.display_primaries_y[c] = get16(payload + 4 * c + 2);
    }
    m.white_point_x = get16(payload + 12);
    m.white_point_y = get16(payload + 14);
    m.max_display_mastering_luminance = get32(payload + 16);
    m.min_display_mastering_luminance = get32(payload + 20);
  } else if (payloadType == KLX_SEI_CONTENT_LIGHT_LEVEL) {
    md->contentLightLevel.max_content_light_level = get16(payload);
    md->contentLightLevel.max_pic_average_light_level = get16(payload + 2);
  } else {
    md->preferredTransferCharacteristics = payload[0];
  }
  md->present |= presentBit(payloadType);
  return 0;
}

int klxutilReadHdrSei(const uint8_t* frame, uint32_t size, uint32_t startCodes, uint32_t hevc, KLX_HDR_METADATA* md) {
  if (!frame || !md) return -1;
  std::memset(md, 0, sizeof *md);
  PrefixUnits prefix;
  scanPrefix(frame, size, startCodes, hevc, prefix);
  if (prefix.bad) return -1;
  for (uint32_t i = 0; i < prefix.count; ++i) {
    if (!isSeiUnit(hevc, prefix.units[i].type)) continue;
    const UnitBody body = bodyOf(frame, prefix.units[i], hevc);
    forEachMessage(body.data, body.size, [&](uint32_t type, uint32_t payloadSize, RbspReader& r) {
      if (!isHdrType(type)) return r.skip(payloadSize);
      uint8_t payload[32] = {};
      if (!takePayload(r, payloadSize, payload, sizeof payload)) return false;
      if (!(md->present & presentBit(type)))
        klxutilReadHdrSeiPayload(type, payload, payloadSize < sizeof payload ? payloadSize : sizeof payload, md);
      return true;
    });
  }
  return 0;
}

int klxutilSetHdrSei(uint8_t* frame, uint32_t* size, uint32_t capacity, uint32_t startCodes, uint32_t hevc,
                     const KLX_HDR_METADATA* md) {
  if (!frame || !size || !md || *size > capacity) return -1;
  uint8_t storage[3][kUnitScratch];
  const uint8_t* units[3];
  uint32_t sizes[3];
  uint32_t count = 0;
  uint64_t added = 0;
  for (uint32_t type : {KLX_SEI_MASTERING_DISPLAY, KLX_SEI_CONTENT_LIGHT_LEVEL, KLX_SEI_ALTERNATIVE_TRANSFER}) {
    if (!(md->present & presentBit(type))) continue;
    sizes[count] = klxutilWriteHdrSeiUnit(hevc, type, md, storage[count], kUnitScratch);
    if (sizes[count] == 0) return -1;
    units[count] = storage[count];
    added += 4 + sizes[count];
    ++count;
  }
  if (uint64_t{*size} + added > capacity) return KLX_SEI_NO_ROOM;
  // Every change is worked out first, so a refusal leaves the frame (bytes and size) as it was and
  // nothing can fail once the frame is being written.
  HdrPlan plan;
  if (planHdrEdits(frame, *size, startCodes, hevc, added, plan) != 0) return -1;
  // The result must stay editable and readable: its units in front of the first slice are walked.
  if (plan.unitsInFront - plan.unitsRemoved + count > kMaxUnitsScanned) return -1;
  if (plan.finalSize > capacity) return KLX_SEI_NO_ROOM;
  commitPlan(frame, size, plan, startCodes, hevc, units, sizes, count);
  return 0;
}

int klxutilParseMasteringDisplay(const char* text, KLX_MASTERING_DISPLAY* out) {
  if (!text || !out) return -1;
  std::string_view t(text);
  std::string compact;
  for (char c : t)
    if (c != ' ') compact += c;
  unsigned gx, gy, bx, by, rx, ry, wx, wy;
  unsigned long long lmax, lmin;
  int consumed = 0;
  if (std::sscanf(compact.c_str(), "G(%u,%u)B(%u,%u)R(%u,%u)WP(%u,%u)L(%llu,%llu)%n", &gx, &gy, &bx, &by, &rx, &ry,
                  &wx, &wy, &lmax, &lmin, &consumed) != 10 ||
      static_cast<size_t>(consumed) != compact.size())
    return -1;
  // ITU-T H.265 D.3.28 / H.264 D.2.29 (SMPTE ST 2086): chromaticities count 0.00002 steps in
  // 0..50000 (x and y never exceed 1), and the maximum luminance lies above the minimum - L(1,N)
  // is L(min,max) typed the wrong way round.
  constexpr unsigned kMaxChromaticity = 50000;
  for (unsigned v : {gx, gy, bx, by, rx, ry, wx, wy})
    if (v > kMaxChromaticity) return -1;
  if (lmax > 0xFFFFFFFFull || lmin > 0xFFFFFFFFull || compact.find('-') != std::string::npos) return -1;
  if (lmax <= lmin) return -1;
  *out = KLX_MASTERING_DISPLAY{{static_cast<uint16_t>(gx), static_cast<uint16_t>(bx), static_cast<uint16_t>(rx)},
                               {static_cast<uint16_t>(gy), static_cast<uint16_t>(by), static_cast<uint16_t>(ry)},
                               static_cast<uint16_t>(wx),
                               static_cast<uint16_t>(wy),
                               static_cast<uint32_t>(lmax),
                               static_cast<uint32_t>(lmin)};
  return 0;
}

}  // extern "C"
