// Boxes (ISO/IEC 14496-12 4.2) of the MP4 files ffmpeg writes: the configuration records it
// stores are the independent answer the record writers and readers are compared with.
#pragma once
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace qtest {

// A box's size word (big-endian) at `at`.
inline uint32_t be32(const std::vector<uint8_t>& b, size_t at) {
  return uint32_t{b[at]} << 24 | uint32_t{b[at + 1]} << 16 | uint32_t{b[at + 2]} << 8 | b[at + 3];
}

// Writes a box's size word (big-endian) at `at`.
inline void putBe32(std::vector<uint8_t>& b, size_t at, uint32_t value) {
  for (size_t i = 0; i < 4; ++i) b[at + i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

// The first whole box (size word, type, body) of `type` in the file, found byte by byte and kept
// only when its size word fits the file; empty when there is none.
inline std::vector<uint8_t> boxIn(const std::vector<uint8_t>& file, const char* type) {
  for (size_t i = 4; i + 4 <= file.size(); ++i) {
    if (std::memcmp(&file[i], type, 4) != 0) continue;
    const size_t size = be32(file, i - 4);
    if (size >= 8 && i - 4 + size <= file.size()) return {file.begin() + long(i - 4), file.begin() + long(i - 4 + size)};
  }
  return {};
}

// The box of `type` in the MP4 file ffmpeg makes from the stream with -c copy (a failing ffmpeg
// fails the calling test).
inline std::vector<uint8_t> remuxedBox(const std::string& stream, const char* type) {
  TempDir dir;
  const auto r = runCommand("ffmpeg -nostdin -y -v error -i " + shellQuote(stream) + " -c copy " + shellQuote(dir.file("out.mp4")));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  return boxIn(readBytes(dir.file("out.mp4")), type);
}

}  // namespace qtest
