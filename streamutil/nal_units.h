// Every NAL unit of one coded frame, found in one pass, and units added to or removed from a
// frame in place. Both framings: Annex B start codes (ITU-T H.264 / H.265 Annex B) and the
// 32-bit big-endian length prefixes of MP4-style samples (ISO/IEC 14496-15).
//
// Nothing here allocates. Every read and write stays inside the frame (and, for the checked
// forms, inside the capacity given).
#pragma once
#include <cstdint>

#include "dframe.h"

extern "C" {

// One unit of a frame.
struct KLX_NAL_UNIT {
  uint32_t offset;        // first byte of the unit's start code or length field
  uint32_t size;          // bytes from the first header byte to the next unit's offset (or the end)
  uint8_t prefixLength;   // 3 or 4 (start code), 4 (length field)
  uint8_t type;           // nal_unit_type (5 bits H.264, 6 bits HEVC)
  uint8_t nalRefIdc;      // H.264 nal_ref_idc; 0 for HEVC
  uint8_t layer;          // HEVC nuh_layer_id; 0 for H.264
  int8_t temporalId;      // HEVC nuh_temporal_id_plus1 - 1 (-1 for a header carrying 0); 0 for H.264
  uint8_t reserved[3];
};

// Result codes shared with the SEI writers.
constexpr int KLX_NAL_OK = 0;
constexpr int KLX_NAL_BAD = -1;       // bad argument, or a length field running past the frame
constexpr int KLX_NAL_NO_ROOM = -102;  // the table or the frame's capacity is too small

// Lists the units of an H.264 frame (klxutilFindNalUnits) or an HEVC frame
// (klxutilFindNalUnitsHevc). startCodes: nonzero for Annex B, 0 for length-prefixed.
// Up to maxUnits entries are filled; *count receives the number of units in the frame even when
// that is more (the result is then KLX_NAL_NO_ROOM). Annex B: bytes before the first start code
// are not a unit; trailing zero bytes stay with the unit they follow. Length-prefixed: a length
// running past the frame gives KLX_NAL_BAD (the units before it are reported); zero bytes after
// the last unit (a zero length) end the frame.
int klxutilFindNalUnits(const uint8_t* frame, uint32_t size, uint32_t startCodes, KLX_NAL_UNIT* units,
                        uint32_t maxUnits, uint32_t* count);
int klxutilFindNalUnitsHevc(const uint8_t* frame, uint32_t size, uint32_t startCodes, KLX_NAL_UNIT* units,
                            uint32_t maxUnits, uint32_t* count);

// Inserts `unitCount` NAL units (each given without start code or length: header first, emulation
// prevention already applied) in front of the unit at `index` (index = number of units: at the
// end), each behind a 00 00 00 01 start code or its 4-byte length in the frame's framing. The tail
// moves up once. *frameSize grows by the bytes added. This form trusts the caller for room.
// Returns 0, or KLX_NAL_BAD (null argument, empty unit, index beyond the last unit, unreadable
// framing; the frame is then untouched).
int klxutilAddNalUnits(uint8_t* frame, uint32_t* frameSize, uint32_t startCodes, uint32_t index,
                       const uint8_t* const* units, const uint32_t* unitSizes, uint32_t unitCount);
// The same, refused with KLX_NAL_NO_ROOM (frame untouched) when the result would not fit in
// `capacity` bytes.
int klxutilAddNalUnitsChecked(uint8_t* frame, uint32_t* frameSize, uint32_t capacity, uint32_t startCodes,
                              uint32_t index, const uint8_t* const* units, const uint32_t* unitSizes,
                              uint32_t unitCount);
// The checked form on a DFRAME (capacity nBufferSize). nSecondPartOffset grows too when the
// frame has two parts (DFRAME_TWO_PARTS and DFRAME_SECOND_PART_VALID) and the units land at or
// in front of the second part.
int klxutilAddNalUnitsFrame(DFRAME* frame, uint32_t startCodes, uint32_t index, const uint8_t* const* units,
                            const uint32_t* unitSizes, uint32_t unitCount);

// Removes `count` units from `index` on (prefix included), moving the tail down. Returns 0, or
// KLX_NAL_BAD when the range is not inside the frame's units (frame untouched).
int klxutilRemoveNalUnits(uint8_t* frame, uint32_t* frameSize, uint32_t startCodes, uint32_t index, uint32_t count);

}  // extern "C"
