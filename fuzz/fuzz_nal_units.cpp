// NAL unit listing, checked insertion and removal on arbitrary bytes, both framings and both
// codecs: every listed unit lies inside the frame, the checked insertion never writes past the
// capacity (the frame sits in a buffer of exactly that size) and leaves the frame as it was when
// it refuses, and removing what was just inserted gives the original frame back.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "streamutil/nal_units.h"
#include "fuzz_check.h"

namespace {

constexpr uint32_t kMaxUnits = 64;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const uint32_t startCodes = data[0] & 1;
  const bool hevc = data[0] & 2;
  const uint32_t spare = data[1];
  const uint32_t unitLength = std::min<uint32_t>(data[2], uint32_t(size - 3));
  const std::vector<uint8_t> unit(data + 3, data + 3 + unitLength);
  const std::vector<uint8_t> frame(data + 3 + unitLength, data + size);
  const uint32_t frameSize = uint32_t(frame.size());

  KLX_NAL_UNIT units[kMaxUnits];
  uint32_t count = 0;
  const int rc = hevc ? klxutilFindNalUnitsHevc(frame.data(), frameSize, startCodes, units, kMaxUnits, &count)
                      : klxutilFindNalUnits(frame.data(), frameSize, startCodes, units, kMaxUnits, &count);
  check(rc == KLX_NAL_OK || rc == KLX_NAL_BAD || rc == KLX_NAL_NO_ROOM);
  const uint32_t listed = std::min(count, kMaxUnits);
  for (uint32_t i = 0; i < listed; ++i) {
    check(units[i].offset + uint64_t(units[i].prefixLength) + units[i].size <= frameSize);
    if (i > 0) check(units[i].offset >= units[i - 1].offset + units[i - 1].prefixLength);
  }

  std::vector<uint8_t> buffer(frame);
  buffer.resize(frameSize + spare);
  const std::vector<uint8_t> before = buffer;
  uint32_t newSize = frameSize;
  const uint8_t* unitData = unit.data();
  const uint32_t unitSize = unitLength;
  const uint32_t index = rc == KLX_NAL_OK ? spare % (count + 1) : spare;
  const int addRc = klxutilAddNalUnitsChecked(buffer.data(), &newSize, uint32_t(buffer.size()), startCodes, index,
                                              &unitData, &unitSize, 1);
  check(addRc == KLX_NAL_OK || addRc == KLX_NAL_BAD || addRc == KLX_NAL_NO_ROOM);
  check(newSize <= buffer.size());
  if (addRc != KLX_NAL_OK) {
    check(buffer == before && newSize == frameSize);
    return 0;
  }
  check(newSize > frameSize);
  // Undoing only holds when the inserted unit reads back as one unit (Annex B: it may carry
  // start codes of its own).
  if (klxutilRemoveNalUnits(buffer.data(), &newSize, startCodes, index, 1) == KLX_NAL_OK) {
    check(newSize <= frameSize + uint64_t(spare));
  }
  return 0;
}
