// Editing MPEG-2 access units in place (ISO/IEC 13818-2 6.2.2.6 group_of_pictures_header,
// 6.2.2.2.2 user_data; ATSC A/53 Part 4 6.2.3 cc_data).
#include "streamutil/mpeg2_edit.h"

#include <cstring>

#include "platform/tcxlat.h"
#include "streamutil/captions.h"
#include "streamutil/nal_walk.h"

namespace {

constexpr uint8_t kUserData = 0xB2;
constexpr uint8_t kGa94[] = {'G', 'A', '9', '4', 0x03};
bool isSlice(uint8_t code) { return code >= 0x01 && code <= 0xAF; }

// The timecode counting of a sequence header's rate, drop-frame when the group says so.
uint32_t countingOf(uint32_t frameRateCode, bool dropFrame) {
  switch (frameRateCode) {
    case 1: case 2: return TC_FILM;
    case 3: return TC_PAL;
    case 4: case 5: return dropFrame ? TC_DF2997 : TC_NDF30;
    case 6: return TC_50;
    case 7: case 8: return dropFrame ? TC_DF5994 : TC_60;
    default: return 0;
  }
}

// Offset of the first slice start code, or `size` when there is none.
uint32_t firstSlice(const uint8_t* d, uint32_t size) {
  for (uint32_t at = nalwalk::nextStartCode(d, size, 0); at + 3 < size; at = nalwalk::nextStartCode(d, size, at + 3))
    if (isSlice(d[at + 3])) return at;
  return size;
}

void shrink(DFRAME* f, uint32_t at, uint32_t length) {
  std::memmove(f->pData + at, f->pData + at + length, f->nDataSize - at - length);
  f->nDataSize -= length;
  const uint32_t both = DFRAME_TWO_PARTS | DFRAME_SECOND_PART_VALID;
  if ((f->nFlags & both) == both && f->nSecondPartOffset > at)
    f->nSecondPartOffset -= f->nSecondPartOffset >= at + length ? length : f->nSecondPartOffset - at;
}

}  // namespace

extern "C" {

int klxutilMpeg2PictureTimeCode(const KLX_TIMECODE* gop, uint32_t frameRateCode, uint32_t temporalReference,
                                KLX_TIMECODE* out) {
  if (!gop || !out) return -1;
  const uint32_t type = countingOf(frameRateCode, gop->dropFrame != 0);
  if (!type) return -1;
  const uint8_t digits[4] = {gop->hours, gop->minutes, gop->seconds, gop->frames};
  uint32_t start = 0;
  uint8_t shown[4];
  if (tc2Frame(reinterpret_cast<const char*>(digits), type | TCF_DIGITS, &start) != 0 ||
      tc2String(start + temporalReference, type | TCF_DIGITS, shown, sizeof shown) != 0)
    return -1;
  *out = *gop;
  out->hours = shown[0], out->minutes = shown[1], out->seconds = shown[2], out->frames = shown[3];
  return 0;
}

int klxutilAddMpeg2TimeCode(DFRAME* frame, uint32_t tcType) {
  if (!frame || !frame->pData || frame->nDataSize > frame->nBufferSize) return -1;
  uint8_t digits[4];
  if (tc2String(klxFrameTimecode(frame), (tcType & TCF_TYPE_MASK) | TCF_DIGITS, digits, sizeof digits) != 0) return -1;
  const bool drop = (tcType & TCF_TYPE_MASK) == TC_DF2997 || (tcType & TCF_TYPE_MASK) == TC_DF5994;
  const KLX_TIMECODE tc{digits[0], digits[1], digits[2], digits[3], uint8_t(drop), uint8_t(drop ? 4 : 0), 0, 1};
  return klxutilSetMpeg2TimeCode(frame->pData, frame->nDataSize, &tc);
}

int klxutilRemoveMpeg2Captions(DFRAME* frame) {
  if (!frame || !frame->pData || frame->nDataSize > frame->nBufferSize) return -1;
  int removed = 0;
  const uint8_t* d = frame->pData;
  for (uint32_t at = nalwalk::nextStartCode(d, frame->nDataSize, 0); at + 3 < frame->nDataSize;) {
    const uint32_t size = frame->nDataSize;
    if (isSlice(d[at + 3])) break;
    const uint32_t next = nalwalk::nextStartCode(d, size, at + 4);
    const bool captions = d[at + 3] == kUserData && next - (at + 4) >= sizeof kGa94 &&
                          std::memcmp(d + at + 4, kGa94, sizeof kGa94) == 0;
    if (!captions) {
      at = next;
      continue;
    }
    shrink(frame, at, next - at);  // the next start code now begins at `at`
    ++removed;
  }
  return removed;
}

int klxutilInsertMpeg2Captions(DFRAME* frame, const uint8_t* packet, uint32_t packetLength) {
  if (!frame || !frame->pData || frame->nDataSize > frame->nBufferSize || !packet) return -1;
  if (copy_zrccCheck608708(packet, packetLength) != 0) return -1;
  uint32_t count = (packet[CC_PACKET_DATA_COUNT] - CC_PACKET_COUNT_BIAS) / 3;
  if (count > 31) count = 31;
  if (CC_PACKET_TRIPLETS + 3 * count > packetLength) count = (packetLength - CC_PACKET_TRIPLETS) / 3;
  const uint32_t at = firstSlice(frame->pData, frame->nDataSize);
  if (at == frame->nDataSize) return -1;
  // 00 00 01 B2, "GA94" 03, flags and cc_count, em_data, triplets, marker_bits.
  const uint32_t length = 4 + sizeof kGa94 + 2 + 3 * count + 1;
  if (uint64_t(frame->nDataSize) + length > frame->nBufferSize) return KLX_CC_NO_ROOM;
  uint8_t* p = frame->pData + at;
  std::memmove(p + length, p, frame->nDataSize - at);
  const uint8_t head[] = {0, 0, 1, kUserData};
  std::memcpy(p, head, sizeof head);
  std::memcpy(p + 4, kGa94, sizeof kGa94);
  p += 4 + sizeof kGa94;
  *p++ = uint8_t(0xC0 | count);  // reserved '1', process_cc_data_flag, zero_bit, cc_count
  *p++ = 0xFF;                   // em_data
  std::memcpy(p, packet + CC_PACKET_TRIPLETS, 3 * count);
  p[3 * count] = 0xFF;           // marker_bits
  frame->nDataSize += length;
  const uint32_t both = DFRAME_TWO_PARTS | DFRAME_SECOND_PART_VALID;
  if ((frame->nFlags & both) == both && frame->nSecondPartOffset >= at) frame->nSecondPartOffset += length;
  return 0;
}
}
