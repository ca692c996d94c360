// CEA-608/708 cc_data into MPEG-2 video frames as a "GA94" picture user-data block
// (ATSC A/53 Part 4, 6.2.3).
#include <cstring>

#include "platform/zrlog.h"
#include "streamutil/captions.h"

namespace {
constexpr uint32_t kRoomSlack = 285;
constexpr uint8_t kHead[] = {0, 0, 0, 1, 0xB2, 'G', 'A', '9', '4', 0x03};  // user_data_start_code, an extra 00 first
}  // namespace

extern "C" int klxutilAddMPEG2Captions(DFRAME* frame) {
  if (!frame || !frame->pData) return -1;
  const uint8_t* packet = frame->pCaption;
  const uint32_t packetLength = frame->nCaptionSize;
  if (copy_zrccCheck608708(packet, packetLength) != 0) return -1;
  const uint32_t captionBytes = packet[CC_PACKET_DATA_COUNT] - CC_PACKET_COUNT_BIAS;
  if (uint64_t(CC_PACKET_TRIPLETS) + captionBytes > packetLength) return -1;  // would copy past the packet
  if (uint64_t(frame->nBufferSize) < uint64_t(frame->nDataSize) + packetLength + kRoomSlack) {
    ErrOut("No Allocation for CC Data");
    return KLX_CC_NO_ROOM;
  }
  // Every caption byte the packet announces goes in, neither capped nor cut to whole triplets;
  // cc_count goes in bare, so process_cc_data_flag (its top bit) stays 0. Hosts rely on both.
  const uint32_t length = sizeof kHead + 2 + captionBytes + 1;
  uint8_t* d = frame->pData;
  std::memmove(d + length, d, frame->nDataSize);
  uint8_t* p = d;
  std::memcpy(p, kHead, sizeof kHead);
  p += sizeof kHead;
  *p++ = static_cast<uint8_t>(captionBytes / 3);
  *p++ = 0xFF;  // em_data
  std::memcpy(p, packet + CC_PACKET_TRIPLETS, captionBytes);
  p += captionBytes;
  *p = 0xFF;  // marker_bits
  frame->nDataSize += length;
  return 0;
}
