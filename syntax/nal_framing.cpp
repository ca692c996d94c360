// Annex B NAL unit search and NAL <-> RBSP conversion.
//
// Every scan is phrased in terms of the 00 00 01 triples of the buffer: a start code is a triple,
// widened to four bytes when a zero byte stands in front of it. Finding the triples word-parallel
// (byte_scan.h) gives the same answers as testing every position in turn, at memory speed.
// Bytes outside the caller's buffer never take part in a match.
#include "syntax/nal_framing.h"

#include <cstring>

#include "syntax/byte_scan.h"

namespace {

using quorvane::scan::findFirst;
using quorvane::scan::Third;

// First start-code triple (00 00 01) at or after `from`, or size when none.
size_t firstTriple(const uint8_t* buf, size_t from, size_t size) {
  if (size < 3 || from + 2 >= size) return size;
  size_t t = findFirst<Third::kOne>(buf, from, size - 2);
  return t < size - 2 ? t : size;
}

// Copies up to `count` bytes into out[j ..] without passing `capacity`; false when it had to stop.
bool copyBounded(uint8_t* out, int64_t j, int64_t capacity, const uint8_t* in, int64_t count) {
  int64_t room = capacity - j;
  if (room < count) {
    if (room > 0) std::memcpy(out + j, in, static_cast<size_t>(room));
    return false;
  }
  if (count > 0) std::memcpy(out + j, in, static_cast<size_t>(count));
  return true;
}

// Next emulation-prevention site (00 00 0x, x <= 3) at or after i among in[0, n); n when none.
int64_t nextEscapeSite(const uint8_t* in, int64_t i, int64_t n) {
  if (n < 3 || i + 2 >= n) return n;
  size_t t = findFirst<Third::kAtMost3>(in, static_cast<size_t>(i), static_cast<size_t>(n - 2));
  return static_cast<int64_t>(t) < n - 2 ? static_cast<int64_t>(t) : n;
}

}  // namespace

extern "C" int find_nal_unit(const uint8_t* buf, int size, int* nal_start, int* nal_end) {
  *nal_start = 0;
  *nal_end = 0;
  if (size < 4) {
    *nal_end = size < 0 ? 0 : size;
    return *nal_end;
  }
  const size_t n = static_cast<size_t>(size);

  // Start: positions 0 and those with i + 4 < size are tested; 00 00 01 at i or 00 00 00 01 at i
  // both put the unit behind the triple.
  size_t t = firstTriple(buf, 0, n);
  if (t == n) return 0;
  size_t i = (t >= 1 && buf[t - 1] == 0) ? t - 1 : t;
  if (i != 0 && i + 4 >= n) return 0;
  size_t start = t + 3;
  if (start >= n) {  // the four bytes 00 00 00 01: deliberately the whole buffer
    *nal_end = size;
    return size;
  }
  *nal_start = static_cast<int>(start);

  // End: the first j >= start holding 00 00 01 or 00 00 00 01. Beyond j = start only positions
  // with j + 3 < size are tested.
  t = firstTriple(buf, start, n);
  if (t != n) {
    size_t j = (t > start && buf[t - 1] == 0) ? t - 1 : t;
    if (j == start || j + 3 < n) {
      *nal_end = static_cast<int>(j);
      return static_cast<int>(j - start);
    }
  }
  *nal_end = size;
  return static_cast<int>(n - start);
}

extern "C" int find_nal_unit_4only(const uint8_t* buf, int size, int* nal_start, int* nal_end) {
  *nal_start = 0;
  *nal_end = 0;
  if (size < 4) {
    *nal_end = size < 0 ? 0 : size;
    return *nal_end;
  }
  const size_t n = static_cast<size_t>(size);

  // Start: the first 00 00 00 01, i.e. the first triple with a zero byte in front of it.
  size_t t = firstTriple(buf, 0, n);
  while (t != n && !(t >= 1 && buf[t - 1] == 0)) t = firstTriple(buf, t + 1, n);
  if (t == n) return 0;
  size_t i = t - 1;
  if (i != 0 && i + 4 >= n) return 0;
  size_t start = i + 4;
  if (start >= n) {
    *nal_end = size;
    return size;
  }
  *nal_start = static_cast<int>(start);

  // End: the first 00 00 00 at j >= start (j = start, or j + 3 < size).
  if (start + 2 < n) {
    size_t j = findFirst<Third::kZero>(buf, start, n - 2);
    if (j < n - 2 && (j == start || j + 3 < n)) {
      *nal_end = static_cast<int>(j);
      return static_cast<int>(j - start);
    }
  }
  *nal_end = size;
  return -1;
}

extern "C" int nal_to_rbsp(const uint8_t* nal_buf, int* nal_size, uint8_t* rbsp_buf, int* rbsp_size) {
  const int64_t n = *nal_size;
  const int64_t capacity = *rbsp_size;
  if (n < 2) {
    *nal_size = 1;
    *rbsp_size = 0;
    return 0;
  }
  int64_t i = 1;  // byte 0, the first header byte, is not part of the RBSP
  int64_t j = 0;
  int zeros = 0;  // zero bytes copied in a row since the last non-zero byte or removed 03
  while (i < n) {
    if (zeros == 0) {
      // Nothing can happen before the next 00 00 0x site: copy up to its third byte in bulk.
      int64_t site = nextEscapeSite(nal_buf, i, n);
      int64_t stop = site < n ? site + 2 : n;
      if (!copyBounded(rbsp_buf, j, capacity, nal_buf + i, stop - i)) return -1;
      j += stop - i;
      i = stop;
      if (site == n) break;
      zeros = 2;
      continue;
    }
    uint8_t b = nal_buf[i];
    if (zeros == 2 && b == 0x03) {
      if (i == n - 1) break;  // trailing 00 00 03 (cabac_zero_word): the 03 is dropped
      if (nal_buf[i + 1] > 0x03) return -1;
      i++;
      zeros = 0;
      b = nal_buf[i];
    } else if (zeros == 2 && b <= 0x02 && i == n - 1) {
      break;  // tolerated; the last byte is not copied
    }
    if (j >= capacity) return -1;
    rbsp_buf[j++] = b;
    zeros = b == 0 ? zeros + 1 : 0;
    i++;
  }
  *nal_size = static_cast<int>(i);
  *rbsp_size = static_cast<int>(j);
  return static_cast<int>(j);
}

extern "C" int rbsp_to_nal(const uint8_t* rbsp_buf, const int* rbsp_size, uint8_t* nal_buf, int* nal_size) {
  const int64_t n = *rbsp_size;
  const int64_t capacity = *nal_size;
  if (capacity > 0) nal_buf[0] = 0x00;  // reserved for the header
  if (n < 1) {
    *nal_size = 1;
    return 1;
  }
  int64_t i = 0;
  int64_t j = 1;
  int zeros = 0;
  while (i < n) {
    if (zeros == 0) {
      int64_t site = nextEscapeSite(rbsp_buf, i, n);
      int64_t stop = site < n ? site + 2 : n;
      if (!copyBounded(nal_buf, j, capacity, rbsp_buf + i, stop - i)) return -1;
      j += stop - i;
      i = stop;
      if (site == n) break;
      zeros = 2;
      continue;
    }
    if (j >= capacity) return -1;
    uint8_t b = rbsp_buf[i];
    if (zeros == 2 && b <= 0x03) {
      nal_buf[j++] = 0x03;  // emulation_prevention_three_byte
      zeros = 0;
      if (j >= capacity) return -1;  // no room for the byte it protects
    }
    nal_buf[j++] = b;
    zeros = b == 0 ? zeros + 1 : 0;
    i++;
  }
  *nal_size = static_cast<int>(j);
  return static_cast<int>(j);
}
