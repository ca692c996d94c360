// HDR static metadata SEI: payload writers and readers, one-message SEI units, and their
// replacement in a frame.
#include "streamutil/hdr_sei.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

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
  while (walker.next(step, [&](uint64_t header) { return !isSlice(header); })) {
    if (isSlice(step.header)) return;
    if (out.count == kMaxUnitsScanned) {
      out.tooMany = true;
      return;
    }
    out.units[out.count++] = nal_walk::describe(frame, step, hevc);
  }
  out.bad = walker.bad();
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

void putCoded(std::vector<uint8_t>& out, uint32_t v) {
  while (v >= 0xFF) out.push_back(0xFF), v -= 0xFF;
  out.push_back(static_cast<uint8_t>(v));
}

// The unit without its HDR messages: NAL header, the other messages, trailing bits, escaped.
bool rebuildWithoutHdr(const uint8_t* unit, uint32_t headerBytes, const UnitBody& body, std::vector<uint8_t>& out) {
  std::vector<uint8_t> rbsp;
  rbsp.reserve(body.size + 8);
  const bool ok = forEachMessage(body.data, body.size, [&](uint32_t type, uint32_t size, RbspReader& r) {
    if (isHdrType(type)) return takePayload(r, size, nullptr, 0);
    putCoded(rbsp, type);
    putCoded(rbsp, size);
    for (uint32_t i = 0; i < size; ++i) {
      uint8_t b = 0;
      if (!r.get(b)) return false;
      rbsp.push_back(b);
    }
    return true;
  });
  if (!ok) return false;
  rbsp.push_back(0x80);  // rbsp_trailing_bits
  out.assign(unit, unit + headerBytes);
  int zeros = 0;
  for (uint8_t b : rbsp) {
    if (zeros >= 2 && b <= 3) out.push_back(3), zeros = 0;
    out.push_back(b);
    zeros = b == 0 ? zeros + 1 : 0;
  }
  return true;
}

// Removes or rewrites every SEI unit in front of the first slice that carries HDR messages. The
// scan runs backwards so the indices in front stay valid.
int removeHdrMessages(uint8_t* frame, uint32_t* size, uint32_t capacity, uint32_t startCodes, uint32_t hevc,
                      const PrefixUnits& prefix) {
  for (uint32_t i = prefix.count; i-- > 0;) {
    const KLX_NAL_UNIT& u = prefix.units[i];
    if (!isSeiUnit(hevc, u.type)) continue;
    const UnitBody body = bodyOf(frame, u, hevc);
    const SeiKind kind = classify(body);
    if (kind == SeiKind::kOnlyHdr) {
      if (klxutilRemoveNalUnits(frame, size, startCodes, i, 1) != KLX_NAL_OK) return KLX_NAL_BAD;
    } else if (kind == SeiKind::kMixed) {
      std::vector<uint8_t> rebuilt;
      if (!rebuildWithoutHdr(frame + u.offset + u.prefixLength, hevc ? 2 : 1, body, rebuilt)) return KLX_NAL_BAD;
      if (klxutilRemoveNalUnits(frame, size, startCodes, i, 1) != KLX_NAL_OK) return KLX_NAL_BAD;
      const uint8_t* one[] = {rebuilt.data()};
      const uint32_t oneSize[] = {static_cast<uint32_t>(rebuilt.size())};
      const int added = klxutilAddNalUnitsChecked(frame, size, capacity, startCodes, i, one, oneSize, 1);
      if (added != KLX_NAL_OK) return added;
    }
  }
  return KLX_NAL_OK;
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
  // Checks first, so a refusal leaves the frame as it was.
  PrefixUnits prefix;
  scanPrefix(frame, *size, startCodes, hevc, prefix);
  if (prefix.bad || prefix.tooMany) return -1;
  // An HDR message in a unit that cannot be rewritten would stay and still be read.
  for (uint32_t i = 0; i < prefix.count; ++i)
    if (isSeiUnit(hevc, prefix.units[i].type) && classify(bodyOf(frame, prefix.units[i], hevc)) == SeiKind::kUnreadable)
      return -1;
  // A rewritten unit can come out longer than it was (escapes as coded), so a late refusal is
  // possible: it restores the frame from this copy.
  const uint32_t before = *size;
  const std::vector<uint8_t> original(frame, frame + before);
  auto refuse = [&](int rc) {
    std::memcpy(frame, original.data(), before);
    *size = before;
    return rc;
  };
  const int removed = removeHdrMessages(frame, size, capacity, startCodes, hevc, prefix);
  if (removed != KLX_NAL_OK) return refuse(removed);
  if (count == 0) return 0;
  // The removals can change how many units stand in front of the first slice even when the
  // frame keeps its size (a rewritten unit grows by what a removed one gave back): count again.
  scanPrefix(frame, *size, startCodes, hevc, prefix);
  if (prefix.bad || prefix.tooMany) return refuse(-1);
  const int rc = klxutilAddNalUnitsChecked(frame, size, capacity, startCodes, prefix.count, units, sizes, count);
  return rc == KLX_NAL_OK ? rc : refuse(rc);
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
