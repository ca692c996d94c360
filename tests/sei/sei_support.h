// Helpers of the SEI and caption unit tests: the RBSP of a unit a writer made, and caption
// packets made by the library's packet writer.
#pragma once
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "streamutil/captions.h"
#include "syntax/nal_framing.h"

namespace stest {

using Bytes = std::vector<uint8_t>;

// RBSP of a written unit (a four-byte start code, then the NAL unit): emulation prevention taken
// out by the syntax layer, the header bytes kept in front.
inline Bytes rbspOf(const Bytes& unit) {
  int nalSize = int(unit.size() - 4), rbspSize = nalSize;
  Bytes rbsp(unit.size());
  EXPECT_GE(nal_to_rbsp(unit.data() + 4, &nalSize, rbsp.data(), &rbspSize), 0);
  rbsp.resize(size_t(rbspSize));
  rbsp.insert(rbsp.begin(), unit[4]);  // nal_to_rbsp starts behind the first header byte
  return rbsp;
}

// A caption packet (CDP at 29.97, sequence counter 7) carrying the triplets.
inline Bytes captionPacket(const Bytes& triplets) {
  Bytes packet(64);
  packet.resize(klxutilMakeCaptionPacket(packet.data(), uint32_t(packet.size()), triplets.data(), uint32_t(triplets.size() / 3),
                                         CDP_RATE_29_97, 7));
  return packet;
}

}  // namespace stest
