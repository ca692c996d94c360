// Closed captions (CEA-608 carried in CEA-708 cc_data) put into coded frames as ATSC A/53
// user data: a registered user-data SEI (ITU-T T.35, country 0xB5, provider 0x0031, "GA94",
// user_data_type_code 3) in H.264 and HEVC, a picture user-data block in MPEG-2.
//
// Caption packet. The writers take the caption bytes of a frame from a packet laid out as an
// SDI ancillary packet of SMPTE ST 334 carrying a caption distribution packet (CDP):
//
//   0..3   host bytes (source line, flags); not read by the writers
//   4      DID 0x61        5  SDID 0x01
//   6      data count: caption bytes + 7 (the CDP bytes from cdp_length to the last triplet)
//   7..8   cdp_identifier 0x96 0x69       9  cdp_length
//   10     cdp_frame_rate (high nibble) and 0xF
//   11     flags: 0x80 time_code_present, 0x40 ccdata_present, 0x01 reserved ... (SMPTE ST 334-2)
//   12..13 cdp_hdr_sequence_cntr
//   14     ccdata_id 0x72 (behind a 5-byte time_code_section when time_code_present is set)
//   15     marker bits 111 and cc_count
//   16..   cc_count triplets: (marker 11111, cc_valid, cc_type), cc_data_1, cc_data_2
//   then   cdp_footer: 0x74, the sequence counter again, packet_checksum
#pragma once
#include <cstdint>

#include "dframe.h"

extern "C" {

// Result codes of the caption writers besides 0 and -1.
constexpr int KLX_CC_NO_ROOM = -102;

// Offsets in the caption packet that the writers rely on.
constexpr uint32_t CC_PACKET_DATA_COUNT = 6;
constexpr uint32_t CC_PACKET_CDP_START = 7;
constexpr uint32_t CC_PACKET_CDP_LENGTH = 9;
constexpr uint32_t CC_PACKET_TRIPLETS = 16;
// The data count counts 7 header bytes besides the caption bytes.
constexpr uint32_t CC_PACKET_COUNT_BIAS = 7;

// Checks a caption packet before any writer copies from it: 0 when the sizes it announces fit
// in `length` bytes, -1 (rejected) for a null packet, a packet shorter than its fixed header
// (16 bytes), a data count below 7, or a cdp_length (when not 0) running past the packet's
// end. The caption byte count itself is not held against the length: each writer cuts what it
// copies to the packet (H.264 and HEVC trim the count, MPEG-2 refuses).
int copy_zrccCheck608708(const uint8_t* packet, uint32_t length);

// CDP frame-rate codes (SMPTE ST 334-2).
enum CdpFrameRate : uint32_t {
  CDP_RATE_23_976 = 1,
  CDP_RATE_24 = 2,
  CDP_RATE_25 = 3,
  CDP_RATE_29_97 = 4,
  CDP_RATE_30 = 5,
  CDP_RATE_50 = 6,
  CDP_RATE_59_94 = 7,
  CDP_RATE_60 = 8,
};

// Builds a caption packet around `ccCount` cc_data triplets (3 bytes each) into `out`.
// Returns the packet length (20 + 3 × ccCount), or 0 when ccCount is above 31 or `capacity`
// is too small (nothing is written then).
uint32_t klxutilMakeCaptionPacket(uint8_t* out, uint32_t capacity, const uint8_t* triplets, uint32_t ccCount,
                                  uint32_t cdpFrameRate, uint16_t sequence);

// H.264: inserts the packet's caption triplets (at most 10) as a user-data SEI into the frame,
// behind its SPS and PPS or in front of its first other unit. lengthPrefixed nonzero: the
// frame's units carry 4-byte lengths; zero: start codes. Returns 0 (also for a packet length
// of 0, frame untouched), -1 for a null frame, buffer or packet or a rejected packet, or
// KLX_CC_NO_ROOM with "No Allocation for CC Data" logged when nBufferSize is below
// nDataSize + caption bytes + 285.
int klxutilAddAVCCaptions(DFRAME* frame, const uint8_t* packet, uint32_t packetLength, uint32_t lengthPrefixed);

// MPEG-2: puts the frame's caption packet (pCaption, nCaptionSize) in front of the frame as a
// "GA94" user-data block. cc_count is written without its flag bits, so process_cc_data_flag
// reads 0. Returns 0, -1 for a null frame, a rejected packet or one whose announced caption
// bytes run past its end, or KLX_CC_NO_ROOM (logged) when nBufferSize is below
// nDataSize + packet length + 285.
int klxutilAddMPEG2Captions(DFRAME* frame);

// HEVC: writes the frame's caption packet as a prefix SEI unit (start-code form) to dst.
// Returns the bytes written (at most 512), 0 for a packet shorter than 4 bytes (logged as
// "No SEI CC data size is %d") or one the packet check rejects. `unused` is ignored.
uint32_t klxUtilAddHevcCaptionsSEI(uint8_t* dst, const DFRAME* frame, uint32_t unused);
// 0 and nothing written when `capacity` cannot take the unit.
uint32_t klxUtilAddHevcCaptionsSEIChecked(uint8_t* dst, uint32_t capacity, const DFRAME* frame);

// HEVC: inserts that unit in front of the first slice or prefix SEI of the frame (start-code
// form) for which the buffer has room. Returns the bytes inserted, which the caller adds to
// nDataSize; 0 when nothing was inserted. Moves nSecondPartOffset with the data when the
// frame's flags have both DFRAME_TWO_PARTS and DFRAME_SECOND_PART_VALID and the unit lands in
// front of the second part. `unused` is ignored.
uint32_t klxUtilAddHevcCaptions(DFRAME* frame, uint32_t unused);

// H.264 or HEVC (codec KLX_CODEC_H264 / KLX_CODEC_HEVC of sei_remove.h): inserts the packet's
// caption triplets (all of them, up to 31) as a registered user-data SEI unit in front of the
// frame's first picture: behind any access unit delimiter, parameter sets and buffering period
// SEI, as ITU-T H.264 7.4.1.2.3 and H.265 7.4.2.4.4 order them. lengthPrefixed nonzero: 4-byte
// lengths, else start codes. Returns 0; -1 for a bad argument or a packet the check rejects;
// KLX_CC_NO_ROOM, frame untouched, when nBufferSize cannot take the unit. Existing caption
// SEI stays (remove it first with klxutilRemoveSEIMessages and KLX_SEI_CC_DATA).
int klxutilAddCaptionsSEI(DFRAME* frame, uint32_t codec, const uint8_t* packet, uint32_t packetLength,
                          uint32_t lengthPrefixed);
}
