// Scratch files for the harnesses whose parsers read from a path (store, project, metadata):
// one private directory per process, whole-file reads for comparing bytes, and a log sink that
// keeps the library's messages out of the fuzzer's output.
#pragma once
#include <stdlib.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

inline const std::string& scratchDir() {
  static const std::string dir = [] {
    char pattern[] = "/tmp/quorvane-fuzz-XXXXXX";
    if (!mkdtemp(pattern)) std::abort();
    return std::string(pattern);
  }();
  return dir;
}

inline std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void quietLog(void*, int, uint32_t, uint32_t, uint32_t, const char*) {}
