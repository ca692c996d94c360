// tc2Frame on arbitrary text and format words: never crashes, and whatever it accepts is a count
// that tc2String writes back as text tc2Frame reads to the same count.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/tcxlat.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  uint32_t word;
  std::memcpy(&word, data, 4);
  const std::string text(reinterpret_cast<const char*>(data + 4), size - 4);
  if ((word & TCF_DIGITS) && text.size() < 4) return 0;  // digits words read exactly four bytes
  uint32_t frames = 0;
  if (tc2Frame(text.c_str(), word, &frames) != 0) return 0;
  if (word & TCF_DIGITS) return 0;  // the bytes were read as digits, not text
  const uint32_t full = (word & (TCF_TYPE_MASK | TCF_NO_WRAP)) | TCF_FULL_TEXT;
  char out[32];
  if (tc2String(frames, full, out, sizeof out) != 0) std::abort();
  uint32_t back = 0;
  if (tc2Frame(out, full, &back) != 0 || back != frames) std::abort();
  return 0;
}
