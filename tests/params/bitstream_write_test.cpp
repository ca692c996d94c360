// zr_bitstream writes: with no size given they are unchecked (length does not limit them); with a
// size they stop at it. The expected bytes come from a plain bit-string model of the writes.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "streamutil/zr_bitstream.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct Write {
  int32_t n;
  uint32_t value;
};

// Bits of the writes in order, most significant first.
std::string model(const std::vector<Write>& writes) {
  std::string bits;
  for (const auto& w : writes)
    for (int32_t i = w.n - 1; i >= 0; --i) bits += ((w.value >> i) & 1u) ? '1' : '0';
  return bits;
}

// The first `count` bits of bytes as text.
std::string bitsOf(const Bytes& bytes, size_t count) {
  std::string bits;
  for (size_t p = 0; p < count; ++p) bits += ((bytes[p / 8] >> (7 - p % 8)) & 1u) ? '1' : '0';
  return bits;
}

TEST(BitstreamWrite, WithoutASizeNeitherLengthNorZeroStopsTheWrites) {
  struct Case {
    int64_t size;
    uint64_t length;
    std::vector<Write> writes;
  } const kCases[] = {
      {0, 0, {{8, 0xA5}, {1, 1}, {7, 0x12}}},
      {0, 3, {{32, 0xDEADBEEF}, {5, 0x1F}}},
      {-1, 0, {{12, 0xFFF}, {4, 0}, {16, 0x1234}}},
      {0, 0, {{1, 0}, {1, 1}, {3, 5}, {27, 0x5555555}}},
  };
  for (const auto& c : kCases) {
    Bytes buffer(16, 0xCC);
    zr_bitstream s{buffer.data(), c.size, c.length, 0};
    for (const auto& w : c.writes) WriteBits(&s, w.n, w.value);
    std::string want = model(c.writes);
    EXPECT_EQ(s.position, want.size());
    EXPECT_EQ(bitsOf(buffer, want.size()), want) << "size " << c.size << " length " << c.length;
  }
}

TEST(BitstreamWrite, CheckedFormStopsAtTheSizeAndStillCountsPosition) {
  std::mt19937 rng(3);
  for (int64_t size : {1, 2, 3, 5, 8}) {
    for (int round = 0; round < 200; ++round) {
      std::vector<Write> writes;
      for (int k = 0; k < 6; ++k) {
        int32_t n = 1 + static_cast<int32_t>(rng() % 32);
        writes.push_back({n, static_cast<uint32_t>(rng())});
      }
      Bytes buffer(static_cast<size_t>(size) + 4, 0xCC);
      // length deliberately smaller than size: only size limits the checked form
      zr_bitstream s{buffer.data(), size, 1, 0};
      for (const auto& w : writes) WriteBits(&s, w.n, w.value);
      std::string want = model(writes);
      ASSERT_EQ(s.position, want.size());
      size_t kept = std::min<size_t>(want.size(), static_cast<size_t>(size) * 8);
      ASSERT_EQ(bitsOf(buffer, kept), want.substr(0, kept));
      for (size_t i = static_cast<size_t>(size); i < buffer.size(); ++i) ASSERT_EQ(buffer[i], 0xCC) << "byte " << i;
    }
  }
}


// A stream over no buffer at all: reads are past the end, writes go nowhere, positions count.
TEST(BitstreamNullBuffer, ReadsArePastTheEndAndWritesAreDropped) {
  struct Case {
    int64_t size;
    uint64_t length;
  } const kCases[] = {{0, 0}, {0, 64}, {8, 64}, {-1, 8}};
  for (const auto& c : kCases) {
    zr_bitstream s{nullptr, c.size, c.length, 0};
    EXPECT_EQ(ReadBit(&s), 0xFFFFFFFFu);
    EXPECT_EQ(ReadBits(&s, 8), 0xFFFFFFFFu);  // the past-the-end value fills every bit upwards
    EXPECT_EQ(s.position, 9u);
    WriteBits(&s, 16, 0x1234);
    WriteExponentialGolombCode(&s, 5);
    EXPECT_EQ(s.position, 9u + 16 + 5);
  }
}


// The checked form refuses what does not fit in `size` (no size: no room) and leaves the stream
// as it was; what fits is written exactly as the unchecked writer writes it.
TEST(BitstreamWriteChecked, RefusesWithoutRoomAndLeavesTheStreamAlone) {
  struct Case {
    int64_t size;
    uint64_t position;
    int32_t n;  // -1: ue(300), a 17-bit code
    int32_t result;
  } const kCases[] = {
      {0, 0, 1, ZR_BITSTREAM_NO_ROOM},   {0, 0, -1, ZR_BITSTREAM_NO_ROOM}, {-4, 0, 8, ZR_BITSTREAM_NO_ROOM},
      {2, 9, 8, ZR_BITSTREAM_NO_ROOM},   {2, 8, 8, 0},                     {2, 0, -1, ZR_BITSTREAM_NO_ROOM},
      {3, 7, -1, 0},                     {3, 8, -1, ZR_BITSTREAM_NO_ROOM}, {4, 0, 33, -1},
      {4, UINT64_MAX - 3, 8, ZR_BITSTREAM_NO_ROOM},
  };
  for (const auto& c : kCases) {
    Bytes buffer(4, 0xCC), model(4, 0xCC);
    zr_bitstream s{buffer.data(), c.size, 0, c.position};
    int32_t rc = c.n < 0 ? WriteExponentialGolombCodeChecked(&s, 300) : WriteBitsChecked(&s, c.n, 0x5A);
    EXPECT_EQ(rc, c.result) << c.size << " " << c.position << " " << c.n;
    if (rc != 0) {
      EXPECT_EQ(s.position, c.position);
      EXPECT_EQ(buffer, model);
      continue;
    }
    zr_bitstream m{model.data(), 0, 0, c.position};
    if (c.n < 0) WriteExponentialGolombCode(&m, 300); else WriteBits(&m, c.n, 0x5A);
    EXPECT_EQ(s.position, m.position);
    EXPECT_EQ(buffer, model);
  }
}

}  // namespace
