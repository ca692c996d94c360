// Reading timecode and captions back out of coded frames: the HEVC time_code SEI
// (ITU-T H.265 D.2.27), the clock timestamps of the H.264 picture timing SEI (D.1.3), the
// MPEG-2 group-of-pictures header (ISO/IEC 13818-2 6.2.2.6), and ATSC A/53 cc_data in H.264 and
// HEVC SEI and MPEG-2 picture user data. Only the units in front of the first picture are
// parsed (ReadSEIEnd); nothing allocates.
#pragma once
#include <cstdint>

#include "avc_params.h"
#include "sei_remove.h"

extern "C" {

struct KLX_TIMECODE {
  uint8_t hours, minutes, seconds, frames;
  uint8_t dropFrame;        // drop-frame counting: counting_type 4..6 (H.264, HEVC), drop_frame_flag (MPEG-2)
  uint8_t countingType;     // counting_type as read (MPEG-2: 4 when drop_frame_flag, else 0)
  uint8_t fieldBased;       // units_field_based_flag / nuit_field_based_flag
  uint8_t clockTimestamps;  // clock timestamps found in the message (the first is reported)
};

// Each returns 1 with *tc filled when the frame carries a timecode, 0 when it does not, -1 for
// a bad argument. lengthPrefixed nonzero: 4-byte lengths, else start codes.
int klxUtilReadHevcTimeCode(const uint8_t* frame, uint32_t size, uint32_t lengthPrefixed, KLX_TIMECODE* tc);
// `sps`: the active SPS (its HRD and pic_struct_present_flag lay out pic_timing).
int klxUtilReadH264TimeCode(const uint8_t* frame, uint32_t size, uint32_t lengthPrefixed, const SPS_DECODED* sps,
                            KLX_TIMECODE* tc);
// The time_code of a group_of_pictures_header in the frame (start codes).
int klxUtilReadMpeg2TimeCode(const uint8_t* frame, uint32_t size, KLX_TIMECODE* tc);

// Caption triplets (cc_valid/cc_type byte, cc_data_1, cc_data_2) of every ATSC A/53 cc_data
// message of the frame, in order, into triplets[0 .. 3 * capacity). Returns the number of
// triplets the frame carries (those beyond `capacity` are counted, not copied), -1 for a bad
// argument.
int klxUtilReadH264CaptionsSEI(const uint8_t* frame, uint32_t size, uint32_t lengthPrefixed, uint8_t* triplets,
                               uint32_t capacity);
int klxUtilReadHevcCaptionsSEI(const uint8_t* frame, uint32_t size, uint32_t lengthPrefixed, uint8_t* triplets,
                               uint32_t capacity);
// MPEG-2 "GA94" user_data blocks (ATSC A/53 Part 4 6.2.3) in front of the first slice. The
// cc_count is read whether or not process_cc_data_flag is set (the library's own MPEG-2
// writer leaves it 0).
int klxUtilReadMpeg2Captions(const uint8_t* frame, uint32_t size, uint8_t* triplets, uint32_t capacity);

// Sets the time_code of every group_of_pictures_header in an MPEG-2 frame (start codes) in
// place: hours, minutes, seconds, frames and drop_frame_flag. Returns the number of GOP headers
// rewritten, -1 for a bad argument.
int klxutilSetMpeg2TimeCode(uint8_t* frame, uint32_t size, const KLX_TIMECODE* tc);
}
