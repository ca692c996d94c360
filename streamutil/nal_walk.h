// Internal: walking the NAL units of one frame in either framing (start codes or 4-byte
// big-endian lengths), emulation prevention on small spans, and the SEI message walk of
// ITU-T H.264 7.3.2.3 / H.265 7.3.5. Every read is bounds checked; nothing allocates.
#pragma once
#include <cstdint>
#include <cstring>

namespace nalwalk {

struct Unit {
  uint32_t at;      // first byte of the start code or length field
  uint32_t header;  // first header byte
  uint32_t end;     // one past the unit's last byte
};

inline uint32_t be32(const uint8_t* p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

// Offset of the next 00 00 01 at or after `from` (its first zero), or `size`.
inline uint32_t nextStartCode(const uint8_t* d, uint32_t size, uint32_t from) {
  for (uint32_t i = from; i + 2 < size;) {
    const void* one = std::memchr(d + i + 2, 1, size - i - 2);
    if (!one) return size;
    const uint32_t k = static_cast<uint32_t>(static_cast<const uint8_t*>(one) - d);  // k >= i + 2
    if (!d[k - 1] && !d[k - 2]) return k - 2;
    i = k - 1;
  }
  return size;
}

class Walker {
 public:
  Walker(const uint8_t* d, uint32_t size, bool lengthPrefixed) : d_(d), size_(size), lengthPrefixed_(lengthPrefixed) {
    if (!lengthPrefixed_) code_ = nextStartCode(d_, size_, 0);
  }
  // The first header byte of the unit next() would give, without looking for its end (so a
  // walk that stops in front of the picture never scans the slice data). False at the end.
  bool peek(uint8_t& header) const {
    const uint32_t at = lengthPrefixed_ ? pos_ + 4 : code_ + 3;
    if (lengthPrefixed_ ? pos_ + 5 > size_ : code_ + 3 >= size_) return false;
    header = d_[at];
    return true;
  }
  uint32_t peekHeaderAt() const { return lengthPrefixed_ ? pos_ + 4 : code_ + 3; }
  // Where that unit's start code or length field begins.
  uint32_t peekAt() const {
    if (lengthPrefixed_) return pos_;
    return code_ > prevEnd_ && code_ < size_ && !d_[code_ - 1] ? code_ - 1 : code_;
  }
  // The next unit; false at the end of the frame or at a length that runs past it.
  bool next(Unit& u) {
    if (lengthPrefixed_) {
      if (pos_ + 5 > size_) return false;
      const uint64_t end = uint64_t(pos_) + 4 + be32(d_ + pos_);
      if (end > size_ || end == pos_ + 4u) return false;
      u = Unit{pos_, pos_ + 4, static_cast<uint32_t>(end)};
      pos_ = static_cast<uint32_t>(end);
      return true;
    }
    if (code_ + 3 >= size_) return false;
    const uint32_t header = code_ + 3;
    uint32_t at = code_;
    if (at > prevEnd_ && !d_[at - 1]) --at;  // four-byte start code
    uint32_t next = nextStartCode(d_, size_, header);
    uint32_t end = next;
    if (end < size_ && end > header && !d_[end - 1]) --end;  // that zero opens the next four-byte code
    u = Unit{at, header, end};
    prevEnd_ = end;
    code_ = next;
    return true;
  }

 private:
  const uint8_t* d_;
  uint32_t size_;
  bool lengthPrefixed_;
  uint32_t pos_ = 0, code_ = 0, prevEnd_ = 0;
};

// Copies [src, src + n) without emulation-prevention bytes (the 03 of 00 00 03) into dst,
// at most `cap` bytes. Returns the bytes written.
inline uint32_t unescape(const uint8_t* src, uint32_t n, uint8_t* dst, uint32_t cap) {
  uint32_t out = 0, zeros = 0;
  for (uint32_t i = 0; i < n && out < cap; ++i) {
    const uint8_t b = src[i];
    if (zeros >= 2 && b == 3) {
      zeros = 0;
      continue;
    }
    zeros = b ? 0 : zeros + 1;
    dst[out++] = b;
  }
  return out;
}

// Escapes [src, src + n) into dst (03 inserted after two zero bytes in front of a byte below 4).
// Returns the length the escaped bytes need; writes only the first `cap` of them.
inline uint32_t escape(const uint8_t* src, uint32_t n, uint8_t* dst, uint32_t cap) {
  uint32_t out = 0, zeros = 0;
  auto put = [&](uint8_t b) {
    if (out < cap) dst[out] = b;
    ++out;
  };
  for (uint32_t i = 0; i < n; ++i) {
    const uint8_t b = src[i];
    if (zeros >= 2 && b <= 3) {
      put(3);
      zeros = 0;
    }
    put(b);
    zeros = b ? 0 : zeros + 1;
  }
  return out;
}

// Reads RBSP bytes straight from escaped NAL bytes (emulation-prevention bytes dropped), so
// that messages nobody asked for are skipped without being copied.
class EscapedCursor {
 public:
  EscapedCursor(const uint8_t* d, uint32_t begin, uint32_t end) : d_(d), pos_(begin), end_(end) {}
  bool atEnd() const { return pos_ >= end_; }
  // Next RBSP byte; false at the end.
  bool byte(uint8_t& b) {
    if (pos_ < end_ && zeros_ >= 2 && d_[pos_] == 3) ++pos_, zeros_ = 0;
    if (pos_ >= end_) return false;
    b = d_[pos_++];
    zeros_ = b ? 0 : zeros_ + 1;
    return true;
  }
  // Skips n RBSP bytes; false when the unit ends first. A stretch without zero bytes is
  // passed in one step.
  bool skip(uint32_t n) {
    while (n) {
      if (!zeros_ && pos_ < end_) {
        const uint32_t span = n < end_ - pos_ ? n : end_ - pos_;
        const void* zero = std::memchr(d_ + pos_, 0, span);
        const uint32_t clean = zero ? uint32_t(static_cast<const uint8_t*>(zero) - (d_ + pos_)) : span;
        pos_ += clean, n -= clean;
        if (!n) return true;
      }
      uint8_t b;
      if (!byte(b)) return false;
      --n;
    }
    return true;
  }
  // The trailing bits are all that is left (rbsp_trailing_bits, maybe cabac zero words).
  bool onlyTrailingBits() const {
    uint32_t p = pos_;
    if (p < end_ && d_[p] == 0x80) ++p;
    else if (p < end_) return false;
    while (p < end_ && !d_[p]) ++p;
    return p >= end_;
  }

 private:
  const uint8_t* d_;
  uint32_t pos_, end_, zeros_ = 0;
};

struct SeiMessage {
  uint32_t type;
  uint32_t size;
  uint32_t at;       // offset of the message's first payloadType byte in the RBSP
  uint32_t payload;  // offset of the payload
};

// Walks the sei_message()s of an SEI RBSP (from behind the NAL header). `n` is the RBSP length.
class SeiMessages {
 public:
  SeiMessages(const uint8_t* rbsp, uint32_t n, uint32_t from) : r_(rbsp), n_(n), pos_(from) {
    while (n_ > pos_ && !r_[n_ - 1]) --n_;  // trailing zero bytes are not RBSP data
  }
  // False at rbsp_trailing_bits, at the end, or at a message that runs past the end (then
  // `broken()` is true).
  bool next(SeiMessage& m) {
    if (pos_ >= n_ || (pos_ + 1 == n_ && r_[pos_] == 0x80)) return false;
    m.at = pos_;
    uint32_t type = 0, size = 0;
    if (!coded(type) || !coded(size)) return fail();
    if (uint64_t(pos_) + size > n_) return fail();
    m.type = type, m.size = size, m.payload = pos_;
    pos_ += size;
    return true;
  }
  bool broken() const { return broken_; }
  // End of the RBSP data: the trailing-bits byte (or n when it is missing).
  uint32_t dataEnd() const { return n_; }

 private:
  bool coded(uint32_t& v) {
    while (pos_ < n_ && r_[pos_] == 0xFF) v += 255, ++pos_;
    if (pos_ >= n_) return false;
    v += r_[pos_++];
    return true;
  }
  bool fail() {
    broken_ = true;
    return false;
  }
  const uint8_t* r_;
  uint32_t n_, pos_;
  bool broken_ = false;
};

// Writes ff-coded payloadType / payloadSize. Returns bytes written (needs cap >= v / 255 + 1).
inline uint32_t putCoded(uint8_t* out, uint32_t v) {
  uint32_t n = 0;
  for (; v >= 255; v -= 255) out[n++] = 0xFF;
  out[n++] = static_cast<uint8_t>(v);
  return n;
}

}  // namespace nalwalk
