// H.264 SPS reading on arbitrary bytes. What reads writes, and the written unit reads back with
// the same elements (the scaling lists converted to the deltas the writer takes first), when the
// reader's escape removal sees the bytes as written.
#include <cstdint>
#include <vector>

#include "streamutil/avc_params.h"
#include "fuzz_check.h"
#include "fuzz_params.h"

namespace {
void scaleToDeltas(AVC_SCALING_MATRIX& m) {
  for (int i = 0; i < 6; ++i) klxutilScalingListToDeltas(m.ScalingList4x4[i], 16, m.ScalingList4x4[i]);
  for (int i = 0; i < 6; ++i) klxutilScalingListToDeltas(m.ScalingList8x8[i], 64, m.ScalingList8x8[i]);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0 || size > 4096) return 0;
  zr_bitstream in = readerOver(data, size);
  SPS_DECODED sps{};
  const uint32_t read = klxutilRead_SPS(&in, &sps);
  if (read == 0) return 0;
  const Listing before = listOf(sps, klxutilList_SPS);
  if (before.longCode || before.pastEnd) return 0;
  scaleToDeltas(sps.seq_scaling);
  std::vector<uint8_t> out(2 * size + 64);
  zr_bitstream w{out.data(), static_cast<int64_t>(out.size()), out.size() * 8, 0};
  const uint32_t written = klxutilWrite_SPS(&w, &sps);
  check(written > 0 && written <= out.size());
  if (!avcReaderSeesRbsp(out.data(), written, false)) return 0;
  zr_bitstream again = readerOver(out.data(), written);
  SPS_DECODED back{};
  check(klxutilRead_SPS(&again, &back) > 0);
  check(listOf(back, klxutilList_SPS) == before);
  return 0;
}
