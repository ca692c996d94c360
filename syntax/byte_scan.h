// Word-parallel search for the byte patterns that Annex B framing and emulation prevention are
// made of: two zero bytes followed by a third byte of a given class. The library's start-code
// scans and NAL <-> RBSP conversions find their sites here and copy everything in between in
// bulk, which is what lets them run at memory speed. Internal to the library.
#pragma once
#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace quorvane::scan {

// The class of the byte behind 00 00.
enum class Third {
  kOne,      // 00 00 01: a start code
  kZero,     // 00 00 00: a start-code prefix run
  kAtMost3,  // 00 00 0x with x <= 3: an emulation-prevention site
};

template <Third kind>
constexpr bool matchesThird(uint8_t b) {
  if constexpr (kind == Third::kOne) return b == 1;
  if constexpr (kind == Third::kZero) return b == 0;
  return b <= 3;
}

template <Third kind>
inline bool matchesAt(const uint8_t* p, size_t t) {
  return p[t] == 0 && p[t + 1] == 0 && matchesThird<kind>(p[t + 2]);
}

#if defined(__SSE2__)
template <Third kind>
inline __m128i thirdMask(__m128i v) {
  if constexpr (kind == Third::kOne) return _mm_cmpeq_epi8(v, _mm_set1_epi8(1));
  if constexpr (kind == Third::kZero) return _mm_cmpeq_epi8(v, _mm_setzero_si128());
  return _mm_cmpeq_epi8(_mm_min_epu8(v, _mm_set1_epi8(3)), v);  // unsigned v <= 3
}

// Bit i set when the pattern starts at p[i] (reads p[0 .. 17]).
template <Third kind>
inline unsigned patternMask16(const uint8_t* p, __m128i zeroAt0) {
  const __m128i zero = _mm_setzero_si128();
  __m128i z1 = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 1)), zero);
  __m128i t2 = thirdMask<kind>(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 2)));
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_and_si128(_mm_and_si128(zeroAt0, z1), t2)));
}
#endif

#if defined(__SSE2__)
// Bit i set when the pattern starts at p[i] (reads p[0 .. 17]).
template <Third kind>
inline unsigned exactMask16(const uint8_t* p) {
  __m128i z0 = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)), _mm_setzero_si128());
  return patternMask16<kind>(p, z0);
}
#endif

// First t in [from, limit) where the pattern starts, or `limit` when there is none.
// The caller guarantees that p[limit + 1] is inside its buffer (limit <= size - 2).
template <Third kind>
inline size_t findFirst(const uint8_t* p, size_t from, size_t limit) {
  size_t t = from;
#if defined(__SSE2__)
  // Each step reads p[t .. t + 65]; t + 64 <= limit keeps that below limit + 2. The whole
  // pattern is tested at every position of the block: testing for zero bytes first would not
  // pay, since coded data (CAVLC above all) holds one in a good share of its blocks.
  while (t + 64 <= limit) {
    const uint64_t m = uint64_t{exactMask16<kind>(p + t)} | uint64_t{exactMask16<kind>(p + t + 16)} << 16 |
                       uint64_t{exactMask16<kind>(p + t + 32)} << 32 | uint64_t{exactMask16<kind>(p + t + 48)} << 48;
    if (m) return t + static_cast<size_t>(__builtin_ctzll(m));
    t += 64;
  }
  while (t + 16 <= limit) {  // reads p[t .. t + 17]
    unsigned m = exactMask16<kind>(p + t);
    if (m) return t + static_cast<size_t>(__builtin_ctz(m));
    t += 16;
  }
#endif
  for (; t < limit; t++) {
    if (matchesAt<kind>(p, t)) return t;
  }
  return limit;
}

// Last t in [from, limit) where the pattern starts, or `limit` when there is none.
// Same guarantee on p[limit + 1].
template <Third kind>
inline size_t findLast(const uint8_t* p, size_t from, size_t limit) {
  size_t top = limit;  // candidates left: [from, top)
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  while (top >= from + 32) {
    size_t base = top - 32;
    __m128i z0 = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + base)), zero);
    __m128i z1 = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + base + 16)), zero);
    if (_mm_movemask_epi8(_mm_or_si128(z0, z1)) != 0) {
      unsigned m = patternMask16<kind>(p + base + 16, z1);
      if (m) return base + 16 + 31 - static_cast<size_t>(__builtin_clz(m));
      m = patternMask16<kind>(p + base, z0);
      if (m) return base + 31 - static_cast<size_t>(__builtin_clz(m));
    }
    top = base;
  }
#endif
  while (top > from) {
    top--;
    if (matchesAt<kind>(p, top)) return top;
  }
  return limit;
}

}  // namespace quorvane::scan
