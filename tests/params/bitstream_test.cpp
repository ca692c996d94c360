// zr_bitstream: the documented edge cases, and a property check of every reader against a
// plain bit-by-bit model of the definition (the library reads whole bytes where it can). Writes:
// with no size given they are unchecked (length does not limit them); with a size they stop at it,
// the expected bytes coming from a plain bit-string model of the writes.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "streamutil/zr_bitstream.h"

namespace {

using Bytes = std::vector<uint8_t>;

zr_bitstream over(std::vector<uint8_t>& bytes, uint64_t lengthBits, int64_t size = -1) {
  return zr_bitstream{bytes.data(), size < 0 ? static_cast<int64_t>(bytes.size()) : size, lengthBits, 0};
}

// Bits of a "0101..." string packed MSB first (zero padded, plus one spare byte).
std::vector<uint8_t> packBits(const std::string& bits) {
  std::vector<uint8_t> out(bits.size() / 8 + 2, 0);
  for (size_t i = 0; i < bits.size(); ++i)
    if (bits[i] == '1') out[i / 8] |= static_cast<uint8_t>(0x80 >> (i % 8));
  return out;
}

// The first `count` bits of bytes as text.
std::string bitsOf(const uint8_t* bytes, uint64_t count) {
  std::string bits;
  for (uint64_t p = 0; p < count; ++p) bits += ((bytes[p / 8] >> (7 - p % 8)) & 1u) ? '1' : '0';
  return bits;
}

std::string written(const zr_bitstream& s) { return bitsOf(s.buffer, s.position); }

// ---- The reference model: the reader's definition transcribed one bit at a time. -----------
struct Model {
  const std::vector<uint8_t>* bytes;
  uint64_t length, position = 0;
  uint32_t bit() {
    uint64_t p = position++;
    if (length < p) return 0xFFFFFFFFu;
    return ((*bytes)[p / 8] >> (7 - p % 8)) & 1u;
  }
  uint32_t bits(int n) {
    uint32_t v = 0;
    for (int k = 0; k < n; ++k) v |= bit() << ((n - 1 - k) & 31);
    return v;
  }
  uint64_t bits64(int n) {
    uint64_t v = 0;
    for (int k = 0; k < n; ++k) v |= uint64_t{bit()} << ((n - 1 - k) & 63);
    return v;
  }
  uint32_t peek(int offset) {
    uint64_t p = position + offset;
    return p >= length ? 1u : (((*bytes)[p / 8] >> (7 - p % 8)) & 1u);
  }
  uint32_t ue() {
    uint32_t z = 0;
    for (;;) {
      if (bit() != 0) break;
      if (position >= length) break;
      ++z;
    }
    uint32_t pow = z < 32 ? (1u << z) : 0u;
    return pow + bits(static_cast<int>(z)) - 1u;
  }
};

// The ends of the data. ReadBit at position == length reads the byte holding bit `length` only
// when it lies inside `size` (buffers of exactly `size` bytes: AddressSanitizer sees any stray
// byte), and a length claiming more than the size reads past the size as past the end. Peeks
// and reads at and past the length inside the size are checked against the model by
// BitReaderProperty; writes past the size by BitstreamWrite.CheckedFormStopsAtTheSize...
TEST(BitReader, EndAndSizeBounds) {
  std::vector<uint8_t> data = {0x00, 0xA5};
  zr_bitstream e = over(data, 8);
  e.position = 7;
  EXPECT_FALSE(IsEndOfStream(&e));
  e.position = 8;
  EXPECT_TRUE(IsEndOfStream(&e));
  struct Case {
    int64_t size;        // bytes addressable
    uint64_t length;     // valid bits
    uint32_t bitEight;   // ReadBit at position 8
  } const kCases[] = {
      {2, 8, 1u},            // the byte is there: its top bit, as the cursor has always read
      {1, 8, 0xFFFFFFFFu},   // it would be the second byte: not there
      {1, 64, 0xFFFFFFFFu},  // inside the length but past the size
  };
  for (const auto& c : kCases) {
    const uint8_t bytes[] = {0xA5, 0x80};
    auto buffer = std::make_unique<uint8_t[]>(static_cast<size_t>(c.size));
    std::memcpy(buffer.get(), bytes, static_cast<size_t>(c.size));
    zr_bitstream s{buffer.get(), c.size, c.length, 0};
    EXPECT_EQ(ReadBits(&s, 8), 0xA5u);
    EXPECT_EQ(ReadBit(&s), c.bitEight) << c.size << " " << c.length;
    EXPECT_EQ(PeekBit(&s, 0), 1u);
    EXPECT_EQ(ReadBit(&s), 0xFFFFFFFFu);
    EXPECT_EQ(s.position, 10u);
  }
}

// The kept quirks of the writers: ue(v) 48 bits too long from 0xFFFFFF on, and positive se(v)
// values coded as 2v + 2 (standard codes: BitReaderProperty's model, BitWriterProperty's round
// trip, and the parameter sets checked against ffmpeg); the signed reader's clause 9.1.1 mapping.
TEST(ExpGolomb, KeptWriterQuirksAndSignedReadMapping) {
  struct Write {
    bool isSigned;
    int64_t value;
    std::string bits;
  } const kWrites[] = {
      // 48 extra bits: 65 zeros then the 32 bits of 0x1000001.
      {false, 0x1000000, std::string(65, '0') + "00000001000000000000000000000001"},
      {true, 1, "00101"},  // code number 4, not 1: reads back as -2
  };
  for (const auto& c : kWrites) {
    std::vector<uint8_t> buf(32, 0xAA);
    zr_bitstream s{buf.data(), 0, 3, 0};  // no size: unchecked, a length does not stop the code
    if (c.isSigned)
      WriteExponentialGolombCodeSigned(&s, static_cast<int32_t>(c.value));
    else
      WriteExponentialGolombCode(&s, static_cast<uint32_t>(c.value));
    EXPECT_EQ(written(s), c.bits) << c.value;
  }
  const std::pair<std::string, int32_t> kReads[] = {{"010", 1}, {"011", -1}, {"00100", 2}, {"00101", -2}};
  for (const auto& [bits, value] : kReads) {
    auto bytes = packBits(bits);
    zr_bitstream s = over(bytes, bits.size());
    EXPECT_EQ(ReadExponentialGolombCodeSigned(&s), value) << bits;
    EXPECT_EQ(s.position, bits.size()) << bits;
  }
}

TEST(ExpGolomb, LengthAndLog2Tables) {
  EXPECT_EQ(LengthExponentialGolombCode(256), 1) << "only the low byte counts";
  for (uint32_t v = 0; v < 256; ++v) {  // cross-check against the writer for the whole low byte
    std::vector<uint8_t> buf(8, 0);
    zr_bitstream s = over(buf, 64);
    WriteExponentialGolombCode(&s, v);
    EXPECT_EQ(LengthExponentialGolombCode(v), static_cast<int32_t>(s.position)) << v;
  }
  const std::pair<int32_t, int32_t> logs[] = {{-5, 0}, {0, 0}, {1, 0}, {2, 1}, {3, 2}, {4, 2}, {5, 3}, {6, 3}, {8, 3}, {9, 4}, {0x40000000, 30}, {0x7FFFFFFF, 31}};
  for (auto [x, l] : logs) EXPECT_EQ(zrintlog2(x), l) << x;
}

TEST(CodedNumber, SumsFFBytes) {
  struct Case {
    std::vector<uint8_t> bytes;
    uint32_t value;
    uint64_t consumed;
  } cases[] = {{{0x05}, 5, 8}, {{0xFF, 0xFF, 0x05}, 515, 24}, {{0xFF, 0x00}, 255, 16}, {{0xFE}, 254, 8}};
  for (auto& c : cases) {
    auto bytes = c.bytes;
    zr_bitstream s = over(bytes, bytes.size() * 8);
    EXPECT_EQ(ReadCodedNumber(&s), c.value);
    EXPECT_EQ(s.position, c.consumed);
  }
}

TEST(Writer, BitsAndSkip) {
  std::vector<uint8_t> buf(16, 0xFF);
  zr_bitstream s = over(buf, 128);
  WriteBit(&s, 2);  // only the lowest bit counts
  WriteBits(&s, 1, 3);
  WriteBits(&s, 0, 5);
  WriteBits(&s, 6, 0x2A);
  WriteBits64(&s, 40, 0x12345678ABull);
  WriteBits(&s, 36, 0xFFFFFFFFu);  // wider than the value: leading zeros
  EXPECT_EQ(written(s), "01" "101010" "0001001000110100010101100111100010101011" "0000" + std::string(32, '1'));
  SkipBits(&s, -4);
  EXPECT_EQ(s.position, 80u);
}

// The delta entries' standard mapping: the x264 custom-matrix round trips of AvcStreams.
TEST(ScalingList, UseDefaultAndEmpty) {
  struct Case {
    std::vector<int32_t> list;
    int32_t useDefault;
    std::string bits;
  } cases[] = {
      {{7, 7, 7}, 1, "111"},
      {{}, 0, ""},
  };
  for (auto& c : cases) {
    std::vector<uint8_t> buf(16, 0);
    zr_bitstream s = over(buf, 128);
    write_scaling_list(&s, c.list.data(), static_cast<int32_t>(c.list.size()), c.useDefault);
    EXPECT_EQ(written(s), c.bits);
  }
}

// write_hrd_parameters: the x264 HRD stream's byte-exact round trip (AvcStreams.high_hrd).
TEST(H264Hrd, EightEntryLimit) {
  // cpb_cnt_minus1 = 9 with ten entries: only eight are read, then the length fields misread.
  std::vector<uint8_t> buf(64, 0);
  zr_bitstream w = over(buf, 512);
  WriteExponentialGolombCode(&w, 9);
  WriteBits(&w, 4, 3);
  WriteBits(&w, 4, 5);
  for (uint32_t i = 0; i < 10; ++i) {
    WriteExponentialGolombCode(&w, 100 + i);
    WriteExponentialGolombCode(&w, 200 + i);
    WriteBit(&w, i & 1);
  }
  uint64_t entriesEnd = w.position;
  hdr_parameters hrd{};
  zr_bitstream r = over(buf, w.position + 20);
  read_hrd_parameters(&hrd, &r);
  EXPECT_EQ(hrd.cpb_cnt_minus1, 7);
  EXPECT_EQ(hrd.bit_rate_scale, 3);
  EXPECT_EQ(hrd.cpb_size_scale, 5);
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(hrd.cpb[i].bit_rate_value_minus1, 100u + i);
    EXPECT_EQ(hrd.cpb[i].cpb_size_value_minus1, 200u + i);
    EXPECT_EQ(hrd.cpb[i].cbr_flag, i & 1);
  }
  EXPECT_LT(r.position, entriesEnd + 20) << "the ninth entry was taken as the length fields";
}

// ---- Property: every reader equals the bit-by-bit model on random data and positions. -------
TEST(BitReaderProperty, MatchesBitByBitModel) {
  std::mt19937 rng(1234);
  for (int round = 0; round < 3000; ++round) {
    size_t bytes = 1 + rng() % 24;
    std::vector<uint8_t> data(bytes + 1);
    // Sparse ones make long Exp-Golomb prefixes likely.
    for (auto& b : data) b = (rng() % 3 == 0) ? static_cast<uint8_t>(rng()) : static_cast<uint8_t>(rng() % 4 == 0);
    uint64_t length = rng() % (bytes * 8 + 1);
    zr_bitstream s{data.data(), static_cast<int64_t>(data.size()), length, 0};
    Model m{&data, length};
    for (int op = 0; op < 12; ++op) {
      int kind = static_cast<int>(rng() % 6);
      int n = static_cast<int>(rng() % 40) - 2;
      if (m.position > length + 16) break;  // keep inside the buffer for the model
      switch (kind) {
        case 0: ASSERT_EQ(ReadBit(&s), m.bit()); break;
        case 1: ASSERT_EQ(ReadBits(&s, n), n < 1 ? 0u : m.bits(n)) << "n=" << n; break;
        case 2: {
          const int wide = 2 * n - 12;  // -16 .. 62
          ASSERT_EQ(ReadBits64(&s, wide), wide < 1 ? 0u : m.bits64(wide)) << "n=" << wide;
          break;
        }
        case 3: ASSERT_EQ(ReadExponentialGolombCode(&s), m.ue()); break;
        case 4: {
          uint32_t expect = 0;
          for (int k = 0; k < n; ++k) expect |= m.peek(k) << ((n - 1 - k) & 31);
          ASSERT_EQ(PeekBits(&s, n), expect) << "n=" << n;
          break;
        }
        case 5: ASSERT_EQ(PeekBit(&s, n), m.peek(n)); break;
      }
      ASSERT_EQ(s.position, m.position) << "round " << round << " op " << op << " kind " << kind;
    }
  }
}

TEST(BitWriterProperty, UnsignedAndSignedRoundTrip) {
  std::mt19937 rng(99);
  for (int round = 0; round < 500; ++round) {
    std::vector<uint8_t> buf(256, 0x5A);  // dirty buffer: the writer must clear the bits it sets
    zr_bitstream w{buf.data(), static_cast<int64_t>(buf.size()), 2048, 0};
    std::vector<uint32_t> values;
    std::vector<int32_t> signedValues;
    std::vector<std::pair<int, uint32_t>> raw;
    for (int i = 0; i < 20; ++i) {
      uint32_t v = rng() >> (rng() % 32);
      if (v >= 0xFFFFFE) v &= 0xFFFFF;  // below the 48-bit quirk the code is standard
      values.push_back(v);
      int32_t sv = static_cast<int32_t>(rng() % 200001) - 100000;
      signedValues.push_back(sv);
      int n = 1 + static_cast<int>(rng() % 32);
      uint32_t r = static_cast<uint32_t>(rng()) & (n == 32 ? 0xFFFFFFFFu : ((1u << n) - 1));
      raw.emplace_back(n, r);
      WriteExponentialGolombCode(&w, v);
      WriteExponentialGolombCodeSigned(&w, sv);
      WriteBits(&w, n, r);
    }
    zr_bitstream r{buf.data(), static_cast<int64_t>(buf.size()), w.position, 0};
    for (int i = 0; i < 20; ++i) {
      ASSERT_EQ(ReadExponentialGolombCode(&r), values[i]);
      // Values <= 0 round-trip; a positive v is coded as code number 2v + 2 and reads as -(v + 1).
      const int32_t sv = signedValues[i];
      ASSERT_EQ(ReadExponentialGolombCodeSigned(&r), sv > 0 ? -(sv + 1) : sv);
      ASSERT_EQ(ReadBits(&r, raw[i].first), raw[i].second);
    }
    ASSERT_EQ(r.position, w.position);
  }
}

// ---- Writes against a bit-string model. ----------------------------------------------------
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
      ASSERT_EQ(bitsOf(buffer.data(), kept), want.substr(0, kept));
      for (size_t i = static_cast<size_t>(size); i < buffer.size(); ++i) ASSERT_EQ(buffer[i], 0xCC) << "byte " << i;
    }
  }
}


// A stream over no buffer at all: reads are past the end, writes go nowhere, positions count.
TEST(BitstreamNullBuffer, ReadsArePastTheEndAndWritesAreDropped) {
  struct Case {
    int64_t size;
    uint64_t length;
  } const kCases[] = {{0, 64}, {8, 64}};
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
      {0, 0, 1, ZR_BITSTREAM_NO_ROOM}, {-4, 0, 8, ZR_BITSTREAM_NO_ROOM}, {2, 9, 8, ZR_BITSTREAM_NO_ROOM},
      {2, 8, 8, 0},                    {3, 7, -1, 0},                    {3, 8, -1, ZR_BITSTREAM_NO_ROOM},
      {4, 0, 33, -1},                  {4, UINT64_MAX - 3, 8, ZR_BITSTREAM_NO_ROOM},
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
