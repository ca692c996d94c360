// Byte-by-byte reference loops for the start-code scans and the emulation-prevention passes,
// written straight from their definitions: one position at a time, no skipping. The library's
// word-parallel versions must agree with them on every input. A byte outside the buffer never
// matches (the definitions test the first end position before any bound check; the library
// keeps every read inside the caller's buffer).
#pragma once
#include <algorithm>
#include <cstdint>
#include <memory>
#include <ostream>
#include <vector>

namespace ref {

// An exactly sized heap copy, so that AddressSanitizer sees any access past its end.
inline std::unique_ptr<uint8_t[]> exactCopy(const std::vector<uint8_t>& bytes) {
  auto copy = std::make_unique<uint8_t[]>(bytes.empty() ? 1 : bytes.size());
  std::copy(bytes.begin(), bytes.end(), copy.get());
  return copy;
}

struct Bytes {
  const uint8_t* p;
  int64_t size;
  // Byte i, or -1 outside the buffer (matches no pattern byte).
  int at(int64_t i) const { return i >= 0 && i < size ? p[i] : -1; }
  bool is3(int64_t i) const { return at(i) == 0 && at(i + 1) == 0 && at(i + 2) == 1; }
  bool is4(int64_t i) const { return at(i) == 0 && at(i + 1) == 0 && at(i + 2) == 0 && at(i + 3) == 1; }
  bool isZero3(int64_t i) const { return at(i) == 0 && at(i + 1) == 0 && at(i + 2) == 0; }
};

struct Found {
  int result, start, end;
  bool operator==(const Found&) const = default;
};
inline std::ostream& operator<<(std::ostream& os, const Found& f) {
  return os << "{result " << f.result << ", start " << f.start << ", end " << f.end << "}";
}

// The scan both searches share: the first position (tested while i + 4 < size) where codeAt
// gives a start code's length, then the first position from the unit's start (tested while
// j + 3 < size) where endsAt holds. A unit with no end runs to the end of the buffer, reported
// as its length or, for the four-byte-only search, as -1.
template <class CodeAt, class EndsAt>
Found scan(const uint8_t* buf, int size, CodeAt codeAt, EndsAt endsAt, bool unterminatedIsLength) {
  Bytes b{buf, size};
  if (size < 4) return {size, 0, size};
  int i = 0;
  while (codeAt(b, i) == 0) {
    i++;
    if (!(i + 4 < size)) return {0, 0, 0};
  }
  int start = i + codeAt(b, i);
  if (start >= size) return {size, 0, size};
  int j = start;
  bool found = endsAt(b, j);
  while (!found) {
    j++;
    if (!(j + 3 < size)) break;
    found = endsAt(b, j);
  }
  if (found) return {j - start, start, j};
  return {unterminatedIsLength ? size - start : -1, start, size};
}

// 00 00 01 or 00 00 00 01 starts a unit and ends the one before it.
inline Found findNalUnit(const uint8_t* buf, int size) {
  return scan(
      buf, size, [](const Bytes& b, int64_t i) { return b.is3(i) ? 3 : b.is4(i) ? 4 : 0; },
      [](const Bytes& b, int64_t j) { return b.is3(j) || b.is4(j); }, true);
}

// Only 00 00 00 01 starts a unit; 00 00 00 ends it.
inline Found findNalUnit4Only(const uint8_t* buf, int size) {
  return scan(
      buf, size, [](const Bytes& b, int64_t i) { return b.is4(i) ? 4 : 0; },
      [](const Bytes& b, int64_t j) { return b.isZero3(j); }, false);
}

struct Converted {
  int result;
  int inSize;   // in/out size after the call
  int outSize;  // in/out size after the call
  std::vector<uint8_t> out;  // the bytes written (only compared on success)
  bool operator==(const Converted&) const = default;
};
inline std::ostream& operator<<(std::ostream& os, const Converted& c) {
  os << "{result " << c.result << ", in " << c.inSize << ", out " << c.outSize << ", bytes";
  for (uint8_t b : c.out) os << ' ' << std::hex << int{b} << std::dec;
  return os << "}";
}

inline Converted nalToRbsp(const uint8_t* nal, int nalSize, int capacity) {
  std::vector<uint8_t> rbsp;
  if (nalSize < 2) return {0, 1, 0, {}};
  int i = 1, j = 0, zeros = 0;
  while (i < nalSize) {
    uint8_t b = nal[i];
    if (zeros == 2 && b == 3) {
      if (i == nalSize - 1) break;
      if (nal[i + 1] > 3) return {-1, nalSize, capacity, {}};
      i++;
      zeros = 0;
      b = nal[i];
    } else if (zeros == 2 && b <= 2) {
      if (i == nalSize - 1) break;
    }
    if (j >= capacity) return {-1, nalSize, capacity, {}};
    rbsp.push_back(b);
    zeros = b == 0 ? zeros + 1 : 0;
    i++;
    j++;
  }
  return {j, i, j, rbsp};
}

// The byte that follows an inserted 03 is written only when it fits (the library refuses
// rather than write past the capacity).
inline Converted rbspToNal(const uint8_t* rbsp, int rbspSize, int capacity) {
  std::vector<uint8_t> nal;
  if (capacity > 0) nal.push_back(0);
  if (rbspSize < 1) return {1, rbspSize, 1, nal};
  int j = 1, zeros = 0;
  for (int i = 0; i < rbspSize; i++) {
    if (j >= capacity) return {-1, rbspSize, capacity, {}};
    uint8_t b = rbsp[i];
    if (zeros == 2 && b <= 3) {
      nal.push_back(3);
      j++;
      zeros = 0;
      if (j >= capacity) return {-1, rbspSize, capacity, {}};
    }
    nal.push_back(b);
    j++;
    zeros = b == 0 ? zeros + 1 : 0;
  }
  return {j, rbspSize, j, nal};
}

// Annex B -> length-prefixed the plain way: test the chain, then scan forwards one position at a
// time, widening each three-byte code where it is found by moving the rest of the frame up.
// `buf` must have the room.
inline uint32_t markerToSize(std::vector<uint8_t>& buf, uint32_t size) {
  auto be32 = [&](uint64_t at) {
    return (uint32_t{buf[at]} << 24) | (uint32_t{buf[at + 1]} << 16) | (uint32_t{buf[at + 2]} << 8) | buf[at + 3];
  };
  auto is4 = [&](uint64_t i) { return buf[i] == 0 && buf[i + 1] == 0 && buf[i + 2] == 0 && buf[i + 3] == 1; };
  auto is3 = [&](uint64_t i) { return buf[i] == 0 && buf[i + 1] == 0 && buf[i + 2] == 1; };
  if (size < 4) return size;
  if (!is3(0) && !is4(0)) return size;
  uint64_t pos = 0;
  bool chain = true;
  while (size - pos >= 4) {
    uint32_t length = be32(pos);
    if (length == 0) {
      chain = pos != 0;
      break;
    }
    if (length > size - pos - 4 || (buf[pos + 4] & 0x80)) {
      chain = false;
      break;
    }
    pos += 4 + length;
  }
  for (uint64_t i = pos; chain && i < size; i++) chain = buf[i] == 0;
  if (chain) return size;

  auto put = [&](uint64_t at, uint64_t length) {
    for (int k = 0; k < 4; k++) buf[at + k] = static_cast<uint8_t>(length >> (24 - 8 * k));
  };
  int64_t previous = -1;
  uint64_t i = 0;
  while (i + 4 <= size) {
    if (!is4(i)) {
      if (!is3(i)) {
        i++;
        continue;
      }
      for (uint64_t k = size; k > i; k--) buf[k] = buf[k - 1];
      buf[i] = 0;
      size++;
    }
    if (previous >= 0) put(static_cast<uint64_t>(previous), i - static_cast<uint64_t>(previous) - 4);
    previous = static_cast<int64_t>(i);
    i += 4;
  }
  put(static_cast<uint64_t>(previous), size - static_cast<uint64_t>(previous) - 4);
  return size;
}

}  // namespace ref
