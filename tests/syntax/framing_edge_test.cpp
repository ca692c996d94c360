// Frame conversion between start codes and length prefixes, and unit lookup. Plain conversion and
// lookup are checked against ffmpeg's MP4 samples of real streams (stream_interop_test.cpp). Here:
// in-place Annex B -> length-prefixed conversion, unchecked and checked, against the plain forward
// reference on random frames (any mixture of three- and four-byte start codes, trailing zeros,
// frames that happen to read as length chains, and frames with more units than the converter
// remembers); then each kept rule of the other conversion and of the lookups.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "reference_framing.h"
#include "streamutil/framing.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes randomFrame(std::mt19937& rng, int units, int maxUnit) {
  static const uint8_t kAlphabet[] = {0x00, 0x00, 0x01, 0x02, 0x03, 0x41, 0x65, 0x80, 0xFF};
  std::uniform_int_distribution<int> pick(0, sizeof(kAlphabet) - 1);
  Bytes frame;
  for (int u = 0; u < units; u++) {
    if (u > 0 && rng() % 2) frame.push_back(0);  // a four-byte code or a trailing zero
    if (u == 0 || rng() % 3) {
      frame.insert(frame.end(), {0x00, 0x00, 0x01});
    }
    int length = static_cast<int>(rng() % (maxUnit + 1));
    for (int k = 0; k < length; k++) frame.push_back(rng() % 4 ? static_cast<uint8_t>(rng()) : kAlphabet[pick(rng)]);
  }
  if (rng() % 4 == 0) frame.insert(frame.begin(), 0x00);  // a leading four-byte code
  return frame;
}

void expectSameAsReference(const Bytes& frame) {
  const auto size = static_cast<uint32_t>(frame.size());
  Bytes expected = frame;
  expected.resize(frame.size() * 2 + 8, 0xEE);
  const uint32_t expectedSize = ref::markerToSize(expected, size);
  expected.resize(expectedSize);

  EXPECT_EQ(klxUtilh264MarkerToSizeResult(frame.data(), size), expectedSize);
  Bytes got = frame;
  got.resize(expectedSize > size ? expectedSize : size);
  ASSERT_EQ(klxUtilh264MarkerToSize(got.data(), size), expectedSize);
  got.resize(expectedSize);
  ASSERT_EQ(got, expected);

  // The checked form: exactly enough room works, one byte less is refused with the frame intact.
  Bytes checked = frame;
  checked.resize(expectedSize > size ? expectedSize : size);
  uint32_t newSize = 0;
  if (expectedSize > size) {
    EXPECT_EQ(klxUtilh264MarkerToSizeChecked(checked.data(), size, expectedSize - 1, &newSize), -1);
    EXPECT_TRUE(std::equal(frame.begin(), frame.end(), checked.begin()));
  }
  ASSERT_EQ(klxUtilh264MarkerToSizeChecked(checked.data(), size, expectedSize > size ? expectedSize : size, &newSize), 0);
  EXPECT_EQ(newSize, expectedSize);
  checked.resize(expectedSize);
  EXPECT_EQ(checked, expected);
}

// Random frames (then frames with more units than the converter remembers), and arbitrary
// bytes behind a start code including every short size.
TEST(MarkerToSize, AgreesWithForwardReference) {
  std::mt19937 rng(1234);
  for (int round = 0; round < 3000; round++) {
    SCOPED_TRACE(round);
    expectSameAsReference(randomFrame(rng, 1 + static_cast<int>(rng() % 12), static_cast<int>(rng() % 70)));
    Bytes noise(rng() % 40);
    for (auto& b : noise) b = static_cast<uint8_t>(rng() % 3 == 0 ? rng() : rng() % 3);
    if (noise.size() >= 3 && rng() % 2) noise[0] = 0, noise[1] = 0, noise[2] = 1;
    expectSameAsReference(noise);
  }
  for (int units : {511, 512, 513, 1500}) {
    SCOPED_TRACE(units);
    expectSameAsReference(randomFrame(rng, units, 40));
  }
}


struct ConvertCase {
  const char* name;
  Bytes input;
  uint32_t result;
  Bytes output;  // the first `result` bytes after the call
};

TEST(SizeToMarker, Cases) {
  const ConvertCase cases[] = {
      {"zero length cuts the frame", {0x00, 0x00, 0x00, 0x02, 0x65, 0xAA, 0x00, 0x00, 0x00, 0x00}, 6,
       {0x00, 0x00, 0x00, 0x01, 0x65, 0xAA}},
      {"second length too large: only the first replaced",
       {0x00, 0x00, 0x00, 0x02, 0x65, 0xAA, 0x00, 0x00, 0x00, 0x09, 0x41, 0xBB}, 12,
       {0x00, 0x00, 0x00, 0x01, 0x65, 0xAA, 0x00, 0x00, 0x00, 0x09, 0x41, 0xBB}},
      {"already start codes", {0x00, 0x00, 0x00, 0x01, 0x65, 0xAA}, 6, {0x00, 0x00, 0x00, 0x01, 0x65, 0xAA}},
      {"length equal to the bytes left stops", {0x00, 0x00, 0x00, 0x06, 0x65, 0xAA}, 6,
       {0x00, 0x00, 0x00, 0x06, 0x65, 0xAA}},
      {"short zero tail is dropped", {0x00, 0x00, 0x00, 0x02, 0x65, 0xAA, 0x00, 0x00}, 6,
       {0x00, 0x00, 0x00, 0x01, 0x65, 0xAA}},
      {"short non-zero tail stops", {0x00, 0x00, 0x00, 0x02, 0x65, 0xAA, 0x00, 0x01}, 8,
       {0x00, 0x00, 0x00, 0x01, 0x65, 0xAA, 0x00, 0x01}},
      {"empty", {}, 0, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes buf = c.input;
    uint32_t result = klxUtilh264SizeToMarker(buf.data(), static_cast<uint32_t>(buf.size()));
    EXPECT_EQ(result, c.result);
    EXPECT_EQ(Bytes(buf.begin(), buf.begin() + result), c.output);
  }
}

struct LookupCase {
  const char* name;
  Bytes frame;
  uint32_t startCodes;
  uint8_t wanted;
  int result;
  int offset;  // -1: null
  uint32_t length;
};

TEST(FindSpecificNAL, Cases) {
  const Bytes prefixed = {0x00, 0x00, 0x00, 0x02, 0x09, 0xF0, 0x00, 0x00, 0x00, 0x03, 0x06, 0x05, 0x11};
  const LookupCase cases[] = {
      {"length-prefixed, absent", prefixed, 0, 0x67, 0, -1, 0},
      {"start codes: a unit ends at its first zero byte",
       {0x00, 0x00, 0x00, 0x01, 0x67, 0x64, 0x00, 0x1F, 0xAC, 0xD9, 0x40}, 1, 0x67, 1, 0, 4},
      {"start codes: header compared four places behind the stop",
       {0x00, 0x00, 0x00, 0x01, 0x09, 0xF0, 0x00, 0x11, 0x06, 0x22, 0x33, 0x44, 0x55}, 1, 0x06, 1, 4, 5},
      {"start codes: first match wins",
       {0x00, 0x00, 0x00, 0x01, 0x06, 0x05, 0x07, 0x08, 0x00, 0x00, 0x00, 0x01, 0x06, 0x01, 0x02, 0x03}, 1, 0x06, 1, 0,
       6},
      {"size 4", {0x00, 0x00, 0x00, 0x01}, 1, 0x00, 0, -1, 0},
      // A length running past the frame: the unit is cut at the frame's end, never read past it
      // (the buffer is exactly the frame's size, so AddressSanitizer sees any stray byte).
      {"length-prefixed, first length past the end", {0x00, 0x00, 0x01, 0x00, 0x06, 0x01, 0x02}, 0, 0x06, 1, 0, 7},
      {"length-prefixed, second length past the end",
       {0x00, 0x00, 0x00, 0x01, 0x09, 0x00, 0x00, 0x10, 0x00, 0x06, 0x01, 0x02}, 0, 0x06, 1, 5, 7},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto buf = ref::exactCopy(c.frame);
    uint8_t* unit = reinterpret_cast<uint8_t*>(&buf);  // must be overwritten
    uint32_t length = 12345;
    EXPECT_EQ(klxUtilFindSpecificNAL(buf.get(), static_cast<uint32_t>(c.frame.size()), c.startCodes, c.wanted, &unit, &length),
              c.result);
    EXPECT_EQ(unit, c.offset < 0 ? nullptr : buf.get() + c.offset);
    EXPECT_EQ(length, c.length);
  }
  // Too short or null: the outputs are left alone.
  uint8_t* unit = reinterpret_cast<uint8_t*>(0x1);
  uint32_t length = 77;
  uint8_t three[] = {0x00, 0x00, 0x01};
  EXPECT_EQ(klxUtilFindSpecificNAL(three, 3, 1, 0x00, &unit, &length), 0);
  EXPECT_EQ(klxUtilFindSpecificNAL(nullptr, 100, 1, 0x00, &unit, &length), 0);
  EXPECT_EQ(unit, reinterpret_cast<uint8_t*>(0x1));
  EXPECT_EQ(length, 77u);
}

struct DolbyCase {
  const char* name;
  Bytes frame;
  uint32_t startCodes;
  int result;
  int sei;  // offset, -1 null
  uint32_t seiLength;
  int rpu;
  uint32_t rpuLength;
};

Bytes lengthPrefixed(std::initializer_list<Bytes> units) {
  Bytes out;
  for (const auto& u : units) {
    auto n = static_cast<uint32_t>(u.size());
    out.insert(out.end(), {uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n)});
    out.insert(out.end(), u.begin(), u.end());
  }
  return out;
}

TEST(FindDolbyVisionMetadata, Cases) {
  const DolbyCase cases[] = {
      {"last RPU wins", lengthPrefixed({{0x7C, 0x01, 0x11}, {0x02, 0x01, 0xAA, 0xBB}, {0x7C, 0x01, 0x22, 0x33}}), 0, 1,
       -1, 0, 20, 3},
      {"last SEI and the RPU", lengthPrefixed({{0x4E, 0x01, 0x05}, {0x4E, 0x01, 0x89, 0x02}, {0x7C, 0x01, 0x09}}), 0, 1,
       12, 3, 20, 2},
      // The stop test passes over the RPU behind the SEI's zero byte; the SEI, still open at the
      // first stop (which lies on its own pointer), is closed at the next one.
      {"start codes", {0x00, 0x00, 0x00, 0x01, 0x4E, 0x01, 0x05, 0x00, 0x00, 0x00, 0x01, 0x7C, 0x01, 0x22, 0x33, 0x44},
       1, 1, 5, 4, -1, 0},
      {"start codes, RPU found", {0x00, 0x00, 0x00, 0x01, 0x7C, 0x01, 0x22, 0x33, 0x44, 0x55, 0x66}, 1, 1, -1, 0, 5, 2},
      {"size 4 zeroes the outputs", {0x00, 0x00, 0x00, 0x01}, 1, 0, -1, 0, -1, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes buf = c.frame;
    uint8_t* sei = buf.data() + 1;
    uint8_t* rpu = buf.data() + 2;
    uint32_t seiLength = 999, rpuLength = 999;
    EXPECT_EQ(klxUtilFindDolbyVisionMetadata(buf.data(), static_cast<uint32_t>(buf.size()), c.startCodes, &sei,
                                             &seiLength, &rpu, &rpuLength),
              c.result);
    EXPECT_EQ(sei, c.sei < 0 ? nullptr : buf.data() + c.sei);
    EXPECT_EQ(seiLength, c.seiLength);
    EXPECT_EQ(rpu, c.rpu < 0 ? nullptr : buf.data() + c.rpu);
    EXPECT_EQ(rpuLength, c.rpuLength);
  }
}

}  // namespace
