// CEA-608/708 cc_data into HEVC frames as a registered user-data prefix SEI (ATSC A/53 Part 4,
// ITU-T H.265 D.2.6 / H.274).
#include <cstring>

#include "platform/zrlog.h"
#include "streamutil/captions.h"
#include "streamutil/sei.h"
#include "syntax/nal_framing.h"

namespace {

constexpr uint32_t kSingleMessageBytes = 512;
constexpr uint32_t kPayloadSizeIndex = 7;
constexpr uint32_t kMaxUnitLength = 1024;
constexpr uint32_t kTimeCodeSectionBytes = 5;

zr_bitstream streamOver(uint8_t* buffer, uint32_t bytes) {
  return zr_bitstream{buffer, static_cast<int64_t>(bytes), uint64_t(bytes) * 8, 0};
}

struct CaptionData {
  uint32_t tripletsAt;
  uint32_t ccCount;
};

// Reads the CDP header of a caption packet (layout in captions.h) and trims cc_count to what
// the packet holds.
CaptionData readCaptionHeader(const uint8_t* packet, uint32_t length) {
  zr_bitstream r{const_cast<uint8_t*>(packet), static_cast<int64_t>(length), uint64_t(length) * 8, 0};
  SkipBits(&r, 32);              // host bytes
  SkipBits(&r, 16), SkipBits(&r, 8);  // DID, SDID, data count
  SkipBits(&r, 16), SkipBits(&r, 8);  // cdp_identifier, cdp_length
  SkipBits(&r, 4), SkipBits(&r, 4);   // cdp_frame_rate, reserved
  const uint32_t timeCodePresent = ReadBit(&r);
  ReadBit(&r);   // ccdata_present
  SkipBits(&r, 6);
  SkipBits(&r, 16);  // cdp_hdr_sequence_cntr
  if (timeCodePresent == 1) SkipBits(&r, kTimeCodeSectionBytes * 8);
  SkipBits(&r, 8);  // ccdata_id
  SkipBits(&r, 3);  // marker_bits
  CaptionData cc{static_cast<uint32_t>(r.position / 8 + 1), ReadBits(&r, 5)};
  const uint32_t header = cc.tripletsAt;
  if (uint64_t(cc.ccCount) * 3 + header > length) {
    const uint32_t fits = length > header ? (length - header) / 3 : 0;
    ErrOut("\nCC count is wrong %d actual %d", cc.ccCount, fits);
    cc.ccCount = fits;
  }
  return cc;
}

uint32_t writeCaptionSei(uint8_t* dst, const uint8_t* packet, uint32_t length) {
  if (length < 4 || length == 0xFFFFFFFFu) {
    ErrOut("No SEI CC data size is %d", length);
    return 0;
  }
  if (copy_zrccCheck608708(packet, length) != 0) return 0;
  const CaptionData cc = readCaptionHeader(packet, length);

  uint8_t work[kSingleMessageBytes] = {};
  zr_bitstream w = streamOver(work, sizeof work);
  WriteBits(&w, 32, 1);
  WriteBits(&w, 16, 0x4E01);  // prefix SEI, layer 0, nuh_temporal_id_plus1 1
  WriteBits(&w, 8, 4);        // user_data_registered_itu_t_t35
  WriteBits(&w, 8, 0);        // payloadSize, patched by CloseSEI
  WriteBits(&w, 8, 0xB5);
  WriteBits(&w, 16, 0x0031);
  WriteBits(&w, 32, 0x47413934);  // "GA94"
  WriteBits(&w, 8, 3);            // user_data_type_code: cc_data
  WriteBit(&w, 1);                // process_em_data_flag
  WriteBit(&w, 1);                // process_cc_data_flag
  WriteBit(&w, 0);                // additional_data_flag
  WriteBits(&w, 5, cc.ccCount);
  WriteBits(&w, 5, 31), WriteBits(&w, 1, 1), WriteBits(&w, 2, 3);  // em_data 0xFF
  for (uint32_t i = 0; i < cc.ccCount * 3; ++i) WriteBits(&w, 8, packet[cc.tripletsAt + i]);
  WriteBits(&w, 8, 0xFF);  // marker_bits
  zr_bitstream out = streamOver(dst, kSingleMessageBytes);
  CloseSEI(&w, &out, kPayloadSizeIndex, false);
  return static_cast<uint32_t>(out.position / 8);
}

bool isSliceOrPrefixSei(uint32_t type) { return type <= 9 || (type >= 16 && type <= 21) || type == 39; }

}  // namespace

extern "C" uint32_t klxUtilAddHevcCaptionsSEI(uint8_t* dst, const DFRAME* frame, uint32_t) {
  if (!dst || !frame) return 0;
  return writeCaptionSei(dst, frame->pCaption, frame->nCaptionSize);
}

extern "C" uint32_t klxUtilAddHevcCaptionsSEIChecked(uint8_t* dst, uint32_t capacity, const DFRAME* frame) {
  uint8_t unit[kSingleMessageBytes];
  const uint32_t n = klxUtilAddHevcCaptionsSEI(unit, frame, 0);
  if (!dst || n > capacity) return 0;
  std::memcpy(dst, unit, n);
  return n;
}

extern "C" uint32_t klxUtilAddHevcCaptions(DFRAME* frame, uint32_t) {
  if (!frame || !frame->pData) return 0;
  uint8_t sei[kSingleMessageBytes] = {};
  const uint32_t length = klxUtilAddHevcCaptionsSEI(sei, frame, 0);
  if (length == 0 || length > kMaxUnitLength) {
    ErrOut("Sei cc not added Length %d %s %d", length, "klxvidutil", __LINE__);
    return 0;
  }
  uint8_t* d = frame->pData;
  const uint32_t size = frame->nDataSize;
  // Walk the units; the unit type is all the walk needs, read from the first header byte
  // (ITU-T H.265 7.3.1.2) so that no unit is copied on the way.
  for (uint32_t pos = 0; pos < size;) {
    int start = 0, end = 0;
    const int found = find_nal_unit(d + pos, static_cast<int>(size - pos), &start, &end);
    if (found <= 0 || start <= 0) break;
    uint32_t codeAt = pos + static_cast<uint32_t>(start) - 3;  // the start code in front of the unit
    if (codeAt > pos && d[codeAt - 1] == 0) --codeAt;
    const uint32_t type = (d[pos + start] >> 1) & 0x3F;
    if (isSliceOrPrefixSei(type) && uint64_t(size) + length < frame->nBufferSize) {
      std::memmove(d + codeAt + length, d + codeAt, size - codeAt);
      std::memcpy(d + codeAt, sei, length);
      const uint32_t bothParts = DFRAME_TWO_PARTS | DFRAME_SECOND_PART_VALID;
      if ((frame->nFlags & bothParts) == bothParts && codeAt < frame->nSecondPartOffset)
        frame->nSecondPartOffset += length;
      return length;
    }
    pos += static_cast<uint32_t>(end);
  }
  return 0;
}
