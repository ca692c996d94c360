// AVCDecoderConfigurationRecord (avcC, ISO/IEC 14496-15 5.3.3.1): built from the SPS and PPS
// units of an H.264 frame, and read back into the syntax layer's avcc_t with its SPS/PPS records.
#pragma once
#include <cstdint>

#include "avc_params.h"
#include "../syntax/h264_stream.h"

extern "C" {

// The fields that follow the PPS array for profiles other than Baseline (66), Main (77) and
// Extended (88); avcc_t has no room for them.
struct AVCC_HIGH_PROFILE_FIELDS {
  int32_t present;  // 1 when the record carries them
  int32_t chroma_format;
  int32_t bit_depth_luma_minus8;
  int32_t bit_depth_chroma_minus8;
  int32_t numOfSequenceParameterSetExt;
};

// Builds the record (without box size and type) from the distinct SPS (type 7), PPS (type 8) and
// SPS extension (type 13) units of a frame, in frame order: configurationVersion 1, profile,
// compatibility and level bytes of the first SPS, lengthSizeMinusOne 3, the arrays, then for
// profiles other than 66/77/88 chroma_format and bit depths from the first SPS and the SPS
// extensions. startCodes: nonzero for Annex B, 0 for length-prefixed. Returns 0 with *outSize set,
// -1 for a null argument, unreadable framing, no SPS or PPS, more than 31 SPS or 255 PPS, a unit
// over 65535 bytes or an unreadable first SPS; KLX_NAL_NO_ROOM (-102) when `capacity` is too small
// (*outSize then tells the size needed).
int klxutilGetAvcc(const uint8_t* frame, uint32_t frameSize, uint32_t startCodes, uint8_t* out, uint32_t capacity,
                   uint32_t* outSize);

// Reads a record (without box size and type; a leading "size avcC" box header is skipped too).
// Fills `avcc` (its sps_table / pps_table arrays are allocated here and released by avcc_free;
// arrays it already held are released first); when `h` is given, each SPS / PPS is read into the
// context's record of its id and the arrays point there. `ext`, `firstSps`, `firstPps` (each may be
// null) receive the High-profile fields and the full records of the first SPS and PPS.
// With the box header, the record is as long as the box's size word says (0: to the end of
// `size`); a box longer than `size` is a record cut short.
// Returns 0, or -1 for a null avcc, a record cut short, a wrong configurationVersion or an
// allocation failure.
int klxutilReadAvcc(const uint8_t* record, uint32_t size, avcc_t* avcc, h264_stream_t* h, AVCC_HIGH_PROFILE_FIELDS* ext,
                    SPS_DECODED* firstSps, PPS_DECODED* firstPps);

// One parameter set of an avcC record: its NAL unit type (7 SPS, 8 PPS, 13 SPS extension) and
// where its bytes lie in the bytes given to klxutilAvccEntries.
struct AVCC_ENTRY {
  uint32_t nal_unit_type;
  uint32_t offset;
  uint32_t size;
};

// Lists every SPS, PPS and (after the High-profile fields) SPS-extension entry of a record, or of
// a box bounded by its size word as klxutilReadAvcc takes it, in record order. Returns 0 with
// *count set; -1 for a null argument, a record cut short (an entry running past it included) or a
// wrong configurationVersion; KLX_NAL_NO_ROOM (-102) when there are more than `capacity` entries
// (*count then tells how many; at most 31 + 255 + 255).
int klxutilAvccEntries(const uint8_t* record, uint32_t size, AVCC_ENTRY* entries, uint32_t capacity, uint32_t* count);

}  // extern "C"
