// The one-byte H.264 NAL header check on arbitrary bytes: the result is the type or -1, the
// header fields always hold what the first byte codes, and the verdict agrees with an
// independent statement of the rules of ITU-T H.264 7.4.1.
#include <cstdint>

#include "syntax/h264_stream.h"
#include "fuzz_check.h"

namespace {
bool acceptable(int forbidden, int refIdc, int type) {
  if (forbidden || type == 0 || type > 20 || (type >= 16 && type <= 18)) return false;
  if (refIdc == 0 && type == 5) return false;
  const bool neverReference = type == 6 || (type >= 9 && type <= 12);
  return !(refIdc != 0 && neverReference);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  h264_stream_t* h = h264_new();
  const int result = peek_nal_unit(h, data, static_cast<int>(size));
  const int byte = size > 0 ? data[0] : 0;
  check(h->nal->forbidden_zero_bit == (byte >> 7));
  check(h->nal->nal_ref_idc == ((byte >> 5) & 3));
  check(h->nal->nal_unit_type == (byte & 31));
  const bool ok = acceptable(byte >> 7, (byte >> 5) & 3, byte & 31);
  check(result == (ok ? (byte & 31) : -1));
  h264_free(h);
  return 0;
}
