// Scenarist SCC reader.
#include "streamutil/scc.h"

#include <string>
#include <string_view>

#include "platform/tcxlat.h"

namespace {

constexpr std::string_view kHeader = "Scenarist_SCC V1.0";

bool oddParity(uint8_t byte) { return __builtin_popcount(byte) % 2 == 1; }

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\r')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
  return s;
}

// Splits off the next blank-separated token.
std::string_view nextToken(std::string_view& rest) {
  rest = trim(rest);
  size_t end = 0;
  while (end < rest.size() && rest[end] != ' ' && rest[end] != '\t') ++end;
  std::string_view token = rest.substr(0, end);
  rest.remove_prefix(end);
  return token;
}

bool parseWord(std::string_view word, uint8_t out[2]) {
  if (word.size() != 4) return false;
  int v[4];
  for (int i = 0; i < 4; ++i)
    if ((v[i] = hexDigit(word[i])) < 0) return false;
  out[0] = static_cast<uint8_t>(v[0] << 4 | v[1]);
  out[1] = static_cast<uint8_t>(v[2] << 4 | v[3]);
  return oddParity(out[0]) && oddParity(out[1]);
}

}  // namespace

extern "C" int klxutilReadScc(const char* text, size_t length, uint32_t tcType, SCC_CAPTION* pairs,
                              uint32_t capacity, uint32_t* count, uint32_t* errorLine) {
  if (count) *count = 0;
  if (errorLine) *errorLine = 0;
  if (!text || !count) return -1;
  std::string_view all(text, length);
  if (all.substr(0, 3) == "\xEF\xBB\xBF") all.remove_prefix(3);  // UTF-8 byte order mark
  uint32_t lineNumber = 0, total = 0;
  uint64_t nextFree = 0;  // first frame not yet taken by an earlier line
  bool sawHeader = false;
  auto fail = [&]() {
    if (errorLine) *errorLine = lineNumber;
    *count = 0;
    return -1;
  };
  while (!all.empty()) {
    const size_t eol = all.find('\n');
    std::string_view line = trim(all.substr(0, eol));
    all.remove_prefix(eol == std::string_view::npos ? all.size() : eol + 1);
    ++lineNumber;
    if (!sawHeader) {
      if (line != kHeader) return fail();
      sawHeader = true;
      continue;
    }
    if (line.empty()) continue;
    std::string_view rest = line;
    const std::string timecode(nextToken(rest));
    uint32_t frame = 0;
    if (tc2Frame(timecode.c_str(), tcType | TCF_TEXT, &frame) != 0) return fail();
    uint64_t at = frame < nextFree ? nextFree : frame;
    if (trim(rest).empty()) return fail();  // a timecode without data
    while (!trim(rest).empty()) {
      uint8_t data[2];
      if (!parseWord(nextToken(rest), data)) return fail();
      if (at > 0xFFFFFFFFull) return fail();
      if (pairs && total < capacity) pairs[total] = SCC_CAPTION{static_cast<uint32_t>(at), {data[0], data[1]}};
      ++total;
      ++at;
    }
    nextFree = at;
  }
  if (!sawHeader) return fail();
  *count = total;
  return total <= capacity ? 0 : -2;
}
