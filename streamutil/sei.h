// SEI units written into HEVC frames: the time_code SEI (ITU-T H.265 D.2.27, payloadType 136),
// a short registered user-data SEI, and CloseSEI, which finishes every SEI NAL unit the stream
// utilities write (payload alignment, payloadSize, trailing bits, emulation prevention, start
// code or length prefix).
//
// Plain forms trust the caller for room, as hosts with fixed spare room behind each frame do;
// every one has a ...Checked form that is given the capacity and refuses rather than overrun.
#pragma once
#include <cstdint>

#include "avc_params.h"
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

// ---- H.264 timecode: clock timestamps in the picture timing SEI (ITU-T H.264 D.1.3, D.2.3)

// Flags of klxutilAddAVCTimeCode.
constexpr uint32_t KLX_AVC_TC_BOTTOM_FIELD_FIRST = 1;  // interlaced frames show the bottom field first

// Gives the picture of an H.264 frame the frame's timecode (klxFrameTimecode) of type tcType
// (1 24, 2 30, 4 29.97 drop-frame, 8 25, 16 50, 32 59.94 drop-frame, 64 60, 128 23.98) as a
// full clock timestamp in every clock timestamp slot of its pic_timing SEI: counting_type 4
// with cnt_dropped_flag on the first picture after dropped frame numbers for drop-frame types,
// else 0; nuit_field_based_flag when the VUI ticks are field periods. `sps` is the active
// SPS as the input stream carries it (it says how an existing pic_timing is laid out).
//  - An existing pic_timing keeps its cpb_removal_delay, dpb_output_delay and pic_struct; only
//    its clock timestamps are rewritten.
//  - Otherwise a pic_timing SEI unit is inserted in front of the first slice (behind any
//    delimiter, parameter sets and buffering period SEI), with pic_struct from the slice
//    header: 0 for frames of progressive streams, 1 / 2 for field pictures, 3 (4 with
//    KLX_AVC_TC_BOTTOM_FIELD_FIRST) for frames of interlaced (MBAFF or PAFF) streams.
//  - A frame that holds both field pictures of a pair (two access units, as a container sample
//    may) gets the same timestamp in each field's pic_timing.
//  - An SPS in the frame without pic_struct_present_flag is rewritten through the AVC
//    parameter-set writer with the flag set (see klxutilAVCSpsForTimeCode). The caller must
//    do the same for parameter sets carried outside the frames (avcC).
// lengthPrefixed nonzero: 4-byte length framing, else start codes. Checked against
// nBufferSize. Returns 0; -1 for a bad argument, an unknown type or an SPS that cannot be
// rewritten faithfully; KLX_SEI_NO_ROOM with the frame untouched when the room is missing
// (an SPS already rewritten then stays rewritten).
int klxutilAddAVCTimeCode(DFRAME* frame, uint32_t tcType, const SPS_DECODED* sps, uint32_t lengthPrefixed,
                          uint32_t flags);

// Writes the H.264 SPS unit `nal` (from its header byte, emulation prevention in place) to
// out with pic_struct_present_flag set (adding an otherwise empty VUI when it has none).
// Returns 0 (rewritten), 1 (the flag was already set: out holds a copy), -1 when the unit is not
// an SPS or the parameter-set writer cannot reproduce it exactly (for example default scaling
// lists), KLX_SEI_NO_ROOM when `capacity` is too small. *outLength receives the length.
int klxutilAVCSpsForTimeCode(const uint8_t* nal, uint32_t nalLength, uint8_t* out, uint32_t capacity,
                             uint32_t* outLength);
}
