// Colour description rewrites of H.264/HEVC SPS units and of avcC/hvcC records on arbitrary
// bytes: the output never passes the capacity (the output buffer is exactly that size) and a
// result is always one of the documented codes.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "streamutil/colour.h"
#include "streamutil/nal_units.h"
#include "fuzz_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 6) return 0;
  KLX_COLOUR_DESCRIPTION colour{};
  colour.set = data[0] & 31;
  colour.colour_primaries = data[1];
  colour.transfer_characteristics = data[2];
  colour.matrix_coeffs = data[3];
  colour.video_full_range_flag = data[4] & 1;
  colour.chroma_sample_loc_type_top_field = (data[4] >> 1) % 6;
  colour.chroma_sample_loc_type_bottom_field = (data[4] >> 4) % 6;
  const uint32_t which = data[5] & 3;
  const std::vector<uint8_t> input(data + 6, data + size);
  const uint32_t capacity = uint32_t(input.size()) + (data[0] >> 5) * 8u;
  std::vector<uint8_t> out(capacity);
  uint32_t outSize = 0;
  int rc = 0;
  switch (which) {
    case 0:
      rc = klxutilRewriteColourHevcSps(input.data(), uint32_t(input.size()), &colour, out.data(), capacity, &outSize);
      break;
    case 1:
      rc = klxutilRewriteColourAvcSps(input.data(), uint32_t(input.size()), &colour, out.data(), capacity, &outSize);
      break;
    case 2:
      rc = klxutilRewriteColourHvcc(input.data(), uint32_t(input.size()), &colour, out.data(), capacity, &outSize);
      break;
    default:
      rc = klxutilRewriteColourAvcc(input.data(), uint32_t(input.size()), &colour, out.data(), capacity, &outSize);
      break;
  }
  check(rc == 0 || rc == -1 || rc == KLX_NAL_NO_ROOM);
  if (rc == 0) check(outSize <= capacity);
  return 0;
}
