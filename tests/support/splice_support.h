// Spliced elementary streams for the stamp and record tests: pieces made by ffmpeg at test time (x264/x265
// from testsrc2, cached by name) joined byte for byte, as a concatenation of files would be.
#pragma once
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace splice {

// A piece from "-f lavfi -i testsrc2=" + `source` (its options, then the encoder's arguments and
// the output format, e.g. "rate=25:size=160x90 -frames:v 9 -c:v libx264 -f h264").
inline std::vector<uint8_t> piece(const std::string& name, const std::string& source) {
  return qtest::readBytes(qtest::encodedStream(name, "-f lavfi -i testsrc2=" + source));
}

inline std::vector<uint8_t> joined(std::initializer_list<std::vector<uint8_t>> pieces) {
  std::vector<uint8_t> all;
  for (const auto& bytes : pieces) all.insert(all.end(), bytes.begin(), bytes.end());
  return all;
}

// The units of a start-code stream, each with its start code.
inline std::vector<std::vector<uint8_t>> unitsOf(const std::vector<uint8_t>& s) {
  std::vector<size_t> starts;
  for (size_t i = 0; i + 3 <= s.size(); ++i)
    if (s[i] == 0 && s[i + 1] == 0 && s[i + 2] == 1) starts.push_back(i > 0 && s[i - 1] == 0 ? i - 1 : i), i += 2;
  std::vector<std::vector<uint8_t>> units;
  for (size_t k = 0; k < starts.size(); ++k)
    units.emplace_back(s.begin() + long(starts[k]), k + 1 < starts.size() ? s.begin() + long(starts[k + 1]) : s.end());
  return units;
}

// An H.264 SPS or PPS (the unit with its start code).
inline bool isParameterSet(const std::vector<uint8_t>& unit) {
  const uint8_t header = unit[unit[2] == 1 ? 3 : 4];
  return (header & 0x1F) == 7 || (header & 0x1F) == 8;
}

}  // namespace splice
