// Mutated real streams and noise through every entry point, each in an exactly sized heap
// buffer so that AddressSanitizer catches any access outside it; every reported unit must lie
// inside the input.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "reference_framing.h"
#include "streamutil/framing.h"
#include "support/test_support.h"
#include "syntax/syntax.h"

namespace {

using Bytes = std::vector<uint8_t>;

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
