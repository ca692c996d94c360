// CEA-608/708 cc_data into H.264 frames as a registered user-data SEI (ATSC A/53 Part 4,
// ITU-T H.264 D.1.6). The unit is built byte by byte; its bytes never need emulation
// prevention (no two zero bytes in a row precede a byte below 4 outside the caption data, and
// cc_data bytes carry marker bits).
#include <algorithm>
#include <cstring>

#include "platform/zrlog.h"
#include "streamutil/captions.h"

namespace {

constexpr uint32_t kMaxCaptionBytes = 30;   // at most 10 triplets per frame
constexpr uint32_t kRoomSlack = 285;        // room demanded beyond the caption bytes
constexpr uint32_t kScanLimit = 255;        // the insertion walk looks no further
constexpr uint32_t kBehindLeadingAud = 6;   // 4-byte start code or length, 09, primary_pic_type
constexpr uint32_t kPayloadSizeAt = 6;      // 00 00 00 01 06 04 [size]
constexpr uint8_t kSps = 0x67, kPps = 0x68, kAud = 0x09;

// Caption bytes to copy: the packet's count, at most 30, cut to what the packet holds, in
// whole triplets.
uint32_t avcCcCount(const uint8_t* packet, uint32_t length) {
  uint32_t n = std::min<uint32_t>(packet[CC_PACKET_DATA_COUNT] - CC_PACKET_COUNT_BIAS, kMaxCaptionBytes);
  if (length < n + CC_PACKET_TRIPLETS) n = std::max(length, CC_PACKET_TRIPLETS) - CC_PACKET_TRIPLETS;
  return n / 3;
}

// Builds the SEI unit (start-code form) into out; returns its length (19 + 3 × ccCount).
uint32_t buildAvcCaptionSei(uint8_t* out, const uint8_t* triplets, uint32_t ccCount) {
  static constexpr uint8_t kHead[] = {0, 0, 0, 1, 0x06, 0x04, 0x00, 0xB5, 0x00, 0x31, 'G', 'A', '9', '4', 0x03};
  uint8_t* p = out;
  std::memcpy(p, kHead, sizeof kHead);
  p += sizeof kHead;
  *p++ = static_cast<uint8_t>(0xC0 | ccCount);  // process_em_data_flag, process_cc_data_flag, cc_count
  *p++ = 0xFF;                                  // em_data
  std::memcpy(p, triplets, ccCount * 3);
  p += ccCount * 3;
  *p++ = 0xFF;  // marker_bits
  *p++ = 0x80;  // rbsp_trailing_bits
  return static_cast<uint32_t>(p - out);
}

uint32_t be32(const uint8_t* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3]; }

// Length-prefixed frame: behind the unit that completes SPS + PPS, else in front of the first
// unit that is neither a parameter set nor a delimiter.
uint32_t insertionPointLengthPrefixed(const uint8_t* d, uint32_t size) {
  bool sps = false, pps = false;
  uint64_t pos = 0;
  while (pos + 4 < size) {
    if (pos > kScanLimit) return kBehindLeadingAud;
    const uint8_t h = d[pos + 4];
    if (h == kSps)
      sps = true;
    else if (h == kPps)
      pps = true;
    else if (h != kAud)
      return static_cast<uint32_t>(pos);
    pos += 4 + uint64_t(be32(d + pos));
    if (sps && pps) return static_cast<uint32_t>(std::min<uint64_t>(pos, size));
  }
  return pos > kScanLimit ? kBehindLeadingAud : static_cast<uint32_t>(std::min<uint64_t>(pos, size));
}

// Start-code frame: at the first start code met once SPS and PPS have both been seen.
uint32_t insertionPointStartCodes(const uint8_t* d, uint32_t size) {
  bool sps = false, pps = false;
  for (uint32_t i = 0; i + 3 < size;) {
    if (i > kScanLimit) return kBehindLeadingAud;
    uint32_t codeLength = 0;
    if (!d[i] && !d[i + 1] && !d[i + 2] && d[i + 3] == 1)
      codeLength = 4;
    else if (!d[i] && !d[i + 1] && d[i + 2] == 1)
      codeLength = 3;
    if (!codeLength) {
      ++i;
      continue;
    }
    if (sps && pps) return i;
    const uint8_t h = d[i + codeLength];  // i + 3 < size, so this byte exists for a 3-byte code
    if (i + codeLength < size) {
      sps = sps || h == kSps;
      pps = pps || h == kPps;
    }
    i += codeLength;
  }
  // No unit followed the parameter sets within the frame: behind a leading delimiter when the
  // frame opens with one, else in front of everything.
  const bool leadingAud = size > kBehindLeadingAud && !d[0] && !d[1] && !d[2] && d[3] == 1 && d[4] == kAud;
  return leadingAud ? kBehindLeadingAud : 0;
}

}  // namespace

extern "C" int klxutilAddAVCCaptions(DFRAME* frame, const uint8_t* packet, uint32_t packetLength,
                                     uint32_t lengthPrefixed) {
  if (!frame || !frame->pData) return -1;
  if (packetLength == 0) return 0;
  if (!packet || copy_zrccCheck608708(packet, packetLength) != 0) return -1;
  const uint32_t ccCount = avcCcCount(packet, packetLength);
  if (uint64_t(frame->nBufferSize) < uint64_t(frame->nDataSize) + ccCount * 3 + kRoomSlack) {
    ErrOut("No Allocation for CC Data");
    return KLX_CC_NO_ROOM;
  }
  uint8_t unit[64];
  const uint32_t length = buildAvcCaptionSei(unit, packet + CC_PACKET_TRIPLETS, ccCount);
  if (lengthPrefixed) {
    unit[0] = unit[1] = unit[2] = 0;
    unit[3] = static_cast<uint8_t>(length - 4);
  }
  uint8_t* d = frame->pData;
  const uint32_t size = frame->nDataSize;
  uint32_t point = lengthPrefixed ? insertionPointLengthPrefixed(d, size) : insertionPointStartCodes(d, size);
  point = std::min(point, size);
  std::memmove(d + point + length, d + point, size - point);
  std::memcpy(d + point, unit, length);
  d[point + kPayloadSizeAt] = static_cast<uint8_t>(length - 8);
  frame->nDataSize += length;
  return 0;
}
