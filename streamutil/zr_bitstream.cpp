#include "streamutil/zr_bitstream.h"

#include <algorithm>
#include <bit>

namespace {

constexpr uint32_t kPastEnd = 0xFFFFFFFFu;

// Bytes that may be touched: `size` when the caller maintains it, otherwise everything up to
// and including the byte that holds bit index `length` (the reader's one-bit-past quirk).
uint64_t readableBytes(const zr_bitstream* s) {
  if (!s->buffer) return 0;  // no data at all: every read is past the end
  if (s->size > 0) return static_cast<uint64_t>(s->size);
  return s->length / 8 + 1;
}

// The checked form: a caller that gives `size` gets every write bounded by it. Without a size the
// writers are unchecked, as the cursor has always been: neither length nor anything else limits
// them, and the caller provides the room (position afterwards tells how many bits were written).
uint64_t writableBytes(const zr_bitstream* s) {
  if (!s->buffer) return 0;  // nowhere to write: dropped, position still advances
  if (s->size > 0) return static_cast<uint64_t>(s->size);
  return UINT64_MAX;
}

uint32_t bitAt(const zr_bitstream* s, uint64_t p) { return (s->buffer[p / 8] >> (7 - (p % 8))) & 1u; }

// True when bits [first, first + n) all read as data (no past-the-end value) and lie in
// addressable bytes, so they can be fetched a byte at a time.
bool wholeRead(const zr_bitstream* s, uint64_t first, uint64_t n) {
  uint64_t last = first + n - 1;
  return last <= s->length && last / 8 < readableBytes(s);
}

// n (1..57) bits starting at bit p, first bit most significant. Caller checked wholeRead.
uint64_t fetch(const zr_bitstream* s, uint64_t p, int n) {
  uint64_t firstByte = p / 8;
  uint64_t lastByte = (p + n - 1) / 8;
  uint64_t acc = 0;
  for (uint64_t b = firstByte; b <= lastByte; ++b) acc = (acc << 8) | s->buffer[b];
  uint64_t bitsLoaded = (lastByte - firstByte + 1) * 8;
  uint64_t drop = bitsLoaded - (p % 8) - static_cast<uint64_t>(n);
  acc >>= drop;
  return n == 64 ? acc : (acc & ((uint64_t{1} << n) - 1));
}

// Stores n (1..32) bits of value at bit p. Caller checked they fit.
void store(zr_bitstream* s, uint64_t p, int n, uint32_t value) {
  while (n > 0) {
    uint64_t byteIndex = p / 8;
    int offset = static_cast<int>(p % 8);
    int take = std::min(8 - offset, n);
    uint32_t bits = (value >> (n - take)) & ((1u << take) - 1);
    int shift = 8 - offset - take;
    uint8_t mask = static_cast<uint8_t>(((1u << take) - 1) << shift);
    s->buffer[byteIndex] = static_cast<uint8_t>((s->buffer[byteIndex] & ~mask) | (bits << shift));
    p += take;
    n -= take;
  }
}

bool fitsWrite(const zr_bitstream* s, uint64_t first, uint64_t n) {
  return (first + n + 7) / 8 <= writableBytes(s);
}

// The checked form's test: n bits at position lie inside `size` bytes (no size, no room). Written
// without sums that could wrap for any position.
bool roomFor(const zr_bitstream* s, uint64_t n) {
  if (!s->buffer || s->size <= 0) return false;
  uint64_t capacityBits = static_cast<uint64_t>(s->size) > (UINT64_MAX / 8) ? UINT64_MAX : static_cast<uint64_t>(s->size) * 8;
  return s->position <= capacityBits && n <= capacityBits - s->position;
}

uint32_t expGolombBitCount(uint32_t x) {
  if (x <= 0xFF) return static_cast<uint32_t>(len_table_mini[x]);
  if (x <= 0xFFFF) return static_cast<uint32_t>(len_table_mini[x >> 8]) + 8;
  if (x <= 0xFFFFFF) return static_cast<uint32_t>(len_table_mini[x >> 16]) + 16;
  return static_cast<uint32_t>(len_table_mini[x >> 24]) + 48;  // not 24: kept, see the header
}

}  // namespace

extern "C" {

const int32_t len_table_mini[256] = {
    1, 1, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5,
    6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6,
    7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7,
    7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7,
    8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8,
    8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8,
    8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8,
    8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8,
};

uint32_t PeekBit(zr_bitstream* s, int32_t offset) {
  uint64_t p = s->position + static_cast<uint64_t>(static_cast<int64_t>(offset));
  if (p >= s->length || p / 8 >= readableBytes(s)) return 1;
  return bitAt(s, p);
}

uint32_t PeekBits(zr_bitstream* s, int32_t n) {
  if (n < 1) return 0;
  if (n <= 32 && s->position + static_cast<uint64_t>(n) <= s->length &&
      wholeRead(s, s->position, static_cast<uint64_t>(n)))
    return static_cast<uint32_t>(fetch(s, s->position, n));
  uint32_t value = 0;
  for (int32_t k = 0; k < n; ++k) value |= PeekBit(s, k) << ((n - 1 - k) & 31);
  return value;
}

bool IsEndOfStream(zr_bitstream* s) { return s->position >= s->length; }

uint32_t ReadBit(zr_bitstream* s) {
  uint64_t p = s->position++;
  if (s->length < p || p / 8 >= readableBytes(s)) return kPastEnd;
  return bitAt(s, p);
}

uint32_t ReadBits(zr_bitstream* s, int32_t n) {
  if (n < 1) return 0;
  if (n <= 32 && wholeRead(s, s->position, static_cast<uint64_t>(n))) {
    uint32_t value = static_cast<uint32_t>(fetch(s, s->position, n));
    s->position += static_cast<uint64_t>(n);
    return value;
  }
  uint32_t value = 0;
  for (int32_t k = 0; k < n; ++k) value |= ReadBit(s) << ((n - 1 - k) & 31);
  return value;
}

uint64_t ReadBits64(zr_bitstream* s, int32_t n) {
  if (n < 1) return 0;
  if (n <= 64 && wholeRead(s, s->position, static_cast<uint64_t>(n))) {
    uint64_t value = 0;
    int32_t left = n;
    while (left > 0) {
      int32_t take = std::min(left, 32);
      value = (value << take) | ReadBits(s, take);
      left -= take;
    }
    return value;
  }
  uint64_t value = 0;
  for (int32_t k = 0; k < n; ++k) value |= static_cast<uint64_t>(ReadBit(s)) << ((n - 1 - k) & 63);
  return value;
}

uint32_t ReadExponentialGolombCode(zr_bitstream* s) {
  uint32_t zeros = 0;
  for (;;) {
    // Fast path: a 56-bit window of data that ends before the last valid bit, so every zero
    // in it is counted and a 1 in it ends the prefix, exactly as the bit loop would.
    if (s->position + 56 < s->length && wholeRead(s, s->position, 56)) {
      uint64_t window = fetch(s, s->position, 56);
      if (window == 0) {
        zeros += 56;
        s->position += 56;
        continue;
      }
      int leading = std::countl_zero(window) - 8;
      zeros += static_cast<uint32_t>(leading);
      s->position += static_cast<uint64_t>(leading) + 1;
      break;
    }
    uint32_t bit = ReadBit(s);
    if (bit != 0) break;
    if (s->position >= s->length) break;
    ++zeros;
  }
  uint32_t suffix = ReadBits(s, static_cast<int32_t>(zeros));
  uint32_t power = zeros < 32 ? (1u << zeros) : 0u;
  return power + suffix - 1u;
}

int32_t ReadExponentialGolombCodeSigned(zr_bitstream* s) {
  uint32_t k = ReadExponentialGolombCode(s);
  if (k & 1u) return static_cast<int32_t>((k >> 1) + 1u);
  return -static_cast<int32_t>(k >> 1);
}

uint32_t ReadCodedNumber(zr_bitstream* s) {
  uint32_t total = 0;
  for (;;) {
    uint32_t byte = ReadBits(s, 8);
    total += byte;
    if (byte != 255) return total;
  }
}

void SkipBits(zr_bitstream* s, int32_t n) { s->position += static_cast<uint64_t>(static_cast<int64_t>(n)); }

void WriteBit(zr_bitstream* s, uint32_t bit) {
  uint64_t p = s->position++;
  if (p / 8 >= writableBytes(s)) return;  // beyond the capacity: dropped
  uint8_t mask = static_cast<uint8_t>(1u << (7 - (p % 8)));
  s->buffer[p / 8] = static_cast<uint8_t>((s->buffer[p / 8] & ~mask) | ((bit & 1u) ? mask : 0));
}

void WriteBits(zr_bitstream* s, int32_t n, uint32_t value) {
  if (n < 1) return;
  if (n <= 32 && fitsWrite(s, s->position, static_cast<uint64_t>(n))) {
    store(s, s->position, n, n == 32 ? value : (value & ((1u << n) - 1)));
    s->position += static_cast<uint64_t>(n);
    return;
  }
  for (int32_t i = n - 1; i >= 0; --i) WriteBit(s, i < 32 ? (value >> i) : 0u);
}

void WriteBits64(zr_bitstream* s, int32_t n, uint64_t value) {
  if (n < 1) return;
  for (int32_t i = n - 1; i >= 0;) {
    if (i >= 64) {
      WriteBit(s, 0);
      --i;
      continue;
    }
    int32_t take = std::min(i + 1, 32);
    int32_t low = i - take + 1;
    uint64_t chunk = (value >> low) & ((uint64_t{1} << take) - 1);
    WriteBits(s, take, static_cast<uint32_t>(chunk));
    i -= take;
  }
}

void WriteExponentialGolombCode(zr_bitstream* s, uint32_t value) {
  uint32_t x = value + 1u;
  uint32_t codeBits = 2 * expGolombBitCount(x) - 1;
  if (codeBits <= 32) {
    WriteBits(s, static_cast<int32_t>(codeBits), x);
    return;
  }
  uint32_t zeros = codeBits - 32;
  while (zeros >= 8) {
    WriteBits(s, 8, 0);
    zeros -= 8;
  }
  if (zeros) WriteBits(s, static_cast<int32_t>(zeros), 0);
  WriteBits(s, 32, x);
}

int32_t WriteBitsChecked(zr_bitstream* s, int32_t n, uint32_t value) {
  if (!s || n < 0 || n > 32) return -1;
  if (!roomFor(s, static_cast<uint64_t>(n))) return ZR_BITSTREAM_NO_ROOM;
  WriteBits(s, n, value);
  return 0;
}

int32_t WriteExponentialGolombCodeChecked(zr_bitstream* s, uint32_t value) {
  if (!s) return -1;
  uint64_t codeBits = 2 * uint64_t{expGolombBitCount(value + 1u)} - 1;
  if (!roomFor(s, codeBits)) return ZR_BITSTREAM_NO_ROOM;
  WriteExponentialGolombCode(s, value);
  return 0;
}

void WriteExponentialGolombCodeSigned(zr_bitstream* s, int32_t value) {
  uint32_t v = static_cast<uint32_t>(value);
  uint32_t codeNumber = value <= 0 ? (0u - 2u * v) : (2u * v + 2u);
  WriteExponentialGolombCode(s, codeNumber);
}

int32_t LengthExponentialGolombCode(uint32_t value) {
  uint32_t low = value & 0xFFu;
  // Values 0..127 index the table exactly as defined; 128..255 use the low byte as unsigned.
  uint32_t x = low + 1u;
  int32_t bits = x <= 0xFF ? len_table_mini[x] : len_table_mini[x >> 8] + 8;
  return 2 * bits - 1;
}

int32_t zrintlog2(int32_t x) {
  if (x <= 0) return 0;
  int32_t floorLog = -1;
  for (uint32_t v = static_cast<uint32_t>(x); v != 0; v >>= 1) ++floorLog;
  return (x == (int32_t{1} << floorLog)) ? floorLog : floorLog + 1;
}

void write_scaling_list(zr_bitstream* s, const int32_t* list, int32_t size, int32_t useDefault) {
  if (size < 1) return;
  for (int32_t j = 0; j < size; ++j) {
    if (useDefault) {
      WriteBit(s, 1);
      continue;
    }
    uint32_t v = static_cast<uint32_t>(list[j]);
    WriteExponentialGolombCode(s, list[j] <= 0 ? (0u - 2u * v) : (2u * v - 1u));
  }
}

void read_hrd_parameters(hdr_parameters* hrd, zr_bitstream* s) {
  int32_t count = static_cast<int32_t>(ReadExponentialGolombCode(s));
  hrd->bit_rate_scale = static_cast<int32_t>(ReadBits(s, 4));
  hrd->cpb_size_scale = static_cast<int32_t>(ReadBits(s, 4));
  hrd->cpb_cnt_minus1 = std::min(count, 7);
  for (int32_t i = 0; i <= hrd->cpb_cnt_minus1; ++i) {
    hrd->cpb[i].bit_rate_value_minus1 = ReadExponentialGolombCode(s);
    hrd->cpb[i].cpb_size_value_minus1 = ReadExponentialGolombCode(s);
    hrd->cpb[i].cbr_flag = static_cast<int32_t>(ReadBit(s));
  }
  hrd->initial_cpb_removal_delay_length_minus1 = static_cast<int32_t>(ReadBits(s, 5));
  hrd->cpb_removal_delay_length_minus1 = static_cast<int32_t>(ReadBits(s, 5));
  hrd->dpb_output_delay_length_minus1 = static_cast<int32_t>(ReadBits(s, 5));
  hrd->time_offset_length = static_cast<int32_t>(ReadBits(s, 5));
}

void write_hrd_parameters(hdr_parameters* hrd, zr_bitstream* s) {
  WriteExponentialGolombCode(s, static_cast<uint32_t>(hrd->cpb_cnt_minus1));
  WriteBits(s, 4, static_cast<uint32_t>(hrd->bit_rate_scale));
  WriteBits(s, 4, static_cast<uint32_t>(hrd->cpb_size_scale));
  // The count is written as recorded; entries come from the 8-entry array only.
  int32_t entries = std::min(hrd->cpb_cnt_minus1, 7);
  for (int32_t i = 0; i <= entries; ++i) {
    WriteExponentialGolombCode(s, hrd->cpb[i].bit_rate_value_minus1);
    WriteExponentialGolombCode(s, hrd->cpb[i].cpb_size_value_minus1);
    WriteBit(s, static_cast<uint32_t>(hrd->cpb[i].cbr_flag));
  }
  WriteBits(s, 5, static_cast<uint32_t>(hrd->initial_cpb_removal_delay_length_minus1));
  WriteBits(s, 5, static_cast<uint32_t>(hrd->cpb_removal_delay_length_minus1));
  WriteBits(s, 5, static_cast<uint32_t>(hrd->dpb_output_delay_length_minus1));
  WriteBits(s, 5, static_cast<uint32_t>(hrd->time_offset_length));
}

}  // extern "C"
