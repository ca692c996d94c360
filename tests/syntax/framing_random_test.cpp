// In-place Annex B -> length-prefixed conversion against the plain forward reference, on random
// frames: any mixture of three- and four-byte start codes, trailing zeros, frames that happen to
// read as length chains, and frames with more units than the converter remembers.
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

}  // namespace
