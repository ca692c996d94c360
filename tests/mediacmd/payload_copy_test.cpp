// copyMediaCmd's payload copy behaves as the C library's strncpy over the bound: the text, then
// zeros to the end of the bound, nothing written beyond it. strncpy itself is the oracle.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "mediacmd/mediacmd.h"

namespace {

MEDIACMD withPayload(const char* bytes, size_t n) {
  MEDIACMD cmd;
  initMediaCmd(&cmd, ctPlay);
  std::memcpy(cmd.Payload, bytes, n);
  cmd.CtrlFlags = cfUseClipID;
  return cmd;
}

// The payload that strncpy would leave in `dst` for this merge.
std::string expectedPayload(const MEDIACMD& dst, const MEDIACMD& src) {
  MEDIACMD want = dst;
  size_t limit = std::min<size_t>({src.StructSize - MEDIACMD_PAYLOAD_OFFSET, MEDIACMD_PAYLOAD_COPY_MAX,
                                   dst.StructSize - MEDIACMD_PAYLOAD_OFFSET});
  std::strncpy(want.Payload, src.Payload, limit);
  return std::string(want.Payload, MEDIACMD_PAYLOAD_SIZE);
}

TEST(MediaCmdPayloadCopy, ShorterTextLeavesNothingOfTheOldPayloadBehindIt) {
  struct Case {
    std::string oldPayload, newPayload;
    const char* firstAliasAfterText;  // what a reader of NUL-separated items finds after the text
  } const kCases[] = {
      {std::string("Old\0Cam 1\0Cam 2\0", 16), std::string("Main\0", 5), ""},
      {std::string("A long old name\0", 16), std::string("B\0", 2), ""},
      {std::string("x\0y\0z\0", 6), std::string("\0", 1), ""},
      {std::string("same\0", 5), std::string("same\0tail", 9), ""},  // behind the NUL: zeros
  };
  for (const auto& c : kCases) {
    MEDIACMD dst = withPayload(c.oldPayload.data(), c.oldPayload.size());
    MEDIACMD src = withPayload(c.newPayload.data(), c.newPayload.size());
    copyMediaCmd(&dst, &src, 0xFFFFFFFFu);
    size_t textLength = std::strlen(src.Payload);
    EXPECT_STREQ(dst.Payload, src.Payload);
    EXPECT_STREQ(dst.Payload + textLength + 1, c.firstAliasAfterText) << c.newPayload;
    EXPECT_EQ(std::string(dst.Payload, MEDIACMD_PAYLOAD_SIZE), expectedPayload(withPayload(c.oldPayload.data(), c.oldPayload.size()), src));
  }
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
      MEDIACMD before = dst;
      copyMediaCmd(&dst, &src, 0);
      std::string want = (c.dstSize > 85 && c.srcSize > 85) ? expectedPayload(before, src)
                                                            : std::string(before.Payload, MEDIACMD_PAYLOAD_SIZE);
      ASSERT_EQ(std::string(dst.Payload, MEDIACMD_PAYLOAD_SIZE), want) << c.dstSize << " " << c.srcSize;
    }
  }
}

}  // namespace
