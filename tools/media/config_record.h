// The parameter-set arrays of the decoder configuration records that MP4-style containers keep
// in the sample description: avcC (ISO/IEC 14496-15 5.3.3) and hvcC (8.3.3). Read to learn the
// length-field size and the parameter sets, rewritten when an editor replaces them.
#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

namespace media {

using Bytes = std::vector<uint8_t>;

struct ConfigRecord {
  int lengthSize = 4;       // bytes of each sample's unit length fields
  std::vector<Bytes> units;  // parameter sets and SEI of the record, NAL header first
};

// False when the record is cut short or is not version 1.
bool readAvcC(const uint8_t* data, size_t size, ConfigRecord& out);
bool readHvcC(const uint8_t* data, size_t size, ConfigRecord& out);

// The record `old` with its arrays replaced by `units` (avcC: SPS and PPS; hvcC: grouped by
// unit type). The header bytes are kept; avcC's profile and level are taken from the new SPS.
// Empty when `old` does not read.
Bytes rewriteAvcC(const Bytes& old, const std::vector<Bytes>& units);
Bytes rewriteHvcC(const Bytes& old, const std::vector<Bytes>& units);

}  // namespace media
