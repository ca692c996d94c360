// Caption packet checks and construction (layout in captions.h).
#include <cstring>

#include "streamutil/captions.h"

namespace {
constexpr uint8_t kAncDid = 0x61;
constexpr uint8_t kAncSdid = 0x01;
constexpr uint8_t kCdpId0 = 0x96, kCdpId1 = 0x69;
constexpr uint8_t kCcDataId = 0x72;
constexpr uint8_t kCdpFooterId = 0x74;
constexpr uint8_t kCcDataPresent = 0x40;
constexpr uint8_t kCaptionServiceActive = 0x02;
constexpr uint8_t kReservedFlag = 0x01;
constexpr uint32_t kFooterBytes = 4;
constexpr uint32_t kMaxCcCount = 31;  // cc_count is five bits
}  // namespace

extern "C" int copy_zrccCheck608708(const uint8_t* packet, uint32_t length) {
  if (!packet || length < CC_PACKET_TRIPLETS) return -1;
  if (packet[CC_PACKET_DATA_COUNT] < CC_PACKET_COUNT_BIAS) return -1;
  // The CDP announces its own length; 0 means a host that does not fill it in.
  const uint32_t cdpLength = packet[CC_PACKET_CDP_LENGTH];
  if (cdpLength && CC_PACKET_CDP_START + cdpLength > length) return -1;
  return 0;
}

extern "C" uint32_t klxutilMakeCaptionPacket(uint8_t* out, uint32_t capacity, const uint8_t* triplets,
                                             uint32_t ccCount, uint32_t cdpFrameRate, uint16_t sequence) {
  if (!out || ccCount > kMaxCcCount || (ccCount && !triplets)) return 0;
  const uint32_t captionBytes = ccCount * 3;
  const uint32_t length = CC_PACKET_TRIPLETS + captionBytes + kFooterBytes;
  if (capacity < length) return 0;
  const uint32_t cdpStart = CC_PACKET_CDP_START;
  const uint32_t cdpLength = length - cdpStart;
  uint8_t* p = out;
  *p++ = 0, *p++ = 0, *p++ = 0, *p++ = 0;
  *p++ = kAncDid;
  *p++ = kAncSdid;
  *p++ = uint8_t(captionBytes + CC_PACKET_COUNT_BIAS);
  *p++ = kCdpId0;
  *p++ = kCdpId1;
  *p++ = uint8_t(cdpLength);
  *p++ = uint8_t((cdpFrameRate & 0xF) << 4 | 0xF);
  *p++ = kCcDataPresent | kCaptionServiceActive | kReservedFlag;
  *p++ = uint8_t(sequence >> 8);
  *p++ = uint8_t(sequence);
  *p++ = kCcDataId;
  *p++ = uint8_t(0xE0 | ccCount);
  if (captionBytes) std::memcpy(p, triplets, captionBytes);
  p += captionBytes;
  *p++ = kCdpFooterId;
  *p++ = uint8_t(sequence >> 8);
  *p++ = uint8_t(sequence);
  // packet_checksum: the CDP's bytes sum to zero modulo 256.
  uint8_t sum = 0;
  for (const uint8_t* q = out + cdpStart; q < p; ++q) sum = uint8_t(sum + *q);
  *p++ = uint8_t(0x100 - sum);
  return length;
}
