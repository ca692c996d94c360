// bs_t: the syntax layer's bit cursor over one RBSP, most significant bit first.
//
// Reading and writing never touch memory outside [start, end): a bit read past `end` yields 0
// and a bit written past `end` is dropped, while the position still advances. A caller detects
// an overrun afterwards with bs_overrun() (the cursor went beyond `end`).
#pragma once
#include <cstdint>

extern "C" {

typedef struct {
  uint8_t* start;  // first byte
  uint8_t* p;      // current byte
  uint8_t* end;    // one past the last byte
  int32_t bits_left;  // bits not yet consumed in *p: 8 for a fresh byte, counted down to 1
} bs_t;

}  // extern "C"

// Cursor positions past `end` are kept as addresses; they are only compared, never dereferenced.
inline uintptr_t bs_address(const uint8_t* p) { return reinterpret_cast<uintptr_t>(p); }

inline void bs_init(bs_t* b, uint8_t* buf, int64_t size) {
  b->start = buf;
  b->p = buf;
  b->end = buf + (size > 0 ? size : 0);
  b->bits_left = 8;
}

// True when the cursor stands at or after `end` (nothing left to read).
inline bool bs_eof(const bs_t* b) { return bs_address(b->p) >= bs_address(b->end); }
// True when bits were read or written beyond `end` (a whole byte, or part of the byte at `end`).
inline bool bs_overrun(const bs_t* b) {
  return bs_address(b->p) > bs_address(b->end) || (b->p == b->end && b->bits_left < 8);
}
// Bits consumed since `start`.
inline int64_t bs_pos(const bs_t* b) {
  return static_cast<int64_t>(bs_address(b->p) - bs_address(b->start)) * 8 + (8 - b->bits_left);
}

inline void bs_advance_byte(bs_t* b) {
  // The position may run past `end`; it is an address we compare, never one we read through.
  b->p = reinterpret_cast<uint8_t*>(bs_address(b->p) + 1);
  b->bits_left = 8;
}

inline uint32_t bs_read_u1(bs_t* b) {
  b->bits_left--;
  uint32_t bit = 0;
  if (!bs_eof(b)) bit = (*b->p >> b->bits_left) & 1u;
  if (b->bits_left == 0) bs_advance_byte(b);
  return bit;
}

// u(n) for n in 0..32.
inline uint32_t bs_read_u(bs_t* b, int n) {
  uint32_t value = 0;
  for (int i = 0; i < n; i++) value = (value << 1) | bs_read_u1(b);
  return value;
}
inline uint32_t bs_read_u8(bs_t* b) {
  if (b->bits_left == 8) {  // byte aligned: one load instead of eight bit steps
    uint32_t value = bs_eof(b) ? 0 : *b->p;
    bs_advance_byte(b);
    return value;
  }
  return bs_read_u(b, 8);
}
inline void bs_skip_u(bs_t* b, int n) {
  for (int i = 0; i < n; i++) bs_read_u1(b);
}
// Next bit without consuming it.
inline uint32_t bs_peek_u1(const bs_t* b) {
  bs_t copy = *b;
  return bs_read_u1(&copy);
}

// ue(v): Exp-Golomb, at most 32 leading zero bits counted (ITU-T H.264 9.1).
inline uint32_t bs_read_ue(bs_t* b) {
  int leadingZeros = 0;
  while (leadingZeros < 32 && bs_read_u1(b) == 0) leadingZeros++;
  if (leadingZeros == 0) return 0;
  uint64_t suffix = bs_read_u(b, leadingZeros);
  return static_cast<uint32_t>(((uint64_t{1} << leadingZeros) - 1 + suffix) & 0xFFFFFFFFu);
}
// se(v): signed Exp-Golomb.
inline int32_t bs_read_se(bs_t* b) {
  uint32_t code = bs_read_ue(b);
  int64_t magnitude = (static_cast<int64_t>(code) + 1) / 2;
  return static_cast<int32_t>((code & 1) ? magnitude : -magnitude);
}

inline void bs_write_u1(bs_t* b, uint32_t bit) {
  b->bits_left--;
  if (!bs_eof(b)) {
    // Clear the bit first, then set it to the value.
    *b->p = static_cast<uint8_t>(*b->p & ~(1u << b->bits_left));
    *b->p = static_cast<uint8_t>(*b->p | ((bit & 1u) << b->bits_left));
  }
  if (b->bits_left == 0) bs_advance_byte(b);
}
inline void bs_write_u(bs_t* b, int n, uint32_t value) {
  for (int i = n - 1; i >= 0; i--) bs_write_u1(b, (value >> i) & 1u);
}
inline void bs_write_u8(bs_t* b, uint32_t value) { bs_write_u(b, 8, value); }
inline void bs_write_ue(bs_t* b, uint32_t value) {
  uint64_t codeNum = uint64_t{value} + 1;
  int bits = 0;
  while ((codeNum >> bits) > 1) bits++;
  bs_write_u(b, bits, 0);
  for (int i = bits; i >= 0; i--) bs_write_u1(b, static_cast<uint32_t>(codeNum >> i) & 1u);
}
inline void bs_write_se(bs_t* b, int32_t value) {
  int64_t v = value;
  uint64_t code = v > 0 ? static_cast<uint64_t>(2 * v - 1) : static_cast<uint64_t>(-2 * v);
  bs_write_ue(b, static_cast<uint32_t>(code));
}
