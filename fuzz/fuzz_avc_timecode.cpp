// The H.264 timecode writer (pic_timing clock timestamps, the SPS rewrite for pic_struct) on
// arbitrary frames and SPSs: it never writes past the frame's capacity (the frame sits in a
// buffer of exactly that size), and a refusal leaves the frame's bytes as they were unless the
// frame carries an SPS, which may already have been rewritten. (The room behind the frame is
// the writer's to use: an undone insertion leaves its bytes changed.) Frames holding both fields of a pair
// take the two-access-unit path with its undo.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "platform/tcxlat.h"
#include "streamutil/avc_params.h"
#include "streamutil/sei.h"
#include "fuzz_check.h"

namespace {

constexpr uint32_t kTypes[] = {TC_FILM, TC_NDF30, TC_DF2997, TC_PAL, TC_50, TC_DF5994, TC_60, TC_2398};

// Whether any unit of the frame is an SPS (nal_unit_type 7), walked independently of the library.
bool carriesSps(const std::vector<uint8_t>& f, bool lengthPrefixed) {
  if (lengthPrefixed) {
    for (size_t at = 0; at + 5 <= f.size();) {
      if ((f[at + 4] & 0x1F) == 7) return true;
      at += 4 + (size_t(f[at]) << 24 | size_t(f[at + 1]) << 16 | size_t(f[at + 2]) << 8 | f[at + 3]);
    }
    return false;
  }
  for (size_t i = 0; i + 3 < f.size(); ++i)
    if (f[i] == 0 && f[i + 1] == 0 && f[i + 2] == 1 && (f[i + 3] & 0x1F) == 7) return true;
  return false;
}

}  // namespace

// Input: spare room / 4, selector (type, framing, flags), SPS length, the SPS unit (from its
// header byte), then the frame.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const uint32_t spare = data[0] * 4u;
  const uint8_t selector = data[1];
  const size_t spsLength = std::min<size_t>(data[2], size - 3);
  static SPS_DECODED sps;
  sps = SPS_DECODED{};
  zr_bitstream s{const_cast<uint8_t*>(data + 3), int64_t(spsLength), uint64_t(spsLength) * 8, 0};
  if (spsLength && klxutilRead_SPS(&s, &sps) == 0) sps = SPS_DECODED{};
  const std::vector<uint8_t> frame(data + 3 + spsLength, data + size);
  std::vector<uint8_t> buffer(frame);
  buffer.resize(frame.size() + spare);
  DFRAME f;
  klxutilInitFrame(&f, buffer.data(), uint32_t(frame.size()), uint32_t(buffer.size()));
  f.nFrame = selector * 7919u;
  const bool lengthPrefixed = selector & 8;
  const int rc = klxutilAddAVCTimeCode(&f, kTypes[selector & 7], &sps, lengthPrefixed, selector >> 4 & 1);
  check(rc == 0 || rc == -1 || rc == KLX_SEI_NO_ROOM);
  check(f.nDataSize <= buffer.size());
  if (rc != 0 && !carriesSps(frame, lengthPrefixed))
    check(f.nDataSize == frame.size() && std::equal(frame.begin(), frame.end(), buffer.begin()));
  return 0;
}
