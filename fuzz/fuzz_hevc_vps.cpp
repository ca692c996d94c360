// HEVC VPS reading on arbitrary bytes (a NAL unit, two-byte header first), written back and read
// again (see hevcRoundTrip).
#include <cstdint>

#include "fuzz_check.h"
#include "fuzz_params.h"

namespace {
// The writer never writes a VPS extension and forces vps_num_hrd_parameters to 0.
void normalise(HEVC_VPS_DECODED& vps) {
  vps.vps_extension_flag = 0;
  vps.vps_num_hrd_parameters = 0;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  hevcRoundTrip(data, size,
                HevcCalls<HEVC_VPS_DECODED>{klxutilRead_HEVC_VPS, klxutilWriteChecked_HEVC_VPS, klxutilList_HEVC_VPS, normalise});
  return 0;
}
