// H.264 PPS reading on arbitrary bytes. What reads writes, and the written unit reads back with
// the same elements, unless the reader's escape removal (0C taken as an escape, kept) sees other
// bytes than were written.
#include <cstdint>
#include <vector>

#include "streamutil/avc_params.h"
#include "fuzz_check.h"
#include "fuzz_params.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0 || size > 4096) return 0;
  zr_bitstream in = readerOver(data, size);
  PPS_DECODED pps{};
  const uint32_t read = klxutilRead_PPS(&in, &pps);
  if (read == 0) return 0;
  const Listing before = listOf(pps, klxutilList_PPS);
  if (before.longCode || before.pastEnd) return 0;
  for (int i = 0; i < 6; ++i) klxutilScalingListToDeltas(pps.pic_scaling.ScalingList4x4[i], 16, pps.pic_scaling.ScalingList4x4[i]);
  for (int i = 0; i < 6; ++i) klxutilScalingListToDeltas(pps.pic_scaling.ScalingList8x8[i], 64, pps.pic_scaling.ScalingList8x8[i]);
  std::vector<uint8_t> out(2 * size + 64);
  zr_bitstream w{out.data(), static_cast<int64_t>(out.size()), out.size() * 8, 0};
  const uint32_t written = klxutilWrite_PPS(&w, &pps);
  check(written > 0 && written <= out.size());
  if (!avcReaderSeesRbsp(out.data(), written, true)) return 0;
  zr_bitstream again = readerOver(out.data(), written);
  PPS_DECODED back{};
  check(klxutilRead_PPS(&again, &back) > 0);
  check(listOf(back, klxutilList_PPS) == before);
  return 0;
}
