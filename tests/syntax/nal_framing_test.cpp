// NAL unit search (its documented edge cases) and NAL <-> RBSP conversion, both checked against
// the byte-by-byte reference loops on random buffers; then mutated real streams and noise through
// every entry point, each in an exactly sized heap buffer so that AddressSanitizer catches any
// access outside it; every reported unit must lie inside the input.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "reference_framing.h"
#include "streamutil/framing.h"
#include "support/test_support.h"
#include "syntax/syntax.h"

namespace {

using Bytes = std::vector<uint8_t>;

ref::Found runFind(int (*find)(const uint8_t*, int, int*, int*), const Bytes& bytes) {
  auto buf = ref::exactCopy(bytes);
  int start = -7, end = -7;
  int result = find(buf.get(), static_cast<int>(bytes.size()), &start, &end);
  return {result, start, end};
}

using FindFn = int (*)(const uint8_t*, int, int*, int*);
using RefFindFn = ref::Found (*)(const uint8_t*, int);
const FindFn kFind = find_nal_unit, kFind4 = find_nal_unit_4only;

struct FindCase {
  const char* name;
  FindFn find;
  Bytes input;
  ref::Found expected;
};

TEST(FindNalUnit, EdgeCases) {
  const FindCase cases[] = {
      {"three bytes are one unit", kFind, {0x00, 0x00, 0x01}, {3, 0, 3}},
      {"00 00 00 01 alone is the whole buffer", kFind, {0x00, 0x00, 0x00, 0x01}, {4, 0, 4}},
      {"last unit runs to the end", kFind, {0x00, 0x00, 0x01, 0x65, 0xAA, 0xBB}, {3, 3, 6}},
      {"unit ends at the next start code", kFind, {0x00, 0x00, 0x00, 0x01, 0x67, 0xAA, 0x00, 0x00, 0x01, 0x68}, {2, 4, 6}},
      {"no start code", kFind, {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77}, {0, 0, 0}},
      {"empty buffer", kFind, {}, {0, 0, 0}},
      {"size 5 tests only position 0", kFind, {0xAA, 0x00, 0x00, 0x01, 0x65}, {0, 0, 0}},
      {"start found at the last tested position", kFind, {0xAA, 0x00, 0x00, 0x01, 0x65, 0x66}, {2, 4, 6}},
      {"four-byte code ends the unit at its first zero", kFind,
       {0x00, 0x00, 0x01, 0x65, 0xAA, 0x00, 0x00, 0x00, 0x01, 0x41}, {2, 3, 5}},
      {"trailing zeros stay in the unit", kFind, {0x00, 0x00, 0x01, 0x65, 0xAA, 0x00, 0x00, 0x00, 0xBB}, {6, 3, 9}},
      {"three-byte code in the last three bytes does not end the unit", kFind,
       {0x00, 0x00, 0x01, 0x65, 0xAA, 0x00, 0x00, 0x01}, {5, 3, 8}},
      {"empty unit between two codes", kFind, {0x00, 0x00, 0x01, 0x00, 0x00, 0x01, 0x41, 0x42}, {0, 3, 3}},
      {"4only: inner 00 00 01 does not end the unit", kFind4,
       {0x00, 0x00, 0x00, 0x01, 0x65, 0xAA, 0x00, 0x00, 0x01, 0x41, 0xBB, 0xCC}, {-1, 4, 12}},
      {"4only: inner 00 00 00 ends the unit", kFind4,
       {0x00, 0x00, 0x00, 0x01, 0x65, 0xAA, 0x00, 0x00, 0x00, 0x01, 0x41, 0xBB}, {2, 4, 6}},
      {"4only: unterminated unit", kFind4, {0x00, 0x00, 0x00, 0x01, 0x65, 0xAA, 0xBB, 0xCC}, {-1, 4, 8}},
      {"4only: three-byte code does not start a unit", kFind4, {0x00, 0x00, 0x01, 0x65, 0xAA, 0xBB, 0xCC}, {0, 0, 0}},
      {"4only: size 5 tests only position 0", kFind4, {0xAA, 0x00, 0x00, 0x00, 0x01}, {0, 0, 0}},
      {"4only: 00 00 00 01 alone is the whole buffer", kFind4, {0x00, 0x00, 0x00, 0x01}, {4, 0, 4}},
      {"4only: short buffer is one unit", kFind4, {0x01, 0x02}, {2, 0, 2}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const RefFindFn reference = c.find == kFind ? ref::findNalUnit : ref::findNalUnit4Only;
    EXPECT_EQ(runFind(c.find, c.input), c.expected);
    EXPECT_EQ(reference(c.input.data(), static_cast<int>(c.input.size())), c.expected);
  }
}

// nal_to_rbsp or rbsp_to_nal on an exactly sized copy, with `capacity` bytes of output.
template <class Convert>
ref::Converted runConvert(Convert convert, const Bytes& input, int capacity) {
  auto in = ref::exactCopy(input);
  auto out = std::make_unique<uint8_t[]>(capacity > 0 ? capacity : 1);
  int inSize = static_cast<int>(input.size()), outSize = capacity;
  int result = convert(in.get(), &inSize, out.get(), &outSize);
  Bytes written;
  if (result >= 0) written.assign(out.get(), out.get() + std::min(outSize, std::max(capacity, 0)));
  return {result, inSize, outSize, written};
}
ref::Converted runNalToRbsp(const Bytes& nal, int capacity) { return runConvert(nal_to_rbsp, nal, capacity); }
ref::Converted runRbspToNal(const Bytes& rbsp, int capacity) { return runConvert(rbsp_to_nal, rbsp, capacity); }

// Random buffers rich in the bytes that matter (00, 01, 02, 03) and in start codes, of every
// length from 0 up, so that the word-parallel paths meet every alignment and tail.
Bytes randomBuffer(std::mt19937& rng, size_t size) {
  static const uint8_t kAlphabet[] = {0x00, 0x00, 0x00, 0x01, 0x02, 0x03, 0x04, 0x65, 0xFF, 0x80};
  Bytes bytes(size);
  std::uniform_int_distribution<int> pick(0, sizeof(kAlphabet) - 1);
  std::uniform_int_distribution<int> any(0, 255);
  std::uniform_int_distribution<int> mode(0, 3);
  int style = mode(rng);
  for (auto& b : bytes) b = style == 0 ? static_cast<uint8_t>(any(rng)) : kAlphabet[pick(rng)];
  // Sparse variant: mostly non-zero data with an occasional start code or escape site.
  if (style == 3) {
    for (auto& b : bytes) b = static_cast<uint8_t>(0x10 + any(rng) % 0xE0);
    std::uniform_int_distribution<size_t> where(0, size ? size - 1 : 0);
    for (int k = 0; k < 3 && size > 4; k++) {
      size_t at = where(rng) % (size - 3);
      bytes[at] = 0;
      bytes[at + 1] = 0;
      bytes[at + 2] = static_cast<uint8_t>(any(rng) % 4);
    }
  }
  return bytes;
}

TEST(NalFraming, AgreesWithReferenceOnRandomBuffers) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 6000; round++) {
    size_t size = round < 200 ? static_cast<size_t>(round % 100) : rng() % 300;
    Bytes bytes = randomBuffer(rng, size);
    const int n = static_cast<int>(size);
    SCOPED_TRACE(::testing::Message() << "round " << round << " size " << size);
    ASSERT_EQ(runFind(find_nal_unit, bytes), ref::findNalUnit(bytes.data(), n));
    ASSERT_EQ(runFind(find_nal_unit_4only, bytes), ref::findNalUnit4Only(bytes.data(), n));
    int capacity = static_cast<int>(rng() % (size * 2 + 2));
    ASSERT_EQ(runNalToRbsp(bytes, capacity), ref::nalToRbsp(bytes.data(), n, capacity));
    ASSERT_EQ(runRbspToNal(bytes, capacity), ref::rbspToNal(bytes.data(), n, capacity));
    int roomy = n * 2 + 2;
    ASSERT_EQ(runNalToRbsp(bytes, roomy), ref::nalToRbsp(bytes.data(), n, roomy));
    ASSERT_EQ(runRbspToNal(bytes, roomy), ref::rbspToNal(bytes.data(), n, roomy));
  }
}

void mutate(std::mt19937& rng, Bytes& b) {
  int edits = 1 + static_cast<int>(rng() % 8);
  for (int e = 0; e < edits && !b.empty(); e++) {
    size_t at = rng() % b.size();
    switch (rng() % 5) {
      case 0: b[at] = static_cast<uint8_t>(rng()); break;
      case 1: b[at] = 0; break;
      case 2: b.insert(b.begin() + static_cast<long>(at), {0x00, 0x00, static_cast<uint8_t>(rng() % 4)}); break;
      case 3: b.erase(b.begin() + static_cast<long>(at), b.begin() + static_cast<long>(std::min(b.size(), at + rng() % 16))); break;
      default: b.resize(at); break;
    }
  }
}

void everyEntryPoint(const Bytes& input) {
  const int size = static_cast<int>(input.size());
  auto buf = ref::exactCopy(input);

  int start = 0, end = 0;
  ASSERT_EQ(ref::Found({find_nal_unit(buf.get(), size, &start, &end), start, end}),
            ref::findNalUnit(input.data(), size));
  ASSERT_EQ(ref::Found({find_nal_unit_4only(buf.get(), size, &start, &end), start, end}),
            ref::findNalUnit4Only(input.data(), size));

  auto rbsp = std::make_unique<uint8_t[]>(input.size() + 1);
  int nalSize = size, rbspSize = size;
  int n = nal_to_rbsp(buf.get(), &nalSize, rbsp.get(), &rbspSize);
  ASSERT_EQ(n, ref::nalToRbsp(input.data(), size, size).result);

  h264_stream_t* h = h264_new();
  int r = read_nal_unit_hevc(h, buf.get(), size);
  EXPECT_TRUE(r == -1 || r == 0 || r == size);
  for (int i = 0; i < h->num_seis; i++) EXPECT_LE(h->seis[i]->payloadSize, size);
  peek_nal_unit(h, buf.get(), size);
  h264_free(h);

  const auto usize = static_cast<uint32_t>(size);
  const uint32_t room = klxUtilh264MarkerToSizeResult(buf.get(), usize);
  Bytes frame = input;
  frame.resize(room);
  auto work = ref::exactCopy(frame);
  uint32_t newSize = 0;
  ASSERT_EQ(klxUtilh264MarkerToSizeChecked(work.get(), usize, room, &newSize), 0);
  EXPECT_LE(klxUtilh264SizeToMarker(work.get(), newSize), newSize);

  for (uint32_t startCodes = 0; startCodes < 2; startCodes++) {
    uint8_t* unit = nullptr;
    uint32_t length = 0;
    if (klxUtilFindSpecificNAL(buf.get(), usize, startCodes, size > 4 ? input[4] : 0x40, &unit, &length)) {
      EXPECT_GE(unit, buf.get());
      EXPECT_LE(unit + length, buf.get() + size);
    }
    uint8_t *sei = nullptr, *rpu = nullptr;
    uint32_t seiLength = 0, rpuLength = 0;
    klxUtilFindDolbyVisionMetadata(buf.get(), usize, startCodes, &sei, &seiLength, &rpu, &rpuLength);
    EXPECT_TRUE(sei == nullptr || sei + seiLength <= buf.get() + size);
    EXPECT_TRUE(rpu == nullptr || rpu + rpuLength <= buf.get() + size);
  }
}

// Pieces of a real x265 stream (the bundled sample, with SEI), mutated.
TEST(HostileInput, MutatedRealStream) {
  const Bytes stream = qtest::readBytes(qtest::samplePath("hevc_main_160x90_2997_bframes.hevc"));
  ASSERT_GT(stream.size(), 1000u);
  std::mt19937 rng(2024);
  for (int round = 0; round < 1500; round++) {
    size_t from = rng() % stream.size();
    size_t length = std::min<size_t>(stream.size() - from, rng() % 600);
    Bytes piece(stream.begin() + static_cast<long>(from), stream.begin() + static_cast<long>(from + length));
    mutate(rng, piece);
    SCOPED_TRACE(round);
    everyEntryPoint(piece);
    if (HasFatalFailure()) return;
  }
}

// Units that look like HEVC prefix SEI with random message bytes behind them.
TEST(HostileInput, RandomPrefixSeiUnits) {
  std::mt19937 rng(31);
  for (int round = 0; round < 3000; round++) {
    Bytes unit = {0x4E, 0x01};
    size_t length = rng() % 40;
    for (size_t k = 0; k < length; k++) unit.push_back(static_cast<uint8_t>(rng() % 3 ? rng() : 0xFF));
    SCOPED_TRACE(round);
    everyEntryPoint(unit);
    if (HasFatalFailure()) return;
  }
}

}  // namespace
