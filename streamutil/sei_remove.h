// Editing the SEI of a coded frame in place: removing messages of given payload types, and the
// place where units that precede the pictures end. Both framings (start codes, 4-byte lengths),
// H.264 and HEVC.
#pragma once
#include <cstdint>

#include "dframe.h"

extern "C" {

// Codec of a frame for the SEI editors and readers.
constexpr uint32_t KLX_CODEC_H264 = 1;
constexpr uint32_t KLX_CODEC_HEVC = 2;

// Pseudo payload type for klxutilRemoveSEIMessages: user_data_registered_itu_t_t35 messages
// that carry ATSC A/53 cc_data (country 0xB5, provider 0x0031, "GA94", type 3) and no others,
// so that active format description or HDR10+ messages of the same payloadType stay.
constexpr uint32_t KLX_SEI_CC_DATA = 0x10004;

// Removes every SEI message whose payloadType is one of types[0..count) from the frame, in
// place: H.264 SEI units (nal_unit_type 6), HEVC prefix and suffix SEI units (39, 40). A unit
// that loses all its messages is removed with its start code or length field; the other units
// are rewritten with their emulation prevention redone. nDataSize shrinks, and
// nSecondPartOffset moves with the data when DFRAME_TWO_PARTS and DFRAME_SECOND_PART_VALID are
// both set. Units whose messages cannot be parsed are left as they are.
// Returns the number of messages removed (0: nothing found), -1 for a bad argument.
int klxutilRemoveSEIMessages(DFRAME* frame, uint32_t codec, uint32_t lengthPrefixed, const uint32_t* types,
                             uint32_t count);

// Offset in the frame where the units in front of the first picture end: the start code (or
// length field) of the first VCL unit (H.264 nal_unit_type 1..5 and the prefix unit 14; HEVC
// 0..31), or `size` when there is none. Delimiters, parameter sets and every SEI that must
// precede the picture (a buffering period first of all) lie in front of it, so a unit put
// here conforms (ITU-T H.264 7.4.1.2.3, H.265 7.4.2.4.4). Readers of frame metadata stop here.
uint32_t ReadSEIEnd(const uint8_t* frame, uint32_t size, uint32_t codec, uint32_t lengthPrefixed);

// Inserts a complete NAL unit given in start-code form (00 00 00 01 + unit) at ReadSEIEnd, in
// the frame's framing (the start code becomes a 4-byte length when lengthPrefixed is nonzero).
// An HEVC SEI unit whose nuh_temporal_id_plus1 is below the picture's takes the picture's, as
// ITU-T H.265 7.4.2.2 asks. Returns 0, -1 for a bad argument, KLX_SEI_NO_ROOM_FRAME (frame
// untouched) when nBufferSize cannot take it.
int klxutilInsertUnitBeforePicture(DFRAME* frame, uint32_t codec, uint32_t lengthPrefixed, const uint8_t* unit,
                                   uint32_t unitLength);
constexpr int KLX_SEI_NO_ROOM_FRAME = -102;
}
