// Captions into H.264 and HEVC frames at a conforming place: in front of the first picture,
// behind any delimiter, parameter sets and buffering period SEI (ITU-T H.264 7.4.1.2.3,
// H.265 7.4.2.4.4), in either framing, checked against the frame's capacity.
#include <cstring>

#include "streamutil/captions.h"
#include "streamutil/sei_rewrite.h"

namespace {

constexpr uint32_t kTimeCodeSection = 5;
constexpr uint8_t kTimeCodePresent = 0x80;
constexpr uint32_t kMaxCcCount = 31;

// Caption triplets of a packet (layout in captions.h): where they start and how many fit.
bool packetTriplets(const uint8_t* packet, uint32_t length, uint32_t& at, uint32_t& count) {
  if (copy_zrccCheck608708(packet, length) != 0) return false;
  at = CC_PACKET_TRIPLETS + ((packet[11] & kTimeCodePresent) ? kTimeCodeSection : 0);
  if (at > length) return false;
  count = packet[at - 1] & 0x1F;
  if (uint64_t(count) * 3 + at > length) count = (length - at) / 3;
  return count <= kMaxCcCount;
}

}  // namespace

extern "C" int klxutilAddCaptionsSEI(DFRAME* frame, uint32_t codec, const uint8_t* packet, uint32_t packetLength,
                                     uint32_t lengthPrefixed) {
  if (!frame || !frame->pData || !packet || frame->nDataSize > frame->nBufferSize) return -1;
  if (codec != KLX_CODEC_H264 && codec != KLX_CODEC_HEVC) return -1;
  uint32_t at = 0, count = 0;
  if (!packetTriplets(packet, packetLength, at, count)) return -1;
  // RBSP of the unit behind its start code: header, registered user data with cc_data.
  uint8_t rbsp[160];
  uint32_t n = 0;
  if (codec == KLX_CODEC_HEVC) {
    rbsp[n++] = 0x4E, rbsp[n++] = 0x01;  // prefix SEI, layer 0, temporal id 0
  } else {
    rbsp[n++] = 0x06;
  }
  static constexpr uint8_t kHead[] = {0xB5, 0x00, 0x31, 'G', 'A', '9', '4', 0x03};
  const uint32_t payloadSize = sizeof kHead + 2 + count * 3 + 1;
  rbsp[n++] = 4;  // user_data_registered_itu_t_t35
  rbsp[n++] = static_cast<uint8_t>(payloadSize);
  std::memcpy(rbsp + n, kHead, sizeof kHead);
  n += sizeof kHead;
  rbsp[n++] = static_cast<uint8_t>(0xC0 | count);  // process_em_data_flag, process_cc_data_flag, cc_count
  rbsp[n++] = 0xFF;                                // em_data
  std::memcpy(rbsp + n, packet + at, count * 3);
  n += count * 3;
  rbsp[n++] = 0xFF;  // marker_bits
  rbsp[n++] = 0x80;  // rbsp_trailing_bits
  uint8_t unit[4 + 160 * 3 / 2 + 4] = {0, 0, 0, 1};
  const uint32_t hb = seirewrite::headerBytes(codec);
  std::memcpy(unit + 4, rbsp, hb);
  const uint32_t body = nalwalk::escape(rbsp + hb, n - hb, unit + 4 + hb, sizeof unit - 4 - hb);
  return klxutilInsertUnitBeforePicture(frame, codec, lengthPrefixed, unit, 4 + hb + body);
}
