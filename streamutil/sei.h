// SEI units written into HEVC frames: the time_code SEI (ITU-T H.265 D.2.27, payloadType 136),
// a short registered user-data SEI, and CloseSEI, which finishes every SEI NAL unit the stream
// utilities write (payload alignment, payloadSize, trailing bits, emulation prevention, start
// code or length prefix).
//
// Plain forms trust the caller for room, as hosts with fixed spare room behind each frame do;
// every one has a ...Checked form that is given the capacity and refuses rather than overrun.
#pragma once
#include <cstdint>

#include "dframe.h"
#include "hevc_params.h"
#include "zr_bitstream.h"

extern "C" {

// Result of the checked inserters when the frame or destination has no room.
constexpr int KLX_SEI_NO_ROOM = -102;

// Sentinel payloadSize index for CloseSEI: leave the payloadSize byte as written.
constexpr uint32_t SEI_NO_PAYLOAD_SIZE_PATCH = 0xFFFFFFFFu;

// Finishes the SEI NAL unit held in `work` (start code, header, payloadType, payloadSize,
// payload) and copies it to `out` at its position with emulation prevention. The payloadSize
// byte at `payloadSizeIndex` of the work buffer is set to the payload's true length. The unit
// starts 00 00 00 01, or with its big-endian length when `lengthPrefix` is true. Bytes beyond
// `out`'s capacity (its size, or its length in bits when size is 0) are dropped.
void CloseSEI(zr_bitstream* work, zr_bitstream* out, uint32_t payloadSizeIndex, bool lengthPrefix);

// Inserts a time_code SEI with the frame's timecode (klxFrameTimecode) in front of the first
// prefix SEI or slice of an HEVC frame in start-code form (behind a leading access unit
// delimiter), unless the frame already carries one. tcType is a timecode type (1 24, 2 30,
// 4 29.97 drop-frame, 8 25, 16 50, 32 59.94 drop-frame, 64 60). Grows nDataSize and
// nSecondPartOffset by the unit's length. The buffer must have that room: nothing is tested.
// Always returns 0.
int klxutilAddHEVCTimeCode(DFRAME* frame, uint32_t tcType);
// The same, but returns -1 for a null frame or buffer and KLX_SEI_NO_ROOM (frame untouched)
// when nBufferSize cannot take the unit.
int klxutilAddHEVCTimeCodeChecked(DFRAME* frame, uint32_t tcType);

// Writes a time_code SEI unit for `frameNumber` to dst, the rate taken from the SPS's VUI timing
// (vui_time_scale / vui_num_units_in_tick) and field coding from its field_seq_flag, which also
// gives units_field_based_flag. Returns the bytes written (at most 512), 0 for a null record or
// a zero vui_num_units_in_tick.
uint32_t klxUtilAddHevcTimecodeSEI(uint8_t* dst, uint32_t frameNumber, const HEVC_SPS_DECODED* sps);
uint32_t klxUtilAddHevcTimecodeSEIChecked(uint8_t* dst, uint32_t capacity, uint32_t frameNumber,
                                          const HEVC_SPS_DECODED* sps);

// The same unit from an explicit rate: `rate` is the integer time_scale / num_units_in_tick,
// `twoFieldsPerFrame` marks field coding (each picture one field). Used by the SPS form.
uint32_t klxUtilAddHevcTimecodeSEIRate(uint8_t* dst, uint32_t frameNumber, uint32_t rate, bool twoFieldsPerFrame);

// Writes an ATSC A/53 active format description SEI (user_data_registered_itu_t_t35, "DTG1")
// carrying (flags & 0x0E) | 1. Returns the bytes written (17 without emulation prevention).
uint32_t klxUtilAddSeiATC(uint8_t* dst, uint32_t flags);
// 0 and nothing written when `capacity` is too small.
uint32_t klxUtilAddSeiATCChecked(uint8_t* dst, uint32_t capacity, uint32_t flags);
}
