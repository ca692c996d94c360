// base64_decode on arbitrary text and output sizes: it never writes past the output size, and
// whatever it accepts encodes and decodes again to the same bytes.
#include <cstdint>
#include <cstring>
#include <vector>

#include "platform/zrtext.h"
#include "fuzz_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const size_t outSize = data[0];
  const char* text = reinterpret_cast<const char*>(data + 1);
  const size_t textLen = size - 1;
  // Exactly outSize bytes, so ASan sees any write past the end.
  std::vector<uint8_t> out(outSize);
  size_t outLen = 12345;
  int rc = base64_decode(text, textLen, outSize ? out.data() : nullptr, outSize, &outLen);
  check(rc == 0 || rc == -1);
  if (rc != 0) return 0;
  check(outLen <= outSize);
  check(outLen <= textLen * 3 / 4);

  std::vector<char> encoded(base64_encoded_length(outLen) + 1);
  const size_t n = base64_encode(out.data(), outLen, encoded.data(), encoded.size());
  check(n == base64_encoded_length(outLen));
  check(encoded[n] == '\0');
  std::vector<uint8_t> again(outLen);
  size_t againLen = 0;
  check(base64_decode(encoded.data(), n, outLen ? again.data() : nullptr, outLen, &againLen) == 0);
  check(againLen == outLen);
  check(outLen == 0 || std::memcmp(again.data(), out.data(), outLen) == 0);
  return 0;
}
