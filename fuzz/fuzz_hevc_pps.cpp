// HEVC PPS reading on arbitrary bytes (a NAL unit, two-byte header first), written back and read
// again (see hevcRoundTrip).
#include <cstdint>

#include "fuzz_check.h"
#include "fuzz_params.h"

namespace {
void normalise(HEVC_PPS_DECODED&) {}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  hevcRoundTrip(data, size,
                HevcCalls<HEVC_PPS_DECODED>{klxutilRead_HEVC_PPS, klxutilWriteChecked_HEVC_PPS, klxutilList_HEVC_PPS, normalise});
  return 0;
}
