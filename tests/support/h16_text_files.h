// Text forms of the whole-file helpers, and a text repeated, for tests that build and compare
// files as strings (store files, projects, XML made deep or long on purpose).
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace qtest {

// The whole file as a string; "" when it cannot be read.
inline std::string readText(const std::string& path) {
  const std::vector<uint8_t> bytes = readBytes(path);
  return std::string(bytes.begin(), bytes.end());
}

inline void writeText(const std::string& path, const std::string& text) {
  writeBytes(path, std::vector<uint8_t>(text.begin(), text.end()));
}

inline std::string repeatText(const std::string& unit, size_t times) {
  std::string out;
  out.reserve(unit.size() * times);
  for (size_t i = 0; i < times; ++i) out += unit;
  return out;
}

}  // namespace qtest
