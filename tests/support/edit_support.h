// Helpers of the frame-editing and command tests: bytes put together, a frame record over a
// buffer, text files, and the command's one-line refusal.
#pragma once
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "platform/tcxlat.h"
#include "streamutil/dframe.h"
#include "streamutil/scc.h"
#include "support/test_support.h"

namespace qtest {

using Bytes = std::vector<uint8_t>;

inline Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

// A frame record holding the first `dataSize` bytes of `buffer`, the whole buffer its capacity.
inline DFRAME frameOver(Bytes& buffer, size_t dataSize) {
  DFRAME f;
  klxutilInitFrame(&f, buffer.data(), uint32_t(dataSize), uint32_t(buffer.size()));
  return f;
}

inline void writeText(const std::string& path, const std::string& text) { writeBytes(path, Bytes(text.begin(), text.end())); }
inline std::string readText(const std::string& path) {
  const Bytes bytes = readBytes(path);
  return std::string(bytes.begin(), bytes.end());
}

// A refusal of the command: stderr is the one line "quorvane <command>: ...".
inline void expectOneLineError(const CommandResult& r, const std::string& command) {
  EXPECT_EQ(r.err.rfind("quorvane " + command + ": ", 0), 0u) << r.err;
  EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << "one line: " << r.err;
}

// The byte pairs of an SCC text as "frame:byte,byte", read by the library's SCC reader with
// timecodes of the given type (a failure of the reader fails the test).
inline std::vector<std::string> sccPairs(const std::string& text, uint32_t timecodeType) {
  uint32_t count = 0, line = 0;
  std::vector<SCC_CAPTION> pairs(1024);
  EXPECT_EQ(klxutilReadScc(text.data(), text.size(), timecodeType, pairs.data(), uint32_t(pairs.size()), &count, &line), 0)
      << "line " << line << " of\n" << text;
  pairs.resize(count);
  std::vector<std::string> out;
  for (const auto& p : pairs) out.push_back(std::to_string(p.frame) + ":" + std::to_string(p.data[0]) + "," + std::to_string(p.data[1]));
  return out;
}

// Stamped GOP time_codes (`ours`, counted on from `start` as `type`) lie as far from the first one
// as FFmpeg's own time_codes of the input (`theirs`, counted as `theirType`) lie from theirs.
inline void expectGopTimecodesFollow(const std::vector<std::string>& ours, const std::vector<std::string>& theirs,
                                     const char* start, uint32_t type, uint32_t theirType) {
  ASSERT_FALSE(theirs.empty());
  ASSERT_EQ(ours.size(), theirs.size());
  uint32_t first = 0, theirFirst = 0, theirFrame = 0;
  ASSERT_EQ(tc2Frame(start, type | TCF_TEXT, &first), 0);
  ASSERT_EQ(tc2Frame(theirs.front().c_str(), theirType | TCF_TEXT, &theirFirst), 0);
  for (size_t gop = 0; gop < ours.size(); ++gop) {
    ASSERT_EQ(tc2Frame(theirs[gop].c_str(), theirType | TCF_TEXT, &theirFrame), 0);
    char want[32] = {};
    tc2String(first + (theirFrame - theirFirst), type | TCF_FULL_TEXT, want, sizeof want);
    EXPECT_EQ(ours[gop], want) << "GOP " << gop;
  }
}

}  // namespace qtest
