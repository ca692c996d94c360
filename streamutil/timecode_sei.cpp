// HEVC time_code SEI (ITU-T H.265 D.2.27) and the active format description SEI.
#include <cstring>

#include "platform/tcxlat.h"
#include "streamutil/sei.h"

namespace {

constexpr uint32_t kSingleMessageBytes = 512;  // work and output buffers of one SEI message
constexpr uint32_t kPayloadSizeIndex = 7;      // 00 00 00 01 4E 01 type [size]
constexpr uint32_t kTimeCodePayloadType = 136;
constexpr uint32_t kUserDataRegisteredPayloadType = 4;
constexpr uint32_t kInsertScanLimit = 4095;  // the inserter looks no further into a frame
constexpr uint32_t kDigitsFlag = 0x400;      // tc2String: four bytes hours, minutes, seconds, frames

// counting_type of D.3.27 / Table D.2.
constexpr uint32_t kCountingNoDrop = 0;
constexpr uint32_t kCountingDropTwo = 4;  // 29.97: frame numbers 00 and 01 dropped
constexpr uint32_t kCountingDropSix = 6;  // written for 59.94 drop-frame, as hosts expect

struct TimecodeDigits {
  uint8_t hours, minutes, seconds, frames;
};

// Converts with the timecode library's digit form. The slot holds the 32-bit value 1 before the
// call, so a refused conversion leaves that value's bytes.
TimecodeDigits digitsOf(uint32_t frame, uint32_t typeWithDigitsFlag) {
  uint32_t slot = 1;
  tc2String(frame, typeWithDigitsFlag, &slot, sizeof slot);
  uint8_t b[4];
  std::memcpy(b, &slot, sizeof b);
  return {b[0], b[1], b[2], b[3]};
}

uint32_t countingTypeOf(uint32_t typeWithDigitsFlag) {
  switch (typeWithDigitsFlag) {
    case kDigitsFlag | TC_DF2997: return kCountingDropTwo;
    case kDigitsFlag | TC_DF5994: return kCountingDropSix;
    default: return kCountingNoDrop;
  }
}

zr_bitstream streamOver(uint8_t* buffer, uint32_t bytes) {
  return zr_bitstream{buffer, static_cast<int64_t>(bytes), uint64_t(bytes) * 8, 0};
}

void writePrefixSeiHeader(zr_bitstream* s, uint32_t payloadType, uint32_t payloadSize) {
  WriteBits(s, 32, 1);     // start code
  WriteBits(s, 1, 0);      // forbidden_zero_bit
  WriteBits(s, 6, 39);     // nal_unit_type PREFIX_SEI_NUT
  WriteBits(s, 6, 0);      // nuh_layer_id
  WriteBits(s, 3, 1);      // nuh_temporal_id_plus1
  WriteBits(s, 8, payloadType);
  WriteBits(s, 8, payloadSize);  // patched by CloseSEI
}

// Writes a complete time_code SEI unit (start-code form) into dst; returns its length.
uint32_t writeTimeCodeSei(uint8_t* dst, uint32_t frame, uint32_t typeWithDigitsFlag, bool unitsFieldBased) {
  const uint32_t countingType = countingTypeOf(typeWithDigitsFlag);
  const TimecodeDigits tc = digitsOf(frame, typeWithDigitsFlag);
  uint32_t cntDropped = 0;
  if (countingType != kCountingNoDrop) {
    const TimecodeDigits prev = digitsOf(frame ? frame - 1 : 0, typeWithDigitsFlag);
    cntDropped = (prev.minutes != tc.minutes && tc.seconds != 0) ? 1 : 0;
  }

  uint8_t work[kSingleMessageBytes] = {};
  zr_bitstream w = streamOver(work, sizeof work);
  writePrefixSeiHeader(&w, kTimeCodePayloadType, 6);
  WriteBits(&w, 2, 1);  // num_clock_ts
  WriteBits(&w, 1, 1);  // clock_timestamp_flag
  WriteBits(&w, 1, unitsFieldBased ? 1 : 0);
  WriteBits(&w, 5, countingType);
  WriteBits(&w, 1, 1);  // full_timestamp_flag
  WriteBits(&w, 1, 0);  // discontinuity_flag
  WriteBits(&w, 1, cntDropped);
  WriteBits(&w, 9, tc.frames);
  WriteBits(&w, 6, tc.seconds);
  WriteBits(&w, 6, tc.minutes);
  WriteBits(&w, 5, tc.hours);
  WriteBits(&w, 5, 0);  // time_offset_length

  zr_bitstream out = streamOver(dst, kSingleMessageBytes);
  CloseSEI(&w, &out, kPayloadSizeIndex, false);
  return static_cast<uint32_t>(out.position / 8);
}

// Where the time_code SEI goes in an HEVC frame in start-code form, or -1 when the frame
// already carries one.
int64_t timeCodeInsertionPoint(const uint8_t* d, uint32_t size) {
  uint32_t point = 0;  // 0 means "none chosen yet"
  for (uint32_t pos = 0; pos < size && pos <= kInsertScanLimit; ++pos) {
    if (pos + 4 >= size || d[pos] || d[pos + 1] || d[pos + 2] || d[pos + 3] != 1) continue;
    const uint8_t h = d[pos + 4];
    const uint32_t type = h >> 1;
    const bool vcl = h < 44 && !(type >= 10 && type <= 15);  // slices; 10..15 are reserved
    if (vcl) {
      if (!point) point = pos;
      break;
    }
    if (type == 39) {
      if (pos + 6 < size && d[pos + 6] == kTimeCodePayloadType) return -1;
      if (!point) point = pos;
    }
  }
  if (!point && size >= 5 && !d[0] && !d[1] && !d[2] && d[3] == 1 && d[4] == 0x46) point = 7;  // behind an AUD
  if (point > kInsertScanLimit || point >= size) point = 0;
  return point;
}

int addTimeCode(DFRAME* frame, uint32_t tcType, bool checkRoom) {
  uint8_t* d = frame->pData;
  const int64_t point = timeCodeInsertionPoint(d, frame->nDataSize);
  if (point < 0) return 0;
  uint8_t sei[kSingleMessageBytes];
  const uint32_t length = writeTimeCodeSei(sei, klxFrameTimecode(frame), tcType | kDigitsFlag, false);
  if (checkRoom && uint64_t(frame->nDataSize) + length > frame->nBufferSize) return KLX_SEI_NO_ROOM;
  std::memmove(d + point + length, d + point, frame->nDataSize - point);
  std::memcpy(d + point, sei, length);
  frame->nDataSize += length;
  frame->nSecondPartOffset += length;
  return 0;
}

// Timecode type and counting for an HEVC stream's integer rate (time_scale / num_units_in_tick).
uint32_t timecodeTypeForRate(uint32_t rate, bool twoFieldsPerFrame) {
  switch (rate) {
    case 23:
    case 24: return TC_FILM;
    case 25: return TC_PAL;
    case 30: return TC_NDF30;
    case 50: return twoFieldsPerFrame ? TC_PAL : TC_50;
    case 59: return twoFieldsPerFrame ? TC_DF2997 : TC_DF5994;
    case 60: return twoFieldsPerFrame ? TC_NDF30 : TC_60;
    default: return TC_DF2997;
  }
}

}  // namespace

extern "C" int klxutilAddHEVCTimeCode(DFRAME* frame, uint32_t tcType) {
  if (!frame || !frame->pData) return 0;
  return addTimeCode(frame, tcType, false);
}

extern "C" int klxutilAddHEVCTimeCodeChecked(DFRAME* frame, uint32_t tcType) {
  if (!frame || !frame->pData || frame->nDataSize > frame->nBufferSize) return -1;
  return addTimeCode(frame, tcType, true);
}

extern "C" uint32_t klxUtilAddHevcTimecodeSEIRate(uint8_t* dst, uint32_t frameNumber, uint32_t rate,
                                                  bool twoFieldsPerFrame) {
  if (!dst) return 0;
  return writeTimeCodeSei(dst, frameNumber, timecodeTypeForRate(rate, twoFieldsPerFrame) | kDigitsFlag,
                          twoFieldsPerFrame);
}

extern "C" uint32_t klxUtilAddHevcTimecodeSEI(uint8_t* dst, uint32_t frameNumber, const HEVC_SPS_DECODED* sps) {
  if (!dst || !sps || sps->vui.vui_num_units_in_tick == 0) return 0;
  const uint32_t rate = sps->vui.vui_time_scale / sps->vui.vui_num_units_in_tick;
  return klxUtilAddHevcTimecodeSEIRate(dst, frameNumber, rate, sps->vui.field_seq_flag != 0);
}

extern "C" uint32_t klxUtilAddHevcTimecodeSEIChecked(uint8_t* dst, uint32_t capacity, uint32_t frameNumber,
                                                     const HEVC_SPS_DECODED* sps) {
  uint8_t unit[kSingleMessageBytes];
  const uint32_t n = klxUtilAddHevcTimecodeSEI(unit, frameNumber, sps);
  if (!dst || n > capacity) return 0;
  std::memcpy(dst, unit, n);
  return n;
}

extern "C" uint32_t klxUtilAddSeiATC(uint8_t* dst, uint32_t flags) {
  if (!dst) return 0;
  uint8_t work[kSingleMessageBytes] = {};
  zr_bitstream w = streamOver(work, sizeof work);
  writePrefixSeiHeader(&w, kUserDataRegisteredPayloadType, 7);
  WriteBits(&w, 8, 0xB5);        // itu_t_t35_country_code: United States
  WriteBits(&w, 16, 0x0031);     // itu_t_t35_provider_code: ATSC
  WriteBits(&w, 32, 0x44544731);  // "DTG1": active format description (ATSC A/53)
  WriteBits(&w, 8, (flags & 0x0E) | 1);
  zr_bitstream out = streamOver(dst, kSingleMessageBytes);
  CloseSEI(&w, &out, kPayloadSizeIndex, false);
  return static_cast<uint32_t>(out.position / 8);
}

extern "C" uint32_t klxUtilAddSeiATCChecked(uint8_t* dst, uint32_t capacity, uint32_t flags) {
  uint8_t unit[kSingleMessageBytes];
  const uint32_t n = klxUtilAddSeiATC(unit, flags);
  if (!dst || n > capacity) return 0;
  std::memcpy(dst, unit, n);
  return n;
}
