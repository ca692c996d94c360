// HEVC SPS reading on arbitrary bytes (a NAL unit, two-byte header first), written back and read
// again (see hevcRoundTrip).
#include <cstdint>

#include "fuzz_check.h"
#include "fuzz_params.h"

namespace {
void normalise(HEVC_SPS_DECODED&) {}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  hevcRoundTrip(data, size,
                HevcCalls<HEVC_SPS_DECODED>{klxutilRead_HEVC_SPS, klxutilWriteChecked_HEVC_SPS, klxutilList_HEVC_SPS, normalise});
  return 0;
}
