// copyMediaCmd's payload copy behaves as the C library's strncpy over the bound: the text, then
// zeros to the end of the bound (nothing of a longer old payload left behind the text), nothing
// written beyond it. strncpy itself is the oracle. The clip id is copied the same way, 8 bytes.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "mediacmd/mediacmd.h"

namespace {

// The payload that strncpy would leave in `dst` for this merge.
std::string expectedPayload(const MEDIACMD& dst, const MEDIACMD& src) {
  MEDIACMD want = dst;
  size_t limit = std::min<size_t>({src.StructSize - MEDIACMD_PAYLOAD_OFFSET, MEDIACMD_PAYLOAD_COPY_MAX,
                                   dst.StructSize - MEDIACMD_PAYLOAD_OFFSET});
  std::strncpy(want.Payload, src.Payload, limit);
  return std::string(want.Payload, MEDIACMD_PAYLOAD_SIZE);
}

TEST(MediaCmdPayloadCopy, BoundsFromBothSizesMatchStrncpy) {
  struct Case {
    uint32_t dstSize, srcSize;
  } const kCases[] = {{4188, 4188}, {86, 4188}, {4188, 86}, {100, 200}, {200, 100},
                      {85, 4188},   {4188, 85}, {5000, 5000}};
  std::mt19937 rng(7);
  for (const auto& c : kCases) {
    for (int round = 0; round < 50; ++round) {
      MEDIACMD dst, src;
      initMediaCmd(&dst, ctStop);
      initMediaCmd(&src, ctPlay);
      for (char& ch : dst.Payload) ch = static_cast<char>('a' + rng() % 26);
      for (char& ch : src.Payload) ch = static_cast<char>('A' + rng() % 26);
      src.Payload[rng() % MEDIACMD_PAYLOAD_SIZE] = '\0';
      dst.StructSize = c.dstSize;
      src.StructSize = c.srcSize;
      src.CtrlFlags = cfUseClipID;
      std::memcpy(src.ClipID, "ABCDEFGHI", 9);  // no NUL: only 8 may be copied
      std::memset(dst.ClipID, 'z', sizeof dst.ClipID);
      MEDIACMD before = dst;
      copyMediaCmd(&dst, &src, 0);
      ASSERT_EQ(std::string(dst.ClipID, 9), "ABCDEFGHz");
      std::string want = (c.dstSize > 85 && c.srcSize > 85) ? expectedPayload(before, src)
                                                            : std::string(before.Payload, MEDIACMD_PAYLOAD_SIZE);
      ASSERT_EQ(std::string(dst.Payload, MEDIACMD_PAYLOAD_SIZE), want) << c.dstSize << " " << c.srcSize;
    }
  }
}

}  // namespace
