// The colour description of a coded stream (VUI video_signal_type and chroma_loc_info, ITU-T
// H.265 E.2.1 / H.264 E.1.1; code points of ITU-T H.273) rewritten in its sequence parameter
// sets, in elementary-stream units and inside hvcC / avcC records, through the library's
// parameter-set readers and writers.
//
// A rewrite is refused (-1, nothing written) when the unit does not come back byte for byte from
// the library's own read-then-write before the change: only the colour fields may change.
#pragma once
#include <cstdint>

#include "avc_params.h"
#include "hevc_params.h"

extern "C" {

// Bits of KLX_COLOUR_DESCRIPTION.set: which fields a rewrite applies.
constexpr uint32_t KLX_COLOUR_SET_PRIMARIES = 1;
constexpr uint32_t KLX_COLOUR_SET_TRANSFER = 2;
constexpr uint32_t KLX_COLOUR_SET_MATRIX = 4;
constexpr uint32_t KLX_COLOUR_SET_RANGE = 8;
constexpr uint32_t KLX_COLOUR_SET_CHROMA_LOCATION = 16;

struct KLX_COLOUR_DESCRIPTION {
  uint32_t set;
  int32_t colour_primaries;          // 0..255
  int32_t transfer_characteristics;  // 0..255
  int32_t matrix_coeffs;             // 0..255 (matrix_coefficients in H.264)
  int32_t video_full_range_flag;     // 0 limited, 1 full
  int32_t chroma_sample_loc_type_top_field;     // 0..5
  int32_t chroma_sample_loc_type_bottom_field;  // 0..5
};

// Applies the description to a decoded SPS record: turns on vui_parameters_present_flag,
// video_signal_type_present_flag (video_format 5, unspecified, when it was off) and
// colour_description_present_flag as needed; a colour description switched on fills the fields
// not being set with 2 (unspecified). Returns 0, or -1 for a null argument or a value out of range.
int klxutilSetColourHevcSps(HEVC_SPS_DECODED* sps, const KLX_COLOUR_DESCRIPTION* colour);
int klxutilSetColourAvcSps(SPS_DECODED* sps, const KLX_COLOUR_DESCRIPTION* colour);

// Rewrites one SPS NAL unit (header first, no start code; emulation prevention as coded) into
// `out`. Returns 0 with *outSize set, -1 when the unit is not a readable SPS of that codec, the
// library cannot write it back unchanged, or the description is out of range, KLX_NAL_NO_ROOM
// (-102) when `capacity` is too small.
int klxutilRewriteColourHevcSps(const uint8_t* unit, uint32_t size, const KLX_COLOUR_DESCRIPTION* colour,
                                uint8_t* out, uint32_t capacity, uint32_t* outSize);
int klxutilRewriteColourAvcSps(const uint8_t* unit, uint32_t size, const KLX_COLOUR_DESCRIPTION* colour, uint8_t* out,
                               uint32_t capacity, uint32_t* outSize);

// Rewrites every SPS inside a decoder configuration record (the record's bytes, without the box
// size and type): hvcC (ISO/IEC 14496-15 8.3.3) or avcC (5.3.3). Every other byte is copied;
// the length fields follow the new units. Same results as above.
int klxutilRewriteColourHvcc(const uint8_t* record, uint32_t size, const KLX_COLOUR_DESCRIPTION* colour, uint8_t* out,
                             uint32_t capacity, uint32_t* outSize);
int klxutilRewriteColourAvcc(const uint8_t* record, uint32_t size, const KLX_COLOUR_DESCRIPTION* colour, uint8_t* out,
                             uint32_t capacity, uint32_t* outSize);

}  // extern "C"
