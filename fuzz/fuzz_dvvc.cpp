// dvvC records on arbitrary bytes, positions and lengths: the reader either refuses without
// moving, or reads 24 bytes that the writer puts back bit for bit.
#include <cstdint>
#include <cstring>
#include <vector>

#include "streamutil/hevc_config_record.h"
#include "fuzz_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const uint64_t first = data[0];
  const uint64_t shortBy = data[1];
  const bool sizeGiven = data[2] & 1;
  std::vector<uint8_t> bytes(data + 3, data + size);
  const uint64_t available = bytes.size() * 8;
  const uint64_t length = available > shortBy ? available - shortBy : 0;
  zr_bitstream in{bytes.data(), sizeGiven ? static_cast<int64_t>(bytes.size()) : 0, length, first};
  DOVI_DECODER_CONFIGURATION_RECORD r;
  std::memset(&r, 0x5A, sizeof r);
  const uint32_t rc = klxutilRead_DVVC_CR(&in, &r);
  if (rc == 0xFFFFFFFFu) {
    check(in.position == first);
    check(first + 192 > length);
    return 0;
  }
  check(rc == 24);
  check(in.position == first + 192 && in.position <= length);

  std::vector<uint8_t> again(bytes.size() + 8, 0);
  zr_bitstream out{again.data(), static_cast<int64_t>(again.size()), again.size() * 8, first};
  check(klxutilWrite_DVVC_CR(&out, &r) == (first + 192) / 8);
  for (uint64_t p = first; p < first + 192; ++p)
    check(((bytes[p / 8] >> (7 - p % 8)) & 1u) == ((again[p / 8] >> (7 - p % 8)) & 1u));
  return 0;
}
