// The three places where the classic behaviour would touch a byte outside the caller's buffer,
// each over buffers allocated to their exact size so that AddressSanitizer sees any stray byte:
//  - rbsp_to_nal's write of the byte behind an inserted 03 (refused when it does not fit);
//  - ReadBit at position == length when the byte holding bit `length` lies beyond `size`;
//  - a length-prefixed unit whose length runs past the frame in klxUtilFindSpecificNAL (rows of
//    FindSpecificNAL.Cases, framing_edge_test.cpp).
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "reference_framing.h"
#include "streamutil/zr_bitstream.h"
#include "syntax/nal_framing.h"

namespace {

using Bytes = std::vector<uint8_t>;

TEST(LetterDepartures, RbspToNalRefusesWhenTheByteBehindAnEscapeDoesNotFit) {
  struct Case {
    Bytes rbsp;
    int capacity;
    int result;  // -1: refused
  } const kCases[] = {
      {{0x00, 0x00, 0x01}, 4, -1},  // header, 00, 00, 03 fills it: 01 would be the fifth byte
      {{0x00, 0x00, 0x01}, 5, 5},   // exactly enough
      {{0x00, 0x00, 0x00, 0x00}, 5, -1}, {{0x00, 0x00, 0x00, 0x00}, 6, 6},
      {{0x11, 0x00, 0x00, 0x02}, 5, -1}, {{0x11, 0x00, 0x00, 0x02}, 6, 6},
      {{0x00, 0x00, 0x04}, 4, 4},   // no escape: every byte is room-tested
  };
  for (const auto& c : kCases) {
    auto in = ref::exactCopy(c.rbsp);
    auto out = std::make_unique<uint8_t[]>(static_cast<size_t>(c.capacity));
    int rbspSize = static_cast<int>(c.rbsp.size());
    int nalSize = c.capacity;
    EXPECT_EQ(rbsp_to_nal(in.get(), &rbspSize, out.get(), &nalSize), c.result) << c.capacity;
    if (c.result < 0) {
      EXPECT_EQ(nalSize, c.capacity) << "sizes stay as they were";
    } else {
      EXPECT_EQ(nalSize, c.result);
    }
  }
}

TEST(LetterDepartures, ReadBitAtTheLengthStaysInsideTheGivenSize) {
  struct Case {
    int64_t size;           // bytes addressable
    uint64_t length;        // valid bits
    uint32_t firstRead;     // ReadBit at position == length
  } const kCases[] = {
      {1, 8, 0xFFFFFFFFu},   // the byte holding bit 8 would be the second: not there
      {2, 8, 1u},            // it is there: its top bit, as the cursor has always read
  };  // (inside the size, the read at the length is checked on random data by BitReaderProperty)
  for (const auto& c : kCases) {
    Bytes bytes = {0xA5, 0x80, 0x00};
    bytes.resize(static_cast<size_t>(c.size));
    auto buffer = ref::exactCopy(bytes);
    zr_bitstream s{buffer.get(), c.size, c.length, c.length};
    EXPECT_EQ(ReadBit(&s), c.firstRead) << c.size << " " << c.length;
    EXPECT_EQ(s.position, c.length + 1);
    EXPECT_EQ(ReadBit(&s), 0xFFFFFFFFu) << "beyond the length";
    EXPECT_EQ(s.position, c.length + 2);
  }
}

}  // namespace
