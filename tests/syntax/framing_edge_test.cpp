// Frame conversion between start codes and length prefixes, and unit lookup: each kept rule.
// Plain conversion and lookup are checked against ffmpeg's MP4 samples of real streams
// (stream_interop_test.cpp); start codes to lengths, with its rules for frames that already read
// as a chain of lengths, against the reference on random frames, with the checked form
// (framing_random_test.cpp).
#include <gtest/gtest.h>

#include <vector>

#include "reference_framing.h"
#include "streamutil/framing.h"

namespace {

using Bytes = std::vector<uint8_t>;

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
