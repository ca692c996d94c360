// AudioSpecificConfig and ADTS headers on arbitrary bits: reading never touches a byte outside
// the buffer, consumes exactly the bits the layout names, and what was read from real data
// writes back to the same bits.
#include <cstdint>
#include <vector>

#include "streamutil/aac.h"
#include "fuzz_check.h"

namespace {

// The `bits` bits of `bytes` from bit `first`, written again at bit 0 of a fresh buffer by `write`.
template <typename Record, typename Write>
void checkRewrite(const std::vector<uint8_t>& bytes, uint64_t first, uint64_t bits, const Record& record,
                  Write write) {
  std::vector<uint8_t> again(bytes.size() + 16, 0);
  zr_bitstream out{again.data(), static_cast<int64_t>(again.size()), again.size() * 8, first};
  write(&out, &record);
  check(out.position == first + bits);
  for (uint64_t p = first; p < first + bits; ++p) {
    uint32_t want = (bytes[p / 8] >> (7 - p % 8)) & 1u;
    uint32_t got = (again[p / 8] >> (7 - p % 8)) & 1u;
    check(want == got);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const bool adts = data[0] & 1;
  const uint64_t first = (data[0] >> 1) & 7;
  std::vector<uint8_t> bytes(data + 2, data + size);
  const uint64_t available = bytes.size() * 8;
  // The valid length may stop short of the buffer; the reader's one-bit-past rule must still
  // stay inside it (size is always given here).
  const uint64_t length = available > data[1] ? available - data[1] : 0;
  zr_bitstream in{bytes.data(), static_cast<int64_t>(bytes.size()), length, first};
  if (adts) {
    ADTS_HEADER h{};
    check(klxutilReadADTS(&in, &h) == 0);
    const uint64_t bits = h.protection_absent == 1 ? 72 : 56;
    check(in.position == first + bits);
    if (first + bits < length) checkRewrite(bytes, first, bits, h, klxutilWriteADTS);
  } else {
    AAC_AUDIO_CONFIG c{};
    check(klxutilReadAAC(&in, &c) == 0);
    const uint64_t bits = 5 + 4 + (c.samplingFrequencyIndex == 15 ? 24 : 0) + 4 + 3;
    check(in.position == first + bits);
    if (c.samplingFrequencyIndex != 15) check(c.samplingFrequency == klxutilAACFrequency(c.samplingFrequencyIndex));
    if (first + bits < length) checkRewrite(bytes, first, bits, c, klxutilWriteAAC);
  }
  return 0;
}
